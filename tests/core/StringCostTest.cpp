// How the time of parsing, converting and editing grows with the text.

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include <kvcore/core/String.h>
#include <support/CostGrowth.h>

namespace
{

/// The first measure that is in bounds, of three at most: a busy machine spoils one now and then, and a cost that grows
/// faster is in bounds in none.
template <typename... Arguments>
testing::AssertionResult GrowsNearLinearly(Arguments const &... arguments)
{
    testing::AssertionResult result = kv::test::GrowsNearLinearly(arguments...);
    for (int more = 2; more > 0 && !result; --more)
    {
        result = kv::test::GrowsNearLinearly(arguments...);
    }
    return result;
}

constexpr std::size_t smallest = 1 << 12;
// Beyond this, new pages of the system and other programs' turns cost more than what is measured.
constexpr std::size_t largest = smallest;

/// Keeps results from being optimised away.
volatile std::size_t sink;

/// A job on a text that is made of `piece`, over and over, with `end` behind.
struct TextJob
{
    char const * name;
    WString piece;
    WString end;
    std::function<std::size_t(String const &)> run;
};

String Repeated(WString const & piece, WString const & end, std::size_t size)
{
    String text;
    while (text.size() + piece.size() <= size)
    {
        text += piece;
    }
    text += end;
    return text;
}

void ExpectNearLinear(std::vector<TextJob> const & jobs)
{
    for (TextJob const & job : jobs)
    {
        EXPECT_TRUE(GrowsNearLinearly(
            smallest, largest, [&job](std::size_t size) { return Repeated(job.piece, job.end, size); },
            [&job](String const & text) { sink = job.run(text); }))
            << job.name;
    }
}

template <typename Number>
std::size_t Parse(String const & text)
{
    Number number{};
    return text.ParseNum(number) ? 1u : 0u;
}

} // namespace

TEST(StringCost, OfParsingNumbers)
{
    ExpectNearLinear({
        {"zeros in front", TEXT("0"), TEXT("7"), Parse<int>},
        {"zeros in front of 64 bits", TEXT("0"), TEXT("7"), Parse<__int64>},
        {"blanks in front", TEXT(" "), TEXT("7"), Parse<int>},
        {"blanks behind", TEXT(" "), WString(), Parse<double>},
        {"digits", TEXT("9"), WString(), Parse<double>},
        {"fraction", TEXT("3"), TEXT(".5"), Parse<double>},
        {"zeros behind a point", TEXT("0"), TEXT("1e5"), Parse<double>},
        {"hexadecimal digits", TEXT("f"), WString(),
         [](String const & text) { return Parse<double>(TEXT("0x") + text); }},
        {"channels", TEXT("0"), TEXT("3"),
         [](String const & text)
         {
             int number;
             return text.ParseChannelsNum(number) ? 1u : 0u;
         }},
    });
}

TEST(StringCost, OfEditing)
{
    ExpectNearLinear({
        {"replaced by longer ones", TEXT("ab"), WString(),
         [](String text) { return text.Replace(TEXT("a"), TEXT("xyz")).size(); }},
        {"replaced by nothing", TEXT("ab"), WString(),
         [](String text) { return text.Replace(TEXT("a"), WString()).size(); }},
        {"replaced by as long ones", TEXT("ab"), WString(),
         [](String text) { return text.Replace(TEXT("a"), TEXT("x")).size(); }},
        {"looked for a long text", TEXT("a"), WString(),
         [](String text) { return text.Replace(String::FromChar('a', 50) + TEXT("b"), TEXT("x")).size(); }},
        {"removed", TEXT("ab"), WString(),
         [](String text)
         {
             text.Remove('a');
             return text.size();
         }},
        {"trimmed", TEXT(" "), TEXT("a"), [](String const & text) { return text.Trim(true, true).size(); }},
        {"trimmed of a set", TEXT("xy"), TEXT("a"),
         [](String const & text) { return text.Trim(WString(TEXT("yx")), true, true).size(); }},
        {"in lower case", TEXT("A\u00C9\u0130"), WString(),
         [](String const & text) { return text.LowerCase().size(); }},
        {"in upper case", TEXT("a\u00E9\u00DF"), WString(),
         [](String const & text) { return text.UpperCase().size(); }},
    });
}

