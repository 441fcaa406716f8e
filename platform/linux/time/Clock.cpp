#include <ctime>

#include <kvcore/platform/CoarseClock.h>
#include <kvcore/platform/include/timeapi.h>

#include "Ticks.h"
#include "ZoneOffset.h"

using namespace kv::platform;

namespace
{

/// The counts of a second of QueryPerformanceCounter: those that callers know from Windows.
constexpr std::int64_t countsPerSecond = 10'000'000;

std::int64_t Read(clockid_t clock, std::int64_t unitsPerSecond)
{
    std::timespec now{};
    clock_gettime(clock, &now);
    return now.tv_sec * unitsPerSecond + now.tv_nsec / (1'000'000'000 / unitsPerSecond);
}

} // namespace

std::int64_t kv::platform::TicksNow()
{
    return ticksAtUnixEpoch + Read(CLOCK_REALTIME, ticksPerSecond);
}

std::uint64_t kv::platform::CoarseTicks() noexcept
{
    return static_cast<std::uint64_t>(ticksAtUnixEpoch + Read(CLOCK_REALTIME_COARSE, ticksPerSecond));
}

void WINAPI GetSystemTimeAsFileTime(FILETIME * now)
{
    *now = FileTimeOf(static_cast<std::uint64_t>(TicksNow()));
}

void WINAPI GetSystemTimePreciseAsFileTime(FILETIME * now)
{
    GetSystemTimeAsFileTime(now);
}

void WINAPI GetSystemTime(SYSTEMTIME * now)
{
    FILETIME ticks;
    GetSystemTimeAsFileTime(&ticks);
    FileTimeToSystemTime(&ticks, now);
}

void WINAPI GetLocalTime(SYSTEMTIME * now)
{
    std::int64_t const utc = TicksNow();
    FILETIME const ticks = FileTimeOf(static_cast<std::uint64_t>(utc + OffsetTicksAt(UnixSecondOf(utc))));
    FileTimeToSystemTime(&ticks, now);
}

DWORD WINAPI GetTickCount()
{
    return static_cast<DWORD>(GetTickCount64());
}

ULONGLONG WINAPI GetTickCount64()
{
    return static_cast<ULONGLONG>(Read(CLOCK_BOOTTIME, 1000));
}

BOOL WINAPI QueryPerformanceCounter(LARGE_INTEGER * count)
{
    count->QuadPart = Read(CLOCK_MONOTONIC, countsPerSecond);
    return TRUE;
}

BOOL WINAPI QueryPerformanceFrequency(LARGE_INTEGER * perSecond)
{
    perSecond->QuadPart = countsPerSecond;
    return TRUE;
}
