// Names at and beyond the longest, and folders that are gone: every call that takes a path.

#include <functional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <kvcore/platform/win32.h>
#include <support/ScopedHandle.h>
#include <support/ScratchPaths.h>

namespace
{

struct Call
{
    char const * what;
    std::function<bool(WCHAR const * path)> make;
};

bool Opens(WCHAR const * path, DWORD disposition, DWORD flags = FILE_ATTRIBUTE_NORMAL)
{
    HANDLE const file = CreateFileW(path, GENERIC_WRITE, shareAll, nullptr, disposition, flags, nullptr);
    return file != INVALID_HANDLE_VALUE && CloseHandle(file);
}

bool Finds(WCHAR const * path)
{
    WIN32_FIND_DATAW data;
    HANDLE const search = FindFirstFileW(path, &data);
    return search != INVALID_HANDLE_VALUE && FindClose(search);
}

/// Calls that look for what is there. `other` is a file that exists.
std::vector<Call> LookingCalls(WString const & other)
{
    return {
        {"attributes", [](WCHAR const * path) { return GetFileAttributesW(path) != INVALID_FILE_ATTRIBUTES; }},
        {"all attributes",
         [](WCHAR const * path)
         {
             WIN32_FILE_ATTRIBUTE_DATA data;
             return GetFileAttributesExW(path, GetFileExInfoStandard, &data) != FALSE;
         }},
        {"set attributes", [](WCHAR const * path) { return SetFileAttributesW(path, FILE_ATTRIBUTE_NORMAL) != FALSE; }},
        {"open", [](WCHAR const * path) { return Opens(path, OPEN_EXISTING); }},
        {"truncate", [](WCHAR const * path) { return Opens(path, TRUNCATE_EXISTING); }},
        {"delete", [](WCHAR const * path) { return DeleteFileW(path) != FALSE; }},
        {"remove", [](WCHAR const * path) { return RemoveDirectoryW(path) != FALSE; }},
        {"copy from", [=](WCHAR const * path) { return CopyFileW(path, (other + TEXT("2")).c_str(), TRUE) != FALSE; }},
        {"move from", [=](WCHAR const * path) { return MoveFileExW(path, (other + TEXT("2")).c_str(), 0) != FALSE; }},
        {"replace",
         [=](WCHAR const * path) { return ReplaceFileW(path, other.c_str(), nullptr, 0, nullptr, nullptr) != FALSE; }},
        {"replace by",
         [=](WCHAR const * path) { return ReplaceFileW(other.c_str(), path, nullptr, 0, nullptr, nullptr) != FALSE; }},
        {"find", Finds},
        {"current directory", [](WCHAR const * path) { return SetCurrentDirectoryW(path) != FALSE; }},
    };
}

/// Calls that give another form of the name of what is there.
std::vector<Call> NamingCalls()
{
    return {
        {"long name",
         [](WCHAR const * path)
         {
             WCHAR name[2048];
             return GetLongPathNameW(path, name, 2048) != 0;
         }},
        {"short name",
         [](WCHAR const * path)
         {
             WCHAR name[2048];
             return GetShortPathNameW(path, name, 2048) != 0;
         }},
    };
}

/// Calls that make a file or a directory of that name. `other` is a file that exists.
std::vector<Call> MakingCalls(WString const & other)
{
    return {
        {"create new", [](WCHAR const * path) { return Opens(path, CREATE_NEW); }},
        {"create always", [](WCHAR const * path) { return Opens(path, CREATE_ALWAYS); }},
        {"open always", [](WCHAR const * path) { return Opens(path, OPEN_ALWAYS); }},
        {"delete on close", [](WCHAR const * path) { return Opens(path, CREATE_NEW, FILE_FLAG_DELETE_ON_CLOSE); }},
        {"make directory", [](WCHAR const * path) { return CreateDirectoryW(path, nullptr) != FALSE; }},
        {"copy to", [=](WCHAR const * path) { return CopyFileW(other.c_str(), path, TRUE) != FALSE; }},
        {"move to", [=](WCHAR const * path) { return MoveFileExW(other.c_str(), path, 0) != FALSE; }},
    };
}

void ExpectError(std::vector<Call> const & calls, WString const & path, DWORD error)
{
    for (Call const & call : calls)
    {
        EXPECT_EQ(LastErrorOf([&] { return call.make(path.c_str()); }), error) << call.what;
    }
}

class FileNames : public testing::Test
{
protected:
    FileNames()
    {
        other = folder.Make("other", "other");
    }
    ScratchPaths folder;
    WString other;
};

TEST_F(FileNames, Of255UnitsGoWithEveryCall)
{
    WString const path = folder(WString(255, TEXT('n')));
    ExpectError(LookingCalls(other), path, ERROR_FILE_NOT_FOUND);
    ExpectError(NamingCalls(), path, ERROR_FILE_NOT_FOUND);
    for (Call const & call : MakingCalls(other))
    {
        EXPECT_EQ(LastErrorOf([&] { return call.make(path.c_str()); }), 0u) << call.what;
        EXPECT_EQ(Finds(path.c_str()), std::string(call.what) != "delete on close") << call.what;
        DeleteFileW(path.c_str());
        RemoveDirectoryW(path.c_str());
        folder.Make("other", "other");
    }
    EXPECT_TRUE(CopyFileW(other.c_str(), path.c_str(), TRUE));
    EXPECT_TRUE(MoveFileExW(path.c_str(), folder(WString(255, TEXT('m'))).c_str(), 0));
    EXPECT_TRUE(MoveFileExW(folder(WString(255, TEXT('M'))).c_str(), path.c_str(), 0));
    EXPECT_TRUE(ReplaceFileW(path.c_str(), other.c_str(), nullptr, 0, nullptr, nullptr));
    EXPECT_TRUE(DeleteFileW(path.c_str()));
}

TEST_F(FileNames, Of256UnitsAreNobodys)
{
    WString const path = folder(WString(256, TEXT('n')));
    for (std::vector<Call> const & calls : {LookingCalls(other), NamingCalls(), MakingCalls(other)})
    {
        for (Call const & call : calls)
        {
            EXPECT_FALSE(call.make(path.c_str())) << call.what;
        }
    }
    EXPECT_EQ(folder.Read("other"), "other");
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(folder.Path()), {}), 1);
}

