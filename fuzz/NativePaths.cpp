// Native paths as the library's calls take them, and back: whatever the bytes are, they lead back to the same file, and
// whatever the units are, what comes of them is a native path.

#include <vector>

#include <kvcore/platform/NativePaths.h>
#include <kvcore/platform/win32.h>

#include "Fuzz.h"

namespace
{

using kv::platform::PathFromNative;
using kv::platform::PathToNative;

constexpr std::size_t longestName = 255;
constexpr std::size_t longestPath = 4000;

/// A path without what means nothing in it: doubled slashes, "." and, as far as something stands before it, "..".
std::string Plain(std::string const & path)
{
    bool const absolute = !path.empty() && path[0] == '/';
    std::vector<std::string> parts;
    for (std::size_t start = 0; start <= path.size();)
    {
        std::size_t const end = std::min(path.find('/', start), path.size());
        std::string const part = path.substr(start, end - start);
        bool const canGoUp = !parts.empty() && parts.back() != "..";
        if (part == ".." && canGoUp)
        {
            parts.pop_back();
        }
        else if (!part.empty() && part != "." && (part != ".." || !absolute))
        {
            parts.push_back(part);
        }
        start = end + 1;
    }
    std::string plain = absolute ? "/" : "";
    for (std::string const & part : parts)
    {
        plain += (plain.empty() || plain.back() == '/' ? "" : "/") + part;
    }
    return plain.empty() ? "." : plain;
}

bool HasLongName(std::string const & path)
{
    std::size_t length = 0;
    for (char const c : path)
    {
        length = c == '/' ? 0 : length + 1;
        if (length > longestName)
        {
            return true;
        }
    }
    return false;
}

void CheckNative(std::string bytes)
{
    bytes.erase(std::remove(bytes.begin(), bytes.end(), '\0'), bytes.end());
    bytes.resize(std::min(bytes.size(), longestPath));
    WString const path = PathFromNative(bytes);
    fuzz::Check(path.size() <= bytes.size() + 4, "a path grows beyond its bytes");
    fuzz::Check(
        path.find_first_of(TEXT("/\"*<>?|")) == WString::npos &&
            std::all_of(path.begin(), path.end(), [](WCHAR unit) { return unit >= 0x20; }),
        "a path holds what no name may hold");
    if (!bytes.empty() && !HasLongName(bytes))
    {
        fuzz::Check(PathToNative(path) == Plain(bytes), "a native path does not come back");
    }
}

/// A drive other than the kernel's root lies where the environment says: it is no matter of the text alone.
bool IsOfTextAlone(WString const & path)
{
    std::size_t const prefix = path.size() >= 4 && (path[0] == '\\' || path[0] == '/') ? 4 : 0;
    for (std::size_t const start : {std::size_t{0}, prefix})
    {
        if (path.size() > start + 1 && path[start + 1] == ':' && (path[start] | 0x20) != 'z')
        {
            return false;
        }
    }
    return true;
}

void CheckWin32(WString path)
{
    path.erase(std::find(path.begin(), path.end(), WCHAR{0}), path.end());
    if (!IsOfTextAlone(path))
    {
        return;
    }
    std::string const native = PathToNative(path);
    if (native.empty())
    {
        return;
    }
    fuzz::Check(native.size() < 4096 || native[0] != '/', "a native path is longer than any");
    fuzz::Check(native.find('\0') == std::string::npos, "a native path ends too early");
    fuzz::Check(Plain(native) == native, "a native path holds what means nothing");
    if (native.size() < longestPath && !HasLongName(native))
    {
        fuzz::Check(PathToNative(PathFromNative(native)) == native, "a native path does not come back from itself");
    }
}

/// The lengths that the system's call tells, for rooms from none to more than enough.
void CheckFullPath(WString path)
{
    path.erase(std::find(path.begin(), path.end(), WCHAR{0}), path.end());
    DWORD const needed = GetFullPathNameW(path.c_str(), 0, nullptr, nullptr);
    if (needed == 0)
    {
        fuzz::Check(path.empty(), "a path has no whole form");
        return;
    }
    for (DWORD const room : {needed / 2, needed - 1, needed, needed + 1})
    {
        fuzz::Exact<WCHAR> const buffer(std::max<DWORD>(room, 1));
        WCHAR * file = nullptr;
        DWORD const given = GetFullPathNameW(path.c_str(), room, buffer.Data(), &file);
        fuzz::Check(given == (room < needed ? needed : needed - 1), "a whole path tells another length");
        fuzz::Check(room < needed || buffer.Data()[given] == 0, "a whole path does not end");
        fuzz::Check(
            file == nullptr || (file > buffer.Data() && file < buffer.Data() + given && file[-1] == '\\'),
            "the name of a whole path stands elsewhere");
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const * data, std::size_t size)
{
    fuzz::Input input(data, size);
    std::uint8_t const choice = input.Byte();
    if (choice % 3 == 0)
    {
        CheckNative(input.Rest());
        return 0;
    }
    WString text;
    if (choice % 3 == 1)
    {
        std::string const bytes = input.Rest();
        text.assign(bytes.begin(), bytes.end());
    }
    else
    {
        text = input.RestWide();
    }
    CheckWin32(text);
    CheckFullPath(text);
    return 0;
}
