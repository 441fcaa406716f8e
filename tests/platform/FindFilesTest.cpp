#include <kvcore/platform/win32.h>
#include <support/CostGrowth.h>
#include <support/ScratchPaths.h>

namespace
{

/// The names that a pattern finds, each behind a blank; the error that ends the search in `error`.
std::string Found(WString const & pattern, DWORD & error)
{
    WIN32_FIND_DATAW data;
    std::string names;
    HANDLE const find = FindFirstFileW(pattern.c_str(), &data);
    if (find == INVALID_HANDLE_VALUE)
    {
        error = GetLastError();
        return names;
    }
    do
        names += " " + kv::platform::PathToNative(data.cFileName);
    while (FindNextFileW(find, &data));
    error = GetLastError();
    EXPECT_TRUE(FindClose(find));
    return names;
}

std::string Found(WString const & pattern)
{
    DWORD error = 0;
    return Found(pattern, error);
}

struct MaskCase
{
    WCHAR const * mask;
    char const * found;
};

TEST(FindFiles, MasksMatchAsThePlatformsDo)
{
    ScratchPaths folder;
    for (char const * const name :
         {"a", "A1.txt", "b.TXT", "noext", "two.dots.txt", "long file name.jpeg", ".hidden", "abc.c", "abc.cpp",
          "x+y.z", "trail_", "ab", "abc", "Mixed.Ext"})
        folder.Make(name);
    folder.MakeDirectory("dir.d");
    std::string const all =
        " . .. .hidden a A1.txt ab abc abc.c abc.cpp b.TXT dir.d long file name.jpeg Mixed.Ext noext"
        " trail_ two.dots.txt x+y.z";
    MaskCase const cases[] = {
        {TEXT("*"), all.c_str()},
        {TEXT("*.*"), all.c_str()},
        {TEXT("*."), all.c_str()},
        {TEXT("*.*.*"), all.c_str()},
        {TEXT("* "), all.c_str()},
        {TEXT("*.txt"), " A1.txt b.TXT two.dots.txt"},
        {TEXT("*.t?t"), " A1.txt b.TXT two.dots.txt"},
        {TEXT("?"), " . a"},
        {TEXT("??"), " .. ab"},
        {TEXT("???"), " abc"},
        {TEXT("???.???"), " abc.cpp"},
        {TEXT("a*"), " a A1.txt ab abc abc.c abc.cpp"},
        {TEXT("A*."), " a A1.txt ab abc abc.c abc.cpp"},
        {TEXT("*.c"), " abc.c"},
        {TEXT("*.c??"), " abc.cpp"},
        {TEXT(".*"), " . .. .hidden"},
        {TEXT("*.tx"), ""},
        {TEXT("a??????"), " abc.cpp"},
        {TEXT("abc?.c"), ""},
        {TEXT("noext.*"), " noext"},
        {TEXT("noext."), " noext"},
        {TEXT("no*ext*"), " noext"},
        {TEXT("m*x*t*"), " Mixed.Ext"},
        {TEXT("ABC.C"), " abc.c"},
        {TEXT("a<"), ""},
        {TEXT("a|*"), ""},
        {TEXT("abc>>"), " abc.c"},
    };
    for (MaskCase const & row : cases)
        EXPECT_EQ(Found(folder(row.mask)), row.found) << testing::PrintToString(WString(row.mask));
}

TEST(FindFileCosts, MasksOfManyStarsGrowWithTheirLength)
{
    ScratchPaths const folder;
    folder.Make(std::string(200, '.') + "a");
    folder.Make(std::string(200, 'a'));
    // A letter that no name has comes last, so that every star is tried on every place.
    for (WCHAR const * const unit : {TEXT("*."), TEXT("*a")})
    {
        EXPECT_TRUE(kv::test::GrowsNearLinearly(
            200, 200,
            [&](std::size_t size)
            {
                WString mask;
                while (mask.size() < size)
                {
                    mask += unit;
                }
                return folder(mask + TEXT("x"));
            },
            [](WString const & pattern)
            {
                WIN32_FIND_DATAW data;
                EXPECT_EQ(FindFirstFileW(pattern.c_str(), &data), INVALID_HANDLE_VALUE);
            }));
    }
}

TEST(FindFiles, ShortNamesMatchToo)
{
    ScratchPaths folder;
    folder.Make("long file name.jpeg");
    folder.Make("short.txt");
    EXPECT_EQ(Found(folder(TEXT("*~*"))), " long file name.jpeg");
    EXPECT_EQ(Found(folder(TEXT("lo*.jpe"))), " long file name.jpeg");

    WIN32_FIND_DATAW data;
    HANDLE const find = FindFirstFileW(folder(TEXT("long*")).c_str(), &data);
    ASSERT_NE(find, INVALID_HANDLE_VALUE);
    FindClose(find);
    EXPECT_NE(WString(data.cAlternateFileName), TEXT(""));
    EXPECT_EQ(Found(folder(data.cAlternateFileName)), " long file name.jpeg");

    HANDLE const other = FindFirstFileW(folder(TEXT("short*")).c_str(), &data);
    ASSERT_NE(other, INVALID_HANDLE_VALUE);
    FindClose(other);
    EXPECT_EQ(WString(data.cAlternateFileName), TEXT(""));
}

TEST(FindFiles, FailuresTellWhatIsMissing)
{
    ScratchPaths folder;
    folder.Make("file.txt");
    folder.MakeDirectory("dir");
    struct
    {
        WCHAR const * pattern;
        DWORD error;
    } const cases[] = {
        {TEXT("missing"), ERROR_FILE_NOT_FOUND},       {TEXT("*.none"), ERROR_FILE_NOT_FOUND},
        {TEXT("dir\\x*"), ERROR_FILE_NOT_FOUND},       {TEXT("dir\\"), ERROR_FILE_NOT_FOUND},
        {TEXT("missing\\*"), ERROR_PATH_NOT_FOUND},    {TEXT("missing\\x"), ERROR_PATH_NOT_FOUND},
        {TEXT("missing\\x\\*"), ERROR_PATH_NOT_FOUND}, {TEXT("file.txt\\x\\*"), ERROR_PATH_NOT_FOUND},
        {TEXT("a<b"), ERROR_FILE_NOT_FOUND},           {TEXT("d*\\x"), ERROR_INVALID_NAME},
    };
    for (auto const & row : cases)
    {
        DWORD error = 0;
        EXPECT_EQ(Found(folder(row.pattern), error), "");
        EXPECT_EQ(error, row.error) << testing::PrintToString(WString(row.pattern));
    }
    DWORD error = 0;
    EXPECT_EQ(Found(TEXT(""), error), "");
    EXPECT_EQ(error, ERROR_PATH_NOT_FOUND);
    EXPECT_EQ(Found(folder(TEXT("file.txt\\*")), error), "");
    // The published code is ERROR_DIRECTORY; the Windows that the tests run under calls the name invalid.
    EXPECT_TRUE(error == ERROR_DIRECTORY || error == ERROR_INVALID_NAME) << error;
    EXPECT_EQ(Found(folder(TEXT("file.*")), error), " file.txt");
    EXPECT_EQ(error, ERROR_NO_MORE_FILES);
}

TEST(FindFiles, RecordsHoldWhatAttributesTell)
{
    ScratchPaths folder;
    folder.Make("File.txt", std::string(4097, 'x'));
    WIN32_FIND_DATAW data;
    WIN32_FILE_ATTRIBUTE_DATA same;
    HANDLE const find = FindFirstFileW(folder(TEXT("FILE.TXT")).c_str(), &data);
    ASSERT_NE(find, INVALID_HANDLE_VALUE);
    EXPECT_TRUE(FindClose(find));
    ASSERT_TRUE(GetFileAttributesExW(folder(TEXT("file.txt")).c_str(), GetFileExInfoStandard, &same));
    EXPECT_EQ(WString(data.cFileName), TEXT("File.txt"));
    EXPECT_EQ(data.nFileSizeLow, 4097u);
    EXPECT_EQ(data.nFileSizeHigh, 0u);
    EXPECT_EQ(data.dwFileAttributes, same.dwFileAttributes);
    EXPECT_EQ(data.ftLastWriteTime.dwLowDateTime, same.ftLastWriteTime.dwLowDateTime);
    EXPECT_EQ(data.ftLastWriteTime.dwHighDateTime, same.ftLastWriteTime.dwHighDateTime);
    EXPECT_EQ(data.ftCreationTime.dwLowDateTime, same.ftCreationTime.dwLowDateTime);
}

TEST(FindFiles, DotsNameTheDirectoryItself)
{
    ScratchPaths folder;
    folder.MakeDirectory("Dir/Sub");
    EXPECT_EQ(Found(folder(TEXT("dir\\."))), " Dir");
    EXPECT_EQ(Found(folder(TEXT("dir\\sub\\.."))), " Dir");
    EXPECT_EQ(Found(folder(TEXT("Dir\\*"))), " . .. Sub");
    EXPECT_EQ(Found(TEXT("Z:\\*")).find(" . .. "), std::string::npos);
}

TEST(FindFiles, LargeFoldersAreFoundWhole)
{
    ScratchPaths folder;
    std::string expected;
    for (int i = 1000; i < 2500; i++)
    {
        folder.Make("f" + std::to_string(i));
        expected += " f" + std::to_string(i);
    }
    EXPECT_EQ(Found(folder(TEXT("f*"))), expected);
}

TEST(FindFiles, FolderThatVanishesEndsTheSearch)
{
    ScratchPaths folder;
    for (int i = 1000; i < 1700; i++)
        folder.Make("dir/f" + std::to_string(i));
    WIN32_FIND_DATAW data;
    HANDLE const find = FindFirstFileW(folder(TEXT("dir\\*")).c_str(), &data);
    ASSERT_NE(find, INVALID_HANDLE_VALUE);
    std::error_code error;
    for (int i = 1000; i < 1700; i++)
        std::filesystem::remove(folder / ("dir/f" + std::to_string(i)), error);
    std::filesystem::remove(folder / "dir", error);
    int count = 0;
    while (FindNextFileW(find, &data))
        count++;
    EXPECT_EQ(GetLastError(), ERROR_NO_MORE_FILES);
    EXPECT_LE(count, 701);
    EXPECT_TRUE(FindClose(find));
}

TEST(FindFiles, ClosedHandlesAreRefused)
{
    ScratchPaths folder;
    folder.Make("f");
    WIN32_FIND_DATAW data;
    EXPECT_FALSE(FindClose(INVALID_HANDLE_VALUE));
    EXPECT_EQ(GetLastError(), ERROR_INVALID_HANDLE);
    EXPECT_FALSE(FindNextFileW(INVALID_HANDLE_VALUE, &data));
    EXPECT_EQ(GetLastError(), ERROR_INVALID_HANDLE);
    HANDLE const find = FindFirstFileW(folder(TEXT("*")).c_str(), &data);
    EXPECT_TRUE(FindClose(find));
}

} // namespace
