#include "OpenFiles.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <new>
#include <unordered_map>

#include <climits>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "FileObject.h"
#include <kvcore/platform/include/errors.h>
#include <kvcore/platform/include/fileapi.h>

namespace kv::platform
{

bool Overlap(std::uint64_t first, std::uint64_t length, std::uint64_t otherFirst, std::uint64_t otherLength) noexcept
{
    // The ends may be 2^64: what is compared is the distance of the beginnings.
    if (first < otherFirst)
    {
        return otherFirst - first < length;
    }
    if (first > otherFirst)
    {
        return first - otherFirst < otherLength;
    }
    return length != 0 && otherLength != 0;
}

namespace
{

enum Right
{
    Reading,
    Writing,
    Deleting,
};

struct FileId
{
    dev_t device;
    ino_t inode;

    bool operator==(FileId const & other) const
    {
        return device == other.device && inode == other.inode;
    }
};

struct HashOfId
{
    std::size_t operator()(FileId const & id) const
    {
        return static_cast<std::size_t>((id.inode * 0x9E3779B97F4A7C15u) ^ id.device);
    }
};

struct OpenFiles
{
    std::mutex mutex;
    std::unordered_map<FileId, std::unique_ptr<SharedFile>, HashOfId> files;
};

/// Never destroyed: files are closed by the destructors of other statics, too.
OpenFiles & TheOpenFiles()
{
    static OpenFiles & table = *new OpenFiles;
    return table;
}

/// What an open uses, and what it denies to others.
struct Claim
{
    bool uses[3];
    bool denies[3];
};

Claim ClaimOf(DWORD access, DWORD share)
{
    Claim claim = {};
    claim.uses[Reading] = (access & (FILE_READ_DATA | FILE_EXECUTE)) != 0;
    claim.uses[Writing] = (access & (FILE_WRITE_DATA | FILE_APPEND_DATA)) != 0;
    claim.uses[Deleting] = (access & DELETE) != 0;
    // Who only looks at attributes is in nobody's way.
    if (claim.uses[Reading] || claim.uses[Writing] || claim.uses[Deleting])
    {
        claim.denies[Reading] = (share & FILE_SHARE_READ) == 0;
        claim.denies[Writing] = (share & FILE_SHARE_WRITE) == 0;
        claim.denies[Deleting] = (share & FILE_SHARE_DELETE) == 0;
    }
    return claim;
}

bool IsEmpty(Claim const & claim)
{
    return !claim.uses[Reading] && !claim.uses[Writing] && !claim.uses[Deleting];
}

// ---- between processes

/// The bytes that stand for what is used and denied, so ordered that the usual opens lock one run of them.
enum Place : off_t
{
    UsesReading = 0,
    DeniesDeleting = 1,
    DeniesWriting = 2,
    DeniesReading = 3,
    UsesWriting = 4,
    UsesDeleting = 5,
};
constexpr off_t firstPlace = 0x7FFFFFFFFFFFFF00;
constexpr off_t places = 6;
constexpr Place usePlace[3] = {UsesReading, UsesWriting, UsesDeleting};
constexpr Place denyPlace[3] = {DeniesReading, DeniesWriting, DeniesDeleting};

struct flock Range(short type, off_t first, off_t count)
{
    struct flock lock = {};
    lock.l_type = type;
    lock.l_whence = SEEK_SET;
    lock.l_start = firstPlace + first;
    lock.l_len = count;
    return lock;
}

/// Whether another open file description holds one of these bytes.
bool IsHeld(int descriptor, off_t first, off_t count)
{
    struct flock lock = Range(F_WRLCK, first, count);
    return fcntl(descriptor, F_OFD_GETLK, &lock) == 0 && lock.l_type != F_UNLCK;
}

/// Locks the bytes of `claim`, then looks for others' that do not go with it. True if they do, or if the file system
/// has no such locks.
bool EnterBetweenProcesses(int descriptor, Claim const & claim)
{
    bool locked[places] = {};
    for (int right = Reading; right <= Deleting; ++right)
    {
        locked[usePlace[right]] = claim.uses[right];
        locked[denyPlace[right]] = claim.denies[right];
    }
    for (off_t first = 0; first < places;)
    {
        off_t end = first;
        while (end < places && locked[end])
        {
            ++end;
        }
        if (end > first)
        {
            struct flock lock = Range(F_RDLCK, first, end - first);
            if (fcntl(descriptor, F_OFD_SETLK, &lock) != 0)
            {
                return true;
            }
        }
        first = end + 1;
    }
    if (!IsHeld(descriptor, 0, places)) // nobody else has it open: the usual case
    {
        return true;
    }
    for (int right = Reading; right <= Deleting; ++right)
    {
        if ((claim.uses[right] && IsHeld(descriptor, denyPlace[right], 1)) ||
            (claim.denies[right] && IsHeld(descriptor, usePlace[right], 1)))
        {
            return false;
        }
    }
    return true;
}

// ---- within the process

bool GoesWith(SharedFile const & shared, Claim const & claim)
{
    for (int right = Reading; right <= Deleting; ++right)
    {
        if ((claim.uses[right] && shared.denies[right] != 0) || (claim.denies[right] && shared.uses[right] != 0))
        {
            return false;
        }
    }
    return true;
}

void Count(SharedFile & shared, Claim const & claim, unsigned by)
{
    shared.opens += by;
    for (int right = Reading; right <= Deleting; ++right)
    {
        shared.uses[right] += claim.uses[right] ? by : 0;
        shared.denies[right] += claim.denies[right] ? by : 0;
    }
}

/// Removes the name under which the descriptor's file is known now, if it still leads to it.
void DeleteByDescriptor(int descriptor)
{
    char link[40];
    char path[PATH_MAX];
    std::snprintf(link, sizeof(link), "/proc/self/fd/%d", descriptor);
    ssize_t const length = readlink(link, path, sizeof(path) - 1);
    struct stat open;
    struct stat named;
    if (length <= 0 || fstat(descriptor, &open) != 0)
    {
        return;
    }
    path[length] = '\0';
    if (lstat(path, &named) == 0 && named.st_dev == open.st_dev && named.st_ino == open.st_ino)
    {
        S_ISDIR(named.st_mode) ? rmdir(path) : unlink(path);
    }
}

} // namespace

std::mutex & OpenFilesLock() noexcept
{
    return TheOpenFiles().mutex;
}

DWORD EnterOpenFile(File & file, struct stat const & status) noexcept
try
{
    Claim const claim = ClaimOf(file.access, file.share);
    OpenFiles & table = TheOpenFiles();
    FileId const id = {status.st_dev, status.st_ino};
    SharedFile * shared = nullptr;
    {
        std::lock_guard const guard(table.mutex);
        std::unique_ptr<SharedFile> & place = table.files[id];
        if (place == nullptr)
        {
            place = std::make_unique<SharedFile>();
            place->device = id.device;
            place->inode = id.inode;
        }
        shared = place.get();
        if (shared->deletePending)
        {
            return ERROR_ACCESS_DENIED;
        }
        if (!GoesWith(*shared, claim))
        {
            return ERROR_SHARING_VIOLATION;
        }
        Count(*shared, claim, 1);
        ++shared->references;
    }
    file.shared = shared;
    file.entered = true;
    if (!IsEmpty(claim) && file.type == FileType::Disk && !EnterBetweenProcesses(file.descriptor, claim))
    {
        return ERROR_SHARING_VIOLATION;
    }
    return ERROR_SUCCESS;
}
catch (std::bad_alloc const &)
{
    OpenFiles & table = TheOpenFiles();
    std::lock_guard const guard(table.mutex);
    auto const place = table.files.find(FileId{status.st_dev, status.st_ino});
    if (place != table.files.end() && place->second == nullptr)
    {
        table.files.erase(place);
    }
    return ERROR_NOT_ENOUGH_MEMORY;
}

void LeaveOpenFile(File & file) noexcept
{
    SharedFile & shared = *file.shared;
    if (shared.lockCount.load(std::memory_order_relaxed) != 0)
    {
        std::lock_guard const guard(shared.lockMutex);
        std::erase_if(shared.locks, [&file](ByteLock const & lock) { return lock.owner == &file; });
        shared.lockCount.store(static_cast<unsigned>(shared.locks.size()), std::memory_order_relaxed);
        shared.lockReleased.notify_all();
    }
    OpenFiles & table = TheOpenFiles();
    std::lock_guard const guard(table.mutex);
    file.entered = false;
    Count(shared, ClaimOf(file.access, file.share), static_cast<unsigned>(-1));
    if ((file.flags & FILE_FLAG_DELETE_ON_CLOSE) != 0)
    {
        shared.deletePending = true;
    }
    if (shared.deletePending && shared.opens == 0)
    {
        DeleteByDescriptor(file.descriptor);
        shared.deletePending = false;
    }
}

void HoldShared(SharedFile & shared) noexcept
{
    std::lock_guard const guard(TheOpenFiles().mutex);
    ++shared.references;
}

void DropShared(SharedFile & shared) noexcept
{
    OpenFiles & table = TheOpenFiles();
    std::lock_guard const guard(table.mutex);
    if (--shared.references == 0)
    {
        table.files.erase(FileId{shared.device, shared.inode});
    }
}

DWORD CheckLocks(File const & file, std::uint64_t first, std::uint64_t count, bool writing) noexcept
{
    SharedFile & shared = *file.shared;
    std::lock_guard const guard(shared.lockMutex);
    for (ByteLock const & lock : shared.locks)
    {
        // A shared lock bars its owner, too, from writing.
        bool const bars = lock.owner == &file ? writing && !lock.exclusive : writing || lock.exclusive;
        if (bars && count != 0 && lock.length != 0 && Overlap(lock.first, lock.length, first, count))
        {
            return ERROR_LOCK_VIOLATION;
        }
    }
    return ERROR_SUCCESS;
}

void DropLocksBetweenProcesses(int descriptor) noexcept
{
    struct flock lock = {};
    lock.l_type = F_UNLCK;
    lock.l_whence = SEEK_SET;
    fcntl(descriptor, F_OFD_SETLK, &lock);
}

namespace
{

/// Whether `uses` holds for this process's entry of a file, or somebody else holds one of `count` places from `first`
/// on.
template <class Uses>
bool IsUsed(char const * nativePath, off_t first, off_t count, Uses uses)
{
    struct stat status;
    if (lstat(nativePath, &status) != 0 || S_ISLNK(status.st_mode))
    {
        return false; // what is wrong with it, the call itself will find out
    }
    OpenFiles & table = TheOpenFiles();
    {
        std::lock_guard const guard(table.mutex);
        auto const found = table.files.find(FileId{status.st_dev, status.st_ino});
        if (found != table.files.end() && uses(*found->second))
        {
            return true;
        }
    }
    if (!S_ISREG(status.st_mode))
    {
        return false;
    }
    int const descriptor = open(nativePath, O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK);
    if (descriptor < 0)
    {
        return false;
    }
    bool const held = IsHeld(descriptor, first, count);
    close(descriptor);
    return held;
}

} // namespace

DWORD CheckDeletion(char const * nativePath) noexcept
{
    bool const denied =
        IsUsed(nativePath, DeniesDeleting, 1, [](SharedFile const & shared) { return shared.denies[Deleting] != 0; });
    return denied ? ERROR_SHARING_VIOLATION : ERROR_SUCCESS;
}

bool IsOpenAnywhere(char const * nativePath) noexcept
{
    return IsUsed(
        nativePath, 0, places, [](SharedFile const & shared) { return shared.opens != 0 || shared.mappings != 0; });
}

} // namespace kv::platform
