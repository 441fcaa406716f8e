#include <kvcore/tools/kv/commands/Command.h>

#include <memory>

#include <kvcore/tools/kv/Failures.h>
#include <kvcore/tools/kv/Xml.h>

namespace kv::tools
{

namespace
{

struct XmlAction
{
    char const * name;
    char const * with; ///< what it needs beside the file; null for nothing
    int (*run)(XmlOptions const &, Console &);
};

constexpr XmlAction xmlActions[] = {
    {"format", nullptr, FormatXml},
    {"query", "XPATH", QueryXml},
    {"validate", "SCHEMA", ValidateXml},
    {"transform", "STYLESHEET", TransformXml},
};

int Xml(std::string const & name, XmlOptions const & options, Console & console)
{
    for (XmlAction const & action : xmlActions)
    {
        if (name != action.name)
        {
            continue;
        }
        if ((action.with == nullptr) != options.with.empty())
        {
            throw UsageError(
                std::string("it is kv xml ") + action.name + " FILE " + (action.with == nullptr ? "" : action.with));
        }
        if (options.file == "-" && options.with == "-")
        {
            throw UsageError("only one of the two can be the standard input");
        }
        return action.run(options, console);
    }
    throw UsageError("unknown action '" + name + "'; known are format, query, validate and transform");
}

} // namespace

Command AddXmlCommand(CLI::App & program)
{
    auto const options = std::make_shared<XmlOptions>();
    auto const action = std::make_shared<std::string>();
    CLI::App * const xml = program.add_subcommand("xml", "Format, query, validate and transform XML documents");
    xml->add_option("ACTION", *action, "format, query, validate or transform")->required();
    xml->add_option("FILE", options->file, "The document; - for the standard input")->required();
    xml->add_option(
        "WITH", options->with,
        "query: an XPath expression; validate: an XML schema;\ntransform: a style sheet (XSLT 1.0)");
    xml->add_option(
           "-o,--output", options->output,
           "Write to this file, which comes to be whole or not at all; it\nmay be FILE itself")
        ->type_name("FILE");
    xml->add_option("-i,--indent", options->indent, "format: blanks for each level, 0 to 16, or tab; 2 if not given")
        ->type_name("N");
    xml->add_flag("-c,--compact", options->compact, "format: no line breaks between tags");
    xml->add_flag("-x,--xml", options->xml, "query: print nodes as XML, not their text");
    xml->add_flag("-n,--count", options->count, "query: print only how many nodes there are");
    xml->add_flag("-0,--null", options->nul, "query: end each result with NUL in place of a line feed");
    xml->add_option(
           "-p,--prefix", options->prefixes,
           "query: a prefix in XPATH; may be given again. Those of the\ndocument's root are known")
        ->type_name("P=URI")
        ->allow_extra_args(false);
    xml->footer(
        std::string("format keeps the content of elements that have text, and writes UTF-8. What a\n"
                    "document names outside of itself is not loaded, and nothing over a network.\n"
                    "An error is told as FILE:LINE:COLUMN: REASON, as far as they are known.\n"
                    "No result of a query, and a document that does not follow the schema, are exit\n"
                    "code 1; text that is not well-formed, a wrong schema or style sheet are 3.\n\n"
                    "Examples:\n"
                    "  kv xml format page.xml --indent tab --output page.xml\n"
                    "  kv xml query feed.xml '//item[1]/@href'\n"
                    "  kv xml query feed.xml 'count(//item)'\n"
                    "  kv xml query --xml --prefix s=http://www.w3.org/2000/svg art.svg //s:path\n"
                    "  kv xml validate order.xml order.xsd\n"
                    "  curl -s example.org/feed | kv xml transform - feed.xsl -o feed.html\n\n") +
        exitCodesHelp);
    return {xml, [options, action](Console & console) { return Xml(*action, *options, console); }};
}

} // namespace kv::tools
