#include <algorithm>
#include <bit>
#include <cstdint>
#include <cstring>
#include <limits>

#ifdef __SSE2__
#    include <emmintrin.h>
#endif

#include <kvcore/core/AsciiBytes.h>
#include <kvcore/core/ScratchBuffer.h>
#include <kvcore/core/String.h>
#include <kvcore/platform/win32.h>

// From bytes

namespace
{

constexpr std::size_t platformMaximum = std::size_t(std::numeric_limits<int>::max());

std::size_t MeasuredLength(char const * text, unsigned int length)
{
    return length == unsigned(-1) ? std::strlen(text) : length;
}

/// Runs `convert(target, capacity)`, which returns the elements written or, for no target, needed. A buffer that is
/// filled to the last element may have been too small.
template <typename Scratch, typename Convert>
int ConvertInto(Scratch & buffer, int capacity, Convert convert)
{
    int converted = convert(buffer.Data(), capacity);
    if (converted == capacity || (converted == 0 && GetLastError() == ERROR_INSUFFICIENT_BUFFER))
    {
        int const needed = convert(nullptr, 0);
        if (needed > 0)
        {
            buffer.Resize(std::size_t(needed));
            converted = convert(buffer.Data(), needed);
        }
    }
    return converted;
}

String Widened(char const * text, std::size_t length)
{
    String result;
    result.resize(length);
    std::transform(text, text + length, result.begin(), [](char c) { return WCHAR(static_cast<unsigned char>(c)); });
    return result;
}

/// Whether all bytes are below 0x80. In steps of eight, of which the last may overlap the one before it.
bool IsAscii(char const * text, std::size_t length)
{
    auto const isAsciiAt = [text](std::size_t at)
    {
        std::uint64_t step;
        std::memcpy(&step, text + at, sizeof(step));
        return (step & 0x8080808080808080) == 0;
    };
    if (length < sizeof(std::uint64_t))
    {
        return std::all_of(text, text + length, [](char c) { return static_cast<unsigned char>(c) < 0x80; });
    }
    std::size_t const last = length - sizeof(std::uint64_t);
    for (std::size_t at = 0; at < last; at += sizeof(std::uint64_t))
    {
        if (!isAsciiAt(at))
        {
            return false;
        }
    }
    return isAsciiAt(last);
}

// Pieces of this many bytes are converted on the stack, through the cache.
constexpr std::size_t pieceBytes = 2048;

using ElementBuffer = kv::detail::ScratchBuffer<WCHAR, pieceBytes + 1>;

/// Converts a text of fewer than `platformMaximum` bytes into `buffer`. The elements written, or 0 on failure.
std::size_t ConvertBytes(unsigned int codePage, char const * text, std::size_t length, ElementBuffer & buffer)
{
    int const size = int(length);
    buffer.Resize(length + 1);
    int const converted = ConvertInto(
        buffer, size + 1,
        [&](WCHAR * target, int capacity) { return MultiByteToWideChar(codePage, 0, text, size, target, capacity); });
    return converted > 0 ? std::size_t(converted) : 0;
}

/// Whether no sequence that begins before `text + cut` may reach behind it. Then the two sides, malformed or not,
/// convert alone to what they convert to together.
bool IsUtf8Boundary(char const * text, std::size_t cut)
{
    for (unsigned int back = 1; back <= 3; ++back)
    {
        auto const byte = static_cast<unsigned char>(text[cut - back]);
        unsigned int const length = byte >= 0xF0 ? 4 : byte >= 0xE0 ? 3 : byte >= 0xC0 ? 2 : 1;
        if (length > back)
        {
            return false;
        }
    }
    return true;
}

/// How much of `text` to convert next: a piece, or all of it if it is so mangled that nowhere near is a boundary.
std::size_t Utf8PieceLength(char const * text, std::size_t length)
{
    std::size_t cut = std::min(pieceBytes, length);
    while (cut > pieceBytes / 2 && cut != length && !IsUtf8Boundary(text, cut))
    {
        --cut;
    }
    return cut > pieceBytes / 2 ? cut : length;
}

String FromLongUtf8(char const * text, std::size_t length)
{
    WString result;
    ElementBuffer buffer;
    for (std::size_t position = 0, piece; position != length; position += piece)
    {
        std::size_t const left = length - position;
        piece = Utf8PieceLength(text + position, left);
        std::size_t const converted =
            piece < platformMaximum ? ConvertBytes(CP_UTF8, text + position, piece, buffer) : 0;
        if (converted == 0)
        {
            return String();
        }
        if (position == 0)
        {
            // If the text goes on as it begins, this is room enough.
            result.reserve(converted * (length / piece + 1));
        }
        result.append(buffer.Data(), converted);
    }
    return result;
}

String FromBytes(unsigned int codePage, char const * text, std::size_t length)
{
    // Only of UTF-8 is it known where it may be cut.
    if (codePage == CP_UTF8 && length > pieceBytes)
    {
        return FromLongUtf8(text, length);
    }
    if (length == 0 || length >= platformMaximum)
    {
        return String();
    }
    if (codePage == CP_UTF8 && IsAscii(text, length))
    {
        // Most texts of a program: they need no conversion and no second copy.
        return Widened(text, length);
    }
    ElementBuffer buffer;
    std::size_t const converted = ConvertBytes(codePage, text, length, buffer);
    return WString(buffer.Data(), converted);
}

} // namespace

