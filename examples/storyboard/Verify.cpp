#include <kvcore/examples/storyboard/Commands.h>

#include <map>
#include <set>

#include <kvcore/examples/storyboard/Display.h>
#include <kvcore/examples/storyboard/FolderWalk.h>
#include <kvcore/examples/storyboard/ProjectFile.h>
#include <kvcore/examples/storyboard/SourceReader.h>
#include <kvcore/tools/support/Text.h>

namespace Storyboard
{

namespace fs = std::filesystem;

namespace
{

/// Compares the clips of a project with what a walk found. It opens nothing that the walk did not find, so the paths of
/// a forged project lead nowhere.
class Comparison
{
public:
    Comparison(Context const & runContext, FolderContent const & folderContent) : context(runContext)
    {
        for (FoundFile const & file : folderContent.files)
        {
            files.emplace(file.path, &file);
        }
        for (LeftOut const & one : folderContent.leftOut)
        {
            leftOut.emplace(one.path, &one);
        }
    }

    void Run(Project const & project)
    {
        std::vector<Ptr<Clip>> const clips = AllClips(project);
        Progress progress(context.console.error, context.screen, context.loudness);
        std::int64_t size = 0;
        for (Ptr<Clip> const & clip : clips)
        {
            auto const found = files.find(clip->path);
            size += found != files.end() ? found->second->size : 0;
        }
        progress.Begin("Verifying", static_cast<std::int64_t>(clips.size()), size);
        std::set<std::string> known;
        for (Ptr<Clip> const & clip : clips)
        {
            progress.NextFile(clip->path);
            known.insert(clip->path);
            Check(*clip, progress);
        }
        progress.End();
        for (auto const & [path, file] : files)
        {
            if (!known.contains(path))
            {
                ++added;
                Report("new", path, "");
            }
        }
    }

    void PrintReport() const
    {
        OutputStream & output = context.console.output;
        for (std::string const & line : lines)
        {
            kv::tools::PrintLine(output, line);
        }
        kv::tools::PrintLine(
            output,
            Plural(equal + changed + missing + unread, "file") + " in the project: " + Grouped(equal) + " unchanged, " +
                Grouped(changed) + " changed, " + Grouped(missing) + " missing" +
                (unread != 0 ? ", " + Grouped(unread) + " not readable" : "") + "; " + Grouped(added) + " new on disk");
    }

    int Result() const
    {
        return unread != 0 ? int(kv::tools::ExitIo)
            : missing != 0 ? int(ExitMissing)
            : changed != 0 ? int(ExitChanged)
                           : int(kv::tools::ExitOk);
    }

private:
    void Report(std::string const & what, std::string const & path, std::string const & detail)
    {
        constexpr std::size_t columnWidth = 10;
        lines.push_back(what + std::string(columnWidth - what.size(), ' ') + Printable(path) + detail);
    }

    void Check(Clip const & clip, Progress & progress)
    {
        auto const found = files.find(clip.path);
        if (found == files.end())
        {
            CheckAbsent(clip);
            return;
        }
        Media const & media = *clip.media;
        FoundFile const & file = *found->second;
        if (file.size != media.size)
        {
            progress.Advance(file.size);
            ReportSize(clip, file.size);
            return;
        }
        try
        {
            SourceContent const content = ReadSource(file, [&](int size) { progress.Advance(size); });
            if (content.size != media.size)
            {
                ReportSize(clip, content.size);
            }
            else if (content.sum != media.sum)
            {
                ++changed;
                Report("changed", clip.path, ": sum " + content.sum.HexString() + ", was " + media.sum.HexString());
            }
            else
            {
                ++equal;
            }
        }
        catch (StreamBase::Exception const & failure)
        {
            ++unread;
            Report("unread", clip.path, ": " + failure.text.Utf8());
        }
    }

    void ReportSize(Clip const & clip, std::int64_t size)
    {
        ++changed;
        Report("changed", clip.path, ": " + Plural(size, "byte") + ", was " + Grouped(clip.media->size));
    }

    /// A file that was not found is missing, unless it or a folder above it could not be looked at.
    void CheckAbsent(Clip const & clip)
    {
        for (std::string path = clip.path;; path.erase(path.rfind('/')))
        {
            auto const reason = leftOut.find(path);
            if (reason != leftOut.end() && reason->second->why == LeftOut::Why::Unreadable)
            {
                ++unread;
                Report("unread", clip.path, ": " + reason->second->reason);
                return;
            }
            if (path.find('/') == std::string::npos)
            {
                break;
            }
        }
        auto const instead = leftOut.find(clip.path);
        ++missing;
        Report("missing", clip.path, instead == leftOut.end() ? "" : ": is now " + instead->second->reason);
    }

    Context const & context;
    std::map<std::string, FoundFile const *> files;
    std::map<std::string, LeftOut const *> leftOut;
    std::vector<std::string> lines;
    std::int64_t equal = 0;
    std::int64_t changed = 0;
    std::int64_t missing = 0;
    std::int64_t unread = 0;
    std::int64_t added = 0;
};

} // namespace

int Verify(Context const & context, fs::path const & file, fs::path const & folder)
{
    LoadedProject const loaded = LoadProject(file);
    FolderContent const content = WalkFolder(folder, {file});
    Comparison comparison(context, content);
    comparison.Run(*loaded.project);
    comparison.PrintReport();
    return comparison.Result();
}

} // namespace Storyboard
