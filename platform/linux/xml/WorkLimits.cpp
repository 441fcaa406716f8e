#include "WorkLimits.h"

#include <cstdlib>
#include <cstring>

#include <malloc.h>
#include <signal.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <libxml/globals.h>
#include <libxml/xmlmemory.h>

namespace kv::platform
{

namespace
{

thread_local TimeLimit * currentTime = nullptr;
thread_local MemoryLimit * currentMemory = nullptr;

/// How far beyond its limit memory may go before the evaluation takes notice that it is stopped.
constexpr std::ptrdiff_t hardFactor = 4;
constexpr std::size_t mostMoved = std::size_t(1) << 37;

} // namespace

void StopAtTime(int)
{
    if (currentTime != nullptr)
    {
        currentTime->reached = true;
        currentTime->stop.Stop();
    }
}

namespace
{

/// Whether the signal is ours, or has become so.
bool TakeSignal(int number)
{
    struct sigaction action = {};
    if (sigaction(number, nullptr, &action) != 0)
    {
        return false;
    }
    if (action.sa_handler == SIG_DFL)
    {
        action.sa_handler = StopAtTime;
        action.sa_flags = SA_RESTART;
        sigemptyset(&action.sa_mask);
        return sigaction(number, &action, nullptr) == 0;
    }
    return (action.sa_flags & SA_SIGINFO) == 0 && action.sa_handler == StopAtTime;
}

} // namespace

TimeLimit::TimeLimit(std::chrono::seconds most, StopSwitch const & newSwitch) : stop(newSwitch), outer(currentTime)
{
    int const number = SIGRTMAX - 5;
    if (!TakeSignal(number))
    {
        return;
    }
    currentTime = this;
    sigevent event = {};
    event.sigev_notify = SIGEV_THREAD_ID;
    event.sigev_signo = number;
    event._sigev_un._tid = static_cast<pid_t>(syscall(SYS_gettid));
    armed = timer_create(CLOCK_THREAD_CPUTIME_ID, &event, &timer) == 0;
    // It goes off again and again: a stop that comes between the library's look at the count and its addition is lost.
    itimerspec const times = {{0, 100000000}, {most.count(), 0}};
    if (armed)
    {
        timer_settime(timer, 0, &times, nullptr);
    }
}

TimeLimit::~TimeLimit()
{
    if (armed)
    {
        timer_delete(timer);
    }
    currentTime = outer;
}

bool TimeLimit::WasReached() const noexcept
{
    return reached;
}

MemoryLimit::MemoryLimit() : outer(currentMemory)
{
    currentMemory = this;
}

MemoryLimit::~MemoryLimit()
{
    currentMemory = outer;
}

void MemoryLimit::Set(std::size_t most, StopSwitch const & newSwitch) noexcept
{
    limit = static_cast<std::ptrdiff_t>(most);
    stop = &newSwitch;
}

bool MemoryLimit::Allows(std::size_t size) const noexcept
{
    std::ptrdiff_t const most = limit * hardFactor;
    return limit == 0 || (held <= most && size <= static_cast<std::size_t>(most - held));
}

void MemoryLimit::Add(std::ptrdiff_t size) noexcept
{
    held += size;
    moved += size > 0 ? static_cast<std::size_t>(size) : 0;
    if (limit != 0 && (held > limit || moved > mostMoved))
    {
        reached = true;
        stop->Stop();
    }
}

namespace
{

std::ptrdiff_t SizeOf(void * block)
{
    return block == nullptr ? 0 : static_cast<std::ptrdiff_t>(malloc_usable_size(block));
}

void * Allocate(std::size_t size)
{
    MemoryLimit * const limit = currentMemory;
    if (limit == nullptr)
    {
        return std::malloc(size);
    }
    void * const block = limit->Allows(size) ? std::malloc(size) : nullptr;
    limit->Add(SizeOf(block));
    return block;
}

void Free(void * block)
{
    if (currentMemory != nullptr)
    {
        currentMemory->Add(-SizeOf(block));
    }
    std::free(block);
}

void * Reallocate(void * block, std::size_t size)
{
    MemoryLimit * const limit = currentMemory;
    if (limit == nullptr)
    {
        return std::realloc(block, size);
    }
    std::ptrdiff_t const before = SizeOf(block);
    void * const moved = limit->Allows(size) ? std::realloc(block, size) : nullptr;
    if (moved != nullptr)
    {
        limit->Add(-before);
        limit->Add(SizeOf(moved));
    }
    return moved;
}

char * Duplicate(char const * text)
{
    std::size_t const size = std::strlen(text) + 1;
    void * const copy = Allocate(size);
    return copy == nullptr ? nullptr : static_cast<char *>(std::memcpy(copy, text, size));
}

} // namespace

void InstallAllocator()
{
    xmlFreeFunc freeing = nullptr;
    xmlMallocFunc allocating = nullptr;
    xmlReallocFunc reallocating = nullptr;
    xmlStrdupFunc duplicating = nullptr;
    xmlMemGet(&freeing, &allocating, &reallocating, &duplicating);
    // Blocks of the C library can be freed by either, so it does not matter which threads have some already.
    if (freeing == std::free && allocating == std::malloc && reallocating == std::realloc)
    {
        xmlMemSetup(Free, Allocate, Reallocate, Duplicate);
    }
}

} // namespace kv::platform
