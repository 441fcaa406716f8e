// XSLT.

#include <algorithm>
#include <chrono>
#include <cstring>
#include <memory>
#include <string>

#include <libxslt/security.h>
#include <libxslt/transform.h>
#include <libxslt/xsltInternals.h>
#include <libxslt/xsltutils.h>

#include <kvcore/platform/StackSpace.h>

#include "Document.h"
#include "LibraryScope.h"
#include "StyleSheetPaths.h"
#include "WorkLimits.h"

namespace kv::platform
{

namespace
{

/// What one transformation may do, so that a bad one ends.
constexpr unsigned long mostInstructions = 500000000;
constexpr unsigned long mostPathOperations = 4000000000;
constexpr std::chrono::seconds longestTime{60};
/// Memory: so much, and so many times what the document and the style sheet take.
constexpr std::size_t freeMemory = 64 << 20;
constexpr std::size_t memoryFactor = 16;
/// Where the library's cost grows with the square, and it counts nothing.
constexpr std::size_t mostAttributes = 10000;
constexpr std::size_t mostNamespaces = 2000;
constexpr std::size_t longestRun = 20000;
constexpr std::size_t mostElements = 100000; ///< of a style sheet
constexpr double mostPatternSteps = 2e9;
/// The stack that the library takes for each template within another, and for each variable made of others.
constexpr std::size_t stackOfTemplate = 2500;
constexpr std::size_t stackOfVariable = 4000;
constexpr std::size_t leastStack = 0x20000;
constexpr int mostTemplates = 3000;

struct Freeing
{
    void operator()(xmlDoc * document) const
    {
        xmlFreeDoc(document);
    }
    void operator()(xsltStylesheet * stylesheet) const
    {
        xsltFreeStylesheet(stylesheet);
    }
    void operator()(xsltTransformContext * context) const
    {
        xsltFreeTransformContext(context);
    }
    void operator()(xsltSecurityPrefs * rules) const
    {
        xsltFreeSecurityPrefs(rules);
    }
};
using DocumentPointer = std::unique_ptr<xmlDoc, Freeing>;
using Stylesheet = std::unique_ptr<xsltStylesheet, Freeing>;

/// A document of its own of the node: libxslt changes what it works with.
DocumentPointer CopyOf(NodeAccess const & access)
{
    xmlNode * const node = access.Here();
    switch (node == nullptr ? NODE_INVALID : TypeOf(node))
    {
    case NODE_DOCUMENT:
        return DocumentPointer(CopyDocument(*access.TreeOf()->document));
    case NODE_ELEMENT:
    case NODE_TEXT:
    case NODE_CDATA_SECTION:
    case NODE_COMMENT:
    case NODE_PROCESSING_INSTRUCTION:
        return DocumentPointer(CopyNode(*node, AllFromAbove(*node)));
    default:
        return nullptr;
    }
}

Stylesheet Compile(DocumentPointer source)
{
    Stylesheet stylesheet(xsltParseStylesheetDoc(source.get()));
    if (stylesheet)
    {
        source.release(); // which the style sheet owns from here on
    }
    return stylesheet && stylesheet->errors == 0 ? std::move(stylesheet) : nullptr;
}

bool ForbidFilesAndNetwork(xsltSecurityPrefs & rules, xsltTransformContext & context, bool mayRead)
{
    for (xsltSecurityOption const option :
         {XSLT_SECPREF_WRITE_FILE, XSLT_SECPREF_CREATE_DIRECTORY, XSLT_SECPREF_READ_NETWORK,
          XSLT_SECPREF_WRITE_NETWORK})
    {
        if (xsltSetSecurityPrefs(&rules, option, xsltSecurityForbid) != 0)
        {
            return false;
        }
    }
    return (mayRead || xsltSetSecurityPrefs(&rules, XSLT_SECPREF_READ_FILE, xsltSecurityForbid) == 0) &&
        xsltSetCtxtSecurityPrefs(&rules, &context) == 0;
}

/// Why a document is not taken for a transformation; empty if it is.
std::string ReasonAgainst(TreeFigures const & figures)
{
    if (figures.mostAttributes > mostAttributes)
    {
        return "An element has more than " + std::to_string(mostAttributes) +
            " attributes, which is more than style sheets work on.";
    }
    if (figures.mostNamespaces > mostNamespaces)
    {
        return "More than " + std::to_string(mostNamespaces) +
            " namespaces are declared for an element, which is more than style sheets work on.";
    }
    return figures.longestRun > longestRun ? "More than " + std::to_string(longestRun) +
            " texts, comments and instructions follow each other, which is more than style sheets work on."
                                           : std::string();
}

/// The same of a style sheet and what it is to work on. A pattern is tried with every way up from a node.
std::string ReasonAgainst(StyleSheetFigures const & styleSheet, TreeFigures const & source)
{
    double ways = static_cast<double>(source.nodes);
    for (std::size_t i = 0; i < styleSheet.deepSteps; ++i)
    {
        ways *= std::max(1.0, static_cast<double>(source.deepest - std::min(source.deepest, i)) / double(i + 1));
    }
    if (styleSheet.deepSteps > 1 && ways > mostPatternSteps)
    {
        return "A pattern has " + std::to_string(styleSheet.deepSteps) +
            " steps of any depth, which takes too long on a document this deep.";
    }
    if (styleSheet.elements > mostElements)
    {
        return "The style sheet has more than " + std::to_string(mostElements) + " elements.";
    }
    if (StackBytesLeft() < leastStack + styleSheet.dependentVariables * stackOfVariable)
    {
        return "The stack of this thread is too small for the style sheet.";
    }
    return {};
}

int MostTemplates()
{
    std::size_t const left = StackBytesLeft();
    std::size_t const fit = (left - std::min(left, leastStack / 2)) / stackOfTemplate;
    return static_cast<int>(std::min<std::size_t>(mostTemplates, fit));
}

DocumentPointer
Apply(xsltStylesheet & stylesheet, xmlDoc & source, bool mayRead, MemoryLimit & memory, std::string & reason)
{
    std::unique_ptr<xsltSecurityPrefs, Freeing> const rules(xsltNewSecurityPrefs());
    std::unique_ptr<xsltTransformContext, Freeing> const context(xsltNewTransformContext(&stylesheet, &source));
    if (!rules || !context || !ForbidFilesAndNetwork(*rules, *context, mayRead))
    {
        return nullptr;
    }
    context->opLimit = mostInstructions;
    context->xpathCtxt->opLimit = mostPathOperations;
    context->maxTemplateDepth = MostTemplates();
    StopSwitch const stop({&context->opCount, mostInstructions}, {&context->xpathCtxt->opCount, mostPathOperations});
    memory.Set(freeMemory + memoryFactor * memory.Held(), stop);
    TimeLimit const time(longestTime, stop);
    DocumentPointer result(xsltApplyStylesheetUser(&stylesheet, &source, nullptr, nullptr, nullptr, context.get()));
    reason = memory.WasReached() ? "The style sheet takes more memory than its document warrants."
        : time.WasReached()      ? "The style sheet takes too long."
                                 : "";
    return context->state == XSLT_STATE_OK && reason.empty() ? std::move(result) : nullptr;
}

/// The result, with the style sheet that says how it is written.
struct Transformed
{
    Stylesheet stylesheet;
    DocumentPointer result;
};

Transformed Run(NodeAccess & source, NodeAccess & styleSheet, std::string & reason)
{
    MemoryLimit memory;
    Transformed done;
    TreeFigures const & figures = source.TreeOf()->figures;
    reason = ReasonAgainst(figures);
    reason = reason.empty() ? ReasonAgainst(styleSheet.TreeOf()->figures) : reason;
    DocumentPointer copy = reason.empty() ? CopyOf(source) : nullptr;
    DocumentPointer rules = copy ? CopyOf(styleSheet) : nullptr;
    if (!rules)
    {
        return done;
    }
    StyleSheetFigures const rulesFigures = PrepareStyleSheet(*rules);
    reason = ReasonAgainst(rulesFigures, figures);
    if (rulesFigures.asksForIdentifiers)
    {
        RegisterIdentifiers(*copy);
    }
    done.stylesheet = reason.empty() ? Compile(std::move(rules)) : nullptr;
    if (done.stylesheet)
    {
        done.result = Apply(*done.stylesheet, *copy, styleSheet.TreeOf()->files, memory, reason);
    }
    return done;
}

Transformed Run(NodeAccess & source, IXMLDOMNode * object)
{
    Reference<NodeAccess> const access = AccessTo(object);
    if (!access)
    {
        return {};
    }
    LibraryScope const scope(access->TreeOf()->files);
    std::string reason;
    Transformed done = Run(source, *access.Get(), reason);
    if (!done.result)
    {
        std::string const told = scope.HasProblem() ? scope.FirstProblem().reason : "The transformation failed.";
        FailWithReport(E_FAIL, reason.empty() ? told : reason);
    }
    return done;
}

} // namespace

HRESULT Transform(NodeAccess & source, IXMLDOMNode * stylesheet, BSTR * target)
{
    if (target == nullptr || stylesheet == nullptr)
    {
        return E_INVALIDARG;
    }
    *target = nullptr;
    Transformed done = Run(source, stylesheet);
    if (!done.result)
    {
        return E_FAIL;
    }
    // The result is a text, and not in the encoding that the style sheet asks for.
    xmlFree(done.stylesheet->encoding);
    done.stylesheet->encoding = xmlStrdup(BAD_CAST "UTF-8");
    xmlChar * text = nullptr;
    int length = 0;
    if (xsltSaveResultToString(&text, &length, done.result.get(), done.stylesheet.get()) != 0)
    {
        return E_OUTOFMEMORY;
    }
    std::unique_ptr<xmlChar, void (*)(void *)> const owned(text, xmlFree);
    *target = NewText(text == nullptr ? "" : reinterpret_cast<char const *>(text), static_cast<std::size_t>(length));
    return S_OK;
}

HRESULT Transform(NodeAccess & source, IXMLDOMNode * stylesheet, VARIANT const & output)
{
    Reference<NodeAccess> const target = AccessTo(ObjectIn(output));
    if (!target || &target->Owner() != static_cast<NodeAccess *>(target.Get()) || stylesheet == nullptr)
    {
        return E_INVALIDARG;
    }
    Transformed done = Run(source, stylesheet);
    if (!done.result)
    {
        return E_FAIL;
    }
    SharedTree tree = std::make_shared<Tree>(done.result.get(), false);
    done.result.release();
    tree->figures = NumberNodes(*tree->document);
    target->Owner().Replace(std::move(tree));
    return S_OK;
}

} // namespace kv::platform
