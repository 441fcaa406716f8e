#include <kvcore/tools/kv/RunKv.h>
#include <kvcore/tools/support/ExitCodes.h>

#include <kvcore/files/File.h>

#include <gtest/gtest.h>

#include <support/ScratchFolder.h>
#include <support/ToolConsole.h>

#include <algorithm>
#include <functional>
#include <sstream>
#include <system_error>
#include <utility>

namespace
{

using namespace kv::tools;
using kv::test::RunTool;
using kv::test::TextSink;
using kv::test::TextSource;
using kv::test::ToolResult;

std::string Argument(std::filesystem::path const & path)
{
    std::u8string const text = path.u8string();
    return {text.begin(), text.end()};
}

std::string Shown(std::filesystem::path path)
{
    return Argument(path.make_preferred());
}

using Strings = std::vector<std::string>;

std::vector<std::string> Lines(std::string const & text)
{
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);)
    {
        lines.push_back(line);
    }
    std::sort(lines.begin(), lines.end());
    return lines;
}

// As somebody at a terminal: the answer is typed when asked.
ToolResult RunAsking(std::vector<std::string> const & arguments, std::string const & answer)
{
    TextSource input(answer);
    TextSink output;
    TextSink error;
    Console console{input, output, error, true};
    int const code = RunKv(arguments, console);
    return {code, output.text, error.text};
}

class KvTree : public testing::Test
{
protected:
    KvTree()
    {
        folder.Write("a.txt", "12345");
        folder.Write("sub/b.txt", "123");
        folder.Write("sub/deep/c.bin", "1");
    }

    ScratchFolder folder;
};

TEST_F(KvTree, FindListsEverythingBelow)
{
    ToolResult const result = RunTool(RunKv, {"find", Argument(folder.Path()), "--tab", "--total"});
    EXPECT_EQ(result.code, ExitOk);
    std::vector<std::string> paths;
    for (std::string const & line : Lines(result.output))
    {
        EXPECT_EQ(std::count(line.begin(), line.end(), '\t'), 3) << line;
        EXPECT_NE(line.find("Z\t"), std::string::npos) << line;
        paths.push_back(line.substr(line.rfind('\t') + 1));
    }
    std::sort(paths.begin(), paths.end());
    ASSERT_EQ(paths.size(), 5u) << result.output;
    EXPECT_NE(result.error.find("9 bytes in 3 files, 2 directories, 0 links"), std::string::npos) << result.error;
}

TEST_F(KvTree, FindShowsSizesAndPathsInColumns)
{
    ToolResult const result = RunTool(RunKv, {"find", Argument(folder.Path()), "*.txt"});
    EXPECT_EQ(result.code, ExitOk);
    std::vector<std::string> const lines = Lines(result.output);
    ASSERT_EQ(lines.size(), 2u) << result.output;
    for (std::string const & line : lines)
    {
        bool const isFirst = line.find("a.txt") != std::string::npos;
        EXPECT_EQ(line[0], '-') << "no directory";
        EXPECT_EQ(line.substr(20, 4), isFirst ? " 5  " : " 3  ") << line;
        EXPECT_EQ(line.substr(45), Shown(isFirst ? folder / "a.txt" : folder / "sub/b.txt"));
    }
}

TEST_F(KvTree, FindEndsPathsInNulOnRequest)
{
    ToolResult const result = RunTool(RunKv, {"find", "-0", Argument(folder.Path()), "*.bin"});
    EXPECT_EQ(result.output, Shown(folder / "sub/deep/c.bin") + std::string(1, '\0'));
}

TEST_F(KvTree, FindTakesAndShowsWin32Paths)
{
    ToolResult const result = RunTool(RunKv, {"find", "-0", "--win32", folder.Name().Utf8(), "*.bin"});
    EXPECT_EQ(result.code, ExitOk) << result.error;
    EXPECT_EQ(result.output, folder.Name("sub\\deep\\c.bin").Utf8() + std::string(1, '\0'));
}

TEST_F(KvTree, FindNamesADirectoryThatIsNotThere)
{
    ToolResult const result = RunTool(RunKv, {"find", Argument(folder / "not there")});
    EXPECT_EQ(result.code, ExitFailed);
    EXPECT_EQ(result.output, "");
    EXPECT_NE(result.error.find("not there: "), std::string::npos) << result.error;
    ToolResult const file = RunTool(RunKv, {"find", Argument(folder / "a.txt")});
    EXPECT_EQ(file.code, ExitFailed);
    EXPECT_NE(file.error.find("is a file"), std::string::npos) << file.error;
}

