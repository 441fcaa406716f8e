#include <kvcore/streams/MD5.h>

#include <algorithm>
#include <iterator>
#include <type_traits>

#include <kvcore/streams/Base64.h>

#include <support/TestBytes.h>

using namespace kv::test;

namespace
{

MD5Sum SumOf(std::string const & data)
{
    MD5SumStream stream;
    stream.Write(data.data(), static_cast<int>(data.size()));
    return stream.GetMD5Sum();
}

MD5Sum Sum(std::string const & text)
{
    MD5Sum sum;
    EXPECT_TRUE(sum.SetHexString(text));
    return sum;
}

} // namespace

TEST(MD5SumStreams, TestSuiteOfRFC1321)
{
    struct
    {
        char const * data;
        char const * sum;
    } const cases[] = {
        {"", "D41D8CD98F00B204E9800998ECF8427E"},
        {"a", "0CC175B9C0F1B6A831C399E269772661"},
        {"abc", "900150983CD24FB0D6963F7D28E17F72"},
        {"message digest", "F96B697D7CB7938D525A2F31AAF161D0"},
        {"abcdefghijklmnopqrstuvwxyz", "C3FCD3D76192E4007DFB496CCA67E13B"},
        {"ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789", "D174AB98D277D9F5A5611C2C9F419D9F"},
        {"12345678901234567890123456789012345678901234567890123456789012345678901234567890",
         "57EDF4A22BE3C955AC49DA2E2107B67A"},
    };
    for (auto const & row : cases)
    {
        EXPECT_EQ(SumOf(row.data).HexString(), row.sum) << row.data;
    }
}

TEST(MD5SumStreams, EveryLengthAroundTheBlocks)
{
    // The sum of all sums of 0 to 299 bytes "a", as an independent program gives it.
    MD5SumStream all;
    for (std::size_t size = 0; size < 300; ++size)
    {
        std::string const sum = SumOf(std::string(size, 'a')).HexString();
        all.Write(sum.data(), static_cast<int>(sum.size()));
    }
    EXPECT_EQ(all.GetMD5Sum().HexString(), "7912F332E9855FA934609BAC63CA0E38");
}

TEST(MD5SumStreams, AnySplitGivesTheSameSum)
{
    std::string const data = RandomBytes(5000);
    MD5Sum const whole = SumOf(data);
    for (unsigned int seed = 0; seed < 20; ++seed)
    {
        for (int const most : {1, 70, 1000})
        {
            MD5SumStream stream;
            InRandomPieces(
                data.size(), most, seed,
                [&](std::size_t offset, int size) { stream.Write(data.data() + offset, size); });
            ASSERT_EQ(stream.GetMD5Sum(), whole) << seed;
        }
    }
}

TEST(MD5SumStreams, MoreThanTwoToThe32BitsAreCounted)
{
    // 512 MiB and a byte of zeros: the length needs its 33rd bit.
    std::string const zeros(0x100000, '\0');
    MD5SumStream stream;
    for (int i = 0; i < 512; ++i)
    {
        stream.Write(zeros.data(), 0x100000);
    }
    EXPECT_EQ(stream.GetMD5Sum().HexString(), "AA559B4E3523A6C931F08F4DF52D58F2");
    stream.Write(zeros.data(), 1);
    EXPECT_EQ(stream.GetMD5Sum().HexString(), "EA3B62C6B93CB3625A1FD76777985F5A");
}

TEST(MD5SumStreams, AFreshOneHasTheSumOfNothing)
{
    MD5SumStream stream;
    EXPECT_EQ(stream.GetMD5Sum(), MD5Sum());
    EXPECT_EQ(MD5Sum().HexString(), "D41D8CD98F00B204E9800998ECF8427E");
}

TEST(MD5SumStreams, TheSumCanBeTakenAgainAndWritingGoesOn)
{
    MD5SumStream stream;
    stream.Write("ab", 2);
    MD5Sum const first = stream.GetMD5Sum();
    EXPECT_EQ(stream.GetMD5Sum(), first);
    stream.Write("c", 1);
    EXPECT_EQ(stream.GetMD5Sum(), SumOf("abc"));
}

