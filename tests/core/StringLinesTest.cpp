#include <climits>
#include <list>
#include <random>
#include <vector>

#include <gtest/gtest.h>

#include <kvcore/core/String.h>

namespace
{

using Parts = std::vector<String>;

Parts LinesOf(WCHAR const * text, int first, int last, bool crlf)
{
    Parts lines{TEXT("what was there before")};
    String(text).GetLines(lines, first, last, crlf);
    return lines;
}

Parts SplitOf(WCHAR const * text, WCHAR const * separators, bool keepEmpty, int maxParts)
{
    std::list<String> const parts = String(text).Split(String(separators), keepEmpty, maxParts);
    return Parts(parts.begin(), parts.end());
}

} // namespace

TEST(StringLines, AddLineSeparates)
{
    String text;
    text.AddLine(TEXT("a"), true, true);
    EXPECT_EQ(text, TEXT("a"));
    text.AddLine(TEXT("b"), true, true);
    EXPECT_EQ(text, TEXT("a\r\nb"));
    text.AddLine(TEXT("c"), false, true);
    EXPECT_EQ(text, TEXT("a\r\nb\nc"));
    text.AddLine(TEXT(""), true, true);
    EXPECT_EQ(text, TEXT("a\r\nb\nc\r\n"));
    text.AddLine(TEXT("d"), false, false);
    EXPECT_EQ(text, TEXT("a\r\nb\nc\r\n\nd"));
}

TEST(StringLines, AddLineOfAnEmptyLine)
{
    String text;
    text.AddLine(TEXT(""), true, false);
    EXPECT_EQ(text, TEXT(""));
    text.AddLine(TEXT(""), true, true);
    EXPECT_EQ(text, TEXT("\r\n"));
    text.AddLine(TEXT(""), false, true);
    EXPECT_EQ(text, TEXT("\r\n\n"));
    text.AddLine(TEXT(""), false, false);
    EXPECT_EQ(text, TEXT("\r\n\n"));
}

TEST(StringLines, AddLineTakesItself)
{
    String text = TEXT("ab");
    text.AddLine(text, true, true);
    EXPECT_EQ(text, TEXT("ab\r\nab"));
}

TEST(StringLines, NumberOfLines)
{
    struct
    {
        WCHAR const * text;
        unsigned int crlf;
        unsigned int lf;
    } const rows[] = {
        {TEXT(""), 0, 0},     {TEXT("a"), 1, 1},          {TEXT("a\n"), 1, 2},  {TEXT("a\r\n"), 2, 2},
        {TEXT("a\nb"), 1, 2}, {TEXT("a\r\nb\r\n"), 3, 3}, {TEXT("\n"), 1, 2},   {TEXT("\r\n"), 2, 2},
        {TEXT("\r"), 1, 1},   {TEXT("\r\r\n\n"), 2, 3},   {TEXT("a\rb"), 1, 1},
    };
    for (auto const & row : rows)
    {
        SCOPED_TRACE(String(row.text).Utf8());
        EXPECT_EQ(String(row.text).GetNumLines(true), row.crlf);
        EXPECT_EQ(String(row.text).GetNumLines(false), row.lf);
    }
}

TEST(StringLines, GetLinesTakesARange)
{
    WCHAR const * const text = TEXT("a\r\nb\r\n\r\nd");
    EXPECT_EQ(LinesOf(text, 0, -1, true), (Parts{TEXT("a"), TEXT("b"), TEXT(""), TEXT("d")}));
    EXPECT_EQ(LinesOf(text, -5, -5, true), (Parts{TEXT("a"), TEXT("b"), TEXT(""), TEXT("d")}));
    EXPECT_EQ(LinesOf(text, INT_MIN, INT_MAX, true), (Parts{TEXT("a"), TEXT("b"), TEXT(""), TEXT("d")}));
    EXPECT_EQ(LinesOf(text, 1, 2, true), (Parts{TEXT("b"), TEXT("")}));
    EXPECT_EQ(LinesOf(text, 0, 0, true), (Parts{TEXT("a")}));
    EXPECT_EQ(LinesOf(text, 3, 3, true), (Parts{TEXT("d")}));
    EXPECT_EQ(LinesOf(text, 2, -1, true), (Parts{TEXT(""), TEXT("d")}));
    EXPECT_EQ(LinesOf(text, 4, -1, true), Parts{});
    EXPECT_EQ(LinesOf(text, 2, 1, true), Parts{});
    EXPECT_EQ(LinesOf(text, INT_MAX, INT_MAX, true), Parts{});
}

