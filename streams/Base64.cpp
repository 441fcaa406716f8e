#include <kvcore/streams/Base64.h>

#include <algorithm>
#include <array>
#include <climits>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <stdexcept>
#include <typeinfo>

#ifdef __x86_64__
#    include <tmmintrin.h>
#endif

#include <kvcore/streams/MemoryStreams.h>

namespace
{

using Byte = unsigned char;

constexpr char alphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

// Encoding. A place to read from and one to write to, with what may be touched there: vector code loads and stores
// more than it uses where that is allowed.
struct Source
{
    Byte const * next;
    std::size_t readable;
};

struct Target
{
    char * next;
    std::size_t writable;
};

void EncodeGroup(Byte const * bytes, char * text)
{
    text[0] = alphabet[bytes[0] >> 2];
    text[1] = alphabet[(bytes[0] & 3) << 4 | bytes[1] >> 4];
    text[2] = alphabet[(bytes[1] & 15) << 2 | bytes[2] >> 6];
    text[3] = alphabet[bytes[2] & 63];
}

void EncodePaddedGroup(Byte const * bytes, int size, char * text)
{
    Byte const whole[3] = {bytes[0], size > 1 ? bytes[1] : Byte(0), 0};
    EncodeGroup(whole, text);
    text[3] = '=';
    if (size == 1)
    {
        text[2] = '=';
    }
}

// All pairs of characters, by their 12 bits: half as many look-ups.
constexpr auto characterPairs = []
{
    std::array<std::array<char, 2>, 4096> pairs{};
    for (std::size_t i = 0; i < pairs.size(); ++i)
    {
        pairs[i] = {alphabet[i >> 6], alphabet[i & 63]};
    }
    return pairs;
}();

void EncodeGroupsPlainly(Source source, std::size_t groups, Target target)
{
    for (; groups > 0; --groups)
    {
        std::size_t const bits = static_cast<std::size_t>(source.next[0]) << 16 |
            static_cast<std::size_t>(source.next[1]) << 8 | source.next[2];
        std::memcpy(target.next, characterPairs[bits >> 12].data(), 2);
        std::memcpy(target.next + 2, characterPairs[bits & 0xFFF].data(), 2);
        source.next += 3;
        target.next += 4;
    }
}

#ifdef __x86_64__

// Twelve bytes to sixteen characters. The bytes of each group are spread to a 32-bit lane as [1 0 2 1], so that two
// multiplications shift the four 6-bit values into bytes of their own.
[[gnu::target("ssse3"), gnu::always_inline]] inline __m128i EncodeTwelve(__m128i bytes)
{
    __m128i const spread = _mm_shuffle_epi8(bytes, _mm_setr_epi8(1, 0, 2, 1, 4, 3, 5, 4, 7, 6, 8, 7, 10, 9, 11, 10));
    __m128i const firstAndThird =
        _mm_mulhi_epu16(_mm_and_si128(spread, _mm_set1_epi32(0x0FC0FC00)), _mm_set1_epi32(0x04000040));
    __m128i const secondAndFourth =
        _mm_mullo_epi16(_mm_and_si128(spread, _mm_set1_epi32(0x003F03F0)), _mm_set1_epi32(0x01000010));
    __m128i const values = _mm_or_si128(firstAndThird, secondAndFourth);
    // What has to be added to a value depends on its range: 0 for 26 to 51, 1 to 12 for 52 to 63, and 13 below 26.
    __m128i const above = _mm_subs_epu8(values, _mm_set1_epi8(51));
    __m128i const below = _mm_and_si128(_mm_cmpgt_epi8(_mm_set1_epi8(26), values), _mm_set1_epi8(13));
    __m128i const offsets = _mm_setr_epi8(
        'a' - 26, '0' - 52, '0' - 52, '0' - 52, '0' - 52, '0' - 52, '0' - 52, '0' - 52, '0' - 52, '0' - 52, '0' - 52,
        '+' - 62, '/' - 63, 'A', 0, 0);
    return _mm_add_epi8(values, _mm_shuffle_epi8(offsets, _mm_or_si128(above, below)));
}

[[gnu::target("ssse3")]] void EncodeGroupsInVectors(Source source, std::size_t groups, Target target)
{
    while (groups > 0 && source.readable >= 16 && target.writable >= 16)
    {
        __m128i const bytes = _mm_loadu_si128(reinterpret_cast<__m128i const *>(source.next));
        _mm_storeu_si128(reinterpret_cast<__m128i *>(target.next), EncodeTwelve(bytes));
        if (groups <= 4)
        {
            return;
        }
        groups -= 4;
        source = {source.next + 12, source.readable - 12};
        target = {target.next + 16, target.writable - 16};
    }
    EncodeGroupsPlainly(source, groups, target);
}

bool HasVectors()
{
    __builtin_cpu_init(); // static initialisation may be earlier than the compiler's own call of it
    return __builtin_cpu_supports("ssse3");
}

#else

void EncodeGroupsInVectors(Source source, std::size_t groups, Target target)
{
    EncodeGroupsPlainly(source, groups, target);
}

bool HasVectors()
{
    return false;
}

#endif

// Not a constant inside a function, whose guard would cost as much as a short line. What runs before it is set, in some
// other static initialiser, takes the plain way.
bool const vectors = HasVectors();

// Encodes whole groups: 3 * groups bytes to 4 * groups characters.
void EncodeGroups(Source source, std::size_t groups, Target target)
{
    if (vectors && groups >= 4)
    {
        EncodeGroupsInVectors(source, groups, target);
    }
    else
    {
        EncodeGroupsPlainly(source, groups, target);
    }
}

} // namespace

