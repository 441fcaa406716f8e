#include <cerrno>

#include <gtest/gtest.h>

#include <kvcore/core/String.h>
#include <kvcore/platform/win32.h>

namespace
{

struct Parts
{
    WCHAR const * path;
    WCHAR const * drive;
    WCHAR const * folder;
    WCHAR const * name;
    WCHAR const * extension;
};

TEST(SplitPath, FindsDriveFolderNameAndExtension)
{
    Parts const cases[] = {
        {TEXT("c:\\src\\a.cpp"), TEXT("c:"), TEXT("\\src\\"), TEXT("a"), TEXT(".cpp")},
        {TEXT("a.b.c"), TEXT(""), TEXT(""), TEXT("a.b"), TEXT(".c")},
        {TEXT(".x"), TEXT(""), TEXT(""), TEXT(""), TEXT(".x")},
        {TEXT("dir.x\\f"), TEXT(""), TEXT("dir.x\\"), TEXT("f"), TEXT("")},
        {TEXT("c:f"), TEXT("c:"), TEXT(""), TEXT("f"), TEXT("")},
        {TEXT(""), TEXT(""), TEXT(""), TEXT(""), TEXT("")},
        {TEXT("a/b.c/d.e"), TEXT(""), TEXT("a/b.c/"), TEXT("d"), TEXT(".e")},
        {TEXT("\\\\srv\\sh\\f.t"), TEXT(""), TEXT("\\\\srv\\sh\\"), TEXT("f"), TEXT(".t")},
        {TEXT("cc:\\f.x"), TEXT(""), TEXT("cc:\\"), TEXT("f"), TEXT(".x")},
        {TEXT("x."), TEXT(""), TEXT(""), TEXT("x"), TEXT(".")},
        {TEXT("c:"), TEXT("c:"), TEXT(""), TEXT(""), TEXT("")},
        {TEXT("c:\\"), TEXT("c:"), TEXT("\\"), TEXT(""), TEXT("")},
        {TEXT(".."), TEXT(""), TEXT(""), TEXT("."), TEXT(".")},
        {TEXT("a..b"), TEXT(""), TEXT(""), TEXT("a."), TEXT(".b")},
    };
    for (Parts const & parts : cases)
    {
        WCHAR drive[20];
        WCHAR folder[20];
        WCHAR name[20];
        WCHAR extension[20];
        EXPECT_EQ(_wsplitpath_s(parts.path, drive, 20, folder, 20, name, 20, extension, 20), 0);
        EXPECT_EQ(WString(drive), parts.drive) << String(parts.path).Utf8();
        EXPECT_EQ(WString(folder), parts.folder) << String(parts.path).Utf8();
        EXPECT_EQ(WString(name), parts.name) << String(parts.path).Utf8();
        EXPECT_EQ(WString(extension), parts.extension) << String(parts.path).Utf8();
    }
}

TEST(SplitPath, LeavesOutWhatIsNotWanted)
{
    WCHAR name[4];
    EXPECT_EQ(_wsplitpath_s(TEXT("c:\\x\\abc.def"), nullptr, 0, nullptr, 0, name, 4, nullptr, 0), 0);
    EXPECT_EQ(WString(name), TEXT("abc"));
}

TEST(SplitPath, EmptiesEverythingIfAPartDoesNotFit)
{
    WCHAR name[4] = TEXT("zzz");
    WCHAR extension[4] = TEXT("zzz");
    EXPECT_EQ(_wsplitpath_s(TEXT("abcd.x"), nullptr, 0, nullptr, 0, name, 4, extension, 4), ERANGE);
    EXPECT_EQ(name[0], 0);
    EXPECT_EQ(extension[0], 0);
    EXPECT_EQ(_wsplitpath_s(TEXT("abc.xyz"), nullptr, 0, nullptr, 0, name, 4, extension, 4), ERANGE);
    EXPECT_EQ(name[0], 0);
}

TEST(SplitPath, RefusesBuffersAtOddsWithTheirCapacity)
{
    WCHAR name[4];
    EXPECT_EQ(_wsplitpath_s(TEXT("abc.x"), nullptr, 0, nullptr, 0, name, 4, nullptr, 4), EINVAL);
    EXPECT_EQ(_wsplitpath_s(TEXT("abc.x"), nullptr, 0, nullptr, 0, name, 0, nullptr, 0), EINVAL);
    EXPECT_EQ(_wsplitpath_s(nullptr, nullptr, 0, nullptr, 0, name, 4, nullptr, 0), EINVAL);
}

} // namespace
