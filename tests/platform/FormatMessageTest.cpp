#include <algorithm>
#include <cstdarg>
#include <iterator>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include <kvcore/platform/win32.h>

// The expectations are what Windows prints; where a text looks odd, it is kept.

namespace
{

constexpr DWORD untouched = 7777;

/// ERROR_NO_WORK_DONE, a name that not every set of the system's headers has.
constexpr DWORD noWorkDone = 235;

/// A message, and the last error after it.
struct Message
{
    WString text;
    DWORD error;
};

Message Collect(DWORD length, LPWSTR buffer)
{
    Message message{WString(), GetLastError()};
    if (length != 0)
    {
        EXPECT_EQ(buffer[length], 0) << "no NUL behind the text";
        message.text.assign(buffer, length);
        LocalFree(buffer);
    }
    else
    {
        EXPECT_EQ(buffer, nullptr) << "a failure leaves no buffer";
    }
    return message;
}

/// A template with the arguments of a C function.
Message Print(DWORD flags, WCHAR const * format, ...)
{
    std::va_list arguments;
    va_start(arguments, format);
    LPWSTR buffer = reinterpret_cast<LPWSTR>(&buffer);
    SetLastError(untouched);
    DWORD const length = FormatMessageW(
        flags | FORMAT_MESSAGE_FROM_STRING | FORMAT_MESSAGE_ALLOCATE_BUFFER, format, 0, 0,
        reinterpret_cast<LPWSTR>(&buffer), 0, &arguments);
    va_end(arguments);
    return Collect(length, buffer);
}

/// The same with an array of words.
Message PrintArray(WCHAR const * format, std::vector<DWORD_PTR> words)
{
    LPWSTR buffer = reinterpret_cast<LPWSTR>(&buffer);
    SetLastError(untouched);
    DWORD const length = FormatMessageW(
        FORMAT_MESSAGE_ARGUMENT_ARRAY | FORMAT_MESSAGE_FROM_STRING | FORMAT_MESSAGE_ALLOCATE_BUFFER, format, 0, 0,
        reinterpret_cast<LPWSTR>(&buffer), 0, reinterpret_cast<std::va_list *>(words.data()));
    return Collect(length, buffer);
}

DWORD_PTR Word(void const * text)
{
    return reinterpret_cast<DWORD_PTR>(text);
}

/// An argument of the width of a pointer: that is what the inserts of a message are fetched as.
DWORD_PTR Word(int value)
{
    return static_cast<DWORD_PTR>(static_cast<LONG_PTR>(value));
}

struct Line
{
    DWORD width;
    WCHAR const * format;
    WCHAR const * expected;
};

} // namespace

TEST(FormatMessageText, EscapesAndLineEndsOfATemplate)
{
    Line const rows[] = {
        {0, TEXT("plain"), TEXT("plain")},
        {0, TEXT("a%0b"), TEXT("a")},
        {0, TEXT("a%nb"), TEXT("a\r\nb")},
        {0, TEXT("a%rb"), TEXT("a\rb")},
        {0, TEXT("a%tb"), TEXT("a\tb")},
        {0, TEXT("a%bb"), TEXT("abb")},
        {0, TEXT("a%.b"), TEXT("a.b")},
        {0, TEXT("a%!b"), TEXT("a!b")},
        {0, TEXT("a%%b"), TEXT("a%b")},
        {0, TEXT("a% b"), TEXT("a b")},
        {0, TEXT("a%x"), TEXT("ax")},
        {0, TEXT("a%zb"), TEXT("azb")},
        {0, TEXT("a%\nb"), TEXT("a\nb")},
        {0, TEXT("a%\r\nb"), TEXT("a\r\r\nb")},
        {0, TEXT("a\nb"), TEXT("a\r\nb")},
        {0, TEXT("a\r\nb"), TEXT("a\r\nb")},
        {0, TEXT("a\rb"), TEXT("a\r\nb")},
        {0, TEXT("a\n\nb"), TEXT("a\r\n\r\nb")},
        {0, TEXT("a\n"), TEXT("a\r\n")},
        {0, TEXT("\n"), TEXT("\r\n")},
        {0, TEXT("a\tb"), TEXT("a\tb")},
        {0, TEXT("  a  b  "), TEXT("  a  b  ")},
        {0, TEXT("a\r\r\nb"), TEXT("a\r\n\r\nb")},
        {0, TEXT("a\n\rb"), TEXT("a\r\n\r\nb")},
    };
    for (Line const & row : rows)
    {
        Message const message = Print(0, row.format);
        EXPECT_EQ(message.text, row.expected) << testing::PrintToString(WString(row.format));
        EXPECT_EQ(message.error, untouched);
    }
}

