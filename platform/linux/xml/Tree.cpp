#include "Tree.h"

#include <algorithm>
#include <map>
#include <new>
#include <set>
#include <string>
#include <vector>

#include "AttributeIndex.h"

namespace kv::platform
{

Tree::Tree(xmlDoc * newDocument, bool mayReadFiles)
    : document(newDocument), files(mayReadFiles), attributes(std::make_unique<AttributeIndex>())
{
}

Tree::~Tree()
{
    xmlFreeDoc(document);
}

void MarkNode(xmlNode * node, NodeMark mark)
{
    node->_private = mark.Value();
    if (node->type == XML_ELEMENT_NODE)
    {
        node->content = reinterpret_cast<xmlChar *>(-std::intptr_t(mark.order));
    }
}

namespace
{

template <typename Entry>
std::size_t Length(Entry const * list)
{
    std::size_t length = 0;
    for (; list != nullptr; list = list->next)
    {
        ++length;
    }
    return length;
}

std::size_t DepthOf(xmlNode const & node)
{
    std::size_t depth = 0;
    for (xmlNode const * each = &node; each != nullptr && each->type == XML_ELEMENT_NODE; each = each->parent)
    {
        ++depth;
    }
    return depth;
}

} // namespace

TreeFigures NumberNodes(xmlDoc & document)
{
    TreeFigures figures;
    std::uint32_t order = 0;
    std::size_t run = 0;
    xmlNode * const root = reinterpret_cast<xmlNode *>(&document);
    for (xmlNode * node = root; node != nullptr; node = NextWithin(node, root))
    {
        MarkNode(node, {++order, 0});
        bool const isElement = node->type == XML_ELEMENT_NODE;
        run = isElement || node->prev == nullptr ? 0 : run + 1;
        figures.longestRun = std::max(figures.longestRun, run);
        if (!isElement)
        {
            continue;
        }
        std::size_t const declared = Length(node->nsDef);
        figures.mostNamespaces = std::max(figures.mostNamespaces, declared);
        figures.mostAttributes = std::max(figures.mostAttributes, declared + Length(node->properties));
        figures.deepest = std::max(figures.deepest, node->children == nullptr ? DepthOf(*node) : 0);
        for (xmlAttr * attribute = node->properties; attribute != nullptr; attribute = attribute->next)
        {
            attribute->_private = NodeMark{++order, 0}.Value();
        }
    }
    figures.nodes = order;
    return figures;
}

void RegisterIdentifiers(xmlDoc & document)
{
    xmlNode * const root = reinterpret_cast<xmlNode *>(&document);
    for (xmlNode * node = root; node != nullptr; node = NextWithin(node, root))
    {
        xmlAttr * attribute = node->type == XML_ELEMENT_NODE ? node->properties : nullptr;
        for (; attribute != nullptr; attribute = attribute->next)
        {
            if (attribute->atype == XML_ATTRIBUTE_ID && attribute->children != nullptr)
            {
                xmlAddID(nullptr, &document, attribute->children->content, attribute);
                attribute->atype = XML_ATTRIBUTE_ID; // also of one that is not the first
            }
        }
    }
}

namespace
{

template <typename Object>
Object * Made(Object * object)
{
    if (object == nullptr)
    {
        throw std::bad_alloc();
    }
    return object;
}

struct DocumentDeleter
{
    void operator()(xmlDoc * document) const
    {
        xmlFreeDoc(document);
    }
};
using OwnedDocument = std::unique_ptr<xmlDoc, DocumentDeleter>;

/// Copies nodes one after the other: the libraries' own way calls itself for each element within another.
class Copier
{
public:
    Copier(xmlDoc & newTarget, Declarations newAbove)
        : target(newTarget), parent(reinterpret_cast<xmlNode *>(&newTarget)), above(std::move(newAbove))
    {
    }

    void Copy(xmlNode const & root)
    {
        for (xmlNode const * node = &root; node != nullptr;)
        {
            xmlNode * const copy = CopyOf(*node);
            bool const opens = copy != nullptr && node->type == XML_ELEMENT_NODE && node->children != nullptr;
            if (opens)
            {
                parent = copy;
                node = node->children;
                continue;
            }
            while (node != &root && node->next == nullptr)
            {
                node = node->parent;
                parent = parent->parent;
            }
            node = node == &root ? nullptr : node->next;
        }
    }

private:
    void Append(xmlNode * node)
    {
        node->parent = parent;
        node->prev = parent->last;
        (parent->last == nullptr ? parent->children : parent->last->next) = node;
        parent->last = node;
    }

    xmlNode * CopyOf(xmlNode const & node)
    {
        xmlNode * copy = nullptr;
        switch (node.type)
        {
        case XML_ELEMENT_NODE:
            copy = Made(xmlNewDocNode(&target, nullptr, node.name, nullptr));
            Append(copy);
            CopyTag(node, *copy);
            break;
        case XML_TEXT_NODE:
            copy = Made(xmlNewDocText(&target, node.content));
            copy->name = node.name; // which says whether it is to be escaped
            Append(copy);
            break;
        case XML_CDATA_SECTION_NODE:
            copy = Made(xmlNewCDataBlock(&target, node.content, xmlStrlen(node.content)));
            Append(copy);
            break;
        case XML_COMMENT_NODE:
            copy = Made(xmlNewDocComment(&target, node.content));
            Append(copy);
            break;
        case XML_PI_NODE:
            copy = Made(xmlNewDocPI(&target, node.name, node.content));
            Append(copy);
            break;
        default:
            return nullptr;
        }
        copy->line = node.line;
        return copy;
    }

