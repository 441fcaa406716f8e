#include <climits>
#include <cstddef>
#include <limits>
#include <type_traits>

#include <gtest/gtest.h>

#include <kvcore/graphics/Geometry.h>

namespace
{

/// What the system's calls are like.
LONG SumOf(tagPOINT const & point)
{
    return point.x + point.y;
}

LONG SumOf(tagPOINT const * point)
{
    return SumOf(*point);
}

void ExpectRect(Rect const & rect, int left, int top, int right, int bottom)
{
    EXPECT_EQ(rect.left, left);
    EXPECT_EQ(rect.top, top);
    EXPECT_EQ(rect.right, right);
    EXPECT_EQ(rect.bottom, bottom);
}

} // namespace

TEST(Geometry, LayoutIsThatOfTheSystemsRecords)
{
    static_assert(sizeof(Point) == 8 && sizeof(Size) == 8 && sizeof(Rect) == 16);
    static_assert(std::is_trivially_copyable_v<Point> && std::is_trivially_copyable_v<Rect>);
    Rect rect(1, 2, 3, 4);
    EXPECT_EQ(static_cast<tagRECT *>(rect), &rect);
    EXPECT_EQ(static_cast<void *>(&rect.left), static_cast<void *>(&rect));
    EXPECT_EQ(reinterpret_cast<char *>(&rect.bottom) - reinterpret_cast<char *>(&rect), 12);
}

TEST(Point, IsMadeOfEverythingThatIsOne)
{
    EXPECT_EQ(Point(), Point(0, 0));
    EXPECT_EQ(Point(0xFFFF0001u), Point(1, -1));
    EXPECT_EQ(Point(0x7FFF8000u), Point(-32768, 32767));
    EXPECT_EQ(Point(tagSIZE{5, -6}), Point(5, -6));
    tagPOINT const plain{1, 2};
    Point const point = plain;
    EXPECT_EQ(SumOf(point), 3);
    EXPECT_EQ(SumOf(static_cast<tagPOINT const *>(point)), 3);
}

TEST(Point, AddsPointsAndSizes)
{
    Point point(10, 20);
    EXPECT_EQ(point + tagPOINT({1, 2}), Point(11, 22));
    EXPECT_EQ(point + tagSIZE({1, 2}), Point(11, 22));
    EXPECT_EQ(point - Point(1, 2), Point(9, 18));
    EXPECT_EQ(point - Size(1, 2), Point(9, 18));
    EXPECT_EQ(-point, Point(-10, -20));
    point += Point(1, 1);
    point += Size(2, 2);
    point -= Point(3, 4);
    point -= Size(0, 1);
    EXPECT_EQ(point, Point(10, 18));
    EXPECT_NE(point, Point(10, 20));
    EXPECT_NE(point, Point(11, 18));
}

TEST(Point, SumsWrapAround)
{
    EXPECT_EQ(Point(INT_MAX, INT_MIN) + Point(1, -1), Point(INT_MIN, INT_MAX));
    EXPECT_EQ(-Point(INT_MIN, 1), Point(INT_MIN, -1));
}

TEST(Size, IsMadeOfEverythingThatIsOne)
{
    EXPECT_EQ(Size(), Size(0, 0));
    EXPECT_EQ(Size(0xFFFF0001u), Size(1, -1));
    EXPECT_EQ(Size(tagPOINT{5, -6}), Size(5, -6));
    tagSIZE const plain{1, 2};
    Size const size = plain;
    EXPECT_EQ(static_cast<tagSIZE const *>(size)->cy, 2);
}

TEST(Size, AddsSizes)
{
    Size size(10, 20);
    EXPECT_EQ(size + tagSIZE({1, 2}), Size(11, 22));
    EXPECT_EQ(size - Size(1, 2), Size(9, 18));
    EXPECT_EQ(-size, Size(-10, -20));
    size += Size(1, 2);
    size -= Size(3, 3);
    EXPECT_EQ(size, Size(8, 19));
    EXPECT_NE(size, Size(8, 20));
}

