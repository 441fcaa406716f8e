#pragma once

// Faults to provoke. Each stands in a function of its own, in another translation unit than the tests: a compiler that
// sees the body of some of them takes it for one that cannot throw.

#include <cstddef>

namespace kv::test
{

/// Calls strlen on `text`, as code that is given a bad pointer does.
std::size_t LengthInTheCLibrary(char const * text);

void ReadThroughNull();
void WriteThroughNull();
void ReadFarAway();
void CallNull();
void CallThroughMissingTable();
void DivideByZero();
void DivideSmallestByMinusOne();
void TakeRemainderOfSmallestWord();
void DivideTooLargeByElement();
void DivideByZeroElement();
void DivideTooLargeByHighByte();
void DivideByZeroInFloatingPoint();
void ExecuteIllegalInstruction();
void ExecutePrivilegedInstruction();
void HitBreakPoint();
void HandBadPointerToTheCLibrary();

/// Sorts with a comparison that faults in the C library's callback.
void FaultInSortCallback();

/// Recurses until the stack ends. Each frame holds an object that counts its destruction in `destroyed`, and each has
/// counted its construction in `constructed`.
void ExhaustStack(long & constructed, long & destroyed);

/// A fault and what becomes of it.
struct FaultKind
{
    char const * name;
    void (*provoke)();
    unsigned code;
};

/// All that happen on every target. Not the exhausted stack.
extern FaultKind const faultKinds[];
extern std::size_t const faultKindCount;

} // namespace kv::test
