// What a command writes into a file that the user named: all of it, or nothing.

#include <kvcore/tools/kv/RunKv.h>
#include <kvcore/tools/support/ExitCodes.h>
#include <kvcore/tools/support/StdioStreams.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <support/ScratchFolder.h>
#include <support/ToolConsole.h>

namespace fs = std::filesystem;
using namespace kv::tools;
using kv::test::RunTool;
using kv::test::TextSink;
using kv::test::ToolResult;

namespace
{

class KvOutputFile : public testing::Test
{
protected:
    KvOutputFile()
    {
        folder.Write("out", "old");
    }

    std::string Path(char const * name) const
    {
        std::u8string const path = (folder / name).u8string();
        return {path.begin(), path.end()};
    }
    std::vector<std::string> Names() const
    {
        std::vector<std::string> names;
        for (fs::directory_entry const & entry : fs::directory_iterator(folder.Path()))
        {
            names.push_back(entry.path().filename().string());
        }
        std::sort(names.begin(), names.end());
        return names;
    }

    ScratchFolder const folder;
};

using Strings = std::vector<std::string>;

/// Fails as a disk or a network does in the middle of a file; looks at the output's name before.
class FailingSource : public SourceStream
{
public:
    explicit FailingSource(std::function<void()> beforeFailure) : look(std::move(beforeFailure)) {}

    int ReadSome(char * data, int capacity) override
    {
        if (pieces++ == 0)
        {
            std::fill_n(data, capacity, 'A');
            return capacity;
        }
        look();
        throw IoException(EIO);
    }

private:
    std::function<void()> look;
    int pieces = 0;
};

} // namespace

TEST_F(KvOutputFile, ReplacesTheOldOneOnlyWhenItIsComplete)
{
    ToolResult const result = RunTool(RunKv, {"encode", "base64", "-o", Path("out")}, "abc");
    EXPECT_EQ(result.code, ExitOk) << result.error;
    EXPECT_EQ(folder.Read("out"), "YWJj\n");
    EXPECT_EQ(Names(), Strings{"out"});
}

TEST_F(KvOutputFile, StaysAsItWasIfTheInputCannotBeReadToItsEnd)
{
    for (char const * const command : {"encode", "decode"})
    {
        FailingSource input([&] { EXPECT_EQ(folder.Read("out"), "old") << command; });
        TextSink output;
        ToolResult const result = RunTool(RunKv, {command, "base64", "-o", Path("out")}, input, output);
        EXPECT_EQ(result.code, ExitIo) << command;
        EXPECT_EQ(folder.Read("out"), "old") << command;
        EXPECT_EQ(Names(), Strings{"out"}) << command;
    }
}

TEST_F(KvOutputFile, StaysAsItWasIfTheInputIsNotThere)
{
    ToolResult const result = RunTool(RunKv, {"decode", "base64", "-i", Path("none"), "-o", Path("out")});
    EXPECT_EQ(result.code, ExitIo);
    EXPECT_EQ(folder.Read("out"), "old");
}

TEST_F(KvOutputFile, StaysAsItWasIfTheDataIsDamaged)
{
    ToolResult const result = RunTool(RunKv, {"decode", "base64", "-o", Path("out")}, "YWJj*");
    EXPECT_EQ(result.code, ExitDamaged);
    EXPECT_NE(result.error.find("out was not written"), std::string::npos) << result.error;
    EXPECT_EQ(folder.Read("out"), "old");
    EXPECT_EQ(RunTool(RunKv, {"decode", "base64", "-o", Path("new")}, "YWJj*").code, ExitDamaged);
    EXPECT_EQ(Names(), Strings{"out"});
}

TEST_F(KvOutputFile, CannotBeTheInput)
{
    folder.Write("in", "abc");
    ToolResult const result = RunTool(RunKv, {"encode", "base64", "-i", Path("in"), "-o", Path("in")});
    EXPECT_EQ(result.code, ExitUsage);
    EXPECT_EQ(folder.Read("in"), "abc");
}

TEST_F(KvOutputFile, CannotBeAFolderNorLieInNone)
{
    fs::create_directory(folder / "sub");
    for (char const * const name : {"sub", "none/out"})
    {
        ToolResult const result = RunTool(RunKv, {"encode", "base64", "-o", Path(name)}, "abc");
        EXPECT_EQ(result.code, ExitIo) << name;
        EXPECT_NE(result.error.find("cannot open"), std::string::npos) << result.error;
    }
    EXPECT_EQ(Names(), (Strings{"out", "sub"}));
}

TEST_F(KvOutputFile, CannotBeReadOnly)
{
    fs::permissions(
        folder / "out", fs::perms::owner_write | fs::perms::group_write | fs::perms::others_write,
        fs::perm_options::remove);
    EXPECT_EQ(RunTool(RunKv, {"encode", "base64", "-o", Path("out")}, "abc").code, ExitIo);
    EXPECT_EQ(folder.Read("out"), "old");
    fs::permissions(folder / "out", fs::perms::owner_write, fs::perm_options::add);
}

TEST_F(KvOutputFile, RemovesWhatAKilledProcessLeft)
{
    folder.Write(".kvsave-0123456789abcdef.tmp", "half");
    folder.Write(".kvsave-ABCDEF9876543210.tmp", "mine");
    EXPECT_EQ(RunTool(RunKv, {"encode", "base64", "-o", Path("out")}, "abc").code, ExitOk);
    EXPECT_EQ(Names(), (Strings{".kvsave-ABCDEF9876543210.tmp", "out"}));
}

TEST_F(KvOutputFile, IsTypedInEitherForm)
{
    ToolResult const result = RunTool(RunKv, {"encode", "base64", "-o", folder.Name("out").Utf8()}, "abc");
    EXPECT_EQ(result.code, ExitOk) << result.error;
    EXPECT_EQ(folder.Read("out"), "YWJj\n");
    ToolResult const back = RunTool(RunKv, {"decode", "base64", "-i", folder.Name("out").Utf8()});
    EXPECT_EQ(back.output, "abc") << back.error;
}

#ifndef _WIN32 // pipes, devices and links with names, which other systems have
TEST_F(KvOutputFile, OfADeviceTakesTheBytesAndStays)
{
    EXPECT_EQ(RunTool(RunKv, {"encode", "base64", "-o", "/dev/null"}, "abc").code, ExitOk);
    EXPECT_TRUE(fs::is_character_file("/dev/null"));
    EXPECT_EQ(RunTool(RunKv, {"encode", "base64", "-o", "/dev/full"}, "abc").code, ExitIo);
    EXPECT_TRUE(fs::is_character_file("/dev/full"));
}

TEST_F(KvOutputFile, OfALinkIsWhatItLeadsTo)
{
    fs::create_symlink("out", folder / "link");
    fs::permissions(folder / "out", fs::perms(0640));
    EXPECT_EQ(RunTool(RunKv, {"encode", "base64", "-o", Path("link")}, "abc").code, ExitOk);
    EXPECT_TRUE(fs::is_symlink(folder / "link"));
    EXPECT_EQ(folder.Read("out"), "YWJj\n");
    EXPECT_EQ(fs::status(folder / "out").permissions(), fs::perms(0640));
}
#endif
