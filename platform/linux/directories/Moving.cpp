#include <cerrno>
#include <cstdio>
#include <cstring>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <kvcore/platform/include/directories.h>
#include <kvcore/platform/include/errors.h>
#include <kvcore/platform/linux/errors/ErrnoErrors.h>
#include <kvcore/platform/linux/files/OpenFiles.h>
#include <kvcore/platform/linux/memory/CallerMemory.h>
#include <kvcore/platform/linux/paths/NativePath.h>

#include "FileMoves.h"

using namespace kv::platform;

namespace
{

/// Moves to a name that nobody has, where the file system cannot do that in one step: the name is taken by what only
/// its first taker can make, and then replaced. 0 or an errno value.
int MoveByTakingTheName(char const * from, char const * to, bool isDirectory)
{
    if (isDirectory)
    {
        if (mkdir(to, 0700) != 0)
        {
            return errno;
        }
        if (rename(from, to) == 0)
        {
            return 0;
        }
        int const error = errno;
        rmdir(to);
        return error;
    }
    if (link(from, to) == 0)
    {
        return unlink(from) == 0 ? 0 : errno;
    }
    if (errno == EEXIST || errno == EXDEV || errno == ENOENT)
    {
        return errno;
    }
    // No hard links either.
    int const placeholder = open(to, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    if (placeholder < 0)
    {
        return errno;
    }
    close(placeholder);
    if (rename(from, to) == 0)
    {
        return 0;
    }
    int const error = errno;
    unlink(to);
    return error;
}

/// 0 or an errno value; EEXIST if the name is taken and must not be replaced.
int Rename(char const * from, char const * to, bool replace, bool isDirectory)
{
    if (replace)
    {
        return rename(from, to) == 0 ? 0 : errno;
    }
    if (renameat2(AT_FDCWD, from, AT_FDCWD, to, RENAME_NOREPLACE) == 0)
    {
        return 0;
    }
    return errno == EINVAL || errno == ENOSYS || errno == ENOTSUP ? MoveByTakingTheName(from, to, isDirectory) : errno;
}

/// Makes an open file a copy of another, with its rights and times, and writes it to the disk. 0 or an errno value.
int CopyFileAside(int source, int copy)
{
    int const error = CopyContent(source, copy);
    struct stat kept;
    if (error != 0 || fstat(source, &kept) != 0)
    {
        return error != 0 ? error : errno;
    }
    timespec const times[] = {kept.st_atim, kept.st_mtim};
    // Whose file it is only the superuser can keep; set-user-ID must not outlive a change of that.
    bool const sameOwner = fchown(copy, kept.st_uid, kept.st_gid) == 0;
    fchmod(copy, kept.st_mode & (sameOwner ? 07777u : 0777u));
    futimens(copy, times);
    return fsync(copy) == 0 ? 0 : errno;
}

/// Moves a link by making it anew.
int MoveLinkByCopying(char const * from, char const * to, bool replace)
{
    char target[PATH_MAX];
    ssize_t const length = readlink(from, target, sizeof target - 1);
    if (length < 0)
    {
        return errno;
    }
    target[length] = '\0';
    char aside[PATH_MAX];
    int error = SymlinkBeside(target, to, aside);
    if (error != 0)
    {
        return error;
    }
    error = Rename(aside, to, replace, false);
    error != 0 ? void(unlink(aside)) : void();
    return error;
}

int MoveFileByCopying(char const * from, char const * to, bool replace)
{
    int const source = open(from, O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (source < 0)
    {
        return errno;
    }
    char aside[PATH_MAX];
    int copy = -1;
    int error = CreateBeside(to, aside, copy);
    if (error == 0)
    {
        error = CopyFileAside(source, copy);
        error = error == 0 ? Rename(aside, to, replace, false) : error;
        error != 0 ? void(unlink(aside)) : void();
        close(copy);
    }
    close(source);
    return error;
}

/// A move to another file system: the copy comes to its final name whole, and then the source goes.
int MoveByCopying(NativePath const & from, char const * to, bool replace)
{
    mode_t const mode = from.Status().stx_mode;
    if (!S_ISLNK(mode) && !S_ISREG(mode))
    {
        return EXDEV; // a pipe or a socket has no content to copy
    }
    int const error =
        S_ISLNK(mode) ? MoveLinkByCopying(from.CStr(), to, replace) : MoveFileByCopying(from.CStr(), to, replace);
    return error != 0 || unlink(from.CStr()) == 0 ? error : errno;
}

/// The native path of the new name with its letters as they were given, for a name that changes only in case.
bool SpellNewName(WCHAR const * name, NativePath const & resolved, char (&target)[PATH_MAX])
{
    NativePath spelled;
    if (!spelled.Spell(name))
    {
        return false;
    }
    int const length = std::snprintf(
        target, sizeof target, "%.*s%s", static_cast<int>(resolved.NameStart()), resolved.CStr(),
        spelled.CStr() + spelled.NameStart());
    return length > 0 && static_cast<std::size_t>(length) < sizeof target ? true : FailWith(ERROR_FILENAME_EXCED_RANGE);
}

/// Whether what is there may be moved away: ERROR_SUCCESS, or why not.
DWORD CheckSource(NativePath const & from)
{
    mode_t const mode = from.Status().stx_mode;
    if (!from.IsDirectory() && from.EndsInSeparator())
    {
        return ERROR_INVALID_NAME;
    }
    if (from.IsDriveRoot() || S_ISCHR(mode) || S_ISBLK(mode))
    {
        return ERROR_ACCESS_DENIED;
    }
    return CheckDeletion(from.CStr());
}

/// Whether the new name may be taken: ERROR_SUCCESS, or why not.
DWORD CheckTarget(NativePath const & from, NativePath const & to, bool sameName, bool replace)
{
    if (to.EndsInSeparator() && !to.IsDirectory() && (to.Exists() || !from.IsDirectory()))
    {
        return ERROR_DIRECTORY;
    }
    if (!to.Exists() || sameName)
    {
        return ERROR_SUCCESS;
    }
    if (!replace)
    {
        return ERROR_ALREADY_EXISTS;
    }
    bool const free = !from.IsDirectory() && CheckRemovable(to) == ERROR_SUCCESS && !IsOpenAnywhere(to.CStr());
    return free ? ERROR_SUCCESS : ERROR_ACCESS_DENIED;
}

BOOL FailMove(int error, bool copyAllowed)
{
    switch (error)
    {
    case EEXIST:
    case ENOTEMPTY:
        return FailWith(ERROR_ALREADY_EXISTS);
    case EXDEV: // only a directory still comes here when copying is allowed
        return FailWith(copyAllowed ? ERROR_ACCESS_DENIED : ERROR_NOT_SAME_DEVICE);
    default:
        return FailErrno(error);
    }
}

} // namespace

BOOL WINAPI MoveFileExW(LPCWSTR existingName, LPCWSTR newName, DWORD flags)
{
    CheckTexts(existingName, newName);
    constexpr DWORD known = MOVEFILE_REPLACE_EXISTING | MOVEFILE_COPY_ALLOWED | MOVEFILE_WRITE_THROUGH;
    if (newName == nullptr || (flags & ~known) != 0)
    {
        return FailWith(ERROR_INVALID_PARAMETER);
    }
    NativePath from;
    NativePath to;
    if (!from.Translate(existingName, Look::Existing))
    {
        return FALSE;
    }
    if (DWORD const refused = CheckSource(from); refused != ERROR_SUCCESS)
    {
        return FailWith(refused);
    }
    if (!to.Translate(newName, Look::Creating))
    {
        return FALSE;
    }
    bool const replace = (flags & MOVEFILE_REPLACE_EXISTING) != 0;
    bool const copyAllowed = (flags & MOVEFILE_COPY_ALLOWED) != 0;
    bool const sameName = to.Exists() && std::strcmp(from.CStr(), to.CStr()) == 0;
    if (DWORD const refused = CheckTarget(from, to, sameName, replace); refused != ERROR_SUCCESS)
    {
        return FailWith(refused);
    }
    char target[PATH_MAX];
    std::strcpy(target, to.CStr());
    if (sameName && !SpellNewName(newName, to, target))
    {
        return FALSE;
    }
    bool const isDirectory = from.IsDirectory() && !from.IsLink();
    if (isDirectory && IsCurrentDirectory(from.Status()))
    {
        return FailWith(ERROR_SHARING_VIOLATION);
    }
    int error =
        sameName && std::strcmp(from.CStr(), target) == 0 ? 0 : Rename(from.CStr(), target, replace, isDirectory);
    if (error == EXDEV && copyAllowed && !isDirectory)
    {
        error = MoveByCopying(from, target, replace);
    }
    if (error == 0 && (flags & MOVEFILE_WRITE_THROUGH) != 0)
    {
        error = SyncDirectoryOf(target);
        error = error == 0 ? SyncDirectoryOf(from.CStr()) : error;
    }
    return error == 0 ? TRUE : FailMove(error, copyAllowed);
}

BOOL WINAPI MoveFileW(LPCWSTR existingName, LPCWSTR newName)
{
    return MoveFileExW(existingName, newName, MOVEFILE_COPY_ALLOWED);
}
