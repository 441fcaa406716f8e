#pragma once

#include <string>
#include <vector>

#include <kvcore/examples/storyboard/Progress.h>
#include <kvcore/platform/types.h>
#include <kvcore/tools/support/Program.h>

namespace Storyboard
{

constexpr LANGID english = 0x0409;
constexpr LANGID german = 0x0407;

/// The `storyboard` program: does what the arguments (UTF-8, without the program's name) ask for and returns the exit
/// code. Every failure becomes a message on the error stream; nothing is thrown. It speaks the language that the
/// arguments name, or else `language`, or English where there are no texts in that.
///
/// There is one application in a process at a time, and so one call.
[[nodiscard]] int RunStoryboard(
    std::vector<std::string> const & arguments, kv::tools::Console & console, Screen const & screen = {},
    LANGID language = english);

} // namespace Storyboard
