#pragma once

// The steps of FileFinder::FindFilesRecursive, for folders that are known by their paths and for those that are held.

#include <vector>

#include <kvcore/files/File.h>
#include <kvcore/files/FileFinder.h>

namespace kv::detail
{

/// A folder that is known by its path.
struct PathFolder
{
    String path;

    explicit operator bool() const
    {
        return true;
    }
    String const & Path() const
    {
        return path;
    }
    String Pattern(String const & mask) const
    {
        return File::MakePath(path, mask);
    }
    PathFolder Enter(String const & name) const
    {
        // As a finder names it: below the current directory, which has no path here, by a dot.
        return {File::MakePath(File::GetDirname(Pattern(TEXT("*.*"))), name)};
    }
};

/// Walks a folder and what is below it. A `Folder` has a Path, the Pattern that finds a mask in it, and an Enter, which
/// gives false for what it does not go into.
template <class Folder>
bool WalkFolder(
    Folder const & folder, String const & mask, FileFinder::IFindCallback & callback, bool includeDirectories)
{
    FileFinder finder;
    {
        std::vector<String> directories;
        for (bool found = finder.Start(folder.Pattern(TEXT("*.*")), false); found; found = finder.Next())
        {
            if (finder.IsDirectory() && !finder.IsLink())
            {
                directories.push_back(finder.GetFileName());
            }
        }
        for (String const & directory : directories)
        {
            if (Folder const below = folder.Enter(directory))
            {
                // Kept: how it went there changes nothing here.
                WalkFolder(below, mask, callback, includeDirectories);
            }
        }
    }
    for (bool found = finder.Start(folder.Pattern(mask), false); found; found = finder.Next())
    {
        // Kept: a directory that is not asked for ends the walk. It is not passed over.
        if (!includeDirectories && finder.IsDirectory())
        {
            return false;
        }
        if (!callback.OnFile(folder.Path(), finder.GetFileName()))
        {
            return false;
        }
    }
    return true;
}

} // namespace kv::detail
