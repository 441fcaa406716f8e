#pragma once

// What keeps evaluations of libxml2 and libxslt within bounds: they look at a count of operations here and there, and
// end when it has reached its limit. Time and memory are kept within bounds by moving that count.

#include <array>
#include <chrono>
#include <cstddef>
#include <ctime>

namespace kv::platform
{

/// The counts of an evaluation. Stop is safe in a signal handler.
class StopSwitch
{
public:
    struct Count
    {
        unsigned long * operations;
        unsigned long limit;
    };
    explicit StopSwitch(Count first) : StopSwitch(first, Count()) {}
    StopSwitch(Count first, Count second) : counts{first, second} {}

    void Stop() const noexcept
    {
        for (Count const & count : counts)
        {
            if (count.operations != nullptr)
            {
                *const_cast<unsigned long volatile *>(count.operations) = count.limit;
            }
        }
    }

private:
    std::array<Count, 2> counts;
};

/// While it lives, stops the calling thread's evaluation once it has used this much of the processor. Where the process
/// uses the signal that this takes, there is no limit of time.
class TimeLimit
{
public:
    TimeLimit(std::chrono::seconds most, StopSwitch const & newSwitch);
    TimeLimit(TimeLimit const &) = delete;
    TimeLimit & operator=(TimeLimit const &) = delete;
    ~TimeLimit();

    bool WasReached() const noexcept;

private:
    StopSwitch const & stop;
    TimeLimit * const outer;
    bool volatile reached = false;
    bool armed = false;
    timer_t timer{};

    friend void StopAtTime(int);
};

/// While it lives, adds up what the libraries allocate on this thread. Above the limit that is then set, the evaluation
/// is stopped; what would go far beyond it is refused.
class MemoryLimit
{
public:
    MemoryLimit();
    MemoryLimit(MemoryLimit const &) = delete;
    MemoryLimit & operator=(MemoryLimit const &) = delete;
    ~MemoryLimit();

    /// What is held now.
    std::size_t Held() const noexcept
    {
        return held > 0 ? static_cast<std::size_t>(held) : 0;
    }
    void Set(std::size_t most, StopSwitch const & newSwitch) noexcept;
    bool WasReached() const noexcept
    {
        return reached;
    }

    // Called by what allocates.
    bool Allows(std::size_t size) const noexcept;
    void Add(std::ptrdiff_t size) noexcept;

private:
    MemoryLimit * const outer;
    StopSwitch const * stop = nullptr;
    std::ptrdiff_t held = 0;
    std::ptrdiff_t limit = 0; ///< 0 for none yet
    std::size_t moved = 0;    ///< all that was allocated, which is a measure of time
    bool reached = false;
};

/// Makes the libraries allocate through here, unless the program has given them an allocator of its own. Once.
void InstallAllocator();

} // namespace kv::platform
