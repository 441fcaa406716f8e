// What the streams cost in memory, measured on this process's own heap. Prints JSON rows for the report.

#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>

#include <malloc.h>
#include <unistd.h>

#include <kvcore/streams/Base64.h>
#include <kvcore/streams/CRC.h>
#include <kvcore/streams/Compressing.h>
#include <kvcore/streams/MemoryStreams.h>

namespace
{

/// Bytes that the heap has taken from the system, in use or not.
std::size_t Heap()
{
    struct mallinfo2 const heap = mallinfo2();
    return heap.arena + heap.hblkhd;
}

/// Bytes of this process that lie in memory.
std::size_t Resident()
{
    std::ifstream file("/proc/self/statm");
    std::size_t total = 0;
    std::size_t resident = 0;
    file >> total >> resident;
    return resident * static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
}

void PrintRow(char const * job, double value, char const * unit, double atMost)
{
    static bool first = true;
    std::printf(
        "%s\n  {\"job\": \"%s\", \"value\": %.3f, \"unit\": \"%s\", \"at_most\": %g}", first ? "" : ",", job, value,
        unit, atMost);
    first = false;
}

/// Writes `size` bytes in pieces of `piece` bytes and tells what memory they took beyond themselves, in percent: the
/// larger of what the heap grew by and what the process grew by.
void MeasureMemoryOutput(char const * job, std::size_t size, std::size_t piece)
{
    std::string const data(piece, 'x');
    malloc_trim(0);
    std::size_t const heap = Heap();
    std::size_t const resident = Resident();
    MemoryOutputStream memory;
    for (std::size_t left = size; left != 0;)
    {
        std::size_t const now = left < piece ? left : piece;
        memory.Write(data.data(), static_cast<int>(now));
        left -= now;
    }
    std::size_t const heapGrowth = Heap() - heap;
    std::size_t const residentGrowth = Resident() - resident;
    double const cost = static_cast<double>(heapGrowth > residentGrowth ? heapGrowth : residentGrowth);
    PrintRow(job, (cost / static_cast<double>(size) - 1) * 100, "% above the data", 1);
}

/// What the last filter of the encoding chain has produced and the first of the decoding chain has not yet taken.
class Pipe : public OutputStream, public InputStream
{
public:
    Pipe() : OutputStream(nullptr), InputStream(nullptr) {}

    void Write(char const * data, int size) override
    {
        held.append(data, static_cast<std::size_t>(size));
    }

    void Read(char * data, int size) override
    {
        std::size_t const wanted = static_cast<std::size_t>(size);
        if (held.size() - taken < wanted)
        {
            throw StreamBase::Exception{5, TEXT("The pipe has run dry")};
        }
        held.copy(data, wanted, taken);
        taken += wanted;
        if (taken == held.size())
        {
            held.clear();
            taken = 0;
        }
    }

private:
    std::string held;
    std::size_t taken = 0;
};

/// A block that hardly compresses, other at each call.
void FillBlock(std::string & block)
{
    static unsigned state = 1;
    for (char & byte : block)
    {
        state = state * 1664525 + 1013904223;
        byte = static_cast<char>(state >> 24 & 0x3F);
    }
}

/// Sends `size` bytes through deflate, CRC and Base64, and back through the mirror chain, in one go. Tells what the
/// heap grew by, in KiB, from the first MiB to the last.
void MeasurePipe(char const * job, std::size_t size)
{
    Pipe pipe;
    Base64EncodingStream base64(pipe, 76);
    CRCOutputStream crc(base64);
    CompressingStream compressing(crc, 1);
    Base64DecodingStream unbase64(pipe);
    CRCInputStream uncrc(unbase64);
    DecompressingStream decompressing(uncrc);

    std::string block(0x10000, '\0');
    std::string back(block.size(), '\0');
    std::size_t start = 0;
    std::size_t peak = 0;
    for (std::size_t done = 0; done < size; done += block.size())
    {
        FillBlock(block);
        compressing.Write(block.data(), static_cast<int>(block.size()));
        // The end of the chain, so that every filter gives what it has and the reader can follow.
        base64.Flush();
        decompressing.Read(back.data(), static_cast<int>(back.size()));
        if (back != block)
        {
            std::fprintf(stderr, "The pipe changed the data.\n");
            std::exit(1);
        }
        std::size_t const now = Heap();
        start = done < 0x100000 ? now : start;
        peak = now > peak ? now : peak;
    }
    PrintRow(job, static_cast<double>(peak - start) / 1024, "KiB growth", 64);
}

} // namespace

int main(int argc, char ** argv)
{
    bool const quick = argc > 1 && std::string(argv[1]) == "--quick";
    std::printf("[");
    MeasureMemoryOutput("MemoryOutputStream/1GiB-by-64KiB", 0x40000000, 0x10000);
    MeasureMemoryOutput("MemoryOutputStream/1GiB-by-100", 0x40000000, 100);
    MeasurePipe("FilterPipe/deflate,crc,base64", quick ? 0x1000000 : 0x10000000);
    std::printf("\n]\n");
    return 0;
}
