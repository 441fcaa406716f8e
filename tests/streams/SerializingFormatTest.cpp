#include <gtest/gtest.h>

#include <string>
#include <vector>

#include <kvcore/streams/MemoryStreams.h>
#include <kvcore/streams/ObjectFactoryChain.h>
#include <kvcore/streams/Serializing.h>
#include <support/SerializingObjects.h>
#include <support/StreamFailure.h>
#include <support/TestStreams.h>

// What the writer puts out, byte by byte, and that the reader takes it back.

namespace
{

using kv::test::FailureOf;
using kv::test::InHex;
using kv::test::RecordingInputStream;
using kv::test::RecordingOutputStream;
using kv::test::RegisterSerialObjects;
using kv::test::StreamBytes;

/// A factory, a memory to write into, and the classes' identifiers.
class SerializingFormat : public testing::Test
{
protected:
    void SetUp() override
    {
        RegisterSerialObjects(factory);
        item = factory.GetClassID("SerialItem");
        color = factory.GetClassID("SerialColor");
        node = factory.GetClassID("SerialNode");
    }
    void TearDown() override
    {
        EXPECT_EQ(CountedObject::alive, 0);
    }

    /// What `write(stream)` writes.
    template <typename Action>
    std::string Written(Action write)
    {
        MemoryOutputStream memory;
        {
            SerializingOutputStream stream(factory, memory);
            write(stream);
        }
        return memory.GetContent();
    }

