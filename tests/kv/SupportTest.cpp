#include <kvcore/tools/support/CountingStreams.h>
#include <kvcore/tools/support/Host.h>
#include <kvcore/tools/support/StdioStreams.h>
#include <kvcore/tools/support/Text.h>

#include <gtest/gtest.h>

#include <support/ScratchFolder.h>
#include <support/StreamFailure.h>
#include <support/TestBytes.h>
#include <support/ToolConsole.h>

#include <cerrno>

namespace
{

using namespace kv::tools;
using kv::test::FailureOf;
using kv::test::RandomBytes;
using kv::test::TextSink;
using kv::test::TextSource;

std::string Argument(std::filesystem::path const & path)
{
    std::u8string const text = path.u8string();
    return {text.begin(), text.end()};
}

TEST(HumanSize, RoundsToATenthOfTheLargestUnit)
{
    struct
    {
        std::uint64_t bytes;
        char const * text;
    } const table[] = {
        {0, "0 B"},
        {1023, "1023 B"},
        {1024, "1.0 KiB"},
        {1075, "1.0 KiB"},
        {1076, "1.1 KiB"},
        {1024 * 1024 - 52, "1023.9 KiB"},
        {1024 * 1024 - 51, "1.0 MiB"},
        {1024 * 1024, "1.0 MiB"},
        {std::uint64_t(1) << 40, "1.0 TiB"},
        {~std::uint64_t(0), "16.0 EiB"},
    };
    for (auto const & row : table)
    {
        EXPECT_EQ(HumanSize(row.bytes), row.text) << row.bytes;
    }
}

TEST(Counted, AddsThePluralForAllButOne)
{
    EXPECT_EQ(Counted(0, "byte"), "0 bytes");
    EXPECT_EQ(Counted(1, "byte"), "1 byte");
    EXPECT_EQ(Counted(2, "byte"), "2 bytes");
}

TEST(Print, WritesUtf8)
{
    TextSink sink;
    Print(sink, String(TEXT("gr\u00F6\u00DFer")));
    PrintLine(sink, std::string_view(" \xE2\x98\x83"));
    EXPECT_EQ(
        sink.text,
        "gr\xC3\xB6\xC3\x9F"
        "er \xE2\x98\x83\n");
}

TEST(SourceStream, ReadDeliversAllFromAnyPieces)
{
    TextSource source("foobar", 1);
    char data[6];
    source.Read(data, 6);
    EXPECT_EQ(std::string(data, 6), "foobar");
    source.Read(data, 0);
    EXPECT_EQ(FailureOf([&] { source.Read(data, 1); }), "5: Unexpected end of file");
}

TEST(CountingStreams, CountWhatPasses)
{
    TextSink sink;
    CountingOutputStream output(sink);
    output.Write("abc", 3);
    output.Write("abc", 0);
    output.Write("abc", -1);
    output << 7;
    EXPECT_EQ(output.Count(), 7U);
    EXPECT_EQ(sink.text.size(), 7U);

    TextSource source("abcdef");
    CountingInputStream input(source);
    char data[4];
    input.Read(data, 4);
    EXPECT_EQ(FailureOf([&] { input.Read(data, 4); }), "5: Unexpected end of file");
    EXPECT_EQ(input.Count(), 4U);
}

TEST(StdioStreams, WhatIsWrittenIsRead)
{
    ScratchFolder const folder;
    std::string const path = Argument(folder / std::filesystem::path(u8"größe ☃"));
    std::string const data = RandomBytes(300000);
    {
        StdioOutputStream output(path);
        // Pieces below, at and above the size of the buffer, line ends of both kinds among them.
        output.Write("a\r\nb\nc\x1A", 7);
        output.Write(data.data(), 100);
        output.Write(data.data() + 100, 65536);
        output.Write(data.data() + 65636, static_cast<int>(data.size()) - 65636);
        output.Write("x", 1);
        output.Close();
        output.Close();
    }
    StdioInputStream input(path);
    std::string content(data.size() + 8, '\0');
    input.Read(content.data(), static_cast<int>(content.size()));
    EXPECT_TRUE(content == "a\r\nb\nc\x1A" + data + "x");
    EXPECT_EQ(input.ReadSome(content.data(), 1), 0);
    EXPECT_EQ(FailureOf([&] { input.Read(content.data(), 1); }), "5: Unexpected end of file");
}

TEST(StdioStreams, TheDestructorWritesToo)
{
    ScratchFolder const folder;
    {
        StdioOutputStream output(Argument(folder / "file"));
        output.Write("abc", 3);
    }
    EXPECT_EQ(folder.Read("file"), "abc");
}

TEST(StdioStreams, FlushMakesDataVisible)
{
    ScratchFolder const folder;
    StdioOutputStream output(Argument(folder / "file"));
    output.Write("abc", 3);
    output.Flush();
    EXPECT_EQ(folder.Read("file"), "abc");
}

TEST(StdioStreams, FailuresCarryTheSystemsNumberAndText)
{
    ScratchFolder const folder;
    try
    {
        StdioInputStream input(Argument(folder / "missing"));
        FAIL() << "opened";
    }
    catch (IoException const & failure)
    {
        EXPECT_EQ(failure.code, 1);
        EXPECT_EQ(failure.error, ENOENT);
        EXPECT_EQ(failure.text.Utf8(), "No such file or directory");
    }
    EXPECT_EQ(
        FailureOf([&] { StdioOutputStream(Argument(folder / "missing" / "file")); }), "1: No such file or directory");
}

TEST(Host, IsSameFileLooksAtTheFileAndNotAtTheName)
{
    ScratchFolder const folder;
    std::string const one = Argument(folder.Write("one", "x"));
    std::string const two = Argument(folder.Write("two", "x"));
    std::filesystem::create_hard_link(folder / "one", folder / "link");
    EXPECT_TRUE(host::IsSameFile(one, one));
    EXPECT_TRUE(host::IsSameFile(one, Argument(folder / "." / "one")));
    EXPECT_TRUE(host::IsSameFile(one, Argument(folder / "link")));
    EXPECT_FALSE(host::IsSameFile(one, two));
    EXPECT_FALSE(host::IsSameFile(one, Argument(folder / "missing")));
    EXPECT_FALSE(host::IsSameFile(Argument(folder / "missing"), Argument(folder / "missing")));
}

} // namespace
