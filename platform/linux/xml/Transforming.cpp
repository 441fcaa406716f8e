// XSLT.

#include <cstring>
#include <memory>

#include <libxslt/security.h>
#include <libxslt/transform.h>
#include <libxslt/xsltInternals.h>
#include <libxslt/xsltutils.h>

#include "Document.h"

namespace kv::platform
{

namespace
{

/// What one transformation may do, so that a bad one ends.
constexpr unsigned long mostOperations = 500000000;

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
    if (node == nullptr)
    {
        return nullptr;
    }
    if (TypeOf(node) == NODE_DOCUMENT)
    {
        return DocumentPointer(xmlCopyDoc(access.TreeOf()->document, 1));
    }
    DocumentPointer document(xmlNewDoc(BAD_CAST "1.0"));
    xmlNode * const copy = document ? xmlDocCopyNode(node, document.get(), 1) : nullptr;
    if (copy == nullptr || TypeOf(node) == NODE_ATTRIBUTE)
    {
        return nullptr;
    }
    xmlDocSetRootElement(document.get(), copy);
    return document;
}

Stylesheet Compile(NodeAccess const & access)
{
    DocumentPointer source = CopyOf(access);
    if (!source)
    {
        return nullptr;
    }
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

DocumentPointer Apply(xsltStylesheet & stylesheet, xmlDoc & source, bool mayRead)
{
    std::unique_ptr<xsltSecurityPrefs, Freeing> const rules(xsltNewSecurityPrefs());
    std::unique_ptr<xsltTransformContext, Freeing> const context(xsltNewTransformContext(&stylesheet, &source));
    if (!rules || !context || !ForbidFilesAndNetwork(*rules, *context, mayRead))
    {
        return nullptr;
    }
    context->opLimit = mostOperations;
    DocumentPointer result(xsltApplyStylesheetUser(&stylesheet, &source, nullptr, nullptr, nullptr, context.get()));
    return context->state == XSLT_STATE_OK ? std::move(result) : nullptr;
}

/// The result, with the style sheet that says how it is written.
struct Transformed
{
    Stylesheet stylesheet;
    DocumentPointer result;
};

Transformed Run(NodeAccess & source, IXMLDOMNode * object)
{
    Reference<NodeAccess> const access = AccessTo(object);
    Transformed done;
    if (!access)
    {
        return done;
    }
    bool const files = access->TreeOf()->files;
    LibraryScope const scope(files);
    DocumentPointer const copy = CopyOf(source);
    done.stylesheet = copy ? Compile(*access.Get()) : nullptr;
    if (done.stylesheet)
    {
        done.result = Apply(*done.stylesheet, *copy, files);
    }
    if (!done.result)
    {
        FailWithReport(E_FAIL, scope.HasProblem() ? scope.FirstProblem().reason : "The transformation failed.");
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
    target->Owner().Replace(std::move(tree));
    return S_OK;
}

} // namespace kv::platform
