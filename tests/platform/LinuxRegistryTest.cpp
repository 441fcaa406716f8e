#ifndef _WIN32 // What becomes of the store's files: Windows keeps its registry elsewhere.

#    include <cstdint>
#    include <filesystem>
#    include <fstream>
#    include <string>

#    include <signal.h>
#    include <sys/file.h>
#    include <sys/resource.h>
#    include <sys/wait.h>
#    include <unistd.h>

#    include <gtest/gtest.h>
#    include <sqlite3.h>

#    include <support/RegistryStore.h>

namespace
{

using namespace kv::test;

class LinuxRegistry : public RegistryStoreTest
{
};

} // namespace

TEST_F(LinuxRegistry, LivesInTheDataDirectoryForThisUserAlone)
{
    ASSERT_EQ(WriteInChild(), 0);
    EXPECT_EQ(std::filesystem::status(Store()).permissions(), std::filesystem::perms(0600));
    EXPECT_EQ(GetNumber(OpenKey(HKEY_CURRENT_USER, TEXT("software\\stored")), TEXT("v")), 77u);
    ScopedKey const below = OpenKey(HKEY_USERS, TEXT(".Default"));
    EXPECT_NE(below, nullptr);
}

TEST_F(LinuxRegistry, TheKeysOfTheRootsCannotBeDeleted)
{
    EXPECT_EQ(Code(RegDeleteKeyW(HKEY_LOCAL_MACHINE, TEXT("Software\\Classes"))), ERROR_ACCESS_DENIED);
    EXPECT_EQ(SHDeleteKeyW(HKEY_LOCAL_MACHINE, TEXT("Software")), ERROR_ACCESS_DENIED);
    EXPECT_EQ(Code(RegDeleteKeyW(HKEY_CURRENT_USER, TEXT(""))), ERROR_ACCESS_DENIED);
    EXPECT_EQ(OpenError(), 0u);
}

TEST_F(LinuxRegistry, NamesOfKeysHaveTwoHundredAndFiftyFiveElements)
{
    ScopedKey made;
    WString const name(256, TEXT('k'));
    EXPECT_EQ(
        Code(RegCreateKeyExW(HKEY_CURRENT_USER, name.c_str(), 0, nullptr, 0, KEY_READ, nullptr, made.Place(), nullptr)),
        ERROR_INVALID_PARAMETER);
}

TEST_F(LinuxRegistry, CountsAreForHandlesThatRead)
{
    ScopedKey const writing = OpenKey(HKEY_CURRENT_USER, TEXT("Software"), KEY_WRITE);
    DWORD count = 0;
    EXPECT_EQ(
        Code(RegQueryInfoKeyW(
            writing, nullptr, nullptr, nullptr, &count, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr)),
        ERROR_ACCESS_DENIED);
}

TEST_F(LinuxRegistry, AnEmptyPathIsAKeyThatWasThere)
{
    ScopedKey made;
    DWORD disposition = 0;
    EXPECT_EQ(
        Code(
            RegCreateKeyExW(HKEY_CURRENT_USER, TEXT(""), 0, nullptr, 0, KEY_READ, nullptr, made.Place(), &disposition)),
        0u);
    EXPECT_EQ(disposition, REG_OPENED_EXISTING_KEY);
}

TEST_F(LinuxRegistry, AForkedChildAndItsParentGoOn)
{
    ScopedKey const key = MakeKey(HKEY_CURRENT_USER, TEXT("Software\\Forked"));
    ASSERT_EQ(SetNumber(key, TEXT("parent"), 1), 0u);
    EXPECT_EQ(
        InChild([&key]
                { return GetNumber(key, TEXT("parent")) == 1 && SetNumber(key, TEXT("child"), 2) == 0 ? 0 : 1; }),
        0);
    EXPECT_EQ(GetNumber(key, TEXT("child")), 2u);
    EXPECT_EQ(SetNumber(key, TEXT("parent"), 3), 0u);
}

TEST_F(LinuxRegistry, TwoProcessesCountTogether)
{
    ScopedKey const key = MakeKey(HKEY_CURRENT_USER, TEXT("Software\\Counted"));
    constexpr int rounds = 200;
    auto const addValues = [](WCHAR letter)
    {
        ScopedKey const own = OpenKey(HKEY_CURRENT_USER, TEXT("Software\\Counted"));
        for (int i = 0; i < rounds; ++i)
        {
            WString const name = letter + WString(static_cast<std::size_t>(i) + 1, TEXT('v'));
            if (SetNumber(own, name.c_str(), 1) != 0 || MakeKey(own, name) == nullptr)
            {
                return 1;
            }
        }
        return 0;
    };
    pid_t const child = fork();
    if (child == 0)
    {
        _exit(addValues(TEXT('c')));
    }
    EXPECT_EQ(addValues(TEXT('p')), 0);
    int status = 1;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
    DWORD keys = 0;
    DWORD values = 0;
    RegQueryInfoKeyW(
        key, nullptr, nullptr, nullptr, &keys, nullptr, nullptr, &values, nullptr, nullptr, nullptr, nullptr);
    EXPECT_EQ(keys, 2u * rounds);
    EXPECT_EQ(values, 2u * rounds);
}

