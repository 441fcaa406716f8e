#include <algorithm>
#include <array>
#include <bit>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <string>
#include <string_view>

#include <kvcore/core/NumberText.h>
#include <kvcore/core/ScratchBuffer.h>
#include <kvcore/core/String.h>
#include <kvcore/platform/win32.h>

// Reading integers

namespace
{

constexpr unsigned char noDigit = 0xFF;

/// The value of each byte as a digit of radix 36.
constexpr auto digitValues = []
{
    std::array<unsigned char, 256> values{};
    values.fill(noDigit);
    for (unsigned char i = 0; i < 10; ++i)
    {
        values[std::size_t('0') + i] = i;
    }
    for (unsigned char i = 0; i < 26; ++i)
    {
        values[std::size_t('a') + i] = static_cast<unsigned char>(10 + i);
        values[std::size_t('A') + i] = static_cast<unsigned char>(10 + i);
    }
    return values;
}();

// Kept: only the low byte counts, so U+0130 is a '0'. Numbers stored by old versions in other scripts' digits' place
// have always been read so.
unsigned char DigitValue(WCHAR c)
{
    return digitValues[c & 0xFF];
}

bool IsBlank(WCHAR c)
{
    return c == TEXT(' ') || c == TEXT('\t');
}

WCHAR const * SkipBlanks(WCHAR const * text)
{
    while (IsBlank(*text))
    {
        ++text;
    }
    return text;
}

/// Reads a whole text as a number of the width of `Unsigned`; signed numbers come in two's complement.
template <typename Unsigned>
bool ParseInteger(WCHAR const * text, Unsigned & result, int radix)
{
    result = 0;
    if (radix < 2 || radix > 36)
    {
        return false;
    }
    text = SkipBlanks(text);
    text += *text == TEXT('+') ? 1 : 0;
    bool const negative = *text == TEXT('-');
    text += negative ? 1 : 0;

    Unsigned value = 0;
    for (unsigned char digit; (digit = DigitValue(*text)) != noDigit; ++text)
    {
        Unsigned const next = static_cast<Unsigned>(value * static_cast<Unsigned>(radix) + digit);
        // Kept: a weak test, which many overflows pass. What they wrap to is in stored data.
        if (digit >= radix || next < value)
        {
            return false;
        }
        value = next;
    }

    // Kept: blanks behind a number are let pass only if it lies beyond the signed type's range.
    Unsigned const limit = static_cast<Unsigned>((std::numeric_limits<Unsigned>::max() >> 1) + (negative ? 1 : 0));
    if (value > limit)
    {
        text = SkipBlanks(text);
    }
    if (*text != 0)
    {
        return false;
    }
    result = negative ? static_cast<Unsigned>(0 - value) : value;
    return true;
}

} // namespace

bool String::ParseNum(int & value, int radix) const
{
    std::uint32_t bits;
    bool const good = ParseInteger(c_str(), bits, radix);
    value = static_cast<int>(bits);
    return good;
}

bool String::ParseNum(unsigned int & value, int radix) const
{
    return ParseInteger(c_str(), value, radix);
}

bool String::ParseNum(__int64 & value, int radix) const
{
    unsigned __int64 bits;
    bool const good = ParseInteger(c_str(), bits, radix);
    value = static_cast<__int64>(bits);
    return good;
}

bool String::ParseNum(unsigned __int64 & value, int radix) const
{
    return ParseInteger(c_str(), value, radix);
}

bool String::ParseChannelsNum(int & value) const
{
    value = 0;
    WCHAR const * text = c_str();
    std::uint32_t number = 0;
    for (unsigned char digit; (digit = DigitValue(*text)) < 10; ++text)
    {
        std::uint32_t const next = number * 10 + digit;
        if (next < number)
        {
            return false;
        }
        number = next;
    }
    if ((*text & 0xFF) != 0)
    {
        return false;
    }
    value = static_cast<int>(number);
    return true;
}

// Reading floating-point numbers

