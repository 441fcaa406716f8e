#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include <kvcore/examples/storyboard/Model.h>
#include <kvcore/streams/Streams.h>

namespace Storyboard
{

/// A text from outside, fit to be shown: valid UTF-8 without anything that a terminal would act upon. Control
/// characters and bytes that are no UTF-8 become `\n`, `\t` or `\x1B`, characters that reorder or hide others
/// `\u{202E}`, and a backslash `\\`, so that the original can be told.
std::string Printable(std::string_view text);

/// How many columns of a terminal a printable text takes.
std::size_t DisplayWidth(std::string_view printable);

/// A printable text in at most `width` columns: its middle gives way to "...". At least three columns.
std::string Shortened(std::string_view printable, std::size_t width);

/// "12,345" in the manner of the language.
std::string Grouped(std::int64_t number);
/// "1 file", "2,000 files"; `noun` is the number of the text for one, before that for several.
std::string Plural(std::int64_t count, unsigned noun);
/// A number with the decimal point of the language in place of the first dot.
std::string Decimal(std::string text);
/// "33.3 %"; of nothing, "-".
std::string Percent(std::int64_t part, std::int64_t whole);
/// "5.0 s", "3:25.4", "1:02:03.0"; unknown, "-".
std::string Duration(Ticks length);
/// "2023-02-04 11:20:00" in local time, as the clocks showed it at that time of the year; unknown, "-".
std::string Moment(Ticks moment);
/// "PNG 640 x 480", "WAV 44.1 kHz stereo"
std::string Describe(Format const & format);
/// "cut", "fade 1.0 s"
std::string Describe(Transition const & transition);

/// Rows under headings, each column as wide as its widest cell.
class Table
{
public:
    struct Column
    {
        enum class Align
        {
            Left,
            Right
        };

        std::string heading;
        Align align = Align::Left;
    };

    /// The column with the index `givingWay` becomes narrower where the table is too wide for the width asked for.
    Table(std::vector<Column> tableColumns, std::size_t givingWay);

    /// One printable text for each column.
    void Add(std::vector<std::string> cells);
    /// Prints lines of at most `width` columns if that is possible; 0 is no limit.
    void Print(OutputStream & output, std::size_t width) const;

private:
    std::vector<Column> const columns;
    std::size_t const flexible;
    std::vector<std::vector<std::string>> rows;
};

} // namespace Storyboard
