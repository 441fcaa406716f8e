#include <kvcore/frame/ModuleBase.h>

#include <algorithm>
#include <cstring>
#include <string_view>
#include <utility>

#include <kvcore/files/File.h>
#include <kvcore/platform/StringResources.h>
#include <kvcore/platform/win32.h>

// What a module is and from where its resources come. Its dialogs, and what it does for the process, stand in
// ModuleDialogs.cpp and ModuleServices.cpp.

namespace
{

constexpr WCHAR const * pictureFile = TEXT("QuorvexRes.bir");

/// The switch for those who build language files: with the value "1" any version will do.
bool IsVersionCheckOff()
{
    WCHAR value[3] = {};
    return GetEnvironmentVariableW(TEXT("KVCORE_NOLANGVERCHECK"), value, 3) == 1 && value[0] == '1';
}

bool IsPictureType(WCHAR const * type)
{
    if (IS_INTRESOURCE(type))
    {
        ULONG_PTR const number = reinterpret_cast<ULONG_PTR>(type);
        return number >= 1 && number <= 3; // RT_CURSOR, RT_BITMAP, RT_ICON
    }
    return std::basic_string_view<WCHAR>(type) == TEXT("PICTURE");
}

/// A file that is there for its resources: it is mapped, and nothing in it ever runs, whatever has been put in its
/// place.
HINSTANCE LoadResources(String const & path)
{
    return LoadLibraryExW(path.c_str(), nullptr, LOAD_LIBRARY_AS_DATAFILE);
}

/// The resource in one source.
HGLOBAL LoadFrom(HINSTANCE source, unsigned int id, WCHAR const * type, DWORD * size)
{
    if (id == 0)
    {
        return nullptr;
    }
    HRSRC const found = FindResourceW(source, MAKEINTRESOURCEW(id & 0xFFFF), type);
    if (found == nullptr)
    {
        return nullptr;
    }
    if (size != nullptr)
    {
        *size = SizeofResource(source, found);
    }
    return ::LoadResource(source, found);
}

} // namespace

ModuleBase::ModuleBase() : instance(), languageInstance(), pictureInstance(), ignoresLanguage(false)
{
    if (language == 0)
    {
        language = GetSystemDefaultLangID();
    }
}

ModuleBase::~ModuleBase()
{
    FreeLanguage();
    if (pictureInstance != nullptr)
    {
        FreeLibrary(pictureInstance); // Kept: whatever it is
    }
}

void ModuleBase::OnInit() {}

void ModuleBase::OnFree() {}

bool ModuleBase::GetLanguageDLLName(unsigned short, String &)
{
    return false;
}

void ModuleBase::Init(HINSTANCE newInstance)
{
    instance = languageInstance = pictureInstance = newInstance;
    modules.push_back(this);
    LoadPictures();
    LoadLanguage();
    OnInit();
}

void ModuleBase::Free()
{
    OnFree();
    modules.remove(this);
}

std::list<ModuleBase *> const & ModuleBase::GetModules()
{
    return modules;
}

ModuleBase * ModuleBase::GetModule(String const & path)
{
    auto const found = std::find_if(
        modules.begin(), modules.end(),
        [&path](ModuleBase const * module) { return WString(module->GetPath()) == WString(path); });
    return found != modules.end() ? *found : nullptr;
}

/// Every module loads the shared file for itself.
void ModuleBase::LoadPictures()
{
    pictureInstance = LoadResources(File::MakePath(GetDirectory(), pictureFile));
    if (pictureInstance == nullptr)
    {
        pictureInstance = LoadResources(pictureFile);
    }
    if (pictureInstance == nullptr)
    {
        pictureInstance = instance;
    }
}

namespace
{

/// What is asked for the name of a language file, in this order.
bool NameLanguageFile(ILanguageDLLName * names, ModuleBase & module, unsigned short language, String & path)
{
    return (names != nullptr && names->GetLanguageDLLName(language, path)) || module.GetLanguageDLLName(language, path);
}

String VersionText(DWORD high, DWORD low)
{
    return String::FromFormat(
        TEXT("%i.%i.%i.%i"), int(high >> 16), int(high & 0xFFFF), int(low >> 16), int(low & 0xFFFF));
}

} // namespace

void ModuleBase::LoadLanguage()
{
    languageInstance = instance;
    String path = GetPath();
    if (!NameLanguageFile(languageNames, *this, language, path))
    {
        return;
    }
    HINSTANCE const loaded = LoadResources(path);
    if (loaded == nullptr)
    {
        return;
    }
    if (IsVersionCheckOff() || HasVersionOf(path))
    {
        languageInstance = loaded;
    }
    else
    {
        FreeLibrary(loaded);
    }
}

