#include <kvcore/files/MultiFileStream.h>

#include <memory>

#include <kvcore/platform/win32.h>

#include <support/FileErrors.h>
#include <support/PlatformFaults.h>
#include <support/ScratchFolder.h>
#include <support/TestBytes.h>

using namespace kv::test;

namespace
{

/// Files that are full early.
class SmallFiles : public BasicMultiFileStream
{
public:
    SmallFiles(__int64 size, bool asynchronous)
        : BasicMultiFileStream(
              FileAccess_ReadWrite, FileShare_Read, FileCreation_OpenAlways, FileAttributes_Normal, asynchronous)
    {
        maxFileSize = size;
    }
};

} // namespace

class MultiFileStream : public testing::TestWithParam<bool>
{
protected:
    void Add(std::string const & name, std::string const & content)
    {
        folder.Write(name, content);
        stream.AddFile(folder.Name(name));
    }
    std::string ReadFrom(__int64 position, DWORD count)
    {
        stream.SetPosition(position);
        std::string text(count, '\0');
        text.resize(stream.Read(text.data(), count));
        return text;
    }

    ScratchFolder folder;
    std::unique_ptr<BasicMultiFileStream> const owned = std::make_unique<BasicMultiFileStream>(
        FileAccess_ReadWrite, FileShare_Read | FileShare_Write, FileCreation_OpenAlways, FileAttributes_Normal,
        GetParam());
    BasicMultiFileStream & stream = *owned;
};

TEST_P(MultiFileStream, WithoutFilesIsEmptyAndRefuses)
{
    EXPECT_EQ(stream.GetSize(), 0);
    char data[1];
    EXPECT_THROW(stream.Read(data, 1), BasicFileStream::Exception);
    EXPECT_THROW(stream.Write(data, 1), BasicFileStream::Exception);
    EXPECT_THROW(stream.SetPosition(0), BasicFileStream::Exception);
}

TEST_P(MultiFileStream, ReadsAcrossTheEndsOfFiles)
{
    Add("a", "0123");
    Add("empty", "");
    Add("b", "4567");
    Add("c", "89");
    EXPECT_EQ(stream.GetSize(), 10);
    EXPECT_EQ(ReadFrom(0, 10), "0123456789");
    EXPECT_EQ(ReadFrom(0, 100), "0123456789");
    EXPECT_EQ(ReadFrom(2, 4), "2345");
    EXPECT_EQ(ReadFrom(3, 6), "345678");
    EXPECT_EQ(ReadFrom(4, 4), "4567");
    EXPECT_EQ(ReadFrom(10, 5), "");
    EXPECT_EQ(ReadFrom(15, 5), "");
    EXPECT_EQ(ReadFrom(5, 0), "");
}

TEST_P(MultiFileStream, OverwritesInTheMiddleAndGrowsAtTheEnd)
{
    Add("a", "0123");
    Add("b", "4567");
    stream.SetPosition(2);
    EXPECT_EQ(stream.Write("abcdefgh", 8), 8u);
    EXPECT_EQ(stream.GetSize(), 10);
    EXPECT_EQ(stream.Write("ij", 2), 2u);
    EXPECT_EQ(stream.Write("", 0), 0u);
    EXPECT_EQ(stream.GetSize(), 12);
    stream.Close();
    EXPECT_EQ(stream.GetSize(), 12);
    EXPECT_EQ(folder.Read("a"), "01ab");
    EXPECT_EQ(folder.Read("b"), "cdefghij");
}

TEST_P(MultiFileStream, ResetForgetsTheFilesAndKeepsThePosition)
{
    Add("a", "0123");
    WinStringArray<String> paths{TEXT("before")};
    stream.GetFiles(paths);
    EXPECT_EQ(paths, (WinStringArray<String>{TEXT("before"), folder.Name("a")}));
    stream.SetPosition(3);
    stream.Reset();
    EXPECT_EQ(stream.GetSize(), 0);
    paths.clear();
    stream.GetFiles(paths);
    EXPECT_TRUE(paths.empty());
    Add("b", "4567");
    char data[4];
    EXPECT_EQ(stream.Read(data, 4), 1u);
    EXPECT_EQ(data[0], '7');
}

TEST_P(MultiFileStream, MakesAnotherFileWhenTheLastOneIsFull)
{
    SmallFiles small(5, GetParam());
    small.AddFile(folder.Name("first"));
    EXPECT_EQ(small.Write("0123456789AB", 12), 12u);
    EXPECT_EQ(small.GetSize(), 12);
    WinStringArray<String> paths;
    small.GetFiles(paths);
    small.Close();
    std::vector<std::string> contents;
    for (String const & path : paths)
    {
        EXPECT_EQ(File::GetDirname(path), File::GetDirname(folder.Name("first")));
        contents.push_back(folder.Read(File::GetBasename(path, String()).Utf8()));
    }
    EXPECT_EQ(contents, (std::vector<std::string>{"01234", "56789", "AB"}));
}

