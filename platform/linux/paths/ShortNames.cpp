#include "ShortNames.h"

#include <algorithm>
#include <cstdint>

#include "NativeNames.h"

namespace kv::platform
{

namespace
{

/// Letters of the name that the short form starts with, and of the hash behind the tilde: 2 and 5, since 25 bits keep
/// even the names of a large folder apart.
constexpr std::size_t kept = 2;
constexpr std::size_t hashed = 5;
constexpr std::size_t longestBase = 8;
constexpr std::size_t longestExtension = 3;

bool IsShortCharacter(WCHAR c)
{
    bool const letterOrDigit = (c >= '0' && c <= '9') || ((c | 0x20) >= 'a' && (c | 0x20) <= 'z' && c < 0x80);
    switch (c)
    {
    case '!':
    case '#':
    case '$':
    case '%':
    case '&':
    case '\'':
    case '(':
    case ')':
    case '-':
    case '@':
    case '^':
    case '_':
    case '`':
    case '{':
    case '}':
    case '~':
        return true;
    default:
        return letterOrDigit;
    }
}

/// The last dot, unless nothing stands before it; else the end.
std::size_t ExtensionDot(WCHAR const * name, std::size_t count)
{
    for (std::size_t i = count; i-- > 1;)
    {
        if (name[i] == '.')
        {
            return i;
        }
    }
    return count;
}

WCHAR ShortCharacter(WCHAR c)
{
    return IsShortCharacter(c) && c != '~' ? FoldUnit(c) : static_cast<WCHAR>('_');
}

std::uint32_t HashOf(WCHAR const * name, std::size_t count)
{
    std::uint32_t hash = 2166136261u;
    for (std::size_t i = 0; i < count; i++)
    {
        hash = (hash ^ (name[i] & 0xFFu)) * 16777619u;
        hash = (hash ^ (name[i] >> 8)) * 16777619u;
    }
    return hash ^ hash >> 15;
}

} // namespace

bool IsShortName(WCHAR const * name, std::size_t count) noexcept
{
    std::size_t const dot = ExtensionDot(name, count);
    std::size_t const extension = dot == count ? 0 : count - dot - 1;
    if (dot == 0 || dot > longestBase || extension > longestExtension || (dot != count && extension == 0))
    {
        return false;
    }
    return std::all_of(name, name + dot, IsShortCharacter) &&
        std::all_of(name + (dot == count ? dot : dot + 1), name + count, IsShortCharacter);
}

std::size_t MakeShortName(WCHAR const * name, std::size_t count, WCHAR (&target)[shortNameSize]) noexcept
{
    std::size_t const dot = ExtensionDot(name, count);
    std::size_t length = 0;
    for (std::size_t i = 0; i < kept; i++)
    {
        target[length++] = i < dot ? ShortCharacter(name[i]) : static_cast<WCHAR>('_');
    }
    target[length++] = '~';
    std::uint32_t hash = HashOf(name, count);
    for (std::size_t i = 0; i < hashed; i++, hash >>= 5)
    {
        target[length++] = static_cast<WCHAR>("ABCDEFGHIJKLMNOPQRSTUVWXYZ012345"[hash & 31]);
    }
    if (dot + 1 < count)
    {
        target[length++] = '.';
        for (std::size_t i = dot + 1; i < count && i <= dot + longestExtension; i++)
        {
            target[length++] = ShortCharacter(name[i]);
        }
    }
    target[length] = 0;
    return length;
}

bool MayBeMadeShort(char const * name, std::size_t count) noexcept
{
    constexpr std::size_t base = kept + 1 + hashed;
    return count >= base && count <= base + 1 + longestExtension && name[kept] == '~' &&
        (count == base || name[base] == '.');
}

} // namespace kv::platform
