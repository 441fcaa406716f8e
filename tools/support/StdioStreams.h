#pragma once

#include <kvcore/tools/support/SourceStream.h>

#include <string>
#include <vector>

namespace kv::tools
{

/// A failed call of the operating system: code 1 with the system's text, and the number behind it.
struct IoException : StreamBase::Exception
{
    explicit IoException(int error);
    /// For a call that tells its failure in another way.
    explicit IoException(String const & systemText);

    int error; ///< the value of `errno`, or 0 if there is none
};

/// The three descriptors that every process is born with.
enum class StandardStream : int
{
    Input = 0,
    Output = 1,
    Error = 2,
};

/// A descriptor that is open already, and what a stream over it does with it at its end.
struct OpenDescriptor
{
    enum End
    {
        Borrowed, ///< it stays open
        Closed
    };

    int number;
    End end;
};

/// Reads a file or standard input. Failures are `IoException`; data that ends too early is code 5.
class StdioInputStream : public SourceStream
{
public:
    /// Opens the file of this UTF-8 path.
    explicit StdioInputStream(std::string const & path);
    /// Reads a standard stream, which stays open.
    explicit StdioInputStream(StandardStream stream);
    ~StdioInputStream() override;

    int ReadSome(char * data, int capacity) override;

private:
    int descriptor;
    bool owned;
};

/// Writes a file or a standard stream through a buffer. Failures are `IoException`.
///
/// Data counts as written only once `Close` has returned: a full disk or a lost network drive may show no earlier. The
/// destructor closes too, but quietly.
class StdioOutputStream : public OutputStream
{
public:
    /// Creates the file of this UTF-8 path, or empties it if it exists.
    explicit StdioOutputStream(std::string const & path);
    /// Writes to what is open already.
    explicit StdioOutputStream(OpenDescriptor open);
    /// Writes to a standard stream. Standard error has no buffer and is never closed.
    explicit StdioOutputStream(StandardStream stream);
    ~StdioOutputStream() override;

    void Write(char const * data, int size) override;

    /// Writes what the buffer holds and closes; a late failure of the system is reported here. A second call does
    /// nothing.
    void Close();

protected:
    void FlushSelf() override;

private:
    void WriteThrough(char const * data, std::size_t size);
    [[nodiscard]] bool Release();

    int descriptor;
    bool owned;
    std::size_t capacity; // of the buffer; 0 for standard error, where each line goes out at once
    std::vector<char> buffer;
};

} // namespace kv::tools
