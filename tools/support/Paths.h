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

/// The library's form of a path that a person typed, UTF-8 or the system's bytes: a native path; or, where it begins
/// with a drive and a backslash or with two backslashes, already the library's.
[[nodiscard]] String TypedPath(std::string const & typed);

/// The native path of one that a person typed in either form.
[[nodiscard]] std::filesystem::path TypedNativePath(std::string const & typed);

/// A native path, or a part of one, as the bytes that it is; on Windows in UTF-8. Any name does, where the standard
/// library's conversions throw for those that are no Unicode.
[[nodiscard]] std::string NativeBytes(std::filesystem::path const & native);

/// A path as a person reads it: native, or in the library's form with `win32`. Where there is no native form, the
/// library's.
[[nodiscard]] std::string ShownPath(String const & path, bool win32 = false);

} // namespace kv::tools