TEST(Rect, IsMadeOfEdgesCornersAndRecords)
{
    ExpectRect(Rect(), 0, 0, 0, 0);
    ExpectRect(Rect(1, 2, 3, 4), 1, 2, 3, 4);
    tagRECT const plain{1, 2, 3, 4};
    ExpectRect(Rect(plain), 1, 2, 3, 4);
    ExpectRect(Rect(&plain), 1, 2, 3, 4);
    ExpectRect(Rect(tagPOINT{1, 2}, tagPOINT{3, 4}), 1, 2, 3, 4);
    ExpectRect(Rect(Point(1, 2), Size(3, 4)), 1, 2, 4, 6);
    Rect assigned;
    assigned = plain;
    ExpectRect(assigned, 1, 2, 3, 4);
    EXPECT_TRUE(Rect(nullptr).IsEmpty());
    ExpectRect(Rect(nullptr), 0, 0, 0, 0);
}

TEST(Rect, MayBeInvertedAndIsEmptyThen)
{
    EXPECT_TRUE(Rect(0, 0, 0, 10).IsEmpty());
    Rect const inverted(10, 0, 0, 10);
    EXPECT_TRUE(inverted.IsEmpty());
    EXPECT_EQ(inverted.Width(), -10);
    EXPECT_EQ(inverted.Height(), 10);
    EXPECT_EQ(inverted.GetSize(), Size(-10, 10));
    EXPECT_FALSE(Rect(0, 0, 1, 1).IsEmpty());
    Rect rect(1, 2, 3, 4);
    rect.Empty();
    ExpectRect(rect, 0, 0, 0, 0);
}

TEST(Rect, CornersAreTheObjectItself)
{
    Rect rect(1, 2, 3, 4);
    EXPECT_EQ(rect.TopLeft(), Point(1, 2));
    rect.TopLeft() = Point(-1, -2);
    rect.BottomRight() += Size(10, 10);
    ExpectRect(rect, -1, -2, 13, 14);
    Rect const & constant = rect;
    EXPECT_EQ(constant.TopLeft(), Point(-1, -2));
    EXPECT_EQ(constant.BottomRight(), Point(13, 14));
}

namespace
{

/// Stores through both views, in both orders: what was stored last must be seen. Not inlined, so that the compiler
/// knows of the two only what their types say.
[[gnu::noinline]] LONG StoreCornerLast(Rect & rect, Point & corner)
{
    rect.left = 1;
    corner.x = 2;
    return rect.left;
}

[[gnu::noinline]] LONG StoreEdgeLast(Rect & rect, Point & corner)
{
    corner = Point(1, 1);
    rect.left = 2;
    return corner.x;
}

[[gnu::noinline]] LONG StoreWholeCornerLast(tagRECT & rect, Point & corner)
{
    rect.left = 1;
    corner = Point(2, 2);
    return rect.left;
}

} // namespace

TEST(Rect, CornersAndEdgesSeeEachOther)
{
    Rect rect;
    EXPECT_EQ(StoreCornerLast(rect, rect.TopLeft()), 2);
    EXPECT_EQ(StoreEdgeLast(rect, rect.TopLeft()), 2);
    EXPECT_EQ(StoreWholeCornerLast(rect, rect.TopLeft()), 2);
}

TEST(Rect, CenterIsCutTowardsZero)
{
    EXPECT_EQ(Rect(-3, -3, 0, 0).CenterPoint(), Point(-1, -1));
    EXPECT_EQ(Rect(0, 0, 3, 5).CenterPoint(), Point(1, 2));
}

TEST(Rect, HoldsItsLeftAndTopEdgeOnly)
{
    Rect const rect(1, 2, 3, 4);
    EXPECT_TRUE(rect.PtInRect(Point(1, 2)));
    EXPECT_TRUE(rect.PtInRect(tagPOINT{2, 3}));
    EXPECT_FALSE(rect.PtInRect(Point(3, 4)));
    EXPECT_FALSE(rect.PtInRect(Point(3, 2)));
    EXPECT_FALSE(rect.PtInRect(Point(1, 4)));
    EXPECT_FALSE(rect.PtInRect(Point(0, 3)));
    EXPECT_FALSE(rect.PtInRect(Point(2, 1)));
}

