#include <memory>

#include <gtest/gtest.h>

#include <kvcore/config/SectionedConfigData.h>
#include <kvcore/config/SysRegKey.h>
#include <support/ScratchKey.h>
#include <support/SerializingObjects.h>

#include <config/MemoryKey.h>

using kv::test::RegisterSerialObjects;

namespace
{

/// A registry key with what derived classes see.
class OpenSysRegKey : public SysRegKey
{
public:
    using RegistryKeyBase::NameMatch;
    using RegistryKeyBase::ReadObjectInternal;
    using SysRegKey::SysRegKey;
};

HKEY Reopened(HKEY key)
{
    HKEY opened = nullptr;
    RegOpenKeyExW(key, nullptr, 0, KEY_ALL_ACCESS, &opened);
    return opened;
}

class SysRegKeyTest : public testing::Test
{
protected:
    DWORD Put(WCHAR const * name, DWORD type, std::string const & bytes)
    {
        return Code(RegSetValueExW(
            scratch, name, 0, type, reinterpret_cast<BYTE const *>(bytes.data()), static_cast<DWORD>(bytes.size())));
    }
    std::string Stored(WCHAR const * name)
    {
        std::string bytes(1000, '~');
        DWORD size = 1000;
        EXPECT_EQ(
            Code(RegQueryValueExW(scratch, name, nullptr, nullptr, reinterpret_cast<BYTE *>(bytes.data()), &size)), 0u);
        return bytes.substr(0, size);
    }
    static std::string Bytes(WString const & text)
    {
        return std::string(reinterpret_cast<char const *>(text.data()), text.size() * sizeof(WCHAR));
    }

    ScratchKey scratch;
    OpenSysRegKey key{Reopened(scratch)};
};

/// What every implementation owes to the helpers that stand on it.
template <class Key>
class RegistryKeyContract : public testing::Test
{
};

struct RegistryRoom
{
    ScratchKey scratch;
    OpenSysRegKey key{Reopened(scratch)};
};

struct MemoryRoom
{
    MemoryKey key;
};

using Rooms = testing::Types<RegistryRoom, MemoryRoom>;
TYPED_TEST_SUITE(RegistryKeyContract, Rooms);

} // namespace

TYPED_TEST(RegistryKeyContract, BulkReadsGiveTheValuesOfTheirType)
{
    TypeParam room;
    auto & key = room.key;
    key.SetString(TEXT("a"), TEXT("text"));
    key.SetBinary(TEXT("b"), std::string("\0\1", 2));
    key.SetInteger(TEXT("c"), 7);
    key.SetString(TEXT("d"), TEXT(""));
    std::vector<String> names = {TEXT("kept")};
    std::vector<String> texts = {TEXT("cleared")};
    EXPECT_TRUE(key.GetAllStrings(names, texts));
    EXPECT_EQ(names, (std::vector<String>{TEXT("kept"), TEXT("a"), TEXT("d")}));
    EXPECT_EQ(texts, (std::vector<String>{TEXT("text"), TEXT("")}));
    std::vector<DWORD> numbers = {1};
    EXPECT_TRUE(key.GetAllIntegers(names, numbers));
    EXPECT_EQ(names.back(), TEXT("c"));
    EXPECT_EQ(numbers, (std::vector<DWORD>{1, 7}));
    std::vector<std::string> binaries = {"kept"};
    EXPECT_TRUE(key.GetAllBinaries(names, binaries));
    EXPECT_EQ(names.size(), 5u);
    EXPECT_EQ(binaries, (std::vector<std::string>{"kept", std::string("\0\1", 2)}));
}

TYPED_TEST(RegistryKeyContract, ObjectsComeBack)
{
    TypeParam room;
    auto & key = room.key;
    ObjectFactory factory;
    RegisterSerialObjects(factory);
    SerialItem const written(4711);
    EXPECT_TRUE(key.WriteObject(TEXT("object"), factory, written));
    SerialItem read;
    EXPECT_TRUE(key.ReadObject(TEXT("object"), factory, read));
    EXPECT_EQ(read.number, 4711);
    bool ok = false;
    ISerializable * const created = key.ReadObjectInternal(TEXT("object"), factory, nullptr, ok);
    EXPECT_TRUE(ok);
    ASSERT_NE(created, nullptr);
    EXPECT_EQ(dynamic_cast<SerialItem &>(*created).number, 4711);
    created->Release();
}

