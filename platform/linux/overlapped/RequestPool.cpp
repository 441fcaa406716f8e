#include "RequestPool.h"

#include <atomic>
#include <cerrno>
#include <condition_variable>
#include <csignal>
#include <mutex>
#include <new>
#include <system_error>
#include <thread>
#include <vector>

#include <pthread.h>
#include <sys/uio.h>

#include <kvcore/platform/include/errors.h>
#include <kvcore/platform/linux/files/OpenFiles.h>
#include <kvcore/platform/linux/sync/Waits.h>

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

constexpr unsigned defaultLimit = 131072;
constexpr unsigned recordsPerChunk = 512;
constexpr unsigned maxWorkers = 2;
constexpr int looksBeforeSleep = 2000;

constexpr unsigned longestRun = 512;
constexpr std::size_t largestRun = std::size_t{1} << 20;
constexpr unsigned longestReadRun = 8;
constexpr std::size_t largestReadRun = std::size_t{128} << 10;
constexpr std::uint64_t appending = ~std::uint64_t{0};

/// Lives for ever, and so do the workers: the process may end while they work.
struct Pool
{
    std::mutex lock;

    // Guarded by the lock.
    std::condition_variable wakeUp;
    std::vector<TransferRequest *> chunks;
    TransferRequest * firstFree = nullptr;
    unsigned outstanding = 0;
    unsigned limit = defaultLimit;
    File * firstReady = nullptr;
    File * lastReady = nullptr;
    bool isHeld = false;
    unsigned workers = 0;
    unsigned looking = 0;
    unsigned sleeping = 0;
    unsigned wakeTickets = 0;

    /// Whether there is something for a worker to take; a hint for those who look without the lock.
    std::atomic<bool> hasReady{false};
    /// Changes after requests have finished.
    std::atomic<std::uint32_t> finished{0};
};

void ForgetRequestsInChild() noexcept;

Pool & ThePool() noexcept
{
    static Pool & pool = []() -> Pool &
    {
        Pool * const made = new Pool;
        // The child has no workers, and the requests are the parent's.
        pthread_atfork(
            [] { ThePool().lock.lock(); }, [] { ThePool().lock.unlock(); },
            []
            {
                ForgetRequestsInChild();
                ThePool().lock.unlock();
            });
        return *made;
    }();
    return pool;
}

void ForgetRequestsInChild() noexcept
{
    Pool & pool = ThePool();
    for (TransferRequest * const chunk : pool.chunks)
    {
        for (unsigned i = 0; i < recordsPerChunk; ++i)
        {
            if (chunk[i].file)
            {
                RequestQueue & queue = chunk[i].file->requests;
                queue.pending.store(0, std::memory_order_relaxed);
                queue.first = queue.last = nullptr;
                queue.readsRunning = 0;
                queue.writeRunning = queue.isReady = false;
                chunk[i].thread->requests.store(0, std::memory_order_relaxed);
            }
        }
    }
    pool.firstReady = pool.lastReady = nullptr;
    pool.workers = pool.looking = pool.sleeping = pool.wakeTickets = 0;
    pool.outstanding = 0;
    pool.firstFree = nullptr;
    pool.chunks.clear();
    new (&pool.wakeUp) std::condition_variable;
}

bool AddChunk(Pool & pool) noexcept
try
{
    pool.chunks.reserve(pool.chunks.size() + 1);
    TransferRequest * const chunk = new TransferRequest[recordsPerChunk];
    pool.chunks.push_back(chunk);
    for (unsigned i = 0; i < recordsPerChunk; ++i)
    {
        chunk[i].nextInFile = pool.firstFree;
        pool.firstFree = &chunk[i];
    }
    return true;
}
catch (std::bad_alloc const &)
{
    return false;
}

/// A record for a new request, or null if there may be no more.
TransferRequest * TakeRecord(Pool & pool)
{
    if (pool.outstanding >= pool.limit || (pool.firstFree == nullptr && !AddChunk(pool)))
    {
        return nullptr;
    }
    ++pool.outstanding;
    TransferRequest * const request = pool.firstFree;
    pool.firstFree = request->nextInFile;
    return request;
}

