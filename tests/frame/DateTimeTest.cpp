#include <kvcore/frame/DateTime.h>

#include <bit>
#include <cstring>
#include <limits>
#include <type_traits>

#include <kvcore/frame/TickSpan.h>
#include <kvcore/platform/win32.h>

// googletest prints values that differ with these.
static void PrintTo(TimeSpan const & span, std::ostream * out)
{
    *out << span.GetTicks() << " ticks";
}

namespace
{

constexpr __int64 lowest = std::numeric_limits<__int64>::min();
constexpr __int64 highest = std::numeric_limits<__int64>::max();

DateTime At(unsigned __int64 ticks)
{
    return std::bit_cast<DateTime>(FILETIME{static_cast<DWORD>(ticks), static_cast<DWORD>(ticks >> 32)});
}

unsigned __int64 TicksOf(DateTime const & time)
{
    FILETIME fileTime;
    time.GetAsFileTime(fileTime);
    return static_cast<unsigned __int64>(fileTime.dwHighDateTime) << 32 | fileTime.dwLowDateTime;
}

bool AreEqual(SYSTEMTIME const & left, SYSTEMTIME const & right)
{
    return std::memcmp(&left, &right, sizeof left) == 0;
}

SYSTEMTIME Garbage()
{
    SYSTEMTIME garbage;
    std::memset(&garbage, 0xCC, sizeof garbage);
    return garbage;
}

constexpr unsigned __int64 tickOf2000 = 125'911'584'000'000'000; // 2000-01-01

} // namespace

TEST(TimeSpan, UnitsAreTicksOf100Nanoseconds)
{
    EXPECT_EQ(TimeSpan::TicksPerMillisecond(), 10000);
    EXPECT_EQ(TimeSpan::TicksPerSecond(), 10000000);
    EXPECT_EQ(TimeSpan::TicksPerMinute(), 600000000);
    EXPECT_EQ(TimeSpan::TicksPerHour(), 36000000000);
    EXPECT_EQ(TimeSpan::TicksPerDay(), 864000000000);
    static_assert(std::is_same_v<decltype(TimeSpan::TicksPerMillisecond()), __int64>);
}

TEST(TimeSpan, IsMadeOfTicksOrParts)
{
    EXPECT_EQ(TimeSpan().GetTicks(), 0);
    EXPECT_EQ(TimeSpan(-7).GetTicks(), -7);
    EXPECT_EQ(TimeSpan(1, 2, 3).GetTicks(), 37230000000);
    EXPECT_EQ(TimeSpan(1, 1, 2, 3).GetTicks(), 901230000000);
    EXPECT_EQ(TimeSpan(1, 1, 2, 3, 4).GetTicks(), 901230040000);
    EXPECT_EQ(TimeSpan(-1, 0, 0).GetTicks(), -36000000000);
    EXPECT_EQ(TimeSpan(1, -60, 0).GetTicks(), 0);
    EXPECT_EQ(TimeSpan(0, 0, 0, 0, -1).GetTicks(), -10000);
    TimeSpan assigned;
    assigned = TimeSpan(9);
    EXPECT_EQ(assigned, TimeSpan(9));
}

TEST(TimeSpan, PartsAreCountedIn64Bits)
{
    constexpr int most = std::numeric_limits<int>::max();
    EXPECT_EQ(TimeSpan(0, 0, most).GetTicks(), most * 10000000ll);
    EXPECT_EQ(TimeSpan(0, most, 0).GetTicks(), most * 600000000ll);
    EXPECT_EQ(TimeSpan(0, 0, 0, 0, most).GetTicks(), most * 10000ll);
}

TEST(TimeSpan, IsMadeOfOneUnit)
{
    for (int const count : {0, 1, -1, 2, 12345, -12345})
    {
        EXPECT_EQ(TimeSpan::FromDays(count).GetTicks(), count * TimeSpan::TicksPerDay());
        EXPECT_EQ(TimeSpan::FromHours(count).GetTicks(), count * TimeSpan::TicksPerHour());
        EXPECT_EQ(TimeSpan::FromMinutes(count).GetTicks(), count * TimeSpan::TicksPerMinute());
        EXPECT_EQ(TimeSpan::FromSeconds(count).GetTicks(), count * TimeSpan::TicksPerSecond());
        EXPECT_EQ(TimeSpan::FromMilliseconds(count).GetTicks(), count * TimeSpan::TicksPerMillisecond());
    }
}

