#include <kvcore/platform/win32.h>
#include <support/ScratchPaths.h>

namespace
{

struct FailureCase
{
    WCHAR const * path; ///< below the scratch folder, which holds "file.txt" and "dir"
    DWORD error;
};

constexpr FailureCase missingPaths[] = {
    {TEXT("missing"), ERROR_FILE_NOT_FOUND},
    {TEXT("missing\\x"), ERROR_PATH_NOT_FOUND},
    {TEXT("missing\\x\\y"), ERROR_PATH_NOT_FOUND},
    {TEXT("file.txt\\x"), ERROR_PATH_NOT_FOUND},
    {TEXT("file.txt\\x\\y"), ERROR_PATH_NOT_FOUND},
    {TEXT("file.txt\\"), ERROR_PATH_NOT_FOUND},
    {TEXT("a*b"), ERROR_INVALID_NAME},
    {TEXT("a?"), ERROR_INVALID_NAME},
    {TEXT("a<"), ERROR_INVALID_NAME},
    {TEXT("a>"), ERROR_INVALID_NAME},
    {TEXT("a|"), ERROR_INVALID_NAME},
    {TEXT("a\""), ERROR_INVALID_NAME},
    {TEXT("a\x01"), ERROR_INVALID_NAME},
    {TEXT("d*r\\x"), ERROR_INVALID_NAME},
};

TEST(Attributes, OfWhatIsMissingFail)
{
    ScratchPaths folder;
    folder.Make("file.txt");
    folder.MakeDirectory("dir");
    for (FailureCase const & row : missingPaths)
    {
        WIN32_FILE_ATTRIBUTE_DATA data;
        EXPECT_EQ(GetFileAttributesW(folder(row.path).c_str()), INVALID_FILE_ATTRIBUTES);
        EXPECT_EQ(GetLastError(), row.error) << testing::PrintToString(WString(row.path));
        EXPECT_FALSE(GetFileAttributesExW(folder(row.path).c_str(), GetFileExInfoStandard, &data));
        EXPECT_EQ(GetLastError(), row.error) << testing::PrintToString(WString(row.path));
    }
}

TEST(Attributes, OfEmptyAndNullPathsFail)
{
    EXPECT_EQ(GetFileAttributesW(TEXT("")), INVALID_FILE_ATTRIBUTES);
    EXPECT_EQ(GetLastError(), ERROR_PATH_NOT_FOUND);
    EXPECT_EQ(GetFileAttributesW(TEXT("Q:\\")), INVALID_FILE_ATTRIBUTES);
    EXPECT_EQ(GetLastError(), ERROR_PATH_NOT_FOUND);
}

TEST(Attributes, OfOtherMachinesFail)
{
    for (WCHAR const * const path :
         {TEXT("\\\\server\\share\\x"), TEXT("//server/share"), TEXT("\\\\?\\UNC\\server\\share\\x")})
        EXPECT_EQ(GetFileAttributesW(path), INVALID_FILE_ATTRIBUTES);
}

TEST(Attributes, NamesAreFoundWithoutRegardToCase)
{
    ScratchPaths folder;
    folder.Make("Dir/Sub/File \xC3\x84.txt");
    for (WCHAR const * const path :
         {TEXT("Dir\\Sub\\File \u00C4.txt"), TEXT("dir\\sub\\file \u00E4.TXT"), TEXT("DIR/SUB/FILE \u00C4.TXT"),
          TEXT("Dir.\\Sub\\File \u00C4.txt. ."), TEXT("dir\\.\\x\\..\\sub\\\\file \u00E4.txt")})
        EXPECT_EQ(GetFileAttributesW(folder(path).c_str()), FILE_ATTRIBUTE_ARCHIVE)
            << testing::PrintToString(WString(path));
    EXPECT_EQ(GetFileAttributesW((TEXT("\\\\?\\") + folder(TEXT("dir\\SUB"))).c_str()), FILE_ATTRIBUTE_DIRECTORY);
}

TEST(Attributes, TellKindAndRights)
{
    ScratchPaths folder;
    WString const file = folder.Make("file.txt", "12345");
    WString const directory = folder.MakeDirectory("dir");
    EXPECT_EQ(GetFileAttributesW(file.c_str()), FILE_ATTRIBUTE_ARCHIVE);
    EXPECT_EQ(GetFileAttributesW(directory.c_str()), FILE_ATTRIBUTE_DIRECTORY);
    EXPECT_EQ(GetFileAttributesW((directory + TEXT("\\")).c_str()), FILE_ATTRIBUTE_DIRECTORY);
    EXPECT_EQ(GetFileAttributesW(TEXT("Z:\\")) & FILE_ATTRIBUTE_DIRECTORY, FILE_ATTRIBUTE_DIRECTORY);
    EXPECT_EQ(GetFileAttributesW(TEXT("C:\\")) & FILE_ATTRIBUTE_DIRECTORY, FILE_ATTRIBUTE_DIRECTORY);

    EXPECT_TRUE(SetFileAttributesW(file.c_str(), FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_ARCHIVE));
    EXPECT_EQ(GetFileAttributesW(file.c_str()), FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_ARCHIVE);
    EXPECT_TRUE(SetFileAttributesW(file.c_str(), FILE_ATTRIBUTE_NORMAL));
    EXPECT_EQ(GetFileAttributesW(file.c_str()) & FILE_ATTRIBUTE_READONLY, 0u);
}

TEST(Attributes, OfAFolderForbidNothingInIt)
{
    ScratchPaths folder;
    folder.Make("dir/file", "1");
    folder.MakeDirectory("dir/sub");
    WString const directory = folder(TEXT("dir"));
    for (DWORD const attributes : {FILE_ATTRIBUTE_READONLY, FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_DIRECTORY})
    {
        EXPECT_TRUE(SetFileAttributesW(directory.c_str(), attributes));
        EXPECT_EQ(GetFileAttributesW(directory.c_str()) & FILE_ATTRIBUTE_DIRECTORY, FILE_ATTRIBUTE_DIRECTORY);
        EXPECT_TRUE(CreateDirectoryW(folder(TEXT("dir\\new")).c_str(), nullptr));
        EXPECT_TRUE(RemoveDirectoryW(folder(TEXT("dir\\new")).c_str()));
        EXPECT_TRUE(MoveFileW(folder(TEXT("dir\\file")).c_str(), folder(TEXT("dir\\moved")).c_str()));
        EXPECT_TRUE(CopyFileW(folder(TEXT("dir\\moved")).c_str(), folder(TEXT("dir\\file")).c_str(), TRUE));
        EXPECT_TRUE(DeleteFileW(folder(TEXT("dir\\moved")).c_str()));
        WCHAR name[MAX_PATH];
        EXPECT_NE(GetTempFileNameW(directory.c_str(), TEXT("a"), 0, name), 0u);
        EXPECT_TRUE(DeleteFileW(name));
        EXPECT_TRUE(MoveFileW(directory.c_str(), folder(TEXT("other")).c_str()));
        EXPECT_TRUE(MoveFileW(folder(TEXT("other")).c_str(), directory.c_str()));
    }
    EXPECT_TRUE(SetFileAttributesW(directory.c_str(), FILE_ATTRIBUTE_NORMAL));
}

TEST(Attributes, CannotBeSetOnWhatIsMissing)
{
    ScratchPaths folder;
    folder.Make("file.txt");
    EXPECT_FALSE(SetFileAttributesW(folder(TEXT("missing")).c_str(), FILE_ATTRIBUTE_NORMAL));
    EXPECT_EQ(GetLastError(), ERROR_FILE_NOT_FOUND);
    EXPECT_FALSE(SetFileAttributesW(folder(TEXT("file.txt\\x")).c_str(), FILE_ATTRIBUTE_NORMAL));
    EXPECT_EQ(GetLastError(), ERROR_PATH_NOT_FOUND);
}

TEST(Attributes, SizeAndTimesOfAFile)
{
    ScratchPaths folder;
    FILETIME before;
    FILETIME after;
    GetSystemTimeAsFileTime(&before);
    WString const file = folder.Make("file.txt", std::string(70000, 'x'));
    GetSystemTimeAsFileTime(&after);
    WIN32_FILE_ATTRIBUTE_DATA data;
    ASSERT_TRUE(GetFileAttributesExW(file.c_str(), GetFileExInfoStandard, &data));
    EXPECT_EQ(data.nFileSizeLow, 70000u);
    EXPECT_EQ(data.nFileSizeHigh, 0u);
    auto const ticks = [](FILETIME const & time)
    { return static_cast<unsigned __int64>(time.dwHighDateTime) << 32 | time.dwLowDateTime; };
    constexpr unsigned __int64 clockTick = 200000; // file systems' clocks stand a little behind
    for (FILETIME const * const time : {&data.ftCreationTime, &data.ftLastAccessTime, &data.ftLastWriteTime})
    {
        EXPECT_GE(ticks(*time) + clockTick, ticks(before));
        EXPECT_LE(ticks(*time), ticks(after) + clockTick);
    }
    ASSERT_TRUE(GetFileAttributesExW(folder.Root().c_str(), GetFileExInfoStandard, &data));
    EXPECT_EQ(data.nFileSizeLow, 0u);
}

TEST(Attributes, DirectoriesAreMadeAndRemoved)
{
    ScratchPaths folder;
    WString const path = folder(TEXT("New"));
    EXPECT_TRUE(CreateDirectoryW(path.c_str(), nullptr));
    EXPECT_EQ(GetFileAttributesW(path.c_str()), FILE_ATTRIBUTE_DIRECTORY);
    EXPECT_FALSE(CreateDirectoryW(folder(TEXT("NEW")).c_str(), nullptr));
    EXPECT_EQ(GetLastError(), ERROR_ALREADY_EXISTS);
    EXPECT_TRUE(CreateDirectoryW((path + TEXT("\\Sub\\")).c_str(), nullptr));
    EXPECT_FALSE(RemoveDirectoryW(path.c_str()));
    EXPECT_EQ(GetLastError(), ERROR_DIR_NOT_EMPTY);
    EXPECT_TRUE(RemoveDirectoryW(folder(TEXT("new\\SUB")).c_str()));
    EXPECT_TRUE(RemoveDirectoryW((path + TEXT("\\")).c_str()));
    EXPECT_EQ(GetFileAttributesW(path.c_str()), INVALID_FILE_ATTRIBUTES);
}

TEST(Attributes, DirectoriesThatCannotBeMadeOrRemoved)
{
    ScratchPaths folder;
    folder.Make("file.txt");
    folder.MakeDirectory("dir");
    FailureCase const making[] = {
        {TEXT("file.txt"), ERROR_ALREADY_EXISTS},   {TEXT("dir"), ERROR_ALREADY_EXISTS},
        {TEXT("missing\\x"), ERROR_PATH_NOT_FOUND}, {TEXT("file.txt\\x"), ERROR_PATH_NOT_FOUND},
        {TEXT("a*"), ERROR_INVALID_NAME},
    };
    for (FailureCase const & row : making)
    {
        EXPECT_FALSE(CreateDirectoryW(folder(row.path).c_str(), nullptr));
        EXPECT_EQ(GetLastError(), row.error) << testing::PrintToString(WString(row.path));
    }
    FailureCase const removing[] = {
        {TEXT("file.txt"), ERROR_DIRECTORY},        {TEXT("missing"), ERROR_FILE_NOT_FOUND},
        {TEXT("missing\\x"), ERROR_PATH_NOT_FOUND}, {TEXT("file.txt\\x"), ERROR_PATH_NOT_FOUND},
        {TEXT("d*"), ERROR_INVALID_NAME},
    };
    for (FailureCase const & row : removing)
    {
        EXPECT_FALSE(RemoveDirectoryW(folder(row.path).c_str()));
        EXPECT_EQ(GetLastError(), row.error) << testing::PrintToString(WString(row.path));
    }
}

TEST(Attributes, LongestNamesAndPaths)
{
    ScratchPaths folder;
    WString const longest = folder(WString(255, TEXT('n')));
    EXPECT_TRUE(CreateDirectoryW(longest.c_str(), nullptr));
    EXPECT_EQ(GetFileAttributesW(longest.c_str()), FILE_ATTRIBUTE_DIRECTORY);
    EXPECT_TRUE(RemoveDirectoryW(longest.c_str()));
    EXPECT_FALSE(CreateDirectoryW(folder(WString(256, TEXT('n'))).c_str(), nullptr));
    EXPECT_EQ(GetFileAttributesW(folder(WString(256, TEXT('n'))).c_str()), INVALID_FILE_ATTRIBUTES);
    EXPECT_EQ(GetFileAttributesW(folder(WString(20000, TEXT('n'))).c_str()), INVALID_FILE_ATTRIBUTES);

    WString deep = folder.Root();
    for (int i = 0; i < 12; i++) // beyond 260 in all
    {
        deep += TEXT("\\") + WString(100, TEXT('d'));
        ASSERT_TRUE(CreateDirectoryW(deep.c_str(), nullptr)) << i;
    }
    EXPECT_EQ(GetFileAttributesW(deep.c_str()), FILE_ATTRIBUTE_DIRECTORY);
}

TEST(Volumes, DrivesAreThereAndOthersAreNot)
{
    EXPECT_NE(GetLogicalDrives() & (1u << 2), 0u);
    EXPECT_NE(GetLogicalDrives() & (1u << 25), 0u);
    EXPECT_EQ(GetDriveTypeW(TEXT("Q:\\")), DRIVE_NO_ROOT_DIR);
    EXPECT_EQ(GetDriveTypeW(TEXT("Z:\\missing\\")), DRIVE_NO_ROOT_DIR);
    EXPECT_GT(GetDriveTypeW(TEXT("Z:\\")), DRIVE_NO_ROOT_DIR);
    EXPECT_GT(GetDriveTypeW(nullptr), DRIVE_NO_ROOT_DIR);
}

TEST(Volumes, InformationIsThatOfRootsOnly)
{
    WCHAR name[MAX_PATH];
    DWORD longest = 0;
    ASSERT_TRUE(GetVolumeInformationW(TEXT("Z:\\"), nullptr, 0, nullptr, &longest, nullptr, name, MAX_PATH));
    EXPECT_EQ(WString(name), TEXT("NTFS"));
    EXPECT_EQ(longest, 255u);
    EXPECT_FALSE(GetVolumeInformationW(TEXT("Z:"), nullptr, 0, nullptr, nullptr, nullptr, name, MAX_PATH));
    EXPECT_EQ(GetLastError(), ERROR_INVALID_NAME);
    EXPECT_FALSE(GetVolumeInformationW(TEXT("Z:\\tmp\\"), nullptr, 0, nullptr, nullptr, nullptr, name, MAX_PATH));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_DIR_NOT_ROOT));
    EXPECT_FALSE(GetVolumeInformationW(TEXT("Q:\\"), nullptr, 0, nullptr, nullptr, nullptr, name, MAX_PATH));
    EXPECT_EQ(GetLastError(), ERROR_PATH_NOT_FOUND);
}

