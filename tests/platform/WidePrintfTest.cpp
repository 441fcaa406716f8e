#include <cfloat>
#include <climits>
#include <cmath>
#include <cstdarg>
#include <limits>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <kvcore/platform/NumericLocale.h>
#include <kvcore/platform/win32.h>

// The expectations are what the Windows run-time library prints; where a text looks odd, it is kept.

namespace
{

WCHAR const * const wide = TEXT("wide");
char const * const narrow = "narrow";
void * const none = nullptr;
double const infinity = std::numeric_limits<double>::infinity();
double const notANumber = std::numeric_limits<double>::quiet_NaN();

int PrintInto(WCHAR * buffer, std::size_t capacity, WCHAR const * format, ...)
{
    std::va_list arguments;
    va_start(arguments, format);
    int const result = _vsnwprintf(buffer, capacity, format, arguments);
    va_end(arguments);
    return result;
}

/// `begin`, `count` times `c`, and `end`: as one text.
WString Filled(WCHAR const * begin, std::size_t count, WCHAR c, WCHAR const * end = TEXT(""))
{
    WString text(begin);
    text.append(count, c);
    return text.append(end);
}

/// What a format printed, beside what it should have printed.
struct Printed
{
    WString format;
    WString expected;
    WString actual;
};

template <std::size_t count, typename... Arguments>
Printed Row(WCHAR const (&expected)[count], WCHAR const * format, Arguments... arguments)
{
    WString buffer(1000, TEXT('~'));
    int const length = PrintInto(buffer.data(), buffer.size(), format, arguments...);
    WString const actual = length < 0 ? TEXT("failed") : buffer.substr(0, static_cast<std::size_t>(length));
    if (length >= 0)
    {
        EXPECT_EQ(buffer[static_cast<std::size_t>(length)], 0) << "no NUL behind the text";
    }
    return {format, WString(expected, count - 1), actual};
}

void ExpectPrinted(std::vector<Printed> const & rows)
{
    for (Printed const & row : rows)
    {
        EXPECT_EQ(row.actual, row.expected) << "format " << testing::PrintToString(row.format);
    }
}

} // namespace

TEST(WidePrintf, TextIsWideUnlessTheLetterOrTheSizeSaysNarrow)
{
    ExpectPrinted({
        Row(TEXT("wide"), TEXT("%s"), wide),
        Row(TEXT("narrow"), TEXT("%S"), narrow),
        Row(TEXT("narrow"), TEXT("%hs"), narrow),
        Row(TEXT("narrow"), TEXT("%hS"), narrow),
        Row(TEXT("wide"), TEXT("%ls"), wide),
        Row(TEXT("wide"), TEXT("%lS"), wide),
        Row(TEXT("wide"), TEXT("%ws"), wide),
        Row(TEXT("wide"), TEXT("%wS"), wide),
        Row(TEXT("wide"), TEXT("%ls"), wide),
        Row(TEXT("narrow"), TEXT("%lhs"), narrow),
        Row(TEXT("wide"), TEXT("%hls"), wide),
        Row(TEXT("wide"), TEXT("%lls"), wide),
        Row(TEXT("narrow"), TEXT("%hhs"), narrow),
        Row(TEXT("wide"), TEXT("%I64s"), wide),
        Row(TEXT("wide"), TEXT("%Ls"), wide),
    });
}

TEST(WidePrintf, TextIsPaddedAndCut)
{
    ExpectPrinted({
        Row(TEXT("      wide|"), TEXT("%10s|"), wide),
        Row(TEXT("wide      |"), TEXT("%-10s|"), wide),
        Row(TEXT("wi|"), TEXT("%.2s|"), wide),
        Row(TEXT("        wi|"), TEXT("%10.2s|"), wide),
        Row(TEXT("wi        |"), TEXT("%-10.2s|"), wide),
        Row(TEXT("000000wide|"), TEXT("%010s|"), wide),
        Row(TEXT("na|"), TEXT("%.2S|"), narrow),
        Row(TEXT("        na|"), TEXT("%10.2S|"), narrow),
        Row(TEXT("wide"), TEXT("%+s"), wide),
        Row(TEXT("wide"), TEXT("%#s"), wide),
        Row(TEXT("wide"), TEXT("% s"), wide),
        Row(TEXT("wide|"), TEXT("%.*s|"), -1, wide),
        Row(TEXT("wi|"), TEXT("%.*s|"), 2, wide),
        Row(TEXT("      wide|"), TEXT("%*s|"), 10, wide),
        Row(TEXT("wide      |"), TEXT("%*s|"), -10, wide),
        Row(TEXT("wide      |"), TEXT("%-*s|"), -10, wide),
        Row(TEXT("|"), TEXT("%.s|"), wide),
        Row(TEXT("-2s|"), TEXT("%.-2s|"), wide),
    });
}

TEST(WidePrintf, NullTextIsSpelledOut)
{
    ExpectPrinted({
        Row(TEXT("(null)"), TEXT("%s"), none),
        Row(TEXT("(null)"), TEXT("%S"), none),
        Row(TEXT("    (null)|"), TEXT("%10s|"), none),
        Row(TEXT("(nu|"), TEXT("%.3s|"), none),
        Row(TEXT("(null)    |"), TEXT("%-10s|"), none),
        Row(TEXT("(null)|"), TEXT("%.10s|"), none),
        Row(TEXT("|"), TEXT("%.0s|"), none),
    });
}

TEST(WidePrintf, CharactersMayBeWideNarrowOrNul)
{
    ExpectPrinted({
        Row(TEXT("\x20ac"), TEXT("%c"), 0x20ac),
        Row(TEXT("A"), TEXT("%C"), 'A'),
        Row(TEXT("\xe4"), TEXT("%C"), 0xe4),
        Row(TEXT("B"), TEXT("%hc"), 'B'),
        Row(TEXT("\x20ac"), TEXT("%lc"), 0x20ac),
        Row(TEXT("\x20ac"), TEXT("%wc"), 0x20ac),
        Row(TEXT("c"), TEXT("%hC"), 'c'),
        Row(TEXT("\x20ac"), TEXT("%lC"), 0x20ac),
        Row(TEXT("\0"), TEXT("%c"), 0),
        Row(TEXT("a\0"
                 "b"),
            TEXT("a%cb"), 0),
        Row(TEXT("    A|"), TEXT("%5c|"), 0x41),
        Row(TEXT("A    |"), TEXT("%-5c|"), 0x41),
        Row(TEXT("0000A|"), TEXT("%05c|"), 0x41),
        Row(TEXT("|"), TEXT("%.0c|"), 0x41),
        Row(TEXT("A|"), TEXT("%.3c|"), 0x41),
        Row(TEXT("\0"), TEXT("%C"), 0),
        Row(TEXT("A"), TEXT("%hc"), 0x141),
        Row(TEXT("\xe4"), TEXT("%hc"), 0xffe4),
        Row(TEXT("A"), TEXT("%c"), 0x10041),
    });
}

