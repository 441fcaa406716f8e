#include <algorithm>
#include <cerrno>
#include <new>

#include <fcntl.h>
#include <unistd.h>

#include <kvcore/platform/include/errors.h>
#include <kvcore/platform/include/fileapi.h>
#include <kvcore/platform/linux/errors/ErrnoErrors.h>
#include <kvcore/platform/linux/files/FileObject.h>
#include <kvcore/platform/linux/files/OpenFiles.h>
#include <kvcore/platform/linux/memory/CallerMemory.h>

// Ranges are locked twice: in the table of the process, which knows all of the rules, and with the kernel's locks of
// open file descriptions, where other processes meet them. The kernel's locks cannot hold two ranges of one file object
// over each other, end at 2^63, and need the right of reading (shared) or writing (exclusive); a lock for which that is
// missing is taken as the other kind.

using namespace kv::platform;

namespace
{

/// The bytes from here on tell who has the file open.
constexpr std::uint64_t endOfLocks = 0x7FFFFFFFFFFFFF00;

/// Makes the kernel's lock of a range; `type` is F_UNLCK or what the lock should be. False if another process is in the
/// way. A file system without locks, and a range that the kernel cannot have, are no failure.
bool LockInKernel(int descriptor, std::uint64_t first, std::uint64_t length, short type, bool wait)
{
    if (first >= endOfLocks || length == 0)
    {
        return true;
    }
    struct flock lock = {};
    lock.l_whence = SEEK_SET;
    lock.l_start = static_cast<off_t>(first);
    lock.l_len = static_cast<off_t>(std::min(length, endOfLocks - first));
    short const kinds[] = {type, static_cast<short>(type == F_WRLCK ? F_RDLCK : F_WRLCK)};
    for (short const kind : kinds)
    {
        int result = 0;
        do
        {
            lock.l_type = kind;
            result = fcntl(descriptor, wait ? F_OFD_SETLKW : F_OFD_SETLK, &lock);
        } while (result != 0 && errno == EINTR);
        if (result == 0 || type == F_UNLCK || errno != EBADF)
        {
            return result == 0 || (errno != EAGAIN && errno != EACCES);
        }
    }
    return true;
}

/// Gives the kernel again what a change of a range took from this file object's other locks: the shared ones first.
void RestoreInKernel(File const & file, std::uint64_t first, std::uint64_t length)
{
    for (bool const exclusive : {false, true})
    {
        for (ByteLock const & lock : file.shared->locks)
        {
            if (lock.owner == &file && lock.exclusive == exclusive && Overlap(lock.first, lock.length, first, length))
            {
                LockInKernel(file.descriptor, lock.first, lock.length, exclusive ? F_WRLCK : F_RDLCK, false);
            }
        }
    }
}

/// Whether another lock is in the way. A shared lock may lie over an exclusive one of the same file object.
bool IsBarred(SharedFile const & shared, ByteLock const & wanted)
{
    return std::any_of(
        shared.locks.begin(), shared.locks.end(),
        [&wanted](ByteLock const & lock)
        {
            bool const goesWith = !wanted.exclusive && (!lock.exclusive || lock.owner == wanted.owner);
            return !goesWith && Overlap(lock.first, lock.length, wanted.first, wanted.length);
        });
}

void CountLocks(SharedFile & shared)
{
    shared.lockCount.store(static_cast<unsigned>(shared.locks.size()), std::memory_order_relaxed);
}

/// Takes one lock out of the table, of two alike the exclusive one. False if there is none.
bool Remove(SharedFile & shared, File const * owner, std::uint64_t first, std::uint64_t length)
{
    auto found = shared.locks.end();
    for (auto lock = shared.locks.begin(); lock != shared.locks.end(); ++lock)
    {
        bool const same = lock->owner == owner && lock->first == first && lock->length == length;
        if (same && (found == shared.locks.end() || lock->exclusive))
        {
            found = lock;
        }
    }
    if (found == shared.locks.end())
    {
        return false;
    }
    shared.locks.erase(found);
    CountLocks(shared);
    return true;
}

DWORD Lock(File & file, ByteLock const & wanted, bool wait)
try
{
    SharedFile & shared = *file.shared;
    std::unique_lock guard(shared.lockMutex);
    while (IsBarred(shared, wanted))
    {
        if (!wait)
        {
            return ERROR_LOCK_VIOLATION;
        }
        shared.lockReleased.wait(guard);
    }
    shared.locks.push_back(wanted);
    CountLocks(shared);
    short const type = wanted.exclusive ? F_WRLCK : F_RDLCK;
    bool locked = LockInKernel(file.descriptor, wanted.first, wanted.length, type, false);
    if (!locked && wait)
    {
        // The entry stays in the table meanwhile; the wait for the other process needs the mutex no longer.
        guard.unlock();
        locked = LockInKernel(file.descriptor, wanted.first, wanted.length, type, true);
        guard.lock();
    }
    if (!locked)
    {
        Remove(shared, &file, wanted.first, wanted.length);
    }
    RestoreInKernel(file, wanted.first, wanted.length);
    return locked ? ERROR_SUCCESS : ERROR_LOCK_VIOLATION;
}
catch (std::bad_alloc const &)
{
    return ERROR_NOT_ENOUGH_MEMORY;
}

DWORD Unlock(File & file, std::uint64_t first, std::uint64_t length)
{
    SharedFile & shared = *file.shared;
    std::lock_guard const guard(shared.lockMutex);
    if (!Remove(shared, &file, first, length))
    {
        return ERROR_NOT_LOCKED;
    }
    LockInKernel(file.descriptor, first, length, F_UNLCK, false);
    RestoreInKernel(file, first, length);
    shared.lockReleased.notify_all();
    return ERROR_SUCCESS;
}

std::uint64_t Whole(DWORD low, DWORD high)
{
    return std::uint64_t{high} << 32 | low;
}

/// The file of a handle that ranges can be locked with, or null with the last error set.
Pinned<File> LookUpLockable(HANDLE handle)
{
    Pinned<File> file = LookUp<File>(handle);
    if (file && file->type != FileType::Disk)
    {
        FailInvalidHandle();
        return {};
    }
    if (file && (file.Access() & (FILE_READ_DATA | FILE_WRITE_DATA)) == 0)
    {
        FailWith(ERROR_ACCESS_DENIED);
        return {};
    }
    if (file && file->shared == nullptr) // a standard handle, which is entered nowhere
    {
        FailWith(ERROR_NOT_SUPPORTED);
        return {};
    }
    return file;
}

BOOL LockRange(HANDLE handle, std::uint64_t first, std::uint64_t length, DWORD flags)
{
    auto const file = LookUpLockable(handle);
    if (!file)
    {
        return FALSE;
    }
    if (length != 0 && first > ~std::uint64_t{0} - (length - 1))
    {
        return FailWith(ERROR_INVALID_PARAMETER);
    }
    ByteLock const wanted = {file.Get(), first, length, (flags & LOCKFILE_EXCLUSIVE_LOCK) != 0};
    DWORD const error = Lock(*file, wanted, (flags & LOCKFILE_FAIL_IMMEDIATELY) == 0);
    return error == ERROR_SUCCESS ? TRUE : FailWith(error);
}

BOOL UnlockRange(HANDLE handle, std::uint64_t first, std::uint64_t length)
{
    auto const file = LookUpLockable(handle);
    if (!file)
    {
        return FALSE;
    }
    DWORD const error = Unlock(*file, first, length);
    return error == ERROR_SUCCESS ? TRUE : FailWith(error);
}

} // namespace

