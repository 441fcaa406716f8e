#include <cfloat>
#include <climits>
#include <clocale>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <random>
#include <string>

#include <gtest/gtest.h>

#include <kvcore/core/String.h>
#include <kvcore/platform/win32.h>

namespace
{

using Int64 = __int64;
using UInt64 = unsigned __int64;

template <typename Number>
struct IntegerRow
{
    WCHAR const * text;
    int radix;
    bool good;
    Number value;
};

template <typename Number>
void ExpectParsed(IntegerRow<Number> const & row)
{
    SCOPED_TRACE(String(row.text).Utf8() + " at " + std::to_string(row.radix));
    Number value = 77;
    EXPECT_EQ(String(row.text).ParseNum(value, row.radix), row.good);
    EXPECT_EQ(value, row.value);
}

} // namespace

TEST(StringNumbers, IntReadsSignsBlanksDigitsAndNothingElse)
{
    IntegerRow<int> const rows[] = {
        {TEXT("0"), 10, true, 0},
        {TEXT("12"), 10, true, 12},
        {TEXT("-12"), 10, true, -12},
        {TEXT("+12"), 10, true, 12},
        {TEXT("+-12"), 10, true, -12},
        {TEXT("-+12"), 10, false, 0},
        {TEXT("++12"), 10, false, 0},
        {TEXT("--12"), 10, false, 0},
        {TEXT(" \t 12"), 10, true, 12},
        {TEXT("\n12"), 10, false, 0},
        {TEXT("\u00A012"), 10, false, 0},
        {TEXT("- 12"), 10, false, 0},
        {TEXT("12x"), 10, false, 0},
        {TEXT("1 2"), 10, false, 0},
        {TEXT("12."), 10, false, 0},
        {TEXT("2147483647"), 10, true, INT_MAX},
        {TEXT("-2147483648"), 10, true, INT_MIN},
        {TEXT("ff"), 16, true, 255},
        {TEXT("FF"), 16, true, 255},
        {TEXT("0xff"), 16, false, 0},
        {TEXT("fg"), 16, false, 0},
        {TEXT("8"), 8, false, 0},
        {TEXT("77"), 8, true, 63},
        {TEXT("101"), 2, true, 5},
        {TEXT("2"), 2, false, 0},
        {TEXT("zZ"), 36, true, 35 * 36 + 35},
        {TEXT("@"), 36, false, 0},
        {TEXT("["), 36, false, 0},
        {TEXT("`"), 36, false, 0},
        {TEXT("{"), 36, false, 0},
        {TEXT("/"), 36, false, 0},
        {TEXT(":"), 36, false, 0},
    };
    for (auto const & row : rows)
    {
        ExpectParsed(row);
    }
}

TEST(StringNumbers, NoDigitsAtAllAreZeroAtEveryRadix)
{
    for (int radix = 2; radix <= 36; ++radix)
    {
        for (WCHAR const * text : {TEXT(""), TEXT("+"), TEXT("-"), TEXT(" \t"), TEXT("+-")})
        {
            ExpectParsed(IntegerRow<int>{text, radix, true, 0});
            ExpectParsed(IntegerRow<unsigned __int64>{text, radix, true, 0});
        }
    }
}

TEST(StringNumbers, RadixOutsideTwoTo36FailsWithZero)
{
    for (int radix : {INT_MIN, -10, -1, 0, 1, 37, 100, INT_MAX})
    {
        ExpectParsed(IntegerRow<int>{TEXT("1"), radix, false, 0});
        ExpectParsed(IntegerRow<unsigned int>{TEXT("1"), radix, false, 0});
        ExpectParsed(IntegerRow<__int64>{TEXT("1"), radix, false, 0});
        ExpectParsed(IntegerRow<unsigned __int64>{TEXT(""), radix, false, 0});
    }
}

