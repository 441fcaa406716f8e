#pragma once

#include <stdexcept>

#include <kvcore/core/String.h>
#include <kvcore/platform/types.h>

namespace kv::tools
{

/// What somebody wrote is no place in the registry. The text says why.
struct BadRegistryPath : std::runtime_error
{
    using std::runtime_error::runtime_error;
};

/// A key of the registry as people name it: `HKEY_CURRENT_USER\Software\x`.
struct RegistryPath
{
    /// Takes a path apart. Roots have their long and their short names (HKCU), in any case, and may have a colon behind
    /// them or `Computer\` before, as other tools show them; `\\machine\` before it names another machine. Backslashes
    /// at the end, and several together, say nothing and are dropped. Throws BadRegistryPath.
    explicit RegistryPath(String const & text);

    /// The whole path, with the root's long name.
    [[nodiscard]] String Shown() const;

    String machine; ///< empty for this one
    HKEY root = nullptr;
    String rootName; ///< the long one
    String below;    ///< names with one backslash between them; empty for the root itself
};

} // namespace kv::tools
