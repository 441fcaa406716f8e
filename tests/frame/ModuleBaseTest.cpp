#include <kvcore/frame/ModuleBase.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <vector>

#include <gtest/gtest.h>

#include <frame/ModuleRig.h>
#include <kvcore/platform/NativePaths.h>
#include <support/ChildProgram.h>
#include <support/PlantedModule.h>
#include <support/SystemCalls.h>

namespace
{

using kv::test::SystemCalls;

class Modules : public testing::Test
{
protected:
    SharedSettings const settings;
};

using ModuleSources = Modules;
using ModuleLanguages = Modules;
using ModuleStrings = Modules;
using ModuleNames = Modules;
using ModuleProcess = Modules;

/// Whether somebody has a file loaded for its resources.
bool IsHeld(String const & path)
{
    HMODULE const module = LoadLibraryExW(path.c_str(), nullptr, LOAD_LIBRARY_AS_DATAFILE);
    EXPECT_NE(module, nullptr);
    EXPECT_TRUE(FreeLibrary(module));
    bool const isHeld = FreeLibrary(module) != FALSE;
    return isHeld;
}

/// The library sees this value of the switch for version checks; null is none.
void SetVersionCheck(SystemCalls & calls, WCHAR const * value);

TEST_F(Modules, HaveNothingBeforeTheirStart)
{
    RigModule const module;
    EXPECT_EQ(module.instance, nullptr);
    EXPECT_EQ(module.languageInstance, nullptr);
    EXPECT_EQ(module.pictureInstance, nullptr);
    EXPECT_FALSE(module.ignoresLanguage);
    EXPECT_FALSE(module.IsListed());
    EXPECT_NE(ModuleBase::GetLanguage(), 0) << "the system's, from the first module on";
}

TEST_F(Modules, AreListedFromTheirStartToTheirEnd)
{
    LoadedModule const loaded(FullFolder());
    ASSERT_NE(loaded.handle, nullptr);
    RigModule module;
    module.Init(loaded.handle);
    EXPECT_EQ(module.course, "name init ");
    EXPECT_TRUE(module.wasListedAtInit);
    EXPECT_EQ(RigModule::GetModules().back(), &module) << "in the order of their start";
    module.Free();
    EXPECT_EQ(module.course, "name init free ");
    EXPECT_TRUE(module.wasListedAtFree);
    EXPECT_FALSE(module.IsListed());
    EXPECT_EQ(module.instance, loaded.handle) << "handles stay";
    EXPECT_EQ(module.languageInstance, loaded.handle);
    EXPECT_NE(module.pictureInstance, nullptr);
}

TEST_F(Modules, OfTheLibraryItselfComesFirst)
{
    ModuleBase * const first = RigModule::GetModules().front();
    EXPECT_EQ(first->GetFilename().find(TEXT("libkvcore")), 0u);
    EXPECT_EQ(ModuleBase::GetModule(first->GetPath()), first);
}

TEST_F(Modules, AreFoundByTheirExactPath)
{
    LoadedModule const loaded(FullFolder());
    RigModule first;
    RigModule second;
    first.Init(loaded.handle);
    second.Init(loaded.handle);
    String const path = first.GetPath();
    EXPECT_EQ(ModuleBase::GetModule(path), &first) << "the first of two";
    EXPECT_EQ(ModuleBase::GetModule(path.UpperCase()), nullptr);
    EXPECT_EQ(ModuleBase::GetModule(path + TEXT("x")), nullptr);
    EXPECT_EQ(ModuleBase::GetModule(TEXT("")), nullptr);
    first.Free();
    EXPECT_EQ(ModuleBase::GetModule(path), &second);
    second.Free();
    EXPECT_EQ(ModuleBase::GetModule(path), nullptr);
}

TEST_F(Modules, ShareTheFileOfPicturesBesideThem)
{
    LoadedModule const loaded(FullFolder());
    RigModule module;
    module.Init(loaded.handle);
    module.Free();
    EXPECT_NE(module.pictureInstance, loaded.handle);
    EXPECT_EQ(module.Bytes(7, TEXT("PICTURE")), "shared picture");
}

/// Where the library that tells when it runs is put.
String Planted(kv::test::PlantedFolder const & folder, char const * name)
{
    folder.Plant(name);
    return folder.folder.Name(name);
}

TEST_F(Modules, RunNothingOfTheFilesThatTheyLoadForTheirResources)
{
    kv::test::PlantedFolder const planted;
    String const language = Planted(planted, "planted_de.lng");
    Planted(planted, "QuorvexRes.bir");
    std::filesystem::path const own =
        kv::platform::PathToNative(ModuleBase::GetPath(LoadedModule(BareFolder()).handle));
    std::filesystem::copy_file(own, planted.folder / own.filename());
    HINSTANCE const instance = LoadLibraryW(planted.folder.Name(own.filename().string()).c_str());
    ASSERT_NE(instance, nullptr);
    {
        SystemCalls calls;
        SetVersionCheck(calls, TEXT("1"));
        RigModule module;
        module.nameFile = [&language](unsigned short, String & path)
        {
            path = language;
            return true;
        };
        module.Init(instance);
        module.Free();
        EXPECT_NE(module.pictureInstance, instance) << "it was loaded";
        EXPECT_NE(module.languageInstance, instance) << "and so was this";
        EXPECT_EQ(module.Bytes(7, rcDataType), "none");
    }
    FreeLibrary(instance);
    EXPECT_FALSE(planted.TakeMark());
    HINSTANCE const code = LoadLibraryW(language.c_str());
    EXPECT_TRUE(planted.TakeMark()) << "or this test could not fail";
    FreeLibrary(code);
}

TEST_F(Modules, RunNothingOfTheCurrentDirectory)
{
    kv::test::PlantedFolder const planted;
    for (char const * const name : {"QuorvexRes.bir", "libfaultrep.so.0", "faultrep.so", "faultrep.dll"})
    {
        planted.Plant(name);
    }
    LoadedModule const loaded(BareFolder());
    ASSERT_NE(loaded.handle, nullptr);
    LoadLibraryW(ModuleBase::GetPath(loaded.handle).c_str()); // for the reference that the module's end may take
    bool isTaken = false;
    {
        RigModule module;
        module.Init(loaded.handle);
        module.Free();
#ifndef _WIN32 // whose search for data ends there
        EXPECT_EQ(module.pictureInstance, loaded.handle);
#endif
        isTaken = module.pictureInstance == loaded.handle;
    }
    if (!isTaken)
    {
        FreeLibrary(loaded.handle);
    }
    // A program from its start to its end, with its crash reporter.
    EXPECT_EQ(RunChildProgram("frame_child", {"application", "told=" + (planted.folder / "told").string()}), 7);
    EXPECT_FALSE(planted.TakeMark());
}

TEST_F(Modules, FreeThemselvesForWantOfTheFileOfPictures)
{
    String const path = File::MakePath(BareFolder(), TEXT("FrameModule"));
    HINSTANCE const instance = LoadLibraryW(path.c_str());
    ASSERT_NE(instance, nullptr);
    ASSERT_EQ(LoadLibraryW(path.c_str()), instance);
    {
        RigModule module;
        module.Init(instance);
        EXPECT_EQ(module.pictureInstance, instance);
        module.Free();
    }
    // Of the two references the module's end took one.
    EXPECT_FALSE(ModuleBase::GetPath(instance).empty());
    FreeLibrary(instance);
    EXPECT_TRUE(ModuleBase::GetPath(instance).empty());
}

/// The beginning of a resource: the tools that compile them know better what is behind a cursor's.
std::string Start(RigModule const & module, WCHAR const * type)
{
    return module.Bytes(7, type).substr(0, 4);
}

/// German from the module's own file.
bool NameGerman(unsigned short, String & path)
{
    path = File::MakePath(File::GetDirname(path), TEXT("FrameModule_de.lng"));
    return true;
}

TEST_F(ModuleSources, FollowFromTheTypeAlone)
{
    LoadedModule const loaded(FullFolder());
    RigModule module;
    module.nameFile = NameGerman;
    module.Init(loaded.handle);
    module.Free();
    for (WCHAR const * type : {cursorType, bitmapType, iconType})
    {
        EXPECT_EQ(Start(module, type), "shar");
    }
    EXPECT_EQ(module.Bytes(7, TEXT("PICTURE")), "shared picture");
    EXPECT_EQ(module.Bytes(7, TEXT("Picture")), "german picture") << "the name counts as it is written";
    EXPECT_EQ(module.Bytes(7, TEXT("P")), "none");
    EXPECT_EQ(module.Bytes(7, TEXT("KIND")), "german kind");
    EXPECT_EQ(module.Bytes(7, rcDataType), "german data");

    module.ignoresLanguage = true;
    EXPECT_EQ(module.Bytes(7, TEXT("PICTURE")), "shared picture");
    EXPECT_EQ(module.Bytes(7, TEXT("KIND")), "own kind");
    EXPECT_EQ(module.Bytes(7, rcDataType), "own data");
}

TEST_F(ModuleSources, AreNotTriedOneAfterTheOther)
{
    LoadedModule const loaded(FullFolder());
    RigModule module;
    module.nameFile = NameGerman;
    module.Init(loaded.handle);
    module.Free();
    EXPECT_EQ(module.Bytes(9, rcDataType), "none") << "the module alone has it";
    EXPECT_EQ(module.Bytes(8, bitmapType), "shared alone");
    EXPECT_EQ(module.Bytes(9, bitmapType), "none");
}

TEST_F(ModuleSources, AreTheModuleWithoutOtherFiles)
{
    LoadedModule const loaded(BareFolder());
    RigModule module;
    module.Init(loaded.handle);
    module.Free();
    EXPECT_EQ(module.Bytes(7, TEXT("PICTURE")), "own picture");
    EXPECT_EQ(Start(module, bitmapType), "own ");
    EXPECT_EQ(module.Bytes(7, rcDataType), "own data");
    LoadLibraryW(module.GetPath().c_str()); // for the reference that its end takes from the test
}

TEST_F(ModuleSources, TakeSixteenBitsOfANumber)
{
    LoadedModule const loaded(FullFolder());
    RigModule module;
    module.Init(loaded.handle);
    module.Free();
    EXPECT_EQ(module.Bytes(0x10007, rcDataType), "own data");
    EXPECT_EQ(module.Bytes(0, rcDataType), "none");
    DWORD size = 77;
    EXPECT_EQ(module.LoadResource(12345, rcDataType, &size), nullptr);
    EXPECT_NE(module.LoadResource(7, rcDataType, nullptr), nullptr);
    HACCEL const keys = module.LoadAcceleratorsFromResource(1);
    EXPECT_NE(keys, nullptr);
    EXPECT_EQ(CopyAcceleratorTableW(keys, nullptr, 0), 2);
    DestroyAcceleratorTable(keys);
    EXPECT_EQ(module.LoadAcceleratorsFromResource(2), nullptr);
}

TEST_F(ModuleStrings, ComeFromBlocksOfSixteen)
{
    LoadedModule const loaded(FullFolder());
    RigModule module;
    module.Init(loaded.handle);
    module.Free();
    struct Case
    {
        unsigned id;
        WCHAR const * text;
    };
    Case const cases[] = {
        {0, TEXT("")},
        {1, TEXT("own one")},
        {2, TEXT("")}, // its block is there
        {3, TEXT("own three")},
        {15, TEXT("")},
        {16, TEXT("own sixteen")},
        {17, TEXT("own seventeen")},
        {31, TEXT("the last of its block")},
        {48, TEXT("")}, // its block is not
        {65535, TEXT("the last of all")},
        {1584, TEXT("")}, // longer than its block
        {1585, TEXT("")},
        {1600, TEXT("x")},
        {1601, TEXT("")}, // the block ends inside its length
        {1615, TEXT("")},
    };
    for (Case const & one : cases)
    {
        EXPECT_EQ(module.LoadStringW(one.id), one.text) << one.id;
        EXPECT_EQ(ModuleBase::LoadStringW(loaded.handle, one.id), one.text) << one.id;
    }
}

TEST_F(ModuleStrings, AreThoseOfTheLanguage)
{
    LoadedModule const loaded(FullFolder());
    RigModule module;
    module.nameFile = NameGerman;
    module.Init(loaded.handle);
    module.Free();
    EXPECT_EQ(module.LoadStringW(1), TEXT("deutsch eins"));
    EXPECT_EQ(module.LoadStringW(3), TEXT("")) << "the module's is not asked for";
    module.ignoresLanguage = true;
    EXPECT_EQ(module.LoadStringW(1), TEXT("own one"));
}

String FormattedV(ModuleBase * module, unsigned id, ...)
{
    std::va_list arguments;
    va_start(arguments, id);
    String const text = String::FromFormatV(module, id, arguments);
    va_end(arguments);
    return text;
}

String MessageV(ModuleBase * module, unsigned id, ...)
{
    std::va_list arguments;
    va_start(arguments, id);
    String const text = String::FromFormatMessageV(module, id, arguments);
    va_end(arguments);
    return text;
}

TEST_F(ModuleStrings, AreTemplates)
{
    LoadedModule const loaded(FullFolder());
    RigModule module;
    module.Init(loaded.handle);
    module.Free();
    EXPECT_EQ(String::FromFormat(&module, 33, 2, TEXT("three")), TEXT("2 of three"));
    EXPECT_EQ(FormattedV(&module, 33, 2, TEXT("three")), TEXT("2 of three"));
    EXPECT_EQ(String::FromFormatMessage(&module, 34, TEXT("x"), 5), TEXT("x is 5"));
    EXPECT_EQ(MessageV(&module, 34, TEXT("x"), 5), TEXT("x is 5"));
    EXPECT_EQ(String::FromFormat(&module, 48, 2), TEXT(""));

    String text = TEXT("old");
    text.FormatMessageW(&module, 34, TEXT("y"), 6);
    EXPECT_EQ(text, TEXT("y is 6"));
    text.AddMessage(&module, 34, TEXT("z"), 7);
    EXPECT_EQ(text, TEXT("y is 6\r\nz is 7"));
    text.AddMessage(&module, 48);
    EXPECT_EQ(text, TEXT("y is 6\r\nz is 7\r\n")) << "an empty line is a line";
    text.LoadStringW(1, &module);
    EXPECT_EQ(text, TEXT("own one"));
    // Its own text may be among what is put in.
    text.FormatMessageW(&module, 34, text.c_str(), 8);
    EXPECT_EQ(text, TEXT("own one is 8"));
}

/// Message boxes are answered here, and kept.
struct Boxes
{
    struct Shown
    {
        String text;
        String caption;
        DWORD style;
        DWORD language;
        HWND owner;
        UINT size;
    };

