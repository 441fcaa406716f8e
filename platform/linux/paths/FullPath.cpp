#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>
#include <new>

#include <unistd.h>

#include <kvcore/platform/include/directories.h>
#include <kvcore/platform/include/errors.h>
#include <kvcore/platform/linux/errors/ErrnoErrors.h>
#include <kvcore/platform/linux/memory/CallerMemory.h>

#include "Listings.h"
#include "NativeNames.h"
#include "NativePath.h"
#include "PathSyntax.h"
#include "ShortNames.h"
#include "Win32Path.h"

namespace kv::platform
{

WString Win32NameOf(char const * name, std::size_t length)
{
    WString units(length, WCHAR{0});
    units.resize(DecodeName(name, length, units.data()));
    return units;
}

WString Win32PathOf(char const * native, std::size_t length)
{
    WString path = length > 0 && native[0] == '/' ? TEXT("Z:") : TEXT("");
    for (std::size_t start = 0; start < length;)
    {
        if (native[start] == '/')
        {
            if (path.empty() || path.back() != '\\')
            {
                path += TEXT('\\');
            }
            start++;
            continue;
        }
        std::size_t end = start;
        while (end < length && native[end] != '/')
        {
            end++;
        }
        bool const dots = native[start] == '.' && (end - start == 1 || (end - start == 2 && native[start + 1] == '.'));
        path += dots ? WString(end - start, TEXT('.')) : Win32NameOf(native + start, end - start);
        start = end;
    }
    return path;
}

DWORD GiveText(WString const & text, WCHAR * buffer, DWORD capacity)
{
    auto const length = static_cast<DWORD>(text.size());
    if (buffer == nullptr || length >= capacity)
    {
        return length + 1;
    }
    CopyToCaller(buffer, text.c_str(), (text.size() + 1) * sizeof(WCHAR));
    return length;
}

namespace
{

bool CurrentDirectory(WString & path)
{
    char native[PATH_MAX];
    if (getcwd(native, sizeof native) == nullptr || native[0] != '/')
    {
        return FailWith(ERROR_PATH_NOT_FOUND); // it was removed
    }
    path = Win32PathOf(native, std::strlen(native));
    return true;
}

/// Appends what stands before the next separator, and moves `rest` there.
void AppendRaw(WString & text, WCHAR const *& rest)
{
    while (*rest != 0 && !IsSeparator(*rest))
    {
        text += *rest++;
    }
}

/// The beginning of a full path, up to and without the separator before its first component that ".." can take off.
bool StartFullPath(PathStart const & start, WCHAR const *& rest, WString & full, std::size_t & rootLength)
{
    rest = start.rest;
    bool const onOtherDrive = start.kind == PathKind::DriveRelative && (start.drive | 0x20) != 'z';
    switch (start.kind)
    {
    case PathKind::Relative:
    case PathKind::DriveRelative:
        if (!onOtherDrive)
        {
            rootLength = 2;
            if (!CurrentDirectory(full))
            {
                return false;
            }
            full.resize(full.size() == 3 ? 2 : full.size());
            return true;
        }
        [[fallthrough]];
    case PathKind::DriveAbsolute:
        full = {start.drive, TEXT(':')};
        break;
    case PathKind::Rooted:
        full = TEXT("Z:");
        break;
    case PathKind::Device:
    case PathKind::Literal:
        // A drive or device behind the prefix is a component like others: ".." takes it off, too.
        full = {TEXT('\\'), TEXT('\\'), start.rest[-2], TEXT('\\')};
        break;
    case PathKind::Unc:
        full = TEXT("\\\\");
        AppendRaw(full, rest);
        if (*rest != 0 && rest[1] != 0)
        {
            full += TEXT('\\');
            AppendRaw(full, ++rest);
        }
        break;
    }
    rootLength = full.size();
    return true;
}

} // namespace

bool MakeFullPath(WCHAR const * path, WString & full, std::size_t & rootLength)
{
    if (IsNulDevice(path))
    {
        full = TEXT("\\\\.\\") + WString(path, 3);
        rootLength = full.size();
        return true;
    }
    WCHAR const * rest = nullptr;
    PathStart const start = ParseStart(path);
    if (!StartFullPath(start, rest, full, rootLength))
    {
        return false;
    }
    bool const prefixed = start.kind == PathKind::Device || start.kind == PathKind::Literal;
    bool const onDrive = start.kind != PathKind::Unc && !prefixed;
    bool endsInSeparator =
        (onDrive && *rest == 0) || (*rest != 0 && IsSeparator(rest[WString::traits_type::length(rest) - 1]));
    for (;;)
    {
        Component const component = NextComponent(rest);
        if (component.kind == ComponentKind::None)
        {
            break;
        }
        endsInSeparator = endsInSeparator || component.kind == ComponentKind::Empty;
        if (component.kind == ComponentKind::Parent)
        {
            std::size_t const last = full.find_last_of(TEXT('\\'));
            full.resize(last == WString::npos || last < rootLength ? rootLength : last);
        }
        else if (component.kind == ComponentKind::Name)
        {
            if (!prefixed || full.size() > rootLength)
            {
                full += TEXT('\\');
            }
            full.append(component.name, component.count);
        }
    }
    if (full.back() != '\\' && (endsInSeparator || (onDrive && full.size() == rootLength)))
    {
        full += TEXT('\\');
    }
    return true;
}

} // namespace kv::platform

