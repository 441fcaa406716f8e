#pragma once

#include <filesystem>
#include <string>

#include <kvcore/examples/storyboard/Display.h>
#include <kvcore/examples/storyboard/FolderWalk.h>
#include <kvcore/examples/storyboard/Texts.h>
#include <kvcore/tools/support/ExitCodes.h>

namespace Storyboard
{

/// What ends a run: the message for the user, and the exit code.
struct Failure
{
    int exitCode;
    std::string message;
};

/// The system's refusal: "cannot read /x: Permission denied". `tried` is the number of a text for name and reason.
inline Failure SystemFailure(unsigned tried, std::filesystem::path const & path, std::string const & reason)
{
    return {kv::tools::ExitIo, Text(tried, Printable(StoredName(path)), reason)};
}

} // namespace Storyboard
