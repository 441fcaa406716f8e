#pragma once

#include <kvcore/platform/include/basetypes.h>

/// The root interface of COM: identity and lifetime of an object.
///
/// Deliberately without a virtual destructor: the table has the three published slots, and an object is destroyed by
/// its own last Release only.
struct IUnknown
{
    /// Stores at `object` the interface `iid` of this object, with a reference added, and returns S_OK; or stores null
    /// and returns E_NOINTERFACE.
    virtual HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void ** object) = 0;
    /// Adds a reference and returns the new count. Any thread.
    virtual ULONG STDMETHODCALLTYPE AddRef() = 0;
    /// Drops a reference and returns the new count; at 0 the object is gone. Any thread.
    virtual ULONG STDMETHODCALLTYPE Release() = 0;
};

/// 00000000-0000-0000-C000-000000000046
extern "C" KVCORE_API IID const IID_IUnknown;

typedef IUnknown * LPUNKNOWN;

namespace kv::platform
{

// One for each interface that the platform declares: see InterfaceId.
inline IID const & KnownInterfaceId(IUnknown *)
{
    return IID_IUnknown;
}

} // namespace kv::platform
