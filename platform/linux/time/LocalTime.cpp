// Between UTC and local time.

#include <algorithm>
#include <chrono>
#include <optional>
#include <tuple>

#include <kvcore/platform/include/errors.h>
#include <kvcore/platform/include/timeapi.h>

#include "Ticks.h"
#include "ZoneOffset.h"

using namespace kv::platform;

BOOL WINAPI FileTimeToLocalFileTime(FILETIME const * utc, FILETIME * local)
{
    std::int64_t const offset = OffsetTicksAt(std::time(nullptr));
    *local = FileTimeOf(TicksOf(*utc) + static_cast<std::uint64_t>(offset));
    return TRUE;
}

BOOL WINAPI LocalFileTimeToFileTime(FILETIME const * local, FILETIME * utc)
{
    std::int64_t const offset = OffsetTicksAt(std::time(nullptr));
    *utc = FileTimeOf(TicksOf(*local) - static_cast<std::uint64_t>(offset));
    return TRUE;
}

namespace
{

/// The offset that takes a local time of the system's zone to UTC.
std::int64_t OffsetOfLocal(std::int64_t local)
{
    // A change of the clock is never a day away from another, so one of these two is in force.
    std::int64_t const before = OffsetTicksAt(UnixSecondOf(local - ticksPerDay));
    std::int64_t const after = OffsetTicksAt(UnixSecondOf(local + ticksPerDay));
    auto const isInForce = [local](std::int64_t offset)
    { return OffsetTicksAt(UnixSecondOf(local - offset)) == offset; };
    std::int64_t const larger = std::max(before, after);
    std::int64_t const smaller = std::min(before, after);
    // With both the time occurs twice, with neither it is left out.
    return isInForce(larger) || !isInForce(smaller) ? larger : smaller;
}

/// The day of the month on which a season begins in a year, or nothing if the rule is a wrong one.
std::optional<unsigned> DayOfRule(SYSTEMTIME const & rule, int inYear)
{
    using namespace std::chrono;
    if (rule.wMonth > 12)
    {
        return std::nullopt;
    }
    if (rule.wYear != 0)
    {
        return rule.wDay;
    }
    if (rule.wDay < 1 || rule.wDay > 5 || rule.wDayOfWeek > 6)
    {
        return std::nullopt;
    }
    year_month const inMonth = year(inYear) / std::chrono::month(rule.wMonth);
    weekday const day(rule.wDayOfWeek);
    year_month_day const date = rule.wDay == 5 ? sys_days(inMonth / day[last]) : sys_days(inMonth / day[rule.wDay]);
    return unsigned(date.day());
}

/// Whether `local` is at or behind the date of that rule in its year.
std::optional<bool> IsBehind(std::int64_t local, SYSTEMTIME const & rule)
{
    FILETIME const ticks = FileTimeOf(static_cast<std::uint64_t>(local));
    SYSTEMTIME when;
    if (!FileTimeToSystemTime(&ticks, &when))
    {
        return std::nullopt;
    }
    std::optional<unsigned> const day = DayOfRule(rule, when.wYear);
    if (!day)
    {
        return std::nullopt;
    }
    // By the fields, since there are no ticks for the end of the last year.
    return std::tuple(when.wMonth, when.wDay, when.wHour, when.wMinute, when.wSecond, when.wMilliseconds) >=
        std::tuple(rule.wMonth, *day, rule.wHour, rule.wMinute, rule.wSecond, rule.wMilliseconds);
}

bool IsEarlierInTheYear(SYSTEMTIME const & left, SYSTEMTIME const & right)
{
    return std::tie(left.wMonth, left.wDay) < std::tie(right.wMonth, right.wDay);
}

/// A sum that wraps beyond either end, as rules with impossible offsets make it.
std::int64_t Moved(std::int64_t ticks, std::int64_t offset)
{
    return static_cast<std::int64_t>(static_cast<std::uint64_t>(ticks) + static_cast<std::uint64_t>(offset));
}

/// The offset of a zone whose clock shows one of these two times, by its season.
std::optional<std::int64_t> OffsetByRules(TIME_ZONE_INFORMATION const & zone, bool isUtc, std::int64_t ticks)
{
    std::int64_t const standard = -(std::int64_t{zone.Bias} + zone.StandardBias) * ticksPerMinute;
    std::int64_t const daylight = -(std::int64_t{zone.Bias} + zone.DaylightBias) * ticksPerMinute;
    if (zone.DaylightDate.wMonth == 0)
    {
        return -std::int64_t{zone.Bias} * ticksPerMinute;
    }
    if (zone.StandardDate.wMonth == 0)
    {
        return std::nullopt; // a summer without an end
    }
    std::optional<bool> const behindDaylight = IsBehind(Moved(ticks, isUtc ? standard : 0), zone.DaylightDate);
    std::optional<bool> const behindStandard = IsBehind(Moved(ticks, isUtc ? daylight : 0), zone.StandardDate);
    if (!behindDaylight || !behindStandard)
    {
        return std::nullopt;
    }
    bool const isSummer = IsEarlierInTheYear(zone.DaylightDate, zone.StandardDate)
        ? *behindDaylight && !*behindStandard
        : *behindDaylight || !*behindStandard;
    return isSummer ? daylight : standard;
}

/// Both conversions: `direction` is 1 to local time and -1 back.
BOOL Convert(TIME_ZONE_INFORMATION const * zone, SYSTEMTIME const * from, SYSTEMTIME * to, int direction)
{
    FILETIME time;
    if (!SystemTimeToFileTime(from, &time))
    {
        return FALSE;
    }
    std::int64_t const ticks = static_cast<std::int64_t>(TicksOf(time));
    bool const isUtc = direction > 0;
    std::optional<std::int64_t> const offset = zone != nullptr ? OffsetByRules(*zone, isUtc, ticks)
        : isUtc                                                ? OffsetTicksAt(UnixSecondOf(ticks))
                                                               : OffsetOfLocal(ticks);
    if (!offset)
    {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    FILETIME const result = FileTimeOf(static_cast<std::uint64_t>(Moved(ticks, direction * *offset)));
    return FileTimeToSystemTime(&result, to);
}

} // namespace

BOOL WINAPI
SystemTimeToTzSpecificLocalTime(TIME_ZONE_INFORMATION const * zone, SYSTEMTIME const * utc, SYSTEMTIME * local)
{
    return Convert(zone, utc, local, 1);
}

BOOL WINAPI
TzSpecificLocalTimeToSystemTime(TIME_ZONE_INFORMATION const * zone, SYSTEMTIME const * local, SYSTEMTIME * utc)
{
    return Convert(zone, local, utc, -1);
}
