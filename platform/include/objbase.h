#pragma once

// COM: identifiers as text, result codes, and objects made by their class.

#include <kvcore/platform/include/unknown.h>

#define S_OK ((HRESULT)0)
#define S_FALSE ((HRESULT)1)
#define E_NOTIMPL ((HRESULT)0x80004001u)
#define E_NOINTERFACE ((HRESULT)0x80004002u)
#define E_POINTER ((HRESULT)0x80004003u)
#define E_FAIL ((HRESULT)0x80004005u)
#define E_UNEXPECTED ((HRESULT)0x8000FFFFu)
#define E_OUTOFMEMORY ((HRESULT)0x8007000Eu)
#define E_INVALIDARG ((HRESULT)0x80070057u)
#define RPC_E_CHANGED_MODE ((HRESULT)0x80010106u)
#define RPC_E_WRONG_THREAD ((HRESULT)0x8001010Eu)
#define CLASS_E_NOAGGREGATION ((HRESULT)0x80040110u)
#define CLASS_E_CLASSNOTAVAILABLE ((HRESULT)0x80040111u)
#define REGDB_E_CLASSNOTREG ((HRESULT)0x80040154u)
#define CO_E_NOTINITIALIZED ((HRESULT)0x800401F0u)
#define CO_E_CLASSSTRING ((HRESULT)0x800401F3u)
#define CO_E_IIDSTRING ((HRESULT)0x800401F4u)
#define CO_E_DLLNOTFOUND ((HRESULT)0x800401F8u)
#define CO_E_ERRORINDLL ((HRESULT)0x800401F9u)
#define CO_E_OBJISREG ((HRESULT)0x800401FCu)
#define SUCCEEDED(result) ((HRESULT)(result) >= 0)
#define FAILED(result) ((HRESULT)(result) < 0)

/// Where the code of a class may run. This system has servers in the process alone.
typedef enum tagCLSCTX
{
    CLSCTX_INPROC_SERVER = 0x1,
    CLSCTX_INPROC_HANDLER = 0x2,
    CLSCTX_LOCAL_SERVER = 0x4,
    CLSCTX_REMOTE_SERVER = 0x10,
} CLSCTX;
#define CLSCTX_INPROC (CLSCTX_INPROC_SERVER | CLSCTX_INPROC_HANDLER)
#define CLSCTX_SERVER (CLSCTX_INPROC_SERVER | CLSCTX_LOCAL_SERVER | CLSCTX_REMOTE_SERVER)
#define CLSCTX_ALL (CLSCTX_INPROC_HANDLER | CLSCTX_SERVER)

/// How a thread takes part. The other bits change nothing here.
typedef enum tagCOINIT
{
    COINIT_MULTITHREADED = 0x0,
    COINIT_APARTMENTTHREADED = 0x2,
    COINIT_DISABLE_OLE1DDE = 0x4,
    COINIT_SPEED_OVER_MEMORY = 0x8,
} COINIT;

/// How often a registered class object is handed out.
typedef enum tagREGCLS
{
    REGCLS_SINGLEUSE = 0,
    REGCLS_MULTIPLEUSE = 1,
    REGCLS_MULTI_SEPARATE = 2,
} REGCLS;

/// Makes the objects of one class.
struct IClassFactory : IUnknown
{
    /// Stores at `object` the interface `iid` of a new object, which `outer` is to contain if it is not null
    /// (CLASS_E_NOAGGREGATION where a class does not let it). Null there on failure.
    virtual HRESULT STDMETHODCALLTYPE CreateInstance(IUnknown * outer, REFIID iid, void ** object) = 0;
    /// Keeps the server loaded until it is called as often with FALSE.
    virtual HRESULT STDMETHODCALLTYPE LockServer(BOOL lock) = 0;
};

/// 00000001-0000-0000-C000-000000000046
extern "C" KVCORE_API IID const IID_IClassFactory;

struct IBindCtx;

/// An object that has a state before it runs.
struct IRunnableObject : IUnknown
{
    virtual HRESULT STDMETHODCALLTYPE GetRunningClass(CLSID * id) = 0;
    virtual HRESULT STDMETHODCALLTYPE Run(IBindCtx * context) = 0;
    virtual BOOL STDMETHODCALLTYPE IsRunning() = 0;
    virtual HRESULT STDMETHODCALLTYPE LockRunning(BOOL lock, BOOL lastUnlockCloses) = 0;
    virtual HRESULT STDMETHODCALLTYPE SetContainedObject(BOOL contained) = 0;
};

/// 00000126-0000-0000-C000-000000000046
extern "C" KVCORE_API IID const IID_IRunnableObject;

