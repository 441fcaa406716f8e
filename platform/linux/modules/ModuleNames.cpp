#include "Modules.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <string_view>
#include <vector>

#include <dlfcn.h>
#include <unistd.h>

#include <kvcore/platform/include/errors.h>
#include <kvcore/platform/include/libloaderapi.h>
#include <kvcore/platform/linux/errors/ErrnoErrors.h>
#include <kvcore/platform/linux/paths/NativeNames.h>
#include <kvcore/platform/linux/paths/NativePath.h>
#include <kvcore/platform/linux/paths/Win32Path.h>

#include "LoadedElf.h"

namespace kv::platform
{

namespace
{

using WView = std::basic_string_view<WCHAR>;

std::size_t NameStart(WView path) noexcept
{
    std::size_t const separator = path.find_last_of(TEXT("\\/:"));
    return separator == WView::npos ? 0 : separator + 1;
}

bool Exists(WString const & path, std::string & native)
{
    NativePath translated;
    if (!translated.Translate(path.c_str(), Look::Existing))
    {
        return false;
    }
    native.assign(translated.CStr(), translated.Length());
    return true;
}

/// The program's folder with the separator.
WString ProgramFolder()
{
    std::string const program = PathOfElf(ProgramModule());
    WString folder = Win32PathOf(program.data(), program.size());
    folder.resize(NameStart(folder));
    return folder;
}

} // namespace

bool HasDirectory(WString const & name) noexcept
{
    return NameStart(name) != 0;
}

WString ModuleName(WCHAR const * name)
{
    WString full = name;
    std::size_t const start = NameStart(full);
    if (start == full.size())
    {
        return full;
    }
    if (full.back() == '.')
    {
        full.pop_back();
    }
    else if (full.find('.', start) == WString::npos)
    {
        full += TEXT(".so");
    }
    return full;
}

namespace
{

bool AreEqual(WView left, WView right) noexcept
{
    return CompareNames(left.data(), left.size(), right.data(), right.size()) == 0;
}

/// The name without ".dll", and without the ".so" that a name without an extension has got.
WView StemOf(WView name) noexcept
{
    constexpr WView extension = TEXT(".DLL");
    constexpr WView added = TEXT(".so");
    if (name.size() > extension.size() && AreEqual(name.substr(name.size() - extension.size()), extension))
    {
        name.remove_suffix(extension.size());
    }
    else if (name.size() > added.size() && name.ends_with(added))
    {
        name.remove_suffix(added.size());
    }
    return name;
}

} // namespace

bool IsSystemModule(WString const & name) noexcept
{
    static constexpr WView names[] = {TEXT("KERNEL32"), TEXT("USER32"),  TEXT("ADVAPI32"),
                                      TEXT("SHELL32"),  TEXT("SHLWAPI"), TEXT("OLE32"),
                                      TEXT("OLEAUT32"), TEXT("VERSION"), TEXT("WINMM")};
    WView const stem = StemOf(name);
    return std::any_of(std::begin(names), std::end(names), [&](WView known) { return AreEqual(stem, known); });
}

namespace
{

/// The module that is FAULTREP.DLL here. It lies beside this layer; a program that holds this layer itself may leave it
/// to the system's search.
std::string ReportModule()
{
    constexpr char file[] = "libfaultrep.so." KVPLATFORM_SOVERSION;
    Dl_info own = {};
    if (dladdr(reinterpret_cast<void const *>(&IsSystemModule), &own) == 0)
    {
        return file;
    }
    std::string beside = PathOfElf(own.dli_fbase);
    beside.resize(beside.rfind('/') + 1);
    beside += file;
    return access(beside.c_str(), F_OK) == 0 ? beside : std::string(file);
}

} // namespace

namespace
{

bool FailMissing(ModuleUse use) noexcept
{
    return FailWith(use == ModuleUse::Data ? ERROR_FILE_NOT_FOUND : ERROR_MOD_NOT_FOUND);
}

/// What the system's loader is asked by: this layer, whose own folders it then searches, too.
void * OpenOwnModule()
{
    auto const own = FindElf(reinterpret_cast<void const *>(&FindModuleFile));
    bool const isProgram = !own || reinterpret_cast<HMODULE>(own->base) == ProgramModule();
    return dlopen(isProgram ? nullptr : own->map->l_name, RTLD_LAZY | RTLD_NOLOAD);
}

} // namespace

std::string FindInLibraryFolders(std::string const & bareName)
{
    void * const loader = OpenOwnModule();
    Dl_serinfo size{};
    if (loader == nullptr || dlinfo(loader, RTLD_DI_SERINFOSIZE, &size) != 0)
    {
        return {};
    }
    std::vector<std::max_align_t> room(size.dls_size / sizeof(std::max_align_t) + 1);
    auto * const folders = reinterpret_cast<Dl_serinfo *>(room.data());
    std::memcpy(static_cast<void *>(folders), &size, sizeof(size));
    std::string found;
    bool const known = dlinfo(loader, RTLD_DI_SERINFO, folders) == 0;
    for (unsigned i = 0; known && found.empty() && i < folders->dls_cnt; ++i)
    {
        // A relative entry would mean the current directory, and so does an empty one.
        std::string const path = std::string(folders->dls_serpath[i].dls_name) + '/' + bareName;
        found = path.front() == '/' && path[1] != '/' && access(path.c_str(), F_OK) == 0 ? path : std::string();
    }
    dlclose(loader);
    return found;
}

bool FindModuleFile(WCHAR const * name, ModuleUse use, std::string & native)
{
    WString const full = ModuleName(name);
    if (full.empty())
    {
        return FailWith(ERROR_MOD_NOT_FOUND);
    }
    if (AreEqual(StemOf(full), TEXT("FAULTREP")))
    {
        native = ReportModule();
        return true;
    }
    if (HasDirectory(full))
    {
        // Of data the error tells whether the file or its folder is missing.
        return Exists(full, native) || (use == ModuleUse::Data ? false : FailMissing(use));
    }
    WString const folder = ProgramFolder();
    if (!folder.empty() && Exists(folder + full, native))
    {
        return true;
    }
    char text[maxNativeName + 1];
    std::size_t length = 0;
    if (!EncodeName(full.c_str(), full.size(), text, maxNativeName, length))
    {
        return FailMissing(use);
    }
    native.assign(text, length);
    if (use == ModuleUse::Data)
    {
        native = FindInLibraryFolders(native);
    }
    return native.empty() ? FailMissing(use) : true;
}

} // namespace kv::platform
