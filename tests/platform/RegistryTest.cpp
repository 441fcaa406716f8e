#include <algorithm>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <support/ScratchKey.h>

namespace
{

constexpr DWORD sample = 5;

DWORD SetNumber(HKEY key, WString const & name, DWORD number = sample)
{
    return Code(
        RegSetValueExW(key, name.c_str(), 0, REG_DWORD, reinterpret_cast<BYTE const *>(&number), sizeof number));
}

DWORD SetBytes(HKEY key, WCHAR const * name, DWORD type, std::string const & bytes)
{
    return Code(RegSetValueExW(
        key, name, 0, type, reinterpret_cast<BYTE const *>(bytes.data()), static_cast<DWORD>(bytes.size())));
}

/// What reading a value gives, with as much room as `room`.
struct Reading
{
    DWORD result;
    DWORD type = 99;
    DWORD size;
    std::string bytes;
};

Reading Read(HKEY key, WCHAR const * name, DWORD room = 1000)
{
    Reading reading{0, 99, room, std::string(room + 2, '~')};
    reading.result = Code(RegQueryValueExW(
        key, name, nullptr, &reading.type, reinterpret_cast<BYTE *>(reading.bytes.data()), &reading.size));
    return reading;
}

std::string TextBytes(WString const & text)
{
    return std::string(reinterpret_cast<char const *>(text.data()), text.size() * sizeof(WCHAR));
}

std::vector<WString> KeyNames(HKEY key)
{
    std::vector<WString> names;
    WCHAR name[300];
    DWORD size = 300;
    while (RegEnumKeyExW(key, static_cast<DWORD>(names.size()), name, &size, nullptr, nullptr, nullptr, nullptr) == 0)
    {
        names.emplace_back(name, size);
        size = 300;
    }
    return names;
}

std::vector<WString> ValueNames(HKEY key)
{
    std::vector<WString> names;
    WString name(20000, 0);
    DWORD size = 20000;
    while (RegEnumValueW(
               key, static_cast<DWORD>(names.size()), name.data(), &size, nullptr, nullptr, nullptr, nullptr) == 0)
    {
        names.push_back(name.substr(0, size));
        size = 20000;
    }
    return names;
}

DWORD OpenError(HKEY key, WCHAR const * path)
{
    ScopedKey opened;
    return Code(RegOpenKeyExW(key, path, 0, KEY_READ, opened.Place()));
}

DWORD CreateError(HKEY key, WCHAR const * path, DWORD options = 0)
{
    ScopedKey made;
    return Code(RegCreateKeyExW(key, path, 0, nullptr, options, KEY_ALL_ACCESS, nullptr, made.Place(), nullptr));
}

} // namespace

TEST(Registry, PathsAreSpelledInSeveralWays)
{
    ScratchKey const key;
    MakeKey(key, TEXT("a\\b\\c"));
    struct
    {
        WCHAR const * path;
        DWORD error;
    } const rows[] = {
        {TEXT("a"), 0},
        {TEXT("A\\B"), 0},
        {TEXT("a\\b\\c\\"), 0},
        {TEXT("a\\\\b"), 0},
        {TEXT("a\\\\"), 0},
        {TEXT(""), 0},
        {nullptr, 0},
        {TEXT("\\a"), ERROR_BAD_PATHNAME},
        {TEXT("\\"), ERROR_BAD_PATHNAME},
        {TEXT("\\\\"), ERROR_BAD_PATHNAME},
        {TEXT("a/b"), ERROR_FILE_NOT_FOUND},
        {TEXT("none"), ERROR_FILE_NOT_FOUND},
        {TEXT("none\\b"), ERROR_FILE_NOT_FOUND},
    };
    for (auto const & row : rows)
    {
        EXPECT_EQ(OpenError(key, row.path), row.error)
            << testing::PrintToString(row.path == nullptr ? TEXT("null") : WString(row.path));
    }
}

TEST(Registry, OpeningTellsWhatIsWrong)
{
    ScratchKey const key;
    HKEY opened = HKEY_USERS;
    EXPECT_EQ(Code(RegOpenKeyExW(key, TEXT("none"), 0, KEY_READ, &opened)), ERROR_FILE_NOT_FOUND);
    EXPECT_EQ(opened, nullptr);
    EXPECT_EQ(Code(RegOpenKeyExW(key, TEXT("none"), 0, KEY_READ, nullptr)), ERROR_INVALID_PARAMETER);
    EXPECT_EQ(OpenError(nullptr, TEXT("a")), ERROR_INVALID_HANDLE);
    EXPECT_EQ(OpenError(reinterpret_cast<HKEY>(ULONG_PTR{0x1234}), TEXT("a")), ERROR_INVALID_HANDLE);
    EXPECT_EQ(OpenError(reinterpret_cast<HKEY>(ULONG_PTR{0x80000007u}), TEXT("a")), ERROR_INVALID_HANDLE);
    EXPECT_EQ(Code(RegCloseKey(nullptr)), ERROR_INVALID_HANDLE);
    EXPECT_EQ(Code(RegCloseKey(reinterpret_cast<HKEY>(ULONG_PTR{0x1234}))), ERROR_INVALID_HANDLE);
}

