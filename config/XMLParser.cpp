#include <kvcore/config/XMLParser.h>

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <string>
#include <utility>

#include <kvcore/config/BytesStream.h>
#include <kvcore/config/ComCalls.h>
#include <kvcore/platform/xmldom.h>

using namespace kv::detail;

namespace
{

constexpr GUID documentClass = {0x88D969C0, 0xF192, 0x11D4, {0xA6, 0x5F, 0x00, 0x40, 0x96, 0x32, 0x51, 0xE5}};
constexpr GUID schemaCacheClass = {0x88D969C2, 0xF192, 0x11D4, {0xA6, 0x5F, 0x00, 0x40, 0x96, 0x32, 0x51, 0xE5}};
constexpr GUID document2Interface = {0x2933BF95, 0x7B36, 0x11D2, {0xB2, 0x0E, 0x00, 0xC0, 0x4F, 0x98, 0x3E, 0x60}};
constexpr GUID elementInterface = {0x2933BF86, 0x7B36, 0x11D2, {0xB2, 0x0E, 0x00, 0xC0, 0x4F, 0x98, 0x3E, 0x60}};
constexpr GUID schemasInterface = {0x373984C8, 0xB845, 0x449B, {0x91, 0xE7, 0x45, 0xAC, 0x83, 0x03, 0x6A, 0xDE}};

constexpr DWORD serverContext =
    CLSCTX_INPROC_SERVER | CLSCTX_INPROC_HANDLER | CLSCTX_LOCAL_SERVER | CLSCTX_REMOTE_SERVER;
static_assert(serverContext == 0x17);

enum : int
{
    internalFailure = 0,
    notInstalled = 1,
    wrongDocument = 2,
    failedTransformation = 4
};

using DocumentPointer = ComPointer<IXMLDOMDocument2>;

// Runs a public operation: what the component's calls report leaves it as the one type of exception.
template <typename Operation>
auto WithReports(Operation operation) -> decltype(operation())
{
    try
    {
        return operation();
    }
    catch (ComFailure const & failure)
    {
        throw XMLParser::Exception{internalFailure, failure.Report()};
    }
}

DocumentPointer CreateDocument(bool resolveExternals)
{
    ComPointer<IUnknown> object;
    DocumentPointer document;
    if (FAILED(CoCreateInstance(documentClass, nullptr, serverContext, IID_IUnknown, object.ReceiveVoid())) ||
        FAILED(OleRun(object.Get())) || FAILED(object->QueryInterface(document2Interface, document.ReceiveVoid())) ||
        !document)
    {
        throw XMLParser::Exception{notInstalled, TEXT("MSXML4 parser not installed")};
    }
    VARIANT newParser;
    VariantInit(&newParser);
    newParser.vt = VT_BOOL;
    newParser.boolVal = VARIANT_TRUE;
    Check(document, document->setProperty(BStr(TEXT("NewParser")), newParser));
    Check(document, document->put_async(VARIANT_FALSE));
    Check(document, document->put_resolveExternals(resolveExternals ? VARIANT_TRUE : VARIANT_FALSE));
    Check(document, document->put_validateOnParse(VARIANT_FALSE));
    Check(document, document->put_preserveWhiteSpace(VARIANT_TRUE));
    return document;
}

// Some builds of the component know no addresses and no lines, and say so by a failure: the report goes without.
bool IsKnown(ComPointer<IXMLDOMParseError> const & error, HRESULT result)
{
    if (result == E_NOTIMPL)
    {
        return false;
    }
    Check(error, result);
    return true;
}

String ParseReport(ComPointer<IXMLDOMParseError> const & error)
{
    BStr reason;
    Check(error, error->get_reason(reason.Receive()));
    String report = reason.Text();
    BStr url;
    if (IsKnown(error, error->get_url(url.Receive())) && !url.Text().empty())
    {
        report += String::FromFormat(TEXT("File: %s\n"), url.Text().c_str());
    }
    LONG line = 0;
    LONG position = 0;
    if (IsKnown(error, error->get_line(&line)) && line != 0 && IsKnown(error, error->get_linepos(&position)))
    {
        report += String::FromFormat(TEXT("Line/Pos: %d/%d\n"), static_cast<int>(line), static_cast<int>(position));
    }
    return report;
}

ComPointer<IXMLDOMParseError> ParseErrorOf(DocumentPointer const & document)
{
    ComPointer<IXMLDOMParseError> error;
    Check(document, document->get_parseError(error.Receive()));
    return error;
}

LONG ErrorCodeOf(ComPointer<IXMLDOMParseError> const & error)
{
    // The result tells the same as the code, and S_FALSE for none.
    LONG code = 0;
    Check(error, error->get_errorCode(&code));
    return code;
}

void WriteBytes(DocumentPointer & document, char const * data, std::size_t length)
{
    ComPointer<IStream> stream;
    HRESULT const result = document->QueryInterface(IID_IStream, stream.ReceiveVoid());
    if (FAILED(result) && result != E_NOINTERFACE)
    {
        throw ComFailure(result);
    }
    if (!stream)
    {
        // Some builds of the component read a stream but are none themselves.
        if (!LoadFromBytes(*document.Get(), data, length))
        {
            throw XMLParser::Exception{internalFailure, TEXT("MSXML4: No IStream interface")};
        }
        return;
    }
    ULONG written = 0;
    ULONG const size = static_cast<ULONG>(length);
    if (FAILED(stream->Write(data, size, &written)) || written != size)
    {
        throw XMLParser::Exception{internalFailure, TEXT("MSXML4: IStream::Write() failed")};
    }
    // The stream's release, here, makes the document parse what was written.
}

enum class Content
{
    UserData,
    Schema
};

DocumentPointer ParseBytes(char const * data, int length, Content content)
{
    DocumentPointer document = CreateDocument(content == Content::Schema);
    std::size_t const size = length < 0 ? std::strlen(data) : static_cast<std::size_t>(length);
    if (size > 0x7FFFFFFF)
    {
        throw XMLParser::Exception{internalFailure, TEXT("MSXML4: IStream::Write() failed")};
    }
    WriteBytes(document, data, size);
    ComPointer<IXMLDOMParseError> const error = ParseErrorOf(document);
    if (ErrorCodeOf(error) != 0)
    {
        if (content == Content::Schema)
        {
            throw XMLParser::Exception{internalFailure, TEXT("Internal XML schema invalid")};
        }
        throw XMLParser::Exception{wrongDocument, ParseReport(error)};
    }
    return document;
}

ComPointer<IXMLDOMSchemaCollection> CreateSchemaCache()
{
    ComPointer<IXMLDOMSchemaCollection> cache;
    if (FAILED(CoCreateInstance(schemaCacheClass, nullptr, serverContext, schemasInterface, cache.ReceiveVoid())) ||
        !cache)
    {
        throw XMLParser::Exception{internalFailure, TEXT("MSXML4: No XMLSchemaCache40")};
    }
    return cache;
}

VARIANT ObjectValue(IDispatch * object)
{
    VARIANT value;
    VariantInit(&value);
    value.vt = VT_DISPATCH;
    value.pdispVal = object;
    return value;
}

// The name in a message about what is missing. An empty node has none to tell: its caller meets a null pointer.
String NameInMessage(IXMLDOMNode * node)
{
    if (node == nullptr)
    {
        throw ComFailure(E_POINTER);
    }
    BStr name;
    Check(node, node->get_nodeName(name.Receive()));
    return name.Text();
}

[[noreturn]] void ThrowMissing(WCHAR const * format, WCHAR const * what, IXMLDOMNode * node)
{
    String const name = NameInMessage(node);
    throw XMLParser::Exception{wrongDocument, String::FromFormat(format, what, name.c_str())};
}

DOMNodeType TypeOf(IXMLDOMNode * node)
{
    DOMNodeType type = NODE_INVALID;
    Check(node, node->get_nodeType(&type));
    return type;
}

// Kept: callers ask for elements and texts, and rely on everything else being left out.
bool Counts(IXMLDOMNode * node)
{
    switch (TypeOf(node))
    {
    case NODE_ELEMENT:
    case NODE_TEXT:
    case NODE_CDATA_SECTION:
    case NODE_DOCUMENT:
        return true;
    default:
        return false;
    }
}

using TextProperty = HRESULT (STDMETHODCALLTYPE IXMLDOMNode::*)(BSTR *);

String TextOf(IXMLDOMNode * node, TextProperty property)
{
    if (node == nullptr)
    {
        return String();
    }
    return WithReports(
        [&]
        {
            BStr text;
            Check(node, (node->*property)(text.Receive()));
            return String(text.Text());
        });
}

} // namespace

