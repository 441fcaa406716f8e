// Which of two files may take the other's name, while somebody has one of them open, and by which spelling.

#include <kvcore/platform/win32.h>
#include <support/ScopedHandle.h>
#include <support/ScratchPaths.h>

namespace
{

constexpr DWORD replaceAndCopy = MOVEFILE_REPLACE_EXISTING | MOVEFILE_COPY_ALLOWED;

std::string Shown(WString const & path)
{
    return ::testing::PrintToString(path);
}

/// A file that holds its own name.
class Replacing : public testing::Test
{
protected:
    void MakeAnew()
    {
        for (char const * const name : {"from", "to", "other"})
        {
            SetFileAttributesW(ScratchPaths::FromNative(folder / name).c_str(), FILE_ATTRIBUTE_NORMAL);
            folder.Make(name, name);
        }
        folder.MakeDirectory("dir");
    }
    ScopedHandle Open(WString const & name, DWORD access, DWORD share) const
    {
        return ScopedHandle(folder(name), access, share, OPEN_EXISTING);
    }
    DWORD Move(WString const & from, WString const & to, DWORD flags) const
    {
        return LastErrorOf([&] { return MoveFileExW(folder(from).c_str(), folder(to).c_str(), flags); });
    }
    DWORD Replace(WString const & replaced, WString const & replacement) const
    {
        return LastErrorOf(
            [&] {
                return ReplaceFileW(
                    folder(replaced).c_str(), folder(replacement).c_str(), nullptr, 0, nullptr, nullptr);
            });
    }
    DWORD Replace(WString const & replaced, WString const & replacement, WString const & backup) const
    {
        return LastErrorOf(
            [&]
            {
                return ReplaceFileW(
                    folder(replaced).c_str(), folder(replacement).c_str(), folder(backup).c_str(), 0, nullptr, nullptr);
            });
    }
    DWORD Copy(WString const & from, WString const & to, bool failIfExists = false) const
    {
        return LastErrorOf([&] { return CopyFileW(folder(from).c_str(), folder(to).c_str(), failIfExists); });
    }

    ScratchPaths folder;
};

constexpr DWORD accesses[] = {
    0,      FILE_READ_ATTRIBUTES, GENERIC_READ,     GENERIC_WRITE,        GENERIC_READ | GENERIC_WRITE,
    DELETE, FILE_EXECUTE,         FILE_APPEND_DATA, GENERIC_READ | DELETE};

} // namespace

TEST_F(Replacing, AMoveReplacesNoFileThatIsOpen)
{
    for (DWORD const access : accesses)
    {
        for (DWORD share = 0; share <= shareAll; ++share)
        {
            SCOPED_TRACE(std::to_string(access) + " shared " + std::to_string(share));
            MakeAnew();
            ScopedHandle open = Open(TEXT("to"), access, share);
            ASSERT_TRUE(open.IsOpen());
            EXPECT_EQ(Move(TEXT("from"), TEXT("to"), MOVEFILE_REPLACE_EXISTING), DWORD{ERROR_ACCESS_DENIED});
            EXPECT_EQ(Move(TEXT("from"), TEXT("TO"), replaceAndCopy), DWORD{ERROR_ACCESS_DENIED});
            EXPECT_EQ(Move(TEXT("from"), TEXT("to"), 0), DWORD{ERROR_ALREADY_EXISTS});
            open.Close();
            EXPECT_EQ(folder.Read("to"), "to");
            EXPECT_EQ(folder.Read("from"), "from");
        }
    }
    EXPECT_EQ(Move(TEXT("from"), TEXT("to"), MOVEFILE_REPLACE_EXISTING), 0u);
    EXPECT_EQ(folder.Read("to"), "from");
}

TEST_F(Replacing, AMoveReplacesNoFileThatIsMapped)
{
    MakeAnew();
    ScopedHandle file = Open(TEXT("to"), GENERIC_READ, shareAll);
    ScopedHandle mapping(CreateFileMappingW(file, nullptr, PAGE_READONLY, 0, 0, nullptr));
    file.Close();
    EXPECT_EQ(Move(TEXT("from"), TEXT("to"), MOVEFILE_REPLACE_EXISTING), DWORD{ERROR_ACCESS_DENIED});
    mapping.Close();
    EXPECT_EQ(Move(TEXT("from"), TEXT("to"), MOVEFILE_REPLACE_EXISTING), 0u);
}

