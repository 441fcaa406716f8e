#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <kvcore/files/File.h>
#include <kvcore/files/FileFinder.h>
#include <support/ScratchFolder.h>

namespace fs = std::filesystem;

namespace
{

using Strings = std::vector<std::string>;

/// The names that a pattern finds in a folder, in order of their bytes.
Strings Found(ScratchFolder const & folder, String const & mask, bool dots = false)
{
    Strings names;
    for (FileFinder finder(File::MakePath(folder.Name(), mask), dots); finder.IsValid(); finder.Next())
    {
        names.push_back(finder.GetFileName().Utf8());
    }
    std::sort(names.begin(), names.end());
    return names;
}

/// Notes down what is found, with forward slashes and relative to a folder.
class Noting : public FileFinder::IFindCallback
{
public:
    explicit Noting(String const & folder) : root(folder) {}

    bool OnFile(String const & directory, String const & name) override
    {
        String const path = File::MakePath(directory, name);
        std::string relative = String(path.substr(root.size() + 1)).Utf8();
        std::replace(relative.begin(), relative.end(), '\\', '/');
        found.push_back(relative);
        return found.back() != refused;
    }

    Strings found;
    std::string refused;

private:
    String root;
};

} // namespace

TEST(FileFinder, OfNoMatchIsNotValid)
{
    ScratchFolder const folder;
    FileFinder finder(folder.Name("*.avi"), false);
    EXPECT_FALSE(finder.IsValid());
    EXPECT_EQ(finder.GetFilePath(), String());
    EXPECT_EQ(finder.GetFileTitleW(), String());
    EXPECT_EQ(finder.GetFileName(), String());
    EXPECT_EQ(finder.GetSearchPath(), folder.Name());
    EXPECT_FALSE(finder.Next());
    EXPECT_FALSE(FileFinder(folder.Name("no such folder\\*"), false).IsValid());
    EXPECT_FALSE(FileFinder().IsValid());
    EXPECT_FALSE(FileFinder().Next());
}

TEST(FileFinder, ShowsTheCurrentEntry)
{
    ScratchFolder const folder;
    folder.Write("clip.one.avi", "12345");
    FileFinder finder(folder.Name("*.avi"), false);
    ASSERT_TRUE(finder.IsValid());
    EXPECT_EQ(finder.GetFileName(), TEXT("clip.one.avi"));
    EXPECT_EQ(finder.GetFileTitleW(), TEXT("clip.one"));
    EXPECT_EQ(finder.GetFileExtension(), TEXT(".avi"));
    EXPECT_EQ(finder.GetFilePath(), folder.Name("clip.one.avi"));
    EXPECT_EQ(finder.GetFileSize(), 5);
    EXPECT_FALSE(finder.IsDirectory());
    FILETIME written = {};
    EXPECT_TRUE(File::GetLastWriteTime(folder.Name("clip.one.avi"), written));
    EXPECT_TRUE(finder.GetLastWriteTime() == DateTime(written));
    EXPECT_FALSE(finder.Next());
    EXPECT_FALSE(finder.IsValid());
    EXPECT_EQ(finder.GetFileName(), String()) << "cleared at the end";
    EXPECT_EQ(finder.GetFilePath(), String());
}

TEST(FileFinder, ReportsDotsOnRequest)
{
    ScratchFolder const folder;
    folder.Write("a", "");
    fs::create_directory(folder / "sub");
    EXPECT_EQ(Found(folder, TEXT("*")), (Strings{"a", "sub"}));
    EXPECT_EQ(Found(folder, TEXT("*"), true), (Strings{".", "..", "a", "sub"}));
}

#ifndef _WIN32 // Win32 itself cannot make such a name
TEST(FileFinder, ThreeDotsAreAName)
{
    ScratchFolder const folder;
    fs::create_directory(folder / "...");
    FileFinder finder(folder.Name("*"), false);
    ASSERT_TRUE(finder.IsValid());
    EXPECT_FALSE(finder.IsDots());
    EXPECT_EQ(kv::platform::PathToNative(finder.GetFileName()), "...");
    EXPECT_TRUE(File::IsDirectory(finder.GetFilePath()));
    EXPECT_FALSE(finder.Next());
}
#endif

TEST(FileFinder, MatchesMasks)
{
    ScratchFolder const folder;
    for (char const * const name : {"one.avi", "two.AVI", "three.mpg", "four"})
    {
        folder.Write(name, "");
    }
    EXPECT_EQ(Found(folder, TEXT("*.avi")), (Strings{"one.avi", "two.AVI"}));
    EXPECT_EQ(Found(folder, TEXT("*.*")), (Strings{"four", "one.avi", "three.mpg", "two.AVI"}));
    EXPECT_EQ(Found(folder, TEXT("???.avi")), (Strings{"one.avi", "two.AVI"}));
    EXPECT_EQ(Found(folder, TEXT("t*")), (Strings{"three.mpg", "two.AVI"}));
    EXPECT_EQ(Found(folder, TEXT("FOUR")), Strings{"four"});
}

