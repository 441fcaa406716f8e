#pragma once

// The modules of a process, this one or another.

#include <kvcore/platform/include/basetypes.h>

#define TH32CS_SNAPMODULE 0x00000008u
#define MAX_MODULE_NAME32 255

/// A module of a process.
struct MODULEENTRY32W
{
    DWORD dwSize;
    DWORD th32ModuleID;
    DWORD th32ProcessID;
    DWORD GlblcntUsage;
    DWORD ProccntUsage;
    BYTE * modBaseAddr;
    DWORD modBaseSize;
    HMODULE hModule;
    WCHAR szModule[MAX_MODULE_NAME32 + 1];
    WCHAR szExePath[MAX_PATH];
};
static_assert(sizeof(MODULEENTRY32W) == 1080);

extern "C"
{
    /// A list of the modules that a process has now; 0 is this process. INVALID_HANDLE_VALUE on failure:
    /// ERROR_INVALID_PARAMETER for flags other than TH32CS_SNAPMODULE and for a process that is not there,
    /// ERROR_ACCESS_DENIED for one that may not be looked at. Closed with CloseHandle.
    KVCORE_API HANDLE WINAPI CreateToolhelp32Snapshot(DWORD flags, DWORD process);

    /// The first and the further modules, the program before its libraries, then by address. `dwSize` must be set.
    /// FALSE with ERROR_NO_MORE_FILES behind the last one. Paths are cut to 259 elements.
    KVCORE_API BOOL WINAPI Module32FirstW(HANDLE snapshot, MODULEENTRY32W * entry);
    KVCORE_API BOOL WINAPI Module32NextW(HANDLE snapshot, MODULEENTRY32W * entry);
}
