// The asynchronous file stream: small writes in flight order beside a loop of pwrite, and reads with many outstanding
// beside io_uring used directly.

#include <chrono>
#include <string>
#include <vector>

#include <fcntl.h>
#include <liburing.h>
#include <unistd.h>

#include <kvcore/files/AsyncFileStream.h>

#include "Jobs.h"
#include "ScratchFolder.h"

namespace
{

using bench::ScratchFolder;
using Clock = std::chrono::steady_clock;

constexpr std::size_t writeSize = 512;
constexpr std::size_t readSize = 0x10000;
constexpr std::size_t depth = 32;

std::size_t WriteCount()
{
    return bench::Scaled(100'000, 20'000);
}

/// Seconds from the first call that writes to the end of the last one, and until all is written and closed.
struct WriteTimes
{
    double issuing;
    double whole;
};

double Seconds(Clock::time_point from, Clock::time_point to)
{
    return std::chrono::duration<double>(to - from).count();
}

WriteTimes WriteOurs(std::string const & name, std::string const & data)
{
    BasicAsyncFileStream stream(
        ScratchFolder::Name(name), FileAccessMode(0x40000000u), FileShareMode(0), FileCreationMode(2),
        FileAttributes(0x80));
    Clock::time_point const start = Clock::now();
    for (std::size_t at = 0; at < data.size(); at += writeSize)
    {
        stream.WriteAsync(data.data() + at, writeSize);
    }
    Clock::time_point const issued = Clock::now();
    stream.Close();
    return {Seconds(start, issued), Seconds(start, Clock::now())};
}

WriteTimes WritePwrite(std::string const & name, std::string const & data)
{
    int const file =
        open((ScratchFolder::Path() / name).c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, S_IRUSR | S_IWUSR);
    bool complete = true;
    Clock::time_point const start = Clock::now();
    for (std::size_t at = 0; at < data.size(); at += writeSize)
    {
        complete &= pwrite(file, data.data() + at, writeSize, static_cast<off_t>(at)) == ssize_t(writeSize);
    }
    Clock::time_point const issued = Clock::now();
    close(file);
    Clock::time_point const closed = Clock::now();
    bench::Require(complete, "AsyncWrite");
    return {Seconds(start, issued), Seconds(start, closed)};
}

std::string Content(std::string const & name)
{
    std::ifstream file(ScratchFolder::Path() / name, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(file), {});
}

void AddWrites()
{
    std::string const data = bench::RandomBytes(WriteCount() * writeSize);
    auto const ours = [=]
    {
        WriteTimes const times = WriteOurs("async", data);
        bench::Require(Content("async") == data, "AsyncWrite");
        std::filesystem::remove(ScratchFolder::Path() / "async");
        return times;
    };
    auto const peer = [=]
    {
        WriteTimes const times = WritePwrite("pwrite", data);
        std::filesystem::remove(ScratchFolder::Path() / "pwrite");
        return times;
    };
    bench::AddTimed("AsyncWrite/until-closed/ours", [=] { return ours().whole; });
    bench::AddTimed("AsyncWrite/until-closed/pwrite", [=] { return peer().whole; });
    bench::AddTimed("AsyncWrite/inside-the-calls/ours", [=] { return ours().issuing; });
    bench::AddTimed("AsyncWrite/inside-the-calls/pwrite", [=] { return peer().issuing; });
}

/// Both readers add up the first bytes of all blocks, so that they have read the same.
unsigned ReadOurs(String const & path, std::size_t total)
{
    BasicAsyncFileStream stream(
        path, FileAccessMode(0x80000000u), FileShareMode(1), FileCreationMode(3), FileAttributes(0x80));
    std::vector<std::vector<char>> blocks(depth, std::vector<char>(readSize));
    std::vector<BasicAsyncFileStream::HASYNC> requests(depth);
    unsigned sum = 0;
    std::size_t const count = total / readSize;
    for (std::size_t i = 0; i < count + depth; ++i)
    {
        std::size_t const slot = i % depth;
        if (i >= depth)
        {
            stream.Wait(requests[slot]);
            sum += static_cast<unsigned char>(blocks[slot][0]);
        }
        if (i < count)
        {
            requests[slot] = stream.ReadAsyncEx(blocks[slot].data(), readSize);
        }
    }
    return sum;
}

unsigned ReadUring(std::filesystem::path const & path, std::size_t total)
{
    int const file = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    io_uring ring;
    bench::Require(io_uring_queue_init(depth, &ring, 0) == 0, "AsyncRead");
    std::vector<std::vector<char>> blocks(depth, std::vector<char>(readSize));
    std::size_t const count = total / readSize;
    std::size_t next = 0;
    bool complete = true;
    auto const issue = [&](std::size_t slot)
    {
        io_uring_sqe * const request = io_uring_get_sqe(&ring);
        io_uring_prep_read(request, file, blocks[slot].data(), readSize, next++ * readSize);
        io_uring_sqe_set_data64(request, slot);
    };
    for (std::size_t slot = 0; slot < depth && next < count; ++slot)
    {
        issue(slot);
    }
    unsigned sum = 0;
    for (std::size_t done = 0; done < count; ++done)
    {
        io_uring_submit(&ring);
        io_uring_cqe * result;
        complete &= io_uring_wait_cqe(&ring, &result) == 0 && result->res == int(readSize);
        std::size_t const slot = io_uring_cqe_get_data64(result);
        io_uring_cqe_seen(&ring, result);
        sum += static_cast<unsigned char>(blocks[slot][0]);
        if (next < count)
        {
            issue(slot);
        }
    }
    io_uring_queue_exit(&ring);
    close(file);
    bench::Require(complete, "AsyncRead");
    return sum;
}

unsigned ReadPread(std::filesystem::path const & path, std::size_t total)
{
    int const file = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    std::vector<char> block(readSize);
    bool complete = true;
    unsigned sum = 0;
    for (std::size_t at = 0; at < total; at += readSize)
    {
        complete &= pread(file, block.data(), readSize, static_cast<off_t>(at)) == ssize_t(readSize);
        sum += static_cast<unsigned char>(block[0]);
    }
    close(file);
    return sum;
}

/// Containers often forbid it.
bool HasUring()
{
    io_uring ring;
    if (io_uring_queue_init(depth, &ring, 0) != 0)
    {
        return false;
    }
    io_uring_queue_exit(&ring);
    return true;
}

std::size_t ReadTotal()
{
    return bench::Scaled(std::size_t(1) << 28, std::size_t(1) << 26);
}

/// The file that is read, in the system's memory; and one look whether all read the same.
void PrepareReads()
{
    std::filesystem::path const path = ScratchFolder::Path() / "blocks";
    if (!std::filesystem::exists(path))
    {
        std::ofstream(path, std::ios::binary) << bench::RandomBytes(ReadTotal());
    }
    unsigned const expected = ReadPread(path, ReadTotal());
    bench::Require(ReadOurs(ScratchFolder::Name("blocks"), ReadTotal()) == expected, "AsyncRead");
    bench::Require(!HasUring() || ReadUring(path, ReadTotal()) == expected, "AsyncRead");
}

void AddReads()
{
    std::size_t const total = ReadTotal();
    auto const ours = [=] { benchmark::DoNotOptimize(ReadOurs(ScratchFolder::Name("blocks"), total)); };
    bench::AddLong("AsyncRead/64KiB-32-outstanding/ours", total, PrepareReads, ours);
    if (HasUring())
    {
        bench::AddLong(
            "AsyncRead/64KiB-32-outstanding/io_uring", total, PrepareReads,
            [=] { benchmark::DoNotOptimize(ReadUring(ScratchFolder::Path() / "blocks", total)); });
    }
    // Without goal: one call after the other needs no thread at all.
    bench::AddLong("AsyncRead/64KiB-beside-one-by-one/ours", total, PrepareReads, ours);
    bench::AddLong(
        "AsyncRead/64KiB-beside-one-by-one/pread", total, PrepareReads,
        [=] { benchmark::DoNotOptimize(ReadPread(ScratchFolder::Path() / "blocks", total)); });
}

void AddJobs()
{
    AddWrites();
    AddReads();
}

bench::Source const source(AddJobs);

} // namespace
