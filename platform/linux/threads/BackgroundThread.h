#pragma once

// The threads that this layer makes for itself.

#include <kvcore/platform/include/processthreadsapi.h>
#include <kvcore/platform/linux/sync/Thread.h>

namespace kv::platform
{

/// Starts a thread that no signal is delivered to but those of its own faults: signals are for the program's threads.
/// Empty on failure, with the last error set.
Ref<Thread> StartBackgroundThread(LPTHREAD_START_ROUTINE procedure, void * argument) noexcept;

} // namespace kv::platform
