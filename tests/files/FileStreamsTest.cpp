#include <kvcore/files/FileStreams.h>

#include <algorithm>
#include <filesystem>
#include <functional>
#include <memory>
#include <type_traits>

#include <kvcore/platform/win32.h>

#include <support/Digest.h>
#include <support/FileErrors.h>
#include <support/ScratchFolder.h>
#include <support/StreamFailure.h>
#include <support/TestBytes.h>

using namespace kv::test;

static_assert(sizeof(FileAccessMode) == 4 && sizeof(FileShareMode) == 4 && sizeof(FileCreationMode) == 4);
static_assert(sizeof(FileAttributes) == 4 && sizeof(FileSeekMode) == 4);
static_assert(std::is_base_of_v<StreamBase::Exception, BasicFileStream::Exception>);
static_assert(std::is_copy_constructible_v<FileInputStream> && std::is_copy_assignable_v<FileInputStream>);
static_assert(std::is_copy_constructible_v<FileOutputStream> && std::is_copy_assignable_v<FileOutputStream>);

namespace
{

constexpr char endOfFile[] = "5: Unexpected end of file";

/// Opens for reading and writing, sharing all.
struct PlainFile : BasicFileStream
{
    explicit PlainFile(String const & file, FileCreationMode creation = FileCreation_OpenAlways)
        : BasicFileStream(
              file, FileAccess_ReadWrite, FileShare_Read | FileShare_Write | FileShare_Delete, creation,
              FileAttributes_Normal)
    {
    }
    using BasicFileStream::GetHandle;
};

/// Counts the virtual calls, and fails at one of them.
struct CountingFile : PlainFile
{
    using BasicFileStream::Read;
    using BasicFileStream::Write;
    using PlainFile::PlainFile;

    DWORD Read(void * data, DWORD count) override
    {
        asked.push_back(count);
        if (asked.size() == failAt)
        {
            SetLastError(ERROR_READ_FAULT);
            ThrowException();
        }
        if (onRead)
        {
            onRead();
        }
        return BasicFileStream::Read(data, count);
    }
    DWORD Write(void const * data, DWORD count) override
    {
        written.push_back(count);
        return BasicFileStream::Write(data, count);
    }

    std::vector<DWORD> asked;
    std::vector<DWORD> written;
    std::size_t failAt = 0;
    std::function<void()> onRead;
};

/// A buffered stream in both directions, whose buffer nobody flushes.
struct PlainBuffered : BufferedFileStream
{
    explicit PlainBuffered(String const & file)
        : BufferedFileStream(
              file, FileAccess_ReadWrite, FileShare_Read | FileShare_Write, FileCreation_OpenAlways,
              FileAttributes_Normal)
    {
    }
};

} // namespace

TEST(BasicFileStream, TheEnumeratorsAreTheSystemsOwnValues)
{
    EXPECT_EQ(DWORD(FileAccess_Read), DWORD(GENERIC_READ));
    EXPECT_EQ(DWORD(FileAccess_Write), DWORD(GENERIC_WRITE));
    EXPECT_EQ(DWORD(FileShare_Read), DWORD(FILE_SHARE_READ));
    EXPECT_EQ(DWORD(FileShare_Write), DWORD(FILE_SHARE_WRITE));
    EXPECT_EQ(DWORD(FileCreation_CreateNew), DWORD(CREATE_NEW));
    EXPECT_EQ(DWORD(FileCreation_CreateAlways), DWORD(CREATE_ALWAYS));
    EXPECT_EQ(DWORD(FileCreation_OpenExisting), DWORD(OPEN_EXISTING));
    EXPECT_EQ(DWORD(FileCreation_OpenAlways), DWORD(OPEN_ALWAYS));
    EXPECT_EQ(DWORD(FileCreation_TruncateExisting), DWORD(TRUNCATE_EXISTING));
    EXPECT_EQ(DWORD(FileAttributes_Normal), DWORD(FILE_ATTRIBUTE_NORMAL));
    EXPECT_EQ(DWORD(FileAttributes_SequentialScan), DWORD(FILE_FLAG_SEQUENTIAL_SCAN));
    EXPECT_EQ(DWORD(FileAttributes_Overlapped), DWORD(FILE_FLAG_OVERLAPPED));
    EXPECT_EQ(DWORD(FileSeek_Begin), DWORD(FILE_BEGIN));
    EXPECT_EQ(DWORD(FileSeek_Current), DWORD(FILE_CURRENT));
    EXPECT_EQ(DWORD(FileSeek_End), DWORD(FILE_END));
}

TEST(BasicFileStream, IsClosedAndWithoutAPathAtFirst)
{
    BasicFileStream stream;
    EXPECT_FALSE(stream.IsOpen());
    EXPECT_EQ(stream.GetFilePath(), TEXT(""));
    stream.Close();
    EXPECT_FALSE(stream.IsOpen());
}

