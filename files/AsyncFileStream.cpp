#include <kvcore/files/AsyncFileStream.h>

#include <cstdint>
#include <mutex>

#include <kvcore/platform/win32.h>

using kv::detail::RecursiveLock;
using Guard = std::lock_guard<RecursiveLock>;

namespace
{

constexpr FileAttributes asyncAttributes = FileAttributes_Overlapped | FileAttributes_SequentialScan;
constexpr ULONG_PTR pending = 259;

// The system writes the status from a thread of its own.
bool IsPending(OVERLAPPED & request)
{
    return std::atomic_ref<ULONG_PTR>(request.Internal).load(std::memory_order_acquire) == pending;
}

} // namespace

BasicAsyncFileStream::BasicAsyncFileStream() : BasicAsyncFileStream(ownPositionLock) {}

BasicAsyncFileStream::BasicAsyncFileStream(RecursiveLock & ownersLock)
    : positionLock(ownersLock), position(0), lastError(0), hasQueue(false), awaited(nullptr)
{
}

BasicAsyncFileStream::BasicAsyncFileStream(
    String const & newPath, FileAccessMode access, FileShareMode share, FileCreationMode creation,
    FileAttributes attributes)
    : BasicFileStream(newPath, access, share, creation, attributes | asyncAttributes),
      positionLock(ownPositionLock),
      position(0),
      lastError(0),
      hasQueue(false),
      awaited(nullptr)
{
    writesBehind.Attach(GetHandle());
}

BasicAsyncFileStream::~BasicAsyncFileStream() noexcept(false)
{
    if (!IsOpen())
    {
        return;
    }
    lastWrite.Run(
        [this]
        {
            try
            {
                BasicAsyncFileStream::Flush();
            }
            catch (Exception const & failure)
            {
                if (failure.error != ERROR_ACCESS_DENIED) // a file open for reading alone has nothing to flush
                {
                    throw;
                }
            }
        });
}

void BasicAsyncFileStream::Open(
    String const & newPath, FileAccessMode access, FileShareMode share, FileCreationMode creation,
    FileAttributes attributes)
{
    BasicFileStream::Open(newPath, access, share, creation, attributes | asyncAttributes);
    writesBehind.Attach(GetHandle());
}

void BasicAsyncFileStream::Close()
{
    WaitForCompletions();
    WaitForQueue();
    {
        Guard const guard(positionLock);
        position = 0;
    }
    lastError = 0;
    writesBehind.Detach();
    BasicFileStream::Close();
}

__int64 BasicAsyncFileStream::SetPosition(__int64 distance, FileSeekMode mode)
{
    Guard const guard(positionLock);
    switch (mode)
    {
    case FileSeek_Begin:
        position = distance;
        break;
    case FileSeek_Current:
        position =
            static_cast<__int64>(static_cast<unsigned __int64>(position) + static_cast<unsigned __int64>(distance));
        break;
    case FileSeek_End: // Kept: backwards from the end
        position =
            static_cast<__int64>(static_cast<unsigned __int64>(GetSize()) - static_cast<unsigned __int64>(distance));
        break;
    default:
        break;
    }
    return position;
}

// Under positionLock: a request for the position, which moves on.
BasicAsyncFileStream::Request BasicAsyncFileStream::CreateRequest()
{
    Request request(new OVERLAPPED());
    request->Offset = static_cast<DWORD>(static_cast<unsigned __int64>(position));
    request->OffsetHigh = static_cast<DWORD>(static_cast<unsigned __int64>(position) >> 32);
    return request;
}

void BasicAsyncFileStream::MoveOn(DWORD count)
{
    position = static_cast<__int64>(static_cast<unsigned __int64>(position) + count);
}

// The system has refused to take more. What the oldest request of the queue held is free when it has finished.
void BasicAsyncFileStream::WaitForOldest()
{
    Guard const guard(queueLock);
    if (requestQueue.empty())
    {
        SleepEx(1, TRUE); // what is in the way has a completion routine, or is not this stream's
        return;
    }
    DWORD transferred = 0;
    GetOverlappedResult(GetHandle(), requestQueue.front(), &transferred, TRUE);
    Purge();
}

// Issues a transfer without a completion routine. True if it is on its way.
template <typename Operation>
bool BasicAsyncFileStream::Issue(OVERLAPPED * request, Operation operation)
{
    while (!operation(request))
    {
        DWORD const error = GetLastError();
        if (error == ERROR_IO_PENDING)
        {
            return true;
        }
        if (error == ERROR_DISK_FULL) // Kept: no exception here; a blocking write tells by its result
        {
            return false;
        }
        if (error != ERROR_NOT_ENOUGH_MEMORY && error != ERROR_INVALID_USER_BUFFER)
        {
            throw Exception(error);
        }
        WaitForOldest();
    }
    return false;
}

