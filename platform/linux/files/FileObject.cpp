#include "FileObject.h"

#include <algorithm>
#include <cerrno>
#include <csignal>

#include <sys/uio.h>
#include <unistd.h>

#include "OpenFiles.h"
#include <kvcore/platform/include/errors.h>
#include <kvcore/platform/include/fileapi.h>
#include <kvcore/platform/linux/errors/ErrnoErrors.h>

namespace kv::platform
{

namespace
{

/// The kernel moves no more at once.
constexpr DWORD largestTransfer = 0x7FFFF000;

/// Writing into a pipe that nobody reads is an error here, and no signal.
class NoPipeSignal
{
public:
    explicit NoPipeSignal(bool needed) noexcept : active(needed)
    {
        if (active)
        {
            sigemptyset(&pipeSignal);
            sigaddset(&pipeSignal, SIGPIPE);
            sigset_t pending;
            sigpending(&pending);
            wasPending = sigismember(&pending, SIGPIPE) == 1;
            pthread_sigmask(SIG_BLOCK, &pipeSignal, &before);
        }
    }
    NoPipeSignal(NoPipeSignal const &) = delete;
    NoPipeSignal & operator=(NoPipeSignal const &) = delete;
    ~NoPipeSignal()
    {
        if (active)
        {
            int const error = errno;
            timespec const atOnce = {};
            if (error == EPIPE && !wasPending)
            {
                sigtimedwait(&pipeSignal, nullptr, &atOnce);
            }
            pthread_sigmask(SIG_SETMASK, &before, nullptr);
            errno = error;
        }
    }

private:
    bool const active;
    bool wasPending = false;
    sigset_t pipeSignal;
    sigset_t before;
};

bool HasPlaces(FileType type)
{
    return type == FileType::Disk || type == FileType::Directory;
}

/// Calls `transfer(done, count)` until all is done, it gives 0, or it fails. A short result of a file on a disk is the
/// end only if the next one is 0: signals and large counts shorten, too.
template <class Transfer>
DWORD Repeat(DWORD count, bool untilDone, DWORD & transferred, Transfer transfer)
{
    transferred = 0;
    do
    {
        ssize_t const result = transfer(transferred, std::min(count - transferred, largestTransfer));
        if (result < 0)
        {
            if (errno == EINTR)
            {
                continue;
            }
            return ErrorOfErrno(errno);
        }
        if (result == 0)
        {
            break;
        }
        transferred += static_cast<DWORD>(result);
        if (!untilDone)
        {
            break;
        }
    } while (transferred < count);
    return ERROR_SUCCESS;
}

} // namespace

File::~File()
{
    if (entered)
    {
        LeaveOpenFile(*this);
    }
    if (shared != nullptr)
    {
        DropShared(*shared);
    }
    close(descriptor);
}

void File::LastHandleClosed() noexcept
{
    if (entered)
    {
        LeaveOpenFile(*this);
        if (IsShared())
        {
            DropLocksBetweenProcesses(descriptor);
        }
    }
}

bool File::IsOverlapped() const noexcept
{
    return (flags & FILE_FLAG_OVERLAPPED) != 0;
}

bool File::MayMeetLocks() const noexcept
{
    return shared != nullptr && shared->lockCount.load(std::memory_order_relaxed) != 0;
}

std::int64_t File::Position() const noexcept
{
    std::int64_t const beyond = positionBeyond.load(std::memory_order_relaxed);
    return beyond >= 0 ? beyond : lseek(descriptor, 0, SEEK_CUR);
}

bool File::MoveTo(std::int64_t place) const noexcept
{
    bool const moved = lseek(descriptor, place, SEEK_SET) >= 0;
    bool const beyond = !moved && place >= 0 && HasPlaces(type) && (errno == EINVAL || errno == EOVERFLOW);
    positionBeyond.store(beyond ? place : -1, std::memory_order_relaxed);
    return moved || beyond;
}

DWORD File::Read(void * buffer, DWORD count, DWORD & transferred) noexcept
{
    transferred = 0;
    if (type == FileType::Directory)
    {
        return ERROR_INVALID_FUNCTION;
    }
    if (MayMeetLocks())
    {
        std::int64_t const position = Position();
        if (position >= 0 && CheckLocks(*this, static_cast<std::uint64_t>(position), count, false) != ERROR_SUCCESS)
        {
            return ERROR_LOCK_VIOLATION;
        }
    }
    if (positionBeyond.load(std::memory_order_relaxed) >= 0)
    {
        return ERROR_SUCCESS; // the end of every file lies before it
    }
    DWORD const error = Repeat(
        count, HasPlaces(type), transferred,
        [this, buffer](DWORD done, DWORD wanted)
        { return ::read(descriptor, static_cast<char *>(buffer) + done, wanted); });
    if (transferred != 0)
    {
        return ERROR_SUCCESS; // what comes after it, the next read will find out
    }
    return error == ERROR_SUCCESS && count != 0 && type == FileType::Pipe ? ERROR_BROKEN_PIPE : error;
}

DWORD File::Write(void const * buffer, DWORD count, DWORD & transferred) noexcept
{
    transferred = 0;
    if (type == FileType::Directory)
    {
        return ERROR_INVALID_HANDLE;
    }
    if (count == 0)
    {
        return ERROR_SUCCESS;
    }
    if (MayMeetLocks())
    {
        std::int64_t const position = Position();
        if (position >= 0 && CheckLocks(*this, static_cast<std::uint64_t>(position), count, true) != ERROR_SUCCESS)
        {
            return ERROR_LOCK_VIOLATION;
        }
    }
    // Who may only append is not where its position is.
    if (positionBeyond.load(std::memory_order_relaxed) >= 0 && (access & FILE_WRITE_DATA) != 0)
    {
        return ERROR_FILE_TOO_LARGE;
    }
    NoPipeSignal const quiet(type == FileType::Pipe);
    DWORD const error = Repeat(
        count, true, transferred,
        [this, buffer](DWORD done, DWORD wanted)
        { return ::write(descriptor, static_cast<char const *>(buffer) + done, wanted); });
    return error == ERROR_NOACCESS ? ERROR_INVALID_USER_BUFFER : error;
}

DWORD File::ReadAt(void * buffer, DWORD count, std::uint64_t offset, DWORD & transferred) noexcept
{
    if (!HasPlaces(type))
    {
        return Read(buffer, count, transferred);
    }
    transferred = 0;
    if (type == FileType::Directory)
    {
        return ERROR_INVALID_FUNCTION;
    }
    if (MayMeetLocks() && CheckLocks(*this, offset, count, false) != ERROR_SUCCESS)
    {
        return ERROR_LOCK_VIOLATION;
    }
    // No file goes on behind the last place that a signed number tells.
    constexpr std::uint64_t lastPlace = INT64_MAX;
    count = static_cast<DWORD>(std::min<std::uint64_t>(count, lastPlace - std::min(offset, lastPlace)));
    if (count == 0 && offset == lastPlace)
    {
        return ERROR_HANDLE_EOF;
    }
    DWORD const error = Repeat(
        count, true, transferred,
        [this, buffer, offset](DWORD done, DWORD wanted)
        { return pread(descriptor, static_cast<char *>(buffer) + done, wanted, static_cast<off_t>(offset + done)); });
    if (transferred != 0 || count == 0)
    {
        return ERROR_SUCCESS;
    }
    return error == ERROR_SUCCESS ? ERROR_HANDLE_EOF : error;
}

DWORD File::WriteAt(void const * buffer, DWORD count, std::uint64_t offset, DWORD & transferred) noexcept
{
    if (!HasPlaces(type))
    {
        return Write(buffer, count, transferred);
    }
    transferred = 0;
    if (type == FileType::Directory)
    {
        return ERROR_INVALID_HANDLE;
    }
    if (count == 0)
    {
        return ERROR_SUCCESS;
    }
    if (offset != appending && MayMeetLocks() && CheckLocks(*this, offset, count, true) != ERROR_SUCCESS)
    {
        return ERROR_LOCK_VIOLATION;
    }
    DWORD const error = Repeat(
        count, true, transferred,
        [this, buffer, offset](DWORD done, DWORD wanted)
        {
            char const * const from = static_cast<char const *>(buffer) + done;
            if (offset == appending)
            {
                // At -1 the position of the descriptor moves along, as that of a synchronous handle does.
                iovec const piece = {const_cast<char *>(from), wanted};
                return pwritev2(descriptor, &piece, 1, -1, RWF_APPEND);
            }
            return pwrite(descriptor, from, wanted, static_cast<off_t>(offset + done));
        });
    if (offset == appending)
    {
        positionBeyond.store(-1, std::memory_order_relaxed);
    }
    return error == ERROR_NOACCESS ? ERROR_INVALID_USER_BUFFER : error;
}

} // namespace kv::platform
