#pragma once

// A folder that stays the same one while it is held, whatever happens to its path. For whoever looks at a tree and then
// changes it: a folder of it that somebody replaces by a link in between does not lead the change elsewhere.

#include <cstdint>
#include <memory>

#include <kvcore/platform/export.h>
#include <kvcore/platform/types.h>

namespace kv::platform
{

/// Tells folders apart: no two that are there at one time have the same.
struct FolderIdentity
{
    std::uint64_t volume = 0;
    std::uint64_t number = 0;

    bool operator==(FolderIdentity const &) const = default;
};

/// A folder that is held. On Linux by a descriptor, and Path leads through that; on Windows by a handle that keeps the
/// folder and those above it from being renamed or removed. Copies hold the same folder. Any thread.
class KVCORE_API HeldFolder
{
public:
    /// Whether a link at the end of a path is followed to the folder that it leads to.
    enum class Links
    {
        Followed,
        Refused
    };

    /// Holds no folder.
    HeldFolder() noexcept;
    /// Holds the folder of a path; none, with the last error set, if there is none.
    HeldFolder(WString const & path, Links links);
    HeldFolder(HeldFolder const & other);
    HeldFolder(HeldFolder && other) noexcept;
    HeldFolder & operator=(HeldFolder const & other);
    HeldFolder & operator=(HeldFolder && other) noexcept;
    ~HeldFolder();

    /// The folder of this name in this one, which must be held. None, with the last error set, if there is none or the
    /// name is that of a link.
    [[nodiscard]] HeldFolder Enter(WString const & name) const;

    /// Whether it holds a folder.
    explicit operator bool() const noexcept
    {
        return hold != nullptr;
    }
    /// A path by which the platform's calls reach this folder as long as it is held, without a separator at its end
    /// unless it is a root.
    [[nodiscard]] WString Path() const;
    [[nodiscard]] FolderIdentity Identity() const noexcept;

private:
    struct Hold;
    explicit HeldFolder(std::shared_ptr<Hold const> newHold) noexcept;

    std::shared_ptr<Hold const> hold;
};

} // namespace kv::platform
