#include <cstring>

#include <gtest/gtest.h>

#include <kvcore/platform/NativePaths.h>
#include <kvcore/platform/StringResources.h>
#include <kvcore/platform/win32.h>

namespace
{

/// The same resources in both forms that carry them: in a library of this system, and in a file of Windows'.
class Resources : public testing::TestWithParam<WCHAR const *>
{
protected:
    Resources() : module(LoadLibraryW(GetParam())) {}
    ~Resources() override
    {
        FreeLibrary(module);
    }
    void SetUp() override
    {
        ASSERT_NE(nullptr, module);
    }

    /// The bytes of what was found, or the error.
    std::string Found(HRSRC resource) const
    {
        if (resource == nullptr)
        {
            return "error " + std::to_string(GetLastError());
        }
        auto const * const data = static_cast<char const *>(LockResource(LoadResource(module, resource)));
        return std::string(data, SizeofResource(module, resource));
    }
    std::string Find(WCHAR const * type, WCHAR const * name) const
    {
        return Found(FindResourceW(module, name, type));
    }
    std::string Find(WCHAR const * type, WCHAR const * name, WORD language) const
    {
        return Found(FindResourceExW(module, type, name, language));
    }
    WString String(UINT id) const
    {
        WCHAR text[100] = {};
        int const length = LoadStringW(module, id, text, 100);
        return WString(text, static_cast<std::size_t>(length));
    }

