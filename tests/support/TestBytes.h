#pragma once

#include <algorithm>
#include <cstdint>
#include <random>
#include <string>

namespace kv::test
{

/// `size` bytes without a pattern, the same ones for the same seed on every machine.
inline std::string RandomBytes(std::size_t size, unsigned int seed = 1)
{
    std::mt19937 random(seed);
    std::string bytes(size, '\0');
    for (char & byte : bytes)
    {
        byte = static_cast<char>(random() >> 24);
    }
    return bytes;
}

/// Calls action(offset, size) for pieces of 0 to `most` bytes, which together make `total`.
template <typename Action>
void InRandomPieces(std::size_t total, int most, unsigned int seed, Action action)
{
    std::mt19937 random(seed);
    for (std::size_t done = 0; done < total;)
    {
        std::size_t const size = std::min(total - done, static_cast<std::size_t>(random() % (unsigned(most) + 1)));
        action(done, static_cast<int>(size));
        done += size;
    }
}

/// Bytes written as a literal, embedded NULs included.
template <std::size_t size>
std::string Bytes(char const (&literal)[size])
{
    return std::string(literal, size - 1);
}

} // namespace kv::test
