#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <map>
#include <mutex>
#include <new>

#include <kvcore/platform/include/mmtimer.h>
#include <kvcore/platform/include/synchapi.h>
#include <kvcore/platform/linux/threads/BackgroundThread.h>

using namespace kv::platform;

namespace
{

using Clock = std::chrono::steady_clock;

constexpr UINT longestDelay = 1'000'000;

struct Timer
{
    LPTIMECALLBACK callback;
    DWORD_PTR user;
    UINT flags;
    std::chrono::milliseconds delay;
    Clock::time_point due;
};

struct Timers
{
    std::mutex lock;
    std::condition_variable changed;
    std::condition_variable callEnded;
    std::map<UINT, Timer> byId;
    UINT lastId = 0;
    Ref<Thread> thread;
    UINT runningId = 0; ///< whose procedure is being called, or 0
    bool isRunningAwaited = false;
};

/// Lives for ever, as its thread does.
Timers & TheTimers()
{
    static Timers & timers = *new Timers;
    return timers;
}

bool IsOnTimerThread(Timers const & timers)
{
    return Thread::CurrentIfAny() == timers.thread.Get();
}

/// Calls a timer's procedure and sees to its next call. The lock is held, but not during the call.
void Fire(Timers & timers, UINT id, Timer & timer, std::unique_lock<std::mutex> & guard)
{
    Timer const copy = timer; // the procedure may end the timer
    timers.runningId = id;
    timers.isRunningAwaited = (copy.flags & TIME_KILL_SYNCHRONOUS) != 0;
    guard.unlock();
    if ((copy.flags & TIME_CALLBACK_EVENT_SET) != 0)
    {
        SetEvent(reinterpret_cast<HANDLE>(copy.callback));
    }
    else
    {
        copy.callback(id, 0, copy.user, 0, 0);
    }
    guard.lock();
    timers.runningId = 0;
    timers.callEnded.notify_all();
    auto const found = timers.byId.find(id);
    if (found == timers.byId.end())
    {
        return;
    }
    if ((copy.flags & TIME_PERIODIC) == 0)
    {
        timers.byId.erase(found);
        return;
    }
    // What was missed is not called again and again, or a slow procedure would keep all others from their turns.
    found->second.due = std::max(copy.due + copy.delay, Clock::now());
}

DWORD WINAPI RunTimers(LPVOID)
{
    SetThreadPriority(GetCurrentThread(), THREAD_PRIORITY_TIME_CRITICAL);
    Timers & timers = TheTimers();
    std::unique_lock guard(timers.lock);
    for (;;)
    {
        auto const next = std::min_element(
            timers.byId.begin(), timers.byId.end(),
            [](auto const & left, auto const & right) { return left.second.due < right.second.due; });
        if (next == timers.byId.end())
        {
            timers.changed.wait(guard);
        }
        else if (Clock::time_point const due = next->second.due; due > Clock::now())
        {
            timers.changed.wait_until(guard, due);
        }
        else
        {
            Fire(timers, next->first, next->second, guard);
        }
    }
}

/// A number that no timer has. The lock is held.
UINT NextId(Timers & timers)
{
    do
    {
        ++timers.lastId;
    } while (timers.lastId == 0 || timers.byId.contains(timers.lastId));
    return timers.lastId;
}

} // namespace

MMRESULT WINAPI timeSetEvent(UINT delay, UINT, LPTIMECALLBACK callback, DWORD_PTR user, UINT flags)
try
{
    constexpr UINT known = TIME_PERIODIC | TIME_CALLBACK_EVENT_SET | TIME_KILL_SYNCHRONOUS;
    if (delay == 0 || delay > longestDelay || callback == nullptr || (flags & ~known) != 0)
    {
        return 0;
    }
    std::chrono::milliseconds const span(delay);
    Timers & timers = TheTimers();
    std::lock_guard const guard(timers.lock);
    if (!timers.thread)
    {
        timers.thread = StartBackgroundThread(RunTimers, nullptr);
        if (!timers.thread)
        {
            return 0;
        }
    }
    UINT const id = NextId(timers);
    timers.byId.emplace(id, Timer{callback, user, flags, span, Clock::now() + span});
    timers.changed.notify_one();
    return id;
}
catch (std::bad_alloc const &)
{
    return 0;
}

MMRESULT WINAPI timeKillEvent(UINT id)
{
    Timers & timers = TheTimers();
    std::unique_lock guard(timers.lock);
    MMRESULT const result = id != 0 && timers.byId.erase(id) != 0 ? TIMERR_NOERROR : TIMERR_NOCANDO;
    // Also for a timer that has ended: it may have been its own procedure that ended it, and that may still run.
    if (id != 0 && timers.runningId == id && timers.isRunningAwaited && !IsOnTimerThread(timers))
    {
        timers.callEnded.wait(guard, [&timers, id] { return timers.runningId != id; });
    }
    return result;
}