TEST(FormatMessageText, LinesAreBrokenAtTheWidth)
{
    Line const rows[] = {
        {5, TEXT("a%nb%nc"), TEXT("a\r\nb\r\nc")},
        {5, TEXT("aaaaaaaaaaaa bb"), TEXT("aaaaa\r\naaaaa\r\naa\r\nbb")},
        {5, TEXT("a b c d e f g"), TEXT("a b\r\nc d\r\ne f\r\ng")},
        {5, TEXT("x  y"), TEXT("x  y")},
        {5, TEXT(" x y "), TEXT(" x y\r\n")},
        {5, TEXT("a%rb"), TEXT("a\rb")},
        {5, TEXT("a% % % % b c d e"), TEXT("a    \r\nb c\r\nd e")},
        {5, TEXT("a\n\nb"), TEXT("a  b")},
        {5, TEXT("a\n"), TEXT("a ")},
        {5, TEXT("abcde fgh"), TEXT("abcde\r\n fgh")},
        {5, TEXT("abcd fgh"), TEXT("abcd\r\nfgh")},
        {5, TEXT("abcdef fgh"), TEXT("abcde\r\nf\r\nfgh")},
        {5, TEXT("ab\tcd ef"), TEXT("ab\tcd\r\n ef")},
        {5, TEXT("a%tb%tc d e f"), TEXT("a\r\nb\r\nc d\r\ne f")},
        {255, TEXT("a%nb%nc"), TEXT("a\r\nb\r\nc")},
        {255, TEXT("aaaaaaaaaaaa bb"), TEXT("aaaaaaaaaaaa bb")},
        {255, TEXT("a b c d e f g"), TEXT("a b c d e f g")},
        {255, TEXT("x  y"), TEXT("x  y")},
        {255, TEXT(" x y "), TEXT(" x y ")},
        {255, TEXT("a%rb"), TEXT("a\rb")},
        {255, TEXT("a% % % % b c d e"), TEXT("a    b c d e")},
        {255, TEXT("a\n\nb"), TEXT("a  b")},
        {255, TEXT("a\n"), TEXT("a ")},
        {255, TEXT("abcde fgh"), TEXT("abcde fgh")},
        {255, TEXT("abcd fgh"), TEXT("abcd fgh")},
        {255, TEXT("abcdef fgh"), TEXT("abcdef fgh")},
        {255, TEXT("ab\tcd ef"), TEXT("ab\tcd ef")},
        {255, TEXT("a%tb%tc d e f"), TEXT("a\r\nb\r\nc d e f")},
        {3, TEXT("ab    c"), TEXT("ab\r\n\r\nc")},
        {3, TEXT("x    y"), TEXT("x\r\n\r\ny")},
        {3, TEXT("abc   "), TEXT("abc\r\n\r\n")},
        {3, TEXT("   abc"), TEXT("\r\nabc\r\n")},
        {3, TEXT("a%tb"), TEXT("a\r\nb")},
        {3, TEXT("%tab"), TEXT("\r\nab")},
        {3, TEXT("ab%t"), TEXT("ab\r\n")},
        {3, TEXT("ab %tcd"), TEXT("ab\r\n\r\ncd")},
        {3, TEXT("a b%tc"), TEXT("a\r\nb\r\nc")},
        {3, TEXT("ab%t%tcd"), TEXT("ab\r\n\r\ncd")},
        {3, TEXT("abc%rdefg hi"), TEXT("abc\r\n\rdef\r\ng\r\nhi")},
        {3, TEXT("a%r b c d"), TEXT("a\r b\r\nc\r\nd")},
        {3, TEXT("ab%ncd efg"), TEXT("ab\r\ncd\r\nefg\r\n")},
        {3, TEXT("abc%nd"), TEXT("abc\r\n\r\nd")},
        {3, TEXT("abcde%nf"), TEXT("abc\r\nde\r\nf")},
        {3, TEXT("a b c%nd"), TEXT("a\r\nb\r\nc\r\nd")},
        {3, TEXT("a%%b%%c%%d e"), TEXT("a%b\r\n%c%\r\nd\r\ne")},
        {3, TEXT("a%.b%!c% d e f"), TEXT("a.b\r\n!c \r\nd\r\ne\r\nf")},
        {3, TEXT("a\tb\tc d"), TEXT("a\tb\r\n\tc\r\nd")},
        {3, TEXT("ab\r\ncd\r\nef gh"), TEXT("ab\r\ncd\r\nef\r\ngh")},
        {3, TEXT("a\rb\rc"), TEXT("a\r\nb\r\nc")},
        {3, TEXT("a\n b \nc"), TEXT("a\r\nb\r\nc")},
        {3, TEXT("\n\na"), TEXT("\r\na")},
        {3, TEXT("a \n b"), TEXT("a\r\n b")},
        {3, TEXT("abcdefgh"), TEXT("abc\r\ndef\r\ngh")},
        {3, TEXT("abcdefghi"), TEXT("abc\r\ndef\r\nghi\r\n")},
        {3, TEXT("abcdefg hijk"), TEXT("abc\r\ndef\r\ng\r\nhij\r\nk")},
        {3, TEXT("a%0 b"), TEXT("a")},
        {3, TEXT("abc%0"), TEXT("abc\r\n")},
        {3, TEXT("ab %0"), TEXT("ab\r\n")},
        {3, TEXT("abcd %0"), TEXT("abc\r\nd ")},
        {5, TEXT("ab    c"), TEXT("ab\r\n c")},
        {5, TEXT("x    y"), TEXT("x\r\ny")},
        {5, TEXT("abc   "), TEXT("abc\r\n ")},
        {5, TEXT("   abc"), TEXT("\r\nabc")},
        {5, TEXT("a%tb"), TEXT("a\r\nb")},
        {5, TEXT("%tab"), TEXT("\r\nab")},
        {5, TEXT("ab%t"), TEXT("ab\r\n")},
        {5, TEXT("ab %tcd"), TEXT("ab \r\ncd")},
        {5, TEXT("a b%tc"), TEXT("a b\r\nc")},
        {5, TEXT("ab%t%tcd"), TEXT("ab\r\n\r\ncd")},
        {5, TEXT("abc%rdefg hi"), TEXT("abc\rdefg\r\nhi")},
        {5, TEXT("a%r b c d"), TEXT("a\r b c\r\nd")},
        {5, TEXT("ab%ncd efg"), TEXT("ab\r\ncd\r\nefg")},
        {5, TEXT("abc%nd"), TEXT("abc\r\nd")},
        {5, TEXT("abcde%nf"), TEXT("abcde\r\n\r\nf")},
        {5, TEXT("a b c%nd"), TEXT("a b\r\nc\r\nd")},
        {5, TEXT("a%%b%%c%%d e"), TEXT("a%b%c\r\n%d e")},
        {5, TEXT("a%.b%!c% d e f"), TEXT("a.b!c\r\n d e\r\nf")},
        {5, TEXT("a\tb\tc d"), TEXT("a\tb\tc\r\n d")},
        {5, TEXT("ab\r\ncd\r\nef gh"), TEXT("ab\r\ncd\r\nef\r\ngh")},
        {5, TEXT("a\rb\rc"), TEXT("a b\r\nc")},
        {5, TEXT("a\n b \nc"), TEXT("a  b\r\n c")},
        {5, TEXT("\n\na"), TEXT("  a")},
        {5, TEXT("a \n b"), TEXT("a\r\nb")},
        {5, TEXT("abcdefgh"), TEXT("abcde\r\nfgh")},
        {5, TEXT("abcdefghi"), TEXT("abcde\r\nfghi")},
        {5, TEXT("abcdefg hijk"), TEXT("abcde\r\nfg\r\nhijk")},
        {5, TEXT("a%0 b"), TEXT("a")},
        {5, TEXT("abc%0"), TEXT("abc")},
        {5, TEXT("ab %0"), TEXT("ab ")},
        {5, TEXT("abcd %0"), TEXT("abcd\r\n")},
        {8, TEXT("ab    c"), TEXT("ab    c")},
        {8, TEXT("x    y"), TEXT("x    y")},
        {8, TEXT("abc   "), TEXT("abc   ")},
        {8, TEXT("   abc"), TEXT("   abc")},
        {8, TEXT("a%tb"), TEXT("a\r\nb")},
        {8, TEXT("%tab"), TEXT("\r\nab")},
        {8, TEXT("ab%t"), TEXT("ab\r\n")},
        {8, TEXT("ab %tcd"), TEXT("ab \r\ncd")},
        {8, TEXT("a b%tc"), TEXT("a b\r\nc")},
        {8, TEXT("ab%t%tcd"), TEXT("ab\r\n\r\ncd")},
        {8, TEXT("abc%rdefg hi"), TEXT("abc\rdefg hi")},
        {8, TEXT("a%r b c d"), TEXT("a\r b c d")},
        {8, TEXT("ab%ncd efg"), TEXT("ab\r\ncd efg")},
        {8, TEXT("abc%nd"), TEXT("abc\r\nd")},
        {8, TEXT("abcde%nf"), TEXT("abcde\r\nf")},
        {8, TEXT("a b c%nd"), TEXT("a b c\r\nd")},
        {8, TEXT("a%%b%%c%%d e"), TEXT("a%b%c%d\r\ne")},
        {8, TEXT("a%.b%!c% d e f"), TEXT("a.b!c d\r\ne f")},
        {8, TEXT("a\tb\tc d"), TEXT("a\tb\tc d")},
        {8, TEXT("ab\r\ncd\r\nef gh"), TEXT("ab cd\r\nef gh")},
        {8, TEXT("a\rb\rc"), TEXT("a b c")},
        {8, TEXT("a\n b \nc"), TEXT("a  b  c")},
        {8, TEXT("\n\na"), TEXT("  a")},
        {8, TEXT("a \n b"), TEXT("a   b")},
        {8, TEXT("abcdefgh"), TEXT("abcdefgh\r\n")},
        {8, TEXT("abcdefghi"), TEXT("abcdefgh\r\ni")},
        {8, TEXT("abcdefg hijk"), TEXT("abcdefg\r\nhijk")},
        {8, TEXT("a%0 b"), TEXT("a")},
        {8, TEXT("abc%0"), TEXT("abc")},
        {8, TEXT("ab %0"), TEXT("ab ")},
        {8, TEXT("abcd %0"), TEXT("abcd ")},
        {255, TEXT("ab    c"), TEXT("ab    c")},
        {255, TEXT("x    y"), TEXT("x    y")},
        {255, TEXT("abc   "), TEXT("abc   ")},
        {255, TEXT("   abc"), TEXT("   abc")},
        {255, TEXT("a%tb"), TEXT("a\r\nb")},
        {255, TEXT("%tab"), TEXT("\r\nab")},
        {255, TEXT("ab%t"), TEXT("ab\r\n")},
        {255, TEXT("ab %tcd"), TEXT("ab \r\ncd")},
        {255, TEXT("a b%tc"), TEXT("a b\r\nc")},
        {255, TEXT("ab%t%tcd"), TEXT("ab\r\n\r\ncd")},
        {255, TEXT("abc%rdefg hi"), TEXT("abc\rdefg hi")},
        {255, TEXT("a%r b c d"), TEXT("a\r b c d")},
        {255, TEXT("ab%ncd efg"), TEXT("ab\r\ncd efg")},
        {255, TEXT("abc%nd"), TEXT("abc\r\nd")},
        {255, TEXT("abcde%nf"), TEXT("abcde\r\nf")},
        {255, TEXT("a b c%nd"), TEXT("a b c\r\nd")},
        {255, TEXT("a%%b%%c%%d e"), TEXT("a%b%c%d e")},
        {255, TEXT("a%.b%!c% d e f"), TEXT("a.b!c d e f")},
        {255, TEXT("a\tb\tc d"), TEXT("a\tb\tc d")},
        {255, TEXT("ab\r\ncd\r\nef gh"), TEXT("ab cd ef gh")},
        {255, TEXT("a\rb\rc"), TEXT("a b c")},
        {255, TEXT("a\n b \nc"), TEXT("a  b  c")},
        {255, TEXT("\n\na"), TEXT("  a")},
        {255, TEXT("a \n b"), TEXT("a   b")},
        {255, TEXT("abcdefgh"), TEXT("abcdefgh")},
        {255, TEXT("abcdefghi"), TEXT("abcdefghi")},
        {255, TEXT("abcdefg hijk"), TEXT("abcdefg hijk")},
        {255, TEXT("a%0 b"), TEXT("a")},
        {255, TEXT("abc%0"), TEXT("abc")},
        {255, TEXT("ab %0"), TEXT("ab ")},
        {255, TEXT("abcd %0"), TEXT("abcd ")},
    };
    for (Line const & row : rows)
    {
        EXPECT_EQ(Print(row.width, row.format).text, row.expected)
            << testing::PrintToString(WString(row.format)) << " width " << row.width;
    }
}

