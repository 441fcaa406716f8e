#include <kvcore/platform/win32.h>
#include <support/ScopedHandle.h>
#include <support/ScratchPaths.h>

namespace
{

using Action = BOOL (*)(WCHAR const * from, WCHAR const * to);

BOOL Copy(WCHAR const * from, WCHAR const * to)
{
    return CopyFileW(from, to, TRUE);
}
BOOL CopyOver(WCHAR const * from, WCHAR const * to)
{
    return CopyFileW(from, to, FALSE);
}
BOOL Move(WCHAR const * from, WCHAR const * to)
{
    return MoveFileW(from, to);
}
BOOL MoveOver(WCHAR const * from, WCHAR const * to)
{
    return MoveFileExW(from, to, MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH);
}
BOOL Replace(WCHAR const * from, WCHAR const * to)
{
    return ReplaceFileW(to, from, nullptr, 0, nullptr, nullptr);
}
BOOL Delete(WCHAR const * from, WCHAR const *)
{
    return DeleteFileW(from);
}

struct FailureCase
{
    char const * what;
    Action action;
    WCHAR const * from;
    WCHAR const * to;
    DWORD error;
};

TEST(Moving, FailuresTellWhy)
{
    FailureCase const cases[] = {
        {"delete", Delete, TEXT("missing"), TEXT(""), ERROR_FILE_NOT_FOUND},
        {"delete", Delete, TEXT("missing\\x"), TEXT(""), ERROR_PATH_NOT_FOUND},
        {"delete", Delete, TEXT("file\\x"), TEXT(""), ERROR_PATH_NOT_FOUND},
        {"delete", Delete, TEXT("dir"), TEXT(""), ERROR_ACCESS_DENIED},
        {"delete", Delete, TEXT("readonly"), TEXT(""), ERROR_ACCESS_DENIED},
        {"delete", Delete, TEXT("f*"), TEXT(""), ERROR_INVALID_NAME},
        {"copy", Copy, TEXT("missing"), TEXT("new"), ERROR_FILE_NOT_FOUND},
        {"copy", Copy, TEXT("missing\\x"), TEXT("new"), ERROR_PATH_NOT_FOUND},
        {"copy", Copy, TEXT("dir"), TEXT("new"), ERROR_ACCESS_DENIED},
        {"copy", Copy, TEXT("file"), TEXT("OTHER"), ERROR_FILE_EXISTS},
        {"copy", Copy, TEXT("file"), TEXT("missing\\x"), ERROR_PATH_NOT_FOUND},
        {"copy", Copy, TEXT("file"), TEXT("other\\x"), ERROR_PATH_NOT_FOUND},
        {"copy over", CopyOver, TEXT("file"), TEXT("dir"), ERROR_ACCESS_DENIED},
        {"copy over", CopyOver, TEXT("file"), TEXT("FILE"), ERROR_SHARING_VIOLATION},
        {"move", Move, TEXT("missing"), TEXT("new"), ERROR_FILE_NOT_FOUND},
        {"move", Move, TEXT("missing\\x"), TEXT("new"), ERROR_PATH_NOT_FOUND},
        {"move", Move, TEXT("file"), TEXT("OTHER"), ERROR_ALREADY_EXISTS},
        {"move", Move, TEXT("file"), TEXT("dir"), ERROR_ALREADY_EXISTS},
        {"move", Move, TEXT("file"), TEXT("missing\\x"), ERROR_PATH_NOT_FOUND},
        {"move", Move, TEXT("dir"), TEXT("other"), ERROR_ALREADY_EXISTS},
        {"move over", MoveOver, TEXT("file"), TEXT("dir"), ERROR_ACCESS_DENIED},
        {"replace", Replace, TEXT("missing"), TEXT("other"), ERROR_FILE_NOT_FOUND},
        {"replace", Replace, TEXT("file"), TEXT("missing"), ERROR_FILE_NOT_FOUND},
        {"replace", Replace, TEXT("file"), TEXT("missing\\x"), ERROR_PATH_NOT_FOUND},
    };
    ScratchPaths folder;
    folder.Make("file", "1");
    folder.Make("other", "2");
    folder.MakeDirectory("dir");
    WString const readOnly = folder.Make("readonly", "3");
    ASSERT_TRUE(SetFileAttributesW(readOnly.c_str(), FILE_ATTRIBUTE_READONLY));
    for (FailureCase const & row : cases)
    {
        EXPECT_FALSE(row.action(folder(row.from).c_str(), folder(row.to).c_str()));
        EXPECT_EQ(GetLastError(), row.error) << row.what << ' ' << testing::PrintToString(WString(row.from)) << ' '
                                             << testing::PrintToString(WString(row.to));
    }
    EXPECT_EQ(folder.Read("file"), "1");
    EXPECT_EQ(folder.Read("other"), "2");
    EXPECT_EQ(folder.Read("readonly"), "3");
    ASSERT_TRUE(SetFileAttributesW(readOnly.c_str(), FILE_ATTRIBUTE_NORMAL));
}

TEST(Moving, DeletedFilesAreGone)
{
    ScratchPaths folder;
    folder.Make("File.txt");
    EXPECT_TRUE(DeleteFileW(folder(TEXT("FILE.TXT")).c_str()));
    EXPECT_EQ(GetFileAttributesW(folder(TEXT("File.txt")).c_str()), INVALID_FILE_ATTRIBUTES);
    EXPECT_FALSE(DeleteFileW(folder(TEXT("File.txt")).c_str()));
}

TEST(Moving, OpenFilesAreNotDeletedUnlessTheyShareIt)
{
    ScratchPaths folder;
    WString const file = folder.Make("file");
    HANDLE handle = CreateFileW(file.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr);
    ASSERT_NE(handle, INVALID_HANDLE_VALUE);
    EXPECT_FALSE(DeleteFileW(file.c_str()));
    EXPECT_EQ(GetLastError(), ERROR_SHARING_VIOLATION);
    EXPECT_FALSE(MoveFileW(file.c_str(), folder(TEXT("new")).c_str()));
    EXPECT_EQ(GetLastError(), ERROR_SHARING_VIOLATION);
    CloseHandle(handle);
    handle = CreateFileW(
        file.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_DELETE, nullptr, OPEN_EXISTING, 0, nullptr);
    ASSERT_NE(handle, INVALID_HANDLE_VALUE);
    EXPECT_TRUE(DeleteFileW(file.c_str()));
    CloseHandle(handle);
    EXPECT_EQ(GetFileAttributesW(file.c_str()), INVALID_FILE_ATTRIBUTES);
}

TEST(Moving, CopiesKeepContentAndTheTimeOfTheLastWrite)
{
    ScratchPaths folder;
    std::string const bytes(300000, 'x');
    WString const from = folder.Make("from", bytes);
    WString const to = folder(TEXT("to"));
    EXPECT_TRUE(CopyFileW(from.c_str(), to.c_str(), TRUE));
    EXPECT_EQ(folder.Read("to"), bytes);
    WIN32_FILE_ATTRIBUTE_DATA source;
    WIN32_FILE_ATTRIBUTE_DATA copy;
    ASSERT_TRUE(GetFileAttributesExW(from.c_str(), GetFileExInfoStandard, &source));
    ASSERT_TRUE(GetFileAttributesExW(to.c_str(), GetFileExInfoStandard, &copy));
    EXPECT_EQ(source.ftLastWriteTime.dwLowDateTime, copy.ftLastWriteTime.dwLowDateTime);
    EXPECT_EQ(source.ftLastWriteTime.dwHighDateTime, copy.ftLastWriteTime.dwHighDateTime);
    folder.Make("from", "short");
    EXPECT_TRUE(CopyFileW(from.c_str(), to.c_str(), FALSE));
    EXPECT_EQ(folder.Read("to"), "short");
}

TEST(Moving, FilesAndDirectoriesMove)
{
    ScratchPaths folder;
    folder.Make("Dir/file", "1");
    EXPECT_TRUE(MoveFileW(folder(TEXT("DIR\\FILE")).c_str(), folder(TEXT("Dir\\new")).c_str()));
    EXPECT_EQ(folder.Read("Dir/new"), "1");
    EXPECT_TRUE(MoveFileW(folder(TEXT("dir")).c_str(), folder(TEXT("Other")).c_str()));
    EXPECT_EQ(folder.Read("Other/new"), "1");
    EXPECT_EQ(GetFileAttributesW(folder(TEXT("Dir")).c_str()), INVALID_FILE_ATTRIBUTES);
}

TEST(Moving, AnOpenFileMovesIfItSharesThat)
{
    ScratchPaths folder;
    WString const from = folder.Make("from", "123");
    WString const to = folder(TEXT("to"));
    auto const open = [&](WString const & path, DWORD share)
    { return ScopedHandle(path, GENERIC_READ | GENERIC_WRITE, share, OPEN_EXISTING); };
    {
        ScopedHandle const file = open(from, FILE_SHARE_READ | FILE_SHARE_WRITE);
        EXPECT_EQ(
            LastErrorOf([&] { return MoveFileExW(from.c_str(), to.c_str(), 0); }), DWORD{ERROR_SHARING_VIOLATION});
    }
    ScopedHandle file = open(from, shareAll);
    EXPECT_TRUE(MoveFileExW(from.c_str(), to.c_str(), 0));
    DWORD done = 0;
    EXPECT_TRUE(WriteFile(file, "abcd", 4, &done, nullptr)) << "the handle goes along";
    EXPECT_EQ(LastErrorOf([&] { return MoveFileExW(from.c_str(), to.c_str(), 0); }), DWORD{ERROR_FILE_NOT_FOUND});
    file.Close();
    EXPECT_EQ(folder.Read("to"), "abcd");
}

TEST(Moving, ReplacingTakesTheOtherFilesPlace)
{
    ScratchPaths folder;
    folder.Make("from", "new");
    folder.Make("to", "old");
    EXPECT_TRUE(MoveOver(folder(TEXT("from")).c_str(), folder(TEXT("TO")).c_str()));
    EXPECT_EQ(folder.Read("to"), "new");
    EXPECT_EQ(GetFileAttributesW(folder(TEXT("from")).c_str()), INVALID_FILE_ATTRIBUTES);
}

TEST(Moving, ReplaceFileKeepsABackup)
{
    ScratchPaths folder;
    folder.Make("from", "new");
    folder.Make("to", "old");
    folder.Make("backup", "older");
    EXPECT_TRUE(ReplaceFileW(
        folder(TEXT("to")).c_str(), folder(TEXT("from")).c_str(), folder(TEXT("backup")).c_str(), 0, nullptr, nullptr));
    EXPECT_EQ(folder.Read("to"), "new");
    EXPECT_EQ(folder.Read("backup"), "old");
    EXPECT_EQ(GetFileAttributesW(folder(TEXT("from")).c_str()), INVALID_FILE_ATTRIBUTES);
}

TEST(SpecialFolders, AreThere)
{
    for (int const id :
         {CSIDL_APPDATA, CSIDL_LOCAL_APPDATA, CSIDL_PERSONAL, CSIDL_DESKTOPDIRECTORY, CSIDL_PROFILE,
          CSIDL_COMMON_APPDATA, CSIDL_WINDOWS, CSIDL_FONTS, CSIDL_SYSTEM})
    {
        WCHAR path[MAX_PATH];
        ASSERT_TRUE(SHGetSpecialFolderPathW(nullptr, path, id, TRUE)) << id;
        EXPECT_EQ(GetFileAttributesW(path) & FILE_ATTRIBUTE_DIRECTORY, FILE_ATTRIBUTE_DIRECTORY) << id;
        EXPECT_EQ(path[1], ':') << id;
    }
    WCHAR path[MAX_PATH];
    EXPECT_FALSE(SHGetSpecialFolderPathW(nullptr, path, 0x7777, FALSE));
}

} // namespace
