#pragma once

#include <algorithm>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include <kvcore/examples/storyboard/Model.h>
#include <kvcore/examples/storyboard/ProjectFile.h>
#include <kvcore/examples/storyboard/ProjectStream.h>
#include <kvcore/streams/MemoryStreams.h>
#include <kvcore/tools/support/CountingStreams.h>
#include <kvcore/tools/support/SourceStream.h>

// Projects for the tests, and ways to write, read and compare them in memory.

namespace Storyboard
{

/// Bytes from hexadecimal digits; blanks are skipped.
inline std::string FromHex(std::string_view digits)
{
    std::string bytes;
    int high = -1;
    for (char const c : digits)
    {
        int const value = c >= '0' && c <= '9' ? c - '0' : c >= 'A' && c <= 'F' ? c - 'A' + 10 : -1;
        if (value < 0)
        {
            continue;
        }
        if (high < 0)
        {
            high = value;
            continue;
        }
        bytes += static_cast<char>(high * 16 + value);
        high = -1;
    }
    return bytes;
}

/// The mirror, for messages of failed comparisons: 16 bytes in a line.
inline std::string ToHex(std::string const & bytes)
{
    std::string text;
    for (std::size_t i = 0; i < bytes.size(); ++i)
    {
        unsigned char const byte = static_cast<unsigned char>(bytes[i]);
        text += "0123456789ABCDEF"[byte >> 4];
        text += "0123456789ABCDEF"[byte & 15];
        text += i % 16 == 15 ? '\n' : ' ';
    }
    return text;
}

/// Bytes in memory as a file.
class MemorySource : public kv::tools::SourceStream
{
public:
    explicit MemorySource(std::string bytes) : content(std::move(bytes)) {}

    int ReadSome(char * data, int capacity) override
    {
        std::size_t const size = std::min(static_cast<std::size_t>(capacity), content.size() - position);
        std::copy_n(content.data() + position, size, data);
        position += size;
        return static_cast<int>(size);
    }

private:
    std::string const content;
    std::size_t position = 0;
};

inline Ptr<Media> MakeMedia(std::string path, std::int64_t size, std::string const & sum, Ticks modified)
{
    Ptr<Media> media = Ptr<Media>::Make();
    media->path = std::move(path);
    media->size = size;
    media->sum.SetHexString(sum);
    media->modified = modified;
    return media;
}

inline Ptr<Clip> MakeClip(std::string path, Ptr<Media> const & media, Format::Kind kind)
{
    Ptr<Clip> clip = Ptr<Clip>::Make();
    clip->path = std::move(path);
    clip->media = media;
    clip->format.kind = kind;
    if (kind == Format::Kind::Picture)
    {
        clip->format.encoding = "PNG";
        clip->format.width = 640;
        clip->format.height = 480;
        clip->range.length = 5 * ticksPerSecond;
        clip->transition.kind = Transition::Kind::Fade;
        clip->transition.length = ticksPerSecond;
    }
    return clip;
}

inline Ptr<Bin> MakeBin(Bin::Kind kind, std::string name, std::vector<Ptr<Clip>> clips)
{
    Ptr<Bin> bin = Ptr<Bin>::Make();
    bin->kind = kind;
    bin->name = std::move(name);
    bin->clips = std::move(clips);
    return bin;
}

/// Two folders and a collection, five clips of four sources.
inline Ptr<Project> SampleProject()
{
    Ptr<Media> const sea = MakeMedia("sea.png", 1234, "00112233445566778899AABBCCDDEEFF", 133'000'000'000'000'000);
    Ptr<Media> const sky = MakeMedia("sky.png", 987'654'321'012, "FFEEDDCCBBAA99887766554433221100", 0);
    Ptr<Media> const empty = MakeMedia("notes/none", 0, MD5Sum().HexString(), 1);
    Ptr<Media> const text = MakeMedia("notes/a b.txt", 9, "0123456789ABCDEF0123456789ABCDEF", 2);
    Ptr<Clip> const clips[] = {
        MakeClip("sea.png", sea, Format::Kind::Picture),
        MakeClip("sky.png", sky, Format::Kind::Picture),
        MakeClip("notes/a b.txt", text, Format::Kind::Text),
        MakeClip("notes/none", empty, Format::Kind::Other),
        MakeClip("notes/sea, again.png", sea, Format::Kind::Picture),
    };
    Ptr<Project> project = Ptr<Project>::Make();
    project->title = TEXT("Holidays \u2603");
    project->bins = {
        MakeBin(Bin::Kind::Folder, ".", {clips[0], clips[1]}),
        MakeBin(Bin::Kind::Folder, "notes", {clips[2], clips[3], clips[4]}),
        MakeBin(Bin::Kind::Collection, "All pictures", {clips[0], clips[1], clips[4]}),
    };
    return project;
}

/// Everything that a project holds, and which objects are the same, as a text: equal projects have equal texts.
inline std::string Describe(Project const & project)
{
    std::vector<void const *> objects;
    auto const number = [&](void const * object)
    {
        auto const found = std::find(objects.begin(), objects.end(), object);
        std::size_t const index = static_cast<std::size_t>(found - objects.begin());
        if (found == objects.end())
        {
            objects.push_back(object);
        }
        return '#' + std::to_string(index) + ' ';
    };
    auto const list = [](auto... numbers) { return ((std::to_string(numbers) + ' ') + ...); };
    std::string text = project.title.Utf8() + '\n';
    for (Ptr<Bin> const & bin : project.bins)
    {
        text += "bin " + number(bin.Get()) + list(int(bin->kind)) + bin->name + '\n';
        for (Ptr<Clip> const & clip : bin->clips)
        {
            Format const & format = clip->format;
            Media const & media = *clip->media;
            text += "clip " + number(clip.Get()) + clip->path + "; " + format.encoding + ' ' +
                list(int(format.kind), format.width, format.height, format.rate, format.channels, clip->range.start,
                     clip->range.length, int(clip->transition.kind), clip->transition.length) +
                "media " + number(&media) + media.path + "; " + media.sum.HexString() + ' ' +
                list(media.size, media.modified) + '\n';
        }
    }
    return text;
}

inline std::string StoreGraph(Project const & project)
{
    MemoryOutputStream memory;
    SerializingOutputStream graph(ProjectFactory(), memory);
    graph.Write(project);
    return memory.GetContent();
}

inline std::string Store(Project const & project)
{
    MemoryOutputStream memory;
    WriteProject(project, memory);
    return memory.GetContent();
}

inline LoadedProject Load(std::string const & file, IObjectFactory const & factory = ProjectFactory())
{
    MemorySource source(file);
    return ReadProject(source, factory);
}

/// A graph that was read from bytes without compression and checksums. The stream stays open, so what it holds stays.
struct LoadedGraph
{
    explicit LoadedGraph(
        std::string const & bytes, IObjectFactory const & factory = ProjectFactory(),
        std::int64_t objectLimit = ProjectInputStream::maxObjects)
        : memory(bytes), counted(memory), stream(factory, counted, objectLimit), project(Ptr<Project>::Make())
    {
        stream.Read(*project);
    }

    MemoryInputStream memory;
    kv::tools::CountingInputStream counted;
    ProjectInputStream stream;
    Ptr<Project> project;
};

} // namespace Storyboard
