#include <kvcore/tools/kv/RunKv.h>
#include <kvcore/tools/support/ExitCodes.h>
#include <kvcore/tools/support/StdioStreams.h>

#include <gtest/gtest.h>

#include <support/TestBytes.h>
#include <support/ToolConsole.h>

#include <cerrno>
#include <memory>

namespace
{

using namespace kv::tools;
using kv::test::RandomBytes;
using kv::test::RunTool;
using kv::test::TextSink;
using kv::test::TextSource;
using kv::test::ToolResult;

// Takes the first writes and then fails, with one text, once or for good.
class FailingSink : public TextSink
{
public:
    FailingSink(int goodWrites, int error) : left(goodWrites), failure(error) {}

    void Write(char const * data, int size) override
    {
        if (left-- == 0)
        {
            throw IoException(failure);
        }
        TextSink::Write(data, size);
    }

private:
    int left;
    int failure;
};

// Takes everything, and fails when it is flushed.
class LateFailingSink : public TextSink
{
protected:
    void FlushSelf() override
    {
        throw IoException(ENOSPC);
    }
};

// Delivers some data and then fails.
class FailingSource : public TextSource
{
public:
    using TextSource::TextSource;

    int ReadSome(char * data, int capacity) override
    {
        int const size = TextSource::ReadSome(data, capacity);
        if (size == 0)
        {
            throw IoException(EIO);
        }
        return size;
    }
};

std::vector<std::vector<std::string>> const writingCommands = {
    {"encode", "deflate"},
    {"encode", "crc"},
    {"encode", "base64"},
    {"encode", "crypt"},
    {"decode", "crypt"},
    {"encode", "deflate,base64"},
    {"sum"},
    {"classid", "Foo"},
    {"--help"},
    {"--version"},
    {"help", "sum"},
    {"encode", "--help"},
};

TEST(KvFailures, AFullDiskEndsEveryCommandWithItsText)
{
    for (std::vector<std::string> const & command : writingCommands)
    {
        TextSource input(RandomBytes(1000));
        FailingSink output(0, ENOSPC);
        ToolResult const result = RunTool(RunKv, command, input, output);
        EXPECT_EQ(result.code, ExitIo) << command.front();
        EXPECT_EQ(result.error, "kv: cannot write standard output: " + IoException(ENOSPC).text.Utf8() + "\n");
    }
}

TEST(KvFailures, NothingIsWrittenBehindAFailedWrite)
{
    std::string const data = RandomBytes(200000);
    TextSource wholeInput(data);
    TextSink whole;
    ASSERT_EQ(RunTool(RunKv, {"encode", "deflate,crc"}, wholeInput, whole).code, ExitOk);
    // The stages hold data back, which they still try to get rid of when they end.
    for (int goodWrites = 0; goodWrites < 30; ++goodWrites)
    {
        TextSource input(data);
        FailingSink output(goodWrites, ENOSPC);
        EXPECT_EQ(RunTool(RunKv, {"encode", "deflate,crc"}, input, output).code, ExitIo);
        EXPECT_TRUE(whole.text.starts_with(output.text)) << goodWrites;
        EXPECT_LT(output.text.size(), whole.text.size()) << goodWrites;
    }
}

TEST(KvFailures, AFailureAtTheVeryEndIsNoticed)
{
    for (std::vector<std::string> const & command : writingCommands)
    {
        TextSource input("data");
        LateFailingSink output;
        EXPECT_EQ(RunTool(RunKv, command, input, output).code, ExitIo) << command.front();
    }
}

TEST(KvFailures, AClosedPipeEndsEveryCommandWithoutAWord)
{
    for (std::vector<std::string> const & command : writingCommands)
    {
        TextSource input(RandomBytes(100000));
        FailingSink output(0, EPIPE);
        ToolResult const result = RunTool(RunKv, command, input, output);
        EXPECT_EQ(result.code, ExitClosedPipe) << command.front();
        EXPECT_EQ(result.error, "");
    }
}

TEST(KvFailures, InputThatCannotBeReadIsNoDamage)
{
    for (char const * chain : {"deflate", "crc", "base64", "crypt", "deflate,crc,base64"})
    {
        for (char const * command : {"encode", "decode"})
        {
            FailingSource input("");
            TextSink output;
            ToolResult const result = RunTool(RunKv, {command, chain}, input, output);
            EXPECT_EQ(result.code, ExitIo) << chain;
            EXPECT_EQ(result.error, "kv: cannot read standard input: " + IoException(EIO).text.Utf8() + "\n");
        }
    }
}

TEST(KvFailures, WhatWasReadBeforeTheFailureIsDecoded)
{
    FailingSource input("Zm9vYmFy");
    TextSink output;
    EXPECT_EQ(RunTool(RunKv, {"decode", "base64"}, input, output).code, ExitIo);
    EXPECT_EQ(output.text, "foobar");
}

TEST(KvFailures, HalfReadInputNeverEncodesToSomethingWhole)
{
    for (char const * chain : {"deflate", "deflate,crc", "deflate,crc,base64"})
    {
        FailingSource input(RandomBytes(100000));
        TextSink output;
        EXPECT_EQ(RunTool(RunKv, {"encode", chain}, input, output).code, ExitIo);
        EXPECT_NE(output.text, "");
        EXPECT_EQ(RunTool(RunKv, {"decode", chain}, output.text).code, ExitDamaged) << chain;
    }
}

TEST(KvFailures, AnErrorStreamThatFailsChangesNothing)
{
    TextSource input("*");
    TextSink output;
    FailingSink error(0, ENOSPC);
    Console console{input, output, error};
    EXPECT_EQ(RunKv({"decode", "base64"}, console), ExitDamaged);
    EXPECT_EQ(RunKv({"no-such-command"}, console), ExitUsage);
}

} // namespace