/// Whether a language file has the module's product version, all four parts of it. Tells the user if not.
bool ModuleBase::HasVersionOf(String const & languagePath) const
{
    DWORD ownHigh, ownLow, high, low, ignored;
    GetModuleVersion(instance, ownHigh, ownLow, ignored, ignored);
    GetModuleVersion(languagePath, high, low, ignored, ignored);
    if (ownHigh == high && ownLow == low)
    {
        return true;
    }
    String const text = String::FromFormat(
        TEXT("The version of the language file '%s' (%s) does not match the application's version (%s).\n"
             "The application will use the default language."),
        languagePath.c_str(), VersionText(high, low).c_str(), VersionText(ownHigh, ownLow).c_str());
    MessageBoxW(nullptr, text.c_str(), TEXT("Warning"), MB_ICONWARNING);
    return false;
}

void ModuleBase::FreeLanguage()
{
    if (languageInstance != instance)
    {
        FreeLibrary(languageInstance);
    }
}

unsigned short ModuleBase::GetLanguage()
{
    return language;
}

void ModuleBase::SetLanguage(unsigned short newLanguage, ILanguageDLLName * names)
{
    language = newLanguage;
    languageNames = names;
    for (ModuleBase * const module : modules)
    {
        module->FreeLanguage();
        module->LoadLanguage();
    }
}

HINSTANCE ModuleBase::LanguageSource() const
{
    return ignoresLanguage ? instance : languageInstance;
}

void * ModuleBase::LoadResource(unsigned int id, WCHAR const * type, DWORD * size) const
{
    if (IsPictureType(type))
    {
        return LoadFrom(pictureInstance != nullptr ? pictureInstance : instance, id, type, size);
    }
    return LoadFrom(LanguageSource(), id, type, size);
}

String ModuleBase::LoadStringW(unsigned int id) const
{
    return LoadStringW(LanguageSource(), id);
}

namespace
{

/// A text that may lie at any address, and nearly always lies at an even one.
String Text(kv::platform::StringResource const & found)
{
    if (reinterpret_cast<ULONG_PTR>(found.units) % alignof(WCHAR) == 0)
    {
        return String(WString(static_cast<WCHAR const *>(found.units), found.length));
    }
    WString text(found.length, 0);
    std::memcpy(text.data(), found.units, found.length * sizeof(WCHAR));
    return String(std::move(text));
}

} // namespace

String ModuleBase::LoadStringW(HINSTANCE source, unsigned int id)
{
    constexpr unsigned stringsInBlock = 16;
    WORD const block = static_cast<WORD>(id / stringsInBlock + 1);
    kv::platform::StringResource const found = kv::platform::FindStringResource(source, block, id % stringsInBlock);
    return id == 0 || found.units == nullptr ? String() : Text(found);
}

HACCEL ModuleBase::LoadAcceleratorsFromResource(unsigned int id)
{
    return LoadAcceleratorsW(LanguageSource(), MAKEINTRESOURCEW(id));
}

ModuleBase::Procedure ModuleBase::GetProcedure(std::string const & name) const
{
    return reinterpret_cast<Procedure>(reinterpret_cast<void *>(GetProcAddress(instance, name.c_str())));
}

HINSTANCE ModuleBase::LocalLoadLibrary(String const & name)
{
    return LoadLibraryW(File::MakePath(GetDirectory(), name).c_str());
}

String ModuleBase::GetPath() const
{
    return GetPath(instance);
}

String ModuleBase::GetPath(HINSTANCE module)
{
    // No call tells the length beforehand: a buffer that is filled to its end may be too short.
    WString path(260, 0);
    for (;;)
    {
        DWORD const length = GetModuleFileNameW(module, path.data(), DWORD(path.size()));
        if (length < path.size())
        {
            path.resize(length);
            return String(path);
        }
        path.resize(2 * path.size() + 260);
    }
}

String ModuleBase::GetDirectory() const
{
    return File::GetDirname(GetPath());
}

String ModuleBase::GetFilename() const
{
    return File::GetBasename(GetPath(), String());
}

String ModuleBase::GetDisplayName() const
{
    return !displayName.empty()      ? displayName
        : !globalDisplayName.empty() ? globalDisplayName
                                     : File::GetFileTitleW(GetPath());
}

void ModuleBase::SetDisplayName(String const & name)
{
    displayName = name;
}

void ModuleBase::SetGlobalDisplayName(String const & name)
{
    globalDisplayName = name;
}

String ModuleBase::CreateResourceURL(unsigned int id, WCHAR const * type)
{
    WCHAR url[260] = {};
    _snwprintf(
        url, std::size(url) - 1, TEXT("res://%s/%i/%i"), GetPath().c_str(), int(reinterpret_cast<ULONG_PTR>(type)),
        int(id));
    return String(url);
}
