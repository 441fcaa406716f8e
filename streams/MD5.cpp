#include <kvcore/streams/MD5.h>

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include <kvcore/streams/Base64.h>

namespace kv::detail
{

/// The running state of RFC 1321: the count of bits, the four chaining words, and the block that is filling up.
class MD5Context
{
public:
    void Update(unsigned char const * data, std::size_t size)
    {
        std::size_t const fill = static_cast<std::size_t>(bitCount / 8 % sizeof block);
        bitCount += static_cast<std::uint64_t>(size) * 8;
        if (fill + size < sizeof block)
        {
            std::memcpy(block + fill, data, size);
            return;
        }
        if (fill > 0)
        {
            std::size_t const missing = sizeof block - fill;
            std::memcpy(block + fill, data, missing);
            Transform(block, 1);
            data += missing;
            size -= missing;
        }
        std::size_t const whole = size / sizeof block;
        Transform(data, whole);
        std::memcpy(block, data + whole * sizeof block, size % sizeof block);
    }

    /// Ends the message. The state is of no use afterwards.
    void Finish(unsigned char (&digest)[16])
    {
        static constexpr unsigned char endMark[64] = {0x80};
        std::uint64_t const length = bitCount;
        // The mark and zeros, up to the last eight bytes of a block, which take the length.
        Update(endMark, 1 + (119 - length / 8 % 64) % 64);
        unsigned char lengthBytes[8];
        std::memcpy(lengthBytes, &length, sizeof lengthBytes);
        Update(lengthBytes, sizeof lengthBytes);
        std::memcpy(digest, state, sizeof digest);
    }

private:
    void Transform(unsigned char const * data, std::size_t blocks);

    std::uint64_t bitCount = 0;
    std::uint32_t state[4] = {0x67452301, 0xEFCDAB89, 0x98BADCFE, 0x10325476};
    unsigned char block[64];
};

static_assert(std::endian::native == std::endian::little, "words are taken as they lie in memory");

} // namespace kv::detail

namespace
{

using Word = std::uint32_t;

// floor(2^32 * abs(sin(i + 1)))
constexpr Word sines[64] = {
    0xD76AA478, 0xE8C7B756, 0x242070DB, 0xC1BDCEEE, 0xF57C0FAF, 0x4787C62A, 0xA8304613, 0xFD469501,
    0x698098D8, 0x8B44F7AF, 0xFFFF5BB1, 0x895CD7BE, 0x6B901122, 0xFD987193, 0xA679438E, 0x49B40821,
    0xF61E2562, 0xC040B340, 0x265E5A51, 0xE9B6C7AA, 0xD62F105D, 0x02441453, 0xD8A1E681, 0xE7D3FBC8,
    0x21E1CDE6, 0xC33707D6, 0xF4D50D87, 0x455A14ED, 0xA9E3E905, 0xFCEFA3F8, 0x676F02D9, 0x8D2A4C8A,
    0xFFFA3942, 0x8771F681, 0x6D9D6122, 0xFDE5380C, 0xA4BEEA44, 0x4BDECFA9, 0xF6BB4B60, 0xBEBFBC70,
    0x289B7EC6, 0xEAA127FA, 0xD4EF3085, 0x04881D05, 0xD9D4D039, 0xE6DB99E5, 0x1FA27CF8, 0xC4AC5665,
    0xF4292244, 0x432AFF97, 0xAB9423A7, 0xFC93A039, 0x655B59C3, 0x8F0CCC92, 0xFFEFF47D, 0x85845DD1,
    0x6FA87E4F, 0xFE2CE6E0, 0xA3014314, 0x4E0811A1, 0xF7537E82, 0xBD3AF235, 0x2AD7D2BB, 0xEB86D391,
};

constexpr int rotations[4][4] = {{7, 12, 17, 22}, {5, 9, 14, 20}, {4, 11, 16, 23}, {6, 10, 15, 21}};

Word LoadWord(unsigned char const * data, int index)
{
    Word word;
    std::memcpy(&word, data + 4 * index, sizeof word);
    return word;
}

// Each step waits for the one before it, so what counts is how few operations stand between the newest word, `b`, and
// the result. The sum of everything that does not need `b` is formed first.
template <int step>
[[gnu::always_inline]] inline void Step(Word & a, Word b, Word c, Word d, unsigned char const * data)
{
    constexpr int round = step / 16;
    constexpr int index = round == 0 ? step
        : round == 1                 ? (5 * step + 1) % 16
        : round == 2                 ? (3 * step + 5) % 16
                                     : (7 * step) % 16;
    Word sum = a + sines[step] + LoadWord(data, index);
    if constexpr (round == 0)
    {
        sum += d ^ (b & (c ^ d));
    }
    else if constexpr (round == 1)
    {
        // The two halves have no bit in common, so their sum is their union, and the one without `b` comes early.
        sum += c & ~d;
        sum += b & d;
    }
    else if constexpr (round == 2)
    {
        sum += b ^ (c ^ d);
    }
    else
    {
        sum += c ^ (b | ~d);
    }
    a = b + std::rotl(sum, rotations[round][step % 4]);
}

template <int step>
[[gnu::always_inline]] inline void SixteenSteps(Word & a, Word & b, Word & c, Word & d, unsigned char const * data)
{
    Step<step>(a, b, c, d, data);
    Step<step + 1>(d, a, b, c, data);
    Step<step + 2>(c, d, a, b, data);
    Step<step + 3>(b, c, d, a, data);
    if constexpr (step % 16 != 12)
    {
        SixteenSteps<step + 4>(a, b, c, d, data);
    }
}

} // namespace

