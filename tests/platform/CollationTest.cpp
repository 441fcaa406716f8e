#include <kvcore/platform/win32.h>

#include <thread>

namespace
{

constexpr LCID american = 0x0409;
constexpr LCID german = 0x0407;
constexpr LCID swedish = 0x041D;
constexpr LCID unknownLocale = 0x9999;
constexpr DWORD before = 77; // no call sets it

/// '<', '=' or '>', or '!' for a failure.
char Compare(DWORD flags, WString const & left, WString const & right, LCID locale = american)
{
    int const order = CompareStringW(
        locale, flags, left.data(), static_cast<int>(left.size()), right.data(), static_cast<int>(right.size()));
    return "!<=>"[order];
}

struct CompareCase
{
    DWORD flags;
    WString left;
    char order;
    WString right;
};

void CheckOrders(std::vector<CompareCase> const & cases)
{
    for (CompareCase const & row : cases)
    {
        EXPECT_EQ(Compare(row.flags, row.left, row.right), row.order)
            << row.flags << ' ' << ::testing::PrintToString(row.left) << ' ' << ::testing::PrintToString(row.right);
        char const mirrored = row.order == '<' ? '>' : row.order == '>' ? '<' : row.order;
        EXPECT_EQ(Compare(row.flags, row.right, row.left), mirrored)
            << row.flags << ' ' << ::testing::PrintToString(row.right) << ' ' << ::testing::PrintToString(row.left);
    }
}

TEST(Collation, LettersThenMarksThenCase)
{
    CheckOrders({
        {0, WString(), '=', WString()},
        {0, WString(), '<', TEXT("a")},
        {0, TEXT("a"), '<', TEXT("A")},
        {0, TEXT("A"), '<', TEXT("b")},
        {0, TEXT("aB"), '<', TEXT("Ab")},
        {0, TEXT("Resume"), '<', TEXT("r\u00E9sum\u00E9")},
        {0, TEXT("resum\u00E9"), '<', TEXT("r\u00E9sume")},
        {0, TEXT("cote"), '<', TEXT("cot\u00E9")},
        {0, TEXT("cot\u00E9"), '<', TEXT("c\u00F4te")},
        {0, TEXT("\u00E9"), '<', TEXT("\u00E8")},
        {0, TEXT("\u00EA"), '<', TEXT("\u00EB")},
        {0, TEXT("\u00F5"), '>', TEXT("\u014D")},
        {0, TEXT("\u00F8l"), '>', TEXT("\u00F6l")},
        {0, TEXT("\u00F8l"), '<', TEXT("p")},
        {0, TEXT("e\u0301"), '=', TEXT("\u00E9")},
        {0, TEXT("\u0439"), '>', TEXT("\u0438")},
        {0, TEXT("\u0439\u0430"), '<', TEXT("\u0438\u0432")},
    });
}

TEST(Collation, LigaturesAreTheirLetters)
{
    CheckOrders({
        {0, TEXT("\u00E6on"), '=', TEXT("aeon")},
        {0, TEXT("stra\u00DFe"), '=', TEXT("strasse")},
        {0, TEXT("\u0153uvre"), '=', TEXT("oeuvre")},
        {0, TEXT("\u00FEorn"), '=', TEXT("thorn")},
        {0, TEXT("\u1E9E"), '=', TEXT("SS")},
        {0, TEXT("\u01F3"), '=', TEXT("dz")},
        {0, TEXT("\u01C7"), '=', TEXT("LJ")},
        {0, TEXT("\uFB01"), '=', TEXT("fi")},
        {0, TEXT("\uFB03"), '=', TEXT("ffi")},
        {NORM_IGNORECASE, TEXT("\uFB02"), '=', TEXT("FL")},
    });
}

TEST(Collation, ManyMarksInARowAreTheSameInEveryOrderOfTheirKinds)
{
    WString mixed(TEXT("a"));
    WString sorted(TEXT("a"));
    for (int i = 0; i < 100; ++i)
    {
        mixed += TEXT("\u0301\u0327");
        sorted += TEXT('\u0327');
    }
    sorted.append(100, TEXT('\u0301'));
    EXPECT_EQ(Compare(0, mixed, sorted), '=');
    EXPECT_EQ(Compare(0, mixed, sorted + TEXT("\u0301")), '<');
    EXPECT_EQ(Compare(NORM_IGNORECASE, WString(mixed).replace(0, 1, TEXT("A")), sorted), '=');
    EXPECT_EQ(Compare(0, mixed, TEXT("b")), '<');
    EXPECT_EQ(Compare(NORM_IGNORENONSPACE, mixed, TEXT("a")), '=');
}

TEST(Collation, TheTwoOtherIsKeepTheirDotAndItsLackWithoutCase)
{
    for (DWORD const flags : {DWORD{NORM_IGNORECASE}, DWORD{LINGUISTIC_IGNORECASE}})
    {
        CheckOrders({
            {flags, TEXT("\u0130"), '>', TEXT("i")},
            {flags, TEXT("\u0130"), '>', TEXT("I")},
            {flags, TEXT("\u0130"), '>', TEXT("\u0131")},
            {flags, TEXT("\u0130"), '=', TEXT("i\u0307")},
            {flags, TEXT("\u0130"), '=', TEXT("I\u0307")},
            {flags, TEXT("\u0131"), '>', TEXT("i")},
            {flags, TEXT("\u0131"), '>', TEXT("I")},
            {flags, TEXT("\u0131"), '<', TEXT("\u0130")},
            {flags, TEXT("\u0130STANBUL"), '>', TEXT("istanbul")},
            {flags, TEXT("\u0131stanbul"), '>', TEXT("ISTANBUL")},
            {flags, TEXT("\u0131stanbul"), '<', TEXT("\u0130STANBUL")},
        });
    }
    // Longer than what is folded in place.
    WString const many(200, TEXT('\u0130'));
    WString small;
    for (std::size_t i = 0; i < many.size(); ++i)
    {
        small += TEXT("i\u0307");
    }
    EXPECT_EQ(Compare(NORM_IGNORECASE, many, small), '=');
}

TEST(Collation, TheFinalSigmaIsASigmaWithoutCase)
{
    CheckOrders({
        {0, TEXT("\u03C3"), '<', TEXT("\u03C2")},
        {0, TEXT("\u03C2"), '<', TEXT("\u03A3")},
        {NORM_IGNORECASE, TEXT("\u03C2"), '=', TEXT("\u03C3")},
        {NORM_IGNORECASE, TEXT("\u03C2"), '=', TEXT("\u03A3")},
    });
}

TEST(Collation, SymbolsThenDigitsThenLettersByScript)
{
    WCHAR const * const ascending[] = {TEXT(" "),      TEXT("!"),      TEXT("$"),      TEXT(","),      TEXT("."),
                                       TEXT(":"),      TEXT(";"),      TEXT("?"),      TEXT("_"),      TEXT("+"),
                                       TEXT("0"),      TEXT("\u00BD"), TEXT("1"),      TEXT("10"),     TEXT("2"),
                                       TEXT("a"),      TEXT("z"),      TEXT("\u03B1"), TEXT("\u0430"), TEXT("\u3042"),
                                       TEXT("\u05D0"), TEXT("\u0627"), TEXT("\u0E01"), TEXT("\uAC00"), TEXT("\u4E00")};
    for (std::size_t i = 0; i + 1 < std::size(ascending); i++)
        EXPECT_EQ(Compare(0, ascending[i], ascending[i + 1]), '<') << i;
}

TEST(Collation, HyphensAndApostrophesCountLastInAWordSort)
{
    CheckOrders({
        {0, TEXT("coop"), '<', TEXT("co-op")},
        {0, TEXT("co-op"), '<', TEXT("cop")},
        {0, TEXT("co'op"), '<', TEXT("co-op")},
        {0, TEXT("coop-"), '<', TEXT("co-op")},
        {0, TEXT("-coop"), '>', TEXT("co-op")},
        {0, TEXT("co-op"), '<', TEXT("Coop")},
        {0, TEXT("a-b-c"), '>', TEXT("a-bc")},
        {0, TEXT("co op"), '<', TEXT("coop")},
        {0, TEXT("co_op"), '<', TEXT("co-op")},
        {0, TEXT("-"), '>', WString()},
        {0, TEXT("-"), '<', TEXT(" ")},
        {0, TEXT("a\u0001"), '>', TEXT("a")},
        {0, TEXT("a\u0001"), '<', TEXT("A")},
    });
}

TEST(Collation, HyphensAndApostrophesAreSymbolsInAStringSort)
{
    CheckOrders({
        {SORT_STRINGSORT, TEXT("co-op"), '<', TEXT("coop")},
        {SORT_STRINGSORT, TEXT("co'op"), '<', TEXT("co-op")},
        {SORT_STRINGSORT, TEXT("co-op"), '<', TEXT("co op")},
        {SORT_STRINGSORT, TEXT("-"), '<', TEXT(" ")},
        {SORT_STRINGSORT | NORM_IGNORECASE, TEXT("CO-OP"), '<', TEXT("coop")},
    });
}

TEST(Collation, FlagsDropDifferences)
{
    CheckOrders({
        {NORM_IGNORECASE, TEXT("aBc"), '=', TEXT("AbC")},
        {NORM_IGNORECASE, TEXT("\u00C9"), '=', TEXT("\u00E9")},
        {NORM_IGNORECASE, TEXT("E"), '<', TEXT("\u00E9")},
        {NORM_IGNORECASE, TEXT("co-op"), '>', TEXT("COOP")},
        {NORM_IGNORECASE, TEXT("\uFF21"), '>', TEXT("a")},
        {LINGUISTIC_IGNORECASE, TEXT("aBc"), '=', TEXT("AbC")},
        {NORM_IGNORENONSPACE, TEXT("resume"), '=', TEXT("r\u00E9sum\u00E9")},
        {NORM_IGNORENONSPACE, TEXT("resume"), '<', TEXT("R\u00E9sum\u00E9")},
        {NORM_IGNORENONSPACE | NORM_IGNORECASE, TEXT("resume"), '=', TEXT("R\u00C9SUM\u00C9")},
        {NORM_IGNORESYMBOLS, TEXT("a b"), '=', TEXT("a.b")},
        {NORM_IGNORESYMBOLS, TEXT("a-b"), '=', TEXT("ab")},
        {NORM_IGNORESYMBOLS, TEXT("$1+"), '=', TEXT("1")},
        {NORM_IGNORESYMBOLS, TEXT("a b"), '<', TEXT("a.B")},
        {NORM_IGNOREWIDTH, TEXT("\uFF21"), '=', TEXT("A")},
        {NORM_IGNOREKANATYPE, TEXT("\u3042"), '=', TEXT("\u30A2")},
        {SORT_DIGITSASNUMBERS, TEXT("file2"), '<', TEXT("file10")},
        {0, TEXT("file2"), '>', TEXT("file10")},
    });
}

TEST(Collation, WhatHasNoWeightIsNotThere)
{
    CheckOrders({
        {0, WString(TEXT("a\0b"), 3), '=', TEXT("ab")},
        {0, WString(1, 0), '=', WString()},
        {0, TEXT("a\u00ADb"), '=', TEXT("ab")},
    });
}

TEST(Collation, HalfOfAPairIsOrderedBehindLetters)
{
    CheckOrders(
        {{0, WString(1, 0xD800), '>', TEXT("z")},
         {0, WString(1, 0xD800), '=', WString(1, 0xD800)},
         {0, WString(2, 0xDC00), '>', WString(1, 0xDC00)}});
}

TEST(Collation, LocalesHaveTheirOwnOrder)
{
    EXPECT_EQ(Compare(0, TEXT("z"), TEXT("\u00E4"), american), '>');
    EXPECT_EQ(Compare(0, TEXT("z"), TEXT("\u00E4"), german), '>');
    EXPECT_EQ(Compare(0, TEXT("z"), TEXT("\u00E4"), LOCALE_INVARIANT), '>');
    EXPECT_EQ(Compare(0, TEXT("z"), TEXT("\u00E4"), swedish), '<');
    EXPECT_EQ(Compare(0, TEXT("co-op"), TEXT("coop"), swedish), '>');
}

TEST(Collation, TheOrderIsOne)
{
    std::vector<WString> const texts = {
        WString(),      TEXT("a"),          TEXT("A"),      TEXT("a-"),     TEXT("-a"),  TEXT("a b"),
        TEXT("ab"),     TEXT("\u00E1"),     TEXT("aa"),     TEXT("\u00E6"), TEXT("ae"),  TEXT("1"),
        TEXT("10"),     TEXT("2"),          TEXT("co-op"),  TEXT("coop"),   TEXT("cop"), TEXT("\u4E00"),
        TEXT("\u0430"), TEXT("\U0001F600"), TEXT("\uFF21"), TEXT("\u2026"), TEXT("'"),   WString(1, 0xDC00)};
    for (WString const & a : texts)
    {
        for (WString const & b : texts)
        {
            char const order = Compare(0, a, b);
            EXPECT_EQ(Compare(0, b, a), order == '<' ? '>' : order == '>' ? '<' : '=');
            for (WString const & c : texts)
                EXPECT_FALSE(order != '>' && Compare(0, b, c) != '>' && Compare(0, a, c) == '>');
        }
    }
}

TEST(Collation, ALengthOfMinusOneMeasures)
{
    WCHAR const text[] = TEXT("abc\0def");
    EXPECT_EQ(CompareStringW(american, 0, text, -1, TEXT("abc"), 3), CSTR_EQUAL);
    EXPECT_EQ(CompareStringW(american, 0, text, 2, TEXT("abc"), -2), CSTR_LESS_THAN);
    EXPECT_EQ(CompareStringW(american, 0, text, 0, TEXT("abc"), 0), CSTR_EQUAL);
    EXPECT_EQ(CompareStringW(american, 0, text, 7, TEXT("abc"), 3), CSTR_GREATER_THAN);
}

TEST(Collation, OnlyTheKnownFlagsAreTaken)
{
    constexpr DWORD known = 0x5803103F;
    for (unsigned bit = 0; bit < 32; bit++)
    {
        DWORD const flag = 1u << bit;
        SetLastError(before);
        EXPECT_EQ(CompareStringW(american, flag, TEXT("a"), 1, TEXT("b"), 1), (flag & known) != 0 ? CSTR_LESS_THAN : 0);
        EXPECT_EQ(GetLastError(), (flag & known) != 0 ? before : ERROR_INVALID_FLAGS) << std::hex << flag;
    }
}

TEST(Collation, RefusesWhatItCannotCompare)
{
    SetLastError(before);
    EXPECT_EQ(CompareStringW(american, 0, nullptr, -1, TEXT("a"), 1), 0);
    EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
    SetLastError(before);
    EXPECT_EQ(CompareStringW(american, 0, TEXT("a"), 1, nullptr, 0), 0);
    EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
    SetLastError(before);
    EXPECT_EQ(CompareStringW(unknownLocale, 0, TEXT("a"), 1, TEXT("a"), 1), 0);
    EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
    SetLastError(before);
    EXPECT_EQ(CompareStringW(american, 0x80, nullptr, 0, nullptr, 0), 0);
    EXPECT_EQ(GetLastError(), ERROR_INVALID_FLAGS);
}

TEST(Collation, SuccessLeavesTheLastErrorAlone)
{
    SetLastError(before);
    for (LCID const locale : {LOCALE_USER_DEFAULT + 0u, LOCALE_SYSTEM_DEFAULT + 0u, LOCALE_INVARIANT + 0u})
        EXPECT_EQ(CompareStringW(locale, LOCALE_USE_CP_ACP, TEXT("a"), 1, TEXT("b"), 1), CSTR_LESS_THAN);
    EXPECT_EQ(GetLastError(), before);
}

TEST(Collation, ThreadsCompareAtOnce)
{
    std::vector<int> wrong(4);
    std::vector<std::thread> threads;
    for (int & count : wrong)
    {
        threads.emplace_back(
            [&count]
            {
                for (int i = 0; i < 2000; i++)
                {
                    count += Compare(0, TEXT("coop"), TEXT("co-op"), 0x0809) != '<';
                    count += Compare(NORM_IGNORECASE, TEXT("\u00C9T\u00C9"), TEXT("\u00E9t\u00E9"), 0x080C) != '=';
                    count += Compare(SORT_STRINGSORT, TEXT("a-b"), TEXT("ab"), 0x0C0C) != '<';
                }
            });
    }
    for (std::thread & thread : threads)
        thread.join();
    EXPECT_EQ(wrong, std::vector<int>(4, 0));
}

} // namespace
