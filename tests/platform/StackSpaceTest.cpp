#include <gtest/gtest.h>

#include <cstddef>

#include <kvcore/platform/StackSpace.h>
#include <support/StackOfSize.h>

namespace
{

using kv::test::RunOnStackOf;

std::size_t const kibibyte = 1024;

/// The answer `depth` frames further down, each of which is larger than 4 KiB.
[[gnu::noinline]] std::size_t LeftBelow(int depth)
{
    char volatile block[4 * kibibyte];
    block[depth] = 1;
    std::size_t const left = depth == 0 ? kv::platform::StackBytesLeft() : LeftBelow(depth - 1);
    return left + static_cast<std::size_t>(block[depth] - 1);
}

TEST(StackSpace, ShrinksTowardsTheEndOfTheThreadsOwnStack)
{
    for (std::size_t const size : {4096 * kibibyte, 16384 * kibibyte})
    {
        RunOnStackOf(
            size,
            [size]
            {
                // The thread library may hand out a larger stack that another thread has left behind.
                std::size_t const here = kv::platform::StackBytesLeft();
                EXPECT_LT(here, static_cast<std::size_t>(-1));
                EXPECT_GT(here, size / 2);
                std::size_t const below = LeftBelow(9);
                EXPECT_LE(below + 40 * kibibyte, here);
                EXPECT_GT(below, std::size_t(0));
                EXPECT_LE(kv::platform::StackBytesLeft(), here + kibibyte);
            });
    }
}

/// Writes to each page of the stack that is said to be left, but for the few that this and the calls below need.
[[gnu::noinline]] std::size_t UseAllThatIsLeft()
{
    constexpr std::size_t needed = 8 * kibibyte;
    std::size_t const left = kv::platform::StackBytesLeft() - needed;
    auto * const block = static_cast<char volatile *>(__builtin_alloca(left));
    for (std::size_t at = left; at-- > 0;)
    {
        block[at] = 1;
    }
    return left;
}

TEST(StackSpace, LeavesOutWhatAThreadMayNotUse)
{
    for (std::size_t const size : {64 * kibibyte, 256 * kibibyte})
    {
        std::size_t used = 0;
        std::size_t whole = 0;
        RunOnStackOf(
            size,
            [&]
            {
                whole = kv::platform::StackBytes();
                used = UseAllThatIsLeft();
            });
        EXPECT_GT(used, size / 2);
        EXPECT_GT(whole, used);
    }
}

TEST(StackSpace, IsKnownOnTheFirstThread)
{
    std::size_t const here = kv::platform::StackBytesLeft();
    EXPECT_GT(here, 64 * kibibyte);
    EXPECT_LT(here, static_cast<std::size_t>(-1));
    EXPECT_LE(LeftBelow(4) + 20 * kibibyte, here);
}

} // namespace