TEST(Rect, ComparesEdgesOrSizes)
{
    EXPECT_TRUE(Rect(0, 0, 2, 3).HasEqualSize(Rect(5, 5, 7, 8)));
    EXPECT_FALSE(Rect(0, 0, 2, 3).HasEqualSize(Rect(0, 0, 3, 2)));
    EXPECT_FALSE(Rect(0, 0, 2, 3).HasEqualSize(Rect(0, 0, 2, 2)));
    Rect const rect(1, 2, 3, 4);
    EXPECT_TRUE(rect == Rect(1, 2, 3, 4));
    EXPECT_FALSE(rect != Rect(1, 2, 3, 4));
    for (Rect const & other : {Rect(0, 2, 3, 4), Rect(1, 0, 3, 4), Rect(1, 2, 0, 4), Rect(1, 2, 3, 0)})
    {
        EXPECT_TRUE(rect != other);
        EXPECT_FALSE(rect == other);
    }
}

TEST(Rect, NormalizeSwapsWhatIsTheWrongWayRound)
{
    Rect rect(5, 2, 1, 8);
    rect.NormalizeRect();
    ExpectRect(rect, 1, 2, 5, 8);
    rect = Rect(1, 8, 5, 2);
    rect.NormalizeRect();
    ExpectRect(rect, 1, 2, 5, 8);
}

TEST(Rect, InflatesInEveryForm)
{
    Rect rect(10, 20, 30, 40);
    rect.InflateRect(1, 2);
    ExpectRect(rect, 9, 18, 31, 42);
    rect.InflateRect(Size(1, 2));
    ExpectRect(rect, 8, 16, 32, 44);
    rect.InflateRect(-1);
    ExpectRect(rect, 9, 17, 31, 43);
    rect.InflateRect(1, 2, 3, 4);
    ExpectRect(rect, 8, 15, 34, 47);
    tagRECT const amounts{1, 2, 3, 4};
    rect.InflateRect(amounts);
    ExpectRect(rect, 7, 13, 37, 51);
    rect += &amounts;
    ExpectRect(rect, 6, 11, 40, 55);
}

TEST(Rect, DeflatesInEveryForm)
{
    Rect rect(10, 20, 30, 40);
    rect.DeflateRect(1, 2);
    ExpectRect(rect, 11, 22, 29, 38);
    rect.DeflateRect(Size(1, 2));
    ExpectRect(rect, 12, 24, 28, 36);
    rect.DeflateRect(-1);
    ExpectRect(rect, 11, 23, 29, 37);
    rect.DeflateRect(1, 2, 3, 4);
    ExpectRect(rect, 12, 25, 26, 33);
    tagRECT const amounts{1, 2, 3, 4};
    rect.DeflateRect(amounts);
    ExpectRect(rect, 13, 27, 23, 29);
    rect -= &amounts;
    ExpectRect(rect, 14, 29, 20, 25);
    EXPECT_TRUE(rect.IsEmpty()) << "nothing holds it back";
}

TEST(Rect, MovesInEveryForm)
{
    Rect rect(1, 2, 3, 4);
    rect.OffsetRect(10, 20);
    ExpectRect(rect, 11, 22, 13, 24);
    rect.OffsetRect(Point(1, 2));
    ExpectRect(rect, 12, 24, 14, 26);
    rect.OffsetRect(Size(-1, -2));
    ExpectRect(rect, 11, 22, 13, 24);
    rect += Point(1, 1);
    rect += Size(1, 1);
    ExpectRect(rect, 13, 24, 15, 26);
    rect -= Point(3, 4);
    rect -= Size(9, 18);
    ExpectRect(rect, 1, 2, 3, 4);
    EXPECT_EQ(rect + Point(1, 2), Rect(2, 4, 4, 6));
    EXPECT_EQ(rect + Size(1, 2), Rect(2, 4, 4, 6));
    EXPECT_EQ(rect - Point(1, 2), Rect(0, 0, 2, 2));
    EXPECT_EQ(rect - Size(1, 2), Rect(0, 0, 2, 2));
    rect += rect.TopLeft();
    ExpectRect(rect, 2, 4, 4, 6);
}

TEST(Rect, OneAmountMovesDiagonally)
{
    Rect rect(1, 2, 3, 4);
    rect.OffsetRect(3);
    ExpectRect(rect, 4, 5, 6, 7);
}

TEST(Rect, PlusARecordInflates)
{
    tagRECT const ones{1, 1, 1, 1};
    EXPECT_EQ(Rect(1, 2, 3, 4) + &ones, Rect(0, 1, 4, 5));
    EXPECT_EQ(Rect(0, 1, 4, 5) - &ones, Rect(1, 2, 3, 4));
}

