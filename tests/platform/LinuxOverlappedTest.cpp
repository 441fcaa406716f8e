#ifndef _WIN32 // Requests, waits and threads beside a fork, and with the request pool held by its own hooks.

#    include <atomic>
#    include <cstdio>
#    include <cstdlib>
#    include <set>
#    include <string>
#    include <thread>
#    include <vector>

#    include <sys/syscall.h>
#    include <unistd.h>

#    include <gtest/gtest.h>

#    include "RequestRig.h"

namespace
{

using kv::platform::HoldRequests;
using kv::platform::SetRequestLimit;

struct Completion
{
    DWORD error;
    DWORD transferred;
    OVERLAPPED * overlapped;
};
thread_local std::vector<Completion> completions;

void CALLBACK Completed(DWORD error, DWORD transferred, OVERLAPPED * overlapped)
{
    completions.push_back({error, transferred, overlapped});
}

DWORD KernelThreadId()
{
    return static_cast<DWORD>(syscall(SYS_gettid));
}

} // namespace

TEST(LinuxThreads, KnowTheirKernelIdInAForkedChildToo)
{
    std::set<DWORD> ids = {GetCurrentThreadId()};
    EXPECT_EQ(GetCurrentThreadId(), KernelThreadId());
    std::thread(
        [&]
        {
            ids.insert(GetCurrentThreadId());
            EXPECT_EQ(GetCurrentThreadId(), KernelThreadId());
            EXPECT_EQ(InChild([] { return DWORD{GetCurrentThreadId() == KernelThreadId()}; }), 1);
            EXPECT_EQ(GetCurrentThreadId(), KernelThreadId());
        })
        .join();
    EXPECT_EQ(ids.size(), 2u);
}

TEST(LinuxRequests, AreRefusedBeyondTheirBoundUntilSomeHaveFinished)
{
    completions.clear();
    ScratchPaths const folder;
    ScopedHandle const file = NewFile(folder);
    OVERLAPPED requests[] = {At(0), At(1), At(2)};
    SetRequestLimit(2);
    {
        Hold const hold;
        EXPECT_EQ(LastErrorOf([&] { return WriteFile(file, "a", 1, nullptr, &requests[0]); }), DWORD{ERROR_IO_PENDING});
        EXPECT_TRUE(WriteFileEx(file, "b", 1, &requests[1], Completed));
        DWORD const refused = ERROR_INVALID_USER_BUFFER;
        char target;
        EXPECT_EQ(LastErrorOf([&] { return WriteFile(file, "c", 1, nullptr, &requests[2]); }), refused);
        EXPECT_EQ(LastErrorOf([&] { return ReadFile(file, &target, 1, nullptr, &requests[2]); }), refused);
        EXPECT_EQ(LastErrorOf([&] { return WriteFileEx(file, "c", 1, &requests[2], Completed); }), refused);
        EXPECT_EQ(LastErrorOf([&] { return ReadFileEx(file, &target, 1, &requests[2], Completed); }), refused);
        EXPECT_TRUE(HasOverlappedIoCompleted(&requests[2])) << "a refused request is not touched";
    }
    EXPECT_EQ(ResultOf(file, requests[0]), 0u);
    // The record of a request with a routine is free when the routine has begun.
    EXPECT_EQ(SleepEx(INFINITE, TRUE), DWORD{WAIT_IO_COMPLETION});
    EXPECT_EQ(completions.size(), 1u);
    // A worker makes the end seen before it gives the record back.
    DWORD error = ERROR_INVALID_USER_BUFFER;
    while (error == ERROR_INVALID_USER_BUFFER)
    {
        error = WriteNow(file, "c", 1, 2);
    }
    EXPECT_EQ(error, 0u);
    SetRequestLimit(0);
    EXPECT_EQ(folder.Read("file"), "abc");
}

