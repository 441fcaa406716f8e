#pragma once

// From Win32's locale identifiers to ICU's locale names.

#include <optional>
#include <string>

#include <kvcore/platform/include/basetypes.h>

namespace kv::platform
{

/// What a locale is asked for. Users may mix them.
enum class LocaleCategory
{
    Collation,
    CharacterTypes,
    Time,
    Messages
};

/// Whether there is such a locale.
bool IsLocale(LCID locale);

/// ICU's name for `locale`, the empty one for the invariant locale; nothing if there is no such locale. For the
/// identifiers that stand for the user's locale the environment of the first call decides: LC_ALL, the variable of the
/// category, LANG, in this order. "C", "POSIX" and names that ICU does not know mean American English.
std::optional<std::string> IcuLocale(LCID locale, LocaleCategory category);

} // namespace kv::platform
