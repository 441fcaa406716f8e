// What asks or changes the file system.

#include <filesystem>
#include <string>

#include <gtest/gtest.h>

#include <kvcore/files/File.h>
#include <kvcore/files/FileFinder.h>
#include <kvcore/platform/win32.h>
#include <support/CostGrowth.h>
#include <support/ScratchFolder.h>

namespace fs = std::filesystem;

namespace
{

String Rule(char const * text)
{
    return String::FromUtf8(text);
}

} // namespace

TEST(File, ExistsAsFileOrDirectory)
{
    ScratchFolder const folder;
    folder.Write("file", "12345");
    EXPECT_TRUE(File::FileExists(folder.Name("file")));
    EXPECT_TRUE(File::FileExists(folder.Name()));
    EXPECT_FALSE(File::FileExists(folder.Name("not there")));
    EXPECT_FALSE(File::FileExists(String()));
    EXPECT_TRUE(File::IsDirectory(folder.Name()));
    EXPECT_FALSE(File::IsDirectory(folder.Name("file")));
    EXPECT_FALSE(File::IsDirectory(folder.Name("not there")));
}

TEST(File, SizeAndTimeAreThoseOfFilesOnly)
{
    ScratchFolder const folder;
    folder.Write("file", "12345");
    EXPECT_EQ(File::GetFileSize(folder.Name("file")), 5);
    EXPECT_EQ(File::GetFileSize(folder.Name()), 0);
    EXPECT_EQ(File::GetFileSize(folder.Name("not there")), 0);

    FILETIME time = {1, 2};
    EXPECT_FALSE(File::GetLastWriteTime(folder.Name(), time));
    EXPECT_FALSE(File::GetLastWriteTime(folder.Name("not there"), time));
    EXPECT_EQ(time.dwLowDateTime, 1u);
    EXPECT_EQ(time.dwHighDateTime, 2u);
    EXPECT_TRUE(File::GetLastWriteTime(folder.Name("file"), time));
    EXPECT_GT(time.dwHighDateTime, 2u);
}

TEST(File, Copies)
{
    ScratchFolder const folder;
    folder.Write("from", "new");
    folder.Write("to", "old");
    EXPECT_FALSE(File::CopyFileW(folder.Name("from"), folder.Name("to"), true));
    EXPECT_EQ(GetLastError(), DWORD(ERROR_FILE_EXISTS));
    EXPECT_EQ(folder.Read("to"), "old");
    EXPECT_TRUE(File::CopyFileW(folder.Name("from"), folder.Name("to"), false));
    EXPECT_EQ(folder.Read("to"), "new");
    EXPECT_TRUE(File::CopyFileW(folder.Name("from"), folder.Name("more"), true));
    EXPECT_FALSE(File::CopyFileW(folder.Name("not there"), folder.Name("x"), false));
    EXPECT_EQ(GetLastError(), DWORD(ERROR_FILE_NOT_FOUND));
}

TEST(File, MakesAndRemovesDirectories)
{
    ScratchFolder const folder;
    folder.Write("file", "");
    EXPECT_TRUE(File::CreateDirectoryW(folder.Name("sub")));
    EXPECT_TRUE(fs::is_directory(folder / "sub"));
    EXPECT_TRUE(File::CreateDirectoryW(folder.Name("sub"))) << "it is there";
    EXPECT_FALSE(File::CreateDirectoryW(folder.Name("file")));
    EXPECT_FALSE(File::CreateDirectoryW(folder.Name("not\\there")));
    folder.Write("sub/file", "");
    EXPECT_FALSE(File::RemoveDirectoryW(folder.Name("sub")));
    EXPECT_EQ(GetLastError(), DWORD(ERROR_DIR_NOT_EMPTY));
    EXPECT_FALSE(File::DeleteFileW(folder.Name("sub")));
    EXPECT_TRUE(File::DeleteFileW(folder.Name("sub\\file")));
    EXPECT_FALSE(File::DeleteFileW(folder.Name("sub\\file")));
    EXPECT_EQ(GetLastError(), DWORD(ERROR_FILE_NOT_FOUND));
    EXPECT_TRUE(File::RemoveDirectoryW(folder.Name("sub")));
    EXPECT_FALSE(fs::exists(folder / "sub"));
}

