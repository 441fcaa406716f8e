#ifndef _WIN32 // The system's own calls there are the system's affair.

#    include <cstring>

#    include <kvcore/platform/win32.h>
#    include <support/BadPointers.h>
#    include <support/ScopedHandle.h>
#    include <support/ScratchFolder.h>

#    include <gtest/gtest.h>

namespace
{

using kv::test::ExpectSurvivesBadPointers;
using kv::test::PointerCall;
using kv::test::Pointers;

/// Files and what is open of them.
class BadFilePointers : public testing::Test
{
protected:
    BadFilePointers()
    {
        folder.Write("one.txt", "some bytes, a few more than the calls ask for");
        folder.Write("profile.ini", "[section]\r\nkey=12\r\nother=text\r\n[data]\r\nblock=0102030406\r\n");
        file = ScopedHandle(path, GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE, OPEN_EXISTING);
        requests = ScopedHandle(
            path, GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE, OPEN_EXISTING,
            FILE_FLAG_OVERLAPPED);
    }

    static bool Closed(HANDLE handle)
    {
        return handle != nullptr && handle != INVALID_HANDLE_VALUE && CloseHandle(handle);
    }
    void Restore()
    {
        folder.Write("from.txt", "from");
        folder.Write("to.txt", "to");
    }

    ScratchFolder const folder;
    WString path = Win32Path(folder / "one.txt");
    WString const root = Win32Path(folder.Path()).substr(0, 3);
    WString const directory = Win32Path(folder.Path());
    WString const pattern = Win32Path(folder / "*");
    WString from = Win32Path(folder / "from.txt");
    WString to = Win32Path(folder / "to.txt");
    WString const added = Win32Path(folder / "added");
    WString const profile = Win32Path(folder / "profile.ini");
    WString const section = u"section";
    WString const key = u"key";
    WString const dataSection = u"data";
    WString const blockKey = u"block";
    WCHAR buffer[1024] = {};
    WCHAR second[1024] = {};
    WCHAR * part = nullptr;
    DWORD numbers[4] = {};
    ULARGE_INTEGER sizes[3] = {};
    LARGE_INTEGER large = {};
    FILETIME times[3] = {};
    BY_HANDLE_FILE_INFORMATION information = {};
    WIN32_FILE_ATTRIBUTE_DATA attributes = {};
    WIN32_FIND_DATAW found = {};
    OVERLAPPED request = {};
    ScopedHandle file;
    ScopedHandle requests;
};

char * At(WString const & text)
{
    return reinterpret_cast<char *>(const_cast<WCHAR *>(text.data()));
}

TEST_F(BadFilePointers, ArePathsThatFaultAndHoldNothing)
{
    PointerCall const calls[] = {
        {"GetFullPathNameW",
         {{At(path)}, {buffer}, {&part}},
         [](Pointers const & p) { return GetFullPathNameW(p[0], 1024, p[1], p[2]) != 0; }},
        {"GetShortPathNameW",
         {{At(path)}, {buffer}},
         [](Pointers const & p) { return GetShortPathNameW(p[0], p[1], 1024) != 0; }},
        {"GetLongPathNameW",
         {{At(path)}, {buffer}},
         [](Pointers const & p) { return GetLongPathNameW(p[0], p[1], 1024) != 0; }},
        {"GetCurrentDirectoryW", {{buffer}}, [](Pointers const & p) { return GetCurrentDirectoryW(1024, p[0]) != 0; }},
        {"GetTempPathW", {{buffer}}, [](Pointers const & p) { return GetTempPathW(1024, p[0]) != 0; }},
        {"GetTempFileNameW",
         {{At(directory)}, {At(key)}, {buffer}},
         [](Pointers const & p)
         {
             UINT const number = GetTempFileNameW(p[0], p[1], 0, p[2]);
             return number != 0 && DeleteFileW(p[2]);
         }},
        {"GetFileAttributesW",
         {{At(path)}},
         [](Pointers const & p) { return GetFileAttributesW(p[0]) != INVALID_FILE_ATTRIBUTES; }},
        {"GetFileAttributesExW",
         {{At(path)}, {&attributes}},
         [](Pointers const & p) { return GetFileAttributesExW(p[0], GetFileExInfoStandard, p[1]) != FALSE; }},
        {"SetFileAttributesW",
         {{At(path)}},
         [](Pointers const & p) { return SetFileAttributesW(p[0], FILE_ATTRIBUTE_NORMAL) != FALSE; }},
        {"CreateDirectoryW",
         {{At(added)}},
         [](Pointers const & p) { return CreateDirectoryW(p[0], nullptr) && RemoveDirectoryW(p[0]); }},
        {"RemoveDirectoryW",
         {{At(added)}},
         [this](Pointers const & p)
         {
             CreateDirectoryW(added.c_str(), nullptr);
             return RemoveDirectoryW(p[0]) != FALSE;
         }},
        {"DeleteFileW", {{At(to)}}, [this](Pointers const & p) { return Restore(), DeleteFileW(p[0]) != FALSE; }},
        {"CopyFileW", {{At(path)}, {At(to)}}, [](Pointers const & p) { return CopyFileW(p[0], p[1], FALSE) != FALSE; }},
        {"MoveFileExW",
         {{At(from)}, {At(to)}},
         [this](Pointers const & p) { return Restore(), MoveFileExW(p[0], p[1], MOVEFILE_REPLACE_EXISTING) != FALSE; }},
        {"ReplaceFileW",
         {{At(to)}, {At(from)}, {At(added)}},
         [this](Pointers const & p)
         { return Restore(), ReplaceFileW(p[0], p[1], p[2], 0, nullptr, nullptr) && DeleteFileW(p[2]); }},
        {"GetDriveTypeW", {{At(root)}}, [](Pointers const & p) { return GetDriveTypeW(p[0]) > 1; }},
        {"GetVolumeInformationW",
         {{At(root)}, {buffer}, {&numbers[0]}, {&numbers[1]}, {&numbers[2]}, {second}},
         [](Pointers const & p)
         { return GetVolumeInformationW(p[0], p[1], 1024, p[2], p[3], p[4], p[5], 1024) != FALSE; }},
        {"GetDiskFreeSpaceW",
         {{At(root)}, {&numbers[0]}, {&numbers[1]}, {&numbers[2]}, {&numbers[3]}},
         [](Pointers const & p) { return GetDiskFreeSpaceW(p[0], p[1], p[2], p[3], p[4]) != FALSE; }},
        {"GetDiskFreeSpaceExW",
         {{At(directory)}, {&sizes[0]}, {&sizes[1]}, {&sizes[2]}},
         [](Pointers const & p) { return GetDiskFreeSpaceExW(p[0], p[1], p[2], p[3]) != FALSE; }},
        {"SHGetSpecialFolderPathW",
         {{buffer}},
         [](Pointers const & p) { return SHGetSpecialFolderPathW(nullptr, p[0], CSIDL_APPDATA, FALSE) != FALSE; }},
        {"FindFirstFileW",
         {{At(pattern)}, {&found}},
         [](Pointers const & p)
         {
             HANDLE const find = FindFirstFileW(p[0], p[1]);
             return find != INVALID_HANDLE_VALUE && FindClose(find);
         }},
        {"WerRegisterFile",
         {{At(path)}},
         [](Pointers const & p)
         { return WerRegisterFile(p[0], WerRegFileTypeOther, 0) == 0 && WerUnregisterFile(p[0]) == 0; }},
    };
    for (PointerCall const & call : calls)
    {
        SCOPED_TRACE(call.name);
        ExpectSurvivesBadPointers(call);
    }
}

TEST_F(BadFilePointers, OfFindingLeaveTheSearchAsItIs)
{
    HANDLE const find = FindFirstFileW(pattern.c_str(), &found);
    ASSERT_NE(find, INVALID_HANDLE_VALUE);
    PointerCall const call = {
        "FindNextFileW",
        {{&found}},
        [this](Pointers const & p)
        {
            HANDLE const search = FindFirstFileW(pattern.c_str(), &found);
            struct Close
            {
                ~Close()
                {
                    FindClose(handle);
                }
                HANDLE handle;
            } const close{search};
            return FindNextFileW(search, p[0]) != FALSE;
        }};
    ExpectSurvivesBadPointers(call);
    EXPECT_TRUE(FindNextFileW(find, &found));
    EXPECT_TRUE(FindClose(find));
}

TEST_F(BadFilePointers, OfOpenFilesFaultAndHoldNothing)
{
    HANDLE const open = file;
    HANDLE const process = GetCurrentProcess();
    HANDLE other = nullptr;
    PointerCall const calls[] = {
        {"CreateFileW",
         {{At(path)}},
         [](Pointers const & p)
         {
             return Closed(CreateFileW(
                 p[0], GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING, 0, nullptr));
         }},
        {"DuplicateHandle",
         {{&other}},
         [open, process](Pointers const & p)
         {
             return DuplicateHandle(process, open, process, p[0], 0, FALSE, DUPLICATE_SAME_ACCESS) &&
                 Closed(p[0].As<HANDLE>());
         }},
        {"GetHandleInformation",
         {{&numbers[0]}},
         [open](Pointers const & p) { return GetHandleInformation(open, p[0]) != FALSE; }},
        {"ReadFile",
         {{buffer}, {&numbers[0]}},
         [open](Pointers const & p)
         { return SetFilePointer(open, 0, nullptr, FILE_BEGIN) == 0 && ReadFile(open, p[0], 8, p[1], nullptr); }},
        {"WriteFile",
         {{buffer}, {&numbers[0]}},
         [open](Pointers const & p)
         { return SetFilePointer(open, 0, nullptr, FILE_BEGIN) == 0 && WriteFile(open, p[0], 8, p[1], nullptr); }},
        {"SetFilePointer",
         {{&numbers[0]}},
         [open, this](Pointers const & p)
         {
             numbers[0] = 0;
             return SetFilePointer(open, 0, p[0], FILE_BEGIN) == 0;
         }},
        {"SetFilePointerEx",
         {{&large}},
         [open](Pointers const & p) { return SetFilePointerEx(open, LARGE_INTEGER{}, p[0], FILE_BEGIN) != FALSE; }},
        {"GetFileSize",
         {{&numbers[0]}},
         [open](Pointers const & p) { return GetFileSize(open, p[0]) != INVALID_FILE_SIZE; }},
        {"GetFileSizeEx", {{&large}}, [open](Pointers const & p) { return GetFileSizeEx(open, p[0]) != FALSE; }},
        {"GetFileTime",
         {{&times[0]}, {&times[1]}, {&times[2]}},
         [open](Pointers const & p) { return GetFileTime(open, p[0], p[1], p[2]) != FALSE; }},
        {"SetFileTime",
         {{&times[0]}, {&times[1]}, {&times[2]}},
         [open](Pointers const & p) { return SetFileTime(open, p[0], p[1], p[2]) != FALSE; }},
        {"GetFileInformationByHandle",
         {{&information}},
         [open](Pointers const & p) { return GetFileInformationByHandle(open, p[0]) != FALSE; }},
        {"GetFinalPathNameByHandleW",
         {{buffer}},
         [open](Pointers const & p) { return GetFinalPathNameByHandleW(open, p[0], 1024, 0) != 0; }},
    };
    for (PointerCall const & call : calls)
    {
        SCOPED_TRACE(call.name);
        ExpectSurvivesBadPointers(call);
    }
}

void CALLBACK DropCompletion(DWORD, DWORD, OVERLAPPED *) {}

TEST_F(BadFilePointers, OfRequestsFaultAndHoldNothing)
{
    HANDLE const open = requests;
    auto const fresh = [this] { request = {}; };
    PointerCall const calls[] = {
        {"ReadFile",
         {{buffer}, {&request}},
         [=](Pointers const & p)
         {
             fresh();
             DWORD done = 0;
             bool const issued = ReadFile(open, p[0], 8, nullptr, p[1]) || GetLastError() == ERROR_IO_PENDING;
             return issued && GetOverlappedResult(open, p[1], &done, TRUE) && done == 8;
         }},
        {"WriteFile",
         {{buffer}, {&request}},
         [=](Pointers const & p)
         {
             fresh();
             DWORD done = 0;
             bool const issued = WriteFile(open, p[0], 8, nullptr, p[1]) || GetLastError() == ERROR_IO_PENDING;
             return issued && GetOverlappedResult(open, p[1], &done, TRUE) && done == 8;
         }},
        {"GetOverlappedResult",
         {{&request}, {&numbers[0]}},
         [=, this](Pointers const & p)
         {
             fresh();
             bool const issued = ReadFile(open, buffer, 8, nullptr, &request) || GetLastError() == ERROR_IO_PENDING;
             DWORD done = 0;
             bool const whole = issued && GetOverlappedResult(open, &request, &done, TRUE);
             return whole && GetOverlappedResult(open, p[0], p[1], FALSE);
         }},
        {"ReadFileEx",
         {{buffer}, {&request}},
         [=](Pointers const & p)
         {
             fresh();
             bool const issued = ReadFileEx(open, p[0], 8, p[1], DropCompletion) != FALSE;
             while (issued && SleepEx(10000, TRUE) != WAIT_IO_COMPLETION)
             {
             }
             return issued && p[1].As<OVERLAPPED>().Internal == 0;
         }},
        {"WriteFileEx",
         {{buffer}, {&request}},
         [=](Pointers const & p)
         {
             fresh();
             bool const issued = WriteFileEx(open, p[0], 8, p[1], DropCompletion) != FALSE;
             while (issued && SleepEx(10000, TRUE) != WAIT_IO_COMPLETION)
             {
             }
             return issued && p[1].As<OVERLAPPED>().Internal == 0;
         }},
        {"LockFileEx",
         {{&request}},
         [=, this](Pointers const & p)
         {
             fresh();
             bool const locked = LockFileEx(open, LOCKFILE_FAIL_IMMEDIATELY, 0, 1, 0, p[0]) != FALSE;
             return locked && UnlockFileEx(open, 0, 1, 0, &request);
         }},
        {"UnlockFileEx",
         {{&request}},
         [=, this](Pointers const & p)
         {
             fresh();
             bool const locked = LockFileEx(open, LOCKFILE_FAIL_IMMEDIATELY, 0, 1, 0, &request) != FALSE;
             struct Unlock
             {
                 ~Unlock()
                 {
                     UnlockFileEx(handle, 0, 1, 0, where);
                 }
                 HANDLE handle;
                 OVERLAPPED * where;
             } const unlock{open, &request};
             return locked && UnlockFileEx(open, 0, 1, 0, p[0]);
         }},
    };
    for (PointerCall const & call : calls)
    {
        SCOPED_TRACE(call.name);
        ExpectSurvivesBadPointers(call);
    }
}

TEST_F(BadFilePointers, OfProfilesFaultAndHoldNothing)
{
    PointerCall const calls[] = {
        {"GetPrivateProfileStringW",
         {{At(section)}, {At(key)}, {At(directory)}, {buffer}, {At(profile)}},
         [](Pointers const & p) { return GetPrivateProfileStringW(p[0], p[1], p[2], p[3], 1024, p[4]) == 2; }},
        {"GetPrivateProfileIntW",
         {{At(section)}, {At(key)}, {At(profile)}},
         [](Pointers const & p) { return GetPrivateProfileIntW(p[0], p[1], 0, p[2]) == 12; }},
        {"GetPrivateProfileSectionW",
         {{At(section)}, {buffer}, {At(profile)}},
         [](Pointers const & p) { return GetPrivateProfileSectionW(p[0], p[1], 1024, p[2]) != 0; }},
        {"GetPrivateProfileSectionNamesW",
         {{buffer}, {At(profile)}},
         [](Pointers const & p) { return GetPrivateProfileSectionNamesW(p[0], 1024, p[1]) > 10; }},
        {"WritePrivateProfileStringW",
         {{At(section)}, {At(blockKey)}, {At(directory)}, {At(profile)}},
         [this](Pointers const & p)
         {
             return WritePrivateProfileStringW(p[0], p[1], p[2], p[3]) &&
                 GetPrivateProfileStringW(section.c_str(), blockKey.c_str(), u"", buffer, 1024, profile.c_str()) > 1;
         }},
        {"WritePrivateProfileSectionW",
         {{At(blockKey)}, {At(key)}, {At(profile)}},
         [this](Pointers const & p)
         { return WritePrivateProfileSectionW(p[0], p[1], p[2]) && p[1].address == key.data(); }},
        {"GetPrivateProfileStructW",
         {{At(dataSection)}, {At(blockKey)}, {buffer}, {At(profile)}},
         [](Pointers const & p) { return GetPrivateProfileStructW(p[0], p[1], p[2], 4, p[3]) != FALSE; }},
        {"WritePrivateProfileStructW",
         {{At(dataSection)}, {At(key)}, {numbers}, {At(profile)}},
         [this](Pointers const & p)
         { return WritePrivateProfileStructW(p[0], p[1], p[2], 4, p[3]) && p[2].address == numbers; }},
    };
    // The block's check sum is that of the bytes.
    ASSERT_TRUE(WritePrivateProfileStructW(dataSection.c_str(), blockKey.c_str(), numbers, 4, profile.c_str()));
    for (PointerCall const & call : calls)
    {
        SCOPED_TRACE(call.name);
        ExpectSurvivesBadPointers(call);
    }
}

} // namespace

#endif
