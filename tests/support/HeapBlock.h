#pragma once

#include <cstddef>
#include <malloc.h>

namespace kv::test
{

/// How large a block of `malloc` is. The C libraries have a function each for it.
inline std::size_t HeapBlockSize(void * block)
{
#ifdef _WIN32
    return _msize(block);
#else
    return malloc_usable_size(block);
#endif
}

} // namespace kv::test
