// The CRC streams beside zlib's crc32 alone over the same bytes. Block framing and copying is what ours does on top.

#include <string>

#include <zlib.h>

#include <kvcore/streams/CRC.h>
#include <kvcore/streams/MemoryStreams.h>

#include "Jobs.h"

namespace
{

/// In the pieces that a block holds, so that the peer, too, meets memory that is in the cache.
unsigned long ZlibAlone(std::string const & data)
{
    unsigned long sum = 0;
    for (std::size_t at = 0; at < data.size(); at += 4088)
    {
        std::size_t const size = std::min<std::size_t>(4088, data.size() - at);
        sum ^= crc32(0, reinterpret_cast<Bytef const *>(data.data() + at), static_cast<uInt>(size));
    }
    return sum;
}

void AddJobs()
{
    std::string const data = bench::RandomBytes(0x100000);
    std::string blocks;
    {
        MemoryOutputStream memory;
        {
            CRCOutputStream stream(memory);
            bench::WriteInPieces(stream, data);
        }
        blocks = memory.GetContent();
    }
    std::string read(data.size(), ' ');
    MemoryInputStream memory(blocks);
    CRCInputStream input(memory);
    bench::ReadInPieces(input, read);
    bench::Require(read == data, "CRCStream");

    bench::Add(
        "CRCStream/write/ours", data.size(),
        [data]
        {
            bench::CountingSink sink;
            CRCOutputStream stream(sink);
            bench::WriteInPieces(stream, data);
        });
    bench::Add("CRCStream/write/zlib", data.size(), [data] { benchmark::DoNotOptimize(ZlibAlone(data)); });
    bench::Add(
        "CRCStream/read/ours", data.size(),
        [blocks, read]() mutable
        {
            MemoryInputStream source(blocks);
            CRCInputStream stream(source);
            bench::ReadInPieces(stream, read);
            benchmark::ClobberMemory();
        });
    bench::Add("CRCStream/read/zlib", data.size(), [data] { benchmark::DoNotOptimize(ZlibAlone(data)); });
}

bench::Source const source(AddJobs);

} // namespace
