#pragma once

// A digest over many results, for tests that cover every value of a type: one number stands for the whole table.

#include <cstdint>

namespace kv::test
{

/// FNV-1a over little-endian values.
class Digest
{
public:
    void Add8(unsigned value)
    {
        state = (state ^ (value & 0xFF)) * 16777619u;
    }

    void Add16(unsigned value)
    {
        Add8(value);
        Add8(value >> 8);
    }

    std::uint32_t Value() const
    {
        return state;
    }

private:
    std::uint32_t state = 2166136261u;
};

/// The same numbers on every target and in every run.
class Numbers
{
public:
    explicit Numbers(std::uint32_t seed) : state(seed) {}

    /// Below `limit`.
    std::uint32_t Next(std::uint32_t limit)
    {
        state = state * 1664525u + 1013904223u;
        return (state >> 8) % limit;
    }

private:
    std::uint32_t state;
};

} // namespace kv::test
