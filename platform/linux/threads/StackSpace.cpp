#include <pthread.h>

#include <limits>

#include <kvcore/platform/StackSpace.h>

#include "StackBounds.h"

namespace kv::platform
{

constinit thread_local StackBounds stackBounds [[gnu::tls_model("initial-exec")]] = {0, 0, 0, 0};

// For the process's first thread the C library reads /proc/self/maps, which is why the answer is kept per thread.
void MeasureStack() noexcept
{
    pthread_attr_t attributes;
    if (stackBounds.high != 0 || pthread_getattr_np(pthread_self(), &attributes) != 0)
    {
        return;
    }
    void * low = nullptr;
    std::size_t size = 0;
    std::size_t guard = 0;
    if (pthread_attr_getstack(&attributes, &low, &size) == 0 && pthread_attr_getguardsize(&attributes, &guard) == 0)
    {
        stackBounds.low = reinterpret_cast<std::uintptr_t>(low);
        stackBounds.high = stackBounds.low + size;
        stackBounds.guard = guard;
    }
    pthread_attr_destroy(&attributes);
}

namespace
{

/// From the end of what the thread may use of its own stack to `place`.
std::size_t BytesBelow(std::uintptr_t place) noexcept
{
    std::size_t const below = place - stackBounds.low;
    std::size_t const kept = stackBounds.guard + stackBounds.reserve;
    return below > kept ? below - kept : 0;
}

bool IsOnOwnStack(std::uintptr_t place) noexcept
{
    if (stackBounds.high == 0)
    {
        MeasureStack();
    }
    return place >= stackBounds.low && place < stackBounds.high;
}

} // namespace

std::size_t StackBytesLeft()
{
    std::uintptr_t const here = reinterpret_cast<std::uintptr_t>(__builtin_frame_address(0));
    return IsOnOwnStack(here) ? BytesBelow(here) : std::numeric_limits<std::size_t>::max();
}

std::size_t StackBytes()
{
    std::uintptr_t const here = reinterpret_cast<std::uintptr_t>(__builtin_frame_address(0));
    return IsOnOwnStack(here) ? BytesBelow(stackBounds.high) : std::numeric_limits<std::size_t>::max();
}

} // namespace kv::platform
