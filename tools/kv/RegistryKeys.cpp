#include <kvcore/tools/kv/RegistryKeys.h>

#include <algorithm>

#include <kvcore/platform/win32.h>

namespace kv::tools
{

namespace
{

/// The longest name of a value with its NUL; those of keys are shorter.
constexpr DWORD nameRoom = 16384;
/// What most data fit in; the others are asked for again.
constexpr DWORD dataRoom = 4096;

bool IsGone(DWORD code)
{
    return code == ERROR_FILE_NOT_FOUND || code == ERROR_PATH_NOT_FOUND || code == ERROR_KEY_DELETED;
}

std::string Unable(char const * what, RegistryPath const & path)
{
    return std::string("cannot ") + what + " " + path.Shown().Utf8();
}

/// The root of a path, on its machine: a handle to close, or a predefined one, which takes that without effect.
RegistryKey OpenRoot(RegistryPath const & path)
{
    if (path.machine.empty())
    {
        return RegistryKey(path.root, path.rootName);
    }
    HKEY root = nullptr;
    auto const code = static_cast<DWORD>(RegConnectRegistryW((TEXT("\\\\") + path.machine).c_str(), path.root, &root));
    if (code != ERROR_SUCCESS)
    {
        throw RegistryFailure(code, "cannot connect to the registry of " + path.machine.Utf8());
    }
    return RegistryKey(root, path.rootName);
}

} // namespace

RegistryFailure::RegistryFailure(DWORD failure, std::string const & what)
    : IoFailure(StreamBase::Exception{1, String::FromError(failure)}, what), result(failure)
{
}

RegistryKey::~RegistryKey()
{
    if (key != nullptr)
    {
        RegCloseKey(key);
    }
}

std::optional<RegistryValue> RegistryKey::Value(String const & name) const
{
    RegistryValue value{name, 0, {}};
    value.data.resize(dataRoom);
    for (;;)
    {
        DWORD size = static_cast<DWORD>(value.data.size());
        auto const code = static_cast<DWORD>(RegQueryValueExW(
            key, name.c_str(), nullptr, &value.type, reinterpret_cast<BYTE *>(value.data.data()), &size));
        if (code == ERROR_SUCCESS)
        {
            value.data.resize(size);
            return value;
        }
        if (IsGone(code))
        {
            return std::nullopt;
        }
        if (code != ERROR_MORE_DATA)
        {
            Fail(code, "read a value of");
        }
        value.data.resize(std::max<std::size_t>(size, value.data.size() + 1));
    }
}

std::vector<RegistryValue> RegistryKey::Values() const
{
    std::vector<RegistryValue> values;
    std::vector<WCHAR> name(nameRoom);
    for (DWORD index = 0;; ++index)
    {
        DWORD length = nameRoom;
        auto const code =
            static_cast<DWORD>(RegEnumValueW(key, index, name.data(), &length, nullptr, nullptr, nullptr, nullptr));
        if (code == ERROR_NO_MORE_ITEMS || IsGone(code))
        {
            break;
        }
        if (code != ERROR_SUCCESS)
        {
            Fail(code, "list the values of");
        }
        if (std::optional<RegistryValue> value = Value(String(name.data(), length)))
        {
            values.push_back(std::move(*value));
        }
    }
    std::stable_partition(values.begin(), values.end(), [](RegistryValue const & value) { return value.name.empty(); });
    return values;
}

std::vector<String> RegistryKey::Subkeys() const
{
    std::vector<String> names;
    std::vector<WCHAR> name(nameRoom);
    for (DWORD index = 0;; ++index)
    {
        DWORD length = nameRoom;
        auto const code =
            static_cast<DWORD>(RegEnumKeyExW(key, index, name.data(), &length, nullptr, nullptr, nullptr, nullptr));
        if (code == ERROR_NO_MORE_ITEMS || IsGone(code))
        {
            return names;
        }
        if (code != ERROR_SUCCESS)
        {
            Fail(code, "list the keys below");
        }
        names.emplace_back(name.data(), length);
    }
}

void RegistryKey::SetValue(RegistryValue const & value) const
{
    if (value.data.size() > 0xFFFFFFFF)
    {
        Fail(ERROR_INVALID_PARAMETER, "set a value of");
    }
    auto const code = static_cast<DWORD>(RegSetValueExW(
        key, value.name.c_str(), 0, value.type, reinterpret_cast<BYTE const *>(value.data.data()),
        static_cast<DWORD>(value.data.size())));
    if (code != ERROR_SUCCESS)
    {
        Fail(code, "set a value of");
    }
}

bool RegistryKey::DeleteValue(String const & name) const
{
    auto const code = static_cast<DWORD>(RegDeleteValueW(key, name.c_str()));
    if (code != ERROR_SUCCESS && code != ERROR_FILE_NOT_FOUND)
    {
        Fail(code, "delete a value of");
    }
    return code == ERROR_SUCCESS;
}

void RegistryKey::Fail(DWORD code, char const * what) const
{
    throw RegistryFailure(code, std::string("cannot ") + what + " " + path.Utf8());
}

std::optional<RegistryKey> OpenRegistryKey(RegistryPath const & path, DWORD access)
{
    RegistryKey const root = OpenRoot(path);
    HKEY key = nullptr;
    auto const code = static_cast<DWORD>(RegOpenKeyExW(root.Handle(), path.below.c_str(), 0, access, &key));
    if (code != ERROR_SUCCESS && !IsGone(code))
    {
        throw RegistryFailure(code, Unable("open", path));
    }
    return code == ERROR_SUCCESS ? std::optional<RegistryKey>(std::in_place, key, path.Shown()) : std::nullopt;
}

RegistryKey MakeRegistryKey(RegistryPath const & path)
{
    RegistryKey const root = OpenRoot(path);
    HKEY key = nullptr;
    auto const code = static_cast<DWORD>(RegCreateKeyExW(
        root.Handle(), path.below.c_str(), 0, nullptr, REG_OPTION_NON_VOLATILE, KEY_READ | KEY_WRITE, nullptr, &key,
        nullptr));
    if (code != ERROR_SUCCESS)
    {
        throw RegistryFailure(code, Unable("make", path));
    }
    return RegistryKey(key, path.Shown());
}

bool DeleteRegistryKey(RegistryPath const & path)
{
    if (path.below.empty())
    {
        // The call would take it for an order to empty the root.
        throw RegistryFailure(ERROR_ACCESS_DENIED, Unable("delete", path));
    }
    RegistryKey const root = OpenRoot(path);
    auto const code = static_cast<DWORD>(SHDeleteKeyW(root.Handle(), path.below.c_str()));
    if (code != ERROR_SUCCESS && !IsGone(code))
    {
        throw RegistryFailure(code, Unable("delete", path));
    }
    return code == ERROR_SUCCESS;
}

void WalkRegistry(
    RegistryKey root, std::size_t depth, RegistryVisitor const & visit,
    std::function<void(RegistryFailure const &)> const & unreadable)
{
    /// A key on the way down, and what is below it and still to come, the next one last.
    struct Level
    {
        RegistryKey key;
        std::vector<String> left;
    };
    std::vector<Level> levels;
    auto const enter = [&](RegistryKey key)
    {
        std::size_t const level = levels.size();
        try
        {
            visit(key, level);
            std::vector<String> names = level < depth ? key.Subkeys() : std::vector<String>();
            std::reverse(names.begin(), names.end());
            levels.push_back({std::move(key), std::move(names)});
        }
        catch (RegistryFailure const & failure)
        {
            unreadable(failure);
        }
    };
    enter(std::move(root));
    while (!levels.empty())
    {
        Level & level = levels.back();
        if (level.left.empty())
        {
            levels.pop_back();
            continue;
        }
        String const path = level.key.Path() + TEXT("\\") + level.left.back();
        HKEY key = nullptr;
        auto const code =
            static_cast<DWORD>(RegOpenKeyExW(level.key.Handle(), level.left.back().c_str(), 0, KEY_READ, &key));
        level.left.pop_back();
        if (code == ERROR_SUCCESS)
        {
            enter(RegistryKey(key, path));
        }
        else if (!IsGone(code))
        {
            unreadable(RegistryFailure(code, "cannot open " + path.Utf8()));
        }
    }
}

} // namespace kv::tools
