#pragma once

#include <string>
#include <utility>
#include <vector>

#include "Nodes.h"

namespace kv::platform
{

/// A document as the outside sees it: what was loaded, how that went, and the settings.
class Document final : public NodeObject<IXMLDOMDocument2>
{
public:
    using Prefixes = std::vector<std::pair<std::string, std::string>>; ///< prefix, URI

    xmlNode * Here() const override
    {
        return reinterpret_cast<xmlNode *>(tree->document);
    }
    SharedTree const & TreeOf() const override
    {
        return tree;
    }
    Document & Owner() override
    {
        return *this;
    }
    Prefixes const & SelectionPrefixes() const
    {
        return prefixes;
    }
    bool MayReadFiles() const
    {
        return options.files;
    }
    /// Puts another document into this object. Objects of the one before keep it.
    void Replace(SharedTree newTree);
    /// Loads bytes, in the encoding that they declare.
    void LoadBytes(std::string const & bytes);

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void ** object) override;
    ULONG STDMETHODCALLTYPE AddRef() override;
    ULONG STDMETHODCALLTYPE Release() override;

    HRESULT STDMETHODCALLTYPE get_documentElement(IXMLDOMElement ** element) override;
    HRESULT STDMETHODCALLTYPE load(VARIANT source, VARIANT_BOOL * loaded) override;
    HRESULT STDMETHODCALLTYPE get_readyState(LONG * state) override;
    HRESULT STDMETHODCALLTYPE get_parseError(IXMLDOMParseError ** error) override;
    HRESULT STDMETHODCALLTYPE get_url(BSTR * target) override;
    HRESULT STDMETHODCALLTYPE get_async(VARIANT_BOOL * async) override;
    HRESULT STDMETHODCALLTYPE put_async(VARIANT_BOOL async) override;
    HRESULT STDMETHODCALLTYPE loadXML(BSTR text, VARIANT_BOOL * loaded) override;
    HRESULT STDMETHODCALLTYPE get_validateOnParse(VARIANT_BOOL * validates) override;
    HRESULT STDMETHODCALLTYPE put_validateOnParse(VARIANT_BOOL validates) override;
    HRESULT STDMETHODCALLTYPE get_resolveExternals(VARIANT_BOOL * resolve) override;
    HRESULT STDMETHODCALLTYPE put_resolveExternals(VARIANT_BOOL resolve) override;
    HRESULT STDMETHODCALLTYPE get_preserveWhiteSpace(VARIANT_BOOL * preserve) override;
    HRESULT STDMETHODCALLTYPE put_preserveWhiteSpace(VARIANT_BOOL preserve) override;
    HRESULT STDMETHODCALLTYPE get_schemas(VARIANT * target) override;
    HRESULT STDMETHODCALLTYPE putref_schemas(VARIANT source) override;
    HRESULT STDMETHODCALLTYPE validate(IXMLDOMParseError ** error) override;
    HRESULT STDMETHODCALLTYPE setProperty(BSTR name, VARIANT value) override;
    HRESULT STDMETHODCALLTYPE getProperty(BSTR name, VARIANT * value) override;

private:
    ~Document() = default;

    HRESULT Take(SharedTree newTree, Problem newProblem, VARIANT_BOOL * loaded);

    HRESULT STDMETHODCALLTYPE slot_get_doctype() override
    {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE slot_get_implementation() override
    {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE slot_putref_documentElement() override
    {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE slot_createElement() override
    {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE slot_createDocumentFragment() override
    {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE slot_createTextNode() override
    {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE slot_createComment() override
    {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE slot_createCDATASection() override
    {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE slot_createProcessingInstruction() override
    {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE slot_createAttribute() override
    {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE slot_createEntityReference() override
    {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE slot_getElementsByTagName() override
    {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE slot_createNode() override
    {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE slot_nodeFromID() override
    {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE slot_abort() override
    {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE slot_save() override
    {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE slot_put_onreadystatechange() override
    {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE slot_put_ondataavailable() override
    {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE slot_put_ontransformnode() override
    {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE slot_get_namespaces() override
    {
        return E_NOTIMPL;
    }

    std::atomic<ULONG> references{1};
    SharedTree tree = std::make_shared<Tree>(nullptr, false);
    Problem problem;
    LoadOptions options;
    std::u16string url;
    Prefixes prefixes;
    std::string prefixText; ///< as they were set
    Reference<IXMLDOMSchemaCollection> schemas;
};

/// Stores an object that tells of a problem.
HRESULT GiveProblem(Problem problem, IXMLDOMParseError ** target);

/// Checks a document by a collection made here; the problem's code is 0 if it follows. In Schemas.cpp.
Problem ProblemBySchemas(IXMLDOMSchemaCollection & schemas, SharedTree const & tree);
/// A new collection.
IUnknown * NewSchemaCollection();

/// A stream into the document. In DocumentStream.cpp.
HRESULT GiveStream(Document & document, void ** target);

} // namespace kv::platform
