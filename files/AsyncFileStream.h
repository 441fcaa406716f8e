#pragma once

#include <atomic>
#include <deque>
#include <map>
#include <memory>
#include <set>

#include <kvcore/files/FileStreams.h>
#include <kvcore/files/RecursiveLock.h>
#include <kvcore/platform/WriteBehind.h>
#include <kvcore/platform/export.h>
#include <kvcore/platform/types.h>
#include <kvcore/platform/unknown.h>
#include <kvcore/streams/LastWrite.h>

/// A request of an asynchronous stream that was issued with a completion routine: valid until that has run. Null is a
/// request that is finished already. The number of a finished request may come again as that of a later one.
typedef void * HASYNC;

/// A file whose transfers go on beside the threads that ask for them. The position is the stream's own: each request
/// takes its place from it and moves it on by the bytes asked for, whatever arrives later.
///
/// There are three ways to ask. Read and Write wait for the end. ReadAsync and WriteAsync return at once; whether the
/// transfer went well is not told. ReadAsyncEx and WriteAsyncEx return at once, too, and give a handle to wait for.
/// In the latter two the caller keeps the memory alive until the request is finished: until Close or Flush returns,
/// or until HasCompleted says so.
///
/// Requests with a handle are completed on the thread that issued them, inside the alertable waits of this class (Wait,
/// HasCompleted, Flush, Close, the issuing of further ones) or of the program itself. So Wait, Flush and Close must be
/// called by the thread that issued what they wait for.
///
/// A completion that failed is latched: ReadAsyncEx, WriteAsyncEx and HasCompleted cancel the requests on their way and
/// throw its code, each time, until Close or the next completion. Kept: that next completion overwrites it, also if it
/// went well. It is the latest completion's result, not the first error. Everything else does not look at it.
///
/// There is no limit of memory or of requests on their way, but for the system's refusal, after which the issuing waits
/// for requests to finish and tries again.
///
/// Threads: several may issue, one after the other. Requests finish in any order. Open, Close and destruction are for
/// one thread, while no other is in a call.
class KVCORE_API BasicAsyncFileStream : public BasicFileStream
{
public:
    using HASYNC = ::HASYNC;

    /// Closed.
    BasicAsyncFileStream();
    /// Closed. Requests are issued under a lock of the owner's, which must outlive the stream, in place of one of its
    /// own: for an owner that holds that anyway.
    explicit BasicAsyncFileStream(kv::detail::RecursiveLock & ownersLock);
    /// Opens the file as Open does.
    BasicAsyncFileStream(
        String const & newPath, FileAccessMode access, FileShareMode share, FileCreationMode creation,
        FileAttributes attributes);
    BasicAsyncFileStream(BasicAsyncFileStream const &) = delete;
    BasicAsyncFileStream & operator=(BasicAsyncFileStream const &) = delete;
    /// Flushes, if the stream is open. Throws what that throws, unless an exception is on its way already; but for code
    /// 5, which is what a file gives that was opened for reading alone.
    ~BasicAsyncFileStream() noexcept(false) override;

    using BasicFileStream::Read;
    using BasicFileStream::Write;

    /// As the base's, with the flags for overlapped transfers and sequential access added.
    void Open(
        String const & newPath, FileAccessMode access, FileShareMode share, FileCreationMode creation,
        FileAttributes attributes) override;
    /// Waits for all requests, sets the position to 0, forgets a latched failure, and closes.
    void Close() override;
    /// Sets the position. Kept: with FileSeek_End a positive distance counts backwards from the end, unlike in the base
    /// class. A mode that is none of the three changes nothing. Nothing is checked.
    __int64 SetPosition(__int64 distance, FileSeekMode mode) override;
    /// Read and write, and wait for the end. The position moves by `count`, whatever is transferred; the bytes
    /// transferred are the result. A read at or behind the end of the file gives 0 or throws
    /// code 38: as the system finds out later or at once. Other threads' requests wait
    /// meanwhile. A failure in the middle of a transfer, and a full disk, show in the result alone.
    DWORD Read(void * data, DWORD count) override;
    DWORD Write(void const * data, DWORD count) override;
    /// Waits for all requests, then flushes to the disk. A latched failure is not looked at.
    void Flush() override;