TEST_F(KvTree, MasksHaveNoSeparators)
{
    EXPECT_EQ(RunTool(RunKv, {"find", Argument(folder.Path()), "sub/*"}).code, ExitUsage);
    EXPECT_EQ(RunTool(RunKv, {"remove", "--yes", Argument(folder.Path()), "..\\*"}).code, ExitUsage);
    EXPECT_EQ(folder.Read("a.txt"), "12345");
}

TEST_F(KvTree, SizeSumsUp)
{
    ToolResult const result = RunTool(RunKv, {"size", Argument(folder.Path()), Argument(folder / "a.txt")});
    EXPECT_EQ(result.code, ExitOk);
    EXPECT_EQ(
        result.output,
        Argument(folder.Path()) + ": 9 bytes in 3 files, 2 directories, 0 links\n" + Argument(folder / "a.txt") +
            ": 5 bytes in 1 file, 0 directories, 0 links\n");
    EXPECT_EQ(RunTool(RunKv, {"size", "--tab", Argument(folder / "sub")}).output.substr(0, 8), "4\t2\t1\t0\t");
    EXPECT_EQ(RunTool(RunKv, {"size", Argument(folder / "not there")}).code, ExitFailed);
}

TEST_F(KvTree, RemoveRefusesWithoutATerminalToAskOn)
{
    ToolResult const result = RunTool(RunKv, {"remove", Argument(folder.Path()), "*"}, "y\n");
    EXPECT_EQ(result.code, ExitUsage);
    EXPECT_NE(result.error.find("--yes"), std::string::npos) << result.error;
    EXPECT_EQ(folder.Read("a.txt"), "12345");
}

TEST_F(KvTree, RemoveAsks)
{
    for (char const * const answer : {"n\n", "\n", "", "yikes\n"})
    {
        ToolResult const result = RunAsking({"remove", Argument(folder.Path()), "*.txt"}, answer);
        EXPECT_EQ(result.code, ExitFailed) << answer;
        EXPECT_NE(result.error.find("remove 2 files and 0 directories"), std::string::npos) << result.error;
        EXPECT_EQ(folder.Read("a.txt"), "12345");
    }
    EXPECT_EQ(RunAsking({"remove", Argument(folder.Path()), "*.txt"}, "y\n").code, ExitOk);
    EXPECT_FALSE(std::filesystem::exists(folder / "a.txt"));
    EXPECT_FALSE(std::filesystem::exists(folder / "sub/b.txt"));
    EXPECT_TRUE(std::filesystem::exists(folder / "sub/deep/c.bin"));
}

TEST_F(KvTree, RemoveListsOnADryRun)
{
    ToolResult const result = RunTool(RunKv, {"remove", "--dry-run", Argument(folder.Path()), "*.bin"});
    EXPECT_EQ(result.code, ExitOk);
    EXPECT_EQ(result.output, Shown(folder / "sub/deep/c.bin") + "\n");
    EXPECT_EQ(folder.Read("sub/deep/c.bin"), "1");
}

TEST_F(KvTree, RemoveTakesDirectoriesOnRequestAndLeavesTheRoot)
{
    EXPECT_EQ(RunTool(RunKv, {"remove", "--yes", Argument(folder.Path()), "*"}).code, ExitOk);
    EXPECT_TRUE(std::filesystem::exists(folder / "sub/deep"));
    EXPECT_EQ(RunTool(RunKv, {"remove", "--yes", "--directories", Argument(folder.Path()), "*"}).code, ExitOk);
    EXPECT_TRUE(std::filesystem::is_empty(folder.Path()));
}

TEST_F(KvTree, RemoveSaysWhatItCouldNotRemove)
{
    ToolResult const result = RunTool(RunKv, {"remove", "-y", "-d", Argument(folder.Path()), "sub"});
    EXPECT_EQ(result.code, ExitFailed);
    EXPECT_NE(result.error.find("cannot remove " + Shown(folder / "sub")), std::string::npos) << result.error;
    EXPECT_TRUE(std::filesystem::exists(folder / "sub/b.txt"));
}

// Somebody at a terminal, in whose time to think something else happens.
class ThinkingPerson : public SourceStream
{
public:
    explicit ThinkingPerson(std::function<void()> whatHappens) : happen(std::move(whatHappens)) {}

    int ReadSome(char * data, int) override
    {
        if (happen)
        {
            std::exchange(happen, nullptr)();
            *data = 'y';
            return 1;
        }
        return 0;
    }

private:
    std::function<void()> happen;
};

ToolResult RemoveWhile(std::filesystem::path const & root, std::function<void()> const & happen)
{
    ThinkingPerson input(happen);
    TextSink output;
    TextSink error;
    Console console{input, output, error, true};
    int const code = RunKv({"remove", "--directories", Argument(root), "*"}, console);
    return {code, output.text, error.text};
}

