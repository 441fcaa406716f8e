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

/// One entry that a walk came by.
struct TreeEntry
{
    FileData const & data;
    TreePath const & path;
};

using TreeVisitor = std::function<void(TreeEntry const & entry)>;

/// Tells `visit` of everything below the directory `root` whose name matches `mask`, an entry always before what is
/// below it. The directory itself is not told of. Links are told of and not walked. What cannot be read is reported as
/// `command`'s, and the walk goes on; the result is then false.
[[nodiscard]] bool WalkTree(
    TreePath const & root, std::string const & mask, std::string const & command, Console & console,
    TreeVisitor const & visit);

/// "cannot <what> <path>: <the system's words for its last error>".
[[nodiscard]] std::string LastFailure(std::string const & what, std::string const & path);

} // namespace kv::tools
