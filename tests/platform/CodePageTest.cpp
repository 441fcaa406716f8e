// The conversion calls and the pages of tables.

#include <kvcore/platform/win32.h>
#include <support/Digest.h>

#include <algorithm>
#include <thread>

namespace
{

constexpr DWORD before = 77; // no call sets it

struct PageCase
{
    UINT page;
    std::uint32_t bytes;          ///< Digest of what every byte decodes to.
    std::uint32_t definedBytes;   ///< The same with MB_ERR_INVALID_CHARS.
    std::uint32_t composite;      ///< With MB_COMPOSITE.
    std::uint32_t glyphs;         ///< With MB_USEGLYPHCHARS.
    std::uint32_t bestFits;       ///< Digest of what every unit encodes to, and whether as the default.
    std::uint32_t exact;          ///< The same with WC_NO_BEST_FIT_CHARS.
    std::uint32_t byteCouples;    ///< Of every two bytes, for the pages that have such characters.
    std::uint32_t definedCouples; ///< The same with MB_ERR_INVALID_CHARS.
};

// Measured with the calls of Windows.
PageCase const pageCases[] = {
    {437, 0x8BA448F3, 0x8BA448F3, 0x735F5822, 0xD48D2FD5, 0xEF6AB9A2, 0x6D28FE41, 0, 0},
    {720, 0xE2975F81, 0xE2975F81, 0xF8160A45, 0x796389BB, 0xCD4951A6, 0x17ED9811, 0, 0},
    {737, 0x3CBED89A, 0x3CBED89A, 0x083530FB, 0x62B29240, 0x28AC4919, 0xE451B5DB, 0, 0},
    {775, 0x7AF8A939, 0x7AF8A939, 0x24AE847C, 0x89F9A24B, 0x76E7E103, 0x4B072205, 0, 0},
    {850, 0x632EF66B, 0x632EF66B, 0x99E54F61, 0x9E64094D, 0x8E41E55E, 0xFDFA1FDB, 0, 0},
    {852, 0x3BD0EBAA, 0x3BD0EBAA, 0xF251179A, 0xDFA4FB50, 0x2B783297, 0xB8B6BDD5, 0, 0},
    {855, 0xECFA17D2, 0xECFA17D2, 0x347182FC, 0x978C8544, 0x4727B181, 0x2D321A41, 0, 0},
    {857, 0x27C97ABE, 0xBACE9EB3, 0xB40ADF55, 0x1BDA1BB4, 0x9837723D, 0x78AC0CAD, 0, 0},
    {860, 0x1FFD25C8, 0x1FFD25C8, 0x88EC172A, 0x08B06F82, 0x100FFF2D, 0x94E55A71, 0, 0},
    {861, 0xAA68030A, 0xAA68030A, 0x6C2EB1E1, 0x3EFB92F0, 0xDF40917B, 0x97718679, 0, 0},
    {862, 0xCAB078DA, 0xCAB078DA, 0x14D0B739, 0x638B1FF0, 0x01E9CAB3, 0x59D53A45, 0, 0},
    {863, 0x20B42ACE, 0x20B42ACE, 0x3305FA85, 0xBD6C9814, 0xB044EEDE, 0xA5E6DA25, 0, 0},
    {864, 0x4A8E652B, 0x234B639B, 0x4A8E652B, 0x267A62FF, 0xA1FD92ED, 0x419FC097, 0, 0},
    {865, 0xF3F8843B, 0xF3F8843B, 0x9A2B643A, 0xF687637D, 0xE1CAC9DA, 0xD6123FE5, 0, 0},
    {866, 0xA5A4B885, 0xA5A4B885, 0x83C16339, 0x1FB6E12B, 0xADD79B7A, 0x57C160BD, 0, 0},
    {869, 0x172428BB, 0x172428BB, 0x426CBF5D, 0x7B09CF91, 0x38F85326, 0xC6EAA069, 0, 0},
    {874, 0x67AD2E1B, 0x7657ED3B, 0x67AD2E1B, 0x30D44FF9, 0x74B08A79, 0x894BA8E7, 0, 0},
    {932, 0x9DE16A5E, 0x1CDAD142, 0x9DE16A5E, 0x9DE16A5E, 0xDC426ADD, 0x891C732C, 0x7AE35AD8, 0x6C66A630},
    {936, 0x6FF916F6, 0x66997240, 0x6FF916F6, 0x6FF916F6, 0x3F0ADAD6, 0x14E17FA8, 0x9DFD12EB, 0x9CF881C9},
    {949, 0xF1A77B00, 0x07A3DAE4, 0xF1A77B00, 0xF1A77B00, 0x57C4723D, 0x07CAEC45, 0xC60C39D2, 0x0E0F51C8},
    {950, 0xFBA6DF27, 0x07A3DAE4, 0xFBA6DF27, 0xFBA6DF27, 0x75D8DCAD, 0x23B04AF9, 0x833DCF12, 0x4AD4491C},
    {1250, 0xE5AAE470, 0xE5AAE470, 0x2DC36524, 0xE5AAE470, 0x1AB7F0A9, 0x627E6965, 0, 0},
    {1251, 0x8800305D, 0x8800305D, 0x5206879F, 0x8800305D, 0x26A023DE, 0x70FE9F57, 0, 0},
    {1252, 0xFE4A3A20, 0xFE4A3A20, 0xDAB2F4A2, 0xFE4A3A20, 0xF75BAFB6, 0x03BB14B9, 0, 0},
    {1253, 0x1F73027F, 0x95D5F7BE, 0xEF91E6C1, 0x1F73027F, 0x85458824, 0x51E7257B, 0, 0},
    {1254, 0x2ACD8744, 0x2ACD8744, 0xDAC5669E, 0x2ACD8744, 0x46CDCC60, 0xFC46B9E7, 0, 0},
    {1255, 0x3D30283C, 0x75C68299, 0x3D30283C, 0x3D30283C, 0x1784C763, 0x193F3041, 0, 0},
    {1256, 0x1DE5CA68, 0x1DE5CA68, 0x0D18FF31, 0x1DE5CA68, 0xBEE1F7AE, 0x4081B507, 0, 0},
    {1257, 0x339926EE, 0x260CB6E7, 0x7EF1972B, 0x339926EE, 0x31C8A633, 0x4D35CADB, 0, 0},
    {1258, 0x6A5F5A54, 0x6A5F5A54, 0xB599B0FF, 0x6A5F5A54, 0x1D1D475B, 0x7013E773, 0, 0},
    {10000, 0xA1488FEA, 0x83FB2B9E, 0xF49DEAF2, 0xA1488FEA, 0xD5E9113B, 0xD5E9113B, 0, 0},
    {20127, 0xE5CDEBC5, 0xC205AE55, 0xE5CDEBC5, 0xE5CDEBC5, 0xD944F302, 0x7C466045, 0, 0},
    {20866, 0xB1397ACA, 0xB1397ACA, 0x449E089E, 0xB1397ACA, 0xD1732FB7, 0x91EE900B, 0, 0},
    {21866, 0x0AE478F0, 0x0AE478F0, 0xCA5828A8, 0x0AE478F0, 0xFC2F3641, 0xF73BBFE9, 0, 0},
    {28591, 0x2FC10FC5, 0x2FC10FC5, 0x478681FB, 0x2FC10FC5, 0x9E02A6F8, 0x006518C5, 0, 0},
    {28592, 0x9332606E, 0x9332606E, 0x5E8E0E14, 0x9332606E, 0x4C4D497B, 0x7C366547, 0, 0},
    {28593, 0x3A50C2C8, 0xEC5E5F70, 0x39442E46, 0x3A50C2C8, 0x9EA4A338, 0x6E2E3E17, 0, 0},
    {28594, 0x96686F7A, 0x96686F7A, 0x6679EEEA, 0x96686F7A, 0x9299FF3D, 0x07D77655, 0, 0},
    {28595, 0x4D8EAF40, 0x4D8EAF40, 0x40BF3354, 0x4D8EAF40, 0x1233B5C9, 0x7C9A32CD, 0, 0},
    {28596, 0x7640CAFB, 0xAB57C06B, 0x758D47A7, 0x7640CAFB, 0x1CC0F305, 0xCD90A03D, 0, 0},
    {28597, 0x9C699E31, 0x5D942E5A, 0x59233043, 0x9C699E31, 0x80A4D4E4, 0xD4AA0AFD, 0, 0},
    {28598, 0x81C63CA8, 0xBB3F6739, 0x81C63CA8, 0x81C63CA8, 0xA50D0EC2, 0xAA7E881D, 0, 0},
    {28599, 0x7B054540, 0x7B054540, 0xDCD325F3, 0x7B054540, 0xC8F02FD8, 0x37B68F77, 0, 0},
    {28603, 0x2CAB30DA, 0x2CAB30DA, 0x511577DB, 0x2CAB30DA, 0x7C24FCAB, 0x0AFA3CFF, 0, 0},
    {28605, 0x491F49D4, 0x491F49D4, 0x67649F3E, 0x491F49D4, 0xE9E72340, 0x7210C271, 0, 0},
    {65001, 0x3B65C945, 0x690EDEC5, 0x3B65C945, 0x3B65C945, 0x99420545, 0x99420545, 0x0C110AC5, 0x5F6AF0C5},
};

std::uint32_t DigestOfBytes(UINT page, DWORD flags)
{
    kv::test::Digest digest;
    for (unsigned i = 0; i < 256; i++)
    {
        char const byte = static_cast<char>(i);
        WCHAR units[4];
        int const length = MultiByteToWideChar(page, flags, &byte, 1, units, 4);
        digest.Add8(static_cast<unsigned>(length));
        for (int k = 0; k < length; k++)
            digest.Add16(units[k]);
    }
    return digest.Value();
}

std::uint32_t DigestOfCouples(UINT page, DWORD flags)
{
    kv::test::Digest digest;
    for (unsigned i = 0; i < 0x10000; i++)
    {
        char const bytes[] = {static_cast<char>(i >> 8), static_cast<char>(i)};
        WCHAR units[4];
        int const length = MultiByteToWideChar(page, flags, bytes, 2, units, 4);
        digest.Add8(static_cast<unsigned>(length));
        for (int k = 0; k < length; k++)
            digest.Add16(units[k]);
    }
    return digest.Value();
}

std::uint32_t DigestOfUnits(UINT page, DWORD flags)
{
    kv::test::Digest digest;
    for (unsigned i = 0; i < 0x10000; i++)
    {
        WCHAR const unit = static_cast<WCHAR>(i);
        char bytes[4];
        BOOL used = FALSE;
        int const length = WideCharToMultiByte(page, flags, &unit, 1, bytes, 4, nullptr, &used);
        digest.Add8(static_cast<unsigned>(length));
        digest.Add8(used ? 1u : 0u);
        for (int k = 0; k < length; k++)
            digest.Add8(static_cast<unsigned char>(bytes[k]));
    }
    return digest.Value();
}

TEST(CodePage, EveryByteDecodesAsOnWindows)
{
    for (PageCase const & row : pageCases)
    {
        EXPECT_EQ(DigestOfBytes(row.page, 0), row.bytes) << row.page;
        EXPECT_EQ(DigestOfBytes(row.page, MB_PRECOMPOSED), row.bytes) << row.page;
        EXPECT_EQ(DigestOfBytes(row.page, MB_ERR_INVALID_CHARS), row.definedBytes) << row.page;
        EXPECT_EQ(DigestOfBytes(row.page, MB_COMPOSITE), row.composite) << row.page;
        EXPECT_EQ(DigestOfBytes(row.page, MB_USEGLYPHCHARS), row.glyphs) << row.page;
    }
}

TEST(CodePage, EveryTwoBytesDecodeAsOnWindows)
{
    for (PageCase const & row : pageCases)
    {
        if (row.byteCouples == 0)
            continue;
        EXPECT_EQ(DigestOfCouples(row.page, 0), row.byteCouples) << row.page;
        EXPECT_EQ(DigestOfCouples(row.page, MB_ERR_INVALID_CHARS), row.definedCouples) << row.page;
    }
}

TEST(CodePage, EveryUnitEncodesAsOnWindows)
{
    for (PageCase const & row : pageCases)
    {
        EXPECT_EQ(DigestOfUnits(row.page, 0), row.bestFits) << row.page;
        EXPECT_EQ(DigestOfUnits(row.page, WC_NO_BEST_FIT_CHARS), row.exact) << row.page;
    }
}

TEST(CodePage, ValidPagesAreThoseThatConvert)
{
    for (PageCase const & row : pageCases)
        EXPECT_TRUE(IsValidCodePage(row.page)) << row.page;
    EXPECT_TRUE(IsValidCodePage(CP_UTF7));
    EXPECT_TRUE(IsValidCodePage(CP_UTF8));
    for (UINT const page : {0u, 1u, 4u, 858u, 1200u, 1201u, 12000u, 28600u, 28604u, 54936u, 65002u})
        EXPECT_FALSE(IsValidCodePage(page)) << page;
}

// The system's pages differ by target: UTF-8 for both here, 1252 and 437 under an American Windows.
TEST(CodePage, TheSystemsPagesAreThoseThatItNames)
{
    WString const text = TEXT("\u00E9\u00C4");
    for (auto const & [alias, named] :
         {std::pair<UINT, UINT>(CP_ACP, GetACP()),
          {CP_THREAD_ACP, GetACP()},
          {CP_OEMCP, GetOEMCP()},
          {CP_MACCP, 10000}})
    {
        char byAlias[8];
        char byName[8];
        int const length = WideCharToMultiByte(alias, 0, text.data(), 2, byAlias, 8, nullptr, nullptr);
        ASSERT_GT(length, 0);
        ASSERT_EQ(WideCharToMultiByte(named, 0, text.data(), 2, byName, 8, nullptr, nullptr), length);
        EXPECT_TRUE(std::equal(byAlias, byAlias + length, byName));
    }
}

struct EncodeCase
{
    UINT page;
    DWORD flags;
    WString text;
    char const * defaultChar;
    std::string bytes;
    bool usedDefault;
};

TEST(CodePage, FlagsChooseWhatStandsForMissingCharacters)
{
    EncodeCase const cases[] = {
        {1252, 0, TEXT("A\u0100\u4E00"), nullptr, "AA?", true},
        {1252, 0, TEXT("A\u0100"), nullptr, "AA", false},
        {1252, WC_NO_BEST_FIT_CHARS, TEXT("A\u0100"), nullptr, "A?", true},
        {1252, WC_NO_BEST_FIT_CHARS, TEXT("A\u0100"), "#", "A#", true},
        {1252, 0, TEXT("?"), "#", "?", false},
        {1252, 0, TEXT("\U0001F600"), "#", "##", true},
        {1252, 0, TEXT("\uFF1F"), "#", "#", true},
        {932, 0, TEXT("A\u4E00"), nullptr, "A\x88\xEA", false},
        {932, 0, TEXT("\u0E01"), "\x81\x40", "\x81\x40", true},
        {932, 0, TEXT("\u0E01"), nullptr, "?", true},
        {949, 0, TEXT("\uAC00"), nullptr, "\xB0\xA1", false},
        {1252, 0, TEXT("e\u0301"), nullptr, "e\xB4", false},
        {1252, WC_COMPOSITECHECK, TEXT("e\u0301"), nullptr, "\xE9", false},
        {1252, WC_COMPOSITECHECK, TEXT("e\u0301\u0301x"), nullptr, "\xE9\xB4x", false},
        {1252, WC_COMPOSITECHECK, TEXT("A\u0304"), nullptr, "A", false},
        {1252, WC_COMPOSITECHECK | WC_NO_BEST_FIT_CHARS, TEXT("A\u0304"), nullptr, "A?", true},
        {1252, WC_COMPOSITECHECK | WC_SEPCHARS, TEXT("\u03B9\u0301"), nullptr, "?\xB4", true},
        {1252, WC_COMPOSITECHECK | WC_DISCARDNS, TEXT("\u03B9\u0301"), nullptr, "?", true},
        {1252, WC_COMPOSITECHECK | WC_DEFAULTCHAR, TEXT("\u03B9\u0301"), nullptr, "?", true},
        {1252, WC_COMPOSITECHECK | WC_DISCARDNS, TEXT("q\u0301"), nullptr, "q\xB4", false},
        {949, WC_COMPOSITECHECK, TEXT("\u1100\u1161"), nullptr, "\xA4\xA1\xA4\xBF", false},
    };
    for (EncodeCase const & row : cases)
    {
        char bytes[16];
        BOOL used = 9;
        SetLastError(before);
        int const length = WideCharToMultiByte(
            row.page, row.flags, row.text.data(), static_cast<int>(row.text.size()), bytes, 16, row.defaultChar, &used);
        EXPECT_EQ(std::string(bytes, static_cast<std::size_t>(length)), row.bytes) << row.page << ' ' << row.flags;
        EXPECT_EQ(used != FALSE, row.usedDefault);
        EXPECT_EQ(GetLastError(), before);
    }
}

struct DecodeCase
{
    UINT page;
    DWORD flags;
    std::string bytes;
    WString text;
};

TEST(CodePage, LeadBytesTakeTheirTrail)
{
    DecodeCase const cases[] = {
        {1252, 0, "\x81\x80", TEXT("\u0081\u20AC")},
        {1253, 0, "\xAA", TEXT("\uF8F9")},
        {932, 0, "\x81\x40", TEXT("\u3000")},
        {932, 0, "a\x81", TEXT("a\u30FB")},
        {932, 0,
         "\x81\x20"
         "b",
         TEXT("\u30FB"
              "b")},
        {932, 0, std::string("\x81\0b", 3), WString(TEXT("\u30FB\0b"), 3)},
        {932, 0, "\xB1\xA0", TEXT("\uFF71\uF8F0")},
        {936, 0, "\x80\x81\x40\x81", TEXT("\u20AC\u4E02?")},
        {949, 0, "\xB0\xA1", TEXT("\uAC00")},
        {950, 0, "\x81\x40", TEXT("\uEEB8")},
        {932, MB_COMPOSITE, "\x83\x4B", TEXT("\u30AB\u3099")},
        {949, MB_COMPOSITE, "\xB0\xA1", TEXT("\uAC00")},
        {1253, MB_COMPOSITE, "\xC0", TEXT("\u03B9\u0308\u0301")},
        {437, MB_USEGLYPHCHARS,
         "\x01\x0D"
         "A\x7F",
         TEXT("\u263A\u266A"
              "A\u2302")},
    };
    for (DecodeCase const & row : cases)
    {
        WCHAR units[16];
        SetLastError(before);
        int const length =
            MultiByteToWideChar(row.page, row.flags, row.bytes.data(), static_cast<int>(row.bytes.size()), units, 16);
        EXPECT_EQ(WString(units, static_cast<std::size_t>(length)), row.text) << row.page << ' ' << row.flags;
        EXPECT_EQ(GetLastError(), before);
        EXPECT_EQ(
            MultiByteToWideChar(row.page, row.flags, row.bytes.data(), static_cast<int>(row.bytes.size()), nullptr, 0),
            length);
    }
}

TEST(CodePage, InvalidBytesAreRefusedOnRequest)
{
    DecodeCase const cases[] = {
        {1253, 0, "a\xAA", {}},
        {932, 0, "a\x81", {}},
        {932, 0, "\x85\x40", {}},
        {932, 0, "\xA0", {}},
        {936, 0, "\xFF", {}},
        {949, 0, "\x81\x40", {}},
        {950,
         0,
         "\x81\x20"
         "a",
         {}},
        {CP_UTF8, 0, "\xFF", {}}};
    for (DecodeCase const & row : cases)
    {
        WCHAR units[16];
        for (int const room : {0, 16})
        {
            SetLastError(before);
            EXPECT_EQ(
                MultiByteToWideChar(
                    row.page, MB_ERR_INVALID_CHARS, row.bytes.data(), static_cast<int>(row.bytes.size()), units, room),
                0)
                << row.page;
            EXPECT_EQ(GetLastError(), ERROR_NO_UNICODE_TRANSLATION);
        }
    }
}

/// The pages that the checks of the arguments are tried with: of one byte, of two, and the computed ones.
constexpr UINT kinds[] = {1252, 932, CP_UTF7, CP_UTF8};

TEST(CodePage, MeasuredTextsIncludeTheirNul)
{
    for (UINT const page : kinds)
    {
        for (int const length : {-1, -2})
        {
            WCHAR units[4] = {};
            char bytes[4] = {};
            EXPECT_EQ(MultiByteToWideChar(page, 0, "AB", length, nullptr, 0), 3);
            EXPECT_EQ(MultiByteToWideChar(page, 0, "AB", length, units, 4), 3);
            EXPECT_EQ(WString(units), TEXT("AB"));
            EXPECT_EQ(WideCharToMultiByte(page, 0, TEXT("AB"), length, nullptr, 0, nullptr, nullptr), 3);
            EXPECT_EQ(WideCharToMultiByte(page, 0, TEXT("AB"), length, bytes, 4, nullptr, nullptr), 3);
            EXPECT_STREQ(bytes, "AB");
        }
    }
}

struct ArgumentCase
{
    bool source;
    int length;
    bool target;
    int capacity;
    DWORD error;
};

TEST(CodePage, UnusableArgumentsAreRefused)
{
    ArgumentCase const cases[] = {
        {false, 1, true, 4, ERROR_INVALID_PARAMETER},   {false, 0, true, 4, ERROR_INVALID_PARAMETER},
        {false, -1, false, 0, ERROR_INVALID_PARAMETER}, {true, 0, true, 4, ERROR_INVALID_PARAMETER},
        {true, 2, false, 4, ERROR_INVALID_PARAMETER},   {true, 2, true, -1, ERROR_INVALID_PARAMETER},
        {true, 4, true, 2, ERROR_INSUFFICIENT_BUFFER},  {true, 4, true, 3, ERROR_INSUFFICIENT_BUFFER},
    };
    for (UINT const page : kinds)
    {
        for (ArgumentCase const & row : cases)
        {
            WCHAR units[4];
            char bytes[4];
            SetLastError(before);
            EXPECT_EQ(
                MultiByteToWideChar(
                    page, 0, row.source ? "ABCD" : nullptr, row.length, row.target ? units : nullptr, row.capacity),
                0);
            EXPECT_EQ(GetLastError(), row.error) << page;
            SetLastError(before);
            EXPECT_EQ(
                WideCharToMultiByte(
                    page, 0, row.source ? TEXT("ABCD") : nullptr, row.length, row.target ? bytes : nullptr,
                    row.capacity, nullptr, nullptr),
                0);
            EXPECT_EQ(GetLastError(), row.error) << page;
        }
    }
}

// Windows documents the refusal; Wine converts over its own source, so that this is tried where the layer is our own.
#ifndef _WIN32
TEST(CodePage, SourceAndTargetMayNotBeTheSame)
{
    for (UINT const page : kinds)
    {
        WCHAR memory[8] = TEXT("abc");
        SetLastError(before);
        EXPECT_EQ(MultiByteToWideChar(page, 0, reinterpret_cast<char const *>(memory), 2, memory, 8), 0);
        EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
        SetLastError(before);
        EXPECT_EQ(WideCharToMultiByte(page, 0, memory, 2, reinterpret_cast<char *>(memory), 8, nullptr, nullptr), 0);
        EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
    }
}
#endif

TEST(CodePage, OnlyTheKnownFlagsAreTaken)
{
    for (UINT const page : {1252u, 932u, CP_UTF8 + 0u})
    {
        for (unsigned bit = 0; bit < 32; bit++)
        {
            DWORD const flag = 1u << bit;
            WCHAR units[4];
            char bytes[4];
            SetLastError(before);
            EXPECT_EQ(MultiByteToWideChar(page, flag, "A", 1, units, 4), (flag & 0xF) != 0 ? 1 : 0) << flag;
            EXPECT_EQ(GetLastError(), (flag & 0xF) != 0 ? before : ERROR_INVALID_FLAGS);
            SetLastError(before);
            bool const known = (flag & 0x6F0) != 0;
            EXPECT_EQ(WideCharToMultiByte(page, flag, TEXT("A"), 1, bytes, 4, nullptr, nullptr), known ? 1 : 0) << flag;
            EXPECT_EQ(GetLastError(), known ? before : ERROR_INVALID_FLAGS);
        }
    }
}

TEST(CodePage, UnknownPagesAreRefusedBeforeTheirFlags)
{
    for (UINT const page : {4u, 858u, 1200u, 28600u, 54936u, 65002u, 4242u})
    {
        WCHAR units[4];
        char bytes[4];
        for (DWORD const flags : {0u, 0x100u})
        {
            SetLastError(before);
            EXPECT_EQ(MultiByteToWideChar(page, flags, "A", 1, units, 4), 0);
            EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER) << page;
            SetLastError(before);
            EXPECT_EQ(WideCharToMultiByte(page, flags, TEXT("A"), 1, bytes, 4, nullptr, nullptr), 0);
            EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER) << page;
        }
    }
}

