#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstdlib>
#include <limits>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <kvcore/platform/win32.h>

namespace
{

constexpr WCHAR filler = TEXT('~');

// Each printer as one function: the system's headers overload their names.
auto const printInt = [](int value, WCHAR * buffer, std::size_t capacity, int radix)
{ return _itow_s(value, buffer, capacity, radix); };
auto const printUnsigned = [](unsigned value, WCHAR * buffer, std::size_t capacity, int radix)
{ return _ultow_s(value, buffer, capacity, radix); };
auto const printInt64 = [](__int64 value, WCHAR * buffer, std::size_t capacity, int radix)
{ return _i64tow_s(value, buffer, capacity, radix); };
auto const printUnsigned64 = [](unsigned __int64 value, WCHAR * buffer, std::size_t capacity, int radix)
{ return _ui64tow_s(value, buffer, capacity, radix); };

/// A printer's result, and the buffer up to its NUL.
template <typename Printer, typename Value>
void ExpectPrinted(Printer printer, Value value, int radix, WString const & expected)
{
    WString buffer(80, filler);
    EXPECT_EQ(printer(value, buffer.data(), buffer.size(), radix), 0);
    EXPECT_EQ(WString(buffer.c_str()), expected) << "radix " << radix;

    // The same into a buffer that holds the text and its NUL and nothing else.
    WString exact(expected.size() + 2, filler);
    EXPECT_EQ(printer(value, exact.data(), expected.size() + 1, radix), 0);
    EXPECT_EQ(exact, expected + WCHAR{0} + filler);
}

/// A failure empties the buffer, and says the same in errno.
template <typename Printer, typename Value>
void ExpectFailure(Printer printer, Value value, std::size_t capacity, int radix, int code)
{
    WString buffer(8, filler);
    errno = 0;
    EXPECT_EQ(printer(value, buffer.data(), capacity, radix), code) << "capacity " << capacity << " radix " << radix;
    EXPECT_EQ(errno, code);
    EXPECT_EQ(buffer[0], capacity > 0 ? WCHAR{0} : filler);
    EXPECT_EQ(buffer.substr(capacity), WString(8 - capacity, filler));
}

/// The digits, point and sign of a number, as _fcvt_s gives them.
struct Fixed
{
    double value;
    int decimals;
    char const * digits;
    int position;
    int sign;
};

void ExpectFixed(Fixed const & row)
{
    char buffer[400];
    int position = -999;
    int sign = -999;
    EXPECT_EQ(_fcvt_s(buffer, 349, row.value, row.decimals, &position, &sign), 0);
    EXPECT_STREQ(buffer, row.digits) << row.value << " with " << row.decimals;
    EXPECT_EQ(position, row.position) << row.value << " with " << row.decimals;
    EXPECT_EQ(sign, row.sign) << row.value << " with " << row.decimals;
}

} // namespace

TEST(NumberPrinters, SignedNumbersHaveAMinusAtRadixTenOnly)
{
    ExpectPrinted(printInt, 0, 10, TEXT("0"));
    ExpectPrinted(printInt, 7, 10, TEXT("7"));
    ExpectPrinted(printInt, -1, 10, TEXT("-1"));
    ExpectPrinted(printInt, INT_MAX, 10, TEXT("2147483647"));
    ExpectPrinted(printInt, INT_MIN, 10, TEXT("-2147483648"));
    ExpectPrinted(printInt, -1, 16, TEXT("ffffffff"));
    ExpectPrinted(printInt, -5, 8, TEXT("37777777773"));
    ExpectPrinted(printInt, -5, 2, TEXT("11111111111111111111111111111011"));
    ExpectPrinted(printInt, -1, 36, TEXT("1z141z3"));
    ExpectPrinted(printInt64, -1ll, 10, TEXT("-1"));
    ExpectPrinted(printInt64, LLONG_MAX, 10, TEXT("9223372036854775807"));
    ExpectPrinted(printInt64, LLONG_MIN, 10, TEXT("-9223372036854775808"));
    ExpectPrinted(printInt64, -1ll, 16, TEXT("ffffffffffffffff"));
}

