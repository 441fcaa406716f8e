#pragma once

#include <string>

#include <kvcore/platform/include/basetypes.h>

namespace kv::platform
{

/// The system's words for a Win32 code or an HRESULT, ending in CR LF; empty for a code that is not known. What the
/// system has an error number for is told in the C library's words. Any thread.
std::basic_string<WCHAR> SystemMessage(DWORD code);

} // namespace kv::platform
