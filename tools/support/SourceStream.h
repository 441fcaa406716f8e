#pragma once

#include <kvcore/streams/Streams.h>

namespace kv::tools
{

/// An input stream that can say how it ends. The library's `Read` delivers everything or throws, so that a reader must
/// know how much there is; a program that copies a pipe does not, and asks with `ReadSome`.
class SourceStream : public InputStream
{
public:
    /// Delivers at least one and at most `capacity` bytes (which must be positive), as many as are at hand, and returns
    /// their number; 0 at the end of the data.
    [[nodiscard]] virtual int ReadSome(char * data, int capacity) = 0;

    /// Delivers exactly `size` bytes. Throws code 5 "Unexpected end of file" if the data ends before.
    void Read(char * data, int size) override;

protected:
    SourceStream();
};

} // namespace kv::tools
