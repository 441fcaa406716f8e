#include <kvcore/frame/detail/CrashReporter.h>

#include <functional>
#include <string>

#include <kvcore/frame/KVLogFile.h>
#include <kvcore/frame/SEHException.h>
#include <kvcore/frame/detail/ThreadName.h>
#include <kvcore/platform/win32.h>

#include <gtest/gtest.h>

#include <support/FaultKinds.h>
#include <support/LogOfTest.h>

#include "LogRig.h"

namespace
{

using kv::detail::CrashReporter;

/// What a reporting library was asked to do, and what it is to answer.
struct Library
{
    HRESULT created = 0;
    HRESULT dumped = 0;
    HRESULT submitted = 0;
    HRESULT closed = 0;
    HRESULT registered = 0;
    int submission = 0;
    std::string calls;
    WString name;
    void * fault = nullptr;
};
Library library;

HANDLE const reportHandle = reinterpret_cast<HANDLE>(static_cast<ULONG_PTR>(0x77));

HRESULT WINAPI CreateReport(WCHAR const * name, int kind, void * information, HANDLE * report)
{
    EXPECT_EQ(kind, 0);
    EXPECT_EQ(information, nullptr);
    EXPECT_EQ(*report, nullptr);
    library.calls += "create ";
    library.name = name;
    *report = reportHandle;
    return library.created;
}

HRESULT WINAPI AddDump(
    HANDLE report, HANDLE process, HANDLE thread, int kind, CrashReporter::FaultOfProcess * fault, void * options,
    DWORD flags)
{
    EXPECT_EQ(report, reportHandle);
    EXPECT_EQ(process, GetCurrentProcess());
    EXPECT_EQ(thread, nullptr);
    EXPECT_EQ(kind, 2);
    EXPECT_FALSE(fault->inOtherProcess);
    EXPECT_EQ(options, nullptr);
    EXPECT_EQ(flags, 0u);
    library.fault = fault->pointers;
    library.calls += "dump ";
    return library.dumped;
}

HRESULT WINAPI SubmitReport(HANDLE report, int consent, DWORD flags, int * result)
{
    EXPECT_EQ(report, reportHandle);
    EXPECT_EQ(consent, 1);
    EXPECT_EQ(flags, 0u);
    *result = library.submission;
    library.calls += "submit ";
    return library.submitted;
}

HRESULT WINAPI CloseReport(HANDLE report)
{
    EXPECT_EQ(report, reportHandle);
    library.calls += "close ";
    return library.closed;
}

HRESULT WINAPI RegisterFile(WCHAR const * path, int kind, DWORD flags)
{
    EXPECT_EQ(kind, 2);
    EXPECT_EQ(flags, 2u);
    library.name = path;
    library.calls += "register ";
    return library.registered;
}

int faultReports = 0;

int WINAPI ReportFaultHere(EXCEPTION_POINTERS * fault, DWORD mode)
{
    EXPECT_EQ(mode, 0u);
    library.fault = fault;
    ++faultReports;
    return 3;
}

int WINAPI FaultWhileReporting(EXCEPTION_POINTERS *, DWORD)
{
    ++faultReports;
    kv::test::DivideByZero();
    return 0;
}

int WINAPI ThrowWhileReporting(EXCEPTION_POINTERS *, DWORD)
{
    throw 7;
}

/// The program itself, held once more: a handle that can be freed.
HMODULE SomeModule()
{
    HMODULE module = nullptr;
    GetModuleHandleExW(0, nullptr, &module);
    return module;
}

class CrashReporting : public ::testing::Test
{
protected:
    CrashReporting()
    {
        library = {};
        faultReports = 0;
        ClearFaultReporting();
    }

    void ClearFaultReporting()
    {
        if (reporter.faultReporting != nullptr)
        {
            FreeLibrary(reporter.faultReporting);
        }
        reporter.faultReporting = nullptr;
        reporter.reportFault = nullptr;
    }

    void FillFaultReporting()
    {
        reporter.faultReporting = SomeModule();
        reporter.reportFault = ReportFaultHere;
    }

    void FillErrorReporting()
    {
        reporter.errorReporting = SomeModule();
        reporter.createReport = CreateReport;
        reporter.addDump = AddDump;
        reporter.submitReport = SubmitReport;
        reporter.closeReport = CloseReport;
        reporter.registerFile = RegisterFile;
    }

