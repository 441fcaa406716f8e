#include <kvcore/frame/ObjectServices.h>

#include <atomic>
#include <cstring>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include <kvcore/core/KVUnknown.h>
#include <kvcore/frame/detail/ServiceTables.h>
#include <kvcore/platform/win32.h>

namespace
{

/// An interface of the tests' own.
struct ICounter : IUnknown
{
    static GUID const interfaceId;
    virtual int Next() = 0;
};

GUID const ICounter::interfaceId = {0x51A0D2C1, 0x0001, 0x4A4B, {1, 2, 3, 4, 5, 6, 7, 8}};
GUID const otherInterface = {0x51A0D2C1, 0x0002, 0x4A4B, {1, 2, 3, 4, 5, 6, 7, 8}};

int alive;

class Counter : public ICounter
{
public:
    Counter()
    {
        ++alive;
    }
    virtual ~Counter()
    {
        --alive;
    }
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void ** object) override
    {
        *object = nullptr;
        if (iid != ICounter::interfaceId && iid != IID_IUnknown)
        {
            return E_NOINTERFACE;
        }
        *object = static_cast<ICounter *>(this);
        AddRef();
        return S_OK;
    }
    ULONG STDMETHODCALLTYPE AddRef() override
    {
        return ++count;
    }
    ULONG STDMETHODCALLTYPE Release() override
    {
        ULONG const left = --count;
        if (left == 0)
        {
            delete this;
        }
        return left;
    }
    int Next() override
    {
        return ++number;
    }

    std::atomic<ULONG> count{1};
    std::atomic<int> number{0};
};

class SecondCounter : public Counter
{
    int Next() override
    {
        return 100;
    }
};

IUnknown * CreateCounter()
{
    return new Counter;
}

IUnknown * CreateSecond()
{
    return new SecondCounter;
}

constexpr HRESULT fail = static_cast<HRESULT>(0x80004005);

/// Each test has an identifier of its own, since the tables are the process's.
GUID NewId()
{
    static DWORD last = 0x7000;
    return {++last, 0xABCD, 0x1234, {9, 9, 9, 9, 9, 9, 9, 9}};
}

TEST(ObjectServices, CreateObjectsOfRegisteredClasses)
{
    GUID const id = NewId();
    ICounter * counter = nullptr;
    EXPECT_EQ(ObjectServices::CreateClassObject(id, &counter), fail);
    EXPECT_EQ(ObjectServices::RegisterClassW(id, CreateCounter), S_OK);
    int const before = alive;
    ASSERT_EQ(ObjectServices::CreateClassObject(id, &counter), S_OK);
    EXPECT_EQ(alive, before + 1);
    EXPECT_EQ(counter->Next(), 1);
    EXPECT_EQ(counter->Release(), 0u);
    EXPECT_EQ(alive, before);
    EXPECT_EQ(ObjectServices::UnregisterClassW(id), S_OK);
    EXPECT_EQ(ObjectServices::CreateClassObject(id, &counter), fail);
    EXPECT_EQ(counter, nullptr);
}

TEST(ObjectServices, KeepTheLaterOfTwoClasses)
{
    GUID const id = NewId();
    ObjectServices::RegisterClassW(id, CreateCounter);
    ObjectServices::RegisterClassW(id, CreateSecond);
    ICounter * counter = nullptr;
    ASSERT_EQ(ObjectServices::CreateClassObject(id, &counter), S_OK);
    EXPECT_EQ(counter->Next(), 100);
    counter->Release();
    ObjectServices::UnregisterClassW(id);
}

TEST(ObjectServices, UnregisterWhatIsNotThere)
{
    EXPECT_EQ(ObjectServices::UnregisterClassW(NewId()), S_OK);
}

TEST(ObjectServices, ReleaseAnObjectThatLacksTheInterface)
{
    GUID const id = NewId();
    ObjectServices::RegisterClassW(id, CreateCounter);
    int const before = alive;
    IUnknown * object = nullptr;
    EXPECT_EQ(ObjectServices::CreateClassObject(id, &object, otherInterface), E_NOINTERFACE);
    EXPECT_EQ(object, nullptr);
    EXPECT_EQ(alive, before);
    ObjectServices::UnregisterClassW(id);
}

TEST(ObjectServices, HoldAReferenceToAService)
{
    GUID const id = NewId();
    Counter counter;
    EXPECT_EQ(ObjectServices::RegisterService(id, &counter), S_OK);
    EXPECT_EQ(counter.count, 2u);
    ICounter * found = nullptr;
    ASSERT_EQ(ObjectServices::GetService(id, &found), S_OK);
    EXPECT_EQ(found, &counter);
    EXPECT_EQ(counter.count, 3u);
    found->Release();
    EXPECT_EQ(ObjectServices::RevokeService(id, &counter), S_OK);
    EXPECT_EQ(counter.count, 1u);
    EXPECT_EQ(ObjectServices::GetService(id, &found), fail);
    EXPECT_EQ(found, nullptr);
}

TEST(ObjectServices, ReleaseTheServiceThatIsReplaced)
{
    GUID const id = NewId();
    Counter first;
    Counter second;
    ObjectServices::RegisterService(id, &first);
    ObjectServices::RegisterService(id, &second);
    EXPECT_EQ(first.count, 1u);
    EXPECT_EQ(second.count, 2u);
    ObjectServices::RevokeService(id, &second);
}

TEST(ObjectServices, TakeAServiceAwayForNull)
{
    GUID const id = NewId();
    Counter counter;
    ObjectServices::RegisterService(id, &counter);
    EXPECT_EQ(ObjectServices::RegisterService(id, nullptr), S_OK);
    EXPECT_EQ(counter.count, 1u);
    EXPECT_EQ(ObjectServices::RevokeService(id, &counter), fail) << "no entry is left";
    EXPECT_EQ(counter.count, 1u);
}

