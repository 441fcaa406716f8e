#include "TreeBuilder.h"

#include <algorithm>
#include <climits>
#include <cstring>
#include <exception>
#include <map>
#include <memory>
#include <new>
#include <string>
#include <utility>
#include <vector>

#include <expat.h>
#include <libxml/uri.h>
#include <libxml/valid.h>

#include "Decoding.h"
#include "EntityNesting.h"
#include "Namespaces.h"

namespace kv::platform
{

namespace
{

/// What a document may do that has no measure in its size. XMLWriter.h tells of the depth.
constexpr std::size_t deepestElement = 256;
constexpr unsigned mostDefaultAttributes = 1000;        ///< of one element type
constexpr unsigned mostReferringParameterEntities = 40; ///< whose texts refer to others, and so may nest
constexpr int deepestExternalEntity = 16;
constexpr float mostExpansion = 10; ///< of the document by its entities
constexpr unsigned long long freeExpansion = 1 << 20;
constexpr int mostSharedNames = 4096;
constexpr std::size_t defaultAttributeSize = sizeof(xmlAttr) + sizeof(xmlNode);

struct ParserDeleter
{
    void operator()(XML_Parser parser) const
    {
        XML_ParserFree(parser);
    }
};
using Parser = std::unique_ptr<std::remove_pointer_t<XML_Parser>, ParserDeleter>;

template <typename Object>
Object * Made(Object * object)
{
    if (object == nullptr)
    {
        throw std::bad_alloc();
    }
    return object;
}

bool IsBlank(std::string_view text)
{
    return text.find_first_not_of(" \t\r\n") == std::string_view::npos;
}

/// A sentence with a part of the document in it.
std::string Quoting(std::string_view before, std::string_view part, std::string_view after)
{
    constexpr std::size_t most = 200;
    std::string text(before);
    text += part.substr(0, most);
    text += part.size() > most ? "..." : "";
    return text += after;
}

class Builder
{
public:
    Builder(LoadOptions const & newOptions, std::string_view newText)
        : options(newOptions),
          text(newText),
          tree(std::make_shared<Tree>(Made(xmlNewDoc(BAD_CAST "1.0")), newOptions.files)),
          document(*tree->document),
          parent(reinterpret_cast<xmlNode *>(tree->document)),
          spaces(document)
    {
        document.dict = Made(xmlDictCreate());
        document.standalone = -1; // no declaration has been seen
        MarkNode(parent, {++order, 0});
    }

    SharedTree Build(char const * url, Problem & target)
    {
        Parser const main(Made(XML_ParserCreate("UTF-8")));
        document.URL = url == nullptr ? nullptr : Made(xmlStrdup(BAD_CAST url));
        SetHandlers(main.get(), url);
        bool const good = Run(main.get(), text, true);
        if (failure)
        {
            std::rethrow_exception(failure);
        }
        if (!good)
        {
            target = std::move(problem);
            return nullptr;
        }
        tree->figures.nodes = order;
        return tree;
    }

private:
    // Failures ------------------------------------------------------------------------------------------------------

    /// Ends the parse at the place that expat is at.
    void Stop(std::string reason)
    {
        if (problem.code == 0)
        {
            SetProblem(std::move(reason));
        }
        XML_StopParser(parser, XML_FALSE);
    }

    void SetProblem(std::string reason)
    {
        problem.code = E_FAIL;
        problem.reason = std::move(reason) + '\n';
        problem.line = static_cast<int>(std::min<XML_Size>(XML_GetCurrentLineNumber(parser), INT_MAX));
        problem.position = static_cast<int>(std::min<XML_Size>(XML_GetCurrentColumnNumber(parser), INT_MAX - 1)) + 1;
    }

    std::string OpenElement() const
    {
        std::string name = reinterpret_cast<char const *>(parent->name);
        bool const prefixed = parent->ns != nullptr && parent->ns->prefix != nullptr;
        name =
            (prefixed ? reinterpret_cast<char const *>(parent->ns->prefix) + std::string(":") : std::string()) + name;
        return '<' + name + "> of line " + std::to_string(xmlGetLineNo(parent));
    }

