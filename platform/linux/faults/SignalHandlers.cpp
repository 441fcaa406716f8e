#include "SignalHandlers.h"

#include <algorithm>
#include <cerrno>
#include <iterator>
#include <mutex>
#include <sys/syscall.h>
#include <unistd.h>

#include <kvcore/platform/linux/overlapped/RequestPool.h>

namespace kv::platform
{

namespace
{

constexpr int faultSignals[] = {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP};

struct PreviousHandler
{
    int signal;
    struct sigaction action;
};

PreviousHandler previousHandlers[std::size(faultSignals)];
FaultHandler faultHandler = nullptr;

struct sigaction & Previous(int signal) noexcept
{
    return std::find_if(
               std::begin(previousHandlers), std::end(previousHandlers) - 1,
               [signal](PreviousHandler const & previous) { return previous.signal == signal; })
        ->action;
}

// The signal comes again when the handler has returned, with all that the kernel told of it, and ends the process.
void LetTheKernelEndIt(int signal, siginfo_t * information) noexcept
{
    struct sigaction standard = {};
    standard.sa_handler = SIG_DFL;
    sigaction(signal, &standard, nullptr);
    if (syscall(SYS_rt_tgsigqueueinfo, getpid(), syscall(SYS_gettid), signal, information) != 0)
    {
        raise(signal);
    }
}

// As the kernel would have called it, but for the stack: that of ours.
void CallPrevious(struct sigaction const & action, int signal, siginfo_t * information, void * context)
{
    sigset_t before;
    pthread_sigmask(SIG_BLOCK, &action.sa_mask, &before);
    if ((action.sa_flags & SA_NODEFER) != 0)
    {
        sigset_t itself;
        sigemptyset(&itself);
        sigaddset(&itself, signal);
        pthread_sigmask(SIG_UNBLOCK, &itself, nullptr);
    }
    if ((action.sa_flags & SA_SIGINFO) != 0)
    {
        action.sa_sigaction(signal, information, context);
    }
    else
    {
        action.sa_handler(signal);
    }
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

void PassOn(int signal, siginfo_t * information, void * context)
{
    struct sigaction & previous = Previous(signal);
    bool const takesInformation = (previous.sa_flags & SA_SIGINFO) != 0;
    if (!takesInformation && previous.sa_handler == SIG_IGN && information->si_code <= 0)
    {
        return; // only a signal that was sent can be ignored
    }
    if (!takesInformation && (previous.sa_handler == SIG_DFL || previous.sa_handler == SIG_IGN))
    {
        FinishAllRequests();
        LetTheKernelEndIt(signal, information);
        return;
    }
    struct sigaction const action = previous;
    if ((action.sa_flags & static_cast<int>(SA_RESETHAND)) != 0)
    {
        previous.sa_flags &= ~SA_SIGINFO;
        previous.sa_handler = SIG_DFL;
    }
    CallPrevious(action, signal, information, context);
}

void OnSignal(int signal, siginfo_t * information, void * context)
{
    int const error = errno;
    // What the kernel found has a positive code; what a program sent has not.
    bool const isFault = information->si_code > 0;
    if (!isFault || !faultHandler(signal, *information, *static_cast<ucontext_t *>(context)))
    {
        PassOn(signal, information, context);
    }
    errno = error;
}

void InstallAll(FaultHandler handler)
{
    faultHandler = handler;
    struct sigaction action = {};
    action.sa_sigaction = OnSignal;
    action.sa_flags = SA_SIGINFO | SA_ONSTACK;
    sigemptyset(&action.sa_mask);
    // A fault may come as soon as the first handler stands, so the former ones are known before.
    for (std::size_t i = 0; i < std::size(faultSignals); ++i)
    {
        previousHandlers[i].signal = faultSignals[i];
        sigaction(faultSignals[i], nullptr, &previousHandlers[i].action);
    }
    for (int const signal : faultSignals)
    {
        sigaction(signal, &action, nullptr);
    }
}

} // namespace

void InstallFaultHandler(FaultHandler handler)
{
    static std::once_flag once;
    std::call_once(once, InstallAll, handler);
}

} // namespace kv::platform
