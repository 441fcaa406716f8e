#include <algorithm>
#include <cerrno>
#include <new>

#include <sys/mman.h>

#include <kvcore/platform/include/errors.h>
#include <kvcore/platform/include/memoryapi.h>
#include <kvcore/platform/linux/errors/ErrnoErrors.h>
#include <kvcore/platform/linux/memory/CallerMemory.h>

#include "Allocations.h"

namespace kv::platform
{

std::atomic<unsigned> addressSpaceChanges{0};

Allocations & TheAllocations()
{
    static Allocations & allocations = *new Allocations;
    return allocations;
}

std::map<std::uintptr_t, Allocation>::iterator FindAllocation(Allocations & allocations, std::uintptr_t address)
{
    auto found = allocations.byBase.upper_bound(address);
    if (found == allocations.byBase.begin())
    {
        return allocations.byBase.end();
    }
    --found;
    return address < found->second.end ? found : allocations.byBase.end();
}

int NativeProtection(DWORD protection) noexcept
{
    switch (protection)
    {
    case PAGE_NOACCESS:
        return PROT_NONE;
    case PAGE_READONLY:
        return PROT_READ;
    case PAGE_READWRITE:
    case PAGE_WRITECOPY: // of a view that is private to the process
        return PROT_READ | PROT_WRITE;
    case PAGE_EXECUTE:
        return PROT_EXEC;
    case PAGE_EXECUTE_READ:
        return PROT_EXEC | PROT_READ;
    case PAGE_EXECUTE_READWRITE:
        return PROT_EXEC | PROT_READ | PROT_WRITE;
    default:
        return -1;
    }
}

DWORD PageProtection(bool read, bool write, bool execute) noexcept
{
    if (write)
    {
        return execute ? PAGE_EXECUTE_READWRITE : PAGE_READWRITE;
    }
    if (read)
    {
        return execute ? PAGE_EXECUTE_READ : PAGE_READONLY;
    }
    return execute ? PAGE_EXECUTE : PAGE_NOACCESS;
}

} // namespace kv::platform

using namespace kv::platform;

