#pragma once

#include <string>

#include <kvcore/tools/support/Program.h>

namespace kv::tools
{

/// Lists the modules of a process, by its number or "self": address, size, product version, path. A process that is not
/// there or may not be looked at is reported; the result is then `ExitFailed`. Throws UsageError for what is no number.
[[nodiscard]] int ListModules(std::string const & process, Console & console);

} // namespace kv::tools
