#include "Utf7.h"

#include <string_view>

namespace kv::platform
{

namespace
{

constexpr std::string_view digits = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

/// The target, or with a capacity of 0 only the count of what it would take.
template <typename Unit>
struct Sink
{
    Unit * const target;
    std::size_t const capacity;
    std::size_t written = 0;
    bool full = false;

    void Put(char32_t unit)
    {
        full = full || (capacity != 0 && written == capacity);
        if (full)
            return;
        if (capacity != 0)
            target[written] = static_cast<Unit>(unit);
        written++;
    }

    Conversion Result() const
    {
        return {written, !full, false};
    }
};

int DigitValue(char c)
{
    std::size_t const place = digits.find(c);
    return place == std::string_view::npos ? -1 : static_cast<int>(place);
}

/// What stands for itself: the letters, the digits, a handful of punctuation, and the blanks that line breaks and
/// tables need. The characters that the RFC makes optional are encoded.
bool IsDirect(WCHAR c)
{
    if (c >= 0x80)
        return false;
    bool const letter = (c | 0x20) >= 'a' && (c | 0x20) <= 'z';
    return letter || (c >= '0' && c <= '9') ||
        std::string_view("\0\t\n\r '(),-./:?", 14).find(static_cast<char>(c)) != std::string_view::npos;
}

} // namespace

Conversion DecodeUtf7(char const * source, std::size_t length, WCHAR * target, std::size_t capacity)
{
    Sink<WCHAR> sink{target, capacity};
    char const * const end = source + length;
    unsigned pending = 0;
    unsigned bits = 0;
    while (source < end && !sink.full)
    {
        if (*source != '+')
        {
            // A byte above ASCII has no meaning here and passes as it is.
            sink.Put(static_cast<unsigned char>(*source++));
            continue;
        }
        if (++source == end)
            break;
        if (*source == '-')
        {
            sink.Put('+');
            source++;
            continue;
        }
        for (int value; source < end && (value = DigitValue(*source)) >= 0; source++)
        {
            pending = (pending << 6 | static_cast<unsigned>(value)) & 0x3FFFFF;
            bits += 6;
            if (bits >= 16)
            {
                bits -= 16;
                sink.Put(pending >> bits & 0xFFFF);
            }
        }
        // Kept: behind a byte above ASCII the bits that were left over go into the next run.
        if (source < end && static_cast<unsigned char>(*source) >= 0x80)
            continue;
        bits = 0;
        if (source < end && *source == '-')
            source++;
    }
    return sink.Result();
}

Conversion EncodeUtf7(WCHAR const * source, std::size_t length, char * target, std::size_t capacity)
{
    Sink<char> sink{target, capacity};
    WCHAR const * const end = source + length;
    while (source < end && !sink.full)
    {
        if (*source == '+')
        {
            sink.Put('+');
            sink.Put('-');
            source++;
            continue;
        }
        if (IsDirect(*source))
        {
            sink.Put(*source++);
            continue;
        }
        unsigned pending = 0;
        unsigned bits = 0;
        sink.Put('+');
        for (; source < end && !IsDirect(*source) && *source != '+'; source++)
        {
            pending = (pending << 16 | *source) & 0x3FFFFF;
            for (bits += 16; bits >= 6; bits -= 6)
                sink.Put(static_cast<unsigned char>(digits[pending >> (bits - 6) & 0x3F]));
        }
        if (bits != 0)
            sink.Put(static_cast<unsigned char>(digits[pending << (6 - bits) & 0x3F]));
        sink.Put('-');
    }
    return sink.Result();
}

} // namespace kv::platform
