#pragma once

#include <type_traits>

#include <kvcore/platform/export.h>
#include <kvcore/platform/types.h>

// Points, sizes and rectangles: plain values, laid out as the system's records and taken wherever those are.
//
// Nothing here checks, allocates or throws. Sums and differences wrap around at 32 bits. The three integer classes
// share memory with one another (Rect::TopLeft) and with the system's records, which the compiler must not reason away:
// hence the attribute.
//
// Threads: plain values; no shared state.

/// On a class whose objects share memory with those of other classes: the compiler must take that into account.
#define KVCORE_MAY_ALIAS __attribute__((may_alias))

namespace kv::detail
{

// Coordinates come from files too, so their sums must be defined, whatever they are.
constexpr LONG AddWrapped(LONG a, LONG b)
{
    return static_cast<LONG>(static_cast<DWORD>(a) + static_cast<DWORD>(b));
}
constexpr LONG SubtractWrapped(LONG a, LONG b)
{
    return static_cast<LONG>(static_cast<DWORD>(a) - static_cast<DWORD>(b));
}
constexpr LONG LowWord(unsigned int packed)
{
    return static_cast<short>(static_cast<unsigned short>(packed));
}
constexpr LONG HighWord(unsigned int packed)
{
    return static_cast<short>(static_cast<unsigned short>(packed >> 16));
}

} // namespace kv::detail

/// A place: x, then y. Laid out as the system's POINT, and one itself, so that either may stand for the other.
class KVCORE_MAY_ALIAS Point : public tagPOINT
{
public:
    /// (0, 0)
    constexpr Point() : tagPOINT{0, 0} {}
    constexpr Point(int pointX, int pointY) : tagPOINT{pointX, pointY} {}
    /// Both coordinates in 32 bits, as messages carry them: x in the low half, y in the high one, each with a sign.
    constexpr Point(unsigned int packed) : tagPOINT{kv::detail::LowWord(packed), kv::detail::HighWord(packed)} {}
    constexpr Point(tagPOINT const & point) : tagPOINT(point) {}
    /// The place at this distance from (0, 0).
    constexpr Point(tagSIZE const & size) : tagPOINT{size.cx, size.cy} {}

    /// The object itself, for calls of the system.
    operator tagPOINT *()
    {
        return this;
    }
    operator tagPOINT const *() const
    {
        return this;
    }

    constexpr bool operator==(Point const & other) const
    {
        return x == other.x && y == other.y;
    }
    constexpr bool operator==(tagPOINT const & other) const
    {
        return x == other.x && y == other.y;
    }
    constexpr bool operator!=(tagPOINT const & other) const
    {
        return !(*this == other);
    }

    constexpr Point & operator+=(tagPOINT const & offset)
    {
        x = kv::detail::AddWrapped(x, offset.x);
        y = kv::detail::AddWrapped(y, offset.y);
        return *this;
    }
    constexpr Point & operator+=(tagSIZE const & offset)
    {
        return *this += Point(offset);
    }
    constexpr Point & operator-=(tagPOINT const & offset)
    {
        x = kv::detail::SubtractWrapped(x, offset.x);
        y = kv::detail::SubtractWrapped(y, offset.y);
        return *this;
    }
    constexpr Point & operator-=(tagSIZE const & offset)
    {
        return *this -= Point(offset);
    }
    constexpr Point operator+(tagPOINT const & offset) const
    {
        return Point(*this) += offset;
    }
    constexpr Point operator+(tagSIZE const & offset) const
    {
        return Point(*this) += offset;
    }
    constexpr Point operator-(tagPOINT const & offset) const
    {
        return Point(*this) -= offset;
    }
    constexpr Point operator-(tagSIZE const & offset) const
    {
        return Point(*this) -= offset;
    }
    constexpr Point operator-() const
    {
        return Point() -= *this;
    }
};

/// An extent: cx, then cy. Laid out as the system's SIZE, and one itself.
class KVCORE_MAY_ALIAS Size : public tagSIZE
{
public:
    /// (0, 0)
    constexpr Size() : tagSIZE{0, 0} {}
    constexpr Size(int sizeX, int sizeY) : tagSIZE{sizeX, sizeY} {}
    /// Both extents in 32 bits: cx in the low half, cy in the high one, each with a sign.
    constexpr Size(unsigned int packed) : tagSIZE{kv::detail::LowWord(packed), kv::detail::HighWord(packed)} {}
    constexpr Size(tagSIZE const & size) : tagSIZE(size) {}
    /// The distance of a place from (0, 0).
    constexpr Size(tagPOINT const & point) : tagSIZE{point.x, point.y} {}

