#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace kv::detail
{

/// Pointers by rising numbers with gaps: the objects of a stream that references can name. One bit per number and one
/// pointer per object, so that a graph's references stay in the processor's caches. Owns nothing. One thread at a time.
template <typename T>
class NumberedReferences
{
public:
    /// The entry of `number`, or null. Stays valid until the next Append.
    T ** Find(std::uint64_t number)
    {
        if (number / bitsPerBlock >= blocks.size())
        {
            return nullptr;
        }
        Block const & block = blocks[static_cast<std::size_t>(number / bitsPerBlock)];
        std::uint32_t const bit = std::uint32_t(1) << number % bitsPerBlock;
        if ((block.present & bit) == 0)
        {
            return nullptr;
        }
        return &objects[block.first + CountBits(block.present & (bit - 1))];
    }

    /// Adds an entry; `number` is above all numbers before. Running out of memory leaves the entries as they were.
    void Append(std::uint64_t number, T * object)
    {
        while (blocks.size() <= number / bitsPerBlock)
        {
            blocks.push_back({0, static_cast<std::uint32_t>(objects.size())});
        }
        objects.push_back(object);
        blocks.back().present |= std::uint32_t(1) << number % bitsPerBlock;
    }

    /// All pointers, in the order of their numbers.
    std::vector<T *> const & All() const
    {
        return objects;
    }

private:
    static constexpr unsigned int bitsPerBlock = 32;

    struct Block
    {
        std::uint32_t present;
        std::uint32_t first; // the index of its first object
    };

    // std::popcount is a call into the compiler's library where the processor is not known to have the instruction.
    static std::uint32_t CountBits(std::uint32_t bits)
    {
        bits -= (bits >> 1) & 0x55555555;
        bits = (bits & 0x33333333) + ((bits >> 2) & 0x33333333);
        bits = (bits + (bits >> 4)) & 0x0F0F0F0F;
        return (bits * 0x01010101) >> 24;
    }

    std::vector<Block> blocks;
    std::vector<T *> objects;
};

} // namespace kv::detail