TEST(StringNumbers, RadixIsTenIfLeftOut)
{
    int small = 0;
    __int64 large = 0;
    EXPECT_TRUE(String(TEXT("10")).ParseNum(small));
    EXPECT_TRUE(String(TEXT("10")).ParseNum(large));
    EXPECT_EQ(small, 10);
    EXPECT_EQ(large, 10);
}

TEST(StringNumbers, BlanksBehindDigitsPassOnlyAboveTheSignedRange)
{
    IntegerRow<int> const rows[] = {
        {TEXT("12 "), 10, false, 0},
        {TEXT("12\t"), 10, false, 0},
        {TEXT("2147483647 "), 10, false, 0},
        {TEXT("2147483648 "), 10, true, INT_MIN},
        {TEXT("4294967295 "), 10, true, -1},
        {TEXT("4294967295 \t "), 10, true, -1},
        {TEXT("4294967295 x"), 10, false, 0},
        {TEXT("4294967295\n"), 10, false, 0},
        {TEXT("-2147483648 "), 10, false, 0}, // the limit is one higher behind a '-'
        {TEXT("-2147483649 "), 10, true, INT_MAX},
    };
    for (auto const & row : rows)
    {
        ExpectParsed(row);
    }
    ExpectParsed(IntegerRow<unsigned int>{TEXT("4294967295 "), 10, true, 0xFFFFFFFF});
    ExpectParsed(IntegerRow<unsigned int>{TEXT("12 "), 10, false, 0});
    ExpectParsed(IntegerRow<__int64>{TEXT("4294967295 "), 10, false, 0});
    ExpectParsed(IntegerRow<__int64>{TEXT("9223372036854775807 "), 10, false, 0});
    ExpectParsed(IntegerRow<__int64>{TEXT("9223372036854775808 "), 10, true, LLONG_MIN});
    ExpectParsed(IntegerRow<unsigned __int64>{TEXT("18446744073709551615 "), 10, true, ULLONG_MAX});
}

TEST(StringNumbers, OverflowIsNoticedOnlyWhereAStepShrinksTheNumber)
{
    IntegerRow<int> const rows[] = {
        {TEXT("4294967296"), 10, false, 0},         // wraps to 0, below 429496729
        {TEXT("9999999999"), 10, true, 1410065407}, // wraps to more than 999999999
        {TEXT("100000000"), 16, false, 0},          // wraps to 0
        {TEXT("1ffffffff"), 16, true, -1},          // wraps to more than 0x1fffffff
        {TEXT("2147483648"), 10, true, INT_MIN},    // above the signed range is no overflow
        {TEXT("-4294967295"), 10, true, 1},
    };
    for (auto const & row : rows)
    {
        ExpectParsed(row);
    }
    ExpectParsed(IntegerRow<__int64>{TEXT("18446744073709551616"), 10, false, 0});
    ExpectParsed(IntegerRow<unsigned __int64>{TEXT("30000000000000000000"), 10, true, 11553255926290448384ULL});
    ExpectParsed(IntegerRow<unsigned __int64>{TEXT("99999999999999999999"), 10, false, 0});
}

TEST(StringNumbers, UnsignedFormsTakeAMinus)
{
    ExpectParsed(IntegerRow<unsigned int>{TEXT("-5"), 10, true, 0xFFFFFFFB});
    ExpectParsed(IntegerRow<unsigned __int64>{TEXT("-5"), 10, true, 0xFFFFFFFFFFFFFFFBULL});
}

TEST(StringNumbers, SixtyFourBits)
{
    ExpectParsed(IntegerRow<__int64>{TEXT("9223372036854775807"), 10, true, LLONG_MAX});
    ExpectParsed(IntegerRow<__int64>{TEXT("-9223372036854775808"), 10, true, LLONG_MIN});
    ExpectParsed(IntegerRow<unsigned __int64>{TEXT("18446744073709551615"), 10, true, ULLONG_MAX});
    ExpectParsed(IntegerRow<unsigned __int64>{TEXT("ffffffffffffffff"), 16, true, ULLONG_MAX});
    ExpectParsed(IntegerRow<__int64>{TEXT("-7fffffffffffffff"), 16, true, -LLONG_MAX});
}

