#pragma once

// The rights of a process, and the end of a session.

#include <kvcore/platform/include/basetypes.h>

#define TOKEN_QUERY 0x0008u
#define TOKEN_ADJUST_PRIVILEGES 0x0020u
#define SE_PRIVILEGE_ENABLED 0x00000002u

#define EWX_LOGOFF 0x00000000u
#define EWX_SHUTDOWN 0x00000001u
#define EWX_REBOOT 0x00000002u
#define EWX_FORCE 0x00000004u
#define EWX_POWEROFF 0x00000008u

/// A number for a right, the same for as long as the system runs.
struct LUID
{
    DWORD LowPart;
    LONG HighPart;
};

struct LUID_AND_ATTRIBUTES
{
    LUID Luid;
    DWORD Attributes;
};

struct TOKEN_PRIVILEGES
{
    DWORD PrivilegeCount;
    LUID_AND_ATTRIBUTES Privileges[1];
};
typedef TOKEN_PRIVILEGES * PTOKEN_PRIVILEGES;

extern "C"
{
    /// The rights of the calling process, as a handle that need not be closed. ERROR_INVALID_HANDLE for another
    /// process.
    KVCORE_API BOOL WINAPI OpenProcessToken(HANDLE process, DWORD access, HANDLE * token);

    /// The number of a right on this machine, whose name is taken in any case. ERROR_NO_SUCH_PRIVILEGE, and
    /// RPC_S_SERVER_UNAVAILABLE for another machine.
    KVCORE_API BOOL WINAPI LookupPrivilegeValueW(LPCWSTR system, LPCWSTR name, LUID * luid);

    /// Has no effect: this system asks for rights where they are used. TRUE for a token with ERROR_SUCCESS.
    KVCORE_API BOOL WINAPI AdjustTokenPrivileges(
        HANDLE token, BOOL disableAll, TOKEN_PRIVILEGES * wanted, DWORD size, TOKEN_PRIVILEGES * before,
        DWORD * needed);

    /// Ends the session by the handler that SetSessionEndHandler has installed. Without one nothing happens: a library
    /// does not switch a machine off. FALSE with ERROR_NOT_SUPPORTED then.
    KVCORE_API BOOL WINAPI ExitWindowsEx(UINT flags, DWORD reason);
}

namespace kv::platform
{

/// Ends the session in the program's own way; false if it cannot.
using SessionEndHandler = bool (*)(UINT flags, DWORD reason);

/// Installs a handler for the process, or none with null. The one that was there before. Any thread.
KVCORE_API SessionEndHandler SetSessionEndHandler(SessionEndHandler handler) noexcept;

} // namespace kv::platform
