#include <kvcore/platform/CoarseClock.h>

#include <kvcore/platform/win32.h>

namespace kv::platform
{

std::uint64_t CoarseTicks() noexcept
{
    FILETIME now; // at the last tick, which is cheap: the other call is the precise one
    GetSystemTimeAsFileTime(&now);
    return std::uint64_t{now.dwHighDateTime} << 32 | now.dwLowDateTime;
}

} // namespace kv::platform
