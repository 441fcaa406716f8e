#pragma once

// Digits of integers, written straight into UTF-16: shared by the number printers and the wide printf.

#include <bit>

#include <kvcore/platform/include/basetypes.h>

namespace kv::platform
{

/// The decimal digits of 0 to 99, two for each, so that a division by 100 yields two digits.
inline constexpr struct DecimalPairs
{
    WCHAR digits[200];
    constexpr DecimalPairs() : digits()
    {
        for (unsigned i = 0; i < 100; ++i)
        {
            digits[2 * i] = static_cast<WCHAR>('0' + i / 10);
            digits[2 * i + 1] = static_cast<WCHAR>('0' + i % 10);
        }
    }
} decimalPairs;

/// How many decimal digits `value` has; 1 for 0.
inline unsigned CountDecimalDigits(std::uint64_t value)
{
    static constexpr std::uint64_t powers[] = {
        0ull,
        10ull,
        100ull,
        1000ull,
        10000ull,
        100000ull,
        1000000ull,
        10000000ull,
        100000000ull,
        1000000000ull,
        10000000000ull,
        100000000000ull,
        1000000000000ull,
        10000000000000ull,
        100000000000000ull,
        1000000000000000ull,
        10000000000000000ull,
        100000000000000000ull,
        1000000000000000000ull,
        10000000000000000000ull};
    // 1233 / 4096 is just above log10(2), so the estimate is right or one too high.
    unsigned const estimate = static_cast<unsigned>(std::bit_width(value | 1)) * 1233u >> 12;
    return estimate + (value >= powers[estimate] ? 1u : 0u);
}

/// Writes the decimal digits of `value` so that they end before `end`, and returns where they begin. `Char` is an
/// element of either width.
template <typename Unsigned, typename Char>
inline Char * WriteDecimalBackward(Unsigned value, Char * end)
{
    while (value >= 100)
    {
        unsigned const pair = static_cast<unsigned>(value % 100) * 2;
        value /= 100;
        *--end = static_cast<Char>(decimalPairs.digits[pair + 1]);
        *--end = static_cast<Char>(decimalPairs.digits[pair]);
    }
    if (value >= 10)
    {
        *--end = static_cast<Char>(decimalPairs.digits[2 * value + 1]);
        *--end = static_cast<Char>(decimalPairs.digits[2 * value]);
    }
    else
    {
        *--end = static_cast<Char>('0' + value);
    }
    return end;
}

/// The same in any radix from 2 to 36; `letterBase` is what a digit of 10 is counted from ('a' or 'A', less 10).
template <typename Unsigned>
inline WCHAR * WriteRadixBackward(Unsigned value, unsigned radix, WCHAR letterBase, WCHAR * end)
{
    auto const digit = [letterBase](unsigned v) { return static_cast<WCHAR>(v < 10 ? u'0' + v : letterBase + v); };
    if (radix == 10)
    {
        return WriteDecimalBackward(value, end);
    }
    if (std::has_single_bit(radix))
    {
        int const shift = std::countr_zero(radix);
        do
        {
            *--end = digit(static_cast<unsigned>(value) & (radix - 1));
            value >>= shift;
        } while (value != 0);
        return end;
    }
    do
    {
        *--end = digit(static_cast<unsigned>(value % radix));
        value = static_cast<Unsigned>(value / radix);
    } while (value != 0);
    return end;
}

} // namespace kv::platform
