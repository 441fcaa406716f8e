#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <kvcore/platform/include/errors.h>
#include <kvcore/platform/include/fileapi.h>
#include <kvcore/platform/linux/directories/FileStatus.h>
#include <kvcore/platform/linux/errors/ErrnoErrors.h>
#include <kvcore/platform/linux/files/FileObject.h>
#include <kvcore/platform/linux/memory/CallerMemory.h>
#include <kvcore/platform/linux/paths/NativeNames.h>
#include <kvcore/platform/linux/time/Ticks.h>

using namespace kv::platform;

namespace
{

constexpr std::int64_t nanosecondsPerTick = 100;

bool Look(File const & file, struct statx & status)
{
    if (file.type == FileType::Pipe)
    {
        return FailWith(ERROR_INVALID_FUNCTION);
    }
    if (file.type == FileType::Character)
    {
        return FailWith(ERROR_INVALID_PARAMETER);
    }
    return statx(file.descriptor, "", AT_EMPTY_PATH, statusMask, &status) == 0 || FailErrno();
}

/// What utimensat takes: UTIME_OMIT for a time that is to stay. False for what is no time.
bool TimeToSet(FILETIME const * time, timespec & result)
{
    result.tv_sec = 0;
    result.tv_nsec = UTIME_OMIT;
    std::uint64_t const ticks = time != nullptr ? TicksOf(*time) : 0;
    if (ticks == 0 || ticks == ~std::uint64_t{0})
    {
        return true;
    }
    if (ticks >> 63 != 0)
    {
        return false;
    }
    std::int64_t const sinceEpoch = static_cast<std::int64_t>(ticks) - ticksAtUnixEpoch;
    std::int64_t const fraction = static_cast<std::int64_t>(ticks) % ticksPerSecond; // the epoch is a whole second
    result.tv_sec = (sinceEpoch - fraction) / ticksPerSecond;
    result.tv_nsec = fraction * nanosecondsPerTick;
    return true;
}

/// The name by which the kernel knows a descriptor's file.
std::size_t NameOfDescriptor(int descriptor, char (&path)[PATH_MAX])
{
    char link[40];
    std::snprintf(link, sizeof(link), "/proc/self/fd/%d", descriptor);
    ssize_t const length = readlink(link, path, sizeof(path));
    return length > 0 && path[0] == '/' ? static_cast<std::size_t>(length) : 0;
}

/// The attributes by what the file is and how it is called.
DWORD AttributesByHandle(File const & file, struct statx const & status)
{
    char path[PATH_MAX];
    std::size_t const length = std::min(NameOfDescriptor(file.descriptor, path), sizeof(path) - 1);
    path[length] = '\0';
    char const * const separator = std::strrchr(path, '/');
    return AttributesOf(status, separator != nullptr ? separator + 1 : nullptr);
}

/// The number by which GetVolumeInformationW knows the file's volume, too.
DWORD SerialNumberOf(File const & file)
{
    struct statvfs volume;
    std::uint64_t const id = fstatvfs(file.descriptor, &volume) == 0 ? volume.f_fsid : 0;
    return static_cast<DWORD>(id ^ id >> 32);
}

} // namespace

BOOL WINAPI GetFileTime(HANDLE file, FILETIME * creation, FILETIME * access, FILETIME * write)
{
    CheckOutputs(creation, access, write);
    auto const object = LookUp<File>(file);
    struct statx status;
    if (!object || !Look(*object, status))
    {
        return FALSE;
    }
    if (creation != nullptr)
    {
        *creation = CreationTimeOf(status);
    }
    if (access != nullptr)
    {
        *access = FileTimeOf(status.stx_atime);
    }
    if (write != nullptr)
    {
        *write = FileTimeOf(status.stx_mtime);
    }
    return TRUE;
}

