#include "FaultRecord.h"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <sys/uio.h>
#include <unistd.h>

#include <kvcore/platform/DivisionFault.h>

namespace kv::platform
{

namespace
{

#ifdef __x86_64__

constexpr long long generalProtection = 13; // the processor's number of the trap

ULONG_PTR Register(ucontext_t const & context, int index) noexcept
{
    return static_cast<ULONG_PTR>(context.uc_mcontext.gregs[index]);
}

// Code can be executable without being readable, so the kernel reads it.
std::size_t ReadCode(ULONG_PTR address, unsigned char * bytes, std::size_t size) noexcept
{
    iovec const to = {bytes, size};
    iovec const from = {reinterpret_cast<void *>(address), size};
    ssize_t const got = process_vm_readv(getpid(), &to, 1, &from, 1, 0);
    return got > 0 ? static_cast<std::size_t>(got) : 0;
}

// The code from an address on, as far as it is there: the rest of its page has to do where no other follows.
std::size_t ReadInstruction(ULONG_PTR address, unsigned char * code, std::size_t size) noexcept
{
    std::size_t const got = ReadCode(address, code, size);
    constexpr std::size_t pageSize = 4096;
    return got != 0 ? got : ReadCode(address, code, std::min(size, pageSize - address % pageSize));
}

// The processor gives one trap for a privileged instruction and for an address that it cannot form.
bool IsPrivileged(unsigned char const * code, std::size_t size) noexcept
{
    static constexpr unsigned char prefixes[] = {0x26, 0x2E, 0x36, 0x3E, 0x64, 0x65, 0x66, 0x67, 0xF2, 0xF3};
    std::size_t at = 0;
    while (at < size &&
           (std::find(std::begin(prefixes), std::end(prefixes), code[at]) != std::end(prefixes) || code[at] >> 4 == 4))
    {
        ++at;
    }
    if (at == size)
    {
        return false;
    }
    unsigned char const first = code[at];
    if (first != 0x0F)
    {
        // hlt, cli, sti, and input and output in their three forms
        return first == 0xF4 || first == 0xFA || first == 0xFB || (first >= 0x6C && first <= 0x6F) ||
            (first >= 0xE4 && first <= 0xE7) || (first >= 0xEC && first <= 0xEF);
    }
    if (at + 1 == size)
    {
        return false;
    }
    // system tables, clts, invd, wbinvd, control and debug registers, wrmsr, rdtsc, rdmsr, rdpmc
    static constexpr unsigned char second[] = {0x00, 0x01, 0x06, 0x08, 0x09, 0x20, 0x21,
                                               0x22, 0x23, 0x30, 0x31, 0x32, 0x33};
    return std::find(std::begin(second), std::end(second), code[at + 1]) != std::end(second);
}

bool IsPrivilegedAt(ULONG_PTR address) noexcept
{
    unsigned char code[15];
    std::size_t const size = ReadInstruction(address, code, sizeof code);
    return IsPrivileged(code, size);
}

void DescribeSegmentationFault(siginfo_t const & information, ucontext_t const & context, EXCEPTION_RECORD & record)
{
    long long const error = context.uc_mcontext.gregs[REG_ERR];
    record.ExceptionCode = STATUS_ACCESS_VIOLATION;
    record.NumberParameters = 2;
    record.ExceptionInformation[0] = (error & 16) != 0 ? 8 : (error & 2) != 0 ? 1 : 0;
    record.ExceptionInformation[1] = reinterpret_cast<ULONG_PTR>(information.si_addr);
    if (context.uc_mcontext.gregs[REG_TRAPNO] == generalProtection)
    {
        if (IsPrivilegedAt(InstructionOf(context)))
        {
            record.ExceptionCode = STATUS_PRIVILEGED_INSTRUCTION;
            record.NumberParameters = 0;
            return;
        }
        record.ExceptionInformation[0] = 0;
        record.ExceptionInformation[1] = ~ULONG_PTR{0};
    }
}

DWORD DivisionCode(CONTEXT const & context) noexcept
{
    unsigned char code[DivisionInstruction::longest];
    std::size_t const size = ReadInstruction(context.Rip, code, sizeof code);
    return IsQuotientTooLarge(code, size, context) ? STATUS_INTEGER_OVERFLOW : STATUS_INTEGER_DIVIDE_BY_ZERO;
}

// The system has no words for two of the causes; the processor's status has.
DWORD FloatingPointCode(int cause, ucontext_t const & context) noexcept
{
    fpregset_t const state = context.uc_mcontext.fpregs;
    unsigned const status = state == nullptr ? 0u : state->swd | (state->mxcsr & 0x3Fu);
    switch (cause)
    {
    case FPE_FLTDIV:
        return STATUS_FLOAT_DIVIDE_BY_ZERO;
    case FPE_FLTOVF:
        return STATUS_FLOAT_OVERFLOW;
    case FPE_FLTUND:
        return (status & 0x12u) == 0x02u ? STATUS_FLOAT_DENORMAL_OPERAND : STATUS_FLOAT_UNDERFLOW;
    case FPE_FLTRES:
        return STATUS_FLOAT_INEXACT_RESULT;
    default:
        return (status & 0x40u) != 0 ? STATUS_FLOAT_STACK_CHECK : STATUS_FLOAT_INVALID_OPERATION;
    }
}

void CopyRegisters(ucontext_t const & from, CONTEXT & context) noexcept
{
    std::memset(&context, 0, sizeof context);
    context.ContextFlags = CONTEXT_CONTROL | CONTEXT_INTEGER;
    context.Rax = Register(from, REG_RAX);
    context.Rcx = Register(from, REG_RCX);
    context.Rdx = Register(from, REG_RDX);
    context.Rbx = Register(from, REG_RBX);
    context.Rsp = Register(from, REG_RSP);
    context.Rbp = Register(from, REG_RBP);
    context.Rsi = Register(from, REG_RSI);
    context.Rdi = Register(from, REG_RDI);
    context.R8 = Register(from, REG_R8);
    context.R9 = Register(from, REG_R9);
    context.R10 = Register(from, REG_R10);
    context.R11 = Register(from, REG_R11);
    context.R12 = Register(from, REG_R12);
    context.R13 = Register(from, REG_R13);
    context.R14 = Register(from, REG_R14);
    context.R15 = Register(from, REG_R15);
    context.Rip = Register(from, REG_RIP);
    context.EFlags = static_cast<DWORD>(from.uc_mcontext.gregs[REG_EFL]);
    ULONG_PTR const segments = Register(from, REG_CSGSFS); // cs, gs, fs, ss from the lowest word on
    context.SegCs = static_cast<WORD>(segments);
    context.SegGs = static_cast<WORD>(segments >> 16);
    context.SegFs = static_cast<WORD>(segments >> 32);
    context.SegSs = static_cast<WORD>(segments >> 48);
    if (from.uc_mcontext.fpregs != nullptr)
    {
        static_assert(sizeof *from.uc_mcontext.fpregs == sizeof context.FltSave);
        std::memcpy(&context.FltSave, from.uc_mcontext.fpregs, sizeof context.FltSave);
        context.MxCsr = context.FltSave.MxCsr;
        context.ContextFlags |= CONTEXT_FLOATING_POINT;
    }
}

// The break point's instruction is one byte long and has been executed when the signal comes; the record names the
// instruction itself.
void StepBackOntoBreakPoint(Fault & fault) noexcept
{
    unsigned char before = 0;
    if (ReadCode(fault.context.Rip - 1, &before, 1) == 1 && before == 0xCC)
    {
        --fault.context.Rip;
        fault.record.ExceptionAddress = reinterpret_cast<PVOID>(fault.context.Rip);
    }
}

#else

void DescribeSegmentationFault(siginfo_t const & information, ucontext_t const &, EXCEPTION_RECORD & record)
{
    record.ExceptionCode = STATUS_ACCESS_VIOLATION;
    record.NumberParameters = 2;
    record.ExceptionInformation[1] = reinterpret_cast<ULONG_PTR>(information.si_addr);
}

DWORD DivisionCode(CONTEXT const &) noexcept
{
    return STATUS_INTEGER_DIVIDE_BY_ZERO;
}

DWORD FloatingPointCode(int cause, ucontext_t const &) noexcept
{
    switch (cause)
    {
    case FPE_FLTDIV:
        return STATUS_FLOAT_DIVIDE_BY_ZERO;
    case FPE_FLTOVF:
        return STATUS_FLOAT_OVERFLOW;
    case FPE_FLTUND:
        return STATUS_FLOAT_UNDERFLOW;
    case FPE_FLTRES:
        return STATUS_FLOAT_INEXACT_RESULT;
    default:
        return STATUS_FLOAT_INVALID_OPERATION;
    }
}

void CopyRegisters(ucontext_t const & from, CONTEXT & context) noexcept
{
    context.ContextFlags = 0;
    context.Sp = StackPointerOf(from);
    context.Pc = InstructionOf(from);
}

void StepBackOntoBreakPoint(Fault &) noexcept {}

#endif

DWORD ArithmeticCode(int cause, ucontext_t const & context, CONTEXT const & registers) noexcept
{
    switch (cause)
    {
    case FPE_INTDIV:
        return DivisionCode(registers);
    case FPE_INTOVF:
        return STATUS_INTEGER_OVERFLOW;
    case FPE_FLTSUB:
        return STATUS_ARRAY_BOUNDS_EXCEEDED;
    default:
        return FloatingPointCode(cause, context);
    }
}

void DescribeBusError(siginfo_t const & information, EXCEPTION_RECORD & record) noexcept
{
    if (information.si_code == BUS_ADRALN)
    {
        record.ExceptionCode = STATUS_DATATYPE_MISALIGNMENT;
        return;
    }
    record.ExceptionCode = STATUS_IN_PAGE_ERROR;
    record.NumberParameters = 2;
    record.ExceptionInformation[1] = reinterpret_cast<ULONG_PTR>(information.si_addr);
}

} // namespace

#if defined(__x86_64__)

ULONG_PTR StackPointerOf(ucontext_t const & context) noexcept
{
    return Register(context, REG_RSP);
}

ULONG_PTR InstructionOf(ucontext_t const & context) noexcept
{
    return Register(context, REG_RIP);
}

void ClearFloatingPointExceptions(ucontext_t & context) noexcept
{
    if (fpregset_t const state = context.uc_mcontext.fpregs; state != nullptr)
    {
        state->swd = static_cast<unsigned short>(state->swd & ~0x80FFu);
        state->mxcsr &= ~0x3Fu;
    }
}

#elif defined(__aarch64__)

ULONG_PTR StackPointerOf(ucontext_t const & context) noexcept
{
    return context.uc_mcontext.sp;
}

ULONG_PTR InstructionOf(ucontext_t const & context) noexcept
{
    return context.uc_mcontext.pc;
}

void ClearFloatingPointExceptions(ucontext_t &) noexcept {}

#else

ULONG_PTR StackPointerOf(ucontext_t const &) noexcept
{
    return 0;
}

ULONG_PTR InstructionOf(ucontext_t const &) noexcept
{
    return 0;
}

void ClearFloatingPointExceptions(ucontext_t &) noexcept {}

#endif

void DescribeFault(int signal, siginfo_t const & information, ucontext_t const & context, Fault & fault) noexcept
{
    EXCEPTION_RECORD & record = fault.record;
    std::memset(&record, 0, sizeof record);
    record.ExceptionAddress = reinterpret_cast<PVOID>(InstructionOf(context));
    CopyRegisters(context, fault.context);
    switch (signal)
    {
    case SIGSEGV:
        DescribeSegmentationFault(information, context, record);
        break;
    case SIGBUS:
        DescribeBusError(information, record);
        break;
    case SIGFPE:
        record.ExceptionCode = ArithmeticCode(information.si_code, context, fault.context);
        break;
    case SIGILL:
        record.ExceptionCode = information.si_code == ILL_PRVOPC || information.si_code == ILL_PRVREG
            ? STATUS_PRIVILEGED_INSTRUCTION
            : STATUS_ILLEGAL_INSTRUCTION;
        break;
    default:
        record.ExceptionCode = information.si_code == TRAP_TRACE || information.si_code == TRAP_HWBKPT
            ? STATUS_SINGLE_STEP
            : STATUS_BREAKPOINT;
        StepBackOntoBreakPoint(fault);
        break;
    }
}

} // namespace kv::platform
