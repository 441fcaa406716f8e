#pragma once

#include <kvcore/platform/export.h>
#include <kvcore/platform/types.h>

/// @name Waits that never give up
/// They wait for what the system's wait functions wait for, and wake every 15 seconds on the way, where a debugger can
/// be made to show the `name` of what is waited for; it has no other effect.
///
/// The result is that of the wait: WAIT_OBJECT_0 and the index of the object, WAIT_ABANDONED_0 and the index, or
/// WAIT_FAILED with the last error set; never WAIT_TIMEOUT. Any thread.
/// @{
KVCORE_API DWORD InfiniteWaitForSingleObject(HANDLE handle, WCHAR const * name);
/// For one of `count` objects or, with `waitAll`, for all of them at the same time.
KVCORE_API DWORD InfiniteWaitForMultipleObjects(DWORD count, HANDLE const * handles, bool waitAll, WCHAR const * name);
/// @}
