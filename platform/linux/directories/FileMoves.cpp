#include "FileMoves.h"

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <utility>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <kvcore/platform/include/errors.h>
#include <kvcore/platform/linux/errors/ErrnoErrors.h>

namespace kv::platform
{

namespace
{

int WriteAll(int to, char const * bytes, std::size_t count)
{
    while (count > 0)
    {
        ssize_t const written = write(to, bytes, count);
        if (written < 0 && errno != EINTR)
        {
            return errno;
        }
        if (written > 0)
        {
            bytes += written;
            count -= static_cast<std::size_t>(written);
        }
    }
    return 0;
}

int CopyThroughMemory(int from, int to)
{
    char buffer[65536];
    for (;;)
    {
        ssize_t const size = read(from, buffer, sizeof buffer);
        if (size == 0)
        {
            return 0;
        }
        if (size < 0)
        {
            if (errno == EINTR)
            {
                continue;
            }
            return errno;
        }
        if (int const error = WriteAll(to, buffer, static_cast<std::size_t>(size)); error != 0)
        {
            return error;
        }
    }
}

} // namespace

int CopyContent(int from, int to) noexcept
{
    constexpr std::size_t piece = std::size_t{1} << 30;
    for (;;)
    {
        ssize_t const size = copy_file_range(from, nullptr, to, nullptr, piece, 0);
        if (size > 0 || (size < 0 && errno == EINTR))
        {
            continue;
        }
        if (size < 0 && (errno == ENOSPC || errno == EDQUOT || errno == EIO || errno == EFBIG))
        {
            return errno;
        }
        // Not every pair of file systems can do it, and files that are made up as they are read seem empty to it. What
        // is copied so far stays copied: both positions have moved.
        return CopyThroughMemory(from, to);
    }
}

DWORD CheckRemovable(NativePath const & path) noexcept
{
    if (path.IsLink())
    {
        return path.IsDirectory() ? ERROR_ACCESS_DENIED : ERROR_SUCCESS;
    }
    mode_t const mode = path.Status().stx_mode;
    bool const writable = (mode & (S_IWUSR | S_IWGRP | S_IWOTH)) != 0;
    // NUL is a name of a device that nobody means to remove.
    bool const isFile = !S_ISDIR(mode) && !S_ISCHR(mode) && !S_ISBLK(mode);
    return isFile && writable ? ERROR_SUCCESS : ERROR_ACCESS_DENIED;
}

bool IsCurrentDirectory(struct statx const & status) noexcept
{
    struct stat current;
    return stat(".", &current) == 0 && current.st_ino == status.stx_ino &&
        current.st_dev == makedev(status.stx_dev_major, status.stx_dev_minor);
}

int SyncDirectoryOf(char const * path) noexcept
{
    char directory[PATH_MAX];
    char const * const slash = std::strrchr(path, '/');
    auto const count = static_cast<std::size_t>(slash - path);
    std::memcpy(directory, path, count == 0 ? 1 : count);
    directory[count == 0 ? 1 : count] = '\0';
    int const descriptor = open(directory, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (descriptor < 0)
    {
        // A directory that may be written but not read cannot be synchronised by anybody.
        return errno == EACCES ? 0 : errno;
    }
    int const error = fsync(descriptor) == 0 || errno == EINVAL ? 0 : errno;
    close(descriptor);
    return error;
}

namespace
{

/// How often a name is tried anew before the folder counts as one in which nothing can be made.
constexpr unsigned mostTries = 32;

/// The same for the same file and number, so that a process which comes later finds what a killed one has left. Behind
/// the first few numbers nobody can tell them, or who may write to the folder could take them all.
std::uint64_t NumberOf(char const * fileName, unsigned attempt)
{
    constexpr unsigned known = 8;
    std::uint64_t number = 0xCBF29CE484222325u;
    if (attempt >= known && getrandom(&number, sizeof number, 0) == sizeof number)
    {
        return number;
    }
    for (; *fileName != '\0'; fileName++)
    {
        number = (number ^ static_cast<unsigned char>(*fileName)) * 0x100000001B3u;
    }
    return (number ^ attempt) * 0x100000001B3u;
}

bool MakeNameBeside(char const * path, unsigned attempt, char (&name)[PATH_MAX])
{
    char const * const slash = std::strrchr(path, '/');
    int const length = std::snprintf(
        name, sizeof name, "%.*s/.kv-%016llx.tmp", static_cast<int>(slash - path), path,
        static_cast<unsigned long long>(NumberOf(slash + 1, attempt)));
    return length > 0 && static_cast<std::size_t>(length) < sizeof name;
}

/// Whether `name` still leads to the open file.
bool IsNameOf(char const * name, int descriptor)
{
    struct stat open;
    struct stat named;
    return fstat(descriptor, &open) == 0 && lstat(name, &named) == 0 && open.st_dev == named.st_dev &&
        open.st_ino == named.st_ino;
}

/// Removes what a killed process has left under a name. Whoever is still at work there holds the file's lock.
void RemoveLeftover(char const * name)
{
    struct stat status;
    if (lstat(name, &status) == 0 && S_ISLNK(status.st_mode))
    {
        unlink(name);
        return;
    }
    int const left = open(name, O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK);
    if (left < 0)
    {
        return;
    }
    if (flock(left, LOCK_EX | LOCK_NB) == 0 && IsNameOf(name, left))
    {
        unlink(name);
    }
    close(left);
}

/// Calls `make(name)` with names beside `path` until it gives 0 or an errno value other than EEXIST. What is left under
/// a name from before is removed.
template <class Make>
int MakeBeside(char const * path, char (&name)[PATH_MAX], Make make)
{
    int error = EEXIST;
    for (unsigned tried = 0; tried < mostTries && error == EEXIST; tried++)
    {
        if (!MakeNameBeside(path, tried / 2, name))
        {
            return ENAMETOOLONG;
        }
        error = make(name);
        if (error == EEXIST && tried % 2 == 0)
        {
            RemoveLeftover(name);
        }
    }
    return error;
}

} // namespace

int CreateBeside(char const * path, char (&name)[PATH_MAX], int & descriptor) noexcept
{
    return MakeBeside(
        path, name,
        [&descriptor](char const * aside)
        {
            descriptor = open(aside, O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
            if (descriptor < 0)
            {
                return errno;
            }
            // Who looked at it in between may have taken it for left over. Where there are no locks, nobody does.
            bool const lost = flock(descriptor, LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK;
            if (!lost && IsNameOf(aside, descriptor))
            {
                return 0;
            }
            close(std::exchange(descriptor, -1));
            return EEXIST;
        });
}

int LinkBeside(char const * file, char const * path, char (&name)[PATH_MAX]) noexcept
{
    return MakeBeside(path, name, [file](char const * aside) { return link(file, aside) == 0 ? 0 : errno; });
}

int SymlinkBeside(char const * target, char const * path, char (&name)[PATH_MAX]) noexcept
{
    return MakeBeside(path, name, [target](char const * aside) { return symlink(target, aside) == 0 ? 0 : errno; });
}

} // namespace kv::platform
