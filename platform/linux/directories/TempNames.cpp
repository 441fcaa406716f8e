#include <cerrno>
#include <cstring>
#include <ctime>
#include <new>

#include <fcntl.h>
#include <unistd.h>

#include <kvcore/platform/include/directories.h>
#include <kvcore/platform/include/errors.h>
#include <kvcore/platform/linux/errors/ErrnoErrors.h>
#include <kvcore/platform/linux/memory/CallerMemory.h>
#include <kvcore/platform/linux/paths/NativePath.h>
#include <kvcore/platform/linux/paths/PathSyntax.h>
#include <kvcore/platform/linux/paths/Win32Path.h>
#include <kvcore/platform/linux/system/Settings.h>

using namespace kv::platform;

namespace
{

/// The user's own folder for temporary files, made if it is missing; empty if it cannot be had.
WString OwnTempPath()
{
    WCHAR local[MAX_PATH];
    if (!SHGetSpecialFolderPathW(nullptr, local, CSIDL_LOCAL_APPDATA, TRUE))
    {
        return {};
    }
    WString const path = WString(local) + TEXT("\\Temp");
    return CreateDirectoryW(path.c_str(), nullptr) || GetLastError() == ERROR_ALREADY_EXISTS ? path : WString();
}

WString TempPath()
{
    char const * const setting = PlaceSetting("TMPDIR");
    if (setting != nullptr && setting[0] == '/')
    {
        return Win32PathOf(setting, std::strlen(setting));
    }
    WString const own = OwnTempPath();
    return own.empty() ? WString(TEXT("Z:\\tmp")) : own;
}

} // namespace

DWORD WINAPI GetTempPathW(DWORD capacity, LPWSTR buffer)
try
{
    CheckBuffer(buffer, capacity);
    DWORD const before = GetLastError();
    WString path = TempPath();
    SetLastError(before);
    if (path.back() != '\\')
    {
        path += TEXT('\\');
    }
    return GiveText(path, buffer, capacity);
}
catch (std::bad_alloc const &)
{
    SetLastError(ERROR_NOT_ENOUGH_MEMORY);
    return 0;
}

namespace
{

/// "<path>\<pre>", which the number and ".tmp" follow. False with ERROR_BUFFER_OVERFLOW if those would not fit.
bool StartTempName(WCHAR const * path, WCHAR const * prefix, WString & name)
{
    name = path;
    if (name.empty() || !IsSeparator(name.back()))
    {
        name += TEXT('\\');
    }
    for (std::size_t i = 0; i < 3 && prefix != nullptr && prefix[i] != 0; i++)
    {
        name += prefix[i];
    }
    constexpr std::size_t longestTail = 8; // "ffff.tmp"
    return name.size() + longestTail < MAX_PATH ? true : FailWith(ERROR_BUFFER_OVERFLOW);
}

WString WithNumber(WString const & start, UINT number)
{
    WString digits;
    for (UINT left = number; left != 0; left >>= 4)
    {
        digits.insert(digits.begin(), static_cast<WCHAR>("0123456789abcdef"[left & 15]));
    }
    return start + digits + TEXT(".tmp");
}

/// Makes the file of the first number from `number` on that is free; 0 with the last error set.
UINT CreateNumbered(WString const & start, UINT number, WString & name)
{
    for (unsigned tries = 0; tries < 0xFFFF; tries++, number = number % 0xFFFF + 1)
    {
        name = WithNumber(start, number);
        NativePath path;
        if (!path.Translate(name.c_str(), Look::Creating))
        {
            return 0;
        }
        if (path.Exists())
        {
            continue;
        }
        int const descriptor = open(path.CStr(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
        if (descriptor >= 0)
        {
            close(descriptor);
            return number;
        }
        if (errno != EEXIST)
        {
            FailErrno();
            return 0;
        }
    }
    SetLastError(ERROR_FILE_EXISTS);
    return 0;
}

} // namespace

UINT WINAPI GetTempFileNameW(LPCWSTR path, LPCWSTR prefix, UINT unique, LPWSTR target)
try
{
    CheckTexts(path, prefix);
    CheckBuffer(target, MAX_PATH);
    if (path == nullptr || target == nullptr)
    {
        SetLastError(ERROR_INVALID_PARAMETER);
        return 0;
    }
    NativePath directory;
    if (!directory.Translate(path, Look::Existing) || !directory.IsDirectory())
    {
        SetLastError(ERROR_DIRECTORY);
        return 0;
    }
    WString start;
    WString name;
    if (!StartTempName(path, prefix, start))
    {
        return 0;
    }
    UINT number = unique & 0xFFFF;
    if (number != 0)
    {
        name = WithNumber(start, number);
    }
    else
    {
        timespec now;
        clock_gettime(CLOCK_MONOTONIC, &now);
        auto const seed = static_cast<UINT>(now.tv_nsec / 1000) ^ static_cast<UINT>(getpid());
        number = CreateNumbered(start, seed % 0xFFFF + 1, name);
    }
    return number != 0 && GiveText(name, target, MAX_PATH) < MAX_PATH ? number : 0;
}
catch (std::bad_alloc const &)
{
    SetLastError(ERROR_NOT_ENOUGH_MEMORY);
    return 0;
}