TEST(BasicFileStream, OpensClosesAndOpensAgain)
{
    ScratchFolder const folder;
    folder.Write("a", "first");
    folder.Write("b", "second");
    BasicFileStream stream;
    for (std::string const name : {"a", "b", "a"})
    {
        stream.Open(
            folder.Name(name), FileAccess_Read, FileShare_Read, FileCreation_OpenExisting, FileAttributes_Normal);
        EXPECT_TRUE(stream.IsOpen());
        EXPECT_EQ(stream.GetFilePath(), folder.Name(name));
        std::string content;
        EXPECT_EQ(stream.Read(content), folder.Read(name).size());
        EXPECT_EQ(content, folder.Read(name));
        stream.Close();
        EXPECT_FALSE(stream.IsOpen());
        EXPECT_EQ(stream.GetFilePath(), folder.Name(name));
    }
}

TEST(BasicFileStream, AFailedOpenKeepsThePathAndTellsTheSystemsCode)
{
    ScratchFolder const folder;
    BasicFileStream stream;
    auto const open = [&](String const & path)
    {
        return ErrorOf(
            [&]
            { stream.Open(path, FileAccess_Read, FileShare_Read, FileCreation_OpenExisting, FileAttributes_Normal); });
    };
    EXPECT_EQ(open(folder.Name("missing")), DWORD(ERROR_FILE_NOT_FOUND));
    EXPECT_EQ(stream.GetFilePath(), folder.Name("missing"));
    EXPECT_FALSE(stream.IsOpen());
    EXPECT_EQ(open(folder.Name("missing\\file")), DWORD(ERROR_PATH_NOT_FOUND));
    EXPECT_EQ(open(folder.Name()), DWORD(ERROR_ACCESS_DENIED)) << "a directory";
    EXPECT_EQ(
        ErrorOf(
            [&]
            {
                BasicFileStream(
                    folder.Name("missing"), FileAccess_Read, FileShare_Read, FileCreation_OpenExisting,
                    FileAttributes_Normal);
            }),
        DWORD(ERROR_FILE_NOT_FOUND));
    PlainFile const file(folder.Name("a"));
    EXPECT_EQ(ErrorOf([&] { FileInputStream(folder.Name("a")); }), DWORD(ERROR_SHARING_VIOLATION));
}

TEST(BasicFileStream, OpeningAnOpenStreamThrowsAndLeavesTheFirstFileOpen)
{
    ScratchFolder const folder;
    folder.Write("a", "first");
    folder.Write("b", "second");
    PlainFile stream(folder.Name("a"));
    EXPECT_EQ(
        ErrorOf(
            [&] {
                stream.Open(
                    folder.Name("b"), FileAccess_Read, FileShare_Read, FileCreation_OpenExisting,
                    FileAttributes_Normal);
            }),
        DWORD(ERROR_BUSY));
    EXPECT_TRUE(stream.IsOpen());
    EXPECT_EQ(stream.GetFilePath(), folder.Name("a"));
    std::string content;
    stream.Read(content);
    EXPECT_EQ(content, "first");
}

TEST(BasicFileStream, EveryOperationOfAClosedStreamReportsTheHandle)
{
    BasicFileStream stream;
    char one = 0;
    DateTime time;
    std::string text = "x";
    DWORD const expected = ERROR_INVALID_HANDLE;
    EXPECT_EQ(ErrorOf([&] { stream.Read(&one, 1); }), expected);
    EXPECT_EQ(ErrorOf([&] { stream.Write(&one, 1); }), expected);
    EXPECT_EQ(ErrorOf([&] { stream.Write(text); }), expected);
    EXPECT_EQ(ErrorOf([&] { stream.Read(text, 5); }), expected);
    EXPECT_EQ(ErrorOf([&] { stream.Read(text); }), expected);
    EXPECT_EQ(ErrorOf([&] { stream.Flush(); }), expected);
    EXPECT_EQ(ErrorOf([&] { stream.GetSize(); }), expected);
    EXPECT_EQ(ErrorOf([&] { stream.SetPosition(0, FileSeek_Begin); }), expected);
    EXPECT_EQ(ErrorOf([&] { stream.GetPosition(); }), expected);
    EXPECT_EQ(ErrorOf([&] { stream.Lock(0, 1); }), expected);
    EXPECT_EQ(ErrorOf([&] { stream.Unlock(0, 1); }), expected);
    EXPECT_EQ(ErrorOf([&] { stream.Lock(); }), expected);
    EXPECT_EQ(ErrorOf([&] { stream.Unlock(); }), expected);
    EXPECT_EQ(ErrorOf([&] { stream.GetTimes(&time, nullptr, nullptr); }), expected);
    EXPECT_EQ(ErrorOf([&] { stream.SetTimes(&time, nullptr, nullptr); }), expected);
    EXPECT_EQ(stream.Read(nullptr, 0), 0u);
    EXPECT_EQ(stream.Write(nullptr, 0), 0u);
}

