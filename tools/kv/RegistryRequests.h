#pragma once

#include <functional>
#include <string_view>

#include <kvcore/tools/kv/Registry.h>
#include <kvcore/tools/kv/RegistryKeys.h>

// What the actions of `kv reg` share.

namespace kv::tools
{

constexpr char const * registryCommand = "kv reg";

/// The key that was typed. Throws UsageError.
[[nodiscard]] RegistryPath TypedRegistryPath(std::string const & typed);

/// Says that a key, or a value of it, is not there: ExitFailed.
int NoRegistryKey(RegistryPath const & path, Console & console);
int NoRegistryValue(RegistryPath const & path, std::string const & name, Console & console);

/// Asks for a yes in a line of its own, on a terminal alone; without one throws UsageError, which names the option that
/// makes the question needless.
[[nodiscard]] bool IsConfirmed(std::string_view question, Console & console);

/// Walks as WalkRegistry does, and complains of what cannot be read: the result is then ExitFailed.
[[nodiscard]] int
WalkRegistryAloud(RegistryKey root, std::size_t depth, Console & console, RegistryVisitor const & visit);

} // namespace kv::tools