TEST(TimeSpan, FractionsAndWholesAreOfTheMagnitude)
{
    for (int const sign : {1, -1})
    {
        TimeSpan const span(sign * TimeSpan(3, 4, 5, 6, 789).GetTicks());
        EXPECT_EQ(span.GetDayFraction(), 3);
        EXPECT_EQ(span.GetHourFraction(), 4);
        EXPECT_EQ(span.GetMinuteFraction(), 5);
        EXPECT_EQ(span.GetSecondFraction(), 6);
        EXPECT_EQ(span.GetMillisecondFraction(), 789);
        TimeSpan const half(sign * TimeSpan::TicksPerDay() / 2);
        EXPECT_EQ(half.GetAsDays(), 0.5);
        EXPECT_EQ(half.GetAsHours(), 12.0);
        EXPECT_EQ(half.GetAsMinutes(), 720.0);
        EXPECT_EQ(half.GetAsSeconds(), 43200.0);
        EXPECT_EQ(half.GetAsMilliseconds(), 43200000.0);
    }
}

TEST(TimeSpan, MinusOneSecondHasPositiveParts)
{
    TimeSpan const span = TimeSpan::FromSeconds(-1);
    EXPECT_EQ(span.GetSecondFraction(), 1);
    EXPECT_EQ(span.GetAsSeconds(), 1.0);
    EXPECT_EQ(span.ToString(), TEXT("-PT0H0M1S"));
}

TEST(TimeSpan, TheLongestNegativeSpanHasAMagnitude)
{
    TimeSpan const span(lowest);
    EXPECT_EQ(span.GetDayFraction(), 10675199);
    EXPECT_EQ(span.GetHourFraction(), 2);
    EXPECT_EQ(span.GetMinuteFraction(), 48);
    EXPECT_EQ(span.GetSecondFraction(), 5);
    EXPECT_EQ(span.GetMillisecondFraction(), 477);
    EXPECT_EQ(span.ToString(), TEXT("-P10675199DT2H48M5S.4775808"));
}

TEST(TimeSpan, AddsAndSubtracts)
{
    TimeSpan const a(7);
    TimeSpan const b(10);
    EXPECT_EQ(a + b, TimeSpan(17));
    EXPECT_EQ(a - b, TimeSpan(-3));
    TimeSpan sum(a);
    EXPECT_EQ(&(sum += b), &sum);
    EXPECT_EQ(sum, TimeSpan(17));
}

TEST(TimeSpan, MinusAssignAdds)
{
    TimeSpan span(7);
    EXPECT_EQ(&(span -= TimeSpan(10)), &span);
    EXPECT_EQ(span, TimeSpan(17));
}

TEST(TimeSpan, SumsWrap)
{
    EXPECT_EQ(TimeSpan(highest) + TimeSpan(1), TimeSpan(lowest));
    EXPECT_EQ(TimeSpan(lowest) - TimeSpan(1), TimeSpan(highest));
}

TEST(TimeSpan, ComparesAsASignedNumber)
{
    TimeSpan const values[] = {lowest, -1, 0, 1, highest};
    for (TimeSpan const & left : values)
    {
        for (TimeSpan const & right : values)
        {
            auto const order = &left - &right;
            EXPECT_EQ(left == right, order == 0);
            EXPECT_EQ(left != right, order != 0);
            EXPECT_EQ(left < right, order < 0);
            EXPECT_EQ(left <= right, order <= 0);
            EXPECT_EQ(left > right, order > 0);
            EXPECT_EQ(left >= right, order >= 0);
        }
    }
}

