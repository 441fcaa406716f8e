#include <algorithm>
#include <utility>

#include "UrlText.h"

#include <kvcore/platform/linux/memory/CallerMemory.h>

using namespace kv::platform;

namespace
{

using View = std::u16string_view;
using Text = std::u16string;

/// A URL in its parts, each with the marks that belong to it: "http:", "//host", "/path", "?query#fragment".
struct Url
{
    Text scheme;
    Text authority;
    Text path;
    Text query;
    Text fragment;
};

Text Take(View & rest, std::size_t length)
{
    Text const taken(rest.substr(0, length));
    rest.remove_prefix(taken.size());
    return taken;
}

/// A reference without scheme and drive.
Url ParseReference(View rest)
{
    Url url;
    if (rest.starts_with(u"//"))
    {
        url.authority = Take(rest, rest.find_first_of(u"/?#", 2));
    }
    url.path = Take(rest, rest.find_first_of(u"?#"));
    url.query = Take(rest, rest.find(u'#'));
    url.fragment = rest;
    return url;
}

/// Tabs, and blanks and controls at the end, come from what a URL was copied out of.
Text Trimmed(View text)
{
    while (!text.empty() && text.back() <= u' ')
    {
        text.remove_suffix(1);
    }
    Text trimmed(text);
    std::erase(trimmed, u'\t');
    return trimmed;
}

/// Backslashes are slashes in the two schemes in which people write them.
void TurnSlashes(View scheme, Text & text)
{
    if (scheme == u"file:" || scheme == u"http:")
    {
        std::replace(text.begin(), text.end(), u'\\', u'/');
    }
}

/// "c:\a" as a URL; escapes that are there already stay.
Text UrlOfDrivePath(View path)
{
    Text url;
    for (std::size_t from = 0; from < path.size();)
    {
        std::size_t const percent = std::min(path.find(u'%', from), path.size());
        url += EscapedPath(path.substr(from, percent - from));
        url += path.substr(percent, 1);
        from = percent + 1;
    }
    return u"///" + url;
}

/// A whole URL, or a reference, which has no scheme.
Url Parse(View text)
{
    bool const isDrive = text.size() >= 2 && text[1] == u':';
    std::size_t const length = isDrive ? 0 : SchemeLength(text);
    Text const scheme = isDrive ? u"file:" : LowerAscii(text.substr(0, length == 0 ? 0 : length + 1));
    Text rest = isDrive ? UrlOfDrivePath(text) : Text(text.substr(scheme.size()));
    TurnSlashes(scheme, rest);
    Url url = ParseReference(rest);
    url.scheme = scheme;
    return url;
}

/// By RFC 3986, 5.2.2 and 5.2.3.
Url Merged(Url const & base, Url reference)
{
    reference.scheme = base.scheme;
    if (!reference.authority.empty())
    {
        return reference;
    }
    reference.authority = base.authority;
    if (reference.path.empty())
    {
        reference.path = base.path;
        reference.query = reference.query.empty() ? base.query : reference.query;
    }
    else if (!reference.path.starts_with(u'/'))
    {
        Text const directory = base.path.substr(0, base.path.rfind(u'/') + 1);
        bool const needsRoot = directory.empty() && !base.authority.empty();
        reference.path = (needsRoot ? u"/" : directory) + reference.path;
    }
    return reference;
}

/// Drops "." segments, and ".." segments with what stands before them. A drive is a root of its own.
Text WithoutDots(View path)
{
    std::size_t const root = path.size() >= 3 && path[0] == u'/' && BeginsWithDrive(path.substr(1)) ? 3 : 0;
    Text result(path.substr(0, root));
    for (View rest = path.substr(root); !rest.empty();)
    {
        Text const segment = Take(rest, rest.find(u'/', 1));
        bool const isUp = segment == u"/..";
        if (!isUp && segment != u"/.")
        {
            result += segment;
            continue;
        }
        if (isUp && result.size() > root)
        {
            result.resize(std::max(result.rfind(u'/'), root));
        }
        if (rest.empty())
        {
            result += u'/';
        }
    }
    return result;
}

/// The one way of writing a "file:" URL's server and drive.
void NormalizeFile(Url & url)
{
    if (url.authority == u"//" && url.path.starts_with(u"//"))
    {
        // The server stands in the path: the URL was made by putting slashes before a path.
        Url const inner =
            ParseReference(u"//" + url.path.substr(std::min(url.path.find_first_not_of(u'/'), url.path.size())));
        url.authority = inner.authority;
        url.path = inner.path;
    }
    if (url.authority.size() > 2 && BeginsWithDrive(View(url.authority).substr(2)))
    {
        url.path = u"/" + url.authority.substr(2) + url.path;
        url.authority = u"//";
    }
}

bool IsHostCharacter(char16_t c)
{
    return (c >= u'a' && c <= u'z') || (c >= u'A' && c <= u'Z') || (c >= u'0' && c <= u'9') || c == u'.' || c == u'-';
}

/// `completes` puts a slash behind a host that stands alone.
Text Printed(Url url, DWORD flags, bool completes)
{
    if (url.scheme == u"file:")
    {
        NormalizeFile(url);
    }
    bool const isHierarchy = !url.authority.empty() || url.path.starts_with(u'/');
    if ((flags & URL_DONT_SIMPLIFY) == 0 && isHierarchy)
    {
        url.path = WithoutDots(url.path);
    }
    bool const isHostAlone = completes && url.authority.size() > 2 && (url.path + url.query + url.fragment).empty() &&
        std::all_of(url.authority.begin() + 2, url.authority.end(), IsHostCharacter);
    return url.scheme + url.authority + (isHostAlone ? u"/" : url.path) + url.query + url.fragment;
}

Text Combined(View base, View relative, DWORD flags)
{
    Url const from = Parse(Trimmed(base));
    Text text = Trimmed(relative);
    Url reference = Parse(text);
    if (reference.scheme.empty())
    {
        TurnSlashes(from.scheme, text);
        reference = Merged(from, ParseReference(text));
    }
    else if (reference.scheme == from.scheme && !from.authority.empty() && reference.authority.empty())
    {
        // "http:a" beside another "http:" URL has always been a reference.
        reference = Merged(from, reference);
    }
    // "\\server" is a path, and a path stays as it is.
    return Printed(std::move(reference), flags, !relative.starts_with(u'\\'));
}

} // namespace

HRESULT WINAPI UrlCombineW(LPCWSTR base, LPCWSTR relative, LPWSTR combined, LPDWORD length, DWORD flags)
{
    CheckTexts(base, relative);
    CheckOutputs(length);
    CheckBuffer(combined, length != nullptr ? *length : 0);
    if (base == nullptr || relative == nullptr || combined == nullptr || length == nullptr ||
        (flags & ~URL_DONT_SIMPLIFY) != 0)
    {
        return E_INVALIDARG;
    }
    return CopyResult(Combined(base, relative, flags), combined, length, S_OK);
}
