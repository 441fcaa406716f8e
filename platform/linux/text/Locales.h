#pragma once

// From Win32's locale identifiers to ICU's locale names.

#include <optional>
#include <string>

#include <kvcore/platform/include/basetypes.h>

namespace kv::platform
{

/// ICU's name for `locale`, the empty one for the invariant locale. Empty if there is no such locale. For the
/// identifiers that stand for the user's locale the environment decides: LC_ALL, `category`, LANG, in this order; "C",
/// "POSIX" and names that ICU does not know mean American English.
std::optional<std::string> IcuLocale(LCID locale, char const * category);

} // namespace kv::platform