String String::FromMultibyte(unsigned int codePage, char const * text, unsigned int length)
{
    return FromBytes(codePage, text, MeasuredLength(text, length));
}

String String::FromMultibyte(unsigned int codePage, std::string const & text)
{
    return FromBytes(codePage, text.data(), text.size());
}

String String::FromUtf8(char const * text, unsigned int length)
{
    return FromMultibyte(CP_UTF8, text, length);
}

String String::FromUtf8(std::string const & text)
{
    return FromMultibyte(CP_UTF8, text);
}

String String::FromSystemMultibyte(char const * text, unsigned int length)
{
    return FromMultibyte(CP_ACP, text, length);
}

String String::FromSystemMultibyte(std::string const & text)
{
    return FromMultibyte(CP_ACP, text);
}

String String::FromLatin1(char const * text, unsigned int length)
{
    return Widened(text, MeasuredLength(text, length));
}

String String::FromLatin1(std::string const & text)
{
    return Widened(text.data(), text.size());
}

// To bytes

std::string String::Multibyte(unsigned int codePage, DWORD flags, char const * defaultChar) const
{
    if (codePage == CP_UTF8)
    {
        return Utf8();
    }
    if (empty() || size() > platformMaximum)
    {
        return std::string();
    }
    std::size_t const capacity = std::min(size(), (platformMaximum - 1) / 3) * 3 + 1;
    kv::detail::ScratchBuffer<char, 1024> buffer(capacity);
    int const converted = ConvertInto(
        buffer, int(capacity),
        [&](char * target, int room)
        { return WideCharToMultiByte(codePage, flags, data(), int(size()), target, room, defaultChar, nullptr); });
    return converted > 0 ? std::string(buffer.Data(), std::size_t(converted)) : std::string();
}

std::string String::SystemMultibyte() const
{
    return Multibyte(CP_ACP, 0, nullptr);
}

