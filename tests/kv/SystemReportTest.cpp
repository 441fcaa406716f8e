#include <kvcore/tools/kv/RunKv.h>
#include <kvcore/tools/support/ExitCodes.h>

#include <gtest/gtest.h>

#include <kvcore/frame/SysInfo.h>
#include <kvcore/platform/win32.h>
#include <support/ToolConsole.h>

namespace
{

using namespace kv::tools;
using kv::test::RunTool;
using kv::test::ToolResult;

/// A variable that is gone at the end.
class Variable
{
public:
    explicit Variable(LPCWSTR value)
    {
        SetEnvironmentVariableW(TEXT("KVCORE_TEST_TOOL"), value);
    }
    Variable(Variable const &) = delete;
    Variable & operator=(Variable const &) = delete;
    ~Variable()
    {
        SetEnvironmentVariableW(TEXT("KVCORE_TEST_TOOL"), nullptr);
    }
};

bool Has(std::string const & text, std::string const & part)
{
    return text.find(part) != std::string::npos;
}

} // namespace

TEST(KvSysInfo, ShowsTheSystemAndTheMachine)
{
    ToolResult const result = RunTool(RunKv, {"sysinfo"});
    EXPECT_EQ(ExitOk, result.code);
    EXPECT_EQ("", result.error);
    EXPECT_EQ(0u, result.output.find("System       Windows Post-Vista  (0x7FFFFFFF)\nProcessors   ")) << result.output;
    SYSTEM_INFO machine;
    String processor;
    SysInfo::GetSystemInfo(machine, processor);
    EXPECT_TRUE(
        Has(result.output, "\nProcessors   " + std::to_string(machine.dwNumberOfProcessors) + ", " + processor.Utf8()))
        << result.output;
    EXPECT_TRUE(Has(result.output, "pages of 4096 bytes, views at multiples of 65536\n")) << result.output;
    EXPECT_FALSE(Has(result.output, "Code page"));
    EXPECT_FALSE(Has(result.output, "Variable"));
}

TEST(KvSysInfo, ShowsCodePagesAndVariablesThatAreAskedFor)
{
    Variable const variable(TEXT("gr\x00FC\x00DF"));
    ToolResult const result =
        RunTool(RunKv, {"sysinfo", "--code-pages", "--env", "KVCORE_TEST_TOOL", "--env", "KVCORE_TEST_NONE"});
    EXPECT_EQ(ExitOk, result.code);
    EXPECT_TRUE(
        Has(result.output,
            "\nVariable     KVCORE_TEST_TOOL=gr\xC3\xBC\xC3\x9F\nVariable     KVCORE_TEST_NONE=\nCode page "))
        << result.output;
    EXPECT_TRUE(Has(result.output, "\nCode page     1252  ANSI Latin 1\n")) << result.output;
}

TEST(KvSysInfo, PrintsOneJsonObject)
{
    Variable const variable(TEXT("a\"b\\c\td"));
    ToolResult const result = RunTool(RunKv, {"sysinfo", "--json", "--code-pages", "--env", "KVCORE_TEST_TOOL"});
    EXPECT_EQ(ExitOk, result.code);
    EXPECT_EQ(0u, result.output.find("{\"system\":2147483647,\"name\":\"Windows Post-Vista\",\"processor\":\""))
        << result.output;
    EXPECT_TRUE(Has(result.output, ",\"pageSize\":4096,\"granularity\":65536,")) << result.output;
    EXPECT_TRUE(Has(result.output, ",\"variables\":{\"KVCORE_TEST_TOOL\":\"a\\\"b\\\\c\\u0009d\"},")) << result.output;
    EXPECT_TRUE(Has(result.output, "\"1252\":\"ANSI Latin 1\"")) << result.output;
    EXPECT_EQ("}}\n", result.output.substr(result.output.size() - 3));
    EXPECT_EQ(result.output.size() - 1, result.output.find('\n'));
}

TEST(KvSysInfo, TakesNoOtherArguments)
{
    EXPECT_EQ(ExitUsage, RunTool(RunKv, {"sysinfo", "something"}).code);
    EXPECT_EQ(ExitUsage, RunTool(RunKv, {"sysinfo", "--env"}).code);
}
