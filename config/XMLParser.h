#pragma once

#include <vector>

#include <kvcore/core/String.h>
#include <kvcore/platform/export.h>
#include <kvcore/platform/types.h>

struct IXMLDOMNode;
class XMLDocument;

/// Loads XML documents by the platform's document component.
///
/// Loading checks that a document is well-formed, no more; XMLDocument::ValidateSchema is the separate check. White
/// space in texts is kept. What a document names outside of itself (entities, a document type) is not loaded, and
/// nothing is ever fetched over the network. Every load makes a new document; none is kept.
///
/// Texts, values and names may be as long as a document of 2 GB has room for, and elements have as many attributes and
/// children as they like. Where the document component is this library's own, elements are nested 256 deep at most,
/// entities refer to each other 40 deep at most, and make a document no more than ten times as large as it is written,
/// except for the first megabyte. What goes beyond is refused in these words, with its place.
///
/// Failures of all classes of this header are XMLParser::Exception.
///
/// Threads: COM must be initialised on the calling thread, and a document and its nodes stay in that thread's
/// apartment. Nothing here locks.
class KVCORE_API XMLParser
{
public:
    /// Thrown by value.
    ///
    /// | code | meaning |
    /// |---|---|
    /// | 0 | the component failed, or a schema is wrong |
    /// | 1 | the component is not installed, or COM is not initialised |
    /// | 2 | the document is wrong, or lacks what is required |
    /// | 4 | a transformation failed |
    ///
    /// The message for a document that cannot be read is the component's reason, "File: ..." for a document from a
    /// file, and "Line/Pos: l/p", each ending in a line break.
    struct KVCORE_API Exception
    {
        int code;
        String message;
    };

    /// Loads a file. Code 2 if it cannot be read or is not well-formed.
    static XMLDocument ParseFile(WCHAR const * path);
    /// Loads `length` bytes, in the encoding that they declare, else UTF-8 or UTF-16 by their byte-order mark. A
    /// negative length means that a NUL ends the data. Code 2 if it is not well-formed.
    static XMLDocument ParseData(char const * data, int length);
};

/// A node of a document: a reference to it, which keeps the document alive, or an empty node.
///
/// Copies share the node. The forms that take `char` take UTF-8.
class KVCORE_API XMLNode
{
public:
    /// The numbers of the document object model.
    enum NodeType
    {
        Element = 1,
        Attribute = 2,
        Text = 3,
        CDataSection = 4,
        EntityReference = 5,
        Entity = 6,
        ProcessingInstruction = 7,
        Comment = 8,
        Document = 9,
        DocumentType = 10,
        DocumentFragment = 11,
        Notation = 12
    };

    /// An empty node.
    XMLNode();
    /// Takes a reference of its own to `newNode`, which may be null.
    explicit XMLNode(IXMLDOMNode * newNode);
    XMLNode(XMLNode const & other);
    XMLNode & operator=(XMLNode const & other);
    ~XMLNode();

    /// Whether this is a node, and not an empty one.
    operator bool() const;

    /// 0 for an empty node.
    NodeType GetType() const;
    /// The name with its prefix; "#text", "#document" and the like for nodes without one. Empty for an empty node.
    String GetName() const;
    /// The texts in the node, joined. Empty for an empty node.
    String GetText() const;
    /// The node as XML. Empty for an empty node.
    String GetXML() const;

    /// An empty node if there is none.
    XMLNode GetParentNode() const;
    /// The document that the node is of, as a node; a document is of itself. An empty node is of none.
    XMLNode GetDocumentNode() const;

    /// The first node that the XPath expression `path` selects from here.
    ///
    /// Kept: only elements, texts, CDATA sections and documents count; a path whose first result is an attribute, a
    /// comment or a processing instruction gives an empty node. If `required`, an empty result throws code 2, "element
    /// '%s' missing under <%s>". Without it, an empty node has an empty result.
    XMLNode GetChildNode(WCHAR const * path, bool required) const;
    XMLNode GetChildNode(char const * path, bool required) const;
    /// All nodes of those types that `path` selects, in document order. If `required`, none throws code 2, "element
    /// <%s> missing under <%s>".
    std::vector<XMLNode> GetChildNodes(WCHAR const * path, bool required) const;
    std::vector<XMLNode> GetChildNodes(char const * path, bool required) const;

    /// Gives the value of an attribute to `value`; false if there is none, with `value` as it was. Nodes that are not
    /// elements have none. Kept: if `required`, an attribute that is there but empty is missing, too: code 2,
    /// "attribute '%s' missing for <%s>".
    bool GetAttribute(WCHAR const * name, String & value, bool required) const;
    bool GetAttribute(char const * name, String & value, bool required) const;
    /// Whether there is such an attribute, be it empty.
    bool HasAttribute(WCHAR const * name) const;
    bool HasAttribute(char const * name) const;

    /// The document that the XSLT style sheet makes of this node. Empty if either of the two is. Code 4 if it fails.
    XMLNode TransformNode(XMLNode const & stylesheet) const;

protected:
    IXMLDOMNode * node; // with a reference; null for an empty node
};

/// A document as a node.
class KVCORE_API XMLDocument : public XMLNode
{
public:
    XMLDocument();
    /// Takes a reference of its own to `document`, which may be null.
    explicit XMLDocument(IXMLDOMNode * document);
    ~XMLDocument();

    /// Checks the document by an XML schema without a target namespace. A negative length means that a NUL ends the
    /// schema; a schema may include others. Code 2 if the document does not follow it; code 0, "Internal XML schema
    /// invalid", if the schema is not well-formed, or with the component's report if it is no schema. An empty document
    /// follows every schema.
    void ValidateSchema(char const * schema, int length);
};
