// XML of any bytes as a document, a file, a schema, a path and a style sheet, and the same made by a grammar. What can
// be read is written and read again, and must come out equal; a file is read as memory is; a plain path selects what
// the same path selects as a part of an expression; everything else ends in the one exception.

#include <cstdio>
#include <iterator>
#include <string>

#include <unistd.h>

#include <kvcore/config/XMLParser.h>
#include <kvcore/platform/win32.h>
#include <kvcore/platform/xmldom.h>

#include "Fuzz.h"
#include "XmlGrammar.h"

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

/// A document from a file is the same as one from memory, down to what is said of a wrong one.
void ReadFile(std::string const & text)
{
    static std::string const path = "/tmp/kvcore-fuzz-xml-" + std::to_string(getpid());
    std::FILE * const file = std::fopen(path.c_str(), "wb");
    fuzz::Check(file != nullptr, "the file cannot be made");
    std::fwrite(text.data(), 1, text.size(), file);
    std::fclose(file);
    auto const outcome = [](auto parse)
    {
        try
        {
            return parse().GetXML().Utf8();
        }
        catch (XMLParser::Exception const & failure)
        {
            std::string const report = failure.message.Utf8();
            std::size_t const named = report.find("File: ");
            std::size_t const end = named == std::string::npos ? named : report.find('\n', named);
            return end == std::string::npos ? report : report.substr(0, named) + report.substr(end + 1);
        }
    };
    std::string const fromFile = outcome([] { return XMLParser::ParseFile(String::FromUtf8("Z:" + path).c_str()); });
    std::remove(path.c_str());
    fuzz::Check(fromFile == outcome([&] { return Parsed(text); }), "a file is not read as memory is");
}

/// Names of any kind, asked of elements with few and with many attributes.
void AskForAttributes(std::string const & text)
{
    static XMLDocument const document = []
    {
        std::string many = "<a x='1' xmlns='u' xmlns:p='v' p:y='2'><b";
        for (int i = 0; i < 40; ++i)
        {
            many += " x" + std::to_string(i) + "='" + std::to_string(i) + "' xmlns:q" + std::to_string(i) + "='w'";
        }
        return Parsed(many + "/></a>");
    }();
    String const name = String::FromUtf8(text.c_str());
    for (XMLNode const & element : document.GetChildNodes("//*", true))
    {
        String value;
        bool const found = element.GetAttribute(name.c_str(), value, false);
        fuzz::Check(found == element.HasAttribute(text.c_str()), "the two forms of a name differ");
        fuzz::Check(found || value.empty(), "a value was stored and not found");
    }
}

XMLDocument const & Sample()
{
    static XMLDocument const document = Parsed(sample);
    return document;
}

void Select(std::string const & text)
{
    String const path = String::FromUtf8(text.c_str());
    for (XMLNode const & node : Sample().GetChildNodes(path.c_str(), false))
    {
        fuzz::Check(node, "an empty node was selected");
        node.GetXML();
    }
    Sample().GetChildNode(path.c_str(), false);
}

void Validate(std::string const & text)
{
    static XMLDocument document = Parsed(sample);
    document.ValidateSchema(text.data(), static_cast<int>(text.size()));
}

/// An XMLNode that shows its interface, for what the library leaves out.
class OpenNode : public XMLNode
{
public:
    explicit OpenNode(XMLNode const & other) : XMLNode(other) {}
    IXMLDOMNode * Get() const
    {
        return node;
    }
};

void TransformToText(XMLNode const & document, XMLNode const & sheet)
{
    BSTR text = nullptr;
    HRESULT const result = OpenNode(document).Get()->transformNode(OpenNode(sheet).Get(), &text);
    fuzz::Check(SUCCEEDED(result) == (text != nullptr), "a transformation gave no text, or gave one and failed");
    SysFreeString(text);
}

void Transform(std::string const & text)
{
    XMLDocument const sheet = Parsed(text);
    TransformToText(Sample(), sheet);
    XMLNode const result = Sample().TransformNode(sheet);
    fuzz::Check(result, "a transformation gave nothing");
    result.GetXML();
}

std::string Selected(XMLDocument const & document, std::string const & path)
{
    std::string xml;
    for (XMLNode const & node : document.GetChildNodes(path.c_str(), false))
    {
        xml += node.GetXML().Utf8() + '|';
    }
    return xml;
}

void UseGrammar(std::string const & bytes)
{
    fuzz::Input input(reinterpret_cast<std::uint8_t const *>(bytes.data()), bytes.size());
    fuzz::XmlGrammar grammar(input);
    std::uint8_t const use = input.Byte();
    XMLDocument document = Parsed(grammar.Document());
    switch (use % 4)
    {
    case 0:
    {
        std::string const path = grammar.PlainPath();
        if (path.find(':') == std::string::npos) // for which the document declares prefixes, and nobody tells the paths
        {
            std::string const all = Selected(document, path);
            fuzz::Check(all == Selected(document, '(' + path + ")[true()]"), "two evaluators differ");
            XMLNode const first = document.GetChildNode(('(' + path + ')').c_str(), false);
            XMLNode const same = document.GetChildNode(path.c_str(), false);
            fuzz::Check(first.GetXML() == same.GetXML(), "two evaluators differ in the first node");
        }
        break;
    }
    case 1:
        Selected(document, grammar.Expression());
        break;
    case 2:
    {
        std::string const schema = grammar.Schema();
        document.ValidateSchema(schema.data(), static_cast<int>(schema.size()));
        break;
    }
    default:
    {
        XMLDocument const sheet = Parsed(grammar.StyleSheet());
        TransformToText(document, sheet);
        document.TransformNode(sheet).GetXML();
        break;
    }
    }
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
    constexpr void (*uses[])(std::string const &) = {ReadDocument, Select,           Validate,  Transform,
                                                     ReadFile,     AskForAttributes, UseGrammar};
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
