#include <kvcore/streams/MemoryStreams.h>

#include <limits>

#include <kvcore/streams/Base64.h>

#include <support/StreamFailure.h>
#include <support/TestBytes.h>

using namespace kv::test;

TEST(MemoryStreams, GiveAllBytesAgainWithWhatCameAfter)
{
    MemoryOutputStream stream;
    EXPECT_EQ(stream.GetContent(), "");
    stream.Write("abc", 3);
    EXPECT_EQ(stream.GetContent(), "abc");
    EXPECT_EQ(stream.GetContent(), "abc");
    stream.Write("def", 3);
    EXPECT_EQ(stream.GetContent(), "abcdef");
}

TEST(MemoryStreams, GetContentFlushesWhatIsChainedInFront)
{
    MemoryOutputStream memory;
    Base64EncodingStream filter(memory, -1);
    filter.Write("a", 1);
    EXPECT_EQ(memory.GetContent(), "YQ==");
}

TEST(MemoryStreams, WriteNothingForASizeBelowOne)
{
    MemoryOutputStream stream;
    stream.Write(nullptr, 0);
    stream.Write("abc", -1);
    EXPECT_EQ(stream.GetContent(), "");
}

TEST(MemoryStreams, ReadExactlyWhatIsThere)
{
    MemoryInputStream stream("abcdef", 6);
    char data[6] = {};
    stream.Read(data, 2);
    EXPECT_EQ(std::string(data, 2), "ab");
    stream.Read(data, 4);
    EXPECT_EQ(std::string(data, 4), "cdef");
    EXPECT_EQ(FailureOf([&] { stream.Read(data, 1); }), "5: Memory block too short");
}

TEST(MemoryStreams, AReadThatAsksForTooMuchConsumesAndCopiesNothing)
{
    MemoryInputStream stream("abc", 3);
    char data[5] = "----";
    EXPECT_EQ(FailureOf([&] { stream.Read(data, 4); }), "5: Memory block too short");
    EXPECT_EQ(FailureOf([&] { stream.Read(data, std::numeric_limits<int>::max()); }), "5: Memory block too short");
    EXPECT_STREQ(data, "----");
    stream.Read(data, 3);
    EXPECT_STREQ(data, "abc-");
}

TEST(MemoryStreams, AReadOfNothingSucceedsAlsoAtTheEnd)
{
    MemoryInputStream stream(nullptr, 0);
    stream.Read(nullptr, 0);
    stream.Read(nullptr, -1);
    char byte;
    EXPECT_EQ(FailureOf([&] { stream.Read(&byte, 1); }), "5: Memory block too short");
}

TEST(MemoryStreams, ANegativeSizeIsNoMemory)
{
    MemoryInputStream stream("abc", -1);
    char byte;
    EXPECT_EQ(FailureOf([&] { stream.Read(&byte, 1); }), "5: Memory block too short");
}

TEST(MemoryStreams, ReadPiecesOfEverySizeFromAString)
{
    std::string const bytes = RandomBytes(2000);
    for (int size = 1; size <= 40; ++size)
    {
        MemoryInputStream stream(bytes);
        std::string read(bytes.size(), '\0');
        int const count = 2000 / size * size;
        for (int offset = 0; offset < count; offset += size)
        {
            stream.Read(read.data() + offset, size);
        }
        EXPECT_EQ(read.compare(0, std::size_t(count), bytes, 0, std::size_t(count)), 0) << size;
    }
}
