#ifndef _WIN32 // What this layer makes of the kernel's own refusals, and where Wine, as no oracle, leaves them out.

#    include <atomic>
#    include <cstdint>
#    include <functional>
#    include <thread>

#    include <fcntl.h>
#    include <sys/mman.h>
#    include <sys/socket.h>
#    include <sys/stat.h>
#    include <sys/un.h>
#    include <sys/wait.h>
#    include <unistd.h>

#    include <kvcore/platform/linux/files/OpenFiles.h>
#    include <support/ScopedHandle.h>
#    include <support/ScratchFolder.h>

#    include <gtest/gtest.h>

namespace
{

constexpr unsigned nobody = 65534;

class LinuxFiles : public testing::Test
{
protected:
    LinuxFiles()
    {
        folder.Write("file", "hello world");
    }
    WString Path(std::string const & name) const
    {
        return Win32Path(folder / name);
    }
    ScopedHandle
    Open(std::string const & name, DWORD access, DWORD share = shareAll, DWORD disposition = OPEN_EXISTING) const
    {
        return ScopedHandle(Path(name), access, share, disposition);
    }
    DWORD ErrorOfOpening(std::string const & name, DWORD access, DWORD disposition = OPEN_EXISTING) const
    {
        ScopedHandle const file = Open(name, access, shareAll, disposition);
        return file.IsOpen() ? 0 : file.Error();
    }