TEST(FormatMessageText, IgnoredInsertsStayAsTheyAre)
{
    Line const rows[] = {
        {0, TEXT("%1 %2!d! %n %% a\nb %0 c"), TEXT("%1 %2!d! \r\n %% a\r\nb ")},
        {0, TEXT("%1"), TEXT("%1")},
        {0, TEXT("a%nb"), TEXT("a\r\nb")},
        {0, TEXT("a%%b"), TEXT("a%%b")},
        {0, TEXT("a%tb%rc%bd%.e%!f% g%zh"), TEXT("a\tb\rc%bd%.e%!f% g%zh")},
        {0, TEXT("a%0b"), TEXT("a")},
        {0, TEXT("%1!s! %1!s"), TEXT("%1!s! %1!s")},
        {0, TEXT("%99"), TEXT("%99")},
        {0, TEXT("%100"), TEXT("%100")},
        {0, TEXT("a\r\nb\nc\rd"), TEXT("a\r\nb\r\nc\r\nd")},
        {5, TEXT("a %1 b %2 c"), TEXT("a %1\r\nb %2\r\nc")},
        {5, TEXT("a%tb%%c% d%.e%nf%rg h i j"), TEXT("a\r\nb%%c% \r\nd%.e\r\nf\rg h\r\ni j")},
        {8, TEXT("a %1 b %2 c"), TEXT("a %1 b\r\n%2 c")},
        {8, TEXT("a%tb%%c% d%.e%nf%rg h i j"), TEXT("a\r\nb%%c% d%.\r\ne\r\nf\rg h i j")},
        {255, TEXT("a %1 b %2 c"), TEXT("a %1 b %2 c")},
        {255, TEXT("a%tb%%c% d%.e%nf%rg h i j"), TEXT("a\r\nb%%c% d%.e\r\nf\rg h i j")},
    };
    for (Line const & row : rows)
    {
        EXPECT_EQ(Print(row.width | FORMAT_MESSAGE_IGNORE_INSERTS, row.format).text, row.expected)
            << testing::PrintToString(WString(row.format)) << " width " << row.width;
    }
}

TEST(FormatMessageText, InsertsAreTextAndMayRepeatAndComeInAnyOrder)
{
    WCHAR const * const a = TEXT("alpha");
    WCHAR const * const b = TEXT("beta");
    WCHAR const * const c = TEXT("gamma");
    EXPECT_EQ(Print(0, TEXT("%1"), a).text, TEXT("alpha"));
    EXPECT_EQ(Print(0, TEXT("%1 %2"), a, b).text, TEXT("alpha beta"));
    EXPECT_EQ(Print(0, TEXT("%2 %1"), a, b).text, TEXT("beta alpha"));
    EXPECT_EQ(Print(0, TEXT("%1%1 %1"), a).text, TEXT("alphaalpha alpha"));
    EXPECT_EQ(Print(0, TEXT("%3 %1"), a, b, c).text, TEXT("gamma alpha"));
    EXPECT_EQ(PrintArray(TEXT("%3 %1 %3"), {Word(a), Word(b), Word(c)}).text, TEXT("gamma alpha gamma"));
    EXPECT_EQ(Print(0, TEXT("%1a"), a).text, TEXT("alphaa"));
    EXPECT_EQ(Print(0, TEXT("%1"), static_cast<WCHAR const *>(nullptr)).text, TEXT("(null)"));
}

TEST(FormatMessageText, TextOfAnInsertIsNotATemplate)
{
    EXPECT_EQ(Print(0, TEXT("%1"), TEXT("x%ny%1%%")).text, TEXT("x%ny%1%%"));
    EXPECT_EQ(Print(0, TEXT("%1"), TEXT("x\ny\r\nz")).text, TEXT("x\ny\r\nz"));
}

TEST(FormatMessageText, InsertsHaveNumbersOfTwoDigits)
{
    std::vector<WString> texts;
    std::vector<DWORD_PTR> words;
    for (int i = 1; i <= 99; ++i)
    {
        std::string const digits = std::to_string(i);
        texts.push_back(TEXT("<") + WString(digits.begin(), digits.end()));
    }
    std::transform(
        texts.begin(), texts.end(), std::back_inserter(words), [](WString const & text) { return Word(text.c_str()); });
    EXPECT_EQ(PrintArray(TEXT("%1%9%10%100%99%999"), words).text, TEXT("<1<9<10<100<99<999"));
    EXPECT_EQ(PrintArray(TEXT("a%01"), words).text, TEXT("a")) << "%0 ends the text";
}

