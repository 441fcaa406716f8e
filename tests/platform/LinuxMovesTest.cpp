#ifndef _WIN32 // Moving, replacing and copying where the kernel or the file system can do less than usual.

// The test's own functions of the kernel calls' names come before those of the C library: the dynamic linker takes the
// first it meets.

#    include <algorithm>
#    include <cerrno>
#    include <deque>
#    include <map>
#    include <string>

#    include <dlfcn.h>
#    include <fcntl.h>
#    include <sys/stat.h>
#    include <unistd.h>

#    include <gtest/gtest.h>

#    include <kvcore/platform/win32.h>
#    include <support/ScopedHandle.h>
#    include <support/ScratchPaths.h>

namespace
{

/// What the next calls of a name give on this thread: 0 lets one through, an errno value makes it fail.
class KernelFaults
{
public:
    explicit KernelFaults(std::map<std::string, std::deque<int>> plan) : failures(std::move(plan))
    {
        active = this;
    }
    ~KernelFaults()
    {
        active = nullptr;
        for (auto const & [name, left] : failures)
        {
            EXPECT_TRUE(left.empty()) << name << " was not called as often as it was to fail";
        }
    }
    KernelFaults(KernelFaults const &) = delete;
    KernelFaults & operator=(KernelFaults const &) = delete;

    static bool Fails(char const * name)
    {
        if (active == nullptr)
        {
            return false;
        }
        std::deque<int> & planned = active->failures[name];
        int const error = planned.empty() ? 0 : planned.front();
        if (!planned.empty())
        {
            planned.pop_front();
        }
        errno = error != 0 ? error : errno;
        return error != 0;
    }

private:
    static thread_local KernelFaults * active;
    std::map<std::string, std::deque<int>> failures;
};
thread_local KernelFaults * KernelFaults::active = nullptr;

template <class Function>
Function Real(char const * name)
{
    return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

} // namespace

#    define KERNEL_CALL extern "C" [[gnu::visibility("default")]]

KERNEL_CALL int rename(char const * from, char const * to) noexcept
{
    return KernelFaults::Fails("rename") ? -1 : Real<int (*)(char const *, char const *)>("rename")(from, to);
}
KERNEL_CALL int
renameat2(int fromDirectory, char const * from, int toDirectory, char const * to, unsigned flags) noexcept
{
    using Function = int (*)(int, char const *, int, char const *, unsigned);
    return KernelFaults::Fails("renameat2") ? -1
                                            : Real<Function>("renameat2")(fromDirectory, from, toDirectory, to, flags);
}
KERNEL_CALL int link(char const * from, char const * to) noexcept
{
    return KernelFaults::Fails("link") ? -1 : Real<int (*)(char const *, char const *)>("link")(from, to);
}
KERNEL_CALL int unlink(char const * name) noexcept
{
    return KernelFaults::Fails("unlink") ? -1 : Real<int (*)(char const *)>("unlink")(name);
}
KERNEL_CALL int mkdir(char const * name, mode_t mode) noexcept
{
    return KernelFaults::Fails("mkdir") ? -1 : Real<int (*)(char const *, mode_t)>("mkdir")(name, mode);
}
KERNEL_CALL int rmdir(char const * name) noexcept
{
    return KernelFaults::Fails("rmdir") ? -1 : Real<int (*)(char const *)>("rmdir")(name);
}
KERNEL_CALL ssize_t write(int file, void const * bytes, size_t count)
{
    return KernelFaults::Fails("write") ? -1
                                        : Real<ssize_t (*)(int, void const *, size_t)>("write")(file, bytes, count);
}
KERNEL_CALL ssize_t
copy_file_range(int from, off64_t * fromPlace, int to, off64_t * toPlace, size_t count, unsigned flags)
{
    // A piece at a time, so that a copy can fail half-way.
    using Function = ssize_t (*)(int, off64_t *, int, off64_t *, size_t, unsigned);
    return KernelFaults::Fails("copy_file_range")
        ? -1
        : Real<Function>("copy_file_range")(from, fromPlace, to, toPlace, std::min(count, size_t{4096}), flags);
}

namespace
{

class LinuxMoves : public testing::Test
{
protected:
    LinuxMoves()
    {
        folder.Make("file", content);
        folder.Make("other", "other");
        folder.Make("directory/inside", "inside");
    }
    DWORD Move(WCHAR const * from, WCHAR const * to, DWORD flags = 0) const
    {
        return LastErrorOf([&] { return MoveFileExW(folder(from).c_str(), folder(to).c_str(), flags); });
    }
    DWORD Copy(WCHAR const * from, WCHAR const * to) const
    {
        return LastErrorOf([&] { return CopyFileW(folder(from).c_str(), folder(to).c_str(), FALSE); });
    }
    DWORD Replace(WCHAR const * replaced, WCHAR const * replacement, WCHAR const * backup) const
    {
        WString const backupPath = backup != nullptr ? folder(backup) : WString();
        return LastErrorOf(
            [&]
            {
                return ReplaceFileW(
                    folder(replaced).c_str(), folder(replacement).c_str(),
                    backup != nullptr ? backupPath.c_str() : nullptr, 0, nullptr, nullptr);
            });
    }
    bool Has(char const * name) const
    {
        return std::filesystem::exists(folder / name);
    }
    std::ptrdiff_t Entries() const
    {
        return std::distance(std::filesystem::directory_iterator(folder.Path()), {});
    }

