#include <kvcore/tools/kv/XmlText.h>

#include <algorithm>
#include <climits>
#include <cstdio>
#include <iterator>
#include <memory>

#include <kvcore/config/XMLWriter.h>
#include <kvcore/platform/xmldom.h>
#include <kvcore/streams/MemoryStreams.h>

namespace kv::tools
{

namespace
{

constexpr CLSID schemaCacheClass = {0x88D969C2, 0xF192, 0x11D4, {0xA6, 0x5F, 0x00, 0x40, 0x96, 0x32, 0x51, 0xE5}};
constexpr IID document2Interface = {0x2933BF95, 0x7B36, 0x11D2, {0xB2, 0x0E, 0x00, 0xC0, 0x4F, 0x98, 0x3E, 0x60}};
constexpr IID schemasInterface = {0x373984C8, 0xB845, 0x449B, {0x91, 0xE7, 0x45, 0xAC, 0x83, 0x03, 0x6A, 0xDE}};

struct Releasing
{
    void operator()(IUnknown * object) const
    {
        object->Release();
    }
};
template <typename Interface>
using Reference = std::unique_ptr<Interface, Releasing>;

/// A text for or from the component.
class OwnedText
{
public:
    OwnedText() = default;
    explicit OwnedText(std::string const & utf8)
    {
        String const source = String::FromUtf8(utf8);
        text = SysAllocStringLen(source.data(), static_cast<UINT>(source.size()));
        if (text == nullptr)
        {
            throw std::bad_alloc();
        }
    }
    OwnedText(OwnedText const &) = delete;
    OwnedText & operator=(OwnedText const &) = delete;
    ~OwnedText()
    {
        SysFreeString(text);
    }

