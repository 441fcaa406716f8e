#pragma once

#include <algorithm>
#include <vector>

#include <gtest/gtest.h>

#include <kvcore/platform/types.h>

namespace kv::test
{

/// A buffer with elements behind it that nobody may touch.
class GuardedBuffer
{
public:
    explicit GuardedBuffer(std::size_t capacity) : room(capacity), cells(capacity + 64, guard) {}
    explicit GuardedBuffer(WString const & text) : GuardedBuffer(text.size() + 1)
    {
        std::copy_n(text.c_str(), text.size() + 1, cells.begin());
    }

    WCHAR * Data()
    {
        return cells.data();
    }
    WString Text() const
    {
        return cells.data();
    }
    bool IsUntouched() const
    {
        return std::count(cells.begin(), cells.end(), guard) == static_cast<int>(cells.size());
    }
    void ExpectNothingBehind() const
    {
        EXPECT_TRUE(
            std::all_of(cells.begin() + static_cast<int>(room), cells.end(), [](WCHAR c) { return c == guard; }));
    }

private:
    static constexpr WCHAR guard = 0xABCD;

    std::size_t room;
    std::vector<WCHAR> cells;
};

/// Texts out of a few characters that mean something in paths and URLs; the same ones in each run.
class RandomPaths
{
public:
    WString Next(std::size_t longest)
    {
        static WString const pieces = TEXT("\\\\\\///::..%%?#;*ab cC1\u00E4\u0101\t-_@~\"file");
        WString text(Number() % (longest + 1), TEXT('\0'));
        for (WCHAR & c : text)
        {
            c = pieces[Number() % pieces.size()];
        }
        return text;
    }
    std::uint32_t Number()
    {
        state = state * 1664525 + 1013904223;
        return state >> 8;
    }

private:
    std::uint32_t state = 1;
};

} // namespace kv::test
