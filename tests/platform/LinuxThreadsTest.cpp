#ifndef _WIN32 // MinGW's run-time library frees a thread's objects before it destroys them.

#    include <gtest/gtest.h>

#    include <kvcore/platform/win32.h>
#    include <support/ScopedHandle.h>

TEST(Threads, HaveEndedWithTheirThreadLocalObjects)
{
    struct Mark
    {
        int * ended = nullptr;
        ~Mark()
        {
            ++*ended;
        }
    };
    struct Maker
    {
        static DWORD WINAPI Run(LPVOID argument)
        {
            static thread_local Mark mark;
            mark.ended = static_cast<int *>(argument);
            return 0;
        }
    };
    int ended = 0;
    ScopedHandle const thread(CreateThread(nullptr, 0, Maker::Run, &ended, 0, nullptr));
    EXPECT_EQ(DWORD{WAIT_OBJECT_0}, WaitForSingleObject(thread, INFINITE));
    EXPECT_EQ(1, ended);
}

#endif
