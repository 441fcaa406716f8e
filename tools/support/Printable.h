#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace kv::tools
{

/// What becomes of a backslash in Printable.
enum class Backslashes
{
    Kept,   ///< for texts with paths of the library's form in them, and for whole messages
    Doubled ///< for names on their own: no two of them look alike then
};

/// What Printable leaves as it is beside the characters that print.
enum class Spaces
{
    Escaped, ///< for what has to stay on one line and in its column
    Tabs,    ///< for a line as somebody wrote it
    Lines    ///< tabs and line feeds, for a text of several lines
};

/// A text as people may see it: whatever acts upon a terminal, ends a line, or hides or reorders its neighbours is
/// written out. Controls become `\n`, `\r`, `\t` or `\x1B`; the controls of Unicode, its line separators and its marks
/// of direction `\u{202E}`; bytes that are no UTF-8 `\xFF`. With backslashes kept, what is printable stays as it is
/// when it passes a second time. Any bytes do.
[[nodiscard]] std::string
Printable(std::string_view text, Backslashes backslashes = Backslashes::Kept, Spaces spaces = Spaces::Escaped);

/// Whether Printable changes the text, backslashes aside.
[[nodiscard]] bool IsPrintable(std::string_view text);

/// A character of a text, and how many bytes it takes. What is no UTF-8 gives single bytes that are not `valid`.
struct DecodedCharacter
{
    char32_t c;
    std::size_t size;
    bool valid;
};
/// The first character of a text that is not empty.
[[nodiscard]] DecodedCharacter DecodeFirst(std::string_view text);

} // namespace kv::tools