    /// The object itself, for calls of the system.
    operator tagSIZE *()
    {
        return this;
    }
    operator tagSIZE const *() const
    {
        return this;
    }

    constexpr bool operator==(Size const & other) const
    {
        return cx == other.cx && cy == other.cy;
    }
    constexpr bool operator==(tagSIZE const & other) const
    {
        return cx == other.cx && cy == other.cy;
    }
    constexpr bool operator!=(tagSIZE const & other) const
    {
        return !(*this == other);
    }

    constexpr Size & operator+=(tagSIZE const & other)
    {
        cx = kv::detail::AddWrapped(cx, other.cx);
        cy = kv::detail::AddWrapped(cy, other.cy);
        return *this;
    }
    constexpr Size & operator-=(tagSIZE const & other)
    {
        cx = kv::detail::SubtractWrapped(cx, other.cx);
        cy = kv::detail::SubtractWrapped(cy, other.cy);
        return *this;
    }
    constexpr Size operator+(tagSIZE const & other) const
    {
        return Size(*this) += other;
    }
    constexpr Size operator-(tagSIZE const & other) const
    {
        return Size(*this) -= other;
    }
    constexpr Size operator-() const
    {
        return Size() -= *this;
    }
};

namespace kv::detail
{

template <typename T, typename... U>
constexpr bool isOneOf = (std::is_same_v<T, U> || ...);

/// What is compared as a pair of numbers. One of the two is a class of ours; records of the system have no operators.
template <typename A, typename B>
concept ComparablePairs = isOneOf<A, Point, Size, tagPOINT, tagSIZE> && isOneOf<B, Point, Size, tagPOINT, tagSIZE> &&
    (isOneOf<A, Point, Size> || isOneOf<B, Point, Size>);

} // namespace kv::detail

/// Points compare with sizes as they convert to one another, member by member. A template, because it fits every
/// combination exactly: by conversions, either side could become the other's class.
template <typename A, typename B>
requires kv::detail::ComparablePairs<A, B>
constexpr bool operator==(A const & a, B const & b)
{
    return Point(a) == Point(b);
}

/// A rectangle: left, top, right, bottom. Laid out as the system's RECT, and one itself.
///
/// It holds the points with left <= x < right and top <= y < bottom: the right and bottom edges are outside. It keeps
/// no invariant: left may exceed right and top may exceed bottom, and nothing but NormalizeRect, and what says so, puts
/// that right. Such a rectangle is empty.
class KVCORE_API KVCORE_MAY_ALIAS Rect : public tagRECT
{
public:
    /// All zero.
    constexpr Rect() : tagRECT{0, 0, 0, 0} {}
    constexpr Rect(int rectLeft, int rectTop, int rectRight, int rectBottom)
        : tagRECT{rectLeft, rectTop, rectRight, rectBottom}
    {
    }
    constexpr Rect(tagRECT const & rect) : tagRECT(rect) {}
    /// A copy of what is pointed to; all zero for null.
    constexpr Rect(tagRECT const * rect) : tagRECT(rect != nullptr ? *rect : tagRECT{0, 0, 0, 0}) {}
    constexpr Rect(tagPOINT const & topLeft, tagPOINT const & bottomRight)
        : tagRECT{topLeft.x, topLeft.y, bottomRight.x, bottomRight.y}
    {
    }
    constexpr Rect(tagPOINT const & topLeft, tagSIZE const & size) : Rect(topLeft, Point(topLeft) + size) {}

    /// The object itself, for calls of the system.
    operator tagRECT *()
    {
        return this;
    }
    operator tagRECT const *() const
    {
        return this;
    }

