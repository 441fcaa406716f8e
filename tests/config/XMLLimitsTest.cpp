// What a document may hold however large it is, and what is refused in words.

#include <kvcore/config/XMLParser.h>

#include <string>

#include <gtest/gtest.h>

#include <kvcore/config/XMLWriter.h>
#include <kvcore/streams/MemoryStreams.h>

#include <support/ComApartment.h>
#include <support/ScratchPaths.h>
#include <support/XmlFailure.h>

#ifndef _WIN32 // Elsewhere the component is the system's, with bounds of its own.

using namespace kv::test;

namespace
{

class XMLLimits : public ::testing::Test
{
protected:
    XMLDocument Parsed(std::string const & text) const
    {
        return XMLParser::ParseData(text.data(), static_cast<int>(text.size()));
    }
    /// Read from a file, which must make no difference.
    XMLDocument ParsedFromFile(std::string const & text) const
    {
        return XMLParser::ParseFile(scratch.Make("document.xml", text).c_str());
    }
    std::string Failure(std::string const & text) const
    {
        std::string const failure = XmlFailureOf([&] { Parsed(text); });
        std::string const fromFile = XmlFailureOf([&] { ParsedFromFile(text); });
        std::size_t const reason = failure.find('\n');
        EXPECT_EQ(fromFile.substr(0, reason), failure.substr(0, reason));
        EXPECT_NE(failure.find("\nLine/Pos: "), std::string::npos) << failure;
        return failure;
    }
    template <typename Check>
    void ForBoth(std::string const & text, Check check) const
    {
        check(Parsed(text));
        check(ParsedFromFile(text));
    }

    ComApartment com;
    ScratchPaths const scratch;
};

std::string Repeated(std::string const & part, std::size_t count)
{
    std::string text;
    text.reserve(part.size() * count);
    for (std::size_t i = 0; i < count; ++i)
    {
        text += part;
    }
    return text;
}

constexpr std::size_t large = 11000000; // beyond what other readers take at once

} // namespace

TEST_F(XMLLimits, LongTextsWithReferencesAreWhole)
{
    ForBoth(
        "<a>" + std::string(large, 'x') + "&amp;" + std::string(large, 'y') + "<b/>tail</a>",
        [](XMLDocument const & document)
        {
            XMLNode const root = document.GetChildNode("a", true);
            String const text = root.GetText();
            EXPECT_EQ(text.size(), 2 * large + 5);
            EXPECT_EQ(text[large], '&');
            EXPECT_EQ(text.substr(2 * large), TEXT("ytail"));
            EXPECT_TRUE(root.GetChildNode("b", false));
        });
}

TEST_F(XMLLimits, LongValuesCommentsSectionsAndInstructionsAreWhole)
{
    std::string const filling(large, 'x');
    std::string const text =
        "<a v='" + filling + "&lt;z'><!--" + filling + "--><?p " + filling + "?><![CDATA[" + filling + "]]>&gt;</a>";
    XMLDocument const document = Parsed(text);
    XMLNode const root = document.GetChildNode("a", true);
    String value;
    EXPECT_TRUE(root.GetAttribute("v", value, true));
    EXPECT_EQ(value.size(), large + 2);
    EXPECT_EQ(root.GetText().size(), large + 1);
    EXPECT_EQ(document.GetXML().size(), text.size() + std::string("\r\n").size());
}

TEST_F(XMLLimits, LongNamesAreWhole)
{
    std::string const name(200000, 'n');
    XMLDocument const document = Parsed("<" + name + " " + name + "='1'/>");
    EXPECT_EQ(document.GetChildNode("*", true).GetName().size(), name.size());
    EXPECT_TRUE(document.GetChildNode("*", true).HasAttribute(name.c_str()));
}

TEST_F(XMLLimits, WhatTheWriterWritesIsReadWhole)
{
    MemoryOutputStream stream;
    XMLWriter writer(stream, false);
    String const lines = String::FromUtf8(Repeated("line\n", 2200000));
    writer.WriteStartElement("a").WriteAttribute("v", TEXT("\n")).WriteCharacters(lines);
    writer.WriteEmptyElement("last").WriteEndElement();
    XMLNode const root = Parsed(stream.GetContent()).GetChildNode("a", true);
    String value;
    EXPECT_TRUE(root.GetAttribute("v", value, true));
    EXPECT_EQ(value, TEXT("\n"));
    EXPECT_EQ(root.GetText(), lines);
    EXPECT_TRUE(root.GetChildNode("last", false));
}

TEST_F(XMLLimits, ElementsNest256Deep)
{
    auto const nested = [](std::size_t depth) { return Repeated("<a>", depth) + "t" + Repeated("</a>", depth); };
    EXPECT_EQ(Parsed(nested(256)).GetText(), TEXT("t"));
    EXPECT_EQ(Failure(nested(257)).substr(0, 62), "2: Elements are nested more than 256 deep, which is not read.\n");
    EXPECT_EQ(Failure(Repeated("<a>", 1000000)).substr(0, 50), "2: Elements are nested more than 256 deep, which i");
}

