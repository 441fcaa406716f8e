#include <thread>

#include <gtest/gtest.h>

#include <kvcore/platform/win32.h>

namespace
{

CLSID const sampleClass = {0x6C1B3A52, 0x4D7E, 0x4F10, {0x9A, 0x21, 0x55, 0x0E, 0x7C, 0x31, 0x8B, 0x44}};
CLSID const unknownClass = {0x6C1B3A52, 0x4D7E, 0x4F10, {0x9A, 0x21, 0x55, 0x0E, 0x7C, 0x31, 0x8B, 0x45}};

/// A class object whose objects are itself.
class Factory final : public IClassFactory
{
public:
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void ** object) override
    {
        if (iid == IID_IUnknown || iid == IID_IClassFactory)
        {
            AddRef();
            *object = this;
            return S_OK;
        }
        *object = nullptr;
        return E_NOINTERFACE;
    }
    ULONG STDMETHODCALLTYPE AddRef() override
    {
        return ++references;
    }
    ULONG STDMETHODCALLTYPE Release() override
    {
        return --references;
    }
    HRESULT STDMETHODCALLTYPE CreateInstance(IUnknown * outer, REFIID iid, void ** object) override
    {
        return outer != nullptr ? CLASS_E_NOAGGREGATION : QueryInterface(iid, object);
    }
    HRESULT STDMETHODCALLTYPE LockServer(BOOL) override
    {
        return S_OK;
    }

    ULONG references = 1;
};

/// The calling thread's apartment, until the end of the block.
class Apartment
{
public:
    explicit Apartment(DWORD mode = COINIT_APARTMENTTHREADED) : result(CoInitializeEx(nullptr, mode)) {}
    ~Apartment()
    {
        if (SUCCEEDED(result))
        {
            CoUninitialize();
        }
    }
    Apartment(Apartment const &) = delete;
    Apartment & operator=(Apartment const &) = delete;

    HRESULT const result;
};

HRESULT Create(CLSID const & id, DWORD context = CLSCTX_INPROC_SERVER, REFIID iid = IID_IUnknown)
{
    void * object = &object;
    HRESULT const result = CoCreateInstance(id, nullptr, context, iid, &object);
    if (SUCCEEDED(result))
    {
        static_cast<IUnknown *>(object)->Release();
    }
    else
    {
        EXPECT_EQ(object, nullptr);
    }
    return result;
}

template <class Step>
void OnAnotherThread(Step step)
{
    std::thread(step).join();
}

} // namespace

TEST(ClassObjects, ThreadsEnterAnApartmentFirst)
{
    Factory factory;
    DWORD cookie = 0;
    EXPECT_EQ(Create(sampleClass), CO_E_NOTINITIALIZED);
    EXPECT_EQ(
        CoRegisterClassObject(sampleClass, &factory, CLSCTX_INPROC_SERVER, REGCLS_MULTIPLEUSE, &cookie),
        CO_E_NOTINITIALIZED);
    EXPECT_EQ(CoRevokeClassObject(1), CO_E_NOTINITIALIZED);
    EXPECT_EQ(factory.references, 1u);
}

TEST(ClassObjects, AThreadKeepsItsModeUntilItLeaves)
{
    struct
    {
        DWORD first;
        DWORD second;
        HRESULT result;
    } const rows[] = {
        {COINIT_APARTMENTTHREADED, COINIT_APARTMENTTHREADED, S_FALSE},
        {COINIT_APARTMENTTHREADED, COINIT_MULTITHREADED, RPC_E_CHANGED_MODE},
        {COINIT_MULTITHREADED, COINIT_MULTITHREADED, S_FALSE},
        {COINIT_MULTITHREADED, COINIT_APARTMENTTHREADED, RPC_E_CHANGED_MODE},
        {COINIT_MULTITHREADED, COINIT_DISABLE_OLE1DDE, S_FALSE},
    };
    for (auto const & row : rows)
    {
        Apartment const first(row.first);
        EXPECT_EQ(first.result, S_OK);
        Apartment const second(row.second);
        EXPECT_EQ(second.result, row.result) << row.first << ' ' << row.second;
    }
    Apartment const plain(COINIT_MULTITHREADED);
    EXPECT_EQ(plain.result, S_OK);
    EXPECT_EQ(CoInitialize(nullptr), RPC_E_CHANGED_MODE);
}

TEST(ClassObjects, AreFoundByTheirClass)
{
    Apartment const apartment;
    Factory factory;
    DWORD cookie = 0;
    EXPECT_EQ(Create(sampleClass), REGDB_E_CLASSNOTREG);
    ASSERT_EQ(CoRegisterClassObject(sampleClass, &factory, CLSCTX_INPROC_SERVER, REGCLS_MULTIPLEUSE, &cookie), S_OK);
    EXPECT_NE(cookie, 0u);
    EXPECT_EQ(factory.references, 2u);
    EXPECT_EQ(Create(sampleClass), S_OK);
    EXPECT_EQ(Create(sampleClass, CLSCTX_ALL), S_OK);
    EXPECT_EQ(Create(sampleClass, CLSCTX_INPROC_HANDLER), REGDB_E_CLASSNOTREG);
    EXPECT_EQ(Create(sampleClass, 0), E_UNEXPECTED);
    EXPECT_EQ(Create(sampleClass, CLSCTX_INPROC_SERVER, IID_IRunnableObject), E_NOINTERFACE);
    EXPECT_EQ(Create(unknownClass), REGDB_E_CLASSNOTREG);

    void * found = nullptr;
    EXPECT_EQ(CoGetClassObject(sampleClass, CLSCTX_INPROC_SERVER, nullptr, IID_IClassFactory, &found), S_OK);
    EXPECT_EQ(found, &factory);
    factory.Release();

    EXPECT_EQ(CoRevokeClassObject(cookie), S_OK);
    EXPECT_EQ(CoRevokeClassObject(cookie), E_INVALIDARG);
    EXPECT_EQ(Create(sampleClass), REGDB_E_CLASSNOTREG);
    EXPECT_EQ(factory.references, 1u);
}

