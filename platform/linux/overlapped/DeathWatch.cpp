#include <csignal>
#include <ctime>
#include <mutex>

#include <kvcore/platform/linux/overlapped/Pool.h>

// Who writes behind thinks of the bytes as written, as they are on a system whose kernel takes them at once. The
// workers have them until then: so a process that dies of a fault or of abort() lets the workers finish first. It still
// dies of the same signal.

namespace kv::platform
{

namespace
{

constexpr int deathSignals[] = {SIGABRT, SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP};
constexpr long pauseNanoseconds = 1'000'000;
constexpr int mostPauses = 2000; // the workers may be what is broken

void OnDeath(int signal)
{
    AwaitAllWritesBehind();
    // What faulted does so again when this returns, and what was sent comes again.
    struct sigaction standard = {};
    standard.sa_handler = SIG_DFL;
    sigaction(signal, &standard, nullptr);
    raise(signal);
}

void Install()
{
    for (int const signal : deathSignals)
    {
        struct sigaction present = {};
        sigaction(signal, nullptr, &present);
        if ((present.sa_flags & SA_SIGINFO) != 0 || present.sa_handler != SIG_DFL)
        {
            continue; // the program has a way of its own
        }
        struct sigaction action = {};
        action.sa_handler = OnDeath;
        action.sa_flags = SA_ONSTACK;
        sigemptyset(&action.sa_mask);
        sigaction(signal, &action, nullptr);
    }
}

} // namespace

void AwaitAllWritesBehind() noexcept
{
    Pool & pool = ThePool();
    timespec const pause = {0, pauseNanoseconds};
    for (int i = 0; i < mostPauses && pool.behind.load(std::memory_order_acquire) != 0; ++i)
    {
        nanosleep(&pause, nullptr);
    }
}

void WatchForDeath() noexcept
{
    static std::once_flag once;
    std::call_once(once, Install);
}

} // namespace kv::platform
