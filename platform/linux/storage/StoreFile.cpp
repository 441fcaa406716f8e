#include "StoreFile.h"

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <sqlite3.h>

#include <kvcore/platform/include/errors.h>

namespace kv::platform
{

namespace
{

bool IsLackOfRoom(int systemError) noexcept
{
    return systemError == ENOSPC || systemError == EDQUOT || systemError == EFBIG;
}

/// The system's last error with one of the database's files; SQLite notes it with the file.
int LastErrorOf(sqlite3 * database, int whichFile) noexcept
{
    sqlite3_file * file = nullptr;
    int systemError = 0;
    if (sqlite3_file_control(database, "main", whichFile, &file) == SQLITE_OK && file != nullptr &&
        file->pMethods != nullptr)
    {
        file->pMethods->xFileControl(file, SQLITE_FCNTL_LAST_ERRNO, &systemError);
    }
    return systemError;
}

/// What failed in the file system.
LSTATUS StatusOfInputOutput(int code, sqlite3 * database) noexcept
{
    if (code == SQLITE_IOERR_NOMEM)
    {
        return ERROR_NOT_ENOUGH_MEMORY;
    }
    // The index of a log is made at its full size. Nothing but a lack of room keeps it from that.
    bool const isWrite = code == SQLITE_IOERR_WRITE;
    if (code == SQLITE_IOERR_SHMSIZE || IsLackOfRoom(sqlite3_system_errno(database)) ||
        (isWrite && IsLackOfRoom(LastErrorOf(database, SQLITE_FCNTL_JOURNAL_POINTER))) ||
        (isWrite && IsLackOfRoom(LastErrorOf(database, SQLITE_FCNTL_FILE_POINTER))))
    {
        return ERROR_DISK_FULL;
    }
    return (code & 0xFF) == SQLITE_CANTOPEN ? ERROR_CANTOPEN : ERROR_REGISTRY_IO_FAILED;
}

class FileLock
{
public:
    explicit FileLock(std::string const & path) noexcept
        : descriptor(open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NONBLOCK, 0600))
    {
        isHeld = descriptor >= 0 && flock(descriptor, LOCK_EX) == 0;
    }
    FileLock(FileLock const &) = delete;
    FileLock & operator=(FileLock const &) = delete;
    ~FileLock()
    {
        if (descriptor >= 0)
        {
            close(descriptor);
        }
    }
    bool IsHeld() const noexcept
    {
        return isHeld;
    }

private:
    int const descriptor;
    bool isHeld = false;
};

/// Where a path leads, through all links: the logs of a store lie beside its file, and not beside a link to it.
class RealPath
{
public:
    explicit RealPath(char const * path) noexcept
    {
        if (realpath(path, text) == nullptr)
        {
            std::snprintf(text, sizeof text, "%s", path);
        }
    }
    char const * Text() const noexcept
    {
        return text;
    }

private:
    char text[PATH_MAX];
};

constexpr char const * logEndings[] = {"-wal", "-journal"};

bool IsThere(std::string const & path) noexcept
{
    struct stat status;
    return lstat(path.c_str(), &status) == 0;
}

/// The first name that neither a store nor a log of an earlier one has. Empty if there are too many.
std::string FreeName(std::string const & path)
{
    constexpr int most = 10'000;
    for (int number = 1; number < most; ++number)
    {
        std::string name = path + ".damaged-" + std::to_string(number);
        if (!IsThere(name) && !IsThere(name + "-wal") && !IsThere(name + "-journal"))
        {
            return name;
        }
    }
    return {};
}

} // namespace

