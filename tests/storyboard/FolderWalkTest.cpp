#include "Samples.h"

#include <gtest/gtest.h>

#include <kvcore/examples/storyboard/Failure.h>
#include <kvcore/examples/storyboard/FolderWalk.h>
#include <support/ScratchFolder.h>

#ifndef _WIN32
#    include <sys/stat.h>
#endif

namespace Storyboard
{

namespace fs = std::filesystem;

namespace
{

std::vector<std::string> Paths(FolderContent const & content)
{
    std::vector<std::string> paths;
    for (FoundFile const & file : content.files)
    {
        paths.push_back(file.path);
    }
    return paths;
}

std::vector<std::string> Reasons(FolderContent const & content)
{
    std::vector<std::string> reasons;
    for (LeftOut const & one : content.leftOut)
    {
        reasons.push_back(one.path + ": " + one.reason);
    }
    return reasons;
}

using Strings = std::vector<std::string>;

} // namespace

TEST(FolderWalk, FindsFilesFolderByFolderInTheOrderOfTheirNames)
{
    ScratchFolder const folder;
    for (char const * const name : {"b/z", "b/a/x", "c", "a", "D", "b/y", "a-folder/one", "b.txt"})
    {
        folder.Write(name, "12345");
    }
    fs::create_directory(folder / "empty");
    FolderContent const content = WalkFolder(folder.Path());
    EXPECT_EQ(Paths(content), (Strings{"D", "a", "b.txt", "c", "a-folder/one", "b/y", "b/z", "b/a/x"}));
    EXPECT_EQ(Reasons(content), Strings{});
    EXPECT_EQ(content.files[0].size, 5);
}

TEST(FolderWalk, LeavesOutTheProjectFile)
{
    ScratchFolder const folder;
    folder.Write("sub/project", "");
    folder.Write("other", "");
    FolderContent const content = WalkFolder(folder.Path(), {folder / "sub/../sub/project", folder / "not there"});
    EXPECT_EQ(Paths(content), Strings{"other"});
    EXPECT_EQ(Reasons(content), Strings{"sub/project: the project file itself"});
}

TEST(FolderWalk, OfNoFolderFails)
{
    ScratchFolder const folder;
    folder.Write("file", "");
    for (char const * const name : {"file", "not there"})
    {
        try
        {
            WalkFolder(folder / name);
            ADD_FAILURE() << name;
        }
        catch (Failure const & failure)
        {
            EXPECT_EQ(failure.exitCode, kv::tools::ExitIo);
            EXPECT_NE(failure.message.find(name), std::string::npos) << failure.message;
        }
    }
}

TEST(FolderWalk, StoredNamesAreUtf8AndLoseNothing)
{
    EXPECT_EQ(StoredName(fs::path(u8"caf\u00E9 \u6620\U0001F3AC")), "caf\xC3\xA9 \xE6\x98\xA0\xF0\x9F\x8E\xAC");
    for (std::string const name : {"plain", "caf\xC3\xA9", "\xF0\x9F\x8E\xAC", "\xED\xA0\x80 alone"})
    {
        EXPECT_EQ(StoredName(NativePath(name)), name);
    }
}

#ifndef _WIN32 // links, pipes and names of any bytes are what other systems have
TEST(FolderWalk, TakesLinksToFilesInTheFolderAlone)
{
    ScratchFolder const outside;
    outside.Write("secret", "secret");
    ScratchFolder const folder;
    folder.Write("sub/file", "1");
    fs::create_symlink("sub/file", folder / "a inside");
    fs::create_symlink(outside / "secret", folder / "b outside");
    fs::create_symlink("nowhere", folder / "c nowhere");
    fs::create_symlink("sub", folder / "d folder");
    fs::create_symlink("e itself", folder / "e itself");
    fs::create_symlink("..", folder / "sub/up");
    FolderContent const content = WalkFolder(folder.Path());
    EXPECT_EQ(Paths(content), (Strings{"a inside", "sub/file"}));
    Strings const reasons = Reasons(content);
    ASSERT_EQ(reasons.size(), 5u);
    EXPECT_EQ(reasons[0], "b outside: a link out of the folder");
    EXPECT_EQ(reasons[1], "c nowhere: a link to nothing");
    EXPECT_EQ(reasons[2], "d folder: a link to a folder");
    EXPECT_EQ(content.leftOut[3].path, "e itself");
    EXPECT_EQ(content.leftOut[3].why, LeftOut::Why::Unreadable);
    EXPECT_EQ(reasons[4], "sub/up: a link to a folder");
}

TEST(FolderWalk, WorksThroughALinkToTheFolder)
{
    ScratchFolder const folder;
    folder.Write("real/file", "1");
    fs::create_symlink("file", folder / "real/link");
    fs::create_symlink("real", folder / "link");
    EXPECT_EQ(Paths(WalkFolder(folder / "link")), (Strings{"file", "link"}));
}

TEST(FolderWalk, LeavesOutWhatIsNoFile)
{
    ScratchFolder const folder;
    ASSERT_EQ(::mkfifo((folder / "pipe").c_str(), 0600), 0);
    fs::create_symlink("pipe", folder / "to a pipe");
    EXPECT_EQ(
        Reasons(WalkFolder(folder.Path())),
        (Strings{"pipe: a pipe, socket or device", "to a pipe: a pipe, socket or device"}));
}

TEST(FolderWalk, TakesNamesOfAnyBytes)
{
    ScratchFolder const folder;
    std::string const name = "latin \xE9\xFF\x1B\n\\";
    folder.Write(name, "1");
    FolderContent const content = WalkFolder(folder.Path());
    ASSERT_EQ(Paths(content), Strings{name});
    EXPECT_TRUE(fs::exists(content.files[0].native));
}
#endif

} // namespace Storyboard
