#include <algorithm>
#include <new>
#include <string>

#include <unistd.h>

#include <kvcore/platform/include/errors.h>
#include <kvcore/platform/include/winreg.h>
#include <kvcore/platform/linux/memory/CallerMemory.h>
#include <kvcore/platform/linux/registry/RegistryKey.h>

using namespace kv::platform;

namespace
{

/// What a new key is made with.
struct NewKey
{
    bool isVolatile;
    std::u16string_view keyClass;
    bool hasClass;
};

/// Makes one key below another. The transaction is the caller's.
LSTATUS InsertKey(RegistryStore & store, FoundKey & parent, std::u16string_view name, NewKey const & made, bool isLast)
{
    if (parent.isVolatile && !made.isVolatile)
    {
        return ERROR_CHILD_MUST_BE_VOLATILE;
    }
    FoldedName const folded(name);
    std::int64_t const now = WriteTime();
    LSTATUS result = ERROR_SUCCESS;
    {
        Statement statement = store.Use(Sql::InsertKey);
        statement.Bind(parent.id).Bind(folded).Bind(NameBytes(name));
        isLast && made.hasClass ? statement.Bind(NameBytes(made.keyClass)) : statement.BindNull();
        made.isVolatile ? statement.BindText(SystemRun()) : statement.BindNull();
        result = statement.Bind(now).Run();
    }
    KeyId const id = store.LastInserted();
    if (result == ERROR_SUCCESS)
    {
        result = store.Use(Sql::TouchKey).Bind(parent.id).Bind(now).Run();
    }
    parent = {id, made.isVolatile};
    return result;
}

/// Makes what is missing of a path. Another process may have made it meanwhile.
LSTATUS
CreatePath(
    RegistryStore & store, KeyId start, std::u16string_view path, NewKey const & made, FoundKey & found, bool & isNew)
{
    isNew = false;
    KeyId above = start;
    Transaction transaction(store);
    LSTATUS result = transaction.Result();
    if (result == ERROR_SUCCESS)
    {
        result = FindPath(store, start, {}, found);
    }
    std::u16string_view name = TakeName(path);
    while (result == ERROR_SUCCESS && !name.empty())
    {
        std::u16string_view const next = TakeName(path);
        FoundKey below;
        result = isNew ? static_cast<LSTATUS>(ERROR_FILE_NOT_FOUND) : FindPath(store, found.id, name, below);
        if (result == ERROR_SUCCESS)
        {
            found = below;
        }
        else if (result == static_cast<LSTATUS>(ERROR_FILE_NOT_FOUND))
        {
            above = isNew ? above : found.id;
            isNew = true;
            result = InsertKey(store, found, name, made, next.empty());
        }
        name = next;
    }
    return result == ERROR_SUCCESS && isNew ? transaction.Commit({above, REG_NOTIFY_CHANGE_NAME, false}) : result;
}

/// The name of this machine, with or without what stands behind its first full stop.
bool IsThisMachine(std::u16string_view name)
{
    char host[256] = {};
    if (name.empty())
    {
        return true;
    }
    if (gethostname(host, sizeof host - 1) != 0)
    {
        return false;
    }
    std::string_view const full = host;
    std::u16string const wide(full.begin(), full.end());
    FoldedName const asked(name);
    auto const isAsked = [&asked](std::u16string_view own)
    { return std::string_view(FoldedName(own)) == std::string_view(asked); };
    return isAsked(wide) || isAsked(std::u16string_view(wide).substr(0, wide.find(u'.')));
}

} // namespace

