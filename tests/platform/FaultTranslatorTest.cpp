#include <kvcore/platform/Faults.h>

#include <atomic>
#include <csignal>
#include <cstdlib>
#include <thread>

#include <gtest/gtest.h>

#include <support/FaultKinds.h>
#include <support/PlatformDefault.h>

namespace
{

using kv::platform::FaultTranslator;
using kv::platform::SetFaultTranslator;
using kv::test::FaultKind;

struct Fault
{
    unsigned code;
    void * address;
};

void Throw(unsigned code, EXCEPTION_POINTERS * fault)
{
    throw Fault{code, fault->ExceptionRecord->ExceptionAddress};
}

class Scope
{
public:
    explicit Scope(FaultTranslator translator = Throw) : before(SetFaultTranslator(translator)) {}
    ~Scope()
    {
        SetFaultTranslator(before);
    }
    Scope(Scope const &) = delete;
    Scope & operator=(Scope const &) = delete;

private:
    FaultTranslator before;
};

struct Counted
{
    explicit Counted(int & count) : destroyed(count) {}
    ~Counted()
    {
        ++destroyed;
    }
    int & destroyed;
};

[[gnu::noinline]] void ProvokeUnderAnObject(void (*provoke)(), int & destroyed)
{
    Counted const counted(destroyed);
    provoke();
}

/// The code of the fault, or 0 if there was none.
unsigned CodeOf(void (*provoke)())
{
    try
    {
        provoke();
    }
    catch (Fault const & fault)
    {
        return fault.code;
    }
    return 0;
}

class FaultOfKind : public ::testing::TestWithParam<FaultKind>
{
};

TEST_P(FaultOfKind, IsCaughtAgainAndAgainWithDestructorsRun)
{
    Scope const scope;
    int destroyed = 0;
    int caught = 0;
    for (int i = 0; i < 200; ++i)
    {
        try
        {
            ProvokeUnderAnObject(GetParam().provoke, destroyed);
        }
        catch (Fault const & fault)
        {
            caught += fault.code == GetParam().code;
        }
    }
    EXPECT_EQ(caught, 200);
    EXPECT_EQ(destroyed, 200);
}

TEST_P(FaultOfKind, IsCaughtOnSeveralThreadsAtOnce)
{
    std::atomic<int> caught = 0;
    auto const work = [&caught]
    {
        Scope const scope;
        for (int i = 0; i < 50; ++i)
        {
            caught += CodeOf(GetParam().provoke) == GetParam().code;
        }
    };
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i)
    {
        threads.emplace_back(work);
    }
    for (std::thread & thread : threads)
    {
        thread.join();
    }
    EXPECT_EQ(caught, 200);
}

TEST_P(FaultOfKind, IsRethrownAndCaughtByAllTypes)
{
    Scope const scope;
    int outer = 0;
    try
    {
        try
        {
            GetParam().provoke();
        }
        catch (...)
        {
            throw;
        }
    }
    catch (...)
    {
        ++outer;
    }
    EXPECT_EQ(outer, 1);
}

TEST_P(FaultOfKind, InsideAHandlerIsCaughtToo)
{
    Scope const scope;
    unsigned second = 0;
    try
    {
        GetParam().provoke();
    }
    catch (Fault const &)
    {
        second = CodeOf(GetParam().provoke);
    }
    EXPECT_EQ(second, GetParam().code);
}

INSTANTIATE_TEST_SUITE_P(
    FaultTranslator, FaultOfKind,
    ::testing::ValuesIn(kv::test::faultKinds, kv::test::faultKinds + kv::test::faultKindCount),
    [](auto const & information) { return information.param.name; });

TEST(FaultTranslator, IsNoneOnAFreshThread)
{
    FaultTranslator first = Throw;
    std::thread([&first] { first = SetFaultTranslator(nullptr); }).join();
    EXPECT_EQ(first, nullptr);
}

TEST(FaultTranslator, SettingReturnsTheOneBefore)
{
    FaultTranslator const other = [](unsigned, EXCEPTION_POINTERS *) { throw 1; };
    FaultTranslator const before = SetFaultTranslator(Throw);
    EXPECT_EQ(SetFaultTranslator(other), FaultTranslator(Throw));
    EXPECT_EQ(SetFaultTranslator(before), other);
    EXPECT_EQ(SetFaultTranslator(before), before);
}

TEST(FaultTranslator, TheInnermostScopeTranslates)
{
    Scope const outer;
    int thrown = 0;
    {
        Scope const inner([](unsigned, EXCEPTION_POINTERS *) { throw 5; });
        try
        {
            kv::test::ReadThroughNull();
        }
        catch (int value)
        {
            thrown = value;
        }
    }
    EXPECT_EQ(thrown, 5);
    EXPECT_EQ(CodeOf(kv::test::ReadThroughNull), 0xC0000005u);
}

