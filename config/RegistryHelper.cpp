#include <new>

#include <kvcore/config/RegistryHelper.h>
#include <kvcore/config/SysRegKey.h>
#include <kvcore/platform/win32.h>

namespace
{

SysRegKey Machine()
{
    return SysRegKey(HKEY_LOCAL_MACHINE);
}

String ClassPath(GUID const & id)
{
    return TEXT("Software\\Classes\\CLSID\\") + RegistryHelper::GetClassString(id);
}

String ServerPath(GUID const & id)
{
    return ClassPath(id) + TEXT("\\InprocServer32");
}

WCHAR const * TextOf(RegistryHelper::ThreadingModel model)
{
    switch (model)
    {
    case RegistryHelper::Apartment:
        return TEXT("Apartment");
    case RegistryHelper::Both:
        return TEXT("Both");
    case RegistryHelper::Free:
        return TEXT("Free");
    case RegistryHelper::Neutral:
        return TEXT("Neutral");
    default:
        return nullptr;
    }
}

String DefaultValue(String const & path)
{
    String text;
    Machine().OpenSubkey(path, KEY_READ).GetString(String(), text);
    return text;
}

} // namespace

String RegistryHelper::GetClassString(GUID const & id)
{
    LPOLESTR text = nullptr;
    if (FAILED(StringFromCLSID(id, &text)))
    {
        throw std::bad_alloc(); // no other failure; an empty text would name the key of all classes
    }
    String const result(text);
    CoTaskMemFree(text);
    return result;
}

bool RegistryHelper::RegisterCLSID(GUID const & id)
{
    return Machine().CreateSubkey(ClassPath(id), 0, KEY_READ | KEY_WRITE, nullptr).IsValid();
}

bool RegistryHelper::UnregisterCLSID(GUID const & id)
{
    return Machine().DeleteSubkey(ClassPath(id), true);
}

bool RegistryHelper::RegisterInprocServer32(GUID const & id, String server, ThreadingModel model)
{
    SysRegKey key = Machine().CreateSubkey(ServerPath(id), 0, KEY_WRITE, nullptr);
    if (!key.IsValid() || !key.SetString(String(), server))
    {
        return false;
    }
    if (WCHAR const * const text = TextOf(model))
    {
        return key.SetString(TEXT("ThreadingModel"), text);
    }
    key.DeleteValue(TEXT("ThreadingModel"));
    return true;
}

bool RegistryHelper::UnregisterInprocServer32(GUID const & id)
{
    return Machine().DeleteSubkey(ServerPath(id), true);
}

String RegistryHelper::GetClassDescription(GUID const & id)
{
    return DefaultValue(ClassPath(id));
}

String RegistryHelper::GetClassServer(GUID const & id)
{
    return DefaultValue(ServerPath(id));
}
