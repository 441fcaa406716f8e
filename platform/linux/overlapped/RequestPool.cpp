#include "RequestPool.h"

#include <utility>

#include "FileQueues.h"
#include "Workers.h"
#include <kvcore/platform/include/errors.h>

namespace kv::platform
{

namespace
{

void RunRoutine(ProcedureCall * call)
{
    TransferRequest & request = *static_cast<TransferRequest *>(call);
    auto const routine = request.routine;
    OVERLAPPED * const overlapped = request.overlapped;
    DWORD const error = request.error;
    DWORD const done = request.done;
    request.drop(call); // first: the routine may throw
    routine(error, done, overlapped);
}

void DropRoutine(ProcedureCall * call) noexcept
{
    Pool & pool = ThePool();
    std::lock_guard const guard(pool.lock);
    GiveBack(pool, *static_cast<TransferRequest *>(call));
}

void Fill(
    TransferRequest & request, File & file, Transfer const & transfer, OVERLAPPED & overlapped,
    LPOVERLAPPED_COMPLETION_ROUTINE routine)
{
    request.run = RunRoutine;
    request.drop = DropRoutine;
    request.file = Ref<File>(&file);
    request.thread = &Thread::Current();
    request.overlapped = &overlapped;
    request.routine = routine;
    request.buffer = static_cast<char *>(transfer.buffer);
    request.isBehind = false;
    request.place = transfer.place;
    request.count = transfer.count;
    request.writing = transfer.writing;
    request.error = ERROR_SUCCESS;
    request.done = 0;
    request.nextInFile = nullptr;
}

} // namespace

// What is no file on a disk may stay silent for long, and would keep a worker from the files: it is carried out here.
DWORD StartRequest(
    File & file, Transfer const & transfer, OVERLAPPED & overlapped, bool withRoutine,
    LPOVERLAPPED_COMPLETION_ROUTINE routine) noexcept
{
    Ref<Event> event;
    if (!withRoutine && overlapped.hEvent != nullptr)
    {
        auto const named = LookUp<Event>(overlapped.hEvent);
        if (!named)
        {
            return ERROR_INVALID_HANDLE;
        }
        event = Ref<Event>(named.Get());
    }
    Thread & thread = Thread::Current();
    Pool & pool = ThePool();
    std::unique_lock guard(pool.lock);
    if (file.type == FileType::Disk)
    {
        StayOutOfEnd(pool, guard);
    }
    if (!EnsureWorkers(pool))
    {
        return ERROR_NOT_ENOUGH_MEMORY;
    }
    TransferRequest * const request = pool.outstanding < pool.limit ? TakeRecord(pool) : nullptr;
    if (request == nullptr)
    {
        return ERROR_INVALID_USER_BUFFER;
    }
    Fill(*request, file, transfer, overlapped, routine);
    if (event)
    {
        event->Reset();
        request->event = std::move(event);
    }
    overlapped.InternalHigh = 0;
    __atomic_store_n(&overlapped.Internal, static_cast<ULONG_PTR>(STATUS_PENDING), __ATOMIC_RELAXED);
    thread.requests.fetch_add(1, std::memory_order_relaxed);
    thread.finishRequests = &FinishRequestsOf;
    RequestQueue & queue = file.requests;
    queue.pending.fetch_add(1, std::memory_order_relaxed);
    if (file.type != FileType::Disk)
    {
        guard.unlock();
        CarryOut(*request);
        FinishedRecords const toFree = Finish(file, request);
        guard.lock();
        GiveBackAll(pool, toFree);
        return ERROR_IO_PENDING;
    }
    LinkToThread(*request);
    Append(queue, *request);
    if (MakeReady(pool, file) || (!transfer.writing && queue.isReady))
    {
        WakeWorker(pool);
    }
    return ERROR_IO_PENDING;
}

unsigned CancelRequests(File & file, Thread const * thread, OVERLAPPED const * overlapped) noexcept
{
    Pool & pool = ThePool();
    unsigned count = 0;
    TransferRequest * cancelled = nullptr;
    TransferRequest * lastCancelled = nullptr;
    {
        std::lock_guard const guard(pool.lock);
        RequestQueue & queue = file.requests;
        TransferRequest * rest = std::exchange(queue.first, nullptr);
        while (rest != nullptr)
        {
            TransferRequest * const request = std::exchange(rest, rest->nextInFile);
            request->nextInFile = nullptr;
            // What is written behind is nobody's request any more.
            bool const isMeant = !request->isBehind && (thread == nullptr || request->thread == thread) &&
                (overlapped == nullptr || request->overlapped == overlapped);
            if (isMeant)
            {
                request->error = ERROR_OPERATION_ABORTED;
                UnlinkFromThread(*request);
                (lastCancelled != nullptr ? lastCancelled->nextInFile : cancelled) = request;
                lastCancelled = request;
                ++count;
                continue;
            }
            Append(queue, *request);
        }
        // What stands first now is another request, or none at all.
        MakeUnready(pool, file);
        if (MakeReady(pool, file))
        {
            WakeWorker(pool);
        }
    }
    if (cancelled != nullptr)
    {
        FinishedRecords const toFree = Finish(file, cancelled);
        std::lock_guard const guard(pool.lock);
        GiveBackAll(pool, toFree);
    }
    return count;
}

void FinishRequestsOf(Thread & thread) noexcept
{
    if (thread.requests.load(std::memory_order_acquire) == 0)
    {
        return;
    }
    Pool & pool = ThePool();
    for (;;)
    {
        Ref<File> file;
        {
            std::lock_guard const guard(pool.lock);
            if (thread.firstQueued == nullptr)
            {
                break;
            }
            file = thread.firstQueued->file;
        }
        CancelRequests(*file, &thread, nullptr);
    }
    AwaitEnds(pool, [&thread] { return thread.requests.load(std::memory_order_acquire) == 0; });
}

void WaitForRequest(OVERLAPPED const & overlapped) noexcept
{
    AwaitEnds(ThePool(), [&overlapped] { return HasOverlappedIoCompleted(&overlapped); });
}

void SetRequestLimit(unsigned limit) noexcept
{
    Pool & pool = ThePool();
    std::lock_guard const guard(pool.lock);
    pool.limit = limit != 0 ? limit : defaultRequestLimit;
}

void HoldRequests(bool hold) noexcept
{
    Pool & pool = ThePool();
    std::lock_guard const guard(pool.lock);
    pool.isHeld = hold;
    pool.hasReady.store(!hold && pool.firstReady != nullptr, std::memory_order_release);
    if (!hold)
    {
        WakeWorker(pool);
    }
}

} // namespace kv::platform
