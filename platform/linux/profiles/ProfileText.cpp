#include "ProfileText.h"

#include <algorithm>

#include <kvcore/platform/linux/paths/NativeNames.h>
#include <kvcore/platform/linux/text/Utf8.h>

namespace kv::platform
{

namespace
{

/// What the platform's own parser takes for blank: it has the end-of-file mark of old editors among the spaces.
template <class Unit>
constexpr bool IsBlank(Unit c)
{
    return c == ' ' || (c >= '\t' && c <= '\r') || c == 0x1A;
}

template <class Unit>
std::basic_string_view<Unit> Trimmed(std::basic_string_view<Unit> text)
{
    while (!text.empty() && IsBlank(text.front()))
    {
        text.remove_prefix(1);
    }
    while (!text.empty() && IsBlank(text.back()))
    {
        text.remove_suffix(1);
    }
    return text;
}

std::u16string_view WithoutLeadingBlanks(std::u16string_view text)
{
    while (!text.empty() && IsBlank(text.front()))
    {
        text.remove_prefix(1);
    }
    return text;
}

template <class Unit>
bool IsAscii(std::basic_string_view<Unit> text)
{
    return std::all_of(text.begin(), text.end(), [](Unit c) { return (c & ~0x7F) == 0; });
}

/// Whether a name of the file is the one that is looked for. Plain names, nearly all, are compared as they stand.
template <class Unit>
bool IsName(std::basic_string_view<Unit> name, WString const & folded, bool foldedIsAscii)
{
    if (!foldedIsAscii)
    {
        WString decoded;
        Decode(name, decoded);
        return FoldedName(decoded) == folded;
    }
    return name.size() == folded.size() &&
        std::equal(
               name.begin(), name.end(), folded.begin(),
               [](Unit left, WCHAR right)
               { return (left & ~0x7F) == 0 && FoldUnit(static_cast<WCHAR>(left)) == right; });
}

} // namespace

WString FoldedName(std::u16string_view name)
{
    return FoldedAsItIs(Trimmed(name));
}

WString FoldedAsItIs(std::u16string_view name)
{
    WString folded(name);
    std::transform(folded.begin(), folded.end(), folded.begin(), FoldUnit);
    return folded;
}

void Encode(std::u16string_view source, std::string & target)
{
    std::size_t const before = target.size();
    target.resize(before + 3 * source.size());
    target.resize(before + EncodeUtf8(source.data(), source.size(), target.data() + before, 3 * source.size()).length);
}

void Encode(std::u16string_view source, std::u16string & target)
{
    target += source;
}

void Decode(std::string_view source, std::u16string & target)
{
    std::size_t const before = target.size();
    target.resize(before + source.size());
    target.resize(before + DecodeUtf8(source.data(), source.size(), target.data() + before, source.size()).length);
}

void Decode(std::u16string_view source, std::u16string & target)
{
    target += source;
}

template <class Unit>
ProfileText<Unit>::ProfileText(Text fileText, std::size_t start) : text(std::move(fileText)), textBegin(start)
{
    Index();
}

template <class Unit>
void ProfileText<Unit>::Index()
{
    sections.assign(1, {textBegin, textBegin, textBegin});
    firstOfName.clear();
    EnterName(0);
    for (std::size_t at = textBegin; at < text.size();)
    {
        Line const line = LineAt(at);
        at = line.next;
        if (IsHeader(line.content))
        {
            sections.back().bodyEnd = line.begin;
            sections.push_back({line.begin, line.next, line.next});
            EnterName(sections.size() - 1);
        }
    }
    sections.back().bodyEnd = text.size();
}

template <class Unit>
void ProfileText<Unit>::EnterName(std::size_t section)
{
    WString name;
    Decode(SectionName(section), name);
    firstOfName.try_emplace(FoldedName(name), section);
}

template <class Unit>
typename ProfileText<Unit>::Line ProfileText<Unit>::LineAt(std::size_t begin) const
{
    auto const isEnd = [](Unit c) { return c == '\n' || c == '\r'; };
    Unit const * const first = text.data();
    Unit const * const last = first + text.size();
    Unit const * const found = std::find_if(first + begin, last, isEnd);
    auto const end = static_cast<std::size_t>(found - first);
    std::size_t next = end;
    if (next < text.size())
    {
        next += text[next] == '\r' && next + 1 < text.size() && text[next + 1] == '\n' ? 2 : 1;
    }
    View content(first + begin, end - begin);
    content = content.substr(0, content.find(Unit(0)));
    return {begin, end, next, Trimmed(content)};
}

template <class Unit>
bool ProfileText<Unit>::IsHeader(View content)
{
    return !content.empty() && content.front() == '[' && content.find(Unit(']')) != View::npos;
}

/// Whether new lines would make a section of their own, be it from the middle of a value with a line break.
template <class Unit>
bool ProfileText<Unit>::HasHeader(View lines)
{
    return lines.find(Unit('[')) != View::npos && ProfileText(Text(lines), 0).SectionCount() > 1;
}

template <class Unit>
std::size_t ProfileText<Unit>::FindSection(WString const & foldedName) const
{
    auto const found = firstOfName.find(foldedName);
    return found == firstOfName.end() ? none : found->second;
}

template <class Unit>
typename ProfileText<Unit>::View ProfileText<Unit>::SectionName(std::size_t section) const
{
    if (section == 0)
    {
        return {};
    }
    View const content = LineAt(sections[section].headerBegin).content;
    return Trimmed(content.substr(1, content.rfind(Unit(']')) - 1));
}

template <class Unit>
typename ProfileText<Unit>::Entry ProfileText<Unit>::EntryOf(View content)
{
    std::size_t const sign = content.find(Unit('='));
    if (sign == View::npos)
    {
        return {content, {}, false};
    }
    return {Trimmed(content.substr(0, sign)), Trimmed(content.substr(sign + 1)), true};
}

template <class Unit>
typename ProfileText<Unit>::Line ProfileText<Unit>::FindKey(std::size_t section, std::u16string_view key) const
{
    WString const folded = FoldedName(key);
    bool const ascii = IsAscii(std::u16string_view(folded));
    Line result{0, 0, 0, {}};
    ForEachLine(
        section,
        [&](Line const & line)
        {
            if (!IsName(EntryOf(line.content).key, folded, ascii))
            {
                return true;
            }
            result = line;
            return false;
        });
    return result;
}

/// Replaces a part of a section's body, and moves what is behind it.
template <class Unit>
void ProfileText<Unit>::Splice(std::size_t section, std::size_t begin, std::size_t end, View with)
{
    bool const makesSections = HasHeader(with);
    std::size_t const removed = end - begin;
    std::size_t const added = with.size();
    text.replace(begin, removed, with);
    if (makesSections)
    {
        Index();
        return;
    }
    sections[section].bodyEnd += added - removed;
    for (std::size_t i = section + 1; i < sections.size(); i++)
    {
        sections[i].headerBegin += added - removed;
        sections[i].bodyBegin += added - removed;
        sections[i].bodyEnd += added - removed;
    }
}

/// Ends the last line of the file, where the section is the last one, so that another can follow. False if it was.
template <class Unit>
bool ProfileText<Unit>::EndLineBefore(std::size_t section)
{
    Section & last = sections[section];
    bool const atEnd = last.bodyEnd == text.size() && text.size() > textBegin;
    if (!atEnd || text.back() == '\n' || text.back() == '\r')
    {
        return false;
    }
    bool const onlyHeader = last.bodyBegin == text.size() && section > 0;
    text += Text(LineEnd());
    last.bodyBegin = onlyHeader ? text.size() : last.bodyBegin;
    last.bodyEnd = text.size();
    return true;
}

template <class Unit>
typename ProfileText<Unit>::View ProfileText<Unit>::LineEnd() const
{
    static constexpr Unit both[] = {'\r', '\n'};
    Line const first = LineAt(textBegin);
    return first.next > first.end ? View(text).substr(first.end, first.next - first.end) : View(both, 2);
}

/// A new line for a key. Blanks before a value would not be read, and are not written.
template <class Unit>
typename ProfileText<Unit>::Text ProfileText<Unit>::LineOf(std::u16string_view key, std::u16string_view value) const
{
    Text line;
    Encode(Trimmed(key), line);
    line += Unit('=');
    Encode(WithoutLeadingBlanks(value), line);
    line += LineEnd();
    return line;
}

template <class Unit>
bool ProfileText<Unit>::SetKey(std::size_t section, std::u16string_view key, std::u16string_view const * value)
{
    Line const old = FindKey(section, key);
    if (value == nullptr)
    {
        if (!old.content.empty())
        {
            Splice(section, old.begin, old.next, {});
        }
        return !old.content.empty();
    }
    if (!old.content.empty())
    {
        // The key keeps the spelling that it has in the file.
        Entry const entry = EntryOf(old.content);
        Text encoded;
        Encode(WithoutLeadingBlanks(*value), encoded);
        if (entry.hasValue && entry.value == encoded)
        {
            return false;
        }
        Text line(entry.key);
        line.append(1, Unit('=')).append(encoded);
        Splice(section, old.begin, old.end, line);
        return true;
    }
    EndLineBefore(section);
    std::size_t place = sections[section].bodyBegin;
    ForEachLine(
        section,
        [&](Line const & before)
        {
            place = before.next;
            return true;
        });
    Splice(section, place, place, LineOf(key, *value));
    return true;
}

template <class Unit>
void ProfileText<Unit>::AddSection(std::u16string_view name, std::u16string_view key, std::u16string_view value)
{
    AddSection(name, View(LineOf(key, value)));
}

template <class Unit>
void ProfileText<Unit>::AddSection(std::u16string_view name, View lines)
{
    EndLineBefore(sections.size() - 1);
    Text const lineEnd(LineEnd());
    std::size_t const begin = text.size();
    Text header(1, Unit('['));
    Encode(Trimmed(name), header);
    header.append(1, Unit(']')).append(lineEnd);
    // A name with a line break makes more than the one section, or none.
    bool const plain = name.find_first_of(u"\r\n") == name.npos && name.find(u'\0') == name.npos && !HasHeader(lines);
    text.append(header).append(lines);
    if (!plain)
    {
        Index();
        return;
    }
    sections.push_back({begin, begin + header.size(), text.size()});
    EnterName(sections.size() - 1);
}

template <class Unit>
bool ProfileText<Unit>::ReplaceBody(std::size_t section, View lines)
{
    bool const ended = EndLineBefore(section);
    Section const & place = sections[section];
    if (View(text).substr(place.bodyBegin, place.bodyEnd - place.bodyBegin) == lines)
    {
        return ended;
    }
    Splice(section, place.bodyBegin, place.bodyEnd, lines);
    return true;
}

template <class Unit>
void ProfileText<Unit>::RemoveSection(std::size_t section)
{
    Section const & place = sections[section];
    text.erase(place.headerBegin, place.bodyEnd - place.headerBegin);
    Index();
}

template class ProfileText<char>;
template class ProfileText<char16_t>;

} // namespace kv::platform
