#include "Waits.h"

#include <atomic>
#include <chrono>
#include <thread>

#include "Thread.h"
#include <kvcore/platform/include/errors.h>
#include <kvcore/platform/include/synchapi.h>
#include <kvcore/platform/linux/errors/ErrnoErrors.h>
#include <kvcore/platform/linux/memory/CallerMemory.h>

// Who signals an object ends the waits for it there and then, under the lock: a wait that was satisfied stays so, even
// if the object is reset before the waiting thread runs.

namespace kv::platform
{

namespace
{

struct Waiter;

} // namespace

struct WaitNode
{
    Waiter * waiter = nullptr;
    WaitNode * next = nullptr;
    WaitNode * previous = nullptr;
};

namespace
{

using Clock = std::chrono::steady_clock;

/// One wait, on the stack of the thread that waits.
struct Waiter
{
    Thread * thread = nullptr;
    Ref<Waitable> objects[MAXIMUM_WAIT_OBJECTS];
    WaitNode nodes[MAXIMUM_WAIT_OBJECTS];
    DWORD count = 0;
    bool forAll = false;
    bool isSatisfied = false;
    DWORD result = WAIT_OBJECT_0;
    Waiter * nextRegistered = nullptr;
    Waiter * previousRegistered = nullptr;
};

/// Those whose objects have nodes.
Waiter * firstRegistered = nullptr;

/// There before any code runs, and never destroyed.
constinit std::mutex waitLock;

/// How many threads are in a wait for objects. Who looks at it has signalled before, who counts himself looks at the
/// objects after.
std::atomic<unsigned> waitersInAll{0};

/// Ends the wait if it can end: takes the signals and sets the result.
bool TrySatisfy(Waiter & waiter)
{
    DWORD const first = [&waiter]
    {
        for (DWORD i = 0; i < waiter.count; ++i)
        {
            if (waiter.objects[i]->IsSignalled() != waiter.forAll)
            {
                return i;
            }
        }
        return waiter.count;
    }();
    if ((first == waiter.count) != waiter.forAll)
    {
        return false;
    }
    if (waiter.forAll)
    {
        for (DWORD i = 0; i < waiter.count; ++i)
        {
            waiter.objects[i]->TakeSignal();
        }
        waiter.result = WAIT_OBJECT_0;
    }
    else
    {
        waiter.objects[first]->TakeSignal();
        waiter.result = WAIT_OBJECT_0 + first;
    }
    waiter.isSatisfied = true;
    return true;
}

/// The nodes of an object are a ring, `firstWaiter` the oldest.
void Link(WaitNode & node, Waitable & object)
{
    if (object.firstWaiter == nullptr)
    {
        node.next = node.previous = &node;
        object.firstWaiter = &node;
        return;
    }
    node.next = object.firstWaiter;
    node.previous = node.next->previous;
    node.previous->next = &node;
    node.next->previous = &node;
}

void Unlink(WaitNode & node, Waitable & object)
{
    if (node.next == &node)
    {
        object.firstWaiter = nullptr;
        return;
    }
    node.next->previous = node.previous;
    node.previous->next = node.next;
    if (object.firstWaiter == &node)
    {
        object.firstWaiter = node.next;
    }
}

/// The objects of a waiter have nodes for as long as this lives. The lock is held at both ends.
class Registration
{
public:
    explicit Registration(Waiter & waiterToLink) noexcept : waiter(waiterToLink)
    {
        for (DWORD i = 0; i < waiter.count; ++i)
        {
            waiter.nodes[i].waiter = &waiter;
            Link(waiter.nodes[i], *waiter.objects[i]);
        }
        waiter.nextRegistered = firstRegistered;
        if (firstRegistered != nullptr)
        {
            firstRegistered->previousRegistered = &waiter;
        }
        firstRegistered = &waiter;
    }
    Registration(Registration const &) = delete;
    Registration & operator=(Registration const &) = delete;
    ~Registration()
    {
        for (DWORD i = 0; i < waiter.count; ++i)
        {
            Unlink(waiter.nodes[i], *waiter.objects[i]);
        }
        Waiter *& fromBefore =
            waiter.previousRegistered != nullptr ? waiter.previousRegistered->nextRegistered : firstRegistered;
        fromBefore = waiter.nextRegistered;
        if (waiter.nextRegistered != nullptr)
        {
            waiter.nextRegistered->previousRegistered = waiter.previousRegistered;
        }
    }

private:
    Waiter & waiter;
};

/// Sleeps until the wait is satisfied, the time is over, or, if alertable, calls are due. The lock is held.
/// False if the time is over.
bool SleepFor(
    Waiter & waiter, std::unique_lock<std::mutex> & guard, Clock::time_point end, bool forEver, bool alertable)
{
    Thread & thread = *waiter.thread;
    while (!waiter.isSatisfied && !(alertable && thread.HasCalls()))
    {
        if (forEver)
        {
            thread.wakeUp.wait(guard);
        }
        else if (thread.wakeUp.wait_until(guard, end) == std::cv_status::timeout)
        {
            return waiter.isSatisfied || (alertable && thread.HasCalls());
        }
    }
    return true;
}

/// The wait itself, for the objects that the waiter names; none of them if it only sleeps. Signals go before calls, as
/// on Windows.
DWORD Wait(Waiter & waiter, DWORD milliseconds, bool alertable)
{
    waiter.thread = &Thread::Current();
    bool timedOut = false;
    waitersInAll.fetch_add(1, std::memory_order_seq_cst);
    {
        std::unique_lock guard(WaitLock());
        if ((waiter.count == 0 || !TrySatisfy(waiter)) && !(alertable && waiter.thread->HasCalls()))
        {
            Registration const registration(waiter);
            timedOut = milliseconds == 0 ||
                !SleepFor(waiter, guard, Clock::now() + std::chrono::milliseconds(milliseconds),
                          milliseconds == INFINITE, alertable);
        }
    }
    waitersInAll.fetch_sub(1, std::memory_order_relaxed);
    if (waiter.isSatisfied)
    {
        return waiter.result;
    }
    if (!timedOut && waiter.thread->RunCalls())
    {
        return WAIT_IO_COMPLETION;
    }
    return WAIT_TIMEOUT;
}

} // namespace

std::mutex & WaitLock() noexcept
{
    return waitLock;
}

void WakeWaiters(Waitable & object) noexcept
{
    WaitNode * node = object.firstWaiter;
    if (node == nullptr)
    {
        return;
    }
    WaitNode * const last = node->previous;
    for (;; node = node->next)
    {
        Waiter & waiter = *node->waiter;
        if (!waiter.isSatisfied && TrySatisfy(waiter))
        {
            waiter.thread->wakeUp.notify_one();
        }
        if (node == last || !object.IsSignalled())
        {
            return;
        }
    }
}

void WakeWaitersIfAny(Waitable & object) noexcept
{
    if (waitersInAll.load(std::memory_order_seq_cst) != 0)
    {
        std::lock_guard const guard(WaitLock());
        if (object.IsSignalled())
        {
            WakeWaiters(object);
        }
    }
}

void ForgetWaits() noexcept
{
    for (Waiter const * waiter = firstRegistered; waiter != nullptr; waiter = waiter->nextRegistered)
    {
        for (DWORD i = 0; i < waiter->count; ++i)
        {
            waiter->objects[i]->firstWaiter = nullptr;
        }
    }
    firstRegistered = nullptr;
    waitersInAll.store(0, std::memory_order_relaxed);
}

} // namespace kv::platform

