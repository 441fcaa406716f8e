#include <kvcore/core/KVUnknown.h>
#include <kvcore/platform/win32.h>

RegisteredObject::RegisteredObject() {}

RegisteredObject::RegisteredObject(RegisteredObject const &) {}

RegisteredObject & RegisteredObject::operator=(RegisteredObject const &)
{
    return *this;
}

RegisteredObject::~RegisteredObject() {}

void RegisteredObject::LogActiveObjects() {}

KVUnknown::KVUnknown() : refCount(1) {}

KVUnknown::KVUnknown(KVUnknown const & other) : IUnknown(other), RegisteredObject(other), refCount(1) {}

KVUnknown & KVUnknown::operator=(KVUnknown const &)
{
    return *this;
}

KVUnknown::~KVUnknown() {}

HRESULT STDMETHODCALLTYPE KVUnknown::QueryInterface(GUID const & iid, void ** object)
{
    return KVQueryInterface(iid, object);
}

ULONG STDMETHODCALLTYPE KVUnknown::AddRef()
{
    // A new reference is made from an existing one, which already orders everything that happened before.
    return static_cast<ULONG>(refCount.fetch_add(1, std::memory_order_relaxed) + 1);
}

ULONG STDMETHODCALLTYPE KVUnknown::Release()
{
    LONG const count = refCount.fetch_sub(1, std::memory_order_acq_rel) - 1;
    if (count == 0)
    {
        delete this;
    }
    return static_cast<ULONG>(count);
}

HRESULT KVUnknown::KVQueryInterface(GUID const & iid, void ** object)
{
    *object = nullptr;
    if (!IsEqualGUID(iid, IID_IUnknown))
    {
        return E_NOINTERFACE;
    }
    *object = static_cast<IUnknown *>(this);
    AddRef();
    return S_OK;
}
