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

/// False if it cannot be written.
bool WriteParameter(UINT key, DWORD value, Lifetime lifetime) noexcept;

} // namespace kv::platform
