#pragma once

// The decimal digits of a double, as the Windows C run-time library prints them: exact, rounded half away from zero,
// with that library's own words for what is no number. Shared by the wide printf and _fcvt_s.

#include <cstddef>

namespace kv::platform
{

/// No double has more digits behind the point than this, nor more before it than `maxIntegerDigits`; digits asked for
/// beyond are zeros, which a caller adds by itself.
inline constexpr int maxFractionDigits = 1074;
inline constexpr int maxIntegerDigits = 309;
inline constexpr int maxSignificantDigits = 767;

/// A number in decimal: `digits[0 .. length)` with the point behind the first `integerDigits` of them.
struct DecimalText
{
    char digits[maxIntegerDigits + maxFractionDigits + 8];
    int length;
    int integerDigits;
    /// The decimal exponent, of the scientific form alone.
    int exponent;
};

/// `magnitude`, which is finite and not negative, with `precision` digits behind the point (0 to maxFractionDigits).
/// There is at least one digit before the point.
void PrintFixed(double magnitude, int precision, DecimalText & text);

/// The same with one digit before the point and a decimal exponent; `precision` is 0 to maxSignificantDigits - 1.
void PrintScientific(double magnitude, int precision, DecimalText & text);

/// The word for an infinity or for what is not a number, to stand behind "1.", as the library's callers see it:
/// "#INF", "#QNAN", or "#IND" for the negative ones of the latter. Cut to `precision` elements of `word`, which holds
/// six; returns how many there are.
int PrintNonFinite(double value, int precision, char * word);

} // namespace kv::platform
