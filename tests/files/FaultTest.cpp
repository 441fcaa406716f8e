// The system refuses its n-th call, for every n, under each class of files.

#include <functional>
#include <string>

#include <gtest/gtest.h>

#include <kvcore/files/AsyncFileStream.h>
#include <kvcore/files/FileStreams.h>
#include <kvcore/files/MemoryMappedFile.h>
#include <kvcore/files/MultiFileStream.h>
#include <kvcore/platform/win32.h>
#include <support/PlatformFaults.h>
#include <support/ScratchFolder.h>

namespace
{

using kv::test::PlatformFaults;

constexpr DWORD refusal = ERROR_GEN_FAILURE; // nothing here means anything by it

/// Runs `work` on a fresh folder with every call refused in turn. Each time it must end in the refusal's exception, and
/// leave no handle open; `check` looks at what is on the disk. Gives the number of calls.
int RefuseEachCall(
    std::function<void(ScratchFolder const &)> const & prepare, std::function<void(ScratchFolder const &)> const & work,
    std::function<void(ScratchFolder const &)> const & check = {}, bool everyRefusalShows = true)
{
    for (int n = 1;; ++n)
    {
        SCOPED_TRACE("call " + std::to_string(n));
        ScratchFolder const folder;
        prepare(folder);
        bool thrown = false;
        bool refused;
        {
            PlatformFaults const faults(n, refusal);
            try
            {
                work(folder);
            }
            catch (BasicFileStream::Exception const & failure)
            {
                thrown = true;
                EXPECT_EQ(failure.code, 1);
                EXPECT_EQ(failure.error, refusal);
                EXPECT_EQ(failure.text, String::FromError(refusal));
            }
            refused = faults.HasFailed();
            EXPECT_EQ(faults.OpenHandles(), 0);
        }
        EXPECT_TRUE(thrown == refused || (refused && !everyRefusalShows))
            << "each refusal shows, and nothing else does";
        if (check)
        {
            check(folder);
        }
        if (!refused || testing::Test::HasFailure())
        {
            return n - 1;
        }
    }
}

void Nothing(ScratchFolder const &) {}

/// Bytes of which no two pieces are alike.
std::string Pattern(std::size_t size)
{
    std::string bytes(size, '\0');
    for (std::size_t i = 0; i < size; ++i)
    {
        bytes[i] = static_cast<char>((i * 31 + i / 251) % 256);
    }
    return bytes;
}

} // namespace

TEST(FileFaults, BasicStream)
{
    int const calls = RefuseEachCall(
        [](ScratchFolder const & folder) { folder.Write("a", "0123456789"); },
        [](ScratchFolder const & folder)
        {
            BasicFileStream stream(
                folder.Name("a"), FileAccess_Read | FileAccess_Write, FileShare_None, FileCreation_OpenExisting,
                FileAttributes_Normal);
            char data[4];
            stream.Read(data, 4);
            stream.Write("xy", 2);
            stream.SetPosition(0, FileSeek_Begin);
            EXPECT_EQ(stream.GetSize(), 10);
            EXPECT_EQ(stream.GetPosition(), 0);
            stream.Lock(2, 3);
            stream.Unlock(2, 3);
            DateTime time;
            stream.GetTimes(nullptr, nullptr, &time);
            stream.SetTimes(nullptr, nullptr, &time);
            stream.Flush();
        },
        [](ScratchFolder const & folder)
        {
            std::string const content = folder.Read("a");
            EXPECT_TRUE(content == "0123456789" || content == "0123xy6789") << content;
        });
    EXPECT_EQ(calls, 11);
}

TEST(FileFaults, WholeFile)
{
    std::string const bytes = Pattern(0x100000 + 5000);
    int const calls = RefuseEachCall(
        [&](ScratchFolder const & folder) { folder.Write("a", bytes); },
        [&](ScratchFolder const & folder)
        {
            BasicFileStream stream(
                folder.Name("a"), FileAccess_Read, FileShare_Read, FileCreation_OpenExisting, FileAttributes_Normal);
            std::string content;
            EXPECT_EQ(stream.Read(content), bytes.size());
            EXPECT_TRUE(content == bytes);
        },
        {}, false); // whether the file tells how much is left is only a hint
    EXPECT_GE(calls, 3);
}

