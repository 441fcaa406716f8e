#include <gtest/gtest.h>

#include <kvcore/platform/win32.h>

namespace
{

DWORD Get(UINT action)
{
    DWORD value = 0xCCCCCCCC;
    EXPECT_TRUE(SystemParametersInfoW(action, 0, &value, 0));
    return value;
}

/// A parameter that is as it was at the end.
class Parameter
{
public:
    Parameter(UINT get, UINT set) : getAction(get), setAction(set), before(Get(get)) {}
    Parameter(Parameter const &) = delete;
    Parameter & operator=(Parameter const &) = delete;
    ~Parameter()
    {
        EXPECT_TRUE(Set(before));
    }
    bool Set(DWORD value, UINT flags = SPIF_UPDATEINIFILE) const
    {
        return SystemParametersInfoW(setAction, value, nullptr, flags) != FALSE;
    }
    DWORD Value() const
    {
        return Get(getAction);
    }

private:
    UINT const getAction;
    UINT const setAction;
    DWORD const before;
};

PVOID AsPointer(ULONG_PTR value)
{
    return reinterpret_cast<PVOID>(value);
}

} // namespace

TEST(SystemParameters, AreReadAsTheyWereSet)
{
    Parameter const timeOut(SPI_GETSCREENSAVETIMEOUT, SPI_SETSCREENSAVETIMEOUT);
    for (DWORD const value : {1234u, 0u, 3000000000u})
    {
        EXPECT_TRUE(timeOut.Set(value));
        EXPECT_EQ(value, timeOut.Value());
    }
}

TEST(SystemParameters, MayBeSetForThisRunOfTheSystemOnly)
{
    Parameter const timeOut(SPI_GETSCREENSAVETIMEOUT, SPI_SETSCREENSAVETIMEOUT);
    EXPECT_TRUE(timeOut.Set(700));
    EXPECT_TRUE(timeOut.Set(800, 0));
    EXPECT_EQ(800u, timeOut.Value());
    EXPECT_TRUE(timeOut.Set(900));
    EXPECT_EQ(900u, timeOut.Value());
}

TEST(SystemParameters, FlagsAreZeroOrOne)
{
    Parameter const active(SPI_GETSCREENSAVEACTIVE, SPI_SETSCREENSAVEACTIVE);
    EXPECT_TRUE(active.Set(0));
    EXPECT_EQ(0u, active.Value());
    EXPECT_TRUE(active.Set(5));
    EXPECT_EQ(1u, active.Value());
}

TEST(SystemParameters, OfLaterTimesTravelInThePointer)
{
    DWORD const before = Get(SPI_GETFOREGROUNDLOCKTIMEOUT);
    EXPECT_TRUE(SystemParametersInfoW(SPI_SETFOREGROUNDLOCKTIMEOUT, 0, AsPointer(1234), 1));
    EXPECT_EQ(1234u, Get(SPI_GETFOREGROUNDLOCKTIMEOUT));
    EXPECT_TRUE(SystemParametersInfoW(SPI_SETFOREGROUNDLOCKTIMEOUT, 77, nullptr, 1));
    EXPECT_EQ(0u, Get(SPI_GETFOREGROUNDLOCKTIMEOUT));
    EXPECT_TRUE(SystemParametersInfoW(SPI_SETFOREGROUNDLOCKTIMEOUT, 0, AsPointer(before), 1));
    DWORD const tips = Get(SPI_GETTOOLTIPANIMATION);
    EXPECT_TRUE(SystemParametersInfoW(SPI_SETTOOLTIPANIMATION, 0, AsPointer(8), 1));
    EXPECT_EQ(1u, Get(SPI_GETTOOLTIPANIMATION));
    EXPECT_TRUE(SystemParametersInfoW(SPI_SETTOOLTIPANIMATION, 0, AsPointer(tips), 1));
}

TEST(SystemParameters, KeyboardsHaveAFastestSpeed)
{
    Parameter const speed(SPI_GETKEYBOARDSPEED, SPI_SETKEYBOARDSPEED);
    EXPECT_TRUE(speed.Set(99));
    EXPECT_EQ(31u, speed.Value());
}

TEST(SystemParameters, UnknownActionsAreAnError)
{
    DWORD value = 7;
    for (UINT const action : {9999u, 0u, 0xFFFFFFFFu})
    {
        SetLastError(0);
        EXPECT_FALSE(SystemParametersInfoW(action, 0, &value, 0)) << action;
        EXPECT_EQ(DWORD{ERROR_INVALID_SPI_VALUE}, GetLastError()) << action;
    }
    EXPECT_EQ(7u, value);
}

TEST(SystemMetrics, DescribeAPlainDesktop)
{
    EXPECT_EQ(32, GetSystemMetrics(SM_CXICON));
    EXPECT_EQ(16, GetSystemMetrics(SM_CYSMICON));
    EXPECT_GE(GetSystemMetrics(SM_CMONITORS), 1);
    EXPECT_GT(GetSystemMetrics(SM_CXSCREEN), GetSystemMetrics(SM_CYSCREEN));
    EXPECT_EQ(0, GetSystemMetrics(SM_SERVERR2));
    EXPECT_EQ(0, GetSystemMetrics(SM_MEDIACENTER));
    EXPECT_EQ(0, GetSystemMetrics(-1));
    EXPECT_EQ(0, GetSystemMetrics(9999));
}

