#include "Apartments.h"

#include <atomic>
#include <mutex>
#include <utility>

#include <kvcore/platform/include/objbase.h>

using namespace kv::platform;

namespace
{

/// The apartment that threads share is there while any thread is in it, and a new one afterwards.
struct SharedApartment
{
    std::mutex mutex;
    unsigned threads = 0;
    std::atomic<ApartmentId> id{noApartment};
};

SharedApartment & Shared()
{
    static SharedApartment & shared = *new SharedApartment;
    return shared;
}

ApartmentId NewApartment() noexcept
{
    static std::atomic<ApartmentId> last{noApartment};
    return ++last;
}

void EnterShared()
{
    SharedApartment & shared = Shared();
    std::lock_guard const guard(shared.mutex);
    if (shared.threads++ == 0)
    {
        shared.id = NewApartment();
    }
}

void LeaveShared()
{
    SharedApartment & shared = Shared();
    ApartmentId ended = noApartment;
    {
        std::lock_guard const guard(shared.mutex);
        if (--shared.threads == 0)
        {
            ended = shared.id.exchange(noApartment);
        }
    }
    // Without the lock: the last release of a class object may call back.
    RevokeClassObjectsOf(ended);
}

/// How the calling thread takes part. A thread that ends without leaving leaves here.
struct Membership
{
    unsigned calls = 0;
    ApartmentId own = noApartment; ///< Its own apartment, if it is not in the shared one.

    void Leave() noexcept
    {
        calls = 0;
        if (ApartmentId const ended = std::exchange(own, noApartment); ended != noApartment)
        {
            RevokeClassObjectsOf(ended);
        }
        else
        {
            LeaveShared();
        }
    }
    ~Membership()
    {
        if (calls != 0)
        {
            Leave();
        }
    }
};

thread_local Membership membership;

} // namespace

namespace kv::platform
{

ApartmentId CurrentApartment() noexcept
{
    return membership.own != noApartment ? membership.own : Shared().id.load();
}

} // namespace kv::platform

HRESULT WINAPI CoInitialize(LPVOID reserved)
{
    return CoInitializeEx(reserved, COINIT_APARTMENTTHREADED);
}

HRESULT WINAPI CoInitializeEx(LPVOID, DWORD mode)
{
    bool const wantsOwn = (mode & COINIT_APARTMENTTHREADED) != 0;
    if (membership.calls != 0)
    {
        if (wantsOwn != (membership.own != noApartment))
        {
            return RPC_E_CHANGED_MODE;
        }
        ++membership.calls;
        return S_FALSE;
    }
    if (wantsOwn)
    {
        membership.own = NewApartment();
    }
    else
    {
        EnterShared();
    }
    membership.calls = 1;
    return S_OK;
}

void WINAPI CoUninitialize()
{
    // One call too many is no failure that anybody could be told of.
    if (membership.calls == 1)
    {
        membership.Leave();
    }
    else if (membership.calls > 1)
    {
        --membership.calls;
    }
}
