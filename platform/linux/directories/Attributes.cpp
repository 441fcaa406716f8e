#include <fcntl.h>

#include <kvcore/platform/include/directories.h>
#include <kvcore/platform/include/errors.h>
#include <kvcore/platform/linux/errors/ErrnoErrors.h>
#include <kvcore/platform/linux/memory/CallerMemory.h>
#include <kvcore/platform/linux/paths/NativePath.h>

#include "FileStatus.h"

using namespace kv::platform;

namespace
{

/// The attributes of what a path names and its status, that of a link's target if there is one.
bool Examine(WCHAR const * name, DWORD & attributes, struct statx & status)
{
    NativePath path;
    if (!path.Translate(name, Look::Existing))
    {
        return false;
    }
    status = path.Status();
    char const * const last = path.CStr() + path.NameStart();
    attributes = path.IsLink() ? FollowLink(AT_FDCWD, path.CStr(), last, status) : AttributesOf(status, last);
    // "file\" is no name of a file.
    return path.EndsInSeparator() && !S_ISDIR(status.stx_mode) ? FailWith(ERROR_PATH_NOT_FOUND) : true;
}

} // namespace

DWORD WINAPI GetFileAttributesW(LPCWSTR name)
{
    CheckText(name);
    DWORD attributes = 0;
    struct statx status;
    return Examine(name, attributes, status) ? attributes : INVALID_FILE_ATTRIBUTES;
}

BOOL WINAPI GetFileAttributesExW(LPCWSTR name, GET_FILEEX_INFO_LEVELS level, LPVOID data)
{
    CheckText(name);
    CheckOutputs(static_cast<WIN32_FILE_ATTRIBUTE_DATA *>(data));
    if (level != GetFileExInfoStandard || data == nullptr)
    {
        return FailWith(ERROR_INVALID_PARAMETER);
    }
    DWORD attributes = 0;
    struct statx status;
    if (!Examine(name, attributes, status))
    {
        return FALSE;
    }
    std::uint64_t const size = SizeOf(status);
    *static_cast<WIN32_FILE_ATTRIBUTE_DATA *>(data) = {
        attributes,
        CreationTimeOf(status),
        FileTimeOf(status.stx_atime),
        FileTimeOf(status.stx_mtime),
        static_cast<DWORD>(size >> 32),
        static_cast<DWORD>(size)};
    return TRUE;
}

BOOL WINAPI SetFileAttributesW(LPCWSTR name, DWORD attributes)
{
    CheckText(name);
    NativePath path;
    if (!path.Translate(name, Look::Existing))
    {
        return FALSE;
    }
    struct statx status = path.Status();
    if (path.IsLink() && statx(AT_FDCWD, path.CStr(), 0, STATX_BASIC_STATS, &status) != 0)
    {
        return FailErrno();
    }
    if (path.EndsInSeparator() && !S_ISDIR(status.stx_mode))
    {
        return FailWith(ERROR_PATH_NOT_FOUND);
    }
    if (S_ISDIR(status.stx_mode))
    {
        return TRUE; // the attribute forbids nothing, and the right to write is what its owner works with
    }
    constexpr mode_t allWrite = S_IWUSR | S_IWGRP | S_IWOTH;
    mode_t const mode = status.stx_mode & 07777u;
    bool const readOnly = (attributes & FILE_ATTRIBUTE_READONLY) != 0;
    if (readOnly == ((mode & allWrite) == 0))
    {
        return TRUE;
    }
    // Who else could write before is not known any more, and nobody gets a right here that was never given.
    mode_t const changed = readOnly ? mode & ~allWrite : mode | S_IWUSR;
    return chmod(path.CStr(), changed) == 0 ? TRUE : FailErrno();
}
