#include <kvcore/streams/MemoryBlock.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <limits>
#include <new>
#include <type_traits>
#include <utility>

#include <kvcore/core/String.h>
#include <kvcore/streams/MemoryStreams.h>

#include <support/StreamFailure.h>
#include <support/TestBytes.h>
#include <support/TestStreams.h>

using namespace kv::test;

namespace
{

char const * Data(MemoryBlock const & block)
{
    return block;
}

char * WritableData(MemoryBlock & block)
{
    return block;
}

std::string Content(MemoryBlock const & block)
{
    return std::string(Data(block), static_cast<std::size_t>(block.size()));
}

MemoryBlock BlockOf(std::string const & bytes)
{
    MemoryBlock block(static_cast<int>(bytes.size()));
    std::memcpy(block, bytes.data(), bytes.size());
    return block;
}

} // namespace

TEST(MemoryBlocks, AreEmptyWithoutASize)
{
    for (MemoryBlock const & block : {MemoryBlock(), MemoryBlock(0), MemoryBlock(0, 'x')})
    {
        EXPECT_EQ(block.size(), 0);
        EXPECT_EQ(Data(block), nullptr);
    }
}

TEST(MemoryBlocks, AreFilledIfAskedFor)
{
    EXPECT_EQ(Content(MemoryBlock(5, 'x')), "xxxxx");
    EXPECT_EQ(Content(MemoryBlock(0x1000, 0)), std::string(0x1000, '\0'));
}

TEST(MemoryBlocks, AreWritableOverTheirWholeSize)
{
    MemoryBlock block(1000);
    std::memset(block, 'y', 1000);
    EXPECT_EQ(Content(block), std::string(1000, 'y'));
}

TEST(MemoryBlocks, KeepTheirFrontWhenResizedWithKeep)
{
    struct
    {
        int size;
        std::string front;
    } const cases[] = {{3, "abc"}, {6, "abcdef"}, {0x10000, "abcdef"}, {1, "a"}};
    for (auto const & row : cases)
    {
        MemoryBlock block = BlockOf("abcdef");
        block.resize(row.size, true);
        EXPECT_EQ(block.size(), row.size);
        EXPECT_EQ(Content(block).substr(0, row.front.size()), row.front);
    }
}

TEST(MemoryBlocks, AreNewWhenResizedWithoutKeep)
{
    // The content is lost, also at the same size: there is nothing to say of it but that all of it is writable.
    for (int const size : {6, 3, 0x10000})
    {
        MemoryBlock block = BlockOf("abcdef");
        block.resize(size, false);
        ASSERT_EQ(block.size(), size);
        std::memset(block, 'z', static_cast<std::size_t>(size));
        EXPECT_EQ(Content(block), std::string(static_cast<std::size_t>(size), 'z'));
    }
}

TEST(MemoryBlocks, AreEmptiedByASizeOfZero)
{
    for (bool const keep : {false, true})
    {
        MemoryBlock block = BlockOf("abc");
        block.resize(0, keep);
        EXPECT_EQ(block.size(), 0);
        EXPECT_EQ(Data(block), nullptr);
    }
}

TEST(MemoryBlocks, GrowFromEmpty)
{
    for (bool const keep : {false, true})
    {
        MemoryBlock block;
        block.resize(4, keep);
        EXPECT_EQ(block.size(), 4);
        EXPECT_NE(Data(block), nullptr);
    }
}

TEST(MemoryBlocks, RefuseNegativeSizesAndStayAsTheyAre)
{
    for (int const size : {-1, std::numeric_limits<int>::min()})
    {
        EXPECT_THROW(MemoryBlock block(size), std::bad_alloc);
        EXPECT_THROW(MemoryBlock block(size, 'x'), std::bad_alloc);
        MemoryBlock block = BlockOf("abc");
        EXPECT_THROW(block.resize(size, false), std::bad_alloc);
        EXPECT_THROW(block.resize(size, true), std::bad_alloc);
        EXPECT_EQ(Content(block), "abc");
    }
}

TEST(MemoryBlocks, MoveAndAreNotCopied)
{
    static_assert(!std::is_copy_constructible_v<MemoryBlock> && !std::is_copy_assignable_v<MemoryBlock>);
    static_assert(std::is_nothrow_move_constructible_v<MemoryBlock> && std::is_nothrow_move_assignable_v<MemoryBlock>);

    MemoryBlock first = BlockOf("abc");
    MemoryBlock second(std::move(first));
    EXPECT_EQ(Content(second), "abc");
    EXPECT_EQ(first.size(), 0);
    EXPECT_EQ(Data(first), nullptr);
    first = BlockOf("defg");
    first = std::move(second);
    EXPECT_EQ(Content(first), "abc");
    MemoryBlock & same = first;
    first = std::move(same);
    EXPECT_EQ(Content(first), "abc");
}