TEST(FaultTranslator, TellsWhatWasAccessedAndHow)
{
    static EXCEPTION_RECORD record;
    Scope const scope(
        [](unsigned, EXCEPTION_POINTERS * fault)
        {
            record = *fault->ExceptionRecord;
            throw 1;
        });
    EXPECT_THROW(kv::test::WriteThroughNull(), int);
    EXPECT_EQ(record.NumberParameters, 2u);
    EXPECT_EQ(record.ExceptionInformation[0], 1u);
    EXPECT_EQ(record.ExceptionInformation[1], 0u);
    EXPECT_THROW(kv::test::ReadThroughNull(), int);
    EXPECT_EQ(record.ExceptionInformation[0], 0u);
}

TEST(FaultTranslator, TheAddressLiesInTheFaultingFunction)
{
    Scope const scope;
    void * address = nullptr;
    try
    {
        kv::test::HitBreakPoint();
    }
    catch (Fault const & fault)
    {
        address = fault.address;
    }
    char const * const function = reinterpret_cast<char const *>(&kv::test::HitBreakPoint);
    EXPECT_GE(static_cast<char const *>(address), function);
    EXPECT_LT(static_cast<char const *>(address), function + 256);
    EXPECT_EQ(*static_cast<unsigned char const *>(address), 0xCC);
}

// What a translator calls may fail, and it may live with it.
TEST(FaultTranslator, AFaultInsideATranslatorIsTranslated)
{
    static int runs;
    runs = 0;
    Scope const scope(
        [](unsigned code, EXCEPTION_POINTERS *)
        {
            if (++runs == 2)
            {
                throw Fault{code, nullptr};
            }
            unsigned inner = CodeOf(kv::test::DivideByZero);
            throw Fault{inner + code, nullptr};
        });
    EXPECT_EQ(CodeOf(kv::test::ReadThroughNull), 0xC0000005u + 0xC0000094u);
    EXPECT_EQ(runs, 2);
}

using FaultTranslatorDeathTest = ::testing::Test;

TEST(FaultTranslatorDeathTest, OutsideAScopeThePlatformsDefaultHolds)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    auto const leaveAndFault = []
    {
        kv::test::HaveThePlatformsDefault();
        {
            Scope const scope;
        }
        kv::test::ReadThroughNull();
    };
    EXPECT_EXIT(leaveAndFault(), kv::test::EndedByBadPointer, "");
}

TEST(FaultTranslatorDeathTest, AThreadWithoutATranslatorHasThePlatformsDefault)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    auto const faultElsewhere = []
    {
        kv::test::HaveThePlatformsDefault();
        Scope const scope;
        std::thread(kv::test::ReadThroughNull).join();
    };
    EXPECT_EXIT(faultElsewhere(), kv::test::EndedByBadPointer, "");
}

TEST(FaultTranslatorDeathTest, AFaultInEveryTranslatorEndsTheProcess)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    auto const faultForEver = []
    {
        kv::test::HaveThePlatformsDefault();
        Scope const scope([](unsigned, EXCEPTION_POINTERS *) { kv::test::ReadThroughNull(); });
        kv::test::ReadThroughNull();
    };
    EXPECT_EXIT(faultForEver(), kv::test::EndedByBadPointer, "");
}

#ifndef _WIN32 // where this runs, the system ends a process that has used up its stack

TEST(FaultTranslator, AnExhaustedStackIsCaughtAgainAndAgainWithDestructorsRun)
{
    Scope const scope;
    for (int i = 0; i < 5; ++i)
    {
        long constructed = 0;
        long destroyed = 0;
        unsigned code = 0;
        try
        {
            kv::test::ExhaustStack(constructed, destroyed);
        }
        catch (Fault const & fault)
        {
            code = fault.code;
        }
        EXPECT_EQ(code, 0xC00000FDu);
        EXPECT_GT(constructed, 1000);
        EXPECT_EQ(destroyed, constructed);
    }
}

TEST(FaultTranslator, ExhaustedStacksOfSeveralThreadsAreCaught)
{
    std::atomic<int> caught = 0;
    auto const work = [&caught]
    {
        for (int i = 0; i < 3; ++i)
        {
            Scope const scope;
            long constructed = 0;
            long destroyed = 0;
            try
            {
                kv::test::ExhaustStack(constructed, destroyed);
            }
            catch (Fault const & fault)
            {
                caught += fault.code == 0xC00000FDu && constructed == destroyed;
            }
        }
    };
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i)
    {
        threads.emplace_back(work);
    }
    for (std::thread & thread : threads)
    {
        thread.join();
    }
    EXPECT_EQ(caught, 12);
}

#endif

} // namespace
