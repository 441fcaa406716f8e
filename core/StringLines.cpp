#include <limits>

#include <kvcore/core/String.h>

namespace
{

WCHAR const * LineEnd(bool crlf)
{
    return crlf ? TEXT("\r\n") : TEXT("\n");
}

std::size_t LineEndLength(bool crlf)
{
    return crlf ? 2 : 1;
}

} // namespace

void String::AddLine(String const & line, bool crlf, bool allowEmpty)
{
    if (line.empty() && !allowEmpty)
    {
        return;
    }
    if (&line == this)
    {
        AddLine(String(line), crlf, allowEmpty);
        return;
    }
    if (!empty() || line.empty())
    {
        append(LineEnd(crlf));
    }
    append(line);
}

unsigned int String::GetNumLines(bool crlf) const
{
    unsigned int separators = 0;
    std::size_t position = 0;
    for (std::size_t found; (found = find(LineEnd(crlf), position)) != npos; position = found + LineEndLength(crlf))
    {
        ++separators;
    }
    // Kept: a line end at the very end begins one more line.
    return position == size() && separators == 0 ? 0 : separators + 1;
}

void String::GetLines(std::vector<String> & out, int first, int last, bool crlf) const
{
    std::vector<String> lines; // `this` may be an element of `out`
    first = first < 0 ? 0 : first;
    last = last < 0 ? std::numeric_limits<int>::max() : last;
    std::size_t position = 0;
    int line = 0;
    bool more = first <= last;
    while (more)
    {
        std::size_t const found = find(LineEnd(crlf), position);
        if (found == npos)
        {
            break;
        }
        if (line >= first)
        {
            // A text with CR LF, read with LF.
            bool const hasReturn = !crlf && found > position && (*this)[found - 1] == TEXT('\r');
            lines.push_back(WString(*this, position, found - position - (hasReturn ? 1 : 0)));
        }
        position = found + LineEndLength(crlf);
        more = line != last;
        line += more ? 1 : 0;
    }
    // Kept: the text behind the last line end keeps the CR that it may end in.
    if (more && line >= first && (position < size() || !lines.empty()))
    {
        lines.push_back(WString(*this, position));
    }
    out.swap(lines);
}

String String::GetLines(int first, int last, bool crlf, bool joinCrlf) const
{
    std::vector<String> lines;
    GetLines(lines, first, last, crlf);
    return Join(lines, LineEnd(joinCrlf));
}

namespace
{

template <typename Items>
String JoinItems(Items const & items, String const & separator)
{
    std::size_t length = 0;
    for (String const & item : items)
    {
        length += item.size() + separator.size();
    }
    String joined;
    joined.reserve(length);
    bool isFirst = true;
    for (String const & item : items)
    {
        if (!isFirst)
        {
            joined.append(separator);
        }
        joined.append(item);
        isFirst = false;
    }
    return joined;
}

} // namespace

String String::Join(std::list<String> const & items, String separator)
{
    return JoinItems(items, separator);
}

String String::Join(std::vector<String> const & items, String separator)
{
    return JoinItems(items, separator);
}

std::list<String> String::Split(String const & separators, bool keepEmpty, int maxParts) const
{
    std::list<String> parts;
    std::size_t position = 0;
    for (std::size_t found; (found = find_first_of(separators, position)) != npos; position = found + 1)
    {
        if (found == position && !keepEmpty)
        {
            continue;
        }
        if (maxParts > 0 && parts.size() == std::size_t(maxParts) - 1)
        {
            break;
        }
        parts.push_back(WString(*this, position, found - position));
    }
    if (position < size() || (keepEmpty && !parts.empty()))
    {
        parts.push_back(WString(*this, position));
    }
    return parts;
}

std::list<String> String::Split(WCHAR separator, bool keepEmpty, int maxParts) const
{
    return Split(FromChar(separator, 1), keepEmpty, maxParts);
}
