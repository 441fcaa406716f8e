#include <kvcore/tools/support/Text.h>

#include <climits>

namespace kv::tools
{

void Print(OutputStream & stream, std::string_view text)
{
    while (!text.empty())
    {
        std::string_view const piece = text.substr(0, INT_MAX);
        stream.Write(piece.data(), static_cast<int>(piece.size()));
        text.remove_prefix(piece.size());
    }
}

void Print(OutputStream & stream, String const & text)
{
    Print(stream, std::string_view(text.Utf8()));
}

void PrintLine(OutputStream & stream, std::string_view text)
{
    // In one piece, so that lines of several programs on one terminal do not mix.
    std::string line(text);
    line += '\n';
    Print(stream, std::string_view(line));
}

void PrintLine(OutputStream & stream, String const & text)
{
    PrintLine(stream, std::string_view(text.Utf8()));
}

std::string HumanSize(std::uint64_t bytes)
{
    if (bytes < 1024)
    {
        return std::to_string(bytes) + " B";
    }
    // In tenths of a unit, rounded; 1023.95 and more belongs to the next unit.
    static constexpr char const * units[] = {"KiB", "MiB", "GiB", "TiB", "PiB", "EiB"};
    std::size_t unit = 0;
    std::uint64_t rest = bytes & 1023;
    std::uint64_t whole = bytes >> 10;
    std::uint64_t tenths = whole * 10 + (rest * 10 + 512) / 1024;
    while (tenths >= 10240)
    {
        rest = whole & 1023;
        whole >>= 10;
        tenths = whole * 10 + (rest * 10 + 512) / 1024;
        ++unit;
    }
    return std::to_string(tenths / 10) + "." + std::to_string(tenths % 10) + " " + units[unit];
}

std::string Counted(std::uint64_t count, std::string_view noun)
{
    return std::to_string(count) + " " + std::string(noun) + (count == 1 ? "" : "s");
}

} // namespace kv::tools
