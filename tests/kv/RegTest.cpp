#include <kvcore/tools/kv/RunKv.h>
#include <kvcore/tools/support/ExitCodes.h>

#include <algorithm>
#include <condition_variable>
#include <mutex>
#include <thread>

#include <gtest/gtest.h>

#include <support/ScratchFolder.h>
#include <support/ScratchKey.h>
#include <support/ToolConsole.h>

namespace
{

using namespace kv::tools;
using kv::test::RunTool;
using kv::test::TextSink;
using kv::test::TextSource;
using kv::test::ToolResult;

/// A key of the registry, and kv at work on it.
class KvReg : public testing::Test
{
protected:
    ToolResult Run(std::vector<std::string> arguments, std::string const & input = {}) const
    {
        arguments.insert(arguments.begin(), "reg");
        return RunTool(RunKv, arguments, input);
    }
    /// Where somebody at the terminal gives this answer.
    ToolResult RunAsked(std::vector<std::string> arguments, std::string const & answer) const
    {
        arguments.insert(arguments.begin(), "reg");
        TextSource source(answer);
        TextSink output;
        TextSink error;
        Console console{source, output, error, true};
        int const code = RunKv(arguments, console);
        return {code, output.text, error.text};
    }
    void Set(std::string const & name, std::vector<std::string> const & data, std::string const & type = "REG_SZ") const
    {
        std::vector<std::string> arguments = {"set", Path(), name, "-t", type};
        arguments.insert(arguments.end(), data.begin(), data.end());
        ToolResult const result = Run(arguments);
        EXPECT_EQ(result.code, ExitOk) << result.error;
    }
    std::string Get(std::string const & name) const
    {
        ToolResult const result = Run({"get", Path(), name});
        EXPECT_EQ(result.code, ExitOk) << result.error;
        return result.output;
    }
    std::string Path() const
    {
        return "HKEY_CURRENT_USER\\" + String(key.Path()).Utf8();
    }
    /// A registry file of the lines behind the scratch key's own.
    std::string FileOf(std::string const & lines) const
    {
        std::string const text = "Windows Registry Editor Version 5.00\r\n\r\n[" + Path() + "]\r\n" + lines;
        return (folder.Write("x.reg", text)).string();
    }

