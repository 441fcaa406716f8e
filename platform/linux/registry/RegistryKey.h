#pragma once

// Handles of keys, and the way from a handle or a predefined root to a key of a store.

#include <memory>
#include <string_view>

#include <kvcore/platform/linux/files/Handles.h>
#include <kvcore/platform/linux/registry/RegistryStore.h>

namespace kv::platform
{

/// Where an enumeration was last: the next place is found from there, as long as nothing has changed.
struct EnumerationPlace
{
    DWORD index = 0;
    std::uint64_t changeCount = 0;
    std::string folded;
    bool isSet = false;
};

class RegistryKey final : public KernelObject
{
public:
    static constexpr ObjectKind kind = ObjectKind::RegistryKey;

    RegistryKey(std::shared_ptr<RegistryStore> keyStore, KeyId keyId) noexcept
        : KernelObject(kind), store(std::move(keyStore)), id(keyId)
    {
    }
    void LastHandleClosed() noexcept override;

    std::shared_ptr<RegistryStore> store;
    KeyId const id;
    /// Guarded by the registry's lock.
    EnumerationPlace valuePlace;
    EnumerationPlace keyPlace;

private:
    ~RegistryKey() override;
};

/// One call on a key: holds the registry's lock and the key from its start to its end.
class KeyUse
{
public:
    /// Looks the key up. `access` is what the handle must allow; predefined roots allow everything.
    KeyUse(HKEY key, REGSAM access) noexcept;
    KeyUse(KeyUse const &) = delete;
    KeyUse & operator=(KeyUse const &) = delete;
    /// Leaves a store that the call has found damaged.
    ~KeyUse();

    /// ERROR_SUCCESS, or why there is nothing to work on: ERROR_INVALID_HANDLE, ERROR_ACCESS_DENIED, or what opening
    /// the store gave.
    LSTATUS Result() const noexcept
    {
        return result;
    }
    RegistryStore & Store() const noexcept
    {
        return *store;
    }
    std::shared_ptr<RegistryStore> const & SharedStore() const noexcept
    {
        return store;
    }
    KeyId Id() const noexcept
    {
        return id;
    }
    /// The handle's object; null for a predefined root.
    RegistryKey * Object() const noexcept
    {
        return pinned.Get();
    }
    /// What a call says that found nothing of the key: `otherwise`, or ERROR_KEY_DELETED if the key itself is gone.
    LSTATUS NothingFound(LSTATUS otherwise) const noexcept;

private:
    Pinned<RegistryKey> pinned;
    std::unique_lock<std::mutex> lock;
    std::shared_ptr<RegistryStore> store;
    KeyId id = noKey;
    LSTATUS result = 0;
};

/// Whether `key` is one of the predefined roots, in the form of 32 or of 64 bits; and which key they lead to.
bool IsPredefined(HKEY key) noexcept;

/// A new handle at `result`. `access` may have generic rights.
LSTATUS MakeKeyHandle(std::shared_ptr<RegistryStore> const & store, KeyId id, REGSAM access, HKEY & result);

/// A key found by its path.
struct FoundKey
{
    KeyId id = noKey;
    bool isVolatile = false;
};

/// Takes the next name off the front of a path; empty at its end.
std::u16string_view TakeName(std::u16string_view & path) noexcept;
/// The path of a call: null is empty. ERROR_BAD_PATHNAME, or ERROR_INVALID_PARAMETER for a name that is too long.
LSTATUS CheckPath(LPCWSTR path, std::u16string_view & checked);
/// The key at `path` from `start`: ERROR_FILE_NOT_FOUND, or ERROR_KEY_DELETED if the start is gone.
LSTATUS FindPath(RegistryStore & store, KeyId start, std::u16string_view path, FoundKey & found);

} // namespace kv::platform
