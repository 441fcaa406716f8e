#include "Thread.h"

#include <new>

#include <pthread.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "Waits.h"
#include <kvcore/platform/include/errors.h>
#include <kvcore/platform/linux/errors/ErrnoErrors.h>

namespace kv::platform
{

namespace
{

/// A plain pointer, so that it can be looked at in any phase of a thread's end.
thread_local Thread * current = nullptr;

struct EndOfThread
{
    ~EndOfThread()
    {
        if (Thread * const thread = current)
        {
            if (thread->finishRequests != nullptr)
            {
                thread->finishRequests(*thread);
            }
            current = nullptr; // who still needs one after this gets a new one, which stays for good
            thread->End();
            thread->Release();
        }
    }
    bool armed = false;
};

thread_local EndOfThread endOfThread;

/// 0 until it is asked for: the kernel is asked once in each thread. A forked child's thread has an id of its own.
thread_local DWORD currentId = 0;

DWORD AskForThreadId()
{
    [[maybe_unused]] static int const registered = pthread_atfork(nullptr, nullptr, [] { currentId = 0; });
    currentId = static_cast<DWORD>(syscall(SYS_gettid));
    return currentId;
}

} // namespace

Thread & Thread::Current() noexcept
{
    if (current == nullptr)
    {
        BecomeCurrent(Ref<Thread>::Adopt(new Thread));
        current->hasBegun = true;
    }
    return *current;
}

Thread * Thread::CurrentIfAny() noexcept
{
    return current;
}

Thread & Thread::BecomeCurrent(Ref<Thread> thread) noexcept
{
    thread->AddRef(); // EndOfThread's
    current = thread.Get();
    // Made first of all thread-local objects of a thread that begins here, and so the last to go: who has waited for
    // the thread finds all of them gone.
    endOfThread.armed = true;
    current->id.store(GetCurrentThreadId(), std::memory_order_release);
    current->id.notify_all();
    return *current;
}

DWORD Thread::Id() const noexcept
{
    id.wait(0, std::memory_order_acquire);
    return id.load(std::memory_order_acquire);
}

DWORD Thread::Resume() noexcept
{
    std::lock_guard const guard(WaitLock());
    DWORD const before = suspensions;
    if (before != 0 && --suspensions == 0)
    {
        wakeUp.notify_one();
    }
    return before;
}

int Thread::AwaitResume() noexcept
{
    std::unique_lock guard(WaitLock());
    wakeUp.wait(guard, [this] { return suspensions == 0; });
    hasBegun = true;
    return priority;
}

int Thread::Priority() const noexcept
{
    std::lock_guard const guard(WaitLock());
    return priority;
}

void Thread::SetExitCode(DWORD code) noexcept
{
    std::lock_guard const guard(WaitLock());
    exitCode = code;
}

DWORD Thread::ExitCode() const noexcept
{
    std::lock_guard const guard(WaitLock());
    return ended ? exitCode : STILL_ACTIVE;
}

bool Thread::Queue(ProcedureCall & call) noexcept
{
    call.next = nullptr;
    return Queue(call, call);
}

bool Thread::Queue(ProcedureCall & first, ProcedureCall & last) noexcept
{
    std::lock_guard const guard(WaitLock());
    if (ended)
    {
        return false;
    }
    (lastCall != nullptr ? lastCall->next : firstCall) = &first;
    lastCall = &last;
    hasCalls.store(true, std::memory_order_release);
    wakeUp.notify_one();
    return true;
}

bool Thread::RunCalls()
{
    bool any = false;
    while (HasCalls())
    {
        ProcedureCall * call = nullptr;
        {
            // One by one: a call that waits alertably itself runs those behind it.
            std::lock_guard const guard(WaitLock());
            call = firstCall;
            if (call == nullptr)
            {
                break;
            }
            firstCall = call->next;
            if (firstCall == nullptr)
            {
                lastCall = nullptr;
                hasCalls.store(false, std::memory_order_relaxed);
            }
        }
        any = true;
        call->run(call);
    }
    return any;
}

void Thread::End() noexcept
{
    ProcedureCall * dropped = nullptr;
    {
        std::lock_guard const guard(WaitLock());
        ended = true;
        dropped = firstCall;
        firstCall = lastCall = nullptr;
        hasCalls.store(false, std::memory_order_relaxed);
        WakeWaiters(*this);
    }
    while (dropped != nullptr)
    {
        ProcedureCall * const next = dropped->next;
        dropped->drop(dropped);
        dropped = next;
    }
}

namespace
{

struct UserCall : ProcedureCall
{
    PAPCFUNC procedure;
    ULONG_PTR argument;
};

void DropUserCall(ProcedureCall * call) noexcept
{
    delete static_cast<UserCall *>(call);
}

void RunUserCall(ProcedureCall * call)
{
    UserCall const copy = *static_cast<UserCall *>(call);
    DropUserCall(call); // first: the procedure may throw
    copy.procedure(copy.argument);
}

BOOL QueueTo(Thread & thread, PAPCFUNC procedure, ULONG_PTR argument)
{
    UserCall * const call = new (std::nothrow) UserCall;
    if (call == nullptr)
    {
        return FailWith(ERROR_NOT_ENOUGH_MEMORY);
    }
    call->run = RunUserCall;
    call->drop = DropUserCall;
    call->procedure = procedure;
    call->argument = argument;
    if (!thread.Queue(*call))
    {
        DropUserCall(call);
        return FailWith(ERROR_GEN_FAILURE);
    }
    return TRUE;
}

} // namespace

} // namespace kv::platform

using namespace kv::platform;

DWORD WINAPI QueueUserAPC(PAPCFUNC procedure, HANDLE thread, ULONG_PTR argument)
{
    if (thread == GetCurrentThread())
    {
        return static_cast<DWORD>(QueueTo(Thread::Current(), procedure, argument));
    }
    auto const object = LookUp<Thread>(thread);
    return object ? static_cast<DWORD>(QueueTo(*object, procedure, argument)) : 0;
}

HANDLE WINAPI GetCurrentThread()
{
    return reinterpret_cast<HANDLE>(static_cast<LONG_PTR>(-2));
}

DWORD WINAPI GetCurrentThreadId()
{
    return currentId != 0 ? currentId : AskForThreadId();
}
