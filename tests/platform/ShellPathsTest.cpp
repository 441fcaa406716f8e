#include <kvcore/platform/ShellNames.h>
#include <kvcore/platform/win32.h>

#include <support/GuardedBuffer.h>

using kv::test::GuardedBuffer;
using kv::test::RandomPaths;

namespace
{

constexpr DWORD before = 77; // no call sets it

TEST(ShellPaths, StripToTheRoot)
{
    struct
    {
        WCHAR const * path;
        int hasRoot;
        WCHAR const * left;
    } const rows[] = {
        {TEXT(""), 0, TEXT("")},
        {TEXT("c"), 0, TEXT("")},
        {TEXT("c:"), 0, TEXT("c:")},
        {TEXT("c:\\"), 1, TEXT("c:\\")},
        {TEXT("c:/"), 0, TEXT("c:")},
        {TEXT("c:\\a"), 1, TEXT("c:\\")},
        {TEXT("c:\\a\\b"), 1, TEXT("c:\\")},
        {TEXT("c:\\a\\\\b"), 1, TEXT("c:\\")},
        {TEXT("c:\\\\a"), 1, TEXT("c:\\")},
        {TEXT("c:a"), 0, TEXT("c:")},
        {TEXT("c:a\\b"), 0, TEXT("c:")},
        {TEXT("\\"), 1, TEXT("\\")},
        {TEXT("\\a\\b"), 1, TEXT("\\")},
        {TEXT("\\\\"), 1, TEXT("\\\\")},
        {TEXT("\\\\s"), 1, TEXT("\\\\s")},
        {TEXT("\\\\s\\"), 1, TEXT("\\\\s\\")},
        {TEXT("\\\\s\\h"), 1, TEXT("\\\\s\\h")},
        {TEXT("\\\\s\\h\\"), 1, TEXT("\\\\s\\h")},
        {TEXT("\\\\s\\h\\f\\g"), 1, TEXT("\\\\s\\h")},
        {TEXT("\\\\\\s\\h"), 1, TEXT("\\\\\\s")},
        {TEXT("\\\\s\\\\h\\f"), 1, TEXT("\\\\s\\")},
        {TEXT("a"), 0, TEXT("")},
        {TEXT("a\\b"), 0, TEXT("")},
        {TEXT("a/b"), 0, TEXT("")},
        {TEXT("/a"), 0, TEXT("")},
        {TEXT("//s/h"), 0, TEXT("")},
        {TEXT("..\\a"), 0, TEXT("")},
        {TEXT("\\\\?\\c:"), 1, TEXT("\\\\?\\c:")},
        {TEXT("\\\\?\\c:\\a"), 0, TEXT("\\\\?\\c:\\")},
        {TEXT("\\\\?\\UNC\\s\\h"), 1, TEXT("\\\\?\\UNC")},
        {TEXT("\\\\.\\c:"), 1, TEXT("\\\\.\\c:")},
        {TEXT("1:\\a"), 1, TEXT("1:\\")},
        {TEXT("\u00E4:\\a"), 1, TEXT("\u00E4:\\")},
        {TEXT(":\\"), 0, TEXT(":\\")},
        {TEXT(":"), 0, TEXT(":")},
        {TEXT("cc:\\a"), 0, TEXT("cc:\\")},
        {TEXT("a::b"), 0, TEXT("a:")},
        {TEXT("a::"), 0, TEXT("a:")},
        {TEXT("http://a/b"), 0, TEXT("http:")},
        {TEXT("\"c:\\a b\""), 0, TEXT("\"c:\\")},
    };
    for (auto const & row : rows)
    {
        GuardedBuffer buffer(WString(row.path));
        SetLastError(before);
        EXPECT_EQ(PathStripToRootW(buffer.Data()) != 0, row.hasRoot != 0)
            << ::testing::PrintToString(WString(row.path));
        EXPECT_EQ(buffer.Text(), WString(row.left)) << ::testing::PrintToString(WString(row.path));
        EXPECT_EQ(GetLastError(), before);
        buffer.ExpectNothingBehind();
    }
    EXPECT_FALSE(PathStripToRootW(nullptr));
}

TEST(ShellPaths, PartsAndKinds)
{
    struct
    {
        WCHAR const * path;
        int isRoot;
        int isRelative;
        int isUrl;
        int name;
        int extension;
    } const rows[] = {
        {TEXT(""), 0, 1, 0, 0, 0},
        {TEXT("c"), 0, 1, 0, 0, 1},
        {TEXT("c:"), 0, 0, 0, 0, 2},
        {TEXT("c:\\"), 1, 0, 0, 0, 3},
        {TEXT("c:/"), 0, 0, 0, 0, 3},
        {TEXT("c:\\a"), 0, 0, 0, 3, 4},
        {TEXT("c:\\a\\"), 0, 0, 0, 3, 5},
        {TEXT("c:\\a\\b"), 0, 0, 0, 5, 6},
        {TEXT("c:a"), 0, 0, 0, 2, 3},
        {TEXT("c:a\\b"), 0, 0, 0, 4, 5},
        {TEXT("\\"), 1, 0, 0, 0, 1},
        {TEXT("\\a"), 0, 0, 0, 1, 2},
        {TEXT("\\\\"), 1, 0, 0, 0, 2},
        {TEXT("\\\\s"), 1, 0, 0, 2, 3},
        {TEXT("\\\\s\\h"), 1, 0, 0, 4, 5},
        {TEXT("\\\\s\\h\\"), 0, 0, 0, 4, 6},
        {TEXT("\\\\s\\h\\f"), 0, 0, 0, 6, 7},
        {TEXT("\\\\\\s\\h"), 0, 0, 0, 5, 6},
        {TEXT("a"), 0, 1, 0, 0, 1},
        {TEXT("a\\b"), 0, 1, 0, 2, 3},
        {TEXT("a\\"), 0, 1, 0, 0, 2},
        {TEXT("a/b"), 0, 1, 0, 2, 3},
        {TEXT("/"), 0, 1, 0, 0, 1},
        {TEXT("//s/h"), 0, 1, 0, 4, 5},
        {TEXT("."), 0, 1, 0, 0, 0},
        {TEXT(".."), 0, 1, 0, 0, 1},
        {TEXT("..\\a"), 0, 1, 0, 3, 4},
        {TEXT("c:\\a\\.."), 0, 0, 0, 5, 6},
        {TEXT("\\\\?\\c:\\a"), 0, 0, 0, 7, 8},
        {TEXT("\\\\.\\c:"), 1, 0, 0, 4, 6},
        {TEXT("1:\\a"), 0, 0, 0, 3, 4},
        {TEXT(":\\"), 0, 1, 0, 0, 2},
        {TEXT(":"), 0, 1, 0, 0, 1},
        {TEXT("cc:\\a"), 0, 1, 1, 4, 5},
        {TEXT("http://a/b"), 0, 1, 1, 9, 10},
        {TEXT("c:\\a.b"), 0, 0, 0, 3, 4},
        {TEXT("c:\\a.b\\c"), 0, 0, 0, 7, 8},
        {TEXT("a.txt"), 0, 1, 0, 0, 1},
        {TEXT(".txt"), 0, 1, 0, 0, 0},
        {TEXT("a."), 0, 1, 0, 0, 1},
        {TEXT("a.b.c"), 0, 1, 0, 0, 3},
        {TEXT("a. b"), 0, 1, 0, 0, 4},
        {TEXT("a b.c"), 0, 1, 0, 0, 3},
        {TEXT("c:\\a b.c"), 0, 0, 0, 3, 6},
        {TEXT("c:\\a.b c"), 0, 0, 0, 3, 8},
        {TEXT("..."), 0, 1, 0, 0, 2},
        {TEXT("c:\\*.*"), 0, 0, 0, 3, 4},
    };
    for (auto const & row : rows)
    {
        WCHAR const * const path = row.path;
        EXPECT_EQ(PathIsRootW(path) != 0, row.isRoot != 0) << ::testing::PrintToString(WString(row.path));
        EXPECT_EQ(PathIsRelativeW(path) != 0, row.isRelative != 0) << ::testing::PrintToString(WString(row.path));
        EXPECT_EQ(PathIsURLW(path) != 0, row.isUrl != 0) << ::testing::PrintToString(WString(row.path));
        EXPECT_EQ(PathFindFileNameW(path) - path, row.name) << ::testing::PrintToString(WString(row.path));
        EXPECT_EQ(PathFindExtensionW(path) - path, row.extension) << ::testing::PrintToString(WString(row.path));
    }
    EXPECT_FALSE(PathIsRootW(nullptr));
    EXPECT_TRUE(PathIsRelativeW(nullptr));
    EXPECT_FALSE(PathIsURLW(nullptr));
    EXPECT_EQ(PathFindFileNameW(nullptr), nullptr);
    EXPECT_EQ(PathFindExtensionW(nullptr), nullptr);
}

TEST(ShellPaths, MasksMatchWholeNames)
{
    struct
    {
        WCHAR const * name;
        WCHAR const * masks;
        int matches;
    } const rows[] = {
        {TEXT(""), TEXT(""), 0},
        {TEXT(""), TEXT("*.*"), 1},
        {TEXT(""), TEXT("*.txt"), 0},
        {TEXT(""), TEXT("a*"), 0},
        {TEXT(""), TEXT("?"), 0},
        {TEXT(""), TEXT("*.c"), 0},
        {TEXT(""), TEXT("*."), 0},
        {TEXT(""), TEXT("a.txt;b"), 0},
        {TEXT(""), TEXT("*.doc;*.txt"), 0},
        {TEXT(""), TEXT(";*.txt"), 1},
        {TEXT(""), TEXT("*.txt;"), 0},
        {TEXT(""), TEXT("*.txt "), 0},
        {TEXT(""), TEXT("**"), 1},
        {TEXT(""), TEXT("?*"), 0},
        {TEXT(""), TEXT("*.t?t"), 0},
        {TEXT(""), TEXT("*a*"), 0},
        {TEXT(""), TEXT("*\\*"), 0},
        {TEXT(""), TEXT("*b*c"), 0},
        {TEXT(""), TEXT("\"*.txt\""), 0},
        {TEXT("a"), TEXT(""), 0},
        {TEXT("a"), TEXT("*"), 1},
        {TEXT("a"), TEXT("*.txt"), 0},
        {TEXT("a"), TEXT("*.TXT"), 0},
        {TEXT("a"), TEXT("?"), 1},
        {TEXT("a"), TEXT("???.txt"), 0},
        {TEXT("a"), TEXT("*."), 0},
        {TEXT("a"), TEXT("a?txt"), 0},
        {TEXT("a"), TEXT("*.doc;*.txt"), 0},
        {TEXT("a"), TEXT("*.doc; *.txt"), 0},
        {TEXT("a"), TEXT("*.txt;"), 0},
        {TEXT("a"), TEXT(" *.txt"), 0},
        {TEXT("a"), TEXT("**"), 1},
        {TEXT("a"), TEXT("*?"), 1},
        {TEXT("a"), TEXT("*.t?t"), 0},
        {TEXT("a"), TEXT("d*"), 0},
        {TEXT("a"), TEXT("*\\*"), 0},
        {TEXT("a"), TEXT("a.*"), 0},
        {TEXT("a"), TEXT("\"*.txt\""), 0},
        {TEXT("a"), TEXT("*.b.*"), 0},
        {TEXT("a.txt"), TEXT("*"), 1},
        {TEXT("a.txt"), TEXT("*.*"), 1},
        {TEXT("a.txt"), TEXT("*.TXT"), 1},
        {TEXT("a.txt"), TEXT("a*"), 1},
        {TEXT("a.txt"), TEXT("???.txt"), 0},
        {TEXT("a.txt"), TEXT("*.c"), 0},
        {TEXT("a.txt"), TEXT("a?txt"), 1},
        {TEXT("a.txt"), TEXT("a.txt;b"), 1},
        {TEXT("a.txt"), TEXT("*.doc; *.txt"), 1},
        {TEXT("a.txt"), TEXT(";*.txt"), 1},
        {TEXT("a.txt"), TEXT(" *.txt"), 1},
        {TEXT("a.txt"), TEXT("*.txt "), 0},
        {TEXT("a.txt"), TEXT("*?"), 1},
        {TEXT("a.txt"), TEXT("?*"), 1},
        {TEXT("a.txt"), TEXT("d*"), 0},
        {TEXT("a.txt"), TEXT("*a*"), 1},
        {TEXT("a.txt"), TEXT("a.*"), 1},
        {TEXT("a.txt"), TEXT("*b*c"), 0},
        {TEXT("a.txt"), TEXT("*.b.*"), 0},
        {TEXT("a.b.c"), TEXT(""), 0},
        {TEXT("a.b.c"), TEXT("*.*"), 1},
        {TEXT("a.b.c"), TEXT("*.txt"), 0},
        {TEXT("a.b.c"), TEXT("a*"), 1},
        {TEXT("a.b.c"), TEXT("?"), 0},
        {TEXT("a.b.c"), TEXT("*.c"), 1},
        {TEXT("a.b.c"), TEXT("*."), 0},
        {TEXT("a.b.c"), TEXT("a.txt;b"), 0},
        {TEXT("a.b.c"), TEXT("*.doc;*.txt"), 0},
        {TEXT("a.b.c"), TEXT(";*.txt"), 0},
        {TEXT("a.b.c"), TEXT("*.txt;"), 0},
        {TEXT("a.b.c"), TEXT("*.txt "), 0},
        {TEXT("a.b.c"), TEXT("**"), 1},
        {TEXT("a.b.c"), TEXT("?*"), 1},
        {TEXT("a.b.c"), TEXT("*.t?t"), 0},
        {TEXT("a.b.c"), TEXT("*a*"), 1},
        {TEXT("a.b.c"), TEXT("*\\*"), 0},
        {TEXT("a.b.c"), TEXT("*b*c"), 1},
        {TEXT("a.b.c"), TEXT("\"*.txt\""), 0},
        {TEXT("dir\\a.txt"), TEXT(""), 0},
        {TEXT("dir\\a.txt"), TEXT("*"), 1},
        {TEXT("dir\\a.txt"), TEXT("*.txt"), 1},
        {TEXT("dir\\a.txt"), TEXT("*.TXT"), 1},
        {TEXT("dir\\a.txt"), TEXT("?"), 0},
        {TEXT("dir\\a.txt"), TEXT("???.txt"), 0},
        {TEXT("dir\\a.txt"), TEXT("*."), 0},
        {TEXT("dir\\a.txt"), TEXT("a?txt"), 0},
        {TEXT("dir\\a.txt"), TEXT("*.doc;*.txt"), 1},
        {TEXT("dir\\a.txt"), TEXT("*.doc; *.txt"), 1},
        {TEXT("dir\\a.txt"), TEXT("*.txt;"), 1},
        {TEXT("dir\\a.txt"), TEXT(" *.txt"), 1},
        {TEXT("dir\\a.txt"), TEXT("**"), 1},
        {TEXT("dir\\a.txt"), TEXT("*?"), 1},
        {TEXT("dir\\a.txt"), TEXT("*.t?t"), 1},
        {TEXT("dir\\a.txt"), TEXT("d*"), 1},
        {TEXT("dir\\a.txt"), TEXT("*\\*"), 1},
        {TEXT("dir\\a.txt"), TEXT("a.*"), 0},
        {TEXT("dir\\a.txt"), TEXT("\"*.txt\""), 0},
        {TEXT("dir\\a.txt"), TEXT("*.b.*"), 0},
        {TEXT("a."), TEXT("*"), 1},
        {TEXT("a."), TEXT("*.*"), 1},
        {TEXT("a."), TEXT("*.TXT"), 0},
        {TEXT("a."), TEXT("a*"), 1},
        {TEXT("a."), TEXT("???.txt"), 0},
        {TEXT("a."), TEXT("*.c"), 0},
        {TEXT("a."), TEXT("a?txt"), 0},
        {TEXT("a."), TEXT("a.txt;b"), 0},
        {TEXT("a."), TEXT("*.doc; *.txt"), 0},
        {TEXT("a."), TEXT(";*.txt"), 0},
        {TEXT("a."), TEXT(" *.txt"), 0},
        {TEXT("a."), TEXT("*.txt "), 0},
        {TEXT("a."), TEXT("*?"), 1},
        {TEXT("a."), TEXT("?*"), 1},
        {TEXT("a."), TEXT("d*"), 0},
        {TEXT("a."), TEXT("*a*"), 1},
        {TEXT("a."), TEXT("a.*"), 1},
        {TEXT("a."), TEXT("*b*c"), 0},
        {TEXT("a."), TEXT("*.b.*"), 0},
        {TEXT("a.txt"), TEXT("*.doc;*.*"), 1},
        {TEXT(""), TEXT("*.*;x"), 0},
        {TEXT("a"), TEXT("*.*;x"), 0},
        {TEXT(""), TEXT(";"), 1},
        {TEXT("a"), TEXT("a;"), 1},
        {TEXT("a"), TEXT("x; a"), 1},
        {TEXT("a"), TEXT("a b"), 0},
        {TEXT(""), TEXT("x; "), 1},
        {TEXT("a"), TEXT("?a"), 0},
        {TEXT("a."), TEXT("a"), 0},
        {TEXT("a"), TEXT("a."), 0},
        {TEXT("a b"), TEXT("a b"), 1},
        {TEXT("A"), TEXT("\u0061"), 1},
        {TEXT("\u00E4"), TEXT("\u00C4"), 1},
        {TEXT("\u0430"), TEXT("\u0410"), 1},
        {TEXT("a;b"), TEXT("a;b"), 0},
    };
    for (auto const & row : rows)
    {
        EXPECT_EQ(PathMatchSpecW(row.name, row.masks) != 0, row.matches != 0)
            << ::testing::PrintToString(WString(row.name)) << ' ' << ::testing::PrintToString(WString(row.masks));
    }
}

TEST(ShellPaths, ManyAsterisksTakeNoLongTime)
{
    WString const name(3000, TEXT('a'));
    WString masks;
    for (int i = 0; i < 20; i++)
    {
        masks += TEXT("*a");
    }
    EXPECT_TRUE(PathMatchSpecW(name.c_str(), masks.c_str()));
}

TEST(ShellPaths, CompactPathsKeepTheName)
{
    struct
    {
        WCHAR const * path;
        UINT capacity;
        WCHAR const * compact;
    } const rows[] = {
        {TEXT(""), 1, TEXT("")},
        {TEXT(""), 2, TEXT("")},
        {TEXT(""), 3, TEXT("")},
        {TEXT("abcdefghij"), 1, TEXT("")},
        {TEXT("abcdefghij"), 2, TEXT(".")},
        {TEXT("abcdefghij"), 3, TEXT("..")},
        {TEXT("abcdefghij"), 4, TEXT("...")},
        {TEXT("abcdefghij"), 5, TEXT("a...")},
        {TEXT("abcdefghij"), 6, TEXT("ab...")},
        {TEXT("abcdefghij"), 7, TEXT("abc...")},
        {TEXT("abcdefghij"), 8, TEXT("abcd...")},
        {TEXT("abcdefghij"), 9, TEXT("abcde...")},
        {TEXT("abcdefghij"), 10, TEXT("abcdef...")},
        {TEXT("a\\b"), 1, TEXT("")},
        {TEXT("a\\b"), 2, TEXT(".")},
        {TEXT("a\\b"), 3, TEXT("..")},
        {TEXT("a\\b"), 5, TEXT("a\\b")},
        {TEXT("a\\b"), 6, TEXT("a\\b")},
        {TEXT("c:\\abcdef\\ghijkl"), 1, TEXT("")},
        {TEXT("c:\\abcdef\\ghijkl"), 2, TEXT(".")},
        {TEXT("c:\\abcdef\\ghijkl"), 3, TEXT("..")},
        {TEXT("c:\\abcdef\\ghijkl"), 4, TEXT("...")},
        {TEXT("c:\\abcdef\\ghijkl"), 5, TEXT("...\\")},
        {TEXT("c:\\abcdef\\ghijkl"), 6, TEXT("...\\.")},
        {TEXT("c:\\abcdef\\ghijkl"), 7, TEXT("...\\..")},
        {TEXT("c:\\abcdef\\ghijkl"), 8, TEXT("...\\...")},
        {TEXT("c:\\abcdef\\ghijkl"), 9, TEXT("...\\g...")},
        {TEXT("c:\\abcdef\\ghijkl"), 10, TEXT("...\\gh...")},
        {TEXT("c:\\abcdef\\ghijkl"), 11, TEXT("...\\ghijkl")},
        {TEXT("c:\\abcdef\\ghijkl"), 15, TEXT("c:\\a...\\ghijkl")},
        {TEXT("c:\\abcdef\\ghijkl"), 16, TEXT("c:\\ab...\\ghijkl")},
        {TEXT("c:\\dir\\abcdefghijklmnop.txt"), 1, TEXT("")},
        {TEXT("c:\\dir\\abcdefghijklmnop.txt"), 2, TEXT(".")},
        {TEXT("c:\\dir\\abcdefghijklmnop.txt"), 3, TEXT("..")},
        {TEXT("c:\\dir\\abcdefghijklmnop.txt"), 4, TEXT("...")},
        {TEXT("c:\\dir\\abcdefghijklmnop.txt"), 5, TEXT("...\\")},
        {TEXT("c:\\dir\\abcdefghijklmnop.txt"), 6, TEXT("...\\.")},
        {TEXT("c:\\dir\\abcdefghijklmnop.txt"), 7, TEXT("...\\..")},
        {TEXT("c:\\dir\\abcdefghijklmnop.txt"), 8, TEXT("...\\...")},
        {TEXT("c:\\dir\\abcdefghijklmnop.txt"), 9, TEXT("...\\a...")},
        {TEXT("c:\\dir\\abcdefghijklmnop.txt"), 10, TEXT("...\\ab...")},
        {TEXT("c:\\dir\\abcdefghijklmnop.txt"), 11, TEXT("...\\abc...")},
        {TEXT("c:\\dir\\abcdefghijklmnop.txt"), 15, TEXT("...\\abcdefg...")},
        {TEXT("c:\\dir\\abcdefghijklmnop.txt"), 16, TEXT("...\\abcdefgh...")},
        {TEXT("c:\\dir\\abcdefghijklmnop.txt"), 17, TEXT("...\\abcdefghi...")},
        {TEXT("c:\\dir\\abcdefghijklmnop.txt"), 20, TEXT("...\\abcdefghijkl...")},
        {TEXT("c:\\dir\\abcdefghijklmnop.txt"), 25, TEXT("...\\abcdefghijklmnop.txt")},
        {TEXT("c:\\dir\\abcdefghijklmnop.txt"), 30, TEXT("c:\\dir\\abcdefghijklmnop.txt")},
        {TEXT("abcdef\\"), 1, TEXT("")},
        {TEXT("abcdef\\"), 2, TEXT(".")},
        {TEXT("abcdef\\"), 3, TEXT("..")},
        {TEXT("abcdef\\"), 4, TEXT("...")},
        {TEXT("abcdef\\"), 5, TEXT("a...")},
        {TEXT("abcdef\\"), 6, TEXT("ab...")},
        {TEXT("abcdef\\"), 7, TEXT("abc...")},
        {TEXT("abcdef\\"), 9, TEXT("abcdef\\")},
        {TEXT("abcdef\\"), 10, TEXT("abcdef\\")},
        {TEXT("c:\\a\\"), 1, TEXT("")},
        {TEXT("c:\\a\\"), 2, TEXT(".")},
        {TEXT("c:\\a\\"), 3, TEXT("..")},
        {TEXT("c:\\a\\"), 4, TEXT("...")},
        {TEXT("c:\\a\\"), 5, TEXT("...\\")},
        {TEXT("c:\\a\\"), 7, TEXT("c:\\a\\")},
        {TEXT("c:\\a\\"), 8, TEXT("c:\\a\\")},
        {TEXT("\\\\s\\h\\file"), 1, TEXT("")},
        {TEXT("\\\\s\\h\\file"), 2, TEXT(".")},
        {TEXT("\\\\s\\h\\file"), 3, TEXT("..")},
        {TEXT("\\\\s\\h\\file"), 4, TEXT("...")},
        {TEXT("\\\\s\\h\\file"), 5, TEXT("...\\")},
        {TEXT("\\\\s\\h\\file"), 6, TEXT("...\\.")},
        {TEXT("\\\\s\\h\\file"), 7, TEXT("...\\..")},
        {TEXT("\\\\s\\h\\file"), 8, TEXT("...\\...")},
        {TEXT("\\\\s\\h\\file"), 9, TEXT("...\\file")},
        {TEXT("\\\\s\\h\\file"), 10, TEXT("\\...\\file")},
        {TEXT("http://a/b/c"), 1, TEXT("")},
        {TEXT("http://a/b/c"), 2, TEXT(".")},
        {TEXT("http://a/b/c"), 3, TEXT("..")},
        {TEXT("http://a/b/c"), 4, TEXT("...")},
        {TEXT("http://a/b/c"), 5, TEXT(".../")},
        {TEXT("http://a/b/c"), 6, TEXT(".../c")},
        {TEXT("http://a/b/c"), 7, TEXT("h.../c")},
        {TEXT("http://a/b/c"), 8, TEXT("ht.../c")},
        {TEXT("http://a/b/c"), 9, TEXT("htt.../c")},
        {TEXT("http://a/b/c"), 10, TEXT("http.../c")},
        {TEXT("http://a/b/c"), 11, TEXT("http:.../c")},
        {TEXT("http://a/b/c"), 15, TEXT("http://a/b/c")},
        {TEXT("a\\b/c"), 1, TEXT("")},
        {TEXT("a\\b/c"), 2, TEXT(".")},
        {TEXT("a\\b/c"), 3, TEXT("..")},
        {TEXT("a\\b/c"), 4, TEXT("...")},
        {TEXT("a\\b/c"), 5, TEXT(".../")},
        {TEXT("a\\b/c"), 7, TEXT("a\\b/c")},
        {TEXT("a\\b/c"), 8, TEXT("a\\b/c")},
    };
    for (auto const & row : rows)
    {
        GuardedBuffer buffer(row.capacity);
        EXPECT_TRUE(PathCompactPathExW(buffer.Data(), row.path, row.capacity, 0));
        EXPECT_EQ(buffer.Text(), WString(row.compact))
            << ::testing::PrintToString(WString(row.path)) << ' ' << row.capacity;
        buffer.ExpectNothingBehind();
    }
    WCHAR buffer[9];
    EXPECT_FALSE(PathCompactPathExW(nullptr, TEXT("a"), 9, 0));
    EXPECT_FALSE(PathCompactPathExW(buffer, nullptr, 9, 0));
}

#ifndef _WIN32 // by the published contract; Wine needs room for one element more, and writes into no room at all
TEST(ShellPaths, APathThatJustFitsIsNotCompacted)
{
    for (WString const path : {TEXT("a"), TEXT("abc"), TEXT("a\\b"), TEXT("c:\\dir\\name.txt")})
    {
        GuardedBuffer buffer(path.size() + 1);
        EXPECT_TRUE(PathCompactPathExW(buffer.Data(), path.c_str(), static_cast<UINT>(path.size() + 1), 0));
        EXPECT_EQ(buffer.Text(), path);
        buffer.ExpectNothingBehind();
    }
    GuardedBuffer empty(0);
    EXPECT_FALSE(PathCompactPathExW(empty.Data(), TEXT("a"), 0, 0));
    EXPECT_TRUE(empty.IsUntouched());
}
#endif

struct CleanCase
{
    WString directory; ///< Empty for none.
    WString name;
    unsigned result;
    WString clean;
};

TEST(ShellPaths, CleanNamesHoldWhatAFileNameCan)
{
    using namespace kv::platform;
    WString const x(300, TEXT('x'));
    CleanCase const rows[] = {
        {{}, {}, 0, {}},
        {{}, TEXT("a b.txt"), 0, TEXT("a b.txt")},
        {{}, TEXT(" a . "), 0, TEXT(" a . ")},
        {TEXT("c:\\x"), TEXT("con"), 0, TEXT("con")},
        {TEXT("c:\\x"), TEXT(".."), 0, TEXT("..")},
        {{}, TEXT("a;b,c+d=e[f]~'%"), 0, TEXT("a;b,c+d=e[f]~'%")},
        {{}, TEXT("\u00E4\u20AC\xD83D"), 0, TEXT("\u00E4\u20AC\xD83D")},
        {{}, TEXT("a\"b*c/d:e<f>g?h\\i|j"), cleanupReplaced, TEXT("a-b-c-d-e-f-g-h-i-j")},
        {TEXT("rel"), TEXT("c:\\a"), cleanupReplaced, TEXT("c--a")},
        {{}, x.substr(0, 259), 0, x.substr(0, 259)},
        {TEXT("c:\\x"), x.substr(0, 255), 0, x.substr(0, 255)},
        {TEXT("c:\\x"), x.substr(0, 256), cleanupFatal | cleanupPathTooLong, x.substr(0, 256)},
        {TEXT("z:\\tmp"), x.substr(0, 255), cleanupFatal | cleanupPathTooLong, x.substr(0, 254)},
        {TEXT("rel"), x.substr(0, 259), cleanupFatal | cleanupPathTooLong, x.substr(0, 257)},
        {x.substr(0, 200), x.substr(0, 255), cleanupFatal | cleanupPathTooLong, x.substr(0, 60)},
        {x.substr(0, 200), TEXT("a"), 0, TEXT("a")},
        {x.substr(0, 263), x.substr(0, 250), 0, x.substr(0, 250)},
        {x.substr(0, 263), TEXT("*"), cleanupReplaced, TEXT("-")},
    };
    for (CleanCase const & row : rows)
    {
        GuardedBuffer buffer(MAX_PATH);
        std::copy_n(row.name.c_str(), row.name.size() + 1, buffer.Data());
        WCHAR const * const directory = row.directory.empty() ? nullptr : row.directory.c_str();
        EXPECT_EQ(CleanupSpec(directory, buffer.Data()), row.result) << ::testing::PrintToString(row.name);
        EXPECT_EQ(buffer.Text(), row.clean);
        buffer.ExpectNothingBehind();
    }
    for (unsigned control = 1; control < 0x20; control++)
    {
        GuardedBuffer name(MAX_PATH);
        name.Data()[0] = static_cast<WCHAR>(control);
        name.Data()[1] = TEXT('\0');
        EXPECT_EQ(CleanupSpec(nullptr, name.Data()), cleanupReplaced) << control;
        EXPECT_EQ(name.Text(), TEXT("-")) << control;
    }
}

TEST(ShellPaths, RandomPathsNeverLeaveTheirBuffers)
{
    RandomPaths random;
    for (int i = 0; i < 20000; i++)
    {
        WString const path = random.Next(40);
        GuardedBuffer root(path);
        PathStripToRootW(root.Data());
        EXPECT_EQ(root.Text(), path.substr(0, root.Text().size()));
        root.ExpectNothingBehind();

        UINT const capacity = 1 + random.Number() % 50;
        GuardedBuffer compact(capacity);
        ASSERT_TRUE(PathCompactPathExW(compact.Data(), path.c_str(), capacity, 0));
        ASSERT_LT(compact.Text().size(), capacity);
        compact.ExpectNothingBehind();

        GuardedBuffer name(MAX_PATH);
        std::copy_n(path.c_str(), path.size() + 1, name.Data());
        kv::platform::CleanupSpec(random.Next(300).c_str(), name.Data());
        ASSERT_LE(name.Text().size(), path.size());
        name.ExpectNothingBehind();

        EXPECT_LE(PathFindFileNameW(path.c_str()), path.c_str() + path.size());
        EXPECT_LE(PathFindExtensionW(path.c_str()), path.c_str() + path.size());
        PathMatchSpecW(path.c_str(), random.Next(20).c_str());
    }
}

} // namespace
