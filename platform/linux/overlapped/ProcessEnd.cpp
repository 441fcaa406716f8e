#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <ctime>
#include <mutex>

#include <sys/syscall.h>
#include <unistd.h>

#include <kvcore/platform/linux/overlapped/Pool.h>

// Who issues a write thinks of the bytes as written, as they are on a system whose kernel takes them at once. Here the
// workers have them until then. So a process that ends lets the workers finish first, if it is told of its end at all,
// and still ends in the same way.
//
// The other threads go on meanwhile. They begin no request any more, or the end would never come, and the last of their
// writes would be cut off where it comes. A thread that the signal interrupts while it holds what the workers need
// goes on until it does not.

namespace kv::platform
{

thread_local constinit EndShield endShield;

namespace
{

constexpr int faultSignals[] = {SIGABRT, SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP};
constexpr int requestSignals[] = {SIGTERM, SIGINT, SIGHUP, SIGQUIT};

constexpr long pauseNanoseconds = 200'000;
constexpr int mostPausesInVain = 5000; // the disk may be what is broken, or a thread that holds a lock

pid_t process = 0;

/// Counts pauses since something has happened last.
class Patience
{
public:
    explicit Patience(Pool const & pool) : finished(pool.finished), seen(finished.load()) {}

    /// Pauses. False if that has been in vain for too long.
    bool Pause()
    {
        timespec const pause = {0, pauseNanoseconds};
        nanosleep(&pause, nullptr);
        std::uint32_t const now = finished.load(std::memory_order_relaxed);
        pauses = now == seen ? pauses + 1 : 0;
        seen = now;
        return pauses < mostPausesInVain;
    }

private:
    std::atomic<std::uint32_t> const & finished;
    std::uint32_t seen;
    int pauses = 0;
};

/// Takes the pool's lock, which is not the calling thread's unless it has faulted with it.
bool Lock(Pool & pool, std::unique_lock<ShortLock> & guard, Patience & patience)
{
    while (!guard.try_lock())
    {
        if (!patience.Pause())
        {
            return false;
        }
    }
    pool.endingThread = static_cast<pid_t>(syscall(SYS_gettid));
    return true;
}

bool IsIdle(Pool const & pool)
{
    return pool.firstReady == nullptr && pool.working == 0 && pool.openGroups == 0;
}

void EndBy(int signal)
{
    FinishAllRequests();
    struct sigaction standard = {};
    standard.sa_handler = SIG_DFL;
    sigaction(signal, &standard, nullptr);
    raise(signal); // inside of the signal's handler it comes when that returns
}

// What faulted does so again when this returns, and what was sent comes again.
void OnFault(int signal)
{
    EndBy(signal);
}

void OnRequest(int signal)
{
    int const error = errno;
    if (endShield.depth.load(std::memory_order_relaxed) != 0)
    {
        endShield.signal.store(signal, std::memory_order_relaxed);
    }
    else
    {
        EndBy(signal);
    }
    errno = error;
}

/// Where the program has no way of its own.
void Install(int signal, void (*handler)(int))
{
    struct sigaction present = {};
    sigaction(signal, nullptr, &present);
    if ((present.sa_flags & SA_SIGINFO) != 0 || present.sa_handler != SIG_DFL)
    {
        return;
    }
    struct sigaction action = {};
    action.sa_handler = handler;
    action.sa_flags = SA_ONSTACK | SA_RESTART;
    sigemptyset(&action.sa_mask);
    sigaction(signal, &action, nullptr);
}

void InstallAll()
{
    NoteProcess();
    for (int const signal : faultSignals)
    {
        Install(signal, OnFault);
    }
    for (int const signal : requestSignals)
    {
        Install(signal, OnRequest);
    }
    std::at_quick_exit([] { FinishAllRequests(); });
}

// After the destructors of whatever may still write.
[[gnu::destructor]] void AtExit()
{
    FinishAllRequests();
}

} // namespace

void NoteProcess() noexcept
{
    process = getpid();
}

void EndByDeferredSignal() noexcept
{
    EndBy(endShield.signal.exchange(0, std::memory_order_relaxed));
}

void StayOutOfEnd(Pool & pool, std::unique_lock<ShortLock> & guard) noexcept
{
    if (pool.endingThread == 0) [[likely]]
    {
        return;
    }
    if (endShield.groups != 0 || pool.endingThread == static_cast<pid_t>(syscall(SYS_gettid)))
    {
        return;
    }
    guard.unlock();
    for (;;)
    {
        pause();
    }
}

void FinishAllRequests() noexcept
{
    if (process != getpid())
    {
        return; // there are no requests, or they are the parent's
    }
    Pool & pool = ThePool();
    Patience patience(pool);
    std::unique_lock guard(pool.lock, std::defer_lock);
    while (Lock(pool, guard, patience) && !IsIdle(pool))
    {
        guard.unlock();
        if (!patience.Pause())
        {
            break;
        }
    }
}

void WatchForEnd() noexcept
{
    static std::once_flag once;
    std::call_once(once, InstallAll);
}

} // namespace kv::platform
