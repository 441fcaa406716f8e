#include <kvcore/platform/ModulePaths.h>

namespace kv::platform
{

std::basic_string_view<WCHAR> KeptModulePath(void const *) noexcept
{
    return {};
}

} // namespace kv::platform
