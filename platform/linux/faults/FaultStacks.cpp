#include "FaultStacks.h"

#include <csignal>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <kvcore/platform/linux/threads/StackBounds.h>

// There if the address sanitizer is.
extern "C" [[gnu::weak]] void __asan_unpoison_memory_region(void const volatile * address, std::size_t size);

namespace kv::platform
{

namespace
{

constexpr std::size_t page = 4096;
constexpr std::size_t kibibyte = 1024;
constexpr std::size_t spareSize = 256 * kibibyte;
// A handler that was there before ours runs on the same stack, and may want to tell the user what happened.
constexpr std::size_t alternateSize = 64 * kibibyte;
constexpr std::size_t leastAlternateSize = 16 * kibibyte;
constexpr std::size_t reserveSize = 64 * kibibyte;
// Throwing and a crash report fit into this.
constexpr std::size_t leastToThrow = 48 * kibibyte;
// A function's frame may reach over the guard pages, and the accesses that fault lie anywhere in it.
constexpr std::size_t largestFrame = 16 * kibibyte * kibibyte;
// How far the kernel keeps a growing stack from other memory.
constexpr std::size_t growthGap = 2 * kibibyte * kibibyte;

constexpr ULONG_PTR PageOf(ULONG_PTR address) noexcept
{
    return address / page * page;
}

// The lowest byte that the thread may use.
ULONG_PTR UsableEnd(bool reserveIsOpen) noexcept
{
    return stackBounds.low + stackBounds.guard + (reserveIsOpen ? 0 : stackBounds.reserve);
}

ULONG_PTR ReserveStart() noexcept
{
    return stackBounds.low + stackBounds.guard;
}

void MakeReserve() noexcept
{
    std::size_t const size = stackBounds.high - stackBounds.low;
    ULONG_PTR const here = reinterpret_cast<ULONG_PTR>(__builtin_frame_address(0));
    // A small stack keeps all but a part of itself for its thread.
    std::size_t const reserve = PageOf(size / 8 < reserveSize ? size / 8 : reserveSize);
    bool const isFree = here > ReserveStart() + reserve + reserveSize && here < stackBounds.high;
    if (reserve > 0 && isFree && PageOf(ReserveStart()) == ReserveStart() &&
        mprotect(reinterpret_cast<void *>(ReserveStart()), reserve, PROT_NONE) == 0)
    {
        stackBounds.reserve = reserve;
    }
}

// Within an alternate stack that is in use already, the kernel allows no other.
bool InstallAlternate(ULONG_PTR low, std::size_t size) noexcept
{
    stack_t stack = {};
    stack.ss_sp = reinterpret_cast<void *>(low);
    stack.ss_size = size;
    return sigaltstack(&stack, nullptr) == 0;
}

bool HasAlternate() noexcept
{
    stack_t present = {};
    return sigaltstack(nullptr, &present) == 0 && (present.ss_flags & SS_DISABLE) == 0 &&
        present.ss_size >= leastAlternateSize;
}

} // namespace

bool FaultStacks::Prepare() noexcept
{
    if (mapping != 0)
    {
        return true;
    }
    long const most = sysconf(_SC_MINSIGSTKSZ); // what the kernel itself puts there
    std::size_t const frame = PageOf(static_cast<std::size_t>(most > 0 ? most : 0) + page - 1);
    std::size_t const alternate = alternateSize + frame;
    // From below: a guard page, the alternate stack, a guard page, the spare stack.
    mappingSize = page + alternate + page + spareSize;
    void * const memory = mmap(nullptr, mappingSize, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (memory == MAP_FAILED)
    {
        return false;
    }
    ULONG_PTR const low = reinterpret_cast<ULONG_PTR>(memory);
    spareLow = low + page + alternate + page;
    spareHigh = spareLow + spareSize;
    ownsAlternate = !HasAlternate();
    if (mprotect(reinterpret_cast<void *>(low + page), alternate, PROT_READ | PROT_WRITE) != 0 ||
        mprotect(reinterpret_cast<void *>(spareLow), spareSize, PROT_READ | PROT_WRITE) != 0 ||
        (ownsAlternate && !InstallAlternate(low + page, alternate)))
    {
        munmap(memory, mappingSize);
        return false;
    }
    mapping = low;
    MeasureStack();
    isFirstThread = getpid() == static_cast<pid_t>(syscall(SYS_gettid));
    if (!isFirstThread && stackBounds.high != 0)
    {
        MakeReserve();
    }
    return true;
}

void FaultStacks::Release() noexcept
{
    if (mapping == 0)
    {
        return;
    }
    if (ownsAlternate)
    {
        stack_t none = {};
        none.ss_flags = SS_DISABLE;
        stack_t present = {};
        if (sigaltstack(nullptr, &present) == 0 && reinterpret_cast<ULONG_PTR>(present.ss_sp) == mapping + page)
        {
            sigaltstack(&none, nullptr);
        }
    }
    // The C library gives the stack to the next thread, which knows nothing of its end.
    if (stackBounds.reserve != 0)
    {
        mprotect(reinterpret_cast<void *>(ReserveStart()), stackBounds.reserve, PROT_READ | PROT_WRITE);
        stackBounds.reserve = 0;
    }
    ForgetFrames(spareLow, spareHigh);
    munmap(reinterpret_cast<void *>(mapping), mappingSize);
    *this = {};
}

bool FaultStacks::IsExhausted(ULONG_PTR address, ULONG_PTR pointer) const noexcept
{
    ULONG_PTR const below = pointer > reserveSize ? pointer - reserveSize : 0;
    ULONG_PTR const end = UsableEnd(isOpen);
    if (stackBounds.high != 0)
    {
        // Within the guard pages or the reserve; the first thread's stack has a gap of the kernel's below it.
        ULONG_PTR const low = stackBounds.low - (isFirstThread ? growthGap : 0);
        if (address >= low && address < end)
        {
            return true;
        }
        // A frame that reaches beyond them.
        if (pointer < end && end - pointer < largestFrame && address >= below && address < end)
        {
            return true;
        }
        if (IsOwn(pointer))
        {
            return address >= below && address < pointer;
        }
    }
    // A stack of somebody else's: its memory up to the pointer is there, or it has come to an end.
    return address >= below && address - below < 2 * reserveSize;
}

bool FaultStacks::IsOwn(ULONG_PTR pointer) const noexcept
{
    return pointer >= stackBounds.low && pointer < stackBounds.high;
}

bool FaultStacks::IsSpare(ULONG_PTR pointer) const noexcept
{
    return pointer >= spareLow && pointer <= spareHigh;
}

bool FaultStacks::IsShort(ULONG_PTR pointer) const noexcept
{
    return !IsOwn(pointer) || pointer - stackBounds.low < UsableEnd(isOpen) - stackBounds.low + leastToThrow;
}

void FaultStacks::OpenReserve(ULONG_PTR address) noexcept
{
    if (isOpen)
    {
        return;
    }
    if (!isFirstThread)
    {
        isOpen = stackBounds.reserve != 0 &&
            mprotect(reinterpret_cast<void *>(ReserveStart()), stackBounds.reserve, PROT_READ | PROT_WRITE) == 0;
        return;
    }
    rlimit limit;
    if (getrlimit(RLIMIT_STACK, &limit) != 0 || limit.rlim_cur == RLIM_INFINITY)
    {
        return;
    }
    openedLimit = limit.rlim_cur;
    openedEnd = PageOf(address) + page;
    // The kernel counts from the stack's very end, which lies somewhat above what the C library gives.
    limit.rlim_cur = stackBounds.high - openedEnd + reserveSize + growthGap;
    isOpen = limit.rlim_cur > openedLimit && setrlimit(RLIMIT_STACK, &limit) == 0;
}

void FaultStacks::CloseReserve(ULONG_PTR pointer) noexcept
{
    if (!isOpen || !IsOwn(pointer))
    {
        return;
    }
    if (!isFirstThread)
    {
        if (pointer < UsableEnd(false) + page)
        {
            return;
        }
        isOpen = mprotect(reinterpret_cast<void *>(ReserveStart()), stackBounds.reserve, PROT_NONE) != 0;
        return;
    }
    if (pointer < openedEnd + page)
    {
        return;
    }
    rlimit limit;
    if (getrlimit(RLIMIT_STACK, &limit) == 0)
    {
        limit.rlim_cur = openedLimit;
        setrlimit(RLIMIT_STACK, &limit);
    }
    // What has grown would stay, and the stack would end further down each time.
    ULONG_PTR const lowest = openedEnd - reserveSize - growthGap;
    munmap(reinterpret_cast<void *>(lowest), openedEnd - lowest);
    isOpen = false;
}

void ForgetFrames(ULONG_PTR low, ULONG_PTR high) noexcept
{
    if (__asan_unpoison_memory_region != nullptr)
    {
        __asan_unpoison_memory_region(reinterpret_cast<void *>(low), high - low);
    }
}

} // namespace kv::platform
