#include "FileStatus.h"

#include <algorithm>
#include <tuple>

#include <fcntl.h>

#include <kvcore/platform/include/directories.h>

namespace kv::platform
{

namespace
{

constexpr std::int64_t ticksPerSecond = 10'000'000;
constexpr std::int64_t secondsTo1970 = 11'644'473'600;

bool IsEarlier(struct statx_timestamp const & left, struct statx_timestamp const & right)
{
    return std::tie(left.tv_sec, left.tv_nsec) < std::tie(right.tv_sec, right.tv_nsec);
}

} // namespace

FILETIME FileTimeOf(struct statx_timestamp const & time) noexcept
{
    // What lies before 1601 or behind the last tick has no FILETIME; the nearest one stands for it.
    constexpr std::int64_t last = INT64_MAX / ticksPerSecond - 1;
    std::int64_t const seconds = std::clamp<std::int64_t>(time.tv_sec, -secondsTo1970, last - secondsTo1970);
    auto const ticks = static_cast<std::uint64_t>((seconds + secondsTo1970) * ticksPerSecond + time.tv_nsec / 100);
    return {static_cast<DWORD>(ticks), static_cast<DWORD>(ticks >> 32)};
}

FILETIME CreationTimeOf(struct statx const & status) noexcept
{
    if ((status.stx_mask & STATX_BTIME) != 0)
    {
        return FileTimeOf(status.stx_btime);
    }
    return FileTimeOf(IsEarlier(status.stx_ctime, status.stx_mtime) ? status.stx_ctime : status.stx_mtime);
}

std::uint64_t SizeOf(struct statx const & status) noexcept
{
    return S_ISDIR(status.stx_mode) ? 0 : status.stx_size;
}

DWORD AttributesOf(struct statx const & status, char const * name) noexcept
{
    bool const isDirectory = S_ISDIR(status.stx_mode);
    DWORD attributes = isDirectory ? FILE_ATTRIBUTE_DIRECTORY : FILE_ATTRIBUTE_ARCHIVE;
    // What may be done in a directory is a matter of rights and of no attribute.
    if (!isDirectory && (status.stx_mode & (S_IWUSR | S_IWGRP | S_IWOTH)) == 0)
    {
        attributes |= FILE_ATTRIBUTE_READONLY;
    }
    bool const dots = name != nullptr && name[0] == '.' && (name[1] == '\0' || (name[1] == '.' && name[2] == '\0'));
    if (name != nullptr && name[0] == '.' && !dots)
    {
        attributes |= FILE_ATTRIBUTE_HIDDEN;
    }
    return attributes;
}

DWORD FollowLink(int directory, char const * path, char const * name, struct statx & status) noexcept
{
    struct statx target;
    if (statx(directory, path, 0, statusMask, &target) == 0)
    {
        status = target;
    }
    return AttributesOf(status, name) | FILE_ATTRIBUTE_REPARSE_POINT;
}

} // namespace kv::platform
