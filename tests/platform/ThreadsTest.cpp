#include <cerrno>
#include <set>
#include <vector>

#include <gtest/gtest.h>

#include <kvcore/platform/win32.h>
#include <support/ScopedHandle.h>

namespace
{

/// What a thread waits for before it ends with a code, and whether it has begun.
struct Gate
{
    ScopedHandle open{CreateEventW(nullptr, TRUE, FALSE, nullptr)};
    ScopedHandle begun{CreateEventW(nullptr, TRUE, FALSE, nullptr)};
    DWORD exitCode = 0;
};

DWORD WINAPI PassGate(LPVOID argument)
{
    Gate const & gate = *static_cast<Gate *>(argument);
    SetEvent(gate.begun);
    WaitForSingleObject(gate.open, INFINITE);
    return gate.exitCode;
}

DWORD WINAPI EndEarly(LPVOID argument)
{
    ExitThread(static_cast<DWORD>(reinterpret_cast<ULONG_PTR>(argument)));
}

unsigned WINAPI EndEarlyByRunTime(void * argument)
{
    _endthreadex(static_cast<unsigned>(reinterpret_cast<ULONG_PTR>(argument)));
    return 0;
}

DWORD WINAPI GiveOwnId(LPVOID)
{
    return GetCurrentThreadId();
}

DWORD ExitCodeOf(HANDLE thread)
{
    DWORD code = 0;
    EXPECT_TRUE(GetExitCodeThread(thread, &code));
    return code;
}

DWORD ExitCodeAfter(HANDLE thread)
{
    EXPECT_EQ(DWORD{WAIT_OBJECT_0}, WaitForSingleObject(thread, INFINITE));
    return ExitCodeOf(thread);
}

HANDLE Begin(LPTHREAD_START_ROUTINE procedure, void * argument, DWORD flags = 0)
{
    return CreateThread(nullptr, 0, procedure, argument, flags, nullptr);
}

} // namespace

TEST(Threads, HaveTheirProceduresResultAsExitCodeOnceTheyHaveEnded)
{
    Gate gate;
    gate.exitCode = 5;
    ScopedHandle const thread(Begin(PassGate, &gate));
    EXPECT_EQ(DWORD{WAIT_TIMEOUT}, WaitForSingleObject(thread, 0));
    EXPECT_EQ(DWORD{STILL_ACTIVE}, ExitCodeOf(thread));
    SetEvent(gate.open);
    EXPECT_EQ(5u, ExitCodeAfter(thread));
}

TEST(Threads, MayEndThemselves)
{
    ScopedHandle const thread(Begin(EndEarly, reinterpret_cast<void *>(7)));
    EXPECT_EQ(7u, ExitCodeAfter(thread));
    ScopedHandle const other(reinterpret_cast<HANDLE>(
        _beginthreadex(nullptr, 0, EndEarlyByRunTime, reinterpret_cast<void *>(8), 0, nullptr)));
    EXPECT_EQ(8u, ExitCodeAfter(other));
}

TEST(Threads, ThatAreCreatedSuspendedDoNothingUntilTheyAreResumed)
{
    Gate gate;
    SetEvent(gate.open);
    ScopedHandle const thread(Begin(PassGate, &gate, CREATE_SUSPENDED));
    EXPECT_EQ(DWORD{WAIT_TIMEOUT}, WaitForSingleObject(gate.begun, 20));
    EXPECT_EQ(1u, ResumeThread(thread));
    EXPECT_EQ(0u, ExitCodeAfter(thread));
    EXPECT_EQ(DWORD{WAIT_OBJECT_0}, WaitForSingleObject(gate.begun, 0));
    EXPECT_EQ(0u, ResumeThread(thread));
}

TEST(Threads, ResumingARunningOneDoesNothing)
{
    Gate gate;
    ScopedHandle const thread(Begin(PassGate, &gate));
    EXPECT_EQ(0u, ResumeThread(thread));
    SetEvent(gate.open);
    ExitCodeAfter(thread);
}

