#include "Modules.h"

#include <atomic>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <map>
#include <mutex>
#include <new>

#include <dlfcn.h>
#include <sys/auxv.h>
#include <unistd.h>

#include <kvcore/platform/ModulePaths.h>
#include <kvcore/platform/include/errors.h>
#include <kvcore/platform/include/libloaderapi.h>
#include <kvcore/platform/include/memoryapi.h>
#include <kvcore/platform/linux/errors/ErrnoErrors.h>
#include <kvcore/platform/linux/memory/Allocations.h>
#include <kvcore/platform/linux/memory/CallerMemory.h>
#include <kvcore/platform/linux/paths/NativeNames.h>
#include <kvcore/platform/linux/paths/NativePath.h>
#include <kvcore/platform/linux/paths/Win32Path.h>

#include "LoadedElf.h"

namespace kv::platform
{

namespace
{

constexpr unsigned asData = LOAD_LIBRARY_AS_DATAFILE | LOAD_LIBRARY_AS_DATAFILE_EXCLUSIVE;
constexpr unsigned asImage = LOAD_LIBRARY_AS_IMAGE_RESOURCE;

/// A file that is mapped for its resources.
struct FileModule
{
    MappedFile file;
    WString path;
    /// The lowest bits of its handle: 0 for a module by its own right, 1 or 2 for data.
    unsigned mark;
    unsigned count;
};

/// A library that was loaded through this layer: how often, and what the system's loader calls it.
struct LoadedLibrary
{
    void * loader;
    unsigned count;
    bool pinned;
};

struct Registry
{
    std::mutex mutex;
    std::map<std::uintptr_t, FileModule> files;
    std::map<std::uintptr_t, LoadedLibrary> libraries;
    std::map<std::uintptr_t, std::unique_ptr<ResourceDirectory>> resources;
};

/// Never destroyed: modules are freed by the destructors of other statics, too.
Registry & TheRegistry()
{
    static Registry & registry = *new Registry;
    return registry;
}

/// Counted up when a module goes, whose address another one may get.
std::atomic<unsigned> departures{0};

HMODULE HandleOf(std::uintptr_t base, unsigned mark = 0) noexcept
{
    return reinterpret_cast<HMODULE>(base | mark);
}

HMODULE Fail(DWORD error) noexcept
{
    SetLastError(error);
    return nullptr;
}

/// The library or program whose handle this is.
std::optional<LoadedElf> ElfOf(HMODULE module) noexcept
{
    std::uintptr_t const base = reinterpret_cast<std::uintptr_t>(module);
    auto found = FindElf(module);
    return found && found->base == base ? found : std::nullopt;
}

} // namespace

HMODULE ProgramModule() noexcept
{
    static HMODULE const program = []
    {
        auto const found = FindElf(reinterpret_cast<void *>(getauxval(AT_PHDR)));
        return found ? HandleOf(found->base) : nullptr;
    }();
    return program;
}

std::string PathOfElf(void const * base)
{
    if (base == ProgramModule())
    {
        char path[PATH_MAX];
        ssize_t const length = readlink("/proc/self/exe", path, sizeof(path));
        return length > 0 ? std::string(path, static_cast<std::size_t>(length)) : std::string();
    }
    auto const module = FindElf(base);
    std::string path = module && module->map->l_name != nullptr ? module->map->l_name : "";
    if (path.find('/') == std::string::npos)
    {
        return {}; // what the kernel itself lends to every process
    }
    // What a relative path meant when the loader took it, only the kernel still knows.
    return path.front() == '/' ? path : MappedPathAt(reinterpret_cast<std::uintptr_t>(base));
}

void ForEachMappedModule(std::function<void(std::uintptr_t base, std::size_t size, WString const & path)> const & visit)
{
    Registry & registry = TheRegistry();
    std::lock_guard const guard(registry.mutex);
    for (auto const & [base, module] : registry.files)
    {
        if (module.mark == 0)
        {
            visit(base, module.file.Content().size(), module.path);
        }
    }
}

// Loading

namespace
{

DWORD LoaderError() noexcept
{
    char const * const text = dlerror();
    if (text == nullptr)
    {
        return ERROR_MOD_NOT_FOUND;
    }
    return std::strstr(text, "undefined symbol") != nullptr         ? ERROR_PROC_NOT_FOUND
        : std::strstr(text, "cannot open shared object") != nullptr ? ERROR_MOD_NOT_FOUND
                                                                    : ERROR_BAD_EXE_FORMAT;
}

/// What the system's loader has opened, counted under its address.
HMODULE Register(void * loader)
{
    auto const * const map = static_cast<link_map *>(loader);
    auto const module = FindElf(map->l_ld);
    if (!module)
    {
        dlclose(loader);
        return Fail(ERROR_BAD_EXE_FORMAT);
    }
    Registry & registry = TheRegistry();
    std::lock_guard const guard(registry.mutex);
    LoadedLibrary & library = registry.libraries[module->base];
    library.loader = loader;
    ++library.count;
    addressSpaceChanges.fetch_add(1, std::memory_order_release);
    return HandleOf(module->base);
}

HMODULE LoadElf(char const * native)
{
    void * const loader = dlopen(native, RTLD_NOW | RTLD_LOCAL);
    return loader != nullptr ? Register(loader) : Fail(LoaderError());
}

bool IsReadable(MappedFile const & file, ResourceDirectory & resources)
{
    bool const readable = resources.ReadPe(file.Content()) || resources.ReadElf(file.Content());
    if (readable)
    {
        resources.Finish();
    }
    return readable;
}

/// A file that is mapped is one module however often it is loaded, unless once as data and once not.
HMODULE LoadFile(char const * native, unsigned mark)
{
    MappedFile file;
    if (!file.Map(native))
    {
        return nullptr;
    }
    auto resources = std::make_unique<ResourceDirectory>();
    if (!IsReadable(file, *resources))
    {
        return Fail(ERROR_BAD_EXE_FORMAT);
    }
    Registry & registry = TheRegistry();
    std::lock_guard const guard(registry.mutex);
    for (auto & [base, module] : registry.files)
    {
        if (module.file.Identity() == file.Identity() && module.file.Content().size() == file.Content().size() &&
            module.mark == mark)
        {
            ++module.count;
            return HandleOf(base, mark);
        }
    }
    std::uintptr_t const base = reinterpret_cast<std::uintptr_t>(file.Content().data());
    std::uintptr_t const end = PageCeiling(base + file.Content().size());
    registry.resources.insert_or_assign(base, std::move(resources));
    {
        Allocations & allocations = TheAllocations();
        std::lock_guard const allocationsGuard(allocations.mutex);
        allocations.byBase.insert_or_assign(base, Allocation{end, PAGE_READONLY, MEM_IMAGE, {{base, end}}});
    }
    WString path = Win32PathOf(native, std::strlen(native));
    registry.files.emplace(base, FileModule{std::move(file), std::move(path), mark, 1});
    addressSpaceChanges.fetch_add(1, std::memory_order_release);
    return HandleOf(base, mark);
}

/// A file with a whole path.
HMODULE LoadPath(char const * native, unsigned mark)
{
    FileFormat format = FileFormat::Unknown;
    if (!ReadFormat(native, format))
    {
        return nullptr;
    }
    if (format == FileFormat::Unknown)
    {
        return Fail(ERROR_BAD_EXE_FORMAT);
    }
    return format == FileFormat::Elf && mark == 0 ? LoadElf(native) : LoadFile(native, mark);
}

/// What the system's loader finds, and in the same places a file that is no library of this system's.
HMODULE LoadBareName(std::string const & native)
{
    HMODULE const loaded = LoadElf(native.c_str());
    if (loaded != nullptr)
    {
        return loaded;
    }
    DWORD const error = GetLastError();
    std::string const path = FindInLibraryFolders(native);
    FileFormat format = FileFormat::Unknown;
    bool const isForeign = !path.empty() && ReadFormat(path.c_str(), format) && format == FileFormat::Pe;
    return isForeign ? LoadFile(path.c_str(), 0) : Fail(error);
}

/// This layer itself, which stands in for several of Windows' libraries.
HMODULE OwnModule() noexcept
{
    auto const own = FindElf(reinterpret_cast<void const *>(&TheRegistry));
    return own ? HandleOf(own->base) : Fail(ERROR_MOD_NOT_FOUND);
}

} // namespace

} // namespace kv::platform

