#include <climits>
#include <stdexcept>
#include <type_traits>
#include <utility>

#include <gtest/gtest.h>

#include <kvcore/core/String.h>

namespace
{

constexpr unsigned int rest = unsigned(-1);

/// The text that an out-of-range position, or an impossible length, is reported with.
template <typename Failure, typename Action>
std::string FailureOf(Action action)
{
    try
    {
        action();
    }
    catch (Failure const & failure)
    {
        return failure.what();
    }
    return "no failure";
}

} // namespace

TEST(StringValue, IsAStandardStringAndNoMore)
{
    EXPECT_EQ(sizeof(String), sizeof(WString));
    EXPECT_FALSE(std::is_polymorphic_v<String>);
    EXPECT_TRUE((std::is_convertible_v<String &, WString const &>));
    EXPECT_TRUE(std::is_nothrow_move_constructible_v<String>);
    EXPECT_TRUE(std::is_nothrow_move_assignable_v<String>);
    EXPECT_FALSE((std::is_constructible_v<String, std::nullptr_t>));
    EXPECT_FALSE((std::is_assignable_v<String &, std::nullptr_t>));
    String text = TEXT("abc");
    text += TEXT("d");
    EXPECT_EQ(text.size(), 4u);
    EXPECT_EQ(text.find(TEXT('c')), 2u);
    EXPECT_EQ(text.substr(1, 2), TEXT("bc"));
}

TEST(StringValue, Construction)
{
    WString const wide(TEXT("a\0bcd"), 5);
    EXPECT_EQ(String(), TEXT(""));
    EXPECT_EQ(String(wide), wide);
    EXPECT_EQ(String(WString(TEXT("moved"))), TEXT("moved"));
    EXPECT_EQ(String(wide, 2, 2), TEXT("bc"));
    EXPECT_EQ(String(wide, 2, 100), TEXT("bcd"));
    EXPECT_EQ(String(wide, 2, rest), TEXT("bcd"));
    EXPECT_EQ(String(wide, 2), TEXT("bcd"));
    EXPECT_EQ(String(wide, 5, 1), TEXT(""));
    EXPECT_EQ(String(wide.c_str()), TEXT("a"));
    EXPECT_EQ(String(wide.c_str(), 3), WString(TEXT("a\0b"), 3));
    EXPECT_EQ(String(TEXT("abc"), 0u), TEXT(""));
    EXPECT_EQ(String::FromChar(TEXT('x'), 3), TEXT("xxx"));
    EXPECT_EQ(String::FromChar(TEXT('x'), 0), TEXT(""));
}

TEST(StringValue, ImpossiblePositionsAndLengthsRaise)
{
    WString const text = TEXT("abc");
    EXPECT_EQ(FailureOf<std::out_of_range>([&] { String(text, 4, 1); }), "invalid string position");
    EXPECT_EQ(FailureOf<std::out_of_range>([&] { String(text, rest, rest); }), "invalid string position");
    EXPECT_EQ(FailureOf<std::length_error>([&] { String(text.c_str(), rest); }), "string too long");
    EXPECT_EQ(FailureOf<std::length_error>([&] { String::FromChar(TEXT('x'), -1); }), "string too long");
    EXPECT_EQ(FailureOf<std::length_error>([&] { String::FromChar(TEXT('x'), INT_MIN); }), "string too long");
}

TEST(StringValue, AssignmentCopiesDeeply)
{
    String first = TEXT("abc");
    String second = first;
    second[0] = TEXT('X');
    EXPECT_EQ(first, TEXT("abc"));

    EXPECT_EQ(&(first = TEXT("pointer")), &first);
    EXPECT_TRUE((std::is_same_v<decltype(first = TEXT("x")), String const &>));
    EXPECT_EQ(first, TEXT("pointer"));
    first = WString(TEXT("wide"));
    EXPECT_EQ(first, TEXT("wide"));
    WString const wide = TEXT("kept");
    first = wide;
    EXPECT_EQ(first, wide);
    first = std::move(second);
    EXPECT_EQ(first, TEXT("Xbc"));
    first = {};
    EXPECT_EQ(first, TEXT(""));
    first = {TEXT('a'), TEXT('b')};
    EXPECT_EQ(first, TEXT("ab"));
    first = first.c_str() + 1;
    EXPECT_EQ(first, TEXT("b"));
}

TEST(StringEdit, LeftIsTheFirstElements)
{
    String const text(TEXT("ab\0cd"), 5);
    EXPECT_EQ(text.Left(0), TEXT(""));
    EXPECT_EQ(text.Left(4), String(TEXT("ab\0c"), 4));
    EXPECT_EQ(text.Left(5), text);
    EXPECT_EQ(text.Left(6), text);
    EXPECT_EQ(text.Left(rest), text);
}

