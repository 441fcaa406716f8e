#pragma once

#include <kvcore/files/FileFinder.h>
#include <kvcore/tools/support/Program.h>

#include <functional>
#include <string>

namespace kv::tools
{

/// A path as somebody typed it, or one below such a path, in both forms.
struct TreePath
{
    explicit TreePath(std::string const & typed);

    String library;    ///< for the library's calls
    std::string shown; ///< for people: this system's own form
};

/// A directory that a walk lists. Directories are numbered as the walk comes by them; the root is 0.
struct TreeFolder
{
    std::size_t number;
    std::size_t parent; ///< the number of the directory above; of the root, 0
    String name;        ///< in that directory; of the root, empty
    TreePath path;
};

/// One entry that a walk came by.
struct TreeEntry
{
    FileData const & data;
    TreePath const & path;
    TreeFolder const & folder; ///< that it stands in
};

using TreeVisitor = std::function<void(TreeEntry const & entry)>;
using FolderVisitor = std::function<void(TreeFolder const & folder)>;

/// Tells `visit` of everything below the directory `root` whose name matches `mask`, an entry always before what is
/// below it. The directory itself is not told of. Links are told of and not walked. What cannot be read is reported as
/// `command`'s, and the walk goes on; the result is then false. `enter`, if given, is told of each directory before it
/// is listed.
[[nodiscard]] bool WalkTree(
    TreePath const & root, std::string const & mask, std::string const & command, Console & console,
    TreeVisitor const & visit, FolderVisitor const & enter = {});

/// "cannot <what> <path>: <the system's words for its last error>".
[[nodiscard]] std::string LastFailure(std::string const & what, std::string const & path);

} // namespace kv::tools
