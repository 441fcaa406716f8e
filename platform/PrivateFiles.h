#pragma once

// Files that are being written, and that nobody else may read before they are whole. One is made by CreateFileW with
// FILE_ATTRIBUTE_TEMPORARY: on Linux it is its owner's alone from the moment it exists, on Windows it has the rights
// that its folder gives to new files.

#include <kvcore/platform/export.h>
#include <kvcore/platform/types.h>

namespace kv::platform
{

/// Gives a temporary file the attributes and the rights that any new file of this process has. False with the last
/// error set. Any thread.
KVCORE_API bool GiveUsualRights(WString const & path) noexcept;

} // namespace kv::platform
