#pragma once

#include <list>
#include <string>

#include <kvcore/core/String.h>
#include <kvcore/frame/ObjectServices.h>
#include <kvcore/graphics/Geometry.h>
#include <kvcore/platform/export.h>
#include <kvcore/platform/types.h>

struct DialogTemplate;

/// Names the language file of a module, for whoever sets the language. The caller of SetLanguage owns the object.
class KVCORE_API ILanguageDLLName
{
public:
    /// Changes `path`, which holds the module's own path, to that of its file for `language`, and returns true; or
    /// returns false.
    virtual bool GetLanguageDLLName(unsigned short language, String & path) = 0;

protected:
    ~ILanguageDLLName() = default;
};

/// What a module of the suite, a program or a library, has of its own: its handle and its resources.
///
/// Each module owns one such object. It calls Init when it starts and Free when it ends. Resources come from one of
/// three sources, by their type alone: the module itself, a language file, or the shared file of pictures
/// ("QuorvexRes.bir"). There is no second try: what is missing in its source is missing. The two files are mapped as
/// data: no code in them ever runs.
///
/// Threads: the list of modules, the language and the scaling factors have no lock. Init, Free, SetLanguage and the
/// setters are for one thread at start and end. Reading resources is for any thread in between.
class KVCORE_API ModuleBase : public ObjectServices
{
public:
    /// Without handles, not in the list. The first one ever sets the process's language to the system's.
    ModuleBase();
    ModuleBase(ModuleBase const &) = delete;
    ModuleBase & operator=(ModuleBase const &) = delete;
    /// Frees the language file. Kept: also frees the picture source if that is the module itself, for want of the
    /// shared file: such a module loses one reference more than it took.
    virtual ~ModuleBase();

    /// Called at the end of Init and at the beginning of Free.
    virtual void OnInit();
    virtual void OnFree();
    /// Names the module's language file, as ILanguageDLLName does, if nobody else has. Here: none.
    virtual bool GetLanguageDLLName(unsigned short language, String & path);

    /// The resource `id` of a type, or null. Bitmaps, cursors, icons and "PICTURE" come from the picture source, all
    /// else from the language source. `size`, if given, receives its bytes. The result is the platform's, for
    /// LockResource, and is not freed. Named types are compared exactly.
    void * LoadResource(unsigned int id, WCHAR const * type, DWORD * size) const;
    /// A text of the string table in the language source. Empty if there is none, and for id 0.
    String LoadStringW(unsigned int id) const;
    /// Accelerators of the language source, or null.
    HACCEL LoadAcceleratorsFromResource(unsigned int id);

    /// A copy of a dialog resource with its places scaled by the factors, as a global memory handle that the caller
    /// frees; null if there is none.
    void * LoadDialog(unsigned int id);
    /// A copy of the dialog template in a global memory handle, scaled. The given handle stays the caller's. Null if it
    /// is no handle, or without memory.
    void * ScaleDialog(void * handle);
    /// Parses a dialog resource; `scaled` as LoadDialog gives it. False, and an empty `result`, if there is none.
    bool LoadDialogTemplate(unsigned int id, DialogTemplate & result, bool scaled);
    /// Where a dialog stands, in dialog units, unscaled; empty if there is none. In pixels it can only be told where
    /// the dialog can be made as a window of this process, and is empty too as long as it cannot.
    Rect GetDialogRect(unsigned int id, bool inPixels);

    using Procedure = int(CALLBACK *)();

    /// An exported function of the module, or null.
    Procedure GetProcedure(std::string const & name) const;
    /// Loads a library from the module's own folder; null on failure.
    HINSTANCE LocalLoadLibrary(String const & name);

    /// The module's path, its folder, its name with the extension.
    String GetPath() const;
    String GetDirectory() const;
    String GetFilename() const;
    /// The versions in the module's version block; zeros if there is none.
    void GetModuleVersion(DWORD & productMS, DWORD & productLS, DWORD & fileMS, DWORD & fileLS);
    /// The name for people: the module's own; else the process's; else the title of the file.
    String GetDisplayName() const;
    void SetDisplayName(String const & name);
    /// "res://path/type/id". At most 259 characters; the rest is cut.
    String CreateResourceURL(unsigned int id, WCHAR const * type);

    /// The first module whose path equals `path`, letter case included; null if there is none.
    static ModuleBase * GetModule(String const & path);
    /// The language of the process, as the platform numbers it.
    static unsigned short GetLanguage();
    /// Changes the language: each module in the list drops its language file and looks for that of the new language.
    /// `names`, which may be null, is asked first and has to live as long as it is set.
    static void SetLanguage(unsigned short language, ILanguageDLLName * names);
    static void SetGlobalDisplayName(String const & name);
    /// By what dialogs are scaled; 1 at start.
    static void SetDialogScalingFactors(double x, double y);
    static void GetDialogScalingFactors(double & x, double & y);

    /// A text of a module's string table. Empty if there is none, and for id 0.
    static String LoadStringW(HINSTANCE instance, unsigned int id);
    static String GetPath(HINSTANCE instance);
    /// The versions in a file's version block; zeros if there is none.
    static void
    GetModuleVersion(String const & path, DWORD & productMS, DWORD & productLS, DWORD & fileMS, DWORD & fileLS);
    static void
    GetModuleVersion(HINSTANCE instance, DWORD & productMS, DWORD & productLS, DWORD & fileMS, DWORD & fileLS);
    /// The module that holds an address, of code or data. Kept: any address gets the base of the memory that was taken
    /// together with it, which is a module only if GetPath knows it; null for an address without memory.
    static HINSTANCE GetHInstance(void const * address);
    /// Shows a message with buttons in the process's language. `type` and the result are the platform's. An `owner`
    /// that is no window is left out.
    static int MessageBoxW(HWND owner, WCHAR const * text, WCHAR const * caption, unsigned int type);
    /// A table of the modules that are loaded: address, product version and path, with CR LF line ends.
    static String GetProcessInformation();
    /// Ends the session: flags and reason as the platform numbers them. False if the right to do so cannot be had;
    /// otherwise true. Kept: also if the system then refuses.
    static bool ExecShutdown(unsigned int flags, unsigned int reason);

protected:
    /// Takes the module's handle, enters the list, loads the shared file and the language file, and calls OnInit.
    void Init(HINSTANCE newInstance);
    /// Calls OnFree and leaves the list. The handles stay.
    void Free();

    /// The modules of the process in the order of their Init.
    static std::list<ModuleBase *> const & GetModules();

    HINSTANCE instance;         ///< the module itself
    HINSTANCE languageInstance; ///< the language file, or the module
    HINSTANCE pictureInstance;  ///< the shared file, or the module
    bool ignoresLanguage;       ///< sends what is the language's to the module; for derived classes

private:
    HINSTANCE LanguageSource() const;
    void LoadPictures();
    void LoadLanguage();
    void FreeLanguage();
    bool HasVersionOf(String const & languagePath) const;

    String displayName;

    static std::list<ModuleBase *> modules;
    static String globalDisplayName;
    static unsigned short language;
    static ILanguageDLLName * languageNames;
    static double scalingX;
    static double scalingY;
};