LSTATUS StatusOfSqlite(int code, sqlite3 * database) noexcept
{
    switch (code & 0xFF)
    {
    case SQLITE_OK:
    case SQLITE_ROW:
    case SQLITE_DONE:
        return ERROR_SUCCESS;
    case SQLITE_BUSY:
    case SQLITE_LOCKED:
    case SQLITE_PROTOCOL:
        return ERROR_BUSY;
    case SQLITE_CORRUPT:
    case SQLITE_NOTADB:
    // No statement here breaks the rules of a healthy store's tables.
    case SQLITE_CONSTRAINT:
    case SQLITE_MISMATCH:
        return ERROR_BADDB;
    case SQLITE_READONLY:
    case SQLITE_PERM:
    case SQLITE_AUTH:
        return ERROR_ACCESS_DENIED;
    case SQLITE_FULL:
        return ERROR_DISK_FULL;
    case SQLITE_NOMEM:
    case SQLITE_TOOBIG:
        return ERROR_NOT_ENOUGH_MEMORY;
    case SQLITE_CANTOPEN:
    case SQLITE_IOERR:
        return StatusOfInputOutput(code, database);
    default:
        return ERROR_REGISTRY_IO_FAILED;
    }
}

LSTATUS StatusOfPreparing(int code, sqlite3 * database) noexcept
{
    return (code & 0xFF) == SQLITE_ERROR ? static_cast<LSTATUS>(ERROR_BADDB) : StatusOfSqlite(code, database);
}

FileIdentity IdentityOf(char const * path) noexcept
{
    struct stat status;
    return stat(path, &status) == 0 ? FileIdentity{status.st_dev, status.st_ino} : FileIdentity{};
}

LSTATUS FindStoreFile(char const * path, bool create, FileIdentity & identity) noexcept
{
    // The log first: it only comes to be behind a file that is not empty.
    char log[PATH_MAX + sizeof "-wal"];
    RealPath const real(path);
    std::snprintf(log, sizeof log, "%s-wal", real.Text());
    struct stat status;
    bool const hasLog = stat(log, &status) == 0 && status.st_size > 0;

    int failure = stat(path, &status) == 0 ? 0 : errno;
    if (failure == ENOENT && create)
    {
        // Only this user reads it. SQLite gives its further files the same rights. A file that is there is not opened
        // here: closing it would give up the locks that SQLite holds on it for this process.
        int const made = open(path, O_RDWR | O_CREAT | O_CLOEXEC | O_NONBLOCK, 0600);
        failure = made < 0 || fstat(made, &status) != 0 ? errno : 0;
        if (made >= 0)
        {
            close(made);
        }
    }
    if (failure != 0)
    {
        bool const isMissing = failure == ENOENT && !create;
        return IsLackOfRoom(failure) ? ERROR_DISK_FULL : isMissing ? ERROR_FILE_NOT_FOUND : ERROR_CANTOPEN;
    }
    identity = {status.st_dev, status.st_ino};
    if (!S_ISREG(status.st_mode))
    {
        return ERROR_CANTOPEN;
    }
    return hasLog && status.st_size == 0 ? ERROR_BADDB : ERROR_SUCCESS;
}

void SetStoreAside(std::string const & path, FileIdentity const & damaged)
{
    // Several processes may find the same damage, and one of them may have begun the next store already.
    FileLock const lock(path + ".lock");
    std::string const real = RealPath(path.c_str()).Text();
    std::string const aside = FreeName(real);
    if (!lock.IsHeld() || aside.empty() || !(IdentityOf(path.c_str()) == damaged))
    {
        return;
    }
    // The logs go first: one that is left behind would be deleted with the next store's beginning.
    for (char const * const ending : logEndings)
    {
        rename((real + ending).c_str(), (aside + ending).c_str());
    }
    rename(real.c_str(), aside.c_str());
    unlink((real + "-shm").c_str());
}

std::string_view SystemRun() noexcept
{
    struct Run
    {
        Run() noexcept
        {
            int const file = open("/proc/sys/kernel/random/boot_id", O_RDONLY | O_CLOEXEC);
            if (file >= 0)
            {
                ssize_t const count = read(file, text, sizeof text);
                length = count > 0 && text[count - 1] == '\n' ? static_cast<std::size_t>(count - 1) : 0;
                close(file);
            }
        }
        char text[64];
        std::size_t length = 0;
    };
    static Run const run;
    return {run.text, run.length};
}

} // namespace kv::platform
