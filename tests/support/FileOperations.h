#pragma once

// Every operation of the system on a file's name, for tables of what it tells of what is in its way.

#include <vector>

#include <kvcore/platform/win32.h>
#include <support/ScopedHandle.h>

namespace kv::test
{

inline constexpr DWORD shareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;

/// 0 when it succeeds, else the error.
inline DWORD ErrorOf(BOOL succeeded)
{
    return succeeded ? 0 : GetLastError();
}

inline DWORD Opening(WString const & path, DWORD access, DWORD disposition)
{
    ScopedHandle const file(CreateFileW(path.c_str(), access, shareAll, nullptr, disposition, 0, nullptr));
    return file.IsOpen() ? 0 : GetLastError();
}

inline DWORD Finding(WString const & mask)
{
    WIN32_FIND_DATAW found;
    HANDLE const search = FindFirstFileW(mask.c_str(), &found);
    if (search == INVALID_HANDLE_VALUE)
    {
        return GetLastError();
    }
    FindClose(search);
    return 0;
}

using NameForm = DWORD(WINAPI *)(LPCWSTR, LPWSTR, DWORD);

inline DWORD Naming(NameForm form, WString const & path)
{
    std::vector<WCHAR> name(0x10000);
    return ErrorOf(form(path.c_str(), name.data(), static_cast<DWORD>(name.size())) != 0);
}

/// What an operation works with: the path with an obstacle, a file, and a name that is not taken.
struct FilePlace
{
    WString path;
    WString file;
    WString unused;
};

struct NamedOperation
{
    char const * name;
    DWORD (*run)(FilePlace const & place);
};

inline NamedOperation const fileOperations[] = {
    {"read", [](FilePlace const & place) { return Opening(place.path, GENERIC_READ, OPEN_EXISTING); }},
    {"write", [](FilePlace const & place) { return Opening(place.path, GENERIC_WRITE, OPEN_EXISTING); }},
    {"truncate", [](FilePlace const & place) { return Opening(place.path, GENERIC_WRITE, TRUNCATE_EXISTING); }},
    {"create new", [](FilePlace const & place) { return Opening(place.path, GENERIC_WRITE, CREATE_NEW); }},
    {"create always", [](FilePlace const & place) { return Opening(place.path, GENERIC_WRITE, CREATE_ALWAYS); }},
    {"attributes",
     [](FilePlace const & place)
     { return ErrorOf(GetFileAttributesW(place.path.c_str()) != INVALID_FILE_ATTRIBUTES); }},
    {"set attributes",
     [](FilePlace const & place) { return ErrorOf(SetFileAttributesW(place.path.c_str(), FILE_ATTRIBUTE_NORMAL)); }},
    {"delete", [](FilePlace const & place) { return ErrorOf(DeleteFileW(place.path.c_str())); }},
    {"make directory", [](FilePlace const & place) { return ErrorOf(CreateDirectoryW(place.path.c_str(), nullptr)); }},
    {"remove directory", [](FilePlace const & place) { return ErrorOf(RemoveDirectoryW(place.path.c_str())); }},
    {"move from",
     [](FilePlace const & place) { return ErrorOf(MoveFileExW(place.path.c_str(), place.unused.c_str(), 0)); }},
    {"move to",
     [](FilePlace const & place) { return ErrorOf(MoveFileExW(place.file.c_str(), place.path.c_str(), 0)); }},
    {"move over",
     [](FilePlace const & place)
     { return ErrorOf(MoveFileExW(place.file.c_str(), place.path.c_str(), MOVEFILE_REPLACE_EXISTING)); }},
    {"copy from",
     [](FilePlace const & place) { return ErrorOf(CopyFileW(place.path.c_str(), place.unused.c_str(), TRUE)); }},
    {"copy to",
     [](FilePlace const & place) { return ErrorOf(CopyFileW(place.file.c_str(), place.path.c_str(), FALSE)); }},
    {"replace",
     [](FilePlace const & place)
     { return ErrorOf(ReplaceFileW(place.path.c_str(), place.file.c_str(), nullptr, 0, nullptr, nullptr)); }},
    {"find", [](FilePlace const & place) { return Finding(place.path); }},
    {"find in", [](FilePlace const & place) { return Finding(place.path + TEXT("\\*")); }},
    {"short name", [](FilePlace const & place) { return Naming(GetShortPathNameW, place.path); }},
    {"long name", [](FilePlace const & place) { return Naming(GetLongPathNameW, place.path); }},
    {"free space",
     [](FilePlace const & place)
     {
         ULARGE_INTEGER available = {};
         return ErrorOf(GetDiskFreeSpaceExW(place.path.c_str(), &available, nullptr, nullptr));
     }},
};

} // namespace kv::test
