#include <cstring>
#include <iterator>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include <kvcore/platform/win32.h>

namespace
{

/// A file in the current folder, opened for overlapped requests, that goes with its handle.
class ScratchFile
{
public:
    explicit ScratchFile(DWORD access = GENERIC_READ | GENERIC_WRITE)
    {
        static LONG number = 0;
        WString const name = TEXT("overlapped-test-") + Digits(GetCurrentThreadId()) + TEXT("-") + Digits(++number);
        handle = CreateFileW(
            name.c_str(), access, 0, nullptr, CREATE_ALWAYS, FILE_FLAG_OVERLAPPED | FILE_FLAG_DELETE_ON_CLOSE, nullptr);
    }
    ~ScratchFile()
    {
        CloseHandle(handle);
    }
    ScratchFile(ScratchFile const &) = delete;
    ScratchFile & operator=(ScratchFile const &) = delete;

    HANDLE handle;

private:
    static WString Digits(DWORD value)
    {
        std::string const text = std::to_string(value);
        return WString(text.begin(), text.end());
    }
};

OVERLAPPED At(DWORD place, HANDLE event = nullptr)
{
    OVERLAPPED overlapped = {};
    overlapped.Offset = place;
    overlapped.hEvent = event;
    return overlapped;
}

/// The result of a request that was just started: its error, and its bytes.
DWORD ErrorAfter(BOOL started, HANDLE file, OVERLAPPED & overlapped, DWORD & transferred)
{
    if (!started && GetLastError() != ERROR_IO_PENDING)
    {
        return GetLastError();
    }
    return GetOverlappedResult(file, &overlapped, &transferred, TRUE) ? ERROR_SUCCESS : GetLastError();
}

DWORD WriteAll(HANDLE file, std::string const & bytes, DWORD place)
{
    OVERLAPPED overlapped = At(place);
    DWORD done = 0;
    BOOL const started = WriteFile(file, bytes.data(), static_cast<DWORD>(bytes.size()), nullptr, &overlapped);
    DWORD const error = ErrorAfter(started, file, overlapped, done);
    return error == ERROR_SUCCESS && done != bytes.size() ? ERROR_WRITE_FAULT : error;
}

struct Completion
{
    DWORD error;
    DWORD transferred;
    OVERLAPPED * overlapped;
    DWORD thread;
};

/// A thread's completions. Without a destructor, since MinGW's run-time library frees a thread's objects before it
/// destroys them.
class Completions
{
public:
    void push_back(Completion const & completion)
    {
        ASSERT_LT(count, std::size(all));
        all[count] = completion;
        ++count;
    }
    void clear()
    {
        count = 0;
    }
    std::size_t size() const
    {
        return count;
    }
    bool empty() const
    {
        return count == 0;
    }
    Completion const & operator[](std::size_t index) const
    {
        return all[index];
    }
    Completion const * begin() const
    {
        return all;
    }
    Completion const * end() const
    {
        return all + count;
    }

private:
    Completion all[512];
    std::size_t count;
};
thread_local Completions completions;

void CALLBACK Completed(DWORD error, DWORD transferred, OVERLAPPED * overlapped)
{
    completions.push_back({error, transferred, overlapped, GetCurrentThreadId()});
}

void AwaitCompletions(std::size_t count)
{
    while (completions.size() < count)
    {
        SleepEx(INFINITE, TRUE);
    }
}

} // namespace

TEST(OverlappedRequests, WriteAndReadAtTheirPlaces)
{
    ScratchFile const file;
    ASSERT_EQ(DWORD{ERROR_SUCCESS}, WriteAll(file.handle, "0123456789", 0));
    ASSERT_EQ(DWORD{ERROR_SUCCESS}, WriteAll(file.handle, "abc", 20));

    char buffer[16] = {};
    DWORD done = 99;
    OVERLAPPED overlapped = At(18);
    EXPECT_EQ(
        DWORD{ERROR_SUCCESS},
        ErrorAfter(ReadFile(file.handle, buffer, 16, nullptr, &overlapped), file.handle, overlapped, done));
    EXPECT_EQ(5u, done);
    EXPECT_EQ(std::string("\0\0abc", 5), std::string(buffer, done));
    EXPECT_TRUE(HasOverlappedIoCompleted(&overlapped));
    EXPECT_EQ(5u, overlapped.InternalHigh);
}