    std::string ReasonOf(XML_Error error) const
    {
        bool const open = parent->type == XML_ELEMENT_NODE;
        switch (error)
        {
        case XML_ERROR_SYNTAX:
            return "The text here is not allowed in XML.";
        case XML_ERROR_NO_ELEMENTS:
            return open ? "The document ends within the element " + OpenElement() + '.'
                        : "The document has no element.";
        case XML_ERROR_INVALID_TOKEN:
            return "The character here is not allowed in this place.";
        case XML_ERROR_UNCLOSED_TOKEN:
            return "What begins here has no end.";
        case XML_ERROR_PARTIAL_CHAR:
            return "The document ends within a character.";
        case XML_ERROR_TAG_MISMATCH:
            return "The end tag does not match the start tag " + OpenElement() + '.';
        case XML_ERROR_DUPLICATE_ATTRIBUTE:
            return "The element has this attribute twice.";
        case XML_ERROR_JUNK_AFTER_DOC_ELEMENT:
            return "The document goes on behind its only element.";
        case XML_ERROR_UNDEFINED_ENTITY:
            return "The entity is not declared.";
        case XML_ERROR_RECURSIVE_ENTITY_REF:
            return "The entity refers to itself.";
        case XML_ERROR_ASYNC_ENTITY:
            return "The entity does not hold whole elements.";
        case XML_ERROR_BAD_CHAR_REF:
            return "The reference is to no character of XML.";
        case XML_ERROR_MISPLACED_XML_PI:
            return "An XML declaration must be the first thing in a document.";
        case XML_ERROR_UNCLOSED_CDATA_SECTION:
            return "The CDATA section has no end.";
        case XML_ERROR_AMPLIFICATION_LIMIT_BREACH:
            return "The entities make the document more than " + std::to_string(static_cast<int>(mostExpansion)) +
                " times as large as it is written.";
        default:
            return std::string("The document is not well-formed: ") + XML_ErrorString(error) + '.';
        }
    }

    /// Runs what a handler does: nothing that is thrown may go through expat.
    template <typename Action>
    static void Handle(void * data, Action action) noexcept
    {
        auto & builder = *static_cast<Builder *>(data);
        if (builder.problem.code != 0 || builder.failure)
        {
            return; // expat tells some more after it has been stopped
        }
        try
        {
            action(builder);
        }
        catch (...)
        {
            builder.failure = std::current_exception();
            XML_StopParser(builder.parser, XML_FALSE);
        }
    }

    // Expat ---------------------------------------------------------------------------------------------------------

    void SetHandlers(XML_Parser target, char const * url)
    {
        XML_SetUserData(target, this);
        XML_SetBillionLaughsAttackProtectionMaximumAmplification(target, mostExpansion);
        XML_SetBillionLaughsAttackProtectionActivationThreshold(target, freeExpansion);
        XML_SetElementHandler(
            target,
            [](void * data, char const * name, char const ** attributes)
            { Handle(data, [&](Builder & builder) { builder.StartElement(name, attributes); }); },
            [](void * data, char const *) { Handle(data, [](Builder & builder) { builder.EndElement(); }); });
        XML_SetCharacterDataHandler(
            target,
            [](void * data, char const * part, int size)
            { Handle(data, [&](Builder & builder) { builder.AddText(part, size); }); });
        XML_SetCommentHandler(
            target,
            [](void * data, char const * content)
            { Handle(data, [&](Builder & builder) { builder.AddComment(content); }); });
        XML_SetProcessingInstructionHandler(
            target,
            [](void * data, char const * name, char const * content)
            { Handle(data, [&](Builder & builder) { builder.AddInstruction(name, content); }); });
        XML_SetCdataSectionHandler(
            target, [](void * data) { Handle(data, [](Builder & builder) { builder.StartSection(); }); },
            [](void * data) { Handle(data, [](Builder & builder) { builder.EndSection(); }); });
        XML_SetXmlDeclHandler(
            target,
            [](void * data, char const * version, char const *, int standalone)
            { Handle(data, [&](Builder & builder) { builder.TakeDeclaration(version, standalone); }); });
        SetTypeHandlers(target);
        XML_SetBase(target, url);
        XML_SetParamEntityParsing(target, XML_PARAM_ENTITY_PARSING_ALWAYS); // without it not even those in the document
        XML_SetExternalEntityRefHandler(target, ReadExternal);
    }