TEST(ObjectServices, LeaveAnEntryForNullWithoutAService)
{
    GUID const id = NewId();
    Counter counter;
    counter.AddRef();
    EXPECT_EQ(ObjectServices::RegisterService(id, nullptr), S_OK);
    EXPECT_EQ(ObjectServices::RevokeService(id, &counter), S_OK) << "there is an entry";
    EXPECT_EQ(counter.count, 1u);
}

TEST(ObjectServices, RevokeNothingUnderUnknownIdentifiers)
{
    Counter counter;
    EXPECT_EQ(ObjectServices::RevokeService(NewId(), &counter), fail);
    EXPECT_EQ(counter.count, 1u);
}

TEST(ObjectServices, KeepTheEntryWhenNullIsRevoked)
{
    GUID const id = NewId();
    Counter counter;
    ObjectServices::RegisterService(id, &counter);
    EXPECT_EQ(ObjectServices::RevokeService(id, nullptr), S_OK);
    ICounter * found = nullptr;
    EXPECT_EQ(ObjectServices::GetService(id, &found), S_OK);
    found->Release();
    ObjectServices::RevokeService(id, &counter);
}

TEST(ObjectServices, ReleaseWhatTheCallerRevokesWhateverIsRegistered)
{
    GUID const id = NewId();
    Counter registered;
    Counter passed;
    passed.AddRef();
    ObjectServices::RegisterService(id, &registered);
    EXPECT_EQ(ObjectServices::RevokeService(id, &passed), S_OK);
    EXPECT_EQ(passed.count, 1u);
    EXPECT_EQ(registered.count, 2u);
}

TEST(ObjectServices, GiveNothingForAnInterfaceThatAServiceLacks)
{
    GUID const id = NewId();
    Counter counter;
    ObjectServices::RegisterService(id, &counter);
    IUnknown * found = &counter;
    EXPECT_EQ(ObjectServices::GetService(id, &found, otherInterface), static_cast<HRESULT>(0x80004002));
    EXPECT_EQ(found, nullptr);
    ObjectServices::RevokeService(id, &counter);
}

GUID nestedId;

IUnknown * CreateWithAnother()
{
    ICounter * inner = nullptr;
    EXPECT_EQ(ObjectServices::CreateClassObject(nestedId, &inner), S_OK);
    return inner;
}

TEST(ObjectServices, LetACreatorCreateOthers)
{
    GUID const id = NewId();
    nestedId = NewId();
    ObjectServices::RegisterClassW(nestedId, CreateSecond);
    ObjectServices::RegisterClassW(id, CreateWithAnother);
    ICounter * counter = nullptr;
    ASSERT_EQ(ObjectServices::CreateClassObject(id, &counter), S_OK);
    EXPECT_EQ(counter->Next(), 100);
    counter->Release();
    ObjectServices::UnregisterClassW(id);
    ObjectServices::UnregisterClassW(nestedId);
}

TEST(ObjectServices, AnswerForACreatorThatMakesNothing)
{
    GUID const id = NewId();
    ObjectServices::RegisterClassW(id, [] { return static_cast<IUnknown *>(nullptr); });
    IUnknown * object = nullptr;
    EXPECT_EQ(ObjectServices::CreateClassObject(id, &object), fail);
    EXPECT_EQ(object, nullptr);
    ObjectServices::UnregisterClassW(id);
}

TEST(ObjectServices, OrderIdentifiersByTheirBytesInMemory)
{
    static_assert(sizeof(GUID) == 16);
    // All that differ from one in the middle by one byte, or by two that pull in different directions.
    std::vector<GUID> ids;
    for (std::size_t first = 0; first < sizeof(GUID); ++first)
    {
        for (std::size_t second = first; second < sizeof(GUID); ++second)
        {
            for (unsigned char const value : {0x00, 0x7F, 0x80, 0xFF})
            {
                unsigned char bytes[sizeof(GUID)];
                std::memset(bytes, 0x40, sizeof bytes);
                bytes[second] = static_cast<unsigned char>(~value);
                bytes[first] = value;
                GUID id;
                std::memcpy(&id, bytes, sizeof id);
                ids.push_back(id);
            }
        }
    }
    std::size_t wrong = 0;
    for (GUID const & left : ids)
    {
        for (GUID const & right : ids)
        {
            bool const isBefore = std::memcmp(&left, &right, sizeof(GUID)) < 0;
            wrong += kv::detail::GuidLess()(left, right) != isBefore;
        }
    }
    EXPECT_EQ(wrong, 0u);
}

TEST(ObjectServices, ServeSeveralThreads)
{
    GUID const id = NewId();
    Counter counter;
    ObjectServices::RegisterService(id, &counter);
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i)
    {
        threads.emplace_back(
            [&id]
            {
                for (int round = 0; round < 1000; ++round)
                {
                    ICounter * found = nullptr;
                    ObjectServices::GetService(id, &found);
                    found->Next();
                    found->Release();
                    GUID const own = {unsigned(round), 1, 1, {}};
                    ObjectServices::RegisterClassW(own, CreateCounter);
                    ObjectServices::UnregisterClassW(own);
                }
            });
    }
    for (std::thread & thread : threads)
    {
        thread.join();
    }
    EXPECT_EQ(counter.number, 4000);
    EXPECT_EQ(counter.count, 2u);
    ObjectServices::RevokeService(id, &counter);
}

} // namespace