XMLDocument XMLParser::ParseFile(WCHAR const * path)
{
    return WithReports(
        [&]
        {
            DocumentPointer document = CreateDocument(false);
            BStr const name(path);
            VARIANT source;
            VariantInit(&source);
            source.vt = VT_BSTR;
            source.bstrVal = name;
            VARIANT_BOOL loaded = VARIANT_FALSE;
            Check(document, document->load(source, &loaded));
            if (loaded == VARIANT_FALSE)
            {
                throw Exception{wrongDocument, ParseReport(ParseErrorOf(document))};
            }
            return XMLDocument(document.Get());
        });
}

XMLDocument XMLParser::ParseData(char const * data, int length)
{
    return WithReports([&] { return XMLDocument(ParseBytes(data, length, Content::UserData).Get()); });
}

XMLNode::XMLNode() : node(nullptr) {}

XMLNode::XMLNode(IXMLDOMNode * newNode) : node(newNode)
{
    if (node != nullptr)
    {
        node->AddRef();
    }
}

XMLNode::XMLNode(XMLNode const & other) : XMLNode(other.node) {}

XMLNode & XMLNode::operator=(XMLNode const & other)
{
    XMLNode copy(other);
    std::swap(node, copy.node);
    return *this;
}

XMLNode::~XMLNode()
{
    if (node != nullptr)
    {
        node->Release();
    }
}