TEST(StringEdit, RightIsTheLastElementsUpToANul)
{
    String const plain = TEXT("abcd");
    EXPECT_EQ(plain.Right(0), TEXT(""));
    EXPECT_EQ(plain.Right(2), TEXT("cd"));
    EXPECT_EQ(plain.Right(4), plain);
    EXPECT_EQ(plain.Right(5), plain);
    EXPECT_EQ(plain.Right(rest), plain);

    String const padded(TEXT("abc\0d"), 5);
    EXPECT_EQ(padded.Right(2), TEXT(""));
    EXPECT_EQ(padded.Right(3), TEXT("c"));
    EXPECT_EQ(padded.Right(1), TEXT("d"));
    EXPECT_EQ(padded.Right(5), padded); // a full copy keeps it
    EXPECT_EQ(padded.Left(4), String(TEXT("abc\0"), 4));
    EXPECT_EQ(padded.Mid(2, 3), String(TEXT("c\0d"), 3));
}

TEST(StringEdit, MidIsSubstr)
{
    String const text = TEXT("abcd");
    EXPECT_EQ(text.Mid(1, 2), TEXT("bc"));
    EXPECT_EQ(text.Mid(1, 0), TEXT(""));
    EXPECT_EQ(text.Mid(1, 100), TEXT("bcd"));
    EXPECT_EQ(text.Mid(1), TEXT("bcd"));
    EXPECT_EQ(text.Mid(1, rest), TEXT("bcd"));
    EXPECT_EQ(text.Mid(4), TEXT(""));
    EXPECT_EQ(FailureOf<std::out_of_range>([&] { text.Mid(5); }), "invalid string position");
    EXPECT_EQ(FailureOf<std::out_of_range>([&] { text.Mid(rest, rest); }), "invalid string position");
}

TEST(StringEdit, TrimRemovesWhiteSpaceFromTheChosenEnds)
{
    String const text = TEXT(" \t\r\n\v\f\u00A0\u3000a b\u2003 ");
    EXPECT_EQ(text.Trim(), TEXT("a b"));
    EXPECT_EQ(text.Trim(true, true), TEXT("a b"));
    EXPECT_EQ(text.Trim(true, false), TEXT("a b\u2003 "));
    EXPECT_EQ(text.Trim(false, true), TEXT(" \t\r\n\v\f\u00A0\u3000a b"));
    EXPECT_EQ(text.Trim(false, false), text);
}

TEST(StringEdit, TrimOfNothingButWhiteSpaceIsEmpty)
{
    String const white = TEXT(" \t ");
    EXPECT_EQ(white.Trim(true, true), TEXT(""));
    EXPECT_EQ(white.Trim(true, false), TEXT(""));
    EXPECT_EQ(white.Trim(false, true), TEXT(""));
    EXPECT_EQ(String().Trim(), TEXT(""));
}

TEST(StringEdit, TrimRemovesASet)
{
    String const text = TEXT("xyaxbyx");
    WString const set = TEXT("xy");
    EXPECT_EQ(text.Trim(set, true, true), TEXT("axb"));
    EXPECT_EQ(text.Trim(set, true, false), TEXT("axbyx"));
    EXPECT_EQ(text.Trim(set, false, true), TEXT("xyaxb"));
    EXPECT_EQ(text.Trim(set, false, false), text);
    EXPECT_EQ(text.Trim(WString(), true, true), text);
    EXPECT_EQ(text.Trim(String(TEXT("x"))), TEXT("yaxby"));
    EXPECT_EQ(String(TEXT("xyx")).Trim(set, true, true), TEXT(""));
    EXPECT_EQ(String(TEXT("xyx")).Trim(set, true, false), TEXT(""));
    EXPECT_EQ(String(TEXT("xyx")).Trim(set, false, true), TEXT(""));
    EXPECT_EQ(String().Trim(set, true, true), TEXT(""));
    EXPECT_EQ(String().Trim(set, false, true), TEXT(""));
}

TEST(StringEdit, TrimOfALiteralIsASetAndNoBool)
{
    EXPECT_EQ(String(TEXT(" xax ")).Trim(TEXT("x ")), TEXT("a"));
    EXPECT_EQ(String(TEXT("xax")).Trim(TEXT("x"), false), TEXT("xa"));
}

TEST(StringEdit, TrimRemovesOneCharacter)
{
    String const text = TEXT("00.1000");
    EXPECT_EQ(text.Trim(TEXT('0'), true, true), TEXT(".1"));
    EXPECT_EQ(text.Trim(TEXT('0'), false, true), TEXT("00.1"));
    EXPECT_EQ(text.Trim(TEXT('0')), TEXT(".1"));
    EXPECT_EQ(String(TEXT("\0a\0"), 3).Trim(TEXT('\0')), TEXT("a"));
}

TEST(StringEdit, CaseFollowsTheLocale)
{
    EXPECT_EQ(String(TEXT("aBc \u00E4\u00D6 1")).LowerCase(), TEXT("abc \u00E4\u00F6 1"));
    EXPECT_EQ(String(TEXT("aBc \u00E4\u00D6 1")).UpperCase(), TEXT("ABC \u00C4\u00D6 1"));
    EXPECT_EQ(String().LowerCase(), TEXT(""));
    EXPECT_EQ(String().UpperCase(), TEXT(""));
    EXPECT_EQ(String(TEXT("a\0B"), 3).UpperCase(), String(TEXT("A\0B"), 3));
    EXPECT_EQ(String::FromChar(TEXT('q'), 5000).UpperCase(), String::FromChar(TEXT('Q'), 5000));
}

