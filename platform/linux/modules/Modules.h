#pragma once

// The modules of this process: what the system's loader has, and what is mapped for its resources alone.

#include <cstdint>
#include <functional>
#include <memory>

#include <kvcore/platform/linux/modules/ModuleFiles.h>
#include <kvcore/platform/linux/resources/ResourceDirectory.h>
#include <kvcore/platform/types.h>

namespace kv::platform
{

/// The resources of a module, null being the program; null if it has none, with the last error set. They stay as long
/// as the module.
ResourceDirectory const * ResourcesOf(HMODULE module) noexcept;

/// The handle of the program.
HMODULE ProgramModule() noexcept;

/// The address that a handle stands for: without the marks of what is loaded as data.
inline std::uintptr_t AddressOf(HMODULE module) noexcept
{
    return reinterpret_cast<std::uintptr_t>(module) & ~std::uintptr_t{3};
}

/// The native path of the file of what the system's loader has at `base`; empty if it has no file. Throws
/// std::bad_alloc.
std::string PathOfElf(void const * base);

/// The native path of the file that the kernel has mapped at an address; empty if there is none. Throws std::bad_alloc.
std::string MappedPathAt(std::uintptr_t address);

/// Calls `visit` for each file that is mapped as a module by its own right, not as data: base, size, path. Throws what
/// that throws.
void ForEachMappedModule(
    std::function<void(std::uintptr_t base, std::size_t size, WString const & path)> const & visit);

/// The resources of a file that is not loaded, with the file itself; null with the last error set.
struct ResourceFile
{
    MappedFile file;
    ResourceDirectory resources;
};
std::unique_ptr<ResourceFile> OpenResourceFile(WCHAR const * name);

/// What a file is wanted for. What is wanted as data is never run.
enum class ModuleUse
{
    Code,
    Data,
};

/// The native path of a module that a name means, by the rules of LoadLibraryW: a path as it stands; a bare name in the
/// program's folder, then where the system's loader looks. The current directory is no place for a bare name, since
/// what others may have put there would run. For code that only the system's loader can find, the bare name itself.
/// False with the last error set. Throws std::bad_alloc.
bool FindModuleFile(WCHAR const * name, ModuleUse use, std::string & native);

/// The whole path of a file with that bare name in the folders that the system's loader searches; empty if there is
/// none. Throws std::bad_alloc.
std::string FindInLibraryFolders(std::string const & bareName);

/// Whether the name is one of Windows' own libraries that this layer stands in for.
bool IsSystemModule(WString const & name) noexcept;

/// The name with the ".so" that it means.
WString ModuleName(WCHAR const * name);

/// Whether `name` has a directory or a drive in it.
bool HasDirectory(WString const & name) noexcept;

} // namespace kv::platform
