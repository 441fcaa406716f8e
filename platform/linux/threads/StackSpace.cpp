#include <pthread.h>

#include <cstdint>
#include <limits>

#include <kvcore/platform/StackSpace.h>

namespace kv::platform
{

namespace
{

struct StackBounds
{
    std::uintptr_t low;
    std::uintptr_t high;
};

// For the process's first thread the C library reads /proc/self/maps, which is why the answer is kept per thread.
StackBounds MeasureStack()
{
    StackBounds bounds = {0, 0};
    pthread_attr_t attributes;
    if (pthread_getattr_np(pthread_self(), &attributes) == 0)
    {
        void * low = nullptr;
        std::size_t size = 0;
        if (pthread_attr_getstack(&attributes, &low, &size) == 0)
        {
            bounds.low = reinterpret_cast<std::uintptr_t>(low);
            bounds.high = bounds.low + size;
        }
        pthread_attr_destroy(&attributes);
    }
    return bounds;
}

// In the block that every thread is born with: the general way to a library's thread-locals costs more than the answer.
[[gnu::tls_model("initial-exec")]] constinit thread_local StackBounds stackBounds = {0, 0};

} // namespace

std::size_t StackBytesLeft()
{
    StackBounds bounds = stackBounds;
    if (bounds.high == 0)
    {
        bounds = stackBounds = MeasureStack();
    }
    std::uintptr_t const here = reinterpret_cast<std::uintptr_t>(__builtin_frame_address(0));
    bool const onOwnStack = bounds.low <= here && here < bounds.high;
    return onOwnStack ? here - bounds.low : std::numeric_limits<std::size_t>::max();
}

} // namespace kv::platform
