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

/// For each start tag, in order, whether the content of its element is more than layout.
std::vector<bool> KeptElements(std::string_view xml)
{
    std::vector<bool> kept;
    std::vector<std::size_t> open;
    Kind last = Kind::Other;
    Kind beforeLast = Kind::Other;
    while (!xml.empty())
    {
        Token const token = NextToken(xml);
        xml.remove_prefix(token.text.size());
        bool const closesBlank = token.kind == Kind::End && last == Kind::Text && beforeLast == Kind::Start;
        if (!open.empty() && ((token.kind == Kind::Text && !IsBlank(token.text)) || closesBlank))
        {
            kept[open.back()] = true;
        }
        if (token.kind == Kind::End && !open.empty())
        {
            open.pop_back();
        }
        if (token.kind == Kind::Start)
        {
            open.push_back(kept.size());
            kept.push_back(AsksToKeep(token.text));
        }
        beforeLast = last;
        last = token.kind;
    }
    return kept;
}

/// Gathers small pieces.
class Writer
{
public:
    explicit Writer(std::function<void(std::string_view)> const & newTarget) : target(newTarget) {}

    void Write(std::string_view piece)
    {
        if (held.size() + piece.size() > most)
        {
            target(held);
            held.clear();
        }
        if (piece.size() > most)
        {
            target(piece);
            return;
        }
        held += piece;
    }
    void BreakLine(std::size_t depth, XmlLayout const & layout)
    {
        if (!begun || layout.compact)
        {
            return;
        }
        Write("\n");
        for (std::size_t i = 0; i < depth; ++i)
        {
            Write(layout.unit);
        }
    }
    void WriteTag(std::string_view tag)
    {
        Write(tag);
        begun = true;
    }
    void Finish()
    {
        Write("\n");
        target(held);
    }

private:
    static constexpr std::size_t most = 0x10000;
    std::function<void(std::string_view)> const & target;
    std::string held;
    bool begun = false;
};

} // namespace

void LayOut(std::string_view xml, XmlLayout const & layout, std::function<void(std::string_view)> const & write)
{
    std::vector<bool> const keptElements = KeptElements(xml);
    Writer out(write);
    std::size_t element = 0;
    std::size_t depth = 0;
    std::size_t keptDepth = 0; // of the elements whose content stays, from the outermost such one on
    bool opened = false;       // the token before was a start tag
    while (!xml.empty())
    {
        Token const token = NextToken(xml);
        xml.remove_prefix(token.text.size());
        bool const kept = keptDepth != 0;
        if (token.kind == Kind::Text)
        {
            out.Write(kept ? token.text : std::string_view());
            continue;
        }
        depth -= token.kind == Kind::End && depth != 0 ? 1 : 0;
        if (!kept && !(token.kind == Kind::End && opened))
        {
            out.BreakLine(depth, layout);
        }
        out.WriteTag(token.text);
        opened = token.kind == Kind::Start;
        depth += opened ? 1 : 0;
        if (token.kind == Kind::End && kept)
        {
            --keptDepth;
        }
        else if (opened && (keptElements[element++] || kept))
        {
            ++keptDepth;
        }
    }
    out.Finish();
}

} // namespace kv::tools
