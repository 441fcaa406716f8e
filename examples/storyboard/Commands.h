#pragma once

#include <filesystem>
#include <string>

#include <kvcore/examples/storyboard/Progress.h>
#include <kvcore/examples/storyboard/SourceJobs.h>
#include <kvcore/tools/support/ExitCodes.h>
#include <kvcore/tools/support/Program.h>

/// The three things that the program does. Each returns the program's exit code, prints results on the output and all
/// else on the error stream. Throws Failure, and StreamBase::Exception for failures of the output alone.
namespace Storyboard
{

/// Beside those of kv::tools::ExitCode.
enum ExitCode : int
{
    ExitIncomplete = 5, ///< the project was made, but without files that could not be read
    ExitChanged = 10,   ///< sources have changed, none is missing
    ExitMissing = 11,   ///< sources are missing; others may have changed
};

struct Context
{
    kv::tools::Console & console;
    Screen const & screen;
    Progress::Loudness loudness;
    ReadingOptions reading;
};

/// Makes a project of what is in a folder.
int Make(Context const & context, std::filesystem::path const & folder, std::filesystem::path const & file);

enum class Detail
{
    Everything,
    TotalsOnly
};

/// Prints what is in a project, in lines of `width` columns if that is not 0.
int Show(Context const & context, std::filesystem::path const & file, Detail detail, std::size_t width);

/// Compares a project's sources with a folder.
int Verify(Context const & context, std::filesystem::path const & file, std::filesystem::path const & folder);

} // namespace Storyboard
