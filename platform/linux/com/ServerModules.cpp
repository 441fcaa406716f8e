#include "ServerModules.h"

#include <algorithm>
#include <map>
#include <mutex>
#include <string>
#include <string_view>

#include <kvcore/platform/include/libloaderapi.h>
#include <kvcore/platform/include/winreg.h>

namespace kv::platform
{

namespace
{

using GetClassObject = HRESULT(STDAPICALLTYPE *)(REFCLSID id, REFIID iid, void ** object);

struct ServerModules
{
    std::mutex mutex;
    std::map<std::u16string, GetClassObject> loaded; ///< by the path that the registry has
};

ServerModules & Modules()
{
    static ServerModules & modules = *new ServerModules;
    return modules;
}

/// The path of a class's module; empty if none is registered.
std::u16string ServerOf(REFCLSID id)
{
    constexpr int guidTextSize = 39;
    WCHAR text[guidTextSize];
    StringFromGUID2(id, text, guidTextSize);
    std::u16string const path = u"CLSID\\" + std::u16string(text) + u"\\InprocServer32";
    HKEY key = nullptr;
    if (RegOpenKeyExW(HKEY_CLASSES_ROOT, path.c_str(), 0, KEY_QUERY_VALUE, &key) != 0)
    {
        return {};
    }
    constexpr std::size_t longestPath = 32768;
    std::u16string server(longestPath, u'\0');
    DWORD type = 0;
    DWORD size = longestPath * sizeof(WCHAR);
    LSTATUS const status =
        RegQueryValueExW(key, nullptr, nullptr, &type, reinterpret_cast<BYTE *>(server.data()), &size);
    RegCloseKey(key);
    if (status != 0 || type != REG_SZ)
    {
        return {};
    }
    server.resize(size / sizeof(WCHAR));
    server.resize(std::min(server.size(), server.find(u'\0')));
    return server;
}

/// A path from a drive or a root on, or a bare name, which takes the system's search. What another path means depends
/// on where the program stands, and so does the code that would run.
bool IsServerPath(std::u16string const & server)
{
    std::u16string_view const path = server;
    bool const hasDrive = path.size() > 2 && path[1] == u':';
    std::size_t const separator = path.find_first_of(u"\\/:");
    return separator == path.npos || separator == 0 || (hasDrive && (path[2] == u'\\' || path[2] == u'/'));
}

} // namespace

HRESULT GetModuleClassObject(REFCLSID id, REFIID iid, void ** object)
{
    std::u16string const server = ServerOf(id);
    if (server.empty())
    {
        return REGDB_E_CLASSNOTREG;
    }
    GetClassObject getClassObject = nullptr;
    {
        ServerModules & modules = Modules();
        std::lock_guard const guard(modules.mutex);
        auto const known = modules.loaded.find(server);
        getClassObject = known != modules.loaded.end() ? known->second : nullptr;
    }
    if (getClassObject == nullptr)
    {
        // Without the lock: the module's own start may ask for classes.
        HMODULE const module = IsServerPath(server) ? LoadLibraryW(server.c_str()) : nullptr;
        if (module == nullptr)
        {
            return CO_E_DLLNOTFOUND;
        }
        getClassObject =
            reinterpret_cast<GetClassObject>(reinterpret_cast<void *>(GetProcAddress(module, "DllGetClassObject")));
        if (getClassObject == nullptr)
        {
            FreeLibrary(module);
            return CO_E_ERRORINDLL;
        }
        std::lock_guard const guard(Modules().mutex);
        Modules().loaded.emplace(server, getClassObject);
    }
    return getClassObject(id, iid, object);
}

} // namespace kv::platform
