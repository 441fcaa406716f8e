#pragma once

// UTF-8 to UTF-16 and back, in one pass, without a library call: the conversions that texts meet most often.

#include <cstddef>

#include <kvcore/platform/include/basetypes.h>

namespace kv::platform
{

/// What a conversion did.
struct Conversion
{
    std::size_t length; ///< Elements written, or counted.
    bool complete;      ///< False if the target ran out of room.
    bool malformed;     ///< True if U+FFFD stands somewhere for what is no character.
};

Conversion CountUtf8AsUtf16(char const * source, std::size_t length);
Conversion DecodeUtf8(char const * source, std::size_t length, WCHAR * target, std::size_t capacity);

Conversion CountUtf16AsUtf8(WCHAR const * source, std::size_t length);
Conversion EncodeUtf8(WCHAR const * source, std::size_t length, char * target, std::size_t capacity);

} // namespace kv::platform
