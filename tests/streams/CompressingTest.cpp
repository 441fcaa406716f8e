#include <kvcore/streams/Compressing.h>

#include <zlib.h>

#include <climits>
#include <cstring>
#include <type_traits>

#include <kvcore/streams/MemoryStreams.h>

#include <support/StreamFailure.h>
#include <support/TestBytes.h>
#include <support/TestStreams.h>

using namespace kv::test;

namespace
{

std::string Compressed(std::string const & data, int level)
{
    MemoryOutputStream target;
    {
        CompressingStream stream(target, level);
        stream.Write(data.data(), static_cast<int>(data.size()));
    }
    return target.GetContent();
}

// zlib's own result, in one call.
std::string ByZlib(std::string const & data, int level)
{
    uLongf size = compressBound(static_cast<uLong>(data.size()));
    std::string text(size, '\0');
    EXPECT_EQ(
        compress2(
            reinterpret_cast<Bytef *>(text.data()), &size, reinterpret_cast<Bytef const *>(data.data()),
            static_cast<uLong>(data.size()), level),
        Z_OK);
    text.resize(size);
    return text;
}

std::string Decompressed(std::string const & wire, std::size_t size)
{
    MemoryInputStream source(wire);
    DecompressingStream stream(source);
    std::string data(size, '\0');
    stream.Read(data.data(), static_cast<int>(size));
    return data;
}

std::string Text(std::size_t size)
{
    std::string text;
    while (text.size() < size)
    {
        text += "line " + std::to_string(text.size() * 7919 % 1000) + " of many that are alike\n";
    }
    text.resize(size);
    return text;
}

} // namespace

TEST(CompressingStreams, GiveAPlainZlibStream)
{
    // Stored, so that every byte is known: header, one final stored block, checksum.
    EXPECT_EQ(
        Compressed("abc", 0),
        Bytes("\x78\x01"
              "\x01\x03\x00\xFC\xFF"
              "abc"
              "\x02\x4D\x01\x27"));
    EXPECT_EQ(Compressed("abc", 9).substr(0, 2), Bytes("\x78\xDA"));
    EXPECT_EQ(Compressed("abc", -1).substr(0, 2), Bytes("\x78\x9C"));
}

TEST(CompressingStreams, GiveWhatZlibGivesAtEveryLevel)
{
    std::string const data = Text(200000);
    for (int level = -1; level <= 9; ++level)
    {
        // How stored blocks are cut depends on the room that zlib is given.
        std::string const wire = Compressed(data, level);
        if (level != 0)
        {
            EXPECT_TRUE(wire == ByZlib(data, level)) << level;
        }
        EXPECT_TRUE(Decompressed(wire, data.size()) == data) << level;
    }
}

TEST(CompressingStreams, LevelsOutsideZlibsCountAsTheNearest)
{
    std::string const data = Text(20000);
    struct
    {
        int level;
        int same;
    } const cases[] = {{12, 9}, {INT_MAX, 9}, {-5, 0}, {-2, 0}, {INT_MIN, 0}};
    for (auto const & row : cases)
    {
        EXPECT_TRUE(Compressed(data, row.level) == Compressed(data, row.same)) << row.level;
    }
    EXPECT_TRUE(Compressed(data, -1) == Compressed(data, 6));
    EXPECT_GT(Compressed(data, 0).size(), data.size());
}

TEST(CompressingStreams, WithoutDataTheTargetIsLeftAlone)
{
    RecordingOutputStream target;
    {
        CompressingStream stream(target, -1);
        stream.Write("abc", 0);
        stream.Write("abc", -1);
        target.Flush();
    }
    EXPECT_TRUE(target.writes.empty());
}

TEST(CompressingStreams, AFlushPutsInASyncPointAndASecondOneNothing)
{
    RecordingOutputStream target;
    CompressingStream stream(target, -1);
    stream.Write("abc", 3);
    target.Flush();
    std::string const flushed = target.Content();
    ASSERT_GE(flushed.size(), 4u);
    EXPECT_EQ(flushed.substr(flushed.size() - 4), Bytes("\x00\x00\xFF\xFF"));
    std::size_t const writes = target.writes.size();
    target.Flush();
    EXPECT_EQ(target.writes.size(), writes);
    // Everything up to the point can be read, though the stream is not complete.
    EXPECT_EQ(Decompressed(flushed, 3), "abc");
    stream.Write("d", 1);
    target.Flush();
    EXPECT_GT(target.writes.size(), writes);
    EXPECT_EQ(Decompressed(target.Content(), 4), "abcd");
}

