// Files under several threads at once. What each call may answer while others work is bounded, not fixed; what stands
// at the end is fixed. The thread sanitizer runs this over the tables that the threads share.

#include <atomic>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include <kvcore/platform/win32.h>
#include <support/ScratchPaths.h>

namespace
{

constexpr int Threads = 4;
constexpr int Rounds = 100;

void InThreads(std::function<void(int)> const & work)
{
    std::vector<std::thread> threads;
    for (int thread = 0; thread < Threads; ++thread)
    {
        threads.emplace_back(work, thread);
    }
    for (std::thread & thread : threads)
    {
        thread.join();
    }
}

WString Numbered(WCHAR const * text, int number)
{
    WString result(text);
    result.push_back(static_cast<WCHAR>(TEXT('0') + number));
    return result;
}

HANDLE Open(WString const & path, DWORD disposition)
{
    return CreateFileW(
        path.c_str(), GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
        disposition, FILE_ATTRIBUTE_NORMAL, nullptr);
}

TEST(ConcurrentFiles, NamesOfAChangingFolderAreFoundInAnyCase)
{
    ScratchPaths folder;
    folder.Make("Stays");
    std::atomic<int> failures = 0;
    InThreads(
        [&](int thread)
        {
            WString const made = folder(Numbered(TEXT("Made"), thread).c_str());
            WString const otherCase = folder(Numbered(TEXT("mADE"), thread).c_str());
            for (int round = 0; round < Rounds; ++round)
            {
                HANDLE const file = Open(made, CREATE_NEW);
                failures += file == INVALID_HANDLE_VALUE;
                CloseHandle(file);
                failures += GetFileAttributesW(folder(TEXT("sTAYS")).c_str()) == INVALID_FILE_ATTRIBUTES;
                failures += GetFileAttributesW(otherCase.c_str()) == INVALID_FILE_ATTRIBUTES;
                failures += DeleteFileW(otherCase.c_str()) == FALSE;
                failures += GetFileAttributesW(made.c_str()) != INVALID_FILE_ATTRIBUTES;
            }
        });
    EXPECT_EQ(failures, 0);
}

TEST(ConcurrentFiles, DuplicatesOfAHandleWorkUntilTheLastIsClosed)
{
    ScratchPaths folder;
    WString const path = folder.Make("file", "0123456789");
    HANDLE const shared = Open(path, OPEN_EXISTING);
    ASSERT_NE(shared, INVALID_HANDLE_VALUE);
    std::atomic<int> failures = 0;
    InThreads(
        [&](int)
        {
            for (int round = 0; round < Rounds; ++round)
            {
                HANDLE copy = nullptr;
                HANDLE const process = GetCurrentProcess();
                if (!DuplicateHandle(process, shared, process, &copy, 0, FALSE, DUPLICATE_SAME_ACCESS))
                {
                    ++failures;
                    continue;
                }
                LARGE_INTEGER size = {};
                failures += !GetFileSizeEx(copy, &size) || size.QuadPart != 10;
                failures += CloseHandle(copy) == FALSE;
            }
        });
    EXPECT_EQ(failures, 0);
    EXPECT_TRUE(CloseHandle(shared));
}

TEST(ConcurrentFiles, ALockedRangeHasOneHolder)
{
    ScratchPaths folder;
    WString const path = folder.Make("file", "0123456789");
    std::atomic<int> holders = 0;
    std::atomic<int> failures = 0;
    std::atomic<int> taken = 0;
    InThreads(
        [&](int)
        {
            HANDLE const file = Open(path, OPEN_EXISTING);
            for (int round = 0; round < Rounds; ++round)
            {
                if (!LockFile(file, 2, 0, 4, 0))
                {
                    failures += GetLastError() != ERROR_LOCK_VIOLATION;
                    continue;
                }
                failures += ++holders != 1;
                ++taken;
                --holders;
                failures += UnlockFile(file, 2, 0, 4, 0) == FALSE;
            }
            CloseHandle(file);
        });
    EXPECT_EQ(failures, 0);
    EXPECT_GT(taken, 0);
}

} // namespace
