#include <cstring>

#include <gtest/gtest.h>

#include <kvcore/core/String.h>
#include <kvcore/platform/win32.h>

namespace
{

constexpr GUID sample = {0x01234567, 0x89AB, 0xCDEF, {0x01, 0x23, 0x45, 0x67, 0x89, 0xAB, 0xCD, 0xEF}};
constexpr WCHAR const * sampleText = TEXT("{01234567-89AB-CDEF-0123-456789ABCDEF}");

/// Tuesday, 5 March 2024, 14:07:09.
SYSTEMTIME SampleTime()
{
    SYSTEMTIME when{};
    when.wYear = 2024;
    when.wMonth = 3;
    when.wDayOfWeek = 2;
    when.wDay = 5;
    when.wHour = 14;
    when.wMinute = 7;
    when.wSecond = 9;
    return when;
}

/// What the system prints for the user.
template <typename Print>
String SystemText(Print print, DWORD flags)
{
    SYSTEMTIME const when = SampleTime();
    WCHAR text[200];
    int const written = print(0x400, flags | LOCALE_USE_CP_ACP, &when, nullptr, text, 200);
    return written > 0 ? String(text) : String(TEXT("the system failed"));
}

} // namespace

TEST(StringConversions, GuidPrintsWithBracesInUpperCase)
{
    EXPECT_EQ(String::FromGUID(sample), sampleText);
    EXPECT_EQ(String::FromGUID(GUID{}), TEXT("{00000000-0000-0000-0000-000000000000}"));
    EXPECT_EQ(String::FromGUID(sample).size(), 38u);
}

TEST(StringConversions, GuidReadsEitherCase)
{
    GUID id{};
    EXPECT_TRUE(String(sampleText).ParseGUID(id));
    EXPECT_TRUE(id == sample);
    id = GUID{};
    EXPECT_TRUE(String(TEXT("{01234567-89ab-cdef-0123-456789abcdef}")).ParseGUID(id));
    EXPECT_TRUE(id == sample);
}

TEST(StringConversions, GuidOfAnotherFormIsZero)
{
    for (WCHAR const * text :
         {TEXT("{01234567-89AB-CDEF-0123-456789ABCDE}"), TEXT("{01234567-89AB-CDEF-0123-456789ABCDEG}"),
          TEXT("01234567-89AB-CDEF-0123-456789ABCDEF"), TEXT("{01234567-89AB-CDEF-0123-456789ABCDEF"),
          TEXT("{01234567-89AB-CDEF-0123-456789ABCDEF} "), TEXT("{0123456789AB-CDEF-0123-456789ABCDEF}"), TEXT("{"),
          TEXT("no such class name")})
    {
        GUID id = sample;
        EXPECT_FALSE(String(text).ParseGUID(id)) << String(text).Utf8();
        EXPECT_TRUE(id == GUID{}) << String(text).Utf8();
    }
}

TEST(StringConversions, DateIsTheUsersForm)
{
    SYSTEMTIME const when = SampleTime();
    EXPECT_EQ(String::FromDate(when, false), SystemText(GetDateFormatW, DATE_SHORTDATE));
    EXPECT_EQ(String::FromDate(when, true), SystemText(GetDateFormatW, DATE_LONGDATE));
    EXPECT_EQ(String::FromDate(when), String::FromDate(when, false));
    EXPECT_NE(String::FromDate(when, true).find(TEXT("2024")), String::npos);
}

TEST(StringConversions, TimeIsTheUsersForm)
{
    SYSTEMTIME const when = SampleTime();
    EXPECT_EQ(String::FromTime(when, true), SystemText(GetTimeFormatW, 0));
    EXPECT_EQ(String::FromTime(when, false), SystemText(GetTimeFormatW, TIME_NOSECONDS));
    EXPECT_EQ(String::FromTime(when), String::FromTime(when, true));
    EXPECT_NE(String::FromTime(when, true).find(TEXT("09")), String::npos);
    EXPECT_EQ(String::FromTime(when, false).find(TEXT("09")), String::npos);
}

TEST(StringConversions, DateOrTimeThatDoesNotExistIsEmpty)
{
    SYSTEMTIME when = SampleTime();
    when.wMonth = 2;
    when.wDay = 30;
    EXPECT_EQ(String::FromDate(when, false), TEXT(""));
    when = SampleTime();
    when.wMonth = 13;
    EXPECT_EQ(String::FromDate(when, true), TEXT(""));
    when = SampleTime();
    when.wHour = 24;
    EXPECT_EQ(String::FromTime(when, true), TEXT(""));
    EXPECT_EQ(String::FromTime(when, false), TEXT(""));
}

TEST(StringConversions, ErrorTextIsOneLineOfTheSystems)
{
    for (DWORD code : {2u, 3u, 5u, 87u})
    {
        String const text = String::FromError(code);
        EXPECT_FALSE(text.empty()) << code;
        EXPECT_EQ(text.find_first_of(TEXT("\r\n")), String::npos) << text.Utf8();
    }
    EXPECT_NE(String::FromError(2), String::FromError(5));
}

TEST(StringConversions, UnknownErrorIsEmpty)
{
    EXPECT_EQ(String::FromError(0x12345678), TEXT(""));
    EXPECT_EQ(String::FromError(0xFFFFFFFF), TEXT(""));
}
