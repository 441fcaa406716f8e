#pragma once

// Reading of numbers that several classes share. Internal to the library.

namespace kv::detail
{

/// Reads the longest number that [begin, end) begins with, as the C library's strtod does under the "C" locale, and
/// returns the place behind it, `begin` with 0 if there is none. Letters are lower case; blanks are nobody's here.
char const * ReadDouble(char const * begin, char const * end, double & value);

} // namespace kv::detail
