#include <algorithm>

#include <kvcore/platform/win32.h>
#include <support/ScratchFolder.h>

#include <gtest/gtest.h>

namespace
{

using namespace std::string_literals;

/// A profile in a folder of its own, with the calls as they are used here. Lists have '|' for each NUL.
class Profile
{
public:
    explicit Profile(std::string const & bytes)
    {
        folder.Write("p.ini", bytes);
    }

    WString Path() const
    {
        return folder.Name("p.ini");
    }
    std::string Bytes() const
    {
        return folder.Read("p.ini");
    }
    WString Names(DWORD capacity = 1000) const
    {
        return Listed(
            capacity, [&](WCHAR * list) { return GetPrivateProfileSectionNamesW(list, capacity, Path().c_str()); });
    }
    WString Lines(WCHAR const * section, DWORD capacity = 1000) const
    {
        return Listed(
            capacity, [&](WCHAR * list) { return GetPrivateProfileSectionW(section, list, capacity, Path().c_str()); });
    }
    WString Keys(WCHAR const * section, DWORD capacity = 1000) const
    {
        return Listed(
            capacity,
            [&](WCHAR * list)
            { return GetPrivateProfileStringW(section, nullptr, TEXT("DEF"), list, capacity, Path().c_str()); });
    }
    WString
    Text(WCHAR const * section, WCHAR const * key, WCHAR const * fallback = TEXT("DEF"), DWORD capacity = 1000) const
    {
        return Listed(
            capacity,
            [&](WCHAR * text)
            { return GetPrivateProfileStringW(section, key, fallback, text, capacity, Path().c_str()); });
    }
    int Number(WCHAR const * key) const
    {
        return static_cast<int>(GetPrivateProfileIntW(TEXT("a"), key, -99, Path().c_str()));
    }
    bool Set(WCHAR const * section, WCHAR const * key, WCHAR const * text) const
    {
        return WritePrivateProfileStringW(section, key, text, Path().c_str()) != FALSE;
    }
    bool SetLines(WCHAR const * section, WCHAR const * lines) const
    {
        return WritePrivateProfileSectionW(section, lines, Path().c_str()) != FALSE;
    }

private:
    template <class Call>
    static WString Listed(DWORD capacity, Call && call)
    {
        std::vector<WCHAR> buffer(capacity + 4, TEXT('#'));
        WString result(buffer.data(), call(buffer.data()));
        std::replace(result.begin(), result.end(), WCHAR(0), TEXT('|'));
        return result;
    }