TEST(MD5SumStreams, GetMD5SumFlushesWhatIsChainedInFront)
{
    MD5SumStream stream;
    Base64EncodingStream filter(stream, -1);
    filter.Write("a", 1);
    EXPECT_EQ(stream.GetMD5Sum(), SumOf("YQ=="));
}

TEST(MD5SumStreams, SizesBelowOneAreNothing)
{
    MD5SumStream stream;
    stream.Write(nullptr, 0);
    stream.Write("abc", -1);
    EXPECT_EQ(stream.GetMD5Sum(), MD5Sum());
    static_assert(!std::is_copy_constructible_v<MD5SumStream>);
}

TEST(MD5Sums, LowerCaseDigitsAreReadAndUpperCaseOnesWritten)
{
    EXPECT_EQ(Sum("900150983cd24fb0d6963f7d28e17f72").HexString(), "900150983CD24FB0D6963F7D28E17F72");
    EXPECT_EQ(Sum("900150983Cd24fB0d6963F7d28E17f72"), SumOf("abc"));
    EXPECT_EQ(Sum("00112233445566778899AABBCCDDEEFF").HexString(), "00112233445566778899AABBCCDDEEFF");
}

TEST(MD5Sums, ATextThatIsNoSumLeavesTheOldValue)
{
    std::string const texts[] = {
        "",
        "900150983CD24FB0D6963F7D28E17F7",
        "900150983CD24FB0D6963F7D28E17F720",
        "900150983CD24FB0D6963F7D28E17F7g",
        "g00150983CD24FB0D6963F7D28E17F72",
        "900150983CD24FB0 6963F7D28E17F72",
        "900150983CD24FB0@6963F7D28E17F72",
        "900150983CD24FB0`6963F7D28E17F72",
        "900150983CD24FB0:6963F7D28E17F72",
        "900150983CD24FB0/6963F7D28E17F72",
        "900150983CD24FB0\xC6"
        "6963F7D28E17F72",
    };
    for (std::string const & text : texts)
    {
        MD5Sum sum = SumOf("kept");
        EXPECT_FALSE(sum.SetHexString(text)) << text;
        EXPECT_EQ(sum, SumOf("kept")) << text;
    }
}

TEST(MD5Sums, Base64HasTwentyTwoCharactersWithoutPadding)
{
    EXPECT_EQ(MD5Sum().Base64String(), "1B2M2Y8AsgTpgAmY7PhCfg");
    EXPECT_EQ(Sum("FFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFF").Base64String(), "/////////////////////w");
    for (int i = 0; i < 50; ++i)
    {
        std::string const text = SumOf(std::to_string(i)).Base64String();
        EXPECT_EQ(text.size(), 22u);
        EXPECT_EQ(text.find('='), std::string::npos);
    }
}

TEST(MD5Sums, AreOrderedByTheirBytesAsUnsigned)
{
    // Each is less than the next.
    MD5Sum const sums[] = {
        Sum("00000000000000000000000000000000"), Sum("000000000000000000000000000000FF"),
        Sum("7F000000000000000000000000000000"), Sum("7FFFFFFFFFFFFFFFFFFFFFFFFFFFFFFF"),
        Sum("80000000000000000000000000000000"), Sum("FF000000000000000000000000000001"),
    };
    for (std::size_t i = 0; i < std::size(sums); ++i)
    {
        for (std::size_t k = 0; k < std::size(sums); ++k)
        {
            EXPECT_EQ(sums[i] < sums[k], i < k);
            EXPECT_EQ(sums[i] <= sums[k], i <= k);
            EXPECT_EQ(sums[i] == sums[k], i == k);
            EXPECT_EQ(sums[i] != sums[k], i != k);
            EXPECT_EQ(sums[i] >= sums[k], i >= k);
            EXPECT_EQ(sums[i] > sums[k], i > k);
        }
    }
}

TEST(MD5Sums, AreSixteenBytesAndCopyAsSuch)
{
    static_assert(std::is_trivially_copyable_v<MD5Sum> && sizeof(MD5Sum) == 16);
    MD5Sum const sum = SumOf("abc");
    MD5Sum copy;
    copy = sum;
    EXPECT_EQ(copy, sum);
    EXPECT_EQ(std::string(reinterpret_cast<char const *>(&copy), 2), Bytes("\x90\x01"));
}
