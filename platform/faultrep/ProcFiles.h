#pragma once

// Reading the kernel's files about the process, and folders, without the heap.

#include <cstddef>

#include <fcntl.h>
#include <unistd.h>

namespace kv::platform
{

/// A file descriptor, closed at its end.
class Descriptor
{
public:
    explicit Descriptor(int opened) : file(opened) {}
    ~Descriptor()
    {
        if (file >= 0)
        {
            close(file);
        }
    }
    Descriptor(Descriptor const &) = delete;
    Descriptor & operator=(Descriptor const &) = delete;

    int Get() const
    {
        return file;
    }
    explicit operator bool() const
    {
        return file >= 0;
    }

private:
    int file;
};

/// The lines of a file, one after the other. A line that is longer than the buffer comes in pieces.
class LineReader
{
public:
    explicit LineReader(char const * path) : file(open(path, O_RDONLY | O_CLOEXEC)) {}

    /// The next line without its end, or null. Stands until the next call.
    char const * Next();

private:
    Descriptor file;
    std::size_t begin = 0;
    std::size_t end = 0;
    char buffer[8192];
};

/// The first bytes of a file, with a NUL behind them. The number of bytes, 0 if it cannot be read.
std::size_t ReadStart(char const * path, char * buffer, std::size_t capacity);

/// The names in a folder, one after the other, in no order.
class FolderReader
{
public:
    explicit FolderReader(char const * path) : folder(open(path, O_RDONLY | O_DIRECTORY | O_CLOEXEC)) {}

    /// The next name, or null. Stands until the next call.
    char const * Next();

private:
    Descriptor folder;
    long position = 0;
    long end = 0;
    alignas(16) char buffer[8192];
};

} // namespace kv::platform