    ScratchFolder folder;
};

struct ReadCase
{
    std::string bytes;
    WCHAR const * names;
    WCHAR const * section; ///< whose lines are read
    WCHAR const * lines;
};

TEST(PrivateProfiles, FilesAreReadAsTheyAreFound)
{
    ReadCase const cases[] = {
        {"[a]\r\nk=v\r\n", TEXT("a|"), TEXT("a"), TEXT("k=v|")},
        {"[a]\r\nk=v", TEXT("a|"), TEXT("a"), TEXT("k=v|")},
        {"[a]\nk=v\nj=w\n", TEXT("a|"), TEXT("a"), TEXT("k=v|j=w|")},
        {"[a]\rk=v\rj=w\r", TEXT("a|"), TEXT("a"), TEXT("k=v|j=w|")},
        {"[a]\r\r\nk=v\r\r\nj=1\r\r\n", TEXT("a|"), TEXT("a"), TEXT("k=v|j=1|")},
        {"[a]\n\rk=v\n\rj=1\n\r", TEXT("a|"), TEXT("a"), TEXT("k=v|j=1|")},
        {"  [ a  b ] x \r\n  k  =  v w  \r\n\tt\t=\tu\t\r\n", TEXT("a  b|"), TEXT("a  b"), TEXT("k=v w|t=u|")},
        {"[q]\r\na=\"x y\"\r\nb='z '\r\nd= \"  in \"  \r\ne=\"\r\n", TEXT("q|"), TEXT("q"),
         TEXT("a=\"x y\"|b='z '|d=\"  in \"|e=\"|")},
        {"top\r\n[a]\r\n\r\nk=v ; tail\r\n#h=1\r\n\r\nplain\r\n=novalue\r\nempty=\r\n", TEXT("a|"), TEXT("a"),
         TEXT("k=v ; tail|#h=1|plain|=novalue|empty=|")},
        {"[a]\r\nk=1\r\nk=2\r\nK=3\r\n[b]\r\nx=1\r\n[A]\r\nz=5\r\n", TEXT("a|b|A|"), TEXT("A"), TEXT("k=1|k=2|K=3|")},
        {"k=v\r\n[a]\r\nx=1\r\n", TEXT("a|"), TEXT(""), TEXT("k=v|")},
        {"[]\r\ne=1\r\n[a]b]\r\nc=1\r\n[[n]]\r\nd=1\r\n[ ]\r\ns=1\r\n", TEXT("a]b|[n]|"), TEXT("[n]"), TEXT("d=1|")},
        {"[a]\r\n[unclosed\r\nk=v\r\n", TEXT("a|"), TEXT("a"), TEXT("[unclosed|k=v|")},
        {"[a]\r\nk=v\0w\r\nj=1\r\n"s, TEXT("a|"), TEXT("a"), TEXT("k=v|j=1|")},
        {"[a]\r\nk=v\r\n\x1Aj=1\r\n", TEXT("a|"), TEXT("a"), TEXT("k=v|j=1|")},
        {"[a]\r\n\vk\v=\fv\f\r\n", TEXT("a|"), TEXT("a"), TEXT("k=v|")},
        {"", TEXT(""), TEXT("a"), TEXT("")},
        {"[a]\r\n[b]\r\nx=1\r\n", TEXT("a|b|"), TEXT("a"), TEXT("")},
        {"\xEF\xBB\xBF[\xC3\xA4]\r\nk=\xE2\x82\xAC\r\n", TEXT("\xE4|"), TEXT("\xE4"), TEXT("k=\x20AC|")},
        {"\xFF\xFE[\0a\0]\0\r\0\n\0k\0=\0\xAC\x20\r\0\n\0"s, TEXT("a|"), TEXT("a"), TEXT("k=\x20AC|")},
        {"\xFE\xFF\0[\0a\0]\0\r\0\n\0k\0=\x20\xAC\0\r\0\n"s, TEXT("a|"), TEXT("a"), TEXT("k=\x20AC|")},
#ifndef _WIN32 // Wine takes the other half of a cut unit from what lies behind it in memory
        {"\xFF\xFE[\0a\0]\0\r\0\n\0k\0=\0v\0w"s, TEXT("a|"), TEXT("a"), TEXT("k=vw|")},
#endif
        {"[\0a\0]\0\r\0\n\0k\0=\0v\0"s, TEXT(""), TEXT("a"), TEXT("")},
    };
    for (ReadCase const & row : cases)
    {
        Profile const profile(row.bytes);
        EXPECT_EQ(profile.Names(), row.names) << testing::PrintToString(row.bytes);
        EXPECT_EQ(profile.Lines(row.section), row.lines) << testing::PrintToString(row.bytes);
    }
}

struct TextCase
{
    WCHAR const * section;
    WCHAR const * key;
    WCHAR const * text;
};

constexpr char sample[] = "[a]\r\nk=v w\r\nq=\"quo ted\"\r\ns='x'\r\nm=\"\r\ne=\r\nplain\r\n;c=1\r\n d = 7 \r\n"
                          "K=dup\r\nmix=\"ab'\r\nqq=\"\"x\"\"\r\n[B]\r\nx=1\r\n[a]\r\nlater=1\r\n";

TEST(PrivateProfiles, TextsAreFoundByNamesOfAnyCase)
{
    constexpr TextCase cases[] = {
        {TEXT("a"), TEXT("k"), TEXT("v w")},     {TEXT("A"), TEXT("K"), TEXT("v w")},
        {TEXT("a"), TEXT("q"), TEXT("quo ted")}, {TEXT("a"), TEXT("s"), TEXT("x")},
        {TEXT("a"), TEXT("m"), TEXT("\"")},      {TEXT("a"), TEXT("e"), TEXT("")},
        {TEXT("a"), TEXT("plain"), TEXT("DEF")}, {TEXT("a"), TEXT(";c"), TEXT("1")},
        {TEXT("a"), TEXT("d"), TEXT("7")},       {TEXT(" a "), TEXT(" d "), TEXT("7")},
        {TEXT("a"), TEXT("mix"), TEXT("\"ab'")}, {TEXT("a"), TEXT("qq"), TEXT("\"x\"")},
        {TEXT("a"), TEXT("later"), TEXT("DEF")}, {TEXT("b"), TEXT("x"), TEXT("1")},
        {TEXT("zz"), TEXT("k"), TEXT("DEF")},    {TEXT(""), TEXT("k"), TEXT("DEF")},
    };
    Profile const profile(sample);
    for (TextCase const & row : cases)
    {
        EXPECT_EQ(profile.Text(row.section, row.key), row.text) << testing::PrintToString(WString(row.key));
    }
}

TEST(PrivateProfiles, FallbackLosesQuotesAndTheBlanksAtItsEnd)
{
    Profile const profile(sample);
    EXPECT_EQ(profile.Text(TEXT("a"), TEXT("none"), TEXT("def  ")), TEXT("def"));
    EXPECT_EQ(profile.Text(TEXT("a"), TEXT("none"), TEXT("  def")), TEXT("  def"));
    EXPECT_EQ(profile.Text(TEXT("a"), TEXT("none"), TEXT("\"d q\"")), TEXT("d q"));
    EXPECT_EQ(profile.Text(TEXT("a"), TEXT("none"), TEXT("")), TEXT(""));
    EXPECT_EQ(profile.Text(TEXT("a"), TEXT("none"), nullptr), TEXT(""));
}

TEST(PrivateProfiles, NullNamesList)
{
    Profile const profile(sample);
    EXPECT_EQ(profile.Text(nullptr, nullptr), TEXT("a|B|a|"));
    EXPECT_EQ(profile.Text(nullptr, TEXT("k")), TEXT("a|B|a|"));
    EXPECT_EQ(profile.Keys(TEXT("a")), TEXT("k|q|s|m|e|d|K|mix|qq|"));
    EXPECT_EQ(profile.Keys(TEXT("zz")), TEXT("DEF"));
}

TEST(PrivateProfiles, ALineWithoutEqualsSignIsAKeyWithoutAValue)
{
    Profile const profile("[a]\r\nk\r\nk=behind\r\nn=1\r\nn\r\n;c\r\n;c=2\r\n");
    EXPECT_EQ(profile.Text(TEXT("a"), TEXT("K")), TEXT("DEF")) << "it hides the line behind it";
    EXPECT_EQ(profile.Number(TEXT("k")), -99);
    EXPECT_EQ(profile.Text(TEXT("a"), TEXT("n")), TEXT("1"));
    EXPECT_EQ(profile.Keys(TEXT("a")), TEXT("k|n|")) << "and is no name in the list";
    EXPECT_TRUE(profile.Set(TEXT("a"), TEXT("k"), nullptr));
    EXPECT_EQ(profile.Text(TEXT("a"), TEXT("k")), TEXT("behind"));
    EXPECT_TRUE(profile.Set(TEXT("a"), TEXT("n"), nullptr));
    EXPECT_EQ(profile.Text(TEXT("a"), TEXT("n")), TEXT("DEF"));
    EXPECT_TRUE(profile.Set(TEXT("a"), TEXT("N"), TEXT("3")));
    EXPECT_EQ(profile.Text(TEXT("a"), TEXT("n")), TEXT("3"));
    EXPECT_EQ(profile.Keys(TEXT("a")), TEXT("k|n|"));
}

TEST(PrivateProfiles, AListOfNoKeysIsTheFallbackAsItStands)
{
    Profile const profile("[empty]\r\n[lines]\r\njunk\r\n;c=1\r\n[nameless]\r\n=v\r\nk=1\r\n[a]\r\nk=1\r\n");
    for (WCHAR const * const section : {TEXT("empty"), TEXT("lines"), TEXT("nameless"), TEXT("none"), TEXT(" a ")})
    {
        EXPECT_EQ(profile.Keys(section), TEXT("DEF"));
        EXPECT_EQ(profile.Text(section, nullptr, TEXT("\"q\" ")), TEXT("\"q\" "));
        EXPECT_EQ(profile.Text(section, nullptr, nullptr), TEXT(""));
        EXPECT_EQ(profile.Keys(section, 3), TEXT("DE"));
    }
    EXPECT_EQ(profile.Keys(TEXT("a")), TEXT("k|"));
    EXPECT_EQ(profile.Keys(TEXT("a"), 2), TEXT("D")) << "there is no room for a name";
    EXPECT_EQ(profile.Lines(TEXT(" a ")), TEXT("")) << "lists take a section's name as it stands";
    EXPECT_EQ(profile.Text(TEXT(" a "), TEXT(" k ")), TEXT("1"));
}

TEST(PrivateProfiles, TextsAreCutAtOneLessThanTheRoom)
{
    Profile const profile(sample);
    EXPECT_EQ(profile.Text(TEXT("a"), TEXT("k"), TEXT(""), 4), TEXT("v w"));
    EXPECT_EQ(profile.Text(TEXT("a"), TEXT("k"), TEXT(""), 3), TEXT("v "));
    EXPECT_EQ(profile.Text(TEXT("a"), TEXT("k"), TEXT(""), 1), TEXT(""));
    EXPECT_EQ(profile.Text(TEXT("a"), TEXT("k"), TEXT(""), 0), TEXT(""));
    EXPECT_EQ(profile.Text(TEXT("a"), TEXT("none"), TEXT("LONG"), 3), TEXT("LO"));
    EXPECT_EQ(GetPrivateProfileStringW(TEXT("a"), TEXT("k"), TEXT(""), nullptr, 0, profile.Path().c_str()), 0u);
}

TEST(PrivateProfiles, ListsAreCutAtTwoLessThanTheRoomAndEndInTwoNuls)
{
    Profile const profile(sample);
    for (DWORD capacity = 2; capacity < 10; capacity++)
    {
        WCHAR const * const whole = TEXT("a|B|a|");
        constexpr DWORD length = 6;
        WString const expected(whole, capacity >= length + 2 ? length : capacity - 2);
        EXPECT_EQ(profile.Names(capacity), expected);
        std::vector<WCHAR> buffer(capacity + 1, TEXT('#'));
        DWORD const given = GetPrivateProfileSectionNamesW(buffer.data(), capacity, profile.Path().c_str());
        EXPECT_EQ(buffer[given], 0);
        EXPECT_EQ(buffer[capacity], TEXT('#'));
        if (capacity < length + 2)
        {
            EXPECT_EQ(buffer[given + 1], 0);
        }
    }
    EXPECT_EQ(profile.Lines(TEXT("B"), 6), TEXT("x=1|"));
    EXPECT_EQ(profile.Lines(TEXT("B"), 5), TEXT("x=1"));
    EXPECT_EQ(profile.Lines(TEXT("B"), 4), TEXT("x="));
    EXPECT_EQ(profile.Keys(TEXT("a"), 4), TEXT("k|"));
    EXPECT_EQ(profile.Keys(TEXT("a"), 18), TEXT("k|q|s|m|e|d|K|mi"));
}

TEST(PrivateProfiles, SectionsOverflowAtTheirLimitToTheUnit)
{
    constexpr DWORD capacity = 0x7FFF;
    for (std::size_t const length : {capacity - 4u, capacity - 3u, capacity - 2u, capacity + 1u, 3u * capacity})
    {
        Profile const profile("[a]\r\nk=" + std::string(length - 2, 'x') + "\r\n");
        EXPECT_EQ(profile.Lines(TEXT("a"), capacity).size(), std::min<std::size_t>(length + 1, capacity - 2));
        Profile const named("[" + std::string(length, 'x') + "]\r\n");
        EXPECT_EQ(named.Names(capacity).size(), std::min<std::size_t>(length + 1, capacity - 2));
    }
}

TEST(PrivateProfiles, NumbersAreWhatTheTextBeginsWith)
{
    Profile const profile(
        "[a]\r\na=12\r\nb=-12\r\nc=0x1F\r\nd=abc\r\ne=\r\nf=12abc\r\ng=4294967295\r\nh=99999999999\r\ni= 7\r\nj=+5\r\n"
        "k=\"8\"\r\nl=010\r\nm=-\r\nn=0b11\r\no=0o17\r\np=0x\r\nq=-0x10\r\nr=1 2\r\ns=-4294967295\r\n");
    int const expected[] = {12, -12, 31, 0, -99, 12, -1, 1215752191, 7, 5, 8, 10, 0, 3, 15, 0, -16, 1, 1, -99};
    for (std::size_t i = 0; i < std::size(expected); i++)
    {
        WCHAR const key[] = {static_cast<WCHAR>('a' + i), 0};
        EXPECT_EQ(profile.Number(key), expected[i]) << 'a' + i;
    }
}

TEST(PrivateProfiles, ReadsSayWhatIsMissing)
{
    ScratchFolder const folder;
    WCHAR buffer[10];
    for (auto const & [name, error] :
         {std::pair("none.ini", ERROR_FILE_NOT_FOUND), std::pair("none\\none.ini", ERROR_PATH_NOT_FOUND)})
    {
        String const path = folder.Name(name);
        EXPECT_EQ(GetPrivateProfileStringW(TEXT("a"), TEXT("k"), TEXT("DEF"), buffer, 10, path.c_str()), 3u);
        EXPECT_EQ(GetLastError(), DWORD(error));
        EXPECT_EQ(GetPrivateProfileSectionW(TEXT("a"), buffer, 10, path.c_str()), 0u);
        EXPECT_EQ(GetLastError(), DWORD(error));
        EXPECT_EQ(GetPrivateProfileSectionNamesW(buffer, 10, path.c_str()), 0u);
        EXPECT_EQ(GetLastError(), DWORD(error));
        EXPECT_EQ(GetPrivateProfileIntW(TEXT("a"), TEXT("k"), 5, path.c_str()), 5u);
        EXPECT_EQ(GetLastError(), DWORD(error));
    }
    EXPECT_FALSE(WritePrivateProfileStringW(TEXT("a"), TEXT("k"), TEXT("v"), folder.Name("none\\none.ini").c_str()));
    EXPECT_EQ(GetLastError(), DWORD(ERROR_PATH_NOT_FOUND));
    EXPECT_FALSE(WritePrivateProfileSectionW(TEXT("a"), TEXT("k=v\0"), folder.Name("none\\none.ini").c_str()));
    EXPECT_EQ(GetLastError(), DWORD(ERROR_PATH_NOT_FOUND));
    EXPECT_TRUE(WritePrivateProfileStringW(TEXT("a"), TEXT("k"), TEXT("v"), folder.Name("none.ini").c_str()));
    GetPrivateProfileIntW(TEXT("a"), TEXT("missing"), 5, folder.Name("none.ini").c_str());
    EXPECT_EQ(GetLastError(), DWORD(ERROR_SUCCESS));
}

TEST(PrivateProfiles, ReadsSeeWhatOthersHaveWritten)
{
    ScratchFolder const folder;
    String const path = folder.Name("x.ini");
    for (int i = 0; i < 10; i++)
    {
        folder.Write("x.ini", "[a]\r\nk=" + std::to_string(i) + "\r\n");
        EXPECT_EQ(GetPrivateProfileIntW(TEXT("a"), TEXT("k"), -1, path.c_str()), unsigned(i));
    }
}

// Writing

struct WriteCase
{
    WCHAR const * section;
    WCHAR const * key;
    WCHAR const * text;
    char const * bytes; ///< afterwards, each case going on from the one before
};

TEST(PrivateProfiles, TextsAreSetInTheirLines)
{
    constexpr WriteCase cases[] = {
        {TEXT("a"), TEXT("k"), TEXT("v"), "[a]\r\nk=v\r\n"},
        {TEXT("b"), TEXT("x"), TEXT("1"), "[a]\r\nk=v\r\n[b]\r\nx=1\r\n"},
        {TEXT("a"), TEXT("j"), TEXT("w"), "[a]\r\nk=v\r\nj=w\r\n[b]\r\nx=1\r\n"},
        {TEXT("A"), TEXT("K"), TEXT("new"), "[a]\r\nk=new\r\nj=w\r\n[b]\r\nx=1\r\n"},
        {TEXT(" a "), TEXT("z"), TEXT("  1"), "[a]\r\nk=new\r\nj=w\r\nz=1\r\n[b]\r\nx=1\r\n"},
        {TEXT("a"), TEXT("j"), nullptr, "[a]\r\nk=new\r\nz=1\r\n[b]\r\nx=1\r\n"},
        {TEXT("a"), TEXT("none"), nullptr, "[a]\r\nk=new\r\nz=1\r\n[b]\r\nx=1\r\n"},
        {TEXT("none"), TEXT("none"), nullptr, "[a]\r\nk=new\r\nz=1\r\n[b]\r\nx=1\r\n"},
        {TEXT("b"), nullptr, nullptr, "[a]\r\nk=new\r\nz=1\r\n"},
        {TEXT("none"), nullptr, nullptr, "[a]\r\nk=new\r\nz=1\r\n"},
        {TEXT("a"), TEXT("z"), nullptr, "[a]\r\nk=new\r\n"},
        {TEXT("a"), TEXT("eq=x"), TEXT("1"), "[a]\r\nk=new\r\neq=x=1\r\n"},
        {TEXT("a"), TEXT(""), TEXT("1"), "[a]\r\nk=new\r\neq=x=1\r\n=1\r\n"},
        {TEXT(""), TEXT("k"), TEXT("1"), "k=1\r\n[a]\r\nk=new\r\neq=x=1\r\n=1\r\n"},
        {TEXT("se]c"), TEXT("1"), TEXT(""), "k=1\r\n[a]\r\nk=new\r\neq=x=1\r\n=1\r\n[se]c]\r\n1=\r\n"},
        {TEXT("a"), nullptr, TEXT("x"), "k=1\r\n[se]c]\r\n1=\r\n"},
    };
    Profile const profile("");
    for (WriteCase const & row : cases)
    {
        EXPECT_TRUE(profile.Set(row.section, row.key, row.text));
        EXPECT_EQ(profile.Bytes(), row.bytes);
    }
}

TEST(PrivateProfiles, WritesNeedASection)
{
    Profile const profile("[a]\r\nk=v\r\n");
    EXPECT_FALSE(profile.Set(nullptr, TEXT("k"), TEXT("w")));
    EXPECT_EQ(GetLastError(), DWORD(ERROR_FILE_NOT_FOUND));
    EXPECT_FALSE(profile.Set(nullptr, nullptr, nullptr));
    EXPECT_EQ(profile.Bytes(), "[a]\r\nk=v\r\n");
}

struct FileWriteCase
{
    std::string before;
    WCHAR const * section;
    WCHAR const * key;
    WCHAR const * text;
    std::string after;
};

TEST(PrivateProfiles, TextsAreSetInFilesOfAnyKind)
{
    FileWriteCase const cases[] = {
        {"[a]\r\nk=v", TEXT("a"), TEXT("j"), TEXT("1"), "[a]\r\nk=v\r\nj=1\r\n"},
        {"[a]\r\nk=v", TEXT("b"), TEXT("j"), TEXT("1"), "[a]\r\nk=v\r\n[b]\r\nj=1\r\n"},
        {"[a]", TEXT("a"), TEXT("j"), TEXT("1"), "[a]\r\nj=1\r\n"},
        {"[a]\n k = v \n", TEXT("a"), TEXT("K"), TEXT("v"), "[a]\n k = v \n"},
        {"[a]\r\n;c\r\nk=v ;t\r\n;d\r\n[b]\r\n", TEXT("a"), TEXT("j"), TEXT("1"),
         "[a]\r\n;c\r\nk=v ;t\r\n;d\r\nj=1\r\n[b]\r\n"},
        {"[a]\r\nk=1\r\n[b]\r\n[A]\r\nj=2\r\n", TEXT("a"), TEXT("j"), TEXT("9"),
         "[a]\r\nk=1\r\nj=9\r\n[b]\r\n[A]\r\nj=2\r\n"},
        {"[a]\r\nk=1\r\nk=2\r\n", TEXT("a"), TEXT("k"), TEXT("9"), "[a]\r\nk=9\r\nk=2\r\n"},
        {"[a]\r\nk=1\r\nk=2\r\n[a]\r\nk=3\r\n", TEXT("a"), TEXT("k"), nullptr, "[a]\r\nk=2\r\n[a]\r\nk=3\r\n"},
        {"[a]\r\nk=1\r\n[b]\r\nx=1\r\n[A]\r\nk=3\r\n", TEXT("a"), nullptr, nullptr, "[b]\r\nx=1\r\n[A]\r\nk=3\r\n"},
        {"[a]\r\nk=\"v\"\r\n", TEXT("a"), TEXT("k"), TEXT("v"), "[a]\r\nk=v\r\n"},
        {"k=v\r\n[a]\r\nx=1\r\n", TEXT("a"), TEXT("j"), TEXT("1"), "k=v\r\n[a]\r\nx=1\r\nj=1\r\n"},
        {"\xEF\xBB\xBF[a]\r\nk=\xE2\x82\xAC\r\n", TEXT("a"), TEXT("j"), TEXT("1\xE4"),
         "\xEF\xBB\xBF[a]\r\nk=\xE2\x82\xAC\r\nj=1\xC3\xA4\r\n"},
        {"\xFF\xFE[\0a\0]\0\r\0\n\0"s, TEXT("a"), TEXT("j"), TEXT("\x20AC"),
         "\xFF\xFE[\0a\0]\0\r\0\n\0j\0=\0\xAC\x20\r\0\n\0"s},
        {"\xFE\xFF\0[\0a\0]\0\r\0\n"s, TEXT("a"), TEXT("j"), TEXT("\x20AC"),
         "\xFE\xFF\0[\0a\0]\0\r\0\n\0j\0=\x20\xAC\0\r\0\n"s},
    };
    for (FileWriteCase const & row : cases)
    {
        Profile const profile(row.before);
        EXPECT_TRUE(profile.Set(row.section, row.key, row.text));
        EXPECT_EQ(profile.Bytes(), row.after) << testing::PrintToString(row.before);
    }
}

struct SectionWriteCase
{
    std::string before;
    WCHAR const * section;
    WCHAR const * lines;
    std::string after;
};

TEST(PrivateProfiles, SectionsAreReplacedAsAWhole)
{
    SectionWriteCase const cases[] = {
        {"", TEXT("a"), TEXT("k=v\0j=w\0"), "[a]\r\nk=v\r\nj=w\r\n"},
        {"[a]\r\nk=v\r\n", TEXT("b"), TEXT("x=1\r\n\0"), "[a]\r\nk=v\r\n[b]\r\nx=1\r\n\r\n"},
        {"[a]\r\nk=v\r\n[b]\r\nx=1\r\n", TEXT("A"), TEXT("new=1\0"), "[a]\r\nnew=1\r\n[b]\r\nx=1\r\n"},
        {"[a]\r\nk=v\r\n[b]\r\nx=1\r\n", TEXT("a"), nullptr, "[b]\r\nx=1\r\n"},
        {"[a]\r\nk=v\r\n[b]\r\nx=1\r\n", TEXT("none"), nullptr, "[a]\r\nk=v\r\n[b]\r\nx=1\r\n"},
        {"[a]\r\nk=v\r\n[b]\r\nx=1\r\n", TEXT("a"), TEXT("\0"), "[a]\r\n[b]\r\nx=1\r\n"},
        {"[a]\r\nk=v\r\n[A]\r\nz=1\r\n", TEXT("a"), nullptr, "[A]\r\nz=1\r\n"},
        {";top\r\n[a]\r\n;c\r\nk=v\r\n\r\n;d\r\n[b]\r\nx=1\r\n", TEXT("a"), TEXT("n=1\0"),
         ";top\r\n[a]\r\nn=1\r\n[b]\r\nx=1\r\n"},
        {"[a]\r\n", TEXT("a"), TEXT(";c=1\0=x\0a=b=c\0k=\"q\"\0k=2\0"),
         "[a]\r\n;c=1\r\n=x\r\na=b=c\r\nk=\"q\"\r\nk=2\r\n"},
        {"HEADER", TEXT("a"), TEXT("k=v\0"), "HEADER\r\n[a]\r\nk=v\r\n"},
        {"HEADER\r\n", TEXT("a"), TEXT("k=v\0"), "HEADER\r\n[a]\r\nk=v\r\n"},
        {"[H]", TEXT("a"), TEXT("k=v\0"), "[H]\r\n[a]\r\nk=v\r\n"},
        {"\xFF\xFE", TEXT("a"), TEXT("k=v\0"), "\xFF\xFE[\0a\0]\0\r\0\n\0k\0=\0v\0\r\0\n\0"s},
    };
    for (SectionWriteCase const & row : cases)
    {
        Profile const profile(row.before);
        EXPECT_TRUE(profile.SetLines(row.section, row.lines));
        EXPECT_EQ(profile.Bytes(), row.after) << testing::PrintToString(row.before);
    }
}

TEST(PrivateProfiles, SectionNamesInValuesMakeSections)
{
    Profile const profile("[a]\r\nk=v\r\n[z]\r\ny=1\r\n");
    EXPECT_TRUE(profile.Set(TEXT("a"), TEXT("k"), TEXT("v\r\n[b]\r\nj=w")));
    EXPECT_EQ(profile.Names(), TEXT("a|b|z|"));
    EXPECT_EQ(profile.Text(TEXT("b"), TEXT("j")), TEXT("w"));
    EXPECT_TRUE(profile.Set(TEXT("z"), TEXT("y"), TEXT("2")));
    EXPECT_EQ(profile.Text(TEXT("z"), TEXT("y")), TEXT("2"));
    EXPECT_EQ(profile.Text(TEXT("a"), TEXT("k")), TEXT("v"));
}

TEST(PrivateProfiles, NamesWithoutAFolderLieInTheWindowsDirectory)
{
    WCHAR directory[MAX_PATH];
    ASSERT_TRUE(SHGetSpecialFolderPathW(nullptr, directory, CSIDL_WINDOWS, TRUE));
    WString const path = WString(directory) + TEXT("\\kvcore-test-names.ini");
    EXPECT_TRUE(WritePrivateProfileStringW(TEXT("a"), TEXT("k"), TEXT("7"), TEXT("kvcore-test-names.ini")));
    EXPECT_EQ(GetPrivateProfileIntW(TEXT("a"), TEXT("k"), -1, path.c_str()), 7u);
    EXPECT_TRUE(DeleteFileW(path.c_str()));
}

TEST(PrivateProfiles, OtherRelativeNamesLieInTheCurrentDirectory)
{
    ScratchFolder const folder;
    std::filesystem::create_directory(folder / "sub");
    WCHAR before[MAX_PATH];
    ASSERT_NE(GetCurrentDirectoryW(MAX_PATH, before), 0u);
    ASSERT_TRUE(SetCurrentDirectoryW(folder.Name().c_str()));
    EXPECT_TRUE(WritePrivateProfileStringW(TEXT("a"), TEXT("k"), TEXT("1"), TEXT("sub\\x.ini")));
    EXPECT_TRUE(WritePrivateProfileStringW(TEXT("a"), TEXT("k"), TEXT("2"), TEXT(".\\y.ini")));
    EXPECT_TRUE(SetCurrentDirectoryW(before));
    EXPECT_EQ(folder.Read("sub/x.ini"), "[a]\r\nk=1\r\n");
    EXPECT_EQ(folder.Read("y.ini"), "[a]\r\nk=2\r\n");
}

TEST(PrivateProfiles, StructuresComeBackOrFail)
{
    ScratchFolder const folder;
    String const path = folder.Name("x.ini");
    unsigned char bytes[] = {1, 0, 0, 0, 0x68, 0x69, 0, 0};
    EXPECT_TRUE(WritePrivateProfileStructW(TEXT("a"), TEXT("s"), bytes, sizeof bytes, path.c_str()));
    EXPECT_EQ(folder.Read("x.ini"), "[a]\r\ns=0100000068690000D2\r\n");
    unsigned char read[sizeof bytes] = {};
    EXPECT_TRUE(GetPrivateProfileStructW(TEXT("a"), TEXT("s"), read, sizeof read, path.c_str()));
    EXPECT_TRUE(std::equal(read, read + sizeof read, bytes));
    EXPECT_FALSE(GetPrivateProfileStructW(TEXT("a"), TEXT("s"), read, sizeof read - 1, path.c_str()));
    EXPECT_FALSE(GetPrivateProfileStructW(TEXT("a"), TEXT("none"), read, sizeof read, path.c_str()));
    EXPECT_TRUE(WritePrivateProfileStringW(TEXT("a"), TEXT("t"), TEXT("0001FE"), path.c_str()));
    EXPECT_FALSE(GetPrivateProfileStructW(TEXT("a"), TEXT("t"), read, 2, path.c_str()));
}

TEST(PrivateProfiles, FilesThatAreHeldCanBeNeitherReadNorWritten)
{
    Profile const profile("[a]\r\nk=v\r\n");
    HANDLE const alone = CreateFileW(
        profile.Path().c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL,
        nullptr);
    ASSERT_NE(alone, INVALID_HANDLE_VALUE);
    EXPECT_EQ(profile.Text(TEXT("a"), TEXT("k")), TEXT("DEF"));
    EXPECT_EQ(GetLastError(), DWORD(ERROR_SHARING_VIOLATION));
    EXPECT_FALSE(profile.Set(TEXT("a"), TEXT("k"), TEXT("w")));
    EXPECT_EQ(GetLastError(), DWORD(ERROR_SHARING_VIOLATION));
    CloseHandle(alone);
    HANDLE const reader = CreateFileW(
        profile.Path().c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
    EXPECT_EQ(profile.Text(TEXT("a"), TEXT("k")), TEXT("v"));
    EXPECT_FALSE(profile.Set(TEXT("a"), TEXT("k"), TEXT("w")));
    EXPECT_EQ(GetLastError(), DWORD(ERROR_SHARING_VIOLATION));
    CloseHandle(reader);
    EXPECT_TRUE(profile.Set(TEXT("a"), TEXT("k"), TEXT("w")));
}

} // namespace
