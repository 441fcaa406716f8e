#pragma once

// Work for the system's own threads.

#include <kvcore/platform/include/basetypes.h>
#include <kvcore/platform/include/processthreadsapi.h>

#define WT_EXECUTEDEFAULT 0x00000000u
#define WT_EXECUTEINIOTHREAD 0x00000001u
#define WT_EXECUTELONGFUNCTION 0x00000010u

extern "C"
{
    /// Has `function` called once with `context`, on a thread that is not the caller's; what it returns is dropped, and
    /// what leaves it as an exception ends the process. FALSE on failure: ERROR_INVALID_PARAMETER for no function,
    /// ERROR_NOT_ENOUGH_MEMORY if there is no thread for it and the system makes none.
    ///
    /// With WT_EXECUTEINIOTHREAD the thread waits alertably between its calls and never ends, so that completion
    /// routines of the requests that the function makes are called there. WT_EXECUTELONGFUNCTION says that the function
    /// may wait or run for long: others do not wait behind it. Without it they may, but not for ever: the system adds
    /// threads, up to 512, while nothing moves. Threads block all signals but those of faults.
    KVCORE_API BOOL WINAPI QueueUserWorkItem(LPTHREAD_START_ROUTINE function, LPVOID context, ULONG flags);
}
