#pragma once

// The time for those who ask for it all the time.

#include <cstdint>

#include <kvcore/platform/export.h>

namespace kv::platform
{

/// The system's time, in units of 100 ns since 1601, as it was when its clock last ticked: it is never ahead of the
/// other calls and some milliseconds behind them, and costs a fraction of them. Any thread.
KVCORE_API std::uint64_t CoarseTicks() noexcept;

} // namespace kv::platform
