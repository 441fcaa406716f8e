#include <cerrno>

#include <sys/stat.h>
#include <unistd.h>

#include <kvcore/platform/include/errors.h>
#include <kvcore/platform/include/fileapi.h>
#include <kvcore/platform/linux/errors/ErrnoErrors.h>
#include <kvcore/platform/linux/files/FileObject.h>
#include <kvcore/platform/linux/files/OpenFiles.h>
#include <kvcore/platform/linux/memory/CallerMemory.h>

using namespace kv::platform;

namespace
{

/// Where the file's position would be, or -1 with the last error set.
__int64 NewPosition(File const & file, __int64 distance, DWORD method)
{
    __int64 base = 0;
    if (method == FILE_CURRENT)
    {
        base = file.Position();
    }
    else if (method == FILE_END)
    {
        struct stat status;
        base = fstat(file.descriptor, &status) == 0 ? static_cast<__int64>(status.st_size) : -1;
    }
    else if (method != FILE_BEGIN)
    {
        errno = EINVAL;
        base = -1;
    }
    __int64 position = -1;
    if (base < 0)
    {
        FailErrno();
    }
    else if (__builtin_add_overflow(base, distance, &position) || position < 0) // the sum wraps, as on Windows
    {
        position = -1;
        FailWith(ERROR_NEGATIVE_SEEK);
    }
    return position;
}

bool Seek(File const & file, __int64 position)
{
    return file.MoveTo(position) || FailErrno();
}

bool SizeOf(HANDLE handle, __int64 & size)
{
    auto const file = LookUp<File>(handle);
    struct stat status;
    if (!file)
    {
        return false;
    }
    if (file->type == FileType::Pipe)
    {
        return FailWith(ERROR_INVALID_FUNCTION);
    }
    if (fstat(file->descriptor, &status) != 0)
    {
        return FailErrno();
    }
    size = file->type == FileType::Directory ? 0 : static_cast<__int64>(status.st_size);
    return true;
}

} // namespace

DWORD WINAPI SetFilePointer(HANDLE file, LONG distance, LONG * high, DWORD method)
{
    CheckOutputs(high);
    auto const object = LookUp<File>(file);
    if (!object)
    {
        return INVALID_SET_FILE_POINTER;
    }
    // Without the high half, the low one is signed; with it, the two are one number.
    __int64 const whole = high == nullptr
        ? static_cast<__int64>(distance)
        : static_cast<__int64>(std::uint64_t{static_cast<DWORD>(*high)} << 32 | static_cast<DWORD>(distance));
    __int64 const position = NewPosition(*object, whole, method);
    if (position < 0)
    {
        return INVALID_SET_FILE_POINTER;
    }
    if (high == nullptr && position > 0xFFFFFFFF)
    {
        FailWith(ERROR_INVALID_PARAMETER);
        return INVALID_SET_FILE_POINTER;
    }
    if (!Seek(*object, position))
    {
        return INVALID_SET_FILE_POINTER;
    }
    if (high != nullptr)
    {
        *high = static_cast<LONG>(position >> 32);
    }
    DWORD const low = static_cast<DWORD>(position);
    if (low == INVALID_SET_FILE_POINTER)
    {
        SetLastError(ERROR_SUCCESS);
    }
    return low;
}

BOOL WINAPI SetFilePointerEx(HANDLE file, LARGE_INTEGER distance, LARGE_INTEGER * position, DWORD method)
{
    CheckOutputs(position);
    auto const object = LookUp<File>(file);
    if (!object)
    {
        return FALSE;
    }
    __int64 const target = NewPosition(*object, distance.QuadPart, method);
    if (target < 0 || !Seek(*object, target))
    {
        return FALSE;
    }
    if (position != nullptr)
    {
        position->QuadPart = target;
    }
    return TRUE;
}

BOOL WINAPI SetEndOfFile(HANDLE file)
{
    auto const object = LookUp<File>(file);
    if (!object)
    {
        return FALSE;
    }
    if (object->type == FileType::Pipe)
    {
        return FailWith(ERROR_INVALID_FUNCTION);
    }
    if (object->type == FileType::Character)
    {
        return FailWith(ERROR_INVALID_HANDLE);
    }
    if (object->type == FileType::Directory)
    {
        return FailWith(ERROR_INVALID_PARAMETER);
    }
    if ((object.Access() & FILE_WRITE_DATA) == 0)
    {
        return FailWith(ERROR_ACCESS_DENIED);
    }
    std::int64_t const position = object->Position();
    struct stat status;
    if (position < 0 || fstat(object->descriptor, &status) != 0)
    {
        return FailErrno();
    }
    SharedFile const * const shared = object->shared;
    if (position < status.st_size && shared != nullptr && shared->mappings.load(std::memory_order_relaxed) != 0)
    {
        return FailWith(ERROR_USER_MAPPED_FILE);
    }
    return ftruncate(object->descriptor, position) == 0 ? TRUE : FailErrno();
}

DWORD WINAPI GetFileSize(HANDLE file, LPDWORD high)
{
    CheckOutputs(high);
    __int64 size = 0;
    if (!SizeOf(file, size))
    {
        return INVALID_FILE_SIZE;
    }
    if (high != nullptr)
    {
        *high = static_cast<DWORD>(size >> 32);
    }
    DWORD const low = static_cast<DWORD>(size);
    if (low == INVALID_FILE_SIZE)
    {
        SetLastError(ERROR_SUCCESS);
    }
    return low;
}

BOOL WINAPI GetFileSizeEx(HANDLE file, LARGE_INTEGER * size)
{
    CheckOutputs(size);
    __int64 bytes = 0;
    if (!SizeOf(file, bytes))
    {
        return FALSE;
    }
    size->QuadPart = bytes;
    return TRUE;
}

BOOL WINAPI FlushFileBuffers(HANDLE file)
{
    auto const object = LookUp<File>(file);
    if (!object)
    {
        return FALSE;
    }
    if (object->type == FileType::Pipe)
    {
        return TRUE;
    }
    if ((object.Access() & (FILE_WRITE_DATA | FILE_APPEND_DATA)) == 0)
    {
        return FailWith(ERROR_ACCESS_DENIED);
    }
    int result = 0;
    do
    {
        result = fsync(object->descriptor);
    } while (result != 0 && errno == EINTR);
    // A device without a store has nothing to flush.
    bool const nothingToDo = result != 0 && (errno == EINVAL || errno == EROFS);
    return result == 0 || nothingToDo ? TRUE : FailErrno();
}
