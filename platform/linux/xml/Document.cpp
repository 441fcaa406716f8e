#include "Document.h"

#include <libxml/parser.h>

namespace kv::platform
{

namespace
{

/// The prefixes of "xmlns:p='uri' ..."; false if the text is not of that form.
bool ParsePrefixes(std::string const & text, Document::Prefixes & prefixes)
{
    if (text.find('<') != std::string::npos || text.find('>') != std::string::npos)
    {
        return false;
    }
    Problem problem;
    std::string const element = "<p " + text + "/>";
    SharedTree const tree = LoadMemory(element.data(), element.size(), {}, problem);
    xmlNode const * const root = tree ? xmlDocGetRootElement(tree->document) : nullptr;
    if (root == nullptr || root->properties != nullptr)
    {
        return false;
    }
    prefixes.clear();
    for (xmlNs const * declared = root->nsDef; declared != nullptr; declared = declared->next)
    {
        if (declared->prefix != nullptr)
        {
            prefixes.emplace_back(
                reinterpret_cast<char const *>(declared->prefix), reinterpret_cast<char const *>(declared->href));
        }
    }
    return true;
}

HRESULT GiveFlag(bool flag, VARIANT_BOOL * target)
{
    if (target == nullptr)
    {
        return E_INVALIDARG;
    }
    *target = flag ? VARIANT_TRUE : VARIANT_FALSE;
    return S_OK;
}

HRESULT TakeFalseAlone(VARIANT_BOOL flag)
{
    return flag == VARIANT_FALSE ? S_OK : E_INVALIDARG;
}

} // namespace

HRESULT Document::QueryInterface(REFIID iid, void ** object)
{
    if (object == nullptr)
    {
        return E_POINTER;
    }
    *object = nullptr;
    if (iid == IID_IStream || iid == IID_ISequentialStream)
    {
        return Guarded([&] { return GiveStream(*this, object); });
    }
    if (iid == IID_IUnknown || iid == IID_IDispatch || iid == IID_IXMLDOMNode || iid == IID_IXMLDOMDocument ||
        iid == IID_IXMLDOMDocument2)
    {
        *object = static_cast<IXMLDOMDocument2 *>(this);
    }
    else if (iid == IID_NodeAccess || iid == IID_ISupportErrorInfo)
    {
        *object = static_cast<NodeAccess *>(this);
    }
    else
    {
        return E_NOINTERFACE;
    }
    AddRef();
    return S_OK;
}

ULONG Document::AddRef()
{
    return ++references;
}

ULONG Document::Release()
{
    ULONG const left = --references;
    if (left == 0)
    {
        delete this;
    }
    return left;
}

void Document::Replace(SharedTree newTree)
{
    tree = std::move(newTree);
    problem = Problem();
    url.clear();
}

HRESULT Document::Take(SharedTree newTree, Problem newProblem, VARIANT_BOOL * loaded)
{
    bool const success = newTree != nullptr;
    tree = success ? std::move(newTree) : std::make_shared<Tree>(nullptr, false);
    url = newProblem.url;
    problem = success ? Problem() : std::move(newProblem);
    if (loaded != nullptr)
    {
        *loaded = success ? VARIANT_TRUE : VARIANT_FALSE;
    }
    return success ? S_OK : S_FALSE;
}

void Document::LoadBytes(std::string const & bytes)
{
    HRESULT const result = Guarded(
        [&]
        {
            Problem found;
            SharedTree newTree = LoadMemory(bytes.data(), bytes.size(), options, found);
            return Take(std::move(newTree), std::move(found), nullptr);
        });
    if (FAILED(result))
    {
        problem.code = result;
    }
}

HRESULT Document::load(VARIANT source, VARIANT_BOOL * loaded)
{
    if (loaded == nullptr || source.vt != VT_BSTR || source.bstrVal == nullptr)
    {
        return E_INVALIDARG;
    }
    *loaded = VARIANT_FALSE;
    return Guarded(
        [&]
        {
            Problem found;
            SharedTree newTree = LoadFile(source.bstrVal, options, found);
            return Take(std::move(newTree), std::move(found), loaded);
        });
}

HRESULT Document::loadXML(BSTR text, VARIANT_BOOL * loaded)
{
    if (loaded == nullptr)
    {
        return E_INVALIDARG;
    }
    *loaded = VARIANT_FALSE;
    return Guarded(
        [&]
        {
            LoadOptions unicode = options;
            unicode.ignoreEncoding = true;
            std::string const bytes = Utf8Of(text);
            Problem found;
            SharedTree newTree = LoadMemory(bytes.data(), bytes.size(), unicode, found);
            return Take(std::move(newTree), std::move(found), loaded);
        });
}

HRESULT Document::get_documentElement(IXMLDOMElement ** element)
{
    return Guarded(
        [&]
        {
            xmlNode * const root = tree->document == nullptr ? nullptr : xmlDocGetRootElement(tree->document);
            return GiveElement(*this, tree, root, element);
        });
}

HRESULT Document::get_readyState(LONG * state)
{
    if (state == nullptr)
    {
        return E_INVALIDARG;
    }
    *state = 4;
    return S_OK;
}

HRESULT Document::get_parseError(IXMLDOMParseError ** error)
{
    return Guarded([&] { return GiveProblem(problem, error); });
}

HRESULT Document::get_url(BSTR * target)
{
    return Guarded(
        [&]
        {
            std::string const text = Utf8Of(url.data(), url.size());
            return GiveText(text.empty() ? nullptr : text.c_str(), target);
        });
}

HRESULT Document::get_async(VARIANT_BOOL * async)
{
    return GiveFlag(false, async);
}

HRESULT Document::put_async(VARIANT_BOOL async)
{
    return TakeFalseAlone(async);
}

HRESULT Document::get_validateOnParse(VARIANT_BOOL * validates)
{
    return GiveFlag(false, validates);
}

HRESULT Document::put_validateOnParse(VARIANT_BOOL validates)
{
    return TakeFalseAlone(validates);
}

HRESULT Document::get_resolveExternals(VARIANT_BOOL * resolve)
{
    return GiveFlag(options.files, resolve);
}

HRESULT Document::put_resolveExternals(VARIANT_BOOL resolve)
{
    options.files = resolve != VARIANT_FALSE;
    return S_OK;
}

HRESULT Document::get_preserveWhiteSpace(VARIANT_BOOL * preserve)
{
    return GiveFlag(options.keepBlanks, preserve);
}

HRESULT Document::put_preserveWhiteSpace(VARIANT_BOOL preserve)
{
    options.keepBlanks = preserve != VARIANT_FALSE;
    return S_OK;
}

HRESULT Document::get_schemas(VARIANT * target)
{
    if (target == nullptr)
    {
        return E_INVALIDARG;
    }
    target->vt = VT_NULL;
    if (!schemas)
    {
        return S_FALSE;
    }
    schemas->AddRef();
    target->vt = VT_DISPATCH;
    target->pdispVal = schemas.Get();
    return S_OK;
}

HRESULT Document::putref_schemas(VARIANT source)
{
    Reference<IXMLDOMSchemaCollection> collection;
    IUnknown * const object = ObjectIn(source);
    if (object != nullptr && FAILED(object->QueryInterface(IID_IXMLDOMSchemaCollection, collection.Receive())))
    {
        return E_INVALIDARG;
    }
    if (object == nullptr && source.vt != VT_NULL)
    {
        return E_INVALIDARG;
    }
    schemas = std::move(collection);
    return S_OK;
}

HRESULT Document::validate(IXMLDOMParseError ** error)
{
    return Guarded(
        [&]
        {
            Problem found;
            if (schemas)
            {
                found = ProblemBySchemas(*schemas.Get(), tree);
            }
            else
            {
                found.code = E_FAIL;
                found.reason = "The document has no schemas to be validated by.\n";
            }
            bool const follows = found.code == 0;
            found.url = follows ? std::u16string() : url;
            HRESULT const result = GiveProblem(std::move(found), error);
            return FAILED(result) || follows ? result : S_FALSE;
        });
}

HRESULT Document::setProperty(BSTR name, VARIANT value)
{
    return Guarded(
        [&]
        {
            std::string const property = Utf8Of(name);
            if (property == "NewParser" && value.vt == VT_BOOL)
            {
                return S_OK; // there is one parser here
            }
            std::string const text = value.vt == VT_BSTR ? Utf8Of(value.bstrVal) : std::string();
            if (property == "SelectionLanguage" && text == "XPath")
            {
                return S_OK;
            }
            if (property == "SelectionNamespaces" && value.vt == VT_BSTR && ParsePrefixes(text, prefixes))
            {
                prefixText = text;
                return S_OK;
            }
            return E_INVALIDARG;
        });
}

HRESULT Document::getProperty(BSTR name, VARIANT * value)
{
    if (value == nullptr)
    {
        return E_INVALIDARG;
    }
    return Guarded(
        [&]
        {
            std::string const property = Utf8Of(name);
            if (property == "NewParser")
            {
                value->vt = VT_BOOL;
                value->boolVal = VARIANT_TRUE;
                return S_OK;
            }
            if (property != "SelectionLanguage" && property != "SelectionNamespaces")
            {
                return E_INVALIDARG;
            }
            value->bstrVal = NewText(property == "SelectionLanguage" ? "XPath" : prefixText);
            value->vt = VT_BSTR;
            return S_OK;
        });
}

} // namespace kv::platform
