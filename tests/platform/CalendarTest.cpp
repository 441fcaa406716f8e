#include <kvcore/platform/win32.h>

namespace
{

constexpr DWORD before = 77; // no call sets it
constexpr unsigned __int64 untouched = 0x1122334455667788;

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
    std::string text;
    for (int const field :
         {int(when.wYear), int(when.wMonth), int(when.wDay), int(when.wDayOfWeek), int(when.wHour), int(when.wMinute),
          int(when.wSecond), int(when.wMilliseconds)})
    {
        text += (text.empty() ? "" : " ") + std::to_string(field);
    }
    return text;
}

struct DateCase
{
    SYSTEMTIME when;
    unsigned __int64 ticks;
};

TEST(Calendar, CountsTicksSince1601)
{
    DateCase const rows[] = {
        {{1601, 1, 1, 1, 0, 0, 0, 0}, 0},
        {{1601, 1, 1, 1, 0, 0, 0, 1}, 10000},
        {{1601, 1, 2, 2, 0, 0, 0, 0}, 864000000000},
        {{1970, 1, 4, 1, 0, 0, 0, 0}, 116444736000000000},
        {{2000, 2, 2, 29, 23, 59, 59, 999}, 125963423999990000},
        {{2000, 3, 3, 1, 0, 0, 0, 0}, 125963424000000000},
        {{1900, 2, 3, 28, 0, 0, 0, 0}, 94404960000000000},
        {{1900, 3, 4, 1, 0, 0, 0, 0}, 94405824000000000},
        {{30827, 12, 5, 31, 23, 59, 59, 999}, 9223149887999990000},
    };
    for (DateCase const & row : rows)
    {
        SYSTEMTIME when = row.when;
        when.wDayOfWeek = 1234;
        FILETIME time = FileTimeOf(untouched);
        SetLastError(before);
        EXPECT_TRUE(SystemTimeToFileTime(&when, &time));
        EXPECT_EQ(TicksOf(time), row.ticks) << Text(row.when);
        EXPECT_TRUE(FileTimeToSystemTime(&time, &when));
        EXPECT_EQ(Text(when), Text(row.when));
        EXPECT_EQ(GetLastError(), before);
    }
}

TEST(Calendar, EveryDayFollowsTheOneBefore)
{
    // 800 years have each kind of century in them.
    WORD weekday = 1;
    for (unsigned __int64 day = 0; day < 800ull * 366; day++)
    {
        FILETIME const time = FileTimeOf(day * 864000000000 + 863999999999);
        SYSTEMTIME when;
        ASSERT_TRUE(FileTimeToSystemTime(&time, &when));
        ASSERT_EQ(when.wDayOfWeek, weekday) << day;
        ASSERT_EQ(when.wHour * 10000 + when.wMinute * 100 + when.wSecond, 235959) << day;
        FILETIME back;
        ASSERT_TRUE(SystemTimeToFileTime(&when, &back));
        ASSERT_EQ(TicksOf(back), TicksOf(time) - 9999) << day;
        weekday = static_cast<WORD>((weekday + 1) % 7);
    }
}

TEST(Calendar, TicksBelowAMillisecondAreCutOff)
{
    for (unsigned __int64 const ticks : {1u, 9999u})
    {
        FILETIME const time = FileTimeOf(ticks);
        SYSTEMTIME when;
        EXPECT_TRUE(FileTimeToSystemTime(&time, &when));
        EXPECT_EQ(Text(when), "1601 1 1 1 0 0 0 0");
    }
}

TEST(Calendar, TheLastInstantIsInTheYear30828)
{
    FILETIME time = FileTimeOf(0x7FFFFFFFFFFFFFFF);
    SYSTEMTIME when;
    EXPECT_TRUE(FileTimeToSystemTime(&time, &when));
    EXPECT_EQ(Text(when), "30828 9 14 4 2 48 5 477");
}

TEST(Calendar, HalfOfTheTicksHaveNoDate)
{
    for (unsigned __int64 const ticks : {0x8000000000000000ull, ~0ull})
    {
        FILETIME const time = FileTimeOf(ticks);
        SYSTEMTIME when{1, 2, 3, 4, 5, 6, 7, 8};
        SetLastError(before);
        EXPECT_FALSE(FileTimeToSystemTime(&time, &when));
        EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
        EXPECT_EQ(Text(when), "1 2 4 3 5 6 7 8");
    }
}

TEST(Calendar, RefusesDatesThatDoNotExist)
{
    SYSTEMTIME const rows[] = {
        {1600, 12, 0, 31, 23, 59, 59, 999}, {0, 1, 0, 1, 0, 0, 0, 0},      {2001, 2, 0, 30, 0, 0, 0, 0},
        {2001, 4, 0, 31, 0, 0, 0, 0},       {2001, 0, 0, 1, 0, 0, 0, 0},   {2001, 13, 0, 1, 0, 0, 0, 0},
        {2001, 1, 0, 0, 0, 0, 0, 0},        {2001, 1, 0, 32, 0, 0, 0, 0},  {2001, 1, 0, 1, 24, 0, 0, 0},
        {2001, 1, 0, 1, 0, 60, 0, 0},       {2001, 1, 0, 1, 0, 0, 60, 0},  {2001, 1, 0, 1, 0, 0, 0, 1000},
        {2001, 257, 0, 1, 0, 0, 0, 0},      {2001, 1, 0, 257, 0, 0, 0, 0}, {65535, 12, 0, 31, 0, 0, 0, 0},
    };
    for (SYSTEMTIME const & when : rows)
    {
        FILETIME time = FileTimeOf(untouched);
        SetLastError(before);
        EXPECT_FALSE(SystemTimeToFileTime(&when, &time)) << Text(when);
        EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
        EXPECT_EQ(TicksOf(time), untouched);
    }
}

TEST(Calendar, FileTimesCompareAsUnsignedNumbers)
{
    unsigned __int64 const rows[] = {0, 1, 0xFFFFFFFF, 0x100000000, 0x7FFFFFFFFFFFFFFF, 0x8000000000000000, ~0ull};
    for (unsigned __int64 const & left : rows)
    {
        for (unsigned __int64 const & right : rows)
        {
            FILETIME const a = FileTimeOf(left);
            FILETIME const b = FileTimeOf(right);
            EXPECT_EQ(CompareFileTime(&a, &b), &left < &right ? -1 : &left > &right ? 1 : 0) << left << ' ' << right;
        }
    }
}

} // namespace
