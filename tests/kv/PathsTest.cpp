#include <kvcore/tools/kv/Info.h>
#include <kvcore/tools/kv/RunKv.h>
#include <kvcore/tools/support/ExitCodes.h>

#include <kvcore/files/File.h>

#include <gtest/gtest.h>

#include <support/ScratchFolder.h>
#include <support/ToolConsole.h>

namespace
{

using namespace kv::tools;
using kv::test::RunTool;
using kv::test::ToolResult;

ToolResult Kv(std::vector<std::string> const & arguments)
{
    return RunTool(RunKv, arguments, "");
}

bool Contains(std::string const & text, std::string const & part)
{
    return text.find(part) != std::string::npos;
}

} // namespace

TEST(KvPath, CallsRulesByNameInAnyCase)
{
    struct
    {
        std::vector<std::string> arguments;
        char const * output;
    } const rows[] = {
        {{"path", "GetBasename", "c:\\a.txt", ".doc"}, "a\n"},
        {{"path", "getbasename", "c:\\a.txt"}, "a.txt\n"},
        {{"path", "GetDirname", ""}, ".\n"},
        {{"path", "GetFileTitle", "c:\\a.b\\c"}, "c\n"},
        {{"path", "GetFileTitleW", "c:\\a.b\\c"}, "c\n"},
        {{"path", "GetFilePathWithoutExtension", "c:\\a.b\\c"}, "c:\\a\n"},
        {{"path", "MakePath", "c:\\a\\", "b"}, "c:\\a\\b\n"},
        {{"path", "CutExtension", "a.b.c", ".b"}, "a\n"},
        {{"path", "SwitchExtension", "a.b", ".c"}, "a.c\n"},
        {{"path", "IsDriveRoot", "c:\\"}, "true\n"},
        {{"path", "IsPathAbsolute", "/usr"}, "false\n"},
        {{"path", "GetFullPath", "c:\\a\\..\\b\\"}, "c:\\b\n"},
        {{"path", "PathToURL", "c:\\a b"}, "file:///c:/a%20b\n"},
        {{"path", "URLToPath", "file:///c:/a%20b"}, "c:\\a b\n"},
        {{"path", "FileExists", "c:\\no such file"}, "false\n"},
    };
    for (auto const & row : rows)
    {
        ToolResult const result = Kv(row.arguments);
        EXPECT_EQ(result.output, row.output) << row.arguments[1];
        EXPECT_EQ(result.code, ExitOk) << result.error;
    }
}

TEST(KvPath, ListsWhatItKnows)
{
    ToolResult const result = Kv({"path", "--list"});
    EXPECT_EQ(result.code, ExitOk);
    EXPECT_TRUE(Contains(result.output, "GetBasename PATH [SUFFIX]\n"));
    EXPECT_TRUE(Contains(result.output, "GetTempDirectory\n"));
    EXPECT_FALSE(Contains(result.output, "Delete"));
}

TEST(KvPath, TellsHowARuleFails)
{
    ToolResult const result = Kv({"path", "GetBasename", "a", ".longer"});
    EXPECT_EQ(result.code, ExitFailed);
    EXPECT_EQ(result.output, "");
    EXPECT_EQ(result.error, "kv path: GetBasename fails: string too long\n");
}

TEST(KvPath, RefusesWhatIsNoCall)
{
    struct
    {
        std::vector<std::string> arguments;
        char const * error;
    } const rows[] = {
        {{"path"}, "the name of a rule is missing"},
        {{"path", "Nonsense", "x"}, "unknown rule 'Nonsense'"},
        {{"path", "MakePath", "a"}, "MakePath takes DIRECTORY NAME"},
        {{"path", "GetTempDirectory", "x"}, "GetTempDirectory takes no arguments"},
        {{"path", "CompactPath", "a", "many"}, "'many' is not a number"},
        {{"path", "CleanFilename", "a", "__"}, "one character"},
    };
    for (auto const & row : rows)
    {
        ToolResult const result = Kv(row.arguments);
        EXPECT_EQ(result.code, ExitUsage);
        EXPECT_TRUE(Contains(result.error, row.error)) << result.error;
    }
}

TEST(KvPath, NativePathsGoInAndComeOut)
{
    ScratchFolder const folder;
    folder.Write("Name", "12");
    std::string const native = (folder / "Name").string();
    EXPECT_EQ(Kv({"path", "--native", "GetFullPath", native}).output, native + "\n");
    EXPECT_EQ(Kv({"path", "--native", "GetFileSize", native}).output, "2\n");
    EXPECT_EQ(Kv({"path", "GetFullPath", folder.Name("Name").Utf8()}).output, folder.Name("Name").Utf8() + "\n");
}

TEST(KvUrl, GoesBothWays)
{
    EXPECT_EQ(Kv({"url", "c:\\x y"}).output, "file:///c:/x%20y\n");
    EXPECT_EQ(Kv({"url", "--win32", "file:///c:/x%20y"}).output, "c:\\x y\n");
    ScratchFolder const folder;
    std::string const native = folder.Path().string();
    ToolResult const url = Kv({"url", native});
    ASSERT_TRUE(url.output.starts_with("file:///")) << url.output;
    std::string const text = url.output.substr(0, url.output.size() - 1);
    EXPECT_EQ(Kv({"url", text}).output, native + "\n");
}

