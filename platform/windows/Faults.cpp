#include <kvcore/platform/Faults.h>

#include <exception>

#include <kvcore/platform/win32.h>

// A fault that nobody handles comes to the filter of unhandled exceptions, on the faulting thread. There the thread is
// made to go on in a trampoline, which throws in the thread's own state. To the unwinder the trampoline looks like a
// trap's frame over the faulting instruction. A vectored handler would come earlier, but would take faults that the
// system itself provokes and handles, as IsBadReadPtr does.

namespace kv::platform
{

namespace
{

struct Fault
{
    EXCEPTION_RECORD record;
    CONTEXT context;
};

struct ThreadFaults
{
    FaultTranslator translator;
    int depth;
    Fault fault;
};

// Thread-local objects are made on the heap when they are first seen, which is not for a filter; so the filter finds
// the object of a thread that has one through a slot.
thread_local ThreadFaults threadFaults = {};
DWORD slot = TLS_OUT_OF_INDEXES;
LPTOP_LEVEL_EXCEPTION_FILTER previousFilter = nullptr;

// A translator that faults is translated again. Where even this faults, the stack is so damaged that no exception will
// ever leave it.
constexpr int mostTranslators = 3;

constexpr DWORD directionFlag = 0x400;
constexpr DWORD singleStepFlag = 0x100;
constexpr DWORD alignmentFlag = 0x40000;

// What a called function expects cleared.
constexpr DWORD inheritedFlags = directionFlag | singleStepFlag | alignmentFlag;

struct DepthCount
{
    DepthCount()
    {
        ++threadFaults.depth;
    }
    ~DepthCount()
    {
        --threadFaults.depth;
    }
};

} // namespace

} // namespace kv::platform

extern "C"
{
    extern char const kvFaultTrampoline[];

    // Whatever the translator does, the thread must not go on at the fault. The record is copied because a fault within
    // the translator has the same place.
    [[noreturn, gnu::used]] void kvLeaveFaultTrampoline()
    {
        using namespace kv::platform;
        Fault fault = threadFaults.fault;
        EXCEPTION_POINTERS pointers = {&fault.record, &fault.context};
        DepthCount const count;
        threadFaults.translator(fault.record.ExceptionCode, &pointers);
        std::terminate();
    }
}

#ifdef __x86_64__

// Entered with the instruction in rdx and the stack pointer in r8: builds the frame of a trap out of them. Nothing may
// be written to the stack any earlier, because the system's own account of the fault lies on it until then.
asm(R"(
    .text
    .globl kvFaultTrampoline
kvFaultTrampoline:
    pushq %rax
    pushq %r8
    pushq %rax
    pushq %rax
    pushq %rdx
    .def kvFaultTrampolineFunction; .scl 3; .type 32; .endef
    .seh_proc kvFaultTrampolineFunction
kvFaultTrampolineFunction:
    .seh_pushframe
    subq $40, %rsp
    .seh_stackalloc 40
    .seh_endprologue
    call kvLeaveFaultTrampoline
    ud2
    .seh_endproc
)");

namespace kv::platform
{

namespace
{

void EnterTrampoline(CONTEXT & context)
{
    DWORD64 base = 0;
    context.R8 = context.Rsp;
    if (RtlLookupFunctionEntry(context.Rip, &base, nullptr) != nullptr)
    {
        // The unwinder takes what it finds for a return address, and looks at the byte before it.
        context.Rdx = context.Rip + 1;
    }
    else
    {
        // A call to where there is no code leaves the caller's address on the stack, and the caller can be unwound.
        context.Rdx = *reinterpret_cast<DWORD64 const *>(context.Rsp);
        context.R8 += sizeof(DWORD64);
    }
    context.Rsp &= ~DWORD64{15};
    context.Rip = reinterpret_cast<DWORD64>(kvFaultTrampoline);
    context.EFlags &= ~inheritedFlags;
}

} // namespace

} // namespace kv::platform

#else

// Entered with the frame pointer, the instruction and the stack pointer of the fault in eax, ecx and edx, which it
// keeps below its own frame pointer's place. The table: a signal's frame; the caller's stack pointer is what the third
// word says, its instruction the second, its frame pointer the first.
asm(R"(
    .text
    .globl _kvFaultTrampoline
_kvFaultTrampoline:
    pushl %edx
    pushl %ecx
    pushl %eax
    movl %esp, %ebp
    subl $4, %esp
_kvFaultTrampolineFunction:
    .cfi_startproc
    .cfi_signal_frame
    .cfi_escape 0x0f, 3, 0x75, 8, 0x06
    .cfi_escape 0x10, 8, 2, 0x75, 4
    .cfi_escape 0x10, 5, 2, 0x75, 0
    nop
    call _kvLeaveFaultTrampoline
    ud2
    .cfi_endproc
)");