TEST(FormatMessageText, InsertsTakeAPrintfForm)
{
    struct
    {
        WCHAR const * format;
        DWORD_PTR word;
        WCHAR const * expected;
    } const rows[] = {
        {TEXT("%1!s! x"), Word(TEXT("text")), TEXT("text x")},
        {TEXT("%1!S!"), Word("narrow"), TEXT("narrow")},
        {TEXT("%1!hs!"), Word("narrow"), TEXT("narrow")},
        {TEXT("%1!ls!"), Word(TEXT("text")), TEXT("text")},
        {TEXT("%1!ws!"), Word(TEXT("text")), TEXT("text")},
        {TEXT("%1!10s!|"), Word(TEXT("text")), TEXT("      text|")},
        {TEXT("%1!-10s!|"), Word(TEXT("text")), TEXT("text      |")},
        {TEXT("%1!010s!|"), Word(TEXT("text")), TEXT("000000text|")},
        {TEXT("%1!.3s!|"), Word(TEXT("text")), TEXT("tex|")},
        {TEXT("%1!d!"), Word(42), TEXT("42")},
        {TEXT("%1!i!"), Word(-5), TEXT("-5")},
        {TEXT("%1!05d!|"), Word(42), TEXT("00042|")},
        {TEXT("%1!08.5d!|"), Word(42), TEXT("00000042|")},
        {TEXT("%1!-5d!|"), Word(42), TEXT("42   |")},
        {TEXT("%1! d!|"), Word(5), TEXT(" 5|")},
        {TEXT("%1!+d!|"), Word(5), TEXT("+5|")},
        {TEXT("%1!.0d!|"), Word(0), TEXT("|")},
        {TEXT("%1!u!"), Word(-1), TEXT("4294967295")},
        {TEXT("%1!x!"), Word(255), TEXT("ff")},
        {TEXT("%1!#X!"), Word(255), TEXT("0XFF")},
        {TEXT("%1!o!"), Word(8), TEXT("10")},
        {TEXT("%1!hd!"), Word(70000), TEXT("4464")},
        {TEXT("%1!hhd!"), Word(300), TEXT("300")},
        {TEXT("%1!ld!"), Word(5), TEXT("5")},
        {TEXT("%1!lx!"), Word(-1), TEXT("ffffffff")},
        {TEXT("%1!I32d!"), Word(-1), TEXT("-1")},
        {TEXT("%1!c!"), Word('A'), TEXT("A")},
        {TEXT("%1!5c!|"), Word('A'), TEXT("    A|")},
        {TEXT("%1!lc!"), Word(0x20AC), TEXT("\x20AC")},
        {TEXT("%1!hc!"), Word('A'), TEXT("A")},
        // What printf does not know is text from its letter on; a form may hold text of its own.
        {TEXT("%1!y!"), Word(5), TEXT("y")},
        {TEXT("%1!Nd!"), Word(5), TEXT("Nd")},
        {TEXT("%1!dz!"), Word(5), TEXT("5z")},
        {TEXT("%1!d!!"), Word(5), TEXT("5!")},
        {TEXT("%1!d%2!"), Word(5), TEXT("5")},
        {TEXT("%1!d%%!"), Word(5), TEXT("5%")},
        {TEXT("%1!%d!"), Word(5), TEXT("%d")},
        // Floating-point numbers are none of its conversions.
        {TEXT("%1!f!"), Word(5), TEXT("f")},
        {TEXT("%1!5.2f!"), Word(5), TEXT("f")},
        {TEXT("%1!e!"), Word(5), TEXT("e")},
        {TEXT("%1!g!"), Word(5), TEXT("g")},
        {TEXT("%1!a!"), Word(5), TEXT("a")},
    };
    for (auto const & row : rows)
    {
        EXPECT_EQ(Print(0, row.format, row.word).text, row.expected) << testing::PrintToString(WString(row.format));
        EXPECT_EQ(PrintArray(row.format, {row.word}).text, row.expected) << testing::PrintToString(WString(row.format));
    }
}

TEST(FormatMessageText, CharactersMayBeNul)
{
    WString const expected(TEXT("a\0b"), 3);
    EXPECT_EQ(Print(0, TEXT("a%1!c!b"), Word(0)).text, expected);
}

TEST(FormatMessageText, StarsTakeArgumentsAndShiftTheNumbersThatFollow)
{
    struct
    {
        WCHAR const * format;
        WCHAR const * list;
        WCHAR const * array;
    } const rows[] = {
        {TEXT("%1!*d!|%2!d!|%3!d!|%4!d!"), TEXT("  4|13|14|15"), TEXT("  4|4|13|14")},
        {TEXT("%1!*.*d!|%2!d!|%3!d!|%4!d!|%5!d!"), TEXT("0013|13|14|15|16"), TEXT("0013|4|13|14|15")},
        {TEXT("%1!.*d!|%2!d!|%3!d!|%4!d!"), TEXT("004|13|14|15"), TEXT("004|4|13|14")},
        {TEXT("%2!*d!|%1!d!|%3!d!|%4!d!"), TEXT("  13|3|14|15"), TEXT("  13|3|13|14")},
        {TEXT("%3!d!|%1!*d!|%2!d!|%3!d!|%4!d!|%5!d!"), TEXT("13| 14|4|14|15|16"), TEXT("13| 14|4|13|14|15")},
        {TEXT("%1!d! %1!*d!|%2!d!|%3!d!"), TEXT("3   4|13|14"), TEXT("3   4|4|13")},
        {TEXT("%5!d!|%1!*d!|%6!d!|%7!d!"), TEXT("15| 16|17|18"), TEXT("15| 16|16|17")},
        {TEXT("%5!d!|%1!*.*d!|%6!d!|%7!d!|%2!d!|%3!d!"), TEXT("15|0000000000000017|17|18|4|13"),
         TEXT("15|0000000000000017|16|17|4|13")},
        {TEXT("%1!.*d!|%1!d!|%2!d!"), TEXT("004|4|13"), TEXT("004|3|4")},
        {TEXT("%2!.*d!|%1!d!|%2!d!|%3!d!"), TEXT("0013|3|13|14"), TEXT("0013|3|4|13")},
    };
    std::vector<DWORD_PTR> const words{3, 4, 13, 14, 15, 16, 17, 18, 19, 20};
    for (auto const & row : rows)
    {
        EXPECT_EQ(
            Print(0, row.format, words[0], words[1], words[2], words[3], words[4], words[5], words[6], words[7]).text,
            row.list)
            << testing::PrintToString(WString(row.format));
        EXPECT_EQ(PrintArray(row.format, words).text, row.array) << testing::PrintToString(WString(row.format));
    }
}

TEST(FormatMessageText, StarsMayBeNegative)
{
    EXPECT_EQ(Print(0, TEXT("%1!*d!|"), Word(-8), Word(42)).text, TEXT("42      |"));
    EXPECT_EQ(Print(0, TEXT("%1!.*d!|"), Word(-8), Word(42)).text, TEXT("42|"));
    EXPECT_EQ(PrintArray(TEXT("%1!*s!|"), {Word(-6), Word(TEXT("abc"))}).text, TEXT("abc   |"));
}

TEST(FormatMessageText, InsertsAreNotBrokenByAWidth)
{
    WCHAR const * const a = TEXT("alpha");
    WCHAR const * const b = TEXT("beta");
    WCHAR const * const blanks = TEXT("long text with blanks");
    struct
    {
        DWORD width;
        WCHAR const * format;
        WCHAR const * first;
        WCHAR const * second;
        WCHAR const * expected;
    } const rows[] = {
        {5, TEXT("%1 %2"), a, b, TEXT("alpha\r\n\r\nbeta")},
        {5, TEXT("a %1 b %2 c"), a, b, TEXT("a\r\nalpha\r\nb\r\nbeta\r\nc")},
        {5, TEXT("%1%2 x"), a, b, TEXT("alpha\r\nbeta\r\nx")},
        {5, TEXT("a b %1"), blanks, b, TEXT("a b\r\nlong text with blanks")},
        {5, TEXT("%1 z"), blanks, b, TEXT("long text with blanks\r\n z")},
        {5, TEXT("a%1"), TEXT("bc de"), b, TEXT("abc de\r\n")},
        {8, TEXT("a %1 b %2 c"), a, b, TEXT("a alpha\r\nb beta\r\nc")},
        {8, TEXT("%1%2 x"), a, b, TEXT("alphabeta\r\n x")},
        {8, TEXT("a %1 z z z z"), TEXT("x\r\ny"), b, TEXT("a x\r\ny\r\nz z z z")},
        {255, TEXT("%1\n%2"), a, b, TEXT("alpha beta")},
    };
    for (auto const & row : rows)
    {
        EXPECT_EQ(Print(row.width, row.format, row.first, row.second).text, row.expected)
            << testing::PrintToString(WString(row.format)) << " width " << row.width;
    }
}

