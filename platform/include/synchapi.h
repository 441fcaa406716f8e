#pragma once

// Critical sections, events, waits and procedure calls queued to a thread.
//
// What fails gives FALSE (or the stated value) with the last error set. Any thread may call anything.

#include <kvcore/platform/include/basetypes.h>

#define INFINITE 0xFFFFFFFFu
#define WAIT_OBJECT_0 0u
#define WAIT_ABANDONED_0 0x80u
#define WAIT_IO_COMPLETION 0xC0u
#define WAIT_TIMEOUT 0x102u
#define WAIT_FAILED 0xFFFFFFFFu
#define MAXIMUM_WAIT_OBJECTS 64u

/// A procedure queued to a thread.
typedef void(WINAPI * PAPCFUNC)(ULONG_PTR argument);

extern "C"
{
    /// Prepare a critical section; the forms with a result always succeed. A thread that finds it taken tries
    /// `spinCount` times before it sleeps.
    KVCORE_API void WINAPI InitializeCriticalSection(CRITICAL_SECTION * section);
    KVCORE_API BOOL WINAPI InitializeCriticalSectionAndSpinCount(CRITICAL_SECTION * section, DWORD spinCount);

    /// Take it, waiting for the thread that holds it; a thread that holds it already holds it once more, and must
    /// leave it as often. TryEnterCriticalSection does not wait: FALSE if another thread holds it.
    KVCORE_API void WINAPI EnterCriticalSection(CRITICAL_SECTION * section);
    KVCORE_API BOOL WINAPI TryEnterCriticalSection(CRITICAL_SECTION * section);
    KVCORE_API void WINAPI LeaveCriticalSection(CRITICAL_SECTION * section);

    /// Ends it. Nobody may hold it.
    KVCORE_API void WINAPI DeleteCriticalSection(CRITICAL_SECTION * section);

    /// A new event; null on failure. A manual one stays set until it is reset, the other kind lets one wait pass and
    /// resets itself. Events have no names: `name` must be null (ERROR_NOT_SUPPORTED).
    KVCORE_API HANDLE WINAPI
    CreateEventW(SECURITY_ATTRIBUTES * security, BOOL manualReset, BOOL initiallySet, LPCWSTR name);
    KVCORE_API BOOL WINAPI SetEvent(HANDLE event);
    KVCORE_API BOOL WINAPI ResetEvent(HANDLE event);

    /// Wait until an object is signalled: an event that is set, a file that no overlapped request is on its way for, a
    /// thread that has ended. WAIT_OBJECT_0, WAIT_TIMEOUT after `milliseconds` (INFINITE: never), or WAIT_FAILED. An
    /// `alertable` wait first looks at the object, and if it is not signalled runs the procedures and completion
    /// routines that are due on this thread, waiting for the first of them: WAIT_IO_COMPLETION after that.
    KVCORE_API DWORD WINAPI WaitForSingleObject(HANDLE object, DWORD milliseconds);
    KVCORE_API DWORD WINAPI WaitForSingleObjectEx(HANDLE object, DWORD milliseconds, BOOL alertable);

    /// The same for 1 to 64 objects: until one is signalled, and the result is its index (the lowest if there are
    /// several), or until all are at the same time; until then none is reset.
    KVCORE_API DWORD WINAPI
    WaitForMultipleObjects(DWORD count, HANDLE const * objects, BOOL waitForAll, DWORD milliseconds);
    KVCORE_API DWORD WINAPI
    WaitForMultipleObjectsEx(DWORD count, HANDLE const * objects, BOOL waitForAll, DWORD milliseconds, BOOL alertable);

    /// Lets time pass. SleepEx gives WAIT_IO_COMPLETION as soon as it has run procedures, else 0; with 0 milliseconds
    /// and nothing due it returns at once and costs next to nothing.
    KVCORE_API void WINAPI Sleep(DWORD milliseconds);
    KVCORE_API DWORD WINAPI SleepEx(DWORD milliseconds, BOOL alertable);

    /// Queues a call to a thread, which makes it at its next alertable wait, after those that are queued already. 0 on
    /// failure: ERROR_GEN_FAILURE if the thread has ended.
    KVCORE_API DWORD WINAPI QueueUserAPC(PAPCFUNC procedure, HANDLE thread, ULONG_PTR argument);

    /// The pseudo handle that names the calling thread; DuplicateHandle makes a real one of it.
    KVCORE_API HANDLE WINAPI GetCurrentThread();
    KVCORE_API DWORD WINAPI GetCurrentThreadId();
}
