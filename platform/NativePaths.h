#pragma once

// Paths as people type and read them on this system, and as the library's calls take them. For tools and tests: the
// library itself knows Win32 paths only.

#include <string>
#include <string_view>

#include <kvcore/platform/export.h>
#include <kvcore/platform/types.h>

namespace kv::platform
{

/// The Win32 path of a native one. On Linux an absolute path lies on `Z:`, a relative one stays relative, and every
/// name has a Win32 form that leads back to its bytes: what is no UTF-8, and what Win32 allows in no name, shows as
/// units of its own (U+DC80 to U+DCFF, U+F001 to U+F07C). On Windows a native path is the Win32 path in UTF-8, `/`
/// taken for `\`. No disk is looked at. Any thread.
KVCORE_API WString PathFromNative(std::string_view native);

/// The native path of a Win32 one, relative if that is relative. Letters stay in the case that they have; the disk is
/// not looked at. Empty if there is none (another machine, characters that no name has), with the last error set. Any
/// thread.
KVCORE_API std::string PathToNative(WString const & path);

} // namespace kv::platform
