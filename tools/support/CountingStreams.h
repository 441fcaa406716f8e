#pragma once

#include <kvcore/streams/Streams.h>

#include <cstdint>

namespace kv::tools
{

/// Counts the bytes that pass on their way to another stream. A failed write counts nothing.
class CountingOutputStream : public OutputStream
{
public:
    /// Chains onto `stream`, which must live longer.
    explicit CountingOutputStream(OutputStream & stream) : OutputStream(&stream), target(stream) {}

    void Write(char const * data, int size) override
    {
        target.Write(data, size);
        count += size > 0 ? static_cast<std::uint64_t>(size) : 0;
    }

    /// The bytes so far.
    [[nodiscard]] std::uint64_t Count() const
    {
        return count;
    }

private:
    OutputStream & target;
    std::uint64_t count = 0;
};

/// Counts the bytes that are read from another stream. A failed read counts nothing.
class CountingInputStream : public InputStream
{
public:
    /// Chains onto `stream`, which must live longer.
    explicit CountingInputStream(InputStream & stream) : InputStream(&stream), origin(stream) {}

    void Read(char * data, int size) override
    {
        origin.Read(data, size);
        count += size > 0 ? static_cast<std::uint64_t>(size) : 0;
    }

    /// The bytes so far.
    [[nodiscard]] std::uint64_t Count() const
    {
        return count;
    }

private:
    InputStream & origin;
    std::uint64_t count = 0;
};

} // namespace kv::tools
