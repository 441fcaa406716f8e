#include <kvcore/frame/SysParamWatcher.h>

#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include <kvcore/platform/win32.h>
#include <support/Signals.h>
#include <support/SystemCalls.h>

namespace
{

using kv::test::SystemCalls;

/// A watcher whose timer a test can ring.
class Watcher : public SysParamWatcher
{
public:
    void Ring(unsigned int id)
    {
        OnTimer(id);
    }
};

/// Parameters and timers that are the test's own. Actions come in pairs: get N, set N + 1.
class SysParamWatcherTest : public testing::Test
{
protected:
    static constexpr UINT get = 100;
    static constexpr UINT set = 101;
    static constexpr UINT otherGet = 200;
    static constexpr UINT otherSet = 201;

    SysParamWatcherTest()
    {
        calls.SystemParametersInfoW = [this](UINT action, UINT argument, PVOID value, UINT flags)
        {
            if (action % 2 == 0)
            {
                EXPECT_EQ(0u, argument);
                EXPECT_EQ(0u, flags);
                EXPECT_EQ(0u, *static_cast<DWORD *>(value));
                *static_cast<DWORD *>(value) = values[action];
                log.push_back("get " + std::to_string(action));
                return refuses ? FALSE : TRUE;
            }
            EXPECT_EQ(nullptr, value);
            EXPECT_EQ(1u, flags);
            values[action - 1] = argument;
            log.push_back("set " + std::to_string(action) + " to " + std::to_string(argument));
            return refuses ? FALSE : TRUE;
        };
        calls.timeSetEvent = [this](UINT delay, UINT resolution, LPTIMECALLBACK, DWORD_PTR user, UINT flags)
        {
            EXPECT_EQ(1000u, resolution);
            EXPECT_EQ(1u, flags & 0xFFu);
            EXPECT_NE(0u, user);
            log.push_back("timer " + std::to_string(delay));
            if (refuses)
            {
                return MMRESULT{0};
            }
            ++running;
            return ++lastTimer;
        };
        calls.timeKillEvent = [this](UINT id)
        {
            log.push_back("kill " + std::to_string(id));
            --running;
            return MMRESULT{TIMERR_NOERROR};
        };
    }

    std::vector<std::string> Log()
    {
        return std::exchange(log, {});
    }

    SystemCalls calls;
    std::map<UINT, DWORD> values;
    std::vector<std::string> log;
    UINT lastTimer = 10;
    int running = 0;
    bool refuses = false;
};

using Lines = std::vector<std::string>;

} // namespace

TEST_F(SysParamWatcherTest, AppliesTheWantedValuesAndRestoresTheSaved)
{
    values[get] = 5;
    Watcher watcher;
    EXPECT_FALSE(watcher.IsWatching());
    watcher.SetParamToWatch(set, get, 7);
    EXPECT_EQ((Lines{"get 100"}), Log());
    watcher.StartWatching(false);
    EXPECT_EQ((Lines{"set 101 to 7", "timer 10000"}), Log());
    EXPECT_TRUE(watcher.IsWatching());
    watcher.StopWatching();
    EXPECT_EQ((Lines{"kill 11", "set 101 to 5"}), Log());
    EXPECT_FALSE(watcher.IsWatching());
    EXPECT_EQ(5u, values[get]);
}

TEST_F(SysParamWatcherTest, CanWatchAgainAfterItStopped)
{
    values[get] = 5;
    Watcher watcher;
    watcher.SetParamToWatch(set, get, 7);
    for (int i = 0; i < 2; ++i)
    {
        watcher.StartWatching(false);
        EXPECT_EQ(7u, values[get]);
        watcher.RestoreDefaults();
        EXPECT_EQ(5u, values[get]);
    }
    EXPECT_EQ(0, running);
}

TEST_F(SysParamWatcherTest, AppliesTheValuesAgainWhenItsOwnTimerRings)
{
    Watcher watcher;
    watcher.SetParamToWatch(set, get, 7);
    watcher.StartWatching(false);
    values[get] = 9; // somebody else
    Log();
    watcher.Ring(lastTimer + 1);
    watcher.Ring(0);
    EXPECT_EQ(Lines{}, Log());
    EXPECT_EQ(9u, values[get]);
    watcher.Ring(lastTimer);
    EXPECT_EQ((Lines{"set 101 to 7"}), Log());
    watcher.StopWatching();
    watcher.Ring(lastTimer);
    EXPECT_EQ(0u, values[get]);
}

