#pragma once

// Calls that are given a bad pointer where they want a good one.

#include <functional>
#include <ostream>
#include <vector>

namespace kv::test
{

/// An address that converts to whatever a call wants.
struct Pointer
{
    void * address;

    template <typename T>
    operator T *() const
    {
        return static_cast<T *>(address);
    }
    template <typename T>
    T & As() const
    {
        return *static_cast<T *>(address);
    }
};
using Pointers = std::vector<Pointer>;

/// One call with the pointers that make it work, which `make` gets in this order; what it returns says whether it has.
struct PointerCall
{
    char const * name;
    Pointers good;
    std::function<bool(Pointers const & pointers)> make;
};

/// What became of a call: it returned what it returns when it works, it returned something else, or it faulted.
enum class Outcome
{
    Worked,
    Refused,
    Faulted,
};

/// Makes the call in a scope that catches faults.
Outcome MakeInScope(PointerCall const & call, Pointers const & pointers);

/// Makes the call on a thread of its own. False if it is not done in time, as where a lock was left behind: the thread
/// is left alone then.
bool WorksOnAnotherThread(PointerCall const & call);

/// Addresses at which there is nothing to read, and one that cannot be written.
std::vector<Pointer> BadPointers();

/// How many descriptors the process has open.
std::size_t OpenDescriptors();

/// Gives each of the call's pointers each bad address in turn; so many of them must keep it from working. Then expects
/// the call to work on another thread, with nothing left open.
void ExpectSurvivesBadPointers(PointerCall const & call, std::size_t leastFailures = 2);

inline std::ostream & operator<<(std::ostream & out, PointerCall const & call)
{
    return out << call.name;
}

} // namespace kv::test
