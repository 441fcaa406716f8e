#include <kvcore/platform/include/errors.h>

namespace
{

thread_local DWORD lastError = ERROR_SUCCESS;

} // namespace

DWORD WINAPI GetLastError()
{
    return lastError;
}

void WINAPI SetLastError(DWORD code)
{
    lastError = code;
}
