#include <cmath>
#include <functional>
#include <limits>
#include <stdexcept>
#include <vector>

#include <gtest/gtest.h>

#include <kvcore/frame/Approximation.h>

namespace
{

using Approximation = double (*)(IMathFunction *, double, double, double, double &);

Approximation const ternary = ternary_approximation_for_strictly_increasing_function;
Approximation const quadratic = quadratic_approximation_for_strictly_increasing_function;

/// A function that notes down where it was asked.
class Noting : public IMathFunction
{
public:
    explicit Noting(std::function<double(double)> inner) : function(std::move(inner)) {}

    double Evaluate(double x) override
    {
        asked.push_back(x);
        return function(x);
    }

    std::vector<double> asked;

private:
    std::function<double(double)> function;
};

double Line(double x)
{
    return 3 * x + 1;
}

double Cube(double x)
{
    return x * x * x;
}

class Approximations : public testing::TestWithParam<Approximation>
{
};

} // namespace

TEST_P(Approximations, OfAnIntervalWithoutLengthAskNothing)
{
    Noting f(Line);
    double tolerance = 0.5;
    EXPECT_EQ(GetParam()(&f, 2.5, 2.5, 100, tolerance), 2.5);
    EXPECT_EQ(tolerance, 0.5);
    EXPECT_TRUE(f.asked.empty());
}

TEST_P(Approximations, MeetTheTolerance)
{
    for (double const target : {0.001, 1.0, 7.5, 343.0, 999.0})
    {
        Noting f(Cube);
        double tolerance = 1e-6;
        double const x = GetParam()(&f, 0, 10, target, tolerance);
        EXPECT_LE(std::abs(Cube(x) - target), 1e-6) << target;
        EXPECT_EQ(tolerance, Cube(x) - target);
    }
}

TEST_P(Approximations, GiveTheResidualWithItsSign)
{
    bool below = false;
    for (double target = 1; target < 900; target += 37)
    {
        Noting f(Cube);
        double tolerance = 0.25;
        double const x = GetParam()(&f, 0, 10, target, tolerance);
        EXPECT_EQ(tolerance < 0, Cube(x) < target);
        below = below || tolerance < 0;
    }
    EXPECT_TRUE(below);
}

TEST_P(Approximations, PassOnWhatTheFunctionThrows)
{
    Noting f([](double) -> double { throw std::runtime_error("no value"); });
    double tolerance = 1;
    EXPECT_THROW(GetParam()(&f, 0, 1, 0.5, tolerance), std::runtime_error);
    EXPECT_EQ(tolerance, 1);
}

INSTANTIATE_TEST_SUITE_P(Both, Approximations, testing::Values(ternary, quadratic));

TEST(TernaryApproximation, OutsideTheValuesLeavesTheTolerance)
{
    struct
    {
        double target;
        double expected;
    } const rows[] = {{1, 0}, {-50, 0}, {31, 10}, {1000, 10}};
    for (auto const & row : rows)
    {
        Noting f(Line);
        double tolerance = 0.25;
        EXPECT_EQ(ternary(&f, 0, 10, row.target, tolerance), row.expected) << row.target;
        EXPECT_EQ(tolerance, 0.25);
        EXPECT_EQ(f.asked, (std::vector<double>{0, 10}));
    }
}

TEST(TernaryApproximation, TakesTheLowerEndOfTwoThatWillDo)
{
    Noting f(Line);
    double tolerance = 100;
    EXPECT_EQ(ternary(&f, 0, 10, 20, tolerance), 0);
    EXPECT_EQ(tolerance, 1 - 20);
}

TEST(TernaryApproximation, AsksForTheUpperThirdOnlyIfTheLowerOneIsNotAbove)
{
    Noting f([](double x) { return x; });
    double tolerance = 0.5;
    EXPECT_EQ(ternary(&f, 0, 9, 1, tolerance), 1);
    // 0 and 9 do not do; 3 is above and takes the upper end; then 1 is not above, and 2 is.
    EXPECT_EQ(f.asked, (std::vector<double>{0, 9, 3, 1, 2}));
    EXPECT_EQ(tolerance, 0);
}

TEST(TernaryApproximation, WithoutToleranceGoesOnUntilAnEndIsTheTarget)
{
    Noting f([](double x) { return x; });
    double tolerance = 0;
    EXPECT_EQ(ternary(&f, 0, 81, 27, tolerance), 27);
    EXPECT_EQ(tolerance, 0);
}

TEST(QuadraticApproximation, OutsideTheValuesGivesTheDistance)
{
    struct
    {
        double target;
        double expected;
        double residual;
    } const rows[] = {{1, 0, 0}, {-50, 0, 51}, {31, 10, 0}, {1000, 10, 969}};
    for (auto const & row : rows)
    {
        Noting f(Line);
        double tolerance = 0.25;
        EXPECT_EQ(quadratic(&f, 0, 10, row.target, tolerance), row.expected) << row.target;
        EXPECT_EQ(tolerance, row.residual);
        EXPECT_EQ(f.asked, (std::vector<double>{0, 10, 5})) << "all three before any comparison";
    }
}

TEST(QuadraticApproximation, SolvesALineInOneRound)
{
    Noting f(Line);
    double tolerance = 1e-12;
    EXPECT_EQ(quadratic(&f, 0, 8, 10, tolerance), 3);
    EXPECT_EQ(tolerance, 0);
    EXPECT_EQ(f.asked, (std::vector<double>{0, 8, 4, 3, 1.5}));
}

TEST(QuadraticApproximation, SolvesAParabolaInOneRound)
{
    Noting f([](double x) { return x * x; });
    double tolerance = 1e-12;
    EXPECT_EQ(quadratic(&f, 0, 8, 9, tolerance), 3);
    EXPECT_EQ(f.asked, (std::vector<double>{0, 8, 4, 3, 1.5}));
}

TEST(QuadraticApproximation, EndsOnAFlatStretch)
{
    Noting f([](double x) { return x < 4 ? 0.0 : x < 6 ? 1.0 : 2.0; });
    double tolerance = 0;
    double const x = quadratic(&f, 0, 10, 1.5, tolerance);
    EXPECT_EQ(tolerance, f.Evaluate(x) - 1.5);
    EXPECT_LT(f.asked.size(), 200u);
}

TEST(QuadraticApproximation, WithoutToleranceEndsWhereTwoValuesAreEqual)
{
    Noting f([](double x) { return x; });
    double tolerance = 0;
    double const x = quadratic(&f, 0, 10, 1.0 / 3, tolerance);
    EXPECT_NEAR(x, 1.0 / 3, 1e-15);
    EXPECT_EQ(tolerance, x - 1.0 / 3);
}

TEST(QuadraticApproximation, AsksForWhatIsNoNumberWhereThereIsNoRoot)
{
    Noting f([](double x) { return x == 0 ? -std::numeric_limits<double>::infinity() : std::isnan(x) ? 1.5 : x; });
    double tolerance = 0.1;
    EXPECT_TRUE(std::isnan(quadratic(&f, 0, 2, 1.5, tolerance)));
    EXPECT_EQ(tolerance, 0);
    ASSERT_EQ(f.asked.size(), 5u);
    EXPECT_EQ(f.asked[2], 1);
    EXPECT_TRUE(std::isnan(f.asked[3]));
}