TEST_F(Replacing, SharingOfTheSourceIsToldBeforeAnythingOfTheTarget)
{
    for (DWORD const access : accesses)
    {
        for (DWORD const share : {DWORD{0}, DWORD{FILE_SHARE_READ | FILE_SHARE_WRITE}, shareAll})
        {
            SCOPED_TRACE(std::to_string(access) + " shared " + std::to_string(share));
            MakeAnew();
            ScopedHandle const open = Open(TEXT("from"), access, share);
            ASSERT_TRUE(open.IsOpen());
            bool const barred = share != shareAll && access != 0 && access != FILE_READ_ATTRIBUTES;
            DWORD const inUse = ERROR_SHARING_VIOLATION;
            EXPECT_EQ(Move(TEXT("from"), TEXT("to"), 0), barred ? inUse : DWORD{ERROR_ALREADY_EXISTS});
            EXPECT_EQ(Move(TEXT("from"), TEXT("dir"), replaceAndCopy), barred ? inUse : DWORD{ERROR_ACCESS_DENIED});
            EXPECT_EQ(Move(TEXT("from"), TEXT("no\\x"), 0), barred ? inUse : DWORD{ERROR_PATH_NOT_FOUND});
            EXPECT_EQ(Move(TEXT("from"), TEXT("from"), 0), barred ? inUse : 0);
        }
    }
}

TEST_F(Replacing, ADirectoryMovesWhileItIsOpenIfThatIsShared)
{
    for (DWORD const access : accesses)
    {
        for (DWORD const share : {DWORD{0}, shareAll})
        {
            SCOPED_TRACE(std::to_string(access) + " shared " + std::to_string(share));
            MakeAnew();
            ScopedHandle const open(folder(TEXT("dir")), access, share, OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS);
            ASSERT_TRUE(open.IsOpen());
            bool const barred = share == 0 && access != 0 && access != FILE_READ_ATTRIBUTES;
            DWORD const expected = barred ? ERROR_SHARING_VIOLATION : 0;
            EXPECT_EQ(Move(TEXT("dir"), TEXT("moved"), 0), expected);
            EXPECT_EQ(
                LastErrorOf([&] { return RemoveDirectoryW(folder(barred ? TEXT("dir") : TEXT("moved")).c_str()); }),
                expected);
        }
    }
}

TEST_F(Replacing, ASeparatorAtTheEndNamesNoFileOfAMove)
{
    struct
    {
        WCHAR const * from;
        WCHAR const * to;
        DWORD error; ///< without replacing
        DWORD replacing;
    } const rows[] = {
        {TEXT("from\\"), TEXT("new"), ERROR_INVALID_NAME, ERROR_INVALID_NAME},
        {TEXT("from/"), TEXT("new"), ERROR_INVALID_NAME, ERROR_INVALID_NAME},
        {TEXT("FROM\\"), TEXT("to"), ERROR_INVALID_NAME, ERROR_INVALID_NAME},
        {TEXT("from\\"), TEXT("from"), ERROR_INVALID_NAME, ERROR_INVALID_NAME},
        {TEXT("from\\"), TEXT("no\\x"), ERROR_INVALID_NAME, ERROR_INVALID_NAME},
        {TEXT("from\\"), TEXT("dir"), ERROR_INVALID_NAME, ERROR_INVALID_NAME},
        {TEXT("from"), TEXT("new\\"), ERROR_DIRECTORY, ERROR_DIRECTORY},
        {TEXT("from"), TEXT("new/"), ERROR_DIRECTORY, ERROR_DIRECTORY},
        {TEXT("from"), TEXT("to\\"), ERROR_DIRECTORY, ERROR_DIRECTORY},
        {TEXT("from"), TEXT("from\\"), ERROR_DIRECTORY, ERROR_DIRECTORY},
        {TEXT("from"), TEXT("FROM/"), ERROR_DIRECTORY, ERROR_DIRECTORY},
        {TEXT("from"), TEXT("dir\\new\\"), ERROR_DIRECTORY, ERROR_DIRECTORY},
        {TEXT("from"), TEXT("dir\\"), ERROR_ALREADY_EXISTS, ERROR_ACCESS_DENIED},
        {TEXT("from"), TEXT("no\\x\\"), ERROR_PATH_NOT_FOUND, ERROR_PATH_NOT_FOUND},
        {TEXT("dir"), TEXT("to\\"), ERROR_DIRECTORY, ERROR_DIRECTORY},
        {TEXT("dir"), TEXT("dir\\x"), ERROR_INVALID_PARAMETER, ERROR_INVALID_PARAMETER},
        {TEXT("missing\\"), TEXT("new"), ERROR_FILE_NOT_FOUND, ERROR_FILE_NOT_FOUND},
    };
    MakeAnew();
    for (auto const & row : rows)
    {
        SCOPED_TRACE(Shown(row.from) + " to " + Shown(row.to));
        EXPECT_EQ(Move(row.from, row.to, 0), row.error);
        EXPECT_EQ(Move(row.from, row.to, replaceAndCopy), row.replacing);
        EXPECT_EQ(folder.Read("from"), "from");
        EXPECT_EQ(folder.Read("to"), "to");
    }
    EXPECT_EQ(Move(TEXT("dir\\"), TEXT("moved\\"), 0), 0u) << "a directory has one";
}

