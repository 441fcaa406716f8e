#ifndef _WIN32 // What this layer keeps of a file that others normalise, and how it replaces one.

#    include <csignal>
#    include <thread>

#    include <sys/resource.h>
#    include <sys/stat.h>
#    include <sys/wait.h>
#    include <unistd.h>

#    include <kvcore/config/SectionedConfigData.h>
#    include <kvcore/platform/win32.h>
#    include <support/ScratchFolder.h>

#    include <gtest/gtest.h>

namespace
{

bool Set(String const & path, WCHAR const * section, WCHAR const * key, WCHAR const * text)
{
    return WritePrivateProfileStringW(section, key, text, path.c_str()) != FALSE;
}

String TextOf(String const & path, WCHAR const * section, WCHAR const * key)
{
    WCHAR text[100];
    return String(text, GetPrivateProfileStringW(section, key, TEXT("(missing)"), text, 100, path.c_str()));
}

std::size_t EntriesIn(ScratchFolder const & folder)
{
    std::filesystem::directory_iterator const first(folder.Path());
    return static_cast<std::size_t>(std::distance(first, std::filesystem::directory_iterator()));
}

/// Runs in a child process without the superuser's rights, and gives what it gives.
template <class Function>
int AsNobody(Function && function)
{
    pid_t const child = fork();
    if (child == 0)
    {
        bool const dropped = setgid(65534) == 0 && setuid(65534) == 0;
        _exit(dropped || getuid() != 0 ? function() : 255);
    }
    int status = 0;
    waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 254;
}

TEST(LinuxProfiles, LinesThatAreNotConcernedStayToTheByte)
{
    ScratchFolder const folder;
    folder.Write("x.ini", "; top\xFF\n\n  [ A ] ; h\n\n  k  =  v  \n;c\n\n\nbad\xE4=\x80\n\n[b]\nx=1\n\n");
    String const path = folder.Name("x.ini");
    EXPECT_TRUE(Set(path, TEXT("a"), TEXT("K"), TEXT("w")));
    EXPECT_TRUE(Set(path, TEXT("a"), TEXT("n"), TEXT("1")));
    EXPECT_TRUE(Set(path, TEXT("c"), TEXT("m"), TEXT("2")));
    EXPECT_EQ(
        folder.Read("x.ini"), "; top\xFF\n\n  [ A ] ; h\n\nk=w\n;c\n\n\nbad\xE4=\x80\nn=1\n\n[b]\nx=1\n\n[c]\nm=2\n");
}

TEST(LinuxProfiles, TextWithoutAMarkIsUtf8)
{
    ScratchFolder const folder;
    folder.Write("x.ini", "[\xC3\x84]\nk=\xE2\x82\xAC\nbad=a\xFFz\n");
    String const path = folder.Name("x.ini");
    EXPECT_EQ(TextOf(path, TEXT("\xE4"), TEXT("k")), TEXT("\x20AC")); // names of any case, beyond ASCII too
    EXPECT_EQ(TextOf(path, TEXT("\xC4"), TEXT("bad")), TEXT("a\xFFFDz"));
    EXPECT_TRUE(Set(path, TEXT("\xE4"), TEXT("\xD6"), TEXT("\xD83D\xDE00")));
    EXPECT_TRUE(Set(path, TEXT("\xC4"), TEXT("\xF6"), TEXT("2")));
    EXPECT_EQ(folder.Read("x.ini"), "[\xC3\x84]\nk=\xE2\x82\xAC\nbad=a\xFFz\n\xC3\x96=2\n");
}

TEST(LinuxProfiles, SectionsAreGivenWithTheirComments)
{
    ScratchFolder const folder;
    folder.Write("x.ini", "[a]\n ; c = d \nk=v\n");
    WCHAR lines[100];
    DWORD const length = GetPrivateProfileSectionW(TEXT("a"), lines, 100, folder.Name("x.ini").c_str());
    EXPECT_EQ(String(lines, length), String(TEXT("; c = d\0k=v\0"), 12u));
}

TEST(LinuxProfiles, LinesOfASectionAreWrittenAsTheyStand)
{
    ScratchFolder const folder;
    String const path = folder.Name("x.ini");
    EXPECT_TRUE(WritePrivateProfileSectionW(TEXT("a"), TEXT("plain\0 k = v \0"), path.c_str()));
    EXPECT_TRUE(WritePrivateProfileSectionW(TEXT("e"), TEXT("\0"), path.c_str()));
    EXPECT_EQ(folder.Read("x.ini"), "[a]\r\nplain\r\n k = v \r\n[e]\r\n");
    EXPECT_FALSE(WritePrivateProfileSectionW(nullptr, TEXT("k=v\0"), path.c_str()));
}

TEST(LinuxProfiles, CutListsSayThatThereIsMore)
{
    ScratchFolder const folder;
    folder.Write("x.ini", "[abc]\nk=value\n");
    String const path = folder.Name("x.ini");
    WCHAR buffer[5];
    EXPECT_EQ(GetPrivateProfileSectionNamesW(buffer, 4, path.c_str()), 2u);
    EXPECT_EQ(GetLastError(), ERROR_MORE_DATA);
    EXPECT_EQ(GetPrivateProfileSectionW(TEXT("abc"), buffer, 5, path.c_str()), 3u);
    EXPECT_EQ(GetLastError(), ERROR_MORE_DATA);
    EXPECT_EQ(GetPrivateProfileStringW(TEXT("abc"), TEXT("k"), TEXT(""), buffer, 5, path.c_str()), 4u);
    EXPECT_EQ(GetLastError(), ERROR_MORE_DATA);
    for (DWORD const capacity : {0u, 1u})
    {
        EXPECT_EQ(GetPrivateProfileSectionNamesW(buffer, capacity, path.c_str()), 0u);
        EXPECT_EQ(GetPrivateProfileSectionW(TEXT("abc"), buffer, capacity, path.c_str()), 0u);
    }
}

TEST(LinuxProfiles, RightsAndLinksStay)
{
    ScratchFolder const folder;
    folder.Write("x.ini", "[a]\nk=v\n");
    ASSERT_EQ(chmod((folder / "x.ini").c_str(), 0640), 0);
    ASSERT_EQ(symlink("x.ini", (folder / "link.ini").c_str()), 0);
    EXPECT_TRUE(Set(folder.Name("link.ini"), TEXT("a"), TEXT("k"), TEXT("w")));
    EXPECT_TRUE(std::filesystem::is_symlink(folder / "link.ini"));
    EXPECT_EQ(folder.Read("x.ini"), "[a]\nk=w\n");
    struct stat status;
    ASSERT_EQ(stat((folder / "x.ini").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777u, 0640u);
    EXPECT_EQ(EntriesIn(folder), 2u);
}

TEST(LinuxProfiles, HardLinksStayOneFile)
{
    ScratchFolder const folder;
    folder.Write("x.ini", "[a]\nk=a longer value\n");
    ASSERT_EQ(link((folder / "x.ini").c_str(), (folder / "y.ini").c_str()), 0);
    EXPECT_TRUE(Set(folder.Name("x.ini"), TEXT("a"), TEXT("k"), TEXT("w")));
    EXPECT_EQ(folder.Read("y.ini"), "[a]\nk=w\n");
}

TEST(LinuxProfiles, WritingNothingNewDoesNotTouchTheFile)
{
    ScratchFolder const folder;
    folder.Write("x.ini", "[a]\nk=v\n");
    struct stat before;
    struct stat after;
    ASSERT_EQ(stat((folder / "x.ini").c_str(), &before), 0);
    EXPECT_TRUE(Set(folder.Name("x.ini"), TEXT("a"), TEXT("k"), TEXT("v")));
    EXPECT_TRUE(Set(folder.Name("x.ini"), TEXT("a"), TEXT("none"), nullptr));
    EXPECT_TRUE(WritePrivateProfileSectionW(TEXT("a"), TEXT("k=v\0"), folder.Name("x.ini").c_str()));
    ASSERT_EQ(stat((folder / "x.ini").c_str(), &after), 0);
    EXPECT_EQ(before.st_ino, after.st_ino);
    EXPECT_TRUE(Set(folder.Name("none.ini"), TEXT("a"), TEXT("k"), nullptr));
    EXPECT_FALSE(std::filesystem::exists(folder / "none.ini"));
}

TEST(LinuxProfiles, ReadOnlyFilesAreRefused)
{
    ScratchFolder const folder;
    folder.Write("x.ini", "[a]\nk=v\n");
    ASSERT_EQ(chmod(folder.Path().c_str(), 0777), 0);
    ASSERT_EQ(chmod((folder / "x.ini").c_str(), 0444), 0);
    String const path = folder.Name("x.ini");
    EXPECT_EQ(
        AsNobody([&] { return Set(path, TEXT("a"), TEXT("k"), TEXT("w")) ? 0 : static_cast<int>(GetLastError()); }),
        static_cast<int>(ERROR_ACCESS_DENIED));
    EXPECT_EQ(folder.Read("x.ini"), "[a]\nk=v\n");
}

TEST(LinuxProfiles, FilesInADirectoryThatTakesNoNewOnesAreWrittenInPlace)
{
    ScratchFolder const folder;
    folder.Write("sub/x.ini", "[a]\nk=a longer value\n");
    ASSERT_EQ(chmod(folder.Path().c_str(), 0755), 0);
    ASSERT_EQ(chmod((folder / "sub").c_str(), 0555), 0);
    ASSERT_EQ(chmod((folder / "sub/x.ini").c_str(), 0666), 0);
    String const path = folder.Name("sub\\x.ini");
    EXPECT_EQ(AsNobody([&] { return Set(path, TEXT("a"), TEXT("k"), TEXT("w")) ? 0 : 1; }), 0);
    EXPECT_EQ(folder.Read("sub/x.ini"), "[a]\nk=w\n");
    ASSERT_EQ(chmod((folder / "sub").c_str(), 0755), 0);
}

/// Writes with a limit on the size of files, which the kernel reports as it does a full disk, only by another name.
TEST(LinuxProfiles, AWriteThatFailsLeavesTheFileAsItWas)
{
    ScratchFolder const folder;
    folder.Write("x.ini", "[a]\nk=v\n");
    String const path = folder.Name("x.ini");
    String const fresh = folder.Name("fresh.ini");
    pid_t const child = fork();
    if (child == 0)
    {
        rlimit const limit = {4096, 4096};
        signal(SIGXFSZ, SIG_IGN);
        setrlimit(RLIMIT_FSIZE, &limit);
        String const large = String::FromChar('x', 10000);
        bool const refused = !Set(path, TEXT("a"), TEXT("k"), large.c_str()) &&
            GetLastError() == ERROR_FILE_TOO_LARGE && !Set(fresh, TEXT("a"), TEXT("k"), large.c_str());
        _exit(refused && TextOf(path, TEXT("a"), TEXT("k")) == TEXT("v") ? 0 : static_cast<int>(GetLastError()) + 1);
    }
    int status = 0;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(folder.Read("x.ini"), "[a]\nk=v\n");
    EXPECT_EQ(EntriesIn(folder), 1u);
}

/// The process's exit code for a store that could not be written: 0 if it says so as it should.
int WritesAndFails(SectionedConfigData const & data, String const & path, DWORD error)
{
    try
    {
        data.WriteWindowsProfile(path);
        return 1;
    }
    catch (SectionedConfigData::Exception const & exception)
    {
        return exception.kind != 0 ? 2 : exception.text != String::FromError(error) ? 3 : 0;
    }
}

TEST(LinuxProfiles, AStoreThatDoesNotFitTheDiskLeavesItsFirstSectionsThere)
{
    ScratchFolder const folder;
    String const path = folder.Name("x.ini");
    SectionedConfigData data;
    data.SetString(TEXT("a"), TEXT("k"), TEXT("v"));
    data.SetString(TEXT("b"), TEXT("k"), String::FromChar('x', 10000));
    data.SetString(TEXT("c"), TEXT("k"), TEXT("v"));
    pid_t const child = fork();
    if (child == 0)
    {
        rlimit const limit = {4096, 4096};
        signal(SIGXFSZ, SIG_IGN);
        setrlimit(RLIMIT_FSIZE, &limit);
        _exit(WritesAndFails(data, path, ERROR_FILE_TOO_LARGE));
    }
    int status = -1;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(folder.Read("x.ini"), "[a]\r\nk=v\r\n\r\n");
    EXPECT_EQ(EntriesIn(folder), 1u);
}

TEST(LinuxProfiles, AStoreIsNotWrittenToAReadOnlyFile)
{
    ScratchFolder const folder;
    folder.Write("x.ini", "[a]\nk=v\n");
    ASSERT_EQ(chmod(folder.Path().c_str(), 0777), 0);
    ASSERT_EQ(chmod((folder / "x.ini").c_str(), 0444), 0);
    String const path = folder.Name("x.ini");
    SectionedConfigData data;
    data.SetString(TEXT("a"), TEXT("k"), TEXT("w"));
    EXPECT_EQ(AsNobody([&] { return WritesAndFails(data, path, ERROR_ACCESS_DENIED); }), 0);
    data.SetHeader(TEXT("header"));
    EXPECT_EQ(AsNobody([&] { return WritesAndFails(data, path, ERROR_ACCESS_DENIED); }), 0);
    EXPECT_EQ(folder.Read("x.ini"), "[a]\nk=v\n");
}

TEST(LinuxProfiles, PipesAreNotWaitedFor)
{
    ScratchFolder const folder;
    ASSERT_EQ(mkfifo((folder / "pipe").c_str(), 0600), 0);
    EXPECT_EQ(TextOf(folder.Name("pipe"), TEXT("a"), TEXT("k")), TEXT("(missing)"));
    EXPECT_EQ(GetLastError(), ERROR_ACCESS_DENIED);
    EXPECT_FALSE(Set(folder.Name("pipe"), TEXT("a"), TEXT("k"), TEXT("v")));
}

String KeyOf(int writer, int number)
{
    String key;
    key << TEXT("k") << writer << TEXT("-") << number;
    return key;
}

TEST(LinuxProfiles, WritersInSeveralProcessesAndThreadsLoseNothing)
{
    constexpr int writers = 4;
    constexpr int keys = 50;
    ScratchFolder const folder;
    String const path = folder.Name("x.ini");
    auto const write = [&path](int writer)
    {
        bool done = true;
        for (int i = 0; i < keys; i++)
        {
            String const key = KeyOf(writer, i);
            done = Set(path, TEXT("a"), key.c_str(), TEXT("1")) && done;
        }
        return done;
    };
    std::vector<pid_t> children;
    for (int i = 0; i < writers; i++)
    {
        children.push_back(fork());
        if (children.back() == 0)
        {
            _exit(write(i) ? 0 : 1);
        }
    }
    std::thread thread([&] { EXPECT_TRUE(write(writers)); });
    EXPECT_TRUE(write(writers + 1));
    thread.join();
    for (pid_t const child : children)
    {
        int status = -1;
        waitpid(child, &status, 0);
        EXPECT_EQ(status, 0);
    }
    for (int writer = 0; writer < writers + 2; writer++)
    {
        for (int i = 0; i < keys; i++)
        {
            String const key = KeyOf(writer, i);
            EXPECT_EQ(TextOf(path, TEXT("a"), key.c_str()), TEXT("1")) << writer << ' ' << i;
        }
    }
    EXPECT_EQ(EntriesIn(folder), 1u);
}

} // namespace

#endif
