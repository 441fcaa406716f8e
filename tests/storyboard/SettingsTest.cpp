#include <gtest/gtest.h>

#include <kvcore/examples/storyboard/Settings.h>
#include <kvcore/examples/storyboard/Storyboard.h>
#include <kvcore/tools/support/ExitCodes.h>
#include <support/ScratchFolder.h>
#include <support/ToolConsole.h>

namespace Storyboard
{

namespace
{

using kv::test::ToolResult;

int RunWide(std::vector<std::string> const & arguments, kv::tools::Console & console)
{
    return RunStoryboard(arguments, console, Screen{});
}

/// Storyboard with a settings file of its own, and a project to show.
class StoryboardSettings : public testing::Test
{
protected:
    StoryboardSettings()
    {
        folder.Write("clips/a-name-of-some-length.txt", "text");
        EXPECT_EQ(Tool({"make", "-q", (folder / "clips").string(), Project()}).code, 0);
    }
    ToolResult Tool(std::vector<std::string> arguments) const
    {
        arguments.insert(arguments.begin(), {"--settings", (folder / "s.ini").string()});
        return kv::test::RunTool(RunWide, arguments);
    }
    std::string Project() const
    {
        return (folder / "p.story").string();
    }

    ScratchFolder const folder;
};

TEST_F(StoryboardSettings, WithoutAFileAreThoseOfTheProgram)
{
    EXPECT_EQ(
        Tool({"settings"}).output, "progress.quiet = 0\nshow.summary = 0\nshow.width = (as wide as the terminal)\n");
    EXPECT_FALSE(std::filesystem::exists(folder / "s.ini"));
}

TEST_F(StoryboardSettings, AreSetAndShown)
{
    EXPECT_EQ(Tool({"settings", "show.width", "60"}).code, 0);
    EXPECT_EQ(Tool({"settings", "show.width"}).output, "show.width = 60\n");
    EXPECT_EQ(folder.Read("s.ini"), "[show]\r\nwidth=60\r\n");
}

TEST_F(StoryboardSettings, CommentsSurviveASetting)
{
    folder.Write("s.ini", "; mine\r\n[show]\r\n; columns\r\nwidth=60\r\n[other]\r\nx=1\r\n");
    EXPECT_EQ(Tool({"settings", "show.width", "70"}).code, 0);
    EXPECT_EQ(folder.Read("s.ini"), "; mine\r\n[show]\r\n; columns\r\nwidth=70\r\n[other]\r\nx=1\r\n");
}

TEST_F(StoryboardSettings, CommandLineGoesBeforeThem)
{
    std::string const whole = Tool({"show", Project()}).output;
    std::string const summary = Tool({"show", "--summary", Project()}).output;
    EXPECT_NE(whole, summary);
    EXPECT_EQ(Tool({"settings", "show.summary", "1"}).code, 0);
    EXPECT_EQ(Tool({"show", Project()}).output, summary);
    EXPECT_EQ(Tool({"show", "--no-summary", Project()}).output, whole);
    EXPECT_EQ(Tool({"settings", "progress.quiet", "1"}).code, 0);
    EXPECT_EQ(Tool({"make", (folder / "clips").string(), Project()}).error, "");
    EXPECT_NE(Tool({"make", "--no-quiet", (folder / "clips").string(), Project()}).error, "");
}

TEST_F(StoryboardSettings, WhatMakesNoSenseIsRefused)
{
    EXPECT_EQ(Tool({"settings", "show.height"}).code, kv::tools::ExitUsage);
    EXPECT_EQ(Tool({"settings", "show.width", "wide"}).code, kv::tools::ExitUsage);
    EXPECT_EQ(Tool({"settings", "show.summary", "2"}).code, kv::tools::ExitUsage);
    EXPECT_FALSE(std::filesystem::exists(folder / "s.ini"));
}

TEST_F(StoryboardSettings, FilesThatCannotBeUsedEndTheProgram)
{
    folder.Write("s.ini", "[show]\r\n[other]\r\nx=1\r\n");
    EXPECT_EQ(Tool({"show", Project()}).code, kv::tools::ExitDamaged);
    ToolResult const result =
        kv::test::RunTool(RunWide, {"--settings", (folder / "none/s.ini").string(), "settings", "show.width", "60"});
    EXPECT_EQ(result.code, kv::tools::ExitIo);
    EXPECT_NE(result.error.find("settings"), std::string::npos);
}

} // namespace

} // namespace Storyboard