TEST_F(LinuxRegistry, AKilledProcessLosesNothingThatItWasToldIsDone)
{
    for (int round = 0; round < 5; ++round)
    {
        int told[2];
        ASSERT_EQ(pipe(told), 0);
        pid_t const child = fork();
        if (child == 0)
        {
            ScopedKey const key = MakeKey(HKEY_CURRENT_USER, TEXT("Software\\Killed"));
            for (std::uint32_t i = 1;; ++i)
            {
                // Two changes as one: a tree, which is there whole or not at all.
                bool const good = SetNumber(key, TEXT("v"), i) == 0 && MakeKey(key, TEXT("a\\b\\c")) != nullptr &&
                    SHDeleteKeyW(key, TEXT("a")) == 0;
                if (!good || write(told[1], &i, sizeof i) != static_cast<ssize_t>(sizeof i))
                {
                    _exit(1);
                }
            }
        }
        close(told[1]);
        std::uint32_t last = 0;
        for (int i = 0; i < 20 * (round + 1); ++i)
        {
            ASSERT_EQ(read(told[0], &last, sizeof last), static_cast<ssize_t>(sizeof last));
        }
        kill(child, SIGKILL);
        int status = 0;
        waitpid(child, &status, 0);
        EXPECT_TRUE(WIFSIGNALED(status));
        std::uint32_t more = 0;
        while (read(told[0], &more, sizeof more) == static_cast<ssize_t>(sizeof more))
        {
            last = more;
        }
        close(told[0]);
        ScopedKey const key = OpenKey(HKEY_CURRENT_USER, TEXT("Software\\Killed"));
        EXPECT_GE(GetNumber(key, TEXT("v")), last);
        ScopedKey const tree = OpenKey(key, TEXT("a"));
        EXPECT_TRUE(tree == nullptr || OpenKey(tree, TEXT("b\\c")) != nullptr);
    }
}

TEST_F(LinuxRegistry, ADamagedStoreIsSetAsideAndTheNextOneIsEmpty)
{
    ASSERT_EQ(WriteInChild(), 0);
    std::string const damaged = "no store at all" + folder.Read("kvcore/registry.db").substr(15);
    folder.Write("kvcore/registry.db", damaged);
    EXPECT_EQ(OpenError(), ERROR_BADDB);
    EXPECT_EQ(folder.Read("kvcore/registry.db.damaged-1"), damaged);
    EXPECT_EQ(OpenError(), 0u);
    EXPECT_EQ(OpenKey(HKEY_CURRENT_USER, TEXT("Software\\Stored")), nullptr);
    EXPECT_NE(MakeKey(HKEY_CURRENT_USER, TEXT("Software\\Anew")), nullptr);
}

TEST_F(LinuxRegistry, DamageBehindTheHeaderIsFoundWhereItIsMet)
{
    ASSERT_EQ(WriteInChild(), 0);
    std::string bytes = folder.Read("kvcore/registry.db");
    ASSERT_GT(bytes.size(), 8192u);
    std::fill(bytes.begin() + 4096, bytes.end(), '\x7F');
    folder.Write("kvcore/registry.db", bytes);
    EXPECT_EQ(OpenError(), ERROR_BADDB);
    EXPECT_EQ(OpenError(), 0u);
    EXPECT_EQ(folder.Read("kvcore/registry.db.damaged-1"), bytes);
}

TEST_F(LinuxRegistry, AnotherProgramsDatabaseIsNoStore)
{
    ASSERT_EQ(WriteInChild(), 0);
    std::string bytes = folder.Read("kvcore/registry.db");
    bytes[68] = 'X'; // the application's number
    folder.Write("kvcore/registry.db", bytes);
    EXPECT_EQ(OpenError(), ERROR_BADDB);
    EXPECT_TRUE(std::filesystem::exists(folder / "kvcore/registry.db.damaged-1"));
}

TEST_F(LinuxRegistry, ANewerStoreStaysAsItIs)
{
    ASSERT_EQ(WriteInChild(), 0);
    std::string bytes = folder.Read("kvcore/registry.db");
    bytes[63] = 2; // the version's last byte
    folder.Write("kvcore/registry.db", bytes);
    EXPECT_EQ(OpenError(), ERROR_OLD_WIN_VERSION);
    EXPECT_EQ(OpenError(), ERROR_OLD_WIN_VERSION);
    EXPECT_EQ(folder.Read("kvcore/registry.db"), bytes);
}

