#include <atomic>
#include <set>
#include <vector>

#include <gtest/gtest.h>

#include <kvcore/platform/win32.h>
#include <support/ScopedHandle.h>

namespace
{

/// A timer's procedure that counts, and may end its timer or wait.
struct Ticks
{
    ScopedHandle ticked{CreateEventW(nullptr, FALSE, FALSE, nullptr)};
    ScopedHandle mayReturn{CreateEventW(nullptr, TRUE, TRUE, nullptr)};
    std::atomic<int> count{0};
    std::atomic<int> told{0}; // with the event, which forgets a tick that comes before the last one was seen
    int awaited = 0;
    std::atomic<int> inside{0};
    std::atomic<UINT> id{0};
    int endAfter = 0;
    std::vector<MMRESULT> results;

    static void CALLBACK Tick(UINT id, UINT, DWORD_PTR user, DWORD_PTR, DWORD_PTR)
    {
        Ticks & ticks = *reinterpret_cast<Ticks *>(user);
        ++ticks.inside;
        ticks.id = id;
        if (++ticks.count == ticks.endAfter)
        {
            ticks.results.push_back(timeKillEvent(id));
            ticks.results.push_back(timeKillEvent(id));
        }
        ++ticks.told;
        SetEvent(ticks.ticked);
        WaitForSingleObject(ticks.mayReturn, INFINITE);
        --ticks.inside;
    }
    UINT Start(UINT delay, UINT flags)
    {
        return timeSetEvent(delay, 0, Tick, reinterpret_cast<DWORD_PTR>(this), flags);
    }
    /// Returns when there has been a tick for each call.
    void AwaitTick()
    {
        ++awaited;
        while (told < awaited)
        {
            ASSERT_EQ(DWORD{WAIT_OBJECT_0}, WaitForSingleObject(ticked, INFINITE));
        }
    }
};

/// Returns when the timer thread has finished what it was doing. Under Wine a call of a timer that runs once outlasts
/// its timeKillEvent, so what this one uses is never destroyed.
void PassTimerThread()
{
    static Ticks & passer = *new Ticks;
    for (int i = 0; i < 2; ++i)
    {
        passer.Start(1, TIME_ONESHOT);
        passer.AwaitTick();
    }
}

} // namespace

TEST(MultimediaTimers, CallOnce)
{
    Ticks ticks;
    UINT const id = ticks.Start(1, TIME_ONESHOT);
    EXPECT_NE(0u, id);
    ticks.AwaitTick();
    EXPECT_EQ(id, ticks.id);
    PassTimerThread();
    EXPECT_EQ(1, ticks.count);
    EXPECT_EQ(MMRESULT{TIMERR_NOCANDO}, timeKillEvent(id));
}

TEST(MultimediaTimers, CallAgainAndAgain)
{
    Ticks ticks;
    UINT const id = ticks.Start(1, TIME_PERIODIC | TIME_KILL_SYNCHRONOUS);
    for (int i = 0; i < 5; ++i)
    {
        ticks.AwaitTick();
    }
    EXPECT_EQ(MMRESULT{TIMERR_NOERROR}, timeKillEvent(id));
    EXPECT_EQ(0, ticks.inside);
    EXPECT_EQ(MMRESULT{TIMERR_NOCANDO}, timeKillEvent(id));
    int const count = ticks.count;
    EXPECT_GE(count, 5);
    PassTimerThread();
    EXPECT_EQ(count, ticks.count);
}

TEST(MultimediaTimers, MayBeEndedByTheirOwnProcedures)
{
    for (UINT const flags : {TIME_ONESHOT, TIME_PERIODIC, TIME_PERIODIC | TIME_KILL_SYNCHRONOUS})
    {
        Ticks ticks;
        ticks.endAfter = flags == TIME_ONESHOT ? 1 : 3;
        UINT const id = ticks.Start(1, flags);
        for (int i = 0; i < ticks.endAfter; ++i)
        {
            ticks.AwaitTick();
        }
        PassTimerThread();
        PassTimerThread();
        EXPECT_EQ(ticks.endAfter, ticks.count);
        EXPECT_EQ((std::vector<MMRESULT>{TIMERR_NOERROR, TIMERR_NOCANDO}), ticks.results);
        EXPECT_EQ(MMRESULT{TIMERR_NOCANDO}, timeKillEvent(id));
    }
}

