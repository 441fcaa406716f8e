#pragma once

// What the kernel knows of a file, in the terms of Win32.

#include <cstdint>

#include <sys/stat.h>

#include <kvcore/platform/include/basetypes.h>

namespace kv::platform
{

/// What of a file's status is asked for here.
constexpr unsigned statusMask = STATX_BASIC_STATS | STATX_BTIME;

FILETIME FileTimeOf(struct statx_timestamp const & time) noexcept;
FILETIME CreationTimeOf(struct statx const & status) noexcept;

/// 0 for a directory.
std::uint64_t SizeOf(struct statx const & status) noexcept;

/// `name` is the last component; null if it does not matter.
DWORD AttributesOf(struct statx const & status, char const * name) noexcept;

/// Completes the status of a name that is a link: with `status` that of its target, if there is one. Gives the
/// attributes. `directory` is a descriptor that `path` is relative to.
DWORD FollowLink(int directory, char const * path, char const * name, struct statx & status) noexcept;

} // namespace kv::platform