namespace kv::platform
{

namespace
{

// This compiler's unwinder has no look-up that tells of missing code: the address itself does.
bool IsCode(DWORD address)
{
    MEMORY_BASIC_INFORMATION region;
    constexpr DWORD executable = PAGE_EXECUTE | PAGE_EXECUTE_READ | PAGE_EXECUTE_READWRITE | PAGE_EXECUTE_WRITECOPY;
    return VirtualQuery(reinterpret_cast<void *>(address), &region, sizeof region) == sizeof region &&
        region.State == MEM_COMMIT && (region.Protect & executable) != 0;
}

void EnterTrampoline(CONTEXT & context)
{
    context.Eax = context.Ebp;
    context.Ecx = context.Eip;
    context.Edx = context.Esp;
    if (!IsCode(context.Eip))
    {
        // A call to where there is no code leaves the caller's address on the stack, and the caller can be unwound.
        context.Ecx = *reinterpret_cast<DWORD const *>(context.Esp) - 1;
        context.Edx += sizeof(DWORD);
    }
    context.Esp &= ~DWORD{15};
    context.Eip = reinterpret_cast<DWORD>(kvFaultTrampoline);
    context.EFlags &= ~inheritedFlags;
}

} // namespace

} // namespace kv::platform

#endif

namespace kv::platform
{

namespace
{

LONG PassOn(EXCEPTION_POINTERS * exception)
{
    return previousFilter != nullptr ? previousFilter(exception) : EXCEPTION_CONTINUE_SEARCH;
}

// What the processor raises. Not what the C++ runtime, a debugger's protocol or a program raises, nor what has used up
// the stack: the system has already ended such a thread, in the form that this runs on.
bool IsFault(DWORD code)
{
    switch (code)
    {
    case EXCEPTION_DATATYPE_MISALIGNMENT:
    case EXCEPTION_BREAKPOINT:
    case EXCEPTION_SINGLE_STEP:
    case EXCEPTION_ACCESS_VIOLATION:
    case EXCEPTION_IN_PAGE_ERROR:
    case EXCEPTION_ILLEGAL_INSTRUCTION:
    case EXCEPTION_ARRAY_BOUNDS_EXCEEDED:
    case EXCEPTION_FLT_DENORMAL_OPERAND:
    case EXCEPTION_FLT_DIVIDE_BY_ZERO:
    case EXCEPTION_FLT_INEXACT_RESULT:
    case EXCEPTION_FLT_INVALID_OPERATION:
    case EXCEPTION_FLT_OVERFLOW:
    case EXCEPTION_FLT_STACK_CHECK:
    case EXCEPTION_FLT_UNDERFLOW:
    case EXCEPTION_INT_DIVIDE_BY_ZERO:
    case EXCEPTION_INT_OVERFLOW:
    case EXCEPTION_PRIV_INSTRUCTION:
    case EXCEPTION_STACK_OVERFLOW:
        return true;
    default:
        return false;
    }
}

LONG CALLBACK TranslateFault(EXCEPTION_POINTERS * exception)
{
    ThreadFaults * const thread = static_cast<ThreadFaults *>(TlsGetValue(slot));
    if (thread == nullptr || thread->translator == nullptr || thread->depth >= mostTranslators ||
        !IsFault(exception->ExceptionRecord->ExceptionCode))
    {
        return PassOn(exception);
    }
    thread->fault.record = *exception->ExceptionRecord;
    thread->fault.context = *exception->ContextRecord;
    EnterTrampoline(*exception->ContextRecord);
    return EXCEPTION_CONTINUE_EXECUTION;
}

bool InstallFilter()
{
    slot = TlsAlloc();
    if (slot == TLS_OUT_OF_INDEXES)
    {
        return false;
    }
    previousFilter = SetUnhandledExceptionFilter(TranslateFault);
    return true;
}

} // namespace

FaultTranslator SetFaultTranslator(FaultTranslator translator)
{
    static bool const installed = InstallFilter();
    ThreadFaults & thread = threadFaults;
    FaultTranslator const before = thread.translator;
    if (translator != nullptr && installed)
    {
        TlsSetValue(slot, &thread);
    }
    thread.translator = translator;
    return before;
}

} // namespace kv::platform
