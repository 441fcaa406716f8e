#include "Decoding.h"

#include <algorithm>
#include <climits>
#include <iterator>
#include <memory>
#include <optional>

#include <unicode/ucnv.h>

#include <kvcore/platform/include/errors.h>
#include <kvcore/platform/include/winnls.h>
#include <kvcore/platform/linux/text/CodePage.h>
#include <kvcore/platform/linux/text/Utf8.h>

namespace kv::platform
{

namespace
{

constexpr UINT asciiPage = 20127;
constexpr UINT utf16Page = 1200;
constexpr UINT utf16BigEndianPage = 1201;

struct CharacterSet
{
    std::string_view name;
    UINT page;
};

/// Names that documents declare and that do not tell the page's number themselves.
constexpr CharacterSet characterSets[] = {
    {"ansi_x3.4-1968", asciiPage},
    {"ascii", asciiPage},
    {"big5", 950},
    {"chinese", 936},
    {"cn-big5", 950},
    {"csbig5", 950},
    {"cseuckr", 949},
    {"csgb2312", 936},
    {"csiso58gb231280", 936},
    {"csisolatin1", 28591},
    {"csisolatin2", 28592},
    {"csisolatin3", 28593},
    {"csisolatin4", 28594},
    {"csisolatin5", 28599},
    {"csisolatinarabic", 28596},
    {"csisolatincyrillic", 28595},
    {"csisolatingreek", 28597},
    {"csisolatinhebrew", 28598},
    {"cskoi8r", 20866},
    {"csksc56011987", 949},
    {"csmacintosh", 10000},
    {"csshiftjis", 932},
    {"cswindows31j", 932},
    {"euc-kr", 949},
    {"euckr", 949},
    {"gb2312", 936},
    {"gb_2312-80", 936},
    {"gbk", 936},
    {"iso-10646-ucs-2", utf16Page},
    {"iso-8859-11", 874},
    {"iso-8859-8-i", 28598},
    {"iso646-us", asciiPage},
    {"koi8", 20866},
    {"koi8-r", 20866},
    {"koi8-ru", 21866},
    {"koi8-u", 21866},
    {"korean", 949},
    {"ks_c_5601", 949},
    {"ks_c_5601-1987", 949},
    {"ks_c_5601-1989", 949},
    {"ksc5601", 949},
    {"ksc_5601", 949},
    {"l1", 28591},
    {"l2", 28592},
    {"l3", 28593},
    {"l4", 28594},
    {"l5", 28599},
    {"latin1", 28591},
    {"latin2", 28592},
    {"latin3", 28593},
    {"latin4", 28594},
    {"latin5", 28599},
    {"latin9", 28605},
    {"mac", 10000},
    {"macintosh", 10000},
    {"ms_kanji", 932},
    {"shift-jis", 932},
    {"shift_jis", 932},
    {"sjis", 932},
    {"tis-620", 874},
    {"tis620", 874},
    {"ucs-2", utf16Page},
    {"unicode", utf16Page},
    {"unicode-1-1-utf-8", CP_UTF8},
    {"unicodefffe", utf16BigEndianPage},
    {"us", asciiPage},
    {"us-ascii", asciiPage},
    {"utf-16", utf16Page},
    {"utf-16be", utf16BigEndianPage},
    {"utf-16le", utf16Page},
    {"utf-8", CP_UTF8},
    {"utf16", utf16Page},
    {"utf8", CP_UTF8},
    {"windows-31j", 932},
    {"x-mac-roman", 10000},
    {"x-sjis", 932},
};

/// The families whose names end in the page's number, or in one that counts from `base`.
constexpr CharacterSet numberedSets[] = {
    {"windows-", 0},     {"cp-", 0},           {"cp", 0},           {"x-cp", 0},      {"ibm", 0},
    {"ibm-", 0},         {"x-ms-cp", 0},       {"ms", 0},           {"dos-", 0},      {"iso-8859-", 28590},
    {"iso8859-", 28590}, {"iso_8859-", 28590}, {"iso8859_", 28590}, {"8859_", 28590},
};

std::string Lower(std::string_view name)
{
    std::string lower(name);
    for (char & c : lower)
    {
        c = c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
    }
    return lower;
}

/// The number that a text is, up to five digits; 0 if it is none.
UINT NumberIn(std::string_view text)
{
    UINT number = 0;
    for (char const c : text)
    {
        if (c < '0' || c > '9' || text.size() > 5)
        {
            return 0;
        }
        number = number * 10 + static_cast<UINT>(c - '0');
    }
    return number;
}

/// The code page of a declared encoding, or 0 if Windows has none by that name.
UINT PageOf(std::string_view declared)
{
    std::string const name = Lower(declared);
    for (CharacterSet const & each : characterSets)
    {
        if (each.name == name)
        {
            return each.page;
        }
    }
    for (CharacterSet const & each : numberedSets)
    {
        UINT const number = name.compare(0, each.name.size(), each.name) == 0
            ? NumberIn(std::string_view(name).substr(each.name.size()))
            : 0;
        if (number != 0 && number != CP_UTF7 && number < 65002 && IsValidCodePage(each.page + number) != FALSE)
        {
            return each.page + number;
        }
    }
    return 0;
}

bool IsSpace(char c)
{
    return c == ' ' || c == '\t' || c == '\r' || c == '\n';
}

std::string_view TrimmedStart(std::string_view text)
{
    while (!text.empty() && IsSpace(text.front()))
    {
        text.remove_prefix(1);
    }
    return text;
}

/// The encoding that a declaration at the start of `text` names, as a part of `text`; empty if it names none. Whether
/// the declaration is right is the parser's to say.
std::string_view DeclaredEncoding(std::string_view text)
{
    constexpr std::string_view start = "<?xml";
    if (text.substr(0, start.size()) != start || text.size() == start.size() || !IsSpace(text[start.size()]))
    {
        return {};
    }
    text = text.substr(start.size(), std::min<std::size_t>(text.find("?>"), 4096) - start.size());
    while (!(text = TrimmedStart(text)).empty())
    {
        std::size_t const sign = text.find('=');
        std::string_view name = text.substr(0, sign);
        while (!name.empty() && IsSpace(name.back()))
        {
            name.remove_suffix(1);
        }
        text = sign == std::string_view::npos ? std::string_view() : TrimmedStart(text.substr(sign + 1));
        std::size_t const end = text.empty() ? std::string_view::npos : text.find(text.front(), 1);
        if (end == std::string_view::npos)
        {
            return {};
        }
        if (name == "encoding")
        {
            return text.substr(1, end - 1);
        }
        text.remove_prefix(end + 1);
    }
    return {};
}

/// The place behind `before`, which is whole characters.
void SetPlace(std::u16string_view before, Problem & problem)
{
    std::size_t const lineStart = before.rfind(u'\n') + 1; // 0 if there is none
    auto const surrogates = std::count_if(
        before.begin() + static_cast<std::ptrdiff_t>(lineStart), before.end(),
        [](char16_t unit) { return unit >= 0xDC00 && unit <= 0xDFFF; });
    problem.line = 1 + static_cast<int>(std::count(before.begin(), before.end(), u'\n'));
    problem.position = 1 + static_cast<int>(static_cast<std::ptrdiff_t>(before.size() - lineStart) - surrogates);
}

bool Fail(std::string reason, std::u16string_view before, Problem & problem)
{
    problem.code = E_FAIL;
    problem.reason = std::move(reason) + '\n';
    SetPlace(before, problem);
    return false;
}

bool FailInBytes(std::string_view encoding, std::u16string_view before, Problem & problem)
{
    return Fail("The bytes here are no character of the encoding " + std::string(encoding) + '.', before, problem);
}

/// Where units stop being characters, or the end.
std::size_t FirstLoneSurrogate(std::u16string_view units)
{
    for (std::size_t at = 0; at < units.size(); ++at)
    {
        if (units[at] < 0xD800 || units[at] > 0xDFFF)
        {
            continue;
        }
        if (units[at] > 0xDBFF || at + 1 == units.size() || units[at + 1] < 0xDC00 || units[at + 1] > 0xDFFF)
        {
            return at;
        }
        ++at;
    }
    return units.size();
}

bool StoreUnits(std::u16string_view units, std::string_view encoding, std::string & storage, Problem & problem)
{
    std::size_t const good = FirstLoneSurrogate(units);
    if (good != units.size())
    {
        return FailInBytes(encoding, units.substr(0, good), problem);
    }
    units.remove_prefix(!units.empty() && units.front() == 0xFEFF ? 1 : 0);
    storage.resize(CountUtf16AsUtf8(units.data(), units.size()).length);
    EncodeUtf8(units.data(), units.size(), storage.data(), storage.size());
    return true;
}

bool DecodeUtf16(std::string_view bytes, bool bigEndian, std::string & storage, Problem & problem)
{
    std::u16string units(bytes.size() / 2, 0);
    for (std::size_t i = 0; i < units.size(); ++i)
    {
        auto const first = static_cast<unsigned char>(bytes[2 * i]);
        auto const second = static_cast<unsigned char>(bytes[2 * i + 1]);
        units[i] = static_cast<char16_t>(bigEndian ? first << 8 | second : second << 8 | first);
    }
    return bytes.size() % 2 == 0 ? StoreUnits(units, "UTF-16", storage, problem)
                                 : FailInBytes("UTF-16", units, problem);
}

int ToUnits(UINT page, std::string_view bytes, std::u16string * units)
{
    int const size = static_cast<int>(bytes.size());
    return MultiByteToWideChar(
        page, MB_ERR_INVALID_CHARS, bytes.data(), size, units == nullptr ? nullptr : units->data(),
        units == nullptr ? 0 : static_cast<int>(units->size()));
}

/// The units before the first bytes that are no character. A line feed is no part of another character in any page, so
/// lines can be looked at one by one.
std::u16string UnitsBeforeFault(UINT page, std::string_view bytes)
{
    CodePage const * const table = CodePage::Find(page);
    std::u16string units;
    auto const take = [&](std::string_view part)
    {
        std::u16string more(static_cast<std::size_t>(part.empty() ? 0 : ToUnits(page, part, nullptr)), 0);
        bool const good = part.empty() || (!more.empty() && ToUnits(page, part, &more) > 0);
        units += good ? more : std::u16string();
        return good;
    };
    std::size_t at = 0;
    std::size_t end = bytes.find('\n');
    while (end != std::string_view::npos && take(bytes.substr(at, end + 1 - at)))
    {
        at = end + 1;
        end = bytes.find('\n', at);
    }
    while (at < bytes.size())
    {
        bool const isPair =
            at + 1 < bytes.size() && table != nullptr && table->IsLead(static_cast<unsigned char>(bytes[at]));
        std::size_t const length = isPair ? 2 : 1;
        if (!take(bytes.substr(at, length)))
        {
            break;
        }
        at += length;
    }
    return units;
}

/// The system's table drops the eighth bit, by which a '<' could be hidden.
bool DecodeAscii(std::string_view encoding, std::string_view bytes, std::string & storage, Problem & problem)
{
    auto const end = std::find_if(bytes.begin(), bytes.end(), [](char c) { return (c & 0x80) != 0; });
    storage = bytes;
    return end == bytes.end() || FailInBytes(encoding, std::u16string(bytes.begin(), end), problem);
}

bool DecodePage(UINT page, std::string_view encoding, std::string_view bytes, std::string & storage, Problem & problem)
{
    if (page == asciiPage)
    {
        return DecodeAscii(encoding, bytes, storage, problem);
    }
    int const count = bytes.empty() ? 0 : ToUnits(page, bytes, nullptr);
    std::u16string units(static_cast<std::size_t>(std::max(count, 0)), 0);
    if (!bytes.empty() && (count <= 0 || ToUnits(page, bytes, &units) != count))
    {
        return FailInBytes(encoding, UnitsBeforeFault(page, bytes), problem);
    }
    return StoreUnits(units, encoding, storage, problem);
}

struct ConverterCloser
{
    void operator()(UConverter * converter) const
    {
        ucnv_close(converter);
    }
};
using Converter = std::unique_ptr<UConverter, ConverterCloser>;

/// For encodings without a code page of tables: those of Unix, and those with more than two bytes a character.
Converter OpenConverter(std::string const & name)
{
    UErrorCode error = U_ZERO_ERROR;
    Converter converter(ucnv_open(name.c_str(), &error));
    ucnv_setToUCallBack(converter.get(), UCNV_TO_U_CALLBACK_STOP, nullptr, nullptr, nullptr, &error);
    if (U_FAILURE(error))
    {
        return nullptr;
    }
    switch (ucnv_getType(converter.get()))
    {
    case UCNV_UTF7: // where a '<' may hide in letters
    case UCNV_IMAP_MAILBOX:
    case UCNV_SCSU:
    case UCNV_BOCU1:
    case UCNV_CESU8:
    case UCNV_HZ:
        return nullptr;
    default:
        return converter;
    }
}

bool DecodeByConverter(
    UConverter & converter, std::string_view encoding, std::string_view bytes, std::string & storage, Problem & problem)
{
    std::u16string units;
    char16_t piece[4096];
    char const * source = bytes.data();
    char const * const end = source + bytes.size();
    UErrorCode error = U_BUFFER_OVERFLOW_ERROR;
    while (error == U_BUFFER_OVERFLOW_ERROR)
    {
        error = U_ZERO_ERROR;
        char16_t * target = piece;
        ucnv_toUnicode(&converter, &target, std::end(piece), &source, end, nullptr, true, &error);
        units.append(piece, target);
    }
    return U_SUCCESS(error) ? StoreUnits(units, encoding, storage, problem) : FailInBytes(encoding, units, problem);
}

bool StartsWith(std::string_view bytes, std::string_view start)
{
    return bytes.substr(0, start.size()) == start;
}

using namespace std::string_view_literals;

/// The name of the family if the bytes show which one they are of, with a mark or in the first '<'.
std::optional<char const *> WideFamily(std::string_view bytes)
{
    struct Start
    {
        std::string_view bytes;
        char const * name;
    };
    // The longer ones first.
    static constexpr Start starts[] = {
        {"\0\0\xFE\xFF"sv, "UTF-32BE"}, {"\xFF\xFE\0\0"sv, "UTF-32LE"}, {"\0\0\0<"sv, "UTF-32BE"},
        {"<\0\0\0"sv, "UTF-32LE"},      {"\xFE\xFF"sv, "UTF-16BE"},     {"\xFF\xFE"sv, "UTF-16LE"},
        {"\0<"sv, "UTF-16BE"},          {"<\0"sv, "UTF-16LE"},
    };
    for (Start const & start : starts)
    {
        if (StartsWith(bytes, start.bytes))
        {
            return start.name;
        }
    }
    return std::nullopt;
}

bool DecodeWide(std::string_view bytes, std::string const & name, std::string & storage, Problem & problem)
{
    if (name == "UTF-16BE" || name == "UTF-16LE")
    {
        return DecodeUtf16(bytes, name == "UTF-16BE", storage, problem);
    }
    Converter const converter = OpenConverter(name);
    return converter ? DecodeByConverter(*converter, "UTF-32", bytes, storage, problem)
                     : Fail("The encoding " + name + " is not known.", {}, problem);
}

/// The place of the encoding's name, which is in ASCII.
bool FailInDeclaration(std::string const & reason, std::string_view bytes, std::string_view encoding, Problem & problem)
{
    auto const start = encoding.data() - bytes.data();
    return Fail(reason, std::u16string(bytes.begin(), bytes.begin() + start), problem);
}

} // namespace

bool DecodeDocument(std::string_view bytes, std::string & storage, std::string_view & text, Problem & problem)
{
    constexpr std::string_view utf8Mark = "\xEF\xBB\xBF";
    text = bytes;
    if (StartsWith(bytes, utf8Mark))
    {
        text.remove_prefix(utf8Mark.size());
        return true;
    }
    if (std::optional<char const *> const wide = WideFamily(bytes))
    {
        bool const decoded = DecodeWide(bytes, *wide, storage, problem);
        text = storage;
        return decoded;
    }
    std::string_view const encoding = DeclaredEncoding(bytes);
    UINT const page = encoding.empty() ? CP_UTF8 : PageOf(encoding);
    if (page == CP_UTF8)
    {
        return true; // whether it is UTF-8 the parser sees
    }
    bool const wide = page == utf16Page || page == utf16BigEndianPage;
    Converter const converter = page == 0 ? OpenConverter(std::string(encoding)) : nullptr;
    if (!wide && page == 0 && !converter)
    {
        return FailInDeclaration("The encoding " + std::string(encoding) + " is not known.", bytes, encoding, problem);
    }
    if (!wide &&
        !(converter ? DecodeByConverter(*converter, encoding, bytes, storage, problem)
                    : DecodePage(page, encoding, bytes, storage, problem)))
    {
        return false;
    }
    text = storage;
    if (wide || DeclaredEncoding(text) != encoding)
    {
        return FailInDeclaration(
            "The document declares the encoding " + std::string(encoding) + ", and its bytes are of another one.",
            bytes, encoding, problem);
    }
    return true;
}

} // namespace kv::platform
