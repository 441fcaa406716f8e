#include <clocale>
#include <cstdarg>
#include <string>

#include <gtest/gtest.h>

#include <kvcore/core/String.h>

namespace
{

/// Formats twice from one list: the formatter must not use it up.
String FormattedTwice(WCHAR const * format, ...)
{
    std::va_list arguments;
    va_start(arguments, format);
    String text = String::FromFormatV(format, arguments);
    text += TEXT("|");
    text += String::FromFormatV(WString(format), arguments);
    va_end(arguments);
    return text;
}

String MessageTwice(WCHAR const * format, ...)
{
    std::va_list arguments;
    va_start(arguments, format);
    String text = String::FromFormatMessageV(format, arguments);
    text += TEXT("|");
    text += String::FromFormatMessageV(WString(format), arguments);
    va_end(arguments);
    return text;
}

} // namespace

TEST(StringFormat, PrintsWideTextAndNumbers)
{
    EXPECT_EQ(String::FromFormat(TEXT("")), TEXT(""));
    EXPECT_EQ(String::FromFormat(TEXT("100%%")), TEXT("100%"));
    EXPECT_EQ(String::FromFormat(TEXT("%s=%d %u"), TEXT("a\u20AC"), -5, 5u), TEXT("a\u20AC=-5 5"));
    EXPECT_EQ(
        String::FromFormat(TEXT("%hs %ls %c%c"), "narrow", TEXT("wide"), 'x', TEXT('\u20AC')),
        TEXT("narrow wide x\u20AC"));
    EXPECT_EQ(
        String::FromFormat(TEXT("%08x %5.2f|%-5d|%I64d"), 0xABCu, 3.14159, 7, -5000000000LL),
        TEXT("00000abc  3.14|7    |-5000000000"));
    EXPECT_EQ(String::FromFormat(TEXT("%S"), "narrow"), TEXT("narrow"));
}

TEST(StringFormat, TemplateMayBeAString)
{
    String const format = TEXT("%s %i");
    EXPECT_EQ(String::FromFormat(format, TEXT("a"), 1), TEXT("a 1"));
    EXPECT_EQ(String::FromFormat(WString(format), TEXT("a"), 1), TEXT("a 1"));
    String text;
    EXPECT_EQ(&text.Format(format, TEXT("b"), 2), &text);
    EXPECT_EQ(text, TEXT("b 2"));
    text.Format(WString(TEXT("plain")));
    EXPECT_EQ(text, TEXT("plain"));
}

TEST(StringFormat, FormatAssigns)
{
    String text = TEXT("before");
    EXPECT_EQ(&text.Format(TEXT("%d"), 5), &text);
    EXPECT_EQ(text, TEXT("5"));
}

TEST(StringFormat, FormatTakesPartsOfItself)
{
    String text = TEXT("<%s>");
    text.Format(text.c_str(), text.c_str());
    EXPECT_EQ(text, TEXT("<<%s>>"));
}

TEST(StringFormat, ArgumentListIsNotUsedUp)
{
    EXPECT_EQ(FormattedTwice(TEXT("%s %d %.1f"), TEXT("a"), 2, 3.5), TEXT("a 2 3.5|a 2 3.5"));
    EXPECT_EQ(MessageTwice(TEXT("%1 %2"), TEXT("a"), TEXT("b")), TEXT("a b|a b"));
}

TEST(StringFormat, TextsAroundTheFirstBufferSizesAreWhole)
{
    for (int length : {2045, 2046, 2047, 2048, 2049, 4093, 4094, 4095, 4096, 4097, 8191, 8192, 100000})
    {
        String const filler = String::FromChar(TEXT('x'), length);
        ASSERT_TRUE(String::FromFormat(TEXT("%s"), filler.c_str()) == filler) << length;
        ASSERT_TRUE(String::FromFormat(TEXT("%s%d"), filler.c_str(), 42) == filler + TEXT("42")) << length;
    }
    EXPECT_EQ(String::FromFormat(TEXT("%20000000d"), 1).size(), 20000000u);
}

TEST(StringFormat, TextEndsAtItsFirstNul)
{
    EXPECT_EQ(String::FromFormat(TEXT("a%cb"), 0), TEXT("a"));
}

TEST(StringFormat, DecimalPointIsAPointInEveryLocale)
{
    std::string const saved = std::setlocale(LC_ALL, nullptr);
    for (char const * name : {"de_DE.UTF-8", "de_DE.utf8", "German_Germany.1252", "de-DE"})
    {
        std::setlocale(LC_ALL, name); // is refused where the locale is not installed
        EXPECT_EQ(String::FromFormat(TEXT("%.2f"), 1.5), TEXT("1.50"));
    }
    std::setlocale(LC_ALL, saved.c_str());
}

TEST(StringFormat, MessagesTakeNumberedInserts)
{
    EXPECT_EQ(String::FromFormatMessage(TEXT("%2 before %1"), TEXT("one"), TEXT("two")), TEXT("two before one"));
    EXPECT_EQ(String::FromFormatMessage(String(TEXT("<%1>")), TEXT("x")), TEXT("<x>"));
    EXPECT_EQ(String::FromFormatMessage(WString(TEXT("<%1>")), TEXT("x")), TEXT("<x>"));
    EXPECT_EQ(String::FromFormatMessage(TEXT("%1!d! %%"), 5), TEXT("5 %"));
    EXPECT_EQ(String::FromFormatMessage(TEXT("")), TEXT(""));
}

TEST(StringFormat, MessagesKeepTheirLineEnds)
{
    EXPECT_EQ(String::FromFormatMessage(TEXT("%1%nb"), TEXT("a")), TEXT("a\r\nb"));
}

TEST(StringFormat, LongMessagesAreWhole)
{
    String const filler = String::FromChar(TEXT('x'), 20000);
    EXPECT_TRUE(String::FromFormatMessage(TEXT("<%1>"), filler.c_str()) == TEXT("<") + filler + TEXT(">"));
}
