#ifndef _WIN32 // The system's search there ends in the current directory, and the system's own libraries go before
               // that.

#    include <set>
#    include <string>

#    include <link.h>
#    include <spawn.h>
#    include <sys/wait.h>
#    include <unistd.h>

#    include <kvcore/platform/win32.h>
#    include <support/ComApartment.h>
#    include <support/PlantedModule.h>

#    include <gtest/gtest.h>

namespace
{

class PlantedModules : public testing::Test
{
protected:
    kv::test::PlantedFolder const planted;
};

WString PathOf(HMODULE module)
{
    WCHAR path[1024] = {};
    return WString(path, GetModuleFileNameW(module, path, 1024));
}

TEST_F(PlantedModules, RunWhereTheyAreNamedByTheirPath)
{
    WString const path = kv::platform::PathFromNative(planted.Plant("named.so").string());
    HMODULE const module = LoadLibraryW(path.c_str());
    ASSERT_NE(module, nullptr);
    FreeLibrary(module);
    EXPECT_TRUE(planted.TakeMark()) << "or no test here could fail";
}

TEST_F(PlantedModules, OfTheCurrentDirectoryAreNotFoundByBareNames)
{
    for (char const * const name : {"rogue.so", "rogue.dll", "rogue.bir", "librogue.so.1", "rogue"})
    {
        planted.Plant(name);
    }
    for (WCHAR const * const name :
         {u"rogue", u"rogue.so", u"ROGUE.SO", u"rogue.dll", u"rogue.bir", u"librogue.so.1", u"rogue."})
    {
        SetLastError(0);
        EXPECT_EQ(LoadLibraryW(name), nullptr) << kv::platform::PathToNative(name);
        EXPECT_EQ(GetLastError(), DWORD{ERROR_MOD_NOT_FOUND});
        for (DWORD const flags : {DWORD{LOAD_LIBRARY_AS_DATAFILE}, DWORD{LOAD_LIBRARY_AS_IMAGE_RESOURCE}})
        {
            SetLastError(0);
            EXPECT_EQ(LoadLibraryExW(name, nullptr, flags), nullptr) << kv::platform::PathToNative(name);
            EXPECT_EQ(GetLastError(), DWORD{ERROR_FILE_NOT_FOUND});
        }
        EXPECT_EQ(LoadLibraryExW(name, nullptr, LOAD_WITH_ALTERED_SEARCH_PATH), nullptr);
    }
    EXPECT_FALSE(planted.TakeMark());
}

TEST_F(PlantedModules, AreMappedAsDataWithoutRunning)
{
    WString const path = kv::platform::PathFromNative(planted.Plant("data.so").string());
    for (DWORD const flags : {DWORD{LOAD_LIBRARY_AS_DATAFILE}, DWORD{LOAD_LIBRARY_AS_IMAGE_RESOURCE}})
    {
        HMODULE const module = LoadLibraryExW(path.c_str(), nullptr, flags);
        ASSERT_NE(module, nullptr);
        WCHAR text[10];
        EXPECT_EQ(LoadStringW(module, 1, text, 10), 0);
        EXPECT_EQ(PathOf(module), WString()) << "data is no module";
        EXPECT_TRUE(FreeLibrary(module));
    }
    DWORD zero = 0;
    EXPECT_EQ(GetFileVersionInfoSizeW(path.c_str(), &zero), 0u);
    EXPECT_FALSE(planted.TakeMark());
}

/// The file names of the libraries that this program was started with.
std::set<std::string> LoadedNames()
{
    std::set<std::string> names;
    auto const add = [](dl_phdr_info * info, std::size_t, void * argument)
    {
        std::string const path = info->dlpi_name;
        bool const isFile = path.find('/') != std::string::npos && path.find("/ld-linux") == std::string::npos;
        if (isFile)
        {
            static_cast<std::set<std::string> *>(argument)->insert(path.substr(path.rfind('/') + 1));
        }
        return 0;
    };
    dl_iterate_phdr(add, &names);
    return names;
}

TEST_F(PlantedModules, DoNotStandInForWhatAProgramIsLinkedTo)
{
    std::set<std::string> const names = LoadedNames();
    ASSERT_GT(names.count("libkvplatform.so.0"), 0u);
    ASSERT_GT(names.count("libstdc++.so.6"), 0u);
    for (std::string const & name : names)
    {
        planted.Plant(name);
    }
    std::string const program = std::filesystem::read_symlink("/proc/self/exe");
    std::string filter = "--gtest_filter=none";
    char * const arguments[] = {const_cast<char *>(program.c_str()), filter.data(), nullptr};
    pid_t child = 0;
    int status = -1;
    ASSERT_EQ(posix_spawn(&child, program.c_str(), nullptr, nullptr, arguments, environ), 0);
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
    EXPECT_FALSE(planted.TakeMark());
}

TEST_F(PlantedModules, DoNotStandInForTheFaultReporter)
{
    for (char const * const name :
         {"libfaultrep.so.0", "libfaultrep.so", "faultrep.so", "FAULTREP.DLL", "faultrep.dll", "FAULTREP"})
    {
        planted.Plant(name);
    }
    WString const layer = PathOf(GetModuleHandleW(u"kernel32.dll"));
    for (WCHAR const * const name : {u"FAULTREP.DLL", u"faultrep", u"FaultRep.dll"})
    {
        HMODULE const module = LoadLibraryW(name);
        ASSERT_NE(module, nullptr);
        WString const path = PathOf(module);
        EXPECT_EQ(path.substr(0, path.find_last_of('\\')), layer.substr(0, layer.find_last_of('\\')));
        FreeLibrary(module);
    }
    EXPECT_FALSE(planted.TakeMark());
}

TEST_F(PlantedModules, AreNotTakenForTheProgramsOwnWhenVersionsAreRead)
{
    planted.folder.Write("TestModule.so", "no module, but a file of that name");
    DWORD zero = 0;
    EXPECT_NE(GetFileVersionInfoSizeW(u"TestModule.so", &zero), 0u) << "that of the program's folder";
}

/// A class that names a server.
class ServedClass
{
public:
    explicit ServedClass(WCHAR const * server)
    {
        HKEY created = nullptr;
        EXPECT_EQ(RegCreateKeyExW(HKEY_CLASSES_ROOT, key, 0, nullptr, 0, KEY_WRITE, nullptr, &created, nullptr), 0);
        DWORD const size = static_cast<DWORD>((std::char_traits<WCHAR>::length(server) + 1) * sizeof(WCHAR));
        EXPECT_EQ(RegSetValueExW(created, nullptr, 0, REG_SZ, reinterpret_cast<BYTE const *>(server), size), 0);
        RegCloseKey(created);
    }
    ~ServedClass()
    {
        SHDeleteKeyW(HKEY_CLASSES_ROOT, u"CLSID\\{2F1D6C90-7B3E-4C55-8E10-3A5D9247610D}");
    }
    ServedClass(ServedClass const &) = delete;
    ServedClass & operator=(ServedClass const &) = delete;