Base64EncodingStream::Base64EncodingStream(OutputStream & target, int lineWidth)
    : OutputStream(&target),
      groupsPerLine(lineWidth < 0 ? 0 : std::max(lineWidth / 4, 1)),
      groupCount(0),
      pending(),
      pendingSize(0)
{
}

Base64EncodingStream::~Base64EncodingStream() noexcept(false)
{
    if (!downstream)
    {
        return;
    }
    lastWrite.Run(
        [this]
        {
            WritePending();
            if (groupCount != 0)
            {
                WriteLineFeed();
            }
        });
}

// A target sees one write for each group and one for each line feed, so that one that fails has taken what came before
// and nothing else. All fields change only after the write that they tell of.
void Base64EncodingStream::Write(char const * data, int size)
{
    if (size <= 0)
    {
        return;
    }
    // Below this, finding out what the target is costs more than it saves.
    constexpr std::size_t leastToGather = 48;
    MemoryOutputStream * const memory = static_cast<std::size_t>(size) >= leastToGather ? TargetInMemory() : nullptr;
    Byte const * next = reinterpret_cast<Byte const *>(data);
    Byte const * const end = next + size;
    FinishLine();
    while (pendingSize + (end - next) >= 3)
    {
        Byte group[3] = {pending[0], pending[1], 0};
        int const missing = 3 - pendingSize;
        std::memcpy(group + pendingSize, next, static_cast<std::size_t>(missing));
        char text[4];
        EncodeGroup(group, text);
        WriteGroup(text);
        next += missing;
        if (memory != nullptr)
        {
            next = WriteIntoMemory(next, end, *memory);
            FinishLine(); // for which there may have been no room
        }
    }
    std::memcpy(pending + pendingSize, next, static_cast<std::size_t>(end - next));
    pendingSize += static_cast<int>(end - next);
}

void Base64EncodingStream::FlushSelf()
{
    WritePending();
}

void Base64EncodingStream::WritePending()
{
    FinishLine();
    if (pendingSize > 0)
    {
        char text[4];
        EncodePaddedGroup(pending, pendingSize, text);
        WriteGroup(text);
    }
}

// Writes the group that ends with what is pending.
void Base64EncodingStream::WriteGroup(char const * text)
{
    downstream->Write(text, 4);
    pendingSize = 0;
    if (groupsPerLine > 0)
    {
        ++groupCount;
        FinishLine();
    }
}

