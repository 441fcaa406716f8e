#pragma once

// Documents read from memory and from files.

#include <cstddef>

#include "Problem.h"
#include "Tree.h"

namespace kv::platform
{

struct LoadOptions
{
    bool files = false;
    bool keepBlanks = false;
    bool ignoreEncoding = false; ///< The text is UTF-8, whatever it declares.
};

/// The document, or null with `problem`, which has a place if the text is what is wrong.
SharedTree LoadMemory(char const * data, std::size_t size, LoadOptions const & options, Problem & problem);
/// The same of a file by its path or file: URL.
SharedTree LoadFile(WCHAR const * path, LoadOptions const & options, Problem & problem);
/// The same of a file by its native path or file: URL, as documents name others.
SharedTree LoadNamed(char const * url, LoadOptions const & options, Problem & problem);

/// All of a file; false with `problem` if it is none, cannot be read, or is too large.
bool ReadNativeFile(char const * path, std::string & bytes, Problem & problem);
/// The native path in a file: URL, or the text as it is. Null for one that leads to another machine.
std::string NativePathInUrl(char const * url);

} // namespace kv::platform
