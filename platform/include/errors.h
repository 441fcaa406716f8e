#pragma once

// The calling thread's last error, and the system error codes that the platform layer reports.

#include <kvcore/platform/include/basetypes.h>

#define ERROR_SUCCESS 0u
#define NO_ERROR 0u
#define ERROR_INVALID_FUNCTION 1u
#define ERROR_FILE_NOT_FOUND 2u
#define ERROR_PATH_NOT_FOUND 3u
#define ERROR_ACCESS_DENIED 5u
#define ERROR_INVALID_HANDLE 6u
#define ERROR_NOT_ENOUGH_MEMORY 8u
#define ERROR_INVALID_DATA 13u
#define ERROR_OUTOFMEMORY 14u
#define ERROR_INVALID_PARAMETER 87u
#define ERROR_INSUFFICIENT_BUFFER 122u
#define ERROR_DISCARDED 157u
#define ERROR_NOT_LOCKED 158u
#define ERROR_NO_WORK_DONE 235u
#define ERROR_INVALID_FLAGS 1004u
#define ERROR_MR_MID_NOT_FOUND 317u
#define ERROR_NO_UNICODE_TRANSLATION 1113u
#define ERROR_RESOURCE_LANG_NOT_FOUND 1815u

extern "C"
{
    /// The calling thread's last error. Calls that Win32 says leave it alone leave it alone.
    KVCORE_API DWORD WINAPI GetLastError();
    KVCORE_API void WINAPI SetLastError(DWORD code);
}
