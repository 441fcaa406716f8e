// Every code page in both directions, with any flags, lengths, capacities and default characters.
//
// What must hold for every page: the answer to a size query is what the conversion then needs; one element less is
// refused with ERROR_INSUFFICIENT_BUFFER; more makes no difference. The String forms give what the calls give. UTF-8 is
// compared with a decoder and an encoder written from its definition.

#include <iterator>
#include <optional>
#include <vector>

#include <kvcore/core/String.h>
#include <kvcore/platform/win32.h>

#include "Fuzz.h"

namespace
{

UINT const pages[] = {
    CP_ACP, CP_OEMCP, CP_THREAD_ACP, CP_UTF7, CP_UTF8, 37,    437,   500,   737,   775,   850,   852,   855,   857,
    860,    861,      862,           863,     864,     865,   866,   869,   874,   875,   932,   936,   949,   950,
    1026,   1250,     1251,          1252,    1253,    1254,  1255,  1256,  1257,  1258,  1361,  10000, 10006, 10007,
    10029,  10079,    10081,         20127,   20866,   20932, 21866, 28591, 28592, 28593, 28594, 28595, 28596, 28597,
    28598,  28599,    28603,         28605,   50220,   50221, 50222, 51949, 54936, 1200,  1201,  42,    720,   65535};

/// Memory with what a conversion wrote, and what it returned.
template <class T>
struct Converted
{
    int result;
    DWORD error;
    std::basic_string<T> text;
};

struct ToWide
{
    using Target = WCHAR;
    UINT page;
    DWORD flags;
    std::string const & source;

    int operator()(int length, char const * text, WCHAR * target, int capacity) const
    {
        return MultiByteToWideChar(page, flags, text, length, target, capacity);
    }
};

struct ToNarrow
{
    using Target = char;
    UINT page;
    DWORD flags;
    WString const & source;
    char const * defaultChar;
    bool askUsed;

