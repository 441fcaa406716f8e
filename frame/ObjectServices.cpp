#include <kvcore/frame/ObjectServices.h>

#include <mutex>

#include <kvcore/frame/detail/ServiceTables.h>
#include <kvcore/platform/win32.h>

using namespace kv::detail;

HRESULT ObjectServices::RegisterClassW(GUID const & id, CreateFunction create)
{
    std::lock_guard const guard(classLock);
    classes[id] = create;
    return S_OK;
}

HRESULT ObjectServices::UnregisterClassW(GUID const & id)
{
    std::lock_guard const guard(classLock);
    classes.erase(id);
    return S_OK;
}

HRESULT ObjectServices::_CreateClassObject(GUID const & id, GUID const & iid, void ** result)
{
    std::lock_guard const guard(classLock);
    *result = nullptr;
    auto const found = classes.find(id);
    if (found == classes.end())
    {
        return E_FAIL;
    }
    IUnknown * const object = found->second();
    if (object == nullptr)
    {
        return E_FAIL;
    }
    HRESULT const answer = object->QueryInterface(iid, result);
    object->Release();
    return answer;
}

HRESULT ObjectServices::RegisterService(GUID const & id, IUnknown * object)
{
    std::lock_guard const guard(serviceLock);
    RevokeService(id, services[id]); // Kept: makes an entry, which stays if there was nothing to revoke
    if (object != nullptr)
    {
        object->AddRef();
        services[id] = object;
    }
    return S_OK;
}

HRESULT ObjectServices::RevokeService(GUID const & id, IUnknown * object)
{
    std::lock_guard const guard(serviceLock);
    if (object == nullptr)
    {
        return S_OK;
    }
    auto const found = services.find(id);
    if (found == services.end())
    {
        return E_FAIL;
    }
    object->Release(); // Kept: what the caller passed, whatever is registered
    services.erase(id);
    return S_OK;
}

HRESULT ObjectServices::_GetService(GUID const & id, GUID const & iid, void ** result)
{
    std::lock_guard const guard(serviceLock);
    *result = nullptr;
    auto const found = services.find(id);
    if (found == services.end())
    {
        return E_FAIL;
    }
    return found->second->QueryInterface(iid, result);
}
