#include "StyleSheetPaths.h"

#include <algorithm>
#include <new>
#include <string>
#include <string_view>

#include <libxslt/xslt.h>

#include "Tree.h"

namespace kv::platform
{

namespace
{

std::string_view View(xmlChar const * text)
{
    return text == nullptr ? std::string_view() : reinterpret_cast<char const *>(text);
}

bool IsInstruction(xmlNode const & node)
{
    return node.type == XML_ELEMENT_NODE && node.ns != nullptr &&
        View(node.ns->href) == reinterpret_cast<char const *>(XSLT_NAMESPACE);
}

/// Whether the library takes its other evaluator for this: one for paths without brackets and attributes.
bool IsUnbounded(std::string_view expression)
{
    return expression.find("//") != std::string_view::npos && expression.find_first_of("([@") == std::string_view::npos;
}

std::string Bracketed(std::string_view expression)
{
    return IsUnbounded(expression) ? '(' + std::string(expression) + ')' : std::string(expression);
}

/// Pattern alternatives are put together with more, so the bracket goes behind.
std::string BracketedPattern(std::string_view pattern)
{
    return std::string(pattern) + (IsUnbounded(pattern) ? "[true()]" : "");
}

/// The end of an expression in braces, which may hold braces in quotes.
std::size_t ExpressionEnd(std::string_view value, std::size_t at)
{
    char quote = 0;
    for (; at < value.size(); ++at)
    {
        char const c = value[at];
        if (quote == 0 && c == '}')
        {
            return at;
        }
        quote = quote != 0 ? (c == quote ? char(0) : quote) : c == '"' || c == '\'' ? c : char(0);
    }
    return std::string_view::npos;
}

std::string BracketedTemplate(std::string_view value)
{
    std::string result;
    for (std::size_t at = 0; at < value.size();)
    {
        bool const doubled = value.substr(at, 2) == "{{" || value.substr(at, 2) == "}}";
        std::size_t const end = value[at] == '{' && !doubled ? ExpressionEnd(value, at + 1) : std::string_view::npos;
        if (end == std::string_view::npos)
        {
            result += value.substr(at, doubled ? 2 : 1);
            at += doubled ? 2 : 1;
            continue;
        }
        result += '{' + Bracketed(value.substr(at + 1, end - at - 1)) + '}';
        at = end + 1;
    }
    return result;
}

/// The most "//" behind the beginning of one alternative.
std::size_t DeepSteps(std::string_view pattern)
{
    std::size_t most = 0;
    std::size_t count = 0;
    bool begun = false;
    for (std::size_t at = 0; at < pattern.size(); ++at)
    {
        char const c = pattern[at];
        if (c == '|')
        {
            count = 0;
            begun = false;
        }
        else if (pattern.substr(at, 2) == "//")
        {
            count += begun ? 1 : 0;
            ++at;
        }
        else
        {
            begun = begun || (c != ' ' && c != '\t' && c != '\r' && c != '\n');
        }
        most = std::max(most, count);
    }
    return most;
}

bool RefersToVariables(xmlNode const & variable)
{
    for (xmlNode const * node = &variable; node != nullptr; node = NextWithin(node, &variable))
    {
        xmlAttr const * attribute = node->type == XML_ELEMENT_NODE ? node->properties : nullptr;
        for (; attribute != nullptr; attribute = attribute->next)
        {
            if (attribute->children != nullptr &&
                View(attribute->children->content).find('$') != std::string_view::npos)
            {
                return true;
            }
        }
    }
    return false;
}

std::string Prepared(xmlNode const & element, xmlAttr const & attribute, std::string_view value)
{
    std::string_view const name = View(attribute.name);
    if (!IsInstruction(element) || attribute.ns != nullptr)
    {
        return BracketedTemplate(value);
    }
    if (name == "select" || name == "test" || name == "use" || name == "value")
    {
        return Bracketed(value);
    }
    return name == "match" && View(element.name) == "key" ? BracketedPattern(value) : BracketedTemplate(value);
}

void PrepareAttributes(xmlNode & element, StyleSheetFigures & figures)
{
    for (xmlAttr * attribute = element.properties; attribute != nullptr; attribute = attribute->next)
    {
        xmlNode * const text = attribute->children;
        std::string_view const value = text == nullptr ? std::string_view() : View(text->content);
        std::string_view const name = View(attribute->name);
        figures.asksForIdentifiers = figures.asksForIdentifiers || value.find("id") != std::string_view::npos;
        if (IsInstruction(element) && (name == "match" || name == "count" || name == "from"))
        {
            figures.deepSteps = std::max(figures.deepSteps, DeepSteps(value));
        }
        if (value.find("//") == std::string_view::npos)
        {
            continue;
        }
        std::string const prepared = Prepared(element, *attribute, value);
        if (prepared != value)
        {
            xmlNodeSetContent(text, BAD_CAST prepared.c_str());
            if (View(text->content) != prepared)
            {
                throw std::bad_alloc();
            }
        }
    }
}

} // namespace

StyleSheetFigures PrepareStyleSheet(xmlDoc & document)
{
    StyleSheetFigures figures;
    xmlNode * const root = reinterpret_cast<xmlNode *>(&document);
    xmlNode * const top = xmlDocGetRootElement(&document);
    for (xmlNode * node = root; node != nullptr; node = NextWithin(node, root))
    {
        if (node->type != XML_ELEMENT_NODE)
        {
            continue;
        }
        ++figures.elements;
        bool const isVariable = node->parent == top && IsInstruction(*node) &&
            (View(node->name) == "variable" || View(node->name) == "param");
        figures.dependentVariables += isVariable && RefersToVariables(*node) ? 1 : 0;
        PrepareAttributes(*node, figures);
    }
    return figures;
}

} // namespace kv::platform