    explicit Boxes(SystemCalls & calls)
    {
        calls.MessageBoxIndirectW = [this](MSGBOXPARAMSW const * box)
        {
            shown.push_back(
                {box->lpszText, box->lpszCaption, box->dwStyle, box->dwLanguageId, box->hwndOwner, box->cbSize});
            return 3;
        };
    }

    std::vector<Shown> shown;
};

/// Sets KVCORE_NOLANGVERCHECK, or leaves it out.
void SetVersionCheck(SystemCalls & calls, WCHAR const * value)
{
    calls.GetEnvironmentVariableW = [value](LPCWSTR name, LPWSTR buffer, DWORD size) -> DWORD
    {
        if (String(name) != TEXT("KVCORE_NOLANGVERCHECK"))
        {
            return SystemCalls::RealGetEnvironmentVariableW(name, buffer, size);
        }
        String const text = value != nullptr ? value : TEXT("");
        if (text.size() >= size)
        {
            return DWORD(text.size() + 1);
        }
        text.copy(buffer, text.size());
        buffer[text.size()] = 0;
        return DWORD(text.size());
    };
}

bool NameOther(unsigned short, String & path)
{
    path = File::MakePath(File::GetDirname(path), TEXT("FrameModule_other.lng"));
    return true;
}

TEST_F(ModuleLanguages, OfTheSameProductAreKept)
{
    SystemCalls calls;
    Boxes const boxes(calls);
    SetVersionCheck(calls, nullptr);
    LoadedModule const loaded(FullFolder());
    RigModule module;
    module.nameFile = NameGerman;
    module.Init(loaded.handle);
    module.Free();
    EXPECT_TRUE(boxes.shown.empty()) << "the version of the file itself is another one";
    EXPECT_EQ(module.LoadStringW(1), TEXT("deutsch eins"));
}

TEST_F(ModuleLanguages, OfAnotherProductAreRefusedWithAMessage)
{
    SystemCalls calls;
    Boxes const boxes(calls);
    SetVersionCheck(calls, nullptr);
    LoadedModule const loaded(FullFolder());
    RigModule module;
    module.nameFile = NameOther;
    module.Init(loaded.handle);
    module.Free();
    EXPECT_EQ(module.languageInstance, loaded.handle);
    ASSERT_EQ(boxes.shown.size(), 1u);
    EXPECT_EQ(
        boxes.shown[0].text,
        TEXT("The version of the language file '") + File::MakePath(FullFolder(), TEXT("FrameModule_other.lng")) +
            TEXT("' (5.6.7.9) does not match the application's version (5.6.7.8).\n"
                 "The application will use the default language."));
    EXPECT_EQ(boxes.shown[0].caption, TEXT("Warning"));
    EXPECT_EQ(boxes.shown[0].style, 0x30u);
    EXPECT_EQ(boxes.shown[0].owner, nullptr);
    EXPECT_EQ(boxes.shown[0].language, ModuleBase::GetLanguage());
    EXPECT_FALSE(IsHeld(File::MakePath(FullFolder(), TEXT("FrameModule_other.lng")))) << "it is not left loaded";
}

TEST_F(ModuleLanguages, AreNotCheckedIfTheEnvironmentSaysExactlyOne)
{
    struct Case
    {
        WCHAR const * value;
        bool isKept;
    };
    Case const cases[] = {{TEXT("1"), true},   {TEXT("2"), false},  {TEXT(""), false},   {TEXT("11"), false},
                          {TEXT(" 1"), false}, {TEXT("1 "), false}, {TEXT("100"), false}};
    LoadedModule const loaded(FullFolder());
    for (Case const & one : cases)
    {
        SystemCalls calls;
        Boxes const boxes(calls);
        SetVersionCheck(calls, one.value);
        RigModule module;
        module.nameFile = NameOther;
        module.Init(loaded.handle);
        module.Free();
        EXPECT_EQ(module.languageInstance != loaded.handle, one.isKept) << String(one.value).Utf8();
        EXPECT_EQ(boxes.shown.empty(), one.isKept);
    }
}

TEST_F(ModuleLanguages, ThatAreNotThereAreNoFailure)
{
    SystemCalls calls;
    Boxes const boxes(calls);
    LoadedModule const loaded(FullFolder());
    RigModule module;
    module.nameFile = [](unsigned short, String & path)
    {
        path += TEXT(".missing");
        return true;
    };
    module.Init(loaded.handle);
    module.Free();
    EXPECT_EQ(module.languageInstance, loaded.handle);
    EXPECT_TRUE(boxes.shown.empty());
}

/// Answers for all modules, and writes down what it is asked.
class Names : public ILanguageDLLName
{
public:
    bool GetLanguageDLLName(unsigned short language, String & path) override
    {
        asked.emplace_back(language, path);
        return answer && answer(language, path);
    }