void GiveBack(Pool & pool, TransferRequest & request)
{
    request.nextInFile = pool.firstFree;
    pool.firstFree = &request;
    --pool.outstanding;
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

TransferRequest * TakeFirst(RequestQueue & queue)
{
    TransferRequest * const request = queue.first;
    queue.first = request->nextInFile;
    if (queue.first == nullptr)
    {
        queue.last = nullptr;
    }
    request->nextInFile = nullptr;
    request->isQueued = false;
    return request;
}

/// What a worker does at once.
struct Run
{
    TransferRequest * first = nullptr;
    unsigned length = 0;
    bool writing = false;
};

/// Takes the oldest requests of a file that go together.
Run TakeRun(File & file)
{
    RequestQueue & queue = file.requests;
    Run run;
    run.writing = queue.first->writing;
    unsigned const longest = run.writing ? longestRun : longestReadRun;
    std::size_t const largest = run.writing ? largestRun : largestReadRun;
    TransferRequest * last = nullptr;
    std::size_t bytes = 0;
    while (queue.first != nullptr && run.length < longest)
    {
        TransferRequest const & next = *queue.first;
        bool const continues = last == nullptr ||
            (next.writing == run.writing && bytes + next.count <= largest &&
             (!run.writing || (next.place != appending && next.place == last->place + last->count)));
        if (!continues)
        {
            break;
        }
        bytes += next.count;
        ++run.length;
        TransferRequest * const taken = TakeFirst(queue);
        (last != nullptr ? last->nextInFile : run.first) = taken;
        last = taken;
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

/// Makes the ends of finished requests seen. Of those without a routine nothing is left but the record; the others go
/// to their threads, which free the record. Gives the records to free.
TransferRequest * Finish(Run const & run)
{
    Pool & pool = ThePool();
    TransferRequest * toFree = nullptr;
    TransferRequest * next = nullptr;
    Ref<File> const file(run.first->file.Get());
    for (TransferRequest * request = run.first; request != nullptr; request = next)
    {
        next = request->nextInFile;
        SetResult(*request->overlapped, request->error, request->done);
        if (request->event)
        {
            request->event->Set();
            request->event = {};
        }
        request->file = {};
        Thread & thread = *request->thread;
        file->requests.pending.fetch_sub(1, std::memory_order_seq_cst);
        if (request->routine == nullptr || !thread.Queue(*request))
        {
            request->nextInFile = toFree;
            toFree = request;
        }
        // Last: the thread may end now.
        thread.requests.fetch_sub(1, std::memory_order_release);
    }
    WakeWaitersIfAny(*file);
    pool.finished.fetch_add(1, std::memory_order_seq_cst);
    pool.finished.notify_all();
    return toFree;
}

void GiveBackAll(Pool & pool, TransferRequest * request)
{
    while (request != nullptr)
    {
        TransferRequest * const next = request->nextInFile;
        GiveBack(pool, *request);
        request = next;
    }
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

/// Takes a run and carries it out, if there is one. The lock is held before and after.
bool WorkOnce(Pool & pool, std::unique_lock<std::mutex> & guard)
{
    File * const ready = TakeReady(pool);
    if (ready == nullptr)
    {
        return false;
    }
    Ref<File> file(ready);
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
    TransferRequest * const toFree = Finish(run);
    guard.lock();
    GiveBackAll(pool, toFree);
    run.writing ? void(file->requests.writeRunning = false) : void(--file->requests.readsRunning);
    MakeReady(pool, *file);
    guard.unlock(); // the last reference closes the file
    file = {};
    guard.lock();
    return true;
}

void Work()
{
    Pool & pool = ThePool();
    std::unique_lock guard(pool.lock);
    for (;;)
    {
        if (!WorkOnce(pool, guard))
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
        std::thread(Work).detach();
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
    request.place = transfer.place;
    request.count = transfer.count;
    request.writing = transfer.writing;
    request.isQueued = true;
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
        request->isQueued = false;
        guard.unlock();
        CarryOut(*request);
        TransferRequest * const toFree = Finish({request, 1, transfer.writing});
        guard.lock();
        GiveBackAll(pool, toFree);
        return ERROR_IO_PENDING;
    }
    (queue.last != nullptr ? queue.last->nextInFile : queue.first) = request;
    queue.last = request;
    if (MakeReady(pool, file) || (!transfer.writing && queue.isReady))
    {
        WakeWorker(pool);
    }
    return ERROR_IO_PENDING;
}

unsigned CancelRequests(File & file, Thread const * thread, OVERLAPPED const * overlapped) noexcept
{
    Pool & pool = ThePool();
    Run cancelled;
    TransferRequest * lastCancelled = nullptr;
    {
        std::lock_guard const guard(pool.lock);
        RequestQueue & queue = file.requests;
        TransferRequest * rest = queue.first;
        queue.first = queue.last = nullptr;
        while (rest != nullptr)
        {
            TransferRequest * const request = std::exchange(rest, rest->nextInFile);
            request->nextInFile = nullptr;
            bool const isMeant = (thread == nullptr || request->thread == thread) &&
                (overlapped == nullptr || request->overlapped == overlapped);
            if (isMeant)
            {
                request->error = ERROR_OPERATION_ABORTED;
                request->isQueued = false;
                (lastCancelled != nullptr ? lastCancelled->nextInFile : cancelled.first) = request;
                lastCancelled = request;
                ++cancelled.length;
                continue;
            }
            (queue.last != nullptr ? queue.last->nextInFile : queue.first) = request;
            queue.last = request;
        }
        // What stands first now is another request, or none at all.
        MakeUnready(pool, file);
        if (MakeReady(pool, file))
        {
            WakeWorker(pool);
        }
    }
    if (cancelled.length != 0)
    {
        TransferRequest * const toFree = Finish(cancelled);
        std::lock_guard const guard(pool.lock);
        GiveBackAll(pool, toFree);
    }
    return cancelled.length;
}

void FinishRequestsOf(Thread & thread) noexcept
{
    Pool & pool = ThePool();
    for (;;)
    {
        std::uint32_t const seen = pool.finished.load(std::memory_order_seq_cst);
        if (thread.requests.load(std::memory_order_acquire) == 0)
        {
            return;
        }
        Ref<File> file;
        {
            std::lock_guard const guard(pool.lock);
            for (std::size_t chunk = 0; chunk < pool.chunks.size() && !file; ++chunk)
            {
                for (unsigned i = 0; i < recordsPerChunk && !file; ++i)
                {
                    TransferRequest const & request = pool.chunks[chunk][i];
                    if (request.isQueued && request.thread == &thread)
                    {
                        file = request.file;
                    }
                }
            }
        }
        if (file)
        {
            CancelRequests(*file, &thread, nullptr);
        }
        else
        {
            pool.finished.wait(seen, std::memory_order_seq_cst);
        }
    }
}

void WaitForRequest(OVERLAPPED const & overlapped) noexcept
{
    Pool & pool = ThePool();
    for (;;)
    {
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
    pool.limit = limit != 0 ? limit : defaultLimit;
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