TEST(Threads, AreNumbered)
{
    DWORD id = 0;
    ScopedHandle const thread(CreateThread(nullptr, 0, GiveOwnId, nullptr, CREATE_SUSPENDED, &id));
    EXPECT_NE(0u, id);
    EXPECT_NE(GetCurrentThreadId(), id);
    EXPECT_EQ(id, GetThreadId(thread));
    ResumeThread(thread);
    EXPECT_EQ(id, ExitCodeAfter(thread));
    unsigned number = 0;
    ScopedHandle const other(
        reinterpret_cast<HANDLE>(_beginthreadex(nullptr, 0, EndEarlyByRunTime, nullptr, 0, &number)));
    EXPECT_EQ(number, GetThreadId(other));
    ExitCodeAfter(other);
    EXPECT_EQ(GetCurrentThreadId(), GetThreadId(GetCurrentThread()));
}

TEST(Threads, RunOnAStackOfTheSizeAskedFor)
{
    for (SIZE_T const size : {SIZE_T{1}, SIZE_T{100'000}, SIZE_T{16} << 20})
    {
        ScopedHandle const thread(CreateThread(
            nullptr, size, EndEarly, reinterpret_cast<void *>(3), STACK_SIZE_PARAM_IS_A_RESERVATION, nullptr));
        EXPECT_EQ(3u, ExitCodeAfter(thread)) << size;
    }
}

TEST(Threads, ThatTheSystemCannotMakeAreNotMade)
{
    SIZE_T const beyondMemory = SIZE_T{1} << (sizeof(SIZE_T) * 8 - 2);
    SetLastError(0);
    EXPECT_EQ(
        nullptr, CreateThread(nullptr, beyondMemory, GiveOwnId, nullptr, STACK_SIZE_PARAM_IS_A_RESERVATION, nullptr));
    EXPECT_EQ(DWORD{ERROR_NOT_ENOUGH_MEMORY}, GetLastError());
}

TEST(Threads, NeedAProcedure)
{
    errno = 0;
    EXPECT_EQ(0u, _beginthreadex(nullptr, 0, nullptr, nullptr, 0, nullptr));
    EXPECT_EQ(EINVAL, errno);
}

TEST(Threads, KeepThePriorityThatTheyAreGiven)
{
    Gate gate;
    ScopedHandle const thread(Begin(PassGate, &gate, CREATE_SUSPENDED));
    EXPECT_EQ(THREAD_PRIORITY_NORMAL, GetThreadPriority(thread));
    for (int const priority : {-15, -2, -1, 0, 1, 2, 15})
    {
        EXPECT_TRUE(SetThreadPriority(thread, priority));
        EXPECT_EQ(priority, GetThreadPriority(thread));
    }
    ResumeThread(thread);
    WaitForSingleObject(gate.begun, INFINITE);
    for (int const priority : {-1, 0, 2})
    {
        EXPECT_TRUE(SetThreadPriority(thread, priority));
        EXPECT_EQ(priority, GetThreadPriority(thread));
    }
    for (int const none : {-16, -14, -3, 3, 14, 16, 100, 0x10000})
    {
        EXPECT_FALSE(SetThreadPriority(thread, none)) << none;
        EXPECT_EQ(DWORD{ERROR_INVALID_PARAMETER}, GetLastError());
        EXPECT_EQ(2, GetThreadPriority(thread));
    }
    SetEvent(gate.open);
    ExitCodeAfter(thread);
    EXPECT_TRUE(SetThreadPriority(thread, 1));
    EXPECT_EQ(1, GetThreadPriority(thread));
}

TEST(Threads, HaveAPriorityOfTheirOwnWhoeverCreatesThem)
{
    struct Creator
    {
        static DWORD WINAPI Run(LPVOID)
        {
            SetThreadPriority(GetCurrentThread(), THREAD_PRIORITY_BELOW_NORMAL);
            Gate gate;
            ScopedHandle const created(Begin(PassGate, &gate));
            SetEvent(gate.open);
            ExitCodeAfter(created);
            return GetThreadPriority(GetCurrentThread()) == THREAD_PRIORITY_BELOW_NORMAL &&
                GetThreadPriority(created) == THREAD_PRIORITY_NORMAL;
        }
    };
    ScopedHandle const thread(Begin(Creator::Run, nullptr));
    EXPECT_EQ(1u, ExitCodeAfter(thread));
}

TEST(Threads, AreNamedByTheirHandlesOnly)
{
    ScopedHandle const event(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    for (HANDLE const none : {HANDLE{nullptr}, HANDLE{event}})
    {
        DWORD code = 0;
        SetLastError(0);
        EXPECT_EQ(0xFFFFFFFFu, ResumeThread(none));
        EXPECT_EQ(DWORD{ERROR_INVALID_HANDLE}, GetLastError());
        SetLastError(0);
        EXPECT_FALSE(SetThreadPriority(none, 0));
        EXPECT_EQ(DWORD{ERROR_INVALID_HANDLE}, GetLastError());
        SetLastError(0);
        EXPECT_EQ(THREAD_PRIORITY_ERROR_RETURN, GetThreadPriority(none));
        EXPECT_EQ(DWORD{ERROR_INVALID_HANDLE}, GetLastError());
        SetLastError(0);
        EXPECT_FALSE(GetExitCodeThread(none, &code));
        EXPECT_EQ(DWORD{ERROR_INVALID_HANDLE}, GetLastError());
        EXPECT_EQ(0u, GetThreadId(none));
    }
}

TEST(Threads, CanBeWaitedForTogether)
{
    Gate gates[3];
    ScopedHandle const first(Begin(PassGate, &gates[0]));
    ScopedHandle const second(Begin(PassGate, &gates[1]));
    ScopedHandle const third(Begin(PassGate, &gates[2]));
    HANDLE const all[] = {first, second, third};
    EXPECT_EQ(DWORD{WAIT_TIMEOUT}, WaitForMultipleObjects(3, all, FALSE, 0));
    EXPECT_EQ(DWORD{WAIT_TIMEOUT}, WaitForMultipleObjects(3, all, FALSE, 5));
    SetEvent(gates[1].open);
    EXPECT_EQ(DWORD{WAIT_OBJECT_0 + 1}, WaitForMultipleObjects(3, all, FALSE, INFINITE));
    EXPECT_EQ(DWORD{WAIT_TIMEOUT}, WaitForMultipleObjects(3, all, TRUE, 5));
    SetEvent(gates[2].open);
    SetEvent(gates[0].open);
    EXPECT_EQ(DWORD{WAIT_OBJECT_0}, WaitForMultipleObjects(3, all, TRUE, INFINITE));
    // An ended thread stays signalled.
    EXPECT_EQ(DWORD{WAIT_OBJECT_0}, WaitForMultipleObjects(3, all, TRUE, 0));
    EXPECT_EQ(DWORD{WAIT_OBJECT_0}, WaitForMultipleObjects(3, all, FALSE, 0));
}

TEST(Threads, AreManyAtATimeAndOneAfterTheOther)
{
    for (int round = 0; round < 50; ++round)
    {
        std::vector<HANDLE> threads;
        for (int i = 0; i < 16; ++i)
        {
            threads.push_back(Begin(EndEarly, reinterpret_cast<void *>(9)));
        }
        ASSERT_EQ(DWORD{WAIT_OBJECT_0}, WaitForMultipleObjects(16, threads.data(), TRUE, INFINITE));
        for (HANDLE const thread : threads)
        {
            EXPECT_EQ(9u, ExitCodeOf(thread));
            CloseHandle(thread);
        }
    }
}

TEST(ThreadSlots, HoldAValueForEachThread)
{
    struct Other
    {
        static DWORD WINAPI Run(LPVOID slotNumber)
        {
            DWORD const slot = static_cast<DWORD>(reinterpret_cast<ULONG_PTR>(slotNumber));
            bool const wasEmpty = TlsGetValue(slot) == nullptr;
            TlsSetValue(slot, slotNumber);
            return wasEmpty && TlsGetValue(slot) == slotNumber;
        }
    };
    DWORD const slot = TlsAlloc();
    ASSERT_NE(DWORD{TLS_OUT_OF_INDEXES}, slot);
    int value = 0;
    EXPECT_EQ(nullptr, TlsGetValue(slot));
    EXPECT_TRUE(TlsSetValue(slot, &value));
    ScopedHandle const thread(Begin(Other::Run, reinterpret_cast<void *>(ULONG_PTR{slot})));
    EXPECT_EQ(1u, ExitCodeAfter(thread));
    EXPECT_EQ(&value, TlsGetValue(slot));
    EXPECT_TRUE(TlsFree(slot));
}

TEST(ThreadSlots, AreEmptyWhenTheyAreUsedAgain)
{
    DWORD const slot = TlsAlloc();
    int value = 0;
    TlsSetValue(slot, &value);
    TlsFree(slot);
    EXPECT_EQ(nullptr, TlsGetValue(slot));
    DWORD const again = TlsAlloc();
    EXPECT_EQ(slot, again);
    EXPECT_EQ(nullptr, TlsGetValue(again));
    TlsFree(again);
}

TEST(ThreadSlots, AreUsedUpAt1088)
{
    std::set<DWORD> slots;
    DWORD slot = TlsAlloc();
    for (; slot != TLS_OUT_OF_INDEXES && slots.size() < 5000; slot = TlsAlloc())
    {
        slots.insert(slot);
    }
    EXPECT_EQ(DWORD{ERROR_NO_MORE_ITEMS}, GetLastError());
    EXPECT_EQ(1087u, *slots.rbegin());
    EXPECT_GT(slots.size(), 1000u);
    for (DWORD const each : slots)
    {
        EXPECT_EQ(nullptr, TlsGetValue(each));
        EXPECT_TRUE(TlsSetValue(each, reinterpret_cast<void *>(ULONG_PTR{each} + 1)));
    }
    for (DWORD const each : slots)
    {
        EXPECT_EQ(reinterpret_cast<void *>(ULONG_PTR{each} + 1), TlsGetValue(each));
        EXPECT_TRUE(TlsFree(each));
    }
}

TEST(ThreadSlots, RefuseNumbersThatAreNoSlots)
{
    for (DWORD const none : {1088u, 5000u, 0xFFFFFFFFu})
    {
        SetLastError(0);
        EXPECT_EQ(nullptr, TlsGetValue(none));
        EXPECT_EQ(DWORD{ERROR_INVALID_PARAMETER}, GetLastError());
        EXPECT_FALSE(TlsSetValue(none, nullptr));
        EXPECT_EQ(DWORD{ERROR_INVALID_PARAMETER}, GetLastError());
        EXPECT_FALSE(TlsFree(none));
    }
    DWORD const slot = TlsAlloc();
    EXPECT_TRUE(TlsFree(slot));
    SetLastError(0);
    EXPECT_FALSE(TlsFree(slot));
    EXPECT_EQ(DWORD{ERROR_INVALID_PARAMETER}, GetLastError());
}

TEST(ThreadSlots, ReadingClearsTheLastError)
{
    DWORD const slot = TlsAlloc();
    SetLastError(77);
    EXPECT_EQ(nullptr, TlsGetValue(slot));
    EXPECT_EQ(0u, GetLastError());
    SetLastError(77);
    EXPECT_TRUE(TlsSetValue(slot, nullptr));
    EXPECT_EQ(77u, GetLastError());
    TlsFree(slot);
}
