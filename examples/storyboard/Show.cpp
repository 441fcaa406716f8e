#include <kvcore/examples/storyboard/Commands.h>

#include <map>
#include <set>

#include <kvcore/examples/storyboard/Display.h>
#include <kvcore/examples/storyboard/LastProject.h>
#include <kvcore/examples/storyboard/ProjectFile.h>
#include <kvcore/examples/storyboard/Texts.h>
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
    return Decimal(HumanSize(static_cast<std::uint64_t>(media.size)));
}

void PrintFolder(OutputStream & output, Bin const & bin, SourceIndex const & index, std::size_t width)
{
    PrintLine(output, "");
    std::string const clips = Plural(static_cast<std::int64_t>(bin.clips.size()), TEXT_CLIP);
    PrintLine(output, Text(TEXT_BIN, Printable(bin.name), clips));
    Table table(
        {{Text(TEXT_HEAD_CLIP)},
         {Text(TEXT_HEAD_FORMAT)},
         {Text(TEXT_HEAD_LENGTH), Align::Right},
         {Text(TEXT_HEAD_TRANSITION)},
         {Text(TEXT_HEAD_SIZE), Align::Right},
         {Text(TEXT_HEAD_SOURCE), Align::Right}},
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
    Table table(
        {{Text(TEXT_HEAD_COLLECTION)},
         {Text(TEXT_HEAD_CLIPS), Align::Right},
         {Text(TEXT_HEAD_SIZE), Align::Right},
         {Text(TEXT_HEAD_LENGTH), Align::Right}},
        0);
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
            {Printable(bin->name), Grouped(static_cast<std::int64_t>(bin->clips.size())), Decimal(HumanSize(size)),
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
    PrintLine(output, Text(TEXT_SOURCE_LIST, Grouped(static_cast<std::int64_t>(index.sources.size()))));
    Table table(
        {{Text(TEXT_HEAD_SOURCE), Align::Right},
         {Text(TEXT_HEAD_CLIPS), Align::Right},
         {Text(TEXT_HEAD_BYTES), Align::Right},
         {Text(TEXT_HEAD_SUM)},
         {Text(TEXT_HEAD_MODIFIED)},
         {Text(TEXT_HEAD_FIRST)}},
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
        std::string const bytes = Plural(repeated * SharingStatistics::repeatSize, TEXT_BYTE);
        return Text(TEXT_REPEATS, Grouped(total), Grouped(repeated), bytes, Grouped(size));
    };
    PrintLine(output, "");
    PrintLine(output, Text(TEXT_TOTALS));
    PrintLine(
        output,
        Text(
            TEXT_TOTAL_CONTENTS, Plural(count.folders, TEXT_FOLDER), Plural(count.collections, TEXT_COLLECTION),
            Plural(count.clips, TEXT_CLIP)));
    PrintLine(output, Text(TEXT_TOTAL_SOURCES, Grouped(count.sources), Decimal(HumanSize(count.size))));
    PrintLine(
        output,
        Text(
            TEXT_TOTAL_REFERENCES,
            repeats(sharing.references, sharing.repeatedReferences, sharing.repeatedObjectsSize)));
    PrintLine(
        output, Text(TEXT_TOTAL_VALUES, repeats(sharing.values, sharing.repeatedValues, sharing.repeatedValuesSize)));
    PrintLine(output, Text(TEXT_TOTAL_GRAPH, Plural(sizes.graph, TEXT_BYTE)));
    PrintLine(
        output,
        Text(TEXT_TOTAL_COMPRESSED, Plural(sizes.compressed, TEXT_BYTE), Percent(sizes.compressed, sizes.graph)));
    if (sizes.file != 0)
    {
        PrintLine(output, Text(TEXT_TOTAL_FILE, Plural(sizes.file, TEXT_BYTE)));
    }
}

void PrintProject(OutputStream & output, LoadedProject const & loaded, Detail detail, std::size_t width)
{
    Project const & project = *loaded.project;
    PrintLine(output, Text(TEXT_PROJECT, Printable(project.title.Utf8())));
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
}

} // namespace

int Show(Context const & context, std::filesystem::path const & file, Detail detail, std::size_t width)
{
    PrintProject(context.console.output, LoadProject(file), detail, width);
    return kv::tools::ExitOk;
}

int ShowLast(Context const & context, Detail detail, std::size_t width)
{
    LastProject const last = LoadLastProject();
    PrintProject(context.console.output, last.loaded, detail, width);
    if (!last.file.empty())
    {
        PrintLine(context.console.output, "");
        PrintLine(context.console.output, Text(TEXT_LAST_FILE, last.file));
    }
    return kv::tools::ExitOk;
}

} // namespace Storyboard
