#ifndef _WIN32 // The other system takes the bytes of every write over by itself, and no request of this kind.

#    include <algorithm>
#    include <atomic>
#    include <csignal>
#    include <cstdlib>
#    include <string>
#    include <thread>
#    include <vector>

#    include <gtest/gtest.h>

#    include "RequestRig.h"
#    include <kvcore/platform/WriteBehind.h>

namespace
{

using kv::platform::WritesBehind;

/// A page from which small writes are taken over.
struct Page
{
    Page() : bytes(static_cast<char *>(VirtualAlloc(nullptr, 4096, MEM_COMMIT | MEM_RESERVE, PAGE_READWRITE))) {}
    ~Page()
    {
        VirtualFree(bytes, 0, MEM_RELEASE);
    }
    Page(Page const &) = delete;
    Page & operator=(Page const &) = delete;

    char * const bytes;
};

struct LinuxWritesBehind : testing::Test
{
    LinuxWritesBehind() : file(NewFile(folder))
    {
        writes.Attach(file);
    }
    /// Takes the text over, whose memory is another text's at once.
    bool Write(std::string const & text, std::uint64_t place)
    {
        text.copy(page.bytes, text.size());
        bool const taken = writes.Write(page.bytes, static_cast<DWORD>(text.size()), place);
        std::fill_n(page.bytes, text.size(), '!');
        return taken;
    }
    std::string Content()
    {
        writes.Await();
        return folder.Read("file");
    }

    ScratchPaths folder;
    Page page;
    ScopedHandle file;
    WritesBehind writes;
};

} // namespace

