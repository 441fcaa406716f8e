#pragma once

#include <climits>
#include <cstddef>
#include <string>
#include <vector>

#include <kvcore/platform/export.h>
#include <kvcore/streams/CopyBytes.h>

namespace kv::detail
{
struct MemoryBlockVectorProbe;
}

/// Append-only storage in a chain of chunks. What is stored never moves and is never copied again until toMemory or
/// toString asks for it, so it suits output whose size is not known beforehand.
///
/// A new chunk has 0x1000, 0x2000, 0x4000 or 0x8000 bytes, the least that holds what is left to store, or else 0x10000;
/// a long append fills chunks of that largest size one after the other. The total is at most 2^31 - 1 bytes.
///
/// Threads: none of its operations locks.
class KVCORE_API MemoryBlockVector
{
public:
    /// No chunks, size 0.
    MemoryBlockVector();
    /// A copy would have to be deep, which no user of this class wants; take toString.
    MemoryBlockVector(MemoryBlockVector const &) = delete;
    MemoryBlockVector & operator=(MemoryBlockVector const &) = delete;
    /// Frees all chunks.
    ~MemoryBlockVector();

    /// Stores `size` bytes behind what is there. A negative size stores nothing. Throws std::length_error, before
    /// anything is stored, if the total would exceed 2^31 - 1; throws std::bad_alloc if memory runs out: then a front
    /// part of the bytes may be stored, and the object remains usable.
    void append(char const * data, int size);

    /// The bytes stored.
    int size() const
    {
        return total;
    }

    /// Copies all bytes in order to `target`, which has room for size() bytes.
    void toMemory(char * target) const;

    /// All bytes as one string.
    std::string toString() const;

private:
    struct Chunk
    {
        int size; // the capacity
        char * data;
    };

    friend class MemoryOutputStream;
    friend struct kv::detail::MemoryBlockVectorProbe;

    // Serialized objects arrive in pieces of a few bytes each: this is all that such a piece costs. False if the bytes
    // need more than that.
    bool AppendToLastChunk(char const * data, int size)
    {
        if (size <= 0 || size >= free || size > INT_MAX - total)
        {
            return false;
        }
        kv::detail::CopyBytes(end, data, static_cast<std::size_t>(size));
        end += size;
        total += size;
        free -= size;
        return true;
    }
    // What can be appended without an allocation, for those who make their bytes in place, and what they have made.
    char * Room(std::size_t & size)
    {
        size = static_cast<std::size_t>(free < INT_MAX - total ? free : INT_MAX - total);
        return end;
    }
    void Commit(std::size_t size)
    {
        end += size;
        total += static_cast<int>(size);
        free -= static_cast<int>(size);
    }
    void AppendAcrossChunks(char const * data, int size);
    void AddChunk(int capacity);
    template <typename Visitor>
    void VisitChunks(Visitor visitor) const;

    std::vector<Chunk> chunks;
    int total;  // the bytes stored
    int free;   // the unused bytes at the end of the last chunk
    char * end; // the first of them
};
