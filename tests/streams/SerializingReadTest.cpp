#include <gtest/gtest.h>

#include <functional>
#include <stdexcept>
#include <string>

#include <kvcore/streams/MemoryStreams.h>
#include <kvcore/streams/Serializing.h>
#include <support/SerializingObjects.h>
#include <support/StreamFailure.h>

// What the reader refuses, what it makes of names and versions, and who owns what it gives.

/// What the object that is read next does in its Read.
class SerialSingle : public CountedObject, public ISerializable
{
public:
    void Read(SerializingInputStream & stream, short) override
    {
        stream >> number;
        if (instance != nullptr && instance != this)
        {
            throw SerializingInputStream::SingeltonObjectExistsException(instance);
        }
    }
    void Write(SerializingOutputStream & stream) const override
    {
        stream << number;
    }
    short GetVersion() const override
    {
        return 1;
    }
    bool operator==(SerialSingle const & other) const
    {
        return number == other.number;
    }

    short number = 0;
    static inline SerialSingle * instance = nullptr;
};

/// Holds the single object by value, and lets its exception pass.
class SerialHolder : public CountedObject, public ISerializable
{
public:
    void Read(SerializingInputStream & stream, short) override
    {
        stream.Read(single);
    }
    void Write(SerializingOutputStream & stream) const override
    {
        stream.Write(single);
    }
    short GetVersion() const override
    {
        return 1;
    }

    SerialSingle single;
};

/// Throws in its Read, or refers to itself.
class SerialThrower : public CountedObject, public ISerializable
{
public:
    void Read(SerializingInputStream &, short) override
    {
        throw std::runtime_error("from Read");
    }
    void Write(SerializingOutputStream &) const override {}
    short GetVersion() const override
    {
        return 1;
    }
};

/// Nothing for streams.
class SerialMute : public CountedObject
{
};

/// What a color was called once, when it was another class.
class SerialLegacyColor : public SerialColor
{
};

namespace
{

using kv::test::FailureOf;
using kv::test::RegisterSerialObjects;
using kv::test::StreamBytes;

IUnknown * CreateNothing()
{
    return nullptr;
}

IUnknown * CreateWithFailure()
{
    throw std::runtime_error("from Create");
}

/// Says it makes colors, and makes those of former times.
class LegacyMethods : public ValueClassMethods<SerialColor>
{
public:
    IUnknown * Create() const override
    {
        return new SerialLegacyColor;
    }
    IUnknown * Clone(IUnknown * object) const override
    {
        return new SerialLegacyColor(*ObjectCast<SerialLegacyColor>(object));
    }
};

/// A value class whose values cannot be cloned, or whose clones are of no use.
class CloneFailure : public ValueClassMethods<SerialItem, ClassMethods<SerialItem>>
{
public:
    bool Compare(IUnknown *, IUnknown *) const override
    {
        return false;
    }
    IUnknown * Clone(IUnknown *) const override
    {
        throw std::runtime_error("from Clone");
    }
};

} // namespace

bool operator==(SerialItem const & a, SerialItem const & b)
{
    return a.number == b.number;
}

namespace
{

class SerializingRead : public testing::Test
{
protected:
    void SetUp() override
    {
        RegisterSerialObjects(factory);
        ASSERT_TRUE(RegisterType<SerialSingle>(factory));
        ASSERT_TRUE(RegisterType<SerialHolder>(factory));
        ASSERT_TRUE(RegisterType<SerialThrower>(factory));
        ASSERT_TRUE(RegisterType<SerialMute>(factory));
        ASSERT_TRUE((RegisterTypeAs<ClassMethodsUsing<SerialMute, &CreateNothing>>(factory, "Nothing")));
        item = factory.GetClassID("SerialItem");
        color = factory.GetClassID("SerialColor");
        node = factory.GetClassID("SerialNode");
        single = factory.GetClassID("SerialSingle");
    }
    void TearDown() override
    {
        SerialItem::currentVersion = 1;
        SerialSingle::instance = nullptr;
        EXPECT_EQ(CountedObject::alive, 0);
    }