TEST(OverlappedRequests, AReadAtOrBehindTheEndFinishesWithEndOfFile)
{
    ScratchFile const file;
    ASSERT_EQ(DWORD{ERROR_SUCCESS}, WriteAll(file.handle, "0123456789", 0));
    for (DWORD const place : {10u, 11u, 5000u})
    {
        char buffer[4];
        DWORD done = 99;
        OVERLAPPED overlapped = At(place);
        EXPECT_EQ(
            DWORD{ERROR_HANDLE_EOF},
            ErrorAfter(ReadFile(file.handle, buffer, 4, nullptr, &overlapped), file.handle, overlapped, done))
            << place;
    }
}

TEST(OverlappedRequests, SetTheirEventWhenTheyAreFinished)
{
    ScratchFile const file;
    HANDLE const event = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    OVERLAPPED overlapped = At(0, event);
    if (!WriteFile(file.handle, "abc", 3, nullptr, &overlapped))
    {
        EXPECT_EQ(DWORD{ERROR_IO_PENDING}, GetLastError());
    }
    EXPECT_EQ(DWORD{WAIT_OBJECT_0}, WaitForSingleObject(event, INFINITE));
    DWORD done = 0;
    EXPECT_TRUE(GetOverlappedResult(file.handle, &overlapped, &done, FALSE));
    EXPECT_EQ(3u, done);
    CloseHandle(event);
}

TEST(OverlappedRequests, GiveTheirResultWithAnEventThatResetsItself)
{
    ScratchFile const file;
    HANDLE const event = CreateEventW(nullptr, FALSE, TRUE, nullptr);
    OVERLAPPED overlapped = At(0, event);
    DWORD done = 0;
    for (int round = 0; round < 50; ++round)
    {
        BOOL const started = WriteFile(file.handle, "abc", 3, nullptr, &overlapped);
        ASSERT_EQ(DWORD{ERROR_SUCCESS}, ErrorAfter(started, file.handle, overlapped, done));
        ASSERT_EQ(3u, done);
    }
    CloseHandle(event);
}

TEST(OverlappedRequests, SignalTheFile)
{
    ScratchFile const file;
    OVERLAPPED overlapped = At(0);
    WriteFile(file.handle, "abc", 3, nullptr, &overlapped);
    EXPECT_EQ(DWORD{WAIT_OBJECT_0}, WaitForSingleObject(file.handle, INFINITE));
    EXPECT_TRUE(HasOverlappedIoCompleted(&overlapped));
}

TEST(OverlappedRequests, TheResultOfAPendingRequestIsIncomplete)
{
    ScratchFile const file;
    OVERLAPPED overlapped = At(0);
    overlapped.Internal = static_cast<ULONG_PTR>(STATUS_PENDING);
    DWORD done = 0;
    EXPECT_FALSE(GetOverlappedResult(file.handle, &overlapped, &done, FALSE));
    EXPECT_EQ(DWORD{ERROR_IO_INCOMPLETE}, GetLastError());
    EXPECT_FALSE(HasOverlappedIoCompleted(&overlapped));
}

TEST(OverlappedRequests, ManyAreCarriedOutWhole)
{
    ScratchFile const file;
    constexpr DWORD count = 5000;
    std::vector<DWORD> values(count);
    std::vector<OVERLAPPED> requests(count);
    for (DWORD i = 0; i < count; ++i)
    {
        values[i] = i * 2654435761u;
        requests[i] = At(i * 4);
        BOOL const done = WriteFile(file.handle, &values[i], 4, nullptr, &requests[i]);
        ASSERT_TRUE(done || GetLastError() == ERROR_IO_PENDING);
    }
    for (OVERLAPPED & request : requests)
    {
        DWORD done = 0;
        ASSERT_TRUE(GetOverlappedResult(file.handle, &request, &done, TRUE));
        ASSERT_EQ(4u, done);
    }
    std::vector<DWORD> found(count);
    OVERLAPPED overlapped = At(0);
    DWORD done = 0;
    EXPECT_EQ(
        DWORD{ERROR_SUCCESS},
        ErrorAfter(
            ReadFile(file.handle, found.data(), count * 4, nullptr, &overlapped), file.handle, overlapped, done));
    EXPECT_EQ(values, found);
}

