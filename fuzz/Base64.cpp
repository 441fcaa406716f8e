// Both Base64 decoders on any text, beside a decoder written from the format's rules; and the way there and back.

#include <kvcore/streams/Base64.h>
#include <kvcore/streams/MemoryStreams.h>

#include "Fuzz.h"

namespace
{

std::string const alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

struct Decoded
{
    std::string bytes;
    /// An illegal byte ended the decoding.
    bool illegal = false;
    /// The text ended inside a group. A skipped byte is enough to start one.
    bool cut = false;
};

/// What four significant characters stand for; 64 is padding.
std::string DecodeGroup(std::size_t const * values)
{
    std::string bytes;
    if (values[0] == 64 || values[1] == 64)
    {
        return bytes;
    }
    bytes += static_cast<char>(values[0] << 2 | values[1] >> 4);
    if (values[2] == 64)
    {
        return bytes;
    }
    bytes += static_cast<char>(values[1] << 4 | values[2] >> 2);
    if (values[3] != 64)
    {
        bytes += static_cast<char>(values[2] << 6 | values[3]);
    }
    return bytes;
}

Decoded Reference(std::string const & text)
{
    Decoded result;
    std::size_t values[4];
    int count = 0;
    for (char c : text)
    {
        result.cut = true;
        if (c == ' ' || c == '\t' || c == '\n' || c == '\r')
        {
            continue;
        }
        std::size_t const value = c == '=' ? 64 : alphabet.find(c);
        if (value == std::string::npos)
        {
            result.illegal = true;
            return result;
        }
        values[count++] = value;
        if (count == 4)
        {
            result.bytes += DecodeGroup(values);
            result.cut = false;
            count = 0;
        }
    }
    return result;
}

void CheckMemoryForm(std::string const & text, Decoded const & expected)
{
    fuzz::Exact<char> const source(text.data(), text.size());
    int const size = static_cast<int>(text.size());
    fuzz::Exact<char> const target(static_cast<std::size_t>(Base64DecodingStream::Base64MemoryDecodedMaxSize(size)));
    int const result = Base64DecodingStream::Base64MemoryDecode(source.Data(), size, target.Data());
    if (expected.illegal || expected.cut)
    {
        fuzz::Check(result == -1, "the memory decoder accepts text that it must refuse");
        return;
    }
    fuzz::Check(
        result >= 0 && std::string(target.Data(), static_cast<std::size_t>(result)) == expected.bytes,
        "the memory decoder differs from the reference");
}

void CheckStream(std::string const & text, Decoded const & expected, int piece)
{
    MemoryInputStream source(text);
    Base64DecodingStream stream(source);
    std::string delivered;
    try
    {
        for (;;)
        {
            fuzz::Exact<char> const target(static_cast<std::size_t>(piece));
            stream.Read(target.Data(), piece);
            delivered.append(target.Data(), target.Size());
        }
    }
    catch (StreamBase::Exception const & exception)
    {
        fuzz::Check(exception.code == (expected.illegal ? 3 : 5), "the stream decoder fails with another code");
    }
    // What did not fill the last piece was never delivered.
    std::size_t const rest = expected.bytes.size() % static_cast<std::size_t>(piece);
    fuzz::Check(
        delivered == expected.bytes.substr(0, expected.bytes.size() - rest),
        "the stream decoder differs from the reference");
}

void CheckThereAndBack(std::string const & data, int lineWidth, std::size_t flushAt)
{
    MemoryOutputStream memory;
    {
        Base64EncodingStream stream(memory, lineWidth);
        std::size_t const first = std::min(flushAt, data.size());
        stream.Write(data.data(), static_cast<int>(first));
        stream.Flush();
        stream.Write(data.data() + first, static_cast<int>(data.size() - first));
    }
    Decoded const decoded = Reference(memory.GetContent());
    fuzz::Check(!decoded.illegal && decoded.bytes == data, "encoded by the stream, the data does not come back");

    int const size = static_cast<int>(data.size());
    fuzz::Exact<char> const text(static_cast<std::size_t>(Base64EncodingStream::Base64MemoryEncodedSize(size)));
    Base64EncodingStream::Base64MemoryEncode(data.data(), size, text.Data());
    Decoded const whole = Reference(std::string(text.Data(), text.Size()));
    fuzz::Check(!whole.illegal && !whole.cut && whole.bytes == data, "encoded in memory, the data does not come back");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const * data, std::size_t size)
{
    fuzz::Input input(data, size);
    int const piece = 1 + input.Byte() % 64;
    int const lineWidth = static_cast<std::int8_t>(input.Byte());
    std::size_t const flushAt = input.Byte();
    std::string const text = input.Rest();
    Decoded const expected = Reference(text);
    CheckMemoryForm(text, expected);
    CheckStream(text, expected, piece);
    CheckThereAndBack(text, lineWidth, flushAt);
    return 0;
}
