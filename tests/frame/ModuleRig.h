#pragma once

// Modules with resources for the tests: see resources/ and the build's description of them.

#include <functional>
#include <string>

#include <kvcore/files/File.h>
#include <kvcore/frame/ModuleBase.h>
#include <kvcore/platform/win32.h>

/// The folder of the test's program, or one in it.
inline String ProgramFolder(String const & name = String())
{
    return File::MakePath(File::GetDirname(ModuleBase::GetPath(nullptr)), name);
}

/// With the shared file of pictures and language files beside it.
inline String FullFolder()
{
    return ProgramFolder(TEXT("framemodules"));
}

/// With the module alone in it.
inline String BareFolder()
{
    return ProgramFolder(TEXT("framealone"));
}

/// The module in one of the folders, loaded as long as this lives.
class LoadedModule
{
public:
    explicit LoadedModule(String const & folder)
        : handle(LoadLibraryW(File::MakePath(folder, TEXT("FrameModule")).c_str()))
    {
    }
    LoadedModule(LoadedModule const &) = delete;
    LoadedModule & operator=(LoadedModule const &) = delete;
    ~LoadedModule()
    {
        if (handle != nullptr)
        {
            FreeLibrary(handle);
        }
    }

    HINSTANCE const handle;
};

// The types of resources as wide names. The system's own macros are narrow where UNICODE is not defined.
inline WCHAR const * const cursorType = MAKEINTRESOURCEW(1);
inline WCHAR const * const bitmapType = MAKEINTRESOURCEW(2);
inline WCHAR const * const iconType = MAKEINTRESOURCEW(3);
inline WCHAR const * const dialogType = MAKEINTRESOURCEW(5);
inline WCHAR const * const rcDataType = MAKEINTRESOURCEW(10);

/// What a module of the suite is, with everything at hand.
class RigModule : public ModuleBase
{
public:
    using ModuleBase::Free;
    using ModuleBase::GetModules;
    using ModuleBase::ignoresLanguage;
    using ModuleBase::Init;
    using ModuleBase::instance;
    using ModuleBase::languageInstance;
    using ModuleBase::pictureInstance;

    void OnInit() override
    {
        course += "init ";
        wasListedAtInit = IsListed();
    }
    void OnFree() override
    {
        course += "free ";
        wasListedAtFree = IsListed();
    }
    bool GetLanguageDLLName(unsigned short wanted, String & path) override
    {
        course += "name ";
        return nameFile && nameFile(wanted, path);
    }

    bool IsListed() const
    {
        for (ModuleBase const * const module : GetModules())
        {
            if (module == this)
            {
                return true;
            }
        }
        return false;
    }

    /// The bytes of a resource, or "none".
    std::string Bytes(unsigned id, WCHAR const * type) const
    {
        DWORD size = 0;
        void * const found = LoadResource(id, type, &size);
        return found != nullptr ? std::string(static_cast<char const *>(LockResource(found)), size) : "none";
    }

    std::function<bool(unsigned short language, String & path)> nameFile;
    std::string course;
    bool wasListedAtInit = false;
    bool wasListedAtFree = false;
};

/// Sets what all modules share back to what it was.
class SharedSettings
{
public:
    SharedSettings() : language(ModuleBase::GetLanguage())
    {
        ModuleBase::GetDialogScalingFactors(x, y);
    }
    SharedSettings(SharedSettings const &) = delete;
    SharedSettings & operator=(SharedSettings const &) = delete;
    ~SharedSettings()
    {
        ModuleBase::SetLanguage(language, nullptr);
        ModuleBase::SetGlobalDisplayName(String());
        ModuleBase::SetDialogScalingFactors(x, y);
    }

private:
    unsigned short language;
    double x;
    double y;
};
