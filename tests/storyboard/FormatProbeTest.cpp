#include "Samples.h"

#include <gtest/gtest.h>

#include <kvcore/examples/storyboard/Display.h>
#include <kvcore/examples/storyboard/FormatProbe.h>

namespace Storyboard
{

namespace
{

ProbeResult Probe(std::string const & head, std::string const & name = "file", std::int64_t size = -1)
{
    return ProbeFormat(
        {reinterpret_cast<unsigned char const *>(head.data()), head.size()}, name,
        size < 0 ? static_cast<std::int64_t>(head.size()) : size);
}

std::string const png =
    FromHex("89 50 4E 47 0D 0A 1A 0A  00 00 00 0D 49 48 44 52  00 00 01 90 00 00 00 C8 08 06 00 00 00");
std::string const gif = FromHex("47 49 46 38 39 61  40 01 C8 00 80 00 00");
// Row order from the top is a negative height.
std::string const bmp = FromHex(
    "42 4D 00 00 00 00 00 00 00 00 36 00 00 00  28 00 00 00  03 00 00 00  FE FF FF FF  01 00 18 00 00 00 00 00");
std::string const oldBmp = FromHex("42 4D 00 00 00 00 00 00 00 00 1A 00 00 00  0C 00 00 00  03 00 02 00  01 00 18 00");
// An application segment, then a progressive frame of 16 by 32.
std::string const jpeg =
    FromHex("FF D8 FF E0 00 06 4A 46 49 46  FF C2 00 11 08 00 20 00 10 03 01 22 00 02 11 01 03 11 01");
// 8,000 bytes of 16-bit stereo at 44,100 Hz would be 45 ms; a list stands between.
std::string const wav = FromHex(
    "52 49 46 46 00 00 00 00 57 41 56 45  66 6D 74 20 10 00 00 00  01 00 02 00 44 AC 00 00 10 B1 02 00 04 00 10 00"
    "4C 49 53 54 03 00 00 00 61 62 63 00  64 61 74 61 40 1F 00 00");
// 25 frames a second, 50 frames, 320 by 240.
std::string const avi =
    FromHex("52 49 46 46 00 00 00 00 41 56 49 20  4C 49 53 54 00 00 00 00 68 64 72 6C  61 76 69 68 38 00 00 00"
            "40 9C 00 00  00 00 00 00 00 00 00 00 00 00 00 00  32 00 00 00  00 00 00 00 00 00 00 00 00 00 00 00"
            "40 01 00 00  F0 00 00 00");
// 48,000 Hz, 2 channels, 16 bits, 96,000 samples.
std::string const flac = FromHex("66 4C 61 43  00 00 00 22  10 00 10 00 00 00 00 00 00 00  0B B8 02 F0 00 01 77 00");
std::string const vorbis = FromHex("4F 67 67 53 00 02 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 01 1E"
                                   "01 76 6F 72 62 69 73 00 00 00 00 01 22 56 00 00");

} // namespace

TEST(FormatProbe, ReadsHeaders)
{
    struct
    {
        std::string head;
        Format::Kind kind;
        char const * description;
        Ticks length;
        std::int64_t size = -1;
    } const cases[] = {
        {png, Format::Kind::Picture, "PNG 400 x 200", 0},
        {gif, Format::Kind::Picture, "GIF 320 x 200", 0},
        {bmp, Format::Kind::Picture, "BMP 3 x 2", 0},
        {oldBmp, Format::Kind::Picture, "BMP 3 x 2", 0},
        {jpeg, Format::Kind::Picture, "JPEG 16 x 32", 0},
        {wav, Format::Kind::Sound, "WAV 44.1 kHz stereo", 453514, 100'000},
        {avi, Format::Kind::Film, "AVI 320 x 240 25 fps", 2 * ticksPerSecond},
        {flac, Format::Kind::Sound, "FLAC 48 kHz stereo", 2 * ticksPerSecond},
        {vorbis, Format::Kind::Sound, "Vorbis 22.05 kHz mono", 0},
        {"%PDF-1.4", Format::Kind::Other, "PDF", 0},
        {std::string("\x1F\x8B\x08\x00", 4), Format::Kind::Other, "gzip", 0},
    };
    for (auto const & one : cases)
    {
        ProbeResult const result = Probe(one.head, "name.txt", one.size);
        EXPECT_EQ(result.format.kind, one.kind) << one.description;
        EXPECT_EQ(Describe(result.format), one.description);
        EXPECT_EQ(result.length, one.length) << one.description;
    }
}

TEST(FormatProbe, TellsTextByItsBytes)
{
    struct
    {
        std::string head;
        char const * description;
    } const cases[] = {
        {"plain\ttext\r\n", "ASCII text"},
        {"caf\xC3\xA9", "UTF-8 text"},
        {"\xE2\x82\xAC and \xF0\x9F\x8E\xAC", "UTF-8 text"},
        {"caf\xE9 noir", "8-bit text"},
        {"BM is how this begins, and so it goes on", "ASCII text"},
        {"", "-"},
        {std::string("a\0b", 3), "-"},
        {"\x01\x02", "-"},
    };
    for (auto const & one : cases)
    {
        EXPECT_EQ(Describe(Probe(one.head).format), one.description) << one.head;
    }
}

TEST(FormatProbe, TellsTheRestByTheName)
{
    struct
    {
        char const * name;
        char const * description;
    } const cases[] = {
        {"a.svg", "SVG"},
        {"A.MPG", "MPEG"},
        {"b/page.html", "HTML text"},
        {"b.svg/page", "ASCII text"},
        {"x.y.mp3", "MP3"},
        {"read.md", "Markdown text"},
        {"svg", "ASCII text"},
    };
    for (auto const & one : cases)
    {
        EXPECT_EQ(Describe(Probe("text", one.name).format), one.description) << one.name;
    }
}

TEST(FormatProbe, WavLengthIsNoMoreThanTheFileHolds)
{
    std::string endless = wav;
    endless.replace(endless.size() - 4, 4, "\xFF\xFF\xFF\xFF");
    std::int64_t const size = static_cast<std::int64_t>(wav.size()) + 176'400; // a second
    EXPECT_EQ(Probe(endless, "a.wav", size).length, ticksPerSecond);
}

TEST(FormatProbe, DamagedHeadersGiveLess)
{
    for (std::string const & head : {png, gif, bmp, oldBmp, jpeg, wav, avi, flac, vorbis})
    {
        for (std::size_t size = 0; size < head.size(); ++size)
        {
            ProbeResult const result = Probe(head.substr(0, size));
            EXPECT_GE(result.length, 0);
        }
        for (std::size_t i = 0; i < head.size(); ++i)
        {
            for (int const mask : {0x01, 0x80, 0xFF})
            {
                std::string changed = head;
                changed[i] = static_cast<char>(changed[i] ^ mask);
                Format const & format = Probe(changed).format;
                EXPECT_TRUE(format.width >= 0 && format.height >= 0 && format.rate >= 0 && format.channels >= 0);
            }
        }
    }
}

} // namespace Storyboard
