#include "PathSyntax.h"

namespace kv::platform
{

PathStart ParseStart(WCHAR const * path) noexcept
{
    if (IsSeparator(path[0]))
    {
        if (!IsSeparator(path[1]))
        {
            return {PathKind::Rooted, 0, path};
        }
        if ((path[2] == '.' || path[2] == '?') && IsSeparator(path[3]))
        {
            // Only the exact spelling takes the path literally.
            bool const literal = path[0] == '\\' && path[1] == '\\' && path[2] == '?' && path[3] == '\\';
            return {literal ? PathKind::Literal : PathKind::Device, 0, path + 4};
        }
        return {PathKind::Unc, 0, path + 2};
    }
    if (path[0] != 0 && path[1] == ':')
    {
        return {IsSeparator(path[2]) ? PathKind::DriveAbsolute : PathKind::DriveRelative, path[0], path + 2};
    }
    return {PathKind::Relative, 0, path};
}

bool IsNulDevice(WCHAR const * path) noexcept
{
    constexpr char name[] = "nul";
    for (std::size_t i = 0; i < 3; i++, path++)
    {
        if ((*path | 0x20) != name[i])
        {
            return false;
        }
    }
    while (*path == ' ' || *path == '.' || *path == ':')
    {
        path++;
    }
    return *path == 0;
}

Component NextComponent(WCHAR const *& rest) noexcept
{
    for (;;)
    {
        while (IsSeparator(*rest))
        {
            rest++;
        }
        WCHAR const * const name = rest;
        while (*rest != 0 && !IsSeparator(*rest))
        {
            rest++;
        }
        std::size_t count = static_cast<std::size_t>(rest - name);
        bool const separated = *rest != 0;
        if (count == 0)
        {
            return {ComponentKind::None, name, 0, false};
        }
        if (count == 1 && name[0] == '.')
        {
            continue;
        }
        if (count == 2 && name[0] == '.' && name[1] == '.')
        {
            return {ComponentKind::Parent, name, count, separated};
        }
        if (separated)
        {
            return {ComponentKind::Name, name, name[count - 1] == '.' ? count - 1 : count, true};
        }
        while (count > 0 && (name[count - 1] == '.' || name[count - 1] == ' '))
        {
            count--;
        }
        return {count == 0 ? ComponentKind::Empty : ComponentKind::Name, name, count, false};
    }
}

} // namespace kv::platform
