#pragma once

// Texts of XML, paths, schemas and style sheets that are mostly right, made of the bytes of an input: what the
// libraries below do with such is behind checks that random bytes do not pass.

#include <cstddef>
#include <string>

#include "Fuzz.h"

namespace fuzz
{

class XmlGrammar
{
public:
    explicit XmlGrammar(Input & newInput) : input(newInput) {}

    std::string Document()
    {
        return Prologue() + Element(0);
    }

    /// A path that the walk over the tree follows.
    std::string PlainPath()
    {
        std::string path = Pick({"", "", "/", "//"});
        for (unsigned left = 1 + input.Byte() % 5; left != 0; --left)
        {
            path += Pick({"b", "a", "*", "c", "node()", "text()", ".", "p:b", "p:*", "comment()"});
            path += left > 1 ? Pick({"/", "//"}) : "";
        }
        path += Pick({"", "", "", "/@x", "//@*", "/@p:y"});
        return !input.AtEnd() && input.Byte() % 5 == 0 ? path + " | " + PlainPath() : path;
    }

    std::string Expression(int depth = 0)
    {
        if (depth > 4 || input.AtEnd())
        {
            return Pick({"b", "1", "'t'", "@x", ".", "//b"});
        }
        auto const inner = [&] { return Expression(depth + 1); };
        switch (input.Byte() % 8)
        {
        case 0:
            return PlainPath();
        case 1:
            return Axis() + Pick({"b", "*", "node()", "a", "text()"}) + '[' + inner() + ']';
        case 2:
            return inner() + Pick({" = ", " != ", " < ", " + ", " - ", " * ", " div ", " mod ", " or ", " and "}) +
                inner();
        case 3:
            return Pick(
                       {"count", "string", "not", "sum", "name", "normalize-space", "number", "boolean",
                        "string-length", "id", "generate-id", "local-name", "floor", "round"}) +
                '(' + inner() + ')';
        case 4:
            return Pick({"concat", "contains", "starts-with", "substring", "substring-after", "key", "format-number"}) +
                '(' + inner() + ',' + inner() + ')';
        case 5:
            return "translate(" + inner() + ',' + inner() + ',' + inner() + ')';
        case 6:
            return '(' + inner() + ")[" + Pick({"1", "last()", "position() = 2", "true()"}) + ']';
        default:
            return PlainPath() + '/' + Axis() + Pick({"b", "*", "node()"});
        }
    }

    std::string StyleSheet()
    {
        std::string sheet =
            "<xsl:stylesheet version='1.0' xmlns:xsl='http://www.w3.org/1999/XSL/Transform' xmlns:p='urn:p'>";
        sheet +=
            Pick({"", "<xsl:output method='text'/>", "<xsl:output method='html'/>", "<xsl:strip-space elements='*'/>"});
        sheet += "<xsl:key name='k' match='" + Pattern() + "' use='" + Quoted(Expression(2)) + "'/>";
        for (unsigned left = 1 + input.Byte() % 4; left != 0; --left)
        {
            sheet += "<xsl:template " + Pick({"match='/'", "match='" + Pattern() + '\'', "name='t'"}) + '>';
            sheet += Instructions(0) + "</xsl:template>";
        }
        return sheet + "</xsl:stylesheet>";
    }

    std::string Schema()
    {
        std::string schema = "<xs:schema xmlns:xs='http://www.w3.org/2001/XMLSchema'>";
        for (unsigned left = 1 + input.Byte() % 3; left != 0; --left)
        {
            schema += Particle(0, true);
        }
        return schema + "</xs:schema>";
    }

private:
    template <std::size_t count>
    std::string Pick(std::string const (&choices)[count])
    {
        return choices[input.Byte() % count];
    }

    static std::string Quoted(std::string text)
    {
        for (std::size_t at = 0; (at = text.find_first_of("<&'", at)) != std::string::npos;)
        {
            std::string const reference = text[at] == '<' ? "&lt;" : text[at] == '&' ? "&amp;" : "&apos;";
            text.replace(at, 1, reference);
            at += reference.size();
        }
        return text;
    }

