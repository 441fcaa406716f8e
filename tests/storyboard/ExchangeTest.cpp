#include "Samples.h"

#include <gtest/gtest.h>

#include <kvcore/config/SysRegKey.h>
#include <kvcore/examples/storyboard/FolderWalk.h>
#include <kvcore/examples/storyboard/Storyboard.h>
#include <kvcore/platform/win32.h>
#include <kvcore/tools/support/ExitCodes.h>
#include <support/ScratchFolder.h>
#include <support/ToolConsole.h>

// Projects outside their files: the last one in the registry, descriptions in XML, and web pages.

namespace Storyboard
{

namespace
{

using kv::test::ToolResult;

int RunEnglish(std::vector<std::string> const & arguments, kv::tools::Console & console)
{
    return RunStoryboard(arguments, console);
}

ToolResult Tool(std::vector<std::string> const & arguments)
{
    return kv::test::RunTool(RunEnglish, arguments);
}

SysRegKey Key()
{
    return SysRegKey(HKEY_CURRENT_USER).CreateSubkey(TEXT("Software\\KVCore\\storyboard"), 0, KEY_ALL_ACCESS, nullptr);
}

/// A folder of two sources and a project of it.
class StoryboardExchange : public testing::Test
{
protected:
    StoryboardExchange() : folder(StoredName(scratch / "media")), file(StoredName(scratch / "a.story"))
    {
        scratch.Write("media/one.txt", "the first");
        scratch.Write("media/more/two.txt", "the second");
    }
    void SetUp() override
    {
        ASSERT_EQ(Tool({"make", "-q", folder, file}).code, 0);
    }

    std::string Path(char const * name) const
    {
        return StoredName(scratch / name);
    }

    ScratchFolder const scratch;
    std::string const folder;
    std::string const file;
};

} // namespace

TEST_F(StoryboardExchange, LastProjectIsShownFromTheRegistry)
{
    std::string const shown = Tool({"show", file}).output;
    std::filesystem::remove(scratch / "a.story");
    ToolResult const last = Tool({"last"});
    EXPECT_EQ(last.code, 0) << last.error;
    std::string const contents = shown.substr(0, shown.find("  Compressed"));
    EXPECT_TRUE(last.output.starts_with(contents)) << last.output << "\nand shown\n" << shown;
    EXPECT_NE(last.output.find("a.story"), std::string::npos) << last.output;
    ToolResult const summary = Tool({"last", "--summary"});
    EXPECT_EQ(summary.code, 0);
    EXPECT_LT(summary.output.size(), last.output.size());
}

TEST_F(StoryboardExchange, LaterProjectsReplaceTheLast)
{
    scratch.Write("other/x.txt", "x");
    ASSERT_EQ(Tool({"make", "-q", Path("other"), Path("b.story")}).code, 0);
    std::string const last = Tool({"last"}).output;
    EXPECT_TRUE(last.starts_with("Project \"other\"\n")) << last;
}

TEST_F(StoryboardExchange, WithoutALastProjectThereIsNone)
{
    ASSERT_TRUE(Key().DeleteAllValues());
    ToolResult const last = Tool({"last"});
    EXPECT_EQ(last.code, kv::tools::ExitFailed);
    EXPECT_EQ(last.output, "");
    EXPECT_EQ(last.error, "storyboard: no project has been made yet\n");
}

TEST_F(StoryboardExchange, DamagedLastProjectIsTold)
{
    std::string bytes;
    ASSERT_TRUE(Key().GetBinary(TEXT("LastProject"), bytes));
    for (std::string const & damaged : {bytes.substr(0, bytes.size() / 2), std::string("no project"), std::string()})
    {
        ASSERT_TRUE(Key().SetBinary(TEXT("LastProject"), damaged));
        ToolResult const last = Tool({"last"});
        EXPECT_EQ(last.code, kv::tools::ExitDamaged) << damaged.size();
        EXPECT_EQ(last.output, "");
        EXPECT_TRUE(last.error.starts_with("storyboard: the last project in the registry is damaged: ")) << last.error;
    }
    ASSERT_TRUE(Key().SetString(TEXT("LastProject"), TEXT("text")));
    EXPECT_EQ(Tool({"last"}).code, kv::tools::ExitDamaged) << "a value of another type";
}

TEST_F(StoryboardExchange, EveryFlippedByteOfTheLastProjectIsBorne)
{
    std::string bytes;
    ASSERT_TRUE(Key().GetBinary(TEXT("LastProject"), bytes));
    for (std::size_t i = 0; i < bytes.size(); i += 7)
    {
        std::string flipped = bytes;
        flipped[i] = static_cast<char>(flipped[i] ^ 0x55);
        ASSERT_TRUE(Key().SetBinary(TEXT("LastProject"), flipped));
        int const code = Tool({"last"}).code;
        EXPECT_TRUE(code == kv::tools::ExitOk || code == kv::tools::ExitDamaged) << i << ": " << code;
    }
}

TEST_F(StoryboardExchange, DescriptionRestoresTheSameProject)
{
    ASSERT_EQ(Tool({"describe", file, "-o", Path("a.xml")}).code, 0);
    EXPECT_EQ(Tool({"describe", file}).output, scratch.Read("a.xml"));
    ToolResult const checked = Tool({"check", Path("a.xml")});
    EXPECT_EQ(checked.code, 0) << checked.error;
    EXPECT_NE(checked.output.find("2 folders, 2 clips, 2 sources"), std::string::npos) << checked.output;
    ASSERT_EQ(Tool({"restore", Path("a.xml"), Path("b.story")}).code, 0);
    EXPECT_EQ(scratch.Read("b.story"), scratch.Read("a.story"));
    EXPECT_EQ(Tool({"verify", "-q", Path("b.story"), folder}).code, 0);
}

TEST_F(StoryboardExchange, WhatIsNoDescriptionIsRefused)
{
    scratch.Write("old.story", "the old one");
    for (char const * const text : {"", "no XML", "<a/>", "<?xml version=\"1.0\"?><project>"})
    {
        scratch.Write("a.xml", text);
        ToolResult const checked = Tool({"check", Path("a.xml")});
        EXPECT_EQ(checked.code, kv::tools::ExitDamaged) << text;
        EXPECT_NE(checked.error.find("a.xml is no description of a project: "), std::string::npos) << checked.error;
        EXPECT_EQ(Tool({"restore", Path("a.xml"), Path("old.story")}).code, kv::tools::ExitDamaged);
        EXPECT_EQ(scratch.Read("old.story"), "the old one");
    }
    EXPECT_EQ(Tool({"check", Path("nowhere.xml")}).code, kv::tools::ExitIo);
    EXPECT_EQ(Tool({"describe", Path("nowhere.story")}).code, kv::tools::ExitIo);
    EXPECT_EQ(Tool({"describe", file, "-o", Path("no/where.xml")}).code, kv::tools::ExitIo);
}

TEST_F(StoryboardExchange, PageHasWhatTheProjectHas)
{
    ASSERT_EQ(Tool({"page", file, "--output", Path("a.html")}).code, 0);
    std::string const page = scratch.Read("a.html");
    for (char const * const part : {"<html", "one.txt", "two.txt", "</html>"})
    {
        EXPECT_NE(page.find(part), std::string::npos) << part << page;
    }
    EXPECT_EQ(Tool({"page", file}).output, page);
}

} // namespace Storyboard
