#include <climits>
#include <random>
#include <string>

#include <gtest/gtest.h>

#include <kvcore/core/String.h>
#include <kvcore/platform/win32.h>

namespace
{

constexpr unsigned int toTheNul = unsigned(-1);

/// UTF-8 the slow way: one character after the other, from its definition.
std::string ReferenceUtf8(WString const & text)
{
    std::string result;
    for (std::size_t i = 0; i < text.size(); ++i)
    {
        unsigned long character = text[i];
        if (character >= 0xD800 && character < 0xDC00 && i + 1 < text.size() && text[i + 1] >= 0xDC00 &&
            text[i + 1] < 0xE000)
        {
            character = 0x10000 + (character - 0xD800) * 0x400 + (text[++i] - 0xDC00u);
        }
        int const more = character < 0x80 ? 0 : character < 0x800 ? 1 : character < 0x10000 ? 2 : 3;
        constexpr unsigned leads[] = {0, 0xC0, 0xE0, 0xF0};
        result += char(leads[more] | (character >> (6 * more)));
        for (int rest = more - 1; rest >= 0; --rest)
        {
            result += char(0x80 | ((character >> (6 * rest)) & 0x3F));
        }
    }
    return result;
}

/// Text of runs: ASCII, Latin, CJK, pairs and, if wanted, halves of pairs, in lengths around those of vector steps.
String RandomText(std::mt19937 & random, std::size_t length, bool wellFormed)
{
    String text;
    while (text.size() < length)
    {
        unsigned const kind = random() % (wellFormed ? 4 : 5);
        for (unsigned run = random() % 40; run != 0; --run)
        {
            switch (kind)
            {
            case 0:
                text += WCHAR(random() % 0x80);
                break;
            case 1:
                text += WCHAR(0x80 + random() % 0x780);
                break;
            case 2:
                text += WCHAR(0x800 + random() % 0xD000);
                break;
            case 3:
                text += WCHAR(0xD800 + random() % 0x400);
                text += WCHAR(0xDC00 + random() % 0x400);
                break;
            default:
                text += WCHAR(0xD800 + random() % 0x800);
                break;
            }
        }
    }
    return text;
}

} // namespace

TEST(StringEncodings, Utf8OfEachLength)
{
    struct
    {
        WCHAR const * text;
        char const * bytes;
    } const rows[] = {
        {TEXT(""), ""},
        {TEXT("A\u007F"), "A\x7F"},
        {TEXT("\u0080\u07FF"), "\xC2\x80\xDF\xBF"},
        {TEXT("\u0800\u20AC\uFFFF"), "\xE0\xA0\x80\xE2\x82\xAC\xEF\xBF\xBF"},
        {TEXT("\uE000"), "\xEE\x80\x80"},
        {TEXT("\U00010000\U0010FFFF"), "\xF0\x90\x80\x80\xF4\x8F\xBF\xBF"},
        {TEXT("a\U0001F600b"),
         "a\xF0\x9F\x98\x80"
         "b"},
    };
    for (auto const & row : rows)
    {
        EXPECT_EQ(String(row.text).Utf8(), row.bytes);
        EXPECT_EQ(String::FromUtf8(row.bytes), row.text);
    }
    EXPECT_EQ(String(TEXT("a\0b"), 3).Utf8(), std::string("a\0b", 3));
}

TEST(StringEncodings, Utf8EncodesHalvesOfPairsAsCharacters)
{
    struct
    {
        WString text;
        char const * bytes;
    } const rows[] = {
        {{0xD800}, "\xED\xA0\x80"},
        {{0xDBFF}, "\xED\xAF\xBF"},
        {{0xDC00}, "\xED\xB0\x80"},
        {{0xDFFF}, "\xED\xBF\xBF"},
        {{0xD800, 'a'},
         "\xED\xA0\x80"
         "a"},
        {{0xD800, 0xD800, 0xDC00}, "\xED\xA0\x80\xF0\x90\x80\x80"},
        {{0xDC00, 0xD800}, "\xED\xB0\x80\xED\xA0\x80"},
        {{0xD83D, 0xDE00, 0xDE00}, "\xF0\x9F\x98\x80\xED\xB8\x80"},
        {{0xD83D, 0xE000}, "\xED\xA0\xBD\xEE\x80\x80"},
    };
    for (auto const & row : rows)
    {
        EXPECT_EQ(String(row.text).Utf8(), row.bytes);
    }
}

TEST(StringEncodings, Utf8OfRandomUnitsEqualsTheDefinition)
{
    std::mt19937 random(1);
    for (int i = 0; i < 3000; ++i)
    {
        String const text = RandomText(random, random() % 200, false);
        ASSERT_EQ(text.Utf8(), ReferenceUtf8(text));
    }
    for (std::size_t length : {1000u, 1024u, 5000u, 100000u})
    {
        String const text = RandomText(random, length, false);
        ASSERT_TRUE(text.Utf8() == ReferenceUtf8(text)) << length;
    }
}