TEST(FormatMessageText, EmptyTextIsNoMessage)
{
    for (WCHAR const * const format : {TEXT(""), TEXT("%0"), TEXT("%00"), TEXT("%0 text")})
    {
        EXPECT_EQ(Print(0, format).error, noWorkDone);
    }
    EXPECT_EQ(Print(0, TEXT("%1!!"), TEXT("x")).error, noWorkDone);
    EXPECT_EQ(Print(0, TEXT("%1!5!"), TEXT("x")).error, noWorkDone);
    EXPECT_EQ(Print(0, TEXT("%1"), TEXT("")).error, noWorkDone);
    WCHAR buffer[4] = {TEXT('~')};
    EXPECT_EQ(FormatMessageW(FORMAT_MESSAGE_FROM_STRING, TEXT(""), 0, 0, buffer, 4, nullptr), 0u);
    EXPECT_EQ(GetLastError(), noWorkDone);
    EXPECT_EQ(buffer[0], 0);
}

TEST(FormatMessageText, MangledTemplatesAreInvalid)
{
    for (WCHAR const * const format :
         {TEXT("%"), TEXT("a%"), TEXT("%1!"), TEXT("%1!s"), TEXT("%1!d"),
          TEXT("%1!00000000000000000000000000000000000000008d!"), TEXT("%1!4294967297d")})
    {
        EXPECT_EQ(Print(0, format, Word(5)).error, DWORD{ERROR_INVALID_PARAMETER})
            << testing::PrintToString(WString(format));
    }
    EXPECT_EQ(Print(FORMAT_MESSAGE_IGNORE_INSERTS, TEXT("a%")).error, DWORD{ERROR_INVALID_PARAMETER});
}

TEST(FormatMessageText, FormsOfThirtyElementsAreTheLongest)
{
    EXPECT_EQ(Print(0, TEXT("%1!0000000000000000000000000008d!"), Word(5)).text, TEXT("00000005"));
    EXPECT_EQ(Print(0, TEXT("%1!00000000000000000000000000000008d!"), Word(5)).error, DWORD{ERROR_INVALID_PARAMETER});
}

TEST(FormatMessageText, InsertsNeedArguments)
{
    WCHAR buffer[10];
    for (DWORD const flags : {DWORD{0}, DWORD{FORMAT_MESSAGE_ARGUMENT_ARRAY}})
    {
        SetLastError(untouched);
        EXPECT_EQ(FormatMessageW(flags | FORMAT_MESSAGE_FROM_STRING, TEXT("a%1"), 0, 0, buffer, 10, nullptr), 0u);
        EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_PARAMETER});
        EXPECT_EQ(FormatMessageW(flags | FORMAT_MESSAGE_FROM_STRING, TEXT("a%%"), 0, 0, buffer, 10, nullptr), 2u);
    }
}

TEST(FormatMessageText, BufferOfTheCallerHoldsWhatFits)
{
    struct
    {
        WCHAR const * format;
        DWORD capacity;
        DWORD length;
        WCHAR const * buffer;
    } const rows[] = {
        {TEXT("abc"), 10, 3, TEXT("abc\0~~~~")},   {TEXT("abc"), 4, 3, TEXT("abc\0~~~~")},
        {TEXT("abc"), 3, 0, TEXT("ab\0~~~~~")},    {TEXT("abc"), 1, 0, TEXT("\0~~~~~~~")},
        {TEXT("abc"), 0, 0, TEXT("~~~~~~~~")},     {TEXT("a\nb"), 5, 4, TEXT("a\r\nb\0~~~")},
        {TEXT("a\nb"), 4, 0, TEXT("a\r\n\0~~~~")},
    };
    for (auto const & row : rows)
    {
        WString buffer(10, TEXT('~'));
        SetLastError(untouched);
        EXPECT_EQ(
            FormatMessageW(FORMAT_MESSAGE_FROM_STRING, row.format, 0, 0, buffer.data(), row.capacity, nullptr),
            row.length);
        EXPECT_EQ(GetLastError(), row.length != 0 ? untouched : DWORD{ERROR_INSUFFICIENT_BUFFER});
        EXPECT_EQ(buffer.substr(0, 8), WString(row.buffer, 8)) << "capacity " << row.capacity;
    }
}

TEST(FormatMessageText, AllocatedBufferHasAtLeastTheCapacity)
{
    for (DWORD const capacity : {0u, 2u, 100u, 65536u})
    {
        LPWSTR buffer = nullptr;
        EXPECT_EQ(
            FormatMessageW(
                FORMAT_MESSAGE_FROM_STRING | FORMAT_MESSAGE_ALLOCATE_BUFFER, TEXT("abc"), 0, 0,
                reinterpret_cast<LPWSTR>(&buffer), capacity, nullptr),
            3u);
        EXPECT_EQ(WString(buffer), TEXT("abc"));
        EXPECT_EQ(LocalSize(buffer), std::max<SIZE_T>(4, capacity) * sizeof(WCHAR));
        EXPECT_EQ(LocalFree(buffer), nullptr);
    }
}

TEST(FormatMessageText, NoBufferOrNoSourceIsInvalid)
{
    WCHAR buffer[10];
    SetLastError(untouched);
    EXPECT_EQ(FormatMessageW(FORMAT_MESSAGE_FROM_STRING, TEXT("abc"), 0, 0, nullptr, 10, nullptr), 0u);
    EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_PARAMETER});
    SetLastError(untouched);
    EXPECT_EQ(FormatMessageW(0, TEXT("abc"), 0, 0, buffer, 10, nullptr), 0u);
    EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_PARAMETER});
    EXPECT_EQ(FormatMessageW(FORMAT_MESSAGE_FROM_STRING, nullptr, 0, 0, buffer, 10, nullptr), 0u);
}

TEST(FormatMessageText, StringGoesBeforeTheSystem)
{
    WCHAR buffer[10];
    EXPECT_EQ(
        FormatMessageW(
            FORMAT_MESSAGE_FROM_STRING | FORMAT_MESSAGE_FROM_SYSTEM, TEXT("abc"), ERROR_FILE_NOT_FOUND, 0, buffer, 10,
            nullptr),
        3u);
    EXPECT_EQ(WString(buffer), TEXT("abc"));
}

TEST(FormatMessageText, AFailureThatShouldAllocateLeavesNull)
{
    struct
    {
        DWORD flags;
        WCHAR const * source;
        DWORD code;
    } const cases[] = {
        {0, TEXT("abc"), 0},
        {FORMAT_MESSAGE_FROM_STRING, nullptr, 0},
        {FORMAT_MESSAGE_FROM_STRING, TEXT("%"), 0},
        {FORMAT_MESSAGE_FROM_STRING, TEXT("%1"), 0},
        {FORMAT_MESSAGE_FROM_STRING, TEXT(""), 0},
        {FORMAT_MESSAGE_FROM_SYSTEM, nullptr, 0x0FFFFFFF},
    };
    for (auto const & row : cases)
    {
        LPWSTR buffer = reinterpret_cast<LPWSTR>(&buffer);
        EXPECT_EQ(
            FormatMessageW(
                row.flags | FORMAT_MESSAGE_ALLOCATE_BUFFER, row.source, row.code, 0, reinterpret_cast<LPWSTR>(&buffer),
                0, nullptr),
            0u);
        EXPECT_EQ(buffer, nullptr) << row.flags << ' ' << row.code;
    }
}

