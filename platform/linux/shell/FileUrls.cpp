// Paths as "file:" URLs and back.

#include <algorithm>
#include <optional>

#include "UrlText.h"

#include <kvcore/platform/linux/memory/CallerMemory.h>

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
    CheckText(text);
    return text != nullptr && SchemeLength(text) != 0;
}

HRESULT WINAPI UrlCreateFromPathW(LPCWSTR path, LPWSTR url, LPDWORD length, DWORD)
{
    CheckText(path);
    CheckOutputs(length);
    CheckBuffer(url, length != nullptr ? *length : 0);
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

/// "c:", or the "c|" that URLs have for it.
bool HasUrlDrive(View text)
{
    return text.size() >= 2 && (text[1] == u':' || text[1] == u'|') && text[0] < 0x80 && (text[0] | 0x20) >= u'a' &&
        (text[0] | 0x20) <= u'z';
}

/// What stands behind "file:" without the slashes that only the URL has, and whether escapes in it are to be undone.
struct UrlPath
{
    std::u16string text;
    bool escaped = true;
};

UrlPath LocalPath(View text, bool escaped = true)
{
    UrlPath path = {std::u16string(text), escaped};
    if (HasUrlDrive(text))
    {
        path.text[1] = u':';
    }
    return path;
}

/// Behind two slashes: this machine's name, a drive that should have had three, or a server.
UrlPath PathOfServer(View rest)
{
    constexpr View thisMachine = u"localhost";
    if (LowerAscii(rest.substr(0, thisMachine.size())) == thisMachine && rest.size() > thisMachine.size() &&
        IsSlash(rest[thisMachine.size()]))
    {
        return LocalPath(rest.substr(thisMachine.size() + 1));
    }
    if (HasUrlDrive(rest))
    {
        return LocalPath(rest, false);
    }
    auto const end = static_cast<std::size_t>(std::find_if(rest.begin(), rest.end(), IsSlash) - rest.begin());
    // What stands for the prefixes of whole paths, "?" and ".", is no server.
    View const server = rest.substr(0, end);
    bool const drive = end < rest.size() && HasUrlDrive(rest.substr(end + 1)) && server != u"?" && server != u".";
    return {u"\\\\" + std::u16string(server) + std::u16string(rest.substr(drive ? end + 1 : end)), true};
}

UrlPath PathOfUrl(View url)
{
    auto const end = std::find_if_not(url.begin(), url.end(), IsSlash);
    std::size_t const slashes = static_cast<std::size_t>(end - url.begin());
    View const rest = url.substr(slashes);
    if (slashes == 2)
    {
        return PathOfServer(rest);
    }
    bool const escaped = slashes != 4;
    if (slashes == 0 || (slashes <= 4 && HasUrlDrive(rest)))
    {
        return LocalPath(rest, escaped);
    }
    // Three slashes are an empty server and a root; with more the server stands in the path.
    return {(slashes == 1 || slashes == 3 ? u"\\" : u"\\\\") + std::u16string(rest), escaped};
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

std::u16string Unescaped(UrlPath const & path)
{
    View const url = path.text;
    std::u16string text;
    for (std::size_t i = 0; i < url.size(); i++)
    {
        bool const canEscape = path.escaped && url[i] == u'%' && i + 2 < url.size();
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
    CheckText(url);
    CheckOutputs(length);
    CheckBuffer(path, length != nullptr ? *length : 0);
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
