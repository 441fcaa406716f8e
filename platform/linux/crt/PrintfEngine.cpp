#include <kvcore/platform/linux/crt/PrintfEngine.h>

#include <algorithm>
#include <bit>
#include <climits>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <string>
#include <string_view>

#include <langinfo.h>
#include <string.h>

#include <kvcore/platform/linux/crt/DecimalText.h>
#include <kvcore/platform/linux/crt/IntegerText.h>
#include <kvcore/platform/linux/crt/NarrowText.h>

namespace kv::platform
{
namespace
{

/// Text that goes into a buffer as far as there is room, and is counted beyond.
class Output
{
public:
    Output(WCHAR * target, std::size_t room) : buffer(target), capacity(target != nullptr ? room : 0) {}

    void Put(WCHAR c)
    {
        if (count < capacity)
        {
            buffer[count] = c;
        }
        ++count;
    }

    void Put(WCHAR const * text, std::size_t length)
    {
        std::copy_n(text, std::min(length, Room()), buffer + std::min<std::uint64_t>(count, capacity));
        count += length;
    }

    void PutAscii(char const * text, std::size_t length)
    {
        std::copy_n(text, std::min(length, Room()), buffer + std::min<std::uint64_t>(count, capacity));
        count += length;
    }

    void Fill(WCHAR c, std::uint64_t times)
    {
        std::size_t const fits = static_cast<std::size_t>(std::min<std::uint64_t>(times, Room()));
        std::fill_n(buffer + std::min<std::uint64_t>(count, capacity), fits, c);
        count += times;
    }

    std::uint64_t Count() const
    {
        return count;
    }

    bool IsOver() const
    {
        return buffer != nullptr && count > capacity;
    }

private:
    std::size_t Room() const
    {
        return count < capacity ? static_cast<std::size_t>(capacity - count) : 0;
    }

    WCHAR * const buffer;
    std::size_t const capacity;
    std::uint64_t count = 0;
};

/// The arguments of a C function.
class ListArguments
{
public:
    static constexpr bool isMessage = false;

    explicit ListArguments(std::va_list arguments)
    {
        va_copy(list, arguments);
    }
    ~ListArguments()
    {
        va_end(list);
    }
    ListArguments(ListArguments const &) = delete;
    ListArguments & operator=(ListArguments const &) = delete;

    std::uint32_t Next32()
    {
        return va_arg(list, std::uint32_t);
    }
    std::uint64_t Next64()
    {
        return va_arg(list, std::uint64_t);
    }
    void * NextPointer()
    {
        return va_arg(list, void *);
    }
    double NextDouble()
    {
        return va_arg(list, double);
    }

private:
    std::va_list list;
};

/// The words of a message's insert.
class WordArguments
{
public:
    static constexpr bool isMessage = true;

    WordArguments(DWORD_PTR const * first, std::size_t count) : word(first), left(count) {}

