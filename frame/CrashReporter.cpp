#include <kvcore/frame/KVLogFile.h>
#include <kvcore/frame/detail/CrashReporter.h>
#include <kvcore/platform/Faults.h>
#include <kvcore/platform/win32.h>

namespace kv::detail
{

namespace
{

constexpr int minidumpWithData = 2;
constexpr int consentGiven = 1;
constexpr int otherFile = 2;
constexpr DWORD anonymousData = 2;

CrashReporter * current = nullptr;

/// The older library's report has no argument for the thread's name.
class NamedFault
{
public:
    explicit NamedFault(WCHAR const * name)
    {
        kv::platform::SetFaultName(name);
    }
    ~NamedFault()
    {
        kv::platform::SetFaultName(nullptr);
    }
    NamedFault(NamedFault const &) = delete;
    NamedFault & operator=(NamedFault const &) = delete;
};

int ReportNamed(CrashReporter::ReportFaultEntry reportFault, EXCEPTION_POINTERS * fault, WCHAR const * name)
{
    NamedFault const named(name);
    return reportFault(fault, 0);
}

} // namespace

CrashReporter::CrashReporter()
    : faultReporting(LoadLibraryW(TEXT("FAULTREP.DLL"))),
      errorReporting(nullptr),
      reportFault(nullptr),
      createReport(nullptr),
      submitReport(nullptr),
      addDump(nullptr),
      closeReport(nullptr),
      registerFile(nullptr)
{
    if (faultReporting != nullptr)
    {
        reportFault =
            reinterpret_cast<ReportFaultEntry>(reinterpret_cast<void *>(GetProcAddress(faultReporting, "ReportFault")));
        if (reportFault == nullptr)
        {
            FreeLibrary(faultReporting);
            faultReporting = nullptr;
        }
    }
}

CrashReporter::~CrashReporter()
{
    if (errorReporting != nullptr)
    {
        FreeLibrary(errorReporting);
    }
    if (faultReporting != nullptr)
    {
        FreeLibrary(faultReporting);
    }
}

void CrashReporter::Report(EXCEPTION_POINTERS * fault, WCHAR const * name) const
{
    if (errorReporting == nullptr)
    {
        if (faultReporting != nullptr)
        {
            int const result = ReportNamed(reportFault, fault, name);
            KVLogFile::Object().AddFormattedLine(TEXT("Reporting exception returned %i"), result);
        }
        return;
    }

    int step = 0;
    HANDLE report = nullptr;
    HRESULT result = createReport(name, 0, nullptr, &report);
    if (result >= 0)
    {
        step = 1;
        FaultOfProcess faultOfProcess = {fault, FALSE};
        result = addDump(report, GetCurrentProcess(), nullptr, minidumpWithData, &faultOfProcess, nullptr, 0);
        if (result >= 0)
        {
            step = 2;
            int submission = 0;
            result = submitReport(report, consentGiven, 0, &submission);
            if (result >= 0)
            {
                step = 3;
                KVLogFile::Object().AddFormattedLine(TEXT("Windows Error Report returned %i"), submission);
            }
        }
        HRESULT const closed = closeReport(report);
        result = result < 0 ? result : closed;
        if (result >= 0)
        {
            return;
        }
    }
    KVLogFile::Object().AddFormattedLine(
        TEXT("Windows Error Report failed (Step %i, hr=0x%08x)"), step, static_cast<unsigned>(result));
}

void CrashReporter::RegisterFile(WCHAR const * path) const
{
    if (errorReporting == nullptr)
    {
        return;
    }
    HRESULT const result = registerFile(path, otherFile, anonymousData);
    if (result < 0)
    {
        KVLogFile::Object().AddFormattedLine(
            TEXT("Failed to register file \"%s\" for WER (Error: 0x%08x)"), path, static_cast<unsigned>(result));
    }
}

CrashReporter * CrashReporter::Current() noexcept
{
    return current;
}

void CrashReporter::Create()
{
    End();
    current = new CrashReporter;
}

// The pointer goes with the object: a fault that comes later is translated without a report.
void CrashReporter::End() noexcept
{
    delete current;
    current = nullptr;
}

} // namespace kv::detail
