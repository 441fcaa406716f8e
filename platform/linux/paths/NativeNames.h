#pragma once

// One component of a path on its two sides: the kernel's bytes and Win32's UTF-16 units.
//
// A native name is UTF-8, and shows as that, with three exceptions that make every native name a name that Win32 can
// hold, and each of those lead back to the same bytes:
//   - a byte b that is no part of well-formed UTF-8 shows as the lone unit U+DC00 + b;
//   - what Win32 allows in no name (\ * ? " < > | and the control characters, a blank or a dot at the end) shows as
//     U+F000 + its code;
//   - a character that really is one of those U+F000 + code shows by its bytes, each as U+DC00 + b.

#include <cstddef>
#include <string>

#include <kvcore/platform/include/basetypes.h>

namespace kv::platform
{

constexpr std::size_t maxNativeName = 255;

/// Writes the units of a native name and gives their count, which is at most `count`. Any bytes do.
std::size_t DecodeName(char const * name, std::size_t count, WCHAR * target) noexcept;

/// Writes the bytes of a name, at most `capacity`. False with the last error set: ERROR_INVALID_NAME for a character
/// that no name has, for half of a surrogate pair, and for what would be "", "." or ".." on the native side;
/// ERROR_FILENAME_EXCED_RANGE if there is no room.
bool EncodeName(
    WCHAR const * name, std::size_t count, char * target, std::size_t capacity, std::size_t & length) noexcept;

/// The unit in the case in which names are compared.
WCHAR FoldUnit(WCHAR unit) noexcept;

/// Orders names as directories list them: by their folded units.
int CompareNames(WCHAR const * left, std::size_t leftCount, WCHAR const * right, std::size_t rightCount) noexcept;

/// A key that is equal for native names that differ only in case. Throws std::bad_alloc.
std::string FoldedKey(char const * name, std::size_t count);

/// Whether two native names differ at most in case, without allocating.
bool EqualIgnoringCase(char const * left, std::size_t leftCount, char const * right, std::size_t rightCount) noexcept;

} // namespace kv::platform