TEST(FileFaults, OutputStreamWritesNothingTwice)
{
    std::string const bytes = Pattern(20'000);
    for (bool const append : {false, true})
    {
        int const calls = RefuseEachCall(
            Nothing,
            [&](ScratchFolder const & folder)
            {
                FileOutputStream stream(folder.Name("a"), append);
                std::size_t at = 0;
                for (int const size : {100, 4096, 1, 9000, 2000, 4803})
                {
                    stream.Write(bytes.data() + at, size);
                    at += static_cast<std::size_t>(size);
                }
            },
            [&](ScratchFolder const & folder)
            {
                if (std::filesystem::exists(folder / "a"))
                {
                    std::string const content = folder.Read("a");
                    // What was written is a beginning, but for the gap that a refused buffer leaves none of.
                    EXPECT_LE(content.size(), bytes.size());
                    EXPECT_TRUE(content == bytes.substr(0, content.size())) << content.size();
                }
            });
        EXPECT_GE(calls, 6);
    }
}

TEST(FileFaults, WhatWasFlushedIsThere)
{
    std::string const bytes = Pattern(10'000);
    bool flushed = false;
    RefuseEachCall(
        [&](ScratchFolder const &) { flushed = false; },
        [&](ScratchFolder const & folder)
        {
            FileOutputStream stream(folder.Name("a"), false);
            stream.Write(bytes.data(), 5'000);
            stream.Flush();
            flushed = true;
            stream.Write(bytes.data() + 5'000, 5'000);
        },
        [&](ScratchFolder const & folder)
        {
            if (flushed)
            {
                EXPECT_TRUE(folder.Read("a").substr(0, 5'000) == bytes.substr(0, 5'000));
            }
        });
    EXPECT_TRUE(flushed);
}

TEST(FileFaults, InputStream)
{
    std::string const bytes = Pattern(20'000);
    int const calls = RefuseEachCall(
        [&](ScratchFolder const & folder) { folder.Write("a", bytes); },
        [&](ScratchFolder const & folder)
        {
            FileInputStream stream(folder.Name("a"));
            std::string content(bytes.size(), '\0');
            std::size_t at = 0;
            for (int const size : {10, 4096, 9000, 894, 6000})
            {
                stream.Read(content.data() + at, size);
                at += static_cast<std::size_t>(size);
            }
            EXPECT_TRUE(content == bytes);
        });
    EXPECT_GE(calls, 4);
}

TEST(FileFaults, AsynchronousStream)
{
    std::string const bytes = Pattern(3'000);
    int const calls = RefuseEachCall(
        Nothing,
        [&](ScratchFolder const & folder)
        {
            std::string content(3'000, '\0'); // outlives the stream, whose requests may be on their way at a failure
            BasicAsyncFileStream stream(
                folder.Name("a"), FileAccess_Read | FileAccess_Write, FileShare_None, FileCreation_CreateAlways,
                FileAttributes_Normal);
            stream.WriteAsync(bytes.data(), 1'000);
            stream.Wait(stream.WriteAsyncEx(bytes.data() + 1'000, 1'000));
            EXPECT_EQ(stream.Write(bytes.data() + 2'000, 1'000), 1'000u);
            stream.Flush();
            stream.ReadAsync(content.data(), 1'000, 0);
            stream.Wait(stream.ReadAsyncEx(content.data() + 1'000, 1'000));
            EXPECT_EQ(stream.Read(content.data() + 2'000, 1'000), 1'000u);
            stream.Close();
            EXPECT_TRUE(content == bytes);
        },
        [&](ScratchFolder const & folder)
        {
            if (std::filesystem::exists(folder / "a"))
            {
                std::string const content = folder.Read("a");
                EXPECT_TRUE(content == bytes.substr(0, content.size())) << content.size();
            }
        });
    EXPECT_EQ(calls, 8);
}

TEST(FileFaults, MultiFileStream)
{
    int const calls = RefuseEachCall(
        [](ScratchFolder const & folder)
        {
            folder.Write("a", "abc");
            folder.Write("b", "def");
        },
        [](ScratchFolder const & folder)
        {
            BasicMultiFileStream stream(
                FileAccess_Read | FileAccess_Write, FileShare_None, FileCreation_OpenExisting, FileAttributes_Normal,
                false);
            stream.AddFile(folder.Name("a"));
            stream.AddFile(folder.Name("b"));
            char data[6];
            EXPECT_EQ(stream.Read(data, 6), 6u);
            stream.SetPosition(2);
            EXPECT_EQ(stream.Write("XY", 2), 2u);
        },
        [](ScratchFolder const & folder)
        {
            std::string const content = folder.Read("a") + folder.Read("b");
            EXPECT_TRUE(content == "abcdef" || content == "abXdef" || content == "abXYef") << content;
        });
    EXPECT_GE(calls, 12);
}

TEST(FileFaults, MemoryMappedFileFailsSoftly)
{
    for (int n = 1; n <= 4; ++n)
    {
        ScratchFolder const folder;
        folder.Write("a", "0123456789");
        PlatformFaults const faults(n, refusal);
        {
            MemoryMappedFileForRead file(folder.Name("a"));
            // Open, size and mapping: an empty object. The view: no view, and the size still known.
            EXPECT_EQ(file.getFileSize(), n < 4 ? 0 : 10) << n;
            EXPECT_EQ(file.map(0, 5), -1) << n;
            EXPECT_EQ(file.getMemAdr(), nullptr);
            EXPECT_TRUE(faults.HasFailed());
        }
        EXPECT_EQ(faults.OpenHandles(), 0) << n;
    }
}

TEST(FileFaults, AFullBufferWaitsForTheNextByte)
{
    ScratchFolder const folder;
    PlatformFaults const faults;
    std::string const bytes(4096, 'x');
    {
        FileOutputStream stream(folder.Name("a"), false);
        stream.Write(bytes.data(), 4096);
        EXPECT_EQ(faults.Count("WriteFile"), 0);
        stream.Write(bytes.data(), 1);
        EXPECT_EQ(faults.Count("WriteFile"), 1);
    }
    EXPECT_EQ(faults.Count("WriteFile"), 2);
    EXPECT_EQ(faults.Count("FlushFileBuffers"), 1);
}

TEST(FileFaults, NoBytesAreNoCalls)
{
    ScratchFolder const folder;
    folder.Write("a", "x");
    PlatformFaults const faults;
    BasicFileStream stream(
        folder.Name("a"), FileAccess_Read | FileAccess_Write, FileShare_None, FileCreation_OpenExisting,
        FileAttributes_Normal);
    char one;
    EXPECT_EQ(stream.Read(&one, 0), 0u);
    EXPECT_EQ(stream.Write(&one, 0), 0u);
    EXPECT_EQ(faults.Count("ReadFile") + faults.Count("WriteFile"), 0);
}

namespace
{

/// Writes three pieces by `issue`, of which the second is refused once, and gives how often the system was asked.
int IssuesWithOneRefusal(DWORD error, char const * call, void (*issue)(BasicAsyncFileStream &, char const *))
{
    ScratchFolder const folder;
    std::string const bytes = Pattern(3'000);
    int issues = 0;
    {
        // The call to open the file comes first, then the pieces.
        PlatformFaults const faults(3, error);
        BasicAsyncFileStream stream(
            folder.Name("a"), FileAccess_Write, FileShare_None, FileCreation_CreateAlways, FileAttributes_Normal);
        for (std::size_t at = 0; at < bytes.size(); at += 1'000)
        {
            issue(stream, bytes.data() + at);
        }
        stream.Close();
        EXPECT_TRUE(faults.HasFailed());
        issues = faults.Count(call);
    }
    EXPECT_TRUE(folder.Read("a") == bytes) << "each piece in its place, once";
    return issues;
}

} // namespace

TEST(FileFaults, RequestsThatAreTooManyAreIssuedAgain)
{
    for (DWORD const error : {DWORD(ERROR_NOT_ENOUGH_MEMORY), DWORD(ERROR_INVALID_USER_BUFFER)})
    {
        EXPECT_EQ(
            IssuesWithOneRefusal(
                error, "WriteFile",
                [](BasicAsyncFileStream & stream, char const * data) { stream.WriteAsync(data, 1'000); }),
            4);
        EXPECT_EQ(
            IssuesWithOneRefusal(
                error, "WriteFileEx",
                [](BasicAsyncFileStream & stream, char const * data) { stream.WriteAsyncEx(data, 1'000); }),
            4);
    }
}

TEST(FileFaults, AFullDiskIsSilentWithoutACompletionRoutine)
{
    ScratchFolder const folder;
    PlatformFaults const faults(2, ERROR_DISK_FULL);
    BasicAsyncFileStream stream(
        folder.Name("a"), FileAccess_Write, FileShare_None, FileCreation_CreateAlways, FileAttributes_Normal);
    stream.WriteAsync("abc", 3);
    EXPECT_TRUE(faults.HasFailed());
    stream.WriteAsync("def", 3);
    stream.Close();
    EXPECT_EQ(folder.Read("a"), std::string("\0\0\0def", 6)) << "the position has gone on";
}

TEST(FileFaults, AFullDiskShowsInWhatABlockingWriteGives)
{
    ScratchFolder const folder;
    PlatformFaults const faults(2, ERROR_DISK_FULL);
    BasicAsyncFileStream stream(
        folder.Name("a"), FileAccess_Write, FileShare_None, FileCreation_CreateAlways, FileAttributes_Normal);
    EXPECT_EQ(stream.Write("abc", 3), 0u);
    EXPECT_EQ(stream.Write("def", 3), 3u);
    stream.Close();
    EXPECT_EQ(folder.Read("a"), std::string("\0\0\0def", 6));
}

TEST(FileFaults, AnIssueThatFailsLeavesTheStreamAndItsPositionAsTheyWere)
{
    ScratchFolder const folder;
    PlatformFaults const faults(2, refusal);
    BasicAsyncFileStream stream(
        folder.Name("a"), FileAccess_Write, FileShare_None, FileCreation_CreateAlways, FileAttributes_Normal);
    EXPECT_THROW(stream.WriteAsyncEx("abc", 3), BasicFileStream::Exception);
    stream.Wait(stream.WriteAsyncEx("def", 3));
    stream.Close();
    EXPECT_EQ(folder.Read("a"), "def");
}
