#pragma once

// The system error that stands for an errno value.

#include <kvcore/platform/include/basetypes.h>

namespace kv::platform
{

/// The Win32 code of an errno value; ERROR_GEN_FAILURE for what has none. EEXIST is ERROR_FILE_EXISTS, as opening a
/// file reports it: who creates directories says ERROR_ALREADY_EXISTS itself.
DWORD ErrorOfErrno(int error) noexcept;

/// Sets the last error to that of an errno value and gives FALSE. `errno` is read here if none is given.
BOOL FailErrno() noexcept;
BOOL FailErrno(int error) noexcept;

/// Sets the last error and gives FALSE.
BOOL FailWith(DWORD code) noexcept;

} // namespace kv::platform