TEST(StringNumbers, OnlyTheLowByteOfADigitCounts)
{
    ExpectParsed(IntegerRow<int>{TEXT("\u0130\u0531"), 10, true, 1});
    ExpectParsed(IntegerRow<int>{TEXT("\u0161"), 16, true, 10});  // an 'a'
    ExpectParsed(IntegerRow<int>{TEXT("1\u0100"), 10, false, 0}); // ends the digits, but is no NUL
    ExpectParsed(IntegerRow<int>{
        TEXT("\u0120"
             "1"),
        10, false, 0}); // blanks and signs count whole
    ExpectParsed(IntegerRow<int>{
        TEXT("\u012D"
             "1"),
        10, false, 0});
}

TEST(StringNumbers, TextBehindANulIsNotLookedAt)
{
    int value = 0;
    EXPECT_TRUE(String(TEXT("12\0xyz"), 6).ParseNum(value, 10));
    EXPECT_EQ(value, 12);
    EXPECT_TRUE(String(
                    TEXT("\0"
                         "12"),
                    3)
                    .ParseNum(value, 10));
    EXPECT_EQ(value, 0);
}

TEST(StringNumbers, ChannelsAreDigitsAndNothingElse)
{
    struct
    {
        WCHAR const * text;
        bool good;
        int value;
    } const rows[] = {
        {TEXT(""), true, 0},
        {TEXT("0"), true, 0},
        {TEXT("0015"), true, 15},
        {TEXT("2147483648"), true, INT_MIN},
        {TEXT("4294967295"), true, -1},
        {TEXT("4294967296"), false, 0},
        {TEXT("9999999999"), true, 1410065407},
        {TEXT(" 1"), false, 0},
        {TEXT("1 "), false, 0},
        {TEXT("+1"), false, 0},
        {TEXT("-1"), false, 0},
        {TEXT("1a"), false, 0},
        {TEXT("a"), false, 0},
        {TEXT("\u0131\u0232"), true, 12},
        {TEXT("7\u0100abc"), true, 7}, // a low byte of 0 ends the text
    };
    for (auto const & row : rows)
    {
        SCOPED_TRACE(String(row.text).Utf8());
        int value = 77;
        EXPECT_EQ(String(row.text).ParseChannelsNum(value), row.good);
        EXPECT_EQ(value, row.value);
    }
}

TEST(StringNumbers, IntegersPrintAtEveryRadix)
{
    EXPECT_EQ(String::FromNum(0), TEXT("0"));
    EXPECT_EQ(String::FromNum(0, 2), TEXT("0"));
    EXPECT_EQ(String::FromNum(7), TEXT("7"));
    EXPECT_EQ(String::FromNum(-7), TEXT("-7"));
    EXPECT_EQ(String::FromNum(INT_MAX), TEXT("2147483647"));
    EXPECT_EQ(String::FromNum(INT_MIN), TEXT("-2147483648"));
    EXPECT_EQ(String::FromNum(UINT_MAX), TEXT("4294967295"));
    EXPECT_EQ(String::FromNum(Int64(LLONG_MIN)), TEXT("-9223372036854775808"));
    EXPECT_EQ(String::FromNum(Int64(LLONG_MAX)), TEXT("9223372036854775807"));
    EXPECT_EQ(String::FromNum(UInt64(ULLONG_MAX)), TEXT("18446744073709551615"));
    EXPECT_EQ(String::FromNum(255, 16), TEXT("ff"));
    EXPECT_EQ(String::FromNum(35, 36), TEXT("z"));
    EXPECT_EQ(String::FromNum(Int64(LLONG_MAX), 36), TEXT("1y2p0ij32e8e7"));
    EXPECT_EQ(String::FromNum(UInt64(ULLONG_MAX), 2), String::FromChar(TEXT('1'), 64));
}

