#include <kvcore/tools/kv/Decode.h>
#include <kvcore/tools/kv/Failures.h>
#include <kvcore/tools/kv/RunKv.h>
#include <kvcore/tools/support/ExitCodes.h>

#include <gtest/gtest.h>

#include <support/TestBytes.h>
#include <support/ToolConsole.h>

#include <zlib.h>

namespace
{

using namespace kv::tools;
using kv::test::Bytes;
using kv::test::RandomBytes;
using kv::test::RunTool;
using kv::test::ToolResult;

ToolResult Encode(std::string const & chain, std::string const & data)
{
    return RunTool(RunKv, {"encode", chain}, data);
}

ToolResult Decode(std::string const & chain, std::string const & data)
{
    return RunTool(RunKv, {"decode", chain}, data);
}

std::string Encoded(std::string const & chain, std::string const & data)
{
    ToolResult const result = Encode(chain, data);
    EXPECT_EQ(result.code, ExitOk) << chain << ": " << result.error;
    EXPECT_EQ(result.error, "");
    return result.output;
}

// Half noise, half text, so that compression has something to do.
std::string SampleData(std::size_t size)
{
    std::string data = RandomBytes(size / 2, static_cast<unsigned>(size) + 1);
    while (data.size() < size)
    {
        data += "the same words once more ";
    }
    data.resize(size);
    return data;
}

void ExpectText(std::string const & text, std::string const & part)
{
    EXPECT_NE(text.find(part), std::string::npos) << "\"" << part << "\" is not in:\n" << text;
}

// Round trips

class KvRoundTrip : public testing::TestWithParam<char const *>
{
};

TEST_P(KvRoundTrip, DecodeGivesBackWhatWasEncoded)
{
    for (std::size_t const size : {0, 1, 2, 3, 4, 100, 4087, 4088, 4089, 8176, 65535, 65536, 65537, 100000, 300001})
    {
        std::string const data = SampleData(size);
        ToolResult const decoded = Decode(GetParam(), Encoded(GetParam(), data));
        EXPECT_EQ(decoded.code, ExitOk) << size << ": " << decoded.error;
        EXPECT_TRUE(decoded.output == data) << size;
    }
}

TEST_P(KvRoundTrip, InputMayComeInPiecesOfAnySize)
{
    std::string const data = SampleData(20000);
    for (int const pieceSize : {1, 2, 3, 5, 1000, 4096})
    {
        ToolResult const encoded = RunTool(RunKv, {"encode", GetParam()}, data, pieceSize);
        EXPECT_TRUE(encoded.output == Encoded(GetParam(), data)) << pieceSize;
        ToolResult const decoded = RunTool(RunKv, {"decode", GetParam()}, encoded.output, pieceSize);
        EXPECT_EQ(decoded.code, ExitOk) << decoded.error;
        EXPECT_TRUE(decoded.output == data) << pieceSize;
    }
}

TEST_P(KvRoundTrip, NoDataIsNoBytes)
{
    EXPECT_EQ(Encoded(GetParam(), ""), "");
    EXPECT_EQ(Decode(GetParam(), "").code, ExitOk);
    EXPECT_EQ(Decode(GetParam(), "").output, "");
}

INSTANTIATE_TEST_SUITE_P(
    Chains, KvRoundTrip,
    testing::Values(
        "deflate", "crc", "base64", "crypt", "deflate,crc,base64", "base64,crc,deflate", "crc,deflate", "crc,base64",
        "base64,deflate", "crypt,deflate", "deflate,crypt", "crypt,crc,crypt", "base64,base64", "crc,crc",
        "deflate,deflate", "deflate:0,base64:0", "deflate:9,crc,base64:4", "crypt,deflate,crc,base64"));

// The formats are the ones that others know

TEST(KvEncode, DeflateIsOneZlibStream)
{
    std::string const data = SampleData(100000);
    std::string const encoded = Encoded("deflate", data);
    std::string inflated(data.size(), '\0');
    uLongf size = static_cast<uLongf>(inflated.size());
    ASSERT_EQ(
        uncompress(
            reinterpret_cast<Bytef *>(inflated.data()), &size, reinterpret_cast<Bytef const *>(encoded.data()),
            static_cast<uLong>(encoded.size())),
        Z_OK);
    EXPECT_EQ(size, data.size());
    EXPECT_TRUE(inflated == data);
}

TEST(KvDecode, DeflateReadsWhatZlibWrote)
{
    std::string const data = SampleData(100000);
    std::string compressed(compressBound(static_cast<uLong>(data.size())), '\0');
    uLongf size = static_cast<uLongf>(compressed.size());
    ASSERT_EQ(
        compress(
            reinterpret_cast<Bytef *>(compressed.data()), &size, reinterpret_cast<Bytef const *>(data.data()),
            static_cast<uLong>(data.size())),
        Z_OK);
    compressed.resize(size);
    ToolResult const decoded = Decode("deflate", compressed);
    EXPECT_EQ(decoded.code, ExitOk) << decoded.error;
    EXPECT_TRUE(decoded.output == data);
}

TEST(KvEncode, Base64IsTheTextOfRfc4648)
{
    EXPECT_EQ(Encoded("base64", "f"), "Zg==\n");
    EXPECT_EQ(Encoded("base64", "fo"), "Zm8=\n");
    EXPECT_EQ(Encoded("base64", "foo"), "Zm9v\n");
    EXPECT_EQ(Encoded("base64", "foobar"), "Zm9vYmFy\n");
}

TEST(KvEncode, CrcIsBlocksOfLengthPayloadAndChecksum)
{
    EXPECT_EQ(Encoded("crc", "abc"), Bytes("\3\0\0\0abc\xC2\x41\x24\x35"));
    std::string const two = Encoded("crc", std::string(4089, 'x'));
    EXPECT_EQ(two.size(), 4096U + 9U);
    EXPECT_EQ(two.substr(0, 4), Bytes("\xF8\x0F\0\0"));
}

TEST(KvEncode, CryptComplementsEveryByte)
{
    EXPECT_EQ(Encoded("crypt", Bytes("\0\xFF\x41")), Bytes("\xFF\0\xBE"));
}

TEST(KvEncode, StagesAreAppliedInTheirOrder)
{
    EXPECT_EQ(Encoded("crc,crypt", "abc"), Bytes("\xFC\xFF\xFF\xFF\x9E\x9D\x9C\x3D\xBE\xDB\xCA"));
    EXPECT_EQ(Encoded("crypt,base64", Bytes("\x99\x90\x90")), "Zm9v\n");
}

TEST(KvEncode, BlanksAroundStagesAreAllowed)
{
    EXPECT_EQ(Encoded(" crypt , base64 ", Bytes("\x99\x90\x90")), "Zm9v\n");
}

// Numbers

TEST(KvEncode, LineWidthIsRoundedDownToWholeGroups)
{
    struct
    {
        char const * width;
        char const * text;
    } const table[] = {
        {"0", "Zm9vYmFyZm9v"},       {"1", "Zm9v\nYmFy\nZm9v\n"}, {"4", "Zm9v\nYmFy\nZm9v\n"},
        {"7", "Zm9v\nYmFy\nZm9v\n"}, {"8", "Zm9vYmFy\nZm9v\n"},   {"76", "Zm9vYmFyZm9v\n"},
    };
    for (auto const & row : table)
    {
        EXPECT_EQ(RunTool(RunKv, {"encode", "base64", "--line-width", row.width}, "foobarfoo").output, row.text);
        EXPECT_EQ(Encoded(std::string("base64:") + row.width, "foobarfoo"), row.text);
    }
}

TEST(KvEncode, LinesHave76CharactersUnlessToldOtherwise)
{
    EXPECT_EQ(Encoded("base64", std::string(58, '\0')), std::string(76, 'A') + "\nAA==\n");
}

TEST(KvEncode, LevelIsPassedToZlib)
{
    std::string const data(10000, 'x');
    EXPECT_GT(Encoded("deflate:0", data).size(), data.size());
    EXPECT_EQ(Encoded("deflate:0", data), RunTool(RunKv, {"encode", "deflate", "--level", "0"}, data).output);
    EXPECT_EQ(Encoded("deflate", data), RunTool(RunKv, {"encode", "deflate", "--level", "-1"}, data).output);
    EXPECT_EQ(Encoded("deflate", data), Encoded("deflate:-1", data));
    // The second byte of a zlib stream tells the level.
    EXPECT_EQ(Encoded("deflate:9", data)[1], '\xDA');
    EXPECT_EQ(Encoded("deflate:1", data)[1], '\x01');
}

TEST(KvEncode, TheNumberOfAStageWinsOverTheOption)
{
    std::string const data(10000, 'x');
    EXPECT_EQ(RunTool(RunKv, {"encode", "deflate:9", "--level", "0"}, data).output, Encoded("deflate:9", data));
    EXPECT_EQ(RunTool(RunKv, {"encode", "base64:0", "--line-width", "4"}, "foobar").output, "Zm9vYmFy");
}

// What decoding tolerates

TEST(KvDecode, NumbersBehindStagesMayStay)
{
    EXPECT_EQ(Decode("base64:4", "Zm9v\nYmFy\n").output, "foobar");
}

TEST(KvDecode, Base64MayBeBrokenAnywhere)
{
    for (char const * text :
         {"Zm9vYmFy", "Zm9v\r\nYmFy\r\n", "Z m\t9\nv YmFy", "\n\n  Zm9vYmFy  \n\n", "Zm8=b2JhcgAA====Zg==\n===="})
    {
        ToolResult const decoded = Decode("base64", text);
        EXPECT_EQ(decoded.code, ExitOk) << text << decoded.error;
        EXPECT_EQ(decoded.error, "");
    }
    EXPECT_EQ(Decode("base64", "Z m\t9\nv YmFy").output, "foobar");
    EXPECT_EQ(Decode("base64", "Zm8=b2Jhcg==").output, "foobar");
    EXPECT_EQ(Decode("base64", "====Zg==\n====").output, "f");
}

TEST(KvDecode, BlanksAloneAreNoData)
{
    EXPECT_EQ(Decode("base64", std::string(200000, '\n')).code, ExitOk);
    EXPECT_EQ(Decode("base64", std::string(200000, '\n')).output, "");
    EXPECT_EQ(Decode("deflate,base64", " \n").code, ExitOk);
}

TEST(KvDecode, BlanksInsideAGroupMayFillAnyWindow)
{
    std::string const blanks(200000, ' ');
    EXPECT_EQ(Decode("base64", "Z" + blanks + "g==" + blanks).output, "f");
    EXPECT_EQ(Decode("base64", "=" + blanks + "===" + blanks).code, ExitOk);
    EXPECT_EQ(Decode("base64", "Z" + blanks + "g=" + blanks).code, ExitDamaged);
}

// A zlib stream of stored blocks, with as many empty ones in front of the data and behind it.
std::string StoredStream(std::size_t emptyBefore, std::string const & data, std::size_t emptyBehind)
{
    std::string const empty = Bytes("\0\0\0\xFF\xFF");
    std::string stream = Bytes("\x78\x01");
    for (std::size_t i = 0; i < emptyBefore; ++i)
    {
        stream += empty;
    }
    char const size = static_cast<char>(data.size());
    stream += std::string{'\0', size, '\0', static_cast<char>(~size), '\xFF'} + data;
    for (std::size_t i = 0; i < emptyBehind; ++i)
    {
        stream += empty;
    }
    stream += Bytes("\1\0\0\xFF\xFF");
    uLong const check = adler32(1, reinterpret_cast<Bytef const *>(data.data()), static_cast<uInt>(data.size()));
    for (int shift = 24; shift >= 0; shift -= 8)
    {
        stream += static_cast<char>(check >> shift);
    }
    return stream;
}

TEST(KvDecode, ALongRunOfEmptyBlocksIsLegal)
{
    for (auto const & [before, behind] :
         {std::pair<std::size_t, std::size_t>{0, 0}, {100000, 0}, {0, 100000}, {50000, 50000}})
    {
        std::string const stream = StoredStream(before, "some data", behind);
        ToolResult const decoded = Decode("deflate", stream);
        EXPECT_EQ(decoded.code, ExitOk) << decoded.error;
        EXPECT_EQ(decoded.output, "some data");

        ToolResult const cut = Decode("deflate", stream.substr(0, stream.size() - 1));
        EXPECT_EQ(cut.code, ExitDamaged);
        EXPECT_EQ(cut.output, "some data");
    }
}

// Truncation. Thousands of runs: without the command line around them.

struct Outcome
{
    std::string output;
    std::string damage; // empty if there is none
};

Outcome DecodedDirectly(std::string const & chain, std::string const & data)
{
    kv::test::TextSource source(data);
    kv::test::TextSink sink;
    Outcome outcome;
    try
    {
        kv::tools::Decode(ParseChain(chain, {}), source, sink);
    }
    catch (DamagedData const & damage)
    {
        outcome.damage = damage.place;
    }
    outcome.output = std::move(sink.text);
    return outcome;
}

// True if the end of this many bytes of encoded data cannot be told from the end of the data.
bool IsBoundary(std::string const & chain, std::string const & encoded, std::size_t size)
{
    std::string const kept = encoded.substr(0, size);
    if (chain == "base64")
    {
        return std::count_if(kept.begin(), kept.end(), [](char c) { return c != '\n'; }) % 4 == 0;
    }
    if (chain == "crc")
    {
        return size % 4096 == 0 || size == encoded.size();
    }
    // Chains with deflate: all but the line feed behind a last line.
    return size == 0 || kept + "\n" == encoded || kept == encoded;
}

class KvTruncation : public testing::TestWithParam<char const *>
{
};

TEST_P(KvTruncation, EveryCutIsDamageUnlessItIsABoundary)
{
    std::string const chain = GetParam();
    std::string const data = SampleData(chain == "crc" ? 4200 : 500);
    std::string const encoded = Encoded(chain, data);
    for (std::size_t size = 0; size <= encoded.size(); ++size)
    {
        Outcome const decoded = DecodedDirectly(chain, encoded.substr(0, size));
        ASSERT_EQ(decoded.damage.empty(), IsBoundary(chain, encoded, size)) << size << decoded.damage;
        ASSERT_TRUE(data.starts_with(decoded.output)) << size;
    }
}

INSTANTIATE_TEST_SUITE_P(
    Chains, KvTruncation,
    testing::Values("deflate", "crc", "base64", "deflate,crc", "deflate,base64", "deflate,crc,base64", "crc,deflate"));

// Every chain with a check value: without one, most flips give other data.
class KvFlip : public testing::TestWithParam<char const *>
{
};

TEST_P(KvFlip, AFlippedBitIsDamageOrChangesNothing)
{
    std::string const chain = GetParam();
    std::string const data = SampleData(500);
    std::string const encoded = Encoded(chain, data);
    for (std::size_t i = 0; i < encoded.size() * 8; ++i)
    {
        std::string damaged = encoded;
        damaged[i / 8] = static_cast<char>(damaged[i / 8] ^ (1 << i % 8));
        Outcome const decoded = DecodedDirectly(chain, damaged);
        if (decoded.damage.empty())
        {
            ASSERT_TRUE(decoded.output == data) << i;
        }
    }
}

INSTANTIATE_TEST_SUITE_P(
    Chains, KvFlip,
    testing::Values("deflate", "crc", "deflate,crc", "deflate,base64", "deflate,crc,base64", "crc,deflate"));

TEST(KvCut, ACutBetweenBlocksGivesTheBlocksBeforeIt)
{
    std::string const data = SampleData(10000);
    ToolResult const decoded = Decode("crc", Encoded("crc", data).substr(0, 8192));
    EXPECT_EQ(decoded.code, ExitOk);
    EXPECT_TRUE(decoded.output == data.substr(0, 2 * 4088));
}

// Damage

TEST(KvDamage, WhatIsGoodIsWrittenAndTheRestIsNamed)
{
    std::string const data = SampleData(3 * 4088);
    std::string damaged = Encoded("crc", data);
    damaged[8192 + 100] = static_cast<char>(damaged[8192 + 100] ^ 1);
    ToolResult const decoded = Decode("crc", damaged);
    EXPECT_EQ(decoded.code, ExitDamaged);
    EXPECT_TRUE(decoded.output == data.substr(0, 2 * 4088));
    EXPECT_EQ(
        decoded.error,
        "kv decode: standard input is damaged: CRC checksum error (stage crc, in the block at byte 8192 of "
        "the input)\n"
        "kv decode: the 8176 bytes before the damage were written\n");
}

TEST(KvDamage, LibraryTextsNameTheCause)
{
    struct
    {
        char const * chain;
        std::string input;
        char const * text;
    } const table[] = {
        {"base64", "Zm9v*", "Base64 format error (stage base64, at byte 4 of the input)"},
        {"base64", "Zm9v\xC3\xA4", "Base64 format error (stage base64, at byte 4 of the input)"},
        {"base64", "Zm9vY",
         "Unexpected end of file (stage base64, inside the group of characters that ends at byte 5 of the input)"},
        {"crc", Bytes("\0\0\0\0"), "Illegal CRC block size (stage crc, in the block at byte 0 of the input)"},
        {"crc", Bytes("\xF9\x0F\0\0"), "Illegal CRC block size (stage crc, in the block at byte 0 of the input)"},
        {"crc", Bytes("\1\0\0\0"), "Unexpected end of file (stage crc, in the block at byte 0 of the input)"},
        {"crc,base64", "AAAAAA==\n",
         "Illegal CRC block size (stage crc, in the block at byte 0 of what stage base64 gave)"},
        {"deflate", "not zlib at all", "incorrect header check (stage deflate, at byte 2 of the input)"},
        {"deflate", Bytes("\x78\x9C"), "Unexpected end of file (stage deflate, at byte 2 of the input)"},
    };
    for (auto const & row : table)
    {
        ToolResult const decoded = Decode(row.chain, row.input);
        EXPECT_EQ(decoded.code, ExitDamaged) << row.text;
        ExpectText(decoded.error, row.text);
    }
}

TEST(KvDamage, AWrongChainIsSuspectedWhenNothingDecodes)
{
    ToolResult const decoded = Decode("deflate", "Zm9v\n");
    EXPECT_EQ(decoded.code, ExitDamaged);
    ExpectText(decoded.error, "nothing was written; is CHAIN the one that the data was encoded with?");
}

TEST(KvDamage, BytesBehindTheCompressedStreamAreDamage)
{
    std::string const data = SampleData(1000);
    ToolResult const decoded = Decode("deflate", Encoded("deflate", data) + "x");
    EXPECT_EQ(decoded.code, ExitDamaged);
    EXPECT_TRUE(decoded.output == data);
    ExpectText(decoded.error, "Data goes on behind the end of the compressed stream");
}

TEST(KvDamage, AWrongCheckValueOfDeflateIsDamageBehindAllData)
{
    std::string const data = SampleData(1000);
    std::string encoded = Encoded("deflate", data);
    encoded.back() = static_cast<char>(encoded.back() ^ 1);
    ToolResult const decoded = Decode("deflate", encoded);
    EXPECT_EQ(decoded.code, ExitDamaged);
    EXPECT_TRUE(decoded.output == data);
    ExpectText(decoded.error, "incorrect data check");
}

TEST(KvDamage, AStreamThatNeedsADictionaryIsDamage)
{
    EXPECT_EQ(Decode("deflate", Bytes("\x78\xBB\0\0\0\1\1\1\1\1\1\1")).code, ExitDamaged);
}

TEST(KvDamage, RandomBytesNeverDoMoreThanFail)
{
    for (char const * chain :
         {"deflate", "crc", "base64", "crypt", "deflate,crc,base64", "crc,deflate", "base64,deflate"})
    {
        for (unsigned seed = 0; seed < 200; ++seed)
        {
            std::string input = RandomBytes(seed * 7, seed);
            if (seed % 2 == 0)
            {
                input.insert(0, "\x78\x9C");
            }
            int const code = Decode(chain, input).code;
            EXPECT_TRUE(code == ExitOk || code == ExitDamaged) << chain << seed;
        }
    }
}

} // namespace