using namespace kv::platform;

HMODULE WINAPI LoadLibraryW(LPCWSTR name)
{
    return LoadLibraryExW(name, nullptr, 0);
}

HMODULE WINAPI LoadLibraryExW(LPCWSTR name, HANDLE, DWORD flags)
try
{
    CheckText(name);
    constexpr DWORD known = asData | asImage | DONT_RESOLVE_DLL_REFERENCES | LOAD_WITH_ALTERED_SEARCH_PATH;
    if (name == nullptr || (flags & ~known) != 0)
    {
        return Fail(ERROR_INVALID_PARAMETER);
    }
    unsigned const mark = (flags & asImage) != 0 ? 2 : (flags & asData) != 0 ? 1 : 0;
    if (mark == 0 && !HasDirectory(name) && IsSystemModule(name))
    {
        return OwnModule();
    }
    std::string native;
    if (!FindModuleFile(name, mark == 0 ? ModuleUse::Code : ModuleUse::Data, native))
    {
        return nullptr;
    }
    return native.front() == '/' ? LoadPath(native.c_str(), mark) : LoadBareName(native);
}
catch (std::bad_alloc const &)
{
    return Fail(ERROR_NOT_ENOUGH_MEMORY);
}

// Freeing

namespace
{

/// True if the handle was one of a mapped file's. The file itself goes when `last` does.
bool FreeFile(Registry & registry, HMODULE module, std::unique_ptr<ResourceDirectory> & resources, MappedFile & last)
{
    auto const found = registry.files.find(AddressOf(module));
    if (found == registry.files.end() || HandleOf(found->first, found->second.mark) != module)
    {
        return false;
    }
    if (--found->second.count == 0)
    {
        departures.fetch_add(1, std::memory_order_release);
        addressSpaceChanges.fetch_add(1, std::memory_order_release);
        resources = std::move(registry.resources[found->first]);
        registry.resources.erase(found->first);
        Allocations & allocations = TheAllocations();
        std::lock_guard const guard(allocations.mutex);
        allocations.byBase.erase(found->first);
        last = std::move(found->second.file);
        registry.files.erase(found);
    }
    return true;
}

/// The library's index of resources is dropped before the library, whose address may be another's afterwards; if
/// somebody else holds the library, the index is as good as before and goes back, since callers may have got something
/// out of it.
void CloseLibrary(Registry & registry, std::uintptr_t base, void * loader, std::unique_ptr<ResourceDirectory> resources)
{
    auto const * const dynamic = static_cast<link_map *>(loader)->l_ld;
    dlclose(loader);
    addressSpaceChanges.fetch_add(1, std::memory_order_release);
    auto const still = FindElf(reinterpret_cast<void const *>(base));
    if (resources != nullptr && still && still->base == base && still->map == loader && still->map->l_ld == dynamic)
    {
        std::lock_guard const guard(registry.mutex);
        if (!registry.resources.try_emplace(base, std::move(resources)).second)
        {
            // Somebody has asked meanwhile and has got a second one: both may be in use.
            static_cast<void>(resources.release());
        }
    }
}

} // namespace

