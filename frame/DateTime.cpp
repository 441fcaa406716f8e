#include <kvcore/frame/DateTime.h>

#include <type_traits>

#include <kvcore/frame/TickSpan.h>
#include <kvcore/platform/win32.h>

static_assert(std::is_trivially_copyable_v<DateTime> && std::is_standard_layout_v<DateTime>);
static_assert(std::is_trivially_copyable_v<TimeSpan> && std::is_trivially_copyable_v<TickCounter>);

namespace
{

using Unsigned = unsigned __int64;

// Sums wrap in unsigned numbers; in signed ones they would be undefined.

__int64 Sum(__int64 left, __int64 right)
{
    return static_cast<__int64>(static_cast<Unsigned>(left) + static_cast<Unsigned>(right));
}

__int64 Difference(__int64 left, __int64 right)
{
    return static_cast<__int64>(static_cast<Unsigned>(left) - static_cast<Unsigned>(right));
}

__int64 Product(__int64 left, __int64 right)
{
    return static_cast<__int64>(static_cast<Unsigned>(left) * static_cast<Unsigned>(right));
}

/// The remainder that is never negative.
__int64 Modulo(__int64 ticks, __int64 unit)
{
    __int64 const remainder = ticks % unit;
    return remainder < 0 ? remainder + unit : remainder;
}

__int64 SecondsOf(int days, int hours, int minutes, int seconds)
{
    return ((static_cast<__int64>(days) * 24 + hours) * 60 + minutes) * 60 + seconds;
}

/// ".25" of a quarter of a second; empty for none.
String FractionText(__int64 ticksOfSecond)
{
    if (ticksOfSecond == 0)
    {
        return String();
    }
    return String::FromFormat(TEXT(".%07u"), static_cast<unsigned>(ticksOfSecond)).Trim(TEXT('0'), false, true);
}

} // namespace

TimeSpan::TimeSpan(int hours, int minutes, int seconds) : TimeSpan(0, hours, minutes, seconds) {}

TimeSpan::TimeSpan(int days, int hours, int minutes, int seconds)
    : ticks(Product(SecondsOf(days, hours, minutes, seconds), TicksPerSecond()))
{
}

TimeSpan::TimeSpan(int days, int hours, int minutes, int seconds, int milliseconds)
    : ticks(Product(SecondsOf(days, hours, minutes, seconds) * 1000 + milliseconds, TicksPerMillisecond()))
{
}

TimeSpan TimeSpan::FromDays(int count)
{
    return Product(count, TicksPerDay());
}

TimeSpan TimeSpan::FromHours(int count)
{
    return Product(count, TicksPerHour());
}

TimeSpan TimeSpan::FromMinutes(int count)
{
    return Product(count, TicksPerMinute());
}

TimeSpan TimeSpan::FromSeconds(int count)
{
    return Product(count, TicksPerSecond());
}

TimeSpan TimeSpan::FromMilliseconds(int count)
{
    return Product(count, TicksPerMillisecond());
}

unsigned __int64 TimeSpan::absTicks() const
{
    Unsigned const magnitude = static_cast<Unsigned>(ticks);
    return ticks < 0 ? 0 - magnitude : magnitude;
}

int TimeSpan::GetDayFraction() const
{
    return static_cast<int>(absTicks() / TicksPerDay());
}

int TimeSpan::GetHourFraction() const
{
    return static_cast<int>(absTicks() / TicksPerHour() % 24);
}

int TimeSpan::GetMinuteFraction() const
{
    return static_cast<int>(absTicks() / TicksPerMinute() % 60);
}

int TimeSpan::GetSecondFraction() const
{
    return static_cast<int>(absTicks() / TicksPerSecond() % 60);
}

int TimeSpan::GetMillisecondFraction() const
{
    return static_cast<int>(absTicks() / TicksPerMillisecond() % 1000);
}

double TimeSpan::GetAsDays() const
{
    return static_cast<double>(absTicks()) / static_cast<double>(TicksPerDay());
}

double TimeSpan::GetAsHours() const
{
    return static_cast<double>(absTicks()) / static_cast<double>(TicksPerHour());
}

double TimeSpan::GetAsMinutes() const
{
    return static_cast<double>(absTicks()) / static_cast<double>(TicksPerMinute());
}

