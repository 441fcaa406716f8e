#pragma once

// The stacks on which a thread survives a fault of its own stack.

#include <cstddef>

#include <kvcore/platform/include/basetypes.h>

namespace kv::platform
{

/// A thread's alternate stack for signal handlers, its spare stack for what is thrown when its own has run out, and the
/// reserve at the end of its own: destructors and handlers of the last frames run there, below their frame, after the
/// exception was thrown. The reserve is closed until the stack runs into it, and closed again as soon as it was left.
///
/// The first thread's stack has no end that could be kept back; it grows up to the process's limit. Its reserve is a
/// higher limit for a while, and there is none if the limit may not be raised.
///
/// A plain object of the thread itself: zero is its beginning. What is `noexcept` and not said to be otherwise may be
/// called in a signal handler.
struct FaultStacks
{
    /// Makes the stacks. False if there is no memory for them. Not in a signal handler.
    bool Prepare() noexcept;
    /// Gives all back. Not in a signal handler.
    void Release() noexcept;

    /// Whether an access to `address` by a thread whose stack pointer is `pointer` was a step beyond the stack's end.
    bool IsExhausted(ULONG_PTR address, ULONG_PTR pointer) const noexcept;
    /// Whether too little is left below `pointer` to throw from there. Also if the stack is not the thread's own.
    bool IsShort(ULONG_PTR pointer) const noexcept;
    bool IsOwn(ULONG_PTR pointer) const noexcept;
    bool IsSpare(ULONG_PTR pointer) const noexcept;

    /// Opens the reserve, the stack having ended at `address`.
    void OpenReserve(ULONG_PTR address) noexcept;
    /// Closes it again if the thread has left it.
    void CloseReserve(ULONG_PTR pointer) noexcept;

    ULONG_PTR mapping; // of the two stacks; 0 until they are made
    ULONG_PTR spareLow;
    ULONG_PTR spareHigh;
    std::size_t mappingSize;
    bool isFirstThread;
    bool ownsAlternate;
    bool isOpen;
    ULONG_PTR openedEnd;       // first thread: what was grown into since lies below
    unsigned long openedLimit; // first thread: the limit before
};

/// Takes the address sanitizer's marks, where it is in the program, off frames that an exception unwound: it takes the
/// spare stack for none, and leaves them.
void ForgetFrames(ULONG_PTR low, ULONG_PTR high) noexcept;

} // namespace kv::platform
