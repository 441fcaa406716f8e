#include <kvcore/streams/Base64.h>

#include <climits>
#include <cstring>
#include <memory>
#include <stdexcept>
#include <vector>

#include <kvcore/streams/MemoryStreams.h>

#include <support/StreamFailure.h>
#include <support/TestBytes.h>
#include <support/TestStreams.h>

using namespace kv::test;

namespace
{

char const alphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

// The definition, byte by byte, to hold the fast ways against.
std::string PlainEncode(std::string const & data)
{
    std::string text;
    for (std::size_t i = 0; i < data.size(); i += 3)
    {
        unsigned int group = 0;
        for (std::size_t k = 0; k < 3; ++k)
        {
            group = group << 8 | (i + k < data.size() ? static_cast<unsigned char>(data[i + k]) : 0u);
        }
        std::size_t const given = std::min<std::size_t>(3, data.size() - i);
        for (std::size_t k = 0; k < 4; ++k)
        {
            text += k <= given ? alphabet[group >> (18 - 6 * k) & 63] : '=';
        }
    }
    return text;
}

// Encodes into memory that ends where the text should end, so that a byte too many is found.
std::string MemoryEncode(std::string const & data)
{
    int const size = static_cast<int>(data.size());
    std::size_t const textSize = static_cast<std::size_t>(Base64EncodingStream::Base64MemoryEncodedSize(size));
    std::unique_ptr<char[]> const source(new char[data.size()]);
    std::memcpy(source.get(), data.data(), data.size());
    std::unique_ptr<char[]> const target(new char[textSize]);
    Base64EncodingStream::Base64MemoryEncode(source.get(), size, target.get());
    return std::string(target.get(), textSize);
}

constexpr char guard = '\x5A';

// Decodes from and into memory of exactly the promised sizes, between guards. "-1" stands for that result.
std::string MemoryDecode(std::string const & text)
{
    int const size = static_cast<int>(text.size());
    std::size_t const most = static_cast<std::size_t>(Base64DecodingStream::Base64MemoryDecodedMaxSize(size));
    std::unique_ptr<char[]> const source(new char[text.size()]);
    std::memcpy(source.get(), text.data(), text.size());
    std::string target(most + 64, guard);
    int const result = Base64DecodingStream::Base64MemoryDecode(source.get(), size, target.data() + 32);
    EXPECT_EQ(target.substr(0, 32), std::string(32, guard));
    EXPECT_EQ(target.substr(32 + most), std::string(32, guard));
    return result < 0 ? std::to_string(result) : target.substr(32, static_cast<std::size_t>(result));
}

std::string StreamEncode(std::string const & data, int lineWidth)
{
    MemoryOutputStream target;
    {
        Base64EncodingStream stream(target, lineWidth);
        stream.Write(data.data(), static_cast<int>(data.size()));
    }
    return target.GetContent();
}

// What the stream gives up to its first failure, and that failure.
std::string StreamDecode(std::string const & text, std::string & failure)
{
    MemoryInputStream source(text);
    Base64DecodingStream stream(source);
    std::string data;
    failure = FailureOf(
        [&]
        {
            for (;;)
            {
                char byte;
                stream.Read(&byte, 1);
                data += byte;
            }
        });
    return data;
}

// The vectors of RFC 4648.
struct
{
    char const * data;
    char const * text;
} const vectors[] = {
    {"", ""},
    {"f", "Zg=="},
    {"fo", "Zm8="},
    {"foo", "Zm9v"},
    {"foob", "Zm9vYg=="},
    {"fooba", "Zm9vYmE="},
    {"foobar", "Zm9vYmFy"},
};

} // namespace

TEST(Base64, KnownTextsBothWays)
{
    for (auto const & row : vectors)
    {
        SCOPED_TRACE(row.data);
        EXPECT_EQ(MemoryEncode(row.data), row.text);
        EXPECT_EQ(StreamEncode(row.data, -1), row.text);
        EXPECT_EQ(MemoryDecode(row.text), row.data);
        std::string failure;
        EXPECT_EQ(StreamDecode(row.text, failure), row.data);
        EXPECT_EQ(failure, "5: Memory block too short");
    }
}

TEST(Base64, EverySizeBothWays)
{
    for (std::size_t size = 0; size <= 300; ++size)
    {
        std::string const data = RandomBytes(size, static_cast<unsigned int>(size) + 1);
        std::string const text = PlainEncode(data);
        ASSERT_EQ(MemoryEncode(data), text) << size;
        ASSERT_EQ(StreamEncode(data, -1), text) << size;
        ASSERT_EQ(MemoryDecode(text), data) << size;
    }
}