TEST(File, CreatePathMakesAllThatIsMissing)
{
    ScratchFolder const folder;
    EXPECT_TRUE(File::CreatePath(folder.Name("a\\b\\c")));
    EXPECT_TRUE(fs::is_directory(folder / "a/b/c"));
    EXPECT_TRUE(File::CreatePath(folder.Name("a\\b\\c\\")));
    EXPECT_TRUE(File::CreatePath(folder.Name("a\\..\\d")));
    EXPECT_TRUE(fs::is_directory(folder / "d"));
    folder.Write("a/file", "");
    EXPECT_FALSE(File::CreatePath(folder.Name("a\\file\\x")));
    EXPECT_FALSE(File::CreatePath(folder.Name("a\\file")));
    EXPECT_TRUE(File::CreatePath(folder.Name("a")));
    EXPECT_FALSE(File::CreatePath(String()));
    EXPECT_TRUE(File::CreatePath(TEXT("C:\\")));
    EXPECT_FALSE(File::CreatePath(TEXT("\\\\server")));
}

TEST(File, CreatePathLeavesWhatItMade)
{
    ScratchFolder const folder;
    folder.Write("file", "");
    std::string const tooLong(256, 'x');
    EXPECT_FALSE(File::CreatePath(folder.Name("made\\" + tooLong + "\\x")));
    EXPECT_TRUE(fs::is_directory(folder / "made"));
}

TEST(File, FullPathsHaveNoDotsAndNoDoubledBackslashes)
{
    struct
    {
        char const * path;
        char const * expected;
    } const rows[] = {
        {"", ""},
        {"c:\\a\\", "c:\\a"},
        {"c:\\", "c:\\"},
        {"c:\\a\\b\\..\\.\\c", "c:\\a\\c"},
        {"c:\\a\\\\b", "c:\\a\\b"},
        {"c:\\\\a", "c:\\a"},
        {"c:/a/b", "c:\\a\\b"},
        {"\\\\server\\share\\", "\\\\server\\share"},
        {"\\\\server\\share\\\\x", "\\\\server\\share\\x"},
        {"c:\\..\\..\\a", "c:\\a"},
    };
    for (auto const & row : rows)
    {
        EXPECT_EQ(File::GetFullPath(Rule(row.path)).Utf8(), row.expected) << row.path;
    }
    String const relative = File::GetFullPath(TEXT("name"));
    EXPECT_TRUE(File::IsPathAbsolute(relative));
    EXPECT_EQ(File::GetBasename(relative, String()), TEXT("name"));
    String const longest = TEXT("c:\\") + String(WString(1000, 'x')) + TEXT("\\y");
    EXPECT_EQ(File::GetFullPath(longest), longest) << "longer than any buffer";
}

TEST(File, CanonicalPathsAreOfWhatExists)
{
    ScratchFolder const folder;
    folder.Write("A Folder With A Name/A File With A Name.text", "");
    String const name = TEXT("A Folder With A Name\\A File With A Name.text");
    String const canonical = File::GetCanonicalPath(File::MakePath(folder.Name(), name));
    EXPECT_TRUE(canonical.EndsWith(name)) << canonical.Utf8();
    String upper = File::MakePath(folder.Name(), name);
    upper = upper.UpperCase();
    EXPECT_EQ(File::GetCanonicalPath(upper), canonical);
    EXPECT_EQ(File::GetCanonicalPath(folder.Name("x\\..\\A Folder With A Name\\")), File::GetDirname(canonical));
    EXPECT_EQ(File::GetCanonicalPath(File::GetShortPath(canonical)), canonical);
    EXPECT_EQ(File::GetCanonicalPath(folder.Name("not there")), String());
    EXPECT_EQ(File::GetCanonicalPath(String()), String());
    EXPECT_EQ(File::GetShortPath(folder.Name("not there")), String());
    EXPECT_EQ(File::GetShortPath(String()), String());
}