TEST(StringEncodings, Utf8KeepsPairsTogetherWhereverTheyFall)
{
    for (std::size_t before = 0; before < 4200; ++before)
    {
        String const text = String::FromChar(TEXT('a'), int(before)) + TEXT("\U0001F600b");
        ASSERT_EQ(
            text.Utf8(),
            std::string(before, 'a') +
                "\xF0\x9F\x98\x80"
                "b");
    }
    String halves = String::FromChar(0xD83D, 5000);
    EXPECT_TRUE(halves.Utf8() == ReferenceUtf8(halves));
}

TEST(StringEncodings, WellFormedTextComesBackFromUtf8)
{
    std::mt19937 random(2);
    for (int i = 0; i < 2000; ++i)
    {
        String const text = RandomText(random, 1 + random() % 300, true);
        ASSERT_EQ(String::FromUtf8(text.Utf8()), text);
    }
    String const text = RandomText(random, 200000, true);
    EXPECT_TRUE(String::FromUtf8(text.Utf8()) == text); // too long to be printed
}

TEST(StringEncodings, MalformedUtf8BecomesReplacementCharacters)
{
    EXPECT_EQ(
        String::FromUtf8("a\xFF"
                         "b"),
        TEXT("a\uFFFDb"));
    EXPECT_EQ(String::FromUtf8("\x80"), TEXT("\uFFFD"));
    EXPECT_EQ(String::FromUtf8("a\xC3"), TEXT("a\uFFFD"));
    // Bytes of any kind end in text, whatever it is.
    std::mt19937 random(3);
    for (int i = 0; i < 3000; ++i)
    {
        std::string bytes;
        for (unsigned length = 1 + random() % 60; length != 0; --length)
        {
            bytes += char(random() % 2 != 0 ? 0x80 + random() % 0x80 : random() % 0x100);
        }
        ASSERT_FALSE(String::FromUtf8(bytes).empty());
    }
}

TEST(StringEncodings, LongUtf8OfAnyKindConvertsAsTheSystemConvertsItWhole)
{
    std::mt19937 random(4);
    for (int i = 0; i < 300; ++i)
    {
        std::string bytes;
        std::size_t const length = 2000 + random() % 8000;
        unsigned const mangled = random() % 3; // none, some, or mostly bytes of chance
        while (bytes.size() < length)
        {
            bytes += RandomText(random, 20, true).Utf8();
            for (unsigned count = mangled * (random() % 40); count != 0; --count)
            {
                bytes += char(random() % 4 != 0 ? 0xC0 + random() % 0x40 : random());
            }
        }
        WString expected(bytes.size() + 1, WCHAR());
        int const size =
            MultiByteToWideChar(CP_UTF8, 0, bytes.data(), int(bytes.size()), expected.data(), int(expected.size()));
        ASSERT_GT(size, 0);
        expected.resize(std::size_t(size));
        ASSERT_TRUE(String::FromUtf8(bytes) == expected) << i;
    }
    std::string const leads(100000, char(0xF0)); // no place to cut
    EXPECT_FALSE(String::FromUtf8(leads).empty());
}

TEST(StringEncodings, LengthOfTheBytes)
{
    EXPECT_EQ(String::FromUtf8("abc", 2), TEXT("ab"));
    EXPECT_EQ(String::FromUtf8("abc", 0), TEXT(""));
    EXPECT_EQ(String::FromUtf8("abc", toTheNul), TEXT("abc"));
    EXPECT_EQ(String::FromUtf8("a\0b", 3), String(TEXT("a\0b"), 3));
    EXPECT_EQ(String::FromUtf8(std::string("a\0b", 3)), String(TEXT("a\0b"), 3));
    EXPECT_EQ(String::FromUtf8(std::string()), TEXT(""));
    EXPECT_EQ(String::FromLatin1("abc", 2), TEXT("ab"));
    EXPECT_EQ(String::FromLatin1("abc", 0), TEXT(""));
    EXPECT_EQ(String::FromLatin1("abc"), TEXT("abc"));
    EXPECT_EQ(String::FromSystemMultibyte("abc", 2), TEXT("ab"));
    EXPECT_EQ(String::FromMultibyte(1252, "abc", 2), TEXT("ab"));
    EXPECT_EQ(String::FromMultibyte(1252, "", toTheNul), TEXT(""));
}

