#pragma once

// The document object model of XML: documents to be loaded, searched by XPath, validated by XML schemas and transformed
// by XSLT style sheets.
//
// Documents are read, not edited: the slots of the published interfaces that change a document, or that serve the older
// typed-value extensions, are held free and cannot be called. Objects are made by CoCreateInstance and belong to one
// thread at a time.
//
// A load is bounded: elements nest at most 256 deep, one text has at most 10,000,000 bytes, a document at most 2^31 -
// 1, and entities that blow up end in a parse error. Nothing is fetched over the network, and a document reads no
// further files unless resolveExternals is set.

#include <kvcore/platform/include/comstream.h>
#include <kvcore/platform/include/oleauto.h>

struct IXMLDOMDocument;
struct IXMLDOMNodeList;
struct IXMLDOMParseError;

/// {88D969C0-F192-11D4-A65F-0040963251E5}, a document.
extern "C" KVCORE_API CLSID const CLSID_DOMDocument40;
/// {88D969C2-F192-11D4-A65F-0040963251E5}, a collection of schemas.
extern "C" KVCORE_API CLSID const CLSID_XMLSchemaCache40;

typedef enum tagDOMNodeType
{
    NODE_INVALID = 0,
    NODE_ELEMENT = 1,
    NODE_ATTRIBUTE = 2,
    NODE_TEXT = 3,
    NODE_CDATA_SECTION = 4,
    NODE_ENTITY_REFERENCE = 5,
    NODE_ENTITY = 6,
    NODE_PROCESSING_INSTRUCTION = 7,
    NODE_COMMENT = 8,
    NODE_DOCUMENT = 9,
    NODE_DOCUMENT_TYPE = 10,
    NODE_DOCUMENT_FRAGMENT = 11,
    NODE_NOTATION = 12
} DOMNodeType;

/// A node of a document, which it keeps alive. Texts are given as new BSTRs that the caller releases; objects with a
/// reference. What is not there is null, with S_FALSE.
struct IXMLDOMNode : IDispatch
{
    virtual HRESULT STDMETHODCALLTYPE get_nodeName(BSTR * name) = 0;
    /// The text of an attribute, text, comment or processing instruction; VT_NULL for other nodes.
    virtual HRESULT STDMETHODCALLTYPE get_nodeValue(VARIANT * value) = 0;

protected:
    virtual HRESULT STDMETHODCALLTYPE slot_put_nodeValue() = 0;

public:
    virtual HRESULT STDMETHODCALLTYPE get_nodeType(DOMNodeType * type) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_parentNode(IXMLDOMNode ** parent) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_childNodes(IXMLDOMNodeList ** children) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_firstChild(IXMLDOMNode ** child) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_lastChild(IXMLDOMNode ** child) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_previousSibling(IXMLDOMNode ** sibling) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_nextSibling(IXMLDOMNode ** sibling) = 0;

protected:
    virtual HRESULT STDMETHODCALLTYPE slot_get_attributes() = 0;
    virtual HRESULT STDMETHODCALLTYPE slot_insertBefore() = 0;
    virtual HRESULT STDMETHODCALLTYPE slot_replaceChild() = 0;
    virtual HRESULT STDMETHODCALLTYPE slot_removeChild() = 0;
    virtual HRESULT STDMETHODCALLTYPE slot_appendChild() = 0;

public:
    virtual HRESULT STDMETHODCALLTYPE hasChildNodes(VARIANT_BOOL * has) = 0;
    /// The document; for a document, itself.
    virtual HRESULT STDMETHODCALLTYPE get_ownerDocument(IXMLDOMDocument ** document) = 0;

protected:
    virtual HRESULT STDMETHODCALLTYPE slot_cloneNode() = 0;

public:
    /// "element", "text" and so on.
    virtual HRESULT STDMETHODCALLTYPE get_nodeTypeString(BSTR * type) = 0;
    /// The texts in the node, joined.
    virtual HRESULT STDMETHODCALLTYPE get_text(BSTR * text) = 0;

protected:
    virtual HRESULT STDMETHODCALLTYPE slot_put_text() = 0;
    virtual HRESULT STDMETHODCALLTYPE slot_get_specified() = 0;
    virtual HRESULT STDMETHODCALLTYPE slot_get_definition() = 0;
    virtual HRESULT STDMETHODCALLTYPE slot_get_nodeTypedValue() = 0;
    virtual HRESULT STDMETHODCALLTYPE slot_put_nodeTypedValue() = 0;
    virtual HRESULT STDMETHODCALLTYPE slot_get_dataType() = 0;
    virtual HRESULT STDMETHODCALLTYPE slot_put_dataType() = 0;

public:
    /// The node as XML, its lines ending in CR LF. A document's declaration names no encoding.
    virtual HRESULT STDMETHODCALLTYPE get_xml(BSTR * xml) = 0;
    /// What the style sheet makes of the node, as text by the style sheet's output method. E_FAIL with a report if it
    /// is none, or fails.
    virtual HRESULT STDMETHODCALLTYPE transformNode(IXMLDOMNode * stylesheet, BSTR * result) = 0;
    /// The nodes that an XPath expression selects, in document order. Prefixes are those of the document's property
    /// SelectionNamespaces. E_FAIL with a report for a wrong expression, or one that selects no nodes but computes
    /// something. Namespace nodes are left out.
    virtual HRESULT STDMETHODCALLTYPE selectNodes(BSTR expression, IXMLDOMNodeList ** result) = 0;
    /// The first of them.
    virtual HRESULT STDMETHODCALLTYPE selectSingleNode(BSTR expression, IXMLDOMNode ** result) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_parsed(VARIANT_BOOL * parsed) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_namespaceURI(BSTR * uri) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_prefix(BSTR * prefix) = 0;
    /// The name without its prefix.
    virtual HRESULT STDMETHODCALLTYPE get_baseName(BSTR * name) = 0;
    /// The same as transformNode into `output`, a document in a VARIANT, which is replaced.
    virtual HRESULT STDMETHODCALLTYPE transformNodeToObject(IXMLDOMNode * stylesheet, VARIANT output) = 0;
};

