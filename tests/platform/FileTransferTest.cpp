#include <array>
#include <cstdint>

#include <support/ScopedHandle.h>
#include <support/ScratchFolder.h>

#include <gtest/gtest.h>

namespace
{

constexpr HANDLE noHandle = nullptr;

class FileTransfers : public testing::Test
{
protected:
    FileTransfers()
    {
        folder.Write("file", "hello world");
    }
    ScopedHandle Open(DWORD access, DWORD flags = FILE_ATTRIBUTE_NORMAL) const
    {
        return ScopedHandle(Win32Path(folder / "file"), access, shareAll, OPEN_EXISTING, flags);
    }
    static DWORD PositionOf(HANDLE file)
    {
        return SetFilePointer(file, 0, nullptr, FILE_CURRENT);
    }

    ScratchFolder folder;
    char buffer[64] = {};
    DWORD done = 99;
};

OVERLAPPED At(std::uint64_t place)
{
    OVERLAPPED overlapped = {};
    overlapped.Offset = static_cast<DWORD>(place);
    overlapped.OffsetHigh = static_cast<DWORD>(place >> 32);
    return overlapped;
}

TEST_F(FileTransfers, AReadGivesWhatIsThereAndThenNothing)
{
    ScopedHandle const file = Open(GENERIC_READ);
    ASSERT_TRUE(ReadFile(file, buffer, sizeof(buffer), &done, nullptr));
    EXPECT_EQ(std::string(buffer, done), "hello world");
    ASSERT_TRUE(ReadFile(file, buffer, sizeof(buffer), &done, nullptr));
    EXPECT_EQ(done, 0u);
}

TEST_F(FileTransfers, NothingAskedIsNothingDone)
{
    ScopedHandle const file = Open(readWrite);
    EXPECT_TRUE(ReadFile(file, nullptr, 0, &done, nullptr));
    EXPECT_EQ(done, 0u);
    done = 99;
    EXPECT_TRUE(WriteFile(file, nullptr, 0, &done, nullptr));
    EXPECT_EQ(done, 0u);
    EXPECT_EQ(folder.Read("file"), "hello world");
}

TEST_F(FileTransfers, AccessIsThatOfTheHandle)
{
    ScopedHandle const reader = Open(GENERIC_READ);
    ScopedHandle const writer = Open(GENERIC_WRITE);
    ScopedHandle const looker = Open(0);
    EXPECT_EQ(LastErrorOf([&] { return WriteFile(reader, "x", 1, &done, nullptr); }), DWORD{ERROR_ACCESS_DENIED});
    EXPECT_EQ(done, 0u);
    EXPECT_EQ(LastErrorOf([&] { return ReadFile(writer, buffer, 1, &done, nullptr); }), DWORD{ERROR_ACCESS_DENIED});
    EXPECT_EQ(LastErrorOf([&] { return ReadFile(looker, buffer, 1, &done, nullptr); }), DWORD{ERROR_ACCESS_DENIED});
    EXPECT_EQ(LastErrorOf([&] { return FlushFileBuffers(reader); }), DWORD{ERROR_ACCESS_DENIED});
    EXPECT_EQ(LastErrorOf([&] { return FlushFileBuffers(writer); }), 0u);
    EXPECT_FALSE(SetEndOfFile(reader));
    LARGE_INTEGER size;
    EXPECT_TRUE(GetFileSizeEx(looker, &size));
    EXPECT_EQ(size.QuadPart, 11);
}

TEST_F(FileTransfers, WhatIsNoHandleIsSaidSo)
{
    ScopedHandle closed = Open(GENERIC_READ);
    HANDLE const stale = closed;
    closed.Close();
    HANDLE const odd = reinterpret_cast<HANDLE>(ULONG_PTR{0x12344});
    for (HANDLE const handle : {noHandle, INVALID_HANDLE_VALUE, stale, odd})
    {
        done = 99;
        DWORD const invalid = ERROR_INVALID_HANDLE;
        LARGE_INTEGER number = {};
        FILETIME time;
        EXPECT_EQ(LastErrorOf([&] { return ReadFile(handle, buffer, 1, &done, nullptr); }), invalid);
        EXPECT_EQ(done, 0u);
        EXPECT_EQ(LastErrorOf([&] { return WriteFile(handle, buffer, 1, &done, nullptr); }), invalid);
        EXPECT_EQ(LastErrorOf([&] { return SetFilePointerEx(handle, number, nullptr, FILE_BEGIN); }), invalid);
        EXPECT_EQ(LastErrorOf([&] { return GetFileSizeEx(handle, &number); }), invalid);
        EXPECT_EQ(LastErrorOf([&] { return GetFileSize(handle, nullptr) != INVALID_FILE_SIZE; }), invalid);
        EXPECT_EQ(LastErrorOf([&] { return FlushFileBuffers(handle); }), invalid);
        EXPECT_EQ(LastErrorOf([&] { return SetEndOfFile(handle); }), invalid);
        EXPECT_EQ(LastErrorOf([&] { return LockFile(handle, 0, 0, 1, 0); }), invalid);
        EXPECT_EQ(LastErrorOf([&] { return UnlockFile(handle, 0, 0, 1, 0); }), invalid);
        EXPECT_EQ(LastErrorOf([&] { return GetFileTime(handle, &time, nullptr, nullptr); }), invalid);
        EXPECT_EQ(LastErrorOf([&] { return GetFileType(handle) != FILE_TYPE_UNKNOWN; }), invalid);
    }
}

TEST_F(FileTransfers, ClosingTwiceFails)
{
    ScopedHandle file = Open(GENERIC_READ);
    HANDLE const handle = file;
    file.Close();
    EXPECT_EQ(LastErrorOf([&] { return CloseHandle(handle); }), DWORD{ERROR_INVALID_HANDLE});
    EXPECT_EQ(LastErrorOf([&] { return CloseHandle(nullptr); }), DWORD{ERROR_INVALID_HANDLE});
    EXPECT_TRUE(CloseHandle(INVALID_HANDLE_VALUE)) << "the process's own pseudo handle";
}

TEST_F(FileTransfers, ABufferThatIsNotThereIsAnError)
{
    ScopedHandle const file = Open(readWrite);
    void * const nowhere = reinterpret_cast<void *>(ULONG_PTR{16});
    EXPECT_EQ(LastErrorOf([&] { return ReadFile(file, nowhere, 8, &done, nullptr); }), DWORD{ERROR_NOACCESS});
    EXPECT_EQ(
        LastErrorOf([&] { return WriteFile(file, nowhere, 8, &done, nullptr); }), DWORD{ERROR_INVALID_USER_BUFFER});
    EXPECT_EQ(PositionOf(file), 0u);
    EXPECT_EQ(folder.Read("file"), "hello world");
}

TEST_F(FileTransfers, ATransferAtAPlaceLeavesThePositionBehindIt)
{
    ScopedHandle const file = Open(readWrite);
    OVERLAPPED place = At(6);
    ASSERT_TRUE(ReadFile(file, buffer, 3, &done, &place));
    EXPECT_EQ(std::string(buffer, done), "wor");
    EXPECT_EQ(place.Internal, 0u);
    EXPECT_EQ(place.InternalHigh, 3u);
    EXPECT_EQ(PositionOf(file), 9u);
    place = At(8);
    ASSERT_TRUE(ReadFile(file, buffer, 30, nullptr, &place)) << "the count may be told in the request alone";
    EXPECT_EQ(place.InternalHigh, 3u);
    place = At(2);
    ASSERT_TRUE(WriteFile(file, "LL", 2, &done, &place));
    EXPECT_EQ(PositionOf(file), 4u);
    EXPECT_EQ(folder.Read("file"), "heLLo world");
}

TEST_F(FileTransfers, AReadAtAPlaceBehindTheEndFails)
{
    ScopedHandle const file = Open(GENERIC_READ);
    for (std::uint64_t const offset : {std::uint64_t{11}, std::uint64_t{100}})
    {
        OVERLAPPED place = At(offset);
        EXPECT_EQ(LastErrorOf([&] { return ReadFile(file, buffer, 3, &done, &place); }), DWORD{ERROR_HANDLE_EOF});
        EXPECT_EQ(done, 0u);
        EXPECT_EQ(place.Internal, 0xC0000011u);
        EXPECT_EQ(PositionOf(file), offset);
    }
    OVERLAPPED place = At(11);
    EXPECT_TRUE(ReadFile(file, buffer, 0, &done, &place));
}

TEST_F(FileTransfers, SomePlacesHaveAMeaning)
{
    ScopedHandle const file = Open(readWrite);
    OVERLAPPED place = At(~std::uint64_t{0});
    ASSERT_TRUE(WriteFile(file, "!", 1, &done, &place)) << "appends";
    EXPECT_EQ(folder.Read("file"), "hello world!");
    EXPECT_EQ(PositionOf(file), 12u);
    SetFilePointer(file, 1, nullptr, FILE_BEGIN);
    place = At(~std::uint64_t{1});
    ASSERT_TRUE(WriteFile(file, "E", 1, &done, &place)) << "at the position";
    EXPECT_EQ(folder.Read("file"), "hEllo world!");
    EXPECT_EQ(PositionOf(file), 2u);
    for (std::uint64_t const wrong : {~std::uint64_t{2}, std::uint64_t{1} << 63})
    {
        place = At(wrong);
        EXPECT_EQ(LastErrorOf([&] { return WriteFile(file, "E", 1, &done, &place); }), DWORD{ERROR_INVALID_PARAMETER});
        place = At(wrong);
        EXPECT_EQ(
            LastErrorOf([&] { return ReadFile(file, buffer, 1, &done, &place); }), DWORD{ERROR_INVALID_PARAMETER});
    }
    place = At(~std::uint64_t{0});
    EXPECT_EQ(LastErrorOf([&] { return ReadFile(file, buffer, 1, &done, &place); }), DWORD{ERROR_INVALID_PARAMETER});
}

TEST_F(FileTransfers, WhoMayOnlyAppendAppends)
{
    ScopedHandle const file = Open(FILE_APPEND_DATA);
    SetFilePointer(file, 0, nullptr, FILE_BEGIN);
    ASSERT_TRUE(WriteFile(file, "AB", 2, &done, nullptr));
    OVERLAPPED place = At(0);
    ASSERT_TRUE(WriteFile(file, "CD", 2, &done, &place));
    EXPECT_EQ(folder.Read("file"), "hello worldABCD");
}

TEST_F(FileTransfers, AnOverlappedHandleNeedsARequest)
{
    ScopedHandle const file = Open(readWrite, FILE_FLAG_OVERLAPPED);
    EXPECT_EQ(LastErrorOf([&] { return ReadFile(file, buffer, 1, &done, nullptr); }), DWORD{ERROR_INVALID_PARAMETER});
    EXPECT_EQ(LastErrorOf([&] { return WriteFile(file, "x", 1, &done, nullptr); }), DWORD{ERROR_INVALID_PARAMETER});
    EXPECT_EQ(folder.Read("file"), "hello world");
}

TEST_F(FileTransfers, ThePositionMovesFromThreeOrigins)
{
    ScopedHandle const file = Open(GENERIC_READ);
    EXPECT_EQ(SetFilePointer(file, 5, nullptr, FILE_BEGIN), 5u);
    EXPECT_EQ(SetFilePointer(file, 3, nullptr, FILE_CURRENT), 8u);
    EXPECT_EQ(SetFilePointer(file, -2, nullptr, FILE_CURRENT), 6u);
    EXPECT_EQ(SetFilePointer(file, -1, nullptr, FILE_END), 10u);
    EXPECT_EQ(SetFilePointer(file, 1000, nullptr, FILE_END), 1011u) << "behind the end";
    LARGE_INTEGER distance;
    LARGE_INTEGER position;
    distance.QuadPart = 0x123456789;
    ASSERT_TRUE(SetFilePointerEx(file, distance, &position, FILE_BEGIN));
    EXPECT_EQ(position.QuadPart, 0x123456789);
    distance.QuadPart = -0x23456789;
    ASSERT_TRUE(SetFilePointerEx(file, distance, &position, FILE_CURRENT));
    EXPECT_EQ(position.QuadPart, 0x100000000);
    EXPECT_TRUE(SetFilePointerEx(file, distance, nullptr, FILE_CURRENT));
}

TEST_F(FileTransfers, AWrongSeekMovesNothing)
{
    ScopedHandle const file = Open(GENERIC_READ);
    auto const seek = [&](LONG distance, DWORD method) {
        return LastErrorOf([&] { return SetFilePointer(file, distance, nullptr, method) != INVALID_SET_FILE_POINTER; });
    };
    SetFilePointer(file, 5, nullptr, FILE_BEGIN);
    EXPECT_EQ(seek(-6, FILE_CURRENT), DWORD{ERROR_NEGATIVE_SEEK});
    EXPECT_EQ(seek(-12, FILE_END), DWORD{ERROR_NEGATIVE_SEEK});
    EXPECT_EQ(seek(-1, FILE_BEGIN), DWORD{ERROR_NEGATIVE_SEEK});
    EXPECT_EQ(seek(0, 3), DWORD{ERROR_INVALID_PARAMETER});
    LARGE_INTEGER distance;
    distance.QuadPart = -1;
    EXPECT_EQ(
        LastErrorOf([&] { return SetFilePointerEx(file, distance, nullptr, FILE_BEGIN); }), DWORD{ERROR_NEGATIVE_SEEK});
    EXPECT_EQ(
        LastErrorOf([&] { return SetFilePointerEx(file, distance, nullptr, 7); }), DWORD{ERROR_INVALID_PARAMETER});
    EXPECT_EQ(PositionOf(file), 5u);
}

// How large a file may be is the file system's matter; that no place wraps is ours.
TEST_F(FileTransfers, PlacesNear2To63NeitherWrapNorDamage)
{
    ScopedHandle const file = Open(readWrite);
    for (std::int64_t const place : {INT64_MAX, INT64_MAX - 1, INT64_MAX - 4096})
    {
        LARGE_INTEGER distance;
        LARGE_INTEGER position;
        distance.QuadPart = 5;
        ASSERT_TRUE(SetFilePointerEx(file, distance, nullptr, FILE_BEGIN));
        distance.QuadPart = place;
        bool const moved = SetFilePointerEx(file, distance, &position, FILE_BEGIN) != FALSE;
        EXPECT_TRUE(moved ? position.QuadPart == place : PositionOf(file) == 5) << place;
        distance.QuadPart = 6;
        ASSERT_TRUE(SetFilePointerEx(file, distance, nullptr, FILE_BEGIN));
        distance.QuadPart = INT64_MAX;
        EXPECT_EQ(
            LastErrorOf([&] { return SetFilePointerEx(file, distance, &position, FILE_CURRENT); }),
            DWORD{ERROR_NEGATIVE_SEEK})
            << "the sum is no place";
        EXPECT_EQ(PositionOf(file), 6u);
        OVERLAPPED overlapped = At(static_cast<std::uint64_t>(place));
        EXPECT_FALSE(WriteFile(file, "xyz", 3, &done, &overlapped)) << place;
        overlapped = At(static_cast<std::uint64_t>(place));
        EXPECT_FALSE(ReadFile(file, buffer, 3, &done, &overlapped)) << place;
        EXPECT_EQ(done, 0u);
    }
    EXPECT_EQ(folder.Read("file"), "hello world");
}

TEST_F(FileTransfers, APlaceOfAllOnesIsNoFailureOfSetFilePointer)
{
    ScopedHandle const file = Open(GENERIC_READ);
    LONG high = 0;
    SetLastError(0xBEEF);
    EXPECT_EQ(SetFilePointer(file, -1, &high, FILE_BEGIN), 0xFFFFFFFFu);
    EXPECT_EQ(GetLastError(), 0u);
    high = 1;
    EXPECT_EQ(SetFilePointer(file, 5, &high, FILE_BEGIN), 5u);
    EXPECT_EQ(high, 1);
    high = -1;
    EXPECT_EQ(SetFilePointer(file, -1, &high, FILE_BEGIN), 0xFFFFFFFFu);
    EXPECT_EQ(GetLastError(), DWORD{ERROR_NEGATIVE_SEEK});
}

TEST_F(FileTransfers, TheEndMovesToThePosition)
{
    ScopedHandle const file = Open(readWrite);
    SetFilePointer(file, 5, nullptr, FILE_BEGIN);
    ASSERT_TRUE(SetEndOfFile(file));
    EXPECT_EQ(folder.Read("file"), "hello");
    SetFilePointer(file, 7, nullptr, FILE_BEGIN);
    ASSERT_TRUE(SetEndOfFile(file));
    EXPECT_EQ(folder.Read("file"), std::string("hello\0\0", 7));
    SetFilePointer(file, 9, nullptr, FILE_BEGIN);
    ASSERT_TRUE(WriteFile(file, "z", 1, &done, nullptr));
    EXPECT_EQ(folder.Read("file"), std::string("hello\0\0\0\0z", 10)) << "what is left out is 0";
}

TEST_F(FileTransfers, ASizeOfAllOnesIsNoFailureOfGetFileSize)
{
    ScopedHandle const file = Open(readWrite);
    LONG high = 0;
    SetFilePointer(file, -1, &high, FILE_BEGIN);
    ASSERT_TRUE(SetEndOfFile(file));
    SetLastError(0xBEEF);
    DWORD sizeHigh = 7;
    EXPECT_EQ(GetFileSize(file, &sizeHigh), 0xFFFFFFFFu);
    EXPECT_EQ(sizeHigh, 0u);
    EXPECT_EQ(GetLastError(), 0u);
    high = 3;
    SetFilePointer(file, 9, &high, FILE_BEGIN);
    ASSERT_TRUE(SetEndOfFile(file));
    EXPECT_EQ(GetFileSize(file, &sizeHigh), 9u);
    EXPECT_EQ(sizeHigh, 3u);
    LARGE_INTEGER size;
    ASSERT_TRUE(GetFileSizeEx(file, &size));
    EXPECT_EQ(size.QuadPart, 0x300000009);
}

TEST_F(FileTransfers, AFileThatIsCutMeanwhileIsReadToItsNewEnd)
{
    ScopedHandle const reader = Open(GENERIC_READ);
    ASSERT_TRUE(ReadFile(reader, buffer, 4, &done, nullptr));
    std::filesystem::resize_file(folder / "file", 6);
    ASSERT_TRUE(ReadFile(reader, buffer, sizeof(buffer), &done, nullptr));
    EXPECT_EQ(std::string(buffer, done), "o ");
    std::filesystem::resize_file(folder / "file", 0);
    ASSERT_TRUE(ReadFile(reader, buffer, sizeof(buffer), &done, nullptr));
    EXPECT_EQ(done, 0u);
}

TEST_F(FileTransfers, ADuplicateSharesThePosition)
{
    ScopedHandle const file = Open(GENERIC_READ);
    HANDLE second = nullptr;
    ASSERT_TRUE(
        DuplicateHandle(GetCurrentProcess(), file, GetCurrentProcess(), &second, 0, FALSE, DUPLICATE_SAME_ACCESS));
    ScopedHandle const duplicate(second);
    SetFilePointer(duplicate, 3, nullptr, FILE_BEGIN);
    EXPECT_EQ(PositionOf(file), 3u);
    HANDLE third = nullptr;
    ASSERT_TRUE(
        DuplicateHandle(GetCurrentProcess(), file, GetCurrentProcess(), &third, FILE_READ_ATTRIBUTES, FALSE, 0));
    ScopedHandle const less(third);
    EXPECT_EQ(LastErrorOf([&] { return ReadFile(less, buffer, 1, &done, nullptr); }), DWORD{ERROR_ACCESS_DENIED});
}

TEST_F(FileTransfers, DuplicatingWhatIsNoHandleGivesNone)
{
    HANDLE target = INVALID_HANDLE_VALUE;
    HANDLE const odd = reinterpret_cast<HANDLE>(ULONG_PTR{0x12344});
    HANDLE const self = GetCurrentProcess();
    EXPECT_EQ(
        LastErrorOf([&] { return DuplicateHandle(self, odd, self, &target, 0, FALSE, DUPLICATE_SAME_ACCESS); }),
        DWORD{ERROR_INVALID_HANDLE});
    EXPECT_EQ(target, noHandle);
}

} // namespace
