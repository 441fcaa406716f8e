#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <kvcore/streams/Streams.h>
#include <kvcore/tools/support/SafeFile.h>
#include <support/ScratchFolder.h>

namespace fs = std::filesystem;
using kv::tools::SafeFile;

namespace
{

/// What stands in a folder.
std::vector<std::string> Names(fs::path const & folder)
{
    std::vector<std::string> names;
    for (fs::directory_entry const & entry : fs::directory_iterator(folder))
    {
        names.push_back(entry.path().filename().string());
    }
    std::sort(names.begin(), names.end());
    return names;
}

using Strings = std::vector<std::string>;

void Save(fs::path const & path, std::string const & bytes)
{
    SafeFile file(path);
    file.Stream().Write(bytes.data(), static_cast<int>(bytes.size()));
    file.Commit();
}

} // namespace

TEST(SafeFile, MakesAFile)
{
    ScratchFolder const folder;
    Save(folder / "new", std::string(100'000, 'x'));
    EXPECT_EQ(folder.Read("new"), std::string(100'000, 'x'));
    EXPECT_EQ(Names(folder.Path()), Strings{"new"});
}

TEST(SafeFile, ReplacesAFile)
{
    ScratchFolder const folder;
    folder.Write("old", "a longer text than the new one");
    Save(folder / "old", "new");
    EXPECT_EQ(folder.Read("old"), "new");
    EXPECT_EQ(Names(folder.Path()), Strings{"old"});
}

TEST(SafeFile, LeavesTheOldFileUntilItIsCommitted)
{
    ScratchFolder const folder;
    folder.Write("old", "old");
    {
        SafeFile file(folder / "old");
        std::string const bytes(100'000, 'x');
        file.Stream().Write(bytes.data(), static_cast<int>(bytes.size()));
        EXPECT_EQ(folder.Read("old"), "old");
    }
    EXPECT_EQ(folder.Read("old"), "old");
    EXPECT_EQ(Names(folder.Path()), Strings{"old"}) << "nothing stays behind";
}

TEST(SafeFile, InNoFolderFails)
{
    ScratchFolder const folder;
    EXPECT_THROW(SafeFile(folder / "not there/new"), kv::tools::IoException);
    EXPECT_EQ(Names(folder.Path()), Strings{});
}

TEST(SafeFile, OfTheNameOfAFolderFailsAndLeavesNothingBehind)
{
    ScratchFolder const folder;
    folder.Write("sub/file", "1");
    EXPECT_THROW(Save(folder / "sub", "new"), kv::tools::IoException);
    EXPECT_EQ(Names(folder.Path()), Strings{"sub"});
    EXPECT_EQ(folder.Read("sub/file"), "1");
}

TEST(SafeFile, TakesNamesOfAnyLength)
{
    ScratchFolder const folder;
    std::string const name(200, 'n');
    Save(folder / name, "1");
    EXPECT_EQ(folder.Read(name), "1");
}

TEST(SafeFile, LeavesTheFilesOfSavesUnderWayAlone)
{
    ScratchFolder const folder;
    SafeFile first(folder / "first");
    {
        SafeFile second(folder / "second");
        for (std::string const & name : Names(folder.Path()))
        {
            EXPECT_TRUE(SafeFile::IsTemporaryName(name)) << name;
        }
        second.Commit();
    }
    first.Stream().Write("1", 1);
    first.Commit();
    EXPECT_EQ(folder.Read("first"), "1");
    EXPECT_EQ(Names(folder.Path()), (Strings{"first", "second"}));
}

TEST(SafeFile, RemovesWhatOthersHaveLeftAndNothingElse)
{
    ScratchFolder const folder;
    Strings const others = {
        ".kvsave-.tmp",
        ".kvsave-0123456789abcdeF.tmp",
        ".kvsave-0123456789abcdef.tmp2",
        ".kvsave-0123456789abcdef0.tmp",
        "kvsave-0123456789abcdef.tmp",
        "save-0123456789abcdef.tmp"};
    for (std::string const & name : others)
    {
        folder.Write(name, "1");
    }
    folder.Write(".kvsave-0123456789abcdef.tmp", "left");
    fs::create_directory(folder / ".kvsave-0123456789abcde0.tmp");
    Save(folder / "target", "1");
    Strings expected = others;
    expected.insert(expected.end(), {".kvsave-0123456789abcde0.tmp", "target"});
    std::sort(expected.begin(), expected.end());
    EXPECT_EQ(Names(folder.Path()), expected);
}

#ifndef _WIN32 // links and permissions are what other systems have
TEST(SafeFile, FollowsLinks)
{
    ScratchFolder const folder;
    folder.Write("real/old", "old");
    fs::create_symlink("real/old", folder / "link");
    fs::create_symlink(folder / "link", folder / "second");
    Save(folder / "second", "new");
    EXPECT_TRUE(fs::is_symlink(folder / "second"));
    EXPECT_TRUE(fs::is_symlink(folder / "link"));
    EXPECT_EQ(folder.Read("real/old"), "new");
    EXPECT_EQ(Names(folder / "real"), Strings{"old"});
}

TEST(SafeFile, MakesWhatALinkToNothingLeadsTo)
{
    ScratchFolder const folder;
    fs::create_symlink("target", folder / "link");
    Save(folder / "link", "new");
    EXPECT_TRUE(fs::is_symlink(folder / "link"));
    EXPECT_EQ(folder.Read("target"), "new");
}

TEST(SafeFile, OfALinkToItselfFails)
{
    ScratchFolder const folder;
    fs::create_symlink("loop", folder / "loop");
    EXPECT_THROW(Save(folder / "loop", "new"), kv::tools::IoException);
    EXPECT_EQ(Names(folder.Path()), Strings{"loop"});
    EXPECT_TRUE(fs::is_symlink(folder / "loop"));
}

TEST(SafeFile, KeepsPermissions)
{
    for (unsigned const mode : {0600u, 0640u, 0755u})
    {
        ScratchFolder const folder;
        folder.Write("old", "old");
        fs::permissions(folder / "old", fs::perms(mode));
        Save(folder / "old", "new");
        EXPECT_EQ(unsigned(fs::status(folder / "old").permissions()), mode);
        EXPECT_EQ(folder.Read("old"), "new");
    }
}

TEST(SafeFile, IsItsOwnersAloneWhileItIsWritten)
{
    for (unsigned const mode : {0644u, 0600u})
    {
        ScratchFolder const folder;
        folder.Write("old", "old");
        fs::permissions(folder / "old", fs::perms(mode));
        SafeFile const file(folder / "old");
        for (std::string const & name : Names(folder.Path()))
        {
            unsigned const expected = SafeFile::IsTemporaryName(name) ? 0600u : mode;
            EXPECT_EQ(unsigned(fs::status(folder / name).permissions()), expected) << name;
        }
    }
}

TEST(SafeFile, ThatIsNewHasTheRightsOfAnyNewFile)
{
    ScratchFolder const folder;
    Save(folder / "saved", "1");
    folder.Write("other", "1");
    EXPECT_EQ(fs::status(folder / "saved").permissions(), fs::status(folder / "other").permissions());
}
#endif
