#include "Samples.h"
#include "WatchingFactory.h"

#include <gtest/gtest.h>

#include <kvcore/examples/storyboard/Failure.h>
#include <kvcore/streams/CRC.h>
#include <kvcore/streams/Compressing.h>
#include <support/ScratchFolder.h>

namespace Storyboard
{

namespace
{

/// What reading these bytes as a project file fails with.
std::string FailureOf(std::string const & file)
{
    try
    {
        Load(file);
        return "none";
    }
    catch (StreamBase::Exception const & failure)
    {
        return std::to_string(failure.code) + ' ' + failure.text.Utf8();
    }
}

std::string InBlocks(std::string const & bytes)
{
    MemoryOutputStream memory;
    {
        CRCOutputStream blocks(memory);
        blocks.Write(bytes.data(), static_cast<int>(bytes.size()));
    }
    return memory.GetContent();
}

std::string Compressed(std::string const & bytes)
{
    MemoryOutputStream memory;
    {
        CompressingStream compressing(memory, -1);
        compressing.Write(bytes.data(), static_cast<int>(bytes.size()));
    }
    return memory.GetContent();
}

} // namespace

TEST(ProjectFile, ComesBack)
{
    Ptr<Project> const project = SampleProject();
    EXPECT_EQ(Describe(*Load(Store(*project)).project), Describe(*project));
}

TEST(ProjectFile, IsReadFromTheseBytes)
{
    // Not written as these: what compression makes of a graph is zlib's own business, and changes with its versions.
    std::string const file =
        FromHex("99 00 00 00 78 9C EB E1 BA B5 82 91 81 85 81 81 C1 83 21 93 81 91 01 02 04 99 25 1B 40 EC 43 11"
                "71 D2 40 1A C4 D4 43 96 63 06 D2 47 B9 A4 83 98 18 58 81 AC 44 BD 82 BC F4 39 61 9F 1F 31 32 30"
                "82 64 02 FC DC 1B 98 18 18 1E C0 74 00 C1 19 91 C0 6F 08 6E C3 87 5F 4C 0C 48 C6 B1 03 E9 ED 62"
                "81 DF 90 8C 63 82 AA 56 00 62 03 03 43 43 23 23 63 63 13 13 53 53 33 33 73 73 0B 0B 4B 4B 47 47"
                "27 27 67 67 17 17 57 57 37 37 98 C1 46 C6 FF CF 01 9D D0 30 6D 06 98 0B 00 CD F4 22 9E 4C AC E3"
                "24");
    LoadedProject const loaded = Load(file);
    EXPECT_EQ(loaded.project->title, TEXT("Hi"));
    ASSERT_EQ(loaded.project->bins.size(), 1u);
    ASSERT_EQ(loaded.project->bins[0]->clips.size(), 1u);
    EXPECT_EQ(loaded.project->bins[0]->clips[0]->path, "a.png");
    EXPECT_EQ(loaded.project->bins[0]->clips[0]->media->size, 258);
    EXPECT_EQ(loaded.sizes.file, 161);
    EXPECT_EQ(loaded.sizes.compressed, 153);
    EXPECT_EQ(loaded.sizes.graph, 219);
}

TEST(ProjectFile, OfManyBlocksComesBack)
{
    Ptr<Project> const project = Ptr<Project>::Make();
    std::vector<Ptr<Clip>> clips;
    for (int i = 0; i < 1000; ++i)
    {
        std::string const name = std::to_string(i * 7919 % 1000);
        MD5SumStream sum;
        sum << name;
        Ptr<Media> const media = MakeMedia(name, i, sum.GetMD5Sum().HexString(), i);
        clips.push_back(MakeClip(name, media, Format::Kind::Text));
    }
    project->bins = {MakeBin(Bin::Kind::Folder, ".", clips)};
    std::string const file = Store(*project);
    EXPECT_GT(file.size(), 3 * 4096u);
    EXPECT_EQ(Describe(*Load(file).project), Describe(*project));
}

TEST(ProjectFile, IsTheSameEachTime)
{
    EXPECT_EQ(Store(*SampleProject()), Store(*SampleProject()));
}

TEST(ProjectFile, IsACompressedGraphInBlocks)
{
    Ptr<Project> const project = SampleProject();
    EXPECT_EQ(ToHex(Store(*project)), ToHex(InBlocks(Compressed(StoreGraph(*project)))));
}

TEST(ProjectFile, WriterAndReaderCountTheSameSizes)
{
    MemoryOutputStream memory;
    ProjectSizes const written = WriteProject(*SampleProject(), memory);
    std::string const file = memory.GetContent();
    EXPECT_EQ(written.graph, static_cast<std::int64_t>(StoreGraph(*SampleProject()).size()));
    EXPECT_EQ(written.file, static_cast<std::int64_t>(file.size()));
    EXPECT_EQ(written.compressed, written.file - 8);

    ProjectSizes const read = Load(file).sizes;
    EXPECT_EQ(read.graph, written.graph);
    EXPECT_EQ(read.compressed, written.compressed);
    EXPECT_EQ(read.file, written.file);
}

TEST(ProjectFile, CutAnywhereFails)
{
    std::string const file = Store(*SampleProject());
    WatchingFactory factory;
    for (std::size_t size = 0; size < file.size(); ++size)
    {
        try
        {
            Load(file.substr(0, size), factory);
            ADD_FAILURE() << size;
        }
        catch (StreamBase::Exception const & failure)
        {
            EXPECT_EQ(failure.code, 5) << size;
        }
        ASSERT_EQ(factory.ReleaseAll(), 0u) << size;
    }
}

TEST(ProjectFile, WithAnyByteChangedFails)
{
    std::string const file = Store(*SampleProject());
    WatchingFactory factory;
    for (std::size_t i = 0; i < file.size(); ++i)
    {
        for (int const mask : {0x01, 0x02, 0x04, 0x08, 0x10, 0x20, 0x40, 0x80, 0x55, 0xAA, 0x7F, 0xFF})
        {
            std::string changed = file;
            changed[i] = static_cast<char>(changed[i] ^ mask);
            try
            {
                Load(changed, factory);
                ADD_FAILURE() << i << ' ' << mask;
            }
            catch (StreamBase::Exception const & failure)
            {
                // A length that is too great runs into the end, all else is seen by the checksum.
                EXPECT_TRUE(failure.code == 4 || (failure.code == 5 && i < 4)) << i << ' ' << mask;
            }
            ASSERT_EQ(factory.ReleaseAll(), 0u) << i << ' ' << mask;
        }
    }
}

TEST(ProjectFile, WithAnyByteChangedUnderneathTheChecksumsFailsOrIsAProject)
{
    std::string const compressed = Compressed(StoreGraph(*SampleProject()));
    WatchingFactory factory;
    for (std::size_t i = 0; i < compressed.size(); ++i)
    {
        for (int const mask : {0x01, 0x02, 0x04, 0x08, 0x10, 0x20, 0x40, 0x80, 0xFF})
        {
            std::string changed = compressed;
            changed[i] = static_cast<char>(changed[i] ^ mask);
            try
            {
                EXPECT_EQ(Describe(*Load(InBlocks(changed), factory).project), Describe(*SampleProject()));
            }
            catch (StreamBase::Exception const & failure)
            {
                EXPECT_TRUE(failure.code == 2 || failure.code == 3 || failure.code == 5 || failure.code == 6)
                    << failure.code;
            }
            ASSERT_EQ(factory.ReleaseAll(), 0u) << i << ' ' << mask;
        }
    }
}

TEST(ProjectFile, DamageBehindTheGraphIsSeen)
{
    std::string const graph = StoreGraph(*SampleProject());
    std::string const compressed = Compressed(graph);
    std::string wrongSum = compressed;
    wrongSum.back() = static_cast<char>(wrongSum.back() ^ 1);
    std::string const file = InBlocks(compressed);

    EXPECT_EQ(FailureOf(file), "none");
    EXPECT_EQ(FailureOf(InBlocks(Compressed(graph + '\0'))), "3 Data behind the end of project");
    EXPECT_EQ(FailureOf(InBlocks(compressed + '\0')), "3 Data behind the end of project");
    EXPECT_EQ(FailureOf(file + '\0'), "3 Data behind the end of project");
    EXPECT_EQ(FailureOf(file + InBlocks("more")), "3 Data behind the end of project");
    EXPECT_EQ(FailureOf(InBlocks(wrongSum)), "2 incorrect data check");
    EXPECT_EQ(FailureOf(InBlocks(compressed.substr(0, compressed.size() - 4))), "5 Unexpected end of file");
}

TEST(ProjectFile, IsFoundDamagedByTheLibrarysWords)
{
    EXPECT_EQ(FailureOf(""), "5 Unexpected end of file");
    EXPECT_EQ(FailureOf("This is some text."), "4 Illegal CRC block size");
    EXPECT_EQ(FailureOf(InBlocks("This is some text.")), "2 incorrect header check");
    EXPECT_EQ(FailureOf(InBlocks(Compressed("This is some text."))), "3 Unexpected object in stream");
    EXPECT_EQ(FailureOf(InBlocks(Compressed(std::string(100, '\0')))), "3 Unknown command in stream");
}

TEST(ProjectFile, IsSavedWholeOrNotAtAll)
{
    ScratchFolder const folder;
    folder.Write("old.story", "old");
    Ptr<Project> const project = SampleProject();
    SaveProject(*project, folder / "old.story");
    EXPECT_EQ(Describe(*LoadProject(folder / "old.story").project), Describe(*project));

    // A folder stands where the file should go.
    std::filesystem::create_directory(folder / "taken");
    EXPECT_THROW(SaveProject(*project, folder / "taken"), Failure);
    EXPECT_THROW(SaveProject(*project, folder / "no such folder" / "file"), Failure);

    int entries = 0;
    for ([[maybe_unused]] auto const & entry : std::filesystem::directory_iterator(folder.Path()))
    {
        ++entries;
    }
    EXPECT_EQ(entries, 2) << "something was left behind";
}

} // namespace Storyboard
