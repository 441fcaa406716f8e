#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace kv::tools
{

/// Cuts bytes into lines as they arrive. Each byte is looked at once, however long the lines are.
class LineCutter
{
public:
    /// Calls `use` with each line that is complete now, as a text without its line end (LF or CR LF).
    template <typename Use>
    void Add(std::string_view bytes, Use use)
    {
        std::size_t searched = pending.size();
        pending += bytes;
        std::string_view const all = pending;
        std::size_t begin = 0;
        for (std::size_t end; (end = all.find('\n', searched)) != all.npos; begin = searched = end + 1)
        {
            std::size_t const length = end - begin - (end != begin && all[end - 1] == '\r');
            use(all.substr(begin, length));
        }
        pending.erase(0, begin);
    }
    /// Takes what has no line end yet.
    [[nodiscard]] std::string TakeRest()
    {
        return std::exchange(pending, {});
    }

private:
    std::string pending;
};

/// The parts of a line of the log: "[09:05:07] name       text".
struct LogLine
{
    int second;              ///< of the day
    std::string_view stamp;  ///< "[09:05:07]"
    std::string_view module; ///< without the blanks that fill it up
    std::string_view text;   ///< indented as it is
};

/// The line's parts, or nothing if it does not look like one of a log. The parts refer to `line`.
[[nodiscard]] std::optional<LogLine> ParseLogLine(std::string_view line);

/// Seconds since midnight of "HH:MM:SS" or "HH:MM"; nothing for any other text.
[[nodiscard]] std::optional<int> ParseTimeOfDay(std::string_view text);

/// Which lines are shown.
struct LogFilter
{
    std::vector<std::string> modules; ///< whole names; a log shows ten places of them
    std::optional<int> since;         ///< seconds since midnight
    std::optional<int> until;

    /// Whether a line is shown. What does not look like a line of a log shows only without a filter.
    [[nodiscard]] bool Passes(std::optional<LogLine> const & line) const;
};

/// The line with the colours of a terminal: time faint, each module in a colour of its own, errors red.
[[nodiscard]] std::string Coloured(LogLine const & line);

} // namespace kv::tools
