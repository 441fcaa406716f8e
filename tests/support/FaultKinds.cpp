#include "FaultKinds.h"

#include <cfenv>
#include <climits>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#ifdef _WIN32
#    include <float.h> // the floating-point traps have another name there
#endif

namespace kv::test
{

namespace
{

// The sanitizers would tell of each of them before the processor does.
#define FAULTS __attribute__((noinline, no_sanitize("address", "undefined", "thread")))

int volatile * volatile nowhere = nullptr;
int volatile zero = 0;
double volatile floatingZero = 0;

struct Virtual
{
    virtual ~Virtual() = default;
    virtual void Touch() = 0;
};
Virtual * volatile missing = nullptr;

FAULTS int CompareBadly(void const * left, void const *)
{
    return *nowhere + *static_cast<int const *>(left);
}

void EnableFloatingPointTraps(bool enable)
{
#ifdef _WIN32
    unsigned old = 0;
    _controlfp_s(&old, enable ? ~static_cast<unsigned>(_EM_ZERODIVIDE) : ~0u, _EM_ZERODIVIDE);
    // The compiler's arithmetic has its own status word.
    unsigned status = __builtin_ia32_stmxcsr();
    __builtin_ia32_ldmxcsr(enable ? status & ~0x200u : status | 0x200u);
#else
    enable ? feenableexcept(FE_DIVBYZERO) : fedisableexcept(FE_DIVBYZERO);
#endif
}

struct Traps
{
    Traps()
    {
        EnableFloatingPointTraps(true);
    }
    ~Traps()
    {
        EnableFloatingPointTraps(false);
    }
};

FAULTS void Divide()
{
    floatingZero = 1.0 / floatingZero;
}

struct Counted
{
    ~Counted()
    {
        ++destroyed;
    }
    long & destroyed;
};

long Recurse(long volatile & constructed, long & destroyed);

// Through a variable, or the compiler sees that it never ends.
long (*volatile recurse)(long volatile & constructed, long & destroyed) = Recurse;

FAULTS long Recurse(long volatile & constructed, long & destroyed)
{
    char volatile bulk[256]; // a larger frame brings the end sooner
    bulk[0] = 1;
    Counted const counted{destroyed};
    constructed = constructed + 1;
    long volatile const below = recurse(constructed, destroyed);
    return below + bulk[0];
}

} // namespace

FAULTS std::size_t LengthInTheCLibrary(char const * text)
{
    return std::strlen(text);
}

FAULTS void ReadThroughNull()
{
    zero = *nowhere;
}

FAULTS void WriteThroughNull()
{
    *nowhere = 1;
}

// An address that the processor cannot even form.
FAULTS void ReadFarAway()
{
    zero = *reinterpret_cast<int volatile *>(
        static_cast<std::uintptr_t>(0x8000000000000000ull >> (64 - 8 * sizeof(void *))));
}

FAULTS void CallNull()
{
    void (*volatile function)() = nullptr;
    function();
    zero = 0; // or the call would be a jump, and this function forgotten
}

FAULTS void CallThroughMissingTable()
{
    Virtual * const object = missing;
    object->Touch();
}

FAULTS void DivideByZero()
{
    int volatile const none = 0;
    int volatile const quotient = 1 / none;
    static_cast<void>(quotient);
}

// The quotient is one more than there are numbers, and the divisor stands in a register, in memory, and behind an
// index.
FAULTS void DivideSmallestByMinusOne()
{
    int volatile const smallest = INT_MIN;
    int volatile const minusOne = -1;
    int volatile const quotient = smallest / minusOne;
    static_cast<void>(quotient);
}

FAULTS void TakeRemainderOfSmallestWord()
{
    std::intptr_t volatile const smallest = INTPTR_MIN;
    std::intptr_t volatile const minusOne = -1;
    std::intptr_t volatile const remainder = smallest % minusOne;
    static_cast<void>(remainder);
}

FAULTS void DivideTooLargeByElement()
{
    static unsigned const divisors[] = {0, 0, 3, 0};
    unsigned quotient = 0;
    unsigned high = 7;
    std::size_t index = 2;
    asm volatile("divl (%[divisors], %[index], 4)"
                 : "+a"(quotient), "+d"(high)
                 : [divisors] "r"(divisors), [index] "r"(index)
                 : "cc", "memory");
}

FAULTS void DivideByZeroElement()
{
    static unsigned const divisors[] = {5, 5, 0, 5};
    unsigned quotient = 0;
    unsigned high = 7;
    std::size_t index = 2;
    asm volatile("divl (%[divisors], %[index], 4)"
                 : "+a"(quotient), "+d"(high)
                 : [divisors] "r"(divisors), [index] "r"(index)
                 : "cc", "memory");
}

FAULTS void DivideTooLargeByHighByte()
{
    unsigned dividend = 0xFFFF;
    asm volatile("divb %%bh" : "+a"(dividend) : "b"(0x0200) : "cc");
}

void DivideByZeroInFloatingPoint()
{
    Traps const traps;
    Divide();
    floatingZero = 0;
}

FAULTS void ExecuteIllegalInstruction()
{
    asm volatile("ud2");
}

FAULTS void ExecutePrivilegedInstruction()
{
    asm volatile("hlt");
}

FAULTS void HitBreakPoint()
{
    asm volatile("int3");
}

void HandBadPointerToTheCLibrary()
{
    char const * volatile bad = reinterpret_cast<char const *>(16);
    zero = static_cast<int>(LengthInTheCLibrary(bad));
}

FAULTS void FaultInSortCallback()
{
    int values[] = {3, 1, 2};
    std::qsort(values, 3, sizeof(int), CompareBadly);
}

FAULTS void ExhaustStack(long & constructed, long & destroyed)
{
    Recurse(constructed, destroyed);
}

FaultKind const faultKinds[] = {
    {"ReadThroughNull", ReadThroughNull, 0xC0000005},
    {"WriteThroughNull", WriteThroughNull, 0xC0000005},
    {"ReadFarAway", ReadFarAway, 0xC0000005},
    {"CallNull", CallNull, 0xC0000005},
    {"CallThroughMissingTable", CallThroughMissingTable, 0xC0000005},
    {"DivideByZero", DivideByZero, 0xC0000094},
    {"DivideSmallestByMinusOne", DivideSmallestByMinusOne, 0xC0000095},
    {"TakeRemainderOfSmallestWord", TakeRemainderOfSmallestWord, 0xC0000095},
    {"DivideTooLargeByElement", DivideTooLargeByElement, 0xC0000095},
    {"DivideByZeroElement", DivideByZeroElement, 0xC0000094},
    {"DivideTooLargeByHighByte", DivideTooLargeByHighByte, 0xC0000095},
    {"DivideByZeroInFloatingPoint", DivideByZeroInFloatingPoint, 0xC000008E},
    {"ExecuteIllegalInstruction", ExecuteIllegalInstruction, 0xC000001D},
    {"ExecutePrivilegedInstruction", ExecutePrivilegedInstruction, 0xC0000096},
    {"HitBreakPoint", HitBreakPoint, 0x80000003},
    {"HandBadPointerToTheCLibrary", HandBadPointerToTheCLibrary, 0xC0000005},
    {"FaultInSortCallback", FaultInSortCallback, 0xC0000005},
};
std::size_t const faultKindCount = sizeof faultKinds / sizeof faultKinds[0];

} // namespace kv::test