TEST(Registry, RootsOpenAsThemselvesAndStayOpen)
{
    for (HKEY const root :
         {HKEY_CLASSES_ROOT, HKEY_CURRENT_USER, HKEY_LOCAL_MACHINE, HKEY_USERS, HKEY_PERFORMANCE_DATA,
          HKEY_CURRENT_CONFIG, HKEY_DYN_DATA})
    {
        HKEY opened = nullptr;
        EXPECT_EQ(Code(RegOpenKeyExW(root, TEXT(""), 0, KEY_READ, &opened)), 0u);
        EXPECT_EQ(opened, root);
        EXPECT_EQ(Code(RegCloseKey(root)), 0u);
        EXPECT_EQ(CreateError(root, TEXT("KVCoreTests")), root == HKEY_PERFORMANCE_DATA ? ERROR_INVALID_HANDLE : 0u);
        RegDeleteKeyW(root, TEXT("KVCoreTests"));
    }
    // Without the sign in the upper half, as old programs spell them.
    EXPECT_EQ(OpenError(reinterpret_cast<HKEY>(ULONG_PTR{0x80000001u}), TEXT("Software")), 0u);
}

TEST(Registry, ClassesRootIsTheMachinesClasses)
{
    MakeKey(HKEY_CLASSES_ROOT, TEXT("KVCoreTests.View"));
    EXPECT_EQ(OpenError(HKEY_LOCAL_MACHINE, TEXT("Software\\Classes\\KVCoreTests.View")), 0u);
    EXPECT_EQ(Code(RegDeleteKeyW(HKEY_LOCAL_MACHINE, TEXT("Software\\Classes\\KVCoreTests.View"))), 0u);
    EXPECT_EQ(OpenError(HKEY_CLASSES_ROOT, TEXT("KVCoreTests.View")), ERROR_FILE_NOT_FOUND);
}

TEST(Registry, CreatingTellsWhetherTheKeyIsNew)
{
    ScratchKey const key;
    DWORD disposition = 0;
    ScopedKey first;
    EXPECT_EQ(
        Code(RegCreateKeyExW(key, TEXT("x\\y"), 0, nullptr, 0, KEY_READ, nullptr, first.Place(), &disposition)), 0u);
    EXPECT_EQ(disposition, REG_CREATED_NEW_KEY);
    ScopedKey second;
    EXPECT_EQ(
        Code(RegCreateKeyExW(key, TEXT("X\\Y\\"), 0, nullptr, 0, KEY_READ, nullptr, second.Place(), &disposition)), 0u);
    EXPECT_EQ(disposition, REG_OPENED_EXISTING_KEY);
    EXPECT_EQ(KeyNames(key), std::vector<WString>{TEXT("x")});
    EXPECT_EQ(CreateError(key, TEXT("\\z")), ERROR_BAD_PATHNAME);
    ScopedKey third;
    EXPECT_EQ(
        Code(RegCreateKeyExW(key, TEXT("z"), 1, nullptr, 0, KEY_READ, nullptr, third.Place(), nullptr)),
        ERROR_INVALID_PARAMETER);
}

TEST(Registry, NamesHaveLimits)
{
    ScratchKey const key;
    EXPECT_EQ(CreateError(key, WString(255, TEXT('k')).c_str()), 0u);
    EXPECT_EQ(OpenError(key, WString(255, TEXT('K')).c_str()), 0u);
    EXPECT_EQ(CreateError(key, WString(257, TEXT('k')).c_str()), ERROR_INVALID_PARAMETER);
    EXPECT_EQ(OpenError(key, WString(257, TEXT('k')).c_str()), ERROR_INVALID_PARAMETER);
    EXPECT_EQ(CreateError(key, (TEXT("a\\") + WString(257, TEXT('k'))).c_str()), ERROR_INVALID_PARAMETER);
    WString const longest(16383, TEXT('v'));
    EXPECT_EQ(SetNumber(key, longest), 0u);
    EXPECT_EQ(Read(key, longest.c_str()).size, 4u);
    EXPECT_EQ(ValueNames(key), std::vector<WString>{longest});
    EXPECT_EQ(SetNumber(key, longest + TEXT('v')), ERROR_INVALID_PARAMETER);
    EXPECT_EQ(Read(key, (longest + TEXT('v')).c_str()).result, ERROR_FILE_NOT_FOUND);
}

TEST(Registry, NamesAreListedInOneOrderWithoutRegardToCase)
{
    ScratchKey const key;
    std::vector<WString> names = {TEXT("beta"), TEXT("Alpha"),   TEXT("gamma"),   TEXT("ALPHA2"), TEXT("_u"),
                                  TEXT("Zed"),  TEXT("\u00e4b"), TEXT("\u00c4a"), TEXT("a-b"),    TEXT("a_b"),
                                  TEXT("aB"),   TEXT("[x"),      TEXT("zz")};
    for (WString const & name : names)
    {
        ASSERT_NE(MakeKey(key, name), nullptr);
        ASSERT_EQ(SetNumber(key, name), 0u);
    }
    std::vector<WString> const ordered = {TEXT("[x"),    TEXT("_u"),      TEXT("a-b"),    TEXT("a_b"),   TEXT("aB"),
                                          TEXT("Alpha"), TEXT("ALPHA2"),  TEXT("beta"),   TEXT("gamma"), TEXT("Zed"),
                                          TEXT("zz"),    TEXT("\u00c4a"), TEXT("\u00e4b")};
    EXPECT_EQ(KeyNames(key), ordered);
    EXPECT_EQ(ValueNames(key), ordered);
    // A name keeps the case that it was first given.
    EXPECT_EQ(SetNumber(key, TEXT("BETA"), 7), 0u);
    EXPECT_EQ(OpenError(key, TEXT("\u00c4B")), 0u);
    EXPECT_EQ(ValueNames(key), ordered);
    EXPECT_EQ(SetNumber(key, TEXT("")), 0u);
    EXPECT_EQ(ValueNames(key).front(), WString());
}

