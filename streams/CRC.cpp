#include <kvcore/streams/CRC.h>

#include <zlib.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>

#ifdef __x86_64__
#    include <wmmintrin.h>
#endif

namespace
{

std::uint32_t ZlibChecksum(std::uint32_t before, char const * data, int size)
{
    return static_cast<std::uint32_t>(crc32(before, reinterpret_cast<Bytef const *>(data), static_cast<uInt>(size)));
}

#ifdef __x86_64__

// A CRC is the remainder of the message as a polynomial over two elements, in which the lowest bit of the first byte
// is the highest coefficient. A part of the message may be replaced by anything with the same remainder: 16 bytes move
// `bits` further on by multiplication with x^bits, each half by the remainder that belongs to its distance.

// x^power modulo the polynomial of CRC-32, in that order of bits, as a carry-less product wants it.
constexpr std::uint64_t PowerOfX(int power)
{
    std::uint32_t remainder = 0x80000000; // x^0
    for (int i = 0; i < power; ++i)
    {
        remainder = remainder >> 1 ^ ((remainder & 1) != 0 ? 0xEDB88320u : 0u);
    }
    return static_cast<std::uint64_t>(remainder) << 1;
}

template <int bits>
[[gnu::target("pclmul"), gnu::always_inline]] inline __m128i Moved(__m128i part)
{
    static constexpr std::uint64_t low = PowerOfX(bits + 32);
    static constexpr std::uint64_t high = PowerOfX(bits - 32);
    __m128i const factors = _mm_set_epi64x(static_cast<long long>(high), static_cast<long long>(low));
    return _mm_xor_si128(_mm_clmulepi64_si128(part, factors, 0x00), _mm_clmulepi64_si128(part, factors, 0x11));
}

[[gnu::always_inline]] inline __m128i Part(char const * data)
{
    return _mm_loadu_si128(reinterpret_cast<__m128i const *>(data));
}

// For 64 bytes or more. Four chains of products hide the multiplier's delay; what they leave, and the last bytes, are
// few enough for zlib.
[[gnu::target("pclmul")]] std::uint32_t ProductChecksum(char const * data, int size)
{
    __m128i first = _mm_xor_si128(Part(data), _mm_cvtsi32_si128(-1)); // a CRC starts with all ones
    __m128i second = Part(data + 16);
    __m128i third = Part(data + 32);
    __m128i fourth = Part(data + 48);
    for (data += 64, size -= 64; size >= 64; data += 64, size -= 64)
    {
        first = _mm_xor_si128(Moved<512>(first), Part(data));
        second = _mm_xor_si128(Moved<512>(second), Part(data + 16));
        third = _mm_xor_si128(Moved<512>(third), Part(data + 32));
        fourth = _mm_xor_si128(Moved<512>(fourth), Part(data + 48));
    }
    second = _mm_xor_si128(Moved<128>(first), second);
    third = _mm_xor_si128(Moved<128>(second), third);
    fourth = _mm_xor_si128(Moved<128>(third), fourth);
    char rest[16];
    _mm_storeu_si128(reinterpret_cast<__m128i *>(rest), fourth);
    // zlib inverts what it is given, and the start is in `rest` already.
    return ZlibChecksum(ZlibChecksum(0xFFFFFFFF, rest, sizeof rest), data, size);
}

bool HasProducts()
{
    __builtin_cpu_init(); // static initialisation may be earlier than the compiler's own call of it
    return __builtin_cpu_supports("pclmul");
}

bool const products = HasProducts();

#endif

// zlib's crc32(0, data, size), by a faster way where the processor has one.
std::uint32_t Checksum(char const * data, int size)
{
#ifdef __x86_64__
    if (products && size >= 64)
    {
        return ProductChecksum(data, size);
    }
#endif
    return ZlibChecksum(0, data, size);
}

} // namespace

CRCOutputStream::CRCOutputStream(OutputStream & target) : OutputStream(&target), fill(0), stage(Stage::Length) {}

CRCOutputStream::~CRCOutputStream() noexcept(false)
{
    if (downstream)
    {
        lastWrite.Run([this] { WriteBlock(); });
    }
}

void CRCOutputStream::Write(char const * data, int size)
{
    while (size > 0)
    {
        if (fill == blockSize || stage != Stage::Length)
        {
            FlushSelf(); // what an earlier failure left
        }
        int const part = std::min(size, blockSize - fill);
        std::memcpy(block + fill, data, static_cast<std::size_t>(part));
        fill += part;
        data += part;
        size -= part;
        if (fill == blockSize)
        {
            FlushSelf();
        }
    }
}

void CRCOutputStream::FlushSelf()
{
    WriteBlock();
}

// Every block goes through `block`, also where the caller's memory holds a whole one: a stream below may change the
// bytes that it is given for the length of the call, and the caller's may be constant.
void CRCOutputStream::WriteBlock()
{
    if (fill == 0)
    {
        return;
    }
    if (stage == Stage::Length)
    {
        std::int32_t length = fill;
        downstream->Write(reinterpret_cast<char const *>(&length), sizeof length);
        stage = Stage::Payload;
    }
    if (stage == Stage::Payload)
    {
        downstream->Write(block, fill);
        stage = Stage::Checksum;
    }
    std::uint32_t checksum = Checksum(block, fill);
    downstream->Write(reinterpret_cast<char const *>(&checksum), sizeof checksum);
    stage = Stage::Length;
    fill = 0;
}

CRCInputStream::CRCInputStream(InputStream & from)
    : InputStream(&from), position(blockSize), arriving(0), payloadThere(false)
{
}

CRCInputStream::~CRCInputStream() noexcept(false) {}

void CRCInputStream::Read(char * data, int size)
{
    while (size > 0)
    {
        if (position == blockSize)
        {
            ReadBlock();
        }
        int const part = std::min(size, blockSize - position);
        std::memcpy(data, block + position, static_cast<std::size_t>(part));
        position += part;
        data += part;
        size -= part;
    }
}

void CRCInputStream::ReadBlock()
{
    if (arriving == 0)
    {
        std::int32_t length;
        source->Read(reinterpret_cast<char *>(&length), sizeof length);
        if (length < 1 || length > blockSize)
        {
            throw Exception{4, TEXT("Illegal CRC block size")};
        }
        arriving = length;
    }
    char * const payload = block + blockSize - arriving;
    if (!payloadThere)
    {
        source->Read(payload, arriving);
        payloadThere = true;
    }
    std::uint32_t checksum;
    source->Read(reinterpret_cast<char *>(&checksum), sizeof checksum);

    int const length = arriving;
    arriving = 0;
    payloadThere = false;
    // Kept: the block can be read from now on, also if the checksum is wrong.
    position = blockSize - length;
    if (checksum != Checksum(payload, length))
    {
        throw Exception{4, TEXT("CRC checksum error")};
    }
}