TEST(NumberPrinters, UnsignedNumbersUseLowerCaseDigits)
{
    ExpectPrinted(printUnsigned, 0u, 10, TEXT("0"));
    ExpectPrinted(printUnsigned, 0xFFFFFFFFu, 10, TEXT("4294967295"));
    ExpectPrinted(printUnsigned, 35u, 36, TEXT("z"));
    ExpectPrinted(printUnsigned, 0xDEADBEEFu, 16, TEXT("deadbeef"));
    ExpectPrinted(printUnsigned, 6u, 3, TEXT("20"));
    ExpectPrinted(printUnsigned64, ~0ull, 10, TEXT("18446744073709551615"));
    ExpectPrinted(printUnsigned64, ~0ull, 36, TEXT("3w5e11264sgsf"));
    ExpectPrinted(printUnsigned64, ~0ull, 2, WString(64, TEXT('1')));
}

TEST(NumberPrinters, EveryPowerOfTenAndItsNeighboursHaveTheirLength)
{
    std::uint64_t power = 1;
    std::string text = "1";
    for (int digits = 1; digits <= 19; ++digits)
    {
        ExpectPrinted(printUnsigned64, power, 10, WString(text.begin(), text.end()));
        ExpectPrinted(
            printUnsigned64, power - 1, 10, digits == 1 ? WString(TEXT("0")) : WString(digits - 1u, TEXT('9')));
        power *= 10;
        text += '0';
    }
}

TEST(NumberPrinters, TooSmallBufferIsEmptied)
{
    for (std::size_t capacity = 1; capacity <= 3; ++capacity)
    {
        // What lies between the NUL and the capacity is nobody's business: it is not looked at here.
        WString buffer(8, filler);
        errno = 0;
        EXPECT_EQ(_itow_s(-123, buffer.data(), capacity, 10), ERANGE);
        EXPECT_EQ(errno, ERANGE);
        EXPECT_EQ(buffer[0], 0);
        EXPECT_EQ(buffer.substr(capacity), WString(8 - capacity, filler));
        EXPECT_EQ(_ultow_s(1234, buffer.data(), capacity, 16), ERANGE);
        EXPECT_EQ(buffer[0], 0);
        EXPECT_EQ(_i64tow_s(1234, buffer.data(), capacity, 10), ERANGE);
        EXPECT_EQ(buffer[0], 0);
        // Which of its failures this one reports differs between run-time libraries.
        EXPECT_NE(_ui64tow_s(1234, buffer.data(), capacity, 10), 0);
    }
}

TEST(NumberPrinters, RadixOutsideTwoToThirtySixIsInvalid)
{
    for (int const radix : {-2, 0, 1, 37, INT_MAX, INT_MIN})
    {
        ExpectFailure(printInt, 5, 1, radix, EINVAL);
        ExpectFailure(printUnsigned, 5u, 1, radix, EINVAL);
        ExpectFailure(printInt64, 5ll, 1, radix, EINVAL);
        WCHAR buffer[8] = {filler};
        EXPECT_EQ(_ui64tow_s(5, buffer, 8, radix), EINVAL);
        EXPECT_EQ(buffer[0], 0);
    }
}

TEST(NumberPrinters, NoBufferIsInvalid)
{
    ExpectFailure(printInt, 5, 0, 10, EINVAL);
    ExpectFailure(printUnsigned, 5u, 0, 10, EINVAL);
    ExpectFailure(printInt64, 5ll, 0, 10, EINVAL);
    EXPECT_EQ(_itow_s(5, nullptr, 10, 10), EINVAL);
    EXPECT_EQ(_ultow_s(5, nullptr, 10, 10), EINVAL);
    EXPECT_EQ(_i64tow_s(5, nullptr, 10, 10), EINVAL);
    EXPECT_EQ(_ui64tow_s(5, nullptr, 10, 10), EINVAL);
}