TEST(Rect, Intersects)
{
    struct
    {
        Rect first;
        Rect second;
        Rect expected;
    } const rows[] = {
        {{0, 0, 10, 10}, {5, 5, 15, 15}, {5, 5, 10, 10}},
        {{0, 0, 10, 10}, {2, 3, 4, 5}, {2, 3, 4, 5}},
        {{0, 0, 10, 10}, {10, 0, 20, 10}, {0, 0, 0, 0}}, // they touch along an edge
        {{0, 0, 10, 10}, {20, 20, 30, 30}, {0, 0, 0, 0}},
        {{0, 0, 10, 10}, {8, 2, 2, 8}, {0, 0, 0, 0}}, // inverted, so empty
        {{0, 0, 10, 0}, {0, 0, 10, 10}, {0, 0, 0, 0}},
    };
    for (auto const & row : rows)
    {
        EXPECT_EQ(row.first & row.second, row.expected);
        EXPECT_EQ(row.second & row.first, row.expected);
        Rect rect = row.first;
        EXPECT_EQ(rect.IntersectRect(row.second), !row.expected.IsEmpty());
        EXPECT_EQ(rect, row.expected);
        rect = row.first;
        rect &= row.second;
        EXPECT_EQ(rect, row.expected);
    }
    Rect rect(1, 2, 3, 4);
    EXPECT_TRUE(rect.IntersectRect(rect));
    EXPECT_EQ(rect, Rect(1, 2, 3, 4));
}

TEST(Rect, Unites)
{
    struct
    {
        Rect first;
        Rect second;
        Rect expected;
    } const rows[] = {
        {{0, 0, 10, 10}, {5, 5, 15, 15}, {0, 0, 15, 15}},
        {{0, 0, 1, 1}, {8, 9, 10, 11}, {0, 0, 10, 11}},
        {{0, 0, 0, 5}, {5, 5, 15, 15}, {5, 5, 15, 15}},
        {{9, 9, 3, 3}, {0, 0, 0, 0}, {0, 0, 0, 0}},
    };
    for (auto const & row : rows)
    {
        EXPECT_EQ(row.first | row.second, row.expected);
        EXPECT_EQ(row.second | row.first, row.expected);
        Rect rect(77, 77, 99, 99); // which does not matter
        EXPECT_EQ(rect.UnionRect(&row.first, &row.second), !row.expected.IsEmpty());
        EXPECT_EQ(rect, row.expected);
        rect = row.first;
        rect |= row.second;
        EXPECT_EQ(rect, row.expected);
    }
}

TEST(Rect, SubtractsWhatLeavesARectangle)
{
    Rect const whole(0, 0, 10, 10);
    struct
    {
        Rect second;
        Rect expected;
    } const rows[] = {
        {{-5, -5, 4, 15}, {4, 0, 10, 10}},  // the left side
        {{6, 0, 15, 10}, {0, 0, 6, 10}},    // the right side
        {{-1, -1, 11, 3}, {0, 3, 10, 10}},  // the top
        {{0, 7, 10, 10}, {0, 0, 10, 7}},    // the bottom
        {{-1, -1, 11, 11}, {0, 0, 0, 0}},   // all of it
        {{0, 0, 10, 10}, {0, 0, 0, 0}},     // just all of it
        {{3, -1, 6, 11}, {0, 0, 10, 10}},   // a stripe out of the middle
        {{-1, 3, 11, 6}, {0, 0, 10, 10}},   // across
        {{-1, -1, 5, 5}, {0, 0, 10, 10}},   // a corner
        {{3, 3, 6, 6}, {0, 0, 10, 10}},     // a hole
        {{20, 20, 30, 30}, {0, 0, 10, 10}}, // nothing
        {{6, 6, 3, 3}, {0, 0, 10, 10}},     // an empty one
    };
    for (auto const & row : rows)
    {
        Rect rect(1, 1, 1, 1);
        EXPECT_EQ(rect.SubtractRect(&whole, &row.second), !row.expected.IsEmpty());
        EXPECT_EQ(rect, row.expected) << row.second.left << ' ' << row.second.top;
    }
    Rect rect(5, 5, 1, 1);
    EXPECT_FALSE(rect.SubtractRect(&rect, &whole));
    EXPECT_TRUE(rect.IsEmpty());
}

