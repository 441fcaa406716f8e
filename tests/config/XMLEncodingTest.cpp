// Documents in the encodings that they declare.

#include <kvcore/config/XMLParser.h>

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <kvcore/platform/win32.h>

#include <support/ComApartment.h>
#include <support/XmlFailure.h>

#ifndef _WIN32 // Elsewhere the component is the system's.

using namespace kv::test;

namespace
{

class XMLEncodings : public ::testing::Test
{
protected:
    ComApartment com;
};

std::string Declared(std::string const & encoding, std::string const & text)
{
    return "<?xml version='1.0' encoding='" + encoding + "'?><a>" + text + "</a>";
}

/// The text of a document that holds these bytes; empty if it is refused.
String Read(std::string const & encoding, std::string const & bytes)
{
    std::string const document = Declared(encoding, bytes);
    try
    {
        return XMLParser::ParseData(document.data(), static_cast<int>(document.size())).GetText();
    }
    catch (XMLParser::Exception const & failure)
    {
        EXPECT_NE(failure.message.find(TEXT("\nLine/Pos: 1/")), String::npos) << failure.message.Utf8();
        return String();
    }
}

/// The same by the platform's table.
WString ByTable(UINT page, std::string const & bytes)
{
    WString units(bytes.size() * 2, 0);
    int const count = MultiByteToWideChar(
        page, MB_ERR_INVALID_CHARS, bytes.data(), static_cast<int>(bytes.size()), units.data(),
        static_cast<int>(units.size()));
    units.resize(static_cast<std::size_t>(count));
    return units;
}

/// The characters that XML has no place for.
bool IsText(WString const & units)
{
    for (WCHAR const unit : units)
    {
        if ((unit < 0x20 && unit != '\t' && unit != '\n' && unit != '\r') || unit >= 0xFFFE || unit == 0xFEFF)
        {
            return false;
        }
    }
    return !units.empty();
}

struct Page
{
    char const * name;
    UINT number;
};

constexpr Page pages[] = {
    {"windows-874", 874},   {"TIS-620", 874},        {"Shift_JIS", 932},     {"shift-jis", 932},
    {"windows-31j", 932},   {"x-sjis", 932},         {"cp932", 932},         {"gb2312", 936},
    {"GBK", 936},           {"ks_c_5601-1987", 949}, {"euc-kr", 949},        {"Big5", 950},
    {"windows-1250", 1250}, {"windows-1251", 1251},  {"Windows-1252", 1252}, {"windows-1253", 1253},
    {"windows-1254", 1254}, {"windows-1255", 1255},  {"windows-1256", 1256}, {"windows-1257", 1257},
    {"windows-1258", 1258}, {"IBM437", 437},         {"ibm850", 850},        {"cp866", 866},
    {"koi8-r", 20866},      {"koi8-u", 21866},       {"ISO-8859-1", 28591},  {"latin1", 28591},
    {"ISO-8859-2", 28592},  {"iso-8859-5", 28595},   {"ISO-8859-7", 28597},  {"ISO-8859-8", 28598},
    {"ISO-8859-9", 28599},  {"ISO-8859-15", 28605},  {"macintosh", 10000},
};

} // namespace

TEST_F(XMLEncodings, BytesAreReadByTheTablesOfTheCodePages)
{
    for (Page const & page : pages)
    {
        for (int byte = 0x80; byte < 0x100; ++byte)
        {
            std::string const bytes(1, static_cast<char>(byte));
            WString const expected = ByTable(page.number, bytes);
            EXPECT_EQ(Read(page.name, bytes + ' '), IsText(expected) ? expected + TEXT(" ") : WString())
                << page.name << ' ' << byte;
        }
    }
}

TEST_F(XMLEncodings, PairsAreReadByTheTablesOfTheCodePages)
{
    for (Page const & page : pages)
    {
        if (page.number < 932 || page.number > 950) // whose characters are bytes
        {
            continue;
        }
        for (int lead = 0x81; lead < 0xFF; ++lead)
        {
            // A whole row in one document, of those that are characters.
            std::string row;
            for (int trail = 0x40; trail < 0xFF; ++trail)
            {
                std::string const pair{static_cast<char>(lead), static_cast<char>(trail)};
                WString const units = ByTable(page.number, pair);
                row += units.size() == 1 && IsText(units) && units != TEXT("<") && units != TEXT("&") ? pair : "";
            }
            EXPECT_EQ(Read(page.name, row), ByTable(page.number, row)) << page.name << ' ' << lead;
        }
    }
}

