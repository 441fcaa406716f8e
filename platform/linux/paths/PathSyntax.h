#pragma once

// The letters of a Win32 path, without a look at any disk: what its beginning says, and its components one by one.

#include <cstddef>

#include <kvcore/platform/include/basetypes.h>

namespace kv::platform
{

enum class PathKind
{
    Relative,      ///< a\b
    Rooted,        ///< \a, on the current drive
    DriveRelative, ///< c:a
    DriveAbsolute, ///< c:\a
    Unc,           ///< \\server\share\a
    Device,        ///< \\.\ followed by what may be a drive
    Literal,       ///< \\?\ followed by what may be a drive: nothing in it is changed
};

struct PathStart
{
    PathKind kind;
    WCHAR drive;        ///< The letter as given, if the kind has one.
    WCHAR const * rest; ///< Behind what `kind` says, separators included for Rooted and DriveAbsolute.
};

inline bool IsSeparator(WCHAR c)
{
    return c == '\\' || c == '/';
}

inline bool IsDriveLetter(WCHAR c)
{
    return (c | 0x20) >= 'a' && (c | 0x20) <= 'z' && c < 0x80;
}

PathStart ParseStart(WCHAR const * path) noexcept;

/// Whether the path is the one device name that is one wherever a program stands: NUL.
bool IsNulDevice(WCHAR const * path) noexcept;

enum class ComponentKind
{
    None, ///< The path is at its end.
    Name,
    Parent, ///< ".."
    Empty,  ///< A last component of dots and blanks: as if the path ended in a separator.
};

struct Component
{
    ComponentKind kind;
    WCHAR const * name;
    std::size_t count;
    bool separated; ///< A separator follows.
};

/// Takes the next component off `rest`, skipping separators and "." before it. Of a name that is not the last one dot
/// at the end goes, of the last one all dots and blanks at its end.
Component NextComponent(WCHAR const *& rest) noexcept;

} // namespace kv::platform
