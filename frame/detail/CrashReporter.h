#pragma once

#include <kvcore/platform/export.h>
#include <kvcore/platform/types.h>
#include <kvcore/platform/win32.h>

namespace kv::detail
{

/// Sends faults to the system's error reporting. One object for a process, made and ended by its ApplicationBase.
///
/// Nothing in here ever loads the newer reporting library: its handle and its entries are for whoever brings one along.
/// The members are public for that, and never change after somebody has filled them, so that faults of several threads
/// may be reported at once without a lock.
struct CrashReporter
{
    struct FaultOfProcess
    {
        EXCEPTION_POINTERS * pointers;
        BOOL inOtherProcess;
    };
    using ReportFaultEntry = int(WINAPI *)(EXCEPTION_POINTERS * fault, DWORD mode);
    using CreateReportEntry = HRESULT(WINAPI *)(WCHAR const * eventName, int kind, void * information, HANDLE * report);
    using SubmitReportEntry = HRESULT(WINAPI *)(HANDLE report, int consent, DWORD flags, int * result);
    using AddDumpEntry = HRESULT(WINAPI *)(
        HANDLE report, HANDLE process, HANDLE thread, int kind, FaultOfProcess * fault, void * options, DWORD flags);
    using CloseReportEntry = HRESULT(WINAPI *)(HANDLE report);
    using RegisterFileEntry = HRESULT(WINAPI *)(WCHAR const * path, int kind, DWORD flags);

    /// Tries FAULTREP.DLL. Without it, or without its "ReportFault", the reporter has no handles and reports nothing.
    KVCORE_API CrashReporter();
    /// Frees what is loaded, the newer library first.
    KVCORE_API ~CrashReporter();
    CrashReporter(CrashReporter const &) = delete;
    CrashReporter & operator=(CrashReporter const &) = delete;

    /// Reports a fault and logs what came of it. `name` is what the thread does. On the faulting thread. Kept: the log
    /// lines take memory, and nothing guards against a heap that the fault has left damaged.
    KVCORE_API void Report(EXCEPTION_POINTERS * fault, WCHAR const * name) const;

    /// Names a file for the reports of the newer library; without it, nothing happens.
    KVCORE_API void RegisterFile(WCHAR const * path) const;

    /// The process's reporter, or null.
    KVCORE_API static CrashReporter * Current() noexcept;
    /// Make and end the process's reporter.
    KVCORE_API static void Create();
    KVCORE_API static void End() noexcept;

    HMODULE faultReporting;
    HMODULE errorReporting;
    ReportFaultEntry reportFault;
    CreateReportEntry createReport;
    SubmitReportEntry submitReport;
    AddDumpEntry addDump;
    CloseReportEntry closeReport;
    RegisterFileEntry registerFile;
};

} // namespace kv::detail
