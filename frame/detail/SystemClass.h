#pragma once

// The tree by which editions of Windows are told apart, over plain values.

#include <optional>

#include <kvcore/frame/SysInfo.h>
#include <kvcore/platform/export.h>

namespace kv::detail
{

/// The system's version record, and what it must be asked for beside it.
struct SystemFacts
{
    DWORD platform = 0; ///< 1 is the line of Windows 95
    DWORD major = 0;
    DWORD minor = 0;
    unsigned int suiteMask = 0;
    unsigned int productType = 0;
    bool isServerR2 = false;
    std::optional<DWORD> product; ///< nothing if the system does not tell
    bool isWow64 = false;         ///< a 32-bit program on a 64-bit system
};

KVCORE_API SysInfo::System ClassifySystem(SystemFacts const & facts);

/// "Windows " and the name.
KVCORE_API String NameOfSystem(SysInfo::System system, bool isMediaCenter);

} // namespace kv::detail
