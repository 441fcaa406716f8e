#pragma once

// How a 32-bit thread's frames are followed through code that this compiler has no tables of: the system's libraries,
// and whatever another compiler made. On x86-64 every function has its table, and none of this is needed.

#ifdef __i386__

#    include <kvcore/platform/win32.h>

namespace kv::platform
{

/// What a function must give back to its caller as it found it, and where it goes on.
struct CallerState
{
    DWORD instruction;
    DWORD stack;
    DWORD frame;
    DWORD ebx;
    DWORD esi;
    DWORD edi;
};

/// Whether the compiler left a table of the code at this address.
bool HasUnwindTable(DWORD address);

/// Leads from a fault in foreign code to the next of our own functions on the stack, as if all between had returned.
/// False, and no change, if there is none to be found.
bool LeaveForeignCode(CallerState & state);

/// Tells the unwinder of the foreign functions that stand between our own ones on the calling thread's stack, as they
/// do where the system has called one back. What cannot be understood stays the end of the stack to it.
void DescribeForeignCallers();

/// Takes the handlers of the system's own kind that lie below `stack` off the thread's list, after they were told.
void LeaveSystemHandlers(DWORD stack);

} // namespace kv::platform

#endif
