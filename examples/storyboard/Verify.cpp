#include <kvcore/examples/storyboard/Commands.h>

#include <algorithm>
#include <map>
#include <set>

#include <kvcore/examples/storyboard/Display.h>
#include <kvcore/examples/storyboard/FolderWalk.h>
#include <kvcore/examples/storyboard/ProjectFile.h>
#include <kvcore/examples/storyboard/SourceJobs.h>
#include <kvcore/examples/storyboard/Texts.h>
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
        ReadAll(clips);
        std::set<std::string> known;
        for (Ptr<Clip> const & clip : clips)
        {
            known.insert(clip->path);
            Check(*clip);
        }
        for (auto const & [path, file] : files)
        {
            if (!known.contains(path))
            {
                ++added;
                Report(TEXT_NEW, path, "");
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
        std::string const all = Plural(equal + changed + missing + unread, TEXT_FILE);
        kv::tools::PrintLine(
            output,
            unread == 0 ? Text(TEXT_VERIFIED, all, Grouped(equal), Grouped(changed), Grouped(missing), Grouped(added))
                        : Text(
                              TEXT_VERIFIED_UNREAD, all, Grouped(equal), Grouped(changed), Grouped(missing),
                              Grouped(unread), Grouped(added)));
    }

    int Result() const
    {
        return unread != 0 ? int(kv::tools::ExitIo)
            : missing != 0 ? int(ExitMissing)
            : changed != 0 ? int(ExitChanged)
                           : int(kv::tools::ExitOk);
    }

private:
    /// What is kept of a file that was read.
    struct ReadFile
    {
        MD5Sum sum;
        std::int64_t size;
        std::string failure;
    };

    void Report(unsigned what, std::string const & path, std::string const & detail)
    {
        constexpr std::size_t columnWidth = 10;
        std::string const word = Text(what);
        std::size_t const width = std::min(DisplayWidth(word), columnWidth - 1);
        lines.push_back(word + std::string(columnWidth - width, ' ') + Printable(path) + detail);
    }

    /// Reads the files that may be as they were; what has another size has changed.
    void ReadAll(std::vector<Ptr<Clip>> const & clips)
    {
        std::vector<FoundFile> toRead;
        std::int64_t size = 0;
        for (Ptr<Clip> const & clip : clips)
        {
            auto const found = files.find(clip->path);
            if (found != files.end() && found->second->size == clip->media->size)
            {
                toRead.push_back(*found->second);
                size += found->second->size;
            }
        }
        Progress progress(context.console.error, context.screen, context.loudness);
        progress.Begin(Text(TEXT_VERIFYING), static_cast<std::int64_t>(toRead.size()), size);
        ReadSources(
            toRead, context.reading, progress,
            [this](FoundFile const & file, SourceResult const & result) {
                read[file.path] = {result.content.sum, result.content.size, result.failure};
            });
        progress.End();
    }

    void Check(Clip const & clip)
    {
        auto const found = files.find(clip.path);
        if (found == files.end())
        {
            CheckAbsent(clip);
            return;
        }
        auto const content = read.find(clip.path);
        if (content == read.end())
        {
            ReportSize(clip, found->second->size);
        }
        else if (!content->second.failure.empty())
        {
            ++unread;
            Report(TEXT_UNREAD, clip.path, ": " + content->second.failure);
        }
        else
        {
            CheckContent(clip, content->second);
        }
    }

    void CheckContent(Clip const & clip, ReadFile const & content)
    {
        Media const & media = *clip.media;
        if (content.size != media.size)
        {
            ReportSize(clip, content.size);
        }
        else if (content.sum != media.sum)
        {
            ++changed;
            Report(TEXT_CHANGED, clip.path, Text(TEXT_SUM_WAS, content.sum.HexString(), media.sum.HexString()));
        }
        else
        {
            ++equal;
        }
    }

    void ReportSize(Clip const & clip, std::int64_t size)
    {
        ++changed;
        Report(TEXT_CHANGED, clip.path, Text(TEXT_SIZE_WAS, Plural(size, TEXT_BYTE), Grouped(clip.media->size)));
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
                Report(TEXT_UNREAD, clip.path, ": " + reason->second->reason);
                return;
            }
            if (path.find('/') == std::string::npos)
            {
                break;
            }
        }
        auto const instead = leftOut.find(clip.path);
        ++missing;
        Report(TEXT_MISSING, clip.path, instead == leftOut.end() ? "" : Text(TEXT_IS_NOW, instead->second->reason));
    }

    Context const & context;
    std::map<std::string, FoundFile const *> files;
    std::map<std::string, LeftOut const *> leftOut;
    std::map<std::string, ReadFile> read;
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
