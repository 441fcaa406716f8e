#include <kvcore/platform/win32.h>
#include <kvcore/tools/kv/RegistryData.h>
#include <kvcore/tools/kv/RegistryRequests.h>
#include <kvcore/tools/support/ExitCodes.h>
#include <kvcore/tools/support/Text.h>

// What changes the registry: set and delete.

namespace kv::tools
{

namespace
{

DWORD TypedType(std::string const & typed)
{
    if (typed.empty())
    {
        return REG_SZ;
    }
    std::optional<DWORD> const type = RegistryTypeFrom(typed);
    if (!type)
    {
        throw UsageError(
            "unknown type '" + typed +
            "'; known are REG_SZ, REG_EXPAND_SZ, REG_MULTI_SZ, REG_DWORD, REG_QWORD, REG_BINARY and REG_NONE");
    }
    return *type;
}

/// How many keys lie below a key, and how many values in all of them.
std::string ContentOf(RegistryKey key, Console & console)
{
    std::size_t keys = 0;
    std::size_t values = 0;
    (void)WalkRegistryAloud(
        std::move(key), ~std::size_t(0), console,
        [&](RegistryKey const & visited, std::size_t)
        {
            ++keys;
            values += visited.Values().size();
        });
    return "with " + Counted(keys - (keys != 0), "key") + " below it and " + Counted(values, "value") + " in all";
}

int DeleteKey(RegistryRequest const & request, Console & console)
{
    RegistryPath const path = TypedRegistryPath(request.key);
    if (path.below.empty())
    {
        throw UsageError("a root of the registry cannot be deleted");
    }
    if (!request.sure)
    {
        std::optional<RegistryKey> key = OpenRegistryKey(path, KEY_READ);
        if (!key)
        {
            return NoRegistryKey(path, console);
        }
        std::string const content = console.asks ? ContentOf(std::move(*key), console) : "";
        if (!IsConfirmed("delete " + RegistryLine(path.Shown()) + " " + content + "?", console))
        {
            Complain(console, registryCommand, "nothing was deleted");
            return ExitFailed;
        }
    }
    return DeleteRegistryKey(path) ? static_cast<int>(ExitOk) : NoRegistryKey(path, console);
}

int DeleteAllValues(RegistryPath const & path, RegistryKey const & key, bool isSure, Console & console)
{
    std::vector<RegistryValue> const values = key.Values();
    std::string const question =
        "delete " + Counted(values.size(), "value") + " of " + RegistryLine(path.Shown()) + "?";
    if (!isSure && !IsConfirmed(question, console))
    {
        Complain(console, registryCommand, "nothing was deleted");
        return ExitFailed;
    }
    for (RegistryValue const & value : values)
    {
        (void)key.DeleteValue(value.name);
    }
    return ExitOk;
}

int DeleteValue(
    RegistryPath const & path, RegistryKey const & key, std::string const & name, bool isSure, Console & console)
{
    String const wide = String::FromUtf8(name);
    std::optional<RegistryValue> const value = key.Value(wide);
    if (!value)
    {
        return NoRegistryValue(path, name, console);
    }
    std::string const question = "delete " +
        (name.empty() ? "the default value" : "the value \"" + RegistryLine(value->name) + "\"") + " of " +
        RegistryLine(path.Shown()) + "?";
    if (!isSure && !IsConfirmed(question, console))
    {
        Complain(console, registryCommand, "nothing was deleted");
        return ExitFailed;
    }
    return key.DeleteValue(wide) ? static_cast<int>(ExitOk) : NoRegistryValue(path, name, console);
}

} // namespace

int SetInRegistry(RegistryRequest const & request, Console & console)
{
    (void)console;
    RegistryPath const path = TypedRegistryPath(request.key);
    DWORD const type = TypedType(request.type);
    RegistryValue value{String::FromUtf8(request.name.value_or("")), type, {}};
    if (request.name)
    {
        value.data = RegistryDataFrom(type, request.data, request.separator);
    }
    RegistryKey const key = MakeRegistryKey(path);
    if (request.name)
    {
        key.SetValue(value);
    }
    return ExitOk;
}

int DeleteFromRegistry(RegistryRequest const & request, Console & console)
{
    if (!request.name && !request.allValues)
    {
        return DeleteKey(request, console);
    }
    RegistryPath const path = TypedRegistryPath(request.key);
    std::optional<RegistryKey> const key = OpenRegistryKey(path, KEY_READ | KEY_SET_VALUE);
    if (!key)
    {
        return NoRegistryKey(path, console);
    }
    return request.allValues ? DeleteAllValues(path, *key, request.sure, console)
                             : DeleteValue(path, *key, *request.name, request.sure, console);
}

} // namespace kv::tools
