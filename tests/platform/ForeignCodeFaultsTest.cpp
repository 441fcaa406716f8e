// Faults in code that this compiler did not make, and below it: what the frames in between owe to those above them.

#include <kvcore/platform/Faults.h>

#include <cstdlib>

#include <gtest/gtest.h>

#include <kvcore/platform/win32.h>
#include <support/FaultKinds.h>

namespace
{

using kv::platform::FaultTranslator;
using kv::platform::SetFaultTranslator;

void Throw(unsigned code, EXCEPTION_POINTERS *)
{
    throw code;
}

class ForeignCodeFaults : public ::testing::Test
{
protected:
    ForeignCodeFaults() : before(SetFaultTranslator(Throw)) {}
    ~ForeignCodeFaults() override
    {
        SetFaultTranslator(before);
    }

private:
    FaultTranslator before;
};

/// Many values that live across a call, more than there are registers.
[[gnu::noinline]] unsigned SumAcross(void (*call)(), unsigned seed)
{
    unsigned const a = seed * 3 + 1;
    unsigned const b = seed * 5 + 2;
    unsigned const c = seed * 7 + 3;
    unsigned const d = seed * 11 + 4;
    unsigned const e = seed * 13 + 5;
    unsigned caught = 0;
    try
    {
        call();
    }
    catch (unsigned)
    {
        caught = 1;
    }
    return (a ^ b << 3) + (c ^ d << 5) + e + caught;
}

void DoNothing() {}

TEST_F(ForeignCodeFaults, LeaveTheCatchersValuesAsTheyWere)
{
    for (void (*const call)() : {kv::test::HandBadPointerToTheCLibrary, kv::test::FaultInSortCallback})
    {
        for (unsigned seed = 1; seed < 100; ++seed)
        {
            ASSERT_EQ(SumAcross(call, seed), SumAcross(DoNothing, seed) + 1) << seed;
        }
    }
}

struct Counted
{
    ~Counted()
    {
        ++destroyed;
    }
    static inline int destroyed = 0;
};

int sortDepth;

[[gnu::noinline]] void SortSomething();

int SortDeeper(void const *, void const *)
{
    Counted const counted;
    if (--sortDepth == 0)
    {
        kv::test::ReadThroughNull();
    }
    SortSomething();
    return 0;
}

void SortSomething()
{
    Counted const counted;
    int values[] = {2, 1};
    std::qsort(values, 2, sizeof(int), SortDeeper);
}

TEST_F(ForeignCodeFaults, PassThroughManyCallbacksWithinEachOther)
{
    for (int depth = 1; depth <= 10; ++depth)
    {
        Counted::destroyed = 0;
        sortDepth = depth;
        EXPECT_THROW(SortSomething(), unsigned);
        EXPECT_EQ(Counted::destroyed, 2 * depth);
    }
}

int SortWithOwnHandler(void const *, void const *)
{
    try
    {
        kv::test::HandBadPointerToTheCLibrary();
    }
    catch (unsigned)
    {
        ++sortDepth;
    }
    return 0;
}

TEST_F(ForeignCodeFaults, CaughtWithinACallbackLetItsCallerGoOn)
{
    sortDepth = 0;
    int values[] = {3, 1, 2, 5, 4};
    std::qsort(values, 5, sizeof(int), SortWithOwnHandler);
    EXPECT_GE(sortDepth, 4);
}

BOOL CALLBACK FaultOverCodePage(LPWSTR)
{
    Counted const counted;
    kv::test::WriteThroughNull();
    return TRUE;
}

TEST_F(ForeignCodeFaults, LeaveTheSystemsCallbacks)
{
    Counted::destroyed = 0;
    for (int i = 1; i <= 3; ++i)
    {
        EXPECT_THROW(EnumSystemCodePagesW(FaultOverCodePage, CP_INSTALLED), unsigned);
        EXPECT_EQ(Counted::destroyed, i);
    }
}

int SortAndThrow(void const *, void const *)
{
    Counted const counted;
    try
    {
        kv::test::ReadThroughNull();
    }
    catch (unsigned)
    {
        throw 7;
    }
    return 0;
}

// What the handler throws in place of the fault goes the same way.
TEST_F(ForeignCodeFaults, MayBecomeOtherExceptionsBelowACallback)
{
    Counted::destroyed = 0;
    int values[] = {2, 1};
    EXPECT_THROW(std::qsort(values, 2, sizeof(int), SortAndThrow), int);
    EXPECT_EQ(Counted::destroyed, 1);
}

} // namespace
