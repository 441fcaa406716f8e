// Paths as "file:" URLs and back.

#include <algorithm>
#include <optional>

#include "UrlText.h"

using namespace kv::platform;

namespace
{

using View = std::u16string_view;

bool IsSlash(char16_t c)
{
    return c == u'/' || c == u'\\';
}

} // namespace

BOOL WINAPI PathIsURLW(LPCWSTR text)
{
    return text != nullptr && SchemeLength(text) != 0;
}

HRESULT WINAPI UrlCreateFromPathW(LPCWSTR path, LPWSTR url, LPDWORD length, DWORD)
{
    if (path == nullptr || url == nullptr || length == nullptr)
    {
        return E_INVALIDARG;
    }
    View const text(path);
    if (SchemeLength(text) != 0)
    {
        return CopyResult(text, url, length, S_FALSE);
    }
    if (*length == 0)
    {
        return E_INVALIDARG;
    }
    bool const isRooted = !text.empty() && IsSlash(text[0]);
    bool const hasServer = isRooted && text.size() > 1 && IsSlash(text[1]);
    View const prefix = BeginsWithDrive(text) ? u"file:///" : isRooted && !hasServer ? u"file://" : u"file:";
    return CopyResult(std::u16string(prefix) + EscapedPath(text), url, length, S_OK);
}

namespace
{

/// What stands behind "file:" without the slashes that only the URL has.
std::u16string PathOfUrl(View url)
{
    auto const end = std::find_if_not(url.begin(), url.end(), IsSlash);
    std::size_t const slashes = static_cast<std::size_t>(end - url.begin());
    View const rest = url.substr(slashes);
    if (slashes <= 4 && BeginsWithDrive(rest))
    {
        return std::u16string(rest);
    }
    constexpr View thisMachine = u"localhost";
    if (slashes == 2 && LowerAscii(rest.substr(0, thisMachine.size())) == thisMachine &&
        rest.size() > thisMachine.size() && IsSlash(rest[thisMachine.size()]))
    {
        return std::u16string(rest.substr(thisMachine.size() + 1));
    }
    // Two slashes are a server's, three an empty server and a root; with more the server stands in the path.
    View const kept = slashes == 0 ? u"" : slashes == 1 || slashes == 3 ? u"\\" : u"\\\\";
    return std::u16string(kept) + std::u16string(rest);
}

std::optional<unsigned> HexDigit(char16_t c)
{
    if (c >= u'0' && c <= u'9')
    {
        return c - u'0';
    }
    char16_t const lower = c | 0x20;
    return lower >= u'a' && lower <= u'f' ? std::optional<unsigned>(lower - u'a' + 10u) : std::nullopt;
}

std::u16string Unescaped(View url)
{
    std::u16string text;
    for (std::size_t i = 0; i < url.size(); i++)
    {
        bool const canEscape = url[i] == u'%' && i + 2 < url.size();
        std::optional<unsigned> const high = canEscape ? HexDigit(url[i + 1]) : std::nullopt;
        std::optional<unsigned> const low = canEscape ? HexDigit(url[i + 2]) : std::nullopt;
        if (high && low)
        {
            text += static_cast<char16_t>(*high << 4 | *low);
            i += 2;
        }
        else
        {
            text += url[i] == u'/' ? u'\\' : url[i];
        }
    }
    return text;
}

} // namespace

HRESULT WINAPI PathCreateFromUrlW(LPCWSTR url, LPWSTR path, LPDWORD length, DWORD)
{
    if (url == nullptr || path == nullptr || length == nullptr || *length == 0)
    {
        return E_INVALIDARG;
    }
    constexpr View scheme = u"file:";
    View const text(url);
    if (LowerAscii(text.substr(0, scheme.size())) != scheme)
    {
        return E_INVALIDARG;
    }
    std::u16string const result = Unescaped(PathOfUrl(text.substr(scheme.size())));
    // An escaped NUL ends the text, as it does for whoever reads it.
    return CopyResult(result.c_str(), path, length, S_OK);
}
