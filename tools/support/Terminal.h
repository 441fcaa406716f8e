#pragma once

#include <kvcore/tools/support/StdioStreams.h>

namespace kv::tools
{

/// Whether a standard stream is connected to a terminal.
[[nodiscard]] bool IsTerminal(StandardStream stream);

/// The columns of the terminal that a standard stream is connected to; 0 if it goes to a file, a pipe or nowhere.
[[nodiscard]] int TerminalWidth(StandardStream stream);

} // namespace kv::tools
