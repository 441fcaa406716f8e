#pragma once

// The objects that stand for nodes.

#include <string>
#include <vector>

#include "Loading.h"
#include "Objects.h"

namespace kv::platform
{

class Document;

/// What the other objects here ask a node for, behind its published interfaces.
struct NodeAccess : ISupportErrorInfo
{
    /// The node that it stands for; null for a document that holds nothing.
    virtual xmlNode * Here() const = 0;
    virtual SharedTree const & TreeOf() const = 0;
    /// The document that it is of, itself for a document.
    virtual Document & Owner() = 0;
};
extern IID const IID_NodeAccess;

/// The node behind an object of anybody's: null if it is none of these here.
Reference<NodeAccess> AccessTo(IUnknown * object);

/// Stores an object for `node` at `target`: S_OK, or S_FALSE and null for no node.
HRESULT GiveNode(Document & owner, SharedTree const & tree, xmlNode * node, IXMLDOMNode ** target);
HRESULT GiveElement(Document & owner, SharedTree const & tree, xmlNode * node, IXMLDOMElement ** target);
/// Stores a list of them.
HRESULT GiveList(Document & owner, SharedTree const & tree, std::vector<xmlNode *> nodes, IXMLDOMNodeList ** target);
/// Stores the document object.
HRESULT GiveDocument(Document & owner, IXMLDOMDocument ** target);

/// The parts of a node's interface that do not depend on which of the interfaces it is. `node` is null for a document
/// that holds nothing.
DOMNodeType TypeOf(xmlNode const * node);
HRESULT GiveName(xmlNode const * node, BSTR * name);
HRESULT GiveTypeName(xmlNode const * node, BSTR * type);
HRESULT GiveValue(xmlNode const * node, VARIANT * value);
HRESULT GiveContent(xmlNode const * node, BSTR * text);
HRESULT GiveXml(SharedTree const & tree, xmlNode * node, BSTR * xml);
HRESULT GiveAttribute(Tree const & tree, xmlNode const * element, BSTR name, VARIANT * value);
xmlNode * FirstChild(xmlNode const * node);
xmlNode * ParentOf(xmlNode const * node);

/// XPath, in Selecting.cpp.
HRESULT Select(NodeAccess & from, BSTR expression, IXMLDOMNodeList ** result);
HRESULT SelectFirst(NodeAccess & from, BSTR expression, IXMLDOMNode ** result);

/// XSLT, in Transforming.cpp.
HRESULT Transform(NodeAccess & source, IXMLDOMNode * stylesheet, BSTR * result);
HRESULT Transform(NodeAccess & source, IXMLDOMNode * stylesheet, VARIANT const & output);

/// The members of a node's interface, for each of the interfaces that add to it.
template <typename Interface>
class NodeObject : public Dispatched<Interface>, public NodeAccess
{
public:
    HRESULT STDMETHODCALLTYPE InterfaceSupportsErrorInfo(REFIID) final
    {
        return S_OK;
    }

