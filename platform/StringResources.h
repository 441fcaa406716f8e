#pragma once

// Strings of modules, where they stand.

#include <cstddef>

#include <kvcore/platform/export.h>
#include <kvcore/platform/types.h>

namespace kv::platform
{

/// A text in a module's resources. Its module owns it.
struct StringResource
{
    void const * units; ///< UTF-16 at any address, with no NUL behind it; null where the module has no such block
    std::size_t length; ///< in units; 0 for a text that is not all there
};

/// One of a module's strings in the language of those who ask for none: number `block` * 16 - 16 + `index`, of which
/// LoadStringW only knows those below 65,536. `index` is below 16; null is the program. Unlike LoadStringW it holds
/// every length against the resource's size on both systems. Does not say why a block is not there. Any thread.
KVCORE_API StringResource FindStringResource(HINSTANCE module, WORD block, unsigned index) noexcept;

} // namespace kv::platform