TEST(StringNumbers, MinusSignIsForRadixTenOnly)
{
    EXPECT_EQ(String::FromNum(-1, 16), TEXT("ffffffff"));
    EXPECT_EQ(String::FromNum(-1, 2), String::FromChar(TEXT('1'), 32));
    EXPECT_EQ(String::FromNum(Int64(-1), 16), TEXT("ffffffffffffffff"));
    EXPECT_EQ(String::FromNum(INT_MIN, 8), TEXT("20000000000"));
    EXPECT_EQ(String::FromNum(-10, 9), TEXT("12068657443")); // 2^32 - 10
}

TEST(StringNumbers, PrintingAtAnImpossibleRadixIsEmpty)
{
    for (int radix : {INT_MIN, -10, 0, 1, 37, INT_MAX})
    {
        EXPECT_EQ(String::FromNum(5, radix), String());
        EXPECT_EQ(String::FromNum(5u, radix), String());
        EXPECT_EQ(String::FromNum(Int64(5), radix), String());
        EXPECT_EQ(String::FromNum(UInt64(5), radix), String());
    }
}

TEST(StringNumbers, PrintedIntegersEqualTheRunTimeLibrarys)
{
    std::mt19937_64 random(1);
    for (int i = 0; i < 20000; ++i)
    {
        int const radix = 2 + i % 35;
        std::uint64_t const bits = random() >> (random() % 64);
        WCHAR expected[128];
        ASSERT_EQ(_itow_s(int(bits), expected, 64, radix), 0);
        ASSERT_EQ(String::FromNum(int(bits), radix), expected);
        ASSERT_EQ(_ultow_s(unsigned(bits), expected, 64, radix), 0);
        ASSERT_EQ(String::FromNum(unsigned(bits), radix), expected);
        ASSERT_EQ(_i64tow_s(Int64(bits), expected, 128, radix), 0);
        ASSERT_EQ(String::FromNum(Int64(bits), radix), expected);
        ASSERT_EQ(_ui64tow_s(bits, expected, 128, radix), 0);
        ASSERT_EQ(String::FromNum(UInt64(bits), radix), expected);
    }
}

TEST(StringNumbers, IntegersComeBackFromTheirText)
{
    std::mt19937_64 random(2);
    for (int i = 0; i < 20000; ++i)
    {
        int const radix = 2 + i % 35;
        std::uint64_t const bits = random() >> (random() % 64);
        unsigned __int64 large;
        ASSERT_TRUE(String::FromNum(UInt64(bits), radix).ParseNum(large, radix));
        ASSERT_EQ(large, bits);
        int small;
        ASSERT_TRUE(String::FromNum(int(bits), radix).ParseNum(small, radix));
        ASSERT_EQ(small, int(bits));
    }
}

namespace
{

void ExpectDouble(WCHAR const * text, bool good, double expected)
{
    SCOPED_TRACE(String(text).Utf8());
    double value = 77;
    EXPECT_EQ(String(text).ParseNum(value), good);
    EXPECT_EQ(std::signbit(value), std::signbit(expected));
    EXPECT_EQ(value, expected);
}

constexpr double infinity = std::numeric_limits<double>::infinity();

} // namespace

TEST(StringNumbers, DoubleReadsUpToTheFirstBlank)
{
    ExpectDouble(TEXT("1.5"), true, 1.5);
    ExpectDouble(TEXT("1.5 abc"), true, 1.5);
    ExpectDouble(TEXT("1.5\tabc"), true, 1.5);
    ExpectDouble(TEXT("1.5 \u20AC"), true, 1.5); // what is not read may be anything
    ExpectDouble(TEXT(" \t-2.25"), true, -2.25);
    ExpectDouble(TEXT("1.5abc"), false, 0.0);
    ExpectDouble(TEXT(""), false, 0.0);
    ExpectDouble(TEXT(" \t "), false, 0.0);
    ExpectDouble(TEXT("1.5\u20AC"), false, 0.0);
    ExpectDouble(TEXT("1\u0080"), false, 0.0);
    ExpectDouble(TEXT("\u0131"), false, 0.0); // no low bytes here
    double value = 77;
    EXPECT_TRUE(String(TEXT("2\0x"), 3).ParseNum(value));
    EXPECT_EQ(value, 2.0);
}

