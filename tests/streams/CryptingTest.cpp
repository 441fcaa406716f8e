#include <kvcore/streams/Crypting.h>

#include <kvcore/streams/MemoryStreams.h>

#include <support/StreamFailure.h>
#include <support/TestBytes.h>
#include <support/TestStreams.h>

using namespace kv::test;

namespace
{

// Notes where the bytes lie that it is given.
class PlaceStream : public OutputStream
{
public:
    PlaceStream() : OutputStream(nullptr) {}
    void Write(char const * data, int) override
    {
        place = data;
    }

    char const * place = nullptr;
};

std::string Complement(std::string bytes)
{
    for (char & byte : bytes)
    {
        byte = static_cast<char>(~byte);
    }
    return bytes;
}

} // namespace

TEST(CryptingStreams, ByteIIsTheComplementOfByteI)
{
    MemoryOutputStream target;
    CryptingOutputStream stream(target);
    std::string data = Bytes("\x00\xFF\x55\x01"
                             "A");
    stream.Write(data.data(), 5);
    EXPECT_EQ(target.GetContent(), Bytes("\xFF\x00\xAA\xFE\xBE"));
}

TEST(CryptingStreams, EverySizeComesBack)
{
    std::string data = RandomBytes(300);
    for (int size = 0; size <= 300; ++size)
    {
        MemoryOutputStream target;
        CryptingOutputStream(target).Write(data.data(), size);
        std::string const wire = target.GetContent();
        ASSERT_EQ(wire, Complement(data.substr(0, static_cast<std::size_t>(size))));
        MemoryInputStream source(wire);
        std::string read(static_cast<std::size_t>(size), '\0');
        CryptingInputStream(source).Read(read.data(), size);
        ASSERT_EQ(read, data.substr(0, static_cast<std::size_t>(size)));
    }
}

TEST(CryptingStreams, TheCallersBufferIsPutBackAlsoWhenTheTargetThrows)
{
    std::string data = RandomBytes(1000);
    std::string const before = data;
    FailingOutputStream target(2);
    CryptingOutputStream stream(target);
    stream.Write(data.data(), 1000);
    EXPECT_EQ(data, before);
    EXPECT_EQ(FailureOf([&] { stream.Write(data.data(), 1000); }), testFailure);
    EXPECT_EQ(data, before);
    EXPECT_EQ(target.refused, Complement(before));
}

TEST(CryptingStreams, TheTargetIsGivenTheCallersBuffer)
{
    PlaceStream target;
    std::string data = "abc";
    CryptingOutputStream(target).Write(data.data(), 3);
    EXPECT_EQ(target.place, data.data());
}

TEST(CryptingStreams, ASizeBelowOneReachesNeitherNeighbour)
{
    RecordingOutputStream target;
    std::string data = "abc";
    CryptingOutputStream output(target);
    output.Write(data.data(), 0);
    output.Write(data.data(), -1);
    EXPECT_TRUE(target.writes.empty());

    RecordingInputStream source("abc");
    CryptingInputStream input(source);
    input.Read(data.data(), 0);
    input.Read(data.data(), -1);
    EXPECT_TRUE(source.reads.empty());
    EXPECT_EQ(data, "abc");
}

TEST(CryptingStreams, NumbersAndConstantsOfTheProgramCanBeWritten)
{
    // All of these might lie in memory that cannot be complemented in place.
    static GUID const guid = {1, 2, 3, {4, 5, 6, 7, 8, 9, 10, 11}};
    static __int64 const number = 12345;
    MemoryOutputStream target;
    CryptingOutputStream stream(target);
    stream << guid << _strm64(number) << 7 << true;
    EXPECT_EQ(
        Complement(target.GetContent()),
        Bytes("\1\0\0\0\2\0\3\0\4\5\6\7\x08\x09\x0A\x0B"
              "\x39\x30\0\0\0\0\0\0"
              "\7\0\0\0"
              "\1"));
}
