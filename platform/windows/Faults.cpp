#include <kvcore/platform/Faults.h>

#include <cstring>
#include <exception>

#include <kvcore/platform/DivisionFault.h>
#include <kvcore/platform/win32.h>

#include "ForeignFrames.h"

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
    ULONG_PTR stack; // of the function that the exception comes from
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

#ifdef __x86_64__
namespace kv::platform
{
namespace
{

// Here every function has its table, which tells of the system's handlers too.
void PrepareStack(ULONG_PTR) {}

} // namespace
} // namespace kv::platform
#else
namespace kv::platform
{
namespace
{

void PrepareStack(ULONG_PTR stack)
{
    LeaveSystemHandlers(stack);
    DescribeForeignCallers();
}

} // namespace
} // namespace kv::platform
#endif

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
        PrepareStack(threadFaults.stack);
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

bool EnterTrampoline(CONTEXT & context, ULONG_PTR & stack)
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
    stack = context.R8;
    context.Rip = reinterpret_cast<DWORD64>(kvFaultTrampoline);
    context.EFlags &= ~inheritedFlags;
    return true;
}

DWORD CodeOf(EXCEPTION_RECORD const & record, CONTEXT const &)
{
    return record.ExceptionCode;
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

/// Takes back what a fault has left in the older floating-point unit: the next instruction of it would fault again, and
/// what the faulting function had there is nobody's any more.
void ClearFloatingPoint(CONTEXT & context)
{
    constexpr DWORD nothingHeld = 0xFFFF;
    context.FloatSave.StatusWord &= ~DWORD{0xFFFF};
    context.FloatSave.TagWord |= nothingHeld;
    // The same two again, in the newer form that has the vector unit as well.
    std::memset(context.ExtendedRegisters + 2, 0, 3);
}

bool EnterTrampoline(CONTEXT & context, ULONG_PTR & stack)
{
    DWORD const instruction = context.Eip;
    if (!HasUnwindTable(instruction))
    {
        CallerState state = {context.Eip, context.Esp, context.Ebp, context.Ebx, context.Esi, context.Edi};
        if (!LeaveForeignCode(state))
        {
            return false;
        }
        context.Eip = state.instruction - 1; // the unwinder looks for the call
        context.Ebp = state.frame;
        context.Ebx = state.ebx;
        context.Esi = state.esi;
        context.Edi = state.edi;
        stack = state.stack;
    }
    else
    {
        stack = context.Esp;
    }
    context.Eax = context.Ebp;
    context.Ecx = context.Eip;
    context.Edx = stack;
    context.Esp &= ~DWORD{15};
    context.Eip = reinterpret_cast<DWORD>(kvFaultTrampoline);
    context.EFlags &= ~inheritedFlags;
    ClearFloatingPoint(context);
    return true;
}

/// The vector unit's faults have one code here, for more than one may have come at once. Its control register tells
/// which they were: the first in the order of the processor is the one that other targets report.
DWORD CodeOf(EXCEPTION_RECORD const & record, CONTEXT const & context)
{
    if (record.ExceptionCode != STATUS_FLOAT_MULTIPLE_FAULTS && record.ExceptionCode != STATUS_FLOAT_MULTIPLE_TRAPS)
    {
        return record.ExceptionCode;
    }
    constexpr std::size_t controlPlace = 24;
    DWORD control = 0;
    std::memcpy(&control, context.ExtendedRegisters + controlPlace, sizeof control);
    DWORD const wanted = control & ~(control >> 7);
    constexpr struct
    {
        DWORD flag;
        DWORD code;
    } codes[] = {
        {0x01, EXCEPTION_FLT_INVALID_OPERATION}, {0x04, EXCEPTION_FLT_DIVIDE_BY_ZERO},
        {0x02, EXCEPTION_FLT_DENORMAL_OPERAND},  {0x08, EXCEPTION_FLT_OVERFLOW},
        {0x10, EXCEPTION_FLT_UNDERFLOW},         {0x20, EXCEPTION_FLT_INEXACT_RESULT},
    };
    for (auto const & entry : codes)
    {
        if ((wanted & entry.flag) != 0)
        {
            return entry.code;
        }
    }
    return record.ExceptionCode;
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

// Not every form of the system that this runs on tells the two failures of a division apart.
void CorrectDivision(Fault & fault)
{
    auto const * const code = static_cast<unsigned char const *>(fault.record.ExceptionAddress);
    if (fault.record.ExceptionCode == EXCEPTION_INT_DIVIDE_BY_ZERO &&
        IsQuotientTooLarge(code, DivisionInstruction::longest, fault.context))
    {
        fault.record.ExceptionCode = EXCEPTION_INT_OVERFLOW;
    }
}

LONG CALLBACK TranslateFault(EXCEPTION_POINTERS * exception)
{
    ThreadFaults * const thread = static_cast<ThreadFaults *>(TlsGetValue(slot));
    EXCEPTION_RECORD const & record = *exception->ExceptionRecord;
    DWORD const code = CodeOf(record, *exception->ContextRecord);
    if (thread == nullptr || thread->translator == nullptr || thread->depth >= mostTranslators || !IsFault(code))
    {
        return PassOn(exception);
    }
    Fault const fault = {record, *exception->ContextRecord};
    if (!EnterTrampoline(*exception->ContextRecord, thread->stack))
    {
        return PassOn(exception);
    }
    thread->fault = fault;
    thread->fault.record.ExceptionCode = code;
    CorrectDivision(thread->fault);
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

void SetFaultName(WCHAR const *) noexcept {}

} // namespace kv::platform
