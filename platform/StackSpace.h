#pragma once

// How much stack the calling thread has left. Code that recurses as deep as its input says asks before it goes on.

#include <cstddef>

#include <kvcore/platform/export.h>

namespace kv::platform
{

/// The bytes between the caller's frame and the end of the calling thread's stack. The answer is an upper bound: guard
/// pages lie within it, so keep a good margin. On a stack that is not the thread's own (a coroutine's, a signal's)
/// nothing is known, and the answer is the largest `std::size_t`. Cheap enough for every object of a graph. Any thread.
KVCORE_API std::size_t StackBytesLeft();

} // namespace kv::platform