    ScratchKey const key;
    ScratchFolder const folder;
};

TEST_F(KvReg, SetsAndGetsAllTypes)
{
    struct
    {
        std::string type;
        std::vector<std::string> data;
        std::string shown;
        std::string bytes;
    } const table[] = {
        {"REG_SZ", {"caf\xC3\xA9 = \"x\""}, "caf\xC3\xA9 = \"x\"\n", {}},
        {"sz", {""}, "\n", std::string(2, '\0')},
        {"REG_EXPAND_SZ", {"%PATH%"}, "%PATH%\n", {}},
        {"REG_MULTI_SZ", {"a", "b c"}, "a\nb c\n", {}},
        {"multi_sz", {"a\\0b\\0"}, "a\nb\n", std::string("a\0\0\0b\0\0\0\0\0", 10)},
        {"REG_MULTI_SZ", {}, "", std::string(2, '\0')},
        {"REG_DWORD", {"42"}, "0x2a\n", std::string("\x2A\0\0\0", 4)},
        {"dword", {"0xFFFFFFFF"}, "0xffffffff\n", std::string(4, '\xFF')},
        {"REG_DWORD_BIG_ENDIAN", {"1"}, "00000001\n", std::string("\0\0\0\1", 4)},
        {"REG_QWORD", {"18446744073709551615"}, "0xffffffffffffffff\n", std::string(8, '\xFF')},
        {"REG_BINARY", {"01a0FF"}, "01A0FF\n", "\x01\xA0\xFF"},
        {"REG_BINARY", {"01,02 03", "04"}, "01020304\n", "\1\2\3\4"},
        {"REG_BINARY", {}, "\n", ""},
        {"REG_NONE", {"0d"}, "0D\n", "\r"},
        {"0x8000001F", {"aa"}, "AA\n", "\xAA"},
    };
    for (auto const & row : table)
    {
        Set("v", row.data, row.type);
        EXPECT_EQ(Get("V"), row.shown) << row.type;
        if (!row.bytes.empty())
        {
            EXPECT_EQ(Run({"get", Path(), "v", "--raw"}).output, row.bytes) << row.type;
        }
    }
}

TEST_F(KvReg, DataMayLookLikeAnything)
{
    for (std::string const value : {"[x]", "[a,b]", "{}", "find", "a;b", " x ", "-5", "\\", "/a/b"})
    {
        Set("v", {value});
        EXPECT_EQ(Get("v"), value + "\n");
    }
    for (std::string const value : {"-x", "--tabs", "--", "/v", "/f"})
    {
        EXPECT_EQ(Run({"set", Path(), "v", "--", value}).code, ExitOk) << value;
        EXPECT_EQ(Get("v"), value + "\n");
    }
    EXPECT_EQ(Run({"set", Path(), "v", "--data=/v"}).code, ExitOk);
    EXPECT_EQ(Get("v"), "/v\n");
    std::vector<std::string> const many(50, "item");
    Set("many", many, "REG_MULTI_SZ");
    EXPECT_EQ(Get("many").size(), 50u * 5);
}

TEST_F(KvReg, WithoutANameItIsTheDefaultValue)
{
    EXPECT_EQ(Run({"get", Path()}).code, ExitFailed);
    EXPECT_EQ(Run({"set", Path(), "", "text"}).code, ExitOk);
    EXPECT_EQ(Run({"get", Path()}).output, "text\n");
    EXPECT_EQ(Run({"set", Path(), "--ve", "other"}).code, ExitOk);
    EXPECT_EQ(Run({"get", Path(), "--ve"}).output, "other\n");
    EXPECT_EQ(Run({"delete", Path(), "--ve", "-y"}).code, ExitOk);
    EXPECT_EQ(Run({"get", Path()}).code, ExitFailed);
}

TEST_F(KvReg, SettingMakesKeys)
{
    EXPECT_EQ(Run({"set", Path() + "\\a\\b"}).code, ExitOk);
    EXPECT_EQ(Run({"list", Path()}).output, Path() + "\n    a\\\n        b\\\n");
}

TEST_F(KvReg, ListsATree)
{
    Set("width", {"800"}, "dword");
    Set("", {"line\nend"});
    EXPECT_EQ(Run({"set", Path() + "\\Sub", "list", "a", "b", "-t", "multi_sz"}).code, ExitOk);
    EXPECT_EQ(Run({"set", Path() + "\\Sub\\deep", "b", "01", "-t", "binary"}).code, ExitOk);
    std::string const top = Path() + "\n    (Default)    REG_SZ    line\\nend\n    width    REG_DWORD    0x320\n";
    std::string const sub = "    Sub\\\n        list    REG_MULTI_SZ    a\\0b\n";
    EXPECT_EQ(Run({"list", Path()}).output, top + sub + "        deep\\\n            b    REG_BINARY    01\n");
    EXPECT_EQ(Run({"list", Path(), "--depth", "1"}).output, top + sub);
    EXPECT_EQ(Run({"list", Path(), "--depth", "0"}).output, top);
    std::string spelled;
    for (char const c : Path())
    {
        spelled += c == '\\' ? "\\\\" : std::string(1, c);
    }
    EXPECT_EQ(
        Run({"list", Path(), "--tabs", "--depth", "0"}).output,
        spelled + "\n" + spelled + "\t\tREG_SZ\tline\\nend\n" + spelled + "\twidth\tREG_DWORD\t0x320\n");
}

// The lines of the platform's own tool, whose switches do the same.
TEST_F(KvReg, AnswersAsThePlatformsToolDoes)
{
    EXPECT_EQ(Run({"add", Path(), "/v", "n", "/t", "REG_DWORD", "/d", "42", "/f"}).code, ExitOk);
    EXPECT_EQ(Run({"add", Path(), "/ve", "/d", "def", "/f"}).code, ExitOk);
    EXPECT_EQ(Run({"add", Path() + "\\sub", "/V", "x", "/t", "reg_multi_sz", "/s", ";", "/d", "a;b"}).code, ExitOk);
    std::string const top = "\n" + Path() + "\n    (Default)    REG_SZ    def\n    n    REG_DWORD    0x2a\n";
    EXPECT_EQ(Run({"query", Path()}).output, top + "\n" + Path() + "\\sub\n");
    std::string const sub = "\n" + Path() + "\\sub\n    x    REG_MULTI_SZ    a\\0b\n";
    EXPECT_EQ(Run({"query", Path(), "/s"}).output, top + sub);
    EXPECT_EQ(Run({"query", Path(), "-s", "-v", "x"}).output, sub);
    EXPECT_EQ(Run({"query", Path(), "/v", "N"}).output.find("    N    REG_DWORD"), Path().size() + 2);
    EXPECT_EQ(Run({"query", Path(), "/v", "none"}).code, ExitFailed);
    EXPECT_EQ(Run({"delete", Path(), "/va", "/f"}).code, ExitOk);
    EXPECT_EQ(Run({"query", Path()}).output, "\n" + Path() + "\\sub\n");
    EXPECT_EQ(Run({"delete", Path() + "\\sub", "/f"}).code, ExitOk);
    EXPECT_EQ(Run({"query", Path() + "\\sub"}).code, ExitFailed);
    EXPECT_EQ(Run({"query", Path(), "/v"}).code, ExitUsage);
}

TEST_F(KvReg, DeletesAfterAYes)
{
    Set("v", {"1"});
    ASSERT_EQ(Run({"set", Path() + "\\sub", "w", "2"}).code, ExitOk);
    ToolResult const unasked = Run({"delete", Path(), "v"});
    EXPECT_EQ(unasked.code, ExitUsage);
    EXPECT_NE(unasked.error.find("--yes"), std::string::npos);
    ToolResult const denied = RunAsked({"delete", Path(), "v"}, "n\n");
    EXPECT_EQ(denied.code, ExitFailed);
    EXPECT_NE(denied.error.find("delete the value \"v\" of " + Path() + "? [y/N]"), std::string::npos);
    EXPECT_EQ(Get("v"), "1\n");
    EXPECT_EQ(RunAsked({"delete", Path(), "v"}, "y\n").code, ExitOk);
    EXPECT_EQ(Run({"get", Path(), "v"}).code, ExitFailed);
    EXPECT_EQ(RunAsked({"delete", Path(), "--va"}, "").code, ExitFailed);

    ToolResult const whole = RunAsked({"delete", Path()}, "no\n");
    EXPECT_EQ(whole.code, ExitFailed);
    EXPECT_NE(whole.error.find("with 1 key below it and 1 value in all?"), std::string::npos) << whole.error;
    EXPECT_EQ(RunAsked({"delete", Path()}, "yes\n").code, ExitOk);
    EXPECT_EQ(Run({"list", Path()}).code, ExitFailed);
    EXPECT_EQ(Run({"delete", Path(), "-y"}).code, ExitFailed);
}

TEST_F(KvReg, SaysWhatIsMissing)
{
    ToolResult const noKey = Run({"get", Path() + "\\none", "v"});
    EXPECT_EQ(noKey.code, ExitFailed);
    EXPECT_NE(noKey.error.find("there is no key " + Path() + "\\none"), std::string::npos);
    ToolResult const noValue = Run({"get", Path(), "none"});
    EXPECT_EQ(noValue.code, ExitFailed);
    EXPECT_NE(noValue.error.find("there is no value \"none\" in " + Path()), std::string::npos);
    EXPECT_EQ(Run({"export", Path() + "\\none"}).code, ExitFailed);
    EXPECT_EQ(Run({"watch", Path() + "\\none"}).code, ExitFailed);
    EXPECT_EQ(Run({"delete", Path(), "none", "-y"}).code, ExitFailed);
    ToolResult const noFile = Run({"import", (folder / "none.reg").string()});
    EXPECT_EQ(noFile.code, ExitIo);
    EXPECT_NE(noFile.error.find("none.reg"), std::string::npos);
}

TEST_F(KvReg, RefusesWhatItCannotDo)
{
    std::vector<std::vector<std::string>> const refused = {
        {"change", Path()},
        {"list"},
        {"list", "HKXX\\a"},
        {"list", Path(), "name"},
        {"get", Path(), "a", "b"},
        {"set", Path(), "v", "a", "b"},
        {"set", Path(), "v", "1", "-t", "REG_FOO"},
        {"set", Path(), "v", "-t", "dword"},
        {"set", Path(), "v", "x", "-t", "dword"},
        {"set", Path(), "v", "-1", "-t", "dword"},
        {"set", Path(), "v", "4294967296", "-t", "dword"},
        {"set", Path(), "v", "18446744073709551616", "-t", "qword"},
        {"set", Path(), "v", "012", "-t", "binary"},
        {"set", Path(), "v", "0g", "-t", "binary"},
        {"set", Path(), "v", "a", "", "b", "-t", "multi_sz"},
        {"set", Path(), "v", "x", "--tpye"},
        {"delete", "HKCU", "-y"},
        {"delete", "HKCU\\\\", "-y"},
        {"export", Path(), "a", "b"},
        {"watch", Path(), "--for", "-1"},
    };
    for (auto const & arguments : refused)
    {
        ToolResult const result = Run(arguments);
        EXPECT_EQ(result.code, ExitUsage) << arguments[0] << " " << arguments.back() << ": " << result.error;
        EXPECT_NE(result.error.find("kv reg: "), std::string::npos);
    }
    EXPECT_EQ(Run({"list", Path()}).output, Path() + "\n");
}

TEST_F(KvReg, ExportsAndImports)
{
    Set("text", {"a \"q\" \\"});
    Set("list", {"a", "b"}, "multi_sz");
    Set("", {"0d0a"}, "none");
    ASSERT_EQ(Run({"set", Path() + "\\sub\\deep", "n", "7", "-t", "qword"}).code, ExitOk);
    std::string const tree = Run({"list", Path()}).output;
    std::string const file = (folder / "out.reg").string();
    ASSERT_EQ(Run({"export", Path(), file}).code, ExitOk);
    std::string const bytes = folder.Read("out.reg");
    EXPECT_EQ(bytes.substr(0, 6), std::string("\xFF\xFEW\0i\0", 6));
    EXPECT_EQ(Run({"export", Path()}).output, bytes);

    ASSERT_EQ(Run({"delete", Path(), "-y"}).code, ExitOk);
    ToolResult const result = Run({"import", file});
    EXPECT_EQ(result.code, ExitOk) << result.error;
    EXPECT_EQ(result.error, "kv reg: 3 keys and 4 values set, 0 keys and 0 values deleted\n");
    EXPECT_EQ(Run({"list", Path()}).output, tree);
    ASSERT_EQ(Run({"delete", Path(), "-y"}).code, ExitOk);
    EXPECT_EQ(Run({"import"}, bytes).code, ExitOk);
    EXPECT_EQ(Run({"list", Path()}).output, tree);
}

TEST_F(KvReg, ExportAsksBeforeItReplaces)
{
    std::string const file = folder.Write("out.reg", "old").string();
    EXPECT_EQ(Run({"export", Path(), file}).code, ExitUsage);
    EXPECT_EQ(RunAsked({"export", Path(), file}, "n\n").code, ExitFailed);
    EXPECT_EQ(folder.Read("out.reg"), "old");
    EXPECT_EQ(RunAsked({"export", Path(), file}, "y\n").code, ExitOk);
    EXPECT_NE(folder.Read("out.reg"), "old");
    folder.Write("out.reg", "old");
    EXPECT_EQ(Run({"export", Path(), file, "/y"}).code, ExitOk);
    EXPECT_NE(folder.Read("out.reg"), "old");
    ToolResult const nowhere = Run({"export", Path(), (folder / "none" / "x.reg").string()});
    EXPECT_EQ(nowhere.code, ExitIo);
    EXPECT_NE(nowhere.error.find("cannot write"), std::string::npos);
}

TEST_F(KvReg, ImportDeletesToo)
{
    Set("a", {"1"});
    Set("b", {"2"});
    ASSERT_EQ(Run({"set", Path() + "\\sub\\deep"}).code, ExitOk);
    std::string const file = FileOf("\"A\"=-\r\n\"none\"=-\r\n[-" + Path() + "\\sub]\r\n[-" + Path() + "\\none]\r\n");
    ToolResult const dry = Run({"import", file, "--dry-run"});
    EXPECT_EQ(dry.code, ExitOk);
    EXPECT_EQ(dry.error, "kv reg: would be done: 1 key and 0 values set, 2 keys and 2 values deleted\n");
    EXPECT_EQ(Get("a"), "1\n");
    ToolResult const result = Run({"import", file});
    EXPECT_EQ(result.error, "kv reg: 1 key and 0 values set, 1 key and 1 value deleted\n");
    EXPECT_EQ(Run({"list", Path()}).output, Path() + "\n    b    REG_SZ    2\n");
}

TEST_F(KvReg, AMalformedFileChangesNothing)
{
    std::string const file = FileOf("\"v\"=\"1\"\r\n[" + Path() + "\\sub]\r\n\"w\"=dword:x\r\n");
    ToolResult const result = Run({"import", file});
    EXPECT_EQ(result.code, ExitDamaged);
    EXPECT_EQ(
        result.error,
        "kv reg: " + file + ", line 6: dword: has no hexadecimal digits; nothing of the file was taken over\n");
    EXPECT_EQ(Run({"list", Path()}).output, Path() + "\n");
    EXPECT_EQ(Run({"import", "-"}, "no registry").error.find("kv reg: standard input, line 1: "), 0u);
}

/// Keeps what is written, for others to wait for.
class SharedSink : public TextSink
{
public:
    void Write(char const * data, int size) override
    {
        std::lock_guard const guard(lock);
        TextSink::Write(data, size);
        changed.notify_all();
    }
    void WaitFor(std::string const & part)
    {
        std::unique_lock guard(lock);
        changed.wait(guard, [&] { return text.find(part) != text.npos; });
    }

private:
    std::mutex lock;
    std::condition_variable changed;
};

TEST_F(KvReg, WatchShowsChangesAsTheyCome)
{
    Set("old", {"1"});
    Set("gone", {"1"});
    ASSERT_EQ(Run({"set", Path() + "\\sub"}).code, ExitOk);
    TextSource input("");
    SharedSink output;
    SharedSink error;
    Console console{input, output, error};
    int code = -1;
    std::thread watch([&] { code = RunKv({"reg", "watch", Path(), "--count", "7", "--for", "600"}, console); });
    error.WaitFor("watching " + Path() + "\n");
    Set("old", {"2"});
    output.WaitFor("= " + Path() + "    old    REG_SZ    2\n");
    Set("new", {"3"}, "dword");
    output.WaitFor("+ " + Path() + "    new    REG_DWORD    0x3\n");
    EXPECT_EQ(Run({"delete", Path(), "gone", "-y"}).code, ExitOk);
    output.WaitFor("- " + Path() + "    gone\n");
    EXPECT_EQ(Run({"set", Path() + "\\sub\\deep", "v", "x"}).code, ExitOk);
    output.WaitFor("+ " + Path() + "\\sub\\deep\n");
    output.WaitFor("+ " + Path() + "\\sub\\deep    v    REG_SZ    x\n");
    EXPECT_EQ(Run({"delete", Path() + "\\sub", "-y"}).code, ExitOk);
    output.WaitFor("- " + Path() + "\\sub\n");
    output.WaitFor("- " + Path() + "\\sub\\deep\n");
    watch.join();
    EXPECT_EQ(code, ExitOk) << error.text;
    EXPECT_EQ(std::count(output.text.begin(), output.text.end(), '\n'), 7) << output.text;
}

TEST_F(KvReg, WatchEndsWithItsTimeOrItsKey)
{
    EXPECT_EQ(Run({"watch", Path(), "--for", "0"}).code, ExitOk);
    EXPECT_EQ(Run({"watch", Path(), "--for", "0.01", "--count", "1"}).code, ExitFailed);
    TextSource input("");
    TextSink output;
    SharedSink error;
    Console console{input, output, error};
    int code = -1;
    std::thread watch([&] { code = RunKv({"reg", "watch", Path(), "--tabs"}, console); });
    error.WaitFor("watching");
    EXPECT_EQ(Run({"delete", Path(), "-y"}).code, ExitOk);
    watch.join();
    EXPECT_EQ(code, ExitFailed);
    EXPECT_EQ(output.text.substr(0, 19), "-\tHKEY_CURRENT_USER");
}

} // namespace
