#ifndef _WIN32 // Who may read a file that is on its way to its name, and what a killed process leaves of it.

#    include <algorithm>
#    include <csignal>
#    include <cstdlib>
#    include <filesystem>
#    include <string>
#    include <vector>

#    include <fcntl.h>
#    include <sys/file.h>
#    include <sys/ptrace.h>
#    include <sys/stat.h>
#    include <sys/syscall.h>
#    include <sys/wait.h>
#    include <unistd.h>

#    include <kvcore/files/File.h>
#    include <kvcore/platform/PrivateFiles.h>
#    include <kvcore/platform/linux/directories/FileMoves.h>
#    include <support/ScopedHandle.h>
#    include <support/ScratchPaths.h>

#    include <gtest/gtest.h>

using namespace kv::platform;

namespace
{

/// The mask for new files, for the length of a scope.
class Mask
{
public:
    explicit Mask(mode_t mask) : before(umask(mask)) {}
    Mask(Mask const &) = delete;
    Mask & operator=(Mask const &) = delete;
    ~Mask()
    {
        umask(before);
    }

private:
    mode_t const before;
};

unsigned ModeOf(std::filesystem::path const & path)
{
    struct stat status;
    return stat(path.c_str(), &status) == 0 ? status.st_mode & 07777u : 0;
}

std::vector<std::string> Names(ScratchPaths const & folder)
{
    std::vector<std::string> names;
    for (auto const & entry : std::filesystem::directory_iterator(folder.Path()))
    {
        names.push_back(entry.path().filename());
    }
    std::sort(names.begin(), names.end());
    return names;
}

/// Runs `step` in another process, and kills that when it enters its system call `fatal`; -1 for none. Gives the
/// numbers of the calls, the last one entered included.
template <class Step>
std::vector<long> TraceUntil(long fatal, Step step)
{
    pid_t const child = fork();
    if (child == 0)
    {
        bool const traced = ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) == 0;
        raise(SIGSTOP);
        _exit(traced && step() ? 0 : 1);
    }
    std::vector<long> calls;
    int status = 0;
    waitpid(child, &status, 0);
    ptrace(PTRACE_SETOPTIONS, child, nullptr, PTRACE_O_TRACESYSGOOD | PTRACE_O_EXITKILL);
    while (ptrace(PTRACE_SYSCALL, child, nullptr, nullptr) == 0 && waitpid(child, &status, 0) == child &&
           WIFSTOPPED(status))
    {
        __ptrace_syscall_info info = {};
        ptrace(PTRACE_GET_SYSCALL_INFO, child, sizeof info, &info);
        if (info.op != PTRACE_SYSCALL_INFO_ENTRY)
        {
            continue;
        }
        calls.push_back(static_cast<long>(info.entry.nr));
        if (calls.back() == fatal)
        {
            kill(child, SIGKILL);
            waitpid(child, &status, 0);
            break;
        }
    }
    return calls;
}

bool IsRename(long call)
{
    return call == SYS_rename || call == SYS_renameat || call == SYS_renameat2;
}

BOOL SetKey(WString const & file)
{
    return WritePrivateProfileStringW(TEXT("section"), TEXT("key"), TEXT("value"), file.c_str());
}

} // namespace

TEST(LinuxTemporaryFiles, AreTheirOwnersAloneWhateverTheMaskAllows)
{
    Mask const all(0);
    ScratchPaths const folder;
    String const made = File::GetTempFilePath(folder.Root());
    EXPECT_EQ(ModeOf(folder / File::GetBasename(made, String()).Utf8()), 0600u);
    ScopedHandle const file(
        folder(TEXT("own")), GENERIC_WRITE, shareAll, CREATE_NEW, FILE_ATTRIBUTE_TEMPORARY | FILE_FLAG_SEQUENTIAL_SCAN);
    EXPECT_TRUE(file.IsOpen());
    EXPECT_EQ(ModeOf(folder / "own"), 0600u);
    ScopedHandle const usual(folder(TEXT("usual")), GENERIC_WRITE, shareAll, CREATE_NEW, FILE_ATTRIBUTE_NORMAL);
    EXPECT_EQ(ModeOf(folder / "usual"), 0666u);
}

TEST(LinuxTemporaryFiles, GetTheRightsOfNewFilesByTheMask)
{
    ScratchPaths const folder;
    for (mode_t const mask : {0u, 022u, 027u, 0777u})
    {
        WString const path = folder.Make("file", "1");
        Mask const set(mask);
        EXPECT_TRUE(GiveUsualRights(path));
        EXPECT_EQ(ModeOf(folder / "file"), 0666u & ~mask);
        std::filesystem::remove(folder / "file");
    }
    EXPECT_FALSE(GiveUsualRights(folder(TEXT("missing"))));
    EXPECT_EQ(GetLastError(), DWORD{ERROR_FILE_NOT_FOUND});
}

