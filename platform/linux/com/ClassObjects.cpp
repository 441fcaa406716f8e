#include <algorithm>
#include <mutex>
#include <new>
#include <utility>
#include <vector>

#include <kvcore/platform/include/objbase.h>
#include <kvcore/platform/linux/com/Apartments.h>
#include <kvcore/platform/linux/com/BuiltInClasses.h>
#include <kvcore/platform/linux/com/ServerModules.h>
#include <kvcore/platform/linux/memory/CallerMemory.h>

using namespace kv::platform;

namespace
{

struct Registration
{
    DWORD cookie;
    ApartmentId apartment;
    CLSID id;
    DWORD context;
    IUnknown * classObject; ///< holds a reference
};

/// The registered class objects, in the order of their registration.
struct ClassTable
{
    std::mutex mutex;
    std::vector<Registration> rows;
    DWORD lastCookie = 0;
};

ClassTable & Table()
{
    static ClassTable & table = *new ClassTable;
    return table;
}

/// The class object with a reference for the caller, or null.
IUnknown * FindRegistered(REFCLSID id, DWORD context, ApartmentId apartment)
{
    ClassTable & table = Table();
    std::lock_guard const guard(table.mutex);
    for (Registration const & row : table.rows)
    {
        if (row.id == id && row.apartment == apartment && (row.context & context) != 0)
        {
            row.classObject->AddRef();
            return row.classObject;
        }
    }
    return nullptr;
}

/// Enters a registration under the next number, which it gives; 0 without memory for it.
DWORD AddRow(Registration row)
try
{
    ClassTable & table = Table();
    std::lock_guard const guard(table.mutex);
    row.cookie = table.lastCookie + 1;
    table.rows.push_back(row);
    return ++table.lastCookie;
}
catch (std::bad_alloc const &)
{
    return 0;
}

} // namespace

namespace kv::platform
{

void RevokeClassObjectsOf(ApartmentId apartment) noexcept
{
    if (apartment == noApartment)
    {
        return;
    }
    ClassTable & table = Table();
    for (;;)
    {
        IUnknown * classObject = nullptr;
        {
            std::lock_guard const guard(table.mutex);
            auto const row = std::find_if(
                table.rows.begin(), table.rows.end(),
                [apartment](Registration const & candidate) { return candidate.apartment == apartment; });
            if (row == table.rows.end())
            {
                return;
            }
            classObject = row->classObject;
            table.rows.erase(row);
        }
        classObject->Release(); // without the lock: it may be the last, and call back
    }
}

} // namespace kv::platform

HRESULT WINAPI CoCreateInstance(REFCLSID id, LPUNKNOWN outer, DWORD context, REFIID iid, LPVOID * object)
{
    CheckInputs(&id, &iid);
    CheckOutputs(object);
    if (object == nullptr)
    {
        return E_POINTER;
    }
    *object = nullptr;
    void * found = nullptr;
    HRESULT result = CoGetClassObject(id, context, nullptr, IID_IClassFactory, &found);
    if (FAILED(result))
    {
        return result;
    }
    IClassFactory * const factory = static_cast<IClassFactory *>(found);
    result = factory->CreateInstance(outer, iid, object);
    factory->Release();
    return result;
}

HRESULT WINAPI CoGetClassObject(REFCLSID id, DWORD context, LPVOID server, REFIID iid, LPVOID * object)
try
{
    CheckInputs(&id, &iid);
    CheckOutputs(object);
    if (object == nullptr)
    {
        return E_INVALIDARG;
    }
    *object = nullptr;
    ApartmentId const apartment = CurrentApartment();
    if (apartment == noApartment)
    {
        return CO_E_NOTINITIALIZED;
    }
    if (server != nullptr)
    {
        return E_INVALIDARG;
    }
    if (context == 0)
    {
        return E_UNEXPECTED;
    }
    IUnknown * const registered = FindRegistered(id, context, apartment);
    IUnknown * const classObject =
        registered == nullptr && (context & CLSCTX_INPROC_SERVER) != 0 ? BuiltInClassObject(id) : registered;
    if (classObject == nullptr)
    {
        return (context & CLSCTX_INPROC_SERVER) != 0 ? GetModuleClassObject(id, iid, object) : REGDB_E_CLASSNOTREG;
    }
    HRESULT const result = classObject->QueryInterface(iid, object);
    classObject->Release();
    return result;
}
catch (std::bad_alloc const &)
{
    return E_OUTOFMEMORY;
}

HRESULT WINAPI
CoRegisterClassObject(REFCLSID id, LPUNKNOWN classObject, DWORD context, DWORD flags, LPDWORD registration)
try
{
    CheckInputs(&id);
    CheckOutputs(registration);
    if (registration == nullptr || classObject == nullptr)
    {
        return E_INVALIDARG;
    }
    ApartmentId const apartment = CurrentApartment();
    if (apartment == noApartment)
    {
        return CO_E_NOTINITIALIZED;
    }
    *registration = 0;
    if ((flags & REGCLS_MULTIPLEUSE) != 0)
    {
        context |= CLSCTX_INPROC_SERVER;
    }
    if (flags == REGCLS_SINGLEUSE)
    {
        if (IUnknown * const earlier = FindRegistered(id, context, apartment))
        {
            earlier->Release();
            return CO_E_OBJISREG;
        }
    }
    classObject->AddRef(); // before anything is held: it is the first look at the object
    *registration = AddRow({0, apartment, id, context, classObject});
    if (*registration == 0)
    {
        classObject->Release();
        return E_OUTOFMEMORY;
    }
    return S_OK;
}
catch (std::bad_alloc const &)
{
    return E_OUTOFMEMORY;
}

HRESULT WINAPI CoRevokeClassObject(DWORD registration)
{
    ApartmentId const apartment = CurrentApartment();
    if (apartment == noApartment)
    {
        return CO_E_NOTINITIALIZED;
    }
    IUnknown * classObject = nullptr;
    {
        ClassTable & table = Table();
        std::lock_guard const guard(table.mutex);
        auto const row = std::find_if(
            table.rows.begin(), table.rows.end(),
            [registration](Registration const & candidate) { return candidate.cookie == registration; });
        if (row == table.rows.end())
        {
            return E_INVALIDARG;
        }
        if (row->apartment != apartment)
        {
            return RPC_E_WRONG_THREAD;
        }
        classObject = row->classObject;
        table.rows.erase(row);
    }
    classObject->Release();
    return S_OK;
}

HRESULT WINAPI OleRun(LPUNKNOWN object)
{
    if (object == nullptr)
    {
        return E_POINTER;
    }
    void * found = nullptr;
    if (FAILED(object->QueryInterface(IID_IRunnableObject, &found)))
    {
        return S_OK;
    }
    IRunnableObject * const runnable = static_cast<IRunnableObject *>(found);
    HRESULT const result = runnable->Run(nullptr);
    runnable->Release();
    return result;
}
