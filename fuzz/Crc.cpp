// CRCInputStream on any bytes, beside the block format's rules; and the way there and back.

#include <zlib.h>

#include <kvcore/streams/CRC.h>
#include <kvcore/streams/MemoryStreams.h>

#include "Fuzz.h"

namespace
{

std::size_t const maxBlock = 4088;

std::uint32_t WordAt(std::string const & bytes, std::size_t at)
{
    std::uint32_t word;
    std::memcpy(&word, bytes.data() + at, sizeof(word));
    return word;
}

std::uint32_t Sum(std::string const & bytes, std::size_t at, std::size_t size)
{
    return static_cast<std::uint32_t>(
        crc32(0, reinterpret_cast<Bytef const *>(bytes.data() + at), static_cast<uInt>(size)));
}

/// The payload of all sound blocks from the start, and the failure that ends them.
std::string Reference(std::string const & bytes, int & code)
{
    std::string payload;
    std::size_t at = 0;
    for (;;)
    {
        code = 5;
        if (bytes.size() - at < 4)
        {
            return payload;
        }
        std::size_t const length = WordAt(bytes, at);
        at += 4;
        if (length < 1 || length > maxBlock)
        {
            code = 4;
            return payload;
        }
        if (bytes.size() - at < length + 4)
        {
            return payload;
        }
        if (WordAt(bytes, at + length) != Sum(bytes, at, length))
        {
            code = 4;
            return payload;
        }
        payload.append(bytes, at, length);
        at += length + 4;
    }
}

void CheckReading(std::string const & bytes, std::size_t piece)
{
    int expectedCode = 0;
    std::string const expected = Reference(bytes, expectedCode);
    MemoryInputStream source(bytes);
    CRCInputStream stream(source);
    std::string delivered;
    try
    {
        for (;;)
        {
            fuzz::Exact<char> const target(piece);
            stream.Read(target.Data(), static_cast<int>(piece));
            delivered.append(target.Data(), piece);
        }
    }
    catch (StreamBase::Exception const & exception)
    {
        fuzz::Check(exception.code == expectedCode, "another failure than the blocks call for");
    }
    fuzz::Check(
        delivered == expected.substr(0, expected.size() / piece * piece),
        "a byte that no sound block holds, or a lost one");
    // Whatever the stream holds after a failure, further reads end in a failure too.
    try
    {
        for (std::size_t i = 0; i <= maxBlock; ++i)
        {
            char byte;
            stream.Read(&byte, 1);
        }
    }
    catch (StreamBase::Exception const &)
    {
        return;
    }
    fuzz::Check(bytes.size() > maxBlock, "more bytes than the source has");
}

/// The same blocks with their sums set right, so that the fuzzer need not find checksums.
std::string Repaired(std::string bytes)
{
    for (std::size_t at = 0; bytes.size() - at >= 8;)
    {
        std::size_t const length = WordAt(bytes, at);
        if (length < 1 || length > maxBlock || bytes.size() - at < length + 8)
        {
            break;
        }
        std::uint32_t const sum = Sum(bytes, at + 4, length);
        std::memcpy(bytes.data() + at + 4 + length, &sum, sizeof(sum));
        at += length + 8;
    }
    return bytes;
}

void CheckThereAndBack(std::string const & data, std::size_t piece, bool flush)
{
    MemoryOutputStream memory;
    {
        CRCOutputStream stream(memory);
        for (std::size_t at = 0; at < data.size(); at += piece)
        {
            stream.Write(data.data() + at, static_cast<int>(std::min(piece, data.size() - at)));
            if (flush)
            {
                stream.Flush();
            }
        }
    }
    int code = 0;
    fuzz::Check(Reference(memory.GetContent(), code) == data && code == 5, "the data does not come back");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const * data, std::size_t size)
{
    fuzz::Input input(data, size);
    std::size_t const piece = 1 + input.Word() % 5000;
    bool const flush = input.Byte() % 2 != 0;
    std::string const bytes = input.Rest();
    CheckReading(bytes, piece);
    CheckReading(Repaired(bytes), piece);
    CheckThereAndBack(bytes, piece, flush);
    return 0;
}
