#ifndef _WIN32 // What becomes of a damaged store: Windows keeps its registry elsewhere.

#    include <algorithm>
#    include <filesystem>
#    include <string>

#    include <signal.h>
#    include <sys/resource.h>
#    include <sys/stat.h>
#    include <unistd.h>

#    include <gtest/gtest.h>
#    include <sqlite3.h>

#    include <support/RegistryStore.h>

namespace
{

using namespace kv::test;

class LinuxRegistryDamage : public RegistryStoreTest
{
protected:
    /// Damages a fresh store: a walk through all keys says so once, the files lie aside as they were, and the next
    /// store works.
    void ExpectSetAsideOnce(std::string const & what, std::string const & statements)
    {
        std::filesystem::remove_all(folder / "kvcore");
        std::filesystem::create_directories(folder / "kvcore");
        folder.Write("kvcore/registry.db", fresh);
        ASSERT_EQ(Execute("PRAGMA synchronous = OFF; " + statements), SQLITE_OK) << what;
        std::string const bytes = folder.Read("kvcore/registry.db");
        EXPECT_EQ(InChild(MeetDamage), 0) << what;
        EXPECT_EQ(folder.Read("kvcore/registry.db.damaged-1"), bytes) << what;
        EXPECT_FALSE(std::filesystem::exists(Aside(2))) << what;
    }
    static int MeetDamage()
    {
        if (WalkError() != ERROR_BADDB)
        {
            return 1;
        }
        ScopedKey const key = MakeKey(HKEY_CURRENT_USER, TEXT("Software\\Anew"));
        return WalkError() == 0 && SetNumber(key, TEXT("v"), 1) == 0 && GetNumber(key, TEXT("v")) == 1 ? 0 : 2;
    }
    void MakeFreshStore()
    {
        ASSERT_EQ(WriteInChild(), 0);
        fresh = folder.Read("kvcore/registry.db");
    }

    std::string fresh;
};

struct Damage
{
    char const * what;
    char const * statements;
};

} // namespace

TEST_F(LinuxRegistryDamage, AStoreThatCannotServeIsFoundWhenItIsOpened)
{
    constexpr Damage damages[] = {
        {"no table of keys", "DROP TABLE keys"},
        {"no table of values", "DROP TABLE vals"},
        {"no table of the store", "DROP TABLE store"},
        {"no index of volatile keys", "DROP INDEX volatileKeys"},
        {"a table with other columns", "ALTER TABLE keys RENAME COLUMN folded TO other"},
        {"a table with a further column", "ALTER TABLE vals ADD COLUMN more"},
        {"a view for a table", "ALTER TABLE keys RENAME TO others; CREATE VIEW keys AS SELECT * FROM others"},
        {"a trigger", "CREATE TRIGGER t AFTER INSERT ON vals BEGIN DELETE FROM vals; END"},
        {"a further index", "CREATE UNIQUE INDEX i ON vals(type)"},
        {"no number", "DELETE FROM store"},
        {"a number that is none", "UPDATE store SET number = 'none'"},
        {"a number that none has", "UPDATE store SET number = 0"},
        {"no keys", "DELETE FROM keys"},
        {"no root keys", "DELETE FROM keys WHERE parent = 0"},
        {"no key of the user", "DELETE FROM keys WHERE id = 4"},
        {"no key of the classes", "DELETE FROM keys WHERE id = 5"},
        {"no key of the software", "DELETE FROM keys WHERE id = 8"},
        {"a root in a circle", "UPDATE keys SET parent = 4 WHERE id = 1"},
        {"a root below a key", "UPDATE keys SET parent = (SELECT max(id) FROM keys) WHERE id = 1"},
        {"a root below itself", "UPDATE keys SET parent = 2 WHERE id = 2"},
        {"a root of another name", "UPDATE keys SET folded = x'0078' WHERE id = 8"},
        {"a volatile root", "UPDATE keys SET boot = 'an earlier one' WHERE id = 4"},
        {"a key among the roots", "INSERT INTO keys VALUES(11, 4, x'0078', x'7800', NULL, NULL, 0)"},
        {"a key below zero", "INSERT INTO keys VALUES(-5, 4, x'0078', x'7800', NULL, NULL, 0)"},
        {"the greatest number", "INSERT INTO keys VALUES(9223372036854775807, 4, x'0078', x'7800', NULL, NULL, 0)"},
        {"no further numbers", "UPDATE sqlite_sequence SET seq = 9223372036854775807"},
        {"numbers that are none", "UPDATE sqlite_sequence SET seq = 'many'"},
        {"no count of numbers", "DELETE FROM sqlite_sequence"},
        {"a version below zero", "PRAGMA user_version = -1"},
        {"tables without a version", "PRAGMA user_version = 0"},
        {"another program's number", "PRAGMA application_id = 5"},
        {"another program's newer store", "PRAGMA application_id = 5; PRAGMA user_version = 7"},
    };
    MakeFreshStore();
    for (Damage const & damage : damages)
    {
        ExpectSetAsideOnce(damage.what, damage.statements);
    }
}

