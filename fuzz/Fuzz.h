#pragma once

// What the fuzz targets share: taking an input apart, and reporting a finding.
//
// A target has one function, LLVMFuzzerTestOneInput. The sanitizers find what no program may do; beyond that each
// target states what must hold for every input, mostly by doing the same work a second time in the simplest way.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

#include <kvcore/platform/types.h>

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const * data, std::size_t size);

namespace fuzz
{

/// Ends the run with a finding unless `holds`.
inline void Check(bool holds, char const * what)
{
    if (!holds)
    {
        std::fprintf(stderr, "FINDING: %s\n", what);
        std::abort();
    }
}

/// The input, taken from its front. Beyond the end everything is zero.
class Input
{
public:
    Input(std::uint8_t const * data, std::size_t size) : next(data), left(size) {}

    std::uint8_t Byte()
    {
        std::uint8_t byte = 0;
        Take(&byte, 1);
        return byte;
    }
    std::uint16_t Word()
    {
        std::uint16_t word = 0;
        Take(&word, 2);
        return word;
    }
    std::uint32_t DWord()
    {
        std::uint32_t word = 0;
        Take(&word, 4);
        return word;
    }

    bool AtEnd() const
    {
        return left == 0;
    }

    /// All that is left, as bytes.
    std::string Rest()
    {
        std::string rest(reinterpret_cast<char const *>(next), left);
        left = 0;
        return rest;
    }

    /// All that is left, as UTF-16 units; an odd last byte is dropped.
    WString RestWide()
    {
        WString rest(left / 2, 0);
        std::memcpy(rest.data(), next, rest.size() * 2);
        left = 0;
        return rest;
    }

private:
    void Take(void * target, std::size_t size)
    {
        size = size < left ? size : left;
        std::memcpy(target, next, size);
        next += size;
        left -= size;
    }

    std::uint8_t const * next;
    std::size_t left;
};

/// Memory of exactly `size` elements, so that the sanitizer sees the first one beyond it.
template <class T>
class Exact
{
public:
    explicit Exact(std::size_t size) : count(size), elements(new T[size]()) {}
    Exact(T const * source, std::size_t size) : Exact(size)
    {
        std::copy(source, source + size, elements.get());
    }

    T * Data() const
    {
        return elements.get();
    }
    std::size_t Size() const
    {
        return count;
    }

private:
    std::size_t count;
    std::unique_ptr<T[]> elements;
};

} // namespace fuzz
