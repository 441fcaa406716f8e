#include <algorithm>
#include <iterator>

#include <kvcore/platform/include/errors.h>
#include <kvcore/platform/include/winnls.h>
#include <kvcore/platform/linux/errors/ErrnoErrors.h>
#include <kvcore/platform/linux/memory/CallerMemory.h>

#include "CodePage.h"

using namespace kv::platform;

namespace
{

struct PageName
{
    UINT number;
    WCHAR const * name;
};

constexpr PageName pages[] = {
    {437, TEXT("OEM United States")},
    {720, TEXT("Arabic (Transparent ASMO)")},
    {737, TEXT("OEM Greek 437G")},
    {775, TEXT("OEM Baltic")},
    {850, TEXT("OEM Multilingual Latin 1")},
    {852, TEXT("OEM Slovak Latin 2")},
    {855, TEXT("OEM Cyrillic")},
    {857, TEXT("OEM Turkish")},
    {860, TEXT("OEM Portuguese")},
    {861, TEXT("OEM Icelandic")},
    {862, TEXT("OEM Hebrew")},
    {863, TEXT("OEM Canadian French")},
    {864, TEXT("OEM Arabic")},
    {865, TEXT("OEM Nordic")},
    {866, TEXT("OEM Russian")},
    {869, TEXT("OEM Greek")},
    {874, TEXT("ANSI/OEM Thai")},
    {932, TEXT("ANSI/OEM Japanese Shift-JIS")},
    {936, TEXT("ANSI/OEM Simplified Chinese GBK")},
    {949, TEXT("ANSI/OEM Korean Unified Hangul")},
    {950, TEXT("ANSI/OEM Traditional Chinese Big5")},
    {1250, TEXT("ANSI Eastern Europe")},
    {1251, TEXT("ANSI Cyrillic")},
    {1252, TEXT("ANSI Latin 1")},
    {1253, TEXT("ANSI Greek")},
    {1254, TEXT("ANSI Turkish")},
    {1255, TEXT("ANSI Hebrew")},
    {1256, TEXT("ANSI Arabic")},
    {1257, TEXT("ANSI Baltic")},
    {1258, TEXT("ANSI/OEM Viet Nam")},
    {10000, TEXT("Mac Roman")},
    {20127, TEXT("US-ASCII (7bit)")},
    {20866, TEXT("Russian KOI8")},
    {21866, TEXT("Ukrainian KOI8")},
    {28591, TEXT("ISO 8859-1 Latin 1")},
    {28592, TEXT("ISO 8859-2 Latin 2 (East European)")},
    {28593, TEXT("ISO 8859-3 Latin 3 (South European)")},
    {28594, TEXT("ISO 8859-4 Latin 4 (Baltic old)")},
    {28595, TEXT("ISO 8859-5 Cyrillic")},
    {28596, TEXT("ISO 8859-6 Arabic")},
    {28597, TEXT("ISO 8859-7 Greek")},
    {28598, TEXT("ISO 8859-8 Hebrew")},
    {28599, TEXT("ISO 8859-9 Latin 5 (Turkish)")},
    {28603, TEXT("ISO 8859-13 Latin 7 (Baltic)")},
    {28605, TEXT("ISO 8859-15 Latin 9 (Euro)")},
    {65000, TEXT("65000 (UTF-7)")},
    {65001, TEXT("65001 (UTF-8)")},
};

PageName const * FindPage(UINT number)
{
    auto const * const found = std::find_if(
        std::begin(pages), std::end(pages), [number](PageName const & page) { return page.number == number; });
    return found != std::end(pages) && IsValidCodePage(number) ? found : nullptr;
}

/// The first and the last of each run of bytes that lead a character, as many as there is room for.
void ListLeadBytes(CodePage const & page, BYTE (&ranges)[MAX_LEADBYTES])
{
    std::size_t written = 0;
    for (unsigned first = 0; first < 256 && written + 2 <= MAX_LEADBYTES; ++first)
    {
        if (!page.IsLead(static_cast<unsigned char>(first)))
        {
            continue;
        }
        unsigned last = first;
        while (last < 255 && page.IsLead(static_cast<unsigned char>(last + 1)))
        {
            ++last;
        }
        ranges[written++] = static_cast<BYTE>(first);
        ranges[written++] = static_cast<BYTE>(last);
        first = last;
    }
}

} // namespace

BOOL WINAPI GetCPInfoExW(UINT codePage, DWORD, CPINFOEXW * information)
{
    CheckOutputs(information);
    UINT const number = ResolveCodePage(codePage);
    PageName const * const named = FindPage(number);
    if (named == nullptr || information == nullptr)
    {
        return FailWith(ERROR_INVALID_PARAMETER);
    }
    *information = {};
    information->MaxCharSize = number == CP_UTF7 ? 5 : 4;
    information->DefaultChar[0] = '?';
    information->UnicodeDefaultChar = 0xFFFD;
    if (CodePage const * const page = CodePage::Find(number))
    {
        information->MaxCharSize = page->IsDoubleByte() ? 2 : 1;
        information->UnicodeDefaultChar = page->UnicodeDefault();
        ListLeadBytes(*page, information->LeadByte);
    }
    information->CodePage = number;
    std::char_traits<WCHAR>::copy(
        information->CodePageName, named->name, std::char_traits<WCHAR>::length(named->name) + 1);
    return TRUE;
}

BOOL WINAPI EnumSystemCodePagesW(CODEPAGE_ENUMPROCW callback, DWORD)
{
    if (callback == nullptr)
    {
        return FailWith(ERROR_INVALID_PARAMETER);
    }
    for (PageName const & page : pages)
    {
        if (!IsValidCodePage(page.number))
        {
            continue;
        }
        WCHAR text[11] = {};
        WCHAR * begin = std::end(text) - 1;
        for (UINT rest = page.number; rest != 0; rest /= 10)
        {
            *--begin = static_cast<WCHAR>('0' + rest % 10);
        }
        if (!callback(begin))
        {
            break;
        }
    }
    return TRUE;
}