XMLNode::operator bool() const
{
    return node != nullptr;
}

XMLNode::NodeType XMLNode::GetType() const
{
    if (node == nullptr)
    {
        return NodeType(0);
    }
    return WithReports([&] { return static_cast<NodeType>(TypeOf(node)); });
}

String XMLNode::GetName() const
{
    return TextOf(node, &IXMLDOMNode::get_nodeName);
}

String XMLNode::GetText() const
{
    return TextOf(node, &IXMLDOMNode::get_text);
}

String XMLNode::GetXML() const
{
    return TextOf(node, &IXMLDOMNode::get_xml);
}

XMLNode XMLNode::GetParentNode() const
{
    if (node == nullptr)
    {
        return XMLNode();
    }
    return WithReports(
        [&]
        {
            ComPointer<IXMLDOMNode> parent;
            Check(node, node->get_parentNode(parent.Receive()));
            return XMLNode(parent.Get());
        });
}

XMLNode XMLNode::GetDocumentNode() const
{
    if (node == nullptr)
    {
        return XMLNode();
    }
    return WithReports(
        [&]
        {
            ComPointer<IXMLDOMDocument> document;
            Check(node, node->get_ownerDocument(document.Receive()));
            return XMLNode(document.Get());
        });
}

XMLNode XMLNode::GetChildNode(WCHAR const * path, bool required) const
{
    return WithReports(
        [&]
        {
            ComPointer<IXMLDOMNode> result;
            if (node != nullptr)
            {
                Check(node, node->selectSingleNode(BStr(path), result.Receive()));
            }
            if (result && Counts(result.Get()))
            {
                return XMLNode(result.Get());
            }
            if (required)
            {
                ThrowMissing(TEXT("element '%s' missing under <%s>"), path, node);
            }
            return XMLNode();
        });
}

