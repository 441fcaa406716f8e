#pragma once

// What copying, moving and replacing have in common.

#include <climits>
#include <cstddef>

#include <kvcore/platform/export.h>
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

// Files on their way to a name: made beside it as ".kv-", 16 hexadecimal digits and ".tmp", and then renamed. A process
// that is killed in between leaves one behind; the next one that goes to the same name removes it. All give 0 or an
// errno value, and the temporary name.

/// A new, empty file that is its owner's alone. Its descriptor holds its lock, and stays open until it is renamed.
KVCORE_API int CreateBeside(char const * path, char (&name)[PATH_MAX], int & descriptor) noexcept;

/// A further name of `file`, beside `path`.
int LinkBeside(char const * file, char const * path, char (&name)[PATH_MAX]) noexcept;

/// A symbolic link to `target`, beside `path`.
int SymlinkBeside(char const * target, char const * path, char (&name)[PATH_MAX]) noexcept;

} // namespace kv::platform
