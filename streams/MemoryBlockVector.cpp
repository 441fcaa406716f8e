#include <kvcore/streams/MemoryBlockVector.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <new>
#include <stdexcept>

MemoryBlockVector::MemoryBlockVector() : total(0), free(0), end(nullptr) {}

MemoryBlockVector::~MemoryBlockVector()
{
    for (Chunk const & chunk : chunks)
    {
        std::free(chunk.data);
    }
}

void MemoryBlockVector::append(char const * data, int size)
{
    if (!AppendToLastChunk(data, size))
    {
        AppendAcrossChunks(data, size);
    }
}

namespace
{

// Small outputs stay small, large ones take few chunks, and no chunk is much larger than what it was made for.
int ChunkCapacity(int size)
{
    for (int capacity = 0x1000; capacity < 0x10000; capacity *= 2)
    {
        if (size <= capacity)
        {
            return capacity;
        }
    }
    return 0x10000;
}

} // namespace

void MemoryBlockVector::AppendAcrossChunks(char const * data, int size)
{
    if (size <= 0)
    {
        return;
    }
    if (size > INT_MAX - total)
    {
        throw std::length_error("MemoryBlockVector: more than 2^31 - 1 bytes");
    }
    for (;;)
    {
        int const part = std::min(free, size);
        if (part > 0)
        {
            std::memcpy(end, data, static_cast<std::size_t>(part));
            end += part;
            total += part;
            free -= part;
            data += part;
            size -= part;
        }
        if (size == 0)
        {
            return;
        }
        AddChunk(ChunkCapacity(size));
    }
}

void MemoryBlockVector::AddChunk(int capacity)
{
    chunks.push_back({0, nullptr});
    char * const memory = static_cast<char *>(std::malloc(static_cast<std::size_t>(capacity)));
    if (!memory)
    {
        chunks.pop_back();
        throw std::bad_alloc();
    }
    chunks.back() = {capacity, memory};
    free = capacity;
    end = memory;
}

template <typename Visitor>
void MemoryBlockVector::VisitChunks(Visitor visitor) const
{
    int left = total;
    for (Chunk const & chunk : chunks)
    {
        int const used = std::min(chunk.size, left);
        visitor(chunk.data, static_cast<std::size_t>(used));
        left -= used;
    }
}

void MemoryBlockVector::toMemory(char * target) const
{
    VisitChunks(
        [&target](char const * data, std::size_t size)
        {
            std::memcpy(target, data, size);
            target += size;
        });
}

std::string MemoryBlockVector::toString() const
{
    std::string result;
    result.reserve(static_cast<std::size_t>(total));
    VisitChunks([&result](char const * data, std::size_t size) { result.append(data, size); });
    return result;
}
