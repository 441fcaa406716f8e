#include <algorithm>
#include <cerrno>

#include <pthread.h>

#include <kvcore/platform/include/errors.h>
#include <kvcore/platform/include/memoryapi.h>
#include <kvcore/platform/linux/errors/ErrnoErrors.h>
#include <kvcore/platform/linux/memory/CallerMemory.h>
#include <kvcore/platform/linux/modules/LoadedElf.h>

#include "AddressSpace.h"
#include "Allocations.h"

using namespace kv::platform;

namespace
{

/// Behind the last page that the kernel gives to programs.
constexpr std::uintptr_t addressLimit = 0x7FFFFFFFF000;

MEMORY_BASIC_INFORMATION
Describe(std::uintptr_t from, std::uintptr_t end, std::uintptr_t allocation, DWORD state, DWORD protection, DWORD type)
{
    MEMORY_BASIC_INFORMATION region{};
    region.BaseAddress = reinterpret_cast<void *>(from);
    region.AllocationBase = reinterpret_cast<void *>(allocation);
    region.AllocationProtect = type == MEM_IMAGE ? PAGE_EXECUTE_WRITECOPY : protection;
    region.RegionSize = end - from;
    region.State = state;
    region.Protect = protection;
    region.Type = type;
    return region;
}

/// The region of an address inside a module by the module's own headers. This is the way of who asks which module an
/// address belongs to, and it takes no lock and no call of the system. False if the headers do not tell.
bool DescribeByHeaders(LoadedElf const & module, std::uintptr_t address, MEMORY_BASIC_INFORMATION & region)
{
    std::uintptr_t const bias = module.map->l_addr;
    std::uintptr_t readOnlyBegin = 0;
    std::uintptr_t readOnlyEnd = 0;
    std::uintptr_t end = 0;
    unsigned flags = 0;
    for (ElfW(Phdr) const & header : HeadersOf(module))
    {
        std::uintptr_t const first = bias + header.p_vaddr;
        if (header.p_type == PT_GNU_RELRO)
        {
            readOnlyBegin = PageFloor(first);
            readOnlyEnd = PageFloor(first + header.p_memsz);
        }
        else if (
            header.p_type == PT_LOAD && address >= PageFloor(first) && address < PageCeiling(first + header.p_memsz))
        {
            end = PageCeiling(first + header.p_memsz);
            flags = header.p_flags;
        }
    }
    if (end == 0)
    {
        return false;
    }
    if (address >= readOnlyBegin && address < readOnlyEnd)
    {
        end = std::min(end, readOnlyEnd);
        flags &= ~unsigned{PF_W};
    }
    else if (address < readOnlyBegin)
    {
        end = std::min(end, readOnlyBegin);
    }
    DWORD const protection = PageProtection((flags & PF_R) != 0, (flags & PF_W) != 0, (flags & PF_X) != 0);
    region = Describe(PageFloor(address), end, module.base, MEM_COMMIT, protection, MEM_IMAGE);
    return true;
}

/// The reading of the address space that a thread's walk goes on with.
struct Walk
{
    AddressSpace space;
    unsigned changes = 0;
    /// Where the walk goes on; 0 if there is none.
    std::uintptr_t next = 0;
};

void EndWalk(void * walk)
{
    static_cast<Walk *>(walk)->~Walk();
}

/// Tells threads to give their readings back. A key and not a destructor of a thread-local object: that would allocate.
pthread_key_t WalkKey()
{
    static pthread_key_t const key = []
    {
        pthread_key_t made = 0;
        pthread_key_create(&made, EndWalk);
        return made;
    }();
    return key;
}

Walk & ThisWalk()
{
    // Its lifetime is the thread's; EndWalk runs the destructor.
    [[gnu::tls_model("initial-exec")]] alignas(
        Walk) static constinit thread_local unsigned char storage[sizeof(Walk)] = {};
    [[gnu::tls_model("initial-exec")]] static constinit thread_local Walk * walk = nullptr;
    if (walk == nullptr)
    {
        walk = new (storage) Walk;
        pthread_setspecific(WalkKey(), walk);
    }
    return *walk;
}

/// The reading to answer from: that of the walk if `address` is its next step, else a new one.
bool Look(Walk & walk, std::uintptr_t address)
{
    unsigned const changes = addressSpaceChanges.load(std::memory_order_acquire);
    if (address != 0 && address == walk.next && walk.changes == changes)
    {
        return true;
    }
    if (!walk.space.Read())
    {
        return false;
    }
    walk.changes = changes;
    return true;
}

DWORD ProtectionOf(MappedPages const & pages)
{
    return PageProtection(pages.readable, pages.writable, pages.executable);
}

/// The end of the pages in a row that are protected like those of `line`, at most `limit`.
std::uintptr_t EndOfRow(AddressSpace const & space, MappedPages const * line, std::uintptr_t limit)
{
    DWORD const protection = ProtectionOf(*line);
    std::uintptr_t end = line->end;
    while (end < limit && ++line != space.end() && line->begin == end && ProtectionOf(*line) == protection)
    {
        end = line->end;
    }
    return std::min(end, limit);
}

/// What lies in an allocation of this layer's own.
MEMORY_BASIC_INFORMATION DescribeOwn(
    std::uintptr_t base, Allocation const & allocation, AddressSpace const & space, MappedPages const * line,
    std::uintptr_t page)
{
    auto next = allocation.committed.upper_bound(page);
    bool const committed = next != allocation.committed.begin() && std::prev(next)->second > page;
    MEMORY_BASIC_INFORMATION region;
    if (committed)
    {
        std::uintptr_t const end = EndOfRow(space, line, std::prev(next)->second);
        DWORD const protection = ProtectionOf(*line);
        bool const copies = allocation.protection == PAGE_WRITECOPY && protection == PAGE_READWRITE;
        region = Describe(page, end, base, MEM_COMMIT, copies ? PAGE_WRITECOPY : protection, allocation.type);
    }
    else
    {
        std::uintptr_t const end = next != allocation.committed.end() ? next->first : allocation.end;
        region = Describe(page, end, base, MEM_RESERVE, 0, allocation.type);
    }
    region.AllocationProtect = allocation.protection;
    return region;
}

/// What others have mapped: each line of the kernel's list is taken for one allocation, cut where it was joined with
/// one of this layer's or goes on behind a module.
MEMORY_BASIC_INFORMATION DescribeForeign(Allocations & allocations, MappedPages const & line, std::uintptr_t page)
{
    std::uintptr_t begin = line.begin;
    std::uintptr_t end = line.end;
    auto const next = allocations.byBase.upper_bound(page);
    if (next != allocations.byBase.end())
    {
        end = std::min(end, next->first);
    }
    if (next != allocations.byBase.begin())
    {
        begin = std::max(begin, std::prev(next)->second.end);
    }
    if (auto const module = FindElf(reinterpret_cast<void *>(begin)))
    {
        begin = std::max(begin, PageCeiling(module->end));
    }
    DWORD const protection = ProtectionOf(line);
    bool const reserved = protection == PAGE_NOACCESS;
    MEMORY_BASIC_INFORMATION region = Describe(
        page, end, begin, reserved ? MEM_RESERVE : MEM_COMMIT, reserved ? 0 : protection,
        line.shared || line.ofFile ? MEM_MAPPED : MEM_PRIVATE);
    region.AllocationProtect = protection;
    return region;
}

MEMORY_BASIC_INFORMATION DescribeBySpace(AddressSpace const & space, std::uintptr_t address)
{
    std::uintptr_t const page = PageFloor(address);
    MappedPages const * const line = space.Find(address);
    if (line == space.end() || address < line->begin)
    {
        std::uintptr_t const end = line == space.end() ? addressLimit : std::min(line->begin, addressLimit);
        MEMORY_BASIC_INFORMATION region = Describe(page, end, 0, MEM_FREE, PAGE_NOACCESS, 0);
        region.AllocationProtect = 0;
        return region;
    }
    if (auto const module = FindElf(reinterpret_cast<void *>(page)))
    {
        std::uintptr_t const end = EndOfRow(space, line, PageCeiling(module->end));
        return Describe(page, end, module->base, MEM_COMMIT, ProtectionOf(*line), MEM_IMAGE);
    }
    Allocations & allocations = TheAllocations();
    std::lock_guard const guard(allocations.mutex);
    auto const own = FindAllocation(allocations, page);
    return own != allocations.byBase.end() ? DescribeOwn(own->first, own->second, space, line, page)
                                           : DescribeForeign(allocations, *line, page);
}

} // namespace

