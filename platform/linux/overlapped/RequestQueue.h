#pragma once

// The overlapped requests for one file.

#include <atomic>
#include <cstddef>

namespace kv::platform
{

struct TransferRequest;
class File;

/// Part of every file object. `pending` and `behind` count what is not finished; the rest is guarded by the request
/// pool's lock.
struct RequestQueue
{
    std::atomic<unsigned> pending{0};
    /// Those of them that are blocks of writes behind.
    std::atomic<unsigned> behind{0};

    /// Those that have not begun, oldest first: run by run, each of what can be done together. The others mean nothing
    /// where there is no first.
    TransferRequest * first = nullptr;
    TransferRequest * last = nullptr;
    TransferRequest * lastRun = nullptr;

    /// What the workers do with this file now: any number of reads, or one run of writes.
    unsigned readsRunning = 0;
    bool writeRunning = false;

    /// The bytes of writes behind that are not done.
    std::size_t bytesBehind = 0;

    /// In the pool's list of files with something to begin.
    bool isReady = false;
    File * nextReady = nullptr;
};

} // namespace kv::platform