TEST(ClassObjects, NullPlacesAreRefused)
{
    Apartment const apartment;
    Factory factory;
    DWORD cookie = 0;
    EXPECT_EQ(CoCreateInstance(sampleClass, nullptr, CLSCTX_INPROC_SERVER, IID_IUnknown, nullptr), E_POINTER);
    EXPECT_EQ(CoGetClassObject(sampleClass, CLSCTX_INPROC_SERVER, nullptr, IID_IUnknown, nullptr), E_INVALIDARG);
    EXPECT_EQ(CoRegisterClassObject(sampleClass, nullptr, CLSCTX_INPROC_SERVER, 1, &cookie), E_INVALIDARG);
    EXPECT_EQ(CoRegisterClassObject(sampleClass, &factory, CLSCTX_INPROC_SERVER, 1, nullptr), E_INVALIDARG);
}

TEST(ClassObjects, OuterObjectsReachTheFactory)
{
    Apartment const apartment;
    Factory factory;
    DWORD cookie = 0;
    ASSERT_EQ(CoRegisterClassObject(sampleClass, &factory, CLSCTX_INPROC_SERVER, REGCLS_MULTIPLEUSE, &cookie), S_OK);
    void * object = &object;
    EXPECT_EQ(
        CoCreateInstance(sampleClass, &factory, CLSCTX_INPROC_SERVER, IID_IUnknown, &object), CLASS_E_NOAGGREGATION);
    EXPECT_EQ(object, nullptr);
    EXPECT_EQ(CoRevokeClassObject(cookie), S_OK);
}

TEST(ClassObjects, ASecondForOneUseIsRefused)
{
    Apartment const apartment;
    Factory factory;
    DWORD first = 0;
    DWORD second = 0;
    ASSERT_EQ(CoRegisterClassObject(sampleClass, &factory, CLSCTX_INPROC_SERVER, REGCLS_MULTIPLEUSE, &first), S_OK);
    EXPECT_EQ(
        CoRegisterClassObject(sampleClass, &factory, CLSCTX_INPROC_SERVER, REGCLS_SINGLEUSE, &second), CO_E_OBJISREG);
    EXPECT_EQ(factory.references, 2u);
    EXPECT_EQ(CoRevokeClassObject(first), S_OK);
}

TEST(ClassObjects, GoWithTheirApartment)
{
    for (DWORD const mode : {COINIT_APARTMENTTHREADED, COINIT_MULTITHREADED})
    {
        Factory factory;
        {
            Apartment const apartment(mode);
            DWORD cookie = 0;
            ASSERT_EQ(
                CoRegisterClassObject(sampleClass, &factory, CLSCTX_INPROC_SERVER, REGCLS_MULTIPLEUSE, &cookie), S_OK);
            Apartment const again(mode);
            EXPECT_EQ(factory.references, 2u);
        }
        EXPECT_EQ(factory.references, 1u);
        Apartment const next(mode);
        EXPECT_EQ(Create(sampleClass), REGDB_E_CLASSNOTREG);
    }
}

TEST(ClassObjects, AThreadsOwnAreItsOwn)
{
    Apartment const apartment;
    Factory factory;
    DWORD cookie = 0;
    ASSERT_EQ(CoRegisterClassObject(sampleClass, &factory, CLSCTX_INPROC_SERVER, REGCLS_MULTIPLEUSE, &cookie), S_OK);
    OnAnotherThread(
        []
        {
            EXPECT_EQ(Create(sampleClass), CO_E_NOTINITIALIZED);
            for (DWORD const mode : {COINIT_APARTMENTTHREADED, COINIT_MULTITHREADED})
            {
                Apartment const other(mode);
                EXPECT_EQ(Create(sampleClass), REGDB_E_CLASSNOTREG);
            }
        });
    EXPECT_EQ(CoRevokeClassObject(cookie), S_OK);
}

TEST(ClassObjects, TheSharedApartmentReachesThreadsThatCalledNothing)
{
    Apartment const apartment(COINIT_MULTITHREADED);
    Factory factory;
    DWORD cookie = 0;
    ASSERT_EQ(CoRegisterClassObject(sampleClass, &factory, CLSCTX_INPROC_SERVER, REGCLS_MULTIPLEUSE, &cookie), S_OK);
    OnAnotherThread(
        []
        {
            EXPECT_EQ(Create(sampleClass), S_OK);
            {
                Apartment const own;
                EXPECT_EQ(Create(sampleClass), REGDB_E_CLASSNOTREG);
            }
            Apartment const shared(COINIT_MULTITHREADED);
            EXPECT_EQ(Create(sampleClass), S_OK);
        });
    EXPECT_EQ(CoRevokeClassObject(cookie), S_OK);
}

TEST(ClassObjects, AnObjectWithoutARunningStateRuns)
{
    Factory factory;
    EXPECT_EQ(OleRun(&factory), S_OK);
    EXPECT_EQ(factory.references, 1u);
}