    /// What the report logged, without stamps.
    String LoggedBy(std::function<void()> const & work)
    {
        kv::test::LogOfTest log;
        work();
        return log.Texts();
    }

    String LogOfReport()
    {
        return LoggedBy([this] { reporter.Report(&pointers, TEXT("the name")); });
    }

    CrashReporter reporter;
    EXCEPTION_RECORD record = {};
    CONTEXT context = {};
    EXCEPTION_POINTERS pointers = {&record, &context};
};

TEST_F(CrashReporting, FindsTheSystemsReporter)
{
    CrashReporter const fresh;
    EXPECT_NE(fresh.faultReporting, nullptr);
    EXPECT_NE(fresh.reportFault, nullptr);
    EXPECT_EQ(fresh.errorReporting, nullptr);
    EXPECT_EQ(fresh.createReport, nullptr);
}

TEST_F(CrashReporting, LogsNothingWithoutALibrary)
{
    EXPECT_EQ(LogOfReport(), TEXT(""));
}

TEST_F(CrashReporting, LogsWhatReportFaultReturns)
{
    FillFaultReporting();
    EXPECT_EQ(LogOfReport(), TEXT("Reporting exception returned 3\n"));
    EXPECT_EQ(library.fault, &pointers);
}

TEST_F(CrashReporting, PrefersTheNewerLibrary)
{
    FillFaultReporting();
    FillErrorReporting();
    library.submission = 5;
    EXPECT_EQ(LogOfReport(), TEXT("Windows Error Report returned 5\n"));
    EXPECT_EQ(library.calls, "create dump submit close ");
    EXPECT_EQ(library.name, WString(TEXT("the name")));
    EXPECT_EQ(library.fault, &pointers);
    EXPECT_EQ(faultReports, 0);
}

TEST_F(CrashReporting, SaysAtWhichStepTheNewerLibraryFailed)
{
    constexpr HRESULT failure = static_cast<HRESULT>(0x80004005);
    constexpr HRESULT other = static_cast<HRESULT>(0x80070005);
    struct
    {
        HRESULT created, dumped, submitted, closed;
        char const * calls;
        WCHAR const * log;
    } const cases[] = {
        {failure, 0, 0, 0, "create ", TEXT("Windows Error Report failed (Step 0, hr=0x80004005)\n")},
        {0, failure, 0, 0, "create dump close ", TEXT("Windows Error Report failed (Step 1, hr=0x80004005)\n")},
        {0, 0, failure, 0, "create dump submit close ", TEXT("Windows Error Report failed (Step 2, hr=0x80004005)\n")},
        {0, 0, 0, failure, "create dump submit close ",
         TEXT("Windows Error Report returned 0\nWindows Error Report failed (Step 3, hr=0x80004005)\n")},
        {0, failure, 0, other, "create dump close ", TEXT("Windows Error Report failed (Step 1, hr=0x80004005)\n")},
        {1, 1, 1, 1, "create dump submit close ", TEXT("Windows Error Report returned 0\n")},
    };
    FillErrorReporting();
    for (auto const & one : cases)
    {
        library = {};
        library.created = one.created;
        library.dumped = one.dumped;
        library.submitted = one.submitted;
        library.closed = one.closed;
        EXPECT_EQ(LogOfReport(), one.log);
        EXPECT_EQ(library.calls, one.calls);
    }
}

TEST_F(CrashReporting, RegistersFilesWithTheNewerLibraryOnly)
{
    EXPECT_EQ(LoggedBy([this] { reporter.RegisterFile(TEXT("c:\\log.txt")); }), TEXT(""));
    EXPECT_EQ(library.calls, "");
    FillErrorReporting();
    EXPECT_EQ(LoggedBy([this] { reporter.RegisterFile(TEXT("c:\\log.txt")); }), TEXT(""));
    EXPECT_EQ(library.calls, "register ");
    EXPECT_EQ(library.name, WString(TEXT("c:\\log.txt")));
    library.registered = static_cast<HRESULT>(0x80070057);
    EXPECT_EQ(
        LoggedBy([this] { reporter.RegisterFile(TEXT("c:\\log.txt")); }),
        TEXT("Failed to register file \"c:\\log.txt\" for WER (Error: 0x80070057)\n"));
}

/// The process's reporter, for as long as this object.
struct ProcessReporter
{
    ProcessReporter()
    {
        CrashReporter::Create();
        CrashReporter & current = *CrashReporter::Current();
        if (current.faultReporting == nullptr)
        {
            current.faultReporting = SomeModule();
        }
        current.reportFault = ReportFaultHere;
    }
    ~ProcessReporter()
    {
        CrashReporter::End();
    }
};

TEST_F(CrashReporting, HappensBeforeAnyHandlerAndForEveryFault)
{
    ProcessReporter const process;
    int reportsAtHandler = 0;
    for (int i = 0; i < 3; ++i)
    {
        try
        {
            SEHTryCatchEnabler const scope(TEXT("reported"));
            kv::test::HitBreakPoint();
        }
        catch (SEHException const & exception)
        {
            EXPECT_EQ(exception.GetCode(), 0x80000003u);
            reportsAtHandler = faultReports;
        }
        EXPECT_EQ(reportsAtHandler, i + 1);
    }
}

TEST_F(CrashReporting, TellsTheThreadsNameToTheNewerLibrary)
{
    ProcessReporter const process;
    CrashReporter & current = *CrashReporter::Current();
    current.errorReporting = SomeModule();
    current.createReport = CreateReport;
    current.addDump = AddDump;
    current.submitReport = SubmitReport;
    current.closeReport = CloseReport;
    SEHTryCatchEnabler const scope(TEXT("clip reader"));
    EXPECT_THROW(kv::test::DivideByZero(), SEHException);
    EXPECT_EQ(library.name, WString(TEXT("clip reader")));
    EXPECT_EQ(library.calls, "create dump submit close ");
}

// Whatever a report does, the fault itself is what the handler sees.
TEST_F(CrashReporting, AReportThatFaultsOrThrowsDoesNotStopTheTranslation)
{
    ProcessReporter const process;
    CrashReporter & current = *CrashReporter::Current();
    SEHTryCatchEnabler const scope(TEXT("unlucky"));
    ULONG code = 0;
    current.reportFault = FaultWhileReporting;
    try
    {
        kv::test::ReadThroughNull();
    }
    catch (SEHException const & exception)
    {
        code = exception.GetCode();
    }
    EXPECT_EQ(code, 0xC0000005u);
    EXPECT_EQ(faultReports, 1);

    current.reportFault = ThrowWhileReporting;
    EXPECT_THROW(kv::test::ReadThroughNull(), SEHException);
    current.reportFault = ReportFaultHere;
    EXPECT_THROW(kv::test::ReadThroughNull(), SEHException);
    EXPECT_EQ(faultReports, 2);
}

TEST_F(CrashReporting, WithoutALibraryAFaultIsThrownAndNothingIsLogged)
{
    ProcessReporter const process;
    CrashReporter & current = *CrashReporter::Current();
    FreeLibrary(current.faultReporting);
    current.faultReporting = nullptr;
    current.reportFault = nullptr;
    ULONG code = 0;
    String const logged = LoggedBy(
        [&code]
        {
            SEHTryCatchEnabler const scope(TEXT("unreported"));
            try
            {
                kv::test::ReadThroughNull();
            }
            catch (SEHException const & exception)
            {
                code = exception.GetCode();
            }
        });
    EXPECT_EQ(code, 0xC0000005u);
    EXPECT_EQ(logged, TEXT(""));
    EXPECT_EQ(faultReports, 0);
}

TEST_F(CrashReporting, KnowsTheLogFromItsFirstOpeningOn)
{
    ProcessReporter const process;
    CrashReporter & current = *CrashReporter::Current();
    current.errorReporting = SomeModule();
    current.registerFile = RegisterFile;
    ScratchFolder const scratch;
    String const name = scratch.Name("log.txt");
    LooseLog const log;
    EXPECT_TRUE(log->SetFilename(name.c_str()));
    EXPECT_EQ(library.calls, "register ");
    EXPECT_EQ(library.name, name);
    EXPECT_FALSE(log->SetFilename(scratch.Name("other.txt").c_str()));
    log->Reset();
    EXPECT_EQ(library.calls, "register ") << "once is enough";
    log.End();
}

TEST_F(CrashReporting, EndsWithItsApplication)
{
    {
        ProcessReporter const process;
    }
    EXPECT_EQ(CrashReporter::Current(), nullptr);
    SEHTryCatchEnabler const scope(TEXT("late"));
    EXPECT_THROW(kv::test::ReadThroughNull(), SEHException);
    EXPECT_EQ(faultReports, 0);
}

} // namespace
