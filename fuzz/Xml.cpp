// XML of any bytes as a document, a schema, a path and a style sheet. What can be read is written and read again, and
// must come out equal; everything else ends in the one exception.

#include <iterator>
#include <string>

#include <kvcore/config/XMLParser.h>
#include <kvcore/platform/win32.h>

#include "Fuzz.h"

namespace
{

constexpr char sample[] =
    "<a x='1' xmlns:p='urn:p'>text<b y='2'>1</b><!--c--><?p i?><![CDATA[ d ]]><p:b><b/></p:b></a>";

XMLDocument Parsed(std::string const & text)
{
    return XMLParser::ParseData(text.data(), static_cast<int>(text.size()));
}

/// Everything that can be asked of every node.
std::size_t Walk(XMLNode const & node)
{
    std::size_t size = node.GetName().size() + node.GetText().size();
    fuzz::Check(node.GetType() == XMLNode::Document || node.GetParentNode(), "a node has no parent");
    for (XMLNode const & child : node.GetChildNodes("node()", false))
    {
        size += Walk(child);
    }
    return size + (node.HasAttribute("x") ? 1 : 0);
}

void ReadDocument(std::string const & text)
{
    XMLDocument const document = Parsed(text);
    Walk(document);
    std::string const written = document.GetXML().Utf8();
    try
    {
        fuzz::Check(Parsed(written).GetXML().Utf8() == written, "a document does not read back equal");
    }
    catch (XMLParser::Exception const & failure)
    {
        fuzz::Check(false, failure.message.Utf8().c_str());
    }
}

void Select(std::string const & text)
{
    static XMLDocument const document = Parsed(sample);
    String const path = String::FromUtf8(text.c_str());
    for (XMLNode const & node : document.GetChildNodes(path.c_str(), false))
    {
        fuzz::Check(node, "an empty node was selected");
        node.GetXML();
    }
    document.GetChildNode(path.c_str(), false);
}

void Validate(std::string const & text)
{
    static XMLDocument document = Parsed(sample);
    document.ValidateSchema(text.data(), static_cast<int>(text.size()));
}

void Transform(std::string const & text)
{
    static XMLDocument const document = Parsed(sample);
    XMLNode const result = document.TransformNode(Parsed(text));
    fuzz::Check(result, "a transformation gave nothing");
    result.GetXML();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const * data, std::size_t size)
{
    static HRESULT const com = CoInitializeEx(nullptr, COINIT_MULTITHREADED);
    fuzz::Check(SUCCEEDED(com), "there is no COM");
    if (size == 0)
    {
        return 0;
    }
    std::string const text(reinterpret_cast<char const *>(data) + 1, size - 1);
    constexpr void (*uses[])(std::string const &) = {ReadDocument, Select, Validate, Transform};
    try
    {
        uses[data[0] % std::size(uses)](text);
    }
    catch (XMLParser::Exception const & failure)
    {
        fuzz::Check(!failure.message.empty(), "a failure has no message");
    }
    return 0;
}
