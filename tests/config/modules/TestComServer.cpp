// A plug-in with one class, entered in the registry by the tests.

#include <atomic>

#include <kvcore/platform/win32.h>

#ifdef _WIN32 // A module without a library of the tree has no macro for this.
#    define EXPORTED __declspec(dllexport)
#else
#    define EXPORTED __attribute__((visibility("default")))
#endif

namespace
{

CLSID const servedClass = {0x2F1D6C90, 0x7B3E, 0x4C55, {0x8E, 0x10, 0x3A, 0x5D, 0x92, 0x47, 0x61, 0x0B}};

/// The object of the class, and with IClassFactory its class object.
class Served final : public IClassFactory
{
public:
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void ** object) override
    {
        *object = nullptr;
        if (iid != IID_IUnknown && iid != IID_IClassFactory)
        {
            return E_NOINTERFACE;
        }
        AddRef();
        *object = this;
        return S_OK;
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
    HRESULT STDMETHODCALLTYPE CreateInstance(IUnknown * outer, REFIID iid, void ** object) override
    {
        if (outer != nullptr)
        {
            return CLASS_E_NOAGGREGATION;
        }
        Served * const made = new Served;
        HRESULT const result = made->QueryInterface(iid, object);
        made->Release();
        return result;
    }
    HRESULT STDMETHODCALLTYPE LockServer(BOOL) override
    {
        return S_OK;
    }

private:
    ~Served() = default; // by Release alone

    std::atomic<ULONG> references{1};
};

} // namespace

extern "C" EXPORTED HRESULT STDAPICALLTYPE DllGetClassObject(REFCLSID id, REFIID iid, LPVOID * object)
{
    *object = nullptr;
    if (id != servedClass)
    {
        return CLASS_E_CLASSNOTAVAILABLE;
    }
    Served * const classObject = new Served;
    HRESULT const result = classObject->QueryInterface(iid, object);
    classObject->Release();
    return result;
}