TEST(LinuxRequests, ThatAreCancelledBeforeTheyBeginFinishAsAborted)
{
    completions.clear();
    ScratchPaths const folder;
    ScopedHandle const file = NewFile(folder);
    ScopedHandle const other(folder(TEXT("other")), readWrite, shareAll, CREATE_ALWAYS, FILE_FLAG_OVERLAPPED);
    OVERLAPPED mine[] = {At(0), At(1), At(2)};
    OVERLAPPED others[] = {At(3), At(0)};
    {
        Hold const hold;
        WriteFile(file, "a", 1, nullptr, &mine[0]);
        EXPECT_TRUE(WriteFileEx(file, "b", 1, &mine[1], Completed));
        WriteFile(file, "c", 1, nullptr, &mine[2]);
        WriteFile(other, "y", 1, nullptr, &others[1]);
        std::thread(
            [&]
            {
                EXPECT_TRUE(CancelIo(file)) << "there are none of this thread";
                EXPECT_TRUE(CancelIoEx(file, &mine[2])) << "of any thread";
                EXPECT_FALSE(CancelIoEx(file, &mine[2]));
                EXPECT_FALSE(CancelIoEx(file, &others[1])) << "of this file only";
                EXPECT_FALSE(HasOverlappedIoCompleted(&mine[0]));
            })
            .join();
        DWORD done = 7;
        EXPECT_FALSE(GetOverlappedResult(file, &mine[2], &done, FALSE));
        EXPECT_EQ(GetLastError(), DWORD{ERROR_OPERATION_ABORTED});
        EXPECT_EQ(done, 0u);
        EXPECT_TRUE(CancelIo(file));
        EXPECT_EQ(ResultOf(file, mine[0]), DWORD{ERROR_OPERATION_ABORTED});
        EXPECT_EQ(SleepEx(INFINITE, TRUE), DWORD{WAIT_IO_COMPLETION});
        ASSERT_EQ(completions.size(), 1u);
        EXPECT_EQ(completions[0].error, DWORD{ERROR_OPERATION_ABORTED});
        EXPECT_EQ(completions[0].transferred, 0u);
        EXPECT_EQ(completions[0].overlapped, &mine[1]);
        EXPECT_EQ(WaitForSingleObject(file, 0), DWORD{WAIT_OBJECT_0}) << "no request is on its way";
        EXPECT_FALSE(HasOverlappedIoCompleted(&others[1]));
        WriteFile(file, "d", 1, nullptr, &others[0]);
        EXPECT_TRUE(CancelIoEx(file, nullptr)) << "all of a file";
        EXPECT_EQ(ResultOf(file, others[0]), DWORD{ERROR_OPERATION_ABORTED});
    }
    EXPECT_EQ(ResultOf(other, others[1]), 0u);
    EXPECT_EQ(folder.Read("file"), "");
    EXPECT_EQ(folder.Read("other"), "y");
}

TEST(LinuxRequests, HaveAResultWhileOthersOfTheFileAreOnTheirWay)
{
    ScratchPaths const folder;
    ScopedHandle const file = NewFile(folder);
    OVERLAPPED first = At(0);
    OVERLAPPED second = At(1);
    {
        Hold const hold;
        WriteFile(file, "a", 1, nullptr, &first);
        WriteFile(file, "b", 1, nullptr, &second);
        ASSERT_TRUE(CancelIoEx(file, &first));
        EXPECT_EQ(ResultOf(file, first), DWORD{ERROR_OPERATION_ABORTED});
        EXPECT_EQ(WaitForSingleObject(file, 0), DWORD{WAIT_TIMEOUT});
        EXPECT_FALSE(HasOverlappedIoCompleted(&second));
    }
    EXPECT_EQ(ResultOf(file, second), 0u);
}

