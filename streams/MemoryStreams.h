#pragma once

#include <cstddef>
#include <string>

#include <kvcore/platform/export.h>
#include <kvcore/streams/MemoryBlockVector.h>
#include <kvcore/streams/Streams.h>

/// Keeps what is written into it: the end of a chain in memory. It holds up to 2^31 - 1 bytes; what it throws is what
/// MemoryBlockVector::append throws.
class KVCORE_API MemoryOutputStream : public OutputStream
{
public:
    MemoryOutputStream();
    MemoryOutputStream(MemoryOutputStream const &) = delete;
    MemoryOutputStream & operator=(MemoryOutputStream const &) = delete;
    ~MemoryOutputStream() noexcept(false) override;

    void Write(char const * data, int size) override;

    /// Flushes everything that is chained in front of this stream, then gives all bytes from the start. The content
    /// stays, so a later call gives them again, with what came after.
    std::string GetContent();

private:
    // Filters that make many small writes, none of which can be seen here or can fail where there is room already.
    friend class Base64EncodingStream;
    friend class SerializingOutputStream;

    char * Room(std::size_t & size)
    {
        return blocks.Room(size);
    }
    void Commit(std::size_t size)
    {
        blocks.Commit(size);
    }

    bool AppendWithoutAllocation(char const * data, int size)
    {
        return blocks.AppendToLastChunk(data, size);
    }

    MemoryBlockVector blocks;
};

/// Reads the caller's memory, which it neither owns nor copies: the memory must outlive the stream and stay unchanged.
class KVCORE_API MemoryInputStream : public InputStream
{
public:
    /// A negative size counts as 0.
    MemoryInputStream(char const * data, int size);
    /// Reads the string's buffer. Throws std::length_error for a string of more than 2^31 - 1 bytes.
    explicit MemoryInputStream(std::string const & text);
    ~MemoryInputStream() noexcept(false) override;

    /// Throws code 5, "Memory block too short", if fewer than `size` bytes are left; then nothing is consumed or
    /// copied.
    void Read(char * data, int size) override;

private:
    char const * position; // the next byte
    int remaining;
};
