#pragma once

#include <algorithm>
#include <array>
#include <chrono>
#include <cstddef>
#include <ctime>

#include <gtest/gtest.h>

namespace kv::test
{

/// The ratio of times for a four times larger input that a cost test accepts: 4 is linear, n log n stays below 5 for
/// the sizes of tests, what no longer fits into the processor's caches may double it, 16 is quadratic.
constexpr double mostForFourfold = 11;

/// The shortest time that counts: below it the clock's own steps would be what is compared.
constexpr double leastMilliseconds = 0.05;

/// The processor's time where the C library counts it finely enough, so that other programs do not lengthen a run; else
/// the clock's.
inline double MillisecondsOfWork()
{
    if constexpr (CLOCKS_PER_SEC >= 1'000'000)
    {
        return static_cast<double>(std::clock()) * 1000 / CLOCKS_PER_SEC;
    }
    else
    {
        using Milliseconds = std::chrono::duration<double, std::milli>;
        return Milliseconds(std::chrono::steady_clock::now().time_since_epoch()).count();
    }
}

/// Whether the time of `run(make(size))` grows no faster than n log n from `size` over twice to four times `size`.
///
/// `make` builds an input of a size outside of the measurement; `run` is measured, and takes the input as a constant
/// reference. A first size whose run takes less than two milliseconds is doubled, up to `largest`, so that the fixed
/// costs of a call do not hide how the others grow. Interruptions only lengthen a run, so each size keeps its shortest
/// run of several rounds, and the rounds end as soon as the ratio is in bounds; a quadratic cost never gets there.
template <typename Make, typename Run>
testing::AssertionResult GrowsNearLinearly(std::size_t size, std::size_t largest, Make make, Run run)
{
    auto const timeOf = [&run](auto const & input)
    {
        double const start = MillisecondsOfWork();
        run(input);
        return MillisecondsOfWork() - start;
    };
    while (size * 2 <= largest && timeOf(make(size)) < 2)
    {
        size *= 2;
    }

    std::array const inputs{make(size), make(size * 2), make(size * 4)};
    std::array shortest{1e300, 1e300, 1e300};
    for (int round = 0; round < 25; ++round)
    {
        for (std::size_t i = 0; i < inputs.size(); ++i)
        {
            shortest[i] = std::min(shortest[i], timeOf(inputs[i]));
        }
        if (round >= 1 && shortest[2] <= mostForFourfold * std::max(shortest[0], leastMilliseconds))
        {
            return testing::AssertionSuccess();
        }
    }
    return testing::AssertionFailure() << "sizes " << size << ", " << size * 2 << ", " << size * 4 << " take "
                                       << shortest[0] << ", " << shortest[1] << ", " << shortest[2] << " ms: more than "
                                       << mostForFourfold << " times for a fourfold input";
}

} // namespace kv::test