TEST(StringEdit, ReplaceGoesOnBehindWhatItInserted)
{
    struct
    {
        WCHAR const * text;
        WCHAR const * what;
        WCHAR const * with;
        unsigned int most;
        WCHAR const * result;
    } const rows[] = {
        {TEXT("aXbXc"), TEXT("X"), TEXT("--"), rest, TEXT("a--b--c")},
        {TEXT("aXbXc"), TEXT("X"), TEXT(""), rest, TEXT("abc")},
        {TEXT("aXbXc"), TEXT("X"), TEXT("Y"), 1, TEXT("aYbXc")},
        {TEXT("aXbXc"), TEXT("X"), TEXT("Y"), 0, TEXT("aXbXc")},
        {TEXT("aXbXc"), TEXT("Z"), TEXT("Y"), rest, TEXT("aXbXc")},
        {TEXT("aaa"), TEXT("a"), TEXT("aa"), rest, TEXT("aaaaaa")},
        {TEXT("aaaa"), TEXT("aa"), TEXT("a"), rest, TEXT("aa")},
        {TEXT("aaa"), TEXT("aa"), TEXT("b"), rest, TEXT("ba")},
        {TEXT("abab"), TEXT("ab"), TEXT("ba"), rest, TEXT("baba")},
        {TEXT("abc"), TEXT("abc"), TEXT(""), rest, TEXT("")},
        {TEXT("abc"), TEXT("abcd"), TEXT("x"), rest, TEXT("abc")},
        {TEXT(""), TEXT("a"), TEXT("b"), rest, TEXT("")},
        {TEXT(""), TEXT(""), TEXT("b"), rest, TEXT("")}, // -1 became the size, 0
        {TEXT(""), TEXT(""), TEXT("b"), 2, TEXT("bb")},
        {TEXT("xy"), TEXT(""), TEXT("b"), rest, TEXT("bbxy")},
        {TEXT("xy"), TEXT(""), TEXT("b"), 3, TEXT("bbbxy")},
        {TEXT("xy"), TEXT(""), TEXT(""), 4000000000u, TEXT("xy")},
    };
    for (auto const & row : rows)
    {
        SCOPED_TRACE(String(row.text).Utf8() + " | " + String(row.what).Utf8() + " | " + String(row.with).Utf8());
        String text = row.text;
        EXPECT_EQ(&text.Replace(row.what, String(row.with), row.most), &text);
        EXPECT_EQ(text, row.result);
    }
}

TEST(StringEdit, ReplaceTakesPartsOfItself)
{
    String text = TEXT("ab");
    text.Replace(text, text + TEXT("ab"));
    EXPECT_EQ(text, TEXT("abab"));
}

TEST(StringEdit, ReplaceOfManyTakesLinearTime)
{
    String text = String::FromChar(TEXT('a'), 1000000);
    text.Replace(TEXT("a"), TEXT("bcd"));
    EXPECT_EQ(text.size(), 3000000u);
    EXPECT_EQ(text.Right(4), TEXT("dbcd"));
}

TEST(StringEdit, RemoveTakesAllAndReturnsNoCount)
{
    String text(TEXT("-a--b\0-"), 7);
    EXPECT_EQ(text.Remove(TEXT('-')), 0xFFFFFFFFu);
    EXPECT_EQ(text, String(TEXT("ab\0"), 3));
    EXPECT_EQ(text.Remove(TEXT('-')), 0xFFFFFFFFu);
    EXPECT_EQ(text.Remove(TEXT('\0')), 0xFFFFFFFFu);
    EXPECT_EQ(text, TEXT("ab"));
    EXPECT_EQ(String().Remove(TEXT('-')), 0xFFFFFFFFu);
}

TEST(StringEdit, InsertPutsCopiesOfACharacter)
{
    String text = TEXT("ac");
    text.Insert(1, TEXT('b'), 1);
    EXPECT_EQ(text, TEXT("abc"));
    text.Insert(3, TEXT('d'));
    text.Insert(0, TEXT('_'), 0);
    EXPECT_EQ(text, TEXT("abcd"));
    text.Insert(0, TEXT('_'), 3);
    EXPECT_EQ(text, TEXT("___abcd"));
}

TEST(StringEdit, InsertRefusesImpossiblePositionsAndCounts)
{
    String text = TEXT("abc");
    for (int position : {4, INT_MAX, -1, INT_MIN})
    {
        EXPECT_EQ(
            FailureOf<std::out_of_range>([&] { text.Insert(position, TEXT('x'), 1); }), "invalid string position");
        EXPECT_EQ(
            FailureOf<std::out_of_range>([&] { text.Insert(position, TEXT('x'), 0); }), "invalid string position");
    }
    EXPECT_EQ(FailureOf<std::length_error>([&] { text.Insert(0, TEXT('x'), -1); }), "string too long");
    EXPECT_EQ(text, TEXT("abc"));
}