    ScratchPaths folder;
    std::string const content = std::string(10000, 'c');
};

} // namespace

TEST_F(LinuxMoves, AMoveWithoutTheModernCallTakesNoNameThatIsTaken)
{
    for (int const unknown : {EINVAL, ENOSYS})
    {
        {
            KernelFaults const faults({{"renameat2", {unknown}}});
            EXPECT_EQ(Move(TEXT("file"), TEXT("moved")), 0u);
        }
        EXPECT_EQ(folder.Read("moved"), content);
        EXPECT_FALSE(Has("file"));
        {
            KernelFaults const faults({{"renameat2", {unknown}}});
            EXPECT_EQ(Move(TEXT("directory"), TEXT("directory2")), 0u);
        }
        EXPECT_EQ(folder.Read("directory2/inside"), "inside");
        EXPECT_FALSE(Has("directory"));
        EXPECT_EQ(Move(TEXT("moved"), TEXT("file")), 0u);
        EXPECT_EQ(Move(TEXT("directory2"), TEXT("directory")), 0u);
    }
    EXPECT_EQ(Entries(), 3);
}

TEST_F(LinuxMoves, AMoveWithoutHardLinksEither)
{
    {
        KernelFaults const faults({{"renameat2", {ENOSYS}}, {"link", {EPERM}}});
        EXPECT_EQ(Move(TEXT("file"), TEXT("moved")), 0u);
    }
    EXPECT_EQ(folder.Read("moved"), content);
    EXPECT_FALSE(Has("file"));
    {
        KernelFaults const faults({{"renameat2", {ENOSYS}}, {"link", {EPERM}}, {"rename", {EIO}}});
        EXPECT_NE(Move(TEXT("moved"), TEXT("again")), 0u);
    }
    EXPECT_TRUE(Has("moved"));
    EXPECT_FALSE(Has("again")) << "the placeholder is taken away";
    {
        KernelFaults const faults({{"renameat2", {ENOSYS}}, {"rename", {EIO}}});
        EXPECT_NE(Move(TEXT("directory"), TEXT("again")), 0u);
    }
    EXPECT_TRUE(Has("directory/inside"));
    EXPECT_FALSE(Has("again"));
}

// Somebody takes the name after it was looked up: each way of moving meets that by itself.
TEST_F(LinuxMoves, ANameThatIsTakenMeanwhileStays)
{
    DWORD const exists = ERROR_ALREADY_EXISTS;
    for (std::map<std::string, std::deque<int>> const & plan : {
             std::map<std::string, std::deque<int>>{{"renameat2", {EEXIST}}},
             {{"renameat2", {ENOSYS}}, {"link", {EEXIST}}},
         })
    {
        KernelFaults const faults(plan);
        EXPECT_EQ(Move(TEXT("file"), TEXT("moved")), exists);
    }
    {
        KernelFaults const faults({{"renameat2", {ENOSYS}}, {"mkdir", {EEXIST}}});
        EXPECT_EQ(Move(TEXT("directory"), TEXT("moved")), exists);
    }
    EXPECT_EQ(folder.Read("file"), content);
    EXPECT_EQ(Entries(), 3);
}

TEST_F(LinuxMoves, ToAnotherDeviceFilesAreCopiedIfThatIsAllowed)
{
    timespec const times[] = {{1'000'000'000, 100}, {1'100'000'000, 200}};
    ASSERT_EQ(chmod((folder / "file").c_str(), 0640), 0);
    ASSERT_EQ(utimensat(AT_FDCWD, (folder / "file").c_str(), times, 0), 0);
    {
        KernelFaults const faults({{"renameat2", {EXDEV}}});
        EXPECT_EQ(Move(TEXT("file"), TEXT("moved")), DWORD{ERROR_NOT_SAME_DEVICE});
    }
    {
        KernelFaults const faults({{"renameat2", {EXDEV, 0}}});
        EXPECT_EQ(Move(TEXT("file"), TEXT("moved"), MOVEFILE_COPY_ALLOWED | MOVEFILE_WRITE_THROUGH), 0u);
    }
    EXPECT_EQ(folder.Read("moved"), content);
    EXPECT_FALSE(Has("file"));
    struct stat status;
    ASSERT_EQ(stat((folder / "moved").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777u, 0640u);
    EXPECT_EQ(status.st_mtim.tv_sec, 1'100'000'000);
    EXPECT_EQ(status.st_mtim.tv_nsec, 200);
    {
        KernelFaults const faults({{"rename", {EXDEV, 0}}});
        EXPECT_EQ(Move(TEXT("moved"), TEXT("other"), MOVEFILE_COPY_ALLOWED | MOVEFILE_REPLACE_EXISTING), 0u);
    }
    EXPECT_EQ(folder.Read("other"), content);
    {
        KernelFaults const faults({{"renameat2", {EXDEV}}});
        EXPECT_EQ(Move(TEXT("directory"), TEXT("moved"), MOVEFILE_COPY_ALLOWED), DWORD{ERROR_ACCESS_DENIED})
            << "a directory is not copied";
    }
    std::filesystem::create_symlink("nowhere", folder / "link");
    {
        KernelFaults const faults({{"renameat2", {EXDEV, 0}}});
        EXPECT_EQ(Move(TEXT("link"), TEXT("link2"), MOVEFILE_COPY_ALLOWED), 0u);
    }
    EXPECT_EQ(std::filesystem::read_symlink(folder / "link2"), "nowhere");
    EXPECT_EQ(Entries(), 3) << "nothing is left aside";
}

TEST_F(LinuxMoves, ToAnotherDeviceThatIsFullTheSourceStays)
{
    {
        KernelFaults const faults({{"renameat2", {EXDEV}}, {"copy_file_range", {0, ENOSPC}}});
        EXPECT_EQ(Move(TEXT("file"), TEXT("moved"), MOVEFILE_COPY_ALLOWED), DWORD{ERROR_DISK_FULL});
    }
    {
        KernelFaults const faults({{"rename", {EXDEV}}, {"copy_file_range", {0, ENOSPC}}});
        EXPECT_EQ(
            Move(TEXT("file"), TEXT("other"), MOVEFILE_COPY_ALLOWED | MOVEFILE_REPLACE_EXISTING),
            DWORD{ERROR_DISK_FULL});
    }
    EXPECT_EQ(folder.Read("file"), content);
    EXPECT_EQ(folder.Read("other"), "other");
    EXPECT_EQ(Entries(), 3);
}

TEST_F(LinuxMoves, ACopyThatFillsTheDiskIsTakenAway)
{
    {
        KernelFaults const faults({{"copy_file_range", {0, ENOSPC}}});
        EXPECT_EQ(Copy(TEXT("file"), TEXT("copy")), DWORD{ERROR_DISK_FULL});
    }
    EXPECT_FALSE(Has("copy"));
    {
        KernelFaults const faults({{"copy_file_range", {0, EXDEV}}, {"write", {ENOSPC}}});
        EXPECT_EQ(Copy(TEXT("file"), TEXT("copy")), DWORD{ERROR_DISK_FULL});
    }
    EXPECT_FALSE(Has("copy"));
    EXPECT_EQ(folder.Read("file"), content);
}

TEST_F(LinuxMoves, ACopyGoesThroughMemoryFromWhereTheKernelGaveUp)
{
    for (int const error : {EXDEV, EINVAL, ENOSYS, EOPNOTSUPP})
    {
        KernelFaults const faults({{"copy_file_range", {0, error}}, {"write", {EINTR}}});
        EXPECT_EQ(Copy(TEXT("file"), TEXT("copy")), 0u);
        EXPECT_EQ(folder.Read("copy"), content) << error;
    }
}

TEST_F(LinuxMoves, ReplacingWithoutHardLinksMovesTheOldFileToTheBackup)
{
    {
        KernelFaults const faults({{"link", {EPERM}}});
        EXPECT_EQ(Replace(TEXT("other"), TEXT("file"), TEXT("backup")), 0u);
    }
    EXPECT_EQ(folder.Read("other"), content);
    EXPECT_EQ(folder.Read("backup"), "other");
    EXPECT_EQ(Entries(), 3);
}

TEST_F(LinuxMoves, AReplacingThatFailsLeavesTheOldFileInItsPlace)
{
    {
        KernelFaults const faults({{"link", {EPERM}}, {"rename", {0, EIO, 0}}});
        EXPECT_NE(Replace(TEXT("other"), TEXT("file"), TEXT("backup")), 0u);
    }
    EXPECT_EQ(folder.Read("other"), "other");
    EXPECT_FALSE(Has("backup"));
    {
        KernelFaults const faults({{"link", {EPERM}}, {"rename", {EIO}}});
        EXPECT_EQ(Replace(TEXT("other"), TEXT("file"), TEXT("backup")), DWORD{ERROR_UNABLE_TO_REMOVE_REPLACED});
    }
    {
        KernelFaults const faults({{"rename", {EXDEV}}});
        EXPECT_EQ(Replace(TEXT("other"), TEXT("file"), nullptr), DWORD{ERROR_UNABLE_TO_MOVE_REPLACEMENT});
    }
    EXPECT_EQ(folder.Read("other"), "other");
    EXPECT_EQ(folder.Read("file"), content);
    EXPECT_EQ(Entries(), 3);
}

// What was there when the path was looked up may be gone when the kernel is asked to act on it.
TEST_F(LinuxMoves, WhatVanishesMeanwhileIsMissing)
{
    {
        KernelFaults const faults({{"mkdir", {ENOENT}}});
        EXPECT_EQ(
            LastErrorOf([&] { return CreateDirectoryW(folder(TEXT("new")).c_str(), nullptr); }),
            DWORD{ERROR_PATH_NOT_FOUND});
    }
    {
        KernelFaults const faults({{"mkdir", {EEXIST}}});
        EXPECT_EQ(
            LastErrorOf([&] { return CreateDirectoryW(folder(TEXT("new")).c_str(), nullptr); }),
            DWORD{ERROR_ALREADY_EXISTS});
    }
    {
        KernelFaults const faults({{"rmdir", {ENOENT}}});
        EXPECT_EQ(
            LastErrorOf([&] { return RemoveDirectoryW(folder(TEXT("directory")).c_str()); }),
            DWORD{ERROR_FILE_NOT_FOUND});
    }
    {
        KernelFaults const faults({{"unlink", {ENOENT}}});
        EXPECT_EQ(LastErrorOf([&] { return DeleteFileW(folder(TEXT("file")).c_str()); }), DWORD{ERROR_FILE_NOT_FOUND});
    }
    {
        KernelFaults const faults({{"renameat2", {ENOENT}}});
        EXPECT_EQ(Move(TEXT("file"), TEXT("moved")), DWORD{ERROR_FILE_NOT_FOUND});
    }
    {
        KernelFaults const faults({{"rename", {ENOENT}}});
        EXPECT_EQ(Replace(TEXT("other"), TEXT("file"), nullptr), DWORD{ERROR_FILE_NOT_FOUND});
    }
}

#endif