TEST(Rect, MulDivRoundsHalvesAwayFromZero)
{
    EXPECT_EQ(Rect(1, 2, 3, 5).MulDiv(1, 2), Rect(1, 1, 2, 3));
    EXPECT_EQ(Rect(-1, -2, -3, -5).MulDiv(1, 2), Rect(-1, -1, -2, -3));
    EXPECT_EQ(Rect(1, 2, 3, 5).MulDiv(1, -2), Rect(-1, -1, -2, -3));
    EXPECT_EQ(Rect(10, 20, 30, 40).MulDiv(3, 4), Rect(8, 15, 23, 30));
    EXPECT_EQ(Rect(1, 2, 3, 4).MulDiv(5, 0), Rect(-1, -1, -1, -1));
    EXPECT_EQ(Rect(INT_MAX, 1, INT_MIN, 0).MulDiv(2, 1), Rect(-1, 2, -1, 0));
    EXPECT_EQ(Rect(INT_MAX, INT_MIN, 0, 1).MulDiv(INT_MAX, INT_MAX), Rect(INT_MAX, INT_MIN, 0, 1));
    EXPECT_EQ(Rect(INT_MIN, INT_MIN, 0, 1).MulDiv(INT_MIN, INT_MIN), Rect(INT_MIN, INT_MIN, 0, 1));
}

TEST(Rect, ProportionalFitsIntoTheSource)
{
    struct
    {
        Rect source;
        double ratio;
        int stepX;
        int stepY;
        Rect expected;
    } const rows[] = {
        {{0, 0, 100, 100}, 2.0, 16, 16, {2, 26, 98, 74}}, // the width decides
        {{0, 0, 100, 100}, 0.5, 16, 16, {26, 2, 74, 98}}, // the height decides
        {{0, 0, 100, 100}, 2.0, 0, -5, {0, 25, 100, 75}}, // steps below 1 count as 1
        {{0, 0, 100, 100}, 0, 16, 16, {0, 0, 100, 100}},  // no ratio, no steps
        {{0, 0, 100, 100}, -1, 16, 16, {0, 0, 100, 100}},
        {{0, 5, 101, 5}, 2.0, 16, 16, {0, 5, 101, 5}}, // no height
        {{-3, -3, 0, 0}, 1.0, 1, 1, {-3, -3, 0, 0}},   // the centre is (-2, -2)
        {{-3, -3, 0, 0}, 0, 2, 2, {-3, -3, 0, 0}},     // and is without a ratio, too
        {{0, 0, 640, 480}, 16.0 / 9, 1, 1, {0, 60, 640, 420}},
        {{0, 0, 1000, 10}, 1e300, 1, 1, {0, 5, 1000, 5}},
        {{0, 0, 10, 1000}, 1e-300, 1, 1, {5, 0, 5, 1000}},
    };
    for (auto const & row : rows)
    {
        Rect const fitted = Rect::CreateProportionalRect(row.source, row.ratio, row.stepX, row.stepY);
        ExpectRect(fitted, row.expected.left, row.expected.top, row.expected.right, row.expected.bottom);
    }
}

TEST(Rect, ProportionalTakesAnythingForARatio)
{
    Rect const source(0, 0, 100, 60);
    double const notANumber = std::numeric_limits<double>::quiet_NaN();
    double const infinite = std::numeric_limits<double>::infinity();
    for (double const ratio : {notANumber, infinite, 1e-308, 1e308})
    {
        Rect const fitted = Rect::CreateProportionalRect(source, ratio, 8, 8);
        EXPECT_LE(fitted.Width(), 100);
        EXPECT_LE(fitted.Height(), 60);
    }
    Rect const inverted = Rect::CreateProportionalRect(Rect(INT_MIN, INT_MIN, INT_MAX, INT_MAX), 1.0, 1, 1);
    EXPECT_EQ(inverted.Width(), -1) << "the difference has wrapped around";
}

TEST(XRect, InflatesAndDeflates)
{
    XRect<double> rect(1, 2, 3, 4);
    rect.InflateRect(0.5, 0.25);
    EXPECT_EQ(rect, XRect<double>(0.5, 1.75, 3.5, 4.25));
    rect.DeflateRect(0.5, 0.25);
    EXPECT_EQ(rect, XRect<double>(1, 2, 3, 4));
    EXPECT_EQ(XSize<double>(1.0, 1.0).width, 1.0);
    static_assert(sizeof(XSize<double>) == 16 && sizeof(XRect<double>) == 32);
}