namespace
{

/// Whether `text` begins like a NaN, with or without a sign.
bool BeginsLikeNaN(std::string_view text)
{
    bool const hasSign = text.starts_with('+') || text.starts_with('-');
    return text.substr(hasSign ? 1 : 0).starts_with("nan");
}

/// Whether what stands behind "nan" is nothing, or letters, digits and '_' in parentheses.
bool IsNaNTail(std::string_view tail)
{
    constexpr char const * inside = "0123456789abcdefghijklmnopqrstuvwxyz_";
    return tail.empty() ||
        (tail.size() >= 2 && tail.front() == '(' && tail.back() == ')' &&
         tail.find_first_not_of(inside, 1) == tail.size() - 1);
}

/// What from_chars means by "out of range" for the unsigned number in [begin, end): a value too large, which is read as
/// infinity, or one too small, which is read as 0.
double OutOfRange(char const * begin, char const * end, bool hexadecimal)
{
    std::string_view const number(begin, std::size_t(end - begin));
    std::size_t const mark = number.find(hexadecimal ? 'p' : 'e');
    std::string_view const digits = number.substr(0, mark);
    std::size_t const leading = digits.find_first_not_of("0.");
    if (leading == std::string_view::npos)
    {
        return 0;
    }
    __int64 exponent = 0;
    if (mark != std::string_view::npos)
    {
        char const * const first = begin + mark + (number[mark + 1] == '+' ? 2 : 1);
        if (std::from_chars(first, end, exponent).ec != std::errc())
        {
            return *first == '-' ? 0 : std::numeric_limits<double>::infinity();
        }
    }
    std::size_t const point = std::min(digits.find('.'), digits.size());
    __int64 const place = static_cast<__int64>(point) - static_cast<__int64>(leading);
    return place * (hexadecimal ? 4 : 1) > -exponent ? std::numeric_limits<double>::infinity() : 0;
}

} // namespace

// from_chars alone knows no '+', no "0x" and no infinity for what is too large.
char const * kv::detail::ReadDouble(char const * begin, char const * end, double & value)
{
    value = 0;
    char const * digits = begin;
    bool const negative = digits != end && *digits == '-';
    digits += digits != end && (*digits == '-' || *digits == '+');
    bool const hexadecimal = end - digits > 2 && digits[0] == '0' && digits[1] == 'x' &&
        std::string_view(digits + 2, end).find_first_of("0123456789abcdef") == std::size_t(digits[2] == '.');
    digits += hexadecimal ? 2 : 0;
    if (digits == end || *digits == '-')
    {
        return begin;
    }
    std::from_chars_result const read =
        std::from_chars(digits, end, value, hexadecimal ? std::chars_format::hex : std::chars_format::general);
    if (read.ec == std::errc::invalid_argument)
    {
        return begin;
    }
    if (read.ec == std::errc::result_out_of_range)
    {
        value = OutOfRange(digits, read.ptr, hexadecimal);
    }
    value = negative ? -value : value;
    return read.ptr;
}

namespace
{

/// The number that all of `text` stands for.
bool ParseDouble(std::string_view text, double & value)
{
    // strtod skips white space, but not the same white space in every run-time library.
    text.remove_prefix(std::min(text.find_first_not_of("\n\v\f\r"), text.size()));
    // Nor do they agree about what may stand in the parentheses of a NaN, and what NaN comes of it.
    if (BeginsLikeNaN(text))
    {
        value = std::numeric_limits<double>::quiet_NaN();
        return IsNaNTail(text.substr(text.find('n') + 3));
    }
    char const * const begin = text.data();
    char const * const end = begin + text.size();
    char const * const stop = kv::detail::ReadDouble(begin, end, value);
    return stop != begin && stop == end;
}

} // namespace

bool String::ParseNum(double & value) const
{
    WCHAR const * text = SkipBlanks(c_str());
    kv::detail::ScratchBuffer<char, 128> scratch(size() + 1);
    std::size_t length = 0;
    for (; *text != 0 && !IsBlank(*text); ++text)
    {
        if (*text > 0x7F)
        {
            value = 0.0;
            return false;
        }
        bool const upper = *text >= TEXT('A') && *text <= TEXT('Z');
        scratch.Data()[length++] = static_cast<char>(upper ? *text + ('a' - 'A') : *text);
    }
    scratch.Data()[length] = '\0';
    if (length == 0 || !ParseDouble(std::string_view(scratch.Data(), length), value))
    {
        value = 0.0;
        return false;
    }
    return true;
}

namespace
{

/// The nearest float. A plain conversion of what no float comes near to is undefined.
float Narrowed(double value)
{
    // Halfway between the largest float and what would be the next: from here on the nearest is infinity.
    constexpr double tooLarge = 0x1.ffffffp127;
    if (std::isfinite(value) && std::abs(value) >= tooLarge)
    {
        return std::copysign(std::numeric_limits<float>::infinity(), static_cast<float>(std::copysign(1.0, value)));
    }
    return static_cast<float>(value);
}

} // namespace

bool String::ParseNum(float & value) const
{
    double wide;
    bool const good = ParseNum(wide);
    value = Narrowed(wide);
    return good;
}

// Printing integers

