#include <algorithm>
#include <iterator>

#include <kvcore/platform/win32.h>

namespace
{

constexpr LCID american = 0x0409;
constexpr LCID british = 0x0809;
constexpr LCID french = 0x040C;
constexpr LCID german = 0x0407;
constexpr LCID japanese = 0x0411;
constexpr LCID polish = 0x0415;
constexpr LCID unknownLocale = 0x9999;
constexpr DWORD before = 77; // no call sets it

// A Tuesday.
constexpr SYSTEMTIME moment = {2024, 1, 2, 2, 15, 4, 5, 6};

using Formatter = int(WINAPI *)(LCID, DWORD, SYSTEMTIME const *, LPCWSTR, LPWSTR, int);

/// What a formatter prints, asked for its length first.
WString Print(Formatter format, LCID locale, DWORD flags, WCHAR const * picture, SYSTEMTIME const & when = moment)
{
    int const length = format(locale, flags, &when, picture, nullptr, 0);
    WString text(static_cast<std::size_t>(length), TEXT('?'));
    EXPECT_EQ(format(locale, flags, &when, picture, text.data(), length), length);
    if (length == 0)
        return TEXT("failed");
    EXPECT_EQ(text.back(), TEXT('\0'));
    text.pop_back();
    return text;
}

struct FormatCase
{
    LCID locale;
    DWORD flags;
    WCHAR const * picture;
    WString text;
};

TEST(DateFormat, LocalesHaveTheirOwnForms)
{
    FormatCase const cases[] = {
        {american, 0, nullptr, TEXT("1/2/2024")},
        {american, DATE_SHORTDATE | LOCALE_USE_CP_ACP, nullptr, TEXT("1/2/2024")},
        {american, DATE_LONGDATE | LOCALE_USE_CP_ACP, nullptr, TEXT("Tuesday, January 2, 2024")},
        {american, DATE_LONGDATE | LOCALE_NOUSEROVERRIDE, nullptr, TEXT("Tuesday, January 2, 2024")},
        {american, DATE_YEARMONTH, nullptr, TEXT("January 2024")},
        {american, DATE_MONTHDAY, nullptr, TEXT("January 2")},
        {LOCALE_INVARIANT, DATE_SHORTDATE, nullptr, TEXT("01/02/2024")},
        {LOCALE_INVARIANT, DATE_LONGDATE, nullptr, TEXT("Tuesday, 02 January 2024")},
        {british, DATE_SHORTDATE, nullptr, TEXT("02/01/2024")},
        {british, DATE_LONGDATE, nullptr, TEXT("Tuesday, 2 January 2024")},
        {german, DATE_SHORTDATE, nullptr, TEXT("2.1.2024")},
        {german, DATE_LONGDATE, nullptr, TEXT("Dienstag, 2. Januar 2024")},
        {french, DATE_LONGDATE, nullptr, TEXT("mardi 2 janvier 2024")},
        {japanese, DATE_SHORTDATE, nullptr, TEXT("2024/1/2")},
        {japanese, DATE_LONGDATE, nullptr, TEXT("2024\u5E741\u67082\u65E5\u706B\u66DC\u65E5")},
    };
    for (FormatCase const & row : cases)
        EXPECT_EQ(Print(GetDateFormatW, row.locale, row.flags, row.picture), row.text)
            << row.locale << ' ' << row.flags;
}

TEST(DateFormat, PicturesHaveFieldsQuotesAndLiterals)
{
    FormatCase const cases[] = {
        {american, 0, TEXT("dddd, MMMM dd, yyyy"), TEXT("Tuesday, January 02, 2024")},
        {american, 0, TEXT("d dd ddd dddd ddddd"), TEXT("2 02 Tue Tuesday Tuesday")},
        {american, 0, TEXT("M MM MMM MMMM MMMMM"), TEXT("1 01 Jan January January")},
        {american, 0, TEXT("y yy yyy yyyy yyyyy"), TEXT("24 24 2024 2024 2024")},
        {american, 0, TEXT("g gg"), TEXT("AD ADAD")},
        {american, 0, TEXT("yyyyMMdd"), TEXT("20240102")},
        {american, 0, TEXT("'day' d"), TEXT("day 2")},
        {american, 0, TEXT("d 'o''clock'"), TEXT("2 o'clock")},
        {american, 0, TEXT("d''M"), TEXT("21")},
        {american, 0, TEXT("'d'''M"), TEXT("d'1")},
        {american, 0, TEXT("a''b"), TEXT("ab")},
        {american, 0, TEXT("'d"), TEXT("d")},
        {american, 0, TEXT("'"), WString()},
        {american, 0, TEXT(""), WString()},
        {american, 0, TEXT("H:mm D Y \\d"), TEXT("H:mm D Y \\2")},
        {american, LOCALE_USE_CP_ACP, TEXT("yyyy"), TEXT("2024")},
        {german, 0, TEXT("ddd d MMM"), TEXT("Di. 2 Jan.")},
    };
    for (FormatCase const & row : cases)
        EXPECT_EQ(Print(GetDateFormatW, row.locale, row.flags, row.picture), row.text);
}

TEST(DateFormat, MonthsTakeTheFormThatADayAsksFor)
{
    EXPECT_EQ(Print(GetDateFormatW, polish, 0, TEXT("MMMM")), TEXT("stycze\u0144"));
    EXPECT_EQ(Print(GetDateFormatW, polish, 0, TEXT("d MMMM")), TEXT("2 stycznia"));
    EXPECT_EQ(Print(GetDateFormatW, polish, 0, TEXT("MMMM 'd'")), TEXT("stycze\u0144 d"));
}

TEST(DateFormat, TheDayOfTheWeekComesFromTheDate)
{
    SYSTEMTIME wrong = moment;
    wrong.wDayOfWeek = 9;
    EXPECT_EQ(Print(GetDateFormatW, american, 0, TEXT("dddd"), wrong), TEXT("Tuesday"));
}

struct DateCase
{
    WORD year;
    WORD month;
    WORD day;
    bool exists;
};

TEST(DateFormat, RefusesDatesThatDoNotExist)
{
    DateCase const cases[] = {
        {2024, 2, 29, true},    {2024, 2, 30, false},     {2000, 2, 29, true},   {2024, 13, 1, false},
        {2024, 0, 1, false},    {2024, 1, 0, false},      {2024, 1, 32, false},  {1601, 1, 1, true},
        {1600, 1, 1, false},    {0, 1, 1, false},         {30827, 12, 31, true}, {2024, 257, 1, false},
        {2024, 2056, 1, false}, {2024, 0xFF01, 1, false}, {2024, 1, 257, false}, {2024, 1, 0xFF01, false}};
    for (DateCase const & row : cases)
    {
        SYSTEMTIME const when = {row.year, row.month, 0, row.day, 0, 0, 0, 0};
        SetLastError(before);
        EXPECT_EQ(GetDateFormatW(american, 0, &when, TEXT("yyyy"), nullptr, 0) != 0, row.exists)
            << row.year << '-' << row.month << '-' << row.day;
        EXPECT_EQ(GetLastError(), row.exists ? before : ERROR_INVALID_PARAMETER);
    }
}

// Wine takes the 29th of February in every year, so that this is tried where the layer is our own.
#ifndef _WIN32
TEST(DateFormat, OnlyLeapYearsHaveTheirExtraDay)
{
    for (WORD const year : {1900, 2023, 2100})
    {
        SYSTEMTIME const when = {year, 2, 0, 29, 0, 0, 0, 0};
        SetLastError(before);
        EXPECT_EQ(GetDateFormatW(american, 0, &when, nullptr, nullptr, 0), 0) << year;
        EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
    }
}
#endif

TEST(DateFormat, DoesNotLookAtTheTimeOfDay)
{
    SYSTEMTIME const when = {2024, 1, 0, 2, 99, 99, 99, 9999};
    EXPECT_EQ(Print(GetDateFormatW, american, 0, nullptr, when), TEXT("1/2/2024"));
}

TEST(TimeFormat, LocalesHaveTheirOwnForms)
{
    FormatCase const cases[] = {
        {american, 0, nullptr, TEXT("3:04:05 PM")},
        {american, LOCALE_USE_CP_ACP, nullptr, TEXT("3:04:05 PM")},
        {american, TIME_NOSECONDS | LOCALE_USE_CP_ACP, nullptr, TEXT("3:04 PM")},
        {american, TIME_NOMINUTESORSECONDS, nullptr, TEXT("3 PM")},
        {american, TIME_NOTIMEMARKER, nullptr, TEXT("3:04:05")},
        {american, TIME_FORCE24HOURFORMAT, nullptr, TEXT("15:04:05 PM")},
        {american, TIME_FORCE24HOURFORMAT | TIME_NOTIMEMARKER, nullptr, TEXT("15:04:05")},
        {american, TIME_NOMINUTESORSECONDS | TIME_NOTIMEMARKER, nullptr, TEXT("3")},
        {LOCALE_INVARIANT, 0, nullptr, TEXT("15:04:05")},
        {british, 0, nullptr, TEXT("15:04:05")},
        {german, TIME_NOSECONDS, nullptr, TEXT("15:04")},
        {japanese, 0, nullptr, TEXT("15:04:05")},
    };
    for (FormatCase const & row : cases)
        EXPECT_EQ(Print(GetTimeFormatW, row.locale, row.flags, row.picture), row.text)
            << row.locale << ' ' << row.flags;
}

TEST(TimeFormat, PicturesHaveFieldsQuotesAndLiterals)
{
    FormatCase const cases[] = {
        {american, 0, TEXT("h hh hhh H HH HHH"), TEXT("3 03 03 15 15 15")},
        {american, 0, TEXT("m mm mmm s ss sss"), TEXT("4 04 04 5 05 05")},
        {american, 0, TEXT("t tt ttt"), TEXT("P PM PM")},
        {american, 0, TEXT("h 'o''clock'"), TEXT("3 o'clock")},
        {american, 0, TEXT("h'h'm"), TEXT("3h4")},
        {american, 0, TEXT("d M y g"), TEXT("d M y g")},
        {american, 0, TEXT(""), WString()},
    };
    for (FormatCase const & row : cases)
        EXPECT_EQ(Print(GetTimeFormatW, row.locale, row.flags, row.picture), row.text);
}

TEST(TimeFormat, FieldsThatAreLeftOutTakeTheirSeparatorsAlong)
{
    FormatCase const cases[] = {
        {american, TIME_NOSECONDS, TEXT("h:mm:ss tt"), TEXT("3:04 PM")},
        {american, TIME_NOSECONDS, TEXT("h.mm'm'.ss's'"), TEXT("3.04")},
        {american, TIME_NOSECONDS, TEXT("h:mm:ss 'Z'"), TEXT("3:04 ")},
        {american, TIME_NOSECONDS, TEXT("h:mm tt ss"), TEXT("3:04")},
        {american, TIME_NOSECONDS, TEXT("ss:mm:h"), TEXT("04:3")},
        {american, TIME_NOSECONDS, TEXT("'x's'y'"), WString()},
        {american, TIME_NOMINUTESORSECONDS, TEXT("a:ss:b:mm:c:h:d"), TEXT("3:d")},
        {american, TIME_NOTIMEMARKER, TEXT("h:tt:mm"), TEXT("304")},
        {american, TIME_NOTIMEMARKER, TEXT("tt h:mm"), TEXT(" 3:04")},
        {american, TIME_NOTIMEMARKER, TEXT("h:mm tt ss"), TEXT("3:04 05")},
    };
    for (FormatCase const & row : cases)
        EXPECT_EQ(Print(GetTimeFormatW, row.locale, row.flags, row.picture), row.text);
}

TEST(TimeFormat, MidnightAndNoonAreTwelve)
{
    SYSTEMTIME when = {};
    EXPECT_EQ(Print(GetTimeFormatW, american, 0, TEXT("HH h tt"), when), TEXT("00 12 AM"));
    when.wHour = 12;
    EXPECT_EQ(Print(GetTimeFormatW, american, 0, TEXT("HH h tt"), when), TEXT("12 12 PM"));
}

TEST(TimeFormat, RefusesTimesThatDoNotExist)
{
    SYSTEMTIME const cases[] = {
        {2024, 1, 0, 1, 24, 0, 0, 0},
        {2024, 1, 0, 1, 1, 60, 0, 0},
        {2024, 1, 0, 1, 1, 0, 60, 0},
        {2024, 1, 0, 1, 1, 0, 0, 1000}};
    for (SYSTEMTIME const & when : cases)
    {
        SetLastError(before);
        EXPECT_EQ(GetTimeFormatW(american, 0, &when, nullptr, nullptr, 0), 0);
        EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
    }
}

TEST(TimeFormat, DoesNotLookAtTheDate)
{
    SYSTEMTIME const when = {0, 99, 99, 99, 1, 2, 3, 4};
    EXPECT_EQ(Print(GetTimeFormatW, american, 0, nullptr, when), TEXT("1:02:03 AM"));
}

struct FailureCase
{
    Formatter format;
    LCID locale;
    DWORD flags;
    WCHAR const * picture;
    int capacity;
    DWORD error;
};

TEST(DateTimeFormat, RefusesWhatItCannotPrint)
{
    WCHAR buffer[20];
    FailureCase const cases[] = {
        {GetDateFormatW, american, DATE_SHORTDATE | DATE_LONGDATE, nullptr, 20, ERROR_INVALID_FLAGS},
        {GetDateFormatW, american, DATE_SHORTDATE, TEXT("yyyy"), 20, ERROR_INVALID_FLAGS},
        {GetDateFormatW, american, LOCALE_NOUSEROVERRIDE, TEXT("yyyy"), 20, ERROR_INVALID_FLAGS},
        {GetTimeFormatW, american, LOCALE_NOUSEROVERRIDE, TEXT("h"), 20, ERROR_INVALID_FLAGS},
        {GetDateFormatW, unknownLocale, 0, nullptr, 20, ERROR_INVALID_PARAMETER},
        {GetTimeFormatW, unknownLocale, 0, nullptr, 20, ERROR_INVALID_PARAMETER},
        {GetDateFormatW, american, 0, nullptr, -1, ERROR_INVALID_PARAMETER},
        {GetTimeFormatW, american, 0, nullptr, -1, ERROR_INVALID_PARAMETER},
        {GetDateFormatW, american, 0, nullptr, 8, ERROR_INSUFFICIENT_BUFFER},
        {GetTimeFormatW, american, 0, nullptr, 10, ERROR_INSUFFICIENT_BUFFER},
    };
    for (FailureCase const & row : cases)
    {
        SetLastError(before);
        EXPECT_EQ(row.format(row.locale, row.flags, &moment, row.picture, buffer, row.capacity), 0);
        EXPECT_EQ(GetLastError(), row.error) << row.locale << ' ' << row.flags << ' ' << row.capacity;
    }
    for (Formatter const format : {GetDateFormatW, GetTimeFormatW})
    {
        SetLastError(before);
        EXPECT_EQ(format(american, 0, &moment, nullptr, nullptr, 20), 0);
        EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
    }
}

TEST(DateTimeFormat, WhatFitsIntoABufferIsThereThoughItFails)
{
    for (int const capacity : {1, 2, 5, 8})
    {
        for (Formatter const format : {GetDateFormatW, GetTimeFormatW})
        {
            WCHAR whole[20];
            ASSERT_GT(format(american, 0, &moment, nullptr, whole, 20), 8);
            WCHAR buffer[20];
            std::fill(std::begin(buffer), std::end(buffer), TEXT('~'));
            SetLastError(before);
            EXPECT_EQ(format(american, 0, &moment, nullptr, buffer, capacity), 0);
            EXPECT_EQ(GetLastError(), ERROR_INSUFFICIENT_BUFFER);
            EXPECT_EQ(WString(buffer), WString(whole, static_cast<std::size_t>(capacity - 1)));
            EXPECT_EQ(buffer[capacity], TEXT('~'));
        }
    }
}

TEST(DateTimeFormat, NoTimeMeansNow)
{
    // The day may turn between the calls.
    WCHAR first[20] = {};
    WCHAR second[20] = {};
    EXPECT_EQ(GetDateFormatW(american, 0, nullptr, TEXT("yyyy-MM-dd"), first, 20), 11);
    EXPECT_EQ(GetDateFormatW(american, 0, nullptr, TEXT("yyyy-MM-dd"), second, 20), 11);
    EXPECT_GE(WString(second), WString(first));
    EXPECT_GE(WString(first), TEXT("2024-01-01"));
    EXPECT_EQ(GetTimeFormatW(american, 0, nullptr, TEXT("HH:mm:ss"), first, 20), 9);
}

TEST(DateTimeFormat, SuccessLeavesTheLastErrorAlone)
{
    SetLastError(before);
    EXPECT_EQ(GetDateFormatW(american, 0, &moment, nullptr, nullptr, 0), 9);
    EXPECT_EQ(GetTimeFormatW(american, 0, &moment, nullptr, nullptr, 0), 11);
    EXPECT_EQ(GetLastError(), before);
}

} // namespace
