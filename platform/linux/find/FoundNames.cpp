#include "FoundNames.h"

#include <algorithm>
#include <cstring>

#include <kvcore/platform/linux/paths/DirectoryReader.h>
#include <kvcore/platform/linux/paths/NativeNames.h>
#include <kvcore/platform/linux/paths/ShortNames.h>

namespace kv::platform
{

namespace
{

/// A record's name has room for this many units and a NUL.
constexpr std::size_t longestName = MAX_PATH - 1;

bool MatchesEither(NameMask const & mask, WCHAR const * name, std::size_t count)
{
    if (mask.Matches(name, count))
    {
        return true;
    }
    if (IsShortName(name, count))
    {
        return false;
    }
    WCHAR made[shortNameSize];
    return mask.Matches(made, MakeShortName(name, count, made));
}

/// Three bytes for each unit beyond ASCII, in the order of the units.
void AppendKey(std::string & text, char const * name, std::size_t count)
{
    WCHAR units[longestName];
    std::size_t const length = DecodeName(name, count, units);
    for (std::size_t i = 0; i < length; i++)
    {
        unsigned const unit = FoldUnit(units[i]);
        if (unit < 0x80)
        {
            text += static_cast<char>(unit);
            continue;
        }
        text += static_cast<char>(0x80 | unit >> 12);
        text += static_cast<char>(0x80 | (unit >> 6 & 0x3F));
        text += static_cast<char>(0x80 | (unit & 0x3F));
    }
}

std::uint64_t StartOf(char const * key)
{
    std::uint64_t start = 0;
    for (std::size_t i = 0; i < 8 && key[i] != '\0'; i++)
    {
        start |= std::uint64_t{static_cast<unsigned char>(key[i])} << (56 - 8 * i);
    }
    return start;
}

} // namespace

void FoundNames::Add(char const * name, std::size_t count)
{
    std::size_t const at = text.size();
    text.append(name, count + 1);
    std::size_t const key = text.size();
    AppendKey(text, name, count);
    text += '\0';
    entries.push_back({at, key, StartOf(text.data() + key)});
}

int FoundNames::Read(int descriptor, NameMask const & mask)
{
    int const error = ReadDirectory(
        descriptor,
        [&](char const * name, std::size_t count)
        {
            if (count <= longestName)
            {
                WCHAR units[longestName];
                if (mask.IsAll() || MatchesEither(mask, units, DecodeName(name, count, units)))
                {
                    Add(name, count);
                }
            }
            return true;
        });
    std::sort(
        entries.begin(), entries.end(),
        [this](Entry const & left, Entry const & right)
        {
            if (left.start != right.start)
            {
                return left.start < right.start;
            }
            int const keys = std::strcmp(text.data() + left.key, text.data() + right.key);
            // Names that differ only in case follow each other in one order always.
            return keys != 0 ? keys < 0 : std::strcmp(text.data() + left.name, text.data() + right.name) < 0;
        });
    return error;
}

} // namespace kv::platform