TYPED_TEST(RegistryKeyContract, MissingObjectsAreNotRead)
{
    TypeParam room;
    ObjectFactory factory;
    RegisterSerialObjects(factory);
    SerialItem read(5);
    EXPECT_FALSE(room.key.ReadObject(TEXT("none"), factory, read));
    room.key.SetString(TEXT("text"), TEXT("no object"));
    EXPECT_FALSE(room.key.ReadObject(TEXT("text"), factory, read));
    EXPECT_EQ(read.number, 5);
    bool ok = true;
    EXPECT_EQ(room.key.ReadObjectInternal(TEXT("none"), factory, nullptr, ok), nullptr);
    EXPECT_FALSE(ok);
}

TYPED_TEST(RegistryKeyContract, MangledObjectsEndInAnExceptionOrAnObject)
{
    TypeParam room;
    ObjectFactory factory;
    RegisterSerialObjects(factory);
    ASSERT_TRUE(room.key.WriteObject(TEXT("object"), factory, SerialItem(4711)));
    std::string good;
    ASSERT_TRUE(room.key.GetBinary(TEXT("object"), good));
    int exceptions = 0;
    auto const expectDocumentedEnd = [&](std::string const & bytes)
    {
        room.key.SetBinary(TEXT("object"), bytes);
        SerialItem read;
        try
        {
            room.key.ReadObject(TEXT("object"), factory, read);
        }
        catch (StreamBase::Exception const & exception)
        {
            EXPECT_TRUE(exception.code == 2 || exception.code == 3 || exception.code == 5 || exception.code == 6)
                << exception.code;
            ++exceptions;
        }
    };
    for (std::size_t length = 1; length < good.size(); ++length)
    {
        expectDocumentedEnd(good.substr(0, length));
    }
    for (std::size_t i = 0; i < good.size(); ++i)
    {
        for (int const change : {0x01, 0x80, 0xFF})
        {
            std::string bytes = good;
            bytes[i] = static_cast<char>(bytes[i] ^ change);
            expectDocumentedEnd(bytes);
        }
    }
    EXPECT_GT(exceptions, static_cast<int>(good.size()));
}

TYPED_TEST(RegistryKeyContract, NamesMatchByTheirStart)
{
    struct
    {
        WCHAR const * name;
        WCHAR const * pattern;
        bool matches;
    } const rows[] = {
        {TEXT("abcd"), TEXT("abc"), true},  {TEXT("ab"), TEXT("abc"), false},  {TEXT("abc"), TEXT("abc"), true},
        {TEXT("abc"), TEXT("a?c"), true},   {TEXT("abc"), TEXT("ab?"), true},  {TEXT("ab"), TEXT("ab?"), false},
        {TEXT("abc"), TEXT("a*z"), true},   {TEXT("a"), TEXT("a*"), true},     {TEXT(""), TEXT("*"), true},
        {TEXT("anything"), TEXT(""), true}, {TEXT("ABC"), TEXT("abc"), false}, {TEXT(""), TEXT("?"), false},
    };
    for (auto const & row : rows)
    {
        EXPECT_EQ(decltype(TypeParam::key)::NameMatch(row.name, row.pattern), row.matches)
            << testing::PrintToString(WString(row.name)) << ' ' << testing::PrintToString(WString(row.pattern));
    }
}

TEST(RegistryKeyBaseTest, OnlyLeadingMatchesAreDeleted)
{
    MemoryKey key;
    for (WCHAR const * const name : {TEXT("a1"), TEXT("b"), TEXT("a2")})
    {
        key.SetInteger(name, 1);
    }
    EXPECT_TRUE(key.DeleteMultipleValues(TEXT("a*")));
    ASSERT_EQ(key.values.size(), 2u);
    EXPECT_EQ(key.values[0].name, TEXT("b"));
}

