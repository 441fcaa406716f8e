#include <atomic>

#include <kvcore/platform/include/synchapi.h>

// LockCount is 0 while nobody holds the section, 1 while somebody does, 2 while somebody does and others may sleep. The
// owner is known by the address of a variable of its thread, which stays right in a forked child.

namespace
{

constexpr LONG isFree = 0;
constexpr LONG isHeld = 1;
constexpr LONG isAwaited = 2;

HANDLE Self()
{
    [[gnu::tls_model("initial-exec")]] static thread_local char mark;
    return &mark;
}

bool Owns(CRITICAL_SECTION & section, HANDLE self)
{
    return std::atomic_ref<HANDLE>(section.OwningThread).load(std::memory_order_relaxed) == self;
}

void Own(CRITICAL_SECTION & section, HANDLE self)
{
    std::atomic_ref<HANDLE>(section.OwningThread).store(self, std::memory_order_relaxed);
    section.RecursionCount = 1;
}

bool TryTake(std::atomic_ref<LONG> state)
{
    LONG expected = isFree;
    return state.compare_exchange_strong(expected, isHeld, std::memory_order_acquire, std::memory_order_relaxed);
}

/// Apart, so that the usual case is short.
[[gnu::noinline]] void TakeSlowly(CRITICAL_SECTION & section)
{
    std::atomic_ref<LONG> const state(section.LockCount);
    for (ULONG_PTR spins = section.SpinCount; spins != 0; --spins)
    {
        if (state.load(std::memory_order_relaxed) == isFree && TryTake(state))
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

[[gnu::noinline]] void WakeOne(CRITICAL_SECTION & section)
{
    std::atomic_ref<LONG>(section.LockCount).notify_one();
}

} // namespace

void WINAPI InitializeCriticalSection(CRITICAL_SECTION * section)
{
    *section = {};
}

BOOL WINAPI InitializeCriticalSectionAndSpinCount(CRITICAL_SECTION * section, DWORD spinCount)
{
    *section = {};
    section->SpinCount = spinCount;
    return TRUE;
}

void WINAPI EnterCriticalSection(CRITICAL_SECTION * section)
{
    HANDLE const self = Self();
    if (Owns(*section, self))
    {
        ++section->RecursionCount;
        return;
    }
    if (!TryTake(std::atomic_ref<LONG>(section->LockCount)))
    {
        TakeSlowly(*section);
    }
    Own(*section, self);
}

BOOL WINAPI TryEnterCriticalSection(CRITICAL_SECTION * section)
{
    HANDLE const self = Self();
    if (Owns(*section, self))
    {
        ++section->RecursionCount;
        return TRUE;
    }
    if (!TryTake(std::atomic_ref<LONG>(section->LockCount)))
    {
        return FALSE;
    }
    Own(*section, self);
    return TRUE;
}

void WINAPI LeaveCriticalSection(CRITICAL_SECTION * section)
{
    if (--section->RecursionCount != 0)
    {
        return;
    }
    std::atomic_ref<HANDLE>(section->OwningThread).store(nullptr, std::memory_order_relaxed);
    if (std::atomic_ref<LONG>(section->LockCount).exchange(isFree, std::memory_order_release) == isAwaited)
    {
        WakeOne(*section);
    }
}

void WINAPI DeleteCriticalSection(CRITICAL_SECTION * section)
{
    *section = {};
}
