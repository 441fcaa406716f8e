#include "FileQueues.h"

#include <utility>

namespace kv::platform
{

namespace
{

constexpr std::size_t largestRun = std::size_t{1} << 20;
constexpr unsigned longestReadRun = 8;
constexpr std::size_t largestReadRun = std::size_t{128} << 10;

} // namespace

bool MakeReady(Pool & pool, File & file)
{
    RequestQueue & queue = file.requests;
    bool const canBegin =
        queue.first != nullptr && !queue.writeRunning && (!queue.first->writing || queue.readsRunning == 0);
    if (!canBegin || queue.isReady)
    {
        return false;
    }
    queue.isReady = true;
    queue.nextReady = nullptr;
    (pool.lastReady != nullptr ? pool.lastReady->requests.nextReady : pool.firstReady) = &file;
    pool.lastReady = &file;
    pool.hasReady.store(!pool.isHeld, std::memory_order_release);
    return true;
}

void MakeUnready(Pool & pool, File & file)
{
    if (!file.requests.isReady)
    {
        return;
    }
    File * previous = nullptr;
    for (File * at = pool.firstReady; at != &file; at = at->requests.nextReady)
    {
        previous = at;
    }
    (previous != nullptr ? previous->requests.nextReady : pool.firstReady) = file.requests.nextReady;
    if (pool.lastReady == &file)
    {
        pool.lastReady = previous;
    }
    file.requests.isReady = false;
    pool.hasReady.store(pool.firstReady != nullptr && !pool.isHeld, std::memory_order_relaxed);
}

File * TakeReady(Pool & pool)
{
    File * const file = pool.isHeld ? nullptr : pool.firstReady;
    if (file != nullptr)
    {
        pool.firstReady = file->requests.nextReady;
        if (pool.firstReady == nullptr)
        {
            pool.lastReady = nullptr;
            pool.hasReady.store(false, std::memory_order_relaxed);
        }
        file->requests.isReady = false;
    }
    return file;
}

void LinkToThread(TransferRequest & request)
{
    TransferRequest *& first = request.thread->firstQueued;
    request.previousInThread = nullptr;
    request.nextInThread = first;
    if (first != nullptr)
    {
        first->previousInThread = &request;
    }
    first = &request;
}

void UnlinkFromThread(TransferRequest & request)
{
    TransferRequest *& fromBefore =
        request.previousInThread != nullptr ? request.previousInThread->nextInThread : request.thread->firstQueued;
    fromBefore = request.nextInThread;
    if (request.nextInThread != nullptr)
    {
        request.nextInThread->previousInThread = request.previousInThread;
    }
}

namespace
{

/// Whether a request can go to the kernel together with the run that it would stand behind. Of writes behind
/// there are runs apart.
bool Continues(TransferRequest const & run, TransferRequest const & last, TransferRequest const & next)
{
    unsigned const longest = run.writing ? longestRun : longestReadRun;
    std::size_t const largest = run.writing ? largestRun : largestReadRun;
    bool const fits = next.writing == run.writing && next.isBehind == run.isBehind && run.runLength < longest &&
        run.runBytes + next.count <= largest;
    bool const isPlaced = last.place != appending && next.place != appending;
    return fits && (!run.writing || (isPlaced && next.place == last.place + last.count));
}

} // namespace

void Append(RequestQueue & queue, TransferRequest & request)
{
    request.nextInFile = nullptr;
    if (queue.first != nullptr && Continues(*queue.lastRun, *queue.last, request))
    {
        ++queue.lastRun->runLength;
        queue.lastRun->runBytes += request.count;
        queue.lastRun->runLast = &request;
    }
    else
    {
        request.runLength = 1;
        request.runBytes = request.count;
        request.runLast = &request;
        queue.lastRun = &request;
    }
    (queue.first != nullptr ? queue.last->nextInFile : queue.first) = &request;
    queue.last = &request;
}

Run TakeRun(File & file)
{
    RequestQueue & queue = file.requests;
    Run const run{queue.first, queue.first->runLength, queue.first->writing};
    TransferRequest * const last = run.first->runLast;
    queue.first = std::exchange(last->nextInFile, nullptr);
    if (!run.first->isBehind)
    {
        for (TransferRequest * request = run.first; request != nullptr; request = request->nextInFile)
        {
            UnlinkFromThread(*request);
        }
    }
    run.writing ? void(queue.writeRunning = true) : void(++queue.readsRunning);
    return run;
}

} // namespace kv::platform
