#pragma once

#include <cstddef>
#include <string_view>

#include <kvcore/platform/CharacterClass.h>
#include <kvcore/platform/types.h>

namespace kv::detail
{

using PathView = std::basic_string_view<WCHAR>;

constexpr WCHAR separator = '\\';
constexpr WCHAR dot = '.';

/// "c:" and whatever follows.
inline bool BeginsWithDrive(PathView path)
{
    if (path.size() < 2 || path[1] != ':')
    {
        return false;
    }
    WCHAR const lower = static_cast<WCHAR>(path[0] | 0x20);
    return (lower >= 'a' && lower <= 'z') || (path[0] >= 0x80 && platform::IsAlpha(path[0]));
}

/// "c:\" and whatever follows.
inline bool BeginsWithRoot(PathView path)
{
    return path.size() > 2 && path[2] == separator && BeginsWithDrive(path);
}

inline bool IsRoot(PathView path)
{
    return BeginsWithRoot(path) && (path.size() == 3 || path[3] == 0);
}

/// Nothing, for a call that takes a text up to its NUL.
inline bool IsEmptyText(PathView path)
{
    return path.empty() || path.front() == 0;
}

} // namespace kv::detail