namespace
{

/// Writes the decimal digits of `value` so that they end before `end`, and returns where they begin.
template <typename Element, typename Unsigned>
Element * WriteDecimal(Unsigned value, Element * end)
{
    // Two digits a step: the divisions are what the time goes into.
    static constexpr auto pairs = []
    {
        std::array<Element, 200> digits{};
        for (std::size_t i = 0; i < 100; ++i)
        {
            digits[2 * i] = static_cast<Element>('0' + i / 10);
            digits[2 * i + 1] = static_cast<Element>('0' + i % 10);
        }
        return digits;
    }();
    while (value >= 100)
    {
        end -= 2;
        std::memcpy(end, &pairs[2 * static_cast<std::size_t>(value % 100)], 2 * sizeof(Element));
        value /= 100;
    }
    if (value >= 10)
    {
        end -= 2;
        std::memcpy(end, &pairs[2 * static_cast<std::size_t>(value)], 2 * sizeof(Element));
        return end;
    }
    *--end = static_cast<Element>('0' + value);
    return end;
}

/// Prints `value` at `radix`, with a minus sign in front if `negative`.
template <typename Unsigned>
String PrintInteger(Unsigned value, bool negative, int radix)
{
    if (radix < 2 || radix > 36)
    {
        return String();
    }
    WCHAR text[1 + std::numeric_limits<Unsigned>::digits];
    WCHAR * const end = text + std::size(text);
    WCHAR * begin = end;
    if (radix == 10)
    {
        begin = WriteDecimal(value, end);
    }
    else
    {
        Unsigned const divisor = static_cast<Unsigned>(radix);
        do
        {
            *--begin = TEXT("0123456789abcdefghijklmnopqrstuvwxyz")[value % divisor];
            value /= divisor;
        } while (value != 0);
    }
    if (negative)
    {
        *--begin = TEXT('-');
    }
    return String(begin, static_cast<unsigned int>(end - begin));
}

/// A signed number: its two's complement, except at radix 10.
template <typename Unsigned, typename Signed>
String PrintSigned(Signed value, int radix)
{
    bool const negative = value < 0 && radix == 10;
    Unsigned const bits = static_cast<Unsigned>(value);
    return PrintInteger(negative ? static_cast<Unsigned>(0 - bits) : bits, negative, radix);
}

} // namespace

String String::FromNum(int value, int radix)
{
    return PrintSigned<unsigned int>(value, radix);
}

String String::FromNum(unsigned int value, int radix)
{
    return PrintInteger(value, false, radix);
}

String String::FromNum(__int64 value, int radix)
{
    return PrintSigned<unsigned __int64>(value, radix);
}

String String::FromNum(unsigned __int64 value, int radix)
{
    return PrintInteger(value, false, radix);
}

// Printing floating-point numbers

