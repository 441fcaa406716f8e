#include <kvcore/tools/support/Printable.h>

#include <algorithm>
#include <cstdio>
#include <iterator>

namespace kv::tools
{

DecodedCharacter DecodeFirst(std::string_view text)
{
    auto const byte = [&](std::size_t i) { return static_cast<unsigned char>(text[i]); };
    unsigned char const lead = byte(0);
    if (lead < 0x80)
    {
        return {lead, 1, true};
    }
    std::size_t const size = lead < 0xC2 ? 0 : lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : lead < 0xF5 ? 4 : 0;
    if (size == 0 || size > text.size())
    {
        return {lead, 1, false};
    }
    char32_t c = lead & 0xFF >> (size + 1);
    for (std::size_t i = 1; i < size; ++i)
    {
        if ((byte(i) & 0xC0) != 0x80)
        {
            return {lead, 1, false};
        }
        c = c << 6 | (byte(i) & 0x3F);
    }
    bool const overlong = (size == 3 && c < 0x800) || (size == 4 && c < 0x10000);
    bool const valid = !overlong && c <= 0x10FFFF && !(c >= 0xD800 && c < 0xE000);
    return valid ? DecodedCharacter{c, size, true} : DecodedCharacter{lead, 1, false};
}

namespace
{

struct Span
{
    char32_t first;
    char32_t last;
};

/// Controls, line separators, and what reorders or hides its neighbours.
constexpr Span hostile[] = {
    {0x00, 0x1F},     {0x7F, 0x9F},     {0xAD, 0xAD},     {0x61C, 0x61C},   {0x180E, 0x180E}, {0x200B, 0x200F},
    {0x2028, 0x202E}, {0x2060, 0x206F}, {0xFE00, 0xFE0F}, {0xFEFF, 0xFEFF}, {0xFFF0, 0xFFFB}, {0xE0000, 0xE0FFF},
};

bool IsHostile(DecodedCharacter const & decoded)
{
    return !decoded.valid ||
        std::any_of(
            std::begin(hostile), std::end(hostile),
            [&](Span span) { return decoded.c >= span.first && decoded.c <= span.last; });
}

void AppendEscape(std::string & shown, DecodedCharacter const & decoded)
{
    switch (decoded.c)
    {
    case '\n':
        shown += "\\n";
        return;
    case '\r':
        shown += "\\r";
        return;
    case '\t':
        shown += "\\t";
        return;
    default:
        break;
    }
    char escape[16];
    bool const isByte = !decoded.valid || decoded.c < 0x80;
    std::snprintf(escape, sizeof escape, isByte ? "\\x%02X" : "\\u{%X}", static_cast<unsigned>(decoded.c));
    shown += escape;
}

bool IsKept(char32_t c, Spaces spaces)
{
    return (c == '\t' && spaces != Spaces::Escaped) || (c == '\n' && spaces == Spaces::Lines);
}

} // namespace

std::string Printable(std::string_view text, Backslashes backslashes, Spaces spaces)
{
    std::string shown;
    shown.reserve(text.size());
    while (!text.empty())
    {
        DecodedCharacter const decoded = DecodeFirst(text);
        if (IsHostile(decoded) && !IsKept(decoded.c, spaces))
        {
            AppendEscape(shown, decoded);
        }
        else
        {
            shown += decoded.c == '\\' && backslashes == Backslashes::Doubled ? std::string_view("\\\\")
                                                                              : text.substr(0, decoded.size);
        }
        text.remove_prefix(decoded.size);
    }
    return shown;
}

bool IsPrintable(std::string_view text)
{
    while (!text.empty())
    {
        DecodedCharacter const decoded = DecodeFirst(text);
        if (IsHostile(decoded))
        {
            return false;
        }
        text.remove_prefix(decoded.size);
    }
    return true;
}

} // namespace kv::tools
