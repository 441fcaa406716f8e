#include <kvcore/platform/win32.h>

#include <functional>

#include <support/GuardedBuffer.h>

using kv::test::GuardedBuffer;
using kv::test::RandomPaths;

namespace
{

/// One of the URL functions, all arguments but the buffer and its length given.
using Function = std::function<HRESULT(WCHAR *, DWORD *)>;

Function ToUrl(WString const & path)
{
    return [path](WCHAR * url, DWORD * length) { return UrlCreateFromPathW(path.c_str(), url, length, 0); };
}

Function FromUrl(WString const & url)
{
    return [url](WCHAR * path, DWORD * length) { return PathCreateFromUrlW(url.c_str(), path, length, 0); };
}

Function Combine(WString const & base, WString const & relative, DWORD flags)
{
    return [=](WCHAR * url, DWORD * length) { return UrlCombineW(base.c_str(), relative.c_str(), url, length, flags); };
}

/// Calls the function with each room up to one that is enough, and expects one answer of it.
void ExpectText(Function const & function, HRESULT result, WString const & text)
{
    DWORD const needed = static_cast<DWORD>(text.size() + 1);
    for (DWORD room = 1; room < needed; room++)
    {
        GuardedBuffer buffer(room);
        DWORD length = room;
        ASSERT_EQ(function(buffer.Data(), &length), E_POINTER) << ::testing::PrintToString(text) << ' ' << room;
        ASSERT_EQ(length, needed) << ::testing::PrintToString(text) << ' ' << room;
        ASSERT_TRUE(buffer.IsUntouched());
    }
    for (DWORD room = needed; room < needed + 3; room++)
    {
        GuardedBuffer buffer(room);
        DWORD length = room;
        ASSERT_EQ(function(buffer.Data(), &length), result) << ::testing::PrintToString(text);
        ASSERT_EQ(buffer.Text(), text);
        ASSERT_EQ(length, text.size());
        buffer.ExpectNothingBehind();
    }
}

TEST(ShellUrls, SchemesHaveTwoCharactersOrMore)
{
    struct
    {
        WCHAR const * text;
        int isUrl;
    } const rows[] = {
        {TEXT("http:"), 1},      {TEXT("HTTP://A.B/C"), 1}, {TEXT("mailto:x@y"), 1}, {TEXT("file:"), 1},
        {TEXT("xyz:a"), 1},      {TEXT("a:b"), 0},          {TEXT("ab:c"), 1},       {TEXT("1b:c"), 1},
        {TEXT("a+b-c.d:e"), 1},  {TEXT(":a"), 0},           {TEXT("a_b:c"), 0},      {TEXT("?a"), 0},
        {TEXT("  http://a"), 0}, {TEXT("urn:a:b"), 1},      {TEXT("res://a/b"), 1},
    };
    for (auto const & row : rows)
    {
        EXPECT_EQ(PathIsURLW(row.text) != 0, row.isUrl != 0) << ::testing::PrintToString(WString(row.text));
    }
}

TEST(ShellUrls, PathsBecomeUrls)
{
    struct
    {
        WCHAR const * path;
        HRESULT result;
        WCHAR const * url;
    } const rows[] = {
        {TEXT(""), S_OK, TEXT("file:")},
        {TEXT("c"), S_OK, TEXT("file:c")},
        {TEXT("c:"), S_OK, TEXT("file:///c:")},
        {TEXT("c:\\"), S_OK, TEXT("file:///c:/")},
        {TEXT("c:/"), S_OK, TEXT("file:///c:/")},
        {TEXT("c:\\a"), S_OK, TEXT("file:///c:/a")},
        {TEXT("c:a\\b"), S_OK, TEXT("file:///c:a/b")},
        {TEXT("\\"), S_OK, TEXT("file:///")},
        {TEXT("\\a\\b"), S_OK, TEXT("file:///a/b")},
        {TEXT("\\\\"), S_OK, TEXT("file://")},
        {TEXT("\\\\s\\h\\f"), S_OK, TEXT("file://s/h/f")},
        {TEXT("\\\\\\s\\h"), S_OK, TEXT("file:///s/h")},
        {TEXT("a\\b"), S_OK, TEXT("file:a/b")},
        {TEXT("a/b"), S_OK, TEXT("file:a/b")},
        {TEXT("/a"), S_OK, TEXT("file:///a")},
        {TEXT("//s/h"), S_OK, TEXT("file://s/h")},
        {TEXT("..\\a"), S_OK, TEXT("file:../a")},
        {TEXT("c:\\a\\..\\b"), S_OK, TEXT("file:///c:/a/../b")},
        {TEXT("c:\\a\\\\b"), S_OK, TEXT("file:///c:/a//b")},
        {TEXT("\\\\?\\c:\\a"), S_OK, TEXT("file://?\\c:\\a")},
        {TEXT("1:\\a"), S_OK, TEXT("file:1:/a")},
        {TEXT("\u00E4:\\a"), S_OK, TEXT("file:%E4:/a")},
        {TEXT(":\\"), S_OK, TEXT("file::/")},
        {TEXT("c:\\a\"b"), S_OK, TEXT("file:///c:/a%22b")},
        {TEXT("c:\\*.*"), S_OK, TEXT("file:///c:/*.*")},
        {TEXT("\\\\server\\share name\\x"), S_OK, TEXT("file://server/share%20name/x")},
        {TEXT("?\\a"), S_OK, TEXT("file:?\\a")},
        {TEXT("#\\a"), S_OK, TEXT("file:%23/a")},
        {TEXT("a?b\\c%20"), S_OK, TEXT("file:a?b\\c%20")},
        {TEXT("a%2"), S_OK, TEXT("file:a%252")},
        {TEXT("c:\\a#b\\c"), S_OK, TEXT("file:///c:/a%23b/c")},
        {TEXT("c:\\a?b\\c"), S_OK, TEXT("file:///c:/a?b\\c")},
        {TEXT(" c:\\a"), S_OK, TEXT("file:%20c:/a")},
        {TEXT("\u0100:\\a"), S_OK, TEXT("file:\u0100:/a")},
        {TEXT("a:b:c"), S_OK, TEXT("file:///a:b:c")},
        {TEXT("c:\\=@[]^`~"), S_OK, TEXT("file:///c:/=@%5B%5D%5E%60~")},
        {TEXT("c:\\;x"), S_OK, TEXT("file:///c:/;x")},
        {TEXT("a?b%c#\""), S_OK, TEXT("file:a?b%c#\"")},
        {TEXT("http://a/b"), S_FALSE, TEXT("http://a/b")},
        {TEXT("http:"), S_FALSE, TEXT("http:")},
        {TEXT("cc:\\a"), S_FALSE, TEXT("cc:\\a")},
        {TEXT("file:c:\\a"), S_FALSE, TEXT("file:c:\\a")},
        {TEXT("ftp://a/b c"), S_FALSE, TEXT("ftp://a/b c")},
        {TEXT("1b:c"), S_FALSE, TEXT("1b:c")},
        {TEXT("-a:b"), S_FALSE, TEXT("-a:b")},
        {TEXT("mailto:x@y"), S_FALSE, TEXT("mailto:x@y")},
        {TEXT("http://a/%41"), S_FALSE, TEXT("http://a/%41")},
        {TEXT("file:///c:/a/../b"), S_FALSE, TEXT("file:///c:/a/../b")},
    };
    for (auto const & row : rows)
    {
        SCOPED_TRACE(::testing::PrintToString(WString(row.path)));
        ExpectText(ToUrl(row.path), row.result, row.url);
    }
}

TEST(ShellUrls, APathsCharactersAreEscapedAboveAndBelowAscii)
{
    WString const escaped = TEXT("\"#%&<>[]^`{|}");
    for (unsigned c = 1; c < 0x180; c++)
    {
        WCHAR const unit = static_cast<WCHAR>(c);
        if (unit == TEXT('\\') || unit == TEXT('?'))
        {
            continue;
        }
        bool const isEscaped = c <= 0x20 || (c >= 0x7F && c <= 0xFF) || escaped.find(unit) != WString::npos;
        WCHAR const digits[] = TEXT("0123456789ABCDEF");
        WString const text = isEscaped ? WString{TEXT('%'), digits[c >> 4 & 15], digits[c & 15]} : WString(1, unit);
        ExpectText(ToUrl(TEXT("c:\\") + WString(1, unit)), S_OK, TEXT("file:///c:/") + text);
    }
}

TEST(ShellUrls, UrlsBecomePaths)
{
    struct
    {
        WCHAR const * url;
        WCHAR const * path;
    } const rows[] = {
        {TEXT("file:"), TEXT("")},
        {TEXT("file:a"), TEXT("a")},
        {TEXT("file:a/b"), TEXT("a\\b")},
        {TEXT("file:c:\\a"), TEXT("c:\\a")},
        {TEXT("file:c:/a"), TEXT("c:\\a")},
        {TEXT("file:/"), TEXT("\\")},
        {TEXT("file:/a"), TEXT("\\a")},
        {TEXT("file:/c:/a"), TEXT("c:\\a")},
        {TEXT("file://"), TEXT("\\\\")},
        {TEXT("file://a"), TEXT("\\\\a")},
        {TEXT("file://s/"), TEXT("\\\\s\\")},
        {TEXT("file://s/h/f"), TEXT("\\\\s\\h\\f")},
        {TEXT("file://c:/a"), TEXT("c:\\a")},
        {TEXT("file://c:\\a\\b"), TEXT("c:\\a\\b")},
        {TEXT("file:///"), TEXT("\\")},
        {TEXT("file:///a/b"), TEXT("\\a\\b")},
        {TEXT("file:///c:"), TEXT("c:")},
        {TEXT("file:///c:/a"), TEXT("c:\\a")},
        {TEXT("file:///c:a\\b"), TEXT("c:a\\b")},
        {TEXT("file:////"), TEXT("\\\\")},
        {TEXT("file:////c:/a"), TEXT("c:\\a")},
        {TEXT("file:////s/h/f"), TEXT("\\\\s\\h\\f")},
        {TEXT("file://///s/h/f"), TEXT("\\\\s\\h\\f")},
        {TEXT("file://///c:/a"), TEXT("\\\\c:\\a")},
        {TEXT("file:///////s"), TEXT("\\\\s")},
        {TEXT("file:\\\\s\\h"), TEXT("\\\\s\\h")},
        {TEXT("file:\\a"), TEXT("\\a")},
        {TEXT("file://localhost"), TEXT("\\\\localhost")},
        {TEXT("file://localhost/"), TEXT("")},
        {TEXT("file://localhost/a"), TEXT("a")},
        {TEXT("file://localhost/c:/a"), TEXT("c:\\a")},
        {TEXT("file://LOCALHOST/c:/a"), TEXT("c:\\a")},
        {TEXT("file:\\\\localhost\\c:\\a"), TEXT("c:\\a")},
        {TEXT("file:///localhost/c:/a"), TEXT("\\localhost\\c:\\a")},
        {TEXT("file://h//c:/a"), TEXT("\\\\h\\\\c:\\a")},
        {TEXT("FILE:///c:/a"), TEXT("c:\\a")},
        {TEXT("file:///1:\\a"), TEXT("\\1:\\a")},
        {TEXT("file:///\u00E4:/a"), TEXT("\\\u00E4:\\a")},
        {TEXT("file:///c:/a%20b"), TEXT("c:\\a b")},
        {TEXT("file:///c:/a%2520b"), TEXT("c:\\a%20b")},
        {TEXT("file:///c:/%41%zz"), TEXT("c:\\A%zz")},
        {TEXT("file:///c:/a%"), TEXT("c:\\a%")},
        {TEXT("file:///c:/a%4"), TEXT("c:\\a%4")},
        {TEXT("file:///c:/a%e4"), TEXT("c:\\a\u00E4")},
        {TEXT("file:///c:/a%C3%A4"), TEXT("c:\\a\u00C3\u00A4")},
        {TEXT("file:///c:/a#b"), TEXT("c:\\a#b")},
        {TEXT("file:///c:/a?b"), TEXT("c:\\a?b")},
        {TEXT("file:///c:/a/../b"), TEXT("c:\\a\\..\\b")},
        {TEXT("file:///c:/a%2fb"), TEXT("c:\\a/b")},
        {TEXT("file:///c:/a%5cb"), TEXT("c:\\a\\b")},
        {TEXT("file:///c%3a/a"), TEXT("\\c:\\a")},
        {TEXT("file://%73/h"), TEXT("\\\\s\\h")},
        {TEXT("file:%00a"), TEXT("")},
        {TEXT("file:///c:/a%00b"), TEXT("c:\\a")},
        {TEXT("file:///c:/%%41"), TEXT("c:\\%A")},
    };
    for (auto const & row : rows)
    {
        SCOPED_TRACE(::testing::PrintToString(WString(row.url)));
        ExpectText(FromUrl(row.url), S_OK, row.path);
    }
}

TEST(ShellUrls, ABarBehindADrivesLetterIsAColon)
{
    struct
    {
        WCHAR const * url;
        WCHAR const * path;
    } const rows[] = {
        {TEXT("file:c|"), TEXT("c:")},
        {TEXT("file:c|a"), TEXT("c:a")},
        {TEXT("file:/c|/a%20b"), TEXT("c:\\a b")},
        {TEXT("file:///c|/a"), TEXT("c:\\a")},
        {TEXT("FILE:///C|\\a"), TEXT("C:\\a")},
        {TEXT("file:\\\\\\c|\\a"), TEXT("c:\\a")},
        {TEXT("file:///c||/a"), TEXT("c:|\\a")},
        {TEXT("file:///c|:/a"), TEXT("c::\\a")},
        {TEXT("file:///c:|/a"), TEXT("c:|\\a")},
        {TEXT("file:///c|/a|b"), TEXT("c:\\a|b")},
        {TEXT("file://localhost/c|/a"), TEXT("c:\\a")},
        {TEXT("file:///c|?x"), TEXT("c:?x")},
        // What stands behind an escape is no drive, nor what is no letter of ASCII, nor what is longer.
        {TEXT("file:c%7C/a"), TEXT("c|\\a")},
        {TEXT("file:///c%7C/a"), TEXT("\\c|\\a")},
        {TEXT("file:///%63|/a"), TEXT("\\c|\\a")},
        {TEXT("file:///1|/a"), TEXT("\\1|\\a")},
        {TEXT("file:///|/a"), TEXT("\\|\\a")},
        {TEXT("file:///\u00E9|/a"), TEXT("\\\u00E9|\\a")},
        {TEXT("file:///ab|/a"), TEXT("\\ab|\\a")},
        {TEXT("file:///a/c|/b"), TEXT("\\a\\c|\\b")},
        {TEXT("file://///c|/a"), TEXT("\\\\c|\\a")},
        // A drive where a server is expected keeps its escapes, and one behind a server loses the separator.
        {TEXT("file://c|/a%20b"), TEXT("c:\\a%20b")},
        {TEXT("file://c:/a%20b"), TEXT("c:\\a%20b")},
        {TEXT("file:////c|/a%20b"), TEXT("c:\\a%20b")},
        {TEXT("file:////a/b%20c"), TEXT("\\\\a\\b%20c")},
        {TEXT("file://///a/b%20c"), TEXT("\\\\a\\b c")},
        {TEXT("file://s/c|/a%20b"), TEXT("\\\\sc|\\a b")},
        {TEXT("file://s/c:/a"), TEXT("\\\\sc:\\a")},
        {TEXT("file://s/t/c:/a"), TEXT("\\\\s\\t\\c:\\a")},
    };
    for (auto const & row : rows)
    {
        SCOPED_TRACE(::testing::PrintToString(WString(row.url)));
        ExpectText(FromUrl(row.url), S_OK, row.path);
    }
}

TEST(ShellUrls, OnlyFileUrlsBecomePaths)
{
    for (WString const url :
         {TEXT(""), TEXT("c:\\a"), TEXT("a"), TEXT("\\\\s\\h"), TEXT("http://a/b"), TEXT("file"), TEXT("fil:a"),
          TEXT("file :a"), TEXT(" file:a")})
    {
        GuardedBuffer buffer(20);
        DWORD length = 20;
        EXPECT_EQ(PathCreateFromUrlW(url.c_str(), buffer.Data(), &length, 0), E_INVALIDARG);
        EXPECT_EQ(length, 20u);
        EXPECT_TRUE(buffer.IsUntouched());
    }
}

TEST(ShellUrls, AnythingBesideTheFileSchemeIsAUrl)
{
    struct
    {
        WCHAR const * relative;
        WCHAR const * url;
    } const rows[] = {
        {TEXT(""), TEXT("file:")},
        {TEXT("a"), TEXT("file:a")},
        {TEXT("a b"), TEXT("file:a b")},
        {TEXT("a\\b"), TEXT("file:a/b")},
        {TEXT("a\\..\\b"), TEXT("file:a/../b")},
        {TEXT("../g"), TEXT("file:../g")},
        {TEXT("../../g"), TEXT("file:../../g")},
        {TEXT("./../g"), TEXT("file:./../g")},
        {TEXT("/a"), TEXT("file:/a")},
        {TEXT("/./g"), TEXT("file:/./g")},
        {TEXT("//s/h"), TEXT("file://s/h")},
        {TEXT("//g"), TEXT("file://g/")},
        {TEXT("?y"), TEXT("file:?y")},
        {TEXT("g?y"), TEXT("file:g?y")},
        {TEXT("#s"), TEXT("file:#s")},
        {TEXT("g?y#s"), TEXT("file:g?y#s")},
        {TEXT("c:\\"), TEXT("file:///c:/")},
        {TEXT("c:/"), TEXT("file:///c:/")},
        {TEXT("c:\\a"), TEXT("file:///c:/a")},
        {TEXT("c:\\a\"b"), TEXT("file:///c:/a%22b")},
        {TEXT("c:\\a%20b"), TEXT("file:///c:/a%20b")},
        {TEXT("c:\\a#b?c"), TEXT("file:///c:/a%23b?c")},
        {TEXT("c:\\a\\..\\b"), TEXT("file:///c:/a/../b")},
        {TEXT("c:a\\b"), TEXT("file:///c:a/b")},
        {TEXT("1:\\a"), TEXT("file:///1:/a")},
        {TEXT("\u00E4:\\a"), TEXT("file:///%E4:/a")},
        {TEXT("cc:\\a"), TEXT("cc:\\a")},
        {TEXT("a_b:c"), TEXT("file:a_b:c")},
        {TEXT("http://a"), TEXT("http://a/")},
        {TEXT("http://a/b"), TEXT("http://a/b")},
        {TEXT("HTTP://A.B/C"), TEXT("http://A.B/C")},
        {TEXT("HTTPS:"), TEXT("https:")},
        {TEXT("http://a\\b\\c"), TEXT("http://a/b/c")},
        {TEXT("https://s/a\\b"), TEXT("https://s/a\\b")},
        {TEXT("xyz://s/a\\b"), TEXT("xyz://s/a\\b")},
        {TEXT("mailto:x@y"), TEXT("mailto:x@y")},
        {TEXT("file:"), TEXT("file:")},
        {TEXT("file:a"), TEXT("file:a")},
        {TEXT("file:/a"), TEXT("file:/a")},
        {TEXT("file:c:\\a"), TEXT("file:c:/a")},
        {TEXT("file:c:/a"), TEXT("file:c:/a")},
        {TEXT("file:///c:/a"), TEXT("file:///c:/a")},
        {TEXT("file:///c:/a%20b"), TEXT("file:///c:/a%20b")},
        {TEXT("file:///c:\\a b"), TEXT("file:///c:/a b")},
        {TEXT("File://C:/A"), TEXT("file:///C:/A")},
        {TEXT("file://c:/a"), TEXT("file:///c:/a")},
        {TEXT("file://c:\\a\\b"), TEXT("file:///c:/a/b")},
        {TEXT("file:////c:/a"), TEXT("file:///c:/a")},
        {TEXT("file:////s/h/f"), TEXT("file://s/h/f")},
        {TEXT("file://///s/h/f"), TEXT("file://s/h/f")},
        {TEXT("file://s"), TEXT("file://s/")},
        {TEXT("file://s/"), TEXT("file://s/")},
        {TEXT("file://s\\h"), TEXT("file://s/h")},
        {TEXT("file://s/h/f"), TEXT("file://s/h/f")},
        {TEXT("file://localhost/c:/a"), TEXT("file://localhost/c:/a")},
        {TEXT("file://127.0.0.1/c:/a"), TEXT("file://127.0.0.1/c:/a")},
        {TEXT("file:///c:/a?x\\y"), TEXT("file:///c:/a?x/y")},
        {TEXT("file:x?y\\z"), TEXT("file:x?y/z")},
        {TEXT("file:///"), TEXT("file:///")},
        {TEXT("file:////"), TEXT("file://")},
        {TEXT("http://a_b"), TEXT("http://a_b")},
        {TEXT("http://u:p@a/b"), TEXT("http://u:p@a/b")},
    };
    for (auto const & row : rows)
    {
        SCOPED_TRACE(::testing::PrintToString(WString(row.relative)));
        ExpectText(Combine(TEXT("file:"), row.relative, URL_DONT_SIMPLIFY), S_OK, row.url);
    }
}

TEST(ShellUrls, ReferencesCombineWithABase)
{
    struct
    {
        WCHAR const * base;
        WCHAR const * relative;
        DWORD flags;
        WCHAR const * url;
    } const rows[] = {
        {TEXT("http://a/b/c/d;p?q"), TEXT("g"), 0, TEXT("http://a/b/c/g")},
        {TEXT("http://a/b/c/d;p?q"), TEXT("g"), URL_DONT_SIMPLIFY, TEXT("http://a/b/c/g")},
        {TEXT("http://a/b/c/d;p?q"), TEXT("./g"), 0, TEXT("http://a/b/c/g")},
        {TEXT("http://a/b/c/d;p?q"), TEXT("./g"), URL_DONT_SIMPLIFY, TEXT("http://a/b/c/./g")},
        {TEXT("http://a/b/c/d;p?q"), TEXT("g/"), 0, TEXT("http://a/b/c/g/")},
        {TEXT("http://a/b/c/d;p?q"), TEXT("g/"), URL_DONT_SIMPLIFY, TEXT("http://a/b/c/g/")},
        {TEXT("http://a/b/c/d;p?q"), TEXT("/g"), 0, TEXT("http://a/g")},
        {TEXT("http://a/b/c/d;p?q"), TEXT("/g"), URL_DONT_SIMPLIFY, TEXT("http://a/g")},
        {TEXT("http://a/b/c/d;p?q"), TEXT("//g"), 0, TEXT("http://g/")},
        {TEXT("http://a/b/c/d;p?q"), TEXT("//g"), URL_DONT_SIMPLIFY, TEXT("http://g/")},
        {TEXT("http://a/b/c/d;p?q"), TEXT("g?y"), 0, TEXT("http://a/b/c/g?y")},
        {TEXT("http://a/b/c/d;p?q"), TEXT("g?y"), URL_DONT_SIMPLIFY, TEXT("http://a/b/c/g?y")},
        {TEXT("http://a/b/c/d;p?q"), TEXT("#s"), 0, TEXT("http://a/b/c/d;p?q#s")},
        {TEXT("http://a/b/c/d;p?q"), TEXT("#s"), URL_DONT_SIMPLIFY, TEXT("http://a/b/c/d;p?q#s")},
        {TEXT("http://a/b/c/d;p?q"), TEXT("g#s"), 0, TEXT("http://a/b/c/g#s")},
        {TEXT("http://a/b/c/d;p?q"), TEXT("g#s"), URL_DONT_SIMPLIFY, TEXT("http://a/b/c/g#s")},
        {TEXT("http://a/b/c/d;p?q"), TEXT("g?y#s"), 0, TEXT("http://a/b/c/g?y#s")},
        {TEXT("http://a/b/c/d;p?q"), TEXT("g?y#s"), URL_DONT_SIMPLIFY, TEXT("http://a/b/c/g?y#s")},
        {TEXT("http://a/b/c/d;p?q"), TEXT(";x"), 0, TEXT("http://a/b/c/;x")},
        {TEXT("http://a/b/c/d;p?q"), TEXT(";x"), URL_DONT_SIMPLIFY, TEXT("http://a/b/c/;x")},
        {TEXT("http://a/b/c/d;p?q"), TEXT("g;x"), 0, TEXT("http://a/b/c/g;x")},
        {TEXT("http://a/b/c/d;p?q"), TEXT("g;x"), URL_DONT_SIMPLIFY, TEXT("http://a/b/c/g;x")},
        {TEXT("http://a/b/c/d;p?q"), TEXT(".."), 0, TEXT("http://a/b/")},
        {TEXT("http://a/b/c/d;p?q"), TEXT(".."), URL_DONT_SIMPLIFY, TEXT("http://a/b/c/..")},
        {TEXT("http://a/b/c/d;p?q"), TEXT("../"), 0, TEXT("http://a/b/")},
        {TEXT("http://a/b/c/d;p?q"), TEXT("../"), URL_DONT_SIMPLIFY, TEXT("http://a/b/c/../")},
        {TEXT("http://a/b/c/d;p?q"), TEXT("../g"), 0, TEXT("http://a/b/g")},
        {TEXT("http://a/b/c/d;p?q"), TEXT("../g"), URL_DONT_SIMPLIFY, TEXT("http://a/b/c/../g")},
        {TEXT("http://a/b/c/d;p?q"), TEXT("../.."), 0, TEXT("http://a/")},
        {TEXT("http://a/b/c/d;p?q"), TEXT("../.."), URL_DONT_SIMPLIFY, TEXT("http://a/b/c/../..")},
        {TEXT("http://a/b/c/d;p?q"), TEXT("../../g"), 0, TEXT("http://a/g")},
        {TEXT("http://a/b/c/d;p?q"), TEXT("../../g"), URL_DONT_SIMPLIFY, TEXT("http://a/b/c/../../g")},
        {TEXT("http://a/b/c/d;p?q"), TEXT("g."), 0, TEXT("http://a/b/c/g.")},
        {TEXT("http://a/b/c/d;p?q"), TEXT("g."), URL_DONT_SIMPLIFY, TEXT("http://a/b/c/g.")},
        {TEXT("http://a/b/c/d;p?q"), TEXT(".g"), 0, TEXT("http://a/b/c/.g")},
        {TEXT("http://a/b/c/d;p?q"), TEXT(".g"), URL_DONT_SIMPLIFY, TEXT("http://a/b/c/.g")},
        {TEXT("http://a/b/c/d;p?q"), TEXT("g.."), 0, TEXT("http://a/b/c/g..")},
        {TEXT("http://a/b/c/d;p?q"), TEXT("g.."), URL_DONT_SIMPLIFY, TEXT("http://a/b/c/g..")},
        {TEXT("http://a/b/c/d;p?q"), TEXT("./../g"), 0, TEXT("http://a/b/g")},
        {TEXT("http://a/b/c/d;p?q"), TEXT("./../g"), URL_DONT_SIMPLIFY, TEXT("http://a/b/c/./../g")},
        {TEXT("http://a/b/c/d;p?q"), TEXT("g/../h"), 0, TEXT("http://a/b/c/h")},
        {TEXT("http://a/b/c/d;p?q"), TEXT("g/../h"), URL_DONT_SIMPLIFY, TEXT("http://a/b/c/g/../h")},
        {TEXT("http://a/b/c/d;p?q"), TEXT("http:g"), 0, TEXT("http://a/b/c/g")},
        {TEXT("http://a/b/c/d;p?q"), TEXT("http:g"), URL_DONT_SIMPLIFY, TEXT("http://a/b/c/g")},
        {TEXT("file:///c:/b/c"), TEXT("g"), 0, TEXT("file:///c:/b/g")},
        {TEXT("file:///c:/b/c"), TEXT("g"), URL_DONT_SIMPLIFY, TEXT("file:///c:/b/g")},
        {TEXT("file:///c:/b/c"), TEXT("//g"), 0, TEXT("file://g/")},
        {TEXT("file:///c:/b/c"), TEXT("//g"), URL_DONT_SIMPLIFY, TEXT("file://g/")},
        {TEXT("file:///c:/b/c"), TEXT("g?y"), 0, TEXT("file:///c:/b/g?y")},
        {TEXT("file:///c:/b/c"), TEXT("g?y"), URL_DONT_SIMPLIFY, TEXT("file:///c:/b/g?y")},
        {TEXT("file:///c:/b/c"), TEXT("#s"), 0, TEXT("file:///c:/b/c#s")},
        {TEXT("file:///c:/b/c"), TEXT("#s"), URL_DONT_SIMPLIFY, TEXT("file:///c:/b/c#s")},
        {TEXT("file:///c:/b/c"), TEXT("../g"), 0, TEXT("file:///c:/g")},
        {TEXT("file:///c:/b/c"), TEXT("../g"), URL_DONT_SIMPLIFY, TEXT("file:///c:/b/../g")},
        {TEXT("file:///c:/b/c"), TEXT("http:g"), 0, TEXT("http:g")},
        {TEXT("file:///c:/b/c"), TEXT("http:g"), URL_DONT_SIMPLIFY, TEXT("http:g")},
        {TEXT("file://s/h/f"), TEXT("g"), 0, TEXT("file://s/h/g")},
        {TEXT("file://s/h/f"), TEXT("g"), URL_DONT_SIMPLIFY, TEXT("file://s/h/g")},
        {TEXT("file://s/h/f"), TEXT("/g"), 0, TEXT("file://s/g")},
        {TEXT("file://s/h/f"), TEXT("/g"), URL_DONT_SIMPLIFY, TEXT("file://s/g")},
        {TEXT("file://s/h/f"), TEXT("//g"), 0, TEXT("file://g/")},
        {TEXT("file://s/h/f"), TEXT("//g"), URL_DONT_SIMPLIFY, TEXT("file://g/")},
        {TEXT("file://s/h/f"), TEXT("g?y"), 0, TEXT("file://s/h/g?y")},
        {TEXT("file://s/h/f"), TEXT("g?y"), URL_DONT_SIMPLIFY, TEXT("file://s/h/g?y")},
        {TEXT("file://s/h/f"), TEXT("#s"), 0, TEXT("file://s/h/f#s")},
        {TEXT("file://s/h/f"), TEXT("#s"), URL_DONT_SIMPLIFY, TEXT("file://s/h/f#s")},
        {TEXT("file://s/h/f"), TEXT("../g"), 0, TEXT("file://s/g")},
        {TEXT("file://s/h/f"), TEXT("../g"), URL_DONT_SIMPLIFY, TEXT("file://s/h/../g")},
        {TEXT("file://s/h/f"), TEXT("http:g"), 0, TEXT("http:g")},
        {TEXT("file://s/h/f"), TEXT("http:g"), URL_DONT_SIMPLIFY, TEXT("http:g")},
        {TEXT("xyz://a/b/c"), TEXT("g"), 0, TEXT("xyz://a/b/g")},
        {TEXT("xyz://a/b/c"), TEXT("g"), URL_DONT_SIMPLIFY, TEXT("xyz://a/b/g")},
        {TEXT("xyz://a/b/c"), TEXT("/g"), 0, TEXT("xyz://a/g")},
        {TEXT("xyz://a/b/c"), TEXT("/g"), URL_DONT_SIMPLIFY, TEXT("xyz://a/g")},
        {TEXT("xyz://a/b/c"), TEXT("//g"), 0, TEXT("xyz://g/")},
        {TEXT("xyz://a/b/c"), TEXT("//g"), URL_DONT_SIMPLIFY, TEXT("xyz://g/")},
        {TEXT("xyz://a/b/c"), TEXT("g?y"), 0, TEXT("xyz://a/b/g?y")},
        {TEXT("xyz://a/b/c"), TEXT("g?y"), URL_DONT_SIMPLIFY, TEXT("xyz://a/b/g?y")},
        {TEXT("xyz://a/b/c"), TEXT("#s"), 0, TEXT("xyz://a/b/c#s")},
        {TEXT("xyz://a/b/c"), TEXT("#s"), URL_DONT_SIMPLIFY, TEXT("xyz://a/b/c#s")},
        {TEXT("xyz://a/b/c"), TEXT("../g"), 0, TEXT("xyz://a/g")},
        {TEXT("xyz://a/b/c"), TEXT("../g"), URL_DONT_SIMPLIFY, TEXT("xyz://a/b/../g")},
        {TEXT("xyz://a/b/c"), TEXT("http:g"), 0, TEXT("http:g")},
        {TEXT("xyz://a/b/c"), TEXT("http:g"), URL_DONT_SIMPLIFY, TEXT("http:g")},
        {TEXT("http://a"), TEXT("g"), 0, TEXT("http://a/g")},
        {TEXT("http://a"), TEXT("g"), URL_DONT_SIMPLIFY, TEXT("http://a/g")},
        {TEXT("http://a"), TEXT("/g"), 0, TEXT("http://a/g")},
        {TEXT("http://a"), TEXT("/g"), URL_DONT_SIMPLIFY, TEXT("http://a/g")},
        {TEXT("http://a"), TEXT("//g"), 0, TEXT("http://g/")},
        {TEXT("http://a"), TEXT("//g"), URL_DONT_SIMPLIFY, TEXT("http://g/")},
        {TEXT("http://a"), TEXT("g?y"), 0, TEXT("http://a/g?y")},
        {TEXT("http://a"), TEXT("g?y"), URL_DONT_SIMPLIFY, TEXT("http://a/g?y")},
        {TEXT("http://a"), TEXT("../g"), URL_DONT_SIMPLIFY, TEXT("http://a/../g")},
        {TEXT("http://a"), TEXT("http:g"), 0, TEXT("http://a/g")},
        {TEXT("http://a"), TEXT("http:g"), URL_DONT_SIMPLIFY, TEXT("http://a/g")},
        {TEXT("c:\\a\\b"), TEXT("g"), 0, TEXT("file:///c:/a/g")},
        {TEXT("c:\\a\\b"), TEXT("g"), URL_DONT_SIMPLIFY, TEXT("file:///c:/a/g")},
        {TEXT("c:\\a\\b"), TEXT("//g"), 0, TEXT("file://g/")},
        {TEXT("c:\\a\\b"), TEXT("//g"), URL_DONT_SIMPLIFY, TEXT("file://g/")},
        {TEXT("c:\\a\\b"), TEXT("g?y"), 0, TEXT("file:///c:/a/g?y")},
        {TEXT("c:\\a\\b"), TEXT("g?y"), URL_DONT_SIMPLIFY, TEXT("file:///c:/a/g?y")},
        {TEXT("c:\\a\\b"), TEXT("#s"), 0, TEXT("file:///c:/a/b#s")},
        {TEXT("c:\\a\\b"), TEXT("#s"), URL_DONT_SIMPLIFY, TEXT("file:///c:/a/b#s")},
        {TEXT("c:\\a\\b"), TEXT("../g"), 0, TEXT("file:///c:/g")},
        {TEXT("c:\\a\\b"), TEXT("../g"), URL_DONT_SIMPLIFY, TEXT("file:///c:/a/../g")},
        {TEXT("c:\\a\\b"), TEXT("http:g"), 0, TEXT("http:g")},
        {TEXT("c:\\a\\b"), TEXT("http:g"), URL_DONT_SIMPLIFY, TEXT("http:g")},
        {TEXT("a/b"), TEXT("/g"), 0, TEXT("/g")},
        {TEXT("a/b"), TEXT("/g"), URL_DONT_SIMPLIFY, TEXT("/g")},
        {TEXT("a/b"), TEXT("http:g"), 0, TEXT("http:g")},
        {TEXT("a/b"), TEXT("http:g"), URL_DONT_SIMPLIFY, TEXT("http:g")},
    };
    for (auto const & row : rows)
    {
        SCOPED_TRACE(
            ::testing::PrintToString(WString(row.base)) + " " + ::testing::PrintToString(WString(row.relative)));
        ExpectText(Combine(row.base, row.relative, row.flags), S_OK, row.url);
    }
}

#ifndef _WIN32 // by RFC 3986, 5.4, where Wine is older or leaves segments behind
TEST(ShellUrls, ReferencesCombineAsTheStandardShows)
{
    struct
    {
        WCHAR const * relative;
        WCHAR const * url;
    } const rows[] = {
        {TEXT(""), TEXT("http://a/b/c/d;p?q")},
        {TEXT("."), TEXT("http://a/b/c/")},
        {TEXT("./"), TEXT("http://a/b/c/")},
        {TEXT(".."), TEXT("http://a/b/")},
        {TEXT("../.."), TEXT("http://a/")},
        {TEXT("?y"), TEXT("http://a/b/c/d;p?y")},
        {TEXT("../../../g"), TEXT("http://a/g")},
        {TEXT("../../../../g"), TEXT("http://a/g")},
        {TEXT("/./g"), TEXT("http://a/g")},
        {TEXT("/../g"), TEXT("http://a/g")},
        {TEXT("./g/."), TEXT("http://a/b/c/g/")},
        {TEXT("g/./h"), TEXT("http://a/b/c/g/h")},
        {TEXT("g;x=1/../y"), TEXT("http://a/b/c/y")},
        {TEXT("g?y/../x"), TEXT("http://a/b/c/g?y/../x")},
        {TEXT("g#s/../x"), TEXT("http://a/b/c/g#s/../x")},
    };
    for (auto const & row : rows)
    {
        ExpectText(Combine(TEXT("http://a/b/c/d;p?q"), row.relative, 0), S_OK, row.url);
    }
    ExpectText(Combine(TEXT("file:///c:/a/b"), TEXT("../../../g"), 0), S_OK, TEXT("file:///c:/g"));
}

TEST(ShellUrls, APathBesideTheFileSchemeStaysThatPath)
{
    // Wine puts slashes behind some of these, and forgets some inside.
    for (WString const path :
         {TEXT("a\\b"), TEXT("c:"), TEXT("c:a"), TEXT("\\a"), TEXT("\\\\s"), TEXT("\\\\s\\h\\f"), TEXT("\\\\?\\c:\\a")})
    {
        WCHAR url[64];
        DWORD length = 64;
        ASSERT_EQ(UrlCombineW(TEXT("file:"), path.c_str(), url, &length, URL_DONT_SIMPLIFY), S_OK);
        ExpectText(FromUrl(url), S_OK, path);
    }
}
#endif

TEST(ShellUrls, ArgumentsAreChecked)
{
    WCHAR buffer[8];
    DWORD length = 8;
    EXPECT_EQ(UrlCreateFromPathW(TEXT("a"), nullptr, &length, 0), E_INVALIDARG);
    EXPECT_EQ(UrlCreateFromPathW(TEXT("a"), buffer, nullptr, 0), E_INVALIDARG);
    EXPECT_EQ(PathCreateFromUrlW(nullptr, buffer, &length, 0), E_INVALIDARG);
    EXPECT_EQ(PathCreateFromUrlW(TEXT("file:a"), nullptr, &length, 0), E_INVALIDARG);
    EXPECT_EQ(PathCreateFromUrlW(TEXT("file:a"), buffer, nullptr, 0), E_INVALIDARG);
    EXPECT_EQ(UrlCombineW(nullptr, TEXT("a"), buffer, &length, 0), E_INVALIDARG);
    EXPECT_EQ(UrlCombineW(TEXT("file:"), nullptr, buffer, &length, 0), E_INVALIDARG);
    EXPECT_EQ(UrlCombineW(TEXT("file:"), TEXT("a"), buffer, nullptr, 0), E_INVALIDARG);
    EXPECT_EQ(length, 8u);

    DWORD none = 0;
    EXPECT_EQ(UrlCreateFromPathW(TEXT("c:\\a"), buffer, &none, 0), E_INVALIDARG);
    EXPECT_EQ(PathCreateFromUrlW(TEXT("file:a"), buffer, &none, 0), E_INVALIDARG);
    EXPECT_EQ(none, 0u);
    EXPECT_EQ(UrlCombineW(TEXT("file:"), TEXT("a"), buffer, &none, URL_DONT_SIMPLIFY), E_POINTER);
    EXPECT_EQ(none, 7u);
}

#ifndef _WIN32 // Wine damages its own heap on such texts
TEST(ShellUrls, RandomTextsNeverLeaveTheirBuffersAndAskForTheRoomTheyNeed)
{
    RandomPaths random;
    for (int i = 0; i < 10000; i++)
    {
        WString const text = random.Next(30);
        WString const base = i % 2 == 0 ? WString(TEXT("file:")) : random.Next(20);
        for (Function const & function :
             {ToUrl(text), FromUrl(TEXT("file:") + text), Combine(base, text, URL_DONT_SIMPLIFY),
              Combine(base, text, 0)})
        {
            DWORD const room = 1 + random.Number() % 40;
            GuardedBuffer buffer(room);
            DWORD length = room;
            HRESULT const result = function(buffer.Data(), &length);
            buffer.ExpectNothingBehind();
            if (result == E_POINTER)
            {
                ASSERT_GT(length, room) << ::testing::PrintToString(text);
                GuardedBuffer larger(length);
                DWORD largerLength = length;
                ASSERT_TRUE(SUCCEEDED(function(larger.Data(), &largerLength))) << ::testing::PrintToString(text);
                larger.ExpectNothingBehind();
            }
            else if (SUCCEEDED(result) && !buffer.IsUntouched())
            {
                ASSERT_LT(length, room) << ::testing::PrintToString(text);
            }
        }
    }
}
#endif

} // namespace