using namespace kv::platform;

DWORD WINAPI GetFullPathNameW(LPCWSTR name, DWORD capacity, LPWSTR buffer, LPWSTR * filePart)
try
{
    CheckText(name);
    CheckBuffer(buffer, capacity);
    CheckOutputs(filePart);
    if (name == nullptr || name[0] == 0)
    {
        SetLastError(ERROR_INVALID_NAME);
        return 0;
    }
    WString full;
    std::size_t rootLength = 0;
    if (!MakeFullPath(name, full, rootLength))
    {
        return 0;
    }
    DWORD const given = GiveText(full, buffer, capacity);
    if (filePart != nullptr)
    {
        std::size_t const last = full.find_last_of(TEXT('\\')) + 1;
        bool const hasName = given < capacity && last < full.size() && full.size() > rootLength;
        *filePart = hasName ? buffer + last : nullptr;
    }
    return given;
}
catch (std::bad_alloc const &)
{
    SetLastError(ERROR_NOT_ENOUGH_MEMORY);
    return 0;
}

DWORD WINAPI GetCurrentDirectoryW(DWORD capacity, LPWSTR buffer)
try
{
    CheckBuffer(buffer, capacity);
    WString path;
    return CurrentDirectory(path) ? GiveText(path, buffer, capacity) : 0;
}
catch (std::bad_alloc const &)
{
    SetLastError(ERROR_NOT_ENOUGH_MEMORY);
    return 0;
}

BOOL WINAPI SetCurrentDirectoryW(LPCWSTR path)
{
    CheckText(path);
    if (path != nullptr && path[0] == 0)
    {
        return FailWith(ERROR_INVALID_NAME);
    }
    NativePath native;
    if (!native.Translate(path, Look::Existing))
    {
        return FALSE;
    }
    if (chdir(native.CStr()) == 0)
    {
        return TRUE;
    }
    return errno == ENOTDIR ? FailWith(ERROR_DIRECTORY) : FailErrno();
}

namespace
{

/// How long the beginning of a path is that has no components: prefix and drive.
std::size_t BeginningOf(WCHAR const * path)
{
    PathStart const start = ParseStart(path);
    bool const prefixed = start.kind == PathKind::Device || start.kind == PathKind::Literal;
    return static_cast<std::size_t>(start.rest - path) +
        (prefixed && start.rest[0] != 0 && start.rest[1] == ':' ? 2 : 0);
}

/// Replaces each component of a path by what `name` makes of it. `name` gets the path up to there, resolved.
template <class Name>
DWORD ReplaceNames(WCHAR const * path, WCHAR * target, DWORD capacity, Name name)
{
    NativePath native;
    if (path == nullptr)
    {
        SetLastError(ERROR_INVALID_PARAMETER);
        return 0;
    }
    if (!native.Translate(path, Look::Existing))
    {
        return 0;
    }
    WString const source = path;
    std::size_t at = IsNulDevice(path) ? source.size() : BeginningOf(path);
    bool const literal = ParseStart(path).kind == PathKind::Literal;
    WString result = source.substr(0, at);
    while (at < source.size())
    {
        if (source[at] == '\\' || (source[at] == '/' && !literal))
        {
            result += source[at++];
            continue;
        }
        std::size_t const end = std::min(source.size(), source.find_first_of(literal ? TEXT("\\") : TEXT("\\/"), at));
        WString const component = source.substr(at, end - at);
        bool const isName = component.find_first_not_of(TEXT(". ")) != WString::npos || literal;
        if (isName && !native.Translate(source.substr(0, end).c_str(), Look::Existing))
        {
            return 0;
        }
        result += isName ? name(native) : component;
        at = end;
    }
    return GiveText(result, target, capacity);
}

WString LongName(NativePath const & path)
{
    std::size_t const start = path.NameStart();
    return Win32NameOf(path.CStr() + start, path.Length() - start);
}

WString ShortName(NativePath const & path)
{
    WString name = LongName(path);
    char directory[PATH_MAX];
    path.CopyParent(directory);
    std::size_t const start = path.NameStart();
    if (IsShortName(name.data(), name.size()) ||
        !IsShortNameUnique(directory, path.CStr() + start, path.Length() - start))
    {
        return name;
    }
    WCHAR made[shortNameSize];
    return WString(made, MakeShortName(name.data(), name.size(), made));
}

} // namespace

DWORD WINAPI GetLongPathNameW(LPCWSTR shortPath, LPWSTR longPath, DWORD capacity)
try
{
    CheckText(shortPath);
    CheckBuffer(longPath, capacity);
    return ReplaceNames(shortPath, longPath, capacity, LongName);
}
catch (std::bad_alloc const &)
{
    SetLastError(ERROR_NOT_ENOUGH_MEMORY);
    return 0;
}

DWORD WINAPI GetShortPathNameW(LPCWSTR longPath, LPWSTR shortPath, DWORD capacity)
try
{
    CheckText(longPath);
    CheckBuffer(shortPath, capacity);
    return ReplaceNames(longPath, shortPath, capacity, ShortName);
}
catch (std::bad_alloc const &)
{
    SetLastError(ERROR_NOT_ENOUGH_MEMORY);
    return 0;
}
