#pragma once

// Solving f(x) = target for a strictly increasing function whose every value costs real work, such as the size of a
// picture by its quality.
//
// Both functions take the function as an object, an interval with low below high, on which it is strictly increasing
// (neither checks it), and a tolerance that goes both ways: on entry the greatest accepted distance |f(x) - target|, on
// exit the residual, as told for each way out. Both return x. What the function throws passes through.
//
// Threads: no state of their own.

#include <kvcore/platform/export.h>

/// The function, as the caller has it.
class IMathFunction
{
public:
    virtual double Evaluate(double x) = 0;

protected:
    ~IMathFunction() = default;
};

/// Shrinks the interval by thirds; one or two values of the function a round.
///
/// If low equals high, returns it without a call, and the tolerance keeps its value. The target at or below f(low)
/// gives low, at or above f(high) high, and the tolerance keeps its value, too. Otherwise it is f(x) - target, with its
/// sign.
///
/// Kept: only the tolerance ends it. One that the function cannot meet, at a jump or below the resolution of double,
/// keeps it going for ever: callers rely on never getting a value that misses their tolerance.
KVCORE_API double ternary_approximation_for_strictly_increasing_function(
    IMathFunction * f, double low, double high, double target, double & tolerance);

/// Shrinks the interval at the root of a parabola through three points; two values of the function a round, which is
/// soon done where the function is smooth.
///
/// If low equals high, returns it without a call, and the tolerance keeps its value. The target at or below f(low)
/// gives low and the tolerance f(low) - target, at or above f(high) high and target - f(high), neither below zero.
/// (Kept: the other function leaves the tolerance alone there.) Otherwise it is f(x) - target, with its sign. It also
/// ends where two of its three values are equal, on a flat stretch or when the interval has shrunk to nothing.
KVCORE_API double quadratic_approximation_for_strictly_increasing_function(
    IMathFunction * f, double low, double high, double target, double & tolerance);
