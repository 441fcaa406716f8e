#include <kvcore/tools/kv/TreeWalk.h>

#include <kvcore/tools/kv/Failures.h>
#include <kvcore/tools/kv/SumList.h>
#include <kvcore/tools/support/Paths.h>

#include <kvcore/files/File.h>
#include <kvcore/platform/NativePaths.h>
#include <kvcore/platform/win32.h>

#include <filesystem>
#include <vector>

namespace kv::tools
{

// A native path is shown as it was typed, "./clips" as "./clips".
TreePath::TreePath(std::string const & typed)
    : library(TypedPath(typed)), shown(library == kv::platform::PathFromNative(typed) ? typed : ShownPath(library))
{
}

std::string LastFailure(std::string const & what, std::string const & path)
{
    DWORD const error = ::GetLastError();
    std::string const text = String::FromError(error).Utf8();
    return "cannot " + what + " " + DisplayedName(path) + ": " +
        (text.empty() ? "error " + std::to_string(error) : text);
}

namespace
{

TreePath Below(TreePath const & directory, String const & name)
{
    constexpr char separator = static_cast<char>(std::filesystem::path::preferred_separator);
    TreePath path = directory;
    path.library = File::MakePath(directory.library, name);
    if (path.shown.empty() || path.shown.back() != separator)
    {
        path.shown += separator;
    }
    path.shown += kv::platform::PathToNative(name);
    return path;
}

class Walk
{
public:
    Walk(
        std::string const & walkMask, std::string const & walkCommand, Console & walkConsole, TreeVisitor const & visit,
        FolderVisitor const & enter)
        : mask(String::FromUtf8(walkMask)),
          command(walkCommand),
          console(walkConsole),
          visitor(visit),
          folderVisitor(enter),
          matchesAll(walkMask == "*" || walkMask == "*.*")
    {
    }

    bool Run(TreePath const & root)
    {
        pending.push_back({0, 0, String(), root});
        while (!pending.empty())
        {
            TreeFolder const directory = std::move(pending.back());
            pending.pop_back();
            if (folderVisitor)
            {
                folderVisitor(directory);
            }
            ListAll(directory);
            if (!matchesAll)
            {
                ListMatching(directory);
            }
        }
        return complete;
    }

private:
    // Everything in the directory: the directories are for later.
    void ListAll(TreeFolder const & directory)
    {
        FileFinder finder;
        // With the dots, so that an empty directory is told from one that cannot be read.
        bool found = finder.Start(File::MakePath(directory.path.library, TEXT("*")), true);
        // The root of a drive has no dots and can be empty.
        bool readable = found || ::GetLastError() == ERROR_FILE_NOT_FOUND;
        for (; found; found = finder.Next(), readable = found || ::GetLastError() == ERROR_NO_MORE_FILES)
        {
            if (finder.IsDots())
            {
                continue;
            }
            bool const descends = finder.IsDirectory() && !finder.IsLink();
            if (!descends && !matchesAll)
            {
                continue;
            }
            TreePath path = Below(directory.path, finder.GetFileName());
            if (matchesAll)
            {
                visitor({finder, path, directory});
            }
            if (descends)
            {
                pending.push_back({++folders, directory.number, finder.GetFileName(), std::move(path)});
            }
        }
        if (!readable)
        {
            Complain(console, command, LastFailure("read the directory", directory.path.shown));
            complete = false;
        }
    }

    void ListMatching(TreeFolder const & directory)
    {
        FileFinder finder;
        for (bool found = finder.Start(File::MakePath(directory.path.library, mask), false); found;
             found = finder.Next())
        {
            TreePath const path = Below(directory.path, finder.GetFileName());
            visitor({finder, path, directory});
        }
    }

    String mask;
    std::string const & command;
    Console & console;
    TreeVisitor const & visitor;
    FolderVisitor const & folderVisitor;
    bool matchesAll;
    bool complete = true;
    std::size_t folders = 0;
    std::vector<TreeFolder> pending;
};

} // namespace

bool WalkTree(
    TreePath const & root, std::string const & mask, std::string const & command, Console & console,
    TreeVisitor const & visit, FolderVisitor const & enter)
{
    if (mask.empty() || mask.find_first_of("\\/") != std::string::npos)
    {
        throw UsageError("'" + mask + "' is not a mask: a mask matches names and has no separators");
    }
    return Walk(mask, command, console, visit, enter).Run(root);
}

} // namespace kv::tools
