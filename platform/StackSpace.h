#pragma once

// How much stack the calling thread has left. Code that recurses as deep as its input says asks before it goes on.

#include <cstddef>

#include <kvcore/platform/export.h>

namespace kv::platform
{

/// The bytes between the caller's frame and the end of what the calling thread may use of its stack: guard pages and
/// what is kept back for exceptions do not count. On a stack that is not the thread's own (a coroutine's, a signal's)
/// nothing is known, and the answer is the largest `std::size_t`. Cheap enough for every object of a graph. Any thread.
KVCORE_API std::size_t StackBytesLeft();

/// The bytes that the calling thread may use of its stack in all; on one that is not its own, the largest
/// `std::size_t`.
KVCORE_API std::size_t StackBytes();

} // namespace kv::platform
