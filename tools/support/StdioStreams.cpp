#include <kvcore/tools/support/StdioStreams.h>

#include <kvcore/tools/support/Host.h>

#include <cerrno>
#include <system_error>
#include <utility>

namespace kv::tools
{

IoException::IoException(int number)
    : StreamBase::Exception{1, String::FromUtf8(std::generic_category().message(number))}, error(number)
{
}

IoException::IoException(String const & systemText) : StreamBase::Exception{1, systemText}, error(0) {}

namespace
{

// As much as a pipe takes at once.
constexpr std::size_t bufferSize = 64 * 1024;

int Opened(int descriptor)
{
    if (descriptor < 0)
    {
        throw IoException(errno);
    }
    return descriptor;
}

} // namespace

StdioInputStream::StdioInputStream(std::string const & path)
    : descriptor(Opened(host::OpenForReading(path))), owned(true)
{
}

StdioInputStream::StdioInputStream(StandardStream stream) : descriptor(static_cast<int>(stream)), owned(false) {}

StdioInputStream::~StdioInputStream()
{
    if (owned && host::Close(descriptor) != 0)
    {
        // Nothing was written, so nothing is lost.
    }
}

int StdioInputStream::ReadSome(char * data, int capacity)
{
    std::ptrdiff_t const delivered = host::Read(descriptor, data, static_cast<std::size_t>(capacity));
    if (delivered < 0)
    {
        throw IoException(errno);
    }
    return static_cast<int>(delivered);
}

StdioOutputStream::StdioOutputStream(std::string const & path)
    : OutputStream(nullptr), descriptor(Opened(host::OpenForWriting(path))), owned(true), capacity(bufferSize)
{
    buffer.reserve(capacity);
}

StdioOutputStream::StdioOutputStream(OpenDescriptor open)
    : OutputStream(nullptr), descriptor(open.number), owned(open.end == OpenDescriptor::Closed), capacity(bufferSize)
{
    buffer.reserve(capacity);
}

StdioOutputStream::StdioOutputStream(StandardStream stream)
    : OutputStream(nullptr),
      descriptor(static_cast<int>(stream)),
      owned(stream != StandardStream::Error),
      capacity(stream == StandardStream::Error ? 0 : bufferSize)
{
    buffer.reserve(capacity);
}

StdioOutputStream::~StdioOutputStream()
{
    try
    {
        Close();
    }
    catch (IoException const &)
    {
        // Whoever wants to know has called Close.
    }
}

void StdioOutputStream::Write(char const * data, int size)
{
    if (size <= 0)
    {
        return;
    }
    auto const count = static_cast<std::size_t>(size);
    if (count > capacity - buffer.size())
    {
        FlushSelf();
    }
    if (count >= capacity)
    {
        WriteThrough(data, count);
        return;
    }
    buffer.insert(buffer.end(), data, data + count);
}

void StdioOutputStream::FlushSelf()
{
    // What failed is not tried again: part of it may have gone out, and a second attempt would repeat that part.
    struct Emptied
    {
        std::vector<char> & buffer;
        ~Emptied()
        {
            buffer.clear();
        }
    } const emptied{buffer};
    WriteThrough(buffer.data(), buffer.size());
}

void StdioOutputStream::WriteThrough(char const * data, std::size_t size)
{
    while (size > 0)
    {
        std::ptrdiff_t const written = host::Write(descriptor, data, size);
        if (written < 0)
        {
            throw IoException(errno);
        }
        data += written;
        size -= static_cast<std::size_t>(written);
    }
}

void StdioOutputStream::Close()
{
    if (descriptor < 0)
    {
        return;
    }
    try
    {
        FlushSelf();
    }
    catch (IoException const &)
    {
        (void)Release();
        throw;
    }
    if (!Release())
    {
        throw IoException(errno);
    }
}

bool StdioOutputStream::Release()
{
    // Standard error stays open: whatever happens later may want to be told there.
    int const closing = std::exchange(descriptor, -1);
    return !owned || host::Close(closing) == 0;
}

} // namespace kv::tools
