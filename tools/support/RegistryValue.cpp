#include <kvcore/tools/support/RegistryValue.h>

#include <charconv>
#include <cstring>

#include <kvcore/platform/win32.h>

namespace kv::tools
{

namespace
{

struct TypeName
{
    DWORD type;
    char const * name;
};

/// The first name of a type is the one that is shown.
constexpr TypeName typeNames[] = {
    {REG_NONE, "REG_NONE"},
    {REG_SZ, "REG_SZ"},
    {REG_EXPAND_SZ, "REG_EXPAND_SZ"},
    {REG_BINARY, "REG_BINARY"},
    {REG_DWORD, "REG_DWORD"},
    {REG_DWORD, "REG_DWORD_LITTLE_ENDIAN"},
    {REG_DWORD_BIG_ENDIAN, "REG_DWORD_BIG_ENDIAN"},
    {REG_LINK, "REG_LINK"},
    {REG_MULTI_SZ, "REG_MULTI_SZ"},
    {REG_RESOURCE_LIST, "REG_RESOURCE_LIST"},
    {REG_FULL_RESOURCE_DESCRIPTOR, "REG_FULL_RESOURCE_DESCRIPTOR"},
    {REG_RESOURCE_REQUIREMENTS_LIST, "REG_RESOURCE_REQUIREMENTS_LIST"},
    {REG_QWORD, "REG_QWORD"},
    {REG_QWORD, "REG_QWORD_LITTLE_ENDIAN"},
};

std::string InCapitals(std::string text)
{
    for (char & c : text)
    {
        c = c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
    }
    return text;
}

} // namespace

std::string RegistryTypeName(DWORD type)
{
    for (TypeName const & known : typeNames)
    {
        if (known.type == type)
        {
            return known.name;
        }
    }
    String const digits = String::FromNum(static_cast<unsigned int>(type), 16);
    return "0x" + InCapitals(digits.Utf8());
}

std::optional<DWORD> RegistryTypeFrom(std::string const & name)
{
    std::string const capitals = InCapitals(name);
    for (TypeName const & known : typeNames)
    {
        if (capitals == known.name || "REG_" + capitals == known.name)
        {
            return known.type;
        }
    }
    std::optional<std::uint64_t> const number = RegistryNumberFrom(name, 0xFFFFFFFF);
    return number ? std::optional(static_cast<DWORD>(*number)) : std::nullopt;
}

std::optional<std::uint64_t> RegistryNumberFrom(std::string_view text, std::uint64_t most)
{
    int radix = 10;
    if (text.starts_with("0x") || text.starts_with("0X"))
    {
        text.remove_prefix(2);
        radix = 16;
    }
    std::uint64_t number = 0;
    auto const [end, error] = std::from_chars(text.data(), text.data() + text.size(), number, radix);
    bool const isNumber = error == std::errc() && end == text.data() + text.size() && number <= most;
    return isNumber ? std::optional(number) : std::nullopt;
}

bool IsRegistryText(DWORD type)
{
    return type == REG_SZ || type == REG_EXPAND_SZ || type == REG_MULTI_SZ;
}

String RegistryText(std::string const & data)
{
    String text;
    text.resize(data.size() / sizeof(WCHAR));
    std::memcpy(text.data(), data.data(), text.size() * sizeof(WCHAR));
    return text;
}

std::string RegistryBytes(WString const & text)
{
    std::string data(text.size() * sizeof(WCHAR), '\0');
    std::memcpy(data.data(), text.data(), data.size());
    return data;
}

} // namespace kv::tools
