#include <cstdint>
#include <thread>

#include <support/ScopedHandle.h>
#include <support/ScratchFolder.h>

#include <gtest/gtest.h>

namespace
{

constexpr std::uint64_t top = std::uint64_t{1} << 63;

class FileLocks : public testing::Test
{
protected:
    FileLocks()
    {
        folder.Write("file", std::string(100, 'x'));
        first = Open();
        second = Open();
    }
    ScopedHandle Open(DWORD access = readWrite) const
    {
        return ScopedHandle(Win32Path(folder / "file"), access, shareAll, OPEN_EXISTING);
    }
    static DWORD Lock(HANDLE file, std::uint64_t offset, std::uint64_t length)
    {
        return LastErrorOf(
            [&]
            {
                return LockFile(
                    file, static_cast<DWORD>(offset), static_cast<DWORD>(offset >> 32), static_cast<DWORD>(length),
                    static_cast<DWORD>(length >> 32));
            });
    }
    static DWORD Unlock(HANDLE file, std::uint64_t offset, std::uint64_t length)
    {
        return LastErrorOf(
            [&]
            {
                return UnlockFile(
                    file, static_cast<DWORD>(offset), static_cast<DWORD>(offset >> 32), static_cast<DWORD>(length),
                    static_cast<DWORD>(length >> 32));
            });
    }
    static DWORD LockEx(HANDLE file, DWORD flags, DWORD offset, DWORD length)
    {
        OVERLAPPED place = {};
        place.Offset = offset;
        return LastErrorOf([&] { return LockFileEx(file, flags, 0, length, 0, &place); });
    }
    static DWORD LockShared(HANDLE file, DWORD offset, DWORD length)
    {
        return LockEx(file, LOCKFILE_FAIL_IMMEDIATELY, offset, length);
    }
    static DWORD LockExclusive(HANDLE file, DWORD offset, DWORD length)
    {
        return LockEx(file, LOCKFILE_FAIL_IMMEDIATELY | LOCKFILE_EXCLUSIVE_LOCK, offset, length);
    }