TEST(Volumes, SpaceInClustersAndInBytesAgree)
{
    DWORD sectors = 0;
    DWORD bytes = 0;
    DWORD freeClusters = 0;
    DWORD clusters = 0;
    ASSERT_TRUE(GetDiskFreeSpaceW(TEXT("Z:\\"), &sectors, &bytes, &freeClusters, &clusters));
    ULARGE_INTEGER available;
    ULARGE_INTEGER total;
    ULARGE_INTEGER allFree;
    ASSERT_TRUE(GetDiskFreeSpaceExW(TEXT("Z:\\"), &available, &total, &allFree));
    EXPECT_EQ(total.QuadPart, static_cast<unsigned __int64>(clusters) * sectors * bytes);
    EXPECT_LE(available.QuadPart, allFree.QuadPart);
    EXPECT_LE(allFree.QuadPart, total.QuadPart);
    EXPECT_FALSE(GetDiskFreeSpaceExW(TEXT("Q:\\"), &available, &total, &allFree));
    EXPECT_FALSE(GetDiskFreeSpaceW(TEXT("Q:\\"), &sectors, &bytes, &freeClusters, &clusters));
    EXPECT_EQ(GetLastError(), ERROR_PATH_NOT_FOUND);
}

TEST(TempNames, TempPathEndsInASeparator)
{
    WCHAR path[MAX_PATH + 1];
    DWORD const length = GetTempPathW(MAX_PATH + 1, path);
    ASSERT_GT(length, 0u);
    EXPECT_EQ(path[length - 1], '\\');
    EXPECT_EQ(GetTempPathW(1, path), length + 1);
}

