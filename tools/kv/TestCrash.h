#pragma once

#include <string>

#include <kvcore/tools/support/Program.h>

namespace kv::tools
{

/// Provokes a fault of the kind, has it reported, catches it and prints what was caught and the name of the report.
/// With `uncaught` there is nothing to catch it, and it meets the system's default. An exit code; throws UsageError for
/// a kind that there is not.
int TestCrash(std::string const & kind, bool uncaught, Console & console);

/// Lists the kinds.
int ListCrashKinds(Console & console);

} // namespace kv::tools
