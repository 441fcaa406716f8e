#include <kvcore/streams/Streams.h>

#include <cmath>
#include <cstdint>
#include <functional>
#include <limits>
#include <memory>
#include <type_traits>

#include <kvcore/streams/MemoryStreams.h>

#include <support/StreamFailure.h>
#include <support/TestBytes.h>
#include <support/TestStreams.h>

using namespace kv::test;

namespace
{

GUID const someGuid = {0x01020304, 0x0506, 0x0708, {0x09, 0x0A, 0x0B, 0x0C, 0x0D, 0x0E, 0x0F, 0x10}};

struct Primitive
{
    char const * name;
    std::function<void(OutputStream &)> write;
    std::string bytes;
    // Reads the value back into a variable filled with other bits and tells if it is the one that was written.
    std::function<bool(InputStream &)> readsBack;
};

template <typename T>
Primitive Value(char const * name, T value, std::string bytes)
{
    auto const same = [value](T const & read) { return std::memcmp(&read, &value, sizeof(T)) == 0; };
    return {
        name, [value](OutputStream & stream) { stream << value; }, std::move(bytes),
        [same](InputStream & stream)
        {
            T read;
            std::memset(static_cast<void *>(&read), std::is_same_v<T, bool> ? 0 : 0x5A, sizeof read);
            stream >> read;
            return same(read);
        }};
}

template <typename T>
Primitive Marked(char const * name, T value, std::string bytes)
{
    return {
        name, [value](OutputStream & stream) { stream << _strm64(value); }, std::move(bytes),
        [value](InputStream & stream)
        {
            T read = 0x5A5A;
            stream >> _strm64(read);
            return read == value;
        }};
}

std::vector<Primitive> Primitives()
{
    return {
        Value("true", true, Bytes("\x01")),
        Value("false", false, Bytes("\x00")),
        Value("char", 'A', Bytes("\x41")),
        Value("char above ASCII", '\xE4', Bytes("\xE4")),
        Value("unsigned char", static_cast<unsigned char>(0xFE), Bytes("\xFE")),
        Value("short", static_cast<short>(-2), Bytes("\xFE\xFF")),
        Value("unsigned short", static_cast<unsigned short>(0x1234), Bytes("\x34\x12")),
        Value("int", -2, Bytes("\xFE\xFF\xFF\xFF")),
        Value("least int", std::numeric_limits<int>::min(), Bytes("\x00\x00\x00\x80")),
        Value("unsigned int", 0x12345678u, Bytes("\x78\x56\x34\x12")),
        Value("long", -2L, Bytes("\xFE\xFF\xFF\xFF")),
        Value("positive long", 0x12345678L, Bytes("\x78\x56\x34\x12")),
        Value("unsigned long", 0xFEDCBA98ul, Bytes("\x98\xBA\xDC\xFE")),
        Value("float", -1.5f, Bytes("\x00\x00\xC0\xBF")),
        Value("double", 1.0, Bytes("\x00\x00\x00\x00\x00\x00\xF0\x3F")),
        Value("infinite double", -std::numeric_limits<double>::infinity(), Bytes("\x00\x00\x00\x00\x00\x00\xF0\xFF")),
        Value("GUID", someGuid, Bytes("\x04\x03\x02\x01\x06\x05\x08\x07\x09\x0A\x0B\x0C\x0D\x0E\x0F\x10")),
        Marked<__int64>("64 bits", -2, Bytes("\xFE\xFF\xFF\xFF\xFF\xFF\xFF\xFF")),
        Marked<unsigned __int64>("64 bits unsigned", 0xFEDCBA9876543210u, Bytes("\x10\x32\x54\x76\x98\xBA\xDC\xFE")),
        Marked<std::int64_t>("64 bits by another name", 0x123456789, Bytes("\x89\x67\x45\x23\x01\x00\x00\x00")),
    };
}

} // namespace

TEST(StreamPrimitives, GoOutAsTheirBytesInOneWrite)
{
    for (Primitive const & primitive : Primitives())
    {
        SCOPED_TRACE(primitive.name);
        RecordingOutputStream target;
        primitive.write(target);
        EXPECT_EQ(target.writes, std::vector<std::string>{primitive.bytes});
    }
}

TEST(StreamPrimitives, AreReadBackInOneRead)
{
    for (Primitive const & primitive : Primitives())
    {
        SCOPED_TRACE(primitive.name);
        RecordingInputStream source(primitive.bytes);
        EXPECT_TRUE(primitive.readsBack(source));
        EXPECT_EQ(source.reads, std::vector<int>{static_cast<int>(primitive.bytes.size())});
    }
}