TEST(File, CompactPathsAreNoLongerThanAsked)
{
    String const path = TEXT("c:\\a folder\\with another folder\\and a name.txt");
    EXPECT_EQ(File::CompactPath(path, 100), path);
    EXPECT_EQ(File::CompactPath(path, unsigned(-1)), path);
    String const shorter = File::CompactPath(path, 30);
    EXPECT_LE(shorter.size(), 30u);
    EXPECT_TRUE(shorter.EndsWith(TEXT("\\and a name.txt"))) << shorter.Utf8();
    EXPECT_NE(shorter.find(TEXT("...")), String::npos);
    EXPECT_TRUE(File::CompactPath(path, 0).empty());
    EXPECT_TRUE(File::CompactPath(String(), 10).empty());
}

TEST(File, PathsAndUrls)
{
    struct
    {
        char const * path;
        char const * url;
    } const rows[] = {
        {"c:\\a\\b.txt", "file:///c:/a/b.txt"},
        {"c:\\with blank", "file:///c:/with%20blank"},
        {"c:\\100% #1", "file:///c:/100%25%20%231"},
        {"\\\\server\\share\\x", "file://server/share/x"},
    };
    for (auto const & row : rows)
    {
        EXPECT_EQ(File::PathToURL(Rule(row.path)).Utf8(), row.url);
        EXPECT_EQ(File::URLToPath(Rule(row.url)).Utf8(), row.path);
    }
    EXPECT_EQ(File::URLToPath(TEXT("c:/a/b")), File::URLToPath(TEXT("file:///c:/a/b")));
    EXPECT_EQ(File::URLToPath(TEXT("http://server/x")), String());
}

TEST(File, UrlsKeepHighCharactersAsTheyAre)
{
    String const path = TEXT("c:\\caf\u00E9");
    String const url = File::PathToURL(path);
    EXPECT_EQ(url.find(TEXT('%')), String::npos) << url.Utf8();
    EXPECT_TRUE(url.BeginsWith(TEXT("file:///c:/caf")));
}

TEST(File, CleanFilenameLeavesGoodNamesAlone)
{
    for (char const * const name : {"c:\\dir\\name.txt", "name.txt", "c:\\", ""})
    {
        String path = Rule(name);
        File::CleanFilename(path, TEXT('_'));
        EXPECT_EQ(path.Utf8(), name);
    }
}

TEST(File, CleanFilenameTakesADriveWithoutARootForPartOfTheName)
{
    String path = TEXT("c:name");
    File::CleanFilename(path, TEXT('_'));
    EXPECT_EQ(path, TEXT("c-name"));
    path = TEXT(".\\name");
    File::CleanFilename(path, TEXT('_'));
    EXPECT_EQ(path, TEXT(".-name"));
}

TEST(File, CleanFilenameMakesANameThatTheSystemTakes)
{
    ScratchFolder const folder;
    String path = folder.Name("a<b>c|d*e?.txt");
    File::CleanFilename(path, TEXT('_'));
    EXPECT_EQ(File::GetDirname(path), folder.Name());
    EXPECT_EQ(path.find_first_of(TEXT("<>|*?")), String::npos) << path.Utf8();
    EXPECT_TRUE(File::CreateDirectoryW(path)) << path.Utf8();
}

TEST(File, CleanFilenameOfANameTooLongLeavesOneCharacter)
{
    String path = TEXT("c:\\dir\\") + String(WString(300, 'n'));
    File::CleanFilename(path, TEXT('_'));
    EXPECT_EQ(path, TEXT("_"));
    path = TEXT("c:\\") + String(WString(250, 'd')) + TEXT("\\name that is too long for it");
    File::CleanFilename(path, TEXT('#'));
    EXPECT_EQ(path, TEXT("#"));
}