TEST_F(SysParamWatcherTest, SavesWhatHasChangedSinceIfAskedTo)
{
    values[get] = 5;
    Watcher watcher;
    watcher.SetParamToWatch(set, get, 7);
    values[get] = 6;
    watcher.StartWatching(true);
    EXPECT_EQ((Lines{"get 100", "get 100", "set 101 to 7", "timer 10000"}), Log());
    watcher.StopWatching();
    EXPECT_EQ(6u, values[get]);
}

TEST_F(SysParamWatcherTest, TakesItsOwnValuesForThoseToRestoreWhenARestartSaves)
{
    values[get] = 5;
    Watcher watcher;
    watcher.SetParamToWatch(set, get, 7);
    watcher.StartWatching(false);
    Log();
    watcher.StartWatching(true);
    EXPECT_EQ((Lines{"kill 11", "get 100", "set 101 to 7", "timer 10000"}), Log());
    watcher.StopWatching();
    EXPECT_EQ(7u, values[get]);
    EXPECT_EQ(0, running);
}

TEST_F(SysParamWatcherTest, HasOneEntryForAPairOfActions)
{
    values[get] = 5;
    Watcher watcher;
    watcher.SetParamToWatch(set, get, 7);
    values[get] = 6;
    watcher.SetParamToWatch(set, get, 8);
    Log();
    watcher.ApplyValues();
    EXPECT_EQ((Lines{"set 101 to 8"}), Log());
    watcher.RestoreDefaults();
    EXPECT_EQ((Lines{"set 101 to 6"}), Log());
}

TEST_F(SysParamWatcherTest, GoesThroughItsListByTheActionsAsASignedNumber)
{
    Watcher watcher;
    watcher.SetParamToWatch(0x7FFFFFFF, 2, 1);
    watcher.SetParamToWatch(3, 0xFFFFFFFE, 2);
    watcher.SetParamToWatch(3, 2, 3);
    watcher.SetParamToWatch(0x80000001, 2, 4);
    Log();
    watcher.ApplyValues();
    EXPECT_EQ((Lines{"set 2147483649 to 4", "set 3 to 3", "set 3 to 2", "set 2147483647 to 1"}), Log());
    watcher.SaveCurrentSystemValues();
    EXPECT_EQ((Lines{"get 2", "get 2", "get 4294967294", "get 2"}), Log());
}

TEST_F(SysParamWatcherTest, TakesANewIntervalFromTheNextStartOn)
{
    Watcher watcher;
    watcher.SetUpdateInterval(5);
    EXPECT_EQ(Lines{}, Log());
    watcher.StartWatching(false);
    EXPECT_EQ((Lines{"timer 5000"}), Log());
    watcher.SetUpdateInterval(7);
    EXPECT_EQ((Lines{"kill 11", "timer 7000"}), Log());
    watcher.Ring(11);
    watcher.StopWatching();
    EXPECT_EQ((Lines{"kill 12"}), Log());
    EXPECT_EQ(0, running);
}

TEST_F(SysParamWatcherTest, RestoresWhatItTakesOffTheListWhileItWatches)
{
    values[get] = 5;
    values[otherGet] = 15;
    values[300] = 25;
    Watcher watcher;
    watcher.SetParamToWatch(set, get, 1);
    watcher.SetParamToWatch(set, 300, 2); // another way to read what the same action sets
    watcher.SetParamToWatch(otherSet, otherGet, 3);
    watcher.StartWatching(false);
    Log();
    watcher.RemoveParamFromWatchlist(set);
    EXPECT_EQ((Lines{"kill 11", "set 101 to 5", "set 101 to 25", "timer 10000"}), Log());
    EXPECT_TRUE(watcher.IsWatching());
    watcher.StopWatching();
    EXPECT_EQ((Lines{"kill 12", "set 201 to 15"}), Log());
    EXPECT_EQ(0, running);
}

