#include <kvcore/frame/Approximation.h>

#include <cmath>

double ternary_approximation_for_strictly_increasing_function(
    IMathFunction * f, double low, double high, double target, double & tolerance)
{
    if (high == low)
    {
        return low;
    }
    double a = low;
    double b = high;
    double atA = f->Evaluate(a);
    double atB = f->Evaluate(b);
    if (target <= atA)
    {
        return low;
    }
    if (target >= atB)
    {
        return high;
    }
    for (;;)
    {
        if (std::abs(atA - target) <= tolerance)
        {
            tolerance = atA - target;
            return a;
        }
        if (std::abs(atB - target) <= tolerance)
        {
            tolerance = atB - target;
            return b;
        }
        double const third = (b - a) / 3.0;
        double const p = a + third;
        double const q = b - third;
        double const atP = f->Evaluate(p);
        if (target < atP)
        {
            b = p;
            atB = atP;
            continue;
        }
        a = p;
        atA = atP;
        double const atQ = f->Evaluate(q);
        if (target < atQ)
        {
            b = q;
            atB = atQ;
        }
        else
        {
            a = q;
            atA = atQ;
        }
    }
}

namespace
{

/// Where the parabola through three points, of ascending x, reaches `target`.
double Solve(double const (&x)[3], double const (&y)[3], double target)
{
    double a = ((x[0] - x[1]) * y[2] + (x[1] - x[2]) * y[0] + (x[2] - x[0]) * y[1]) /
        ((x[0] - x[1]) * x[2] * x[2] + (x[1] - x[2]) * x[0] * x[0] + (x[2] - x[0]) * x[1] * x[1]);
    if (std::abs(a) < 1e-10)
    {
        a = 0;
    }
    double const b = ((y[0] - y[1]) - a * (x[0] * x[0] - x[1] * x[1])) / (x[0] - x[1]);
    double const c = y[0] - b * x[0] - a * x[0] * x[0];
    if (a == 0)
    {
        return (target - c) / b;
    }
    // Not a number if the parabola misses the target; the function is then asked for just that.
    double const root = std::sqrt(b * b - 4 * a * (c - target));
    double const first = (root - b) / (2 * a);
    double const second = (-b - root) / (2 * a);
    return x[0] <= first && first <= x[2] ? first : second;
}

} // namespace

double quadratic_approximation_for_strictly_increasing_function(
    IMathFunction * f, double low, double high, double target, double & tolerance)
{
    if (high == low)
    {
        return low;
    }
    double x[3] = {low, 0, high};
    double y[3];
    y[0] = f->Evaluate(x[0]);
    y[2] = f->Evaluate(x[2]);
    x[1] = (low + high) * 0.5;
    y[1] = f->Evaluate(x[1]);
    if (y[0] >= target)
    {
        tolerance = y[0] - target;
        return low;
    }
    if (y[2] <= target)
    {
        tolerance = target - y[2];
        return high;
    }
    for (;;)
    {
        for (int i = 0; i < 3; ++i)
        {
            if (std::abs(y[i] - target) <= tolerance || y[(i + 1) % 3] == y[i])
            {
                tolerance = y[i] - target;
                return x[i];
            }
        }
        double const next = Solve(x, y, target);
        double const atNext = f->Evaluate(next);
        int const replaced = target > atNext ? 0 : 2;
        x[replaced] = next;
        y[replaced] = atNext;
        x[1] = (x[0] + x[2]) * 0.5;
        y[1] = f->Evaluate(x[1]);
    }
}
