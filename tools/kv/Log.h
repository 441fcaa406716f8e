#pragma once

#include <string>
#include <vector>

#include <kvcore/tools/support/Program.h>

namespace kv::tools
{

/// What `kv log` was asked for.
struct LogOptions
{
    std::string file;
    std::vector<std::string> modules; ///< names of which one must match; none for all
    std::string since;                ///< "HH:MM:SS" or "HH:MM"; empty for no bound
    std::string until;
    bool follow = false;
    std::string colour = "auto"; ///< "auto", "always", "never"
};

/// Shows the lines of a log file in UTF-8. With `follow`, goes on until nobody reads any more: waits for further lines,
/// and begins anew when the log was emptied. Throws IoFailure, UsageError.
[[nodiscard]] int ShowLog(LogOptions const & options, Console & console);

} // namespace kv::tools
