#include "Events.h"

#include <mutex>
#include <new>

#include "Waits.h"
#include <kvcore/platform/include/errors.h>
#include <kvcore/platform/include/synchapi.h>
#include <kvcore/platform/linux/errors/ErrnoErrors.h>
#include <kvcore/platform/linux/memory/CallerMemory.h>

namespace kv::platform
{

void Event::Set() noexcept
{
    std::lock_guard const guard(WaitLock());
    isSet = true;
    WakeWaiters(*this);
}

void Event::Reset() noexcept
{
    std::lock_guard const guard(WaitLock());
    isSet = false;
}

void Event::Take() noexcept
{
    std::lock_guard const guard(WaitLock());
    TakeSignal();
}

} // namespace kv::platform

using namespace kv::platform;

HANDLE WINAPI CreateEventW(SECURITY_ATTRIBUTES *, BOOL manualReset, BOOL initiallySet, LPCWSTR name)
{
    CheckText(name);
    if (name != nullptr)
    {
        FailWith(ERROR_NOT_SUPPORTED);
        return nullptr;
    }
    auto const event = Ref<Event>::Adopt(new (std::nothrow) Event(manualReset != FALSE, initiallySet != FALSE));
    if (!event)
    {
        FailWith(ERROR_NOT_ENOUGH_MEMORY);
        return nullptr;
    }
    return HandleTable::Create(*event, Event::allAccess);
}

BOOL WINAPI SetEvent(HANDLE event)
{
    auto const object = LookUp<Event>(event);
    if (!object)
    {
        return FALSE;
    }
    object->Set();
    return TRUE;
}

BOOL WINAPI ResetEvent(HANDLE event)
{
    auto const object = LookUp<Event>(event);
    if (!object)
    {
        return FALSE;
    }
    object->Reset();
    return TRUE;
}
