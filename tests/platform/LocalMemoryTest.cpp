#include <atomic>
#include <cstring>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include <kvcore/platform/win32.h>

namespace
{

constexpr DWORD untouched = 7777;

/// The two families of calls, of which the contracts are the same but for the members at the end.
struct Family
{
    char const * name;
    HLOCAL(WINAPI * alloc)(UINT, SIZE_T);
    HLOCAL(WINAPI * reAlloc)(HLOCAL, SIZE_T, UINT);
    HLOCAL(WINAPI * free)(HLOCAL);
    LPVOID(WINAPI * lock)(HLOCAL);
    BOOL(WINAPI * unlock)(HLOCAL);
    SIZE_T(WINAPI * size)(HLOCAL);
    HLOCAL(WINAPI * handle)(LPCVOID);
    /// What unlocking a fixed block gives, and the last error it sets.
    BOOL fixedUnlock;
    DWORD fixedUnlockError;
    /// The size of a fixed block of size 0.
    SIZE_T emptySize;
    /// The last error of discarding a locked block.
    DWORD lockedDiscardError;
};

Family const families[] = {
    {"Local", LocalAlloc, LocalReAlloc, LocalFree, LocalLock, LocalUnlock, LocalSize, LocalHandle, FALSE,
     ERROR_NOT_LOCKED, 0, ERROR_INVALID_PARAMETER},
    {"Global", GlobalAlloc, GlobalReAlloc, GlobalFree, GlobalLock, GlobalUnlock, GlobalSize, GlobalHandle, TRUE,
     untouched, 1, untouched},
};

class MemoryBlocks : public testing::TestWithParam<Family>
{
protected:
    Family const & family = GetParam();

    void SetUp() override
    {
        SetLastError(untouched);
    }

    /// The last error since the last look at it.
    static DWORD TakeError()
    {
        DWORD const code = GetLastError();
        SetLastError(untouched);
        return code;
    }

    static bool IsZero(void const * memory, std::size_t from, std::size_t to)
    {
        for (std::size_t i = from; i < to; ++i)
        {
            if (static_cast<char const *>(memory)[i] != 0)
            {
                return false;
            }
        }
        return true;
    }
};

} // namespace

INSTANTIATE_TEST_SUITE_P(
    Both, MemoryBlocks, testing::ValuesIn(families), [](auto const & row) { return std::string(row.param.name); });

TEST_P(MemoryBlocks, FixedBlockIsItsAddress)
{
    HLOCAL const block = family.alloc(LMEM_FIXED, 10);
    ASSERT_NE(block, nullptr);
    std::memset(block, 0x55, 10);
    EXPECT_EQ(family.lock(block), block);
    EXPECT_EQ(family.handle(block), block);
    EXPECT_EQ(family.size(block), 10u);
    EXPECT_EQ(TakeError(), untouched);
    EXPECT_EQ(family.unlock(block), family.fixedUnlock);
    EXPECT_EQ(TakeError(), family.fixedUnlockError);
    EXPECT_EQ(family.free(block), nullptr);
    EXPECT_EQ(TakeError(), untouched);
}

TEST_P(MemoryBlocks, SizeIsWhatWasAskedFor)
{
    for (UINT const flags : {LMEM_FIXED, LMEM_MOVEABLE})
    {
        for (SIZE_T const size : {1u, 7u, 8u, 15u, 16u, 17u, 100u, 4097u})
        {
            HLOCAL const block = family.alloc(flags, size);
            EXPECT_EQ(family.size(block), size);
            EXPECT_EQ(family.free(block), nullptr);
        }
    }
}

TEST_P(MemoryBlocks, ZeroInitClears)
{
    HLOCAL const fixed = family.alloc(LPTR, 3000);
    EXPECT_TRUE(IsZero(fixed, 0, 3000));
    family.free(fixed);
    HLOCAL const moveable = family.alloc(LHND, 3000);
    EXPECT_TRUE(IsZero(family.lock(moveable), 0, 3000));
    family.free(moveable);
}

TEST_P(MemoryBlocks, EmptyFixedBlockHasAnAddress)
{
    HLOCAL const block = family.alloc(LMEM_FIXED, 0);
    ASSERT_NE(block, nullptr);
    EXPECT_EQ(family.size(block), family.emptySize);
    EXPECT_EQ(family.lock(block), block);
    EXPECT_EQ(family.free(block), nullptr);
}