TEST(Base64, EverySixBitsAtEveryPlace)
{
    for (std::size_t place = 0; place < 4; ++place)
    {
        for (int value = 0; value < 64; ++value)
        {
            std::string text(64, 'A');
            for (std::size_t i = place; i < text.size(); i += 4)
            {
                text[i] = alphabet[value];
            }
            std::string const data = MemoryDecode(text);
            ASSERT_EQ(data.size(), 48u);
            ASSERT_EQ(PlainEncode(data), text);
            ASSERT_EQ(MemoryEncode(data), text);
        }
    }
}

TEST(Base64, EncodedSizes)
{
    struct
    {
        int size;
        int encoded;
    } const cases[] = {{0, 0},   {1, 4},  {2, 4},  {3, 4},       {4, 8},
                       {57, 76}, {-1, 0}, {-5, 0}, {INT_MIN, 0}, {1610612733, 2147483644}};
    for (auto const & row : cases)
    {
        EXPECT_EQ(Base64EncodingStream::Base64MemoryEncodedSize(row.size), row.encoded) << row.size;
    }
    EXPECT_THROW(Base64EncodingStream::Base64MemoryEncodedSize(1610612734), std::length_error);
    EXPECT_THROW(Base64EncodingStream::Base64MemoryEncodedSize(INT_MAX), std::length_error);
}

TEST(Base64, DecodedMaxSizes)
{
    struct
    {
        int size;
        int decoded;
    } const cases[] = {{0, 0}, {3, 0}, {4, 3}, {7, 3}, {8, 6}, {-1, 0}, {-8, 0}, {INT_MAX, 1610612733}};
    for (auto const & row : cases)
    {
        EXPECT_EQ(Base64DecodingStream::Base64MemoryDecodedMaxSize(row.size), row.decoded) << row.size;
    }
}

TEST(Base64, SizesBelowOneWriteNothing)
{
    char target = guard;
    Base64EncodingStream::Base64MemoryEncode("abc", 0, &target);
    Base64EncodingStream::Base64MemoryEncode("abc", -3, &target);
    EXPECT_EQ(Base64DecodingStream::Base64MemoryDecode("YWJj", 0, &target), 0);
    EXPECT_EQ(Base64DecodingStream::Base64MemoryDecode("YWJj", -4, &target), 0);
    EXPECT_EQ(target, guard);
}

TEST(Base64Encoding, LineWidths)
{
    struct
    {
        int width;
        char const * text; // of "foobar"
    } const cases[] = {
        {-1, "Zm9vYmFy"},  {INT_MIN, "Zm9vYmFy"}, {0, "Zm9v\nYmFy\n"}, {4, "Zm9v\nYmFy\n"},     {7, "Zm9v\nYmFy\n"},
        {8, "Zm9vYmFy\n"}, {9, "Zm9vYmFy\n"},     {12, "Zm9vYmFy\n"},  {INT_MAX, "Zm9vYmFy\n"},
    };
    for (auto const & row : cases)
    {
        EXPECT_EQ(StreamEncode("foobar", row.width), row.text) << row.width;
    }
}

TEST(Base64Encoding, AWidthOf76BreaksAfter19Groups)
{
    std::string const data = RandomBytes(57 * 3 + 1);
    std::string const text = PlainEncode(data);
    EXPECT_EQ(
        StreamEncode(data, 76),
        text.substr(0, 76) + '\n' + text.substr(76, 76) + '\n' + text.substr(152, 76) + '\n' + text.substr(228) + '\n');
    EXPECT_EQ(StreamEncode(data.substr(0, 57), 76), text.substr(0, 76) + '\n');
}

TEST(Base64Encoding, LinesOfEveryWidthInLongWrites)
{
    std::string const data = RandomBytes(20001);
    std::string const text = PlainEncode(data);
    for (int width = 4; width <= 400; width += 4)
    {
        std::string expected;
        for (std::size_t i = 0; i < text.size(); i += static_cast<std::size_t>(width))
        {
            expected += text.substr(i, static_cast<std::size_t>(width)) + '\n';
        }
        ASSERT_TRUE(StreamEncode(data, width) == expected) << width;
    }
}

TEST(Base64Encoding, NoInputIsNoOutput)
{
    for (int const width : {-1, 0, 76})
    {
        RecordingOutputStream target;
        {
            Base64EncodingStream stream(target, width);
            target.Flush();
        }
        EXPECT_TRUE(target.writes.empty());
    }
}

