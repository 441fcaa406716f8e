// How the time of the readers grows with what they are given, each in its worst shape.

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include <kvcore/streams/Base64.h>
#include <kvcore/streams/CRC.h>
#include <kvcore/streams/Compressing.h>
#include <kvcore/streams/MemoryBlock.h>
#include <kvcore/streams/MemoryStreams.h>
#include <kvcore/streams/TypeName.h>
#include <support/CostGrowth.h>
#include <support/SerializingObjects.h>

namespace
{

/// The first measure that is in bounds, of three at most: a busy machine spoils one now and then, and a cost that grows
/// faster is in bounds in none.
template <typename... Arguments>
testing::AssertionResult GrowsNearLinearly(Arguments const &... arguments)
{
    testing::AssertionResult result = kv::test::GrowsNearLinearly(arguments...);
    for (int more = 2; more > 0 && !result; --more)
    {
        result = kv::test::GrowsNearLinearly(arguments...);
    }
    return result;
}

constexpr std::size_t smallest = 1 << 10;
// Beyond this, new pages of the system and other programs' turns cost more than what is measured.
constexpr std::size_t largest = smallest;

/// Keeps results from being optimised away.
volatile std::size_t sink;

/// A reader of bytes that are made of `piece`, over and over.
struct ByteJob
{
    char const * name;
    std::string piece;
    std::function<void(std::string const &)> run;
};

std::string Repeated(std::string const & piece, std::size_t size)
{
    std::string bytes;
    while (bytes.size() < size)
    {
        bytes += piece;
    }
    return bytes;
}

void ExpectNearLinear(std::vector<ByteJob> const & jobs)
{
    for (ByteJob const & job : jobs)
    {
        EXPECT_TRUE(GrowsNearLinearly(
            smallest, largest, [&job](std::size_t size) { return Repeated(job.piece, size); }, job.run))
            << job.name;
    }
}

void DecodeInMemory(std::string const & text)
{
    int const size = static_cast<int>(text.size());
    std::string bytes(static_cast<std::size_t>(Base64DecodingStream::Base64MemoryDecodedMaxSize(size)) + 1, '\0');
    sink = static_cast<std::size_t>(Base64DecodingStream::Base64MemoryDecode(text.data(), size, bytes.data()) + 1);
}

/// Reads to the first failure, byte by byte.
template <typename Filter>
void ReadToTheEnd(std::string const & bytes)
{
    MemoryInputStream source(bytes);
    Filter stream(source);
    std::size_t count = 0;
    try
    {
        for (char byte;; ++count)
        {
            stream.Read(&byte, 1);
        }
    }
    catch (StreamBase::Exception const &)
    {
    }
    sink = count;
}

template <typename Filter>
std::string Written(std::string const & data, std::size_t piece)
{
    MemoryOutputStream target;
    {
        Filter stream(target);
        for (std::size_t at = 0; at < data.size(); at += piece)
        {
            stream.Write(data.data() + at, static_cast<int>(std::min(piece, data.size() - at)));
            target.Flush();
        }
    }
    return target.GetContent();
}

class DefaultCompressing : public CompressingStream
{
public:
    explicit DefaultCompressing(OutputStream & target) : CompressingStream(target, -1) {}
};

} // namespace

TEST(ReaderCost, OfBase64)
{
    ExpectNearLinear({
        {"letters", "QUJD", DecodeInMemory},
        {"letters among blanks", "Q U J D \n", DecodeInMemory},
        {"blanks", " ", DecodeInMemory},
        {"padding", "====", DecodeInMemory},
        {"short groups", "QQ==", DecodeInMemory},
        {"letters, read as a stream", "QUJD", ReadToTheEnd<Base64DecodingStream>},
        {"groups that give nothing, read as a stream", "Q===", ReadToTheEnd<Base64DecodingStream>},
        {"blanks, read as a stream", " \n", ReadToTheEnd<Base64DecodingStream>},
    });
}

TEST(ReaderCost, OfChecksums)
{
    for (std::size_t const piece : {std::size_t(1), std::size_t(100000)})
    {
        EXPECT_TRUE(GrowsNearLinearly(
            smallest, largest,
            [piece](std::size_t size) { return Written<CRCOutputStream>(std::string(size, 'x'), piece); },
            ReadToTheEnd<CRCInputStream>))
            << piece;
    }
}

