#include "Samples.h"
#include "WatchingFactory.h"

#include <gtest/gtest.h>

namespace Storyboard
{

namespace
{

/// One clip of one source, in one bin, as today's classes write it.
constexpr char const * goldenGraph =
    // Project: class, version 1, title "Hi", one bin
    "8C 0A DA A8  01 00  04 00 00 00 48 00 69 00  01 00 00 00"
    // reference 1: new
    "00 00 00 00  11 03 19 80  01 00 00 00"
    // object 2, Bin: class, version 1, a folder, ".", one clip
    "C2 58 5E 1B  01 00  00  01 00 00 00 2E  01 00 00 00"
    // reference 3: new
    "00 00 00 00  11 03 19 80  03 00 00 00"
    // object 4, Clip: class, version 2, path "a.png"
    "C5 0A 1B 52  02 00  05 00 00 00 61 2E 70 6E 67"
    // object 5, Format: class, version 1, a picture, "PNG", 640 x 480, no rate, no channels
    "9C 56 F3 E2  01 00  01  03 00 00 00 50 4E 47  80 02 00 00  E0 01 00 00  00 00 00 00  00 00 00 00"
    // object 6, Range: class, version 1, from 0, 5 s
    "CC 14 51 F6  01 00  00 00 00 00 00 00 00 00  80 F0 FA 02 00 00 00 00"
    // reference 7: new
    "00 00 00 00  11 03 19 80  07 00 00 00"
    // object 8, Media: class, version 2, path "a.png", 258 bytes, the sum, modified at tick 1
    "B7 16 51 F6  02 00  05 00 00 00 61 2E 70 6E 67  02 01 00 00 00 00 00 00"
    "20 00 00 00  30 30 31 31 32 32 33 33 34 34 35 35 36 36 37 37 38 38 39 39 41 41 42 42 43 43 44 44 45 45 46 46"
    "01 00 00 00 00 00 00 00"
    // object 9, Transition: class, version 1, a fade, 1 s
    "32 33 FF CE  01 00  01  80 96 98 00 00 00 00 00";

Ptr<Project> GoldenProject()
{
    Ptr<Media> const media = MakeMedia("a.png", 258, "00112233445566778899AABBCCDDEEFF", 1);
    Ptr<Project> const project = Ptr<Project>::Make();
    project->title = TEXT("Hi");
    project->bins = {MakeBin(Bin::Kind::Folder, ".", {MakeClip("a.png", media, Format::Kind::Picture)})};
    return project;
}

/// The same as the first version of the program wrote it: Clip without a transition, Media under its former name and
/// without a time.
constexpr char const * formerGraph =
    "8C 0A DA A8  01 00  04 00 00 00 48 00 69 00  01 00 00 00"
    "00 00 00 00  11 03 19 80  01 00 00 00"
    "C2 58 5E 1B  01 00  00  01 00 00 00 2E  01 00 00 00"
    "00 00 00 00  11 03 19 80  03 00 00 00"
    // Clip, version 1
    "C5 0A 1B 52  01 00  05 00 00 00 61 2E 70 6E 67"
    "9C 56 F3 E2  01 00  01  03 00 00 00 50 4E 47  80 02 00 00  E0 01 00 00  00 00 00 00  00 00 00 00"
    "CC 14 51 F6  01 00  00 00 00 00 00 00 00 00  80 F0 FA 02 00 00 00 00"
    "00 00 00 00  11 03 19 80  07 00 00 00"
    // Footage, version 1
    "BC 25 DA A8  01 00  05 00 00 00 61 2E 70 6E 67  02 01 00 00 00 00 00 00"
    "20 00 00 00  30 30 31 31 32 32 33 33 34 34 35 35 36 36 37 37 38 38 39 39 41 41 42 42 43 43 44 44 45 45 46 46";

/// What reading these bytes as a graph fails with.
std::string FailureOf(std::string const & bytes)
{
    try
    {
        LoadedGraph const graph(bytes);
        return "none";
    }
    catch (StreamBase::Exception const & failure)
    {
        return std::to_string(failure.code) + ' ' + failure.text.Utf8();
    }
}

/// The golden graph with other bytes from `offset` on.
std::string Altered(std::size_t offset, std::string_view hex)
{
    std::string bytes = FromHex(goldenGraph);
    std::string const replacement = FromHex(hex);
    bytes.replace(offset, replacement.size(), replacement);
    return bytes;
}

// Where things stand in the golden graph.
constexpr std::size_t binCountAt = 14;
constexpr std::size_t binReferenceAt = 18;
constexpr std::size_t binAt = 30;
constexpr std::size_t clipCountAt = 42;
constexpr std::size_t clipReferenceAt = 46;
constexpr std::size_t clipPathAt = 68;
constexpr std::size_t formatKindAt = 79;

} // namespace

TEST(ProjectModel, IsWrittenAsTheseBytes)
{
    EXPECT_EQ(ToHex(StoreGraph(*GoldenProject())), ToHex(FromHex(goldenGraph)));
}

TEST(ProjectModel, IsReadFromTheseBytes)
{
    EXPECT_EQ(Describe(*LoadedGraph(FromHex(goldenGraph)).project), Describe(*GoldenProject()));
}

TEST(ProjectModel, ReadsFormerVersionsAndNames)
{
    Ptr<Project> const expected = GoldenProject();
    Clip & clip = *expected->bins[0]->clips[0];
    clip.transition.kind = Transition::Kind::Cut;
    clip.transition.length = 0;
    clip.media->modified = 0;
    EXPECT_EQ(Describe(*LoadedGraph(FromHex(formerGraph)).project), Describe(*expected));
}

TEST(ProjectModel, WritesWhatItReadFromAFormerVersionAsToday)
{
    LoadedGraph const former(FromHex(formerGraph));
    std::string const today = StoreGraph(*former.project);
    EXPECT_NE(ToHex(today), ToHex(FromHex(formerGraph)));
    EXPECT_EQ(Describe(*LoadedGraph(today).project), Describe(*former.project));
}

TEST(ProjectModel, ComesBackWithItsSharing)
{
    Ptr<Project> const project = SampleProject();
    LoadedGraph const graph(StoreGraph(*project));
    EXPECT_EQ(Describe(*graph.project), Describe(*project));
    EXPECT_EQ(graph.project->bins[0]->clips[0].Get(), graph.project->bins[2]->clips[0].Get());
    EXPECT_EQ(graph.project->bins[0]->clips[0]->media.Get(), graph.project->bins[1]->clips[2]->media.Get());
}

TEST(ProjectModel, EmptyProjectComesBack)
{
    EXPECT_EQ(Describe(*LoadedGraph(StoreGraph(*Ptr<Project>::Make())).project), "\n");
}

TEST(ProjectModel, CountsWhatTheFormatShares)
{
    LoadedGraph const graph(StoreGraph(*SampleProject()));
    SharingStatistics const & sharing = graph.stream.Statistics();
    // 3 bins, 8 places in bins, 5 sources of clips; 3 clips come again in the collection, one source in a second clip.
    EXPECT_EQ(sharing.references, 3 + 8 + 5);
    EXPECT_EQ(sharing.repeatedReferences, 3 + 1);
    // 5 clips with 3 values: 3 different formats, 2 lengths, 2 transitions.
    EXPECT_EQ(sharing.values, 5 * 3);
    EXPECT_EQ(sharing.repeatedValues, 15 - 3 - 2 - 2);
    // Two more picture formats, three more lengths, three more transitions.
    EXPECT_EQ(sharing.repeatedValuesSize, 2 * (6 + 24) + 3 * (6 + 16) + 3 * (6 + 9));
}

TEST(ProjectModel, CountsTheSizeOfARepeatedObjectWithoutThoseWithinIt)
{
    Ptr<Project> const project = GoldenProject();
    project->bins[0]->clips.push_back(project->bins[0]->clips[0]);
    LoadedGraph const graph(StoreGraph(*project));
    EXPECT_EQ(graph.stream.Statistics().repeatedReferences, 1);
    // A clip's class, version and path, and the reference to its source.
    EXPECT_EQ(graph.stream.Statistics().repeatedObjectsSize, 6 + 9 + 12);
}

TEST(ProjectModel, CountsEachClipAndSourceOnce)
{
    ProjectCount const count = Count(*SampleProject());
    EXPECT_EQ(count.folders, 2);
    EXPECT_EQ(count.collections, 1);
    EXPECT_EQ(count.clips, 5);
    EXPECT_EQ(count.sources, 4);
    EXPECT_EQ(count.size, 1234u + 987'654'321'012u + 9u);
}

TEST(ProjectModel, ForgedFieldsAreRefused)
{
    struct
    {
        char const * what;
        std::string bytes;
        char const * failure;
    } const cases[] = {
        {"no project at all", FromHex("C2 58 5E 1B 01 00"), "3 Unexpected object in stream"},
        {"a project of the future", Altered(4, "02 00"), "6 Object version too high"},
        {"a negative count", Altered(binCountAt, "FF FF FF FF"), "3 Illegal value in project"},
        {"a count that the bytes do not back", Altered(clipCountAt, "FF FF FF 7F"), "5 Memory block too short"},
        {"a null reference", Altered(binReferenceAt + 8, "00 00 00 00"), "3 Missing object in project"},
        {"a bin that is a clip", Altered(binAt, "C5 0A 1B 52"), "5 Memory block too short"},
        {"a bin that holds itself", Altered(clipReferenceAt + 8, "02 00 00 00"), "3 Wrong object in project"},
        {"a bin that is a format",
         FromHex("8C 0A DA A8  01 00  00 00 00 00  01 00 00 00  00 00 00 00  11 03 19 80  01 00 00 00"
                 "CC 14 51 F6  01 00  00 00 00 00 00 00 00 00  80 F0 FA 02 00 00 00 00"),
         "3 Wrong object in project"},
        {"an unknown kind of bin", Altered(binAt + 6, "02"), "3 Illegal value in project"},
        {"an unknown kind of format", Altered(formatKindAt, "05"), "3 Illegal value in project"},
        {"a path out of the folder", Altered(clipPathAt, "2E 2E 2F 65 65"), "3 Illegal path in project"},
        {"a path from the root", Altered(clipPathAt, "2F"), "3 Illegal path in project"},
        {"a title of two gigabytes", Altered(6, "FE FF FF 7F"), "3 Illegal text length in project"},
        {"a title that is longer than titles may be", Altered(6, "02 00 01 00"), "3 Illegal text length in project"},
        {"a title that ends within a unit", Altered(6, "03 00 00 00"), "3 Illegal text length in project"},
        {"a path of two gigabytes", Altered(clipPathAt - 4, "FF FF FF 7F"), "3 Illegal text length in project"},
        {"a negative width", Altered(formatKindAt + 8, "FF FF FF FF"), "3 Illegal value in project"},
        {"a negative length", Altered(formatKindAt + 24 + 6 + 8, "FF FF FF FF FF FF FF FF"),
         "3 Illegal value in project"},
    };
    for (auto const & one : cases)
    {
        EXPECT_EQ(FailureOf(one.bytes), one.failure) << one.what;
    }
}

TEST(ProjectModel, TheLongestTitleIsRead)
{
    Ptr<Project> const project = GoldenProject();
    project->title = String::FromChar(TEXT('x'), maxTitleSize);
    MemoryOutputStream file;
    WriteProject(*project, file);
    MemorySource source(file.GetContent());
    EXPECT_EQ(ReadProject(source).project->title, project->title);
}

TEST(ProjectModel, ForgedNestingIsRefused)
{
    // A project with a bin that is a project with a bin that is ...
    std::string bytes;
    int number = 0;
    for (int depth = 0; depth < 1000; ++depth)
    {
        bytes += FromHex("8C 0A DA A8  01 00  00 00 00 00  01 00 00 00  00 00 00 00  11 03 19 80");
        ++number;
        bytes += static_cast<char>(number & 0xFF);
        bytes += static_cast<char>(number >> 8);
        bytes += std::string(2, '\0');
        ++number;
    }
    EXPECT_EQ(FailureOf(bytes), "3 Objects nested too deeply in project");
}

TEST(ProjectModel, SmallFileCannotClaimAnyNumberOfObjects)
{
    std::string const bytes = StoreGraph(*SampleProject());
    constexpr std::int64_t objects = 16 + 15; // references and values, as counted above
    EXPECT_EQ(Describe(*LoadedGraph(bytes, ProjectFactory(), objects).project), Describe(*SampleProject()));
    try
    {
        LoadedGraph const graph(bytes, ProjectFactory(), objects - 1);
        ADD_FAILURE();
    }
    catch (StreamBase::Exception const & failure)
    {
        EXPECT_EQ(failure.code, 3);
        EXPECT_EQ(failure.text.Utf8(), "Too many objects in project");
    }
}

TEST(ProjectModel, PathsStayInTheFolder)
{
    for (char const * const good : {"a", "a/b", "...", ".a", "a.", "a b/c\\d", "..a/b..", " "})
    {
        EXPECT_TRUE(IsStoredPath(good)) << good;
    }
    for (char const * const bad : {"", "/", "/a", "a/", "a//b", ".", "..", "../a", "a/..", "a/../b", "a/./b"})
    {
        EXPECT_FALSE(IsStoredPath(bad)) << bad;
    }
    EXPECT_FALSE(IsStoredPath(std::string("a\0b", 3)));
    EXPECT_TRUE(IsStoredPath(std::string(maxPathSize, 'x')));
    EXPECT_FALSE(IsStoredPath(std::string(maxPathSize + 1, 'x')));
}

/// Reads graphs and looks at the references afterwards.
class ProjectReferences : public testing::Test
{
protected:
    /// True if the bytes are a project.
    bool Reads(std::string const & bytes)
    {
        bool good = true;
        try
        {
            // Without the watch as well: it keeps memory from being used again, and so may hide an error.
            LoadedGraph const watched(bytes, factory);
            LoadedGraph const graph(bytes);
        }
        catch (StreamBase::Exception const & failure)
        {
            EXPECT_TRUE(failure.code == 3 || failure.code == 5 || failure.code == 6) << failure.code;
            good = false;
            EXPECT_THROW(LoadedGraph{bytes}, StreamBase::Exception);
        }
        return good;
    }

    WatchingFactory factory;
};

TEST_F(ProjectReferences, AreAllReleased)
{
    EXPECT_TRUE(Reads(StoreGraph(*SampleProject())));
    EXPECT_GT(factory.Made(), 10u);
    EXPECT_EQ(factory.ReleaseAll(), 0u);
}

TEST_F(ProjectReferences, AreAllReleasedFromAnObjectThatHoldsItself)
{
    EXPECT_FALSE(Reads(Altered(clipReferenceAt + 8, "02 00 00 00")));
    EXPECT_EQ(factory.ReleaseAll(), 0u);
}

TEST_F(ProjectReferences, AreAllReleasedWhereverTheGraphIsCut)
{
    std::string const bytes = StoreGraph(*SampleProject());
    for (std::size_t size = 0; size < bytes.size(); ++size)
    {
        EXPECT_FALSE(Reads(bytes.substr(0, size))) << size;
        ASSERT_EQ(factory.ReleaseAll(), 0u) << size;
    }
}

TEST_F(ProjectReferences, AreAllReleasedWhicheverByteIsChanged)
{
    std::string const bytes = StoreGraph(*SampleProject());
    int refused = 0;
    for (std::size_t i = 0; i < bytes.size(); ++i)
    {
        for (int const mask : {0x01, 0x02, 0x03, 0x04, 0x06, 0x08, 0x10, 0x20, 0x40, 0x80, 0xFF})
        {
            std::string changed = bytes;
            changed[i] = static_cast<char>(changed[i] ^ mask);
            refused += !Reads(changed);
            ASSERT_EQ(factory.ReleaseAll(), 0u) << i << ' ' << mask;
        }
    }
    EXPECT_GT(refused, 0);
}

TEST_F(ProjectReferences, AreAllReleasedWhereverAReferenceLeads)
{
    // Every number of the graph, in place of every index.
    std::string const bytes = StoreGraph(*SampleProject());
    std::string const command = FromHex("11 03 19 80");
    int references = 0;
    for (std::size_t at = bytes.find(command); at != std::string::npos; at = bytes.find(command, at + 1))
    {
        ++references;
        for (int index = -1; index < 60; ++index)
        {
            std::string changed = bytes;
            for (std::size_t i = 0; i < 4; ++i)
            {
                changed[at + 4 + i] = static_cast<char>(index >> 8 * i);
            }
            Reads(changed);
            ASSERT_EQ(factory.ReleaseAll(), 0u) << at << ' ' << index;
        }
    }
    EXPECT_EQ(references, 16);
}

} // namespace Storyboard
