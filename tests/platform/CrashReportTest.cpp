#ifndef _WIN32 // Windows has its own error reporting

#    include <fcntl.h>
#    include <malloc.h>
#    include <sys/prctl.h>
#    include <sys/resource.h>
#    include <sys/wait.h>
#    include <unistd.h>

#    include <algorithm>
#    include <csignal>
#    include <functional>
#    include <regex>
#    include <thread>

#    include <kvcore/platform/CrashReports.h>
#    include <kvcore/platform/Faults.h>
#    include <kvcore/platform/linux/faults/ReportFiles.h>
#    include <kvcore/platform/win32.h>
#    include <support/FaultKinds.h>
#    include <support/ScratchFolder.h>

#    include <gtest/gtest.h>

namespace
{

pfn_REPORTFAULT reportFault = nullptr;

void ReportAndEnd(unsigned, EXCEPTION_POINTERS * fault)
{
    _exit(reportFault(fault, 0) == frrvOk ? 0 : 1);
}

void ReportAndThrow(unsigned code, EXCEPTION_POINTERS * fault)
{
    reportFault(fault, 0);
    throw code;
}

class CrashReports : public testing::Test
{
protected:
    /// Runs `work` in a child process, whose data directory is the scratch folder. Its wait status.
    int RunChild(std::function<void()> const & work)
    {
        pid_t const child = fork();
        if (child == 0)
        {
            setenv("XDG_DATA_HOME", folder.Path().c_str(), 1);
            HMODULE const module = LoadLibraryW(TEXT("FAULTREP.DLL"));
            if (module != nullptr)
            {
                reportFault =
                    reinterpret_cast<pfn_REPORTFAULT>(reinterpret_cast<void *>(GetProcAddress(module, "ReportFault")));
            }
            if (reportFault != nullptr)
            {
                work();
            }
            _exit(99);
        }
        int status = 0;
        waitpid(child, &status, 0);
        return status;
    }

    static void FaultAndReport(void (*provoke)())
    {
        kv::platform::SetFaultTranslator(ReportAndEnd);
        provoke();
    }

    std::vector<std::filesystem::path> Reports() const
    {
        std::vector<std::filesystem::path> reports;
        std::error_code none; // of a folder that is not there
        for (auto const & entry : std::filesystem::directory_iterator(folder / "kvcore/crashes", none))
        {
            reports.push_back(entry.path());
        }
        std::sort(reports.begin(), reports.end());
        return reports;
    }

    std::string OnlyReport() const
    {
        std::vector<std::filesystem::path> const reports = Reports();
        return reports.size() == 1 ? folder.Read(std::filesystem::relative(reports[0], folder.Path())) : std::string();
    }

    ScratchFolder folder;
};

bool Matches(std::string const & text, char const * pattern)
{
    return std::regex_search(text, std::regex(pattern, std::regex::multiline));
}

TEST_F(CrashReports, TellWhatWhereAndHow)
{
    int const status = RunChild([] { FaultAndReport(kv::test::WriteThroughNull); });
    ASSERT_EQ(status, 0);
    std::string const report = OnlyReport();
    EXPECT_TRUE(Matches(report, "^What: +Access violation \\(0xC0000005\\), writing to 0x0000000000000000$")) << report;
    EXPECT_TRUE(Matches(report, "^Where: +0x[0-9A-F]{16} .*test_platform\\+0x[0-9A-F]+ \\(.*WriteThroughNull.*\\+0x"));
    EXPECT_TRUE(Matches(report, "^Process: /.*test_platform \\([0-9]+\\)$"));
    EXPECT_TRUE(Matches(report, "^Command: .*test_platform"));
    EXPECT_TRUE(Matches(report, "^Time: +20[0-9]{2}-[01][0-9]-[0-3][0-9] [0-2][0-9]:[0-5][0-9]:[0-5][0-9] UTC$"));
    EXPECT_TRUE(Matches(report, "^  rax +0x[0-9A-F]{16} +rbx "));
    EXPECT_TRUE(Matches(report, "rip +0x[0-9A-F]{16}"));
    EXPECT_TRUE(report.ends_with("\nEnd of report\n"));
}

/// Runs `work` with files that can grow to a size and no further, as on a full disk.
void WithFilesUpTo(rlim_t size, std::function<void()> const & work)
{
    std::signal(SIGXFSZ, SIG_IGN);
    rlimit const limit = {size, size};
    setrlimit(RLIMIT_FSIZE, &limit);
    work();
}

TEST_F(CrashReports, LeaveNoEmptyFileOnAFullDisk)
{
    ASSERT_EQ(RunChild([] { FaultAndReport(kv::test::WriteThroughNull); }), 0);
    std::vector<std::filesystem::path> const before = Reports();
    ASSERT_EQ(before.size(), 1u);
    int const status = RunChild([] { WithFilesUpTo(0, [] { FaultAndReport(kv::test::WriteThroughNull); }); });
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 1) << "it says that there is no report";
    EXPECT_EQ(Reports(), before);
}