    std::string Prologue()
    {
        return Pick(
            {"", "", "<?xml version='1.0'?>", "<!DOCTYPE a [<!ENTITY e 'x<b/>y'><!ATTLIST b x CDATA 'd'>]>",
             "<!DOCTYPE a [<!ATTLIST b i ID #IMPLIED><!ELEMENT a ANY>]>",
             "<!DOCTYPE a SYSTEM 'none' [<!ENTITY % q SYSTEM 'none'>%q;<!ENTITY e 'z'>]>"});
    }

    std::string Element(int depth)
    {
        std::string const name = Pick({"a", "b", "c", "p:b"});
        std::string element = '<' + name + (depth == 0 ? " xmlns:p='urn:p'" : "");
        element += Pick({"", " x='1'", " i='k' x='&#10;'", " p:y='2'", " xmlns='urn:d'", " xmlns:p='urn:q'"}) + '>';
        for (unsigned left = depth > 6 ? 0 : input.Byte() % 5; left != 0; --left)
        {
            element += input.Byte() % 2 == 0
                ? Element(depth + 1)
                : Pick({"t", " ", "&lt;", "&e;", "<!--c-->", "<?i n?>", "<![CDATA[]]>", "\n"});
        }
        return element + "</" + name + '>';
    }

    std::string Axis()
    {
        return Pick(
            {"ancestor::", "ancestor-or-self::", "child::", "descendant::", "descendant-or-self::", "following::",
             "following-sibling::", "parent::", "preceding::", "preceding-sibling::", "self::", "attribute::",
             "namespace::"});
    }

    std::string Pattern()
    {
        return Pick(
            {"b", "*", "a/b", "//b", "b//c", "a//b//c", "text()", "@x", "@*", "p:b", "b[1]", "b[@x]", "node()", "/"});
    }

    std::string Instructions(int depth)
    {
        std::string text;
        for (unsigned left = depth > 4 || input.AtEnd() ? 0 : 1 + input.Byte() % 3; left != 0; --left)
        {
            text += Instruction(depth + 1);
        }
        return text;
    }

    std::string Instruction(int depth)
    {
        std::string const value = Quoted(Expression(1));
        switch (input.Byte() % 9)
        {
        case 0:
            return "<xsl:if test='" + value + "'>" + Instructions(depth) + "</xsl:if>";
        case 1:
            return "<xsl:for-each select='" + Quoted(PlainPath()) + "'><xsl:sort select='" + value + "'/>" +
                Instructions(depth) + "</xsl:for-each>";
        case 2:
            return "<xsl:copy-of select='" + value + "'/>";
        case 3:
            return "<xsl:value-of select='" + value + "'/>";
        case 4:
            return "<xsl:apply-templates/>";
        case 5:
            return "<xsl:variable name='v' select='" + value + "'/><xsl:copy-of select='$v'/>";
        case 6:
            return "<xsl:number level='any' count='" + Pattern() + "'/>";
        case 7:
            return "<r x='{" + value + "}{{}}'>" + Instructions(depth) + "</r>";
        default:
            return "<xsl:copy><xsl:attribute name='n'>t</xsl:attribute>" + Instructions(depth) + "</xsl:copy>";
        }
    }

    std::string Particle(int depth, bool isTop)
    {
        std::string const occurs =
            isTop ? "" : Pick({"", " minOccurs='0'", " maxOccurs='unbounded'", " minOccurs='2' maxOccurs='3'"});
        std::string const name = Pick({"a", "b", "c"});
        if (depth > 3 || input.AtEnd() || (!isTop && input.Byte() % 3 == 0))
        {
            return "<xs:element name='" + name + "' type='xs:" +
                Pick({"string", "int", "date", "ID", "anyURI", "hexBinary", "decimal", "anyType", "NMTOKENS"}) + '\'' +
                occurs + "/>";
        }
        std::string const group = Pick({"sequence", "choice", "all"});
        std::string text = "<xs:element name='" + name + '\'' + occurs + "><xs:complexType mixed='" +
            Pick({"true", "false"}) + "'><xs:" + group + '>';
        for (unsigned left = input.Byte() % 4; left != 0; --left)
        {
            text += Particle(depth + 1, false);
        }
        text += "</xs:" + group + '>' + Pick({"", "<xs:attribute name='x' type='xs:int'/>", "<xs:anyAttribute/>"});
        return text + "</xs:complexType></xs:element>";
    }

    Input & input;
};

} // namespace fuzz
