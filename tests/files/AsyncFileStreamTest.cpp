#include <kvcore/files/AsyncFileStream.h>

#include <mutex>
#include <string_view>
#include <thread>

#include <kvcore/platform/win32.h>

#include <support/AsyncFiles.h>
#include <support/Digest.h>
#include <support/FileErrors.h>
#include <support/ScratchFolder.h>
#include <support/TestBytes.h>

using namespace kv::test;

TEST(BasicAsyncFileStream, BlockingTransfersMoveThePositionByWhatIsAskedFor)
{
    ScratchFolder const folder;
    folder.Write("a", "0123456789");
    AsyncFile stream(folder.Name("a"));
    char data[20];
    EXPECT_EQ(stream.Read(data, 4), 4u);
    EXPECT_EQ(std::string(data, 4), "0123");
    EXPECT_EQ(stream.Read(data, 20), 6u);
    EXPECT_EQ(std::string(data, 6), "456789");
    EXPECT_EQ(stream.SetPosition(0, FileSeek_Current), 24);
    DWORD const atTheEnd = ErrorOf([&] { EXPECT_EQ(stream.Read(data, 5), 0u); });
    EXPECT_TRUE(atTheEnd == 0 || atTheEnd == ERROR_HANDLE_EOF) << atTheEnd;
    EXPECT_EQ(stream.SetPosition(0, FileSeek_Current), 29);
    stream.SetPosition(8, FileSeek_Begin);
    EXPECT_EQ(stream.Write("abcd", 4), 4u);
    EXPECT_EQ(stream.SetPosition(0, FileSeek_Current), 12);
    stream.Close();
    EXPECT_EQ(folder.Read("a"), "01234567abcd");
}

TEST(BasicAsyncFileStream, PositionsFromTheEndCountBackwards)
{
    ScratchFolder const folder;
    folder.Write("a", std::string(100, 'x'));
    AsyncFile stream(folder.Name("a"));
    EXPECT_EQ(stream.SetPosition(10, FileSeek_End), 90);
    EXPECT_EQ(stream.SetPosition(-10, FileSeek_End), 110);
    EXPECT_EQ(stream.SetPosition(5, FileSeek_Current), 115);
    EXPECT_EQ(stream.SetPosition(7, FileSeekMode(3)), 115);
    EXPECT_EQ(stream.SetPosition(-7, FileSeek_Begin), -7);
}

TEST(BasicAsyncFileStream, IssuedTransfersHaveHappenedWhenCloseReturns)
{
    ScratchFolder const folder;
    std::string const content = RandomBytes(512 * 1000);
    AsyncFile stream(folder.Name("a"));
    for (std::size_t offset = 0; offset < content.size(); offset += 512)
    {
        stream.WriteAsync(content.data() + offset, 512);
    }
    stream.Close();
    EXPECT_TRUE(folder.Read("a") == content);

    AsyncFile reader(folder.Name("a"));
    std::string text(content.size(), '\0');
    for (std::size_t offset = text.size(); offset > 0; offset -= 512)
    {
        reader.ReadAsync(text.data() + offset - 512, 512, static_cast<__int64>(offset - 512));
    }
    reader.Flush();
    EXPECT_TRUE(text == content);
    EXPECT_EQ(reader.SetPosition(0, FileSeek_Current), 512);
}

TEST(BasicAsyncFileStream, SmallPiecesOfCommittedMemoryStandAmongAllOthers)
{
    ScratchFolder const folder;
    constexpr std::size_t size = 0x20000;
    std::string const content = RandomBytes(size);
    auto * const memory = static_cast<char *>(VirtualAlloc(nullptr, size, MEM_COMMIT | MEM_RESERVE, PAGE_READWRITE));
    content.copy(memory, size);
    std::string expected;
    {
        AsyncFile stream(folder.Name("a"));
        for (std::size_t i = 0; i < size / 1024; ++i)
        {
            std::string_view const piece(memory + i * 1024, 1 + i % 512);
            std::string_view const large(content.data() + i * 16, 600);
            stream.WriteAsync(piece.data(), DWORD(piece.size()));
            expected += piece;
            if (i % 16 == 3)
            {
                EXPECT_EQ(stream.Write(large.data(), DWORD(large.size())), large.size());
                expected += large;
            }
            if (i % 16 == 7)
            {
                stream.WriteAsync(large.data(), DWORD(large.size()));
                expected += large;
            }
            if (i % 16 == 11)
            {
                stream.Flush();
                EXPECT_TRUE(folder.Read("a") == expected) << i;
            }
        }
        EXPECT_EQ(stream.SetPosition(0, FileSeek_Current), static_cast<__int64>(expected.size()));
        stream.WriteAsync(memory, 5, 3);
        expected.replace(3, 5, memory, 5);
        stream.WriteAsync(memory + 100, 5);
        expected.replace(8, 5, memory + 100, 5);
        EXPECT_EQ(stream.SetPosition(0, FileSeek_Current), 13);
    } // the end waits for all of it
    EXPECT_TRUE(folder.Read("a") == expected);
    BasicAsyncFileStream readOnly(
        folder.Name("a"), FileAccess_Read, FileShare_Read, FileCreation_OpenExisting, FileAttributes_Normal);
    EXPECT_EQ(ErrorOf([&] { readOnly.WriteAsync(memory, 5); }), DWORD(ERROR_ACCESS_DENIED));
    readOnly.Close();
    EXPECT_EQ(ErrorOf([&] { readOnly.WriteAsync(memory, 5); }), DWORD(ERROR_INVALID_HANDLE));
    VirtualFree(memory, 0, MEM_RELEASE);
}

