#pragma once

#include <cstddef>
#include <memory>
#include <new>

namespace kv::detail
{

/// Room for `T` elements that somebody else writes: `OnStack` of them in the object itself, more on the heap. Nothing
/// is cleared, because clearing costs as much as the conversions that write here.
template <typename T, std::size_t OnStack>
class ScratchBuffer
{
public:
    explicit ScratchBuffer(std::size_t count = OnStack)
    {
        Resize(count);
    }
    ScratchBuffer(ScratchBuffer const &) = delete;
    ScratchBuffer & operator=(ScratchBuffer const &) = delete;

    /// Makes room for `count` elements; what was there is lost. Throws std::bad_alloc.
    void Resize(std::size_t count)
    {
        if (count > OnStack && count > capacity)
        {
            heap.reset(new T[count]);
        }
        capacity = count > OnStack ? count : OnStack;
    }

    T * Data()
    {
        return capacity > OnStack ? heap.get() : onStack;
    }
    std::size_t Capacity() const
    {
        return capacity;
    }

private:
    T onStack[OnStack];
    std::unique_ptr<T[]> heap;
    std::size_t capacity = 0;
};

} // namespace kv::detail
