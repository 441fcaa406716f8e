// Each reader of XML with the shape of input that makes it slowest.

#include <kvcore/config/XMLParser.h>

#include <algorithm>
#include <iterator>
#include <string>

#include <gtest/gtest.h>

#include <support/ComApartment.h>
#include <support/CostGrowth.h>

#ifndef _WIN32 // Elsewhere the component is the system's.

using kv::test::GrowsNearLinearly;

namespace
{

class XMLCost : public ::testing::Test
{
protected:
    kv::test::ComApartment com;
};

XMLDocument Parsed(std::string const & text)
{
    return XMLParser::ParseData(text.data(), static_cast<int>(text.size()));
}

/// A text put together of `part(0)`, `part(1)` and so on.
template <typename Part>
std::string Joined(std::string const & before, std::size_t count, std::string const & after, Part part)
{
    std::string text = before;
    for (std::size_t i = 0; i < count; ++i)
    {
        text += part(std::to_string(i));
    }
    return text + after;
}

std::string Deep(std::size_t leaves)
{
    auto const same = [](char const * part) { return [part](std::string const &) { return part; }; };
    return Joined("", 200, "", same("<b>")) + Joined("", leaves, "", same("<b/>")) + Joined("", 200, "", same("</b>"));
}

struct Shape
{
    char const * name;
    std::string (*make)(std::size_t size);
};

constexpr Shape shapes[] = {
    {"attributes of one element",
     [](std::size_t size) { return Joined("<a", size, "/>", [](std::string const & i) { return " x" + i + "=''"; }); }},
    {"attributes with prefixes",
     [](std::size_t size)
     { return Joined("<a xmlns:p='u'", size, "/>", [](std::string const & i) { return " p:x" + i + "=''"; }); }},
    {"namespaces of one element",
     [](std::size_t size)
     { return Joined("<a", size, "/>", [](std::string const & i) { return " xmlns:x" + i + "='u'"; }); }},
    {"names",
     [](std::size_t size)
     { return Joined("<a>", size, "</a>", [](std::string const & i) { return "<n" + i + "/>"; }); }},
    {"references",
     [](std::size_t size) { return Joined("<a>", size, "</a>", [](std::string const &) { return "&#10;&amp;"; }); }},
    {"entities",
     [](std::size_t size)
     {
         auto const declaration = [](std::string const & i) { return "<!ENTITY e" + i + " 'x'>"; };
         auto const reference = [](std::string const & i) { return "&e" + i + ';'; };
         return Joined("<!DOCTYPE a [", size, "]>", declaration) + Joined("<a>", size, "</a>", reference);
     }},
    {"references to one entity",
     [](std::size_t size) {
         return Joined("<!DOCTYPE a [<!ENTITY e '<b/>'>]><a>", size, "</a>", [](std::string const &) { return "&e;"; });
     }},
    {"identifiers",
     [](std::size_t size)
     {
         return Joined(
             "<!DOCTYPE a [<!ATTLIST b i ID #IMPLIED>]><a>", size, "</a>",
             [](std::string const & i) { return "<b i='x" + i + "'/>"; });
     }},
    {"comments",
     [](std::size_t size) { return Joined("<a>", size, "</a>", [](std::string const &) { return "<!--c-->"; }); }},
    {"elements far down", Deep},
    {"a start tag without an end", [](std::size_t size) { return "<a x='" + std::string(size, '<'); }},
    {"a comment without an end", [](std::size_t size) { return "<a><!--" + std::string(size, '-'); }},
};

/// Inputs of this size and more are all larger than what lies near the processor.
constexpr std::size_t beyondCaches = 16000;

void ReadOrFail(std::string const & text)
{
    try
    {
        Parsed(text);
    }
    catch (XMLParser::Exception const &)
    {
        return;
    }
}

} // namespace

TEST_F(XMLCost, ReadingGrowsWithTheText)
{
    for (Shape const & shape : shapes)
    {
        EXPECT_TRUE(GrowsNearLinearly(beyondCaches, 64000, shape.make, ReadOrFail)) << shape.name;
    }
}

TEST_F(XMLCost, WritingGrowsWithTheDocument)
{
    auto const write = [](XMLDocument const & document) { document.GetXML(); };
    for (char const * const name :
         {"attributes of one element", "namespaces of one element", "names", "comments", "elements far down"})
    {
        auto const shape = std::find_if(
            std::begin(shapes), std::end(shapes),
            [name](Shape const & each) { return std::string(each.name) == name; });
        ASSERT_NE(shape, std::end(shapes));
        auto const make = [shape](std::size_t size) { return Parsed(shape->make(size)); };
        EXPECT_TRUE(GrowsNearLinearly(beyondCaches, 64000, make, write)) << name;
    }
}

TEST_F(XMLCost, PlainPathsGrowWithTheDocument)
{
    auto const make = [](std::size_t size) { return Parsed(Deep(size)); };
    for (char const * const path :
         {"//b", "//b//b", "//b//b//b//b//b//b//b//b", "//b//@x", "//b | //b//b", "//c//b//c", "//node()//node()"})
    {
        EXPECT_TRUE(GrowsNearLinearly(
            2000, 64000, make, [path](XMLDocument const & document) { document.GetChildNodes(path, false); }))
            << path;
    }
}

TEST_F(XMLCost, PathsOverNeighboursThatAreNoElementsGrowWithTheirNumber)
{
    auto const make = [](std::size_t size)
    { return Parsed(Joined("<a>", size, "</a>", [](std::string const &) { return "<!--c--><?p i?><![CDATA[t]]>"; })); };
    for (char const * const path : {"a/node()", "a/node()[. != '']", "a/text()[1 = 1]", "//comment()[true()]"})
    {
        EXPECT_TRUE(GrowsNearLinearly(
            1000, 32000, make, [path](XMLDocument const & document) { document.GetChildNodes(path, false); }))
            << path;
        EXPECT_TRUE(GrowsNearLinearly(
            1000, 32000, make, [path](XMLDocument const & document) { document.GetChildNode(path, false); }))
            << path;
    }
}

TEST_F(XMLCost, AttributesByNameGrowWithTheirNumber)
{
    struct Named
    {
        XMLNode element;
        std::size_t count;
    };
    auto const make = [](std::size_t size) {
        return Named{Parsed(shapes[0].make(size)).GetChildNode("a", true), size};
    };
    auto const run = [](Named const & named)
    {
        for (std::size_t i = 0; i < named.count; ++i)
        {
            EXPECT_TRUE(named.element.HasAttribute(("x" + std::to_string(i)).c_str()));
        }
    };
    EXPECT_TRUE(GrowsNearLinearly(1000, 64000, make, run));
}

TEST_F(XMLCost, StyleSheetsGrowWithTheDocument)
{
    XMLDocument const copying =
        Parsed("<xsl:stylesheet version='1.0' xmlns:xsl='http://www.w3.org/1999/XSL/Transform'>"
               "<xsl:template match='@*|node()'><xsl:copy><xsl:apply-templates select='@*|node()'/></xsl:copy>"
               "</xsl:template></xsl:stylesheet>");
    auto const make = [](std::size_t size)
    { return Parsed(Joined("<a>", size, "</a>", [](std::string const & i) { return "<b x='" + i + "'>t</b>"; })); };
    EXPECT_TRUE(
        GrowsNearLinearly(1000, 16000, make, [&](XMLDocument const & document) { document.TransformNode(copying); }));
}

#endif