namespace
{

/// Both operators with each side as a variable, a constant and a temporary, since a conversion to a pointer fits a
/// variable better than a constant.
template <typename A, typename B>
void ExpectCompares(A a, B b, bool equal)
{
    A const & constantA = a;
    B const & constantB = b;
    EXPECT_EQ(a == b, equal);
    EXPECT_EQ(constantA == b, equal);
    EXPECT_EQ(a == constantB, equal);
    EXPECT_EQ(constantA == constantB, equal);
    EXPECT_EQ(A(a) == B(b), equal);
    EXPECT_EQ(a != b, !equal);
    EXPECT_EQ(constantA != b, !equal);
    EXPECT_EQ(a != constantB, !equal);
    EXPECT_EQ(constantA != constantB, !equal);
    EXPECT_EQ(A(a) != B(b), !equal);
    static_assert(std::is_same_v<decltype(a == b), bool> && std::is_same_v<decltype(constantA != constantB), bool>);
}

template <typename A, typename B>
void ExpectComparesAsPairs()
{
    ExpectCompares(A{1, 2}, B{1, 2}, true);
    ExpectCompares(A{1, 2}, B{1, 3}, false);
    ExpectCompares(A{1, 2}, B{3, 2}, false);
    ExpectCompares(A{2, 1}, B{1, 2}, false);
}

/// `a` op `b` in all forms: `sum` and `difference` are of A's class.
template <typename A, typename B>
void ExpectAdds(A a, B b, A const & sum, A const & difference)
{
    A const & constantA = a;
    B const & constantB = b;
    static_assert(std::is_same_v<decltype(a + b), A> && std::is_same_v<decltype(a - b), A>);
    static_assert(std::is_same_v<decltype(constantA + constantB), A>);
    static_assert(std::is_same_v<decltype(constantA - constantB), A>);
    EXPECT_EQ(a + b, sum);
    EXPECT_EQ(constantA + b, sum);
    EXPECT_EQ(a + constantB, sum);
    EXPECT_EQ(constantA + constantB, sum);
    EXPECT_EQ(A(a) + B(b), sum);
    EXPECT_EQ(a - b, difference);
    EXPECT_EQ(constantA - b, difference);
    EXPECT_EQ(a - constantB, difference);
    EXPECT_EQ(constantA - constantB, difference);
    EXPECT_EQ(A(a) - B(b), difference);
    A changed = a;
    changed += b;
    EXPECT_EQ(changed, sum);
    changed = a;
    changed += constantB;
    EXPECT_EQ(changed, sum);
    changed = a;
    changed -= b;
    EXPECT_EQ(changed, difference);
    changed = a;
    changed -= constantB;
    EXPECT_EQ(changed, difference);
}

} // namespace

TEST(Geometry, EveryPairComparesWithEveryOther)
{
    ExpectComparesAsPairs<Point, Point>();
    ExpectComparesAsPairs<Point, tagPOINT>();
    ExpectComparesAsPairs<Point, Size>();
    ExpectComparesAsPairs<Point, tagSIZE>();
    ExpectComparesAsPairs<Size, Point>();
    ExpectComparesAsPairs<Size, tagPOINT>();
    ExpectComparesAsPairs<Size, Size>();
    ExpectComparesAsPairs<Size, tagSIZE>();
    ExpectComparesAsPairs<tagPOINT, Point>();
    ExpectComparesAsPairs<tagPOINT, Size>();
    ExpectComparesAsPairs<tagSIZE, Point>();
    ExpectComparesAsPairs<tagSIZE, Size>();
    static_assert(Point(1, 2) == Size(1, 2) && Point(1, 2) != Size(2, 1));
}

TEST(Geometry, RectanglesCompareWithRecords)
{
    for (tagRECT const & other :
         {tagRECT{1, 2, 3, 4}, tagRECT{0, 2, 3, 4}, tagRECT{1, 0, 3, 4}, tagRECT{1, 2, 0, 4}, tagRECT{1, 2, 3, 0}})
    {
        bool const equal = other.left == 1 && other.top == 2 && other.right == 3 && other.bottom == 4;
        ExpectCompares(Rect(1, 2, 3, 4), other, equal);
        ExpectCompares(other, Rect(1, 2, 3, 4), equal);
        ExpectCompares(Rect(1, 2, 3, 4), Rect(other), equal);
    }
}

