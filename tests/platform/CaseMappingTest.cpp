#include <kvcore/platform/win32.h>
#include <support/Digest.h>

namespace
{

constexpr LCID american = 0x0409;
constexpr LCID turkish = 0x041F;
constexpr LCID unknownLocale = 0x9999;
constexpr DWORD before = 77; // no call sets it

WString Map(DWORD flags, WString const & text, LCID locale = american)
{
    WString mapped(text.size(), TEXT('\0'));
    int const length = LCMapStringW(
        locale, flags, text.data(), static_cast<int>(text.size()), mapped.data(), static_cast<int>(mapped.size()));
    mapped.resize(static_cast<std::size_t>(length));
    return mapped;
}

std::uint32_t DigestOfAllUnits(DWORD flags)
{
    kv::test::Digest digest;
    for (unsigned unit = 0; unit < 0x10000; unit++)
        digest.Add16(Map(flags, WString(1, static_cast<WCHAR>(unit)))[0]);
    return digest.Value();
}

std::uint32_t DigestOfAllPairs(DWORD flags)
{
    kv::test::Digest digest;
    for (unsigned c = 0x10000; c < 0x110000; c++)
    {
        WCHAR const pair[] = {static_cast<WCHAR>(0xD7C0 + (c >> 10)), static_cast<WCHAR>(0xDC00 | (c & 0x3FF))};
        WString const mapped = Map(flags, WString(pair, 2));
        if (mapped != WString(pair, 2))
        {
            digest.Add16(c);
            digest.Add16(mapped[0]);
            digest.Add16(mapped[1]);
        }
    }
    return digest.Value();
}

TEST(CaseMapping, EveryUnitMapsAsOnWindows)
{
    EXPECT_EQ(DigestOfAllUnits(LCMAP_LOWERCASE), 0xE9E709EE);
    EXPECT_EQ(DigestOfAllUnits(LCMAP_UPPERCASE), 0x2B089F32);
    EXPECT_EQ(DigestOfAllUnits(LCMAP_LOWERCASE | LCMAP_LINGUISTIC_CASING), 0xF69C95A9);
    EXPECT_EQ(DigestOfAllUnits(LCMAP_UPPERCASE | LCMAP_LINGUISTIC_CASING), 0x4B82BE42);
}

TEST(CaseMapping, EveryPairMapsAsOnWindows)
{
    EXPECT_EQ(DigestOfAllPairs(LCMAP_LOWERCASE), 0x42CD4D40);
    EXPECT_EQ(DigestOfAllPairs(LCMAP_UPPERCASE), 0x095CE830);
}

struct MapCase
{
    DWORD flags;
    LCID locale;
    WString text;
    WString mapped;
};

TEST(CaseMapping, KeepsLengthAndWhatHasNoPartner)
{
    MapCase const cases[] = {
        {LCMAP_UPPERCASE, american, TEXT("stra\u00DFe"), TEXT("STRA\u00DFE")},
        {LCMAP_LOWERCASE, american, TEXT("\u1E9E\u0130\u2126"), TEXT("\u1E9E\u0130\u2126")},
        {LCMAP_UPPERCASE, american, TEXT("\u0131\u017F\u00B5\u00FF"), TEXT("\u0131\u017F\u00B5\u0178")},
        {LCMAP_UPPERCASE, american, TEXT("\u01C5\u01C6\u03C2"), TEXT("\u01C5\u01C4\u03C2")},
        {LCMAP_LOWERCASE, american, TEXT("\U00010400A"), TEXT("\U00010428a")},
        {LCMAP_UPPERCASE, american, TEXT("\U00010428a"), TEXT("\U00010400A")},
        {LCMAP_UPPERCASE, turkish, TEXT("i\u0131"), TEXT("I\u0131")},
        {LCMAP_UPPERCASE | LCMAP_LINGUISTIC_CASING, american, TEXT("i\u0131\u017F"), TEXT("IIS")},
        {LCMAP_UPPERCASE | LCMAP_LINGUISTIC_CASING, turkish, TEXT("i\u0131"), TEXT("\u0130I")},
        {LCMAP_LOWERCASE | LCMAP_LINGUISTIC_CASING, turkish, TEXT("I\u0130"), TEXT("\u0131i")},
    };
    for (MapCase const & row : cases)
        EXPECT_EQ(Map(row.flags, row.text, row.locale), row.mapped);
}

TEST(CaseMapping, HalfOfAPairStays)
{
    WCHAR const halves[] = {TEXT('a'), 0xD801, TEXT('b'), 0xDC28};
    WCHAR const mapped[] = {TEXT('A'), 0xD801, TEXT('B'), 0xDC28};
    EXPECT_EQ(Map(LCMAP_UPPERCASE, WString(halves, 4)), WString(mapped, 4));
}

TEST(CaseMapping, MapsInPlace)
{
    WCHAR text[] = TEXT("aBcD");
    EXPECT_EQ(LCMapStringW(american, LCMAP_LOWERCASE, text, 4, text, 4), 4);
    EXPECT_EQ(WString(text), TEXT("abcd"));
}

TEST(CaseMapping, MeasuredTextsIncludeTheirNul)
{
    WCHAR buffer[8] = {};
    EXPECT_EQ(LCMapStringW(american, LCMAP_UPPERCASE, TEXT("ab"), -1, nullptr, 0), 3);
    EXPECT_EQ(LCMapStringW(american, LCMAP_UPPERCASE, TEXT("ab"), -1, buffer, 8), 3);
    EXPECT_EQ(WString(buffer), TEXT("AB"));
}

struct FailureCase
{
    LCID locale;
    DWORD flags;
    WCHAR const * text;
    int length;
    int capacity;
    DWORD error;
};

TEST(CaseMapping, RefusesWhatItCannotMap)
{
    WCHAR buffer[8];
    FailureCase const cases[] = {
        {american, LCMAP_LOWERCASE | LCMAP_UPPERCASE, TEXT("a"), 1, 8, ERROR_INVALID_FLAGS},
        {american, 0, TEXT("a"), 1, 8, ERROR_INVALID_FLAGS},
        {american, LCMAP_LOWERCASE | NORM_IGNORECASE, TEXT("a"), 1, 8, ERROR_INVALID_FLAGS},
        {american, LCMAP_LOWERCASE | 0x80000000, TEXT("a"), 1, 8, ERROR_INVALID_FLAGS},
        {american, LCMAP_LOWERCASE, nullptr, 1, 8, ERROR_INVALID_PARAMETER},
        {american, LCMAP_LOWERCASE, TEXT("a"), 0, 8, ERROR_INVALID_PARAMETER},
        {american, LCMAP_LOWERCASE, TEXT("a"), 1, -1, ERROR_INVALID_PARAMETER},
        {unknownLocale, LCMAP_LOWERCASE, TEXT("a"), 1, 8, ERROR_INVALID_PARAMETER},
        {american, LCMAP_LOWERCASE, TEXT("abcd"), 4, 3, ERROR_INSUFFICIENT_BUFFER},
    };
    for (FailureCase const & row : cases)
    {
        SetLastError(before);
        EXPECT_EQ(LCMapStringW(row.locale, row.flags, row.text, row.length, buffer, row.capacity), 0);
        EXPECT_EQ(GetLastError(), row.error) << row.flags << ' ' << row.length << ' ' << row.capacity;
    }
}

TEST(CaseMapping, SuccessLeavesTheLastErrorAlone)
{
    WCHAR buffer[2];
    SetLastError(before);
    EXPECT_EQ(LCMapStringW(LOCALE_USER_DEFAULT, LCMAP_LOWERCASE | LOCALE_USE_CP_ACP, TEXT("A"), 1, buffer, 2), 1);
    EXPECT_EQ(GetLastError(), before);
}

} // namespace
