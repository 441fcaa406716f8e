#include <cstdint>
#include <limits>

#include <kvcore/platform/StackSpace.h>
#include <kvcore/platform/win32.h>

namespace kv::platform
{

namespace
{

// The system's guard pages at the stack's end: one that cannot be used and those that tell it to grow.
constexpr std::size_t guardSize = 12 * 1024;

struct Bounds
{
    // A fibre's switch changes what the system reports, so the answer may not be kept.
    Bounds()
    {
        ULONG_PTR begin = 0;
        ULONG_PTR end = 0;
        GetCurrentThreadStackLimits(&begin, &end);
        low = begin + guardSize;
        high = end;
    }
    bool Hold(std::uintptr_t place) const
    {
        return low - guardSize <= place && place < high;
    }

    std::uintptr_t low;
    std::uintptr_t high;
};

} // namespace

std::size_t StackBytesLeft()
{
    Bounds const bounds;
    std::uintptr_t const here = reinterpret_cast<std::uintptr_t>(__builtin_frame_address(0));
    std::size_t const left = here > bounds.low ? here - bounds.low : 0;
    return bounds.Hold(here) ? left : std::numeric_limits<std::size_t>::max();
}

std::size_t StackBytes()
{
    Bounds const bounds;
    std::uintptr_t const here = reinterpret_cast<std::uintptr_t>(__builtin_frame_address(0));
    return bounds.Hold(here) ? bounds.high - bounds.low : std::numeric_limits<std::size_t>::max();
}

} // namespace kv::platform
