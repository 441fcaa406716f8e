// A process that is killed at each system call of a save leaves the old file or the new one. Watching another process's
// system calls is the business of each system; elsewhere the same code is called and the platform's promise stands.
#ifndef _WIN32

#    include <csignal>
#    include <filesystem>
#    include <string>

#    include <gtest/gtest.h>

#    include <kvcore/tools/support/SafeFile.h>
#    include <support/ScratchFolder.h>

#    include <fcntl.h>
#    include <sys/ptrace.h>
#    include <sys/syscall.h>
#    include <sys/user.h>
#    include <sys/wait.h>
#    include <unistd.h>

namespace
{

[[noreturn]] void SaveAsChild(std::filesystem::path const & target, std::string const & bytes)
{
    if (ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) != 0)
    {
        _exit(2); // a system that lets nobody be watched
    }
    raise(SIGSTOP);
    try
    {
        kv::tools::SafeFile file(target);
        file.Stream().Write(bytes.data(), static_cast<int>(bytes.size()));
        file.Commit();
        _exit(0);
    }
    catch (...)
    {
        _exit(1);
    }
}

enum class End
{
    Killed,
    Saved,
    Failed
};

/// Whether the file system has files without a name, or is made to look as if it had none.
enum class UnnamedFiles
{
    AsItIs,
    Refused
};

/// At the entry of a system call: one that would open a file without a name becomes one that does not exist.
void RefuseUnnamedFile(pid_t child)
{
    user_regs_struct registers{};
    ptrace(PTRACE_GETREGS, child, nullptr, &registers);
    bool const opens = registers.orig_rax == SYS_openat || registers.orig_rax == SYS_open;
    auto const flags = registers.orig_rax == SYS_openat ? registers.rdx : registers.rsi;
    if (opens && (flags & O_TMPFILE) == O_TMPFILE)
    {
        registers.orig_rax = ~0ull;
        ptrace(PTRACE_SETREGS, child, nullptr, &registers);
    }
}

/// Saves in a process of its own and kills that where it enters or leaves its system call number `stops`.
End SaveKilledAt(int stops, std::filesystem::path const & target, std::string const & bytes, UnnamedFiles unnamedFiles)
{
    pid_t const child = fork();
    if (child == 0)
    {
        SaveAsChild(target, bytes);
    }
    int status = 0;
    if (waitpid(child, &status, 0) != child || !WIFSTOPPED(status))
    {
        return End::Failed;
    }
    ptrace(PTRACE_SETOPTIONS, child, nullptr, PTRACE_O_TRACESYSGOOD | PTRACE_O_EXITKILL);
    for (int i = 0; i < stops; ++i)
    {
        ptrace(PTRACE_SYSCALL, child, nullptr, nullptr);
        if (waitpid(child, &status, 0) != child || !WIFSTOPPED(status))
        {
            return WIFEXITED(status) && WEXITSTATUS(status) == 0 ? End::Saved : End::Failed;
        }
        if (i % 2 == 0 && unnamedFiles == UnnamedFiles::Refused)
        {
            RefuseUnnamedFile(child);
        }
    }
    kill(child, SIGKILL);
    return waitpid(child, &status, 0) == child && WIFSIGNALED(status) ? End::Killed : End::Failed;
}

/// Nothing but the target and a file under the name of a save that did not come to its end.
void ExpectNoOtherNames(ScratchFolder const & folder)
{
    for (auto const & entry : std::filesystem::directory_iterator(folder.Path()))
    {
        std::string const name = entry.path().filename().string();
        EXPECT_TRUE(name == "target" || kv::tools::SafeFile::IsTemporaryName(name)) << name;
    }
}

/// The save that comes next removes what the killed one has left.
void ExpectNextSaveCleansUp(ScratchFolder const & folder)
{
    {
        kv::tools::SafeFile file(folder / "target");
        file.Stream().Write("next", 4);
        file.Commit();
    }
    EXPECT_EQ(folder.Read("target"), "next");
    for (auto const & entry : std::filesystem::directory_iterator(folder.Path()))
    {
        EXPECT_EQ(entry.path().filename(), "target");
    }
}

} // namespace

class KilledSave : public testing::TestWithParam<UnnamedFiles>
{
};

INSTANTIATE_TEST_SUITE_P(
    Systems, KilledSave, testing::Values(UnnamedFiles::AsItIs, UnnamedFiles::Refused),
    [](auto const & system) { return system.index == 0 ? "AsItIs" : "WithoutUnnamedFiles"; });

TEST_P(KilledSave, LeavesTheOldFileOrTheNewOne)
{
    std::string const before(10'000, 'o');
    std::string const after(20'000, 'n');
    int oldOnes = 0;
    int newOnes = 0;
    for (int stops = 1;; ++stops)
    {
        ScratchFolder const folder;
        folder.Write("target", before);
        End const end = SaveKilledAt(stops, folder / "target", after, GetParam());
        ASSERT_NE(end, End::Failed) << "at stop " << stops;
        std::string const content = folder.Read("target");
        ASSERT_TRUE(content == before || content == after) << "a mix, at stop " << stops;
        ExpectNoOtherNames(folder);
        ExpectNextSaveCleansUp(folder);
        ++(content == before ? oldOnes : newOnes);
        if (end == End::Saved)
        {
            EXPECT_EQ(content, after);
            break;
        }
        ASSERT_LT(stops, 5'000) << "a save has an end";
    }
    EXPECT_GT(oldOnes, 20) << "the bytes go to the disk before the name changes hands";
    EXPECT_GT(newOnes, 1) << "what comes behind the change of names cannot undo it";
}

TEST_P(KilledSave, OfANewFileLeavesNothingOrAllOfIt)
{
    std::string const bytes(20'000, 'n');
    for (int stops = 1;; ++stops)
    {
        ScratchFolder const folder;
        End const end = SaveKilledAt(stops, folder / "target", bytes, GetParam());
        ASSERT_NE(end, End::Failed) << "at stop " << stops;
        bool const there = std::filesystem::exists(folder / "target");
        ASSERT_TRUE(!there || folder.Read("target") == bytes) << "a part, at stop " << stops;
        ExpectNoOtherNames(folder);
        ExpectNextSaveCleansUp(folder);
        if (end == End::Saved)
        {
            EXPECT_TRUE(there);
            break;
        }
        ASSERT_LT(stops, 5'000) << "a save has an end";
    }
}

#endif
