#pragma once

// Drive letters and the data directory behind them.

#include <climits>
#include <cstddef>

#include <kvcore/platform/include/basetypes.h>

namespace kv::platform
{

/// The native root of a drive, without a separator at its end; empty for Z:, which is the kernel's root. False with
/// ERROR_PATH_NOT_FOUND for what is no letter, or if there is no data directory. Whether the drive is there, the look
/// at its root tells.
bool DriveRoot(WCHAR letter, char (&root)[PATH_MAX], std::size_t & length) noexcept;

/// The user's data directory, made when it is first asked for, with the folders that C: has from the start. Empty with
/// ERROR_PATH_NOT_FOUND if there is no place to make it in.
bool DataDirectory(char (&directory)[PATH_MAX], std::size_t & length) noexcept;

/// The user's folder name under C:\Users, in native spelling.
char const * UserName() noexcept;

/// Whether the drive's root is there.
bool DriveExists(WCHAR letter) noexcept;

} // namespace kv::platform
