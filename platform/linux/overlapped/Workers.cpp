#include "Workers.h"

#include <algorithm>
#include <csignal>
#include <ctime>
#include <system_error>
#include <thread>

#include <sys/uio.h>

#include "FileQueues.h"
#include <kvcore/platform/include/errors.h>

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

constexpr int looksBeforeSleep = 2000;
constexpr long napNanoseconds = 50'000;

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

/// Writes what of a block no lock forbids: it is made of many writes, each of which fails for itself.
DWORD WriteBesideLocks(TransferRequest & request)
{
    DWORD error = ERROR_SUCCESS;
    for (DWORD begin = 0; begin < request.count; begin += DWORD{largestWriteBehind})
    {
        DWORD const count = std::min(request.count - begin, DWORD{largestWriteBehind});
        DWORD done = 0;
        DWORD const failure = request.file->WriteAt(request.buffer + begin, count, request.place + begin, done);
        error = failure != ERROR_SUCCESS ? failure : error;
    }
    return error;
}

/// Sleeps until there is a ticket, and takes it.
void TakeTicket(std::atomic<int> & tickets)
{
    int left = tickets.load(std::memory_order_relaxed);
    while (left == 0 || !tickets.compare_exchange_weak(left, left - 1, std::memory_order_relaxed))
    {
        if (left == 0)
        {
            tickets.wait(0, std::memory_order_relaxed);
            left = tickets.load(std::memory_order_relaxed);
        }
    }
}

/// Waits for something to do. The lock is held before and after.
void AwaitWork(Pool & pool, std::unique_lock<ShortLock> & guard)
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
    guard.unlock();
    TakeTicket(pool.wakeTickets);
    guard.lock();
}

/// Lets writes behind gather: nobody waits for them, and one call for many is cheaper than the quarrel with their maker
/// about the lock for each. Asleep, since looking would slow the maker down where two processors share a core. The lock
/// is held before and after.
void LetWritesGather(Pool & pool, std::unique_lock<ShortLock> & guard)
{
    // With half of its bytes on their way, the maker would soon have to wait.
    bool const canGather = pool.firstReady != nullptr && pool.firstReady == pool.lastReady && !pool.isHeld &&
        pool.firstReady->requests.first->isBehind && pool.waiting.load(std::memory_order_relaxed) == 0 &&
        pool.firstReady->requests.bytesBehind < mostBytesBehind / 2 && pool.endingThread == 0;
    if (canGather)
    {
        timespec const nap = {0, napNanoseconds};
        guard.unlock();
        nanosleep(&nap, nullptr);
        guard.lock();
    }
}

/// Takes a run and carries it out, if there is one. The lock is held before and after.
bool WorkOnce(Pool & pool, unsigned worker, std::unique_lock<ShortLock> & guard)
{
    LetWritesGather(pool, guard);
    File * const file = TakeReady(pool);
    if (file == nullptr)
    {
        return false;
    }
    pool.running[worker] = Ref<File>(file);
    ++pool.working;
    Run const run = TakeRun(*file);
    std::size_t const bytesBehind = run.first->isBehind ? run.first->runBytes : 0;
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
    file->requests.bytesBehind -= bytesBehind;
    GiveBackAll(pool, toFree);
    run.writing ? void(file->requests.writeRunning = false) : void(--file->requests.readsRunning);
    --pool.working;
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

} // namespace

void CarryOut(TransferRequest & request)
{
    File & file = *request.file;
    request.error = request.writing ? file.WriteAt(request.buffer, request.count, request.place, request.done)
                                    : file.ReadAt(request.buffer, request.count, request.place, request.done);
    if (request.isBehind && request.error == ERROR_LOCK_VIOLATION)
    {
        request.error = WriteBesideLocks(request);
    }
}

void WakeWorker(Pool & pool)
{
    if (pool.looking == 0 && pool.sleeping != 0 && !pool.isHeld)
    {
        --pool.sleeping;
        pool.wakeTickets.fetch_add(1, std::memory_order_relaxed);
        pool.wakeTickets.notify_one();
    }
}

// Signals are for others.
bool EnsureWorkers(Pool & pool)
{
    bool const enough = pool.workers == maxWorkers || (pool.workers != 0 && pool.looking + pool.sleeping != 0);
    if (enough)
    {
        return true;
    }
    WatchForEnd();
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

} // namespace kv::platform