TEST_F(CrashReports, KeepTheirBeginningOnADiskThatFillsUp)
{
    int const status = RunChild([] { WithFilesUpTo(300, [] { FaultAndReport(kv::test::WriteThroughNull); }); });
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 1);
    EXPECT_EQ(OnlyReport().size(), 300u);
    EXPECT_TRUE(OnlyReport().starts_with("KVCore crash report\n\nTime:    "));
}

TEST_F(CrashReports, FollowTheStackFromTheFaultOn)
{
    ASSERT_EQ(RunChild([] { FaultAndReport(kv::test::FaultInSortCallback); }), 0);
    std::string const report = OnlyReport();
    EXPECT_TRUE(Matches(report, "^   0 0x[0-9A-F]{16} .*test_platform.*CompareBadly")) << report;
    EXPECT_TRUE(Matches(report, "^   [1-9] 0x[0-9A-F]{16} .*(libc\\.so|qsort).*")) << report;
    EXPECT_TRUE(Matches(report, "^ +[1-9][0-9]? 0x[0-9A-F]{16} .*\\(.*FaultInSortCallback.*\\+0x")) << report;
    EXPECT_FALSE(Matches(report, "ReportAndEnd"));
}

TEST_F(CrashReports, EndTheStackWithTheThreadsFirstFunction)
{
    int const status = RunChild([] { std::thread([] { FaultAndReport(kv::test::WriteThroughNull); }).join(); });
    ASSERT_EQ(status, 0);
    std::string const report = OnlyReport();
    EXPECT_TRUE(Matches(report, "^ +[1-9][0-9]? 0x[0-9A-F]{16} .*libc\\.so.*")) << report;
    EXPECT_FALSE(Matches(report, "^ +[0-9]+ 0x[0-9A-F]{16} in no module$")) << report;
}

TEST_F(CrashReports, TellTheThreadsName)
{
    int const status = RunChild(
        []
        {
            kv::platform::SetFaultName(u"Render of r\u00E9sum\u00E9 \U0001F600\x1B[2J and a lone \xD800");
            FaultAndReport(kv::test::WriteThroughNull);
        });
    ASSERT_EQ(status, 0);
    std::string const report = OnlyReport();
    EXPECT_NE(
        report.find("\nScope:   Render of r\xC3\xA9sum\xC3\xA9 \xF0\x9F\x98\x80?[2J and a lone ?\n"), std::string::npos)
        << report;
}

TEST_F(CrashReports, TellNoNameWhereThereIsNone)
{
    for (WCHAR const * const name : {static_cast<WCHAR const *>(nullptr), u""})
    {
        std::filesystem::remove_all(folder / "kvcore");
        int const status = RunChild(
            [name]
            {
                kv::platform::SetFaultName(name);
                FaultAndReport(kv::test::WriteThroughNull);
            });
        ASSERT_EQ(status, 0);
        EXPECT_EQ(OnlyReport().find("Scope:"), std::string::npos);
    }
}

TEST_F(CrashReports, NameACallThroughNullByItsCaller)
{
    ASSERT_EQ(RunChild([] { FaultAndReport(kv::test::CallNull); }), 0);
    std::string const report = OnlyReport();
    EXPECT_TRUE(Matches(report, "^What: .*, executing 0x0000000000000000$")) << report;
    EXPECT_TRUE(Matches(report, "^Where: +0x0000000000000000 in no module$")) << report;
    EXPECT_TRUE(Matches(report, "^   0 0x[0-9A-F]{16} .*\\(.*CallNull")) << report;
}

