#include "Nodes.h"

#include <climits>
#include <cstring>

#include <libxml/xmlsave.h>

#include "AttributeIndex.h"
#include "Document.h"
#include "LibraryScope.h"

namespace kv::platform
{

IID const IID_NodeAccess = {0x5C2E4A11, 0x93D7, 0x4B60, {0x8E, 0x1F, 0x27, 0x6A, 0x0B, 0x9D, 0x44, 0xC3}};

namespace
{

char const * Chars(xmlChar const * text)
{
    return reinterpret_cast<char const *>(text);
}

std::string QualifiedName(xmlNode const * node)
{
    std::string const name = Chars(node->name);
    return node->ns == nullptr || node->ns->prefix == nullptr ? name : Chars(node->ns->prefix) + (':' + name);
}

/// An object for one node that is no document.
template <typename Interface>
class InnerNode : public NodeObject<Interface>
{
public:
    InnerNode(Document & newOwner, SharedTree newTree, xmlNode * newNode)
        : owner(&newOwner), tree(std::move(newTree)), node(newNode)
    {
    }

    xmlNode * Here() const final
    {
        return node;
    }
    SharedTree const & TreeOf() const final
    {
        return tree;
    }
    Document & Owner() final
    {
        return *owner.Get();
    }

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void ** object) final
    {
        if (object == nullptr)
        {
            return E_POINTER;
        }
        if (iid == IID_IUnknown || iid == IID_IDispatch || iid == IID_IXMLDOMNode || IsOwn(iid))
        {
            *object = static_cast<Interface *>(this);
        }
        else if (iid == IID_NodeAccess || iid == IID_ISupportErrorInfo)
        {
            *object = static_cast<NodeAccess *>(this);
        }
        else
        {
            *object = nullptr;
            return E_NOINTERFACE;
        }
        AddRef();
        return S_OK;
    }
    ULONG STDMETHODCALLTYPE AddRef() final
    {
        return ++references;
    }
    ULONG STDMETHODCALLTYPE Release() final
    {
        ULONG const left = --references;
        if (left == 0)
        {
            delete this;
        }
        return left;
    }

protected:
    virtual ~InnerNode() = default;

    virtual bool IsOwn(REFIID) const
    {
        return false;
    }

private:
    std::atomic<ULONG> references{1};
    Reference<Document> const owner;
    SharedTree const tree;
    xmlNode * const node;
};

class ElementNode final : public InnerNode<IXMLDOMElement>
{
public:
    using InnerNode::InnerNode;

    HRESULT STDMETHODCALLTYPE get_tagName(BSTR * name) override
    {
        return get_nodeName(name);
    }
    HRESULT STDMETHODCALLTYPE getAttribute(BSTR name, VARIANT * value) override
    {
        return Guarded([&] { return GiveAttribute(*TreeOf(), Here(), name, value); });
    }

private:
    bool IsOwn(REFIID iid) const override
    {
        return iid == IID_IXMLDOMElement;
    }