TEST(StringLines, GetLinesByLineFeedsDropsReturnsExceptTheLast)
{
    EXPECT_EQ(LinesOf(TEXT("a\r\nb\nc\r"), 0, -1, false), (Parts{TEXT("a"), TEXT("b"), TEXT("c\r")}));
    EXPECT_EQ(LinesOf(TEXT("\r\n\r\r\nx"), 0, -1, false), (Parts{TEXT(""), TEXT("\r"), TEXT("x")}));
    EXPECT_EQ(LinesOf(TEXT("\n\r"), 0, -1, false), (Parts{TEXT(""), TEXT("\r")}));
    EXPECT_EQ(LinesOf(TEXT("a\r\nb"), 0, 0, false), (Parts{TEXT("a")}));
    EXPECT_EQ(LinesOf(TEXT("a\nb\r\nc"), 0, -1, true), (Parts{TEXT("a\nb"), TEXT("c")}));
}

TEST(StringLines, TextBehindTheLastLineEndCountsIfNotEmptyOrNotFirst)
{
    EXPECT_EQ(LinesOf(TEXT(""), 0, -1, true), Parts{});
    EXPECT_EQ(LinesOf(TEXT("a\n"), 0, -1, false), (Parts{TEXT("a"), TEXT("")}));
    EXPECT_EQ(LinesOf(TEXT("\n"), 0, -1, false), (Parts{TEXT(""), TEXT("")}));
    EXPECT_EQ(LinesOf(TEXT("a\n"), 1, -1, false), Parts{}); // empty, and the only one asked for
    EXPECT_EQ(LinesOf(TEXT("a\nb\n"), 1, -1, false), (Parts{TEXT("b"), TEXT("")}));
    EXPECT_EQ(LinesOf(TEXT("a\nb\n"), 1, 1, false), (Parts{TEXT("b")}));
}

TEST(StringLines, GetLinesIntoTheVectorThatHoldsTheText)
{
    Parts lines{TEXT("a\nb"), TEXT("other")};
    lines[0].GetLines(lines, 0, -1, false);
    EXPECT_EQ(lines, (Parts{TEXT("a"), TEXT("b")}));
}

TEST(StringLines, JoinedLines)
{
    String const text = TEXT("a\r\nb\r\nc");
    EXPECT_EQ(text.GetLines(0, 1, true, true), TEXT("a\r\nb"));
    EXPECT_EQ(text.GetLines(0, 1, true, false), TEXT("a\nb"));
    EXPECT_EQ(text.GetLines(1, -1, false, false), TEXT("b\nc"));
    EXPECT_EQ(text.GetLines(5, -1, true, true), TEXT(""));
    EXPECT_EQ(text.GetLines(), text);
}

TEST(StringLines, JoinPutsTheSeparatorBetween)
{
    EXPECT_EQ(String::Join(Parts{}, TEXT(", ")), TEXT(""));
    EXPECT_EQ(String::Join(Parts{TEXT("a")}, TEXT(", ")), TEXT("a"));
    EXPECT_EQ(String::Join(Parts{TEXT("a"), TEXT(""), TEXT("b")}, TEXT(", ")), TEXT("a, , b"));
    EXPECT_EQ(String::Join(Parts{TEXT(""), TEXT("")}, TEXT(",")), TEXT(","));
    EXPECT_EQ(String::Join(std::list<String>{}, TEXT(",")), TEXT(""));
    EXPECT_EQ(String::Join(std::list<String>{TEXT("a"), TEXT("b")}, TEXT("")), TEXT("ab"));
}