TEST(Registry, ListingGoesOnWhileNamesComeAndGo)
{
    ScratchKey const key;
    for (WCHAR const * const name : {TEXT("a"), TEXT("b"), TEXT("c"), TEXT("d")})
    {
        SetNumber(key, name);
    }
    auto const at = [&key](DWORD index)
    {
        WCHAR name[10];
        DWORD size = 10;
        return RegEnumValueW(key, index, name, &size, nullptr, nullptr, nullptr, nullptr) == 0 ? WString(name)
                                                                                               : WString();
    };
    EXPECT_EQ(at(0), TEXT("a"));
    EXPECT_EQ(at(1), TEXT("b"));
    RegDeleteValueW(key, TEXT("a"));
    EXPECT_EQ(at(2), TEXT("d"));
    EXPECT_EQ(at(0), TEXT("b"));
    SetNumber(key, TEXT("a"));
    EXPECT_EQ(at(1), TEXT("b"));
    EXPECT_EQ(at(2), TEXT("c"));
    EXPECT_EQ(at(2), TEXT("c"));
    EXPECT_EQ(at(4), WString());
}

TEST(Registry, ListingNeedsRoom)
{
    ScratchKey const key;
    SetNumber(key, TEXT("abc"));
    MakeKey(key, TEXT("xyz"));
    WCHAR name[10] = TEXT("???");
    DWORD size = 3;
    EXPECT_EQ(Code(RegEnumKeyExW(key, 0, name, &size, nullptr, nullptr, nullptr, nullptr)), ERROR_MORE_DATA);
    EXPECT_EQ(size, 3u);
    size = 4;
    EXPECT_EQ(Code(RegEnumKeyExW(key, 0, name, &size, nullptr, nullptr, nullptr, nullptr)), 0u);
    EXPECT_EQ(size, 3u);
    DWORD type = 99;
    DWORD dataSize = 2;
    BYTE data[4] = {9, 9, 9, 9};
    size = 3;
    EXPECT_EQ(Code(RegEnumValueW(key, 0, name, &size, nullptr, &type, data, &dataSize)), ERROR_MORE_DATA);
    EXPECT_EQ(size, 3u);
    size = 10;
    dataSize = 2;
    EXPECT_EQ(Code(RegEnumValueW(key, 0, name, &size, nullptr, &type, data, &dataSize)), ERROR_MORE_DATA);
    EXPECT_EQ(size, 3u);
    EXPECT_EQ(type, REG_DWORD);
    EXPECT_EQ(dataSize, 4u);
    size = 10;
    EXPECT_EQ(Code(RegEnumValueW(key, 0, name, &size, nullptr, &type, data, &dataSize)), 0u);
    EXPECT_EQ(data[0], sample);
    size = 10;
    EXPECT_EQ(Code(RegEnumValueW(key, 1, name, &size, nullptr, &type, data, &dataSize)), ERROR_NO_MORE_ITEMS);
    EXPECT_EQ(Code(RegEnumValueW(key, 0, name, &size, nullptr, &type, data, nullptr)), ERROR_INVALID_PARAMETER);
    DWORD reserved = 0;
    EXPECT_EQ(Code(RegEnumKeyExW(key, 0, name, &size, &reserved, nullptr, nullptr, nullptr)), ERROR_INVALID_PARAMETER);
}

TEST(Registry, ReadingNeedsRoom)
{
    ScratchKey const key;
    SetNumber(key, TEXT("Number"));
    Reading const tooSmall = Read(key, TEXT("NUMBER"), 3);
    EXPECT_EQ(tooSmall.result, ERROR_MORE_DATA);
    EXPECT_EQ(tooSmall.type, REG_DWORD);
    EXPECT_EQ(tooSmall.size, 4u);
    EXPECT_EQ(tooSmall.bytes, "~~~~~");
    Reading const good = Read(key, TEXT("number"), 4);
    EXPECT_EQ(good.result, 0u);
    EXPECT_EQ(good.bytes, std::string("\5\0\0\0~~", 6));
    DWORD size = 77;
    EXPECT_EQ(Code(RegQueryValueExW(key, TEXT("Number"), nullptr, nullptr, nullptr, &size)), 0u);
    EXPECT_EQ(size, 4u);
    EXPECT_EQ(Code(RegQueryValueExW(key, TEXT("Number"), nullptr, nullptr, nullptr, nullptr)), 0u);
    BYTE data[4];
    EXPECT_EQ(Code(RegQueryValueExW(key, TEXT("Number"), nullptr, nullptr, data, nullptr)), ERROR_INVALID_PARAMETER);
    EXPECT_EQ(Code(RegQueryValueExW(key, TEXT("Number"), &size, nullptr, data, &size)), ERROR_INVALID_PARAMETER);
}

TEST(Registry, MissingValuesLeaveTheOutput)
{
    ScratchKey const key;
    Reading const none = Read(key, TEXT("none"), 4);
    EXPECT_EQ(none.result, ERROR_FILE_NOT_FOUND);
    EXPECT_EQ(none.type, 99u);
    EXPECT_EQ(none.size, 4u);
    EXPECT_EQ(none.bytes, "~~~~~~");
    EXPECT_EQ(Read(key, nullptr).result, ERROR_FILE_NOT_FOUND);
    DWORD size = 77;
    EXPECT_EQ(Code(RegQueryValueExW(key, TEXT("none"), nullptr, nullptr, nullptr, &size)), ERROR_FILE_NOT_FOUND);
    EXPECT_EQ(size, 0u);
    EXPECT_EQ(Code(RegDeleteValueW(key, TEXT("none"))), ERROR_FILE_NOT_FOUND);
}