    int operator()(int length, WCHAR const * text, char * target, int capacity) const
    {
        BOOL used = FALSE;
        int const result =
            WideCharToMultiByte(page, flags, text, length, target, capacity, defaultChar, askUsed ? &used : nullptr);
        fuzz::Check(used == FALSE || used == TRUE, "a flag is neither true nor false");
        return result;
    }
};

template <class Conversion>
Converted<typename Conversion::Target> Run(Conversion const & convert, bool query, std::size_t capacity)
{
    using Source = typename std::decay_t<decltype(convert.source)>::value_type;
    fuzz::Exact<Source> const source(convert.source.data(), convert.source.size());
    fuzz::Exact<typename Conversion::Target> const target(capacity);
    SetLastError(0);
    int const result = convert(
        static_cast<int>(source.Size()), source.Data(), query ? nullptr : target.Data(),
        query ? 0 : static_cast<int>(capacity));
    DWORD const error = GetLastError();
    fuzz::Check(result >= 0, "a negative length");
    fuzz::Check(result != 0 || error != 0, "a failure without a reason");
    fuzz::Check(query || static_cast<std::size_t>(result) <= capacity, "more elements than fit");
    std::size_t const written = query ? 0 : static_cast<std::size_t>(result);
    return {result, error, {target.Data(), written}};
}

/// The text that a conversion gives, or nothing if it fails. Checks what holds for every conversion.
template <class Conversion>
std::optional<std::basic_string<typename Conversion::Target>> CheckSizes(Conversion const & convert, std::size_t more)
{
    auto const query = Run(convert, true, 0);
    std::size_t const needed = static_cast<std::size_t>(query.result);
    std::size_t const ample = 16 * convert.source.size() + 16;
    auto const whole = Run(convert, false, needed == 0 ? ample : needed + more);
    fuzz::Check(whole.result == query.result, "the conversion needs another size than the query told");
    if (needed == 0)
    {
        fuzz::Check(whole.error == query.error, "query and conversion fail for different reasons");
        return std::nullopt;
    }
    fuzz::Check(needed <= ample, "a length out of proportion");
    auto const exact = Run(convert, false, needed);
    fuzz::Check(exact.text == whole.text, "the capacity changes the text");
    if (needed > 1)
    {
        auto const tight = Run(convert, false, needed - 1);
        fuzz::Check(tight.result == 0 && tight.error == ERROR_INSUFFICIENT_BUFFER, "too small a buffer is not refused");
    }
    return whole.text;
}

/// A length of -1 converts up to the NUL and the NUL with it.
template <class Conversion>
void CheckTerminated(Conversion const & convert)
{
    using Source = typename std::decay_t<decltype(convert.source)>::value_type;
    auto const upToNul = convert.source.substr(0, convert.source.find(Source(0)));
    fuzz::Exact<Source> const terminated(upToNul.c_str(), upToNul.size() + 1);
    int const measured = convert(-1, terminated.Data(), nullptr, 0);
    int const counted = convert(static_cast<int>(terminated.Size()), terminated.Data(), nullptr, 0);
    fuzz::Check(measured == counted, "measuring the text makes a difference");
}

/// UTF-16 by the definition of UTF-8, or nothing for text that is not well-formed.
std::optional<WString> DecodeUtf8(std::string const & text)
{
    WString wide;
    for (std::size_t i = 0; i < text.size();)
    {
        unsigned const lead = static_cast<unsigned char>(text[i]);
        std::size_t const length = lead < 0x80 ? 1
            : lead < 0xC0                      ? 0
            : lead < 0xE0                      ? 2
            : lead < 0xF0                      ? 3
            : lead < 0xF8                      ? 4
                                               : 0;
        if (length == 0 || text.size() - i < length)
        {
            return std::nullopt;
        }
        char32_t c = length == 1 ? lead : lead & (0x7Fu >> length);
        for (std::size_t k = 1; k < length; ++k)
        {
            unsigned const next = static_cast<unsigned char>(text[i + k]);
            if ((next & 0xC0) != 0x80)
            {
                return std::nullopt;
            }
            c = c << 6 | (next & 0x3F);
        }
        char32_t const least[] = {0, 0, 0x80, 0x800, 0x10000};
        if (c < least[length] || c > 0x10FFFF || (c >= 0xD800 && c <= 0xDFFF))
        {
            return std::nullopt;
        }
        if (c >= 0x10000)
        {
            wide += static_cast<WCHAR>(0xD7C0 + (c >> 10));
            c = 0xDC00 + (c & 0x3FF);
        }
        wide += static_cast<WCHAR>(c);
        i += length;
    }
    return wide;
}

bool IsHigh(WCHAR c)
{
    return c >= 0xD800 && c <= 0xDBFF;
}
bool IsLow(WCHAR c)
{
    return c >= 0xDC00 && c <= 0xDFFF;
}

/// UTF-8 with a lone surrogate encoded as if it were a character.
std::string EncodeUtf8(WString const & text)
{
    std::string narrow;
    auto const put = [&](unsigned lead, char32_t c, int shift)
    {
        narrow += static_cast<char>(lead | c >> shift);
        for (shift -= 6; shift >= 0; shift -= 6)
        {
            narrow += static_cast<char>(0x80 | (c >> shift & 0x3F));
        }
    };
    for (std::size_t i = 0; i < text.size(); ++i)
    {
        char32_t c = text[i];
        if (c < 0x80)
        {
            narrow += static_cast<char>(c);
        }
        else if (c < 0x800)
        {
            put(0xC0, c, 6);
        }
        else if (IsHigh(text[i]) && i + 1 < text.size() && IsLow(text[i + 1]))
        {
            c = 0x10000 + ((c - 0xD800) << 10) + (text[++i] - 0xDC00u);
            put(0xF0, c, 18);
        }
        else
        {
            put(0xE0, c, 12);
        }
    }
    return narrow;
}

bool HasLoneSurrogate(WString const & text)
{
    for (std::size_t i = 0; i < text.size(); ++i)
    {
        if (IsLow(text[i]) || (IsHigh(text[i]) && (i + 1 == text.size() || !IsLow(text[i + 1]))))
        {
            return true;
        }
        i += IsHigh(text[i]);
    }
    return false;
}

void CheckFromBytes(UINT page, DWORD flags, std::string const & text, std::size_t more)
{
    ToWide const convert{page, flags, text};
    auto const wide = CheckSizes(convert, more);
    CheckTerminated(convert);
    if (page == CP_UTF8 && !text.empty())
    {
        auto const expected = DecodeUtf8(text);
        auto const strict = CheckSizes(ToWide{CP_UTF8, MB_ERR_INVALID_CHARS, text}, more);
        auto const lenient = CheckSizes(ToWide{CP_UTF8, 0, text}, more);
        fuzz::Check(strict == expected, "well-formed UTF-8 and nothing else passes the strict conversion");
        fuzz::Check(lenient.has_value(), "the lenient conversion fails");
        fuzz::Check(!expected || lenient == expected, "the lenient conversion gives other text");
        fuzz::Check(!HasLoneSurrogate(*lenient), "half a surrogate pair comes out of UTF-8");
    }
    if (flags == 0)
    {
        fuzz::Check(
            String::FromMultibyte(page, text) == wide.value_or(WString()), "FromMultibyte differs from the conversion");
    }
}

void CheckFromUnits(
    UINT page, DWORD flags, WString const & text, char const * defaultChar, bool askUsed, std::size_t more)
{
    ToNarrow const convert{page, flags, text, defaultChar, askUsed};
    auto const narrow = CheckSizes(convert, more);
    CheckTerminated(convert);
    String const string(text);
    std::string const utf8 = string.Utf8();
    fuzz::Check(utf8 == EncodeUtf8(text), "Utf8 differs from the definition");
    if (!HasLoneSurrogate(text))
    {
        fuzz::Check(String::FromUtf8(utf8) == text, "text does not come back through UTF-8");
    }
    std::string const multibyte = string.Multibyte(page, flags, defaultChar);
    fuzz::Check(
        multibyte == (page == CP_UTF8 ? utf8 : narrow.value_or("")) || askUsed,
        "Multibyte differs from the conversion");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const * data, std::size_t size)
{
    fuzz::Input input(data, size);
    UINT const page = pages[input.Byte() % std::size(pages)];
    std::uint8_t const choice = input.Byte();
    // Few flags are meant for each direction; any others have to be refused.
    DWORD const given = input.DWord();
    DWORD const flags = choice & 1 ? 0 : choice & 2 ? given & 0x6FF : given;
    std::size_t const more = choice >> 4;
    char const defaultChar[] = {static_cast<char>(input.Byte()), static_cast<char>(input.Byte()), '\0'};
    if (choice & 4)
    {
        CheckFromBytes(page, flags, input.Rest(), more);
    }
    else
    {
        bool const ownDefault = (given & 0x10000) != 0;
        bool const askUsed = (given & 0x20000) != 0;
        CheckFromUnits(page, flags, input.RestWide(), ownDefault ? defaultChar : nullptr, askUsed, more);
    }
    return 0;
}