TEST(RegistryKeyBaseTest, DeletingAllSubkeysGoesOnAfterAFailure)
{
    MemoryKey key;
    key.subkeys = {TEXT("a"), TEXT("b"), TEXT("c")};
    key.lockedSubkey = TEXT("b");
    EXPECT_FALSE(key.DeleteAllSubkeys(true));
    EXPECT_EQ(key.subkeys, std::vector<String>{TEXT("b")});
    EXPECT_EQ(
        key.deletions, (std::vector<std::pair<String, bool>>{{TEXT("a"), true}, {TEXT("b"), true}, {TEXT("c"), true}}));
    key.lockedSubkey.clear();
    key.isListable = false;
    EXPECT_FALSE(key.DeleteAllSubkeys(false));
    EXPECT_TRUE(key.subkeys.empty());
    key.isListable = true;
    EXPECT_TRUE(key.DeleteAllSubkeys(false));
}

TEST(RegistryKeyBaseTest, ShortNumbersGoOnWithZerosAndTextsEndAtTheirNul)
{
    MemoryKey key;
    key.Set(TEXT("one"), REG_DWORD, "\5");
    key.Set(TEXT("many"), REG_DWORD, std::string("\1\0\0\0\7\7", 6));
    std::vector<String> names;
    std::vector<DWORD> numbers;
    EXPECT_TRUE(key.GetAllIntegers(names, numbers));
    EXPECT_EQ(numbers, (std::vector<DWORD>{5, 1}));
    key.Set(TEXT("nul"), REG_SZ, std::string("a\0\0\0b\0", 6));
    key.Set(TEXT("odd"), REG_SZ, std::string("a\0b", 3));
    std::vector<String> texts;
    EXPECT_TRUE(key.GetAllStrings(names, texts));
    EXPECT_EQ(texts, (std::vector<String>{TEXT("a"), TEXT("ab")}));
}

TEST(RegistryKeyBaseTest, FailuresOfTheStoreAreReported)
{
    MemoryKey key;
    key.isListable = false;
    std::vector<String> names;
    std::vector<String> texts = {TEXT("cleared")};
    std::vector<DWORD> numbers = {3};
    EXPECT_FALSE(key.GetAllStrings(names, texts));
    EXPECT_TRUE(texts.empty());
    EXPECT_FALSE(key.GetAllIntegers(names, numbers));
    EXPECT_EQ(numbers.size(), 1u);
    key.isWritable = false;
    ObjectFactory factory;
    RegisterSerialObjects(factory);
    EXPECT_FALSE(key.WriteObject(TEXT("object"), factory, SerialItem(1)));
}

TEST_F(SysRegKeyTest, ValuesComeBackAsTheyWereSet)
{
    EXPECT_TRUE(key.SetString(TEXT("text"), TEXT("abc")));
    String text;
    EXPECT_TRUE(key.GetString(TEXT("TEXT"), text));
    EXPECT_EQ(text, TEXT("abc"));
    EXPECT_TRUE(key.SetInteger(TEXT("number"), 0xFFFFFFFFu));
    int asInt = 0;
    unsigned int asUnsigned = 0;
    long asLong = 0;
    unsigned long asUnsignedLong = 0;
    short asShort = 0;
    unsigned short asUnsignedShort = 0;
    EXPECT_TRUE(key.GetInteger(TEXT("number"), asInt));
    EXPECT_EQ(asInt, -1);
    EXPECT_TRUE(key.GetInteger(TEXT("number"), asUnsigned));
    EXPECT_EQ(asUnsigned, 0xFFFFFFFFu);
    EXPECT_TRUE(key.GetInteger(TEXT("number"), asLong));
    EXPECT_EQ(asLong, static_cast<long>(0xFFFFFFFFul));
    EXPECT_TRUE(key.GetInteger(TEXT("number"), asUnsignedLong));
    EXPECT_EQ(asUnsignedLong, 0xFFFFFFFFul);
    EXPECT_TRUE(key.SetInteger(TEXT("number"), 0x12348001u));
    EXPECT_TRUE(key.GetInteger(TEXT("number"), asShort));
    EXPECT_EQ(asShort, static_cast<short>(0x8001));
    EXPECT_TRUE(key.GetInteger(TEXT("number"), asUnsignedShort));
    EXPECT_EQ(asUnsignedShort, 0x8001);
    unsigned char const bytes[] = {0, 1, 255};
    EXPECT_TRUE(key.SetBinary(TEXT("bytes"), bytes, 3));
    std::string binary;
    EXPECT_TRUE(key.GetBinary(TEXT("bytes"), binary));
    EXPECT_EQ(binary, std::string("\0\1\377", 3));
    DWORD type = 0;
    EXPECT_TRUE(key.GetValueType(TEXT("bytes"), type));
    EXPECT_EQ(type, DWORD{REG_BINARY});
    EXPECT_FALSE(key.GetValueType(TEXT("none"), type));
    EXPECT_TRUE(key.SetFloat(TEXT("float"), 1.5));
    double number = 0;
    EXPECT_TRUE(key.GetFloat(TEXT("float"), number));
    EXPECT_EQ(number, 1.5);
    EXPECT_TRUE(key.GetString(TEXT("float"), text));
    EXPECT_EQ(text, TEXT("1.500000"));
}