TEST(TimeSpan, PrintsWithTheFractionBehindTheUnit)
{
    struct
    {
        TimeSpan span;
        WCHAR const * text;
    } const rows[] = {
        {TimeSpan(), TEXT("PT0H0M0S")},
        {TimeSpan::FromDays(2), TEXT("P2DT0H0M0S")},
        {TimeSpan::FromDays(-2), TEXT("-P2DT0H0M0S")},
        {TimeSpan(1), TEXT("PT0H0M0S.0000001")},
        {TimeSpan(-1), TEXT("-PT0H0M0S.0000001")},
        {TimeSpan(905000000), TEXT("PT0H1M30S.5")},
        {TimeSpan(9000000), TEXT("PT0H0M0S.9")},
        {TimeSpan(100000000), TEXT("PT0H0M10S")},
        {TimeSpan(12, 34, 56), TEXT("PT12H34M56S")},
        {TimeSpan(1, 23, 59, 59, 999), TEXT("P1DT23H59M59S.999")},
        {TimeSpan(highest), TEXT("P10675199DT2H48M5S.4775807")},
    };
    for (auto const & row : rows)
    {
        EXPECT_EQ(row.span.ToString(), row.text) << row.span.GetTicks();
    }
}

TEST(DateTime, IsAFileTime)
{
    static_assert(sizeof(DateTime) == 8 && std::is_trivially_copyable_v<DateTime>);
    EXPECT_EQ(TicksOf(DateTime()), 0u);
    FILETIME const fileTime{0x89ABCDEF, 0x01234567};
    DateTime const time(fileTime);
    EXPECT_EQ(TicksOf(time), 0x0123456789ABCDEFu);
    EXPECT_EQ(std::memcmp(&time, &fileTime, sizeof time), 0);

    DateTime assigned;
    assigned = fileTime;
    EXPECT_EQ(assigned, time);
    DateTime set;
    set.SetFileTime(fileTime);
    EXPECT_EQ(set, time);
    DateTime const copied(time);
    EXPECT_EQ(copied, time);
    DateTime copyAssigned;
    copyAssigned = time;
    EXPECT_EQ(copyAssigned, time);
}

TEST(DateTime, NowIsTheSystemsClock)
{
    FILETIME before;
    FILETIME after;
    GetSystemTimeAsFileTime(&before);
    DateTime const now = DateTime::Now();
    DateTime set;
    set.SetNow();
    GetSystemTimeAsFileTime(&after);
    EXPECT_LE(DateTime(before), now);
    EXPECT_LE(now, set);
    EXPECT_LE(set, DateTime(after));
}

TEST(DateTime, TakesDatesInUTC)
{
    struct
    {
        SYSTEMTIME when; // the weekday is a wrong one
        unsigned __int64 ticks;
        WORD weekday;
    } const rows[] = {
        {{1601, 1, 9, 1, 0, 0, 0, 0}, 0, 1},
        {{1601, 1, 9, 2, 0, 0, 0, 1}, 864000010000, 2},
        {{1970, 1, 9, 1, 0, 0, 0, 0}, 116444736000000000, 4},
        {{2000, 2, 9, 29, 23, 59, 59, 999}, 125963423999990000, 2},
        {{2011, 9, 9, 22, 4, 56, 40, 250}, 129611410002500000, 4},
        {{30827, 12, 9, 31, 23, 59, 59, 999}, 9223149887999990000, 5},
    };
    for (auto const & row : rows)
    {
        SYSTEMTIME const & when = row.when;
        DateTime time;
        EXPECT_TRUE(time.SetUTCTime(when));
        EXPECT_EQ(TicksOf(time), row.ticks) << when.wYear;
        EXPECT_EQ(DateTime::FromUTCTime(when), time);
        EXPECT_EQ(
            DateTime::FromUTCTime(
                when.wYear, when.wMonth, when.wDay, when.wHour, when.wMinute, when.wSecond, when.wMilliseconds),
            time);
        SYSTEMTIME back = Garbage();
        time.GetAsUTCSystemTime(back);
        SYSTEMTIME expected = when;
        expected.wDayOfWeek = row.weekday;
        EXPECT_TRUE(AreEqual(back, expected)) << when.wYear;
    }
}