TEST(BasicFileStream, ReadsGiveWhatThereIsAndNothingAtTheEnd)
{
    ScratchFolder const folder;
    folder.Write("a", "0123456789");
    PlainFile stream(folder.Name("a"));
    char data[16];
    EXPECT_EQ(stream.Read(data, 4), 4u);
    EXPECT_EQ(std::string(data, 4), "0123");
    EXPECT_EQ(stream.Read(data, 16), 6u);
    EXPECT_EQ(std::string(data, 6), "456789");
    EXPECT_EQ(stream.Read(data, 16), 0u);
    EXPECT_EQ(stream.SetPosition(-3, FileSeek_End), 7);
    EXPECT_EQ(stream.GetPosition(), 7);
    EXPECT_EQ(stream.Read(data, 16), 3u);
}

TEST(BasicFileStream, PositionsCountFromTheThreePlaces)
{
    ScratchFolder const folder;
    folder.Write("a", "0123456789");
    PlainFile stream(folder.Name("a"));
    EXPECT_EQ(stream.SetPosition(4, FileSeek_Begin), 4);
    EXPECT_EQ(stream.SetPosition(3, FileSeek_Current), 7);
    EXPECT_EQ(stream.SetPosition(-2, FileSeek_Current), 5);
    EXPECT_EQ(stream.SetPosition(2, FileSeek_End), 12);
    EXPECT_EQ(stream.GetPosition(), 12);
    EXPECT_EQ(stream.SetPosition(0x123456789A, FileSeek_Begin), 0x123456789A);
    EXPECT_EQ(ErrorOf([&] { stream.SetPosition(-1, FileSeek_Begin); }), DWORD(ERROR_NEGATIVE_SEEK));
    EXPECT_EQ(ErrorOf([&] { stream.SetPosition(0, FileSeekMode(3)); }), DWORD(ERROR_INVALID_PARAMETER));
    EXPECT_EQ(stream.GetPosition(), 0x123456789A);
}

TEST(BasicFileStream, WritesBehindTheEndLeaveZeros)
{
    ScratchFolder const folder;
    PlainFile stream(folder.Name("a"));
    stream.SetPosition(3, FileSeek_Begin);
    EXPECT_EQ(stream.Write(std::string("ab")), 2u);
    EXPECT_EQ(stream.GetSize(), 5);
    stream.Flush();
    stream.Close();
    EXPECT_EQ(folder.Read("a"), Bytes("\0\0\0ab"));
}

TEST(BasicFileStream, StringsAreReadUpToACountAndWrittenWithoutATerminator)
{
    ScratchFolder const folder;
    CountingFile stream(folder.Name("a"));
    EXPECT_EQ(stream.Write(std::string("0123456789")), 10u);
    EXPECT_EQ(stream.Write(std::string()), 0u);
    EXPECT_EQ(stream.written, (std::vector<DWORD>{10, 0}));
    stream.SetPosition(0, FileSeek_Begin);
    std::string text = "old";
    EXPECT_EQ(stream.Read(text, 4), 4u);
    EXPECT_EQ(text, "0123");
    EXPECT_EQ(stream.Read(text, 100), 6u);
    EXPECT_EQ(text, "456789");
    EXPECT_EQ(stream.Read(text, 5), 0u);
    EXPECT_EQ(text, "");
    EXPECT_EQ(stream.asked, (std::vector<DWORD>{4, 100, 5}));
}

TEST(BasicFileStream, AWholeFileIsReadInStepsUpToTheFirstShortOne)
{
    constexpr std::size_t step = 0x100000;
    ScratchFolder const folder;
    for (std::size_t const size : {std::size_t(0), std::size_t(1), step - 1, step, step + 1, 2 * step, 3 * step + 17})
    {
        std::string const content = RandomBytes(size);
        folder.Write("a", content);
        CountingFile stream(folder.Name("a"));
        std::string text = "old";
        EXPECT_EQ(stream.Read(text), size);
        EXPECT_TRUE(text == content) << size;
        EXPECT_EQ(stream.asked, std::vector<DWORD>(size / step + 1, DWORD(step))) << size;
    }
}

TEST(BasicFileStream, AWholeFileIsReadFromThePosition)
{
    ScratchFolder const folder;
    std::string const content = RandomBytes(0x280000);
    folder.Write("a", content);
    PlainFile stream(folder.Name("a"));
    stream.SetPosition(0x123456, FileSeek_Begin);
    std::string text;
    EXPECT_EQ(stream.Read(text), content.size() - 0x123456);
    EXPECT_TRUE(text == content.substr(0x123456));
}

