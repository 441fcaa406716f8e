#include "Pool.h"

#include <new>
#include <utility>

#include <pthread.h>

#include <kvcore/platform/include/errors.h>
#include <kvcore/platform/linux/files/OpenFiles.h>
#include <kvcore/platform/linux/sync/Waits.h>

// A process may fork while requests are on their way. The child has the handles but not the workers: there, each
// request that is not finished ends as a cancelled one, so that nobody waits for it in vain, and the files can be used
// at once. The parent's requests go on. What the workers may hold at any moment (the locks below) is taken before the
// fork, so that the child finds none of it in somebody's hands who is not there.

namespace kv::platform
{

namespace
{

constexpr unsigned recordsPerChunk = 512;

void BeforeFork() noexcept
{
    ThePool().lock.lock();
    ThePool().ending.lock();
    WaitLock().lock();
    OpenFilesLock().lock();
}

void AfterFork() noexcept
{
    OpenFilesLock().unlock();
    WaitLock().unlock();
    ThePool().ending.unlock();
    ThePool().lock.unlock();
}

template <class Visit>
void ForEachRecord(Pool & pool, Visit visit)
{
    for (TransferRequest * const chunk : pool.chunks)
    {
        for (unsigned i = 0; i < recordsPerChunk; ++i)
        {
            visit(chunk[i]);
        }
    }
}

/// Nobody works any more, and no file has anything to begin.
void ForgetWork(Pool & pool)
{
    pool.workers = pool.looking = pool.sleeping = pool.working = 0;
    pool.openGroups = 0;
    pool.endingThread = 0;
    pool.wakeTickets.store(0, std::memory_order_relaxed);
    pool.firstReady = pool.lastReady = nullptr;
    pool.hasReady.store(false, std::memory_order_relaxed);
    pool.waiting.store(0, std::memory_order_relaxed);
    for (Ref<File> & file : pool.running)
    {
        if (file)
        {
            file->requests.readsRunning = 0;
            file->requests.writeRunning = false;
            if (file->shared != nullptr)
            {
                // A worker may have been looking through the locked ranges.
                new (&file->shared->lockMutex) std::mutex;
            }
        }
    }
    ForEachRecord(
        pool,
        [](TransferRequest const & request)
        {
            if (request.file)
            {
                request.file->requests.first = request.file->requests.last = nullptr;
                request.file->requests.isReady = false;
                request.file->requests.bytesBehind = 0;
                if (request.thread != nullptr)
                {
                    request.thread->firstQueued = nullptr;
                }
            }
        });
}

/// Records of the calling thread's routines stay; those of other threads, which are not there, are never seen again.
void RebuildFreeRecords(Pool & pool)
{
    pool.firstFree = nullptr;
    pool.outstanding = 0;
    pool.blocks = 0;
    ForEachRecord(
        pool,
        [&pool](TransferRequest & request)
        {
            if (request.thread == nullptr)
            {
                request.nextInFile = pool.firstFree;
                pool.firstFree = &request;
            }
            else if (request.thread == Thread::CurrentIfAny())
            {
                ++pool.outstanding;
            }
        });
}

void InForkedChild() noexcept
{
    endShield.signal.store(0, std::memory_order_relaxed); // it was sent to the parent
    AfterFork();                                          // there is nobody else
    NoteProcess();
    Pool & pool = ThePool();
    ForgetWaits();
    ForgetWork(pool);
    ForEachRecord(
        pool,
        [](TransferRequest & request)
        {
            if (Ref<File> const file = request.file)
            {
                request.error = ERROR_OPERATION_ABORTED;
                request.done = 0;
                request.nextInFile = nullptr;
                request.routine = request.thread == Thread::CurrentIfAny() ? request.routine : nullptr;
                Finish(*file, &request);
            }
        });
    for (Ref<File> & file : pool.running)
    {
        file = {};
    }
    RebuildFreeRecords(pool);
}

// When the program starts: a fork at the first use of all this would come too early for it.
[[maybe_unused]] int const registered = pthread_atfork(BeforeFork, AfterFork, InForkedChild);

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

} // namespace

Pool & ThePool() noexcept
{
    static Pool & pool = *new Pool;
    return pool;
}

TransferRequest * TakeRecord(Pool & pool) noexcept
{
    if (pool.firstFree == nullptr && !AddChunk(pool))
    {
        return nullptr;
    }
    ++pool.outstanding;
    TransferRequest * const request = pool.firstFree;
    pool.firstFree = request->nextInFile;
    return request;
}

void GiveBack(Pool & pool, TransferRequest & request) noexcept
{
    request.thread = nullptr;
    request.nextInFile = pool.firstFree;
    pool.firstFree = &request;
    --pool.outstanding;
}

namespace
{

void GiveBackBlocks(Pool & pool, FinishedRecords const & records)
{
    TransferRequest * request = records.first;
    for (unsigned i = 0; i < records.count; ++i, request = request->nextInFile)
    {
        std::unique_ptr<char[]> block = std::move(request->block);
        if (pool.spareCount < mostSpareBlocks)
        {
            pool.spareBlocks[pool.spareCount++] = std::move(block);
        }
    }
    pool.blocks -= records.count;
    pool.blocksFreed.fetch_add(1, std::memory_order_relaxed);
    pool.blocksFreed.notify_all();
}

} // namespace

void GiveBackAll(Pool & pool, FinishedRecords const & records) noexcept
{
    if (records.count != 0)
    {
        if (records.first->isBehind)
        {
            GiveBackBlocks(pool, records); // they never go together with others
        }
        records.last->nextInFile = pool.firstFree;
        pool.firstFree = records.first;
        pool.outstanding -= records.count;
    }
}

namespace
{

/// Adds to those that are nobody's.
void Free(FinishedRecords & records, TransferRequest & request)
{
    request.thread = nullptr;
    request.nextInFile = records.first;
    records.first = &request;
    records.last = records.last != nullptr ? records.last : &request;
    ++records.count;
}

/// Makes the end of a request seen, but for its thread's count. Whether nothing is left but the record.
bool Tell(TransferRequest & request)
{
    SetResult(*request.overlapped, request.error, request.done);
    if (request.event)
    {
        request.event->Set();
        request.event = {};
    }
    request.file = {};
    return request.routine == nullptr || !request.thread->Queue(request);
}

/// What Finish does with requests. The counts are their maker's, too, who goes on making more: they are changed seldom.
unsigned FinishRequests(TransferRequest * first, FinishedRecords & toFree)
{
    unsigned count = 0;
    unsigned ofThread = 0;
    TransferRequest * next = nullptr;
    for (TransferRequest * request = first; request != nullptr; request = next)
    {
        next = request->nextInFile;
        Thread & thread = *request->thread;
        if (Tell(*request))
        {
            Free(toFree, *request);
        }
        ++count;
        ++ofThread;
        if (next == nullptr || next->thread != &thread)
        {
            // Last: the thread may end now.
            thread.requests.fetch_sub(std::exchange(ofThread, 0), std::memory_order_release);
        }
    }
    return count;
}

/// The same with blocks, of whose end nobody is told.
unsigned FinishBlocks(File & file, TransferRequest * first, FinishedRecords & toFree)
{
    TransferRequest * next = nullptr;
    for (TransferRequest * request = first; request != nullptr; request = next)
    {
        next = request->nextInFile;
        request->file = {};
        Free(toFree, *request);
    }
    file.requests.behind.fetch_sub(toFree.count, std::memory_order_seq_cst);
    return toFree.count;
}

} // namespace

FinishedRecords Finish(File & file, TransferRequest * first) noexcept
{
    Pool & pool = ThePool();
    FinishedRecords toFree;
    {
        std::lock_guard const guard(pool.ending);
        unsigned const count = first->isBehind ? FinishBlocks(file, first, toFree) : FinishRequests(first, toFree);
        file.requests.pending.fetch_sub(count, std::memory_order_seq_cst);
    }
    WakeWaitersIfAny(file);
    pool.finished.fetch_add(1, std::memory_order_seq_cst);
    pool.finished.notify_all();
    return toFree;
}

} // namespace kv::platform