TEST(FileFinder, StartsAgain)
{
    ScratchFolder const folder;
    folder.Write("a", "");
    folder.Write("sub/b", "");
    FileFinder finder(folder.Name("*"), false);
    ASSERT_TRUE(finder.IsValid());
    ASSERT_TRUE(finder.Start(folder.Name("sub\\*"), false));
    EXPECT_EQ(finder.GetFilePath(), folder.Name("sub\\b"));
    EXPECT_FALSE(finder.Next());
    EXPECT_FALSE(finder.Start(folder.Name("sub\\x*"), false));
    EXPECT_FALSE(finder.IsValid());
}

TEST(FileFinder, WalksDirectoriesBeforeTheFilesAboveThem)
{
    ScratchFolder const folder;
    for (char const * const name : {"z.txt", "b/deep/x.txt", "b/y.txt", "b/other.avi", "a.txt"})
    {
        folder.Write(name, "");
    }
    Noting callback(folder.Name());
    EXPECT_TRUE(FileFinder::FindFilesRecursive(folder.Name(), TEXT("*.txt"), callback, false));
    ASSERT_EQ(callback.found.size(), 4u);
    EXPECT_EQ(callback.found[0], "b/deep/x.txt");
    EXPECT_EQ(callback.found[1], "b/y.txt");
    std::sort(callback.found.begin() + 2, callback.found.end());
    EXPECT_EQ(callback.found[2], "a.txt");
    EXPECT_EQ(callback.found[3], "z.txt");
}

TEST(FileFinder, WalkWithDirectoriesReportsThemWhenTheyAreDone)
{
    ScratchFolder const folder;
    folder.Write("b/deep/x", "");
    Noting callback(folder.Name());
    EXPECT_TRUE(FileFinder::FindFilesRecursive(folder.Name(), TEXT("*.*"), callback, true));
    EXPECT_EQ(callback.found, (Strings{"b/deep/x", "b/deep", "b"}));
}

TEST(FileFinder, WalkWithoutDirectoriesEndsAtOneThatMatches)
{
    ScratchFolder const folder;
    folder.Write("sub/x", "");
    folder.Write("sub/y", "");
    Noting callback(folder.Name());
    EXPECT_FALSE(FileFinder::FindFilesRecursive(folder.Name(), TEXT("*.*"), callback, false));
    std::sort(callback.found.begin(), callback.found.end());
    EXPECT_EQ(callback.found, (Strings{"sub/x", "sub/y"})) << "what is below was visited before";
}

TEST(FileFinder, WalkEndsWhereTheCallbackRefuses)
{
    ScratchFolder const folder;
    folder.Write("sub/x", "");
    folder.Write("top", "");
    Noting below(folder.Name());
    below.refused = "sub/x";
    EXPECT_TRUE(FileFinder::FindFilesRecursive(folder.Name(), TEXT("*.*"), below, true))
        << "a refusal below ends the walk there alone";
    EXPECT_EQ(below.found.size(), 3u);
    Noting above(folder.Name());
    above.refused = "top";
    EXPECT_FALSE(FileFinder::FindFilesRecursive(folder.Name(), TEXT("t*"), above, true));
    EXPECT_EQ(above.found, Strings{"top"});
}

TEST(FileFinder, WalkOfNoDirectoryFindsNothing)
{
    ScratchFolder const folder;
    Noting callback(folder.Name());
    EXPECT_TRUE(FileFinder::FindFilesRecursive(folder.Name("not there"), TEXT("*.*"), callback, false));
    EXPECT_TRUE(callback.found.empty());
}

#ifndef _WIN32 // symbolic links are not to be had there without rights
TEST(FileFinder, WalkDoesNotGoThroughLinks)
{
    ScratchFolder const outside;
    outside.Write("secret", "");
    ScratchFolder const folder;
    folder.Write("sub/file", "");
    fs::create_directory_symlink(outside.Path(), folder / "out");
    fs::create_directory_symlink("..", folder / "sub/up");
    Noting callback(folder.Name());
    EXPECT_TRUE(FileFinder::FindFilesRecursive(folder.Name(), TEXT("*.*"), callback, true));
    std::sort(callback.found.begin(), callback.found.end());
    EXPECT_EQ(callback.found, (Strings{"out", "sub", "sub/file", "sub/up"}));
}
#endif
