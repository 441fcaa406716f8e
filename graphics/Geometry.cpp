#include <kvcore/graphics/Geometry.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>

using kv::detail::AddWrapped;
using kv::detail::SubtractWrapped;

Point Rect::CenterPoint() const
{
    return Point(AddWrapped(left, right) / 2, AddWrapped(top, bottom) / 2);
}

void Rect::NormalizeRect()
{
    if (right < left)
    {
        std::swap(left, right);
    }
    if (bottom < top)
    {
        std::swap(top, bottom);
    }
}

void Rect::InflateRect(int leftAmount, int topAmount, int rightAmount, int bottomAmount)
{
    left = SubtractWrapped(left, leftAmount);
    top = SubtractWrapped(top, topAmount);
    right = AddWrapped(right, rightAmount);
    bottom = AddWrapped(bottom, bottomAmount);
}

void Rect::DeflateRect(int leftAmount, int topAmount, int rightAmount, int bottomAmount)
{
    left = AddWrapped(left, leftAmount);
    top = AddWrapped(top, topAmount);
    right = SubtractWrapped(right, rightAmount);
    bottom = SubtractWrapped(bottom, bottomAmount);
}

void Rect::OffsetRect(tagPOINT const & offset)
{
    Point const distance(offset); // which may be a corner of this rectangle
    left = AddWrapped(left, distance.x);
    top = AddWrapped(top, distance.y);
    right = AddWrapped(right, distance.x);
    bottom = AddWrapped(bottom, distance.y);
}

bool Rect::IntersectRect(tagRECT const & other)
{
    Rect const first(*this);
    Rect const second(other);
    *this = Rect(
        std::max(first.left, second.left), std::max(first.top, second.top), std::min(first.right, second.right),
        std::min(first.bottom, second.bottom));
    if (first.IsEmpty() || second.IsEmpty() || IsEmpty())
    {
        Empty();
        return false;
    }
    return true;
}

bool Rect::UnionRect(tagRECT const * first, tagRECT const * second)
{
    Rect const one(*first);
    Rect const other(*second);
    if (one.IsEmpty() && other.IsEmpty())
    {
        Empty();
        return false;
    }
    if (one.IsEmpty() || other.IsEmpty())
    {
        *this = one.IsEmpty() ? other : one;
        return true;
    }
    *this = Rect(
        std::min(one.left, other.left), std::min(one.top, other.top), std::max(one.right, other.right),
        std::max(one.bottom, other.bottom));
    return true;
}

bool Rect::SubtractRect(tagRECT const * first, tagRECT const * second)
{
    Rect const whole(*first);
    Rect const common = whole & *second;
    *this = whole;
    if (whole.IsEmpty())
    {
        Empty();
        return false;
    }
    if (common.IsEmpty())
    {
        return true;
    }
    if (common == whole)
    {
        Empty();
        return false;
    }
    if (common.top == whole.top && common.bottom == whole.bottom)
    {
        if (common.left == whole.left)
        {
            left = common.right;
        }
        else if (common.right == whole.right)
        {
            right = common.left;
        }
    }
    else if (common.left == whole.left && common.right == whole.right)
    {
        if (common.top == whole.top)
        {
            top = common.bottom;
        }
        else if (common.bottom == whole.bottom)
        {
            bottom = common.top;
        }
    }
    return true;
}

namespace
{

LONG MulDivRounded(LONG value, int multiplier, int divisor)
{
    if (divisor == 0)
    {
        return -1;
    }
    // The product has 63 bits at most, and half of the divisor beside it still fits.
    long long const product = static_cast<long long>(value) * multiplier;
    long long const size = std::abs(static_cast<long long>(divisor));
    long long const rounded = (std::abs(product) + size / 2) / size;
    long long const result = (product < 0) != (divisor < 0) ? -rounded : rounded;
    bool const fits = result >= std::numeric_limits<LONG>::min() && result <= std::numeric_limits<LONG>::max();
    return fits ? static_cast<LONG>(result) : -1;
}

} // namespace

Rect Rect::MulDiv(int multiplier, int divisor) const
{
    return Rect(
        MulDivRounded(left, multiplier, divisor), MulDivRounded(top, multiplier, divisor),
        MulDivRounded(right, multiplier, divisor), MulDivRounded(bottom, multiplier, divisor));
}

namespace
{

int Floor(double value)
{
    return static_cast<int>(std::floor(value)); // half a sum of two integers fits
}

/// Cuts a value off towards zero and holds it at `limit`, whatever it is.
int TruncateWithin(double value, int limit)
{
    // Written so that what is not a number, and what no integer holds, ends at the limit, too.
    if (!(value < limit))
    {
        return limit;
    }
    return value > std::numeric_limits<int>::min() ? static_cast<int>(value) : std::numeric_limits<int>::min();
}

int DownToStep(int length, int step)
{
    return length / step * step;
}

} // namespace

Rect Rect::CreateProportionalRect(Rect source, double ratio, int stepX, int stepY)
{
    int const centerX = Floor((static_cast<double>(source.left) + source.right) * 0.5);
    int const centerY = Floor((static_cast<double>(source.top) + source.bottom) * 0.5);
    stepX = std::max(stepX, 1);
    stepY = std::max(stepY, 1);
    int width = source.Width();
    int height = source.Height();
    // Kept: a ratio that is not a number goes on as if the height decided.
    if (!(ratio <= 0) && height != 0)
    {
        if (static_cast<double>(width) / height < ratio)
        {
            width = DownToStep(width, stepX);
            height = DownToStep(TruncateWithin(width / ratio + stepY * 0.5, height), stepY);
        }
        else
        {
            height = DownToStep(height, stepY);
            width = DownToStep(TruncateWithin(ratio * height + stepX * 0.5, width), stepX);
        }
    }
    Point const corner(SubtractWrapped(centerX, width / 2), SubtractWrapped(centerY, height / 2));
    return Rect(corner, Size(width, height));
}
