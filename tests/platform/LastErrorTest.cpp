#include <atomic>
#include <thread>

#include <gtest/gtest.h>

#include <kvcore/platform/win32.h>

TEST(LastError, IsWhatWasSet)
{
    for (DWORD const code : {0u, 1u, 122u, 0x80004005u, 0xFFFFFFFFu})
    {
        SetLastError(code);
        EXPECT_EQ(GetLastError(), code);
        EXPECT_EQ(GetLastError(), code) << "reading it does not clear it";
    }
}

TEST(LastError, BelongsToTheThread)
{
    // Starting and joining a thread may set the starter's last error, so both threads look while both are running.
    std::atomic<int> step{0};
    DWORD atStart = 1;
    DWORD own = 1;
    std::thread other(
        [&]
        {
            atStart = GetLastError();
            step = 1;
            while (step != 2)
            {
            }
            SetLastError(222);
            own = GetLastError();
            step = 3;
        });
    while (step != 1)
    {
    }
    SetLastError(111);
    step = 2;
    while (step != 3)
    {
    }
    DWORD const mine = GetLastError();
    other.join();
    EXPECT_EQ(atStart, 0u);
    EXPECT_EQ(own, 222u);
    EXPECT_EQ(mine, 111u);
}

TEST(LastError, SuccessLeavesItAlone)
{
    SetLastError(333);
    WCHAR buffer[50];
    GUID id = {};
    EXPECT_EQ(StringFromGUID2(IID_IUnknown, buffer, 50), 39);
    EXPECT_EQ(CLSIDFromString(buffer, &id), S_OK);
    EXPECT_EQ(_itow_s(5, buffer, 50, 10), 0);
    EXPECT_EQ(_snwprintf(buffer, 50, TEXT("%d"), 5), 1);
    LocalFree(LocalAlloc(LMEM_FIXED, 10));
    EXPECT_NE(FormatMessageW(FORMAT_MESSAGE_FROM_STRING, TEXT("text"), 0, 0, buffer, 50, nullptr), 0u);
    EXPECT_EQ(GetLastError(), 333u);
}