extern "C"
{
    /// Let the calling thread use classes: in an apartment of its own (CoInitialize, COINIT_APARTMENTTHREADED) or in
    /// the one that all other threads share. S_FALSE if it does already, RPC_E_CHANGED_MODE if it does in the other
    /// way. Each call that succeeded is undone by one of CoUninitialize; the last of an apartment revokes the class
    /// objects that were registered in it. While any thread is in the shared apartment, threads that called nothing
    /// count as in it too. `reserved` is not looked at.
    KVCORE_API HRESULT WINAPI CoInitialize(LPVOID reserved);
    KVCORE_API HRESULT WINAPI CoInitializeEx(LPVOID reserved, DWORD mode);
    KVCORE_API void WINAPI CoUninitialize();

    /// Stores at `object` the interface `iid` of a new object of class `id`: asks CoGetClassObject for the class
    /// object, and that for the new object. E_POINTER for a null `object`, otherwise null is there on failure.
    KVCORE_API HRESULT WINAPI
    CoCreateInstance(REFCLSID id, LPUNKNOWN outer, DWORD context, REFIID iid, LPVOID * object);

    /// Stores at `object` the interface `iid` of the class object of `id`: of one that was registered in this
    /// apartment for one of the bits of `context`; with CLSCTX_INPROC_SERVER otherwise of one of the platform's own
    /// classes (msxml.h), or what "DllGetClassObject" of the module gives that the registry has for the class
    /// (HKEY_CLASSES_ROOT\\CLSID\\{...}\\InprocServer32): it is loaded for that, and stays so; CO_E_DLLNOTFOUND if it
    /// cannot be, CO_E_ERRORINDLL if it has no such function. CO_E_NOTINITIALIZED on a thread outside of all
    /// apartments, E_UNEXPECTED for no context, REGDB_E_CLASSNOTREG for an unknown class, E_INVALIDARG for a null
    /// `object`. No other machines are reached: `server` must be null (E_INVALIDARG).
    KVCORE_API HRESULT WINAPI CoGetClassObject(REFCLSID id, DWORD context, LPVOID server, REFIID iid, LPVOID * object);

    /// Registers a class object in the caller's apartment, with a reference of its own, and stores at `registration`
    /// what CoRevokeClassObject takes. A second one with REGCLS_SINGLEUSE for a class gives CO_E_OBJISREG; other
    /// further ones wait behind the first. What is registered for several uses is there for callers in the process,
    /// whatever its `context`.
    KVCORE_API HRESULT WINAPI
    CoRegisterClassObject(REFCLSID id, LPUNKNOWN classObject, DWORD context, DWORD flags, LPDWORD registration);
    /// Ends it. E_INVALIDARG if there is none, RPC_E_WRONG_THREAD if it is of another apartment.
    KVCORE_API HRESULT WINAPI CoRevokeClassObject(DWORD registration);

    /// Puts an object into its running state; one that has none (no IRunnableObject) runs: S_OK.
    KVCORE_API HRESULT WINAPI OleRun(LPUNKNOWN object);

    /// Parses "{xxxxxxxx-xxxx-xxxx-xxxx-xxxxxxxxxxxx}", in either case. Any other text gives CO_E_CLASSSTRING: no
    /// program names are registered. `id` is all zero then unless the text begins with a brace, in which case it holds
    /// what stands before the first wrong element. A null text gives the all-zero identifier and S_OK; a null `id`
    /// gives E_INVALIDARG.
    KVCORE_API HRESULT WINAPI CLSIDFromString(LPCOLESTR text, CLSID * id);

    /// The same, with E_INVALIDARG for a text that has not 38 elements and CO_E_IIDSTRING for other wrong ones.
    KVCORE_API HRESULT WINAPI IIDFromString(LPCOLESTR text, IID * id);

    /// Prints `id` with braces and upper-case digits, NUL-terminated. Returns the elements written, the NUL included
    /// (39), or 0 if `capacity` is too small, with nothing written.
    KVCORE_API int WINAPI StringFromGUID2(REFGUID id, LPOLESTR buffer, int capacity);

    /// The same into memory of its own at `text`, which the caller releases with CoTaskMemFree. S_OK or E_OUTOFMEMORY.
    KVCORE_API HRESULT WINAPI StringFromCLSID(REFCLSID id, LPOLESTR * text);
    KVCORE_API HRESULT WINAPI StringFromIID(REFIID id, LPOLESTR * text);

    /// Memory that one side of a COM interface allocates and the other releases. Null if there is none; a `size` of 0
    /// gives a block without room, except that reallocating a block to 0 releases it and gives null. Any thread.
    KVCORE_API LPVOID WINAPI CoTaskMemAlloc(SIZE_T size);
    KVCORE_API LPVOID WINAPI CoTaskMemRealloc(LPVOID memory, SIZE_T size);
    KVCORE_API void WINAPI CoTaskMemFree(LPVOID memory);
}