TEST(StringNumbers, DoubleReadsInfinityAndNaNInAnyCase)
{
    ExpectDouble(TEXT("inf"), true, infinity);
    ExpectDouble(TEXT("INF"), true, infinity);
    ExpectDouble(TEXT("+Inf"), true, infinity);
    ExpectDouble(TEXT("-inf"), true, -infinity);
    ExpectDouble(TEXT("Infinity"), true, infinity);
    ExpectDouble(TEXT("-infinity"), true, -infinity);
    ExpectDouble(TEXT("infin"), false, 0.0);
    for (WCHAR const * text :
         {TEXT("nan"), TEXT("NaN"), TEXT("-nan"), TEXT("+nan"), TEXT("nan()"), TEXT("NAN(12_aF)"), TEXT("\nnan(1)")})
    {
        double value = 77;
        EXPECT_TRUE(String(text).ParseNum(value)) << String(text).Utf8();
        EXPECT_TRUE(std::isnan(value));
    }
    for (WCHAR const * text : {TEXT("nanx"), TEXT("nan("), TEXT("nan)"), TEXT("nan(-)"), TEXT("nan())"), TEXT("na")})
    {
        ExpectDouble(text, false, 0.0);
    }
}

TEST(StringNumbers, DoubleReadsWhatTheStandardReads)
{
    ExpectDouble(TEXT("0"), true, 0.0);
    ExpectDouble(TEXT("-0"), true, -0.0);
    ExpectDouble(TEXT(".5"), true, 0.5);
    ExpectDouble(TEXT("5."), true, 5.0);
    ExpectDouble(TEXT("+.5E1"), true, 5.0);
    ExpectDouble(TEXT("1e5"), true, 1e5);
    ExpectDouble(TEXT("1E-5"), true, 1e-5);
    ExpectDouble(TEXT("0x1.8p1"), true, 3.0);
    ExpectDouble(TEXT("-0X.8"), true, -0.5);
    ExpectDouble(TEXT("\v\f\r\n5"), true, 5.0);
    ExpectDouble(TEXT("0.1000000000000000055511151231257827"), true, 0.1);
    ExpectDouble(TEXT("1.7976931348623158e308"), true, DBL_MAX);
    ExpectDouble(TEXT("2.2250738585072014e-308"), true, DBL_MIN);
    ExpectDouble(TEXT("4.9e-324"), true, 4.9406564584124654e-324);
    for (WCHAR const * text :
         {TEXT("."), TEXT("+"), TEXT("-"), TEXT("e5"), TEXT("1e"), TEXT("1e+"), TEXT("1d5"), TEXT("1,5"), TEXT("1_0"),
          TEXT("++1"), TEXT("+-1"), TEXT("0x"), TEXT("0xg"), TEXT("1.5f"), TEXT("1.2.3"), TEXT("\n")})
    {
        ExpectDouble(text, false, 0.0);
    }
}

TEST(StringNumbers, DoubleOutOfRangeIsTheNearestThereIs)
{
    ExpectDouble(TEXT("1e400"), true, infinity);
    ExpectDouble(TEXT("-1e400"), true, -infinity);
    ExpectDouble(TEXT("0x1p99999"), true, infinity);
    ExpectDouble(TEXT("1e99999999999999999999"), true, infinity);
    ExpectDouble(TEXT("1e-400"), true, 0.0);
    ExpectDouble(TEXT("-1e-400"), true, -0.0);
    ExpectDouble(TEXT("0e99999999999999999999"), true, 0.0);
}

