#pragma once

// What a process and its threads have set down for their crash reports.

#include <cstddef>

#include <kvcore/platform/export.h>
#include <kvcore/platform/types.h>

namespace kv::platform
{

inline constexpr std::size_t mostReportFiles = 64;

/// The native path of a registered file, or null for a free place; `index` is below `mostReportFiles`. Looks at no lock
/// and no heap: a report asks this after a fault.
KVCORE_API char const * RegisteredReportFile(std::size_t index) noexcept;

/// The calling thread's name for its reports, or null. The same holds for it.
KVCORE_API WCHAR const * FaultName() noexcept;

} // namespace kv::platform