TEST(BasicFileStream, AFailureInAWholeFileKeepsTheStepsBefore)
{
    ScratchFolder const folder;
    std::string const content = RandomBytes(0x280000);
    folder.Write("a", content);
    for (std::size_t failAt = 1; failAt <= 3; ++failAt)
    {
        CountingFile stream(folder.Name("a"));
        stream.failAt = failAt;
        std::string text = "old";
        EXPECT_EQ(ErrorOf([&] { stream.Read(text); }), DWORD(ERROR_READ_FAULT));
        EXPECT_TRUE(text == content.substr(0, (failAt - 1) * 0x100000)) << failAt;
    }
}

TEST(BasicFileStream, AFileThatIsCutOrGrowsWhileItIsReadGivesWhatIsThere)
{
    ScratchFolder const folder;
    std::string const content = RandomBytes(0x300000);
    for (std::size_t const size :
         {std::size_t(0x180000), std::size_t(0x100000), std::size_t(0x10), std::size_t(0x480000)})
    {
        folder.Write("a", content);
        CountingFile stream(folder.Name("a"));
        stream.onRead = [&]
        {
            if (stream.asked.size() == 2)
            {
                std::filesystem::resize_file(folder / "a", size);
            }
        };
        std::string text;
        std::string expected = content;
        expected.resize(size);
        if (expected.size() < 0x100000)
        {
            expected = content.substr(0, 0x100000); // what was read before the cut
        }
        EXPECT_EQ(stream.Read(text), expected.size());
        EXPECT_TRUE(text == expected) << size;
    }
}

TEST(BasicFileStream, SizesGoBeyond32Bits)
{
    ScratchFolder const folder;
    PlainFile stream(folder.Name("a"));
    for (__int64 const size :
         {static_cast<__int64>(0xFFFFFFFE), static_cast<__int64>(0xFFFFFFFF), static_cast<__int64>(0x100000000),
          static_cast<__int64>(0x1FFFFFFFF)})
    {
        stream.SetPosition(size, FileSeek_Begin);
        ASSERT_TRUE(SetEndOfFile(stream.GetHandle()));
        SetLastError(ERROR_FILE_NOT_FOUND); // an old failure is no failure of this call
        EXPECT_EQ(stream.GetSize(), size);
    }
}

TEST(BasicFileStream, LocksBarOtherHandles)
{
    ScratchFolder const folder;
    folder.Write("a", "0123456789");
    PlainFile first(folder.Name("a"));
    PlainFile second(folder.Name("a"));
    first.Lock(2, 3);
    EXPECT_EQ(ErrorOf([&] { second.Lock(4, 1); }), DWORD(ERROR_LOCK_VIOLATION));
    second.Lock(5, 1);
    second.Unlock(5, 1);
    EXPECT_NE(ErrorOf([&] { first.Unlock(2, 2); }), 0u) << "158; Wine says 33";
    first.Unlock(2, 3);
    first.Lock();
    EXPECT_EQ(ErrorOf([&] { second.Lock(9, 1); }), DWORD(ERROR_LOCK_VIOLATION));
    second.Lock(10, 1); // behind the end
    second.Unlock(10, 1);
    first.Unlock();
    second.Lock(0x100000000, 0x200000000);
    EXPECT_EQ(ErrorOf([&] { first.Lock(0x2FFFFFFFF, 1); }), DWORD(ERROR_LOCK_VIOLATION));
    first.Lock(0x300000000, 1);
    first.Unlock(0x300000000, 1);
    second.Unlock(0x100000000, 0x200000000);
}

TEST(BasicFileStream, TimesAreCopiedAsTheyAre)
{
    ScratchFolder const folder;
    PlainFile stream(folder.Name("a"));
    DateTime const access(FILETIME{0x89ABCD00, 0x01C00000});
    DateTime const write(FILETIME{0x12345600, 0x01D00000});
    stream.SetTimes(nullptr, &access, &write);
    DateTime creation;
    DateTime readAccess;
    DateTime readWrite;
    stream.GetTimes(&creation, &readAccess, &readWrite);
    EXPECT_TRUE(readWrite == write);
    EXPECT_TRUE(readAccess == access);
    EXPECT_FALSE(creation == DateTime());

    DateTime const later(FILETIME{0x12345600, 0x01D10000});
    stream.SetTimes(nullptr, nullptr, &later);
    stream.GetTimes(nullptr, &readAccess, &readWrite);
    EXPECT_TRUE(readWrite == later);
    EXPECT_TRUE(readAccess == access);
}

