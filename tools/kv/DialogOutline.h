#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include <kvcore/core/String.h>

namespace kv::tools
{

/// A control of a dialog, in dialog units.
struct OutlineItem
{
    int x, y, width, height;
    unsigned int id;
    unsigned int style;
    /// The class in words for the system's own ones ("button"), else its name.
    std::string kind;
    /// Empty for none, "#12" for an ordinal.
    std::string text;
};

/// A dialog as its resource describes it, in either of the two forms.
struct DialogOutline
{
    bool extended = false;
    int x = 0, y = 0, width = 0, height = 0;
    std::string title;
    std::string font;
    int pointSize = 0;
    std::vector<OutlineItem> items;
    /// The resource ends before all that it promises.
    bool damaged = false;
};

/// Reads a dialog resource. Any bytes do: what is not all there is left out, and the outline says so.
[[nodiscard]] DialogOutline ReadDialog(void const * data, std::size_t size);

/// Draws the dialog in characters, a column for 4 units and a row for 8, and lists its controls below. At most 120
/// columns and 60 rows are drawn. Every line ends in a line feed.
[[nodiscard]] std::string DrawDialog(DialogOutline const & dialog);

/// Text for one line: control characters as "\n" and the like.
[[nodiscard]] std::string OneLine(std::string const & text);

} // namespace kv::tools
