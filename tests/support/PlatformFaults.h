#pragma once

#include <atomic>
#include <map>
#include <mutex>
#include <string>

#include <kvcore/platform/types.h>

namespace kv::test
{

/// Stands between the library and the system's file calls while it lives: counts the calls, and makes one of them fail.
///
/// The calls of CloseHandle are counted but always made: what the library does with a file that the system will not
/// close is nothing. One at a time; any thread may call meanwhile.
class PlatformFaults
{
public:
    /// Call number `failing`, from 1, fails with `error`; with 0 none does.
    explicit PlatformFaults(int failing = 0, DWORD error = 0);
    ~PlatformFaults();
    PlatformFaults(PlatformFaults const &) = delete;
    PlatformFaults & operator=(PlatformFaults const &) = delete;

    /// The call that was to fail has come.
    bool HasFailed() const;
    /// Calls of one function, by name.
    int Count(std::string const & name) const;
    /// Files and mappings that were opened and not closed.
    int OpenHandles() const;

    // For the calls themselves.

    /// Notes a call down; true if it is to fail, with the last error set.
    static bool Fails(char const * name);
    static void Opened();
    static void Closed();

private:
    int const failingCall;
    DWORD const failure;
    std::atomic<int> calls{0};
    std::atomic<int> open{0};
    std::atomic<bool> failed{false};
    mutable std::mutex namesMutex;
    std::map<std::string, int> names;
};

/// Puts the calls in their places; once, before the first of them. For each system in its own way.
void InstallPlatformFaults();

} // namespace kv::test
