#pragma once

// Input and output that goes on beside the thread that asked for it: overlapped requests and their completion.
//
// ReadFile and WriteFile on a handle that was opened with FILE_FLAG_OVERLAPPED, and the functions below, start a
// request and return: the first two with FALSE and ERROR_IO_PENDING, or, on what is no file on a disk, when it is done.
// Buffer and OVERLAPPED must stay until the request is finished. `Internal` is STATUS_PENDING until then; a request of
// ReadFile or WriteFile may be freed as soon as it is not.
//
// Requests on one open file take effect in the order in which they were made, except that reads that follow each other
// go on at the same time and finish in any order. Closing the handle lets them finish. They are cancelled when the
// thread that made them ends; when the process ends, those that have not begun are lost.
//
// There is a bound on the requests that may be outstanding in the process, 131,072: beyond it a request fails with
// ERROR_INVALID_USER_BUFFER, and another try may succeed when some have finished.

#include <kvcore/platform/include/basetypes.h>

#define STATUS_WAIT_0 0x00000000
#define STATUS_PENDING 0x00000103

/// Called on the thread that made the request, in an alertable wait, with the system error (0 for success) and the
/// bytes transferred.
typedef void(WINAPI * LPOVERLAPPED_COMPLETION_ROUTINE)(DWORD error, DWORD transferred, OVERLAPPED * overlapped);

/// Whether a request is finished. What it transferred can be seen then.
inline BOOL HasOverlappedIoCompleted(OVERLAPPED const * overlapped)
{
    return __atomic_load_n(&overlapped->Internal, __ATOMIC_ACQUIRE) != static_cast<ULONG_PTR>(STATUS_PENDING);
}

extern "C"
{
    /// Start a transfer of `count` bytes at the place that `overlapped` names, with a routine that is called when it is
    /// finished. `hEvent` is the caller's own. Give FALSE, and never call the routine, for a request that cannot be
    /// made. A read at or behind the end finishes with ERROR_HANDLE_EOF.
    KVCORE_API BOOL WINAPI ReadFileEx(
        HANDLE file, LPVOID buffer, DWORD count, OVERLAPPED * overlapped, LPOVERLAPPED_COMPLETION_ROUTINE routine);
    KVCORE_API BOOL WINAPI WriteFileEx(
        HANDLE file, LPCVOID buffer, DWORD count, OVERLAPPED * overlapped, LPOVERLAPPED_COMPLETION_ROUTINE routine);

    /// How a request ended. While it is on its way: ERROR_IO_INCOMPLETE, or with `wait`, waits until it is finished.
    /// `transferred` is set in any other case, success or not. An event of the request that resets itself is reset by
    /// the wait.
    KVCORE_API BOOL WINAPI GetOverlappedResult(HANDLE file, OVERLAPPED * overlapped, LPDWORD transferred, BOOL wait);

    /// Cancels the calling thread's requests for the file that have not begun: they finish with
    /// ERROR_OPERATION_ABORTED. Those that have begun finish as they would have. TRUE also if there was none.
    KVCORE_API BOOL WINAPI CancelIo(HANDLE file);

    /// The same for one request, or with null for all of them, of any thread. ERROR_NOT_FOUND if there was none to
    /// cancel.
    KVCORE_API BOOL WINAPI CancelIoEx(HANDLE file, OVERLAPPED * overlapped);
}
