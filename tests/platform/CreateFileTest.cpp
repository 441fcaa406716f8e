#include <support/ScopedHandle.h>
#include <support/ScratchFolder.h>

#include <gtest/gtest.h>

namespace
{

class CreateFiles : public testing::Test
{
protected:
    WString Path(std::string const & name) const
    {
        return Win32Path(folder / name);
    }
    ScopedHandle
    Open(std::string const & name, DWORD access, DWORD disposition, DWORD flags = FILE_ATTRIBUTE_NORMAL) const
    {
        return ScopedHandle(Path(name), access, shareAll, disposition, flags);
    }

    ScratchFolder folder;
};

struct Disposition
{
    char const * what;
    DWORD disposition;
    bool existing;
    bool opens;
    DWORD error;
    char const * content; ///< afterwards; null if there is no file
};

TEST_F(CreateFiles, EachDispositionTreatsWhatIsThereInItsWay)
{
    Disposition const table[] = {
        {"create new", CREATE_NEW, false, true, 0, ""},
        {"create new over a file", CREATE_NEW, true, false, ERROR_FILE_EXISTS, "old"},
        {"create always", CREATE_ALWAYS, false, true, 0, ""},
        {"create always over a file", CREATE_ALWAYS, true, true, ERROR_ALREADY_EXISTS, ""},
        {"open existing", OPEN_EXISTING, false, false, ERROR_FILE_NOT_FOUND, nullptr},
        {"open existing file", OPEN_EXISTING, true, true, 0, "old"},
        {"open always", OPEN_ALWAYS, false, true, 0, ""},
        {"open always a file", OPEN_ALWAYS, true, true, ERROR_ALREADY_EXISTS, "old"},
        {"truncate", TRUNCATE_EXISTING, false, false, ERROR_FILE_NOT_FOUND, nullptr},
        {"truncate a file", TRUNCATE_EXISTING, true, true, 0, ""},
    };
    int number = 0;
    for (Disposition const & row : table)
    {
        std::string const name = "file" + std::to_string(number++);
        if (row.existing)
        {
            folder.Write(name, "old");
        }
        SetLastError(0xBEEF);
        ScopedHandle file = Open(name, GENERIC_WRITE, row.disposition);
        EXPECT_EQ(file.IsOpen(), row.opens) << row.what;
        EXPECT_EQ(file.Error(), row.error) << row.what;
        file.Close();
        ASSERT_EQ(std::filesystem::exists(folder / name), row.content != nullptr) << row.what;
        if (row.content != nullptr)
        {
            EXPECT_EQ(folder.Read(name), row.content) << row.what;
        }
    }
}

TEST_F(CreateFiles, AFailureTellsItsReason)
{
    folder.Write("file", "x");
    std::filesystem::create_directory(folder / "folder");
    struct
    {
        std::string name;
        DWORD access;
        DWORD disposition;
        DWORD flags;
        DWORD error;
    } const table[] = {
        {"missing", GENERIC_READ, OPEN_EXISTING, 0, ERROR_FILE_NOT_FOUND},
        {"nowhere/missing", GENERIC_READ, OPEN_EXISTING, 0, ERROR_PATH_NOT_FOUND},
        {"nowhere/missing", GENERIC_WRITE, CREATE_ALWAYS, 0, ERROR_PATH_NOT_FOUND},
        {"nowhere/missing", GENERIC_WRITE, CREATE_NEW, 0, ERROR_PATH_NOT_FOUND},
        {"file/below", GENERIC_READ, OPEN_EXISTING, 0, ERROR_PATH_NOT_FOUND},
        {"file/below", GENERIC_WRITE, CREATE_ALWAYS, 0, ERROR_PATH_NOT_FOUND},
        {"folder", GENERIC_READ, OPEN_EXISTING, 0, ERROR_ACCESS_DENIED},
        {"folder", 0, OPEN_EXISTING, 0, ERROR_ACCESS_DENIED},
        {"folder", GENERIC_WRITE, OPEN_EXISTING, 0, ERROR_ACCESS_DENIED},
        {"folder", GENERIC_WRITE, CREATE_ALWAYS, 0, ERROR_ACCESS_DENIED},
        {"folder", GENERIC_WRITE, OPEN_ALWAYS, 0, ERROR_ACCESS_DENIED},
        {"folder", GENERIC_WRITE, TRUNCATE_EXISTING, 0, ERROR_ACCESS_DENIED},
        {"folder", GENERIC_WRITE, CREATE_NEW, 0, ERROR_FILE_EXISTS},
        {"folder", GENERIC_WRITE, CREATE_ALWAYS, FILE_FLAG_BACKUP_SEMANTICS, ERROR_FILE_EXISTS},
        {"file", GENERIC_READ, 0, 0, ERROR_INVALID_PARAMETER},
        {"file", GENERIC_READ, 6, 0, ERROR_INVALID_PARAMETER},
        {"a<b", GENERIC_WRITE, CREATE_ALWAYS, 0, ERROR_INVALID_NAME},
        {"fi*", GENERIC_READ, OPEN_EXISTING, 0, ERROR_INVALID_NAME},
    };
    for (auto const & row : table)
    {
        ScopedHandle const file = Open(row.name, row.access, row.disposition, row.flags);
        EXPECT_FALSE(file.IsOpen()) << row.name << " by " << row.disposition;
        EXPECT_EQ(file.Error(), row.error) << row.name << " by " << row.disposition;
    }
    EXPECT_EQ(folder.Read("file"), "x");
}

TEST_F(CreateFiles, NoNameIsNoPath)
{
    for (WCHAR const * const name : {static_cast<WCHAR const *>(nullptr), TEXT("")})
    {
        SetLastError(0xBEEF);
        EXPECT_EQ(CreateFileW(name, GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr), INVALID_HANDLE_VALUE);
        EXPECT_EQ(GetLastError(), DWORD{ERROR_PATH_NOT_FOUND});
    }
}

TEST_F(CreateFiles, ADirectoryOpensWithBackupSemantics)
{
    std::filesystem::create_directory(folder / "folder");
    ScopedHandle const directory = Open("folder", GENERIC_READ, OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS);
    ASSERT_TRUE(directory.IsOpen()) << directory.Error();
    BY_HANDLE_FILE_INFORMATION information;
    ASSERT_TRUE(GetFileInformationByHandle(directory, &information));
    EXPECT_NE(information.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY, 0u);
}

TEST_F(CreateFiles, ADirectoryHasNoBytes)
{
    std::filesystem::create_directory(folder / "folder");
    for (DWORD const flags : {DWORD{0}, DWORD{FILE_FLAG_OVERLAPPED}})
    {
        ScopedHandle const directory = Open("folder", GENERIC_READ, OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS | flags);
        char byte = 0;
        for (DWORD const count : {0u, 1u})
        {
            OVERLAPPED overlapped = {};
            DWORD done = 7;
            DWORD const error = LastErrorOf([&] { return ReadFile(directory, &byte, count, &done, &overlapped); });
            DWORD const result =
                LastErrorOf([&] { return GetOverlappedResult(directory, &overlapped, &done, TRUE) != FALSE; });
            EXPECT_EQ(error == ERROR_IO_PENDING ? result : error, DWORD{ERROR_INVALID_FUNCTION}) << flags << count;
        }
    }
    ScopedHandle const reader = Open("folder", GENERIC_READ, OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS);
    ScopedHandle const writer = Open("folder", readWrite, OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS);
    for (DWORD const count : {0u, 1u})
    {
        char byte = 0;
        DWORD done = 7;
        EXPECT_EQ(
            LastErrorOf([&] { return ReadFile(reader, &byte, count, &done, nullptr); }), DWORD{ERROR_INVALID_FUNCTION});
        EXPECT_EQ(done, 0u);
        EXPECT_EQ(
            LastErrorOf([&] { return WriteFile(writer, &byte, count, &done, nullptr); }), DWORD{ERROR_INVALID_HANDLE});
        EXPECT_EQ(done, 0u);
    }
    EXPECT_EQ(LastErrorOf([&] { return SetEndOfFile(writer); }), DWORD{ERROR_INVALID_PARAMETER});
    EXPECT_EQ(LastErrorOf([&] { return SetEndOfFile(reader); }), DWORD{ERROR_INVALID_PARAMETER});
}

TEST_F(CreateFiles, ANameMayHave255Units)
{
    std::string const name(255, 'n');
    EXPECT_TRUE(Open(name, GENERIC_WRITE, CREATE_NEW).IsOpen());
    EXPECT_TRUE(Open(name, GENERIC_READ, OPEN_EXISTING).IsOpen());
    EXPECT_FALSE(Open(name + "n", GENERIC_WRITE, CREATE_NEW).IsOpen());
    EXPECT_FALSE(Open(name + "n", GENERIC_READ, OPEN_EXISTING).IsOpen());
}

TEST_F(CreateFiles, NamesAreFoundWithoutRegardToCase)
{
    folder.Write("Mixed.Txt", "x");
    EXPECT_TRUE(Open("mIXED.tXT", GENERIC_READ, OPEN_EXISTING).IsOpen());
    ScopedHandle const again = Open("MIXED.TXT", GENERIC_WRITE, CREATE_NEW);
    EXPECT_FALSE(again.IsOpen());
    EXPECT_EQ(again.Error(), DWORD{ERROR_FILE_EXISTS});
    EXPECT_EQ(Open("MIXED.TXT", GENERIC_WRITE, OPEN_ALWAYS).Error(), DWORD{ERROR_ALREADY_EXISTS});
}

TEST_F(CreateFiles, TheNullDeviceTakesAllAndGivesNothing)
{
    ScopedHandle const device(TEXT("NUL"), readWrite, shareAll, OPEN_EXISTING);
    ASSERT_TRUE(device.IsOpen());
    EXPECT_EQ(GetFileType(device), DWORD{FILE_TYPE_CHAR});
    char bytes[5] = {};
    DWORD done = 7;
    EXPECT_TRUE(WriteFile(device, bytes, 5, &done, nullptr));
    EXPECT_EQ(done, 5u);
    EXPECT_TRUE(ReadFile(device, bytes, 5, &done, nullptr));
    EXPECT_EQ(done, 0u);
    EXPECT_EQ(
        LastErrorOf([&] { return CreateFileMappingW(device, nullptr, PAGE_READONLY, 0, 0, nullptr); }),
        DWORD{ERROR_INVALID_HANDLE});
}

TEST_F(CreateFiles, DeleteOnCloseWaitsForTheLastHandle)
{
    folder.Write("gone", "x");
    ScopedHandle first = Open("gone", GENERIC_READ, OPEN_EXISTING, FILE_FLAG_DELETE_ON_CLOSE);
    ASSERT_TRUE(first.IsOpen());
    ScopedHandle refused(Path("gone"), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, OPEN_EXISTING);
    EXPECT_EQ(refused.Error(), DWORD{ERROR_SHARING_VIOLATION}) << "who does not share deleting";
    ScopedHandle second = Open("gone", GENERIC_READ, OPEN_EXISTING);
    ASSERT_TRUE(second.IsOpen());
    first.Close();
    char byte = 0;
    DWORD done = 0;
    EXPECT_TRUE(ReadFile(second, &byte, 1, &done, nullptr));
    EXPECT_EQ(byte, 'x');
    second.Close();
    EXPECT_FALSE(std::filesystem::exists(folder / "gone"));
}

TEST_F(CreateFiles, AFailedOpenDeletesNothing)
{
    folder.Write("kept", "x");
    ScopedHandle const holder(Path("kept"), GENERIC_READ, FILE_SHARE_READ, OPEN_EXISTING);
    EXPECT_FALSE(Open("kept", GENERIC_READ, OPEN_EXISTING, FILE_FLAG_DELETE_ON_CLOSE).IsOpen());
    EXPECT_TRUE(std::filesystem::exists(folder / "kept"));
    EXPECT_FALSE(Open("kept", GENERIC_WRITE, CREATE_ALWAYS).IsOpen());
    EXPECT_EQ(folder.Read("kept"), "x") << "refused before it is emptied";
}

/// What an open uses, in the bits of the share mode.
DWORD Uses(DWORD access)
{
    return ((access & (GENERIC_READ | FILE_READ_DATA | GENERIC_EXECUTE)) != 0 ? FILE_SHARE_READ : 0u) |
        ((access & (GENERIC_WRITE | FILE_WRITE_DATA | FILE_APPEND_DATA)) != 0 ? FILE_SHARE_WRITE : 0u) |
        ((access & DELETE) != 0 ? FILE_SHARE_DELETE : 0u);
}

TEST_F(CreateFiles, SharingHoldsBothWays)
{
    folder.Write("shared", "x");
    DWORD const accesses[] = {0,      GENERIC_READ,         GENERIC_WRITE,    readWrite,
                              DELETE, FILE_READ_ATTRIBUTES, FILE_APPEND_DATA, GENERIC_EXECUTE};
    for (DWORD const first : accesses)
    {
        for (DWORD firstShare = 0; firstShare <= shareAll; ++firstShare)
        {
            ScopedHandle const holder(Path("shared"), first, firstShare, OPEN_EXISTING);
            ASSERT_TRUE(holder.IsOpen());
            for (DWORD const second : accesses)
            {
                for (DWORD secondShare = 0; secondShare <= shareAll; ++secondShare)
                {
                    // Who looks at attributes only neither uses nor denies anything.
                    bool const meet = Uses(first) != 0 && Uses(second) != 0;
                    bool const refused =
                        meet && ((Uses(second) & ~firstShare) != 0 || (Uses(first) & ~secondShare) != 0);
                    ScopedHandle const other(Path("shared"), second, secondShare, OPEN_EXISTING);
                    ASSERT_EQ(other.Error(), refused ? DWORD{ERROR_SHARING_VIOLATION} : 0u)
                        << std::hex << first << '/' << firstShare << " against " << second << '/' << secondShare;
                }
            }
        }
    }
}

TEST_F(CreateFiles, SharingEndsWithTheLastHandle)
{
    folder.Write("shared", "x");
    ScopedHandle first(Path("shared"), GENERIC_READ, 0, OPEN_EXISTING);
    HANDLE duplicate = nullptr;
    ASSERT_TRUE(
        DuplicateHandle(GetCurrentProcess(), first, GetCurrentProcess(), &duplicate, 0, FALSE, DUPLICATE_SAME_ACCESS));
    first.Close();
    EXPECT_EQ(Open("shared", GENERIC_READ, OPEN_EXISTING).Error(), DWORD{ERROR_SHARING_VIOLATION});
    EXPECT_TRUE(CloseHandle(duplicate));
    EXPECT_TRUE(Open("shared", GENERIC_READ, OPEN_EXISTING).IsOpen());
}

} // namespace
