#include <kvcore/platform/CoarseClock.h>
#include <kvcore/platform/win32.h>

namespace
{

unsigned __int64 TicksOf(FILETIME const & time)
{
    return static_cast<unsigned __int64>(time.dwHighDateTime) << 32 | time.dwLowDateTime;
}

unsigned __int64 TicksOf(SYSTEMTIME const & when)
{
    FILETIME time{};
    EXPECT_TRUE(SystemTimeToFileTime(&when, &time));
    return TicksOf(time);
}

constexpr unsigned __int64 ticksPerMillisecond = 10000;
constexpr unsigned __int64 tickOf2020 = 132223104000000000;

TEST(Clock, AllClocksShowTheSameTime)
{
    FILETIME first;
    FILETIME precise;
    FILETIME last;
    SYSTEMTIME calendar;
    GetSystemTimeAsFileTime(&first);
    GetSystemTimePreciseAsFileTime(&precise);
    GetSystemTime(&calendar);
    GetSystemTimeAsFileTime(&last);
    EXPECT_GT(TicksOf(first), tickOf2020);
    EXPECT_LE(TicksOf(first), TicksOf(precise));
    EXPECT_LE(TicksOf(precise), TicksOf(last));
    // The calendar's time ends at milliseconds.
    EXPECT_LE(TicksOf(first) / ticksPerMillisecond, TicksOf(calendar) / ticksPerMillisecond);
    EXPECT_LE(TicksOf(calendar), TicksOf(last));
}

TEST(Clock, TheCoarseOneIsNeverAheadAndNotFarBehind)
{
    constexpr unsigned __int64 second = 1000 * ticksPerMillisecond;
    for (int i = 0; i < 1000; ++i)
    {
        FILETIME first;
        FILETIME last;
        GetSystemTimeAsFileTime(&first);
        std::uint64_t const coarse = kv::platform::CoarseTicks();
        GetSystemTimeAsFileTime(&last);
        ASSERT_LE(coarse, TicksOf(last));
        ASSERT_GE(coarse + second, TicksOf(first));
    }
}

TEST(Clock, LocalTimeIsTheClocksTimeInTheSystemsZone)
{
    FILETIME first;
    FILETIME last;
    SYSTEMTIME local;
    GetSystemTimeAsFileTime(&first);
    GetLocalTime(&local);
    GetSystemTimeAsFileTime(&last);
    FILETIME firstLocal;
    FILETIME lastLocal;
    FileTimeToLocalFileTime(&first, &firstLocal);
    FileTimeToLocalFileTime(&last, &lastLocal);
    EXPECT_LE(TicksOf(firstLocal) / ticksPerMillisecond, TicksOf(local) / ticksPerMillisecond);
    EXPECT_LE(TicksOf(local), TicksOf(lastLocal));
}

TEST(Clock, TheTickCountIsTheLowHalfOfTheLongOne)
{
    ULONGLONG const first = GetTickCount64();
    DWORD const ticks = GetTickCount();
    ULONGLONG const last = GetTickCount64();
    EXPECT_GT(first, 0u);
    EXPECT_LE(static_cast<DWORD>(ticks - static_cast<DWORD>(first)), last - first);
}

TEST(Clock, ThePerformanceCounterRunsForwardWithTheClock)
{
    LARGE_INTEGER frequency{};
    LARGE_INTEGER first{};
    LARGE_INTEGER last{};
    ASSERT_TRUE(QueryPerformanceFrequency(&frequency));
    EXPECT_GE(frequency.QuadPart, 1000000);
    ULONGLONG const ticksBefore = GetTickCount64();
    ASSERT_TRUE(QueryPerformanceCounter(&first));
    do
    {
        ASSERT_TRUE(QueryPerformanceCounter(&last));
        ASSERT_GE(last.QuadPart, first.QuadPart);
    } while ((last.QuadPart - first.QuadPart) * 1000 < 100 * frequency.QuadPart);
    // 100 milliseconds of one counter are no fewer than 30 of the other, whose readings may be that coarse, and late.
    EXPECT_GE(GetTickCount64() - ticksBefore, 30u);
}

} // namespace
