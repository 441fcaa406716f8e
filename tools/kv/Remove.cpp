#include <kvcore/tools/kv/Remove.h>

#include <kvcore/tools/kv/Failures.h>
#include <kvcore/tools/kv/NamedStreams.h>
#include <kvcore/tools/kv/SumList.h>
#include <kvcore/tools/kv/TreeWalk.h>
#include <kvcore/tools/support/ExitCodes.h>
#include <kvcore/tools/support/Text.h>

#include <kvcore/files/File.h>

#include <algorithm>

namespace kv::tools
{

namespace
{

constexpr char const * command = "kv remove";

struct Candidate
{
    TreePath path;
    bool isDirectory;
};

std::string Describe(std::vector<Candidate> const & candidates)
{
    std::size_t const directories = static_cast<std::size_t>(std::count_if(
        candidates.begin(), candidates.end(), [](Candidate const & candidate) { return candidate.isDirectory; }));
    return Counted(candidates.size() - directories, "file") + " and " + std::to_string(directories) +
        (directories == 1 ? " directory" : " directories");
}

// "y" or "yes" in a line of its own.
bool ReadYes(Console & console)
{
    LineReader reader(console.input);
    std::string answer;
    if (!reader.Next(answer))
    {
        return false;
    }
    if (!answer.empty() && answer.back() == '\r')
    {
        answer.pop_back();
    }
    return answer == "y" || answer == "Y" || answer == "yes";
}

// Removing a link to a directory removes the link.
bool RemoveOne(Candidate const & candidate)
{
    return candidate.isDirectory ? File::RemoveDirectoryW(candidate.path.library)
                                 : File::DeleteFileW(candidate.path.library);
}

int RemoveAll(std::vector<Candidate> const & candidates, Console & console)
{
    std::vector<Candidate> removed;
    for (Candidate const & candidate : candidates)
    {
        if (RemoveOne(candidate))
        {
            removed.push_back(candidate);
        }
        else
        {
            Complain(console, command, LastFailure("remove", candidate.path.shown));
        }
    }
    Complain(console, command, Describe(removed) + " removed");
    return removed.size() == candidates.size() ? ExitOk : ExitFailed;
}

} // namespace

int RemoveFiles(RemoveOptions const & options, Console & console)
{
    TreePath const root(options.directory);
    if (!File::IsDirectory(root.library))
    {
        Complain(
            console, command,
            File::FileExists(root.library) ? DisplayedName(root.shown) + " is no directory"
                                           : LastFailure("find the directory", root.shown));
        return ExitFailed;
    }
    std::vector<Candidate> candidates;
    bool const complete = WalkTree(
        root, options.mask, command, console,
        [&](TreeEntry const & entry)
        {
            if (options.directories || !entry.data.IsDirectory())
            {
                candidates.push_back({entry.path, entry.data.IsDirectory()});
            }
        });
    // A walk tells of a directory before what is in it; removing goes the other way.
    std::reverse(candidates.begin(), candidates.end());

    if (options.dryRun)
    {
        NamedOutput output("-", console);
        for (Candidate const & candidate : candidates)
        {
            PrintLine(output, DisplayedName(candidate.path.shown));
        }
        output.Finish();
        return complete ? ExitOk : ExitFailed;
    }
    if (!options.sure && !candidates.empty())
    {
        if (!console.asks)
        {
            throw UsageError("standard input is no terminal to ask on; --yes removes without asking");
        }
        Print(console.error, "remove " + Describe(candidates) + " below " + DisplayedName(root.shown) + "? [y/N] ");
        if (!ReadYes(console))
        {
            Complain(console, command, "nothing was removed");
            return ExitFailed;
        }
    }
    int const result = RemoveAll(candidates, console);
    return complete ? result : ExitFailed;
}

} // namespace kv::tools
