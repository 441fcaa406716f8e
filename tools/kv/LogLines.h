#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kv::tools
{

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
