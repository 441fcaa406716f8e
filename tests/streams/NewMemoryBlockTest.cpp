#include <kvcore/streams/NewMemoryBlock.h>

#include <cstring>
#include <limits>

#include <kvcore/streams/Streams.h>

namespace
{

using Block = NewMemoryBlock::MemoryBlock;

char const * Data(Block const & block)
{
    return block;
}

std::string Content(Block const & block)
{
    return std::string(Data(block), static_cast<std::size_t>(block.size()));
}

Block BlockOf(std::string const & bytes)
{
    Block block(static_cast<int>(bytes.size()));
    std::memcpy(static_cast<char *>(block), bytes.data(), bytes.size());
    return block;
}

template <typename T>
concept Streamable = requires(OutputStream & stream, T const & value)
{
    stream << value;
};
static_assert(!Streamable<Block>);

} // namespace

TEST(SharedMemoryBlocks, AreEmptyForASizeBelowOne)
{
    for (int const size : {0, -1, std::numeric_limits<int>::min()})
    {
        Block block(size);
        EXPECT_EQ(block.size(), 0);
        EXPECT_EQ(Data(block), nullptr);
        EXPECT_EQ(static_cast<char *>(block), nullptr);
    }
    EXPECT_EQ(Block().size(), 0);
}

TEST(SharedMemoryBlocks, ShareTheirBytesWithTheirCopies)
{
    Block const first = BlockOf("abc");
    Block const second(first);
    Block third = BlockOf("other");
    third = second;
    EXPECT_EQ(Data(second), Data(first));
    EXPECT_EQ(Data(third), Data(first));
}

TEST(SharedMemoryBlocks, SeparateWhenOneIsWrittenTo)
{
    Block const first = BlockOf("abc");
    Block second(first);
    static_cast<char *>(second)[0] = 'X';
    EXPECT_EQ(Content(first), "abc");
    EXPECT_EQ(Content(second), "Xbc");
    EXPECT_NE(Data(first), Data(second));
}

TEST(SharedMemoryBlocks, StaySharedWhenTheyAreRead)
{
    Block const first = BlockOf("abc");
    Block const second(first);
    EXPECT_EQ(Content(second), "abc");
    EXPECT_EQ(Data(first), Data(second));
}

TEST(SharedMemoryBlocks, AnOnlyHandleWritesWhereTheBytesAre)
{
    Block block = BlockOf("abc");
    char const * const before = Data(block);
    EXPECT_EQ(static_cast<char *>(block), before);
    {
        Block const copy(block);
    }
    // The copy is gone, so there is nobody to separate from.
    EXPECT_EQ(static_cast<char *>(block), before);
}

TEST(SharedMemoryBlocks, AssignmentAmongSharersChangesNothing)
{
    Block first = BlockOf("abc");
    Block second(first);
    char const * const before = Data(first);
    Block const & same = first;
    first = same;
    first = second;
    EXPECT_EQ(Data(first), before);
    // Both handles still count: writing through one separates it, and writing through the rest does not.
    static_cast<char *>(second)[0] = 'X';
    EXPECT_EQ(static_cast<char *>(first), before);
    EXPECT_EQ(Content(first), "abc");
}

TEST(SharedMemoryBlocks, AssignmentOfAnEmptyHandleEmpties)
{
    Block block = BlockOf("abc");
    block = Block();
    EXPECT_EQ(Data(block), nullptr);
    block = Block();
    EXPECT_EQ(block.size(), 0);
}

TEST(SharedMemoryBlocks, AnEmptyHandleResizesToANewBlock)
{
    Block block;
    block.resize(0);
    EXPECT_EQ(Data(block), nullptr);
    block.resize(-5);
    EXPECT_EQ(Data(block), nullptr);
    block.resize(3);
    EXPECT_EQ(block.size(), 3);
    std::memcpy(static_cast<char *>(block), "abc", 3);
    EXPECT_EQ(Content(block), "abc");
}

TEST(SharedMemoryBlocks, TheSameSizeChangesNothingAndKeepsSharing)
{
    Block const first = BlockOf("abc");
    Block second(first);
    second.resize(3);
    EXPECT_EQ(Data(first), Data(second));
}

TEST(SharedMemoryBlocks, ResizingKeepsTheFrontAndLeavesSharersAlone)
{
    for (bool const shared : {false, true})
    {
        for (int const size : {1, 2, 4, 0x10000})
        {
            Block const original = shared ? BlockOf("abc") : Block();
            Block block(original);
            if (!shared)
            {
                block = BlockOf("abc");
            }
            block.resize(size);
            EXPECT_EQ(block.size(), size);
            std::string const front = std::string("abc").substr(0, static_cast<std::size_t>(size));
            EXPECT_EQ(Content(block).compare(0, front.size(), front), 0);
            if (shared)
            {
                EXPECT_EQ(Content(original), "abc");
                EXPECT_NE(Data(original), Data(block));
            }
        }
    }
}

TEST(SharedMemoryBlocks, ResizingBelowOneEmptiesTheHandleAlone)
{
    for (int const size : {0, -1})
    {
        Block only = BlockOf("abc");
        only.resize(size);
        EXPECT_EQ(Data(only), nullptr);
        EXPECT_EQ(only.size(), 0);

        Block const original = BlockOf("abc");
        Block sharer(original);
        sharer.resize(size);
        EXPECT_EQ(Data(sharer), nullptr);
        EXPECT_EQ(Content(original), "abc");
    }
}
