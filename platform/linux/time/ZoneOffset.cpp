#include "ZoneOffset.h"

#include "Ticks.h"

std::int64_t kv::platform::OffsetSecondsAt(std::time_t when)
{
    // localtime_r alone would go on with the zone that it found at its first call.
    tzset();
    std::tm local{};
    return localtime_r(&when, &local) != nullptr ? local.tm_gmtoff : 0;
}

std::int64_t kv::platform::OffsetTicksAt(std::time_t when)
{
    return OffsetSecondsAt(when) * ticksPerSecond;
}
