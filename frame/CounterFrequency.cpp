#include <kvcore/frame/detail/CounterFrequency.h>

#include <kvcore/platform/win32.h>

namespace kv::detail
{

CounterFrequency::CounterFrequency()
{
    LARGE_INTEGER frequency;
    QueryPerformanceFrequency(&frequency);
    value = frequency.QuadPart;
}

} // namespace kv::detail