TEST(StringNumbers, DoubleEqualsStrtodOnRandomText)
{
    std::mt19937 random(3);
    constexpr char alphabet[] = "0123456789012345678901234567890123456789...+-eEexXpPaAfF";
    for (int i = 0; i < 100000; ++i)
    {
        std::string text;
        for (std::size_t length = 1 + random() % 12; length != 0; --length)
        {
            text += alphabet[random() % (sizeof(alphabet) - 1)];
        }
        char * end;
        double expected = std::strtod(text.c_str(), &end);
        bool const good = end == text.c_str() + text.size();
        expected = good ? expected : 0.0;
        double value;
        ASSERT_EQ(String::FromLatin1(text).ParseNum(value), good) << text;
        ASSERT_EQ(std::memcmp(&value, &expected, sizeof(value)), 0) << text;
    }
}

TEST(StringNumbers, EveryDoubleComesBackFromSeventeenDigits)
{
    std::mt19937_64 random(4);
    for (int i = 0; i < 50000; ++i)
    {
        std::uint64_t const bits = random();
        double expected;
        std::memcpy(&expected, &bits, sizeof(bits));
        if (!std::isfinite(expected))
        {
            continue;
        }
        char text[64];
        std::snprintf(text, sizeof(text), "%.17g", expected);
        double value;
        ASSERT_TRUE(String::FromLatin1(text).ParseNum(value)) << text;
        ASSERT_EQ(value, expected) << text;
    }
}

TEST(StringNumbers, LongNumbersAreReadWhole)
{
    String const zeros = String::FromChar(TEXT('0'), 100000);
    double value;
    EXPECT_TRUE(String(zeros + TEXT("1.5")).ParseNum(value));
    EXPECT_EQ(value, 1.5);
    EXPECT_TRUE(String(TEXT("1") + zeros).ParseNum(value));
    EXPECT_EQ(value, infinity);
    EXPECT_TRUE(String(TEXT("0.") + zeros + TEXT("1")).ParseNum(value));
    EXPECT_EQ(value, 0.0);
}

TEST(StringNumbers, FloatIsTheDoubleNarrowed)
{
    struct
    {
        WCHAR const * text;
        bool good;
        float value;
    } const rows[] = {
        {TEXT("1.5"), true, 1.5f},
        {TEXT("0.1"), true, 0.1f},
        {TEXT("x"), false, 0.0f},
        {TEXT("3.4028234e38"), true, FLT_MAX},
        {TEXT("3.4028235e38"), true, FLT_MAX},
        {TEXT("0x1.fffffefp127"), true, FLT_MAX}, // below the half way to the next
        {TEXT("0x1.ffffffp127"), true, std::numeric_limits<float>::infinity()},
        {TEXT("1e39"), true, std::numeric_limits<float>::infinity()},
        {TEXT("-1e300"), true, -std::numeric_limits<float>::infinity()},
        {TEXT("-inf"), true, -std::numeric_limits<float>::infinity()},
        {TEXT("1e-60"), true, 0.0f},
        {TEXT("1e-45"), true, std::numeric_limits<float>::denorm_min()},
    };
    for (auto const & row : rows)
    {
        SCOPED_TRACE(String(row.text).Utf8());
        float value = 77;
        EXPECT_EQ(String(row.text).ParseNum(value), row.good);
        EXPECT_EQ(value, row.value);
    }
    float value;
    EXPECT_TRUE(String(TEXT("nan")).ParseNum(value));
    EXPECT_TRUE(std::isnan(value));
}

