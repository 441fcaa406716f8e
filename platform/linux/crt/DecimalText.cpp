#include <kvcore/platform/linux/crt/DecimalText.h>

#include <algorithm>
#include <bit>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <iterator>

#include <kvcore/platform/linux/crt/IntegerText.h>

namespace kv::platform
{
namespace
{

/// `value` as an odd integer times a power of two; of zero, both are 0.
struct OddBinary
{
    std::uint64_t odd;
    int exponent;
};

OddBinary SplitBinary(double value)
{
    std::uint64_t const bits = std::bit_cast<std::uint64_t>(value);
    std::uint64_t mantissa = bits & 0xFFFFFFFFFFFFFull;
    int exponent = static_cast<int>(bits >> 52 & 0x7FF);
    if (exponent == 0)
    {
        ++exponent;
    }
    else
    {
        mantissa |= 1ull << 52;
    }
    exponent -= 1075;
    if (mantissa == 0)
    {
        return {0, 0};
    }
    int const zeros = std::countr_zero(mantissa);
    return {mantissa >> zeros, exponent + zeros};
}

/// Adds one in the last place. True if that gave a digit more: then the digits are a one and zeros, as many as before,
/// and the number is ten times what they say.
bool IncrementDigits(char * digits, int length)
{
    for (int i = length - 1; i >= 0; --i)
    {
        if (digits[i] != '9')
        {
            ++digits[i];
            return false;
        }
        digits[i] = '0';
    }
    digits[0] = '1';
    return true;
}

/// An odd number over 2^k has exactly k decimal places, and the last of them is a 5. So the value lies half way
/// between two texts of `precision` places if it has one place more.
bool IsHalfWayFixed(OddBinary const & binary, int precision)
{
    return binary.odd != 0 && -binary.exponent == precision + 1;
}

/// The same for `precision` places behind the first of the number's digits, whose decimal exponent is
/// `decimalExponent`.
bool IsHalfWayScientific(OddBinary const & binary, int decimalExponent, int precision)
{
    if (binary.odd == 0)
    {
        return false;
    }
    if (binary.exponent < 0)
    {
        return decimalExponent - binary.exponent == precision + 1;
    }
    // An integer: half way if it is (10 q + 5) times ten to the `zeros`.
    int const zeros = decimalExponent - precision - 1;
    if (zeros != binary.exponent || zeros > 22)
    {
        return false;
    }
    std::uint64_t power = 5;
    for (int i = 0; i < zeros; ++i)
    {
        power *= 5;
    }
    return binary.odd % power == 0;
}

/// Takes the point out of `digits[0 .. length)`; returns how many digits are left.
int DropPoint(char * digits, int length, int integerDigits)
{
    if (integerDigits >= length)
    {
        return length;
    }
    std::memmove(digits + integerDigits, digits + integerDigits + 1, static_cast<std::size_t>(length - integerDigits));
    return length - 1;
}

__extension__ typedef unsigned __int128 Wide;

/// 10 to the 22nd is the highest power of which 53 bits times it stay below 128 bits.
constexpr int maxScale = 22;

constexpr struct PowersOfTen
{
    Wide values[maxScale + 1];
    constexpr PowersOfTen() : values()
    {
        Wide power = 1;
        for (Wide & value : values)
        {
            value = power;
            power *= 10;
        }
    }
} powersOfTen;

/// Writes the decimal digits of `value`, which is below 2^127, so that they end before `end`.
char * WriteWideBackward(Wide value, char * end)
{
    constexpr int half = 19;
    if (value < powersOfTen.values[half])
    {
        return WriteDecimalBackward(static_cast<std::uint64_t>(value), end);
    }
    Wide const high = value / powersOfTen.values[half];
    char * const begin = WriteDecimalBackward(static_cast<std::uint64_t>(value - high * powersOfTen.values[half]), end);
    std::fill(end - half, begin, '0');
    return WriteDecimalBackward(static_cast<std::uint64_t>(high), end - half);
}

/// The usual numbers, those with no more than 22 places: times ten to the `precision` and rounded half up, they are an
/// integer that plain arithmetic gives exactly. False if the number is none of these.
bool PrintFixedFast(OddBinary const & binary, int precision, DecimalText & text)
{
    bool const isInteger = binary.exponent >= 0;
    if (precision > maxScale || binary.exponent < -126 ||
        (isInteger && std::bit_width(binary.odd) + static_cast<unsigned>(binary.exponent) > 53))
    {
        return false;
    }
    Wide const scale = powersOfTen.values[precision];
    Wide const value =
        isInteger ? (binary.odd << binary.exponent) * scale : ((binary.odd * scale >> (-binary.exponent - 1)) + 1) >> 1;
    // One digit stands before the point at least, and all of the places behind it.
    int const least = precision + 1;
    char digits[48];
    char * const end = std::end(digits);
    char * const first = end - least;
    char * const begin = WriteWideBackward(value, end);
    std::fill(std::min(first, begin), begin, '0');
    text.length = static_cast<int>(end - std::min(first, begin));
    std::memcpy(text.digits, std::min(first, begin), static_cast<std::size_t>(text.length));
    text.integerDigits = text.length - precision;
    text.exponent = 0;
    return true;
}

} // namespace

void PrintFixed(double magnitude, int precision, DecimalText & text)
{
    OddBinary const binary = SplitBinary(magnitude);
    if (PrintFixedFast(binary, precision, text))
    {
        return;
    }
    bool const halfWay = IsHalfWayFixed(binary, precision);
    int const places = precision + (halfWay ? 1 : 0);
    char * const end =
        std::to_chars(text.digits, std::end(text.digits), magnitude, std::chars_format::fixed, places).ptr;
    int const length = static_cast<int>(end - text.digits);
    text.integerDigits = places > 0 ? length - places - 1 : length;
    text.length = DropPoint(text.digits, length, text.integerDigits);
    text.exponent = 0;
    if (halfWay)
    {
        // to_chars would round to even; the run-time library rounds up.
        --text.length;
        if (IncrementDigits(text.digits, text.length))
        {
            text.digits[text.length++] = '0';
            ++text.integerDigits;
        }
    }
}

void PrintScientific(double magnitude, int precision, DecimalText & text)
{
    // One place more than wanted: where the number is half way, these are all of its digits.
    auto const print = [&](int places)
    {
        char * const end =
            std::to_chars(text.digits, std::end(text.digits), magnitude, std::chars_format::scientific, places).ptr;
        char * const mark = std::find(text.digits, end, 'e');
        bool const negative = mark[1] == '-';
        std::from_chars(mark + 2, end, text.exponent);
        text.exponent = negative ? -text.exponent : text.exponent;
        text.integerDigits = 1;
        text.length = DropPoint(text.digits, static_cast<int>(mark - text.digits), 1);
    };
    print(precision + 1);
    if (!IsHalfWayScientific(SplitBinary(magnitude), text.exponent, precision))
    {
        print(precision);
        return;
    }
    --text.length;
    if (IncrementDigits(text.digits, text.length))
    {
        ++text.exponent;
    }
}

int PrintNonFinite(double value, int precision, char * word)
{
    char const * const whole = std::isinf(value) ? "#INF" : std::signbit(value) ? "#IND" : "#QNAN";
    int const length = std::min(static_cast<int>(std::strlen(whole)), precision);
    std::copy_n(whole, length, word);
    // Kept: the library rounds these words as if they were digits, so that ".2" makes "#J" of "#INF".
    if (length > 0 && whole[length] >= '5')
    {
        ++word[length - 1];
    }
    return length;
}

} // namespace kv::platform
