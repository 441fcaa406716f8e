#include <atomic>
#include <cstring>
#include <thread>
#include <type_traits>
#include <vector>

#include <gtest/gtest.h>

#include <kvcore/core/KVUnknown.h>
#include <kvcore/platform/win32.h>

namespace
{

constexpr GUID shapeId = {0x6E1C7A30, 0x1B2D, 0x4C5E, {0x8F, 0x01, 0x23, 0x45, 0x67, 0x89, 0xAB, 0xCD}};
constexpr GUID namedId = {0x6E1C7A31, 0x1B2D, 0x4C5E, {0x8F, 0x01, 0x23, 0x45, 0x67, 0x89, 0xAB, 0xCD}};
constexpr GUID strangeId = {0x6E1C7A32, 0x1B2D, 0x4C5E, {0x8F, 0x01, 0x23, 0x45, 0x67, 0x89, 0xAB, 0xCD}};

struct IShape : virtual IUnknown
{
    virtual int Corners() = 0;
};

struct INamed : virtual IUnknown
{
    virtual char const * Name() = 0;
};

/// Implements two interfaces over one count, and tells when it goes.
class Square : public KVUnknown, public IShape, public INamed
{
public:
    explicit Square(std::atomic<int> & destroyedCount) : destroyed(destroyedCount) {}
    Square(Square const & other) = default;
    Square & operator=(Square const & other)
    {
        KVUnknown::operator=(other);
        return *this;
    }
    ~Square() override
    {
        ++destroyed;
    }

    int Corners() override
    {
        return 4;
    }
    char const * Name() override
    {
        return "square";
    }

protected:
    HRESULT KVQueryInterface(GUID const & iid, void ** object) override
    {
        if (IsEqualGUID(iid, shapeId))
        {
            *object = static_cast<IShape *>(this);
        }
        else if (IsEqualGUID(iid, namedId))
        {
            *object = static_cast<INamed *>(this);
        }
        else
        {
            return KVUnknown::KVQueryInterface(iid, object);
        }
        AddRef();
        return S_OK;
    }

private:
    std::atomic<int> & destroyed;
};

/// The count, seen by taking and dropping a reference.
ULONG CountOf(IUnknown & object)
{
    object.AddRef();
    return object.Release();
}

} // namespace

TEST(KVUnknown, FirstReleaseOfANewObjectDestroysIt)
{
    std::atomic<int> destroyed = 0;
    auto * const square = new Square(destroyed);
    EXPECT_EQ(destroyed, 0);
    EXPECT_EQ(square->Release(), 0u);
    EXPECT_EQ(destroyed, 1);
}

TEST(KVUnknown, CallsReturnTheNewCount)
{
    std::atomic<int> destroyed = 0;
    auto * const square = new Square(destroyed);
    EXPECT_EQ(square->AddRef(), 2u);
    EXPECT_EQ(square->AddRef(), 3u);
    EXPECT_EQ(square->Release(), 2u);
    EXPECT_EQ(square->Release(), 1u);
    EXPECT_EQ(destroyed, 0);
    EXPECT_EQ(square->Release(), 0u);
    EXPECT_EQ(destroyed, 1);
}

TEST(KVUnknown, ObjectGoesThroughItsVirtualDestructorWhicheverBaseReleasesIt)
{
    std::atomic<int> destroyed = 0;
    IUnknown * const asUnknown = static_cast<KVUnknown *>(new Square(destroyed));
    asUnknown->Release();
    EXPECT_EQ(destroyed, 1);
    IShape * const asShape = new Square(destroyed);
    asShape->Release();
    EXPECT_EQ(destroyed, 2);
    RegisteredObject * const asRegistered = new Square(destroyed);
    delete asRegistered;
    EXPECT_EQ(destroyed, 3);
}

TEST(KVUnknown, QueryForIUnknownRaisesTheCount)
{
    std::atomic<int> destroyed = 0;
    auto * const square = new Square(destroyed);
    void * object = nullptr;
    EXPECT_EQ(square->QueryInterface(IID_IUnknown, &object), S_OK);
    EXPECT_EQ(object, static_cast<IUnknown *>(square));
    EXPECT_EQ(CountOf(*square), 2u);
    EXPECT_EQ(static_cast<IUnknown *>(object)->Release(), 1u);
    square->Release();
    EXPECT_EQ(destroyed, 1);
}

TEST(KVUnknown, QueryForAnUnknownIdentifierLeavesNull)
{
    std::atomic<int> destroyed = 0;
    auto * const square = new Square(destroyed);
    int something = 0;
    void * object = &something;
    EXPECT_EQ(square->QueryInterface(strangeId, &object), HRESULT(0x80004002));
    EXPECT_EQ(object, nullptr);
    EXPECT_EQ(CountOf(*square), 1u);
    square->Release();
}

TEST(KVUnknown, IdentifiersCompareInAllTheirBytes)
{
    std::atomic<int> destroyed = 0;
    auto * const square = new Square(destroyed);
    for (std::size_t i = 0; i < sizeof(GUID); ++i)
    {
        GUID similar = IID_IUnknown;
        unsigned char bytes[sizeof(GUID)];
        std::memcpy(bytes, &similar, sizeof(similar));
        bytes[i] = static_cast<unsigned char>(bytes[i] ^ 1);
        std::memcpy(&similar, bytes, sizeof(similar));
        void * object = square;
        EXPECT_EQ(square->QueryInterface(similar, &object), E_NOINTERFACE) << i;
        EXPECT_EQ(object, nullptr);
    }
    square->Release();
}

