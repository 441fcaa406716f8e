#pragma once

// ASCII between UTF-16 and bytes, many elements at a time. Most texts that go out as bytes are nothing else.

#include <cstddef>

#ifdef __SSE2__
#    include <emmintrin.h>
#endif

#include <kvcore/platform/types.h>

namespace kv::detail
{

#ifdef __SSE2__

/// Copies ASCII in steps of 16 elements, as far as it goes.
inline void CopyAscii(WCHAR const *& text, WCHAR const * end, char *& target)
{
    __m128i const aboveAscii = _mm_set1_epi16(static_cast<short>(0xFF80));
    while (end - text >= 16)
    {
        __m128i const low = _mm_loadu_si128(reinterpret_cast<__m128i const *>(text));
        __m128i const high = _mm_loadu_si128(reinterpret_cast<__m128i const *>(text + 8));
        __m128i const above = _mm_and_si128(_mm_or_si128(low, high), aboveAscii);
        if (_mm_movemask_epi8(_mm_cmpeq_epi16(above, _mm_setzero_si128())) != 0xFFFF)
        {
            break;
        }
        _mm_storeu_si128(reinterpret_cast<__m128i *>(target), _mm_packus_epi16(low, high));
        text += 16;
        target += 16;
    }
}

#endif

/// Copies the ASCII that a text begins with; `target` has room for as many bytes as the text has elements. Returns how
/// many there were, which is all of them for a text of ASCII alone.
inline std::size_t NarrowAscii(WCHAR const * text, std::size_t length, char * target)
{
    WCHAR const * at = text;
    WCHAR const * const end = text + length;
#ifdef __SSE2__
    CopyAscii(at, end, target);
#endif
    for (; at != end && *at < 0x80; ++at)
    {
        *target++ = static_cast<char>(*at);
    }
    return static_cast<std::size_t>(at - text);
}

} // namespace kv::detail