BOOL WINAPI SetFileTime(HANDLE file, FILETIME const * creation, FILETIME const * access, FILETIME const * write)
{
    CheckInputs(creation, access, write);
    auto const object = LookUp<File>(file);
    if (!object)
    {
        return FALSE;
    }
    if ((object.Access() & FILE_WRITE_ATTRIBUTES) == 0)
    {
        return FailWith(ERROR_ACCESS_DENIED);
    }
    timespec ignored;
    timespec times[2];
    if (!TimeToSet(creation, ignored) || !TimeToSet(access, times[0]) || !TimeToSet(write, times[1]))
    {
        return FailWith(ERROR_INVALID_PARAMETER);
    }
    // By name, because a descriptor that stands for attributes only takes no times.
    char link[40];
    std::snprintf(link, sizeof(link), "/proc/self/fd/%d", object->descriptor);
    return utimensat(AT_FDCWD, link, times, 0) == 0 ? TRUE : FailErrno();
}

BOOL WINAPI GetFileInformationByHandle(HANDLE file, BY_HANDLE_FILE_INFORMATION * information)
{
    CheckOutputs(information);
    auto const object = LookUp<File>(file);
    struct statx status;
    if (!object || !Look(*object, status))
    {
        return FALSE;
    }
    std::uint64_t const size = SizeOf(status);
    information->dwFileAttributes = AttributesByHandle(*object, status);
    information->ftCreationTime = CreationTimeOf(status);
    information->ftLastAccessTime = FileTimeOf(status.stx_atime);
    information->ftLastWriteTime = FileTimeOf(status.stx_mtime);
    information->dwVolumeSerialNumber = SerialNumberOf(*object);
    information->nFileSizeHigh = static_cast<DWORD>(size >> 32);
    information->nFileSizeLow = static_cast<DWORD>(size);
    information->nNumberOfLinks = status.stx_nlink;
    information->nFileIndexHigh = static_cast<DWORD>(status.stx_ino >> 32);
    information->nFileIndexLow = static_cast<DWORD>(status.stx_ino);
    return TRUE;
}

DWORD WINAPI GetFileType(HANDLE file)
{
    auto const object = LookUp<File>(file);
    if (!object)
    {
        return FILE_TYPE_UNKNOWN;
    }
    switch (object->type)
    {
    case FileType::Pipe:
        return FILE_TYPE_PIPE;
    case FileType::Character:
        return FILE_TYPE_CHAR;
    default:
        return FILE_TYPE_DISK;
    }
}

DWORD WINAPI GetFinalPathNameByHandleW(HANDLE file, LPWSTR buffer, DWORD capacity, DWORD flags)
{
    CheckBuffer(buffer, capacity);
    auto const object = LookUp<File>(file);
    if (!object)
    {
        return 0;
    }
    if ((flags & ~(VOLUME_NAME_NONE | FILE_NAME_OPENED)) != 0)
    {
        FailWith(ERROR_INVALID_PARAMETER);
        return 0;
    }
    char path[PATH_MAX];
    std::size_t const count = NameOfDescriptor(object->descriptor, path);
    if (count == 0)
    {
        FailWith(ERROR_INVALID_FUNCTION);
        return 0;
    }
    // A name has at most as many units as bytes.
    constexpr WCHAR prefix[] = TEXT("\\\\?\\Z:");
    WCHAR text[PATH_MAX + 8];
    std::size_t length = 0;
    for (WCHAR const * unit = prefix; *unit != 0 && (flags & VOLUME_NAME_NONE) == 0; ++unit)
    {
        text[length++] = *unit;
    }
    for (std::size_t start = 1; start <= count;)
    {
        std::size_t const end = static_cast<std::size_t>(std::find(path + start, path + count, '/') - path);
        text[length++] = '\\';
        length += DecodeName(path + start, end - start, text + length);
        start = end + 1;
    }
    if (length + 1 > capacity)
    {
        FailWith(ERROR_NOT_ENOUGH_MEMORY);
        return static_cast<DWORD>(length + 1);
    }
    std::copy(text, text + length, buffer);
    buffer[length] = 0;
    return static_cast<DWORD>(length);
}