TEST_F(XMLEncodings, OthersAreReadToo)
{
    EXPECT_EQ(Read("EUC-JP", "\xA4\xA2"), TEXT("\u3042"));
    EXPECT_EQ(Read("ISO-2022-JP", "\x1B$B$\"\x1B(B"), TEXT("\u3042"));
    EXPECT_EQ(Read("gb18030", "\x81\x30\x81\x30"), TEXT("\u0080"));
    EXPECT_EQ(Read("utf-8", "\xC3\xA4"), TEXT("\u00E4"));
    EXPECT_EQ(Read("UTF8", "\xC3\xA4"), TEXT("\u00E4"));
}

TEST_F(XMLEncodings, WideDocumentsAreReadWithAndWithoutAMark)
{
    struct Form
    {
        bool bigEndian;
        bool mark;
        char const * declared;
    };
    for (Form const form :
         {Form{false, true, ""}, Form{true, true, ""}, Form{false, false, ""}, Form{true, false, ""},
          Form{false, true, "UTF-16"}, Form{true, false, "UTF-16"}, Form{false, true, "UTF-8"}})
    {
        std::string const head =
            *form.declared == '\0' ? "" : "<?xml version='1.0' encoding='" + std::string(form.declared) + "'?>";
        String const text =
            String(form.mark ? TEXT("\uFEFF") : TEXT("")) + String::FromUtf8(head + "<a>\xC3\xA4\xF0\x9F\x98\x80</a>");
        std::string bytes;
        for (WCHAR const unit : text)
        {
            char const low = static_cast<char>(unit & 0xFF);
            char const high = static_cast<char>(unit >> 8);
            bytes += form.bigEndian ? high : low;
            bytes += form.bigEndian ? low : high;
        }
        EXPECT_EQ(
            XMLParser::ParseData(bytes.data(), static_cast<int>(bytes.size())).GetText(), TEXT("\u00E4\U0001F600"));
        std::string const cut = bytes.substr(0, bytes.size() - 1);
        EXPECT_EQ(
            XmlFailureOf([&] { XMLParser::ParseData(cut.data(), static_cast<int>(cut.size())); }).substr(0, 3), "2: ");
    }
}

TEST_F(XMLEncodings, WhatCannotBeReadIsToldWithItsPlace)
{
    struct
    {
        std::string text;
        char const * report;
    } const rows[] = {
        {Declared("windows-874", "\xA1\n\xA1\xFF"),
         "2: The bytes here are no character of the encoding windows-874.\nLine/Pos: 2/2\n"},
        {Declared("Shift_JIS", "\x82\xA0\x82"),
         "2: The bytes here are no character of the encoding Shift_JIS.\nLine/Pos: 1/47\n"},
        {Declared("EUC-JP", "\xA4\xA2\xFF"),
         "2: The bytes here are no character of the encoding EUC-JP.\nLine/Pos: 1/44\n"},
        {Declared("us-ascii", "x\xBC"),
         "2: The bytes here are no character of the encoding us-ascii.\nLine/Pos: 1/46\n"},
        {Declared("klingon", "x"), "2: The encoding klingon is not known.\nLine/Pos: 1/31\n"},
        {Declared("UTF-7", "x"), "2: The encoding UTF-7 is not known.\nLine/Pos: 1/31\n"},
        {Declared("UTF-16", "x"),
         "2: The document declares the encoding UTF-16, and its bytes are of another one.\nLine/Pos: 1/31\n"},
        {Declared("UTF-8", "\xE4"), "2: The character here is not allowed in this place.\nLine/Pos: 1/42\n"},
    };
    for (auto const & row : rows)
    {
        EXPECT_EQ(
            XmlFailureOf([&] { XMLParser::ParseData(row.text.data(), static_cast<int>(row.text.size())); }),
            row.report);
    }
}

#endif
