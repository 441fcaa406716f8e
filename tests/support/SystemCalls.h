#pragma once

// The system's calls, replaced under the library.

#include <functional>

#include <kvcore/platform/win32.h>

/// The calls that can be replaced: CALL(result, name, parameters, arguments). Those of the C runtime and those of the
/// system are called in different ways where there are different ones.
#define KV_REPLACEABLE_RUNTIME_CALLS(CALL)                                                                             \
    CALL(                                                                                                              \
        std::uintptr_t, _beginthreadex,                                                                                \
        (void * security, unsigned stackSize, unsigned(WINAPI * procedure)(void *), void * argument, unsigned flags,   \
         unsigned * id),                                                                                               \
        (security, stackSize, procedure, argument, flags, id))

#define KV_REPLACEABLE_SYSTEM_CALLS(CALL)                                                                              \
    CALL(                                                                                                              \
        BOOL, WriteFile, (HANDLE file, LPCVOID data, DWORD size, LPDWORD written, LPOVERLAPPED request),               \
        (file, data, size, written, request))                                                                          \
    CALL(BOOL, CloseHandle, (HANDLE handle), (handle))                                                                 \
    CALL(DWORD, ResumeThread, (HANDLE thread), (thread))                                                               \
    CALL(BOOL, SetThreadPriority, (HANDLE thread, int priority), (thread, priority))                                   \
    CALL(DWORD, WaitForSingleObject, (HANDLE object, DWORD milliseconds), (object, milliseconds))                      \
    CALL(                                                                                                              \
        DWORD, WaitForMultipleObjects, (DWORD count, HANDLE const * objects, BOOL waitForAll, DWORD milliseconds),     \
        (count, objects, waitForAll, milliseconds))                                                                    \
    CALL(                                                                                                              \
        BOOL, QueueUserWorkItem, (LPTHREAD_START_ROUTINE function, LPVOID context, ULONG flags),                       \
        (function, context, flags))                                                                                    \
    CALL(                                                                                                              \
        MMRESULT, timeSetEvent, (UINT delay, UINT resolution, LPTIMECALLBACK callback, DWORD_PTR user, UINT flags),    \
        (delay, resolution, callback, user, flags))                                                                    \
    CALL(MMRESULT, timeKillEvent, (UINT id), (id))                                                                     \
    CALL(                                                                                                              \
        BOOL, SystemParametersInfoW, (UINT action, UINT argument, PVOID value, UINT flags),                            \
        (action, argument, value, flags))                                                                              \
    CALL(DWORD, GetEnvironmentVariableW, (LPCWSTR name, LPWSTR buffer, DWORD size), (name, buffer, size))              \
    CALL(BOOL, EnumSystemCodePagesW, (CODEPAGE_ENUMPROCW callback, DWORD flags), (callback, flags))                    \
    CALL(void, GetSystemInfo, (SYSTEM_INFO * information), (information))                                              \
    CALL(void, GetLocalTime, (SYSTEMTIME * now), (now))                                                                \
    CALL(int, GetSystemMetrics, (int metric), (metric))                                                                \
    CALL(DWORD, GetModuleFileNameW, (HMODULE module, LPWSTR buffer, DWORD capacity), (module, buffer, capacity))       \
    CALL(BOOL, IsWindow, (HWND window), (window))                                                                      \
    CALL(int, MessageBoxIndirectW, (MSGBOXPARAMSW const * parameters), (parameters))                                   \
    CALL(BOOL, OpenProcessToken, (HANDLE process, DWORD access, HANDLE * token), (process, access, token))             \
    CALL(BOOL, LookupPrivilegeValueW, (LPCWSTR system, LPCWSTR name, LUID * luid), (system, name, luid))               \
    CALL(                                                                                                              \
        BOOL, AdjustTokenPrivileges,                                                                                   \
        (HANDLE token, BOOL disableAll, TOKEN_PRIVILEGES * wanted, DWORD size, TOKEN_PRIVILEGES * before,              \
         DWORD * needed),                                                                                              \
        (token, disableAll, wanted, size, before, needed))                                                             \
    CALL(BOOL, ExitWindowsEx, (UINT flags, DWORD reason), (flags, reason))

#define KV_REPLACEABLE_CALLS(CALL)                                                                                     \
    KV_REPLACEABLE_RUNTIME_CALLS(CALL)                                                                                 \
    KV_REPLACEABLE_SYSTEM_CALLS(CALL)

namespace kv::test
{

/// While it lives, the library's calls that its members name go to them, unless they are empty. One at a time; members
/// are set before the library makes the call from another thread. What a test itself calls by these names may or may
/// not go the same way.
class SystemCalls
{
public:
    SystemCalls();
    ~SystemCalls();
    SystemCalls(SystemCalls const &) = delete;
    SystemCalls & operator=(SystemCalls const &) = delete;

    /// The one that lives, or null.
    static SystemCalls * Current();

#define KV_DECLARE_CALL(result, name, parameters, arguments)                                                           \
    std::function<result parameters> name;                                                                             \
    static result Real##name parameters; // the system's own, for a member that hands a call on
    KV_REPLACEABLE_CALLS(KV_DECLARE_CALL)
#undef KV_DECLARE_CALL
};

} // namespace kv::test
