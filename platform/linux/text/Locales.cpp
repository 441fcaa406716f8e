#include "Locales.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <string_view>

#include <unicode/uloc.h>

#include <kvcore/platform/include/winnls.h>

namespace kv::platform
{

namespace
{

constexpr char const * fallback = "en_US";

bool StandsForUser(LCID locale)
{
    switch (locale)
    {
    case 0:
    case LOCALE_USER_DEFAULT:
    case LOCALE_SYSTEM_DEFAULT:
    case 0x0C00: // the user's custom locale
    case 0x1000: // a custom locale without a number
    case 0x1400: // the custom locale of the user's interface
        return true;
    default:
        return false;
    }
}

/// The high word picks one of a language's orders. These are the only ones that exist.
bool IsKnownSort(LCID locale)
{
    switch (locale)
    {
    case 0x1007F:
    case 0x10407:
    case 0x1040E:
    case 0x10437:
    case 0x20804:
    case 0x21004:
    case 0x21404:
    case 0x30404:
    case 0x40404:
    case 0x40411:
    case 0x40C04:
    case 0x41404:
    case 0x50804:
    case 0x51004:
        return true;
    default:
        return locale <= 0xFFFF;
    }
}

std::string ReadUserLocale(char const * category)
{
    for (char const * variable : {"LC_ALL", category, "LANG"})
    {
        // Also in a program with more rights than its caller: a language names no place, and what is not known is none.
        char const * const value = std::getenv(variable);
        if (value == nullptr || *value == '\0')
            continue;
        std::string_view name = value;
        name = name.substr(0, name.find_first_of(".@"));
        if (name == "C" || name == "POSIX")
            return fallback;
        char canonical[ULOC_FULLNAME_CAPACITY];
        UErrorCode error = U_ZERO_ERROR;
        uloc_canonicalize(std::string(name).c_str(), canonical, sizeof(canonical), &error);
        bool const known =
            U_SUCCESS(error) && error != U_STRING_NOT_TERMINATED_WARNING && *uloc_getISO3Language(canonical) != '\0';
        return known ? canonical : fallback;
    }
    return fallback;
}

std::string const & UserLocale(LocaleCategory category)
{
    static std::array<std::string, 4> const locales = {
        ReadUserLocale("LC_COLLATE"), ReadUserLocale("LC_CTYPE"), ReadUserLocale("LC_TIME"),
        ReadUserLocale("LC_MESSAGES")};
    return locales[static_cast<std::size_t>(category)];
}

} // namespace

bool IsLocale(LCID locale)
{
    if (StandsForUser(locale) || locale == LOCALE_INVARIANT)
        return true;
    if (!IsKnownSort(locale))
        return false;
    char name[ULOC_FULLNAME_CAPACITY];
    UErrorCode error = U_ZERO_ERROR;
    uloc_getLocaleForLCID(locale, name, sizeof(name), &error);
    return U_SUCCESS(error);
}

std::optional<std::string> IcuLocale(LCID locale, LocaleCategory category)
{
    if (!IsLocale(locale))
        return std::nullopt;
    if (StandsForUser(locale))
        return UserLocale(category);
    if (locale == LOCALE_INVARIANT)
        return "";
    char name[ULOC_FULLNAME_CAPACITY] = {};
    UErrorCode error = U_ZERO_ERROR;
    int32_t const length = uloc_getLocaleForLCID(locale, name, sizeof(name), &error);
    return std::string(name, static_cast<std::size_t>(std::min<int32_t>(length, ULOC_FULLNAME_CAPACITY)));
}

} // namespace kv::platform

LANGID WINAPI GetUserDefaultLangID()
{
    static LANGID const language = []
    {
        std::string const locale =
            *kv::platform::IcuLocale(LOCALE_USER_DEFAULT, kv::platform::LocaleCategory::Messages);
        std::uint32_t const known = uloc_getLCID(locale.c_str());
        return static_cast<LANGID>(known != 0 ? known : 0x0409);
    }();
    return language;
}

LANGID WINAPI GetSystemDefaultLangID()
{
    return GetUserDefaultLangID();
}