TEST(CompressingStreams, BytesHandedOnComeInPiecesOfTwoAndFourKibibytes)
{
    std::string const data = RandomBytes(300000);
    RecordingOutputStream target;
    std::size_t duringWrite;
    {
        CompressingStream stream(target, -1);
        stream.Write(data.data(), static_cast<int>(data.size()));
        duringWrite = target.writes.size();
    }
    for (std::size_t i = 0; i < target.writes.size(); ++i)
    {
        EXPECT_LE(target.writes[i].size(), i < duringWrite ? 0x800u : 0x1000u);
        EXPECT_TRUE(!target.writes[i].empty() || i >= duringWrite);
    }
    EXPECT_TRUE(Decompressed(target.Content(), data.size()) == data);
}

TEST(CompressingStreams, AFlushOfWhatIsOutAlreadyIsAFailureOfZlib)
{
    // The flush point itself was refused, and zlib does not give it twice.
    FailingOutputStream target(2);
    {
        CompressingStream stream(target, -1);
        stream.Write("abc", 3);
        ASSERT_EQ(target.calls, 1);
        EXPECT_EQ(FailureOf([&] { stream.Flush(); }), testFailure);
        EXPECT_EQ(FailureOf([&] { stream.Flush(); }), "2: buffer error");
        stream.Write("d", 1);
    }
    EXPECT_EQ(target.failures, 1);
    EXPECT_EQ(target.Content().find(target.refused), std::string::npos);
}

TEST(DecompressingStreams, TakeOneByteAtATimeAndLeaveTheTrailer)
{
    std::string const data = Text(3000);
    std::string const wire = ByZlib(data, 6);
    RecordingInputStream source(wire + "what follows");
    DecompressingStream stream(source);
    std::string read(data.size(), '\0');
    stream.Read(read.data(), static_cast<int>(read.size()));
    EXPECT_EQ(read, data);
    for (int const size : source.reads)
    {
        ASSERT_EQ(size, 1);
    }
    // The checksum of four bytes is unread, and the end mark before it may be.
    EXPECT_LE(source.position, wire.size() - 4);
    EXPECT_GE(source.position, wire.size() - 6);
}

TEST(DecompressingStreams, ReadingBeyondTheDataFailsAgainAndAgain)
{
    std::string const wire = Compressed("abc", -1) + std::string(20, 'x');
    MemoryInputStream source(wire);
    DecompressingStream stream(source);
    char data[4];
    stream.Read(data, 3);
    for (int i = 0; i < 5; ++i)
    {
        EXPECT_EQ(FailureOf([&] { stream.Read(data, 1); }), "2: stream end");
    }
    stream.Read(data, 0);
}

TEST(DecompressingStreams, ReadingBeyondACutStreamFailsWithTheSource)
{
    std::string const wire = Compressed("abc", -1);
    MemoryInputStream source(wire.data(), static_cast<int>(wire.size()) - 2);
    DecompressingStream stream(source);
    char data[4];
    stream.Read(data, 3);
    for (int i = 0; i < 3; ++i)
    {
        EXPECT_EQ(FailureOf([&] { stream.Read(data, 1); }), "5: Memory block too short");
    }
}

TEST(DecompressingStreams, FailuresCarryZlibsText)
{
    struct
    {
        std::string wire;
        char const * failure;
    } const cases[] = {
        {"not compressed at all", "2: incorrect header check"},
        {Bytes("\x78\x01\x07"), "2: invalid block type"},
        {Bytes("\x78\x01\x01\x03\x00\x00\x00"), "2: invalid stored block lengths"},
        {Bytes("\x78\xBB\x00\x00\x00\x01"), "2: need dictionary"},
        {Bytes("\x78\x9C\x03\x00\x00\x00\x00\x01"), "2: stream end"},
        {Bytes("\x78\x9C\x03\x00\x00\x00\x00\x02"), "2: incorrect data check"},
    };
    for (auto const & row : cases)
    {
        SCOPED_TRACE(row.failure);
        MemoryInputStream source(row.wire);
        DecompressingStream stream(source);
        char byte;
        EXPECT_EQ(FailureOf([&] { stream.Read(&byte, 1); }), row.failure);
    }
}

TEST(DecompressingStreams, AFewBytesThatPromiseMuchTakeNoMoreMemoryThanTheReaderGives)
{
    std::string const wire = Compressed(std::string(10000000, 'a'), 9);
    EXPECT_LT(wire.size(), 20000u);
    MemoryInputStream source(wire);
    DecompressingStream stream(source);
    std::string piece(10000, '\0');
    for (int i = 0; i < 1000; ++i)
    {
        stream.Read(piece.data(), 10000);
        ASSERT_EQ(piece.find_first_not_of('a'), std::string::npos);
    }
}

TEST(CompressingStreams, AreNotCopied)
{
    static_assert(!std::is_copy_constructible_v<CompressingStream>);
    static_assert(!std::is_copy_constructible_v<DecompressingStream>);
}