BOOL WINAPI FreeLibrary(HMODULE module)
{
    if (module == nullptr)
    {
        return FailWith(ERROR_INVALID_HANDLE);
    }
    Registry & registry = TheRegistry();
    std::unique_ptr<ResourceDirectory> resources;
    MappedFile last;
    void * loader = nullptr;
    std::uintptr_t const base = reinterpret_cast<std::uintptr_t>(module);
    {
        std::lock_guard const guard(registry.mutex);
        if (FreeFile(registry, module, resources, last))
        {
            return TRUE;
        }
        auto const found = registry.libraries.find(base);
        if (found != registry.libraries.end() && !found->second.pinned)
        {
            loader = found->second.loader;
            if (--found->second.count == 0)
            {
                registry.libraries.erase(found);
                departures.fetch_add(1, std::memory_order_release);
                auto const index = registry.resources.find(base);
                if (index != registry.resources.end())
                {
                    resources = std::move(index->second);
                    registry.resources.erase(index);
                }
            }
        }
    }
    if (loader != nullptr)
    {
        CloseLibrary(registry, base, loader, std::move(resources));
        return TRUE;
    }
    return ElfOf(module) ? TRUE : FailWith(ERROR_MOD_NOT_FOUND);
}

// Looking up

namespace
{

/// A symbol as the system's loader finds it. It is asked by a handle of its own making: it cannot search what the
/// program was started with before somebody has opened that.
void * FindSymbol(LoadedElf const & module, char const * name) noexcept
{
    bool const isProgram = module.base == reinterpret_cast<std::uintptr_t>(ProgramModule());
    void * const loader = dlopen(isProgram ? nullptr : module.map->l_name, RTLD_LAZY | RTLD_NOLOAD);
    if (loader == nullptr)
    {
        return nullptr;
    }
    void * const symbol = dlsym(loader, name);
    dlclose(loader);
    return symbol;
}

} // namespace