    void Declare(xmlNode & copy, xmlNs *& last, xmlNs const & source)
    {
        xmlNs * const made = Made(xmlNewNs(nullptr, source.href, source.prefix));
        (last == nullptr ? copy.nsDef : last->next) = made;
        last = made;
        spaces[&source] = made;
    }

    void CopyTag(xmlNode const & node, xmlNode & copy)
    {
        xmlNs * lastSpace = nullptr;
        std::map<std::string, bool> declared;
        auto const nameOf = [](xmlNs const & space)
        { return space.prefix == nullptr ? std::string() : reinterpret_cast<char const *>(space.prefix); };
        for (xmlNs const * each = node.nsDef; each != nullptr; each = each->next)
        {
            Declare(copy, lastSpace, *each);
            if (!above.empty())
            {
                declared[nameOf(*each)] = true;
            }
        }
        for (xmlNs const * each : above)
        {
            if (declared.emplace(nameOf(*each), true).second)
            {
                Declare(copy, lastSpace, *each);
            }
        }
        above.clear();
        copy.ns = SpaceOf(node.ns, copy);
        xmlAttr * last = nullptr;
        for (xmlAttr const * each = node.properties; each != nullptr; each = each->next)
        {
            last = CopyAttribute(*each, copy, last);
        }
    }

    xmlAttr * CopyAttribute(xmlAttr const & source, xmlNode & element, xmlAttr * last)
    {
        xmlNode const * const value = source.children;
        xmlChar const * const text = value == nullptr || value->content == nullptr ? BAD_CAST "" : value->content;
        xmlAttr * const copy = Made(xmlNewNsProp(nullptr, SpaceOf(source.ns, element), source.name, text));
        copy->doc = &target;
        copy->children->doc = &target;
        copy->parent = &element;
        copy->prev = last;
        (last == nullptr ? element.properties : last->next) = copy;
        copy->atype = source.atype;
        return copy;
    }

    xmlNs * SpaceOf(xmlNs const * source, xmlNode & element)
    {
        if (source == nullptr)
        {
            return nullptr;
        }
        auto const found = spaces.find(source);
        if (found != spaces.end())
        {
            return found->second;
        }
        // The one of "xml", which is declared nowhere.
        return spaces[source] = Made(xmlSearchNs(&target, &element, source->prefix));
    }

    xmlDoc & target;
    xmlNode * parent;
    std::map<xmlNs const *, xmlNs *> spaces;
    Declarations above; ///< which the first element declares
};

OwnedDocument NewCopy(xmlDoc const & source)
{
    OwnedDocument copy(Made(xmlNewDoc(BAD_CAST "1.0")));
    copy->standalone = source.standalone;
    if (source.URL != nullptr)
    {
        copy->URL = Made(xmlStrdup(source.URL));
    }
    copy->dict = Made(xmlDictCreate());
    if (source.intSubset != nullptr)
    {
        copy->intSubset = Made(xmlCopyDtd(source.intSubset));
        copy->intSubset->doc = copy.get();
        copy->intSubset->parent = copy.get();
        copy->children = copy->last = reinterpret_cast<xmlNode *>(copy->intSubset);
    }
    return copy;
}

} // namespace

Declarations UsedFromAbove(xmlNode const & node)
{
    std::set<xmlNs const *> inside;
    std::set<xmlNs const *> used;
    for (xmlNode const * each = &node; each != nullptr; each = NextWithin(each, &node))
    {
        if (each->type != XML_ELEMENT_NODE)
        {
            continue;
        }
        for (xmlNs const * declared = each->nsDef; declared != nullptr; declared = declared->next)
        {
            inside.insert(declared);
        }
        used.insert(each->ns);
        for (xmlAttr const * attribute = each->properties; attribute != nullptr; attribute = attribute->next)
        {
            used.insert(attribute->ns);
        }
    }
    Declarations above;
    for (xmlNs const * each : used)
    {
        bool const isFixed = each != nullptr && each->prefix != nullptr && xmlStrEqual(each->prefix, BAD_CAST "xml");
        if (each != nullptr && !isFixed && inside.count(each) == 0)
        {
            above.push_back(each);
        }
    }
    std::sort(
        above.begin(), above.end(),
        [](xmlNs const * a, xmlNs const * b) { return xmlStrcmp(a->prefix, b->prefix) < 0; });
    return above;
}

Declarations AllFromAbove(xmlNode const & node)
{
    Declarations above; // the inner ones first, which hide others of their prefix
    for (xmlNode const * each = node.parent; each != nullptr; each = each->parent)
    {
        xmlNs const * declared = each->type == XML_ELEMENT_NODE ? each->nsDef : nullptr;
        for (; declared != nullptr; declared = declared->next)
        {
            above.push_back(declared);
        }
    }
    return above;
}

xmlDoc * CopyNode(xmlNode const & source, Declarations above)
{
    OwnedDocument copy = NewCopy(*source.doc);
    Copier(*copy, std::move(above)).Copy(source);
    return copy.release();
}

xmlDoc * CopyDocument(xmlDoc const & source)
{
    OwnedDocument copy = NewCopy(source);
    Copier copier(*copy, {});
    for (xmlNode const * child = source.children; child != nullptr; child = child->next)
    {
        copier.Copy(*child);
    }
    return copy.release();
}

} // namespace kv::platform
