#pragma once

#include <kvcore/platform/export.h>
#include <kvcore/platform/types.h>

namespace kv::detail
{

/// A critical section as a member: a lock that its holder may take again, as a completion routine does that runs on a
/// thread in the middle of issuing.
class KVCORE_API RecursiveLock
{
public:
    RecursiveLock();
    RecursiveLock(RecursiveLock const &) = delete;
    RecursiveLock & operator=(RecursiveLock const &) = delete;
    ~RecursiveLock();

    // The names that std::lock_guard wants.
    void lock();
    void unlock();

private:
    CRITICAL_SECTION section;
};

} // namespace kv::detail