TEST_F(LinuxRegistryDamage, ARowThatNoCallHasMadeIsFoundWhereItIsMet)
{
    constexpr Damage damages[] = {
        {"a key's name as text", "UPDATE keys SET name = 'Stored' WHERE id > 99"},
        {"a key's name as a number", "UPDATE keys SET name = 5 WHERE id > 99"},
        {"a key without a name", "UPDATE keys SET name = x'' WHERE id > 99"},
        {"a key with half a letter", "UPDATE keys SET name = x'410042' WHERE id > 99"},
        {"a key with a backslash", "UPDATE keys SET name = x'5C00' WHERE id > 99"},
        {"a key with a NUL", "UPDATE keys SET name = x'410000004200' WHERE id > 99"},
        {"a key with a long name", "UPDATE keys SET name = zeroblob(1000000) WHERE id > 99"},
        {"a key that is found by another name", "UPDATE keys SET folded = x'0078' WHERE id > 99"},
        {"a key with a number for a class", "UPDATE keys SET class = 5 WHERE id > 99"},
        {"a key that is its own parent",
         "INSERT INTO keys VALUES(200, 13, x'0062', x'6200', NULL, NULL, 0), (201, 200, x'0063', x'6300', NULL, NULL, "
         "0);"
         "UPDATE keys SET parent = 200 WHERE id = 4; UPDATE keys SET parent = 1 WHERE id = 4;"
         "INSERT INTO keys VALUES(150, 201, x'0064', x'6400', NULL, NULL, 0)"},
        {"a value's name as text", "UPDATE vals SET name = 'v'"},
        {"a value's name with a NUL", "UPDATE vals SET name = x'760000000000'"},
        {"a value that is found by another name", "UPDATE vals SET name = x'7700'"},
        {"a long name", "UPDATE vals SET name = zeroblob(40000)"},
        {"data as text", "UPDATE vals SET data = 'text'"},
        {"data as a number", "UPDATE vals SET data = 1.5"},
        {"a type as text", "UPDATE vals SET type = 'text'"},
        {"a type below zero", "UPDATE vals SET type = -1"},
        {"a type of 33 bits", "UPDATE vals SET type = 4294967296"},
    };
    MakeFreshStore();
    for (Damage const & damage : damages)
    {
        ExpectSetAsideOnce(damage.what, damage.statements);
    }
}

/// Keys that hang from nothing are out of reach, and harm nobody.
TEST_F(LinuxRegistryDamage, KeysWithoutAWayToThemAreLeftAlone)
{
    ASSERT_EQ(WriteInChild(), 0);
    ASSERT_EQ(
        Execute("INSERT INTO keys VALUES(200, 5000, x'0062', x'6200', NULL, NULL, 0),"
                "(201, 202, x'0062', x'6200', NULL, NULL, 0), (202, 201, x'0062', x'6200', NULL, NULL, 0);"
                "INSERT INTO vals VALUES(6000, x'0062', x'6200', 1, x'', 0)"),
        SQLITE_OK);
    EXPECT_EQ(WalkError(), 0u);
    EXPECT_EQ(GetNumber(OpenKey(HKEY_CURRENT_USER, TEXT("Software\\Stored")), TEXT("v")), 77u);
    EXPECT_FALSE(std::filesystem::exists(Aside()));
}