TEST(File, TemporaryFilesAreMade)
{
    String const directory = File::GetTempDirectory();
    ASSERT_FALSE(directory.empty());
    EXPECT_TRUE(File::IsDirectory(directory));
    EXPECT_FALSE(directory.EndsWith(TEXT("\\")) && !File::IsDriveRoot(directory));

    ScratchFolder const folder;
    String const first = File::GetTempFilePath(folder.Name());
    String const second = File::GetTempFilePath(folder.Name());
    EXPECT_NE(first, second);
    for (String const & path : {first, second})
    {
        EXPECT_EQ(File::GetDirname(path), folder.Name());
        EXPECT_TRUE(File::GetBasename(path, String()).BeginsWith(TEXT("TMP"))) << path.Utf8();
        EXPECT_TRUE(File::FileExists(path));
        EXPECT_EQ(File::GetFileSize(path), 0);
    }
    EXPECT_EQ(File::GetTempFilePath(folder.Name("not there")), String());
    String const elsewhere = File::GetTempFilePath(String());
    EXPECT_EQ(File::GetDirname(elsewhere), directory);
    EXPECT_TRUE(File::DeleteFileW(elsewhere));
}

TEST(File, SpecialFoldersAreOne)
{
    String const data = File::GetApplicationDataDirectory();
    ASSERT_FALSE(data.empty());
    EXPECT_TRUE(File::IsDirectory(data));
    EXPECT_EQ(File::GetSpecialFolderPath(0, true, nullptr), data);
    EXPECT_EQ(File::GetSpecialFolderPath(5, false, nullptr), data);
}

TEST(File, NextFilePathIsTheFirstFreeNumber)
{
    ScratchFolder const folder;
    auto const next = [&](char const * name)
    {
        String const path = File::GetNextFilePath(folder.Name(), Rule(name), TEXT(".mpg"), nullptr, nullptr);
        EXPECT_EQ(File::GetDirname(path), folder.Name());
        return File::GetBasename(path, String()).Utf8();
    };
    EXPECT_EQ(next("movie"), "movie.0001.mpg");
    EXPECT_EQ(next("movie.17"), "movie.0017.mpg");
    EXPECT_EQ(next("take12"), "take12.0001.mpg");
    EXPECT_EQ(next("a.0"), "a.0001.mpg");
    EXPECT_EQ(next("a."), "a.0001.mpg");
    EXPECT_EQ(next("12"), "0012.mpg");
    EXPECT_EQ(next(""), "0001.mpg");
    EXPECT_EQ(next("a.99999999999"), "a.2147483647.mpg");
    folder.Write("movie.0001.mpg", "");
    folder.Write("movie.0002.mpg", "");
    EXPECT_EQ(next("movie"), "movie.0003.mpg");
    EXPECT_FALSE(fs::exists(folder / "movie.0003.mpg")) << "nothing is made";
}

TEST(File, NextFilePathCounts)
{
    ScratchFolder const folder;
    unsigned int counter = 0;
    String path = File::GetNextFilePath(folder.Name(), TEXT("a.7"), TEXT(".x"), &counter, nullptr);
    EXPECT_EQ(path, folder.Name("a.0000.x")) << "a counter of 0 is 0, and the name's number does not count";
    EXPECT_EQ(counter, 1u);
    folder.Write("a.5.x", "");
    counter = 5;
    path = File::GetNextFilePath(folder.Name(), TEXT("a"), TEXT(".x"), &counter, TEXT("%u"));
    EXPECT_EQ(path, folder.Name("a.6.x"));
    EXPECT_EQ(counter, 7u);
}

TEST(File, NextFilePathInNoDirectoryIsEmpty)
{
    ScratchFolder const folder;
    unsigned int counter = 3;
    EXPECT_EQ(File::GetNextFilePath(folder.Name("not there"), TEXT("a"), TEXT(".x"), &counter, nullptr), String());
    EXPECT_EQ(counter, 3u);
    EXPECT_EQ(File::GetRandomFilePath(folder.Name("not there"), TEXT("a"), TEXT(".x")), String());
}