TEST_F(Replacing, ASeparatorAtTheEndNamesNoFileToReplace)
{
    struct
    {
        WCHAR const * replaced;
        WCHAR const * replacement;
        DWORD error;
    } const rows[] = {
        {TEXT("to\\"), TEXT("from"), ERROR_PATH_NOT_FOUND},   {TEXT("to/"), TEXT("from"), ERROR_PATH_NOT_FOUND},
        {TEXT("TO\\"), TEXT("from\\"), ERROR_PATH_NOT_FOUND}, {TEXT("to\\"), TEXT("missing"), ERROR_PATH_NOT_FOUND},
        {TEXT("to\\"), TEXT("dir"), ERROR_PATH_NOT_FOUND},    {TEXT("to"), TEXT("from\\"), ERROR_INVALID_NAME},
        {TEXT("to"), TEXT("FROM/"), ERROR_INVALID_NAME},      {TEXT("to"), TEXT("to\\"), ERROR_INVALID_NAME},
    };
    MakeAnew();
    for (auto const & row : rows)
    {
        EXPECT_EQ(Replace(row.replaced, row.replacement), row.error)
            << Shown(row.replaced) << " by " << Shown(row.replacement);
    }
    EXPECT_EQ(folder.Read("to"), "to");
    EXPECT_EQ(folder.Read("from"), "from");
}

TEST_F(Replacing, OfSeveralErrorsThatOfTheReplacedFileIsFirstAndThatOfTheBackupLast)
{
    MakeAnew();
    WString const readOnly = folder.Make("readonly", "1");
    ASSERT_TRUE(SetFileAttributesW(readOnly.c_str(), FILE_ATTRIBUTE_READONLY));
    struct
    {
        WCHAR const * replaced;
        WCHAR const * replacement;
        WCHAR const * backup;
        DWORD error;
    } const rows[] = {
        {TEXT("missing"), TEXT("no\\x"), TEXT("no\\x"), ERROR_FILE_NOT_FOUND},
        {TEXT("no\\x"), TEXT("missing"), TEXT("dir"), ERROR_PATH_NOT_FOUND},
        {TEXT("readonly"), TEXT("missing"), TEXT("no\\x"), ERROR_ACCESS_DENIED},
        {TEXT("readonly"), TEXT("dir"), TEXT("no\\x"), ERROR_ACCESS_DENIED},
        {TEXT("dir"), TEXT("missing"), TEXT("no\\x"), ERROR_FILE_NOT_FOUND},
        {TEXT("to"), TEXT("missing"), TEXT("no\\x"), ERROR_FILE_NOT_FOUND},
        {TEXT("to"), TEXT("dir"), TEXT("no\\x"), ERROR_ACCESS_DENIED},
        {TEXT("to"), TEXT("from\\"), TEXT("no\\x"), ERROR_INVALID_NAME},
        {TEXT("to"), TEXT("from"), TEXT("no\\x"), ERROR_PATH_NOT_FOUND},
        {TEXT("to"), TEXT("from"), TEXT("dir"), ERROR_ACCESS_DENIED},
        {TEXT("to"), TEXT("from"), TEXT("other\\"), ERROR_DIRECTORY},
    };
    for (auto const & row : rows)
    {
        EXPECT_EQ(Replace(row.replaced, row.replacement, row.backup), row.error)
            << Shown(row.replaced) << " by " << Shown(row.replacement) << " to " << Shown(row.backup);
    }
    ScopedHandle inUse = Open(TEXT("to"), GENERIC_READ, FILE_SHARE_READ);
#ifndef _WIN32 // Wine answers ERROR_FILE_NOT_FOUND
    EXPECT_EQ(Replace(TEXT("to"), TEXT("missing")), DWORD{ERROR_SHARING_VIOLATION});
#endif
    inUse = Open(TEXT("from"), GENERIC_READ, FILE_SHARE_READ);
    EXPECT_EQ(Replace(TEXT("to"), TEXT("from"), TEXT("no\\x")), DWORD{ERROR_SHARING_VIOLATION});
    inUse = Open(TEXT("other"), GENERIC_READ, shareAll);
    EXPECT_EQ(Replace(TEXT("to"), TEXT("from"), TEXT("other")), DWORD{ERROR_ACCESS_DENIED}) << "the backup is open";
    inUse.Close();
    EXPECT_EQ(folder.Read("to"), "to");
    EXPECT_EQ(folder.Read("from"), "from");
    EXPECT_EQ(folder.Read("other"), "other");
    SetFileAttributesW(readOnly.c_str(), FILE_ATTRIBUTE_NORMAL);
}

