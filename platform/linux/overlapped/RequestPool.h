#pragma once

// The overlapped requests of the process, and the threads that carry them out.

#include <memory>

#include <kvcore/platform/include/overlapped.h>
#include <kvcore/platform/linux/files/FileObject.h>
#include <kvcore/platform/linux/sync/Events.h>
#include <kvcore/platform/linux/sync/Thread.h>

namespace kv::platform
{

/// What is known of one request beside its OVERLAPPED, which is not touched again once the caller can see the end.
///
/// Or a block of writes behind, which is nobody's request: it has no thread and no OVERLAPPED. It grows as long as it
/// is the last of its file.
struct TransferRequest : ProcedureCall
{
    /// Null as soon as the request is finished.
    Ref<File> file;
    /// The thread that made it, which waits for its requests before it ends; null in a record that is nobody's.
    Thread * thread = nullptr;
    Ref<Event> event;
    OVERLAPPED * overlapped = nullptr;
    LPOVERLAPPED_COMPLETION_ROUTINE routine = nullptr;
    char * buffer = nullptr;
    /// Whether it is a block of writes behind, and the memory that it has then.
    bool isBehind = false;
    std::unique_ptr<char[]> block;
    std::uint64_t place = 0;
    DWORD count = 0;
    bool writing = false;
    DWORD error = 0;
    DWORD done = 0;
    TransferRequest * nextInFile = nullptr;
    // In the first of those that go together: the last of them, how many they are and of how many bytes.
    TransferRequest * runLast = nullptr;
    unsigned runLength = 0;
    std::size_t runBytes = 0;
    // Those of its thread that have not begun.
    TransferRequest * nextInThread = nullptr;
    TransferRequest * previousInThread = nullptr;
};

/// A transfer that is to be started; the arguments have been checked.
struct Transfer
{
    void * buffer;
    DWORD count;
    std::uint64_t place;
    bool writing;
};

/// Starts a transfer. ERROR_IO_PENDING, or why it cannot be. With `withRoutine`, a completion routine ends it, which
/// may be null, and `hEvent` is not looked at.
DWORD StartRequest(
    File & file, Transfer const & transfer, OVERLAPPED & overlapped, bool withRoutine,
    LPOVERLAPPED_COMPLETION_ROUTINE routine) noexcept;

/// Cancels requests for a file that have not begun: those of one thread, if one is given, and of one OVERLAPPED, if one
/// is given. How many there were.
unsigned CancelRequests(File & file, Thread const * thread, OVERLAPPED const * overlapped) noexcept;

/// Cancels a thread's requests that have not begun, and waits for those that have. Their routines are not called.
void FinishRequestsOf(Thread & thread) noexcept;

/// Waits until a request is finished.
void WaitForRequest(OVERLAPPED const & overlapped) noexcept;

/// For the end of the process: lets no other thread begin requests for files on disks any more, and waits until those
/// that there are have finished, as long as any do. For a signal's handler, too.
void FinishAllRequests() noexcept;

/// Has the process do that when it ends, from now on: by exit or quick_exit, by a fault or an abort, or by a signal
/// that asks it to end and has the default action now.
void WatchForEnd() noexcept;

/// Notes that the calling process is the one whose requests these are: a child that shares its memory must not finish
/// them.
void NoteProcess() noexcept;

/// The system error for the status of a finished request.
DWORD ErrorOfStatus(ULONG_PTR status) noexcept;

/// For tests: how many requests may be outstanding (0: as many as always), and whether the workers begin any.
KVCORE_API void SetRequestLimit(unsigned limit) noexcept;
KVCORE_API void HoldRequests(bool hold) noexcept;

} // namespace kv::platform