/// An element.
struct IXMLDOMElement : IXMLDOMNode
{
    virtual HRESULT STDMETHODCALLTYPE get_tagName(BSTR * name) = 0;
    /// The value by the name with its prefix, declarations of namespaces too; VT_NULL and S_FALSE if it is not there.
    virtual HRESULT STDMETHODCALLTYPE getAttribute(BSTR name, VARIANT * value) = 0;

protected:
    virtual HRESULT STDMETHODCALLTYPE slot_setAttribute() = 0;
    virtual HRESULT STDMETHODCALLTYPE slot_removeAttribute() = 0;
    virtual HRESULT STDMETHODCALLTYPE slot_getAttributeNode() = 0;
    virtual HRESULT STDMETHODCALLTYPE slot_setAttributeNode() = 0;
    virtual HRESULT STDMETHODCALLTYPE slot_removeAttributeNode() = 0;
    virtual HRESULT STDMETHODCALLTYPE slot_getElementsByTagName() = 0;
    virtual HRESULT STDMETHODCALLTYPE slot_normalize() = 0;
};

/// A document; empty until it is loaded, and after a load that failed.
struct IXMLDOMDocument : IXMLDOMNode
{
protected:
    virtual HRESULT STDMETHODCALLTYPE slot_get_doctype() = 0;
    virtual HRESULT STDMETHODCALLTYPE slot_get_implementation() = 0;

public:
    virtual HRESULT STDMETHODCALLTYPE get_documentElement(IXMLDOMElement ** element) = 0;

protected:
    virtual HRESULT STDMETHODCALLTYPE slot_putref_documentElement() = 0;
    virtual HRESULT STDMETHODCALLTYPE slot_createElement() = 0;
    virtual HRESULT STDMETHODCALLTYPE slot_createDocumentFragment() = 0;
    virtual HRESULT STDMETHODCALLTYPE slot_createTextNode() = 0;
    virtual HRESULT STDMETHODCALLTYPE slot_createComment() = 0;
    virtual HRESULT STDMETHODCALLTYPE slot_createCDATASection() = 0;
    virtual HRESULT STDMETHODCALLTYPE slot_createProcessingInstruction() = 0;
    virtual HRESULT STDMETHODCALLTYPE slot_createAttribute() = 0;
    virtual HRESULT STDMETHODCALLTYPE slot_createEntityReference() = 0;
    virtual HRESULT STDMETHODCALLTYPE slot_getElementsByTagName() = 0;
    virtual HRESULT STDMETHODCALLTYPE slot_createNode() = 0;
    virtual HRESULT STDMETHODCALLTYPE slot_nodeFromID() = 0;

public:
    /// Loads a file, `source` being its path or file: URL. What is wrong with it stands in the parse error; `loaded` is
    /// VARIANT_FALSE then, and the result S_FALSE.
    virtual HRESULT STDMETHODCALLTYPE load(VARIANT source, VARIANT_BOOL * loaded) = 0;
    /// 4: loads are complete when they return.
    virtual HRESULT STDMETHODCALLTYPE get_readyState(LONG * state) = 0;
    /// How the last load went.
    virtual HRESULT STDMETHODCALLTYPE get_parseError(IXMLDOMParseError ** error) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_url(BSTR * url) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_async(VARIANT_BOOL * async) = 0;
    /// VARIANT_FALSE is taken alone (E_INVALIDARG).
    virtual HRESULT STDMETHODCALLTYPE put_async(VARIANT_BOOL async) = 0;

protected:
    virtual HRESULT STDMETHODCALLTYPE slot_abort() = 0;

public:
    /// Loads a text, whatever encoding it declares.
    virtual HRESULT STDMETHODCALLTYPE loadXML(BSTR text, VARIANT_BOOL * loaded) = 0;

protected:
    virtual HRESULT STDMETHODCALLTYPE slot_save() = 0;

public:
    virtual HRESULT STDMETHODCALLTYPE get_validateOnParse(VARIANT_BOOL * validate) = 0;
    /// VARIANT_FALSE is taken alone (E_INVALIDARG): a document is validated by `validate`.
    virtual HRESULT STDMETHODCALLTYPE put_validateOnParse(VARIANT_BOOL validate) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_resolveExternals(VARIANT_BOOL * resolve) = 0;
    /// Whether a document may have entities, document types, schemas and style sheets that it names read from files.
    /// VARIANT_FALSE at first: external entities are empty then.
    virtual HRESULT STDMETHODCALLTYPE put_resolveExternals(VARIANT_BOOL resolve) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_preserveWhiteSpace(VARIANT_BOOL * preserve) = 0;
    /// Whether texts of white space alone become nodes. VARIANT_FALSE at first.
    virtual HRESULT STDMETHODCALLTYPE put_preserveWhiteSpace(VARIANT_BOOL preserve) = 0;

protected:
    virtual HRESULT STDMETHODCALLTYPE slot_put_onreadystatechange() = 0;
    virtual HRESULT STDMETHODCALLTYPE slot_put_ondataavailable() = 0;
    virtual HRESULT STDMETHODCALLTYPE slot_put_ontransformnode() = 0;
};