TEST(StringCost, OfLinesAndTokens)
{
    ExpectNearLinear({
        {"lines", TEXT("a\r\n"), WString(), [](String const & text) { return text.GetNumLines(true); }},
        {"lines taken", TEXT("a\n"), WString(),
         [](String const & text)
         {
             std::vector<String> lines;
             text.GetLines(lines, 0, -1, false);
             return lines.size();
         }},
        {"lines joined", TEXT("a\r\n"), WString(),
         [](String const & text) { return text.GetLines(0, -1, true, false).size(); }},
        {"tokens", TEXT("a,"), WString(), [](String const & text) { return text.Split(WCHAR(','), true, 0).size(); }},
        {"tokens of many separators", TEXT("a,;"), WString(),
         [](String const & text) { return text.Split(String(TEXT(";:,")), false, 0).size(); }},
        {"tokens joined", TEXT("a,"), WString(),
         [](String const & text) { return String::Join(text.Split(WCHAR(','), true, 0), TEXT("--")).size(); }},
    });
}

TEST(StringCost, OfFormatting)
{
    ExpectNearLinear({
        {"a long text", TEXT("a"), WString(),
         [](String const & text) { return String::FromFormat(TEXT("%s"), text.c_str()).size(); }},
        {"a long template", TEXT("a%%"), WString(),
         [](String const & text) { return String::FromFormat(text).size(); }},
        {"a message", TEXT("a b%n"), WString(),
         [](String const & text) { return String::FromFormatMessage(text).size(); }},
        {"a message's inserts", TEXT("%1"), WString(),
         [](String const & text) { return String::FromFormatMessage(text, TEXT("ab")).size(); }},
    });
}

TEST(StringCost, OfComparing)
{
    ExpectNearLinear({
        {"equal but at the end", TEXT("a"), TEXT("b"),
         [](String const & text)
         { return static_cast<std::size_t>(text.Compare(text.Left(unsigned(text.size() - 1)) + TEXT("c"), -1) + 2); }},
        {"equal but in case", TEXT("a\u00E9"), WString(),
         [](String const & text) { return static_cast<std::size_t>(text.CompareNoCase(text.UpperCase(), -1) + 2); }},
        {"hyphens", TEXT("a-"), TEXT("b"),
         [](String const & text) { return static_cast<std::size_t>(text.Compare(text + TEXT("c"), -1) + 2); }},
        {"marks", TEXT("a\u0301\u0302"), TEXT("b"),
         [](String const & text) { return static_cast<std::size_t>(text.Compare(text.Left(2) + text, -1) + 2); }},
        {"marks alone", TEXT("\u0301\u0327"), TEXT("b"),
         [](String const & text) { return static_cast<std::size_t>(text.Compare(text.Left(1) + text, -1) + 2); }},
    });
}

TEST(StringCost, OfEveryCodePage)
{
    for (unsigned int const page :
         {0u, 437u, 850u, 874u, 932u, 936u, 949u, 950u, 1250u, 1252u, 1258u, 20127u, 28591u, 54936u, 65000u, 65001u})
    {
        for (char const * const piece : {"a", "\x81", "\xE2\x82\xAC", "+AOk-", "\xF0\x9F", "\x81\x30\x81\x30", "+"})
        {
            EXPECT_TRUE(GrowsNearLinearly(
                smallest, largest,
                [piece](std::size_t size)
                {
                    std::string bytes;
                    while (bytes.size() < size)
                    {
                        bytes += piece;
                    }
                    return bytes;
                },
                [page](std::string const & bytes) { sink = String::FromMultibyte(page, bytes).size(); }))
                << page << ' ' << piece;
        }
        ExpectNearLinear({
            {"letters", TEXT("a\u00E9"), WString(),
             [page](String const & text) { return text.Multibyte(page, 0, nullptr).size(); }},
            {"what no page has", TEXT("\uE000"), WString(),
             [page](String const & text) { return text.Multibyte(page, 0, nullptr).size(); }},
            {"marks", TEXT("e\u0301\u0301"), WString(),
             [page](String const & text) { return text.Multibyte(page, 0, nullptr).size(); }},
            {"marks to put together with letters", TEXT("\u0301\u0327"), TEXT("e"),
             [page](String const & text) { return text.Multibyte(page, 0x200, nullptr).size(); }},
        });
    }
}
