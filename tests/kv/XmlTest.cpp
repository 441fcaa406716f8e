#include <kvcore/tools/kv/RunKv.h>
#include <kvcore/tools/kv/XmlLayout.h>
#include <kvcore/tools/support/ComUse.h>
#include <kvcore/tools/support/ExitCodes.h>

#include <algorithm>
#include <cstddef>

#include <gtest/gtest.h>

#include "AllocationCounter.h"

#include <support/ScratchFolder.h>
#include <support/ToolConsole.h>
#include <support/XmlComponent.h>

namespace
{

using namespace kv::tools;
using kv::test::RunTool;
using kv::test::ToolResult;

bool Contains(std::string const & text, std::string const & part)
{
    return text.find(part) != std::string::npos;
}

std::string LaidOut(std::string const & xml)
{
    std::string out;
    LayOut(xml, {}, [&](std::string_view piece) { out += piece; });
    return out;
}

/// Documents, and kv at work on them.
class KvXml : public testing::Test
{
protected:
    ToolResult Run(std::vector<std::string> arguments, std::string const & input = "") const
    {
        arguments.insert(arguments.begin(), "xml");
        return RunTool(RunKv, arguments, input);
    }
    std::string Name(std::string const & file) const
    {
        return (folder / file).string();
    }
    std::string Made(std::string const & file, std::string const & content) const
    {
        folder.Write(file, content);
        return Name(file);
    }
    void ExpectFormat(std::string const & xml, std::string const & formatted) const
    {
        ToolResult const result = Run({"format", "-"}, xml);
        EXPECT_EQ(result.code, ExitOk) << result.error;
        EXPECT_EQ(result.output, formatted);
        EXPECT_EQ(Run({"format", "-"}, formatted).output, formatted) << "a second time";
    }

