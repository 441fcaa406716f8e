// A recursive deletion stays in its tree, whenever a folder of it is swapped for a link. Another process stops the
// deletion at each of its system calls and swaps then; that is the business of each system, and where a folder is held
// by a handle it cannot be swapped at all.
#ifndef _WIN32

#    include <csignal>
#    include <filesystem>
#    include <string>

#    include <gtest/gtest.h>

#    include <kvcore/files/File.h>
#    include <support/ScratchFolder.h>

#    include <sys/ptrace.h>
#    include <sys/wait.h>
#    include <unistd.h>

namespace fs = std::filesystem;

namespace
{

constexpr char const * names[] = {"a.txt", "b.txt", "c.bin", "sub/b.txt", "sub/deep/c.bin", "deep/c.bin"};

/// A tree to be deleted, and one that has all of its names and is to stay.
struct Trees
{
    Trees()
    {
        for (char const * const name : {"a.txt", "sub/b.txt", "sub/deep/c.bin", "sub/deep/d.bin"})
        {
            place.Write(fs::path("root") / name, "1");
        }
        for (char const * const name : names)
        {
            outside.Write(name, "kept");
        }
    }

    ScratchFolder const place;
    ScratchFolder const outside;
};

[[noreturn]] void DeleteAsChild(String const & root)
{
    if (ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) != 0)
    {
        _exit(2); // a system that lets nobody be watched
    }
    raise(SIGSTOP);
    File::DeleteFilesRecursive(root, TEXT("*.*"), true, false);
    _exit(0);
}

/// Deletes in a process of its own and swaps a folder where that enters or leaves its system call number `stops`. False
/// if the process has ended before.
bool DeleteSwappedAt(int stops, Trees const & trees, char const * swapped)
{
    String const root = trees.place.Name("root");
    pid_t const child = fork();
    if (child == 0)
    {
        DeleteAsChild(root);
    }
    int status = 0;
    EXPECT_TRUE(waitpid(child, &status, 0) == child && WIFSTOPPED(status));
    ptrace(PTRACE_SETOPTIONS, child, nullptr, PTRACE_O_TRACESYSGOOD | PTRACE_O_EXITKILL);
    for (int i = 0; i < stops; ++i)
    {
        ptrace(PTRACE_SYSCALL, child, nullptr, nullptr);
        if (waitpid(child, &status, 0) != child || !WIFSTOPPED(status))
        {
            EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
            return false;
        }
    }
    std::error_code error;
    fs::rename(trees.place / "root" / swapped, trees.place / "before", error);
    if (!error)
    {
        fs::create_directory_symlink(trees.outside.Path(), trees.place / "root" / swapped);
    }
    ptrace(PTRACE_DETACH, child, nullptr, nullptr);
    EXPECT_EQ(waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "at stop " << stops;
    return true;
}

} // namespace

TEST(SwappedFolder, IsNotWhereARecursiveDeletionGoes)
{
    for (char const * const swapped : {"sub", "sub/deep"})
    {
        int stops = 0;
        bool goesOn = true;
        for (; goesOn; ++stops)
        {
            Trees const trees;
            goesOn = DeleteSwappedAt(stops, trees, swapped);
            for (char const * const name : names)
            {
                ASSERT_TRUE(fs::exists(trees.outside / name)) << name << " at stop " << stops << " of " << swapped;
            }
            ASSERT_LT(stops, 5'000) << "a deletion has an end";
        }
        EXPECT_GT(stops, 30) << "each file takes its calls";
    }
}

#endif