TEST(KvUrl, ReportsWhatIsNone)
{
    ToolResult const result = Kv({"url", "http://server/x", "c:\\x"});
    EXPECT_EQ(result.code, ExitFailed);
    EXPECT_EQ(result.output, "file:///c:/x\n") << "the others are still shown";
    EXPECT_EQ(result.error, "kv url: http://server/x is not a file URL\n");
    EXPECT_EQ(Kv({"url"}).code, ExitUsage);
}

TEST(KvInfo, ShowsAFile)
{
    ScratchFolder const folder;
    folder.Write("A File.text", std::string(2048, 'x'));
    ToolResult const result = Kv({"info", (folder / "A File.text").string()});
    EXPECT_EQ(result.code, ExitOk) << result.error;
    EXPECT_TRUE(result.output.starts_with((folder / "A File.text").string() + "\n")) << result.output;
    EXPECT_TRUE(Contains(result.output, "  Size        2048 bytes  (2.0 KiB)\n")) << result.output;
    EXPECT_TRUE(Contains(result.output, "archive"));
    for (char const * const field : {"Created", "Accessed", "Written", "Drive", "Full", "Canonical", "Short", "URL"})
    {
        EXPECT_TRUE(Contains(result.output, std::string("\n  ") + field)) << field;
    }
    EXPECT_TRUE(Contains(result.output, "A%20File.text"));
    String const canonical = File::GetCanonicalPath(folder.Name("A File.text"));
    EXPECT_TRUE(Contains(result.output, "  Canonical   " + canonical.Utf8() + "\n"));
}

TEST(KvInfo, ShowsDirectoriesAndReportsWhatIsNotThere)
{
    ScratchFolder const folder;
    ToolResult const result = Kv({"info", (folder / "not there").string(), folder.Name().Utf8()});
    EXPECT_EQ(result.code, ExitFailed);
    EXPECT_TRUE(Contains(result.error, "not there: ")) << result.error;
    EXPECT_TRUE(Contains(result.output, "  Size        -\n")) << result.output;
    EXPECT_TRUE(Contains(result.output, "  Attributes  directory"));
}

TEST(KvInfo, SpellsAttributesOut)
{
    EXPECT_EQ(AttributeWords(0), "none");
    EXPECT_EQ(AttributeWords(0x80), "none") << "normal";
    EXPECT_EQ(AttributeWords(0x11), "directory, read-only");
    EXPECT_EQ(AttributeWords(0x826), "hidden, system, archive, compressed");
    EXPECT_EQ(AttributeWords(0x410), "directory, link");
}

TEST(KvCat, WritesFilesAsOne)
{
    ScratchFolder const folder;
    std::vector<std::string> const files = {
        folder.Write("a", "abc").string(), folder.Write("b", "").string(), folder.Write("c", "defgh").string()};
    auto const cat = [&](std::vector<std::string> const & options)
    {
        std::vector<std::string> arguments = {"cat"};
        arguments.insert(arguments.end(), files.begin(), files.end());
        arguments.insert(arguments.end(), options.begin(), options.end());
        ToolResult const result = Kv(arguments);
        EXPECT_EQ(result.code, ExitOk) << result.error;
        return result.output;
    };
    EXPECT_EQ(cat({}), "abcdefgh");
    EXPECT_EQ(cat({"--offset", "2"}), "cdefgh");
    EXPECT_EQ(cat({"--offset", "2", "--length", "3"}), "cde");
    EXPECT_EQ(cat({"--length", "0"}), "");
    EXPECT_EQ(cat({"--length", "9223372036854775807"}), "abcdefgh");
    EXPECT_EQ(cat({"--offset", "8"}), "");
    EXPECT_EQ(cat({"--offset", "100"}), "");
}

TEST(KvCat, WritesManyBytes)
{
    ScratchFolder const folder;
    std::string bytes(1'000'000, 'x');
    for (std::size_t i = 0; i < bytes.size(); ++i)
    {
        bytes[i] = static_cast<char>(i * 7 % 251);
    }
    ToolResult const result = Kv({"cat", folder.Write("big", bytes).string(), folder.Write("more", "!").string()});
    EXPECT_TRUE(result.output == bytes + "!");
}

TEST(KvCat, RefusesWhatItCannotOpenOrUnderstand)
{
    ScratchFolder const folder;
    ToolResult const result = Kv({"cat", (folder / "not there").string()});
    EXPECT_EQ(result.code, ExitIo);
    EXPECT_TRUE(Contains(result.error, "cannot open")) << result.error;
    EXPECT_EQ(result.output, "");
    EXPECT_EQ(Kv({"cat"}).code, ExitUsage);
    std::string const file = folder.Write("a", "").string();
    EXPECT_EQ(Kv({"cat", file, "--offset", "-1"}).code, ExitUsage);
    EXPECT_EQ(Kv({"cat", file, "--length", "many"}).code, ExitUsage);
}
