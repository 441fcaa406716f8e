#include "CodePage.h"

#include <algorithm>
#include <atomic>
#include <iterator>
#include <memory>
#include <mutex>
#include <optional>
#include <string_view>

#include <unicode/ucnv.h>

namespace kv::platform
{

namespace
{

struct ConverterCloser
{
    void operator()(UConverter * converter) const
    {
        ucnv_close(converter);
    }
};

using Converter = std::unique_ptr<UConverter, ConverterCloser>;

/// A converter that stops at what it does not know.
Converter OpenConverter(char const * name)
{
    UErrorCode error = U_ZERO_ERROR;
    Converter converter(ucnv_open(name, &error));
    ucnv_setFallback(converter.get(), false);
    ucnv_setToUCallBack(converter.get(), UCNV_TO_U_CALLBACK_STOP, nullptr, nullptr, nullptr, &error);
    ucnv_setFromUCallBack(converter.get(), UCNV_FROM_U_CALLBACK_STOP, nullptr, nullptr, nullptr, &error);
    return U_SUCCESS(error) ? std::move(converter) : nullptr;
}

/// The unit that `bytes` are to ICU, if they are one.
std::optional<WCHAR> IcuUnit(UConverter * converter, std::string_view bytes)
{
    WCHAR units[4];
    UErrorCode error = U_ZERO_ERROR;
    int32_t const length = ucnv_toUChars(converter, units, 4, bytes.data(), static_cast<int32_t>(bytes.size()), &error);
    if (U_FAILURE(error) || length != 1)
        return std::nullopt;
    return units[0];
}

/// Where ICU's table and that of Windows part. U+0000 for a byte that Windows leaves undefined.
struct Exception
{
    unsigned char byte;
    WCHAR unit;
};

struct BestFitRun
{
    WCHAR from;
    WCHAR to;
    unsigned char count;
    unsigned char set;
};

#include "BestFit.inc"

bool IsLeadOf(UINT number, unsigned byte)
{
    switch (number)
    {
    case 932: // the half-width syllables stand between the leads
        return (byte >= 0x81 && byte <= 0x9F) || (byte >= 0xE0 && byte <= 0xFC);
    case 936:
    case 949:
    case 950:
        return byte >= 0x81 && byte <= 0xFE;
    default:
        return false;
    }
}

} // namespace

struct CodePage::Definition
{
    UINT number;
    char const * icuName;
    WCHAR undefined;         ///< Where the places for the bytes that are no characters begin.
    Exception exceptions[5]; ///< Up to the first byte 0.
    WCHAR unicodeDefault = '?';
};

// In the order that scripts/best-fit-table.cpp knows.
CodePage::Definition const CodePage::definitions[] = {
    {437, "ibm-437_P100-1995", 0, {{0xE6, 0x00B5}}},
    {720, "ibm-720_P100-1997", 0, {}},
    {737, "ibm-737_P100-1997", 0, {}},
    {775, "ibm-775_P100-1996", 0, {}},
    {850, "ibm-850_P100-1995", 0, {}},
    {852, "ibm-852_P100-1995", 0, {{0xAA, 0x00AC}}},
    {855, "ibm-855_P100-1995", 0, {}},
    {857, "ibm-857_P100-1995", 0xF8BB, {}},
    {860, "ibm-860_P100-1995", 0, {{0xE6, 0x00B5}}},
    {861, "ibm-861_P100-1995", 0, {{0xE6, 0x00B5}}},
    {862, "ibm-862_P100-1995", 0, {{0xE6, 0x00B5}}},
    {863, "ibm-863_P100-1995", 0, {{0xE6, 0x00B5}}},
    {864, "ibm-864_X110-1999", 0xF8BE, {{0x9F, 0x009F}, {0xD7, 0xFEC1}, {0xD8, 0xFEC5}, {0xF1, 0x0651}}},
    {865, "ibm-865_P100-1995", 0, {{0xE6, 0x00B5}}},
    {866, "ibm-866_P100-1995", 0, {}},
    {869, "ibm-869_P100-1995", 0, {{0x88, 0x00B7}, {0xEF, 0x0384}}},
    {874, "windows-874-2000", 0xF8C1, {}},
    {932, "ibm-943_P15A-2003", 0xF8F0, {}, 0x30FB},
    {936, "windows-936-2000", 0xF8F5, {}},
    {949, "windows-949-2000", 0xF8F7, {}},
    {950, "windows-950-2000", 0xF8F8, {}},
    {1250, "ibm-5346_P100-1998", 0, {}},
    {1251, "ibm-5347_P100-1998", 0, {}},
    {1252, "ibm-5348_P100-1997", 0, {}},
    {1253, "ibm-5349_P100-1998", 0xF8F9, {{0xAA, 0}}},
    {1254, "ibm-5350_P100-1998", 0, {}},
    {1255, "ibm-9447_P100-2002", 0xF88D, {{0xCA, 0x05BA}}},
    {1256, "ibm-9448_X100-2005", 0, {}},
    {1257, "ibm-9449_P100-2002", 0xF8FC, {}},
    {1258, "ibm-5354_P100-1998", 0, {}},
    {10000, "macos-0_2-10.2", 0, {{0xBD, 0x2126}}},
    {20127, "US-ASCII", 0, {}},
    {20866, "ibm-878_P100-1996", 0, {}},
    {21866, "ibm-1168_P100-2002", 0, {{0xAE, 0x045E}, {0xBE, 0x040E}}},
    {28591, "ISO-8859-1", 0, {}},
    {28592, "ibm-912_P100-1995", 0, {}},
    {28593, "ibm-913_P100-2000", 0xF7F5, {}},
    {28594, "ibm-914_P100-1995", 0, {}},
    {28595, "ibm-915_P100-1995", 0, {}},
    {28596, "ibm-1089_P100-1995", 0xF7C8, {}},
    {28597, "ibm-9005_X110-2007", 0xF7C2, {{0xA1, 0x02BD}, {0xA2, 0x02BC}, {0xA4, 0}, {0xA5, 0}, {0xAA, 0}}},
    {28598, "ibm-5012_P100-1999", 0xF79C, {{0xAF, 0x203E}, {0xFD, 0}, {0xFE, 0}}},
    {28599, "ibm-920_P100-1995", 0, {}},
    {28603, "ibm-921_P100-1995", 0, {}},
    {28605, "ibm-923_P100-1998", 0, {}},
};

CodePage::CodePage(Definition const & definition)
    : single{}, rowOfLead{}, encoded(0x10000), unicodeDefault(definition.unicodeDefault)
{
    Converter const converter = OpenConverter(definition.icuName);
    if (converter == nullptr)
        return;
    ReadSingleBytes(definition, converter.get());
    if (IsLeadOf(definition.number, 0x81))
        ReadDoubleBytes(definition, converter.get());
    AddBestFits(static_cast<std::size_t>(&definition - definitions));
    usable = true;
}

void CodePage::ReadSingleBytes(Definition const & definition, UConverter * converter)
{
    WCHAR undefined = definition.undefined;
    for (unsigned i = 0; i < 256; i++)
    {
        char const byte = static_cast<char>(i);
        // Below 0x80 all of them are ASCII; IBM's tables trade three of the controls, Windows's do not.
        std::optional<WCHAR> unit = i < 0x80 ? static_cast<WCHAR>(i) : IcuUnit(converter, {&byte, 1});
        for (Exception const & exception : definition.exceptions)
        {
            if (exception.byte == i && i != 0)
                unit = exception.unit != 0 ? std::optional(exception.unit) : std::nullopt;
        }
        if (!unit && definition.number == 20127)
            unit = static_cast<WCHAR>(i & 0x7F); // seven bits are all it has
        if (!unit && i < 0xA0)
            unit = static_cast<WCHAR>(i);
        if (IsLeadOf(definition.number, i))
        {
            single[i] = unicodeDefault;
            continue;
        }
        single[i] = unit ? *unit : undefined++;
        if (single[i] != 0 && encoded[single[i]] == 0)
            encoded[single[i]] = static_cast<unsigned short>(i);
    }
}

void CodePage::ReadDoubleBytes(Definition const & definition, UConverter * converter)
{
    std::vector<WCHAR> ambiguous;
    for (unsigned lead = 0; lead < 256; lead++)
    {
        if (!IsLeadOf(definition.number, lead))
            continue;
        rows.resize(rows.size() + 256, unicodeDefault);
        rowOfLead[lead] = static_cast<unsigned char>(rows.size() / 256);
        for (unsigned trail = 1; trail < 256; trail++)
        {
            char const bytes[] = {static_cast<char>(lead), static_cast<char>(trail)};
            std::optional<WCHAR> const unit = IcuUnit(converter, {bytes, 2});
            if (!unit)
                continue;
            rows[rows.size() - 256 + trail] = *unit;
            if (encoded[*unit] == 0)
                encoded[*unit] = static_cast<unsigned short>(lead << 8 | trail);
            else
                ambiguous.push_back(*unit);
        }
    }
    // A character that vendors have put into the page twice has one place that it goes back to.
    for (WCHAR const unit : ambiguous)
    {
        unsigned char bytes[4];
        UErrorCode error = U_ZERO_ERROR;
        int32_t const length = ucnv_fromUChars(converter, reinterpret_cast<char *>(bytes), 4, &unit, 1, &error);
        if (U_SUCCESS(error) && length == 2)
            encoded[unit] = static_cast<unsigned short>(bytes[0] << 8 | bytes[1]);
    }
}

void CodePage::AddBestFits(std::size_t page)
{
    for (BestFitRun const & run : bestFitRuns)
    {
        if ((bestFitSets[run.set] >> page & 1) == 0)
            continue;
        for (unsigned i = 0; i < run.count; i++)
            encoded[run.from + i] = encoded[run.to + i];
    }
}

CodePage::Definition const * CodePage::FindDefinition(UINT number)
{
    auto const found = std::lower_bound(
        std::begin(definitions), std::end(definitions), number,
        [](Definition const & definition, UINT sought) { return definition.number < sought; });
    return found != std::end(definitions) && found->number == number ? found : nullptr;
}

bool CodePage::Exists(UINT number)
{
    return FindDefinition(number) != nullptr;
}

CodePage const * CodePage::Find(UINT number)
{
    // Never freed: other statics may convert texts while they die.
    static std::array<std::atomic<CodePage const *>, std::size(definitions)> pages;
    static std::mutex building;
    Definition const * const definition = FindDefinition(number);
    if (definition == nullptr)
        return nullptr;
    std::atomic<CodePage const *> & slot = pages[static_cast<std::size_t>(definition - definitions)];
    CodePage const * page = slot.load(std::memory_order_acquire);
    if (page == nullptr)
    {
        std::lock_guard const lock(building);
        page = slot.load(std::memory_order_relaxed);
        if (page == nullptr)
            slot.store(page = new CodePage(*definition), std::memory_order_release);
    }
    return page->usable ? page : nullptr;
}

bool CodePage::IsUndefined(unsigned char const * bytes, std::size_t length, WCHAR decoded) const
{
    if (length == 1 && decoded >= 0xE000 && decoded <= 0xF8FF)
        return true;
    unsigned const lead = bytes[0];
    unsigned const code = length == 1 ? lead : lead << 8 | bytes[1];
    return decoded == unicodeDefault && encoded[decoded] != code;
}

bool CodePage::IsExact(WCHAR c, unsigned code) const
{
    unsigned char const bytes[] = {static_cast<unsigned char>(code >> 8), static_cast<unsigned char>(code)};
    std::size_t length = code > 0xFF ? 2 : 1;
    return Decode(code > 0xFF ? bytes : bytes + 1, length) == c;
}

} // namespace kv::platform
