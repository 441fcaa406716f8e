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

// The first to look at a section meets a pointer that leads nowhere. So these are the compiler's own operations: the
// C++ library's promise never to throw, and the program would end instead of the call.

bool Owns(CRITICAL_SECTION const & section, HANDLE self)
{
    return __atomic_load_n(&section.OwningThread, __ATOMIC_RELAXED) == self;
}

void Own(CRITICAL_SECTION & section, HANDLE self)
{
    __atomic_store_n(&section.OwningThread, self, __ATOMIC_RELAXED);
    section.RecursionCount = 1;
}

bool TryTake(CRITICAL_SECTION & section)
{
    LONG expected = isFree;
    return __atomic_compare_exchange_n(
        &section.LockCount, &expected, isHeld, false, __ATOMIC_ACQUIRE, __ATOMIC_RELAXED);
}

/// Apart, so that the usual case is short.
[[gnu::noinline]] void TakeSlowly(CRITICAL_SECTION & section)
{
    std::atomic_ref<LONG> const state(section.LockCount);
    for (ULONG_PTR spins = section.SpinCount; spins != 0; --spins)
    {
        if (state.load(std::memory_order_relaxed) == isFree && TryTake(section))
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
    if (!TryTake(*section))
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
    if (!TryTake(*section))
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
    __atomic_store_n(&section->OwningThread, HANDLE{nullptr}, __ATOMIC_RELAXED);
    if (__atomic_exchange_n(&section->LockCount, isFree, __ATOMIC_RELEASE) == isAwaited)
    {
        WakeOne(*section);
    }
}

void WINAPI DeleteCriticalSection(CRITICAL_SECTION * section)
{
    *section = {};
}