TEST(DateTime, ADateThatDoesNotExistLeavesNoTime)
{
    SYSTEMTIME const rows[] = {
        {1600, 12, 0, 31, 23, 59, 59, 999}, {2004, 13, 0, 1, 0, 0, 0, 0},   {2004, 0, 0, 1, 0, 0, 0, 0},
        {2004, 1, 0, 0, 0, 0, 0, 0},        {2004, 1, 0, 32, 0, 0, 0, 0},   {2004, 2, 0, 30, 0, 0, 0, 0},
        {2004, 4, 0, 31, 0, 0, 0, 0},       {2004, 1, 0, 1, 24, 0, 0, 0},   {2004, 1, 0, 1, 0, 60, 0, 0},
        {2004, 1, 0, 1, 0, 0, 60, 0},       {2004, 1, 0, 1, 0, 0, 0, 1000}, {65535, 1, 0, 1, 0, 0, 0, 0},
        {2004, 257, 0, 1, 0, 0, 0, 0},      {2004, 1, 0, 257, 0, 0, 0, 0},
    };
    for (SYSTEMTIME const & when : rows)
    {
        DateTime utc = DateTime::Now();
        EXPECT_FALSE(utc.SetUTCTime(when));
        EXPECT_EQ(TicksOf(utc), 0u);
        DateTime local = DateTime::Now();
        EXPECT_FALSE(local.SetLocalTime(when));
        EXPECT_EQ(TicksOf(local), 0u);
        EXPECT_EQ(DateTime::FromUTCTime(when), DateTime());
        EXPECT_EQ(DateTime::FromLocalTime(when), DateTime());
    }
    DateTime time = DateTime::Now();
    EXPECT_FALSE(time.SetUTCTime(2004, 13, 1, 0, 0, 0, 0));
    EXPECT_EQ(time, DateTime());
    EXPECT_FALSE(time.SetLocalTime(2004, 13, 1, 0, 0, 0, 0));
    EXPECT_EQ(DateTime::FromUTCTime(2004, 13, 1, 0, 0, 0, 0), DateTime());
    EXPECT_EQ(DateTime::FromLocalTime(2004, 13, 1, 0, 0, 0, 0), DateTime());
}

TEST(DateTime, LocalTimesComeBackAsTheyWereSet)
{
    for (WORD month = 1; month <= 12; month++)
    {
        SYSTEMTIME when{2004, month, 0, 15, 2, 30, 59, 7};
        DateTime time;
        ASSERT_TRUE(time.SetLocalTime(when));
        EXPECT_EQ(time, DateTime::FromLocalTime(when));
        EXPECT_EQ(time, DateTime::FromLocalTime(2004, month, 15, 2, 30, 59, 7));
        SYSTEMTIME back = Garbage();
        time.GetAsLocalSystemTime(back);
        when.wDayOfWeek = back.wDayOfWeek;
        EXPECT_TRUE(AreEqual(back, when)) << month;
    }
}

TEST(DateTime, LocalTimesUseTheOffsetOfNowInEverySeason)
{
    TimeSpan const bias = DateTime::GetLocalUTCBias();
    for (WORD month = 1; month <= 12; month++)
    {
        TimeSpan const distance =
            DateTime::FromLocalTime(2004, month, 15, 12, 0, 0, 0) - DateTime::FromUTCTime(2004, month, 15, 12, 0, 0, 0);
        EXPECT_EQ(distance, bias) << month;
    }
}

TEST(DateTime, WhatHasNoDateClearsTheWholeSystemTime)
{
    for (unsigned __int64 const ticks : {0x8000000000000000ull, 0xC000000000000000ull})
    {
        SYSTEMTIME when = Garbage();
        At(ticks).GetAsUTCSystemTime(when);
        EXPECT_TRUE(AreEqual(when, SYSTEMTIME{})) << ticks;
        when = Garbage();
        At(ticks + 0x1000000000000000).GetAsLocalSystemTime(when);
        EXPECT_TRUE(AreEqual(when, SYSTEMTIME{})) << ticks;
    }
}

TEST(DateTime, TheTimeOfDayIsThatOfTheUTCDay)
{
    EXPECT_EQ(DateTime().TimeSpanSinceStartOfDay(), TimeSpan());
    EXPECT_EQ(At(tickOf2000 - 1).TimeSpanSinceStartOfDay(), TimeSpan(TimeSpan::TicksPerDay() - 1));
    EXPECT_EQ(At(tickOf2000).TimeSpanSinceStartOfDay(), TimeSpan());
    EXPECT_EQ(
        DateTime::FromUTCTime(2000, 1, 1, 12, 34, 56, 789).TimeSpanSinceStartOfDay(), TimeSpan(0, 12, 34, 56, 789));
    EXPECT_EQ((DateTime() - TimeSpan(1)).TimeSpanSinceStartOfDay(), TimeSpan(TimeSpan::TicksPerDay() - 1));
}

