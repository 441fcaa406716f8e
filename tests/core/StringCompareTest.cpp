#include <climits>
#include <list>
#include <map>
#include <random>
#include <set>

#include <gtest/gtest.h>

#include <kvcore/core/String.h>
#include <kvcore/platform/win32.h>

namespace
{

struct ComparedRow
{
    WCHAR const * left;
    WCHAR const * right;
    int count;
    int result;
};

} // namespace

TEST(StringCompare, TextsThatOneBeginsWithDifferByTheirLengths)
{
    ComparedRow const rows[] = {
        {TEXT(""), TEXT(""), -1, 0},          {TEXT("abc"), TEXT("abc"), -1, 0},
        {TEXT("abc"), TEXT("abcd"), -1, -1},  {TEXT("abcdefgh"), TEXT("abc"), -1, 5},
        {TEXT(""), TEXT("abcd"), -1, -4},     {TEXT("abc"), TEXT(""), -1, 3},
        {TEXT("abcX"), TEXT("abcY"), 3, 0},   {TEXT("abc"), TEXT("abcdef"), 3, 0},
        {TEXT("abc"), TEXT("abcdef"), 5, -2}, {TEXT("abc"), TEXT("xyz"), 0, 0},
        {TEXT("abc"), TEXT(""), 2, 2},        {TEXT("abcd"), TEXT("ab"), INT_MAX, 2},
    };
    for (auto const & row : rows)
    {
        EXPECT_EQ(String(row.left).Compare(row.right, row.count), row.result);
        EXPECT_EQ(String(row.left).CompareNoCase(row.right, row.count), row.result);
    }
}

TEST(StringCompare, AnyNegativeCountIsTheWholeText)
{
    for (int count : {-1, -2, -1000, INT_MIN})
    {
        EXPECT_EQ(String(TEXT("abc")).Compare(TEXT("abcdefg"), count), -4);
        EXPECT_EQ(String(TEXT("abc")).CompareNoCase(TEXT("abd"), count), -1);
    }
    EXPECT_EQ(String(TEXT("abc")).Compare(TEXT("abcd")), -1);
    EXPECT_EQ(String(TEXT("abc")).CompareNoCase(TEXT("abcd")), -1);
}

TEST(StringCompare, OtherTextsAreOrderedByTheLocale)
{
    EXPECT_EQ(String(TEXT("abd")).Compare(TEXT("abcd")), 1);
    EXPECT_EQ(String(TEXT("abcd")).Compare(TEXT("abd")), -1);
    EXPECT_EQ(String(TEXT("a")).Compare(TEXT("B")), -1); // not by code units
    EXPECT_EQ(String(TEXT("B")).Compare(TEXT("a")), 1);
    EXPECT_EQ(String(TEXT("\u00E9")).Compare(TEXT("f")), -1);
}

TEST(StringCompare, CaseAloneIsALocalesMatter)
{
    EXPECT_NE(String(TEXT("abc")).Compare(TEXT("ABC")), 0);
    EXPECT_EQ(String(TEXT("abc")).CompareNoCase(TEXT("ABC")), 0);
    EXPECT_EQ(String(TEXT("\u00E4\u00D6")).CompareNoCase(TEXT("\u00C4\u00F6")), 0);
    EXPECT_EQ(String(TEXT("abc")).CompareNoCase(TEXT("ABD")), -1);
    EXPECT_EQ(String(TEXT("abc")).CompareNoCase(TEXT("ABCD")), -1);
}

TEST(StringCompare, LimitedComparisonOfDifferentPrefixesJudgesTheWholeTexts)
{
    // The first three differ in case alone, so the locale is asked, and it sees the fourth.
    EXPECT_EQ(String(TEXT("abcx")).CompareNoCase(TEXT("ABCa"), 3), 1);
    EXPECT_EQ(String(TEXT("abca")).CompareNoCase(TEXT("ABCx"), 3), -1);
    EXPECT_EQ(String(TEXT("abx")).Compare(TEXT("aba"), 2), 0); // these prefixes are identical
}

TEST(StringCompare, EmbeddedNulsArePartOfTheText)
{
    String const left(TEXT("a\0b"), 3);
    EXPECT_EQ(left.Compare(String(TEXT("a\0b"), 3)), 0);
    EXPECT_EQ(left.Compare(TEXT("a")), 2);
}