TEST(WidePrintf, NarrowBytesThatAreNoUtf8KeepTheirValue)
{
    ExpectPrinted({
        Row(TEXT("\xe4"
                 "\xf6"),
            TEXT("%S"), "\xe4\xf6"),
        Row(TEXT("\x80"
                 "\x81"),
            TEXT("%hs"), "\x80\x81"),
        Row(TEXT("\x80"), TEXT("%C"), 0x80),
    });
}

#ifndef _WIN32 // There the "C" locale of the run-time library takes every byte for a character.
TEST(WidePrintf, NarrowTextIsUtf8)
{
    ExpectPrinted({
        Row(TEXT("\xE4\x20AC"), TEXT("%S"), "\xC3\xA4\xE2\x82\xAC"),
        Row(TEXT("\xD83D\xDE00|"), TEXT("%hs|"), "\xF0\x9F\x98\x80"),
        // Padding counts units, not bytes; a precision counts bytes, and a sequence that it cuts is no longer one.
        Row(TEXT("   \xE4|"), TEXT("%4S|"), "\xC3\xA4"),
        Row(TEXT("\xE4|"), TEXT("%.2S|"), "\xC3\xA4\xC3\xA4"),
        Row(TEXT("\xE4\xC3|"), TEXT("%.3S|"), "\xC3\xA4\xC3\xA4"),
        // Overlong, surrogate, beyond the last code point, cut off by the end.
        Row(TEXT("\xC0\x80"), TEXT("%S"), "\xC0\x80"),
        Row(TEXT("\xE0\x80\x80"), TEXT("%S"), "\xE0\x80\x80"),
        Row(TEXT("\xED\xA0\x80"), TEXT("%S"), "\xED\xA0\x80"),
        Row(TEXT("\xF4\x90\x80\x80"), TEXT("%S"), "\xF4\x90\x80\x80"),
        Row(TEXT("\xE2\x82"), TEXT("%S"), "\xE2\x82"),
    });
}
#endif

TEST(WidePrintf, TextWithAPrecisionNeedsNoNul)
{
    std::vector<WCHAR> const units{TEXT('a'), TEXT('b'), TEXT('c')};
    std::vector<char> const bytes{'a', 'b', 'c'};
    ExpectPrinted({
        Row(TEXT("abc|"), TEXT("%.3s|"), units.data()),
        Row(TEXT("abc|"), TEXT("%.3S|"), bytes.data()),
        Row(TEXT("ab|"), TEXT("%.*hs|"), 2, bytes.data()),
    });
}

TEST(WidePrintf, IntegersTakeFlagsWidthAndPrecision)
{
    ExpectPrinted({
        Row(TEXT("5"), TEXT("%d"), 5),
        Row(TEXT("-5"), TEXT("%d"), -5),
        Row(TEXT("-5"), TEXT("%i"), -5),
        Row(TEXT("4294967291"), TEXT("%u"), -5),
        Row(TEXT("fffffffb"), TEXT("%x"), -5),
        Row(TEXT("ABCDEF"), TEXT("%X"), 0xabcdef),
        Row(TEXT("10"), TEXT("%o"), 8),
        Row(TEXT("0xff"), TEXT("%#x"), 255),
        Row(TEXT("0XFF"), TEXT("%#X"), 255),
        Row(TEXT("010"), TEXT("%#o"), 8),
        Row(TEXT("0"), TEXT("%#x"), 0),
        Row(TEXT("0"), TEXT("%#o"), 0),
        Row(TEXT("5"), TEXT("%#d"), 5),
        Row(TEXT("   42|"), TEXT("%5d|"), 42),
        Row(TEXT("42   |"), TEXT("%-5d|"), 42),
        Row(TEXT("00042|"), TEXT("%05d|"), 42),
        Row(TEXT("-0042|"), TEXT("%05d|"), -42),
        Row(TEXT("+42"), TEXT("%+d"), 42),
        Row(TEXT(" 42"), TEXT("% d"), 42),
        Row(TEXT("+42"), TEXT("%+ d"), 42),
        Row(TEXT("-42"), TEXT("%+d"), -42),
        Row(TEXT("-42"), TEXT("% d"), -42),
        Row(TEXT("+0"), TEXT("%+d"), 0),
        Row(TEXT("   42|"), TEXT("% 5d|"), 42),
        Row(TEXT("+0042|"), TEXT("%+05d|"), 42),
        Row(TEXT("42   |"), TEXT("%-05d|"), 42),
        Row(TEXT("42   |"), TEXT("%0-5d|"), 42),
        Row(TEXT("00042"), TEXT("%.5d"), 42),
        Row(TEXT("-00042"), TEXT("%.5d"), -42),
        Row(TEXT("   00042|"), TEXT("%8.5d|"), 42),
        Row(TEXT("00000042|"), TEXT("%08.5d|"), 42),
        Row(TEXT("-00042  |"), TEXT("%-8.5d|"), -42),
        Row(TEXT("|"), TEXT("%.0d|"), 0),
        Row(TEXT("|"), TEXT("%.d|"), 0),
        Row(TEXT("     |"), TEXT("%5.0d|"), 0),
        Row(TEXT("+|"), TEXT("%+.0d|"), 0),
        Row(TEXT("|"), TEXT("%#.0x|"), 0),
        Row(TEXT("|"), TEXT("%#.0o|"), 0),
        Row(TEXT("010|"), TEXT("%#.3o|"), 8),
        Row(TEXT("010|"), TEXT("%#.0o|"), 8),
        Row(TEXT("1|"), TEXT("%.0d|"), 1),
        Row(TEXT("    0xff|"), TEXT("%#8x|"), 255),
        Row(TEXT("0x0000ff|"), TEXT("%#08x|"), 255),
        Row(TEXT("0xff    |"), TEXT("%#-8x|"), 255),
        Row(TEXT("0x00ff|"), TEXT("%#.4x|"), 255),
        Row(TEXT("  0x00ff|"), TEXT("%#8.4x|"), 255),
        Row(TEXT("0x0000ff|"), TEXT("%#08.4x|"), 255),
        Row(TEXT("00010|"), TEXT("%#05o|"), 8),
        Row(TEXT("5"), TEXT("%+x"), 5),
        Row(TEXT("5"), TEXT("% x"), 5),
        Row(TEXT("5"), TEXT("%+u"), 5),
        Row(TEXT("5"), TEXT("% u"), 5),
        Row(TEXT("00001234"), TEXT("%08x"), 0x1234),
        Row(TEXT("0000ABCD"), TEXT("%08X"), 0xabcd),
    });
}