TEST(Registry, DataComesBackByteForByte)
{
    ScratchKey const key;
    struct
    {
        DWORD type;
        std::string bytes;
    } const rows[] = {
        {REG_NONE, ""},
        {REG_SZ, TextBytes(WString(TEXT("abc\0"), 4))},
        {REG_SZ, TextBytes(WString(TEXT("a\0b\0"), 4))},
        {REG_SZ, "odd"},
        {REG_SZ, ""},
        {REG_EXPAND_SZ, TextBytes(WString(TEXT("%PATH%\0"), 7))},
        {REG_MULTI_SZ, TextBytes(WString(TEXT("a\0b\0\0"), 5))},
        {REG_BINARY, std::string("\0\1\377", 3)},
        {REG_BINARY, std::string(100000, 'x')},
        {REG_DWORD, "abcdef"},
        {REG_QWORD, "12345678"},
        {12345, "?"},
        {0xFFFFFFFFu, "?"},
    };
    for (auto const & row : rows)
    {
        ASSERT_EQ(SetBytes(key, TEXT("v"), row.type, row.bytes), 0u);
        Reading const read = Read(key, TEXT("v"), 200000);
        EXPECT_EQ(read.result, 0u);
        EXPECT_EQ(read.type, row.type);
        EXPECT_EQ(read.bytes.substr(0, read.size), row.bytes) << row.type;
    }
}

TEST(Registry, TextsWithoutANulGetOneWhereThereIsRoom)
{
    ScratchKey const key;
    SetBytes(key, TEXT("v"), REG_BINARY, "ab");
    EXPECT_EQ(Read(key, TEXT("v"), 4).bytes, "ab~~~~");
    WCHAR const text[] = TEXT("abc");
    for (DWORD const type : {REG_SZ, REG_EXPAND_SZ, REG_MULTI_SZ})
    {
        RegSetValueExW(key, TEXT("v"), 0, type, reinterpret_cast<BYTE const *>(text), 4);
        EXPECT_EQ(Read(key, TEXT("v"), 6).bytes.substr(4), std::string("\0\0~~", 4));
        EXPECT_EQ(Read(key, TEXT("v"), 5).bytes.substr(4), "~~~");
        EXPECT_EQ(Read(key, TEXT("v"), 6).size, 4u);
        RegSetValueExW(key, TEXT("v"), 0, type, reinterpret_cast<BYTE const *>(text), 8);
        EXPECT_EQ(Read(key, TEXT("v"), 10).bytes.substr(8), "~~~~");
    }
}

TEST(Registry, NoDataHasNoSize)
{
    ScratchKey const key;
    EXPECT_EQ(Code(RegSetValueExW(key, TEXT("v"), 0, REG_SZ, nullptr, 0)), 0u);
    EXPECT_EQ(Read(key, TEXT("v")).size, 0u);
    EXPECT_EQ(Code(RegSetValueExW(key, TEXT("v"), 0, REG_SZ, nullptr, 8)), ERROR_NOACCESS);
}

TEST(Registry, TheEmptyNameIsTheDefaultValue)
{
    ScratchKey const key;
    EXPECT_EQ(SetNumber(key, TEXT("")), 0u);
    EXPECT_EQ(Read(key, nullptr).result, 0u);
    EXPECT_EQ(Read(key, TEXT("")).result, 0u);
    EXPECT_EQ(Code(RegDeleteValueW(key, nullptr)), 0u);
    EXPECT_EQ(Read(key, TEXT("")).result, ERROR_FILE_NOT_FOUND);
}

TEST(Registry, DefaultTextsHaveCallsOfTheirOwn)
{
    ScratchKey const key;
    EXPECT_EQ(Code(RegSetValueW(key, nullptr, REG_SZ, TEXT("abc"), 0)), 0u);
    EXPECT_EQ(Code(RegSetValueW(key, TEXT("sub\\deep"), REG_SZ, TEXT("xyz"), 2)), 0u);
    EXPECT_EQ(Read(key, nullptr).size, 8u);
    WCHAR text[10];
    LONG size = 20;
    EXPECT_EQ(Code(RegQueryValueW(key, TEXT("sub\\deep"), text, &size)), 0u);
    EXPECT_EQ(WString(text), TEXT("xyz"));
    EXPECT_EQ(size, 8);
    size = 4;
    EXPECT_EQ(Code(RegQueryValueW(key, nullptr, text, &size)), ERROR_MORE_DATA);
    EXPECT_EQ(size, 8);
    size = 20;
    EXPECT_EQ(Code(RegQueryValueW(key, TEXT("sub"), text, &size)), 0u);
    EXPECT_EQ(WString(text), WString());
    EXPECT_EQ(size, 2);
    EXPECT_EQ(Code(RegQueryValueW(key, TEXT("none"), text, &size)), ERROR_FILE_NOT_FOUND);
    EXPECT_EQ(Code(RegSetValueW(key, nullptr, REG_DWORD, TEXT("abc"), 8)), ERROR_INVALID_PARAMETER);
    EXPECT_EQ(Code(RegSetValueW(key, nullptr, REG_SZ, nullptr, 0)), ERROR_INVALID_PARAMETER);
}