TEST(File, RandomFilePathsKeepTheNameBeforeItsDigits)
{
    ScratchFolder const folder;
    struct
    {
        char const * name;
        char const * base;
    } const rows[] = {{"take12", "take"}, {"a.1b2", "a.1b"}, {"123", "123"}, {"", ""}};
    for (auto const & row : rows)
    {
        String const path = File::GetRandomFilePath(folder.Name(), Rule(row.name), TEXT(".x"));
        EXPECT_EQ(File::GetDirname(path), folder.Name());
        std::string const title = File::GetFileTitleW(path).Utf8();
        ASSERT_EQ(title.substr(0, std::string(row.base).size()), row.base);
        std::string const digits = title.substr(std::string(row.base).size());
        EXPECT_GE(digits.size(), 10u);
        EXPECT_EQ(digits.find_first_not_of("-0123456789"), std::string::npos) << digits;
        EXPECT_FALSE(File::FileExists(path));
    }
}

TEST(File, DrivesHaveTypeAndSpace)
{
    ScratchFolder const folder;
    folder.Write("file", "");
    EXPECT_GE(File::GetDriveTypeW(folder.Name("file")), 2u);
    EXPECT_EQ(File::GetDriveTypeW(TEXT("relative")), ::GetDriveTypeW(nullptr));

    File::DriveInfo info;
    info.totalBytes = 77;
    EXPECT_FALSE(File::GetDriveInfo(folder.Name("not there"), info));
    EXPECT_EQ(info.totalBytes, 0u);
    EXPECT_EQ(info.root, String());
    ASSERT_TRUE(File::GetDriveInfo(folder.Name("file"), info));
    EXPECT_TRUE(File::IsDriveRoot(info.root)) << info.root.Utf8();
    EXPECT_GT(info.totalBytes, 0u);
    EXPECT_GE(info.totalBytes, info.totalFreeBytes);
    EXPECT_GE(info.totalFreeBytes, info.freeBytesAvailable);
    EXPECT_GT(info.bytesPerSector, 0u);
    EXPECT_GT(info.sectorsPerCluster, 0u);
    EXPECT_GE(info.totalClusters, info.freeClusters);
}

TEST(File, FileSystemsAreAskedForTheirNames)
{
    EXPECT_TRUE(File::IsNTFSPath(TEXT("C:\\any\\path")));
    EXPECT_FALSE(File::IsNTFSPath(TEXT("no path")));
    EXPECT_FALSE(File::IsNTFSPath(TEXT("1:\\x")));
}

TEST(File, DeletesFilesThatMatch)
{
    ScratchFolder const folder;
    for (char const * const name : {"a.tmp", "b.txt", "sub/c.tmp", "sub/deep/d.tmp", "sub/e.txt"})
    {
        folder.Write(name, "");
    }
    EXPECT_TRUE(File::DeleteFilesRecursive(folder.Name(), TEXT("*.tmp"), false, false));
    EXPECT_FALSE(fs::exists(folder / "a.tmp"));
    EXPECT_FALSE(fs::exists(folder / "sub/deep/d.tmp"));
    EXPECT_TRUE(fs::exists(folder / "b.txt"));
    EXPECT_TRUE(fs::exists(folder / "sub/e.txt"));
    EXPECT_TRUE(fs::exists(folder / "sub/deep"));
    EXPECT_FALSE(File::DeleteFilesRecursive(folder.Name(), TEXT("*.tmp"), false, true)) << "it is not empty";
    EXPECT_TRUE(File::DeleteFilesRecursive(folder.Name(), TEXT("*.*"), true, true));
    EXPECT_FALSE(fs::exists(folder.Path()));
}

