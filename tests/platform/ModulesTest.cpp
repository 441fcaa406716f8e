#include <cstring>
#include <filesystem>
#include <vector>

#include <gtest/gtest.h>

#include <kvcore/platform/ModulePaths.h>
#include <kvcore/platform/NativePaths.h>
#include <kvcore/platform/win32.h>
#include <support/ScopedHandle.h>
#include <support/ScratchFolder.h>

namespace
{

/// A module that was loaded, which the end of the test frees.
class Loaded
{
public:
    explicit Loaded(WString const & name, DWORD flags = 0) : module(LoadLibraryExW(name.c_str(), nullptr, flags)) {}
    Loaded(Loaded const &) = delete;
    Loaded & operator=(Loaded const &) = delete;
    ~Loaded()
    {
        if (module != nullptr)
        {
            FreeLibrary(module);
        }
    }
    operator HMODULE() const
    {
        return module;
    }

private:
    HMODULE const module;
};

WString PathOf(HMODULE module)
{
    WCHAR path[1024] = {};
    DWORD const length = GetModuleFileNameW(module, path, 1024);
    return WString(path, length);
}

WString NameOf(HMODULE module)
{
    WString const path = PathOf(module);
    return path.substr(path.find_last_of('\\') + 1);
}

void * Base(HMODULE module)
{
    return module;
}

/// A handle that is none, though its address lies in a module.
HMODULE Inside(HMODULE module)
{
    return reinterpret_cast<HMODULE>(reinterpret_cast<char *>(module) + 0x1000);
}

/// The last error behind a call that must fail.
template <class Call>
DWORD ErrorOf(Call call)
{
    SetLastError(0);
    EXPECT_FALSE(call());
    return GetLastError();
}

WCHAR const * const moduleName = TEXT("TestModule");
WCHAR const * const resourceName = TEXT("TestResources.bir");

TEST(Modules, AModuleOfTheProgramsFolderIsFoundByItsBareName)
{
    Loaded const module(moduleName);
    ASSERT_NE(nullptr, static_cast<HMODULE>(module));
    WString const path = PathOf(module);
    EXPECT_EQ(0u, path.rfind(PathOf(nullptr).substr(0, 3), 0)) << "both lie on one drive";
    EXPECT_EQ(PathOf(nullptr).substr(0, PathOf(nullptr).find_last_of('\\')), path.substr(0, path.find_last_of('\\')));
    EXPECT_EQ(0u, NameOf(module).rfind(moduleName, 0));
    Loaded const byPath(path);
    EXPECT_EQ(Base(module), Base(byPath));
}

TEST(Modules, ALibrarysFunctionsAreFoundByTheirExactNames)
{
    Loaded const module(moduleName);
    ASSERT_NE(nullptr, static_cast<HMODULE>(module));
    FARPROC const function = GetProcAddress(module, "TestModuleAnswer");
    ASSERT_NE(nullptr, function);
    int (*answer)() = nullptr;
    std::memcpy(&answer, &function, sizeof(answer));
    EXPECT_EQ(42, answer());
    EXPECT_EQ(DWORD{ERROR_PROC_NOT_FOUND}, ErrorOf([&] { return GetProcAddress(module, "testmoduleanswer"); }));
    EXPECT_EQ(DWORD{ERROR_PROC_NOT_FOUND}, ErrorOf([&] { return GetProcAddress(module, ""); }));
    EXPECT_EQ(DWORD{ERROR_PROC_NOT_FOUND}, ErrorOf([&] { return GetProcAddress(module, MAKEINTRESOURCEA(9)); }));
    EXPECT_EQ(DWORD{ERROR_PROC_NOT_FOUND}, ErrorOf([&] { return GetProcAddress(module, "strlen"); }))
        << "what the module uses is not the module's";
    EXPECT_EQ(
        DWORD{ERROR_MOD_NOT_FOUND},
        ErrorOf([&] { return GetProcAddress(reinterpret_cast<HMODULE>(ULONG_PTR{0x12340000}), "strlen"); }));
}

TEST(Modules, TheHandleIsTheAddressThatTheModuleLiesAt)
{
    Loaded const module(moduleName);
    ASSERT_NE(nullptr, static_cast<HMODULE>(module));
    FARPROC const function = GetProcAddress(module, "TestModuleAnswer");
    MEMORY_BASIC_INFORMATION region{};
    ASSERT_NE(0u, VirtualQuery(reinterpret_cast<void const *>(function), &region, sizeof(region)));
    EXPECT_EQ(Base(module), region.AllocationBase);
    EXPECT_EQ(DWORD{MEM_IMAGE}, region.Type);

    HMODULE holder = nullptr;
    ASSERT_TRUE(GetModuleHandleExW(
        GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
        reinterpret_cast<WCHAR const *>(function), &holder));
    EXPECT_EQ(Base(module), Base(holder));
}

TEST(Modules, ALibraryStaysUntilItIsFreedAsOftenAsItWasLoaded)
{
    HMODULE const first = LoadLibraryW(moduleName);
    ASSERT_NE(nullptr, first);
    EXPECT_EQ(first, LoadLibraryW(moduleName));
    HMODULE counted = nullptr;
    EXPECT_TRUE(GetModuleHandleExW(0, moduleName, &counted));
    EXPECT_EQ(first, counted);
    EXPECT_EQ(first, GetModuleHandleW(moduleName)) << "which counts nothing";
    for (int i = 0; i < 2; ++i)
    {
        EXPECT_TRUE(FreeLibrary(first));
        EXPECT_EQ(first, GetModuleHandleW(moduleName));
    }
    EXPECT_TRUE(FreeLibrary(first));
    EXPECT_EQ(DWORD{ERROR_MOD_NOT_FOUND}, ErrorOf([] { return GetModuleHandleW(moduleName); }));
    EXPECT_EQ(DWORD{ERROR_MOD_NOT_FOUND}, ErrorOf([first] { return FreeLibrary(first); }));
}

TEST(Modules, TheProgramCannotBeFreed)
{
    HMODULE const program = GetModuleHandleW(nullptr);
    EXPECT_TRUE(FreeLibrary(program));
    EXPECT_TRUE(FreeLibrary(program));
    EXPECT_EQ(program, GetModuleHandleW(nullptr));
    EXPECT_EQ(DWORD{ERROR_INVALID_HANDLE}, ErrorOf([] { return FreeLibrary(nullptr); }));
    EXPECT_EQ(DWORD{ERROR_MOD_NOT_FOUND}, ErrorOf([program] { return FreeLibrary(Inside(program)); }));
}

TEST(Modules, AFileOfResourcesLoadsLikeALibrary)
{
    HMODULE const module = LoadLibraryW(resourceName);
    ASSERT_NE(nullptr, module);
    EXPECT_EQ(resourceName, NameOf(module));
    EXPECT_EQ(module, GetModuleHandleW(resourceName));
    EXPECT_EQ(module, LoadLibraryW(PathOf(module).c_str()));
    MEMORY_BASIC_INFORMATION region{};
    ASSERT_NE(0u, VirtualQuery(module, &region, sizeof(region)));
    EXPECT_EQ(static_cast<void *>(module), region.BaseAddress);
    EXPECT_EQ(static_cast<void *>(module), region.AllocationBase);
    EXPECT_EQ(DWORD{MEM_COMMIT}, region.State);
    EXPECT_EQ(DWORD{MEM_IMAGE}, region.Type);
    EXPECT_EQ(DWORD{PAGE_READONLY}, region.Protect);
    EXPECT_EQ(DWORD{ERROR_PROC_NOT_FOUND}, ErrorOf([module] { return GetProcAddress(module, "none"); }));
    EXPECT_TRUE(FreeLibrary(module));
    EXPECT_EQ(module, GetModuleHandleW(resourceName));
    EXPECT_TRUE(FreeLibrary(module));
    EXPECT_EQ(nullptr, GetModuleHandleW(resourceName));
}

TEST(Modules, WhatIsLoadedAsDataIsNoModule)
{
    Loaded const data(resourceName, LOAD_LIBRARY_AS_DATAFILE);
    ASSERT_NE(nullptr, static_cast<HMODULE>(data));
    EXPECT_EQ(1u, reinterpret_cast<ULONG_PTR>(Base(data)) & 3);
    EXPECT_EQ(nullptr, GetModuleHandleW(resourceName));
    WCHAR text[10];
    EXPECT_EQ(3, LoadStringW(data, 1, text, 10));
}

TEST(Modules, PathsThatDoNotFitAreCut)
{
    WString const path = PathOf(nullptr);
    DWORD const length = static_cast<DWORD>(path.size());
    WString buffer(length + 10, 'x');
    EXPECT_EQ(length, GetModuleFileNameW(nullptr, buffer.data(), length + 1));
    EXPECT_EQ(path, WString(buffer.c_str()));
    EXPECT_EQ(length, GetModuleFileNameW(nullptr, buffer.data(), length));
    EXPECT_EQ(DWORD{ERROR_INSUFFICIENT_BUFFER}, GetLastError());
    EXPECT_EQ(path.substr(0, 3), WString(buffer.data(), 3));
    EXPECT_EQ(4u, GetModuleFileNameW(nullptr, buffer.data(), 4));
    EXPECT_EQ(path.substr(0, 3), WString(buffer.data(), 3));
    EXPECT_EQ(
        DWORD{ERROR_MOD_NOT_FOUND},
        ErrorOf([&] { return GetModuleFileNameW(Inside(GetModuleHandleW(nullptr)), buffer.data(), length); }));
}

TEST(Modules, PathsThatAreKeptAreTheModules)
{
    auto const keptPathOf = [](void const * address) { return WString(kv::platform::KeptModulePath(address)); };
    // A system may keep none; where it does, they are those that it tells.
    WString const program = keptPathOf(reinterpret_cast<void const *>(&PathOf));
    bool const keepsAny = !program.empty();
    EXPECT_EQ(program, keepsAny ? PathOf(nullptr) : WString());
    // Libraries that may get each other's address.
    ScratchFolder const folder;
    WString const path = PathOf(Loaded(moduleName));
    auto const copy =
        folder.Path() / ("copy" + std::filesystem::path(kv::platform::PathToNative(path)).extension().string());
    std::filesystem::copy_file(kv::platform::PathToNative(path), copy);
    for (int round = 0; round < 3; ++round)
    {
        for (WString const & name : {path, kv::platform::PathFromNative(copy.string())})
        {
            Loaded const module(name);
            ASSERT_NE(module, nullptr);
            SetLastError(1234);
            WString const kept = keptPathOf(Base(module));
            EXPECT_EQ(GetLastError(), 1234u);
            EXPECT_EQ(kept, keepsAny ? name : WString());
            EXPECT_EQ(
                kv::platform::KeptModulePath(Base(module)).data(), kv::platform::KeptModulePath(Inside(module)).data());
        }
    }
    std::vector<char> const heap(100);
    EXPECT_EQ(keptPathOf(heap.data()), WString());
    EXPECT_EQ(keptPathOf(nullptr), WString());
}

TEST(Modules, WhatIsMissingOrNoModuleDoesNotLoad)
{
    ScratchFolder const folder;
    folder.Write("text.so", "this is no module, whatever its name says, and long enough to be one, one might think");
    folder.Write("short.so", "MZ");
    folder.Write("empty.so", "");
    struct
    {
        WString name;
        DWORD error;
    } const cases[] = {
        {TEXT("no such module"), ERROR_MOD_NOT_FOUND},
        {TEXT("no.such.module"), ERROR_MOD_NOT_FOUND},
        {Win32Path(folder / "missing.so"), ERROR_MOD_NOT_FOUND},
        {Win32Path(folder / "missing" / "missing.so"), ERROR_MOD_NOT_FOUND},
        {Win32Path(folder / "text.so"), ERROR_BAD_EXE_FORMAT},
        {Win32Path(folder / "short.so"), ERROR_BAD_EXE_FORMAT},
    };
    for (auto const & attempt : cases)
    {
        for (DWORD const flags : {DWORD{0}, DWORD{LOAD_LIBRARY_AS_DATAFILE}})
        {
            DWORD const error = ErrorOf([&] { return LoadLibraryExW(attempt.name.c_str(), nullptr, flags); });
            EXPECT_TRUE(
                error == attempt.error ||
                (flags != 0 && attempt.error == ERROR_MOD_NOT_FOUND &&
                 (error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND)))
                << kv::platform::PathToNative(attempt.name) << ": " << error;
        }
    }
    EXPECT_EQ(DWORD{ERROR_MOD_NOT_FOUND}, ErrorOf([] { return LoadLibraryW(TEXT("")); }));
    EXPECT_EQ(DWORD{ERROR_INVALID_PARAMETER}, ErrorOf([] { return LoadLibraryW(nullptr); }));
}

TEST(Modules, HandlesAreAskedForInOneWayOrNotAtAll)
{
    HMODULE module = GetModuleHandleW(nullptr);
    EXPECT_EQ(DWORD{ERROR_INVALID_PARAMETER}, ErrorOf([&] { return GetModuleHandleExW(8, moduleName, &module); }));
    EXPECT_EQ(DWORD{ERROR_INVALID_PARAMETER}, ErrorOf([&] { return GetModuleHandleExW(3, moduleName, &module); }));
    EXPECT_EQ(DWORD{ERROR_INVALID_PARAMETER}, ErrorOf([&] { return GetModuleHandleExW(0, nullptr, nullptr); }));
    EXPECT_EQ(DWORD{ERROR_MOD_NOT_FOUND}, ErrorOf([&] { return GetModuleHandleExW(0, TEXT("none"), &module); }));
    EXPECT_EQ(nullptr, module);
    int local = 0;
    module = GetModuleHandleW(nullptr);
    EXPECT_EQ(
        DWORD{ERROR_MOD_NOT_FOUND},
        ErrorOf([&] { return GetModuleHandleExW(6, reinterpret_cast<WCHAR const *>(&local), &module); }));
    EXPECT_EQ(nullptr, module);
}

TEST(Modules, TheSystemsOwnLibrariesHaveTheirNames)
{
    HMODULE const kernel = GetModuleHandleW(TEXT("kernel32.dll"));
    ASSERT_NE(nullptr, kernel);
    EXPECT_EQ(kernel, GetModuleHandleW(TEXT("KERNEL32")));
    EXPECT_NE(nullptr, GetProcAddress(kernel, "VirtualQuery"));
    EXPECT_EQ(nullptr, GetProcAddress(kernel, "virtualquery"));
    EXPECT_NE(nullptr, static_cast<HMODULE>(Loaded(TEXT("version.dll"))));
}

} // namespace