TEST(TempNames, FileIsMadeForANumberOfItsOwn)
{
    ScratchPaths folder;
    WCHAR name[MAX_PATH];
    UINT const number = GetTempFileNameW(folder.Root().c_str(), TEXT("PREFIX"), 0, name);
    ASSERT_NE(number, 0u);
    WString const text = name;
    EXPECT_EQ(text.substr(0, folder.Root().size() + 4), folder(TEXT("PRE")));
    EXPECT_EQ(text.substr(text.size() - 4), TEXT(".tmp"));
    EXPECT_EQ(GetFileAttributesW(name), FILE_ATTRIBUTE_ARCHIVE);
    UINT const next = GetTempFileNameW(folder.Root().c_str(), TEXT("PREFIX"), 0, name);
    EXPECT_NE(next, number);
    EXPECT_NE(WString(name), text);
}

TEST(TempNames, GivenNumberMakesNothing)
{
    ScratchPaths folder;
    WCHAR name[MAX_PATH];
    EXPECT_EQ(GetTempFileNameW(folder.Root().c_str(), TEXT("a"), 0x12345, name), 0x2345u);
    EXPECT_EQ(WString(name), folder(TEXT("a2345.tmp")));
    EXPECT_EQ(GetFileAttributesW(name), INVALID_FILE_ATTRIBUTES);
}

TEST(TempNames, FolderMustBeThere)
{
    ScratchPaths folder;
    folder.Make("f.txt");
    WCHAR name[MAX_PATH];
    for (WCHAR const * const path : {TEXT("missing"), TEXT("f.txt"), TEXT("missing\\x")})
    {
        EXPECT_EQ(GetTempFileNameW(folder(path).c_str(), TEXT("a"), 0, name), 0u);
        EXPECT_EQ(GetLastError(), ERROR_DIRECTORY);
    }
}

} // namespace