    /// Issue a transfer, at the position or at a new one. Throw what the system answers at once, except that a full
    /// disk is silent.
    void ReadAsync(void * data, DWORD count);
    void ReadAsync(void * data, DWORD count, __int64 newPosition);
    void WriteAsync(void const * data, DWORD count);
    void WriteAsync(void const * data, DWORD count, __int64 newPosition);

    /// Issue a transfer, at the position or at a new one. Null if it has finished already.
    HASYNC ReadAsyncEx(void * data, DWORD count);
    HASYNC ReadAsyncEx(void * data, DWORD count, __int64 newPosition);
    HASYNC WriteAsyncEx(void const * data, DWORD count);
    HASYNC WriteAsyncEx(void const * data, DWORD count, __int64 newPosition);

    /// Whether a request is finished; lets completions run that are due.
    bool HasCompleted(HASYNC request);
    /// Returns when a request is finished.
    void Wait(HASYNC request);

protected:
    /// What happens when a request with a handle is finished, on the thread that issued it. Overriding classes call
    /// this one at last: it frees the request.
    virtual void CompletionRoutine(DWORD errorCode, DWORD bytes, OVERLAPPED * request);

private:
    using Request = std::unique_ptr<OVERLAPPED>;

    static void CALLBACK CompletionEntry(DWORD errorCode, DWORD bytes, OVERLAPPED * request);

    Request CreateRequest();
    void MoveOn(DWORD count);
    void WaitForOldest();
    template <typename Operation>
    bool Issue(OVERLAPPED * request, Operation operation);
    template <typename Operation>
    DWORD Transfer(DWORD count, Operation operation);
    void Purge();
    template <typename Operation>
    void IssueAndForget(DWORD count, __int64 const * newPosition, Operation operation);
    void WriteAndForget(void const * data, DWORD count, __int64 const * newPosition);
    void CheckLatchedError();
    bool IsOutstanding(OVERLAPPED * request);
    void Forget(OVERLAPPED * request);
    template <typename Operation>
    HASYNC IssueEx(DWORD count, __int64 const * newPosition, Operation operation);
    void WaitForCompletions();
    void WaitForQueue();

    // Taken in this order; completionLock and queueLock are never held together.
    kv::detail::RecursiveLock waitLock; // held while the queue is waited for
    kv::detail::RecursiveLock ownPositionLock;
    kv::detail::RecursiveLock & positionLock; // held across the whole issuing of a request
    kv::detail::RecursiveLock completionLock;
    kv::detail::RecursiveLock queueLock;

    __int64 position;
    std::atomic<DWORD> lastError;              // of the latest completion
    std::set<OVERLAPPED *> completionRequests; // owned: with a completion routine
    std::deque<OVERLAPPED *> requestQueue;     // owned: without one, and pending when they were issued
    std::atomic<bool> hasQueue;                // whether there is something in it, for those who look without the lock
    OVERLAPPED * awaited;                      // the head of the queue while somebody waits for it without the lock
    kv::detail::LastWrite lastWrite;
    kv::platform::WritesBehind writesBehind;
};

/// An asynchronous stream that keeps the owner of the written memory alive until the request is finished.
///
/// Threads: as the base class; but a thread that issues by the base's operations while another one issues by those of
/// this class may meet it in a deadlock, since a completion takes the lock of the owners.
class KVCORE_API ManagedAsyncFileStream : public BasicAsyncFileStream
{
public:
    ManagedAsyncFileStream();
    ManagedAsyncFileStream(
        String const & newPath, FileAccessMode access, FileShareMode share, FileCreationMode creation,
        FileAttributes attributes);
    /// Kept: drops the references that are still held without releasing them. Close the stream first to get them back.
    ~ManagedAsyncFileStream() noexcept(false) override;

    using BasicAsyncFileStream::WriteAsyncEx;

    /// Kept: takes a reference of `owner` also if the write has finished already (null): then no completion will
    /// release it, and the next such write forgets it.
    HASYNC WriteAsyncEx(IUnknown * owner, void const * data, DWORD count);
    /// Takes a reference of `owner` until the write is finished; none if it has finished already (null).
    HASYNC WriteAsyncEx(IUnknown * owner, void const * data, DWORD count, __int64 newPosition);

protected:
    void CompletionRoutine(DWORD errorCode, DWORD bytes, OVERLAPPED * request) override;

private:
    kv::detail::RecursiveLock ownerLock; // taken before the base's
    std::map<HASYNC, IUnknown *> owners; // one reference each
};
