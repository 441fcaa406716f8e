#pragma once

// The text of a profile as it stands in its file, with an index of its sections: reading goes through views of it, and
// a change is a splice, so that everything else stays as it is.

#include <cstddef>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include <kvcore/platform/types.h>

namespace kv::platform
{

/// A name in the form in which names are equal: without blanks at its ends, in one case.
WString FoldedName(std::u16string_view name);
/// The same with its blanks, which no name in a file has.
WString FoldedAsItIs(std::u16string_view name);

/// Encodes what is UTF-16 in the units of a file.
void Encode(std::u16string_view text, std::string & target);
void Encode(std::u16string_view text, std::u16string & target);
/// Adds the text of a file to what is UTF-16.
void Decode(std::string_view text, std::u16string & target);
void Decode(std::u16string_view text, std::u16string & target);

/// `Unit` is char for files of the system's code page and of UTF-8, char16_t for UTF-16 of either byte order.
template <class Unit>
class ProfileText
{
public:
    using View = std::basic_string_view<Unit>;
    using Text = std::basic_string<Unit>;

    static constexpr std::size_t none = static_cast<std::size_t>(-1);

    /// One line: where it begins, where it ends without its line end, where the next one begins; and its content, cut
    /// at a NUL and without blanks at its ends.
    struct Line
    {
        std::size_t begin;
        std::size_t end;
        std::size_t next;
        View content;
    };
    /// The content's parts, without blanks at their ends. Without a `=` there is no value.
    struct Entry
    {
        View key;
        View value;
        bool hasValue;
    };

    /// `start` is the number of units that the byte-order mark takes.
    ProfileText(Text fileText, std::size_t start);

    Text const & Whole() const noexcept
    {
        return text;
    }

    /// The first section of that name, or `none`. The nameless one, before the first header, is there always.
    std::size_t FindSection(WString const & foldedName) const;
    std::size_t SectionCount() const noexcept
    {
        return sections.size();
    }
    View SectionName(std::size_t section) const;

    /// Calls `visit(line)` for each line of a section that is not empty, until that gives false.
    template <class Visit>
    void ForEachLine(std::size_t section, Visit && visit) const
    {
        for (std::size_t at = sections[section].bodyBegin; at < sections[section].bodyEnd;)
        {
            Line const line = LineAt(at);
            at = line.next;
            if (!line.content.empty() && !visit(line))
            {
                return;
            }
        }
    }
    static Entry EntryOf(View content);

    /// The first line of a key, with a value or without; without content if there is none.
    Line FindKey(std::size_t section, std::u16string_view key) const;

    /// Sets a key in a section that is there; a null `value` removes it. False if nothing changes.
    bool SetKey(std::size_t section, std::u16string_view key, std::u16string_view const * value);
    /// Adds a section at the end, with these lines, each ended; or with a key.
    void AddSection(std::u16string_view name, View lines);
    void AddSection(std::u16string_view name, std::u16string_view key, std::u16string_view value);
    /// Makes `lines`, each ended, all that the section holds. False if nothing changes.
    bool ReplaceBody(std::size_t section, View lines);
    void RemoveSection(std::size_t section);

    /// How lines end in this file.
    View LineEnd() const;

private:
    struct Section
    {
        std::size_t headerBegin;
        std::size_t bodyBegin;
        std::size_t bodyEnd;
    };

    Line LineAt(std::size_t begin) const;
    Text LineOf(std::u16string_view key, std::u16string_view value) const;
    static bool IsHeader(View content);
    static bool HasHeader(View lines);
    void Index();
    void EnterName(std::size_t section);
    void Splice(std::size_t section, std::size_t begin, std::size_t end, View with);
    bool EndLineBefore(std::size_t section);

    Text text;
    std::size_t textBegin;
    std::vector<Section> sections;
    std::map<WString, std::size_t> firstOfName;
};

extern template class ProfileText<char>;
extern template class ProfileText<char16_t>;

} // namespace kv::platform
