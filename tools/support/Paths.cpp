#include <kvcore/tools/support/Paths.h>

#include <kvcore/platform/NativePaths.h>

namespace kv::tools
{

namespace fs = std::filesystem;

String LibraryPath(fs::path const & native)
{
    if constexpr (sizeof(fs::path::value_type) == 1)
    {
        return kv::platform::PathFromNative(native.string());
    }
    else
    {
        fs::path preferred = native;
        preferred.make_preferred();
        return WString(preferred.native().begin(), preferred.native().end());
    }
}

fs::path NativePath(String const & path)
{
    if constexpr (sizeof(fs::path::value_type) == 1)
    {
        return kv::platform::PathToNative(path);
    }
    else
    {
        return fs::path(path.begin(), path.end());
    }
}

String TypedPath(std::string const & typed)
{
    bool const letter = !typed.empty() && ((typed[0] | 0x20) >= 'a' && (typed[0] | 0x20) <= 'z');
    if ((letter && typed.compare(1, 2, ":\\") == 0) || typed.compare(0, 2, "\\\\") == 0)
    {
        return String::FromUtf8(typed);
    }
    return kv::platform::PathFromNative(typed);
}

fs::path TypedNativePath(std::string const & typed)
{
    return NativePath(TypedPath(typed));
}

std::string NativeBytes(fs::path const & native)
{
    if constexpr (sizeof(fs::path::value_type) == 1)
    {
        return native.string();
    }
    else
    {
        return String(WString(native.native().begin(), native.native().end())).Utf8();
    }
}

std::string ShownPath(String const & path, bool win32)
{
    std::string const native = win32 ? std::string() : kv::platform::PathToNative(path);
    return native.empty() ? path.Utf8() : native;
}

} // namespace kv::tools
