#include <kvcore/frame/COMThread.h>
#include <kvcore/frame/Thread.h>

#include <functional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <kvcore/platform/win32.h>
#include <support/Signals.h>
#include <support/SystemCalls.h>

namespace
{

using kv::test::SystemCalls;

class Work : public Thread
{
public:
    explicit Work(std::function<void()> workToDo = [] {}) : work(std::move(workToDo)) {}

    std::vector<std::string> steps;
    std::vector<DWORD> threads;

protected:
    void init(bool starting) override
    {
        Note(starting ? "init" : "exit");
    }
    void run() override
    {
        Note("run");
        work();
    }

private:
    void Note(char const * step)
    {
        steps.push_back(step);
        threads.push_back(GetCurrentThreadId());
    }

    std::function<void()> work;
};

constexpr IKVThread::Priority priorities[] = {IKVThread::PriorityIdle,        IKVThread::PriorityLowest,
                                              IKVThread::PriorityBelowNormal, IKVThread::PriorityNormal,
                                              IKVThread::PriorityAboveNormal, IKVThread::PriorityHighest,
                                              IKVThread::PriorityTimeCritical};

} // namespace

TEST(Thread, ThatWasNeverStartedDoesNotRun)
{
    Work const work;
    EXPECT_FALSE(work.isRunning());
    EXPECT_TRUE(work.waitForEnd(0));
    EXPECT_TRUE(work.waitForEnd(INFINITE));
}

TEST(Thread, RunsItsWorkBetweenInitAndExitOnAThreadOfItsOwn)
{
    Work work;
    EXPECT_TRUE(work.start(IKVThread::PriorityNormal));
    EXPECT_TRUE(work.waitForEnd(INFINITE));
    EXPECT_EQ((std::vector<std::string>{"init", "run", "exit"}), work.steps);
    EXPECT_EQ(work.threads[0], work.threads[1]);
    EXPECT_EQ(work.threads[0], work.threads[2]);
    EXPECT_NE(GetCurrentThreadId(), work.threads[0]);
    EXPECT_FALSE(work.isRunning());
}

TEST(Thread, CanBeUsedByItsInterfaceAlone)
{
    Work work;
    IKVThread & thread = work;
    EXPECT_TRUE(thread.start(IKVThread::PriorityNormal));
    thread.setPriority(IKVThread::PriorityBelowNormal);
    EXPECT_TRUE(thread.waitForEnd(INFINITE));
    EXPECT_FALSE(thread.isRunning());
}

TEST(Thread, IsFoundRunningUntilItsWorkIsDone)
{
    Signals mayEnd;
    Work work([&] { mayEnd.Await(); });
    work.start(IKVThread::PriorityNormal);
    EXPECT_FALSE(work.waitForEnd(0));
    EXPECT_TRUE(work.isRunning());
    EXPECT_FALSE(work.waitForEnd(5));
    mayEnd.Give();
    EXPECT_TRUE(work.waitForEnd(INFINITE));
    EXPECT_TRUE(work.waitForEnd(0));
}

TEST(Thread, IsMadeSuspendedAndResumedOnceItHasItsPriority)
{
    Work work;
    SystemCalls calls;
    std::vector<std::string> made;
    calls._beginthreadex =
        [&](void * security, unsigned stackSize, auto procedure, void * argument, unsigned flags, unsigned * id)
    {
        made.push_back("begin, stack " + std::to_string(stackSize) + ", flags " + std::to_string(flags));
        EXPECT_EQ(nullptr, security);
        return SystemCalls::Real_beginthreadex(security, stackSize, procedure, argument, flags, id);
    };
    calls.SetThreadPriority = [&](HANDLE thread, int priority)
    {
        made.push_back("priority " + std::to_string(priority));
        EXPECT_TRUE(work.steps.empty());
        return SystemCalls::RealSetThreadPriority(thread, priority);
    };
    calls.ResumeThread = [&](HANDLE thread)
    {
        made.push_back("resume");
        EXPECT_TRUE(work.steps.empty());
        return SystemCalls::RealResumeThread(thread);
    };
    EXPECT_TRUE(work.start(IKVThread::PriorityLowest));
    EXPECT_TRUE(work.waitForEnd(INFINITE));
    EXPECT_EQ((std::vector<std::string>{"begin, stack 0, flags 4", "priority -2", "resume"}), made);
}

