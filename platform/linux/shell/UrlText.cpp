#include "UrlText.h"

#include <algorithm>

namespace
{

bool IsLetter(char16_t c)
{
    return (c >= u'a' && c <= u'z') || (c >= u'A' && c <= u'Z');
}

bool IsSchemeCharacter(char16_t c)
{
    return IsLetter(c) || (c >= u'0' && c <= u'9') || c == u'+' || c == u'-' || c == u'.';
}

/// Whether a path's character cannot stand in a URL.
bool IsEscaped(char16_t c)
{
    return c <= u' ' || (c >= 0x7F && c <= 0xFF) ||
        std::u16string_view(u"\"#%&<>[]^`{|}").find(c) != std::u16string_view::npos;
}

} // namespace

std::size_t kv::platform::SchemeLength(std::u16string_view url)
{
    auto const end = std::find_if_not(url.begin(), url.end(), IsSchemeCharacter);
    std::size_t const length = static_cast<std::size_t>(end - url.begin());
    return end != url.end() && *end == u':' && length >= 2 ? length : 0;
}

std::u16string kv::platform::LowerAscii(std::u16string_view text)
{
    std::u16string lower(text);
    for (char16_t & c : lower)
    {
        c = c >= u'A' && c <= u'Z' ? static_cast<char16_t>(c + 0x20) : c;
    }
    return lower;
}

bool kv::platform::BeginsWithDrive(std::u16string_view text)
{
    return text.size() >= 2 && IsLetter(text[0]) && text[1] == u':';
}

std::u16string kv::platform::EscapedPath(std::u16string_view path)
{
    constexpr std::u16string_view digits = u"0123456789ABCDEF";
    std::u16string escaped;
    std::size_t const query = std::min(path.find(u'?'), path.size());
    for (std::size_t i = 0; i < path.size(); i++)
    {
        char16_t const c = path[i];
        if (i >= query)
        {
            escaped += c;
        }
        else if (c == u'\\')
        {
            escaped += u'/';
        }
        else if (IsEscaped(c))
        {
            escaped += {u'%', digits[c >> 4], digits[c & 15]};
        }
        else
        {
            escaped += c;
        }
    }
    return escaped;
}

HRESULT kv::platform::CopyResult(std::u16string_view text, LPWSTR buffer, LPDWORD length, HRESULT success)
{
    if (text.size() >= 0xFFFFFFFF)
    {
        return E_OUTOFMEMORY;
    }
    DWORD const size = static_cast<DWORD>(text.size());
    if (*length <= size)
    {
        *length = size + 1;
        return E_POINTER;
    }
    std::copy(text.begin(), text.end(), buffer);
    buffer[size] = u'\0';
    *length = size;
    return success;
}
