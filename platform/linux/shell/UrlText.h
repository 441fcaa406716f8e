#pragma once

// What the URL functions share.

#include <string>
#include <string_view>

#include <kvcore/platform/include/shellapi.h>

namespace kv::platform
{

/// The length of the scheme that a URL begins with, the colon not counted; 0 if there is none. One letter is a drive.
std::size_t SchemeLength(std::u16string_view url);

/// The same text with the letters A to Z in lower case.
std::u16string LowerAscii(std::u16string_view text);

/// Whether the text begins with a drive's letter and a colon.
bool BeginsWithDrive(std::u16string_view text);

/// `path` in a URL's characters: escapes for what a URL cannot hold, slashes for backslashes up to a '?'.
std::u16string EscapedPath(std::u16string_view path);

/// Hands a result to a caller by the rules of the URL functions: `success`, or E_POINTER with the room that is needed.
HRESULT CopyResult(std::u16string_view text, LPWSTR buffer, LPDWORD length, HRESULT success);

} // namespace kv::platform