TEST_F(FileNames, OfAFolderThatIsGoneAreNotFound)
{
    WString const gone = folder.MakeDirectory("gone");
    WString const path = gone + TEXT("\\file");
    EXPECT_FALSE(Finds(path.c_str()));
    std::filesystem::remove(folder / "gone");
    ExpectError(LookingCalls(other), path, ERROR_PATH_NOT_FOUND);
    ExpectError(MakingCalls(other), path, ERROR_PATH_NOT_FOUND);
    for (Call const & call : NamingCalls())
    {
        // Wine tells of a missing file whatever is missing.
        DWORD const error = LastErrorOf([&] { return call.make(path.c_str()); });
        EXPECT_TRUE(error == ERROR_PATH_NOT_FOUND || error == ERROR_FILE_NOT_FOUND) << call.what << ' ' << error;
    }
    EXPECT_EQ(folder.Read("other"), "other");
}

/// The process's current directory, until the end of the scope.
class CurrentDirectory
{
public:
    explicit CurrentDirectory(WString const & path)
    {
        GetCurrentDirectoryW(2048, before);
        EXPECT_TRUE(SetCurrentDirectoryW(path.c_str()));
    }
    ~CurrentDirectory()
    {
        EXPECT_TRUE(SetCurrentDirectoryW(before));
    }
    CurrentDirectory(CurrentDirectory const &) = delete;
    CurrentDirectory & operator=(CurrentDirectory const &) = delete;

private:
    WCHAR before[2048];
};

TEST_F(FileNames, OfTheCurrentDirectoryAreInUse)
{
    WString const path = folder.MakeDirectory("current");
    DWORD const inUse = ERROR_SHARING_VIOLATION;
    {
        CurrentDirectory const current(path);
        for (WString const & name : {path, folder(TEXT("CURRENT")), WString(TEXT(".")), WString(TEXT("..\\current"))})
        {
            EXPECT_EQ(LastErrorOf([&] { return RemoveDirectoryW(name.c_str()); }), inUse)
                << testing::PrintToString(name);
        }
        EXPECT_EQ(LastErrorOf([&] { return MoveFileExW(path.c_str(), folder(TEXT("moved")).c_str(), 0); }), inUse);
    }
    EXPECT_TRUE(MoveFileExW(path.c_str(), folder(TEXT("moved")).c_str(), 0));
    EXPECT_TRUE(RemoveDirectoryW(folder(TEXT("moved")).c_str()));
}

} // namespace