TEST(WidePrintf, LongIs32BitsAndOtherSizesAreWhatTheySay)
{
    ExpectPrinted({
        Row(TEXT("4464"), TEXT("%hd"), 70000),
        Row(TEXT("-4464"), TEXT("%hd"), -70000),
        Row(TEXT("4464"), TEXT("%hu"), 70000),
        Row(TEXT("ffff"), TEXT("%hx"), -1),
        Row(TEXT("300"), TEXT("%hhd"), 300),
        Row(TEXT("65535"), TEXT("%hhu"), -1),
        Row(TEXT("1234"), TEXT("%hhx"), 0x1234),
        Row(TEXT("177777"), TEXT("%ho"), -1),
        Row(TEXT("-25536"), TEXT("%hi"), 40000),
        Row(TEXT("-5"), TEXT("%ld"), -5),
        Row(TEXT("591751049"), TEXT("%ld"), 0x123456789ll),
        Row(TEXT("4294967295"), TEXT("%lu"), 0x1FFFFFFFFll),
        Row(TEXT("23456789"), TEXT("%lx"), 0x123456789ll),
        Row(TEXT("4886718345"), TEXT("%lld"), 0x123456789ll),
        Row(TEXT("-1"), TEXT("%lld"), -1ll),
        Row(TEXT("18446744073709551615"), TEXT("%llu"), -1ll),
        Row(TEXT("ffffffffffffffff"), TEXT("%llx"), -1ll),
        Row(TEXT("123456789ABC"), TEXT("%llX"), 0x123456789abcll),
        Row(TEXT("1777777777777777777777"), TEXT("%llo"), -1ll),
        Row(TEXT("-5000000000"), TEXT("%I64d"), -5000000000ll),
        Row(TEXT("18446744073709551615"), TEXT("%I64u"), -1ll),
        Row(TEXT("ffffffffffffffff"), TEXT("%I64x"), -1ll),
        Row(TEXT("FFFFFFFFFFFFFFFF"), TEXT("%I64X"), -1ll),
        Row(TEXT("5"), TEXT("%I64i"), 5ll),
        Row(TEXT("10"), TEXT("%I64o"), 8ll),
        Row(TEXT("0x8"), TEXT("%#I64x"), 8ll),
        Row(TEXT("591751049"), TEXT("%I32d"), 0x123456789ll),
        Row(TEXT("4294967295"), TEXT("%I32u"), -1),
        Row(TEXT("ffffffff"), TEXT("%I32x"), -1),
        Row(TEXT("591751049"), TEXT("%Ld"), 0x123456789ll),
        Row(TEXT("4294967295"), TEXT("%Lu"), -1ll),
        Row(TEXT("591751049"), TEXT("%wd"), 0x123456789ll),
        Row(TEXT("I16d"), TEXT("%I16d"), 5),
        Row(TEXT("I6d"), TEXT("%I6d"), 5ll),
        Row(TEXT("I3d"), TEXT("%I3d"), 5),
        Row(TEXT("I33d"), TEXT("%I33d"), 5),
        Row(TEXT("0d"), TEXT("%I640d"), 5ll),
        Row(TEXT("5"), TEXT("%jd"), 5ll),
        Row(TEXT("qd"), TEXT("%qd"), 5ll),
        Row(TEXT("5"), TEXT("%Fd"), 5),
        Row(TEXT("5"), TEXT("%Nd"), 5),
    });
}

TEST(WidePrintf, SizesOfPointersAre64BitsOnA64BitTarget)
{
    if (sizeof(void *) == 8)
    {
        ExpectPrinted({
            Row(TEXT("4886718345"), TEXT("%Id"), 0x123456789ll),
            Row(TEXT("18446744073709551615"), TEXT("%Iu"), -1ll),
            Row(TEXT("ffffffffffffffff"), TEXT("%Ix"), -1ll),
            Row(TEXT("5"), TEXT("%zd"), 5ll),
            Row(TEXT("18446744073709551615"), TEXT("%zu"), -1ll),
            Row(TEXT("5"), TEXT("%td"), 5ll),
            Row(TEXT("123456789"), TEXT("%zx"), 0x123456789ll),
        });
    }
}

TEST(WidePrintf, SizesMayBeMixed)
{
    ExpectPrinted({
        Row(TEXT("abc|"), TEXT("%js|"), TEXT("abc")),
        Row(TEXT("ts|"), TEXT("%ts|"), TEXT("abc")),
        Row(TEXT("Is|"), TEXT("%Is|"), TEXT("abc")),
        Row(TEXT("70000"), TEXT("%hld"), 70000),
        Row(TEXT("4464"), TEXT("%lhd"), 70000),
        Row(TEXT("70000"), TEXT("%llhd"), 70000ll),
        Row(TEXT("4294967297"), TEXT("%hlld"), 0x100000001ll),
        Row(TEXT("1"), TEXT("%Lld"), 0x100000001ll),
        Row(TEXT("4294967297"), TEXT("%lld"), 0x100000001ll),
        Row(TEXT("4294967297"), TEXT("%llld"), 0x100000001ll),
        Row(TEXT("4295032833"), TEXT("%I64hd"), 0x100010001ll),
        Row(TEXT("4295032833"), TEXT("%I64ld"), 0x100010001ll),
        Row(TEXT("4295032833"), TEXT("%lI64d"), 0x100010001ll),
        Row(TEXT("abc"), TEXT("%I64s"), TEXT("abc")),
        Row(TEXT("abc"), TEXT("%lls"), TEXT("abc")),
        Row(TEXT("abc"), TEXT("%llS"), "abc"),
        Row(TEXT("abc"), TEXT("%I64S"), "abc"),
        Row(TEXT("\x20ac"), TEXT("%llc"), 0x20ac),
        Row(TEXT("A"), TEXT("%llC"), 0x41),
        Row(TEXT("abc"), TEXT("%LS"), "abc"),
        Row(TEXT("A"), TEXT("%LC"), 0x41),
        Row(TEXT("abc"), TEXT("%I32s"), TEXT("abc")),
        Row(TEXT("abc"), TEXT("%I32S"), "abc"),
        Row(TEXT("A"), TEXT("%I32C"), 0x41),
    });
}