TEST(DateTime, MovesBySpans)
{
    DateTime const time = At(1000);
    EXPECT_EQ(time + TimeSpan(24), At(1024));
    EXPECT_EQ(time - TimeSpan(24), At(976));
    DateTime moved(time);
    EXPECT_EQ(&(moved += TimeSpan(24)), &moved);
    EXPECT_EQ(moved, At(1024));
    EXPECT_EQ(&(moved -= TimeSpan(48)), &moved);
    EXPECT_EQ(moved, At(976));
    EXPECT_EQ(At(976) - At(1000), TimeSpan(-24));
    EXPECT_EQ(At(0) - TimeSpan(1), At(~0ull));
    EXPECT_EQ(At(0x7FFFFFFFFFFFFFFF) + TimeSpan(1), At(0x8000000000000000));
    EXPECT_EQ(At(0x8000000000000000) - At(1), TimeSpan(highest));
}

TEST(DateTime, ComparesAsASignedNumber)
{
    DateTime const values[] = {At(0x8000000000000000), At(~0ull), At(0), At(1), At(0x100000000),
                               At(0x7FFFFFFFFFFFFFFF)};
    for (DateTime const & left : values)
    {
        for (DateTime const & right : values)
        {
            auto const order = &left - &right;
            EXPECT_EQ(left == right, order == 0);
            EXPECT_EQ(left != right, order != 0);
            EXPECT_EQ(left < right, order < 0);
            EXPECT_EQ(left <= right, order <= 0);
            EXPECT_EQ(left > right, order > 0);
            EXPECT_EQ(left >= right, order >= 0);
        }
    }
}

TEST(DateTime, PrintsAnISOStampInUTC)
{
    DateTime const time = DateTime::FromUTCTime(2011, 9, 22, 4, 56, 40, 0);
    struct
    {
        DateTime time;
        WCHAR const * text;
    } const rows[] = {
        {time, TEXT("2011-09-22T04:56:40Z")},
        {time + TimeSpan::FromMilliseconds(250), TEXT("2011-09-22T04:56:40.25Z")},
        {time + TimeSpan(1), TEXT("2011-09-22T04:56:40.0000001Z")},
        {time + TimeSpan(1000), TEXT("2011-09-22T04:56:40.0001Z")},
        {time + TimeSpan(9999999), TEXT("2011-09-22T04:56:40.9999999Z")},
        {DateTime(), TEXT("1601-01-01T00:00:00Z")},
        {DateTime::FromUTCTime(30827, 12, 31, 23, 59, 59, 999), TEXT("30827-12-31T23:59:59.999Z")},
        {At(0x8000000000000000), TEXT("0000-00-00T00:00:00.5224192Z")},
    };
    for (auto const & row : rows)
    {
        EXPECT_EQ(row.time.ToString(), row.text);
    }
}

TEST(DateTime, LeapYearsAreThoseOfTheGregorianCalendar)
{
    for (int const year : {2000, 2004, 0, -4, -400, 1600})
    {
        EXPECT_TRUE(DateTime::IsLeapYear(year)) << year;
    }
    for (int const year : {1900, 2003, -1, -100, 2100, 1})
    {
        EXPECT_FALSE(DateTime::IsLeapYear(year)) << year;
    }
}

TEST(DateTime, TheLastDayOfFebruaryIsFoundAtMarch)
{
    int const days[] = {0, 31, 0, 28, 30, 31, 30, 31, 31, 30, 31, 30, 31, 0};
    for (int month = 0; month <= 13; month++)
    {
        EXPECT_EQ(DateTime::GetLastDayOfMonth(month, 2003), days[month]) << month;
        EXPECT_EQ(DateTime::GetLastDayOfMonth(month, 2004), month == 3 ? 29 : days[month]) << month;
    }
    EXPECT_EQ(DateTime::GetLastDayOfMonth(3, 1900), 28);
    EXPECT_EQ(DateTime::GetLastDayOfMonth(3, 2000), 29);
    EXPECT_EQ(DateTime::GetLastDayOfMonth(std::numeric_limits<int>::min(), 2004), 0);
    EXPECT_EQ(DateTime::GetLastDayOfMonth(std::numeric_limits<int>::max(), 2004), 0);
}

