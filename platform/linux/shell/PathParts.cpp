// The parts of a path, by its separators alone.

#include <algorithm>
#include <string_view>

#include <kvcore/platform/include/shellapi.h>
#include <kvcore/platform/linux/memory/CallerMemory.h>

using namespace kv::platform;

namespace
{

using View = std::u16string_view;

/// The length of what is left if the last part is cut off, and -1 if nothing can be.
std::ptrdiff_t LengthWithoutLastPart(View path)
{
    std::size_t cut = path.starts_with(u'\\') ? 1 : 0;
    for (std::size_t i = cut; i < path.size(); i++)
    {
        if (path[i] == u'\\')
        {
            cut = i;
        }
        else if (path[i] == u':')
        {
            // What follows a drive stays apart from it; the root's backslash belongs to it. Whatever stands there is
            // no separator of its own.
            bool const hasRoot = i + 1 < path.size() && path[i + 1] == u'\\';
            cut = i + (hasRoot ? 2 : 1);
            i++;
        }
    }
    return cut == path.size() ? -1 : static_cast<std::ptrdiff_t>(cut);
}

} // namespace

BOOL WINAPI PathIsRootW(LPCWSTR path)
{
    CheckText(path);
    if (path == nullptr)
    {
        return FALSE;
    }
    View const text(path);
    if (text.starts_with(u"\\\\"))
    {
        return std::count(text.begin() + 2, text.end(), u'\\') <= 1;
    }
    return text == u"\\" || (text.size() == 3 && text.substr(1) == u":\\");
}

BOOL WINAPI PathStripToRootW(LPWSTR path)
{
    CheckText(path);
    if (path == nullptr)
    {
        return FALSE;
    }
    while (!PathIsRootW(path))
    {
        std::ptrdiff_t const length = LengthWithoutLastPart(path);
        if (length < 0)
        {
            return FALSE;
        }
        path[length] = u'\0';
    }
    return TRUE;
}

BOOL WINAPI PathIsRelativeW(LPCWSTR path)
{
    CheckText(path);
    if (path == nullptr || path[0] == u'\0')
    {
        return TRUE;
    }
    return path[0] != u'\\' && path[1] != u':';
}

LPWSTR WINAPI PathFindFileNameW(LPCWSTR path)
{
    CheckText(path);
    if (path == nullptr)
    {
        return nullptr;
    }
    LPCWSTR name = path;
    for (LPCWSTR c = path; *c != u'\0'; ++c)
    {
        bool const isSeparator = *c == u'\\' || *c == u'/' || *c == u':';
        if (isSeparator && c[1] != u'\0' && c[1] != u'\\' && c[1] != u'/')
        {
            name = c + 1;
        }
    }
    return const_cast<LPWSTR>(name);
}

LPWSTR WINAPI PathFindExtensionW(LPCWSTR path)
{
    CheckText(path);
    if (path == nullptr)
    {
        return nullptr;
    }
    LPCWSTR dot = nullptr;
    LPCWSTR c = path;
    for (; *c != u'\0'; ++c)
    {
        if (*c == u'\\' || *c == u' ')
        {
            dot = nullptr;
        }
        else if (*c == u'.')
        {
            dot = c;
        }
    }
    return const_cast<LPWSTR>(dot != nullptr ? dot : c);
}