TEST(WidePrintf, StarsTakeWidthAndPrecisionFromTheArguments)
{
    ExpectPrinted({
        Row(TEXT("5|"), TEXT("%.*d|"), -3, 5),
        Row(TEXT("ab    |"), TEXT("%*.*s|"), -6, 2, TEXT("abc")),
        Row(TEXT("00042|"), TEXT("%0*d|"), 5, 42),
        Row(TEXT("42   |"), TEXT("%-0*d|"), 5, 42),
        Row(TEXT("010|"), TEXT("%#.2o|"), 8),
        Row(TEXT("00|"), TEXT("%#.2x|"), 0),
        Row(TEXT("+000"), TEXT("%+.3d"), 0),
        Row(TEXT("010"), TEXT("%#.1o"), 8),
        Row(TEXT("1|"), TEXT("%*d|"), INT_MIN, 1),
        Row(TEXT("1.500000"), TEXT("%.*f"), -1, 1.5),
        Row(TEXT("     1.500|"), TEXT("%*.*f|"), 10, 3, 1.5),
    });
}

TEST(WidePrintf, PointersHaveTheWidthOfAPointer)
{
    std::size_t const digits = 2 * sizeof(void *);
    auto const pointer = reinterpret_cast<void *>(std::uintptr_t{0xABC});
    WString const text = Filled(TEXT(""), digits - 3, TEXT('0'), TEXT("ABC"));
    std::vector<Printed> rows{
        Row(TEXT(""), TEXT("%p"), none),       Row(TEXT(""), TEXT("%p"), pointer),
        Row(TEXT(""), TEXT("%20p|"), pointer), Row(TEXT(""), TEXT("%-20p|"), pointer),
        Row(TEXT(""), TEXT("%#p"), pointer),   Row(TEXT(""), TEXT("%020p|"), pointer),
        Row(TEXT(""), TEXT("%.3p"), pointer),  Row(TEXT(""), TEXT("%.18p"), pointer),
        Row(TEXT(""), TEXT("%+p"), pointer),   Row(TEXT(""), TEXT("%hp"), pointer),
    };
    WString const right = Filled(TEXT(""), 20 - digits, TEXT(' '), (text + TEXT("|")).c_str());
    WString const left = Filled(text.c_str(), 20 - digits, TEXT(' '), TEXT("|"));
    WString const expected[] = {Filled(TEXT(""), digits, TEXT('0')),
                                text,
                                right,
                                left,
                                TEXT("0X") + text,
                                right,
                                TEXT("000"),
                                text,
                                text,
                                text};
    for (std::size_t i = 0; i < rows.size(); ++i)
    {
        rows[i].expected = expected[i];
    }
    ExpectPrinted(rows);
}

