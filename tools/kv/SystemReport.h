#pragma once

#include <kvcore/tools/support/Program.h>

namespace kv::tools
{

/// What `kv sysinfo` was asked for.
struct SystemReportOptions
{
    bool asJson = false;
    bool withCodePages = false;
    std::vector<std::string> variables; ///< environment variables to show
};

/// Prints what the library knows of the system, for people or as one JSON object.
[[nodiscard]] int PrintSystemReport(SystemReportOptions const & options, Console & console);

} // namespace kv::tools
