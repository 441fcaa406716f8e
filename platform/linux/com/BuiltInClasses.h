#pragma once

#include <kvcore/platform/include/objbase.h>

namespace kv::platform
{

/// The class object of a class that the platform layer itself has, which lives as long as the process; null for others.
IClassFactory * BuiltInClassObject(REFCLSID id) noexcept;

} // namespace kv::platform
