#pragma once

// Who has which file open, with what access, and what each of them denies to others.
//
// Within the process this is a table by device and inode, exact for every file on a disk. Between processes it rests on
// open-file-description locks on bytes far behind any data, one for each kind of access that is used and each that is
// denied: a process that opens files through this layer meets the others there. What it does not cover: programs that
// open files by other means, file systems that refuse locks (some network mounts), and handles that may only write to a
// file that this user may not read. There each process is alone with its own table. Two processes that open a file at
// the same moment, one of which would have to be refused, may both be.

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <vector>

#include <sys/types.h>

#include <kvcore/platform/include/basetypes.h>

struct stat;

namespace kv::platform
{

class File;

/// A locked range of bytes. One of length 0 stands before its first byte, and is in the way of ranges that begin before
/// it and end behind it.
struct ByteLock
{
    File const * owner;
    std::uint64_t first;
    std::uint64_t length;
    bool exclusive;
};

/// A file that this process has open at least once.
struct SharedFile
{
    dev_t device;
    ino_t inode;

    // Guarded by the table's lock: who points here; how many have it open, and use or deny reading, writing, deleting.
    unsigned references = 0;
    unsigned opens = 0;
    unsigned uses[3] = {};
    unsigned denies[3] = {};
    bool deletePending = false;

    /// Sections of this file, and views that outlive them.
    std::atomic<unsigned> mappings{0};

    /// Ranges that are locked; `lockCount` spares those who transfer a look at them.
    std::mutex lockMutex;
    std::condition_variable lockReleased;
    std::vector<ByteLock> locks;
    std::atomic<unsigned> lockCount{0};
};

/// The table's lock. Nothing else is taken under it.
std::mutex & OpenFilesLock() noexcept;

/// Whether two ranges, none of which ends behind 2^64, have a byte in common, or one without bytes lies inside the
/// other.
bool Overlap(std::uint64_t first, std::uint64_t length, std::uint64_t otherFirst, std::uint64_t otherLength) noexcept;

/// Enters an open file, or refuses: ERROR_SUCCESS, ERROR_SHARING_VIOLATION, ERROR_ACCESS_DENIED if the file is about to
/// be deleted, ERROR_NOT_ENOUGH_MEMORY. Sets `file.shared` and `file.entered`.
DWORD EnterOpenFile(File & file, struct stat const & status) noexcept;

/// Takes back what the file uses, denies and has locked; the last one deletes the file if it is to be. What is on its
/// way may still look at `file.shared`.
void LeaveOpenFile(File & file) noexcept;

/// Count pointers to the entry, which goes with the last.
void HoldShared(SharedFile & shared) noexcept;
void DropShared(SharedFile & shared) noexcept;

/// Whether a transfer meets a lock: ERROR_SUCCESS or ERROR_LOCK_VIOLATION.
DWORD CheckLocks(File const & file, std::uint64_t first, std::uint64_t count, bool writing) noexcept;

/// Lets go the locks that other processes see, for a descriptor that lives longer than the handles.
void DropLocksBetweenProcesses(int descriptor) noexcept;

/// Whether the file may be deleted or renamed now: ERROR_SHARING_VIOLATION if anybody, as far as can be seen from here,
/// has it open and does not share deleting. Takes a native path; a link is not followed.
DWORD CheckDeletion(char const * nativePath) noexcept;

/// Whether anybody, as far as can be seen from here, has the file open or mapped, whatever he shares. Other processes
/// are seen where they read, write or delete.
bool IsOpenAnywhere(char const * nativePath) noexcept;

} // namespace kv::platform
