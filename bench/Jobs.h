#pragma once

// How a benchmark of this folder is written.
//
// A job is a piece of work that several contestants do on the same input: this library as "ours", and one or more
// peers. The benchmark's name is Job/variant/contestant, and the report divides the peers' times by ours. A source file
// adds its jobs in a function that it names to a `bench::Source`; the function first requires that all contestants come
// to the same result, because a ratio between different results says nothing.

#include <cstddef>
#include <cstdlib>
#include <functional>
#include <iostream>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include <benchmark/benchmark.h>

#include <kvcore/platform/types.h>
#include <kvcore/streams/Streams.h>

namespace bench
{

/// The functions that add jobs, in no particular order.
inline std::vector<void (*)()> & Sources()
{
    static std::vector<void (*)()> sources;
    return sources;
}

/// A file-level object of this type makes main() call `addJobs`.
struct Source
{
    explicit Source(void (*addJobs)())
    {
        Sources().push_back(addJobs);
    }
};

/// Ends the program if contestants of `job` differ in what they did.
inline void Require(bool agree, std::string const & job)
{
    if (!agree)
    {
        std::cerr << "The contestants of " << job << " come to different results.\n";
        std::exit(1);
    }
}

/// Adds a contestant. `work` does the whole job once, on `bytes` bytes of input.
template <class Work>
void Add(std::string const & name, std::size_t bytes, Work work)
{
    benchmark::RegisterBenchmark(
        name.c_str(),
        [bytes, work](benchmark::State & state) mutable
        {
            for (auto _ : state)
            {
                work();
            }
            state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) * static_cast<std::int64_t>(bytes));
        });
}

/// Adds a contestant whose work is long and all done by the calling thread, whose processor time is what counts: each
/// repetition does it once. `prepare` runs before it and is not timed: what is dear to set up is not set up for other
/// jobs.
template <class Prepare, class Work>
benchmark::internal::Benchmark * AddOnce(std::string const & name, std::size_t bytes, Prepare prepare, Work work)
{
    return benchmark::RegisterBenchmark(
               name.c_str(),
               [bytes, prepare, work](benchmark::State & state) mutable
               {
                   prepare();
                   for (auto _ : state)
                   {
                       work();
                   }
                   state.SetBytesProcessed(
                       static_cast<std::int64_t>(state.iterations()) * static_cast<std::int64_t>(bytes));
               })
        ->Iterations(1);
}

/// The same for work of which other threads or the system do a part: the clock on the wall is what counts.
template <class Prepare, class Work>
void AddLong(std::string const & name, std::size_t bytes, Prepare prepare, Work work)
{
    AddOnce(name, bytes, prepare, work)->UseRealTime();
}

/// Adds a contestant of which only a part counts: `work` does the whole job and returns the seconds of that part.
template <class Work>
void AddTimed(std::string const & name, Work work)
{
    benchmark::RegisterBenchmark(
        name.c_str(),
        [work](benchmark::State & state) mutable
        {
            for (auto _ : state)
            {
                state.SetIterationTime(work());
            }
        })
        ->Iterations(1)
        ->UseManualTime();
}

/// A source of numbers that is the same on every machine and in every run.
inline std::mt19937_64 Random(std::uint64_t seed = 20)
{
    return std::mt19937_64(seed);
}

/// Bytes that do not compress.
inline std::string RandomBytes(std::size_t size)
{
    auto random = Random(size);
    std::string bytes(size, '\0');
    for (char & byte : bytes)
    {
        byte = static_cast<char>(random());
    }
    return bytes;
}

/// Text and records mixed, as a project file holds them: compresses to roughly a third.
inline std::string MixedBytes(std::size_t size)
{
    auto random = Random(size);
    std::vector<std::string> words(2000);
    for (std::string & word : words)
    {
        for (std::size_t length = 2 + random() % 9; length != 0; --length)
        {
            word += static_cast<char>('a' + random() % 26);
        }
    }
    std::string bytes;
    while (bytes.size() < size)
    {
        if (random() % 8 == 0)
        {
            std::uint32_t const record[] = {0x00000A1F, static_cast<std::uint32_t>(random() % 5000), 0, 25, 1};
            bytes.append(reinterpret_cast<char const *>(record), sizeof(record));
        }
        else
        {
            // The smaller of two draws: some words are far more frequent than others.
            bytes += words[std::min(random() % words.size(), random() % words.size())];
            bytes += ' ';
        }
    }
    bytes.resize(size);
    return bytes;
}

/// The end of a chain that costs nothing: counts what arrives, and has the optimiser believe that it is read.
class CountingSink : public OutputStream
{
public:
    CountingSink() : OutputStream(nullptr) {}

    void Write(char const * data, int size) override
    {
        benchmark::DoNotOptimize(data);
        count += static_cast<std::size_t>(size);
    }

    std::size_t count = 0;
};

/// Writes `data` in the pieces in which a copying program writes.
inline void WriteInPieces(OutputStream & stream, std::string const & data, std::size_t piece = 0x10000)
{
    for (std::size_t at = 0; at < data.size(); at += piece)
    {
        stream.Write(data.data() + at, static_cast<int>(std::min(piece, data.size() - at)));
    }
}

/// Fills `data` by reads of the same pieces.
inline void ReadInPieces(InputStream & stream, std::string & data, std::size_t piece = 0x10000)
{
    for (std::size_t at = 0; at < data.size(); at += piece)
    {
        stream.Read(data.data() + at, static_cast<int>(std::min(piece, data.size() - at)));
    }
}

} // namespace bench
