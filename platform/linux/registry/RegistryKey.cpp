#include "RegistryKey.h"

#include <new>
#include <utility>

#include <kvcore/platform/include/errors.h>
#include <kvcore/platform/include/fileapi.h>
#include <kvcore/platform/linux/memory/CallerMemory.h>
#include <kvcore/platform/linux/registry/KeyNotices.h>

namespace kv::platform
{

namespace
{

constexpr std::uintptr_t firstRoot = 0x80000000u;
constexpr std::size_t longestKeyName = 255;

/// The key that each predefined root leads to, from HKEY_CLASSES_ROOT on.
constexpr KeyId rootKeys[] = {classesKey, currentUserKey,   machineKey,    usersKey,
                              noKey,      currentConfigKey, dynamicDataKey};

/// The roots are numbers of 32 bits, which programs widen with their sign or without.
std::uintptr_t RootIndex(HKEY key) noexcept
{
    std::uintptr_t const value = reinterpret_cast<std::uintptr_t>(key);
    bool const hasSign = (value >> 32) == 0xFFFFFFFFu;
    return (value >> 32) == 0 || hasSign ? (value & 0xFFFFFFFFu) - firstRoot : ~std::uintptr_t(0);
}

REGSAM SpecificRights(REGSAM access) noexcept
{
    REGSAM rights = access & KEY_ALL_ACCESS;
    if ((access & (GENERIC_ALL | MAXIMUM_ALLOWED)) != 0)
    {
        rights |= KEY_ALL_ACCESS;
    }
    if ((access & GENERIC_READ) != 0 || (access & GENERIC_EXECUTE) != 0)
    {
        rights |= KEY_READ;
    }
    if ((access & GENERIC_WRITE) != 0)
    {
        rights |= KEY_WRITE;
    }
    return rights;
}

} // namespace

RegistryKey::~RegistryKey()
{
    // The last key of a store that is no longer the current one takes the store with it.
    std::lock_guard const guard(RegistryLock());
    store.reset();
}

void RegistryKey::LastHandleClosed() noexcept
{
    NoticeClose(*this);
}

bool IsPredefined(HKEY key) noexcept
{
    return RootIndex(key) < std::size(rootKeys);
}

KeyUse::KeyUse(HKEY key, REGSAM access) noexcept
{
    try
    {
        if (IsPredefined(key))
        {
            id = rootKeys[RootIndex(key)];
            if (id == noKey)
            {
                result = ERROR_INVALID_HANDLE;
                return;
            }
            lock = std::unique_lock(RegistryLock());
            store = RegistryStore::Current(result);
            return;
        }
        HandleSlot * const slot = HandleTable::Pin(key);
        if (slot == nullptr || HandleTable::ObjectOf(slot)->Kind() != ObjectKind::RegistryKey)
        {
            if (slot != nullptr)
            {
                HandleTable::Unpin(slot);
            }
            result = ERROR_INVALID_HANDLE;
            return;
        }
        pinned = Pinned<RegistryKey>(slot, static_cast<RegistryKey *>(HandleTable::ObjectOf(slot)));
        if ((pinned.Access() & access) != access)
        {
            result = ERROR_ACCESS_DENIED;
            return;
        }
        lock = std::unique_lock(RegistryLock());
        store = pinned->store;
        id = pinned->id;
        result = store->Open();
    }
    catch (std::bad_alloc const &)
    {
        result = ERROR_NOT_ENOUGH_MEMORY;
    }
}

KeyUse::~KeyUse()
{
    if (store != nullptr && store->IsDead())
    {
        store->Leave();
    }
}

LSTATUS KeyUse::NothingFound(LSTATUS otherwise) const noexcept
{
    Statement statement = store->Use(Sql::KeyExists);
    if (statement.Bind(id).Step())
    {
        return otherwise;
    }
    return statement.Result() != ERROR_SUCCESS ? statement.Result() : static_cast<LSTATUS>(ERROR_KEY_DELETED);
}

LSTATUS MakeKeyHandle(std::shared_ptr<RegistryStore> const & store, KeyId id, REGSAM access, HKEY & result)
{
    RegistryKey * const key = new RegistryKey(store, id);
    HANDLE const handle = HandleTable::Create(*key, SpecificRights(access));
    key->Release();
    if (handle == nullptr)
    {
        return ERROR_NOT_ENOUGH_MEMORY;
    }
    result = static_cast<HKEY>(handle);
    return ERROR_SUCCESS;
}

std::u16string_view TakeName(std::u16string_view & path) noexcept
{
    std::size_t const start = path.find_first_not_of(u'\\');
    path.remove_prefix(start == std::u16string_view::npos ? path.size() : start);
    std::u16string_view const name = path.substr(0, path.find(u'\\'));
    path.remove_prefix(name.size());
    return name;
}

LSTATUS CheckPath(LPCWSTR path, std::u16string_view & checked)
{
    checked = CallersText(path);
    if (!checked.empty() && checked[0] == u'\\')
    {
        return ERROR_BAD_PATHNAME;
    }
    std::u16string_view rest = checked;
    for (std::u16string_view name = TakeName(rest); !name.empty(); name = TakeName(rest))
    {
        if (name.size() > longestKeyName)
        {
            return ERROR_INVALID_PARAMETER;
        }
    }
    return ERROR_SUCCESS;
}

LSTATUS FindPath(RegistryStore & store, KeyId start, std::u16string_view path, FoundKey & found)
{
    {
        Statement statement = store.Use(Sql::KeyExists);
        if (!statement.Bind(start).Step())
        {
            return statement.Result() != ERROR_SUCCESS ? statement.Result() : static_cast<LSTATUS>(ERROR_KEY_DELETED);
        }
        found = {start, statement.Number(0) != 0};
    }
    for (std::u16string_view name = TakeName(path); !name.empty(); name = TakeName(path))
    {
        FoldedName const folded(name);
        Statement statement = store.Use(Sql::FindKey);
        if (!statement.Bind(found.id).Bind(folded).Step())
        {
            return statement.Result() != ERROR_SUCCESS ? statement.Result()
                                                       : static_cast<LSTATUS>(ERROR_FILE_NOT_FOUND);
        }
        FoundKey const below = {statement.Number(0), statement.Number(1) != 0};
        // Keys are made after those above them. A way down that does not lead to ever greater numbers could be a
        // circle.
        if (below.id <= found.id && (below.id >= firstFreeKey || found.id >= firstFreeKey))
        {
            return store.NoteDamage();
        }
        found = below;
    }
    return ERROR_SUCCESS;
}

} // namespace kv::platform
