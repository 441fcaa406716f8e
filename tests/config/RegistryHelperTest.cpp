#include <gtest/gtest.h>

#include <kvcore/config/RegistryHelper.h>
#include <kvcore/config/SysRegKey.h>
#include <kvcore/platform/win32.h>

namespace
{

/// The class of the plug-in beside the tests.
GUID const servedClass = {0x2F1D6C90, 0x7B3E, 0x4C55, {0x8E, 0x10, 0x3A, 0x5D, 0x92, 0x47, 0x61, 0x0B}};
/// One that no module has.
GUID const otherClass = {0x2F1D6C90, 0x7B3E, 0x4C55, {0x8E, 0x10, 0x3A, 0x5D, 0x92, 0x47, 0x61, 0x0C}};

String ClassPath(GUID const & id)
{
    return TEXT("Software\\Classes\\CLSID\\") + RegistryHelper::GetClassString(id);
}

class RegistryHelperTest : public testing::Test
{
protected:
    RegistryHelperTest()
    {
        CoInitialize(nullptr);
    }
    ~RegistryHelperTest() override
    {
        RegistryHelper::UnregisterCLSID(servedClass);
        RegistryHelper::UnregisterCLSID(otherClass);
        CoUninitialize();
    }

    /// The stored model; "-" if there is none.
    static String Model(GUID const & id)
    {
        String text = TEXT("-");
        SysRegKey(HKEY_LOCAL_MACHINE)
            .OpenSubkey(ClassPath(id) + TEXT("\\InprocServer32"), KEY_READ)
            .GetString(TEXT("ThreadingModel"), text);
        return text;
    }
    static HRESULT Create(GUID const & id)
    {
        void * object = nullptr;
        HRESULT const result = CoCreateInstance(id, nullptr, CLSCTX_INPROC_SERVER, IID_IClassFactory, &object);
        if (SUCCEEDED(result))
        {
            static_cast<IUnknown *>(object)->Release();
        }
        return result;
    }
    /// The full path of the plug-in.
    static String ServerPath()
    {
        HMODULE const module = LoadLibraryW(TEXT("TestComServer"));
        EXPECT_NE(module, nullptr);
        WCHAR path[1024] = {};
        GetModuleFileNameW(module, path, 1024);
        FreeLibrary(module);
        return path;
    }
};

} // namespace

TEST_F(RegistryHelperTest, ClassesHaveTheirTextInBraces)
{
    EXPECT_EQ(RegistryHelper::GetClassString(servedClass), TEXT("{2F1D6C90-7B3E-4C55-8E10-3A5D9247610B}"));
}

TEST_F(RegistryHelperTest, AClassHasAKeyFromRegistrationOn)
{
    EXPECT_TRUE(RegistryHelper::RegisterCLSID(otherClass));
    EXPECT_TRUE(RegistryHelper::RegisterCLSID(otherClass));
    SysRegKey machine(HKEY_LOCAL_MACHINE);
    EXPECT_TRUE(machine.OpenSubkey(ClassPath(otherClass), KEY_READ).IsValid());
    EXPECT_EQ(RegistryHelper::GetClassDescription(otherClass), String());
    EXPECT_TRUE(machine.SetSubkey(ClassPath(otherClass), TEXT("A description")));
    EXPECT_EQ(RegistryHelper::GetClassDescription(otherClass), TEXT("A description"));
    EXPECT_TRUE(RegistryHelper::RegisterInprocServer32(otherClass, TEXT("x"), RegistryHelper::Both));
    EXPECT_TRUE(RegistryHelper::UnregisterCLSID(otherClass));
    EXPECT_FALSE(RegistryHelper::UnregisterCLSID(otherClass));
    EXPECT_FALSE(machine.OpenSubkey(ClassPath(otherClass), KEY_READ).IsValid());
    EXPECT_EQ(RegistryHelper::GetClassDescription(otherClass), String());
    EXPECT_EQ(RegistryHelper::GetClassServer(otherClass), String());
}

TEST_F(RegistryHelperTest, ModelsAreStoredAsTheirTexts)
{
    struct
    {
        int model;
        WCHAR const * text;
    } const rows[] = {
        {1, TEXT("Apartment")}, {2, TEXT("Both")},    {0, TEXT("-")},  {3, TEXT("Free")},
        {99, TEXT("-")},        {4, TEXT("Neutral")}, {-1, TEXT("-")}, {5, TEXT("-")},
    };
    for (auto const & row : rows)
    {
        EXPECT_TRUE(RegistryHelper::RegisterInprocServer32(
            otherClass, TEXT("C:\\server.dll"), static_cast<RegistryHelper::ThreadingModel>(row.model)));
        EXPECT_EQ(Model(otherClass), row.text) << row.model;
        EXPECT_EQ(RegistryHelper::GetClassServer(otherClass), TEXT("C:\\server.dll"));
    }
    EXPECT_TRUE(RegistryHelper::UnregisterInprocServer32(otherClass));
    EXPECT_EQ(RegistryHelper::GetClassServer(otherClass), String());
    EXPECT_FALSE(RegistryHelper::UnregisterInprocServer32(otherClass));
}

TEST_F(RegistryHelperTest, ARegisteredModuleMakesItsObjects)
{
    EXPECT_TRUE(FAILED(Create(servedClass)));
    ASSERT_TRUE(RegistryHelper::RegisterInprocServer32(servedClass, ServerPath(), RegistryHelper::Both));
    EXPECT_EQ(Create(servedClass), S_OK);
    EXPECT_EQ(Create(servedClass), S_OK);
    void * object = nullptr;
    EXPECT_EQ(CoCreateInstance(servedClass, nullptr, CLSCTX_INPROC_SERVER, otherClass, &object), E_NOINTERFACE);
    EXPECT_EQ(object, nullptr);
    ASSERT_TRUE(RegistryHelper::UnregisterInprocServer32(servedClass));
    EXPECT_EQ(Create(servedClass), REGDB_E_CLASSNOTREG);
}

TEST_F(RegistryHelperTest, AModuleThatDoesNotHaveTheClassMakesNone)
{
    ASSERT_TRUE(RegistryHelper::RegisterInprocServer32(otherClass, ServerPath(), RegistryHelper::Both));
    EXPECT_TRUE(FAILED(Create(otherClass)));
    ASSERT_TRUE(
        RegistryHelper::RegisterInprocServer32(otherClass, TEXT("Z:\\no\\such\\module.dll"), RegistryHelper::Both));
    EXPECT_TRUE(FAILED(Create(otherClass)));
}