TEST(FormatMessageText, LongTextsAreWhole)
{
    WString const text(300000, TEXT('x'));
    EXPECT_EQ(Print(0, text.c_str()).text, text);
    EXPECT_EQ(Print(0, TEXT("%1"), text.c_str()).text, text);
    EXPECT_EQ(Print(0, TEXT("%1!65536d!"), Word(5)).text.size(), 65536u);
}

namespace
{

Message SystemText(DWORD code, DWORD language = LOCALE_USER_DEFAULT)
{
    LPWSTR buffer = nullptr;
    SetLastError(untouched);
    DWORD const length = FormatMessageW(
        FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_IGNORE_INSERTS | FORMAT_MESSAGE_FROM_SYSTEM, nullptr, code,
        language, reinterpret_cast<LPWSTR>(&buffer), 0, nullptr);
    return Collect(length, buffer);
}

} // namespace

TEST(SystemMessages, EndInALineEnd)
{
    for (DWORD const code :
         {0u,    1u,    2u,    3u,    4u,    5u,    6u,    8u,    12u,   13u,   14u,   15u,   16u,   17u,  18u,   19u,
          20u,   21u,   23u,   24u,   25u,   27u,   29u,   30u,   31u,   32u,   33u,   36u,   38u,   39u,  50u,   53u,
          64u,   65u,   67u,   80u,   82u,   87u,   89u,   109u,  110u,  111u,  112u,  113u,  120u,  121u, 122u,  123u,
          124u,  126u,  127u,  128u,  131u,  132u,  145u,  154u,  158u,  161u,  170u,  183u,  187u,  193u, 203u,  206u,
          230u,  231u,  232u,  233u,  234u,  259u,  267u,  317u,  487u,  534u,  995u,  996u,  997u,  998u, 1003u, 1004u,
          1005u, 1006u, 1113u, 1117u, 1223u, 1314u, 1359u, 1392u, 1450u, 1455u, 1460u, 1784u, 1816u, 2250u})
    {
        Message const message = SystemText(code);
        ASSERT_GT(message.text.size(), 2u) << code;
        EXPECT_EQ(message.text.substr(message.text.size() - 2), TEXT("\r\n")) << code;
        EXPECT_EQ(message.text.find_first_of(TEXT("\r\n")), message.text.size() - 2) << code << ": one line";
        EXPECT_EQ(message.error, untouched);
    }
}

TEST(SystemMessages, Win32CodesInResultsReadTheSame)
{
    for (DWORD const code : {2u, 5u, 14u, 87u, 183u})
    {
        EXPECT_EQ(SystemText(0x80070000u | code).text, SystemText(code).text);
    }
}

TEST(SystemMessages, UnknownCodesAreNotFound)
{
    for (DWORD const code : {99999u, 0x0FFFFFFFu, 0xFFFFFFFFu, 0x8007FFFFu})
    {
        EXPECT_EQ(SystemText(code).error, DWORD{ERROR_MR_MID_NOT_FOUND}) << code;
    }
}

TEST(SystemMessages, DoNotFitIntoASmallBuffer)
{
    WCHAR buffer[5];
    SetLastError(untouched);
    EXPECT_EQ(
        FormatMessageW(
            FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr, ERROR_FILE_NOT_FOUND, 0, buffer, 5,
            nullptr),
        0u);
    EXPECT_EQ(GetLastError(), DWORD{ERROR_INSUFFICIENT_BUFFER});
    EXPECT_EQ(WString(buffer), SystemText(ERROR_FILE_NOT_FOUND).text.substr(0, 4));
}

TEST(SystemMessages, LoseTheirLineEndToAWidth)
{
    LPWSTR buffer = nullptr;
    WString const line = SystemText(ERROR_FILE_NOT_FOUND).text;
    DWORD const length = FormatMessageW(
        FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS |
            FORMAT_MESSAGE_MAX_WIDTH_MASK,
        nullptr, ERROR_FILE_NOT_FOUND, 0, reinterpret_cast<LPWSTR>(&buffer), 0, nullptr);
    EXPECT_EQ(Collect(length, buffer).text, line.substr(0, line.size() - 2) + TEXT(" "));
}

