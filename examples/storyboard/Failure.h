#pragma once

#include <filesystem>
#include <string>

#include <kvcore/examples/storyboard/Display.h>
#include <kvcore/examples/storyboard/FolderWalk.h>
#include <kvcore/tools/support/ExitCodes.h>

namespace Storyboard
{

/// What ends a run: the message for the user, and the exit code.
struct Failure
{
    int exitCode;
    std::string message;
};

/// The system's refusal: "cannot read folder /x: Permission denied".
inline Failure SystemFailure(std::string const & tried, std::filesystem::path const & path, std::string const & reason)
{
    return {kv::tools::ExitIo, tried + ' ' + Printable(StoredName(path)) + ": " + reason};
}

} // namespace Storyboard
