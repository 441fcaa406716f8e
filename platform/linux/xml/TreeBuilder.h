#pragma once

// From text to a document: expat reads, and what it tells becomes the tree that libxml2 and libxslt work on.
//
// Expat checks that a text is well-formed and nothing else, and looks up attributes, entities and prefixes in tables,
// so that no document takes more than its size warrants. The bounds that are left stand in TreeBuilder.cpp.

#include <string_view>

#include "Loading.h"

namespace kv::platform
{

/// The document of a text in UTF-8, or null with `problem`. `url` is where it comes from, null if that is not known.
SharedTree BuildTree(std::string_view text, char const * url, LoadOptions const & options, Problem & problem);

} // namespace kv::platform
