#include <algorithm>
#include <string_view>

#include <unicode/uchar.h>

#include <kvcore/platform/include/shellapi.h>
#include <kvcore/platform/linux/memory/CallerMemory.h>

using namespace kv::platform;

namespace
{

using View = std::u16string_view;

bool IsSameLetter(char16_t left, char16_t right)
{
    return left == right || u_toupper(left) == u_toupper(right);
}

/// In time of the product of the lengths at most: only the last asterisk is ever tried again.
bool Matches(View name, View mask)
{
    std::size_t n = 0;
    std::size_t m = 0;
    std::size_t retryName = 0;
    std::size_t retryMask = View::npos;
    while (n < name.size())
    {
        if (m < mask.size() && mask[m] == u'*')
        {
            retryMask = ++m;
            retryName = n;
        }
        else if (m < mask.size() && (mask[m] == u'?' || IsSameLetter(mask[m], name[n])))
        {
            ++m;
            ++n;
        }
        else if (retryMask != View::npos)
        {
            m = retryMask;
            n = ++retryName;
        }
        else
        {
            return false;
        }
    }
    return mask.find_first_not_of(u'*', m) == View::npos;
}

} // namespace

BOOL WINAPI PathMatchSpecW(LPCWSTR name, LPCWSTR masks)
{
    CheckTexts(name, masks);
    if (name == nullptr || masks == nullptr)
    {
        return FALSE;
    }
    if (View(masks) == u"*.*")
    {
        return TRUE;
    }
    for (View rest(masks); !rest.empty();)
    {
        rest.remove_prefix(std::min(rest.find_first_not_of(u' '), rest.size()));
        View const mask = rest.substr(0, rest.find(u';'));
        if (Matches(name, mask))
        {
            return TRUE;
        }
        rest.remove_prefix(std::min(mask.size() + 1, rest.size()));
    }
    return FALSE;
}
