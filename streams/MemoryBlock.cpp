#include <kvcore/streams/MemoryBlock.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <new>
#include <utility>

#include <kvcore/streams/Streams.h>

namespace
{

std::size_t CheckedSize(int size)
{
    if (size < 0)
    {
        throw std::bad_array_new_length();
    }
    return static_cast<std::size_t>(size);
}

char * Checked(void * memory)
{
    if (!memory)
    {
        throw std::bad_alloc();
    }
    return static_cast<char *>(memory);
}

} // namespace

MemoryBlock::MemoryBlock() : memory(nullptr), bytes(0) {}

MemoryBlock::MemoryBlock(int size) : MemoryBlock()
{
    resize(size, false);
}

MemoryBlock::MemoryBlock(int size, char fill) : MemoryBlock()
{
    std::size_t const count = CheckedSize(size);
    if (count == 0)
    {
        return;
    }
    if (fill == 0)
    {
        // calloc knows which pages of the system are zero already.
        memory = Checked(std::calloc(count, 1));
    }
    else
    {
        memory = Checked(std::malloc(count));
        std::memset(memory, fill, count);
    }
    bytes = size;
}

MemoryBlock::MemoryBlock(MemoryBlock && other) noexcept
    : memory(std::exchange(other.memory, nullptr)), bytes(std::exchange(other.bytes, 0))
{
}

MemoryBlock & MemoryBlock::operator=(MemoryBlock && other) noexcept
{
    if (this != &other)
    {
        std::free(memory);
        memory = std::exchange(other.memory, nullptr);
        bytes = std::exchange(other.bytes, 0);
    }
    return *this;
}

MemoryBlock::~MemoryBlock()
{
    std::free(memory);
}

void MemoryBlock::resize(int size, bool keep)
{
    std::size_t const count = CheckedSize(size);
    if (keep && count != 0)
    {
        memory = Checked(std::realloc(memory, count));
        bytes = size;
        return;
    }
    std::free(std::exchange(memory, nullptr));
    bytes = 0;
    if (count != 0)
    {
        memory = Checked(std::malloc(count));
        bytes = size;
    }
}

OutputStream & operator<<(OutputStream & stream, MemoryBlock const & block)
{
    stream << block.size();
    if (block.size() > 0)
    {
        stream.Write(block, block.size());
    }
    return stream;
}

InputStream & operator>>(InputStream & stream, MemoryBlock & block)
{
    std::int32_t size;
    stream >> size;
    if (size < 0)
    {
        throw StreamBase::Exception{3, TEXT("Invalid memory block size")};
    }
    // The size may lie. Each piece is at most as long as everything that has really arrived, so that the memory taken
    // stays in proportion to what the source delivers.
    constexpr std::int32_t pieceLimit = 0x100000;
    block.resize(std::min(size, pieceLimit), false);
    for (std::int32_t done = 0; done < size;)
    {
        std::int32_t const piece = std::min(size - done, std::max(done, pieceLimit));
        block.resize(done + piece, true);
        stream.Read(block + done, piece);
        done += piece;
    }
    return stream;
}