XMLNode XMLNode::GetChildNode(char const * path, bool required) const
{
    return GetChildNode(String::FromUtf8(path).c_str(), required);
}

std::vector<XMLNode> XMLNode::GetChildNodes(WCHAR const * path, bool required) const
{
    return WithReports(
        [&]
        {
            std::vector<XMLNode> nodes;
            ComPointer<IXMLDOMNodeList> list;
            if (node != nullptr)
            {
                Check(node, node->selectNodes(BStr(path), list.Receive()));
            }
            while (list)
            {
                ComPointer<IXMLDOMNode> next;
                Check(list, list->nextNode(next.Receive()));
                if (!next)
                {
                    break;
                }
                if (Counts(next.Get()))
                {
                    nodes.emplace_back(next.Get());
                }
            }
            if (required && nodes.empty())
            {
                ThrowMissing(TEXT("element <%s> missing under <%s>"), path, node);
            }
            return nodes;
        });
}

std::vector<XMLNode> XMLNode::GetChildNodes(char const * path, bool required) const
{
    return GetChildNodes(String::FromUtf8(path).c_str(), required);
}

bool XMLNode::GetAttribute(WCHAR const * name, String & value, bool required) const
{
    return WithReports(
        [&]
        {
            bool found = false;
            ComPointer<IXMLDOMElement> element;
            if (node != nullptr && SUCCEEDED(node->QueryInterface(elementInterface, element.ReceiveVoid())))
            {
                Variant attribute;
                Check(element, element->getAttribute(BStr(name), attribute.Receive()));
                if (!attribute.IsNull())
                {
                    value = attribute.Text();
                    found = true;
                }
            }
            // Kept: who requires an attribute wants something in it.
            if (required && (!found || value.empty()))
            {
                ThrowMissing(TEXT("attribute '%s' missing for <%s>"), name, node);
            }
            return found;
        });
}

bool XMLNode::GetAttribute(char const * name, String & value, bool required) const
{
    return GetAttribute(String::FromUtf8(name).c_str(), value, required);
}

bool XMLNode::HasAttribute(WCHAR const * name) const
{
    String value;
    return GetAttribute(name, value, false);
}

bool XMLNode::HasAttribute(char const * name) const
{
    return HasAttribute(String::FromUtf8(name).c_str());
}

XMLNode XMLNode::TransformNode(XMLNode const & stylesheet) const
{
    if (node == nullptr || stylesheet.node == nullptr)
    {
        return XMLNode();
    }
    return WithReports(
        [&]
        {
            DocumentPointer const output = CreateDocument(false);
            if (FAILED(node->transformNodeToObject(stylesheet.node, ObjectValue(output.Get()))))
            {
                throw XMLParser::Exception{failedTransformation, TEXT("Transformation failed")};
            }
            return XMLNode(output.Get());
        });
}

XMLDocument::XMLDocument() = default;

XMLDocument::XMLDocument(IXMLDOMNode * document) : XMLNode(document) {}

XMLDocument::~XMLDocument() = default;

void XMLDocument::ValidateSchema(char const * schema, int length)
{
    WithReports(
        [&]
        {
            DocumentPointer document;
            if (node == nullptr || FAILED(node->QueryInterface(document2Interface, document.ReceiveVoid())))
            {
                return;
            }
            DocumentPointer const schemaDocument = ParseBytes(schema, length, Content::Schema);
            ComPointer<IXMLDOMSchemaCollection> const cache = CreateSchemaCache();
            Check(cache, cache->add(BStr(TEXT("")), ObjectValue(schemaDocument.Get())));
            Check(document, document->putref_schemas(ObjectValue(cache.Get())));
            ComPointer<IXMLDOMParseError> error;
            Check(document, document->validate(error.Receive()));
            if (ErrorCodeOf(error) != 0)
            {
                throw XMLParser::Exception{wrongDocument, ParseReport(error)};
            }
        });
}
