#include <kvcore/tools/kv/SumList.h>

#include <kvcore/streams/Base64.h>
#include <kvcore/tools/support/Printable.h>

#include <algorithm>

namespace kv::tools
{

namespace
{

constexpr std::size_t hexSize = 32;
constexpr std::size_t base64Size = 22;

std::string LowerHex(MD5Sum const & sum)
{
    std::string text = sum.HexString();
    std::transform(
        text.begin(), text.end(), text.begin(),
        [](char c) { return static_cast<char>(c >= 'A' && c <= 'F' ? c + 32 : c); });
    return text;
}

std::string SumText(MD5Sum const & sum, SumForm form)
{
    switch (form)
    {
    case SumForm::Hex:
        return LowerHex(sum);
    case SumForm::Base64:
        return sum.Base64String();
    default:
        return LowerHex(sum) + " " + sum.Base64String();
    }
}

std::string Escaped(std::string_view name)
{
    std::string escaped;
    for (char const c : name)
    {
        switch (c)
        {
        case '\\':
            escaped += "\\\\";
            break;
        case '\n':
            escaped += "\\n";
            break;
        case '\r':
            escaped += "\\r";
            break;
        default:
            escaped += c;
        }
    }
    return escaped;
}

// Nothing for an escape that no tool writes.
std::optional<std::string> Unescaped(std::string_view text)
{
    std::string name;
    for (std::size_t i = 0; i < text.size(); ++i)
    {
        if (text[i] != '\\')
        {
            name += text[i];
            continue;
        }
        ++i;
        char const c = i < text.size() ? text[i] : '\0';
        if (c != '\\' && c != 'n' && c != 'r')
        {
            return std::nullopt;
        }
        name += c == 'n' ? '\n' : c == 'r' ? '\r' : '\\';
    }
    return name;
}

std::optional<MD5Sum> ParseHex(std::string_view text)
{
    MD5Sum sum;
    return sum.SetHexString(std::string(text)) ? std::optional(sum) : std::nullopt;
}

std::optional<MD5Sum> ParseBase64(std::string_view text)
{
    if (text.size() == base64Size + 2 && text.substr(base64Size) == "==")
    {
        text.remove_suffix(2);
    }
    if (text.size() != base64Size)
    {
        return std::nullopt;
    }
    std::string const padded = std::string(text) + "==";
    char bytes[3 * 6];
    if (Base64DecodingStream::Base64MemoryDecode(padded.data(), static_cast<int>(padded.size()), bytes) != 16)
    {
        return std::nullopt;
    }
    std::string hex;
    for (int i = 0; i < 16; ++i)
    {
        unsigned const byte = static_cast<unsigned char>(bytes[i]);
        hex += "0123456789ABCDEF"[byte >> 4];
        hex += "0123456789ABCDEF"[byte & 15];
    }
    // The last character has four bits that carry nothing; only one of its sixteen forms is ours.
    std::optional<MD5Sum> const sum = ParseHex(hex);
    return sum && sum->Base64String() == text ? sum : std::nullopt;
}

std::optional<MD5Sum> ParseSum(std::string_view text)
{
    return text.size() == hexSize ? ParseHex(text) : ParseBase64(text);
}

struct Parts
{
    MD5Sum sum;
    std::string_view name;
};

// "MD5 (name) = SUM"; the name may hold parentheses itself, so the last one ends it.
std::optional<Parts> SplitTagged(std::string_view line)
{
    std::string_view rest = line;
    if (!rest.starts_with("MD5"))
    {
        return std::nullopt;
    }
    rest.remove_prefix(3);
    rest.remove_prefix(rest.starts_with(" ") ? 1 : 0);
    std::size_t const closing = rest.rfind(')');
    if (!rest.starts_with("(") || closing == std::string_view::npos || closing == 0)
    {
        return std::nullopt;
    }
    std::string_view const name = rest.substr(1, closing - 1);
    rest.remove_prefix(closing + 1);
    rest.remove_prefix(std::min(rest.find_first_not_of(' '), rest.size()));
    if (!rest.starts_with("="))
    {
        return std::nullopt;
    }
    rest.remove_prefix(1);
    rest.remove_prefix(std::min(rest.find_first_not_of(' '), rest.size()));
    std::optional<MD5Sum> const sum = ParseSum(rest);
    return sum ? std::optional(Parts{*sum, name}) : std::nullopt;
}

// "SUM  name", "SUM *name", "SUM name".
std::optional<Parts> SplitPlain(std::string_view line)
{
    std::size_t const blank = line.find(' ');
    if (blank == std::string_view::npos)
    {
        return std::nullopt;
    }
    std::optional<MD5Sum> const sum = ParseSum(line.substr(0, blank));
    if (!sum)
    {
        return std::nullopt;
    }
    std::string_view name = line.substr(blank + 1);
    if (name.starts_with(" ") || name.starts_with("*"))
    {
        name.remove_prefix(1);
    }
    return Parts{*sum, name};
}

// "HEX BASE64  name", which SplitPlain takes for a strangely named file. Both have to say the same; so such a file is
// still found under its name.
std::string_view WithoutSecondSum(Parts const & parts, std::string_view line)
{
    std::string const second = parts.sum.Base64String() + "  ";
    std::size_t const start = hexSize + 1;
    if (line.size() > start && line[hexSize] == ' ' && line.substr(start).starts_with(second))
    {
        return line.substr(start + second.size());
    }
    return parts.name;
}

} // namespace

std::string FormatSumLine(MD5Sum const & sum, std::string_view name, SumForm form)
{
    std::string const escaped = Escaped(name);
    std::string line;
    line += escaped == name ? "" : "\\";
    line += SumText(sum, form);
    line += "  ";
    return line + escaped;
}

std::string DisplayedName(std::string_view name)
{
    return IsPrintable(name) ? std::string(name) : '\\' + Printable(name, Backslashes::Doubled);
}

std::optional<SumEntry> ParseSumLine(std::string_view line)
{
    line.remove_prefix(std::min(line.find_first_not_of(" \t"), line.size()));
    bool const escaped = line.starts_with("\\");
    line.remove_prefix(escaped ? 1 : 0);

    std::optional<Parts> parts = SplitTagged(line);
    if (!parts)
    {
        parts = SplitPlain(line);
        if (!parts)
        {
            return std::nullopt;
        }
        parts->name = WithoutSecondSum(*parts, line);
    }
    std::optional<std::string> const name = escaped ? Unescaped(parts->name) : std::string(parts->name);
    if (!name || name->empty() || name->find('\0') != std::string::npos)
    {
        return std::nullopt;
    }
    return SumEntry{parts->sum, *name};
}

namespace
{

// Twice the longest path of any system that this runs on, escapes included.
constexpr std::size_t longestLine = 128 * 1024;

} // namespace

LineReader::LineReader(SourceStream & stream) : source(stream), buffer(64 * 1024) {}

bool LineReader::NextByte(char & byte)
{
    if (position == filled)
    {
        position = 0;
        filled = static_cast<std::size_t>(source.ReadSome(buffer.data(), static_cast<int>(buffer.size())));
        if (filled == 0)
        {
            return false;
        }
    }
    byte = buffer[position++];
    return true;
}

bool LineReader::Next(std::string & line)
{
    line.clear();
    char byte = 0;
    if (!NextByte(byte))
    {
        return false;
    }
    do
    {
        if (byte == '\n')
        {
            break;
        }
        if (line.size() < longestLine)
        {
            line += byte;
        }
    } while (NextByte(byte));

    if (line.ends_with('\r'))
    {
        line.pop_back();
    }
    if (first && line.starts_with("\xEF\xBB\xBF"))
    {
        line.erase(0, 3);
    }
    first = false;
    return true;
}

} // namespace kv::tools