TEST(StringNumbers, DoublePrintsWithoutTrailingZerosAndExponent)
{
    struct
    {
        double value;
        int decimals;
        WCHAR const * text;
    } const rows[] = {
        {1.5, 3, TEXT("1.5")},
        {2.0, 3, TEXT("2")},
        {2.0, 0, TEXT("2")},
        {0.05, 3, TEXT("0.05")},
        {-1.25, 2, TEXT("-1.25")},
        {0.0, 6, TEXT("0")},
        {-0.0, 6, TEXT("-0")},
        {100.0, 2, TEXT("100")},
        {1200.5, 1, TEXT("1200.5")},
        {9.9995, 2, TEXT("10")},
        {99.999, 2, TEXT("100")},
        {0.999, 2, TEXT("1")},
        {0.1 + 0.2, 17, TEXT("0.30000000000000004")},
        {1e15, 3, TEXT("1000000000000000")},
        {123456789.987654321, 6, TEXT("123456789.987654")},
        {1e22, 0, TEXT("10000000000000000000000")},
        {18446744073709551616.0, 2, TEXT("18446744073709551616")},
        {0.1, 60, TEXT("0.1000000000000000055511151231257827021181583404541015625")},
        {1.0 / 3, 6, TEXT("0.333333")},
        {2.0 / 3, 6, TEXT("0.666667")},
        {6e-7, 6, TEXT("0.000001")},
        {1e-60, 60, TEXT("0.000000000000000000000000000000000000000000000000000000000001")},
    };
    for (auto const & row : rows)
    {
        EXPECT_EQ(String::FromNum(row.value, row.decimals), row.text) << row.value << ", " << row.decimals;
    }
}

TEST(StringNumbers, DoubleTiesGoAwayFromZero)
{
    EXPECT_EQ(String::FromNum(0.5, 0), TEXT("1"));
    EXPECT_EQ(String::FromNum(1.5, 0), TEXT("2"));
    EXPECT_EQ(String::FromNum(2.5, 0), TEXT("3"));
    EXPECT_EQ(String::FromNum(-2.5, 0), TEXT("-3"));
    EXPECT_EQ(String::FromNum(0.125, 2), TEXT("0.13"));
    EXPECT_EQ(String::FromNum(0.375, 2), TEXT("0.38"));
    EXPECT_EQ(String::FromNum(9.5, 0), TEXT("10"));
    EXPECT_EQ(String::FromNum(99.96875, 4), TEXT("99.9688"));
    EXPECT_EQ(String::FromNum(4503599627370495.5, 0), TEXT("4503599627370496"));
    EXPECT_EQ(String::FromNum(2251799813685247.25, 1), TEXT("2251799813685247.3"));
    EXPECT_EQ(String::FromNum(999999999999999.5, 0), TEXT("1000000000000000"));
    EXPECT_EQ(String::FromNum(0x1p-30, 29), TEXT("0.00000000093132257461547851563"));
    EXPECT_EQ(String::FromNum(99999999.0 + 0x1p-21, 20), TEXT("99999999.00000047683715820313"));
}

TEST(StringNumbers, DecimalsAreBroughtIntoRange)
{
    EXPECT_EQ(String::FromNum(1.75, -5), TEXT("2"));
    EXPECT_EQ(String::FromNum(1.75, INT_MIN), TEXT("2"));
    EXPECT_EQ(String::FromNum(0x1p-62, 61), String::FromNum(0x1p-62, 60));
    EXPECT_EQ(String::FromNum(0x1p-62, INT_MAX), String::FromNum(0x1p-62, 60));
    EXPECT_EQ(String::FromNum(1.0 / 3), TEXT("0.333333"));
}

TEST(StringNumbers, DoubleTooLongForTheDigitsBufferIsEmpty)
{
    EXPECT_EQ(String::FromNum(DBL_MAX, 38).size(), 309u); // 347 digits, of which 38 are zeros that are dropped
    EXPECT_EQ(String::FromNum(DBL_MAX, 39), String());
    EXPECT_EQ(String::FromNum(-DBL_MAX, 60), String());
    EXPECT_EQ(String::FromNum(1e287, 60), String()); // 288 + 60
    EXPECT_EQ(String::FromNum(9e286, 60).size(), 287u);
}

TEST(StringNumbers, NumbersOfWhichRoundingLeavesNothingKeepTheirZeros)
{
    // The zeros between the point and a first digit that is itself rounded away are printed nevertheless.
    EXPECT_EQ(String::FromNum(0.0005, 2), TEXT("0.000"));
    EXPECT_EQ(String::FromNum(0.25, 0), TEXT("0"));
    String const tiny = String::FromNum(1e-9, 3);
    EXPECT_TRUE(tiny.BeginsWith(TEXT("0")));
    EXPECT_EQ(tiny.find_first_not_of(TEXT("0.")), String::npos) << tiny.Utf8();
}

