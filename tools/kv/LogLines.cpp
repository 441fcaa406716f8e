#include <kvcore/tools/kv/LogLines.h>

#include <algorithm>
#include <cctype>

#include <kvcore/tools/support/Printable.h>

namespace kv::tools
{

namespace
{

constexpr std::size_t nameWidth = 10;
constexpr std::size_t stampWidth = 10;                        // "[09:05:07]"
constexpr std::size_t headWidth = stampWidth + nameWidth + 2; // a blank behind each

bool IsDigit(char c)
{
    return c >= '0' && c <= '9';
}

/// The number of two digits at `position`, or -1.
int TwoDigits(std::string_view text, std::size_t position)
{
    bool const are = position + 2 <= text.size() && IsDigit(text[position]) && IsDigit(text[position + 1]);
    return are ? (text[position] - '0') * 10 + (text[position + 1] - '0') : -1;
}

bool EqualIgnoringCase(std::string_view left, std::string_view right)
{
    return std::equal(
        left.begin(), left.end(), right.begin(), right.end(),
        [](unsigned char a, unsigned char b) { return std::tolower(a) == std::tolower(b); });
}

} // namespace

std::optional<int> ParseTimeOfDay(std::string_view text)
{
    bool const hasSeconds = text.size() == 8;
    if ((!hasSeconds && text.size() != 5) || text[2] != ':' || (hasSeconds && text[5] != ':'))
    {
        return std::nullopt;
    }
    int const hour = TwoDigits(text, 0);
    int const minute = TwoDigits(text, 3);
    int const second = hasSeconds ? TwoDigits(text, 6) : 0;
    if (hour < 0 || hour > 23 || minute < 0 || minute > 59 || second < 0 || second > 59)
    {
        return std::nullopt;
    }
    return (hour * 60 + minute) * 60 + second;
}

std::optional<LogLine> ParseLogLine(std::string_view line)
{
    if (line.size() < headWidth || line[0] != '[' || line[stampWidth - 1] != ']' || line[stampWidth] != ' ' ||
        line[headWidth - 1] != ' ')
    {
        return std::nullopt;
    }
    std::optional<int> const second = ParseTimeOfDay(line.substr(1, stampWidth - 2));
    if (!second)
    {
        return std::nullopt;
    }
    std::string_view module = line.substr(stampWidth + 1, nameWidth);
    module = module.substr(0, module.find_last_not_of(' ') + 1);
    return LogLine{*second, line.substr(0, stampWidth), module, line.substr(headWidth)};
}

bool LogFilter::Passes(std::optional<LogLine> const & line) const
{
    if (!line)
    {
        return modules.empty() && !since && !until;
    }
    bool const isOfModule = modules.empty() ||
        std::any_of(modules.begin(), modules.end(),
                    [&line](std::string const & name)
                    { return EqualIgnoringCase(std::string_view(name).substr(0, nameWidth), line->module); });
    return isOfModule && (!since || line->second >= *since) && (!until || line->second <= *until);
}

std::string Coloured(LogLine const & line)
{
    constexpr char const * moduleColours[] = {"\x1b[36m", "\x1b[32m", "\x1b[33m", "\x1b[34m", "\x1b[35m", "\x1b[96m"};
    unsigned hash = 0;
    for (char const c : line.module)
    {
        hash = hash * 31 + static_cast<unsigned char>(c);
    }
    std::size_t const begin = std::min(line.text.find_first_not_of(' '), line.text.size());
    std::string_view const text = line.text.substr(begin);
    bool const isError = text.substr(0, 9) == "EXCEPTION" || text.substr(0, 5) == "ERROR";
    // No escape sequence but these: what a program logs does not act upon the terminal.
    std::string result = "\x1b[2m" + Printable(line.stamp) + "\x1b[0m ";
    result += moduleColours[hash % std::size(moduleColours)] + Printable(line.module) + "\x1b[0m";
    result += std::string(nameWidth - line.module.size() + 1, ' ');
    std::string const shown = Printable(line.text, Backslashes::Kept, Spaces::Tabs);
    return isError ? result + "\x1b[31m" + shown + "\x1b[0m" : result + shown;
}

} // namespace kv::tools
