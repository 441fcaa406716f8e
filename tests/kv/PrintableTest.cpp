// What reaches a terminal: nothing that it would act upon.

#include <kvcore/tools/kv/LogLines.h>
#include <kvcore/tools/kv/RunKv.h>
#include <kvcore/tools/support/ExitCodes.h>
#include <kvcore/tools/support/Printable.h>

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <support/ScratchFolder.h>
#include <support/ToolConsole.h>

using namespace kv::tools;
using kv::test::RunTool;
using kv::test::TextSink;
using kv::test::TextSource;
using kv::test::ToolResult;

namespace
{

/// An escape sequence, a control of Unicode in two bytes, one as a byte alone, and a mark that turns text around.
std::string const hostile = "a\x1B[31m\xC2\x9B\x9B\xE2\x80\xAE"
                            "b";
std::string const harmless = "a\\x1B[31m\\u{9B}\\x9B\\u{202E}b";

/// Whether a text has characters that a terminal acts upon, line ends aside.
bool IsHostile(std::string const & text)
{
    return Printable(text, Backslashes::Kept, Spaces::Lines) != text;
}

/// As at a terminal: nobody asks, but somebody reads.
ToolResult RunShown(std::vector<std::string> const & arguments)
{
    TextSource input("");
    TextSink output;
    TextSink error;
    Console console{input, output, error, false, true};
    int const code = RunKv(arguments, console);
    return {code, output.text, error.text};
}

std::string Argument(std::filesystem::path const & path)
{
    std::u8string const text = path.u8string();
    return {text.begin(), text.end()};
}

} // namespace

TEST(Printable, WritesOutWhatATerminalActsUpon)
{
    struct
    {
        std::string text;
        char const * shown;
    } const table[] = {
        {"plain caf\xC3\xA9 \xF0\x9F\x8E\xAC", "plain caf\xC3\xA9 \xF0\x9F\x8E\xAC"},
        {hostile, harmless.c_str()},
        {"\n\r\t\x07\x7F", "\\n\\r\\t\\x07\\x7F"},
        {std::string("a\0b", 3), "a\\x00b"},
        {"\xC2\x80\xC2\x85\xC2\x9F\xC2\xA0", "\\u{80}\\u{85}\\u{9F}\xC2\xA0"},
        {"\xE2\x80\xA8\xE2\x81\xA6\xE2\x81\xA9\xD8\x9C\xEF\xBB\xBF", "\\u{2028}\\u{2066}\\u{2069}\\u{61C}\\u{FEFF}"},
        {"\xC0\xAF\xED\xA0\x80\xF4\x90\x80\x80\xE2\x80", "\\xC0\\xAF\\xED\\xA0\\x80\\xF4\\x90\\x80\\x80\\xE2\\x80"},
        {"z:\\usr", "z:\\usr"},
    };
    for (auto const & row : table)
    {
        EXPECT_EQ(Printable(row.text), row.shown);
        EXPECT_EQ(Printable(Printable(row.text)), row.shown) << "once is enough";
        EXPECT_EQ(IsPrintable(row.text), row.text == row.shown);
    }
    EXPECT_EQ(Printable("a\\b\n", Backslashes::Doubled), "a\\\\b\\n");
    EXPECT_EQ(Printable("\ta\nb\r", Backslashes::Kept, Spaces::Tabs), "\ta\\nb\\r");
    EXPECT_EQ(Printable("\ta\nb\r", Backslashes::Kept, Spaces::Lines), "\ta\nb\\r");
}

TEST(KvPrintable, MessagesAre)
{
    for (std::vector<std::string> const & arguments : std::vector<std::vector<std::string>>{
             {hostile},
             {"help", hostile},
             {"encode", hostile},
             {"encode", "base64", "-i", hostile},
             {"encode", "base64", "-o", hostile + "/x"},
             {"find", hostile},
             {"find", ".", hostile + "/"},
             {"size", hostile},
             {"remove", hostile, "*", "--yes"},
             {"info", hostile},
             {"path", hostile},
             {"url", "http://" + hostile},
             {"cat", hostile},
             {"log", hostile},
             {"log", "x", "--since", hostile},
             {"ini", hostile, "get", "a", "b"},
             {"ini", "x", hostile},
             {"reg", hostile, "HKCU"},
             {"reg", "list", hostile},
             {"reg", "get", "HKCU\\" + hostile, hostile},
             {"resources", hostile},
             {"modules", hostile},
             {"crash", hostile},
             {"xml", hostile, "x"},
             {"xml", "format", hostile},
             {"sum", hostile},
         })
    {
        ToolResult const result = RunTool(RunKv, arguments);
        EXPECT_NE(result.code, ExitOk) << arguments[0];
        EXPECT_NE(result.error, "") << arguments[0];
        EXPECT_FALSE(IsHostile(result.error)) << arguments[0] << ": " << Printable(result.error);
    }
}

TEST(KvPrintable, LogLinesAre)
{
    ScratchFolder const folder;
    folder.Write("log", "[09:05:07] a\x1B[2J  \x07   text\t" + hostile + "\nno line of a log " + hostile + "\n");
    for (char const * const colour : {"never", "always"})
    {
        std::string output = RunTool(RunKv, {"log", Argument(folder / "log"), "--color", colour}).output;
        // The colours are this program's own.
        for (std::size_t at; (at = output.find("\x1B[")) != output.npos;)
        {
            std::size_t const end = output.find('m', at);
            ASSERT_NE(end, output.npos);
            ASSERT_LE(end - at, 4u) << Printable(output);
            ASSERT_STREQ(colour, "always") << Printable(output);
            output.erase(at, end + 1 - at);
        }
        EXPECT_FALSE(IsHostile(output)) << Printable(output);
        EXPECT_NE(output.find("\\x1B[31m"), output.npos) << output;
    }
}

