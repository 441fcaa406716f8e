#pragma once

// Fire-and-forget small writes.

#include <cstddef>
#include <cstdint>

#include <kvcore/platform/export.h>
#include <kvcore/platform/types.h>

namespace kv::platform
{

/// Takes small writes to a file over: their bytes are copied, so that their memory is free at once, and go to the file
/// after what was issued for it before and before what is issued later. Many go to the system as one. How they end is
/// told to nobody.
///
/// A process that ends by exit, quick_exit, a fault, abort() or a signal that asks it to end (SIGTERM, SIGINT, SIGHUP,
/// SIGQUIT with the default action) finishes them first, and lets no other thread begin any. One that ends without
/// notice, by _exit or SIGKILL, loses at most the 256 KiB that a file can have on their way.
///
/// On a system that takes the bytes of its writes over by itself it takes none.
///
/// Threads: any may write. The others are for one thread, while no other is in a call.
class KVCORE_API WritesBehind
{
public:
    WritesBehind() noexcept = default;
    WritesBehind(WritesBehind const &) = delete;
    WritesBehind & operator=(WritesBehind const &) = delete;
    ~WritesBehind();

    /// Is for the file of an overlapped handle from now on, which may be closed meanwhile. It takes none for what is no
    /// file on a disk, and where the handle does not allow to write.
    void Attach(HANDLE handle) noexcept;
    /// Is for no file any more. What was taken over goes its way.
    void Detach() noexcept;

    /// Takes a write over: of 1 to 512 bytes, from memory that VirtualAlloc has committed, at a place below 2^63.
    /// False, with nothing done, for all else and without memory: it is a case for WriteFile then. Waits only if 256
    /// KiB are on their way already.
    bool Write(void const * data, DWORD count, std::uint64_t place) noexcept;
    /// Returns when all that was taken over for the file is done.
    void Await() const noexcept;

private:
    void * file = nullptr; ///< a reference of the system's own object
    bool isAppending = false;
};

/// While it lives, the small writes of its thread belong together: a process that ends, other than without notice,
/// writes all of them or none. For what is one thing to its reader and more than one write, such as a long line.
class KVCORE_API WriteGroup
{
public:
    WriteGroup() noexcept;
    WriteGroup(WriteGroup const &) = delete;
    WriteGroup & operator=(WriteGroup const &) = delete;
    ~WriteGroup();
};

} // namespace kv::platform
