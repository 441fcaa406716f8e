// XPath.

#include <climits>
#include <memory>

#include <libxml/xpath.h>
#include <libxml/xpathInternals.h>

#include "Document.h"

namespace kv::platform
{

namespace
{

/// What one expression may do, so that a bad one ends: about a minute's work.
constexpr unsigned long mostOperations = 2000000000;
constexpr std::size_t longestExpression = 0x10000;

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

HRESULT Evaluate(NodeAccess & from, BSTR expression, Which which, std::vector<xmlNode *> & nodes)
{
    std::string const text = Utf8Of(expression);
    if (expression == nullptr || text.size() > longestExpression)
    {
        return E_INVALIDARG;
    }
    LibraryScope const scope(false);
    Context const context = ContextFor(from);
    Compiled compiled(xmlXPathCtxtCompile(context.get(), BAD_CAST text.c_str()));
    if (!compiled)
    {
        return Fail(scope);
    }
    if (which == Which::First)
    {
        // libxml2 stops at the first node then.
        Compiled first(xmlXPathCtxtCompile(context.get(), BAD_CAST("(" + text + ")[1]").c_str()));
        compiled = first ? std::move(first) : std::move(compiled);
    }
    Result const result(from.Here() == nullptr ? nullptr : xmlXPathCompiledEval(compiled.get(), context.get()));
    if (from.Here() != nullptr && (!result || result->type != XPATH_NODESET))
    {
        return Fail(scope);
    }
    if (result)
    {
        xmlXPathNodeSetSort(result->nodesetval);
        nodes = NodesIn(result->nodesetval);
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
