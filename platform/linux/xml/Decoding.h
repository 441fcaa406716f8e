#pragma once

// From the bytes of a document, in the encoding that they declare, to UTF-8.

#include <string>
#include <string_view>

#include "Problem.h"

namespace kv::platform
{

/// The text of `bytes` in UTF-8 and without a mark: of `bytes` themselves where they are that, else of `storage`. An
/// encoding that Windows has a code page for is read by the table of that page. False with `problem` for bytes that
/// are no characters of the encoding, and for an encoding that is not known.
bool DecodeDocument(std::string_view bytes, std::string & storage, std::string_view & text, Problem & problem);

} // namespace kv::platform