SIZE_T WINAPI VirtualQuery(LPCVOID address, MEMORY_BASIC_INFORMATION * information, SIZE_T size)
{
    CheckBuffer(information, size / sizeof(*information));
    std::uintptr_t const place = reinterpret_cast<std::uintptr_t>(address);
    if (place >= addressLimit || information == nullptr || size < sizeof(MEMORY_BASIC_INFORMATION))
    {
        SetLastError(
            place >= addressLimit        ? ERROR_INVALID_PARAMETER
                : information == nullptr ? ERROR_NOACCESS
                                         : ERROR_BAD_LENGTH);
        return 0;
    }
    Walk & walk = ThisWalk();
    bool const walking = place != 0 && place == walk.next;
    if (!walking)
    {
        auto const module = FindElf(address);
        if (module && DescribeByHeaders(*module, place, *information))
        {
            return sizeof(MEMORY_BASIC_INFORMATION);
        }
    }
    if (!Look(walk, place))
    {
        FailErrno();
        return 0;
    }
    *information = DescribeBySpace(walk.space, place);
    std::uintptr_t const end = reinterpret_cast<std::uintptr_t>(information->BaseAddress) + information->RegionSize;
    bool const goesOn = walking || place < walk.space.begin()->begin;
    walk.next = goesOn && end < addressLimit ? end : 0;
    if (goesOn && walk.next == 0)
    {
        walk.space.Clear();
    }
    return sizeof(MEMORY_BASIC_INFORMATION);
}
