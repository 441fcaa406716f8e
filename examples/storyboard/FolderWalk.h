#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include <kvcore/frame/DateTime.h>

namespace Storyboard
{

/// A regular file of a folder, at any depth.
struct FoundFile
{
    std::string path; ///< relative to the folder, in stored form: parts between slashes
    std::filesystem::path native;
    std::int64_t size;
    DateTime modified; ///< nothing if the system does not tell
};

/// Something in a folder that is no source.
struct LeftOut
{
    enum class Why
    {
        NoSource,  ///< nothing that a project holds
        NoTarget,  ///< a link to nothing
        Unreadable ///< the system did not let it be looked at; if it is a folder, then with all that is in it
    };

    std::string path;
    Why why;
    std::string reason;
};

struct FolderContent
{
    std::vector<FoundFile> files; ///< folder by folder, each in the order of its names' bytes
    std::vector<LeftOut> leftOut;
};

/// Everything below `folder`, apart from the files `except`, which need not exist.
///
/// A symbolic link counts as the file that it leads to, if that lies in the folder, too. Links to folders are not
/// followed, so the walk ends. Pipes, sockets and devices are left out without being opened. Throws Failure if `folder`
/// itself cannot be read. The log tells of it.
FolderContent WalkFolder(std::filesystem::path const & folder, std::vector<std::filesystem::path> const & except = {});

/// A name or relative path as projects store it: the bytes of the name where names are bytes, and UTF-8 where they are
/// UTF-16, a lone surrogate as three bytes of its own. Nothing is lost, whatever the name.
std::string StoredName(std::filesystem::path const & name);

/// A path given as text, on the command line or to a test: StoredName backwards.
std::filesystem::path NativePath(std::string const & stored);

} // namespace Storyboard