TEST(Registry, HandlesAllowWhatTheyWereOpenedFor)
{
    ScratchKey const key;
    SetNumber(key, TEXT("v"));
    MakeKey(key, TEXT("below"));
    struct
    {
        REGSAM access;
        bool reads;
        bool writes;
        bool lists;
    } const rows[] = {
        {0, false, false, false},
        {KEY_READ, true, false, true},
        {KEY_WRITE, false, true, false},
        {KEY_QUERY_VALUE, true, false, false},
        {KEY_SET_VALUE, false, true, false},
        {KEY_ENUMERATE_SUB_KEYS, false, false, true},
        {KEY_ALL_ACCESS, true, true, true},
        {KEY_READ | KEY_WOW64_64KEY, true, false, true},
        {GENERIC_READ, true, false, true},
        {GENERIC_WRITE, false, true, false},
        {GENERIC_ALL, true, true, true},
        {MAXIMUM_ALLOWED, true, true, true},
    };
    for (auto const & row : rows)
    {
        ScopedKey const opened = OpenKey(HKEY_CURRENT_USER, key.Path(), row.access);
        ASSERT_NE(opened, nullptr);
        auto const expected = [](bool allowed) { return allowed ? 0u : ERROR_ACCESS_DENIED; };
        EXPECT_EQ(Read(opened, TEXT("v")).result, expected(row.reads)) << row.access;
        EXPECT_EQ(ValueNames(opened).empty(), !row.reads) << row.access;
        EXPECT_EQ(SetNumber(opened, TEXT("v")), expected(row.writes)) << row.access;
        EXPECT_EQ(KeyNames(opened).empty(), !row.lists) << row.access;
        if (!row.writes)
        {
            EXPECT_EQ(Code(RegDeleteValueW(opened, TEXT("v"))), ERROR_ACCESS_DENIED) << row.access;
        }
        // Keys are made and deleted by the rights on the key, not by those of the handle.
        EXPECT_EQ(CreateError(opened, TEXT("new")), 0u);
        EXPECT_EQ(Code(RegDeleteKeyW(opened, TEXT("new"))), 0u);
        EXPECT_EQ(OpenError(opened, TEXT("below")), 0u);
    }
}

TEST(Registry, OnlyLeavesAreDeleted)
{
    ScratchKey const key;
    MakeKey(key, TEXT("x\\y\\z"));
    SetNumber(OpenKey(key, TEXT("x\\y\\z")), TEXT("v"));
    EXPECT_EQ(Code(RegDeleteKeyW(key, TEXT("x"))), ERROR_ACCESS_DENIED);
    EXPECT_EQ(Code(RegDeleteKeyW(key, TEXT("x\\y\\z"))), 0u);
    EXPECT_EQ(Code(RegDeleteKeyW(key, TEXT("x\\y\\z"))), ERROR_FILE_NOT_FOUND);
    EXPECT_EQ(Code(RegDeleteKeyW(key, nullptr)), ERROR_INVALID_PARAMETER);
    EXPECT_EQ(Code(RegDeleteKeyW(key, TEXT(""))), ERROR_ACCESS_DENIED);
    EXPECT_EQ(Code(RegDeleteKeyW(nullptr, TEXT("x"))), ERROR_INVALID_HANDLE);
    // A key that is made again has none of the old values.
    EXPECT_TRUE(ValueNames(MakeKey(key, TEXT("x\\y\\z"))).empty());
}

TEST(Registry, NothingIsDoneWithADeletedKey)
{
    ScratchKey const scratch;
    ScopedKey const key = MakeKey(scratch, TEXT("gone"));
    SetNumber(key, TEXT("v"));
    ASSERT_EQ(Code(RegDeleteKeyW(key, TEXT(""))), 0u);
    MakeKey(scratch, TEXT("gone"));
    WCHAR name[10];
    DWORD size = 10;
    EXPECT_EQ(SetNumber(key, TEXT("v")), ERROR_KEY_DELETED);
    EXPECT_EQ(Read(key, TEXT("v")).result, ERROR_KEY_DELETED);
    EXPECT_EQ(Code(RegDeleteValueW(key, TEXT("v"))), ERROR_KEY_DELETED);
    EXPECT_EQ(Code(RegEnumKeyExW(key, 0, name, &size, nullptr, nullptr, nullptr, nullptr)), ERROR_KEY_DELETED);
    EXPECT_EQ(Code(RegEnumValueW(key, 0, name, &size, nullptr, nullptr, nullptr, nullptr)), ERROR_KEY_DELETED);
    EXPECT_EQ(
        Code(RegQueryInfoKeyW(
            key, nullptr, nullptr, nullptr, &size, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr)),
        ERROR_KEY_DELETED);
    EXPECT_EQ(CreateError(key, TEXT("new")), ERROR_KEY_DELETED);
    EXPECT_EQ(OpenError(key, TEXT("new")), ERROR_KEY_DELETED);
    EXPECT_EQ(OpenError(key, TEXT("")), ERROR_KEY_DELETED);
    EXPECT_EQ(Code(RegDeleteKeyW(key, TEXT("new"))), ERROR_KEY_DELETED);
    EXPECT_EQ(Code(RegDeleteKeyW(key, TEXT(""))), ERROR_KEY_DELETED);
    EXPECT_EQ(Code(RegFlushKey(key)), ERROR_KEY_DELETED);
}

TEST(Registry, TreesAreDeletedWhole)
{
    ScratchKey const key;
    SetNumber(MakeKey(key, TEXT("t\\u\\v")), TEXT("value"));
    EXPECT_EQ(SHDeleteEmptyKeyW(key, TEXT("t")), ERROR_KEY_HAS_CHILDREN);
    EXPECT_EQ(SHDeleteKeyW(key, TEXT("T\\U")), 0u);
    EXPECT_EQ(OpenError(key, TEXT("t")), 0u);
    EXPECT_EQ(SHDeleteEmptyKeyW(key, TEXT("t")), 0u);
    EXPECT_EQ(SHDeleteKeyW(key, TEXT("t")), ERROR_FILE_NOT_FOUND);
    EXPECT_EQ(SHDeleteEmptyKeyW(key, TEXT("t")), ERROR_FILE_NOT_FOUND);
    SetNumber(MakeKey(key, TEXT("values")), TEXT("value"));
    EXPECT_EQ(SHDeleteEmptyKeyW(key, TEXT("values")), 0u);
    EXPECT_EQ(SHDeleteKeyW(nullptr, TEXT("x")), ERROR_INVALID_HANDLE);
    EXPECT_EQ(SHDeleteEmptyKeyW(nullptr, TEXT("x")), ERROR_INVALID_HANDLE);
}