TEST(Base64Encoding, AWriteOfNothingBehindAPartOfAGroupDoesNothing)
{
    MemoryOutputStream target;
    {
        Base64EncodingStream stream(target, -1);
        stream.Write("ab", 2);
        stream.Write("zzzz", 0);
        stream.Write("zzzz", -1);
        stream.Write("c", 1);
    }
    EXPECT_EQ(target.GetContent(), "YWJj");
}

TEST(Base64Encoding, AFlushPadsInTheMiddleAndCountsTheGroup)
{
    MemoryOutputStream target;
    {
        Base64EncodingStream stream(target, 8);
        stream.Write("a", 1);
        target.Flush();
        stream.Write("bc", 2);
        target.Flush();
        stream.Write("def", 3);
    }
    std::string const text = target.GetContent();
    EXPECT_EQ(text, "YQ==YmM=\nZGVm\n");
    std::string failure;
    EXPECT_EQ(StreamDecode(text, failure), "abcdef");
    EXPECT_EQ(MemoryDecode(text.substr(0, text.size() - 1)), "abcdef");
}

TEST(Base64Encoding, AFailedWriteCanBeRepeatedWithBytesHeldBack)
{
    // More repeats than there is room for bytes held back.
    FailingOutputStream target(1, FailingOutputStream::Mode::Always);
    Base64EncodingStream stream(target, 4);
    stream.Write("ab", 2);
    for (int i = 0; i < 10; ++i)
    {
        EXPECT_EQ(FailureOf([&] { stream.Write("cd", 2); }), testFailure);
    }
    target.mode = FailingOutputStream::Mode::Once;
    stream.Write("cd", 2);
    target.Flush();
    EXPECT_EQ(target.Content(), "YWJj\nZA==\n");
}

namespace
{

// The writes that a text is made of: each group of four characters, and each line feed.
std::vector<std::string> GroupsOf(std::string const & text)
{
    std::vector<std::string> writes;
    for (std::size_t at = 0; at < text.size(); at += writes.back().size())
    {
        writes.push_back(text.substr(at, text[at] == '\n' ? 1 : 4));
    }
    return writes;
}

// Derived classes see every write, whatever memory they stand on.
class WatchedMemory : public MemoryOutputStream
{
public:
    void Write(char const * data, int size) override
    {
        writes.emplace_back(data, static_cast<std::size_t>(size));
        MemoryOutputStream::Write(data, size);
    }

    std::vector<std::string> writes;
};

} // namespace

TEST(Base64Encoding, EachGroupAndEachLineFeedIsAWrite)
{
    std::string const data = RandomBytes(20000);
    for (int const width : {-1, 4, 8, 76})
    {
        std::vector<std::string> const expected = GroupsOf(StreamEncode(data, width));
        for (std::size_t const piece : {std::size_t(1), std::size_t(3), std::size_t(100), data.size()})
        {
            RecordingOutputStream target;
            WatchedMemory memory;
            {
                Base64EncodingStream stream(target, width);
                Base64EncodingStream intoMemory(memory, width);
                for (std::size_t at = 0; at < data.size(); at += piece)
                {
                    int const size = static_cast<int>(std::min(piece, data.size() - at));
                    stream.Write(data.data() + at, size);
                    intoMemory.Write(data.data() + at, size);
                }
            }
            EXPECT_TRUE(target.writes == expected) << width << ' ' << piece;
            EXPECT_TRUE(memory.writes == expected) << width << ' ' << piece;
        }
    }
}

TEST(Base64Encoding, ATargetThatFailsHasTakenWhatCameBeforeAndTheRestCanFollow)
{
    std::string const data = RandomBytes(301);
    for (int const width : {-1, 4, 8, 76})
    {
        std::vector<std::string> const expected = GroupsOf(StreamEncode(data, width));
        for (int call = 1; call <= static_cast<int>(expected.size()); ++call)
        {
            FailingOutputStream target(call);
            auto stream = std::make_unique<Base64EncodingStream>(target, width);
            std::string const first = FailureOf([&] { stream->Write(data.data(), 301); });
            std::vector<std::string> const before(expected.begin(), expected.begin() + call - 1);
            // The last group is padded and comes with the destructor, like the line feed of a line that is not full.
            bool const atEnd = target.failures == 0;
            EXPECT_EQ(first, atEnd ? "none" : testFailure) << width << ' ' << call;
            EXPECT_TRUE(atEnd || target.writes == before) << width << ' ' << call;
            if (atEnd)
            {
                EXPECT_EQ(FailureOf([&] { delete stream.release(); }), testFailure) << width << ' ' << call;
                EXPECT_TRUE(target.writes == before) << width << ' ' << call;
                continue;
            }
            std::size_t taken = 0;
            for (std::string const & write : before)
            {
                taken += write == "\n" ? 0 : 3;
            }
            stream->Write(data.data() + taken, static_cast<int>(data.size() - taken));
            delete stream.release();
            EXPECT_TRUE(target.writes == expected) << width << ' ' << call;
        }
    }
}

