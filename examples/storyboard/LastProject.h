#pragma once

#include <string>

#include <kvcore/examples/storyboard/ProjectFile.h>

namespace Storyboard
{

/// The project that was made last, as the user's part of the registry keeps it: in the key `Software\KVCore\storyboard`
/// the object itself, and beside it where its file was saved.
struct LastProject
{
    LoadedProject loaded; ///< the size of the file is not known here: 0
    std::string file;     ///< as a person reads it; may be empty
};

/// Keeps a project in place of the one before. False if the registry did not take it.
bool KeepLastProject(Project const & project, std::filesystem::path const & file);

/// The project that is kept. Throws Failure: if there is none, and with ExitDamaged for what is no project.
LastProject LoadLastProject();

} // namespace Storyboard
