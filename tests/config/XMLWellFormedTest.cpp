// What a reader that does not validate takes, and where it says that it does not.

#include <kvcore/config/XMLParser.h>

#include <algorithm>
#include <string>

#include <gtest/gtest.h>

#include <support/ComApartment.h>
#include <support/XmlFailure.h>

#ifndef _WIN32 // Elsewhere the component is the system's.

using namespace kv::test;

namespace
{

class XMLWellFormed : public ::testing::Test
{
protected:
    ComApartment com;
};

XMLDocument Parsed(std::string const & text)
{
    return XMLParser::ParseData(text.data(), static_cast<int>(text.size()));
}

std::string Failure(std::string const & text)
{
    return XmlFailureOf([&] { Parsed(text); });
}

} // namespace

TEST_F(XMLWellFormed, RulesOfValidityAreNotHeld)
{
    for (std::string const text :
         {"<!DOCTYPE a [<!ATTLIST a i ID #IMPLIED>]><a i='x'><a i='x'/></a>",
          "<!DOCTYPE a [<!ATTLIST a i ID #IMPLIED>]><a i='1 2:3 -'/>",
          "<!DOCTYPE a [<!ATTLIST a i ID #IMPLIED>]><a i=''/>",
          "<!DOCTYPE a [<!ATTLIST a i ID 'x'>]><a/>",
          "<!DOCTYPE a [<!ATTLIST a i ID #IMPLIED j ID #IMPLIED>]><a i='x' j='x'/>",
          "<!DOCTYPE a [<!ATTLIST a i ID #IMPLIED><!ATTLIST a j ID #IMPLIED>]><a/>",
          "<!DOCTYPE a [<!ATTLIST a i IDREF #IMPLIED>]><a i='nobody'/>",
          "<!DOCTYPE a [<!ATTLIST a i ENTITY #IMPLIED>]><a i='nobody'/>",
          "<!DOCTYPE a [<!ATTLIST a n NOTATION (m) #IMPLIED>]><a n='k'/>",
          "<!DOCTYPE a [<!ATTLIST a n (x|y|x) 'z'>]><a n='k'/>",
          "<!DOCTYPE a [<!ATTLIST a n NMTOKEN #REQUIRED>]><a/>",
          "<!DOCTYPE a [<!ATTLIST a n CDATA #FIXED 'x'>]><a n='y'/>",
          "<!DOCTYPE a [<!ELEMENT a EMPTY><!ELEMENT a ANY>]><a>t</a>",
          "<!DOCTYPE a [<!ELEMENT a (b,b)>]><a><c/></a>",
          "<!DOCTYPE a [<!ELEMENT a (#PCDATA|b|b)*>]><a/>",
          "<!DOCTYPE a [<!NOTATION n SYSTEM 'x'><!NOTATION n SYSTEM 'y'>]><a/>",
          "<!DOCTYPE a [<!ENTITY u SYSTEM 'x' NDATA nothing>]><a/>",
          "<!DOCTYPE a [<!ENTITY e 'x'><!ENTITY e 'y'>]><a>&e;</a>",
          "<!DOCTYPE b><a/>",
          "<a xml:id='1'><b xml:id='1'/></a>",
          "<a xml:lang='no language' xml:space='other'/>"})
    {
        EXPECT_EQ(Failure(text), "none") << text;
    }
}

TEST_F(XMLWellFormed, ReferencesBehindUnreadDeclarationsAreNoFailures)
{
    for (std::string const type :
         {"<!DOCTYPE a [<!ENTITY % p SYSTEM 'none.ent'>%p;]>", "<!DOCTYPE a SYSTEM 'none.dtd'>",
          "<!DOCTYPE a PUBLIC 'p' 'none.dtd'>", "<!DOCTYPE a SYSTEM 'none.dtd' [<!ENTITY i 'x'>]>",
          "<!DOCTYPE a [<!ENTITY % p SYSTEM 'none.ent'>%p;%unknown;]>"})
    {
        EXPECT_EQ(Failure(type + "<a x='1&e;2'>t&e;u</a>"), "none") << type;
    }
    std::string const standalone = "<?xml version='1.0' standalone='yes'?><!DOCTYPE a SYSTEM 'none.dtd'>";
    EXPECT_NE(Failure(standalone + "<a>&e;</a>"), "none");
    EXPECT_NE(Failure("<!DOCTYPE a [<!ENTITY i 'x'>]><a>&e;</a>"), "none");
}