TEST(WidePrintf, FloatingPointRoundsExactDigitsAwayFromZeroAndHasThreeDigitsOfExponent)
{
    ExpectPrinted({
        Row(TEXT("0.000000"), TEXT("%f"), 0.0),
        Row(TEXT("-0.000000"), TEXT("%f"), -0.0),
        Row(TEXT("0.500000"), TEXT("%f"), 0.5),
        Row(TEXT("3.141593"), TEXT("%f"), 3.14159265358979),
        Row(TEXT("100000000000000000000.000000"), TEXT("%f"), 1e20),
        Row(TEXT("0.000000"), TEXT("%f"), 5e-324),
        Row(TEXT("0.000100"), TEXT("%f"), 1e-4),
        Row(TEXT("99999999999999991611392.000000"), TEXT("%f"), 1e23),
        Row(TEXT("123456789012345680.000000"), TEXT("%f"), 123456789012345678.0),
        Row(TEXT("0.000000e+000"), TEXT("%e"), 0.0),
        Row(TEXT("-1.000000e+000"), TEXT("%e"), -1.0),
        Row(TEXT("1.500000e+000"), TEXT("%e"), 1.5),
        Row(TEXT("1.000000e+005"), TEXT("%e"), 1e5),
        Row(TEXT("1.000000e+100"), TEXT("%e"), 1e100),
        Row(TEXT("1.797693e+308"), TEXT("%e"), DBL_MAX),
        Row(TEXT("2.225074e-308"), TEXT("%e"), DBL_MIN),
        Row(TEXT("4.940656e-324"), TEXT("%e"), 5e-324),
        Row(TEXT("1.000000e-005"), TEXT("%e"), 1e-5),
        Row(TEXT("4.500000e-002"), TEXT("%e"), 0.045),
        Row(TEXT("0"), TEXT("%g"), 0.0),
        Row(TEXT("-0"), TEXT("%g"), -0.0),
        Row(TEXT("0.5"), TEXT("%g"), 0.5),
        Row(TEXT("3.14159"), TEXT("%g"), 3.14159265358979),
        Row(TEXT("100000"), TEXT("%g"), 1e5),
        Row(TEXT("1.23457e+006"), TEXT("%g"), 1234567.0),
        Row(TEXT("1e+015"), TEXT("%g"), 1e15),
        Row(TEXT("1e+100"), TEXT("%g"), 1e100),
        Row(TEXT("0.0001"), TEXT("%g"), 1e-4),
        Row(TEXT("1e-005"), TEXT("%g"), 1e-5),
        Row(TEXT("99999.9"), TEXT("%g"), 99999.95),
        Row(TEXT("1e+006"), TEXT("%g"), 999999.5),
        Row(TEXT("10"), TEXT("%g"), 9.9999995),
        Row(TEXT("1E+015"), TEXT("%G"), 1e15),
        Row(TEXT("1E-005"), TEXT("%G"), 1e-5),
        Row(TEXT("1.000000E+100"), TEXT("%E"), 1e100),
        Row(TEXT("1.000000E-001"), TEXT("%E"), 0.1),
        Row(TEXT("0x0.0000000000000p+0"), TEXT("%a"), 0.0),
        Row(TEXT("-0x0.0000000000000p+0"), TEXT("%a"), -0.0),
        Row(TEXT("0x1.0000000000000p+0"), TEXT("%a"), 1.0),
        Row(TEXT("-0x1.0000000000000p+0"), TEXT("%a"), -1.0),
        Row(TEXT("0x1.0000000000000p-1"), TEXT("%a"), 0.5),
        Row(TEXT("0x1.249ad2594c37dp+332"), TEXT("%a"), 1e100),
        Row(TEXT("0x1.fffffffffffffp+1023"), TEXT("%a"), DBL_MAX),
        Row(TEXT("0x1.0000000000000p-1022"), TEXT("%a"), DBL_MIN),
        Row(TEXT("0x0.0000000000001p-1022"), TEXT("%a"), 5e-324),
        Row(TEXT("0x1.999999999999ap-4"), TEXT("%a"), 0.1),
        Row(TEXT("-0X1.0000000000000P+0"), TEXT("%A"), -1.0),
        Row(TEXT("0X1.249AD2594C37DP+332"), TEXT("%A"), 1e100),
        Row(TEXT("1.500000"), TEXT("%lf"), 1.5),
        Row(TEXT("1.500000"), TEXT("%Lf"), 1.5),
        Row(TEXT("0"), TEXT("%.0f"), 0.0),
        Row(TEXT("-0"), TEXT("%.0f"), -0.0),
        Row(TEXT("1"), TEXT("%.0f"), 0.5),
        Row(TEXT("2"), TEXT("%.0f"), 1.5),
        Row(TEXT("3"), TEXT("%.0f"), 2.5),
        Row(TEXT("100000000000000000000"), TEXT("%.0f"), 1e20),
        Row(TEXT("100000"), TEXT("%.0f"), 99999.95),
        Row(TEXT("1000000"), TEXT("%.0f"), 999999.5),
        Row(TEXT("3"), TEXT("%.0f"), 2.675),
        Row(TEXT("0e+000"), TEXT("%.0e"), 0.0),
        Row(TEXT("5e-001"), TEXT("%.0e"), 0.5),
        Row(TEXT("2e+000"), TEXT("%.0e"), 1.5),
        Row(TEXT("3e+000"), TEXT("%.0e"), 2.5),
        Row(TEXT("2e+308"), TEXT("%.0e"), DBL_MAX),
        Row(TEXT("1e+005"), TEXT("%.0e"), 99999.95),
        Row(TEXT("4e-002"), TEXT("%.0e"), 0.045),
        Row(TEXT("0"), TEXT("%.0g"), 0.0),
        Row(TEXT("0.5"), TEXT("%.0g"), 0.5),
        Row(TEXT("3"), TEXT("%.0g"), 2.5),
        Row(TEXT("1e+005"), TEXT("%.0g"), 1e5),
        Row(TEXT("0.0001"), TEXT("%.0g"), 1e-4),
        Row(TEXT("1e+005"), TEXT("%.0g"), 99999.95),
        Row(TEXT("0.04"), TEXT("%.0g"), 0.045),
        Row(TEXT("0."), TEXT("%#.0f"), 0.0),
        Row(TEXT("3."), TEXT("%#.0f"), 2.5),
        Row(TEXT("0.e+000"), TEXT("%#.0e"), 0.0),
        Row(TEXT("3.e+000"), TEXT("%#.0e"), 2.5),
        Row(TEXT("0.00000"), TEXT("%#g"), 0.0),
        Row(TEXT("1.00000"), TEXT("%#g"), 1.0),
        Row(TEXT("1.00000e+015"), TEXT("%#g"), 1e15),
        Row(TEXT("0.000100000"), TEXT("%#g"), 1e-4),
        Row(TEXT("1.00000e-005"), TEXT("%#g"), 1e-5),
        Row(TEXT("99999.9"), TEXT("%#g"), 99999.95),
        Row(TEXT("-1.0"), TEXT("%.1f"), -1.0),
        Row(TEXT("0.3"), TEXT("%.1f"), 0.3),
        Row(TEXT("99999.9"), TEXT("%.1f"), 99999.95),
        Row(TEXT("0.0"), TEXT("%.1f"), 0.045),
        Row(TEXT("-0.00"), TEXT("%.2f"), -0.0),
        Row(TEXT("0.04"), TEXT("%.2f"), 0.045),
        Row(TEXT("2.67"), TEXT("%.2f"), 2.675),
        Row(TEXT("1.00"), TEXT("%.2f"), 1.005),
        Row(TEXT("1e+015"), TEXT("%.15g"), 1e15),
        Row(TEXT("1e+016"), TEXT("%.15g"), 1e16),
        Row(TEXT("1.79769313486232e+308"), TEXT("%.15g"), DBL_MAX),
        Row(TEXT("0.1"), TEXT("%.15g"), 0.1),
        Row(TEXT("0.3"), TEXT("%.15g"), 0.3),
        Row(TEXT("4.9406564584124654e-324"), TEXT("%.17g"), 5e-324),
        Row(TEXT("0.10000000000000001"), TEXT("%.17g"), 0.1),
        Row(TEXT("0.29999999999999999"), TEXT("%.17g"), 0.3),
        Row(TEXT("9.9999999999999992e+022"), TEXT("%.17g"), 1e23),
        Row(TEXT("0.00000000010000000000"), TEXT("%.20f"), 1e-10),
        Row(TEXT("0.10000000000000000555"), TEXT("%.20f"), 0.1),
        Row(TEXT("99999999999999991611392.00000000000000000000"), TEXT("%.20f"), 1e23),
        Row(TEXT("4.94065645841246544177e-324"), TEXT("%.20e"), 5e-324),
        Row(TEXT("1.00000000000000003643e-010"), TEXT("%.20e"), 1e-10),
        Row(TEXT("1.00000000000000005551e-001"), TEXT("%.20e"), 0.1),
        Row(TEXT("9.99999999999999916114e+022"), TEXT("%.20e"), 1e23),
        Row(TEXT("1.0000000000000000364e-010"), TEXT("%.20g"), 1e-10),
        Row(TEXT("0.10000000000000000555"), TEXT("%.20g"), 0.1),
        Row(TEXT("9.9999999999999991611e+022"), TEXT("%.20g"), 1e23),
        Row(TEXT("0.1000000000000000055511151231257827021182"), TEXT("%.40f"), 0.1),
        Row(TEXT("     -1.00|"), TEXT("%10.2f|"), -1.0),
        Row(TEXT("      1.50|"), TEXT("%10.2f|"), 1.5),
        Row(TEXT("1000000000000000.00|"), TEXT("%10.2f|"), 1e15),
        Row(TEXT("-1.00     |"), TEXT("%-10.2f|"), -1.0),
        Row(TEXT("1.50      |"), TEXT("%-10.2f|"), 1.5),
        Row(TEXT("-000001.00|"), TEXT("%010.2f|"), -1.0),
        Row(TEXT("0000001.50|"), TEXT("%010.2f|"), 1.5),
        Row(TEXT("+0.00"), TEXT("%+.2f"), 0.0),
        Row(TEXT("-1.00"), TEXT("%+.2f"), -1.0),
        Row(TEXT("+1.50"), TEXT("%+.2f"), 1.5),
        Row(TEXT("-1.00"), TEXT("% .2f"), -1.0),
        Row(TEXT(" 1.50"), TEXT("% .2f"), 1.5),
        Row(TEXT("-1"), TEXT("%+g"), -1.0),
        Row(TEXT("+1.5"), TEXT("%+g"), 1.5),
        Row(TEXT("-00000000001|"), TEXT("%012g|"), -1.0),
        Row(TEXT("0000000001.5|"), TEXT("%012g|"), 1.5),
        Row(TEXT("0000001e+020|"), TEXT("%012g|"), 1e20),
        Row(TEXT("-1          |"), TEXT("%-12g|"), -1.0),
        Row(TEXT("1.5         |"), TEXT("%-12g|"), 1.5),
        Row(TEXT("0x0.000p+0"), TEXT("%.3a"), 0.0),
        Row(TEXT("0x1.922p+1"), TEXT("%.3a"), 3.14159265358979),
        Row(TEXT("0x2.000p+1023"), TEXT("%.3a"), DBL_MAX),
        Row(TEXT("0x0.000p-1022"), TEXT("%.3a"), 5e-324),
        Row(TEXT("-0x0p+0"), TEXT("%.0a"), -0.0),
        Row(TEXT("0x1p+0"), TEXT("%.0a"), 1.0),
        Row(TEXT("0x2p+0"), TEXT("%.0a"), 1.5),
        Row(TEXT("0x1p+1"), TEXT("%.0a"), 2.5),
        Row(TEXT("0x1.p+0"), TEXT("%#.0a"), 1.0),
        Row(TEXT("0x2.p+0"), TEXT("%#.0a"), 1.5),
        Row(TEXT("0x1.86a0000000000p+16|"), TEXT("%20a|"), 1e5),
        Row(TEXT("0x1.86a0000000000p+16|"), TEXT("%020a|"), 1e5),
        Row(TEXT("0x0.0000000000001p-1022|"), TEXT("%020a|"), 5e-324),
        Row(TEXT("0x1.00000000000000000000p+0"), TEXT("%.20a"), 1.0),
        Row(TEXT("0x1.999999999999a0000000p-4"), TEXT("%.20a"), 0.1),
        Row(TEXT("+0x1.0000000000000p+0"), TEXT("%+a"), 1.0),
        Row(TEXT("-0x1.0000000000000p+0"), TEXT("%+a"), -1.0),
        Row(TEXT("1.500000e+000       |"), TEXT("%-20e|"), 1.5),
        Row(TEXT("1e+010              |"), TEXT("%-20.3g|"), 1e10),
        Row(TEXT("1.500000            |"), TEXT("%-20f|"), 1.5),
        Row(TEXT("-1.500000E+000      |"), TEXT("%-20E|"), -1.5),
        Row(TEXT("1.5                 |"), TEXT("%-20g|"), 1.5),
        Row(TEXT("1.500000e+000|"), TEXT("%-3e|"), 1.5),
    });
}

