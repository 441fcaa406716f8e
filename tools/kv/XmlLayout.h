#pragma once

#include <functional>
#include <string>
#include <string_view>

namespace kv::tools
{

/// How `kv xml format` lays a document out.
struct XmlLayout
{
    std::string unit = "  "; ///< of the indent
    bool compact = false;    ///< no line breaks and indents at all
};

/// Lays out a well-formed document: each tag, comment and instruction on a line of its own. White space between tags is
/// layout, and is replaced; an element that has other text keeps its content as it is, as does one with xml:space
/// "preserve", and one that holds nothing but white space. The result goes to `write` in pieces: that of a deep
/// document is many times as large as the document.
void LayOut(std::string_view xml, XmlLayout const & layout, std::function<void(std::string_view)> const & write);

} // namespace kv::tools
