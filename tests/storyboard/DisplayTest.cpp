#include "Samples.h"

#include <ctime>

#include <gtest/gtest.h>

#include <kvcore/examples/storyboard/Display.h>
#include <kvcore/examples/storyboard/Texts.h>

namespace Storyboard
{

TEST(Display, PrintableTextHasNothingThatATerminalActsUpon)
{
    struct
    {
        std::string text;
        char const * shown;
    } const cases[] = {
        {"plain.txt", "plain.txt"},
        {"\x1B[2J\x07", "\\x1B[2J\\x07"},
        {"two\nlines\r\t", "two\\nlines\\r\\t"},
        {"back\\slash", "back\\\\slash"},
        {"caf\xC3\xA9", "caf\xC3\xA9"},
        {"caf\xE9", "caf\\xE9"},
        {"\xC2\x9B"
         "31m",
         "\\u{9B}31m"},
        {"\xE2\x80\xAEgnp.exe", "\\u{202E}gnp.exe"},
        {"\xC0\xAF", "\\xC0\\xAF"},
        {"\xED\xA0\x80", "\\xED\\xA0\\x80"},
        {"\xF4\x90\x80\x80", "\\xF4\\x90\\x80\\x80"},
        {"cut \xE2\x82", "cut \\xE2\\x82"},
        {std::string("\0\x7F", 2), "\\x00\\x7F"},
        {"\xF0\x9F\x8E\xAC", "\xF0\x9F\x8E\xAC"},
    };
    for (auto const & one : cases)
    {
        EXPECT_EQ(Printable(one.text), one.shown);
    }
}

TEST(Display, WidthCountsColumns)
{
    EXPECT_EQ(DisplayWidth("abc"), 3u);
    EXPECT_EQ(DisplayWidth("caf\xC3\xA9"), 4u);
    EXPECT_EQ(DisplayWidth("cafe\xCC\x81"), 4u);             // e, and an accent on it
    EXPECT_EQ(DisplayWidth("\xE6\x98\xA0\xE7\x94\xBB"), 4u); // two ideographs
    EXPECT_EQ(DisplayWidth(""), 0u);
}

TEST(Display, LongTextGivesWayInTheMiddle)
{
    EXPECT_EQ(Shortened("a long name.txt", 15), "a long name.txt");
    EXPECT_EQ(Shortened("a long name.txt", 11), "a lo....txt");
    EXPECT_EQ(Shortened("a long name.txt", 3), "...");
    EXPECT_EQ(Shortened("\xE6\x98\xA0\xE7\x94\xBB\xE6\x98\xA0\xE7\x94\xBB", 7), "\xE6\x98\xA0...\xE7\x94\xBB");
}

TEST(Display, NumbersForPeople)
{
    EXPECT_EQ(Grouped(0), "0");
    EXPECT_EQ(Grouped(999), "999");
    EXPECT_EQ(Grouped(1000), "1,000");
    EXPECT_EQ(Grouped(1234567), "1,234,567");
    EXPECT_EQ(Grouped(-1234), "-1,234");
    EXPECT_EQ(Plural(1, TEXT_FILE), "1 file");
    EXPECT_EQ(Plural(0, TEXT_FILE), "0 files");
    EXPECT_EQ(Plural(2000, TEXT_FILE), "2,000 files");
    EXPECT_EQ(Percent(1, 3), "33.3 %");
    EXPECT_EQ(Percent(1, 0), "-");
}

TEST(Display, TimesForPeople)
{
    EXPECT_EQ(Duration(0), "-");
    EXPECT_EQ(Duration(1), "0.1 s"); // what has a length does not show as none
    EXPECT_EQ(Duration(5 * ticksPerSecond), "5.0 s");
    EXPECT_EQ(Duration(60 * ticksPerSecond), "1:00.0");
    EXPECT_EQ(Duration(3725 * ticksPerSecond + 5'000'000), "1:02:05.5");
    EXPECT_NE(Duration(9'223'372'036'854'775'807), "");
}

TEST(Display, MomentsAreLocalAsTheClocksStoodThen)
{
    EXPECT_EQ(Moment(0), "-");
    constexpr Ticks epoch = 116'444'736'000'000'000; // 1970-01-01
    // A winter's day and a summer's: the run-time library has its own way from one to the other.
    for (std::time_t const seconds : {std::time_t(1'675'509'600), std::time_t(1'690'000'000)})
    {
        char expected[32];
        std::strftime(expected, sizeof(expected), "%Y-%m-%d %H:%M:%S", std::localtime(&seconds));
        EXPECT_EQ(Moment(epoch + seconds * ticksPerSecond), expected);
    }
    EXPECT_NE(Moment(9'223'372'036'854'775'807), "") << "whatever the system's calendar makes of it";
}

TEST(Display, TableAlignsItsColumns)
{
    Table table({{"NAME"}, {"SIZE", Table::Column::Align::Right}, {"NOTE"}}, 0);
    table.Add({"a", "1", ""});
    table.Add({"a name that is long", "12,345", "x"});
    MemoryOutputStream unlimited;
    table.Print(unlimited, 0);
    EXPECT_EQ(
        unlimited.GetContent(),
        "  NAME                   SIZE  NOTE\n"
        "  a                         1\n"
        "  a name that is long  12,345  x\n");
    MemoryOutputStream narrow;
    table.Print(narrow, 30);
    EXPECT_EQ(
        narrow.GetContent(),
        "  NAME              SIZE  NOTE\n"
        "  a                    1\n"
        "  a name... long  12,345  x\n");
}

} // namespace Storyboard
