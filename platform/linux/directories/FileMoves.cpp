#include "FileMoves.h"

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include <fcntl.h>
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

bool MakeNameBeside(char const * path, char (&name)[PATH_MAX]) noexcept
{
    static std::atomic<unsigned> counter{0};
    char const * const slash = std::strrchr(path, '/');
    int const length = std::snprintf(
        name, sizeof name, "%.*s/.kv%x-%x.tmp", static_cast<int>(slash - path), path, static_cast<unsigned>(getpid()),
        counter.fetch_add(1, std::memory_order_relaxed));
    return length > 0 && static_cast<std::size_t>(length) < sizeof name ? true : FailWith(ERROR_FILENAME_EXCED_RANGE);
}

} // namespace kv::platform
