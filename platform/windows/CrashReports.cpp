#include <kvcore/platform/CrashReports.h>

#include <kvcore/platform/win32.h>

namespace kv::platform
{

std::string CrashReportFolder()
{
    WCHAR local[MAX_PATH];
    if (FAILED(SHGetFolderPathW(nullptr, CSIDL_LOCAL_APPDATA, nullptr, SHGFP_TYPE_CURRENT, local)))
    {
        return {};
    }
    char native[3 * MAX_PATH];
    int const size = WideCharToMultiByte(CP_UTF8, 0, local, -1, native, sizeof native, nullptr, nullptr);
    return size > 0 ? std::string(native) + "\\kvcore\\crashes" : std::string();
}

} // namespace kv::platform