// A line is full between its last group and its line feed alone, and so after a line feed that the target refused:
// that one comes first in whatever is written next.
void Base64EncodingStream::FinishLine()
{
    if (groupsPerLine > 0 && groupCount == groupsPerLine)
    {
        WriteLineFeed();
    }
}

void Base64EncodingStream::WriteLineFeed()
{
    char lineFeed = '\n'; // not a literal: a stream below may change it for the length of the call
    downstream->Write(&lineFeed, 1);
    groupCount = 0;
}

// The target if it is memory of the library and of no derived class, which would see the writes.
MemoryOutputStream * Base64EncodingStream::TargetInMemory() const
{
    OutputStream & target = *downstream;
    return typeid(target) == typeid(MemoryOutputStream) ? static_cast<MemoryOutputStream *>(&target) : nullptr;
}

// Encodes as many groups as have room in what the memory has allocated already, where no write could fail and nobody
// can tell one write from many. Returns the first byte that is left.
unsigned char const * Base64EncodingStream::WriteIntoMemory(
    unsigned char const * next, unsigned char const * end, MemoryOutputStream & memory)
{
    Target target = {nullptr, 0};
    target.next = memory.Room(target.writable);
    char const * const start = target.next;
    Source source = {next, static_cast<std::size_t>(end - next)};
    while (source.readable >= 3 && target.writable >= 4 && (groupsPerLine == 0 || groupCount < groupsPerLine))
    {
        std::size_t groups = std::min(source.readable / 3, target.writable / 4);
        groups = groupsPerLine > 0 ? std::min(groups, static_cast<std::size_t>(groupsPerLine - groupCount)) : groups;
        EncodeGroups(source, groups, target);
        source = {source.next + 3 * groups, source.readable - 3 * groups};
        target = {target.next + 4 * groups, target.writable - 4 * groups};
        groupCount += groupsPerLine > 0 ? static_cast<int>(groups) : 0;
        if (groupsPerLine > 0 && groupCount == groupsPerLine && target.writable > 0)
        {
            *target.next = '\n';
            target = {target.next + 1, target.writable - 1};
            groupCount = 0;
        }
    }
    memory.Commit(static_cast<std::size_t>(target.next - start));
    return source.next;
}

int Base64EncodingStream::Base64MemoryEncodedSize(int size)
{
    if (size <= 0)
    {
        return 0;
    }
    int const groups = (size - 1) / 3 + 1;
    if (groups > INT_MAX / 4)
    {
        throw std::length_error("Base64MemoryEncodedSize: more than 2^31 - 1 characters");
    }
    return groups * 4;
}

void Base64EncodingStream::Base64MemoryEncode(char const * data, int size, char * target)
{
    if (size <= 0)
    {
        return;
    }
    Byte const * const bytes = reinterpret_cast<Byte const *>(data);
    std::size_t const groups = static_cast<std::size_t>(size) / 3;
    EncodeGroups({bytes, static_cast<std::size_t>(size)}, groups, {target, groups * 4});
    if (size % 3 != 0)
    {
        EncodePaddedGroup(bytes + groups * 3, size % 3, target + groups * 4);
    }
}

