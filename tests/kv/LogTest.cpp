#include <kvcore/tools/kv/LogLines.h>
#include <kvcore/tools/kv/RunKv.h>
#include <kvcore/tools/support/ExitCodes.h>

#include <gtest/gtest.h>

#include <kvcore/tools/kv/Failures.h>
#include <support/CostGrowth.h>
#include <support/ScratchFolder.h>
#include <support/ToolConsole.h>

namespace
{

using namespace kv::tools;
using kv::test::RunTool;
using kv::test::TextSink;
using kv::test::TextSource;
using kv::test::ToolResult;

char const sample[] = "[09:05:07] editor     Loaded 12 clips\r\n"
                      "[09:05:08] frameplugi   deep\r\n"
                      "[14:30:00] editor     EXCEPTION \"Foo\" (a.cpp, line 12: bad)\r\n";

std::string Argument(std::filesystem::path const & path)
{
    std::u8string const text = path.generic_u8string();
    return {text.begin(), text.end()};
}

/// The log that `kv log` shows with these options.
std::string Shown(std::string const & content, std::vector<std::string> options)
{
    ScratchFolder const folder;
    std::vector<std::string> command = {"log", Argument(folder.Write("a.log", content))};
    command.insert(command.end(), options.begin(), options.end());
    ToolResult const result = RunTool(RunKv, command);
    EXPECT_EQ(result.code, ExitOk) << result.error;
    return result.output;
}

TEST(KvLog, ShowsLinesWithTheLineEndsOfATerminal)
{
    EXPECT_EQ(
        Shown(sample, {}),
        "[09:05:07] editor     Loaded 12 clips\n"
        "[09:05:08] frameplugi   deep\n"
        "[14:30:00] editor     EXCEPTION \"Foo\" (a.cpp, line 12: bad)\n");
    EXPECT_EQ(Shown("", {}), "");
    EXPECT_EQ(Shown("no end", {}), "no end\n");
}

TEST(KvLog, FiltersByModule)
{
    EXPECT_EQ(Shown(sample, {"--module", "FramePlugin"}), "[09:05:08] frameplugi   deep\n");
    EXPECT_EQ(Shown(sample, {"-m", "frameplugi", "-m", "edit"}), "[09:05:08] frameplugi   deep\n");
    EXPECT_EQ(Shown(sample, {"-m", "other"}), "");
}

TEST(KvLog, FiltersByTime)
{
    EXPECT_EQ(Shown(sample, {"--since", "09:05:08", "--until", "14:29"}), "[09:05:08] frameplugi   deep\n");
    EXPECT_EQ(Shown(sample, {"--until", "09:05:07"}), "[09:05:07] editor     Loaded 12 clips\n");
    EXPECT_EQ(Shown("plain\n[09:05:07] editor     x\n", {"--since", "09:00"}), "[09:05:07] editor     x\n");
}

TEST(KvLog, ColoursTimeModuleAndErrors)
{
    std::string const coloured = Shown(sample, {"--color", "always"});
    EXPECT_NE(coloured.find("\x1b[2m[09:05:07]\x1b[0m "), coloured.npos);
    EXPECT_NE(coloured.find("\x1b[31mEXCEPTION \"Foo\" (a.cpp, line 12: bad)\x1b[0m\n"), coloured.npos);
    EXPECT_EQ(Shown(sample, {"--color", "never"}), Shown(sample, {}));
}

TEST(KvLog, RefusesWhatIsNoTime)
{
    ScratchFolder const folder;
    std::string const file = Argument(folder.Write("a.log", sample));
    for (char const * time : {"25:00", "9:05", "09:60", "09:05:60", "now"})
    {
        ToolResult const result = RunTool(RunKv, {"log", file, "--since", time});
        EXPECT_EQ(result.code, ExitUsage) << time;
        EXPECT_NE(
            result.error.find("--since takes a time of day such as 14:30 or 14:30:05, not \"" + std::string(time)),
            result.error.npos);
    }
}

TEST(KvLog, TellsThatThereIsNoSuchFile)
{
    ScratchFolder const folder;
    ToolResult const result = RunTool(RunKv, {"log", Argument(folder / "none.log")});
    EXPECT_EQ(result.code, ExitIo);
    EXPECT_EQ(result.error.find("kv: cannot open "), 0u);
}

/// Changes the file whenever everything so far was shown, and ends the reading after the last step.
class ScriptedReader : public OutputStream
{
public:
    explicit ScriptedReader(ScratchFolder const & scratch) : OutputStream(nullptr), folder(scratch) {}