BOOL WINAPI LockFile(HANDLE file, DWORD offsetLow, DWORD offsetHigh, DWORD lengthLow, DWORD lengthHigh)
{
    return LockRange(
        file, Whole(offsetLow, offsetHigh), Whole(lengthLow, lengthHigh),
        LOCKFILE_EXCLUSIVE_LOCK | LOCKFILE_FAIL_IMMEDIATELY);
}

BOOL WINAPI
LockFileEx(HANDLE file, DWORD flags, DWORD reserved, DWORD lengthLow, DWORD lengthHigh, OVERLAPPED * overlapped)
{
    CheckOutputs(overlapped);
    if (reserved != 0 || overlapped == nullptr)
    {
        return FailWith(ERROR_INVALID_PARAMETER);
    }
    BOOL const locked =
        LockRange(file, Whole(overlapped->Offset, overlapped->OffsetHigh), Whole(lengthLow, lengthHigh), flags);
    if (locked)
    {
        SetResult(*overlapped, ERROR_SUCCESS, 0);
    }
    return locked;
}

BOOL WINAPI UnlockFile(HANDLE file, DWORD offsetLow, DWORD offsetHigh, DWORD lengthLow, DWORD lengthHigh)
{
    return UnlockRange(file, Whole(offsetLow, offsetHigh), Whole(lengthLow, lengthHigh));
}

BOOL WINAPI UnlockFileEx(HANDLE file, DWORD reserved, DWORD lengthLow, DWORD lengthHigh, OVERLAPPED * overlapped)
{
    CheckOutputs(overlapped);
    if (reserved != 0 || overlapped == nullptr)
    {
        return FailWith(ERROR_INVALID_PARAMETER);
    }
    return UnlockRange(file, Whole(overlapped->Offset, overlapped->OffsetHigh), Whole(lengthLow, lengthHigh));
}
