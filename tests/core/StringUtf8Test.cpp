// Utf8 takes its text in blocks; what a block holds and where it lies must not show.

#include <gtest/gtest.h>

#include <kvcore/core/String.h>

namespace
{

/// The bytes of one character by the definition of UTF-8; half a surrogate pair counts as a character.
std::string Encoded(char32_t c)
{
    auto const byte = [](char32_t bits) { return static_cast<char>(bits); };
    auto const trail = [&](char32_t bits) { return byte(0x80 | (bits & 0x3F)); };
    if (c < 0x80)
    {
        return {byte(c)};
    }
    if (c < 0x800)
    {
        return {byte(0xC0 | c >> 6), trail(c)};
    }
    if (c < 0x10000)
    {
        return {byte(0xE0 | c >> 12), trail(c >> 6), trail(c)};
    }
    return {byte(0xF0 | c >> 18), trail(c >> 12), trail(c >> 6), trail(c)};
}

void Append(String & text, char32_t c)
{
    if (c >= 0x10000)
    {
        text += static_cast<WCHAR>(0xD7C0 + (c >> 10));
        c = 0xDC00 + (c & 0x3FF);
    }
    text += static_cast<WCHAR>(c);
}

} // namespace

TEST(StringUtf8, EveryElementIsEncodedAsACharacter)
{
    String text;
    std::string expected;
    for (char32_t c = 0; c < 0x10000; ++c)
    {
        if (c == 0xDC00)
        {
            // Or the last of the first halves would have its second.
            text += TEXT('.');
            expected += '.';
        }
        text += static_cast<WCHAR>(c);
        expected += Encoded(c);
    }
    EXPECT_EQ(expected, text.Utf8());
}

TEST(StringUtf8, ACharacterOfAnyLengthMayLieAnywhere)
{
    char32_t const characters[] = {U'x', 0x7F, 0x80, 0x7FF, 0x800, 0xD7FF, 0xD800, 0xDC00, 0xFFFF, 0x10000, 0x10FFFF};
    char32_t const fillers[] = {U'a', 0xE4, 0x65E5, 0x1F600};
    for (char32_t filler : fillers)
    {
        for (char32_t c : characters)
        {
            for (int before = 0; before < 20; ++before)
            {
                String text;
                std::string expected;
                for (int i = 0; i < 40; ++i)
                {
                    char32_t const next = i == before ? c : filler;
                    Append(text, next);
                    expected += Encoded(next);
                }
                EXPECT_EQ(expected, text.Utf8())
                    << std::hex << std::uint32_t(c) << " behind " << before << " times " << std::uint32_t(filler);
            }
        }
    }
}

TEST(StringUtf8, APairIsWholeWhereverALongTextIsDivided)
{
    for (int before = 1000; before < 1050; ++before)
    {
        String text;
        std::string expected;
        for (int i = 0; i < 2100; ++i)
        {
            char32_t const next = i < before ? U'\u65E5' : U'\U0001F600';
            Append(text, next);
            expected += Encoded(next);
        }
        EXPECT_EQ(expected, text.Utf8()) << before;
    }
}