TEST(Registry, WithoutAPathAKeyIsEmptied)
{
    ScratchKey const scratch;
    for (WCHAR const * const path : {static_cast<WCHAR const *>(TEXT("")), static_cast<WCHAR const *>(nullptr)})
    {
        ScopedKey const key = MakeKey(scratch, TEXT("own"));
        MakeKey(key, TEXT("a\\b"));
        SetNumber(key, TEXT("v"));
        EXPECT_EQ(SHDeleteKeyW(key, path), 0u);
        EXPECT_TRUE(KeyNames(key).empty());
        EXPECT_TRUE(ValueNames(key).empty());
    }
    ScopedKey const key = MakeKey(scratch, TEXT("own"));
    EXPECT_EQ(SHDeleteEmptyKeyW(key, TEXT("")), 0u);
    EXPECT_EQ(OpenError(scratch, TEXT("own")), ERROR_FILE_NOT_FOUND);
}

TEST(Registry, BelowVolatileKeysAllIsVolatile)
{
    ScratchKey const scratch;
    ScopedKey const key = MakeKey(scratch, TEXT("v1\\v2"), REG_OPTION_VOLATILE);
    ASSERT_NE(key, nullptr);
    EXPECT_EQ(CreateError(key, TEXT("stable")), ERROR_CHILD_MUST_BE_VOLATILE);
    EXPECT_EQ(CreateError(key, TEXT("more"), REG_OPTION_VOLATILE), 0u);
    EXPECT_EQ(CreateError(scratch, TEXT("v1\\stable")), ERROR_CHILD_MUST_BE_VOLATILE);
    EXPECT_EQ(SetNumber(key, TEXT("v")), 0u);
    EXPECT_EQ(Read(OpenKey(scratch, TEXT("v1\\v2")), TEXT("v")).result, 0u);
}

TEST(Registry, KeysTellTheirCountsAndLengths)
{
    ScratchKey const scratch;
    ScopedKey const key = MakeKey(scratch, TEXT("info"));
    WCHAR keyClass[] = TEXT("MyClass");
    ScopedKey child;
    ASSERT_EQ(
        Code(RegCreateKeyExW(key, TEXT("cls"), 0, keyClass, 0, KEY_ALL_ACCESS, nullptr, child.Place(), nullptr)), 0u);
    SetBytes(key, TEXT("abc"), REG_SZ, TextBytes(WString(TEXT("hello\0"), 6)));
    SetBytes(key, TEXT("ab"), REG_BINARY, std::string(20, 'x'));
    DWORD keys = 9;
    DWORD longestKey = 9;
    DWORD longestClass = 9;
    DWORD values = 9;
    DWORD longestName = 9;
    DWORD longestData = 9;
    FILETIME written = {0, 0};
    EXPECT_EQ(
        Code(RegQueryInfoKeyW(
            key, nullptr, nullptr, nullptr, &keys, &longestKey, &longestClass, &values, &longestName, &longestData,
            nullptr, &written)),
        0u);
    EXPECT_EQ(keys, 1u);
    EXPECT_EQ(longestKey, 3u);
    EXPECT_EQ(longestClass, 7u);
    EXPECT_EQ(values, 2u);
    EXPECT_EQ(longestName, 3u);
    EXPECT_EQ(longestData, 20u);
    EXPECT_NE(written.dwHighDateTime, 0u);
    WCHAR text[20] = TEXT("???");
    DWORD size = 3;
    EXPECT_EQ(
        Code(RegQueryInfoKeyW(
            child, text, &size, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr)),
        ERROR_INSUFFICIENT_BUFFER);
    EXPECT_EQ(size, 7u);
    size = 20;
    EXPECT_EQ(
        Code(RegQueryInfoKeyW(
            child, text, &size, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr)),
        0u);
    EXPECT_EQ(WString(text), TEXT("MyClass"));
    EXPECT_EQ(
        Code(RegQueryInfoKeyW(
            child, text, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr)),
        ERROR_INVALID_PARAMETER);
}

TEST(Registry, EachChangeIsALaterWrite)
{
    ScratchKey const scratch;
    ScopedKey const key = MakeKey(scratch, TEXT("times"));
    auto const written = [&key]
    {
        FILETIME time = {0, 0};
        EXPECT_EQ(
            Code(RegQueryInfoKeyW(
                key, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, &time)),
            0u);
        return static_cast<std::uint64_t>(time.dwHighDateTime) << 32 | time.dwLowDateTime;
    };
    std::uint64_t before = written();
    auto const expectLater = [&before, &written](char const * change)
    {
        std::uint64_t const now = written();
        EXPECT_GE(now, before) << change;
        before = now;
    };
    SetNumber(key, TEXT("v"));
    expectLater("value set");
    RegDeleteValueW(key, TEXT("v"));
    expectLater("value deleted");
    MakeKey(key, TEXT("k"));
    expectLater("key made");
    RegDeleteKeyW(key, TEXT("k"));
    expectLater("key deleted");
}