TEST_F(SysRegKeyTest, OnlyTheNumberOneIsTrue)
{
    struct
    {
        DWORD number;
        bool value;
    } const rows[] = {{0, false}, {1, true}, {2, false}, {0xFFFFFFFFu, false}};
    for (auto const & row : rows)
    {
        key.SetInteger(TEXT("v"), row.number);
        bool value = !row.value;
        EXPECT_TRUE(key.GetBoolean(TEXT("v"), value));
        EXPECT_EQ(value, row.value) << row.number;
    }
    EXPECT_TRUE(key.SetBoolean(TEXT("v"), true));
    EXPECT_EQ(Stored(TEXT("v")), std::string("\1\0\0\0", 4));
    EXPECT_TRUE(key.SetBoolean(TEXT("v"), false));
    EXPECT_EQ(Stored(TEXT("v")), std::string(4, '\0'));
}

TEST_F(SysRegKeyTest, OtherTypesAreNotRead)
{
    key.SetString(TEXT("text"), TEXT("5"));
    key.SetInteger(TEXT("number"), 5);
    int number = 7;
    bool flag = true;
    __int64 wide = 7;
    double real = 7;
    String text = TEXT("old");
    std::string binary = "old";
    EXPECT_FALSE(key.GetInteger(TEXT("text"), number));
    EXPECT_FALSE(key.GetBoolean(TEXT("text"), flag));
    EXPECT_FALSE(key.GetBinary(TEXT("text"), binary));
    EXPECT_FALSE(key.GetInt64(TEXT("number"), wide));
    EXPECT_FALSE(key.GetString(TEXT("number"), text));
    EXPECT_FALSE(key.GetFloat(TEXT("number"), real));
    EXPECT_FALSE(key.GetInteger(TEXT("none"), number));
    EXPECT_EQ(number, 7);
    EXPECT_TRUE(flag);
    EXPECT_EQ(wide, 7);
    EXPECT_EQ(real, 7);
    EXPECT_EQ(text, TEXT("old"));
    EXPECT_EQ(binary, "old");
}

TEST_F(SysRegKeyTest, EmptyValuesLeaveTheOutputButOfATextClearIt)
{
    for (DWORD const type : {REG_SZ, REG_BINARY, REG_DWORD})
    {
        Put(type == DWORD{REG_SZ}           ? TEXT("text")
                : type == DWORD{REG_BINARY} ? TEXT("binary")
                                            : TEXT("number"),
            type, "");
    }
    int number = 7;
    bool flag = true;
    __int64 wide = 7;
    String text = TEXT("old");
    std::string binary = "old";
    EXPECT_TRUE(key.GetInteger(TEXT("number"), number));
    EXPECT_TRUE(key.GetBoolean(TEXT("number"), flag));
    EXPECT_TRUE(key.GetBinary(TEXT("binary"), binary));
    EXPECT_TRUE(key.GetInt64(TEXT("text"), wide));
    EXPECT_TRUE(key.GetString(TEXT("text"), text));
    EXPECT_EQ(number, 7);
    EXPECT_TRUE(flag);
    EXPECT_EQ(wide, 7);
    EXPECT_EQ(binary, "old");
    EXPECT_EQ(text, String());
    double real = 7;
    EXPECT_TRUE(key.GetFloat(TEXT("text"), real));
    EXPECT_EQ(real, 0) << "it is read from the cleared text";
}

