#pragma once

// The files that a process's crash reports name.

#include <cstddef>

#include <kvcore/platform/export.h>

namespace kv::platform
{

inline constexpr std::size_t mostReportFiles = 64;

/// The native path of a registered file, or null for a free place; `index` is below `mostReportFiles`. Looks at no lock
/// and no heap: a report asks this after a fault.
KVCORE_API char const * RegisteredReportFile(std::size_t index) noexcept;

} // namespace kv::platform