TEST(CompletionRoutines, RunOnTheIssuingThreadInAnAlertableWait)
{
    completions.clear();
    ScratchFile const file;
    HANDLE const mine = reinterpret_cast<HANDLE>(ULONG_PTR{0x77});
    OVERLAPPED overlapped = At(0, mine);
    ASSERT_TRUE(WriteFileEx(file.handle, "abcde", 5, &overlapped, Completed));
    EXPECT_EQ(0u, completions.size());
    EXPECT_EQ(DWORD{WAIT_IO_COMPLETION}, SleepEx(INFINITE, TRUE));
    ASSERT_EQ(1u, completions.size());
    EXPECT_EQ(0u, completions[0].error);
    EXPECT_EQ(5u, completions[0].transferred);
    EXPECT_EQ(&overlapped, completions[0].overlapped);
    EXPECT_EQ(GetCurrentThreadId(), completions[0].thread);
    EXPECT_EQ(mine, overlapped.hEvent);
    EXPECT_EQ(0u, SleepEx(0, TRUE));
}

TEST(CompletionRoutines, AreToldOfTheEndOfTheFile)
{
    completions.clear();
    ScratchFile const file;
    char buffer[4];
    OVERLAPPED overlapped = At(0);
    ASSERT_TRUE(ReadFileEx(file.handle, buffer, 4, &overlapped, Completed));
    AwaitCompletions(1);
    EXPECT_EQ(DWORD{ERROR_HANDLE_EOF}, completions[0].error);
    EXPECT_EQ(0u, completions[0].transferred);
}

TEST(CompletionRoutines, AreCalledForAFileThatWasClosedMeanwhile)
{
    completions.clear();
    std::vector<OVERLAPPED> requests(100);
    {
        ScratchFile const file;
        for (DWORD i = 0; i < requests.size(); ++i)
        {
            requests[i] = At(i * 3);
            ASSERT_TRUE(WriteFileEx(file.handle, "abc", 3, &requests[i], Completed));
        }
    }
    AwaitCompletions(requests.size());
    for (Completion const & completion : completions)
    {
        EXPECT_EQ(0u, completion.error);
        EXPECT_EQ(3u, completion.transferred);
    }
}

TEST(CompletionRoutines, AreNotCalledForWhatCannotBeStarted)
{
    completions.clear();
    ScratchFile const writeOnly(GENERIC_WRITE);
    char buffer[4] = {};
    OVERLAPPED overlapped = At(0);
    EXPECT_FALSE(ReadFileEx(writeOnly.handle, buffer, 4, &overlapped, Completed));
    EXPECT_EQ(DWORD{ERROR_ACCESS_DENIED}, GetLastError());
    EXPECT_FALSE(WriteFileEx(writeOnly.handle, buffer, 4, nullptr, Completed));
    EXPECT_EQ(DWORD{ERROR_INVALID_PARAMETER}, GetLastError());
    EXPECT_FALSE(ReadFileEx(nullptr, buffer, 4, &overlapped, Completed));
    EXPECT_EQ(DWORD{ERROR_INVALID_HANDLE}, GetLastError());
    EXPECT_EQ(0u, SleepEx(0, TRUE));
    EXPECT_TRUE(completions.empty());
}