TEST(BasicFileStream, FailedTimesFillNothing)
{
    DateTime const before(FILETIME{1, 2});
    DateTime time = before;
    BasicFileStream stream;
    EXPECT_EQ(ErrorOf([&] { stream.GetTimes(&time, &time, &time); }), DWORD(ERROR_INVALID_HANDLE));
    EXPECT_TRUE(time == before);
}

TEST(BasicFileStream, FlushNeedsAFileThatCanBeWritten)
{
    ScratchFolder const folder;
    folder.Write("a", "text");
    FileInputStream stream(folder.Name("a"));
    EXPECT_EQ(ErrorOf([&] { stream.BasicFileStream::Flush(); }), DWORD(ERROR_ACCESS_DENIED));
}

TEST(BasicFileStream, CopiesShareTheHandle)
{
    ScratchFolder const folder;
    folder.Write("a", "0123456789");
    PlainFile stream(folder.Name("a"));
    BasicFileStream copy(stream);
    EXPECT_EQ(copy.GetFilePath(), folder.Name("a"));
    char data[4];
    EXPECT_EQ(copy.Read(data, 4), 4u);
    EXPECT_EQ(stream.GetPosition(), 4);
    BasicFileStream assigned;
    assigned = stream;
    EXPECT_EQ(assigned.GetPosition(), 4);
    copy.Close();
    EXPECT_TRUE(stream.IsOpen()) << "nobody tells the others";
    EXPECT_EQ(ErrorOf([&] { stream.GetPosition(); }), DWORD(ERROR_INVALID_HANDLE));
}

TEST(FileInputStream, ReadsExactlyTheFileAndNoByteMore)
{
    ScratchFolder const folder;
    std::string const content = RandomBytes(10000);
    for (int const size : {1, 100, 4095, 4096, 4097, 8191, 8192, 8193, 10000})
    {
        folder.Write("a", content.substr(0, static_cast<std::size_t>(size)));
        FileInputStream stream(folder.Name("a"));
        std::string text(static_cast<std::size_t>(size), '\0');
        stream.Read(text.data(), size);
        EXPECT_TRUE(text == content.substr(0, static_cast<std::size_t>(size))) << size;
        char one = 'x';
        EXPECT_EQ(FailureOf([&] { stream.Read(&one, 1); }), endOfFile) << size;
        EXPECT_EQ(FailureOf([&] { stream.Read(&one, 1); }), endOfFile) << size;
        stream.Read(&one, 0);
        EXPECT_EQ(one, 'x');
    }
}

TEST(FileInputStream, AnEmptyFileEndsAtOnce)
{
    ScratchFolder const folder;
    folder.Write("a", "");
    FileInputStream stream(folder.Name("a"));
    char data[5000];
    stream.Read(data, 0);
    stream.Read(data, -1);
    for (int const size : {1, 4095, 4096, 4097, 5000})
    {
        EXPECT_EQ(FailureOf([&] { stream.Read(data, size); }), endOfFile) << size;
    }
    EXPECT_EQ(stream.BufferedFileStream::Read(data, 0), 0u);
}

TEST(FileInputStream, WhatThereWasStaysInTheDestination)
{
    ScratchFolder const folder;
    std::string const content = RandomBytes(5000);
    folder.Write("a", content);
    FileInputStream stream(folder.Name("a"));
    std::string text(6000, '#');
    EXPECT_EQ(FailureOf([&] { stream.Read(text.data(), 6000); }), endOfFile);
    EXPECT_TRUE(text.substr(0, 5000) == content);
    EXPECT_EQ(text.substr(5000), std::string(1000, '#'));
}

TEST(FileInputStream, PiecesOfAnySizeMakeTheFile)
{
    ScratchFolder const folder;
    std::string const content = RandomBytes(300000);
    folder.Write("a", content);
    for (int const most : {1, 7, 64, 1000, 4096, 5000, 9000, 70000})
    {
        FileInputStream stream(folder.Name("a"));
        std::string text(content.size(), '\0');
        InRandomPieces(
            most == 1 ? 9000 : content.size(), most, 3,
            [&](std::size_t offset, int size) { stream.Read(text.data() + offset, size); });
        std::size_t const read = most == 1 ? 9000 : content.size();
        EXPECT_TRUE(text.substr(0, read) == content.substr(0, read)) << most;
    }
}

TEST(FileInputStream, SharesWithReadersAndCanAskForMore)
{
    ScratchFolder const folder;
    folder.Write("a", "text");
    FileInputStream first(folder.Name("a"));
    FileInputStream second(folder.Name("a"));
    EXPECT_EQ(ErrorOf([&] { FileOutputStream(folder.Name("a"), true); }), DWORD(ERROR_SHARING_VIOLATION));
    EXPECT_EQ(ErrorOf([&] { FileInputStream(folder.Name("b")); }), DWORD(ERROR_FILE_NOT_FOUND));
    folder.Write("c", "text");
    FileInputStream both(folder.Name("c"), FileAccess_Write);
    EXPECT_EQ(both.BasicFileStream::Write("TE", 2), 2u);
}