FARPROC WINAPI GetProcAddress(HMODULE module, LPCSTR name)
{
    CheckText(IS_INTRESOURCE(name) ? nullptr : name);
    HMODULE const asked = module != nullptr ? module : ProgramModule();
    auto const elf = ElfOf(asked);
    if (!elf)
    {
        Registry & registry = TheRegistry();
        std::lock_guard const guard(registry.mutex);
        SetLastError(registry.files.contains(AddressOf(asked)) ? ERROR_PROC_NOT_FOUND : ERROR_MOD_NOT_FOUND);
        return nullptr;
    }
    void * const symbol = IS_INTRESOURCE(name) || *name == '\0' ? nullptr : FindSymbol(*elf, name);
    // The system's search goes on in the libraries that the module needs; what is found there is not the module's.
    auto const owner = symbol != nullptr ? FindElf(symbol) : std::nullopt;
    if (!owner || owner->base != elf->base)
    {
        SetLastError(ERROR_PROC_NOT_FOUND);
        return nullptr;
    }
    return reinterpret_cast<FARPROC>(symbol);
}

namespace
{

bool SamePath(WString const & left, WString const & right) noexcept
{
    return CompareNames(left.data(), left.size(), right.data(), right.size()) == 0;
}

/// Whether a module's path is what a name means: all of it, or for a bare name its last component.
bool IsNamed(WString const & path, WString const & name, bool bare)
{
    if (!bare)
    {
        return SamePath(path, name);
    }
    std::size_t const separator = path.find_last_of('\\');
    return SamePath(separator == WString::npos ? path : path.substr(separator + 1), name);
}

struct ElfSearch
{
    WString const & name;
    bool bare;
    std::uintptr_t found;
};

int VisitElf(dl_phdr_info * info, std::size_t, void * argument)
{
    ElfSearch & search = *static_cast<ElfSearch *>(argument);
    for (unsigned i = 0; i < info->dlpi_phnum; ++i)
    {
        if (info->dlpi_phdr[i].p_type == PT_LOAD)
        {
            std::uintptr_t const first = info->dlpi_addr + info->dlpi_phdr[i].p_vaddr;
            auto const module = FindElf(reinterpret_cast<void *>(first));
            std::string const native = module ? PathOfElf(reinterpret_cast<void *>(module->base)) : std::string();
            if (!native.empty() && IsNamed(Win32PathOf(native.data(), native.size()), search.name, search.bare))
            {
                search.found = module->base;
                return 1;
            }
            break;
        }
    }
    return 0;
}

/// The whole path of a name with a directory, or the bare name; with the ".so" that it means.
bool WholeName(WCHAR const * name, WString & whole, bool & bare)
{
    whole = ModuleName(name);
    bare = !HasDirectory(whole);
    std::size_t rootLength = 0;
    WString const relative = whole;
    return !whole.empty() && (bare || MakeFullPath(relative.c_str(), whole, rootLength));
}

HMODULE FindLoaded(WCHAR const * name)
{
    WString whole;
    bool bare = false;
    if (!WholeName(name, whole, bare))
    {
        return Fail(ERROR_MOD_NOT_FOUND);
    }
    if (bare && IsSystemModule(whole))
    {
        return OwnModule();
    }
    {
        Registry & registry = TheRegistry();
        std::lock_guard const guard(registry.mutex);
        for (auto const & [base, module] : registry.files)
        {
            if (module.mark == 0 && IsNamed(module.path, whole, bare))
            {
                return HandleOf(base);
            }
        }
    }
    ElfSearch search{whole, bare, 0};
    dl_iterate_phdr(VisitElf, &search);
    return search.found != 0 ? HandleOf(search.found) : Fail(ERROR_MOD_NOT_FOUND);
}

/// The module that an address lies in, data apart.
HMODULE FindHolder(void const * address)
{
    if (auto const elf = FindElf(address))
    {
        return HandleOf(elf->base);
    }
    std::uintptr_t const place = reinterpret_cast<std::uintptr_t>(address);
    Registry & registry = TheRegistry();
    std::lock_guard const guard(registry.mutex);
    auto file = registry.files.upper_bound(place);
    if (file != registry.files.begin())
    {
        --file;
        if (file->second.mark == 0 && place - file->first < file->second.file.Content().size())
        {
            return HandleOf(file->first);
        }
    }
    return Fail(ERROR_MOD_NOT_FOUND);
}

/// One load more of a module that is there, or one that is never taken back.
void Count(HMODULE module, bool pin)
{
    Registry & registry = TheRegistry();
    {
        std::lock_guard const guard(registry.mutex);
        auto const file = registry.files.find(AddressOf(module));
        if (file != registry.files.end())
        {
            file->second.count += pin ? 0x10000000 : 1;
            return;
        }
    }
    std::string const path = PathOfElf(module);
    void * const loader = module != ProgramModule() && !path.empty()
        ? dlopen(path.c_str(), RTLD_NOW | RTLD_NOLOAD | (pin ? RTLD_NODELETE : 0))
        : nullptr;
    if (loader != nullptr)
    {
        Register(loader);
        std::lock_guard const guard(registry.mutex);
        LoadedLibrary & library = registry.libraries[reinterpret_cast<std::uintptr_t>(module)];
        library.pinned = library.pinned || pin;
    }
}

} // namespace

