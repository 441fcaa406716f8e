#include <kvcore/files/RecursiveLock.h>

#include <kvcore/platform/win32.h>

namespace kv::detail
{

RecursiveLock::RecursiveLock()
{
    InitializeCriticalSection(&section);
}

RecursiveLock::~RecursiveLock()
{
    DeleteCriticalSection(&section);
}

void RecursiveLock::lock()
{
    EnterCriticalSection(&section);
}

void RecursiveLock::unlock()
{
    LeaveCriticalSection(&section);
}

} // namespace kv::detail