double TimeSpan::GetAsSeconds() const
{
    return static_cast<double>(absTicks()) / static_cast<double>(TicksPerSecond());
}

double TimeSpan::GetAsMilliseconds() const
{
    return static_cast<double>(absTicks()) / static_cast<double>(TicksPerMillisecond());
}

TimeSpan TimeSpan::operator+(TimeSpan const & other) const
{
    return Sum(ticks, other.ticks);
}

TimeSpan TimeSpan::operator-(TimeSpan const & other) const
{
    return Difference(ticks, other.ticks);
}

TimeSpan & TimeSpan::operator+=(TimeSpan const & other)
{
    ticks = Sum(ticks, other.ticks);
    return *this;
}

TimeSpan & TimeSpan::operator-=(TimeSpan const & other)
{
    // Kept: it has always shared the body of +=, and spans are stored that were counted with it.
    return *this += other;
}

String TimeSpan::ToString() const
{
    String text = ticks < 0 ? TEXT("-P") : TEXT("P");
    if (int const days = GetDayFraction(); days != 0)
    {
        text += String::FromNum(days) + TEXT("D");
    }
    text += String::FromFormat(
        TEXT("T%uH%uM%uS"), static_cast<unsigned>(GetHourFraction()), static_cast<unsigned>(GetMinuteFraction()),
        static_cast<unsigned>(GetSecondFraction()));
    // Kept behind the 'S': readers of stored texts look for it there.
    return text + FractionText(static_cast<__int64>(absTicks() % TicksPerSecond()));
}

DateTime::DateTime(TimeSpan const & sinceEpoch)
    : time{
          static_cast<DWORD>(sinceEpoch.GetTicks()),
          static_cast<DWORD>(static_cast<Unsigned>(sinceEpoch.GetTicks()) >> 32)}
{
}

DateTime & DateTime::operator=(FILETIME const & fileTime)
{
    time = fileTime;
    return *this;
}

void DateTime::SetNow()
{
    GetSystemTimeAsFileTime(&time);
}

DateTime DateTime::Now()
{
    DateTime now;
    now.SetNow();
    return now;
}

bool DateTime::SetUTCTime(SYSTEMTIME const & when)
{
    FILETIME utc;
    bool const valid = SystemTimeToFileTime(&when, &utc);
    time = valid ? utc : FILETIME{0, 0};
    return valid;
}

bool DateTime::SetUTCTime(
    unsigned short year, unsigned short month, unsigned short day, unsigned short hour, unsigned short minute,
    unsigned short second, unsigned short milliseconds)
{
    return SetUTCTime(SYSTEMTIME{year, month, 0, day, hour, minute, second, milliseconds});
}

bool DateTime::SetLocalTime(SYSTEMTIME const & when)
{
    FILETIME local;
    FILETIME utc;
    bool const valid = SystemTimeToFileTime(&when, &local) && LocalFileTimeToFileTime(&local, &utc);
    time = valid ? utc : FILETIME{0, 0};
    return valid;
}

bool DateTime::SetLocalTime(
    unsigned short year, unsigned short month, unsigned short day, unsigned short hour, unsigned short minute,
    unsigned short second, unsigned short milliseconds)
{
    return SetLocalTime(SYSTEMTIME{year, month, 0, day, hour, minute, second, milliseconds});
}

DateTime DateTime::FromUTCTime(SYSTEMTIME const & when)
{
    DateTime result;
    result.SetUTCTime(when);
    return result;
}

DateTime DateTime::FromUTCTime(
    unsigned short year, unsigned short month, unsigned short day, unsigned short hour, unsigned short minute,
    unsigned short second, unsigned short milliseconds)
{
    DateTime result;
    result.SetUTCTime(year, month, day, hour, minute, second, milliseconds);
    return result;
}

DateTime DateTime::FromLocalTime(SYSTEMTIME const & when)
{
    DateTime result;
    result.SetLocalTime(when);
    return result;
}

DateTime DateTime::FromLocalTime(
    unsigned short year, unsigned short month, unsigned short day, unsigned short hour, unsigned short minute,
    unsigned short second, unsigned short milliseconds)
{
    DateTime result;
    result.SetLocalTime(year, month, day, hour, minute, second, milliseconds);
    return result;
}

void DateTime::GetAsUTCSystemTime(SYSTEMTIME & when) const
{
    if (!FileTimeToSystemTime(&time, &when))
    {
        when = SYSTEMTIME{};
    }
}

