#pragma once

#include <string>

#include <kvcore/tools/support/Program.h>

namespace kv::tools
{

/// Lists the crash reports, the newest last: name, process, what happened. An exit code.
int ListCrashReports(Console & console);

/// Prints one report: the name or path of it, or "last". Names of C++ functions are shown as they stand in source code,
/// unless `raw`. ExitFailed if there is no such report.
int ShowCrashReport(std::string const & name, bool raw, Console & console);

} // namespace kv::tools