TEST(Thread, RunsAtThePriorityThatItWasStartedWith)
{
    for (IKVThread::Priority const priority : priorities)
    {
        int seen = 99;
        Work work([&] { seen = GetThreadPriority(GetCurrentThread()); });
        work.start(priority);
        work.waitForEnd(INFINITE);
        EXPECT_EQ(priority, seen);
    }
}

TEST(Thread, TakesANewPriorityWhileItRuns)
{
    Signals mayLook;
    int seen = 99;
    Work work(
        [&]
        {
            mayLook.Await();
            seen = GetThreadPriority(GetCurrentThread());
        });
    work.start(IKVThread::PriorityNormal);
    work.setPriority(IKVThread::PriorityBelowNormal);
    mayLook.Give();
    work.waitForEnd(INFINITE);
    EXPECT_EQ(IKVThread::PriorityBelowNormal, seen);
}

TEST(Thread, HasNoPriorityToChangeWhileItDoesNotRun)
{
    SystemCalls calls;
    int changes = 0;
    calls.SetThreadPriority = [&](HANDLE, int)
    {
        ++changes;
        return TRUE;
    };
    Work work;
    work.setPriority(IKVThread::PriorityHighest);
    EXPECT_EQ(0, changes);
    calls.SetThreadPriority = nullptr;
    work.start(IKVThread::PriorityNormal);
    work.waitForEnd(INFINITE);
    calls.SetThreadPriority = [&](HANDLE, int)
    {
        ++changes;
        return TRUE;
    };
    work.setPriority(IKVThread::PriorityHighest);
    EXPECT_EQ(0, changes);
}

TEST(Thread, CanBeStartedAgainAndAgain)
{
    Work work;
    for (int i = 1; i <= 50; ++i)
    {
        EXPECT_TRUE(work.start(IKVThread::PriorityNormal));
        EXPECT_TRUE(work.waitForEnd(INFINITE));
        EXPECT_EQ(3u * static_cast<unsigned>(i), work.steps.size());
    }
}

TEST(Thread, ThatIsStartedWhileItRunsIsAwaitedFirst)
{
    Signals mayEnd;
    Work work([&] { mayEnd.Await(); });
    work.start(IKVThread::PriorityNormal);
    SystemCalls calls;
    std::vector<DWORD> waits;
    calls.WaitForSingleObject = [&](HANDLE object, DWORD milliseconds)
    {
        waits.push_back(milliseconds);
        EXPECT_EQ(DWORD{WAIT_TIMEOUT}, SystemCalls::RealWaitForSingleObject(object, 5));
        mayEnd.Give();
        return SystemCalls::RealWaitForSingleObject(object, milliseconds);
    };
    EXPECT_TRUE(work.start(IKVThread::PriorityNormal));
    EXPECT_EQ((std::vector<DWORD>{INFINITE}), waits);
    calls.WaitForSingleObject = nullptr;
    EXPECT_TRUE(work.isRunning());
    mayEnd.Give();
    EXPECT_TRUE(work.waitForEnd(INFINITE));
    EXPECT_EQ((std::vector<std::string>{"init", "run", "exit", "init", "run", "exit"}), work.steps);
}