// Puts something else in the place of a folder, where the system lets it: some refuse it while the folder is held.
void Swap(std::filesystem::path const & path, std::filesystem::path const & replacement)
{
    std::error_code error;
    std::filesystem::rename(path, path.string() + " before", error);
    if (!error)
    {
        std::filesystem::rename(replacement, path, error);
    }
}

TEST_F(KvTree, RemoveDoesNotGoIntoAFolderThatTookTheOldOnesPlace)
{
    for (char const * const swapped : {"sub", "sub/deep", "."})
    {
        ScratchFolder const place;
        place.Write("root/a.txt", "1");
        place.Write("root/sub/b.txt", "1");
        place.Write("root/sub/deep/c.bin", "1");
        for (char const * const name : {"a.txt", "b.txt", "c.bin", "sub/b.txt", "sub/deep/c.bin", "deep/c.bin"})
        {
            place.Write(std::string("other/") + name, "kept");
        }
        std::filesystem::path const root = place / "root";
        std::filesystem::path const target = swapped[0] == '.' ? root : root / swapped;
        bool isSwapped = false;
        ToolResult const result = RemoveWhile(
            root,
            [&]
            {
                Swap(target, place / "other");
                isSwapped = !std::filesystem::exists(place / "other");
            });
        std::filesystem::path const other = isSwapped ? target : place / "other";
        for (char const * const name : {"a.txt", "b.txt", "c.bin", "sub/b.txt", "sub/deep/c.bin", "deep/c.bin"})
        {
            EXPECT_TRUE(std::filesystem::exists(other / name)) << swapped << ": " << name << "\n" << result.error;
        }
        if (isSwapped)
        {
            EXPECT_EQ(result.code, ExitFailed) << swapped;
            EXPECT_NE(result.error.find("not the one that was listed"), std::string::npos) << result.error;
        }
    }
}

#ifndef _WIN32 // symbolic links are not to be had there without rights
TEST_F(KvTree, RemoveDoesNotGoThroughALinkThatTookAFoldersPlace)
{
    for (char const * const swapped : {"sub", "sub/deep", "."})
    {
        ScratchFolder const place;
        place.Write("root/a.txt", "1");
        place.Write("root/sub/b.txt", "1");
        place.Write("root/sub/deep/c.bin", "1");
        ScratchFolder const outside;
        Strings const names = {"a.txt", "b.txt", "c.bin", "sub/b.txt", "sub/deep/c.bin", "deep/c.bin"};
        for (std::string const & name : names)
        {
            outside.Write(name, "kept");
        }
        std::filesystem::path const target = (place / "root" / swapped).lexically_normal();
        ToolResult const result = RemoveWhile(
            place / "root",
            [&]
            {
                std::filesystem::path const end = swapped[0] == '.' ? place / "root" : target;
                std::filesystem::rename(end, place / "before");
                std::filesystem::create_directory_symlink(outside.Path(), end);
            });
        EXPECT_EQ(result.code, ExitFailed) << swapped;
        for (std::string const & name : names)
        {
            EXPECT_TRUE(std::filesystem::exists(outside / name)) << swapped << ": " << name << "\n" << result.error;
        }
    }
}

TEST_F(KvTree, LinksAreListedAndRemovedAsLinks)
{
    ScratchFolder const outside;
    outside.Write("secret", "1");
    std::filesystem::create_directory_symlink(outside.Path(), folder / "out");
    std::filesystem::create_directory_symlink("..", folder / "sub/up");
    std::filesystem::create_symlink("nowhere", folder / "dangling");
    ToolResult const found = RunTool(RunKv, {"find", "--total", Argument(folder.Path())});
    EXPECT_EQ(found.code, ExitOk) << found.error;
    EXPECT_NE(found.error.find("9 bytes in 3 files, 2 directories, 3 links"), std::string::npos) << found.error;
    EXPECT_EQ(RunTool(RunKv, {"remove", "-y", "-d", Argument(folder.Path()), "*"}).code, ExitOk);
    EXPECT_TRUE(std::filesystem::is_empty(folder.Path()));
    EXPECT_EQ(outside.Read("secret"), "1");
}

TEST_F(KvTree, NamesWithLineEndsStayOnOneLine)
{
    ScratchFolder const other;
    other.Write("two\nlines\tand \\", "");
    std::string const output = RunTool(RunKv, {"find", "--tab", Argument(other.Path())}).output;
    EXPECT_EQ(output.substr(output.rfind('/')), "/two\\nlines\\tand \\\\\n");
    EXPECT_EQ(Lines(RunTool(RunKv, {"find", Argument(other.Path())}).output).size(), 1u);
}
#endif

} // namespace