TEST_F(XMLWellFormed, DefaultAttributesOfTheDocumentAreThere)
{
    struct
    {
        char const * declarations;
        char const * value;
    } const rows[] = {
        {"<!ATTLIST a d CDATA 'v'>", "v"},
        {"<!ATTLIST a d CDATA #FIXED 'v'>", "v"},
        {"<!ATTLIST a d NMTOKENS ' v  w '>", "v w"},
        {"<!ATTLIST a d CDATA 'v'><!ATTLIST a d CDATA 'w'>", "v"},
        {"<!ENTITY e 'v'><!ATTLIST a d CDATA '&e;&#33;'>", "v!"},
        {"<!ENTITY % p \"<!ATTLIST a d CDATA 'v'>\">%p;", "v"},
        {"<!ENTITY % p SYSTEM 'none.ent'>%p;<!ATTLIST a d CDATA 'v'>", "v"},
        {"<!ATTLIST a d CDATA 'v'><!ENTITY % p SYSTEM 'none.ent'>%p;", "v"},
    };
    for (auto const & row : rows)
    {
        XMLNode const root = Parsed("<!DOCTYPE a [" + std::string(row.declarations) + "]><a/>").GetChildNode("a", true);
        String value;
        EXPECT_TRUE(root.GetAttribute("d", value, false)) << row.declarations;
        EXPECT_EQ(value.Utf8(), row.value) << row.declarations;
    }
    EXPECT_EQ(
        Parsed("<!DOCTYPE a [<!ATTLIST a d CDATA 'v'>]><a d='own'/>").GetXML(),
        TEXT("<!DOCTYPE a [<!ATTLIST a d CDATA 'v'>]>\r\n<a d=\"own\"/>\r\n"));
}

TEST_F(XMLWellFormed, TheDocumentTypeIsWrittenAsItWasRead)
{
    for (std::string const text :
         {"<!DOCTYPE a>\r\n<a/>\r\n", "<!DOCTYPE a SYSTEM \"s'\">\r\n<a/>\r\n",
          "<!DOCTYPE a PUBLIC \"p\" 's\"'>\r\n<a/>\r\n",
          "<!DOCTYPE a [\r\n <!ELEMENT a ANY> <!-- ]> -->\r\n <!ENTITY % p ']'><?i ]?>]>\r\n<a/>\r\n"})
    {
        EXPECT_EQ(Parsed(text).GetXML().Utf8(), text);
    }
}

TEST_F(XMLWellFormed, EveryFailureHasAPlace)
{
    struct
    {
        char const * text;
        char const * place;
    } const rows[] = {
        {"", "1/1"},
        {"\n\n", "3/1"},
        {"<a>", "1/4"},
        {"<a>\n <b></a>", "2/7"},
        {"<a/>\n<b/>", "2/1"},
        {"<a>&b;</a>", "1/4"},
        {"<a>\n\xC3\xA4\xC3\xA4&b;</a>", "2/3"},
        {"<a x='1'\n x='2'/>", "2/2"},
        {"<a>\n<p:b/></a>", "2/1"},
        {"<a p:x='1'/>", "1/1"},
        {"<a>\n<b xmlns:p='u' xmlns:q='u' p:x='' q:x=''/></a>", "2/1"},
        {"<a>\n<b:c:d/></a>", "2/1"},
        {"<a>\n\x01</a>", "2/1"},
        {"<a>\n \xFF</a>", "2/2"},
        {"<a>&#0;</a>", "1/4"},
        {"<a>]]></a>", "1/6"},
        {"<a><!-- -- --></a>", "1/11"},
        {"<?xml version='2.0'?><a/>", "1/1"},
        {"<?xml version='1.0' encoding='klingon'?><a/>", "1/31"},
        {"<?xml version='1.0'?>\n<!DOCTYPE a [<!ENTITY e '&e;'>]><a>&e;</a>", "2/36"},
    };
    for (auto const & row : rows)
    {
        std::string const report = Failure(row.text);
        std::string const place = "\nLine/Pos: " + std::string(row.place) + "\n";
        EXPECT_EQ(report.substr(report.size() - std::min(report.size(), place.size())), place) << row.text;
    }
}

