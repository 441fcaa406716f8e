// The rules that are about texts alone: the same everywhere, whatever is on the disk.

#include <stdexcept>

#include <gtest/gtest.h>

#include <kvcore/files/File.h>

namespace
{

/// So that a failure shows texts.
std::string Shown(String const & text)
{
    return text.Utf8();
}

struct OneToOne
{
    WCHAR const * path;
    WCHAR const * expected;
};

template <std::size_t Rows>
void ExpectAll(String (*rule)(String const &), OneToOne const (&rows)[Rows])
{
    for (OneToOne const & row : rows)
    {
        EXPECT_EQ(Shown(rule(row.path)), Shown(row.expected)) << "of " << Shown(row.path);
    }
}

/// The member functions of a path that was opened.
class Opened : public File
{
public:
    explicit Opened(String const & opened)
    {
        path = opened;
    }
    Opened() = default;
};

} // namespace

TEST(PathRules, DriveRoots)
{
    for (WCHAR const * path : {TEXT("c:\\"), TEXT("Z:\\"), TEXT("\u00E4:\\")})
    {
        EXPECT_TRUE(File::IsDriveRoot(path)) << Shown(path);
    }
    for (WCHAR const * path :
         {TEXT(""), TEXT("c"), TEXT("c:"), TEXT("c:/"), TEXT("c:\\x"), TEXT("1:\\"), TEXT("\\\\a"), TEXT("cc\\"),
          TEXT("c\\\\")})
    {
        EXPECT_FALSE(File::IsDriveRoot(path)) << Shown(path);
    }
    EXPECT_TRUE(File::IsDriveRoot(WString(TEXT("c:\\\0x"), 5))) << "what stands behind a terminator does not count";
    EXPECT_FALSE(File::IsDriveRoot(WString(TEXT("c:\0\\"), 4)));
}

TEST(PathRules, AbsolutePaths)
{
    for (WCHAR const * path : {TEXT("c:\\"), TEXT("c:\\x"), TEXT("\\\\"), TEXT("\\\\server"), TEXT("\\\\\\")})
    {
        EXPECT_TRUE(File::IsPathAbsolute(path)) << Shown(path);
    }
    for (WCHAR const * path :
         {TEXT(""), TEXT("\\"), TEXT("\\x"), TEXT("c:"), TEXT("c:x"), TEXT("c:/x"), TEXT("//x"), TEXT("1:\\x"),
          TEXT("x\\y")})
    {
        EXPECT_FALSE(File::IsPathAbsolute(path)) << Shown(path);
    }
}

TEST(PathRules, Dirname)
{
    OneToOne const rows[] = {
        {TEXT(""), TEXT(".")},
        {TEXT("name"), TEXT(".")},
        {TEXT("c:name"), TEXT(".")},
        {TEXT("c:"), TEXT(".")},
        {TEXT("c:/name"), TEXT(".")},
        {TEXT("c:\\"), TEXT("c:\\")},
        {TEXT("c:\\name"), TEXT("c:\\")},
        {TEXT("1:\\name"), TEXT("1:")},
        {TEXT("c:\\a\\b"), TEXT("c:\\a")},
        {TEXT("c:\\a\\"), TEXT("c:\\a")},
        {TEXT("c:\\a\\\\b"), TEXT("c:\\a\\")},
        {TEXT("\\name"), TEXT("")},
        {TEXT("\\"), TEXT("")},
        {TEXT("a\\b"), TEXT("a")},
        {TEXT("ab\\c"), TEXT("ab")},
        {TEXT("\\\\server\\share"), TEXT("\\\\server")},
        {TEXT("a\\b/c"), TEXT("a")},
    };
    ExpectAll(&File::GetDirname, rows);
}

TEST(PathRules, BasenameWithoutSuffix)
{
    struct
    {
        WCHAR const * path;
        WCHAR const * expected;
    } const rows[] = {
        {TEXT(""), TEXT("")},
        {TEXT("name"), TEXT("name")},
        {TEXT("c:name"), TEXT("name")},
        {TEXT("c:"), TEXT("")},
        {TEXT("1:name"), TEXT("1:name")},
        {TEXT("c:\\"), TEXT("\\")},
        {TEXT("c:\\a"), TEXT("a")},
        {TEXT("c:\\a\\"), TEXT("")},
        {TEXT("a\\c:b"), TEXT("c:b")},
        {TEXT("a/b"), TEXT("a/b")},
        {TEXT("\\\\server\\share"), TEXT("share")},
    };
    for (auto const & row : rows)
    {
        EXPECT_EQ(Shown(File::GetBasename(row.path, String())), Shown(row.expected)) << "of " << Shown(row.path);
    }
    EXPECT_TRUE(File::GetBasename(WString(TEXT("\0abc"), 4), TEXT("x")).empty());
}