    std::uint64_t Next64()
    {
        if (left == 0)
        {
            return 0;
        }
        --left;
        return *word++;
    }
    std::uint32_t Next32()
    {
        return static_cast<std::uint32_t>(Next64());
    }
    void * NextPointer()
    {
        return reinterpret_cast<void *>(Next64());
    }
    double NextDouble()
    {
        return std::bit_cast<double>(Next64());
    }

private:
    DWORD_PTR const * word;
    std::size_t left;
};

enum class Size
{
    Default,
    Short, // h: 16 bits, narrow text
    Long,  // l, w: 32 bits, wide text
};

/// A conversion's flags, width, precision and sizes.
struct Conversion
{
    bool left = false;
    bool plus = false;
    bool space = false;
    bool alternate = false;
    bool zero = false;
    std::uint32_t width = 0;
    int precision = -1;
    Size size = Size::Default;
    /// ll, I64 and the sizes of pointers: integers have 64 bits, whatever the size.
    bool quad = false;
};

/// Reads a decimal number; one that is too large to mean anything becomes the largest.
std::uint32_t ParseNumber(WCHAR const *& format)
{
    std::uint64_t value = 0;
    for (; *format >= u'0' && *format <= u'9'; ++format)
    {
        value = std::min<std::uint64_t>(value * 10 + (*format - u'0'), INT_MAX);
    }
    return static_cast<std::uint32_t>(value);
}

void ParseFlags(WCHAR const *& format, Conversion & conversion)
{
    for (;; ++format)
    {
        switch (*format)
        {
        case u'-':
            conversion.left = true;
            break;
        case u'+':
            conversion.plus = true;
            break;
        case u' ':
            conversion.space = true;
            break;
        case u'#':
            conversion.alternate = true;
            break;
        case u'0':
            conversion.zero = true;
            break;
        default:
            return;
        }
    }
}

template <typename Arguments>
void ParseWidthAndPrecision(WCHAR const *& format, Arguments & arguments, Conversion & conversion)
{
    if (*format == u'*')
    {
        ++format;
        int const width = static_cast<int>(arguments.Next32());
        conversion.left = conversion.left || width < 0;
        // The lowest number has no positive twin and means no width.
        conversion.width = width == INT_MIN ? 0u : static_cast<std::uint32_t>(std::abs(width));
    }
    else
    {
        conversion.width = ParseNumber(format);
    }
    if (*format == u'.')
    {
        ++format;
        if (*format == u'*')
        {
            ++format;
            conversion.precision = std::max(static_cast<int>(arguments.Next32()), -1);
        }
        else
        {
            conversion.precision = static_cast<int>(ParseNumber(format));
        }
    }
}

bool IsIntegerConversion(WCHAR letter)
{
    return letter != 0 && std::u16string_view(u"diouxX").find(letter) != std::u16string_view::npos;
}

/// The I sizes: I64, I32, and a bare I for the size of a pointer. False if it is none of them.
bool ParseISize(WCHAR const *& format, Conversion & conversion)
{
    if (format[1] == u'6' && format[2] == u'4')
    {
        conversion.quad = true;
        format += 2;
        return true;
    }
    if (format[1] == u'3' && format[2] == u'2')
    {
        format += 2;
        return true;
    }
    conversion.quad = conversion.quad || IsIntegerConversion(format[1]);
    return IsIntegerConversion(format[1]);
}

/// The sizes, of which any number may stand there. L and the old far and near pointers of F and N mean nothing.
template <typename Arguments>
void ParseSize(WCHAR const *& format, Conversion & conversion)
{
    for (;; ++format)
    {
        WCHAR const letter = *format;
        if (letter == u'l' && format[1] == u'l')
        {
            conversion.quad = true;
            ++format;
        }
        else if (letter == u'l' || letter == u'w')
        {
            conversion.size = Size::Long;
        }
        else if (letter == u'h')
        {
            conversion.size = Size::Short;
        }
        else if (letter == u'j' || ((letter == u'z' || letter == u't') && IsIntegerConversion(format[1])))
        {
            conversion.quad = true;
        }
        else if (letter == u'I')
        {
            if (!ParseISize(format, conversion))
            {
                return;
            }
        }
        else if (letter != u'L' && letter != u'F' && (letter != u'N' || Arguments::isMessage))
        {
            return;
        }
    }
}

/// Text with blanks around it up to the width. Kept: the flag 0 fills up text, too.
template <typename Put>
void PrintPadded(Output & output, Conversion const & conversion, std::uint64_t length, Put put)
{
    std::uint64_t const padding = conversion.width > length ? conversion.width - length : 0;
    if (!conversion.left)
    {
        output.Fill(conversion.zero ? u'0' : u' ', padding);
    }
    put();
    if (conversion.left)
    {
        output.Fill(u' ', padding);
    }
}

void PrintWideText(Output & output, Conversion const & conversion, WCHAR const * text)
{
    if (text == nullptr)
    {
        text = u"(null)";
    }
    std::size_t length = 0;
    if (conversion.precision < 0)
    {
        length = std::char_traits<WCHAR>::length(text);
    }
    else
    {
        // Not a step beyond the precision: the text need not end in a NUL then.
        std::size_t const limit = static_cast<std::size_t>(conversion.precision);
        while (length < limit && text[length] != 0)
        {
            ++length;
        }
    }
    PrintPadded(output, conversion, length, [&] { output.Put(text, length); });
}

/// The precision of narrow text counts its bytes: a caller may hand over bytes without a NUL.
void PrintNarrowText(Output & output, Conversion const & conversion, char const * text)
{
    if (text == nullptr)
    {
        text = "(null)";
    }
    std::size_t const length =
        conversion.precision < 0 ? std::strlen(text) : strnlen(text, static_cast<std::size_t>(conversion.precision));
    std::uint64_t units = 0;
    WidenNarrow(text, length, [&units](WCHAR) { ++units; });
    PrintPadded(output, conversion, units, [&] { WidenNarrow(text, length, [&output](WCHAR c) { output.Put(c); }); });
}

void PrintCharacter(Output & output, Conversion const & conversion, bool narrow, std::uint32_t value)
{
    WCHAR const c = narrow ? static_cast<WCHAR>(value & 0xFF) : static_cast<WCHAR>(value);
    std::size_t const length = conversion.precision == 0 ? 0 : 1;
    PrintPadded(output, conversion, length, [&] { output.Put(&c, length); });
}

/// A number: prefix, zeros up to `digitCount` or, with the flag 0, up to the width, then what `put` prints.
template <typename Put>
void PrintNumber(
    Output & output, Conversion const & conversion, std::u16string_view prefix, std::uint64_t zeros,
    std::uint64_t length, Put put)
{
    std::uint64_t const total = prefix.size() + zeros + length;
    std::uint64_t padding = conversion.width > total ? conversion.width - total : 0;
    if (conversion.zero && !conversion.left)
    {
        zeros += padding;
        padding = 0;
    }
    if (!conversion.left)
    {
        output.Fill(u' ', padding);
    }
    output.Put(prefix.data(), prefix.size());
    output.Fill(u'0', zeros);
    put();
    if (conversion.left)
    {
        output.Fill(u' ', padding);
    }
}

void PrintDigits(
    Output & output, Conversion const & conversion, std::u16string_view prefix, WCHAR const * begin, WCHAR const * end)
{
    std::uint64_t const length = static_cast<std::uint64_t>(end - begin);
    std::uint64_t const wanted = static_cast<std::uint64_t>(std::max(conversion.precision, 0));
    PrintNumber(
        output, conversion, prefix, wanted > length ? wanted - length : 0, length,
        [&] { output.Put(begin, static_cast<std::size_t>(length)); });
}

template <typename Arguments>
void PrintSigned(Output & output, Conversion const & conversion, Arguments & arguments)
{
    std::int64_t value = 0;
    if (conversion.quad)
    {
        value = static_cast<std::int64_t>(arguments.Next64());
    }
    else
    {
        // An argument of 32 bits, whatever the language's own long is.
        std::uint32_t const word = arguments.Next32();
        value = conversion.size == Size::Short ? static_cast<std::int16_t>(word) : static_cast<std::int32_t>(word);
    }
    std::uint64_t const bits = static_cast<std::uint64_t>(value);
    WCHAR digits[20];
    WCHAR * const end = std::end(digits);
    WCHAR * const begin =
        value == 0 && conversion.precision == 0 ? end : WriteDecimalBackward(value < 0 ? 0 - bits : bits, end);
    std::u16string_view const sign = value < 0 ? u"-" : conversion.plus ? u"+" : conversion.space ? u" " : u"";
    PrintDigits(output, conversion, sign, begin, end);
}

template <typename Arguments>
void PrintUnsigned(Output & output, Conversion const & conversion, Arguments & arguments, WCHAR letter)
{
    std::uint64_t value = 0;
    if (conversion.quad)
    {
        value = arguments.Next64();
    }
    else
    {
        std::uint32_t const word = arguments.Next32();
        value = conversion.size == Size::Short ? static_cast<std::uint16_t>(word) : word;
    }
    unsigned const radix = letter == u'u' ? 10 : letter == u'o' ? 8 : 16;
    WCHAR digits[24];
    WCHAR * const end = std::end(digits);
    WCHAR const letters = static_cast<WCHAR>((letter == u'X' ? u'A' : u'a') - 10);
    WCHAR * begin = value == 0 && conversion.precision == 0 ? end : WriteRadixBackward(value, radix, letters, end);
    std::u16string_view prefix;
    if (conversion.alternate && value != 0)
    {
        if (radix == 16)
        {
            prefix = letter == u'X' ? u"0X" : u"0x";
        }
        else if (radix == 8 && conversion.precision <= end - begin)
        {
            *--begin = u'0';
        }
    }
    PrintDigits(output, conversion, prefix, begin, end);
}

/// Kept: a pointer is text of the width of a pointer, and is cut by a precision as text is.
void PrintPointer(Output & output, Conversion conversion, void * pointer)
{
    WCHAR text[18] = u"0X";
    std::fill(text + 2, std::end(text), u'0');
    WriteRadixBackward(
        static_cast<std::uint64_t>(reinterpret_cast<std::uintptr_t>(pointer)), 16, WCHAR{u'A' - 10}, std::end(text));
    WCHAR const * const begin = text + (conversion.alternate ? 0 : 2);
    std::size_t length = static_cast<std::size_t>(std::end(text) - begin);
    if (conversion.precision >= 0)
    {
        length = std::min(length, static_cast<std::size_t>(conversion.precision));
    }
    conversion.zero = false;
    PrintPadded(output, conversion, length, [&] { output.Put(begin, length); });
}

/// The pieces of a floating-point number in the order in which they are printed.
struct FloatText
{
    WCHAR prefix[4];
    std::size_t prefixLength = 0;
    char const * integer = nullptr;
    std::size_t integerLength = 0;
    std::uint64_t integerZeros = 0;
    bool point = false;
    char const * fraction = nullptr;
    std::size_t fractionLength = 0;
    std::uint64_t fractionZeros = 0;
    char exponent[8];
    std::size_t exponentLength = 0;

