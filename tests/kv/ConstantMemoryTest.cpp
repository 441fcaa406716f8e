#include <kvcore/tools/kv/RunKv.h>
#include <kvcore/tools/support/CountingStreams.h>
#include <kvcore/tools/support/ExitCodes.h>

#include <gtest/gtest.h>

#include <support/ToolConsole.h>

#include "AllocationCounter.h"

#include <cstring>

namespace
{

using namespace kv::tools;
using kv::test::HeapHeld;
using kv::test::HeapPeak;
using kv::test::ResetHeapPeak;
using kv::test::RunTool;

// Delivers one text over and over.
class RepeatingSource : public SourceStream
{
public:
    RepeatingSource(std::string content, std::uint64_t total) : text(std::move(content)), left(total) {}

    int ReadSome(char * data, int capacity) override
    {
        std::size_t const size = static_cast<std::size_t>(
            std::min<std::uint64_t>({static_cast<std::uint64_t>(capacity), text.size() - position, left}));
        std::memcpy(data, text.data() + position, size);
        position = (position + size) % text.size();
        left -= size;
        return static_cast<int>(size);
    }

private:
    std::string text;
    std::uint64_t left;
    std::size_t position = 0;
};

// Takes everything and keeps nothing.
class Drain : public OutputStream
{
public:
    Drain() : OutputStream(nullptr) {}

    void Write(char const *, int) override {}
};

struct Flow
{
    std::uint64_t written;
    std::ptrdiff_t memory;
};

Flow RunOver(std::vector<std::string> const & arguments, std::string const & piece, std::uint64_t total)
{
    RepeatingSource source(piece, total);
    Drain drain;
    CountingOutputStream output(drain);
    std::ptrdiff_t const before = HeapHeld();
    ResetHeapPeak();
    EXPECT_EQ(RunTool(RunKv, arguments, source, output).code, ExitOk);
    return {output.Count(), HeapPeak() - before};
}

constexpr std::uint64_t megabyte = 1024 * 1024;
constexpr std::ptrdiff_t fewBlocks = megabyte;

TEST(KvMemory, TheCounterCounts)
{
    std::ptrdiff_t const before = HeapHeld();
    ResetHeapPeak();
    {
        std::vector<char> const block(3 * megabyte);
        EXPECT_GE(HeapHeld(), before + static_cast<std::ptrdiff_t>(block.size()));
    }
    EXPECT_EQ(HeapHeld(), before);
    EXPECT_GE(HeapPeak(), before + static_cast<std::ptrdiff_t>(3 * megabyte));
}

TEST(KvMemory, EncodingTakesAFewBlocksHoweverMuchPassesThrough)
{
    std::string const text = "some words that come again and again, and some that do not";
    Flow const run = RunOver({"encode", "deflate:1,crc,base64"}, text, 64 * megabyte);
    EXPECT_LT(run.memory, fewBlocks);
    EXPECT_GT(run.written, 0U);
    EXPECT_EQ(
        RunOver({"encode", "crypt,crc"}, text, 64 * megabyte).written,
        64 * megabyte + (64 * megabyte + 4087) / 4088 * 8);
}

TEST(KvMemory, DecodingTakesAFewBlocksHoweverMuchPassesThrough)
{
    std::string const block = RunTool(RunKv, {"encode", "crc"}, std::string(4088, 'x')).output;
    ASSERT_EQ(block.size(), 4096U);
    Flow const crc = RunOver({"decode", "crypt,crc"}, block, 64 * megabyte);
    EXPECT_LT(crc.memory, fewBlocks);
    EXPECT_EQ(crc.written, 64 * megabyte / 4096 * 4088);

    Flow const base64 = RunOver({"decode", "base64"}, "Zm9vYmFy\n", 9 * megabyte);
    EXPECT_LT(base64.memory, fewBlocks);
    EXPECT_EQ(base64.written, 6 * megabyte);
}

TEST(KvMemory, InflatingTakesAFewBlocksHoweverMuchComesOut)
{
    RepeatingSource zeros(std::string(1000, '\0'), 64 * megabyte);
    kv::test::TextSink encoded;
    ASSERT_EQ(RunTool(RunKv, {"encode", "deflate,crc"}, zeros, encoded).code, ExitOk);
    ASSERT_LT(encoded.text.size(), megabyte);
    Flow const run = RunOver({"decode", "deflate,crc"}, encoded.text, encoded.text.size());
    EXPECT_LT(run.memory, fewBlocks);
    EXPECT_EQ(run.written, 64 * megabyte);
}

TEST(KvMemory, SummingTakesAFewBlocks)
{
    EXPECT_LT(RunOver({"sum"}, std::string(1000, 'x'), 64 * megabyte).memory, fewBlocks);
}

} // namespace
