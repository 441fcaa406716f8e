#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include <kvcore/platform/win32.h>

namespace
{

std::vector<ULONG_PTR> calls;

void CALLBACK Note(ULONG_PTR argument)
{
    calls.push_back(argument);
}

void CALLBACK NoteAndQueueTwo(ULONG_PTR)
{
    calls.push_back(1);
    QueueUserAPC(Note, GetCurrentThread(), 2);
}

struct Events
{
    HANDLE manual = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    HANDLE automatic = CreateEventW(nullptr, FALSE, FALSE, nullptr);
    ~Events()
    {
        CloseHandle(manual);
        CloseHandle(automatic);
    }
};

} // namespace

TEST(Events, StaySetOrResetThemselvesByTheirKind)
{
    Events const events;
    EXPECT_EQ(DWORD{WAIT_TIMEOUT}, WaitForSingleObject(events.manual, 0));
    EXPECT_TRUE(SetEvent(events.manual));
    EXPECT_TRUE(SetEvent(events.automatic));
    EXPECT_EQ(DWORD{WAIT_OBJECT_0}, WaitForSingleObject(events.manual, 0));
    EXPECT_EQ(DWORD{WAIT_OBJECT_0}, WaitForSingleObject(events.manual, 0));
    EXPECT_EQ(DWORD{WAIT_OBJECT_0}, WaitForSingleObject(events.automatic, 0));
    EXPECT_EQ(DWORD{WAIT_TIMEOUT}, WaitForSingleObject(events.automatic, 0));
    EXPECT_TRUE(ResetEvent(events.manual));
    EXPECT_EQ(DWORD{WAIT_TIMEOUT}, WaitForSingleObject(events.manual, 1));
    EXPECT_FALSE(SetEvent(nullptr));
    EXPECT_EQ(DWORD{ERROR_INVALID_HANDLE}, GetLastError());
}

TEST(Waits, ForSeveralObjects)
{
    Events const events;
    HANDLE const both[] = {events.automatic, events.manual};
    SetEvent(events.manual);
    EXPECT_EQ(DWORD{WAIT_OBJECT_0 + 1}, WaitForMultipleObjects(2, both, FALSE, 0));
    EXPECT_EQ(DWORD{WAIT_TIMEOUT}, WaitForMultipleObjects(2, both, TRUE, 1));
    SetEvent(events.automatic);
    EXPECT_EQ(DWORD{WAIT_OBJECT_0}, WaitForMultipleObjects(2, both, TRUE, 0));
    EXPECT_EQ(DWORD{WAIT_TIMEOUT}, WaitForSingleObject(events.automatic, 0));
    EXPECT_EQ(DWORD{WAIT_FAILED}, WaitForMultipleObjects(0, both, FALSE, 0));
    EXPECT_EQ(DWORD{ERROR_INVALID_PARAMETER}, GetLastError());
    std::vector<HANDLE> const many(65, events.manual);
    EXPECT_EQ(DWORD{WAIT_FAILED}, WaitForMultipleObjects(65, many.data(), FALSE, 0));
    EXPECT_EQ(DWORD{ERROR_INVALID_PARAMETER}, GetLastError());
    EXPECT_EQ(DWORD{WAIT_OBJECT_0}, WaitForMultipleObjects(64, many.data(), FALSE, 0));
    EXPECT_EQ(DWORD{WAIT_FAILED}, WaitForSingleObject(nullptr, 0));
    EXPECT_EQ(DWORD{ERROR_INVALID_HANDLE}, GetLastError());
}

TEST(Waits, EndWhenAnotherThreadSignals)
{
    Events const events;
    std::thread other([&events] { SetEvent(events.automatic); });
    EXPECT_EQ(DWORD{WAIT_OBJECT_0}, WaitForSingleObject(events.automatic, INFINITE));
    other.join();
}

TEST(ProcedureCalls, RunInOrderInAnAlertableWaitOnly)
{
    calls.clear();
    EXPECT_EQ(0u, SleepEx(0, TRUE));
    EXPECT_NE(0u, QueueUserAPC(NoteAndQueueTwo, GetCurrentThread(), 0));
    EXPECT_NE(0u, QueueUserAPC(Note, GetCurrentThread(), 3));
    EXPECT_EQ(0u, SleepEx(0, FALSE));
    EXPECT_TRUE(calls.empty());
    EXPECT_EQ(DWORD{WAIT_IO_COMPLETION}, SleepEx(0, TRUE));
    EXPECT_EQ((std::vector<ULONG_PTR>{1, 3, 2}), calls);
    EXPECT_EQ(0u, SleepEx(0, TRUE));
    EXPECT_EQ(0u, QueueUserAPC(Note, nullptr, 0));
    EXPECT_EQ(DWORD{ERROR_INVALID_HANDLE}, GetLastError());
}

TEST(ProcedureCalls, ComeAfterASignalledObject)
{
    calls.clear();
    Events const events;
    SetEvent(events.manual);
    QueueUserAPC(Note, GetCurrentThread(), 4);
    EXPECT_EQ(DWORD{WAIT_OBJECT_0}, WaitForSingleObjectEx(events.manual, 0, TRUE));
    EXPECT_TRUE(calls.empty());
    EXPECT_EQ(DWORD{WAIT_IO_COMPLETION}, WaitForSingleObjectEx(events.automatic, INFINITE, TRUE));
    EXPECT_EQ(1u, calls.size());
}

TEST(ProcedureCalls, ReachAThreadThroughItsHandle)
{
    calls.clear();
    HANDLE self = nullptr;
    HANDLE const process = GetCurrentProcess();
    ASSERT_TRUE(DuplicateHandle(process, GetCurrentThread(), process, &self, 0, FALSE, DUPLICATE_SAME_ACCESS));
    std::thread other([self] { QueueUserAPC(Note, self, 7); });
    EXPECT_EQ(DWORD{WAIT_IO_COMPLETION}, SleepEx(INFINITE, TRUE));
    other.join();
    EXPECT_EQ((std::vector<ULONG_PTR>{7}), calls);
    EXPECT_EQ(DWORD{WAIT_TIMEOUT}, WaitForSingleObject(self, 0));
    EXPECT_TRUE(CloseHandle(self));
}

TEST(CriticalSections, AreRecursiveAndExclusive)
{
    CRITICAL_SECTION section;
    InitializeCriticalSection(&section);
    int counter = 0;
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
    {
        threads.emplace_back(
            [&]
            {
                for (int i = 0; i < 5000; ++i)
                {
                    EnterCriticalSection(&section);
                    EnterCriticalSection(&section);
                    ++counter;
                    LeaveCriticalSection(&section);
                    LeaveCriticalSection(&section);
                }
            });
    }
    for (std::thread & thread : threads)
    {
        thread.join();
    }
    EXPECT_EQ(20000, counter);
    EnterCriticalSection(&section);
    BOOL taken = TRUE;
    std::thread([&] { taken = TryEnterCriticalSection(&section); }).join();
    EXPECT_FALSE(taken);
    EXPECT_TRUE(TryEnterCriticalSection(&section));
    LeaveCriticalSection(&section);
    LeaveCriticalSection(&section);
    DeleteCriticalSection(&section);
}