TEST(BasicAsyncFileStream, CanIssueUnderALockOfItsOwner)
{
    ScratchFolder const folder;
    kv::detail::RecursiveLock lock;
    BasicAsyncFileStream stream(lock);
    EXPECT_FALSE(stream.IsOpen());
    stream.Open(
        folder.Name("a"), FileAccess_ReadWrite, FileShare_Read, FileCreation_CreateAlways, FileAttributes_Normal);
    std::thread writer;
    {
        std::lock_guard const guard(lock);
        writer = std::thread([&] { stream.Write("def", 3); }); // comes behind, since it waits for the lock
        stream.WriteAsync("a", 1);
        EXPECT_EQ(stream.Write("bc", 2), 2u);
        EXPECT_EQ(stream.SetPosition(0, FileSeek_Current), 3);
    }
    writer.join();
    stream.Close();
    EXPECT_EQ(folder.Read("a"), "abcdef");
}

TEST(BasicAsyncFileStream, RequestsWithAHandleCompleteInWaits)
{
    ScratchFolder const folder;
    std::string const content = RandomBytes(100000);
    AsyncFile stream(folder.Name("a"));
    HASYNC const written = stream.WriteAsyncEx(content.data(), 100000);
    stream.Wait(written);
    EXPECT_TRUE(stream.HasCompleted(written));
    EXPECT_TRUE(stream.HasCompleted(nullptr));
    EXPECT_EQ(stream.completions, 1);
    std::string text(100000, '\0');
    stream.Wait(stream.ReadAsyncEx(text.data(), 50000, 50000));
    stream.Wait(stream.ReadAsyncEx(text.data() + 50000, 50000, 0));
    EXPECT_TRUE(text == content.substr(50000) + content.substr(0, 50000));
    EXPECT_EQ(stream.completions, 3);
}

TEST(BasicAsyncFileStream, AFailedCompletionIsLatchedUntilCloseOrTheNextCompletion)
{
    ScratchFolder const folder;
    AsyncFile stream(folder.Name("a"));
    char data[10] = {};
    auto const fail = [&]
    {
        stream.nextError = ERROR_WRITE_FAULT;
        stream.WriteAsyncEx(data, 10);
        while (stream.nextError != 0)
        {
            SleepEx(1000, TRUE);
        }
    };
    fail();
    for (int i = 0; i < 2; ++i)
    {
        EXPECT_EQ(ErrorOf([&] { stream.HasCompleted(nullptr); }), DWORD(ERROR_WRITE_FAULT));
        EXPECT_EQ(ErrorOf([&] { stream.WriteAsyncEx(data, 10); }), DWORD(ERROR_WRITE_FAULT));
        EXPECT_EQ(ErrorOf([&] { stream.ReadAsyncEx(data, 10, 5); }), DWORD(ERROR_WRITE_FAULT));
    }
    EXPECT_EQ(stream.SetPosition(0, FileSeek_Begin), 0);
    EXPECT_EQ(stream.Write(data, 10), 10u);
    EXPECT_EQ(stream.Read(data, 0), 0u);
    stream.Flush();
    stream.Close();
    stream.Open(
        folder.Name("a"), FileAccess_ReadWrite, FileShare_Read, FileCreation_OpenExisting, FileAttributes_Normal);
    EXPECT_TRUE(stream.HasCompleted(nullptr));
    EXPECT_EQ(stream.SetPosition(0, FileSeek_Current), 0);
}

