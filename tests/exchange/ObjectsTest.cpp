// Streams of values and objects, from each target to every other.

#include <cstdlib>

#include <gtest/gtest.h>

#include <kvcore/streams/Compressing.h>
#include <kvcore/streams/MemoryStreams.h>
#include <kvcore/streams/ObjectFactory.h>
#include <kvcore/streams/Serializing.h>
#include <support/SerializingObjects.h>

#include "StoredFiles.h"

namespace
{

using kv::test::ExpectAsStored;
using kv::test::Stored;
using kv::test::Targets;

GUID const someClass = {0x2F1D6C90, 0x7B3E, 0x4C55, {0x8E, 0x10, 0x3A, 0x5D, 0x92, 0x47, 0x61, 0x0B}};
WString const text = TEXT("F\u00FC\u00DFe \U0001F600 \u4E2D");

void WriteValues(OutputStream & stream)
{
    stream << true << char('x') << static_cast<unsigned char>(0xFE) << short(-2) << static_cast<unsigned short>(0xFFFE);
    stream << -3 << 0xFFFFFFFDu << -2147483647L << 4294967295uL << 0.1f << -1.0 / 3.0 << 1e300 << someClass;
    __int64 const big = -0x123456789ABCDEF;
    stream << _strm64(big);
    stream << std::string("narrow\0text", 11) << text << WString();
}

void ExpectValues(InputStream & stream)
{
    bool flag = false;
    char character = 0;
    unsigned char byte = 0;
    short small = 0;
    unsigned short unsignedSmall = 0;
    int number = 0;
    unsigned unsignedNumber = 0;
    long longNumber = 0;
    unsigned long unsignedLong = 0;
    float single = 0;
    double third = 0;
    double large = 0;
    GUID id = {};
    stream >> flag >> character >> byte >> small >> unsignedSmall >> number >> unsignedNumber >> longNumber;
    stream >> unsignedLong >> single >> third >> large >> id;
    __int64 big = 0;
    stream >> _strm64(big);
    std::string narrow;
    WString wide;
    WString empty = TEXT("x");
    stream >> narrow >> wide >> empty;
    EXPECT_TRUE(flag);
    EXPECT_EQ(character, 'x');
    EXPECT_EQ(byte, 0xFE);
    EXPECT_EQ(small, -2);
    EXPECT_EQ(unsignedSmall, 0xFFFE);
    EXPECT_EQ(number, -3);
    EXPECT_EQ(unsignedNumber, 0xFFFFFFFDu);
    EXPECT_EQ(longNumber, -2147483647L);
    EXPECT_EQ(static_cast<unsigned>(unsignedLong), 4294967295u);
    EXPECT_EQ(single, 0.1f);
    EXPECT_EQ(third, -1.0 / 3.0);
    EXPECT_EQ(large, 1e300);
    EXPECT_EQ(id, someClass);
    EXPECT_EQ(big, -0x123456789ABCDEF);
    EXPECT_EQ(narrow, std::string("narrow\0text", 11));
    EXPECT_EQ(wide, text);
    EXPECT_EQ(empty, WString());
}

class ExchangedObjects : public testing::Test
{
protected:
    void SetUp() override
    {
        kv::test::RegisterSerialObjects(factory);
    }
    void TearDown() override
    {
        EXPECT_EQ(CountedObject::alive, 0);
    }

    /// A page, equal colours, and a ring of nodes.
    void WriteObjects(OutputStream & target)
    {
        SerialNode first(1);
        SerialNode * const second = first.Add(2);
        second->Add(1)->LinkTo(&first);
        SerialPage page;
        page.number = -70000;
        page.itemA.number = 5;
        page.itemB = new SerialItem(-6);
        page.again = page.itemB;
        SerializingOutputStream stream(factory, target);
        stream.Write(page);
        stream.WriteRef(&first);
        stream.WriteRef(nullptr);
    }

    void ExpectObjects(InputStream & source)
    {
        SerialPage page;
        SerializingInputStream stream(factory, source);
        stream.Read(page);
        EXPECT_EQ(page.number, -70000);
        EXPECT_EQ(page.itemA.number, 5);
        ASSERT_NE(page.itemB, nullptr);
        EXPECT_EQ(page.itemB->number, -6);
        EXPECT_EQ(page.again, page.itemB);
        auto * const first = dynamic_cast<SerialNode *>(stream.ReadRef());
        ASSERT_NE(first, nullptr);
        ExpectRing(*first);
        first->Release();
        EXPECT_EQ(stream.ReadRef(), nullptr);
    }

    static void ExpectRing(SerialNode const & first)
    {
        EXPECT_EQ(first.color.value, 1);
        ASSERT_EQ(first.links.size(), 1u);
        SerialNode const & second = *first.links[0].node;
        EXPECT_EQ(second.color.value, 2);
        ASSERT_EQ(second.links.size(), 1u);
        SerialNode const & third = *second.links[0].node;
        EXPECT_EQ(third.color.value, 1);
        ASSERT_EQ(third.links.size(), 1u);
        EXPECT_EQ(third.links[0].node, &first);
    }

    ObjectFactory factory;
};

TEST_F(ExchangedObjects, AreWrittenAsTheyWereOnce)
{
    MemoryOutputStream memory;
    WriteValues(memory);
    WriteObjects(memory);
    ExpectAsStored("objects.bin", memory.GetContent());
}

TEST_F(ExchangedObjects, AreReadFromEveryTarget)
{
    for (std::string const & target : Targets())
    {
        SCOPED_TRACE(target);
        std::string const bytes = Stored(target, "objects.bin");
        MemoryInputStream memory(bytes);
        ExpectValues(memory);
        ExpectObjects(memory);
    }
}

// The bytes of class names are hashed into identifiers, so all targets must spell them alike.
TEST_F(ExchangedObjects, HaveTheSameBytesOnEveryTarget)
{
    for (std::string const & target : Targets())
    {
        EXPECT_EQ(Stored(target, "objects.bin"), Stored("linux", "objects.bin")) << target;
    }
}

TEST_F(ExchangedObjects, AreReadCompressedFromEveryTarget)
{
    for (std::string const & target : Targets())
    {
        SCOPED_TRACE(target);
        std::string const bytes = Stored(target, "compressed.bin");
        MemoryInputStream memory(bytes);
        DecompressingStream stream(memory);
        ExpectValues(stream);
        ExpectObjects(stream);
    }
}

// How the bytes are compressed is the compressor's affair, and may change with it.
TEST_F(ExchangedObjects, AreWrittenCompressedInWhatComesOutAgain)
{
    MemoryOutputStream memory;
    {
        CompressingStream stream(memory, 9);
        WriteValues(stream);
        WriteObjects(stream);
    }
    if (std::getenv("KVCORE_STORE_FILES") != nullptr)
    {
        ExpectAsStored("compressed.bin", memory.GetContent());
    }
    std::string const bytes = memory.GetContent();
    MemoryInputStream source(bytes);
    DecompressingStream stream(source);
    ExpectValues(stream);
    ExpectObjects(stream);
}

} // namespace
