#pragma once

// Classes whose code lies in modules, as the registry tells.

#include <kvcore/platform/include/objbase.h>

namespace kv::platform
{

/// Asks the module that is registered for a class for its class object. REGDB_E_CLASSNOTREG if there is none,
/// CO_E_DLLNOTFOUND if it cannot be loaded, CO_E_ERRORINDLL if it serves no classes. Modules stay loaded: their objects
/// are not known here.
HRESULT GetModuleClassObject(REFCLSID id, REFIID iid, void ** object);

} // namespace kv::platform
