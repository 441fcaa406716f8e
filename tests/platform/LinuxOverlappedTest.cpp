#ifndef _WIN32 // Requests, waits and threads beside a fork, and with the request pool held by its own hooks.

#    include <functional>
#    include <set>
#    include <thread>

#    include <sys/syscall.h>
#    include <sys/wait.h>
#    include <unistd.h>

#    include <gtest/gtest.h>

#    include <kvcore/platform/win32.h>

namespace
{

/// Runs a step in another process and gives its result; -1 if it did not end by itself.
int InChild(std::function<DWORD()> const & step)
{
    pid_t const child = fork();
    if (child == 0)
    {
        _exit(static_cast<int>(step()));
    }
    int status = 0;
    return child > 0 && waitpid(child, &status, 0) == child && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
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

#endif
