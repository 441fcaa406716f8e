// XML schemas.

#include <climits>
#include <memory>
#include <vector>

#include <libxml/schemasInternals.h>
#include <libxml/xmlschemas.h>

#include "Document.h"
#include "LibraryScope.h"

namespace kv::platform
{

namespace
{

struct Freeing
{
    void operator()(xmlDoc * document) const
    {
        xmlFreeDoc(document);
    }
    void operator()(xmlSchemaParserCtxt * context) const
    {
        xmlSchemaFreeParserCtxt(context);
    }
    void operator()(xmlSchemaValidCtxt * context) const
    {
        xmlSchemaFreeValidCtxt(context);
    }
    void operator()(xmlSchema * schema) const
    {
        xmlSchemaFree(schema);
    }
};

/// A compiled schema, over a document of its own: compiling changes that.
struct Entry
{
    std::string uri;
    std::unique_ptr<xmlDoc, Freeing> source;
    std::unique_ptr<xmlSchema, Freeing> schema;
};

IID const IID_SchemaAccess = {0x5C2E4A12, 0x93D7, 0x4B60, {0x8E, 0x1F, 0x27, 0x6A, 0x0B, 0x9D, 0x44, 0xC3}};

class SchemaCollection final : public Counted<IXMLDOMSchemaCollection>, private ISupportErrorInfo
{
public:
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void ** object) override
    {
        if (object != nullptr && iid == IID_ISupportErrorInfo)
        {
            *object = static_cast<ISupportErrorInfo *>(this);
            AddRef();
            return S_OK;
        }
        return Answer(iid, iid == IID_SchemaAccess ? IID_SchemaAccess : IID_IXMLDOMSchemaCollection, object);
    }
    ULONG STDMETHODCALLTYPE AddRef() override
    {
        return Counted::AddRef();
    }
    ULONG STDMETHODCALLTYPE Release() override
    {
        return Counted::Release();
    }
    HRESULT STDMETHODCALLTYPE InterfaceSupportsErrorInfo(REFIID) override
    {
        return S_OK;
    }

    HRESULT STDMETHODCALLTYPE add(BSTR uri, VARIANT schema) override
    {
        return Guarded([&] { return schema.vt == VT_NULL ? remove(uri) : Add(Utf8Of(uri), schema); });
    }
    HRESULT STDMETHODCALLTYPE remove(BSTR uri) override
    {
        return Guarded(
            [&]
            {
                std::string const name = Utf8Of(uri);
                std::erase_if(entries, [&](Entry const & entry) { return entry.uri == name; });
                return S_OK;
            });
    }
    HRESULT STDMETHODCALLTYPE get_length(LONG * length) override
    {
        if (length == nullptr)
        {
            return E_INVALIDARG;
        }
        *length = static_cast<LONG>(entries.size());
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE get_namespaceURI(LONG index, BSTR * uri) override
    {
        if (index < 0 || static_cast<std::size_t>(index) >= entries.size())
        {
            return E_FAIL;
        }
        return Guarded([&] { return GiveText(entries[static_cast<std::size_t>(index)].uri.c_str(), uri); });
    }

    xmlSchema * Find(std::string const & uri) const
    {
        for (Entry const & entry : entries)
        {
            if (entry.uri == uri)
            {
                return entry.schema.get();
            }
        }
        return nullptr;
    }

private:
    HRESULT Add(std::string const & uri, VARIANT const & value)
    {
        SharedTree tree;
        Problem problem;
        if (value.vt == VT_BSTR)
        {
            tree = LoadFile(value.bstrVal == nullptr ? u"" : value.bstrVal, {true, true, false}, problem);
        }
        else if (Reference<NodeAccess> const access = AccessTo(ObjectIn(value)))
        {
            tree = access->TreeOf();
        }
        if (!tree || tree->document == nullptr)
        {
            return problem.code == 0 ? E_INVALIDARG : FailWithReport(E_FAIL, problem.reason);
        }
        return Compile(uri, *tree);
    }

    HRESULT Compile(std::string const & uri, Tree const & tree)
    {
        LibraryScope const scope(tree.files);
        Entry entry{uri, std::unique_ptr<xmlDoc, Freeing>(CopyDocument(*tree.document)), nullptr};
        if (!entry.source)
        {
            return E_OUTOFMEMORY;
        }
        std::unique_ptr<xmlSchemaParserCtxt, Freeing> const parser(xmlSchemaNewDocParserCtxt(entry.source.get()));
        entry.schema.reset(parser ? xmlSchemaParse(parser.get()) : nullptr);
        if (!entry.schema)
        {
            return FailWithReport(E_FAIL, scope.FirstProblem().reason);
        }
        xmlChar const * const target = entry.schema->targetNamespace;
        if (uri != (target == nullptr ? "" : reinterpret_cast<char const *>(target)))
        {
            return FailWithReport(E_FAIL, "The schema is one of another namespace.\n");
        }
        std::erase_if(entries, [&](Entry const & other) { return other.uri == uri; });
        entries.push_back(std::move(entry));
        return S_OK;
    }

    HRESULT STDMETHODCALLTYPE slot_get() override
    {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE slot_addCollection() override
    {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE slot_get__newEnum() override
    {
        return E_NOTIMPL;
    }

    std::vector<Entry> entries;
};

Problem Simple(char const * reason)
{
    Problem problem;
    problem.code = E_FAIL;
    problem.reason = reason;
    return problem;
}

} // namespace

Problem ProblemBySchemas(IXMLDOMSchemaCollection & object, SharedTree const & tree)
{
    Reference<IXMLDOMSchemaCollection> collection;
    if (FAILED(object.QueryInterface(IID_SchemaAccess, collection.Receive())))
    {
        return Simple("The schemas are those of another component.\n");
    }
    xmlNode const * const root = tree->document == nullptr ? nullptr : xmlDocGetRootElement(tree->document);
    if (root == nullptr)
    {
        return Simple("The document has no element.\n");
    }
    xmlChar const * const uri = root->ns == nullptr ? nullptr : root->ns->href;
    xmlSchema * const schema = static_cast<SchemaCollection *>(collection.Get())
                                   ->Find(uri == nullptr ? "" : reinterpret_cast<char const *>(uri));
    if (schema == nullptr)
    {
        return Simple("There is no schema for the namespace of the document's element.\n");
    }
    LibraryScope const scope(false);
    std::unique_ptr<xmlSchemaValidCtxt, Freeing> const context(xmlSchemaNewValidCtxt(schema));
    if (!context)
    {
        throw std::bad_alloc();
    }
    return xmlSchemaValidateDoc(context.get(), tree->document) == 0 ? Problem() : scope.FirstProblem();
}

IUnknown * NewSchemaCollection()
{
    return static_cast<IXMLDOMSchemaCollection *>(new SchemaCollection);
}

} // namespace kv::platform
