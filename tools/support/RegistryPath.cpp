#include <kvcore/tools/support/RegistryPath.h>

#include <algorithm>

#include <kvcore/platform/win32.h>

namespace kv::tools
{

namespace
{

struct Root
{
    HKEY key;
    WCHAR const * name;
    WCHAR const * shortName;
};

Root const roots[] = {
    {HKEY_CLASSES_ROOT, TEXT("HKEY_CLASSES_ROOT"), TEXT("HKCR")},
    {HKEY_CURRENT_USER, TEXT("HKEY_CURRENT_USER"), TEXT("HKCU")},
    {HKEY_LOCAL_MACHINE, TEXT("HKEY_LOCAL_MACHINE"), TEXT("HKLM")},
    {HKEY_USERS, TEXT("HKEY_USERS"), TEXT("HKU")},
    {HKEY_PERFORMANCE_DATA, TEXT("HKEY_PERFORMANCE_DATA"), TEXT("HKPD")},
    {HKEY_CURRENT_CONFIG, TEXT("HKEY_CURRENT_CONFIG"), TEXT("HKCC")},
    {HKEY_DYN_DATA, TEXT("HKEY_DYN_DATA"), TEXT("HKDD")},
};

constexpr std::size_t longestName = 255;

/// Roots have names of letters without accents.
bool IsSameName(WString const & name, WString const & other)
{
    auto const fold = [](WCHAR c) { return c >= 'A' && c <= 'Z' ? c | 0x20 : c; };
    return std::equal(
        name.begin(), name.end(), other.begin(), other.end(), [&](WCHAR a, WCHAR b) { return fold(a) == fold(b); });
}

/// The part up to the next backslash, which is taken off `rest` with it.
String TakePart(String & rest)
{
    std::size_t const end = std::min(rest.find('\\'), rest.size());
    String part = rest.substr(0, end);
    rest.erase(0, end + 1);
    return part;
}

Root const & FindRoot(String name)
{
    if (!name.empty() && name.back() == ':')
    {
        name.pop_back();
    }
    for (Root const & root : roots)
    {
        if (IsSameName(name, root.name) || IsSameName(name, root.shortName))
        {
            return root;
        }
    }
    throw BadRegistryPath(
        "\"" + name.Utf8() + "\" is no root of the registry; HKEY_CURRENT_USER (HKCU), HKEY_LOCAL_MACHINE (HKLM), " +
        "HKEY_CLASSES_ROOT (HKCR), HKEY_USERS (HKU) and HKEY_CURRENT_CONFIG (HKCC) are");
}

} // namespace

RegistryPath::RegistryPath(String const & text)
{
    String rest = text;
    if (rest.starts_with(TEXT("\\\\")))
    {
        rest.erase(0, 2);
        machine = TakePart(rest);
        if (machine.empty())
        {
            throw BadRegistryPath("two backslashes stand before the name of a machine");
        }
    }
    String first = TakePart(rest);
    if (machine.empty() && IsSameName(first, TEXT("Computer")))
    {
        first = TakePart(rest);
    }
    Root const & found = FindRoot(first);
    root = found.key;
    rootName = found.name;
    while (!rest.empty())
    {
        String const name = TakePart(rest);
        if (name.size() > longestName)
        {
            throw BadRegistryPath("the name of a key has more than 255 characters: \"" + name.Utf8() + "\"");
        }
        if (!name.empty())
        {
            below += (below.empty() ? TEXT("") : TEXT("\\")) + name;
        }
    }
}

String RegistryPath::Shown() const
{
    return (machine.empty() ? String() : String(TEXT("\\\\") + machine + TEXT("\\"))) + rootName +
        (below.empty() ? String() : String(TEXT("\\") + below));
}

} // namespace kv::tools
