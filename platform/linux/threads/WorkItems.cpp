#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <new>
#include <thread>
#include <vector>

#include <kvcore/platform/include/errors.h>
#include <kvcore/platform/include/synchapi.h>
#include <kvcore/platform/include/threadpool.h>
#include <kvcore/platform/linux/errors/ErrnoErrors.h>
#include <kvcore/platform/linux/sync/Thread.h>
#include <kvcore/platform/linux/threads/BackgroundThread.h>

using namespace kv::platform;

// There are two pools. Workers take items from one queue and end when there has been nothing to do for a while. The
// threads for requests live for ever, and get their items as procedure calls, each in a queue of its own: between two
// items, and in every alertable wait of an item, they call the completion routines that are due.

namespace
{

constexpr unsigned maxThreads = 512;
constexpr std::chrono::seconds longestRest{10};
/// So long may items lie in the queue with nobody taking any before a worker is added.
constexpr std::chrono::milliseconds patience{20};

struct RequestThread
{
    Ref<Thread> thread;
    unsigned items = 0;
    unsigned longItems = 0;
};

struct WorkItem : ProcedureCall
{
    LPTHREAD_START_ROUTINE function = nullptr;
    void * context = nullptr;
    bool isLong = false;
    RequestThread * requestThread = nullptr;
};

struct WorkPool
{
    std::mutex lock;
    std::condition_variable wakeUp;

    ProcedureCall * first = nullptr;
    ProcedureCall * last = nullptr;
    unsigned queued = 0;
    unsigned taken = 0;
    unsigned workers = 0;
    unsigned ready = 0; ///< of the workers: those that look for an item, or soon will
    bool isWatched = false;

