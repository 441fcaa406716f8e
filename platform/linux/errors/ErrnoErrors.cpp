#include "ErrnoErrors.h"

#include <cerrno>

#include <kvcore/platform/include/errors.h>

namespace kv::platform
{

DWORD ErrorOfErrno(int error) noexcept
{
    switch (error)
    {
    case 0:
        return ERROR_SUCCESS;
    case ENOENT:
        return ERROR_FILE_NOT_FOUND;
    case ENOTDIR:
        return ERROR_PATH_NOT_FOUND;
    case EACCES:
    case EPERM:
    case EISDIR: // opening a directory as a file is "access denied"
        return ERROR_ACCESS_DENIED;
    case EROFS:
        return ERROR_WRITE_PROTECT;
    case EEXIST:
        return ERROR_FILE_EXISTS;
    case ENOSPC:
    case EDQUOT:
        return ERROR_DISK_FULL;
    case EMFILE:
    case ENFILE:
        return ERROR_TOO_MANY_OPEN_FILES;
    case ENOMEM:
        return ERROR_NOT_ENOUGH_MEMORY;
    case EBADF:
        return ERROR_INVALID_HANDLE;
    case EINVAL:
        return ERROR_INVALID_PARAMETER;
    case EFAULT:
        return ERROR_NOACCESS;
    case EXDEV:
        return ERROR_NOT_SAME_DEVICE;
    case EBUSY:
        return ERROR_BUSY;
    case ETXTBSY:
        return ERROR_SHARING_VIOLATION;
    case ENOTEMPTY:
        return ERROR_DIR_NOT_EMPTY;
    case ELOOP:
        return ERROR_CANT_RESOLVE_FILENAME;
    case ENAMETOOLONG:
        return ERROR_FILENAME_EXCED_RANGE;
    case EFBIG:
        return ERROR_FILE_TOO_LARGE;
    case EIO:
        return ERROR_IO_DEVICE;
    case ENXIO:
    case ENODEV:
        return ERROR_NOT_READY;
    case ESPIPE:
        return ERROR_SEEK_ON_DEVICE;
    case EPIPE:
        return ERROR_BROKEN_PIPE;
    case EMLINK:
        return ERROR_TOO_MANY_LINKS;
    case ENOSYS:
    case EOPNOTSUPP:
        return ERROR_NOT_SUPPORTED;
    case EAGAIN:
    case ENOLCK:
        return ERROR_NO_SYSTEM_RESOURCES;
    case EOVERFLOW:
        return ERROR_FILE_TOO_LARGE;
    case EINTR:
    case ECANCELED:
        return ERROR_OPERATION_ABORTED;
    default:
        return ERROR_GEN_FAILURE;
    }
}

BOOL FailErrno() noexcept
{
    return FailErrno(errno);
}

BOOL FailErrno(int error) noexcept
{
    return FailWith(ErrorOfErrno(error));
}

BOOL FailWith(DWORD code) noexcept
{
    SetLastError(code);
    return FALSE;
}

} // namespace kv::platform
