#pragma once

// A diagnostic provider of the tests' own, registered in the process in place of the system's.

#include <clocale>
#include <cstring>
#include <map>
#include <string>

#include <kvcore/core/KVUnknown.h>
#include <kvcore/frame/detail/DirectXDiagnostics.h>
#include <kvcore/platform/win32.h>

namespace kv::test
{

/// What the provider answers, and what it was asked.
struct Diagnostics
{
    struct Fact
    {
        VARTYPE type;
        DWORD number;
        WString text;
        bool isNull = false; ///< a text that is null
    };
    std::map<WString, Fact> facts;
    /// The step that fails: "create", "Initialize", "GetRootContainer" or "GetChildContainer"; none if empty.
    std::string failing;
    /// What the provider leaves the program's locale at, as a careless one does.
    char const * locale = nullptr;

    detail::DiagnosticOptions options = {};
    int created = 0;
    int alive = 0; ///< objects of the provider that nobody has released yet

    HRESULT Answer(char const * step) const
    {
        return failing == step ? E_FAIL : S_OK;
    }
};

/// The least of an object: one interface, and a count.
template <class Interface>
class DiagnosticObject : public Interface
{
public:
    explicit DiagnosticObject(Diagnostics & all) : diagnostics(all)
    {
        ++diagnostics.alive;
    }
    virtual ~DiagnosticObject()
    {
        --diagnostics.alive;
    }
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void ** object) override
    {
        bool const isKnown = iid == IID_IUnknown || iid == detail::diagnosticProviderInterface;
        *object = isKnown ? static_cast<Interface *>(this) : nullptr;
        references += isKnown ? 1 : 0;
        return isKnown ? S_OK : E_NOINTERFACE;
    }
    ULONG STDMETHODCALLTYPE AddRef() override
    {
        return ++references;
    }
    ULONG STDMETHODCALLTYPE Release() override
    {
        ULONG const left = --references;
        if (left == 0)
        {
            delete this;
        }
        return left;
    }

protected:
    Diagnostics & diagnostics;

private:
    ULONG references = 1;
};

class DiagnosticContainer final : public DiagnosticObject<detail::IDiagnosticContainer>
{
public:
    using DiagnosticObject::DiagnosticObject;

    HRESULT STDMETHODCALLTYPE GetNumberOfChildContainers(DWORD *) override
    {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE EnumChildContainerNames(DWORD, LPWSTR, DWORD) override
    {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE GetChildContainer(LPCWSTR name, detail::IDiagnosticContainer ** child) override
    {
        *child = nullptr;
        if (WString(name) != TEXT("DxDiag_SystemInfo"))
        {
            return E_INVALIDARG;
        }
        HRESULT const answer = diagnostics.Answer("GetChildContainer");
        *child = SUCCEEDED(answer) ? new DiagnosticContainer(diagnostics) : nullptr;
        return answer;
    }
    HRESULT STDMETHODCALLTYPE GetNumberOfProps(DWORD *) override
    {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE EnumPropNames(DWORD, LPWSTR, DWORD) override
    {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE GetProp(LPCWSTR name, VARIANT * value) override
    {
        auto const found = diagnostics.facts.find(name);
        if (found == diagnostics.facts.end())
        {
            return E_INVALIDARG;
        }
        value->vt = found->second.type;
        if (value->vt == VT_BSTR)
        {
            value->bstrVal = found->second.isNull ? nullptr : SysAllocString(found->second.text.c_str());
        }
        else
        {
            value->ulVal = found->second.number;
        }
        return S_OK;
    }
};

class DiagnosticProvider final : public DiagnosticObject<detail::IDiagnosticProvider>
{
public:
    using DiagnosticObject::DiagnosticObject;

    HRESULT STDMETHODCALLTYPE Initialize(detail::DiagnosticOptions * options) override
    {
        diagnostics.options = *options;
        if (diagnostics.locale != nullptr)
        {
            std::setlocale(LC_ALL, diagnostics.locale);
        }
        return diagnostics.Answer("Initialize");
    }
    HRESULT STDMETHODCALLTYPE GetRootContainer(detail::IDiagnosticContainer ** container) override
    {
        HRESULT const answer = diagnostics.Answer("GetRootContainer");
        *container = SUCCEEDED(answer) ? new DiagnosticContainer(diagnostics) : nullptr;
        return answer;
    }
};

/// Makes the providers; for the class that version 9 brought, too, which nobody asks for more than its being there.
class DiagnosticFactory final : public DiagnosticObject<IClassFactory>
{
public:
    using DiagnosticObject::DiagnosticObject;

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void ** object) override
    {
        if (iid == IID_IClassFactory)
        {
            AddRef();
            *object = static_cast<IClassFactory *>(this);
            return S_OK;
        }
        return DiagnosticObject::QueryInterface(iid, object);
    }
    HRESULT STDMETHODCALLTYPE CreateInstance(IUnknown *, REFIID iid, void ** object) override
    {
        *object = nullptr;
        ++diagnostics.created;
        HRESULT const answer = diagnostics.Answer("create");
        if (FAILED(answer))
        {
            return answer;
        }
        auto * const provider = new DiagnosticProvider(diagnostics);
        HRESULT const result = provider->QueryInterface(iid, object);
        provider->Release();
        return result;
    }
    HRESULT STDMETHODCALLTYPE LockServer(BOOL) override
    {
        return S_OK;
    }
};

/// Registers the class while the object lives. The thread has initialised COM.
class RegisteredDiagnostics
{
public:
    explicit RegisteredDiagnostics(Diagnostics & diagnostics, CLSID const & id = detail::diagnosticProviderClass)
    {
        auto * const factory = new DiagnosticFactory(diagnostics);
        result = CoRegisterClassObject(id, factory, CLSCTX_INPROC_SERVER, REGCLS_MULTIPLEUSE, &cookie);
        factory->Release();
    }
    RegisteredDiagnostics(RegisteredDiagnostics const &) = delete;
    RegisteredDiagnostics & operator=(RegisteredDiagnostics const &) = delete;
    ~RegisteredDiagnostics()
    {
        if (SUCCEEDED(result))
        {
            CoRevokeClassObject(cookie);
        }
    }

    HRESULT result;

private:
    DWORD cookie = 0;
};

} // namespace kv::test
