#include <kvcore/platform/win32.h>
#include <support/ScratchPaths.h>

namespace
{

WString FullPath(WString const & path)
{
    WCHAR buffer[1024];
    DWORD const length = GetFullPathNameW(path.c_str(), 1024, buffer, nullptr);
    return WString(buffer, length);
}

/// Stands in a scratch folder for the length of a test.
class InFolder : public testing::Test
{
protected:
    void SetUp() override
    {
        before.resize(GetCurrentDirectoryW(0, nullptr));
        before.resize(GetCurrentDirectoryW(static_cast<DWORD>(before.size()), before.data()));
        ASSERT_TRUE(SetCurrentDirectoryW(folder.Root().c_str()));
        current.resize(GetCurrentDirectoryW(0, nullptr));
        current.resize(GetCurrentDirectoryW(static_cast<DWORD>(current.size()), current.data()));
    }
    void TearDown() override
    {
        SetCurrentDirectoryW(before.c_str());
    }

    ScratchPaths folder;
    WString before;
    WString current;
};

using FullPaths = InFolder;
using LongPaths = InFolder;

struct PathCase
{
    WCHAR const * path;
    WCHAR const * full; ///< behind the current directory if it begins with no drive and no separator
};

TEST_F(FullPaths, AreMadeByTheLettersAlone)
{
    PathCase const cases[] = {
        {TEXT("a"), TEXT("\\a")},
        {TEXT("."), TEXT("")},
        {TEXT(".\\"), TEXT("\\")},
        {TEXT("a\\b\\..\\"), TEXT("\\a\\")},
        {TEXT("a\\.."), TEXT("")},
        {TEXT("a\\."), TEXT("\\a")},
        {TEXT("a//b\\\\c"), TEXT("\\a\\b\\c")},
        {TEXT("a.b.\\c.. "), TEXT("\\a.b\\c")},
        {TEXT("Dir..\\x"), TEXT("\\Dir.\\x")},
        {TEXT("Dir. .\\x"), TEXT("\\Dir. \\x")},
        {TEXT("a\\. "), TEXT("\\a\\")},
        {TEXT("a\\.. "), TEXT("\\a\\")},
        {TEXT("a\\..x"), TEXT("\\a\\..x")},
        {TEXT("..."), TEXT("\\")},
        {TEXT(" a"), TEXT("\\ a")},
        {TEXT("a /b"), TEXT("\\a \\b")},
    };
    for (PathCase const & row : cases)
        EXPECT_EQ(FullPath(row.path), current + row.full) << testing::PrintToString(WString(row.path));
}

TEST_F(FullPaths, BehindAPrefixAreMadeLikeOthers)
{
    PathCase const cases[] = {
        {TEXT(""), TEXT("")},
        {TEXT("c:"), TEXT("c:")},
        {TEXT("c:\\"), TEXT("c:\\")},
        {TEXT("c:\\a\\.\\b"), TEXT("c:\\a\\b")},
        {TEXT("c:\\a\\..\\b"), TEXT("c:\\b")},
        {TEXT("c:\\a/b//c"), TEXT("c:\\a\\b\\c")},
        {TEXT("c:\\a. . "), TEXT("c:\\a")},
        {TEXT("c:\\a\\. "), TEXT("c:\\a\\")},
        {TEXT("c:\\..\\..\\b"), TEXT("b")},
        {TEXT("c:\\a\\..\\.."), TEXT("")},
        {TEXT("c:..\\b"), TEXT("c:.\\b")},
        {TEXT("a"), TEXT("a")},
        {TEXT("a\\"), TEXT("a\\")},
        {TEXT("a\\."), TEXT("a")},
        {TEXT("a\\b\\.."), TEXT("a")},
        {TEXT("a\\b\\..\\"), TEXT("a\\")},
        {TEXT("a\\..\\..\\..\\b"), TEXT("b")},
        {TEXT("a.\\b..\\c"), TEXT("a\\b.\\c")},
        {TEXT("."), TEXT("")},
        {TEXT(".."), TEXT("")},
        {TEXT("..."), TEXT("")},
        {TEXT(" "), TEXT("")},
        {TEXT("\\\\a"), TEXT("a")},
        {TEXT("UNC\\s\\h\\..\\x"), TEXT("UNC\\s\\x")},
        {TEXT("nul"), TEXT("nul")},
    };
    struct
    {
        WCHAR const * given;
        WCHAR const * full;
    } const prefixes[] = {
        {TEXT("\\\\?\\"), TEXT("\\\\?\\")}, {TEXT("\\\\.\\"), TEXT("\\\\.\\")}, {TEXT("//?/"), TEXT("\\\\?\\")},
        {TEXT("//./"), TEXT("\\\\.\\")},    {TEXT("\\\\?/"), TEXT("\\\\?\\")},  {TEXT("\\/.\\"), TEXT("\\\\.\\")},
    };
    for (auto const & prefix : prefixes)
    {
        for (PathCase const & row : cases)
        {
            WString const path = WString(prefix.given) + row.path;
            EXPECT_EQ(FullPath(path), WString(prefix.full) + row.full) << testing::PrintToString(path);
        }
    }
    WCHAR buffer[100];
    WCHAR * file = nullptr;
    ASSERT_EQ(GetFullPathNameW(TEXT("\\\\?\\a"), 100, buffer, &file), 5u);
    EXPECT_EQ(file, buffer + 4);
    ASSERT_EQ(GetFullPathNameW(TEXT("\\\\?\\a\\.."), 100, buffer, &file), 4u);
    EXPECT_EQ(file, nullptr);
}

TEST_F(FullPaths, FromADriveOrAMachineOn)
{
    PathCase const cases[] = {
        {TEXT("Z:\\a\\..\\..\\b"), TEXT("Z:\\b")},
        {TEXT("z:/x/"), TEXT("z:\\x\\")},
        {TEXT("Z:\\\\tmp"), TEXT("Z:\\tmp")},
        {TEXT("Q:\\.."), TEXT("Q:\\")},
        {TEXT("Q:a"), TEXT("Q:\\a")},
        {TEXT("Q:"), TEXT("Q:\\")},
        {TEXT("\\\\server\\share\\a\\..\\..\\..\\x"), TEXT("\\\\server\\share\\x")},
        {TEXT("//server/share/x"), TEXT("\\\\server\\share\\x")},
        {TEXT("\\\\"), TEXT("\\\\")},
        {TEXT("\\\\.\\Z:\\a\\..\\b"), TEXT("\\\\.\\Z:\\b")},
        {TEXT("\\\\?\\Z:\\a\\b"), TEXT("\\\\?\\Z:\\a\\b")},
        {TEXT("nul"), TEXT("\\\\.\\nul")},
        {TEXT("NUL."), TEXT("\\\\.\\NUL")},
        {TEXT("Z:\\nulx"), TEXT("Z:\\nulx")},
    };
    for (PathCase const & row : cases)
        EXPECT_EQ(FullPath(row.path), row.full) << testing::PrintToString(WString(row.path));
}

TEST_F(FullPaths, RootedPathsAreOnTheCurrentDrive)
{
    EXPECT_EQ(FullPath(TEXT("\\x")), current.substr(0, 2) + TEXT("\\x"));
    EXPECT_EQ(FullPath(TEXT("\\x\\..\\y")), current.substr(0, 2) + TEXT("\\y"));
}

TEST_F(FullPaths, TellTheirLengthAndTheirLastPart)
{
    WCHAR buffer[16];
    WCHAR * part = buffer;
    EXPECT_EQ(GetFullPathNameW(TEXT("Z:\\abc\\def"), 16, buffer, &part), 10u);
    EXPECT_EQ(part, buffer + 7);
    EXPECT_EQ(GetFullPathNameW(TEXT("Z:\\abc\\"), 16, buffer, &part), 7u);
    EXPECT_EQ(part, nullptr);
    EXPECT_EQ(GetFullPathNameW(TEXT("Z:\\"), 16, buffer, &part), 3u);
    EXPECT_EQ(part, nullptr);
    EXPECT_EQ(GetFullPathNameW(TEXT("Z:\\abc\\def"), 10, buffer, nullptr), 11u);
    EXPECT_EQ(GetFullPathNameW(TEXT("Z:\\abc\\def"), 0, nullptr, nullptr), 11u);
    EXPECT_EQ(GetFullPathNameW(TEXT(""), 16, buffer, nullptr), 0u);
}

TEST_F(FullPaths, LongerThanAnyBufferAreMeasured)
{
    WString const name(20000, TEXT('h'));
    EXPECT_EQ(GetFullPathNameW((TEXT("Z:\\") + name).c_str(), 0, nullptr, nullptr), 20004u);
}

TEST_F(FullPaths, CurrentDirectoryMeasures)
{
    WCHAR small[3];
    EXPECT_EQ(GetCurrentDirectoryW(3, small), current.size() + 1);
}

TEST_F(FullPaths, CurrentDirectoryMustBeADirectory)
{
    struct
    {
        WCHAR const * path;
        DWORD error;
    } const cases[] = {
        {TEXT("missing"), ERROR_FILE_NOT_FOUND},  {TEXT("f.txt"), ERROR_DIRECTORY},
        {TEXT("f.txt\\x"), ERROR_PATH_NOT_FOUND}, {TEXT("missing\\x"), ERROR_PATH_NOT_FOUND},
        {TEXT(""), ERROR_INVALID_NAME},           {TEXT("a|"), ERROR_INVALID_NAME},
    };
    folder.Make("f.txt");
    for (auto const & row : cases)
    {
        EXPECT_FALSE(SetCurrentDirectoryW(row.path));
        EXPECT_EQ(GetLastError(), row.error) << testing::PrintToString(WString(row.path));
    }
    EXPECT_EQ(FullPath(TEXT(".")), current);
}

WString Long(WString const & path)
{
    WCHAR buffer[1024];
    return WString(buffer, GetLongPathNameW(path.c_str(), buffer, 1024));
}

WString Short(WString const & path)
{
    WCHAR buffer[1024];
    return WString(buffer, GetShortPathNameW(path.c_str(), buffer, 1024));
}

TEST_F(LongPaths, SpellNamesAsOnTheDisk)
{
    folder.Make("MixedDir.abc/File.txt");
    EXPECT_EQ(Long(TEXT("mixeddir.ABC\\FILE.TXT")), TEXT("MixedDir.abc\\File.txt"));
    EXPECT_EQ(Long(TEXT("mixeddir.ABC\\")), TEXT("MixedDir.abc\\"));
    EXPECT_EQ(Long(TEXT("mixeddir.ABC\\.\\FILE.TXT")), TEXT("MixedDir.abc\\.\\File.txt"));
    EXPECT_EQ(Long(TEXT(".")), TEXT("."));
    EXPECT_EQ(Long(current + TEXT("\\MIXEDDIR.ABC")), current + TEXT("\\MixedDir.abc"));
}

TEST_F(LongPaths, ShortFormsOpenTheSameFileAndLeadBack)
{
    for (char const * const name :
         {"long file name.jpeg", "two.dots.txt", "x+y.z", "plain.txt", ".hidden",
          "Gr\xC3\xBC\xC3\x9F"
          "e.txt"})
    {
        folder.Make(std::string("a folder with a name/") + name, name);
        WString const path = folder(TEXT("a folder with a name\\")) + kv::platform::PathFromNative(name);
        WString const form = Short(path);
        ASSERT_FALSE(form.empty()) << name;
        WIN32_FILE_ATTRIBUTE_DATA data;
        ASSERT_TRUE(GetFileAttributesExW(form.c_str(), GetFileExInfoStandard, &data)) << name;
        EXPECT_EQ(data.nFileSizeLow, std::string(name).size());
        EXPECT_EQ(Long(form), Long(path)) << name;
        EXPECT_EQ(form.substr(form.find_last_of(TEXT('\\'))).find(TEXT(' ')), WString::npos);
        EXPECT_LE(form.size() - form.find_last_of(TEXT('\\')), 13u) << name;
    }
}

TEST_F(LongPaths, MissingOnesHaveNeitherForm)
{
    folder.Make("f.txt");
    for (WCHAR const * const path : {TEXT("missing"), TEXT("missing\\x"), TEXT("f.txt\\x"), TEXT("Q:\\x"), TEXT("")})
    {
        SetLastError(0);
        EXPECT_EQ(Long(path), TEXT(""));
        EXPECT_NE(GetLastError(), 0u);
        SetLastError(0);
        EXPECT_EQ(Short(path), TEXT(""));
        EXPECT_NE(GetLastError(), 0u);
    }
    EXPECT_EQ(Long(TEXT("missing")), TEXT(""));
    EXPECT_EQ(GetLastError(), ERROR_FILE_NOT_FOUND);
}

} // namespace
