// XPath.

#include <algorithm>
#include <chrono>
#include <climits>
#include <memory>
#include <mutex>
#include <optional>

#include <libxml/xpath.h>
#include <libxml/xpathInternals.h>

#include <kvcore/platform/StackSpace.h>

#include "Document.h"
#include "LibraryScope.h"
#include "PlainPath.h"
#include "WorkLimits.h"

namespace kv::platform
{

namespace
{

/// What one expression may do, so that a bad one ends.
constexpr unsigned long mostOperations = 2000000000;
constexpr std::chrono::seconds longestTime{20}; ///< of the processor
constexpr std::size_t longestExpression = 0x10000;
/// The library looks for each namespace among those before it.
constexpr std::size_t mostNamespaces = 2000;
/// From here on its comparisons of neighbours, which walk from one to the other, are avoided.
constexpr std::size_t longRun = 1000;

template <auto free>
struct Deleter
{
    template <typename Object>
    void operator()(Object * object) const
    {
        free(object);
    }
};
using Context = std::unique_ptr<xmlXPathContext, Deleter<xmlXPathFreeContext>>;
using Compiled = std::unique_ptr<xmlXPathCompExpr, Deleter<xmlXPathFreeCompExpr>>;
using Result = std::unique_ptr<xmlXPathObject, Deleter<xmlXPathFreeObject>>;

Context ContextFor(NodeAccess & from)
{
    Context context(xmlXPathNewContext(from.TreeOf()->document));
    if (!context)
    {
        throw std::bad_alloc();
    }
    context->node = from.Here();
    context->opLimit = mostOperations;
    for (auto const & [prefix, uri] : from.Owner().SelectionPrefixes())
    {
        xmlXPathRegisterNs(context.get(), BAD_CAST prefix.c_str(), BAD_CAST uri.c_str());
    }
    return context;
}

HRESULT Fail(LibraryScope const & scope)
{
    return FailWithReport(E_FAIL, scope.HasProblem() ? scope.FirstProblem().reason : "The path selects no nodes.");
}

/// The selected nodes, without those that stand for namespaces, which are no nodes of the document.
std::vector<xmlNode *> NodesIn(xmlNodeSet const * set)
{
    std::vector<xmlNode *> nodes;
    for (int i = 0; set != nullptr && i < set->nodeNr; ++i)
    {
        if (set->nodeTab[i]->type != XML_NAMESPACE_DECL)
        {
            nodes.push_back(set->nodeTab[i]);
        }
    }
    return nodes;
}

enum class Which
{
    All,
    First
};

/// Holds the nodes that a path selects. The library sorts what an expression selects by comparisons that cost as much
/// as there are nodes between two, except for what is only counted: so the path is counted, and its nodes are kept.
struct Collector
{
    Result kept;