TEST(StringNumbers, InfinityPrintsAsTheRunTimeLibraryHasIt)
{
    EXPECT_EQ(String::FromNum(infinity, 6), TEXT("1.#INF"));
    EXPECT_EQ(String::FromNum(-infinity, 6), TEXT("-1.#INF"));
    String const nan = String::FromNum(std::numeric_limits<double>::quiet_NaN(), 6);
    EXPECT_NE(nan.find(TEXT("1.#")), String::npos) << nan.Utf8();
}

namespace
{

/// What the digits that _fcvt_s gives amount to.
String Assembled(double value, int decimals)
{
    char buffer[349];
    int point;
    int sign;
    if (_fcvt_s(buffer, sizeof(buffer), value, decimals, &point, &sign) != 0)
    {
        return String();
    }
    std::string const digits = buffer;
    std::string fraction = point > 0 ? digits.substr(std::size_t(point)) : digits;
    fraction.erase(fraction.find_last_not_of('0') + 1);
    std::string text = sign != 0 ? "-" : "";
    text += point < 1 ? "0" : digits.substr(0, std::size_t(point));
    std::string const zeros(point < 1 ? std::size_t(-point) : 0, '0');
    if (!fraction.empty() || !zeros.empty())
    {
        text += "." + zeros + fraction;
    }
    return String::FromLatin1(text);
}

} // namespace

TEST(StringNumbers, PrintedDoublesEqualTheRunTimeLibrarysDigits)
{
    std::mt19937_64 random(5);
    for (int i = 0; i < 100000; ++i)
    {
        double value;
        switch (i % 3)
        {
        case 0: // any number that the run-time libraries print without running out of room
            value = std::ldexp(double(random()), int(random() % 130) - 127);
            break;
        case 1: // short ones, many of them halfway
            value = double(std::int64_t(random() % 2000000) - 1000000) / double(1 << random() % 12);
            break;
        default: // decimal ones
            value = double(random() % 100000000) / 10000;
            break;
        }
        value = random() % 2 != 0 ? value : -value;
        int const decimals = int(random() % 25);
        ASSERT_EQ(String::FromNum(value, decimals), Assembled(value, decimals)) << value << ", " << decimals;
    }
}

TEST(StringNumbers, LocaleOfTheProcessChangesNothing)
{
    std::string const saved = std::setlocale(LC_ALL, nullptr);
    // At least one of these has a decimal comma wherever a locale is installed at all.
    for (char const * name : {"de_DE.UTF-8", "de_DE.utf8", "German_Germany.1252", "de-DE"})
    {
        std::setlocale(LC_ALL, name);
        std::string const before = std::setlocale(LC_ALL, nullptr);
        double value;
        EXPECT_TRUE(String(TEXT("+1.5")).ParseNum(value));
        EXPECT_EQ(value, 1.5);
        EXPECT_FALSE(String(TEXT("1,5")).ParseNum(value));
        EXPECT_EQ(String::FromNum(1.5, 2), TEXT("1.5"));
        EXPECT_EQ(String() << 1.5, TEXT("1.500000"));
        EXPECT_EQ(std::setlocale(LC_ALL, nullptr), before);
    }
    std::setlocale(LC_ALL, saved.c_str());
}

TEST(StringNumbers, AppendingPrints)
{
    GUID const id = {0x01234567, 0x89AB, 0xCDEF, {0x01, 0x23, 0x45, 0x67, 0x89, 0xAB, 0xCD, 0xEF}};
    String text;
    String & result = text << TEXT("a") << String(TEXT("b")) << -3 << Int64(-5000000000) << 0.25 << id;
    EXPECT_EQ(&result, &text);
    EXPECT_EQ(text, TEXT("ab-3-50000000000.250000{01234567-89AB-CDEF-0123-456789ABCDEF}"));
}
