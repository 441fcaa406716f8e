#include <cstdint>
#include <limits>

#include <kvcore/platform/StackSpace.h>
#include <kvcore/platform/win32.h>

namespace kv::platform
{

std::size_t StackBytesLeft()
{
    // A fibre's switch changes what the system reports, so the answer may not be kept.
    ULONG_PTR low = 0;
    ULONG_PTR high = 0;
    GetCurrentThreadStackLimits(&low, &high);
    std::uintptr_t const here = reinterpret_cast<std::uintptr_t>(__builtin_frame_address(0));
    bool const onOwnStack = low <= here && here < high;
    return onOwnStack ? here - low : std::numeric_limits<std::size_t>::max();
}

} // namespace kv::platform
