// The number parsers on any text, beside the same rules written out plainly; and numbers printed and parsed back.

#include <cmath>
#include <limits>

#include <kvcore/core/String.h>

#include "Fuzz.h"

namespace
{

bool IsBlank(WCHAR c)
{
    return c == 0x20 || c == 0x09;
}

/// The value of a digit, of which only the low byte counts, or -1.
int DigitOf(WCHAR c)
{
    unsigned char const low = static_cast<unsigned char>(c);
    return low >= '0' && low <= '9' ? low - '0'
        : low >= 'a' && low <= 'z'  ? low - 'a' + 10
        : low >= 'A' && low <= 'Z'  ? low - 'A' + 10
                                    : -1;
}

template <class U>
bool ReferenceInteger(WCHAR const * text, int radix, U & result)
{
    result = 0;
    if (radix < 2 || radix > 36)
    {
        return false;
    }
    while (IsBlank(*text))
    {
        ++text;
    }
    text += *text == '+';
    bool const negative = *text == '-';
    text += negative;
    U value = 0;
    for (int digit; (digit = DigitOf(*text)) >= 0; ++text)
    {
        if (digit >= radix)
        {
            return false;
        }
        U const next = static_cast<U>(value * static_cast<U>(radix) + static_cast<U>(digit));
        if (next < value)
        {
            return false;
        }
        value = next;
    }
    U const limit = static_cast<U>((static_cast<U>(-1) >> 1) + (negative ? 1 : 0));
    while (value > limit && IsBlank(*text))
    {
        ++text;
    }
    if (*text != 0)
    {
        return false;
    }
    result = negative ? static_cast<U>(0 - value) : value;
    return true;
}

template <class T, class U>
void CheckInteger(String const & text, int radix)
{
    U expected = 0;
    T value = 77;
    bool const expectedResult = ReferenceInteger(text.c_str(), radix, expected);
    fuzz::Check(text.ParseNum(value, radix) == expectedResult, "an integer parser has another result");
    fuzz::Check(static_cast<U>(value) == expected, "an integer parser gives another value");
}

bool ReferenceDouble(String const & text, double & result)
{
    result = 0;
    WCHAR const * next = text.c_str();
    while (IsBlank(*next))
    {
        ++next;
    }
    std::string scratch;
    for (; *next != 0 && !IsBlank(*next); ++next)
    {
        if (*next > 0x7F)
        {
            return false;
        }
        char const c = static_cast<char>(*next);
        scratch += c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
    }
    if (scratch == "inf" || scratch == "+inf" || scratch == "-inf")
    {
        result = scratch[0] == '-' ? -HUGE_VAL : HUGE_VAL;
        return true;
    }
    if (scratch == "nan")
    {
        result = std::numeric_limits<double>::quiet_NaN();
        return true;
    }
    char * end = nullptr;
    double const value = std::strtod(scratch.c_str(), &end);
    if (scratch.empty() || *end != 0)
    {
        return false;
    }
    result = value;
    return true;
}

bool Same(double left, double right)
{
    return (std::isnan(left) && std::isnan(right)) || std::memcmp(&left, &right, sizeof(left)) == 0;
}

void CheckDouble(String const & text)
{
    double expected = 0;
    double value = 77;
    bool const expectedResult = ReferenceDouble(text, expected);
    fuzz::Check(text.ParseNum(value) == expectedResult, "the double parser has another result");
    fuzz::Check(Same(value, expected), "the double parser gives another value");
    float narrow = 77;
    fuzz::Check(text.ParseNum(narrow) == expectedResult, "the float parser has another result");
    fuzz::Check(Same(narrow, static_cast<float>(expected)), "the float parser is not the double parser narrowed");
}

void CheckChannels(String const & text)
{
    std::uint32_t value = 0;
    bool expected = true;
    WCHAR const * next = text.c_str();
    for (int digit; expected && (digit = DigitOf(*next)) >= 0 && digit < 10; ++next)
    {
        std::uint32_t const grown = value * 10 + static_cast<std::uint32_t>(digit);
        expected = grown >= value;
        value = grown;
    }
    expected = expected && (*next & 0xFF) == 0;
    int parsed = 77;
    fuzz::Check(text.ParseChannelsNum(parsed) == expected, "the channels parser has another result");
    fuzz::Check(
        static_cast<std::uint32_t>(parsed) == (expected ? value : 0), "the channels parser gives another value");
}

/// Numbers that were printed come back.
void CheckPrinted(std::uint64_t bits, int radix, int decimals)
{
    int const small = static_cast<int>(bits);
    int parsed = 0;
    fuzz::Check(String::FromNum(small, 10).ParseNum(parsed, 10) && parsed == small, "a printed int does not come back");
    __int64 const large = static_cast<__int64>(bits);
    __int64 parsedLarge = 0;
    fuzz::Check(
        String::FromNum(large, 10).ParseNum(parsedLarge, 10) && parsedLarge == large,
        "a printed __int64 does not come back");
    unsigned __int64 parsedUnsigned = 0;
    fuzz::Check(
        String::FromNum(static_cast<unsigned __int64>(bits), radix).ParseNum(parsedUnsigned, radix) &&
            parsedUnsigned == bits,
        "a printed unsigned __int64 does not come back");

    double value;
    std::memcpy(&value, &bits, sizeof(value));
    String const text = String::FromNum(value, decimals);
    if (std::isfinite(value))
    {
        double parsedDouble = 0;
        if (text.empty())
        {
            // There is room for so many digits and no more.
            double const digits = std::log10(std::abs(value)) + std::clamp(decimals, 0, 60);
            fuzz::Check(digits > 345, "a double does not print");
            return;
        }
        fuzz::Check(text.ParseNum(parsedDouble), "a printed double does not parse");
        double const unit = std::pow(10, -std::clamp(decimals, 0, 60));
        fuzz::Check(
            std::abs(parsedDouble - value) <= unit * 0.5000001 + std::abs(value) * 1e-15,
            "a printed double comes back as another");
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const * data, std::size_t size)
{
    fuzz::Input input(data, size);
    std::uint8_t const choice = input.Byte();
    int const radix = choice < 64 ? 10 : static_cast<std::int8_t>(input.Byte());
    std::string const rest = input.Rest();
    // Half of the inputs are narrow: most of what matters to a parser is ASCII.
    String text;
    if (choice % 2 == 0)
    {
        text = String::FromLatin1(rest);
    }
    else
    {
        text = String(WString(rest.size() / 2, 0));
        std::memcpy(text.data(), rest.data(), text.size() * 2);
    }
    CheckInteger<int, std::uint32_t>(text, radix);
    CheckInteger<unsigned int, std::uint32_t>(text, radix);
    CheckInteger<__int64, std::uint64_t>(text, radix);
    CheckInteger<unsigned __int64, std::uint64_t>(text, radix);
    CheckDouble(text);
    CheckChannels(text);

    std::uint64_t bits = 0;
    std::memcpy(&bits, rest.data(), std::min(rest.size(), sizeof(bits)));
    CheckPrinted(bits, 2 + choice % 35, rest.empty() ? 0 : static_cast<std::int8_t>(rest.back()));
    return 0;
}