TEST_F(XMLWellFormed, PathsAndStyleSheetsFindElementsByTheirIdentifiers)
{
    XMLDocument const document =
        Parsed("<!DOCTYPE a [<!ATTLIST b i ID #IMPLIED>]><a><b i='x'>1</b><b i='x'>2</b><b i='y'>3</b></a>");
    EXPECT_EQ(document.GetChildNode("id('x')", true).GetText(), TEXT("1"));
    EXPECT_EQ(document.GetChildNodes("id('x y z')", true).size(), 2u);
    XMLNode const result = document.TransformNode(
        Parsed("<xsl:stylesheet version='1.0' xmlns:xsl='http://www.w3.org/1999/XSL/Transform'><xsl:template match='/'>"
               "<r><xsl:value-of select=\"id('y')\"/></r></xsl:template></xsl:stylesheet>"));
    EXPECT_EQ(result.GetText(), TEXT("3"));
}

TEST_F(XMLWellFormed, AViolationOfASchemaHasAPlace)
{
    XMLDocument document = Parsed("<a>\n  <n>x</n></a>");
    std::string const schema = "<xs:schema xmlns:xs='http://www.w3.org/2001/XMLSchema'><xs:element name='a'>"
                               "<xs:complexType><xs:sequence><xs:element name='n' type='xs:int'/></xs:sequence>"
                               "</xs:complexType></xs:element></xs:schema>";
    std::string const report = XmlFailureOf([&] { document.ValidateSchema(schema.c_str(), -1); });
    EXPECT_NE(report.find("\nLine/Pos: 2/3\n"), std::string::npos) << report;
}

TEST_F(XMLWellFormed, NamespacesAreCheckedLikeTheRest)
{
    for (std::string const text :
         {"<p:a/>", "<a p:x=''/>", "<a xmlns:p=''/>", "<a xmlns:xmlns='u'/>", "<a xmlns:xml='u'/>",
          "<a xmlns:p='http://www.w3.org/XML/1998/namespace'/>", "<a xmlns='http://www.w3.org/2000/xmlns/'/>", "<:a/>",
          "<a:/>", "<a:b:c/>", "<a xmlns:1='u'/>", "<a xmlns:p='u'><p:1/></a>", "<xmlns:a/>",
          "<a xmlns:p='u' xmlns:q='u' p:x='' q:x=''/>", "<a><b xmlns:p='u'/><p:b/></a>", "<?p:q r?><a/>",
          "<!DOCTYPE a [<!ENTITY p:q 'x'>]><a/>"})
    {
        EXPECT_EQ(Failure(text).substr(0, 3), "2: ") << text;
    }
    for (std::string const text :
         {"<a xmlns='u'><b xmlns=''/></a>", "<a xmlns:xml='http://www.w3.org/XML/1998/namespace' xml:x=''/>",
          "<p:a xmlns:p='u' xmlns='u' p:x='' x=''/>", "<a xmlns:p='u'><p:b xmlns:p='v' p:x=''/><p:b/></a>"})
    {
        EXPECT_EQ(Failure(text), "none") << text;
    }
}

TEST_F(XMLWellFormed, NodesTakenOutDeclareWhatTheyUse)
{
    XMLDocument const document =
        Parsed("<a xmlns:p='u' xmlns:q='v' xmlns:r='w'><p:b q:x='1'><c xmlns:r='z' r:y='2'/></p:b><d/></a>");
    std::string const xml = document.GetChildNode("//c/..", true).GetXML().Utf8();
    XMLDocument const again = Parsed(xml);
    EXPECT_EQ(again.GetChildNode("*", true).GetName(), TEXT("p:b")) << xml;
    EXPECT_TRUE(again.GetChildNode("//c", true).HasAttribute("r:y")) << xml;
}

#endif