    ScratchFolder folder;
    ScopedHandle first;
    ScopedHandle second;
    DWORD const violation = ERROR_LOCK_VIOLATION;
};

TEST_F(FileLocks, RangesThatMeetExcludeOneAnother)
{
    ASSERT_EQ(Lock(first, 10, 10), 0u);
    EXPECT_EQ(Lock(first, 10, 10), violation) << "also through the same handle";
    EXPECT_EQ(Lock(second, 15, 10), violation);
    EXPECT_EQ(Lock(second, 5, 6), violation);
    EXPECT_EQ(Lock(second, 12, 1), violation);
    EXPECT_EQ(Lock(second, 0, 100), violation);
    EXPECT_EQ(Lock(second, 20, 10), 0u);
    EXPECT_EQ(Lock(second, 5, 5), 0u);
    EXPECT_EQ(Unlock(first, 10, 10), 0u);
    EXPECT_EQ(Lock(second, 10, 10), 0u);
}

TEST_F(FileLocks, OnlyTheVeryRangeIsUnlocked)
{
    ASSERT_EQ(Lock(first, 10, 10), 0u);
    EXPECT_NE(Unlock(second, 10, 10), 0u) << "another's";
    EXPECT_NE(Unlock(first, 10, 5), 0u);
    EXPECT_NE(Unlock(first, 9, 11), 0u);
    EXPECT_EQ(Unlock(first, 10, 10), 0u);
    EXPECT_NE(Unlock(first, 10, 10), 0u) << "not twice";
}

TEST_F(FileLocks, RangesReachTo2To64AndNoFurther)
{
    EXPECT_EQ(Lock(first, ~std::uint64_t{0}, 1), 0u) << "the last byte";
    EXPECT_EQ(Lock(second, ~std::uint64_t{0}, 1), violation);
    EXPECT_EQ(Lock(second, 1, ~std::uint64_t{0}), violation) << "all but the first byte";
    EXPECT_EQ(Unlock(first, ~std::uint64_t{0}, 1), 0u);
    EXPECT_EQ(Lock(second, 1, ~std::uint64_t{0}), 0u);
    EXPECT_EQ(Unlock(second, 1, ~std::uint64_t{0}), 0u);
    EXPECT_EQ(Lock(first, ~std::uint64_t{0}, 2), DWORD{ERROR_INVALID_PARAMETER});
    EXPECT_EQ(Lock(first, 2, ~std::uint64_t{0}), DWORD{ERROR_INVALID_PARAMETER});
    EXPECT_EQ(Lock(first, top, 1), 0u);
    EXPECT_EQ(Lock(second, top, 1), violation);
    EXPECT_EQ(Lock(second, top + 1, 1), 0u);
    EXPECT_EQ(Lock(second, top - 1, 2), violation);
    EXPECT_EQ(Lock(second, top - 1, 1), 0u);
}

TEST_F(FileLocks, ALockWithoutBytesStandsBetweenTwo)
{
    ASSERT_EQ(Lock(first, 5, 0), 0u);
    EXPECT_EQ(Lock(second, 5, 0), 0u);
    EXPECT_EQ(Lock(second, 0, 10), violation);
    EXPECT_EQ(Lock(second, 5, 5), 0u);
    EXPECT_EQ(Unlock(first, 5, 0), 0u);
}

TEST_F(FileLocks, SharedLocksGoTogether)
{
    ASSERT_EQ(LockShared(first, 10, 10), 0u);
    EXPECT_EQ(LockShared(second, 15, 10), 0u);
    EXPECT_EQ(LockShared(first, 10, 10), 0u) << "twice";
    EXPECT_EQ(LockExclusive(second, 10, 1), violation);
    EXPECT_EQ(LockExclusive(first, 10, 1), violation) << "its own";
    EXPECT_EQ(Unlock(first, 10, 10), 0u);
    EXPECT_EQ(LockExclusive(second, 10, 1), violation) << "one is left";
    EXPECT_EQ(Unlock(first, 10, 10), 0u);
    EXPECT_EQ(LockExclusive(second, 10, 1), 0u);
    EXPECT_EQ(LockShared(second, 10, 1), 0u) << "over its own exclusive one";
    EXPECT_EQ(LockShared(first, 10, 1), violation);
}

TEST_F(FileLocks, LocksEndWithTheHandle)
{
    ASSERT_EQ(Lock(first, 0, 10), 0u);
    first.Close();
    EXPECT_EQ(Lock(second, 0, 10), 0u);
}

TEST_F(FileLocks, TheOwnerTransfersWithinItsExclusiveLock)
{
    ASSERT_EQ(Lock(first, 0, 10), 0u);
    char bytes[10] = {};
    DWORD done = 0;
    EXPECT_TRUE(ReadFile(first, bytes, 10, &done, nullptr));
    SetFilePointer(first, 2, nullptr, FILE_BEGIN);
    EXPECT_TRUE(WriteFile(first, "12", 2, &done, nullptr));
    EXPECT_TRUE(SetFilePointer(second, 10, nullptr, FILE_BEGIN) == 10 && ReadFile(second, bytes, 10, &done, nullptr))
        << "beside the range";
}

TEST_F(FileLocks, AReaderMayLockToo)
{
    ScopedHandle const reader = Open(GENERIC_READ);
    EXPECT_EQ(Lock(reader, 0, 10), 0u);
    EXPECT_EQ(Lock(second, 0, 10), violation);
    ScopedHandle const writer = Open(GENERIC_WRITE);
    EXPECT_EQ(Lock(writer, 20, 10), 0u);
    EXPECT_EQ(Lock(second, 20, 10), violation);
}

TEST_F(FileLocks, AWaitingLockIsGrantedWhenTheOtherGoes)
{
    ASSERT_EQ(Lock(first, 0, 10), 0u);
    DWORD result = 99;
    std::thread waiting([&] { result = LockEx(second, LOCKFILE_EXCLUSIVE_LOCK, 5, 10); });
    // Whether the thread waits already does not matter: it gets the lock in either case, and not before.
    EXPECT_EQ(Unlock(first, 0, 10), 0u);
    waiting.join();
    EXPECT_EQ(result, 0u);
    EXPECT_EQ(Lock(first, 0, 10), violation);
}

TEST_F(FileLocks, ReservedArgumentsAreZero)
{
    OVERLAPPED place = {};
    EXPECT_EQ(LastErrorOf([&] { return LockFileEx(first, 0, 1, 1, 0, &place); }), DWORD{ERROR_INVALID_PARAMETER});
    EXPECT_EQ(LastErrorOf([&] { return UnlockFileEx(first, 1, 1, 0, &place); }), DWORD{ERROR_INVALID_PARAMETER});
}

} // namespace
