#include "NativeNames.h"

#include <algorithm>
#include <cstring>
#include <mutex>

#include <kvcore/platform/include/errors.h>
#include <kvcore/platform/include/winnls.h>
#include <kvcore/platform/linux/errors/ErrnoErrors.h>

namespace kv::platform
{

namespace
{

constexpr unsigned byteBase = 0xDC00;
constexpr unsigned maskedBase = 0xF000;

/// What no Win32 name holds anywhere.
bool IsForbidden(unsigned c)
{
    return c < 0x20 || c == '"' || c == '*' || c == '<' || c == '>' || c == '?' || c == '\\' || c == '|';
}

/// What a native name may hold and a Win32 name shows at U+F000.
bool IsMasked(unsigned unit)
{
    unsigned const c = unit - maskedBase;
    return unit > maskedBase && c < 0x80 && (IsForbidden(c) || c == ' ' || c == '.');
}

/// The length of the well-formed UTF-8 sequence at `at`, or 0; its character in `c`.
std::size_t WellFormed(unsigned char const * at, std::size_t left, char32_t & c)
{
    unsigned const lead = at[0];
    std::size_t const length = lead >= 0xC2 && lead < 0xE0 ? 2 : (lead >= 0xE0 && lead < 0xF0 ? 3 : 4);
    if (lead < 0xC2 || lead > 0xF4 || length > left)
    {
        return 0;
    }
    c = lead & (0x7Fu >> length);
    for (std::size_t i = 1; i < length; i++)
    {
        if ((at[i] & 0xC0) != 0x80)
        {
            return 0;
        }
        c = c << 6 | (at[i] & 0x3F);
    }
    bool const overlong = (length == 3 && c < 0x800) || (length == 4 && c < 0x10000);
    return overlong || c > 0x10FFFF || (c >= 0xD800 && c < 0xE000) ? 0 : length;
}

} // namespace

std::size_t DecodeName(char const * name, std::size_t count, WCHAR * target) noexcept
{
    auto const * const bytes = reinterpret_cast<unsigned char const *>(name);
    WCHAR * out = target;
    for (std::size_t i = 0; i < count;)
    {
        unsigned const byte = bytes[i];
        if (byte < 0x80)
        {
            bool const masked = IsForbidden(byte) || (i + 1 == count && (byte == '.' || byte == ' '));
            *out++ = static_cast<WCHAR>(masked ? maskedBase + byte : byte);
            i++;
            continue;
        }
        char32_t c = 0;
        std::size_t const length = WellFormed(bytes + i, count - i, c);
        if (length == 0 || IsMasked(c))
        {
            std::size_t const end = i + std::max<std::size_t>(length, 1);
            for (; i < end; i++)
            {
                *out++ = static_cast<WCHAR>(byteBase + bytes[i]);
            }
            continue;
        }
        if (c >= 0x10000)
        {
            *out++ = static_cast<WCHAR>(0xD7C0 + (c >> 10));
        }
        *out++ = static_cast<WCHAR>(c >= 0x10000 ? 0xDC00 | (c & 0x3FF) : c);
        i += length;
    }
    return static_cast<std::size_t>(out - target);
}

namespace
{

/// The bytes of one character at `name`; 0 for what no name has. `used` is how many units it took.
std::size_t EncodeCharacter(WCHAR const * name, std::size_t left, std::size_t & used, char (&bytes)[4])
{
    unsigned const unit = name[0];
    used = 1;
    char32_t c = unit;
    if (unit < 0x80 || IsMasked(unit))
    {
        bytes[0] = static_cast<char>(unit & 0x7F);
        return unit < 0x80 && (IsForbidden(unit) || unit == '/') ? 0 : 1;
    }
    if (unit >= byteBase + 0x80 && unit <= byteBase + 0xFF)
    {
        bytes[0] = static_cast<char>(unit - byteBase);
        return 1;
    }
    if (unit >= 0xD800 && unit < 0xE000)
    {
        if (unit >= 0xDC00 || left < 2 || (name[1] & 0xFC00) != 0xDC00)
        {
            return 0;
        }
        c = 0x10000 + ((unit & 0x3FFu) << 10) + (name[1] & 0x3FFu);
        used = 2;
    }
    std::size_t const length = c < 0x800 ? 2 : (c < 0x10000 ? 3 : 4);
    for (std::size_t i = length; i-- > 1; c >>= 6)
    {
        bytes[i] = static_cast<char>(0x80 | (c & 0x3F));
    }
    bytes[0] = static_cast<char>((0xF00u >> length) | c);
    return length;
}

} // namespace

bool EncodeName(
    WCHAR const * name, std::size_t count, char * target, std::size_t capacity, std::size_t & length) noexcept
{
    length = 0;
    for (std::size_t i = 0; i < count;)
    {
        char bytes[4];
        std::size_t used = 0;
        std::size_t const size = EncodeCharacter(name + i, count - i, used, bytes);
        if (size == 0)
        {
            return FailWith(ERROR_INVALID_NAME);
        }
        if (size > capacity - length)
        {
            return FailWith(ERROR_FILENAME_EXCED_RANGE);
        }
        std::memcpy(target + length, bytes, size);
        length += size;
        i += used;
    }
    // Dots can come from masked units or be left over from cutting others off: they must not lead anywhere.
    bool const dots = length > 0 && length <= 2 && target[0] == '.' && target[length - 1] == '.';
    return length == 0 || dots ? FailWith(ERROR_INVALID_NAME) : true;
}

namespace
{

/// Every unit's upper case, without the pairs and without language: names compare unit by unit.
WCHAR const * FoldTable()
{
    static WCHAR table[0x10000];
    static std::once_flag once;
    std::call_once(
        once,
        []
        {
            for (unsigned unit = 0; unit < 0x10000; unit++)
            {
                table[unit] = static_cast<WCHAR>(unit);
            }
            // The surrogates between the two parts stay as they are.
            LCMapStringW(LOCALE_INVARIANT, LCMAP_UPPERCASE, table + 1, 0xD7FF, table + 1, 0xD7FF);
            LCMapStringW(LOCALE_INVARIANT, LCMAP_UPPERCASE, table + 0xE000, 0x2000, table + 0xE000, 0x2000);
        });
    return table;
}

constexpr char FoldAscii(char c)
{
    return c >= 'a' && c <= 'z' ? static_cast<char>(c - 0x20) : c;
}

bool IsAscii(char const * name, std::size_t count)
{
    return std::none_of(name, name + count, [](char c) { return (c & 0x80) != 0; });
}

constexpr std::size_t longestDecoded = 1024;

} // namespace

WCHAR FoldUnit(WCHAR unit) noexcept
{
    if (unit < 0x80)
    {
        return unit >= 'a' && unit <= 'z' ? static_cast<WCHAR>(unit - 0x20) : unit;
    }
    return FoldTable()[unit];
}

int CompareNames(WCHAR const * left, std::size_t leftCount, WCHAR const * right, std::size_t rightCount) noexcept
{
    std::size_t const common = std::min(leftCount, rightCount);
    for (std::size_t i = 0; i < common; i++)
    {
        WCHAR const a = FoldUnit(left[i]);
        WCHAR const b = FoldUnit(right[i]);
        if (a != b)
        {
            return a < b ? -1 : 1;
        }
    }
    return leftCount == rightCount ? 0 : (leftCount < rightCount ? -1 : 1);
}

std::string FoldedKey(char const * name, std::size_t count)
{
    std::string key(name, count);
    if (IsAscii(name, count) || count > longestDecoded)
    {
        std::transform(key.begin(), key.end(), key.begin(), FoldAscii);
        return key;
    }
    WCHAR units[longestDecoded];
    std::size_t const length = DecodeName(name, count, units);
    key.clear();
    for (std::size_t i = 0; i < length; i++)
    {
        WCHAR const unit = FoldUnit(units[i]);
        if (unit < 0x80)
        {
            key += static_cast<char>(unit);
            continue;
        }
        char const wide[] = {'\xFF', static_cast<char>(unit >> 8), static_cast<char>(unit & 0xFF)};
        key.append(wide, sizeof wide);
    }
    return key;
}

bool EqualIgnoringCase(char const * left, std::size_t leftCount, char const * right, std::size_t rightCount) noexcept
{
    bool const ascii = IsAscii(left, leftCount);
    if (ascii || leftCount > longestDecoded || rightCount > longestDecoded)
    {
        // Nothing but ASCII folds to ASCII, so the lengths are equal.
        return leftCount == rightCount &&
            std::equal(left, left + leftCount, right, [](char a, char b) { return FoldAscii(a) == FoldAscii(b); });
    }
    WCHAR leftUnits[longestDecoded];
    WCHAR rightUnits[longestDecoded];
    std::size_t const leftLength = DecodeName(left, leftCount, leftUnits);
    std::size_t const rightLength = DecodeName(right, rightCount, rightUnits);
    return leftLength == rightLength && CompareNames(leftUnits, leftLength, rightUnits, rightLength) == 0;
}

} // namespace kv::platform