TEST_F(XMLLimits, ManyAttributesAndNamespacesAreFoundByName)
{
    std::string text = "<a";
    for (int i = 0; i < 5000; ++i)
    {
        std::string const number = std::to_string(i);
        text += " x" + number + "='" + number + "' xmlns:p" + number + "='u" + number + "' p" + number + ":y='p'";
    }
    XMLNode const root = Parsed(text + "/>").GetChildNode("a", true);
    String value;
    for (std::string const name : {"x0", "x15", "x16", "x17", "x4999"})
    {
        EXPECT_TRUE(root.GetAttribute(name.c_str(), value, true)) << name;
        EXPECT_EQ(value.Utf8(), name.substr(1));
    }
    EXPECT_TRUE(root.GetAttribute("p4999:y", value, true));
    EXPECT_TRUE(root.GetAttribute("xmlns:p4999", value, true));
    EXPECT_EQ(value, TEXT("u4999"));
    for (char const * const name : {"x5000", "y", "p:y", "xmlns", "xmlns:", "xmlns:p5000", ":y", "p4999:"})
    {
        EXPECT_FALSE(root.HasAttribute(name)) << name;
    }
}

TEST_F(XMLLimits, EntitiesInEntitiesHaveADeepest)
{
    auto const chain = [](int length)
    {
        std::string text = "<!DOCTYPE a [<!ENTITY e0 'end'>";
        for (int i = 1; i < length; ++i)
        {
            text += "<!ENTITY e" + std::to_string(i) + " '&e" + std::to_string(i - 1) + ";'>";
        }
        return text + "]><a x='&e" + std::to_string(length - 1) + ";'>&e" + std::to_string(length - 1) + ";</a>";
    };
    EXPECT_EQ(Parsed(chain(40)).GetText(), TEXT("end"));
    std::string const refusal = "2: Entities refer to each other more than 40 deep.\n";
    EXPECT_EQ(Failure(chain(41)).substr(0, refusal.size()), refusal);
    EXPECT_EQ(Failure(chain(20000)).substr(0, refusal.size()), refusal);
    std::string circle = "<!DOCTYPE a [<!ENTITY e0 '&e9999;'>";
    for (int i = 1; i < 10000; ++i)
    {
        circle += "<!ENTITY e" + std::to_string(i) + " '&e" + std::to_string(i - 1) + ";'>";
    }
    EXPECT_EQ(Failure(circle + "]><a>&e5;</a>").substr(0, refusal.size()), refusal);
}

TEST_F(XMLLimits, ParameterEntitiesInEachOtherAreCounted)
{
    std::string text = "<!DOCTYPE a [<!ENTITY % p0 ''>";
    for (int i = 1; i < 50000; ++i)
    {
        text += "<!ENTITY % p" + std::to_string(i) + " '&#37;p" + std::to_string(i - 1) + ";'>";
    }
    std::string const refusal = "2: More than 40 parameter entities refer to others.\n";
    EXPECT_EQ(Failure(text + "%p49999;]><a/>").substr(0, refusal.size()), refusal);
}

TEST_F(XMLLimits, DefaultAttributesAreHeldAgainstTheSizeOfTheDocument)
{
    std::string text = "<!DOCTYPE a [<!ATTLIST b";
    for (int i = 0; i < 900; ++i)
    {
        text += " a" + std::to_string(i) + " CDATA 'x'";
    }
    EXPECT_TRUE(Parsed(text + ">]><a>" + Repeated("<b/>", 10) + "</a>").GetChildNode("a/b", true).HasAttribute("a899"));
    std::string const refusal = "2: The default attributes take more memory than the size of the document warrants.\n";
    EXPECT_EQ(Failure(text + ">]><a>" + Repeated("<b/>", 50000) + "</a>").substr(0, refusal.size()), refusal);
}

TEST_F(XMLLimits, ExpansionIsRefusedInWords)
{
    std::string const refusal = "2: The entities make the document more than 10 times as large as it is written.\n";
    std::string const text = "<!DOCTYPE a [<!ENTITY e '" + std::string(10000, 'x') + "'>]>";
    EXPECT_EQ(Failure(text + "<a>" + Repeated("&e;", 10000) + "</a>").substr(0, refusal.size()), refusal);
    EXPECT_EQ(Failure(text + "<a x='" + Repeated("&e;", 10000) + "'/>").substr(0, refusal.size()), refusal);
    EXPECT_EQ(Parsed(text + "<a>" + Repeated("&e;", 50) + "</a>").GetText().size(), 500000u);
}

#endif