    std::function<bool(unsigned short, String &)> answer;
    std::vector<std::pair<unsigned short, String>> asked;
};

TEST_F(ModuleLanguages, AreSetForAllModules)
{
    SystemCalls calls;
    Boxes const boxes(calls);
    SetVersionCheck(calls, nullptr);
    LoadedModule const loaded(FullFolder());
    RigModule first;
    RigModule second;
    first.Init(loaded.handle);
    second.Init(loaded.handle);
    first.course.clear();
    second.course.clear();
    Names names;
    names.answer = [](unsigned short language, String & path)
    {
        return path.EndsWith(TEXT("FrameModule.so")) || path.EndsWith(TEXT("FrameModule.dll"))
            ? NameGerman(language, path)
            : false;
    };
    ModuleBase::SetLanguage(0x407, &names);
    EXPECT_EQ(ModuleBase::GetLanguage(), 0x407);
    EXPECT_EQ(names.asked.size(), RigModule::GetModules().size());
    EXPECT_EQ(names.asked.back().first, 0x407);
    EXPECT_EQ(names.asked.back().second, second.GetPath()) << "it begins with the module's path";
    EXPECT_EQ(first.course, "") << "who answered first is the only one asked";
    EXPECT_EQ(first.LoadStringW(1), TEXT("deutsch eins"));
    EXPECT_EQ(second.LoadStringW(1), TEXT("deutsch eins"));

    names.answer = nullptr;
    ModuleBase::SetLanguage(0x409, &names);
    EXPECT_EQ(first.course, "name ") << "the question is passed on";
    EXPECT_EQ(first.LoadStringW(1), TEXT("own one"));
    EXPECT_EQ(first.languageInstance, loaded.handle);
    EXPECT_FALSE(IsHeld(File::MakePath(FullFolder(), TEXT("FrameModule_de.lng")))) << "by nobody any more";
    EXPECT_TRUE(boxes.shown.empty());

    first.nameFile = second.nameFile = NameOther;
    ModuleBase::SetLanguage(0x407, nullptr);
    EXPECT_EQ(boxes.shown.size(), 2u) << "one message for each module";
    first.Free();
    second.Free();
}

TEST_F(ModuleNames, ComeFromTheFile)
{
    LoadedModule const loaded(FullFolder());
    RigModule module;
    module.Init(loaded.handle);
    module.Free();
    EXPECT_EQ(module.GetPath(), ModuleBase::GetPath(loaded.handle));
    EXPECT_EQ(module.GetDirectory(), FullFolder());
    EXPECT_EQ(module.GetPath(), File::MakePath(FullFolder(), module.GetFilename()));
    EXPECT_EQ(module.GetFilename().find(TEXT("FrameModule.")), 0u);
}

TEST_F(ModuleNames, ForPeopleAreOwnOrTheProcesssOrTheFiles)
{
    LoadedModule const loaded(FullFolder());
    RigModule module;
    module.Init(loaded.handle);
    module.Free();
    EXPECT_EQ(module.GetDisplayName(), TEXT("FrameModule"));
    ModuleBase::SetGlobalDisplayName(TEXT("The suite"));
    EXPECT_EQ(module.GetDisplayName(), TEXT("The suite"));
    module.SetDisplayName(TEXT("The module"));
    EXPECT_EQ(module.GetDisplayName(), TEXT("The module"));
    module.SetDisplayName(TEXT(""));
    EXPECT_EQ(module.GetDisplayName(), TEXT("The suite"));
}

/// A path of the given length, whatever module is asked for; `capacities` are those of the questions.
void SetPath(SystemCalls & calls, std::size_t length, std::vector<DWORD> & capacities)
{
    calls.GetModuleFileNameW = [length, &capacities](HMODULE, LPWSTR buffer, DWORD capacity) -> DWORD
    {
        capacities.push_back(capacity);
        std::size_t const count = std::min<std::size_t>(length, capacity);
        std::fill_n(buffer, count, WCHAR('a'));
        return DWORD(count);
    };
}

TEST_F(ModuleNames, MayBeLong)
{
    struct Case
    {
        std::size_t length;
        std::vector<DWORD> capacities;
    };
    Case const cases[] = {{0, {260}}, {259, {260}}, {260, {260, 780}}, {779, {260, 780}}, {780, {260, 780, 1820}}};
    for (Case const & one : cases)
    {
        SystemCalls calls;
        std::vector<DWORD> capacities;
        SetPath(calls, one.length, capacities);
        EXPECT_EQ(ModuleBase::GetPath(nullptr), String::FromChar('a', int(one.length)));
        EXPECT_EQ(capacities, one.capacities) << one.length;
    }
}

TEST_F(ModuleNames, LeadToTheirResources)
{
    LoadedModule const loaded(FullFolder());
    RigModule module;
    module.Init(loaded.handle);
    module.Free();
    EXPECT_EQ(module.CreateResourceURL(5, MAKEINTRESOURCEW(23)), TEXT("res://") + module.GetPath() + TEXT("/23/5"));
    SystemCalls calls;
    std::vector<DWORD> capacities;
    SetPath(calls, 300, capacities);
    EXPECT_EQ(module.CreateResourceURL(5, MAKEINTRESOURCEW(23)), TEXT("res://") + String::FromChar('a', 259 - 6))
        << "of 259 characters at most";
}

TEST_F(ModuleNames, AreGivenFunctionsAndLibrariesByTheModule)
{
    LoadedModule const loaded(FullFolder());
    RigModule module;
    module.Init(loaded.handle);
    module.Free();
    auto const function = module.GetProcedure("FrameModuleAnswer");
    ASSERT_NE(function, nullptr);
    EXPECT_EQ(reinterpret_cast<int (*)()>(reinterpret_cast<void *>(function))(), 42);
    EXPECT_EQ(module.GetProcedure("frameModuleAnswer"), nullptr);
    HINSTANCE const library = module.LocalLoadLibrary(TEXT("QuorvexRes.bir"));
    EXPECT_EQ(ModuleBase::GetPath(library), File::MakePath(FullFolder(), TEXT("QuorvexRes.bir")));
    FreeLibrary(library);
    EXPECT_EQ(module.LocalLoadLibrary(TEXT("missing.bir")), nullptr);
}

TEST_F(ModuleLanguages, OfTheLibrarysOwnVersionAreKeptForIt)
{
    SystemCalls calls;
    Boxes const boxes(calls);
    SetVersionCheck(calls, nullptr);
    RigModule module;
    module.nameFile = [](unsigned short, String & path)
    {
        path = File::MakePath(FullFolder(), TEXT("kvcore_de.lng"));
        return true;
    };
    module.Init(GetModuleHandleW(RigModule::GetModules().front()->GetPath().c_str()));
    module.Free();
    EXPECT_NE(module.languageInstance, module.instance);
    EXPECT_TRUE(boxes.shown.empty());
}

struct Versions
{
    DWORD productMS = 1, productLS = 1, fileMS = 1, fileLS = 1;
    bool operator==(Versions const &) const = default;
};

TEST_F(ModuleNames, HaveVersions)
{
    LoadedModule const loaded(FullFolder());
    RigModule module;
    module.Init(loaded.handle);
    module.Free();
    Versions const expected = {0x50006, 0x70008, 0x10002, 0x30004};
    Versions const none = {0, 0, 0, 0};
    Versions found;
    module.GetModuleVersion(found.productMS, found.productLS, found.fileMS, found.fileLS);
    EXPECT_EQ(found, expected);
    found = {};
    ModuleBase::GetModuleVersion(loaded.handle, found.productMS, found.productLS, found.fileMS, found.fileLS);
    EXPECT_EQ(found, expected);
    found = {};
    ModuleBase::GetModuleVersion(module.GetPath(), found.productMS, found.productLS, found.fileMS, found.fileLS);
    EXPECT_EQ(found, expected);
    String const without[] = {
        File::MakePath(FullFolder(), TEXT("QuorvexRes.bir")), File::MakePath(FullFolder(), TEXT("missing")), String()};
    for (String const & path : without)
    {
        found = {};
        ModuleBase::GetModuleVersion(path, found.productMS, found.productLS, found.fileMS, found.fileLS);
        EXPECT_EQ(found, none) << path.Utf8();
    }
    SystemCalls calls;
    std::vector<DWORD> capacities;
    SetPath(calls, 0, capacities);
    found = {};
    ModuleBase::GetModuleVersion(loaded.handle, found.productMS, found.productLS, found.fileMS, found.fileLS);
    EXPECT_EQ(found, none);
}

TEST_F(ModuleNames, OfTheLibraryHaveItsVersion)
{
    unsigned parts[3] = {};
    ASSERT_EQ(std::sscanf(KVCORE_TEST_VERSION, "%u.%u.%u", &parts[0], &parts[1], &parts[2]), 3);
    Versions const expected = {
        DWORD(parts[0] << 16 | parts[1]), DWORD(parts[2] << 16), DWORD(parts[0] << 16 | parts[1]),
        DWORD(parts[2] << 16)};
    Versions found;
    RigModule::GetModules().front()->GetModuleVersion(found.productMS, found.productLS, found.fileMS, found.fileLS);
    EXPECT_EQ(found, expected);
}

int ofThisProgram = 1;

TEST_F(ModuleProcess, KnowsWhichModuleHoldsAnAddress)
{
    LoadedModule const loaded(FullFolder());
    EXPECT_EQ(ModuleBase::GetHInstance(&ofThisProgram), GetModuleHandleW(nullptr));
    EXPECT_EQ(ModuleBase::GetHInstance(TEXT("text")), GetModuleHandleW(nullptr));
    auto const function = GetProcAddress(loaded.handle, "FrameModuleAnswer");
    EXPECT_EQ(ModuleBase::GetHInstance(reinterpret_cast<void const *>(function)), loaded.handle);
    EXPECT_EQ(ModuleBase::GetHInstance(nullptr), nullptr);
    EXPECT_EQ(ModuleBase::GetHInstance(reinterpret_cast<void const *>(~std::uintptr_t(0))), nullptr);
    int onTheStack = 0;
    HINSTANCE const stack = ModuleBase::GetHInstance(&onTheStack);
    EXPECT_NE(stack, GetModuleHandleW(nullptr));
    EXPECT_TRUE(ModuleBase::GetPath(stack).empty()) << "other memory has a base, but is no module";
}

TEST_F(ModuleProcess, TellsOfItsModules)
{
    LoadedModule const loaded(FullFolder());
    String const table = ModuleBase::GetProcessInformation();
    EXPECT_TRUE(table.BeginsWith(TEXT("Address     Version                  Module name\r\n"
                                      "-----------------------------------------------------\r\n")));
    String const line = String::FromFormat(
        TEXT("0x%08I64X  5.6.7.8                  %s\r\n"), ULONGLONG(reinterpret_cast<std::uintptr_t>(loaded.handle)),
        ModuleBase::GetPath(loaded.handle).c_str());
    EXPECT_NE(table.find(line), table.npos) << table.Utf8();
    for (ModuleBase const * const module : RigModule::GetModules())
    {
        EXPECT_NE(table.find(TEXT(" ") + module->GetPath() + TEXT("\r\n")), table.npos);
    }
    EXPECT_NE(table.find(TEXT(" ") + ModuleBase::GetPath(nullptr) + TEXT("\r\n")), table.npos);
}

TEST_F(ModuleProcess, ShowsMessagesInItsLanguage)
{
    SystemCalls calls;
    Boxes const boxes(calls);
    HWND const owner = reinterpret_cast<HWND>(std::uintptr_t(0x1234));
    ModuleBase::SetLanguage(0x407, nullptr);
    calls.IsWindow = [](HWND) { return FALSE; };
    EXPECT_EQ(ModuleBase::MessageBoxW(owner, TEXT("text"), TEXT("caption"), 0x124), 3);
    calls.IsWindow = [owner](HWND window) { return window == owner; };
    ModuleBase::MessageBoxW(owner, TEXT(""), TEXT(""), 0);
    ASSERT_EQ(boxes.shown.size(), 2u);
    EXPECT_EQ(boxes.shown[0].text, TEXT("text"));
    EXPECT_EQ(boxes.shown[0].caption, TEXT("caption"));
    EXPECT_EQ(boxes.shown[0].style, 0x124u);
    EXPECT_EQ(boxes.shown[0].language, 0x407u);
    EXPECT_EQ(boxes.shown[0].size, sizeof(MSGBOXPARAMSW));
    EXPECT_EQ(boxes.shown[0].owner, nullptr) << "it is no window";
    EXPECT_EQ(boxes.shown[1].owner, owner);
}

/// A session that ends in writing only.
struct Session
{
    explicit Session(SystemCalls & calls)
    {
        calls.OpenProcessToken = [this](HANDLE, DWORD access, HANDLE * token) -> BOOL
        {
            course += access == 0x28 ? "open " : "?";
            *token = this;
            return failing != 1;
        };
        calls.LookupPrivilegeValueW = [this](LPCWSTR system, LPCWSTR name, LUID * luid) -> BOOL
        {
            course += system == nullptr && String(name) == TEXT("SeShutdownPrivilege") ? "look " : "?";
            *luid = {19, 5};
            return failing != 2;
        };
        calls.AdjustTokenPrivileges =
            [this](HANDLE token, BOOL all, TOKEN_PRIVILEGES * wanted, DWORD, TOKEN_PRIVILEGES *, DWORD *) -> BOOL
        {
            LUID_AND_ATTRIBUTES const & right = wanted->Privileges[0];
            bool const isRight = token == this && !all && wanted->PrivilegeCount == 1 && right.Luid.LowPart == 19 &&
                right.Luid.HighPart == 5 && right.Attributes == 2;
            course += isRight ? "adjust " : "?";
            return failing != 3;
        };
        calls.ExitWindowsEx = [this](UINT flags, DWORD reason) -> BOOL
        {
            course += "exit " + std::to_string(flags) + " " + std::to_string(reason);
            return failing != 4;
        };
    }

    int failing = 0;
    std::string course;
};

TEST_F(ModuleProcess, EndsTheSessionIfItMay)
{
    struct Case
    {
        int failing;
        bool result;
        char const * course;
    };
    Case const cases[] = {
        {1, false, "open "},
        {2, false, "open look "},
        {3, false, "open look adjust "},
        {0, true, "open look adjust exit 9 77"},
        {4, true, "open look adjust exit 9 77"}, // a refusal is not told
    };
    for (Case const & one : cases)
    {
        SystemCalls calls;
        Session session(calls);
        session.failing = one.failing;
        EXPECT_EQ(ModuleBase::ExecShutdown(9, 77), one.result) << one.course;
        EXPECT_EQ(session.course, one.course);
    }
}

} // namespace
