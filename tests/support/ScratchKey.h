#pragma once

#include <random>
#include <string>
#include <utility>

#include <kvcore/platform/win32.h>

/// A result as the codes of the platform are written.
inline DWORD Code(LSTATUS status)
{
    return static_cast<DWORD>(status);
}

/// A handle of a key that closes itself.
class ScopedKey
{
public:
    explicit ScopedKey(HKEY openKey = nullptr) : key(openKey) {}
    ScopedKey(ScopedKey && other) noexcept : key(std::exchange(other.key, nullptr)) {}
    ScopedKey & operator=(ScopedKey && other) noexcept
    {
        std::swap(key, other.key);
        return *this;
    }
    ~ScopedKey()
    {
        if (key != nullptr)
        {
            RegCloseKey(key);
        }
    }
    operator HKEY() const
    {
        return key;
    }
    HKEY * Place()
    {
        return &key;
    }

private:
    HKEY key;
};

/// Makes or opens a key below another; null on failure.
inline ScopedKey MakeKey(HKEY parent, WString const & path, DWORD options = REG_OPTION_NON_VOLATILE)
{
    ScopedKey key;
    RegCreateKeyExW(parent, path.c_str(), 0, nullptr, options, KEY_ALL_ACCESS, nullptr, key.Place(), nullptr);
    return key;
}

inline ScopedKey OpenKey(HKEY parent, WString const & path, REGSAM access = KEY_ALL_ACCESS)
{
    ScopedKey key;
    RegOpenKeyExW(parent, path.c_str(), 0, access, key.Place());
    return key;
}

/// A key of the user's registry for one test, removed at its end with all that is in it.
class ScratchKey
{
public:
    ScratchKey()
    {
        std::random_device random;
        std::string const number = std::to_string(random());
        path = TEXT("Software\\KVCoreTests\\") + WString(number.begin(), number.end());
        key = MakeKey(HKEY_CURRENT_USER, path);
    }
    ~ScratchKey()
    {
        SHDeleteKeyW(HKEY_CURRENT_USER, path.c_str());
    }
    ScratchKey(ScratchKey const &) = delete;
    ScratchKey & operator=(ScratchKey const &) = delete;

    operator HKEY() const
    {
        return key;
    }
    /// Below HKEY_CURRENT_USER.
    WString const & Path() const
    {
        return path;
    }

private:
    WString path;
    ScopedKey key;
};
