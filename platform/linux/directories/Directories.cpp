#include <cerrno>

#include <sys/stat.h>
#include <unistd.h>

#include <kvcore/platform/include/directories.h>
#include <kvcore/platform/include/errors.h>
#include <kvcore/platform/linux/errors/ErrnoErrors.h>
#include <kvcore/platform/linux/files/OpenFiles.h>
#include <kvcore/platform/linux/memory/CallerMemory.h>
#include <kvcore/platform/linux/paths/NativePath.h>

#include "FileMoves.h"

using namespace kv::platform;

BOOL WINAPI CreateDirectoryW(LPCWSTR path, LPSECURITY_ATTRIBUTES)
{
    CheckText(path);
    NativePath native;
    if (!native.Translate(path, Look::Creating))
    {
        return FALSE;
    }
    if (native.Exists())
    {
        return FailWith(ERROR_ALREADY_EXISTS);
    }
    if (mkdir(native.CStr(), 0777) == 0)
    {
        return TRUE;
    }
    switch (errno)
    {
    case EEXIST:
        return FailWith(ERROR_ALREADY_EXISTS);
    case ENOENT: // the directory above went away meanwhile
        return FailWith(ERROR_PATH_NOT_FOUND);
    default:
        return FailErrno();
    }
}

BOOL WINAPI RemoveDirectoryW(LPCWSTR path)
{
    CheckText(path);
    NativePath native;
    if (!native.Translate(path, Look::Existing))
    {
        return FALSE;
    }
    if (native.IsDriveRoot())
    {
        return FailWith(ERROR_ACCESS_DENIED);
    }
    if (!native.IsDirectory())
    {
        return FailWith(ERROR_DIRECTORY);
    }
    if (!native.IsLink() && IsCurrentDirectory(native.Status()))
    {
        return FailWith(ERROR_SHARING_VIOLATION);
    }
    if (DWORD const refused = CheckDeletion(native.CStr()); refused != ERROR_SUCCESS)
    {
        return FailWith(refused);
    }
    int const result = native.IsLink() ? unlink(native.CStr()) : rmdir(native.CStr());
    if (result == 0)
    {
        return TRUE;
    }
    return errno == EEXIST ? FailWith(ERROR_DIR_NOT_EMPTY) : FailErrno();
}
