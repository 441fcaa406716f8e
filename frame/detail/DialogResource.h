#pragma once

// Dialog resources as bytes. Both forms are the platform's: the extended one has the word 0xFFFF at offset 2.
//
// Positions are aligned as they are relative to the beginning, which stands at a multiple of 4. Nothing outside the
// bytes is read or written, whatever they say.

#include <cstddef>
#include <string_view>

#include <kvcore/frame/DialogTemplate.h>
#include <kvcore/platform/export.h>

namespace kv::detail
{

/// Parses a resource. False, and an empty `result`, if not even its header is there. What lies behind the end is not
/// there: the item that meets it has what came before, and is the last.
KVCORE_API bool ParseDialog(std::string_view bytes, DialogTemplate & result);

/// Where the dialog stands; empty if the header is not there.
KVCORE_API RECT DialogPlace(std::string_view bytes);

/// Multiplies all places and sizes by the factors, up to the end of the bytes.
KVCORE_API void ScaleDialogPlaces(char * bytes, std::size_t size, double x, double y);

} // namespace kv::detail