TEST(KvPrintable, ProfilesAreInListsAndAtTerminals)
{
    ScratchFolder const folder;
    folder.Write("x.ini", "\xEF\xBB\xBF[s\x1B]0;t\x07]\nk\x1B[2J=v\x1B[31m\xE2\x80\xAE\n[plain]\nkey=v\x1B[31m\n");
    std::string const file = Argument(folder / "x.ini");
    ToolResult const list = RunTool(RunKv, {"ini", file, "list"});
    EXPECT_EQ(list.code, ExitOk) << list.error;
    EXPECT_EQ(list.output, "[s\\x1B]0;t\\x07]\nk\\x1B[2J=v\\x1B[31m\\u{202E}\n[plain]\nkey=v\\x1B[31m\n")
        << Printable(list.output);
    EXPECT_EQ(RunTool(RunKv, {"ini", file, "get", "plain", "key"}).output, "v\x1B[31m\n") << "as it is for programs";
    EXPECT_EQ(RunShown({"ini", file, "get", "plain", "key"}).output, "v\\x1B[31m\n");
}

TEST(KvPrintable, DocumentsAreAtTerminals)
{
    ScratchFolder const folder;
    folder.Write("x.xml", "<?xml version=\"1.0\" encoding=\"UTF-8\"?><a><b>x\xE2\x80\xAEy</b><b>\xC2\x9B</b></a>");
    std::string const file = Argument(folder / "x.xml");
    EXPECT_EQ(RunShown({"xml", "query", file, "//b"}).output, "x\\u{202E}y\n\\u{9B}\n");
    EXPECT_EQ(RunTool(RunKv, {"xml", "query", file, "//b"}).output, "x\xE2\x80\xAEy\n\xC2\x9B\n");
    std::string const shown = RunShown({"xml", "format", file}).output;
    EXPECT_FALSE(IsHostile(shown)) << Printable(shown);
    EXPECT_NE(shown.find("\n  <b>x\\u{202E}y</b>\n"), shown.npos) << shown;
}

TEST(KvPrintable, UrlsAndPathsAreUnlessForPrograms)
{
    ToolResult const shown = RunTool(RunKv, {"url", "--win32", "file:///c:/a%1B[31m"});
    EXPECT_FALSE(IsHostile(shown.output)) << Printable(shown.output);
    ToolResult const raw = RunTool(RunKv, {"url", "--win32", "--null", "file:///c:/a%1B[31m"});
    EXPECT_EQ(raw.output, std::string("c:\\a\x1B[31m\0", 10)) << Printable(raw.output);
    EXPECT_FALSE(IsHostile(RunShown({"path", "MakePath", "c:\\", hostile}).output));
}

TEST(KvPrintable, ValuesOfTheRegistryAre)
{
    std::string const key = "HKCU\\Software\\KVCore\\tests\\printable";
    ASSERT_EQ(RunTool(RunKv, {"reg", "set", key, "n\x1B[2J", "v\x1B[31m\xE2\x80\xAE\xC2\x9B"}).code, ExitOk);
    for (std::vector<std::string> const & arguments :
         {std::vector<std::string>{"reg", "list", key}, {"reg", "query", key}, {"reg", "query", key, "n\x1B[2J"}})
    {
        ToolResult const result = RunTool(RunKv, arguments);
        EXPECT_EQ(result.code, ExitOk) << result.error;
        EXPECT_FALSE(IsHostile(result.output)) << Printable(result.output);
    }
    EXPECT_EQ(RunShown({"reg", "get", key, "n\x1B[2J"}).output, "v\\x1B[31m\\u{202E}\\u{9B}\n");
    EXPECT_EQ(RunTool(RunKv, {"reg", "get", key, "n\x1B[2J"}).output, "v\x1B[31m\xE2\x80\xAE\xC2\x9B\n");
    EXPECT_EQ(RunTool(RunKv, {"reg", "delete", key, "--yes"}).code, ExitOk);
}

#ifndef _WIN32 // names of files cannot hold such characters there
TEST(KvPrintable, NamesOfFilesAre)
{
    ScratchFolder const folder;
    folder.Write(hostile, "1");
    std::string const root = Argument(folder.Path());
    std::string const file = Argument(folder / hostile);
    std::string const list = RunTool(RunKv, {"sum", file}).output;
    folder.Write("../" + folder.Path().filename().string() + ".md5", list);
    std::string const sums = root + ".md5";
    for (std::vector<std::string> const & arguments : std::vector<std::vector<std::string>>{
             {"find", root, "--total"},
             {"size", file},
             {"info", file},
             {"url", "file:///z:" + file},
             {"url", file},
             {"sum", "--check", sums},
             {"remove", root, "*", "--dry-run"}})
    {
        ToolResult const result = RunTool(RunKv, arguments);
        EXPECT_EQ(result.code, ExitOk) << arguments[0] << result.error;
        EXPECT_FALSE(IsHostile(result.output)) << arguments[0] << ": " << Printable(result.output);
        EXPECT_NE(result.output.find("31m"), std::string::npos) << arguments[0];
    }
    EXPECT_TRUE(IsHostile(list)) << "the lines of other sum tools have names as they are";
    EXPECT_FALSE(IsHostile(RunShown({"sum", file}).output));
    EXPECT_EQ(RunTool(RunKv, {"find", "-0", root}).output, file + std::string(1, '\0'));
    std::filesystem::remove(sums);
}
#endif
