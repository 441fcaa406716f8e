#pragma once

// National-language support: collation, case mapping, dates and times as text, code pages.

#include <kvcore/platform/include/basetypes.h>

#define LOCALE_USER_DEFAULT 0x0400u
#define LOCALE_SYSTEM_DEFAULT 0x0800u
#define LOCALE_INVARIANT 0x007Fu
#define LOCALE_USE_CP_ACP 0x40000000u
#define LOCALE_NOUSEROVERRIDE 0x80000000u

#define NORM_IGNORECASE 0x00000001u
#define NORM_IGNORENONSPACE 0x00000002u
#define NORM_IGNORESYMBOLS 0x00000004u
#define SORT_DIGITSASNUMBERS 0x00000008u
#define LINGUISTIC_IGNORECASE 0x00000010u
#define LINGUISTIC_IGNOREDIACRITIC 0x00000020u
#define NORM_LINGUISTIC_CASING 0x08000000u
#define NORM_STOP_ON_NULL 0x10000000u
#define NORM_IGNOREKANATYPE 0x00010000u
#define NORM_IGNOREWIDTH 0x00020000u
#define SORT_STRINGSORT 0x00001000u
#define CSTR_LESS_THAN 1
#define CSTR_EQUAL 2
#define CSTR_GREATER_THAN 3

#define LCMAP_LOWERCASE 0x00000100u
#define LCMAP_UPPERCASE 0x00000200u
#define LCMAP_LINGUISTIC_CASING 0x01000000u

#define DATE_SHORTDATE 0x00000001u
#define DATE_LONGDATE 0x00000002u
#define DATE_YEARMONTH 0x00000008u
#define DATE_MONTHDAY 0x00000080u
#define TIME_NOMINUTESORSECONDS 0x00000001u
#define TIME_NOSECONDS 0x00000002u
#define TIME_NOTIMEMARKER 0x00000004u
#define TIME_FORCE24HOURFORMAT 0x00000008u

#define CP_ACP 0u
#define CP_OEMCP 1u
#define CP_MACCP 2u
#define CP_THREAD_ACP 3u
#define CP_UTF7 65000u
#define CP_UTF8 65001u

#define MB_PRECOMPOSED 0x00000001u
#define MB_COMPOSITE 0x00000002u
#define MB_USEGLYPHCHARS 0x00000004u
#define MB_ERR_INVALID_CHARS 0x00000008u
#define WC_DISCARDNS 0x00000010u
#define WC_SEPCHARS 0x00000020u
#define WC_DEFAULTCHAR 0x00000040u
#define WC_ERR_INVALID_CHARS 0x00000080u
#define WC_COMPOSITECHECK 0x00000200u
#define WC_NO_BEST_FIT_CHARS 0x00000400u

#define CP_INSTALLED 1u
#define CP_SUPPORTED 2u

#define MAX_DEFAULTCHAR 2
#define MAX_LEADBYTES 12

/// A code page: the most bytes that one of its characters takes, what stands for those that it lacks, and the runs of
/// lead bytes, first and last of each, up to two zeros.
struct CPINFOEXW
{
    UINT MaxCharSize;
    BYTE DefaultChar[MAX_DEFAULTCHAR];
    BYTE LeadByte[MAX_LEADBYTES];
    WCHAR UnicodeDefaultChar;
    UINT CodePage;
    WCHAR CodePageName[260];
};
static_assert(sizeof(CPINFOEXW) == 544);

/// Is given a code page's number as text; FALSE ends the enumeration.
typedef BOOL(CALLBACK * CODEPAGE_ENUMPROCW)(LPWSTR codePage);

extern "C"
{
    /// Compares by the rules of a locale. CSTR_LESS_THAN, CSTR_EQUAL, CSTR_GREATER_THAN, or 0 with the last error set.
    /// A length of -1 measures the text.
    KVCORE_API int WINAPI
    CompareStringW(LCID locale, DWORD flags, LPCWCH left, int leftLength, LPCWCH right, int rightLength);

    /// Maps case. Returns the elements written or, with a `capacity` of 0, needed; 0 with the last error set. A length
    /// of -1 measures the text and maps its NUL too.
    KVCORE_API int WINAPI
    LCMapStringW(LCID locale, DWORD flags, LPCWSTR source, int sourceLength, LPWSTR target, int capacity);

    /// Prints a date, or a time of day, in the form that the locale's users expect, or by `format`. Null for `when`
    /// means now. Returns the elements written or, with a `capacity` of 0, needed, the NUL included; 0 with the last
    /// error set.
    KVCORE_API int WINAPI
    GetDateFormatW(LCID locale, DWORD flags, SYSTEMTIME const * when, LPCWSTR format, LPWSTR buffer, int capacity);
    KVCORE_API int WINAPI
    GetTimeFormatW(LCID locale, DWORD flags, SYSTEMTIME const * when, LPCWSTR format, LPWSTR buffer, int capacity);

    /// Convert between a code page and UTF-16. A length of -1 measures the text and converts its NUL too. Return the
    /// elements written or, with a `capacity` of 0, needed; 0 with the last error set. What lies behind the result in
    /// the target is not kept. The pages: 437, 720, 737, 775, 850, 852, 855, 857, 860 to 866, 869, 874, 932, 936, 949,
    /// 950, 1250 to 1258, 10000, 20127, 20866, 21866, 28591 to 28599, 28603, 28605, CP_UTF7 and CP_UTF8. CP_ACP,
    /// CP_OEMCP and CP_THREAD_ACP are CP_UTF8 here, CP_MACCP is 10000. Any thread.
    KVCORE_API int WINAPI
    MultiByteToWideChar(UINT codePage, DWORD flags, LPCCH source, int sourceLength, LPWSTR target, int capacity);
    KVCORE_API int WINAPI WideCharToMultiByte(
        UINT codePage, DWORD flags, LPCWCH source, int sourceLength, LPSTR target, int capacity, LPCCH defaultChar,
        LPBOOL usedDefaultChar);

    /// The code page of CP_ACP, and that of CP_OEMCP.
    KVCORE_API UINT WINAPI GetACP();
    KVCORE_API UINT WINAPI GetOEMCP();
    KVCORE_API BOOL WINAPI IsValidCodePage(UINT codePage);

    /// What there is to know of a code page; FALSE with ERROR_INVALID_PARAMETER if there is no such page. `flags` is
    /// not looked at.
    KVCORE_API BOOL WINAPI GetCPInfoExW(UINT codePage, DWORD flags, CPINFOEXW * information);

    /// Calls `callback` for each code page, in no order, until it gives FALSE. All are installed, so `flags` makes no
    /// difference.
    KVCORE_API BOOL WINAPI EnumSystemCodePagesW(CODEPAGE_ENUMPROCW callback, DWORD flags);

    /// The language of the user, from the environment of the first call: LC_ALL, LC_MESSAGES, LANG, in this order; that
    /// of the United States if they name none. The system has no other.
    KVCORE_API LANGID WINAPI GetUserDefaultLangID();
    KVCORE_API LANGID WINAPI GetSystemDefaultLangID();
}
