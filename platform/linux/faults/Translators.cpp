// The threads' translators: from a signal to the exception.

#include <cxxabi.h>
#include <pthread.h>
#include <sys/uio.h>
#include <unistd.h>

#include <exception>
#include <typeinfo>

#include <kvcore/platform/Faults.h>

#include <kvcore/platform/linux/threads/StackBounds.h>

#include "FaultStacks.h"
#include "SignalHandlers.h"
#include "Trampoline.h"

namespace kv::platform
{

namespace
{

struct ThreadFaults
{
    FaultTranslator translator;
    FaultStacks stacks;
    /// Translators that run on this thread, each for a fault within the one before.
    int depth;
    /// Of the exception in flight that came from an exhausted stack.
    void (*destroyException)(void * exception);
};

constinit thread_local ThreadFaults threadFaults [[gnu::tls_model("initial-exec")]] = {};

// A translator that faults is translated again, so that what it calls may fail like everything else. Where even this
// faults, the stack is so damaged that no exception will ever leave it.
constexpr int mostTranslators = 3;

constexpr std::size_t redZone = 128; // below the stack pointer, and in use

// Whether the unwinder may look at the stack at all. On the thread's own stack it is not asked: that is there.
bool IsReadable(ULONG_PTR address) noexcept
{
    ULONG_PTR value;
    iovec const to = {&value, sizeof value};
    iovec const from = {reinterpret_cast<void *>(address), sizeof value};
    return process_vm_readv(getpid(), &to, 1, &from, 1, 0) == static_cast<ssize_t>(sizeof value);
}

// Whether the handler runs on a stack of its own, and not below the fault: on the thread's, because somebody has taken
// the alternate stack away, or on that one, because another handler has faulted there.
bool HasOwnStack(ucontext_t const & context) noexcept
{
    ULONG_PTR const low = reinterpret_cast<ULONG_PTR>(context.uc_stack.ss_sp);
    ULONG_PTR const here = reinterpret_cast<ULONG_PTR>(__builtin_frame_address(0));
    return here - low < context.uc_stack.ss_size && StackPointerOf(context) - low > context.uc_stack.ss_size;
}

bool TranslateFault(int signal, siginfo_t const & information, ucontext_t & context)
{
    ThreadFaults & thread = threadFaults;
    ULONG_PTR const pointer = StackPointerOf(context);
    if (thread.translator == nullptr || thread.depth >= mostTranslators || !HasOwnStack(context))
    {
        return false;
    }
    bool const onSpare = thread.stacks.IsSpare(pointer);
    bool const exhausted = signal == SIGSEGV && information.si_code != SI_KERNEL &&
        thread.stacks.IsExhausted(reinterpret_cast<ULONG_PTR>(information.si_addr), pointer);
    bool const onOwn = thread.stacks.IsOwn(pointer);
    if ((onSpare && exhausted) || (!onOwn && !onSpare && !exhausted && !IsReadable(pointer)))
    {
        return false;
    }

    Fault fault;
    DescribeFault(signal, information, context, fault);
    if (exhausted)
    {
        fault.record.ExceptionCode = STATUS_STACK_OVERFLOW;
        fault.record.NumberParameters = 0;
    }
    ULONG_PTR place = pointer - redZone;
    if (!onSpare && (exhausted || thread.stacks.IsShort(pointer)))
    {
        thread.stacks.OpenReserve(exhausted ? reinterpret_cast<ULONG_PTR>(information.si_addr) : pointer);
        place = thread.stacks.spareHigh;
        ForgetFrames(thread.stacks.spareLow, thread.stacks.spareHigh); // of the exception before
    }
    EnterTrampoline(context, place, fault, exhausted);
    return true;
}

// Gives the stacks back when the thread has ended, after its thread-local objects.
void ReleaseStacks(void *)
{
    threadFaults.translator = nullptr;
    threadFaults.stacks.Release();
}

pthread_key_t ReleaseKey()
{
    static pthread_key_t const key = []
    {
        pthread_key_t made = 0;
        pthread_key_create(&made, ReleaseStacks);
        return made;
    }();
    return key;
}

// A thread's first translator. Without memory for its stacks it keeps the platform's default.
[[gnu::noinline]] bool PrepareThread()
{
    if (!threadFaults.stacks.Prepare())
    {
        return false;
    }
    pthread_setspecific(ReleaseKey(), &threadFaults);
    InstallFaultHandler(TranslateFault);
    return true;
}

// What an exception passes on the spare stack is not for the address sanitizer: at each step it would look for marks to
// take off, and take those of the frames that were left for an overrun of its own.
#define KV_ON_SPARE_STACK __attribute__((no_sanitize("address")))

struct DepthCount
{
    KV_ON_SPARE_STACK DepthCount()
    {
        ++threadFaults.depth;
    }
    KV_ON_SPARE_STACK ~DepthCount()
    {
        --threadFaults.depth;
    }
};

// Whatever its translator does, the thread must not go on at the fault.
[[noreturn]] KV_ON_SPARE_STACK void Translate(Fault & fault)
{
    EXCEPTION_POINTERS pointers = {&fault.record, &fault.context};
    FaultTranslator const translator = threadFaults.translator;
    DepthCount const count;
    if (translator != nullptr)
    {
        translator(fault.record.ExceptionCode, &pointers);
    }
    std::terminate();
}

ULONG_PTR Here() noexcept
{
    return reinterpret_cast<ULONG_PTR>(__builtin_frame_address(0));
}

#ifdef __GLIBCXX__

// The beginning of what the C++ runtime keeps before each exception, and of what it keeps for each thread.
struct ExceptionHeader
{
    std::type_info * type;
    void (*destroy)(void * exception);
};
struct ExceptionGlobals
{
    ExceptionHeader * caught;
};

// When the exception ends, its handler has left the frames at the end of the stack. A program may recurse again without
// leaving its translator's scope, and then needs the reserve closed.
void EndException(void * exception)
{
    if (void (*const destroy)(void *) = threadFaults.destroyException; destroy != nullptr)
    {
        destroy(exception);
    }
    threadFaults.stacks.CloseReserve(Here());
}

void WatchEndOfException() noexcept
{
    ExceptionHeader * const header = reinterpret_cast<ExceptionGlobals *>(abi::__cxa_get_globals())->caught;
    if (header != nullptr && header->destroy != EndException)
    {
        threadFaults.destroyException = header->destroy;
        header->destroy = EndException;
    }
}

#else

void WatchEndOfException() noexcept {}

#endif

} // namespace

KV_ON_SPARE_STACK void ThrowFault(TrampolineFrame & frame)
{
    if (!frame.exhausted)
    {
        Translate(frame.fault);
    }
    if (threadFaults.stacks.IsOwn(frame.stackPointer))
    {
        ForgetFrames(frame.stackPointer, stackBounds.high);
    }
    try
    {
        Translate(frame.fault);
    }
    catch (...)
    {
        WatchEndOfException();
        throw;
    }
}

FaultTranslator SetFaultTranslator(FaultTranslator translator)
{
    ThreadFaults & thread = threadFaults;
    FaultTranslator const before = thread.translator;
    if (translator != nullptr && thread.stacks.mapping == 0 && !PrepareThread())
    {
        return before;
    }
    if (thread.stacks.isOpen)
    {
        thread.stacks.CloseReserve(Here());
    }
    thread.translator = translator;
    return before;
}

} // namespace kv::platform

_se_translator_function _set_se_translator(_se_translator_function translator)
{
    return kv::platform::SetFaultTranslator(translator);
}
