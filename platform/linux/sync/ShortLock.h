#pragma once

#include <atomic>

#include <kvcore/platform/linux/sync/EndShield.h>

namespace kv::platform
{

/// A lock for what takes some dozen instructions and is taken often. Whoever finds it taken looks again for a while
/// before sleeping: one that sleeps would come too late each time, and each of the others' calls would wake it.
///
/// A signal that ends the process is put off while its thread has the lock: the end waits for threads that need it.
///
/// Not recursive. In a forked child it is as it was at the fork.
class ShortLock
{
public:
    ShortLock() = default;
    ShortLock(ShortLock const &) = delete;
    ShortLock & operator=(ShortLock const &) = delete;

    // The names that std::lock_guard wants.
    void lock() noexcept
    {
        DeferEnd();
        if (!TryTake())
        {
            TakeSlowly();
        }
    }
    void unlock() noexcept
    {
        if (state.exchange(isFree, std::memory_order_release) == isAwaited)
        {
            state.notify_one();
        }
        AllowEnd();
    }
    bool try_lock() noexcept
    {
        DeferEnd();
        bool const isTaken = TryTake();
        if (!isTaken)
        {
            AllowEnd();
        }
        return isTaken;
    }

private:
    static constexpr int isFree = 0;
    static constexpr int isHeld = 1;
    static constexpr int isAwaited = 2; // held, and others may sleep
    static constexpr int looksBeforeSleep = 500;

    bool TryTake() noexcept
    {
        int expected = isFree;
        return state.compare_exchange_strong(expected, isHeld, std::memory_order_acquire, std::memory_order_relaxed);
    }
    [[gnu::noinline]] void TakeSlowly() noexcept
    {
        for (int looks = 0; looks < looksBeforeSleep; ++looks)
        {
            if (state.load(std::memory_order_relaxed) == isFree && TryTake())
            {
                return;
            }
            __builtin_ia32_pause();
        }
        while (state.exchange(isAwaited, std::memory_order_acquire) != isFree)
        {
            state.wait(isAwaited, std::memory_order_relaxed);
        }
    }

    std::atomic<int> state{isFree};
};

} // namespace kv::platform
