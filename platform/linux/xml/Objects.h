#pragma once

// What the objects of the document object model have in common.

#include <atomic>
#include <exception>
#include <new>
#include <string>
#include <utility>

#include <kvcore/platform/include/msxml.h>

namespace kv::platform
{

/// A new text from UTF-8. Throws std::bad_alloc. A null source gives null.
BSTR NewText(char const * utf8, std::size_t length);
BSTR NewText(std::string const & utf8);
/// Stores it: S_OK, or S_FALSE and null for no text.
HRESULT GiveText(char const * utf8, BSTR * target);
HRESULT GiveText(std::string const & utf8, BSTR * target);

std::string Utf8Of(WCHAR const * text, std::size_t length);
std::string Utf8Of(BSTR text);

/// Leaves a report for the calling thread, for a call that returns `result`.
HRESULT FailWithReport(HRESULT result, std::string const & description) noexcept;

/// Runs a call's body: what is thrown in it must not reach the caller. A fault is the caller's own, and goes on to
/// whoever has asked for it.
template <typename Body>
HRESULT Guarded(Body body)
try
{
    return body();
}
catch (std::bad_alloc const &)
{
    return E_OUTOFMEMORY;
}
catch (std::exception const &)
{
    return E_FAIL;
}

/// The calls by name, of which there are none.
template <typename Interface>
class Dispatched : public Interface
{
public:
    HRESULT STDMETHODCALLTYPE GetTypeInfoCount(UINT * count) final
    {
        if (count == nullptr)
        {
            return E_INVALIDARG;
        }
        *count = 0;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE GetTypeInfo(UINT, LCID, ITypeInfo ** info) final
    {
        if (info != nullptr)
        {
            *info = nullptr;
        }
        return DISP_E_BADINDEX;
    }
    HRESULT STDMETHODCALLTYPE GetIDsOfNames(REFIID, LPOLESTR *, UINT count, LCID, DISPID * ids) final
    {
        for (UINT i = 0; ids != nullptr && i < count; ++i)
        {
            ids[i] = -1;
        }
        return DISP_E_UNKNOWNNAME;
    }
    HRESULT STDMETHODCALLTYPE Invoke(DISPID, REFIID, LCID, WORD, DISPPARAMS *, VARIANT *, EXCEPINFO *, UINT *) final
    {
        return DISP_E_MEMBERNOTFOUND;
    }
};

/// An object of one interface that is deleted by its last release.
template <typename Interface>
class Counted : public Dispatched<Interface>
{
public:
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
    virtual ~Counted() = default;

    HRESULT Answer(REFIID iid, IID const & own, void ** object)
    {
        if (object == nullptr)
        {
            return E_POINTER;
        }
        bool const has = iid == own || iid == IID_IUnknown || iid == IID_IDispatch;
        *object = has ? static_cast<Interface *>(this) : nullptr;
        if (has)
        {
            AddRef();
        }
        return has ? S_OK : E_NOINTERFACE;
    }

private:
    std::atomic<ULONG> references{1};
};

/// A reference.
template <typename Object>
class Reference
{
public:
    Reference() = default;
    explicit Reference(Object * other) : object(other)
    {
        if (object != nullptr)
        {
            object->AddRef();
        }
    }
    Reference(Reference const & other) : Reference(other.object) {}
    Reference(Reference && other) noexcept : object(std::exchange(other.object, nullptr)) {}
    Reference & operator=(Reference other) noexcept
    {
        std::swap(object, other.object);
        return *this;
    }
    ~Reference()
    {
        if (object != nullptr)
        {
            object->Release();
        }
    }

    Object * operator->() const
    {
        return object;
    }
    Object * Get() const
    {
        return object;
    }
    explicit operator bool() const
    {
        return object != nullptr;
    }
    void ** Receive()
    {
        return reinterpret_cast<void **>(&object);
    }

private:
    Object * object = nullptr;
};

/// The object in a VARIANT, or null.
inline IUnknown * ObjectIn(VARIANT const & value)
{
    return value.vt == VT_DISPATCH || value.vt == VT_UNKNOWN ? value.punkVal : nullptr;
}

} // namespace kv::platform
