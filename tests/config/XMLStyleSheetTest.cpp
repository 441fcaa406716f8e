// What style sheets and paths may cost, and that bounds change no result.

#include <kvcore/config/XMLParser.h>

#include <string>

#include <gtest/gtest.h>

#include <support/ComApartment.h>
#include <support/StackOfSize.h>
#include <support/XmlFailure.h>

#ifndef _WIN32 // Elsewhere the component is the system's.

using namespace kv::test;

namespace
{

class XMLStyleSheets : public ::testing::Test
{
protected:
    ComApartment com;
};

XMLDocument Parsed(std::string const & text)
{
    return XMLParser::ParseData(text.data(), static_cast<int>(text.size()));
}

XMLDocument Sheet(std::string const & body, std::string const & others = "")
{
    return Parsed(
        "<xsl:stylesheet version='1.0' xmlns:xsl='http://www.w3.org/1999/XSL/Transform'>" + others +
        "<xsl:template match='/'><r>" + body + "</r></xsl:template></xsl:stylesheet>");
}

std::string Result(XMLDocument const & document, XMLDocument const & sheet)
{
    return document.TransformNode(sheet).GetChildNode("r", true).GetXML().Utf8();
}

std::string Repeated(std::string const & part, int count)
{
    std::string text;
    for (int i = 0; i < count; ++i)
    {
        text += part;
    }
    return text;
}

std::string Nested(int depth, std::string const & inside)
{
    return Repeated("<b>", depth) + inside + Repeated("</b>", depth);
}

constexpr char failed[] = "4: Transformation failed";

} // namespace

TEST_F(XMLStyleSheets, PathsGiveTheSameWhateverFormTheyHave)
{
    XMLDocument const document = Parsed("<a><b i='1'><c>x</c><b i='2'><c>y</c></b></b><c>z</c></a>");
    struct
    {
        char const * body;
        char const * result;
    } const rows[] = {
        {"<xsl:for-each select='//b//c'><xsl:value-of select='.'/></xsl:for-each>", "<r>xy</r>"},
        {"<xsl:value-of select='count(//b//b//c)'/>", "<r>1</r>"},
        {"<v x='{//b//b//c}{{//b}}{/a/c}'/>", "<r><v x=\"y{//b}z\"/></r>"},
        {"<v x=\"{'}//'}{//c}\"/>", "<r><v x=\"}//x\"/></r>"},
        {"<xsl:if test='//b//b'>yes</xsl:if><xsl:if test='//c//b'>no</xsl:if>", "<r>yes</r>"},
        {"<xsl:copy-of select='//b//b | /a/c'/>", "<r><b i=\"2\"><c>y</c></b><c>z</c></r>"},
        {"<xsl:variable name='v' select='//b//c'/><xsl:value-of select='count($v)'/>", "<r>2</r>"},
        {"<xsl:element name='{name(//b)}'/>", "<r><b/></r>"},
        {"<xsl:for-each select='//c'><xsl:sort select='.//self::c' order='descending'/><xsl:value-of "
         "select='.'/></xsl:for-each>",
         "<r>zyx</r>"},
        {"<xsl:value-of select=\"count(key('k','y'))\"/>", "<r>1</r>"},
        {"<xsl:value-of select='\"//\"'/>", "<r>//</r>"},
        {"http://x//y", "<r>http://x//y</r>"},
    };
    for (auto const & row : rows)
    {
        EXPECT_EQ(Result(document, Sheet(row.body, "<xsl:key name='k' match='b//c|none' use='.'/>")), row.result)
            << row.body;
    }
}

TEST_F(XMLStyleSheets, PathsOfAnyDepthEndSoon)
{
    XMLDocument const document = Parsed(Nested(255, Repeated("<b/>", 1000)));
    EXPECT_EQ(
        Result(document, Sheet("<xsl:variable name='v' select='//b//b'/><xsl:value-of select='count($v)'/>")),
        "<r>1254</r>");
    EXPECT_EQ(document.GetChildNodes("//b//b//b//b", false).size(), 1252u);
    EXPECT_EQ(document.GetChildNodes("//b//b//b//b//c//b", false).size(), 0u);
}

