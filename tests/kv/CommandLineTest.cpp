#include <kvcore/tools/kv/RunKv.h>
#include <kvcore/tools/support/ExitCodes.h>

#include <gtest/gtest.h>

#include <support/ToolConsole.h>

namespace
{

using namespace kv::tools;
using kv::test::RunTool;
using kv::test::ToolResult;

using Arguments = std::vector<std::string>;

TEST(KvHelp, EveryCommandHasOneHelpByTwoWays)
{
    for (char const * command : {"encode", "decode", "sum", "classid", "help"})
    {
        ToolResult const byCommand = RunTool(RunKv, {"help", command});
        ToolResult const byOption = RunTool(RunKv, {command, "--help"});
        EXPECT_EQ(byCommand.code, ExitOk);
        EXPECT_EQ(byCommand.error, "");
        EXPECT_NE(byCommand.output.find("Usage: kv " + std::string(command)), std::string::npos) << byCommand.output;
        EXPECT_TRUE(byCommand.output.ends_with("\n"));
        EXPECT_EQ(byOption.output, byCommand.output);
        EXPECT_EQ(RunTool(RunKv, {command, "-h"}).output, byCommand.output);
    }
}

TEST(KvHelp, TheOverviewNamesTheCommandsAndExitCodes)
{
    ToolResult const help = RunTool(RunKv, {"--help"});
    EXPECT_EQ(help.code, ExitOk);
    EXPECT_EQ(RunTool(RunKv, {"help"}).output, help.output);
    for (char const * part :
         {"  encode", "  decode", "  sum", "  classid", "  help", "--version", "Exit codes:", "  3  "})
    {
        EXPECT_NE(help.output.find(part), std::string::npos) << part;
    }
}

TEST(KvHelp, OptionsAreTold)
{
    struct
    {
        char const * command;
        std::vector<char const *> parts;
    } const table[] = {
        {"encode",
         {"CHAIN", "--input FILE", "--output FILE", "--level N", "--line-width N", "deflate", "crc", "base64",
          "crypt"}},
        {"decode", {"CHAIN", "--input FILE", "--output FILE", "deflate", "crc", "base64", "crypt"}},
        {"sum",
         {"[FILE...]", "--hex", "--base64", "--both", "--check", "--quiet", "--status", "--strict", "--warn",
          "--ignore-missing"}},
        {"classid", {"NAME...", "--no-strip"}},
    };
    for (auto const & row : table)
    {
        std::string const help = RunTool(RunKv, {"help", row.command}).output;
        for (char const * part : row.parts)
        {
            EXPECT_NE(help.find(part), std::string::npos) << part << " is not in the help of " << row.command;
        }
    }
}

TEST(KvHelp, LinesFitATerminal)
{
    for (char const * command : {"", "encode", "decode", "sum", "classid", "help"})
    {
        std::string const help = RunTool(RunKv, {"help", command}).output;
        for (std::size_t start = 0; start < help.size();)
        {
            std::size_t const end = help.find('\n', start);
            EXPECT_LE(end - start, 80U) << help.substr(start, end - start);
            start = end + 1;
        }
    }
}

TEST(KvVersion, NamesTheProgramAndTheLibrary)
{
    ToolResult const result = RunTool(RunKv, {"--version"});
    EXPECT_EQ(result.code, ExitOk);
    EXPECT_TRUE(result.output.starts_with("kv ")) << result.output;
    EXPECT_TRUE(result.output.ends_with(" (KVCore)\n")) << result.output;
}

TEST(KvUsage, MistakesAreExplainedOnTheErrorStreamAlone)
{
    struct
    {
        Arguments arguments;
        char const * text;
    } const table[] = {
        {{"encodee"}, "encodee"},
        {{"--what"}, "--what"},
        {{"encode"}, "CHAIN is required"},
        {{"encode", "crc", "more"}, "more"},
        {{"encode", "crc", "--what"}, "--what"},
        {{"encode", "zip"}, "unknown stage \"zip\"; known stages are deflate, crc, base64 and crypt"},
        {{"decode", "crc,,base64"}, "CHAIN has an empty stage"},
        {{"decode", ""}, "CHAIN has an empty stage"},
        {{"decode", "crc,"}, "CHAIN has an empty stage"},
        {{"encode", ":9"}, "CHAIN has an empty stage"},
        {{"encode", "Deflate"}, "unknown stage \"Deflate\""},
        {{"encode", "crc:1"}, "stage crc takes no number"},
        {{"encode", "deflate:10"}, "\"10\" is not a number from -1"},
        {{"encode", "deflate:-2"}, "\"-2\" is not a number from -1"},
        {{"encode", "deflate:"}, "\"\" is not a number from -1"},
        {{"encode", "deflate:9x"}, "\"9x\" is not a number from -1"},
        {{"encode", "base64:-1"}, "\"-1\" is not a number of characters"},
        {{"encode", "base64:99999999999"}, "\"99999999999\" is not a number of characters"},
        {{"encode", "deflate", "--level", "10"}, "--level \"10\" is not a number from -1"},
        {{"encode", "base64", "--line-width", "x"}, "--line-width \"x\" is not a number of characters"},
        {{"encode", "crc", "--level", "9"}, "--level is for stage deflate, which CHAIN does not have"},
        {{"encode", "crc", "--line-width", "9"}, "--line-width is for stage base64, which CHAIN does not have"},
        {{"encode", "crc", "--input"}, "--input"},
        {{"sum", "--quiet"}, "--check"},
        {{"sum", "--hex", "--both"}, "--hex"},
        {{"sum", "--check", "--base64"}, "--base64"},
        {{"classid"}, "NAME"},
        {{"help", "me"},
         "unknown command 'me'; known are encode, decode, sum, classid, find, size, remove, info, "
         "path, url, cat, "},
    };
    for (auto const & row : table)
    {
        ToolResult const result = RunTool(RunKv, row.arguments, "some input");
        EXPECT_EQ(result.code, ExitUsage) << row.text;
        EXPECT_EQ(result.output, "") << row.text;
        EXPECT_NE(result.error.find(row.text), std::string::npos) << result.error;
        EXPECT_NE(result.error.find("try 'kv help"), std::string::npos) << result.error;
        EXPECT_TRUE(result.error.starts_with("kv")) << result.error;
    }
}

TEST(KvUsage, NoCommandShowsTheHelpAsAnError)
{
    ToolResult const result = RunTool(RunKv, {});
    EXPECT_EQ(result.code, ExitUsage);
    EXPECT_EQ(result.output, "");
    EXPECT_EQ(result.error, RunTool(RunKv, {"--help"}).output);
}

TEST(KvUsage, ASlashBeginsAPathOnEveryTarget)
{
    ToolResult const result = RunTool(RunKv, {"sum", "/no/such/file"});
    EXPECT_EQ(result.code, ExitFailed);
    EXPECT_NE(result.error.find("cannot open /no/such/file"), std::string::npos) << result.error;
}

TEST(KvUsage, NamesThatLookLikeOptionsStandBehindTwoDashes)
{
    EXPECT_EQ(RunTool(RunKv, {"classid", "--", "--help"}).code, ExitOk);
}

} // namespace
