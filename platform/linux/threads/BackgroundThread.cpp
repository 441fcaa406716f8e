#include "BackgroundThread.h"

#include <csignal>

#include <kvcore/platform/include/fileapi.h>

namespace kv::platform
{

Ref<Thread> StartBackgroundThread(LPTHREAD_START_ROUTINE procedure, void * argument) noexcept
{
    sigset_t blocked;
    sigset_t before;
    sigfillset(&blocked);
    for (int const fault : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGABRT, SIGSYS})
    {
        sigdelset(&blocked, fault);
    }
    pthread_sigmask(SIG_SETMASK, &blocked, &before);
    HANDLE const handle = CreateThread(nullptr, 0, procedure, argument, 0, nullptr);
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    if (handle == nullptr)
    {
        return {};
    }
    Ref<Thread> const thread(LookUp<Thread>(handle).Get());
    CloseHandle(handle);
    return thread;
}

} // namespace kv::platform
