#include <kvcore/frame/ModuleBase.h>

#include <vector>

#include <kvcore/platform/win32.h>

// What modules do for their process.

namespace
{

/// The fixed part of a file's version block; false if there is none.
bool ReadFixedVersion(String const & path, VS_FIXEDFILEINFO & version)
{
    DWORD ignored = 0;
    DWORD const size = GetFileVersionInfoSizeW(path.c_str(), &ignored);
    if (size == 0)
    {
        return false;
    }
    std::vector<char> block(size);
    void * found = nullptr;
    UINT length = 0;
    if (!GetFileVersionInfoW(path.c_str(), 0, size, block.data()) ||
        !VerQueryValueW(block.data(), TEXT("\\"), &found, &length) || length < sizeof version)
    {
        return false;
    }
    version = *static_cast<VS_FIXEDFILEINFO const *>(found);
    return true;
}

} // namespace

void ModuleBase::GetModuleVersion(
    String const & path, DWORD & productMS, DWORD & productLS, DWORD & fileMS, DWORD & fileLS)
{
    VS_FIXEDFILEINFO version = {};
    ReadFixedVersion(path, version);
    productMS = version.dwProductVersionMS;
    productLS = version.dwProductVersionLS;
    fileMS = version.dwFileVersionMS;
    fileLS = version.dwFileVersionLS;
}

void ModuleBase::GetModuleVersion(
    HINSTANCE module, DWORD & productMS, DWORD & productLS, DWORD & fileMS, DWORD & fileLS)
{
    productMS = productLS = fileMS = fileLS = 0;
    String const path = GetPath(module);
    if (!path.empty())
    {
        GetModuleVersion(path, productMS, productLS, fileMS, fileLS);
    }
}

void ModuleBase::GetModuleVersion(DWORD & productMS, DWORD & productLS, DWORD & fileMS, DWORD & fileLS)
{
    GetModuleVersion(instance, productMS, productLS, fileMS, fileLS);
}

HINSTANCE ModuleBase::GetHInstance(void const * address)
{
    MEMORY_BASIC_INFORMATION region;
    bool const known = VirtualQuery(address, &region, sizeof region) == sizeof region;
    return known ? static_cast<HINSTANCE>(region.AllocationBase) : nullptr;
}

int ModuleBase::MessageBoxW(HWND owner, WCHAR const * text, WCHAR const * caption, unsigned int type)
{
    MSGBOXPARAMSW parameters = {};
    parameters.cbSize = sizeof parameters;
    parameters.hwndOwner = IsWindow(owner) ? owner : nullptr;
    parameters.lpszText = text;
    parameters.lpszCaption = caption;
    parameters.dwStyle = type;
    parameters.dwLanguageId = GetLanguage();
    return MessageBoxIndirectW(&parameters);
}

namespace
{

/// A line of the table of modules.
String ModuleLine(void const * base, String const & path)
{
    constexpr std::size_t versionWidth = 25;
    DWORD high, low, ignored;
    ModuleBase::GetModuleVersion(path, high, low, ignored, ignored);
    String version =
        String::FromFormat(TEXT("%i.%i.%i.%i"), int(high >> 16), int(high & 0xFFFF), int(low >> 16), int(low & 0xFFFF));
    if (version.size() < versionWidth)
    {
        version.append(versionWidth - version.size(), ' ');
    }
    // At least eight digits: addresses may have more here.
    String line = String::FromFormat(TEXT("0x%08I64X  "), static_cast<ULONGLONG>(reinterpret_cast<ULONG_PTR>(base)));
    line += version;
    line += path;
    line += TEXT("\r\n");
    return line;
}

} // namespace

String ModuleBase::GetProcessInformation()
{
    String table = TEXT("Address     Version                  Module name\r\n"
                        "-----------------------------------------------------\r\n");
    char const * address = nullptr;
    MEMORY_BASIC_INFORMATION region;
    while (VirtualQuery(address, &region, sizeof region) == sizeof region)
    {
        if (region.BaseAddress == region.AllocationBase && region.AllocationBase != nullptr)
        {
            String const path = GetPath(static_cast<HINSTANCE>(region.AllocationBase));
            if (!path.empty())
            {
                table += ModuleLine(region.AllocationBase, path);
            }
        }
        char const * const next = static_cast<char const *>(region.BaseAddress) + region.RegionSize;
        if (next <= address)
        {
            break; // the last region ends where the addresses do
        }
        address = next;
    }
    return table;
}

bool ModuleBase::ExecShutdown(unsigned int flags, unsigned int reason)
{
    HANDLE token = nullptr; // Kept: stays open
    TOKEN_PRIVILEGES privileges = {};
    privileges.PrivilegeCount = 1;
    privileges.Privileges[0].Attributes = SE_PRIVILEGE_ENABLED;
    if (!OpenProcessToken(GetCurrentProcess(), TOKEN_ADJUST_PRIVILEGES | TOKEN_QUERY, &token) ||
        !LookupPrivilegeValueW(nullptr, TEXT("SeShutdownPrivilege"), &privileges.Privileges[0].Luid) ||
        !AdjustTokenPrivileges(token, FALSE, &privileges, 0, nullptr, nullptr))
    {
        return false;
    }
    ExitWindowsEx(flags, reason); // Kept: whatever it answers
    return true;
}
