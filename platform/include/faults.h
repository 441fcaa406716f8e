#pragma once

// Hardware faults: their codes, the record of one, and the translator through which a thread makes exceptions of them.

#include <kvcore/platform/include/basetypes.h>

#define STATUS_GUARD_PAGE_VIOLATION 0x80000001u
#define STATUS_DATATYPE_MISALIGNMENT 0x80000002u
#define STATUS_BREAKPOINT 0x80000003u
#define STATUS_SINGLE_STEP 0x80000004u
#define STATUS_ACCESS_VIOLATION 0xC0000005u
#define STATUS_IN_PAGE_ERROR 0xC0000006u
#define STATUS_ILLEGAL_INSTRUCTION 0xC000001Du
#define STATUS_NONCONTINUABLE_EXCEPTION 0xC0000025u
#define STATUS_INVALID_DISPOSITION 0xC0000026u
#define STATUS_ARRAY_BOUNDS_EXCEEDED 0xC000008Cu
#define STATUS_FLOAT_DENORMAL_OPERAND 0xC000008Du
#define STATUS_FLOAT_DIVIDE_BY_ZERO 0xC000008Eu
#define STATUS_FLOAT_INEXACT_RESULT 0xC000008Fu
#define STATUS_FLOAT_INVALID_OPERATION 0xC0000090u
#define STATUS_FLOAT_OVERFLOW 0xC0000091u
#define STATUS_FLOAT_STACK_CHECK 0xC0000092u
#define STATUS_FLOAT_UNDERFLOW 0xC0000093u
#define STATUS_INTEGER_DIVIDE_BY_ZERO 0xC0000094u
#define STATUS_INTEGER_OVERFLOW 0xC0000095u
#define STATUS_PRIVILEGED_INSTRUCTION 0xC0000096u
#define STATUS_STACK_OVERFLOW 0xC00000FDu

#define EXCEPTION_MAXIMUM_PARAMETERS 15

/// What happened. `ExceptionAddress` is the instruction at which it happened. An access violation and an in-page error
/// have two parameters: 0 for a read, 1 for a write, 8 for the fetch of an instruction, and the address that was
/// accessed (all ones where the processor does not tell it).
struct EXCEPTION_RECORD
{
    DWORD ExceptionCode;
    DWORD ExceptionFlags;
    EXCEPTION_RECORD * ExceptionRecord;
    PVOID ExceptionAddress;
    DWORD NumberParameters;
    ULONG_PTR ExceptionInformation[EXCEPTION_MAXIMUM_PARAMETERS];
};
typedef EXCEPTION_RECORD * PEXCEPTION_RECORD;

#ifdef __x86_64__
static_assert(sizeof(EXCEPTION_RECORD) == 152);

#    define CONTEXT_AMD64 0x00100000u
#    define CONTEXT_CONTROL (CONTEXT_AMD64 | 0x01u)
#    define CONTEXT_INTEGER (CONTEXT_AMD64 | 0x02u)
#    define CONTEXT_SEGMENTS (CONTEXT_AMD64 | 0x04u)
#    define CONTEXT_FLOATING_POINT (CONTEXT_AMD64 | 0x08u)

struct alignas(16) M128A
{
    ULONGLONG Low;
    LONGLONG High;
};

/// The floating-point state as the processor saves it.
struct XMM_SAVE_AREA32
{
    WORD ControlWord;
    WORD StatusWord;
    BYTE TagWord;
    BYTE Reserved1;
    WORD ErrorOpcode;
    DWORD ErrorOffset;
    WORD ErrorSelector;
    WORD Reserved2;
    DWORD DataOffset;
    WORD DataSelector;
    WORD Reserved3;
    DWORD MxCsr;
    DWORD MxCsr_Mask;
    M128A FloatRegisters[8];
    M128A XmmRegisters[16];
    BYTE Reserved4[96];
};
static_assert(sizeof(XMM_SAVE_AREA32) == 512);