    void Write(char const * data, int size) override
    {
        text.append(data, static_cast<std::size_t>(size));
        if (text == "[09:00:00] m          one\n")
        {
            std::ofstream(folder / "a.log", std::ios::binary | std::ios::app) << "[09:00:01] m          two\r\n";
        }
        else if (text.ends_with("two\n"))
        {
            folder.Write("a.log", "[09:00:02] m          new\r\n");
        }
        else if (text.ends_with("new\n"))
        {
            throw IoException(EPIPE);
        }
    }

    std::string text;

private:
    ScratchFolder const & folder;
};

TEST(KvLog, FollowsAGrowingFileAndBeginsAnewWhenItIsEmptied)
{
    ScratchFolder const folder;
    std::string const file = Argument(folder.Write("a.log", "[09:00:00] m          one\r\n"));
    ScriptedReader output(folder);
    TextSource input("");
    EXPECT_EQ(RunTool(RunKv, {"log", "--follow", file}, input, output).code, ExitClosedPipe);
    EXPECT_EQ(output.text, "[09:00:00] m          one\n[09:00:01] m          two\n[09:00:02] m          new\n");
}

TEST(LineCutters, CutBytesHoweverTheyArrive)
{
    std::string const text = "one\r\n\ntwo\rthree\n\r\nfour\r";
    std::vector<std::string> const expected = {"one", "", "two\rthree", "", "four\r"};
    for (std::size_t size = 1; size <= text.size(); ++size)
    {
        std::vector<std::string> lines;
        LineCutter cutter;
        for (std::size_t at = 0; at < text.size(); at += size)
        {
            cutter.Add(
                std::string_view(text).substr(at, size), [&](std::string_view line) { lines.emplace_back(line); });
        }
        lines.push_back(cutter.TakeRest());
        EXPECT_EQ(lines, expected) << size;
        EXPECT_EQ(cutter.TakeRest(), "");
    }
}

TEST(LineCutters, TakeTimeThatGrowsWithTheLineAndNoFaster)
{
    EXPECT_TRUE(kv::test::GrowsNearLinearly(
        1 << 17, 1 << 20, [](std::size_t size) { return std::string(size, 'x'); },
        [](std::string const & line)
        {
            LineCutter cutter;
            for (std::size_t at = 0; at < line.size(); at += 64)
            {
                cutter.Add(std::string_view(line).substr(at, 64), [](std::string_view) { FAIL(); });
            }
            EXPECT_EQ(cutter.TakeRest().size(), line.size());
        }));
}

TEST(KvLog, TakesTimeThatGrowsWithTheFileAndNoFaster)
{
    ScratchFolder const folder;
    for (bool const isOneLine : {true, false})
    {
        EXPECT_TRUE(kv::test::GrowsNearLinearly(
            1 << 16, 1 << 18,
            [&](std::size_t size)
            {
                std::string content;
                while (content.size() < size)
                {
                    content += "[09:05:07] editor     x";
                    content += isOneLine ? "" : "\r\n";
                }
                return Argument(folder.Write("a" + std::to_string(size) + ".log", content));
            },
            [](std::string const & file) {
                EXPECT_EQ(RunTool(RunKv, {"log", "--color", "always", file}).code, ExitOk);
            }))
            << isOneLine;
    }
}

TEST(LogLineParsing, TakesNothingElseForALine)
{
    EXPECT_FALSE(ParseLogLine("[09:05:07] short"));
    EXPECT_FALSE(ParseLogLine("[09:05:61] editor     x"));
    EXPECT_FALSE(ParseLogLine("[09-05-07] editor     x"));
    EXPECT_FALSE(ParseLogLine("[09:05:07] editor.....x"));
    auto const line = ParseLogLine("[09:05:07] editor     ");
    ASSERT_TRUE(line);
    EXPECT_EQ(line->module, "editor");
    EXPECT_EQ(line->text, "");
    EXPECT_EQ(line->second, 9 * 3600 + 5 * 60 + 7);
}

} // namespace
