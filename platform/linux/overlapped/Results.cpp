#include <kvcore/platform/include/errors.h>
#include <kvcore/platform/linux/overlapped/RequestPool.h>

// How a request ended is kept as a status value. System errors have a place among these; the end of a file and a
// cancelled request are known by values of their own.

namespace kv::platform
{

namespace
{

constexpr ULONG_PTR statusOfError = 0xC0070000u;
constexpr ULONG_PTR statusEndOfFile = 0xC0000011u;
constexpr ULONG_PTR statusCancelled = 0xC0000120u;

ULONG_PTR StatusOf(DWORD error)
{
    switch (error)
    {
    case ERROR_SUCCESS:
        return 0;
    case ERROR_HANDLE_EOF:
        return statusEndOfFile;
    case ERROR_OPERATION_ABORTED:
        return statusCancelled;
    default:
        return statusOfError | error;
    }
}

} // namespace

void SetResult(OVERLAPPED & overlapped, DWORD error, DWORD transferred) noexcept
{
    overlapped.InternalHigh = transferred;
    // Last: the caller may free the record as soon as this is seen.
    __atomic_store_n(&overlapped.Internal, StatusOf(error), __ATOMIC_RELEASE);
}

DWORD ErrorOfStatus(ULONG_PTR status) noexcept
{
    switch (status)
    {
    case statusEndOfFile:
        return ERROR_HANDLE_EOF;
    case statusCancelled:
        return ERROR_OPERATION_ABORTED;
    default:
        break;
    }
    if ((status & 0x80000000u) == 0)
    {
        return ERROR_SUCCESS;
    }
    return (status & 0xFFFF0000u) == statusOfError ? static_cast<DWORD>(status & 0xFFFFu) : ERROR_GEN_FAILURE;
}

} // namespace kv::platform