TEST_F(XMLStyleSheets, PatternsOfAnyDepthAreHeldAgainstTheDepthOfTheDocument)
{
    XMLDocument const sheet = Sheet("<xsl:apply-templates/>", "<xsl:template match='x//b//b//b//b'>y</xsl:template>");
    EXPECT_EQ(XmlFailureOf([&] { Parsed(Nested(250, Repeated("<b/>", 1000))).TransformNode(sheet); }), failed);
    EXPECT_EQ(Result(Parsed("<x><b><b><b><b>t</b></b></b></b></x>"), sheet), "<r>y</r>");
}

TEST_F(XMLStyleSheets, MemoryIsBounded)
{
    XMLDocument const document = Parsed("<a>" + Repeated("<b/>", 1000) + "</a>");
    for (XMLDocument const & sheet :
         {Sheet(
              "<xsl:call-template name='t'><xsl:with-param name='s' select=\"'0123456789'\"/></xsl:call-template>",
              "<xsl:template name='t'><xsl:param name='s'/><xsl:call-template name='t'><xsl:with-param name='s' "
              "select='concat($s,$s)'/></xsl:call-template></xsl:template>"),
          Sheet("<xsl:for-each select='//b'><xsl:for-each select='//b'><xsl:copy-of select='/'/></xsl:for-each>"
                "</xsl:for-each>"),
          Sheet("<xsl:variable name='a'><xsl:for-each select='//b'><xsl:copy-of "
                "select='/'/></xsl:for-each></xsl:variable>"
                "<xsl:for-each select='//b'><xsl:copy-of select='$a'/></xsl:for-each>")})
    {
        EXPECT_EQ(XmlFailureOf([&] { document.TransformNode(sheet); }), failed);
    }
}

TEST_F(XMLStyleSheets, RecursionIsBoundedByTheStack)
{
    XMLDocument const document = Parsed("<a/>");
    XMLDocument const endless = Sheet(
        "<xsl:call-template name='t'/>",
        "<xsl:template name='t'><xsl:if test='1'><x><xsl:call-template name='t'/></x></xsl:if></xsl:template>");
    std::string variables = "<xsl:variable name='v0' select='1'/>";
    for (int i = 1; i < 20000; ++i)
    {
        variables =
            variables + "<xsl:variable name='v" + std::to_string(i) + "' select='$v" + std::to_string(i - 1) + "'/>";
    }
    XMLDocument const chained = Sheet("<xsl:value-of select='$v19999'/>", variables);
    std::string const nested = Repeated("(", 490) + "a" + Repeated(")", 490);
    for (std::size_t const size : {64, 256, 1024, 8192})
    {
        RunOnStackOf(
            size * 1024,
            [&]
            {
                ComApartment const apartment;
                EXPECT_EQ(XmlFailureOf([&] { document.TransformNode(endless); }), failed) << size;
                EXPECT_EQ(XmlFailureOf([&] { document.TransformNode(chained); }), failed) << size;
                try
                {
                    EXPECT_EQ(document.GetChildNodes(nested.c_str(), false).size(), 1u);
                }
                catch (XMLParser::Exception const & failure)
                {
                    EXPECT_NE(failure.message.find(TEXT("too deep for the stack")), String::npos);
                }
            });
    }
}

TEST_F(XMLStyleSheets, WhatTheLibraryIsSlowOnIsRefused)
{
    std::string attributes = "<a";
    for (int i = 0; i < 100000; ++i)
    {
        attributes += " x" + std::to_string(i) + "=''";
    }
    XMLDocument const copying = Sheet("<xsl:copy-of select='/'/>");
    EXPECT_EQ(XmlFailureOf([&] { Parsed(attributes + "/>").TransformNode(copying); }), failed);
    EXPECT_EQ(
        XmlFailureOf([&] { Parsed("<a>" + Repeated("<!---->", 100000) + "</a>").TransformNode(copying); }), failed);
}

#endif
