#include <gtest/gtest.h>

#include <memory>
#include <typeinfo>

#include <kvcore/streams/ClassMethods.h>
#include <support/SerializingObjects.h>

class AbstractShape : public CountedObject, public ISerializable
{
public:
    virtual int Corners() const = 0;
};

class TriangleShape : public AbstractShape
{
public:
    int Corners() const override
    {
        return 3;
    }
    void Read(SerializingInputStream &, short) override {}
    void Write(SerializingOutputStream &) const override {}
    short GetVersion() const override
    {
        return 1;
    }
};

/// Counted, but nothing for streams.
class SilentObject : public CountedObject
{
};

/// A single instance, without a public constructor.
class OnlyOne : public CountedObject
{
public:
    static OnlyOne * Instance()
    {
        static OnlyOne * const instance = new OnlyOne;
        instance->AddRef();
        return instance;
    }

private:
    OnlyOne()
    {
        --alive;
    }
};

namespace
{

using kv::test::RegisterSerialObjects;

int Id(char const * name)
{
    return ObjectFactory().GetClassID(name);
}

/// Whether a class's method object offers creation and values.
template <typename T>
std::string Offers()
{
    ObjectFactory factory;
    EXPECT_TRUE(RegisterType<T>(factory));
    auto const * const methods = factory.GetClassMethods(factory.GetClassID(kv::detail::MethodsFor<T>().GetType()));
    std::string offers;
    offers += dynamic_cast<IObjectFactory::ICreateMethod const *>(methods) != nullptr ? "create " : "";
    offers += dynamic_cast<IObjectFactory::ICopyCompareMethod const *>(methods) != nullptr ? "value " : "";
    return offers;
}

TEST(ClassMethods, OfferWhatTheClassIsRegisteredAs)
{
    EXPECT_EQ(Offers<SerialItem>(), "create ");
    EXPECT_EQ(Offers<ClassMethods<SerialItem>>(), "create ");
    EXPECT_EQ(Offers<AbstractClassMethods<SerialItem>>(), "");
    EXPECT_EQ(Offers<AbstractShape>(), "");
    EXPECT_EQ(Offers<SilentObject>(), "create ");
    EXPECT_EQ(Offers<ValueClassMethods<SerialColor>>(), "create value ");
    EXPECT_EQ((Offers<ClassMethodsUsing<OnlyOne, &OnlyOne::Instance>>()), "create ");
}

TEST(ClassMethods, RegisterByTypeByStatedNameAndByFormerName)
{
    ObjectFactory factory;
    EXPECT_TRUE(RegisterType<SerialItem>(factory));
    EXPECT_FALSE(RegisterType<SerialItem>(factory));
    EXPECT_TRUE(RegisterFormerName<SerialItem>(factory, "OldItem"));
    EXPECT_FALSE(RegisterFormerName<SerialItem>(factory, "OldItem"));
    EXPECT_EQ(factory.GetRegisteredClassID(Id("OldItem")), Id("SerialItem"));
    EXPECT_TRUE(RegisterTypeAs<SerialPage>(factory, "Page"));
    EXPECT_FALSE(RegisterTypeAs<SerialPage>(factory, "Page"));
    EXPECT_EQ(factory.GetClassID(typeid(SerialPage)), Id("Page"));
    EXPECT_EQ(factory.GetClassMethods(Id("Page"))->GetType(), typeid(SerialPage));
    for (char const * const name : {"SerialItem", "OldItem", "Page"})
    {
        IUnknown * const object = factory.CreateObject(name);
        ASSERT_NE(object, nullptr) << name;
        EXPECT_EQ(object->Release(), 0u) << name;
    }
    EXPECT_EQ(CountedObject::alive, 0);
}

TEST(ClassMethods, CreateGivesOneReferenceToANewObject)
{
    ClassMethods<SerialItem> const methods;
    EXPECT_EQ(methods.GetType(), typeid(SerialItem));
    IUnknown * const object = methods.Create();
    EXPECT_EQ(CountedObject::alive, 1);
    EXPECT_EQ(ObjectCast<SerialItem>(object)->Count(), 1u);
    EXPECT_EQ(object->Release(), 0u);
    EXPECT_EQ(CountedObject::alive, 0);
}

TEST(ClassMethods, CreateMayBeAnyFunction)
{
    ClassMethodsUsing<OnlyOne, &OnlyOne::Instance> const methods;
    IUnknown * const first = methods.Create();
    IUnknown * const second = methods.Create();
    EXPECT_EQ(first, second);
    ULONG const count = ObjectCast<OnlyOne>(first)->Count();
    first->Release();
    EXPECT_EQ(second->Release(), count - 2);
}

TEST(ClassMethods, ValuesAreClonedCopiedAndCompared)
{
    ValueClassMethods<SerialColor> const methods;
    auto * const red = new SerialColor(1);
    auto * const green = new SerialColor(2);
    EXPECT_FALSE(methods.Compare(red, green));
    auto * const clone = ObjectCast<SerialColor>(methods.Clone(red));
    ASSERT_NE(clone, nullptr);
    EXPECT_NE(clone, red);
    EXPECT_EQ(clone->Count(), 1u);
    EXPECT_TRUE(methods.Compare(red, clone));
    methods.Copy(green, clone);
    EXPECT_EQ(clone->value, 2);
    EXPECT_TRUE(methods.Compare(clone, green));
    clone->Release();
    green->Release();
    red->Release();
    EXPECT_EQ(CountedObject::alive, 0);
}

TEST(ClassMethods, ValuesOfAnotherClassAreUnequalAndNeitherClonedNorCopied)
{
    ValueClassMethods<SerialColor> const methods;
    SerialColor color(1);
    SerialItem item(1);
    EXPECT_FALSE(methods.Compare(&color, &item));
    EXPECT_FALSE(methods.Compare(&item, &color));
    EXPECT_FALSE(methods.Compare(nullptr, &color));
    EXPECT_THROW(methods.Clone(&item), std::bad_cast);
    EXPECT_THROW(methods.Copy(&color, &item), std::bad_cast);
    EXPECT_THROW(methods.Copy(&item, &color), std::bad_cast);
}

TEST(ClassMethods, MethodsMayBeOverridden)
{
    class Methods : public ValueClassMethods<SerialColor>
    {
    public:
        IUnknown * Create() const override
        {
            return new SerialColor(7);
        }
        bool Compare(IUnknown *, IUnknown *) const override
        {
            return true;
        }
    };
    ObjectFactory factory;
    ASSERT_TRUE(RegisterType<Methods>(factory));
    IUnknown * const object = factory.CreateObject("SerialColor");
    ASSERT_NE(object, nullptr);
    EXPECT_EQ(ObjectCast<SerialColor>(object)->value, 7);
    object->Release();
}

TEST(ObjectCast, FindsTheObjectAsItsOwnClassAndAsABase)
{
    TriangleShape triangle;
    IUnknown * const object = static_cast<ISerializable *>(&triangle);
    EXPECT_EQ(ObjectCast<TriangleShape>(object), &triangle);
    EXPECT_EQ(ObjectCast<AbstractShape>(object), &triangle);
    EXPECT_EQ(ObjectCast<CountedObject>(object), &triangle);
    EXPECT_EQ(ObjectCast<SerialItem>(object), nullptr);
    EXPECT_EQ(ObjectCast<SerialItem>(nullptr), nullptr);
}

TEST(ClassMethods, TheWayToISerializableIsTheSameForEveryClass)
{
    TriangleShape triangle;
    SilentObject silent;
    ISerializable * const expected = &triangle;
    EXPECT_EQ(ClassMethods<TriangleShape>().ToSerializable(&triangle), expected);
    EXPECT_EQ(AbstractClassMethods<AbstractShape>().ToSerializable(&triangle), expected);
    // Methods that create objects of another class than they say.
    EXPECT_EQ(ClassMethods<SerialItem>().ToSerializable(&triangle), expected);
    EXPECT_EQ(ClassMethods<SilentObject>().ToSerializable(&triangle), expected);
    EXPECT_EQ(ClassMethods<SilentObject>().ToSerializable(&silent), nullptr);
    EXPECT_EQ(ClassMethods<TriangleShape>().ToSerializable(nullptr), nullptr);
}

} // namespace
