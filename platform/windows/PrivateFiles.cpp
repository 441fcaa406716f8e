#include <kvcore/platform/PrivateFiles.h>

#include <windows.h>

namespace kv::platform
{

bool GiveUsualRights(WString const & path) noexcept
{
    return SetFileAttributesW(path.c_str(), FILE_ATTRIBUTE_NORMAL) != FALSE;
}

} // namespace kv::platform
