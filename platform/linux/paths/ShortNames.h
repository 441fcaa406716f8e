#pragma once

// Short names: 8 characters, a dot, 3 characters. A name that is short already is its own. Any other gets a made-up one
// from its first letters and a hash of it, so that it stays the same as long as the name does, without being stored.

#include <cstddef>

#include <kvcore/platform/include/basetypes.h>

namespace kv::platform
{

/// "12345678.123" and a NUL, with one element to spare as in the platform's own record.
constexpr std::size_t shortNameSize = 14;

/// Whether a name is a short name itself, in whatever case.
bool IsShortName(WCHAR const * name, std::size_t count) noexcept;

/// Makes the short form, ended by a NUL, of a name for which IsShortName does not hold. Gives its length.
std::size_t MakeShortName(WCHAR const * name, std::size_t count, WCHAR (&target)[shortNameSize]) noexcept;

/// Whether a name can have come from MakeShortName.
bool MayBeMadeShort(char const * name, std::size_t count) noexcept;

} // namespace kv::platform