// The request stays out of the queue: what takes finished requests off it would free this one in the middle of its
// wait.
template <typename Operation>
DWORD BasicAsyncFileStream::Transfer(DWORD count, Operation operation)
{
    Guard const guard(positionLock);
    Request const request = CreateRequest();
    MoveOn(count);
    bool const onItsWay = Issue(request.get(), operation);
    DWORD transferred = 0;
    // A wait for the file ends with any of its requests, and says so.
    while (!GetOverlappedResult(GetHandle(), request.get(), &transferred, TRUE) && onItsWay &&
           GetLastError() == ERROR_IO_INCOMPLETE)
    {
    }
    return transferred;
}

DWORD BasicAsyncFileStream::Read(void * data, DWORD count)
{
    return Transfer(count, [&](OVERLAPPED * request) { return ReadFile(GetHandle(), data, count, nullptr, request); });
}

DWORD BasicAsyncFileStream::Write(void const * data, DWORD count)
{
    return Transfer(count, [&](OVERLAPPED * request) { return WriteFile(GetHandle(), data, count, nullptr, request); });
}

void BasicAsyncFileStream::Flush()
{
    WaitForCompletions();
    WaitForQueue();
    BasicFileStream::Flush();
}

// Kept: the first request that is on its way keeps all later ones in the queue, finished or not.
void BasicAsyncFileStream::Purge()
{
    Guard const guard(queueLock);
    while (!requestQueue.empty() && requestQueue.front() != awaited && !IsPending(*requestQueue.front()))
    {
        delete requestQueue.front();
        requestQueue.pop_front();
    }
    hasQueue.store(!requestQueue.empty(), std::memory_order_relaxed);
}

template <typename Operation>
void BasicAsyncFileStream::IssueAndForget(DWORD count, __int64 const * newPosition, Operation operation)
{
    if (hasQueue.load(std::memory_order_relaxed))
    {
        Purge();
    }
    Guard const guard(positionLock);
    if (newPosition != nullptr)
    {
        position = *newPosition;
    }
    Request request = CreateRequest();
    MoveOn(count);
    if (!Issue(request.get(), operation))
    {
        return;
    }
    Guard const queueGuard(queueLock);
    try
    {
        requestQueue.push_back(request.get());
        hasQueue.store(true, std::memory_order_relaxed);
    }
    catch (...)
    {
        request.release(); // the system still writes to it
        throw;
    }
    request.release();
}

void BasicAsyncFileStream::ReadAsync(void * data, DWORD count)
{
    IssueAndForget(
        count, nullptr, [&](OVERLAPPED * request) { return ReadFile(GetHandle(), data, count, nullptr, request); });
}

void BasicAsyncFileStream::ReadAsync(void * data, DWORD count, __int64 newPosition)
{
    IssueAndForget(
        count, &newPosition,
        [&](OVERLAPPED * request) { return ReadFile(GetHandle(), data, count, nullptr, request); });
}

// Nobody is told how it ends, so small pieces can go without a request of their own where the system offers that.
void BasicAsyncFileStream::WriteAndForget(void const * data, DWORD count, __int64 const * newPosition)
{
    {
        Guard const guard(positionLock);
        __int64 const place = newPosition != nullptr ? *newPosition : position;
        if (writesBehind.Write(data, count, static_cast<std::uint64_t>(place)))
        {
            position = place;
            MoveOn(count);
            return;
        }
    }
    IssueAndForget(
        count, newPosition,
        [&](OVERLAPPED * request) { return WriteFile(GetHandle(), data, count, nullptr, request); });
}

void BasicAsyncFileStream::WriteAsync(void const * data, DWORD count)
{
    WriteAndForget(data, count, nullptr);
}

void BasicAsyncFileStream::WriteAsync(void const * data, DWORD count, __int64 newPosition)
{
    WriteAndForget(data, count, &newPosition);
}

// Kept: the failure stays latched, and the next call fails as well.
void BasicAsyncFileStream::CheckLatchedError()
{
    DWORD const error = lastError;
    if (error != 0)
    {
        CancelIo(GetHandle());
        SetLastError(error);
        ThrowException();
    }
}

bool BasicAsyncFileStream::IsOutstanding(OVERLAPPED * request)
{
    Guard const guard(completionLock);
    return completionRequests.count(request) != 0;
}

void BasicAsyncFileStream::Forget(OVERLAPPED * request)
{
    Guard const guard(completionLock);
    completionRequests.erase(request);
}

template <typename Operation>
HASYNC BasicAsyncFileStream::IssueEx(DWORD count, __int64 const * newPosition, Operation operation)
{
    Guard const guard(positionLock);
    if (newPosition != nullptr)
    {
        position = *newPosition;
    }
    CheckLatchedError();
    Request owned = CreateRequest();
    OVERLAPPED * const request = owned.get();
    request->hEvent = this; // the system leaves it alone, and the completion has no other way to its stream
    {
        Guard const completionGuard(completionLock);
        completionRequests.insert(request);
    }
    while (!operation(request, &CompletionEntry))
    {
        DWORD const error = GetLastError();
        if (error != ERROR_NOT_ENOUGH_MEMORY && error != ERROR_INVALID_USER_BUFFER)
        {
            Forget(request);
            throw Exception(error);
        }
        SleepEx(1000, TRUE); // too many are outstanding: let some complete
    }
    owned.release(); // it is its completion's now
    MoveOn(count);
    SleepEx(0, TRUE);
    return IsOutstanding(request) ? request : nullptr;
}