TEST_F(SysParamWatcherTest, RunsItsTimerAfterARemovalThoughItDoesNotWatch)
{
    values[get] = 5;
    Watcher watcher;
    watcher.SetParamToWatch(set, get, 1);
    watcher.SetParamToWatch(otherSet, otherGet, 3);
    Log();
    watcher.RemoveParamFromWatchlist(set);
    EXPECT_EQ((Lines{"timer 10000"}), Log());
    EXPECT_FALSE(watcher.IsWatching());
    EXPECT_EQ(5u, values[get]);
    watcher.Ring(lastTimer);
    EXPECT_EQ((Lines{"set 201 to 3"}), Log());
    EXPECT_FALSE(watcher.IsWatching());
    watcher.StopWatching();
    EXPECT_EQ((Lines{"kill 11", "set 201 to 0"}), Log());
}

TEST_F(SysParamWatcherTest, LeavesNoTimerBehind)
{
    {
        Watcher watcher;
        watcher.RemoveParamFromWatchlist(set);
        watcher.StartWatching(false);
        EXPECT_EQ(1, running);
    }
    EXPECT_EQ(0, running);
    {
        Watcher watcher;
        watcher.SetParamToWatch(set, get, 1);
        watcher.RemoveParamFromWatchlist(otherSet);
        Log();
    }
    EXPECT_EQ(0, running);
    EXPECT_EQ((Lines{"kill 13"}), Log());
}

TEST_F(SysParamWatcherTest, RestoresWhenItIsDestroyedWatching)
{
    values[get] = 5;
    {
        Watcher watcher;
        watcher.SetParamToWatch(set, get, 7);
        watcher.StartWatching(false);
        Log();
    }
    EXPECT_EQ((Lines{"kill 11", "set 101 to 5"}), Log());
    {
        Watcher watcher;
        watcher.SetParamToWatch(set, get, 7);
        Log();
    }
    EXPECT_EQ(Lines{}, Log());
}

TEST_F(SysParamWatcherTest, GoesOnWithoutWhatTheSystemRefuses)
{
    refuses = true;
    Watcher watcher;
    watcher.SetParamToWatch(set, get, 7);
    watcher.StartWatching(true);
    EXPECT_TRUE(watcher.IsWatching());
    watcher.Ring(lastTimer);
    Log();
    watcher.StopWatching();
    EXPECT_EQ((Lines{"set 101 to 0"}), Log());
}

TEST(SysParamWatcher, HoldsTheSystemsOwnParameters)
{
    auto const value = []
    {
        DWORD timeOut = 0;
        EXPECT_TRUE(SystemParametersInfoW(SPI_GETSCREENSAVETIMEOUT, 0, &timeOut, 0));
        return timeOut;
    };
    DWORD const before = value();
    {
        SysParamWatcher watcher;
        watcher.SetParamToWatch(SPI_SETSCREENSAVETIMEOUT, SPI_GETSCREENSAVETIMEOUT, before + 100);
        EXPECT_EQ(before, value());
        watcher.StartWatching(false);
        EXPECT_EQ(before + 100, value());
    }
    EXPECT_EQ(before, value());
}

TEST(SysParamWatcher, MayBeDestroyedWhileItsTimerRings)
{
    SystemCalls calls;
    Signals applied;
    calls.SystemParametersInfoW = [&](UINT action, UINT, PVOID, UINT)
    {
        if (action % 2 != 0)
        {
            applied.Give();
        }
        return TRUE;
    };
    std::multiset<UINT> timers; // that ring
    calls.timeSetEvent = [&](UINT, UINT resolution, LPTIMECALLBACK callback, DWORD_PTR user, UINT flags)
    {
        UINT const timer = SystemCalls::RealtimeSetEvent(1, resolution, callback, user, flags);
        timers.insert(timer);
        return timer;
    };
    calls.timeKillEvent = [&](UINT timer)
    {
        EXPECT_EQ(1u, timers.erase(timer));
        return SystemCalls::RealtimeKillEvent(timer);
    };
    for (int i = 0; i < 100; ++i)
    {
        Watcher watcher;
        watcher.SetParamToWatch(101, 100, 1);
        watcher.SetParamToWatch(201, 200, 1);
        watcher.StartWatching(false);
        applied.Await(2 + 2 * (i % 3));
        if (i % 2 != 0)
        {
            watcher.SetUpdateInterval(2);
            watcher.RemoveParamFromWatchlist(101);
        }
        EXPECT_EQ(1u, timers.size());
    }
    EXPECT_TRUE(timers.empty()) << "the last watcher's has been killed, too";
}