TEST(KVUnknown, DerivedClassAnswersForItsInterfacesOverOneCount)
{
    std::atomic<int> destroyed = 0;
    auto * const square = new Square(destroyed);
    void * shape = nullptr;
    void * named = nullptr;
    void * unknown = nullptr;
    EXPECT_EQ(square->QueryInterface(shapeId, &shape), S_OK);
    EXPECT_EQ(static_cast<IShape *>(shape)->Corners(), 4);
    EXPECT_EQ(static_cast<IShape *>(shape)->QueryInterface(namedId, &named), S_OK);
    EXPECT_STREQ(static_cast<INamed *>(named)->Name(), "square");
    EXPECT_EQ(static_cast<INamed *>(named)->QueryInterface(IID_IUnknown, &unknown), S_OK);
    EXPECT_EQ(unknown, static_cast<IUnknown *>(static_cast<IShape *>(shape))); // one identity
    EXPECT_EQ(static_cast<IUnknown *>(unknown)->Release(), 3u);
    EXPECT_EQ(static_cast<INamed *>(named)->Release(), 2u);
    EXPECT_EQ(static_cast<IShape *>(shape)->Release(), 1u);
    EXPECT_EQ(square->Release(), 0u);
}

TEST(KVUnknown, CopyStartsWithACountOfOne)
{
    std::atomic<int> destroyed = 0;
    auto * const square = new Square(destroyed);
    for (int i = 0; i < 4; ++i)
    {
        square->AddRef();
    }
    EXPECT_EQ(CountOf(*square), 5u);
    auto * const copy = new Square(*square);
    EXPECT_EQ(CountOf(*copy), 1u);
    EXPECT_EQ(CountOf(*square), 5u);
    EXPECT_EQ(copy->Release(), 0u);
    EXPECT_EQ(destroyed, 1);
    while (square->Release() != 0)
    {
    }
    EXPECT_EQ(destroyed, 2);
}

TEST(KVUnknown, AssignmentLeavesBothCounts)
{
    std::atomic<int> destroyed = 0;
    auto * const left = new Square(destroyed);
    auto * const right = new Square(destroyed);
    left->AddRef();
    right->AddRef();
    right->AddRef();
    *left = *right;
    EXPECT_EQ(CountOf(*left), 2u);
    EXPECT_EQ(CountOf(*right), 3u);
    for (Square * square : {left, right})
    {
        while (square->Release() != 0)
        {
        }
    }
    EXPECT_EQ(destroyed, 2);
}

TEST(KVUnknown, CountHoldsAcrossThreads)
{
    constexpr int threadCount = 8;
    constexpr int rounds = 20000;
    std::atomic<int> destroyed = 0;
    auto * const square = new Square(destroyed);
    std::atomic<int> ready = 0;
    std::vector<std::thread> threads;
    for (int i = 0; i < threadCount; ++i)
    {
        square->AddRef(); // each thread's own, handed over
        threads.emplace_back(
            [&]
            {
                ++ready;
                while (ready != threadCount)
                {
                    std::this_thread::yield();
                }
                for (int round = 0; round < rounds; ++round)
                {
                    void * object = nullptr;
                    square->QueryInterface(shapeId, &object);
                    square->AddRef();
                    static_cast<IShape *>(object)->Release();
                    square->Release();
                }
                square->Release();
            });
    }
    for (std::thread & thread : threads)
    {
        thread.join();
    }
    EXPECT_EQ(destroyed, 0);
    EXPECT_EQ(CountOf(*square), 1u);
    EXPECT_EQ(square->Release(), 0u);
    EXPECT_EQ(destroyed, 1);
}

TEST(KVUnknown, LastOfManyThreadsDestroysOnce)
{
    constexpr int threadCount = 4;
    for (int round = 0; round < 200; ++round)
    {
        std::atomic<int> destroyed = 0;
        std::atomic<int> zeros = 0;
        auto * const square = new Square(destroyed);
        std::atomic<int> ready = 0;
        std::vector<std::thread> threads;
        for (int i = 1; i < threadCount; ++i)
        {
            square->AddRef();
        }
        for (int i = 0; i < threadCount; ++i)
        {
            threads.emplace_back(
                [&]
                {
                    ++ready;
                    while (ready != threadCount)
                    {
                        std::this_thread::yield();
                    }
                    zeros += square->Release() == 0 ? 1 : 0;
                });
        }
        for (std::thread & thread : threads)
        {
            thread.join();
        }
        ASSERT_EQ(zeros, 1);
        ASSERT_EQ(destroyed, 1);
    }
}

TEST(RegisteredObject, KeepsNoRecord)
{
    std::atomic<int> destroyed = 0;
    auto * const square = new Square(destroyed);
    RegisteredObject::LogActiveObjects();
    EXPECT_EQ(CountOf(*square), 1u);
    square->Release();
    RegisteredObject::LogActiveObjects();
    EXPECT_TRUE(std::has_virtual_destructor_v<RegisteredObject>);
    EXPECT_EQ(sizeof(RegisteredObject), sizeof(void *));
    RegisteredObject first;
    RegisteredObject const second(first);
    EXPECT_EQ(&(first = second), &first);
}