    int Id(char const * name) const
    {
        return ObjectFactory().GetClassID(name);
    }

    ObjectFactory factory;
    int item = 0;
    int color = 0;
    int node = 0;
    int single = 0;
};

/// A reader over bytes.
struct Reader
{
    Reader(IObjectFactory const & factory, std::string const & text)
        : bytes(text), memory(bytes), stream(factory, memory)
    {
    }

    std::string const bytes;
    MemoryInputStream memory;
    SerializingInputStream stream;
};

void Create(SerializingInputStream & stream)
{
    stream.Create()->Release();
}

void ReadRef(SerializingInputStream & stream)
{
    bool owned;
    ISerializable * const object = stream.ReadRef(owned);
    if (owned)
    {
        object->Release();
    }
}

void ReadItem(SerializingInputStream & stream)
{
    SerialItem target;
    stream.Read(target);
}

void ReadColor(SerializingInputStream & stream)
{
    SerialColor target;
    stream.Read(target);
}

void CreateTwice(SerializingInputStream & stream)
{
    Create(stream);
    Create(stream);
}

void CreateAndReadItem(SerializingInputStream & stream)
{
    Create(stream);
    ReadItem(stream);
}

void CreateAndReadRef(SerializingInputStream & stream)
{
    Create(stream);
    ReadRef(stream);
}

TEST_F(SerializingRead, RefusesWhatIsWrongByTextAndCode)
{
    std::string const text = "3: ";
    std::string const command = "3: Unknown command in stream";
    std::string const unknown = "3: Reference to unknown object in stream";
    std::string const wrong = "3: Wrong type of object in stream";
    std::string const unexpected = "3: Unexpected object in stream";
    std::string const mute = "3: Non-serializable object in stream";
    std::string const high = "6: Object version too high";
    std::string const noReference = "3: Next stream object is not a reference";
    std::string const missing = "3: Reference to non-existing object";
    std::string const shortText = "5: Memory block too short";
    StreamBytes const red = StreamBytes().Record(color, 1).Int(1);
    struct
    {
        char const * what;
        std::string bytes;
        void (*read)(SerializingInputStream &);
        std::string failure;
    } const cases[] = {
        {"nothing", "", Create, shortText},
        {"a reference where an object belongs", StreamBytes().Reference(0), Create, command},
        {"zeros", std::string(16, '\0'), Create, command},
        {"zeros into a target", std::string(16, '\0'), ReadItem, command},
        {"a command that is cut", std::string(4, '\0'), Create, shortText},
        {"repeat of nothing", StreamBytes().Repeat(0), Create, unknown},
        {"repeat of itself", StreamBytes(red).Repeat(1), CreateTwice, unknown},
        {"repeat of number -1", StreamBytes(red).Repeat(0xFFFFFFFF), CreateTwice, unknown},
        {"repeat of the lowest number", StreamBytes(red).Repeat(0x80000000), CreateTwice, unknown},
        {"repeat of the highest number", StreamBytes(red).Repeat(0x7FFFFFFF), CreateTwice, unknown},
        {"repeat of a plain object", StreamBytes().Record(item, 1).Short(1).Repeat(0), CreateTwice, unknown},
        {"repeat of another class", StreamBytes(red).Repeat(0), CreateAndReadItem, wrong},
        {"a class nobody knows", StreamBytes().Record(0x1234, 1), Create, unexpected},
        {"a class nobody knows, cut", StreamBytes().Int(0x1234), Create, unexpected},
        {"a class nobody knows, into a target", StreamBytes().Record(0x1234, 1), ReadItem, unexpected},
        {"a class nobody knows, behind a reference", StreamBytes().Reference(0).Record(0x1234, 1), ReadRef, unexpected},
        {"a class that cannot be created", StreamBytes().Record(Id("Abstract"), 1), Create, unexpected},
        {"a class that cannot be created, into a target", StreamBytes().Record(Id("Abstract"), 1), ReadItem,
         unexpected},
        {"another class than the target's", red, ReadItem, unexpected},
        {"an object without ISerializable", StreamBytes().Record(Id("SerialMute"), 1), Create, mute},
        {"one behind a reference", StreamBytes().Reference(0).Record(Id("SerialMute"), 1), ReadRef, mute},
        {"an object that is not created", StreamBytes().Record(Id("Nothing"), 1), Create, mute},
        {"a version above the class's", StreamBytes().Record(item, 2).Short(1), Create, high},
        {"the highest version", StreamBytes().Record(item, 0x7FFF).Short(1), Create, high},
        {"a version above the target's", StreamBytes().Record(item, 2).Short(1), ReadItem, high},
        {"a version above, behind a reference", StreamBytes().Reference(0).Record(item, 2), ReadRef, high},
        {"an object where a reference belongs", StreamBytes(red).Int(0), ReadRef, noReference},
        {"zeros where a reference belongs", std::string(16, '\0'), ReadRef, noReference},
        {"a repeat where a reference belongs", StreamBytes().Repeat(0), ReadRef, noReference},
        {"a command without marker", StreamBytes().Int(1).Int(0x80190311).Int(0), ReadRef, noReference},
        {"eight bytes that are no reference", std::string(8, 'x'), ReadRef, noReference},
        {"a reference that is cut", StreamBytes().Int(0).Int(0x80190311), ReadRef, shortText},
        {"a reference to a later object", StreamBytes().Reference(1), ReadRef, missing},
        {"a reference to an object by value", StreamBytes(red).Reference(0xFFFFFFFE), CreateAndReadRef, missing},
        {"a reference to the lowest number", StreamBytes().Reference(0x80000000), ReadRef, missing},
        {"a reference to the highest number", StreamBytes().Reference(0x7FFFFFFF), ReadRef, missing},
    };
    ASSERT_TRUE(RegisterTypeAs<AbstractClassMethods<SerialPage>>(factory, "Abstract"));
    for (auto const & c : cases)
    {
        Reader reader(factory, c.bytes);
        EXPECT_EQ(FailureOf([&] { c.read(reader.stream); }), c.failure) << c.what;
    }
    EXPECT_EQ(CountedObject::alive, 0);
}

TEST_F(SerializingRead, ReferenceToANumberThatIsNotAReferencesIsMissing)
{
    // Object 1 is there, as a value and by value; only what a reference brought can be referred to.
    Reader reader(factory, StreamBytes().Record(color, 1).Int(1).Record(color, 1).Int(2).Reference(1));
    CreateTwice(reader.stream);
    EXPECT_EQ(FailureOf([&] { ReadRef(reader.stream); }), "3: Reference to non-existing object");
}

TEST_F(SerializingRead, GoesOnBehindAFailureWhereTheReadPositionStands)
{
    Reader reader(factory, StreamBytes().Int(0x1234).Record(item, 1).Short(7));
    EXPECT_EQ(FailureOf([&] { Create(reader.stream); }), "3: Unexpected object in stream");
    SerialItem target;
    reader.stream.Read(target);
    EXPECT_EQ(target.number, 7);
}

TEST_F(SerializingRead, FailedCallsTakeTheirNumbers)
{
    Reader reader(factory, StreamBytes().Int(0x1234).Reference(1).Record(item, 1).Short(7).Reference(2));
    EXPECT_NE(FailureOf([&] { Create(reader.stream); }), "none");
    ISerializable * const object = reader.stream.ReadRef();
    EXPECT_EQ(reader.stream.ReadRef(), object);
    object->Release();
}

TEST_F(SerializingRead, VersionsUpToTheClassesOwnReachRead)
{
    SerialItem::currentVersion = 2;
    for (int const version : {2, 1, 0, -1, -0x8000})
    {
        Reader reader(factory, StreamBytes().Record(item, version).Short(9));
        SerialItem target;
        reader.stream.Read(target);
        EXPECT_EQ(target.readVersion, version);
        EXPECT_EQ(target.number, 9);
    }
    Reader reader(factory, StreamBytes().Record(item, 3).Short(9));
    SerialItem target(1);
    EXPECT_EQ(FailureOf([&] { reader.stream.Read(target); }), "6: Object version too high");
    EXPECT_EQ(target.readVersion, -100);
    EXPECT_EQ(target.number, 1);
}

TEST_F(SerializingRead, FormerNameIsReadIntoTheClassOfToday)
{
    ASSERT_TRUE(RegisterFormerName<SerialItem>(factory, "OldItem"));
    StreamBytes const old = StreamBytes().Record(Id("OldItem"), 1).Short(3);
    SerialItem target;
    Reader(factory, old).stream.Read(target);
    EXPECT_EQ(target.number, 3);

    Reader reader(factory, old);
    ISerializable * const created = reader.stream.Create();
    EXPECT_EQ(ObjectCast<SerialItem>(created)->number, 3);
    created->Release();
    // The other way round there is no resolution.
    SerialColor other;
    EXPECT_EQ(FailureOf([&] { Reader(factory, old).stream.Read(other); }), "3: Unexpected object in stream");
}

TEST_F(SerializingRead, PrimaryNameStandsForTheClass)
{
    ObjectFactory renamed;
    ASSERT_TRUE(RegisterTypeAs<SerialItem>(renamed, "Item"));
    MemoryOutputStream memory;
    SerializingOutputStream(renamed, memory).Write(SerialItem(6));
    EXPECT_EQ(memory.GetContent(), std::string(StreamBytes().Record(Id("Item"), 1).Short(6)));
    SerialItem target;
    Reader(renamed, memory.GetContent()).stream.Read(target);
    EXPECT_EQ(target.number, 6);
}

TEST_F(SerializingRead, RepeatOfAValueUnderAFormerNameIsOfTheClassOfToday)
{
    ASSERT_TRUE(RegisterFormerName<ValueClassMethods<SerialColor>>(factory, "OldColor"));
    Reader reader(factory, StreamBytes().Record(Id("OldColor"), 1).Int(5).Repeat(0).Repeat(0));
    SerialColor target;
    reader.stream.Read(target);
    target.value = 0;
    reader.stream.Read(target);
    EXPECT_EQ(target.value, 5);
    Create(reader.stream);
}

TEST_F(SerializingRead, RepeatOfAValueDoesNotLookAtFormerNames)
{
    // Under its former name the class makes objects of its former kind. As a record that is fit for a color of today,
    // as the repeat of a value it is not.
    ASSERT_TRUE(RegisterFormerName<LegacyMethods>(factory, "OldColor"));
    ASSERT_TRUE(RegisterType<ValueClassMethods<SerialLegacyColor>>(factory));
    ASSERT_EQ(factory.GetRegisteredClassID(Id("OldColor")), color);
    Reader reader(factory, StreamBytes().Record(Id("OldColor"), 1).Int(5).Repeat(0).Repeat(0));
    Create(reader.stream);
    EXPECT_EQ(FailureOf([&] { ReadColor(reader.stream); }), "3: Wrong type of object in stream");
    Create(reader.stream);
}

TEST_F(SerializingRead, RepeatOfAClassThatIsNoValueClassTodayIsUnexpected)
{
    // Kept as a value under the former name, while today's class has no values.
    ObjectFactory plain;
    ASSERT_TRUE(RegisterType<SerialColor>(plain));
    ASSERT_TRUE(RegisterFormerName<ValueClassMethods<SerialColor>>(plain, "OldColor"));
    StreamBytes const bytes = StreamBytes().Record(Id("OldColor"), 1).Int(5).Repeat(0);
    Reader reader(plain, bytes);
    EXPECT_EQ(FailureOf([&] { CreateTwice(reader.stream); }), "3: Unexpected object in stream");
    SerialColor target;
    Reader again(plain, bytes);
    again.stream.Read(target);
    EXPECT_EQ(FailureOf([&] { again.stream.Read(target); }), "3: Unexpected object in stream");
}

TEST_F(SerializingRead, CreateGivesTheCallerTheOneReference)
{
    Reader reader(factory, StreamBytes().Record(item, 1).Short(1).Record(color, 1).Int(2).Repeat(1));
    bool owned = false;
    auto * const plain = ObjectCast<SerialItem>(reader.stream.Create(owned));
    EXPECT_TRUE(owned);
    EXPECT_EQ(plain->Count(), 1u);
    plain->Release();
    // A value, and the clone that the stream keeps.
    auto * const value = ObjectCast<SerialColor>(reader.stream.Create());
    EXPECT_EQ(value->Count(), 1u);
    EXPECT_EQ(CountedObject::alive, 2);
    value->Release();
    // A clone of the clone.
    owned = false;
    auto * const clone = ObjectCast<SerialColor>(reader.stream.Create(owned));
    EXPECT_TRUE(owned);
    EXPECT_EQ(clone->Count(), 1u);
    EXPECT_EQ(CountedObject::alive, 2);
    clone->Release();
}

TEST_F(SerializingRead, ReferenceIsOwnedByTheCallerAndTheStreamAndItsRepeatIsBorrowed)
{
    SerialItem * object = nullptr;
    {
        Reader reader(factory, StreamBytes().Reference(0).Record(item, 1).Short(1).Reference(1));
        bool owned = false;
        object = ObjectCast<SerialItem>(reader.stream.ReadRef(owned));
        EXPECT_TRUE(owned);
        EXPECT_EQ(object->Count(), 2u);
        EXPECT_EQ(reader.stream.ReadRef(owned), object);
        EXPECT_FALSE(owned);
        EXPECT_EQ(object->Count(), 2u);
    }
    EXPECT_EQ(object->Count(), 1u);
    EXPECT_EQ(object->Release(), 0u);
}

TEST_F(SerializingRead, ReadIntoAnObjectAddsNoReference)
{
    auto * const target = new SerialItem;
    {
        Reader reader(factory, StreamBytes().Record(item, 1).Short(4));
        reader.stream.Read(*target);
        EXPECT_EQ(target->Count(), 1u);
    }
    EXPECT_EQ(target->number, 4);
    EXPECT_EQ(target->Release(), 0u);
}

TEST_F(SerializingRead, StreamReleasesItsValuesAndReferencesAtItsEnd)
{
    {
        Reader reader(factory, StreamBytes().Record(color, 1).Int(1).Reference(1).Record(item, 1).Short(2));
        Create(reader.stream);
        ReadRef(reader.stream);
        EXPECT_EQ(CountedObject::alive, 2);
    }
    EXPECT_EQ(CountedObject::alive, 0);
}

TEST_F(SerializingRead, SingleInstanceTakesThePlaceOfTheObjectBeingCreated)
{
    SerialSingle existing;
    SerialSingle::instance = &existing;
    Reader reader(factory, StreamBytes().Record(single, 1).Short(1));
    bool owned = true;
    EXPECT_EQ(reader.stream.Create(owned), &existing);
    EXPECT_FALSE(owned);
    EXPECT_EQ(existing.Count(), 1u);
    EXPECT_EQ(CountedObject::alive, 1);
}

TEST_F(SerializingRead, SingleInstanceBehindAReferenceIsKeptByTheStreamAlone)
{
    SerialSingle existing;
    SerialSingle::instance = &existing;
    {
        Reader reader(factory, StreamBytes().Reference(0).Record(single, 1).Short(1).Reference(1));
        bool owned = true;
        EXPECT_EQ(reader.stream.ReadRef(owned), &existing);
        EXPECT_FALSE(owned);
        EXPECT_EQ(existing.Count(), 2u);
        EXPECT_EQ(CountedObject::alive, 1);
        EXPECT_EQ(reader.stream.ReadRef(), &existing);
        EXPECT_EQ(existing.Count(), 2u);
    }
    EXPECT_EQ(existing.Count(), 1u);
}

TEST_F(SerializingRead, SingleInstanceReadIntoATargetIsAFailureToTheCaller)
{
    SerialSingle existing;
    SerialSingle target;
    SerialSingle::instance = &existing;
    StreamBytes const bytes = StreamBytes().Record(single, 1).Short(1);
    EXPECT_EQ(
        FailureOf([&] { Reader(factory, bytes).stream.Read(target); }), "3: Duplicate singelton object in stream");
    try
    {
        Reader(factory, bytes).stream.Read(target);
        FAIL();
    }
    catch (SerializingInputStream::SingeltonObjectExistsException const & exists)
    {
        EXPECT_EQ(exists.object, &existing);
        EXPECT_EQ(exists.code, 3);
    }
    EXPECT_EQ(existing.Count(), 1u);
    EXPECT_EQ(target.Count(), 1u);
}

TEST_F(SerializingRead, SingleInstanceOfAnObjectByValueTakesThePlaceOfItsHolder)
{
    SerialSingle existing;
    SerialSingle::instance = &existing;
    Reader reader(factory, StreamBytes().Record(Id("SerialHolder"), 1).Record(single, 1).Short(1));
    EXPECT_EQ(reader.stream.Create(), &existing);
    EXPECT_EQ(CountedObject::alive, 1);
}

TEST_F(SerializingRead, SingleInstanceOfAValueClassIsKeptAsAValue)
{
    ObjectFactory values;
    ASSERT_TRUE(RegisterType<ValueClassMethods<SerialSingle>>(values));
    SerialSingle existing;
    existing.number = 77;
    SerialSingle::instance = &existing;
    Reader reader(values, StreamBytes().Record(single, 1).Short(1).Repeat(0));
    EXPECT_EQ(reader.stream.Create(), &existing);
    auto * const clone = ObjectCast<SerialSingle>(reader.stream.Create());
    EXPECT_NE(clone, &existing);
    EXPECT_EQ(clone->number, 77);
    clone->Release();
}

TEST_F(SerializingRead, SingleInstanceThatIsNullGivesNull)
{
    class Nobody : public ClassMethods<SerialItem>
    {
    public:
        IUnknown * Create() const override
        {
            class Object : public SerialItem
            {
            public:
                void Read(SerializingInputStream &, short) override
                {
                    throw SerializingInputStream::SingeltonObjectExistsException(nullptr);
                }
            };
            return new Object;
        }
    };
    ObjectFactory nobody;
    ASSERT_TRUE(RegisterType<Nobody>(nobody));
    Reader reader(nobody, StreamBytes().Reference(0).Record(item, 1).Reference(1));
    EXPECT_EQ(reader.stream.ReadRef(), nullptr);
    EXPECT_EQ(FailureOf([&] { reader.stream.ReadRef(); }), "3: Reference to non-existing object");
}

/// The text of the std::runtime_error that `action` throws.
template <typename Action>
std::string ErrorOf(Action action)
{
    try
    {
        action();
    }
    catch (std::runtime_error const & error)
    {
        return error.what();
    }
    return "none";
}

TEST_F(SerializingRead, ExceptionsOfTheClassPassAndLeakNothing)
{
    ASSERT_TRUE((RegisterTypeAs<ClassMethodsUsing<SerialMute, &CreateWithFailure>>(factory, "Uncreatable")));
    ASSERT_TRUE(RegisterTypeAs<CloneFailure>(factory, "Uncloneable"));
    struct
    {
        std::string object;
        std::string error;
    } const cases[] = {
        {StreamBytes().Record(Id("Uncreatable"), 1), "from Create"},
        {StreamBytes().Record(Id("SerialThrower"), 1), "from Read"},
        {StreamBytes().Record(Id("Uncloneable"), 1).Short(1), "from Clone"},
    };
    for (auto const & c : cases)
    {
        Reader byValue(factory, c.object);
        EXPECT_EQ(ErrorOf([&] { byValue.stream.Create(); }), c.error);
        EXPECT_EQ(CountedObject::alive, 0) << c.error;
        {
            Reader byReference(factory, std::string(StreamBytes().Reference(0)) + c.object);
            EXPECT_EQ(ErrorOf([&] { byReference.stream.ReadRef(); }), c.error);
            // The stream's own reference stays until its end.
            EXPECT_EQ(CountedObject::alive, c.error == "from Create" ? 0 : 1);
        }
        EXPECT_EQ(CountedObject::alive, 0) << c.error;
    }
}

TEST_F(SerializingRead, ObjectOfAFailedReferenceCanStillBeReferredTo)
{
    Reader reader(factory, StreamBytes().Reference(0).Record(item, 2).Reference(1));
    EXPECT_EQ(FailureOf([&] { reader.stream.ReadRef(); }), "6: Object version too high");
    auto * const object = ObjectCast<SerialItem>(reader.stream.ReadRef());
    ASSERT_NE(object, nullptr);
    EXPECT_EQ(object->Count(), 1u);
}

TEST_F(SerializingRead, ExceptionWhileReadingIntoATargetLeavesItsCountAlone)
{
    SerialThrower target;
    Reader reader(factory, StreamBytes().Record(Id("SerialThrower"), 1));
    EXPECT_EQ(ErrorOf([&] { reader.stream.Read(target); }), "from Read");
    EXPECT_EQ(target.Count(), 1u);
}

/// Method objects of a client, without the library's templates.
class HandMadeMethods : public IObjectFactory::IClassMethod,
                        public IObjectFactory::ICreateMethod,
                        public IObjectFactory::ICopyCompareMethod
{
public:
    std::type_info const & GetType() const override
    {
        return typeid(SerialColor);
    }
    IUnknown * Create() const override
    {
        return new SerialColor;
    }
    IUnknown * Clone(IUnknown * object) const override
    {
        return new SerialColor(dynamic_cast<SerialColor &>(*object));
    }
    void Copy(IUnknown * from, IUnknown * to) const override
    {
        dynamic_cast<SerialColor &>(*to).value = dynamic_cast<SerialColor &>(*from).value;
    }
    bool Compare(IUnknown * a, IUnknown * b) const override
    {
        return dynamic_cast<SerialColor &>(*a).value == dynamic_cast<SerialColor &>(*b).value;
    }
};

TEST_F(SerializingRead, MethodObjectsOfAnyMakeWork)
{
    ObjectFactory handMade;
    ASSERT_TRUE(handMade.Register(new HandMadeMethods, nullptr, false));
    MemoryOutputStream memory;
    {
        SerializingOutputStream stream(handMade, memory);
        SerialColor const red(1);
        stream.WriteRef(&red);
        stream.Write(SerialColor(1));
        stream.Write(SerialColor(1));
    }
    Reader reader(handMade, memory.GetContent());
    ISerializable * const first = reader.stream.ReadRef();
    SerialColor second;
    reader.stream.Read(second);
    auto * const third = dynamic_cast<SerialColor *>(reader.stream.Create());
    EXPECT_EQ(second.value, 1);
    EXPECT_EQ(third->value, 1);
    first->Release();
    third->Release();
}

/// Clones are no objects for streams, or nothing.
template <bool isNull>
class UselessClones : public ValueClassMethods<SerialColor>
{
public:
    IUnknown * Clone(IUnknown * object) const override
    {
        ++clones;
        return isNull ? nullptr : clones == 1 ? ValueClassMethods::Clone(object) : new SerialMute;
    }
    mutable int clones = 0;
};

TEST_F(SerializingRead, CloneThatIsNotSerializableIsRefused)
{
    ObjectFactory useless;
    ASSERT_TRUE(RegisterType<UselessClones<false>>(useless));
    Reader reader(useless, StreamBytes().Record(color, 1).Int(1).Repeat(0));
    EXPECT_EQ(FailureOf([&] { CreateTwice(reader.stream); }), "3: Non-serializable object in stream");
}

TEST_F(SerializingRead, CloneThatIsNullIsNoValueToEitherStream)
{
    ObjectFactory useless;
    ASSERT_TRUE(RegisterType<UselessClones<true>>(useless));
    MemoryOutputStream memory;
    {
        SerializingOutputStream stream(useless, memory);
        stream.Write(SerialColor(1));
        stream.Write(SerialColor(1));
    }
    EXPECT_EQ(memory.GetContent(), std::string(StreamBytes().Record(color, 1).Int(1).Record(color, 1).Int(1)));
    Reader reader(useless, StreamBytes().Record(color, 1).Int(1).Repeat(0));
    EXPECT_EQ(FailureOf([&] { CreateTwice(reader.stream); }), "3: Reference to unknown object in stream");
}

} // namespace
