#pragma once

// The parts of the Windows C run-time library that have no standard twin: wide printf with that library's own meaning
// of the conversions, and the number printers.

#include <cstdarg>

#include <kvcore/platform/include/basetypes.h>

extern "C"
{
    /// Prints at most `capacity` elements. Returns the elements printed, without the NUL; -1 if they were more than
    /// `capacity`. The NUL is written only if there is room behind the text.
    KVCORE_API int _vsnwprintf(WCHAR * buffer, std::size_t capacity, WCHAR const * format, std::va_list arguments);
    KVCORE_API int _snwprintf(WCHAR * buffer, std::size_t capacity, WCHAR const * format, ...);

    /// Print `value` in `radix` (2 to 36), digits above 9 in lower case, a minus sign for negative signed values at
    /// radix 10 only. 0, or an errno value with an empty buffer.
    KVCORE_API int _itow_s(int value, WCHAR * buffer, std::size_t capacity, int radix);
    KVCORE_API int _ultow_s(DWORD value, WCHAR * buffer, std::size_t capacity, int radix);
    KVCORE_API int _i64tow_s(__int64 value, WCHAR * buffer, std::size_t capacity, int radix);
    KVCORE_API int _ui64tow_s(unsigned __int64 value, WCHAR * buffer, std::size_t capacity, int radix);

    /// The decimal digits of `value`, rounded to `decimals` places behind the point, without point and sign.
    KVCORE_API int
    _fcvt_s(char * buffer, std::size_t capacity, double value, int decimals, int * decimalPosition, int * sign);
}
