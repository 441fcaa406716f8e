#include <kvcore/streams/CRC.h>

#include <zlib.h>

#include <cstdint>
#include <cstring>
#include <type_traits>

#include <kvcore/streams/MemoryStreams.h>

#include <support/StreamFailure.h>
#include <support/TestBytes.h>
#include <support/TestStreams.h>

using namespace kv::test;

namespace
{

std::string Number(std::uint32_t number)
{
    return std::string(reinterpret_cast<char const *>(&number), 4);
}

std::string Block(std::string const & payload)
{
    auto const * const data = reinterpret_cast<Bytef const *>(payload.data());
    std::uint32_t const sum = static_cast<std::uint32_t>(crc32(0, data, static_cast<uInt>(payload.size())));
    return Number(static_cast<std::uint32_t>(payload.size())) + payload + Number(sum);
}

std::string Framed(std::string const & data)
{
    MemoryOutputStream target;
    {
        CRCOutputStream stream(target);
        stream.Write(data.data(), static_cast<int>(data.size()));
    }
    return target.GetContent();
}

std::string ReadFailure(std::string const & wire, int size)
{
    MemoryInputStream source(wire);
    CRCInputStream stream(source);
    std::string data(static_cast<std::size_t>(size), '\0');
    return FailureOf([&] { stream.Read(data.data(), size); });
}

} // namespace

TEST(CRCStreams, ABlockIsLengthPayloadAndChecksum)
{
    EXPECT_EQ(
        Framed("123456789"),
        Bytes("\x09\0\0\0"
              "123456789"
              "\x26\x39\xF4\xCB"));
    EXPECT_EQ(
        Framed(Bytes("\0")),
        Bytes("\x01\0\0\0"
              "\0"
              "\x8D\xEF\x02\xD2"));
}

TEST(CRCStreams, ABlockIsThreeWrites)
{
    RecordingOutputStream target;
    {
        CRCOutputStream stream(target);
        stream.Write("ab", 2);
        stream.Write("c", 1);
    }
    EXPECT_EQ(target.writes, (std::vector<std::string>{Number(3), "abc", Bytes("\xC2\x41\x24\x35")}));
}

TEST(CRCStreams, TheChecksumIsZlibsForEveryLength)
{
    std::string const data = RandomBytes(4088);
    for (std::size_t size = 1; size <= data.size(); size += size < 400 ? 1 : 61)
    {
        std::string const payload = data.substr(data.size() - size);
        ASSERT_EQ(Framed(payload), Block(payload)) << size;
    }
}

TEST(CRCStreams, AFullBlockGoesOutAtOnceAndTheDestructorAddsNothing)
{
    std::string const data = RandomBytes(4088);
    RecordingOutputStream target;
    {
        CRCOutputStream stream(target);
        stream.Write(data.data(), 4087);
        EXPECT_TRUE(target.writes.empty());
        stream.Write(data.data() + 4087, 1);
        EXPECT_EQ(target.writes.size(), 3u);
    }
    EXPECT_EQ(target.writes.size(), 3u);
    EXPECT_EQ(target.Content().size(), 4096u);
    EXPECT_EQ(target.Content(), Block(data));
}

TEST(CRCStreams, LongDataIsCutIntoFullBlocksAndARest)
{
    std::string const data = RandomBytes(4088 * 2 + 5);
    EXPECT_EQ(Framed(data), Block(data.substr(0, 4088)) + Block(data.substr(4088, 4088)) + Block(data.substr(8176)));
}

TEST(CRCStreams, EveryFlushClosesABlock)
{
    MemoryOutputStream target;
    {
        CRCOutputStream stream(target);
        stream.Write("ab", 2);
        target.Flush();
        target.Flush();
        stream.Write("c", 1);
    }
    std::string const content = target.GetContent();
    EXPECT_EQ(content, Block("ab") + Block("c"));

    MemoryInputStream source(content);
    CRCInputStream stream(source);
    char data[3];
    stream.Read(data, 3);
    EXPECT_EQ(std::string(data, 3), "abc");
}

TEST(CRCStreams, NoDataIsNoBlock)
{
    MemoryOutputStream target;
    {
        CRCOutputStream stream(target);
        stream.Flush();
        stream.Write("x", 0);
        target.Flush();
    }
    EXPECT_EQ(target.GetContent(), "");
}

