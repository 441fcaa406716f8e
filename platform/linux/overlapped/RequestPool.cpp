#include "RequestPool.h"

#include <csignal>
#include <cstring>
#include <new>
#include <system_error>
#include <thread>

#include <sys/uio.h>

#include "Pool.h"
#include <kvcore/platform/include/errors.h>
#include <kvcore/platform/include/memoryapi.h>
#include <kvcore/platform/linux/memory/Allocations.h>

// Every file has a queue of its own; files with something to begin stand in one list, from which a few workers take.
// What a worker takes is a run: either some reads, beside which other workers may take more, or writes that continue
// each other, alone, which go to the kernel in one call. That makes small writes cheaper than calls of their own, and
// keeps the order without a look at ranges.
//
// Waking a sleeping thread costs more than a small write. So nobody is woken while a worker is about to look anyway,
// and a worker that has run out of requests looks for a while before it sleeps.

namespace kv::platform
{

namespace
{

constexpr std::size_t mostTaken = 512; // bytes of a write

constexpr int looksBeforeSleep = 2000;

constexpr unsigned longestRun = 512;
constexpr std::size_t largestRun = std::size_t{1} << 20;
constexpr unsigned longestReadRun = 8;
constexpr std::size_t largestReadRun = std::size_t{128} << 10;
constexpr std::uint64_t appending = ~std::uint64_t{0};

/// Somebody waits: no worker is to let writes gather. One that begins to at this very moment may miss it, and does so
/// for a fraction of a millisecond.
void Hurry(Pool & pool)
{
    pool.isHurried.store(true, std::memory_order_relaxed);
}

/// Enters a file whose oldest request can begin into the list. Whether it was entered now.
bool MakeReady(Pool & pool, File & file)
{
    RequestQueue & queue = file.requests;
    bool const canBegin =
        queue.first != nullptr && !queue.writeRunning && (!queue.first->writing || queue.readsRunning == 0);
    if (!canBegin || queue.isReady)
    {
        return false;
    }
    queue.isReady = true;
    queue.nextReady = nullptr;
    (pool.lastReady != nullptr ? pool.lastReady->requests.nextReady : pool.firstReady) = &file;
    pool.lastReady = &file;
    pool.hasReady.store(!pool.isHeld, std::memory_order_release);
    return true;
}

/// Takes a file out of the list, wherever it stands.
void MakeUnready(Pool & pool, File & file)
{
    if (!file.requests.isReady)
    {
        return;
    }
    File * previous = nullptr;
    for (File * at = pool.firstReady; at != &file; at = at->requests.nextReady)
    {
        previous = at;
    }
    (previous != nullptr ? previous->requests.nextReady : pool.firstReady) = file.requests.nextReady;
    if (pool.lastReady == &file)
    {
        pool.lastReady = previous;
    }
    file.requests.isReady = false;
    pool.hasReady.store(pool.firstReady != nullptr && !pool.isHeld, std::memory_order_relaxed);
}

/// The next file of the list, or null.
File * TakeReady(Pool & pool)
{
    File * const file = pool.isHeld ? nullptr : pool.firstReady;
    if (file != nullptr)
    {
        pool.firstReady = file->requests.nextReady;
        if (pool.firstReady == nullptr)
        {
            pool.lastReady = nullptr;
            pool.hasReady.store(false, std::memory_order_relaxed);
        }
        file->requests.isReady = false;
    }
    return file;
}

/// Adds a request to those of its thread that have not begun, or takes it out.
void LinkToThread(TransferRequest & request)
{
    TransferRequest *& first = request.thread->firstQueued;
    request.previousInThread = nullptr;
    request.nextInThread = first;
    if (first != nullptr)
    {
        first->previousInThread = &request;
    }
    first = &request;
}

void UnlinkFromThread(TransferRequest & request)
{
    if (request.isTaken)
    {
        return; // it never was there
    }
    TransferRequest *& fromBefore =
        request.previousInThread != nullptr ? request.previousInThread->nextInThread : request.thread->firstQueued;
    fromBefore = request.nextInThread;
    if (request.nextInThread != nullptr)
    {
        request.nextInThread->previousInThread = request.previousInThread;
    }
}

/// Whether a request can go to the kernel together with the run that it would stand behind. Of what was taken over
/// there are runs apart: they can be taken as they are, however long.
bool Continues(TransferRequest const & run, TransferRequest const & last, TransferRequest const & next)
{
    unsigned const longest = run.writing ? longestRun : longestReadRun;
    std::size_t const largest = run.writing ? largestRun : largestReadRun;
    bool const fits = next.writing == run.writing && next.isTaken == run.isTaken && run.runLength < longest &&
        run.runBytes + next.count <= largest;
    bool const isPlaced = last.place != appending && next.place != appending;
    return fits && (!run.writing || (isPlaced && next.place == last.place + last.count));
}

/// Adds a request to those of its file that have not begun, as part of the last run if it can be.
void Append(RequestQueue & queue, TransferRequest & request)
{
    request.nextInFile = nullptr;
    if (queue.first != nullptr && Continues(*queue.lastRun, *queue.last, request))
    {
        ++queue.lastRun->runLength;
        queue.lastRun->runBytes += request.count;
        queue.lastRun->runLast = &request;
    }
    else
    {
        request.runLength = 1;
        request.runBytes = request.count;
        request.runLast = &request;
        queue.lastRun = &request;
    }
    (queue.first != nullptr ? queue.last->nextInFile : queue.first) = &request;
    queue.last = &request;
}

/// What a worker does at once.
struct Run
{
    TransferRequest * first = nullptr;
    unsigned length = 0;
    bool writing = false;
};

/// Takes the oldest requests of a file that go together. Those that were taken over are not looked at one by one: that
/// would fetch each from its maker's processor, who waits for the lock meanwhile.
Run TakeRun(File & file)
{
    RequestQueue & queue = file.requests;
    Run const run{queue.first, queue.first->runLength, queue.first->writing};
    TransferRequest * const last = run.first->runLast;
    queue.first = std::exchange(last->nextInFile, nullptr);
    if (!run.first->isTaken)
    {
        for (TransferRequest * request = run.first; request != nullptr; request = request->nextInFile)
        {
            UnlinkFromThread(*request);
        }
    }
    run.writing ? void(queue.writeRunning = true) : void(++queue.readsRunning);
    return run;
}

void CarryOut(TransferRequest & request)
{
    File & file = *request.file;
    request.error = request.writing ? file.WriteAt(request.buffer, request.count, request.place, request.done)
                                    : file.ReadAt(request.buffer, request.count, request.place, request.done);
}

/// Writes the beginning of a run with one call. Gives the first request that is not done thereby.
TransferRequest * WriteTogether(Run const & run)
{
    File & file = *run.first->file;
    if (run.length < 2 || file.MayMeetLocks())
    {
        return run.first;
    }
    iovec pieces[longestRun];
    int count = 0;
    for (TransferRequest * request = run.first; request != nullptr; request = request->nextInFile)
    {
        pieces[count++] = {request->buffer, request->count};
    }
    ssize_t const written = pwritev(file.descriptor, pieces, count, static_cast<off_t>(run.first->place));
    // What is done in part only is done again as a whole, and then tells its own error.
    std::uint64_t left = written > 0 ? static_cast<std::uint64_t>(written) : 0;
    TransferRequest * request = run.first;
    while (request != nullptr && request->count <= left && left != 0)
    {
        left -= request->count;
        request->error = ERROR_SUCCESS;
        request->done = request->count;
        request = request->nextInFile;
    }
    return request;
}

/// Waits for something to do. The lock is held.
void AwaitWork(Pool & pool, std::unique_lock<std::mutex> & guard)
{
    ++pool.looking;
    guard.unlock();
    for (int looks = 0; looks < looksBeforeSleep && !pool.hasReady.load(std::memory_order_relaxed); ++looks)
    {
        __builtin_ia32_pause();
    }
    guard.lock();
    --pool.looking;
    if (pool.firstReady != nullptr && !pool.isHeld)
    {
        return;
    }
    ++pool.sleeping;
    pool.wakeUp.wait(guard, [&pool] { return pool.wakeTickets != 0; });
    --pool.wakeTickets;
}

/// Lets a sleeping worker run, if nobody is about to look and there is one. The lock is held.
void WakeWorker(Pool & pool)
{
    if (pool.looking == 0 && pool.sleeping != 0 && !pool.isHeld)
    {
        --pool.sleeping;
        ++pool.wakeTickets;
        pool.wakeUp.notify_one();
    }
}

/// Lets writes gather that nobody waits for: their bytes were taken over, and one call for many is cheaper than the
/// quarrel with their maker about the lock for each. The lock is held before and after.
void LetWritesGather(Pool & pool, std::unique_lock<std::mutex> & guard)
{
    bool const canGather = pool.firstReady != nullptr && pool.firstReady == pool.lastReady && !pool.isHeld &&
        pool.firstReady->requests.first->isTaken;
    if (!canGather)
    {
        return;
    }
    pool.isHurried.store(false, std::memory_order_relaxed);
    ++pool.looking;
    guard.unlock();
    for (int looks = 0; looks < looksBeforeSleep && !pool.isHurried.load(std::memory_order_relaxed); ++looks)
    {
        __builtin_ia32_pause();
    }
    guard.lock();
    --pool.looking;
}

/// Takes a run and carries it out, if there is one. The lock is held before and after.
bool WorkOnce(Pool & pool, unsigned worker, std::unique_lock<std::mutex> & guard)
{
    LetWritesGather(pool, guard);
    File * const file = TakeReady(pool);
    if (file == nullptr)
    {
        return false;
    }
    pool.running[worker] = Ref<File>(file);
    Run const run = TakeRun(*file);
    MakeReady(pool, *file); // there may be more reads, for somebody else
    if (pool.firstReady != nullptr)
    {
        WakeWorker(pool);
    }
    guard.unlock();
    for (TransferRequest * request = run.writing ? WriteTogether(run) : run.first; request != nullptr;
         request = request->nextInFile)
    {
        CarryOut(*request);
    }
    FinishedRecords const toFree = Finish(*file, run.first);
    guard.lock();
    GiveBackAll(pool, toFree);
    run.writing ? void(file->requests.writeRunning = false) : void(--file->requests.readsRunning);
    MakeReady(pool, *file);
    guard.unlock(); // the last reference closes the file, which may take long
    {
        std::lock_guard const ending(pool.ending);
        pool.running[worker] = {};
    }
    guard.lock();
    return true;
}

void Work(unsigned worker)
{
    Pool & pool = ThePool();
    std::unique_lock guard(pool.lock);
    for (;;)
    {
        if (!WorkOnce(pool, worker, guard))
        {
            AwaitWork(pool, guard);
        }
    }
}

/// Makes sure that somebody will see to the requests; false if no thread can be made at all. Signals are for others.
bool EnsureWorkers(Pool & pool)
{
    bool const enough = pool.workers == maxWorkers || (pool.workers != 0 && pool.looking + pool.sleeping != 0);
    if (enough)
    {
        return true;
    }
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    try
    {
        std::thread(Work, pool.workers).detach();
        ++pool.workers;
    }
    catch (std::system_error const &)
    {
        // The workers that there are will do.
    }
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    return pool.workers != 0;
}

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