/// Another program changes the store while it is open here.
TEST_F(LinuxRegistryDamage, ACircleThatComesToBeUnderAnOpenKeyEnds)
{
    ScopedKey const top = MakeKey(HKEY_CURRENT_USER, TEXT("Software\\Top"));
    ScopedKey const below = MakeKey(top, TEXT("Below"));
    HANDLE const event = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    ASSERT_EQ(Code(RegNotifyChangeKeyValue(top, TRUE, REG_NOTIFY_CHANGE_NAME, event, TRUE)), 0u);
    ASSERT_EQ(
        Execute("UPDATE keys SET parent = (SELECT max(id) FROM keys) WHERE id = (SELECT max(id) - 1 FROM keys)"),
        SQLITE_OK);
    EXPECT_EQ(WaitForSingleObject(event, 20'000), WAIT_OBJECT_0);
    EXPECT_EQ(WalkKey(below), ERROR_BADDB);
    EXPECT_EQ(WalkKey(below), ERROR_KEY_DELETED);
    EXPECT_EQ(OpenError(), 0u);
    EXPECT_TRUE(std::filesystem::exists(Aside()));
    CloseHandle(event);
}

TEST_F(LinuxRegistryDamage, ATreeInACircleCanBeDeleted)
{
    ScopedKey const top = MakeKey(HKEY_CURRENT_USER, TEXT("Software\\Top"));
    ScopedKey const below = MakeKey(top, TEXT("Below"));
    ASSERT_EQ(
        Execute("UPDATE keys SET parent = (SELECT max(id) FROM keys) WHERE id = (SELECT max(id) - 1 FROM keys)"),
        SQLITE_OK);
    EXPECT_EQ(SHDeleteKeyW(below, TEXT("")), 0u);
    EXPECT_EQ(WalkError(), 0u);
}

TEST_F(LinuxRegistryDamage, TablesThatGoUnderAnOpenStoreAreDamage)
{
    ScopedKey const key = MakeKey(HKEY_CURRENT_USER, TEXT("Software\\Open"));
    ASSERT_EQ(SetNumber(key, TEXT("v"), 1), 0u);
    ASSERT_EQ(Execute("DROP TABLE vals"), SQLITE_OK);
    EXPECT_EQ(SetNumber(key, TEXT("v"), 2), ERROR_BADDB);
    EXPECT_TRUE(std::filesystem::exists(Aside()));
    EXPECT_EQ(SetNumber(key, TEXT("v"), 2), ERROR_KEY_DELETED);
    EXPECT_EQ(OpenError(), 0u);
}

TEST_F(LinuxRegistryDamage, AStoreThatThisProcessMadeIsSetAsideByTheCallThatFindsTheDamage)
{
    ScopedKey const key = MakeKey(HKEY_CURRENT_USER, TEXT("Software\\Made"));
    ASSERT_EQ(Execute("UPDATE keys SET name = 5 WHERE id > 99"), SQLITE_OK);
    EXPECT_EQ(WalkError(), ERROR_BADDB);
    EXPECT_TRUE(std::filesystem::exists(Aside()));
    EXPECT_EQ(WalkError(), 0u);
}

/// Several damaged stores one after the other keep a name each.
TEST_F(LinuxRegistryDamage, NothingThatWasSetAsideIsOverwritten)
{
    for (int number = 1; number <= 3; ++number)
    {
        std::string const bytes = "damage " + std::to_string(number) + std::string(5000, 'x');
        std::filesystem::create_directories(folder / "kvcore");
        for (char const * const name : {"registry.db", "registry.db-wal", "registry.db-shm"})
        {
            std::filesystem::remove(folder / "kvcore" / name);
        }
        folder.Write("kvcore/registry.db", bytes);
        EXPECT_EQ(InChild([] { return OpenError() == ERROR_BADDB && OpenError() == 0 ? 0 : 1; }), 0);
        EXPECT_EQ(folder.Read("kvcore/" + Aside(number).filename().string()), bytes);
    }
}

TEST_F(LinuxRegistryDamage, AnEmptyFileBecomesAStoreAndItsLogIsKept)
{
    std::filesystem::create_directories(folder / "kvcore");
    folder.Write("kvcore/registry.db", "");
    EXPECT_EQ(InChild([] { return static_cast<int>(OpenError()); }), 0);
    EXPECT_FALSE(std::filesystem::exists(Aside()));

    // A log without what it belongs to still holds what was stored last.
    std::filesystem::remove_all(folder / "kvcore");
    std::filesystem::create_directories(folder / "kvcore");
    folder.Write("kvcore/registry.db", "");
    folder.Write("kvcore/registry.db-wal", "what was stored last");
    EXPECT_EQ(InChild([] { return OpenError() == ERROR_BADDB && OpenError() == 0 ? 0 : 1; }), 0);
    EXPECT_EQ(folder.Read("kvcore/registry.db.damaged-1-wal"), "what was stored last");
}

TEST_F(LinuxRegistryDamage, ALogThatIsLeftOverIsReadOrIgnored)
{
    // A process that is killed leaves its log, which holds what the store does not.
    EXPECT_EQ(
        InChild(
            []
            {
                ScopedKey const key = MakeKey(HKEY_CURRENT_USER, TEXT("Software\\Killed"));
                return SetNumber(key, TEXT("v"), 7) == 0 ? raise(SIGKILL) : 1;
            }),
        -1);
    EXPECT_EQ(GetNumber(OpenKey(HKEY_CURRENT_USER, TEXT("Software\\Killed")), TEXT("v")), 7u);

    // One that belongs to nothing is no part of the store.
    std::filesystem::remove_all(folder / "kvcore");
    ASSERT_EQ(WriteInChild(), 0);
    folder.Write("kvcore/registry.db-wal", std::string(10'000, 'x'));
    EXPECT_EQ(InChild([] { return static_cast<int>(WalkError()); }), 0);
    EXPECT_EQ(GetNumber(OpenKey(HKEY_CURRENT_USER, TEXT("Software\\Stored")), TEXT("v")), 77u);
}

TEST_F(LinuxRegistryDamage, WhatIsNoFileCannotBeOpenedAndIsLeftAlone)
{
    std::filesystem::create_directories(Store());
    EXPECT_EQ(OpenError(), ERROR_CANTOPEN);
    std::filesystem::remove(Store());
    ASSERT_EQ(mkfifo(Store().c_str(), 0600), 0);
    EXPECT_EQ(InChild([] { return OpenError() == ERROR_CANTOPEN && OpenError() == ERROR_CANTOPEN ? 0 : 1; }), 0);
    EXPECT_TRUE(std::filesystem::is_fifo(Store()));
    std::filesystem::remove(Store());
    std::filesystem::create_symlink("registry.db", Store()); // to itself
    EXPECT_EQ(OpenError(), ERROR_CANTOPEN);
    std::filesystem::remove(Store());
    EXPECT_EQ(OpenError(), 0u);
}

TEST_F(LinuxRegistryDamage, AStoreBehindALinkStaysThereAndIsSetAsideThere)
{
    std::filesystem::create_directories(folder / "kvcore");
    std::filesystem::create_directories(folder / "elsewhere");
    std::filesystem::create_symlink(folder / "elsewhere/store", Store());
    ASSERT_EQ(WriteInChild(), 0);
    EXPECT_TRUE(std::filesystem::is_symlink(Store()));
    ASSERT_EQ(Execute("DROP TABLE vals"), SQLITE_OK);
    EXPECT_EQ(InChild([] { return OpenError() == ERROR_BADDB && OpenError() == 0 ? 0 : 1; }), 0);
    EXPECT_TRUE(std::filesystem::exists(folder / "elsewhere/store.damaged-1"));
    EXPECT_TRUE(std::filesystem::exists(folder / "elsewhere/store"));
}

TEST_F(LinuxRegistryDamage, AStoreThatAnotherProcessSetsAsideIsWrittenNoMore)
{
    ScopedKey const key = MakeKey(HKEY_CURRENT_USER, TEXT("Software\\Shared"));
    ASSERT_EQ(SetNumber(key, TEXT("v"), 1), 0u);
    std::filesystem::rename(Store(), Aside());
    std::filesystem::rename(Store().string() + "-wal", Aside().string() + "-wal");
    EXPECT_EQ(SetNumber(key, TEXT("v"), 2), ERROR_KEY_DELETED);
    ScopedKey const anew = MakeKey(HKEY_CURRENT_USER, TEXT("Software\\Shared"));
    EXPECT_EQ(GetNumber(anew, TEXT("v")), 0u);
    EXPECT_EQ(SetNumber(anew, TEXT("v"), 3), 0u);
    EXPECT_EQ(
        InChild([] { return GetNumber(OpenKey(HKEY_CURRENT_USER, TEXT("Software\\Shared")), TEXT("v")) == 3 ? 0 : 1; }),
        0);
}

namespace
{

// An allocator of SQLite's that fails from one allocation on.
sqlite3_mem_methods plain;
int allocationsLeft;

void * AllocateWithLimit(int size)
{
    return allocationsLeft > 0 && allocationsLeft-- > 0 ? plain.xMalloc(size) : nullptr;
}

void * ReallocateWithLimit(void * block, int size)
{
    return allocationsLeft > 0 && allocationsLeft-- > 0 ? plain.xRealloc(block, size) : nullptr;
}

/// Makes, sets, reads, lists and deletes. The first failure.
DWORD UseAll()
{
    ScopedKey key;
    DWORD code = Code(RegCreateKeyExW(
        HKEY_CURRENT_USER, TEXT("Software\\Memory\\Below"), 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, key.Place(),
        nullptr));
    code = code == 0 ? SetNumber(key, TEXT("v"), 1) : code;
    code = code == 0 ? WalkKey(HKEY_CURRENT_USER) : code;
    code = code == 0 ? Code(RegDeleteValueW(key, TEXT("v"))) : code;
    return code == 0 ? SHDeleteKeyW(HKEY_CURRENT_USER, TEXT("Software\\Memory")) : code;
}

/// With SQLite failing from each allocation on, until none fails: 0, or what went wrong.
int RunOutOfMemory()
{
    sqlite3_shutdown();
    sqlite3_config(SQLITE_CONFIG_GETMALLOC, &plain);
    sqlite3_mem_methods limited = plain;
    limited.xMalloc = AllocateWithLimit;
    limited.xRealloc = ReallocateWithLimit;
    sqlite3_config(SQLITE_CONFIG_LOOKASIDE, 0, 0);
    sqlite3_config(SQLITE_CONFIG_MALLOC, &limited);
    for (int allocations = 0; allocations < 5000; ++allocations)
    {
        // Each step of the way is a process whose store is closed, as at a program's start.
        int const result = InChild(
            [allocations]
            {
                allocationsLeft = allocations;
                DWORD const code = UseAll();
                bool const isExpected = code == 0 || code == ERROR_NOT_ENOUGH_MEMORY;
                bool const hasEnough = allocationsLeft > 0;
                allocationsLeft = 1 << 30;
                bool const isIntact =
                    UseAll() == 0 && GetNumber(OpenKey(HKEY_CURRENT_USER, TEXT("Software\\Stored")), TEXT("v")) == 77;
                return !isExpected ? 2 : !isIntact ? 3 : hasEnough ? 1 : 0;
            });
        if (result != 0)
        {
            return result == 1 ? 0 : result;
        }
        allocations += allocations / 10; // the first ones open the store, and each of them counts
    }
    return 4;
}

} // namespace

TEST_F(LinuxRegistryDamage, RunningOutOfMemoryIsNoDamage)
{
    ASSERT_EQ(WriteInChild(), 0);
    EXPECT_EQ(InChild(RunOutOfMemory), 0);
    EXPECT_FALSE(std::filesystem::exists(Aside()));
    EXPECT_EQ(GetNumber(OpenKey(HKEY_CURRENT_USER, TEXT("Software\\Stored")), TEXT("v")), 77u);
}

namespace
{

/// No file of this process may grow: as on a full disk, but for users without rights on it.
void FillDisk()
{
    rlimit const limit = {0, RLIM_INFINITY};
    signal(SIGXFSZ, SIG_IGN);
    setrlimit(RLIMIT_FSIZE, &limit);
}

void MakeRoom()
{
    rlimit const limit = {RLIM_INFINITY, RLIM_INFINITY};
    setrlimit(RLIMIT_FSIZE, &limit);
}

DWORD MakeError(WCHAR const * path)
{
    ScopedKey made;
    return Code(
        RegCreateKeyExW(HKEY_CURRENT_USER, path, 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, made.Place(), nullptr));
}

/// What a store that `WriteInChild` has made gives on a full disk: 0, or the number of the step that fails.
int ReadOnFullDisk()
{
    ScopedKey const key = OpenKey(HKEY_CURRENT_USER, TEXT("Software\\Stored"));
    return GetNumber(key, TEXT("v")) != 77                                                    ? 1
        : WalkError() != 0                                                                    ? 2
        : SetNumber(key, TEXT("v"), 78) != ERROR_DISK_FULL                                    ? 3
        : MakeError(TEXT("Software\\More")) != ERROR_DISK_FULL                                ? 4
        : MakeError(TEXT("Software\\Stored")) != 0                                            ? 5
        : Code(RegDeleteValueW(key, TEXT("v"))) != ERROR_DISK_FULL                            ? 6
        : Code(RegDeleteKeyW(HKEY_CURRENT_USER, TEXT("Software\\Stored"))) != ERROR_DISK_FULL ? 7
        : GetNumber(key, TEXT("v")) != 77                                                     ? 8
                                                                                              : 0;
}

} // namespace

TEST_F(LinuxRegistryDamage, OnAFullDiskTheRegistryIsReadAndChangesSayWhy)
{
    ASSERT_EQ(WriteInChild(), 0);
    EXPECT_EQ(
        InChild(
            []
            {
                FillDisk();
                if (int const step = ReadOnFullDisk(); step != 0)
                {
                    return step;
                }
                // With room again, the same handles go on.
                ScopedKey const key = OpenKey(HKEY_CURRENT_USER, TEXT("Software\\Stored"));
                MakeRoom();
                return SetNumber(key, TEXT("v"), 79) == 0 && GetNumber(key, TEXT("v")) == 79 ? 0 : 9;
            }),
        0);
    EXPECT_EQ(GetNumber(OpenKey(HKEY_CURRENT_USER, TEXT("Software\\Stored")), TEXT("v")), 79u);
    EXPECT_FALSE(std::filesystem::exists(Aside()));
}

TEST_F(LinuxRegistryDamage, ADiskThatFillsUpUnderAnOpenStoreKeepsItReadable)
{
    ASSERT_EQ(WriteInChild(), 0);
    EXPECT_EQ(
        InChild(
            []
            {
                ScopedKey const key = OpenKey(HKEY_CURRENT_USER, TEXT("Software\\Stored"));
                if (SetNumber(key, TEXT("w"), 1) != 0)
                {
                    return 10;
                }
                FillDisk();
                int const step = ReadOnFullDisk();
                MakeRoom();
                return step != 0 ? step : SetNumber(key, TEXT("v"), 79) == 0 ? 0 : 9;
            }),
        0);
    EXPECT_EQ(GetNumber(OpenKey(HKEY_CURRENT_USER, TEXT("Software\\Stored")), TEXT("v")), 79u);
}

TEST_F(LinuxRegistryDamage, AFullDiskWithALogOfAKilledProcessLosesNothing)
{
    EXPECT_EQ(
        InChild(
            []
            {
                ScopedKey const key = MakeKey(HKEY_CURRENT_USER, TEXT("Software\\Stored"));
                ScopedKey const brief = MakeKey(HKEY_CURRENT_USER, TEXT("Software\\Brief"), REG_OPTION_VOLATILE);
                return SetNumber(key, TEXT("v"), 77) == 0 && brief != nullptr ? raise(SIGKILL) : 1;
            }),
        -1);
    ASSERT_GT(std::filesystem::file_size(Store().string() + "-wal"), 0u);
    EXPECT_EQ(
        InChild(
            []
            {
                FillDisk();
                return ReadOnFullDisk();
            }),
        0);
    EXPECT_EQ(GetNumber(OpenKey(HKEY_CURRENT_USER, TEXT("Software\\Stored")), TEXT("v")), 77u);
}

TEST_F(LinuxRegistryDamage, VolatileKeysOfAnEarlierRunAreGoneOnAFullDiskToo)
{
    ASSERT_EQ(
        InChild([] { return MakeKey(HKEY_CURRENT_USER, TEXT("Software\\Brief"), REG_OPTION_VOLATILE) == nullptr; }), 0);
    ASSERT_EQ(Execute("UPDATE keys SET boot = 'an earlier one' WHERE boot IS NOT NULL"), SQLITE_OK);
    EXPECT_EQ(
        InChild(
            []
            {
                FillDisk();
                bool const isGone = OpenKey(HKEY_CURRENT_USER, TEXT("Software\\Brief")) == nullptr;
                return isGone && OpenError() == 0 ? 0 : 1;
            }),
        0);
}

TEST_F(LinuxRegistryDamage, WithoutAStoreAFullDiskHasAnEmptyRegistry)
{
    std::filesystem::create_directories(folder / "kvcore");
    EXPECT_EQ(
        InChild(
            []
            {
                FillDisk();
                ScopedKey const key = OpenKey(HKEY_CURRENT_USER, TEXT("Software"));
                bool const isEmpty = key != nullptr && WalkError() == 0 && GetNumber(key, TEXT("v")) == 0;
                bool const isFull = SetNumber(key, TEXT("v"), 1) == ERROR_DISK_FULL &&
                    MakeError(TEXT("Software\\More")) == ERROR_DISK_FULL;
                MakeRoom();
                return !isEmpty ? 1 : !isFull ? 2 : SetNumber(key, TEXT("v"), 5) != 0 ? 3 : 0;
            }),
        0);
    EXPECT_EQ(GetNumber(OpenKey(HKEY_CURRENT_USER, TEXT("Software")), TEXT("v")), 5u);
}

#endif
