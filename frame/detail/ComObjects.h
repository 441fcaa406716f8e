#pragma once

#include <kvcore/platform/export.h>
#include <kvcore/platform/unknown.h>

namespace kv::detail
{

/// CoCreateInstance that logs a failure, with the names under which the caller knows the class and the interface. The
/// caller's thread has initialised COM.
KVCORE_API HRESULT CreateInstanceLogged(
    WCHAR const * className, CLSID const & classId, IUnknown * outer, DWORD context, WCHAR const * interfaceName,
    IID const & interfaceId, void ** result);

} // namespace kv::detail
