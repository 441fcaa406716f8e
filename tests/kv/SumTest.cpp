#include <kvcore/tools/kv/RunKv.h>
#include <kvcore/tools/kv/SumList.h>
#include <kvcore/tools/support/ExitCodes.h>

#include <gtest/gtest.h>

#include <support/ScratchFolder.h>
#include <support/TestBytes.h>
#include <support/ToolConsole.h>

namespace
{

using namespace kv::tools;
using kv::test::RunTool;
using kv::test::TextSource;
using kv::test::ToolResult;

constexpr char emptyHex[] = "d41d8cd98f00b204e9800998ecf8427e";
constexpr char emptyBase64[] = "1B2M2Y8AsgTpgAmY7PhCfg";
constexpr char abcHex[] = "900150983cd24fb0d6963f7d28e17f72";
constexpr char abcBase64[] = "kAFQmDzST7DWlj99KOF/cg";

MD5Sum SumOf(char const * hex)
{
    MD5Sum sum;
    EXPECT_TRUE(sum.SetHexString(hex));
    return sum;
}

std::string Argument(std::filesystem::path const & path)
{
    std::u8string const text = path.generic_u8string();
    return {text.begin(), text.end()};
}

// Printing

TEST(KvSum, StandardInputIsSummedAsOtherToolsDo)
{
    EXPECT_EQ(RunTool(RunKv, {"sum"}, "abc").output, std::string(abcHex) + "  -\n");
    EXPECT_EQ(RunTool(RunKv, {"sum", "-"}, "").output, std::string(emptyHex) + "  -\n");
    EXPECT_EQ(RunTool(RunKv, {"sum", "--hex"}, "abc").output, std::string(abcHex) + "  -\n");
}

TEST(KvSum, SumsHaveTwoForms)
{
    EXPECT_EQ(RunTool(RunKv, {"sum", "--base64"}, "abc").output, std::string(abcBase64) + "  -\n");
    EXPECT_EQ(
        RunTool(RunKv, {"sum", "--both"}, "abc").output, std::string(abcHex) + " " + std::string(abcBase64) + "  -\n");
}

TEST(KvSum, FilesAreSummedInTheirOrder)
{
    ScratchFolder const folder;
    std::string const abc = Argument(folder.Write("abc", "abc"));
    std::string const empty = Argument(folder.Write("empty", ""));
    EXPECT_EQ(
        RunTool(RunKv, {"sum", abc, "-", empty}, "abc").output,
        std::string(abcHex) + "  " + abc + "\n" + abcHex + "  -\n" + emptyHex + "  " + empty + "\n");
}

TEST(KvSum, AMissingFileFailsAndTheOthersAreStillSummed)
{
    ScratchFolder const folder;
    std::string const missing = Argument(folder / "missing");
    ToolResult const result = RunTool(RunKv, {"sum", missing, "-"}, "abc");
    EXPECT_EQ(result.code, ExitFailed);
    EXPECT_EQ(result.output, std::string(abcHex) + "  -\n");
    EXPECT_EQ(result.error, "kv sum: cannot open " + missing + ": No such file or directory\n");
}

TEST(KvSum, AFolderHasNoSum)
{
    ScratchFolder const folder;
    ToolResult const result = RunTool(RunKv, {"sum", Argument(folder.Path())});
    EXPECT_EQ(result.code, ExitFailed);
    EXPECT_EQ(result.output, "");
}

TEST(KvSum, NamesThatWouldBreakTheLineAreEscaped)
{
    MD5Sum const sum = SumOf(abcHex);
    EXPECT_EQ(FormatSumLine(sum, "a b", SumForm::Hex), std::string(abcHex) + "  a b");
    EXPECT_EQ(FormatSumLine(sum, "a\nb", SumForm::Hex), "\\" + std::string(abcHex) + "  a\\nb");
    EXPECT_EQ(FormatSumLine(sum, "a\rb", SumForm::Base64), "\\" + std::string(abcBase64) + "  a\\rb");
    EXPECT_EQ(FormatSumLine(sum, "a\\b", SumForm::Hex), "\\" + std::string(abcHex) + "  a\\\\b");
}

// The lines of lists

TEST(KvSumLine, TheFormsOfOtherToolsAreUnderstood)
{
    std::string const hex = abcHex;
    std::string const base64 = abcBase64;
    struct
    {
        std::string line;
        char const * name;
    } const table[] = {
        {hex + "  name", "name"},
        {hex + " *name", "name"},
        {hex + " name", "name"},
        {hex + "   name", " name"},
        {hex + "  *name", "*name"},
        {hex + "  a b  c", "a b  c"},
        {"  " + hex + "  name", "name"},
        {"900150983CD24FB0D6963F7D28E17F72  name", "name"},
        {"900150983CD24fb0d6963F7D28E17F72  name", "name"},
        {base64 + "  name", "name"},
        {base64 + " *name", "name"},
        {base64 + "==  name", "name"},
        {hex + " " + base64 + "  name", "name"},
        {hex + " " + base64 + "  a  b", "a  b"},
        {"MD5 (name) = " + hex, "name"},
        {"MD5(name)= " + hex, "name"},
        {"MD5 (a (b) = c) = " + hex, "a (b) = c"},
        {"MD5 (name) = " + base64, "name"},
        {"\\" + hex + "  a\\nb\\rc\\\\d", "a\nb\rc\\d"},
        {"\\MD5 (a\\nb) = " + hex, "a\nb"},
        {hex + "  a\\nb", "a\\nb"},
        // Another sum in this place is a part of the name.
        {hex + " " + emptyBase64 + "  name", "1B2M2Y8AsgTpgAmY7PhCfg  name"},
    };
    for (auto const & row : table)
    {
        std::optional<SumEntry> const entry = ParseSumLine(row.line);
        ASSERT_TRUE(entry) << row.line;
        EXPECT_EQ(entry->name, row.name) << row.line;
        EXPECT_TRUE(entry->sum == SumOf(abcHex)) << row.line;
    }
}

TEST(KvSumLine, EverythingElseIsRefused)
{
    std::string const hex = abcHex;
    std::string const base64 = abcBase64;
    std::string const table[] = {
        "",
        "name",
        hex,
        hex + "  ",
        hex + "name",
        hex + "\tname",
        hex.substr(1) + "  name",
        hex + "0  name",
        "g" + hex.substr(1) + "  name",
        base64.substr(1) + "  name",
        base64 + "=  name",
        base64.substr(0, 21) + "h  name", // other bits than zero behind the sum
        "*" + base64.substr(1) + "  name",
        "MD5 (name) = ",
        "MD5 (name) " + hex,
        "MD5 () = " + hex,
        "MD5 name = " + hex,
        "MD5",
        "MD5 )(= " + hex,
        "SHA1 (name) = " + hex,
        "\\" + hex + "  a\\tb",
        "\\" + hex + "  a\\",
        "\\",
        hex + "  a" + std::string(1, '\0'),
    };
    for (std::string const & line : table)
    {
        EXPECT_FALSE(ParseSumLine(line)) << line;
    }
}

TEST(KvSumLine, WhatIsPrintedIsUnderstood)
{
    for (SumForm const form : {SumForm::Hex, SumForm::Base64, SumForm::Both})
    {
        for (char const * name : {"name", " name ", "*", "a\nb", "\\", "\r", "MD5 (x) = y", "-"})
        {
            std::optional<SumEntry> const entry = ParseSumLine(FormatSumLine(SumOf(abcHex), name, form));
            ASSERT_TRUE(entry) << name;
            EXPECT_EQ(entry->name, name);
            EXPECT_TRUE(entry->sum == SumOf(abcHex));
        }
    }
}

TEST(KvSumLine, LineEndsAndTheByteOrderMarkAreNoPartOfALine)
{
    TextSource source("\xEF\xBB\xBFone\r\ntwo\n\n\xEF\xBB\xBFthree\rx\nfour\r", 2);
    LineReader reader(source);
    std::vector<std::string> lines;
    for (std::string line; reader.Next(line);)
    {
        lines.push_back(line);
    }
    EXPECT_EQ(lines, (std::vector<std::string>{"one", "two", "", "\xEF\xBB\xBFthree\rx", "four"}));
}

TEST(KvSumLine, AnEndlessLineIsCut)
{
    TextSource source(std::string(10000000, 'x') + "\nnext");
    LineReader reader(source);
    std::string line;
    ASSERT_TRUE(reader.Next(line));
    EXPECT_LE(line.size(), 200000U);
    ASSERT_TRUE(reader.Next(line));
    EXPECT_EQ(line, "next");
}

// Checking

class KvSumCheck : public testing::Test
{
protected:
    ToolResult Check(std::string const & text, std::vector<std::string> const & options = {})
    {
        std::vector<std::string> arguments{"sum", "--check"};
        arguments.insert(arguments.end(), options.begin(), options.end());
        arguments.push_back(Argument(folder.Write("list", text)));
        return RunTool(RunKv, arguments);
    }