namespace
{

using Ranges = std::map<std::uintptr_t, std::uintptr_t>;

constexpr std::uintptr_t granularity = 0x10000;
constexpr std::uintptr_t addressLimit = 0x7FFFFFFFF000;

/// Adds [begin, end) and joins what it touches. May throw before anything has changed.
void Join(Ranges & ranges, std::uintptr_t begin, std::uintptr_t end)
{
    auto next = ranges.upper_bound(begin);
    auto place = ranges.end();
    if (next != ranges.begin() && std::prev(next)->second >= begin)
    {
        place = std::prev(next);
    }
    else
    {
        place = ranges.emplace_hint(next, begin, end);
    }
    while (next != ranges.end() && next->first <= end)
    {
        end = std::max(end, next->second);
        next = ranges.erase(next);
    }
    place->second = std::max(place->second, end);
}

/// Takes [begin, end) out. May throw before anything has changed.
void Cut(Ranges & ranges, std::uintptr_t begin, std::uintptr_t end)
{
    auto range = ranges.upper_bound(begin);
    if (range != ranges.begin() && std::prev(range)->second > begin)
    {
        --range;
    }
    while (range != ranges.end() && range->first < end)
    {
        auto const [first, last] = *range;
        if (last > end)
        {
            ranges.emplace(end, last);
        }
        if (first < begin)
        {
            range->second = begin;
            ++range;
        }
        else
        {
            range = ranges.erase(range);
        }
    }
}

void * Fail(DWORD error)
{
    SetLastError(error);
    return nullptr;
}

/// Pages of which nothing may be done yet, at a multiple of 64 KiB.
void * Reserve(std::uintptr_t at, SIZE_T size)
{
    constexpr int flags = MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE;
    if (at != 0)
    {
        void * const place = mmap(reinterpret_cast<void *>(at), size, PROT_NONE, flags | MAP_FIXED_NOREPLACE, -1, 0);
        return place != MAP_FAILED ? place : Fail(errno == EEXIST ? ERROR_INVALID_ADDRESS : ERROR_NOT_ENOUGH_MEMORY);
    }
    void * const room = mmap(nullptr, size + granularity, PROT_NONE, flags, -1, 0);
    if (room == MAP_FAILED)
    {
        return Fail(ERROR_NOT_ENOUGH_MEMORY);
    }
    std::uintptr_t const begin = reinterpret_cast<std::uintptr_t>(room);
    std::uintptr_t const aligned = (begin + granularity - 1) / granularity * granularity;
    if (aligned > begin)
    {
        munmap(room, aligned - begin);
    }
    if (begin + granularity > aligned)
    {
        munmap(reinterpret_cast<void *>(aligned + size), begin + granularity - aligned);
    }
    return reinterpret_cast<void *>(aligned);
}

/// The pages of [begin, end) of an allocation get their protection; those new to it are zero already.
bool Commit(Allocation & allocation, std::uintptr_t begin, std::uintptr_t end, int native)
{
    Ranges committed = allocation.committed;
    Join(committed, begin, end);
    if (mprotect(reinterpret_cast<void *>(begin), end - begin, native) != 0)
    {
        Fail(ERROR_NOT_ENOUGH_MEMORY);
        return false;
    }
    allocation.committed.swap(committed);
    return true;
}

void * AllocateNew(std::uintptr_t address, SIZE_T size, DWORD type, DWORD protection, int native)
{
    std::uintptr_t const at = address / granularity * granularity;
    size = PageCeiling(address - at + size);
    void * const place = Reserve(at, size);
    if (place == nullptr)
    {
        return nullptr;
    }
    std::uintptr_t const base = reinterpret_cast<std::uintptr_t>(place);
    Allocation allocation{base + size, protection, MEM_PRIVATE, {}};
    Allocations & allocations = TheAllocations();
    try
    {
        if ((type & MEM_COMMIT) == 0 || Commit(allocation, base, base + size, native))
        {
            std::lock_guard const guard(allocations.mutex);
            allocations.byBase.emplace(base, std::move(allocation));
            addressSpaceChanges.fetch_add(1, std::memory_order_release);
            return place;
        }
    }
    catch (std::bad_alloc const &)
    {
        Fail(ERROR_NOT_ENOUGH_MEMORY);
    }
    munmap(place, size);
    return nullptr;
}

void * CommitReserved(std::uintptr_t address, SIZE_T size, int native)
{
    std::uintptr_t const begin = PageFloor(address);
    std::uintptr_t const end = PageCeiling(address + size);
    Allocations & allocations = TheAllocations();
    std::lock_guard const guard(allocations.mutex);
    auto const found = FindAllocation(allocations, begin);
    if (found == allocations.byBase.end() || found->second.type != MEM_PRIVATE || end > found->second.end)
    {
        return Fail(ERROR_INVALID_ADDRESS);
    }
    addressSpaceChanges.fetch_add(1, std::memory_order_release);
    return Commit(found->second, begin, end, native) ? reinterpret_cast<void *>(begin) : nullptr;
}

/// Gives the memory of [begin, end) back and keeps the addresses.
BOOL Decommit(Allocation & allocation, std::uintptr_t begin, std::uintptr_t end)
{
    Ranges committed = allocation.committed;
    Cut(committed, begin, end);
    constexpr int flags = MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE | MAP_FIXED;
    if (mmap(reinterpret_cast<void *>(begin), end - begin, PROT_NONE, flags, -1, 0) == MAP_FAILED)
    {
        return FailErrno();
    }
    allocation.committed.swap(committed);
    return TRUE;
}

} // namespace

LPVOID WINAPI VirtualAlloc(LPVOID address, SIZE_T size, DWORD type, DWORD protection)
try
{
    std::uintptr_t const at = reinterpret_cast<std::uintptr_t>(address);
    int const native = NativeProtection(protection);
    bool const copies = protection == PAGE_WRITECOPY; // memory that is nobody else's has nothing to copy
    bool const knownType = type != 0 && (type & ~(MEM_COMMIT | MEM_RESERVE)) == 0;
    bool const inReach = address == nullptr || (at >= granularity && at < addressLimit);
    if (size == 0 || native < 0 || copies || !knownType || !inReach || size > addressLimit - at)
    {
        return Fail(ERROR_INVALID_PARAMETER);
    }
    bool const isNew = address == nullptr || (type & MEM_RESERVE) != 0;
    return isNew ? AllocateNew(at, size, type, protection, native) : CommitReserved(at, size, native);
}
catch (std::bad_alloc const &)
{
    return Fail(ERROR_NOT_ENOUGH_MEMORY);
}

