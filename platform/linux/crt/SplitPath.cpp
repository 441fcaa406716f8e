#include <algorithm>
#include <cerrno>
#include <initializer_list>
#include <string_view>

#include <kvcore/platform/include/crt.h>
#include <kvcore/platform/linux/memory/CallerMemory.h>

using namespace kv::platform;

namespace
{

using View = std::basic_string_view<WCHAR>;

/// Where one part of the path goes.
struct Part
{
    WCHAR * buffer;
    std::size_t capacity;
    View text = {};

    bool IsValid() const
    {
        return (buffer == nullptr) == (capacity == 0);
    }
    bool Fits() const
    {
        return buffer == nullptr || text.size() < capacity;
    }
    void Store() const
    {
        if (buffer != nullptr)
        {
            *std::copy(text.begin(), text.end(), buffer) = 0;
        }
    }
    void Clear() const
    {
        if (buffer != nullptr && capacity != 0)
        {
            *buffer = 0;
        }
    }
};

} // namespace

int _wsplitpath_s(
    WCHAR const * path, WCHAR * drive, std::size_t driveCapacity, WCHAR * folder, std::size_t folderCapacity,
    WCHAR * name, std::size_t nameCapacity, WCHAR * extension, std::size_t extensionCapacity)
{
    CheckText(path);
    CheckBuffer(drive, driveCapacity);
    CheckBuffer(folder, folderCapacity);
    CheckBuffer(name, nameCapacity);
    CheckBuffer(extension, extensionCapacity);
    Part parts[] = {
        {drive, driveCapacity}, {folder, folderCapacity}, {name, nameCapacity}, {extension, extensionCapacity}};
    auto const failWith = [&parts](int error)
    {
        std::for_each(std::begin(parts), std::end(parts), [](Part const & part) { part.Clear(); });
        return errno = error;
    };
    if (path == nullptr || !std::all_of(std::begin(parts), std::end(parts), [](Part const & p) { return p.IsValid(); }))
    {
        return failWith(EINVAL);
    }
    View rest(path);
    auto const take = [&rest](std::size_t length)
    {
        View const taken = rest.substr(0, length);
        rest.remove_prefix(length);
        return taken;
    };
    parts[0].text = take(rest.size() > 1 && rest[1] == u':' ? 2 : 0);
    parts[1].text = take(rest.find_last_of(u"\\/") + 1); // npos + 1 is 0
    parts[2].text = take(std::min(rest.rfind(u'.'), rest.size()));
    parts[3].text = rest;
    if (!std::all_of(std::begin(parts), std::end(parts), [](Part const & part) { return part.Fits(); }))
    {
        return failWith(ERANGE);
    }
    std::for_each(std::begin(parts), std::end(parts), [](Part const & part) { part.Store(); });
    return 0;
}
