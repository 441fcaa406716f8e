#include <algorithm>
#include <cerrno>
#include <climits>
#include <memory>
#include <new>

#include <pthread.h>
#include <sys/resource.h>
#include <unistd.h>

#include <kvcore/platform/include/errors.h>
#include <kvcore/platform/include/processthreadsapi.h>
#include <kvcore/platform/linux/errors/ErrnoErrors.h>
#include <kvcore/platform/linux/memory/CallerMemory.h>
#include <kvcore/platform/linux/sync/Thread.h>
#include <kvcore/platform/linux/sync/Waits.h>

namespace kv::platform
{

namespace
{

/// What a new thread takes over from its creator.
struct ThreadStart
{
    Ref<Thread> thread;
    LPTHREAD_START_ROUTINE procedure;
    void * argument;
};

int NiceOfProcess()
{
    static int const nice = getpriority(PRIO_PROCESS, static_cast<id_t>(getpid())); // that of the first thread
    return nice;
}

/// Steps of nice values that are felt without starving anybody; idle work runs in what is left over.
int NiceOf(int priority)
{
    constexpr int lowest = 19;
    constexpr int highest = -20;
    constexpr int step = 5;
    int const nice = priority == THREAD_PRIORITY_IDLE ? lowest
        : priority == THREAD_PRIORITY_TIME_CRITICAL   ? NiceOfProcess() - 3 * step
                                                      : NiceOfProcess() - priority * step;
    return std::clamp(nice, highest, lowest);
}

/// As far as the user's rights go. The system's "process" is one thread here.
void ApplyPriority(DWORD id, int priority)
{
    int const nice = NiceOf(priority);
    if (getpriority(PRIO_PROCESS, id) != nice)
    {
        setpriority(PRIO_PROCESS, id, nice);
    }
}

// Not noexcept: a thread that ends itself is unwound to here.
void * RunThread(void * raw)
{
    auto start = std::unique_ptr<ThreadStart>(static_cast<ThreadStart *>(raw));
    auto const procedure = start->procedure;
    void * const argument = start->argument;
    Thread & thread = Thread::BecomeCurrent(std::move(start->thread));
    start.reset();
    ApplyPriority(0, thread.AwaitResume());
    thread.SetExitCode(procedure(argument));
    return nullptr;
}

/// The size of a stack as the system takes it; 0 stays "the default".
std::size_t StackSizeFor(SIZE_T wanted)
{
    if (wanted == 0)
    {
        return 0;
    }
    std::size_t const page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
    std::size_t const least = std::max<std::size_t>(wanted, static_cast<std::size_t>(PTHREAD_STACK_MIN) + 2 * page);
    return least > SIZE_MAX - page ? least : (least + page - 1) / page * page;
}

/// An errno value.
int StartDetached(ThreadStart & start, SIZE_T stackSize)
{
    pthread_attr_t attributes;
    int error = pthread_attr_init(&attributes);
    if (error != 0)
    {
        return error;
    }
    pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
    std::size_t const size = StackSizeFor(stackSize);
    error = size != 0 ? pthread_attr_setstacksize(&attributes, size) : 0;
    if (error == 0)
    {
        pthread_t thread;
        error = pthread_create(&thread, &attributes, RunThread, &start);
    }
    pthread_attr_destroy(&attributes);
    return error;
}

/// Null with the last error set.
HANDLE StartThread(SIZE_T stackSize, LPTHREAD_START_ROUTINE procedure, void * argument, DWORD flags, DWORD * id)
{
    NiceOfProcess(); // while nobody has changed it
    auto const thread = Ref<Thread>::Adopt(new (std::nothrow) Thread);
    auto start = std::unique_ptr<ThreadStart>(new (std::nothrow) ThreadStart{thread, procedure, argument});
    if (!thread || !start)
    {
        FailWith(ERROR_NOT_ENOUGH_MEMORY);
        return nullptr;
    }
    HANDLE const handle = HandleTable::Create(*thread, Thread::allAccess);
    if (handle == nullptr)
    {
        return nullptr;
    }
    thread->Suspend((flags & CREATE_SUSPENDED) != 0 ? 1 : 0);
    if (StartDetached(*start, stackSize) != 0)
    {
        HandleTable::Close(handle);
        FailWith(ERROR_NOT_ENOUGH_MEMORY);
        return nullptr;
    }
    start.release();
    if (id != nullptr)
    {
        *id = thread->Id();
    }
    return handle;
}

/// The thread that a handle names, pseudo handles included; null with ERROR_INVALID_HANDLE.
Ref<Thread> FindThread(HANDLE handle)
{
    if (handle == GetCurrentThread())
    {
        return Ref<Thread>(&Thread::Current());
    }
    auto const found = LookUp<Thread>(handle);
    return Ref<Thread>(found.Get());
}

bool IsPriority(int priority)
{
    return (priority >= THREAD_PRIORITY_LOWEST && priority <= THREAD_PRIORITY_HIGHEST) ||
        priority == THREAD_PRIORITY_IDLE || priority == THREAD_PRIORITY_TIME_CRITICAL;
}

} // namespace

void Thread::SetPriority(int newPriority) noexcept
{
    std::lock_guard const guard(WaitLock());
    priority = newPriority;
    // An ended thread's number may be another thread's; one that has not begun sees to itself.
    if (!ended && hasBegun)
    {
        ApplyPriority(this == CurrentIfAny() ? 0 : Id(), newPriority);
    }
}

} // namespace kv::platform