TEST(StringLines, SplitAtEachElementOfTheSet)
{
    struct
    {
        WCHAR const * text;
        WCHAR const * separators;
        bool keepEmpty;
        int maxParts;
        Parts parts;
    } const rows[] = {
        {TEXT(""), TEXT(","), false, 0, {}},
        {TEXT(""), TEXT(","), true, 0, {}},
        {TEXT("a"), TEXT(","), false, 0, {TEXT("a")}},
        {TEXT("a,b;c"), TEXT(",;"), false, 0, {TEXT("a"), TEXT("b"), TEXT("c")}},
        {TEXT("a,;b"), TEXT(",;"), false, 0, {TEXT("a"), TEXT("b")}},
        {TEXT("a,;b"), TEXT(",;"), true, 0, {TEXT("a"), TEXT(""), TEXT("b")}},
        {TEXT("a,"), TEXT(","), true, 0, {TEXT("a"), TEXT("")}},
        {TEXT("a,"), TEXT(","), false, 0, {TEXT("a")}},
        {TEXT(","), TEXT(","), true, 0, {TEXT(""), TEXT("")}},
        {TEXT(","), TEXT(","), false, 0, {}},
        {TEXT(",a"), TEXT(","), true, 0, {TEXT(""), TEXT("a")}},
        {TEXT("a,b"), TEXT(""), false, 0, {TEXT("a,b")}},
        {TEXT("a,b"), TEXT(""), true, 0, {TEXT("a,b")}},
        {TEXT("a,b,c"), TEXT(","), false, 1, {TEXT("a,b,c")}},
        {TEXT("a,b,c"), TEXT(","), true, 1, {TEXT("a,b,c")}},
        {TEXT("a,b,c"), TEXT(","), false, 2, {TEXT("a"), TEXT("b,c")}},
        {TEXT("a,b,c"), TEXT(","), false, 3, {TEXT("a"), TEXT("b"), TEXT("c")}},
        {TEXT("a,b,c"), TEXT(","), false, 4, {TEXT("a"), TEXT("b"), TEXT("c")}},
        {TEXT("a,b,c"), TEXT(","), false, INT_MAX, {TEXT("a"), TEXT("b"), TEXT("c")}},
        {TEXT("a,b,c"), TEXT(","), false, -1, {TEXT("a"), TEXT("b"), TEXT("c")}},
        {TEXT("a,b,c"), TEXT(","), false, INT_MIN, {TEXT("a"), TEXT("b"), TEXT("c")}},
        // Empty pieces that are left out are passed over before the limit is looked at.
        {TEXT(",,a,b"), TEXT(","), false, 1, {TEXT("a,b")}},
        {TEXT("a,,,b,c"), TEXT(","), false, 2, {TEXT("a"), TEXT("b,c")}},
        {TEXT("a,,"), TEXT(","), false, 2, {TEXT("a")}},
        {TEXT("a,,b,c"), TEXT(","), true, 2, {TEXT("a"), TEXT(",b,c")}},
        {TEXT("a,"), TEXT(","), true, 2, {TEXT("a"), TEXT("")}},
        {TEXT(",,"), TEXT(","), true, 1, {TEXT(",,")}},
    };
    for (auto const & row : rows)
    {
        SCOPED_TRACE(
            String(row.text).Utf8() + " at " + String(row.separators).Utf8() + ", " + std::to_string(row.maxParts));
        EXPECT_EQ(SplitOf(row.text, row.separators, row.keepEmpty, row.maxParts), row.parts);
    }
}

TEST(StringLines, SplitAtOneElement)
{
    EXPECT_EQ(String(TEXT("a,b")).Split(TEXT(',')), (std::list<String>{TEXT("a"), TEXT("b")}));
    EXPECT_EQ(String(TEXT("a,,b")).Split(TEXT(','), true, 2), (std::list<String>{TEXT("a"), TEXT(",b")}));
    EXPECT_EQ(String(TEXT("a\0b"), 3).Split(TEXT('\0')), (std::list<String>{TEXT("a"), TEXT("b")}));
}

TEST(StringLines, JoinUndoesSplit)
{
    std::mt19937 random(1);
    for (int i = 0; i < 2000; ++i)
    {
        String text = TEXT("x"); // the one text that does not come back is the empty one's neighbour, ""
        for (unsigned length = random() % 20; length != 0; --length)
        {
            text += TEXT("ab,,")[random() % 4];
        }
        int const maxParts = int(random() % 6);
        ASSERT_EQ(String::Join(text.Split(TEXT(','), true, maxParts), TEXT(",")), text) << text.Utf8();
        Parts lines;
        String const broken = String(text).Replace(TEXT(","), TEXT("\r\n"));
        broken.GetLines(lines, 0, -1, true);
        ASSERT_EQ(String::Join(lines, TEXT("\r\n")), broken) << text.Utf8();
        ASSERT_EQ(lines.size(), broken.GetNumLines(true));
    }
}