TEST(StreamPrimitives, FailWithTheSourceWhenAByteIsMissing)
{
    for (Primitive const & primitive : Primitives())
    {
        SCOPED_TRACE(primitive.name);
        MemoryInputStream source(primitive.bytes.data(), static_cast<int>(primitive.bytes.size()) - 1);
        EXPECT_EQ(FailureOf([&] { primitive.readsBack(source); }), "5: Memory block too short");
    }
}

TEST(StreamPrimitives, AnyByteButZeroIsTrue)
{
    for (int byte = 0; byte < 256; ++byte)
    {
        char const wire = static_cast<char>(byte);
        MemoryInputStream source(&wire, 1);
        bool value = byte == 0;
        source >> value;
        EXPECT_EQ(value, byte != 0) << byte;
    }
}

TEST(StreamPrimitives, LongTakesTheLowBitsAndCarriesTheSignBack)
{
    RecordingOutputStream target;
    target << static_cast<long>(0x1FFFFFFFEll) << static_cast<unsigned long>(0x1FFFFFFFEull);
    EXPECT_EQ(target.Content(), Bytes("\xFE\xFF\xFF\xFF\xFE\xFF\xFF\xFF"));

    MemoryInputStream source("\xFE\xFF\xFF\xFF\xFE\xFF\xFF\xFF", 8);
    long number;
    unsigned long positive;
    source >> number >> positive;
    EXPECT_EQ(number, -2L);
    EXPECT_EQ(positive, 0xFFFFFFFEul);
}

TEST(StreamPrimitives, A64BitNumberIsMarkedByReferenceOrPointer)
{
    __int64 number = 1;
    __int64 const constant = 2;
    unsigned __int64 positive = 3;
    static_assert(std::is_same_v<decltype(_strm64(number)), _strm64<__int64>>);
    static_assert(std::is_same_v<decltype(_strm64(&constant)), _strm64<__int64 const>>);
    static_assert(std::is_same_v<decltype(_strm64(positive)), _strm64<unsigned __int64>>);
    __int64 * const pointer = &number;
    static_assert(std::is_same_v<decltype(_strm64(pointer)), _strm64<__int64>>);

    RecordingOutputStream target;
    target << _strm64(&number) << _strm64(constant) << _strm64<unsigned __int64 const>(positive + 1);
    EXPECT_EQ(
        target.writes,
        (std::vector<std::string>{
            Bytes("\x01\0\0\0\0\0\0\0"), Bytes("\x02\0\0\0\0\0\0\0"), Bytes("\x04\0\0\0\0\0\0\0")}));

    MemoryInputStream source("\x05\0\0\0\0\0\0\0\x06\0\0\0\0\0\0\0", 16);
    source >> _strm64(number) >> _strm64(&positive);
    EXPECT_EQ(number, 5);
    EXPECT_EQ(positive, 6u);
}

namespace
{

template <typename T>
concept Writable = requires(OutputStream & stream, T value)
{
    stream << value;
};

static_assert(Writable<char const *> && Writable<char *> && Writable<String> && Writable<WString> && Writable<int>);
static_assert(!Writable<WCHAR const *> && !Writable<WCHAR *> && !Writable<void *> && !Writable<int const *>);
static_assert(!Writable<WCHAR> && !Writable<signed char> && !Writable<__int64> && !Writable<unsigned __int64>);
static_assert(!Writable<std::nullptr_t>);

} // namespace

TEST(StreamStrings, GoOutAsCountAndBody)
{
    using Writes = std::vector<std::string>;
    struct
    {
        char const * name;
        std::function<void(OutputStream &)> write;
        Writes writes;
    } const cases[] = {
        {"literal", [](OutputStream & stream) { stream << "abc"; }, {Bytes("\3\0\0\0"), "abc"}},
        {"narrow", [](OutputStream & stream) { stream << Bytes("a\0b"); }, {Bytes("\3\0\0\0"), Bytes("a\0b")}},
        {"wide",
         [](OutputStream & stream) { stream << WString(TEXT("a\u20AC")); },
         {Bytes("\4\0\0\0"), Bytes("a\0\xAC\x20")}},
        {"String",
         [](OutputStream & stream) { stream << String(TEXT("\U0001F600")); },
         {Bytes("\4\0\0\0"), Bytes("\x3D\xD8\x00\xDE")}},
        {"empty literal", [](OutputStream & stream) { stream << ""; }, {Bytes("\0\0\0\0"), ""}},
        {"empty narrow", [](OutputStream & stream) { stream << std::string(); }, {Bytes("\0\0\0\0"), ""}},
        {"empty String", [](OutputStream & stream) { stream << String(); }, {Bytes("\0\0\0\0"), ""}},
    };
    for (auto const & row : cases)
    {
        SCOPED_TRACE(row.name);
        RecordingOutputStream target;
        row.write(target);
        EXPECT_EQ(target.writes, row.writes);
    }
}

