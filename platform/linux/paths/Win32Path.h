#pragma once

// From the kernel's paths to Win32 paths.

#include <string>

#include <kvcore/platform/types.h>

namespace kv::platform
{

/// The Win32 form of a native path: on Z: if it is absolute, else relative. Throws std::bad_alloc.
WString Win32PathOf(char const * native, std::size_t length);

/// The last component of a native path, as Win32 shows it.
WString Win32NameOf(char const * name, std::size_t length);

/// Hands a text out as the path functions do: the length without the NUL if it fits, else the length with it.
DWORD GiveText(WString const & text, WCHAR * buffer, DWORD capacity);

/// The whole path of a Win32 path that is not empty; `rootLength` is what ".." cannot take off. False with the last
/// error set if the current directory is gone. Throws std::bad_alloc.
bool MakeFullPath(WCHAR const * path, WString & full, std::size_t & rootLength);

} // namespace kv::platform
