#include <atomic>

#include <gtest/gtest.h>

#include <kvcore/platform/win32.h>
#include <support/ScopedHandle.h>
#include <support/ScratchFolder.h>

namespace
{

/// What a work item does here: notes down that it was called and on which thread, may wait for a gate, and tells when
/// the last of a number is done.
struct Job
{
    ScopedHandle done{CreateEventW(nullptr, TRUE, FALSE, nullptr)};
    ScopedHandle gate{CreateEventW(nullptr, TRUE, TRUE, nullptr)};
    std::atomic<int> begun{0};
    std::atomic<int> left{1};
    DWORD thread = 0;

    static DWORD WINAPI Run(LPVOID context)
    {
        Job & job = *static_cast<Job *>(context);
        job.thread = GetCurrentThreadId();
        ++job.begun;
        WaitForSingleObject(job.gate, INFINITE);
        job.Finish();
        return 0;
    }
    static DWORD WINAPI Count(LPVOID context)
    {
        static_cast<Job *>(context)->Finish();
        return 0;
    }
    void Finish()
    {
        if (--left == 0)
        {
            SetEvent(done);
        }
    }
    void Await() const
    {
        EXPECT_EQ(DWORD{WAIT_OBJECT_0}, WaitForSingleObject(done, INFINITE));
    }
};

constexpr ULONG allFlags[] = {
    WT_EXECUTEDEFAULT, WT_EXECUTEINIOTHREAD, WT_EXECUTELONGFUNCTION, WT_EXECUTEINIOTHREAD | WT_EXECUTELONGFUNCTION};

} // namespace

TEST(WorkItems, AreCalledOnceOnAnotherThread)
{
    for (ULONG const flags : allFlags)
    {
        Job job;
        ASSERT_TRUE(QueueUserWorkItem(Job::Run, &job, flags));
        job.Await();
        EXPECT_EQ(1, job.begun);
        EXPECT_NE(GetCurrentThreadId(), job.thread);
    }
}

TEST(WorkItems, AreAllCalledHoweverMany)
{
    for (ULONG const flags : allFlags)
    {
        Job job;
        job.left = 3000;
        for (int i = 0; i < 3000; ++i)
        {
            ASSERT_TRUE(QueueUserWorkItem(Job::Count, &job, flags));
        }
        job.Await();
        EXPECT_EQ(0, job.left);
    }
}

TEST(WorkItems, DoNotWaitBehindLongOnes)
{
    for (ULONG const kind : {WT_EXECUTEDEFAULT, WT_EXECUTEINIOTHREAD})
    {
        Job blocked[20];
        for (Job & job : blocked)
        {
            ResetEvent(job.gate);
            ASSERT_TRUE(QueueUserWorkItem(Job::Run, &job, kind | WT_EXECUTELONGFUNCTION));
        }
        Job quick;
        ASSERT_TRUE(QueueUserWorkItem(Job::Count, &quick, kind));
        quick.Await();
        for (Job & job : blocked)
        {
            SetEvent(job.gate);
            job.Await();
        }
    }
}

TEST(WorkItems, AreCalledWhileOthersWaitForThem)
{
    Job blocked[30];
    for (Job & job : blocked)
    {
        ResetEvent(job.gate);
        ASSERT_TRUE(QueueUserWorkItem(Job::Run, &job, WT_EXECUTEDEFAULT));
    }
    // The gates are opened by an item that stands behind all that wait for them.
    struct Opener
    {
        static DWORD WINAPI Run(LPVOID jobs)
        {
            for (Job * job = static_cast<Job *>(jobs); job != static_cast<Job *>(jobs) + 30; ++job)
            {
                SetEvent(job->gate);
            }
            return 0;
        }
    };
    ASSERT_TRUE(QueueUserWorkItem(Opener::Run, blocked, WT_EXECUTEDEFAULT));
    for (Job & job : blocked)
    {
        job.Await();
    }
}

#ifndef _WIN32 // Wine has one pool for all items, whose threads do not wait alertably.

TEST(WorkItems, OnThreadsForRequestsMayLeaveTheirRequestsBehind)
{
    struct Reader
    {
        ScratchFolder folder;
        ScopedHandle file;
        ScopedHandle done{CreateEventW(nullptr, TRUE, FALSE, nullptr)};
        OVERLAPPED overlapped{};
        char buffer[16] = {};
        DWORD readBy = 0;
        DWORD completedBy = 0;

        Reader()
        {
            folder.Write("file", "0123456789");
            file =
                ScopedHandle(Win32Path(folder / "file"), GENERIC_READ, shareAll, OPEN_EXISTING, FILE_FLAG_OVERLAPPED);
            overlapped.hEvent = this;
        }
        static DWORD WINAPI Run(LPVOID context)
        {
            Reader & reader = *static_cast<Reader *>(context);
            reader.readBy = GetCurrentThreadId();
            ReadFileEx(reader.file, reader.buffer, 10, &reader.overlapped, Complete);
            return 0;
        }
        static void WINAPI Complete(DWORD, DWORD, LPOVERLAPPED overlapped)
        {
            Reader & reader = *static_cast<Reader *>(overlapped->hEvent);
            reader.completedBy = GetCurrentThreadId();
            SetEvent(reader.done);
        }
    };
    Reader reader;
    ASSERT_TRUE(QueueUserWorkItem(Reader::Run, &reader, WT_EXECUTEINIOTHREAD));
    EXPECT_EQ(DWORD{WAIT_OBJECT_0}, WaitForSingleObject(reader.done, INFINITE));
    EXPECT_STREQ("0123456789", reader.buffer);
    EXPECT_EQ(reader.readBy, reader.completedBy);
}

TEST(WorkItems, NeedAFunction) // Wine calls it and faults
{
    SetLastError(0);
    EXPECT_FALSE(QueueUserWorkItem(nullptr, nullptr, WT_EXECUTEDEFAULT));
    EXPECT_EQ(DWORD{ERROR_INVALID_PARAMETER}, GetLastError());
}

#endif
