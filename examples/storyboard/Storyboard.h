#pragma once

#include <string>
#include <vector>

#include <kvcore/examples/storyboard/Progress.h>
#include <kvcore/tools/support/Program.h>

namespace Storyboard
{

/// The `storyboard` program: does what the arguments (UTF-8, without the program's name) ask for and returns the exit
/// code. Every failure becomes a message on the error stream; nothing is thrown.
[[nodiscard]] int
RunStoryboard(std::vector<std::string> const & arguments, kv::tools::Console & console, Screen const & screen = {});

} // namespace Storyboard
