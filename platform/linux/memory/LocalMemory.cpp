#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <new>
#include <unordered_map>

#include <kvcore/platform/include/errors.h>
#include <kvcore/platform/include/memory.h>

namespace
{

constexpr unsigned maxLocks = 255;

/// The whole size of a block's memory is a multiple of this, so that a fixed block can grow a little where it stands.
constexpr SIZE_T granularity = 32;

/// Local and global blocks are one heap; what differs are a few results.
enum class Family
{
    Local,
    Global,
};

struct Block
{
    /// Null once the block is discarded.
    void * data;
    SIZE_T size;
    SIZE_T capacity;
    bool moveable;
    unsigned locks;
};

/// Every live block by its handle, and every moveable one's handle by its data. A handle that is not in here is never
/// looked through: an invalid one ends in an error and not in a fault.
struct Heap
{
    std::mutex mutex;
    std::unordered_map<void const *, Block> blocks;
    std::unordered_map<void const *, void *> handles;
};

/// Never destroyed: blocks are freed by the destructors of other statics, too.
Heap & TheHeap()
{
    static Heap & heap = *new Heap;
    return heap;
}

/// A handle as a caller may name it: itself, or the data of the moveable block.
Block * FindBlock(Heap & heap, void *& handle)
{
    auto found = heap.blocks.find(handle);
    if (found == heap.blocks.end())
    {
        auto const byData = heap.handles.find(handle);
        if (byData == heap.handles.end())
        {
            SetLastError(ERROR_INVALID_HANDLE);
            return nullptr;
        }
        handle = byData->second;
        found = heap.blocks.find(handle);
    }
    return &found->second;
}

/// 0 if `size` cannot be allocated on any machine.
SIZE_T CapacityFor(SIZE_T size)
{
    return size > SIZE_MAX / 2 ? 0 : (std::max<SIZE_T>(size, 1) + granularity - 1) / granularity * granularity;
}

void * Fail(DWORD code)
{
    SetLastError(code);
    return nullptr;
}

void * Allocate(Family family, UINT flags, SIZE_T size)
{
    bool const moveable = (flags & LMEM_MOVEABLE) != 0;
    bool const discarded = moveable && size == 0;
    SIZE_T const capacity = CapacityFor(size);
    void * const data = discarded || capacity == 0 ? nullptr : std::calloc(1, capacity);
    // The handle of a moveable block is an address, too, of which nothing but its being unique is used.
    void * const handle = moveable ? std::malloc(1) : data;
    if ((data == nullptr && !discarded) || handle == nullptr)
    {
        std::free(data);
        std::free(moveable ? handle : nullptr);
        return Fail(ERROR_NOT_ENOUGH_MEMORY);
    }
    // Kept: a fixed global block is never empty.
    SIZE_T const stated = family == Family::Global && !moveable ? std::max<SIZE_T>(size, 1) : size;
    Heap & heap = TheHeap();
    std::lock_guard const guard(heap.mutex);
    try
    {
        if (moveable && data != nullptr)
        {
            heap.handles.emplace(data, handle);
        }
        heap.blocks.emplace(handle, Block{data, stated, discarded ? 0 : capacity, moveable, 0});
    }
    catch (std::bad_alloc const &)
    {
        heap.handles.erase(data);
        std::free(data);
        std::free(moveable ? handle : nullptr);
        return Fail(ERROR_NOT_ENOUGH_MEMORY);
    }
    return handle;
}

/// Empties a moveable block: the handle stays.
void * Discard(Heap & heap, Family family, void * handle, Block & block, UINT flags)
{
    bool const locked = block.locks != 0;
    if (locked || (flags & LMEM_MOVEABLE) == 0)
    {
        // Kept: of a locked global block, nobody is told why it stays.
        if (!locked || family == Family::Local)
        {
            SetLastError(ERROR_INVALID_PARAMETER);
        }
        return nullptr;
    }
    heap.handles.erase(block.data);
    std::free(block.data);
    block.data = nullptr;
    block.size = 0;
    block.capacity = 0;
    return handle;
}

/// Gives the block room for `size` bytes at another address.
void * Move(Heap & heap, void * handle, Block block, SIZE_T size, SIZE_T capacity)
{
    void * const data = std::malloc(capacity);
    if (data == nullptr)
    {
        return Fail(ERROR_NOT_ENOUGH_MEMORY);
    }
    if (block.data != nullptr)
    {
        std::memcpy(data, block.data, std::min(block.size, size));
    }
    void * const moved = block.moveable ? handle : data;
    void * const old = block.data;
    block.data = data;
    block.size = size;
    block.capacity = capacity;
    try
    {
        if (block.moveable)
        {
            heap.handles.emplace(data, handle);
        }
        heap.blocks.insert_or_assign(moved, block);
    }
    catch (std::bad_alloc const &)
    {
        heap.handles.erase(data);
        std::free(data);
        return Fail(ERROR_NOT_ENOUGH_MEMORY);
    }
    if (block.moveable)
    {
        heap.handles.erase(old);
    }
    else
    {
        heap.blocks.erase(old);
    }
    std::free(old);
    return moved;
}

void * Reallocate(Family family, void * handle, SIZE_T size, UINT flags)
{
    Heap & heap = TheHeap();
    std::lock_guard const guard(heap.mutex);
    Block * block = FindBlock(heap, handle);
    if (block == nullptr)
    {
        return nullptr;
    }
    if (size == 0 && block->moveable)
    {
        return Discard(heap, family, handle, *block, flags);
    }
    SIZE_T const capacity = CapacityFor(size);
    SIZE_T const oldSize = block->size;
    if (capacity == 0)
    {
        return Fail(ERROR_NOT_ENOUGH_MEMORY);
    }
    if (capacity > block->capacity)
    {
        // What may not move can only grow where it stands. An unlocked moveable block has no address to keep.
        bool const mayMove = (flags & LMEM_MOVEABLE) != 0 || (block->moveable && block->locks == 0);
        if (!mayMove)
        {
            return Fail(ERROR_NOT_ENOUGH_MEMORY);
        }
        handle = Move(heap, handle, *block, size, capacity);
        if (handle == nullptr)
        {
            return nullptr;
        }
        block = &heap.blocks.find(handle)->second;
    }
    block->size = size;
    if ((flags & LMEM_ZEROINIT) != 0 && size > oldSize)
    {
        std::memset(static_cast<char *>(block->data) + oldSize, 0, size - oldSize);
    }
    return handle;
}

void * Release(void * handle)
{
    if (handle == nullptr)
    {
        return nullptr;
    }
    void * const named = handle;
    void * data = nullptr;
    {
        Heap & heap = TheHeap();
        std::lock_guard const guard(heap.mutex);
        Block const * const block = FindBlock(heap, handle);
        if (block == nullptr)
        {
            return named;
        }
        data = block->data;
        if (block->moveable)
        {
            heap.handles.erase(data);
            std::free(handle);
        }
        heap.blocks.erase(handle);
    }
    std::free(data);
    return nullptr;
}

void * Lock(void * handle)
{
    if (handle == nullptr)
    {
        return nullptr;
    }
    Heap & heap = TheHeap();
    std::lock_guard const guard(heap.mutex);
    void * const named = handle;
    Block * const block = FindBlock(heap, handle);
    if (block == nullptr)
    {
        return nullptr;
    }
    if (!block->moveable || named == block->data)
    {
        return named;
    }
    if (block->data == nullptr)
    {
        return Fail(ERROR_DISCARDED);
    }
    // Kept: at its highest the count stays there, and the block is unlocked after as many calls.
    block->locks = std::min(block->locks + 1, maxLocks);
    return block->data;
}

BOOL Unlock(Family family, void * handle)
{
    Heap & heap = TheHeap();
    std::lock_guard const guard(heap.mutex);
    void * const named = handle;
    Block * const block = FindBlock(heap, handle);
    if (block == nullptr)
    {
        return FALSE;
    }
    bool const byAddress = !block->moveable || named == block->data;
    if (byAddress && family == Family::Global)
    {
        return TRUE;
    }
    if (byAddress || block->locks == 0)
    {
        SetLastError(ERROR_NOT_LOCKED);
        return FALSE;
    }
    if (--block->locks == 0)
    {
        SetLastError(NO_ERROR);
        return FALSE;
    }
    return TRUE;
}

SIZE_T SizeOf(void * handle)
{
    Heap & heap = TheHeap();
    std::lock_guard const guard(heap.mutex);
    Block const * const block = FindBlock(heap, handle);
    return block != nullptr ? block->size : 0;
}

void * HandleOf(void const * address)
{
    if (address == nullptr)
    {
        return Fail(ERROR_INVALID_PARAMETER);
    }
    Heap & heap = TheHeap();
    std::lock_guard const guard(heap.mutex);
    if (auto const byData = heap.handles.find(address); byData != heap.handles.end())
    {
        return byData->second;
    }
    // The handle of a moveable block is no address of memory.
    auto const found = heap.blocks.find(address);
    return found != heap.blocks.end() && !found->second.moveable ? found->second.data : Fail(ERROR_INVALID_HANDLE);
}

} // namespace