HMODULE WINAPI GetModuleHandleW(LPCWSTR name)
try
{
    CheckText(name);
    return name == nullptr ? ProgramModule() : FindLoaded(name);
}
catch (std::bad_alloc const &)
{
    return Fail(ERROR_NOT_ENOUGH_MEMORY);
}

BOOL WINAPI GetModuleHandleExW(DWORD flags, LPCWSTR name, HMODULE * module)
try
{
    CheckText((flags & GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS) != 0 ? nullptr : name);
    CheckOutputs(module);
    constexpr DWORD unchanged = GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT;
    constexpr DWORD pin = GET_MODULE_HANDLE_EX_FLAG_PIN;
    constexpr DWORD byAddress = GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS;
    if (module == nullptr || (flags & ~(unchanged | pin | byAddress)) != 0 ||
        (flags & (unchanged | pin)) == (unchanged | pin))
    {
        return FailWith(ERROR_INVALID_PARAMETER);
    }
    *module = name == nullptr ? ProgramModule() : (flags & byAddress) != 0 ? FindHolder(name) : FindLoaded(name);
    if (*module == nullptr)
    {
        return FALSE;
    }
    if ((flags & unchanged) == 0)
    {
        Count(*module, (flags & pin) != 0);
    }
    return TRUE;
}
catch (std::bad_alloc const &)
{
    return FailWith(ERROR_NOT_ENOUGH_MEMORY);
}

