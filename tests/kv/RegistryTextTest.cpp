#include <kvcore/platform/win32.h>
#include <kvcore/tools/support/RegistryText.h>

#include <gtest/gtest.h>

#include <support/ToolConsole.h>

namespace
{

using namespace kv::tools;
using kv::test::TextSink;

std::string const head = "Windows Registry Editor Version 5.00\r\n\r\n";
std::string const key = "[HKEY_CURRENT_USER\\Software\\x]\r\n";

/// UTF-16 with its mark, as the platform's own editor writes.
std::string Utf16(std::string const & text)
{
    return "\xFF\xFE" + RegistryBytes(String::FromUtf8(text));
}

/// The only value of a text that has one key.
RegistryTextValue OnlyValue(std::string const & bytes)
{
    std::vector<RegistryTextKey> const keys = ParseRegistryText(bytes);
    return keys.size() == 1 && keys[0].values.size() == 1 ? keys[0].values[0] : RegistryTextValue();
}

RegistryValue ValueOf(std::string const & line)
{
    return OnlyValue(Utf16(head + key + line + "\r\n")).value;
}

std::string TextBytes(std::string const & text)
{
    return RegistryBytes(String::FromUtf8(text + std::string(1, '\0')));
}

/// The failure of a text as "line: reason"; empty if it can be read.
std::string FailureOf(std::string const & bytes)
{
    try
    {
        (void)ParseRegistryText(bytes);
        return {};
    }
    catch (RegistryTextError const & failure)
    {
        return std::to_string(failure.line) + ": " + failure.what();
    }
}

TEST(RegistryTextReader, TakesTheFormatsOfTextAndNumbers)
{
    struct
    {
        std::string line;
        DWORD type;
        std::string data;
    } const table[] = {
        {"\"v\"=\"text\"", REG_SZ, TextBytes("text")},
        {"\"v\"=\"\"", REG_SZ, TextBytes("")},
        {"\"v\"=\"a\\\\b \\\"c\\\"\"", REG_SZ, TextBytes("a\\b \"c\"")},
        {"\"v\"=\"a\\r\\nb\"", REG_SZ, TextBytes("a\r\nb")},
        {"\"v\"=\"a\r\nb\"", REG_SZ, TextBytes("a\r\nb")},
        {"\"v\"=\"; no comment \"", REG_SZ, TextBytes("; no comment ")},
        {" \"v\" = \"a\" ; comment", REG_SZ, TextBytes("a")},
        {"\"v\"=dword:0000002a", REG_DWORD, std::string("\x2A\0\0\0", 4)},
        {"\"v\"=dword: 1", REG_DWORD, std::string("\1\0\0\0", 4)},
        {"\"v\"=DWORD:FEDCba98", REG_DWORD, "\x98\xBA\xDC\xFE"},
    };
    for (auto const & row : table)
    {
        RegistryValue const value = ValueOf(row.line);
        EXPECT_EQ(value.name, TEXT("v")) << row.line;
        EXPECT_EQ(value.type, row.type) << row.line;
        EXPECT_EQ(value.data, row.data) << row.line;
    }
}

TEST(RegistryTextReader, TakesBytesOfAnyType)
{
    struct
    {
        char const * line;
        DWORD type;
        std::string data;
    } const table[] = {
        {"\"v\"=hex:", REG_BINARY, ""},
        {"\"v\"=hex:1,02,fF", REG_BINARY, "\x01\x02\xFF"},
        {"\"v\"=hex:01,02,", REG_BINARY, "\1\2"},
        {"\"v\"=hex: 01 , 02 ; comment", REG_BINARY, "\1\2"},
        {"\"v\"=hex:01,\\\r\n  02,\\\r\n03", REG_BINARY, "\1\2\3"},
        {"\"v\"=hex:\\\r\n  01", REG_BINARY, "\1"},
        {"\"v\"=hex:01\\\r\n,02", REG_BINARY, "\1\2"},
        {"\"v\"=hex:01,\\ ; comment\r\n; another\r\n\t02", REG_BINARY, "\1\2"},
        {"\"v\"=hex(0):", REG_NONE, ""},
        {"\"v\"=hex(2):25,00,00,00", REG_EXPAND_SZ, std::string("%\0\0\0", 4)},
        {"\"v\"=hex(7):61,00,00,00,00,00", REG_MULTI_SZ, std::string("a\0\0\0\0\0", 6)},
        {"\"v\"=hex(1):61", REG_SZ, "a"},
        {"\"v\"=hex(4):01", REG_DWORD, "\1"},
        {"\"v\"=HEX(0B):01,00,00,00,00,00,00,80", REG_QWORD, std::string("\1\0\0\0\0\0\0\x80", 8)},
        {"\"v\"=hex(8000001f):aa", 0x8000001F, "\xAA"},
    };
    for (auto const & row : table)
    {
        RegistryValue const value = ValueOf(row.line);
        EXPECT_EQ(value.name, TEXT("v")) << row.line;
        EXPECT_EQ(value.type, row.type) << row.line;
        EXPECT_EQ(value.data, row.data) << row.line;
    }
}

TEST(RegistryTextReader, TakesKeysInTheirOrder)
{
    std::vector<RegistryTextKey> const keys = ParseRegistryText(Utf16(
        head +
        "; comment\r\n[HKCU\\A]\r\n@=\"d\"\r\n\"x\"=-\r\n@=- ; gone\r\n\r\n[-hkey_users\\b\\]\r\n"
        " [HKEY_LOCAL_MACHINE] ; root\n[HKCR\\[x]]\r[HKEY_CURRENT_USER\\A]"));
    ASSERT_EQ(keys.size(), 5u);
    EXPECT_EQ(keys[0].path.Shown(), TEXT("HKEY_CURRENT_USER\\A"));
    EXPECT_FALSE(keys[0].isDeleted);
    EXPECT_EQ(keys[0].line, 4u);
    ASSERT_EQ(keys[0].values.size(), 3u);
    EXPECT_TRUE(keys[0].values[0].value.name.empty());
    EXPECT_FALSE(keys[0].values[0].isDeleted);
    EXPECT_EQ(keys[0].values[1].value.name, TEXT("x"));
    EXPECT_TRUE(keys[0].values[1].isDeleted);
    EXPECT_TRUE(keys[0].values[2].isDeleted);
    EXPECT_EQ(keys[0].values[2].line, 7u);
    EXPECT_EQ(keys[1].path.Shown(), TEXT("HKEY_USERS\\b"));
    EXPECT_TRUE(keys[1].isDeleted);
    EXPECT_EQ(keys[2].path.Shown(), TEXT("HKEY_LOCAL_MACHINE"));
    EXPECT_EQ(keys[3].path.Shown(), TEXT("HKEY_CLASSES_ROOT\\[x]"));
    EXPECT_EQ(keys[4].line, 12u);
}

TEST(RegistryTextReader, TakesAllEncodings)
{
    std::string const text = head + key + "\"v\"=\"caf\xC3\xA9\"";
    EXPECT_EQ(OnlyValue(Utf16(text)).value.data, TextBytes("caf\xC3\xA9"));
    EXPECT_EQ(OnlyValue("\xEF\xBB\xBF" + text).value.data, TextBytes("caf\xC3\xA9"));
    std::string const narrow = String::FromUtf8(text).SystemMultibyte();
    EXPECT_EQ(OnlyValue(narrow).value.data, TextBytes("caf\xC3\xA9"));
}

// Which of the two a file is, its first line tells; not how its bytes are encoded.
TEST(RegistryTextReader, TextAsBytesIsNarrowInTheOldFormatAlone)
{
    std::string const line = key + "\"v\"=hex(2):61,62,00";
    std::string const old = "REGEDIT4\r\n\r\n";
    EXPECT_EQ(OnlyValue(old + line).value.data, TextBytes("ab"));
    EXPECT_EQ(OnlyValue(Utf16(old + line)).value.data, TextBytes("ab"));
    EXPECT_EQ(OnlyValue(head + line).value.data, std::string("ab\0", 3));
    EXPECT_EQ(OnlyValue(old + key + "\"v\"=hex(3):61,62").value.data, "ab");
    EXPECT_EQ(
        OnlyValue(old + key + "\"v\"=hex(7):61,00,62,00,00").value.data, RegistryBytes(WString(TEXT("a\0b\0\0"), 5)));
    EXPECT_EQ(OnlyValue(old + key + "\"v\"=hex(1):").value.data, "");
}

TEST(RegistryTextReader, TellsLineAndReasonOfWhatIsWrong)
{
    std::string const longName(256, 'k');
    struct
    {
        std::string text;
        std::string failure;
    } const table[] = {
        {"", "1: the first line is neither"},
        {"REGEDIT\r\n", "1: the first line is neither"},
        {"REGEDIT5\r\n", "1: the first line is neither"},
        {"\r\n" + head, "1: the first line is neither"},
        {head + "x", "3: the line is no [key]"},
        {head + "\"v\"=\"a\"", "3: the value stands before any key"},
        {head + "[-HKCU\\a]\r\n\"v\"=\"a\"", "4: the value's key is deleted in line 3"},
        {head + "[HKCU\\a", "3: the key has no closing bracket"},
        {head + "[HKCU\\a] x", "3: something stands behind the key's bracket"},
        {head + "[]", "3: \"\" is no root"},
        {head + "[-]", "3: \"\" is no root"},
        {head + "[HKEY_ELSEWHERE\\a]", "3: \"HKEY_ELSEWHERE\" is no root"},
        {head + "[\\\\m\\HKLM\\a]", "3: the key is one of another machine"},
        {head + "[-HKEY_CURRENT_USER]", "3: a root of the registry cannot be deleted"},
        {head + "[-HKCU\\\\]", "3: a root of the registry cannot be deleted"},
        {head + "[HKCU\\" + longName + "]", "3: the name of a key has more than 255"},
        {head + key + "\"v", "4: the name has no closing quote"},
        {head + key + "\"v\r\n\r\n", "4: the name has no closing quote"},
        {head + key + "\"v\\", "4: a backslash in quotes"},
        {head + key + "\"" + std::string(16384, 'n') + "\"=-", "4: the name of the value has more than 16383"},
        {head + key + "\"v\"", "4: there is no = behind"},
        {head + key + "@\"v\"=-", "4: there is no = behind"},
        {head + key + "\"v\"=", "4: there is no data behind"},
        {head + key + "\"v\"=text", "4: the data is no \"text\""},
        {head + key + "\"v\"=dwor", "4: the data is no \"text\""},
        {head + key + "\"v\"=\"a\" b", "4: something stands behind the value's data"},
        {head + key + "\"v\"=-1", "4: something stands behind the value's data"},
        {head + key + "\"v\"=\"a\r\n\"w\"=\"b\"",
         "5: something stands behind the value's data; the value begins in line 4"},
        {head + key + "\"v\"=\"a\r\n\r\n", "4: the text has no closing quote"},
        {head + key + "\"v\"=\"c:\\temp\"", "4: a backslash in quotes"},
        {head + key + "\"v\"=dword:", "4: dword: has no hexadecimal digits"},
        {head + key + "\"v\"=dword:0x1", "4: something stands behind the value's data"},
        {head + key + "\"v\"=dword:g", "4: dword: has no hexadecimal digits"},
        {head + key + "\"v\"=dword:123456789", "4: dword: has more than 8"},
        {head + key + "\"v\"=hex", "4: there is no : behind hex"},
        {head + key + "\"v\"=hex()", "4: hex( has no hexadecimal digits"},
        {head + key + "\"v\"=hex(7:", "4: the type of the bytes has no closing"},
        {head + key + "\"v\"=hex(123456789):", "4: hex( has more than 8"},
        {head + key + "\"v\"=hex(7)01", "4: there is no : behind hex"},
        {head + key + "\"v\"=hex:001", "4: a byte has more than 2"},
        {head + key + "\"v\"=hex:1,,2", "4: a byte has no hexadecimal digits"},
        {head + key + "\"v\"=hex:,1", "4: a byte has no hexadecimal digits"},
        {head + key + "\"v\"=hex:1 2", "4: there is no comma between"},
        {head + key + "\"v\"=hex:1,g", "4: a byte has no hexadecimal digits"},
        {head + key + "\"v\"=hex:1,\\2", "4: a backslash among bytes"},
        {head + key + "\"v\"=hex:1,\\", "4: the line before says"},
        {head + key + "\"v\"=hex:1,\\\r\n", "5: the line before says"},
        {head + key + "\"v\"=hex:1,\\\r\n\r\n\"w\"=-", "5: the line before says"},
        {head + key + "\"v\"=hex:1,\\\r\n\"w\"=-", "5: a byte has no hexadecimal digits"},
    };
    for (auto const & row : table)
    {
        std::string const failure = FailureOf(Utf16(row.text));
        EXPECT_EQ(failure.substr(0, row.failure.size()), row.failure) << row.text;
        EXPECT_EQ(FailureOf("\xEF\xBB\xBF" + row.text), failure) << row.text;
    }
}

TEST(RegistryTextReader, TellsBytesThatAreNoText)
{
    EXPECT_EQ(FailureOf(Utf16(head + key) + "x"), "4: the text ends in the middle of a character");
    EXPECT_EQ(FailureOf("\xFE\xFF").substr(0, 27), "1: the text is UTF-16 with ");
    EXPECT_EQ(FailureOf("\xEF\xBB\xBF" + head + "\r\n; \xFF"), "4: the line is not UTF-8");
    EXPECT_EQ(FailureOf(Utf16(head + "\r\n" + std::string(1, '\0'))), "4: there is a NUL character");
    EXPECT_EQ(FailureOf(head.substr(0, 10) + '\0'), "1: there is a NUL character");
}

TEST(RegistryTextReader, EveryCutOfATextIsReadOrRefused)
{
    std::string const text =
        Utf16(head + key + "\"a\"=\"b\\\\c\"\r\n\"d\"=dword:12\r\n@=hex(7):61,00,\\\r\n  00,00 ; c\r\n");
    std::size_t refused = 0;
    for (std::size_t size = 0; size <= text.size(); ++size)
    {
        refused += FailureOf(text.substr(0, size)).empty() ? 0 : 1;
    }
    EXPECT_GT(refused, text.size() / 2);
    EXPECT_EQ(FailureOf(text), "");
}

/// What is written of values in one key.
std::string Written(std::vector<RegistryValue> const & values)
{
    TextSink sink;
    RegistryTextWriter writer(sink);
    writer.Key(TEXT("HKEY_CURRENT_USER\\Software\\x"));
    for (RegistryValue const & value : values)
    {
        writer.Value(value);
    }
    writer.Finish();
    return sink.text;
}

std::string Counting(std::size_t size)
{
    std::string bytes;
    while (bytes.size() < size)
    {
        bytes += static_cast<char>(bytes.size());
    }
    return bytes;
}

// The lines as the platform's own editor breaks them.
TEST(RegistryTextWriterTest, WritesTheBytesThatTheFormatHas)
{
    std::string const expected = head + key +
        "@=\"default \\\"q\\\" \\\\back\"\r\n"
        "\"dw\"=dword:0000002a\r\n"
        "\"empty\"=\"\"\r\n"
        "\"exp\"=hex(2):25,00,00,00\r\n"
        "\"exa\"=hex:00,01,02,03,04,05,06,07,08,09,0a,0b,0c,0d,0e,0f,10,11,12,13,14,15,16\r\n"
        "\"na\\\\me\\\"q\"=hex(b):01,00,00,00,00,00,00,00\r\n"
        "\"nnn\"=hex:00,01,02,03,04,05,06,07,08,09,0a,0b,0c,0d,0e,0f,10,11,12,13,14,15,16,\\\r\n"
        "  17,18,19,1a,1b,1c,1d,1e,1f,20,21,22,23,24,25,26,27,28,29,2a,2b,2c,2d,2e,2f,\\\r\n"
        "  30,31,32,33,34,35,36,37,38,39,3a,3b\r\n"
        "\"nnnn\"=hex:00,01,02,03,04,05,06,07,08,09,0a,0b,0c,0d,0e,0f,10,11,12,13,14,15,\\\r\n"
        "  16,17,18,19,1a,1b,1c,1d,1e,1f,20,21,22,23,24,25,26,27,28,29,2a,2b,2c,2d,2e,\\\r\n"
        "  2f,30,31,32,33,34,35,36,37,38,39,3a,3b\r\n"
        "\"none\"=hex(0):\r\n"
        "\"typebig\"=hex(80000001):01\r\n\r\n";
    std::string const written = Written(
        {{TEXT(""), REG_SZ, TextBytes("default \"q\" \\back")},
         {TEXT("dw"), REG_DWORD, std::string("\x2A\0\0\0", 4)},
         {TEXT("empty"), REG_SZ, TextBytes("")},
         {TEXT("exp"), REG_EXPAND_SZ, std::string("%\0\0\0", 4)},
         {TEXT("exa"), REG_BINARY, Counting(23)},
         {TEXT("na\\me\"q"), REG_QWORD, std::string("\1\0\0\0\0\0\0\0", 8)},
         {TEXT("nnn"), REG_BINARY, Counting(60)},
         {TEXT("nnnn"), REG_BINARY, Counting(60)},
         {TEXT("none"), REG_NONE, ""},
         {TEXT("typebig"), 0x80000001, "\1"}});
    EXPECT_EQ(written, Utf16(expected));
}

TEST(RegistryTextWriterTest, WhatIsWrittenReadsBackByteForByte)
{
    std::vector<RegistryValue> const values = {
        {TEXT("plain"), REG_SZ, TextBytes("caf\xC3\xA9 \xF0\x9F\x98\x80\t;\"\\")},
        {TEXT("without NUL"), REG_SZ, RegistryBytes(TEXT("ab"))},
        {TEXT("odd"), REG_SZ, "abc"},
        {TEXT("empty"), REG_SZ, ""},
        {TEXT("two NULs"), REG_SZ, TextBytes("a") + TextBytes("")},
        {TEXT("NUL inside"), REG_SZ, TextBytes("a") + TextBytes("b")},
        {TEXT("lines"), REG_SZ, TextBytes("a\r\nb")},
        {TEXT("half a pair"), REG_SZ, RegistryBytes(WString{0xD800, 0})},
        {TEXT("short"), REG_DWORD, "\1"},
        {TEXT("long"), REG_DWORD, "12345"},
        {TEXT("list"), REG_MULTI_SZ, RegistryBytes(WString(TEXT("a\0b\0\0"), 5))},
        {TEXT("link"), REG_LINK, RegistryBytes(TEXT("a"))},
        {TEXT("name with\r\nlines"), REG_NONE, "\xFF"},
        {TEXT("]=[\"\\"), REG_QWORD, Counting(8)},
        {TEXT("large"), REG_BINARY, Counting(10'000)},
        {TEXT(""), REG_DWORD_BIG_ENDIAN, "\0\0\0\1"},
    };
    std::vector<RegistryTextKey> const keys = ParseRegistryText(Written(values));
    ASSERT_EQ(keys.size(), 1u);
    ASSERT_EQ(keys[0].values.size(), values.size());
    for (std::size_t i = 0; i < values.size(); ++i)
    {
        RegistryValue const & read = keys[0].values[i].value;
        EXPECT_EQ(read.name, values[i].name);
        EXPECT_EQ(read.type, values[i].type) << values[i].name.Utf8();
        EXPECT_EQ(read.data, values[i].data) << values[i].name.Utf8();
    }
}

TEST(RegistryTextWriterTest, CannotHoldLineEndsInKeys)
{
    EXPECT_TRUE(RegistryTextWriter::CanHold(TEXT("HKEY_USERS\\a]b")));
    EXPECT_FALSE(RegistryTextWriter::CanHold(TEXT("HKEY_USERS\\a\nb")));
    EXPECT_FALSE(RegistryTextWriter::CanHold(TEXT("HKEY_USERS\\a\rb")));
}

TEST(RegistryPathTest, TakesTheNamesThatPeopleUse)
{
    struct
    {
        WCHAR const * typed;
        WCHAR const * shown;
    } const table[] = {
        {TEXT("HKCU"), TEXT("HKEY_CURRENT_USER")},
        {TEXT("hkey_current_user\\"), TEXT("HKEY_CURRENT_USER")},
        {TEXT("HKLM\\Software\\\\x\\"), TEXT("HKEY_LOCAL_MACHINE\\Software\\x")},
        {TEXT("HKCR\\.txt"), TEXT("HKEY_CLASSES_ROOT\\.txt")},
        {TEXT("HKU\\.Default"), TEXT("HKEY_USERS\\.Default")},
        {TEXT("HKCC\\a/b"), TEXT("HKEY_CURRENT_CONFIG\\a/b")},
        {TEXT("HKCU:\\x"), TEXT("HKEY_CURRENT_USER\\x")},
        {TEXT("Computer\\HKEY_USERS\\x"), TEXT("HKEY_USERS\\x")},
        {TEXT("\\\\render1\\HKLM\\x"), TEXT("\\\\render1\\HKEY_LOCAL_MACHINE\\x")},
    };
    for (auto const & row : table)
    {
        EXPECT_EQ(RegistryPath(row.typed).Shown(), row.shown);
    }
    for (WCHAR const * const bad :
         {TEXT(""), TEXT("\\HKCU"), TEXT("\\\\"), TEXT("\\\\m"), TEXT("HK\\x"), TEXT("Software")})
    {
        EXPECT_THROW(RegistryPath{String(bad)}, BadRegistryPath);
    }
}

TEST(RegistryTypes, HaveNamesAndNumbers)
{
    EXPECT_EQ(RegistryTypeName(REG_DWORD), "REG_DWORD");
    EXPECT_EQ(RegistryTypeName(0x8000001F), "0x8000001F");
    EXPECT_EQ(RegistryTypeFrom("reg_qword"), REG_QWORD);
    EXPECT_EQ(RegistryTypeFrom("Multi_SZ"), REG_MULTI_SZ);
    EXPECT_EQ(RegistryTypeFrom("REG_DWORD_LITTLE_ENDIAN"), REG_DWORD);
    EXPECT_EQ(RegistryTypeFrom("0x8000001F"), 0x8000001Fu);
    EXPECT_EQ(RegistryTypeFrom("12"), 12u);
    for (char const * const bad : {"", "REG_", "REG_FOO", "-1", "4294967296", "0x", "1 "})
    {
        EXPECT_EQ(RegistryTypeFrom(bad), std::nullopt) << bad;
    }
}

} // namespace
