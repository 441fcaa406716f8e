#include "Trampoline.h"

#ifdef __x86_64__

#    include <cstddef>
#    include <cstring>

#    include <sys/uio.h>
#    include <unistd.h>
#    include <unwind.h>

#    include "CallSites.h"

extern "C"
{
    // The unwinder's own look-up, which its headers do not show.
    struct dwarf_eh_bases
    {
        void * tbase;
        void * dbase;
        void * func;
    };
    void const * _Unwind_Find_FDE(void * address, dwarf_eh_bases * bases);

    extern char const kvFaultTrampoline[];

    [[noreturn, gnu::used]] void kvLeaveFaultTrampoline(kv::platform::TrampolineFrame * frame);
}

// The table: a signal's frame; the caller's stack pointer is what the third word says, its instruction the second, its
// frame pointer the first, and the other registers that functions keep follow.
asm(R"(
    .text
    .p2align 4
    .type kvFaultTrampolineFunction, @function
kvFaultTrampolineFunction:
    .cfi_startproc
    .cfi_signal_frame
    .cfi_escape 0x0f, 3, 0x76, 16, 0x06
    .cfi_escape 0x10, 16, 2, 0x76, 8
    .cfi_escape 0x10, 6, 2, 0x76, 0
    .cfi_escape 0x10, 3, 2, 0x76, 24
    .cfi_escape 0x10, 12, 2, 0x76, 32
    .cfi_escape 0x10, 13, 2, 0x76, 40
    .cfi_escape 0x10, 14, 2, 0x76, 48
    .cfi_escape 0x10, 15, 2, 0x76, 56
    nop
    .hidden kvFaultTrampoline
    .globl kvFaultTrampoline
kvFaultTrampoline:
    movq %rbp, %rdi
    call kvLeaveFaultTrampoline
    ud2
    .cfi_endproc
    .size kvFaultTrampolineFunction, . - kvFaultTrampolineFunction
)");

namespace kv::platform
{

namespace
{

static_assert(offsetof(TrampolineFrame, framePointer) == 0 && offsetof(TrampolineFrame, instruction) == 8);
static_assert(offsetof(TrampolineFrame, stackPointer) == 16 && offsetof(TrampolineFrame, rbx) == 24);
static_assert(offsetof(TrampolineFrame, r12) == 32 && offsetof(TrampolineFrame, r15) == 56);

// What a called function expects cleared: the direction of string instructions, single steps, checks of alignment.
constexpr greg_t inheritedFlags = 0x400 | 0x100 | 0x40000;

// A call to where there is no code leaves the caller's address on the stack, and the caller can be unwound.
void LeaveMissingCode(TrampolineFrame & frame)
{
    dwarf_eh_bases bases;
    if (_Unwind_Find_FDE(reinterpret_cast<void *>(frame.instruction), &bases) != nullptr)
    {
        return;
    }
    ULONG_PTR caller = 0;
    iovec const to = {&caller, sizeof caller};
    iovec const from = {reinterpret_cast<void *>(frame.stackPointer), sizeof caller};
    if (process_vm_readv(getpid(), &to, 1, &from, 1, 0) == static_cast<ssize_t>(sizeof caller))
    {
        // A signal's frame is looked up at its very instruction: one within the call, not the one behind it.
        frame.instruction = caller - 1;
        frame.stackPointer += sizeof caller;
    }
}

/// Goes from the trampoline to the faulting function, and to its caller if no exception may leave it at the fault.
struct WalkToCaller
{
    TrampolineFrame & frame;
    bool atFault;
};

_Unwind_Reason_Code Step(_Unwind_Context * context, void * argument)
{
    WalkToCaller & walk = *static_cast<WalkToCaller *>(argument);
    if (!walk.atFault)
    {
        int exact = 0;
        _Unwind_Ptr const instruction = _Unwind_GetIPInfo(context, &exact);
        walk.atFault = exact != 0;
        return walk.atFault && MayThrow(context, instruction) ? _URC_END_OF_STACK : _URC_NO_REASON;
    }
    // A signal's frame is looked up at its very instruction: one within the call, not the one behind it.
    walk.frame.instruction = _Unwind_GetIP(context) - 1;
    walk.frame.stackPointer = _Unwind_GetCFA(context);
    walk.frame.rbx = _Unwind_GetGR(context, 3);
    walk.frame.framePointer = _Unwind_GetGR(context, 6);
    walk.frame.r12 = _Unwind_GetGR(context, 12);
    walk.frame.r13 = _Unwind_GetGR(context, 13);
    walk.frame.r14 = _Unwind_GetGR(context, 14);
    walk.frame.r15 = _Unwind_GetGR(context, 15);
    return _URC_END_OF_STACK;
}

// A stack mostly comes to its end where a function sets up its frame, before it has anything to destroy, and where the
// compiler expects no exception. The exception comes from the call then.
void LeaveFunctionThatHasNotBegun(TrampolineFrame & frame)
{
    WalkToCaller walk = {frame, false};
    _Unwind_Backtrace(Step, &walk);
}

} // namespace

void EnterTrampoline(ucontext_t & context, ULONG_PTR place, Fault const & fault, bool exhausted)
{
    TrampolineFrame * const frame =
        reinterpret_cast<TrampolineFrame *>((place - sizeof(TrampolineFrame)) & ~ULONG_PTR{15});
    frame->framePointer = fault.context.Rbp;
    frame->instruction = fault.context.Rip;
    frame->stackPointer = fault.context.Rsp;
    frame->rbx = fault.context.Rbx;
    frame->r12 = fault.context.R12;
    frame->r13 = fault.context.R13;
    frame->r14 = fault.context.R14;
    frame->r15 = fault.context.R15;
    frame->exhausted = exhausted;
    std::memcpy(&frame->fault, &fault, sizeof fault);

    greg_t * const registers = context.uc_mcontext.gregs;
    registers[REG_RSP] = registers[REG_RBP] = reinterpret_cast<greg_t>(frame);
    registers[REG_RIP] = reinterpret_cast<greg_t>(kvFaultTrampoline);
    registers[REG_EFL] &= ~inheritedFlags;
    ClearFloatingPointExceptions(context);
}

} // namespace kv::platform

void kvLeaveFaultTrampoline(kv::platform::TrampolineFrame * frame)
{
    kv::platform::LeaveMissingCode(*frame);
    if (frame->exhausted)
    {
        kv::platform::LeaveFunctionThatHasNotBegun(*frame);
    }
    kv::platform::ThrowFault(*frame);
}

#else

#    include <csignal>

namespace kv::platform
{

// Elsewhere the handler itself throws, which is enough for most faults.
void EnterTrampoline(ucontext_t &, ULONG_PTR, Fault const & fault, bool exhausted)
{
    sigset_t faults;
    sigemptyset(&faults);
    for (int const signal : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP})
    {
        sigaddset(&faults, signal);
    }
    pthread_sigmask(SIG_UNBLOCK, &faults, nullptr); // a handler that is left so would leave them blocked
    TrampolineFrame frame = {};
    frame.exhausted = exhausted;
    frame.fault = fault;
    ThrowFault(frame);
}

} // namespace kv::platform

#endif