TEST_F(CrashReports, ListThreadsModulesAndFiles)
{
    std::filesystem::path const log = folder.Write("the log.txt", "hello");
    int const status = RunChild(
        [this]
        {
            prctl(PR_SET_NAME, "worker bee");
            WerRegisterFile(folder.Name("the log.txt").c_str(), WerRegFileTypeOther, WER_FILE_ANONYMOUS_DATA);
            WerRegisterFile(folder.Name("later.txt").c_str(), WerRegFileTypeOther, WER_FILE_ANONYMOUS_DATA);
            FaultAndReport(kv::test::DivideByZero);
        });
    ASSERT_EQ(status, 0);
    std::string const report = OnlyReport();
    EXPECT_TRUE(Matches(report, "^Thread: +[0-9]+ worker bee$")) << report;
    EXPECT_TRUE(Matches(report, "^  [0-9]+ worker bee$")) << report;
    EXPECT_TRUE(Matches(report, "^  0x[0-9A-F]{16}-0x[0-9A-F]{16} 6\\.[0-9.]+ [0-9a-f]{40} .*libstdc\\+\\+")) << report;
    EXPECT_TRUE(Matches(report, "^  0x[0-9A-F]{16}-0x[0-9A-F]{16} [^ ]+ [^ ]+ .*libkvplatform")) << report;
    EXPECT_NE(report.find("  " + log.string() + ", 5 bytes, 20"), std::string::npos) << report;
    EXPECT_NE(report.find("/later.txt, not there\n"), std::string::npos) << report;
}

/// A block whose neighbourhood is overwritten.
void * overrun = nullptr;

/// A block with no room beyond its size. The allocator sometimes gives a larger one, which belongs into another list.
void * BlockOfExactly(std::size_t size)
{
    void * block = std::malloc(size);
    while (malloc_usable_size(block) > size)
    {
        block = std::malloc(size); // the others are lost, and the process soon
    }
    return block;
}

// What use after free and overruns leave: lists of free blocks that lead nowhere, so that the C library's allocator
// ends the process at the next small block of any size; and a block that the sanitizer's cannot free any more.
__attribute__((noinline, no_sanitize("address", "undefined", "thread"))) void DamageHeap()
{
    constexpr std::size_t largestListed = 1032;
    constexpr int listLength = 7;
    constexpr ULONG_PTR garbage = 0x4141414141414141;
    for (std::size_t size = 24; size <= largestListed; size += 16)
    {
        void * volatile const first = BlockOfExactly(size);
        void * volatile const second = BlockOfExactly(size);
        void * volatile others[listLength];
        std::generate(std::begin(others), std::end(others), [size] { return BlockOfExactly(size); });
        std::for_each(std::begin(others), std::end(others), [](void * other) { std::free(other); });
        // The list is full now whatever it held before. Taken from it, nothing is put onto it: it is empty after this.
        std::generate(std::begin(others), std::end(others), [size] { return std::malloc(size); });
        ULONG_PTR volatile * const link = static_cast<ULONG_PTR *>(second);
        std::free(first);
        std::free(second);
        *link = garbage;
        void * volatile const third = std::malloc(size);
        static_cast<void>(third);
    }
#    ifdef __SANITIZE_ADDRESS__
    overrun = std::malloc(24);
    ULONG_PTR volatile * const header = static_cast<ULONG_PTR *>(overrun) - 2;
    header[0] = garbage;
    header[1] = garbage;
#    endif
}

void ReportAndUseTheHeap(unsigned, EXCEPTION_POINTERS * fault)
{
    static bool hasReported = false;
    if (hasReported)
    {
        _exit(96); // the allocator has met the garbage, and faults itself
    }
    hasReported = true;
    bool const written = reportFault(fault, 0) == frrvOk;
    if (written)
    {
        for (std::size_t size = 24; size < 1000; size += 16)
        {
            void * volatile const block = std::malloc(size);
            std::free(block);
        }
        std::free(overrun);
    }
    _exit(written ? 98 : 97);
}

TEST_F(CrashReports, NeedNoHeap)
{
    int const status = RunChild(
        []
        {
            kv::platform::SetFaultTranslator(ReportAndUseTheHeap);
            std::freopen("/dev/null", "w", stderr); // the allocator's own complaint
            DamageHeap();
            kv::test::WriteThroughNull();
        });
#    ifdef __SANITIZE_THREAD__ // whose allocator keeps nothing beside its blocks, and cannot be damaged so
    EXPECT_EQ(WEXITSTATUS(status), 98);
#    else
    EXPECT_FALSE(WIFEXITED(status) && WEXITSTATUS(status) >= 97) << status;
#    endif
    std::string const report = OnlyReport();
    EXPECT_TRUE(report.ends_with("\nEnd of report\n")) << status << '\n' << report;
}

