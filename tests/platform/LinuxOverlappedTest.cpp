#ifndef _WIN32 // Requests, waits and threads beside a fork, and with the request pool held by its own hooks.

#    include <atomic>
#    include <functional>
#    include <set>
#    include <string>
#    include <thread>
#    include <vector>

#    include <sys/syscall.h>
#    include <sys/wait.h>
#    include <unistd.h>

#    include <gtest/gtest.h>

#    include <kvcore/platform/linux/overlapped/RequestPool.h>
#    include <kvcore/platform/win32.h>
#    include <support/ScopedHandle.h>
#    include <support/ScratchPaths.h>

namespace
{

using kv::platform::HoldRequests;

/// No request begins while this lives.
struct Hold
{
    Hold()
    {
        HoldRequests(true);
    }
    ~Hold()
    {
        HoldRequests(false);
    }
    Hold(Hold const &) = delete;
    Hold & operator=(Hold const &) = delete;
};

/// Runs a step in another process and gives its result; -1 if it did not end by itself.
int InChild(std::function<DWORD()> const & step)
{
    pid_t const child = fork();
    if (child == 0)
    {
        alarm(60); // a child that hangs is killed, and told from the others by that
        _exit(static_cast<int>(step()));
    }
    int status = 0;
    return child > 0 && waitpid(child, &status, 0) == child && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

OVERLAPPED At(DWORD place, HANDLE event = nullptr)
{
    OVERLAPPED overlapped = {};
    overlapped.Offset = place;
    overlapped.hEvent = event;
    return overlapped;
}

ScopedHandle NewFile(ScratchPaths const & folder)
{
    return ScopedHandle(folder(TEXT("file")), readWrite, shareAll, CREATE_ALWAYS, FILE_FLAG_OVERLAPPED);
}

/// Starts a transfer and waits for its end. The error, 0 if there is none.
DWORD WriteNow(HANDLE file, void const * bytes, DWORD count, DWORD place)
{
    OVERLAPPED overlapped = At(place);
    DWORD done = 0;
    bool const started = WriteFile(file, bytes, count, nullptr, &overlapped) || GetLastError() == ERROR_IO_PENDING;
    return started && GetOverlappedResult(file, &overlapped, &done, TRUE) ? 0 : GetLastError();
}

DWORD ReadNow(HANDLE file, void * bytes, DWORD count, DWORD place)
{
    OVERLAPPED overlapped = At(place);
    DWORD done = 0;
    bool const started = ReadFile(file, bytes, count, nullptr, &overlapped) || GetLastError() == ERROR_IO_PENDING;
    return started && GetOverlappedResult(file, &overlapped, &done, TRUE) ? 0 : GetLastError();
}

DWORD ResultOf(HANDLE file, OVERLAPPED & overlapped)
{
    DWORD done = 0;
    return GetOverlappedResult(file, &overlapped, &done, TRUE) ? 0 : GetLastError();
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