TEST_P(MultiFileStream, AddsNoFileInWhichThePositionHasNoRoomEither)
{
    struct
    {
        char const * what;
        __int64 limit;
        __int64 position;
        DWORD written;
        std::size_t files;
    } const rows[] = {
        {"no room at all, but for what is there", 0, 0, 10, 2},
        {"no room at all, at the end", 0, 10, 0, 1},
        {"within a first file above the limit", 4, 4, 12, 3},
        {"behind a first file above the limit", 4, 10, 12, 4},
        {"the limit behind the end", 4, 14, 0, 1},
        {"far behind the end", 4, 1000, 0, 1},
        {"less than the limit behind the end", 4, 13, 12, 5},
        {"a limit below zero", -1, 10, 0, 1},
    };
    for (auto const & row : rows)
    {
        SCOPED_TRACE(row.what);
        ScratchFolder const fresh;
        fresh.Write("first", "0123456789");
        SmallFiles small(row.limit, GetParam());
        small.AddFile(fresh.Name("first"));
        small.SetPosition(row.position);
        EXPECT_EQ(small.Write("abcdefghijkl", 12), row.written);
        WinStringArray<String> paths;
        small.GetFiles(paths);
        EXPECT_EQ(paths.size(), row.files);
        small.Close();
    }
}

TEST_P(MultiFileStream, ReadingUpToAFilesEndLeavesTheNextFileAlone)
{
    Add("a", "0123");
    folder.Write("b", "456789");
    stream.AddFile(folder.Name("b"));
    stream.SetPosition(6);
    EXPECT_EQ(ReadFrom(0, 4), "0123");
    EXPECT_EQ(ReadFrom(4, 2), "45");
}

TEST_P(MultiFileStream, ClosedFilesKeepTheirPlaceAndRefuse)
{
    Add("a", "0123");
    stream.Close();
    EXPECT_EQ(stream.GetSize(), 4);
    char data[1];
    EXPECT_THROW(stream.Read(data, 1), BasicFileStream::Exception);
    stream.Reset();
    EXPECT_EQ(stream.GetSize(), 0);
}

TEST(MultiFileStreams, WhatIsCutShorterMeanwhileEndsThere)
{
    ScratchFolder const folder;
    folder.Write("a", "abcdef");
    folder.Write("b", "ghi");
    BasicMultiFileStream stream(
        FileAccess_Read, FileShare_Read | FileShare_Write, FileCreation_OpenExisting, FileAttributes_Normal, false);
    stream.AddFile(folder.Name("a"));
    stream.AddFile(folder.Name("b"));
    folder.Write("a", "ab");
    char bytes[9];
    EXPECT_EQ(stream.Read(bytes, 9), 2u);
    EXPECT_EQ(std::string(bytes, 2), "ab");
    EXPECT_EQ(stream.Read(bytes, 9), 0u) << "no byte of the next file comes in their place";
}

INSTANTIATE_TEST_SUITE_P(BothKinds, MultiFileStream, testing::Bool());

namespace
{

struct ThreeAsyncFiles : BasicMultiFileStream
{
    explicit ThreeAsyncFiles(ScratchFolder const & folder)
        : BasicMultiFileStream(
              FileAccess_ReadWrite, FileShare_None, FileCreation_CreateAlways, FileAttributes_Normal, true)
    {
        for (char const * const name : {"a", "b", "c"})
        {
            AddFile(folder.Name(name));
        }
    }
};

} // namespace

TEST(MultiFileStreams, ResetClosesAllFilesThoughTheFlushOfSomeFails)
{
    ScratchFolder const folder;
    ThreeAsyncFiles stream(folder);
    stream.Write("abc", 3);
    {
        PlatformFaults const faults(1, ERROR_WRITE_FAULT);
        EXPECT_EQ(ErrorOf([&] { stream.Reset(); }), DWORD(ERROR_WRITE_FAULT));
        EXPECT_TRUE(faults.HasFailed());
        EXPECT_EQ(faults.Count("FlushFileBuffers"), 3);
        EXPECT_EQ(faults.OpenHandles(), -3);
    }
    WinStringArray<String> paths;
    stream.GetFiles(paths);
    EXPECT_TRUE(paths.empty());
    EXPECT_EQ(stream.GetSize(), 0);
    stream.Reset();
}

TEST(MultiFileStreams, TheDestructorTellsAFailureUnlessOneIsOnItsWay)
{
    ScratchFolder const folder;
    {
        std::unique_ptr<PlatformFaults> faults;
        EXPECT_EQ(
            ErrorOf(
                [&]
                {
                    ThreeAsyncFiles const stream(folder);
                    faults = std::make_unique<PlatformFaults>(1, ERROR_WRITE_FAULT);
                }),
            DWORD(ERROR_WRITE_FAULT));
        EXPECT_EQ(faults->OpenHandles(), -3);
    }
    std::unique_ptr<PlatformFaults> faults;
    try
    {
        ThreeAsyncFiles const stream(folder);
        faults = std::make_unique<PlatformFaults>(1, ERROR_WRITE_FAULT);
        throw 42;
    }
    catch (int thrown)
    {
        EXPECT_EQ(thrown, 42);
    }
    EXPECT_TRUE(faults->HasFailed());
    EXPECT_EQ(faults->OpenHandles(), -3);
}