#ifndef _WIN32 // The store is this layer's own.

#    include <cstdlib>
#    include <functional>
#    include <string>
#    include <vector>

#    include <signal.h>
#    include <sys/resource.h>
#    include <sys/stat.h>
#    include <sys/wait.h>
#    include <unistd.h>

#    include <support/RegistryStore.h>

namespace
{

/// Runs a step in another process.
pid_t StartChild(std::function<bool()> const & step)
{
    pid_t const child = fork();
    if (child == 0)
    {
        _exit(step() ? 0 : 1);
    }
    return child;
}

bool EndOf(pid_t child)
{
    int status = 0;
    return child > 0 && waitpid(child, &status, 0) == child && WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

} // namespace

TEST(SystemParameterStore, IsSharedByProcessesAndOutlivesThem)
{
    Parameter const timeOut(SPI_GETSCREENSAVETIMEOUT, SPI_SETSCREENSAVETIMEOUT);
    for (UINT const flags : {SPIF_UPDATEINIFILE, 0u})
    {
        DWORD const value = 4321 + flags;
        EXPECT_TRUE(EndOf(StartChild(
            [=] { return SystemParametersInfoW(SPI_SETSCREENSAVETIMEOUT, value, nullptr, flags) != FALSE; })));
        EXPECT_EQ(value, timeOut.Value());
    }
}

TEST(SystemParameterStore, MayBeWrittenByManyProcessesAtOnce)
{
    Parameter const timeOut(SPI_GETSCREENSAVETIMEOUT, SPI_SETSCREENSAVETIMEOUT);
    Parameter const delay(SPI_GETMENUSHOWDELAY, SPI_SETMENUSHOWDELAY);
    std::vector<pid_t> children;
    for (DWORD child = 1; child <= 4; ++child)
    {
        children.push_back(StartChild(
            [child]
            {
                for (int i = 0; i < 5; ++i)
                {
                    if (!SystemParametersInfoW(SPI_SETSCREENSAVETIMEOUT, child, nullptr, SPIF_UPDATEINIFILE) ||
                        !SystemParametersInfoW(SPI_SETMENUSHOWDELAY, child, nullptr, 0))
                    {
                        return false;
                    }
                }
                return true;
            }));
    }
    for (pid_t const child : children)
    {
        EXPECT_TRUE(EndOf(child));
    }
    EXPECT_GE(timeOut.Value(), 1u);
    EXPECT_LE(timeOut.Value(), 4u);
    EXPECT_LE(delay.Value(), 4u);
}

namespace
{

/// Parameters in a store of the test's own.
class OwnParameterStore : public testing::Test
{
protected:
    OwnParameterStore()
    {
        char const * const setting = std::getenv("XDG_DATA_HOME");
        before = setting != nullptr ? setting : "";
        setenv("XDG_DATA_HOME", folder.Path().c_str(), 1);
    }
    ~OwnParameterStore() override
    {
        before.empty() ? unsetenv("XDG_DATA_HOME") : setenv("XDG_DATA_HOME", before.c_str(), 1);
    }
    static bool Set(DWORD value)
    {
        return SystemParametersInfoW(SPI_SETSCREENSAVETIMEOUT, value, nullptr, SPIF_UPDATEINIFILE) != FALSE;
    }
    static std::string Aside(int number)
    {
        return "kvcore/parameters.db.damaged-" + std::to_string(number);
    }
    /// Runs statements on the store, as another program would.
    int Execute(std::string const & statements) const
    {
        return kv::test::ExecuteSql(folder / "kvcore/parameters.db", statements);
    }

