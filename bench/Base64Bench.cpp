// The Base64 memory forms beside OpenSSL's, and the streams beside the memory forms.

#include <string>

#include <openssl/evp.h>

#include <kvcore/streams/Base64.h>
#include <kvcore/streams/MemoryStreams.h>

#include "Jobs.h"

namespace
{

unsigned char const * Bytes(std::string const & text)
{
    return reinterpret_cast<unsigned char const *>(text.data());
}
unsigned char * Bytes(std::string & text)
{
    return reinterpret_cast<unsigned char *>(text.data());
}

void EncodeOurs(std::string const & data, std::string & text)
{
    Base64EncodingStream::Base64MemoryEncode(data.data(), static_cast<int>(data.size()), text.data());
}
int DecodeOurs(std::string const & text, std::string & data)
{
    return Base64DecodingStream::Base64MemoryDecode(text.data(), static_cast<int>(text.size()), data.data());
}

void AddMemoryForms(std::string const & variant, std::size_t size)
{
    std::string const data = bench::RandomBytes(size);
    std::string text(
        static_cast<std::size_t>(Base64EncodingStream::Base64MemoryEncodedSize(static_cast<int>(size))), ' ');
    // OpenSSL writes a NUL behind the text.
    std::string peer(text.size() + 1, ' ');
    std::string decoded(text.size(), ' ');
    EncodeOurs(data, text);
    EVP_EncodeBlock(Bytes(peer), Bytes(data), static_cast<int>(size));
    peer.pop_back();
    bench::Require(text == peer, "Base64MemoryEncode/" + variant);
    bench::Require(
        DecodeOurs(text, decoded) == static_cast<int>(size) && decoded.compare(0, size, data) == 0,
        "Base64MemoryDecode/" + variant);

    bench::Add(
        "Base64MemoryEncode/" + variant + "/ours", size,
        [data, text]() mutable
        {
            EncodeOurs(data, text);
            benchmark::ClobberMemory();
        });
    bench::Add(
        "Base64MemoryEncode/" + variant + "/openssl", size,
        [data, target = peer + ' ']() mutable
        {
            EVP_EncodeBlock(Bytes(target), Bytes(data), static_cast<int>(data.size()));
            benchmark::ClobberMemory();
        });
    bench::Add(
        "Base64MemoryDecode/" + variant + "/ours", size,
        [text, decoded]() mutable
        {
            benchmark::DoNotOptimize(DecodeOurs(text, decoded));
            benchmark::ClobberMemory();
        });
    bench::Add(
        "Base64MemoryDecode/" + variant + "/openssl", size,
        [text, decoded]() mutable
        {
            benchmark::DoNotOptimize(EVP_DecodeBlock(Bytes(decoded), Bytes(text), static_cast<int>(text.size())));
            benchmark::ClobberMemory();
        });
}

/// Into the library's memory, and out of it in one piece, as the memory form gives it.
std::string EncodeByStream(std::string const & data)
{
    MemoryOutputStream memory;
    Base64EncodingStream stream(memory, -1);
    bench::WriteInPieces(stream, data);
    return memory.GetContent();
}

void DecodeByStream(std::string const & text, std::string & data)
{
    MemoryInputStream memory(text.data(), static_cast<int>(text.size()));
    Base64DecodingStream stream(memory);
    bench::ReadInPieces(stream, data);
}

void AddStreams()
{
    std::size_t const size = 0x100000;
    std::string const data = bench::RandomBytes(size);
    std::string text(
        static_cast<std::size_t>(Base64EncodingStream::Base64MemoryEncodedSize(static_cast<int>(size))), ' ');
    std::string decoded(size, ' ');
    EncodeOurs(data, text);
    DecodeByStream(text, decoded);
    bench::Require(text == EncodeByStream(data), "Base64Stream/write");
    bench::Require(decoded == data, "Base64Stream/read");
    decoded.resize(text.size());

    bench::Add(
        "Base64Stream/write/ours", size,
        [data]
        {
            benchmark::DoNotOptimize(EncodeByStream(data));
            benchmark::ClobberMemory();
        });
    bench::Add(
        "Base64Stream/write/memory-form", size,
        [data, text]() mutable
        {
            EncodeOurs(data, text);
            benchmark::ClobberMemory();
        });
    bench::Add(
        "Base64Stream/read/ours", size,
        [target = std::string(size, ' '), text]() mutable
        {
            DecodeByStream(text, target);
            benchmark::ClobberMemory();
        });
    bench::Add(
        "Base64Stream/read/memory-form", size,
        [decoded, text]() mutable
        {
            benchmark::DoNotOptimize(DecodeOurs(text, decoded));
            benchmark::ClobberMemory();
        });
}

void AddJobs()
{
    AddMemoryForms("64KiB", 0x10000);
    AddMemoryForms("48", 48);
    AddStreams();
}

bench::Source const source(AddJobs);

} // namespace