HASYNC BasicAsyncFileStream::ReadAsyncEx(void * data, DWORD count)
{
    return IssueEx(
        count, nullptr,
        [&](OVERLAPPED * request, LPOVERLAPPED_COMPLETION_ROUTINE entry)
        { return ReadFileEx(GetHandle(), data, count, request, entry); });
}

HASYNC BasicAsyncFileStream::ReadAsyncEx(void * data, DWORD count, __int64 newPosition)
{
    return IssueEx(
        count, &newPosition,
        [&](OVERLAPPED * request, LPOVERLAPPED_COMPLETION_ROUTINE entry)
        { return ReadFileEx(GetHandle(), data, count, request, entry); });
}

HASYNC BasicAsyncFileStream::WriteAsyncEx(void const * data, DWORD count)
{
    return IssueEx(
        count, nullptr,
        [&](OVERLAPPED * request, LPOVERLAPPED_COMPLETION_ROUTINE entry)
        { return WriteFileEx(GetHandle(), data, count, request, entry); });
}

HASYNC BasicAsyncFileStream::WriteAsyncEx(void const * data, DWORD count, __int64 newPosition)
{
    return IssueEx(
        count, &newPosition,
        [&](OVERLAPPED * request, LPOVERLAPPED_COMPLETION_ROUTINE entry)
        { return WriteFileEx(GetHandle(), data, count, request, entry); });
}

bool BasicAsyncFileStream::HasCompleted(HASYNC request)
{
    CheckLatchedError();
    SleepEx(0, TRUE);
    return !IsOutstanding(static_cast<OVERLAPPED *>(request));
}

void BasicAsyncFileStream::Wait(HASYNC request)
{
    while (!HasCompleted(request))
    {
        SleepEx(1000, TRUE);
    }
}

void BasicAsyncFileStream::WaitForCompletions()
{
    auto const outstanding = [this]
    {
        Guard const guard(completionLock);
        return !completionRequests.empty();
    };
    while (outstanding())
    {
        SleepEx(1000, TRUE);
    }
}

void BasicAsyncFileStream::WaitForQueue()
{
    Guard const waitGuard(waitLock);
    for (;;)
    {
        {
            Guard const guard(queueLock);
            if (requestQueue.empty())
            {
                hasQueue.store(false, std::memory_order_relaxed);
                break;
            }
            awaited = requestQueue.front();
        }
        DWORD transferred = 0;
        GetOverlappedResult(GetHandle(), awaited, &transferred, TRUE);
        Guard const guard(queueLock);
        if (!IsPending(*awaited))
        {
            delete awaited;
            requestQueue.pop_front();
        }
        awaited = nullptr;
    }
    writesBehind.Await();
}

void BasicAsyncFileStream::CompletionEntry(DWORD errorCode, DWORD bytes, OVERLAPPED * request)
{
    static_cast<BasicAsyncFileStream *>(request->hEvent)->CompletionRoutine(errorCode, bytes, request);
}

// Out of the set before it is freed: a thread that issues meanwhile may get the same address.
void BasicAsyncFileStream::CompletionRoutine(DWORD errorCode, DWORD, OVERLAPPED * request)
{
    lastError = errorCode; // Kept: also a success, over an earlier failure
    Forget(request);
    delete request;
}

ManagedAsyncFileStream::ManagedAsyncFileStream() = default;

ManagedAsyncFileStream::ManagedAsyncFileStream(
    String const & newPath, FileAccessMode access, FileShareMode share, FileCreationMode creation,
    FileAttributes attributes)
    : BasicAsyncFileStream(newPath, access, share, creation, attributes)
{
}

ManagedAsyncFileStream::~ManagedAsyncFileStream() noexcept(false) {}

HASYNC ManagedAsyncFileStream::WriteAsyncEx(IUnknown * owner, void const * data, DWORD count)
{
    Guard const guard(ownerLock);
    HASYNC const request = WriteAsyncEx(data, count);
    owner->AddRef(); // Kept: also for null, whose reference nobody releases
    owners[request] = owner;
    return request;
}

HASYNC ManagedAsyncFileStream::WriteAsyncEx(IUnknown * owner, void const * data, DWORD count, __int64 newPosition)
{
    Guard const guard(ownerLock);
    HASYNC const request = WriteAsyncEx(data, count, newPosition);
    if (request != nullptr)
    {
        owner->AddRef();
        owners[request] = owner;
    }
    return request;
}

void ManagedAsyncFileStream::CompletionRoutine(DWORD errorCode, DWORD bytes, OVERLAPPED * request)
{
    {
        Guard const guard(ownerLock);
        auto const entry = owners.find(request);
        if (entry != owners.end())
        {
            entry->second->Release();
            owners.erase(entry);
        }
    }
    BasicAsyncFileStream::CompletionRoutine(errorCode, bytes, request);
}
