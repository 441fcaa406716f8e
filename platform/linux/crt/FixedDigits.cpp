#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstring>
#include <iterator>

#include <kvcore/platform/include/crt.h>
#include <kvcore/platform/linux/crt/DecimalText.h>

namespace
{

using kv::platform::DecimalText;

int Fail(int code)
{
    errno = code;
    return code;
}

/// Where the point of a number stands that has no digit at the wanted precision: that of its first digit, but, as in
/// the Windows run-time library, never farther than ten places or `decimals` behind the point.
int PositionOfVanished(double magnitude, int decimals)
{
    char text[32];
    char * const end = std::to_chars(text, std::end(text), magnitude, std::chars_format::scientific).ptr;
    char const * const mark = std::find(text, end, 'e');
    int exponent = 0;
    std::from_chars(mark + 2, end, exponent);
    return std::max(1 - exponent, -std::max(decimals, 10));
}

/// What is to be printed: `text.digits[first .. first + count)`, then `zeros` zeros.
struct Digits
{
    DecimalText text;
    int first;
    int count;
    int zeros;
    int position;
};

void MakeNonFinite(double value, int decimals, Digits & digits)
{
    digits.text.digits[0] = '1';
    digits.first = 0;
    digits.count = 1 + kv::platform::PrintNonFinite(value, decimals, digits.text.digits + 1);
    digits.zeros = decimals - (digits.count - 1);
    digits.position = 1;
}

void MakeFinite(double magnitude, int decimals, Digits & digits)
{
    int const places = std::min(decimals, kv::platform::maxFractionDigits);
    kv::platform::PrintFixed(magnitude, places, digits.text);
    DecimalText const & text = digits.text;
    digits.zeros = decimals - places;
    if (text.digits[0] != '0')
    {
        digits.first = 0;
        digits.position = text.integerDigits;
    }
    else if (magnitude == 0)
    {
        digits.first = 1;
        digits.position = 0;
    }
    else
    {
        char const * const end = text.digits + text.length;
        char const * const begin = std::find_if(text.digits, end, [](char c) { return c != '0'; });
        digits.first = static_cast<int>(begin - text.digits);
        digits.position = begin != end ? 1 - digits.first : PositionOfVanished(magnitude, decimals);
        if (begin == end)
        {
            digits.zeros = 0;
        }
    }
    digits.count = text.length - digits.first;
}

} // namespace

int _fcvt_s(char * buffer, std::size_t capacity, double value, int decimals, int * decimalPosition, int * sign)
{
    if (buffer == nullptr || capacity == 0 || decimalPosition == nullptr || sign == nullptr)
    {
        return Fail(EINVAL);
    }
    Digits digits;
    if (std::isfinite(value))
    {
        MakeFinite(std::fabs(value), std::max(decimals, 0), digits);
    }
    else
    {
        MakeNonFinite(value, std::max(decimals, 0), digits);
    }
    if (decimals < 0)
    {
        // Kept: places before the point are cut off, not rounded away, and the point stays where it was.
        digits.count = decimals > -digits.count ? digits.count + decimals : 0;
    }
    std::size_t const count = static_cast<std::size_t>(digits.count);
    std::size_t const zeros = static_cast<std::size_t>(digits.zeros);
    if (count + zeros >= capacity)
    {
        *buffer = 0;
        return Fail(ERANGE);
    }
    std::memcpy(buffer, digits.text.digits + digits.first, count);
    std::memset(buffer + count, '0', zeros);
    buffer[count + zeros] = 0;
    *decimalPosition = digits.position;
    *sign = std::signbit(value) ? 1 : 0;
    return 0;
}