TEST(StringEncodings, CodePages)
{
    EXPECT_EQ(String::FromMultibyte(1252, "\x80\xE4"), TEXT("\u20AC\u00E4"));
    EXPECT_EQ(String::FromMultibyte(1252, std::string("\x80\0x", 3)), String(TEXT("\u20AC\0x"), 3));
    EXPECT_EQ(String::FromMultibyte(1251, "\xCF"), TEXT("\u041F"));
    EXPECT_EQ(String::FromMultibyte(932, "\x93\xFA\x96\x7B"), TEXT("\u65E5\u672C"));
    EXPECT_EQ(String(TEXT("\u20AC\u00E4")).Multibyte(1252), "\x80\xE4");
    EXPECT_EQ(String(TEXT("\u65E5\u672C")).Multibyte(932), "\x93\xFA\x96\x7B");
    EXPECT_EQ(String(TEXT("a\0b"), 3).Multibyte(1252), std::string("a\0b", 3));
    EXPECT_EQ(String().Multibyte(1252), "");
}

TEST(StringEncodings, UnknownCodePageIsEmpty)
{
    EXPECT_EQ(String::FromMultibyte(64999, "abc"), TEXT(""));
    EXPECT_EQ(String(TEXT("abc")).Multibyte(64999), "");
}

TEST(StringEncodings, CharactersThatACodePageLacksBecomeTheDefault)
{
    EXPECT_EQ(String(TEXT("a\u65E5b")).Multibyte(1252), "a?b");
    EXPECT_EQ(String(TEXT("a\u65E5b")).Multibyte(1252, 0, "#"), "a#b");
}

TEST(StringEncodings, Utf8PageIgnoresFlagsAndDefaultCharacter)
{
    // The system would refuse both.
    EXPECT_EQ(String(TEXT("\u20AC")).Multibyte(65001, WC_COMPOSITECHECK, "?"), "\xE2\x82\xAC");
    EXPECT_EQ(String({0xD800}).Multibyte(65001), "\xED\xA0\x80");
    EXPECT_EQ(String::FromMultibyte(65001, "\xE2\x82\xAC"), TEXT("\u20AC"));
}

TEST(StringEncodings, ResultsLongerThanThreeBytesAnElementFit)
{
    // UTF-7 writes up to five bytes for one element that stands alone: more than the buffer that is tried first.
    EXPECT_EQ(String(TEXT("\u20AC")).Multibyte(65000), "+IKw-");
    EXPECT_EQ(String::FromMultibyte(65000, "+IKw-"), TEXT("\u20AC"));
    String text;
    for (int i = 0; i < 3000; ++i)
    {
        text += TEXT("\u20AC ");
    }
    EXPECT_TRUE(String::FromMultibyte(65000, text.Multibyte(65000)) == text);
}

TEST(StringEncodings, SystemPageCarriesAscii)
{
    EXPECT_EQ(String(TEXT("Plain text")).SystemMultibyte(), "Plain text");
    EXPECT_EQ(String::FromSystemMultibyte("Plain text"), TEXT("Plain text"));
    EXPECT_EQ(String::FromSystemMultibyte(std::string("Plain text")), TEXT("Plain text"));
    EXPECT_EQ(String::FromSystemMultibyte(""), TEXT(""));
}

TEST(StringEncodings, LongTextsConvertWhole)
{
    std::string const bytes(100000, '\xE4');
    String const text = String::FromMultibyte(1252, bytes);
    EXPECT_TRUE(text == String::FromChar(0xE4, 100000)); // too long to be printed
    EXPECT_TRUE(text.Multibyte(1252) == bytes);
}

TEST(StringEncodings, Latin1IsTheBytesThemselves)
{
    std::string bytes;
    for (int i = 0; i < 256; ++i)
    {
        bytes += char(i);
    }
    String const text = String::FromLatin1(bytes);
    ASSERT_EQ(text.size(), 256u);
    for (unsigned i = 0; i < 256; ++i)
    {
        EXPECT_EQ(text[i], WCHAR(i));
    }
    int replaced = -1;
    EXPECT_EQ(text.Latin1('?', &replaced), bytes);
    EXPECT_EQ(replaced, 0);
}

TEST(StringEncodings, ElementsTooHighAreReplacedAndCounted)
{
    String const text = TEXT("a\u007F\u0080\u00FF\u0100\uFFFF\U0001F600");
    int replaced = 77;
    EXPECT_EQ(text.Latin1('#', &replaced), "a\x7F\x80\xFF####");
    EXPECT_EQ(replaced, 4);
    EXPECT_EQ(text.Ascii('#', &replaced), "a\x7F######");
    EXPECT_EQ(replaced, 6);
    EXPECT_EQ(text.Latin1('#', nullptr), "a\x7F\x80\xFF####");
    EXPECT_EQ(text.Ascii(), "a\x7F??????");
    EXPECT_EQ(String().Latin1('#', &replaced), "");
    EXPECT_EQ(replaced, 0);
}