TEST(StringCompare, ComparisonIsAntisymmetric)
{
    std::mt19937 random(1);
    constexpr WCHAR alphabet[] = TEXT("abAB01 -\u00E4\u00C4z");
    auto const text = [&]
    {
        String result;
        for (unsigned length = random() % 5; length != 0; --length)
        {
            result += alphabet[random() % (std::size(alphabet) - 1)];
        }
        return result;
    };
    auto const sign = [](int value) { return (value > 0) - (value < 0); };
    for (int i = 0; i < 3000; ++i)
    {
        String const left = text();
        String const right = text();
        ASSERT_EQ(sign(left.Compare(right)), -sign(right.Compare(left))) << left.Utf8() << " | " << right.Utf8();
        ASSERT_EQ(sign(left.CompareNoCase(right)), -sign(right.CompareNoCase(left)));
    }
}

TEST(StringCompare, LocaleLessOrdersMapsAndSets)
{
    std::set<String, String::LocaleLess> const names{TEXT("b"), TEXT("A"), TEXT("C"), TEXT("a"), TEXT("b")};
    EXPECT_EQ(String::Join(std::list<String>(names.begin(), names.end()), TEXT(" ")), TEXT("a A b C"));
    String::LocaleLess const less;
    EXPECT_TRUE(less(TEXT("ab"), TEXT("abc")));
    EXPECT_FALSE(less(TEXT("ab"), TEXT("ab")));
    EXPECT_TRUE(std::is_empty_v<String::LocaleLess>);
}

TEST(StringCompare, PrefixesAndSuffixesAreOrdinal)
{
    String const text = TEXT("abcabc");
    EXPECT_TRUE(text.BeginsWith(TEXT("abc")));
    EXPECT_TRUE(text.BeginsWith(TEXT("abcabc")));
    EXPECT_TRUE(text.BeginsWith(TEXT("")));
    EXPECT_FALSE(text.BeginsWith(TEXT("ABC")));
    EXPECT_FALSE(text.BeginsWith(TEXT("abcabcd")));
    EXPECT_FALSE(text.BeginsWith(TEXT("bc")));
    EXPECT_TRUE(text.EndsWith(TEXT("cabc")));
    EXPECT_TRUE(text.EndsWith(TEXT("abcabc")));
    EXPECT_TRUE(text.EndsWith(TEXT("")));
    EXPECT_FALSE(text.EndsWith(TEXT("ABC")));
    EXPECT_FALSE(text.EndsWith(TEXT("xabcabc")));
    EXPECT_FALSE(text.EndsWith(TEXT("ab")));
    EXPECT_TRUE(String().BeginsWith(TEXT("")));
    EXPECT_FALSE(String().EndsWith(TEXT("a")));
}

TEST(StringCompare, PrefixLengthIsWhatIsAskedFor)
{
    String const text = TEXT("abcabc");
    EXPECT_TRUE(text.BeginsWith(TEXT("abX"), 2));
    EXPECT_FALSE(text.BeginsWith(TEXT("abX"), 3));
    EXPECT_TRUE(text.BeginsWith(TEXT("X"), 0));
    EXPECT_TRUE(text.BeginsWith(TEXT("abc"), unsigned(-1)));
    EXPECT_FALSE(text.BeginsWith(TEXT("abcabc"), 7)); // one more than the text has, the NUL
    EXPECT_FALSE(text.BeginsWith(TEXT("abc"), unsigned(-2)));
    EXPECT_TRUE(text.EndsWith(TEXT("bcX"), 2));
    EXPECT_FALSE(text.EndsWith(TEXT("bcX"), 3));
    EXPECT_TRUE(text.EndsWith(TEXT("X"), 0));
    EXPECT_TRUE(text.EndsWith(TEXT("abc"), unsigned(-1)));
    EXPECT_FALSE(text.EndsWith(TEXT("abc"), unsigned(-2)));
}

TEST(StringCompare, PrefixesMayHoldNuls)
{
    WString const inside(TEXT("a\0b"), 3);
    EXPECT_TRUE(String(TEXT("a\0bc"), 4).BeginsWith(inside));
    EXPECT_FALSE(String(TEXT("a\0xc"), 4).BeginsWith(inside));
    EXPECT_TRUE(String(TEXT("ca\0b"), 4).EndsWith(inside));
    EXPECT_FALSE(String(TEXT("cx\0b"), 4).EndsWith(inside));
}