/// The processor's registers. `ContextFlags` says which groups of them are filled in.
struct alignas(16) CONTEXT
{
    ULONGLONG P1Home;
    ULONGLONG P2Home;
    ULONGLONG P3Home;
    ULONGLONG P4Home;
    ULONGLONG P5Home;
    ULONGLONG P6Home;
    DWORD ContextFlags;
    DWORD MxCsr;
    WORD SegCs;
    WORD SegDs;
    WORD SegEs;
    WORD SegFs;
    WORD SegGs;
    WORD SegSs;
    DWORD EFlags;
    ULONGLONG Dr0;
    ULONGLONG Dr1;
    ULONGLONG Dr2;
    ULONGLONG Dr3;
    ULONGLONG Dr6;
    ULONGLONG Dr7;
    ULONGLONG Rax;
    ULONGLONG Rcx;
    ULONGLONG Rdx;
    ULONGLONG Rbx;
    ULONGLONG Rsp;
    ULONGLONG Rbp;
    ULONGLONG Rsi;
    ULONGLONG Rdi;
    ULONGLONG R8;
    ULONGLONG R9;
    ULONGLONG R10;
    ULONGLONG R11;
    ULONGLONG R12;
    ULONGLONG R13;
    ULONGLONG R14;
    ULONGLONG R15;
    ULONGLONG Rip;
    XMM_SAVE_AREA32 FltSave;
    M128A VectorRegister[26];
    ULONGLONG VectorControl;
    ULONGLONG DebugControl;
    ULONGLONG LastBranchToRip;
    ULONGLONG LastBranchFromRip;
    ULONGLONG LastExceptionToRip;
    ULONGLONG LastExceptionFromRip;
};
static_assert(sizeof(CONTEXT) == 1232 && offsetof(CONTEXT, Rip) == 248 && offsetof(CONTEXT, FltSave) == 256);
#else
/// On other processors: where the instruction and the stack were, as far as the system tells.
struct CONTEXT
{
    DWORD ContextFlags;
    ULONGLONG Sp;
    ULONGLONG Pc;
};
#endif
typedef CONTEXT * PCONTEXT;

struct EXCEPTION_POINTERS
{
    PEXCEPTION_RECORD ExceptionRecord;
    PCONTEXT ContextRecord;
};
typedef EXCEPTION_POINTERS * PEXCEPTION_POINTERS;
typedef EXCEPTION_POINTERS * LPEXCEPTION_POINTERS;

/// Makes a C++ exception of a fault, on the thread that it happened on: it throws, and the exception unwinds from the
/// faulting instruction on. Must not return.
typedef void (*_se_translator_function)(unsigned int code, EXCEPTION_POINTERS * fault);

/// Installs the calling thread's translator and returns the one before it. Null is none, as every thread has from the
/// start: its faults have the platform's default. <kvcore/platform/Faults.h> tells what a program needs for it.
KVCORE_API _se_translator_function _set_se_translator(_se_translator_function translator);

/// What a file is to a crash report.
enum WER_REGISTER_FILE_TYPE
{
    WerRegFileTypeUserDocument = 1,
    WerRegFileTypeOther = 2
};
#define WER_FILE_DELETE_WHEN_DONE 1u
#define WER_FILE_ANONYMOUS_DATA 2u

extern "C"
{
    /// Names a file that belongs to the process's crash reports; they show its path, size and time of change. 0, or a
    /// negative result: ERROR_INVALID_PARAMETER's for no path, ERROR_INSUFFICIENT_BUFFER's if 64 files are registered
    /// or the path is too long to be kept. Type and flags are not looked at. Any thread.
    KVCORE_API HRESULT WINAPI WerRegisterFile(LPCWSTR path, WER_REGISTER_FILE_TYPE type, DWORD flags);

    /// Takes the file back. ERROR_NOT_FOUND's result if it was not registered.
    KVCORE_API HRESULT WINAPI WerUnregisterFile(LPCWSTR path);
}

/// What "ReportFault" of FAULTREP.DLL returns: 0 if the report was written, 3 if it could not be.
enum EFaultRepRetVal
{
    frrvOk = 0,
    frrvErr = 3
};

/// "ReportFault" itself, which is looked up in the module by this name. It writes a report about the fault into the
/// folder of crash reports and needs no heap for it, so that it works when the heap is damaged. Mode is not looked at.
/// Any thread; several at once wait for one another.
typedef EFaultRepRetVal(WINAPI * pfn_REPORTFAULT)(LPEXCEPTION_POINTERS fault, DWORD mode);