    BSTR Get() const
    {
        return text;
    }
    BSTR * Receive()
    {
        return &text;
    }
    /// With line feeds for line ends, which the component gives as pairs.
    std::string Utf8() const
    {
        std::string utf8 = text == nullptr ? std::string() : String(text, SysStringLen(text)).Utf8();
        for (std::size_t at = 0; (at = utf8.find("\r\n", at)) != std::string::npos; ++at)
        {
            utf8.erase(at, 1);
        }
        return utf8;
    }
    VARIANT Value() const
    {
        VARIANT value;
        VariantInit(&value);
        value.vt = VT_BSTR;
        value.bstrVal = text;
        return value;
    }

private:
    BSTR text = nullptr;
};

std::string OneLine(std::string text)
{
    for (char & c : text)
    {
        c = c == '\n' || c == '\r' || c == '\t' ? ' ' : c;
    }
    std::size_t const end = text.find_last_not_of(' ');
    return text.substr(0, end + 1);
}

/// What the component has told about the call that failed.
XmlProblem LastProblem(char const * otherwise)
{
    IErrorInfo * told = nullptr;
    OwnedText text;
    if (GetErrorInfo(0, &told) == S_OK && told != nullptr)
    {
        Reference<IErrorInfo> const owned(told);
        told->GetDescription(text.Receive());
    }
    std::string const reason = OneLine(text.Utf8());
    return {reason.empty() ? otherwise : reason, 0, 0};
}

void Require(HRESULT result, char const * otherwise)
{
    if (FAILED(result))
    {
        throw LastProblem(otherwise);
    }
}

/// The parts of the library's report: the reason, and a line "Line/Pos: 1/2" if they are known.
XmlProblem ProblemOf(XMLParser::Exception const & failure)
{
    std::string const report = failure.message.Utf8();
    std::size_t const place = report.rfind("Line/Pos: ");
    XmlProblem problem{OneLine(report.substr(0, place)), 0, 0};
    if (place != std::string::npos)
    {
        std::sscanf(report.c_str() + place, "Line/Pos: %d/%d", &problem.line, &problem.column);
    }
    if (problem.reason.empty())
    {
        problem.reason = "it is not well-formed";
    }
    return problem;
}

XMLDocument Parsed(std::string const & bytes)
{
    if (bytes.size() > INT_MAX)
    {
        throw XmlProblem{"it is longer than 2 GiB", 0, 0};
    }
    try
    {
        return XMLParser::ParseData(bytes.data(), static_cast<int>(bytes.size()));
    }
    catch (XMLParser::Exception const & failure)
    {
        throw ProblemOf(failure);
    }
}

/// The declarations of namespaces in a start tag: what a path's prefixes most likely mean.
XmlText::Prefixes Declarations(std::string const & startTag)
{
    XmlText::Prefixes found;
    for (std::size_t at = 0; (at = startTag.find("xmlns:", at)) != std::string::npos;)
    {
        std::size_t const sign = startTag.find('=', at);
        std::size_t const end = sign == std::string::npos ? sign : startTag.find(startTag[sign + 1], sign + 2);
        if (end == std::string::npos)
        {
            break;
        }
        found.emplace_back(startTag.substr(at + 6, sign - at - 6), startTag.substr(sign + 2, end - sign - 2));
        at = end;
    }
    return found;
}

/// Documents name an encoding for bytes that are not theirs any more.
std::string WithUtf8Declared(std::string text)
{
    std::size_t const end = text.compare(0, 5, "<?xml") == 0 ? text.find("?>") : std::string::npos;
    std::size_t const name = text.find("encoding=");
    if (end != std::string::npos && name < end)
    {
        std::size_t const closing = text.find(text[name + 9], name + 10);
        text.replace(name + 10, closing - name - 10, "UTF-8");
    }
    return text;
}

} // namespace

XmlText::XmlText(std::string const & bytes) : XMLDocument(Parsed(bytes)) {}

void XmlText::UsePrefixes(Prefixes given)
{
    std::string const xml = GetChildNode("*", true).GetXML().Utf8();
    Prefixes const declared = Declarations(xml.substr(0, xml.find('>')));
    std::string setting;
    prefixes = std::move(given);
    prefixes.insert(prefixes.end(), declared.begin(), declared.end());
    Prefixes used;
    for (auto const & [prefix, uri] : prefixes)
    {
        bool const known = setting.find("xmlns:" + prefix + '=') != std::string::npos;
        if (!known && uri.find_first_of("'<") == std::string::npos)
        {
            setting += (setting.empty() ? "xmlns:" : " xmlns:") + prefix + "='" + uri + '\'';
            used.emplace_back(prefix, uri);
        }
    }
    prefixes = used;
    void * object = nullptr;
    Require(node->QueryInterface(document2Interface, &object), "the component takes no prefixes");
    Reference<IXMLDOMDocument2> const document(static_cast<IXMLDOMDocument2 *>(object));
    OwnedText const value(setting);
    Require(
        document->setProperty(OwnedText("SelectionNamespaces").Get(), value.Value()),
        "a prefix or its namespace cannot be used");
}

std::vector<XmlText::Found> XmlText::Select(std::string const & path) const
{
    IXMLDOMNodeList * list = nullptr;
    if (FAILED(node->selectNodes(OwnedText(path).Get(), &list)) || list == nullptr)
    {
        XmlProblem const problem = LastProblem("it is no XPath expression");
        try
        {
            std::string const value = Value(path);
            return {{value, value}};
        }
        catch (XmlProblem const &)
        {
            throw problem;
        }
    }
    Reference<IXMLDOMNodeList> const owned(list);
    std::vector<Found> found;
    for (;;)
    {
        IXMLDOMNode * next = nullptr;
        Require(list->nextNode(&next), "the component cannot list what it found");
        if (next == nullptr)
        {
            return found;
        }
        Reference<IXMLDOMNode> const each(next);
        OwnedText text;
        OwnedText xml;
        Require(next->get_text(text.Receive()), "the component cannot tell a text");
        Require(next->get_xml(xml.Receive()), "the component cannot tell a node");
        std::string const whole = xml.Utf8();
        found.push_back({text.Utf8(), whole.substr(std::min(whole.size(), whole.find_first_not_of(' ')))});
    }
}

// The component selects nodes alone; a style sheet can have any value.
std::string XmlText::Value(std::string const & path) const
{
    MemoryOutputStream styleSheet;
    XMLWriter writer(styleSheet, false);
    writer.WriteStartElement("xsl:stylesheet").WriteAttribute("version", TEXT("1.0"));
    writer.WriteAttribute("xmlns:xsl", TEXT("http://www.w3.org/1999/XSL/Transform"));
    for (auto const & [prefix, uri] : prefixes)
    {
        if (prefix != "xsl")
        {
            writer.WriteAttribute(("xmlns:" + prefix).c_str(), String::FromUtf8(uri));
        }
    }
    writer.WriteStartElement("xsl:template").WriteAttribute("match", TEXT("/")).WriteStartElement("value");
    writer.WriteEmptyElement("xsl:value-of").WriteAttribute("select", String::FromUtf8(path));
    writer.WriteEndElement().WriteEndElement().WriteEndElement();
    try
    {
        return TransformNode(XmlText(styleSheet.GetContent())).GetChildNode("value", true).GetText().Utf8();
    }
    catch (XMLParser::Exception const & failure)
    {
        throw ProblemOf(failure);
    }
}

void XmlText::Validate(XmlText const & schema) const
{
    void * object = nullptr;
    if (FAILED(CoCreateInstance(schemaCacheClass, nullptr, CLSCTX_INPROC_SERVER, schemasInterface, &object)))
    {
        throw WrongSchema{{"the component knows no schemas", 0, 0}};
    }
    Reference<IXMLDOMSchemaCollection> const cache(static_cast<IXMLDOMSchemaCollection *>(object));
    VARIANT value;
    VariantInit(&value);
    value.vt = VT_DISPATCH;
    value.pdispVal = schema.node;
    if (FAILED(cache->add(OwnedText(TargetNamespace(schema)).Get(), value)))
    {
        throw WrongSchema{LastProblem("it is no schema")};
    }
    Require(node->QueryInterface(document2Interface, &object), "the component knows no schemas");
    Reference<IXMLDOMDocument2> const document(static_cast<IXMLDOMDocument2 *>(object));
    value.pdispVal = cache.get();
    Require(document->putref_schemas(value), "the component takes no schemas");
    IXMLDOMParseError * told = nullptr;
    Require(document->validate(&told), "the document cannot be validated");
    Reference<IXMLDOMParseError> const error(told);
    LONG code = 0;
    if (error && error->get_errorCode(&code) == S_OK && code != 0)
    {
        // What the component does not know it does not tell.
        OwnedText reason;
        LONG line = 0;
        LONG column = 0;
        error->get_reason(reason.Receive());
        error->get_line(&line);
        error->get_linepos(&column);
        std::string const text = OneLine(reason.Utf8());
        throw XmlProblem{
            text.empty() ? "it does not follow the schema" : text, static_cast<int>(line), static_cast<int>(column)};
    }
}

std::string XmlText::Transform(XmlText const & styleSheet) const
{
    OwnedText result;
    Require(node->transformNode(styleSheet.node, result.Receive()), "the transformation failed");
    return WithUtf8Declared(result.Utf8());
}

std::string TargetNamespace(XmlText const & schema)
{
    String name;
    schema.GetChildNode("*", true).GetAttribute("targetNamespace", name, false);
    return name.Utf8();
}

} // namespace kv::tools
