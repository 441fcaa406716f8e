#include <support/CostGrowth.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <numeric>
#include <vector>

// The measure that cost tests rest on, held against costs that are known.

namespace
{

std::vector<std::uint32_t> Numbers(std::size_t count)
{
    std::vector<std::uint32_t> numbers(count);
    std::iota(numbers.begin(), numbers.end(), 1u);
    return numbers;
}

/// Keeps the result of a loop from being optimised away.
volatile std::uint64_t sink;

TEST(CostGrowth, AcceptsALinearSum)
{
    EXPECT_TRUE(kv::test::GrowsNearLinearly(
        1u << 16, 1u << 22, Numbers,
        [](auto const & numbers)
        {
            std::uint64_t sum = 0;
            for (std::uint32_t number : numbers)
            {
                sum = sum * 31 + number;
            }
            sink = sum;
        }));
}

TEST(CostGrowth, RefusesASumOverAllPairs)
{
    EXPECT_FALSE(kv::test::GrowsNearLinearly(
        2000, 4000, Numbers,
        [](auto const & numbers)
        {
            std::uint64_t sum = 0;
            for (std::uint32_t first : numbers)
            {
                for (std::uint32_t second : numbers)
                {
                    sum = sum * 31 + (first ^ second);
                }
            }
            sink = sum;
        }));
}

} // namespace
