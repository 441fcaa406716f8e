#pragma once

// From a Win32 path to the path that the kernel knows. Everything that takes a file's name goes through here.
//
//     NativePath path;
//     if (!path.Translate(lpFileName, Look::Existing)) return FALSE;   // the last error is set
//     open(path.CStr(), ...)
//
// `Z:` is the kernel's root, `C:` lies in the data directory, further drives are links beside it (Drives.h). Names are
// found without regard to case, the exact name first. How names are spelled on either side stands in NativeNames.h.

#include <climits>
#include <cstddef>

#include <sys/stat.h>

#include <kvcore/platform/include/basetypes.h>

namespace kv::platform
{

/// What a look-up is for.
enum class Look
{
    Existing, ///< The last component must be there, if only as a link that leads nowhere.
    Creating, ///< Its directory must be there.
};

class NativePath
{
public:
    NativePath() noexcept = default;
    NativePath(NativePath const &) = delete;
    NativePath & operator=(NativePath const &) = delete;

    /// Spells, then resolves. False with the last error set: ERROR_FILE_NOT_FOUND if only the last component is
    /// missing, ERROR_PATH_NOT_FOUND if a directory on the way is missing or is none, ERROR_INVALID_NAME for characters
    /// that no name has, ERROR_BAD_NETPATH for names of other machines, ERROR_CANT_RESOLVE_FILENAME for links in a
    /// circle, ERROR_FILENAME_EXCED_RANGE for what is too long for the kernel, ERROR_ACCESS_DENIED where a directory
    /// may not be searched.
    bool Translate(WCHAR const * path, Look look) noexcept;

    /// The first half of it: the native path with its letters in the case that they were given in, without a look at
    /// the disk. Who opens a file that exists may try this name at once, and resolve only on ENOENT.
    bool Spell(WCHAR const * path) noexcept;

    /// The second half: replaces each component that is not there as it is spelled by the one that differs in case.
    bool Resolve(Look look) noexcept;

    /// Absolute, without a separator at the end unless it is the root.
    char const * CStr() const noexcept
    {
        return text;
    }
    std::size_t Length() const noexcept
    {
        return length;
    }
    /// The Win32 path ended in a separator: it can mean a directory only.
    bool EndsInSeparator() const noexcept
    {
        return endsInSeparator;
    }
    /// The path is the root of a drive.
    bool IsDriveRoot() const noexcept
    {
        return length <= rootLength || (rootLength == 0 && length == 1);
    }
    /// After Resolve: the last component is there, if only as a link that leads nowhere.
    bool Exists() const noexcept
    {
        return exists;
    }
    /// After Resolve, if it exists: what the name itself is. A link is not followed.
    struct statx const & Status() const noexcept
    {
        return status;
    }
    bool IsLink() const noexcept
    {
        return exists && S_ISLNK(status.stx_mode);
    }
    /// Whether it is a directory, a link being followed.
    bool IsDirectory() const noexcept;

    /// Where the last component starts; Length() at the kernel's root.
    std::size_t NameStart() const noexcept;
    /// The native path of the directory that the last component lies in, in `target`.
    void CopyParent(char (&target)[PATH_MAX]) const noexcept;
    /// Adds a component of native spelling. False with ERROR_FILENAME_EXCED_RANGE.
    bool Append(char const * name) noexcept;

private:
    bool SpellFrom(WCHAR const * rest, bool literal) noexcept;
    bool SpellComponent(WCHAR const * name, std::size_t count) noexcept;
    bool StartAtDrive(WCHAR letter) noexcept;
    bool StartAtCurrentDirectory() noexcept;
    bool SpellDevice(WCHAR const * name, bool literal) noexcept;
    bool ResolveComponents(Look look) noexcept;
    bool FindComponent(std::size_t start, std::size_t & end, bool last) noexcept;

    std::size_t length = 0;
    std::size_t rootLength = 0;
    bool endsInSeparator = false;
    bool exists = false;
    struct statx status;
    char text[PATH_MAX];
};

} // namespace kv::platform