TEST(LinuxRequests, TakeEffectInTheOrderInWhichTheyWereMade)
{
    ScratchPaths const folder;
    ScopedHandle const file = NewFile(folder);
    constexpr DWORD count = 400;
    std::string const letters = "abcdefghijklmnopqrstuvwxyz";
    std::vector<OVERLAPPED> requests(count, At(0));
    std::vector<char> found(count);
    {
        Hold const hold;
        for (DWORD i = 0; i < count; i += 2)
        {
            // All to one place, each followed by a read of it.
            WriteFile(file, &letters[i / 2 % letters.size()], 1, nullptr, &requests[i]);
            ReadFile(file, &found[i], 1, nullptr, &requests[i + 1]);
        }
    }
    for (DWORD i = 0; i < count; ++i)
    {
        ASSERT_EQ(ResultOf(file, requests[i]), 0u) << i;
    }
    for (DWORD i = 0; i < count; i += 2)
    {
        ASSERT_EQ(found[i], letters[i / 2 % letters.size()]) << i;
    }
}

TEST(LinuxRequests, OnAFullDeviceTellSo)
{
    completions.clear();
    ScopedHandle const device(TEXT("Z:\\dev\\full"), GENERIC_WRITE, shareAll, OPEN_EXISTING, FILE_FLAG_OVERLAPPED);
    ASSERT_TRUE(device.IsOpen());
    EXPECT_EQ(WriteNow(device, "x", 1, 0), DWORD{ERROR_DISK_FULL});
    OVERLAPPED request = At(0);
    ASSERT_TRUE(WriteFileEx(device, "x", 1, &request, Completed));
    EXPECT_EQ(SleepEx(INFINITE, TRUE), DWORD{WAIT_IO_COMPLETION});
    ASSERT_EQ(completions.size(), 1u);
    EXPECT_EQ(completions[0].error, DWORD{ERROR_DISK_FULL});
    EXPECT_EQ(completions[0].transferred, 0u);
}

TEST(LinuxRequests, TellOfABadBufferWhenTheyAreCarriedOut)
{
    completions.clear();
    ScratchPaths const folder;
    folder.Make("file", "0123456789");
    ScopedHandle const file(folder(TEXT("file")), readWrite, shareAll, OPEN_EXISTING, FILE_FLAG_OVERLAPPED);
    void * const bad = reinterpret_cast<void *>(ULONG_PTR{0x10});
    OVERLAPPED requests[] = {At(0), At(2), At(4), At(0), At(0)};
    {
        // The writes continue each other, so that they go to the kernel together.
        Hold const hold;
        DWORD const pending = ERROR_IO_PENDING;
        EXPECT_EQ(LastErrorOf([&] { return WriteFile(file, "ab", 2, nullptr, &requests[0]); }), pending);
        EXPECT_EQ(LastErrorOf([&] { return WriteFile(file, bad, 2, nullptr, &requests[1]); }), pending);
        EXPECT_EQ(LastErrorOf([&] { return WriteFile(file, "ef", 2, nullptr, &requests[2]); }), pending);
        EXPECT_EQ(LastErrorOf([&] { return ReadFile(file, bad, 2, nullptr, &requests[3]); }), pending);
        EXPECT_TRUE(ReadFileEx(file, bad, 2, &requests[4], Completed));
    }
    EXPECT_EQ(ResultOf(file, requests[0]), 0u);
    EXPECT_EQ(ResultOf(file, requests[1]), DWORD{ERROR_INVALID_USER_BUFFER});
    EXPECT_EQ(ResultOf(file, requests[2]), 0u);
    EXPECT_EQ(ResultOf(file, requests[3]), DWORD{ERROR_NOACCESS});
    EXPECT_EQ(SleepEx(INFINITE, TRUE), DWORD{WAIT_IO_COMPLETION});
    ASSERT_EQ(completions.size(), 1u);
    EXPECT_EQ(completions[0].error, DWORD{ERROR_NOACCESS});
    EXPECT_EQ(folder.Read("file"), "ab23ef6789");
}