TEST(DateTime, DaysOfTheYearCountFrom1)
{
    int const before[] = {0, 31, 59, 90, 120, 151, 181, 212, 243, 273, 304, 334};
    for (int month = 1; month <= 12; month++)
    {
        EXPECT_EQ(DateTime::GetDayNum(2003, month, 1), before[month - 1] + 1);
        EXPECT_EQ(DateTime::GetDayNum(2004, month, 1), before[month - 1] + 1 + (month > 2));
    }
    EXPECT_EQ(DateTime::GetDayNum(2004, 3, 1), 61);
    EXPECT_EQ(DateTime::GetDayNum(2003, 3, 1), 60);
    EXPECT_EQ(DateTime::GetDayNum(2003, 1, 400), 400);
    EXPECT_EQ(DateTime::GetDayNum(2003, 1, -400), -400);
    for (int const month : {13, 0, -1, std::numeric_limits<int>::min(), std::numeric_limits<int>::max()})
    {
        EXPECT_EQ(DateTime::GetDayNum(2003, month, 1), 0) << month;
    }
}

TEST(DateTime, TheZoneIsTheSystems)
{
    TIME_ZONE_INFORMATION zone;
    DWORD const season = GetTimeZoneInformation(&zone);
    EXPECT_EQ(DateTime::GetLocalDayLightSaving(), season == TIME_ZONE_ID_DAYLIGHT);
    EXPECT_EQ(
        DateTime::GetLocalTimeZoneName(), season == TIME_ZONE_ID_DAYLIGHT ? zone.DaylightName : zone.StandardName);

    FILETIME const utc{0, 0x01D00000};
    FILETIME local;
    ASSERT_TRUE(FileTimeToLocalFileTime(&utc, &local));
    EXPECT_EQ(DateTime(utc) - DateTime(local), DateTime::GetLocalUTCBias());
}

TEST(TickCounter, OneWrapOfTheCounterDoesNoHarm)
{
    using kv::detail::TickSpan;
    EXPECT_EQ(TickSpan(0xFFFFFFF0, 0x00000010), TimeSpan::FromMilliseconds(32));
    EXPECT_EQ(TickSpan(5, 5), TimeSpan());
    EXPECT_EQ(TickSpan(5, 7), TimeSpan::FromMilliseconds(2));
    EXPECT_EQ(TickSpan(6, 5), TimeSpan(42949672950000));
}

TEST(TickCounter, StartsNow)
{
    static_assert(sizeof(TickCounter) == sizeof(DWORD) && std::is_trivially_copyable_v<TickCounter>);
    DWORD const before = GetTickCount();
    TickCounter const counter;
    DWORD const after = GetTickCount();
    DWORD const start = std::bit_cast<DWORD>(counter);
    EXPECT_LE(start - before, after - before);
}

TEST(TickCounter, MeasuresFromItsStart)
{
    // Whatever the system's counter is now, these starts lie before it by so many milliseconds, some beyond a wrap.
    for (DWORD const elapsed : {1000u, 0x40000000u, 0x80000000u, 0xC0000000u})
    {
        DWORD const before = GetTickCount();
        TickCounter counter = std::bit_cast<TickCounter>(before - elapsed);
        TimeSpan const span = counter.GetTimeSpan();
        TimeSpan const final = counter.GetTimeSpanAndReset();
        DWORD const after = GetTickCount();
        TimeSpan const shortest(elapsed * TimeSpan::TicksPerMillisecond());
        EXPECT_GE(span, shortest);
        EXPECT_LE(span, final);
        EXPECT_LE(final, shortest + TimeSpan((after - before) * TimeSpan::TicksPerMillisecond()));
    }
}

TEST(TickCounter, ResettingLosesNoTime)
{
    DWORD const before = GetTickCount();
    TickCounter counter = std::bit_cast<TickCounter>(before);
    TimeSpan sum;
    for (int i = 0; i < 1000; i++)
    {
        sum += counter.GetTimeSpanAndReset();
    }
    DWORD const last = std::bit_cast<DWORD>(counter);
    EXPECT_EQ(sum, TimeSpan((last - before) * TimeSpan::TicksPerMillisecond()));
    EXPECT_LE(last - before, GetTickCount() - before);

    TickCounter restarted = std::bit_cast<TickCounter>(before - 1000);
    restarted.Reset();
    EXPECT_LE(std::bit_cast<DWORD>(restarted) - last, GetTickCount() - last);
}
