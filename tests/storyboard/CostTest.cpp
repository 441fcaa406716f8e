// The readers of the program take no longer than the size of what they read says.

#include "Samples.h"

#include <span>
#include <string>

#include <gtest/gtest.h>

#include <kvcore/examples/storyboard/Display.h>
#include <kvcore/examples/storyboard/FormatProbe.h>
#include <support/CostGrowth.h>

namespace Storyboard
{

namespace
{

using kv::test::GrowsNearLinearly;

/// A project as it lies in a file: so many clips of as many sources, in one bin, or of one source in as many bins.
std::string FileOf(std::size_t size, bool hasOneSource)
{
    Ptr<Media> const media = MakeMedia("a", 1, "00112233445566778899AABBCCDDEEFF", 1);
    Ptr<Project> const project = Ptr<Project>::Make();
    project->bins = {MakeBin(Bin::Kind::Folder, ".", {})};
    for (std::size_t i = 0; i < size; ++i)
    {
        std::string const name = std::to_string(i);
        Ptr<Clip> const clip = MakeClip(
            name, hasOneSource ? media : MakeMedia(name, 1, "00112233445566778899AABBCCDDEEFF", 1),
            Format::Kind::Picture);
        clip->format.width = static_cast<std::int32_t>(i);
        if (hasOneSource)
        {
            project->bins.push_back(MakeBin(Bin::Kind::Folder, name, {clip}));
        }
        else
        {
            project->bins[0]->clips.push_back(clip);
        }
    }
    MemoryOutputStream file;
    WriteProject(*project, file);
    return file.GetContent();
}

} // namespace

TEST(StoryboardCost, OfReadingAProjectIsThatOfItsObjects)
{
    for (bool const hasOneSource : {false, true})
    {
        EXPECT_TRUE(GrowsNearLinearly(
            500, 16'000, [&](std::size_t size) { return FileOf(size, hasOneSource); },
            [](std::string const & bytes)
            {
                MemorySource source(bytes);
                LoadedProject const loaded = ReadProject(source);
                (void)Count(*loaded.project);
            }))
            << hasOneSource;
    }
}

TEST(StoryboardCost, OfAProbeIsThatOfTheHeader)
{
    struct
    {
        char const * name;
        std::string begin;
        std::string part;
    } const shapes[] = {
        {"empty segments of JPEG", "\xFF\xD8\xFF\xE0", std::string("\xFF\xE0\0\0", 4)},
        {"fill bytes of JPEG", "\xFF\xD8\xFF", "\xFF\xFF\xFF\xFF"},
        {"empty chunks of WAV", "RIFFxxxxWAVE", std::string("junk\0\0\0\0", 8)},
        {"text", "", "text"},
        {"UTF-8", "", "\xC3\xA4\xC3\xA4"},
    };
    for (auto const & shape : shapes)
    {
        EXPECT_TRUE(GrowsNearLinearly(
            4'000, 4'000'000,
            [&](std::size_t size)
            {
                std::string bytes = shape.begin;
                while (bytes.size() < size)
                {
                    bytes += shape.part;
                }
                return bytes;
            },
            [](std::string const & bytes) {
                (void)ProbeFormat(
                    std::span(reinterpret_cast<unsigned char const *>(bytes.data()), bytes.size()), "x", 1 << 30);
            }))
            << shape.name;
    }
}

} // namespace Storyboard