#ifndef _WIN32 // The words are the system's own.
TEST(SystemMessages, EveryCodeThatIsReportedHasAText)
{
    struct
    {
        char const * name;
        DWORD code;
    } const cases[] = {
        {"ERROR_ACCESS_DENIED", static_cast<DWORD>(ERROR_ACCESS_DENIED)},
        {"ERROR_ALREADY_EXISTS", static_cast<DWORD>(ERROR_ALREADY_EXISTS)},
        {"ERROR_BADDB", static_cast<DWORD>(ERROR_BADDB)},
        {"ERROR_BADKEY", static_cast<DWORD>(ERROR_BADKEY)},
        {"ERROR_BAD_EXE_FORMAT", static_cast<DWORD>(ERROR_BAD_EXE_FORMAT)},
        {"ERROR_BAD_LENGTH", static_cast<DWORD>(ERROR_BAD_LENGTH)},
        {"ERROR_BAD_NETPATH", static_cast<DWORD>(ERROR_BAD_NETPATH)},
        {"ERROR_BAD_NET_NAME", static_cast<DWORD>(ERROR_BAD_NET_NAME)},
        {"ERROR_BAD_PATHNAME", static_cast<DWORD>(ERROR_BAD_PATHNAME)},
        {"ERROR_BAD_PIPE", static_cast<DWORD>(ERROR_BAD_PIPE)},
        {"ERROR_BROKEN_PIPE", static_cast<DWORD>(ERROR_BROKEN_PIPE)},
        {"ERROR_BUFFER_OVERFLOW", static_cast<DWORD>(ERROR_BUFFER_OVERFLOW)},
        {"ERROR_BUSY", static_cast<DWORD>(ERROR_BUSY)},
        {"ERROR_CALL_NOT_IMPLEMENTED", static_cast<DWORD>(ERROR_CALL_NOT_IMPLEMENTED)},
        {"ERROR_CANNOT_MAKE", static_cast<DWORD>(ERROR_CANNOT_MAKE)},
        {"ERROR_CANTOPEN", static_cast<DWORD>(ERROR_CANTOPEN)},
        {"ERROR_CANT_RESOLVE_FILENAME", static_cast<DWORD>(ERROR_CANT_RESOLVE_FILENAME)},
        {"ERROR_CHILD_MUST_BE_VOLATILE", static_cast<DWORD>(ERROR_CHILD_MUST_BE_VOLATILE)},
        {"ERROR_COMMITMENT_LIMIT", static_cast<DWORD>(ERROR_COMMITMENT_LIMIT)},
        {"ERROR_CURRENT_DIRECTORY", static_cast<DWORD>(ERROR_CURRENT_DIRECTORY)},
        {"ERROR_DIRECTORY", static_cast<DWORD>(ERROR_DIRECTORY)},
        {"ERROR_DIR_NOT_EMPTY", static_cast<DWORD>(ERROR_DIR_NOT_EMPTY)},
        {"ERROR_DIR_NOT_ROOT", static_cast<DWORD>(ERROR_DIR_NOT_ROOT)},
        {"ERROR_DISCARDED", static_cast<DWORD>(ERROR_DISCARDED)},
        {"ERROR_DISK_FULL", static_cast<DWORD>(ERROR_DISK_FULL)},
        {"ERROR_ENVVAR_NOT_FOUND", static_cast<DWORD>(ERROR_ENVVAR_NOT_FOUND)},
        {"ERROR_FILENAME_EXCED_RANGE", static_cast<DWORD>(ERROR_FILENAME_EXCED_RANGE)},
        {"ERROR_FILE_CORRUPT", static_cast<DWORD>(ERROR_FILE_CORRUPT)},
        {"ERROR_FILE_EXISTS", static_cast<DWORD>(ERROR_FILE_EXISTS)},
        {"ERROR_FILE_INVALID", static_cast<DWORD>(ERROR_FILE_INVALID)},
        {"ERROR_FILE_NOT_FOUND", static_cast<DWORD>(ERROR_FILE_NOT_FOUND)},
        {"ERROR_FILE_TOO_LARGE", static_cast<DWORD>(ERROR_FILE_TOO_LARGE)},
        {"ERROR_GEN_FAILURE", static_cast<DWORD>(ERROR_GEN_FAILURE)},
        {"ERROR_HANDLE_DISK_FULL", static_cast<DWORD>(ERROR_HANDLE_DISK_FULL)},
        {"ERROR_HANDLE_EOF", static_cast<DWORD>(ERROR_HANDLE_EOF)},
        {"ERROR_INSUFFICIENT_BUFFER", static_cast<DWORD>(ERROR_INSUFFICIENT_BUFFER)},
        {"ERROR_INVALID_ADDRESS", static_cast<DWORD>(ERROR_INVALID_ADDRESS)},
        {"ERROR_INVALID_DATA", static_cast<DWORD>(ERROR_INVALID_DATA)},
        {"ERROR_INVALID_DRIVE", static_cast<DWORD>(ERROR_INVALID_DRIVE)},
        {"ERROR_INVALID_FLAGS", static_cast<DWORD>(ERROR_INVALID_FLAGS)},
        {"ERROR_INVALID_FUNCTION", static_cast<DWORD>(ERROR_INVALID_FUNCTION)},
        {"ERROR_INVALID_HANDLE", static_cast<DWORD>(ERROR_INVALID_HANDLE)},
        {"ERROR_INVALID_MSGBOX_STYLE", static_cast<DWORD>(ERROR_INVALID_MSGBOX_STYLE)},
        {"ERROR_INVALID_NAME", static_cast<DWORD>(ERROR_INVALID_NAME)},
        {"ERROR_INVALID_PARAMETER", static_cast<DWORD>(ERROR_INVALID_PARAMETER)},
        {"ERROR_INVALID_SPI_VALUE", static_cast<DWORD>(ERROR_INVALID_SPI_VALUE)},
        {"ERROR_INVALID_USER_BUFFER", static_cast<DWORD>(ERROR_INVALID_USER_BUFFER)},
        {"ERROR_IO_DEVICE", static_cast<DWORD>(ERROR_IO_DEVICE)},
        {"ERROR_IO_INCOMPLETE", static_cast<DWORD>(ERROR_IO_INCOMPLETE)},
        {"ERROR_IO_PENDING", static_cast<DWORD>(ERROR_IO_PENDING)},
        {"ERROR_KEY_DELETED", static_cast<DWORD>(ERROR_KEY_DELETED)},
        {"ERROR_KEY_HAS_CHILDREN", static_cast<DWORD>(ERROR_KEY_HAS_CHILDREN)},
        {"ERROR_LOCK_VIOLATION", static_cast<DWORD>(ERROR_LOCK_VIOLATION)},
        {"ERROR_MAPPED_ALIGNMENT", static_cast<DWORD>(ERROR_MAPPED_ALIGNMENT)},
        {"ERROR_MOD_NOT_FOUND", static_cast<DWORD>(ERROR_MOD_NOT_FOUND)},
        {"ERROR_MORE_DATA", static_cast<DWORD>(ERROR_MORE_DATA)},
        {"ERROR_MR_MID_NOT_FOUND", static_cast<DWORD>(ERROR_MR_MID_NOT_FOUND)},
        {"ERROR_NEGATIVE_SEEK", static_cast<DWORD>(ERROR_NEGATIVE_SEEK)},
        {"ERROR_NOACCESS", static_cast<DWORD>(ERROR_NOACCESS)},
        {"ERROR_NOT_ENOUGH_MEMORY", static_cast<DWORD>(ERROR_NOT_ENOUGH_MEMORY)},
        {"ERROR_NOT_FOUND", static_cast<DWORD>(ERROR_NOT_FOUND)},
        {"ERROR_NOT_LOCKED", static_cast<DWORD>(ERROR_NOT_LOCKED)},
        {"ERROR_NOT_READY", static_cast<DWORD>(ERROR_NOT_READY)},
        {"ERROR_NOT_SAME_DEVICE", static_cast<DWORD>(ERROR_NOT_SAME_DEVICE)},
        {"ERROR_NOT_SUPPORTED", static_cast<DWORD>(ERROR_NOT_SUPPORTED)},
        {"ERROR_NO_DATA", static_cast<DWORD>(ERROR_NO_DATA)},
        {"ERROR_NO_MORE_FILES", static_cast<DWORD>(ERROR_NO_MORE_FILES)},
        {"ERROR_NO_MORE_ITEMS", static_cast<DWORD>(ERROR_NO_MORE_ITEMS)},
        {"ERROR_NO_SUCH_PRIVILEGE", static_cast<DWORD>(ERROR_NO_SUCH_PRIVILEGE)},
        {"ERROR_NO_SYSTEM_RESOURCES", static_cast<DWORD>(ERROR_NO_SYSTEM_RESOURCES)},
        {"ERROR_NO_UNICODE_TRANSLATION", static_cast<DWORD>(ERROR_NO_UNICODE_TRANSLATION)},
        {"ERROR_NO_WORK_DONE", noWorkDone},
        {"ERROR_OLD_WIN_VERSION", static_cast<DWORD>(ERROR_OLD_WIN_VERSION)},
        {"ERROR_OPERATION_ABORTED", static_cast<DWORD>(ERROR_OPERATION_ABORTED)},
        {"ERROR_OUTOFMEMORY", static_cast<DWORD>(ERROR_OUTOFMEMORY)},
        {"ERROR_PATH_NOT_FOUND", static_cast<DWORD>(ERROR_PATH_NOT_FOUND)},
        {"ERROR_PROC_NOT_FOUND", static_cast<DWORD>(ERROR_PROC_NOT_FOUND)},
        {"ERROR_READ_FAULT", static_cast<DWORD>(ERROR_READ_FAULT)},
        {"ERROR_REGISTRY_IO_FAILED", static_cast<DWORD>(ERROR_REGISTRY_IO_FAILED)},
        {"ERROR_RESOURCE_DATA_NOT_FOUND", static_cast<DWORD>(ERROR_RESOURCE_DATA_NOT_FOUND)},
        {"ERROR_RESOURCE_LANG_NOT_FOUND", static_cast<DWORD>(ERROR_RESOURCE_LANG_NOT_FOUND)},
        {"ERROR_RESOURCE_NAME_NOT_FOUND", static_cast<DWORD>(ERROR_RESOURCE_NAME_NOT_FOUND)},
        {"ERROR_RESOURCE_TYPE_NOT_FOUND", static_cast<DWORD>(ERROR_RESOURCE_TYPE_NOT_FOUND)},
        {"ERROR_SEEK", static_cast<DWORD>(ERROR_SEEK)},
        {"ERROR_SEEK_ON_DEVICE", static_cast<DWORD>(ERROR_SEEK_ON_DEVICE)},
        {"ERROR_SHARING_VIOLATION", static_cast<DWORD>(ERROR_SHARING_VIOLATION)},
        {"ERROR_TOO_MANY_LINKS", static_cast<DWORD>(ERROR_TOO_MANY_LINKS)},
        {"ERROR_TOO_MANY_OPEN_FILES", static_cast<DWORD>(ERROR_TOO_MANY_OPEN_FILES)},
        {"ERROR_UNABLE_TO_MOVE_REPLACEMENT", static_cast<DWORD>(ERROR_UNABLE_TO_MOVE_REPLACEMENT)},
        {"ERROR_UNABLE_TO_REMOVE_REPLACED", static_cast<DWORD>(ERROR_UNABLE_TO_REMOVE_REPLACED)},
        {"ERROR_UNRECOGNIZED_VOLUME", static_cast<DWORD>(ERROR_UNRECOGNIZED_VOLUME)},
        {"ERROR_USER_MAPPED_FILE", static_cast<DWORD>(ERROR_USER_MAPPED_FILE)},
        {"ERROR_WRITE_FAULT", static_cast<DWORD>(ERROR_WRITE_FAULT)},
        {"ERROR_WRITE_PROTECT", static_cast<DWORD>(ERROR_WRITE_PROTECT)},
        {"RPC_S_SERVER_UNAVAILABLE", static_cast<DWORD>(RPC_S_SERVER_UNAVAILABLE)},
        {"CLASS_E_CLASSNOTAVAILABLE", static_cast<DWORD>(CLASS_E_CLASSNOTAVAILABLE)},
        {"CLASS_E_NOAGGREGATION", static_cast<DWORD>(CLASS_E_NOAGGREGATION)},
        {"CO_E_CLASSSTRING", static_cast<DWORD>(CO_E_CLASSSTRING)},
        {"CO_E_DLLNOTFOUND", static_cast<DWORD>(CO_E_DLLNOTFOUND)},
        {"CO_E_ERRORINDLL", static_cast<DWORD>(CO_E_ERRORINDLL)},
        {"CO_E_IIDSTRING", static_cast<DWORD>(CO_E_IIDSTRING)},
        {"CO_E_NOTINITIALIZED", static_cast<DWORD>(CO_E_NOTINITIALIZED)},
        {"CO_E_OBJISREG", static_cast<DWORD>(CO_E_OBJISREG)},
        {"DISP_E_BADINDEX", static_cast<DWORD>(DISP_E_BADINDEX)},
        {"DISP_E_BADVARTYPE", static_cast<DWORD>(DISP_E_BADVARTYPE)},
        {"DISP_E_MEMBERNOTFOUND", static_cast<DWORD>(DISP_E_MEMBERNOTFOUND)},
        {"DISP_E_TYPEMISMATCH", static_cast<DWORD>(DISP_E_TYPEMISMATCH)},
        {"DISP_E_UNKNOWNNAME", static_cast<DWORD>(DISP_E_UNKNOWNNAME)},
        {"E_FAIL", static_cast<DWORD>(E_FAIL)},
        {"E_INVALIDARG", static_cast<DWORD>(E_INVALIDARG)},
        {"E_NOINTERFACE", static_cast<DWORD>(E_NOINTERFACE)},
        {"E_NOTIMPL", static_cast<DWORD>(E_NOTIMPL)},
        {"E_OUTOFMEMORY", static_cast<DWORD>(E_OUTOFMEMORY)},
        {"E_POINTER", static_cast<DWORD>(E_POINTER)},
        {"E_UNEXPECTED", static_cast<DWORD>(E_UNEXPECTED)},
        {"MAXIMUM_WAIT_OBJECTS", static_cast<DWORD>(MAXIMUM_WAIT_OBJECTS)},
        {"OLE_E_ADVISENOTSUPPORTED", static_cast<DWORD>(OLE_E_ADVISENOTSUPPORTED)},
        {"REGDB_E_CLASSNOTREG", static_cast<DWORD>(REGDB_E_CLASSNOTREG)},
        {"RPC_E_CHANGED_MODE", static_cast<DWORD>(RPC_E_CHANGED_MODE)},
        {"RPC_E_WRONG_THREAD", static_cast<DWORD>(RPC_E_WRONG_THREAD)},
        {"STG_E_INVALIDFUNCTION", 0x80030001u},
        {"STG_E_INVALIDPOINTER", 0x80030009u},
        {"TIMERR_NOERROR", static_cast<DWORD>(TIMERR_NOERROR)},
    };
    for (auto const & row : cases)
    {
        WString const text = SystemText(row.code).text;
        EXPECT_GT(text.size(), 2u) << row.name;
        EXPECT_TRUE(text.ends_with(TEXT("\r\n"))) << row.name;
    }
}