namespace
{

// Decoding. The classes of input bytes; those below 64 are the values of the alphabet.
constexpr Byte padding = 64;
constexpr Byte skipped = 65;
constexpr Byte illegal = 66;

constexpr auto classes = []
{
    std::array<Byte, 256> table{};
    table.fill(illegal);
    for (Byte value = 0; value < 64; ++value)
    {
        table[static_cast<Byte>(alphabet[value])] = value;
    }
    table['='] = padding;
    for (char const blank : {' ', '\t', '\n', '\r'})
    {
        table[static_cast<Byte>(blank)] = skipped;
    }
    return table;
}();

// The bytes that a group of four values gives: 0 to 3.
int DecodeGroup(Byte const (&values)[4], Byte * bytes)
{
    auto const [a, b, c, d] = values;
    if (a == padding || b == padding)
    {
        return 0;
    }
    bytes[0] = static_cast<Byte>(a << 2 | b >> 4);
    if (c == padding)
    {
        return 1;
    }
    bytes[1] = static_cast<Byte>(b << 4 | c >> 2);
    if (d == padding)
    {
        return 2;
    }
    bytes[2] = static_cast<Byte>(c << 6 | d);
    return 3;
}

// For each place in a group, the value of a character at its place in 24 bits. What is not in the alphabet has a bit
// above them.
constexpr std::uint32_t notInAlphabet = 0x1000000;

constexpr auto shiftedValues = []
{
    std::array<std::array<std::uint32_t, 256>, 4> tables{};
    for (std::size_t place = 0; place < 4; ++place)
    {
        for (std::size_t byte = 0; byte < 256; ++byte)
        {
            std::uint32_t const value = classes[byte];
            tables[place][byte] = value < 64 ? value << (18 - 6 * place) : notInAlphabet;
        }
    }
    return tables;
}();

// What DecodeRun has decoded of pure alphabet: 4 * groups characters to 3 * groups bytes.
std::size_t DecodeRunPlainly(Byte const * text, std::size_t size, Byte * target)
{
    std::size_t groups = 0;
    for (; size - 4 * groups >= 4; ++groups)
    {
        Byte const * const group = text + 4 * groups;
        std::uint32_t const bits = shiftedValues[0][group[0]] | shiftedValues[1][group[1]] |
            shiftedValues[2][group[2]] | shiftedValues[3][group[3]];
        if (bits >= notInAlphabet)
        {
            break;
        }
        Byte * const bytes = target + 3 * groups;
        bytes[0] = static_cast<Byte>(bits >> 16);
        bytes[1] = static_cast<Byte>(bits >> 8);
        bytes[2] = static_cast<Byte>(bits);
    }
    return groups;
}

#ifdef __x86_64__

// Sixteen characters to their values; false if one is not in the alphabet.
//
// The high half of a character chooses a bit: 2x, 3x, 4x and 6x, 5x and 7x, all others. The low half chooses the bits
// with which it is not in the alphabet. The high half also chooses what to add to get the value; "/" alone differs
// within its row and takes the place of row 1.
[[gnu::target("ssse3"), gnu::always_inline]] inline bool Classify(__m128i text, __m128i & values)
{
    __m128i const halfMask = _mm_set1_epi8(0x0F);
    __m128i const high = _mm_and_si128(_mm_srli_epi16(text, 4), halfMask);
    __m128i const low = _mm_and_si128(text, halfMask);
    __m128i const highBits =
        _mm_setr_epi8(0x10, 0x10, 0x01, 0x02, 0x04, 0x08, 0x04, 0x08, 0x10, 0x10, 0x10, 0x10, 0x10, 0x10, 0x10, 0x10);
    __m128i const lowBits =
        _mm_setr_epi8(0x15, 0x11, 0x11, 0x11, 0x11, 0x11, 0x11, 0x11, 0x11, 0x11, 0x13, 0x1A, 0x1B, 0x1B, 0x1B, 0x1A);
    __m128i const wrong = _mm_and_si128(_mm_shuffle_epi8(highBits, high), _mm_shuffle_epi8(lowBits, low));
    if (_mm_movemask_epi8(_mm_cmpeq_epi8(wrong, _mm_setzero_si128())) != 0xFFFF)
    {
        return false;
    }
    __m128i const row = _mm_add_epi8(high, _mm_cmpeq_epi8(text, _mm_set1_epi8('/')));
    __m128i const offsets =
        _mm_setr_epi8(0, 63 - '/', 62 - '+', 52 - '0', -'A', -'A', 26 - 'a', 26 - 'a', 0, 0, 0, 0, 0, 0, 0, 0);
    values = _mm_add_epi8(text, _mm_shuffle_epi8(offsets, row));
    return true;
}

[[gnu::target("ssse3")]] std::size_t DecodeRunInVectors(Byte const * text, std::size_t size, Byte * target)
{
    std::size_t groups = 0;
    // A store writes 16 bytes of which 12 count. The two further groups that 24 characters promise make room for it.
    while (size - 4 * groups >= 24)
    {
        __m128i values;
        if (!Classify(_mm_loadu_si128(reinterpret_cast<__m128i const *>(text + 4 * groups)), values))
        {
            break;
        }
        __m128i const pairs = _mm_maddubs_epi16(values, _mm_set1_epi16(0x0140));
        __m128i const lanes = _mm_madd_epi16(pairs, _mm_set1_epi32(0x00011000));
        __m128i const bytes =
            _mm_shuffle_epi8(lanes, _mm_setr_epi8(2, 1, 0, 6, 5, 4, 10, 9, 8, 14, 13, 12, -1, -1, -1, -1));
        _mm_storeu_si128(reinterpret_cast<__m128i *>(target + 3 * groups), bytes);
        groups += 4;
    }
    return groups + DecodeRunPlainly(text + 4 * groups, size - 4 * groups, target + 3 * groups);
}

#else

std::size_t DecodeRunInVectors(Byte const * text, std::size_t size, Byte * target)
{
    return DecodeRunPlainly(text, size, target);
}

#endif

// Decodes groups of pure alphabet, as many as follow one another at `text`, and returns their number. It writes to
// nothing beyond the (size / 4) * 3 bytes that the text may give.
std::size_t DecodeRun(Byte const * text, std::size_t size, Byte * target)
{
    return vectors ? DecodeRunInVectors(text, size, target) : DecodeRunPlainly(text, size, target);
}

} // namespace

