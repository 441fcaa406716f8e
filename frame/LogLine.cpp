#include <kvcore/frame/detail/LogLine.h>

#include <algorithm>
#include <cstring>

#ifdef __SSE2__
#    include <emmintrin.h>
#endif

#include <kvcore/core/AsciiBytes.h>

namespace kv::detail
{

namespace
{

template <typename Unit>
Unit * PutTwoDigits(Unit * at, unsigned value)
{
    *at++ = static_cast<Unit>('0' + value / 10 % 10);
    *at++ = static_cast<Unit>('0' + value % 10);
    return at;
}

/// "[09:05:07] "
template <typename Unit>
Unit * PutTime(Unit * at, LogTime const & time)
{
    *at++ = '[';
    at = PutTwoDigits(at, time.hour);
    *at++ = ':';
    at = PutTwoDigits(at, time.minute);
    *at++ = ':';
    at = PutTwoDigits(at, time.second);
    *at++ = ']';
    *at++ = ' ';
    return at;
}

bool EndsLine(char byte)
{
    return byte == '\r' || byte == '\n';
}

/// Copies a text as bytes and tells whether that is right: whether it is ASCII without line ends. Looks at it once, and
/// at all of it: the texts are short, and nearly all are right.
class LineNarrowing
{
public:
    bool Run(LogText text, char * target)
    {
        std::size_t at = 0;
#ifdef __SSE2__
        for (; at + 16 <= text.size(); at += 16)
        {
            NarrowSixteen(text.data() + at, target + at);
        }
        if (at != text.size() && at != 0)
        {
            // The last 16 once more, of which the first are done.
            at = text.size() - 16;
            NarrowSixteen(text.data() + at, target + at);
            at = text.size();
        }
#endif
        for (; at != text.size(); ++at)
        {
            WCHAR const unit = text[at];
            isAscii &= unit < 0x80;
            hasControls |= unit <= lastLineEnd;
            target[at] = static_cast<char>(unit);
        }
#ifdef __SSE2__
        __m128i const isNothing = _mm_cmpeq_epi16(_mm_and_si128(all, _mm_set1_epi16(~0x7F)), _mm_setzero_si128());
        __m128i const isControl = _mm_cmpeq_epi8(_mm_min_epu8(least, _mm_set1_epi8(lastLineEnd)), least);
        isAscii &= _mm_movemask_epi8(isNothing) == 0xFFFF;
        hasControls |= _mm_movemask_epi8(isControl) != 0;
#endif
        return isAscii && !(hasControls && std::any_of(target, target + text.size(), EndsLine));
    }

private:
    static constexpr char lastLineEnd = '\r';
    static_assert('\n' < lastLineEnd);

#ifdef __SSE2__
    void NarrowSixteen(WCHAR const * from, char * to)
    {
        __m128i const low = _mm_loadu_si128(reinterpret_cast<__m128i const *>(from));
        __m128i const high = _mm_loadu_si128(reinterpret_cast<__m128i const *>(from + 8));
        __m128i const bytes = _mm_packus_epi16(low, high);
        _mm_storeu_si128(reinterpret_cast<__m128i *>(to), bytes);
        all = _mm_or_si128(all, _mm_or_si128(low, high));
        least = _mm_min_epu8(least, bytes);
    }

    __m128i all = _mm_setzero_si128();  // the elements, one over the other
    __m128i least = _mm_set1_epi8(127); // of the bytes
#endif
    bool isAscii = true;
    bool hasControls = false; // up to those that end lines
};

WCHAR * Put(WCHAR * at, LogText text)
{
    return std::copy(text.begin(), text.end(), at);
}

} // namespace

// By hand, for the log is called often: a general formatter takes longer than all the rest.
void AppendLogLine(WString & line, LogTime const & time, LogText moduleName, unsigned long indent, LogText text)
{
    LogText const lineEnd = TEXT("\r\n");
    if (text.empty())
    {
        line.append(lineEnd);
        return;
    }
    std::size_t const before = line.size();
    std::size_t const blanks = 2 * std::size_t{indent};
    line.resize(before + logTimeLength + logNameLength + 1 + blanks + text.size() + lineEnd.size());
    WCHAR * at = PutTime(line.data() + before, time);
    LogText const name = moduleName.substr(0, logNameLength);
    at = std::fill_n(Put(at, name), logNameLength - name.size() + 1 + blanks, WCHAR(' '));
    Put(Put(at, text), lineEnd);
}

void AsciiLogLine::SetTime(LogTime const & time)
{
    PutTime(stamp, time);
}

void AsciiLogLine::SetName(LogText moduleName)
{
    LogText const name = moduleName.substr(0, logNameLength);
    char * const field = stamp + logTimeLength;
    std::memset(field, ' ', logNameLength + 1);
    hasAsciiName = NarrowAscii(name.data(), name.size(), field) == name.size();
}

std::size_t AsciiLogLine::Put(char * room, std::size_t size, unsigned long indent, LogText text) const
{
    constexpr std::size_t lineEndLength = 2;
    std::size_t const fixed = sizeof stamp + lineEndLength;
    bool const hasRoom = size >= fixed && text.size() <= size - fixed && indent <= (size - fixed - text.size()) / 2;
    if (!hasRoom || !hasAsciiName || text.empty())
    {
        return 0;
    }
    std::memcpy(room, stamp, sizeof stamp);
    char * at = room + sizeof stamp;
    if (indent != 0)
    {
        std::memset(at, ' ', 2 * std::size_t{indent});
        at += 2 * std::size_t{indent};
    }
    if (!LineNarrowing().Run(text, at))
    {
        return 0;
    }
    at += text.size();
    *at++ = '\r';
    *at++ = '\n';
    return static_cast<std::size_t>(at - room);
}

} // namespace kv::detail
