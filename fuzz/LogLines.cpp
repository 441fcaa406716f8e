// Log files of any bytes, as they arrive in pieces of any size: cut into lines, taken apart, filtered and coloured.

#include <algorithm>
#include <string>
#include <string_view>
#include <vector>

#include <kvcore/core/String.h>
#include <kvcore/tools/kv/LogLines.h>
#include <kvcore/tools/support/Printable.h>

#include "Fuzz.h"

namespace
{

using namespace kv::tools;

/// The lines of a text in the plainest way; the last one may have no end.
std::vector<std::string> PlainLines(std::string const & text)
{
    std::vector<std::string> lines(1);
    for (char const c : text)
    {
        if (c != '\n')
        {
            lines.back() += c;
            continue;
        }
        if (lines.back().ends_with('\r'))
        {
            lines.back().pop_back();
        }
        lines.emplace_back();
    }
    return lines;
}

std::vector<std::string> CutLines(std::string const & text, std::size_t piece)
{
    std::vector<std::string> lines;
    LineCutter cutter;
    for (std::size_t at = 0; at < text.size(); at += piece)
    {
        cutter.Add(
            std::string_view(text).substr(at, piece), [&lines](std::string_view line) { lines.emplace_back(line); });
    }
    lines.push_back(cutter.TakeRest());
    return lines;
}

/// A text without what sets a terminal's colours in `Coloured`.
std::string WithoutColours(std::string text)
{
    for (std::string const colour :
         {"\x1b[0m", "\x1b[2m", "\x1b[31m", "\x1b[32m", "\x1b[33m", "\x1b[34m", "\x1b[35m", "\x1b[36m", "\x1b[96m"})
    {
        for (std::size_t at; (at = text.find(colour)) != text.npos;)
        {
            text.erase(at, colour.size());
        }
    }
    return text;
}

void CheckLine(std::string const & line, LogFilter const & filter)
{
    std::optional<LogLine> const parts = ParseLogLine(line);
    bool const hasFilter = !filter.modules.empty() || filter.since || filter.until;
    bool const passes = filter.Passes(parts);
    if (!parts)
    {
        fuzz::Check(passes == !hasFilter, "what is no line of a log is filtered in another way");
        return;
    }
    fuzz::Check(parts->second >= 0 && parts->second < 24 * 3600, "a time beyond the day");
    fuzz::Check(parts->stamp.size() == 10 && parts->module.size() <= 10, "parts of another width");
    std::string again(parts->stamp);
    again += ' ' + std::string(parts->module) + std::string(10 - parts->module.size(), ' ') + ' ';
    fuzz::Check(again + std::string(parts->text) == line, "the parts do not make the line");
    fuzz::Check(hasFilter || passes, "a line is left out without a filter");
    std::string const shown = WithoutColours(Coloured(*parts));
    fuzz::Check(shown.find('\x1b') == shown.npos, "a line acts upon the terminal");
    fuzz::Check(!IsPrintable(line) || shown == line, "colours change a line");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const * data, std::size_t size)
{
    fuzz::Input input(data, size);
    std::size_t const piece = input.Byte() + std::size_t{1};
    LogFilter filter;
    std::uint8_t const kind = input.Byte();
    if ((kind & 1) != 0)
    {
        filter.modules.push_back("editor");
    }
    if ((kind & 2) != 0)
    {
        filter.since = input.Word();
    }
    if ((kind & 4) != 0)
    {
        filter.until = input.Word();
    }
    std::string const text = input.Rest();
    std::vector<std::string> const lines = CutLines(text, piece);
    fuzz::Check(lines == PlainLines(text), "lines are cut elsewhere");
    for (std::string const & line : lines)
    {
        CheckLine(line, filter);
        CheckLine(String::FromSystemMultibyte(line).Utf8(), filter);
        if (std::optional<int> const time = ParseTimeOfDay(line))
        {
            fuzz::Check(line.size() == 5 || line.size() == 8, "a time of another length");
        }
    }
    return 0;
}
