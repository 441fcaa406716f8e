#pragma once

#include <kvcore/tools/support/Program.h>

namespace kv::tools
{

/// The `kv` program: runs the command that the arguments name over the given streams and returns its exit code. Every
/// failure becomes a message on the error stream and a code; nothing is thrown.
[[nodiscard]] int RunKv(std::vector<std::string> const & arguments, Console & console);

} // namespace kv::tools
