// What the stack of a 32-bit thread is made of. Elsewhere every function has a table.
#if defined(_WIN32) && defined(__i386__)

#    include <kvcore/platform/Faults.h>

#    include <cstring>

#    include <gtest/gtest.h>

#    include <kvcore/platform/win32.h>
#    include <support/FaultKinds.h>

// Functions as other compilers make them: without tables for this one's unwinder. They run where they are copied to,
// for they must not lie in a module that has such tables.
extern "C"
{
    extern char const kvTestForeignCode[];
    extern char const kvTestReadFrameless[];
    extern char const kvTestReadWithRegisters[];
    extern char const kvTestCallWithRegisters[];
    extern char const kvTestCallBehindLocals[];
    extern char const kvTestCallMovingArguments[];
    extern char const kvTestCallGuarded[];
    extern char const kvTestForeignCodeEnd[];

    EXCEPTION_DISPOSITION kvTestHandler(EXCEPTION_RECORD * record, void *, CONTEXT *, void *);
}

asm(R"(
    .text
_kvTestForeignCode:
_kvTestReadFrameless:
    movl 4(%esp), %eax
    movl (%eax), %eax
    ret

_kvTestReadWithRegisters:
    pushl %ebp
    movl %esp, %ebp
    pushl %edi
    pushl %esi
    pushl %ebx
    movl $0x11111111, %ebx
    movl $0x22222222, %esi
    movl $0x33333333, %edi
    movl 8(%ebp), %eax
    movl (%eax), %eax
    popl %ebx
    popl %esi
    popl %edi
    popl %ebp
    ret

_kvTestCallWithRegisters:
    pushl %ebp
    movl %esp, %ebp
    pushl %edi
    pushl %esi
    pushl %ebx
    subl $28, %esp
    movl $0x11111111, %ebx
    movl $0x22222222, %esi
    movl $0x33333333, %edi
    call *8(%ebp)
    leal -12(%ebp), %esp
    popl %ebx
    popl %esi
    popl %edi
    popl %ebp
    ret

_kvTestCallBehindLocals:
    movl %edi, %edi
    pushl %ebp
    movl %esp, %ebp
    subl $0x124, %esp
    pushl %ebx
    pushl %esi
    pushl %edi
    movl $0x11111111, %ebx
    movl $0x22222222, %esi
    movl $0x33333333, %edi
    call *8(%ebp)
    popl %edi
    popl %esi
    popl %ebx
    movl %ebp, %esp
    popl %ebp
    ret

_kvTestCallMovingArguments:
    pushl %ebp
    movl %esp, %ebp
    pushl %esi
    movl 8(%ebp), %eax
    pushl %ebx
    xorl %ecx, %ecx
    movl $0x11111111, %ebx
    movl $0x22222222, %esi
    call *%eax
    popl %ebx
    popl %esi
    popl %ebp
    ret

_kvTestCallGuarded:
    pushl %ebp
    movl %esp, %ebp
    pushl $_kvTestHandler
    pushl %fs:0
    movl %esp, %fs:0
    call *8(%ebp)
    popl %fs:0
    addl $4, %esp
    popl %ebp
    ret
_kvTestForeignCodeEnd:
)");

namespace
{

/// One of them, where it can run.
template <class Function>
Function Foreign(char const * code)
{
    static char * const copy = []
    {
        std::size_t const size = static_cast<std::size_t>(kvTestForeignCodeEnd - kvTestForeignCode);
        void * const memory = VirtualAlloc(nullptr, size, MEM_COMMIT | MEM_RESERVE, PAGE_EXECUTE_READWRITE);
        return static_cast<char *>(std::memcpy(memory, kvTestForeignCode, size));
    }();
    return reinterpret_cast<Function>(copy + (code - kvTestForeignCode));
}

using Call = void (*)(void (*)());
using Reader = int (*)(int const *);

int handlersTold;

} // namespace

EXCEPTION_DISPOSITION kvTestHandler(EXCEPTION_RECORD * record, void *, CONTEXT *, void *)
{
    constexpr DWORD unwinding = 2;
    handlersTold += (record->ExceptionFlags & unwinding) != 0;
    return ExceptionContinueSearch;
}

