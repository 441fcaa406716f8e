#include <cstdlib>

#include <kvcore/platform/CrashReports.h>
#include <kvcore/tools/kv/ProvokeFault.h>
#include <kvcore/tools/kv/RunKv.h>
#include <kvcore/tools/support/ExitCodes.h>

#include <gtest/gtest.h>

#include <support/ScratchFolder.h>
#include <support/ToolConsole.h>

namespace
{

using namespace kv::tools;
using kv::test::RunTool;
using kv::test::ToolResult;

constexpr char report[] = "KVCore crash report\n\nTime:    2026-11-21 08:40:52 UTC\nProcess: /usr/bin/editor (12)\n"
                          "\nWhat:    Access violation (0xC0000005), writing to 0x0000000000000000\n"
                          "Where:   0x01 /usr/bin/editor+0x1 (_ZN4Clip4ReadEi+0x10)\n\nEnd of report\n";

TEST(KvCrash, ShowsAReportWithTheNamesOfTheSourceCode)
{
    ScratchFolder const folder;
    std::filesystem::path const file = folder.Write("crash-1.txt", report);
    std::u8string const path = file.generic_u8string();
    ToolResult const result = RunTool(RunKv, {"crash", std::string(path.begin(), path.end())});
    EXPECT_EQ(result.code, ExitOk);
    EXPECT_NE(result.output.find("/usr/bin/editor+0x1 (Clip::Read(int)+0x10)\n"), std::string::npos) << result.output;
    EXPECT_NE(result.output.find("What:    Access violation"), std::string::npos);
}

TEST(KvCrash, ShowsAReportAsItIs)
{
    ScratchFolder const folder;
    std::filesystem::path const file = folder.Write("crash-1.txt", report);
    std::u8string const path = file.generic_u8string();
    EXPECT_EQ(RunTool(RunKv, {"crash", "--raw", std::string(path.begin(), path.end())}).output, report);
}

TEST(KvCrash, ShowsAnyBytes)
{
    ScratchFolder const folder;
    std::string const bytes = "(_Z" + std::string(100000, '9') + "(_Z(_Z\n" + std::string(3, '\0') + "(_Zx";
    std::u8string const path = folder.Write("any", bytes).generic_u8string();
    EXPECT_EQ(RunTool(RunKv, {"crash", std::string(path.begin(), path.end())}).code, ExitOk);
}

TEST(KvCrash, ShowsEqualFramesOnce)
{
    ScratchFolder const folder;
    std::string const frames = "Stack\n   0 0xA1 a\n   1 0xB2 b\n   2 0xB2 b\n   3 0xB2 b\n   4 0xC3 c\n   5 0xC3 c\n";
    std::u8string const path = folder.Write("deep", frames).generic_u8string();
    std::string const name(path.begin(), path.end());
    EXPECT_EQ(
        RunTool(RunKv, {"crash", name}).output,
        "Stack\n   0 0xA1 a\n   1 0xB2 b\n     and 2 more of the same\n   4 0xC3 c\n     and 1 more of the same\n");
    EXPECT_EQ(RunTool(RunKv, {"crash", "--raw", name}).output, frames);
}

TEST(KvCrash, TellsOfAReportThatIsNotThere)
{
    ToolResult const result = RunTool(RunKv, {"crash", "crash-1999"});
    EXPECT_EQ(result.code, ExitFailed);
    EXPECT_NE(result.error.find("there is no report crash-1999"), std::string::npos) << result.error;
}

TEST(KvCrash, RefusesAKindThatThereIsNot)
{
    ToolResult const result = RunTool(RunKv, {"crash", "--test", "meteorite"});
    EXPECT_EQ(result.code, ExitUsage);
    EXPECT_NE(result.error.find("no fault is called \"meteorite\""), std::string::npos) << result.error;
}

TEST(KvCrash, CatchesEachFaultThatItProvokes)
{
    struct
    {
        char const * kind;
        char const * text;
    } const kinds[] = {
        {"read", "Access violation"},       {"write", "Access violation"},      {"call", "Access violation"},
        {"library", "Access violation"},    {"divide", "Divide by zero (INT)"}, {"float", "Divide by zero (FLT)"},
        {"illegal", "Illegal instruction"}, {"privileged", "Priv instruction"}, {"break", "Break point"},
#ifndef _WIN32 // there a mapped file cannot be cut, and where this runs an exhausted stack ends the process
        {"mapped", "In page error"},        {"stack", "Stack overflow"},
#endif
    };
    std::string const listed = RunTool(RunKv, {"crash", "--kinds"}).output;
    for (auto const & kind : kinds)
    {
        ToolResult const result = RunTool(RunKv, {"crash", "--test", kind.kind});
        EXPECT_EQ(result.code, ExitOk) << kind.kind << ": " << result.error;
        EXPECT_TRUE(result.output.starts_with("Caught: Fatal exception '" + std::string(kind.text) + "' caused by "))
            << result.output;
        EXPECT_NE(listed.find(kind.kind), std::string::npos);
    }
}

#ifndef _WIN32 // where the system keeps the reports
TEST(KvCrash, ListsWhatItHasProvoked)
{
    ScratchFolder const folder;
    char const * const before = std::getenv("XDG_DATA_HOME");
    std::string const restored = before == nullptr ? "" : before;
    setenv("XDG_DATA_HOME", folder.Path().c_str(), 1);
    ToolResult const none = RunTool(RunKv, {"crash"});
    ToolResult const provoked = RunTool(RunKv, {"crash", "--test", "divide"});
    ToolResult const listed = RunTool(RunKv, {"crash"});
    ToolResult const last = RunTool(RunKv, {"crash", "last"});
    before == nullptr ? unsetenv("XDG_DATA_HOME") : setenv("XDG_DATA_HOME", restored.c_str(), 1);
    EXPECT_TRUE(none.output.starts_with("No crash reports in " + folder.Path().string())) << none.output;
    EXPECT_EQ(provoked.code, ExitOk) << provoked.error;
    EXPECT_NE(listed.output.find("\n  Divide by zero (INT) (0xC0000094)\n"), std::string::npos) << listed.output;
    EXPECT_NE(last.output.find("kv::tools::(anonymous namespace)::Divide()"), std::string::npos) << last.output;
    EXPECT_TRUE(last.output.ends_with("End of report\n"));
}
#endif

} // namespace
