#include <kvcore/frame/InfiniteWait.h>

#include <vector>

#include <gtest/gtest.h>

#include <kvcore/platform/win32.h>
#include <support/ScopedHandle.h>
#include <support/SystemCalls.h>

namespace
{

using kv::test::SystemCalls;

HANDLE const handles[] = {
    reinterpret_cast<HANDLE>(std::uintptr_t{4}), reinterpret_cast<HANDLE>(std::uintptr_t{8}),
    reinterpret_cast<HANDLE>(std::uintptr_t{12})};

/// What a wait that times out some times first ends with.
struct Outcome
{
    int timeOuts;
    DWORD result;
};

constexpr Outcome outcomes[] = {
    {0, WAIT_OBJECT_0},        {0, WAIT_FAILED},          {1, WAIT_OBJECT_0 + 2},  {3, WAIT_OBJECT_0},
    {3, WAIT_ABANDONED_0 + 1}, {1000, WAIT_OBJECT_0 + 1}, {2, WAIT_IO_COMPLETION},
};

} // namespace

TEST(InfiniteWait, ForOneObjectLooksEvery15SecondsUntilTheWaitEnds)
{
    for (Outcome const & outcome : outcomes)
    {
        SystemCalls calls;
        int waits = 0;
        calls.WaitForSingleObject = [&](HANDLE handle, DWORD milliseconds)
        {
            EXPECT_EQ(handles[1], handle);
            EXPECT_EQ(15000u, milliseconds);
            return waits++ < outcome.timeOuts ? DWORD{WAIT_TIMEOUT} : outcome.result;
        };
        EXPECT_EQ(outcome.result, InfiniteWaitForSingleObject(handles[1], TEXT("the printer")));
        EXPECT_EQ(outcome.timeOuts + 1, waits);
    }
}

TEST(InfiniteWait, ForSeveralObjectsIsTheSame)
{
    for (Outcome const & outcome : outcomes)
    {
        for (bool const all : {false, true})
        {
            SystemCalls calls;
            int waits = 0;
            calls.WaitForMultipleObjects = [&](DWORD count, HANDLE const * given, BOOL waitForAll, DWORD milliseconds)
            {
                EXPECT_EQ(3u, count);
                EXPECT_EQ(handles, given);
                EXPECT_EQ(all ? TRUE : FALSE, waitForAll);
                EXPECT_EQ(15000u, milliseconds);
                return waits++ < outcome.timeOuts ? DWORD{WAIT_TIMEOUT} : outcome.result;
            };
            EXPECT_EQ(outcome.result, InfiniteWaitForMultipleObjects(3, handles, all, TEXT("the printers")));
            EXPECT_EQ(outcome.timeOuts + 1, waits);
        }
    }
}

TEST(InfiniteWait, OnAnObjectThatIsSignalledAfterFortySecondsEndsInTheThirdLook)
{
    constexpr DWORD signalledAt = 40'000;
    SystemCalls calls;
    DWORD now = 0;
    int looks = 0;
    calls.WaitForSingleObject = [&](HANDLE, DWORD milliseconds) -> DWORD
    {
        ++looks;
        now += milliseconds;
        return now >= signalledAt ? DWORD{WAIT_OBJECT_0} : DWORD{WAIT_TIMEOUT};
    };
    EXPECT_EQ(DWORD{WAIT_OBJECT_0}, InfiniteWaitForSingleObject(handles[0], TEXT("a slow object")));
    EXPECT_EQ(3, looks);
}

TEST(InfiniteWait, NeedsNoName)
{
    SystemCalls calls;
    int waits = 0;
    calls.WaitForSingleObject = [&](HANDLE, DWORD) { return waits++ == 0 ? DWORD{WAIT_TIMEOUT} : 0; };
    EXPECT_EQ(DWORD{WAIT_OBJECT_0}, InfiniteWaitForSingleObject(handles[0], nullptr));
}

TEST(InfiniteWait, ReallyWaits)
{
    ScopedHandle const set(CreateEventW(nullptr, TRUE, TRUE, nullptr));
    ScopedHandle const unset(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    HANDLE const both[] = {unset, set};
    EXPECT_EQ(DWORD{WAIT_OBJECT_0}, InfiniteWaitForSingleObject(set, TEXT("an event")));
    EXPECT_EQ(DWORD{WAIT_OBJECT_0 + 1}, InfiniteWaitForMultipleObjects(2, both, false, TEXT("one of two")));
    SetEvent(unset);
    EXPECT_EQ(DWORD{WAIT_OBJECT_0}, InfiniteWaitForMultipleObjects(2, both, true, TEXT("both")));
    EXPECT_EQ(DWORD{WAIT_FAILED}, InfiniteWaitForSingleObject(nullptr, TEXT("nothing")));
}