    static void SetTypeHandlers(XML_Parser target)
    {
        XML_SetDoctypeDeclHandler(
            target,
            [](void * data, char const * name, char const * systemId, char const * publicId, int hasSubset)
            { Handle(data, [&](Builder & builder) { builder.StartType(name, systemId, publicId, hasSubset != 0); }); },
            [](void * data) { Handle(data, [](Builder & builder) { builder.EndType(); }); });
        XML_SetEntityDeclHandler(
            target,
            [](void * data, char const * name, int isParameter, char const * value, int size, char const *,
               char const * systemId, char const * publicId, char const * notation)
            {
                Handle(
                    data,
                    [&](Builder & builder)
                    {
                        value != nullptr
                            ? builder.DeclareEntity(name, isParameter != 0, {value, static_cast<std::size_t>(size)})
                            : builder.DeclareUnparsed(name, systemId, publicId, notation);
                    });
            });
        XML_SetAttlistDeclHandler(
            target,
            [](void * data, char const * element, char const *, char const * type, char const * value, int)
            {
                Handle(
                    data,
                    [&](Builder & builder)
                    {
                        if (value != nullptr || std::strcmp(type, "ID") == 0)
                        {
                            builder.CountDefault(element);
                        }
                    });
            });
    }

    bool Run(XML_Parser target, std::string_view bytes, bool isMain)
    {
        XML_Parser const outer = parser;
        parser = target;
        bool const fits = bytes.size() <= INT_MAX;
        bool good = fits && !IsTakenForUtf16(bytes) &&
            XML_Parse(target, bytes.data(), static_cast<int>(bytes.size()), XML_TRUE) == XML_STATUS_OK;
        if (!good && !failure && problem.code == 0)
        {
            TellError(fits, isMain);
        }
        good = good && !failure && problem.code == 0;
        parser = outer;
        return good;
    }

    /// Expat looks at the first bytes itself, and takes these for another encoding than the one that it is told.
    static bool IsTakenForUtf16(std::string_view bytes)
    {
        return bytes.substr(0, 2).find('\0') != std::string_view::npos || bytes.substr(0, 2) == "\xFE\xFF" ||
            bytes.substr(0, 2) == "\xFF\xFE";
    }

    void TellError(bool fits, bool isMain)
    {
        XML_Error const error = XML_GetErrorCode(parser);
        if (error == XML_ERROR_NO_MEMORY)
        {
            throw std::bad_alloc();
        }
        std::string const where = isMain ? std::string() : "In an external entity: ";
        SetProblem(
            where +
            (!fits                         ? "The document is larger than 2 GB."
                 : error == XML_ERROR_NONE ? "The character here is not allowed in this place."
                                           : ReasonOf(error)));
    }

    static int ReadExternal(
        XML_Parser outer, char const * context, char const * base, char const * systemId, char const *) noexcept
    {
        auto & builder = *static_cast<Builder *>(XML_GetUserData(outer));
        Handle(&builder, [&](Builder & self) { self.RunExternal(outer, context, base, systemId); });
        return builder.problem.code == 0 && !builder.failure ? XML_STATUS_OK : XML_STATUS_ERROR;
    }

    /// What cannot be had is left out, as a parser may that does not validate. A part of the document type is then
    /// taken for empty, which lets the declarations behind it count.
    void RunExternal(XML_Parser outer, char const * context, char const * base, char const * systemId)
    {
        std::unique_ptr<xmlChar, void (*)(void *)> const url(
            systemId == nullptr ? nullptr : xmlBuildURI(BAD_CAST systemId, BAD_CAST base), xmlFree);
        std::string bytes = " ";
        bool const read = options.files && url && ReadUrl(reinterpret_cast<char const *>(url.get()), bytes);
        bool const isPartOfType = context == nullptr;
        if (!read && !isPartOfType)
        {
            return;
        }
        if (++externalDepth > deepestExternalEntity)
        {
            return Stop(
                "External entities name each other more than " + std::to_string(deepestExternalEntity) + " deep.");
        }
        std::string storage;
        std::string_view content;
        if (!DecodeDocument(bytes, storage, content, problem))
        {
            problem.reason = "In an external entity: " + problem.reason;
            return;
        }
        Parser const inner(Made(XML_ExternalEntityParserCreate(outer, context, "UTF-8")));
        XML_SetBase(inner.get(), reinterpret_cast<char const *>(url.get()));
        Run(inner.get(), content, false);
        --externalDepth;
    }