TEST(WidePrintf, WhatIsNoNumberIsAWordRoundedAsIfItWereDigits)
{
    ExpectPrinted({
        Row(TEXT("1.#INF00"), TEXT("%f"), infinity),
        Row(TEXT("-1.#INF00"), TEXT("%f"), -infinity),
        Row(TEXT("1.#QNAN0"), TEXT("%f"), notANumber),
        Row(TEXT("-1.#IND00"), TEXT("%f"), -notANumber),
        Row(TEXT("1.#INF00e+000"), TEXT("%e"), infinity),
        Row(TEXT("-1.#INF00e+000"), TEXT("%e"), -infinity),
        Row(TEXT("1.#QNAN0e+000"), TEXT("%e"), notANumber),
        Row(TEXT("-1.#IND00e+000"), TEXT("%e"), -notANumber),
        Row(TEXT("1.#INF"), TEXT("%g"), infinity),
        Row(TEXT("-1.#INF"), TEXT("%g"), -infinity),
        Row(TEXT("1.#QNAN"), TEXT("%g"), notANumber),
        Row(TEXT("-1.#IND"), TEXT("%g"), -notANumber),
        Row(TEXT("0x1.#INF000000000p+0"), TEXT("%a"), infinity),
        Row(TEXT("-0x1.#INF000000000p+0"), TEXT("%a"), -infinity),
        Row(TEXT("0x1.#QNAN00000000p+0"), TEXT("%a"), notANumber),
        Row(TEXT("-0x1.#IND000000000p+0"), TEXT("%a"), -notANumber),
        Row(TEXT("1"), TEXT("%.0f"), infinity),
        Row(TEXT("-1"), TEXT("%.0f"), -infinity),
        Row(TEXT("1"), TEXT("%.0f"), notANumber),
        Row(TEXT("-1"), TEXT("%.0f"), -notANumber),
        Row(TEXT("1.$"), TEXT("%.1f"), infinity),
        Row(TEXT("-1.$"), TEXT("%.1f"), -infinity),
        Row(TEXT("1.$"), TEXT("%.1f"), notANumber),
        Row(TEXT("-1.$"), TEXT("%.1f"), -notANumber),
        Row(TEXT("1.#J"), TEXT("%.2f"), infinity),
        Row(TEXT("-1.#J"), TEXT("%.2f"), -infinity),
        Row(TEXT("1.#R"), TEXT("%.2f"), notANumber),
        Row(TEXT("-1.#J"), TEXT("%.2f"), -notANumber),
        Row(TEXT("1.#IO"), TEXT("%.3f"), infinity),
        Row(TEXT("-1.#IO"), TEXT("%.3f"), -infinity),
        Row(TEXT("1.#QO"), TEXT("%.3f"), notANumber),
        Row(TEXT("-1.#IO"), TEXT("%.3f"), -notANumber),
        Row(TEXT("1.#INF"), TEXT("%.4f"), infinity),
        Row(TEXT("-1.#INF"), TEXT("%.4f"), -infinity),
        Row(TEXT("1.#QNB"), TEXT("%.4f"), notANumber),
        Row(TEXT("-1.#IND"), TEXT("%.4f"), -notANumber),
        Row(TEXT("1.#INF000000"), TEXT("%.10f"), infinity),
        Row(TEXT("-1.#INF000000"), TEXT("%.10f"), -infinity),
        Row(TEXT("1.#QNAN00000"), TEXT("%.10f"), notANumber),
        Row(TEXT("-1.#IND000000"), TEXT("%.10f"), -notANumber),
        Row(TEXT("  1.#INF00|"), TEXT("%10f|"), infinity),
        Row(TEXT(" -1.#INF00|"), TEXT("%10f|"), -infinity),
        Row(TEXT("  1.#QNAN0|"), TEXT("%10f|"), notANumber),
        Row(TEXT(" -1.#IND00|"), TEXT("%10f|"), -notANumber),
        Row(TEXT("001.#INF00|"), TEXT("%010f|"), infinity),
        Row(TEXT("-01.#INF00|"), TEXT("%010f|"), -infinity),
        Row(TEXT("001.#QNAN0|"), TEXT("%010f|"), notANumber),
        Row(TEXT("-01.#IND00|"), TEXT("%010f|"), -notANumber),
        Row(TEXT("+1.#INF00"), TEXT("%+f"), infinity),
        Row(TEXT("-1.#INF00"), TEXT("%+f"), -infinity),
        Row(TEXT("+1.#QNAN0"), TEXT("%+f"), notANumber),
        Row(TEXT("-1.#IND00"), TEXT("%+f"), -notANumber),
        Row(TEXT("1.#Je+000"), TEXT("%.2e"), infinity),
        Row(TEXT("-1.#Je+000"), TEXT("%.2e"), -infinity),
        Row(TEXT("1.#Re+000"), TEXT("%.2e"), notANumber),
        Row(TEXT("-1.#Je+000"), TEXT("%.2e"), -notANumber),
        Row(TEXT("1.#J"), TEXT("%.3g"), infinity),
        Row(TEXT("-1.#J"), TEXT("%.3g"), -infinity),
        Row(TEXT("1.#R"), TEXT("%.3g"), notANumber),
        Row(TEXT("-1.#J"), TEXT("%.3g"), -notANumber),
        Row(TEXT("      1.#J|"), TEXT("%10.2f|"), infinity),
        Row(TEXT("     -1.#J|"), TEXT("%10.2f|"), -infinity),
        Row(TEXT("      1.#R|"), TEXT("%10.2f|"), notANumber),
        Row(TEXT("     -1.#J|"), TEXT("%10.2f|"), -notANumber),
        Row(TEXT("1.#INF00"), TEXT("%#f"), infinity),
        Row(TEXT("-1.#INF00"), TEXT("%#f"), -infinity),
        Row(TEXT("1.#QNAN0"), TEXT("%#f"), notANumber),
        Row(TEXT("-1.#IND00"), TEXT("%#f"), -notANumber),
        Row(TEXT("1e+000"), TEXT("%.0e"), infinity),
        Row(TEXT("-1e+000"), TEXT("%.0e"), -infinity),
        Row(TEXT("1e+000"), TEXT("%.0e"), notANumber),
        Row(TEXT("1"), TEXT("%#.0f"), infinity),
        Row(TEXT("-1"), TEXT("%#.0f"), -infinity),
        Row(TEXT("1"), TEXT("%#.0f"), notANumber),
        Row(TEXT("1.$"), TEXT("%.2g"), infinity),
        Row(TEXT("-1.$"), TEXT("%.2g"), -infinity),
        Row(TEXT("1.$"), TEXT("%.2g"), notANumber),
        Row(TEXT("1.#IO"), TEXT("%.4g"), infinity),
        Row(TEXT("-1.#IO"), TEXT("%.4g"), -infinity),
        Row(TEXT("1.#QO"), TEXT("%.4g"), notANumber),
        Row(TEXT("1.#INF"), TEXT("%#g"), infinity),
        Row(TEXT("-1.#INF"), TEXT("%#g"), -infinity),
        Row(TEXT("1.#QNAN"), TEXT("%#g"), notANumber),
        Row(TEXT("1.#INF00000"), TEXT("%#.10g"), infinity),
        Row(TEXT("-1.#INF00000"), TEXT("%#.10g"), -infinity),
        Row(TEXT("1.#QNAN0000"), TEXT("%#.10g"), notANumber),
        Row(TEXT("1.#INF"), TEXT("%.0g"), infinity),
        Row(TEXT("-1.#INF"), TEXT("%.0g"), -infinity),
        Row(TEXT("1.#QNAN"), TEXT("%.0g"), notANumber),
        Row(TEXT("0x1p+0"), TEXT("%.0a"), infinity),
        Row(TEXT("-0x1p+0"), TEXT("%.0a"), -infinity),
        Row(TEXT("0x1p+0"), TEXT("%.0a"), notANumber),
        Row(TEXT("0x1.#Jp+0"), TEXT("%.2a"), infinity),
        Row(TEXT("-0x1.#Jp+0"), TEXT("%.2a"), -infinity),
        Row(TEXT("0x1.#Rp+0"), TEXT("%.2a"), notANumber),
        Row(TEXT("001.#INF00e+000|"), TEXT("%015e|"), infinity),
        Row(TEXT("-01.#INF00e+000|"), TEXT("%015e|"), -infinity),
        Row(TEXT("001.#QNAN0e+000|"), TEXT("%015e|"), notANumber),
    });
}