TEST(Cancelling, EveryRequestFinishesOneWayOrTheOther)
{
    completions.clear();
    ScratchFile const file;
    std::vector<OVERLAPPED> requests(500);
    for (DWORD i = 0; i < requests.size(); ++i)
    {
        requests[i] = At(i * 6);
        ASSERT_TRUE(WriteFileEx(file.handle, "abc", 3, &requests[i], Completed));
    }
    EXPECT_TRUE(CancelIo(file.handle));
    AwaitCompletions(requests.size());
    for (Completion const & completion : completions)
    {
        bool const cancelled = completion.error == ERROR_OPERATION_ABORTED && completion.transferred == 0;
        EXPECT_TRUE(cancelled || (completion.error == 0 && completion.transferred == 3)) << completion.error;
    }
    EXPECT_FALSE(CancelIoEx(file.handle, &requests[0]));
    EXPECT_EQ(DWORD{ERROR_NOT_FOUND}, GetLastError());
    EXPECT_FALSE(CancelIo(nullptr));
    EXPECT_EQ(DWORD{ERROR_INVALID_HANDLE}, GetLastError());
}

TEST(OverlappedRequests, SeveralHandlesShareAFile)
{
    completions.clear();
    ScratchFile const file;
    HANDLE const self = GetCurrentProcess();
    HANDLE second = nullptr;
    ASSERT_TRUE(DuplicateHandle(self, file.handle, self, &second, 0, FALSE, DUPLICATE_SAME_ACCESS));
    OVERLAPPED requests[] = {At(0), At(3)};
    ASSERT_TRUE(WriteFileEx(file.handle, "abc", 3, &requests[0], Completed));
    ASSERT_TRUE(WriteFileEx(second, "def", 3, &requests[1], Completed));
    ASSERT_TRUE(CloseHandle(second));
    AwaitCompletions(2);
    EXPECT_EQ(0u, completions[0].error + completions[1].error);
    char found[8] = {};
    DWORD done = 0;
    OVERLAPPED overlapped = At(0);
    EXPECT_EQ(
        DWORD{ERROR_SUCCESS},
        ErrorAfter(ReadFile(file.handle, found, 6, nullptr, &overlapped), file.handle, overlapped, done));
    EXPECT_EQ("abcdef", std::string(found));
    EXPECT_EQ(DWORD{WAIT_OBJECT_0}, WaitForSingleObject(file.handle, INFINITE));
}

LONG countedCalls;

void WINAPI CountCall(DWORD, DWORD, OVERLAPPED *)
{
    ++countedCalls;
}

// Whether a request of a thread that ends was carried out is left to the system; its routine cannot be called any more.
TEST(CompletionRoutines, AreNotCalledForAThreadThatHasEnded)
{
    ScratchFile const file;
    std::vector<OVERLAPPED> requests(200);
    countedCalls = 0;
    std::thread(
        [&]
        {
            for (DWORD i = 0; i < requests.size(); ++i)
            {
                requests[i] = At(i * 3);
                EXPECT_TRUE(WriteFileEx(file.handle, "abc", 3, &requests[i], CountCall));
            }
        })
        .join();
    for (OVERLAPPED & request : requests)
    {
        DWORD done = 0;
        BOOL const written = GetOverlappedResult(file.handle, &request, &done, TRUE);
        EXPECT_TRUE(written ? done == 3 : GetLastError() == ERROR_OPERATION_ABORTED);
    }
    SleepEx(0, TRUE);
    EXPECT_EQ(0, countedCalls);
}

TEST(OverlappedRequests, SeveralThreadsShareAFile)
{
    ScratchFile const file;
    std::vector<std::thread> threads;
    for (DWORD t = 0; t < 4; ++t)
    {
        threads.emplace_back(
            [&file, t]
            {
                std::vector<OVERLAPPED> requests(300);
                for (DWORD i = 0; i < requests.size(); ++i)
                {
                    requests[i] = At((i * 4 + t) * 3);
                    EXPECT_TRUE(WriteFileEx(file.handle, "abc", 3, &requests[i], Completed));
                }
                AwaitCompletions(requests.size());
            });
    }
    for (std::thread & thread : threads)
    {
        thread.join();
    }
    LARGE_INTEGER size = {};
    EXPECT_TRUE(GetFileSizeEx(file.handle, &size));
    EXPECT_EQ(4 * 300 * 3, size.QuadPart);
}