    std::vector<RequestThread *> requestThreads;
};

/// Lives for ever, as its threads do.
WorkPool & ThePool()
{
    static WorkPool & pool = *new WorkPool;
    return pool;
}

/// Workers are made at once up to this number.
unsigned BaseWorkers()
{
    static unsigned const count = std::max(4u, std::thread::hardware_concurrency());
    return count;
}

WorkItem & TakeItem(WorkPool & pool)
{
    WorkItem & item = *static_cast<WorkItem *>(pool.first);
    pool.first = item.next;
    pool.last = pool.first != nullptr ? pool.last : nullptr;
    --pool.queued;
    ++pool.taken;
    return item;
}

DWORD WINAPI Work(LPVOID)
{
    WorkPool & pool = ThePool();
    std::unique_lock guard(pool.lock);
    while (pool.wakeUp.wait_for(guard, longestRest, [&pool] { return pool.first != nullptr; }))
    {
        WorkItem & item = TakeItem(pool);
        --pool.ready;
        guard.unlock();
        auto const function = item.function;
        void * const context = item.context;
        delete &item;
        function(context);
        guard.lock();
        ++pool.ready;
    }
    --pool.ready;
    --pool.workers;
    return 0;
}

/// The lock is held.
bool AddWorker(WorkPool & pool)
{
    if (pool.workers == maxThreads || !StartBackgroundThread(Work, nullptr))
    {
        return false;
    }
    ++pool.workers;
    ++pool.ready;
    return true;
}

/// Adds a worker whenever the queue stands still, until it is empty.
DWORD WINAPI Watch(LPVOID)
{
    WorkPool & pool = ThePool();
    std::unique_lock guard(pool.lock);
    while (pool.first != nullptr)
    {
        unsigned const takenBefore = pool.taken;
        guard.unlock();
        std::this_thread::sleep_for(patience);
        guard.lock();
        if (pool.taken == takenBefore && pool.first != nullptr)
        {
            AddWorker(pool);
        }
    }
    pool.isWatched = false;
    return 0;
}

/// The result is false, and the item not queued, if nobody will ever take it.
bool QueueToWorkers(WorkPool & pool, WorkItem & item)
{
    std::lock_guard const guard(pool.lock);
    bool const isCrowded = pool.queued >= pool.ready;
    if (isCrowded && (item.isLong || pool.workers < BaseWorkers()))
    {
        AddWorker(pool);
    }
    if (pool.workers == 0)
    {
        return false;
    }
    item.next = nullptr;
    (pool.last != nullptr ? pool.last->next : pool.first) = &item;
    pool.last = &item;
    ++pool.queued;
    pool.wakeUp.notify_one();
    if (pool.queued > pool.ready && !pool.isWatched)
    {
        pool.isWatched = static_cast<bool>(StartBackgroundThread(Watch, nullptr));
    }
    return true;
}

DWORD WINAPI ServeRequests(LPVOID)
{
    for (;;)
    {
        SleepEx(INFINITE, TRUE);
    }
}

void RunItem(ProcedureCall * call)
{
    WorkItem & item = *static_cast<WorkItem *>(call);
    item.function(item.context);
    {
        std::lock_guard const guard(ThePool().lock);
        --item.requestThread->items;
        item.requestThread->longItems -= item.isLong;
    }
    delete &item;
}

void DropItem(ProcedureCall * call) noexcept
{
    delete static_cast<WorkItem *>(call);
}

/// Null if the system makes no thread. The lock is held.
RequestThread * AddRequestThread(WorkPool & pool)
{
    auto added = std::make_unique<RequestThread>();
    pool.requestThreads.reserve(pool.requestThreads.size() + 1);
    added->thread = StartBackgroundThread(ServeRequests, nullptr);
    if (!added->thread)
    {
        return nullptr;
    }
    pool.requestThreads.push_back(added.get());
    return added.release();
}

/// The thread with the least to do. Nobody waits behind a long item, nor such an item behind another, while there may
/// be more threads. The lock is held.
RequestThread * ChooseRequestThread(WorkPool & pool, bool forLongItem)
{
    auto const isBusier = [](RequestThread const * left, RequestThread const * right)
    { return left->longItems != right->longItems ? left->longItems < right->longItems : left->items < right->items; };
    auto const best = std::min_element(pool.requestThreads.begin(), pool.requestThreads.end(), isBusier);
    if (best != pool.requestThreads.end())
    {
        bool const isFree = forLongItem ? (*best)->items == 0 : (*best)->longItems == 0;
        if (isFree || pool.requestThreads.size() == maxThreads)
        {
            return *best;
        }
    }
    RequestThread * const added = AddRequestThread(pool);
    return added != nullptr || best == pool.requestThreads.end() ? added : *best;
}

bool QueueToRequestThread(WorkPool & pool, WorkItem & item)
{
    std::lock_guard const guard(pool.lock);
    item.requestThread = ChooseRequestThread(pool, item.isLong);
    if (item.requestThread == nullptr)
    {
        return false;
    }
    ++item.requestThread->items;
    item.requestThread->longItems += item.isLong;
    item.run = RunItem;
    item.drop = DropItem;
    return item.requestThread->thread->Queue(static_cast<ProcedureCall &>(item));
}

} // namespace

BOOL WINAPI QueueUserWorkItem(LPTHREAD_START_ROUTINE function, LPVOID context, ULONG flags)
try
{
    if (function == nullptr)
    {
        return FailWith(ERROR_INVALID_PARAMETER);
    }
    auto item = std::make_unique<WorkItem>();
    item->function = function;
    item->context = context;
    item->isLong = (flags & WT_EXECUTELONGFUNCTION) != 0;
    bool const isForRequests = (flags & WT_EXECUTEINIOTHREAD) != 0;
    if (!(isForRequests ? QueueToRequestThread(ThePool(), *item) : QueueToWorkers(ThePool(), *item)))
    {
        return FailWith(ERROR_NOT_ENOUGH_MEMORY);
    }
    item.release();
    return TRUE;
}
catch (std::bad_alloc const &)
{
    return FailWith(ERROR_NOT_ENOUGH_MEMORY);
}
