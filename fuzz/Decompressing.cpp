// DecompressingStream on any bytes, beside zlib itself fed in the simplest way; and the way there and back.

#include <zlib.h>

#include <kvcore/streams/Compressing.h>
#include <kvcore/streams/MemoryStreams.h>

#include "Fuzz.h"

namespace
{

/// A few bytes can stand for very many: enough is enough.
std::size_t const maxOutput = 0x40000;

/// zlib given one byte at a time and only when it has none, as the contract has it.
class Reference
{
public:
    explicit Reference(std::string const & bytes) : source(bytes)
    {
        fuzz::Check(inflateInit(&zlib) == Z_OK, "zlib does not start");
    }
    ~Reference()
    {
        inflateEnd(&zlib);
    }
    Reference(Reference const &) = delete;
    Reference & operator=(Reference const &) = delete;

    /// 0, or the code of the failure.
    int Read(char * data, std::size_t size)
    {
        zlib.next_out = reinterpret_cast<Bytef *>(data);
        zlib.avail_out = static_cast<uInt>(size);
        while (zlib.avail_out != 0)
        {
            if (zlib.avail_in == 0)
            {
                if (taken == source.size())
                {
                    return 5;
                }
                byte = static_cast<Bytef>(source[taken++]);
                zlib.next_in = &byte;
                zlib.avail_in = 1;
            }
            if (inflate(&zlib, Z_NO_FLUSH) != Z_OK)
            {
                return 2;
            }
        }
        return 0;
    }

    std::size_t Taken() const
    {
        return taken;
    }

private:
    std::string const & source;
    std::size_t taken = 0;
    Bytef byte = 0;
    z_stream zlib = {};
};

/// Counts what the filter above it has taken.
class CountingSource : public InputStream
{
public:
    explicit CountingSource(InputStream & stream) : InputStream(&stream) {}

    void Read(char * data, int size) override
    {
        source->Read(data, size);
        taken += static_cast<std::size_t>(size);
    }

    std::size_t taken = 0;
};

void CheckReading(std::string const & bytes, std::uint32_t pieces)
{
    Reference reference(bytes);
    MemoryInputStream memory(bytes);
    CountingSource source(memory);
    DecompressingStream stream(source);
    for (std::size_t total = 0; total < maxOutput;)
    {
        // Pieces of many sizes, the same in every run of this input.
        pieces = pieces * 1664525 + 1013904223;
        std::size_t const piece = 1 + (pieces >> 24) * (pieces >> 20 & 15);
        fuzz::Exact<char> const expected(piece);
        fuzz::Exact<char> const delivered(piece);
        int const expectedCode = reference.Read(expected.Data(), piece);
        int code = 0;
        try
        {
            stream.Read(delivered.Data(), static_cast<int>(piece));
        }
        catch (StreamBase::Exception const & exception)
        {
            code = exception.code;
        }
        fuzz::Check(code == expectedCode, "another result than zlib's");
        if (code != 0)
        {
            return;
        }
        fuzz::Check(std::memcmp(expected.Data(), delivered.Data(), piece) == 0, "other bytes than zlib's");
        fuzz::Check(source.taken == reference.Taken(), "the source stands at another byte than zlib needs");
        total += piece;
    }
}

void CheckThereAndBack(std::string const & data, int level, std::size_t flushAt)
{
    MemoryOutputStream memory;
    {
        CompressingStream stream(memory, level);
        std::size_t const first = std::min(flushAt, data.size());
        stream.Write(data.data(), static_cast<int>(first));
        stream.Flush();
        stream.Write(data.data() + first, static_cast<int>(data.size() - first));
    }
    std::string const compressed = memory.GetContent();
    fuzz::Check(compressed.empty() == data.empty(), "no data, no output, and only then");
    MemoryInputStream source(compressed);
    DecompressingStream stream(source);
    std::string back(data.size(), '\0');
    stream.Read(back.data(), static_cast<int>(back.size()));
    fuzz::Check(back == data, "the data does not come back");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const * data, std::size_t size)
{
    fuzz::Input input(data, size);
    std::uint32_t const pieces = input.DWord();
    int const level = static_cast<std::int8_t>(input.Byte());
    std::size_t const flushAt = input.Byte();
    std::string const bytes = input.Rest();
    CheckReading(bytes, pieces);
    CheckThereAndBack(bytes, level, flushAt);
    return 0;
}