    HMODULE const module;
};

INSTANTIATE_TEST_SUITE_P(
    Forms, Resources, testing::Values(TEXT("TestModule"), TEXT("TestResources.bir")),
    [](auto const & form) { return form.index == 0 ? "Library" : "ResourceFile"; });

// The system's own names for these are narrow in a program that does not define UNICODE.
WCHAR const * const bitmapType = MAKEINTRESOURCEW(2);
WCHAR const * const dialogType = MAKEINTRESOURCEW(5);
WCHAR const * const stringType = MAKEINTRESOURCEW(6);
WCHAR const * const rcDataType = MAKEINTRESOURCEW(10);

constexpr WORD english = 0x0409;
constexpr WORD german = 0x0407;

TEST_P(Resources, AResourceIsFoundByNumbersAndByTextsInAnyCase)
{
    EXPECT_EQ("abc", Find(TEXT("PICTURE"), MAKEINTRESOURCEW(7)));
    EXPECT_EQ("abc", Find(TEXT("picture"), TEXT("#7")));
    EXPECT_EQ("abc", Find(TEXT("Picture"), TEXT("#7 and what follows a number")));
    EXPECT_EQ("named both ways", Find(TEXT("PICTURE"), TEXT("Mixed")));
    EXPECT_EQ("named both ways", Find(TEXT("PICTURE"), TEXT("MIXED")));
    EXPECT_EQ("neutral", Find(TEXT("#10"), TEXT("thing")));
    EXPECT_EQ("neutral", Find(rcDataType, TEXT("THING")));
}

TEST_P(Resources, WhatIsMissingSaysWhichPartOfItsNameIs)
{
    EXPECT_EQ("error 1813", Find(TEXT("none"), TEXT("none")));
    EXPECT_EQ("error 1813", Find(bitmapType, MAKEINTRESOURCEW(1)));
    EXPECT_EQ("error 1813", Find(nullptr, TEXT("#7")));
    EXPECT_EQ("error 1813", Find(TEXT(""), MAKEINTRESOURCEW(7)));
    EXPECT_EQ("error 1813", Find(TEXT(""), TEXT("none")));
    EXPECT_EQ("error 1814", Find(rcDataType, TEXT("none")));
    EXPECT_EQ("error 1814", Find(rcDataType, MAKEINTRESOURCEW(7)));
    EXPECT_EQ("error 1814", Find(rcDataType, TEXT("")));
    EXPECT_EQ("error 1814", Find(rcDataType, TEXT("#")));
    EXPECT_EQ("error 1814", Find(rcDataType, nullptr));
    EXPECT_EQ("error 87", Find(rcDataType, TEXT("#70000")));
    EXPECT_EQ("error 1815", Find(stringType, MAKEINTRESOURCEW(1), 0x040C));
}

TEST_P(Resources, ALanguageThatIsAskedForIsTakenElseItsPrimaryOneElseTheNeutralOne)
{
    WCHAR const * const type = MAKEINTRESOURCEW(300);
    EXPECT_EQ("french", Find(rcDataType, TEXT("thing"), 0x040C));
    EXPECT_EQ("neutral", Find(rcDataType, TEXT("thing"), 0x080C));
    EXPECT_EQ("neutral", Find(rcDataType, TEXT("thing"), english));
    EXPECT_EQ("fr", Find(type, MAKEINTRESOURCEW(8), 0x040C));
    EXPECT_EQ("error 1815", Find(type, MAKEINTRESOURCEW(6), 0x080C));
    EXPECT_EQ("error 1815", Find(type, MAKEINTRESOURCEW(6), english));
}

TEST_P(Resources, WhereNoneIsAskedForTheNeutralLanguageGoesFirst)
{
    WCHAR const * const type = MAKEINTRESOURCEW(300);
    EXPECT_EQ("neutral", Find(type, MAKEINTRESOURCEW(5)));
    EXPECT_EQ("neutral", Find(type, MAKEINTRESOURCEW(5), 0x0400)) << "the user's own is none";
    EXPECT_EQ("neutral", Find(rcDataType, TEXT("thing")));
}

TEST_P(Resources, WhereNoneIsAskedForTheUsersLanguageIsNext)
{
    if (GetUserDefaultLangID() == german)
    {
        EXPECT_EQ(TEXT("eins"), String(1));
    }
    else
    {
        EXPECT_EQ(TEXT("one"), String(1)) << "the second choice of everybody else";
    }
}

TEST_P(Resources, TheLowestLanguageIsTheLastChoice)
{
    LANGID const user = GetUserDefaultLangID();
    ASSERT_NE(0, user);
    WCHAR const * const type = MAKEINTRESOURCEW(300);
    char const * const last = PRIMARYLANGID(user) == 9 && SUBLANGID(user) == 2 ? "en-gb" : "ar-sa";
    EXPECT_EQ(last, Find(type, MAKEINTRESOURCEW(7)));
    EXPECT_EQ(PRIMARYLANGID(user) == 1 ? "ar-sa" : "en", Find(type, MAKEINTRESOURCEW(9)));
}

TEST_P(Resources, StringsStandInBlocksOfSixteen)
{
    auto const load = [this](UINT id, WORD language)
    {
        std::string const block = Find(stringType, MAKEINTRESOURCEW((id >> 4) + 1), language);
        std::size_t at = 0;
        WORD length = 0;
        for (UINT i = 0; i <= (id & 15); ++i)
        {
            at += length * 2u;
            std::memcpy(&length, block.data() + at, 2);
            at += 2;
        }
        WString text(length, 0);
        std::memcpy(text.data(), block.data() + at, length * 2u);
        return text;
    };
    EXPECT_EQ(TEXT("one"), load(1, english));
    EXPECT_EQ(TEXT("eins"), load(1, german));
    EXPECT_EQ(TEXT("siebzehn"), load(17, german));
    EXPECT_EQ(TEXT("Gr\u00FC\u00DFe"), load(18, german));
    EXPECT_EQ(TEXT("\u03A9 and \"quotes\""), load(18, english));
    EXPECT_EQ(TEXT("the last of its block"), load(47, english));
    EXPECT_EQ(TEXT("the last of all"), load(65535, english));
    EXPECT_EQ(TEXT(""), load(2, english));
}

TEST_P(Resources, LoadedStringsAreCutOrLentWhereTheyLie)
{
    WCHAR text[100];
    EXPECT_EQ(21, LoadStringW(module, 47, text, 100));
    EXPECT_EQ(TEXT("the last of its block"), WString(text));
    EXPECT_EQ(4, LoadStringW(module, 47, text, 5));
    EXPECT_EQ(TEXT("the "), WString(text));
    EXPECT_EQ(0, LoadStringW(module, 47, text, 1));
    EXPECT_EQ(15, LoadStringW(module, 65535, text, 100));

    WCHAR const * lent = nullptr;
    EXPECT_EQ(21, LoadStringW(module, 47, reinterpret_cast<WCHAR *>(&lent), 0));
    ASSERT_NE(nullptr, lent);
    EXPECT_EQ(TEXT("the last of its block"), WString(lent, 21));
}

TEST_P(Resources, StringsAreFoundWhereTheyStand)
{
    kv::platform::StringResource const last = kv::platform::FindStringResource(module, 3, 15);
    ASSERT_EQ(21u, last.length);
    WString text(last.length, 0);
    std::memcpy(text.data(), last.units, last.length * sizeof(WCHAR));
    EXPECT_EQ(TEXT("the last of its block"), text);
    EXPECT_EQ(last.units, kv::platform::FindStringResource(module, 3, 15).units) << "the module's own";

    kv::platform::StringResource const empty = kv::platform::FindStringResource(module, 1, 2);
    EXPECT_NE(nullptr, empty.units);
    EXPECT_EQ(0u, empty.length);
    EXPECT_EQ(15u, kv::platform::FindStringResource(module, 4096, 15).length) << "the last that LoadStringW knows";
    for (WORD const missing : {WORD{0}, WORD{63}, WORD{4097}, WORD{0xFFFF}})
    {
        EXPECT_EQ(nullptr, kv::platform::FindStringResource(module, missing, 0).units) << missing;
    }
}

TEST_P(Resources, StringsThatAreMissingAreEmpty)
{
    WCHAR text[100] = {'x'};
    EXPECT_EQ(0, LoadStringW(module, 2, text, 100)) << "an empty place of a block";
    EXPECT_EQ(0, text[0]);
    text[0] = 'x';
    SetLastError(0);
    EXPECT_EQ(0, LoadStringW(module, 1000, text, 100)) << "no such block";
    EXPECT_EQ(DWORD{ERROR_RESOURCE_NAME_NOT_FOUND}, GetLastError());
    EXPECT_EQ('x', text[0]);
    EXPECT_EQ(0, LoadStringW(module, 1, nullptr, 10));
    EXPECT_EQ(TEXT("the last of its block"), String(0x10000 + 47)) << "only 16 bits of the id count";
}

TEST_P(Resources, NullIsNoResourceAndNotAnError)
{
    SetLastError(777);
    EXPECT_EQ(0u, SizeofResource(module, nullptr));
    EXPECT_EQ(nullptr, LoadResource(module, nullptr));
    EXPECT_EQ(nullptr, LockResource(nullptr));
    EXPECT_EQ(777u, GetLastError());
}

/// What the callbacks of an enumeration have seen, and after how many they end it.
struct Seen
{
    std::vector<WString> ids;
    std::size_t most = 1000;
};

bool Note(LONG_PTR argument, WString const & id)
{
    Seen & seen = *reinterpret_cast<Seen *>(argument);
    seen.ids.push_back(id);
    return seen.ids.size() < seen.most;
}

WString Shown(WCHAR const * id)
{
    return IS_INTRESOURCE(id)
        ? TEXT("#") + kv::platform::PathFromNative(std::to_string(reinterpret_cast<ULONG_PTR>(id)))
        : WString(id);
}

BOOL CALLBACK NoteType(HMODULE, WCHAR * type, LONG_PTR argument)
{
    return Note(argument, Shown(type));
}

BOOL CALLBACK NoteName(HMODULE, WCHAR const *, WCHAR * name, LONG_PTR argument)
{
    return Note(argument, Shown(name));
}

BOOL CALLBACK NoteLanguage(HMODULE, WCHAR const *, WCHAR const *, WORD language, LONG_PTR argument)
{
    return Note(argument, kv::platform::PathFromNative(std::to_string(language)));
}

using Ids = std::vector<WString>;

TEST_P(Resources, TypesNamesAndLanguagesAreListedInOrder)
{
    Seen types;
    EXPECT_TRUE(EnumResourceTypesW(module, NoteType, reinterpret_cast<LONG_PTR>(&types)));
    EXPECT_EQ(
        (Ids{TEXT("PICTURE"), TEXT("#5"), TEXT("#6"), TEXT("#9"), TEXT("#10"), TEXT("#16"), TEXT("#300")}), types.ids);
    Seen names;
    EXPECT_TRUE(EnumResourceNamesW(module, TEXT("PICTURE"), NoteName, reinterpret_cast<LONG_PTR>(&names)));
    EXPECT_EQ((Ids{TEXT("MIXED"), TEXT("#7")}), names.ids);
    Seen languages;
    EXPECT_TRUE(EnumResourceLanguagesW(
        module, MAKEINTRESOURCEW(300), MAKEINTRESOURCEW(8), NoteLanguage, reinterpret_cast<LONG_PTR>(&languages)));
    EXPECT_EQ((Ids{TEXT("12"), TEXT("1025")}), languages.ids);
}

TEST_P(Resources, AListingEndsWhereItsCallbackSaysSo)
{
    Seen types{{}, 2};
    EXPECT_FALSE(EnumResourceTypesW(module, NoteType, reinterpret_cast<LONG_PTR>(&types)));
    EXPECT_EQ(2u, types.ids.size());
    Seen names{{}, 1};
    EXPECT_FALSE(EnumResourceNamesW(module, dialogType, NoteName, reinterpret_cast<LONG_PTR>(&names)));
    EXPECT_EQ(1u, names.ids.size());
    Seen none;
    EXPECT_FALSE(EnumResourceNamesW(module, bitmapType, NoteName, reinterpret_cast<LONG_PTR>(&none)));
    EXPECT_EQ(DWORD{ERROR_RESOURCE_TYPE_NOT_FOUND}, GetLastError());
    EXPECT_FALSE(
        EnumResourceLanguagesW(module, dialogType, TEXT("#55"), NoteLanguage, reinterpret_cast<LONG_PTR>(&none)));
    EXPECT_EQ(DWORD{ERROR_RESOURCE_NAME_NOT_FOUND}, GetLastError());
    EXPECT_TRUE(none.ids.empty());
}

TEST_P(Resources, AcceleratorsAreCopiedOutOfTheirTable)
{
    HACCEL const table = LoadAcceleratorsW(module, MAKEINTRESOURCEW(1));
    ASSERT_NE(nullptr, table);
    ASSERT_EQ(3, CopyAcceleratorTableW(table, nullptr, 0));
    ACCEL keys[3] = {};
    EXPECT_EQ(2, CopyAcceleratorTableW(table, keys, 2));
    EXPECT_EQ(0, keys[2].cmd);
    EXPECT_EQ(3, CopyAcceleratorTableW(table, keys, 3));
    EXPECT_EQ('c', keys[0].key);
    EXPECT_EQ(101, keys[0].cmd);
    EXPECT_EQ(FVIRTKEY | FSHIFT | FALT, keys[1].fVirt);
    EXPECT_EQ(0x70, keys[1].key);
    EXPECT_EQ(102, keys[1].cmd);
    EXPECT_EQ('x', keys[2].key);
    EXPECT_EQ(103, keys[2].cmd);
    EXPECT_TRUE(DestroyAcceleratorTable(table));
    EXPECT_FALSE(DestroyAcceleratorTable(table));
    EXPECT_EQ(nullptr, LoadAcceleratorsW(module, MAKEINTRESOURCEW(99)));
}

TEST(ResourcesOfNobody, AModuleWithoutAnyHasNone)
{
    WCHAR text[10];
    SetLastError(0);
    EXPECT_EQ(nullptr, FindResourceW(nullptr, MAKEINTRESOURCEW(1), dialogType));
    EXPECT_EQ(DWORD{ERROR_RESOURCE_DATA_NOT_FOUND}, GetLastError());
    EXPECT_EQ(0, LoadStringW(nullptr, 1, text, 10));
    SetLastError(0);
    EXPECT_EQ(nullptr, FindResourceW(reinterpret_cast<HMODULE>(ULONG_PTR{0x12340000}), TEXT("a"), TEXT("b")));
    EXPECT_EQ(DWORD{ERROR_RESOURCE_DATA_NOT_FOUND}, GetLastError());
}

} // namespace