TEST(CRCStreams, LengthsOutsideABlockFail)
{
    for (std::uint32_t const length : {0u, 4089u, 0x10000u, 0x7FFFFFFFu, 0x80000000u, 0xFFFFFFFFu})
    {
        EXPECT_EQ(ReadFailure(Number(length) + std::string(5000, 'x'), 1), "4: Illegal CRC block size") << length;
    }
}

TEST(CRCStreams, TheLongestAndTheShortestBlockAreRead)
{
    for (std::size_t const size : {std::size_t(1), std::size_t(4088)})
    {
        EXPECT_EQ(ReadFailure(Block(RandomBytes(size)), static_cast<int>(size)), "none");
    }
}

TEST(CRCStreams, AWrongChecksumFailsBeforeAnyByteIsDeliveredAndThenDeliversThem)
{
    std::string wire = Block("first") + Block("second");
    wire[5] = 'I';
    MemoryInputStream source(wire);
    CRCInputStream stream(source);
    char data[11] = "----------";
    EXPECT_EQ(FailureOf([&] { stream.Read(data, 3); }), "4: CRC checksum error");
    EXPECT_STREQ(data, "----------");
    stream.Read(data, 3);
    EXPECT_STREQ(data, "fIr-------");
    stream.Read(data + 3, 7);
    EXPECT_STREQ(data, "fIrstsecon");
}

TEST(CRCStreams, ABlockIsReadOnlyWhenItIsNeeded)
{
    RecordingInputStream source(Block("abc") + Block("def"));
    CRCInputStream stream(source);
    char data[3];
    stream.Read(data, 3);
    EXPECT_EQ(source.reads, (std::vector<int>{4, 3, 4}));
}

TEST(CRCStreams, ABlockThatDidNotArriveWholeIsNeverDelivered)
{
    std::string const wire = Block("abcdef");
    for (std::size_t size = 0; size < wire.size(); ++size)
    {
        MemoryInputStream source(wire.data(), static_cast<int>(size));
        CRCInputStream stream(source);
        char byte = '-';
        for (int i = 0; i < 3; ++i)
        {
            EXPECT_EQ(FailureOf([&] { stream.Read(&byte, 1); }), "5: Memory block too short") << size;
        }
        EXPECT_EQ(byte, '-');
    }
}

TEST(CRCStreams, AFailedPartOfABlockIsWrittenAgainByWhateverComesNext)
{
    enum class Next
    {
        Write,
        Flush,
        Destructor
    };
    for (Next const next : {Next::Write, Next::Flush, Next::Destructor})
    {
        for (int call = 1; call <= 3; ++call)
        {
            SCOPED_TRACE(call);
            FailingOutputStream target(call);
            {
                CRCOutputStream stream(target);
                stream.Write("abc", 3);
                EXPECT_EQ(FailureOf([&] { stream.Flush(); }), testFailure);
                if (next == Next::Write)
                {
                    stream.Write("d", 1);
                }
                else if (next == Next::Flush)
                {
                    stream.Flush();
                    EXPECT_EQ(target.Content(), Block("abc"));
                }
            }
            // A block of which nothing is out yet may still grow.
            EXPECT_EQ(
                target.Content(),
                next != Next::Write ? Block("abc")
                    : call == 1     ? Block("abcd")
                                    : Block("abc") + Block("d"));
        }
    }
}

TEST(CRCStreams, AFailedFullBlockIsCompletedBeforeNewBytesAreTaken)
{
    std::string const data = RandomBytes(4088);
    for (int call = 1; call <= 3; ++call)
    {
        FailingOutputStream target(call);
        {
            CRCOutputStream stream(target);
            EXPECT_EQ(FailureOf([&] { stream.Write(data.data(), 4088); }), testFailure);
            stream.Write("x", 1);
        }
        EXPECT_EQ(target.Content(), Block(data) + Block("x")) << call;
    }
}

TEST(CRCStreams, AreNotCopied)
{
    static_assert(!std::is_copy_constructible_v<CRCOutputStream> && !std::is_copy_constructible_v<CRCInputStream>);
}

namespace
{

// A derived class sees each block close.
class CountingStream : public CRCOutputStream
{
public:
    using CRCOutputStream::CRCOutputStream;
    int flushes = 0;

protected:
    void FlushSelf() override
    {
        ++flushes;
        CRCOutputStream::FlushSelf();
    }
};

} // namespace

TEST(CRCStreams, AFullBlockCallsTheVirtualFlushSelf)
{
    MemoryOutputStream target;
    CountingStream stream(target);
    std::string const data = RandomBytes(4088 * 3);
    stream.Write(data.data(), 4088 * 3);
    EXPECT_EQ(stream.flushes, 3);
}