    ScratchFolder folder;
    std::string abc = Argument(folder.Write("abc", "abc"));
    std::string empty = Argument(folder.Write("empty", ""));
    std::string missing = Argument(folder / "missing");
    std::string list = Argument(folder / "list");
    std::string goodAbc = std::string(abcHex) + "  " + abc + "\n";
    std::string goodEmpty = std::string(emptyHex) + "  " + empty + "\n";
    std::string badEmpty = std::string(abcHex) + "  " + empty + "\n";
    std::string goodMissing = std::string(abcHex) + "  " + missing + "\n";
};

TEST_F(KvSumCheck, GoodFilesAreOk)
{
    ToolResult const result = Check(goodAbc + goodEmpty);
    EXPECT_EQ(result.code, ExitOk);
    EXPECT_EQ(result.output, abc + ": OK\n" + empty + ": OK\n");
    EXPECT_EQ(result.error, "");
}

TEST_F(KvSumCheck, OurOwnListsAreUnderstoodInEveryForm)
{
    for (char const * form : {"--hex", "--base64", "--both"})
    {
        ToolResult const result = Check(RunTool(RunKv, {"sum", form, abc, empty}).output);
        EXPECT_EQ(result.code, ExitOk) << form;
        EXPECT_EQ(result.output, abc + ": OK\n" + empty + ": OK\n");
    }
}

TEST_F(KvSumCheck, ListsOfOtherToolsMayBeMixed)
{
    ToolResult const result =
        Check("# a comment\r\n\r\nMD5 (" + abc + ") = " + abcHex + "\r\n" + emptyHex + " *" + empty + "\r\n");
    EXPECT_EQ(result.code, ExitOk) << result.error;
    EXPECT_EQ(result.output, abc + ": OK\n" + empty + ": OK\n");
    EXPECT_EQ(result.error, "");
}

TEST_F(KvSumCheck, AListMayComeFromStandardInput)
{
    for (std::vector<std::string> const & arguments :
         {std::vector<std::string>{"sum", "-c"}, std::vector<std::string>{"sum", "-c", "-"}})
    {
        ToolResult const result = RunTool(RunKv, arguments, goodAbc);
        EXPECT_EQ(result.code, ExitOk);
        EXPECT_EQ(result.output, abc + ": OK\n");
    }
}

TEST_F(KvSumCheck, AListMayNameStandardInput)
{
    folder.Write("list", std::string(abcHex) + "  -\n");
    EXPECT_EQ(RunTool(RunKv, {"sum", "-c", list}, "abc").output, "-: OK\n");
    EXPECT_EQ(RunTool(RunKv, {"sum", "-c", list}, "abd").code, ExitFailed);
    // The list itself comes from there: nothing is left to sum.
    ToolResult const own = RunTool(RunKv, {"sum", "-c"}, std::string(abcHex) + "  -\n");
    EXPECT_EQ(own.code, ExitFailed);
    EXPECT_EQ(own.output, "");
}

TEST_F(KvSumCheck, SeveralListsAreCheckedAndOneBadOneFails)
{
    std::string const good = Argument(folder.Write("good", goodAbc));
    std::string const bad = Argument(folder.Write("bad", badEmpty));
    ToolResult const result = RunTool(RunKv, {"sum", "-c", bad, missing, good});
    EXPECT_EQ(result.code, ExitFailed);
    EXPECT_EQ(result.output, empty + ": FAILED\n" + abc + ": OK\n");
    EXPECT_EQ(
        result.error,
        "kv sum: " + bad + ": WARNING: 1 file does NOT match its sum\n" + "kv sum: cannot open " + missing +
            ": No such file or directory\n");
}

TEST_F(KvSumCheck, DifferencesAndMissingFilesAreCounted)
{
    ToolResult const result = Check(goodAbc + badEmpty + goodMissing + "what is this\n" + badEmpty);
    EXPECT_EQ(result.code, ExitFailed);
    EXPECT_EQ(
        result.output,
        abc + ": OK\n" + empty + ": FAILED\n" + missing + ": FAILED open or read\n" + empty + ": FAILED\n");
    EXPECT_EQ(
        result.error,
        "kv sum: cannot open " + missing + ": No such file or directory\n" + "kv sum: " + list +
            ": WARNING: 1 line is not an MD5 sum with a file name\n" + "kv sum: " + list +
            ": WARNING: 1 listed file could not be read\n" + "kv sum: " + list +
            ": WARNING: 2 files do NOT match their sums\n");
}

TEST_F(KvSumCheck, QuietLeavesOutWhatIsGood)
{
    EXPECT_EQ(Check(goodAbc, {"--quiet"}).output, "");
    ToolResult const result = Check(goodAbc + badEmpty, {"--quiet"});
    EXPECT_EQ(result.output, empty + ": FAILED\n");
    EXPECT_EQ(result.code, ExitFailed);
}

TEST_F(KvSumCheck, StatusTellsByTheExitCodeAlone)
{
    for (auto const & [text, code] :
         {std::pair{goodAbc, ExitOk}, std::pair{goodAbc + badEmpty, ExitFailed}, std::pair{goodMissing, ExitFailed}})
    {
        ToolResult const result = Check(text, {"--status"});
        EXPECT_EQ(result.code, code);
        EXPECT_EQ(result.output, "");
        EXPECT_EQ(result.error, "");
    }
}

TEST_F(KvSumCheck, StrictFailsForLinesThatAreNoSums)
{
    EXPECT_EQ(Check(goodAbc + "what is this\n").code, ExitOk);
    EXPECT_EQ(Check(goodAbc + "what is this\n", {"--strict"}).code, ExitFailed);
    EXPECT_EQ(Check(goodAbc + "# a comment\n\n", {"--strict"}).code, ExitOk);
}

TEST_F(KvSumCheck, WarnNamesTheLine)
{
    ToolResult const result = Check(goodAbc + "what is this\n", {"--warn"});
    EXPECT_EQ(
        result.error,
        "kv sum: " + list + ", line 2: no MD5 sum with a file name\n" + "kv sum: " + list +
            ": WARNING: 1 line is not an MD5 sum with a file name\n");
}

TEST_F(KvSumCheck, IgnoreMissingPassesOverWhatDoesNotExist)
{
    ToolResult const result = Check(goodAbc + goodMissing, {"--ignore-missing"});
    EXPECT_EQ(result.code, ExitOk);
    EXPECT_EQ(result.output, abc + ": OK\n");
    EXPECT_EQ(result.error, "");

    ToolResult const nothing = Check(goodMissing, {"--ignore-missing"});
    EXPECT_EQ(nothing.code, ExitFailed);
    EXPECT_EQ(nothing.error, "kv sum: " + list + ": no file was verified\n");
}

TEST_F(KvSumCheck, AListWithoutASumFails)
{
    for (char const * text : {"", "what is this\n", "# nothing\n"})
    {
        ToolResult const result = Check(text);
        EXPECT_EQ(result.code, ExitFailed);
        EXPECT_EQ(
            result.error, "kv sum: " + list + ": no line holds an MD5 sum with a file name; is this a list of sums?\n");
    }
}

} // namespace
