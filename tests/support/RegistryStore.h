#pragma once

// The registry's store as its tests see it on systems that keep it in a file.

#include <cstdlib>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>
#include <sqlite3.h>

#include "ScratchFolder.h"
#include "ScratchKey.h"

namespace kv::test
{

/// Runs a step in another process and gives its result.
inline int InChild(std::function<int()> const & step)
{
    pid_t const child = fork();
    if (child == 0)
    {
        alarm(60); // a step that does not end fails
        _exit(step());
    }
    int status = 0;
    return child > 0 && waitpid(child, &status, 0) == child && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

/// Runs statements on a database, as another program would.
inline int ExecuteSql(std::filesystem::path const & file, std::string const & statements)
{
    sqlite3 * database = nullptr;
    int result = sqlite3_open(file.c_str(), &database);
    if (result == SQLITE_OK)
    {
        result = sqlite3_exec(database, statements.c_str(), nullptr, nullptr, nullptr);
    }
    sqlite3_close(database);
    return result;
}

inline DWORD SetNumber(HKEY key, WCHAR const * name, DWORD number)
{
    return Code(RegSetValueExW(key, name, 0, REG_DWORD, reinterpret_cast<BYTE const *>(&number), sizeof number));
}

/// The stored number, or 0.
inline DWORD GetNumber(HKEY key, WCHAR const * name)
{
    DWORD number = 0;
    DWORD size = sizeof number;
    RegQueryValueExW(key, name, nullptr, nullptr, reinterpret_cast<BYTE *>(&number), &size);
    return number;
}

/// A code that no call gives.
constexpr DWORD endless = 0xEEEEEEEE;

/// Lists a key with all that is below it, and reads all values. The first failure; endless if it does not end.
inline DWORD WalkKey(HKEY key, int depth = 0)
{
    if (depth > 50)
    {
        return endless;
    }
    std::vector<WCHAR> name(20'000);
    std::vector<BYTE> data(100'000);
    for (DWORD index = 0;; ++index)
    {
        DWORD size = static_cast<DWORD>(name.size());
        DWORD dataSize = static_cast<DWORD>(data.size());
        DWORD const code =
            Code(RegEnumValueW(key, index, name.data(), &size, nullptr, nullptr, data.data(), &dataSize));
        if (code == ERROR_NO_MORE_ITEMS)
        {
            break;
        }
        dataSize = static_cast<DWORD>(data.size());
        DWORD const read =
            code == 0 ? Code(RegQueryValueExW(key, name.data(), nullptr, nullptr, data.data(), &dataSize)) : code;
        if (read != 0 || index > 10'000)
        {
            return read != 0 ? read : endless;
        }
    }
    for (DWORD index = 0;; ++index)
    {
        DWORD size = static_cast<DWORD>(name.size());
        DWORD code = Code(RegEnumKeyExW(key, index, name.data(), &size, nullptr, nullptr, nullptr, nullptr));
        if (code == ERROR_NO_MORE_ITEMS)
        {
            return 0;
        }
        ScopedKey below;
        code = code == 0 ? Code(RegOpenKeyExW(key, name.data(), 0, KEY_READ, below.Place())) : code;
        code = code == 0 ? WalkKey(below, depth + 1) : code;
        if (code != 0 || index > 10'000)
        {
            return code != 0 ? code : endless;
        }
    }
}

/// The first failure of listing all keys.
inline DWORD WalkError()
{
    for (HKEY const root : {HKEY_USERS, HKEY_LOCAL_MACHINE, HKEY_CURRENT_USER, HKEY_CLASSES_ROOT})
    {
        if (DWORD const code = WalkKey(root); code != 0)
        {
            return code;
        }
    }
    return 0;
}

/// A data directory of the test's own.
class RegistryStoreTest : public testing::Test
{
protected:
    RegistryStoreTest()
    {
        char const * const setting = std::getenv("XDG_DATA_HOME");
        before = setting == nullptr ? "" : setting;
        setenv("XDG_DATA_HOME", folder.Path().c_str(), 1);
    }
    ~RegistryStoreTest() override
    {
        before.empty() ? unsetenv("XDG_DATA_HOME") : setenv("XDG_DATA_HOME", before.c_str(), 1);
    }

    std::filesystem::path Store() const
    {
        return folder / "kvcore/registry.db";
    }
    std::filesystem::path Aside(int number = 1) const
    {
        return folder / ("kvcore/registry.db.damaged-" + std::to_string(number));
    }
    /// Writes a store by another process, so that nothing of it is open here.
    int WriteInChild() const
    {
        int const result = InChild(
            []
            {
                ScopedKey const key = MakeKey(HKEY_CURRENT_USER, TEXT("Software\\Stored"));
                bool const good = SetNumber(key, TEXT("v"), 77) == 0 && RegFlushKey(key) == 0;
                return good ? 0 : 1;
            });
        // What the child has flushed lies in the store; its log would stand in for a damaged page.
        std::filesystem::remove(folder / "kvcore/registry.db-wal");
        std::filesystem::remove(folder / "kvcore/registry.db-shm");
        return result;
    }
    int Execute(std::string const & statements) const
    {
        return ExecuteSql(Store(), statements);
    }
    static DWORD OpenError()
    {
        ScopedKey key;
        return Code(RegOpenKeyExW(HKEY_CURRENT_USER, TEXT("Software"), 0, KEY_READ, key.Place()));
    }

    ScratchFolder folder;
    std::string before;
};

} // namespace kv::test
