#include <kvcore/examples/storyboard/FormatProbe.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <string_view>

namespace Storyboard
{

namespace
{

using Kind = Format::Kind;

/// The bytes of a header. What lies behind their end reads as 0.
class Header
{
public:
    explicit Header(std::span<unsigned char const> headerBytes) : bytes(headerBytes) {}

    std::size_t Size() const
    {
        return bytes.size();
    }
    std::uint32_t Byte(std::size_t offset) const
    {
        return offset < bytes.size() ? bytes[offset] : 0;
    }
    std::uint32_t Little16(std::size_t offset) const
    {
        return Byte(offset) | Byte(offset + 1) << 8;
    }
    std::uint32_t Little32(std::size_t offset) const
    {
        return Little16(offset) | Little16(offset + 2) << 16;
    }
    std::uint32_t Big16(std::size_t offset) const
    {
        return Byte(offset) << 8 | Byte(offset + 1);
    }
    std::uint32_t Big32(std::size_t offset) const
    {
        return Big16(offset) << 16 | Big16(offset + 2);
    }
    bool Has(std::size_t offset, std::string_view text) const
    {
        return offset <= bytes.size() && text.size() <= bytes.size() - offset &&
            std::memcmp(bytes.data() + offset, text.data(), text.size()) == 0;
    }

private:
    std::span<unsigned char const> bytes;
};

/// A number of a header as the model holds it: what does not fit is as good as unknown.
std::int32_t Known(std::uint64_t number)
{
    return number <= std::numeric_limits<std::int32_t>::max() ? static_cast<std::int32_t>(number) : 0;
}

/// `count` things at `perSecond` of them; 0 if unknown or beyond all reason.
Ticks Duration(std::uint64_t count, std::uint64_t perSecond)
{
    constexpr std::uint64_t longest = 1'000'000'000; // seconds: thirty years
    if (perSecond == 0 || count / perSecond >= longest)
    {
        return 0;
    }
    std::uint64_t const seconds = count / perSecond;
    std::uint64_t const rest = count % perSecond;
    return static_cast<Ticks>(seconds * ticksPerSecond + rest * ticksPerSecond / perSecond);
}

void ProbePng(Header const & header, std::int64_t, ProbeResult & result)
{
    if (header.Has(12, "IHDR"))
    {
        result.format.width = Known(header.Big32(16));
        result.format.height = Known(header.Big32(20));
    }
}

void ProbeGif(Header const & header, std::int64_t, ProbeResult & result)
{
    result.format.width = Known(header.Little16(6));
    result.format.height = Known(header.Little16(8));
}

void ProbeBmp(Header const & header, std::int64_t, ProbeResult & result)
{
    bool const core = header.Little32(14) == 12; // the oldest header has 16-bit sides
    std::int32_t const height = static_cast<std::int32_t>(header.Little32(22));
    result.format.width = Known(core ? header.Little16(18) : header.Little32(18));
    // The sign tells only in which order the rows are stored.
    result.format.height =
        Known(core ? header.Little16(20) : static_cast<std::uint64_t>(std::abs(std::int64_t(height))));
}

void ProbeJpeg(Header const & header, std::int64_t, ProbeResult & result)
{
    // Segments up to the frame header, which has the size.
    for (std::size_t offset = 2; offset + 9 <= header.Size() && header.Byte(offset) == 0xFF;)
    {
        std::uint32_t const marker = header.Byte(offset + 1);
        if (marker == 0xFF)
        {
            ++offset; // fill byte
            continue;
        }
        bool const frame = marker >= 0xC0 && marker <= 0xCF && marker != 0xC4 && marker != 0xC8 && marker != 0xCC;
        if (frame)
        {
            result.format.height = Known(header.Big16(offset + 5));
            result.format.width = Known(header.Big16(offset + 7));
            return;
        }
        offset += 2 + header.Big16(offset + 2);
    }
}

/// A chunk of a RIFF file: where its data begin, and how many bytes of it the file can really hold.
struct Chunk
{
    std::size_t offset;
    std::uint32_t size;
};

/// The first chunk `name` at or behind `offset`; `{0, 0}` if there is none within the header.
Chunk FindChunk(Header const & header, std::uint64_t offset, std::string_view name)
{
    while (offset + 8 <= header.Size())
    {
        std::size_t const at = static_cast<std::size_t>(offset);
        std::uint32_t const size = header.Little32(at + 4);
        if (header.Has(at, name))
        {
            return {at + 8, size};
        }
        offset += std::uint64_t{8} + size + size % 2;
    }
    return {0, 0};
}

void ProbeWav(Header const & header, std::int64_t fileSize, ProbeResult & result)
{
    Chunk const format = FindChunk(header, 12, "fmt ");
    if (format.size < 16)
    {
        return;
    }
    result.format.channels = Known(header.Little16(format.offset + 2));
    result.format.rate = Known(header.Little32(format.offset + 4));
    Chunk const data = FindChunk(header, std::uint64_t{format.offset} + format.size + format.size % 2, "data");
    if (data.offset != 0)
    {
        // A writer that could not go back leaves a size of 0xFFFFFFFF.
        std::int64_t const held = std::max<std::int64_t>(0, fileSize - static_cast<std::int64_t>(data.offset));
        std::int64_t const size = std::min<std::int64_t>(data.size, held);
        result.length = Duration(static_cast<std::uint64_t>(size), header.Little32(format.offset + 8));
    }
}

void ProbeAvi(Header const & header, std::int64_t, ProbeResult & result)
{
    // RIFF .... AVI LIST .... hdrl avih ....
    if (!header.Has(20, "hdrlavih"))
    {
        return;
    }
    std::size_t const main = 32;
    std::uint32_t const microsecondsPerFrame = header.Little32(main);
    if (microsecondsPerFrame != 0)
    {
        result.format.rate = Known(1'000'000'000u / microsecondsPerFrame);
        result.length =
            Duration(std::uint64_t{header.Little32(main + 16)} * microsecondsPerFrame, std::uint64_t{1'000'000});
    }
    result.format.width = Known(header.Little32(main + 32));
    result.format.height = Known(header.Little32(main + 36));
}

void ProbeFlac(Header const & header, std::int64_t, ProbeResult & result)
{
    // The first metadata block is the stream information: after sizes, 20 bits of rate, 3 of channels less one, 5 of
    // depth less one, 36 of samples.
    if ((header.Byte(4) & 0x7F) != 0)
    {
        return;
    }
    std::uint64_t const packed = std::uint64_t{header.Big32(18)} << 32 | header.Big32(22);
    result.format.rate = Known(packed >> 44);
    result.format.channels = Known(((packed >> 41) & 7) + 1);
    result.length = Duration(packed & 0xF'FFFF'FFFF, packed >> 44);
}

void ProbeOgg(Header const & header, std::int64_t, ProbeResult & result)
{
    std::size_t const packet = 27 + header.Byte(26); // behind the page's segment table
    if (header.Has(packet, "\x01vorbis"))
    {
        result.format.encoding = "Vorbis";
        result.format.channels = Known(header.Byte(packet + 11));
        result.format.rate = Known(header.Little32(packet + 12));
    }
    else if (header.Has(packet, "\x80theora"))
    {
        result.format.kind = Kind::Film;
        result.format.encoding = "Theora";
    }
    else if (header.Has(packet, "OpusHead"))
    {
        result.format.encoding = "Opus";
        result.format.channels = Known(header.Byte(packet + 9));
    }
}

struct Signature
{
    std::size_t offset;
    std::string_view bytes;
    Kind kind;
    char const * encoding;
    void (*probe)(Header const & header, std::int64_t fileSize, ProbeResult & result) = nullptr;
};

using namespace std::string_view_literals;

constexpr Signature signatures[] = {
    {0, "\x89PNG\r\n\x1A\n"sv, Kind::Picture, "PNG", ProbePng},
    {0, "\xFF\xD8\xFF"sv, Kind::Picture, "JPEG", ProbeJpeg},
    {0, "GIF87a"sv, Kind::Picture, "GIF", ProbeGif},
    {0, "GIF89a"sv, Kind::Picture, "GIF", ProbeGif},
    {0, "BM"sv, Kind::Picture, "BMP", ProbeBmp},
    {0, "II*\0"sv, Kind::Picture, "TIFF"},
    {0, "MM\0*"sv, Kind::Picture, "TIFF"},
    {8, "WEBP"sv, Kind::Picture, "WebP"},
    {8, "WAVE"sv, Kind::Sound, "WAV", ProbeWav},
    {8, "AVI "sv, Kind::Film, "AVI", ProbeAvi},
    {0, "fLaC"sv, Kind::Sound, "FLAC", ProbeFlac},
    {0, "OggS"sv, Kind::Sound, "Ogg", ProbeOgg},
    {0, "ID3"sv, Kind::Sound, "MP3"},
    {4, "ftypM4A"sv, Kind::Sound, "AAC"},
    {4, "ftypheic"sv, Kind::Picture, "HEIC"},
    {4, "ftypavif"sv, Kind::Picture, "AVIF"},
    {4, "ftyp"sv, Kind::Film, "MP4"},
    {0, "\x1A\x45\xDF\xA3"sv, Kind::Film, "Matroska"},
    {0, "\x1F\x8B"sv, Kind::Other, "gzip"},
    {0, "PK\3\4"sv, Kind::Other, "zip"},
    {0, "%PDF-"sv, Kind::Other, "PDF"},
    {0,
     "\x7F"
     "ELF"sv,
     Kind::Other, "ELF"},
};

struct Extension
{
    std::string_view name;
    Kind kind;
    char const * encoding;
};

constexpr Extension extensions[] = {
    {"svg", Kind::Picture, "SVG"},  {"xpm", Kind::Picture, "XPM"}, {"ico", Kind::Picture, "ICO"},
    {"tga", Kind::Picture, "TGA"},  {"mp3", Kind::Sound, "MP3"},   {"aac", Kind::Sound, "AAC"},
    {"mid", Kind::Sound, "MIDI"},   {"mpg", Kind::Film, "MPEG"},   {"mpeg", Kind::Film, "MPEG"},
    {"wmv", Kind::Film, "WMV"},     {"htm", Kind::Text, "HTML"},   {"html", Kind::Text, "HTML"},
    {"md", Kind::Text, "Markdown"}, {"xml", Kind::Text, "XML"},
};

/// Whether the signature is no accident: the short ones occur in texts as well.
bool Confirmed(Signature const & signature, Header const & header)
{
    if (signature.offset == 8)
    {
        return header.Has(0, "RIFF");
    }
    if (signature.bytes == "BM")
    {
        std::uint32_t const headerSize = header.Little32(14);
        return headerSize == 12 || (headerSize >= 40 && headerSize <= 124);
    }
    return true;
}

std::string LowerExtension(std::string const & name)
{
    std::size_t const dot = name.rfind('.');
    std::string extension = dot == std::string::npos ? std::string() : name.substr(dot + 1);
    for (char & c : extension)
    {
        c = c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
    }
    return extension;
}

/// The encoding of plain text; empty if the bytes are none.
std::string TextEncoding(std::span<unsigned char const> head)
{
    bool ascii = true;
    bool utf8 = true;
    std::size_t following = 0;
    for (unsigned char const byte : head)
    {
        bool const control = (byte < 0x20 && !(byte >= '\t' && byte <= '\r') && byte != 0x1B) || byte == 0x7F;
        if (control)
        {
            return {};
        }
        bool const continues = byte >= 0x80 && byte < 0xC0;
        utf8 = utf8 && continues == (following > 0) && byte < 0xF8;
        following = continues && following > 0 ? following - 1 : byte >= 0xF0 ? 3 : byte >= 0xE0 ? 2 : byte >= 0xC0;
        ascii = ascii && byte < 0x80;
    }
    return head.empty() ? "" : ascii ? "ASCII" : utf8 ? "UTF-8" : "8-bit";
}

} // namespace

ProbeResult ProbeFormat(std::span<unsigned char const> head, std::string const & name, std::int64_t size)
{
    Header const header(head);
    ProbeResult result;
    for (Signature const & signature : signatures)
    {
        if (header.Has(signature.offset, signature.bytes) && Confirmed(signature, header))
        {
            result.format.kind = signature.kind;
            result.format.encoding = signature.encoding;
            if (signature.probe)
            {
                signature.probe(header, size, result);
            }
            return result;
        }
    }
    std::string const extension = LowerExtension(name);
    for (Extension const & known : extensions)
    {
        if (extension == known.name)
        {
            result.format.kind = known.kind;
            result.format.encoding = known.encoding;
            return result;
        }
    }
    result.format.encoding = TextEncoding(head);
    result.format.kind = result.format.encoding.empty() ? Kind::Other : Kind::Text;
    return result;
}

} // namespace Storyboard