TEST(FileInputStream, AWholeStringEndsInTheEndOfTheFile)
{
    ScratchFolder const folder;
    folder.Write("a", "text");
    FileInputStream stream(folder.Name("a"));
    std::string text;
    EXPECT_EQ(FailureOf([&] { stream.BasicFileStream::Read(text); }), endOfFile);
    EXPECT_EQ(text, "");
}

TEST(FileOutputStream, AFullBufferWaitsForTheNextByte)
{
    ScratchFolder const folder;
    std::string const content = RandomBytes(4097);
    FileOutputStream stream(folder.Name("a"), false);
    stream.Write(content.data(), 4096);
    EXPECT_EQ(stream.GetSize(), 0);
    stream.Write(content.data(), 0);
    EXPECT_EQ(stream.GetSize(), 0);
    stream.Write(content.data() + 4096, 1);
    EXPECT_EQ(stream.GetSize(), 4096);
    stream.Flush();
    EXPECT_EQ(stream.GetSize(), 4097);
}

TEST(FileOutputStream, FlushWritesAFullBuffer)
{
    ScratchFolder const folder;
    FileOutputStream stream(folder.Name("a"), false);
    stream.Write(RandomBytes(4096).data(), 4096);
    stream.FlushSelf();
    EXPECT_EQ(stream.GetSize(), 4096);
}

TEST(FileOutputStream, RestsBelowABufferWaitAndLargerOnesPass)
{
    std::string const content = RandomBytes(20000);
    struct
    {
        int first;
        int second;
        int written; // in the file after both
    } const cases[] = {
        {0, 4096, 0},    {0, 4097, 4096}, {0, 8191, 4096},     {0, 8192, 8192},    {1, 4095, 0},
        {1, 4096, 4096}, {1, 8190, 4096}, {1, 8191, 8192},     {4096, 4095, 4096}, {4096, 4096, 8192},
        {4095, 1, 0},    {4095, 2, 4096}, {100, 19000, 19100}, {4096, 5000, 9096},
    };
    for (auto const & row : cases)
    {
        ScratchFolder const folder;
        {
            FileOutputStream stream(folder.Name("a"), false);
            stream.Write(content.data(), row.first);
            stream.Write(content.data() + row.first, row.second);
            EXPECT_EQ(stream.GetSize(), row.written) << row.first << " " << row.second;
        }
        EXPECT_TRUE(folder.Read("a") == content.substr(0, static_cast<std::size_t>(row.first + row.second)));
    }
}

TEST(FileOutputStream, PiecesOfAnySizeMakeTheFile)
{
    std::string const content = RandomBytes(300000);
    for (int const most : {7, 64, 1000, 4096, 5000, 9000, 70000})
    {
        ScratchFolder const folder;
        {
            FileOutputStream stream(folder.Name("a"), false);
            InRandomPieces(
                content.size(), most, 5,
                [&](std::size_t offset, int size) { stream.Write(content.data() + offset, size); });
            stream.Write(content.data(), -5);
        }
        EXPECT_TRUE(folder.Read("a") == content) << most;
    }
}

TEST(FileOutputStream, EmptiesTheFileOrAppendsToIt)
{
    ScratchFolder const folder;
    folder.Write("a", "old");
    FileOutputStream(folder.Name("a"), true).Write("+new", 4);
    EXPECT_EQ(folder.Read("a"), "old+new");
    FileOutputStream(folder.Name("a"), false).Write("x", 1);
    EXPECT_EQ(folder.Read("a"), "x");
    FileOutputStream(folder.Name("b"), true).Write("made", 4);
    EXPECT_EQ(folder.Read("b"), "made");
    FileOutputStream const alone(folder.Name("a"), true);
    EXPECT_EQ(ErrorOf([&] { FileInputStream(folder.Name("a")); }), DWORD(ERROR_SHARING_VIOLATION));
}

TEST(FileOutputStream, ClosedBeforeItsEndThrowsFromItsDestructor)
{
    ScratchFolder const folder;
    EXPECT_EQ(
        ErrorOf(
            [&]
            {
                FileOutputStream stream(folder.Name("a"), false);
                stream.Close();
            }),
        DWORD(ERROR_INVALID_HANDLE));
    EXPECT_EQ(
        FailureOf(
            [&]
            {
                FileOutputStream stream(folder.Name("a"), false);
                stream.Close();
                throw StreamBase::Exception{3, TEXT("another")};
            }),
        "3: another");
}

