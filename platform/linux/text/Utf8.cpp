#include "Utf8.h"

#include <bit>
#include <cstdint>
#include <cstring>

#if defined(__SSE2__)
#    include <emmintrin.h>
#endif

namespace kv::platform
{

namespace
{

using Byte = unsigned char;

constexpr char32_t replacement = 0xFFFD;

/// How much a conversion has to watch its target. Each mode is a loop of its own, without the checks of the others.
enum class Room
{
    Counted, ///< Nothing is written.
    Limited, ///< The target may end before the source does.
    Ample    ///< The target holds whatever the source can become.
};

inline bool IsTrail(Byte byte)
{
    return (byte & 0xC0) == 0x80;
}

inline bool IsSurrogate(char32_t c)
{
    return (c & 0xFFFFF800) == 0xD800;
}

/// The bytes that follow a lead byte; 0 for what cannot lead.
inline int TrailLength(Byte lead)
{
    if (lead < 0xC2 || lead > 0xF4)
        return 0;
    return lead < 0xE0 ? 1 : lead < 0xF0 ? 2 : 3;
}

#if defined(__SSE2__)
inline bool IsAsciiBlock(Byte const * bytes)
{
    return _mm_movemask_epi8(_mm_loadu_si128(reinterpret_cast<__m128i const *>(bytes))) == 0;
}
#endif

/// A sequence taken: its character and what follows it. By value, so that the loops keep their places in registers.
struct Taken
{
    char32_t c;
    Byte const * next;
    bool malformed;
};

/// Takes a sequence of any kind. A malformed one is one `replacement` and takes its lead and those trail bytes
/// that could not tell yet. Kept: a sequence that the end of the text cuts short takes all that is left, whatever it
/// is, as it does on Windows, so that both targets count the same characters.
Taken TakeSequence(Byte const * source, Byte const * end)
{
    Byte const lead = *source++;
    int const trails = TrailLength(lead);
    if (end - source < trails)
        return {replacement, end, true};
    char32_t c = lead & (0x3Fu >> trails);
    for (int missing = trails; missing > 0 && IsTrail(*source); missing--)
    {
        c = c << 6 | (*source & 0x3Fu);
        if (trails == 3 && missing == 2 && c > 0x10FFFF >> 6)
            break;
        source++;
        if (missing == 1)
            return {c, source, false};
        bool const overlong = (trails == 3 && missing == 3 && c < 0x10) || (trails == 2 && c < 0x20);
        if (overlong || (trails == 2 && IsSurrogate(c << 6)))
            break;
    }
    return {replacement, source, true};
}

/// The source and the target of a decoder, with its four fast runs. A run ends before anything that is not its own,
/// and with the source or, with Limited room, the target.
template <Room room>
struct Decoder
{
    Byte const * source;
    Byte const * const end;
    WCHAR * const target;
    std::size_t const capacity;
    std::size_t written = 0;

    bool HasMore(std::ptrdiff_t bytes) const
    {
        return end - source >= bytes && (room != Room::Limited || written < capacity);
    }

    void Put(char32_t unit)
    {
        if constexpr (room != Room::Counted)
            target[written] = static_cast<WCHAR>(unit);
        written++;
    }

    /// Widens 16 bytes to the target. The bytes that are no ASCII leave units behind that are written over.
    void PutWidened([[maybe_unused]] Byte const * bytes)
    {
#if defined(__SSE2__)
        if constexpr (room != Room::Counted)
        {
            __m128i const all = _mm_loadu_si128(reinterpret_cast<__m128i const *>(bytes));
            __m128i const zero = _mm_setzero_si128();
            __m128i * const out = reinterpret_cast<__m128i *>(target + written);
            _mm_storeu_si128(out, _mm_unpacklo_epi8(all, zero));
            _mm_storeu_si128(out + 1, _mm_unpackhi_epi8(all, zero));
        }
#endif
    }

