#include <algorithm>
#include <string_view>

#include <kvcore/platform/ShellNames.h>

namespace kv::platform
{

unsigned CleanupSpec(WCHAR const * directory, WCHAR * name)
{
    std::u16string_view const taken = directory != nullptr ? directory : u"";
    unsigned result = 0;
    WCHAR * const bufferEnd = name + MAX_PATH;
    WCHAR * const end = std::find(name, bufferEnd, u'\0');
    for (WCHAR * c = name; c != end; ++c)
    {
        if (*c < 0x20 || std::u16string_view(u"\"*/:<>?\\|").find(*c) != std::u16string_view::npos)
        {
            *c = u'-';
            result |= cleanupReplaced;
        }
    }
    // Kept: a directory that is too long by itself is not looked at.
    if (taken.size() > 0 && taken.size() < MAX_PATH && end - name >= static_cast<int>(MAX_PATH - taken.size()))
    {
        name[MAX_PATH - taken.size()] = u'\0';
        result |= cleanupPathTooLong | cleanupFatal;
    }
    else if (end == bufferEnd)
    {
        bufferEnd[-1] = u'\0';
        result |= cleanupTruncated;
    }
    return result;
}

} // namespace kv::platform
