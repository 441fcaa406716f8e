#include <cstddef>
#include <cstring>

#include <kvcore/platform/include/errors.h>
#include <kvcore/platform/include/sysinfo.h>
#include <kvcore/platform/linux/errors/ErrnoErrors.h>
#include <kvcore/platform/linux/memory/CallerMemory.h>

using namespace kv::platform;

namespace
{

// The version that Wine shows to programs that ask for nothing else, so that programs decide alike on all targets.
constexpr OSVERSIONINFOEXW version = {
    sizeof(OSVERSIONINFOEXW), 6, 1, 7601, VER_PLATFORM_WIN32_NT, TEXT("Service Pack 1"), 1, 0, 0, VER_NT_WORKSTATION, 0,
};
static_assert(offsetof(OSVERSIONINFOEXW, wServicePackMajor) == sizeof(OSVERSIONINFOW));

constexpr DWORD fullDesktop = 0x1C;

} // namespace

BOOL WINAPI GetVersionExW(OSVERSIONINFOW * information)
{
    CheckOutputs(information);
    DWORD const size = information->dwOSVersionInfoSize;
    if (size != sizeof(OSVERSIONINFOW) && size != sizeof(OSVERSIONINFOEXW))
    {
        return FailWith(ERROR_INSUFFICIENT_BUFFER);
    }
    std::memcpy(static_cast<void *>(information), &version, size);
    information->dwOSVersionInfoSize = size;
    return TRUE;
}

BOOL WINAPI GetProductInfo(DWORD major, DWORD, DWORD, DWORD, LPDWORD product)
{
    CheckOutputs(product);
    if (product == nullptr)
    {
        return FALSE;
    }
    *product = major >= 6 ? fullDesktop : 0;
    return major >= 6;
}

BOOL WINAPI IsWow64Process(HANDLE process, LPBOOL isWow64)
{
    CheckOutputs(isWow64);
    if (process != GetCurrentProcess())
    {
        return FailWith(ERROR_INVALID_HANDLE);
    }
    *isWow64 = FALSE;
    return TRUE;
}

void WINAPI GetNativeSystemInfo(SYSTEM_INFO * information)
{
    GetSystemInfo(information);
}
