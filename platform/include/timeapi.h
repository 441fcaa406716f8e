#pragma once

// The clock, the calendar, the time zone and the tick counter.

#include <kvcore/platform/include/basetypes.h>

#define TIME_ZONE_ID_UNKNOWN 0u
#define TIME_ZONE_ID_STANDARD 1u
#define TIME_ZONE_ID_DAYLIGHT 2u
#define TIME_ZONE_ID_INVALID 0xFFFFFFFFu

/// The rules of a time zone: UTC is local time plus `Bias` plus the bias of the season, in minutes. The dates are the
/// local times, by the clock that is about to be changed, at which the seasons begin; `wYear` 0 means each year, on
/// the `wDay`-th (5 is the last) `wDayOfWeek` of `wMonth`. A `wMonth` of 0 means that there are no seasons.
struct TIME_ZONE_INFORMATION
{
    LONG Bias;
    WCHAR StandardName[32];
    SYSTEMTIME StandardDate;
    LONG StandardBias;
    WCHAR DaylightName[32];
    SYSTEMTIME DaylightDate;
    LONG DaylightBias;
};
static_assert(sizeof(TIME_ZONE_INFORMATION) == 172);

extern "C"
{
    /// The time of the system's clock.
    KVCORE_API void WINAPI GetSystemTimeAsFileTime(FILETIME * now);
    KVCORE_API void WINAPI GetSystemTimePreciseAsFileTime(FILETIME * now);
    KVCORE_API void WINAPI GetSystemTime(SYSTEMTIME * now);
    KVCORE_API void WINAPI GetLocalTime(SYSTEMTIME * now);

    /// Milliseconds since the system's start, time asleep included; GetTickCount wraps after 49.7 days.
    KVCORE_API DWORD WINAPI GetTickCount();
    KVCORE_API ULONGLONG WINAPI GetTickCount64();

    /// A counter for measuring, and its counts per second. Neither fails.
    KVCORE_API BOOL WINAPI QueryPerformanceCounter(LARGE_INTEGER * count);
    KVCORE_API BOOL WINAPI QueryPerformanceFrequency(LARGE_INTEGER * countsPerSecond);

    /// Between ticks and the calendar, whose years are 1601 to 30827 for SystemTimeToFileTime. Weekdays are filled in
    /// and not looked at. FALSE with ERROR_INVALID_PARAMETER, and nothing written, for a date or a time of day that
    /// does not exist, and for 2^63 ticks and more.
    KVCORE_API BOOL WINAPI SystemTimeToFileTime(SYSTEMTIME const * when, FILETIME * ticks);
    KVCORE_API BOOL WINAPI FileTimeToSystemTime(FILETIME const * ticks, SYSTEMTIME * when);

    /// -1, 0 or 1; the ticks count as unsigned.
    KVCORE_API LONG WINAPI CompareFileTime(FILETIME const * left, FILETIME const * right);

    /// Kept: these two use the zone's offset of *now*, whatever season the date is in. They never fail; ticks beyond
    /// either end wrap.
    KVCORE_API BOOL WINAPI FileTimeToLocalFileTime(FILETIME const * utc, FILETIME * local);
    KVCORE_API BOOL WINAPI LocalFileTimeToFileTime(FILETIME const * local, FILETIME * utc);

    /// By the rules of `zone`, or, with null, by the system's zone and what its database says of that very date. A
    /// local time that occurs twice is the first of the two, one that is left out is on the clock of summer. FALSE with
    /// ERROR_INVALID_PARAMETER, and nothing written, for a wrong date, a result out of range, or wrong rules.
    KVCORE_API BOOL WINAPI
    SystemTimeToTzSpecificLocalTime(TIME_ZONE_INFORMATION const * zone, SYSTEMTIME const * utc, SYSTEMTIME * local);
    KVCORE_API BOOL WINAPI
    TzSpecificLocalTimeToSystemTime(TIME_ZONE_INFORMATION const * zone, SYSTEMTIME const * local, SYSTEMTIME * utc);

    /// The system's zone with this year's rules, named in English. The result is the season of now:
    /// TIME_ZONE_ID_UNKNOWN if this year has none, or more than two. The larger offset is summer's.
    KVCORE_API DWORD WINAPI GetTimeZoneInformation(TIME_ZONE_INFORMATION * zone);
}