using namespace kv::platform;

HANDLE WINAPI CreateThread(
    LPSECURITY_ATTRIBUTES, SIZE_T stackSize, LPTHREAD_START_ROUTINE procedure, LPVOID argument, DWORD flags, LPDWORD id)
{
    CheckOutputs(id);
    if (procedure == nullptr)
    {
        FailWith(ERROR_INVALID_PARAMETER);
        return nullptr;
    }
    return StartThread(stackSize, procedure, argument, flags, id);
}

std::uintptr_t _beginthreadex(
    void *, unsigned stackSize, unsigned(WINAPI * procedure)(void *), void * argument, unsigned flags, unsigned * id)
{
    CheckOutputs(id);
    if (procedure == nullptr)
    {
        errno = EINVAL;
        return 0;
    }
    HANDLE const thread = StartThread(stackSize, procedure, argument, flags, id);
    if (thread == nullptr)
    {
        errno = EAGAIN;
    }
    return reinterpret_cast<std::uintptr_t>(thread);
}

void WINAPI ExitThread(DWORD exitCode)
{
    Thread::Current().SetExitCode(exitCode);
    pthread_exit(nullptr);
}

void _endthreadex(unsigned exitCode)
{
    ExitThread(exitCode);
}

DWORD WINAPI ResumeThread(HANDLE thread)
{
    auto const found = FindThread(thread);
    return found ? found->Resume() : 0xFFFFFFFFu;
}

BOOL WINAPI SetThreadPriority(HANDLE thread, int priority)
{
    auto const found = FindThread(thread);
    if (!found)
    {
        return FALSE;
    }
    if (!IsPriority(priority))
    {
        return FailWith(ERROR_INVALID_PARAMETER);
    }
    NiceOfProcess(); // while nobody has changed it
    found->SetPriority(priority);
    return TRUE;
}

int WINAPI GetThreadPriority(HANDLE thread)
{
    auto const found = FindThread(thread);
    return found ? found->Priority() : THREAD_PRIORITY_ERROR_RETURN;
}

BOOL WINAPI GetExitCodeThread(HANDLE thread, LPDWORD exitCode)
{
    CheckOutputs(exitCode);
    auto const found = FindThread(thread);
    if (!found)
    {
        return FALSE;
    }
    if (exitCode == nullptr)
    {
        return FailWith(ERROR_NOACCESS);
    }
    *exitCode = found->ExitCode();
    return TRUE;
}

DWORD WINAPI GetThreadId(HANDLE thread)
{
    auto const found = FindThread(thread);
    return found ? found->Id() : 0;
}
