#include <kvcore/config/SectionedConfigData.h>
#include <kvcore/files/FileStreams.h>
#include <kvcore/platform/win32.h>
#include <support/ScratchFolder.h>

namespace
{

/// What an operation throws: its kind, -1 if it throws nothing.
struct Failure
{
    int kind;
    String text;
};

template <class Operation>
Failure FailureOf(Operation && operation)
{
    try
    {
        operation();
        return {-1, String()};
    }
    catch (SectionedConfigData::Exception const & exception)
    {
        return {exception.kind, exception.text};
    }
}

Failure ReadFailure(SectionedConfigData & data, String const & path)
{
    return FailureOf([&] { data.ReadWindowsProfile(path); });
}

Failure WriteFailure(SectionedConfigData const & data, String const & path)
{
    return FailureOf([&] { data.WriteWindowsProfile(path); });
}

String TextOf(SectionedConfigData const & data, String const & section, String const & key)
{
    String text(TEXT("(missing)"));
    data.GetString(section, key, text);
    return text;
}

std::vector<String> SectionsOf(SectionedConfigData const & data)
{
    std::vector<String> names;
    data.GetSectionNames(names);
    return names;
}

SectionedConfigData Sample()
{
    SectionedConfigData data;
    data.SetString(TEXT("one"), TEXT("a"), TEXT("1"));
    data.SetString(TEXT("one"), TEXT("b"), TEXT("x y"));
    data.SetString(TEXT("two"), TEXT("c"), TEXT(""));
    return data;
}

TEST(ConfigFiles, WhatIsWrittenIsRead)
{
    ScratchFolder const folder;
    Sample().WriteWindowsProfile(folder.Name("x.ini"));
    SectionedConfigData read;
    read.ReadWindowsProfile(folder.Name("x.ini"));
    EXPECT_EQ(SectionsOf(read), (std::vector<String>{TEXT("one"), TEXT("two")}));
    EXPECT_EQ(TextOf(read, TEXT("one"), TEXT("a")), TEXT("1"));
    EXPECT_EQ(TextOf(read, TEXT("one"), TEXT("b")), TEXT("x y"));
    EXPECT_EQ(TextOf(read, TEXT("two"), TEXT("c")), TEXT(""));
    EXPECT_EQ(read.GetNumKeys(TEXT("one")), 2);
}

TEST(ConfigFiles, SectionsEndInAnEmptyLine)
{
    ScratchFolder const folder;
    SectionedConfigData data;
    data.SetString(TEXT("s"), TEXT("k"), TEXT("v"));
    data.SetString(TEXT("s"), TEXT("a"), TEXT("w"));
    data.WriteWindowsProfile(folder.Name("x.ini"));
    EXPECT_EQ(folder.Read("x.ini"), "[s]\r\na=w\r\nk=v\r\n\r\n");
}

TEST(ConfigFiles, SectionsAndKeysAreWrittenInTheOrderOfTheirUnits)
{
    ScratchFolder const folder;
    SectionedConfigData data;
    for (WCHAR const * const section : {TEXT("c"), TEXT("B"), TEXT("a")})
    {
        data.SetString(section, TEXT("z"), TEXT("1"));
        data.SetString(section, TEXT("Y"), TEXT("2"));
    }
    data.WriteWindowsProfile(folder.Name("x.ini"));
    std::string const written = folder.Read("x.ini");
    std::size_t place = 0;
    for (char const * const line : {"[B]\r\n", "Y=2\r\n", "z=1\r\n", "[a]\r\n", "[c]\r\n"})
    {
        std::size_t const found = written.find(line, place);
        ASSERT_NE(found, std::string::npos) << line << " in " << written;
        place = found + 1;
    }
}

TEST(ConfigFiles, NoSectionsWriteNoFile)
{
    ScratchFolder const folder;
    SectionedConfigData().WriteWindowsProfile(folder.Name("x.ini"));
    EXPECT_FALSE(std::filesystem::exists(folder / "x.ini"));
}

// Merging

TEST(ConfigFiles, ReadSectionsReplaceThoseInMemoryAsAWhole)
{
    ScratchFolder const folder;
    folder.Write("x.ini", "[A]\r\nk2=2\r\n");
    SectionedConfigData data;
    data.SetString(TEXT("A"), TEXT("k1"), TEXT("1"));
    data.SetString(TEXT("B"), TEXT("k"), TEXT("stays"));
    data.ReadWindowsProfile(folder.Name("x.ini"));
    std::vector<String> keys;
    EXPECT_TRUE(data.GetKeyNames(TEXT("A"), keys));
    EXPECT_EQ(keys, std::vector<String>{TEXT("k2")});
    EXPECT_EQ(TextOf(data, TEXT("B"), TEXT("k")), TEXT("stays"));
}

TEST(ConfigFiles, WithoutAHeaderForeignSectionsSurviveAWrite)
{
    ScratchFolder const folder;
    folder.Write("x.ini", "[other]\r\nk=v\r\n[one]\r\nold=1\r\n");
    Sample().WriteWindowsProfile(folder.Name("x.ini"));
    SectionedConfigData read;
    read.ReadWindowsProfile(folder.Name("x.ini"));
    EXPECT_EQ(TextOf(read, TEXT("other"), TEXT("k")), TEXT("v"));
    EXPECT_EQ(TextOf(read, TEXT("one"), TEXT("old")), TEXT("(missing)"));
    EXPECT_EQ(read.GetNumSections(), 3);
}

TEST(ConfigFiles, WithAHeaderAWriteEmptiesTheFile)
{
    ScratchFolder const folder;
    folder.Write("x.ini", "[other]\r\nk=v\r\n");
    SectionedConfigData data = Sample();
    data.SetHeader(TEXT("# settings 1\r\n"));
    data.WriteWindowsProfile(folder.Name("x.ini"));
    EXPECT_EQ(folder.Read("x.ini").substr(0, 19), "# settings 1\r\n[one]");
    SectionedConfigData read;
    read.ReadWindowsProfile(folder.Name("x.ini"));
    EXPECT_EQ(SectionsOf(read), (std::vector<String>{TEXT("one"), TEXT("two")}));
}

TEST(ConfigFiles, HeaderWithoutALineEndGetsOneBeforeTheSections)
{
    ScratchFolder const folder;
    SectionedConfigData data = Sample();
    data.SetHeader(TEXT("HEADER"));
    data.WriteWindowsProfile(folder.Name("x.ini"));
    SectionedConfigData read;
    read.SetHeader(TEXT("HEADER"));
    read.ReadWindowsProfile(folder.Name("x.ini"));
    EXPECT_EQ(SectionsOf(read), (std::vector<String>{TEXT("one"), TEXT("two")}));
}

// Headers

TEST(ConfigFiles, AnotherHeaderIsRefusedBeforeAnythingChanges)
{
    ScratchFolder const folder;
    folder.Write("other.ini", "headex[one]\r\na=2\r\n");
    folder.Write("short.ini", "head");
    folder.Write("empty.ini", "");
    for (char const * const name : {"other.ini", "short.ini", "empty.ini"})
    {
        SectionedConfigData data = Sample();
        data.SetHeader(TEXT("header"));
        Failure const failure = ReadFailure(data, folder.Name(name));
        EXPECT_EQ(failure.kind, 1) << name;
        EXPECT_EQ(failure.text, TEXT("")) << name;
        EXPECT_EQ(TextOf(data, TEXT("one"), TEXT("a")), TEXT("1"));
        EXPECT_EQ(data.GetNumSections(), 2);
    }
}

TEST(ConfigFiles, WithoutAHeaderAFileWithOneIsReadAsItComes)
{
    ScratchFolder const folder;
    folder.Write("x.ini", "header\r\n[one]\r\na=2\r\n");
    SectionedConfigData data;
    data.ReadWindowsProfile(folder.Name("x.ini"));
    EXPECT_EQ(TextOf(data, TEXT("one"), TEXT("a")), TEXT("2"));
    EXPECT_EQ(data.GetNumSections(), 1);
}

TEST(ConfigFiles, MissingFileFailsOnlyWhereAHeaderIsLookedFor)
{
    ScratchFolder const folder;
    SectionedConfigData data = Sample();
    EXPECT_EQ(ReadFailure(data, folder.Name("none.ini")).kind, -1);
    EXPECT_EQ(ReadFailure(data, folder.Name("none\\none.ini")).kind, -1) << "nor is the folder";
    EXPECT_EQ(data.GetNumSections(), 2);
    data.SetHeader(TEXT("header"));
    Failure const failure = ReadFailure(data, folder.Name("none.ini"));
    EXPECT_EQ(failure.kind, 0);
    EXPECT_EQ(failure.text, String::FromError(ERROR_FILE_NOT_FOUND));
}

// Where reader and writer differ

TEST(ConfigFiles, OfSectionsThatDifferInCaseTheLastIsWhatTheFileHolds)
{
    ScratchFolder const folder;
    SectionedConfigData data;
    data.SetString(TEXT("S"), TEXT("k"), TEXT("upper"));
    data.SetString(TEXT("s"), TEXT("j"), TEXT("lower"));
    data.WriteWindowsProfile(folder.Name("x.ini"));
    SectionedConfigData read;
    read.ReadWindowsProfile(folder.Name("x.ini"));
    EXPECT_EQ(SectionsOf(read), std::vector<String>{TEXT("S")});
    EXPECT_EQ(TextOf(read, TEXT("S"), TEXT("j")), TEXT("lower"));
    EXPECT_EQ(read.GetNumKeys(TEXT("S")), 1);
}

TEST(ConfigFiles, KeysThatLookLikeCommentsAreWrittenAndNotRead)
{
    ScratchFolder const folder;
    SectionedConfigData data = Sample();
    data.SetString(TEXT("one"), TEXT(";c"), TEXT("3"));
    data.WriteWindowsProfile(folder.Name("x.ini"));
    EXPECT_NE(folder.Read("x.ini").find(";c=3\r\n"), std::string::npos);
    SectionedConfigData read;
    read.ReadWindowsProfile(folder.Name("x.ini"));
    EXPECT_EQ(read.GetNumKeys(TEXT("one")), 2);
}

TEST(ConfigFiles, KeysAreReadUpToTheFirstEqualsSign)
{
    ScratchFolder const folder;
    SectionedConfigData data;
    data.SetString(TEXT("s"), TEXT("k=1"), TEXT("2=3"));
    data.WriteWindowsProfile(folder.Name("x.ini"));
    SectionedConfigData read;
    read.ReadWindowsProfile(folder.Name("x.ini"));
    EXPECT_EQ(TextOf(read, TEXT("s"), TEXT("k")), TEXT("1=2=3"));
}

TEST(ConfigFiles, ValuesWithALineBreakComeBackBroken)
{
    ScratchFolder const folder;
    SectionedConfigData data;
    data.SetString(TEXT("s"), TEXT("a"), TEXT("first\r\nsecond\r\nb=third"));
    data.SetString(TEXT("s"), TEXT("z"), TEXT("last"));
    data.WriteWindowsProfile(folder.Name("x.ini"));
    SectionedConfigData read;
    read.ReadWindowsProfile(folder.Name("x.ini"));
    EXPECT_EQ(TextOf(read, TEXT("s"), TEXT("a")), TEXT("first"));
    EXPECT_EQ(TextOf(read, TEXT("s"), TEXT("b")), TEXT("third"));
    EXPECT_EQ(TextOf(read, TEXT("s"), TEXT("z")), TEXT("last"));
}

TEST(ConfigFiles, TheLineEndBehindASectionIsNoPartOfItsLastValue)
{
    ScratchFolder const folder;
    Sample().WriteWindowsProfile(folder.Name("x.ini"));
    SectionedConfigData read;
    read.ReadWindowsProfile(folder.Name("x.ini"));
    EXPECT_EQ(TextOf(read, TEXT("one"), TEXT("b")), TEXT("x y"));
}

TEST(ConfigFiles, BlanksAroundKeysAndValuesAreLost)
{
    ScratchFolder const folder;
    SectionedConfigData data;
    data.SetString(TEXT("s"), TEXT(" k "), TEXT("  v w "));
    data.SetString(TEXT("s"), TEXT("q"), TEXT("\" v \""));
    data.WriteWindowsProfile(folder.Name("x.ini"));
    SectionedConfigData read;
    read.ReadWindowsProfile(folder.Name("x.ini"));
    EXPECT_EQ(TextOf(read, TEXT("s"), TEXT("k")), TEXT("v w"));
    EXPECT_EQ(TextOf(read, TEXT("s"), TEXT("q")), TEXT("\" v \""));
}

TEST(ConfigFiles, ASectionWithoutLinesStopsTheReadInTheMiddle)
{
    ScratchFolder const folder;
    folder.Write("x.ini", "[one]\r\na=2\r\n[two]\r\n\r\n[three]\r\nd=4\r\n");
    SectionedConfigData data = Sample();
    Failure const failure = ReadFailure(data, folder.Name("x.ini"));
    EXPECT_EQ(failure.kind, 1);
    EXPECT_EQ(failure.text, TEXT(""));
    EXPECT_EQ(SectionsOf(data), std::vector<String>{TEXT("one")});
    EXPECT_EQ(TextOf(data, TEXT("one"), TEXT("a")), TEXT("2"));
}

TEST(ConfigFiles, ASectionOfOtherLinesReadsAsAnEmptyOne)
{
    ScratchFolder const folder;
    folder.Write("x.ini", "[one]\r\nno key here\r\n");
    SectionedConfigData data = Sample();
    data.ReadWindowsProfile(folder.Name("x.ini"));
    EXPECT_EQ(data.GetNumSections(), 2);
    EXPECT_EQ(data.GetNumKeys(TEXT("one")), 0);
    // The writer takes it, and the reader then does not.
    data.ClearSection(TEXT("two"));
    data.WriteWindowsProfile(folder.Name("x.ini"));
    EXPECT_EQ(ReadFailure(data, folder.Name("x.ini")).kind, 1);
    EXPECT_EQ(data.GetNumSections(), 0);
}

TEST(ConfigFiles, ASectionOfCommentsReadsAsAnEmptyOneWhereThePlatformHandsThemOut)
{
    ScratchFolder const folder;
    folder.Write("x.ini", "[one]\r\n; nothing\r\n;a=2\r\n");
    WCHAR lines[100];
    bool const handedOut = GetPrivateProfileSectionW(TEXT("one"), lines, 100, folder.Name("x.ini").c_str()) != 0;
    SectionedConfigData data = Sample();
    EXPECT_EQ(ReadFailure(data, folder.Name("x.ini")).kind, handedOut ? -1 : 1);
    EXPECT_EQ(data.GetNumSections(), handedOut ? 2 : 1);
    EXPECT_EQ(data.GetNumKeys(TEXT("one")), 0);
#ifndef _WIN32
    // The platform layer hands comments out; runtimes for Windows differ.
    EXPECT_TRUE(handedOut);
#endif
}

TEST(ConfigFiles, ClearKeyRemovesASectionThatWasEmptyBefore)
{
    ScratchFolder const folder;
    folder.Write("x.ini", "[one]\r\nno key here\r\n");
    SectionedConfigData data;
    data.ReadWindowsProfile(folder.Name("x.ini"));
    EXPECT_EQ(data.GetNumSections(), 1);
    data.ClearKey(TEXT("one"), TEXT("missing"));
    EXPECT_EQ(data.GetNumSections(), 0);
}

TEST(ConfigFiles, OfARepeatedKeyTheLastValueCounts)
{
    ScratchFolder const folder;
    folder.Write("x.ini", "[s]\r\nk=1\r\nj=0\r\nk=2\r\n");
    SectionedConfigData data;
    data.ReadWindowsProfile(folder.Name("x.ini"));
    EXPECT_EQ(TextOf(data, TEXT("s"), TEXT("k")), TEXT("2"));
}

// Limits

TEST(ConfigFiles, SectionsAreReadUpToTheLimitAndWrittenBeyondIt)
{
    ScratchFolder const folder;
    constexpr unsigned int longest = 0x7FFC - 3; // "k=" and a NUL are in the same room
    for (unsigned int const length : {longest, longest + 1, 3 * longest})
    {
        SectionedConfigData data;
        data.SetString(TEXT("a"), TEXT("k"), TEXT("v"));
        data.SetString(TEXT("b"), TEXT("k"), String::FromChar('x', static_cast<int>(length)));
        data.WriteWindowsProfile(folder.Name("x.ini"));
        SectionedConfigData read;
        read.SetString(TEXT("b"), TEXT("old"), TEXT("v"));
        EXPECT_EQ(ReadFailure(read, folder.Name("x.ini")).kind, length == longest ? -1 : 1);
        EXPECT_EQ(TextOf(read, TEXT("a"), TEXT("k")), TEXT("v"));
        EXPECT_EQ(TextOf(read, TEXT("b"), TEXT("old")), TEXT("(missing)"));
        EXPECT_EQ(TextOf(read, TEXT("b"), TEXT("k")).size(), length == longest ? length : 9u);
    }
}

TEST(ConfigFiles, SectionNamesAreReadUpToTheLimit)
{
    ScratchFolder const folder;
    constexpr std::size_t longest = 0x7FFC - 1;
    for (std::size_t const length : {longest, longest + 1, 3 * longest})
    {
        folder.Write("x.ini", "[" + std::string(length, 'n') + "]\r\nk=v\r\n");
        SectionedConfigData read;
        EXPECT_EQ(ReadFailure(read, folder.Name("x.ini")).kind, length == longest ? -1 : 0);
        EXPECT_EQ(read.GetNumSections(), length == longest ? 1 : 0);
    }
}

TEST(ConfigFiles, WhatDoesNotFitFailsWithTheSystemsText)
{
    constexpr DWORD room = 0x7FFF;
    ScratchFolder const folder;
    folder.Write("section.ini", "[s]\r\nk=" + std::string(room, 'x') + "\r\n");
    folder.Write("names.ini", "[" + std::string(room, 'n') + "]\r\nk=v\r\n");
    String const section = folder.Name("section.ini");
    String const names = folder.Name("names.ini");
    WString buffer(room, 0);
    SetLastError(ERROR_SUCCESS);
    ASSERT_EQ(GetPrivateProfileSectionW(TEXT("s"), buffer.data(), room, section.c_str()), room - 2);
    String const sectionText = String::FromError(GetLastError());
    SetLastError(ERROR_SUCCESS);
    ASSERT_EQ(GetPrivateProfileSectionNamesW(buffer.data(), room, names.c_str()), room - 2);
    String const namesText = String::FromError(GetLastError());

    SectionedConfigData data;
    Failure const longSection = ReadFailure(data, section);
    EXPECT_EQ(longSection.kind, 1);
    EXPECT_EQ(longSection.text, sectionText);
    Failure const longNames = ReadFailure(data, names);
    EXPECT_EQ(longNames.kind, 0);
    EXPECT_EQ(longNames.text, namesText);
}

// Failures

TEST(ConfigFiles, AVanishedFolderFailsWithTheSystemsText)
{
    ScratchFolder const folder;
    SectionedConfigData data = Sample();
    String const path = folder.Name("gone\\x.ini");
    Failure const plain = WriteFailure(data, path);
    EXPECT_EQ(plain.kind, 0);
    EXPECT_EQ(plain.text, String::FromError(ERROR_PATH_NOT_FOUND));
    data.SetHeader(TEXT("header"));
    Failure const withHeader = WriteFailure(data, path);
    EXPECT_EQ(withHeader.kind, 0);
    EXPECT_EQ(withHeader.text, String::FromError(ERROR_PATH_NOT_FOUND));
    EXPECT_EQ(ReadFailure(data, path).kind, 0);
}

TEST(ConfigFiles, AFileThatAnotherHoldsFailsWithTheSystemsText)
{
    ScratchFolder const folder;
    folder.Write("x.ini", "header[one]\r\na=9\r\n");
    BasicFileStream const holder(
        folder.Name("x.ini"), FileAccess_Read, FileShare_None, FileCreation_OpenExisting, FileAttributes_Normal);
    SectionedConfigData data = Sample();
    Failure const plain = WriteFailure(data, folder.Name("x.ini"));
    EXPECT_EQ(plain.kind, 0);
    EXPECT_EQ(plain.text, String::FromError(ERROR_SHARING_VIOLATION));
    data.SetHeader(TEXT("header"));
    EXPECT_EQ(WriteFailure(data, folder.Name("x.ini")).text, String::FromError(ERROR_SHARING_VIOLATION));
    Failure const read = ReadFailure(data, folder.Name("x.ini"));
    EXPECT_EQ(read.kind, 0);
    EXPECT_EQ(read.text, String::FromError(ERROR_SHARING_VIOLATION));
}

TEST(ConfigFiles, AFolderIsNoFile)
{
    ScratchFolder const folder;
    SectionedConfigData data = Sample();
    EXPECT_EQ(WriteFailure(data, folder.Name()).kind, 0);
    data.SetHeader(TEXT("header"));
    EXPECT_EQ(WriteFailure(data, folder.Name()).kind, 0);
    EXPECT_EQ(ReadFailure(data, folder.Name()).kind, 0);
}

// Encodings

TEST(ConfigFiles, FilesWithAByteOrderMarkAreReadAndKeepTheirEncoding)
{
    using namespace std::string_literals;
    ScratchFolder const folder;
    SectionedConfigData data;
    data.SetString(TEXT("s"), TEXT("k"), TEXT("\x20AC\xE4"));
    for (std::string const & mark : {"\xFF\xFE"s, "\xFE\xFF"s, "\xEF\xBB\xBF"s})
    {
        folder.Write("x.ini", mark);
        data.WriteWindowsProfile(folder.Name("x.ini"));
        EXPECT_EQ(folder.Read("x.ini").substr(0, mark.size()), mark);
        SectionedConfigData read;
        read.ReadWindowsProfile(folder.Name("x.ini"));
        EXPECT_EQ(TextOf(read, TEXT("s"), TEXT("k")), TEXT("\x20AC\xE4"));
    }
}

TEST(ConfigFiles, HeadersAreInTheSystemsCodePage)
{
    ScratchFolder const folder;
    SectionedConfigData data = Sample();
    data.SetHeader(TEXT("\xE4;\r\n"));
    data.WriteWindowsProfile(folder.Name("x.ini"));
    std::string const header = data.GetHeader().SystemMultibyte();
    EXPECT_EQ(folder.Read("x.ini").substr(0, header.size()), header);
    SectionedConfigData read;
    read.SetHeader(TEXT("\xE4;\r\n"));
    EXPECT_EQ(ReadFailure(read, folder.Name("x.ini")).kind, -1);
    EXPECT_EQ(read.GetNumSections(), 2);
}

} // namespace
