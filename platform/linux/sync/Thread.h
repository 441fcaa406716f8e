#pragma once

// The calling thread as an object: what is queued to it, and how it waits.

#include <atomic>
#include <condition_variable>

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

    /// Where the thread sleeps; used with the wait functions' lock.
    std::condition_variable wakeUp;

private:
    ~Thread() override = default;

    std::atomic<bool> hasCalls{false};
    // Guarded by the wait functions' lock.
    ProcedureCall * firstCall = nullptr;
    ProcedureCall * lastCall = nullptr;
    bool ended = false;
};

} // namespace kv::platform
