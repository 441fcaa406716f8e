#pragma once

// Multimedia timers.

#include <kvcore/platform/include/basetypes.h>

typedef UINT MMRESULT;

#define TIMERR_NOERROR 0u
#define TIMERR_NOCANDO 97u

#define TIME_ONESHOT 0x0000u
#define TIME_PERIODIC 0x0001u
#define TIME_CALLBACK_FUNCTION 0x0000u
#define TIME_CALLBACK_EVENT_SET 0x0010u
#define TIME_KILL_SYNCHRONOUS 0x0100u

/// A timer's procedure; `message` and the last two arguments mean nothing.
typedef void(CALLBACK * LPTIMECALLBACK)(UINT id, UINT message, DWORD_PTR user, DWORD_PTR, DWORD_PTR);

extern "C"
{
    /// Has `callback` called after `delay` milliseconds (1 to 1,000,000), once or, with TIME_PERIODIC, again and again;
    /// with TIME_CALLBACK_EVENT_SET `callback` is the handle of an event, which is set instead. All timers of a process
    /// share one thread, which calls one procedure after the other: periods that pass while it is busy are made up for
    /// by one call. `resolution` is not looked at: timers are as exact as the system's clock. Gives the timer's number,
    /// or 0 on failure. Any thread.
    KVCORE_API MMRESULT WINAPI
    timeSetEvent(UINT delay, UINT resolution, LPTIMECALLBACK callback, DWORD_PTR user, UINT flags);

    /// Ends a timer. TIMERR_NOCANDO if it has ended already. A call of its procedure that runs meanwhile goes on; for a
    /// timer with TIME_KILL_SYNCHRONOUS it is waited for, so that none is running or comes after this, except that the
    /// procedure itself may end its timer at any time. Any thread.
    KVCORE_API MMRESULT WINAPI timeKillEvent(UINT id);
}
