#pragma once

#include <cstddef>

namespace kv::test
{

/// What this program's own code holds of the heap, and the most that it held since ResetHeapPeak. Signed: where each
/// module has its own allocation functions, a block may be counted at one end of its life alone.
std::ptrdiff_t HeapHeld();
std::ptrdiff_t HeapPeak();
void ResetHeapPeak();

} // namespace kv::test
