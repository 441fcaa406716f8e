#pragma once

// The identifier that belongs to an interface's type.

#include <kvcore/platform/unknown.h>

namespace kv::platform
{

/// The identifier of `Interface`: its own static member `interfaceId` if it has one, else what the platform has on
/// record for its interfaces. Does not compile for a type that has neither.
template <class Interface>
GUID const & InterfaceId()
{
    if constexpr (requires { Interface::interfaceId; })
    {
        return Interface::interfaceId;
    }
    else
    {
#ifdef _WIN32
        return __uuidof(Interface);
#else
        return KnownInterfaceId(static_cast<Interface *>(nullptr));
#endif
    }
}

} // namespace kv::platform
