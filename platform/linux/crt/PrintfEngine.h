#pragma once

// The wide printf of the Windows C run-time library, over either source of arguments: a C argument list for
// _vsnwprintf, the inserts of a message for FormatMessageW.

#include <cstdarg>
#include <cstddef>

#include <kvcore/platform/include/basetypes.h>

namespace kv::platform
{

/// Prints at most `capacity` elements, without a NUL, and returns how many the whole text has. A null buffer only
/// counts. Once the text is longer than a buffer, the rest of `format` may be left alone: the result is then any number
/// above `capacity`.
std::uint64_t PrintWide(WCHAR * buffer, std::size_t capacity, WCHAR const * format, std::va_list arguments);

/// The same for one insert of a message: the arguments are `words`, behind whose end everything is 0, and neither the
/// floating-point conversions nor %n are known.
std::uint64_t
PrintInsert(WCHAR * buffer, std::size_t capacity, WCHAR const * format, DWORD_PTR const * words, std::size_t wordCount);

} // namespace kv::platform