    /// Negative if the rectangle is inverted.
    constexpr int Width() const
    {
        return kv::detail::SubtractWrapped(right, left);
    }
    constexpr int Height() const
    {
        return kv::detail::SubtractWrapped(bottom, top);
    }
    constexpr Size GetSize() const
    {
        return Size(Width(), Height());
    }
    /// The corners, in the object itself: what is assigned to them moves its edges.
    Point & TopLeft()
    {
        return reinterpret_cast<Point *>(this)[0];
    }
    Point const & TopLeft() const
    {
        return reinterpret_cast<Point const *>(this)[0];
    }
    Point & BottomRight()
    {
        return reinterpret_cast<Point *>(this)[1];
    }
    Point const & BottomRight() const
    {
        return reinterpret_cast<Point const *>(this)[1];
    }
    /// Halves are cut off towards zero: the centre of (-3, -3, 0, 0) is (-1, -1).
    Point CenterPoint() const;
    /// No point is inside: right <= left or bottom <= top. An inverted rectangle is empty.
    constexpr bool IsEmpty() const
    {
        return right <= left || bottom <= top;
    }
    /// Sets all four to zero.
    constexpr void Empty()
    {
        *this = Rect();
    }
    constexpr bool PtInRect(tagPOINT const & point) const
    {
        return left <= point.x && point.x < right && top <= point.y && point.y < bottom;
    }
    /// Equal width and equal height, wherever the two lie.
    constexpr bool HasEqualSize(tagRECT const & other) const
    {
        return GetSize() == Rect(other).GetSize();
    }
    constexpr bool operator==(Rect const & other) const
    {
        return *this == static_cast<tagRECT const &>(other);
    }
    constexpr bool operator==(tagRECT const & other) const
    {
        return left == other.left && top == other.top && right == other.right && bottom == other.bottom;
    }
    constexpr bool operator!=(tagRECT const & other) const
    {
        return !(*this == other);
    }
    friend constexpr bool operator==(tagRECT const & a, Rect const & b)
    {
        return b == a;
    }
    /// Swaps the edges that are the wrong way round.
    void NormalizeRect();

    // The changes in place check nothing: a rectangle may turn inverted.

    /// Moves the left and right edges out by `dx` each, the top and bottom edges by `dy`.
    void InflateRect(int dx, int dy)
    {
        InflateRect(dx, dy, dx, dy);
    }
    void InflateRect(tagSIZE const & amount)
    {
        InflateRect(amount.cx, amount.cy);
    }
    /// Moves all edges out by the same amount.
    void InflateRect(int amount)
    {
        InflateRect(amount, amount);
    }
    /// Moves each edge out by an amount of its own.
    void InflateRect(int leftAmount, int topAmount, int rightAmount, int bottomAmount);
    /// The same with the amounts in a record.
    void InflateRect(tagRECT const & amounts)
    {
        InflateRect(amounts.left, amounts.top, amounts.right, amounts.bottom);
    }
    /// InflateRect; must not be null.
    void operator+=(tagRECT const * amounts)
    {
        InflateRect(*amounts);
    }
    /// The same: a rectangle is a pointer to its record, too.
    void operator+=(Rect const & amounts)
    {
        InflateRect(amounts);
    }

    /// InflateRect the other way.
    void DeflateRect(int dx, int dy)
    {
        DeflateRect(dx, dy, dx, dy);
    }
    void DeflateRect(tagSIZE const & amount)
    {
        DeflateRect(amount.cx, amount.cy);
    }
    void DeflateRect(int amount)
    {
        DeflateRect(amount, amount);
    }
    void DeflateRect(int leftAmount, int topAmount, int rightAmount, int bottomAmount);
    void DeflateRect(tagRECT const & amounts)
    {
        DeflateRect(amounts.left, amounts.top, amounts.right, amounts.bottom);
    }
    /// DeflateRect; must not be null.
    void operator-=(tagRECT const * amounts)
    {
        DeflateRect(*amounts);
    }
    void operator-=(Rect const & amounts)
    {
        DeflateRect(amounts);
    }

    /// Moves the rectangle.
    void OffsetRect(int dx, int dy)
    {
        OffsetRect(Point(dx, dy));
    }
    void OffsetRect(tagPOINT const & offset);
    void OffsetRect(tagSIZE const & offset)
    {
        OffsetRect(Point(offset));
    }
    /// Kept: moves it by the same amount to the right and down. Drawing code moves shadows and insets so.
    void OffsetRect(int amount)
    {
        OffsetRect(amount, amount);
    }
    void operator+=(tagPOINT const & offset)
    {
        OffsetRect(offset);
    }
    void operator+=(tagSIZE const & offset)
    {
        OffsetRect(offset);
    }
    void operator-=(tagPOINT const & offset)
    {
        OffsetRect(-Point(offset));
    }
    void operator-=(tagSIZE const & offset)
    {
        OffsetRect(-Point(offset));
    }