    static void Count(xmlXPathParserContext * parser, int arguments)
    {
        if (arguments != 1)
        {
            xmlXPathErr(parser, XPATH_INVALID_ARITY);
            return;
        }
        Result set(valuePop(parser));
        if (!set || (set->type != XPATH_NODESET && set->type != XPATH_XSLT_TREE))
        {
            xmlXPathErr(parser, XPATH_INVALID_TYPE);
            return;
        }
        int const count = set->nodesetval == nullptr ? 0 : set->nodesetval->nodeNr;
        static_cast<Collector *>(parser->context->funcLookupData)->kept = std::move(set); // the last is the outermost
        valuePush(parser, xmlXPathNewFloat(count));
    }
    static xmlXPathFunction Find(void *, xmlChar const * name, xmlChar const * uri)
    {
        return uri == nullptr && xmlStrEqual(name, BAD_CAST "count") ? Count : nullptr;
    }
};

std::vector<xmlNode *> InOrder(std::vector<xmlNode *> nodes)
{
    std::sort(
        nodes.begin(), nodes.end(),
        [](xmlNode const * a, xmlNode const * b) { return NodeMark::Of(a).order < NodeMark::Of(b).order; });
    return nodes;
}

/// The library calls itself for what is nested: twelve calls deep for each bracket, once for each operation.
bool FitsStack(std::string const & text)
{
    auto const brackets =
        static_cast<std::size_t>(std::count_if(text.begin(), text.end(), [](char c) { return c == '(' || c == '['; }));
    std::size_t const needed =
        std::min<std::size_t>(brackets, 500) * 3000 + std::min<std::size_t>(text.size(), 5000) * 500 + 0x4000;
    return needed < StackBytesLeft();
}

HRESULT EvaluateByLibrary(NodeAccess & from, std::string const & text, Which which, std::vector<xmlNode *> & nodes)
{
    TreeFigures const & figures = from.TreeOf()->figures;
    if (figures.mostNamespaces > mostNamespaces && text.find("namespace") != std::string::npos)
    {
        return FailWithReport(E_FAIL, "The document declares too many namespaces for a path that selects them.");
    }
    if (!FitsStack(text))
    {
        return FailWithReport(E_FAIL, "The path is nested too deep for the stack of this thread.");
    }
    LibraryScope const scope(false);
    Context const context = ContextFor(from);
    if (!Compiled(xmlXPathCtxtCompile(context.get(), BAD_CAST('(' + text + ')').c_str())))
    {
        return Fail(scope);
    }
    if (from.Here() == nullptr)
    {
        return S_OK;
    }
    if (text.find("id") != std::string::npos)
    {
        SharedTree const & tree = from.TreeOf();
        std::call_once(tree->identified, RegisterIdentifiers, *tree->document);
    }
    Collector collector;
    xmlXPathRegisterFuncLookup(context.get(), Collector::Find, &collector);
    // The library stops at the first node for "[1]".
    bool const stops = which == Which::First && figures.longestRun < longRun;
    std::string const counted = stops ? "count((" + text + ")[1])" : "count(" + text + ')';
    Compiled const compiled(xmlXPathCtxtCompile(context.get(), BAD_CAST counted.c_str()));
    StopSwitch const stop({&context->opCount, mostOperations});
    TimeLimit const limit(longestTime, stop);
    Result const result(compiled ? xmlXPathCompiledEval(compiled.get(), context.get()) : nullptr);
    if (!result)
    {
        bool const isValue = context->lastError.code == XML_XPATH_INVALID_TYPE;
        return isValue           ? FailWithReport(E_FAIL, "The path selects no nodes.")
            : limit.WasReached() ? FailWithReport(E_FAIL, "The path takes too long on this document.")
                                 : Fail(scope);
    }
    nodes = InOrder(NodesIn(collector.kept->nodesetval));
    return S_OK;
}

HRESULT Evaluate(NodeAccess & from, BSTR expression, Which which, std::vector<xmlNode *> & nodes)
{
    std::string const text = Utf8Of(expression);
    if (expression == nullptr || text.size() > longestExpression)
    {
        return E_INVALIDARG;
    }
    std::optional<PlainPath> const plain = PlainPath::Parse(text, from.Owner().SelectionPrefixes());
    if (!plain)
    {
        return EvaluateByLibrary(from, text, which, nodes);
    }
    if (from.Here() != nullptr)
    {
        nodes = plain->Select(*from.Here(), *from.TreeOf()->document, which == Which::First);
    }
    return S_OK;
}

} // namespace

HRESULT Select(NodeAccess & from, BSTR expression, IXMLDOMNodeList ** target)
{
    if (target == nullptr)
    {
        return E_INVALIDARG;
    }
    *target = nullptr;
    std::vector<xmlNode *> nodes;
    HRESULT const result = Evaluate(from, expression, Which::All, nodes);
    return FAILED(result) ? result : GiveList(from.Owner(), from.TreeOf(), std::move(nodes), target);
}

HRESULT SelectFirst(NodeAccess & from, BSTR expression, IXMLDOMNode ** target)
{
    if (target == nullptr)
    {
        return E_INVALIDARG;
    }
    *target = nullptr;
    std::vector<xmlNode *> nodes;
    HRESULT const result = Evaluate(from, expression, Which::First, nodes);
    return FAILED(result) ? result
                          : GiveNode(from.Owner(), from.TreeOf(), nodes.empty() ? nullptr : nodes.front(), target);
}

} // namespace kv::platform