LSTATUS WINAPI RegOpenKeyExW(HKEY key, LPCWSTR path, DWORD, REGSAM access, PHKEY result)
try
{
    if (result == nullptr)
    {
        return ERROR_INVALID_PARAMETER;
    }
    if (IsPredefined(key) && (path == nullptr || *path == 0))
    {
        *result = key;
        return ERROR_SUCCESS;
    }
    *result = nullptr;
    std::u16string_view checked;
    if (LSTATUS const bad = CheckPath(path, checked); bad != ERROR_SUCCESS)
    {
        return bad;
    }
    KeyUse const use(key, 0);
    if (use.Result() != ERROR_SUCCESS)
    {
        return use.Result();
    }
    FoundKey found;
    LSTATUS const status = FindPath(use.Store(), use.Id(), checked, found);
    return status == ERROR_SUCCESS ? MakeKeyHandle(use.SharedStore(), found.id, access, *result) : status;
}
catch (std::bad_alloc const &)
{
    return ERROR_NOT_ENOUGH_MEMORY;
}

LSTATUS WINAPI RegCreateKeyExW(
    HKEY key, LPCWSTR path, DWORD reserved, LPWSTR keyClass, DWORD options, REGSAM access, SECURITY_ATTRIBUTES *,
    PHKEY result, LPDWORD disposition)
try
{
    if (result == nullptr || reserved != 0)
    {
        return ERROR_INVALID_PARAMETER;
    }
    *result = nullptr;
    std::u16string_view checked;
    if (LSTATUS const bad = CheckPath(path, checked); bad != ERROR_SUCCESS)
    {
        return bad;
    }
    KeyUse const use(key, 0);
    if (use.Result() != ERROR_SUCCESS)
    {
        return use.Result();
    }
    NewKey const made = {(options & REG_OPTION_VOLATILE) != 0, CallersText(keyClass), keyClass != nullptr};
    FoundKey found;
    bool isNew = false;
    LSTATUS status = FindPath(use.Store(), use.Id(), checked, found);
    if (status == static_cast<LSTATUS>(ERROR_FILE_NOT_FOUND))
    {
        status = CreatePath(use.Store(), use.Id(), checked, made, found, isNew);
    }
    if (status == ERROR_SUCCESS)
    {
        status = MakeKeyHandle(use.SharedStore(), found.id, access, *result);
    }
    if (status == ERROR_SUCCESS && disposition != nullptr)
    {
        *disposition = isNew ? REG_CREATED_NEW_KEY : REG_OPENED_EXISTING_KEY;
    }
    return status;
}
catch (std::bad_alloc const &)
{
    return ERROR_NOT_ENOUGH_MEMORY;
}

LSTATUS WINAPI RegCloseKey(HKEY key)
{
    if (IsPredefined(key))
    {
        return ERROR_SUCCESS;
    }
    DWORD const lastError = GetLastError();
    bool const isKey = static_cast<bool>(LookUp<RegistryKey>(key));
    bool const isClosed = isKey && HandleTable::Close(key);
    SetLastError(lastError);
    return isClosed ? ERROR_SUCCESS : ERROR_INVALID_HANDLE;
}

LSTATUS WINAPI RegFlushKey(HKEY key)
{
    KeyUse const use(key, 0);
    if (use.Result() != ERROR_SUCCESS)
    {
        return use.Result();
    }
    LSTATUS const status = use.NothingFound(ERROR_SUCCESS);
    return status == ERROR_SUCCESS ? use.Store().Flush() : status;
}

LSTATUS WINAPI RegConnectRegistryW(LPCWSTR machine, HKEY root, PHKEY result)
try
{
    if (result == nullptr)
    {
        return ERROR_INVALID_PARAMETER;
    }
    std::u16string_view name = CallersText(machine);
    name.remove_prefix(name.substr(0, 2) == u"\\\\" ? 2 : 0);
    if (!IsThisMachine(name))
    {
        return ERROR_BAD_NETPATH;
    }
    if (!IsPredefined(root))
    {
        return ERROR_INVALID_HANDLE;
    }
    *result = root;
    return ERROR_SUCCESS;
}
catch (std::bad_alloc const &)
{
    return ERROR_NOT_ENOUGH_MEMORY;
}