    /// ASCII, with single pairs in it as texts in Latin letters have them. The positions of the pairs come from the
    /// mask of a whole block, so that no step waits for the bytes that the step before it has found.
    void TakeMostlyAscii()
    {
#if defined(__SSE2__)
        while (end - source >= 32 && (room != Room::Limited || capacity - written >= 32))
        {
            __m128i const block = _mm_loadu_si128(reinterpret_cast<__m128i const *>(source));
            unsigned others = static_cast<unsigned>(_mm_movemask_epi8(block));
            unsigned place = 0;
            while (others != 0)
            {
                PutWidened(source + place);
                int const run = std::countr_zero(others);
                place += static_cast<unsigned>(run);
                written += static_cast<unsigned>(run);
                unsigned const lead = source[place] - 0xC2u;
                unsigned const trail = source[place + 1] ^ 0x80u;
                if (lead > 0xDF - 0xC2 || trail > 0x3F)
                {
                    source += place;
                    return;
                }
                Put((lead + 2) << 6 | trail);
                place += 2;
                others = others >> run >> 2;
                if ((others & 1) != 0)
                {
                    source += place;
                    return;
                }
            }
            // A pair at the end may reach beyond the block; what follows it is another block's, and may be no one's.
            if (place < 16)
            {
                PutWidened(source + place);
                written += 16 - place;
                place = 16;
            }
            source += place;
        }
        while (end - source >= 16 && (room != Room::Limited || capacity - written >= 16) && IsAsciiBlock(source))
        {
            PutWidened(source);
            source += 16;
            written += 16;
        }
#endif
        for (; HasMore(1) && *source < 0x80; source++)
            Put(*source);
    }

    /// Pairs, and the single blanks between the words that they make.
    void TakePairs()
    {
        for (; HasMore(2); Put(*source++))
        {
            for (; HasMore(2); source += 2)
            {
                unsigned const lead = source[0] - 0xC2u;
                unsigned const trail = source[1] ^ 0x80u;
                if (lead > 0xDF - 0xC2 || trail > 0x3F)
                    break;
                Put((lead + 2) << 6 | trail);
            }
            if (!HasMore(2) || source[0] >= 0x80 || source[1] < 0x80)
                return;
        }
    }

    /// Triples, and the single blanks between the words that they make. Four bytes are looked at together.
    void TakeTriples()
    {
        static_assert(std::endian::native == std::endian::little);
        for (; HasMore(4); Put(*source++))
        {
            for (; HasMore(4); source += 3)
            {
                std::uint32_t bytes;
                std::memcpy(&bytes, source, sizeof(bytes));
                std::uint32_t const c = (bytes & 0x0F) << 12 | (bytes >> 2 & 0xFC0) | (bytes >> 16 & 0x3F);
                if ((bytes & 0xC0C0F0) != 0x8080E0 || c < 0x800 || IsSurrogate(c))
                    break;
                Put(c);
            }
            if (!HasMore(4) || source[0] >= 0x80 || source[1] < 0x80)
                return;
        }
    }

    /// Quadruples, each a surrogate pair, and the single blanks between them.
    void TakeQuadruples()
    {
        auto const hasMore = [this] { return end - source >= 5 && (room != Room::Limited || capacity - written >= 2); };
        for (; hasMore(); Put(*source++))
        {
            for (; hasMore(); source += 4)
            {
                std::uint32_t bytes;
                std::memcpy(&bytes, source, sizeof(bytes));
                std::uint32_t const high = (bytes & 0x07) << 18 | (bytes << 4 & 0x3F000);
                std::uint32_t const c = high | (bytes >> 10 & 0xFC0) | (bytes >> 24 & 0x3F);
                if ((bytes & 0xC0C0C0F8) != 0x808080F0 || c - 0x10000 > 0xFFFFF)
                    break;
                PutCharacter(c);
            }
            if (!hasMore() || source[0] >= 0x80 || source[1] < 0x80)
                return;
        }
    }

    /// False, with nothing written, if there is no room for both halves.
    bool PutCharacter(char32_t c)
    {
        if (c < 0x10000)
        {
            Put(c);
            return true;
        }
        if (room == Room::Limited && capacity - written < 2)
            return false;
        Put(0xD7C0 + (c >> 10));
        Put(0xDC00 | (c & 0x3FF));
        return true;
    }
};

template <Room room>
Conversion Decode(char const * text, std::size_t length, WCHAR * target, std::size_t capacity)
{
    Byte const * const start = reinterpret_cast<Byte const *>(text);
    Decoder<room> decoder{start, start + length, target, capacity};
    bool malformed = false;
    while (decoder.HasMore(1))
    {
        Byte const * const before = decoder.source;
        if (*before < 0x80)
            decoder.TakeMostlyAscii();
        else if (*before < 0xE0)
            decoder.TakePairs();
        else if (*before < 0xF0)
            decoder.TakeTriples();
        else
            decoder.TakeQuadruples();
        if (decoder.source != before)
            continue;

        Taken const taken = TakeSequence(before, decoder.end);
        if (!decoder.PutCharacter(taken.c))
            break;
        malformed = malformed || taken.malformed;
        decoder.source = taken.next;
    }
    return {decoder.written, decoder.source == decoder.end, malformed};
}

/// The mirror: the source and the target of an encoder, with its two fast runs.
template <Room room>
struct Encoder
{
    WCHAR const * source;
    WCHAR const * const end;
    char * const target;
    std::size_t const capacity;
    std::size_t written = 0;