namespace
{

template <typename Text>
class StreamTexts : public testing::Test
{
protected:
    static constexpr std::size_t width = sizeof(typename Text::value_type);

    // A text of `bytes` bytes on the wire.
    static Text Sample(std::size_t bytes)
    {
        std::string const random = RandomBytes(bytes, 7);
        Text text(bytes / width, typename Text::value_type());
        std::memcpy(text.data(), random.data(), text.size() * width);
        return text;
    }

    static std::string Wire(std::int32_t count, std::string const & body = "")
    {
        std::string wire(reinterpret_cast<char const *>(&count), 4);
        return wire + body;
    }

    static std::string Wire(Text const & text)
    {
        return Wire(
            static_cast<std::int32_t>(text.size() * width),
            std::string(reinterpret_cast<char const *>(text.data()), text.size() * width));
    }
};

using Texts = testing::Types<std::string, WString>;
TYPED_TEST_SUITE(StreamTexts, Texts);

} // namespace

TYPED_TEST(StreamTexts, AreReadInOnePieceUpToAMebibyte)
{
    for (int const bytes : {2, 0x3FE, 0x400, 0x402, 0x10000, 0x100000})
    {
        SCOPED_TRACE(bytes);
        TypeParam const text = this->Sample(static_cast<std::size_t>(bytes));
        RecordingInputStream source(this->Wire(text));
        TypeParam read;
        source >> read;
        EXPECT_TRUE(read == text);
        EXPECT_EQ(source.reads, (std::vector<int>{4, bytes}));
    }
}

TYPED_TEST(StreamTexts, AreReadInGrowingPiecesAboveAMebibyte)
{
    TypeParam const text = this->Sample(0x500002);
    RecordingInputStream source(this->Wire(text));
    TypeParam read;
    source >> read;
    EXPECT_TRUE(read == text);
    EXPECT_EQ(source.reads, (std::vector<int>{4, 0x100000, 0x100000, 0x200000, 0x100002}));
}

TYPED_TEST(StreamTexts, ACountOfZeroClearsTheTarget)
{
    RecordingInputStream source(this->Wire(0));
    TypeParam text = this->Sample(8);
    source >> text;
    EXPECT_TRUE(text.empty());
    EXPECT_EQ(source.reads, std::vector<int>{4});
}

TYPED_TEST(StreamTexts, NegativeCountsAreInvalid)
{
    for (std::int32_t const count : {-1, -2, std::numeric_limits<std::int32_t>::min()})
    {
        std::string const wire = this->Wire(count, "abcdef");
        MemoryInputStream source(wire);
        TypeParam text = this->Sample(8);
        EXPECT_EQ(FailureOf([&] { source >> text; }), "3: Invalid string length") << count;
        EXPECT_TRUE(text == this->Sample(8));
    }
}

TYPED_TEST(StreamTexts, ACountThatTheSourceDoesNotBackEndsInItsFailure)
{
    for (std::int32_t const count : {0x10, 0x400, 0x402, 0x100000, 0x100002, 0x7FFFFFFE})
    {
        std::string const wire = this->Wire(count, "abcdef");
        RecordingInputStream source(wire);
        TypeParam text = this->Sample(8);
        EXPECT_EQ(FailureOf([&] { source >> text; }), "5: Memory block too short") << count;
        EXPECT_TRUE(text == this->Sample(8));
        // What is asked for at once is what is allocated at once.
        EXPECT_LE(source.reads.back(), 0x100000) << count;
    }
}

TYPED_TEST(StreamTexts, EveryCutEndsInTheSourcesFailure)
{
    std::string const wire = this->Wire(this->Sample(12));
    for (std::size_t size = 0; size < wire.size(); ++size)
    {
        MemoryInputStream source(wire.data(), static_cast<int>(size));
        TypeParam text;
        EXPECT_EQ(FailureOf([&] { source >> text; }), "5: Memory block too short") << size;
    }
}

TYPED_TEST(StreamTexts, AFailedBodyLeavesTheCountWritten)
{
    FailingOutputStream target(2);
    TypeParam const text = this->Sample(4);
    EXPECT_EQ(FailureOf([&] { target << text; }), testFailure);
    EXPECT_EQ(target.writes, std::vector<std::string>{this->Wire(4)});
}

TEST(StreamStrings, OddCountsAreInvalidForWideOnesAlone)
{
    MemoryInputStream wideSource("\3\0\0\0abc", 7);
    String wide(TEXT("kept"));
    EXPECT_EQ(FailureOf([&] { wideSource >> wide; }), "3: Invalid string length");
    EXPECT_EQ(wide, String(TEXT("kept")));

    MemoryInputStream narrowSource("\3\0\0\0abc", 7);
    std::string narrow;
    narrowSource >> narrow;
    EXPECT_EQ(narrow, "abc");
}