TEST(WidePrintf, PrecisionBeyondAllDigitsGivesZeros)
{
    WString buffer(3000, TEXT('~'));
    EXPECT_EQ(PrintInto(buffer.data(), buffer.size(), TEXT("%.2000f"), 1.0), 2002);
    EXPECT_EQ(buffer.substr(0, 2002), Filled(TEXT("1."), 2000, TEXT('0')));
    EXPECT_EQ(PrintInto(buffer.data(), buffer.size(), TEXT("%.1200f"), 5e-324), 1202);
    EXPECT_EQ(buffer.substr(1064, 138), Filled(TEXT("533447265625"), 126, TEXT('0')));
    EXPECT_EQ(PrintInto(buffer.data(), buffer.size(), TEXT("%.900e"), 1.0), 907);
    EXPECT_EQ(buffer.substr(0, 907), Filled(TEXT("1."), 900, TEXT('0'), TEXT("e+000")));
    EXPECT_EQ(PrintInto(buffer.data(), buffer.size(), TEXT("%.900g"), 0.5), 3);
}

TEST(WidePrintf, LargestNumberHasAllItsDigits)
{
    WString buffer(400, TEXT('~'));
    EXPECT_EQ(PrintInto(buffer.data(), buffer.size(), TEXT("%f"), DBL_MAX), 316);
    EXPECT_EQ(buffer.substr(0, 20), TEXT("17976931348623157081"));
    EXPECT_EQ(buffer.substr(296, 20), TEXT("6184124858368.000000"));
}