TEST(Thread, ThatTheSystemDoesNotMakeIsNotRunning)
{
    SystemCalls calls;
    calls._beginthreadex = [](auto...) { return std::uintptr_t{0}; };
    calls.ResumeThread = [](HANDLE) -> DWORD
    {
        ADD_FAILURE() << "nothing to resume";
        return 0;
    };
    Work work;
    EXPECT_FALSE(work.start(IKVThread::PriorityHighest));
    EXPECT_FALSE(work.isRunning());
    EXPECT_TRUE(work.waitForEnd(INFINITE));
    EXPECT_TRUE(work.steps.empty());
    calls._beginthreadex = nullptr;
    calls.ResumeThread = nullptr;
    EXPECT_TRUE(work.start(IKVThread::PriorityNormal));
    EXPECT_TRUE(work.waitForEnd(INFINITE));
}

TEST(Thread, AtItsEndIsForgottenByTheQueryThatFindsIt)
{
    Work work;
    work.start(IKVThread::PriorityNormal);
    while (work.isRunning())
    {
        Sleep(0);
    }
    SystemCalls calls;
    int waits = 0;
    calls.WaitForSingleObject = [&](HANDLE, DWORD)
    {
        ++waits;
        return DWORD{WAIT_TIMEOUT};
    };
    EXPECT_FALSE(work.isRunning());
    EXPECT_TRUE(work.waitForEnd(INFINITE));
    EXPECT_EQ(0, waits);
}

namespace
{

HANDLE const madeUp = reinterpret_cast<HANDLE>(std::uintptr_t{0x7FFF0004});

/// A thread that is none, under a handle that is none.
void PretendThreads(SystemCalls & calls, int & closed)
{
    calls._beginthreadex = [](auto...) { return reinterpret_cast<std::uintptr_t>(madeUp); };
    calls.SetThreadPriority = [](HANDLE, int) { return FALSE; };
    calls.ResumeThread = [](HANDLE) { return DWORD{1}; };
    calls.CloseHandle = [&closed](HANDLE handle)
    {
        closed += handle == madeUp;
        return TRUE;
    };
}

} // namespace

TEST(Thread, IsForgottenWhenItCannotBeWaitedFor)
{
    for (DWORD const result : {DWORD{WAIT_FAILED}, DWORD{WAIT_ABANDONED_0}, DWORD{WAIT_OBJECT_0}})
    {
        SystemCalls calls;
        int closed = 0;
        PretendThreads(calls, closed);
        calls.WaitForSingleObject = [=](HANDLE, DWORD) { return result; };
        Work work;
        EXPECT_TRUE(work.start(IKVThread::PriorityNormal)); // whatever becomes of the priority
        EXPECT_EQ(0, closed);
        EXPECT_TRUE(work.waitForEnd(100));
        EXPECT_EQ(1, closed);
        EXPECT_TRUE(work.waitForEnd(100));
        EXPECT_EQ(1, closed);
    }
}

TEST(Thread, IsNeitherAwaitedNorClosedByTheDestructor)
{
    SystemCalls calls;
    int closed = 0;
    PretendThreads(calls, closed);
    calls.WaitForSingleObject = [](HANDLE, DWORD) -> DWORD
    {
        ADD_FAILURE() << "no wait";
        return WAIT_OBJECT_0;
    };
    {
        Work work;
        work.start(IKVThread::PriorityNormal);
    }
    EXPECT_EQ(0, closed);
}

TEST(ComThread, HasComInitialisedWhileItRuns)
{
    class ComWork : public COMThread
    {
    public:
        HRESULT result = E_FAIL;

    protected:
        void run() override
        {
            result = CoInitialize(nullptr);
            CoUninitialize();
        }
    };
    ComWork work;
    for (int i = 0; i < 3; ++i)
    {
        EXPECT_TRUE(work.start(IKVThread::PriorityNormal));
        EXPECT_TRUE(work.waitForEnd(INFINITE));
        EXPECT_EQ(S_FALSE, work.result);
    }
    HRESULT onPlainThread = E_FAIL;
    Work plain(
        [&]
        {
            onPlainThread = CoInitialize(nullptr);
            CoUninitialize();
        });
    plain.start(IKVThread::PriorityNormal);
    plain.waitForEnd(INFINITE);
    EXPECT_EQ(S_OK, onPlainThread);
}
