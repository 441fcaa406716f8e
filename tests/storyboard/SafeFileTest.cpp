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
    EXPECT_THROW(SafeFile(folder / "not there/new"), BasicFileStream::Exception);
    EXPECT_EQ(Names(folder.Path()), Strings{});
}

TEST(SafeFile, OfTheNameOfAFolderFailsAndLeavesNothingBehind)
{
    ScratchFolder const folder;
    folder.Write("sub/file", "1");
    EXPECT_THROW(Save(folder / "sub", "new"), BasicFileStream::Exception);
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
    EXPECT_THROW(Save(folder / "loop", "new"), BasicFileStream::Exception);
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

TEST(SafeFile, IsNotReadableByMoreThanTheOldFileWhileItIsWritten)
{
    ScratchFolder const folder;
    folder.Write("old", "old");
    fs::permissions(folder / "old", fs::perms(0600));
    SafeFile const file(folder / "old");
    for (fs::directory_entry const & entry : fs::directory_iterator(folder.Path()))
    {
        EXPECT_EQ(unsigned(entry.status().permissions()), 0600u) << entry.path();
    }
    EXPECT_EQ(Names(folder.Path()).size(), 2u);
}
#endif