TEST_F(SysRegKeyTest, NumbersOfOtherSizesAreTheirFirstFourBytes)
{
    struct
    {
        std::string bytes;
        DWORD number;
    } const rows[] = {{"\5", 5}, {std::string("\1\0\0\0\7\7", 6), 1}};
    for (auto const & row : rows)
    {
        EXPECT_EQ(Put(TEXT("v"), REG_DWORD, row.bytes), 0u);
        unsigned int number = 99;
        EXPECT_TRUE(key.GetInteger(TEXT("v"), number));
        EXPECT_EQ(number, row.number);
    }
}

TEST_F(SysRegKeyTest, TextsLoseOneNulAndAnOddByte)
{
    struct
    {
        std::string bytes;
        WString text;
    } const rows[] = {
        {Bytes(TEXT("ab")), TEXT("ab")},
        {Bytes(WString(TEXT("ab\0"), 3)), TEXT("ab")},
        {Bytes(WString(TEXT("ab\0\0"), 4)), WString(TEXT("ab\0"), 3)},
        {Bytes(TEXT("ab")) + "c", TEXT("ab")},
        {"c", TEXT("")},
    };
    for (auto const & row : rows)
    {
        // Behind the text stand other bytes, where the system may look for a NUL.
        std::string const followed = row.bytes + "~~~~";
        RegSetValueExW(
            scratch, TEXT("v"), 0, REG_SZ, reinterpret_cast<BYTE const *>(followed.data()),
            static_cast<DWORD>(row.bytes.size()));
        String text = TEXT("old");
        EXPECT_TRUE(key.GetString(TEXT("v"), text));
        EXPECT_EQ(text, row.text);
    }
}

TEST_F(SysRegKeyTest, TextsAreStoredWithOneNul)
{
    EXPECT_TRUE(key.SetString(TEXT("v"), String(WString(TEXT("a\0b\0\0"), 5))));
    EXPECT_EQ(Stored(TEXT("v")), Bytes(WString(TEXT("a\0b\0"), 4)));
    EXPECT_TRUE(key.SetString(TEXT("v"), String()));
    EXPECT_EQ(Stored(TEXT("v")), std::string(2, '\0'));
    EXPECT_TRUE(key.SetString(String(), TEXT("default")));
    EXPECT_EQ(Stored(nullptr), Bytes(WString(TEXT("default\0"), 8)));
    EXPECT_TRUE(key.SetSubkey(String(), TEXT("d")));
    EXPECT_EQ(Stored(TEXT("")), Bytes(WString(TEXT("d\0"), 2)));
    EXPECT_TRUE(key.SetSubkey(TEXT("below"), TEXT("text")));
    String text;
    EXPECT_TRUE(key.OpenSubkey(TEXT("below"), KEY_READ).GetString(String(), text));
    EXPECT_EQ(text, TEXT("text"));
}

TEST_F(SysRegKeyTest, WideNumbersAreReadFromTextButStoredAsNone)
{
    EXPECT_TRUE(key.SetInt64(TEXT("v"), 5));
    EXPECT_EQ(Stored(TEXT("v")), std::string(2, '\0'));
    __int64 value = 7;
    EXPECT_TRUE(key.GetInt64(TEXT("v"), value));
    EXPECT_EQ(value, 0);
    struct
    {
        WCHAR const * text;
        __int64 value;
    } const rows[] = {
        {TEXT("42"), 42},
        {TEXT(" \t-17x"), -17},
        {TEXT("+5"), 5},
        {TEXT("x"), 0},
        {TEXT("-"), 0},
        {TEXT("\x2003") TEXT("8"), 8},
        {TEXT("9223372036854775807"), 9223372036854775807LL},
        {TEXT("-9223372036854775808"), -9223372036854775807LL - 1},
    };
    for (auto const & row : rows)
    {
        key.SetString(TEXT("v"), row.text);
        EXPECT_TRUE(key.GetInt64(TEXT("v"), value));
        EXPECT_EQ(value, row.value);
    }
}

