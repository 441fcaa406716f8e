#pragma once

// What the requests of the process have in common: their records, and who is carrying some out.

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <vector>

#include "RequestPool.h"

namespace kv::platform
{

constexpr unsigned defaultRequestLimit = 131072;
constexpr unsigned maxWorkers = 2;

/// Lives for ever, and so do the workers: the process may end while they work.
struct Pool
{
    std::mutex lock;

    // Guarded by the lock.
    std::condition_variable wakeUp;
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
    unsigned wakeTickets = 0;

    /// Held while the ends of requests are made seen and while a file is let go: a fork finds that wholly done or not
    /// begun. Taken behind the lock, where both are.
    std::mutex ending;
    /// The files that the workers are at. Set under the lock, cleared under `ending`.
    Ref<File> running[maxWorkers];

    /// Whether there is something for a worker to take; a hint for those who look without the lock.
    std::atomic<bool> hasReady{false};
    /// Whether somebody waits, so that the workers let no writes gather.
    std::atomic<bool> isHurried{false};
    /// Writes whose bytes were taken over and are not done.
    std::atomic<unsigned> taken{0};
    /// Changes after requests have finished.
    std::atomic<std::uint32_t> finished{0};
};

Pool & ThePool() noexcept;

/// A record for a new request, or null if there may be no more. The lock is held, as for all that follow but `Finish`.
TransferRequest * TakeRecord(Pool & pool) noexcept;
void GiveBack(Pool & pool, TransferRequest & request) noexcept;

/// Records that are linked by `nextInFile` and nobody's.
struct FinishedRecords
{
    TransferRequest * first = nullptr;
    TransferRequest * last = nullptr;
    unsigned count = 0;
};
/// The same for all of them at once.
void GiveBackAll(Pool & pool, FinishedRecords const & records) noexcept;

/// Makes the ends of requests for one file seen, which are linked by `nextInFile`. Of those without a routine nothing
/// is left but the record; the others go to their threads, which free the record. Gives the records to free. The lock
/// is not held.
FinishedRecords Finish(File & file, TransferRequest * first) noexcept;

} // namespace kv::platform
