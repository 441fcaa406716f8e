#pragma once

#include <condition_variable>
#include <mutex>

/// Counts signals that one thread gives and another awaits. (The standard semaphores lose some with MinGW.)
class Signals
{
public:
    void Give()
    {
        std::lock_guard const guard(lock);
        ++given;
        changed.notify_all();
    }
    void Await(int count = 1)
    {
        std::unique_lock guard(lock);
        changed.wait(guard, [&] { return given >= count; });
        given -= count;
    }
    /// Whether there is one that nobody has awaited.
    bool IsGiven()
    {
        std::lock_guard const guard(lock);
        return given > 0;
    }

private:
    std::mutex lock;
    std::condition_variable changed;
    int given = 0;
};
