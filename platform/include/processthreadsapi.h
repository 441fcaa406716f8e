#pragma once

// Threads: their start, end and priority, and storage that each of them has for itself.
//
// What fails gives FALSE (or the stated value) with the last error set. Any thread may call anything. A thread's handle
// is closed with CloseHandle, which does not touch the thread; the wait functions end when the thread has ended.

#include <kvcore/platform/include/basetypes.h>

#define CREATE_SUSPENDED 0x00000004u
#define STACK_SIZE_PARAM_IS_A_RESERVATION 0x00010000u

/// What a thread's exit code is while it has none.
#define STILL_ACTIVE 259u

#define THREAD_PRIORITY_IDLE (-15)
#define THREAD_PRIORITY_LOWEST (-2)
#define THREAD_PRIORITY_BELOW_NORMAL (-1)
#define THREAD_PRIORITY_NORMAL 0
#define THREAD_PRIORITY_ABOVE_NORMAL 1
#define THREAD_PRIORITY_HIGHEST 2
#define THREAD_PRIORITY_TIME_CRITICAL 15
#define THREAD_PRIORITY_ERROR_RETURN 0x7FFFFFFF

#define TLS_MINIMUM_AVAILABLE 64u
#define TLS_OUT_OF_INDEXES 0xFFFFFFFFu

/// A thread's procedure; what it returns is the thread's exit code.
typedef DWORD(WINAPI * LPTHREAD_START_ROUTINE)(LPVOID argument);

extern "C"
{
    /// Starts a thread; null on failure, ERROR_NOT_ENOUGH_MEMORY if the system makes none. A `stackSize` of 0 is the
    /// system's own. With CREATE_SUSPENDED the thread does nothing until it is resumed. `id` receives its number, if
    /// not null; numbers are used again. `security` is not looked at. What leaves `procedure` as an exception ends the
    /// process.
    KVCORE_API HANDLE WINAPI CreateThread(
        LPSECURITY_ATTRIBUTES security, SIZE_T stackSize, LPTHREAD_START_ROUTINE procedure, LPVOID argument,
        DWORD flags, LPDWORD id);

    /// The same in the manner of the run-time library: 0 on failure, with errno set (EINVAL for no procedure, EAGAIN
    /// if the system makes no thread).
    KVCORE_API std::uintptr_t _beginthreadex(
        void * security, unsigned stackSize, unsigned(WINAPI * procedure)(void *), void * argument, unsigned flags,
        unsigned * id);

    /// End the calling thread with an exit code. The objects of its frames are destroyed on the way, unlike on Windows.
    [[noreturn]] KVCORE_API void WINAPI ExitThread(DWORD exitCode);
    [[noreturn]] KVCORE_API void _endthreadex(unsigned exitCode);

    /// Lets a thread run that was created suspended. The result is how often it was suspended: 1 if it starts now, 0 if
    /// it runs already; 0xFFFFFFFF on failure.
    KVCORE_API DWORD WINAPI ResumeThread(HANDLE thread);

    /// A thread's priority, one of the THREAD_PRIORITY values (else ERROR_INVALID_PARAMETER, or
    /// THREAD_PRIORITY_ERROR_RETURN). Every thread starts with the normal one. It becomes a nice value about that of
    /// the process, as far as the system lets this user have it: few users may go below, or back from above.
    KVCORE_API BOOL WINAPI SetThreadPriority(HANDLE thread, int priority);
    KVCORE_API int WINAPI GetThreadPriority(HANDLE thread);

    /// The exit code, or STILL_ACTIVE.
    KVCORE_API BOOL WINAPI GetExitCodeThread(HANDLE thread, LPDWORD exitCode);

    /// The thread's number, or 0.
    KVCORE_API DWORD WINAPI GetThreadId(HANDLE thread);

    /// A slot that holds one pointer for each thread, null at first in all of them, those to come included; of 1088 in
    /// a process. TLS_OUT_OF_INDEXES with ERROR_NO_MORE_ITEMS if there are no more.
    KVCORE_API DWORD WINAPI TlsAlloc();

    /// Gives a slot back. What its values point to is the caller's to release, before this or at the threads' ends.
    KVCORE_API BOOL WINAPI TlsFree(DWORD slot);

    /// The calling thread's value; ERROR_INVALID_PARAMETER for a number that is no slot's. Kept: reading clears the
    /// last error, so that a null value can be told from a failure, and a slot that is not in use reads as null and can
    /// be written.
    KVCORE_API LPVOID WINAPI TlsGetValue(DWORD slot);
    KVCORE_API BOOL WINAPI TlsSetValue(DWORD slot, LPVOID value);
}