TEST(StreamStrings, AnOddCountOf401TakesTheHeapAndReadsCorrectly)
{
    std::string const body = RandomBytes(0x401);
    std::string const wire = Bytes("\x01\x04\0\0") + body;
    MemoryInputStream source(wire);
    std::string text;
    source >> text;
    EXPECT_EQ(text, body);
}

namespace
{

// A link of a chain that notes when it is flushed and shows its neighbours.
class Link : public OutputStream
{
public:
    Link(OutputStream * target, std::string linkName, std::string & flushLog)
        : OutputStream(target), name(std::move(linkName)), log(flushLog)
    {
    }
    Link(Link const & other) = default;

    void Write(char const *, int) override {}

    OutputStream * Upstream() const
    {
        return upstream;
    }
    OutputStream * Downstream() const
    {
        return downstream;
    }

protected:
    void FlushSelf() override
    {
        log += name;
    }

private:
    std::string name;
    std::string & log;
};

class SourceLink : public InputStream
{
public:
    explicit SourceLink(InputStream * from) : InputStream(from) {}
    void Read(char *, int) override {}
    InputStream * Source() const
    {
        return source;
    }
};

} // namespace

TEST(StreamChains, FlushWalksFromTheHeadToTheStreamItWasCalledOn)
{
    std::string log;
    Link end(nullptr, "end ", log);
    Link middle(&end, "middle ", log);
    Link head(&middle, "head ", log);

    end.Flush();
    EXPECT_EQ(log, "head middle end ");
    log.clear();
    middle.Flush();
    EXPECT_EQ(log, "head middle ");
    log.clear();
    head.Flush();
    EXPECT_EQ(log, "head ");
}

TEST(StreamChains, ANewStreamIsHookedToItsTarget)
{
    std::string log;
    Link end(nullptr, "", log);
    Link head(&end, "", log);
    EXPECT_EQ(end.Upstream(), &head);
    EXPECT_EQ(end.Downstream(), nullptr);
    EXPECT_EQ(head.Downstream(), &end);
    EXPECT_EQ(head.Upstream(), nullptr);
}

TEST(StreamChains, ADestroyedMiddleLeavesItsNeighboursUnhooked)
{
    std::string log;
    Link end(nullptr, "end", log);
    auto middle = std::make_unique<Link>(&end, "middle", log);
    Link head(middle.get(), "head", log);
    middle.reset();
    EXPECT_EQ(head.Downstream(), nullptr);
    EXPECT_EQ(end.Upstream(), nullptr);
    end.Flush();
    EXPECT_EQ(log, "end");
}

TEST(StreamChains, ADestroyedStreamUnhooksItsTargetFromWhateverWritesIntoIt)
{
    std::string log;
    Link end(nullptr, "end", log);
    auto first = std::make_unique<Link>(&end, "first", log);
    Link second(&end, "second", log);
    EXPECT_EQ(end.Upstream(), &second);
    first.reset();
    EXPECT_EQ(end.Upstream(), nullptr);
    EXPECT_EQ(second.Downstream(), &end);
}

TEST(StreamChains, ACopyKnowsTheNeighboursButTheyDoNotKnowIt)
{
    std::string log;
    Link end(nullptr, "", log);
    auto middle = std::make_unique<Link>(&end, "", log);
    Link head(middle.get(), "", log);
    {
        Link copy(*middle);
        EXPECT_EQ(copy.Upstream(), &head);
        EXPECT_EQ(copy.Downstream(), &end);
        EXPECT_EQ(head.Downstream(), middle.get());
        EXPECT_EQ(end.Upstream(), middle.get());
    }
    // The copy's destructor unhooks what it finds, like any other.
    EXPECT_EQ(head.Downstream(), nullptr);
    EXPECT_EQ(end.Upstream(), nullptr);
    // The head no longer tells the middle of its end, so the middle has to go first.
    middle.reset();
}

TEST(StreamChains, AnInputStreamStoresItsSourceAndSoDoesItsCopy)
{
    RecordingInputStream end("");
    SourceLink head(&end);
    SourceLink const copy(head);
    EXPECT_EQ(head.Source(), &end);
    EXPECT_EQ(copy.Source(), &end);
    EXPECT_EQ(SourceLink(nullptr).Source(), nullptr);
}

TEST(StreamChains, TheDestructorOfEveryStreamMayThrow)
{
    static_assert(!std::is_nothrow_destructible_v<StreamBase>);
    static_assert(!std::is_nothrow_destructible_v<OutputStream>);
    static_assert(!std::is_nothrow_destructible_v<InputStream>);
    static_assert(!std::is_nothrow_destructible_v<Link>);
    static_assert(!std::is_copy_assignable_v<Link>);
}