TEST(PathRules, BasenameCutsTheLengthOfTheSuffixWhateverItIs)
{
    struct
    {
        WCHAR const * path;
        WCHAR const * suffix;
        WCHAR const * expected;
    } const rows[] = {
        {TEXT("a.txt"), TEXT(".txt"), TEXT("a")},          {TEXT("a.txt"), TEXT(".doc"), TEXT("a")},
        {TEXT(".doc"), TEXT(".doc"), TEXT(".doc")},        {TEXT(".txt"), TEXT(".doc"), TEXT("")},
        {TEXT("c:\\d\\.doc"), TEXT(".doc"), TEXT(".doc")}, {TEXT("c:\\d\\a.doc"), TEXT(".doc"), TEXT("a")},
        {TEXT("c:\\"), TEXT("long suffix"), TEXT("\\")},   {TEXT(""), TEXT("long suffix"), TEXT("")},
    };
    for (auto const & row : rows)
    {
        EXPECT_EQ(Shown(File::GetBasename(row.path, row.suffix)), Shown(row.expected)) << "of " << Shown(row.path);
    }
}

TEST(PathRules, BasenameWithALongerSuffixFails)
{
    for (WCHAR const * path : {TEXT("a"), TEXT("c:\\dir\\"), TEXT("c:\\dir\\doc")})
    {
        try
        {
            File::GetBasename(path, TEXT(".doc"));
            ADD_FAILURE() << Shown(path);
        }
        catch (std::length_error const & failure)
        {
            EXPECT_STREQ(failure.what(), "string too long");
        }
    }
}

TEST(PathRules, ExtensionAndTitleAreTheNames)
{
    struct
    {
        WCHAR const * path;
        WCHAR const * extension;
        WCHAR const * title;
    } const rows[] = {
        {TEXT("a.txt"), TEXT(".txt"), TEXT("a")},       {TEXT("a.b.txt"), TEXT(".txt"), TEXT("a.b")},
        {TEXT("c:\\a.b\\c"), TEXT(""), TEXT("c")},      {TEXT("c:\\a.b\\c.d"), TEXT(".d"), TEXT("c")},
        {TEXT(".profile"), TEXT(".profile"), TEXT("")}, {TEXT("name."), TEXT("."), TEXT("name")},
        {TEXT("c:\\"), TEXT(""), TEXT("\\")},           {TEXT(""), TEXT(""), TEXT("")},
    };
    for (auto const & row : rows)
    {
        EXPECT_EQ(Shown(File::GetFileExtension(row.path)), Shown(row.extension)) << "of " << Shown(row.path);
        EXPECT_EQ(Shown(File::GetFileTitleW(row.path)), Shown(row.title)) << "of " << Shown(row.path);
    }
}

TEST(PathRules, PathWithoutExtensionIsCutAtADirectorysDotToo)
{
    OneToOne const rows[] = {
        {TEXT("c:\\a\\b.txt"), TEXT("c:\\a\\b")},
        {TEXT("c:\\a.b\\c"), TEXT("c:\\a")},
        {TEXT("c:\\a\\b"), TEXT("c:\\a\\b")},
        {TEXT(""), TEXT("")},
    };
    ExpectAll(&File::GetFilePathWithoutExtension, rows);
}

TEST(PathRules, CutExtension)
{
    struct
    {
        WCHAR const * path;
        WCHAR const * extension;
        WCHAR const * expected;
    } const rows[] = {
        {TEXT("c:\\a\\b.txt"), TEXT(""), TEXT("c:\\a\\b")},
        {TEXT("c:\\a.b\\c"), TEXT(""), TEXT("c:\\a.b\\c")},
        {TEXT("name"), TEXT(""), TEXT("name")},
        {TEXT("a.txt"), TEXT(".txt"), TEXT("a")},
        {TEXT("a.txt"), TEXT(".doc"), TEXT("a.txt")},
        {TEXT("a.txt.bak"), TEXT(".txt"), TEXT("a")}, // one that stands earlier
        {TEXT("a.txt.txt"), TEXT(".txt"), TEXT("a.txt")},
        {TEXT("c:\\a.txt\\b"), TEXT(".txt"), TEXT("c:\\a.txt\\b")},
        {TEXT("a"), TEXT("longer than it"), TEXT("a")},
        {TEXT(""), TEXT(""), TEXT("")},
    };
    for (auto const & row : rows)
    {
        EXPECT_EQ(Shown(File::CutExtension(row.path, row.extension)), Shown(row.expected)) << Shown(row.path);
    }
}