namespace
{

/// The path of something that the loader has. It is asked for again and again, by the log for each of its lines: what
/// was found is kept for ever, and belongs to a library as long as the loader's record has the same name.
struct KnownPath
{
    link_map const * map;
    std::string name;
    WString path;
    KnownPath const * next;
};

std::atomic<KnownPath const *> knownPaths{nullptr};
std::atomic<unsigned> knownCount{0};

/// Programs that load and free libraries for ever would fill the memory.
constexpr unsigned mostKnown = 256;

/// A whole path: what a relative one means changes with the current directory.
bool CanBeKept(LoadedElf const & module, std::string const & native) noexcept
{
    return !native.empty() &&
        (module.base == reinterpret_cast<std::uintptr_t>(ProgramModule()) || native == module.map->l_name);
}

/// Copies as much of a path as there is room for, by the rules of GetModuleFileNameW.
DWORD CopyPath(std::basic_string_view<WCHAR> path, LPWSTR buffer, DWORD capacity)
{
    if (path.empty())
    {
        return static_cast<DWORD>(FailWith(ERROR_MOD_NOT_FOUND));
    }
    if (path.size() < capacity)
    {
        CopyToCaller(buffer, path.data(), path.size() * sizeof(WCHAR));
        buffer[path.size()] = 0;
        SetLastError(ERROR_SUCCESS);
        return static_cast<DWORD>(path.size());
    }
    if (capacity != 0)
    {
        CopyToCaller(buffer, path.data(), (capacity - 1) * sizeof(WCHAR));
        buffer[capacity - 1] = 0;
    }
    SetLastError(ERROR_INSUFFICIENT_BUFFER);
    return capacity;
}

char const * NameOf(LoadedElf const & module) noexcept
{
    return module.map->l_name != nullptr ? module.map->l_name : "";
}

KnownPath const * FindKnown(LoadedElf const & module) noexcept
{
    char const * const name = NameOf(module);
    KnownPath const * known = knownPaths.load(std::memory_order_acquire);
    auto const isIt = [&](KnownPath const & path)
    {
        bool const isProgram = path.name.empty() && *name == '\0';
        return path.map == module.map && (isProgram || std::strcmp(path.name.c_str(), name) == 0);
    };
    while (known != nullptr && !isIt(*known))
    {
        known = known->next;
    }
    return known;
}

/// Adds a path to those that are known; null if it cannot be kept or there are many.
KnownPath const * Keep(LoadedElf const & module, std::string const & native, WString const & path)
{
    if (!CanBeKept(module, native) || knownCount.fetch_add(1, std::memory_order_relaxed) >= mostKnown)
    {
        return nullptr;
    }
    auto * const added = new KnownPath{module.map, NameOf(module), path, knownPaths.load(std::memory_order_acquire)};
    while (!knownPaths.compare_exchange_weak(added->next, added, std::memory_order_release))
    {
    }
    return added;
}

DWORD CopyElfPath(LoadedElf const & module, LPWSTR buffer, DWORD capacity)
{
    if (KnownPath const * const known = FindKnown(module))
    {
        return CopyPath(known->path, buffer, capacity);
    }
    std::string const native = PathOfElf(reinterpret_cast<void *>(module.base));
    WString const path = native.empty() ? WString() : Win32PathOf(native.data(), native.size());
    Keep(module, native, path);
    return CopyPath(path, buffer, capacity);
}

} // namespace

std::basic_string_view<WCHAR> kv::platform::KeptModulePath(void const * address) noexcept
{
    auto const module = FindElf(address);
    if (!module)
    {
        return {};
    }
    KnownPath const * known = FindKnown(*module);
    if (known == nullptr)
    {
        DWORD const error = GetLastError();
        try
        {
            std::string const native = PathOfElf(reinterpret_cast<void *>(module->base));
            known = native.empty() ? nullptr : Keep(*module, native, Win32PathOf(native.data(), native.size()));
        }
        catch (std::bad_alloc const &)
        {
            // Then it is not to be had.
        }
        SetLastError(error);
    }
    return known != nullptr ? std::basic_string_view<WCHAR>(known->path) : std::basic_string_view<WCHAR>();
}