TEST(FixedDigits, AreRoundedHalfAwayFromZeroFromTheExactValue)
{
    Fixed const rows[] = {
        {0.5, 0, "1", 1, 0},
        {1.5, 0, "2", 1, 0},
        {2.5, 0, "3", 1, 0},
        {-2.5, 0, "3", 1, 1},
        {0.125, 2, "13", 0, 0},
        {0.375, 2, "38", 0, 0},
        {0.375, 1, "4", 0, 0},
        {1.005, 2, "100", 1, 0},
        {2.675, 2, "267", 1, 0},
        {0.045, 2, "4", -1, 0},
        {0.045, 3, "45", -1, 0},
        {9.9995, 3, "9999", 1, 0},
        {9.9996, 3, "10000", 2, 0},
        {99.995, 2, "10000", 3, 0},
        {999.5, 0, "1000", 4, 0},
        {999.5, 1, "9995", 3, 0},
        {0.99999, 3, "1000", 1, 0},
        {0.95, 1, "9", 0, 0},
        {1234.5678, 2, "123457", 4, 0},
        {1234.5678, 0, "1235", 4, 0},
        {0.49999999999, 0, "", 0, 0},
    };
    for (Fixed const & row : rows)
    {
        ExpectFixed(row);
    }
}

TEST(FixedDigits, BelowOneBeginWithTheFirstThatIsNotZero)
{
    Fixed const rows[] = {
        {0.05, 3, "50", -1, 0},
        {0.05, 2, "5", -1, 0},
        {0.05, 1, "1", 0, 0},
        {0.0005, 3, "1", -2, 0},
        {0.0006, 3, "1", -2, 0},
        {0.0006, 6, "600", -3, 0},
        {1e-5, 10, "100000", -4, 0},
        {0.1, 1, "1", 0, 0},
        {-0.05, 3, "50", -1, 1},
        {0.1, 17, "10000000000000001", 0, 0},
        {0.3, 20, "29999999999999998890", 0, 0},
        {0.1, 60, "100000000000000005551115123125782702118158340454101562500000", 0, 0},
    };
    for (Fixed const & row : rows)
    {
        ExpectFixed(row);
    }
}

TEST(FixedDigits, OfAValueThatRoundsToNothingAreNoneAtItsOwnPosition)
{
    // Of values as small as the last, Wine's 32-bit C runtime counts one place fewer.
    constexpr int furthest = sizeof(void *) == 4 ? -9 : -10;
    Fixed const rows[] = {
        {0.0004, 3, "", -3, 0},   {0.0004, 0, "", -3, 0},   {0.05, 0, "", -1, 0},
        {0.4, 0, "", 0, 0},       {1e-5, 3, "", -4, 0},     {1e-12, 11, "", -11, 0},
        {5e-324, 17, "", -17, 0}, {5e-324, 60, "", -60, 0}, {5e-324, 0, "", furthest, 0},
    };
    for (Fixed const & row : rows)
    {
        ExpectFixed(row);
    }
}

TEST(FixedDigits, OfZeroAreAsManyZerosAsDecimals)
{
    ExpectFixed({0.0, 0, "", 0, 0});
    ExpectFixed({0.0, 3, "000", 0, 0});
    ExpectFixed({-0.0, 2, "00", 0, 1});
}

TEST(FixedDigits, OfLargeValuesAreExact)
{
    Fixed const rows[] = {
        {1e17, 0, "100000000000000000", 18, 0},         {123456789012345678.0, 2, "12345678901234568000", 18, 0},
        {1e22, 1, "100000000000000000000000", 23, 0},   {1e23, 0, "99999999999999991611392", 23, 0},
        {1e23, 3, "99999999999999991611392000", 23, 0}, {1e25, 0, "10000000000000000905969664", 26, 0},
    };
    for (Fixed const & row : rows)
    {
        ExpectFixed(row);
    }
}

