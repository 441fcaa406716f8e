#include <cerrno>

#include <sys/stat.h>
#include <unistd.h>

#include <kvcore/platform/include/directories.h>
#include <kvcore/platform/include/errors.h>
#include <kvcore/platform/include/fileapi.h>
#include <kvcore/platform/linux/errors/ErrnoErrors.h>
#include <kvcore/platform/linux/files/FileObject.h>
#include <kvcore/platform/linux/files/Handles.h>
#include <kvcore/platform/linux/memory/CallerMemory.h>
#include <kvcore/platform/linux/paths/NativePath.h>

#include "FileMoves.h"

using namespace kv::platform;

namespace
{

/// An open file, closed at the end of its scope. The last error survives that.
class OpenHandle
{
public:
    explicit OpenHandle(HANDLE opened) : handle(opened) {}
    OpenHandle(OpenHandle const &) = delete;
    OpenHandle & operator=(OpenHandle const &) = delete;
    ~OpenHandle()
    {
        if (handle != INVALID_HANDLE_VALUE)
        {
            DWORD const error = GetLastError();
            CloseHandle(handle);
            SetLastError(error);
        }
    }

    HANDLE const handle;
};

/// Gives a new file the rights of the one it was copied from, as far as new files of this process have them, and the
/// time of its last write. An existing target keeps its rights, but not that anybody may write what is read-only.
void CopyStatus(int to, struct stat const & source, bool isNew)
{
    constexpr mode_t allWrite = S_IWUSR | S_IWGRP | S_IWOTH;
    struct stat status;
    if (fstat(to, &status) != 0)
    {
        return;
    }
    timespec const times[] = {{0, UTIME_OMIT}, source.st_mtim};
    futimens(to, times);
    mode_t const given = status.st_mode & 0777;
    mode_t const allowed = given | (given & 0444) >> 2; // a program stays one
    if (isNew)
    {
        fchmod(to, source.st_mode & allowed);
    }
    else if ((source.st_mode & allWrite) == 0)
    {
        fchmod(to, status.st_mode & 07777 & ~allWrite);
    }
}

/// Copies between two open files. What was copied in part is removed.
bool CopyOpenFiles(HANDLE source, HANDLE target, WCHAR const * to, bool isNew)
{
    int error = 0;
    {
        auto const from = LookUp<File>(source);
        auto const into = LookUp<File>(target);
        struct stat status;
        if (!from || !into)
        {
            return false;
        }
        error = fstat(from->descriptor, &status) == 0 ? CopyContent(from->descriptor, into->descriptor) : errno;
        if (error == 0 && S_ISREG(status.st_mode))
        {
            CopyStatus(into->descriptor, status, isNew);
        }
    }
    if (error != 0)
    {
        CloseHandle(target);
        DeleteFileW(to);
        return FailErrno(error);
    }
    return CloseHandle(target) != FALSE;
}

/// Whether a name leads to an open file: emptying the one would take the other's content.
bool LeadsTo(HANDLE source, WCHAR const * name)
{
    NativePath path;
    struct stat open;
    struct stat named;
    auto const from = LookUp<File>(source);
    return from && path.Translate(name, Look::Existing) && fstat(from->descriptor, &open) == 0 &&
        stat(path.CStr(), &named) == 0 && open.st_dev == named.st_dev && open.st_ino == named.st_ino;
}

} // namespace

BOOL WINAPI CopyFileW(LPCWSTR from, LPCWSTR to, BOOL failIfExists)
{
    CheckTexts(from, to);
    DWORD const before = GetLastError();
    OpenHandle const source(CreateFileW(
        from, GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr, OPEN_EXISTING,
        FILE_FLAG_SEQUENTIAL_SCAN, nullptr));
    if (source.handle == INVALID_HANDLE_VALUE)
    {
        return FALSE;
    }
    if (!failIfExists && LeadsTo(source.handle, to))
    {
        return FailWith(ERROR_SHARING_VIOLATION);
    }
    HANDLE const target = CreateFileW(
        to, GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, failIfExists ? CREATE_NEW : CREATE_ALWAYS,
        FILE_ATTRIBUTE_NORMAL, nullptr);
    if (target == INVALID_HANDLE_VALUE)
    {
        return FALSE;
    }
    bool const isNew = GetLastError() != ERROR_ALREADY_EXISTS;
    if (!CopyOpenFiles(source.handle, target, to, isNew))
    {
        return FALSE;
    }
    SetLastError(before);
    return TRUE;
}
