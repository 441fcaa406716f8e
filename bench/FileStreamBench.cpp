// The buffered file streams beside C's stdio, and a whole file into a string beside one read of its size.

#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include <fcntl.h>
#include <unistd.h>

#include <kvcore/files/FileStreams.h>

#include "Jobs.h"
#include "ScratchFolder.h"

namespace
{

using bench::ScratchFolder;

void WriteOurs(String const & path, std::string const & piece, std::size_t total)
{
    FileOutputStream stream(path, false);
    for (std::size_t done = 0; done < total; done += piece.size())
    {
        stream.Write(piece.data(), static_cast<int>(piece.size()));
    }
}

/// With the flush to the disk that ours promises.
void WriteStdio(std::filesystem::path const & path, std::string const & piece, std::size_t total)
{
    std::FILE * const file = std::fopen(path.c_str(), "wb");
    for (std::size_t done = 0; done < total; done += piece.size())
    {
        std::fwrite(piece.data(), 1, piece.size(), file);
    }
    std::fflush(file);
    fsync(fileno(file));
    std::fclose(file);
}

/// The reads come with a sum over the first bytes of the pieces, so that nobody can leave them out.
unsigned ReadOurs(String const & path, std::size_t size, std::size_t total)
{
    FileInputStream stream(path, FileAccessMode(0));
    std::vector<char> piece(size);
    unsigned sum = 0;
    for (std::size_t done = 0; done < total; done += size)
    {
        stream.Read(piece.data(), static_cast<int>(size));
        sum += static_cast<unsigned char>(piece[0]);
    }
    return sum;
}

unsigned ReadStdio(std::filesystem::path const & path, std::size_t size, std::size_t total)
{
    std::FILE * const file = std::fopen(path.c_str(), "rb");
    std::vector<char> piece(size);
    std::size_t got = 0;
    unsigned sum = 0;
    for (std::size_t done = 0; done < total; done += size)
    {
        got += std::fread(piece.data(), 1, size, file);
        sum += static_cast<unsigned char>(piece[0]);
    }
    std::fclose(file);
    bench::Require(got == total, "FileStream");
    return sum;
}

std::string Content(std::filesystem::path const & path)
{
    std::ifstream file(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(file), {});
}

std::size_t Total()
{
    return bench::Scaled(std::size_t(1) << 30, std::size_t(1) << 26);
}

/// The file that all readers read and nobody writes.
std::filesystem::path Source()
{
    std::filesystem::path const path = ScratchFolder::Path() / "source";
    if (!std::filesystem::exists(path))
    {
        WriteStdio(path, bench::RandomBytes(0x100000), Total());
    }
    return path;
}

void CompareWriters(std::string const & piece)
{
    std::size_t const size = std::max<std::size_t>(piece.size(), 1 << 20);
    WriteOurs(ScratchFolder::Name("ours"), piece, size);
    WriteStdio(ScratchFolder::Path() / "stdio", piece, size);
    bench::Require(Content(ScratchFolder::Path() / "ours") == Content(ScratchFolder::Path() / "stdio"), "FileStream");
}

/// Every contestant makes its file anew.
void RemoveWritten()
{
    std::filesystem::remove(ScratchFolder::Path() / "ours");
    std::filesystem::remove(ScratchFolder::Path() / "stdio");
}

void AddPieces(std::string const & variant, std::size_t size)
{
    std::size_t const total = Total();
    std::string const piece = bench::RandomBytes(size);
    auto const prepareWrite = [=]
    {
        CompareWriters(piece);
        RemoveWritten();
    };
    std::string const write = "FileStream/write-" + variant;
    bench::AddLong(write + "/ours", total, prepareWrite, [=] { WriteOurs(ScratchFolder::Name("ours"), piece, total); });
    bench::AddLong(
        write + "/stdio", total, prepareWrite, [=] { WriteStdio(ScratchFolder::Path() / "stdio", piece, total); });

    auto const prepareRead = [=]
    {
        RemoveWritten();
        Source();
        std::size_t const part = std::max<std::size_t>(size, 1 << 20);
        bool const agree = ReadOurs(ScratchFolder::Name("source"), size, part) == ReadStdio(Source(), size, part);
        bench::Require(agree, "FileStream");
    };
    std::string const read = "FileStream/read-" + variant;
    bench::AddLong(
        read + "/ours", total, prepareRead,
        [=] { benchmark::DoNotOptimize(ReadOurs(ScratchFolder::Name("source"), size, total)); });
    bench::AddLong(
        read + "/stdio", total, prepareRead, [=] { benchmark::DoNotOptimize(ReadStdio(Source(), size, total)); });
}

std::size_t WholeOurs(String const & path)
{
    BasicFileStream stream(path, FileAccessMode(0x80000000u), FileShareMode(1), FileCreationMode(3), FileAttributes(0));
    std::string content;
    stream.Read(content);
    benchmark::DoNotOptimize(content.data());
    return content.size();
}

std::size_t WholeRead(std::filesystem::path const & path)
{
    int const file = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    std::size_t const size = std::filesystem::file_size(path);
    std::unique_ptr<char[]> const content(new char[size]);
    std::size_t done = 0;
    for (ssize_t got; done < size && (got = read(file, content.get() + done, size - done)) > 0;)
    {
        done += static_cast<std::size_t>(got);
    }
    close(file);
    benchmark::DoNotOptimize(content.get());
    return done;
}

void AddWholeFile()
{
    bench::AddLong(
        "ReadIntoString/whole/ours", Total(),
        []
        {
            Source();
            bench::Require(WholeOurs(ScratchFolder::Name("source")) == Total(), "ReadIntoString");
        },
        [] { benchmark::DoNotOptimize(WholeOurs(ScratchFolder::Name("source"))); });
    bench::AddLong(
        "ReadIntoString/whole/read", Total(), [] { bench::Require(WholeRead(Source()) == Total(), "ReadIntoString"); },
        [] { benchmark::DoNotOptimize(WholeRead(Source())); });
}

void AddJobs()
{
    AddPieces("64", 64);
    AddPieces("4KiB", 0x1000);
    AddPieces("1MiB", 0x100000);
    AddWholeFile();
}

bench::Source const source(AddJobs);

} // namespace
