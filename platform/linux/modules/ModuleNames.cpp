#include "Modules.h"

#include <algorithm>
#include <string_view>

#include <dlfcn.h>
#include <unistd.h>

#include <kvcore/platform/include/errors.h>
#include <kvcore/platform/include/libloaderapi.h>
#include <kvcore/platform/linux/paths/NativeNames.h>
#include <kvcore/platform/linux/paths/NativePath.h>
#include <kvcore/platform/linux/paths/Win32Path.h>

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

bool FindModuleFile(WCHAR const * name, std::string & native)
{
    WString const full = ModuleName(name);
    if (full.empty())
    {
        SetLastError(ERROR_MOD_NOT_FOUND);
        return false;
    }
    if (AreEqual(StemOf(full), TEXT("FAULTREP")))
    {
        native = ReportModule();
        return true;
    }
    if (HasDirectory(full))
    {
        bool const found = Exists(full, native);
        if (!found)
        {
            SetLastError(ERROR_MOD_NOT_FOUND);
        }
        return found;
    }
    if (Exists(ProgramFolder() + full, native))
    {
        return true;
    }
    // The bare name is for the system's search; nothing of the current directory goes before what that finds.
    char text[maxNativeName + 1];
    std::size_t length = 0;
    if (!EncodeName(full.c_str(), full.size(), text, maxNativeName, length))
    {
        SetLastError(ERROR_MOD_NOT_FOUND);
        return false;
    }
    native.assign(text, length);
    return true;
}

} // namespace kv::platform
