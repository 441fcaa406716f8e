#pragma once

#include <kvcore/frame/DateTime.h>

namespace kv::detail
{

/// The span between two readings of the 32-bit millisecond counter, which may have wrapped once in between.
inline TimeSpan TickSpan(DWORD start, DWORD end)
{
    return TimeSpan(static_cast<__int64>(static_cast<DWORD>(end - start)) * TimeSpan::TicksPerMillisecond());
}

} // namespace kv::detail