    void AddPrefix(WCHAR c)
    {
        prefix[prefixLength++] = c;
    }

    /// "e+005": no digit of the exponent below `leastPower` is left out.
    void SetExponent(char letter, int value, unsigned leastPower)
    {
        char * out = exponent;
        *out++ = letter;
        *out++ = value < 0 ? '-' : '+';
        unsigned const magnitude = static_cast<unsigned>(std::abs(value));
        for (unsigned power = 1000; power != 0; power /= 10)
        {
            if (magnitude >= power || power <= leastPower)
            {
                *out++ = static_cast<char>('0' + magnitude / power % 10);
            }
        }
        exponentLength = static_cast<std::size_t>(out - exponent);
    }
};

/// The exponents of decimal numbers have three digits, as this library has always printed them.
constexpr unsigned threeDigits = 100;
constexpr unsigned oneDigit = 1;

/// The decimal point of the thread's locale, which may take several bytes.
void PutDecimalPoint(Output & output)
{
    char const * const point = nl_langinfo(RADIXCHAR);
    WidenNarrow(point, std::char_traits<char>::length(point), [&output](WCHAR c) { output.Put(c); });
}

std::uint64_t DecimalPointLength()
{
    std::uint64_t units = 0;
    char const * const point = nl_langinfo(RADIXCHAR);
    WidenNarrow(point, std::char_traits<char>::length(point), [&units](WCHAR) { ++units; });
    return units;
}

void PrintFloatText(Output & output, Conversion const & conversion, FloatText const & text)
{
    std::uint64_t const length = text.integerLength + text.integerZeros + (text.point ? DecimalPointLength() : 0) +
        text.fractionLength + text.fractionZeros + text.exponentLength;
    PrintNumber(
        output, conversion, {text.prefix, text.prefixLength}, 0, length,
        [&]
        {
            output.PutAscii(text.integer, text.integerLength);
            output.Fill(u'0', text.integerZeros);
            if (text.point)
            {
                PutDecimalPoint(output);
            }
            output.PutAscii(text.fraction, text.fractionLength);
            output.Fill(u'0', text.fractionZeros);
            output.PutAscii(text.exponent, text.exponentLength);
        });
}

void SetDigits(FloatText & text, DecimalText const & digits, int precision, bool alternate)
{
    text.integer = digits.digits;
    text.integerLength = static_cast<std::size_t>(digits.integerDigits);
    text.fraction = digits.digits + digits.integerDigits;
    text.fractionLength = static_cast<std::size_t>(digits.length - digits.integerDigits);
    text.fractionZeros = static_cast<std::uint64_t>(precision) - text.fractionLength;
    text.point = precision > 0 || alternate;
}

/// %g: fixed or scientific, whichever the exponent asks for, without the zeros at the end.
void SetGeneral(FloatText & text, DecimalText & digits, double magnitude, int precision, bool alternate, char letter)
{
    int const wanted = std::max(precision, 1);
    PrintScientific(magnitude, std::min(wanted, maxSignificantDigits) - 1, digits);
    int const exponent = digits.exponent;
    bool const fixed = exponent >= -4 && exponent < wanted;
    int const places = fixed ? wanted - 1 - exponent : wanted - 1;
    if (fixed)
    {
        PrintFixed(magnitude, std::min(places, maxFractionDigits), digits);
    }
    SetDigits(text, digits, places, alternate);
    if (!alternate)
    {
        text.fractionZeros = 0;
        while (text.fractionLength > 0 && text.fraction[text.fractionLength - 1] == '0')
        {
            --text.fractionLength;
        }
        text.point = text.fractionLength > 0;
    }
    if (!fixed)
    {
        text.SetExponent(static_cast<char>(letter - 'g' + 'e'), exponent, threeDigits);
    }
}

/// %a: all 13 hexadecimal digits unless a precision asks for others; no number is normalised that is not so in memory.
void SetHexadecimal(FloatText & text, char * digits, double magnitude, int precision, bool alternate, bool upper)
{
    std::uint64_t const bits = std::bit_cast<std::uint64_t>(magnitude);
    int const stored = static_cast<int>(bits >> 52);
    std::uint64_t mantissa = (bits & 0xFFFFFFFFFFFFFull) | (stored != 0 ? 1ull << 52 : 0);
    int const exponent = magnitude == 0 ? 0 : std::max(stored, 1) - 1023;
    int const places = std::min(precision, 13);
    if (places < 13)
    {
        int const dropped = 4 * (13 - places);
        mantissa = (mantissa + (1ull << (dropped - 1))) >> dropped;
    }
    char const * const alphabet = upper ? "0123456789ABCDEF" : "0123456789abcdef";
    for (int i = places; i >= 0; --i)
    {
        digits[i] = alphabet[mantissa & 15];
        mantissa >>= 4;
    }
    text.integer = digits;
    text.integerLength = 1;
    text.fraction = digits + 1;
    text.fractionLength = static_cast<std::size_t>(places);
    text.fractionZeros = static_cast<std::uint64_t>(precision - places);
    text.point = precision > 0 || alternate;
    text.SetExponent(upper ? 'P' : 'p', exponent, oneDigit);
}

/// Infinities and what is no number: a one, and a word where the other digits would be.
void SetNonFinite(FloatText & text, char * word, double value, Conversion const & conversion, char letter)
{
    bool const general = letter == 'g' || letter == 'G';
    bool const hexadecimal = letter == 'a' || letter == 'A';
    int places = conversion.precision >= 0 ? conversion.precision : hexadecimal ? 13 : 6;
    if (general)
    {
        // Without a precision, or with 0, the whole word.
        places = conversion.precision > 0 ? conversion.precision - 1 : 5;
    }
    int const length = PrintNonFinite(value, places, word);
    text.integer = "1";
    text.integerLength = 1;
    text.fraction = word;
    text.fractionLength = static_cast<std::size_t>(length);
    bool const bare = general && (!conversion.alternate || conversion.precision <= 0);
    text.fractionZeros = bare ? 0 : static_cast<std::uint64_t>(places - length);
    text.point = length > 0;
    if (hexadecimal)
    {
        text.SetExponent(letter == 'A' ? 'P' : 'p', 0, oneDigit);
    }
    else if (letter == 'e' || letter == 'E')
    {
        text.SetExponent(letter, 0, threeDigits);
    }
}

void PrintFloat(Output & output, Conversion const & conversion, double value, char letter)
{
    FloatText text;
    DecimalText digits;
    bool const hexadecimal = letter == 'a' || letter == 'A';
    if (std::signbit(value) || conversion.plus || conversion.space)
    {
        text.AddPrefix(std::signbit(value) ? u'-' : conversion.plus ? u'+' : u' ');
    }
    if (hexadecimal)
    {
        text.AddPrefix(u'0');
        text.AddPrefix(letter == 'A' ? u'X' : u'x');
    }
    double const magnitude = std::fabs(value);
    int const precision = conversion.precision >= 0 ? conversion.precision : hexadecimal ? 13 : 6;
    if (!std::isfinite(value))
    {
        SetNonFinite(text, digits.digits, value, conversion, letter);
    }
    else if (hexadecimal)
    {
        SetHexadecimal(text, digits.digits, magnitude, precision, conversion.alternate, letter == 'A');
    }
    else if (letter == 'f')
    {
        PrintFixed(magnitude, std::min(precision, maxFractionDigits), digits);
        SetDigits(text, digits, precision, conversion.alternate);
    }
    else if (letter == 'e' || letter == 'E')
    {
        PrintScientific(magnitude, std::min(precision, maxSignificantDigits - 1), digits);
        SetDigits(text, digits, precision, conversion.alternate);
        text.SetExponent(letter, digits.exponent, threeDigits);
    }
    else
    {
        SetGeneral(text, digits, magnitude, precision, conversion.alternate, letter);
    }
    PrintFloatText(output, conversion, text);
}

/// Prints one conversion. False if `letter` is none.
template <typename Arguments>
bool PrintConversion(Output & output, Conversion const & conversion, Arguments & arguments, WCHAR letter)
{
    switch (letter)
    {
    case u'd':
    case u'i':
        PrintSigned(output, conversion, arguments);
        return true;
    case u'u':
    case u'o':
    case u'x':
    case u'X':
        PrintUnsigned(output, conversion, arguments, letter);
        return true;
    case u'p':
        PrintPointer(output, conversion, arguments.NextPointer());
        return true;
    case u's':
    case u'S':
        // In a wide function the small letter is wide; a size overrides both.
        if (conversion.size == Size::Short || (letter == u'S' && conversion.size == Size::Default))
        {
            PrintNarrowText(output, conversion, static_cast<char const *>(arguments.NextPointer()));
        }
        else
        {
            PrintWideText(output, conversion, static_cast<WCHAR const *>(arguments.NextPointer()));
        }
        return true;
    case u'c':
    case u'C':
        PrintCharacter(
            output, conversion, conversion.size == Size::Short || (letter == u'C' && conversion.size == Size::Default),
            arguments.Next32());
        return true;
    default:
        break;
    }
    if constexpr (!Arguments::isMessage)
    {
        switch (letter)
        {
        case u'a':
        case u'A':
        case u'e':
        case u'E':
        case u'f':
        case u'g':
        case u'G':
            PrintFloat(output, conversion, arguments.NextDouble(), static_cast<char>(letter));
            return true;
        case u'n':
            if (conversion.size == Size::Short)
            {
                *static_cast<short *>(arguments.NextPointer()) = static_cast<short>(output.Count());
            }
            else
            {
                *static_cast<int *>(arguments.NextPointer()) = static_cast<int>(output.Count());
            }
            return true;
        default:
            break;
        }
    }
    return false;
}

template <typename Arguments>
std::uint64_t Print(Output & output, WCHAR const * format, Arguments & arguments)
{
    while (!output.IsOver())
    {
        WCHAR const * const literal = format;
        while (*format != 0 && *format != u'%')
        {
            ++format;
        }
        output.Put(literal, static_cast<std::size_t>(format - literal));
        if (*format == 0 || output.IsOver())
        {
            break;
        }
        ++format;
        if (*format == u'%')
        {
            output.Put(*format++);
            continue;
        }
        Conversion conversion;
        ParseFlags(format, conversion);
        ParseWidthAndPrecision(format, arguments, conversion);
        ParseSize<Arguments>(format, conversion);
        // Kept: what is no conversion is dropped up to the letter that makes it none, and that letter is text again.
        if (PrintConversion(output, conversion, arguments, *format))
        {
            ++format;
        }
    }
    return output.Count();
}

} // namespace

std::uint64_t PrintWide(WCHAR * buffer, std::size_t capacity, WCHAR const * format, std::va_list arguments)
{
    Output output(buffer, capacity);
    ListArguments list(arguments);
    return Print(output, format, list);
}

std::uint64_t
PrintInsert(WCHAR * buffer, std::size_t capacity, WCHAR const * format, DWORD_PTR const * words, std::size_t wordCount)
{
    Output output(buffer, capacity);
    WordArguments list(words, wordCount);
    return Print(output, format, list);
}

} // namespace kv::platform