TEST(MemoryBlocks, GoOutAsSizeAndBytes)
{
    RecordingOutputStream target;
    target << BlockOf(Bytes("a\0b")) << MemoryBlock();
    EXPECT_EQ(target.writes, (std::vector<std::string>{Bytes("\3\0\0\0"), Bytes("a\0b"), Bytes("\0\0\0\0")}));
}

TEST(MemoryBlocks, AreReadBack)
{
    for (std::size_t const size : {std::size_t(1), std::size_t(0x1001), std::size_t(0x100000), std::size_t(0x380001)})
    {
        SCOPED_TRACE(size);
        std::string const bytes = RandomBytes(size);
        MemoryOutputStream target;
        target << BlockOf(bytes);
        RecordingInputStream source(target.GetContent());
        MemoryBlock block = BlockOf("before");
        source >> block;
        EXPECT_TRUE(Content(block) == bytes);
        EXPECT_EQ(source.reads.size() == 2, size <= 0x100000);
        EXPECT_EQ(source.position, source.content.size());
    }
}

TEST(MemoryBlocks, AreEmptiedByReadingASizeOfZeroWithoutAReadIntoNull)
{
    RecordingInputStream source(Bytes("\0\0\0\0"));
    MemoryBlock block = BlockOf("before");
    source >> block;
    EXPECT_EQ(Data(block), nullptr);
    EXPECT_EQ(source.reads, std::vector<int>{4});
}

TEST(MemoryBlocks, RefuseToReadANegativeSize)
{
    for (std::string const & size : {Bytes("\xFF\xFF\xFF\xFF"), Bytes("\0\0\0\x80")})
    {
        MemoryInputStream source(size);
        MemoryBlock block = BlockOf("before");
        EXPECT_EQ(FailureOf([&] { source >> block; }), "3: Invalid memory block size");
        EXPECT_EQ(Content(block), "before");
    }
}

TEST(MemoryBlocks, ASizeThatTheSourceDoesNotBackEndsInItsFailure)
{
    for (std::int32_t const size : {8, 0x100000, 0x100001, 0x7FFFFFFF})
    {
        std::string wire(reinterpret_cast<char const *>(&size), 4);
        wire += "abcdefg";
        RecordingInputStream source(wire);
        MemoryBlock block;
        EXPECT_EQ(FailureOf([&] { source >> block; }), "5: Memory block too short") << size;
        EXPECT_LE(block.size(), 0x100000) << size;
    }
}

TEST(MemoryArrays, CountTheirSizeInBytes)
{
    static_assert(sizeof(MemoryArray<std::int32_t>) == sizeof(MemoryBlock));
    MemoryArray<std::int32_t> array(8);
    EXPECT_EQ(array.size(), 8);
    std::int32_t * const elements = array;
    elements[0] = 1;
    array[1] = 2;
    MemoryArray<std::int32_t> const & constant = array;
    EXPECT_EQ(static_cast<std::int32_t const *>(constant)[1], 2);
    EXPECT_EQ(constant[0], 1);
    EXPECT_EQ(Content(array), Bytes("\1\0\0\0\2\0\0\0"));
}

TEST(MemoryArrays, AreStoredAsTheBlocksThatTheyAre)
{
    MemoryArray<WCHAR> array(4);
    array[0] = TEXT('a');
    array[1] = 0x20AC;
    MemoryOutputStream target;
    target << array;
    std::string const content = target.GetContent();
    EXPECT_EQ(content, Bytes("\4\0\0\0a\0\xAC\x20"));
    MemoryInputStream source(content);
    MemoryArray<WCHAR> read;
    source >> read;
    EXPECT_EQ(String(read), String(TEXT("a\u20AC")));
}

TEST(MemoryArrays, OfCharAreBlocksToo)
{
    MemoryArray<char> array(2, 'x');
    char * const elements = array;
    EXPECT_EQ(elements[1], 'x');
}

TEST(StringMemory, AStringTakesHalfTheSizeInElements)
{
    struct
    {
        int size;
        WCHAR const * text;
    } const cases[] = {{0, TEXT("")}, {1, TEXT("")}, {2, TEXT("a")}, {5, TEXT("ab")}, {6, TEXT("abc")}};
    for (auto const & row : cases)
    {
        SCOPED_TRACE(row.size);
        MemoryArray<WCHAR> array(row.size);
        std::copy_n(reinterpret_cast<char const *>(TEXT("abc")), row.size, WritableData(array));
        EXPECT_EQ(String(array), String(row.text));
        String text(TEXT("before"));
        String const & result = (text = array);
        EXPECT_EQ(text, String(row.text));
        EXPECT_EQ(&result, &text);
    }
}

TEST(StringMemory, AStringTakesNulsToo)
{
    MemoryArray<WCHAR> const array(6, 0);
    EXPECT_EQ(String(array), String(WString(3, 0)));
}