TEST(BasicAsyncFileStream, TheLatestCompletionIsTheOneThatCounts)
{
    ScratchFolder const folder;
    AsyncFile stream(folder.Name("a"));
    stream.CompletionRoutine(ERROR_WRITE_FAULT, 0, new OVERLAPPED());
    EXPECT_EQ(ErrorOf([&] { stream.HasCompleted(nullptr); }), DWORD(ERROR_WRITE_FAULT));
    stream.CompletionRoutine(0, 0, new OVERLAPPED());
    EXPECT_TRUE(stream.HasCompleted(nullptr));
}

TEST(BasicAsyncFileStream, ThreadsIssueSideBySide)
{
    ScratchFolder const folder;
    std::string const content = RandomBytes(64 * 4 * 100);
    AsyncFile stream(folder.Name("a"));
    std::vector<std::thread> threads;
    for (std::size_t thread = 0; thread < 4; ++thread)
    {
        threads.emplace_back(
            [&, thread]
            {
                for (std::size_t i = thread * 100; i < thread * 100 + 100; ++i)
                {
                    __int64 const place = static_cast<__int64>(i * 64);
                    if (i % 2 == 0)
                    {
                        stream.WriteAsync(content.data() + i * 64, 64, place);
                    }
                    else
                    {
                        stream.Wait(stream.WriteAsyncEx(content.data() + i * 64, 64, place));
                    }
                }
            });
    }
    for (std::thread & thread : threads)
    {
        thread.join();
    }
    EXPECT_EQ(stream.completions, 200);
    stream.Close();
    EXPECT_TRUE(folder.Read("a") == content);
}

// How each overload counts does not depend on when the system is ready: a completion that is put off leaves the request
// on its way, and the null device is done before the call returns.
TEST(ManagedAsyncFileStream, HoldsTheOwnerOfAWriteOnItsWayUntilTheCompletion)
{
    ScratchFolder const folder;
    std::string const content = RandomBytes(1000);
    Owner first;
    Owner second;
    ManagedFile stream(folder.Name("a"));
    stream.putsOff = true;
    HASYNC const atPosition = stream.WriteAsyncEx(&first, content.data(), 1000);
    HASYNC const atPlace = stream.WriteAsyncEx(&second, content.data(), 1000, 1000);
    ASSERT_TRUE(atPosition != nullptr && atPlace != nullptr);
    EXPECT_EQ(first.Count(), 2u);
    EXPECT_EQ(second.Count(), 2u);
    EXPECT_FALSE(stream.HasCompleted(atPosition));
    stream.AwaitPutOff(2);
    EXPECT_EQ(second.Count(), 2u);
    stream.CompletePutOff();
    EXPECT_EQ(first.Count(), 1u);
    EXPECT_EQ(second.Count(), 1u);
    EXPECT_TRUE(stream.HasCompleted(atPosition));
    EXPECT_TRUE(stream.HasCompleted(atPlace));
    stream.Close();
    EXPECT_TRUE(folder.Read("a") == content + content);
}

TEST(ManagedAsyncFileStream, KeepsTheReferenceOfAFinishedWriteOnlyWithoutAPlace)
{
    Owner first;
    Owner second;
    {
        ManagedFile stream(TEXT("NUL"));
        EXPECT_EQ(stream.WriteAsyncEx(&first, "abc", 3, 0), nullptr);
        EXPECT_EQ(first.Count(), 1u);
        EXPECT_EQ(stream.WriteAsyncEx(&first, "abc", 3), nullptr);
        EXPECT_EQ(first.Count(), 2u) << "nobody will release it";
        EXPECT_EQ(stream.WriteAsyncEx(&second, "abc", 3), nullptr);
        EXPECT_EQ(second.Count(), 2u);
        EXPECT_EQ(stream.completions, 3);
        stream.Close();
        EXPECT_EQ(first.Count(), 2u);
    }
    EXPECT_EQ(first.Count(), 2u) << "dropped, not released";
    EXPECT_EQ(second.Count(), 2u);
    first.Release();
    second.Release();
}

TEST(BasicAsyncFileStream, CloseWaitsForRequestsWithAHandle)
{
    ScratchFolder const folder;
    std::string const content = RandomBytes(200 * 100);
    AsyncFile stream(folder.Name("a"));
    for (std::size_t offset = 0; offset < content.size(); offset += 100)
    {
        stream.WriteAsyncEx(content.data() + offset, 100);
    }
    stream.Close();
    EXPECT_EQ(stream.completions, 200);
    EXPECT_TRUE(folder.Read("a") == content);
    stream.Open(
        folder.Name("a"), FileAccess_ReadWrite, FileShare_Read, FileCreation_OpenExisting, FileAttributes_Normal);
    EXPECT_EQ(stream.SetPosition(0, FileSeek_Current), 0);
}
