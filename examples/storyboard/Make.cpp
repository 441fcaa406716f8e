#include <kvcore/examples/storyboard/Commands.h>

#include <algorithm>
#include <map>
#include <utility>

#include <kvcore/examples/storyboard/Display.h>
#include <kvcore/examples/storyboard/FolderWalk.h>
#include <kvcore/examples/storyboard/FormatProbe.h>
#include <kvcore/examples/storyboard/LastProject.h>
#include <kvcore/examples/storyboard/ProjectFile.h>
#include <kvcore/examples/storyboard/RunLog.h>
#include <kvcore/examples/storyboard/SourceJobs.h>
#include <kvcore/examples/storyboard/Texts.h>
#include <kvcore/tools/support/SafeFile.h>
#include <kvcore/tools/support/Text.h>

namespace Storyboard
{

namespace fs = std::filesystem;
using Kind = Format::Kind;

namespace
{

constexpr Ticks stillLength = 5 * ticksPerSecond; // how long a picture is shown
constexpr Ticks fadeLength = ticksPerSecond;

Ticks ModificationTime(FoundFile const & file)
{
    return std::max<Ticks>(0, (file.modified - DateTime()).GetTicks());
}

/// Builds the project while the sources are read.
class Builder
{
public:
    explicit Builder(std::string const & title) : project(Ptr<Project>::Make())
    {
        project->title = String::FromUtf8(title);
    }

    void Add(FoundFile const & file, SourceContent const & content)
    {
        ProbeResult const probed = ProbeFormat(content.head, file.path, content.size);
        Ptr<Clip> const clip = Ptr<Clip>::Make();
        clip->path = file.path;
        clip->format = probed.format;
        clip->range.length = probed.length;
        clip->media = MediaFor(file, content);
        if (probed.format.kind == Kind::Picture)
        {
            clip->range.length = stillLength;
            clip->transition.kind = Transition::Kind::Fade;
            clip->transition.length = fadeLength;
        }
        FolderBinFor(file).clips.push_back(clip);
        collections[probed.format.kind].push_back(clip);
    }

    Ptr<Project> Finish()
    {
        static constexpr std::pair<Kind, unsigned> names[] = {
            {Kind::Picture, TEXT_ALL_PICTURES}, {Kind::Film, TEXT_ALL_FILMS},   {Kind::Sound, TEXT_ALL_SOUNDS},
            {Kind::Text, TEXT_ALL_TEXTS},       {Kind::Other, TEXT_ALL_OTHERS},
        };
        for (auto const & [kind, name] : names)
        {
            if (!collections[kind].empty())
            {
                Ptr<Bin> const bin = Ptr<Bin>::Make();
                bin->kind = Bin::Kind::Collection;
                bin->name = Text(name);
                bin->clips = std::move(collections[kind]);
                project->bins.push_back(bin);
            }
        }
        return project;
    }

private:
    /// Files with equal content are one source.
    Ptr<Media> MediaFor(FoundFile const & file, SourceContent const & content)
    {
        Ptr<Media> & media = sources[{content.sum.HexString(), content.size}];
        if (!media)
        {
            media = Ptr<Media>::Make();
            media->path = file.path;
            media->size = content.size;
            media->sum = content.sum;
            media->modified = ModificationTime(file);
        }
        return media;
    }

    /// A folder's files come one after the other.
    Bin & FolderBinFor(FoundFile const & file)
    {
        std::size_t const slash = file.path.rfind('/');
        std::string const folder = slash == std::string::npos ? "." : file.path.substr(0, slash);
        if (project->bins.empty() || project->bins.back()->name != folder)
        {
            Ptr<Bin> const bin = Ptr<Bin>::Make();
            bin->name = folder;
            project->bins.push_back(bin);
        }
        return *project->bins.back();
    }

