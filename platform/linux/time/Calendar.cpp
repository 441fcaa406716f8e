#include <chrono>

#include <kvcore/platform/include/errors.h>
#include <kvcore/platform/include/timeapi.h>

#include "Ticks.h"

using namespace kv::platform;
using namespace std::chrono;

namespace
{

constexpr sys_days firstDay = 1601y / January / 1;

BOOL Refuse()
{
    SetLastError(ERROR_INVALID_PARAMETER);
    return FALSE;
}

} // namespace

BOOL WINAPI SystemTimeToFileTime(SYSTEMTIME const * when, FILETIME * ticks)
{
    if (when->wYear < 1601 || when->wYear > 30827)
    {
        return Refuse();
    }
    year_month_day const date = year(when->wYear) / month(when->wMonth) / day(when->wDay);
    // Asked of the numbers, since a calendar month and day are bytes that a 16-bit number would be cut to.
    bool const isDate = when->wMonth <= 12 && when->wDay <= 31 && date.ok();
    if (!isDate || when->wHour > 23 || when->wMinute > 59 || when->wSecond > 59 || when->wMilliseconds > 999)
    {
        return Refuse();
    }
    milliseconds const time =
        hours(when->wHour) + minutes(when->wMinute) + seconds(when->wSecond) + milliseconds(when->wMilliseconds);
    std::int64_t const days = (sys_days(date) - firstDay).count();
    *ticks = FileTimeOf(static_cast<std::uint64_t>(days * ticksPerDay + time.count() * ticksPerMillisecond));
    return TRUE;
}

BOOL WINAPI FileTimeToSystemTime(FILETIME const * ticks, SYSTEMTIME * when)
{
    std::int64_t const value = static_cast<std::int64_t>(TicksOf(*ticks));
    if (value < 0)
    {
        return Refuse();
    }
    sys_days const dayOfDate = firstDay + days(value / ticksPerDay);
    year_month_day const date(dayOfDate);
    hh_mm_ss const time(milliseconds(value % ticksPerDay / ticksPerMillisecond));
    when->wYear = static_cast<WORD>(int(date.year()));
    when->wMonth = static_cast<WORD>(unsigned(date.month()));
    when->wDayOfWeek = static_cast<WORD>(weekday(dayOfDate).c_encoding());
    when->wDay = static_cast<WORD>(unsigned(date.day()));
    when->wHour = static_cast<WORD>(time.hours().count());
    when->wMinute = static_cast<WORD>(time.minutes().count());
    when->wSecond = static_cast<WORD>(time.seconds().count());
    when->wMilliseconds = static_cast<WORD>(time.subseconds().count());
    return TRUE;
}

LONG WINAPI CompareFileTime(FILETIME const * left, FILETIME const * right)
{
    std::uint64_t const a = TicksOf(*left);
    std::uint64_t const b = TicksOf(*right);
    return a < b ? -1 : a > b ? 1 : 0;
}
