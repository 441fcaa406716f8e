// CompressingStream and DecompressingStream beside zlib itself on the same bytes at the same level.

#include <string>

#include <zlib.h>

#include <kvcore/streams/Compressing.h>
#include <kvcore/streams/MemoryStreams.h>

#include "Jobs.h"

namespace
{

Bytef * Bytes(std::string const & text)
{
    return reinterpret_cast<Bytef *>(const_cast<char *>(text.data()));
}

/// Deflates into memory made beforehand, which zlib fills in one call. Returns the compressed size.
std::size_t ZlibDeflate(std::string const & data, int level, std::string & target)
{
    z_stream zlib = {};
    deflateInit(&zlib, level);
    zlib.next_in = Bytes(data);
    zlib.avail_in = static_cast<uInt>(data.size());
    zlib.next_out = Bytes(target);
    zlib.avail_out = static_cast<uInt>(target.size());
    deflate(&zlib, Z_FINISH);
    deflateEnd(&zlib);
    return target.size() - zlib.avail_out;
}

/// Inflates everything in one call. Returns whether the end of the stream was reached.
bool ZlibInflate(std::string const & compressed, std::string & target)
{
    z_stream zlib = {};
    inflateInit(&zlib);
    zlib.next_in = Bytes(compressed);
    zlib.avail_in = static_cast<uInt>(compressed.size());
    zlib.next_out = Bytes(target);
    zlib.avail_out = static_cast<uInt>(target.size());
    int const result = inflate(&zlib, Z_FINISH);
    inflateEnd(&zlib);
    return result == Z_STREAM_END;
}

std::string Compress(std::string const & data, int level)
{
    MemoryOutputStream memory;
    {
        CompressingStream stream(memory, level);
        bench::WriteInPieces(stream, data);
    }
    return memory.GetContent();
}

void AddLevel(std::string const & variant, std::string const & data, int level)
{
    std::string target(compressBound(data.size()) + 16, '\0');
    std::string const compressed = Compress(data, level);
    std::size_t const size = ZlibDeflate(data, level, target);
    bench::Require(compressed == target.substr(0, size), "CompressingStream/" + variant);

    bench::Add(
        "CompressingStream/" + variant + "/ours", data.size(),
        [data, level]
        {
            bench::CountingSink sink;
            CompressingStream stream(sink, level);
            bench::WriteInPieces(stream, data);
        });
    bench::Add(
        "CompressingStream/" + variant + "/zlib", data.size(),
        [data, level, target]() mutable { benchmark::DoNotOptimize(ZlibDeflate(data, level, target)); });
}

void AddDecompressing(std::string const & variant, std::string const & data)
{
    std::string const compressed = Compress(data, -1);
    std::string ours(data.size(), '\0');
    std::string peer(data.size(), '\0');
    MemoryInputStream memory(compressed);
    DecompressingStream stream(memory);
    bench::ReadInPieces(stream, ours);
    bench::Require(ours == data && ZlibInflate(compressed, peer) && peer == data, "DecompressingStream/" + variant);

    bench::Add(
        "DecompressingStream/" + variant + "/ours", data.size(),
        [compressed, ours]() mutable
        {
            MemoryInputStream source(compressed);
            DecompressingStream input(source);
            bench::ReadInPieces(input, ours);
            benchmark::ClobberMemory();
        });
    bench::Add(
        "DecompressingStream/" + variant + "/zlib", data.size(),
        [compressed, peer]() mutable { benchmark::DoNotOptimize(ZlibInflate(compressed, peer)); });
}

void AddJobs()
{
    std::string const mixed = bench::MixedBytes(0x100000);
    AddLevel("level-1", mixed, 1);
    AddLevel("default", mixed, -1);
    AddLevel("level-9", mixed, 9);
    AddLevel("random-default", bench::RandomBytes(0x100000), -1);
    AddDecompressing("mixed", mixed);
    AddDecompressing("random", bench::RandomBytes(0x100000));
}

bench::Source const source(AddJobs);

} // namespace
