#include <kvcore/platform/WriteBehind.h>

#include <algorithm>
#include <cstring>
#include <mutex>
#include <new>
#include <utility>

#include <kvcore/platform/include/memoryapi.h>
#include <kvcore/platform/linux/memory/Allocations.h>

#include "FileQueues.h"
#include "Workers.h"

// The bytes of writes that continue each other are gathered in a block, which stands in its file's queue like a
// request and is one for the worker. Whoever writes a line of a log so pays for a copy and a lock, and meets the worker
// once in hundreds of lines.

namespace kv::platform
{

namespace
{

/// Committed memory that a thread has written from. The same comes again and again: a log's ring, for instance.
struct KnownMemory
{
    std::uintptr_t begin;
    std::uintptr_t end;
    unsigned changes;
};
[[gnu::tls_model("initial-exec")]] constinit thread_local KnownMemory known = {0, 0, 0};

/// Finds the bytes in committed memory, which is known then.
[[gnu::noinline]] bool FindMemory(std::uintptr_t begin, std::size_t count, unsigned changes) noexcept
{
    Allocations & allocations = TheAllocations();
    std::lock_guard const guard(allocations.mutex);
    auto const allocation = FindAllocation(allocations, begin);
    if (allocation == allocations.byBase.end() || allocation->second.type != MEM_PRIVATE)
    {
        return false;
    }
    auto const & committed = allocation->second.committed;
    auto part = committed.upper_bound(begin);
    if (part == committed.begin() || (--part)->second < begin + count)
    {
        return false;
    }
    known = {part->first, part->second, changes};
    return true;
}

/// Whether the bytes lie in committed memory. A bad pointer elsewhere is for the kernel to find out.
bool CanBeCopied(void const * data, std::size_t count) noexcept
{
    std::uintptr_t const begin = reinterpret_cast<std::uintptr_t>(data);
    unsigned const changes = addressSpaceChanges.load(std::memory_order_acquire);
    bool const isKnown = changes == known.changes && begin >= known.begin && begin + count <= known.end;
    return isKnown || FindMemory(begin, count, changes);
}

/// Whether the file's last request is a block that has not begun and in which the write has its place.
bool HasRoom(RequestQueue const & queue, DWORD count, std::uint64_t place) noexcept
{
    if (queue.first == nullptr || !queue.last->isBehind)
    {
        return false;
    }
    TransferRequest const & block = *queue.last;
    bool const continues = block.place == appending ? place == appending : place == block.place + block.count;
    return continues && blockSize - block.count >= count;
}

/// As far ahead of the last write, a block's memory is fetched from the processor of the worker, who had it last. It is
/// far away, and the next lock would wait for it.
constexpr std::size_t fetchedAhead = 768;

void Fetch(char const * begin, std::size_t size) noexcept
{
#ifdef __x86_64__
    for (std::size_t at = 0; at < size; at += cacheLine)
    {
        asm volatile("prefetchw %0" : : "m"(begin[at]));
    }
#endif
}

std::unique_ptr<char[]> TakeBlock(Pool & pool) noexcept
{
    return pool.spareCount != 0 ? std::move(pool.spareBlocks[--pool.spareCount])
                                : std::unique_ptr<char[]>(new (std::nothrow) char[blockSize + fetchedAhead]);
}

/// Puts a new block behind the file's requests. False without memory.
[[gnu::noinline]] bool BeginBlock(Pool & pool, File & file, std::uint64_t place) noexcept
{
    TransferRequest * const request = EnsureWorkers(pool) ? TakeRecord(pool) : nullptr;
    if (request == nullptr)
    {
        return false;
    }
    if (request->block == nullptr && (request->block = TakeBlock(pool)) == nullptr)
    {
        GiveBack(pool, *request);
        return false;
    }
    request->file = Ref<File>(&file);
    request->thread = nullptr;
    request->overlapped = nullptr;
    request->routine = nullptr;
    request->buffer = request->block.get();
    Fetch(request->buffer, fetchedAhead);
    request->isBehind = true;
    request->place = place;
    request->count = 0;
    request->writing = true;
    request->error = ERROR_SUCCESS;
    request->done = 0;
    ++pool.blocks;
    file.requests.pending.fetch_add(1, std::memory_order_relaxed);
    file.requests.behind.fetch_add(1, std::memory_order_relaxed);
    Append(file.requests, *request);
    if (MakeReady(pool, file))
    {
        WakeWorker(pool);
    }
    return true;
}

void AddToLast(RequestQueue & queue, void const * data, DWORD count) noexcept
{
    TransferRequest & block = *queue.last;
    Fetch(block.buffer + block.count + fetchedAhead, count);
    // Not memcpy: g++ makes a string instruction of that where it knows that there are few bytes, which takes longer.
    std::memmove(block.buffer + block.count, data, count);
    block.count += count;
    queue.lastRun->runBytes += count;
    queue.bytesBehind += count;
}

} // namespace

WritesBehind::~WritesBehind()
{
    Detach();
}

void WritesBehind::Attach(HANDLE handle) noexcept
{
    Detach();
    auto const object = LookUp<File>(handle);
    bool const takesAny = object && object->type == FileType::Disk && object->IsOverlapped() &&
        (object.Access() & (FILE_WRITE_DATA | FILE_APPEND_DATA)) != 0;
    if (takesAny)
    {
        object->AddRef();
        file = object.Get();
        isAppending = (object.Access() & FILE_WRITE_DATA) == 0;
    }
}

void WritesBehind::Detach() noexcept
{
    if (file != nullptr)
    {
        static_cast<File *>(std::exchange(file, nullptr))->Release();
    }
}

bool WritesBehind::Write(void const * data, DWORD count, std::uint64_t place) noexcept
{
    bool const isSmall = count != 0 && count <= largestWriteBehind;
    if (file == nullptr || !isSmall || place >> 63 != 0 || !CanBeCopied(data, count))
    {
        return false;
    }
    File & target = *static_cast<File *>(file);
    std::uint64_t const wanted = isAppending ? appending : place;
    Pool & pool = ThePool();
    std::unique_lock guard(pool.lock);
    StayOutOfEnd(pool, guard);
    while (target.requests.bytesBehind + count > mostBytesBehind || !HasRoom(target.requests, count, wanted))
    {
        if (pool.blocks < mostBlocks && target.requests.bytesBehind + count <= mostBytesBehind)
        {
            if (!BeginBlock(pool, target, wanted))
            {
                return false;
            }
            break;
        }
        int const seen = pool.blocksFreed.load(std::memory_order_relaxed);
        guard.unlock();
        pool.blocksFreed.wait(seen, std::memory_order_relaxed);
        guard.lock();
        StayOutOfEnd(pool, guard);
    }
    AddToLast(target.requests, data, count);
    return true;
}

void WritesBehind::Await() const noexcept
{
    if (file != nullptr)
    {
        RequestQueue const & queue = static_cast<File const *>(file)->requests;
        AwaitEnds(ThePool(), [&queue] { return queue.behind.load(std::memory_order_seq_cst) == 0; });
    }
}

WriteGroup::WriteGroup() noexcept
{
    Pool & pool = ThePool();
    std::unique_lock guard(pool.lock);
    StayOutOfEnd(pool, guard);
    ++pool.openGroups;
    ++endShield.groups;
    DeferEnd();
}

WriteGroup::~WriteGroup()
{
    {
        Pool & pool = ThePool();
        std::lock_guard const guard(pool.lock);
        --pool.openGroups;
        --endShield.groups;
    }
    AllowEnd();
}

} // namespace kv::platform