TEST(Geometry, PackedValuesConvert)
{
    unsigned int const value = 0xFFFF0001;
    Point point = value;
    Size size = value;
    EXPECT_EQ(point, Point(1, -1));
    EXPECT_EQ(size, Size(1, -1));
    point = 0x00020003u;
    size = 0x00020003u;
    EXPECT_EQ(point, Point(3, 2));
    EXPECT_EQ(size, Size(3, 2));
    EXPECT_EQ(point, 0x00020003u);
    EXPECT_EQ(0x00020003u, size);
    DWORD const position = 0x00050004;
    auto const sumOf = [](Point place) { return place.x + place.y; };
    EXPECT_EQ(sumOf(position), 9);
    EXPECT_EQ(sumOf(value), 0);
}

TEST(Geometry, PairsAddAsTheyConvert)
{
    ExpectAdds(Point(10, 20), Point(1, 2), Point(11, 22), Point(9, 18));
    ExpectAdds(Point(10, 20), tagPOINT{1, 2}, Point(11, 22), Point(9, 18));
    ExpectAdds(Point(10, 20), Size(1, 2), Point(11, 22), Point(9, 18));
    ExpectAdds(Point(10, 20), tagSIZE{1, 2}, Point(11, 22), Point(9, 18));
    ExpectAdds(Size(10, 20), Size(1, 2), Size(11, 22), Size(9, 18));
    ExpectAdds(Size(10, 20), tagSIZE{1, 2}, Size(11, 22), Size(9, 18));
    Point point = Size(1, 2);
    Size size = Point(3, 4);
    point = size;
    EXPECT_EQ(point, Point(3, 4));
    size = Point(5, 6);
    EXPECT_EQ(size, Size(5, 6));
    static_assert(std::is_same_v<decltype(-point), Point> && std::is_same_v<decltype(-size), Size>);
}

TEST(Geometry, RectanglesMoveByPairsAndGrowByRectangles)
{
    Rect const rect(10, 20, 30, 40);
    Rect const right(11, 22, 31, 42);
    Rect const left(9, 18, 29, 38);
    ExpectAdds(rect, Point(1, 2), right, left);
    ExpectAdds(rect, tagPOINT{1, 2}, right, left);
    ExpectAdds(rect, Size(1, 2), right, left);
    ExpectAdds(rect, tagSIZE{1, 2}, right, left);

    Rect const inflated(9, 18, 33, 44);
    Rect const deflated(11, 22, 27, 36);
    Rect amounts(1, 2, 3, 4);
    tagRECT record = amounts;
    ExpectAdds(rect, amounts, inflated, deflated);
    ExpectAdds<Rect, tagRECT *>(rect, &record, inflated, deflated);
    ExpectAdds<Rect, tagRECT const *>(rect, &record, inflated, deflated);
    ExpectAdds<Rect, Rect *>(rect, &amounts, inflated, deflated);
    ExpectAdds<Rect, Rect const *>(rect, &amounts, inflated, deflated);
    EXPECT_EQ(rect - &record, deflated);
    EXPECT_EQ(rect + &record, inflated);
    tagRECT const several[] = {record};
    EXPECT_EQ(rect - several, deflated);
}

TEST(Geometry, RectanglesCombineWithRectanglesAndRecords)
{
    Rect rect(0, 0, 10, 10);
    tagRECT const record{5, 5, 15, 15};
    static_assert(std::is_same_v<decltype(rect & record), Rect> && std::is_same_v<decltype(rect | Rect()), Rect>);
    EXPECT_EQ(rect & record, Rect(5, 5, 10, 10));
    EXPECT_EQ(rect & Rect(record), Rect(5, 5, 10, 10));
    EXPECT_EQ(rect | record, Rect(0, 0, 15, 15));
    EXPECT_EQ(rect | Rect(record), Rect(0, 0, 15, 15));
    rect |= record;
    rect &= Rect(1, 1, 100, 100);
    EXPECT_EQ(rect, Rect(1, 1, 15, 15));
    Rect joined = &record;
    EXPECT_TRUE(joined.UnionRect(rect, &record));
    EXPECT_TRUE(joined.SubtractRect(joined, Rect(0, 0, 100, 2)));
    EXPECT_EQ(joined, Rect(1, 2, 15, 15));
}
