#pragma once

#include <list>
#include <string>

#include <kvcore/core/String.h>
#include <kvcore/platform/types.h>

/// A control of a dialog resource. Places and sizes are in dialog units.
struct DialogItem
{
    DWORD helpId = 0; ///< extended form only
    DWORD style = 0;
    DWORD exStyle = 0;
    short x = 0;
    short y = 0;
    short cx = 0;
    short cy = 0;
    unsigned short id = 0;
    String windowClass; ///< "#128" if the resource has the number 128
    String title;
    std::string creationData;
};

/// The parsed form of a dialog resource, in either of its forms.
///
/// Kept: items are read as they always were, since dialogs were arranged for what came of it. An extended item's
/// identifier is taken for 16 bits, so that for an ordinary one the class reads empty and each later field is what
/// stands before it in the resource. A standard item's creation data begin at the word with their size.
struct DialogTemplate
{
    bool extended = false;
    unsigned short version = 0;   ///< extended form only
    unsigned short signature = 0; ///< extended form only: 0xFFFF
    DWORD helpId = 0;             ///< extended form only
    DWORD style = 0;
    DWORD exStyle = 0;
    RECT rect = {};               ///< in dialog units, with right = x + cx and bottom = y + cy
    unsigned short pointSize = 0; ///< of the font, if the style asks for one
    unsigned short weight = 0;    ///< extended form only, like the next two
    unsigned char italic = 0;
    unsigned char charset = 0;
    String fontName;
    String menu;
    String windowClass;
    String title;
    std::list<DialogItem> items; ///< in the order of the resource
};
