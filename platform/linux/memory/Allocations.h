#pragma once

// The address ranges that this layer itself has made: what VirtualAlloc reserved, and files that are mapped as modules.
// The kernel joins neighbours that are alike; this is what keeps them apart.

#include <atomic>
#include <cstdint>
#include <map>
#include <mutex>

#include <kvcore/platform/include/basetypes.h>

namespace kv::platform
{

constexpr std::uintptr_t memoryPage = 4096;

constexpr std::uintptr_t PageFloor(std::uintptr_t address) noexcept
{
    return address & ~(memoryPage - 1);
}
constexpr std::uintptr_t PageCeiling(std::uintptr_t address) noexcept
{
    return PageFloor(address + memoryPage - 1);
}

struct Allocation
{
    std::uintptr_t end;
    DWORD protection;
    DWORD type;
    /// The parts that are committed, by their first address, each with its end; neighbours are joined.
    std::map<std::uintptr_t, std::uintptr_t> committed;
};

struct Allocations
{
    std::mutex mutex;
    /// By their first address. They do not overlap.
    std::map<std::uintptr_t, Allocation> byBase;
};

/// Never destroyed: memory is released by the destructors of other statics, too.
Allocations & TheAllocations();

/// The one that holds an address, or the end. The mutex must be held.
std::map<std::uintptr_t, Allocation>::iterator FindAllocation(Allocations & allocations, std::uintptr_t address);

/// Counted up by everything in this layer that changes the address space, so that a reading of it is known for old.
extern std::atomic<unsigned> addressSpaceChanges;

/// The protection of the kernel that a PAGE constant stands for; -1 if it is none.
int NativeProtection(DWORD protection) noexcept;

/// The PAGE constant for one of the kernel.
DWORD PageProtection(bool read, bool write, bool execute) noexcept;

} // namespace kv::platform
