#include <kvcore/tools/kv/XmlLayout.h>

#include <vector>

namespace kv::tools
{

namespace
{

enum class Kind
{
    Start,
    End,
    Empty, ///< an element in one tag
    Text,  ///< and CDATA sections
    Other  ///< comments, instructions, the document type
};

struct Token
{
    Kind kind;
    std::string_view text;
    bool kept = false; ///< Start: the content stays as it is
};

bool StartsWith(std::string_view text, std::string_view start)
{
    return text.substr(0, start.size()) == start;
}

std::size_t After(std::string_view xml, std::string_view end)
{
    std::size_t const at = xml.find(end);
    return at == std::string_view::npos ? xml.size() : at + end.size();
}

/// The end of a tag: the first '>' that is in no value.
std::size_t TagSize(std::string_view xml)
{
    char quote = 0;
    for (std::size_t at = 0; at < xml.size(); ++at)
    {
        char const c = xml[at];
        if (quote != 0)
        {
            quote = c == quote ? char(0) : quote;
        }
        else if (c == '"' || c == '\'')
        {
            quote = c;
        }
        else if (c == '>')
        {
            return at + 1;
        }
    }
    return xml.size();
}

/// The end of a document type: of the tag, with the declarations in its brackets.
std::size_t DocumentTypeSize(std::string_view xml)
{
    bool inBrackets = false;
    for (std::size_t at = 0; at < xml.size();)
    {
        std::string_view const rest = xml.substr(at);
        char const c = rest[0];
        if (StartsWith(rest, "<!--"))
        {
            at += After(rest, "-->");
        }
        else if (StartsWith(rest, "<?"))
        {
            at += After(rest, "?>");
        }
        else if (c == '"' || c == '\'')
        {
            at += 1 + After(rest.substr(1), std::string_view(&c, 1));
        }
        else
        {
            inBrackets = c == '[' || (inBrackets && c != ']');
            ++at;
            if (c == '>' && !inBrackets)
            {
                return at;
            }
        }
    }
    return xml.size();
}

Token NextToken(std::string_view xml)
{
    if (xml[0] != '<' || StartsWith(xml, "<![CDATA["))
    {
        std::size_t const size = xml[0] == '<' ? After(xml, "]]>") : xml.find('<');
        return {Kind::Text, xml.substr(0, size)};
    }
    if (StartsWith(xml, "<!--"))
    {
        return {Kind::Other, xml.substr(0, After(xml, "-->"))};
    }
    if (StartsWith(xml, "<?"))
    {
        return {Kind::Other, xml.substr(0, After(xml, "?>"))};
    }
    if (StartsWith(xml, "<!"))
    {
        return {Kind::Other, xml.substr(0, DocumentTypeSize(xml))};
    }
    std::string_view const tag = xml.substr(0, TagSize(xml));
    bool const empty = tag.size() > 2 && tag[tag.size() - 2] == '/';
    return {StartsWith(tag, "</") ? Kind::End : empty ? Kind::Empty : Kind::Start, tag};
}

bool IsBlank(std::string_view text)
{
    return text.find_first_not_of(" \t\r\n") == std::string_view::npos;
}

bool AsksToKeep(std::string_view tag)
{
    std::size_t const name = tag.find("xml:space");
    return name != std::string_view::npos && tag.find("preserve", name) != std::string_view::npos;
}

/// The tokens, with the start tags marked whose content is more than layout.
std::vector<Token> Tokens(std::string_view xml)
{
    std::vector<Token> tokens;
    std::vector<std::size_t> open;
    while (!xml.empty())
    {
        Token token = NextToken(xml);
        xml.remove_prefix(token.text.size());
        bool const inside = !open.empty();
        bool const closesBlank = token.kind == Kind::End && tokens.size() >= 2 && tokens.back().kind == Kind::Text &&
            tokens[tokens.size() - 2].kind == Kind::Start;
        if (inside && ((token.kind == Kind::Text && !IsBlank(token.text)) || closesBlank))
        {
            tokens[open.back()].kept = true;
        }
        if (token.kind == Kind::End && inside)
        {
            open.pop_back();
        }
        token.kept = token.kind == Kind::Start && AsksToKeep(token.text);
        tokens.push_back(token);
        if (token.kind == Kind::Start)
        {
            open.push_back(tokens.size() - 1);
        }
    }
    return tokens;
}

} // namespace

std::string LaidOut(std::string_view xml, XmlLayout const & layout)
{
    std::string out;
    std::size_t depth = 0;
    std::size_t keptDepth = 0; // of the elements whose content stays, from the outermost such one on
    bool opened = false;       // the token before was a start tag
    auto const breakLine = [&]
    {
        if (!out.empty() && !layout.compact)
        {
            out += '\n';
            for (std::size_t i = 0; i < depth; ++i)
            {
                out += layout.unit;
            }
        }
    };
    for (Token const & token : Tokens(xml))
    {
        bool const kept = keptDepth != 0;
        if (token.kind == Kind::Text)
        {
            out += kept ? token.text : std::string_view();
            continue;
        }
        depth -= token.kind == Kind::End && depth != 0 ? 1 : 0;
        if (!kept && !(token.kind == Kind::End && opened))
        {
            breakLine();
        }
        out += token.text;
        opened = token.kind == Kind::Start;
        depth += opened ? 1 : 0;
        if (token.kind == Kind::End && kept)
        {
            --keptDepth;
        }
        else if (opened && (kept || token.kept))
        {
            ++keptDepth;
        }
    }
    return out + '\n';
}

} // namespace kv::tools
