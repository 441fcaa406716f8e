#include <algorithm>
#include <optional>
#include <string_view>

#include <unicode/uchar.h>
#include <unicode/uloc.h>

#include <kvcore/platform/include/errors.h>
#include <kvcore/platform/include/winnls.h>
#include <kvcore/platform/linux/memory/CallerMemory.h>

#include "Locales.h"

using namespace kv::platform;

namespace
{

/// How one call maps. Only the linguistic mapping knows languages, and the one thing it knows of them is which i keeps
/// its dot.
struct CaseMapping
{
    bool upper;
    bool linguistic;
    bool dottedPairs;

    char32_t operator()(char32_t c) const
    {
        if (c < 0x80 && !dottedPairs)
        {
            char32_t const first = upper ? 'a' : 'A';
            return c - first < 26 ? c ^ 0x20 : c;
        }
        if (dottedPairs)
        {
            if (upper && c == 'i')
                return 0x130;
            if (!upper && c == 'I')
                return 0x131;
        }
        auto const map = [](bool up, char32_t from)
        {
            UChar32 const point = static_cast<UChar32>(from);
            return static_cast<char32_t>(up ? u_toupper(point) : u_tolower(point));
        };
        char32_t const mapped = map(upper, c);
        // What leaves the basic plane, or enters it, would change the length of the text.
        if ((mapped < 0x10000) != (c < 0x10000))
            return c;
        // Kept: without linguistic rules only pairs that lead back and forth are mapped, so that a name in other case
        // stays the same name: the long s, the sharp S, the final sigma and the title-case digraphs stay.
        return linguistic || map(!upper, mapped) == c ? mapped : c;
    }
};

bool IsTurkic(LCID locale)
{
    std::optional<std::string> const name =
        kv::platform::IcuLocale(locale, kv::platform::LocaleCategory::CharacterTypes);
    if (!name)
        return false;
    std::string_view const language = std::string_view(*name).substr(0, 2);
    return (language == "tr" || language == "az") && (name->size() == 2 || (*name)[2] == '_');
}

int Map(CaseMapping const & mapping, WCHAR const * source, std::size_t length, WCHAR * target)
{
    for (std::size_t i = 0; i < length; i++)
    {
        WCHAR const unit = source[i];
        bool const pair = (unit & 0xFC00) == 0xD800 && i + 1 < length && (source[i + 1] & 0xFC00) == 0xDC00;
        if (!pair)
        {
            target[i] = static_cast<WCHAR>(mapping(unit));
            continue;
        }
        char32_t const c = mapping(0x10000 + ((unit & 0x3FFu) << 10 | (source[i + 1] & 0x3FFu)));
        target[i] = static_cast<WCHAR>(0xD7C0 + (c >> 10));
        target[++i] = static_cast<WCHAR>(0xDC00 | (c & 0x3FF));
    }
    return static_cast<int>(length);
}

} // namespace

int WINAPI LCMapStringW(LCID locale, DWORD flags, LPCWSTR source, int sourceLength, LPWSTR target, int capacity)
{
    CheckText(source, sourceLength);
    CheckBuffer(target, capacity > 0 ? 1 : 0);
    auto const fail = [](DWORD code)
    {
        SetLastError(code);
        return 0;
    };
    if (source == nullptr || sourceLength == 0 || capacity < 0 || (target == nullptr && capacity != 0))
        return fail(ERROR_INVALID_PARAMETER);
    if (!kv::platform::IsLocale(locale))
        return fail(ERROR_INVALID_PARAMETER);
    DWORD const direction = flags & (LCMAP_LOWERCASE | LCMAP_UPPERCASE);
    DWORD const known = LCMAP_LOWERCASE | LCMAP_UPPERCASE | LCMAP_LINGUISTIC_CASING | LOCALE_USE_CP_ACP;
    if ((direction != LCMAP_LOWERCASE && direction != LCMAP_UPPERCASE) || (flags & ~known) != 0)
        return fail(ERROR_INVALID_FLAGS);

    std::size_t const length =
        sourceLength > 0 ? static_cast<std::size_t>(sourceLength) : std::char_traits<WCHAR>::length(source) + 1;
    if (length > 0x7FFFFFFF)
        return fail(ERROR_INVALID_PARAMETER);
    if (capacity == 0)
        return static_cast<int>(length);
    if (length > static_cast<std::size_t>(capacity))
        return fail(ERROR_INSUFFICIENT_BUFFER);

    bool const linguistic = (flags & LCMAP_LINGUISTIC_CASING) != 0;
    return Map({direction == LCMAP_UPPERCASE, linguistic, linguistic && IsTurkic(locale)}, source, length, target);
}
