#pragma once

#include <kvcore/core/String.h>
#include <kvcore/platform/export.h>
#include <kvcore/platform/types.h>

// Values of time. They are copied as plain bits, allocate nothing and throw nothing (the text forms aside, which need
// memory), and arithmetic beyond either end of 64 bits wraps. One object by one thread at a time.

/// A signed distance between two instants, in ticks of 100 nanoseconds.
class KVCORE_API TimeSpan
{
public:
    /// @name Ticks of a unit
    /// @{
    static constexpr __int64 TicksPerMillisecond()
    {
        return 10'000;
    }
    static constexpr __int64 TicksPerSecond()
    {
        return 10'000'000;
    }
    static constexpr __int64 TicksPerMinute()
    {
        return 600'000'000;
    }
    static constexpr __int64 TicksPerHour()
    {
        return 36'000'000'000;
    }
    static constexpr __int64 TicksPerDay()
    {
        return 864'000'000'000;
    }
    /// @}

    /// @name Construction
    /// The parts may have any value and sign; they are summed.
    /// @{
    TimeSpan() : ticks(0) {}
    TimeSpan(__int64 count) : ticks(count) {}
    TimeSpan(int hours, int minutes, int seconds);
    TimeSpan(int days, int hours, int minutes, int seconds);
    TimeSpan(int days, int hours, int minutes, int seconds, int milliseconds);

    static TimeSpan FromDays(int count);
    static TimeSpan FromHours(int count);
    static TimeSpan FromMinutes(int count);
    static TimeSpan FromSeconds(int count);
    static TimeSpan FromMilliseconds(int count);
    /// @}

    /// The whole span, signed.
    __int64 GetTicks() const
    {
        return ticks;
    }

    /// @name Parts and whole of the magnitude
    /// A negative span has the parts of the positive one of its length: whoever prints them prints the sign first.
    /// @{
    /// Whole days.
    int GetDayFraction() const;
    /// Hours beyond the whole days, 0 to 23.
    int GetHourFraction() const;
    /// Minutes beyond the whole hours, 0 to 59.
    int GetMinuteFraction() const;
    /// Seconds beyond the whole minutes, 0 to 59.
    int GetSecondFraction() const;
    /// Milliseconds beyond the whole seconds, 0 to 999.
    int GetMillisecondFraction() const;

    /// The whole magnitude in a unit.
    double GetAsDays() const;
    double GetAsHours() const;
    double GetAsMinutes() const;
    double GetAsSeconds() const;
    double GetAsMilliseconds() const;
    /// @}

    /// @name Arithmetic and comparison
    /// @{
    TimeSpan operator+(TimeSpan const & other) const;
    TimeSpan operator-(TimeSpan const & other) const;
    TimeSpan & operator+=(TimeSpan const & other);
    /// Kept: adds, as `+=` does. Callers hand negative spans to it. `a = a - b` subtracts.
    TimeSpan & operator-=(TimeSpan const & other);
    bool operator==(TimeSpan const & other) const
    {
        return ticks == other.ticks;
    }
    bool operator!=(TimeSpan const & other) const
    {
        return ticks != other.ticks;
    }
    bool operator<(TimeSpan const & other) const
    {
        return ticks < other.ticks;
    }
    bool operator<=(TimeSpan const & other) const
    {
        return ticks <= other.ticks;
    }
    bool operator>(TimeSpan const & other) const
    {
        return ticks > other.ticks;
    }
    bool operator>=(TimeSpan const & other) const
    {
        return ticks >= other.ticks;
    }
    /// @}

    /// "P2DT3H4M5S", with "-P" for a negative span and no days if there are none. Kept: a fraction of a second stands
    /// behind the 'S' ("PT0H1M30S.5"), unlike in ISO 8601.
    String ToString() const;

private:
    unsigned __int64 absTicks() const;

    __int64 ticks;
};

/// An instant: ticks of 100 nanoseconds since 1601-01-01 00:00:00 UTC, laid out as a FILETIME. It is UTC always; local
/// time exists at the conversions only.
///
/// The value 0 is "no time". It is what a new object holds and what a failed conversion leaves.
class KVCORE_API DateTime
{
public:
    /// @name Construction and file times
    /// @{
    DateTime() : time{0, 0} {}
    DateTime(DateTime const &) = default;
    DateTime(FILETIME const & fileTime) : time(fileTime) {}
    DateTime & operator=(DateTime const &) = default;
    DateTime & operator=(FILETIME const & fileTime);

    void GetAsFileTime(FILETIME & fileTime) const
    {
        fileTime = time;
    }
    void SetFileTime(FILETIME const & fileTime)
    {
        time = fileTime;
    }
    /// @}

    /// @name The clock
    /// @{
    void SetNow();
    static DateTime Now();
    /// @}

