#include "Handles.h"

#include <mutex>
#include <new>

#include <kvcore/platform/include/errors.h>

namespace kv::platform
{

namespace
{

constexpr unsigned slotsPerChunk = 1024;
constexpr unsigned maxChunks = 4096;
constexpr std::uint64_t addressMask = (std::uint64_t{1} << 48) - 1;
constexpr std::uint64_t closedBit = std::uint64_t{1} << 48;
constexpr std::uint64_t onePin = std::uint64_t{1} << 49;
constexpr std::uint64_t pinMask = ~(onePin - 1);

/// Chunks come when they are needed and stay for good, so that a stale handle can be looked up at any time.
struct Chunk
{
    HandleSlot slots[slotsPerChunk];
};

std::atomic<Chunk *> chunks[maxChunks];

/// Guards what follows. Only creating and the end of closing come here.
std::mutex freeMutex;
constexpr std::uint32_t noSlot = 0xFFFFFFFFu;
std::uint32_t firstFree = noSlot;
std::uint32_t slotsMade = 0;

HandleSlot & SlotAt(std::uint32_t index)
{
    return chunks[index / slotsPerChunk].load(std::memory_order_acquire)->slots[index % slotsPerChunk];
}

HANDLE HandleOf(std::uint32_t index)
{
    return reinterpret_cast<HANDLE>((static_cast<ULONG_PTR>(index) + 1) * 4);
}

/// The index of a handle's slot, or noSlot for what cannot be a handle.
std::uint32_t IndexOf(HANDLE handle)
{
    ULONG_PTR const value = reinterpret_cast<ULONG_PTR>(handle);
    if (value == 0 || value % 4 != 0 || value / 4 > ULONG_PTR{maxChunks} * slotsPerChunk)
    {
        return noSlot;
    }
    return static_cast<std::uint32_t>(value / 4 - 1);
}

HandleSlot * FindSlot(HANDLE handle)
{
    std::uint32_t const index = IndexOf(handle);
    if (index == noSlot)
    {
        return nullptr;
    }
    Chunk * const chunk = chunks[index / slotsPerChunk].load(std::memory_order_acquire);
    return chunk != nullptr ? &chunk->slots[index % slotsPerChunk] : nullptr;
}

/// The slot freed last, or a new one; noSlot with the last error set.
std::uint32_t TakeSlot()
{
    std::lock_guard const guard(freeMutex);
    if (firstFree != noSlot)
    {
        std::uint32_t const index = firstFree;
        firstFree = SlotAt(index).nextFree;
        return index;
    }
    if (slotsMade == maxChunks * slotsPerChunk)
    {
        SetLastError(ERROR_NO_SYSTEM_RESOURCES);
        return noSlot;
    }
    if (slotsMade % slotsPerChunk == 0)
    {
        Chunk * const chunk = new (std::nothrow) Chunk;
        if (chunk == nullptr)
        {
            SetLastError(ERROR_NOT_ENOUGH_MEMORY);
            return noSlot;
        }
        for (std::uint32_t i = 0; i < slotsPerChunk; ++i)
        {
            chunk->slots[i].index = slotsMade + i;
        }
        chunks[slotsMade / slotsPerChunk].store(chunk, std::memory_order_release);
    }
    return slotsMade++;
}

void GiveBack(HandleSlot * slot)
{
    std::lock_guard const guard(freeMutex);
    slot->nextFree = firstFree;
    firstFree = slot->index;
}

} // namespace

KernelObject * HandleTable::ObjectOf(HandleSlot const * slot) noexcept
{
    return reinterpret_cast<KernelObject *>(slot->state.load(std::memory_order_relaxed) & addressMask);
}

HANDLE HandleTable::Create(KernelObject & object, DWORD access) noexcept
{
    std::uint32_t const index = TakeSlot();
    if (index == noSlot)
    {
        return nullptr;
    }
    object.AddRef();
    object.handles.fetch_add(1, std::memory_order_relaxed);
    HandleSlot & slot = SlotAt(index);
    slot.access = access;
    // Added and not stored: a look-up of a stale handle may have its pin here for a moment.
    slot.state.fetch_add(reinterpret_cast<std::uint64_t>(&object), std::memory_order_release);
    return HandleOf(index);
}

BOOL HandleTable::Close(HANDLE handle) noexcept
{
    HandleSlot * const slot = Pin(handle);
    if (slot == nullptr)
    {
        FailInvalidHandle();
        return FALSE;
    }
    bool const wasClosed = (slot->state.fetch_or(closedBit, std::memory_order_acq_rel) & closedBit) != 0;
    Unpin(slot);
    if (wasClosed) // by another thread, just now
    {
        FailInvalidHandle();
        return FALSE;
    }
    return TRUE;
}

HandleSlot * HandleTable::Pin(HANDLE handle) noexcept
{
    HandleSlot * const slot = FindSlot(handle);
    if (slot == nullptr)
    {
        return nullptr;
    }
    std::uint64_t const state = slot->state.fetch_add(onePin, std::memory_order_acquire);
    if ((state & addressMask) == 0 || (state & closedBit) != 0)
    {
        Unpin(slot);
        return nullptr;
    }
    return slot;
}

void HandleTable::Unpin(HandleSlot * slot) noexcept
{
    std::uint64_t state = slot->state.fetch_sub(onePin, std::memory_order_acq_rel) - onePin;
    if ((state & closedBit) == 0 || (state & pinMask) != 0)
    {
        return;
    }
    // The last pin of a closed handle empties the slot, unless another look-up has come meanwhile, which then does it.
    if (slot->state.compare_exchange_strong(state, 0, std::memory_order_acq_rel))
    {
        auto * const object = reinterpret_cast<KernelObject *>(state & addressMask);
        GiveBack(slot);
        if (object->handles.fetch_sub(1, std::memory_order_acq_rel) == 1)
        {
            object->LastHandleClosed();
        }
        object->Release();
    }
}

void FailInvalidHandle() noexcept
{
    SetLastError(ERROR_INVALID_HANDLE);
}

Pinned<Waitable> LookUpWaitable(HANDLE handle) noexcept
{
    if (HandleSlot * const slot = HandleTable::Pin(handle))
    {
        if (Waitable * const object = HandleTable::ObjectOf(slot)->AsWaitable())
        {
            return Pinned<Waitable>(slot, object);
        }
        HandleTable::Unpin(slot);
    }
    FailInvalidHandle();
    return {};
}

Pinned<KernelObject> LookUpObject(HANDLE handle) noexcept
{
    if (HandleSlot * const slot = HandleTable::Pin(handle))
    {
        return Pinned<KernelObject>(slot, HandleTable::ObjectOf(slot));
    }
    FailInvalidHandle();
    return {};
}

} // namespace kv::platform
