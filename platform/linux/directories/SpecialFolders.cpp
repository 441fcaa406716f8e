#include <cstring>
#include <new>
#include <string>

#include <kvcore/platform/include/directories.h>
#include <kvcore/platform/include/errors.h>
#include <kvcore/platform/linux/errors/ErrnoErrors.h>
#include <kvcore/platform/linux/memory/CallerMemory.h>
#include <kvcore/platform/linux/paths/Drives.h>
#include <kvcore/platform/linux/paths/Win32Path.h>

using namespace kv::platform;

namespace
{

struct Folder
{
    int id;
    bool ofUser; ///< below C:\Users\<name>, else below C:
    WCHAR const * path;
};

constexpr Folder folders[] = {
    {CSIDL_DESKTOP, true, TEXT("\\Desktop")},
    {CSIDL_PERSONAL, true, TEXT("\\Documents")},
    {CSIDL_MYMUSIC, true, TEXT("\\Music")},
    {CSIDL_MYVIDEO, true, TEXT("\\Videos")},
    {CSIDL_DESKTOPDIRECTORY, true, TEXT("\\Desktop")},
    {CSIDL_FONTS, false, TEXT("\\Windows\\Fonts")},
    {CSIDL_APPDATA, true, TEXT("\\AppData\\Roaming")},
    {CSIDL_LOCAL_APPDATA, true, TEXT("\\AppData\\Local")},
    {CSIDL_COMMON_APPDATA, false, TEXT("\\ProgramData")},
    {CSIDL_WINDOWS, false, TEXT("\\Windows")},
    {CSIDL_SYSTEM, false, TEXT("\\Windows\\System32")},
    {CSIDL_PROGRAM_FILES, false, TEXT("\\Program Files")},
    {CSIDL_MYPICTURES, true, TEXT("\\Pictures")},
    {CSIDL_PROFILE, true, TEXT("")},
    {CSIDL_PROGRAM_FILES_COMMON, false, TEXT("\\Program Files\\Common Files")},
};

/// Makes a directory and those above it.
bool MakeAll(WString const & path)
{
    for (std::size_t end = path.find(TEXT('\\'), 3); end != WString::npos; end = path.find(TEXT('\\'), end + 1))
    {
        CreateDirectoryW(path.substr(0, end).c_str(), nullptr);
    }
    return CreateDirectoryW(path.c_str(), nullptr) || GetLastError() == ERROR_ALREADY_EXISTS;
}

} // namespace

BOOL WINAPI SHGetSpecialFolderPathW(HWND, LPWSTR path, int folder, BOOL create)
try
{
    CheckBuffer(path, MAX_PATH);
    if (path == nullptr)
    {
        return FailWith(ERROR_INVALID_PARAMETER);
    }
    path[0] = 0;
    bool const make = create || (folder & CSIDL_FLAG_CREATE) != 0;
    for (Folder const & known : folders)
    {
        if (known.id != (folder & ~CSIDL_FLAG_CREATE))
        {
            continue;
        }
        WString full = TEXT("C:");
        if (known.ofUser)
        {
            full += TEXT("\\Users\\") + Win32NameOf(UserName(), std::strlen(UserName()));
        }
        full += known.path;
        DWORD const attributes = GetFileAttributesW(full.c_str());
        bool const there = attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
        if ((there || (make && MakeAll(full))) && full.size() < MAX_PATH)
        {
            GiveText(full, path, MAX_PATH);
            return TRUE;
        }
        return FALSE;
    }
    return FailWith(ERROR_INVALID_PARAMETER);
}
catch (std::bad_alloc const &)
{
    return FailWith(ERROR_NOT_ENOUGH_MEMORY);
}
