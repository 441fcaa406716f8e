#pragma once

// Clean file names, as the shell makes them. The system has the function without a name to link to.

#include <kvcore/platform/export.h>
#include <kvcore/platform/types.h>

namespace kv::platform
{

/// What CleanupSpec did.
constexpr unsigned cleanupReplaced = 0x00000001;    ///< A character became another one.
constexpr unsigned cleanupRemoved = 0x00000002;     ///< A character is gone.
constexpr unsigned cleanupTruncated = 0x00000004;   ///< The name was cut.
constexpr unsigned cleanupPathTooLong = 0x00000008; ///< Directory and name make no path.
constexpr unsigned cleanupFatal = 0x80000000;       ///< The name cannot be used.

/// Replaces in `name`, a buffer of MAX_PATH elements that holds a NUL, what no file name in `directory` can hold, and
/// cuts the name where the whole path would be too long. A null `directory` limits nothing. The result is of the flags
/// above. Any thread.
KVCORE_API unsigned CleanupSpec(WCHAR const * directory, WCHAR * name);

} // namespace kv::platform
