#include <cstdlib>

#include <kvcore/platform/CrashReports.h>
#include <kvcore/tools/kv/CrashLines.h>
#include <kvcore/tools/kv/LogLines.h>
#include <kvcore/tools/kv/ProvokeFault.h>
#include <kvcore/tools/kv/RunKv.h>
#include <kvcore/tools/support/ExitCodes.h>

#include <gtest/gtest.h>

#include <support/CostGrowth.h>
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

/// A linker's name whose parts refer to those before, so that each step doubles what it stands for.
std::string NameOfDoublings(int steps)
{
    std::string name = "_Z1fSt4pairIiiE";
    for (int i = 0; i < steps; ++i)
    {
        std::string const part = std::string("S") + "0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZ"[i] + "_";
        name += "S_I" + part + part + "E";
    }
    return name;
}

TEST(KvCrash, LeavesNamesThatStandForGigabytesAsTheyAre)
{
    EXPECT_EQ(WithSourceNames("(" + NameOfDoublings(34) + "+0x1)"), "(" + NameOfDoublings(34) + "+0x1)");
    EXPECT_NE(WithSourceNames("(" + NameOfDoublings(3) + "+0x1)").find("(f(std::pair<int, int>, "), std::string::npos);
    std::string many;
    for (int i = 0; i < 100; ++i)
    {
        many += "(" + NameOfDoublings(5) + ")";
    }
    EXPECT_LE(WithSourceNames(many).size(), mostSourceNames + many.size());
}

TEST(KvCrash, ShowsTheLongNamesOfTheStandardLibrary)
{
    EXPECT_EQ(
        WithSourceNames("(_ZNSt3mapI6StringSt6vectorIiSaIiEESt4lessIS0_ESaISt4pairIKS0_S3_EEEixERS7_+0x1)"),
        "(std::map<String, std::vector<int, std::allocator<int> >, std::less<String>, std::allocator<std::pair<String "
        "const, std::vector<int, std::allocator<int> > > > >::operator[](String const&)+0x1)");
}

TEST(KvCrash, TakesTimeThatGrowsWithTheReportAndNoFaster)
{
    for (std::string const & part : {std::string("(_ZS"), std::string("(_ZJ"), "(" + NameOfDoublings(30)})
    {
        EXPECT_TRUE(kv::test::GrowsNearLinearly(
            1 << 11, 1 << 16,
            [&part](std::size_t names)
            {
                std::string text;
                for (std::size_t i = 0; i < names; ++i)
                {
                    text += part + (i % 64 == 63 ? "\n" : "");
                }
                return text;
            },
            [](std::string const & text)
            {
                LineCutter lines;
                lines.Add(text, [](std::string_view line) { EXPECT_EQ(WithSourceNames(std::string(line)), line); });
            }))
            << part;
    }
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
    EXPECT_NE(last.output.find("\nScope:   kv crash --test\n"), std::string::npos) << last.output;
    EXPECT_EQ(last.output.find("0x0000000000000000 in no module"), std::string::npos) << last.output;
    EXPECT_TRUE(last.output.ends_with("End of report\n"));
}
#endif

} // namespace
