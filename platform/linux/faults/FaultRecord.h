#pragma once

// A signal's account of a fault, in Win32's terms.

#include <csignal>
#include <ucontext.h>

#include <kvcore/platform/include/faults.h>

namespace kv::platform
{

/// A fault as its thread left it.
struct Fault
{
    EXCEPTION_RECORD record;
    CONTEXT context;
};

/// The stack pointer and the instruction pointer at the signal.
ULONG_PTR StackPointerOf(ucontext_t const & context) noexcept;
ULONG_PTR InstructionOf(ucontext_t const & context) noexcept;

/// Fills in the record but for the exhausted stack, which the caller knows better. Safe in a signal handler.
void DescribeFault(int signal, siginfo_t const & information, ucontext_t const & context, Fault & fault) noexcept;

/// Takes the floating-point exceptions out of the state that the thread goes on with. The old coprocessor would raise
/// them again at its next instruction.
void ClearFloatingPointExceptions(ucontext_t & context) noexcept;

} // namespace kv::platform