namespace
{

constexpr int maxDecimals = 60;
constexpr int fixedCapacity = 349; // of the buffer for the digits; they need its last two places for themselves

/// The text "[-]whole[.fraction]" for digits as _fcvt_s gives them, without trailing zeros.
String FromFixedDigits(std::string_view digits, int point, bool negative)
{
    // A run-time library that ran out of room may place the point behind the digits that it printed.
    std::size_t const whole = std::min(digits.size(), std::size_t(std::max(point, 0)));
    std::string_view fraction = digits.substr(whole);
    fraction = fraction.substr(0, fraction.find_last_not_of('0') + 1);

    std::string text(negative ? "-" : "");
    text += point < 1 ? std::string_view("0") : digits.substr(0, whole);
    std::size_t const zeros = point < 0 ? std::size_t(-point) : 0;
    // Kept: the zeros are printed even if no digit is left behind them, so 0.0005 with 2 decimals is "0.000".
    if (!fraction.empty() || zeros != 0)
    {
        text += '.';
        text.append(zeros, '0');
        text += fraction;
    }
    return String::FromLatin1(text);
}

/// Numbers that are not finite, and those of which rounding leaves nothing: they look as the run-time library says.
String FromUnusualDouble(double value, int decimals)
{
    char digits[fixedCapacity];
    int point;
    int sign;
    if (_fcvt_s(digits, sizeof(digits), value, decimals, &point, &sign) != 0)
    {
        return String();
    }
    return FromFixedDigits(std::string_view(digits, strnlen(digits, sizeof(digits))), point, sign != 0);
}

/// Whether `magnitude` lies exactly halfway between two numbers of `decimals` places. Its last binary place is then the
/// one behind `decimals`: an odd m over 2^(d+1), times 10^d, is m * 5^d over 2.
bool IsTie(double magnitude, int decimals)
{
    int exponent;
    double const fraction = std::frexp(magnitude, &exponent);
    auto const mantissa = static_cast<std::uint64_t>(std::ldexp(fraction, 53));
    return mantissa != 0 && exponent - 53 + std::countr_zero(mantissa) == -(decimals + 1);
}

/// Adds 1 to the last digit of a number, which may hold a point, and returns where it begins now: there has to be room
/// for one digit in front.
char * Increment(char * begin, char * end)
{
    for (char * digit = end; digit != begin;)
    {
        --digit;
        if (*digit == '9')
        {
            *digit = '0';
        }
        else if (*digit != '.')
        {
            ++*digit;
            return begin;
        }
    }
    *--begin = '1';
    return begin;
}

/// Prints a finite number exactly rounded, ties away from zero.
String FromFiniteDouble(double value, int decimals)
{
    char buffer[2 + std::numeric_limits<double>::max_exponent10 + 1 + 1 + maxDecimals + 1];
    char * begin = buffer + 2;
    double const magnitude = std::abs(value);
    // to_chars rounds a tie to the even neighbour. With one place more it is printed as it is, with a 5 at the end.
    bool const tie = IsTie(magnitude, decimals);
    char * end =
        std::to_chars(begin, buffer + sizeof(buffer), magnitude, std::chars_format::fixed, decimals + (tie ? 1 : 0))
            .ptr;
    if (tie)
    {
        --end;
        end -= decimals == 0 ? 1 : 0; // the point
        begin = Increment(begin, end);
    }
    std::string_view text(begin, std::size_t(end - begin));
    if (text.find_first_not_of("0.") == text.npos && value != 0.0)
    {
        return FromUnusualDouble(value, decimals);
    }
    if (text.size() - (decimals != 0 ? 1 : 0) > fixedCapacity - 2)
    {
        return String();
    }
    if (decimals != 0)
    {
        text = text.substr(0, text.find_last_not_of('0') + 1);
        text = text.substr(0, text.find_last_not_of('.') + 1);
    }
    if (std::signbit(value))
    {
        *--begin = '-';
        text = std::string_view(begin, text.size() + 1);
    }
    return String::FromLatin1(text.data(), static_cast<unsigned int>(text.size()));
}

#ifdef __SIZEOF_INT128__

__extension__ typedef unsigned __int128 Wide;

constexpr int maxQuickDecimals = 19; // 10 to this is below 2^64

constexpr auto powersOfTen = []
{
    std::array<std::uint64_t, maxQuickDecimals + 1> powers{1};
    for (std::size_t i = 1; i < powers.size(); ++i)
    {
        powers[i] = powers[i - 1] * 10;
    }
    return powers;
}();

/// A number as whole units and, in units of 10^-decimals, what is behind the point.
struct SplitNumber
{
    std::uint64_t whole;
    std::uint64_t fraction;
};

/// Splits a number, rounded with ties away from zero. False if the exact way to the fraction needs more bits than there
/// are, or if rounding leaves nothing.
bool SplitAtPoint(double magnitude, int decimals, SplitNumber & parts)
{
    auto const bits = std::bit_cast<std::uint64_t>(magnitude);
    int const exponent = static_cast<int>(bits >> 52) - 1075;
    if (exponent >= 0 || exponent <= -120 || decimals > maxQuickDecimals)
    {
        return false;
    }
    std::uint64_t const mantissa = (bits & ((std::uint64_t(1) << 52) - 1)) | (std::uint64_t(1) << 52);
    Wide const one = Wide(1) << -exponent;
    std::uint64_t const unit = powersOfTen[std::size_t(decimals)];
    parts.whole = static_cast<std::uint64_t>(mantissa >> std::min(-exponent, 63));
    parts.fraction = static_cast<std::uint64_t>(((mantissa & (one - 1)) * unit + one / 2) >> -exponent);
    if (parts.fraction == unit)
    {
        ++parts.whole;
        parts.fraction = 0;
    }
    return (parts.whole | parts.fraction) != 0;
}

/// Prints a split number: no long arithmetic, and no zeros that are printed to be dropped.
String FromSplitNumber(SplitNumber const & parts, int decimals, bool negative)
{
    WCHAR text[1 + 20 + 1 + maxQuickDecimals];
    WCHAR * const point = text + 21;
    WCHAR * begin = WriteDecimal(parts.whole, point);
    WCHAR * end = point;
    if (parts.fraction != 0)
    {
        end = point + 1 + decimals;
        WCHAR * const digits = WriteDecimal(parts.fraction, end);
        std::fill(point + 1, digits, TEXT('0'));
        *point = TEXT('.');
        while (end[-1] == TEXT('0'))
        {
            --end;
        }
    }
    if (negative)
    {
        *--begin = TEXT('-');
    }
    return String(begin, static_cast<unsigned int>(end - begin));
}

#endif

} // namespace

String String::FromNum(double value, int decimals)
{
    decimals = std::clamp(decimals, 0, maxDecimals);
    if (!std::isfinite(value))
    {
        return FromUnusualDouble(value, decimals);
    }
#ifdef __SIZEOF_INT128__
    if (SplitNumber parts; SplitAtPoint(std::abs(value), decimals, parts))
    {
        return FromSplitNumber(parts, decimals, std::signbit(value));
    }
#endif
    return FromFiniteDouble(value, decimals);
}