TEST_P(MemoryBlocks, MoveableBlockCountsItsLocks)
{
    HLOCAL const block = family.alloc(LMEM_MOVEABLE, 10);
    ASSERT_NE(block, nullptr);
    void * const address = family.lock(block);
    ASSERT_NE(address, nullptr);
    EXPECT_NE(address, block);
    EXPECT_EQ(family.lock(block), address);
    EXPECT_EQ(family.handle(address), block);
    EXPECT_EQ(TakeError(), untouched);
    EXPECT_EQ(family.unlock(block), TRUE);
    EXPECT_EQ(TakeError(), untouched);
    EXPECT_EQ(family.unlock(block), FALSE);
    EXPECT_EQ(TakeError(), DWORD{NO_ERROR});
    EXPECT_EQ(family.unlock(block), FALSE);
    EXPECT_EQ(TakeError(), DWORD{ERROR_NOT_LOCKED});
    EXPECT_EQ(family.free(block), nullptr);
}

TEST_P(MemoryBlocks, LocksStopAt255)
{
    HLOCAL const block = family.alloc(LMEM_MOVEABLE, 10);
    for (int i = 0; i < 300; ++i)
    {
        EXPECT_NE(family.lock(block), nullptr);
    }
    int unlocks = 1;
    while (family.unlock(block))
    {
        ++unlocks;
    }
    EXPECT_EQ(unlocks, 255);
    family.free(block);
}

TEST_P(MemoryBlocks, AddressOfAMoveableBlockStandsForItsHandle)
{
    HLOCAL const block = family.alloc(LMEM_MOVEABLE, 40);
    void * const address = family.lock(block);
    EXPECT_EQ(family.size(address), 40u);
    EXPECT_EQ(family.lock(address), address);
    EXPECT_EQ(family.free(address), nullptr);
    EXPECT_EQ(TakeError(), untouched);
}

TEST_P(MemoryBlocks, LockedBlockCanBeFreed)
{
    HLOCAL const block = family.alloc(LMEM_MOVEABLE, 10);
    family.lock(block);
    EXPECT_EQ(family.free(block), nullptr);
    EXPECT_EQ(TakeError(), untouched);
}

TEST_P(MemoryBlocks, EmptyMoveableBlockIsDiscardedUntilItGrows)
{
    HLOCAL const block = family.alloc(LMEM_MOVEABLE, 0);
    ASSERT_NE(block, nullptr);
    EXPECT_EQ(family.size(block), 0u);
    EXPECT_EQ(TakeError(), untouched);
    EXPECT_EQ(family.lock(block), nullptr);
    EXPECT_EQ(TakeError(), DWORD{ERROR_DISCARDED});
    EXPECT_EQ(family.unlock(block), FALSE);
    EXPECT_EQ(TakeError(), DWORD{ERROR_NOT_LOCKED});
    EXPECT_EQ(family.reAlloc(block, 10, LMEM_ZEROINIT), block);
    EXPECT_EQ(family.size(block), 10u);
    EXPECT_TRUE(IsZero(family.lock(block), 0, 10));
    EXPECT_EQ(family.free(block), nullptr);
}

TEST_P(MemoryBlocks, SizeZeroDiscardsAnUnlockedMoveableBlock)
{
    HLOCAL const block = family.alloc(LMEM_MOVEABLE, 10);
    EXPECT_EQ(family.reAlloc(block, 0, 0), nullptr);
    EXPECT_EQ(TakeError(), DWORD{ERROR_INVALID_PARAMETER});
    EXPECT_EQ(family.size(block), 10u);

    family.lock(block);
    EXPECT_EQ(family.reAlloc(block, 0, LMEM_MOVEABLE), nullptr);
    EXPECT_EQ(TakeError(), family.lockedDiscardError);
    EXPECT_EQ(family.size(block), 10u);
    family.unlock(block);
    SetLastError(untouched);

    EXPECT_EQ(family.reAlloc(block, 0, LMEM_MOVEABLE), block);
    EXPECT_EQ(family.size(block), 0u);
    EXPECT_EQ(TakeError(), untouched);
    EXPECT_EQ(family.lock(block), nullptr);
    EXPECT_EQ(TakeError(), DWORD{ERROR_DISCARDED});
    EXPECT_EQ(family.reAlloc(block, 50, LMEM_MOVEABLE), block);
    EXPECT_EQ(family.size(block), 50u);
    EXPECT_EQ(family.free(block), nullptr);
}

