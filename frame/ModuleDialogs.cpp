#include <kvcore/frame/ModuleBase.h>

#include <cstring>

#include <kvcore/frame/DialogTemplate.h>
#include <kvcore/frame/detail/DialogResource.h>
#include <kvcore/platform/win32.h>

// Dialogs in a module's resources.

namespace
{

WCHAR const * const dialogType = MAKEINTRESOURCEW(5); // RT_DIALOG

/// A new zeroed block with a copy of some bytes; null without memory.
HGLOBAL CopyOf(void const * bytes, std::size_t size)
{
    HGLOBAL const copy = GlobalAlloc(GMEM_MOVEABLE | GMEM_ZEROINIT, size);
    if (copy != nullptr)
    {
        std::memcpy(GlobalLock(copy), bytes, size);
        GlobalUnlock(copy);
    }
    return copy;
}

} // namespace

void ModuleBase::SetDialogScalingFactors(double x, double y)
{
    scalingX = x;
    scalingY = y;
}

void ModuleBase::GetDialogScalingFactors(double & x, double & y)
{
    x = scalingX;
    y = scalingY;
}

void * ModuleBase::LoadDialog(unsigned int id)
{
    DWORD size = 0;
    void const * const resource = LockResource(LoadResource(id, dialogType, &size));
    if (resource == nullptr)
    {
        return nullptr;
    }
    HGLOBAL const copy = CopyOf(resource, size);
    void * const scaled = ScaleDialog(copy);
    GlobalFree(copy);
    return scaled;
}

void * ModuleBase::ScaleDialog(void * handle)
{
    std::size_t const size = handle != nullptr ? GlobalSize(handle) : 0;
    if (size == 0)
    {
        return nullptr;
    }
    HGLOBAL const scaled = CopyOf(GlobalLock(handle), size);
    GlobalUnlock(handle);
    if (scaled != nullptr && (scalingX != 1.0 || scalingY != 1.0))
    {
        kv::detail::ScaleDialogPlaces(static_cast<char *>(GlobalLock(scaled)), size, scalingX, scalingY);
        GlobalUnlock(scaled);
    }
    return scaled;
}

bool ModuleBase::LoadDialogTemplate(unsigned int id, DialogTemplate & result, bool scaled)
{
    result = DialogTemplate();
    if (scaled)
    {
        HGLOBAL const dialog = LoadDialog(id);
        if (dialog == nullptr)
        {
            return false;
        }
        std::string_view const bytes(static_cast<char const *>(GlobalLock(dialog)), GlobalSize(dialog));
        bool const parsed = kv::detail::ParseDialog(bytes, result);
        GlobalUnlock(dialog);
        GlobalFree(dialog);
        return parsed;
    }
    DWORD size = 0;
    auto const * const resource = static_cast<char const *>(LockResource(LoadResource(id, dialogType, &size)));
    return resource != nullptr && kv::detail::ParseDialog(std::string_view(resource, size), result);
}

Rect ModuleBase::GetDialogRect(unsigned int id, bool inPixels)
{
    if (inPixels)
    {
        return Rect();
    }
    DWORD size = 0;
    auto const * const resource = static_cast<char const *>(LockResource(LoadResource(id, dialogType, &size)));
    return resource != nullptr ? Rect(kv::detail::DialogPlace(std::string_view(resource, size))) : Rect();
}