    bool HasRoom(std::size_t bytes) const
    {
        return room != Room::Limited || capacity - written >= bytes;
    }

    void Put(char32_t byte)
    {
        if constexpr (room != Room::Counted)
            target[written] = static_cast<char>(byte);
        written++;
    }

    /// Characters of one and two bytes, which texts in Latin letters mix closely.
    void TakeShort()
    {
#if defined(__SSE2__)
        while (end - source >= 16 && HasRoom(16))
        {
            __m128i const * const in = reinterpret_cast<__m128i const *>(source);
            __m128i const low = _mm_loadu_si128(in);
            __m128i const high = _mm_loadu_si128(in + 1);
            __m128i const others = _mm_and_si128(_mm_or_si128(low, high), _mm_set1_epi16(static_cast<short>(0xFF80)));
            if (_mm_movemask_epi8(_mm_cmpeq_epi16(others, _mm_setzero_si128())) != 0xFFFF)
                break;
            if constexpr (room != Room::Counted)
                _mm_storeu_si128(reinterpret_cast<__m128i *>(target + written), _mm_packus_epi16(low, high));
            source += 16;
            written += 16;
        }
#endif
        WCHAR const * const pause = end - source > 16 ? source + 16 : end;
        for (; source < pause && *source < 0x800 && HasRoom(2); source++)
        {
            unsigned const unit = *source;
            if (unit >= 0x80)
                Put(0xC0 | unit >> 6);
            Put(unit < 0x80 ? unit : 0x80 | (unit & 0x3F));
        }
        if (room == Room::Limited && source < end && *source < 0x80 && HasRoom(1))
            Put(*source++);
    }

    void TakeTriples()
    {
        for (; source < end && *source >= 0x800 && !IsSurrogate(*source) && HasRoom(3); source++)
            PutTriple(*source);
    }

    void PutTriple(char32_t c)
    {
        Put(0xE0 | c >> 12);
        Put(0x80 | (c >> 6 & 0x3F));
        Put(0x80 | (c & 0x3F));
    }

    /// A pair, or `replacement` for half of one. False, with nothing taken, if there is no room.
    bool TakeSurrogates(bool & malformed)
    {
        bool const pair = *source < 0xDC00 && end - source > 1 && (source[1] & 0xFC00) == 0xDC00;
        if (!HasRoom(pair ? 4 : 3))
            return false;
        if (pair)
        {
            char32_t const c = 0x10000 + ((source[0] & 0x3FFu) << 10 | (source[1] & 0x3FFu));
            Put(0xF0 | c >> 18);
            Put(0x80 | (c >> 12 & 0x3F));
            Put(0x80 | (c >> 6 & 0x3F));
            Put(0x80 | (c & 0x3F));
        }
        else
        {
            PutTriple(replacement);
            malformed = true;
        }
        source += pair ? 2 : 1;
        return true;
    }
};

template <Room room>
Conversion Encode(WCHAR const * source, std::size_t length, char * target, std::size_t capacity)
{
    Encoder<room> encoder{source, source + length, target, capacity};
    bool malformed = false;
    while (encoder.source < encoder.end)
    {
        WCHAR const * const before = encoder.source;
        if (*before < 0x800)
            encoder.TakeShort();
        else if (!IsSurrogate(*before))
            encoder.TakeTriples();
        else if (!encoder.TakeSurrogates(malformed))
            break;
        if (encoder.source == before)
            break; // no room
    }
    return {encoder.written, encoder.source == encoder.end, malformed};
}

} // namespace

Conversion CountUtf8AsUtf16(char const * source, std::size_t length)
{
    return Decode<Room::Counted>(source, length, nullptr, 0);
}

Conversion DecodeUtf8(char const * source, std::size_t length, WCHAR * target, std::size_t capacity)
{
    // No sequence becomes more units than it has bytes.
    if (capacity >= length)
        return Decode<Room::Ample>(source, length, target, capacity);
    return Decode<Room::Limited>(source, length, target, capacity);
}

Conversion CountUtf16AsUtf8(WCHAR const * source, std::size_t length)
{
    return Encode<Room::Counted>(source, length, nullptr, 0);
}

Conversion EncodeUtf8(WCHAR const * source, std::size_t length, char * target, std::size_t capacity)
{
    if (capacity / 3 >= length)
        return Encode<Room::Ample>(source, length, target, capacity);
    return Encode<Room::Limited>(source, length, target, capacity);
}

} // namespace kv::platform
