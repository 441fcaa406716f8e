#pragma once

#include <cstdint>
#include <filesystem>

#include <kvcore/examples/storyboard/Model.h>
#include <kvcore/examples/storyboard/ProjectStream.h>
#include <kvcore/tools/support/SourceStream.h>

namespace Storyboard
{

/// How many bytes the project takes along the chain that stores it.
struct ProjectSizes
{
    std::int64_t graph = 0;      ///< as a graph of objects
    std::int64_t compressed = 0; ///< behind the compression
    std::int64_t file = 0;       ///< with the checksums, as it lies on disk
};

/// Writes a project: an object graph, compressed, in checksummed blocks. `docs/storyboard-format.md` has the bytes.
ProjectSizes WriteProject(Project const & project, OutputStream & target);

struct LoadedProject
{
    Ptr<Project> project;
    SharingStatistics sharing;
    ProjectSizes sizes;
};

/// Reads a project up to the end of `source`, which must be the end of the project.
///
/// Throws StreamBase::Exception: what the source throws, or else the library's failure for whatever damage there is, or
/// code 3 with a text of the model; "Data behind the end of project", if that is the damage.
/// `factory` makes the objects.
LoadedProject ReadProject(kv::tools::SourceStream & source, IObjectFactory const & factory = ProjectFactory());

/// WriteProject into a file. It comes to be whole or not at all: the bytes go to another file beside it, which takes
/// its place once they are on the disk. A link is followed, and the permissions of a file that was there survive.
/// Throws Failure.
ProjectSizes SaveProject(Project const & project, std::filesystem::path const & file);

/// Throws Failure if SaveProject could not succeed: the folder of `file` is not there, or `file` is there and no
/// regular file. Worth a look before hours of reading.
void CheckSaveTarget(std::filesystem::path const & file);

/// ReadProject from a file. Throws Failure: for damage with ExitDamaged and the text and code of the exception, else
/// with ExitIo.
LoadedProject LoadProject(std::filesystem::path const & file);

} // namespace Storyboard
