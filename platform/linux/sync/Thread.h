#pragma once

// The calling thread as an object: what is queued to it, and how it waits.

#include <atomic>
#include <condition_variable>

#include <kvcore/platform/include/processthreadsapi.h>
#include <kvcore/platform/include/synchapi.h>
#include <kvcore/platform/linux/files/Handles.h>

namespace kv::platform
{

/// A call that waits for its thread. Whoever queues it owns the memory until `run`, which frees it, or `drop`.
struct ProcedureCall
{
    ProcedureCall * next = nullptr;
    void (*run)(ProcedureCall * call) = nullptr;
    void (*drop)(ProcedureCall * call) noexcept = nullptr;
};

struct TransferRequest;

class Thread final : public Waitable
{
public:
    static constexpr ObjectKind kind = ObjectKind::Thread;
    static constexpr DWORD allAccess = 0x001FFFFFu;

    Thread() noexcept : Waitable(kind) {}

    /// The calling thread's object, made on first use.
    static Thread & Current() noexcept;
    /// The same, or null if there is none yet.
    static Thread * CurrentIfAny() noexcept;

    bool IsSignalled() const noexcept override
    {
        return ended;
    }

    /// Makes the object the calling thread's, at the thread's begin. Keeps the reference until its end.
    static Thread & BecomeCurrent(Ref<Thread> thread) noexcept;

    /// The system's number of the thread. Waits for a new thread to know it.
    DWORD Id() const noexcept;

    /// Begins with this many suspensions. Before the thread is made.
    void Suspend(DWORD times) noexcept
    {
        suspensions = times;
    }
    /// Takes one away. Gives how many there were.
    DWORD Resume() noexcept;
    /// Waits until there is none. On this thread, at its begin; gives the priority to begin with.
    int AwaitResume() noexcept;

    /// One of the THREAD_PRIORITY values.
    void SetPriority(int newPriority) noexcept;
    int Priority() const noexcept;

    /// What the thread ends with; seen by others once it has ended.
    void SetExitCode(DWORD code) noexcept;
    DWORD ExitCode() const noexcept;

    /// Appends a call. False if the thread has ended.
    bool Queue(ProcedureCall & call) noexcept;
    /// The same for a whole chain, which is linked by `next` and ends with `last`.
    bool Queue(ProcedureCall & first, ProcedureCall & last) noexcept;

    /// Whether a call is due. Costs one load.
    bool HasCalls() const noexcept
    {
        return hasCalls.load(std::memory_order_acquire);
    }
    /// Makes the calls that are due, one after the other; those that come meanwhile, too. On this thread only. False if
    /// there was none.
    bool RunCalls();

    /// Signals the object and drops what is queued.
    void End() noexcept;

    /// The overlapped requests that the thread made and that are not finished.
    std::atomic<unsigned> requests{0};
    /// Those of them that have not begun; guarded by the request pool's lock.
    TransferRequest * firstQueued = nullptr;
    /// Cancels or awaits them. The request pool sets it with the thread's first request; the end of the thread calls
    /// it.
    void (*finishRequests)(Thread & thread) noexcept = nullptr;

    /// Where the thread sleeps; used with the wait functions' lock.
    std::condition_variable wakeUp;

private:
    ~Thread() override = default;

    std::atomic<bool> hasCalls{false};
    std::atomic<DWORD> id{0};
    // Guarded by the wait functions' lock.
    ProcedureCall * firstCall = nullptr;
    ProcedureCall * lastCall = nullptr;
    DWORD suspensions = 0;
    int priority = THREAD_PRIORITY_NORMAL;
    DWORD exitCode = 0;
    bool hasBegun = false;
    bool ended = false;
};

} // namespace kv::platform
