#include <fcntl.h>
#include <mutex>
#include <new>

#include <sys/stat.h>
#include <unistd.h>

#include <kvcore/platform/include/errors.h>
#include <kvcore/platform/include/fileapi.h>
#include <kvcore/platform/include/synchapi.h>
#include <kvcore/platform/linux/errors/ErrnoErrors.h>
#include <kvcore/platform/linux/files/FileObject.h>
#include <kvcore/platform/linux/memory/CallerMemory.h>
#include <kvcore/platform/linux/sync/Thread.h>

using namespace kv::platform;

namespace
{

/// The process, the thread and their like have handles that are no entries of the table: -1 to -6.
bool IsPseudoHandle(HANDLE handle)
{
    LONG_PTR const value = reinterpret_cast<LONG_PTR>(handle);
    return value < 0 && value >= -6;
}

/// Makes the second handle; FALSE with the last error set.
BOOL Duplicate(HANDLE source, HANDLE * target, DWORD access, DWORD options)
{
    if (source == GetCurrentThread())
    {
        if (target != nullptr)
        {
            *target = HandleTable::Create(Thread::Current(), Thread::allAccess);
        }
        return target == nullptr || *target != nullptr;
    }
    auto const object = LookUpObject(source);
    if (!object)
    {
        return FALSE;
    }
    DWORD granted = object.Access();
    if ((options & DUPLICATE_SAME_ACCESS) == 0 && object->Kind() == ObjectKind::File)
    {
        DWORD wanted = access & FILE_ALL_ACCESS;
        wanted |= (access & GENERIC_READ) != 0 ? FILE_GENERIC_READ : 0;
        wanted |= (access & GENERIC_WRITE) != 0 ? FILE_GENERIC_WRITE : 0;
        if ((wanted & ~(granted | READ_CONTROL | SYNCHRONIZE)) != 0)
        {
            return FailWith(ERROR_ACCESS_DENIED);
        }
        granted = wanted;
    }
    if (target == nullptr)
    {
        return TRUE;
    }
    *target = HandleTable::Create(*object, granted);
    return *target != nullptr;
}

/// The handle of a descriptor that the process was started with. The descriptor is duplicated, so that closing the
/// handle does not close it.
HANDLE StandardHandle(int standard)
{
    int const descriptor = fcntl(standard, F_DUPFD_CLOEXEC, 3);
    struct stat status;
    if (descriptor < 0 || fstat(descriptor, &status) != 0)
    {
        return nullptr;
    }
    int const mode = fcntl(descriptor, F_GETFL) & O_ACCMODE;
    DWORD access = mode != O_WRONLY ? FILE_GENERIC_READ : 0u;
    access |= mode != O_RDONLY ? FILE_GENERIC_WRITE : 0u;
    FileType const type = S_ISREG(status.st_mode)              ? FileType::Disk
        : S_ISFIFO(status.st_mode) || S_ISSOCK(status.st_mode) ? FileType::Pipe
                                                               : FileType::Character;
    auto const file = Ref<File>::Adopt(
        new (std::nothrow) File(descriptor, type, access, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, 0));
    if (!file)
    {
        close(descriptor);
        FailWith(ERROR_NOT_ENOUGH_MEMORY);
        return nullptr;
    }
    return HandleTable::Create(*file, access);
}

} // namespace

BOOL WINAPI CloseHandle(HANDLE handle)
{
    // Kept: closing a pseudo handle, INVALID_HANDLE_VALUE among them, is a success that does nothing.
    return IsPseudoHandle(handle) ? TRUE : HandleTable::Close(handle);
}

BOOL WINAPI DuplicateHandle(
    HANDLE sourceProcess, HANDLE source, HANDLE targetProcess, HANDLE * target, DWORD access, BOOL, DWORD options)
{
    CheckOutputs(target);
    if (target != nullptr)
    {
        *target = nullptr;
    }
    if (sourceProcess != GetCurrentProcess() || targetProcess != GetCurrentProcess())
    {
        return FailWith(ERROR_INVALID_HANDLE);
    }
    BOOL const done = Duplicate(source, target, access, options);
    if ((options & DUPLICATE_CLOSE_SOURCE) != 0)
    {
        DWORD const error = GetLastError();
        CloseHandle(source);
        SetLastError(error);
    }
    return done;
}

BOOL WINAPI GetHandleInformation(HANDLE handle, LPDWORD flags)
{
    CheckOutputs(flags);
    if (!LookUpObject(handle))
    {
        return FALSE;
    }
    *flags = 0;
    return TRUE;
}

HANDLE WINAPI GetCurrentProcess()
{
    return reinterpret_cast<HANDLE>(static_cast<LONG_PTR>(-1));
}

HANDLE WINAPI GetStdHandle(DWORD which)
{
    static std::mutex mutex;
    static HANDLE handles[3];
    DWORD const index = STD_INPUT_HANDLE - which;
    if (index > 2)
    {
        FailWith(ERROR_INVALID_HANDLE);
        return INVALID_HANDLE_VALUE;
    }
    std::lock_guard const guard(mutex);
    if (handles[index] == nullptr)
    {
        handles[index] = StandardHandle(static_cast<int>(index));
    }
    return handles[index];
}
