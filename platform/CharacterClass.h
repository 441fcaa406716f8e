#pragma once

// Character classes of UTF-16 units. The standard's functions of these names take the C library's own wide character,
// which is wider than a unit on some targets, and follow the process's locale there; these do neither.

#include <kvcore/platform/types.h>

#include <kvcore/platform/export.h>

namespace kv::platform
{

namespace detail
{

KVCORE_API bool IsSpaceAboveAscii(WCHAR c);

} // namespace detail

/// Each accepts what the function of the Windows C run-time library accepts that its name recalls (`iswspace`,
/// `iswdigit` and so on) in its "C" locale. Half of a surrogate pair is in no class. Any thread.
inline bool IsSpace(WCHAR c)
{
    return c < 0x80 ? c == ' ' || (c >= '\t' && c <= '\r') : detail::IsSpaceAboveAscii(c);
}
KVCORE_API bool IsDigit(WCHAR c);
KVCORE_API bool IsAlpha(WCHAR c);
KVCORE_API bool IsAlphaNumeric(WCHAR c);
KVCORE_API bool IsUpper(WCHAR c);
KVCORE_API bool IsLower(WCHAR c);
KVCORE_API bool IsPunctuation(WCHAR c);
KVCORE_API bool IsControl(WCHAR c);

} // namespace kv::platform
