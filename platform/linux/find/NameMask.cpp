#include "NameMask.h"

#include <algorithm>

#include <kvcore/platform/linux/paths/NativeNames.h>

namespace kv::platform
{

bool NameMask::HasWildcards(WCHAR const * text, std::size_t count) noexcept
{
    return std::any_of(text, text + count, [](WCHAR c) { return c == '*' || c == '?' || c == '>'; });
}

NameMask::NameMask(WCHAR const * text, std::size_t count)
{
    mask.reserve(count);
    for (std::size_t i = 0; i < count; i++)
    {
        if (text[i] == '*' && !mask.empty() && mask.back() == '*')
        {
            continue;
        }
        mask += text[i] == '>' ? TEXT('?') : FoldUnit(text[i]);
        letters += text[i] != '*' && text[i] != '.';
    }
    tail = mask.find_last_not_of(TEXT(".*")) + 1; // 0 if there is none: npos wraps
    all = mask.empty() || (mask[0] == '*' && IsTail(0));
}

/// Whether nothing but dots and stars is left.
bool NameMask::IsTail(std::size_t at) const noexcept
{
    return at >= tail;
}

bool NameMask::Matches(WCHAR const * name, std::size_t count) const noexcept
{
    if (all || letters > count)
    {
        return all;
    }
    std::size_t at = 0;
    std::size_t unit = 0;
    std::size_t star = WString::npos; // the last star met, and what it has been tried on
    std::size_t tried = 0;
    while (unit < count)
    {
        if (at < mask.size() && mask[at] == '*')
        {
            star = at++;
            tried = unit;
        }
        else if (at < mask.size() && (mask[at] == '?' || mask[at] == FoldUnit(name[unit])))
        {
            at++;
            unit++;
        }
        else if (star != WString::npos)
        {
            at = star + 1;
            unit = ++tried;
        }
        else
        {
            return false;
        }
        // A star followed by nothing but dots and stars takes the rest.
        if (star != WString::npos && at == star + 1 && IsTail(at))
        {
            return true;
        }
    }
    return IsTail(at);
}

} // namespace kv::platform