TEST(File, SizesAddUp)
{
    ScratchFolder const folder;
    folder.Write("a", "12345");
    folder.Write("sub/b", "123");
    folder.Write("sub/deep/c", "1");
    EXPECT_EQ(File::GetSizeRecursive(folder.Name()), 9);
    EXPECT_EQ(File::GetSizeRecursive(folder.Name("a")), 5);
    EXPECT_EQ(File::GetSizeRecursive(folder.Name("not there")), 0);
    EXPECT_EQ(File::GetSizeRecursive(String()), -1);
    EXPECT_EQ(File::GetSizeRecursive(WString(3, 0)), -1);
}

#ifndef _WIN32 // symbolic links are not to be had there without rights
TEST(File, DeletionRemovesLinksAndNotWhatTheyLeadTo)
{
    ScratchFolder const outside;
    outside.Write("secret", "1");
    ScratchFolder const folder;
    folder.Write("sub/file", "");
    fs::create_directory_symlink(outside.Path(), folder / "sub/out");
    fs::create_symlink(outside / "secret", folder / "to a file");
    fs::create_symlink("nowhere", folder / "dangling");
    fs::create_symlink("loop", folder / "loop");
    EXPECT_TRUE(File::DeleteFilesRecursive(folder.Name(), TEXT("*.*"), true, true));
    EXPECT_FALSE(fs::exists(folder.Path()));
    EXPECT_EQ(outside.Read("secret"), "1");
}

TEST(File, SizesDoNotFollowLinks)
{
    ScratchFolder const folder;
    folder.Write("sub/file", "123");
    fs::create_directory_symlink("..", folder / "sub/up");
    EXPECT_EQ(File::GetSizeRecursive(folder.Name()), 3);
}
#endif

namespace
{

struct Sums : File
{
    using File::GetDirSize;
};

} // namespace

TEST(File, SizesOfFoldersAreAddedToTheSumThatIsGiven)
{
    ScratchFolder const folder;
    folder.Write("a/one", "12345");
    folder.Write("a/deep/two", "123");
    folder.Write("b/three", "1");
    __int64 sum = 100;
    Sums::GetDirSize(folder.Name("a"), sum);
    EXPECT_EQ(sum, 108);
    Sums::GetDirSize(folder.Name("b"), sum);
    EXPECT_EQ(sum, 109);
    Sums::GetDirSize(folder.Name("not there"), sum);
    EXPECT_EQ(sum, 109);
}

TEST(PathCosts, RulesOnTextsGrowWithTheirLength)
{
    struct
    {
        char const * what;
        String (*rule)(String const & path);
    } const rules[] = {
        {"directory", [](String const & path) { return File::GetDirname(path); }},
        {"extension", [](String const & path) { return File::GetFileExtension(path); }},
        {"without it", [](String const & path) { return File::GetFilePathWithoutExtension(path); }},
        {"cut", [](String const & path) { return File::CutExtension(path, TEXT("aab")); }},
        {"joined", [](String const & path) { return File::MakePath(path, path); }},
#ifndef _WIN32 // what a system's own call costs is the system's
        {"whole", [](String const & path) { return File::GetFullPath(path); }},
#endif
        {"compact", [](String const & path) { return File::CompactPath(path, 100); }},
        {"url", [](String const & path) { return File::PathToURL(path); }},
        {"path", [](String const & path) { return File::URLToPath(TEXT("file:") + path); }},
    };
    // Small enough for the caches and the allocator to be the same for all sizes, and short enough to be done before
    // another thread's turn. Backslashes alone, parents alone, names that have nothing to find, and escapes.
    for (char const * const unit : {"\\", "..\\", "a\\..\\", "aa", ".", "%41"})
    {
        for (auto const & row : rules)
        {
            EXPECT_TRUE(kv::test::GrowsNearLinearly(
                4'000, 4'000,
                [unit](std::size_t size)
                {
                    WString const piece = String::FromUtf8(unit);
                    WString path = TEXT("c:\\");
                    while (path.size() < size)
                    {
                        path += piece;
                    }
                    return String(path);
                },
                [&row](String const & path)
                {
                    for (int i = 0; i < 4; ++i)
                    {
                        row.rule(path);
                    }
                }))
                << row.what << " of " << unit;
        }
    }
}