BOOL WINAPI VirtualFree(LPVOID address, SIZE_T size, DWORD type)
try
{
    std::uintptr_t const at = reinterpret_cast<std::uintptr_t>(address);
    Allocations & allocations = TheAllocations();
    std::lock_guard const guard(allocations.mutex);
    auto const found = FindAllocation(allocations, at);
    bool const release = type == MEM_RELEASE;
    if (found == allocations.byBase.end() || found->second.type != MEM_PRIVATE || (release && size != 0) ||
        (!release && type != MEM_DECOMMIT) || size > found->second.end - at)
    {
        return FailWith(ERROR_INVALID_PARAMETER);
    }
    if (size == 0 && at != found->first)
    {
        return FailWith(ERROR_INVALID_ADDRESS);
    }
    addressSpaceChanges.fetch_add(1, std::memory_order_release);
    if (!release)
    {
        return Decommit(found->second, PageFloor(at), size == 0 ? found->second.end : PageCeiling(at + size));
    }
    munmap(address, found->second.end - found->first);
    allocations.byBase.erase(found);
    return TRUE;
}
catch (std::bad_alloc const &)
{
    return FailWith(ERROR_NOT_ENOUGH_MEMORY);
}

namespace
{

/// The caches of the processor are the kernel's affair.
constexpr DWORD ignoredModifiers = PAGE_NOCACHE | PAGE_WRITECOMBINE;

/// What a range of pages belongs to: nothing of this layer, or an allocation that holds all of it.
struct Owner
{
    DWORD type = 0;
    DWORD protection = 0;
};

DWORD FindOwner(std::uintptr_t begin, std::uintptr_t end, Owner & owner)
{
    Allocations & allocations = TheAllocations();
    std::lock_guard const guard(allocations.mutex);
    auto const found = FindAllocation(allocations, begin);
    if (found == allocations.byBase.end())
    {
        return ERROR_SUCCESS;
    }
    owner = {found->second.type, found->second.protection};
    return end <= found->second.end ? ERROR_SUCCESS : ERROR_INVALID_PARAMETER;
}

/// Whether all pages of a range are committed, and what might be done with the first.
DWORD FindCommitted(std::uintptr_t begin, std::uintptr_t end, DWORD & protection)
{
    MEMORY_BASIC_INFORMATION region{};
    for (std::uintptr_t place = begin; place == begin || place < end; place += region.RegionSize)
    {
        if (VirtualQuery(reinterpret_cast<void *>(place), &region, sizeof(region)) == 0 || region.State == MEM_FREE)
        {
            return ERROR_INVALID_PARAMETER;
        }
        if (region.State != MEM_COMMIT)
        {
            return ERROR_INVALID_ADDRESS;
        }
        protection = place == begin ? region.Protect : protection;
    }
    return ERROR_SUCCESS;
}

/// Whether memory of this owner may be protected so. A view may do less than it was made for, and nothing more.
DWORD CheckProtection(Owner const & owner, DWORD protection)
{
    DWORD const page = protection & ~ignoredModifiers;
    if (NativeProtection(page) < 0 || (page == PAGE_NOACCESS && page != protection))
    {
        return ERROR_INVALID_PARAMETER;
    }
    if (owner.type != MEM_MAPPED)
    {
        return page == PAGE_WRITECOPY ? ERROR_INVALID_PARAMETER : ERROR_SUCCESS;
    }
    if (page == PAGE_NOACCESS || page == owner.protection)
    {
        return ERROR_SUCCESS;
    }
    if (owner.protection == PAGE_NOACCESS || (page != PAGE_READONLY && page != PAGE_WRITECOPY))
    {
        return ERROR_INVALID_PARAMETER;
    }
    return page == PAGE_READONLY ? ERROR_SUCCESS : ERROR_ACCESS_DENIED;
}

} // namespace

BOOL WINAPI VirtualProtect(LPVOID address, SIZE_T size, DWORD protection, DWORD * old)
{
    CheckOutputs(old);
    std::uintptr_t const at = reinterpret_cast<std::uintptr_t>(address);
    if (old == nullptr)
    {
        return FailWith(ERROR_NOACCESS);
    }
    if (at >= addressLimit || size > addressLimit - at)
    {
        return FailWith(ERROR_INVALID_PARAMETER);
    }
    std::uintptr_t const begin = PageFloor(at);
    std::uintptr_t const end = PageCeiling(at + size);
    Owner owner;
    DWORD before = 0;
    DWORD error = FindOwner(begin, end, owner);
    error = error == ERROR_SUCCESS ? FindCommitted(begin, end, before) : error;
    error = error == ERROR_SUCCESS ? CheckProtection(owner, protection) : error;
    if (error != ERROR_SUCCESS)
    {
        return FailWith(error);
    }
    int const native = NativeProtection(protection & ~ignoredModifiers);
    if (end != begin && mprotect(reinterpret_cast<void *>(begin), end - begin, native) != 0)
    {
        return FailErrno();
    }
    addressSpaceChanges.fetch_add(1, std::memory_order_release);
    *old = before;
    return TRUE;
}
