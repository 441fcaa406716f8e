#pragma once

#include <cstddef>

#include <kvcore/platform/xmldom.h>

namespace kv::detail
{

/// Has a document read bytes in memory through the other of its two doors for bytes, IPersistStreamInit. False if it
/// has not got that one either. What is wrong with the bytes stands in the document's parse error.
bool LoadFromBytes(IXMLDOMDocument2 & document, char const * data, std::size_t length);

} // namespace kv::detail
