#pragma once

#include <string>
#include <utility>
#include <vector>

#include <kvcore/config/XMLParser.h>

namespace kv::tools
{

/// What is wrong with a text of XML, a path, a schema or a style sheet.
struct XmlProblem
{
    std::string reason; ///< one line, without an end
    int line = 0;       ///< from 1 on; 0 if it is not known
    int column = 0;
};

/// A document, and what a tool asks of it beyond the library's XMLNode: attributes and comments too, prefixes, and
/// results as text. Failures are XmlProblem. COM must be initialised; one thread.
class XmlText : public XMLDocument
{
public:
    /// Parses bytes in the encoding that they declare.
    explicit XmlText(std::string const & bytes);

    /// Prefixes and their namespaces.
    using Prefixes = std::vector<std::pair<std::string, std::string>>;

    /// Makes these prefixes, and those that the document's element declares, known to Select. The given ones go first.
    void UsePrefixes(Prefixes given);

    /// What a selected node holds, as text and as XML.
    struct Found
    {
        std::string text;
        std::string xml;
    };
    /// What an XPath expression selects, in the document's order. An expression of a number, a text or a truth gives
    /// one result, with the same text in both.
    std::vector<Found> Select(std::string const & path) const;

    /// Throws for a document that does not follow the schema: the first violation. Throws WrongSchema for a schema that
    /// is none.
    void Validate(XmlText const & schema) const;
    struct WrongSchema
    {
        XmlProblem problem;
    };

    /// What a style sheet makes of the document, in UTF-8.
    std::string Transform(XmlText const & styleSheet) const;

private:
    std::string Value(std::string const & path) const;

    Prefixes prefixes;
};

/// The namespace of a schema; empty for none.
std::string TargetNamespace(XmlText const & schema);

} // namespace kv::tools