#ifndef _WIN32 // under Wine the file is gone, which the published contract rules out
TEST_F(Replacing, AFileDoesNotReplaceItself)
{
    MakeAnew();
    EXPECT_EQ(Replace(TEXT("to"), TEXT("to")), DWORD{ERROR_UNABLE_TO_MOVE_REPLACEMENT});
    EXPECT_EQ(Replace(TEXT("to"), TEXT("TO")), DWORD{ERROR_UNABLE_TO_MOVE_REPLACEMENT});
    EXPECT_EQ(folder.Read("to"), "to");
}
#endif

TEST_F(Replacing, AReadOnlyReplacementStaysReadOnly)
{
    MakeAnew();
    ASSERT_TRUE(SetFileAttributesW(folder(TEXT("from")).c_str(), FILE_ATTRIBUTE_READONLY));
    EXPECT_EQ(Replace(TEXT("to"), TEXT("from")), 0u);
    EXPECT_EQ(folder.Read("to"), "from");
    EXPECT_EQ(GetFileAttributesW(folder(TEXT("to")).c_str()), DWORD{FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_ARCHIVE});
    EXPECT_EQ(GetFileAttributesW(folder(TEXT("from")).c_str()), INVALID_FILE_ATTRIBUTES);
    SetFileAttributesW(folder(TEXT("to")).c_str(), FILE_ATTRIBUTE_NORMAL);
}

TEST_F(Replacing, CopiesGoToFilesThatOthersHoldOpenForSharedWriting)
{
    for (DWORD const access : accesses)
    {
        for (DWORD share = 0; share <= shareAll; ++share)
        {
            SCOPED_TRACE(std::to_string(access) + " shared " + std::to_string(share));
            MakeAnew();
            ScopedHandle open = Open(TEXT("to"), access, share);
            bool const attributesOnly = access == 0 || access == FILE_READ_ATTRIBUTES;
            // The copy shares reading and writing, and writes.
            bool const free = attributesOnly || ((share & FILE_SHARE_WRITE) != 0 && (access & DELETE) == 0);
            EXPECT_EQ(Copy(TEXT("from"), TEXT("to")), free ? 0 : DWORD{ERROR_SHARING_VIOLATION});
            EXPECT_EQ(Copy(TEXT("from"), TEXT("to"), true), DWORD{ERROR_FILE_EXISTS});
            open.Close();
            EXPECT_EQ(folder.Read("to"), free ? "from" : "to");
        }
    }
}

TEST_F(Replacing, AFileIsNotCopiedOntoItself)
{
    MakeAnew();
    for (WCHAR const * const name : {TEXT("from"), TEXT("FROM"), TEXT("from."), TEXT("dir\\..\\from")})
    {
        EXPECT_EQ(Copy(TEXT("from"), name), DWORD{ERROR_SHARING_VIOLATION}) << Shown(name);
        EXPECT_EQ(Copy(TEXT("from"), name, true), DWORD{ERROR_FILE_EXISTS}) << Shown(name);
    }
    EXPECT_EQ(folder.Read("from"), "from");
}