HLOCAL WINAPI LocalAlloc(UINT flags, SIZE_T size)
{
    return Allocate(Family::Local, flags, size);
}

HLOCAL WINAPI LocalReAlloc(HLOCAL memory, SIZE_T size, UINT flags)
{
    return Reallocate(Family::Local, memory, size, flags);
}

HLOCAL WINAPI LocalFree(HLOCAL memory)
{
    return Release(memory);
}

LPVOID WINAPI LocalLock(HLOCAL memory)
{
    return Lock(memory);
}

BOOL WINAPI LocalUnlock(HLOCAL memory)
{
    return Unlock(Family::Local, memory);
}

SIZE_T WINAPI LocalSize(HLOCAL memory)
{
    return SizeOf(memory);
}

HLOCAL WINAPI LocalHandle(LPCVOID address)
{
    return HandleOf(address);
}

HGLOBAL WINAPI GlobalAlloc(UINT flags, SIZE_T size)
{
    return Allocate(Family::Global, flags, size);
}

HGLOBAL WINAPI GlobalReAlloc(HGLOBAL memory, SIZE_T size, UINT flags)
{
    return Reallocate(Family::Global, memory, size, flags);
}

HGLOBAL WINAPI GlobalFree(HGLOBAL memory)
{
    return Release(memory);
}

LPVOID WINAPI GlobalLock(HGLOBAL memory)
{
    return Lock(memory);
}

BOOL WINAPI GlobalUnlock(HGLOBAL memory)
{
    return Unlock(Family::Global, memory);
}

SIZE_T WINAPI GlobalSize(HGLOBAL memory)
{
    return SizeOf(memory);
}

HGLOBAL WINAPI GlobalHandle(LPCVOID address)
{
    return HandleOf(address);
}
