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

/// Deletes what is below a key, and its values. The transaction is the caller's.
LSTATUS DeleteContents(RegistryStore & store, KeyId id)
{
    bool hasFixed = false;
    LSTATUS status = Finds(store, Sql::SubtreeHasFixed, id, hasFixed);
    if (status == ERROR_SUCCESS && hasFixed)
    {
        return ERROR_ACCESS_DENIED;
    }
    for (Sql const change : {Sql::DeleteSubtreeValues, Sql::DeleteSubtree, Sql::DeleteKeyValues})
    {
        status = status == ERROR_SUCCESS ? RunOn(store, change, id) : status;
    }
    return status == ERROR_SUCCESS ? store.Use(Sql::TouchKey).Bind(id).Bind(WriteTime()).Run() : status;
}

/// Deletes a key without keys below it. The transaction is the caller's.
LSTATUS DeleteLeaf(RegistryStore & store, KeyId id, DWORD ifNotEmpty)
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
    for (Sql const change : {Sql::TouchParent, Sql::DeleteKeyValues, Sql::DeleteKey})
    {
        if (status == ERROR_SUCCESS)
        {
            Statement statement = store.Use(change);
            statement.Bind(id);
            status = change == Sql::TouchParent ? statement.Bind(WriteTime()).Run() : statement.Run();
        }
    }
    return status;
}

/// What is done with the key of the path.
enum class Deletion
{
    Leaf,
    EmptyKey,
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
    LSTATUS status = transaction.Result();
    if (status == ERROR_SUCCESS)
    {
        status = FindPath(use.Store(), use.Id(), checked, found);
    }
    if (status == ERROR_SUCCESS && (deletion == Deletion::Tree || deletion == Deletion::Contents))
    {
        status = DeleteContents(use.Store(), found.id);
    }
    if (status == ERROR_SUCCESS && deletion != Deletion::Contents)
    {
        status = DeleteLeaf(
            use.Store(), found.id, deletion == Deletion::EmptyKey ? ERROR_KEY_HAS_CHILDREN : ERROR_ACCESS_DENIED);
    }
    return status == ERROR_SUCCESS ? transaction.Commit() : status;
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
    return path == nullptr ? ERROR_INVALID_PARAMETER : static_cast<DWORD>(Delete(key, path, Deletion::EmptyKey));
}