TEST(FileOutputStream, IsTheEndOfAChain)
{
    ScratchFolder const folder;
    {
        FileOutputStream stream(folder.Name("a"), false);
        static_cast<OutputStream &>(stream) << std::string("ab") << 7;
    }
    EXPECT_EQ(folder.Read("a"), Bytes("\2\0\0\0ab\7\0\0\0"));
    FileInputStream stream(folder.Name("a"));
    std::string text;
    int number = 0;
    static_cast<InputStream &>(stream) >> text >> number;
    EXPECT_EQ(text, "ab");
    EXPECT_EQ(number, 7);
}

TEST(BufferedFileStream, LosesItsBufferIfNobodyFlushes)
{
    ScratchFolder const folder;
    {
        PlainBuffered stream(folder.Name("a"));
        stream.Write("lost", 4);
    }
    EXPECT_EQ(folder.Read("a"), "");
}

TEST(BufferedFileStream, SetPositionLeavesTheBufferAlone)
{
    ScratchFolder const folder;
    folder.Write("a", "0123456789");
    {
        PlainBuffered stream(folder.Name("a"));
        stream.Write("ab", 2);
        stream.SetPosition(5, FileSeek_Begin);
        stream.Flush();
    }
    EXPECT_EQ(folder.Read("a"), "01234ab789") << "what was pending lands at the new position";

    PlainBuffered stream(folder.Name("a"));
    char data[4];
    stream.Read(data, 2);
    stream.SetPosition(0, FileSeek_Begin);
    stream.Read(data, 2);
    EXPECT_EQ(std::string(data, 2), "23") << "what was buffered comes first";
}

namespace
{

/// The reading of a buffered stream, step by step, over a file of these bytes.
class ReadingModel
{
public:
    explicit ReadingModel(std::string bytes) : content(std::move(bytes)) {}

    /// False at the end of the file; what there was is in `data` then.
    bool Read(std::size_t count, std::string & data)
    {
        if (count == 0)
        {
            return true;
        }
        if (position == 0)
        {
            buffer.replace(0, 4096, 4096, '?');
            std::string const piece = FromFile(4096);
            buffer.replace(0, piece.size(), piece);
            limit = piece.size();
        }
        if (limit <= position)
        {
            return false;
        }
        std::size_t const copied = std::min(count, limit - position);
        data += buffer.substr(position, copied);
        position = (position + copied) % limit;
        std::size_t const rest = count - copied;
        if (rest < limit)
        {
            return rest == 0 || Read(rest, data);
        }
        std::string const direct = FromFile(rest);
        data += direct;
        return direct.size() == rest;
    }
    std::size_t filePosition = 0;

private:
    std::string FromFile(std::size_t count)
    {
        std::string const piece = content.substr(std::min(filePosition, content.size()), count);
        filePosition += piece.size();
        return piece;
    }

    std::string const content;
    std::string buffer = std::string(4096, '?');
    std::size_t position = 0;
    std::size_t limit = 4096;
};

/// The same read of both, and whether they agree on the result, the bytes and the place in the file.
void ExpectSameRead(FileInputStream & stream, ReadingModel & model, std::size_t count)
{
    std::string expected;
    bool const good = model.Read(count, expected);
    std::string data(count, '\0');
    if (good)
    {
        ASSERT_NO_THROW(stream.Read(data.data(), static_cast<int>(count)));
    }
    else
    {
        ASSERT_EQ(FailureOf([&] { stream.Read(data.data(), static_cast<int>(count)); }), endOfFile);
    }
    ASSERT_TRUE(data.substr(0, expected.size()) == expected) << count;
    ASSERT_EQ(stream.GetPosition(), static_cast<__int64>(model.filePosition)) << count;
}

} // namespace

TEST(BufferedFileStream, WhatAReadLeavesInTheBufferIsHandedOutBehindSetPosition)
{
    ScratchFolder const folder;
    std::string const bytes = RandomBytes(20000);
    folder.Write("a", bytes);
    for (std::size_t const count : {1u, 4095u, 4096u, 4097u, 5000u, 8191u, 8192u, 8193u, 12287u, 12289u})
    {
        SCOPED_TRACE(count);
        FileInputStream stream(folder.Name("a"));
        ReadingModel model(bytes);
        ExpectSameRead(stream, model, count);
        stream.SetPosition(100, FileSeek_Begin);
        model.filePosition = 100;
        for (std::size_t const next : {10u, 4096u, 1u, 9000u})
        {
            ExpectSameRead(stream, model, next);
        }
    }
    FileInputStream stream(folder.Name("a"));
    char data[5000];
    stream.Read(data, 5000);
    EXPECT_EQ(stream.GetPosition(), 8192) << "the second buffer is whole";
    stream.SetPosition(0, FileSeek_Begin);
    stream.Read(data, 10);
    EXPECT_EQ(std::string(data, 10), bytes.substr(5000, 10));
}

