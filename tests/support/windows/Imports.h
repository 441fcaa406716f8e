#pragma once

// The library's table of imported functions, in which a test puts its own in place of the system's.

#include <cstring>
#include <span>

#include <kvcore/platform/win32.h>

namespace kv::test
{

struct ReplacedImport
{
    char const * name;
    void * own;
};

namespace detail
{

template <class T>
T * At(HMODULE module, DWORD offset)
{
    return reinterpret_cast<T *>(reinterpret_cast<char *>(module) + offset);
}

inline void
Replace(HMODULE module, IMAGE_IMPORT_DESCRIPTOR const & imported, std::span<ReplacedImport const> replacements)
{
    auto * names = At<IMAGE_THUNK_DATA>(module, imported.OriginalFirstThunk);
    auto * functions = At<IMAGE_THUNK_DATA>(module, imported.FirstThunk);
    for (; names->u1.AddressOfData != 0; ++names, ++functions)
    {
        if (IMAGE_SNAP_BY_ORDINAL(names->u1.Ordinal))
        {
            continue;
        }
        auto const * const byName = At<IMAGE_IMPORT_BY_NAME>(module, static_cast<DWORD>(names->u1.AddressOfData));
        for (ReplacedImport const & replacement : replacements)
        {
            if (std::strcmp(reinterpret_cast<char const *>(byName->Name), replacement.name) == 0)
            {
                DWORD before = 0;
                VirtualProtect(functions, sizeof(*functions), PAGE_READWRITE, &before);
                functions->u1.Function = reinterpret_cast<ULONG_PTR>(replacement.own);
                VirtualProtect(functions, sizeof(*functions), before, &before);
            }
        }
    }
}

} // namespace detail

inline void ReplaceImports(std::span<ReplacedImport const> replacements)
{
    HMODULE const module = GetModuleHandleW(L"libkvcore.dll");
    auto const * const dos = detail::At<IMAGE_DOS_HEADER>(module, 0);
    auto const * const headers = detail::At<IMAGE_NT_HEADERS>(module, static_cast<DWORD>(dos->e_lfanew));
    IMAGE_DATA_DIRECTORY const & imports = headers->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_IMPORT];
    for (auto const * next = detail::At<IMAGE_IMPORT_DESCRIPTOR>(module, imports.VirtualAddress); next->Name != 0;
         ++next)
    {
        detail::Replace(module, *next, replacements);
    }
}

} // namespace kv::test
