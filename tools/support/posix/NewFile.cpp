#include <kvcore/tools/support/NewFile.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdlib>
#include <string>
#include <vector>

#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <kvcore/platform/PrivateFiles.h>
#include <kvcore/tools/support/Paths.h>
#include <kvcore/tools/support/StdioStreams.h>

namespace kv::tools
{

namespace fs = std::filesystem;

namespace
{

constexpr mode_t everybody = 0666; // less the user's mask
constexpr mode_t ownerAlone = 0600;

/// The path by which the kernel knows an open file that has no name.
std::string PathOfDescriptor(int descriptor)
{
    return "/proc/self/fd/" + std::to_string(descriptor);
}

/// A file without a name, or -1 where the file system or the system has none.
int OpenUnnamed(fs::path const & folder)
{
    // It can be given any permissions: nobody else can reach it.
    int const descriptor = ::open(folder.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, everybody);
    if (descriptor >= 0 && ::access(PathOfDescriptor(descriptor).c_str(), F_OK) != 0)
    {
        ::close(descriptor); // it could not be given a name
        return -1;
    }
    return descriptor;
}

/// Whoever writes a file holds this lock, so that a leftover can be told from a file that is still written.
bool Lock(int descriptor, int operation)
{
    struct stat status = {};
    return ::flock(descriptor, operation) == 0 && ::fstat(descriptor, &status) == 0 && status.st_nlink > 0;
}

/// The attributes of a file beside its bytes and its mode: those that users set, and access control lists. Not every
/// file system has them. What gives the old bytes privileges is not for the new ones.
void CopyAttributes(char const * from, int to)
{
    std::vector<char> names(static_cast<std::size_t>(std::max<ssize_t>(::listxattr(from, nullptr, 0), 0)));
    ssize_t const length = names.empty() ? 0 : ::listxattr(from, names.data(), names.size());
    for (ssize_t at = 0; at < length;)
    {
        std::string const name(names.data() + at);
        at += static_cast<ssize_t>(name.size()) + 1;
        if (!name.starts_with("user.") && name != "system.posix_acl_access")
        {
            continue;
        }
        std::vector<char> value(64 * 1024);
        ssize_t const size = ::getxattr(from, name.c_str(), value.data(), value.size());
        if (size >= 0 && ::fsetxattr(to, name.c_str(), value.data(), static_cast<std::size_t>(size), 0) != 0)
        {
            // The file is as good without it.
        }
    }
}

/// Makes the new file belong to whom the old one belongs to, as far as the user may. Nobody may read of the new file
/// what he may not read of the old one. False if there is no old one.
bool TakePermissions(fs::path const & from, int to)
{
    struct stat old = {};
    if (::stat(from.c_str(), &old) != 0)
    {
        return false;
    }
    mode_t mode = old.st_mode & 0777; // to run as the owner is a right of the old bytes, as for every write
    if (::fchown(to, old.st_uid, old.st_gid) != 0 && ::fchown(to, static_cast<uid_t>(-1), old.st_gid) != 0)
    {
        mode &= ~static_cast<mode_t>(070) | ((mode & 07) << 3); // another group is everybody else
    }
    CopyAttributes(from.c_str(), to);
    if (::fchmod(to, mode) != 0)
    {
        throw IoException(errno);
    }
    return true;
}

/// A change of names outlives a power failure once the folder is on the disk. Not every file system can be asked.
void SynchroniseFolder(fs::path const & folder)
{
    int const descriptor = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (descriptor >= 0)
    {
        (void)::fsync(descriptor);
        ::close(descriptor);
    }
}

} // namespace

NewFile::NewFile(fs::path const & path)
    : target(path), folder(target.has_parent_path() ? target.parent_path() : "."), descriptor(OpenUnnamed(folder))
{
    while (descriptor < 0)
    {
        temporary = folder / NewName();
        descriptor = ::open(temporary.c_str(), O_CREAT | O_EXCL | O_RDWR | O_CLOEXEC, ownerAlone);
        if (descriptor < 0 && errno != EEXIST)
        {
            throw IoException(errno);
        }
        // Another process may have taken it for a leftover before it was locked.
        if (descriptor >= 0 && !Lock(descriptor, LOCK_EX))
        {
            ::close(descriptor);
            descriptor = -1;
        }
    }
    if (temporary.empty() && ::flock(descriptor, LOCK_EX) != 0)
    {
        // It has a name for an instant only.
    }
}

NewFile::~NewFile()
{
    if (!temporary.empty())
    {
        ::unlink(temporary.c_str());
    }
    ::close(descriptor);
}

void NewFile::Publish()
{
    if (!TakePermissions(target, descriptor) && !temporary.empty())
    {
        kv::platform::GiveUsualRights(LibraryPath(temporary));
    }
    if (::fsync(descriptor) != 0 && errno != EINVAL && errno != ENOSYS)
    {
        throw IoException(errno);
    }
    if (temporary.empty())
    {
        std::string const unnamed = PathOfDescriptor(descriptor);
        if (::linkat(AT_FDCWD, unnamed.c_str(), AT_FDCWD, target.c_str(), AT_SYMLINK_FOLLOW) == 0)
        {
            SynchroniseFolder(folder);
            return;
        }
        // A link cannot replace a file; a name of its own can.
        while (errno == EEXIST && temporary.empty())
        {
            fs::path const name = folder / NewName();
            if (::linkat(AT_FDCWD, unnamed.c_str(), AT_FDCWD, name.c_str(), AT_SYMLINK_FOLLOW) == 0)
            {
                temporary = name;
            }
        }
        if (temporary.empty())
        {
            throw IoException(errno);
        }
    }
    if (::rename(temporary.c_str(), target.c_str()) != 0)
    {
        throw IoException(errno);
    }
    temporary.clear();
    SynchroniseFolder(folder);
}

void NewFile::RemoveLeftovers(fs::path const & folder) noexcept
{
    DIR * const directory = ::opendir(folder.empty() ? "." : folder.c_str());
    if (directory == nullptr)
    {
        return;
    }
    int const place = ::dirfd(directory);
    while (dirent const * const entry = ::readdir(directory))
    {
        if (!IsOwnName(entry->d_name))
        {
            continue;
        }
        int const file = ::openat(place, entry->d_name, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
        struct stat status = {};
        if (file >= 0 && ::fstat(file, &status) == 0 && S_ISREG(status.st_mode) && status.st_uid == ::geteuid() &&
            Lock(file, LOCK_EX | LOCK_NB))
        {
            ::unlinkat(place, entry->d_name, 0);
        }
        if (file >= 0)
        {
            ::close(file);
        }
    }
    ::closedir(directory);
}

namespace
{

/// The number that the name of an open file of this process has in /proc, or -1. /dev/stdout and /dev/fd lead there.
int NumberOfOwnDescriptor(fs::path const & path)
{
    std::string const name = path.filename().string();
    int number = -1;
    auto const [end, error] = std::from_chars(name.data(), name.data() + name.size(), number);
    if (error != std::errc() || end != name.data() + name.size() || number < 0)
    {
        return -1;
    }
    char * const folder = ::realpath(path.parent_path().c_str(), nullptr);
    std::string const place = folder == nullptr ? std::string() : folder;
    std::free(folder);
    return place == "/proc/" + std::to_string(::getpid()) + "/fd" ? number : -1;
}

int Opened(int descriptor)
{
    if (descriptor < 0)
    {
        throw IoException(errno);
    }
    return descriptor;
}

} // namespace

OutputTarget OpenTarget(fs::path const & path)
{
    constexpr int mostLinks = 40; // as many as the kernel follows
    fs::path followed = path;
    for (int i = 0;; ++i)
    {
        if (int const own = NumberOfOwnDescriptor(followed); own >= 0)
        {
            // Not opened anew: what is there already stays, and the place in it is shared.
            return {followed, Opened(::fcntl(own, F_DUPFD_CLOEXEC, 0))};
        }
        std::error_code error;
        fs::path const next = fs::read_symlink(followed, error);
        if (error) // it is not a link, or not there
        {
            break;
        }
        if (i == mostLinks)
        {
            throw IoException(ELOOP);
        }
        followed = next.is_absolute() ? next : followed.parent_path() / next;
    }
    struct stat status = {};
    if (::stat(followed.c_str(), &status) != 0)
    {
        return errno == ENOENT ? OutputTarget{followed, -1} : throw IoException(errno);
    }
    if (S_ISDIR(status.st_mode))
    {
        throw IoException(EISDIR);
    }
    // The superuser may write what is read-only, but does not mean to.
    if (S_ISREG(status.st_mode) && (status.st_mode & 0222) == 0)
    {
        throw IoException(EACCES);
    }
    int const descriptor = Opened(::open(followed.c_str(), O_WRONLY | O_NOCTTY | O_CLOEXEC));
    if (!S_ISREG(status.st_mode))
    {
        return {followed, descriptor};
    }
    ::close(descriptor);
    return {followed, -1};
}

} // namespace kv::tools