    /// Cuts this rectangle down to what it has in common with `other`. False, and all zero, if that is nothing.
    bool IntersectRect(tagRECT const & other);
    void operator&=(tagRECT const & other)
    {
        IntersectRect(other);
    }
    Rect operator&(tagRECT const & other) const
    {
        Rect result(*this);
        result &= other;
        return result;
    }

    /// Becomes the smallest rectangle around both; an empty one does not count. False, and all zero, if both are empty.
    /// Neither may be null; either may be this one.
    bool UnionRect(tagRECT const * first, tagRECT const * second);
    void operator|=(tagRECT const & other)
    {
        UnionRect(this, &other);
    }
    Rect operator|(tagRECT const & other) const
    {
        Rect result(*this);
        result |= other;
        return result;
    }

    /// Becomes `first` without `second`, as far as that is a rectangle: only where `second` covers the whole of `first`
    /// along one axis and reaches past one end of it along the other, that side is cut back. What would leave an L or a
    /// hole changes nothing. False, and all zero, if nothing is left, also if `first` is empty. Neither may be null;
    /// either may be this one.
    bool SubtractRect(tagRECT const * first, tagRECT const * second);

    Rect operator+(tagPOINT const & offset) const
    {
        Rect result(*this);
        result += offset;
        return result;
    }
    Rect operator+(tagSIZE const & offset) const
    {
        return *this + Point(offset);
    }
    Rect operator-(tagPOINT const & offset) const
    {
        Rect result(*this);
        result -= offset;
        return result;
    }
    Rect operator-(tagSIZE const & offset) const
    {
        return *this - Point(offset);
    }
    /// Kept: inflated by the four amounts, not a sum: the left edge moves to the left. Must not be null.
    Rect operator+(tagRECT const * amounts) const
    {
        Rect result(*this);
        result += amounts;
        return result;
    }
    Rect operator+(Rect const & amounts) const
    {
        return *this + static_cast<tagRECT const *>(amounts);
    }
    /// Kept: deflated, in the same way.
    Rect operator-(tagRECT const * amounts) const
    {
        Rect result(*this);
        result -= amounts;
        return result;
    }
    /// Without these the difference of two pointers, which a rectangle converts to, would fit as well.
    Rect operator-(tagRECT * amounts) const
    {
        return *this - static_cast<tagRECT const *>(amounts);
    }
    Rect operator-(Rect const & amounts) const
    {
        return *this - static_cast<tagRECT const *>(amounts);
    }

    /// Every member times `multiplier`, divided by `divisor`, rounded to the nearest with halves away from zero. -1
    /// where the divisor is 0 or the result does not fit.
    Rect MulDiv(int multiplier, int divisor) const;

    /// Fits a rectangle of a wanted width to height `ratio`, centred, into `source`, each side a multiple of its step.
    ///
    /// A step below 1 counts as 1. With a ratio of 0 or less, or a source without height, the size is the source's, and
    /// no step applies. Kept: the centre is rounded down, where CenterPoint cuts towards zero.
    static Rect CreateProportionalRect(Rect source, double ratio, int stepX, int stepY);
};

static_assert(sizeof(Point) == sizeof(tagPOINT) && sizeof(Size) == sizeof(tagSIZE) && sizeof(Rect) == sizeof(tagRECT));

/// An extent, or a pair of factors along the two axes, in floating point.
template <class T>
class XSize
{
public:
    constexpr XSize() : width(0), height(0) {}
    constexpr XSize(T sizeWidth, T sizeHeight) : width(sizeWidth), height(sizeHeight) {}

    constexpr bool operator==(XSize const &) const = default;

    T width;
    T height;
};

/// A rectangle in floating point.
template <class T>
class XRect
{
public:
    constexpr XRect() : left(0), top(0), right(0), bottom(0) {}
    constexpr XRect(T rectLeft, T rectTop, T rectRight, T rectBottom)
        : left(rectLeft), top(rectTop), right(rectRight), bottom(rectBottom)
    {
    }

    /// Moves the left and right edges out by `dx` each, the top and bottom edges by `dy`.
    constexpr void InflateRect(T dx, T dy)
    {
        left -= dx;
        right += dx;
        top -= dy;
        bottom += dy;
    }
    /// InflateRect the other way.
    constexpr void DeflateRect(T dx, T dy)
    {
        InflateRect(-dx, -dy);
    }

    constexpr bool operator==(XRect const &) const = default;

    T left;
    T top;
    T right;
    T bottom;
};

static_assert(sizeof(XSize<double>) == 16 && sizeof(XRect<double>) == 32);
