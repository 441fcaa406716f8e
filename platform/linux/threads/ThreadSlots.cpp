#include <atomic>
#include <mutex>
#include <new>

#include <pthread.h>

#include <kvcore/platform/include/errors.h>
#include <kvcore/platform/include/processthreadsapi.h>
#include <kvcore/platform/linux/errors/ErrnoErrors.h>

using namespace kv::platform;

namespace
{

constexpr DWORD slotsInThread = TLS_MINIMUM_AVAILABLE;
constexpr DWORD slotsBehind = 1024;
constexpr DWORD slotsInAll = slotsInThread + slotsBehind;

/// A value counts for the use of its slot in which it was set: what a thread stored before the slot was given back, or
/// between two uses, reads as null in the next. So nobody has to visit the other threads.
struct Value
{
    void * pointer;
    std::uint32_t use;
};

struct Values
{
    Value values[slotsBehind];
};

std::atomic<std::uint32_t> uses[slotsInAll];

struct SlotsInUse
{
    std::mutex lock;
    bool taken[slotsInAll] = {};
};

/// Lives for ever: threads come and go until the process is gone.
SlotsInUse & InUse()
{
    static SlotsInUse & slots = *new SlotsInUse;
    return slots;
}

constinit thread_local Value valuesInThread[slotsInThread] = {};
constinit thread_local Values * valuesBehind = nullptr;

/// Values behind the first few are released by a key of the system's, whose turn comes after all thread-local objects
/// of the thread, for these may still read slots.
bool MakeValuesBehind()
{
    static pthread_key_t const key = []
    {
        pthread_key_t made = 0;
        pthread_key_create(
            &made,
            [](void * values)
            {
                delete static_cast<Values *>(values);
                valuesBehind = nullptr;
            });
        return made;
    }();
    Values * const made = new (std::nothrow) Values{};
    if (made == nullptr || pthread_setspecific(key, made) != 0)
    {
        delete made;
        return false;
    }
    valuesBehind = made;
    return true;
}

/// Null if the thread has no room for the value yet.
Value * FindValue(DWORD slot)
{
    if (slot < slotsInThread)
    {
        return &valuesInThread[slot];
    }
    return valuesBehind != nullptr ? &valuesBehind->values[slot - slotsInThread] : nullptr;
}

} // namespace

DWORD WINAPI TlsAlloc()
{
    SlotsInUse & slots = InUse();
    std::lock_guard const guard(slots.lock);
    for (DWORD slot = 0; slot < slotsInAll; ++slot)
    {
        if (!slots.taken[slot])
        {
            slots.taken[slot] = true;
            uses[slot].fetch_add(1, std::memory_order_relaxed);
            return slot;
        }
    }
    SetLastError(ERROR_NO_MORE_ITEMS);
    return TLS_OUT_OF_INDEXES;
}

BOOL WINAPI TlsFree(DWORD slot)
{
    SlotsInUse & slots = InUse();
    std::lock_guard const guard(slots.lock);
    if (slot >= slotsInAll || !slots.taken[slot])
    {
        return FailWith(ERROR_INVALID_PARAMETER);
    }
    slots.taken[slot] = false;
    uses[slot].fetch_add(1, std::memory_order_relaxed);
    return TRUE;
}

LPVOID WINAPI TlsGetValue(DWORD slot)
{
    if (slot >= slotsInAll)
    {
        SetLastError(ERROR_INVALID_PARAMETER);
        return nullptr;
    }
    SetLastError(ERROR_SUCCESS);
    Value const * const value = FindValue(slot);
    return value != nullptr && value->use == uses[slot].load(std::memory_order_relaxed) ? value->pointer : nullptr;
}

BOOL WINAPI TlsSetValue(DWORD slot, LPVOID pointer)
{
    if (slot >= slotsInAll)
    {
        return FailWith(ERROR_INVALID_PARAMETER);
    }
    Value * value = FindValue(slot);
    if (value == nullptr)
    {
        if (!MakeValuesBehind())
        {
            return FailWith(ERROR_NOT_ENOUGH_MEMORY);
        }
        value = FindValue(slot);
    }
    *value = {pointer, uses[slot].load(std::memory_order_relaxed)};
    return TRUE;
}