TEST(Registry, OtherMachinesAreOutOfReach)
{
    HKEY key = HKEY_USERS;
    EXPECT_EQ(Code(RegConnectRegistryW(nullptr, HKEY_LOCAL_MACHINE, &key)), 0u);
    EXPECT_EQ(key, HKEY_LOCAL_MACHINE);
    EXPECT_EQ(Code(RegConnectRegistryW(TEXT(""), HKEY_CURRENT_USER, &key)), 0u);
    EXPECT_EQ(key, HKEY_CURRENT_USER);
    EXPECT_EQ(Code(RegConnectRegistryW(TEXT("\\\\no.such.host.invalid"), HKEY_LOCAL_MACHINE, &key)), ERROR_BAD_NETPATH);
    EXPECT_EQ(key, HKEY_CURRENT_USER);
}

namespace
{

/// A wait for a change, through a handle of its own: a handle keeps the kind of its first wait.
class Watch
{
public:
    Watch(HKEY root, WCHAR const * path, BOOL subtree, DWORD filter) : key(OpenKey(root, path, KEY_NOTIFY))
    {
        result = Code(RegNotifyChangeKeyValue(key, subtree, filter, event, TRUE));
    }
    ~Watch()
    {
        CloseHandle(event);
    }
    Watch(Watch const &) = delete;
    Watch & operator=(Watch const &) = delete;

    bool IsSet() const
    {
        return WaitForSingleObject(event, 0) == WAIT_OBJECT_0;
    }
    bool IsSetSoon() const
    {
        return WaitForSingleObject(event, 20000) == WAIT_OBJECT_0;
    }
    void CloseKey()
    {
        key = ScopedKey();
    }

    DWORD result;

private:
    ScopedKey key;
    HANDLE const event = CreateEventW(nullptr, TRUE, FALSE, nullptr);
};

} // namespace

TEST(Registry, ChangesAreNoticed)
{
    ScratchKey const scratch;
    ScopedKey const key = MakeKey(scratch, TEXT("watched"));
    ScopedKey const child = MakeKey(key, TEXT("child"));
    {
        Watch const values(scratch, TEXT("watched"), FALSE, REG_NOTIFY_CHANGE_LAST_SET);
        Watch const names(scratch, TEXT("watched"), FALSE, REG_NOTIFY_CHANGE_NAME);
        EXPECT_EQ(values.result, 0u);
        EXPECT_FALSE(values.IsSet());
        SetNumber(key, TEXT("v"));
        EXPECT_TRUE(values.IsSetSoon());
        EXPECT_FALSE(names.IsSet());
        MakeKey(key, TEXT("another"));
        EXPECT_TRUE(names.IsSetSoon());
    }
    {
        Watch const values(scratch, TEXT(""), TRUE, REG_NOTIFY_CHANGE_LAST_SET);
        SetNumber(child, TEXT("v"));
        EXPECT_TRUE(values.IsSetSoon());
        Watch const names(scratch, TEXT(""), TRUE, REG_NOTIFY_CHANGE_NAME);
        EXPECT_EQ(Code(RegDeleteKeyW(key, TEXT("another"))), 0u);
        EXPECT_TRUE(names.IsSetSoon());
    }
}

TEST(Registry, ChangesOfThisProcessAreToldBeforeTheirCallReturns)
{
    constexpr DWORD names = REG_NOTIFY_CHANGE_NAME;
    constexpr DWORD values = REG_NOTIFY_CHANGE_LAST_SET;
    constexpr DWORD threadAgnostic = 0x10000000; // REG_NOTIFY_THREAD_AGNOSTIC, which asks for what is so anyway
    struct Row
    {
        char const * what;
        std::function<void(HKEY scratch, HKEY key, HKEY child)> change;
        DWORD told;      ///< of the key alone
        DWORD toldBelow; ///< with its subtree
    };
    Row const rows[] = {
        {"a value", [](HKEY, HKEY key, HKEY) { SetNumber(key, TEXT("n")); }, values, values},
        {"another number", [](HKEY, HKEY key, HKEY) { SetNumber(key, TEXT("v"), sample + 1); }, values, values},
        {"the same number", [](HKEY, HKEY key, HKEY) { SetNumber(key, TEXT("v")); }, 0, 0},
        {"a value less", [](HKEY, HKEY key, HKEY) { RegDeleteValueW(key, TEXT("v")); }, values, values},
        {"no value less", [](HKEY, HKEY key, HKEY) { RegDeleteValueW(key, TEXT("none")); }, 0, 0},
        {"a key", [](HKEY, HKEY key, HKEY) { MakeKey(key, TEXT("n")); }, names, names},
        {"a key that is there", [](HKEY, HKEY key, HKEY) { MakeKey(key, TEXT("child")); }, 0, 0},
        {"keys below", [](HKEY, HKEY key, HKEY) { MakeKey(key, TEXT("child\\n\\m")); }, 0, names},
        {"a key less", [](HKEY, HKEY key, HKEY) { SHDeleteKeyW(key, TEXT("child")); }, names, names},
        {"a key below less", [](HKEY, HKEY, HKEY child) { RegDeleteKeyW(child, TEXT("leaf")); }, 0, names},
        {"a value below", [](HKEY, HKEY, HKEY child) { SetNumber(child, TEXT("n")); }, 0, values},
        {"a value below less", [](HKEY, HKEY, HKEY child) { RegDeleteValueW(child, TEXT("v")); }, 0, values},
        {"a value above", [](HKEY scratch, HKEY, HKEY) { SetNumber(scratch, TEXT("n")); }, 0, 0},
        {"a key beside", [](HKEY scratch, HKEY, HKEY) { MakeKey(scratch, TEXT("beside\\n")); }, 0, 0},
        {"its own end", [](HKEY scratch, HKEY, HKEY) { SHDeleteKeyW(scratch, TEXT("watched")); }, names, names},
    };
    for (Row const & row : rows)
    {
        for (BOOL const subtree : {FALSE, TRUE})
        {
            ScratchKey const scratch;
            ScopedKey const key = MakeKey(scratch, TEXT("watched"));
            ScopedKey const child = MakeKey(key, TEXT("child"));
            MakeKey(child, TEXT("leaf"));
            SetNumber(key, TEXT("v"));
            SetNumber(child, TEXT("v"));
            Watch const ofNames(scratch, TEXT("watched"), subtree, names);
            Watch const ofValues(scratch, TEXT("watched"), subtree, values);
            Watch const ofBoth(scratch, TEXT("watched"), subtree, names | values | threadAgnostic);
            row.change(scratch, key, child);
            DWORD const told = subtree ? row.toldBelow : row.told;
            EXPECT_EQ(ofNames.IsSet(), told == names) << row.what << ' ' << subtree;
            EXPECT_EQ(ofValues.IsSet(), told == values) << row.what << ' ' << subtree;
            EXPECT_EQ(ofBoth.IsSet(), told != 0) << row.what << ' ' << subtree;
        }
    }
}