TEST(LinuxRequests, OfAThreadThatEndsAreCancelledIfTheyHaveNotBegun)
{
    ScratchPaths const folder;
    ScopedHandle const file = NewFile(folder);
    ScopedHandle const other(folder(TEXT("other")), readWrite, shareAll, CREATE_ALWAYS, FILE_FLAG_OVERLAPPED);
    OVERLAPPED ending[] = {At(0), At(1), At(0), At(1)};
    OVERLAPPED staying = At(2);
    bool isCalled = false;
    {
        Hold const hold;
        WriteFile(file, "c", 1, nullptr, &staying);
        std::thread(
            [&]
            {
                WriteFile(file, "a", 1, nullptr, &ending[0]);
                EXPECT_TRUE(WriteFileEx(file, "b", 1, &ending[1], Completed));
                WriteFile(other, "a", 1, nullptr, &ending[2]);
                EXPECT_TRUE(WriteFileEx(other, "b", 1, &ending[3], Completed));
                isCalled = !completions.empty();
            })
            .join();
        for (OVERLAPPED & request : ending)
        {
            EXPECT_EQ(ResultOf(file, request), DWORD{ERROR_OPERATION_ABORTED});
        }
        EXPECT_FALSE(isCalled);
        EXPECT_FALSE(HasOverlappedIoCompleted(&staying));
    }
    EXPECT_EQ(ResultOf(file, staying), 0u);
    EXPECT_EQ(folder.Read("file"), std::string("\0\0c", 3));
    EXPECT_EQ(folder.Read("other"), "");
}

TEST(LinuxRequests, DoNotKeepAProcessFromEnding)
{
    ScratchPaths const folder;
    for (bool const held : {false, true})
    {
        EXPECT_EQ(
            InChild(
                [&]
                {
                    HoldRequests(held);
                    ScopedHandle const file = NewFile(folder);
                    std::vector<OVERLAPPED> requests(1000);
                    for (DWORD i = 0; i < requests.size(); ++i)
                    {
                        requests[i] = At(i);
                        WriteFile(file, "x", 1, nullptr, &requests[i]);
                    }
                    // As a program ends that returns from main: with the destructors of statics.
                    std::fflush(stdout);
                    std::exit(held ? 4 : 3);
                    return 0u;
                }),
            held ? 4 : 3);
    }
}

// What the child finds is the moment of the fork: rounds enough meet each state of a request.
TEST(LinuxForks, LetTheChildUseAFileWithRequestsOnTheirWay)
{
    ScratchPaths const folder;
    ScopedHandle const file = NewFile(folder);
    ASSERT_TRUE(file.IsOpen());
    std::string const block(512, 'p');
    std::vector<char> target(0x10000);
    for (int round = 0; round < 300; ++round)
    {
        bool const reading = round % 3 == 0;
        std::vector<OVERLAPPED> requests(1 + round % 32);
        for (DWORD i = 0; i < requests.size(); ++i)
        {
            requests[i] = At(i * 512);
            BOOL const done = reading ? ReadFile(file, &target[i * 512], 512, nullptr, &requests[i])
                                      : WriteFile(file, block.data(), 512, nullptr, &requests[i]);
            ASSERT_TRUE(done || GetLastError() == ERROR_IO_PENDING);
        }
        // The worker is about to make the ends of a run of requests seen.
        while (round % 2 == 0 && !HasOverlappedIoCompleted(&requests[0]))
        {
        }
        int const result = InChild(
            [&]
            {
                char found[4] = {};
                DWORD const error = WriteNow(file, "abc", 3, 1 << 20) | ReadNow(file, found, 3, 1 << 20);
                bool const isSignalled = WaitForSingleObject(file, INFINITE) == WAIT_OBJECT_0;
                return DWORD{error == 0 && isSignalled && std::string(found) == "abc"};
            });
        for (OVERLAPPED & request : requests)
        {
            DWORD const error = ResultOf(file, request);
            ASSERT_TRUE(error == 0 || (reading && error == ERROR_HANDLE_EOF)) << error;
        }
        ASSERT_EQ(result, 1) << "round " << round;
    }
}

