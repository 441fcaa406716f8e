#pragma once

// A document in memory: the tree of libxml2, and what this layer knows of it besides.

#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include <libxml/tree.h>

namespace kv::platform
{

class AttributeIndex;

/// How far a document goes in what makes the libraries slow.
struct TreeFigures
{
    std::size_t nodes = 0;
    std::size_t deepest = 0;        ///< element
    std::size_t mostAttributes = 0; ///< of one element, its declarations of namespaces among them
    std::size_t mostNamespaces = 0; ///< declared for one place in the document
    std::size_t longestRun = 0;     ///< of texts, comments and instructions without an element between them
};

/// A document of libxml2. All objects that point into it share it. It does not change, so its nodes have numbers.
struct Tree
{
    Tree(xmlDoc * newDocument, bool mayReadFiles);
    Tree(Tree const &) = delete;
    Tree & operator=(Tree const &) = delete;
    ~Tree();

    xmlDoc * const document;
    bool const files;         ///< It may name files to be read.
    std::string declarations; ///< The internal subset as it was written, with its brackets; empty for none.
    TreeFigures figures;
    std::unique_ptr<AttributeIndex> const attributes;
    std::once_flag identified; ///< by RegisterIdentifiers, at the first question
};
using SharedTree = std::shared_ptr<Tree>;

/// What libxml2 leaves to its user in each node holds the node's place in document order, from 1 on, and the column
/// that it begins in, 0 if that is not known.
struct NodeMark
{
    std::uint32_t order = 0;
    std::uint32_t column = 0;

    static NodeMark Of(xmlNode const * node)
    {
        auto const value = reinterpret_cast<std::uintptr_t>(node->_private);
        return {static_cast<std::uint32_t>(value), static_cast<std::uint32_t>(value >> 32)};
    }
    void * Value() const
    {
        static_assert(sizeof(std::uintptr_t) == 8);
        return reinterpret_cast<void *>(std::uintptr_t(column) << 32 | order);
    }
};

/// Gives the order to an element, for the comparisons of libxml2, too, which has a place for it.
void MarkNode(xmlNode * node, NodeMark mark);

/// Numbers the nodes of a document that a library has made, and looks how far it goes.
TreeFigures NumberNodes(xmlDoc & document);

/// Puts the identifiers, which are marked in the tree, into the library's table, where the first of equal ones counts.
/// That table slows down as it grows, so only who asks for identifiers pays for it.
void RegisterIdentifiers(xmlDoc & document);

/// Declarations above a node that something in it uses, or all that hold for it.
using Declarations = std::vector<xmlNs const *>;
Declarations UsedFromAbove(xmlNode const & node);
Declarations AllFromAbove(xmlNode const & node);

/// A copy, however deep it is, with the lines. That of a node is the only one of its document, and declares `above`.
/// Throws std::bad_alloc.
xmlDoc * CopyDocument(xmlDoc const & source);
xmlDoc * CopyNode(xmlNode const & source, Declarations above);

/// The node behind `node` in document order and within `root`, or null. Children are left out unless `children` is set.
template <typename Node>
Node * NextWithin(Node * node, xmlNode const * root, bool children = true)
{
    bool const mayHaveChildren = node->type == XML_ELEMENT_NODE || node->type == XML_DOCUMENT_NODE ||
        node->type == XML_HTML_DOCUMENT_NODE || node->type == XML_DOCUMENT_FRAG_NODE;
    if (children && mayHaveChildren && node->children != nullptr)
    {
        return node->children;
    }
    while (node != root && node->next == nullptr)
    {
        node = node->parent;
        if (node == nullptr)
        {
            return nullptr;
        }
    }
    return node == root ? nullptr : node->next;
}

} // namespace kv::platform
