#pragma once

// From a signal handler to a throw at the faulting instruction.
//
// An exception that a handler throws cannot be caught everywhere: not where there is no code at all (a call through a
// null pointer), and not twice for floating point, whose state the kernel would have restored. So the handler returns,
// but to a trampoline, which throws in the thread's own state. To the unwinder the trampoline looks like a signal's
// frame over the faulting instruction.

#include <ucontext.h>

#include "FaultRecord.h"

namespace kv::platform
{

/// What the trampoline's frame pointer points to. The unwind table knows the words, which are the registers to unwind
/// from.
struct TrampolineFrame
{
    ULONG_PTR framePointer;
    ULONG_PTR instruction;
    ULONG_PTR stackPointer;
    ULONG_PTR rbx;
    ULONG_PTR r12;
    ULONG_PTR r13;
    ULONG_PTR r14;
    ULONG_PTR r15;
    bool exhausted; // the stack
    Fault fault;
};

/// Makes the thread go on in the trampoline, which throws the fault's exception. `place` is the address below which
/// its frame is put, and its stack is. Safe in a signal handler.
void EnterTrampoline(ucontext_t & context, ULONG_PTR place, Fault const & fault, bool exhausted);

/// Calls the translator, which throws. Defined beside the translators.
[[noreturn]] void ThrowFault(TrampolineFrame & frame);

} // namespace kv::platform
