#pragma once

// Where system parameters are kept: numbers by number, in a database that all processes of the user share.

#include <optional>

#include <kvcore/platform/include/basetypes.h>

namespace kv::platform
{

enum class Lifetime
{
    Lasting,
    UntilRestart, ///< of the system; what lasts shows again after it
};

/// The value under a key, if any was written. What cannot be read is none.
std::optional<DWORD> ReadParameter(UINT key) noexcept;

/// ERROR_SUCCESS, or why it cannot be written: ERROR_DISK_FULL, ERROR_BUSY if another process holds the store for ten
/// seconds, ERROR_OLD_WIN_VERSION if a newer version of this system made it, ERROR_WRITE_FAULT where nothing else is
/// known.
///
/// A damaged store is set aside beside its place, as parameters.db.damaged-1 or with the next free number, by the first
/// call that finds the damage; that call goes on with an empty store.
DWORD WriteParameter(UINT key, DWORD value, Lifetime lifetime) noexcept;

} // namespace kv::platform
