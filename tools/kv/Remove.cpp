#include <kvcore/tools/kv/Remove.h>

#include <kvcore/tools/kv/Failures.h>
#include <kvcore/tools/kv/NamedStreams.h>
#include <kvcore/tools/kv/SumList.h>
#include <kvcore/tools/kv/TreeWalk.h>
#include <kvcore/tools/support/ExitCodes.h>
#include <kvcore/tools/support/Text.h>

#include <kvcore/files/File.h>
#include <kvcore/platform/HeldFolder.h>

#include <algorithm>

namespace kv::tools
{

namespace
{

constexpr char const * command = "kv remove";

using kv::platform::FolderIdentity;
using kv::platform::HeldFolder;

struct Candidate
{
    TreePath path;
    bool isDirectory;
    std::size_t folder; // its number among the listed folders
    String name;
};

// The folders as they were when they were listed. While a person thinks about the answer, somebody else may put a link
// or another folder in the place of one of them; nothing is removed through that.
class ListedFolders
{
public:
    explicit ListedFolders(TreePath const & root)
        : rootPath(root.library), rootFolder(rootPath, HeldFolder::Links::Followed)
    {
    }

    void Add(TreeFolder const & folder)
    {
        bool const isRoot = folder.number == 0;
        FolderIdentity const identity =
            isRoot ? rootFolder.Identity() : HeldFolder(folder.path.library, HeldFolder::Links::Refused).Identity();
        folders.resize(std::max(folders.size(), folder.number + 1));
        folders[folder.number] = {folder.parent, folder.name, identity};
    }

    // Whether the path that was typed still leads to the folder that was listed.
    bool HasRoot() const
    {
        return rootFolder && HeldFolder(rootPath, HeldFolder::Links::Followed).Identity() == rootFolder.Identity();
    }

    // The folder of this number, held; none if it is not the one that was listed any more.
    HeldFolder const & Hold(std::size_t number)
    {
        if (!current || currentNumber != number)
        {
            current = HeldFolder(); // one that is held cannot be removed everywhere
            current = Reach(number);
            currentNumber = number;
        }
        return current;
    }

private:
    struct Place
    {
        std::size_t parent = 0;
        String name;
        FolderIdentity identity;
    };

    HeldFolder Reach(std::size_t number) const
    {
        std::vector<std::size_t> way;
        for (; number != 0; number = folders[number].parent)
        {
            way.push_back(number);
        }
        HeldFolder folder = rootFolder;
        for (; !way.empty() && folder; way.pop_back())
        {
            Place const & place = folders[way.back()];
            folder = folder.Enter(place.name);
            if (folder && !(folder.Identity() == place.identity))
            {
                folder = HeldFolder();
            }
        }
        return folder;
    }

    String const rootPath;
    HeldFolder const rootFolder;
    std::vector<Place> folders;
    HeldFolder current;
    std::size_t currentNumber = 0;
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
bool RemoveOne(Candidate const & candidate, ListedFolders & folders, Console & console)
{
    HeldFolder const & folder = folders.Hold(candidate.folder);
    if (!folder)
    {
        Complain(
            console, command,
            "cannot remove " + DisplayedName(candidate.path.shown) +
                ": its folder is not the one that was listed any more");
        return false;
    }
    String const path = File::MakePath(folder.Path(), candidate.name);
    if (candidate.isDirectory ? File::RemoveDirectoryW(path) : File::DeleteFileW(path))
    {
        return true;
    }
    Complain(console, command, LastFailure("remove", candidate.path.shown));
    return false;
}

int RemoveAll(std::vector<Candidate> const & candidates, ListedFolders & folders, Console & console)
{
    if (!folders.HasRoot())
    {
        Complain(console, command, "the folder is not the one that was listed any more; nothing was removed");
        return ExitFailed;
    }
    std::vector<Candidate> removed;
    for (Candidate const & candidate : candidates)
    {
        if (RemoveOne(candidate, folders, console))
        {
            removed.push_back(candidate);
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
            File::FileExists(root.library) ? DisplayedName(root.shown) + " is not a directory"
                                           : LastFailure("find the directory", root.shown));
        return ExitFailed;
    }
    ListedFolders folders(root);
    std::vector<Candidate> candidates;
    bool const complete = WalkTree(
        root, options.mask, command, console,
        [&](TreeEntry const & entry)
        {
            if (options.directories || !entry.data.IsDirectory())
            {
                candidates.push_back(
                    {entry.path, entry.data.IsDirectory(), entry.folder.number, entry.data.GetFileName()});
            }
        },
        [&](TreeFolder const & folder) { folders.Add(folder); });
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
            throw UsageError("standard input is not a terminal, so kv cannot ask; --yes removes without asking");
        }
        Print(console.error, "remove " + Describe(candidates) + " below " + DisplayedName(root.shown) + "? [y/N] ");
        if (!ReadYes(console))
        {
            Complain(console, command, "nothing was removed");
            return ExitFailed;
        }
    }
    int const result = RemoveAll(candidates, folders, console);
    return complete ? result : ExitFailed;
}

} // namespace kv::tools
