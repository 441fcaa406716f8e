#pragma once

// What the requests of the process have in common: their records, and who is carrying some out.

#include <atomic>
#include <mutex>
#include <vector>

#include <sys/types.h>

#include "RequestPool.h"
#include <kvcore/platform/linux/sync/ShortLock.h>

namespace kv::platform
{

constexpr unsigned defaultRequestLimit = 131072;
constexpr unsigned maxWorkers = 2;

/// Writes behind: the bytes of one at most, of a block, and of all that a file may have on their way, which bounds what
/// is lost when the process ends without notice; and how many blocks there may be and are kept. So many are kept that
/// seldom one is freed: a process that ends in the middle of an allocation still has to write them.
constexpr std::size_t largestWriteBehind = 512;
constexpr std::size_t blockSize = std::size_t{64} << 10;
constexpr std::size_t mostBytesBehind = std::size_t{256} << 10;
constexpr unsigned mostBlocks = 1024;
constexpr unsigned mostSpareBlocks = 64;

constexpr std::size_t cacheLine = 64;

/// Lives for ever, and so do the workers: the process may end while they work.
struct Pool
{
    ShortLock lock;

    // Guarded by the lock.
    std::vector<TransferRequest *> chunks;
    TransferRequest * firstFree = nullptr;
    unsigned outstanding = 0;
    unsigned limit = defaultRequestLimit;
    File * firstReady = nullptr;
    File * lastReady = nullptr;
    bool isHeld = false;
    unsigned workers = 0;
    unsigned looking = 0;
    unsigned sleeping = 0;
    unsigned working = 0;
    unsigned blocks = 0;
    unsigned spareCount = 0;
    std::unique_ptr<char[]> spareBlocks[mostSpareBlocks];
    /// Groups of writes that are not complete.
    unsigned openGroups = 0;
    /// The thread that ends the process: no other one begins requests any more. 0 as long as there is none.
    pid_t endingThread = 0;

    /// Held while the ends of requests are made seen and while a file is let go: a fork finds that wholly done or not
    /// begun. Taken behind the lock, where both are.
    ShortLock ending;
    /// The files that the workers are at. Set under the lock, cleared under `ending`.
    Ref<File> running[maxWorkers];

    // Each in a cache line of its own: some look at these all the time, who would slow down those that change the rest.

    /// Whether there is something for a worker to take; a hint for those who look without the lock.
    alignas(cacheLine) std::atomic<bool> hasReady{false};
    /// How many wait for the end of something, so that the workers let no writes gather.
    alignas(cacheLine) std::atomic<unsigned> waiting{0};
    /// Changes after requests have finished.
    alignas(cacheLine) std::atomic<std::uint32_t> finished{0};
    /// How many sleeping workers are to wake up.
    alignas(cacheLine) std::atomic<int> wakeTickets{0};
    /// Changes when blocks are free again.
    std::atomic<int> blocksFreed{0};
};

Pool & ThePool() noexcept;

/// Waits until `isDone()`, which some request's end makes true. No writes gather meanwhile. The lock is not held.
template <class Condition>
void AwaitEnds(Pool & pool, Condition isDone) noexcept
{
    if (isDone())
    {
        return;
    }
    pool.waiting.fetch_add(1, std::memory_order_relaxed);
    for (;;)
    {
        std::uint32_t const seen = pool.finished.load(std::memory_order_seq_cst);
        if (isDone())
        {
            break;
        }
        pool.finished.wait(seen, std::memory_order_seq_cst);
    }
    pool.waiting.fetch_sub(1, std::memory_order_relaxed);
}

/// Keeps the calling thread for good if another one ends the process, unless it is in the middle of a group of writes.
/// The lock is held before and after.
void StayOutOfEnd(Pool & pool, std::unique_lock<ShortLock> & guard) noexcept;

/// A record for a new request, or null without memory. The lock is held, as for all that follow but `Finish`.
TransferRequest * TakeRecord(Pool & pool) noexcept;
void GiveBack(Pool & pool, TransferRequest & request) noexcept;

/// Records that are linked by `nextInFile` and nobody's.
struct FinishedRecords
{
    TransferRequest * first = nullptr;
    TransferRequest * last = nullptr;
    unsigned count = 0;
};
/// The same for all of them at once, and for the memory of those that are blocks.
void GiveBackAll(Pool & pool, FinishedRecords const & records) noexcept;

/// Makes the ends of requests for one file seen, which are linked by `nextInFile`. Of those without a routine nothing
/// is left but the record; the others go to their threads, which free the record. Gives the records to free. The lock
/// is not held.
FinishedRecords Finish(File & file, TransferRequest * first) noexcept;

} // namespace kv::platform
