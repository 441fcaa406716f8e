#pragma once

// Paths of modules, where they stand.

#include <string_view>

#include <kvcore/platform/export.h>
#include <kvcore/platform/types.h>

namespace kv::platform
{

/// The path of the module that holds an address, as GetModuleFileNameW gives it with room enough. It stays where it is
/// for good: the same address of the text is the same module. Empty if there is no such text to be had: for what is no
/// module, and on a system that keeps its paths to itself. Any thread; takes no lock for a path that was asked for
/// before. Leaves the last error alone.
KVCORE_API std::basic_string_view<WCHAR> KeptModulePath(void const * address) noexcept;

} // namespace kv::platform