TEST_P(MemoryBlocks, GrowingKeepsTheBytesAndClearsTheRest)
{
    for (UINT const flags : {LMEM_FIXED, LMEM_MOVEABLE})
    {
        HLOCAL block = family.alloc(flags, 10);
        std::memset(family.lock(block), 0x55, 10);
        family.unlock(block);
        block = family.reAlloc(block, 50000, LMEM_MOVEABLE | LMEM_ZEROINIT);
        ASSERT_NE(block, nullptr);
        EXPECT_EQ(family.size(block), 50000u);
        auto const * const bytes = static_cast<unsigned char const *>(family.lock(block));
        for (int i = 0; i < 10; ++i)
        {
            EXPECT_EQ(bytes[i], 0x55);
        }
        EXPECT_TRUE(IsZero(bytes, 10, 50000));
        EXPECT_EQ(family.free(block), nullptr);
    }
}

TEST_P(MemoryBlocks, ShrinkingStaysAndGrowingAgainClears)
{
    HLOCAL const block = family.alloc(LMEM_FIXED, 3000);
    std::memset(block, 0x55, 3000);
    EXPECT_EQ(family.reAlloc(block, 5, 0), block);
    EXPECT_EQ(family.size(block), 5u);
    EXPECT_EQ(family.reAlloc(block, 8, LMEM_ZEROINIT), block);
    EXPECT_TRUE(IsZero(block, 5, 8));
    EXPECT_EQ(family.reAlloc(block, 0, 0), block);
    EXPECT_EQ(family.size(block), 0u);
    EXPECT_EQ(family.free(block), nullptr);
}

TEST_P(MemoryBlocks, WhatMayNotMoveGrowsInPlaceOrNotAtAll)
{
    // Whether there is room behind a block is the heap's affair.
    auto const expectInPlace = [&](HLOCAL block, void * address)
    {
        HLOCAL const grown = family.reAlloc(block, 100000, 0);
        if (grown == nullptr)
        {
            EXPECT_EQ(TakeError(), DWORD{ERROR_NOT_ENOUGH_MEMORY});
        }
        EXPECT_EQ(family.size(block), grown == nullptr ? 10u : 100000u);
        EXPECT_EQ(family.lock(block), address);
    };
    HLOCAL const fixed = family.alloc(LMEM_FIXED, 10);
    expectInPlace(fixed, fixed);
    family.free(fixed);

    HLOCAL const moveable = family.alloc(LMEM_MOVEABLE, 10);
    expectInPlace(moveable, family.lock(moveable));
    EXPECT_EQ(family.reAlloc(moveable, 200000, LMEM_MOVEABLE), moveable);
    EXPECT_EQ(family.size(moveable), 200000u);
    family.free(moveable);
}

TEST_P(MemoryBlocks, OnlyTheBeginningOfABlockHasAHandle)
{
    HLOCAL const fixed = family.alloc(LMEM_FIXED, 40);
    EXPECT_EQ(family.handle(static_cast<char *>(fixed) + 4), nullptr);
    EXPECT_EQ(TakeError(), DWORD{ERROR_INVALID_HANDLE});
    family.free(fixed);

    HLOCAL const moveable = family.alloc(LMEM_MOVEABLE, 40);
    char * const address = static_cast<char *>(family.lock(moveable));
    EXPECT_EQ(family.handle(address + 16), nullptr);
    EXPECT_EQ(TakeError(), DWORD{ERROR_INVALID_HANDLE});
    EXPECT_EQ(family.handle(moveable), nullptr) << "a handle is no address";
    EXPECT_EQ(TakeError(), DWORD{ERROR_INVALID_HANDLE});
    family.free(moveable);
}

