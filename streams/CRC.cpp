#include <kvcore/streams/CRC.h>

#include <zlib.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace
{

std::uint32_t Checksum(char const * data, int size)
{
    return static_cast<std::uint32_t>(crc32(0, reinterpret_cast<Bytef const *>(data), static_cast<uInt>(size)));
}

} // namespace

CRCOutputStream::CRCOutputStream(OutputStream & target)
    : OutputStream(&target), fill(0), payload(block), stage(Stage::Length)
{
}

CRCOutputStream::~CRCOutputStream() noexcept(false)
{
    if (downstream)
    {
        lastWrite.Run([this] { WriteBlock(); });
    }
}

void CRCOutputStream::Write(char const * data, int size)
{
    while (size > 0)
    {
        if (fill == blockSize || stage != Stage::Length)
        {
            FlushSelf(); // what an earlier failure left
        }
        if (fill == 0 && size >= blockSize)
        {
            char const * const whole = data;
            data += blockSize;
            size -= blockSize;
            WriteWholeBlock(whole);
            continue;
        }
        int const part = std::min(size, blockSize - fill);
        std::memcpy(block + fill, data, static_cast<std::size_t>(part));
        fill += part;
        data += part;
        size -= part;
        if (fill == blockSize)
        {
            FlushSelf();
        }
    }
}

// Passes on a block straight from the caller's memory. Whatever is not written when FlushSelf comes back must be there
// for a later call, so it is copied then.
void CRCOutputStream::WriteWholeBlock(char const * data)
{
    struct Keeper
    {
        CRCOutputStream & stream;

        ~Keeper()
        {
            if (stream.fill != 0)
            {
                std::memcpy(stream.block, stream.payload, blockSize);
            }
            stream.payload = stream.block;
        }
    } const keeper{*this};

    payload = data;
    fill = blockSize;
    FlushSelf();
}

void CRCOutputStream::FlushSelf()
{
    WriteBlock();
}

void CRCOutputStream::WriteBlock()
{
    if (fill == 0)
    {
        return;
    }
    if (stage == Stage::Length)
    {
        std::int32_t const length = fill;
        downstream->Write(reinterpret_cast<char const *>(&length), sizeof length);
        stage = Stage::Payload;
    }
    if (stage == Stage::Payload)
    {
        downstream->Write(payload, fill);
        stage = Stage::Checksum;
    }
    std::uint32_t const checksum = Checksum(payload, fill);
    downstream->Write(reinterpret_cast<char const *>(&checksum), sizeof checksum);
    stage = Stage::Length;
    fill = 0;
}

CRCInputStream::CRCInputStream(InputStream & from)
    : InputStream(&from), position(blockSize), arriving(0), payloadThere(false)
{
}

CRCInputStream::~CRCInputStream() noexcept(false) {}

void CRCInputStream::Read(char * data, int size)
{
    while (size > 0)
    {
        if (position == blockSize)
        {
            ReadBlock();
        }
        int const part = std::min(size, blockSize - position);
        std::memcpy(data, block + position, static_cast<std::size_t>(part));
        position += part;
        data += part;
        size -= part;
    }
}

void CRCInputStream::ReadBlock()
{
    if (arriving == 0)
    {
        std::int32_t length;
        source->Read(reinterpret_cast<char *>(&length), sizeof length);
        if (length < 1 || length > blockSize)
        {
            throw Exception{4, TEXT("Illegal CRC block size")};
        }
        arriving = length;
    }
    char * const payload = block + blockSize - arriving;
    if (!payloadThere)
    {
        source->Read(payload, arriving);
        payloadThere = true;
    }
    std::uint32_t checksum;
    source->Read(reinterpret_cast<char *>(&checksum), sizeof checksum);

    int const length = arriving;
    arriving = 0;
    payloadThere = false;
    // Kept: the block can be read from now on, also if the checksum is wrong.
    position = blockSize - length;
    if (checksum != Checksum(payload, length))
    {
        throw Exception{4, TEXT("CRC checksum error")};
    }
}