    ScratchFolder folder;
    std::string before;
};

} // namespace

TEST_F(OwnParameterStore, HoldsTheSystemsOwnValuesAtFirst)
{
    EXPECT_EQ(300u, Get(SPI_GETSCREENSAVETIMEOUT));
    EXPECT_EQ(1u, Get(SPI_GETSCREENSAVEACTIVE));
    EXPECT_EQ(0u, Get(SPI_GETLOWPOWERTIMEOUT));
    EXPECT_EQ(0u, Get(SPI_GETPOWEROFFACTIVE));
    EXPECT_EQ(10u, Get(SPI_GETMOUSESPEED));
    EXPECT_FALSE(std::filesystem::exists(folder / "kvcore/parameters.db"));
}

TEST_F(OwnParameterStore, ThatCannotServeIsSetAsideByTheCallThatFindsIt)
{
    EXPECT_TRUE(Set(5));
    std::string const fresh = folder.Read("kvcore/parameters.db");
    char const * const damages[] = {
        "DROP TABLE parameters; CREATE TABLE others(x)",
        "CREATE TABLE others(x)",
        "CREATE TRIGGER t AFTER UPDATE ON parameters BEGIN DELETE FROM parameters; END",
        "CREATE UNIQUE INDEX i ON parameters(run)",
        "ALTER TABLE parameters RENAME COLUMN value TO other",
        nullptr, // no database at all
    };
    int number = 0;
    for (bool const writes : {false, true})
    {
        for (char const * const damage : damages)
        {
            folder.Write("kvcore/parameters.db", damage != nullptr ? fresh : std::string(5000, 'x'));
            ASSERT_TRUE(damage == nullptr || Execute(damage) == SQLITE_OK) << damage;
            std::string const bytes = folder.Read("kvcore/parameters.db");
            EXPECT_TRUE(writes ? Set(6) : Get(SPI_GETSCREENSAVETIMEOUT) == 300);
            EXPECT_EQ(bytes, folder.Read(Aside(++number)));
            EXPECT_TRUE(Set(7));
            EXPECT_EQ(7u, Get(SPI_GETSCREENSAVETIMEOUT));
            EXPECT_FALSE(std::filesystem::exists(folder / Aside(number + 1)));
        }
    }
}

TEST_F(OwnParameterStore, ThatHoldsWhatNoCallHasWrittenIsSetAside)
{
    EXPECT_TRUE(Set(5));
    std::string const fresh = folder.Read("kvcore/parameters.db");
    int number = 0;
    for (char const * const value : {"'text'", "-1", "4294967296", "x'05'", "1.5"})
    {
        folder.Write("kvcore/parameters.db", fresh);
        ASSERT_EQ(SQLITE_OK, Execute(std::string("UPDATE parameters SET value = ") + value));
        EXPECT_EQ(300u, Get(SPI_GETSCREENSAVETIMEOUT)) << value;
        EXPECT_TRUE(std::filesystem::exists(folder / Aside(++number))) << value;
        EXPECT_TRUE(Set(6));
        EXPECT_EQ(6u, Get(SPI_GETSCREENSAVETIMEOUT));
    }
}

TEST_F(OwnParameterStore, OfANewerVersionStaysAsItIs)
{
    EXPECT_TRUE(Set(5));
    ASSERT_EQ(SQLITE_OK, Execute("PRAGMA user_version = 1"));
    std::string const bytes = folder.Read("kvcore/parameters.db");
    EXPECT_EQ(300u, Get(SPI_GETSCREENSAVETIMEOUT));
    SetLastError(0);
    EXPECT_FALSE(Set(6));
    EXPECT_EQ(DWORD{ERROR_OLD_WIN_VERSION}, GetLastError());
    EXPECT_EQ(bytes, folder.Read("kvcore/parameters.db"));
}

/// The limit on the size of files stands in for a full disk.
TEST_F(OwnParameterStore, IsReadOnAFullDiskAndRefusesWritesWithTheReason)
{
    EXPECT_TRUE(Set(5));
    EXPECT_TRUE(EndOf(StartChild(
        []
        {
            rlimit const limit = {0, RLIM_INFINITY};
            signal(SIGXFSZ, SIG_IGN);
            setrlimit(RLIMIT_FSIZE, &limit);
            bool const isRead = Get(SPI_GETSCREENSAVETIMEOUT) == 5;
            return isRead && !Set(6) && GetLastError() == ERROR_DISK_FULL && Get(SPI_GETSCREENSAVETIMEOUT) == 5;
        })));
    EXPECT_TRUE(Set(7));
    EXPECT_EQ(7u, Get(SPI_GETSCREENSAVETIMEOUT));
    EXPECT_FALSE(std::filesystem::exists(folder / Aside(1)));
}

TEST_F(OwnParameterStore, WithAPipeInItsPlaceIsNotWaitedFor)
{
    EXPECT_EQ(300u, Get(SPI_GETSCREENSAVETIMEOUT));
    ASSERT_EQ(0, mkfifo((folder / "kvcore/parameters.db").c_str(), 0600));
    EXPECT_EQ(300u, Get(SPI_GETSCREENSAVETIMEOUT));
    EXPECT_FALSE(Set(6));
    EXPECT_TRUE(std::filesystem::is_fifo(folder / "kvcore/parameters.db"));
}

TEST_F(OwnParameterStore, IsForThisUserAlone)
{
    EXPECT_TRUE(Set(5));
    EXPECT_EQ(std::filesystem::perms(0600), std::filesystem::status(folder / "kvcore/parameters.db").permissions());
}

TEST_F(OwnParameterStore, ThatCannotBeMadeRefusesWrites)
{
    EXPECT_EQ(300u, Get(SPI_GETSCREENSAVETIMEOUT));
    std::filesystem::create_directory(folder / "kvcore/parameters.db");
    EXPECT_EQ(300u, Get(SPI_GETSCREENSAVETIMEOUT));
    EXPECT_FALSE(Set(6));
    EXPECT_EQ(DWORD{ERROR_WRITE_FAULT}, GetLastError());
}

TEST_F(OwnParameterStore, NeedsSomewhereToPutWhatIsRead)
{
    SetLastError(0);
    EXPECT_FALSE(SystemParametersInfoW(SPI_GETSCREENSAVETIMEOUT, 0, nullptr, 0));
    EXPECT_EQ(DWORD{ERROR_NOACCESS}, GetLastError());
}

#endif
