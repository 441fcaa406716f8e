#include <kvcore/examples/storyboard/Commands.h>

#include <map>
#include <set>

#include <kvcore/examples/storyboard/Display.h>
#include <kvcore/examples/storyboard/ProjectFile.h>
#include <kvcore/tools/support/Text.h>

namespace Storyboard
{

using kv::tools::HumanSize;
using kv::tools::PrintLine;
using Align = Table::Column::Align;

namespace
{

/// The sources in the order in which the clips first use them, numbered from 1, and how many clips each has.
struct SourceIndex
{
    explicit SourceIndex(Project const & project)
    {
        for (Ptr<Clip> const & clip : AllClips(project))
        {
            Media const * const media = clip->media.Get();
            if (numbers.emplace(media, static_cast<std::int64_t>(sources.size()) + 1).second)
            {
                sources.push_back(media);
            }
            ++clips[media];
        }
    }

    std::vector<Media const *> sources;
    std::map<Media const *, std::int64_t> numbers;
    std::map<Media const *, std::int64_t> clips;
};

std::string Size(Media const & media)
{
    return HumanSize(static_cast<std::uint64_t>(media.size));
}

void PrintFolder(OutputStream & output, Bin const & bin, SourceIndex const & index, std::size_t width)
{
    PrintLine(output, "");
    PrintLine(
        output,
        "Bin " + Printable(bin.name) + " (" + Plural(static_cast<std::int64_t>(bin.clips.size()), "clip") + ")");
    Table table(
        {{"CLIP"},
         {"FORMAT"},
         {"LENGTH", Align::Right},
         {"TRANSITION"},
         {"SIZE", Align::Right},
         {"SOURCE", Align::Right}},
        0);
    for (Ptr<Clip> const & clip : bin.clips)
    {
        table.Add(
            {Printable(clip->Name()), Describe(clip->format), Duration(clip->range.length), Describe(clip->transition),
             Size(*clip->media), Grouped(index.numbers.at(clip->media.Get()))});
    }
    table.Print(output, width);
}

void PrintCollections(OutputStream & output, Project const & project, std::size_t width)
{
    Table table({{"COLLECTION"}, {"CLIPS", Align::Right}, {"SIZE", Align::Right}, {"LENGTH", Align::Right}}, 0);
    bool any = false;
    for (Ptr<Bin> const & bin : project.bins)
    {
        if (bin->kind != Bin::Kind::Collection)
        {
            continue;
        }
        any = true;
        std::set<Media const *> sources;
        std::uint64_t size = 0;
        // In floating point: a forged file may hold lengths whose sum no integer takes.
        double length = 0;
        for (Ptr<Clip> const & clip : bin->clips)
        {
            length += static_cast<double>(clip->range.length);
            size += sources.insert(clip->media.Get()).second ? static_cast<std::uint64_t>(clip->media->size) : 0;
        }
        table.Add(
            {Printable(bin->name), Grouped(static_cast<std::int64_t>(bin->clips.size())), HumanSize(size),
             length < 9e18 ? Duration(static_cast<Ticks>(length)) : "-"});
    }
    if (any)
    {
        PrintLine(output, "");
        table.Print(output, width);
    }
}

void PrintSources(OutputStream & output, SourceIndex const & index, std::size_t width)
{
    PrintLine(output, "");
    PrintLine(output, "Sources (" + Grouped(static_cast<std::int64_t>(index.sources.size())) + ")");
    Table table(
        {{"SOURCE", Align::Right},
         {"CLIPS", Align::Right},
         {"BYTES", Align::Right},
         {"MD5 SUM"},
         {"MODIFIED"},
         {"FIRST FOUND AS"}},
        5);
    for (Media const * const media : index.sources)
    {
        table.Add(
            {Grouped(index.numbers.at(media)), Grouped(index.clips.at(media)), Grouped(media->size),
             media->sum.HexString(), Moment(media->modified), Printable(media->path)});
    }
    table.Print(output, width);
}

void PrintTotals(OutputStream & output, LoadedProject const & loaded)
{
    ProjectCount const count = Count(*loaded.project);
    SharingStatistics const & sharing = loaded.sharing;
    ProjectSizes const & sizes = loaded.sizes;
    auto const repeats = [](std::int64_t total, std::int64_t repeated, std::int64_t size)
    {
        return Grouped(total) + ", " + Grouped(repeated) +
            " of them repeats: " + Plural(repeated * SharingStatistics::repeatSize, "byte") + " in place of " +
            Grouped(size);
    };
    PrintLine(output, "");
    PrintLine(output, "Totals");
    PrintLine(
        output,
        "  Contents     " + Plural(count.folders, "folder") + ", " + Plural(count.collections, "collection") + ", " +
            Plural(count.clips, "clip"));
    PrintLine(output, "  Sources      " + Grouped(count.sources) + ", " + HumanSize(count.size));
    PrintLine(
        output,
        "  References   " + repeats(sharing.references, sharing.repeatedReferences, sharing.repeatedObjectsSize));
    PrintLine(output, "  Values       " + repeats(sharing.values, sharing.repeatedValues, sharing.repeatedValuesSize));
    PrintLine(output, "  Graph        " + Plural(sizes.graph, "byte"));
    PrintLine(
        output,
        "  Compressed   " + Plural(sizes.compressed, "byte") + ", " + Percent(sizes.compressed, sizes.graph) +
            " of the graph");
    PrintLine(output, "  File         " + Plural(sizes.file, "byte") + ", checksums included");
}

} // namespace

int Show(Context const & context, std::filesystem::path const & file, Detail detail, std::size_t width)
{
    LoadedProject const loaded = LoadProject(file);
    Project const & project = *loaded.project;
    OutputStream & output = context.console.output;
    PrintLine(output, "Project \"" + Printable(project.title.Utf8()) + "\"");
    SourceIndex const index(project);
    if (detail == Detail::Everything)
    {
        for (Ptr<Bin> const & bin : project.bins)
        {
            if (bin->kind == Bin::Kind::Folder)
            {
                PrintFolder(output, *bin, index, width);
            }
        }
    }
    PrintCollections(output, project, width);
    if (detail == Detail::Everything && !index.sources.empty())
    {
        PrintSources(output, index, width);
    }
    PrintTotals(output, loaded);
    return kv::tools::ExitOk;
}

} // namespace Storyboard