TEST(SystemMessages, AreTheSystemsWordsForItsErrors)
{
    EXPECT_EQ(SystemText(0).text, TEXT("Success\r\n"));
    EXPECT_EQ(SystemText(2).text, TEXT("No such file or directory\r\n"));
    EXPECT_EQ(SystemText(5).text, TEXT("Permission denied\r\n"));
    EXPECT_EQ(SystemText(112).text, TEXT("No space left on device\r\n"));
    EXPECT_EQ(SystemText(183).text, TEXT("File exists\r\n"));
    EXPECT_EQ(SystemText(38).text, TEXT("End of file reached\r\n"));
    EXPECT_EQ(SystemText(static_cast<DWORD>(E_NOINTERFACE)).text, TEXT("No such interface supported\r\n"));
}

TEST(SystemMessages, AreInOneLanguage)
{
    for (DWORD const language : {0x0000u, 0x0400u, 0x0800u, 0x0409u, 0x0809u})
    {
        EXPECT_FALSE(SystemText(2, language).text.empty());
    }
    EXPECT_EQ(SystemText(2, 0x0407).error, DWORD{ERROR_RESOURCE_LANG_NOT_FOUND});
}

// Here a template may come from anywhere, and neither writes memory nor makes much of it out of a number.
TEST(FormatMessageText, InsertsNeitherStoreNorPadWithoutEnd)
{
    int count = -1;
    EXPECT_EQ(Print(0, TEXT("ab%1!n!"), &count).text, TEXT("abn"));
    EXPECT_EQ(count, -1);
    for (WCHAR const * const format :
         {TEXT("%1!2000000000d!"), TEXT("%1!.2000000000d!"), TEXT("%1!99999999999999999999d!"), TEXT("%1!-1048577s!")})
    {
        EXPECT_EQ(Print(0, format, Word(TEXT("x"))).error, DWORD{ERROR_INVALID_PARAMETER});
    }
    EXPECT_EQ(PrintArray(TEXT("%1!*d!"), {Word(-2147483647 - 1), Word(1)}).error, DWORD{ERROR_INVALID_PARAMETER});
    WString stars;
    for (int i = 0; i < 200; ++i)
    {
        stars += TEXT("%1!*.*d!");
    }
    EXPECT_EQ(PrintArray(stars.c_str(), std::vector<DWORD_PTR>(200, 1)).error, DWORD{ERROR_INVALID_PARAMETER});
}
#endif

TEST(SystemMessages, BelongToTheCallThatAsked)
{
    WString const expected[] = {SystemText(2).text, SystemText(5).text};
    std::vector<std::thread> threads;
    std::vector<int> wrong(4);
    for (std::size_t t = 0; t < wrong.size(); ++t)
    {
        threads.emplace_back(
            [&, t]
            {
                for (int i = 0; i < 200; ++i)
                {
                    wrong[t] += SystemText(t % 2 == 0 ? 2 : 5).text != expected[t % 2];
                }
            });
    }
    for (std::thread & thread : threads)
    {
        thread.join();
    }
    EXPECT_EQ(wrong, std::vector<int>(4));
}
