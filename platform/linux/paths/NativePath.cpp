#include "NativePath.h"

#include <cerrno>
#include <cstring>

#include <fcntl.h>
#include <unistd.h>

#include <kvcore/platform/include/errors.h>
#include <kvcore/platform/linux/errors/ErrnoErrors.h>

#include "Drives.h"
#include "Listings.h"
#include "NativeNames.h"
#include "PathSyntax.h"

namespace kv::platform
{

namespace
{

constexpr unsigned wantedStatus = STATX_BASIC_STATS | STATX_BTIME;

/// 0 or an errno value. Links are not followed.
int LookAt(char const * path, struct statx & status)
{
    return statx(AT_FDCWD, path, AT_SYMLINK_NOFOLLOW, wantedStatus, &status) == 0 ? 0 : errno;
}

} // namespace

bool NativePath::Translate(WCHAR const * path, Look look) noexcept
{
    return Spell(path) && Resolve(look);
}

bool NativePath::Spell(WCHAR const * path) noexcept
{
    exists = false;
    endsInSeparator = false;
    if (path == nullptr || path[0] == 0)
    {
        return FailWith(ERROR_PATH_NOT_FOUND);
    }
    if (IsNulDevice(path))
    {
        return SpellDevice(path, false);
    }
    PathStart const start = ParseStart(path);
    bool started = false;
    switch (start.kind)
    {
    case PathKind::Unc:
        return FailWith(ERROR_BAD_NETPATH);
    case PathKind::Device:
    case PathKind::Literal:
        return SpellDevice(start.rest, start.kind == PathKind::Literal);
    case PathKind::DriveAbsolute:
        started = StartAtDrive(start.drive);
        break;
    case PathKind::Rooted:
        started = StartAtDrive('Z');
        break;
    case PathKind::DriveRelative:
        started = (start.drive | 0x20) == 'z' ? StartAtCurrentDirectory() : StartAtDrive(start.drive);
        break;
    case PathKind::Relative:
        started = StartAtCurrentDirectory();
        break;
    }
    return started && SpellFrom(start.rest, false);
}

bool NativePath::StartAtDrive(WCHAR letter) noexcept
{
    if (!DriveRoot(letter, text, length))
    {
        return false;
    }
    rootLength = length;
    return true;
}

bool NativePath::StartAtCurrentDirectory() noexcept
{
    if (getcwd(text, sizeof text) == nullptr || text[0] != '/')
    {
        return FailWith(ERROR_PATH_NOT_FOUND); // it was removed
    }
    rootLength = 0;
    length = text[1] == '\0' ? 0 : std::strlen(text);
    return true;
}

/// What follows \\.\ or \\?\, or is NUL.
bool NativePath::SpellDevice(WCHAR const * name, bool literal) noexcept
{
    if (IsDriveLetter(name[0]) && name[1] == ':' && (literal ? name[2] == '\\' : IsSeparator(name[2])))
    {
        return StartAtDrive(name[0]) && SpellFrom(name + 2, literal);
    }
    if (IsNulDevice(name))
    {
        std::strcpy(text, "/dev/null");
        length = std::strlen(text);
        rootLength = 0;
        return true;
    }
    if (name[0] == 0)
    {
        return FailWith(ERROR_INVALID_NAME);
    }
    constexpr char unc[] = "unc";
    std::size_t equal = 0;
    while (equal < 3 && (name[equal] | 0x20) == unc[equal])
    {
        equal++;
    }
    bool const isUnc = equal == 3 && IsSeparator(name[equal]);
    return FailWith(isUnc ? ERROR_BAD_NETPATH : ERROR_FILE_NOT_FOUND);
}

bool NativePath::SpellFrom(WCHAR const * rest, bool literal) noexcept
{
    endsInSeparator = *rest == 0;
    while (literal && *rest == '\\')
    {
        WCHAR const * const name = rest + 1;
        for (rest = name; *rest != 0 && *rest != '\\'; rest++)
        {
        }
        if (rest != name && !SpellComponent(name, static_cast<std::size_t>(rest - name)))
        {
            return false;
        }
        endsInSeparator = rest == name;
    }
    while (!literal)
    {
        Component const component = NextComponent(rest);
        if (component.kind == ComponentKind::None)
        {
            break;
        }
        endsInSeparator = component.kind == ComponentKind::Empty;
        if (component.kind == ComponentKind::Parent)
        {
            while (length > rootLength && text[--length] != '/')
            {
            }
        }
        else if (component.kind == ComponentKind::Name && !SpellComponent(component.name, component.count))
        {
            return false;
        }
    }
    endsInSeparator = endsInSeparator || (!literal && IsSeparator(rest[-1]));
    if (length == 0)
    {
        text[length++] = '/';
    }
    text[length] = '\0';
    return true;
}

bool NativePath::SpellComponent(WCHAR const * name, std::size_t count) noexcept
{
    // Room for the separator and the NUL.
    if (length + 2 >= sizeof text)
    {
        return FailWith(ERROR_FILENAME_EXCED_RANGE);
    }
    text[length] = '/';
    std::size_t added = 0;
    if (!EncodeName(name, count, text + length + 1, sizeof text - length - 2, added))
    {
        return false;
    }
    length += 1 + added;
    return true;
}

bool NativePath::Resolve(Look look) noexcept
{
    int const error = LookAt(text, status);
    exists = error == 0;
    if (exists)
    {
        return true;
    }
    if (error != ENOENT && error != ENAMETOOLONG)
    {
        return FailErrno(error);
    }
    return ResolveComponents(look);
}

/// Finds the longest beginning that is there as it is spelled, and goes on from it name by name.
bool NativePath::ResolveComponents(Look look) noexcept
{
    std::size_t end = length;
    for (;;)
    {
        while (end > rootLength && text[end - 1] != '/')
        {
            end--;
        }
        if (end <= rootLength || end == 1)
        {
            end = rootLength;
            break;
        }
        end--;
        text[end] = '\0';
        struct stat known;
        bool const there = stat(end == 0 ? "/" : text, &known) == 0;
        int const error = there ? 0 : errno;
        text[end] = '/';
        if (there)
        {
            if (!S_ISDIR(known.st_mode))
            {
                return FailWith(ERROR_PATH_NOT_FOUND);
            }
            break;
        }
        if (error != ENOENT && error != ENAMETOOLONG)
        {
            return FailErrno(error);
        }
    }
    if (end >= length)
    {
        return FailWith(ERROR_PATH_NOT_FOUND); // the root of a drive that is not there
    }
    while (end < length)
    {
        std::size_t const start = end + 1;
        for (end = start; end < length && text[end] != '/'; end++)
        {
        }
        bool const last = end == length;
        if (!FindComponent(start, end, last))
        {
            bool const mayBeMade = last && look == Look::Creating && GetLastError() == ERROR_FILE_NOT_FOUND;
            return mayBeMade;
        }
    }
    exists = true;
    return true;
}

/// Makes the component from `start` to `end` one that is there, and `end` its new end.
bool NativePath::FindComponent(std::size_t start, std::size_t & end, bool last) noexcept
{
    auto const missing = [last](int error) -> bool
    { return error == ENOENT && !last ? FailWith(ERROR_PATH_NOT_FOUND) : FailErrno(error); };
    auto const look = [this](std::size_t until)
    {
        char const after = text[until];
        text[until] = '\0';
        int const error = LookAt(text, status);
        text[until] = after;
        return error;
    };
    int error = look(end);
    if (error != ENOENT)
    {
        return error == 0 ? true : missing(error);
    }
    char found[256];
    std::size_t foundLength = 0;
    text[start - 1] = '\0';
    error = FindInDirectory(start == 1 ? "/" : text, text + start, end - start, found, foundLength);
    text[start - 1] = '/';
    if (error != 0)
    {
        // A directory that may be passed but not listed has its names in exact case only.
        return error == ENOTDIR ? FailWith(ERROR_PATH_NOT_FOUND) : missing(error == EACCES ? ENOENT : error);
    }
    if (length - (end - start) + foundLength >= sizeof text)
    {
        return FailWith(ERROR_FILENAME_EXCED_RANGE);
    }
    std::memmove(text + start + foundLength, text + end, length - end + 1);
    std::memcpy(text + start, found, foundLength);
    length = length - (end - start) + foundLength;
    end = start + foundLength;
    error = look(end);
    return error == 0 ? true : missing(error);
}

bool NativePath::IsDirectory() const noexcept
{
    if (!IsLink())
    {
        return exists && S_ISDIR(status.stx_mode);
    }
    struct stat target;
    return stat(text, &target) == 0 && S_ISDIR(target.st_mode);
}

std::size_t NativePath::NameStart() const noexcept
{
    std::size_t start = length;
    while (start > 0 && text[start - 1] != '/')
    {
        start--;
    }
    return start;
}

void NativePath::CopyParent(char (&target)[PATH_MAX]) const noexcept
{
    std::size_t const start = NameStart();
    std::size_t const count = start <= 1 ? 1 : start - 1;
    std::memcpy(target, text, count);
    target[count] = '\0';
}

bool NativePath::Append(char const * name) noexcept
{
    std::size_t const count = std::strlen(name);
    std::size_t const separator = length > 0 && text[length - 1] == '/' ? 0 : 1;
    if (length + separator + count >= sizeof text)
    {
        return FailWith(ERROR_FILENAME_EXCED_RANGE);
    }
    text[length] = '/';
    std::memcpy(text + length + separator, name, count + 1);
    length += separator + count;
    return true;
}

} // namespace kv::platform
