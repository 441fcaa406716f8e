// Replaces the allocation functions of the test program by ones that count.

#include "AllocationCounter.h"

#include <support/HeapBlock.h>

#include <atomic>
#include <cstdlib>
#include <new>

namespace
{

std::atomic<std::ptrdiff_t> held = 0;
std::atomic<std::ptrdiff_t> peak = 0;

} // namespace

namespace kv::test
{

std::ptrdiff_t HeapHeld()
{
    return held;
}

std::ptrdiff_t HeapPeak()
{
    return peak;
}

void ResetHeapPeak()
{
    peak = held.load();
}

} // namespace kv::test

void * operator new(std::size_t size)
{
    void * const block = std::malloc(size > 0 ? size : 1);
    if (block == nullptr)
    {
        throw std::bad_alloc();
    }
    std::ptrdiff_t const now = held += static_cast<std::ptrdiff_t>(kv::test::HeapBlockSize(block));
    for (std::ptrdiff_t before = peak; now > before && !peak.compare_exchange_weak(before, now);)
    {
    }
    return block;
}

void * operator new(std::size_t size, std::nothrow_t const &) noexcept
{
    try
    {
        return operator new(size);
    }
    catch (std::bad_alloc const &)
    {
        return nullptr;
    }
}

void operator delete(void * block) noexcept
{
    if (block != nullptr)
    {
        held -= static_cast<std::ptrdiff_t>(kv::test::HeapBlockSize(block));
        std::free(block);
    }
}

void operator delete(void * block, std::size_t) noexcept
{
    operator delete(block);
}
