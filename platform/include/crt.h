#pragma once

// The parts of the Windows C run-time library that have no standard twin: wide printf with that library's own meaning
// of the conversions, the number printers, and the splitting of paths.

#include <cstdarg>

#include <kvcore/platform/include/basetypes.h>

extern "C"
{
    /// Prints at most `capacity` elements. Returns the elements printed, without the NUL; -1 if they were more than
    /// `capacity`, which then holds the first of them, or if `format` is null. The NUL is written only if there is room
    /// behind the text. A null `buffer` only counts. Any thread; needs no memory of its own, whatever the widths.
    ///
    /// %s and %c are wide, %S and %C narrow; h before them is narrow, l or w wide. Narrow text is UTF-8. Integers have
    /// 32 bits, with h 16, with ll or I64 64, with I, z, t, j those of a pointer; l is 32 bits as on Windows. The
    /// decimal point is that of the calling thread's locale (see PrintInvariant).
    KVCORE_API int _vsnwprintf(WCHAR * buffer, std::size_t capacity, WCHAR const * format, std::va_list arguments);
    KVCORE_API int _snwprintf(WCHAR * buffer, std::size_t capacity, WCHAR const * format, ...);

    /// Print `value` in `radix` (2 to 36), digits above 9 in lower case, a minus sign for negative signed values at
    /// radix 10 only. 0; or an errno value, in errno as well, with an empty buffer: ERANGE if the text and its NUL do
    /// not fit, EINVAL for any other radix or for no buffer. Any thread.
    KVCORE_API int _itow_s(int value, WCHAR * buffer, std::size_t capacity, int radix);
    KVCORE_API int _ultow_s(DWORD value, WCHAR * buffer, std::size_t capacity, int radix);
    KVCORE_API int _i64tow_s(__int64 value, WCHAR * buffer, std::size_t capacity, int radix);
    KVCORE_API int _ui64tow_s(unsigned __int64 value, WCHAR * buffer, std::size_t capacity, int radix);

    /// The decimal digits of `value`, rounded half away from zero to `decimals` places behind the point, without point,
    /// sign and leading zeros. `decimalPosition` is how many of them stand before the point, or minus the number of
    /// zeros between the point and the first of them; `sign` is 1 for negative values, -0.0 included. 0; ERANGE with an
    /// empty buffer if it is too small; EINVAL for a null argument or no capacity. Any thread.
    KVCORE_API int
    _fcvt_s(char * buffer, std::size_t capacity, double value, int decimals, int * decimalPosition, int * sign);

    /// Splits a path into its drive ("c:"), folder with its last separator, name and extension with its dot, each into
    /// a buffer of that many elements, NUL included; a part that is not wanted has a null buffer and a capacity of 0.
    /// Slashes separate too; the last dot of the last component begins the extension, wherever it stands. 0; or an
    /// errno value, in errno as well, with every buffer empty: ERANGE if a part does not fit, EINVAL for a null path or
    /// a buffer that is null with a capacity or not null without one. Any thread.
    KVCORE_API int _wsplitpath_s(
        WCHAR const * path, WCHAR * drive, std::size_t driveCapacity, WCHAR * folder, std::size_t folderCapacity,
        WCHAR * name, std::size_t nameCapacity, WCHAR * extension, std::size_t extensionCapacity);
}