void kv::detail::MD5Context::Transform(unsigned char const * data, std::size_t blocks)
{
    Word a = state[0];
    Word b = state[1];
    Word c = state[2];
    Word d = state[3];
    for (; blocks > 0; --blocks, data += sizeof block)
    {
        Word const before[4] = {a, b, c, d};
        SixteenSteps<0>(a, b, c, d, data);
        SixteenSteps<16>(a, b, c, d, data);
        SixteenSteps<32>(a, b, c, d, data);
        SixteenSteps<48>(a, b, c, d, data);
        a += before[0];
        b += before[1];
        c += before[2];
        d += before[3];
    }
    state[0] = a;
    state[1] = b;
    state[2] = c;
    state[3] = d;
}

MD5Sum::MD5Sum() : bytes{0xD4, 0x1D, 0x8C, 0xD9, 0x8F, 0x00, 0xB2, 0x04, 0xE9, 0x80, 0x09, 0x98, 0xEC, 0xF8, 0x42, 0x7E}
{
}

bool MD5Sum::operator<(MD5Sum const & other) const
{
    return std::memcmp(bytes, other.bytes, sizeof bytes) < 0;
}

bool MD5Sum::operator<=(MD5Sum const & other) const
{
    return !(other < *this);
}

bool MD5Sum::operator==(MD5Sum const & other) const
{
    return std::memcmp(bytes, other.bytes, sizeof bytes) == 0;
}

bool MD5Sum::operator!=(MD5Sum const & other) const
{
    return !(*this == other);
}

bool MD5Sum::operator>=(MD5Sum const & other) const
{
    return !(*this < other);
}

bool MD5Sum::operator>(MD5Sum const & other) const
{
    return other < *this;
}

std::string MD5Sum::HexString() const
{
    static constexpr char digits[] = "0123456789ABCDEF";
    std::string text;
    for (unsigned char const byte : bytes)
    {
        text += digits[byte >> 4];
        text += digits[byte & 15];
    }
    return text;
}

namespace
{

// The value of a hexadecimal digit, or -1.
int DigitValue(char digit)
{
    if (digit >= '0' && digit <= '9')
    {
        return digit - '0';
    }
    if (digit >= 'a' && digit <= 'f')
    {
        return digit - 'a' + 10;
    }
    if (digit >= 'A' && digit <= 'F')
    {
        return digit - 'A' + 10;
    }
    return -1;
}

} // namespace

bool MD5Sum::SetHexString(std::string const & text)
{
    if (text.size() != 2 * sizeof bytes)
    {
        return false;
    }
    MD5Sum parsed;
    for (std::size_t i = 0; i < sizeof bytes; ++i)
    {
        int const high = DigitValue(text[2 * i]);
        int const low = DigitValue(text[2 * i + 1]);
        if (high < 0 || low < 0)
        {
            return false;
        }
        parsed.bytes[i] = static_cast<unsigned char>(high << 4 | low);
    }
    *this = parsed;
    return true;
}

std::string MD5Sum::Base64String() const
{
    char text[24];
    Base64EncodingStream::Base64MemoryEncode(reinterpret_cast<char const *>(bytes), sizeof bytes, text);
    return std::string(text, 22);
}

MD5SumStream::MD5SumStream() : OutputStream(nullptr), context(std::make_unique<kv::detail::MD5Context>()) {}

MD5SumStream::~MD5SumStream() noexcept(false) {}

void MD5SumStream::Write(char const * data, int size)
{
    if (size > 0)
    {
        context->Update(reinterpret_cast<unsigned char const *>(data), static_cast<std::size_t>(size));
    }
}

MD5Sum MD5SumStream::GetMD5Sum()
{
    Flush();
    kv::detail::MD5Context ended(*context);
    MD5Sum sum;
    ended.Finish(sum.bytes);
    return sum;
}
