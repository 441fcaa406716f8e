#include <kvcore/files/MemoryMappedFile.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <thread>
#include <type_traits>
#include <utility>

#include <kvcore/files/FileStreams.h>

#include <support/ScratchFolder.h>
#include <support/TestBytes.h>

using namespace kv::test;

namespace
{

std::string Mapped(MemoryMappedFileBase const & file)
{
    return std::string(file.getMemAdr(), static_cast<std::size_t>(file.getMemSize()));
}

} // namespace

TEST(MemoryMappedFile, MapsNothingAtFirst)
{
    ScratchFolder const folder;
    folder.Write("a", "0123456789");
    MemoryMappedFileForRead file(folder.Name("a"));
    EXPECT_EQ(file.getFileSize(), 10);
    EXPECT_EQ(file.getMemSize(), 0);
    EXPECT_EQ(file.getMemAdr(), nullptr);
}

TEST(MemoryMappedFile, ViewsBeginAtAnyByteAndEndWithTheFile)
{
    ScratchFolder const folder;
    int const page = MemoryMappedFileBase::pageSize();
    std::string const content = RandomBytes(static_cast<std::size_t>(page) * 2 + 100);
    int const size = static_cast<int>(content.size());
    folder.Write("a", content);
    struct
    {
        __int64 offset;
        int size;
        int expected;
    } const cases[] = {
        {0, -1, size},
        {0, 0, 0},
        {0, 1, 1},
        {0, size, size},
        {0, size + 1, size},
        {0, 0x7FFFFFFF, size},
        {10, -1, size - 10},
        {10, -100, size - 10},
        {page - 1, 2, 2},
        {page, 5, 5},
        {page + 1, -1, size - page - 1},
        {2 * page + 99, 7, 1},
        {2 * page + 99, 0, 0},
        {size, 0, 0},
        {size, 1, -1},
        {size, -1, -1},
        {size + 1, 0, 0},
        {-1, 0, 0},
        {-1, 1, -1},
        {-1, -1, -1},
        {0x7FFFFFFFFFFFFFFF, 1, -1},
    };
    MemoryMappedFileForRead reading(folder.Name("a"));
    for (auto const & row : cases)
    {
        EXPECT_EQ(reading.map(row.offset, row.size), row.expected) << row.offset << " " << row.size;
        EXPECT_EQ(reading.getMemSize(), std::max(row.expected, 0));
        ASSERT_EQ(reading.getMemAdr() != nullptr, row.expected > 0);
        if (row.expected > 0)
        {
            EXPECT_TRUE(
                Mapped(reading) ==
                content.substr(static_cast<std::size_t>(row.offset), static_cast<std::size_t>(row.expected)));
        }
    }
}

TEST(MemoryMappedFile, TheRestOfAHundredBytesFromTheTenthOn)
{
    ScratchFolder const folder;
    std::string const content = RandomBytes(100);
    folder.Write("a", content);
    MemoryMappedFileForRead file(folder.Name("a"));
    EXPECT_EQ(file.map(10, -1), 90);
    EXPECT_EQ(Mapped(file), content.substr(10));
}

TEST(MemoryMappedFile, AMapDropsTheViewBeforeEvenIfItFails)
{
    ScratchFolder const folder;
    folder.Write("a", "0123456789");
    MemoryMappedFileForRead file(folder.Name("a"));
    for (auto const & [offset, size] : {std::pair(10, 1), std::pair(-1, 1), std::pair(0, 0), std::pair(10, 0)})
    {
        ASSERT_EQ(file.map(0, 10), 10);
        file.map(offset, size);
        EXPECT_EQ(file.getMemAdr(), nullptr);
        EXPECT_EQ(file.getMemSize(), 0);
    }
    EXPECT_EQ(file.getFileSize(), 10);
}

TEST(MemoryMappedFile, WhatIsWrittenIsInTheFile)
{
    ScratchFolder const folder;
    int const page = MemoryMappedFileBase::pageSize();
    std::string content = RandomBytes(static_cast<std::size_t>(page) + 1000);
    folder.Write("a", content);
    {
        MemoryMappedFileForWrite file(folder.Name("a"));
        ASSERT_EQ(file.map(page - 2, 4), 4);
        static_assert(std::is_same_v<decltype(file.getMemAdr()), char *>);
        std::memcpy(file.getMemAdr(), "abcd", 4);
        ASSERT_EQ(file.map(0, 1), 1);
        file.getMemAdr()[0] = '#';
    }
    content.replace(static_cast<std::size_t>(page) - 2, 4, "abcd");
    content[0] = '#';
    EXPECT_TRUE(folder.Read("a") == content);
}

TEST(MemoryMappedFile, AFileThatCannotBeOpenedIsEmpty)
{
    ScratchFolder const folder;
    folder.Write("empty", "");
    folder.Write("used", "text");
    FileOutputStream const user(folder.Name("used"), true);
    for (std::string const name : {"missing", "missing\\file", "", "empty", "used"})
    {
        String const path = name.empty() ? folder.Name() : folder.Name(name);
        MemoryMappedFileForRead reading(path);
        MemoryMappedFileForWrite writing(path);
        for (MemoryMappedFileBase * const file :
             {static_cast<MemoryMappedFileBase *>(&reading), static_cast<MemoryMappedFileBase *>(&writing)})
        {
            EXPECT_EQ(file->getFileSize(), 0) << name;
            EXPECT_EQ(file->map(0, 0), 0);
            EXPECT_EQ(file->map(0, 1), -1);
            EXPECT_EQ(file->map(0, -1), -1);
            EXPECT_EQ(file->getMemAdr(), nullptr);
        }
    }
}

TEST(MemoryMappedFile, NobodyElseMayOpenTheFile)
{
    ScratchFolder const folder;
    folder.Write("a", "0123456789");
    {
        MemoryMappedFileForRead const first(folder.Name("a"));
        MemoryMappedFileForRead const second(folder.Name("a"));
        EXPECT_EQ(first.getFileSize(), 10);
        EXPECT_EQ(second.getFileSize(), 0);
    }
    MemoryMappedFileForRead const again(folder.Name("a"));
    EXPECT_EQ(again.getFileSize(), 10) << "the end of an object closes the file";
}

TEST(MemoryMappedFile, AViewEndsShortOfTwoGibibytes)
{
    ScratchFolder const folder;
    folder.Write("a", "");
    int const page = MemoryMappedFileBase::pageSize();
    std::filesystem::resize_file(folder / "a", 0x100000010);
    MemoryMappedFileForRead file(folder.Name("a"));
    EXPECT_EQ(file.getFileSize(), 0x100000010);
    int const most = 0x7FFFFFFF - 10 * page;
    EXPECT_EQ(file.map(0, -1), -1);
    EXPECT_EQ(file.map(0, 0x7FFFFFFF), -1);
    EXPECT_EQ(file.map(0, most + 1), -1);
    EXPECT_EQ(file.map(0x100000000, -1), 16);
    EXPECT_EQ(Mapped(file), std::string(16, '\0'));
}

TEST(MemoryMappedFile, TheGranularityIsTheSystemsOnEveryThread)
{
    int results[2] = {};
    std::thread first([&] { results[0] = MemoryMappedFileBase::pageSize(); });
    std::thread second([&] { results[1] = MemoryMappedFileBase::pageSize(); });
    first.join();
    second.join();
    EXPECT_EQ(results[0], 65536);
    EXPECT_EQ(results[1], 65536);
}
