#include "RequestPool.h"

#include <cstring>
#include <new>

#include "FileQueues.h"
#include "Workers.h"
#include <kvcore/platform/include/errors.h>
#include <kvcore/platform/include/memoryapi.h>
#include <kvcore/platform/linux/memory/Allocations.h>

namespace kv::platform
{

namespace
{

constexpr std::size_t mostTaken = 512; // bytes of a write

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
    request.isTaken = false;
    request.place = transfer.place;
    request.count = transfer.count;
    request.writing = transfer.writing;
    request.error = ERROR_SUCCESS;
    request.done = 0;
    request.nextInFile = nullptr;
}

/// Copies the bytes of a write. Without memory they stay where they are.
void TakeOver(TransferRequest & request)
{
    if (request.room == nullptr)
    {
        request.room.reset(new (std::nothrow) char[mostTaken]);
    }
    if (request.room != nullptr)
    {
        std::memcpy(request.room.get(), request.buffer, request.count);
        request.buffer = request.room.get();
        request.isTaken = true;
        ThePool().taken.fetch_add(1, std::memory_order_relaxed);
    }
}

} // namespace

bool CanTakeOver(void const * buffer, std::size_t count) noexcept
{
    // The same memory comes again and again: a log's ring, for instance.
    static thread_local struct
    {
        std::uintptr_t begin;
        std::uintptr_t end;
        unsigned changes;
    } known = {};
    std::uintptr_t const begin = reinterpret_cast<std::uintptr_t>(buffer);
    if (count > mostTaken)
    {
        return false;
    }
    unsigned const changes = addressSpaceChanges.load(std::memory_order_acquire);
    if (changes == known.changes && begin >= known.begin && begin + count <= known.end)
    {
        return true;
    }
    Allocations & allocations = TheAllocations();
    std::lock_guard const guard(allocations.mutex);
    auto const allocation = FindAllocation(allocations, begin);
    if (allocation == allocations.byBase.end() || allocation->second.type != MEM_PRIVATE)
    {
        return false;
    }
    auto const & committed = allocation->second.committed;
    auto part = committed.upper_bound(begin);
    if (part == committed.begin() || (--part)->second < begin + count)
    {
        return false;
    }
    WatchForDeath();
    known = {part->first, part->second, changes};
    return true;
}

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
    bool const takesOver = transfer.writing && CanTakeOver(transfer.buffer, transfer.count);
    Thread & thread = Thread::Current();
    Pool & pool = ThePool();
    std::unique_lock guard(pool.lock);
    if (!EnsureWorkers(pool))
    {
        return ERROR_NOT_ENOUGH_MEMORY;
    }
    TransferRequest * const request = TakeRecord(pool);
    if (request == nullptr)
    {
        return ERROR_INVALID_USER_BUFFER;
    }
    Fill(*request, file, transfer, overlapped, routine);
    if (takesOver)
    {
        TakeOver(*request);
    }
    if (event)
    {
        event->Reset();
        request->event = std::move(event);
    }
    overlapped.InternalHigh = 0;
    __atomic_store_n(&overlapped.Internal, static_cast<ULONG_PTR>(STATUS_PENDING), __ATOMIC_RELAXED);
    thread.requests.fetch_add(1, std::memory_order_relaxed);
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
    if (!request->isTaken)
    {
        LinkToThread(*request);
        Hurry(pool);
    }
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
            // What was taken over is as good as written for its thread, which may end.
            bool const isMeant = (thread == nullptr || (request->thread == thread && !request->isTaken)) &&
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
    for (;;)
    {
        Hurry(pool);
        std::uint32_t const seen = pool.finished.load(std::memory_order_seq_cst);
        if (thread.requests.load(std::memory_order_acquire) == 0)
        {
            return;
        }
        pool.finished.wait(seen, std::memory_order_seq_cst);
    }
}

void WaitForRequest(OVERLAPPED const & overlapped) noexcept
{
    Pool & pool = ThePool();
    for (;;)
    {
        Hurry(pool);
        std::uint32_t const seen = pool.finished.load(std::memory_order_seq_cst);
        if (HasOverlappedIoCompleted(&overlapped))
        {
            return;
        }
        pool.finished.wait(seen, std::memory_order_seq_cst);
    }
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