    /// @name The calendar
    /// Years are 1601 to 30827; the day of the week is not looked at. The setters return false and leave 0 for a date
    /// or time of day that does not exist; the From forms return 0 then.
    ///
    /// Kept: local times are converted with the zone's offset of *now*, whatever season the date itself is in, so that
    /// they come back as they were set.
    /// @{
    bool SetUTCTime(SYSTEMTIME const & when);
    bool SetUTCTime(
        unsigned short year, unsigned short month, unsigned short day, unsigned short hour, unsigned short minute,
        unsigned short second, unsigned short milliseconds);
    bool SetLocalTime(SYSTEMTIME const & when);
    bool SetLocalTime(
        unsigned short year, unsigned short month, unsigned short day, unsigned short hour, unsigned short minute,
        unsigned short second, unsigned short milliseconds);

    static DateTime FromUTCTime(SYSTEMTIME const & when);
    static DateTime FromUTCTime(
        unsigned short year, unsigned short month, unsigned short day, unsigned short hour, unsigned short minute,
        unsigned short second, unsigned short milliseconds);
    static DateTime FromLocalTime(SYSTEMTIME const & when);
    static DateTime FromLocalTime(
        unsigned short year, unsigned short month, unsigned short day, unsigned short hour, unsigned short minute,
        unsigned short second, unsigned short milliseconds);

    /// The date and time of day. All zero if the instant has none, which is so from 2^63 ticks on.
    void GetAsUTCSystemTime(SYSTEMTIME & when) const;
    void GetAsLocalSystemTime(SYSTEMTIME & when) const;

    /// The time of day in UTC. Never negative, for instants before 1601 either.
    TimeSpan TimeSpanSinceStartOfDay() const;
    /// @}

    /// @name Arithmetic and comparison
    /// Instants compare as signed numbers: what lies from 2^63 ticks on is before 1601.
    /// @{
    DateTime operator+(TimeSpan const & span) const;
    DateTime operator-(TimeSpan const & span) const;
    DateTime & operator+=(TimeSpan const & span);
    DateTime & operator-=(TimeSpan const & span);
    TimeSpan operator-(DateTime const & other) const;
    bool operator==(DateTime const & other) const
    {
        return Ticks() == other.Ticks();
    }
    bool operator!=(DateTime const & other) const
    {
        return Ticks() != other.Ticks();
    }
    bool operator<(DateTime const & other) const
    {
        return Ticks() < other.Ticks();
    }
    bool operator<=(DateTime const & other) const
    {
        return Ticks() <= other.Ticks();
    }
    bool operator>(DateTime const & other) const
    {
        return Ticks() > other.Ticks();
    }
    bool operator>=(DateTime const & other) const
    {
        return Ticks() >= other.Ticks();
    }
    /// @}

    /// "2011-09-22T04:56:40.25Z": ISO 8601 in UTC, with as many of the seven digits of a fraction as there are.
    String ToString() const;

    /// @name Calendar rules
    /// Of the Gregorian calendar. Mind the order of the arguments.
    /// @{
    static bool IsLeapYear(int year);
    /// Kept: February, 2, gives 0, and March, 3, gives the length of February; callers know and work around it. 0 for
    /// anything that is no month.
    static int GetLastDayOfMonth(int month, int year);
    /// The day of the year, 1 for the first of January; 0 for anything that is no month. The day is not checked.
    static int GetDayNum(int year, int month, int day);
    /// @}

    /// @name The system's time zone
    /// @{
    /// Whether it is summer time now.
    static bool GetLocalDayLightSaving();
    /// What must be added to the local time of now to reach UTC: positive west of Greenwich.
    static TimeSpan GetLocalUTCBias();
    /// The zone's name in this season; empty if the system knows none.
    static String GetLocalTimeZoneName();
    /// @}

private:
    explicit DateTime(TimeSpan const & sinceEpoch);
    __int64 Ticks() const
    {
        return static_cast<__int64>(static_cast<unsigned __int64>(time.dwHighDateTime) << 32 | time.dwLowDateTime);
    }

    FILETIME time;
};

/// A stopwatch of milliseconds: one reading of the system's tick counter, 32 bits wide.
///
/// It wraps after 2^32 milliseconds, 49.7 days. One wrap while it runs does no harm; a longer span reads short.
class KVCORE_API TickCounter
{
public:
    /// Starts now.
    TickCounter();
    /// Starts again.
    void Reset();
    /// The span since the start, never negative.
    TimeSpan GetTimeSpan() const;
    /// The same, and starts again at that very reading, so that no time between two spans is lost.
    TimeSpan GetTimeSpanAndReset();

private:
    DWORD start;
};

static_assert(sizeof(DateTime) == sizeof(FILETIME) && alignof(DateTime) == alignof(FILETIME), "file times are copied");
static_assert(sizeof(TimeSpan) == 8 && sizeof(TickCounter) == 4);