namespace
{

using kv::platform::FaultTranslator;
using kv::platform::SetFaultTranslator;

void Throw(unsigned code, EXCEPTION_POINTERS *)
{
    throw code;
}

void * SystemHandlers()
{
    void * first;
    asm volatile("movl %%fs:0, %0" : "=r"(first));
    return first;
}

class Windows32Faults : public ::testing::Test
{
protected:
    Windows32Faults() : before(SetFaultTranslator(Throw)), handlers(SystemHandlers())
    {
        handlersTold = 0;
    }
    ~Windows32Faults() override
    {
        EXPECT_EQ(SystemHandlers(), handlers);
        SetFaultTranslator(before);
    }

private:
    FaultTranslator before;
    void * handlers;
};

void CallDirectly(void (*call)())
{
    call();
}

/// What a caller keeps in its registers, or what is left of it.
[[gnu::noinline]] unsigned SumAcross(Call frame, void (*call)(), unsigned seed)
{
    unsigned const a = seed * 3 + 1;
    unsigned const b = seed * 5 + 2;
    unsigned const c = seed * 7 + 3;
    unsigned const d = seed * 11 + 4;
    unsigned caught = 0;
    try
    {
        frame(call);
    }
    catch (unsigned)
    {
        caught = 1;
    }
    return (a ^ b << 3) + (c ^ d << 5) + caught;
}

void DoNothing() {}

TEST_F(Windows32Faults, BelowForeignFramesGiveBackWhatTheirCallersKeep)
{
    for (char const * const code :
         {kvTestCallWithRegisters, kvTestCallBehindLocals, kvTestCallMovingArguments, kvTestCallGuarded})
    {
        Call const frame = Foreign<Call>(code);
        for (unsigned seed = 1; seed < 20; ++seed)
        {
            unsigned const whole = SumAcross(CallDirectly, DoNothing, seed);
            ASSERT_EQ(SumAcross(frame, DoNothing, seed), whole);
            ASSERT_EQ(SumAcross(frame, kv::test::ReadThroughNull, seed), whole + 1);
            ASSERT_EQ(SumAcross(frame, kv::test::HandBadPointerToTheCLibrary, seed), whole + 1);
        }
    }
}

[[gnu::noinline]] void ReadFrameless()
{
    Foreign<Reader>(kvTestReadFrameless)(nullptr);
}

[[gnu::noinline]] void ReadWithRegisters()
{
    Foreign<Reader>(kvTestReadWithRegisters)(nullptr);
}

TEST_F(Windows32Faults, InForeignFunctionsGiveBackWhatTheirCallersKeep)
{
    for (void (*const call)() : {ReadFrameless, ReadWithRegisters})
    {
        for (unsigned seed = 1; seed < 20; ++seed)
        {
            ASSERT_EQ(SumAcross(CallDirectly, call, seed), SumAcross(CallDirectly, DoNothing, seed) + 1);
        }
    }
}

void FaultBelowTwoFrames()
{
    Foreign<Call>(kvTestCallBehindLocals)(kv::test::CallNull);
}

TEST_F(Windows32Faults, PassForeignFramesOfSeveralKindsAtOnce)
{
    unsigned const whole = SumAcross(CallDirectly, DoNothing, 5);
    EXPECT_EQ(SumAcross(Foreign<Call>(kvTestCallWithRegisters), FaultBelowTwoFrames, 5), whole + 1);
}

// The system's own handlers lie in a list on the stack. One that is left must not stay in it.
TEST_F(Windows32Faults, TellTheSystemsHandlersThatTheyLeave)
{
    for (int i = 1; i <= 3; ++i)
    {
        EXPECT_THROW(Foreign<Call>(kvTestCallGuarded)(kv::test::ReadThroughNull), unsigned);
        EXPECT_EQ(handlersTold, i);
    }
}

void FaultGuardedTwice()
{
    Foreign<Call>(kvTestCallGuarded)(kv::test::HandBadPointerToTheCLibrary);
}

TEST_F(Windows32Faults, TellEveryHandlerOnTheWay)
{
    EXPECT_THROW(Foreign<Call>(kvTestCallGuarded)(FaultGuardedTwice), unsigned);
    EXPECT_EQ(handlersTold, 2);
}

int caughtBelow;

void FaultAndCatch()
{
    void * const handlers = SystemHandlers();
    try
    {
        kv::test::ReadThroughNull();
    }
    catch (unsigned)
    {
        ++caughtBelow;
    }
    EXPECT_EQ(SystemHandlers(), handlers);
}

TEST_F(Windows32Faults, CaughtBelowAHandlerLeaveItInPlace)
{
    caughtBelow = 0;
    Foreign<Call>(kvTestCallGuarded)(FaultAndCatch);
    EXPECT_EQ(caughtBelow, 1);
    EXPECT_EQ(handlersTold, 0);
}

void DivideInTheOlderUnit()
{
    unsigned short control;
    asm volatile("fnstcw %0" : "=m"(control));
    unsigned short const trapping = static_cast<unsigned short>(control & ~4u);
    asm volatile("fnclex; fldcw %0; fld1; fldz; fdivrp %%st, %%st(1); fwait; fstp %%st(0)" : : "m"(trapping));
}

/// The code of the fault, or 0.
[[gnu::noinline]] unsigned CodeOfDivision()
{
    try
    {
        DivideInTheOlderUnit();
    }
    catch (unsigned code)
    {
        return code;
    }
    return 0;
}

// It keeps a fault until it is told otherwise, and has room for eight numbers.
TEST_F(Windows32Faults, OfTheOlderFloatingPointUnitLeaveItEmpty)
{
    for (int i = 0; i < 50; ++i)
    {
        ASSERT_EQ(CodeOfDivision(), 0xC000008Eu) << i;
        _control87(_CW_DEFAULT, _MCW_EM);
        long double volatile third = 1.0L;
        third = third / 3.0L;
        ASSERT_EQ(third * 3.0L, 1.0L) << i;
    }
}

} // namespace

#endif
