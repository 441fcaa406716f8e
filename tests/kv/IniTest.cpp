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

/// A profile, and kv at work on it.
class KvIni : public testing::Test
{
protected:
    ToolResult Run(std::vector<std::string> arguments) const
    {
        arguments.insert(arguments.begin(), {"ini", (folder / "x.ini").string()});
        return RunTool(RunKv, arguments, "");
    }
    std::string Get(std::string const & section, std::string const & key) const
    {
        ToolResult const result = Run({"get", section, key});
        EXPECT_EQ(result.code, ExitOk) << result.error;
        return result.output;
    }

    ScratchFolder const folder;
};

TEST_F(KvIni, SetsAndGets)
{
    EXPECT_EQ(Run({"set", "window", "width", "800"}).code, ExitOk);
    EXPECT_EQ(Run({"set", "window", "title", "caf\xC3\xA9 = \"x\""}).code, ExitOk);
    EXPECT_EQ(Get("window", "width"), "800\n");
    EXPECT_EQ(Get("WINDOW", "Width"), "800\n");
    EXPECT_EQ(Get("window", "title"), "caf\xC3\xA9 = \"x\"\n");
    EXPECT_EQ(folder.Read("x.ini").substr(0, 21), "[window]\r\nwidth=800\r\n");
}

TEST_F(KvIni, ValuesComeBackAsTheyWereSet)
{
    for (std::string const value : {"", " x ", "\tx", "\"q\"", "'q'", "\"", "a;b", "[x]", "x=y", "0", "1"})
    {
        EXPECT_EQ(Run({"set", "s", "k", value}).code, ExitOk);
        EXPECT_EQ(Get("s", "k"), value + "\n");
    }
    std::string const large(100'000, 'x');
    EXPECT_EQ(Run({"set", "s", "k", large}).code, ExitOk);
    EXPECT_EQ(Get("s", "k"), large + "\n");
    EXPECT_EQ(Run({"set", "s", "k", "-5"}).code, ExitOk);
    EXPECT_EQ(Get("s", "k"), "-5\n");
    EXPECT_EQ(Run({"set", "s", "k", "--", "--tabs"}).code, ExitOk);
    EXPECT_EQ(Get("s", "k"), "--tabs\n");
}

TEST_F(KvIni, Lists)
{
    folder.Write("x.ini", "[b]\r\ny=1\r\n;c=2\r\nplain\r\nx=\" z \"\r\n[A]\r\nk=a\tb\\c\r\n");
    EXPECT_EQ(Run({"list"}).output, "[b]\ny=1\nx= z \n[A]\nk=a\tb\\c\n");
    EXPECT_EQ(Run({"list", "a"}).output, "[A]\nk=a\tb\\c\n");
    EXPECT_EQ(Run({"list", "--section", "B"}).output, "[b]\ny=1\nx= z \n");
    EXPECT_EQ(Run({"list", "--tabs"}).output, "b\ty\t1\nb\tx\t z \nA\tk\ta\\tb\\\\c\n");
    EXPECT_EQ(Run({"list", "none"}).code, ExitFailed);
}

TEST_F(KvIni, ListsWhatThePlatformFindsInAnyEncoding)
{
    std::string const text = "; a comment\r\nlost=1\r\n[ one ] x\r\n a = 1 \r\n;b=2\r\nno value\r\n[]\r\nlost=2\r\n"
                             "[two]\rq=\"  \"\n[ONE]\nnever=read\n[three\nx=y]\n[four\t]\nk=v=w\n=e\n";
    char const * const expected = "[one]\na=1\n[two]\nq=  \n[four]\nk=v=w\n=e\n";
    std::string wide;
    std::string swapped;
    for (char const c : text)
    {
        wide += std::string{c, '\0'};
        swapped += std::string{'\0', c};
    }
    for (std::string const & bytes : {text, "\xEF\xBB\xBF" + text, "\xFF\xFE" + wide, "\xFE\xFF" + swapped})
    {
        folder.Write("x.ini", bytes);
        ToolResult const result = Run({"list"});
        EXPECT_EQ(result.code, ExitOk) << result.error;
        EXPECT_EQ(result.output, expected);
    }
    folder.Write("x.ini", std::string("[a]\nk=v\0 cut\n[b\0]\nc=d", 21));
    EXPECT_EQ(Run({"list"}).output, "[a]\nk=v\nc=d\n");
    folder.Write("x.ini", "");
    EXPECT_EQ(Run({"list"}).output, "");
}

TEST_F(KvIni, Removes)
{
    folder.Write("x.ini", "[a]\r\nk=1\r\nj=2\r\n[b]\r\nx=1\r\n");
    EXPECT_EQ(Run({"remove", "a", "K"}).code, ExitOk);
    EXPECT_EQ(Run({"remove", "b"}).code, ExitOk);
    EXPECT_EQ(folder.Read("x.ini"), "[a]\r\nj=2\r\n");
    EXPECT_EQ(Run({"remove", "a", "k"}).code, ExitFailed);
}

TEST_F(KvIni, SectionCanBeNamedByAnOption)
{
    EXPECT_EQ(Run({"set", "-s", "a", "k", "v"}).code, ExitOk);
    EXPECT_EQ(Run({"get", "--section", "a", "k"}).output, "v\n");
    EXPECT_EQ(Run({"remove", "--section", "a", "k"}).code, ExitOk);
    EXPECT_EQ(Run({"get", "a", "k"}).code, ExitFailed);
}

TEST_F(KvIni, SaysWhatIsMissing)
{
    EXPECT_EQ(Run({"list"}).code, ExitIo);
    ToolResult const noFile = Run({"get", "a", "k"});
    EXPECT_EQ(noFile.code, ExitIo);
    EXPECT_NE(noFile.error.find("x.ini"), std::string::npos);
    folder.Write("x.ini", "[a]\r\nk=1\r\n");
    ToolResult const noKey = Run({"get", "a", "other"});
    EXPECT_EQ(noKey.code, ExitFailed);
    EXPECT_NE(noKey.error.find("\"other\" in [a]"), std::string::npos);
    EXPECT_EQ(noKey.output, "");
}

TEST_F(KvIni, RefusesWhatTheFileCannotHold)
{
    std::vector<std::vector<std::string>> const refused = {
        {"set", "a", "k=1", "v"},
        {"set", "a", ";k", "v"},
        {"set", "a", "[k", "v"},
        {"set", "a", "", "v"},
        {"set", "a\nb", "k", "v"},
        {"set", "a", "k", "v\nw"},
        {"set", "a", "k"},
        {"get", "a"},
        {"remove"},
        {"list", "a", "b"},
        {"change", "a", "k"}};
    for (auto const & arguments : refused)
    {
        ToolResult const result = Run(arguments);
        EXPECT_EQ(result.code, ExitUsage) << arguments[0];
        EXPECT_NE(result.error.find("kv ini: "), std::string::npos);
    }
    EXPECT_FALSE(std::filesystem::exists(folder / "x.ini"));
}

TEST_F(KvIni, FailsWhereNothingCanBeWritten)
{
    ToolResult const result = RunTool(RunKv, {"ini", (folder / "none" / "x.ini").string(), "set", "a", "k", "v"}, "");
    EXPECT_EQ(result.code, ExitIo);
    EXPECT_NE(result.error.find("cannot write"), std::string::npos);
}

} // namespace
