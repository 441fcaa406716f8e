#include <gtest/gtest.h>

#include <typeinfo>

#include <kvcore/streams/ObjectFactoryChain.h>

class ChainWidget : public KVUnknown
{
};

class ChainGadget : public KVUnknown
{
};

namespace
{

template <typename T>
class PlainMethod : public IObjectFactory::IClassMethod
{
public:
    std::type_info const & GetType() const override
    {
        return typeid(T);
    }
};

template <typename T>
class CreatingMethod : public PlainMethod<T>, public IObjectFactory::ICreateMethod
{
public:
    IUnknown * Create() const override
    {
        return new T;
    }
};

int Hash(char const * name)
{
    return ObjectFactory().GetClassID(name);
}

bool Creates(ObjectFactoryChain const & chain, char const * name)
{
    IUnknown * const object = chain.CreateObject(name);
    if (object != nullptr)
    {
        object->Release();
    }
    return object != nullptr;
}

TEST(ObjectFactoryChain, EmptyChainKnowsNothing)
{
    ObjectFactoryChain const chain;
    EXPECT_EQ(chain.GetClassID("ChainWidget"), 0);
    EXPECT_EQ(chain.GetClassID(typeid(ChainWidget)), 0);
    EXPECT_EQ(chain.GetRegisteredClassID(5), 5);
    EXPECT_EQ(chain.GetClassMethods(Hash("ChainWidget")), nullptr);
    EXPECT_EQ(chain.CreateObject("ChainWidget"), nullptr);
    EXPECT_EQ(chain.CreateObject(typeid(ChainWidget)), nullptr);
    EXPECT_EQ(chain.CreateObject(Hash("ChainWidget")), nullptr);
}

TEST(ObjectFactoryChain, IdentifiersComeFromTheFirstFactoryAlone)
{
    ObjectFactory plain;
    ObjectFactory renaming;
    ASSERT_TRUE(renaming.Register(new PlainMethod<ChainWidget>, "Renamed", true));
    ObjectFactoryChain chain;
    chain.Append(&plain);
    chain.Append(&renaming);
    EXPECT_EQ(chain.GetClassID(typeid(ChainWidget)), Hash("ChainWidget"));
    EXPECT_EQ(chain.GetClassID("ChainWidget"), Hash("ChainWidget"));
    chain.Prepend(&renaming);
    EXPECT_EQ(chain.GetClassID(typeid(ChainWidget)), Hash("Renamed"));
    EXPECT_EQ(chain.GetClassID("ChainWidget"), Hash("Renamed"));
}

TEST(ObjectFactoryChain, FirstFormerNameThatLeadsElsewhereWins)
{
    ObjectFactory none;
    ObjectFactory toWidget;
    ObjectFactory toGadget;
    ASSERT_TRUE(toWidget.Register(new PlainMethod<ChainWidget>, "Old", false));
    ASSERT_TRUE(toGadget.Register(new PlainMethod<ChainGadget>, "Old", false));
    ObjectFactoryChain chain;
    chain.Append(&none);
    EXPECT_EQ(chain.GetRegisteredClassID(Hash("Old")), Hash("Old"));
    chain.Append(&toWidget);
    chain.Append(&toGadget);
    EXPECT_EQ(chain.GetRegisteredClassID(Hash("Old")), Hash("ChainWidget"));
    EXPECT_EQ(chain.GetRegisteredClassID(Hash("Other")), Hash("Other"));
}

TEST(ObjectFactoryChain, FirstMethodObjectWinsAndCreates)
{
    ObjectFactory first;
    ObjectFactory second;
    auto * const abstractWidget = new PlainMethod<ChainWidget>;
    auto * const gadget = new CreatingMethod<ChainGadget>;
    ASSERT_TRUE(first.Register(abstractWidget, nullptr, false));
    ASSERT_TRUE(second.Register(new CreatingMethod<ChainWidget>, nullptr, false));
    ASSERT_TRUE(second.Register(gadget, nullptr, false));
    ObjectFactoryChain chain;
    chain.Append(&first);
    chain.Append(&second);
    EXPECT_EQ(chain.GetClassMethods(Hash("ChainWidget")), abstractWidget);
    EXPECT_EQ(chain.GetClassMethods(Hash("ChainGadget")), gadget);
    // The first method object decides, also where a later factory could create.
    EXPECT_FALSE(Creates(chain, "ChainWidget"));
    EXPECT_TRUE(Creates(chain, "ChainGadget"));
    chain.Prepend(&second);
    EXPECT_TRUE(Creates(chain, "ChainWidget"));
    IUnknown * const object = chain.CreateObject(typeid(ChainGadget));
    ASSERT_NE(object, nullptr);
    EXPECT_NE(dynamic_cast<ChainGadget *>(object), nullptr);
    EXPECT_EQ(object->Release(), 0u);
}

TEST(ObjectFactoryChain, RemoveTakesOutEveryOccurrence)
{
    ObjectFactory factory;
    ASSERT_TRUE(factory.Register(new CreatingMethod<ChainWidget>, nullptr, false));
    ObjectFactoryChain chain;
    chain.Append(&factory);
    chain.Append(&factory);
    EXPECT_TRUE(Creates(chain, "ChainWidget"));
    chain.Remove(&factory);
    EXPECT_FALSE(Creates(chain, "ChainWidget"));
    EXPECT_EQ(chain.GetClassID("ChainWidget"), 0);
}

TEST(ObjectFactoryChain, ClearTakesOutAll)
{
    ObjectFactory one;
    ObjectFactory two;
    ObjectFactoryChain chain;
    chain.Append(&one);
    chain.Prepend(&two);
    EXPECT_NE(chain.GetClassID("ChainWidget"), 0);
    chain.Clear();
    EXPECT_EQ(chain.GetClassID("ChainWidget"), 0);
}

TEST(ObjectFactoryChain, NullFactoriesAreIgnored)
{
    ObjectFactory factory;
    ObjectFactoryChain chain;
    chain.Append(nullptr);
    chain.Prepend(nullptr);
    EXPECT_EQ(chain.GetClassID("ChainWidget"), 0);
    chain.Append(&factory);
    chain.Remove(nullptr);
    EXPECT_EQ(chain.GetClassID("ChainWidget"), Hash("ChainWidget"));
}

TEST(ObjectFactoryChain, NeitherOwnsNorCountsItsFactories)
{
    ObjectFactory factory;
    {
        ObjectFactoryChain chain;
        chain.Append(&factory);
    }
    EXPECT_EQ(factory.AddRef(), 2u);
    EXPECT_EQ(factory.Release(), 1u);
}

TEST(ObjectFactoryChain, ChainsMayStandInChains)
{
    ObjectFactory factory;
    ASSERT_TRUE(factory.Register(new CreatingMethod<ChainWidget>, nullptr, false));
    ObjectFactoryChain inner;
    inner.Append(&factory);
    ObjectFactoryChain outer;
    outer.Append(&inner);
    EXPECT_TRUE(Creates(outer, "ChainWidget"));
    EXPECT_EQ(outer.GetClassID(typeid(ChainWidget)), Hash("ChainWidget"));
}

} // namespace
