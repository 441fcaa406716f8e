#include <kvcore/frame/PerformanceTimer.h>

#include <cstring>
#include <new>
#include <string>

#include <kvcore/frame/detail/CounterFrequency.h>
#include <kvcore/platform/win32.h>

namespace
{

constexpr unsigned timerCount = 10;
constexpr std::size_t reportLength = 500;

KVPerformanceTimer * timers[timerCount];

LONGLONG Counter()
{
    LARGE_INTEGER count;
    QueryPerformanceCounter(&count);
    return count.QuadPart;
}

void Report(KVPerformanceTimer const & timer, LONGLONG now)
{
    double const milliseconds = double(now - timer.start) * 1000.0 / double(kv::detail::counterFrequency.Value());
    WString text(reportLength + std::strlen(timer.label), 0);
    // Longer names are cut: the last element stays NUL.
    _snwprintf(
        text.data(), text.size() - 1, TEXT("PERFTIME %9.3lf ms: %hs %hs\n"), milliseconds, timer.name, timer.label);
    OutputDebugStringW(text.c_str());
}

} // namespace

KVPerformanceTimer * KVPerformanceTimer::StartGlobalTimer(unsigned int id, char const * name)
{
    if (id >= timerCount)
    {
        return nullptr;
    }
    if (timers[id] == nullptr)
    {
        timers[id] = new (std::nothrow) KVPerformanceTimer{name, "END", Counter()};
    }
    return timers[id];
}

KVPerformanceTimer * KVPerformanceTimer::GetGlobalTimer(unsigned int id)
{
    return id < timerCount ? timers[id] : nullptr;
}

void KVPerformanceTimer::StopGlobalTimer(unsigned int id)
{
    LONGLONG const now = Counter();
    if (KVPerformanceTimer * const timer = GetGlobalTimer(id))
    {
        Report(*timer, now);
        delete timer;
        timers[id] = nullptr;
    }
}
