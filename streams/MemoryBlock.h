#pragma once

#include <kvcore/platform/export.h>

class InputStream;
class OutputStream;

/// Bytes from malloc with one owner, as the interface of C code wants them.
///
/// Sizes are bytes. Memory that runs out, and a negative size, throw std::bad_alloc.
///
/// Threads: one block belongs to one thread at a time.
class KVCORE_API MemoryBlock
{
public:
    /// Null, size 0.
    MemoryBlock();
    /// `size` bytes, not cleared. A size of 0 gives null.
    explicit MemoryBlock(int size);
    /// `size` bytes, each of value `fill`. A size of 0 gives null.
    MemoryBlock(int size, char fill);
    /// A copy of the pointer would free the memory twice, and a copy of the bytes is too dear to happen unseen.
    MemoryBlock(MemoryBlock const &) = delete;
    MemoryBlock & operator=(MemoryBlock const &) = delete;
    /// Takes the memory over; `other` becomes empty.
    MemoryBlock(MemoryBlock && other) noexcept;
    MemoryBlock & operator=(MemoryBlock && other) noexcept;
    ~MemoryBlock();

    /// Changes the size. With `keep`, the bytes up to the lesser of both sizes stay, and a failure leaves the block as
    /// it was. Without it, the block is a new one, not cleared, also when the size stays the same: the old bytes are
    /// freed first, so that the two never stand beside each other; a failure leaves the block empty. A size of 0 frees
    /// the block and leaves null.
    void resize(int size, bool keep);

    /// The size in bytes.
    int size() const
    {
        return bytes;
    }

    /// The memory, null for an empty block.
    operator char *()
    {
        return memory;
    }
    operator char const *() const
    {
        return memory;
    }

private:
    char * memory;
    int bytes;
};

/// A MemoryBlock seen as an array of T, which must be a trivial type. It adds no data. Kept: its size stays in bytes,
/// in its constructors and in size(), as callers that share it with C code count.
template <typename T>
class MemoryArray : public MemoryBlock
{
public:
    using MemoryBlock::MemoryBlock;

    operator T *()
    {
        return reinterpret_cast<T *>(static_cast<char *>(static_cast<MemoryBlock &>(*this)));
    }
    operator T const *() const
    {
        return reinterpret_cast<T const *>(static_cast<char const *>(static_cast<MemoryBlock const &>(*this)));
    }

    /// The element at `index`, unchecked.
    T & operator[](int index)
    {
        return static_cast<T *>(*this)[index];
    }
    T const & operator[](int index) const
    {
        return static_cast<T const *>(*this)[index];
    }
};

template <>
class MemoryArray<char> : public MemoryBlock
{
public:
    using MemoryBlock::MemoryBlock;
};

/// The 32-bit size, then the bytes.
KVCORE_API OutputStream & operator<<(OutputStream & stream, MemoryBlock const & block);

/// Reads what `operator<<` wrote; the old content of `block` is lost. A negative size throws StreamBase::Exception with
/// code 3, "Invalid memory block size". Otherwise only memory limits the size, and memory is taken as the bytes arrive:
/// a size that the source does not back ends in the source's own failure. After a failure the block is valid, and
/// nothing more is promised about its size and bytes.
KVCORE_API InputStream & operator>>(InputStream & stream, MemoryBlock & block);
