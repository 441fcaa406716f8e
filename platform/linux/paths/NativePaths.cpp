#include <kvcore/platform/NativePaths.h>

#include <kvcore/platform/include/errors.h>
#include <kvcore/platform/linux/errors/ErrnoErrors.h>

#include "NativeNames.h"
#include "NativePath.h"
#include "PathSyntax.h"
#include "Win32Path.h"

namespace kv::platform
{

WString PathFromNative(std::string_view native)
{
    WString path = Win32PathOf(native.data(), native.size());
    bool const relative = !native.empty() && native[0] != '/';
    // "a:b" and "nul" are names like others here; alone they would be taken for a drive's and a device's.
    bool const isOther = relative && (ParseStart(path.c_str()).kind != PathKind::Relative || IsNulDevice(path.c_str()));
    return isOther ? TEXT(".\\") + path : path;
}

namespace
{

/// The relative path, with ".." only where nothing before it can be taken off; empty with the last error set.
std::string RelativeToNative(WCHAR const * rest)
{
    std::string native;
    std::size_t names = 0;
    for (;;)
    {
        Component const component = NextComponent(rest);
        if (component.kind == ComponentKind::Parent && names > 0)
        {
            std::size_t const slash = native.find_last_of('/');
            native.resize(slash == std::string::npos ? 0 : slash);
            names--;
            continue;
        }
        if (component.kind == ComponentKind::None || component.kind == ComponentKind::Empty)
        {
            return native.empty() ? "." : native;
        }
        char name[maxNativeName + 1] = "..";
        std::size_t length = 2;
        if (component.kind == ComponentKind::Name)
        {
            if (!EncodeName(component.name, component.count, name, sizeof name, length))
            {
                return {};
            }
            names++;
        }
        native.append(native.empty() ? "" : "/").append(name, length);
    }
}

} // namespace

std::string PathToNative(WString const & path)
{
    if (!path.empty() && !IsNulDevice(path.c_str()) && ParseStart(path.c_str()).kind == PathKind::Relative)
    {
        return RelativeToNative(path.c_str());
    }
    NativePath native;
    return native.Spell(path.c_str()) ? std::string(native.CStr(), native.Length()) : std::string();
}

} // namespace kv::platform
