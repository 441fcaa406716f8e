#include <kvcore/tools/kv/ProfileSections.h>

#include <algorithm>
#include <set>

namespace kv::tools
{

namespace
{

/// What the platform takes for blank: it has the end-of-file mark of old editors among the spaces.
template <class Unit>
bool IsBlank(Unit c)
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

String Decoded(std::basic_string_view<WCHAR> text)
{
    return String(text.data(), static_cast<unsigned int>(text.size()));
}

String FromSystemBytes(std::string_view text)
{
    return String::FromSystemMultibyte(std::string(text));
}

String FromUtf8Bytes(std::string_view text)
{
    return String::FromUtf8(std::string(text));
}

/// Collects the sections of a text, line by line.
template <class Unit>
class Parser
{
public:
    using View = std::basic_string_view<Unit>;
    using Decode = String (*)(View text);

    Parser(View profile, Decode decoding) : text(profile), decode(decoding) {}

    std::vector<ProfileSection> Read()
    {
        constexpr Unit lineEnds[] = {'\n', '\r', 0};
        while (!text.empty())
        {
            std::size_t const end = std::min(text.find_first_of(lineEnds), text.size());
            View const line = text.substr(0, end);
            text.remove_prefix(std::min(end + 1, text.size()));
            Add(Trimmed(line.substr(0, line.find(Unit(0)))));
        }
        return std::move(sections);
    }

private:
    void Add(View line)
    {
        if (!line.empty() && line.front() == '[' && line.find(Unit(']')) != View::npos)
        {
            Begin(decode(Trimmed(line.substr(1, line.rfind(Unit(']')) - 1))));
            return;
        }
        std::size_t const sign = line.find(Unit('='));
        if (isRead && !line.empty() && line.front() != ';' && sign != View::npos)
        {
            sections.back().entries.emplace_back(
                decode(Trimmed(line.substr(0, sign))), decode(Trimmed(line.substr(sign + 1))));
        }
    }

    void Begin(String const & name)
    {
        isRead = !name.empty() && names.insert(name.UpperCase()).second;
        if (isRead)
        {
            sections.push_back({name, {}});
        }
    }

    View text;
    Decode decode;
    std::vector<ProfileSection> sections;
    std::set<String> names; ///< in one case
    bool isRead = false;    ///< the section that the lines belong to is one that is listed
};

WString UnitsOf(std::string_view bytes, std::size_t low)
{
    WString units((bytes.size() + 1) / 2, WCHAR(0));
    for (std::size_t i = 0; i < bytes.size(); ++i)
    {
        unsigned const shift = i % 2 == low ? 0 : 8;
        units[i / 2] = static_cast<WCHAR>(units[i / 2] | static_cast<unsigned char>(bytes[i]) << shift);
    }
    return units;
}

} // namespace

std::vector<ProfileSection> ReadProfileSections(std::string_view bytes)
{
    bool const little = bytes.starts_with("\xFF\xFE");
    if (little || bytes.starts_with("\xFE\xFF"))
    {
        WString const units = UnitsOf(bytes.substr(2), little ? 0 : 1);
        return Parser<WCHAR>(units, Decoded).Read();
    }
    if (bytes.starts_with("\xEF\xBB\xBF"))
    {
        return Parser<char>(bytes.substr(3), FromUtf8Bytes).Read();
    }
    return Parser<char>(bytes, FromSystemBytes).Read();
}

} // namespace kv::tools
