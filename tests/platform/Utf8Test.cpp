// UTF-8 and UTF-7 through the conversion calls.

#include <kvcore/platform/win32.h>
#include <support/Digest.h>

#include <algorithm>

namespace
{

constexpr DWORD before = 77; // no call sets it
constexpr WCHAR replacement = 0xFFFD;

WString Decode(UINT page, std::string const & bytes, DWORD flags = 0)
{
    WString text(bytes.size() + 1, TEXT('?'));
    int const length = MultiByteToWideChar(
        page, flags, bytes.data(), static_cast<int>(bytes.size()), text.data(), static_cast<int>(text.size()));
    EXPECT_EQ(MultiByteToWideChar(page, flags, bytes.data(), static_cast<int>(bytes.size()), nullptr, 0), length);
    text.resize(static_cast<std::size_t>(length));
    return text;
}

std::string Encode(UINT page, WString const & text, DWORD flags = 0)
{
    std::string bytes(text.size() * 5 + 5, '?');
    int const length = WideCharToMultiByte(
        page, flags, text.data(), static_cast<int>(text.size()), bytes.data(), static_cast<int>(bytes.size()), nullptr,
        nullptr);
    EXPECT_EQ(
        WideCharToMultiByte(page, flags, text.data(), static_cast<int>(text.size()), nullptr, 0, nullptr, nullptr),
        length);
    bytes.resize(static_cast<std::size_t>(length));
    return bytes;
}

/// All characters from U+0001 to the last, as UTF-16.
WString AllCharacters()
{
    WString all;
    for (unsigned c = 1; c < 0x110000; c++)
    {
        if (c >= 0xD800 && c < 0xE000)
            continue;
        if (c >= 0x10000)
            all.push_back(static_cast<WCHAR>(0xD7C0 + (c >> 10)));
        all.push_back(static_cast<WCHAR>(c < 0x10000 ? c : 0xDC00 | (c & 0x3FF)));
    }
    return all;
}

TEST(Utf8, EveryCharacterGoesThereAndBack)
{
    WString const all = AllCharacters();
    std::string const bytes = Encode(CP_UTF8, all, WC_ERR_INVALID_CHARS);
    EXPECT_EQ(bytes.size(), 0x7Fu + 2 * 0x780u + 3 * (0x10000u - 0x800u - 0x800u) + 4 * 0x100000u);
    EXPECT_EQ(bytes.substr(0x7F, 4), "\xC2\x80\xC2\x81");
    EXPECT_EQ(bytes.substr(bytes.size() - 4), "\xF4\x8F\xBF\xBF");
    EXPECT_TRUE(Decode(CP_UTF8, bytes, MB_ERR_INVALID_CHARS) == all);
}

struct MalformedCase
{
    std::string bytes;
    WString text; ///< With R for a replacement.
};

TEST(Utf8, MalformedBytesBecomeReplacements)
{
    MalformedCase const cases[] = {
        {"a\x80"
         "b",
         TEXT("aRb")},
        {"\x80\x80\x80", TEXT("RRR")},
        {"\xC0\x80", TEXT("RR")},
        {"\xC1\xBF", TEXT("RR")},
        {"\xC2"
         "a",
         TEXT("Ra")},
        {"\xC2\xC2\xA9", TEXT("R\u00A9")},
        {"\xE0\x80\x80", TEXT("RR")},
        {"\xE0\x9F\xBF", TEXT("RR")},
        {"\xE0\xA0\x80", TEXT("\u0800")},
        {"\xE1\x80"
         "a",
         TEXT("Ra")},
        {"\xE1\x80\xC2\xA9", TEXT("R\u00A9")},
        {"\xED\x9F\xBF", TEXT("\uD7FF")},
        {"\xED\xA0\x80", TEXT("RR")},
        {"\xED\xBF\xBF", TEXT("RR")},
        {"\xED\xA0\xBD\xED\xB8\x80", TEXT("RRRR")},
        {"\xEF\xBF\xBF", TEXT("\uFFFF")},
        {"\xF0\x80\x80\x80", TEXT("RRR")},
        {"\xF0\x8F\xBF\xBF", TEXT("RRR")},
        {"\xF0\x90\x80\x80", TEXT("\U00010000")},
        {"\xF0\x90\x80"
         "a",
         TEXT("Ra")},
        {"\xF1\x80\xC2\xA9", TEXT("R\u00A9")},
        {"\xF4\x8F\xBF\xBF", TEXT("\U0010FFFF")},
        {"\xF4\x90\x80\x80", TEXT("RRR")},
        {"\xF5\x80\x80\x80", TEXT("RRRR")},
        {"\xF8\x88\x80\x80\x80", TEXT("RRRRR")},
        {"\xFE\xFF", TEXT("RR")},
        {"\xEF\xBB\xBF"
         "a",
         TEXT("\uFEFFa")},
    };
    for (MalformedCase const & row : cases)
    {
        WString text = row.text;
        bool const malformed = text.find(TEXT('R')) != WString::npos;
        std::replace(text.begin(), text.end(), WCHAR(TEXT('R')), replacement);
        EXPECT_EQ(Decode(CP_UTF8, row.bytes), text) << ::testing::PrintToString(row.bytes);
        SetLastError(before);
        EXPECT_EQ(Decode(CP_UTF8, row.bytes, MB_ERR_INVALID_CHARS).empty(), malformed);
        EXPECT_EQ(GetLastError(), malformed ? ERROR_NO_UNICODE_TRANSLATION : before);
    }
}

TEST(Utf8, ASequenceThatTheEndCutsTakesAllThatIsLeft)
{
    for (char const * const bytes :
         {"\xC2", "\xE1", "\xE1\x80",
          "\xE1"
          "a",
          "\xED\xA0", "\xF0", "\xF0\x90", "\xF0\x90\x80",
          "\xF0"
          "a",
          "\xF0\x90"
          "a",
          "\xF4\x90"})
        EXPECT_EQ(Decode(CP_UTF8, std::string("x") + bytes), TEXT("x\uFFFD")) << ::testing::PrintToString(bytes);
}

TEST(Utf8, AnyMixOfBytesDecodesAsOnWindows)
{
    unsigned char const bytes[] = {0x80, 0xBF, 0xC0, 0xC1, 0xC2, 0xDF, 0xE0, 0xE1, 0xED, 0xEF, 0xF0,
                                   0xF1, 0xF4, 0xF5, 0xFF, 'a',  'b',  0x00, 0x9F, 0xA0, 0x8F, 0x90};
    kv::test::Numbers numbers(1);
    kv::test::Digest digest;
    for (int i = 0; i < 60000; i++)
    {
        std::string text(1 + numbers.Next(i % 2 == 0 ? 6 : 60), '\0');
        for (char & c : text)
            c = static_cast<char>(bytes[numbers.Next(sizeof(bytes))]);
        for (WCHAR const unit : Decode(CP_UTF8, text))
            digest.Add16(unit);
    }
    EXPECT_EQ(digest.Value(), 0x8DE186DA);
}

TEST(Utf8, AnyMixOfUnitsEncodesAsOnWindows)
{
    WCHAR const units[] = {0xD800, 0xDBFF, 0xDC00, 0xDFFF, 0x7F, 0x80, 0x7FF, 0x800, 0xFFFF, 0xE000, 0xD7FF, 'a', 0};
    kv::test::Numbers numbers(2);
    kv::test::Digest digest;
    for (int i = 0; i < 60000; i++)
    {
        WString text(1 + numbers.Next(i % 2 == 0 ? 6 : 60), TEXT('\0'));
        for (WCHAR & c : text)
            c = units[numbers.Next(static_cast<std::uint32_t>(std::size(units)))];
        for (char const byte : Encode(CP_UTF8, text))
            digest.Add8(static_cast<unsigned char>(byte));
    }
    EXPECT_EQ(digest.Value(), 0xCF95C902);
}

// The loops take blocks of 16 and 32 at once: whatever they hold has to come out the same at every place in them.
TEST(Utf8, EveryPlaceInABlockIsTheSame)
{
    struct Piece
    {
        std::string bytes;
        WString text;
    };
    Piece const pieces[] = {
        {"\xC3\xA9", TEXT("\u00E9")},
        {"\xC3\xA9\xC3\xA9", TEXT("\u00E9\u00E9")},
        {"\xE4\xB8\x80", TEXT("\u4E00")},
        {"\xF0\x9F\x98\x80", TEXT("\U0001F600")},
        {"\xC3\xA9 \xE4\xB8\x80", TEXT("\u00E9 \u4E00")},
        {"\xFF", TEXT("\uFFFD")},
        {"\xC3", TEXT("\uFFFD")}};
    for (Piece const & piece : pieces)
    {
        for (std::size_t front = 0; front < 70; front++)
        {
            for (std::size_t back = 1; back < 70; back += 3)
            {
                std::string const bytes = std::string(front, 'x') + piece.bytes + std::string(back, 'y');
                WString const text = WString(front, TEXT('x')) + piece.text + WString(back, TEXT('y'));
                ASSERT_EQ(Decode(CP_UTF8, bytes), text) << front << ' ' << back;
                if (piece.text[0] != replacement)
                {
                    ASSERT_EQ(Encode(CP_UTF8, text), bytes) << front << ' ' << back;
                }
            }
        }
    }
}

TEST(Utf8, ATargetOfAnySizeIsEnoughOrReported)
{
    WString text(40, TEXT('x'));
    text.append(TEXT("\u00E9\u4E00\U0001F600")).append(40, TEXT('y'));
    std::string const bytes = Encode(CP_UTF8, text);
    for (std::size_t room = 1; room < bytes.size() + 3; room++)
    {
        std::vector<WCHAR> units(room); // of its own, so that a write behind it is found
        int const decoded = MultiByteToWideChar(
            CP_UTF8, 0, bytes.data(), static_cast<int>(bytes.size()), units.data(), static_cast<int>(room));
        EXPECT_EQ(decoded, room < text.size() ? 0 : static_cast<int>(text.size())) << room;
        std::vector<char> narrow(room);
        SetLastError(before);
        int const encoded = WideCharToMultiByte(
            CP_UTF8, 0, text.data(), static_cast<int>(text.size()), narrow.data(), static_cast<int>(room), nullptr,
            nullptr);
        EXPECT_EQ(encoded, room < bytes.size() ? 0 : static_cast<int>(bytes.size())) << room;
        EXPECT_EQ(GetLastError(), room < bytes.size() ? ERROR_INSUFFICIENT_BUFFER : before);
        EXPECT_TRUE(encoded == 0 || std::string(narrow.data(), bytes.size()) == bytes);
        EXPECT_TRUE(decoded == 0 || WString(units.data(), text.size()) == text);
    }
}

TEST(Utf8, HalfOfAPairIsAReplacementOrRefused)
{
    for (WCHAR const half : {WCHAR(0xD800), WCHAR(0xDBFF), WCHAR(0xDC00), WCHAR(0xDFFF)})
    {
        WString const text = WString(TEXT("a")) + half + TEXT("b");
        EXPECT_EQ(
            Encode(CP_UTF8, text),
            "a\xEF\xBF\xBD"
            "b");
        SetLastError(before);
        EXPECT_EQ(Encode(CP_UTF8, text, WC_ERR_INVALID_CHARS), "");
        EXPECT_EQ(GetLastError(), ERROR_NO_UNICODE_TRANSLATION);
    }
}

TEST(Utf8, TakesADefaultCharacterAndReportsReplacements)
{
    char buffer[16];
    BOOL used = TRUE;
    EXPECT_EQ(WideCharToMultiByte(CP_UTF8, 0, TEXT("\u4E00"), 1, buffer, 16, "#", &used), 3);
    EXPECT_FALSE(used);
    WCHAR const half = 0xD800;
    EXPECT_EQ(WideCharToMultiByte(CP_UTF8, 0, &half, 1, buffer, 16, "#", &used), 3);
    EXPECT_TRUE(used);
    EXPECT_EQ(std::string(buffer, 3), "\xEF\xBF\xBD");
}

struct Utf7Case
{
    std::string bytes;
    WString text;
};

TEST(Utf7, EncodesWhatMailMayNotCarry)
{
    Utf7Case const cases[] = {
        {"a", TEXT("a")},
        {"a+-b", TEXT("a+b")},
        {"+AOk-", TEXT("\u00E9")},
        {"+AOk-a",
         TEXT("\u00E9"
              "a")},
        {"+AOkA6A-", TEXT("\u00E9\u00E8")},
        {"+AOkA6ADn-", TEXT("\u00E9\u00E8\u00E7")},
        {"+AOk-+-", TEXT("\u00E9+")},
        {"+AOkAIQ-", TEXT("\u00E9!")},
        {"+2D3eAA-", TEXT("\U0001F600")},
        {"A-Z a-z 0-9 '(),-./:?\r\n\t", TEXT("A-Z a-z 0-9 '(),-./:?\r\n\t")},
        {"+AH4AXAB+-", TEXT("~\\~")},
    };
    for (Utf7Case const & row : cases)
    {
        EXPECT_EQ(Encode(CP_UTF7, row.text), row.bytes);
        EXPECT_EQ(Decode(CP_UTF7, row.bytes), row.text);
    }
}

TEST(Utf7, DecodesWhateverItMeets)
{
    Utf7Case const cases[] = {
        {"+", WString()},
        {"+-", TEXT("+")},
        {"++-", WString()},
        {"+a", WString()},
        {"+AGE", TEXT("a")},
        {"+AGE.", TEXT("a.")},
        {"+AGEx", TEXT("a")},
        {"+AGEAYg-b", TEXT("abb")},
        {"+2D0-", TEXT("R")},
        {"a\xFF"
         "b",
         TEXT("a\u00FF"
              "b")},
        {"~\\", TEXT("~\\")},
    };
    for (Utf7Case const & row : cases)
    {
        WString text = row.text;
        std::replace(text.begin(), text.end(), WCHAR(TEXT('R')), WCHAR(0xD83D)); // half of a pair passes
        EXPECT_EQ(Decode(CP_UTF7, row.bytes), text) << row.bytes;
    }
}

TEST(Utf7, AnyMixDecodesAndEncodesAsOnWindows)
{
    std::string const bytes = "++--AGEaz09/.,\x80\xFF +AGEAYg-=~";
    kv::test::Numbers numbers(3);
    kv::test::Digest decoded;
    kv::test::Digest encoded;
    for (int i = 0; i < 60000; i++)
    {
        std::string text(1 + numbers.Next(30), '\0');
        for (char & c : text)
            c = bytes[numbers.Next(static_cast<std::uint32_t>(bytes.size()))];
        WString const units = Decode(CP_UTF7, text);
        for (WCHAR const unit : units)
            decoded.Add16(unit);
        if (units.empty())
            continue;
        for (char const byte : Encode(CP_UTF7, units))
            encoded.Add8(static_cast<unsigned char>(byte));
    }
    EXPECT_EQ(decoded.Value(), 0xF57E6B78);
    EXPECT_EQ(encoded.Value(), 0xF956CA52);
}

TEST(Utf7, TakesNeitherFlagsNorADefaultCharacter)
{
    char buffer[8];
    WCHAR text[8];
    BOOL used = FALSE;
    SetLastError(before);
    EXPECT_EQ(MultiByteToWideChar(CP_UTF7, MB_ERR_INVALID_CHARS, "a", 1, text, 8), 0);
    EXPECT_EQ(GetLastError(), ERROR_INVALID_FLAGS);
    SetLastError(before);
    EXPECT_EQ(WideCharToMultiByte(CP_UTF7, WC_ERR_INVALID_CHARS, TEXT("a"), 1, buffer, 8, nullptr, nullptr), 0);
    EXPECT_EQ(GetLastError(), ERROR_INVALID_FLAGS);
    SetLastError(before);
    EXPECT_EQ(WideCharToMultiByte(CP_UTF7, WC_ERR_INVALID_CHARS, TEXT("a"), 1, buffer, 8, "?", nullptr), 0);
    EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
    SetLastError(before);
    EXPECT_EQ(WideCharToMultiByte(CP_UTF7, 0, TEXT("a"), 1, buffer, 8, nullptr, &used), 0);
    EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
}

} // namespace
