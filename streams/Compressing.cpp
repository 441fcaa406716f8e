#include <kvcore/streams/Compressing.h>

#include <zlib.h>

#include <algorithm>
#include <memory>

namespace
{

[[noreturn, gnu::cold]] void ThrowZlibFailure(char const * message, int result)
{
    // zlib has a text for every result, but sets `msg` only where it has more to say.
    throw StreamBase::Exception{2, String::FromLatin1(message ? message : zError(result))};
}

// Makes the state with `init`. A state that could not be made leaves nothing behind: the next call tries again.
template <typename Init>
z_stream * NewState(Init init)
{
    auto state = std::make_unique<z_stream>(); // all zero
    int const result = init(state.get());
    if (result != Z_OK)
    {
        ThrowZlibFailure(state->msg, result);
    }
    return state.release();
}

struct EndDeflate
{
    void operator()(z_stream * state) const
    {
        deflateEnd(state);
        delete state;
    }
};

// zlib's input is not const in its record, but it does not change it.
Bytef * Input(char const * data)
{
    return const_cast<Bytef *>(reinterpret_cast<Bytef const *>(data));
}

} // namespace

CompressingStream::CompressingStream(OutputStream & target, int newLevel)
    : OutputStream(&target),
      level(newLevel == -1 ? Z_DEFAULT_COMPRESSION : std::clamp(newLevel, 0, 9)),
      zstream(nullptr),
      pending(false)
{
}

CompressingStream::~CompressingStream() noexcept(false)
{
    std::unique_ptr<z_stream, EndDeflate> const owner(zstream);
    if (owner && downstream)
    {
        lastWrite.Run([this] { InternalFlush(true); });
    }
}

void CompressingStream::Start()
{
    zstream = NewState([this](z_stream * state) { return deflateInit(state, level); });
    pending = false;
}

void CompressingStream::Write(char const * data, int size)
{
    if (size <= 0)
    {
        return;
    }
    if (!zstream)
    {
        Start();
    }
    pending = true;
    zstream->next_in = Input(data);
    zstream->avail_in = static_cast<uInt>(size);
    while (zstream->avail_in > 0)
    {
        char buffer[0x800];
        zstream->next_out = reinterpret_cast<Bytef *>(buffer);
        zstream->avail_out = sizeof buffer;
        int const result = deflate(zstream, Z_NO_FLUSH);
        if (result != Z_OK)
        {
            ThrowZlibFailure(zstream->msg, result);
        }
        int const produced = static_cast<int>(sizeof buffer - zstream->avail_out);
        if (produced > 0)
        {
            downstream->Write(buffer, produced);
        }
    }
}

void CompressingStream::FlushSelf()
{
    InternalFlush(false);
}

void CompressingStream::InternalFlush(bool finish)
{
    if (!zstream || (!finish && !pending))
    {
        return;
    }
    // A write that failed may have left a part of its input, which is the caller's memory.
    zstream->next_in = nullptr;
    zstream->avail_in = 0;
    int result;
    do
    {
        char buffer[0x1000];
        zstream->next_out = reinterpret_cast<Bytef *>(buffer);
        zstream->avail_out = sizeof buffer;
        result = deflate(zstream, finish ? Z_FINISH : Z_SYNC_FLUSH);
        if (result != Z_OK && result != Z_STREAM_END)
        {
            ThrowZlibFailure(zstream->msg, result);
        }
        // Unlike Write, not only if something was produced: a flush point and an end always give bytes.
        downstream->Write(buffer, static_cast<int>(sizeof buffer - zstream->avail_out));
    } while (!(finish && result == Z_STREAM_END) && zstream->avail_out == 0);
    pending = false;
}

DecompressingStream::DecompressingStream(InputStream & from) : InputStream(&from), zstream(nullptr), inputByte(0) {}

DecompressingStream::~DecompressingStream() noexcept(false)
{
    if (zstream)
    {
        inflateEnd(zstream);
        delete zstream;
    }
}

void DecompressingStream::Start()
{
    zstream = NewState([](z_stream * state) { return inflateInit(state); });
}

void DecompressingStream::Read(char * data, int size)
{
    if (size <= 0)
    {
        return;
    }
    if (!zstream)
    {
        Start();
    }
    zstream->next_out = reinterpret_cast<Bytef *>(data);
    zstream->avail_out = static_cast<uInt>(size);
    while (zstream->avail_out > 0)
    {
        if (zstream->avail_in == 0)
        {
            source->Read(&inputByte, 1);
            zstream->next_in = reinterpret_cast<Bytef *>(&inputByte);
            zstream->avail_in = 1;
        }
        int const result = inflate(zstream, Z_NO_FLUSH);
        if (result != Z_OK)
        {
            ThrowZlibFailure(zstream->msg, result);
        }
    }
}