TEST_F(SysRegKeyTest, FloatsAreTextWithSixDigits)
{
    double value = 7;
    key.SetString(TEXT("v"), TEXT(" 2.25kg"));
    EXPECT_TRUE(key.GetFloat(TEXT("v"), value));
    EXPECT_EQ(value, 2.25);
    key.SetString(TEXT("v"), TEXT("none"));
    EXPECT_TRUE(key.GetFloat(TEXT("v"), value));
    EXPECT_EQ(value, 0);
    key.SetString(TEXT("v"), TEXT("\x2003") TEXT("2.5E1"));
    EXPECT_TRUE(key.GetFloat(TEXT("v"), value));
    EXPECT_EQ(value, 25);
    EXPECT_TRUE(key.SetFloat(TEXT("v"), 0.0000001));
    EXPECT_TRUE(key.GetFloat(TEXT("v"), value));
    EXPECT_EQ(value, 0);
    EXPECT_TRUE(key.SetFloat(TEXT("v"), -1e20));
    EXPECT_TRUE(key.GetFloat(TEXT("v"), value));
    EXPECT_EQ(value, -1e20);
}

TEST_F(SysRegKeyTest, FloatTextsAreCutAtThirtyOneCharactersAsInProfiles)
{
    struct Row
    {
        double value;
        WCHAR const * text;
    };
    constexpr Row rows[] = {
        {1e23, TEXT("99999999999999991611392.000000")},   {1e24, TEXT("999999999999999983222784.000000")},
        {-1e23, TEXT("-99999999999999991611392.000000")}, {-1e24, TEXT("-999999999999999983222784.00000")},
        {1e25, TEXT("10000000000000000905969664.0000")},  {1e30, TEXT("1000000000000000019884624838656")},
        {1e31, TEXT("9999999999999999635896294965248")},  {-1e31, TEXT("-999999999999999963589629496524")},
        {1e300, TEXT("1000000000000000052504760255204")},
    };
    for (Row const & row : rows)
    {
        String text;
        EXPECT_TRUE(key.SetFloat(TEXT("v"), row.value));
        EXPECT_TRUE(key.GetString(TEXT("v"), text));
        EXPECT_EQ(text, String(row.text));
        SectionedConfigData profile;
        profile.SetFloat(TEXT("s"), TEXT("v"), row.value);
        EXPECT_TRUE(profile.GetString(TEXT("s"), TEXT("v"), text));
        EXPECT_EQ(text, String(row.text));
    }
    double value = 0;
    EXPECT_TRUE(key.GetFloat(TEXT("v"), value)) << "what is left of it is another number";
    EXPECT_EQ(value, 1000000000000000052504760255204.0);
}

TEST_F(SysRegKeyTest, NamesAreListed)
{
    key.CreateSubkey(TEXT("k2"), 0, KEY_READ, nullptr);
    key.CreateSubkey(TEXT("k1"), 0, KEY_READ, nullptr);
    key.SetInteger(TEXT("v2"), 1);
    key.SetInteger(String(WString(16383, TEXT('v'))), 1);
    key.SetInteger(TEXT("v1"), 1);
    std::vector<String> names = {TEXT("kept")};
    EXPECT_TRUE(key.GetSubkeyNames(names));
    EXPECT_EQ(names, (std::vector<String>{TEXT("kept"), TEXT("k1"), TEXT("k2")}));
    names.clear();
    EXPECT_TRUE(key.GetValueNames(names));
    EXPECT_EQ(names, (std::vector<String>{TEXT("v1"), TEXT("v2"), String(WString(16383, TEXT('v')))}));
}

TEST_F(SysRegKeyTest, ValuesAreDeletedOneByOneOrAll)
{
    for (WCHAR const * const name : {TEXT(""), TEXT("a"), TEXT("b")})
    {
        key.SetInteger(name, 1);
    }
    EXPECT_TRUE(key.DeleteValue(TEXT("A")));
    EXPECT_FALSE(key.DeleteValue(TEXT("a")));
    EXPECT_TRUE(key.DeleteAllValues());
    EXPECT_TRUE(key.DeleteAllValues());
    std::vector<String> names;
    EXPECT_TRUE(key.GetValueNames(names));
    EXPECT_TRUE(names.empty());
    key.SetInteger(TEXT("a"), 1);
    SysRegKey readOnly = SysRegKey(HKEY_CURRENT_USER).OpenSubkey(scratch.Path(), KEY_READ);
    EXPECT_FALSE(readOnly.DeleteAllValues());
    EXPECT_FALSE(readOnly.DeleteMultipleValues(TEXT("*")));
    EXPECT_FALSE(readOnly.SetInteger(TEXT("b"), 1));
}