TEST(WidePrintf, WhatIsNoConversionIsTextFromItsLetterOn)
{
    ExpectPrinted({
        Row(TEXT("%"), TEXT("%%")),
        Row(TEXT("|"), TEXT("%5%|")),
        Row(TEXT("|"), TEXT("%-5%|")),
        Row(TEXT("100"), TEXT("100%")),
        Row(TEXT(""), TEXT("%")),
        Row(TEXT("abc"), TEXT("abc%")),
        Row(TEXT(""), TEXT("%5")),
        Row(TEXT(""), TEXT("%-")),
        Row(TEXT(""), TEXT("%.")),
        Row(TEXT(""), TEXT("%l")),
        Row(TEXT(""), TEXT("%I64")),
        Row(TEXT("y|"), TEXT("%y|")),
        Row(TEXT("y|"), TEXT("%5y|")),
        Row(TEXT("y|"), TEXT("%ly|")),
        Row(TEXT("q|"), TEXT("%q|")),
        Row(TEXT("!|"), TEXT("%!|")),
        Row(TEXT("\x20ac"
                 "|"),
            TEXT("%\x20ac|")),
        Row(TEXT("y5"), TEXT("%5.3y%d"), 5),
        Row(TEXT("ky"), TEXT("%hky")),
        Row(TEXT("b"), TEXT("%b"), 5),
        Row(TEXT("m"), TEXT("%m"), 5),
        Row(TEXT("v"), TEXT("%v"), 5),
        Row(TEXT("k"), TEXT("%k"), 5),
        Row(TEXT("r"), TEXT("%r"), 5),
        Row(TEXT("D"), TEXT("%D"), 5),
        Row(TEXT("U"), TEXT("%U"), 5),
        Row(TEXT("O"), TEXT("%O"), 8),
        Row(TEXT(""), TEXT("%l%")),
        Row(TEXT(""), TEXT("%.5%")),
        Row(TEXT(""), TEXT("%0%")),
        Row(TEXT("$d"), TEXT("%1$d"), 5),
        Row(TEXT("'d"), TEXT("%'d"), 5000),
        Row(TEXT(""), TEXT("%  5%")),
        Row(TEXT("Q"), TEXT("%Q")),
        Row(TEXT("z|"), TEXT("%z|"), 1),
        Row(TEXT("Z|"), TEXT("%Z|"), 5),
        Row(TEXT("Z|"), TEXT("%hZ|"), 5),
        Row(TEXT("Z|"), TEXT("%wZ|"), 5),
        Row(TEXT("Z|"), TEXT("%lZ|"), 5),
        Row(TEXT("Z|"), TEXT("%5Z|"), 5),
    });
}

TEST(WidePrintf, CountIsStored)
{
    int count = -1;
    WCHAR buffer[20];
    EXPECT_EQ(PrintInto(buffer, 20, TEXT("ab%5dcd%n!"), 3, &count), 10);
    EXPECT_EQ(count, 9);
    count = -1;
    EXPECT_EQ(PrintInto(buffer, 2, TEXT("abc%n"), &count), -1);
    EXPECT_EQ(count, -1) << "nothing is stored behind the end of the buffer";
}

TEST(WidePrintf, TextThatFillsTheBufferHasNoNul)
{
    struct
    {
        std::size_t capacity;
        int result;
        WCHAR const * buffer;
    } const rows[] = {
        {0, -1, TEXT("~~~~~~~~")}, {1, -1, TEXT("1~~~~~~~")}, {3, -1, TEXT("12 ~~~~~")}, {4, -1, TEXT("12 h~~~~")},
        {5, 5, TEXT("12 hi~~~")},  {6, 5, TEXT("12 hi\0~~")}, {8, 5, TEXT("12 hi\0~~")},
    };
    for (auto const & row : rows)
    {
        WString buffer(8, TEXT('~'));
        EXPECT_EQ(PrintInto(buffer.data(), row.capacity, TEXT("%d %s"), 12, TEXT("hi")), row.result);
        EXPECT_EQ(buffer, WString(row.buffer, 8)) << "capacity " << row.capacity;
    }
}

TEST(WidePrintf, EmptyTextFitsIntoNothing)
{
    WCHAR buffer[1] = {TEXT('~')};
    EXPECT_EQ(PrintInto(buffer, 0, TEXT("")), 0);
    EXPECT_EQ(buffer[0], TEXT('~'));
    EXPECT_EQ(PrintInto(buffer, 1, TEXT("")), 0);
    EXPECT_EQ(buffer[0], 0);
}

TEST(WidePrintf, NullBufferCounts)
{
    EXPECT_EQ(PrintInto(nullptr, 0, TEXT("%s and %5d"), TEXT("text"), 1), 14);
    EXPECT_EQ(PrintInto(nullptr, 5, TEXT("hello, world")), 12);
}

TEST(WidePrintf, NullFormatFails)
{
    WCHAR buffer[4];
    EXPECT_EQ(PrintInto(buffer, 4, nullptr), -1);
}

TEST(WidePrintf, HugeWidthsFailWithoutMemory)
{
    WString buffer(16, TEXT('~'));
    // Only what no implementation need print: the widest number, in a buffer that cannot hold it.
    EXPECT_EQ(PrintInto(buffer.data(), 8, TEXT("%99999999d"), 1), -1);
    EXPECT_EQ(PrintInto(buffer.data(), 8, TEXT("%-99999999s"), TEXT("x")), -1);
    EXPECT_EQ(buffer.substr(8), WString(8, TEXT('~'))) << "nothing is written behind the capacity";
}

TEST(WidePrintf, LiteralTextIsCopied)
{
    WString const format(900, TEXT('x'));
    WString buffer(1000, TEXT('~'));
    EXPECT_EQ(PrintInto(buffer.data(), buffer.size(), format.c_str()), 900);
    EXPECT_EQ(WString(buffer.c_str()), format);
}

TEST(WidePrintf, VariadicFormPrintsTheSame)
{
    WCHAR buffer[20];
    EXPECT_EQ(_snwprintf(buffer, 20, TEXT("%s-%04x"), TEXT("id"), 0xBEEF), 7);
    EXPECT_EQ(WString(buffer), TEXT("id-beef"));
}