    HRESULT STDMETHODCALLTYPE slot_setAttribute() override
    {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE slot_removeAttribute() override
    {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE slot_getAttributeNode() override
    {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE slot_setAttributeNode() override
    {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE slot_removeAttributeNode() override
    {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE slot_getElementsByTagName() override
    {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE slot_normalize() override
    {
        return E_NOTIMPL;
    }
};

class OtherNode final : public InnerNode<IXMLDOMNode>
{
public:
    using InnerNode::InnerNode;
};

class NodeList final : public Counted<IXMLDOMNodeList>
{
public:
    NodeList(Document & newOwner, SharedTree newTree, std::vector<xmlNode *> newNodes)
        : owner(&newOwner), tree(std::move(newTree)), nodes(std::move(newNodes))
    {
    }

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void ** object) override
    {
        return Answer(iid, IID_IXMLDOMNodeList, object);
    }
    HRESULT STDMETHODCALLTYPE get_item(LONG index, IXMLDOMNode ** node) override
    {
        bool const there = index >= 0 && static_cast<std::size_t>(index) < nodes.size();
        return Guarded(
            [&]
            { return GiveNode(*owner.Get(), tree, there ? nodes[static_cast<std::size_t>(index)] : nullptr, node); });
    }
    HRESULT STDMETHODCALLTYPE get_length(LONG * length) override
    {
        if (length == nullptr)
        {
            return E_INVALIDARG;
        }
        *length = static_cast<LONG>(std::min<std::size_t>(nodes.size(), INT_MAX));
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE nextNode(IXMLDOMNode ** node) override
    {
        return Guarded(
            [&]
            {
                HRESULT const result = GiveNode(*owner.Get(), tree, next < nodes.size() ? nodes[next] : nullptr, node);
                next += result == S_OK ? 1 : 0;
                return result;
            });
    }
    HRESULT STDMETHODCALLTYPE reset() override
    {
        next = 0;
        return S_OK;
    }

private:
    HRESULT STDMETHODCALLTYPE slot_get__newEnum() override
    {
        return E_NOTIMPL;
    }

    Reference<Document> const owner;
    SharedTree const tree;
    std::vector<xmlNode *> const nodes;
    std::size_t next = 0;
};

} // namespace

Reference<NodeAccess> AccessTo(IUnknown * object)
{
    Reference<NodeAccess> access;
    if (object != nullptr && FAILED(object->QueryInterface(IID_NodeAccess, access.Receive())))
    {
        return {};
    }
    return access;
}

HRESULT GiveNode(Document & owner, SharedTree const & tree, xmlNode * node, IXMLDOMNode ** target)
{
    if (target == nullptr)
    {
        return E_INVALIDARG;
    }
    *target = nullptr;
    if (node == nullptr)
    {
        return S_FALSE;
    }
    if (node == owner.Here())
    {
        owner.AddRef();
        *target = &owner;
    }
    else if (node->type == XML_ELEMENT_NODE)
    {
        *target = new ElementNode(owner, tree, node);
    }
    else
    {
        *target = new OtherNode(owner, tree, node);
    }
    return S_OK;
}

HRESULT GiveElement(Document & owner, SharedTree const & tree, xmlNode * node, IXMLDOMElement ** target)
{
    if (target == nullptr)
    {
        return E_INVALIDARG;
    }
    *target = node == nullptr ? nullptr : new ElementNode(owner, tree, node);
    return node == nullptr ? S_FALSE : S_OK;
}

HRESULT GiveList(Document & owner, SharedTree const & tree, std::vector<xmlNode *> nodes, IXMLDOMNodeList ** target)
{
    if (target == nullptr)
    {
        return E_INVALIDARG;
    }
    *target = nullptr;
    *target = new NodeList(owner, tree, std::move(nodes));
    return S_OK;
}

HRESULT GiveDocument(Document & owner, IXMLDOMDocument ** target)
{
    if (target == nullptr)
    {
        return E_INVALIDARG;
    }
    owner.AddRef();
    *target = &owner;
    return S_OK;
}

DOMNodeType TypeOf(xmlNode const * node)
{
    if (node == nullptr || node->type == XML_HTML_DOCUMENT_NODE)
    {
        return NODE_DOCUMENT;
    }
    if (node->type == XML_DTD_NODE)
    {
        return NODE_DOCUMENT_TYPE;
    }
    return node->type >= XML_ELEMENT_NODE && node->type <= XML_NOTATION_NODE ? static_cast<DOMNodeType>(node->type)
                                                                             : NODE_INVALID;
}

HRESULT GiveName(xmlNode const * node, BSTR * name)
{
    switch (TypeOf(node))
    {
    case NODE_ELEMENT:
    case NODE_ATTRIBUTE:
        return GiveText(QualifiedName(node).c_str(), name);
    case NODE_TEXT:
        return GiveText("#text", name);
    case NODE_CDATA_SECTION:
        return GiveText("#cdata-section", name);
    case NODE_COMMENT:
        return GiveText("#comment", name);
    case NODE_DOCUMENT:
        return GiveText("#document", name);
    default:
        return GiveText(node->name == nullptr ? "" : Chars(node->name), name);
    }
}

HRESULT GiveTypeName(xmlNode const * node, BSTR * type)
{
    static constexpr char const * names[] = {
        "",
        "element",
        "attribute",
        "text",
        "cdatasection",
        "entityreference",
        "entity",
        "processinginstruction",
        "comment",
        "document",
        "documenttype",
        "documentfragment",
        "notation"};
    return GiveText(names[TypeOf(node)], type);
}

HRESULT GiveValue(xmlNode const * node, VARIANT * value)
{
    if (value == nullptr)
    {
        return E_INVALIDARG;
    }
    value->vt = VT_NULL;
    switch (TypeOf(node))
    {
    case NODE_ATTRIBUTE:
    case NODE_TEXT:
    case NODE_CDATA_SECTION:
    case NODE_COMMENT:
    case NODE_PROCESSING_INSTRUCTION:
    {
        HRESULT const result = GiveContent(node, &value->bstrVal);
        value->vt = VT_BSTR;
        return result;
    }
    default:
        return S_FALSE;
    }
}

namespace
{

std::string TextsIn(xmlNode const * root)
{
    std::string text;
    for (xmlNode const * node = root; node != nullptr; node = NextWithin(node, root))
    {
        bool const counts = node->type == XML_TEXT_NODE || node->type == XML_CDATA_SECTION_NODE;
        text += counts && node->content != nullptr ? Chars(node->content) : "";
    }
    return text;
}

} // namespace

HRESULT GiveContent(xmlNode const * node, BSTR * text)
{
    switch (TypeOf(node))
    {
    case NODE_ELEMENT:
    case NODE_DOCUMENT:
        return node == nullptr ? GiveText("", text) : GiveText(TextsIn(node), text);
    case NODE_ATTRIBUTE:
        node = node->children;
        break;
    case NODE_DOCUMENT_TYPE:
        node = nullptr;
        break;
    default:
        break;
    }
    return GiveText(node == nullptr || node->content == nullptr ? "" : Chars(node->content), text);
}

HRESULT GiveAttribute(Tree const & tree, xmlNode const * element, BSTR name, VARIANT * value)
{
    if (value == nullptr || name == nullptr)
    {
        return E_INVALIDARG;
    }
    value->vt = VT_NULL;
    AttributeIndex::Found const found = tree.attributes->Find(*element, Utf8Of(name));
    if (!found)
    {
        return S_FALSE;
    }
    HRESULT const result = found.uri != nullptr
        ? GiveText(Chars(found.uri), &value->bstrVal)
        : GiveContent(reinterpret_cast<xmlNode const *>(found.attribute), &value->bstrVal);
    value->vt = VT_BSTR;
    return result;
}

xmlNode * FirstChild(xmlNode const * node)
{
    switch (TypeOf(node))
    {
    case NODE_ELEMENT:
    case NODE_DOCUMENT:
    case NODE_ATTRIBUTE:
        return node == nullptr ? nullptr : node->children;
    default:
        return nullptr;
    }
}

xmlNode * ParentOf(xmlNode const * node)
{
    return TypeOf(node) == NODE_DOCUMENT || TypeOf(node) == NODE_ATTRIBUTE ? nullptr : node->parent;
}

namespace
{

int AppendTo(void * target, char const * bytes, int size) noexcept
{
    return SUCCEEDED(Guarded(
               [&]
               {
                   static_cast<std::string *>(target)->append(bytes, static_cast<std::size_t>(size));
                   return S_OK;
               }))
        ? size
        : -1;
}

/// The document type as it was written, but for the line ends.
std::string TypeDeclaration(Tree const & tree, xmlDtd const & type)
{
    std::string text = std::string("<!DOCTYPE ") + Chars(type.name);
    auto const quoted = [](xmlChar const * id)
    {
        char const quote = xmlStrchr(id, '"') == nullptr ? '"' : '\'';
        return quote + std::string(Chars(id)) + quote;
    };
    text += type.ExternalID != nullptr ? " PUBLIC " + quoted(type.ExternalID)
        : type.SystemID != nullptr     ? " SYSTEM"
                                       : "";
    text += type.SystemID != nullptr ? ' ' + quoted(type.SystemID) : "";
    return text + (tree.declarations.empty() ? "" : ' ' + tree.declarations) + '>';
}

void Append(Tree const & tree, xmlNode * node, std::string & text)
{
    if (node->type == XML_DTD_NODE)
    {
        text += TypeDeclaration(tree, *reinterpret_cast<xmlDtd const *>(node));
        return;
    }
    xmlSaveCtxt * const context = xmlSaveToIO(AppendTo, nullptr, &text, "UTF-8", XML_SAVE_NO_DECL | XML_SAVE_AS_XML);
    if (context == nullptr)
    {
        throw std::bad_alloc();
    }
    long const saved = xmlSaveTree(context, node);
    if (xmlSaveClose(context) < 0 || saved < 0)
    {
        throw std::bad_alloc();
    }
}

std::string Serialized(Tree const & tree, xmlNode * node)
{
    std::string text;
    if (TypeOf(node) != NODE_DOCUMENT)
    {
        Append(tree, node, text);
        return text;
    }
    for (xmlNode * child = node->children; child != nullptr; child = child->next)
    {
        Append(tree, child, text);
        text += '\n';
    }
    return text;
}

/// An element taken out of its document needs the declarations that stand above it, or it is no XML by itself.
std::string SerializedAlone(Tree const & tree, xmlNode * node)
{
    Declarations above = node->type == XML_ELEMENT_NODE ? UsedFromAbove(*node) : Declarations();
    if (above.empty())
    {
        return Serialized(tree, node);
    }
    Tree const copy(CopyNode(*node, std::move(above)), false);
    return Serialized(copy, xmlDocGetRootElement(copy.document));
}

std::string WithWideLineEnds(std::string const & text)
{
    std::string wide;
    wide.reserve(text.size() + text.size() / 32);
    std::size_t at = 0;
    for (std::size_t end; (end = text.find('\n', at)) != std::string::npos; at = end + 1)
    {
        wide.append(text, at, end - at).append("\r\n");
    }
    return wide.append(text, at);
}

} // namespace

HRESULT GiveXml(SharedTree const & tree, xmlNode * node, BSTR * xml)
{
    if (xml == nullptr)
    {
        return E_INVALIDARG;
    }
    *xml = nullptr;
    LibraryScope const scope(false);
    std::string text;
    if (TypeOf(node) == NODE_DOCUMENT)
    {
        constexpr int noDeclaration = -1; // -2 is one that does not say
        if (node != nullptr && tree->document->standalone != noDeclaration)
        {
            text = tree->document->standalone == 1 ? "<?xml version=\"1.0\" standalone=\"yes\"?>\n"
                                                   : "<?xml version=\"1.0\"?>\n";
        }
        text += node == nullptr ? std::string() : Serialized(*tree, node);
    }
    else
    {
        text = SerializedAlone(*tree, node);
    }
    *xml = NewText(WithWideLineEnds(text));
    return S_OK;
}

} // namespace kv::platform
