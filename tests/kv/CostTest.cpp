// The readers of kv take no longer than the size of what they read says.

#include <kvcore/tools/kv/Chain.h>
#include <kvcore/tools/kv/Decode.h>
#include <kvcore/tools/kv/Encode.h>
#include <kvcore/tools/kv/ProfileSections.h>
#include <kvcore/tools/kv/RunKv.h>
#include <kvcore/tools/kv/SumList.h>
#include <kvcore/tools/support/ExitCodes.h>
#include <kvcore/tools/support/Printable.h>

#include <functional>
#include <memory>
#include <string>

#include <gtest/gtest.h>

#include <support/CostGrowth.h>
#include <support/ScratchFolder.h>
#include <support/ToolConsole.h>

using namespace kv::tools;
using kv::test::GrowsNearLinearly;
using kv::test::RunTool;
using kv::test::TextSink;
using kv::test::TextSource;

namespace
{

/// Takes everything and keeps nothing.
class NoSink : public OutputStream
{
public:
    NoSink() : OutputStream(nullptr) {}

    void Write(char const *, int) override {}
};

std::string Repeated(std::size_t count, std::function<std::string(std::size_t)> const & part)
{
    std::string text;
    for (std::size_t i = 0; i < count; ++i)
    {
        text += part(i);
    }
    return text;
}

} // namespace

TEST(KvCost, OfAProfileIsThatOfItsBytes)
{
    struct
    {
        char const * name;
        std::function<std::string(std::size_t)> part;
    } const shapes[] = {
        {"sections", [](std::size_t i) { return "[section " + std::to_string(i) + "]\nkey=value\n"; }},
        {"sections of one name", [](std::size_t) { return "[section]\nkey=value\n"; }},
        {"keys", [](std::size_t i) { return "key " + std::to_string(i) + "=value\n"; }},
        {"brackets", [](std::size_t) { return "["; }},
        {"blanks", [](std::size_t) { return "  \x1A\t"; }},
        {"line ends", [](std::size_t) { return "\r\n\n\r"; }},
    };
    for (auto const & shape : shapes)
    {
        EXPECT_TRUE(GrowsNearLinearly(
            2'000, 500'000, [&](std::size_t size) { return "[x]\n" + Repeated(size, shape.part); },
            [](std::string const & bytes) { (void)ReadProfileSections(bytes); }))
            << shape.name;
    }
}

TEST(KvCost, OfListingAProfileFileIsThatOfItsBytes)
{
    ScratchFolder const folder;
    EXPECT_TRUE(GrowsNearLinearly(
        500, 20'000,
        [&](std::size_t size)
        {
            std::string const text =
                Repeated(size, [](std::size_t i) { return "[section " + std::to_string(i) + "]\nkey=value\n"; });
            return folder.Write(std::to_string(size) + ".ini", text).string();
        },
        [](std::string const & file) {
            EXPECT_EQ(RunTool(RunKv, {"ini", file, "list"}).code, ExitOk);
        }));
}

TEST(KvCost, OfAListOfSumsIsThatOfItsBytes)
{
    struct
    {
        char const * name;
        std::function<std::string(std::size_t)> part;
    } const shapes[] = {
        {"one line of blanks", [](std::size_t) { return "    "; }},
        {"one line of brackets", [](std::size_t i) { return i == 0 ? "MD5 (" : ") = ("; }},
        {"one line of escapes",
         [](std::size_t i) { return i == 0 ? "\\900150983cd24fb0d6963f7d28e17f72  " : "\\\\\\n"; }},
        {"short lines", [](std::size_t) { return "a b\n"; }},
        {"line ends", [](std::size_t) { return "\r\n\n"; }},
    };
    for (auto const & shape : shapes)
    {
        EXPECT_TRUE(GrowsNearLinearly(
            2'000, 500'000, [&](std::size_t size) { return Repeated(size, shape.part); },
            [](std::string const & bytes)
            {
                TextSource source(bytes);
                LineReader reader(source);
                std::string line;
                while (reader.Next(line))
                {
                    (void)ParseSumLine(line);
                }
            }))
            << shape.name;
    }
}

TEST(KvCost, OfDecodingIsThatOfTheBytes)
{
    for (char const * const chain :
         {"deflate", "crc", "base64", "base64:0", "crypt", "deflate,crc,base64", "base64,base64"})
    {
        std::vector<Stage> const stages = ParseChain(chain, {});
        EXPECT_TRUE(GrowsNearLinearly(
            20'000, 5'000'000,
            [&](std::size_t size)
            {
                TextSource source(
                    Repeated(size / 8, [](std::size_t i) { return std::to_string(10'000'000 + i * 7919); }));
                TextSink encoded;
                Encode(stages, source, encoded);
                return encoded.text;
            },
            [&](std::string const & bytes)
            {
                TextSource source(bytes);
                NoSink decoded;
                Decode(stages, source, decoded);
            }))
            << chain;
    }
}

TEST(KvCost, OfDecodingBlanksIsThatOfTheBytes)
{
    std::vector<Stage> const stages = ParseChain("base64", {});
    EXPECT_TRUE(GrowsNearLinearly(
        20'000, 5'000'000, [](std::size_t size) { return "YWJj" + std::string(size, ' ') + "YWJj"; },
        [&](std::string const & bytes)
        {
            TextSource source(bytes);
            TextSink decoded;
            Decode(stages, source, decoded);
            EXPECT_EQ(decoded.text, "abcabc");
        }));
}

TEST(KvCost, OfPrintableTextIsThatOfItsBytes)
{
    for (char const * const part : {"\x1B", "\xE2\x80", "\xE2\x80\xAE", "\\", "a"})
    {
        EXPECT_TRUE(GrowsNearLinearly(
            20'000, 2'000'000, [&](std::size_t size) { return Repeated(size, [&](std::size_t) { return part; }); },
            [](std::string const & text) { (void)Printable(text, Backslashes::Doubled); }))
            << Printable(part);
    }
}
