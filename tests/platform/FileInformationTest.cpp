#include <cstdint>

#include <support/ScopedHandle.h>
#include <support/ScratchFolder.h>

#include <gtest/gtest.h>

namespace
{

class FileInformation : public testing::Test
{
protected:
    FileInformation()
    {
        folder.Write("file", "hello world");
    }
    ScopedHandle Open(DWORD access = readWrite) const
    {
        return ScopedHandle(Win32Path(folder / "file"), access, shareAll, OPEN_EXISTING);
    }

    ScratchFolder folder;
};

std::uint64_t Ticks(FILETIME const & time)
{
    return std::uint64_t{time.dwHighDateTime} << 32 | time.dwLowDateTime;
}

FILETIME Time(std::uint64_t ticks)
{
    return {static_cast<DWORD>(ticks), static_cast<DWORD>(ticks >> 32)};
}

constexpr std::uint64_t someTime = 126100789012345678; // in the year 2000, with all seven places of a second

TEST_F(FileInformation, TimesKeepEveryTick)
{
    ScopedHandle const file = Open();
    FILETIME const access = Time(someTime);
    FILETIME const write = Time(someTime + 1);
    ASSERT_TRUE(SetFileTime(file, nullptr, &access, &write));
    FILETIME readAccess;
    FILETIME readWritten;
    ASSERT_TRUE(GetFileTime(file, nullptr, &readAccess, &readWritten));
    EXPECT_EQ(Ticks(readAccess), someTime);
    EXPECT_EQ(Ticks(readWritten), someTime + 1);
}

TEST_F(FileInformation, ATimeBefore1970IsKept)
{
    ScopedHandle const file = Open();
    constexpr std::uint64_t in1960 = 113289408001234567;
    FILETIME const write = Time(in1960);
    FILETIME back;
    ASSERT_TRUE(SetFileTime(file, nullptr, nullptr, &write));
    ASSERT_TRUE(GetFileTime(file, nullptr, nullptr, &back));
    EXPECT_EQ(Ticks(back), in1960);
}

TEST_F(FileInformation, NoTimeZeroAndAllOnesLeaveATimeAlone)
{
    ScopedHandle const file = Open();
    FILETIME const time = Time(someTime);
    ASSERT_TRUE(SetFileTime(file, nullptr, &time, &time));
    FILETIME const zero = Time(0);
    FILETIME const ones = Time(~std::uint64_t{0});
    EXPECT_TRUE(SetFileTime(file, nullptr, &zero, &ones));
    EXPECT_TRUE(SetFileTime(file, &zero, &ones, &zero));
    EXPECT_TRUE(SetFileTime(file, nullptr, nullptr, nullptr));
    FILETIME access;
    FILETIME write;
    ASSERT_TRUE(GetFileTime(file, nullptr, &access, &write));
    EXPECT_EQ(Ticks(access), someTime);
    EXPECT_EQ(Ticks(write), someTime);
    FILETIME const negative = Time(std::uint64_t{1} << 63);
    EXPECT_EQ(
        LastErrorOf([&] { return SetFileTime(file, nullptr, nullptr, &negative); }), DWORD{ERROR_INVALID_PARAMETER});
}

TEST_F(FileInformation, ReadingNoTimeIsNoFailure)
{
    ScopedHandle const file = Open(GENERIC_READ);
    EXPECT_TRUE(GetFileTime(file, nullptr, nullptr, nullptr));
    FILETIME creation = {};
    EXPECT_TRUE(GetFileTime(file, &creation, nullptr, nullptr));
    EXPECT_GT(Ticks(creation), someTime);
}

TEST_F(FileInformation, TheRecordAgreesWithTheOtherCalls)
{
    ScopedHandle const file = Open();
    FILETIME const time = Time(someTime);
    ASSERT_TRUE(SetFileTime(file, nullptr, &time, &time));
    BY_HANDLE_FILE_INFORMATION information;
    ASSERT_TRUE(GetFileInformationByHandle(file, &information));
    EXPECT_EQ(information.nFileSizeLow, 11u);
    EXPECT_EQ(information.nFileSizeHigh, 0u);
    EXPECT_EQ(information.nNumberOfLinks, 1u);
    EXPECT_EQ(Ticks(information.ftLastWriteTime), someTime);
    EXPECT_EQ(information.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY, 0u);
    BY_HANDLE_FILE_INFORMATION other;
    ASSERT_TRUE(GetFileInformationByHandle(Open(0), &other));
    EXPECT_EQ(other.nFileIndexLow, information.nFileIndexLow);
    EXPECT_EQ(other.nFileIndexHigh, information.nFileIndexHigh);
    EXPECT_EQ(other.dwVolumeSerialNumber, information.dwVolumeSerialNumber);
    folder.Write("another", "x");
    ScopedHandle const another(Win32Path(folder / "another"), 0, shareAll, OPEN_EXISTING);
    ASSERT_TRUE(GetFileInformationByHandle(another, &other));
    EXPECT_NE(
        std::uint64_t{other.nFileIndexHigh} << 32 | other.nFileIndexLow,
        std::uint64_t{information.nFileIndexHigh} << 32 | information.nFileIndexLow);
}

TEST_F(FileInformation, ANewFileMayBeReadOnly)
{
    ScopedHandle const file(Win32Path(folder / "fixed"), GENERIC_WRITE, shareAll, CREATE_NEW, FILE_ATTRIBUTE_READONLY);
    DWORD done = 0;
    EXPECT_TRUE(WriteFile(file, "x", 1, &done, nullptr)) << "by who made it";
    BY_HANDLE_FILE_INFORMATION information;
    ASSERT_TRUE(GetFileInformationByHandle(file, &information));
    EXPECT_NE(information.dwFileAttributes & FILE_ATTRIBUTE_READONLY, 0u);
}

TEST_F(FileInformation, TheTypeOfAFileIsDisk)
{
    EXPECT_EQ(GetFileType(Open(0)), DWORD{FILE_TYPE_DISK});
}

TEST_F(FileInformation, TheFinalPathLeadsToTheFile)
{
    ScopedHandle const file = Open(GENERIC_READ);
    WCHAR path[1024];
    DWORD const length = GetFinalPathNameByHandleW(file, path, 1024, VOLUME_NAME_DOS);
    ASSERT_GT(length, 8u);
    ASSERT_LT(length, 1024u);
    EXPECT_EQ(path[length], 0);
    EXPECT_EQ(WString(path, 4), TEXT("\\\\?\\"));
    EXPECT_EQ(WString(path).substr(length - 5), TEXT("\\file"));
    ScopedHandle const again(path, GENERIC_READ, shareAll, OPEN_EXISTING);
    EXPECT_TRUE(again.IsOpen());
    WCHAR small[4];
    EXPECT_EQ(GetFinalPathNameByHandleW(file, small, 4, VOLUME_NAME_DOS), length + 1);
    EXPECT_EQ(
        LastErrorOf([&] { return GetFinalPathNameByHandleW(file, path, 1024, 0x77); }), DWORD{ERROR_INVALID_PARAMETER});
}

TEST(StandardHandles, ThereAreThree)
{
    for (DWORD const which : {STD_INPUT_HANDLE, STD_OUTPUT_HANDLE, STD_ERROR_HANDLE})
    {
        EXPECT_NE(GetStdHandle(which), INVALID_HANDLE_VALUE);
        EXPECT_EQ(GetStdHandle(which), GetStdHandle(which));
    }
    EXPECT_EQ(GetStdHandle(static_cast<DWORD>(-13)), INVALID_HANDLE_VALUE);
}

} // namespace