TEST_F(SysRegKeyTest, AllValuesAreDeletedUpToANameOfMoreThanTheBuffer)
{
    key.SetInteger(TEXT("a"), 1);
    key.SetInteger(String(WString(519, TEXT('v'))), 1);
    EXPECT_TRUE(key.DeleteAllValues());
    String const longName(WString(520, TEXT('v')));
    key.SetInteger(TEXT("a"), 1);
    key.SetInteger(longName, 1);
    EXPECT_FALSE(key.DeleteAllValues());
    std::vector<String> names;
    EXPECT_TRUE(key.GetValueNames(names));
    EXPECT_EQ(names, std::vector<String>{longName});
}

TEST_F(SysRegKeyTest, AMatchBehindAnotherNameIsLeft)
{
    // They are listed without regard to case, and matched with it.
    for (WCHAR const * const name : {TEXT("a1"), TEXT("A2"), TEXT("a3")})
    {
        key.SetInteger(name, 1);
    }
    EXPECT_TRUE(key.DeleteMultipleValues(TEXT("a*")));
    std::vector<String> names;
    EXPECT_TRUE(key.GetValueNames(names));
    EXPECT_EQ(names, (std::vector<String>{TEXT("A2"), TEXT("a3")}));
}

TEST_F(SysRegKeyTest, OnlyALeadingRunOfMatchesIsDeleted)
{
    for (WCHAR const * const name : {TEXT("a1"), TEXT("b1"), TEXT("c2"), TEXT("d1")})
    {
        key.SetInteger(name, 1);
    }
    EXPECT_TRUE(key.DeleteMultipleValues(TEXT("?1")));
    std::vector<String> names;
    EXPECT_TRUE(key.GetValueNames(names));
    EXPECT_EQ(names, (std::vector<String>{TEXT("c2"), TEXT("d1")}));
    EXPECT_TRUE(key.DeleteMultipleValues(TEXT("")));
    names.clear();
    EXPECT_TRUE(key.GetValueNames(names));
    EXPECT_TRUE(names.empty());
}

TEST_F(SysRegKeyTest, AllValuesComeWithTheirBytes)
{
    Put(TEXT("a"), REG_SZ, "abc");
    Put(TEXT("b"), REG_BINARY, "");
    Put(TEXT("c"), 12345, "xyz");
    std::vector<String> names = {TEXT("kept")};
    std::vector<std::string> data = {"kept"};
    EXPECT_TRUE(key.GetAllValues(0, names, data));
    EXPECT_EQ(names, (std::vector<String>{TEXT("kept"), TEXT("a"), TEXT("b"), TEXT("c")}));
    EXPECT_EQ(data, (std::vector<std::string>{"kept", "abc", "", "xyz"}));
    EXPECT_TRUE(key.GetAllValues(REG_SZ, names, data));
    EXPECT_EQ(data.back(), std::string("abc\0", 4));
}