TEST(LinuxTemporaryFiles, LieInTheUsersOwnFolderUnlessTheEnvironmentSaysOtherwise)
{
    char const * const setting = std::getenv("TMPDIR");
    std::string const before = setting != nullptr ? setting : "";
    unsetenv("TMPDIR");
    WCHAR path[MAX_PATH];
    ASSERT_NE(GetTempPathW(MAX_PATH, path), 0u);
    WString local(MAX_PATH, 0);
    ASSERT_TRUE(SHGetSpecialFolderPathW(nullptr, local.data(), CSIDL_LOCAL_APPDATA, TRUE));
    EXPECT_EQ(WString(path), WString(local.c_str()) + TEXT("\\Temp\\"));
    String const made = File::GetTempFilePath(String());
    EXPECT_EQ(File::GetDirname(made) + TEXT("\\"), WString(path));
    EXPECT_TRUE(DeleteFileW(made.c_str()));

    setenv("TMPDIR", "/some/where", 1);
    ASSERT_NE(GetTempPathW(MAX_PATH, path), 0u);
    EXPECT_EQ(WString(path), TEXT("Z:\\some\\where\\"));
    setenv("TMPDIR", "relative", 1);
    ASSERT_NE(GetTempPathW(MAX_PATH, path), 0u);
    EXPECT_EQ(WString(path), WString(local.c_str()) + TEXT("\\Temp\\"));
    before.empty() ? unsetenv("TMPDIR") : setenv("TMPDIR", before.c_str(), 1);
}

TEST(LinuxTemporaryFiles, ProfilesAreOnTheDiskBeforeTheyHaveTheirName)
{
    ScratchPaths const folder;
    WString const file = folder.Make("x.ini", "[section]\nkey=old\n");
    std::vector<long> const calls = TraceUntil(-1, [&] { return SetKey(file); });
    auto const rename = std::find_if(calls.begin(), calls.end(), IsRename);
    ASSERT_NE(rename, calls.end());
    auto const lastWrite =
        std::find(std::make_reverse_iterator(rename), calls.rend(), SYS_pwrite64).base(); // behind it
    EXPECT_NE(std::find(lastWrite, rename, SYS_fsync), rename);
    EXPECT_EQ(folder.Read("x.ini"), "[section]\nkey=value\n");
}

TEST(LinuxTemporaryFiles, TheNextWriteRemovesWhatAKilledOneLeft)
{
    ScratchPaths const folder;
    WString const file = folder.Make("x.ini", "[section]\nkey=old\n");
    for (long const fatal : {long{SYS_fchmod}, long{SYS_fsync}, long{SYS_rename}})
    {
        TraceUntil(fatal, [&] { return SetKey(file); });
        EXPECT_EQ(Names(folder).size(), 2u) << "the temporary file is left";
        EXPECT_EQ(folder.Read("x.ini"), "[section]\nkey=old\n");
        for (std::string const & name : Names(folder))
        {
            EXPECT_TRUE(name == "x.ini" || (ModeOf(folder / name) & 077 & ~ModeOf(folder / "x.ini")) == 0) << name;
        }
    }
    EXPECT_EQ(Names(folder).size(), 2u) << "those before were removed";
    EXPECT_TRUE(SetKey(file));
    EXPECT_EQ(Names(folder), std::vector<std::string>{"x.ini"});
}

TEST(LinuxTemporaryFiles, AreLeftAloneWhileSomebodyHoldsThem)
{
    ScratchPaths const folder;
    std::string const target = folder / "target";
    char first[PATH_MAX];
    char second[PATH_MAX];
    int held = -1;
    int other = -1;
    ASSERT_EQ(CreateBeside(target.c_str(), first, held), 0);
    EXPECT_EQ(ModeOf(first), 0600u);
    ASSERT_EQ(CreateBeside(target.c_str(), second, other), 0);
    EXPECT_STRNE(first, second);
    close(other);
    close(held);
    // Both are left over now. A link, too, counts as such, and what it leads to does not.
    std::filesystem::remove(first);
    folder.Make("elsewhere", "1");
    std::filesystem::create_symlink(folder / "elsewhere", first);
    char third[PATH_MAX];
    ASSERT_EQ(CreateBeside(target.c_str(), third, held), 0);
    EXPECT_STREQ(first, third);
    EXPECT_EQ(folder.Read("elsewhere"), "1");
    close(held);
}

TEST(LinuxTemporaryFiles, ANameThatNobodyCanFreeIsPassedOver)
{
    ScratchPaths const folder;
    std::string const target = folder / "target";
    std::vector<std::string> taken;
    for (int i = 0; i < 12; ++i)
    {
        char name[PATH_MAX];
        int descriptor = -1;
        ASSERT_EQ(CreateBeside(target.c_str(), name, descriptor), 0) << i;
        close(descriptor);
        std::filesystem::remove(name);
        std::filesystem::create_directory(name);
        EXPECT_EQ(std::count(taken.begin(), taken.end(), name), 0);
        taken.emplace_back(name);
    }
}

TEST(LinuxTemporaryFiles, BackupsLeaveNoFurtherName)
{
    ScratchPaths const folder;
    folder.Make("to", "old");
    folder.Make("from", "new");
    std::filesystem::create_hard_link(folder / "to", folder / "backup");
    EXPECT_TRUE(ReplaceFileW(
        folder(TEXT("to")).c_str(), folder(TEXT("from")).c_str(), folder(TEXT("backup")).c_str(), 0, nullptr, nullptr));
    EXPECT_EQ(Names(folder), (std::vector<std::string>{"backup", "to"}));
    EXPECT_EQ(folder.Read("backup"), "old");
}

#endif