    static HRESULT Create()
    {
        GUID const id = {0x2F1D6C90, 0x7B3E, 0x4C55, {0x8E, 0x10, 0x3A, 0x5D, 0x92, 0x47, 0x61, 0x0D}};
        void * object = nullptr;
        return CoCreateInstance(id, nullptr, CLSCTX_INPROC_SERVER, IID_IClassFactory, &object);
    }

private:
    static constexpr WCHAR const * key = u"CLSID\\{2F1D6C90-7B3E-4C55-8E10-3A5D9247610D}\\InprocServer32";
};

TEST_F(PlantedModules, ServeNoClassesUnlessTheirWholePathIsRegistered)
{
    kv::test::ComApartment const apartment;
    WString const path = kv::platform::PathFromNative(planted.Plant("folder/server.so").string());
    planted.Plant("server.so");
    for (WCHAR const * const server :
         {u"server", u"server.so", u".\\server.so", u"folder\\server.so", u"folder/server.so", u"Z:server.so"})
    {
        ServedClass const served(server);
        EXPECT_EQ(ServedClass::Create(), CO_E_DLLNOTFOUND) << kv::platform::PathToNative(server);
    }
    EXPECT_FALSE(planted.TakeMark());
    ServedClass const served(path.c_str());
    EXPECT_EQ(ServedClass::Create(), CO_E_ERRORINDLL) << "it is loaded and has no classes";
    EXPECT_TRUE(planted.TakeMark());
}

} // namespace

#endif
