#pragma once

// What copying, moving and replacing have in common.

#include <climits>
#include <cstddef>

#include <kvcore/platform/include/basetypes.h>
#include <kvcore/platform/linux/paths/NativePath.h>

namespace kv::platform
{

/// Copies what is left of one open file to another, in the kernel where it can. 0 or an errno value.
int CopyContent(int from, int to) noexcept;

/// Whether a file of this status may be removed or replaced: ERROR_ACCESS_DENIED for a directory, a device and what
/// nobody may write.
DWORD CheckRemovable(NativePath const & path) noexcept;

/// Whether this is the process's current directory, which nobody removes or moves: the system has it open there.
bool IsCurrentDirectory(struct statx const & status) noexcept;

/// Writes the directory that holds a native path to the disk. 0 or an errno value.
int SyncDirectoryOf(char const * path) noexcept;

/// A name beside `path` that nobody has, for a file on its way. False with the last error set.
bool MakeNameBeside(char const * path, char (&name)[PATH_MAX]) noexcept;

} // namespace kv::platform