TEST_P(MemoryBlocks, NullIsNoBlock)
{
    EXPECT_EQ(family.free(nullptr), nullptr);
    EXPECT_EQ(TakeError(), untouched);
    EXPECT_EQ(family.lock(nullptr), nullptr);
    EXPECT_EQ(TakeError(), untouched);
    EXPECT_EQ(family.unlock(nullptr), FALSE);
    EXPECT_EQ(TakeError(), DWORD{ERROR_INVALID_HANDLE});
    EXPECT_EQ(family.size(nullptr), 0u);
    EXPECT_EQ(TakeError(), DWORD{ERROR_INVALID_HANDLE});
    EXPECT_EQ(family.reAlloc(nullptr, 5, LMEM_MOVEABLE), nullptr);
    EXPECT_EQ(TakeError(), DWORD{ERROR_INVALID_HANDLE});
    EXPECT_EQ(family.handle(nullptr), nullptr);
    EXPECT_EQ(TakeError(), DWORD{ERROR_INVALID_PARAMETER});
}

TEST_P(MemoryBlocks, FreedOrForeignHandlesAreInvalid)
{
    HLOCAL const freed = family.alloc(LMEM_MOVEABLE, 10);
    family.free(freed);
    // A handle, by which a block that moves is known, is told from an address by its lowest bits.
    for (HLOCAL const block : {freed, reinterpret_cast<HLOCAL>(std::uintptr_t{0xDEADBEEC})})
    {
        EXPECT_EQ(family.free(block), block);
        EXPECT_EQ(TakeError(), DWORD{ERROR_INVALID_HANDLE});
        EXPECT_EQ(family.lock(block), nullptr);
        EXPECT_EQ(TakeError(), DWORD{ERROR_INVALID_HANDLE});
        EXPECT_EQ(family.unlock(block), FALSE);
        EXPECT_EQ(TakeError(), DWORD{ERROR_INVALID_HANDLE});
        EXPECT_EQ(family.size(block), 0u);
        EXPECT_EQ(TakeError(), DWORD{ERROR_INVALID_HANDLE});
        EXPECT_EQ(family.reAlloc(block, 5, LMEM_MOVEABLE), nullptr);
        EXPECT_EQ(TakeError(), DWORD{ERROR_INVALID_HANDLE});
    }
}

TEST_P(MemoryBlocks, ImpossibleSizesFail)
{
    for (UINT const flags : {LMEM_FIXED, LMEM_MOVEABLE})
    {
        for (SIZE_T const size : {~SIZE_T{0}, ~SIZE_T{0} - 20})
        {
            EXPECT_EQ(family.alloc(flags, size), nullptr);
            EXPECT_EQ(TakeError(), DWORD{ERROR_NOT_ENOUGH_MEMORY});
        }
    }
    HLOCAL const block = family.alloc(LMEM_MOVEABLE, 10);
    EXPECT_EQ(family.reAlloc(block, ~SIZE_T{0} - 20, LMEM_MOVEABLE), nullptr);
    EXPECT_EQ(TakeError(), DWORD{ERROR_NOT_ENOUGH_MEMORY});
    EXPECT_EQ(family.size(block), 10u);
    family.free(block);
}

TEST_P(MemoryBlocks, ThreadsShareTheHeap)
{
    std::atomic<int> failures{0};
    std::vector<std::thread> threads;
    HLOCAL const shared = family.alloc(LMEM_MOVEABLE, 64);
    for (int t = 0; t < 4; ++t)
    {
        threads.emplace_back(
            [&, t]
            {
                for (int i = 0; i < 500; ++i)
                {
                    HLOCAL block = family.alloc(i % 2 == 0 ? LMEM_FIXED : LMEM_MOVEABLE, 16);
                    std::memset(family.lock(block), t, 16);
                    family.unlock(block);
                    block = family.reAlloc(block, 500, LMEM_MOVEABLE);
                    char const * const bytes = static_cast<char const *>(family.lock(block));
                    failures += bytes[0] != t || bytes[15] != t || family.size(block) != 500;
                    failures += family.free(block) != nullptr;
                    failures += family.lock(shared) == nullptr;
                    family.unlock(shared);
                }
            });
    }
    for (std::thread & thread : threads)
    {
        thread.join();
    }
    EXPECT_EQ(failures, 0);
    EXPECT_EQ(family.unlock(shared), FALSE);
    EXPECT_EQ(family.free(shared), nullptr);
}

TEST(MemoryBlocks, BothFamiliesAreOneHeap)
{
    HLOCAL const block = LocalAlloc(LMEM_MOVEABLE, 10);
    EXPECT_EQ(GlobalSize(block), 10u);
    EXPECT_EQ(GlobalFree(block), nullptr);
}