    ObjectFactory factory;
    int item = 0;
    int color = 0;
    int node = 0;
};

/// Gives the classes of the worked example their identifiers.
class ExampleFactory : public ObjectFactory
{
public:
    using ObjectFactory::GetClassID;
    int GetClassID(char const * name) const override
    {
        return name == std::string("SerialPage") ? 0x0A1F : name == std::string("SerialItem") ? 0x0A23 : 0;
    }
};

TEST_F(SerializingFormat, PageWithItemsTakesFiftyBytes)
{
    char const golden[] = "\x1F\x0A\x00\x00"                                  // the page's class
                          "\x02\x00"                                          // its version
                          "\x07\x00\x00\x00"                                  // its number
                          "\x23\x0A\x00\x00"                                  // item A's class
                          "\x01\x00"                                          // its version
                          "\x01\x00"                                          // its number
                          "\x00\x00\x00\x00\x11\x03\x19\x80\x02\x00\x00\x00"  // reference 2: a new object
                          "\x23\x0A\x00\x00\x01\x00\x02\x00"                  // item B, object 3
                          "\x00\x00\x00\x00\x11\x03\x19\x80\x03\x00\x00\x00"; // object 3 again
    ASSERT_EQ(sizeof(golden) - 1, 50u);
    ExampleFactory example;
    ASSERT_TRUE(RegisterType<SerialPage>(example));
    ASSERT_TRUE(RegisterType<SerialItem>(example));

    std::string bytes;
    {
        SerialPage page;
        page.number = 7;
        page.itemA.number = 1;
        page.itemB = page.again = new SerialItem(2);
        MemoryOutputStream memory;
        SerializingOutputStream(example, memory).Write(page);
        bytes = memory.GetContent();
    }
    EXPECT_EQ(InHex(bytes), InHex(std::string(golden, 50)));

    MemoryInputStream memory(bytes);
    SerializingInputStream stream(example, memory);
    auto * const page = dynamic_cast<SerialPage *>(stream.Create());
    ASSERT_NE(page, nullptr);
    EXPECT_EQ(page->number, 7);
    EXPECT_EQ(page->itemA.number, 1);
    ASSERT_NE(page->itemB, nullptr);
    EXPECT_EQ(page->itemB->number, 2);
    EXPECT_EQ(page->again, page->itemB);
    page->Release();
}

TEST_F(SerializingFormat, EachFieldIsAWriteAndARead)
{
    RecordingOutputStream target;
    {
        SerialItem object(5);
        SerialColor first;
        SerialColor second;
        SerializingOutputStream stream(factory, target);
        stream.Write(object);
        stream.WriteRef(&object);
        stream.WriteRef(&object);
        stream.WriteRef(nullptr);
        stream.Write(first);
        stream.Write(second);
    }
    std::vector<std::size_t> sizes;
    for (std::string const & write : target.writes)
    {
        sizes.push_back(write.size());
    }
    std::vector<std::size_t> const expected = {
        4, 2, 2,          // class, version, number
        4, 4, 4, 4, 2, 2, // marker, command, index and the object
        4, 4, 4,          // the same pointer
        4, 4, 4,          // null
        4, 2, 4,          // a value
        4, 4, 4,          // which repeats
    };
    EXPECT_EQ(sizes, expected);

    RecordingInputStream source(target.Content());
    SerializingInputStream stream(factory, source);
    SerialItem object;
    SerialColor value;
    stream.Read(object);
    ISerializable * const referred = stream.ReadRef();
    EXPECT_EQ(stream.ReadRef(), referred);
    EXPECT_EQ(stream.ReadRef(), nullptr);
    stream.Read(value);
    stream.Read(value);
    EXPECT_EQ(source.reads, std::vector<int>(expected.begin(), expected.end()));
    referred->Release();
}

TEST_F(SerializingFormat, NullReferenceHasIndexMinusOneFirstAndZeroLater)
{
    std::string const bytes = Written(
        [](SerializingOutputStream & stream)
        {
            stream.WriteRef(nullptr);
            stream.WriteRef(nullptr);
            stream.WriteRef(nullptr);
        });
    EXPECT_EQ(InHex(bytes), InHex(StreamBytes().Reference(0xFFFFFFFF).Reference(0).Reference(0)));
    MemoryInputStream memory(bytes);
    SerializingInputStream stream(factory, memory);
    for (int i = 0; i < 3; ++i)
    {
        bool owned = true;
        EXPECT_EQ(stream.ReadRef(owned), nullptr);
        EXPECT_FALSE(owned);
    }
}

TEST_F(SerializingFormat, BothNullIndexesReadAsNullWhereTheyAreNoNewObject)
{
    std::string const bytes = StreamBytes().Reference(0xFFFFFFFF).Reference(0xFFFFFFFF).Reference(0);
    MemoryInputStream memory(bytes);
    SerializingInputStream stream(factory, memory);
    EXPECT_EQ(stream.ReadRef(), nullptr);
    EXPECT_EQ(stream.ReadRef(), nullptr);
    EXPECT_EQ(stream.ReadRef(), nullptr);
}

TEST_F(SerializingFormat, PointerWrittenTwiceGivesOneRecordAndAShortReference)
{
    SerialItem object(5);
    std::string const bytes = Written(
        [&](SerializingOutputStream & stream)
        {
            stream.WriteRef(&object);
            stream.WriteRef(&object);
            stream.WriteRef(nullptr);
            stream.WriteRef(&object);
        });
    EXPECT_EQ(
        InHex(bytes),
        InHex(StreamBytes().Reference(0).Record(item, 1).Short(5).Reference(1).Reference(0).Reference(1)));
    MemoryInputStream memory(bytes);
    SerializingInputStream stream(factory, memory);
    ISerializable * const first = stream.ReadRef();
    ASSERT_NE(first, nullptr);
    EXPECT_EQ(stream.ReadRef(), first);
    EXPECT_EQ(stream.ReadRef(), nullptr);
    EXPECT_EQ(stream.ReadRef(), first);
    first->Release();
}

TEST_F(SerializingFormat, EveryCallTakesANumber)
{
    SerialItem a(1);
    SerialItem b(2);
    std::string const bytes = Written(
        [&](SerializingOutputStream & stream)
        {
            stream.Write(a);          // 0
            stream << 9;              // none
            stream.WriteRef(nullptr); // 1
            stream.WriteRef(&a);      // 2 and 3
            stream.Write(b);          // 4
            stream.WriteRef(&b);      // 5 and 6
            stream.WriteRef(&a);      // 7
        });
    EXPECT_EQ(
        InHex(bytes),
        InHex(StreamBytes()
                  .Record(item, 1)
                  .Short(1)
                  .Int(9)
                  .Reference(0)
                  .Reference(2)
                  .Record(item, 1)
                  .Short(1)
                  .Record(item, 1)
                  .Short(2)
                  .Reference(5)
                  .Record(item, 1)
                  .Short(2)
                  .Reference(3)));
}

TEST_F(SerializingFormat, EqualValueIsWrittenOnceAndReadThroughACloneOrACopy)
{
    SerialColor red(1);
    SerialColor alsoRed(1);
    SerialColor green(2);
    std::string const bytes = Written(
        [&](SerializingOutputStream & stream)
        {
            stream.Write(red);
            stream.Write(green);
            stream.Write(alsoRed);
            stream.Write(green);
        });
    EXPECT_EQ(InHex(bytes), InHex(StreamBytes().Record(color, 1).Int(1).Record(color, 1).Int(2).Repeat(0).Repeat(1)));
    MemoryInputStream memory(bytes);
    SerializingInputStream stream(factory, memory);
    auto * const first = dynamic_cast<SerialColor *>(stream.Create());
    SerialColor second;
    stream.Read(second);
    auto * const third = dynamic_cast<SerialColor *>(stream.Create());
    SerialColor fourth;
    stream.Read(fourth);
    ASSERT_NE(first, nullptr);
    ASSERT_NE(third, nullptr);
    EXPECT_NE(third, first);
    EXPECT_EQ(third->value, 1);
    EXPECT_EQ(second.value, 2);
    EXPECT_EQ(fourth.value, 2);
    first->Release();
    third->Release();
}

TEST_F(SerializingFormat, ValueComparesAsItWasWhenItWasWritten)
{
    SerialColor changing(1);
    SerialColor one(1);
    SerialColor two(2);
    std::string const bytes = Written(
        [&](SerializingOutputStream & stream)
        {
            stream.Write(changing);
            changing.value = 2;
            stream.Write(two);
            stream.Write(one);
            stream.Write(changing);
        });
    EXPECT_EQ(InHex(bytes), InHex(StreamBytes().Record(color, 1).Int(1).Record(color, 1).Int(2).Repeat(0).Repeat(1)));
}

/// Notes what it compares, and calls neighbours equal.
class NotingMethods : public ValueClassMethods<SerialColor>
{
public:
    bool Compare(IUnknown * a, IUnknown * b) const override
    {
        int const left = ObjectCast<SerialColor>(a)->value;
        int const right = ObjectCast<SerialColor>(b)->value;
        notes += std::to_string(left) + '?' + std::to_string(right) + ' ';
        return left - right <= 1 && right - left <= 1;
    }
    static inline std::string notes;
};

TEST_F(SerializingFormat, ValuesAreComparedInTheOrderOfWritingUpToTheFirstEqual)
{
    ObjectFactory noting;
    ASSERT_TRUE(RegisterType<NotingMethods>(noting));
    NotingMethods::notes.clear();
    MemoryOutputStream memory;
    {
        SerializingOutputStream stream(noting, memory);
        for (int const value : {1, 3, 5, 4, 2})
        {
            stream.Write(SerialColor(value));
        }
    }
    EXPECT_EQ(NotingMethods::notes, "3?1 5?1 5?3 4?1 4?3 2?1 ");
    EXPECT_EQ(
        InHex(memory.GetContent()),
        InHex(
            StreamBytes().Record(color, 1).Int(1).Record(color, 1).Int(3).Record(color, 1).Int(5).Repeat(1).Repeat(0)));
}

TEST_F(SerializingFormat, TypesOfOneIdentifierShareTheirValues)
{
    class OtherColor : public SerialColor
    {
    public:
        using SerialColor::SerialColor;
    };
    class OneIdentifier : public ObjectFactory
    {
    public:
        using ObjectFactory::GetClassID;
        int GetClassID(char const *) const override
        {
            return 77;
        }
    } one;
    ASSERT_TRUE(RegisterType<ValueClassMethods<SerialColor>>(one));
    MemoryOutputStream memory;
    {
        SerializingOutputStream stream(one, memory);
        stream.Write(SerialColor(1));
        stream.Write(OtherColor(1));
    }
    EXPECT_EQ(InHex(memory.GetContent()), InHex(StreamBytes().Record(77, 1).Int(1).Repeat(0)));
}

TEST_F(SerializingFormat, PointerToARepeatedValueCannotBeReadASecondTime)
{
    SerialColor value(1);
    SerialColor same(1);
    std::string const bytes = Written(
        [&](SerializingOutputStream & stream)
        {
            stream.Write(value);    // 0
            stream.WriteRef(&same); // 1 and 2
            stream.WriteRef(&same); // 3
        });
    EXPECT_EQ(InHex(bytes), InHex(StreamBytes().Record(color, 1).Int(1).Reference(1).Repeat(0).Reference(2)));
    MemoryInputStream memory(bytes);
    SerializingInputStream stream(factory, memory);
    SerialColor read;
    stream.Read(read);
    bool owned = false;
    auto * const clone = dynamic_cast<SerialColor *>(stream.ReadRef(owned));
    ASSERT_NE(clone, nullptr);
    EXPECT_TRUE(owned);
    EXPECT_EQ(clone->value, 1);
    EXPECT_EQ(clone->Release(), 0u);
    EXPECT_EQ(FailureOf([&] { stream.ReadRef(); }), "3: Reference to non-existing object");
}

TEST_F(SerializingFormat, PointerToANewValueMayBeRepeated)
{
    SerialColor value(1);
    std::string const bytes = Written(
        [&](SerializingOutputStream & stream)
        {
            stream.WriteRef(&value);
            stream.WriteRef(&value);
            stream.Write(value);
        });
    EXPECT_EQ(InHex(bytes), InHex(StreamBytes().Reference(0).Record(color, 1).Int(1).Reference(1).Repeat(1)));
    MemoryInputStream memory(bytes);
    SerializingInputStream stream(factory, memory);
    ISerializable * const first = stream.ReadRef();
    EXPECT_EQ(stream.ReadRef(), first);
    SerialColor read;
    stream.Read(read);
    EXPECT_EQ(read.value, 1);
    first->Release();
}

TEST_F(SerializingFormat, ObjectThatRefersToItselfIsReadAsSuch)
{
    auto * const circle = new SerialNode(1);
    circle->LinkTo(circle);
    std::string const bytes = Written([&](SerializingOutputStream & stream) { stream.WriteRef(circle); });
    circle->Release();
    EXPECT_EQ(
        InHex(bytes), InHex(StreamBytes().Reference(0).Record(node, 3).Record(color, 1).Int(1).Byte(1).Reference(1)));
    MemoryInputStream memory(bytes);
    SerializingInputStream stream(factory, memory);
    auto * const read = dynamic_cast<SerialNode *>(stream.ReadRef());
    ASSERT_NE(read, nullptr);
    EXPECT_EQ(read->links.at(0).node, read);
    EXPECT_FALSE(read->links.at(0).owned);
    read->Release();
}

TEST_F(SerializingFormat, TopLevelObjectsShareObjects)
{
    auto * const first = new SerialNode(1);
    auto * const second = new SerialNode(2);
    second->LinkTo(first->Add(3));
    std::string const bytes = Written(
        [&](SerializingOutputStream & stream)
        {
            stream.Write(*first);
            stream.Write(*second);
        });
    first->Release();
    second->Release();
    MemoryInputStream memory(bytes);
    SerializingInputStream stream(factory, memory);
    SerialNode readFirst;
    SerialNode readSecond;
    stream.Read(readFirst);
    stream.Read(readSecond);
    EXPECT_EQ(readSecond.links.at(0).node, readFirst.links.at(0).node);
    EXPECT_EQ(readSecond.links.at(0).node->color.value, 3);
}

TEST_F(SerializingFormat, UnregisteredClassIsWrittenButNotRead)
{
    ObjectFactory const empty;
    MemoryOutputStream memory;
    SerializingOutputStream(empty, memory).Write(SerialItem(4));
    EXPECT_EQ(InHex(memory.GetContent()), InHex(StreamBytes().Record(item, 1).Short(4)));
    std::string const bytes = memory.GetContent();
    MemoryInputStream source(bytes);
    SerializingInputStream stream(empty, source);
    EXPECT_EQ(FailureOf([&] { stream.Create(); }), "3: Unexpected object in stream");
}

TEST_F(SerializingFormat, ClassOfAnEmptyFactoryChainIsWrittenAsZeroAndReadAsAnUnknownCommand)
{
    ObjectFactoryChain const empty;
    MemoryOutputStream memory;
    SerializingOutputStream(empty, memory).Write(SerialItem(4));
    std::string const bytes = memory.GetContent();
    EXPECT_EQ(InHex(bytes), InHex(StreamBytes().Record(0, 1).Short(4)));
    std::string const longer = bytes + "more";
    MemoryInputStream source(longer);
    SerializingInputStream stream(empty, source);
    EXPECT_EQ(FailureOf([&] { stream.Create(); }), "3: Unknown command in stream");
}

TEST_F(SerializingFormat, PlainBytesPassAsTheyAre)
{
    std::string const bytes = Written(
        [](SerializingOutputStream & stream)
        {
            stream.Write("abc", 3);
            stream << true << short(0x1234) << String(TEXT("x"));
        });
    EXPECT_EQ(InHex(bytes), InHex(std::string("abc\x01\x34\x12\x02\x00\x00\x00x\x00", 12)));
    MemoryInputStream memory(bytes);
    SerializingInputStream stream(factory, memory);
    char text[3];
    bool truth = false;
    short number = 0;
    String letter;
    stream.Read(text, 3);
    stream >> truth >> number >> letter;
    EXPECT_EQ(std::string(text, 3), "abc");
    EXPECT_TRUE(truth);
    EXPECT_EQ(number, 0x1234);
    EXPECT_TRUE(letter == TEXT("x"));
}

/// Counts what it is asked.
class AskedFactory : public ObjectFactory
{
public:
    using ObjectFactory::GetClassID;
    int GetClassID(std::type_info const & type) const override
    {
        ++asked;
        return ObjectFactory::GetClassID(type);
    }
    IClassMethod const * GetClassMethods(int id) const override
    {
        ++asked;
        return ObjectFactory::GetClassMethods(id);
    }
    mutable int asked = 0;
};

TEST_F(SerializingFormat, FactoryIsAskedOncePerClassAndStream)
{
    AskedFactory asked;
    RegisterSerialObjects(asked);
    asked.asked = 0;
    MemoryOutputStream memory;
    {
        SerializingOutputStream stream(asked, memory);
        for (int i = 0; i < 50; ++i)
        {
            stream.Write(SerialColor(i % 5));
        }
    }
    EXPECT_EQ(asked.asked, 2);
    asked.asked = 0;
    std::string const bytes = memory.GetContent();
    MemoryInputStream source(bytes);
    SerializingInputStream stream(asked, source);
    for (int i = 0; i < 50; ++i)
    {
        SerialColor read;
        stream.Read(read);
        EXPECT_EQ(read.value, i % 5);
    }
    // The record's class by its identifier, the target's by its type.
    EXPECT_EQ(asked.asked, 3);
}

} // namespace
