#pragma once

// Signals that end the process, put off while their thread holds what the end would wait for.

#include <atomic>

namespace kv::platform
{

/// What a thread tells the handler of such a signal, which interrupts it anywhere. Only the thread itself changes it.
struct EndShield
{
    /// How many locks, and groups of writes, the thread has at the moment that other threads need to finish requests.
    std::atomic<int> depth{0};
    /// How many of these are groups of writes.
    int groups = 0;
    /// The signal that came meanwhile, or 0.
    std::atomic<int> signal{0};
};

extern thread_local constinit EndShield endShield [[gnu::tls_model("initial-exec"), gnu::visibility("hidden")]];

/// Ends the process by the signal that was put off.
[[gnu::cold, gnu::noinline]] void EndByDeferredSignal() noexcept;

inline void DeferEnd() noexcept
{
    endShield.depth.store(endShield.depth.load(std::memory_order_relaxed) + 1, std::memory_order_relaxed);
    std::atomic_signal_fence(std::memory_order_seq_cst);
}

inline void AllowEnd() noexcept
{
    std::atomic_signal_fence(std::memory_order_seq_cst);
    int const depth = endShield.depth.load(std::memory_order_relaxed) - 1;
    endShield.depth.store(depth, std::memory_order_relaxed);
    std::atomic_signal_fence(std::memory_order_seq_cst);
    if (depth == 0 && endShield.signal.load(std::memory_order_relaxed) != 0) [[unlikely]]
    {
        EndByDeferredSignal();
    }
}

} // namespace kv::platform