    static bool ReadUrl(char const * url, std::string & bytes)
    {
        Problem unread;
        std::string const path = NativePathInUrl(url);
        std::string content;
        bool const read = !path.empty() && ReadNativeFile(path.c_str(), content, unread);
        bytes = read ? std::move(content) : std::move(bytes);
        return read;
    }

    // Nodes ---------------------------------------------------------------------------------------------------------

    /// A name for a node to own: of the dictionary while that is small, since it slows down beyond, and else a copy.
    xmlChar * NameOf(std::string_view name)
    {
        xmlChar const * const start = BAD_CAST name.data();
        int const size = static_cast<int>(name.size());
        xmlChar const * const known = names < mostSharedNames ? Made(xmlDictLookup(document.dict, start, size))
                                                              : xmlDictExists(document.dict, start, size);
        if (names < mostSharedNames)
        {
            names = xmlDictSize(document.dict);
        }
        return known != nullptr ? const_cast<xmlChar *>(known) : Made(xmlStrndup(start, size));
    }

    void Append(xmlNode * node)
    {
        Made(node);
        node->parent = parent;
        node->prev = parent->last;
        (parent->last == nullptr ? parent->children : parent->last->next) = node;
        parent->last = node;
        XML_Size const line = XML_GetCurrentLineNumber(parser);
        node->line = static_cast<unsigned short>(std::min<XML_Size>(line, USHRT_MAX));
        if (node->type == XML_TEXT_NODE && line >= USHRT_MAX)
        {
            node->psvi = reinterpret_cast<void *>(std::uintptr_t(line)); // where libxml2 looks for large ones
        }
        XML_Size const column = XML_GetCurrentColumnNumber(parser) + 1;
        MarkNode(node, {++order, static_cast<std::uint32_t>(std::min<XML_Size>(column, INT_MAX))});
        run = node->type == XML_ELEMENT_NODE ? 0 : run + 1;
        tree->figures.longestRun = std::max(tree->figures.longestRun, run);
    }

    void AddComment(char const * content)
    {
        if (!inType)
        {
            FlushText();
            Append(xmlNewDocComment(&document, BAD_CAST content));
        }
    }

    void AddText(char const * part, int size)
    {
        if (pending.size() + static_cast<std::size_t>(size) > INT_MAX)
        {
            return Stop("A text is longer than 2 GB.");
        }
        pending.append(part, static_cast<std::size_t>(size));
    }

    void FlushText()
    {
        if (pending.empty())
        {
            return;
        }
        bool const kept = options.keepBlanks || !IsBlank(pending) || xmlNodeGetSpacePreserve(parent) == 1;
        if (kept)
        {
            Append(xmlNewDocTextLen(&document, BAD_CAST pending.data(), static_cast<int>(pending.size())));
        }
        pending.clear();
    }

    void StartSection()
    {
        FlushText();
    }
    void EndSection()
    {
        Append(xmlNewCDataBlock(&document, BAD_CAST pending.data(), static_cast<int>(pending.size())));
        pending.clear();
    }

    void AddInstruction(char const * name, char const * content)
    {
        if (std::strchr(name, ':') != nullptr)
        {
            return Stop(Quoting("The name ", name, " of an instruction has a colon."));
        }
        if (!inType)
        {
            FlushText();
            Append(xmlNewDocPI(&document, BAD_CAST name, *content == '\0' ? nullptr : BAD_CAST content));
        }
    }

    void TakeDeclaration(char const * version, int standalone)
    {
        if (version == nullptr)
        {
            return; // that of an external entity
        }
        if (std::strncmp(version, "1.", 2) != 0)
        {
            return Stop(Quoting("The version ", version, " of XML is not known."));
        }
        document.standalone = standalone < 0 ? -2 : standalone;
    }

    // Elements ------------------------------------------------------------------------------------------------------