TEST_F(LinuxWritesBehind, HaveTheBytesOfTheirBeginning)
{
    std::string expected;
    {
        Hold const hold; // all of it on its way at once, in several blocks
        for (int i = 0; i < 20'000; ++i)
        {
            std::string const text = "line " + std::to_string(i) + ";";
            ASSERT_TRUE(Write(text, expected.size()));
            expected += text;
        }
    }
    EXPECT_TRUE(Content() == expected);
}

TEST_F(LinuxWritesBehind, TakeEffectInOrderBesideRequests)
{
    constexpr DWORD count = 300;
    std::vector<OVERLAPPED> requests(count, At(0));
    std::vector<char> found(count);
    std::string const letters = "abcdefghijklmnopqrstuvwxyz";
    {
        Hold const hold;
        for (DWORD i = 0; i < count; i += 3)
        {
            // All to one place: one behind, one that is not, and a read of what came last.
            ASSERT_TRUE(Write(letters.substr(i % 26, 1), 0));
            if (i % 2 == 0)
            {
                WriteFile(file, &letters[(i + 1) % 26], 1, nullptr, &requests[i + 1]);
            }
            ReadFile(file, &found[i], 1, nullptr, &requests[i + 2]);
        }
    }
    for (DWORD i = 0; i < count; i += 3)
    {
        ASSERT_EQ(i % 2 == 0 ? ResultOf(file, requests[i + 1]) : 0, 0u);
        ASSERT_EQ(ResultOf(file, requests[i + 2]), 0u);
        ASSERT_EQ(found[i], letters[(i % 2 == 0 ? i + 1 : i) % 26]) << i;
    }
}

TEST_F(LinuxWritesBehind, GoWhereverTheyAreToGo)
{
    {
        Hold const hold;
        ASSERT_TRUE(Write("ab", 10));
        ASSERT_TRUE(Write("cd", 12));
        ASSERT_TRUE(Write("ef", 0));
        ASSERT_TRUE(Write("gh", 13)); // over the second
        ASSERT_TRUE(Write("ij", 4));
    }
    EXPECT_EQ(Content(), std::string("ef\0\0ij\0\0\0\0abcgh", 15));
}

TEST_F(LinuxWritesBehind, AreSmallAndFromCommittedMemory)
{
    std::string const heap(600, 'h');
    EXPECT_FALSE(writes.Write(heap.data(), 10, 0)) << "the heap's memory may be a bad pointer as well";
    EXPECT_FALSE(writes.Write(page.bytes, 0, 0));
    EXPECT_FALSE(writes.Write(page.bytes, 513, 0));
    EXPECT_FALSE(writes.Write(page.bytes + 4000, 97, 0)) << "one byte beyond the page";
    EXPECT_FALSE(writes.Write(page.bytes, 1, std::uint64_t{1} << 63));
    EXPECT_FALSE(writes.Write(page.bytes, 1, ~std::uint64_t{0}));
    EXPECT_EQ(Content(), "");
    EXPECT_TRUE(writes.Write(page.bytes, 512, 0));
    EXPECT_TRUE(writes.Write(page.bytes + 4000, 96, 512));
    EXPECT_EQ(Content().size(), 608u);
    VirtualAlloc(page.bytes, 4096, MEM_COMMIT, PAGE_READWRITE); // something has changed; the page is known anew
    EXPECT_TRUE(writes.Write(page.bytes, 1, 608));
}

TEST_F(LinuxWritesBehind, AreNotFromMemoryThatIsReservedOnly)
{
    auto * const reserved = static_cast<char *>(VirtualAlloc(nullptr, 0x20000, MEM_RESERVE, PAGE_READWRITE));
    ASSERT_NE(VirtualAlloc(reserved, 4096, MEM_COMMIT, PAGE_READWRITE), nullptr);
    EXPECT_TRUE(writes.Write(reserved + 4000, 96, 0));
    EXPECT_FALSE(writes.Write(reserved + 4000, 97, 0));
    EXPECT_FALSE(writes.Write(reserved + 8192, 1, 0));
    VirtualFree(reserved, 0, MEM_RELEASE);
    EXPECT_FALSE(writes.Write(reserved, 1, 0)) << "it is known no more";
}

TEST_F(LinuxWritesBehind, AreForFilesThatMayBeWrittenOverlapped)
{
    writes.Detach();
    EXPECT_FALSE(Write("x", 0));
    writes.Await();
    writes.Attach(INVALID_HANDLE_VALUE);
    EXPECT_FALSE(Write("x", 0));
    ScopedHandle const event(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    writes.Attach(event);
    EXPECT_FALSE(Write("x", 0));
    ScopedHandle const device(TEXT("Z:\\dev\\null"), GENERIC_WRITE, shareAll, OPEN_EXISTING, FILE_FLAG_OVERLAPPED);
    writes.Attach(device);
    EXPECT_FALSE(Write("x", 0)) << "what is no file may stay silent";
    ScopedHandle const synchronous(folder(TEXT("file")), GENERIC_WRITE, shareAll, OPEN_EXISTING);
    writes.Attach(synchronous);
    EXPECT_FALSE(Write("x", 0));
    ScopedHandle const readOnly(folder(TEXT("file")), GENERIC_READ, shareAll, OPEN_EXISTING, FILE_FLAG_OVERLAPPED);
    writes.Attach(readOnly);
    EXPECT_FALSE(Write("x", 0));
    writes.Attach(file);
    EXPECT_TRUE(Write("x", 0));
    EXPECT_EQ(Content(), "x");
}

TEST_F(LinuxWritesBehind, AppendWhereThatIsAllThatIsAllowed)
{
    folder.Write("log", "begin,");
    ScopedHandle const log(folder(TEXT("log")), FILE_APPEND_DATA, shareAll, OPEN_EXISTING, FILE_FLAG_OVERLAPPED);
    writes.Attach(log);
    {
        Hold const hold;
        ASSERT_TRUE(Write("a", 0));
        ASSERT_TRUE(Write("b", 700));
        ASSERT_TRUE(Write("c", 0));
    }
    writes.Await();
    EXPECT_EQ(folder.Read("log"), "begin,abc");
}

TEST_F(LinuxWritesBehind, EndAlsoAfterTheirHandleAndTheirMakerAreGone)
{
    {
        Hold const hold;
        WritesBehind others;
        ScopedHandle other(folder(TEXT("other")), GENERIC_WRITE, shareAll, CREATE_ALWAYS, FILE_FLAG_OVERLAPPED);
        others.Attach(other);
        *page.bytes = 'x';
        ASSERT_TRUE(others.Write(page.bytes, 1, 0));
        other.Close();
        ASSERT_TRUE(others.Write(page.bytes, 1, 1)) << "the file is still there";
        ASSERT_TRUE(Write("y", 0));
    }
    // What was issued before, for whichever file, is over before long; the other's end is seen in its folder alone.
    EXPECT_EQ(Content(), "y");
    while (folder.Read("other").size() < 2)
    {
        std::this_thread::yield();
    }
    EXPECT_EQ(folder.Read("other"), "xx");
}

TEST_F(LinuxWritesBehind, AreNobodysRequestsToCancel)
{
    OVERLAPPED request = At(3);
    {
        Hold const hold;
        std::thread(
            [&]
            {
                ASSERT_TRUE(Write("abc", 0));
                WriteFile(file, "d", 1, nullptr, &request);
                ASSERT_TRUE(Write("e", 4));
                EXPECT_TRUE(CancelIo(file)) << "takes the one that is a request";
            })
            .join();
        EXPECT_FALSE(CancelIoEx(file, nullptr));
        EXPECT_EQ(ResultOf(file, request), DWORD{ERROR_OPERATION_ABORTED});
        EXPECT_EQ(WaitForSingleObject(file, 0), DWORD{WAIT_TIMEOUT}) << "something is on its way";
    }
    EXPECT_EQ(Content(), std::string("abc\0e", 5));
    EXPECT_EQ(WaitForSingleObject(file, 60'000), DWORD{WAIT_OBJECT_0});
}

TEST_F(LinuxWritesBehind, AreWaitedForWhileThereAreAny)
{
    kv::platform::HoldRequests(true);
    ASSERT_TRUE(Write("abc", 0));
    std::thread later([] { kv::platform::HoldRequests(false); });
    writes.Await();
    EXPECT_EQ(folder.Read("file"), "abc");
    later.join();
    writes.Await(); // for nothing
}

TEST_F(LinuxWritesBehind, WaitWhile256KiBAreOnTheirWayAndLoseNothing)
{
    constexpr std::size_t bound = (std::size_t{256} << 10) / 512; // as many are taken over at once
    constexpr std::size_t pieces = 40 * bound;
    std::atomic<std::size_t> made = 0;
    kv::platform::HoldRequests(true);
    std::thread maker(
        [&]
        {
            for (; made < pieces; ++made)
            {
                std::string piece = std::to_string(made);
                piece.resize(512, '.');
                ASSERT_TRUE(Write(piece, made * 512));
            }
        });
    while (made < bound)
    {
        std::this_thread::yield();
    }
    EXPECT_EQ(made, bound);
    EXPECT_EQ(folder.Read("file"), "");
    kv::platform::HoldRequests(false);
    maker.join();
    std::string const content = Content();
    ASSERT_EQ(content.size(), pieces * 512);
    std::size_t wrong = 0;
    for (std::size_t i = 0; i < pieces; ++i)
    {
        std::string const number = std::to_string(i);
        wrong += content.compare(i * 512, number.size() + 1, number + ".") != 0;
    }
    EXPECT_EQ(wrong, 0u);
}

TEST_F(LinuxWritesBehind, OfManyThreadsLoseNothing)
{
    constexpr int threadCount = 4;
    constexpr int piecesEach = 20'000;
    std::vector<std::thread> threads;
    for (int thread = 0; thread < threadCount; ++thread)
    {
        threads.emplace_back(
            [&, thread]
            {
                Page const own;
                for (int i = 0; i < piecesEach; ++i)
                {
                    own.bytes[0] = static_cast<char>('a' + (i + thread) % 26);
                    ASSERT_TRUE(writes.Write(own.bytes, 1, std::uint64_t(i) * threadCount + std::uint64_t(thread)));
                }
            });
    }
    for (std::thread & thread : threads)
    {
        thread.join();
    }
    std::string const content = Content();
    ASSERT_EQ(content.size(), std::size_t(threadCount) * piecesEach);
    std::size_t wrong = 0;
    for (std::size_t at = 0; at < content.size(); ++at)
    {
        wrong += content[at] != static_cast<char>('a' + (at / threadCount + at % threadCount) % 26);
    }
    EXPECT_EQ(wrong, 0u);
}

TEST_F(LinuxWritesBehind, FailForThemselvesWhereAnotherHasLockedTheFile)
{
    ScopedHandle const other(folder(TEXT("file")), readWrite, shareAll, OPEN_EXISTING);
    ASSERT_TRUE(LockFile(other, 1024, 0, 1, 0));
    std::string const piece(512, 'x');
    {
        Hold const hold;
        for (std::uint64_t i = 0; i < 5; ++i)
        {
            ASSERT_TRUE(Write(piece, i * 512));
        }
    }
    writes.Await();
    ASSERT_TRUE(UnlockFile(other, 1024, 0, 1, 0));
    EXPECT_EQ(Content(), piece + piece + std::string(512, '\0') + piece + piece);
}

TEST_F(LinuxWritesBehind, GoOnInTheParentWhenTheProcessForks)
{
    int result = -1;
    {
        Hold const hold;
        ASSERT_TRUE(Write("abc", 0));
        result = InChild(
            [&]
            {
                kv::platform::HoldRequests(false);
                writes.Await(); // for nothing: it is the parent's
                bool const isNothing = folder.Read("file").empty();
                bool const isTaken = Write("def", 3);
                writes.Await();
                return DWORD{isNothing && isTaken && folder.Read("file") == std::string("\0\0\0def", 6)};
            });
        EXPECT_EQ(folder.Read("file"), std::string("\0\0\0def", 6));
    }
    EXPECT_EQ(result, 1);
    EXPECT_EQ(Content(), "abcdef");
}

TEST_F(LinuxWritesBehind, AreDoneBeforeTheProcessDiesOfASignal)
{
    for (int const signal : {SIGABRT, SIGTRAP, SIGTERM, SIGINT, SIGHUP, SIGQUIT})
    {
        std::fflush(stdout);
        pid_t const child = fork();
        if (child == 0)
        {
            alarm(60);
            Write("the last words", 0);
            raise(signal);
            _exit(0);
        }
        int status = 0;
        ASSERT_EQ(waitpid(child, &status, 0), child);
        ASSERT_TRUE(WIFSIGNALED(status));
        EXPECT_EQ(WTERMSIG(status), signal);
        EXPECT_EQ(folder.Read("file"), "the last words");
        ASSERT_TRUE(Write(std::string(14, '-'), 0));
        EXPECT_EQ(Content(), std::string(14, '-'));
    }
}

TEST_F(LinuxWritesBehind, LetTheProcessFinishAllOtherWritesToo)
{
    constexpr DWORD size = 256 << 10;
    constexpr int count = 16;
    for (int const signal : {SIGABRT, SIGTERM, 0})
    {
        std::fflush(stdout);
        pid_t const child = fork();
        if (child == 0)
        {
            alarm(60);
            std::string const bytes(size, static_cast<char>('a' + signal));
            std::vector<OVERLAPPED> requests(count, At(0));
            for (int i = 0; i < count; ++i)
            {
                requests[std::size_t(i)].Offset = DWORD(i) * size;
                WriteFile(file, bytes.data(), size, nullptr, &requests[std::size_t(i)]);
            }
            signal != 0 ? void(raise(signal)) : std::quick_exit(0);
            _exit(99);
        }
        int status = 0;
        ASSERT_EQ(waitpid(child, &status, 0), child);
        EXPECT_EQ(WIFEXITED(status) ? WEXITSTATUS(status) : WTERMSIG(status), signal)
            << "the signal, or 0 for an end by choice";
        EXPECT_TRUE(folder.Read("file") == std::string(std::size_t{size} * count, static_cast<char>('a' + signal)));
    }
}

TEST_F(LinuxWritesBehind, OfOneGroupAreThereAsAWholeOrNotAtAll)
{
    constexpr std::size_t groupSize = 8 * 512;
    for (int run = 0; run < 5; ++run)
    {
        ASSERT_TRUE(SetFilePointer(file, 0, nullptr, FILE_BEGIN) == 0 && SetEndOfFile(file));
        std::fflush(stdout);
        pid_t const child = fork();
        if (child == 0)
        {
            alarm(60);
            std::atomic<unsigned> groups = 0;
            std::thread maker(
                [&]
                {
                    for (std::uint64_t place = 0;; place += groupSize, ++groups)
                    {
                        kv::platform::WriteGroup const group;
                        for (std::size_t at = 0; at < groupSize; at += 512)
                        {
                            Write(std::string(512, 'x'), place + at);
                        }
                    }
                });
            while (groups < 100)
            {
                std::this_thread::yield();
            }
            run % 2 == 0 ? void(raise(SIGTERM)) : void(pthread_kill(maker.native_handle(), SIGTERM));
            maker.join();
        }
        int status = 0;
        ASSERT_EQ(waitpid(child, &status, 0), child);
        EXPECT_EQ(WTERMSIG(status), SIGTERM);
        std::string const content = folder.Read("file");
        EXPECT_GE(content.size(), 100 * groupSize);
        EXPECT_EQ(content.size() % groupSize, 0u);
        EXPECT_EQ(content.find('\0'), content.npos);
    }
}

#endif