using namespace kv::platform;

DWORD WINAPI WaitForSingleObject(HANDLE object, DWORD milliseconds)
{
    return WaitForMultipleObjectsEx(1, &object, FALSE, milliseconds, FALSE);
}

DWORD WINAPI WaitForSingleObjectEx(HANDLE object, DWORD milliseconds, BOOL alertable)
{
    return WaitForMultipleObjectsEx(1, &object, FALSE, milliseconds, alertable);
}

DWORD WINAPI WaitForMultipleObjects(DWORD count, HANDLE const * objects, BOOL waitForAll, DWORD milliseconds)
{
    CheckArray(objects, count <= MAXIMUM_WAIT_OBJECTS ? count : 0);
    return WaitForMultipleObjectsEx(count, objects, waitForAll, milliseconds, FALSE);
}

DWORD WINAPI
WaitForMultipleObjectsEx(DWORD count, HANDLE const * objects, BOOL waitForAll, DWORD milliseconds, BOOL alertable)
{
    CheckArray(objects, count <= MAXIMUM_WAIT_OBJECTS ? count : 0);
    if (count == 0 || count > MAXIMUM_WAIT_OBJECTS)
    {
        FailWith(ERROR_INVALID_PARAMETER);
        return WAIT_FAILED;
    }
    Waiter waiter;
    for (DWORD i = 0; i < count; ++i)
    {
        if (objects[i] == GetCurrentThread())
        {
            waiter.objects[i] = Ref<Waitable>(&Thread::Current());
            continue;
        }
        auto const object = LookUpWaitable(objects[i]);
        if (!object)
        {
            return WAIT_FAILED;
        }
        waiter.objects[i] = Ref<Waitable>(object.Get());
    }
    waiter.count = count;
    waiter.forAll = waitForAll != FALSE;
    return Wait(waiter, milliseconds, alertable != FALSE);
}

void WINAPI Sleep(DWORD milliseconds)
{
    if (milliseconds == 0)
    {
        std::this_thread::yield();
        return;
    }
    SleepEx(milliseconds, FALSE);
}

DWORD WINAPI SleepEx(DWORD milliseconds, BOOL alertable)
{
    if (milliseconds == 0)
    {
        Thread * const thread = Thread::CurrentIfAny();
        return alertable && thread != nullptr && thread->RunCalls() ? WAIT_IO_COMPLETION : 0;
    }
    Waiter nothing;
    return Wait(nothing, milliseconds, alertable != FALSE) == WAIT_IO_COMPLETION ? WAIT_IO_COMPLETION : 0;
}
