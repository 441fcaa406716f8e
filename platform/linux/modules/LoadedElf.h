#pragma once

// What the system's loader has put into this process.

#include <cstdint>
#include <optional>

#include <elf.h>
#include <link.h>

#include <kvcore/platform/include/basetypes.h>

namespace kv::platform
{

/// A library, or the program, as the system's loader knows it.
struct LoadedElf
{
    std::uintptr_t base;
    std::uintptr_t end;
    link_map * map;
};

/// The one that holds an address. Takes no lock: it may be asked from a signal handler.
inline std::optional<LoadedElf> FindElf(void const * address) noexcept
{
    dl_find_object found;
    if (_dl_find_object(const_cast<void *>(address), &found) != 0)
    {
        return std::nullopt;
    }
    return LoadedElf{
        reinterpret_cast<std::uintptr_t>(found.dlfo_map_start), reinterpret_cast<std::uintptr_t>(found.dlfo_map_end),
        found.dlfo_link_map};
}

/// The program headers of a loaded module, as they stand in its first page.
struct ProgramHeaders
{
    ElfW(Phdr) const * first;
    std::size_t count;

    ElfW(Phdr) const * begin() const noexcept
    {
        return first;
    }
    ElfW(Phdr) const * end() const noexcept
    {
        return first + count;
    }
};

/// None if the module was linked so that its first page does not begin with the headers.
inline ProgramHeaders HeadersOf(LoadedElf const & module) noexcept
{
    constexpr std::size_t page = 4096;
    auto const & header = *reinterpret_cast<ElfW(Ehdr) const *>(module.base);
    bool const usable = __builtin_memcmp(header.e_ident, ELFMAG, SELFMAG) == 0 &&
        header.e_phentsize == sizeof(ElfW(Phdr)) && header.e_phoff % alignof(ElfW(Phdr)) == 0 &&
        header.e_phoff <= page && header.e_phnum <= (page - header.e_phoff) / sizeof(ElfW(Phdr));
    return usable ? ProgramHeaders{reinterpret_cast<ElfW(Phdr) const *>(module.base + header.e_phoff), header.e_phnum}
                  : ProgramHeaders{nullptr, 0};
}

} // namespace kv::platform
