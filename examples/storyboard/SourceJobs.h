#pragma once

#include <functional>
#include <string>
#include <vector>

#include <kvcore/examples/storyboard/FolderWalk.h>
#include <kvcore/examples/storyboard/Progress.h>
#include <kvcore/examples/storyboard/SourceReader.h>

namespace Storyboard
{

/// How sources are read.
struct ReadingOptions
{
    static constexpr int maxJobs = 64;

    int jobs = 0;          ///< threads; 0 for one each processor
    std::string faultName; ///< for demonstrations: reading a file of this name ends in a hardware fault
};

/// What came of reading one file: its content, or why there is none.
struct SourceResult
{
    SourceContent content;
    std::string failure; ///< empty if it was read
};

/// Reads files on several threads and hands what came of each to `take`, on the calling thread and in the order of
/// `files`. A file that cannot be read is a result, and so is one whose reading ends in a hardware fault: the others go
/// on. What `take` throws ends all.
void ReadSources(
    std::vector<FoundFile> const & files, ReadingOptions const & options, Progress & progress,
    std::function<void(FoundFile const &, SourceResult const &)> const & take);

} // namespace Storyboard
