#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace kv::detail
{

template <typename Word>
void CopyEnds(char * target, char const * source, std::size_t size)
{
    Word first;
    Word last;
    std::memcpy(&first, source, sizeof(Word));
    std::memcpy(&last, source + size - sizeof(Word), sizeof(Word));
    std::memcpy(target, &first, sizeof(Word));
    std::memcpy(target + size - sizeof(Word), &last, sizeof(Word));
}

/// memcpy for the path of single numbers, most of which are shorter than the way into the C library is long: a size up
/// to 16 is copied as its first and its last part, which may overlap.
inline void CopyBytes(char * target, char const * source, std::size_t size)
{
    if (size > 16)
    {
        std::memcpy(target, source, size);
    }
    else if (size >= 8)
    {
        CopyEnds<std::uint64_t>(target, source, size);
    }
    else if (size >= 4)
    {
        CopyEnds<std::uint32_t>(target, source, size);
    }
    else if (size >= 2)
    {
        CopyEnds<std::uint16_t>(target, source, size);
    }
    else if (size == 1)
    {
        *target = *source;
    }
}

} // namespace kv::detail
