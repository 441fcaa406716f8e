#pragma once

// Message texts of the system, and message templates with inserts.

#include <cstdarg>

#include <kvcore/platform/include/basetypes.h>

#define FORMAT_MESSAGE_ALLOCATE_BUFFER 0x00000100u
#define FORMAT_MESSAGE_IGNORE_INSERTS 0x00000200u
#define FORMAT_MESSAGE_FROM_STRING 0x00000400u
#define FORMAT_MESSAGE_FROM_SYSTEM 0x00001000u
#define FORMAT_MESSAGE_ARGUMENT_ARRAY 0x00002000u
#define FORMAT_MESSAGE_MAX_WIDTH_MASK 0x000000FFu

extern "C"
{
    /// Prints a message into `buffer`, which has room for `capacity` elements. With FORMAT_MESSAGE_ALLOCATE_BUFFER,
    /// `buffer` is the address of an LPWSTR instead, and receives memory of at least `capacity` elements that the
    /// caller releases with LocalFree; null on failure. Returns the elements printed without the NUL, or 0 with the
    /// last error set.
    ///
    /// FORMAT_MESSAGE_FROM_STRING: `source` is the template. FORMAT_MESSAGE_FROM_SYSTEM: the system's text for
    /// `messageId`, which ends in CR LF; ERROR_MR_MID_NOT_FOUND if there is none. `languageId` may be 0, a default, or
    /// any English.
    ///
    /// In a template, %1 to %99 are inserts, with a printf form as in "%1!08x!" or else as text; a form knows no
    /// floating-point number and no %n, and no width or precision above 1048576. "%0" ends the text, "%n" is a line
    /// end, "%r" a CR, "%t" a tab, "%" with anything else that thing; a "%" at the end is ERROR_INVALID_PARAMETER. A
    /// line end of any form becomes CR LF. Inserts come from `arguments`, a C argument list, or with
    /// FORMAT_MESSAGE_ARGUMENT_ARRAY an array of DWORD_PTR, and none is read beyond those that are used.
    /// FORMAT_MESSAGE_IGNORE_INSERTS leaves the inserts and what else stands for itself as they are.
    ///
    /// The low byte of `flags` is the width of a line, at which text is broken; the template's own line ends become
    /// blanks then. 255 is no width, but does the latter.
    KVCORE_API DWORD WINAPI FormatMessageW(
        DWORD flags, LPCVOID source, DWORD messageId, DWORD languageId, LPWSTR buffer, DWORD capacity,
        std::va_list * arguments);
}