Base64DecodingStream::Base64DecodingStream(InputStream & from)
    : InputStream(&from), decoded(), decodedCount(0), group(), groupSize(0)
{
}

Base64DecodingStream::~Base64DecodingStream() noexcept(false) {}

void Base64DecodingStream::Read(char * data, int size)
{
    while (size > 0)
    {
        if (decodedCount == 0)
        {
            ReadGroup();
        }
        int const part = std::min(size, decodedCount);
        std::memcpy(data, decoded + sizeof decoded - decodedCount, static_cast<std::size_t>(part));
        decodedCount -= part;
        data += part;
        size -= part;
    }
}

// Reads one group. It may give nothing.
void Base64DecodingStream::ReadGroup()
{
    while (groupSize < 4)
    {
        char byte;
        source->Read(&byte, 1);
        Byte const value = classes[static_cast<Byte>(byte)];
        if (value <= padding)
        {
            group[groupSize++] = value;
        }
        else if (value == illegal)
        {
            groupSize = 0;
            throw Exception{3, TEXT("Base64 format error")};
        }
    }
    groupSize = 0;
    Byte bytes[3];
    decodedCount = DecodeGroup(group, bytes);
    std::memcpy(decoded + sizeof decoded - decodedCount, bytes, static_cast<std::size_t>(decodedCount));
}

int Base64DecodingStream::Base64MemoryDecodedMaxSize(int size)
{
    return std::max(size, 0) / 4 * 3;
}

int Base64DecodingStream::Base64MemoryDecode(char const * data, int size, char * target)
{
    Byte const * text = reinterpret_cast<Byte const *>(data);
    Byte const * const end = text + std::max(size, 0);
    Byte * bytes = reinterpret_cast<Byte *>(target);
    while (text < end)
    {
        std::size_t const groups = DecodeRun(text, static_cast<std::size_t>(end - text), bytes);
        text += 4 * groups;
        bytes += 3 * groups;
        if (text == end)
        {
            break;
        }
        // Whatever the run stopped at, one group goes by the rule for single bytes.
        Byte values[4];
        for (int count = 0; count < 4;)
        {
            if (text == end)
            {
                return -1;
            }
            Byte const value = classes[*text++];
            if (value == illegal)
            {
                return -1;
            }
            if (value != skipped)
            {
                values[count++] = value;
            }
        }
        bytes += DecodeGroup(values, bytes);
    }
    return static_cast<int>(bytes - reinterpret_cast<Byte *>(target));
}
