#pragma once

#include <vector>

#include <kvcore/files/FileStreams.h>
#include <kvcore/tools/support/SourceStream.h>

namespace kv::tools
{

/// Reads a file to its end, whose place the reader need not know beforehand.
///
/// Opens it for reading and lets others read it, too. Failures are BasicFileStream::Exception. One thread at a time.
class FileSource : public SourceStream
{
public:
    /// `path` in the library's form.
    explicit FileSource(String const & path);
    ~FileSource() override;

    int ReadSome(char * data, int capacity) override;

private:
    BasicFileStream file;
    std::vector<char> buffer;
    std::size_t next = 0;
    std::size_t limit = 0;
};

} // namespace kv::tools