TEST_F(CrashReports, AreWrittenOnAnExhaustedStack)
{
    int const status = RunChild(
        []
        {
            kv::platform::SetFaultTranslator(ReportAndEnd);
            long constructed = 0;
            long destroyed = 0;
            kv::test::ExhaustStack(constructed, destroyed);
        });
    ASSERT_EQ(status, 0);
    std::string const report = OnlyReport();
    EXPECT_TRUE(Matches(report, "^What: +Stack overflow \\(0xC00000FD\\)$")) << report;
    EXPECT_TRUE(Matches(report, "^  95 0x[0-9A-F]{16} .*Recurse")) << report;
    EXPECT_NE(report.find("  Further frames are left out.\n"), std::string::npos);
    EXPECT_TRUE(report.ends_with("\nEnd of report\n"));
}

TEST_F(CrashReports, HaveNamesOfTheirOwnAndTheOldestGo)
{
    folder.Write("kvcore/crashes/crash-20010101-000000-1-0000.txt", "old");
    folder.Write("kvcore/crashes/notes.txt", "not a report");
    int const status = RunChild(
        []
        {
            kv::platform::SetFaultTranslator(ReportAndThrow);
            for (int i = 0; i < kv::platform::mostCrashReports; ++i)
            {
                try
                {
                    kv::test::WriteThroughNull();
                }
                catch (unsigned)
                {
                }
            }
            _exit(0);
        });
    ASSERT_EQ(status, 0);
    EXPECT_EQ(Reports().size(), kv::platform::mostCrashReports + 1u);
    EXPECT_FALSE(std::filesystem::exists(folder / "kvcore/crashes/crash-20010101-000000-1-0000.txt"));
    EXPECT_TRUE(std::filesystem::exists(folder / "kvcore/crashes/notes.txt"));
}

TEST_F(CrashReports, FailWhereThereIsNoFolder)
{
    folder.Write("kvcore/crashes", "a file is in the way");
    EXPECT_NE(RunChild([] { FaultAndReport(kv::test::WriteThroughNull); }), 0);
    EXPECT_EQ(folder.Read("kvcore/crashes"), "a file is in the way");
}

TEST_F(CrashReports, ComeFromTheModuleOfThatName)
{
    for (WCHAR const * const name : {TEXT("FAULTREP.DLL"), TEXT("faultrep.dll"), TEXT("FAULTREP")})
    {
        HMODULE const module = LoadLibraryW(name);
        ASSERT_NE(module, nullptr);
        EXPECT_NE(GetProcAddress(module, "ReportFault"), nullptr);
        EXPECT_EQ(GetProcAddress(module, "LoadLibraryW"), nullptr);
        EXPECT_TRUE(FreeLibrary(module));
    }
}

TEST_F(CrashReports, AreRefusedWithoutAFault)
{
    int const status = RunChild([] { _exit(reportFault(nullptr, 0) == frrvErr ? 0 : 1); });
    EXPECT_EQ(status, 0);
}

TEST(ReportFiles, AreKeptOnceAndTakenBack)
{
    ScratchFolder const folder;
    String const name = folder.Name("x.txt");
    EXPECT_EQ(WerRegisterFile(nullptr, WerRegFileTypeOther, 0), static_cast<HRESULT>(0x80070057));
    EXPECT_EQ(WerUnregisterFile(name.c_str()), static_cast<HRESULT>(0x80070490));
    EXPECT_EQ(WerRegisterFile(name.c_str(), WerRegFileTypeOther, 0), 0);
    EXPECT_EQ(WerRegisterFile(name.c_str(), WerRegFileTypeOther, 0), 0);
    EXPECT_EQ(WerUnregisterFile(name.c_str()), 0);
    EXPECT_EQ(WerUnregisterFile(name.c_str()), static_cast<HRESULT>(0x80070490));
}

TEST(ReportFiles, AreLimited)
{
    ScratchFolder const folder;
    std::vector<String> names;
    HRESULT result = 0;
    for (std::size_t i = 0; i <= kv::platform::mostReportFiles && result == 0; ++i)
    {
        names.push_back(folder.Name(std::to_string(i)));
        result = WerRegisterFile(names.back().c_str(), WerRegFileTypeOther, 0);
    }
    EXPECT_EQ(result, static_cast<HRESULT>(0x8007007A));
    EXPECT_EQ(names.size(), kv::platform::mostReportFiles + 1);
    names.pop_back();
    for (String const & name : names)
    {
        EXPECT_EQ(WerUnregisterFile(name.c_str()), 0);
    }
}

} // namespace

#endif