TEST_F(LinuxRegistry, AStoreThatCannotBeOpenedTellsSo)
{
    std::filesystem::create_directories(Store()); // in the file's place, which stops root too
    EXPECT_EQ(OpenError(), ERROR_CANTOPEN);
    std::filesystem::remove(Store());
    EXPECT_EQ(OpenError(), 0u);
}

TEST_F(LinuxRegistry, AStoreThatIsLockedForLongIsBusyAndLosesNothing)
{
    ScopedKey const key = MakeKey(HKEY_CURRENT_USER, TEXT("Software\\Locked"));
    ASSERT_EQ(SetNumber(key, TEXT("v"), 1), 0u);
    sqlite3 * other = nullptr;
    ASSERT_EQ(sqlite3_open(Store().c_str(), &other), SQLITE_OK);
    ASSERT_EQ(sqlite3_exec(other, "BEGIN IMMEDIATE", nullptr, nullptr, nullptr), SQLITE_OK);
    EXPECT_EQ(SetNumber(key, TEXT("v"), 2), ERROR_BUSY);
    EXPECT_EQ(GetNumber(key, TEXT("v")), 1u);
    ASSERT_EQ(sqlite3_exec(other, "ROLLBACK", nullptr, nullptr, nullptr), SQLITE_OK);
    EXPECT_EQ(SetNumber(key, TEXT("v"), 3), 0u);
    EXPECT_EQ(GetNumber(key, TEXT("v")), 3u);
    EXPECT_EQ(sqlite3_close(other), SQLITE_OK);
}

/// The limit on the size of files stands in for a full disk.
TEST_F(LinuxRegistry, AValueThatDoesNotFitTheDiskIsRefusedAndTheOthersStay)
{
    ASSERT_EQ(WriteInChild(), 0);
    EXPECT_EQ(
        InChild(
            []
            {
                rlimit const limit = {1 << 18, 1 << 18};
                signal(SIGXFSZ, SIG_IGN);
                setrlimit(RLIMIT_FSIZE, &limit);
                ScopedKey const key = OpenKey(HKEY_CURRENT_USER, TEXT("Software\\Stored"));
                std::string const large(1 << 21, 'x');
                LSTATUS const refused = RegSetValueExW(
                    key, TEXT("large"), 0, REG_BINARY, reinterpret_cast<BYTE const *>(large.data()),
                    static_cast<DWORD>(large.size()));
                return refused == ERROR_SUCCESS ? 1 : GetNumber(key, TEXT("v")) != 77 ? 2 : 0;
            }),
        0);
    ScopedKey const key = OpenKey(HKEY_CURRENT_USER, TEXT("Software\\Stored"));
    EXPECT_EQ(GetNumber(key, TEXT("v")), 77u);
    EXPECT_EQ(Code(RegQueryValueExW(key, TEXT("large"), nullptr, nullptr, nullptr, nullptr)), ERROR_FILE_NOT_FOUND);
    EXPECT_EQ(SetNumber(key, TEXT("w"), 78), 0u);
    EXPECT_EQ(GetNumber(key, TEXT("w")), 78u);
}

TEST_F(LinuxRegistry, AWriterWaitsForAnotherThatEnds)
{
    ScopedKey const key = MakeKey(HKEY_CURRENT_USER, TEXT("Software\\Shared"));
    int begun[2];
    int written[2];
    ASSERT_EQ(pipe(begun), 0);
    ASSERT_EQ(pipe(written), 0);
    pid_t const child = fork();
    if (child == 0)
    {
        sqlite3 * other = nullptr;
        bool good = sqlite3_open(Store().c_str(), &other) == SQLITE_OK &&
            sqlite3_exec(other, "BEGIN IMMEDIATE", nullptr, nullptr, nullptr) == SQLITE_OK;
        char byte = 0;
        good = good && write(begun[1], &byte, 1) == 1 && read(written[0], &byte, 1) == 1;
        good = good && sqlite3_exec(other, "COMMIT", nullptr, nullptr, nullptr) == SQLITE_OK;
        _exit(good ? 0 : 1);
    }
    char byte = 0;
    ASSERT_EQ(read(begun[0], &byte, 1), 1);
    // The other one ends while this one waits, or just before.
    ASSERT_EQ(write(written[1], &byte, 1), 1);
    EXPECT_EQ(SetNumber(key, TEXT("v"), 5), 0u);
    int status = 1;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(GetNumber(key, TEXT("v")), 5u);
    for (int const end : {begun[0], begun[1], written[0], written[1]})
    {
        close(end);
    }
}

