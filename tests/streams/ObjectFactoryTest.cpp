#include <gtest/gtest.h>

#include <string>
#include <typeinfo>

#include <kvcore/streams/ObjectFactory.h>

class FactoryWidget : public KVUnknown
{
};

class FactoryGadget : public KVUnknown
{
};

namespace
{

/// A method object without ICreateMethod that says when it dies.
class PlainMethod : public IObjectFactory::IClassMethod
{
public:
    explicit PlainMethod(std::type_info const & newType, int * newDeaths = nullptr) : type(newType), deaths(newDeaths)
    {
    }
    ~PlainMethod() override
    {
        if (deaths != nullptr)
        {
            ++*deaths;
        }
    }
    std::type_info const & GetType() const override
    {
        return type;
    }

private:
    std::type_info const & type;
    int * deaths;
};

template <typename T>
class CreatingMethod : public PlainMethod, public IObjectFactory::ICreateMethod
{
public:
    CreatingMethod() : PlainMethod(typeid(T)) {}
    IUnknown * Create() const override
    {
        return new T;
    }
};

/// A factory whose names all have one identifier, to see which operations go through the virtual ones.
class RenamingFactory : public ObjectFactory
{
public:
    using ObjectFactory::GetClassID;
    int GetClassID(char const * name) const override
    {
        asked += std::string(name) + ';';
        return ObjectFactory::GetClassID("FactoryGadget");
    }
    mutable std::string asked;
};

int Hash(char const * name)
{
    return ObjectFactory().GetClassID(name);
}

TEST(ObjectFactory, IdentifierIsTheHashOfTheName)
{
    struct
    {
        char const * name;
        unsigned int id;
    } const cases[] = {
        {"", 0},
        {"XPDib", 0x00001E75},
        {"A", 0x41},
        {"AB", 0x41 + (0x82 ^ 0x42)},
        // A byte above 0x7F counts as negative.
        {"\xFF", 0xFFFFFFFF},
        {"\x80", 0xFFFFFF80},
        {"A\xE9", 0x41u + (0x82u ^ 0xFFFFFFE9u)},
        // Long enough to wrap.
        {"TheQuickBrownFoxJumpsOverTheLazyDog", 0x12A6DC2F},
    };
    for (auto const & c : cases)
    {
        EXPECT_EQ(static_cast<unsigned int>(Hash(c.name)), c.id) << c.name;
    }
    EXPECT_EQ(Hash(nullptr), 0);
}

TEST(ObjectFactory, ClassNeverRegisteredStillHasAnIdentifier)
{
    ObjectFactory const factory;
    EXPECT_EQ(factory.GetClassID(typeid(FactoryWidget)), Hash("FactoryWidget"));
    EXPECT_NE(Hash("FactoryWidget"), 0);
    EXPECT_EQ(factory.GetClassMethods(Hash("FactoryWidget")), nullptr);
    EXPECT_EQ(factory.CreateObject(typeid(FactoryWidget)), nullptr);
}

TEST(ObjectFactory, IdentifierWithoutAliasIsItself)
{
    ObjectFactory const factory;
    for (int const id : {0, 1, -1, 0x1E75})
    {
        EXPECT_EQ(factory.GetRegisteredClassID(id), id);
    }
}

TEST(ObjectFactory, RegisteredClassIsFoundAndCreated)
{
    ObjectFactory factory;
    auto * const method = new CreatingMethod<FactoryWidget>;
    ASSERT_TRUE(factory.Register(method, nullptr, false));
    EXPECT_EQ(factory.GetClassMethods(Hash("FactoryWidget")), method);
    for (IUnknown * const object :
         {factory.CreateObject(typeid(FactoryWidget)), factory.CreateObject("FactoryWidget"),
          factory.CreateObject(Hash("FactoryWidget"))})
    {
        ASSERT_NE(object, nullptr);
        EXPECT_NE(dynamic_cast<FactoryWidget *>(object), nullptr);
        EXPECT_EQ(object->Release(), 0u);
    }
    EXPECT_EQ(factory.CreateObject("FactoryGadget"), nullptr);
    EXPECT_EQ(factory.CreateObject(0), nullptr);
}

TEST(ObjectFactory, ClassWithoutCreateMethodIsKnownButNotCreated)
{
    ObjectFactory factory;
    ASSERT_TRUE(factory.Register(new PlainMethod(typeid(FactoryWidget)), nullptr, false));
    EXPECT_NE(factory.GetClassMethods(Hash("FactoryWidget")), nullptr);
    EXPECT_EQ(factory.CreateObject("FactoryWidget"), nullptr);
    EXPECT_EQ(factory.CreateObject(typeid(FactoryWidget)), nullptr);
    EXPECT_EQ(factory.CreateObject(Hash("FactoryWidget")), nullptr);
}

TEST(ObjectFactory, SecondMethodForAnIdentifierIsRefusedAndStaysTheCallers)
{
    int deaths = 0;
    PlainMethod second(typeid(FactoryWidget), &deaths);
    auto * const first = new PlainMethod(typeid(FactoryWidget), &deaths);
    {
        ObjectFactory factory;
        EXPECT_TRUE(factory.Register(first, nullptr, false));
        EXPECT_FALSE(factory.Register(&second, nullptr, false));
        EXPECT_FALSE(factory.Register(&second, "FactoryWidget", true));
        EXPECT_EQ(factory.GetClassMethods(Hash("FactoryWidget")), first);
        EXPECT_EQ(deaths, 0);
    }
    EXPECT_EQ(deaths, 1);
}

TEST(ObjectFactory, NullMethodIsRefusedAndChangesNothing)
{
    ObjectFactory factory;
    EXPECT_FALSE(factory.Register(nullptr, nullptr, false));
    EXPECT_FALSE(factory.Register(nullptr, "Former", false));
    EXPECT_FALSE(factory.Register(nullptr, "Primary", true));
    EXPECT_EQ(factory.GetRegisteredClassID(Hash("Former")), Hash("Former"));
}

TEST(ObjectFactory, PrimaryNameBecomesTheNameOfTheClass)
{
    ObjectFactory factory;
    ASSERT_TRUE(factory.Register(new CreatingMethod<FactoryWidget>, "MediaWidget", true));
    EXPECT_EQ(factory.GetClassID(typeid(FactoryWidget)), Hash("MediaWidget"));
    EXPECT_EQ(factory.GetClassID("FactoryWidget"), Hash("MediaWidget"));
    EXPECT_EQ(factory.GetClassID("MediaWidget"), Hash("MediaWidget"));
    EXPECT_EQ(factory.GetClassMethods(Hash("FactoryWidget")), nullptr);
    EXPECT_EQ(factory.GetRegisteredClassID(Hash("FactoryWidget")), Hash("FactoryWidget"));
    IUnknown * const object = factory.CreateObject("FactoryWidget");
    ASSERT_NE(object, nullptr);
    object->Release();
}

TEST(ObjectFactory, FormerNameLeadsToTheClassOfToday)
{
    ObjectFactory factory;
    ASSERT_TRUE(factory.Register(new CreatingMethod<FactoryWidget>, nullptr, false));
    ASSERT_TRUE(factory.Register(new CreatingMethod<FactoryWidget>, "OldWidget", false));
    EXPECT_EQ(factory.GetRegisteredClassID(Hash("OldWidget")), Hash("FactoryWidget"));
    EXPECT_EQ(factory.GetClassID("OldWidget"), Hash("OldWidget"));
    EXPECT_EQ(factory.GetClassID(typeid(FactoryWidget)), Hash("FactoryWidget"));
    IUnknown * const object = factory.CreateObject("OldWidget");
    ASSERT_NE(object, nullptr);
    EXPECT_NE(dynamic_cast<FactoryWidget *>(object), nullptr);
    object->Release();
}

TEST(ObjectFactory, FormerNameLeadsToThePrimaryNameThatIsKnownByThen)
{
    ObjectFactory factory;
    ASSERT_TRUE(factory.Register(new CreatingMethod<FactoryWidget>, "Early", false));
    ASSERT_TRUE(factory.Register(new CreatingMethod<FactoryWidget>, "MediaWidget", true));
    ASSERT_TRUE(factory.Register(new CreatingMethod<FactoryWidget>, "Late", false));
    EXPECT_EQ(factory.GetRegisteredClassID(Hash("Early")), Hash("FactoryWidget"));
    EXPECT_EQ(factory.GetRegisteredClassID(Hash("Late")), Hash("MediaWidget"));
}

TEST(ObjectFactory, NamesAreTakenInEvenWhereTheMethodIsRefused)
{
    ObjectFactory factory;
    PlainMethod refused(typeid(FactoryWidget));
    ASSERT_TRUE(factory.Register(new PlainMethod(typeid(FactoryGadget)), "Taken", true));
    EXPECT_FALSE(factory.Register(&refused, "Taken", false));
    EXPECT_EQ(factory.GetRegisteredClassID(Hash("Taken")), Hash("FactoryWidget"));
    EXPECT_FALSE(factory.Register(&refused, "Taken", true));
    EXPECT_EQ(factory.GetClassID(typeid(FactoryWidget)), Hash("Taken"));
}

TEST(ObjectFactory, IdentifierZeroIsRefused)
{
    ObjectFactory factory;
    int deaths = 0;
    {
        PlainMethod method(typeid(FactoryWidget), &deaths);
        EXPECT_FALSE(factory.Register(&method, "", true));
        EXPECT_EQ(factory.GetClassID(typeid(FactoryWidget)), 0);
        EXPECT_FALSE(factory.Register(&method, nullptr, false));
        EXPECT_EQ(factory.GetClassMethods(0), nullptr);
    }
    EXPECT_EQ(deaths, 1);
}

TEST(ObjectFactory, TypesAndCreationGoThroughTheVirtualNames)
{
    RenamingFactory factory;
    EXPECT_EQ(factory.GetClassID(typeid(FactoryWidget)), Hash("FactoryGadget"));
    ASSERT_TRUE(factory.Register(new CreatingMethod<FactoryGadget>, nullptr, false));
    for (IUnknown * const object : {factory.CreateObject(typeid(FactoryWidget)), factory.CreateObject("Anything")})
    {
        ASSERT_NE(object, nullptr);
        EXPECT_NE(dynamic_cast<FactoryGadget *>(object), nullptr);
        object->Release();
    }
    EXPECT_EQ(factory.asked, "FactoryWidget;FactoryGadget;FactoryWidget;Anything;");
}

TEST(ObjectFactory, IsReferenceCounted)
{
    auto * const factory = new ObjectFactory;
    IObjectFactory * const asInterface = factory;
    EXPECT_EQ(asInterface->AddRef(), 2u);
    EXPECT_EQ(factory->Release(), 1u);
    EXPECT_EQ(asInterface->Release(), 0u);
}

} // namespace
