#pragma once

// The system's time zone as its database has it.

#include <cstdint>
#include <ctime>

namespace kv::platform
{

/// Seconds that local time is ahead of UTC at a second since 1970.
std::int64_t OffsetSecondsAt(std::time_t when);

/// The same in ticks.
std::int64_t OffsetTicksAt(std::time_t when);

} // namespace kv::platform
