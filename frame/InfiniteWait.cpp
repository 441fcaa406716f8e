#include <kvcore/frame/InfiniteWait.h>

#include <kvcore/core/String.h>
#include <kvcore/platform/win32.h>

namespace
{

constexpr DWORD timeBetweenLooks = 15'000;

/// Calls `wait` until it ends otherwise than by the time being over.
template <class Wait>
DWORD Repeat(Wait wait, WCHAR const * name)
{
    for (;;)
    {
        DWORD const result = wait(timeBetweenLooks);
        if (result != WAIT_TIMEOUT)
        {
            return result;
        }
        // Kept: a place for a breakpoint, with the name at hand. Nothing is logged, since waiting long is no failure.
        String const waitingFor(name != nullptr ? name : TEXT(""));
    }
}

} // namespace

DWORD InfiniteWaitForSingleObject(HANDLE handle, WCHAR const * name)
{
    return Repeat([handle](DWORD milliseconds) { return WaitForSingleObject(handle, milliseconds); }, name);
}

DWORD InfiniteWaitForMultipleObjects(DWORD count, HANDLE const * handles, bool waitAll, WCHAR const * name)
{
    return Repeat(
        [=](DWORD milliseconds) { return WaitForMultipleObjects(count, handles, waitAll, milliseconds); }, name);
}
