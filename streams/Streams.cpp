#include <kvcore/streams/Streams.h>

#include <algorithm>
#include <bit>
#include <climits>
#include <cstdint>
#include <cstring>
#include <memory>

// The numbers of the stored formats are written as they lie in memory.
static_assert(std::endian::native == std::endian::little);
static_assert(sizeof(bool) == 1 && sizeof(short) == 2 && sizeof(int) == 4 && sizeof(float) == 4 && sizeof(double) == 8);
static_assert(sizeof(GUID) == 16 && sizeof(WCHAR) == 2);

namespace
{

[[noreturn]] void ThrowInvalidLength()
{
    throw StreamBase::Exception{3, TEXT("Invalid string length")};
}

template <typename Element>
void WriteString(OutputStream & stream, Element const * text, std::size_t count)
{
    if (count > INT_MAX / sizeof(Element))
    {
        ThrowInvalidLength();
    }
    std::int32_t bytes = static_cast<std::int32_t>(count * sizeof(Element));
    stream.Write(reinterpret_cast<char const *>(&bytes), sizeof bytes);
    stream.Write(reinterpret_cast<char const *>(text), bytes);
}

constexpr std::int32_t stackLimit = 0x400;
constexpr std::int32_t pieceLimit = 0x100000;

// The count may lie. Each piece is at most as long as everything that has really arrived, so that the memory taken
// stays in proportion to what the source delivers.
template <typename Element>
void ReadLongString(InputStream & stream, std::basic_string<Element> & text, std::int32_t bytes)
{
    std::basic_string<Element> arrived;
    for (std::int32_t done = 0; done < bytes;)
    {
        std::int32_t const piece = std::min(bytes - done, std::max(done, pieceLimit));
        arrived.resize(static_cast<std::size_t>(done + piece) / sizeof(Element));
        stream.Read(reinterpret_cast<char *>(arrived.data()) + done, piece);
        done += piece;
    }
    text = std::move(arrived);
}

template <typename Element>
void ReadString(InputStream & stream, std::basic_string<Element> & text)
{
    std::int32_t bytes;
    stream.Read(reinterpret_cast<char *>(&bytes), sizeof bytes);
    if (bytes == 0)
    {
        text.clear();
        return;
    }
    if (bytes < 0 || bytes % static_cast<std::int32_t>(sizeof(Element)) != 0)
    {
        ThrowInvalidLength();
    }
    std::size_t const count = static_cast<std::size_t>(bytes) / sizeof(Element);
    if (bytes <= stackLimit)
    {
        Element buffer[stackLimit / sizeof(Element)];
        stream.Read(reinterpret_cast<char *>(buffer), bytes);
        text.assign(buffer, count);
    }
    else if (bytes <= pieceLimit)
    {
        auto const buffer = std::make_unique_for_overwrite<Element[]>(count);
        stream.Read(reinterpret_cast<char *>(buffer.get()), bytes);
        text.assign(buffer.get(), count);
    }
    else
    {
        ReadLongString(stream, text, bytes);
    }
}

} // namespace

StreamBase::StreamBase() {}

StreamBase::StreamBase(StreamBase const &) : NotCopyable() {}

StreamBase::~StreamBase() noexcept(false) {}

OutputStream::OutputStream(OutputStream * newDownstream) : upstream(nullptr), downstream(newDownstream)
{
    if (downstream)
    {
        downstream->upstream = this;
    }
}

OutputStream::OutputStream(OutputStream const & other)
    : StreamBase(other), upstream(other.upstream), downstream(other.downstream)
{
}

OutputStream::~OutputStream() noexcept(false)
{
    if (upstream)
    {
        upstream->downstream = nullptr;
    }
    if (downstream)
    {
        downstream->upstream = nullptr;
    }
}

void OutputStream::FlushSelf() {}

void OutputStream::Flush()
{
    if (upstream)
    {
        upstream->Flush();
    }
    FlushSelf();
}

OutputStream & OutputStream::operator<<(char const * text)
{
    WriteString(*this, text, std::strlen(text));
    return *this;
}

OutputStream & OutputStream::operator<<(std::string const & text)
{
    WriteString(*this, text.data(), text.size());
    return *this;
}

OutputStream & OutputStream::operator<<(WString const & text)
{
    WriteString(*this, text.data(), text.size());
    return *this;
}

InputStream::InputStream(InputStream * newSource) : source(newSource) {}

InputStream::InputStream(InputStream const & other) : StreamBase(other), source(other.source) {}

InputStream::~InputStream() noexcept(false) {}

InputStream & InputStream::operator>>(std::string & text)
{
    ReadString(*this, text);
    return *this;
}

InputStream & InputStream::operator>>(WString & text)
{
    ReadString(*this, text);
    return *this;
}