    void StartElement(char const * name, char const ** attributes)
    {
        FlushText();
        if (++depth > deepestElement)
        {
            return Stop(
                "Elements are nested more than " + std::to_string(deepestElement) + " deep, which is not read.");
        }
        std::size_t count = 0;
        while (attributes[2 * count] != nullptr)
        {
            ++count;
        }
        tree->figures.deepest = std::max(tree->figures.deepest, depth);
        tree->figures.mostAttributes = std::max(tree->figures.mostAttributes, count);
        QualifiedName split;
        if (!Split(name, split) || !CountExpansion(attributes, count))
        {
            return;
        }
        xmlNode * const element = xmlNewDocNodeEatName(&document, nullptr, NameOf(split.local), nullptr);
        Append(element);
        parent = element;
        spaces.Open();
        std::string wrong;
        for (std::size_t i = 0; i < count && wrong.empty(); ++i)
        {
            wrong = spaces.Declare(*element, attributes[2 * i], attributes[2 * i + 1]);
        }
        tree->figures.mostNamespaces = std::max(tree->figures.mostNamespaces, spaces.Count());
        if (!wrong.empty() || !spaces.Find(*element, split, true, element->ns))
        {
            return Stop(wrong.empty() ? UndeclaredPrefix(split) : wrong);
        }
        AddAttributes(*element, attributes, count);
    }

    bool Split(char const * name, QualifiedName & split)
    {
        bool const good = split.Take(name);
        if (!good)
        {
            Stop(Quoting("The colons in the name ", name, " do not part a prefix from a name."));
        }
        return good;
    }

    static std::string UndeclaredPrefix(QualifiedName const & name)
    {
        return Quoting("The prefix ", name.prefix, " is not declared.");
    }

    /// Defaults come with each element, however short that is written.
    bool CountExpansion(char const ** attributes, std::size_t count)
    {
        auto const written = static_cast<std::size_t>(XML_GetSpecifiedAttributeCount(parser)) / 2;
        for (std::size_t i = written; i < count; ++i)
        {
            defaults += defaultAttributeSize + std::strlen(attributes[2 * i + 1]);
        }
        bool const good = defaults <= freeExpansion * 8 + text.size() * 64;
        if (!good)
        {
            Stop("The default attributes take more memory than the size of the document warrants.");
        }
        return good;
    }

    void AddAttributes(xmlNode & element, char const ** attributes, std::size_t count)
    {
        auto const identifier = static_cast<std::size_t>(XML_GetIdAttributeIndex(parser)) / 2;
        std::vector<std::pair<Namespaces::Identity, std::string_view>> prefixed;
        xmlAttr * last = nullptr;
        for (std::size_t i = 0; i < count; ++i)
        {
            char const * const name = attributes[2 * i];
            if (IsDeclaration(name))
            {
                continue;
            }
            QualifiedName split;
            xmlNs * space = nullptr;
            if (!Split(name, split))
            {
                return;
            }
            if (!spaces.Find(element, split, false, space))
            {
                return Stop(UndeclaredPrefix(split));
            }
            last = AddAttribute(element, last, space, split.local, attributes[2 * i + 1]);
            if (space != nullptr)
            {
                prefixed.emplace_back(spaces.IdentityOf(*space), split.local);
            }
            if (i == identifier || std::strcmp(name, "xml:id") == 0)
            {
                last->atype = XML_ATTRIBUTE_ID;
            }
        }
        std::sort(prefixed.begin(), prefixed.end());
        if (std::adjacent_find(prefixed.begin(), prefixed.end()) != prefixed.end())
        {
            Stop("The element has an attribute twice, by prefixes of the same namespace.");
        }
    }

    xmlAttr * AddAttribute(xmlNode & element, xmlAttr * last, xmlNs * space, std::string_view name, char const * value)
    {
        xmlAttr * const attribute = Made(xmlNewNsPropEatName(nullptr, space, NameOf(name), BAD_CAST value));
        attribute->doc = &document;
        attribute->parent = &element;
        attribute->prev = last;
        (last == nullptr ? element.properties : last->next) = attribute;
        Made(attribute->children)->doc = &document;
        attribute->_private = NodeMark{++order, 0}.Value();
        return attribute;
    }

