#pragma once

#include <filesystem>
#include <string>

#include <kvcore/examples/storyboard/Progress.h>
#include <kvcore/examples/storyboard/SourceJobs.h>
#include <kvcore/tools/support/ExitCodes.h>
#include <kvcore/tools/support/Program.h>

/// What the program does. Each returns the program's exit code, prints results on the output and all
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

/// Prints what is in the project that was made last, wherever its file is now.
int ShowLast(Context const & context, Detail detail, std::size_t width);

/// Compares a project's sources with a folder.
int Verify(Context const & context, std::filesystem::path const & file, std::filesystem::path const & folder);

/// Writes a project as XML, or as a web page, into a file or, without a name, onto the output.
int WriteXml(Context const & context, std::filesystem::path const & file, std::filesystem::path const & output);
int WritePage(Context const & context, std::filesystem::path const & file, std::filesystem::path const & output);

/// Tells whether a file is the description of a project.
int Check(Context const & context, std::filesystem::path const & description);

/// Makes a project of its description.
int Restore(std::filesystem::path const & description, std::filesystem::path const & file);

} // namespace Storyboard
