#include <cerrno>

#include <unistd.h>

#include <kvcore/platform/include/directories.h>
#include <kvcore/platform/include/errors.h>
#include <kvcore/platform/linux/errors/ErrnoErrors.h>
#include <kvcore/platform/linux/files/OpenFiles.h>
#include <kvcore/platform/linux/memory/CallerMemory.h>
#include <kvcore/platform/linux/paths/NativePath.h>

#include "FileMoves.h"

using namespace kv::platform;

BOOL WINAPI DeleteFileW(LPCWSTR name)
{
    CheckText(name);
    NativePath path;
    if (!path.Translate(name, Look::Existing))
    {
        return FALSE;
    }
    DWORD error = CheckRemovable(path);
    if (error == ERROR_SUCCESS)
    {
        error = path.EndsInSeparator() ? ERROR_PATH_NOT_FOUND : CheckDeletion(path.CStr());
    }
    if (error != ERROR_SUCCESS)
    {
        return FailWith(error);
    }
    return unlink(path.CStr()) == 0 ? TRUE : FailErrno();
}
