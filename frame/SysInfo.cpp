#include <kvcore/frame/SysInfo.h>

#include <atomic>
#include <cwchar>

#include <kvcore/frame/detail/SystemClass.h>
#include <kvcore/platform/win32.h>

namespace SysInfo
{

namespace
{

// Two threads that ask for the first time at once work out the same answer.
std::atomic<System> knownSystem{UnknownSystem};
std::atomic<bool> isSystemKnown{false};

/// A function that not every version of the system has.
template <class Function>
Function * FindSystemFunction(char const * name)
{
    HMODULE const kernel = GetModuleHandleW(TEXT("kernel32.dll"));
    return kernel != nullptr ? reinterpret_cast<Function *>(reinterpret_cast<void *>(GetProcAddress(kernel, name)))
                             : nullptr;
}

std::optional<DWORD> AskForProduct(OSVERSIONINFOEXW const & version)
{
    auto * const getProductInfo = FindSystemFunction<decltype(GetProductInfo)>("GetProductInfo");
    DWORD product = 0;
    if (getProductInfo == nullptr ||
        !getProductInfo(
            version.dwMajorVersion, version.dwMinorVersion, version.wServicePackMajor, version.wServicePackMinor,
            &product))
    {
        return std::nullopt;
    }
    return product;
}

bool AskForWow64()
{
    auto * const isWow64Process = FindSystemFunction<decltype(IsWow64Process)>("IsWow64Process");
    BOOL isWow64 = FALSE;
    return isWow64Process != nullptr && isWow64Process(GetCurrentProcess(), &isWow64) && isWow64;
}

kv::detail::SystemFacts AskForFacts()
{
    OSVERSIONINFOEXW version = {};
    version.dwOSVersionInfoSize = sizeof(version);
    GetVersionExW(reinterpret_cast<OSVERSIONINFOW *>(&version));
    kv::detail::SystemFacts facts;
    facts.platform = version.dwPlatformId;
    facts.major = version.dwMajorVersion;
    facts.minor = version.dwMinorVersion;
    facts.suiteMask = version.wSuiteMask;
    facts.productType = version.wProductType;
    facts.isServerR2 = GetSystemMetrics(SM_SERVERR2) != 0;
    facts.product = AskForProduct(version);
    facts.isWow64 = AskForWow64();
    return facts;
}

} // namespace

System GetSystem()
{
    if (!isSystemKnown)
    {
        knownSystem = kv::detail::ClassifySystem(AskForFacts());
        isSystemKnown = true;
    }
    return knownSystem;
}

String GetOSName()
{
    return kv::detail::NameOfSystem(GetSystem(), GetSystemMetrics(SM_MEDIACENTER) != 0);
}

void GetSystemInfo(SYSTEM_INFO & info, String & cpuName)
{
    ::GetSystemInfo(&info);
    switch (info.wProcessorArchitecture)
    {
    case PROCESSOR_ARCHITECTURE_INTEL:
        cpuName = TEXT("Intel");
        break;
    case PROCESSOR_ARCHITECTURE_IA64:
    case PROCESSOR_ARCHITECTURE_IA32_ON_WIN64:
        cpuName = TEXT("Intel 64");
        break;
    case PROCESSOR_ARCHITECTURE_AMD64:
        cpuName = TEXT("AMD 64");
        break;
    default:
        cpuName = TEXT("Unknown");
        break;
    }
}

String GetEnvironmentVariableW(String const & name)
{
    DWORD const size = ::GetEnvironmentVariableW(name.c_str(), nullptr, 0);
    if (size < 2)
    {
        return {};
    }
    String value(WString(size, 0));
    DWORD const length = ::GetEnvironmentVariableW(name.c_str(), value.data(), size);
    if (length != size - 1) // somebody has changed it in between
    {
        return {};
    }
    value.resize(length);
    return value;
}

namespace
{

/// The map that an enumeration on this thread fills: the system's callback is given nothing to find it by.
thread_local std::map<unsigned int, String> * listedPages = nullptr;

/// The largest number for one that is larger, which is no code page's: not another one that its lowest bits would be.
unsigned int ParseNumber(WCHAR const * text)
{
    constexpr unsigned int largest = 0xFFFFFFFF;
    unsigned int number = 0;
    for (; *text >= '0' && *text <= '9'; ++text)
    {
        unsigned int const digit = static_cast<unsigned int>(*text - '0');
        if (number > (largest - digit) / 10)
        {
            return largest;
        }
        number = number * 10 + digit;
    }
    return number;
}

BOOL CALLBACK ListCodePage(LPWSTR text)
{
    unsigned int const number = ParseNumber(text);
    CPINFOEXW information;
    if (number != 0 && IsValidCodePage(number) && GetCPInfoExW(number, 0, &information))
    {
        (*listedPages)[number] = information.CodePageName;
    }
    return TRUE;
}

} // namespace

void EnumInstalledCodepages(std::map<unsigned int, String> & codePages)
{
    codePages.clear();
    listedPages = &codePages;
    EnumSystemCodePagesW(ListCodePage, CP_INSTALLED);
    listedPages = nullptr;
}

} // namespace SysInfo