TEST(PathRules, SwitchExtensionAddsNoDot)
{
    struct
    {
        WCHAR const * path;
        WCHAR const * extension;
        WCHAR const * expected;
    } const rows[] = {
        {TEXT("c:\\a\\b.txt"), TEXT(".doc"), TEXT("c:\\a\\b.doc")},
        {TEXT("c:\\a\\b"), TEXT(".doc"), TEXT("c:\\a\\b.doc")},
        {TEXT("c:\\a.b\\c"), TEXT(".doc"), TEXT("c:\\a.b\\c.doc")},
        {TEXT("a.txt"), TEXT("doc"), TEXT("adoc")},
        {TEXT("a.txt"), TEXT(""), TEXT("a")},
        {TEXT(""), TEXT(".doc"), TEXT("")},
    };
    for (auto const & row : rows)
    {
        EXPECT_EQ(Shown(File::SwitchExtension(row.path, row.extension)), Shown(row.expected)) << Shown(row.path);
    }
    EXPECT_TRUE(File::SwitchExtension(WString(TEXT("\0a.txt"), 6), TEXT(".doc")).empty());
}

TEST(PathRules, MakePath)
{
    struct
    {
        WCHAR const * directory;
        WCHAR const * name;
        WCHAR const * expected;
    } const rows[] = {
        {TEXT("c:\\a"), TEXT("b"), TEXT("c:\\a\\b")},
        {TEXT("c:\\a\\"), TEXT("b"), TEXT("c:\\a\\b")},
        {TEXT("c:\\a\\\\\\"), TEXT("b"), TEXT("c:\\a\\b")},
        {TEXT(""), TEXT("b"), TEXT("b")},
        {TEXT("c:\\a\\"), TEXT(""), TEXT("c:\\a\\")},
        {TEXT(""), TEXT(""), TEXT("")},
        {TEXT("c:\\"), TEXT("b"), TEXT("c:\\b")},
        {TEXT("c:\\"), TEXT("\\b"), TEXT("c:\\\\b")},
        {TEXT("c:\\a\\b"), TEXT("\\x"), TEXT("c:\\x")},
        {TEXT("a"), TEXT("\\x"), TEXT("\\x")},
        {TEXT("c:\\a"), TEXT("\\\\server\\x"), TEXT("c:\\a\\\\\\server\\x")},
        {TEXT("c:\\a"), TEXT("\\"), TEXT("c:\\a\\\\")},
        {TEXT("c:\\a"), TEXT("d:\\x"), TEXT("c:\\a\\d:\\x")},
        {TEXT("\\\\"), TEXT("b"), TEXT("\\b")},
        {TEXT("a/"), TEXT("b"), TEXT("a/\\b")},
    };
    for (auto const & row : rows)
    {
        EXPECT_EQ(Shown(File::MakePath(row.directory, row.name)), Shown(row.expected))
            << Shown(row.directory) << " and " << Shown(row.name);
    }
    EXPECT_EQ(File::MakePath(WString(TEXT("\0a"), 2), TEXT("b")), TEXT("b"));
}

TEST(PathRules, ApplyToTheStoredPath)
{
    Opened const file(TEXT("c:\\a.b\\name.txt"));
    EXPECT_EQ(file.GetFilePath(), TEXT("c:\\a.b\\name.txt"));
    EXPECT_EQ(file.GetBasename(), TEXT("name.txt"));
    EXPECT_EQ(file.GetDirname(), TEXT("c:\\a.b"));
    EXPECT_EQ(file.GetFileExtension(), TEXT(".txt"));
    EXPECT_EQ(file.GetFileTitleW(), TEXT("name"));
    EXPECT_EQ(file.GetFilePathWithoutExtension(), TEXT("c:\\a.b\\name"));
    EXPECT_EQ(Opened(TEXT("c:\\no such directory\\x")).GetShortPath(), String());

    Opened copy(file);
    EXPECT_EQ(copy.GetFilePath(), file.GetFilePath());
    copy = Opened();
    EXPECT_EQ(copy.GetFilePath(), String());
}