/// A document with schemas and properties. It is an IStream, too: bytes written to that are loaded when the stream is
/// released.
struct IXMLDOMDocument2 : IXMLDOMDocument
{
protected:
    virtual HRESULT STDMETHODCALLTYPE slot_get_namespaces() = 0;

public:
    /// The collection as VT_DISPATCH, or VT_NULL.
    virtual HRESULT STDMETHODCALLTYPE get_schemas(VARIANT * schemas) = 0;
    /// Takes a collection, or VT_NULL.
    virtual HRESULT STDMETHODCALLTYPE putref_schemas(VARIANT schemas) = 0;
    /// Checks the document by the schema for its root's namespace. S_OK, or S_FALSE with the first error.
    virtual HRESULT STDMETHODCALLTYPE validate(IXMLDOMParseError ** error) = 0;
    /// "SelectionNamespaces" ("xmlns:p='uri' ..."), "SelectionLanguage" ("XPath" alone) and "NewParser" (no effect).
    /// E_INVALIDARG for others.
    virtual HRESULT STDMETHODCALLTYPE setProperty(BSTR name, VARIANT value) = 0;
    virtual HRESULT STDMETHODCALLTYPE getProperty(BSTR name, VARIANT * value) = 0;
};

/// Nodes in document order.
struct IXMLDOMNodeList : IDispatch
{
    /// Null and S_FALSE beyond the end.
    virtual HRESULT STDMETHODCALLTYPE get_item(LONG index, IXMLDOMNode ** node) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_length(LONG * length) = 0;
    virtual HRESULT STDMETHODCALLTYPE nextNode(IXMLDOMNode ** node) = 0;
    virtual HRESULT STDMETHODCALLTYPE reset() = 0;

protected:
    virtual HRESULT STDMETHODCALLTYPE slot_get__newEnum() = 0;
};