TEST(LinuxForks, EndTheParentsRequestsInTheChildOnly)
{
    ScratchPaths const folder;
    ScopedHandle const file = NewFile(folder);
    ScopedHandle const event(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    OVERLAPPED requests[] = {At(0), At(3, event), At(6)};
    static DWORD routineError;
    routineError = 0;
    auto const routine = [](DWORD error, DWORD, OVERLAPPED *) { routineError = error + 1; };
    int result = -1;
    {
        Hold const hold;
        EXPECT_FALSE(WriteFile(file, "abc", 3, nullptr, &requests[0]));
        EXPECT_FALSE(WriteFile(file, "def", 3, nullptr, &requests[1]));
        EXPECT_TRUE(WriteFileEx(file, "ghi", 3, &requests[2], routine));
        result = InChild(
            [&]
            {
                HoldRequests(false);
                bool const cancelled = ResultOf(file, requests[0]) == ERROR_OPERATION_ABORTED &&
                    ResultOf(file, requests[1]) == ERROR_OPERATION_ABORTED;
                bool const isSet = WaitForSingleObject(event, 0) == WAIT_OBJECT_0;
                bool const isCalled =
                    SleepEx(INFINITE, TRUE) == WAIT_IO_COMPLETION && routineError == ERROR_OPERATION_ABORTED + 1;
                return DWORD{cancelled && isSet && isCalled && WriteNow(file, "x", 1, 20) == 0};
            });
        for (OVERLAPPED const & request : requests)
        {
            EXPECT_FALSE(HasOverlappedIoCompleted(&request));
        }
        EXPECT_EQ(WaitForSingleObject(event, 0), DWORD{WAIT_TIMEOUT});
    }
    EXPECT_EQ(result, 1);
    EXPECT_EQ(ResultOf(file, requests[0]), 0u);
    EXPECT_EQ(ResultOf(file, requests[1]), 0u);
    EXPECT_EQ(SleepEx(INFINITE, TRUE), DWORD{WAIT_IO_COMPLETION});
    EXPECT_EQ(routineError, 1u);
    EXPECT_EQ(folder.Read("file").substr(0, 9), "abcdefghi");
}

// A request that a worker is at when the process forks: the child must neither wait for it nor for what it holds.
TEST(LinuxForks, LeaveTheChildNoTransferThatIsGoingOn)
{
    ScratchPaths const folder;
    ScopedHandle const file = NewFile(folder);
    OVERLAPPED lock = At(1 << 28);
    ASSERT_TRUE(LockFileEx(file, LOCKFILE_EXCLUSIVE_LOCK, 0, 10, 0, &lock)) << "transfers look at the locked ranges";
    std::vector<char> const large(std::size_t{64} << 20, 'w');
    OVERLAPPED request = At(0);
    WriteFile(file, large.data(), static_cast<DWORD>(large.size()), nullptr, &request);
    LARGE_INTEGER size = {};
    while (size.QuadPart == 0)
    {
        ASSERT_TRUE(GetFileSizeEx(file, &size));
    }
    EXPECT_EQ(InChild([&] { return DWORD{WriteNow(file, "x", 1, 1 << 27) == 0}; }), 1);
    EXPECT_EQ(ResultOf(file, request), 0u);
    EXPECT_EQ(request.InternalHigh, large.size());
}

TEST(LinuxForks, LeaveTheChildNoWaitOfAnotherThread)
{
    ScopedHandle const event(CreateEventW(nullptr, FALSE, FALSE, nullptr));
    ScopedHandle const other(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    std::atomic<bool> isAboutToWait = false;
    std::thread waiting(
        [&]
        {
            HANDLE const both[] = {event, other};
            isAboutToWait = true;
            EXPECT_EQ(WaitForMultipleObjects(2, both, FALSE, INFINITE), DWORD{WAIT_OBJECT_0});
        });
    while (!isAboutToWait)
    {
        std::this_thread::yield();
    }
    for (int round = 0; round < 20; ++round)
    {
        // In the child the event is nobody else's.
        EXPECT_EQ(InChild([&] { return DWORD{SetEvent(event) && WaitForSingleObject(event, 0) == WAIT_OBJECT_0}; }), 1);
    }
    SetEvent(event);
    waiting.join();
}

#endif
