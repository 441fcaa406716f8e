#include <atomic>
#include <string_view>

#include <kvcore/platform/include/errors.h>
#include <kvcore/platform/include/fileapi.h>
#include <kvcore/platform/include/session.h>
#include <kvcore/platform/linux/errors/ErrnoErrors.h>
#include <kvcore/platform/linux/memory/CallerMemory.h>
#include <kvcore/platform/linux/paths/NativeNames.h>

namespace kv::platform
{

namespace
{

std::atomic<SessionEndHandler> currentHandler{nullptr};

/// Stands for the rights of the process.
HANDLE const ownToken = reinterpret_cast<HANDLE>(static_cast<ULONG_PTR>(-4));

constexpr std::u16string_view shutdownName = u"SeShutdownPrivilege";
constexpr DWORD shutdownNumber = 19;

} // namespace

SessionEndHandler SetSessionEndHandler(SessionEndHandler handler) noexcept
{
    return currentHandler.exchange(handler);
}

} // namespace kv::platform

using namespace kv::platform;

BOOL WINAPI OpenProcessToken(HANDLE process, DWORD, HANDLE * token)
{
    CheckOutputs(token);
    if (process != GetCurrentProcess())
    {
        return FailWith(ERROR_INVALID_HANDLE);
    }
    *token = ownToken;
    return TRUE;
}

BOOL WINAPI LookupPrivilegeValueW(LPCWSTR system, LPCWSTR name, LUID * luid)
{
    CheckTexts(system, name);
    CheckOutputs(luid);
    if (system != nullptr && *system != 0)
    {
        return FailWith(RPC_S_SERVER_UNAVAILABLE);
    }
    std::u16string_view const wanted(name);
    if (CompareNames(wanted.data(), wanted.size(), shutdownName.data(), shutdownName.size()) != 0)
    {
        return FailWith(ERROR_NO_SUCH_PRIVILEGE);
    }
    *luid = {shutdownNumber, 0};
    return TRUE;
}

BOOL WINAPI AdjustTokenPrivileges(HANDLE token, BOOL, TOKEN_PRIVILEGES *, DWORD, TOKEN_PRIVILEGES *, DWORD *)
{
    if (token != ownToken)
    {
        return FailWith(ERROR_INVALID_HANDLE);
    }
    SetLastError(ERROR_SUCCESS);
    return TRUE;
}

BOOL WINAPI ExitWindowsEx(UINT flags, DWORD reason)
{
    SessionEndHandler const handler = currentHandler.load();
    if (handler == nullptr)
    {
        return FailWith(ERROR_NOT_SUPPORTED);
    }
    return handler(flags, reason) ? TRUE : FailWith(ERROR_ACCESS_DENIED);
}
