#pragma once

// What a handle of a file names: a descriptor with the rights and flags that it was opened with.

#include <atomic>
#include <cstdint>

#include <sys/types.h>

#include <kvcore/platform/include/basetypes.h>
#include <kvcore/platform/linux/files/Handles.h>
#include <kvcore/platform/linux/overlapped/RequestQueue.h>

struct stat;

namespace kv::platform
{

struct SharedFile;

/// The place of a write that goes to the end of its file, wherever that is then.
constexpr std::uint64_t appending = ~std::uint64_t{0};

/// What lies behind a descriptor, as far as calls differ by it.
enum class FileType
{
    Disk,
    Directory,
    Character,
    Pipe,
};

class File final : public Waitable
{
public:
    static constexpr ObjectKind kind = ObjectKind::File;

    /// Takes over the descriptor.
    File(
        int fileDescriptor, FileType typeOfFile, DWORD grantedAccess, DWORD shareMode,
        DWORD flagsAndAttributes) noexcept
        : Waitable(kind),
          descriptor(fileDescriptor),
          type(typeOfFile),
          access(grantedAccess),
          share(shareMode),
          flags(flagsAndAttributes)
    {
    }

    /// Signalled while no overlapped request is on its way.
    bool IsSignalled() const noexcept override
    {
        return requests.pending.load(std::memory_order_seq_cst) == 0;
    }
    void LastHandleClosed() noexcept override;

    /// Opened with FILE_FLAG_OVERLAPPED.
    bool IsOverlapped() const noexcept;

    /// Where the next transfer without a place of its own is, and how it is moved there; -1 or false with errno set.
    /// A place may lie beyond the largest file that the file system holds, where there is nothing to read and no room
    /// to write.
    std::int64_t Position() const noexcept;
    bool MoveTo(std::int64_t place) const noexcept;

    /// Transfers at the position, which moves on. Give ERROR_SUCCESS or the system error; what `transferred` says has
    /// been done in either case. 0 at the end of a file is a success; at the end of a pipe, ERROR_BROKEN_PIPE.
    DWORD Read(void * buffer, DWORD count, DWORD & transferred) noexcept;
    DWORD Write(void const * buffer, DWORD count, DWORD & transferred) noexcept;

    /// Transfer at a place of the file and leave its position alone. On a pipe or a device without places the place
    /// means nothing; an `offset` of all ones appends. Give ERROR_SUCCESS or the system error: ERROR_HANDLE_EOF for a
    /// read at or behind the end, ERROR_LOCK_VIOLATION for a range that another file object has locked. Any thread.
    DWORD ReadAt(void * buffer, DWORD count, std::uint64_t offset, DWORD & transferred) noexcept;
    DWORD WriteAt(void const * buffer, DWORD count, std::uint64_t offset, DWORD & transferred) noexcept;

    /// For a file whose opening failed after all: it stays, whatever its flags say.
    void AbandonDeletion() noexcept
    {
        flags &= ~deleteOnCloseFlag;
    }

    int const descriptor;
    FileType const type;
    /// Specific rights (FILE_READ_DATA...) of the first handle. What a call may do is said by Pinned::Access.
    DWORD const access;
    DWORD const share;
    DWORD flags;
    /// The file's entry in the table of open files; null for what is not on a disk.
    SharedFile * shared = nullptr;
    /// What this object uses and denies stands in the table.
    bool entered = false;
    /// The overlapped requests for this file.
    RequestQueue requests;
    /// Whether a range is locked by anybody, so that a transfer has to look whether it meets it.
    bool MayMeetLocks() const noexcept;

private:
    static constexpr DWORD deleteOnCloseFlag = 0x04000000u;

    /// The position where the kernel's own cannot be; -1 if that one counts.
    mutable std::atomic<std::int64_t> positionBeyond{-1};

    ~File() override;
};

/// How a transfer ended, in the record of its request. `error` is the system error.
void SetResult(OVERLAPPED & overlapped, DWORD error, DWORD transferred) noexcept;

/// A transfer on a handle that was opened with FILE_FLAG_OVERLAPPED; the result is that of ReadFile or WriteFile. The
/// arguments have been checked: the handle's access allows the transfer, and the place is one; that of a write is given
/// apart, because who may only append writes elsewhere than the request says.
BOOL StartOverlappedRead(
    File & file, void * buffer, DWORD count, DWORD * transferred, OVERLAPPED & overlapped) noexcept;
BOOL StartOverlappedWrite(
    File & file, void const * buffer, DWORD count, std::uint64_t place, DWORD * transferred,
    OVERLAPPED & overlapped) noexcept;

} // namespace kv::platform