TEST_F(LinuxRegistry, VolatileKeysEndWithTheRunOfTheSystem)
{
    ASSERT_EQ(
        InChild(
            []
            {
                ScopedKey const lasting = MakeKey(HKEY_CURRENT_USER, TEXT("Software\\Lasting"));
                ScopedKey const brief = MakeKey(lasting, TEXT("brief\\below"), REG_OPTION_VOLATILE);
                return SetNumber(lasting, TEXT("v"), 1) == 0 && SetNumber(brief, TEXT("v"), 2) == 0 ? 0 : 1;
            }),
        0);
    EXPECT_EQ(
        InChild([]
                { return GetNumber(OpenKey(HKEY_CURRENT_USER, TEXT("Software\\Lasting\\brief\\below")), TEXT("v")); }),
        2);
    ASSERT_EQ(Execute("UPDATE keys SET boot = 'an earlier one' WHERE boot IS NOT NULL"), SQLITE_OK);
    ScopedKey const key = OpenKey(HKEY_CURRENT_USER, TEXT("Software\\Lasting"));
    EXPECT_EQ(GetNumber(key, TEXT("v")), 1u);
    EXPECT_EQ(OpenKey(key, TEXT("brief")), nullptr);
    // A key that is made in its place has none of its values.
    EXPECT_EQ(GetNumber(MakeKey(key, TEXT("brief\\below")), TEXT("v")), 0u);
}

TEST_F(LinuxRegistry, ChangesByAnotherProcessAreNoticed)
{
    ScopedKey const key = MakeKey(HKEY_CURRENT_USER, TEXT("Software\\Watched"));
    HANDLE const event = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    auto const change = []
    {
        ScopedKey const own = OpenKey(HKEY_CURRENT_USER, TEXT("Software\\Watched"));
        return SetNumber(own, TEXT("v"), 1) == 0 ? 0 : 1;
    };
    // The child comes first: what a fork does to waits is not what is asked here.
    int go[2];
    ASSERT_EQ(pipe(go), 0);
    pid_t const child = fork();
    if (child == 0)
    {
        char byte = 0;
        _exit(read(go[0], &byte, 1) == 1 ? change() : 1);
    }
    ASSERT_EQ(Code(RegNotifyChangeKeyValue(key, TRUE, REG_NOTIFY_CHANGE_LAST_SET, event, TRUE)), 0u);
    EXPECT_EQ(WaitForSingleObject(event, 0), WAIT_TIMEOUT);
    EXPECT_EQ(write(go[1], "g", 1), 1);
    EXPECT_EQ(WaitForSingleObject(event, 20000), WAIT_OBJECT_0);
    int status = 1;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
    CloseHandle(event);
    close(go[0]);
    close(go[1]);
}

TEST_F(LinuxRegistry, ThisMachineHasItsOwnNameToo)
{
    char host[256] = "";
    ASSERT_EQ(gethostname(host, sizeof host - 1), 0);
    std::string const name = host;
    for (std::string const prefix : {"", "\\\\"})
    {
        std::string const text = prefix + name;
        HKEY key = nullptr;
        EXPECT_EQ(Code(RegConnectRegistryW(WString(text.begin(), text.end()).c_str(), HKEY_USERS, &key)), 0u);
        EXPECT_EQ(key, HKEY_USERS);
    }
    HKEY key = nullptr;
    EXPECT_EQ(Code(RegConnectRegistryW(TEXT("\\\\"), HKEY_USERS, nullptr)), ERROR_INVALID_PARAMETER);
    EXPECT_EQ(Code(RegConnectRegistryW(nullptr, nullptr, &key)), ERROR_INVALID_HANDLE);
    EXPECT_EQ(key, nullptr);
}

TEST_F(LinuxRegistry, KeysOfAStoreThatWasReplacedAreGone)
{
    ScopedKey const key = MakeKey(HKEY_CURRENT_USER, TEXT("Software\\Old"));
    ASSERT_EQ(SetNumber(key, TEXT("v"), 1), 0u);
    EXPECT_EQ(
        InChild(
            [this]
            {
                for (char const * const name : {"registry.db", "registry.db-wal", "registry.db-shm"})
                {
                    std::filesystem::remove(folder / "kvcore" / name);
                }
                return MakeKey(HKEY_CURRENT_USER, TEXT("Software\\New")) != nullptr ? 0 : 1;
            }),
        0);
    // The fork closed the store here, and what is opened now is the new one.
    EXPECT_NE(OpenKey(HKEY_CURRENT_USER, TEXT("Software\\New")), nullptr);
    EXPECT_EQ(SetNumber(key, TEXT("v"), 2), ERROR_KEY_DELETED);
}

#endif