DWORD WINAPI GetModuleFileNameW(HMODULE module, LPWSTR buffer, DWORD capacity)
try
{
    CheckBuffer(buffer, capacity);
    HMODULE const asked = module != nullptr ? module : ProgramModule();
    if (auto const elf = ElfOf(asked))
    {
        return CopyElfPath(*elf, buffer, capacity);
    }
    WString path;
    {
        Registry & registry = TheRegistry();
        std::lock_guard const guard(registry.mutex);
        auto const file = registry.files.find(AddressOf(asked));
        bool const isModule = file != registry.files.end() && file->second.mark == 0 && HandleOf(file->first) == asked;
        path = isModule ? file->second.path : WString(); // what is loaded as data is no module, and has no name
    }
    return CopyPath(path, buffer, capacity);
}
catch (std::bad_alloc const &)
{
    return static_cast<DWORD>(FailWith(ERROR_NOT_ENOUGH_MEMORY));
}

// Resources of a module

namespace kv::platform
{

namespace
{

std::unique_ptr<ResourceDirectory> ReadLoaded(LoadedElf const & module)
{
    auto resources = std::make_unique<ResourceDirectory>();
    for (ElfW(Phdr) const & header : HeadersOf(module))
    {
        std::uintptr_t const begin = module.map->l_addr + header.p_vaddr;
        if (header.p_type == PT_NOTE && begin >= module.base && begin <= module.end &&
            header.p_memsz <= module.end - begin)
        {
            resources->ReadNotes(Bytes(reinterpret_cast<unsigned char const *>(begin), header.p_memsz));
        }
    }
    resources->Finish();
    return resources;
}

ResourceDirectory const * FindResources(HMODULE module)
{
    Registry & registry = TheRegistry();
    std::lock_guard const guard(registry.mutex);
    auto const known = registry.resources.find(AddressOf(module));
    if (known != registry.resources.end())
    {
        return known->second.get();
    }
    auto const elf = ElfOf(module);
    return elf ? registry.resources.emplace(elf->base, ReadLoaded(*elf)).first->second.get() : nullptr;
}

/// The module that a thread asked last: nearly always the one that it asks next.
struct LastAsked
{
    HMODULE module;
    ResourceDirectory const * resources;
    unsigned departures;
};

} // namespace

ResourceDirectory const * ResourcesOf(HMODULE module) noexcept
try
{
    [[gnu::tls_model("initial-exec")]] static constinit thread_local LastAsked last{nullptr, nullptr, 0};
    unsigned const gone = departures.load(std::memory_order_acquire);
    if (last.resources != nullptr && last.module == module && last.departures == gone)
    {
        return last.resources;
    }
    ResourceDirectory const * const found = FindResources(module != nullptr ? module : ProgramModule());
    if (found == nullptr || found->IsEmpty())
    {
        SetLastError(ERROR_RESOURCE_DATA_NOT_FOUND);
        return nullptr;
    }
    last = {module, found, gone};
    return found;
}
catch (std::bad_alloc const &)
{
    SetLastError(ERROR_NOT_ENOUGH_MEMORY);
    return nullptr;
}

namespace
{

bool FindAsItStands(WCHAR const * name, std::string & native)
{
    NativePath exact;
    bool const found = exact.Translate(name, Look::Existing);
    native.assign(found ? exact.CStr() : "", found ? exact.Length() : 0);
    return found;
}

/// A path goes as it stands, also without an extension: this is asked for files of all kinds. A bare name is first what
/// loading would take it for, so that both speak of one file, and a file of the current directory last.
bool FindResourceFile(WCHAR const * name, std::string & native)
{
    auto const findModule = [&] { return FindModuleFile(name, ModuleUse::Data, native) && native.front() == '/'; };
    return HasDirectory(name) ? FindAsItStands(name, native) || findModule()
                              : findModule() || FindAsItStands(name, native);
}

} // namespace

std::unique_ptr<ResourceFile> OpenResourceFile(WCHAR const * name)
{
    std::string native;
    if (!FindResourceFile(name, native))
    {
        SetLastError(ERROR_FILE_NOT_FOUND);
        return nullptr;
    }
    auto opened = std::make_unique<ResourceFile>();
    if (!opened->file.Map(native.c_str()))
    {
        return nullptr;
    }
    if (!IsReadable(opened->file, opened->resources))
    {
        SetLastError(ERROR_BAD_EXE_FORMAT);
        return nullptr;
    }
    return opened;
}

} // namespace kv::platform
