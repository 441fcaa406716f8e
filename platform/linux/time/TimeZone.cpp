// The system's time zone in the form that Win32 describes zones in.

#include <algorithm>
#include <array>
#include <chrono>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <utility>

#include <unicode/ucal.h>

#include <kvcore/platform/include/timeapi.h>

#include "Ticks.h"
#include "ZoneOffset.h"

using namespace kv::platform;

namespace
{

constexpr std::time_t secondsPerDay = 24 * 60 * 60;

/// One change of the clock: the first second at which another offset is in force.
struct Change
{
    std::time_t when;
    std::int64_t before;
    std::int64_t after;
};

/// The change between two seconds whose offsets differ.
Change FindChange(std::time_t from, std::time_t to)
{
    std::int64_t const before = OffsetSecondsAt(from);
    while (to - from > 1)
    {
        std::time_t const middle = from + (to - from) / 2;
        (OffsetSecondsAt(middle) == before ? from : to) = middle;
    }
    return {to, before, OffsetSecondsAt(to)};
}

/// The two changes of the year that `now` lies in, or nothing if there are not exactly two, there and back.
std::optional<std::pair<Change, Change>> FindSeasons(std::time_t now)
{
    using namespace std::chrono;
    std::int64_t const offsetNow = OffsetSecondsAt(now);
    year_month_day const today(floor<days>(sys_seconds(seconds(now + offsetNow))));
    std::time_t const first = sys_seconds(sys_days(today.year() / January / 1)).time_since_epoch().count() - offsetNow;
    std::time_t const end = first + 366 * secondsPerDay;
    std::array<Change, 2> changes{};
    std::size_t count = 0;
    for (std::time_t day = first; day < end; day += secondsPerDay)
    {
        if (OffsetSecondsAt(day) == OffsetSecondsAt(day + secondsPerDay))
        {
            continue;
        }
        if (count == changes.size())
        {
            return std::nullopt;
        }
        changes[count++] = FindChange(day, day + secondsPerDay);
    }
    if (count != changes.size() || changes[0].after != changes[1].before || changes[0].before != changes[1].after)
    {
        return std::nullopt;
    }
    return std::pair(changes[0], changes[1]);
}

/// The rule that a change follows each year: the n-th of a weekday in a month, by the clock before the change.
SYSTEMTIME RuleOf(Change const & change)
{
    std::int64_t const local = change.when + change.before;
    FILETIME const ticks = FileTimeOf(static_cast<std::uint64_t>(ticksAtUnixEpoch + local * ticksPerSecond));
    SYSTEMTIME rule{};
    FileTimeToSystemTime(&ticks, &rule);
    using namespace std::chrono;
    year_month_day_last const last = year(rule.wYear) / month(rule.wMonth) / std::chrono::last;
    bool const isLast = rule.wDay + 7u > unsigned(last.day());
    rule.wDay = static_cast<WORD>(isLast ? 5 : (rule.wDay - 1) / 7 + 1);
    rule.wYear = 0;
    return rule;
}

using ZoneName = WCHAR[32];

void CopyName(ZoneName & name, std::u16string const & text)
{
    std::size_t const length = std::min(text.size(), std::size(name) - 1);
    std::copy_n(text.begin(), length, name);
    name[length] = u'\0';
}

/// The names in the zone database are short ones, as "EST".
std::u16string ShortName(bool daylight)
{
    char const * const name = tzname[daylight ? 1 : 0];
    std::string const text = name != nullptr ? name : "";
    return std::u16string(text.begin(), text.end());
}

using Calendar = std::unique_ptr<UCalendar, decltype(&ucal_close)>;

/// ICU's calendar of the system's zone, or null if ICU takes the system to be in another one.
Calendar OpenCalendar(std::int64_t offsetNow)
{
    std::array<UChar, 128> id;
    UErrorCode error = U_ZERO_ERROR;
    int32_t const length = ucal_getHostTimeZone(id.data(), static_cast<int32_t>(id.size()), &error);
    Calendar calendar(ucal_open(id.data(), length, "en", UCAL_GREGORIAN, &error), &ucal_close);
    if (U_FAILURE(error))
    {
        return Calendar(nullptr, &ucal_close);
    }
    int32_t const offset =
        ucal_get(calendar.get(), UCAL_ZONE_OFFSET, &error) + ucal_get(calendar.get(), UCAL_DST_OFFSET, &error);
    return U_SUCCESS(error) && offset == offsetNow * 1000 ? std::move(calendar) : Calendar(nullptr, &ucal_close);
}

std::u16string DisplayName(UCalendar const * calendar, UCalendarDisplayNameType type)
{
    std::array<UChar, 128> name;
    UErrorCode error = U_ZERO_ERROR;
    int32_t const length =
        ucal_getTimeZoneDisplayName(calendar, type, "en", name.data(), static_cast<int32_t>(name.size()), &error);
    bool const isWhole = U_SUCCESS(error) && length <= static_cast<int32_t>(name.size());
    return isWhole ? std::u16string(name.data(), static_cast<std::size_t>(length)) : std::u16string();
}

/// Names as people write them, "Eastern Standard Time"; the database's short ones where ICU does not know the zone.
void FillNames(TIME_ZONE_INFORMATION & zone, std::int64_t offsetNow)
{
    // ICU reads the system's zone into a buffer that all threads share.
    static std::mutex mutex;
    std::lock_guard const lock(mutex);
    Calendar const calendar = OpenCalendar(offsetNow);
    std::u16string standard;
    std::u16string daylight;
    if (calendar != nullptr)
    {
        standard = DisplayName(calendar.get(), UCAL_STANDARD);
        daylight = DisplayName(calendar.get(), UCAL_DST);
    }
    CopyName(zone.StandardName, standard.empty() ? ShortName(false) : standard);
    CopyName(zone.DaylightName, daylight.empty() ? ShortName(true) : daylight);
}

} // namespace

DWORD WINAPI GetTimeZoneInformation(TIME_ZONE_INFORMATION * zone)
{
    std::time_t const now = UnixSecondOf(TicksNow());
    std::int64_t const offset = OffsetSecondsAt(now);
    *zone = {};
    FillNames(*zone, offset);
    auto const seasons = FindSeasons(now);
    if (!seasons)
    {
        zone->Bias = static_cast<LONG>(-offset / 60);
        return TIME_ZONE_ID_UNKNOWN;
    }
    bool const isSummerFirst = seasons->first.after > seasons->first.before;
    Change const & toDaylight = isSummerFirst ? seasons->first : seasons->second;
    Change const & toStandard = isSummerFirst ? seasons->second : seasons->first;
    zone->Bias = static_cast<LONG>(-toStandard.after / 60);
    zone->DaylightBias = static_cast<LONG>((toDaylight.before - toDaylight.after) / 60);
    zone->StandardDate = RuleOf(toStandard);
    zone->DaylightDate = RuleOf(toDaylight);
    return offset == toDaylight.after ? TIME_ZONE_ID_DAYLIGHT : TIME_ZONE_ID_STANDARD;
}