    HRESULT STDMETHODCALLTYPE get_nodeName(BSTR * name) final
    {
        return Guarded([&] { return GiveName(Here(), name); });
    }
    HRESULT STDMETHODCALLTYPE get_nodeValue(VARIANT * value) final
    {
        return Guarded([&] { return GiveValue(Here(), value); });
    }
    HRESULT STDMETHODCALLTYPE get_nodeType(DOMNodeType * type) final
    {
        if (type == nullptr)
        {
            return E_INVALIDARG;
        }
        *type = TypeOf(Here());
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE get_parentNode(IXMLDOMNode ** parent) final
    {
        return Give(ParentOf(Here()), parent);
    }
    HRESULT STDMETHODCALLTYPE get_childNodes(IXMLDOMNodeList ** children) final
    {
        return Guarded(
            [&]
            {
                std::vector<xmlNode *> nodes;
                for (xmlNode * child = FirstChild(Here()); child != nullptr; child = child->next)
                {
                    nodes.push_back(child);
                }
                return GiveList(Owner(), TreeOf(), std::move(nodes), children);
            });
    }
    HRESULT STDMETHODCALLTYPE get_firstChild(IXMLDOMNode ** child) final
    {
        return Give(FirstChild(Here()), child);
    }
    HRESULT STDMETHODCALLTYPE get_lastChild(IXMLDOMNode ** child) final
    {
        return Give(FirstChild(Here()) == nullptr ? nullptr : Here()->last, child);
    }
    HRESULT STDMETHODCALLTYPE get_previousSibling(IXMLDOMNode ** sibling) final
    {
        return Give(HasSiblings() ? Here()->prev : nullptr, sibling);
    }
    HRESULT STDMETHODCALLTYPE get_nextSibling(IXMLDOMNode ** sibling) final
    {
        return Give(HasSiblings() ? Here()->next : nullptr, sibling);
    }
    HRESULT STDMETHODCALLTYPE hasChildNodes(VARIANT_BOOL * has) final
    {
        if (has == nullptr)
        {
            return E_INVALIDARG;
        }
        *has = FirstChild(Here()) != nullptr ? VARIANT_TRUE : VARIANT_FALSE;
        return *has == VARIANT_TRUE ? S_OK : S_FALSE;
    }
    HRESULT STDMETHODCALLTYPE get_ownerDocument(IXMLDOMDocument ** document) final
    {
        return GiveDocument(Owner(), document);
    }
    HRESULT STDMETHODCALLTYPE get_nodeTypeString(BSTR * type) final
    {
        return Guarded([&] { return GiveTypeName(Here(), type); });
    }
    HRESULT STDMETHODCALLTYPE get_text(BSTR * text) final
    {
        return Guarded([&] { return GiveContent(Here(), text); });
    }
    HRESULT STDMETHODCALLTYPE get_xml(BSTR * xml) final
    {
        return Guarded([&] { return GiveXml(TreeOf(), Here(), xml); });
    }
    HRESULT STDMETHODCALLTYPE transformNode(IXMLDOMNode * stylesheet, BSTR * result) final
    {
        return Guarded([&] { return Transform(*this, stylesheet, result); });
    }
    HRESULT STDMETHODCALLTYPE transformNodeToObject(IXMLDOMNode * stylesheet, VARIANT output) final
    {
        return Guarded([&] { return Transform(*this, stylesheet, output); });
    }
    HRESULT STDMETHODCALLTYPE selectNodes(BSTR expression, IXMLDOMNodeList ** result) final
    {
        return Guarded([&] { return Select(*this, expression, result); });
    }
    HRESULT STDMETHODCALLTYPE selectSingleNode(BSTR expression, IXMLDOMNode ** result) final
    {
        return Guarded([&] { return SelectFirst(*this, expression, result); });
    }
    HRESULT STDMETHODCALLTYPE get_parsed(VARIANT_BOOL * parsed) final
    {
        if (parsed == nullptr)
        {
            return E_INVALIDARG;
        }
        *parsed = VARIANT_TRUE;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE get_namespaceURI(BSTR * uri) final
    {
        return Guarded([&] { return GiveText(Namespace() == nullptr ? nullptr : Chars(Namespace()->href), uri); });
    }
    HRESULT STDMETHODCALLTYPE get_prefix(BSTR * prefix) final
    {
        return Guarded([&] { return GiveText(Namespace() == nullptr ? nullptr : Chars(Namespace()->prefix), prefix); });
    }
    HRESULT STDMETHODCALLTYPE get_baseName(BSTR * name) final
    {
        return Guarded(
            [&]
            {
                bool const named = Here() != nullptr &&
                    (Here()->type == XML_ELEMENT_NODE || Here()->type == XML_ATTRIBUTE_NODE ||
                     Here()->type == XML_PI_NODE);
                return GiveText(named ? Chars(Here()->name) : nullptr, name);
            });
    }

protected:
    static char const * Chars(xmlChar const * text)
    {
        return reinterpret_cast<char const *>(text);
    }

private:
    bool HasSiblings() const
    {
        DOMNodeType const type = TypeOf(Here());
        return type != NODE_DOCUMENT && type != NODE_ATTRIBUTE;
    }
    xmlNs const * Namespace() const
    {
        bool const has = Here() != nullptr && (Here()->type == XML_ELEMENT_NODE || Here()->type == XML_ATTRIBUTE_NODE);
        return has ? Here()->ns : nullptr;
    }
    HRESULT Give(xmlNode * node, IXMLDOMNode ** target)
    {
        return Guarded([&] { return GiveNode(Owner(), TreeOf(), node, target); });
    }

    HRESULT STDMETHODCALLTYPE slot_put_nodeValue() final
    {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE slot_get_attributes() final
    {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE slot_insertBefore() final
    {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE slot_replaceChild() final
    {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE slot_removeChild() final
    {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE slot_appendChild() final
    {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE slot_cloneNode() final
    {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE slot_put_text() final
    {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE slot_get_specified() final
    {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE slot_get_definition() final
    {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE slot_get_nodeTypedValue() final
    {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE slot_put_nodeTypedValue() final
    {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE slot_get_dataType() final
    {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE slot_put_dataType() final
    {
        return E_NOTIMPL;
    }
};

} // namespace kv::platform