TEST(BufferedFileStream, RandomReadsAndPositionsFollowTheSteps)
{
    ScratchFolder const folder;
    Numbers random(20000229);
    for (std::size_t const size : {0u, 1u, 4095u, 4096u, 4097u, 8192u, 10000u, 20000u})
    {
        SCOPED_TRACE(size);
        std::string const bytes = RandomBytes(size);
        folder.Write("a", bytes);
        FileInputStream stream(folder.Name("a"));
        ReadingModel model(bytes);
        for (int round = 0; round < 500 && !testing::Test::HasFatalFailure(); ++round)
        {
            constexpr std::size_t sizes[] = {10, 4096, 8192, 20000};
            ExpectSameRead(stream, model, random.Next(sizes[random.Next(4)] + 2));
            if (random.Next(3) == 0)
            {
                model.filePosition = random.Next(size + 1);
                stream.SetPosition(static_cast<__int64>(model.filePosition), FileSeek_Begin);
            }
        }
    }
}

namespace
{

// Never destroyed, since one of a stream and its copy alone may be; here, where a leak check sees it.
[[gnu::used]] FileInputStream * keptCopy;

} // namespace

TEST(BufferedFileStream, CopiesShareTheBuffer)
{
    ScratchFolder const folder;
    folder.Write("a", "0123456789abcdefghij");
    FileInputStream stream(folder.Name("a"));
    char data[5];
    stream.Read(data, 5);
    keptCopy = new FileInputStream(stream);
    keptCopy->Read(data, 5);
    EXPECT_EQ(std::string(data, 5), "56789") << "out of the buffer, of which each has a position of its own";
    stream.Read(data, 5);
    EXPECT_EQ(std::string(data, 5), "56789");
    EXPECT_EQ(stream.GetPosition(), 20) << "nobody has read the file again";
}

// A model of the file and of the position, beside the streams, for ten thousand rounds.
TEST(FileStreams, RandomOperationsEndInTheModelsContent)
{
    ScratchFolder const folder;
    Numbers random(20070101);
    std::string model;
    std::size_t position = 0;
    std::string const source = RandomBytes(20000);
    PlainFile stream(folder.Name("a"));
    for (int round = 0; round < 10000; ++round)
    {
        std::size_t const size = random.Next(8) == 0 ? random.Next(12000) : random.Next(90);
        switch (random.Next(4))
        {
        case 0:
            position = random.Next(static_cast<std::uint32_t>(model.size() + 50));
            ASSERT_EQ(
                stream.SetPosition(static_cast<__int64>(position), FileSeek_Begin), static_cast<__int64>(position));
            break;
        case 1:
        {
            std::string const piece = source.substr(random.Next(8000), size);
            ASSERT_EQ(stream.Write(piece), piece.size());
            if (!piece.empty())
            {
                model.resize(std::max(model.size(), position + piece.size()));
                model.replace(position, piece.size(), piece);
            }
            position += piece.size();
            break;
        }
        case 2:
        {
            std::string piece;
            stream.Read(piece, static_cast<DWORD>(size));
            std::string const expected = position < model.size() ? model.substr(position, size) : std::string();
            ASSERT_TRUE(piece == expected) << round;
            position += piece.size();
            break;
        }
        default:
            ASSERT_EQ(stream.GetPosition(), static_cast<__int64>(position));
            ASSERT_EQ(stream.GetSize(), static_cast<__int64>(model.size()));
        }
    }
    stream.Close();
    EXPECT_TRUE(folder.Read("a") == model);
}

TEST(FileStreams, RandomBufferedOperationsEndInTheModelsContent)
{
    ScratchFolder const folder;
    Numbers random(19991231);
    std::string model;
    std::string const source = RandomBytes(20000);
    auto writer = std::make_unique<FileOutputStream>(folder.Name("a"), false);
    for (int round = 0; round < 10000; ++round)
    {
        std::size_t const size = random.Next(20) == 0 ? random.Next(12000) : random.Next(90);
        std::string const piece = source.substr(random.Next(8000), size);
        switch (random.Next(200))
        {
        case 0:
            writer->Flush();
            break;
        case 1:
            writer.reset();
            writer = std::make_unique<FileOutputStream>(folder.Name("a"), true);
            break;
        default:
            writer->Write(piece.data(), static_cast<int>(piece.size()));
            model += piece;
        }
    }
    writer.reset();
    ASSERT_TRUE(folder.Read("a") == model);

    FileInputStream reader(folder.Name("a"));
    for (std::size_t position = 0; position < model.size();)
    {
        std::size_t const size = random.Next(20) == 0 ? random.Next(12000) : random.Next(90);
        std::string piece(std::min(size, model.size() - position), '\0');
        reader.Read(piece.data(), static_cast<int>(piece.size()));
        ASSERT_TRUE(piece == model.substr(position, piece.size())) << position;
        position += piece.size();
    }
}
