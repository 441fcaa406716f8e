#include <kvcore/platform/NativePaths.h>
#include <kvcore/platform/win32.h>
#include <support/CostGrowth.h>
#include <support/ScratchPaths.h>

#ifndef _WIN32 // drives are folders, names are bytes and links are made on Linux only
#    include <fcntl.h>
#    include <sys/stat.h>
#    include <sys/wait.h>
#    include <unistd.h>
#endif

namespace
{

using kv::platform::PathFromNative;
using kv::platform::PathToNative;

TEST(NativePaths, RelativePathsGoForthAndBack)
{
    EXPECT_EQ(PathFromNative("a/b c/d.txt"), TEXT("a\\b c\\d.txt"));
    EXPECT_EQ(PathFromNative("../x"), TEXT("..\\x"));
    EXPECT_EQ(PathFromNative("Gr\xC3\xBC\xC3\x9F"), TEXT("Gr\u00FC\u00DF"));
    EXPECT_EQ(PathFromNative("\xF0\x9D\x84\x9E"), TEXT("\U0001D11E"));
    EXPECT_TRUE(PathFromNative("").empty());
    EXPECT_EQ(PathToNative(TEXT("Gr\u00FC\u00DF")), "Gr\xC3\xBC\xC3\x9F");
    EXPECT_EQ(PathToNative(WString()), "");
}

TEST(NativePathCosts, BothDirectionsGrowWithTheLength)
{
    // Names, names that go up again, names of bytes that are no text, and nothing but separators.
    for (std::string const unit : {"a/", "a/../", "../", "\xFF/", "./", "//", "abcdefgh", "\xC3\xA4"})
    {
        auto const make = [&unit](std::size_t size)
        {
            std::string path;
            while (path.size() < size)
            {
                path += unit;
            }
            return path;
        };
        EXPECT_TRUE(kv::test::GrowsNearLinearly(
            4'000, 4'000, make, [](std::string const & path) { PathToNative(PathFromNative(path)); }))
            << unit;
#ifndef _WIN32 // what a system's own call costs is the system's
        EXPECT_TRUE(kv::test::GrowsNearLinearly(
            4'000, 4'000, [&make](std::size_t size) { return PathFromNative(make(size)); },
            [](WString const & path) { GetFullPathNameW(path.c_str(), 0, nullptr, nullptr); }))
            << unit;
#endif
    }
}

#ifndef _WIN32

TEST(NativePaths, AbsolutePathsAreOnZ)
{
    EXPECT_EQ(PathFromNative("/"), TEXT("Z:\\"));
    EXPECT_EQ(PathFromNative("/usr//bin/"), TEXT("Z:\\usr\\bin\\"));
    EXPECT_EQ(PathToNative(TEXT("Z:\\usr\\..\\bin")), "/bin");
    EXPECT_EQ(PathToNative(TEXT("z:/usr/")), "/usr");
    EXPECT_EQ(PathToNative(TEXT("Z:\\..\\..")), "/");
    EXPECT_EQ(PathToNative(TEXT("\\\\?\\Z:\\usr. ")), "/usr. ");
    EXPECT_EQ(PathToNative(TEXT("a\\..\\..\\b")), "../b");
    EXPECT_EQ(PathToNative(TEXT("NUL")), "/dev/null");
}

TEST(NativePaths, CraftedNamesLeadNowhere)
{
    WCHAR const * const paths[] = {
        TEXT("Z:\\a\\\uF02E\uF02E\\b"), TEXT("Z:\\a\\.\uF02E\\b"), TEXT("Z:\\a\\\uF02E"),     TEXT("Z:\\a\\...\\b"),
        TEXT("\\\\?\\Z:\\a\\..\\b"),    TEXT("\\\\?\\Z:\\a/b"),    TEXT("\\\\server\\share"), TEXT("Z:\\a|b"),
        TEXT("\\\\?\\Z:\\.\\b"),
    };
    for (WCHAR const * const path : paths)
        EXPECT_EQ(PathToNative(path), "") << testing::PrintToString(WString(path));
    // Units that would be a separator or an end if they stood for bytes.
    for (unsigned const unit : {0xDC2Fu, 0xDC00u, 0xDC5Cu, 0xD800u, 0xDBFFu})
    {
        WString path(4, static_cast<WCHAR>(unit));
        path.replace(0, 3, TEXT("Z:\\"));
        EXPECT_EQ(PathToNative(path), "") << unit;
    }
    EXPECT_EQ(PathToNative(TEXT("Z:\\a\uF02F")), "/a\xEF\x80\xAF");
}

TEST(NativePaths, AnyBytesSurviveTheRoundTrip)
{
    std::string all = "/x";
    for (int byte = 1; byte < 256; byte++)
        if (byte != '/')
            all += static_cast<char>(byte);
    for (std::string const & name :
         {all, std::string("/\xFF"), std::string("/a\xC3"), std::string("/\xED\xA0\x80"), std::string("/\xC0\xAF"),
          std::string("/a."), std::string("/a "), std::string("/..."), std::string("/.. "), std::string("/a\\b"),
          std::string("/\xEF\x80\xAA"), std::string("/\xF4\x90\x80\x80"), std::string("/a:b*?\"<>|"),
          std::string("/\xE2\x82"), std::string("/ \x01")})
        EXPECT_EQ(PathToNative(PathFromNative(name)), name) << testing::PrintToString(name);
}

TEST(NativePaths, RelativeNamesThatLookLikeDrivesOrDevicesLeadBack)
{
    for (std::string const & name :
         {std::string("a:b"), std::string("c:"), std::string("z:/x"), std::string("\xFF:"), std::string("nul"),
          std::string("NUL."), std::string("nul: "), std::string("x/nul"), std::string("../c:x"), std::string(":")})
    {
        WString const path = PathFromNative(name);
        EXPECT_EQ(PathToNative(path), name) << testing::PrintToString(path);
    }
    EXPECT_EQ(PathFromNative("a/b:c"), TEXT("a\\b:c")) << "only the beginning looks like a drive";
}

TEST(NativePaths, NamesThatAreNoUtf8OpenByWhatIsFound)
{
    ScratchPaths folder;
    for (std::string const & name :
         {std::string("\xFF\xFE"), std::string("a\\b"), std::string("q?"), std::string("end.")})
    {
        folder.Make("dir/plain");
        std::string const native = folder.Path().string() + "/dir/" + name;
        int const descriptor = creat(native.c_str(), 0600);
        ASSERT_GE(descriptor, 0);
        ASSERT_EQ(write(descriptor, "12345", 5), 5);
        close(descriptor);
        WIN32_FIND_DATAW data;
        HANDLE const find = FindFirstFileW(folder(TEXT("dir\\*")).c_str(), &data);
        bool found = false;
        do
            found = found || data.nFileSizeLow == 5;
        while (!found && FindNextFileW(find, &data));
        FindClose(find);
        ASSERT_TRUE(found);
        EXPECT_TRUE(DeleteFileW(folder(WString(TEXT("dir\\")) + data.cFileName).c_str())) << name;
        EXPECT_NE(access(native.c_str(), F_OK), 0);
    }
}

TEST(NativePaths, ExactCaseGoesBeforeOthers)
{
    ScratchPaths folder;
    folder.Make("name", "1");
    folder.Make("NAME", "22");
    folder.Make("Name", "333");
    auto const size = [&](WCHAR const * name)
    {
        WIN32_FILE_ATTRIBUTE_DATA data;
        return GetFileAttributesExW(folder(name).c_str(), GetFileExInfoStandard, &data) ? data.nFileSizeLow : 0;
    };
    EXPECT_EQ(size(TEXT("name")), 1u);
    EXPECT_EQ(size(TEXT("NAME")), 2u);
    EXPECT_EQ(size(TEXT("Name")), 3u);
    EXPECT_EQ(size(TEXT("nAME")), 2u); // of several, the first by its bytes
    ASSERT_TRUE(DeleteFileW(folder(TEXT("NAME")).c_str()));
    EXPECT_EQ(size(TEXT("nAME")), 3u);
}

TEST(NativePaths, LinksAreWhatTheyLeadTo)
{
    ScratchPaths folder;
    folder.Make("real/file", "12345");
    std::string const root = folder.Path().string() + "/";
    ASSERT_EQ(symlink("real", (root + "todir").c_str()), 0);
    ASSERT_EQ(symlink("real/file", (root + "tofile").c_str()), 0);
    ASSERT_EQ(symlink("nowhere", (root + "dangling").c_str()), 0);
    ASSERT_EQ(symlink("loop", (root + "loop").c_str()), 0);
    EXPECT_EQ(
        GetFileAttributesW(folder(TEXT("TODIR")).c_str()), FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_REPARSE_POINT);
    WIN32_FILE_ATTRIBUTE_DATA data;
    ASSERT_TRUE(GetFileAttributesExW(folder(TEXT("tofile")).c_str(), GetFileExInfoStandard, &data));
    EXPECT_EQ(data.nFileSizeLow, 5u);
    EXPECT_EQ(data.dwFileAttributes, FILE_ATTRIBUTE_ARCHIVE | FILE_ATTRIBUTE_REPARSE_POINT);
    EXPECT_EQ(GetFileAttributesW(folder(TEXT("todir\\FILE")).c_str()), FILE_ATTRIBUTE_ARCHIVE);
    EXPECT_NE(GetFileAttributesW(folder(TEXT("dangling")).c_str()), INVALID_FILE_ATTRIBUTES);
    EXPECT_EQ(GetFileAttributesW(folder(TEXT("dangling\\x")).c_str()), INVALID_FILE_ATTRIBUTES);
    EXPECT_EQ(GetLastError(), ERROR_PATH_NOT_FOUND);
    EXPECT_EQ(GetFileAttributesW(folder(TEXT("loop\\x")).c_str()), INVALID_FILE_ATTRIBUTES);
    EXPECT_EQ(GetLastError(), ERROR_CANT_RESOLVE_FILENAME);
    for (WCHAR const * const link : {TEXT("dangling"), TEXT("loop"), TEXT("tofile")})
        EXPECT_TRUE(DeleteFileW(folder(link).c_str()));
    EXPECT_FALSE(DeleteFileW(folder(TEXT("todir")).c_str()));
    EXPECT_TRUE(RemoveDirectoryW(folder(TEXT("todir")).c_str()));
    EXPECT_EQ(folder.Read("real/file"), "12345");
}

TEST(NativePaths, ReplacingALinkReplacesWhatItLeadsToAndKeepsItsRights)
{
    ScratchPaths folder;
    folder.Make("real", "old");
    folder.Make("from", "new");
    std::string const root = folder.Path().string() + "/";
    ASSERT_EQ(chmod((root + "real").c_str(), 0640), 0);
    ASSERT_EQ(symlink("real", (root + "link").c_str()), 0);
    ASSERT_TRUE(ReplaceFileW(folder(TEXT("link")).c_str(), folder(TEXT("from")).c_str(), nullptr, 0, nullptr, nullptr));
    struct stat status;
    ASSERT_EQ(lstat((root + "link").c_str(), &status), 0);
    EXPECT_TRUE(S_ISLNK(status.st_mode));
    ASSERT_EQ(stat((root + "real").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777u, 0640u);
    EXPECT_EQ(folder.Read("real"), "new");
}

TEST(NativePaths, HiddenIsADotAndReadOnlyIsThatNobodyWrites)
{
    ScratchPaths folder;
    WString const hidden = folder.Make(".hidden");
    EXPECT_EQ(GetFileAttributesW(hidden.c_str()), FILE_ATTRIBUTE_ARCHIVE | FILE_ATTRIBUTE_HIDDEN);
    WString const file = folder.Make("file");
    EXPECT_TRUE(SetFileAttributesW(file.c_str(), FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_SYSTEM));
    EXPECT_EQ(GetFileAttributesW(file.c_str()), FILE_ATTRIBUTE_ARCHIVE);
    ASSERT_EQ(chmod((folder / "file").c_str(), 0464), 0);
    EXPECT_EQ(GetFileAttributesW(file.c_str()), FILE_ATTRIBUTE_ARCHIVE);
    EXPECT_TRUE(SetFileAttributesW(file.c_str(), FILE_ATTRIBUTE_READONLY));
    struct stat status;
    ASSERT_EQ(stat((folder / "file").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777u, 0444u);
}

// The Windows that the tests run under leaves such names as they are.
TEST(NativePaths, NamesMayChangeInCaseAlone)
{
    ScratchPaths folder;
    folder.Make("file", "1");
    EXPECT_TRUE(MoveFileW(folder(TEXT("file")).c_str(), folder(TEXT("FILE")).c_str()));
    WIN32_FIND_DATAW data;
    HANDLE const find = FindFirstFileW(folder(TEXT("f*")).c_str(), &data);
    ASSERT_NE(find, INVALID_HANDLE_VALUE);
    EXPECT_EQ(WString(data.cFileName), TEXT("FILE"));
    EXPECT_FALSE(FindNextFileW(find, &data));
    FindClose(find);
    EXPECT_TRUE(MoveFileW(folder(TEXT("FILE")).c_str(), folder(TEXT("FILE")).c_str()));
}

// The published contract; the Windows that the tests run under lets the superuser write what is read-only.
TEST(NativePaths, ReadOnlyFilesAreNotOverwritten)
{
    ScratchPaths folder;
    WString const from = folder.Make("from", "new");
    WString const to = folder.Make("to", "old");
    ASSERT_TRUE(SetFileAttributesW(to.c_str(), FILE_ATTRIBUTE_READONLY));
    EXPECT_FALSE(CopyFileW(from.c_str(), to.c_str(), FALSE));
    EXPECT_EQ(GetLastError(), ERROR_ACCESS_DENIED);
    EXPECT_FALSE(MoveFileExW(from.c_str(), to.c_str(), MOVEFILE_REPLACE_EXISTING));
    EXPECT_EQ(GetLastError(), ERROR_ACCESS_DENIED);
    EXPECT_EQ(folder.Read("to"), "old");
    EXPECT_TRUE(SetFileAttributesW(from.c_str(), FILE_ATTRIBUTE_READONLY));
    EXPECT_TRUE(CopyFileW(from.c_str(), folder(TEXT("copy")).c_str(), TRUE));
    EXPECT_EQ(GetFileAttributesW(folder(TEXT("copy")).c_str()), FILE_ATTRIBUTE_ARCHIVE | FILE_ATTRIBUTE_READONLY);
}

TEST(NativePaths, OtherMachinesAndLongNamesHaveTheirErrors)
{
    ScratchPaths folder;
    EXPECT_EQ(GetFileAttributesW(TEXT("\\\\server\\share\\x")), INVALID_FILE_ATTRIBUTES);
    EXPECT_EQ(GetLastError(), ERROR_BAD_NETPATH);
    EXPECT_FALSE(CreateDirectoryW(folder(WString(256, TEXT('n'))).c_str(), nullptr));
    EXPECT_EQ(GetLastError(), ERROR_FILENAME_EXCED_RANGE);
    EXPECT_EQ(GetFileAttributesW(folder(WString(20000, TEXT('n'))).c_str()), INVALID_FILE_ATTRIBUTES);
    EXPECT_EQ(GetLastError(), ERROR_FILENAME_EXCED_RANGE);
    EXPECT_FALSE(DeleteFileW(TEXT("NUL")));
    EXPECT_FALSE(RemoveDirectoryW(TEXT("C:\\")));
    EXPECT_EQ(GetLastError(), ERROR_ACCESS_DENIED);
}

/// Runs `work` as a user who owns nothing here; true if it gives true there.
template <class Work>
bool AsNobody(Work work)
{
    pid_t const child = fork();
    if (child == 0)
    {
        bool const dropped = geteuid() != 0 || (setgid(65534) == 0 && setuid(65534) == 0);
        _exit(dropped && work() ? 0 : 1);
    }
    int status = 0;
    return child > 0 && waitpid(child, &status, 0) == child && WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

TEST(NativePaths, WithoutRightsAccessIsDenied)
{
    ScratchPaths folder;
    folder.Make("closed/sub/file", "1");
    folder.Make("fixed/file", "1");
    std::filesystem::permissions(folder.Path(), std::filesystem::perms(0755));
    // Closed for everybody, so that the test holds for an ordinary user as well, who owns them.
    ASSERT_EQ(chmod((folder / "closed").c_str(), 0), 0);
    ASSERT_EQ(chmod((folder / "fixed").c_str(), 0555), 0);
    WString const inClosed = folder(TEXT("closed\\sub\\file"));
    WString const closed = folder(TEXT("closed\\*"));
    WString const fixed = folder(TEXT("fixed\\file"));
    WString const fresh = folder(TEXT("fixed\\new"));
    auto const denied = [] { return GetLastError() == ERROR_ACCESS_DENIED; };
    EXPECT_TRUE(AsNobody([&] { return GetFileAttributesW(inClosed.c_str()) == INVALID_FILE_ATTRIBUTES && denied(); }));
    EXPECT_TRUE(AsNobody(
        [&]
        {
            WIN32_FIND_DATAW data;
            return FindFirstFileW(closed.c_str(), &data) == INVALID_HANDLE_VALUE && denied();
        }));
    EXPECT_TRUE(AsNobody([&] { return !DeleteFileW(fixed.c_str()) && denied(); }));
    EXPECT_TRUE(AsNobody([&] { return !CreateDirectoryW(fresh.c_str(), nullptr) && denied(); }));
    EXPECT_TRUE(AsNobody([&] { return !MoveFileW(fixed.c_str(), fresh.c_str()) && denied(); }));
    EXPECT_TRUE(AsNobody([&] { return !CopyFileW(fixed.c_str(), fresh.c_str(), TRUE) && denied(); }));
    EXPECT_TRUE(AsNobody([&] { return !SetCurrentDirectoryW(folder(TEXT("closed")).c_str()) && denied(); }));
    chmod((folder / "closed").c_str(), 0755);
    chmod((folder / "fixed").c_str(), 0755);
}

TEST(NativePaths, FurtherDrivesAreLinksBesideC)
{
    ScratchPaths folder;
    folder.Make("data/placeholder");
    folder.Make("disk/File.txt", "1");
    std::string const before = std::getenv("XDG_DATA_HOME") != nullptr ? std::getenv("XDG_DATA_HOME") : "";
    setenv("XDG_DATA_HOME", (folder.Path().string() + "/data").c_str(), 1);
    EXPECT_EQ(GetFileAttributesW(TEXT("C:\\Windows")), FILE_ATTRIBUTE_DIRECTORY);
    ASSERT_EQ(symlink("../../../disk", (folder.Path().string() + "/data/kvcore/dosdevices/e:").c_str()), 0);
    EXPECT_EQ(GetFileAttributesW(TEXT("e:\\file.TXT")), FILE_ATTRIBUTE_ARCHIVE);
    EXPECT_NE(GetLogicalDrives() & 1u << 4, 0u);
    EXPECT_TRUE(CreateDirectoryW(TEXT("E:\\New"), nullptr));
    EXPECT_TRUE(std::filesystem::is_directory(folder / "disk/New"));
    before.empty() ? unsetenv("XDG_DATA_HOME") : setenv("XDG_DATA_HOME", before.c_str(), 1);
}

#endif

} // namespace
