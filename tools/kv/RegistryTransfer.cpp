#include <algorithm>
#include <filesystem>
#include <optional>

#include <kvcore/files/File.h>
#include <kvcore/platform/win32.h>
#include <kvcore/tools/kv/NamedStreams.h>
#include <kvcore/tools/kv/RegistryData.h>
#include <kvcore/tools/kv/RegistryRequests.h>
#include <kvcore/tools/support/ExitCodes.h>
#include <kvcore/tools/support/Paths.h>
#include <kvcore/tools/support/RegistryText.h>
#include <kvcore/tools/support/SafeFile.h>
#include <kvcore/tools/support/Text.h>

// Files of keys and values: export and import.

namespace kv::tools
{

namespace
{

int WriteTree(RegistryKey key, Console & console, OutputStream & output)
{
    RegistryTextWriter writer(output);
    int const result = WalkRegistryAloud(
        std::move(key), ~std::size_t(0), console,
        [&](RegistryKey const & visited, std::size_t)
        {
            if (!RegistryTextWriter::CanHold(visited.Path()))
            {
                throw RegistryFailure(ERROR_INVALID_NAME, "a file cannot hold the key " + RegistryLine(visited.Path()));
            }
            std::vector<RegistryValue> const values = visited.Values();
            writer.Key(visited.Path());
            std::for_each(values.begin(), values.end(), [&](RegistryValue const & value) { writer.Value(value); });
        });
    writer.Finish();
    return result;
}

bool IsStandardStream(std::string const & file)
{
    return file.empty() || file == "-";
}

int WriteFile(RegistryKey key, RegistryRequest const & request, Console & console)
{
    try
    {
        SafeFile file(TypedNativePath(request.file));
        int const result = WriteTree(std::move(key), console, file.Stream());
        file.Commit();
        return result;
    }
    catch (IoException const & failure)
    {
        throw OutputFailure(failure, "cannot write " + request.file);
    }
}

std::string ReadAll(NamedInput & input)
{
    constexpr std::size_t piece = 64 * 1024;
    std::string bytes;
    for (;;)
    {
        std::size_t const size = bytes.size();
        bytes.resize(size + piece);
        int const count = input.ReadSome(bytes.data() + size, static_cast<int>(piece));
        bytes.resize(size + static_cast<std::size_t>(count));
        if (count == 0)
        {
            return bytes;
        }
    }
}

std::string Place(std::string const & file, std::size_t line)
{
    return file + ", line " + std::to_string(line);
}

/// What an import has done.
struct Counts
{
    std::size_t keys = 0;
    std::size_t values = 0;
    std::size_t deletedKeys = 0;
    std::size_t deletedValues = 0;

    [[nodiscard]] std::string Text() const
    {
        return Counted(keys, "key") + " and " + Counted(values, "value") + " set, " + Counted(deletedKeys, "key") +
            " and " + Counted(deletedValues, "value") + " deleted";
    }
};

/// Does what the text says of a key. `line` is where it is, for the failure that may end it.
void Apply(RegistryTextKey const & item, bool isDry, std::size_t & line, Counts & counts)
{
    line = item.line;
    if (item.isDeleted)
    {
        counts.deletedKeys += isDry || DeleteRegistryKey(item.path) ? 1 : 0;
        return;
    }
    std::optional<RegistryKey> const key = isDry ? std::nullopt : std::optional(MakeRegistryKey(item.path));
    ++counts.keys;
    for (RegistryTextValue const & change : item.values)
    {
        line = change.line;
        if (change.isDeleted)
        {
            counts.deletedValues += isDry || key->DeleteValue(change.value.name) ? 1 : 0;
            continue;
        }
        if (!isDry)
        {
            key->SetValue(change.value);
        }
        ++counts.values;
    }
}

} // namespace

int ExportRegistry(RegistryRequest const & request, Console & console)
{
    RegistryPath const path = TypedRegistryPath(request.key);
    std::optional<RegistryKey> key = OpenRegistryKey(path, KEY_READ);
    if (!key)
    {
        return NoRegistryKey(path, console);
    }
    if (IsStandardStream(request.file))
    {
        NamedOutput output("-", console);
        int const result = WriteTree(std::move(*key), console, output);
        output.Finish();
        return result;
    }
    if (!request.sure && File::FileExists(TypedPath(request.file)) &&
        !IsConfirmed(request.file + " exists; replace it?", console))
    {
        Complain(console, registryCommand, "nothing was written");
        return ExitFailed;
    }
    return WriteFile(std::move(*key), request, console);
}

int ImportRegistry(RegistryRequest const & request, Console & console)
{
    NamedInput input(request.file, console);
    std::string const bytes = ReadAll(input);
    std::vector<RegistryTextKey> items;
    try
    {
        items = ParseRegistryText(bytes);
    }
    catch (RegistryTextError const & bad)
    {
        Complain(
            console, registryCommand,
            Place(input.Name(), bad.line) + ": " + bad.what() + "; nothing of the file was taken over");
        return ExitDamaged;
    }
    Counts counts;
    std::size_t line = 0;
    try
    {
        for (RegistryTextKey const & item : items)
        {
            Apply(item, request.dryRun, line, counts);
        }
    }
    catch (RegistryFailure & failure)
    {
        failure.subject = Place(input.Name(), line) + " (" + counts.Text() + " before it): " + failure.subject;
        throw;
    }
    Complain(console, registryCommand, (request.dryRun ? "would be done: " : "") + counts.Text());
    return ExitOk;
}

} // namespace kv::tools
