#include <kvcore/tools/kv/DialogOutline.h>
#include <kvcore/tools/kv/RunKv.h>
#include <kvcore/tools/support/ExitCodes.h>

#include <filesystem>

#include <gtest/gtest.h>

#include <support/ScratchFolder.h>
#include <support/ToolConsole.h>

namespace
{

using namespace kv::tools;
using kv::test::RunTool;
using kv::test::ToolResult;

/// The same resources in a library of this system, and in a file of Windows'.
class KvResources : public testing::TestWithParam<char const *>
{
protected:
    ToolResult Run(std::vector<std::string> options) const
    {
        options.insert(options.begin(), {"resources", GetParam()});
        return RunTool(RunKv, options);
    }
};

INSTANTIATE_TEST_SUITE_P(
    Forms, KvResources, testing::Values(KVCORE_TEST_MODULE, KVCORE_TEST_RESOURCES),
    [](auto const & form) { return form.index == 0 ? "Library" : "ResourceFile"; });

TEST_P(KvResources, AllAreListed)
{
    ToolResult const result = Run({});
    EXPECT_EQ(ExitOk, result.code) << result.error;
    EXPECT_EQ(0u, result.output.find("TYPE "));
    for (char const * const line :
         {"PICTURE      MIXED  0000      15\n", "dialog       1      0409 en   ", "string       1      0407 de   ",
          "version      1      0409 en   372\n", "300          8      000c fr   2\n"})
    {
        EXPECT_NE(std::string::npos, result.output.find(line)) << line << "\n" << result.output;
    }
}

TEST_P(KvResources, StringsAreShownByLanguage)
{
    EXPECT_EQ(
        "strings, 0407 de\n  1  eins\n  17  siebzehn\n  18  Gr\xC3\xBC\xC3\x9F"
        "e\n",
        Run({"--strings", "--language", "0407"}).output);
    EXPECT_NE(std::string::npos, Run({"--strings"}).output.find("strings, 0409 en\n  1  one\n"));
    EXPECT_NE(std::string::npos, Run({"--strings"}).output.find("  65535  the last of all\n"));
}

TEST_P(KvResources, DialogsAreDrawn)
{
    std::string const drawn = Run({"--dialogs"}).output;
    EXPECT_EQ(0u, drawn.find("dialog 1, 0409 en, 200 x 100 at 10,20, MS Shell Dlg 8\n  +- Standard ---")) << drawn;
    for (char const * const part :
         {"Name:", "[__________________]", "[OK      ]", "+- Extended ---", "[ ] Check", "[Cancel  ]",
          "  100          50,5      80 x 12    edit\n", "  2           100,80     40 x 14    button \"Cancel\"\n"})
    {
        EXPECT_NE(std::string::npos, drawn.find(part)) << part << "\n" << drawn;
    }
    EXPECT_EQ(std::string::npos, drawn.find("the resource ends here"));
}

TEST_P(KvResources, TheVersionBlockIsShown)
{
    EXPECT_EQ(
        "version 1, 0409 en\n  file     1.2.3.4\n  product  5.6.7.8\n  texts 0409 en\n"
        "  CompanyName: Someone\n  FileDescription: Resources for tests\n",
        Run({"--version-block"}).output);
}

TEST_P(KvResources, AResourceIsExtractedAsItIsStored)
{
    EXPECT_EQ("abc", Run({"--extract", "PICTURE/7"}).output);
    EXPECT_EQ("french", Run({"--extract", "data/THING/040c"}).output);
    EXPECT_EQ("french", Run({"--extract", "10/THING/040c"}).output);
    ToolResult const missing = Run({"--extract", "data/none"});
    EXPECT_EQ(ExitFailed, missing.code);
    EXPECT_EQ("kv resources: " + std::string(GetParam()) + ": there is no resource data/none\n", missing.error);
}

TEST(KvResourcesOfOthers, WhatIsNoModuleIsReported)
{
    ScratchFolder const folder;
    folder.Write("text.txt", std::string(1000, 'x'));
    std::u8string const path = (folder / "text.txt").generic_u8string();
    std::string const name(path.begin(), path.end());
    ToolResult const result = RunTool(RunKv, {"resources", name});
    EXPECT_EQ(ExitFailed, result.code);
    EXPECT_EQ("kv resources: " + name + ": no program or library\n", result.error);
    EXPECT_EQ(ExitFailed, RunTool(RunKv, {"resources", name + ".missing"}).code);
}

TEST(KvResourcesOfOthers, ADialogThatIsCutOffAnywhereIsShownAsFarAsItGoes)
{
    std::string const whole = RunTool(RunKv, {"resources", KVCORE_TEST_RESOURCES, "--extract", "dialog/2"}).output;
    ASSERT_FALSE(ReadDialog(whole.data(), whole.size()).damaged);
    ASSERT_EQ(2u, ReadDialog(whole.data(), whole.size()).items.size());
    for (std::size_t size = 0; size + 4 < whole.size(); ++size)
    {
        std::string const part = whole.substr(0, size);
        DialogOutline const dialog = ReadDialog(part.data(), part.size());
        EXPECT_TRUE(dialog.damaged) << size;
        EXPECT_LT(dialog.items.size(), 2u) << size;
        EXPECT_NE(std::string::npos, DrawDialog(dialog).find("the resource ends here"));
    }
}

TEST(KvModules, TheProgramStandsFirstAndItsOwnModulesFollow)
{
    ToolResult const result = RunTool(RunKv, {"modules", "self"});
    EXPECT_EQ(ExitOk, result.code) << result.error;
    std::size_t const first = result.output.find('\n') + 1;
    EXPECT_EQ(0u, result.output.find("ADDRESS "));
    EXPECT_EQ(0u, result.output.compare(first, 2, "0x"));
    EXPECT_NE(std::string::npos, result.output.substr(first, result.output.find('\n', first) - first).find("test_kv"));
    EXPECT_EQ(result.output, RunTool(RunKv, {"modules"}).output);
}

TEST(KvModules, WhatIsNoProcessIsReported)
{
    EXPECT_EQ(ExitUsage, RunTool(RunKv, {"modules", "me"}).code);
    EXPECT_EQ(ExitUsage, RunTool(RunKv, {"modules", "0"}).code);
    ToolResult const result = RunTool(RunKv, {"modules", "4294967295"});
    EXPECT_EQ(ExitFailed, result.code);
    EXPECT_EQ(0u, result.error.find("kv modules: process 4294967295: "));
}

} // namespace
