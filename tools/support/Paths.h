#pragma once

#include <filesystem>
#include <string>

#include <kvcore/core/String.h>

namespace kv::tools
{

/// The library's form of a native path: with a drive letter and backslashes. On Windows the two are one.
[[nodiscard]] String LibraryPath(std::filesystem::path const & native);

/// The native path of one in the library's form.
[[nodiscard]] std::filesystem::path NativePath(String const & path);

} // namespace kv::tools
