#pragma once

// What the C run-time libraries of the targets do each in their own way: numbers free of the process's locale.

#include <cstdarg>
#include <cstddef>

#include <kvcore/platform/export.h>
#include <kvcore/platform/types.h>

namespace kv::platform
{

/// The C run-time library's _vsnwprintf with the decimal point of the "C" locale, whatever locale the process or the
/// thread has set. Result, buffer and failures are that function's. Any thread; touches no locale of anyone.
KVCORE_API int PrintInvariant(WCHAR * buffer, std::size_t capacity, WCHAR const * format, std::va_list arguments);

} // namespace kv::platform
