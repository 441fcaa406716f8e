#include <limits>

#include <kvcore/platform/win32.h>
#include <kvcore/tools/kv/NamedStreams.h>
#include <kvcore/tools/kv/RegistryData.h>
#include <kvcore/tools/kv/RegistryRequests.h>
#include <kvcore/tools/support/ExitCodes.h>
#include <kvcore/tools/support/Text.h>

// What shows the registry: list, query and get.

namespace kv::tools
{

namespace
{

/// The name behind the last backslash.
String LastName(String const & path)
{
    return path.substr(path.rfind('\\') + 1);
}

/// A key and its values in the tree: names of keys end in a backslash below the first.
void PrintInTree(RegistryKey const & key, std::size_t level, OutputStream & output)
{
    std::string const indent(level * 4, ' ');
    std::string const name = level == 0 ? RegistryLine(key.Path()) : RegistryLine(LastName(key.Path())) + "\\";
    PrintLine(output, std::string_view(indent + name));
    for (RegistryValue const & value : key.Values())
    {
        PrintLine(output, std::string_view(indent + "    " + RegistryValueLine(value)));
    }
}

void PrintWithTabs(RegistryKey const & key, OutputStream & output)
{
    std::string const path = RegistryField(key.Path());
    PrintLine(output, std::string_view(path));
    for (RegistryValue const & value : key.Values())
    {
        PrintLine(
            output,
            std::string_view(
                path + '\t' + RegistryField(value.name) + '\t' + RegistryTypeName(value.type) + '\t' +
                RegistryField(RegistryDataText(value))));
    }
}

/// A key's heading and values as the platform's own tool prints them, a blank line before. Nothing of one without.
void PrintAsQuery(RegistryKey const & key, std::vector<RegistryValue> const & values, OutputStream & output)
{
    if (values.empty())
    {
        return;
    }
    PrintLine(output, std::string_view());
    PrintLine(output, std::string_view(RegistryLine(key.Path())));
    for (RegistryValue const & value : values)
    {
        PrintLine(output, std::string_view("    " + RegistryValueLine(value)));
    }
}

} // namespace

int ListRegistry(RegistryRequest const & request, Console & console)
{
    RegistryPath const path = TypedRegistryPath(request.key);
    std::optional<RegistryKey> key = OpenRegistryKey(path, KEY_READ);
    if (!key)
    {
        return NoRegistryKey(path, console);
    }
    NamedOutput output("-", console);
    int const result = WalkRegistryAloud(
        std::move(*key), request.depth, console,
        [&](RegistryKey const & visited, std::size_t level)
        { request.tabs ? PrintWithTabs(visited, output) : PrintInTree(visited, level, output); });
    output.Finish();
    return result;
}

int QueryRegistry(RegistryRequest const & request, Console & console)
{
    RegistryPath const path = TypedRegistryPath(request.key);
    std::optional<RegistryKey> key = OpenRegistryKey(path, KEY_READ);
    if (!key)
    {
        return NoRegistryKey(path, console);
    }
    NamedOutput output("-", console);
    std::size_t matches = 0;
    std::vector<String> below;
    int const result = WalkRegistryAloud(
        std::move(*key), request.depth, console,
        [&](RegistryKey const & visited, std::size_t)
        {
            std::vector<RegistryValue> values;
            if (!request.name)
            {
                values = visited.Values();
                below = request.depth == 0 ? visited.Subkeys() : std::vector<String>();
            }
            else if (std::optional<RegistryValue> value = visited.Value(String::FromUtf8(*request.name)))
            {
                values.push_back(std::move(*value));
            }
            matches += values.size();
            PrintAsQuery(visited, values, output);
        });
    if (!below.empty())
    {
        PrintLine(output, std::string_view());
    }
    for (String const & name : below)
    {
        PrintLine(output, std::string_view(RegistryLine(path.Shown() + TEXT("\\") + name)));
    }
    output.Finish();
    if (request.name && matches == 0)
    {
        return NoRegistryValue(path, *request.name, console);
    }
    return result;
}

int GetFromRegistry(RegistryRequest const & request, Console & console)
{
    RegistryPath const path = TypedRegistryPath(request.key);
    std::optional<RegistryKey> const key = OpenRegistryKey(path, KEY_QUERY_VALUE);
    if (!key)
    {
        return NoRegistryKey(path, console);
    }
    std::optional<RegistryValue> const value = key->Value(String::FromUtf8(request.name.value_or("")));
    if (!value)
    {
        return NoRegistryValue(path, request.name.value_or(""), console);
    }
    NamedOutput output("-", console);
    if (request.raw)
    {
        Print(output, std::string_view(value->data));
    }
    else if (value->type == REG_MULTI_SZ && value->data.size() % sizeof(WCHAR) == 0)
    {
        for (String const & item : RegistryDataItems(value->data))
        {
            PrintLine(output, std::string_view(Presented(console, item.Utf8())));
        }
    }
    else
    {
        PrintLine(output, std::string_view(Presented(console, RegistryDataText(*value).Utf8())));
    }
    output.Finish();
    return ExitOk;
}

} // namespace kv::tools
