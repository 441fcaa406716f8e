#pragma once

// What a program runs on. GetSystemInfo is in fileapi.h.

#include <kvcore/platform/include/basetypes.h>
#include <kvcore/platform/include/fileapi.h>

#define VER_PLATFORM_WIN32_WINDOWS 1u
#define VER_PLATFORM_WIN32_NT 2u

#define VER_NT_WORKSTATION 1
#define VER_NT_DOMAIN_CONTROLLER 2
#define VER_NT_SERVER 3

#define VER_SUITE_ENTERPRISE 0x0002
#define VER_SUITE_EMBEDDEDNT 0x0040
#define VER_SUITE_DATACENTER 0x0080
#define VER_SUITE_PERSONAL 0x0200
#define VER_SUITE_BLADE 0x0400
#define VER_SUITE_STORAGE_SERVER 0x2000
#define VER_SUITE_COMPUTE_SERVER 0x4000

#define PROCESSOR_ARCHITECTURE_INTEL 0
#define PROCESSOR_ARCHITECTURE_IA64 6
#define PROCESSOR_ARCHITECTURE_IA32_ON_WIN64 10

struct OSVERSIONINFOW
{
    DWORD dwOSVersionInfoSize;
    DWORD dwMajorVersion;
    DWORD dwMinorVersion;
    DWORD dwBuildNumber;
    DWORD dwPlatformId;
    WCHAR szCSDVersion[128];
};
static_assert(sizeof(OSVERSIONINFOW) == 276);

struct OSVERSIONINFOEXW
{
    DWORD dwOSVersionInfoSize;
    DWORD dwMajorVersion;
    DWORD dwMinorVersion;
    DWORD dwBuildNumber;
    DWORD dwPlatformId;
    WCHAR szCSDVersion[128];
    WORD wServicePackMajor;
    WORD wServicePackMinor;
    WORD wSuiteMask;
    BYTE wProductType;
    BYTE wReserved;
};
static_assert(sizeof(OSVERSIONINFOEXW) == 284);

extern "C"
{
    /// The version of Windows whose contract this layer keeps, as programs that ask see it: 6.1, build 7601, service
    /// pack 1, a workstation. `information` is either record, told by its size; FALSE with ERROR_INSUFFICIENT_BUFFER
    /// for any other.
    KVCORE_API BOOL WINAPI GetVersionExW(OSVERSIONINFOW * information);

    /// The product's edition, for a program that knows versions up to the given one: always that of a full desktop;
    /// none, 0, with a FALSE, for versions before 6.0. FALSE for a null `product`.
    KVCORE_API BOOL WINAPI
    GetProductInfo(DWORD major, DWORD minor, DWORD servicePackMajor, DWORD servicePackMinor, LPDWORD product);

    /// Whether a process is a 32-bit one on a 64-bit system: never. FALSE with ERROR_INVALID_HANDLE for what is not
    /// GetCurrentProcess().
    KVCORE_API BOOL WINAPI IsWow64Process(HANDLE process, LPBOOL isWow64);

    /// The same as GetSystemInfo.
    KVCORE_API void WINAPI GetNativeSystemInfo(SYSTEM_INFO * information);
}
