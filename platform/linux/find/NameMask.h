#pragma once

// Masks of names with * and ?, as the find functions take them.

#include <cstddef>
#include <string>

#include <kvcore/platform/export.h>
#include <kvcore/platform/types.h>

namespace kv::platform
{

/// A mask. `*` is any number of units, `?` (and `>`) exactly one, letters match in any case. What is left of the mask
/// at the end of a name may be dots and stars: so `*.*` matches every name, and `name.*` matches `name`.
class KVCORE_API NameMask
{
public:
    NameMask() = default;
    /// Throws std::bad_alloc.
    NameMask(WCHAR const * text, std::size_t count);

    /// Matches everything.
    bool IsAll() const noexcept
    {
        return all;
    }
    bool Matches(WCHAR const * name, std::size_t count) const noexcept;

    /// Whether a text is a mask and no plain name.
    static bool HasWildcards(WCHAR const * text, std::size_t count) noexcept;

private:
    bool IsTail(std::size_t at) const noexcept;

    WString mask; ///< folded, without a star behind a star
    std::size_t letters = 0;
    std::size_t tail = 0; ///< where nothing but dots and stars is left
    bool all = true;
};

} // namespace kv::platform