TEST(MultimediaTimers, AreEndedOnceTheirProcedureHasReturnedIfThatWasAskedFor)
{
    Ticks ticks;
    ResetEvent(ticks.mayReturn);
    UINT const id = ticks.Start(1, TIME_PERIODIC | TIME_KILL_SYNCHRONOUS);
    ticks.AwaitTick();
    struct Killer
    {
        static DWORD WINAPI Run(LPVOID timer)
        {
            timeKillEvent(static_cast<UINT>(reinterpret_cast<ULONG_PTR>(timer)));
            return 0;
        }
    };
    ScopedHandle const killer(
        CreateThread(nullptr, 0, Killer::Run, reinterpret_cast<void *>(ULONG_PTR{id}), 0, nullptr));
    EXPECT_EQ(DWORD{WAIT_TIMEOUT}, WaitForSingleObject(killer, 20));
    EXPECT_EQ(1, ticks.inside);
    SetEvent(ticks.mayReturn);
    EXPECT_EQ(DWORD{WAIT_OBJECT_0}, WaitForSingleObject(killer, INFINITE));
    EXPECT_EQ(0, ticks.inside);
    EXPECT_EQ(1, ticks.count);
}

TEST(MultimediaTimers, AreEndedAtOnceElse)
{
    Ticks ticks;
    ResetEvent(ticks.mayReturn);
    UINT const id = ticks.Start(1, TIME_PERIODIC);
    ticks.AwaitTick();
    EXPECT_EQ(MMRESULT{TIMERR_NOERROR}, timeKillEvent(id));
    EXPECT_EQ(1, ticks.inside);
    SetEvent(ticks.mayReturn);
    PassTimerThread();
    EXPECT_EQ(1, ticks.count);
}

TEST(MultimediaTimers, MaySetAnEventInstead)
{
    ScopedHandle const event(CreateEventW(nullptr, FALSE, FALSE, nullptr));
    HANDLE const handle = event;
    UINT const id =
        timeSetEvent(1, 0, reinterpret_cast<LPTIMECALLBACK>(handle), 0, TIME_PERIODIC | TIME_CALLBACK_EVENT_SET);
    EXPECT_EQ(DWORD{WAIT_OBJECT_0}, WaitForSingleObject(event, INFINITE));
    EXPECT_EQ(DWORD{WAIT_OBJECT_0}, WaitForSingleObject(event, INFINITE));
    EXPECT_EQ(MMRESULT{TIMERR_NOERROR}, timeKillEvent(id));
}

TEST(MultimediaTimers, HaveNumbersOfTheirOwn)
{
    Ticks ticks;
    std::set<UINT> ids;
    for (int i = 0; i < 10; ++i)
    {
        ids.insert(ticks.Start(60000, TIME_PERIODIC));
    }
    EXPECT_EQ(10u, ids.size());
    EXPECT_EQ(0u, ids.count(0));
    for (UINT const id : ids)
    {
        EXPECT_EQ(MMRESULT{TIMERR_NOERROR}, timeKillEvent(id));
    }
    EXPECT_EQ(0, ticks.count);
}

TEST(MultimediaTimers, NeedADelay)
{
    Ticks ticks;
    EXPECT_EQ(0u, ticks.Start(0, TIME_ONESHOT));
    EXPECT_EQ(0u, ticks.Start(0, TIME_PERIODIC));
    EXPECT_EQ(0u, ticks.Start(1'000'001, TIME_PERIODIC));
    EXPECT_EQ(MMRESULT{TIMERR_NOCANDO}, timeKillEvent(0xFFFFFFFF));
}
