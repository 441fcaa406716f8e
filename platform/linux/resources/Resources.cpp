#include <algorithm>
#include <cstring>
#include <new>

#include <kvcore/platform/StringResources.h>
#include <kvcore/platform/include/errors.h>
#include <kvcore/platform/include/libloaderapi.h>
#include <kvcore/platform/linux/errors/ErrnoErrors.h>
#include <kvcore/platform/linux/memory/CallerMemory.h>
#include <kvcore/platform/linux/modules/Modules.h>

#include "ResourceDirectory.h"

using namespace kv::platform;

namespace
{

ResourceData const * DataOf(HRSRC resource) noexcept
{
    return reinterpret_cast<ResourceData const *>(resource);
}

HRSRC HandleOf(ResourceData const * data) noexcept
{
    return reinterpret_cast<HRSRC>(const_cast<ResourceData *>(data));
}

/// An id as the callbacks get it: a number, or a text that ends in NUL.
class GivenId
{
public:
    explicit GivenId(ResourceId const & id) : text(id.text), number(id.number) {}

    LPWSTR Get() noexcept
    {
        return text.empty() ? MAKEINTRESOURCEW(number) : text.data();
    }

private:
    WString text;
    WORD number;
};

HRSRC FindAny(HMODULE module, LPCWSTR type, LPCWSTR name, WORD language) noexcept
{
    ResourceDirectory const * const resources = ResourcesOf(module);
    ResourceId typeId;
    ResourceId nameId;
    if (resources == nullptr || !ReadResourceId(type, typeId) || !ReadResourceId(name, nameId))
    {
        return nullptr;
    }
    FoundResource const found = resources->Find(typeId, nameId, language);
    if (found.data == nullptr)
    {
        SetLastError(found.error);
    }
    return HandleOf(found.data);
}

} // namespace

HRSRC WINAPI FindResourceW(HMODULE module, LPCWSTR name, LPCWSTR type)
{
    CheckName(name);
    CheckName(type);
    // Strings, dialogs, pictures: nearly all have numbers.
    if (IS_INTRESOURCE(name) && IS_INTRESOURCE(type))
    {
        ResourceDirectory const * const resources = ResourcesOf(module);
        if (resources == nullptr)
        {
            return nullptr;
        }
        ResourceData const * const found = resources->FindNumbers(
            static_cast<WORD>(reinterpret_cast<ULONG_PTR>(type)), static_cast<WORD>(reinterpret_cast<ULONG_PTR>(name)));
        if (found != nullptr)
        {
            return HandleOf(found);
        }
    }
    return FindAny(module, type, name, 0);
}

HRSRC WINAPI FindResourceExW(HMODULE module, LPCWSTR type, LPCWSTR name, WORD language)
{
    CheckName(type);
    CheckName(name);
    return FindAny(module, type, name, language);
}

DWORD WINAPI SizeofResource(HMODULE, HRSRC resource)
{
    return resource != nullptr ? DataOf(resource)->size : 0;
}

HGLOBAL WINAPI LoadResource(HMODULE, HRSRC resource)
{
    return resource != nullptr ? const_cast<unsigned char *>(DataOf(resource)->data) : nullptr;
}

LPVOID WINAPI LockResource(HGLOBAL data)
{
    return data;
}

BOOL WINAPI FreeResource(HGLOBAL)
{
    return FALSE;
}

BOOL WINAPI EnumResourceTypesW(HMODULE module, ENUMRESTYPEPROCW function, LONG_PTR argument)
try
{
    ResourceDirectory const * const resources = ResourcesOf(module);
    if (resources == nullptr)
    {
        return FALSE;
    }
    ResourceDirectory::Resource const * last = nullptr;
    for (ResourceDirectory::Resource const & resource : resources->All())
    {
        if (last == nullptr || CompareIds(last->type, resource.type) != 0)
        {
            GivenId type(resource.type);
            if (!function(module, type.Get(), argument))
            {
                return FALSE;
            }
        }
        last = &resource;
    }
    return TRUE;
}
catch (std::bad_alloc const &)
{
    return FailWith(ERROR_NOT_ENOUGH_MEMORY);
}

BOOL WINAPI EnumResourceNamesW(HMODULE module, LPCWSTR type, ENUMRESNAMEPROCW function, LONG_PTR argument)
try
{
    CheckName(type);
    ResourceDirectory const * const resources = ResourcesOf(module);
    ResourceId typeId;
    if (resources == nullptr || !ReadResourceId(type, typeId))
    {
        return FALSE;
    }
    DWORD error = ERROR_SUCCESS;
    ResourceDirectory::Resource const * resource = resources->FindAll(typeId, nullptr, error);
    if (resource == nullptr)
    {
        return FailWith(error);
    }
    ResourceDirectory::Resource const * const end = resources->All().data() + resources->All().size();
    for (; resource != end && CompareIds(resource->type, typeId) == 0; ++resource)
    {
        GivenId name(resource->name);
        if (!function(module, type, name.Get(), argument))
        {
            return FALSE;
        }
    }
    return TRUE;
}
catch (std::bad_alloc const &)
{
    return FailWith(ERROR_NOT_ENOUGH_MEMORY);
}

BOOL WINAPI
EnumResourceLanguagesW(HMODULE module, LPCWSTR type, LPCWSTR name, ENUMRESLANGPROCW function, LONG_PTR argument)
{
    CheckName(type);
    CheckName(name);
    ResourceDirectory const * const resources = ResourcesOf(module);
    ResourceId typeId;
    ResourceId nameId;
    if (resources == nullptr || !ReadResourceId(type, typeId) || !ReadResourceId(name, nameId))
    {
        return FALSE;
    }
    DWORD error = ERROR_SUCCESS;
    ResourceDirectory::Resource const * const resource = resources->FindAll(typeId, &nameId, error);
    if (resource == nullptr)
    {
        return FailWith(error);
    }
    return std::all_of(
        resource->languages.begin(), resource->languages.end(),
        [&](ResourceData const & data) { return function(module, type, name, data.language, argument) != FALSE; });
}

StringResource kv::platform::FindStringResource(HINSTANCE module, WORD block, unsigned index) noexcept
{
    ResourceDirectory const * const resources = ResourcesOf(module);
    StringPlace const found = resources != nullptr ? resources->FindString(block, index) : StringPlace{nullptr, 0};
    return {found.units, found.length};
}

int WINAPI LoadStringW(HINSTANCE module, UINT id, LPWSTR buffer, int capacity)
{
    CheckBuffer(buffer, 1);
    if (buffer == nullptr)
    {
        return 0;
    }
    WORD const number = static_cast<WORD>(id);
    WORD const block = static_cast<WORD>((number >> 4) + 1);
    StringResource const found = FindStringResource(module, block, number & 15);
    if (found.units == nullptr)
    {
        FindAny(module, RT_STRING, MAKEINTRESOURCEW(block), 0); // which says what is missing
        return 0;
    }
    if (capacity == 0)
    {
        std::memcpy(static_cast<void *>(buffer), &found.units, sizeof(found.units));
        return static_cast<int>(found.length);
    }
    std::size_t const copied = std::min(found.length, static_cast<std::size_t>(std::max(capacity, 1) - 1));
    CopyToCaller(buffer, found.units, copied * sizeof(WCHAR));
    buffer[copied] = 0;
    return static_cast<int>(copied);
}
