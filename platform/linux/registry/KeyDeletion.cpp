#include <new>

#include <kvcore/platform/include/errors.h>
#include <kvcore/platform/include/winreg.h>
#include <kvcore/platform/linux/registry/RegistryKey.h>

using namespace kv::platform;

namespace
{

/// Whether a query with one key finds anything.
LSTATUS Finds(RegistryStore & store, Sql query, KeyId id, bool & isFound)
{
    Statement statement = store.Use(query);
    isFound = statement.Bind(id).Step();
    return statement.Result();
}

LSTATUS RunOn(RegistryStore & store, Sql change, KeyId id)
{
    return store.Use(change).Bind(id).Run();
}

/// Deletes what is below a key, and its values. The transaction is the caller's. `change` tells what was there.
LSTATUS DeleteContents(RegistryStore & store, KeyId id, KeyChange & change)
{
    bool hasFixed = false;
    LSTATUS status = Finds(store, Sql::SubtreeHasFixed, id, hasFixed);
    if (status == ERROR_SUCCESS && hasFixed)
    {
        return ERROR_ACCESS_DENIED;
    }
    for (Sql const deletion : {Sql::DeleteSubtreeValues, Sql::DeleteSubtree, Sql::DeleteKeyValues})
    {
        status = status == ERROR_SUCCESS ? RunOn(store, deletion, id) : status;
        bool const hasDeleted = status == ERROR_SUCCESS && store.HasChanged();
        change.kinds |= hasDeleted && deletion == Sql::DeleteSubtree ? REG_NOTIFY_CHANGE_NAME : 0;
        change.kinds |= hasDeleted && deletion == Sql::DeleteKeyValues ? REG_NOTIFY_CHANGE_LAST_SET : 0;
    }
    change = {id, change.kinds, true};
    return status == ERROR_SUCCESS ? store.Use(Sql::TouchKey).Bind(id).Bind(WriteTime()).Run() : status;
}

/// Deletes a key without keys below it. The transaction is the caller's.
LSTATUS DeleteLeaf(RegistryStore & store, KeyId id, DWORD ifNotEmpty, KeyChange & change)
{
    if (id < firstFreeKey)
    {
        return ERROR_ACCESS_DENIED;
    }
    bool hasChildren = false;
    LSTATUS status = Finds(store, Sql::HasChildren, id, hasChildren);
    if (status == ERROR_SUCCESS && hasChildren)
    {
        return static_cast<LSTATUS>(ifNotEmpty);
    }
    if (status == ERROR_SUCCESS)
    {
        Statement statement = store.Use(Sql::ParentOf);
        change = {statement.Bind(id).Step() ? statement.Number(0) : noKey, REG_NOTIFY_CHANGE_NAME, true};
        status = statement.Result();
    }
    if (status == ERROR_SUCCESS)
    {
        status = store.Use(Sql::TouchKey).Bind(change.key).Bind(WriteTime()).Run();
    }
    for (Sql const deletion : {Sql::DeleteKeyValues, Sql::DeleteKey})
    {
        status = status == ERROR_SUCCESS ? RunOn(store, deletion, id) : status;
    }
    return status;
}

/// What is done with the key of the path.
enum class Deletion
{
    Leaf,
    EmptyKey,
    None, ///< only the look at what is below
    Tree,
    Contents,
};

LSTATUS Delete(HKEY key, LPCWSTR path, Deletion deletion)
try
{
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
    Transaction transaction(use.Store());
    FoundKey found;
    KeyChange change{};
    LSTATUS status = transaction.Result();
    if (status == ERROR_SUCCESS)
    {
        status = FindPath(use.Store(), use.Id(), checked, found);
    }
    if (status == ERROR_SUCCESS && (deletion == Deletion::Tree || deletion == Deletion::Contents))
    {
        status = DeleteContents(use.Store(), found.id, change);
    }
    if (status == ERROR_SUCCESS && deletion == Deletion::None)
    {
        bool hasChildren = false;
        status = Finds(use.Store(), Sql::HasChildren, found.id, hasChildren);
        return status == ERROR_SUCCESS && hasChildren ? static_cast<LSTATUS>(ERROR_KEY_HAS_CHILDREN) : status;
    }
    if (status == ERROR_SUCCESS && deletion != Deletion::Contents)
    {
        status = DeleteLeaf(
            use.Store(), found.id, deletion == Deletion::EmptyKey ? ERROR_KEY_HAS_CHILDREN : ERROR_ACCESS_DENIED,
            change);
    }
    return status == ERROR_SUCCESS ? transaction.Commit(change) : status;
}
catch (std::bad_alloc const &)
{
    return ERROR_NOT_ENOUGH_MEMORY;
}

} // namespace

LSTATUS WINAPI RegDeleteKeyW(HKEY key, LPCWSTR path)
{
    return path == nullptr ? static_cast<LSTATUS>(ERROR_INVALID_PARAMETER) : Delete(key, path, Deletion::Leaf);
}

DWORD WINAPI SHDeleteKeyW(HKEY key, LPCWSTR path)
{
    bool const isKeyItself = path == nullptr || *path == 0;
    return static_cast<DWORD>(Delete(key, path, isKeyItself ? Deletion::Contents : Deletion::Tree));
}

DWORD WINAPI SHDeleteEmptyKeyW(HKEY key, LPCWSTR path)
{
    DWORD const status = static_cast<DWORD>(Delete(key, path, path == nullptr ? Deletion::None : Deletion::EmptyKey));
    return status == ERROR_SUCCESS && path == nullptr ? ERROR_INVALID_PARAMETER : status;
}