/// What is wrong with a document. Texts and numbers that are not known are null and 0, with S_FALSE.
struct IXMLDOMParseError : IDispatch
{
    /// 0 and S_FALSE if nothing is.
    virtual HRESULT STDMETHODCALLTYPE get_errorCode(LONG * code) = 0;
    /// The path of a document from a file.
    virtual HRESULT STDMETHODCALLTYPE get_url(BSTR * url) = 0;
    /// Ends in a line break.
    virtual HRESULT STDMETHODCALLTYPE get_reason(BSTR * reason) = 0;

protected:
    virtual HRESULT STDMETHODCALLTYPE slot_get_srcText() = 0;

public:
    /// Both from 1 on.
    virtual HRESULT STDMETHODCALLTYPE get_line(LONG * line) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_linepos(LONG * position) = 0;

protected:
    virtual HRESULT STDMETHODCALLTYPE slot_get_filepos() = 0;
};

/// Schemas by their target namespace.
struct IXMLDOMSchemaCollection : IDispatch
{
    /// Compiles `schema`, a document or the path of a file, for `uri`, in place of the one before; VT_NULL removes
    /// that. E_FAIL with a report if it is no schema, or one of another namespace.
    virtual HRESULT STDMETHODCALLTYPE add(BSTR uri, VARIANT schema) = 0;

protected:
    virtual HRESULT STDMETHODCALLTYPE slot_get() = 0;

public:
    virtual HRESULT STDMETHODCALLTYPE remove(BSTR uri) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_length(LONG * length) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_namespaceURI(LONG index, BSTR * uri) = 0;

protected:
    virtual HRESULT STDMETHODCALLTYPE slot_addCollection() = 0;
    virtual HRESULT STDMETHODCALLTYPE slot_get__newEnum() = 0;
};

/// 2933BF80-7B36-11D2-B20E-00C04F983E60
extern "C" KVCORE_API IID const IID_IXMLDOMNode;
/// 2933BF81-7B36-11D2-B20E-00C04F983E60
extern "C" KVCORE_API IID const IID_IXMLDOMDocument;
/// 2933BF95-7B36-11D2-B20E-00C04F983E60
extern "C" KVCORE_API IID const IID_IXMLDOMDocument2;
/// 2933BF82-7B36-11D2-B20E-00C04F983E60
extern "C" KVCORE_API IID const IID_IXMLDOMNodeList;
/// 2933BF86-7B36-11D2-B20E-00C04F983E60
extern "C" KVCORE_API IID const IID_IXMLDOMElement;
/// 3EFAA426-272F-11D2-836F-0000F87A7782
extern "C" KVCORE_API IID const IID_IXMLDOMParseError;
/// 373984C8-B845-449B-91E7-45AC83036ADE
extern "C" KVCORE_API IID const IID_IXMLDOMSchemaCollection;