TEST(ReaderCost, OfDecompressing)
{
    for (std::size_t const piece : {std::size_t(1), std::size_t(64), std::size_t(100000)})
    {
        EXPECT_TRUE(GrowsNearLinearly(
            smallest, largest,
            [piece](std::size_t size) { return Written<DefaultCompressing>(std::string(size, 'x'), piece); },
            ReadToTheEnd<DecompressingStream>))
            << piece;
    }
}

namespace
{

/// Reads values of one type to the end of the bytes.
template <typename Value>
void ReadValues(std::string const & bytes)
{
    MemoryInputStream source(bytes);
    std::size_t count = 0;
    try
    {
        for (;; ++count)
        {
            Value value;
            source >> value;
        }
    }
    catch (StreamBase::Exception const &)
    {
    }
    sink = count;
}

} // namespace

TEST(ReaderCost, OfStringsAndBlocks)
{
    // Read by way of the stack and of the heap.
    for (std::size_t const length : {std::size_t(0), std::size_t(10), std::size_t(0x402)})
    {
        MemoryOutputStream memory;
        memory << std::string(length, 'x');
        std::string const piece = memory.GetContent();
        ExpectNearLinear({
            {"narrow strings", piece, ReadValues<std::string>},
            {"wide strings", piece, ReadValues<WString>},
            {"blocks", piece, ReadValues<MemoryBlock>},
        });
    }
}

namespace
{

/// A stream of many objects: new ones by reference, each repeated by a reference to the first, a null and a value.
std::string ManyObjects(ObjectFactory const & factory, std::size_t count)
{
    MemoryOutputStream memory;
    SerializingOutputStream stream(factory, memory);
    std::vector<SerialItem *> items;
    for (std::size_t i = 0; i < count; ++i)
    {
        items.push_back(new SerialItem(static_cast<short>(i)));
        stream.WriteRef(items.back());
        stream.WriteRef(items.front());
        stream.WriteRef(nullptr);
        stream.Write(SerialColor());
    }
    for (SerialItem * const item : items)
    {
        item->Release();
    }
    return memory.GetContent();
}

} // namespace

TEST(ReaderCost, OfObjects)
{
    ObjectFactory factory;
    kv::test::RegisterSerialObjects(factory);
    EXPECT_TRUE(GrowsNearLinearly(
        1 << 8, 1 << 10, [&factory](std::size_t count) { return std::pair(count, ManyObjects(factory, count)); },
        [&factory](std::pair<std::size_t, std::string> const & input)
        {
            MemoryInputStream source(input.second);
            SerializingInputStream stream(factory, source);
            for (std::size_t i = 0; i < input.first; ++i)
            {
                stream.ReadRef()->Release();
                stream.ReadRef();
                stream.ReadRef();
                stream.Create()->Release();
            }
        }));
}

TEST(ReaderCost, OfTypeNames)
{
    auto const read = [](std::string const & name) { sink = kv::detail::SourceForm(name).size(); };
    auto const strip = [](std::string const & name) { sink = StripTypeName(name).size(); };
    ExpectNearLinear({
        {"nested templates", "A<", read},
        {"nested brackets", "(", read},
        {"nested functions", "int (", read},
        {"nested pointers to functions", "int (*(", read},
        {"arguments in brackets", "A<(", read},
        {"tags", "A[abi:", read},
        {"braces", "{", read},
        {"scopes", "A::", read},
        {"pointers", "* ", read},
        {"names behind names", "A ", read},
        {"templates behind names", "A B<", read},
        {"words to strip", "class struct ", strip},
        {"words that come together", "claclass ss ", strip},
        {"words that nearly are", "clas", strip},
        {"words inside of words", "strustruct ct A", strip},
    });
    EXPECT_TRUE(GrowsNearLinearly(
        smallest, largest, [](std::size_t size) { return "A<" + Repeated("(x),B<1>,{y},", size) + "int>"; }, read));
    EXPECT_TRUE(GrowsNearLinearly(
        smallest, largest, [](std::size_t size) { return Repeated("A<", size / 2) + "1" + Repeated(">x", size / 2); },
        read));
    EXPECT_TRUE(GrowsNearLinearly(
        smallest, largest, [](std::size_t size) { return Repeated("struct", size / 2) + Repeated(" ", size / 2); },
        strip));
}