TEST_F(SysRegKeyTest, KeysBelowComeAndGo)
{
    DWORD disposition = 0;
    EXPECT_TRUE(key.CreateSubkey(TEXT("a\\b"), 0, KEY_READ, &disposition).IsValid());
    EXPECT_EQ(disposition, DWORD{REG_CREATED_NEW_KEY});
    EXPECT_TRUE(key.CreateSubkey(TEXT("A\\B"), 0, KEY_READ, &disposition).IsValid());
    EXPECT_EQ(disposition, DWORD{REG_OPENED_EXISTING_KEY});
    EXPECT_TRUE(key.OpenSubkey(TEXT("A"), KEY_READ).IsValid());
    EXPECT_FALSE(key.OpenSubkey(TEXT("none"), KEY_READ).IsValid());
    EXPECT_FALSE(key.CreateSubkey(TEXT("\\bad"), 0, KEY_READ, nullptr).IsValid());
    EXPECT_FALSE(key.DeleteSubkey(TEXT("a"), false));
    EXPECT_TRUE(key.DeleteSubkey(TEXT("a"), true));
    EXPECT_FALSE(key.DeleteSubkey(TEXT("a"), true));
    key.CreateSubkey(TEXT("x\\y"), 0, KEY_READ, nullptr);
    key.CreateSubkey(TEXT("z"), 0, KEY_READ, nullptr);
    EXPECT_FALSE(key.DeleteAllSubkeys(false));
    std::vector<String> names;
    EXPECT_TRUE(key.GetSubkeyNames(names));
    EXPECT_EQ(names, std::vector<String>{TEXT("x")});
    EXPECT_TRUE(key.DeleteAllSubkeys(true));
    EXPECT_TRUE(key.Flush());
}

TEST_F(SysRegKeyTest, CopiesShareTheHandle)
{
    HKEY const handle = Reopened(scratch);
    SysRegKey first(handle);
    SysRegKey second(first);
    EXPECT_TRUE(first == second);
    EXPECT_FALSE(first == key) << "another handle of the same key";
    first.Close();
    EXPECT_FALSE(first.IsValid());
    EXPECT_TRUE(second.IsValid());
    EXPECT_TRUE(second.SetInteger(TEXT("v"), 1));
    second = SysRegKey(second);
    EXPECT_TRUE(second.SetInteger(TEXT("v"), 1));
    second = first;
    EXPECT_EQ(Code(RegCloseKey(handle)), ERROR_INVALID_HANDLE) << "the last copy has closed it";
}

TEST_F(SysRegKeyTest, RootsAreNotClosed)
{
    {
        SysRegKey root(HKEY_CURRENT_USER);
        EXPECT_TRUE(root.IsValid());
    }
    EXPECT_TRUE(SysRegKey(HKEY_CURRENT_USER).OpenSubkey(TEXT("Software"), KEY_READ).IsValid());
}

TEST_F(SysRegKeyTest, AnInvalidKeyFailsInEverything)
{
    SysRegKey none = key.OpenSubkey(TEXT("none"), KEY_READ);
    EXPECT_FALSE(none.IsValid());
    std::vector<String> names;
    std::vector<std::string> data;
    String text;
    int number = 0;
    EXPECT_FALSE(none.GetSubkeyNames(names));
    EXPECT_FALSE(none.GetValueNames(names));
    EXPECT_FALSE(none.GetString(TEXT("v"), text));
    EXPECT_FALSE(none.GetInteger(TEXT("v"), number));
    EXPECT_FALSE(none.SetInteger(TEXT("v"), 1));
    EXPECT_FALSE(none.DeleteValue(TEXT("v")));
    EXPECT_FALSE(none.DeleteAllValues());
    EXPECT_FALSE(none.DeleteMultipleValues(TEXT("*")));
    EXPECT_FALSE(none.GetAllValues(0, names, data));
    EXPECT_FALSE(none.DeleteSubkey(TEXT("x"), true));
    EXPECT_FALSE(none.DeleteAllSubkeys(true));
    EXPECT_FALSE(none.Flush());
    EXPECT_FALSE(none.SetSubkey(TEXT("x"), TEXT("y")));
    EXPECT_FALSE(none.OpenSubkey(TEXT("x"), KEY_READ).IsValid());
    EXPECT_FALSE(none.CreateSubkey(TEXT("x"), 0, KEY_READ, nullptr).IsValid());
}

TEST_F(SysRegKeyTest, OtherMachinesAreRefusedAndTheKeyStays)
{
    EXPECT_EQ(
        Code(key.ConnectRegistry(TEXT("\\\\no.such.host.invalid"), HKEY_LOCAL_MACHINE)), DWORD{ERROR_BAD_NETPATH});
    EXPECT_TRUE(key.SetInteger(TEXT("v"), 1));
    EXPECT_EQ(key.ConnectRegistry(String(), HKEY_CURRENT_USER), 0);
    EXPECT_TRUE(key.OpenSubkey(scratch.Path(), KEY_READ).IsValid());
}
