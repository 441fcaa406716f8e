#include <kvcore/platform/win32.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace
{

constexpr DWORD before = 77; // no call sets it

FILETIME FileTimeOf(unsigned __int64 ticks)
{
    return {static_cast<DWORD>(ticks), static_cast<DWORD>(ticks >> 32)};
}

unsigned __int64 TicksOf(FILETIME const & time)
{
    return static_cast<unsigned __int64>(time.dwHighDateTime) << 32 | time.dwLowDateTime;
}

std::string Text(SYSTEMTIME const & when)
{
    char text[64];
    std::snprintf(
        text, sizeof text, "%u-%02u-%02u %02u:%02u:%02u.%03u", when.wYear, when.wMonth, when.wDay, when.wHour,
        when.wMinute, when.wSecond, when.wMilliseconds);
    return text;
}

TIME_ZONE_INFORMATION NewYork()
{
    TIME_ZONE_INFORMATION zone{};
    zone.Bias = 300;
    zone.DaylightBias = -60;
    zone.StandardDate = {0, 11, 0, 1, 2, 0, 0, 0};
    zone.DaylightDate = {0, 3, 0, 2, 2, 0, 0, 0};
    return zone;
}

TIME_ZONE_INFORMATION Sydney()
{
    TIME_ZONE_INFORMATION zone{};
    zone.Bias = -600;
    zone.DaylightBias = -60;
    zone.StandardDate = {0, 4, 0, 1, 3, 0, 0, 0};
    zone.DaylightDate = {0, 10, 0, 1, 2, 0, 0, 0};
    return zone;
}

TIME_ZONE_INFORMATION Berlin()
{
    TIME_ZONE_INFORMATION zone{};
    zone.Bias = -60;
    zone.DaylightBias = -60;
    zone.StandardDate = {0, 10, 0, 5, 3, 0, 0, 0};
    zone.DaylightDate = {0, 3, 0, 5, 2, 0, 0, 0};
    return zone;
}

struct ZoneCase
{
    TIME_ZONE_INFORMATION (*zone)();
    SYSTEMTIME utc;
    char const * local;
};

TEST(TimeZone, UTCBecomesLocalByTheRulesOfTheSeason)
{
    ZoneCase const rows[] = {
        {NewYork, {2026, 1, 0, 15, 12, 0, 0, 0}, "2026-01-15 07:00:00.000"},
        {NewYork, {2026, 7, 0, 15, 12, 0, 0, 0}, "2026-07-15 08:00:00.000"},
        {NewYork, {2026, 3, 0, 8, 6, 59, 59, 999}, "2026-03-08 01:59:59.999"},
        {NewYork, {2026, 3, 0, 8, 7, 0, 0, 0}, "2026-03-08 03:00:00.000"},
        {NewYork, {2026, 11, 0, 1, 5, 59, 59, 999}, "2026-11-01 01:59:59.999"},
        {NewYork, {2026, 11, 0, 1, 6, 0, 0, 0}, "2026-11-01 01:00:00.000"},
        {NewYork, {2006, 3, 0, 20, 12, 0, 0, 0}, "2006-03-20 08:00:00.000"},
        {NewYork, {1601, 1, 0, 2, 0, 0, 0, 0}, "1601-01-01 19:00:00.000"},
        {NewYork, {30827, 12, 0, 31, 23, 0, 0, 0}, "30827-12-31 18:00:00.000"},
        {Sydney, {2026, 1, 0, 15, 12, 0, 0, 0}, "2026-01-15 23:00:00.000"},
        {Sydney, {2026, 7, 0, 15, 12, 0, 0, 0}, "2026-07-15 22:00:00.000"},
        {Sydney, {2026, 4, 0, 4, 15, 59, 59, 999}, "2026-04-05 02:59:59.999"},
        {Sydney, {2026, 4, 0, 4, 16, 0, 0, 0}, "2026-04-05 02:00:00.000"},
        {Sydney, {2026, 12, 0, 31, 20, 0, 0, 0}, "2027-01-01 07:00:00.000"},
        {Sydney, {30827, 12, 0, 31, 23, 0, 0, 0}, "30828-01-01 10:00:00.000"},
        {Berlin, {2026, 3, 0, 29, 0, 59, 59, 999}, "2026-03-29 01:59:59.999"},
        {Berlin, {2026, 3, 0, 29, 1, 0, 0, 0}, "2026-03-29 03:00:00.000"},
        {Berlin, {2028, 3, 0, 26, 1, 0, 0, 0}, "2028-03-26 03:00:00.000"},
        {Berlin, {2026, 10, 0, 25, 0, 59, 59, 999}, "2026-10-25 02:59:59.999"},
        {Berlin, {2026, 10, 0, 25, 1, 0, 0, 0}, "2026-10-25 02:00:00.000"},
    };
    for (ZoneCase const & row : rows)
    {
        TIME_ZONE_INFORMATION const zone = row.zone();
        SYSTEMTIME local{};
        SetLastError(before);
        EXPECT_TRUE(SystemTimeToTzSpecificLocalTime(&zone, &row.utc, &local)) << Text(row.utc);
        EXPECT_EQ(Text(local), row.local) << Text(row.utc);
        EXPECT_EQ(GetLastError(), before);
    }
}

struct LocalCase
{
    TIME_ZONE_INFORMATION (*zone)();
    SYSTEMTIME local;
    char const * utc;
};

TEST(TimeZone, LocalTimeBecomesUTCByTheRulesOfTheSeason)
{
    LocalCase const rows[] = {
        {NewYork, {2026, 1, 0, 15, 12, 0, 0, 0}, "2026-01-15 17:00:00.000"},
        {NewYork, {2026, 7, 0, 15, 12, 0, 0, 0}, "2026-07-15 16:00:00.000"},
        {NewYork, {2026, 3, 0, 8, 1, 59, 59, 999}, "2026-03-08 06:59:59.999"},
        {NewYork, {2026, 3, 0, 8, 2, 30, 0, 0}, "2026-03-08 06:30:00.000"}, // left out
        {NewYork, {2026, 3, 0, 8, 3, 0, 0, 0}, "2026-03-08 07:00:00.000"},
        {NewYork, {2026, 11, 0, 1, 0, 59, 59, 0}, "2026-11-01 04:59:59.000"},
        {NewYork, {2026, 11, 0, 1, 1, 30, 0, 0}, "2026-11-01 05:30:00.000"}, // the first of two
        {NewYork, {2026, 11, 0, 1, 2, 0, 0, 0}, "2026-11-01 07:00:00.000"},
        {NewYork, {1601, 1, 0, 1, 0, 0, 0, 0}, "1601-01-01 05:00:00.000"},
        {NewYork, {30827, 12, 0, 31, 23, 0, 0, 0}, "30828-01-01 04:00:00.000"},
        {Sydney, {2026, 1, 0, 15, 12, 0, 0, 0}, "2026-01-15 01:00:00.000"},
        {Sydney, {2026, 7, 0, 15, 12, 0, 0, 0}, "2026-07-15 02:00:00.000"},
        {Sydney, {2026, 4, 0, 5, 2, 59, 59, 999}, "2026-04-04 15:59:59.999"},
        {Sydney, {2026, 4, 0, 5, 3, 0, 0, 0}, "2026-04-04 17:00:00.000"},
    };
    for (LocalCase const & row : rows)
    {
        TIME_ZONE_INFORMATION const zone = row.zone();
        SYSTEMTIME utc{};
        SetLastError(before);
        EXPECT_TRUE(TzSpecificLocalTimeToSystemTime(&zone, &row.local, &utc)) << Text(row.local);
        EXPECT_EQ(Text(utc), row.utc) << Text(row.local);
        EXPECT_EQ(GetLastError(), before);
    }
}

TEST(TimeZone, AZoneWithoutASummersDateHasNoSeasons)
{
    TIME_ZONE_INFORMATION withoutSummer = NewYork();
    withoutSummer.DaylightDate.wMonth = 0;
    TIME_ZONE_INFORMATION withoutDates = withoutSummer;
    withoutDates.StandardDate.wMonth = 0;
    SYSTEMTIME const july{2026, 7, 0, 15, 12, 0, 0, 0};
    for (TIME_ZONE_INFORMATION const & zone : {withoutSummer, withoutDates})
    {
        SYSTEMTIME result{};
        EXPECT_TRUE(SystemTimeToTzSpecificLocalTime(&zone, &july, &result));
        EXPECT_EQ(Text(result), "2026-07-15 07:00:00.000");
        EXPECT_TRUE(TzSpecificLocalTimeToSystemTime(&zone, &july, &result));
        EXPECT_EQ(Text(result), "2026-07-15 17:00:00.000");
    }
}

TEST(TimeZone, ASeasonMayBeginAtAGivenDate)
{
    TIME_ZONE_INFORMATION zone = NewYork();
    zone.DaylightDate = {2026, 3, 0, 20, 2, 0, 0, 0};
    zone.StandardDate = {2026, 11, 0, 15, 2, 0, 0, 0};
    struct
    {
        SYSTEMTIME utc;
        char const * local;
    } const rows[] = {
        {{2026, 3, 0, 20, 6, 59, 59, 0}, "2026-03-20 01:59:59.000"},
        {{2026, 3, 0, 20, 7, 0, 0, 0}, "2026-03-20 03:00:00.000"},
        {{2026, 11, 0, 15, 5, 59, 59, 0}, "2026-11-15 01:59:59.000"},
        {{2026, 11, 0, 15, 6, 0, 0, 0}, "2026-11-15 01:00:00.000"},
    };
    for (auto const & row : rows)
    {
        SYSTEMTIME local{};
        EXPECT_TRUE(SystemTimeToTzSpecificLocalTime(&zone, &row.utc, &local));
        EXPECT_EQ(Text(local), row.local);
    }
}

void ExpectRefusal(TIME_ZONE_INFORMATION const & zone, SYSTEMTIME const & when, bool toLocal)
{
    SYSTEMTIME result{9, 9, 9, 9, 9, 9, 9, 9};
    SetLastError(before);
    auto const convert = toLocal ? SystemTimeToTzSpecificLocalTime : TzSpecificLocalTimeToSystemTime;
    EXPECT_FALSE(convert(&zone, &when, &result)) << Text(when);
    EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
    EXPECT_EQ(Text(result), "9-09-09 09:09:09.009");
}

TEST(TimeZone, RefusesWrongDatesRulesAndResults)
{
    SYSTEMTIME const good{2026, 7, 0, 15, 12, 0, 0, 0};
    SYSTEMTIME const wrong{2026, 13, 0, 1, 0, 0, 0, 0};
    SYSTEMTIME const first{1601, 1, 0, 1, 0, 0, 0, 0};
    TIME_ZONE_INFORMATION sixth = NewYork();
    sixth.StandardDate.wDay = 6;
    for (bool const toLocal : {false, true})
    {
        ExpectRefusal(NewYork(), wrong, toLocal);
        ExpectRefusal(sixth, good, toLocal);
    }
    ExpectRefusal(NewYork(), first, true);
    ExpectRefusal(Sydney(), first, false);
    TIME_ZONE_INFORMATION endlessSummer = NewYork();
    endlessSummer.StandardDate.wMonth = 0;
    ExpectRefusal(endlessSummer, good, true);
    ExpectRefusal(endlessSummer, good, false);
    TIME_ZONE_INFORMATION distant = NewYork();
    distant.Bias = 0x7FFFFFFF;
    ExpectRefusal(distant, good, true);
}

TEST(TimeZone, RandomRulesNeverBreakAnything)
{
    std::uint32_t state = 1;
    auto const next = [&state]
    {
        state = state * 1664525 + 1013904223;
        return state >> 8;
    };
    for (int i = 0; i < 20000; i++)
    {
        auto const date = [&](WORD year)
        { return SYSTEMTIME{year, WORD(next() % 14), WORD(next() % 8), WORD(next() % 7), WORD(next() % 25), 0, 0, 0}; };
        TIME_ZONE_INFORMATION zone{};
        zone.Bias = static_cast<LONG>(next() << 8);
        zone.StandardBias = static_cast<LONG>(next() << 8);
        zone.DaylightBias = static_cast<LONG>(next() << 8);
        zone.StandardDate = date(0);
        zone.DaylightDate = date(WORD(next() % 2 * 2026));
        SYSTEMTIME const when = date(WORD(1600 + next() % 29300));
        SYSTEMTIME result{};
        for (auto const convert : {SystemTimeToTzSpecificLocalTime, TzSpecificLocalTimeToSystemTime})
        {
            if (convert(&zone, &when, &result))
            {
                ASSERT_TRUE(result.wYear >= 1601 && result.wYear <= 30828) << Text(result);
            }
        }
    }
}

/// Minutes that are to be added to the system's local time, by the season of now.
__int64 BiasOfNow()
{
    TIME_ZONE_INFORMATION zone{};
    DWORD const season = GetTimeZoneInformation(&zone);
    return zone.Bias +
        (season == TIME_ZONE_ID_DAYLIGHT       ? zone.DaylightBias
             : season == TIME_ZONE_ID_STANDARD ? zone.StandardBias
                                               : 0);
}

TEST(TimeZone, FileTimesMoveByTheOffsetOfNowAndWrap)
{
    unsigned __int64 const bias = static_cast<unsigned __int64>(BiasOfNow() * 600000000);
    for (unsigned __int64 const ticks :
         {0ull, 1ull, 116444736000000000ull, 0x7FFFFFFFFFFFFFFFull, 0x8000000000000000ull, ~0ull})
    {
        FILETIME const time = FileTimeOf(ticks);
        FILETIME moved;
        SetLastError(before);
        EXPECT_TRUE(FileTimeToLocalFileTime(&time, &moved));
        EXPECT_EQ(TicksOf(moved), ticks - bias);
        EXPECT_TRUE(LocalFileTimeToFileTime(&time, &moved));
        EXPECT_EQ(TicksOf(moved), ticks + bias);
        EXPECT_EQ(GetLastError(), before);
    }
}

TEST(TimeZone, TheSystemsZoneIsWhole)
{
    TIME_ZONE_INFORMATION zone;
    std::memset(&zone, 0xCC, sizeof zone);
    DWORD const season = GetTimeZoneInformation(&zone);
    EXPECT_LE(season, TIME_ZONE_ID_DAYLIGHT);
    EXPECT_LE(std::abs(zone.Bias), 14 * 60);
    EXPECT_EQ(zone.StandardBias, 0);
    for (auto const & name : {zone.StandardName, zone.DaylightName})
    {
        WCHAR const * const end = std::find(name, name + 32, TEXT('\0'));
        EXPECT_NE(end, name);
        EXPECT_NE(end, name + 32);
    }
    bool const hasSeasons = season != TIME_ZONE_ID_UNKNOWN;
    for (SYSTEMTIME const & rule : {zone.StandardDate, zone.DaylightDate})
    {
        EXPECT_EQ(rule.wYear, 0);
        EXPECT_EQ(rule.wMonth != 0, hasSeasons);
        EXPECT_EQ(rule.wDay != 0, hasSeasons);
        EXPECT_LE(rule.wDay, 5);
        EXPECT_LE(rule.wDayOfWeek, 6);
    }
}

TEST(TimeZone, TheSystemsZoneConvertsThereAndBack)
{
    for (WORD month = 1; month <= 12; month++)
    {
        // At noon of a day in the middle of a month, no clock is changed.
        SYSTEMTIME const when{2026, month, 0, 15, 12, 30, 15, 7};
        SYSTEMTIME local{};
        SYSTEMTIME utc{};
        ASSERT_TRUE(SystemTimeToTzSpecificLocalTime(nullptr, &when, &local));
        ASSERT_TRUE(TzSpecificLocalTimeToSystemTime(nullptr, &local, &utc));
        EXPECT_EQ(Text(utc), Text(when));
    }
}

TEST(TimeZone, TheSystemsZoneConvertsNowByTheOffsetOfNow)
{
    SYSTEMTIME now;
    GetSystemTime(&now);
    SYSTEMTIME local{};
    ASSERT_TRUE(SystemTimeToTzSpecificLocalTime(nullptr, &now, &local));
    FILETIME utcTicks;
    FILETIME localTicks;
    ASSERT_TRUE(SystemTimeToFileTime(&now, &utcTicks));
    ASSERT_TRUE(SystemTimeToFileTime(&local, &localTicks));
    EXPECT_EQ(static_cast<__int64>(TicksOf(utcTicks) - TicksOf(localTicks)), BiasOfNow() * 600000000);
}

} // namespace
