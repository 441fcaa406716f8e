#include <kvcore/streams/MemoryStreams.h>

#include <algorithm>
#include <climits>
#include <stdexcept>

#include <kvcore/streams/CopyBytes.h>

MemoryOutputStream::MemoryOutputStream() : OutputStream(nullptr) {}

MemoryOutputStream::~MemoryOutputStream() noexcept(false) {}

void MemoryOutputStream::Write(char const * data, int size)
{
    // What append does, without the way into another source file.
    if (!blocks.AppendToLastChunk(data, size))
    {
        blocks.AppendAcrossChunks(data, size);
    }
}

std::string MemoryOutputStream::GetContent()
{
    Flush();
    return blocks.toString();
}

namespace
{

int CheckedSize(std::string const & text)
{
    if (text.size() > INT_MAX)
    {
        throw std::length_error("MemoryInputStream: more than 2^31 - 1 bytes");
    }
    return static_cast<int>(text.size());
}

// Apart from Read, so that Read itself needs no stack frame for the exception's construction.
[[noreturn, gnu::cold, gnu::noinline]] void ThrowTooShort()
{
    throw StreamBase::Exception{5, TEXT("Memory block too short")};
}

} // namespace

MemoryInputStream::MemoryInputStream(char const * data, int size)
    : InputStream(nullptr), position(data), remaining(std::max(size, 0))
{
}

MemoryInputStream::MemoryInputStream(std::string const & text) : MemoryInputStream(text.data(), CheckedSize(text)) {}

MemoryInputStream::~MemoryInputStream() noexcept(false) {}

void MemoryInputStream::Read(char * data, int size)
{
    if (size <= 0)
    {
        return;
    }
    if (size > remaining)
    {
        ThrowTooShort();
    }
    // The copy comes last, so that nothing has to be kept across it.
    char const * const from = position;
    position += size;
    remaining -= size;
    kv::detail::CopyBytes(data, from, static_cast<std::size_t>(size));
}