TEST(CodePage, AnyMixOfBytesDecodesAsOnWindows)
{
    kv::test::Numbers numbers(5);
    kv::test::Digest digest;
    for (UINT const page : {932u, 936u, 949u, 950u, 1253u})
    {
        for (int i = 0; i < 20000; i++)
        {
            std::string bytes(1 + numbers.Next(30), '\0');
            for (char & c : bytes)
                c = static_cast<char>(numbers.Next(8) != 0 ? 128 + numbers.Next(128) : numbers.Next(128));
            DWORD const flags = numbers.Next(4) == 0 ? MB_ERR_INVALID_CHARS : 0;
            WCHAR units[40];
            int const room = static_cast<int>(1 + numbers.Next(39));
            int const length =
                MultiByteToWideChar(page, flags, bytes.data(), static_cast<int>(bytes.size()), units, room);
            digest.Add8(static_cast<unsigned>(length));
            for (int k = 0; k < length; k++)
                digest.Add16(units[k]);
        }
    }
    EXPECT_EQ(digest.Value(), 0x7490D3CF);
}

TEST(CodePage, AnyMixOfUnitsEncodesAsOnWindows)
{
    WCHAR const units[] = {0xD800, 0xDC00, 0x7F,  0x80, 0x7FF, 0xE000, 'a',
                           'e',    0x301,  0x308, 0xE9, 0x100, 0x3B9,  0x4E00};
    DWORD const flagSets[] = {
        0,
        WC_NO_BEST_FIT_CHARS,
        WC_COMPOSITECHECK,
        WC_COMPOSITECHECK | WC_NO_BEST_FIT_CHARS,
        WC_COMPOSITECHECK | WC_DISCARDNS,
        WC_COMPOSITECHECK | WC_DEFAULTCHAR};
    kv::test::Numbers numbers(6);
    kv::test::Digest digest;
    for (UINT const page : {1252u, 1253u, 1258u, 932u, 949u})
    {
        for (int i = 0; i < 20000; i++)
        {
            WString text(1 + numbers.Next(12), TEXT('\0'));
            for (WCHAR & c : text)
                c = units[numbers.Next(static_cast<std::uint32_t>(std::size(units)))];
            char bytes[40];
            BOOL used = FALSE;
            int const length = WideCharToMultiByte(
                page, flagSets[numbers.Next(6)], text.data(), static_cast<int>(text.size()), bytes, 40, nullptr, &used);
            digest.Add8(used ? 1u : 0u);
            for (int k = 0; k < length; k++)
                digest.Add8(static_cast<unsigned char>(bytes[k]));
        }
    }
    EXPECT_EQ(digest.Value(), 0x26462D8C);
}

TEST(CodePage, ThreadsConvertAtOnce)
{
    std::uint32_t const expected = DigestOfBytes(1251, 0) + DigestOfCouples(950, 0);
    std::vector<std::uint32_t> digests(4);
    std::vector<std::thread> threads;
    for (std::uint32_t & digest : digests)
        threads.emplace_back(
            [&digest]
            {
                // Pages that no other test has used come into being here, in all threads at once.
                for (UINT const page : {720u, 737u, 775u, 10000u})
                    DigestOfBytes(page, 0);
                digest = DigestOfBytes(1251, 0) + DigestOfCouples(950, 0);
            });
    for (std::thread & thread : threads)
        thread.join();
    for (std::uint32_t const digest : digests)
        EXPECT_EQ(digest, expected);
}

} // namespace
