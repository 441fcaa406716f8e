#pragma once

// Character classes of UTF-16 units. The standard's functions of these names take the C library's own wide character,
// which is wider than a unit on some targets, and follow the process's locale there; these do neither.

#include <kvcore/platform/types.h>

#include <kvcore/platform/export.h>

namespace kv::platform
{

/// What `iswspace` of the Windows C run-time library accepts. A half of a surrogate pair is in no class. Any thread.
KVCORE_API bool IsSpace(WCHAR c);
KVCORE_API bool IsDigit(WCHAR c);
KVCORE_API bool IsAlpha(WCHAR c);
KVCORE_API bool IsAlphaNumeric(WCHAR c);
KVCORE_API bool IsUpper(WCHAR c);
KVCORE_API bool IsLower(WCHAR c);
KVCORE_API bool IsPunctuation(WCHAR c);
KVCORE_API bool IsControl(WCHAR c);

} // namespace kv::platform
