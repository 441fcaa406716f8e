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

} // namespace kv::tools
