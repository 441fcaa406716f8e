#include <cerrno>
#include <cstdlib>
#include <cstring>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/xattr.h>
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

/// Where a link leads in the end, so that the link stays and what it names is replaced.
bool FollowToFile(NativePath const & path, char (&target)[PATH_MAX])
{
    return realpath(path.CStr(), target) != nullptr ? true : FailErrno();
}

void CopyAccessList(int from, int to)
{
    constexpr char name[] = "system.posix_acl_access";
    char list[4096];
    ssize_t const size = fgetxattr(from, name, list, sizeof list);
    if (size > 0)
    {
        fsetxattr(to, name, list, static_cast<std::size_t>(size), 0);
    }
}

/// The attribute is the replacement's own, as its content is.
bool IsReadOnly(int descriptor)
{
    struct stat status;
    return fstat(descriptor, &status) == 0 && (status.st_mode & (S_IWUSR | S_IWGRP | S_IWOTH)) == 0;
}

/// Gives the replacement the owner and the rights of the file whose place it takes, and writes it to the disk. 0 or an
/// errno value.
int PrepareReplacement(char const * replaced, char const * replacement)
{
    int const old = open(replaced, O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    int const fresh = open(replacement, O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    struct stat status;
    int error = fresh < 0 || (old >= 0 ? fstat(old, &status) : stat(replaced, &status)) != 0 ? errno : 0;
    if (error == 0)
    {
        // Another's file cannot be made his again except by the superuser; its rights are kept then without those that
        // would now speak for this user.
        bool const owned = fchown(fresh, status.st_uid, status.st_gid) == 0 ||
            fchown(fresh, static_cast<uid_t>(-1), status.st_gid) == 0;
        mode_t const mode = status.st_mode & (owned ? 0777u : 0707u);
        error = fchmod(fresh, IsReadOnly(fresh) ? mode & 0555u : mode) == 0 ? 0 : errno;
        if (old >= 0)
        {
            CopyAccessList(old, fresh);
        }
    }
    if (error == 0 && fsync(fresh) != 0)
    {
        error = errno;
    }
    for (int const descriptor : {old, fresh})
    {
        if (descriptor >= 0)
        {
            close(descriptor);
        }
    }
    return error;
}

/// Makes the old file known under the backup's name as well, in the place of an older backup. 0 or an errno value.
int KeepBackup(char const * replaced, char const * backup)
{
    char aside[PATH_MAX];
    int error = LinkBeside(replaced, backup, aside);
    if (error == 0)
    {
        error = rename(aside, backup) == 0 ? 0 : errno;
        unlink(aside); // a rename between two names of one file does nothing
        return error;
    }
    // Without hard links the old name is free for a moment.
    bool const unable = error == EPERM || error == ENOTSUP || error == EMLINK;
    return unable && rename(replaced, backup) == 0 ? 0 : error;
}

/// What speaks against replacing the one file, as far as it is looked at before the other.
DWORD CheckReplaced(NativePath const & replaced, char const * target)
{
    if (replaced.IsDirectory())
    {
        return ERROR_SUCCESS; // which fails, but behind what is wrong with the replacement
    }
    if (replaced.EndsInSeparator())
    {
        return ERROR_PATH_NOT_FOUND;
    }
    bool const removable = CheckRemovable(replaced) == ERROR_SUCCESS && access(target, W_OK) == 0;
    return removable ? CheckDeletion(target) : ERROR_ACCESS_DENIED;
}

/// What speaks against the other one.
DWORD CheckReplacement(NativePath const & replacement)
{
    if (replacement.IsDirectory() || S_ISCHR(replacement.Status().stx_mode))
    {
        return ERROR_ACCESS_DENIED;
    }
    return replacement.EndsInSeparator() ? ERROR_INVALID_NAME : CheckDeletion(replacement.CStr());
}

/// Whether the backup may take its name.
DWORD CheckBackup(NativePath const & backup, char const * target)
{
    if (!backup.Exists())
    {
        return backup.EndsInSeparator() ? ERROR_DIRECTORY : ERROR_SUCCESS;
    }
    if (backup.EndsInSeparator() && !backup.IsDirectory())
    {
        return ERROR_DIRECTORY;
    }
    if (backup.IsDirectory() || IsOpenAnywhere(backup.CStr()))
    {
        return ERROR_ACCESS_DENIED;
    }
    // A backup in the place of the file itself would be gone with it.
    bool const free = CheckRemovable(backup) == ERROR_SUCCESS && std::strcmp(backup.CStr(), target) != 0;
    return free ? ERROR_SUCCESS : ERROR_UNABLE_TO_REMOVE_REPLACED;
}

/// The three names of a call: looked up and held against what is there, each when those before it are found good.
struct Names
{
    NativePath replaced;
    char target[PATH_MAX]; ///< the file that the replaced name leads to
    NativePath replacement;
    NativePath backup;

    bool Resolve(WCHAR const * replacedName, WCHAR const * replacementName, WCHAR const * backupName);
};

bool Names::Resolve(WCHAR const * replacedName, WCHAR const * replacementName, WCHAR const * backupName)
{
    if (!replaced.Translate(replacedName, Look::Existing) || !FollowToFile(replaced, target))
    {
        return false;
    }
    DWORD refused = CheckReplaced(replaced, target);
    if (refused == ERROR_SUCCESS)
    {
        if (!replacement.Translate(replacementName, Look::Existing))
        {
            return false;
        }
        refused = CheckReplacement(replacement);
    }
    if (refused == ERROR_SUCCESS && replaced.IsDirectory())
    {
        refused = ERROR_ACCESS_DENIED;
    }
    if (refused == ERROR_SUCCESS && std::strcmp(target, replacement.CStr()) == 0)
    {
        refused = ERROR_UNABLE_TO_MOVE_REPLACEMENT;
    }
    if (refused == ERROR_SUCCESS && backupName != nullptr)
    {
        if (!backup.Translate(backupName, Look::Creating))
        {
            return false;
        }
        refused = CheckBackup(backup, target);
    }
    return refused == ERROR_SUCCESS || FailWith(refused);
}

} // namespace

BOOL WINAPI ReplaceFileW(
    LPCWSTR replacedName, LPCWSTR replacementName, LPCWSTR backupName, DWORD flags, LPVOID exclude, LPVOID reserved)
{
    CheckTexts(replacedName, replacementName, backupName);
    constexpr DWORD known = REPLACEFILE_WRITE_THROUGH | REPLACEFILE_IGNORE_MERGE_ERRORS | REPLACEFILE_IGNORE_ACL_ERRORS;
    if (replacedName == nullptr || replacementName == nullptr || (flags & ~known) != 0 || exclude != nullptr ||
        reserved != nullptr)
    {
        return FailWith(ERROR_INVALID_PARAMETER);
    }
    Names names;
    if (!names.Resolve(replacedName, replacementName, backupName))
    {
        return FALSE;
    }
    char const * const target = names.target;
    NativePath const & replacement = names.replacement;
    NativePath const & backup = names.backup;
    if (int const error = PrepareReplacement(target, replacement.CStr()); error != 0)
    {
        return FailErrno(error);
    }
    if (backupName != nullptr && KeepBackup(target, backup.CStr()) != 0)
    {
        return FailWith(ERROR_UNABLE_TO_REMOVE_REPLACED);
    }
    if (rename(replacement.CStr(), target) != 0)
    {
        int const cause = errno;
        // Where the backup had to take the old file itself, that goes back.
        if (backupName != nullptr && access(target, F_OK) != 0)
        {
            rename(backup.CStr(), target);
        }
        errno = cause;
        return errno == EXDEV ? FailWith(ERROR_UNABLE_TO_MOVE_REPLACEMENT) : FailErrno();
    }
    int error = SyncDirectoryOf(target);
    error = error == 0 ? SyncDirectoryOf(replacement.CStr()) : error;
    return error == 0 ? TRUE : FailErrno(error);
}
