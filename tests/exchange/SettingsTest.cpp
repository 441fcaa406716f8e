// Registry values and profiles, from each target to every other.

#include <cstdio>
#include <sstream>

#include <gtest/gtest.h>

#include <kvcore/config/SectionedConfigData.h>
#include <kvcore/config/SysRegKey.h>
#include <kvcore/platform/win32.h>
#include <kvcore/streams/ObjectFactory.h>
#include <support/ScratchFolder.h>
#include <support/ScratchKey.h>
#include <support/SerializingObjects.h>

#include "StoredFiles.h"

namespace
{

using kv::test::ExpectAsStored;
using kv::test::Stored;
using kv::test::Targets;

WString const text = TEXT("F\u00FC\u00DFe \U0001F600 \u4E2D");

/// A value as the registry holds it, on a line: name, type, and bytes in hexadecimal digits.
std::string LineOf(HKEY key, String const & name)
{
    DWORD type = 0;
    DWORD size = 0;
    RegQueryValueExW(key, name.c_str(), nullptr, &type, nullptr, &size);
    std::string bytes(size, '\0');
    RegQueryValueExW(key, name.c_str(), nullptr, &type, reinterpret_cast<BYTE *>(bytes.data()), &size);
    std::string line = name.Utf8() + " " + std::to_string(type) + " ";
    for (unsigned char const byte : bytes)
    {
        char digits[3];
        std::snprintf(digits, sizeof digits, "%02X", byte);
        line += digits;
    }
    return line + "\n";
}

/// Puts such a line back.
void Enter(HKEY key, std::string const & line)
{
    std::istringstream parts(line);
    std::string name;
    DWORD type = 0;
    std::string digits;
    parts >> name >> type >> digits;
    std::string bytes;
    for (std::size_t i = 0; i + 1 < digits.size(); i += 2)
    {
        bytes += static_cast<char>(std::stoi(digits.substr(i, 2), nullptr, 16));
    }
    ASSERT_EQ(
        Code(RegSetValueExW(
            key, String::FromUtf8(name).c_str(), 0, type, reinterpret_cast<BYTE const *>(bytes.data()),
            static_cast<DWORD>(bytes.size()))),
        DWORD{ERROR_SUCCESS});
}

SysRegKey Opened(ScratchKey const & scratch)
{
    HKEY key = nullptr;
    RegOpenKeyExW(HKEY_CURRENT_USER, scratch.Path().c_str(), 0, KEY_ALL_ACCESS, &key);
    return SysRegKey(key);
}

void SetValues(SysRegKey & key)
{
    key.SetBinary(TEXT("binary"), std::string("\0\x80\xFF", 3));
    key.SetBoolean(TEXT("boolean"), true);
    key.SetFloat(TEXT("float"), -1234.5678901);
    key.SetInteger(TEXT("integer"), 0xFFFFFFFE);
    key.SetString(TEXT("int64"), TEXT("-81985529216486895"));
    key.SetString(TEXT("string"), text);
    key.SetString(TEXT("empty"), String());
}

void ExpectValues(SysRegKey const & key)
{
    std::string binary;
    EXPECT_TRUE(key.GetBinary(TEXT("binary"), binary));
    EXPECT_EQ(binary, std::string("\0\x80\xFF", 3));
    bool boolean = false;
    EXPECT_TRUE(key.GetBoolean(TEXT("boolean"), boolean));
    EXPECT_TRUE(boolean);
    double number = 0;
    EXPECT_TRUE(key.GetFloat(TEXT("float"), number));
    EXPECT_EQ(number, -1234.567890);
    int integer = 0;
    EXPECT_TRUE(key.GetInteger(TEXT("integer"), integer));
    EXPECT_EQ(integer, -2);
    long longInteger = 0;
    EXPECT_TRUE(key.GetInteger(TEXT("integer"), longInteger));
    EXPECT_EQ(static_cast<int>(longInteger), -2);
    __int64 large = 0;
    EXPECT_TRUE(key.GetInt64(TEXT("int64"), large));
    EXPECT_EQ(large, -81985529216486895);
    String string;
    EXPECT_TRUE(key.GetString(TEXT("string"), string));
    EXPECT_EQ(string, text);
    EXPECT_TRUE(key.GetString(TEXT("empty"), string));
    EXPECT_EQ(string, String());
}

TEST(ExchangedRegistryValues, AreStoredAsTheyWereOnce)
{
    ScratchKey const scratch;
    SysRegKey key = Opened(scratch);
    SetValues(key);
    std::string lines;
    for (char const * const name : {"binary", "boolean", "float", "integer", "int64", "string", "empty"})
    {
        lines += LineOf(scratch, String::FromUtf8(name));
    }
    ExpectAsStored("registry.txt", lines);
}

TEST(ExchangedRegistryValues, AreReadFromEveryTarget)
{
    for (std::string const & target : Targets())
    {
        SCOPED_TRACE(target);
        ScratchKey const scratch;
        std::istringstream lines(Stored(target, "registry.txt"));
        for (std::string line; std::getline(lines, line);)
        {
            Enter(scratch, line);
        }
        ExpectValues(Opened(scratch));
    }
}

/// An object in a value of the registry, which is compressed: each target reads what every other has written.
TEST(ExchangedRegistryValues, HoldObjectsOfEveryTarget)
{
    ObjectFactory factory;
    kv::test::RegisterSerialObjects(factory);
    if (std::getenv("KVCORE_STORE_FILES") != nullptr)
    {
        ScratchKey const scratch;
        SerialNode node(7);
        node.Add(8)->LinkTo(&node);
        Opened(scratch).WriteObject(TEXT("object"), factory, node);
        ExpectAsStored("object.txt", LineOf(scratch, TEXT("object")));
    }
    for (std::string const & target : Targets())
    {
        SCOPED_TRACE(target);
        ScratchKey const scratch;
        Enter(scratch, Stored(target, "object.txt"));
        SerialNode node;
        ASSERT_TRUE(Opened(scratch).ReadObject(TEXT("object"), factory, node));
        EXPECT_EQ(node.color.value, 7);
        ASSERT_EQ(node.links.size(), 1u);
        EXPECT_EQ(node.links[0].node->color.value, 8);
    }
    EXPECT_EQ(CountedObject::alive, 0);
}

/// Geometry, numbers and texts. Profiles have the code page of the system, so that only ASCII means the same in each.
SectionedConfigData Settings()
{
    SectionedConfigData data;
    data.SetHeader(TEXT("Kept settings 1.0\r\n"));
    data.SetString(TEXT("texts"), TEXT("plain"), TEXT("a = b ; c"));
    data.SetString(TEXT("texts"), TEXT("path"), TEXT("C:\\Clips\\one.avi"));
    data.SetInteger(TEXT("numbers"), TEXT("int"), -5);
    data.SetInteger(TEXT("numbers"), TEXT("unsigned"), 0xFFFFFFFEu);
    data.SetInteger(TEXT("numbers"), TEXT("long"), -2147483647L);
    data.SetInteger(TEXT("numbers"), TEXT("unsignedLong"), 4294967295uL);
    data.SetInteger(TEXT("numbers"), TEXT("large"), -81985529216486895LL);
    data.SetFloat(TEXT("numbers"), TEXT("float"), 1.0 / 3.0);
    data.SetBoolean(TEXT("numbers"), TEXT("flag"), true);
    data.SetPoint(TEXT("places"), TEXT("point"), tagPOINT{-1, 2});
    data.SetRect(TEXT("places"), TEXT("rect"), tagRECT{1, 2, 3, -4});
    return data;
}

void ExpectSettings(SectionedConfigData const & data)
{
    String plain;
    EXPECT_TRUE(data.GetString(TEXT("texts"), TEXT("plain"), plain));
    EXPECT_EQ(plain, TEXT("a = b ; c"));
    int number = 0;
    EXPECT_TRUE(data.GetInteger(TEXT("numbers"), TEXT("int"), number));
    EXPECT_EQ(number, -5);
    unsigned unsignedNumber = 0;
    EXPECT_TRUE(data.GetInteger(TEXT("numbers"), TEXT("unsigned"), unsignedNumber));
    EXPECT_EQ(unsignedNumber, 0xFFFFFFFEu);
    long longNumber = 0;
    EXPECT_TRUE(data.GetInteger(TEXT("numbers"), TEXT("long"), longNumber));
    EXPECT_EQ(longNumber, -2147483647L);
    unsigned long unsignedLong = 0;
    EXPECT_TRUE(data.GetInteger(TEXT("numbers"), TEXT("unsignedLong"), unsignedLong));
    EXPECT_EQ(static_cast<unsigned>(unsignedLong), 4294967295u);
    long long large = 0;
    EXPECT_TRUE(data.GetInteger(TEXT("numbers"), TEXT("large"), large));
    EXPECT_EQ(large, -81985529216486895LL);
    double third = 0;
    EXPECT_TRUE(data.GetFloat(TEXT("numbers"), TEXT("float"), third));
    EXPECT_EQ(third, 0.333333);
    bool flag = false;
    EXPECT_TRUE(data.GetBoolean(TEXT("numbers"), TEXT("flag"), flag));
    EXPECT_TRUE(flag);
    tagPOINT point = {};
    EXPECT_TRUE(data.GetPoint(TEXT("places"), TEXT("point"), point));
    EXPECT_EQ(point.x, -1);
    EXPECT_EQ(point.y, 2);
    tagRECT rect = {};
    EXPECT_TRUE(data.GetRect(TEXT("places"), TEXT("rect"), rect));
    EXPECT_EQ(rect.right, 3);
    EXPECT_EQ(rect.bottom, -4);
}

TEST(ExchangedProfiles, AreWrittenAsTheyWereOnce)
{
    ScratchFolder const folder;
    Settings().WriteWindowsProfile(folder.Name("settings.ini"));
    ExpectAsStored("settings.ini", folder.Read("settings.ini"));
}

TEST(ExchangedProfiles, AreReadFromEveryTarget)
{
    for (std::string const & target : Targets())
    {
        SCOPED_TRACE(target);
        ScratchFolder const folder;
        folder.Write("settings.ini", Stored(target, "settings.ini"));
        SectionedConfigData data;
        data.SetHeader(Settings().GetHeader());
        data.ReadWindowsProfile(folder.Name("settings.ini"));
        ExpectSettings(data);
    }
}

// A profile in UTF-16 has every character.
TEST(ExchangedProfiles, HoldEveryCharacterOnceTheyAreUnicode)
{
    ScratchFolder const folder;
    folder.Write("unicode.ini", "\xFF\xFE");
    ASSERT_TRUE(
        WritePrivateProfileStringW(TEXT("section"), TEXT("key"), text.c_str(), folder.Name("unicode.ini").c_str()));
    ExpectAsStored("unicode.ini", folder.Read("unicode.ini"));
    for (std::string const & target : Targets())
    {
        folder.Write("other.ini", Stored(target, "unicode.ini"));
        WCHAR value[64] = {};
        GetPrivateProfileStringW(
            TEXT("section"), TEXT("key"), TEXT("none"), value, 64, folder.Name("other.ini").c_str());
        EXPECT_EQ(WString(value), text) << target;
    }
}

} // namespace