/// Programs ask for the next change each time that one came.
TEST(Registry, EachWaitIsForOneChange)
{
    ScratchKey const scratch;
    ScopedKey const key = MakeKey(scratch, TEXT("watched"));
    HANDLE const event = CreateEventW(nullptr, FALSE, FALSE, nullptr);
    for (DWORD number = 1; number <= 100; ++number)
    {
        ASSERT_EQ(Code(RegNotifyChangeKeyValue(key, FALSE, REG_NOTIFY_CHANGE_LAST_SET, event, TRUE)), 0u);
        SetNumber(key, TEXT("v"), number);
        EXPECT_EQ(WaitForSingleObject(event, 0), WAIT_OBJECT_0);
        EXPECT_EQ(WaitForSingleObject(event, 0), WAIT_TIMEOUT);
    }
    CloseHandle(event);
}

TEST(Registry, TextsWithHalfALetterGetANulToo)
{
    ScratchKey const scratch;
    BYTE const bytes[] = {'a', 0, 'b', 'c', 'd'};
    for (DWORD const size : {3u, 5u})
    {
        BYTE read[10];
        std::fill(read, read + 10, BYTE{0xEE});
        DWORD room = 10;
        EXPECT_EQ(Code(RegSetValueExW(scratch, TEXT("v"), 0, REG_SZ, bytes, size)), 0u);
        EXPECT_EQ(Code(RegQueryValueExW(scratch, TEXT("v"), nullptr, nullptr, read, &room)), 0u);
        EXPECT_EQ(room, size);
        EXPECT_EQ(read[size], 0);
        EXPECT_EQ(read[size + 1], 0);
        EXPECT_EQ(read[size + 2], 0xEE);
    }
}

TEST(Registry, AClassWithoutRoomLeavesTheName)
{
    ScratchKey const scratch;
    WCHAR keyClass[] = TEXT("a class");
    ScopedKey made;
    ASSERT_EQ(
        Code(RegCreateKeyExW(scratch, TEXT("k"), 0, keyClass, 0, KEY_ALL_ACCESS, nullptr, made.Place(), nullptr)), 0u);
    WCHAR name[10] = TEXT("~");
    WCHAR found[10] = TEXT("~");
    DWORD size = 10;
    DWORD classSize = 7;
    EXPECT_EQ(Code(RegEnumKeyExW(scratch, 0, name, &size, nullptr, found, &classSize, nullptr)), ERROR_MORE_DATA);
    EXPECT_EQ(WString(name), TEXT("~"));
    EXPECT_EQ(size, 10u);
    classSize = 0;
    EXPECT_EQ(
        Code(RegQueryInfoKeyW(
            made, found, &classSize, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr)),
        0u)
        << "no room at all asks for the size";
    EXPECT_EQ(classSize, 7u);
    EXPECT_EQ(WString(found), TEXT("~"));
}

TEST(Registry, AnEmptyPathCreatesNothing)
{
    ScratchKey const scratch;
    for (LPCWSTR const path : {static_cast<LPCWSTR>(nullptr), TEXT("")})
    {
        ScopedKey made;
        EXPECT_EQ(
            Code(RegCreateKeyExW(scratch, path, 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, made.Place(), nullptr)), 0u);
        SetNumber(made, TEXT("v"));
        EXPECT_EQ(Code(RegQueryValueExW(scratch, TEXT("v"), nullptr, nullptr, nullptr, nullptr)), 0u);
    }
}

TEST(Registry, AnEmptyKeyIsNotDeletedWithoutAPath)
{
    ScratchKey const scratch;
    EXPECT_EQ(SHDeleteEmptyKeyW(scratch, nullptr), ERROR_INVALID_PARAMETER);
    MakeKey(scratch, TEXT("k"));
    EXPECT_EQ(SHDeleteEmptyKeyW(scratch, nullptr), ERROR_KEY_HAS_CHILDREN);
    EXPECT_NE(OpenKey(scratch, TEXT("k")), nullptr);
}

TEST(Registry, WaitsEndWithTheirHandleOrKey)
{
    ScratchKey const scratch;
    MakeKey(scratch, TEXT("watched"));
    Watch closed(scratch, TEXT("watched"), FALSE, REG_NOTIFY_CHANGE_LAST_SET);
    EXPECT_EQ(closed.result, 0u);
    EXPECT_FALSE(closed.IsSet());
    closed.CloseKey();
    EXPECT_TRUE(closed.IsSetSoon());
    Watch const none(nullptr, TEXT("x"), FALSE, REG_NOTIFY_CHANGE_LAST_SET);
    EXPECT_EQ(none.result, ERROR_INVALID_HANDLE);
}
