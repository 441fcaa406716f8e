#pragma once

// Where the calling thread's stack lies.

#include <cstddef>
#include <cstdint>

namespace kv::platform
{

struct StackBounds
{
    std::uintptr_t low;  // with the guard pages
    std::uintptr_t high; // 0 until it was asked for
    std::size_t guard;   // the guard pages' size
    /// Bytes above the guard pages that are kept back from the thread, for what has to run when it has used up the
    /// rest.
    std::size_t reserve;
};

/// The calling thread's, for it alone to change. In the block that every thread is born with: the general way to a
/// library's thread-locals costs more than the answer, and is not for signal handlers.
extern constinit thread_local StackBounds stackBounds [[gnu::tls_model("initial-exec")]];

/// Fills in the calling thread's, if they are not yet. Not for signal handlers.
void MeasureStack() noexcept;

} // namespace kv::platform
