// The forms that the system gives to a path: whole, short, canonical, compact.

#include <kvcore/files/File.h>

#include <kvcore/core/ScratchBuffer.h>
#include <kvcore/files/PathRules.h>

#include <kvcore/platform/win32.h>

#include <algorithm>

using kv::detail::PathView;
using kv::detail::separator;

namespace
{

// Calls `form(room, buffer)`, which tells the length of its text or the room that it needs, until the text fits.
template <typename Form>
String GrowingToFit(Form form)
{
    kv::detail::ScratchBuffer<WCHAR, MAX_PATH> buffer;
    DWORD room = MAX_PATH;
    DWORD length = form(room, buffer.Data());
    while (length > room)
    {
        room = length;
        buffer.Resize(room);
        length = form(room, buffer.Data());
    }
    return String(buffer.Data(), length);
}

} // namespace

String File::GetFullPath(String const & path)
{
    if (path.empty())
    {
        return String();
    }
    String full = GrowingToFit([&](DWORD room, WCHAR * buffer)
                               { return ::GetFullPathNameW(path.c_str(), room, buffer, nullptr); });

    // Three characters may be a root, which needs its backslash.
    if (full.size() > 3 && full.back() == separator)
    {
        full.pop_back();
    }
    if (full.size() > 3)
    {
        // The first two characters may be the beginning of a UNC path, which needs both of its backslashes.
        auto const isDoubled = [](WCHAR left, WCHAR right) { return left == separator && right == separator; };
        full.erase(std::unique(full.begin() + 2, full.end(), isDoubled), full.end());
    }
    return full;
}

String File::GetShortPath(String const & path)
{
    if (path.empty())
    {
        return String();
    }
    return GrowingToFit([&](DWORD room, WCHAR * buffer) { return ::GetShortPathNameW(path.c_str(), buffer, room); });
}

String File::GetCanonicalPath(String const & path)
{
    String lower = GetFullPath(path);
    for (WCHAR & c : lower)
    {
        c = c >= 'A' && c <= 'Z' ? static_cast<WCHAR>(c + 32) : c;
    }
    // There and back again: the long form of a short one is spelled as the names on the disk are.
    String const shortPath = GetShortPath(lower);
    if (shortPath.empty())
    {
        return String();
    }
    return GrowingToFit([&](DWORD room, WCHAR * buffer)
                        { return ::GetLongPathNameW(shortPath.c_str(), buffer, room); });
}

String File::CompactPath(String const & path, unsigned int maxChars)
{
    // A path that fits comes back whole, so that more room than it needs changes nothing. One more is needed: some
    // systems shorten what fills the room.
    unsigned int const room = static_cast<unsigned int>(std::min<std::size_t>(maxChars, path.size() + 1)) + 1;
    kv::detail::ScratchBuffer<WCHAR, MAX_PATH> buffer(room);
    if (!::PathCompactPathExW(buffer.Data(), path.c_str(), room, 0))
    {
        return String();
    }
    return String(buffer.Data());
}
