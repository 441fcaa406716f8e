#include <algorithm>
#include <string>
#include <string_view>

#include <kvcore/platform/include/shellapi.h>
#include <kvcore/platform/linux/memory/CallerMemory.h>

using namespace kv::platform;

namespace
{

using View = std::u16string_view;

constexpr View dots = u"...";

/// As much of the front of `text` as fits into `room` with dots behind it; the dots, or some of them, alone if there is
/// no room for more.
std::u16string Shortened(View text, std::size_t room)
{
    if (text.size() <= room)
    {
        return std::u16string(text);
    }
    if (room <= dots.size())
    {
        return std::u16string(dots.substr(0, room));
    }
    return std::u16string(text.substr(0, room - dots.size())) + std::u16string(dots);
}

std::u16string Compacted(View path, View name, std::size_t room)
{
    if (path.size() <= room)
    {
        return std::u16string(path);
    }
    std::size_t const directory = path.size() - name.size();
    if (directory == 0 || room <= dots.size())
    {
        return Shortened(path, room);
    }
    // The separator before the name stays: it says that something was there.
    std::u16string const mark = std::u16string(dots) + path[directory - 1];
    std::size_t const roomForName = room - mark.size();
    if (name.size() > roomForName)
    {
        return mark + Shortened(name, roomForName);
    }
    return std::u16string(path.substr(0, roomForName - name.size())) + mark + std::u16string(name);
}

} // namespace

BOOL WINAPI PathCompactPathExW(LPWSTR result, LPCWSTR path, UINT capacity, DWORD)
{
    CheckText(path);
    CheckBuffer(result, capacity);
    if (result == nullptr || path == nullptr || capacity == 0)
    {
        return FALSE;
    }
    std::u16string const text = Compacted(path, PathFindFileNameW(path), capacity - 1);
    std::copy_n(text.c_str(), text.size() + 1, result);
    return TRUE;
}