TEST(Base64Encoding, ALineFeedThatFailedComesFirstInWhateverIsWrittenNext)
{
    enum class Next
    {
        Write,
        Flush,
        Destructor
    };
    for (Next const next : {Next::Write, Next::Flush, Next::Destructor})
    {
        FailingOutputStream target(2);
        {
            Base64EncodingStream stream(target, 4);
            EXPECT_EQ(FailureOf([&] { stream.Write("abc", 3); }), testFailure);
            EXPECT_EQ(target.Content(), "YWJj");
            if (next == Next::Write)
            {
                stream.Write("d", 1);
                EXPECT_EQ(target.Content(), "YWJj\n");
            }
            else if (next == Next::Flush)
            {
                target.Flush();
                EXPECT_EQ(target.Content(), "YWJj\n");
            }
        }
        EXPECT_EQ(target.Content(), next == Next::Write ? "YWJj\nZA==\n" : "YWJj\n");
    }
}

TEST(Base64Encoding, IntoMemoryIsTheSameTextForAnyStateOfTheMemory)
{
    std::string const data = RandomBytes(20000);
    for (int const width : {-1, 4, 8, 76})
    {
        std::string const expected = StreamEncode(data, width);
        for (int used = 4080; used <= 4100; ++used)
        {
            MemoryOutputStream target;
            std::string const before(static_cast<std::size_t>(used), '-');
            target.Write(before.data(), used);
            {
                Base64EncodingStream stream(target, width);
                stream.Write(data.data(), 1);
                stream.Write(data.data() + 1, 9999);
                stream.Write(data.data() + 10000, 10000);
            }
            EXPECT_TRUE(target.GetContent() == before + expected) << width << ' ' << used;
        }
    }
}

namespace
{

// Texts and what becomes of them: in memory, and in the stream, which delivers what stands before the failure.
struct
{
    char const * name;
    std::string text;
    std::string inMemory; // "-1" for that result
    std::string inStream;
    bool illegal;
} const texts[] = {
    {"line feeds", "Zm9v\nYmFy", "foobar", "foobar", false},
    {"all blanks", " Z\tm\r9\nv  YmFy", "foobar", "foobar", false},
    {"a line feed at the end", "Zm9v\n", "-1", "foo", false},
    {"blanks alone", " \n", "-1", "", false},
    {"a part of a group", "Zm9vY", "-1", "foo", false},
    {"three of a group", "Zm9vYmF", "-1", "foo", false},
    {"padding in the middle", "Zg==Zm8=Zm9v", "ffofoo", "ffofoo", false},
    {"padding first", "=m9vZm9v", "foo", "foo", false},
    {"padding second", "Z=9vZm9v", "foo", "foo", false},
    {"padding third alone", "Zm=vZm9v", "ffoo", "ffoo", false},
    {"padding alone", "====", "", "", false},
    {"padding cut", "Zg=", "-1", "", false},
    {"bits behind the end are dropped", "Zh==", "f", "f", false},
    {"blanks before padding", "Zg =\n=", "f", "f", false},
    {"illegal first", "*m9v", "-1", "", true},
    {"illegal last", "Zm9vYmF-", "-1", "foo", true},
    {"illegal behind padding", "Zg=*", "-1", "", true},
    {"a NUL", std::string("Zm9\0", 4), "-1", "", true},
    {"a high byte", "Zm9\xE4", "-1", "", true},
    {"an underscore", "Zm9_", "-1", "", true},
    {"a vertical tab", "Zm9v\vZm9v", "-1", "foo", true},
};

} // namespace

TEST(Base64Decoding, Texts)
{
    for (auto const & row : texts)
    {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(MemoryDecode(row.text), row.inMemory);
        std::string failure;
        EXPECT_EQ(StreamDecode(row.text, failure), row.inStream);
        EXPECT_EQ(failure, row.illegal ? "3: Base64 format error" : "5: Memory block too short");
    }
}