namespace
{

bool IsHighSurrogate(WCHAR c)
{
    return (c & 0xFC00) == 0xD800;
}

bool IsLowSurrogate(WCHAR c)
{
    return (c & 0xFC00) == 0xDC00;
}

#ifdef __SSE2__

/// The UTF-8 sequences of four 32-bit elements, each from the lowest byte up, and how many bytes of each count.
inline void EncodeFour(__m128i c, std::uint32_t * sequences, std::uint32_t * lengths)
{
    __m128i const middle = _mm_and_si128(_mm_slli_epi32(c, 2), _mm_set1_epi32(0x3F00));
    __m128i const last = _mm_and_si128(_mm_slli_epi32(c, 16), _mm_set1_epi32(0x3F0000));
    __m128i const lead = _mm_or_si128(_mm_srli_epi32(c, 12), _mm_set1_epi32(0x8080E0));
    __m128i const three = _mm_or_si128(_mm_or_si128(middle, last), lead);
    // The shorter form has the same last two bytes but for the mark of a lead.
    __m128i const two = _mm_or_si128(_mm_srli_epi32(three, 8), _mm_set1_epi32(0x40));
    __m128i const upToTwo = _mm_cmplt_epi32(c, _mm_set1_epi32(0x800));
    __m128i const ascii = _mm_cmplt_epi32(c, _mm_set1_epi32(0x80));
    __m128i const longer = _mm_or_si128(_mm_and_si128(upToTwo, two), _mm_andnot_si128(upToTwo, three));
    __m128i const sequence = _mm_or_si128(_mm_and_si128(ascii, c), _mm_andnot_si128(ascii, longer));
    __m128i const length = _mm_add_epi32(_mm_set1_epi32(3), _mm_add_epi32(upToTwo, ascii));
    _mm_store_si128(reinterpret_cast<__m128i *>(sequences), sequence);
    _mm_store_si128(reinterpret_cast<__m128i *>(lengths), length);
}

/// Encodes eight elements, unless there is half a pair among them. No branch tells the lengths apart: in texts where
/// blanks stand between longer characters it would be guessed wrong at every word. What a sequence is stored too long
/// the next one writes over.
inline bool EncodeEight(WCHAR const *& text, char *& target)
{
    __m128i const elements = _mm_loadu_si128(reinterpret_cast<__m128i const *>(text));
    __m128i const kinds = _mm_and_si128(elements, _mm_set1_epi16(static_cast<short>(0xF800)));
    if (_mm_movemask_epi8(_mm_cmpeq_epi16(kinds, _mm_set1_epi16(static_cast<short>(0xD800)))) != 0)
    {
        return false;
    }
    alignas(16) std::uint32_t sequences[8];
    alignas(16) std::uint32_t lengths[8];
    EncodeFour(_mm_unpacklo_epi16(elements, _mm_setzero_si128()), sequences, lengths);
    EncodeFour(_mm_unpackhi_epi16(elements, _mm_setzero_si128()), sequences + 4, lengths + 4);
    for (std::size_t i = 0; i < 8; ++i)
    {
        std::memcpy(target, sequences + i, 4);
        target += lengths[i];
    }
    text += 8;
    return true;
}

#endif

/// Stores the lowest `length` bytes of `sequence`, the lowest first, and more behind them for the next to write over.
inline char * Store(char * target, std::uint32_t sequence, int length)
{
    static_assert(std::endian::native == std::endian::little);
    std::memcpy(target, &sequence, sizeof(sequence));
    return target + length;
}

/// Encodes the character at `text`, of one or two elements.
inline char * EncodeOne(WCHAR const *& text, WCHAR const * end, char * target)
{
    std::uint32_t const c = *text++;
    if (IsHighSurrogate(WCHAR(c)) && text != end && IsLowSurrogate(*text))
    {
        std::uint32_t const character = 0x10000 + ((c - 0xD800) << 10) + (*text++ - 0xDC00u);
        std::uint32_t const firstHalf = 0x80F0 | character >> 18 | (character >> 4 & 0x3F00);
        std::uint32_t const secondHalf = 0x80800000 | (character << 10 & 0x3F0000) | (character << 24 & 0x3F000000);
        return Store(target, firstHalf | secondHalf, 4);
    }
    if (c < 0x80)
    {
        *target = static_cast<char>(c);
        return target + 1;
    }
    if (c < 0x800)
    {
        return Store(target, 0x80C0 | c >> 6 | (c << 8 & 0x3F00), 2);
    }
    // Kept: half a pair alone comes here too.
    return Store(target, 0x8080E0 | c >> 12 | (c << 2 & 0x3F00) | (c << 16 & 0x3F0000), 3);
}

/// Encodes `text` to `end` at `target`, which has room for three bytes an element and one more, and returns the end of
/// the bytes.
char * EncodeUtf8(WCHAR const * text, WCHAR const * end, char * target)
{
    while (text != end)
    {
#ifdef __SSE2__
        kv::detail::CopyAscii(text, end, target);
        if (end - text >= 8 && EncodeEight(text, target))
        {
            continue;
        }
#endif
        WCHAR const * const pause = end - text > 8 ? text + 8 : end;
        while (text < pause)
        {
            target = EncodeOne(text, end, target);
        }
    }
    return target;
}

} // namespace

std::string String::Utf8() const
{
    // Piece by piece through the cache: a buffer for the longest possible result would cost more than the encoding.
    constexpr std::size_t pieceLength = 1024;
    char bytes[3 * pieceLength + 1];
    std::string result;
    for (std::size_t position = 0; position < size();)
    {
        std::size_t next = std::min(position + pieceLength, size());
        if (next != size() && IsHighSurrogate((*this)[next - 1]))
        {
            --next; // the other half may follow
        }
        std::size_t const encoded = std::size_t(EncodeUtf8(data() + position, data() + next, bytes) - bytes);
        if (next - position == size())
        {
            return std::string(bytes, encoded);
        }
        if (position == 0)
        {
            // If the text goes on as it begins, this is room enough.
            result.reserve(encoded * (size() / pieceLength + 1));
        }
        result.append(bytes, encoded);
        position = next;
    }
    return result;
}

namespace
{

std::string Narrowed(WString const & text, WCHAR highest, char replacement, int * replaced)
{
    std::string result(text.size(), '\0');
    int count = 0;
    for (std::size_t i = 0; i < text.size(); ++i)
    {
        bool const fits = text[i] <= highest;
        result[i] = fits ? static_cast<char>(text[i]) : replacement;
        count += fits ? 0 : 1;
    }
    if (replaced != nullptr)
    {
        *replaced = count;
    }
    return result;
}

} // namespace

std::string String::Latin1(char replacement, int * replaced) const
{
    return Narrowed(*this, 0xFF, replacement, replaced);
}

std::string String::Ascii(char replacement, int * replaced) const
{
    return Narrowed(*this, 0x7F, replacement, replaced);
}