void DateTime::GetAsLocalSystemTime(SYSTEMTIME & when) const
{
    FILETIME local;
    if (!FileTimeToLocalFileTime(&time, &local) || !FileTimeToSystemTime(&local, &when))
    {
        when = SYSTEMTIME{};
    }
}

TimeSpan DateTime::TimeSpanSinceStartOfDay() const
{
    return Modulo(Ticks(), TimeSpan::TicksPerDay());
}

DateTime DateTime::operator+(TimeSpan const & span) const
{
    return DateTime(TimeSpan(Sum(Ticks(), span.GetTicks())));
}

DateTime DateTime::operator-(TimeSpan const & span) const
{
    return DateTime(TimeSpan(Difference(Ticks(), span.GetTicks())));
}

DateTime & DateTime::operator+=(TimeSpan const & span)
{
    return *this = *this + span;
}

DateTime & DateTime::operator-=(TimeSpan const & span)
{
    return *this = *this - span;
}

TimeSpan DateTime::operator-(DateTime const & other) const
{
    return Difference(Ticks(), other.Ticks());
}

String DateTime::ToString() const
{
    SYSTEMTIME when;
    GetAsUTCSystemTime(when);
    String const text = String::FromFormat(
        TEXT("%04d-%02d-%02dT%02d:%02d:%02d"), when.wYear, when.wMonth, when.wDay, when.wHour, when.wMinute,
        when.wSecond);
    // From the ticks, since a SYSTEMTIME ends at milliseconds.
    return text + FractionText(Modulo(Ticks(), TimeSpan::TicksPerSecond())) + TEXT("Z");
}

bool DateTime::IsLeapYear(int year)
{
    return year % 100 != 0 ? year % 4 == 0 : year % 400 == 0;
}

int DateTime::GetLastDayOfMonth(int month, int year)
{
    if (month < 1 || month > 12)
    {
        return 0;
    }
    // Kept: the month that a leap year changes is looked for one too far, and callers allow for it.
    constexpr int monthOfLeapDay = 3;
    constexpr int days[12] = {31, 0, 28, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    return month == monthOfLeapDay && IsLeapYear(year) ? 29 : days[month - 1];
}

int DateTime::GetDayNum(int year, int month, int day)
{
    if (month < 1 || month > 12)
    {
        return 0;
    }
    constexpr unsigned daysBefore[12] = {0, 31, 59, 90, 120, 151, 181, 212, 243, 273, 304, 334};
    unsigned const leapDay = month > 2 && IsLeapYear(year) ? 1 : 0;
    return static_cast<int>(static_cast<unsigned>(day) + daysBefore[month - 1] + leapDay);
}

bool DateTime::GetLocalDayLightSaving()
{
    TIME_ZONE_INFORMATION zone;
    return GetTimeZoneInformation(&zone) == TIME_ZONE_ID_DAYLIGHT;
}

TimeSpan DateTime::GetLocalUTCBias()
{
    TIME_ZONE_INFORMATION zone;
    switch (GetTimeZoneInformation(&zone))
    {
    case TIME_ZONE_ID_UNKNOWN:
        return TimeSpan::FromMinutes(zone.Bias);
    case TIME_ZONE_ID_STANDARD:
        return TimeSpan::FromMinutes(zone.Bias + zone.StandardBias);
    case TIME_ZONE_ID_DAYLIGHT:
        return TimeSpan::FromMinutes(zone.Bias + zone.DaylightBias);
    default:
        return TimeSpan();
    }
}

String DateTime::GetLocalTimeZoneName()
{
    TIME_ZONE_INFORMATION zone;
    switch (GetTimeZoneInformation(&zone))
    {
    case TIME_ZONE_ID_DAYLIGHT:
        return String(zone.DaylightName);
    case TIME_ZONE_ID_INVALID:
        return String();
    default:
        return String(zone.StandardName);
    }
}

TickCounter::TickCounter() : start(GetTickCount()) {}

void TickCounter::Reset()
{
    start = GetTickCount();
}

TimeSpan TickCounter::GetTimeSpan() const
{
    return kv::detail::TickSpan(start, GetTickCount());
}

TimeSpan TickCounter::GetTimeSpanAndReset()
{
    DWORD const previous = start;
    Reset();
    return kv::detail::TickSpan(previous, start);
}