TEST(FixedDigits, BeforeThePointAreCutOffByNegativeDecimals)
{
    Fixed const rows[] = {
        {1234.5678, -1, "123", 4, 0}, {5555.0, -1, "555", 4, 0}, {5555.0, -2, "55", 4, 0},
        {9999.0, -3, "9", 4, 0},      {9999.0, -5, "", 4, 0},    {0.5, -1, "", 1, 0},
    };
    for (Fixed const & row : rows)
    {
        ExpectFixed(row);
    }
}

TEST(FixedDigits, OfWhatIsNoNumberAreAWord)
{
    double const infinity = std::numeric_limits<double>::infinity();
    double const notANumber = std::numeric_limits<double>::quiet_NaN();
    Fixed const rows[] = {
        {infinity, 0, "1", 1, 0},          {infinity, 2, "1#J", 1, 0},       {infinity, 6, "1#INF00", 1, 0},
        {-infinity, 6, "1#INF00", 1, 1},   {notANumber, 6, "1#QNAN0", 1, 0}, {notANumber, 3, "1#QO", 1, 0},
        {-notANumber, 6, "1#IND00", 1, 1},
    };
    for (Fixed const & row : rows)
    {
        ExpectFixed(row);
    }
}

TEST(FixedDigits, NullArgumentsAreInvalid)
{
    char buffer[20] = "unchanged";
    int position = 0;
    int sign = 0;
    EXPECT_EQ(_fcvt_s(nullptr, 20, 1.0, 2, &position, &sign), EINVAL);
    EXPECT_EQ(_fcvt_s(buffer, 0, 1.0, 2, &position, &sign), EINVAL);
    EXPECT_EQ(_fcvt_s(buffer, 20, 1.0, 2, nullptr, &sign), EINVAL);
    EXPECT_EQ(_fcvt_s(buffer, 20, 1.0, 2, &position, nullptr), EINVAL);
    EXPECT_STREQ(buffer, "unchanged");
}

#ifndef _WIN32 // Wine's run-time library does not return from a buffer that is too small, and overruns one of its own.
TEST(FixedDigits, TooSmallBufferIsEmptied)
{
    for (std::size_t capacity = 1; capacity <= 7; ++capacity)
    {
        char buffer[20] = "~~~~~~~~~~~~~~~~~~~";
        int position = 0;
        int sign = 0;
        EXPECT_EQ(_fcvt_s(buffer, capacity, 1234.5678, 3, &position, &sign), ERANGE);
        EXPECT_STREQ(buffer, "");
        EXPECT_EQ(buffer[capacity], '~');
    }
    char buffer[8];
    int position = 0;
    int sign = 0;
    EXPECT_EQ(_fcvt_s(buffer, 8, 1234.5678, 3, &position, &sign), 0);
    EXPECT_STREQ(buffer, "1234568");
    EXPECT_EQ(_fcvt_s(buffer, 8, 1.0, INT_MAX, &position, &sign), ERANGE);
    EXPECT_EQ(_fcvt_s(buffer, 8, std::numeric_limits<double>::infinity(), INT_MAX, &position, &sign), ERANGE);
    EXPECT_EQ(_fcvt_s(buffer, 8, 1.0, INT_MIN, &position, &sign), 0);
    EXPECT_STREQ(buffer, "");
}

TEST(FixedDigits, OfTheLargestValueAreAllThere)
{
    char buffer[400];
    int position = 0;
    int sign = 0;
    EXPECT_EQ(_fcvt_s(buffer, 400, std::numeric_limits<double>::max(), 60, &position, &sign), 0);
    EXPECT_EQ(position, 309);
    EXPECT_EQ(std::string(buffer).size(), 369u);
    EXPECT_EQ(std::string(buffer).substr(0, 20), "17976931348623157081");
}

TEST(FixedDigits, OfAValueThatRoundsToNothingDoNotDependOnItsSign)
{
    ExpectFixed({-0.0004, 3, "", -3, 1});
    ExpectFixed({-0.05, 0, "", -1, 1});
    ExpectFixed({9.6e-10, 0, "", -9, 0});
    ExpectFixed({1e-16, 0, "", -10, 0});
}
#endif
