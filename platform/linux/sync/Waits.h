#pragma once

// The lock under which objects are signalled, and the signalling.

#include <mutex>

#include <kvcore/platform/linux/files/Handles.h>

namespace kv::platform
{

/// The wait functions' one lock. Lives for ever.
std::mutex & WaitLock() noexcept;

/// Ends the waits that can end, now that the object is signalled, oldest first. The lock is held.
void WakeWaiters(Waitable & object) noexcept;

/// The same for an object that is signalled by an atomic count of its own: takes the lock only if anybody waits at all.
void WakeWaitersIfAny(Waitable & object) noexcept;

/// In a forked child: ends the waits of the threads that the child does not have.
void ForgetWaits() noexcept;

} // namespace kv::platform
