#include <kvcore/examples/storyboard/Display.h>

#include <algorithm>
#include <cstdio>

#include <kvcore/examples/storyboard/Texts.h>
#include <kvcore/tools/support/LocalTime.h>
#include <kvcore/tools/support/Printable.h>
#include <kvcore/tools/support/Text.h>

namespace Storyboard
{

namespace
{

using kv::tools::DecodeFirst;

struct Span
{
    char32_t first;
    char32_t last;
};

template <std::size_t count>
bool Contains(Span const (&spans)[count], char32_t c)
{
    return std::any_of(spans, spans + count, [c](Span span) { return c >= span.first && c <= span.last; });
}

/// The commonest marks that stand on the character before them.
constexpr Span combining[] = {{0x300, 0x36F},   {0x483, 0x489},   {0x591, 0x5BD},  {0x1AB0, 0x1AFF},
                              {0x1DC0, 0x1DFF}, {0x20D0, 0x20FF}, {0xFE20, 0xFE2F}};

/// East Asian scripts and emoji, which take two columns.
constexpr Span wide[] = {{0x1100, 0x115F},  {0x2E80, 0x303E},   {0x3041, 0xA4CF},   {0xA960, 0xA97F},
                         {0xAC00, 0xD7A3},  {0xF900, 0xFAFF},   {0xFE30, 0xFE6F},   {0xFF00, 0xFF60},
                         {0xFFE0, 0xFFE6},  {0x1F300, 0x1F64F}, {0x1F680, 0x1F6FF}, {0x1F900, 0x1F9FF},
                         {0x20000, 0x3FFFD}};

std::size_t CharacterWidth(char32_t c)
{
    return Contains(combining, c) ? 0 : Contains(wide, c) ? 2 : 1;
}

template <typename... Arguments>
std::string Formatted(char const * format, Arguments... arguments)
{
    char text[128];
    std::snprintf(text, sizeof text, format, arguments...);
    return text;
}

} // namespace

std::string Printable(std::string_view text)
{
    return kv::tools::Printable(text, kv::tools::Backslashes::Doubled);
}

std::size_t DisplayWidth(std::string_view printable)
{
    std::size_t width = 0;
    while (!printable.empty())
    {
        auto const decoded = DecodeFirst(printable);
        width += CharacterWidth(decoded.c);
        printable.remove_prefix(decoded.size);
    }
    return width;
}

namespace
{

/// The longest start of a text that fits into `width` columns.
std::string_view Start(std::string_view printable, std::size_t width)
{
    std::size_t size = 0;
    while (size < printable.size())
    {
        auto const decoded = DecodeFirst(printable.substr(size));
        std::size_t const needed = CharacterWidth(decoded.c);
        if (needed > width)
        {
            break;
        }
        width -= needed;
        size += decoded.size;
    }
    return printable.substr(0, size);
}

} // namespace

std::string Shortened(std::string_view printable, std::size_t width)
{
    if (DisplayWidth(printable) <= width)
    {
        return std::string(printable);
    }
    std::size_t const kept = width > 3 ? width - 3 : 0;
    std::string_view end = printable;
    // The end of a name tells more than its middle; it has the extension.
    while (DisplayWidth(end) > kept / 2)
    {
        end.remove_prefix(DecodeFirst(end).size);
    }
    // A mark without the character that it stood on would stand on the dots.
    while (!end.empty() && CharacterWidth(DecodeFirst(end).c) == 0)
    {
        end.remove_prefix(DecodeFirst(end).size);
    }
    return std::string(Start(printable, kept - kept / 2)) + "..." + std::string(end);
}

std::string Grouped(std::int64_t number)
{
    std::string const separator = Text(TEXT_THOUSANDS);
    std::string digits = std::to_string(number);
    for (std::size_t i = digits.size(); i > 3 + (number < 0 ? 1u : 0u);)
    {
        i -= 3;
        digits.insert(i, separator);
    }
    return digits;
}

std::string Plural(std::int64_t count, unsigned noun)
{
    return Grouped(count) + ' ' + Text(count == 1 ? noun : noun + 1);
}

std::string Decimal(std::string text)
{
    std::size_t const point = text.find('.');
    return point == std::string::npos ? text : text.replace(point, 1, Text(TEXT_DECIMAL_POINT));
}

std::string Percent(std::int64_t part, std::int64_t whole)
{
    if (whole == 0)
    {
        return "-";
    }
    return Decimal(Formatted("%.1f %%", 100.0 * static_cast<double>(part) / static_cast<double>(whole)));
}

std::string Duration(Ticks length)
{
    if (length == 0)
    {
        return "-";
    }
    std::int64_t const tenths = length / (ticksPerSecond / 10) + (length % (ticksPerSecond / 10) != 0);
    long long const seconds = tenths / 10;
    int const tenth = static_cast<int>(tenths % 10);
    if (seconds < 60)
    {
        return Decimal(Formatted("%d.%d s", static_cast<int>(seconds), tenth));
    }
    int const second = static_cast<int>(seconds % 60);
    int const minute = static_cast<int>(seconds / 60 % 60);
    return Decimal(
        seconds < 3600 ? Formatted("%d:%02d.%d", minute, second, tenth)
                       : Formatted("%s:%02d:%02d.%d", std::to_string(seconds / 3600).c_str(), minute, second, tenth));
}

std::string Moment(Ticks moment)
{
    return kv::tools::LocalTime(DateTime::FromUTCTime(1601, 1, 1, 0, 0, 0, 0) + TimeSpan(moment));
}

namespace
{

/// A number of thousandths with as many decimals as it has: "44.1", "25", "29.97".
std::string Thousandths(std::int32_t number)
{
    std::string text = Formatted("%d.%03d", static_cast<int>(number / 1000), static_cast<int>(number % 1000));
    text.erase(text.find_last_not_of('0') + 1);
    if (text.back() == '.')
    {
        text.pop_back();
    }
    return Decimal(text);
}

void AppendWord(std::string & text, std::string const & word)
{
    text += (text.empty() ? "" : " ") + word;
}

} // namespace

std::string Describe(Format const & format)
{
    static constexpr unsigned kindNames[Format::kinds] = {0, TEXT_PICTURE, TEXT_FILM, TEXT_SOUND, TEXT_TEXT};
    std::string text = Printable(format.encoding);
    if (text.empty() || format.kind == Format::Kind::Text)
    {
        AppendWord(text, Text(kindNames[static_cast<int>(format.kind)]));
    }
    if (format.width != 0 || format.height != 0)
    {
        AppendWord(text, std::to_string(format.width) + " x " + std::to_string(format.height));
    }
    if (format.rate != 0)
    {
        bool const isFilm = format.kind == Format::Kind::Film;
        AppendWord(text, Text(isFilm ? TEXT_FRAMES_PER_SECOND : TEXT_KILOHERTZ, Thousandths(format.rate)));
    }
    if (format.channels != 0)
    {
        AppendWord(
            text,
            format.channels == 1       ? Text(TEXT_MONO)
                : format.channels == 2 ? Text(TEXT_STEREO)
                                       : Text(TEXT_CHANNELS, std::to_string(format.channels)));
    }
    return text.empty() ? "-" : text;
}

std::string Describe(Transition const & transition)
{
    return transition.kind == Transition::Kind::Cut ? Text(TEXT_CUT) : Text(TEXT_FADE, Duration(transition.length));
}

Table::Table(std::vector<Column> tableColumns, std::size_t givingWay)
    : columns(std::move(tableColumns)), flexible(givingWay)
{
}

void Table::Add(std::vector<std::string> cells)
{
    rows.push_back(std::move(cells));
}

void Table::Print(OutputStream & output, std::size_t width) const
{
    constexpr std::size_t indent = 2;
    constexpr std::size_t gap = 2;
    std::vector<std::size_t> widths;
    std::size_t total = indent - gap;
    for (std::size_t i = 0; i < columns.size(); ++i)
    {
        widths.push_back(columns[i].heading.size());
        for (auto const & row : rows)
        {
            widths[i] = std::max(widths[i], DisplayWidth(row[i]));
        }
        total += gap + widths[i];
    }
    if (width != 0 && total > width)
    {
        std::size_t const excess = total - width;
        constexpr std::size_t least = 12;
        std::size_t & own = widths[flexible];
        own = std::max(std::min(own, least), own > excess ? own - excess : 0);
    }

    auto const printRow = [&](auto const & cell)
    {
        std::string line(indent - gap, ' ');
        for (std::size_t i = 0; i < columns.size(); ++i)
        {
            std::string const text = Shortened(cell(i), widths[i]);
            std::string const padding(widths[i] - DisplayWidth(text), ' ');
            line += std::string(gap, ' ');
            line += columns[i].align == Column::Align::Right ? padding + text : text + padding;
        }
        line.erase(line.find_last_not_of(' ') + 1);
        kv::tools::PrintLine(output, line);
    };
    printRow([&](std::size_t i) { return columns[i].heading; });
    for (auto const & row : rows)
    {
        printRow([&](std::size_t i) { return row[i]; });
    }
}

} // namespace Storyboard
