#include <kvcore/platform/NativePaths.h>

#include <algorithm>

#include <windows.h>

namespace kv::platform
{

WString PathFromNative(std::string_view native)
{
    int const size = static_cast<int>(native.size());
    WString path(native.size(), L'\0');
    path.resize(static_cast<std::size_t>(
        size == 0 ? 0 : MultiByteToWideChar(CP_UTF8, 0, native.data(), size, path.data(), size)));
    std::replace(path.begin(), path.end(), L'/', L'\\');
    return path;
}

std::string PathToNative(WString const & path)
{
    int const size = static_cast<int>(path.size());
    std::string native(path.size() * 3, '\0');
    native.resize(static_cast<std::size_t>(
        size == 0
            ? 0
            : WideCharToMultiByte(
                  CP_UTF8, 0, path.data(), size, native.data(), static_cast<int>(native.size()), nullptr, nullptr)));
    return native;
}

} // namespace kv::platform
