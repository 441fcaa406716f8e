#include <kvcore/streams/MemoryBlockVector.h>

#include <limits>
#include <stdexcept>
#include <type_traits>

#include <support/TestBytes.h>

using namespace kv::test;

namespace kv::detail
{

/// Shows what the interface hides: how the bytes are laid into chunks.
struct MemoryBlockVectorProbe
{
    static std::vector<int> ChunkSizes(MemoryBlockVector const & blocks)
    {
        std::vector<int> sizes;
        for (auto const & chunk : blocks.chunks)
        {
            sizes.push_back(chunk.size);
        }
        return sizes;
    }

    static std::vector<char const *> ChunkPlaces(MemoryBlockVector const & blocks)
    {
        std::vector<char const *> places;
        for (auto const & chunk : blocks.chunks)
        {
            places.push_back(chunk.data);
        }
        return places;
    }

    /// As if so many bytes had been stored; to be undone with the negative count.
    static void PretendStored(MemoryBlockVector & blocks, int count)
    {
        blocks.total += count;
    }
};

} // namespace kv::detail

using kv::detail::MemoryBlockVectorProbe;

TEST(MemoryBlockVectors, StartWithoutChunks)
{
    MemoryBlockVector blocks;
    EXPECT_EQ(blocks.size(), 0);
    EXPECT_EQ(blocks.toString(), "");
    EXPECT_TRUE(MemoryBlockVectorProbe::ChunkSizes(blocks).empty());
    static_assert(!std::is_copy_constructible_v<MemoryBlockVector>);
}

TEST(MemoryBlockVectors, ChooseAChunkByWhatIsLeftToStore)
{
    struct
    {
        std::vector<int> appends;
        std::vector<int> chunks;
    } const cases[] = {
        {{1}, {0x1000}},
        {{0x1000}, {0x1000}},
        {{0x1001}, {0x2000}},
        {{0x2000}, {0x2000}},
        {{0x2001}, {0x4000}},
        {{0x4000}, {0x4000}},
        {{0x4001}, {0x8000}},
        {{0x8000}, {0x8000}},
        {{0x8001}, {0x10000}},
        {{0x10000}, {0x10000}},
        {{0x10001}, {0x10000, 0x1000}},
        {{0x18000}, {0x10000, 0x8000}},
        {{0x30000}, {0x10000, 0x10000, 0x10000}},
        // What fits behind the stored bytes goes there first.
        {{1, 0xFFF, 1}, {0x1000, 0x1000}},
        {{1, 0x1FFF}, {0x1000, 0x1000}},
        {{1, 0x2000}, {0x1000, 0x2000}},
    };
    for (auto const & row : cases)
    {
        MemoryBlockVector blocks;
        std::string all;
        for (int const size : row.appends)
        {
            std::string const bytes = RandomBytes(static_cast<std::size_t>(size));
            blocks.append(bytes.data(), size);
            all += bytes;
        }
        EXPECT_EQ(MemoryBlockVectorProbe::ChunkSizes(blocks), row.chunks);
        EXPECT_TRUE(blocks.toString() == all);
    }
}

TEST(MemoryBlockVectors, GiveAllBytesInOrder)
{
    std::string const bytes = RandomBytes(300000);
    MemoryBlockVector blocks;
    InRandomPieces(
        bytes.size(), 5000, 3,
        [&](std::size_t offset, int size)
        {
            blocks.append(bytes.data() + offset, size);
            ASSERT_EQ(blocks.size(), static_cast<int>(offset) + size);
        });
    EXPECT_TRUE(blocks.toString() == bytes);
    std::string target(bytes.size(), '\0');
    blocks.toMemory(target.data());
    EXPECT_TRUE(target == bytes);
    EXPECT_TRUE(blocks.toString() == bytes);
}

TEST(MemoryBlockVectors, TakeSmallPiecesOfEverySize)
{
    std::string const bytes = RandomBytes(20000);
    for (int size = 1; size <= 40; ++size)
    {
        MemoryBlockVector blocks;
        int const count = 20000 / size * size;
        for (int offset = 0; offset < count; offset += size)
        {
            blocks.append(bytes.data() + offset, size);
        }
        EXPECT_TRUE(blocks.toString() == bytes.substr(0, static_cast<std::size_t>(count))) << size;
    }
}

TEST(MemoryBlockVectors, NeverMoveWhatTheyHold)
{
    MemoryBlockVector blocks;
    std::string const bytes = RandomBytes(0x10000);
    std::vector<char const *> places;
    for (int i = 0; i < 50; ++i)
    {
        blocks.append(bytes.data(), 0x10000);
        std::vector<char const *> const now = MemoryBlockVectorProbe::ChunkPlaces(blocks);
        ASSERT_EQ(now.size(), places.size() + 1);
        EXPECT_TRUE(std::equal(places.begin(), places.end(), now.begin()));
        places = now;
    }
}

TEST(MemoryBlockVectors, StoreNothingForASizeBelowOne)
{
    MemoryBlockVector blocks;
    for (int const size : {0, -1, std::numeric_limits<int>::min()})
    {
        blocks.append("", size);
        EXPECT_EQ(blocks.size(), 0);
    }
    blocks.append("ab", 2);
    blocks.append("", 0);
    blocks.append("ab", -2);
    EXPECT_EQ(blocks.toString(), "ab");
}

TEST(MemoryBlockVectors, RefuseMoreThanAnIntCanCount)
{
    MemoryBlockVector blocks;
    blocks.append("abc", 3);
    int const pretended = std::numeric_limits<int>::max() - 4;
    MemoryBlockVectorProbe::PretendStored(blocks, pretended);
    std::string const large(0x2000, 'x');
    EXPECT_THROW(blocks.append("de", 2), std::length_error); // room in the chunk, and yet too much
    EXPECT_THROW(blocks.append(large.data(), 0x2000), std::length_error);
    blocks.append("d", 1);
    EXPECT_EQ(blocks.size(), std::numeric_limits<int>::max());
    EXPECT_THROW(blocks.append("e", 1), std::length_error);
    MemoryBlockVectorProbe::PretendStored(blocks, -pretended);
    EXPECT_EQ(blocks.toString(), "abcd");
}
