#include <kvcore/tools/kv/RegistryData.h>

#include <algorithm>
#include <cstring>

#include <kvcore/platform/win32.h>
#include <kvcore/tools/kv/Failures.h>
#include <kvcore/tools/support/Printable.h>

namespace kv::tools
{

namespace
{

/// The number that the data is, from its last byte to its first.
std::uint64_t NumberOf(std::string const & data)
{
    std::uint64_t number = 0;
    for (std::size_t i = data.size(); i-- > 0;)
    {
        number = number << 8 | static_cast<unsigned char>(data[i]);
    }
    return number;
}

std::string BytesOf(std::uint64_t number, std::size_t size)
{
    std::string data;
    for (; data.size() < size; number >>= 8)
    {
        data += static_cast<char>(number & 0xFF);
    }
    return data;
}

String HexDigits(std::string const & data)
{
    constexpr WCHAR const * digits = TEXT("0123456789ABCDEF");
    String text;
    text.reserve(data.size() * 2);
    for (char const c : data)
    {
        auto const byte = static_cast<unsigned char>(c);
        text += digits[byte >> 4];
        text += digits[byte & 15];
    }
    return text;
}

bool IsNumber(RegistryValue const & value)
{
    return (value.type == REG_DWORD && value.data.size() == 4) || (value.type == REG_QWORD && value.data.size() == 8);
}

/// What was typed for data of one word.
std::string const & OneWord(std::vector<std::string> const & typed, char const * what)
{
    if (typed.size() != 1)
    {
        throw UsageError(std::string("the type takes one word of data: ") + what);
    }
    return typed[0];
}

std::string NumberFrom(std::vector<std::string> const & typed, std::size_t size)
{
    std::string const & word = OneWord(typed, "a number");
    std::uint64_t const most = size == 8 ? ~std::uint64_t(0) : (std::uint64_t(1) << (size * 8)) - 1;
    std::optional<std::uint64_t> const number = RegistryNumberFrom(word, most);
    if (!number)
    {
        throw UsageError(
            "'" + word + "' is not a number from 0 to " + std::to_string(most) + ", in decimal digits or behind 0x");
    }
    return BytesOf(*number, size);
}

int DigitOf(char c)
{
    return c >= '0' && c <= '9' ? c - '0'
        : c >= 'a' && c <= 'f'  ? c - 'a' + 10
        : c >= 'A' && c <= 'F'  ? c - 'A' + 10
                                : -1;
}

std::string BytesFrom(std::vector<std::string> const & typed)
{
    std::string data;
    for (std::string const & word : typed)
    {
        for (std::size_t i = 0; i < word.size();)
        {
            if (word[i] == ',' || word[i] == ' ')
            {
                ++i;
                continue;
            }
            int const high = DigitOf(word[i]);
            int const low = i + 1 < word.size() ? DigitOf(word[i + 1]) : -1;
            if (high < 0 || low < 0)
            {
                throw UsageError(
                    "'" + word + "' is not a list of bytes: each has two hexadecimal digits, as in 01a0ff");
            }
            data += static_cast<char>(high << 4 | low);
            i += 2;
        }
    }
    return data;
}

std::string ListFrom(std::vector<std::string> const & typed, std::string const & separator)
{
    WString list;
    for (std::string const & word : typed)
    {
        for (std::size_t at = 0; at <= word.size();)
        {
            std::size_t const end = separator.empty() ? word.npos : word.find(separator, at);
            std::string const item = word.substr(at, end == word.npos ? end : end - at);
            bool const isLast = end == word.npos;
            at = isLast ? word.size() + 1 : end + separator.size();
            // The list's own end, which people may write.
            if (item.empty() && isLast && &word == &typed.back())
            {
                break;
            }
            if (item.empty())
            {
                throw UsageError("a list of texts cannot have an empty one, which ends it");
            }
            list += String::FromUtf8(item);
            list += WCHAR(0);
        }
    }
    list += WCHAR(0);
    return RegistryBytes(list);
}

} // namespace

String RegistryDataText(RegistryValue const & value)
{
    if (IsNumber(value))
    {
        return TEXT("0x") + String::FromNum(static_cast<unsigned __int64>(NumberOf(value.data)), 16);
    }
    if (!IsRegistryText(value.type) || value.data.size() % sizeof(WCHAR) != 0)
    {
        return HexDigits(value.data);
    }
    if (value.type == REG_MULTI_SZ)
    {
        return String::Join(RegistryDataItems(value.data), TEXT("\\0"));
    }
    String text = RegistryText(value.data);
    if (!text.empty() && text.back() == 0)
    {
        text.pop_back();
    }
    return text;
}

std::vector<String> RegistryDataItems(std::string const & data)
{
    String text = RegistryText(data);
    // The list's end, and that of the last text.
    for (int i = 0; i < 2 && !text.empty() && text.back() == 0; ++i)
    {
        text.pop_back();
    }
    std::vector<String> items;
    for (std::size_t at = 0; at < text.size();)
    {
        std::size_t const end = std::min(text.find(WCHAR(0), at), text.size());
        items.push_back(text.substr(at, end - at));
        at = end + 1;
    }
    return items;
}

std::string RegistryDataFrom(DWORD type, std::vector<std::string> const & typed, std::string const & separator)
{
    switch (type)
    {
    case REG_SZ:
    case REG_EXPAND_SZ:
    {
        WString text =
            typed.empty() ? String() : String::FromUtf8(OneWord(typed, "a text, in quotes if it has blanks"));
        text += WCHAR(0);
        return RegistryBytes(text);
    }
    case REG_MULTI_SZ:
        return ListFrom(typed, separator);
    case REG_DWORD:
        return NumberFrom(typed, sizeof(DWORD));
    case REG_DWORD_BIG_ENDIAN:
    {
        std::string data = NumberFrom(typed, sizeof(DWORD));
        std::reverse(data.begin(), data.end());
        return data;
    }
    case REG_QWORD:
        return NumberFrom(typed, sizeof(std::uint64_t));
    default:
        return BytesFrom(typed);
    }
}

namespace
{

/// A field between tabs: control characters as people write them, and a backslash behind another.
std::string Spelled(String const & text)
{
    constexpr char const * digits = "0123456789abcdef";
    std::string spelled;
    for (char const c : text.Utf8())
    {
        auto const byte = static_cast<unsigned char>(c);
        if (c == '\t' || c == '\n' || c == '\r')
        {
            spelled += c == '\t' ? "\\t" : c == '\n' ? "\\n" : "\\r";
        }
        else if (byte < 0x20 || byte == 0x7F)
        {
            spelled += {'\\', 'x', digits[byte >> 4], digits[byte & 15]};
        }
        else
        {
            spelled += c == '\\' ? std::string("\\\\") : std::string(1, c);
        }
    }
    return spelled;
}

} // namespace

std::string RegistryField(String const & text)
{
    return Spelled(text);
}

std::string RegistryLine(String const & text)
{
    return Printable(text.Utf8());
}

std::string RegistryValueLine(RegistryValue const & value)
{
    return (value.name.empty() ? "(Default)" : RegistryLine(value.name)) + "    " + RegistryTypeName(value.type) +
        "    " + RegistryLine(RegistryDataText(value));
}

} // namespace kv::tools