    void EndElement()
    {
        FlushText();
        run = 0;
        spaces.Close();
        parent = parent->parent;
        --depth;
    }

    // The document type -----------------------------------------------------------------------------------------------

    void StartType(char const * name, char const * systemId, char const * publicId, bool hasSubset)
    {
        Made(xmlCreateIntSubset(&document, BAD_CAST name, BAD_CAST publicId, BAD_CAST systemId));
        MarkNode(reinterpret_cast<xmlNode *>(document.intSubset), {++order, 0});
        inType = true;
        subsetStart = hasSubset ? XML_GetCurrentByteIndex(parser) : -1;
    }

    /// The subset is kept as it was written. What stands in it has become entities and default attributes already.
    void EndType()
    {
        inType = false;
        XML_Index const end = XML_GetCurrentByteIndex(parser);
        if (subsetStart >= 0 && end > subsetStart && static_cast<std::size_t>(end) <= text.size())
        {
            std::string_view subset =
                text.substr(static_cast<std::size_t>(subsetStart), static_cast<std::size_t>(end - subsetStart));
            subset = subset.substr(0, subset.rfind(']') + 1);
            tree->declarations.reserve(subset.size());
            for (std::size_t at = 0; at < subset.size(); ++at)
            {
                bool const pair = subset[at] == '\r' && at + 1 < subset.size() && subset[at + 1] == '\n';
                tree->declarations += pair ? "" : std::string(1, subset[at] == '\r' ? '\n' : subset[at]);
            }
        }
        if (nesting.Depth() > EntityNesting::deepest)
        {
            Stop("Entities refer to each other more than " + std::to_string(EntityNesting::deepest) + " deep.");
        }
    }

    void DeclareEntity(char const * name, bool isParameter, std::string_view value)
    {
        if (isParameter)
        {
            referring += value.find('%') != std::string_view::npos ? 1 : 0;
            if (referring > mostReferringParameterEntities)
            {
                Stop(
                    "More than " + std::to_string(mostReferringParameterEntities) +
                    " parameter entities refer to others.");
            }
            return;
        }
        CheckColon(name);
        nesting.Add(name, value);
    }

    void DeclareUnparsed(char const * name, char const * systemId, char const * publicId, char const * notation)
    {
        CheckColon(name);
        xmlEntity * const entity = notation == nullptr
            ? nullptr
            : xmlAddDocEntity(
                  &document, BAD_CAST name, XML_EXTERNAL_GENERAL_UNPARSED_ENTITY, BAD_CAST publicId, BAD_CAST systemId,
                  BAD_CAST notation);
        if (entity != nullptr && entity->URI == nullptr && systemId != nullptr)
        {
            entity->URI = Made(xmlBuildURI(BAD_CAST systemId, document.URL));
        }
    }

    void CheckColon(char const * name)
    {
        if (std::strchr(name, ':') != nullptr)
        {
            Stop(Quoting("The name ", name, " of an entity has a colon."));
        }
    }

    void CountDefault(char const * element)
    {
        if (++defaultCounts[element] > mostDefaultAttributes)
        {
            Stop(
                std::string("The element type ") + element + " has more than " + std::to_string(mostDefaultAttributes) +
                " default attributes.");
        }
    }

    LoadOptions const & options;
    std::string_view const text;
    SharedTree const tree;
    xmlDoc & document;
    xmlNode * parent;
    XML_Parser parser = nullptr; ///< that runs
    Namespaces spaces;
    std::string pending; ///< the text since the last node
    std::size_t depth = 0;
    std::uint32_t order = 0;
    std::size_t run = 0;
    std::size_t defaults = 0;
    int externalDepth = 0;
    int names = 0;       ///< in the dictionary
    bool inType = false; ///< whose comments and instructions are no nodes
    XML_Index subsetStart = -1;
    EntityNesting nesting;
    unsigned referring = 0;
    std::map<std::string, unsigned, std::less<>> defaultCounts;
    Problem problem;
    std::exception_ptr failure;
};

} // namespace

SharedTree BuildTree(std::string_view text, char const * url, LoadOptions const & options, Problem & problem)
{
    return Builder(options, text).Build(url, problem);
}

} // namespace kv::platform