    ComUse const com;
    ScratchFolder const folder;
    bool const strict = kv::test::IsStrictComponent();
};

TEST_F(KvXml, FormatsTagsInLines)
{
    ExpectFormat("<a><b/><c><d x='1'/></c></a>", "<a>\n  <b/>\n  <c>\n    <d x=\"1\"/>\n  </c>\n</a>\n");
    ExpectFormat("<a>\n\n   <b/>\t</a>", "<a>\n  <b/>\n</a>\n");
    ExpectFormat("<a><!--c--><?p i?><b/></a><!--d-->", "<a>\n  <!--c-->\n  <?p i?>\n  <b/>\n</a>\n<!--d-->\n");
    ExpectFormat("<a x='&gt; &quot; &#10;'/>", "<a x=\"&gt; &quot; &#10;\"/>\n");
}

TEST_F(KvXml, FormatKeepsTheDeclarationAndCharacters)
{
    ExpectFormat("<?xml version='1.0'?><a/>", "<?xml version=\"1.0\"?>\n<a/>\n");
    ExpectFormat("<a>\xC3\xA4 \xF0\x9F\x98\x80</a>", "<a>\xC3\xA4 \xF0\x9F\x98\x80</a>\n");
    EXPECT_TRUE(Contains(
        Run({"format", "-"}, "<?xml version='1.0' encoding='ISO-8859-1'?><a>\xE4</a>").output, "<a>\xC3\xA4</a>"));
}

TEST_F(KvXml, FormatKeepsContentWithText)
{
    ExpectFormat(
        "<a><b>text <i>in <u/> it</i>\n tail</b><c/></a>",
        "<a>\n  <b>text <i>in <u/> it</i>\n tail</b>\n  <c/>\n</a>\n");
    ExpectFormat("<a><b> </b></a>", "<a>\n  <b> </b>\n</a>\n");
    ExpectFormat("<a> <![CDATA[<x>]]> <b/></a>", "<a> <![CDATA[<x>]]> <b/></a>\n");
    ExpectFormat("<a><b xml:space=\"preserve\"> <c/> </b></a>", "<a>\n  <b xml:space=\"preserve\"> <c/> </b>\n</a>\n");
}

TEST_F(KvXml, FormatTakesAnIndent)
{
    std::string const xml = "<a>\n <b>\n  <c/> </b></a>";
    EXPECT_EQ(Run({"format", "-", "--indent", "4"}, xml).output, "<a>\n    <b>\n        <c/>\n    </b>\n</a>\n");
    EXPECT_EQ(Run({"format", "-", "-i", "tab"}, xml).output, "<a>\n\t<b>\n\t\t<c/>\n\t</b>\n</a>\n");
    EXPECT_EQ(Run({"format", "-", "--indent", "0"}, xml).output, "<a>\n<b>\n<c/>\n</b>\n</a>\n");
    EXPECT_EQ(Run({"format", "-", "--compact"}, xml).output, "<a><b><c/></b></a>\n");
    for (std::string const indent : {"-1", "17", "x", "", "99999999999999999999"})
    {
        EXPECT_EQ(Run({"format", "-", "--indent=" + indent}, xml).code, ExitUsage) << indent;
    }
}

TEST_F(KvXml, FormatLaysOutDocumentTypes)
{
    std::string const type = "<!DOCTYPE a [<!ENTITY e \"x>y ]>\"><!-- ]> ' --><?p ]> ?>]>";
    EXPECT_EQ(LaidOut(type + "<a> <b/></a>"), type + "\n<a>\n  <b/>\n</a>\n");
}

TEST(KvXmlLayout, HoldsAPieceOfTheOutputWhateverItsSize)
{
    std::string const deep = [](std::size_t depth, std::size_t leaves)
    {
        std::string xml;
        for (std::size_t i = 0; i < depth; ++i)
        {
            xml += "<a>";
        }
        for (std::size_t i = 0; i < leaves; ++i)
        {
            xml += "<b/>";
        }
        for (std::size_t i = 0; i < depth; ++i)
        {
            xml += "</a>";
        }
        return xml;
    }(250, 50000);
    std::size_t size = 0;
    std::size_t largest = 0;
    std::ptrdiff_t const before = kv::test::HeapHeld();
    kv::test::ResetHeapPeak();
    LayOut(
        deep, {},
        [&](std::string_view piece)
        {
            size += piece.size();
            largest = std::max(largest, piece.size());
        });
    EXPECT_LT(kv::test::HeapPeak() - before, 0x40000);
    EXPECT_LT(largest, deep.size());
    EXPECT_GT(size, 100 * deep.size());
}

TEST_F(KvXml, OutputIsSavedAlsoOverTheInput)
{
    std::string const file = Made("a.xml", "<a><b/></a>");
    EXPECT_EQ(Run({"format", file, "--output", file}).code, ExitOk);
    EXPECT_EQ(folder.Read("a.xml"), "<a>\n  <b/>\n</a>\n");
    folder.Write("a.xml", "<a><b></a>");
    EXPECT_EQ(Run({"format", file, "--output", file}).code, ExitDamaged);
    EXPECT_EQ(folder.Read("a.xml"), "<a><b></a>") << "nothing is saved of a wrong document";
    EXPECT_EQ(Run({"format", "-", "-o", Name("missing/b.xml")}, "<a/>").code, ExitIo);
}

TEST_F(KvXml, WhatIsNotWellFormedIsToldWithItsPlace)
{
    std::string const file = Made("wrong.xml", "<a>\n  <b></a>\n</b>");
    for (std::string const action : {"format", "query", "validate", "transform"})
    {
        std::vector<std::string> arguments{action, file, "//b"};
        if (action == "format")
        {
            arguments.pop_back();
        }
        else if (action != "query")
        {
            arguments[2] = Made("good.xml", "<a/>");
        }
        ToolResult const result = Run(arguments);
        EXPECT_EQ(result.code, ExitDamaged) << action;
        EXPECT_EQ(result.output, "") << action;
        EXPECT_TRUE(Contains(result.error, "wrong.xml:")) << result.error;
        EXPECT_TRUE(
            !strict || Contains(result.error, "wrong.xml:2:8: The end tag does not match the start tag <b> of line 2."))
            << result.error;
    }
    EXPECT_TRUE(Contains(Run({"format", "-"}, "").error, "kv xml: standard input:")) << "an empty input";
}

TEST_F(KvXml, MissingFilesAreFailuresOfReading)
{
    ToolResult const result = Run({"format", Name("none.xml")});
    EXPECT_EQ(result.code, ExitIo);
    EXPECT_TRUE(Contains(result.error, "none.xml")) << result.error;
    EXPECT_EQ(Run({"validate", "-", Name("none.xsd")}, "<a/>").code, ExitIo);
}

constexpr char feed[] = "<f xmlns:p='urn:p'><i n='1'>one</i><i n='2'>t<b>w</b>o</i><p:i n='3'/><!--c--></f>";

TEST_F(KvXml, QueriesNodesAndValues)
{
    struct Case
    {
        char const * path;
        char const * text;
        char const * xml;
    };
    Case const cases[] = {
        {"//i", "one\ntwo\n", "<i n=\"1\">one</i>\n<i n=\"2\">t<b>w</b>o</i>\n"},
        {"//i/@n", "1\n2\n", "n=\"1\"\nn=\"2\"\n"},
        {"f/i[2]/text()", "t\no\n", "t\no\n"},
        {"//comment()", "c\n", "<!--c-->\n"},
        {"//p:i/@n", "3\n", "n=\"3\"\n"},
        {"count(//i)", "2\n", "2\n"},
        {"string(//i[2])", "two\n", "two\n"},
        {"1 + 1 < 3", "true\n", "true\n"},
        {"concat('a\"', '&')", "a\"&\n", "a\"&\n"},
        {"sum(//@n)", "6\n", "6\n"},
        {"count(//p:i)", "1\n", "1\n"},
    };
    for (Case const & each : cases)
    {
        ToolResult const result = Run({"query", "-", each.path}, feed);
        EXPECT_EQ(result.code, ExitOk) << each.path << result.error;
        EXPECT_EQ(result.output, each.text) << each.path;
        EXPECT_EQ(Run({"query", "-", each.path, "--xml"}, feed).output, each.xml) << each.path;
    }
}

TEST_F(KvXml, QueriesCountAndSeparate)
{
    EXPECT_EQ(Run({"query", "-", "//i", "--count"}, feed).output, "2\n");
    EXPECT_EQ(Run({"query", "-", "//i", "--null"}, feed).output, std::string("one\0two\0", 8));
    ToolResult const none = Run({"query", "-", "//none"}, feed);
    EXPECT_EQ(none.code, ExitFailed);
    EXPECT_EQ(none.output + none.error, "");
    ToolResult const count = Run({"query", "-", "//none", "--count"}, feed);
    EXPECT_EQ(count.code, ExitOk);
    EXPECT_EQ(count.output, "0\n");
}

TEST_F(KvXml, QueriesKnowPrefixes)
{
    std::string const xml = "<f xmlns='urn:d' xmlns:p='urn:p'><p:i>1</p:i><i>2</i></f>";
    EXPECT_EQ(Run({"query", "-", "//p:i"}, xml).output, "1\n");
    EXPECT_EQ(Run({"query", "-", "//q:i", "--prefix", "q=urn:p"}, xml).output, "1\n");
    EXPECT_EQ(Run({"query", "-", "//d:i | //p:i", "-p", "d=urn:d"}, xml).output, "1\n2\n");
    EXPECT_EQ(Run({"query", "-", "//p:i", "-p", "p=urn:d"}, xml).output, "2\n") << "the given one goes first";
    EXPECT_EQ(Run({"query", "-", "count(//d:*)", "-p", "d=urn:d"}, xml).output, "2\n");
    for (std::string const prefix : {"", "x", "=x", "a b=x", "a:b=x"})
    {
        EXPECT_EQ(Run({"query", "-", "//i", "--prefix=" + prefix}, xml).code, ExitUsage) << prefix;
    }
}

TEST_F(KvXml, AWrongPathIsAWrongCommandLine)
{
    for (std::string const path : {"//[", "u:i", "unknown()", "a b"})
    {
        ToolResult const result = Run({"query", "-", path}, feed);
        EXPECT_EQ(result.code, ExitUsage) << path;
        EXPECT_EQ(result.output, "") << path;
        EXPECT_TRUE(Contains(result.error, "\"" + path + "\": ")) << result.error;
    }
}

std::string Schema(std::string const & attributes)
{
    return "<xs:schema xmlns:xs='http://www.w3.org/2001/XMLSchema' " + attributes +
        "><xs:element name='a'><xs:complexType><xs:sequence><xs:element name='n' type='xs:int'/></xs:sequence>"
        "</xs:complexType></xs:element></xs:schema>";
}

TEST_F(KvXml, ValidatesWithTheFirstViolationsPlace)
{
    std::string const schema = Made("a.xsd", Schema(""));
    ToolResult const good = Run({"validate", Made("good.xml", "<a>\n<n>1</n></a>"), schema});
    EXPECT_EQ(good.code, ExitOk) << good.error;
    EXPECT_EQ(good.output + good.error, "");
    ToolResult const bad = Run({"validate", Made("bad.xml", "<a>\n<n>x</n></a>"), schema});
    EXPECT_EQ(bad.code, ExitFailed);
    EXPECT_TRUE(Contains(bad.error, "bad.xml:")) << bad.error;
    EXPECT_TRUE(!strict || Contains(bad.error, "bad.xml:2:1: Element 'n': 'x' is not a valid value")) << bad.error;
    EXPECT_EQ(Run({"validate", "-", schema}, "<a/>").code, ExitFailed);
}

TEST_F(KvXml, ValidatesNamespaces)
{
    std::string const schema = Made("a.xsd", Schema("targetNamespace='urn:x'"));
    EXPECT_EQ(Run({"validate", "-", schema}, "<a xmlns='urn:x'><n xmlns=''>1</n></a>").code, ExitOk);
    EXPECT_EQ(Run({"validate", "-", schema}, "<a xmlns='urn:x'><n xmlns=''>x</n></a>").code, ExitFailed);
}

TEST_F(KvXml, AWrongSchemaIsNamed)
{
    for (std::string const text : {"<xs:schema", "", "<nonsense/>"})
    {
        ToolResult const result = Run({"validate", "-", Made("wrong.xsd", text)}, "<a/>");
        EXPECT_EQ(result.code, ExitDamaged) << text;
        EXPECT_TRUE(Contains(result.error, "wrong.xsd:")) << result.error;
    }
}

std::string StyleSheet(std::string const & output, std::string const & content)
{
    return "<xsl:stylesheet version='1.0' xmlns:xsl='http://www.w3.org/1999/XSL/Transform'><xsl:output " + output +
        "/><xsl:template match='/'>" + content + "</xsl:template></xsl:stylesheet>";
}

TEST_F(KvXml, TransformsIntoXmlHtmlAndText)
{
    std::string const content = "<r><xsl:value-of select='//i[1]'/>\xC3\xA4<br/></r>";
    std::string const xml = Made("x.xsl", StyleSheet("method='xml' encoding='ISO-8859-1'", content));
    std::string const html = Made("h.xsl", StyleSheet("method='html'", content));
    std::string const text = Made("t.xsl", StyleSheet("method='text'", content));
    EXPECT_TRUE(!strict || Contains(Run({"transform", "-", xml}, feed).output, "encoding=\"UTF-8\""));
    EXPECT_TRUE(Contains(Run({"transform", "-", xml}, feed).output, "<r>one\xC3\xA4<br/></r>"));
    EXPECT_TRUE(Contains(Run({"transform", "-", html}, feed).output, "<br>"));
    EXPECT_EQ(Run({"transform", "-", text}, feed).output, "one\xC3\xA4");
    EXPECT_EQ(Run({"transform", "-", text, "--output", Name("out.txt")}, feed).code, ExitOk);
    EXPECT_EQ(folder.Read("out.txt"), "one\xC3\xA4");
}

TEST_F(KvXml, AWrongStyleSheetIsNamed)
{
    std::string const wrong = Made("wrong.xsl", StyleSheet("", "<xsl:value-of select='['/>"));
    ToolResult const result = Run({"transform", "-", wrong}, feed);
    EXPECT_TRUE(!strict || result.code == ExitDamaged);
    EXPECT_TRUE(!strict || Contains(result.error, "wrong.xsl:")) << result.error;
    EXPECT_EQ(Run({"transform", "-", Made("broken.xsl", "<x")}, feed).code, ExitDamaged);
}

TEST_F(KvXml, StyleSheetsReachNoFiles)
{
    std::string const secret = Made("secret.xml", "<s>secret</s>");
    std::string const sheet =
        Made("s.xsl", StyleSheet("method='text'", "<xsl:value-of select=\"document('" + secret + "')\"/>"));
    EXPECT_FALSE(strict && Contains(Run({"transform", "-", sheet}, feed).output, "secret"));
}

TEST_F(KvXml, WrongCommandLinesAreRefused)
{
    for (std::vector<std::string> const & arguments : std::vector<std::vector<std::string>>{
             {},
             {"format"},
             {"format", "-", "more"},
             {"query", "-"},
             {"validate", "-"},
             {"transform", "-"},
             {"nonsense", "-"},
             {"validate", "-", "-"}})
    {
        EXPECT_EQ(Run(arguments, "<a/>").code, ExitUsage) << testing::PrintToString(arguments);
    }
    EXPECT_TRUE(Contains(RunTool(RunKv, {"help", "xml"}).output, "kv xml query feed.xml"));
}

} // namespace
