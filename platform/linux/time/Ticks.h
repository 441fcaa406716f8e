#pragma once

// Ticks of 100 nanoseconds since 1601-01-01, as numbers.

#include <ctime>

#include <kvcore/platform/include/basetypes.h>

namespace kv::platform
{

constexpr std::int64_t ticksPerMillisecond = 10'000;
constexpr std::int64_t ticksPerSecond = 10'000'000;
constexpr std::int64_t ticksPerMinute = 60 * ticksPerSecond;
constexpr std::int64_t ticksPerDay = 24 * 60 * ticksPerMinute;

/// 1970-01-01, where the system's own clock starts.
constexpr std::int64_t ticksAtUnixEpoch = 116'444'736'000'000'000;

inline std::uint64_t TicksOf(FILETIME const & time)
{
    return std::uint64_t{time.dwHighDateTime} << 32 | time.dwLowDateTime;
}

inline FILETIME FileTimeOf(std::uint64_t ticks)
{
    return {static_cast<DWORD>(ticks), static_cast<DWORD>(ticks >> 32)};
}

/// The second since 1970 that the ticks lie in.
inline std::time_t UnixSecondOf(std::int64_t ticks)
{
    return ticks / ticksPerSecond - ticksAtUnixEpoch / ticksPerSecond;
}

/// The clock's time.
std::int64_t TicksNow();

} // namespace kv::platform