TEST(Base64Decoding, TheSameTextsInsideALongRun)
{
    // The fast way must stop exactly at what is not of the alphabet, wherever that is.
    std::string const before = RandomBytes(75);
    std::string const after = RandomBytes(75, 2);
    for (auto const & row : texts)
    {
        SCOPED_TRACE(row.name);
        for (std::size_t lead = 0; lead <= before.size(); lead += 3)
        {
            std::string const front = before.substr(0, lead);
            std::string const text = PlainEncode(front) + row.text;
            ASSERT_EQ(MemoryDecode(text), row.inMemory == "-1" ? "-1" : front + row.inMemory);
            if (row.inMemory != "-1")
            {
                ASSERT_EQ(MemoryDecode(text + PlainEncode(after)), front + row.inMemory + after);
            }
        }
    }
}

TEST(Base64Decoding, EveryByteAtEveryPlaceOfALongText)
{
    std::string const data = RandomBytes(60);
    std::string const text = PlainEncode(data);
    for (std::size_t place = 0; place < text.size(); ++place)
    {
        for (int byte = 0; byte < 256; ++byte)
        {
            std::string changed = text;
            changed[place] = static_cast<char>(byte);
            bool const inAlphabet = byte != 0 && std::strchr(alphabet, byte) != nullptr;
            std::string const result = MemoryDecode(changed);
            std::string failure;
            std::string const streamed = StreamDecode(changed, failure);
            if (inAlphabet)
            {
                ASSERT_EQ(PlainEncode(result), changed);
                ASSERT_EQ(streamed, result);
            }
            else if (byte != '=')
            {
                // A blank leaves the last group short; all else is illegal.
                bool const blank = byte == ' ' || byte == '\t' || byte == '\n' || byte == '\r';
                ASSERT_EQ(result, "-1") << place << ' ' << byte;
                ASSERT_EQ(failure, blank ? "5: Memory block too short" : "3: Base64 format error") << byte;
            }
            else
            {
                ASSERT_EQ(streamed, result) << place;
                ASSERT_LT(result.size(), data.size());
            }
        }
    }
}

TEST(Base64Decoding, BlanksAnywhereInALongText)
{
    std::string const data = RandomBytes(90);
    std::string const text = PlainEncode(data);
    for (std::size_t place = 0; place < text.size(); ++place)
    {
        std::string spaced = text;
        spaced.insert(place, "\r\n");
        ASSERT_EQ(MemoryDecode(spaced), data) << place;
        std::string failure;
        ASSERT_EQ(StreamDecode(spaced, failure), data) << place;
    }
}

TEST(Base64Decoding, EveryCutOfALongText)
{
    std::string const data = RandomBytes(99);
    std::string const text = PlainEncode(data);
    for (std::size_t size = 0; size <= text.size(); ++size)
    {
        std::string const whole = data.substr(0, size / 4 * 3);
        ASSERT_EQ(MemoryDecode(text.substr(0, size)), size % 4 == 0 ? whole : "-1") << size;
    }
}

TEST(Base64Decoding, TheStreamReadsOneByteAtATimeAndNothingBeyondTheGroup)
{
    RecordingInputStream source("Zm9vYmFy rest");
    Base64DecodingStream stream(source);
    char data[3];
    stream.Read(data, 1);
    EXPECT_EQ(source.position, 4u);
    stream.Read(data + 1, 2);
    EXPECT_EQ(source.position, 4u);
    EXPECT_EQ(source.reads, (std::vector<int>{1, 1, 1, 1}));
    stream.Read(data, 3);
    EXPECT_EQ(source.position, 8u);
}

TEST(Base64Decoding, TheStreamGoesOnUntilAGroupGivesAByte)
{
    RecordingInputStream source("====Z===Zg==");
    Base64DecodingStream stream(source);
    char byte;
    stream.Read(&byte, 1);
    EXPECT_EQ(byte, 'f');
    EXPECT_EQ(source.position, source.content.size());
}

TEST(Base64Decoding, TheStreamStartsANewGroupBehindAnIllegalByte)
{
    MemoryInputStream source("Zm*Zm9v", 7);
    Base64DecodingStream stream(source);
    char data[3];
    EXPECT_EQ(FailureOf([&] { stream.Read(data, 3); }), "3: Base64 format error");
    stream.Read(data, 3);
    EXPECT_EQ(std::string(data, 3), "foo");
}
