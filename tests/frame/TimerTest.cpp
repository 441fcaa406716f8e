#include <kvcore/frame/Timer.h>

#include <atomic>
#include <functional>
#include <memory>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include <kvcore/platform/win32.h>
#include <support/Signals.h>
#include <support/SystemCalls.h>

namespace
{

using kv::test::SystemCalls;

class Target : public ITimerTarget
{
public:
    explicit Target(std::function<void(unsigned int)> onTick = {}) : tick(std::move(onTick)) {}

    void OnTimer(unsigned int timerId) override
    {
        ++inside;
        lastId = timerId;
        ++count;
        if (tick)
        {
            tick(timerId);
        }
        ticked.Give();
        --inside;
    }
    void AwaitTicks(int ticks)
    {
        ticked.Await(ticks);
    }

    Signals ticked;
    std::atomic<int> count{0};
    std::atomic<int> inside{0};
    std::atomic<unsigned int> lastId{0};

private:
    std::function<void(unsigned int)> tick;
};

/// Returns when the timer thread has been through all that was due before.
void PassTimerThread()
{
    static Target & passer = *new Target;
    for (int i = 0; i < 2; ++i)
    {
        KVSetTimer(0, 1, &passer, false);
        passer.AwaitTicks(1);
    }
}

} // namespace

TEST(Timer, HandsItsTimesToTheSystem)
{
    for (bool const periodic : {false, true})
    {
        SystemCalls calls;
        Target target;
        LPTIMECALLBACK procedure = nullptr;
        DWORD_PTR argument = 0;
        calls.timeSetEvent = [&](UINT delay, UINT resolution, LPTIMECALLBACK callback, DWORD_PTR user, UINT flags)
        {
            EXPECT_EQ(250u, delay);
            EXPECT_EQ(10u, resolution);
            EXPECT_EQ(periodic ? 1u : 0u, flags & 0xFFu);
            EXPECT_EQ(UINT{TIME_KILL_SYNCHRONOUS}, flags & ~0xFFu);
            procedure = callback;
            argument = user;
            return MMRESULT{42};
        };
        EXPECT_EQ(42u, KVSetTimer(10, 250, &target, periodic));
        procedure(42, 7, argument, 8, 9);
        EXPECT_EQ(1, target.count);
        EXPECT_EQ(42u, target.lastId);
        UINT killed = 0;
        calls.timeKillEvent = [&](UINT id)
        {
            killed = id;
            return MMRESULT{TIMERR_NOERROR};
        };
        KVKillTimer(42);
        EXPECT_EQ(42u, killed);
    }
}

TEST(Timer, MayHaveNoTarget)
{
    SystemCalls calls;
    calls.timeSetEvent = [&](UINT, UINT, LPTIMECALLBACK callback, DWORD_PTR user, UINT)
    {
        callback(5, 0, user, 0, 0);
        return MMRESULT{5};
    };
    EXPECT_EQ(5u, KVSetTimer(0, 1, nullptr, false));
}

TEST(Timer, HasNoNumberIfTheSystemMakesNone)
{
    Target target;
    EXPECT_EQ(0u, KVSetTimer(0, 0, &target, true));
    SystemCalls calls;
    calls.timeSetEvent = [](auto...) { return MMRESULT{0}; };
    EXPECT_EQ(0u, KVSetTimer(0, 10, &target, true));
}

TEST(Timer, CallsItsTargetOnce)
{
    Target target;
    unsigned int const id = KVSetTimer(0, 1, &target, false);
    EXPECT_NE(0u, id);
    target.AwaitTicks(1);
    KVKillTimer(id);
    EXPECT_EQ(id, target.lastId);
    PassTimerThread();
    EXPECT_EQ(1, target.count);
}

TEST(Timer, CallsItsTargetUntilItIsKilled)
{
    Target target;
    unsigned int const id = KVSetTimer(0, 1, &target, true);
    target.AwaitTicks(5);
    KVKillTimer(id);
    EXPECT_EQ(0, target.inside);
    int const count = target.count;
    KVKillTimer(id);
    PassTimerThread();
    EXPECT_EQ(count, target.count);
}

TEST(Timer, MayBeKilledByItsOwnTarget)
{
    for (bool const periodic : {false, true})
    {
        Target target([](unsigned int id) { KVKillTimer(id); });
        unsigned int const id = KVSetTimer(0, 1, &target, periodic);
        target.AwaitTicks(1);
        PassTimerThread();
        KVKillTimer(id);
        EXPECT_EQ(1, target.count);
    }
}

TEST(Timer, MayBeKilledByTheTargetOfAnother)
{
    Target victim;
    unsigned int const victimId = KVSetTimer(0, 1, &victim, true);
    victim.AwaitTicks(1);
    Target killer([victimId](unsigned int) { KVKillTimer(victimId); });
    unsigned int const id = KVSetTimer(0, 1, &killer, false);
    killer.AwaitTicks(1);
    int const count = victim.count;
    KVKillTimer(id);
    PassTimerThread();
    EXPECT_EQ(count, victim.count);
}

TEST(Timer, LetsItsTargetGoOnceItIsKilled)
{
    for (int i = 0; i < 100; ++i)
    {
        auto target = std::make_unique<Target>();
        unsigned int const id = KVSetTimer(0, 1, target.get(), true);
        target->AwaitTicks(i % 3);
        KVKillTimer(id);
        EXPECT_EQ(0, target->inside);
        target.reset();
    }
}

TEST(Timer, CanBeMadeAndKilledOnAnyThread)
{
    std::atomic<int> rung{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
    {
        threads.emplace_back(
            [&rung]
            {
                for (int i = 0; i < 20; ++i)
                {
                    Target target;
                    unsigned int const id = KVSetTimer(0, 1, &target, true);
                    target.AwaitTicks(1);
                    KVKillTimer(id);
                    rung += id != 0 && target.lastId == id ? 1 : 0;
                }
            });
    }
    for (std::thread & thread : threads)
    {
        thread.join();
    }
    EXPECT_EQ(4 * 20, rung) << "each by its own number";
}
