#pragma once

// UTF-7 (RFC 2152) to UTF-16 and back, with the choices that Windows makes where the RFC leaves one.

#include "Utf8.h"

namespace kv::platform
{

/// With a `capacity` of 0 nothing is written and `length` counts what a large enough target would take.
Conversion DecodeUtf7(char const * source, std::size_t length, WCHAR * target, std::size_t capacity);
Conversion EncodeUtf7(WCHAR const * source, std::size_t length, char * target, std::size_t capacity);

} // namespace kv::platform