    Ptr<Project> project;
    std::map<std::pair<std::string, std::int64_t>, Ptr<Media>> sources;
    std::map<Kind, std::vector<Ptr<Clip>>> collections;
};

std::int64_t TotalSize(std::vector<FoundFile> const & files)
{
    std::int64_t total = 0;
    for (FoundFile const & file : files)
    {
        total += file.size;
    }
    return total;
}

std::string Title(fs::path const & folder)
{
    fs::path const whole = fs::canonical(folder);
    return StoredName(whole.has_filename() ? whole.filename() : whole);
}

void SayUnread(Progress & progress, std::string const & path, std::string const & reason)
{
    progress.Say("storyboard: " + Text(TEXT_CANNOT_BE_READ, Printable(path), reason));
}

/// What a folder has that a project cannot hold: counted by reason, and the failures said one by one.
struct Losses
{
    std::int64_t unread = 0;
    std::map<std::string, std::int64_t> others;
};

Losses CountLosses(std::vector<LeftOut> const & leftOut, Progress & progress)
{
    Losses losses;
    for (LeftOut const & one : leftOut)
    {
        if (one.why == LeftOut::Why::NoSource)
        {
            ++losses.others[one.reason];
        }
        else
        {
            ++losses.unread;
            SayUnread(progress, one.path, one.reason);
        }
    }
    return losses;
}

/// Reads all files into a project. A file that cannot be read is said and counted.
Ptr<Project> Build(
    fs::path const & folder, std::vector<FoundFile> const & files, ReadingOptions const & options, Progress & progress,
    Losses & losses)
{
    Builder builder(Title(folder));
    progress.Begin(Text(TEXT_READING), static_cast<std::int64_t>(files.size()), TotalSize(files));
    ReadSources(
        files, options, progress,
        [&](FoundFile const & file, SourceResult const & result)
        {
            if (result.failure.empty())
            {
                builder.Add(file, result.content);
                return;
            }
            ++losses.unread;
            SayUnread(progress, file.path, result.failure);
        });
    progress.End();
    return builder.Finish();
}

void PrintSummary(OutputStream & output, Project const & project, ProjectSizes const & sizes, Losses const & losses)
{
    ProjectCount const count = Count(project);
    kv::tools::PrintLine(
        output,
        Text(
            TEXT_MADE, Plural(count.clips, TEXT_FILE), Plural(count.folders, TEXT_FOLDER),
            Plural(count.sources, TEXT_SOURCE), Decimal(kv::tools::HumanSize(count.size))));
    kv::tools::PrintLine(output, Text(TEXT_TAKES, Plural(sizes.file, TEXT_BYTE), Plural(sizes.graph, TEXT_BYTE)));
    for (auto const & [reason, number] : losses.others)
    {
        kv::tools::PrintLine(
            output, number == 1 ? Text(TEXT_LEFT_OUT_ONE, reason) : Text(TEXT_LEFT_OUT, Grouped(number), reason));
    }
    if (losses.unread != 0)
    {
        kv::tools::PrintLine(
            output, losses.unread == 1 ? Text(TEXT_NOT_READ_ONE) : Text(TEXT_NOT_READ, Grouped(losses.unread)));
    }
}

} // namespace

int Make(Context const & context, fs::path const & folder, fs::path const & file)
{
    CheckSaveTarget(file);
    // What a save left behind that was cut off is no clip of the folder; the next save would remove it only later.
    kv::tools::NewFile::RemoveLeftovers(kv::tools::SafeFile::Followed(file).parent_path());
    Progress progress(context.console.error, context.screen, context.loudness);
    FolderContent const content = WalkFolder(folder, {file});
    if (content.files.size() > ProjectInputStream::maxClips)
    {
        std::string const files = Plural(static_cast<std::int64_t>(content.files.size()), TEXT_FILE);
        progress.Say("storyboard: " + Text(TEXT_TOO_MANY, files, Grouped(ProjectInputStream::maxClips)));
        return kv::tools::ExitFailed;
    }
    Losses losses = CountLosses(content.leftOut, progress);
    Ptr<Project> const project = Build(folder, content.files, context.reading, progress, losses);
    ProjectSizes const sizes = SaveProject(*project, file);
    Log(LogStep, "Saved " + Printable(StoredName(file)) + ": " + std::to_string(sizes.file) + " bytes");
    if (!KeepLastProject(*project, file))
    {
        progress.Say("storyboard: " + Text(TEXT_NOT_KEPT));
    }
    if (context.loudness != Progress::Loudness::Quiet)
    {
        PrintSummary(context.console.output, *project, sizes, losses);
    }
    return losses.unread == 0 ? int(kv::tools::ExitOk) : int(ExitIncomplete);
}

} // namespace Storyboard