    ScratchFolder folder;
    DWORD done = 0;
};

/// Runs a step in another process and gives its result.
int InChild(std::function<DWORD()> const & step)
{
    pid_t const child = fork();
    if (child == 0)
    {
        _exit(static_cast<int>(step()));
    }
    int status = 0;
    return child > 0 && waitpid(child, &status, 0) == child && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

LARGE_INTEGER Large(std::int64_t value)
{
    LARGE_INTEGER large;
    large.QuadPart = value;
    return large;
}

// The kernel refuses positions behind the largest file that the file system holds.
TEST_F(LinuxFiles, PositionsBehindTheLargestFileArePositions)
{
    ScopedHandle const file = Open("file", readWrite);
    char bytes[4] = {'x', 'x', 'x', 'x'};
    for (std::int64_t const place : {INT64_MAX, INT64_MAX - 4095, std::int64_t{1} << 62, std::int64_t{1} << 44})
    {
        SCOPED_TRACE(place);
        LARGE_INTEGER position;
        ASSERT_TRUE(SetFilePointerEx(file, Large(place), &position, FILE_BEGIN));
        EXPECT_EQ(position.QuadPart, place);
        ASSERT_TRUE(SetFilePointerEx(file, Large(-5), &position, FILE_CURRENT));
        EXPECT_EQ(position.QuadPart, place - 5);
        ASSERT_TRUE(SetFilePointerEx(file, Large(5), &position, FILE_CURRENT));
        LONG high = 0;
        EXPECT_EQ(SetFilePointer(file, 0, &high, FILE_CURRENT), static_cast<DWORD>(place));
        EXPECT_EQ(high, static_cast<LONG>(place >> 32));
        EXPECT_TRUE(ReadFile(file, bytes, 4, &done, nullptr));
        EXPECT_EQ(done, 0u) << "it is behind the end";
        EXPECT_TRUE(SetFilePointerEx(file, Large(0), &position, FILE_CURRENT));
        EXPECT_EQ(position.QuadPart, place);
        OVERLAPPED there = {};
        there.Offset = static_cast<DWORD>(place);
        there.OffsetHigh = static_cast<DWORD>(place >> 32);
        EXPECT_EQ(LastErrorOf([&] { return ReadFile(file, bytes, 4, &done, &there); }), DWORD{ERROR_HANDLE_EOF});
        EXPECT_TRUE(SetFilePointerEx(file, Large(0), &position, FILE_CURRENT));
        EXPECT_EQ(position.QuadPart, place) << "a read at a place leaves the position there";
    }
    ASSERT_TRUE(SetFilePointerEx(file, Large(INT64_MAX), nullptr, FILE_BEGIN));
    EXPECT_EQ(
        LastErrorOf([&] { return SetFilePointerEx(file, Large(1), nullptr, FILE_CURRENT); }),
        DWORD{ERROR_NEGATIVE_SEEK});
    EXPECT_EQ(LastErrorOf([&] { return WriteFile(file, bytes, 4, &done, nullptr); }), DWORD{ERROR_FILE_TOO_LARGE});
    EXPECT_TRUE(WriteFile(file, bytes, 0, &done, nullptr));
    EXPECT_EQ(LastErrorOf([&] { return SetEndOfFile(file); }), DWORD{ERROR_FILE_TOO_LARGE});
    LARGE_INTEGER position;
    ASSERT_TRUE(SetFilePointerEx(file, Large(-11), &position, FILE_END));
    EXPECT_EQ(position.QuadPart, 0);
    ASSERT_TRUE(ReadFile(file, bytes, 4, &done, nullptr));
    EXPECT_EQ(std::string(bytes, done), "hell") << "and there are positions before again";
    EXPECT_EQ(folder.Read("file"), "hello world");

    ScopedHandle const appending = Open("file", FILE_APPEND_DATA);
    ASSERT_TRUE(SetFilePointerEx(appending, Large(INT64_MAX), nullptr, FILE_BEGIN));
    EXPECT_TRUE(WriteFile(appending, "!", 1, &done, nullptr)) << "who appends is not where the position is";
    EXPECT_EQ(folder.Read("file"), "hello world!");
}

TEST_F(LinuxFiles, OpeningAPipeOrASocketWaitsForNobody)
{
    ASSERT_EQ(mkfifo((folder / "pipe").c_str(), 0600), 0);
    int const server = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    std::string const name = folder / "socket";
    ASSERT_LT(name.size(), sizeof address.sun_path);
    std::copy(name.begin(), name.end(), address.sun_path);
    ASSERT_EQ(bind(server, reinterpret_cast<sockaddr *>(&address), sizeof address), 0);
    for (DWORD const access : {DWORD{0}, DWORD{GENERIC_READ}, DWORD{GENERIC_WRITE}, readWrite, DWORD{FILE_APPEND_DATA}})
    {
        for (DWORD const disposition : {DWORD{OPEN_EXISTING}, DWORD{OPEN_ALWAYS}, DWORD{CREATE_ALWAYS}})
        {
            ScopedHandle const pipe = Open("pipe", access, shareAll, disposition);
            EXPECT_TRUE(pipe.IsOpen()) << access << ' ' << disposition;
            EXPECT_EQ(GetFileType(pipe), DWORD{FILE_TYPE_PIPE});
            Open("socket", access, shareAll, disposition);
        }
    }
    close(server);
    char byte = 0;
    ScopedHandle const reader = Open("pipe", GENERIC_READ);
    EXPECT_EQ(LastErrorOf([&] { return ReadFile(reader, &byte, 1, &done, nullptr); }), DWORD{ERROR_BROKEN_PIPE})
        << "nobody writes";
    EXPECT_FALSE(CopyFileW(Path("socket").c_str(), Path("copy").c_str(), TRUE));
    EXPECT_FALSE(std::filesystem::exists(folder / "copy"));
}

TEST_F(LinuxFiles, ReadingAPipeWaitsForItsWriter)
{
    ASSERT_EQ(mkfifo((folder / "pipe").c_str(), 0600), 0);
    ScopedHandle const reader = Open("pipe", GENERIC_READ);
    ScopedHandle writer = Open("pipe", GENERIC_WRITE);
    ASSERT_TRUE(reader.IsOpen() && writer.IsOpen());
    std::string text;
    std::thread reading(
        [&]
        {
            char bytes[10];
            DWORD count = 0;
            while (ReadFile(reader, bytes, 10, &count, nullptr))
            {
                text.append(bytes, count);
            }
        });
    EXPECT_TRUE(WriteFile(writer, "hello", 5, &done, nullptr));
    writer.Close();
    reading.join();
    EXPECT_EQ(text, "hello");
}

TEST_F(LinuxFiles, AFolderWithoutTheRightToWriteIsNotReadOnly)
{
    ASSERT_EQ(mkdir((folder / "dir").c_str(), 0755), 0);
    EXPECT_TRUE(SetFileAttributesW(Path("dir").c_str(), FILE_ATTRIBUTE_READONLY));
    struct stat status;
    ASSERT_EQ(stat((folder / "dir").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777u, 0755u);
    ASSERT_EQ(chmod((folder / "dir").c_str(), 0555), 0);
    EXPECT_EQ(GetFileAttributesW(Path("dir").c_str()), DWORD{FILE_ATTRIBUTE_DIRECTORY});
    EXPECT_TRUE(SetFileAttributesW(Path("dir").c_str(), FILE_ATTRIBUTE_NORMAL));
    ASSERT_EQ(stat((folder / "dir").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777u, 0555u) << "the right was taken by somebody else";
}

TEST_F(LinuxFiles, AReadOnlyFileIsNotWrittenByAnybody)
{
    ASSERT_EQ(chmod((folder / "file").c_str(), 0444), 0);
    DWORD const denied = ERROR_ACCESS_DENIED;
    EXPECT_EQ(ErrorOfOpening("file", GENERIC_READ), 0u);
    EXPECT_EQ(ErrorOfOpening("file", GENERIC_WRITE), denied);
    EXPECT_EQ(ErrorOfOpening("file", FILE_APPEND_DATA), denied);
    EXPECT_EQ(ErrorOfOpening("file", GENERIC_WRITE, OPEN_ALWAYS), denied);
    EXPECT_EQ(ErrorOfOpening("file", GENERIC_READ, CREATE_ALWAYS), denied);
    EXPECT_EQ(ErrorOfOpening("file", GENERIC_WRITE, TRUNCATE_EXISTING), denied);
    EXPECT_FALSE(ScopedHandle(Path("file"), GENERIC_READ, shareAll, OPEN_EXISTING, FILE_FLAG_DELETE_ON_CLOSE).IsOpen());
    EXPECT_EQ(folder.Read("file"), "hello world");
}

TEST_F(LinuxFiles, ArgumentsAreChecked)
{
    EXPECT_EQ(ErrorOfOpening("file", GENERIC_READ, TRUNCATE_EXISTING), DWORD{ERROR_INVALID_PARAMETER});
    EXPECT_EQ(Open("file", GENERIC_READ, 8).Error(), DWORD{ERROR_INVALID_PARAMETER});
    ScopedHandle const file = Open("file", GENERIC_READ);
    FILETIME const time = {1, 1 << 24};
    EXPECT_EQ(LastErrorOf([&] { return SetEndOfFile(file); }), DWORD{ERROR_ACCESS_DENIED});
    EXPECT_EQ(LastErrorOf([&] { return SetFileTime(file, nullptr, &time, nullptr); }), DWORD{ERROR_ACCESS_DENIED});
    HANDLE more = nullptr;
    HANDLE const self = GetCurrentProcess();
    EXPECT_EQ(
        LastErrorOf([&] { return DuplicateHandle(self, file, self, &more, GENERIC_WRITE, FALSE, 0); }),
        DWORD{ERROR_ACCESS_DENIED});
    LONG high = 1;
    ASSERT_EQ(SetFilePointer(file, 5, &high, FILE_BEGIN), 5u);
    EXPECT_EQ(
        LastErrorOf([&] { return SetFilePointer(file, 1, nullptr, FILE_CURRENT) != INVALID_SET_FILE_POINTER; }),
        DWORD{ERROR_INVALID_PARAMETER})
        << "does not fit without the high half";
}

TEST_F(LinuxFiles, WhoHasNoRightIsDenied)
{
    std::filesystem::create_directory(folder / "closed");
    folder.Write("closed/file", "x");
    ASSERT_EQ(chmod(folder.Path().c_str(), 0755), 0);
    ASSERT_EQ(chmod((folder / "file").c_str(), 0600), 0);
    ASSERT_EQ(chmod((folder / "closed").c_str(), 0700), 0);
    auto const asNobody = [&](std::string const & name, DWORD access, DWORD disposition)
    {
        return InChild(
            [&]
            {
                // Who is not the superuser takes away the owner's rights instead.
                bool const dropped = setuid(nobody) == 0;
                bool const barred = dropped ||
                    (chmod((folder / "file").c_str(), 0) == 0 && chmod((folder / "closed").c_str(), 0) == 0 &&
                     chmod(folder.Path().c_str(), 0555) == 0);
                return barred ? ErrorOfOpening(name, access, disposition) : 255u;
            });
    };
    int const denied = ERROR_ACCESS_DENIED;
    EXPECT_EQ(asNobody("file", GENERIC_READ, OPEN_EXISTING), denied);
    EXPECT_EQ(asNobody("file", GENERIC_WRITE, OPEN_EXISTING), denied);
    EXPECT_EQ(asNobody("file", 0, OPEN_EXISTING), 0) << "attributes need no right to the file";
    EXPECT_EQ(asNobody("closed/file", GENERIC_READ, OPEN_EXISTING), denied);
    EXPECT_EQ(asNobody("new", GENERIC_WRITE, CREATE_NEW), denied);
    chmod(folder.Path().c_str(), 0755);
    chmod((folder / "closed").c_str(), 0700);
}

TEST_F(LinuxFiles, AFullDeviceIsToldByWriting)
{
    ScopedHandle const device(TEXT("Z:\\dev\\full"), GENERIC_WRITE, shareAll, OPEN_EXISTING);
    ASSERT_TRUE(device.IsOpen());
    EXPECT_EQ(LastErrorOf([&] { return WriteFile(device, "x", 1, &done, nullptr); }), DWORD{ERROR_DISK_FULL});
    EXPECT_EQ(done, 0u);
}

TEST_F(LinuxFiles, LinksAreFollowedAsFarAsTheyLead)
{
    std::filesystem::create_symlink("file", folder / "good");
    std::filesystem::create_symlink("target", folder / "dangling");
    std::filesystem::create_symlink("nowhere/target", folder / "lost");
    std::filesystem::create_symlink("loop", folder / "loop");
    EXPECT_EQ(ErrorOfOpening("good", GENERIC_READ), 0u);
    EXPECT_EQ(ErrorOfOpening("dangling", GENERIC_READ), DWORD{ERROR_FILE_NOT_FOUND});
    EXPECT_EQ(ErrorOfOpening("dangling", GENERIC_WRITE, CREATE_NEW), DWORD{ERROR_FILE_EXISTS});
    EXPECT_EQ(ErrorOfOpening("loop", GENERIC_READ), DWORD{ERROR_CANT_RESOLVE_FILENAME});
    EXPECT_EQ(ErrorOfOpening("loop", GENERIC_WRITE, CREATE_ALWAYS), DWORD{ERROR_CANT_RESOLVE_FILENAME});
    EXPECT_EQ(ErrorOfOpening("lost", GENERIC_WRITE, CREATE_ALWAYS), DWORD{ERROR_PATH_NOT_FOUND});
    EXPECT_EQ(ErrorOfOpening("dangling", GENERIC_WRITE, CREATE_ALWAYS), 0u);
    EXPECT_TRUE(std::filesystem::exists(folder / "target")) << "is made where the link leads";
}

TEST_F(LinuxFiles, ADeletionThatIsPendingBarsOpening)
{
    ScopedHandle first(Path("file"), GENERIC_READ, shareAll, OPEN_EXISTING, FILE_FLAG_DELETE_ON_CLOSE);
    ScopedHandle second = Open("file", GENERIC_READ);
    first.Close();
    EXPECT_EQ(ErrorOfOpening("file", GENERIC_READ), DWORD{ERROR_ACCESS_DENIED});
    second.Close();
    EXPECT_EQ(ErrorOfOpening("file", GENERIC_READ), DWORD{ERROR_FILE_NOT_FOUND});
}

TEST_F(LinuxFiles, LockedRangesBarOthersFromTransfers)
{
    ScopedHandle const owner = Open("file", readWrite);
    ScopedHandle const other = Open("file", readWrite);
    DWORD const violation = ERROR_LOCK_VIOLATION;
    char bytes[8];
    auto const read = [&](HANDLE file, LONG place, DWORD count)
    {
        SetFilePointer(file, place, nullptr, FILE_BEGIN);
        return LastErrorOf([&] { return ReadFile(file, bytes, count, &done, nullptr); });
    };
    auto const write = [&](HANDLE file, LONG place)
    {
        SetFilePointer(file, place, nullptr, FILE_BEGIN);
        return LastErrorOf([&] { return WriteFile(file, "X", 1, &done, nullptr); });
    };
    ASSERT_TRUE(LockFile(owner, 4, 0, 2, 0));
    EXPECT_EQ(read(other, 0, 4), 0u);
    EXPECT_EQ(read(other, 0, 5), violation);
    EXPECT_EQ(read(other, 5, 1), violation);
    EXPECT_EQ(read(other, 6, 4), 0u);
    EXPECT_EQ(write(other, 5), violation);
    EXPECT_EQ(write(owner, 5), 0u);
    OVERLAPPED place = {};
    place.Offset = 5;
    EXPECT_EQ(LastErrorOf([&] { return ReadFile(other, bytes, 1, &done, &place); }), violation);
    EXPECT_EQ(LastErrorOf([&] { return UnlockFile(other, 4, 0, 2, 0); }), DWORD{ERROR_NOT_LOCKED});
    ASSERT_TRUE(UnlockFile(owner, 4, 0, 2, 0));
    EXPECT_EQ(read(other, 5, 1), 0u);
    place = {};
    ASSERT_TRUE(LockFileEx(owner, 0, 0, 4, 0, &place));
    EXPECT_EQ(read(other, 0, 4), 0u);
    EXPECT_EQ(write(other, 0), violation);
    EXPECT_EQ(write(owner, 0), violation) << "a shared lock bars its owner, too";
}

TEST_F(LinuxFiles, SharingHoldsBetweenProcesses)
{
    auto const child = [&](DWORD access, DWORD share)
    {
        return InChild(
            [&]
            {
                // The table of this process was copied: what is asked is what the kernel tells.
                ScopedHandle const file(Path("file"), access, share, OPEN_EXISTING);
                return file.IsOpen() ? 0 : file.Error();
            });
    };
    int const violation = ERROR_SHARING_VIOLATION;
    EXPECT_EQ(child(GENERIC_WRITE, 0), 0);
    ScopedHandle const reader = Open("file", GENERIC_READ, FILE_SHARE_READ);
    EXPECT_EQ(child(GENERIC_READ, FILE_SHARE_READ), 0);
    EXPECT_EQ(child(GENERIC_WRITE, shareAll), violation);
    EXPECT_EQ(child(GENERIC_READ, 0), violation);
    EXPECT_EQ(child(0, 0), 0);
}

/// Whether the kernel alone, asked through a descriptor that knows nothing of the table, sees these bytes locked.
bool IsLockedInKernel(std::filesystem::path const & path, off_t first, off_t count)
{
    int const descriptor = open(path.c_str(), O_RDWR | O_CLOEXEC);
    struct flock lock = {};
    lock.l_type = F_WRLCK;
    lock.l_whence = SEEK_SET;
    lock.l_start = first;
    lock.l_len = count;
    bool const locked = fcntl(descriptor, F_OFD_GETLK, &lock) == 0 && lock.l_type != F_UNLCK;
    close(descriptor);
    return locked;
}

TEST_F(LinuxFiles, OtherProcessesSeeSharingAndLocks)
{
    constexpr off_t farBehind = 0x7FFFFFFFFFFFFF00;
    EXPECT_FALSE(IsLockedInKernel(folder / "file", 0, 0));
    {
        ScopedHandle file = Open("file", readWrite, 0);
        EXPECT_TRUE(IsLockedInKernel(folder / "file", farBehind, 8));
        EXPECT_FALSE(IsLockedInKernel(folder / "file", 0, farBehind));
        ASSERT_TRUE(LockFile(file, 10, 0, 10, 0));
        EXPECT_TRUE(IsLockedInKernel(folder / "file", 19, 1));
        EXPECT_FALSE(IsLockedInKernel(folder / "file", 20, 1));
        ASSERT_TRUE(UnlockFile(file, 10, 0, 10, 0));
        EXPECT_FALSE(IsLockedInKernel(folder / "file", 10, 10));
        OVERLAPPED place = {};
        ASSERT_TRUE(LockFileEx(file, 0, 0, 10, 0, &place));
        ASSERT_TRUE(LockFileEx(file, 0, 0, 5, 0, &place));
        ASSERT_TRUE(UnlockFileEx(file, 0, 10, 0, &place));
        EXPECT_TRUE(IsLockedInKernel(folder / "file", 4, 1)) << "the other lock is still there";
        EXPECT_FALSE(IsLockedInKernel(folder / "file", 5, 5));
    }
    EXPECT_FALSE(IsLockedInKernel(folder / "file", 0, 0));
}

TEST_F(LinuxFiles, AForeignLockIsMetByLocking)
{
    int const foreign = open((folder / "file").c_str(), O_RDWR | O_CLOEXEC);
    struct flock lock = {};
    lock.l_type = F_WRLCK;
    lock.l_whence = SEEK_SET;
    lock.l_len = 5;
    ASSERT_EQ(fcntl(foreign, F_OFD_SETLK, &lock), 0);
    ScopedHandle const file = Open("file", readWrite);
    EXPECT_EQ(LastErrorOf([&] { return LockFile(file, 0, 0, 1, 0); }), DWORD{ERROR_LOCK_VIOLATION});
    EXPECT_EQ(LastErrorOf([&] { return LockFile(file, 5, 0, 1, 0); }), 0u);
    std::thread waiting(
        [&]
        {
            OVERLAPPED place = {};
            EXPECT_TRUE(LockFileEx(file, LOCKFILE_EXCLUSIVE_LOCK, 0, 1, 0, &place));
        });
    close(foreign);
    waiting.join();
}

TEST_F(LinuxFiles, APipeEndsWithItsWriters)
{
    ASSERT_EQ(mkfifo((folder / "pipe").c_str(), 0600), 0);
    int const other = open((folder / "pipe").c_str(), O_RDWR | O_CLOEXEC);
    ASSERT_GE(other, 0);
    ScopedHandle const writer = Open("pipe", GENERIC_WRITE);
    ScopedHandle reader = Open("pipe", GENERIC_READ);
    close(other);
    ASSERT_TRUE(writer.IsOpen() && reader.IsOpen());
    EXPECT_EQ(GetFileType(reader), DWORD{FILE_TYPE_PIPE});
    ASSERT_TRUE(WriteFile(writer, "abc", 3, &done, nullptr));
    char bytes[8];
    ASSERT_TRUE(ReadFile(reader, bytes, sizeof(bytes), &done, nullptr));
    EXPECT_EQ(done, 3u) << "what has come";
    reader.Close();
    EXPECT_FALSE(WriteFile(writer, "abc", 3, &done, nullptr)) << "and no signal";
    EXPECT_EQ(LastErrorOf([&] { return LockFile(writer, 0, 0, 1, 0); }), DWORD{ERROR_INVALID_HANDLE});
}

TEST_F(LinuxFiles, OnlyTheBeginningOfAViewEndsIt)
{
    ScopedHandle const file = Open("file", GENERIC_READ);
    ScopedHandle const mapping(CreateFileMappingW(file, nullptr, PAGE_READONLY, 0, 0, nullptr));
    char * const view = static_cast<char *>(MapViewOfFile(mapping, FILE_MAP_READ, 0, 0, 0));
    ASSERT_NE(view, nullptr);
    EXPECT_EQ(LastErrorOf([&] { return UnmapViewOfFile(view + 1); }), DWORD{ERROR_INVALID_ADDRESS});
    EXPECT_EQ(std::string(view, 11), "hello world");
    std::filesystem::resize_file(folder / "file", 5);
    EXPECT_EQ(std::string(view, 11), std::string("hello\0\0\0\0\0\0", 11)) << "the rest of the last page is 0";
    EXPECT_TRUE(UnmapViewOfFile(view));
}

TEST_F(LinuxFiles, HandlesSurviveBeingClosedByOthers)
{
    // Two threads use, duplicate and close the same handles: each call works on the file or fails, and none on what
    // another handle has become.
    std::atomic<int> wrong{0};
    for (int round = 0; round < 500; ++round)
    {
        HANDLE const handle = CreateFileW(
            Path("file").c_str(), GENERIC_READ, shareAll, nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
        auto const use = [&, handle]
        {
            char bytes[4];
            OVERLAPPED place = {};
            DWORD count = 0;
            if (ReadFile(handle, bytes, 4, &count, &place) ? count != 4 : GetLastError() != ERROR_INVALID_HANDLE)
            {
                ++wrong;
            }
        };
        std::thread other(
            [&]
            {
                use();
                CloseHandle(handle);
            });
        use();
        other.join();
    }
    EXPECT_EQ(wrong, 0);
}

TEST_F(LinuxFiles, AMappingIsNobodysAccessAndNoFile)
{
    ScopedHandle file = Open("file", GENERIC_READ, 0);
    ScopedHandle const mapping(CreateFileMappingW(file, nullptr, PAGE_READONLY, 0, 0, nullptr));
    char bytes[4];
    EXPECT_EQ(LastErrorOf([&] { return ReadFile(mapping, bytes, 4, &done, nullptr); }), DWORD{ERROR_INVALID_HANDLE});
    EXPECT_EQ(ErrorOfOpening("file", GENERIC_READ), DWORD{ERROR_SHARING_VIOLATION});
    file.Close();
    EXPECT_EQ(ErrorOfOpening("file", GENERIC_READ), 0u);
}

TEST_F(LinuxFiles, NoHandleIsInherited)
{
    ScopedHandle const file = Open("file", GENERIC_READ);
    DWORD flags = 7;
    EXPECT_TRUE(GetHandleInformation(file, &flags));
    EXPECT_EQ(flags, 0u);
    for (auto const & entry : std::filesystem::directory_iterator("/proc/self/fd"))
    {
        std::error_code error;
        if (std::filesystem::read_symlink(entry.path(), error) == folder / "file")
        {
            EXPECT_NE(fcntl(std::stoi(entry.path().filename()), F_GETFD) & FD_CLOEXEC, 0);
        }
    }
}

} // namespace

#endif
